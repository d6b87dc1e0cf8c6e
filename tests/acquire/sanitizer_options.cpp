// Options the sanitizer builds of the acquisition tests start with.
//
// libgphoto2 leaks on its own: its USB port module a little every time it
// looks for devices, and its driver and port modules when they are loaded
// (their initialisers run inside the loader calls below). Sanitizer builds
// take full stacks, so that only what is allocated under those calls is
// excused.
extern "C" const char *__asan_default_options() {
  return "fast_unwind_on_malloc=0";
}
extern "C" const char *__lsan_default_suppressions() {
  return "leak:gp_port_usb_find_device\n"
         "leak:gp_abilities_list_load\n"
         "leak:gp_port_info_list_load\n";
}
