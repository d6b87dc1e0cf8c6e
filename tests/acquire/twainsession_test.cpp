// The TWAIN session against the stand-in manager and source: the state after
// every triplet, transfers delivered through events and through the
// manager's callback, cancelled and failing triplets, source selection and a
// missing manager.
#include "acquire/twainsession.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEvent>
#include <algorithm>
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
  bool Start() { return OpenManager() && Acquire(); }

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
  std::vector<int> states, errors;
};

template <class Name>
std::string Names(Name name, int last) {
  std::string names;
  for (int i = -1; i <= last; ++i)
    names += std::string(name(i)) + " ";
  return names;
}

TEST(TwainSession, IdentityTemplateAndNameTables) {
  const TW_IDENTITY &t = CTwainSession::kAppIdentityTemplate;
  EXPECT_EQ((std::vector<unsigned>{t.Id, t.Version.MajorNum, t.Version.MinorNum, t.Version.Language,
                                   t.Version.Country, t.ProtocolMajor, t.ProtocolMinor,
                                   t.SupportedGroups}),
            (std::vector<unsigned>{0, 1, 0, 13, 1, 1, 6, 3}));
  for (const char *text : {t.Version.Info, t.Manufacturer, t.ProductFamily, t.ProductName})
    EXPECT_STREQ(text, "<?>");
  RecordingSession session;
  EXPECT_EQ(session.State(), 1);
  // The copy declares a version 2 application, which managers here need to
  // deliver the source's notifications at all.
  EXPECT_EQ(+session.AppIdentity().SupportedGroups, 3u | DF_APP2);
  EXPECT_STREQ(session.AppIdentity().ProductName, "<?>");

  EXPECT_EQ(Names(CTwainSession::ReturnCodeName, 8),
            "<bad rc> TWRC_SUCCESS TWRC_FAILURE TWRC_CHECKSTATUS TWRC_CANCEL TWRC_DSEVENT "
            "TWRC_NOTDSEVENT TWRC_XFERDONE TWRC_ENDOFLIST <bad rc> ");
  EXPECT_EQ(Names(CTwainSession::ConditionCodeName, 16),
            "<bad cc> TWCC_SUCCESS TWCC_BUMMER TWCC_LOWMEMORY TWCC_NODS TWCC_MAXCONNECTIONS "
            "TWCC_OPERATIONERROR TWCC_BADCAP <bad cc:7> <bad cc:8> TWCC_BADPROTOCOL TWCC_BADVALUE "
            "TWCC_SEQERROR TWCC_BADDEST TWCC_CAPUNSUPPORTED TWCC_CAPBADOPERATION "
            "TWCC_CAPSEQERROR <bad cc> ");
}

TEST(TwainSession, TransfersFollowTheStateTable) {
  for (const bool callback : {false, true}) {
    SCOPED_TRACE(callback ? "callback" : "events");
    TwainEnvironment env(callback ? Delivery::kCallback : Delivery::kEvents);
    env.Set("KORVEL_TEST_PICTURES", "3");
    RecordingSession session;
    ASSERT_TRUE(session.OpenManager());
    EXPECT_EQ(session.states, (std::vector<int>{2, 3}));
    EXPECT_EQ((session.AppIdentity().SupportedGroups & DF_DSM2) != 0, callback);
    ASSERT_TRUE(session.Acquire());
    // Forced to 4 before MSG_OPENDS, 4 again when it succeeds, 5 once enabled.
    EXPECT_EQ(session.states, (std::vector<int>{2, 3, 4, 4, 5}));
    EXPECT_EQ(session.CallbackRegistered(), callback);
    // Through events, the pictures come on the first event and the source
    // asks to be closed on the next. Through the callback, nothing is worked
    // on inside the manager's call or its thread: all comes once the
    // user-interface thread's loop runs.
    EXPECT_TRUE(session.pictures.empty());
    QEvent event(QEvent::User);
    EXPECT_EQ(session.ProcessEvent(&event), !callback);
    if (!callback) {
      EXPECT_EQ(session.pictures.size(), 3u);
      EXPECT_TRUE(session.ProcessEvent(&event));
    }
    ASSERT_TRUE(RunUntil([&] { return session.State() == 3; }));
    ASSERT_EQ(session.pictures.size(), 3u);
    for (size_t i = 0; i < 3; ++i)
      EXPECT_EQ(session.Picture(i), std::make_tuple(12 + 4 * int(i), 6, 10 * int(i + 1), 100, 200));
    EXPECT_FALSE(session.CallbackRegistered());
    EXPECT_FALSE(session.ProcessEvent(&event));
    EXPECT_TRUE(session.DropToState(1));
    EXPECT_EQ(session.states, (std::vector<int>{2, 3, 4, 4, 5, 7, 6, 7, 6, 7, 5, 4, 3, 2, 1}));
    EXPECT_FALSE(CTwainSession::ManagerLoaded());
    EXPECT_TRUE(session.errors.empty());
    // Only a version 2 manager is asked for its memory functions and given
    // the callback; with a version 1 manager the source speaks through events.
    const Triplet memory{DG_CONTROL, DAT_ENTRYPOINT, MSG_GET, TWRC_SUCCESS},
        callback2{DG_CONTROL, DAT_CALLBACK2, MSG_REGISTER_CALLBACK, TWRC_SUCCESS};
    EXPECT_EQ(env.Log(),
              (callback ? std::vector<Triplet>{kOpenDsm, memory, kOpenDs, callback2, kEnable, kGet,
                                               kEndXfer, kGet, kEndXfer, kGet, kEndXfer, kDisable,
                                               kCloseDs, kCloseDsm}
                        : std::vector<Triplet>{kOpenDsm, kOpenDs, kEnable, kEvent, kGet, kEndXfer,
                                               kGet, kEndXfer, kGet, kEndXfer, kEvent, kDisable,
                                               kCloseDs, kCloseDsm}));
  }
}

