// The TWAIN session's state machine. Every triplet goes through one of two
// callers, which keep the return code and move the state as the standard's
// state table says; the operations above them only decide which triplets to
// send and in what order.
#include "acquire/twainsession.h"

#include <dlfcn.h>

#include <QByteArray>
#include <QFile>
#include <QTimer>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

// Process-wide, as there is one manager library per process.
void *g_library = nullptr;
DSMENTRYPROC g_entry = nullptr;
bool g_loaded = false;
TW_IDENTITY g_source{};
// A version 2 manager's memory functions, which native transfers are
// allocated with; empty for older managers.
TW_ENTRYPOINT g_memory{};

TW_HANDLE g_mainWindow = nullptr;
void (*g_bringToTop)(TW_HANDLE) = nullptr;

// The session the manager's callback speaks to. The manager may call from a
// thread of the source's, so the pointer is guarded.
std::mutex g_callbackMutex;
CTwainSession *g_callbackSession = nullptr;

// Native transfers of larger pictures are refused rather than trusted.
constexpr int64_t kMaxSide = 1 << 16;

const char *const kReturnCodeNames[] = {"TWRC_SUCCESS",  "TWRC_FAILURE",  "TWRC_CHECKSTATUS",
                                        "TWRC_CANCEL",   "TWRC_DSEVENT",  "TWRC_NOTDSEVENT",
                                        "TWRC_XFERDONE", "TWRC_ENDOFLIST"};
const char *const kConditionCodeNames[] = {
    "TWCC_SUCCESS",        "TWCC_BUMMER",         "TWCC_LOWMEMORY",       "TWCC_NODS",
    "TWCC_MAXCONNECTIONS", "TWCC_OPERATIONERROR", "TWCC_BADCAP",          "<bad cc:7>",
    "<bad cc:8>",          "TWCC_BADPROTOCOL",    "TWCC_BADVALUE",        "TWCC_SEQERROR",
    "TWCC_BADDEST",        "TWCC_CAPUNSUPPORTED", "TWCC_CAPBADOPERATION", "TWCC_CAPSEQERROR"};

template <class T>
T ReadField(const uint8_t *bytes, size_t offset) {
  T value;
  std::memcpy(&value, bytes + offset, sizeof value);
  return value;
}

// Bytes of a packed DIB from its header: header, colour table or masks, rows.
// 0 for a header that describes no picture this program could hold.
size_t PackedDibBytes(const uint8_t *header) {
  const auto size = ReadField<uint32_t>(header, 0);
  const auto width = ReadField<int32_t>(header, 4);
  const auto height = ReadField<int32_t>(header, 8);
  const auto bits = ReadField<uint16_t>(header, 14);
  const auto compression = ReadField<uint32_t>(header, 16);
  const auto imageBytes = ReadField<uint32_t>(header, 20);
  const auto colours = ReadField<uint32_t>(header, 32);
  const int64_t rows = height < 0 ? -int64_t{height} : height;
  if (size < 40 || size > 1024 || width <= 0 || width > kMaxSide || rows == 0 || rows > kMaxSide)
    return 0;
  if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32) return 0;
  const uint32_t table = colours ? colours : (bits <= 8 ? 1u << bits : 0u);
  if (table > 256) return 0;
  const size_t masks = (compression == 3 && size == 40) ? 12 : 0;
  const int64_t rowBytes = (int64_t{width} * bits + 31) / 32 * 4;
  const int64_t pixels = (compression == 0 || compression == 3) ? rowBytes * rows : imageBytes;
  if (pixels <= 0) return 0;
  return size + masks + size_t{table} * 4 + static_cast<size_t>(pixels);
}

}  // namespace

const TW_IDENTITY CTwainSession::kAppIdentityTemplate = {
    0, {1, 0, TWLG_USA, TWCY_USA, "<?>"}, 1, 6, DG_CONTROL | DG_IMAGE, "<?>", "<?>", "<?>"};

CTwainSession::CTwainSession() : appIdentity_(kAppIdentityTemplate) {
  // Managers on this platform have no window messages to carry a source's
  // notifications; they deliver them only to applications that declare
  // themselves version 2, through a callback registered after the source
  // opens.
  appIdentity_.SupportedGroups |= DF_APP2;
}

