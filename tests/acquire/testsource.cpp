// A TWAIN data source for the tests: a camera named "Korvel Twain Source 3.0"
// that, once enabled, has pictures ready and hands them over by native
// transfer as packed 24-bit DIBs. What it does is read from the environment
// when it is enabled:
//   KORVEL_TEST_PICTURES  how many pictures (default 3)
//   KORVEL_TEST_CANCEL    the number (from 1) of a transfer that ends
//                         cancelled instead of done
//   KORVEL_TEST_DELIVERY  "callback": announce pictures and the end through
//                         the manager's callback, from a thread of its own;
//                         otherwise in answer to the application's events
// Picture k is (8 + 4k) x 6 pixels of one colour: blue 10k, green 100,
// red 200.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "acquire/twaindefs.h"

namespace {

struct Source {
  std::atomic<int> state{3};
  TW_IDENTITY identity{};
  TW_IDENTITY app{};
  TW_ENTRYPOINT entry{};
  int pictures = 0, pending = 0, transferred = 0, cancel = 0;
  bool callback = false, announced = false, closeAsked = false;
  TW_UINT16 condition = TWCC_SUCCESS;
  std::thread notifier;
};

Source g_source;

int EnvNumber(const char *name, int otherwise) {
  const char *value = std::getenv(name);
  return value && *value ? std::atoi(value) : otherwise;
}

void Identity(TW_IDENTITY *identity) {
  *identity = TW_IDENTITY{};
  identity->Version = {3, 0, TWLG_USA, TWCY_USA, "3.0"};
  identity->ProtocolMajor = 2;
  identity->ProtocolMinor = 4;
  identity->SupportedGroups = DG_CONTROL | DG_IMAGE | DF_DS2;
  std::snprintf(identity->Manufacturer, sizeof identity->Manufacturer, "Korvel");
  std::snprintf(identity->ProductFamily, sizeof identity->ProductFamily, "Camera");
  std::snprintf(identity->ProductName, sizeof identity->ProductName, "Korvel Twain Source 3.0");
}

void Join() {
  if (g_source.notifier.joinable()) g_source.notifier.join();
}

// Tells the application through the manager, from another thread, a moment
// later: as a camera's own thread would.
void Notify(TW_UINT16 msg) {
  Join();
  g_source.notifier = std::thread([msg] {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (g_source.entry.DSM_Entry)
      g_source.entry.DSM_Entry(&g_source.identity, &g_source.app, DG_CONTROL, DAT_NULL, msg,
                               nullptr);
  });
}

TW_UINT16 Fail(TW_UINT16 condition) {
  g_source.condition = condition;
  return TWRC_FAILURE;
}

TW_HANDLE MakePicture(int number) {
  const int width = 8 + 4 * number;
  const int height = 6;
  const int row = (width * 3 + 3) / 4 * 4;
  const size_t size = 40 + size_t(row) * height;
  TW_HANDLE handle = g_source.entry.DSM_MemAllocate
                         ? g_source.entry.DSM_MemAllocate(TW_UINT32(size))
                         : std::calloc(size, 1);
  if (!handle) return nullptr;
  auto *bytes = static_cast<uint8_t *>(
      g_source.entry.DSM_MemLock ? g_source.entry.DSM_MemLock(handle) : handle);
  const uint32_t headerSize = 40;
  const int32_t w = width, h = height;
  const uint16_t planes = 1, bits = 24;
  const uint32_t imageSize = uint32_t(row * height);
  std::memcpy(bytes, &headerSize, 4);
  std::memcpy(bytes + 4, &w, 4);
  std::memcpy(bytes + 8, &h, 4);
  std::memcpy(bytes + 12, &planes, 2);
  std::memcpy(bytes + 14, &bits, 2);
  std::memcpy(bytes + 20, &imageSize, 4);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      uint8_t *pixel = bytes + 40 + size_t(y) * row + size_t(x) * 3;
      pixel[0] = uint8_t(10 * number);
      pixel[1] = 100;
      pixel[2] = 200;
    }
  if (g_source.entry.DSM_MemUnlock) g_source.entry.DSM_MemUnlock(handle);
  return handle;
}

