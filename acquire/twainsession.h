// The camera's TWAIN session: the application's side of the standard's state
// machine (states 1 to 7), driven through the manager's single entry point.
// The main frame owns one session and overrides its notification operations;
// pictures arrive one at a time on the user-interface thread as packed DIBs
// in movable blocks.
#pragma once

#include <QObject>
#include <vector>

#include "acquire/twaindefs.h"
#include "platform/movable.h"

class CTwainSession {
 public:
  // The application's identity before the session adds what this platform
  // needs; every session starts from a copy of it.
  static const TW_IDENTITY kAppIdentityTemplate;

  CTwainSession();
  virtual ~CTwainSession();
  CTwainSession(const CTwainSession &) = delete;
  CTwainSession &operator=(const CTwainSession &) = delete;

  // Notification operations, in slot order.
  virtual bool OpenDataSource();               // nonzero: go on
  virtual void TransferReady();                // runs the native transfer loop
  virtual void CloseRequested();               // disables and closes the source
  virtual void PictureReceived(HGLOBAL dib);   // frees the block
  virtual void StateChanged(int /*state*/) {}  // nothing
  virtual void Error(int /*code*/) {}          // nothing

  void SetState(int state);
  bool LoadManager();
  bool OpenManager();
  bool SelectSource();
  bool Acquire();
  bool EnableSource();
  bool DisableSource();
  // Offers one event of the user-interface thread to an enabled source; true
  // when the source took it.
  bool ProcessEvent(void *event);
  void TransferLoop();
  bool CloseSource();
  bool CloseManager();
  bool UnloadManager();
  bool EndTransfer();
  bool Reset();
  bool DropToState(int target);

  // The manager's sources, first to last (the manager is opened for the
  // purpose and left open). False when the manager cannot be opened.
  bool ListSources(std::vector<TW_IDENTITY> *sources);

  int State() const { return state_; }
  TW_UINT16 ReturnCode() const { return returnCode_; }
  TW_UINT16 ConditionCode() const { return conditionCode_; }
  const TW_IDENTITY &AppIdentity() const { return appIdentity_; }
  // True while the source's notifications come through the manager's
  // callback rather than through ProcessEvent.
  bool CallbackRegistered() const { return callbackRegistered_; }

  void SetShowUI(bool show) { showUI_ = show ? 1 : 0; }
  void SetStayBehind(bool stay) { stayBehind_ = stay ? 1 : 0; }
  // The window the source's dialogs belong to; null means the application's
  // main window.
  void SetParentWindow(TW_HANDLE parent) { parent_ = parent; }

  // The application's main window, and how to bring a window to the top;
  // set by the application, since this library knows no windows.
  static void SetMainWindow(TW_HANDLE window, void (*bringToTop)(TW_HANDLE));

  // Process-wide: the source every source triplet addresses.
  static const TW_IDENTITY &SourceIdentity();
  static void SetSourceIdentity(const TW_IDENTITY &identity);
  static bool ManagerLoaded();

  // The standard's names of return codes 0-7 and condition codes 0-15.
  static const char *ReturnCodeName(int code);
  static const char *ConditionCodeName(int code);

 private:
  TW_UINT16 CallManager(TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg, TW_MEMREF data);
  TW_UINT16 CallSource(TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg, TW_MEMREF data);
  void UpdateState(TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg, TW_UINT16 rc);
  TW_HANDLE ParentWindow() const;
  void RegisterCallback();
  void ForgetCallback();
  HGLOBAL TakeNativePicture(TW_HANDLE native);
  void OnSourceMessage(TW_UINT16 msg);
  static TW_UINT16 Callback(pTW_IDENTITY origin, pTW_IDENTITY dest, TW_UINT32 dg, TW_UINT16 dat,
                            TW_UINT16 msg, TW_MEMREF data);

  // The session's record.
  int32_t stayBehind_ = 1;
  int32_t state_ = 1;
  int32_t rememberedState_ = 1;
  TW_IDENTITY appIdentity_;
  TW_UINT16 returnCode_ = TWRC_SUCCESS;
  TW_USERINTERFACE ui_{};
  int32_t showUI_ = 1;
  TW_PENDINGXFERS pending_{};
  TW_HANDLE parent_ = nullptr;

  // What this platform adds: the condition of the last failing source
  // triplet, the callback's registration, the object that queued
  // notifications are delivered to, and a guard against nested transfers.
  TW_UINT16 conditionCode_ = TWCC_SUCCESS;
  bool callbackRegistered_ = false;
  QObject relay_;
  int busy_ = 0;
};
