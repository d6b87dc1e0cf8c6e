// The main frame's use of the TWAIN session: the Get Photo command through
// the form, pictures arriving as work-area entries and Zib files, the frame's
// error message, Select Source, the source list of the real Get Photo dialog,
// and the session closed with the frame.
#include <gtest/gtest.h>

#include <QComboBox>
#include <QPushButton>
#include <QTest>

#include "app/qtprompt.h"
#include "raster/ras.h"
#include "tests/acquire/acquiretest.h"

namespace {

const QByteArray kTwoSources = "Other Scanner;Korvel Twain Source 3.0";

TEST(FrameTwain, ThreePicturesBecomeThreeUnsavedZibEntries) {
  for (const bool callback : {true, false}) {
    SCOPED_TRACE(callback ? "callback" : "events");
    TwainEnvironment env(callback ? Delivery::kCallback : Delivery::kEvents);
    env.Set("KORVEL_TEST_PICTURES", "3");
    env.Set("KORVEL_TEST_TWAIN_SOURCES", kTwoSources);
    AppFixture f;
    // The camera choice is taken, with the program's own source preselected.
    f.GetPhoto(1);
    EXPECT_EQ(f.prompt.getPhotoAsked, 1);
    EXPECT_STREQ(CTwainSession::SourceIdentity().ProductName, "Korvel Twain Source 3.0");
    EXPECT_EQ(f.Frame()->Twain().State(), 5);
    // Every event of the application passes the frame's filter first; the
    // source takes the first one that comes while it is enabled.
    QEvent event(QEvent::User);
    if (!callback) QCoreApplication::sendEvent(f.app.View(), &event);
    ASSERT_TRUE(RunUntil([&] { return f.Doc()->Count() == 3; }));
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(f.Doc()->PathAt(i), f.Photo(i + 1));
      EXPECT_EQ(f.Doc()->UnsavedAt(i), 1);
      EXPECT_EQ(f.Doc()->ImageAt(i).Width(), uint32_t(12 + 4 * i));
      RasDesc desc{};
      ASSERT_EQ(RasGetInfo(QFile::encodeName(f.Photo(i + 1)).constData(), &desc), RasOk);
      EXPECT_EQ(desc.format, uint32_t{RasFormatJpeg});
      EXPECT_EQ(desc.width, uint32_t(12 + 4 * i));
    }
    // The source asks to close once its pictures are gone.
    if (!callback) QCoreApplication::sendEvent(f.app.View(), &event);
    EXPECT_TRUE(RunUntil([&] { return f.Frame()->Twain().State() == 3; }));
    EXPECT_TRUE(f.prompt.messages.isEmpty());
  }
}

TEST(FrameTwain, MissingManagerAndSelectSource) {
  {
    // Without a manager: the one message, and state 1.
    TwainEnvironment env;
    env.Set("KORVEL_TWAIN_DSM", "/nonexistent/libtwaindsm.so.2");
    AppFixture f;
    f.GetPhoto(0);
    EXPECT_EQ(f.prompt.messages, QStringList{"A TWAIN error occurred."});
    EXPECT_EQ(f.Frame()->Twain().State(), 1);
    EXPECT_EQ(f.Doc()->Count(), 0);
    EXPECT_FALSE(CTwainSession::ManagerLoaded());
  }
  {
    // "Select Source" (1004): the user's choice becomes the source, and the
    // session is left in the state it had.
    TwainEnvironment env;
    env.Set("KORVEL_TEST_TWAIN_SOURCES", kTwoSources);
    env.Set("KORVEL_TEST_TWAIN_SELECT", "Other Scanner");
    AppFixture f;
    f.app.View()->OnCommand(1004);
    EXPECT_EQ(f.Frame()->Twain().State(), 1);
    EXPECT_STREQ(CTwainSession::SourceIdentity().ProductName, "Other Scanner");
    env.Set("KORVEL_TEST_TWAIN_SELECT", "No Such Source");
    f.app.View()->OnCommand(1004);
    EXPECT_EQ(f.prompt.messages, QStringList{"A TWAIN error occurred."});
    EXPECT_EQ(f.Frame()->Twain().State(), 1);
  }
}

