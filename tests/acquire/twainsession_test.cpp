// The TWAIN session against the stand-in manager and source: the state after
// every triplet, transfers delivered through events and through the
// manager's callback, cancelled and failing triplets, source selection and a
// missing manager.
#include "acquire/twainsession.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEvent>
#include <cstring>

#include "acquire/twaindefs.h"
#include "tests/acquire/acquiretest.h"

namespace {

// A session that records what it is told instead of acting on it.
class RecordingSession : public CTwainSession {
 public:
  ~RecordingSession() override {
    DropToState(1);
    for (HGLOBAL block : pictures)
      GlobalFree(block);
  }
  void PictureReceived(HGLOBAL dib) override { pictures.push_back(dib); }
  void StateChanged(int state) override { states.push_back(state); }
  void Error(int code) override { errors.push_back(code); }

  // Width, height and the first pixel (blue, green, red) of picture i.
  std::tuple<int, int, int, int, int> Picture(size_t i) const {
    const auto *bytes = static_cast<const uint8_t *>(GlobalLock(pictures.at(i)));
    int32_t width = 0, height = 0;
    std::memcpy(&width, bytes + 4, 4);
    std::memcpy(&height, bytes + 8, 4);
    const auto result =
        std::make_tuple(int(width), int(height), int(bytes[40]), int(bytes[41]), int(bytes[42]));
    GlobalUnlock(pictures.at(i));
    return result;
  }

