// E-mail: the hand-off to the mail program through a stand-in command that
// records what it was given and copies the attachment while it runs, the
// files left and removed, and the messages of each failure.
#include <QImage>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>

#include "share/email.h"
#include "tests/share/sharetest.h"

namespace {

class Email : public ShareTest {
 protected:
  void SetUp() override {
    ShareTest::SetUp();
    ASSERT_TRUE(bin.isValid() && record.isValid() && apps.isValid());
    QDir().mkpath(apps.path() + "/applications");
  }
  void TearDown() override {
    QFile::remove(qEnvironmentVariable("XDG_CONFIG_HOME") + "/mimeapps.list");
    CMailHandOff::Instance().RemoveKeptAttachments();
    ShareTest::TearDown();
  }
  // A stand-in mail command named `name` in the test's own program folder:
  // it writes its arguments one a line and copies its last argument, or the
  // file an "attachment='file://...'" argument names.
  void WriteCommand(const QString &name, const QString &extra = QString()) {
    const QString path = bin.path() + "/" + name;
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QString("#!/bin/sh\n"
                       "printf '%s\\n' \"$@\" > \"%1/args\"\n"
                       "for last; do :; done\n"
                       "case \"$last\" in attachment=*) last=${last#attachment=\\'file://}; "
                       "last=${last%\\'} ;; esac\n"
                       "cp \"$last\" \"%1/attachment\"\n"
                       "%2\n")
                   .arg(record.path(), extra)
                   .toUtf8());
    file.close();
    QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner);
  }
  // Makes `id` the default mailto: handler, an entry running `exec`.
  void SetDefaultMailClient(const QString &id, const QString &exec) {
    QFile list(qEnvironmentVariable("XDG_CONFIG_HOME") + "/mimeapps.list");
    ASSERT_TRUE(list.open(QIODevice::WriteOnly));
    list.write(
        "[Added Associations]\nx-scheme-handler/mailto=other.desktop;\n"
        "[Default Applications]\nx-scheme-handler/mailto=missing.desktop;" +
        id.toUtf8() + ";\n");
    QFile entry(apps.path() + "/applications/" + id);
    ASSERT_TRUE(entry.open(QIODevice::WriteOnly));
    entry.write("[Desktop Entry]\nType=Application\nExec=" + exec.toUtf8() + "\n");
  }
  QStringList RecordedArguments() const {
    return QString::fromUtf8(Read(record.path() + "/args")).split('\n', Qt::SkipEmptyParts);
  }
  void Send() {
    form->OnCommand(1049);
    ASSERT_TRUE(WaitFor([] { return CMailHandOff::Instance().Running() == 0; }));
  }
  void AddCurrent() {
    Add("/photos/mail.jpg", qRgb(30, 60, 220), 64, 48);
    doc->SetCurrentIndex(doc->Count() - 1);
  }

  QTemporaryDir bin, record, apps;
  ScopedEnv path{"PATH", (bin.path() + ":/usr/bin:/bin").toUtf8()};
  ScopedEnv dataHome{"XDG_DATA_HOME", apps.path().toUtf8()};
};

TEST(EmailNames, AttachmentBesideTheTemporaryFile) {
  EXPECT_EQ(AttachmentNameFor("/tmp/zibA1B2.tmp"), "/tmp/zibA1B2.jpg");
  EXPECT_EQ(AttachmentNameFor("/T.MP/zibA1B2.TMP"), "/T.MP/zibA1B2.jpg");
  EXPECT_EQ(AttachmentNameFor("/tmp/zibA1B2"), "/tmp/zibA1B2");
}