CTwainSession::~CTwainSession() {
  // The owner normally closed everything already; whatever is still open is
  // closed here, with this class's own notifications.
  DropToState(1);
  ForgetCallback();
}

bool CTwainSession::OpenDataSource() {
  return true;
}

void CTwainSession::TransferReady() {
  TransferLoop();
}

void CTwainSession::CloseRequested() {
  DisableSource();
  CloseSource();
}

void CTwainSession::PictureReceived(HGLOBAL dib) {
  GlobalFree(dib);
}

void CTwainSession::SetState(int state) {
  state_ = state;
  StateChanged(state);
}

void CTwainSession::SetMainWindow(TW_HANDLE window, void (*bringToTop)(TW_HANDLE)) {
  g_mainWindow = window;
  g_bringToTop = bringToTop;
}

const TW_IDENTITY &CTwainSession::SourceIdentity() {
  return g_source;
}

void CTwainSession::SetSourceIdentity(const TW_IDENTITY &identity) {
  g_source = identity;
}

bool CTwainSession::ManagerLoaded() {
  return g_loaded;
}

const char *CTwainSession::ReturnCodeName(int code) {
  if (code < 0 || code > 7) return "<bad rc>";
  return kReturnCodeNames[code];
}

const char *CTwainSession::ConditionCodeName(int code) {
  if (code < 0 || code > 15) return "<bad cc>";
  return kConditionCodeNames[code];
}

TW_HANDLE CTwainSession::ParentWindow() const {
  return parent_ ? parent_ : g_mainWindow;
}

TW_UINT16 CTwainSession::CallManager(TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg, TW_MEMREF data) {
  returnCode_ =
      g_entry ? g_entry(&appIdentity_, nullptr, dg, dat, msg, data) : TW_UINT16{TWRC_FAILURE};
  UpdateState(dg, dat, msg, returnCode_);
  return returnCode_;
}

TW_UINT16 CTwainSession::CallSource(TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg, TW_MEMREF data) {
  returnCode_ =
      g_entry ? g_entry(&appIdentity_, &g_source, dg, dat, msg, data) : TW_UINT16{TWRC_FAILURE};
  UpdateState(dg, dat, msg, returnCode_);
  if (returnCode_ == TWRC_FAILURE && dat != DAT_EVENT && dat != DAT_STATUS) {
    // Why it failed: the source knows once it is open, the manager before.
    TW_STATUS status{};
    TW_UINT16 rc = TWRC_FAILURE;
    if (g_entry && state_ >= 4)
      rc = g_entry(&appIdentity_, &g_source, DG_CONTROL, DAT_STATUS, MSG_GET, &status);
    else if (g_entry && state_ == 3)
      rc = g_entry(&appIdentity_, nullptr, DG_CONTROL, DAT_STATUS, MSG_GET, &status);
    if (state_ < 3)
      conditionCode_ = TWCC_SEQERROR;
    else
      conditionCode_ = rc == TWRC_SUCCESS ? status.ConditionCode : TW_UINT16{TWCC_BUMMER};
  }
  return returnCode_;
}

void CTwainSession::UpdateState(TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg, TW_UINT16 rc) {
  const bool ok = rc == TWRC_SUCCESS;
  if (dg == DG_IMAGE) {
    if (dat == DAT_IMAGENATIVEXFER && msg == MSG_GET && (rc == TWRC_XFERDONE || rc == TWRC_CANCEL))
      SetState(7);
    return;
  }
  if (dg != DG_CONTROL) return;
  switch (dat) {
    case DAT_PARENT:
      if (ok && msg == MSG_OPENDSM) SetState(3);
      if (ok && msg == MSG_CLOSEDSM) SetState(2);
      break;
    case DAT_IDENTITY:
      if (ok && msg == MSG_OPENDS) SetState(4);
      if (ok && msg == MSG_CLOSEDS) SetState(3);
      break;
    case DAT_USERINTERFACE:
      if (ok && msg == MSG_ENABLEDS) SetState(5);
      if (ok && msg == MSG_DISABLEDS) SetState(4);
      break;
    case DAT_PENDINGXFERS:
      if (msg == MSG_ENDXFER) {
        if (ok)
          SetState(pending_.Count != 0 ? 6 : 5);
        else if (state_ == 6 || state_ == 7)
          SetState(5);
      }
      if (ok && msg == MSG_RESET) SetState(5);
      break;
    default:
      break;
  }
}