TEST(FrameTwain, SourceListPreferenceAndGetPhotoDialog) {
  TwainEnvironment env;
  env.Set("KORVEL_TEST_TWAIN_SOURCES", kTwoSources);
  QTemporaryDir card;
  AppFixture f(QStringList{"Directory Browse|disk:" + card.path(), "malformed"});
  const QStringList sources = f.Frame()->ListSources();
  EXPECT_EQ(sources, (QStringList{"Other Scanner", "Korvel Twain Source 3.0",
                                  "Directory Browse (disk:" + card.path() + ")"}));
  EXPECT_EQ(f.Frame()->PreferredSource(), 1);
  EXPECT_EQ(f.Frame()->Twain().State(), 3);  // the manager stays open for the list
  f.Frame()->ChooseSource(0);
  EXPECT_STREQ(CTwainSession::SourceIdentity().ProductName, "Other Scanner");
  // Without the program's own source, the one in use is preferred.
  env.Set("KORVEL_TEST_TWAIN_SOURCES", "Scanner A;Other Scanner");
  f.Frame()->ListSources();
  EXPECT_EQ(f.Frame()->PreferredSource(), 1);

  // The real dialog lists what it is given, preselects, and answers the
  // entry chosen.
  QtPrompt dialogs;
  QStringList shown;
  int initial = -1;
  OnNextDialog act([&](QDialog *dialog) {
    auto *combo = dialog->findChild<QComboBox *>("1026");
    ASSERT_NE(combo, nullptr);
    for (int i = 0; i < combo->count(); ++i)
      shown << combo->itemText(i);
    initial = combo->currentIndex();
    combo->setCurrentIndex(2);
    QTest::mouseClick(dialog->findChild<QPushButton *>("1034"), Qt::LeftButton);
  });
  const KorvelPrompt::GetPhotoAnswer answer = dialogs.AskGetPhoto(sources, 1);
  EXPECT_EQ(shown, sources);
  EXPECT_EQ(initial, 1);
  EXPECT_EQ(answer.result, KorvelPrompt::IDOK);
  EXPECT_TRUE(answer.camera);
  EXPECT_EQ(answer.source, 2);
}

// The Get Photo dialog offers only sources that exist: without a manager, or
// with one that does not list it, the program's own source is not named.
TEST(FrameTwain, OnlySourcesThatExistAreOffered) {
  const struct {
    const char *manager, *sources;
    QStringList shown;
  } cases[] = {{"/nonexistent/libtwaindsm.so.2", nullptr, {}},
               {KORVEL_TEST_DSM_PATH, "Other Scanner", {"Other Scanner"}},
               {KORVEL_TEST_DSM_PATH, nullptr, {"Korvel Twain Source 3.0"}}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.sources ? c.sources : c.manager);
    TwainEnvironment env;
    env.Set("KORVEL_TWAIN_DSM", c.manager);
    if (c.sources) env.Set("KORVEL_TEST_TWAIN_SOURCES", c.sources);
    AppFixture f;
    const QStringList sources = f.Frame()->ListSources();
    EXPECT_EQ(sources, c.shown);
    QStringList shown;
    OnNextDialog act([&](QDialog *dialog) {
      auto *combo = dialog->findChild<QComboBox *>("1026");
      ASSERT_NE(combo, nullptr);
      for (int i = 0; i < combo->count(); ++i)
        shown << combo->itemText(i);
      QTest::mouseClick(dialog->findChild<QPushButton *>("1036"), Qt::LeftButton);
    });
    QtPrompt dialogs;
    dialogs.AskGetPhoto(sources, f.Frame()->PreferredSource());
    EXPECT_EQ(shown, c.shown);
  }
}

TEST(FrameTwain, DestroyingTheFrameClosesTheSessionAndUnloads) {
  TwainEnvironment env;
  env.Set("KORVEL_TEST_PICTURES", "0");
  {
    AppFixture f;
    f.Frame()->Acquire();
    EXPECT_EQ(f.Frame()->Twain().State(), 5);
    EXPECT_TRUE(CTwainSession::ManagerLoaded());
    env.ClearLog();
  }
  EXPECT_FALSE(CTwainSession::ManagerLoaded());
  EXPECT_EQ(env.Log(), (std::vector<Triplet>{kDisable, kCloseDs, kCloseDsm}));
}

}  // namespace