TEST_F(Email, HandOffThroughXdgEmail) {
  WriteCommand("xdg-email");
  // No photo, and a photo without pixels: their messages and no files.
  Send();
  EXPECT_EQ(prompt.messages, QStringList{"Please select an image that you would like to e-mail"});
  doc->AddImage(nullptr, 0, "/photos/empty.jpg");
  doc->SetCurrentIndex(0);
  Send();
  EXPECT_EQ(prompt.messages.last(), "Unable to e-mail the image. Please try again");
  EXPECT_TRUE(Files(temp.path(), "*").isEmpty());

  AddCurrent();
  Send();
  EXPECT_EQ(prompt.messages.size(), 2);
  const QStringList tmps = Files(temp.path(), "zib????.tmp");
  ASSERT_EQ(tmps.size(), 1);
  const QString attachment = temp.path() + "/" + tmps[0].left(7) + ".jpg";
  // The command got the attachment, and it was the photo as a JPEG then.
  EXPECT_EQ(RecordedArguments(), (QStringList{"--attach", attachment}));
  const QImage sent(record.path() + "/attachment", "JPEG");
  ASSERT_EQ(sent.size(), QSize(64, 48));
  EXPECT_NEAR(qBlue(sent.pixel(32, 24)), 220, 4);
  EXPECT_NEAR(qGreen(sent.pixel(32, 24)), 60, 4);
  EXPECT_EQ(CKorvelApp::Settings()->value("mail/command").toString(),
            bin.path() + "/xdg-email --attach " + attachment);
  // The empty .tmp stays; the attachment waits for the mail program until the
  // application ends, and then goes.
  EXPECT_EQ(QFileInfo(temp.path() + "/" + tmps[0]).size(), 0);
  EXPECT_TRUE(QFile::exists(attachment));
  EXPECT_EQ(CMailHandOff::Instance().KeptAttachments(), QStringList{attachment});
  QMetaObject::invokeMethod(QCoreApplication::instance(), "aboutToQuit", Qt::DirectConnection);
  EXPECT_FALSE(QFile::exists(attachment));
  EXPECT_TRUE(QFile::exists(temp.path() + "/" + tmps[0]));
  EXPECT_TRUE(CMailHandOff::Instance().KeptAttachments().isEmpty());
}

TEST_F(Email, FailuresOfTheMailSystem) {
  AddCurrent();
  // No hand-off at all: the message, and no temporary file made.
  {
    ScopedEnv empty("PATH", bin.path().toUtf8());
    Send();
  }
  EXPECT_EQ(prompt.messages, QStringList{kMailNotFound});
  EXPECT_TRUE(Files(temp.path(), "*").isEmpty());

  // The command says the mail client is missing, fails to send, or dies:
  // each message once, and the attachment removed at once.
  const struct {
    const char *extra;
    const char *message;
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
    EXPECT_TRUE(QFile::exists(record.path() + "/attachment"));  // it was there to read
    EXPECT_TRUE(Files(temp.path(), "*.jpg").isEmpty());
    EXPECT_TRUE(CMailHandOff::Instance().KeptAttachments().isEmpty());
    QFile::remove(record.path() + "/attachment");
  }
  EXPECT_EQ(Files(temp.path(), "zib????.tmp").size(), 4);
}

TEST_F(Email, ThunderbirdAsTheDefaultClient) {
  AddCurrent();
  WriteCommand("xdg-email", "exit 9");  // must not be the one used
  WriteCommand("thunderbird");
  SetDefaultMailClient("org.mozilla.Thunderbird.desktop", bin.path() + "/thunderbird %u");
  Send();
  EXPECT_TRUE(prompt.messages.isEmpty());
  const QStringList jpgs = Files(temp.path(), "zib????.jpg");
  ASSERT_EQ(jpgs.size(), 1);
  const QString attachment = temp.path() + "/" + jpgs[0];
  EXPECT_EQ(RecordedArguments(),
            (QStringList{"-compose", "attachment='file://" + attachment + "'"}));
  EXPECT_EQ(QImage(record.path() + "/attachment", "JPEG").size(), QSize(64, 48));

  // A default client that is not Thunderbird is left to xdg-email.
  SetDefaultMailClient("other.desktop", "other-mail %u");
  Send();
  EXPECT_EQ(prompt.messages, QStringList{kMailSendFailed});
  EXPECT_EQ(RecordedArguments().first(), "--attach");

  // A Thunderbird entry whose program is not there: the hand-off program
  // failed, before any file is made.
  SetDefaultMailClient("thunderbird.desktop", "/nonexistent/thunderbird %u");
  const int files = Files(temp.path(), "*").size();
  Send();
  EXPECT_EQ(prompt.messages.last(), kMailProgramFailed);
  EXPECT_EQ(Files(temp.path(), "*").size(), files);
}

