// E-mail: the hand-off to the mail program through a stand-in command that
// records what it was given and copies the attachment while it runs, the
// files left and removed, and the messages of each failure.
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>

#include "meta/meta.h"
#include "photo/photofiles.h"
#include "photo/settings.h"
#include "share/email.h"
#include "tests/share/sharetest.h"

namespace {

const QRgb kBlue = qRgb(30, 60, 220);

class Email : public ShareTest {
 protected:
  void SetUp() override {
    ShareTest::SetUp();
    ASSERT_TRUE(bin.isValid() && record.isValid());
    Add("/photos/mail.jpg", kBlue, 64, 48);
    doc->SetCurrentIndex(0);
  }
  void TearDown() override {
    CMailHandOff::Instance().RemoveKeptAttachments();
    ShareTest::TearDown();
  }
  // A stand-in mail command: writes its arguments one a line and copies its
  // last argument, or the file an "attachment='file://...'" argument names.
  void WriteCommand(const QString &name, const QString &extra = QString()) {
    const QString path = bin.path() + "/" + name;
    ASSERT_TRUE(Write(path, QString("#!/bin/sh\nprintf '%s\\n' \"$@\" > \"%1/args\"\n"
                                    "for last; do :; done\ncase \"$last\" in attachment=*) "
                                    "last=${last#attachment=\\'file://}; last=${last%\\'} ;; esac\n"
                                    "cp \"$last\" \"%1/attachment\"\n%2\n")
                                .arg(record.path(), extra)
                                .toUtf8()));
    QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner);
  }
  // Makes `id` the default mailto: handler, an entry running `exec`.
  void SetDefaultMailClient(const QString &id, const QString &exec) {
    ASSERT_TRUE(Write(qEnvironmentVariable("XDG_CONFIG_HOME") + "/mimeapps.list",
                      "[Added Associations]\nx-scheme-handler/mailto=other.desktop;\n"
                      "[Default Applications]\nx-scheme-handler/mailto=missing.desktop;" +
                          id.toUtf8() + ";\n"));
    WriteEntry(home.path(), id, exec);
  }
  QStringList RecordedArguments() const {
    return QString::fromUtf8(Read(record.path() + "/args")).split('\n', Qt::SkipEmptyParts);
  }
  void Send(int command = 1049) {
    form->OnCommand(command);
    ASSERT_TRUE(QTest::qWaitFor([] { return CMailHandOff::Instance().Running() == 0; }));
  }
  QString Kept(int count) {  // the one attachment left, once `count` were made
    const QStringList jpgs = Files(temp.path(), "zib????.jpg");
    EXPECT_EQ(Files(temp.path(), "zib????.tmp").size(), count);
    return jpgs.size() == 1 ? temp.path() + "/" + jpgs[0] : "<" + jpgs.join(' ') + ">";
  }

  QTemporaryDir bin, record;
  ScopedEnv path{"PATH", (bin.path() + ":/usr/bin:/bin").toUtf8()};
};

TEST(EmailNames, AttachmentBesideTheTemporaryFile) {
  EXPECT_EQ(AttachmentNameFor("/tmp/zibA1B2.tmp"), "/tmp/zibA1B2.jpg");
  EXPECT_EQ(AttachmentNameFor("/T.MP/zibA1B2.TMP"), "/T.MP/zibA1B2.jpg");
  EXPECT_EQ(AttachmentNameFor("/tmp/zibA1B2"), "/tmp/zibA1B2");
}

TEST_F(Email, HandOffThroughXdgEmailFromTheShareDialog) {
  WriteCommand("xdg-email");
  dialogs.share.push_back({CShareDialogs::IDOK, "EMAIL"});
  Send(1037);
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_TRUE(launcher.urls.isEmpty());  // no share page, no list for an e-mail
  EXPECT_FALSE(QFile::exists(temp.path() + "/files.txt"));
  const QString attachment = Kept(1);
  EXPECT_EQ(RecordedArguments(), (QStringList{"--attach", attachment}));
  ExpectJpeg(record.path() + "/attachment", {64, 48}, kBlue);
  EXPECT_EQ(KorvelSettings()->value("mail/command").toString(),
            bin.path() + "/xdg-email --attach " + attachment);
  // The .tmp stays empty; the attachment is kept until the application ends.
  const QString tmp = attachment.chopped(4) + ".tmp";
  EXPECT_EQ(QFileInfo(tmp).size(), 0);
  EXPECT_EQ(CMailHandOff::Instance().KeptAttachments(), QStringList{attachment});
  QMetaObject::invokeMethod(QCoreApplication::instance(), "aboutToQuit", Qt::DirectConnection);
  EXPECT_FALSE(QFile::exists(attachment));
  EXPECT_TRUE(QFile::exists(tmp));
  EXPECT_TRUE(CMailHandOff::Instance().KeptAttachments().isEmpty());
}

