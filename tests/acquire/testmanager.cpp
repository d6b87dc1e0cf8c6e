// A TWAIN source manager for the tests, loaded by the session in place of a
// real one. It offers the test source library (named by
// KORVEL_TEST_TWAIN_SOURCE) under one or more product names, passes the
// application's source triplets on to it, carries the source's notifications
// to the application's callback, and can be told through the environment to
// misbehave:
//   KORVEL_TEST_TWAIN_SOURCES  "name;name;..." the sources listed (default:
//                              the source library's own name)
//   KORVEL_TEST_TWAIN_SELECT   the product name the user "selects", or
//                              "cancel"
//   KORVEL_TEST_TWAIN_FAIL     "dg,dat,msg;..." triplets that fail, with
//                              KORVEL_TEST_TWAIN_FAIL_CC as the condition
//   KORVEL_TEST_TWAIN_VERSION1 set: behave as a version 1 manager (no
//                              callback, no memory functions)
//   KORVEL_TEST_TWAIN_LOG      a file each application triplet is appended
//                              to as "dg dat msg rc"
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "acquire/twaindefs.h"

extern "C" __attribute__((visibility("default"))) TW_UINT16 DSM_Entry(pTW_IDENTITY origin,
                                                                      pTW_IDENTITY dest,
                                                                      TW_UINT32 dg, TW_UINT16 dat,
                                                                      TW_UINT16 msg,
                                                                      TW_MEMREF data);

