// The switchboard of the output commands.
#include "share/outputcommands.h"

namespace {

COutputCommands *gInstalled = nullptr;

}  // namespace

COutputCommands *COutputCommands::Current() {
  return gInstalled;
}

COutputCommands *COutputCommands::Install(COutputCommands *commands) {
  COutputCommands *old = gInstalled;
  gInstalled = commands;
  return old;
}