  std::vector<HGLOBAL> pictures;
  std::vector<int> states;
  std::vector<int> errors;
};

using Triplet = TwainEnvironment::Triplet;

TEST(TwainSession, IdentityTemplateAndNameTables) {
  const TW_IDENTITY &t = CTwainSession::kAppIdentityTemplate;
  EXPECT_EQ(+t.Id, 0u);
  EXPECT_EQ(t.Version.MajorNum, 1);
  EXPECT_EQ(t.Version.MinorNum, 0);
  EXPECT_EQ(t.Version.Language, 13);
  EXPECT_EQ(t.Version.Country, 1);
  EXPECT_STREQ(t.Version.Info, "<?>");
  EXPECT_EQ(t.ProtocolMajor, 1);
  EXPECT_EQ(t.ProtocolMinor, 6);
  EXPECT_EQ(+t.SupportedGroups, 3u);
  EXPECT_STREQ(t.Manufacturer, "<?>");
  EXPECT_STREQ(t.ProductFamily, "<?>");
  EXPECT_STREQ(t.ProductName, "<?>");

  RecordingSession session;
  EXPECT_EQ(session.State(), 1);
  // The copy declares a version 2 application, which managers here need to
  // deliver the source's notifications at all.
  EXPECT_EQ(+session.AppIdentity().SupportedGroups, 3u | DF_APP2);
  EXPECT_STREQ(session.AppIdentity().ProductName, "<?>");

  const char *rc[] = {"TWRC_SUCCESS", "TWRC_FAILURE",    "TWRC_CHECKSTATUS", "TWRC_CANCEL",
                      "TWRC_DSEVENT", "TWRC_NOTDSEVENT", "TWRC_XFERDONE",    "TWRC_ENDOFLIST"};
  for (int i = 0; i < 8; ++i)
    EXPECT_STREQ(CTwainSession::ReturnCodeName(i), rc[i]);
  const char *cc[] = {
      "TWCC_SUCCESS",        "TWCC_BUMMER",         "TWCC_LOWMEMORY",       "TWCC_NODS",
      "TWCC_MAXCONNECTIONS", "TWCC_OPERATIONERROR", "TWCC_BADCAP",          "<bad cc:7>",
      "<bad cc:8>",          "TWCC_BADPROTOCOL",    "TWCC_BADVALUE",        "TWCC_SEQERROR",
      "TWCC_BADDEST",        "TWCC_CAPUNSUPPORTED", "TWCC_CAPBADOPERATION", "TWCC_CAPSEQERROR"};
  for (int i = 0; i < 16; ++i)
    EXPECT_STREQ(CTwainSession::ConditionCodeName(i), cc[i]);
  EXPECT_STRNE(CTwainSession::ReturnCodeName(8), "TWRC_ENDOFLIST");
  EXPECT_STRNE(CTwainSession::ConditionCodeName(16), "TWCC_CAPSEQERROR");
  EXPECT_STRNE(CTwainSession::ConditionCodeName(-1), "TWCC_SUCCESS");
}

TEST(TwainSession, EventDeliveredTransfersFollowTheStateTable) {
  // A version 1 manager: no callback, so the source speaks through events.
  TwainEnvironment env(Delivery::kEvents);
  env.Set("KORVEL_TEST_PICTURES", "3");
  RecordingSession session;
  ASSERT_TRUE(session.OpenManager());
  EXPECT_EQ(session.states, (std::vector<int>{2, 3}));
  EXPECT_EQ(session.AppIdentity().SupportedGroups & DF_DSM2, 0u);
  ASSERT_TRUE(session.Acquire());
  // Forced to 4 before MSG_OPENDS, 4 again when it succeeds, 5 once enabled.
  EXPECT_EQ(session.states, (std::vector<int>{2, 3, 4, 4, 5}));
  EXPECT_FALSE(session.CallbackRegistered());

  QEvent event(QEvent::User);
  EXPECT_TRUE(session.ProcessEvent(&event));
  ASSERT_EQ(session.pictures.size(), 3u);
  EXPECT_EQ(session.states, (std::vector<int>{2, 3, 4, 4, 5, 7, 6, 7, 6, 7, 5}));
  for (size_t i = 0; i < 3; ++i)
    EXPECT_EQ(session.Picture(i), std::make_tuple(12 + 4 * int(i), 6, 10 * int(i + 1), 100, 200));
  // The source asks to be closed on the next event.
  EXPECT_TRUE(session.ProcessEvent(&event));
  EXPECT_EQ(session.State(), 3);
  EXPECT_FALSE(session.ProcessEvent(&event));
  EXPECT_TRUE(session.DropToState(1));
  EXPECT_EQ(session.states, (std::vector<int>{2, 3, 4, 4, 5, 7, 6, 7, 6, 7, 5, 4, 3, 2, 1}));
  EXPECT_FALSE(CTwainSession::ManagerLoaded());
  EXPECT_TRUE(session.errors.empty());

  // The triplets, in order, as the manager received them.
  const std::vector<Triplet> expected = {
      {DG_CONTROL, DAT_PARENT, MSG_OPENDSM, TWRC_SUCCESS},
      {DG_CONTROL, DAT_IDENTITY, MSG_OPENDS, TWRC_SUCCESS},
      {DG_CONTROL, DAT_USERINTERFACE, MSG_ENABLEDS, TWRC_SUCCESS},
      {DG_CONTROL, DAT_EVENT, MSG_PROCESSEVENT, TWRC_DSEVENT},
      {DG_IMAGE, DAT_IMAGENATIVEXFER, MSG_GET, TWRC_XFERDONE},
      {DG_CONTROL, DAT_PENDINGXFERS, MSG_ENDXFER, TWRC_SUCCESS},
      {DG_IMAGE, DAT_IMAGENATIVEXFER, MSG_GET, TWRC_XFERDONE},
      {DG_CONTROL, DAT_PENDINGXFERS, MSG_ENDXFER, TWRC_SUCCESS},
      {DG_IMAGE, DAT_IMAGENATIVEXFER, MSG_GET, TWRC_XFERDONE},
      {DG_CONTROL, DAT_PENDINGXFERS, MSG_ENDXFER, TWRC_SUCCESS},
      {DG_CONTROL, DAT_EVENT, MSG_PROCESSEVENT, TWRC_DSEVENT},
      {DG_CONTROL, DAT_USERINTERFACE, MSG_DISABLEDS, TWRC_SUCCESS},
      {DG_CONTROL, DAT_IDENTITY, MSG_CLOSEDS, TWRC_SUCCESS},
      {DG_CONTROL, DAT_PARENT, MSG_CLOSEDSM, TWRC_SUCCESS},
  };
  // A version 1 manager is not asked for memory functions or a callback.
  EXPECT_EQ(env.Log(), expected);
}

TEST(TwainSession, CallbackDeliveredTransfersArriveOnTheEventLoop) {
  TwainEnvironment env(Delivery::kCallback);
  env.Set("KORVEL_TEST_PICTURES", "3");
  RecordingSession session;
  ASSERT_TRUE(session.OpenManager());
  EXPECT_NE(session.AppIdentity().SupportedGroups & DF_DSM2, 0u);
  ASSERT_TRUE(session.Acquire());
  EXPECT_TRUE(session.CallbackRegistered());
  EXPECT_EQ(session.State(), 5);
  // Nothing is worked on inside the manager's call or its thread: the
  // pictures come once the user-interface thread's loop runs.
  EXPECT_TRUE(session.pictures.empty());
  QEvent event(QEvent::User);
  EXPECT_FALSE(session.ProcessEvent(&event));
  ASSERT_TRUE(RunUntil([&] { return session.State() == 3; }));
  ASSERT_EQ(session.pictures.size(), 3u);
  EXPECT_EQ(session.Picture(2), std::make_tuple(20, 6, 30, 100, 200));
  EXPECT_EQ(session.states, (std::vector<int>{2, 3, 4, 4, 5, 7, 6, 7, 6, 7, 5, 4, 3}));
  EXPECT_FALSE(session.CallbackRegistered());

  const std::vector<Triplet> log = env.Log();
  const Triplet registered{DG_CONTROL, DAT_CALLBACK2, MSG_REGISTER_CALLBACK, TWRC_SUCCESS};
  EXPECT_EQ(std::count(log.begin(), log.end(), registered), 1);
  const Triplet event2{DG_CONTROL, DAT_EVENT, MSG_PROCESSEVENT, TWRC_NOTDSEVENT};
  EXPECT_EQ(std::count(log.begin(), log.end(), event2), 0);
  EXPECT_TRUE(session.DropToState(1));
  EXPECT_TRUE(session.errors.empty());
}

TEST(TwainSession, CancelledTransfersYieldNothingAndEndTheTransfer) {
  TwainEnvironment env(Delivery::kEvents);
  QEvent event(QEvent::User);
  {
    // The second of three is cancelled: the loop goes on with the third.
    env.Set("KORVEL_TEST_PICTURES", "3");
    env.Set("KORVEL_TEST_CANCEL", "2");
    RecordingSession session;
    ASSERT_TRUE(session.OpenManager());
    ASSERT_TRUE(session.Acquire());
    session.states.clear();
    EXPECT_TRUE(session.ProcessEvent(&event));
    EXPECT_EQ(session.states, (std::vector<int>{7, 6, 7, 6, 7, 5}));
    ASSERT_EQ(session.pictures.size(), 2u);
    EXPECT_EQ(std::get<2>(session.Picture(0)), 10);
    EXPECT_EQ(std::get<2>(session.Picture(1)), 30);
  }
  {
    // A lone cancelled picture: back to 5 by MSG_ENDXFER, nothing received.
    env.Set("KORVEL_TEST_PICTURES", "1");
    env.Set("KORVEL_TEST_CANCEL", "1");
    env.ClearLog();
    RecordingSession session;
    ASSERT_TRUE(session.OpenManager());
    ASSERT_TRUE(session.Acquire());
    session.states.clear();
    EXPECT_TRUE(session.ProcessEvent(&event));
    EXPECT_EQ(session.states, (std::vector<int>{7, 5}));
    EXPECT_TRUE(session.pictures.empty());
    EXPECT_EQ(session.ReturnCode(), TWRC_SUCCESS);
    const std::vector<Triplet> log = env.Log();
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[log.size() - 2], Triplet(DG_IMAGE, DAT_IMAGENATIVEXFER, MSG_GET, TWRC_CANCEL));
    EXPECT_EQ(log.back(), Triplet(DG_CONTROL, DAT_PENDINGXFERS, MSG_ENDXFER, TWRC_SUCCESS));
    EXPECT_TRUE(session.errors.empty());
  }
}