TEST(TwainSession, CancelledOrUnendedTransfersEndTheLoopRightly) {
  const Triplet cancel{DG_IMAGE, DAT_IMAGENATIVEXFER, MSG_GET, TWRC_CANCEL},
      unended{DG_CONTROL, DAT_PENDINGXFERS, MSG_ENDXFER, TWRC_FAILURE};
  struct Case {
    const char *pictures, *cancel;
    std::vector<int> states, blues;  // the first pixel's blue of each picture received
    std::vector<Triplet> transfers;
    bool failEnd = false;
  };
  const Case cases[] = {
      // The second of three is cancelled: the loop goes on with the third.
      {"3", "2", {7, 6, 7, 6, 7, 5}, {10, 30}, {kGet, kEndXfer, cancel, kEndXfer, kGet, kEndXfer}},
      // A lone cancelled picture: back to 5 by MSG_ENDXFER.
      {"1", "1", {7, 5}, {}, {cancel, kEndXfer}},
      // Ending a transfer fails: from 7 straight down to 5, which ends the
      // loop after the one picture.
      {"2", "0", {7, 5}, {10}, {kGet, unended, kStatus}, true},
  };
  TwainEnvironment env(Delivery::kEvents);
  for (const Case &c : cases) {
    SCOPED_TRACE(c.pictures);
    env.Set("KORVEL_TEST_PICTURES", c.pictures);
    env.Set("KORVEL_TEST_CANCEL", c.cancel);
    if (c.failEnd) env.Fail(DG_CONTROL, DAT_PENDINGXFERS, MSG_ENDXFER);
    env.ClearLog();
    RecordingSession session;
    ASSERT_TRUE(session.Start());
    session.states.clear();
    QEvent event(QEvent::User);
    EXPECT_TRUE(session.ProcessEvent(&event));
    EXPECT_EQ(session.states, c.states);
    std::vector<int> blues;
    for (size_t i = 0; i < session.pictures.size(); ++i)
      blues.push_back(std::get<2>(session.Picture(i)));
    EXPECT_EQ(blues, c.blues);
    EXPECT_EQ(session.ReturnCode(), c.failEnd ? TWRC_FAILURE : TWRC_SUCCESS);
    std::vector<Triplet> expected{kOpenDsm, kOpenDs, kEnable, kEvent};
    expected.insert(expected.end(), c.transfers.begin(), c.transfers.end());
    EXPECT_EQ(env.Log(), expected);
    EXPECT_TRUE(session.errors.empty());
    if (!c.failEnd) continue;
    // The source is still in its transfer; ending it for real lets
    // everything close.
    env.Succeed();
    session.SetState(7);
    EXPECT_TRUE(session.EndTransfer());
    EXPECT_EQ(session.State(), 6);
    EXPECT_TRUE(session.DropToState(1));
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
    EXPECT_EQ(env.Log(),
              (std::vector<Triplet>{kOpenDs,
                                    {DG_CONTROL, DAT_USERINTERFACE, MSG_ENABLEDS, TWRC_FAILURE},
                                    kStatus,
                                    kCloseDs}));
  }
  {
    // Opening the source fails, but the state forced to 4 stays: closing a
    // source that never opened cannot lower it. Once the source opens, the
    // same session goes on from there.
    env.Fail(DG_CONTROL, DAT_IDENTITY, MSG_OPENDS, TWCC_NODS);
    RecordingSession session;
    EXPECT_FALSE(session.Start());
    EXPECT_EQ(session.errors, std::vector<int>{2});
    EXPECT_EQ(session.State(), 4);
    env.Succeed();
    EXPECT_TRUE(session.Acquire());
    EXPECT_EQ(session.State(), 5);
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

std::vector<TW_HANDLE> g_raised;
void Raise(TW_HANDLE window) {
  g_raised.push_back(window);
}

TEST(TwainSession, DisablingBringsTheParentToTheTopUnlessItStaysBehind) {
  TwainEnvironment env;
  env.Set("KORVEL_TEST_PICTURES", "0");
  int mainWindow = 0, ownWindow = 0;
  CTwainSession::SetMainWindow(&mainWindow, &Raise);
  g_raised.clear();
  RecordingSession session;
  ASSERT_TRUE(session.Start());
  EXPECT_TRUE(session.DisableSource());
  EXPECT_EQ(g_raised, std::vector<TW_HANDLE>{&mainWindow});
  // A failing disable leaves the window behind while the flag is set (as it
  // is from the start), and brings it up once the flag is cleared.
  ASSERT_TRUE(session.EnableSource());
  env.Fail(DG_CONTROL, DAT_USERINTERFACE, MSG_DISABLEDS);
  EXPECT_FALSE(session.DisableSource());
  EXPECT_EQ(session.State(), 5);
  EXPECT_EQ(g_raised.size(), 1u);
  session.SetStayBehind(false);
  EXPECT_FALSE(session.DisableSource());
  EXPECT_EQ(g_raised.size(), 2u);
  // The session's own parent, when it has one, is the window brought up.
  env.Succeed();
  session.SetParentWindow(&ownWindow);
  EXPECT_TRUE(session.DisableSource());
  EXPECT_EQ(g_raised, (std::vector<TW_HANDLE>{&mainWindow, &mainWindow, &ownWindow}));
  EXPECT_TRUE(session.DropToState(1));
  CTwainSession::SetMainWindow(nullptr, nullptr);
}

TEST(TwainSession, MissingManagerLeavesStateOne) {
  TwainEnvironment env;
  // A file that is not there, and a library without DSM_Entry.
  for (const char *manager : {"/nonexistent/libtwaindsm.so.2", KORVEL_TEST_SOURCE_PATH}) {
    env.Set("KORVEL_TWAIN_DSM", manager);
    RecordingSession session;
    EXPECT_FALSE(session.LoadManager());
    EXPECT_EQ(session.State(), 1);
    EXPECT_FALSE(session.OpenManager());
    EXPECT_FALSE(session.Acquire());
    EXPECT_EQ(session.errors, std::vector<int>{2});
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

  // From state 3 and from state 1 the session ends where it began. A
  // cancelled choice is no failure and leaves the manager's default, fetched
  // before the choice; a failing one reports error 0.
  const auto select = [&](const char *choice) {
    env.Set("KORVEL_TEST_TWAIN_SELECT", choice);
    const bool done = session.SelectSource();
    return std::string(done ? "" : "failed ") + CTwainSession::SourceIdentity().ProductName;
  };
  EXPECT_EQ(select("Third"), "Third");
  EXPECT_EQ(session.State(), 3);
  ASSERT_TRUE(session.DropToState(1));
  session.states.clear();
  EXPECT_EQ(select("Other Scanner"), "Other Scanner");
  EXPECT_EQ(session.states, (std::vector<int>{2, 3, 2, 1}));
  EXPECT_EQ(select("Third"), "Third");
  EXPECT_EQ(select("cancel"), "Other Scanner");
  EXPECT_TRUE(session.errors.empty());
  EXPECT_EQ(select("No Such Source").substr(0, 7), "failed ");
  EXPECT_EQ(session.errors, std::vector<int>{0});
  EXPECT_EQ(session.State(), 1);

  // The chosen source is the one opened.
  env.Set("KORVEL_TEST_PICTURES", "0");
  EXPECT_EQ(select("Third"), "Third");
  ASSERT_TRUE(session.Start());
  EXPECT_STREQ(CTwainSession::SourceIdentity().ProductName, "Third");
  EXPECT_TRUE(session.DropToState(1));
  CTwainSession::SetSourceIdentity(TW_IDENTITY{});
}

}  // namespace