bool CTwainSession::LoadManager() {
  if (state_ >= 2) return true;
  if (!g_loaded) {
    const QByteArray chosen = qgetenv("KORVEL_TWAIN_DSM");
    const QByteArray names[] = {chosen.isEmpty() ? QByteArray("libtwaindsm.so.2") : chosen,
                                chosen.isEmpty() ? QByteArray("libtwaindsm.so") : QByteArray()};
    for (const QByteArray &name : names) {
      if (name.isEmpty()) continue;
      // A path names a file that must be there; a bare name is looked for
      // along the library path.
      if (name.contains('/') && !QFile::exists(QFile::decodeName(name))) continue;
      void *library = dlopen(name.constData(), RTLD_NOW | RTLD_LOCAL);
      if (!library) continue;
      void *entry = dlsym(library, "DSM_Entry");
      if (!entry) {
        dlclose(library);
        continue;
      }
      g_library = library;
      g_entry = reinterpret_cast<DSMENTRYPROC>(entry);
      g_loaded = true;
      break;
    }
  }
  if (!g_loaded) return false;
  SetState(2);
  return true;
}

bool CTwainSession::OpenManager() {
  if (state_ >= 3) return true;
  if (!LoadManager()) return false;
  TW_HANDLE parent = ParentWindow();
  if (CallManager(DG_CONTROL, DAT_PARENT, MSG_OPENDSM, &parent) != TWRC_SUCCESS) return false;
  // A version 2 manager marks the identity it was opened with and hands out
  // the memory functions that native transfers are allocated with.
  g_memory = TW_ENTRYPOINT{};
  if (appIdentity_.SupportedGroups & DF_DSM2) {
    TW_ENTRYPOINT entry{};
    entry.Size = sizeof entry;
    if (g_entry(&appIdentity_, nullptr, DG_CONTROL, DAT_ENTRYPOINT, MSG_GET, &entry) ==
        TWRC_SUCCESS)
      g_memory = entry;
  }
  return true;
}

bool CTwainSession::SelectSource() {
  const int remembered = rememberedState_ = state_;
  bool ok = OpenManager();
  if (ok) {
    CallManager(DG_CONTROL, DAT_IDENTITY, MSG_GETDEFAULT, &g_source);
    // A cancelled choice keeps the default, and is no failure.
    ok = CallManager(DG_CONTROL, DAT_IDENTITY, MSG_USERSELECT, &g_source) != TWRC_FAILURE;
  }
  if (!ok) Error(0);
  DropToState(remembered);
  return ok;
}

bool CTwainSession::Acquire() {
  const int remembered = rememberedState_ = state_;
  // The source counts as open from here on, whatever the manager answers:
  // the checks below then go straight to enabling it, and a source that did
  // not open shows up as a failure to enable.
  SetState(4);
  if (CallManager(DG_CONTROL, DAT_IDENTITY, MSG_OPENDS, &g_source) == TWRC_SUCCESS)
    RegisterCallback();
  if (state_ < 3 && !OpenManager()) {
    Error(0);
    DropToState(remembered);
    return false;
  }
  if (state_ < 4 && !OpenDataSource()) {
    Error(1);
    DropToState(remembered);
    return false;
  }
  if (state_ < 5 && !EnableSource()) {
    Error(2);
    DropToState(remembered);
    return false;
  }
  return true;
}

bool CTwainSession::EnableSource() {
  if (state_ != 4) return false;
  ui_.ShowUI = showUI_ ? 1 : 0;
  ui_.ModalUI = 0;
  ui_.hParent = ParentWindow();
  CallSource(DG_CONTROL, DAT_USERINTERFACE, MSG_ENABLEDS, &ui_);
  return state_ == 5;
}