TEST_F(Email, FailuresOfTheMailSystem) {
  {  // No hand-off at all: the message, and no temporary file made.
    ScopedEnv empty("PATH", bin.path().toUtf8());
    Send();
  }
  EXPECT_EQ(prompt.messages, QStringList{kMailNotFound});
  EXPECT_TRUE(Files(temp.path(), "*").isEmpty());
  // The command says the mail client is missing, fails to send, or dies:
  // each message once, and the attachment (read while it ran) removed at once.
  const struct {
    const char *extra, *message;
  } cases[] = {{"exit 3", kMailNotFound},
               {"exit 4", kMailSendFailed},
               {"exit 1", kMailProgramFailed},
               {"kill -KILL $$", kMailProgramFailed}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.extra);
    WriteCommand("xdg-email", c.extra);
    prompt.messages.clear();
    Send();
    EXPECT_EQ(prompt.messages, QStringList{c.message});
    EXPECT_TRUE(QFile::remove(record.path() + "/attachment"));
    EXPECT_TRUE(Files(temp.path(), "*.jpg").isEmpty());
    EXPECT_TRUE(CMailHandOff::Instance().KeptAttachments().isEmpty());
  }
  EXPECT_EQ(Files(temp.path(), "zib????.tmp").size(), 4);
}

TEST_F(Email, ThunderbirdAsTheDefaultClient) {
  WriteCommand("xdg-email", "exit 9");  // must not be the one used
  WriteCommand("thunderbird");
  SetDefaultMailClient("org.mozilla.Thunderbird.desktop", bin.path() + "/thunderbird %u");
  Send();
  EXPECT_TRUE(prompt.messages.isEmpty());
  const QString attachment = Kept(1);
  EXPECT_EQ(RecordedArguments(),
            (QStringList{"-compose", "attachment='file://" + attachment + "'"}));
  ExpectJpeg(record.path() + "/attachment", {64, 48}, kBlue);
  // A default client that is not Thunderbird is left to xdg-email.
  SetDefaultMailClient("other.desktop", "other-mail %u");
  Send();
  EXPECT_EQ(prompt.messages, QStringList{kMailSendFailed});
  EXPECT_EQ(RecordedArguments().first(), "--attach");
  // A Thunderbird entry whose program is not there: the hand-off program
  // failed, before any file is made.
  SetDefaultMailClient("thunderbird.desktop", "/nonexistent/thunderbird %u");
  Send();
  EXPECT_EQ(prompt.messages.last(), kMailProgramFailed);
  EXPECT_EQ(Kept(2), attachment);
}

// Each e-mail asks first, with a check box preset from privacy/stripLocation,
// whether the position and serial numbers go along: the box decides this
// attachment and becomes the setting, and the photo's file never changes.
TEST_F(Email, CheckBoxLeavesOutThePosition) {
  WriteCommand("xdg-email");
  const QString original = photos.path() + "/gps.jpg";
  ASSERT_TRUE(QFile::copy(KORVEL_TESTDATA_DIR "/exif/exiftool__GPS.jpg", original));
  const QByteArray before = Read(original);
  ASSERT_TRUE(OpenPhotoFile(doc, original));
  doc->SetCurrentIndex(1);
  const auto hasPrivate = [](const QString &path) {
    PhotoMeta meta;
    return MetaRead(QFile::encodeName(path), &meta) && !meta.exif.empty() && MetaHasPrivate(meta);
  };
  ASSERT_TRUE(hasPrivate(original));
  prompt.checkAnswers = {{KorvelPrompt::IDOK, false}, {KorvelPrompt::IDOK, true}, {}};
  for (bool ticked : {false, true}) {
    SCOPED_TRACE(ticked);
    Send();
    const QString sent = record.path() + "/attachment";
    PhotoMeta meta;
    EXPECT_TRUE(MetaRead(QFile::encodeName(sent), &meta) && !meta.exif.empty());
    EXPECT_EQ(hasPrivate(sent), !ticked);
    EXPECT_EQ(KorvelSettings()->value("privacy/stripLocation").toBool(), ticked);
    ASSERT_TRUE(QFile::remove(sent));
  }
  Send();  // cancelled: nothing handed over, the setting as it was
  EXPECT_FALSE(QFile::exists(record.path() + "/attachment"));
  EXPECT_TRUE(KorvelSettings()->value("privacy/stripLocation").toBool());
  EXPECT_EQ(prompt.checkShown, (std::deque<bool>{true, false, true}));
  EXPECT_EQ(prompt.checkMessages,
            QStringList(3,
                        "The photo will be attached to a new e-mail message as a copy. The "
                        "photo on your computer is not changed."));
  EXPECT_EQ(prompt.checkLabels, QStringList(3, "Leave out location and camera serial number"));
  EXPECT_EQ(prompt.checkButtonSets, std::deque<int>(3, KorvelPrompt::MB_OKCANCEL));
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_EQ(Read(original), before);
}