namespace {

struct Manager {
  void *library = nullptr;
  DSENTRYPROC source = nullptr;
  pTW_IDENTITY app = nullptr;
  std::vector<TW_IDENTITY> sources;
  size_t next = 0;
  int open = -1;  // index of the open source
  DSMCALLBACKPROC callback = nullptr;
  TW_UINT16 condition = TWCC_SUCCESS;
  bool injected = false;  // the last triplet's failure was asked for
  TW_UINT32 nextAppId = 1;
};

Manager g_manager;

std::string Env(const char *name) {
  const char *value = std::getenv(name);
  return value ? value : "";
}

std::vector<std::string> Split(const std::string &text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t end = text.find(separator, start);
    const std::string part = text.substr(start, end == std::string::npos ? end : end - start);
    if (!part.empty()) parts.push_back(part);
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return parts;
}

bool Version1() {
  return !Env("KORVEL_TEST_TWAIN_VERSION1").empty();
}

bool FailureAskedFor(TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg) {
  for (const std::string &item : Split(Env("KORVEL_TEST_TWAIN_FAIL"), ';')) {
    const std::vector<std::string> fields = Split(item, ',');
    if (fields.size() != 3) continue;
    if (std::strtoul(fields[0].c_str(), nullptr, 0) == dg &&
        std::strtoul(fields[1].c_str(), nullptr, 0) == dat &&
        std::strtoul(fields[2].c_str(), nullptr, 0) == msg)
      return true;
  }
  return false;
}

void Log(TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg, TW_UINT16 rc) {
  const std::string path = Env("KORVEL_TEST_TWAIN_LOG");
  if (path.empty()) return;
  if (FILE *file = std::fopen(path.c_str(), "a")) {
    std::fprintf(file, "%u %u %u %u\n", unsigned(dg), unsigned(dat), unsigned(msg), unsigned(rc));
    std::fclose(file);
  }
}

TW_HANDLE MemAllocate(TW_UINT32 size) {
  return std::calloc(size, 1);
}
void MemFree(TW_HANDLE handle) {
  std::free(handle);
}
TW_MEMREF MemLock(TW_HANDLE handle) {
  return handle;
}
void MemUnlock(TW_HANDLE) {}

bool LoadSources() {
  if (!g_manager.library) {
    g_manager.library = dlopen(Env("KORVEL_TEST_TWAIN_SOURCE").c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!g_manager.library) return false;
    g_manager.source = reinterpret_cast<DSENTRYPROC>(dlsym(g_manager.library, "DS_Entry"));
    if (!g_manager.source) return false;
  }
  TW_IDENTITY own{};
  if (g_manager.source(nullptr, DG_CONTROL, DAT_IDENTITY, MSG_GET, &own) != TWRC_SUCCESS)
    return false;
  g_manager.sources.clear();
  std::vector<std::string> names = Split(Env("KORVEL_TEST_TWAIN_SOURCES"), ';');
  if (names.empty()) names.push_back(own.ProductName);
  for (const std::string &name : names) {
    TW_IDENTITY identity = own;
    identity.Id = TW_UINT32(100 + g_manager.sources.size());
    std::snprintf(identity.ProductName, sizeof identity.ProductName, "%s", name.c_str());
    g_manager.sources.push_back(identity);
  }
  return true;
}

int FindSource(const char *name) {
  for (size_t i = 0; i < g_manager.sources.size(); ++i)
    if (std::strcmp(g_manager.sources[i].ProductName, name) == 0) return int(i);
  return -1;
}

TW_UINT16 Fail(TW_UINT16 condition) {
  g_manager.condition = condition;
  return TWRC_FAILURE;
}

TW_UINT16 ToManager(pTW_IDENTITY origin, TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg,
                    TW_MEMREF data) {
  if (dg != DG_CONTROL) return Fail(TWCC_BADPROTOCOL);
  if (dat == DAT_STATUS && msg == MSG_GET) {
    static_cast<TW_STATUS *>(data)->ConditionCode = g_manager.condition;
    return TWRC_SUCCESS;
  }
  if (dat == DAT_PARENT && msg == MSG_OPENDSM) {
    if (!LoadSources()) return Fail(TWCC_BUMMER);
    origin->Id = g_manager.nextAppId++;
    if ((origin->SupportedGroups & DF_APP2) && !Version1()) origin->SupportedGroups |= DF_DSM2;
    g_manager.app = origin;
    return TWRC_SUCCESS;
  }
  if (!g_manager.app || g_manager.app->Id != origin->Id) return Fail(TWCC_SEQERROR);
  if (dat == DAT_PARENT && msg == MSG_CLOSEDSM) {
    if (g_manager.open >= 0) return Fail(TWCC_SEQERROR);
    g_manager.app = nullptr;
    return TWRC_SUCCESS;
  }
  if (dat == DAT_ENTRYPOINT && msg == MSG_GET) {
    if (Version1()) return Fail(TWCC_BADPROTOCOL);
    auto *entry = static_cast<TW_ENTRYPOINT *>(data);
    entry->DSM_Entry = &DSM_Entry;
    entry->DSM_MemAllocate = &MemAllocate;
    entry->DSM_MemFree = &MemFree;
    entry->DSM_MemLock = &MemLock;
    entry->DSM_MemUnlock = &MemUnlock;
    return TWRC_SUCCESS;
  }
  if (dat != DAT_IDENTITY) return Fail(TWCC_BADPROTOCOL);
  auto *identity = static_cast<pTW_IDENTITY>(data);
  switch (msg) {
    case MSG_GETFIRST:
      g_manager.next = 0;
      [[fallthrough]];
    case MSG_GETNEXT:
      if (g_manager.next >= g_manager.sources.size()) return TWRC_ENDOFLIST;
      *identity = g_manager.sources[g_manager.next++];
      return TWRC_SUCCESS;
    case MSG_GETDEFAULT:
      if (g_manager.sources.empty()) return Fail(TWCC_NODS);
      *identity = g_manager.sources.front();
      return TWRC_SUCCESS;
    case MSG_USERSELECT: {
      const std::string choice = Env("KORVEL_TEST_TWAIN_SELECT");
      if (choice == "cancel") return TWRC_CANCEL;
      const int index =
          choice.empty() ? FindSource(identity->ProductName) : FindSource(choice.c_str());
      if (index < 0) return Fail(TWCC_NODS);
      *identity = g_manager.sources[size_t(index)];
      return TWRC_SUCCESS;
    }
    case MSG_OPENDS: {
      if (g_manager.open >= 0) return Fail(TWCC_MAXCONNECTIONS);
      // An empty name opens the default source, as the standard has it.
      const int index = identity->ProductName[0] ? FindSource(identity->ProductName) : 0;
      if (index < 0 || g_manager.sources.empty()) return Fail(TWCC_NODS);
      TW_IDENTITY chosen = g_manager.sources[size_t(index)];
      if (g_manager.source(origin, DG_CONTROL, DAT_IDENTITY, MSG_OPENDS, &chosen) != TWRC_SUCCESS)
        return Fail(TWCC_OPERATIONERROR);
      if (!Version1()) {
        TW_ENTRYPOINT entry{};
        entry.Size = sizeof entry;
        (void)ToManager(origin, DG_CONTROL, DAT_ENTRYPOINT, MSG_GET, &entry);
        g_manager.source(origin, DG_CONTROL, DAT_ENTRYPOINT, MSG_SET, &entry);
      }
      *identity = g_manager.sources[size_t(index)];
      g_manager.open = index;
      return TWRC_SUCCESS;
    }
    case MSG_CLOSEDS:
      if (g_manager.open < 0 || identity->Id != g_manager.sources[size_t(g_manager.open)].Id)
        return Fail(TWCC_NODS);
      g_manager.source(origin, DG_CONTROL, DAT_IDENTITY, MSG_CLOSEDS, identity);
      g_manager.open = -1;
      g_manager.callback = nullptr;
      return TWRC_SUCCESS;
    default:
      return Fail(TWCC_BADPROTOCOL);
  }
}

TW_UINT16 ToSource(pTW_IDENTITY origin, pTW_IDENTITY dest, TW_UINT32 dg, TW_UINT16 dat,
                   TW_UINT16 msg, TW_MEMREF data) {
  if (g_manager.open < 0 || dest->Id != g_manager.sources[size_t(g_manager.open)].Id)
    return Fail(TWCC_BADDEST);
  if (dg == DG_CONTROL && dat == DAT_STATUS && g_manager.injected) {
    static_cast<TW_STATUS *>(data)->ConditionCode = g_manager.condition;
    return TWRC_SUCCESS;
  }
  if (dg == DG_CONTROL && (dat == DAT_CALLBACK || dat == DAT_CALLBACK2) &&
      msg == MSG_REGISTER_CALLBACK) {
    if (Version1()) return Fail(TWCC_BADPROTOCOL);
    const TW_MEMREF proc = dat == DAT_CALLBACK2 ? static_cast<TW_CALLBACK2 *>(data)->CallBackProc
                                                : static_cast<TW_CALLBACK *>(data)->CallBackProc;
    std::memcpy(&g_manager.callback, &proc, sizeof proc);
    return TWRC_SUCCESS;
  }
  return g_manager.source(origin, dg, dat, msg, data);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) TW_UINT16 DSM_Entry(pTW_IDENTITY origin,
                                                                      pTW_IDENTITY dest,
                                                                      TW_UINT32 dg, TW_UINT16 dat,
                                                                      TW_UINT16 msg,
                                                                      TW_MEMREF data) {
  if (!origin) return TWRC_FAILURE;
  // A notification of the open source, for the application's callback.
  if (g_manager.open >= 0 && origin->Id == g_manager.sources[size_t(g_manager.open)].Id &&
      dat == DAT_NULL) {
    if (!g_manager.callback || !g_manager.app) return TWRC_FAILURE;
    return g_manager.callback(origin, g_manager.app, DG_CONTROL, DAT_NULL, msg, nullptr);
  }
  TW_UINT16 rc;
  const bool status = dg == DG_CONTROL && dat == DAT_STATUS;
  if (!status && FailureAskedFor(dg, dat, msg)) {
    const std::string condition = Env("KORVEL_TEST_TWAIN_FAIL_CC");
    rc = Fail(condition.empty() ? TW_UINT16{TWCC_BUMMER}
                                : TW_UINT16(std::strtoul(condition.c_str(), nullptr, 0)));
    g_manager.injected = true;
  } else {
    if (!status) g_manager.injected = false;
    rc = dest ? ToSource(origin, dest, dg, dat, msg, data) : ToManager(origin, dg, dat, msg, data);
    if (!status && rc != TWRC_FAILURE) g_manager.condition = TWCC_SUCCESS;
  }
  Log(dg, dat, msg, rc);
  return rc;
}