TEST_F(Email, ReachedFromTheShareDialog) {
  WriteCommand("xdg-email");
  AddCurrent();
  dialogs.share.push_back({CShareDialogs::IDOK, "EMAIL"});
  form->OnCommand(1037);
  ASSERT_TRUE(WaitFor([] { return CMailHandOff::Instance().Running() == 0; }));
  EXPECT_EQ(RecordedArguments().first(), "--attach");
  EXPECT_TRUE(launcher.urls.isEmpty());  // no share page for an e-mail
  EXPECT_FALSE(QFile::exists(temp.path() + "/files.txt"));
}

// The portal is tried first: the test program runs itself again under a
// private session bus with the stand-in portal on it, where the PortalChild
// cases run (they are left out of every other run).
TEST(EmailPortal, HandOffOnAPrivateBus) {
  const QString runner = QStandardPaths::findExecutable("dbus-run-session");
  if (runner.isEmpty()) GTEST_SKIP() << "dbus-run-session is not installed";
  QProcess child;
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert("KORVEL_PRIVATE_BUS", "1");
  child.setProcessEnvironment(env);
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
    portal.setProcessEnvironment([this] {
      QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
      env.insert("FAKE_PORTAL_RECORD", portalRecord.path());
      return env;
    }());
    portal.start(KORVEL_FAKE_PORTAL_PATH, QStringList());
    ASSERT_TRUE(portal.waitForReadyRead(10000));
    ASSERT_EQ(portal.readLine().trimmed(), "ready");
  }
  void TearDown() override {
    portal.kill();
    portal.waitForFinished();
    Email::TearDown();
  }
  void Respond(int code) {
    QFile file(portalRecord.path() + "/response");
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray::number(code));
  }

  QTemporaryDir portalRecord;
  QProcess portal;
};

TEST_F(PortalChild, ComposeThroughThePortal) {
  WriteCommand("xdg-email");  // there, but the portal comes first
  AddCurrent();
  Send();
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_FALSE(QFile::exists(record.path() + "/args"));
  EXPECT_EQ(CKorvelApp::Settings()->value("mail/command").toString(),
            "org.freedesktop.portal.Email.ComposeEmail");
  const QStringList jpgs = Files(temp.path(), "zib????.jpg");
  ASSERT_EQ(jpgs.size(), 1);
  const QString attachment = temp.path() + "/" + jpgs[0];
  // The portal read the photo through the descriptor it was given.
  EXPECT_EQ(Read(portalRecord.path() + "/path-1-1"), attachment.toUtf8());
  const QImage sent(portalRecord.path() + "/attachment-1-1", "JPEG");
  ASSERT_EQ(sent.size(), QSize(64, 48));
  EXPECT_NEAR(qBlue(sent.pixel(10, 10)), 220, 4);
  EXPECT_EQ(CMailHandOff::Instance().KeptAttachments(), QStringList{attachment});

  // Cancelled in the mail program: no message, the attachment goes at once.
  Respond(1);
  Send();
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_TRUE(QFile::exists(portalRecord.path() + "/attachment-2-1"));
  EXPECT_EQ(Files(temp.path(), "zib????.jpg"), jpgs);
  // A failure of the portal: the send-failed message.
  Respond(2);
  Send();
  EXPECT_EQ(prompt.messages, QStringList{kMailSendFailed});
  EXPECT_EQ(Files(temp.path(), "zib????.jpg"), jpgs);
  EXPECT_EQ(Files(temp.path(), "zib????.tmp").size(), 3);
}

}  // namespace