// The portal is tried first: the test program runs itself again under a
// private session bus with the stand-in portal on it, where the PortalChild
// cases run (they are left out of every other run).
TEST(EmailPortal, HandOffOnAPrivateBus) {
  const QString runner = QStandardPaths::findExecutable("dbus-run-session");
  if (runner.isEmpty()) GTEST_SKIP() << "dbus-run-session is not installed";
  QProcess child;
  child.setEnvironment(QProcess::systemEnvironment() << "KORVEL_PRIVATE_BUS=1");
  child.setProcessChannelMode(QProcess::MergedChannels);
  child.start(runner,
              {"--", QCoreApplication::applicationFilePath(), "--gtest_filter=PortalChild.*"});
  ASSERT_TRUE(child.waitForFinished(120000));
  const QString output = QString::fromUtf8(child.readAll());
  EXPECT_EQ(child.exitCode(), 0) << output.toStdString();
  EXPECT_TRUE(output.contains("[  PASSED  ] 1 test.")) << output.toStdString();
}

class PortalChild : public Email {
 protected:
  void SetUp() override {
    Email::SetUp();
    ASSERT_TRUE(portalRecord.isValid());
    portal.setEnvironment(QProcess::systemEnvironment()
                          << "FAKE_PORTAL_RECORD=" + portalRecord.path());
    portal.start(KORVEL_FAKE_PORTAL_PATH, QStringList());
    ASSERT_TRUE(portal.waitForReadyRead(10000));
    ASSERT_EQ(portal.readLine().trimmed(), "ready");
  }
  void TearDown() override {
    portal.kill();
    portal.waitForFinished();
    Email::TearDown();
  }
  void SendAnswered(int code) {  // the portal's response to the next request
    ASSERT_TRUE(Write(portalRecord.path() + "/response", QByteArray::number(code)));
    Send();
  }

  QTemporaryDir portalRecord;
  QProcess portal;
};

TEST_F(PortalChild, ComposeThroughThePortal) {
  WriteCommand("xdg-email");  // there, but the portal comes first
  Send();
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_FALSE(QFile::exists(record.path() + "/args"));
  EXPECT_EQ(KorvelSettings()->value("mail/command").toString(),
            "org.freedesktop.portal.Email.ComposeEmail");
  const QString attachment = Kept(1);
  // The portal read the photo through the descriptor it was given.
  EXPECT_EQ(Read(portalRecord.path() + "/path-1-1"), attachment.toUtf8());
  ExpectJpeg(portalRecord.path() + "/attachment-1-1", {64, 48}, kBlue);
  EXPECT_EQ(CMailHandOff::Instance().KeptAttachments(), QStringList{attachment});
  // Cancelled in the mail program: no message, the attachment goes at once.
  SendAnswered(1);
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_TRUE(QFile::exists(portalRecord.path() + "/attachment-2-1"));
  EXPECT_EQ(Kept(2), attachment);
  // A failure of the portal: the send-failed message.
  SendAnswered(2);
  EXPECT_EQ(prompt.messages, QStringList{kMailSendFailed});
  EXPECT_EQ(Kept(3), attachment);
}

}  // namespace