bool CTwainSession::DisableSource() {
  if (state_ != 5) return false;
  CallSource(DG_CONTROL, DAT_USERINTERFACE, MSG_DISABLEDS, &ui_);
  if (!(state_ == 5 && stayBehind_) && g_bringToTop && ParentWindow()) g_bringToTop(ParentWindow());
  return state_ == 4;
}

bool CTwainSession::ProcessEvent(void *event) {
  // While a transfer or a notification is being handled, events of nested
  // loops (a repaint, a message box) are not offered again. With the
  // callback registered the source speaks through it instead.
  if (state_ < 5 || busy_ || callbackRegistered_) return false;
  ++busy_;
  TW_EVENT twEvent{event, MSG_NULL};
  const TW_UINT16 rc = CallSource(DG_CONTROL, DAT_EVENT, MSG_PROCESSEVENT, &twEvent);
  if (twEvent.TWMessage == MSG_XFERREADY)
    TransferReady();
  else if (twEvent.TWMessage == MSG_CLOSEDSREQ)
    CloseRequested();
  --busy_;
  return rc == TWRC_DSEVENT;
}

void CTwainSession::TransferLoop() {
  ++busy_;
  do {
    TW_HANDLE native = nullptr;
    const TW_UINT16 rc = CallSource(DG_IMAGE, DAT_IMAGENATIVEXFER, MSG_GET, &native);
    // Only a finished transfer leaves a picture; the block is the
    // application's from here on, whatever else happens.
    HGLOBAL picture = rc == TWRC_XFERDONE ? TakeNativePicture(native) : nullptr;
    EndTransfer();
    if (picture) PictureReceived(picture);
  } while (state_ == 6);
  --busy_;
}

HGLOBAL CTwainSession::TakeNativePicture(TW_HANDLE native) {
  if (!native) return nullptr;
  // A version 2 manager's blocks are reached through its lock function;
  // otherwise the handle is the address of a block of the C heap, as
  // managers on this platform allocate them.
  const bool managed = g_memory.DSM_MemLock && g_memory.DSM_MemUnlock && g_memory.DSM_MemFree;
  auto *bytes = static_cast<const uint8_t *>(managed ? g_memory.DSM_MemLock(native) : native);
  HGLOBAL block = nullptr;
  if (bytes) {
    const size_t size = PackedDibBytes(bytes);
    if (size) block = GlobalAlloc(GMEM_MOVEABLE, size);
    if (void *target = block ? GlobalLock(block) : nullptr) {
      std::memcpy(target, bytes, size);
      GlobalUnlock(block);
    }
  }
  if (managed) {
    if (bytes) g_memory.DSM_MemUnlock(native);
    g_memory.DSM_MemFree(native);
  } else {
    std::free(native);
  }
  return block;
}

bool CTwainSession::CloseSource() {
  if (state_ == 5) DisableSource();
  if (state_ == 4) {
    CallManager(DG_CONTROL, DAT_IDENTITY, MSG_CLOSEDS, &g_source);
    if (state_ < 4) ForgetCallback();
  }
  return state_ < 4;
}

bool CTwainSession::CloseManager() {
  CloseSource();
  if (state_ >= 3) {
    TW_HANDLE parent = ParentWindow();
    CallManager(DG_CONTROL, DAT_PARENT, MSG_CLOSEDSM, &parent);
    if (state_ < 3) g_memory = TW_ENTRYPOINT{};
  }
  return state_ < 3;
}

bool CTwainSession::UnloadManager() {
  if (state_ != 2) return false;
  if (g_library) dlclose(g_library);
  g_library = nullptr;
  g_entry = nullptr;
  g_loaded = false;
  SetState(1);
  return true;
}

bool CTwainSession::EndTransfer() {
  if (state_ != 7) return false;
  CallSource(DG_CONTROL, DAT_PENDINGXFERS, MSG_ENDXFER, &pending_);
  return state_ < 7;
}

bool CTwainSession::Reset() {
  if (state_ != 6) return false;
  CallSource(DG_CONTROL, DAT_PENDINGXFERS, MSG_RESET, &pending_);
  return state_ < 6;
}