TW_UINT16 Control(TW_UINT16 dat, TW_UINT16 msg, TW_MEMREF data) {
  switch (dat) {
    case DAT_STATUS:
      static_cast<TW_STATUS *>(data)->ConditionCode = g_source.condition;
      g_source.condition = TWCC_SUCCESS;
      return TWRC_SUCCESS;
    case DAT_ENTRYPOINT:
      if (msg != MSG_SET) return Fail(TWCC_BADPROTOCOL);
      g_source.entry = *static_cast<TW_ENTRYPOINT *>(data);
      return TWRC_SUCCESS;
    case DAT_IDENTITY:
      if (msg == MSG_GET) {
        Identity(static_cast<pTW_IDENTITY>(data));
        return TWRC_SUCCESS;
      }
      if (msg == MSG_OPENDS) {
        if (g_source.state != 3) return Fail(TWCC_SEQERROR);
        Identity(&g_source.identity);
        g_source.identity.Id = static_cast<pTW_IDENTITY>(data)->Id;
        std::memcpy(g_source.identity.ProductName, static_cast<pTW_IDENTITY>(data)->ProductName,
                    sizeof g_source.identity.ProductName);
        g_source.entry = TW_ENTRYPOINT{};
        g_source.state = 4;
        return TWRC_SUCCESS;
      }
      if (msg == MSG_CLOSEDS) {
        Join();
        g_source.state = 3;
        return TWRC_SUCCESS;
      }
      return Fail(TWCC_BADPROTOCOL);
    case DAT_USERINTERFACE:
      if (msg == MSG_ENABLEDS) {
        if (g_source.state != 4) return Fail(TWCC_SEQERROR);
        g_source.pictures = g_source.pending = EnvNumber("KORVEL_TEST_PICTURES", 3);
        g_source.cancel = EnvNumber("KORVEL_TEST_CANCEL", 0);
        const char *delivery = std::getenv("KORVEL_TEST_DELIVERY");
        g_source.callback = delivery && std::string(delivery) == "callback";
        g_source.transferred = 0;
        g_source.announced = g_source.closeAsked = false;
        g_source.state = 5;
        if (g_source.callback && g_source.pending > 0) {
          g_source.announced = true;
          g_source.state = 6;
          Notify(MSG_XFERREADY);
        }
        return TWRC_SUCCESS;
      }
      if (msg == MSG_DISABLEDS) {
        if (g_source.state != 5) return Fail(TWCC_SEQERROR);
        Join();
        g_source.state = 4;
        return TWRC_SUCCESS;
      }
      return Fail(TWCC_BADPROTOCOL);
    case DAT_EVENT: {
      auto *event = static_cast<TW_EVENT *>(data);
      event->TWMessage = MSG_NULL;
      if (g_source.callback || g_source.state < 5) return TWRC_NOTDSEVENT;
      if (g_source.state == 5 && g_source.pending > 0 && !g_source.announced) {
        g_source.announced = true;
        g_source.state = 6;
        event->TWMessage = MSG_XFERREADY;
        return TWRC_DSEVENT;
      }
      if (g_source.state == 5 && g_source.announced && !g_source.closeAsked) {
        g_source.closeAsked = true;
        event->TWMessage = MSG_CLOSEDSREQ;
        return TWRC_DSEVENT;
      }
      return TWRC_NOTDSEVENT;
    }
    case DAT_PENDINGXFERS: {
      auto *pending = static_cast<TW_PENDINGXFERS *>(data);
      if (msg == MSG_ENDXFER) {
        if (g_source.state != 7 && g_source.state != 6) return Fail(TWCC_SEQERROR);
        g_source.pending -= 1;
        pending->Count = TW_UINT16(g_source.pending);
        g_source.state = g_source.pending ? 6 : 5;
        if (!g_source.pending && g_source.callback) {
          g_source.closeAsked = true;
          Notify(MSG_CLOSEDSREQ);
        }
        return TWRC_SUCCESS;
      }
      if (msg == MSG_RESET) {
        if (g_source.state != 6) return Fail(TWCC_SEQERROR);
        g_source.pending = 0;
        pending->Count = 0;
        g_source.state = 5;
        return TWRC_SUCCESS;
      }
      return Fail(TWCC_BADPROTOCOL);
    }
    default:
      return Fail(TWCC_BADPROTOCOL);
  }
}

}  // namespace

extern "C" __attribute__((visibility("default"))) TW_UINT16 DS_Entry(pTW_IDENTITY origin,
                                                                     TW_UINT32 dg, TW_UINT16 dat,
                                                                     TW_UINT16 msg,
                                                                     TW_MEMREF data) {
  if (origin && dg == DG_CONTROL && dat == DAT_IDENTITY && msg == MSG_OPENDS)
    g_source.app = *origin;
  if (dg == DG_CONTROL) return Control(dat, msg, data);
  if (dg == DG_IMAGE && dat == DAT_IMAGENATIVEXFER && msg == MSG_GET) {
    if (g_source.state != 6) return Fail(TWCC_SEQERROR);
    const int number = ++g_source.transferred;
    g_source.state = 7;
    if (number == g_source.cancel) return TWRC_CANCEL;
    TW_HANDLE picture = MakePicture(number);
    if (!picture) return Fail(TWCC_LOWMEMORY);
    *static_cast<TW_HANDLE *>(data) = picture;
    return TWRC_XFERDONE;
  }
  return Fail(TWCC_BADPROTOCOL);
}