TEST(TwainSession, FailingTripletsAreReportedAndDroppedBack) {
  TwainEnvironment env(Delivery::kEvents);
  {
    // Enabling fails: the condition is asked of the source, error 2 is
    // reported and the session drops back to where it was.
    env.Fail(DG_CONTROL, DAT_USERINTERFACE, MSG_ENABLEDS, TWCC_OPERATIONERROR);
    RecordingSession session;
    ASSERT_TRUE(session.OpenManager());
    env.ClearLog();
    EXPECT_FALSE(session.Acquire());
    EXPECT_EQ(session.errors, std::vector<int>{2});
    EXPECT_EQ(session.State(), 3);
    EXPECT_EQ(session.ConditionCode(), TWCC_OPERATIONERROR);
    EXPECT_STREQ(CTwainSession::ConditionCodeName(session.ConditionCode()), "TWCC_OPERATIONERROR");
    const std::vector<Triplet> log = env.Log();
    const std::vector<Triplet> expected = {
        {DG_CONTROL, DAT_IDENTITY, MSG_OPENDS, TWRC_SUCCESS},
        {DG_CONTROL, DAT_USERINTERFACE, MSG_ENABLEDS, TWRC_FAILURE},
        {DG_CONTROL, DAT_STATUS, MSG_GET, TWRC_SUCCESS},
        {DG_CONTROL, DAT_IDENTITY, MSG_CLOSEDS, TWRC_SUCCESS},
    };
    EXPECT_EQ(log, expected);
  }
  {
    // Opening the source fails, but the state forced to 4 stays: enabling
    // is tried (and fails), and closing a source that never opened cannot
    // lower the state.
    env.Fail(DG_CONTROL, DAT_IDENTITY, MSG_OPENDS, TWCC_NODS);
    RecordingSession session;
    ASSERT_TRUE(session.OpenManager());
    EXPECT_FALSE(session.Acquire());
    EXPECT_EQ(session.errors, std::vector<int>{2});
    EXPECT_EQ(session.State(), 4);
    // Once the source opens, the same session goes on from there.
    env.Succeed();
    EXPECT_TRUE(session.Acquire());
    EXPECT_EQ(session.State(), 5);
    EXPECT_TRUE(session.DropToState(1));
  }
  {
    // Ending a transfer fails: from 7 straight down to 5, which ends the
    // loop after the one picture.
    env.Fail(DG_CONTROL, DAT_PENDINGXFERS, MSG_ENDXFER);
    env.Set("KORVEL_TEST_PICTURES", "2");
    RecordingSession session;
    ASSERT_TRUE(session.OpenManager());
    ASSERT_TRUE(session.Acquire());
    session.states.clear();
    QEvent event(QEvent::User);
    EXPECT_TRUE(session.ProcessEvent(&event));
    EXPECT_EQ(session.states, (std::vector<int>{7, 5}));
    EXPECT_EQ(session.pictures.size(), 1u);
    EXPECT_TRUE(session.errors.empty());
    // The source itself is still in its transfer; ending it for real lets
    // everything close.
    env.Succeed();
    session.SetState(7);
    EXPECT_TRUE(session.EndTransfer());
    EXPECT_EQ(session.State(), 6);
    EXPECT_TRUE(session.DropToState(1));
  }
  {
    // The manager refuses to open: state 2, and no session beyond it.
    env.Fail(DG_CONTROL, DAT_PARENT, MSG_OPENDSM);
    RecordingSession session;
    EXPECT_FALSE(session.OpenManager());
    EXPECT_EQ(session.State(), 2);
    EXPECT_EQ(session.ReturnCode(), TWRC_FAILURE);
    EXPECT_TRUE(session.DropToState(1));
    EXPECT_FALSE(CTwainSession::ManagerLoaded());
  }
}

