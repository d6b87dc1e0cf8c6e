// The main frame's use of the TWAIN session: the Get Photo command through
// the form, pictures arriving as work-area entries and Zib files, the frame's
// error message, Select Source, the source list of the real Get Photo dialog,
// and the session closed with the frame.
#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include "acquire/twainsession.h"
#include "app/document.h"
#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "app/qtprompt.h"
#include "raster/ras.h"
#include "tests/acquire/acquiretest.h"
#include "tests/app/scriptedprompt.h"

namespace {

// The application with its photo folder in a temporary folder of its own.
struct Fixture {
  Fixture() {
    qputenv("KORVEL_PHOTO_DIR", photos.path().toUtf8());
    EXPECT_TRUE(app.InitInstance({"korvelapp"}));
  }
  ~Fixture() {
    // Nothing is asked at the end: the camera's pictures count as saved.
    CKorvelAppDoc *doc = app.Document();
    for (int i = 0; i < doc->Count(); ++i)
      doc->ReplaceImage(i, doc->ImageAt(i), 0, QString());
    qunsetenv("KORVEL_PHOTO_DIR");
  }
  CKorvelAppDoc *Doc() const { return app.Document(); }
  CMainFrame *Frame() const { return app.MainFrame(); }

  ScriptedPrompt prompt;
  QTemporaryDir photos;
  CKorvelApp app;
};

KorvelPrompt::GetPhotoAnswer CameraAnswer(int source) {
  KorvelPrompt::GetPhotoAnswer answer;
  answer.result = KorvelPrompt::IDOK;
  answer.camera = true;
  answer.source = source;
  return answer;
}

TEST(FrameTwain, ThreePicturesBecomeThreeUnsavedZibEntries) {
  for (const bool callback : {true, false}) {
    SCOPED_TRACE(callback ? "callback" : "events");
    TwainEnvironment env(callback ? Delivery::kCallback : Delivery::kEvents);
    env.Set("KORVEL_TEST_PICTURES", "3");
    env.Set("KORVEL_TEST_TWAIN_SOURCES", "Other Scanner;Korvel Twain Source 3.0");
    Fixture f;
    // The form's "DownLoad Images": the dialog is offered the sources with
    // the program's own preselected, and the camera choice is taken.
    f.prompt.getPhoto.push_back(CameraAnswer(1));
    f.app.View()->OnCommand(1014);
    EXPECT_EQ(f.prompt.getPhotoAsked, 1);
    EXPECT_STREQ(CTwainSession::SourceIdentity().ProductName, "Korvel Twain Source 3.0");
    EXPECT_EQ(f.Frame()->Twain().State(), 5);
    if (!callback) {
      // Every event of the application passes the frame's filter first; the
      // source takes the first one that comes while it is enabled.
      QEvent event(QEvent::User);
      QCoreApplication::sendEvent(f.app.View(), &event);
    }
    ASSERT_TRUE(RunUntil([&] { return f.Doc()->Count() == 3; }));
    for (int i = 0; i < 3; ++i) {
      const QString path =
          QDir(f.photos.path()).filePath(QStringLiteral("Zib%1.jpg").arg(i + 1, 3, 10, QChar('0')));
      EXPECT_EQ(f.Doc()->PathAt(i), path);
      EXPECT_EQ(f.Doc()->UnsavedAt(i), 1);
      EXPECT_EQ(f.Doc()->ImageAt(i).Width(), uint32_t(12 + 4 * i));
      RasDesc desc{};
      ASSERT_EQ(RasGetInfo(QFile::encodeName(path).constData(), &desc), RasOk);
      EXPECT_EQ(desc.format, uint32_t{RasFormatJpeg});
      EXPECT_EQ(desc.width, uint32_t(12 + 4 * i));
    }
    if (!callback) {
      QEvent event(QEvent::User);
      QCoreApplication::sendEvent(f.app.View(), &event);
    }
    // The source asks to close once its pictures are gone.
    EXPECT_TRUE(RunUntil([&] { return f.Frame()->Twain().State() == 3; }));
    EXPECT_TRUE(f.prompt.messages.isEmpty());
  }
}

TEST(FrameTwain, CancelMissingManagerAndSelectSource) {
  {
    // A cancelled transfer adds nothing; the session is back at 5.
    TwainEnvironment env(Delivery::kEvents);
    env.Set("KORVEL_TEST_PICTURES", "1");
    env.Set("KORVEL_TEST_CANCEL", "1");
    Fixture f;
    f.Frame()->Acquire();
    QEvent event(QEvent::User);
    QCoreApplication::sendEvent(f.Frame(), &event);
    EXPECT_EQ(f.Doc()->Count(), 0);
    EXPECT_EQ(f.Frame()->Twain().State(), 5);
    EXPECT_TRUE(QDir(f.photos.path()).entryList(QDir::Files).isEmpty());
    EXPECT_TRUE(f.prompt.messages.isEmpty());
  }
  {
    // Without a manager: the one message, and state 1.
    TwainEnvironment env;
    env.Set("KORVEL_TWAIN_DSM", "/nonexistent/libtwaindsm.so.2");
    Fixture f;
    f.prompt.getPhoto.push_back(CameraAnswer(0));
    f.app.View()->OnCommand(1014);
    EXPECT_EQ(f.prompt.messages, QStringList{"A TWAIN error occurred."});
    EXPECT_EQ(f.Frame()->Twain().State(), 1);
    EXPECT_EQ(f.Doc()->Count(), 0);
    EXPECT_FALSE(CTwainSession::ManagerLoaded());
  }
  {
    // "Select Source" (1004): the user's choice becomes the source, and the
    // session is left in the state it had.
    TwainEnvironment env;
    env.Set("KORVEL_TEST_TWAIN_SOURCES", "Other Scanner;Korvel Twain Source 3.0");
    env.Set("KORVEL_TEST_TWAIN_SELECT", "Other Scanner");
    Fixture f;
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
  env.Set("KORVEL_TEST_TWAIN_SOURCES", "Other Scanner;Korvel Twain Source 3.0");
  QTemporaryDir card;
  {
    QSettings settings("Local AppWizard-Generated Applications", "KorvelApp");
    settings.setValue("cameras/extra",
                      QStringList{"Directory Browse|disk:" + card.path(), "malformed"});
  }
  Fixture f;
  const QStringList sources = f.Frame()->ListSources();
  EXPECT_EQ(sources, (QStringList{"Other Scanner", "Korvel Twain Source 3.0",
                                  "Directory Browse (disk:" + card.path() + ")"}));
  EXPECT_EQ(f.Frame()->PreferredSource(), 1);
  // The manager stays open for the list.
  EXPECT_EQ(f.Frame()->Twain().State(), 3);
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
  const KorvelPrompt::GetPhotoAnswer answer = [&] {
    OnNextDialog act([&](QDialog *dialog) {
      auto *combo = dialog->findChild<QComboBox *>("1026");
      ASSERT_NE(combo, nullptr);
      for (int i = 0; i < combo->count(); ++i)
        shown << combo->itemText(i);
      initial = combo->currentIndex();
      combo->setCurrentIndex(2);
      QTest::mouseClick(dialog->findChild<QPushButton *>("1034"), Qt::LeftButton);
    });
    return dialogs.AskGetPhoto(sources, 1);
  }();
  EXPECT_EQ(shown, sources);
  EXPECT_EQ(initial, 1);
  EXPECT_EQ(answer.result, KorvelPrompt::IDOK);
  EXPECT_TRUE(answer.camera);
  EXPECT_EQ(answer.source, 2);
  QSettings("Local AppWizard-Generated Applications", "KorvelApp").remove("cameras/extra");
}

TEST(FrameTwain, DestroyingTheFrameClosesTheSessionAndUnloads) {
  TwainEnvironment env;
  env.Set("KORVEL_TEST_PICTURES", "0");
  {
    Fixture f;
    f.Frame()->Acquire();
    EXPECT_EQ(f.Frame()->Twain().State(), 5);
    EXPECT_TRUE(CTwainSession::ManagerLoaded());
    env.ClearLog();
  }
  EXPECT_FALSE(CTwainSession::ManagerLoaded());
  const std::vector<TwainEnvironment::Triplet> expected = {
      {DG_CONTROL, DAT_USERINTERFACE, MSG_DISABLEDS, TWRC_SUCCESS},
      {DG_CONTROL, DAT_IDENTITY, MSG_CLOSEDS, TWRC_SUCCESS},
      {DG_CONTROL, DAT_PARENT, MSG_CLOSEDSM, TWRC_SUCCESS},
  };
  EXPECT_EQ(env.Log(), expected);
}

}  // namespace