bool CTwainSession::DropToState(int target) {
  while (state_ > target) {
    const int before = state_;
    // Only Acquire's deliberate forcing can put the session above state 2
    // without a manager; nothing was opened then, so nothing needs closing.
    if (!g_loaded && state_ > 2) {
      SetState(2);
      continue;
    }
    switch (state_) {
      case 7:
        EndTransfer();
        break;
      case 6:
        Reset();
        break;
      case 5:
        DisableSource();
        break;
      case 4:
        CloseSource();
        break;
      case 3:
        CloseManager();
        break;
      default:
        if (g_loaded) {
          UnloadManager();
        } else {
          SetState(1);
        }
        break;
    }
    if (state_ >= before) return false;
  }
  return true;
}

bool CTwainSession::ListSources(std::vector<TW_IDENTITY> *sources) {
  sources->clear();
  if (!OpenManager()) return false;
  TW_IDENTITY identity{};
  TW_UINT16 rc = CallManager(DG_CONTROL, DAT_IDENTITY, MSG_GETFIRST, &identity);
  // A manager that never ends its list is cut off.
  while (rc == TWRC_SUCCESS && sources->size() < 1000) {
    sources->push_back(identity);
    identity = TW_IDENTITY{};
    rc = CallManager(DG_CONTROL, DAT_IDENTITY, MSG_GETNEXT, &identity);
  }
  return rc == TWRC_ENDOFLIST;
}

void CTwainSession::RegisterCallback() {
  if (!(appIdentity_.SupportedGroups & DF_DSM2) || !g_entry) return;
  {
    std::lock_guard<std::mutex> lock(g_callbackMutex);
    g_callbackSession = this;
  }
  DSMCALLBACKPROC proc = &CTwainSession::Callback;
  TW_MEMREF address = nullptr;
  static_assert(sizeof proc == sizeof address);
  std::memcpy(&address, &proc, sizeof address);
  // The newer record carries a pointer-sized reference; managers that do
  // not know it take the older one.
  TW_CALLBACK2 callback2{address, reinterpret_cast<TW_UINTPTR>(this), 0};
  callbackRegistered_ = g_entry(&appIdentity_, &g_source, DG_CONTROL, DAT_CALLBACK2,
                                MSG_REGISTER_CALLBACK, &callback2) == TWRC_SUCCESS;
  if (!callbackRegistered_) {
    TW_CALLBACK callback{address, 0, 0};
    callbackRegistered_ = g_entry(&appIdentity_, &g_source, DG_CONTROL, DAT_CALLBACK,
                                  MSG_REGISTER_CALLBACK, &callback) == TWRC_SUCCESS;
  }
  if (!callbackRegistered_) ForgetCallback();
}

void CTwainSession::ForgetCallback() {
  std::lock_guard<std::mutex> lock(g_callbackMutex);
  if (g_callbackSession == this) g_callbackSession = nullptr;
  callbackRegistered_ = false;
}

TW_UINT16 CTwainSession::Callback(pTW_IDENTITY, pTW_IDENTITY, TW_UINT32, TW_UINT16, TW_UINT16 msg,
                                  TW_MEMREF) {
  std::lock_guard<std::mutex> lock(g_callbackMutex);
  CTwainSession *session = g_callbackSession;
  if (!session) return TWRC_FAILURE;
  // Whatever thread the manager calls from, the session is worked on the
  // user-interface thread, after the call that caused the notification.
  QMetaObject::invokeMethod(
      &session->relay_, [session, msg] { session->OnSourceMessage(msg); }, Qt::QueuedConnection);
  return TWRC_SUCCESS;
}

void CTwainSession::OnSourceMessage(TW_UINT16 msg) {
  if (busy_) {
    // Inside a transfer already (a message box of its own is open): the
    // notification waits until that is over.
    QTimer::singleShot(50, &relay_, [this, msg] { OnSourceMessage(msg); });
    return;
  }
  if (state_ < 5) return;
  ++busy_;
  if (msg == MSG_XFERREADY)
    TransferReady();
  else if (msg == MSG_CLOSEDSREQ)
    CloseRequested();
  --busy_;
}