int g_raised = 0;
TW_HANDLE g_raisedWindow = nullptr;
void CountRaise(TW_HANDLE window) {
  ++g_raised;
  g_raisedWindow = window;
}

TEST(TwainSession, DisablingBringsTheParentToTheTopUnlessItStaysBehind) {
  TwainEnvironment env;
  env.Set("KORVEL_TEST_PICTURES", "0");
  int mainWindow = 0, ownWindow = 0;
  CTwainSession::SetMainWindow(&mainWindow, &CountRaise);
  g_raised = 0;
  RecordingSession session;
  ASSERT_TRUE(session.OpenManager());
  ASSERT_TRUE(session.Acquire());
  EXPECT_TRUE(session.DisableSource());
  EXPECT_EQ(g_raised, 1);
  EXPECT_EQ(g_raisedWindow, &mainWindow);

  // A failing disable leaves the window behind while the flag is set (as it
  // is from the start), and brings it up once the flag is cleared.
  ASSERT_TRUE(session.EnableSource());
  env.Fail(DG_CONTROL, DAT_USERINTERFACE, MSG_DISABLEDS);
  EXPECT_FALSE(session.DisableSource());
  EXPECT_EQ(session.State(), 5);
  EXPECT_EQ(g_raised, 1);
  session.SetStayBehind(false);
  EXPECT_FALSE(session.DisableSource());
  EXPECT_EQ(g_raised, 2);

  // The session's own parent, when it has one, is the window brought up.
  env.Succeed();
  session.SetParentWindow(&ownWindow);
  EXPECT_TRUE(session.DisableSource());
  EXPECT_EQ(g_raised, 3);
  EXPECT_EQ(g_raisedWindow, &ownWindow);
  EXPECT_TRUE(session.DropToState(1));
  CTwainSession::SetMainWindow(nullptr, nullptr);
}

TEST(TwainSession, MissingManagerLeavesStateOne) {
  TwainEnvironment env;
  for (const QByteArray &manager :
       {QByteArray("/nonexistent/libtwaindsm.so.2"), QByteArray(KORVEL_TEST_SOURCE_PATH)}) {
    // A file that is not there, and a library without DSM_Entry.
    env.Set("KORVEL_TWAIN_DSM", manager);
    RecordingSession session;
    EXPECT_FALSE(session.LoadManager());
    EXPECT_EQ(session.State(), 1);
    EXPECT_FALSE(session.OpenManager());
    EXPECT_FALSE(session.Acquire());
    EXPECT_EQ(session.errors, std::vector<int>{2});
    EXPECT_EQ(session.State(), 1);
    EXPECT_FALSE(CTwainSession::ManagerLoaded());
    EXPECT_FALSE(session.SelectSource());
    EXPECT_EQ(session.errors, (std::vector<int>{2, 0}));
    EXPECT_EQ(session.State(), 1);
    std::vector<TW_IDENTITY> sources;
    EXPECT_FALSE(session.ListSources(&sources));
    EXPECT_TRUE(sources.empty());
  }
}

TEST(TwainSession, SourcesAreListedAndSelectedWithoutChangingTheState) {
  TwainEnvironment env;
  env.Set("KORVEL_TEST_TWAIN_SOURCES", "Other Scanner;Korvel Twain Source 3.0;Third");
  RecordingSession session;
  std::vector<TW_IDENTITY> sources;
  ASSERT_TRUE(session.ListSources(&sources));
  ASSERT_EQ(sources.size(), 3u);
  EXPECT_STREQ(sources[0].ProductName, "Other Scanner");
  EXPECT_STREQ(sources[1].ProductName, "Korvel Twain Source 3.0");
  EXPECT_STREQ(sources[2].ProductName, "Third");
  EXPECT_NE(+sources[0].Id, +sources[1].Id);
  EXPECT_EQ(session.State(), 3);

  // From state 3 and from state 1 the session ends where it began.
  env.Set("KORVEL_TEST_TWAIN_SELECT", "Third");
  EXPECT_TRUE(session.SelectSource());
  EXPECT_EQ(session.State(), 3);
  EXPECT_STREQ(CTwainSession::SourceIdentity().ProductName, "Third");
  ASSERT_TRUE(session.DropToState(1));
  session.states.clear();
  env.Set("KORVEL_TEST_TWAIN_SELECT", "Other Scanner");
  EXPECT_TRUE(session.SelectSource());
  EXPECT_EQ(session.states, (std::vector<int>{2, 3, 2, 1}));
  EXPECT_STREQ(CTwainSession::SourceIdentity().ProductName, "Other Scanner");
  // A cancelled choice is no failure; the identity is the manager's default,
  // fetched before the choice.
  env.Set("KORVEL_TEST_TWAIN_SELECT", "Third");
  EXPECT_TRUE(session.SelectSource());
  EXPECT_STREQ(CTwainSession::SourceIdentity().ProductName, "Third");
  env.Set("KORVEL_TEST_TWAIN_SELECT", "cancel");
  EXPECT_TRUE(session.SelectSource());
  EXPECT_STREQ(CTwainSession::SourceIdentity().ProductName, "Other Scanner");
  // A failing choice reports error 0.
  env.Set("KORVEL_TEST_TWAIN_SELECT", "No Such Source");
  EXPECT_FALSE(session.SelectSource());
  EXPECT_EQ(session.errors, std::vector<int>{0});
  EXPECT_EQ(session.State(), 1);

  // The chosen source is the one opened.
  env.Set("KORVEL_TEST_TWAIN_SELECT", "Third");
  env.Set("KORVEL_TEST_PICTURES", "0");
  EXPECT_TRUE(session.SelectSource());
  ASSERT_TRUE(session.OpenManager());
  ASSERT_TRUE(session.Acquire());
  EXPECT_STREQ(CTwainSession::SourceIdentity().ProductName, "Third");
  EXPECT_TRUE(session.DropToState(1));
  CTwainSession::SetSourceIdentity(TW_IDENTITY{});
}

}  // namespace
