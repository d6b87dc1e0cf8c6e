// What the output tests share.
#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QPrinter>
#include <QTemporaryDir>
#include <QTest>
#include <deque>
#include <functional>

#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "photo/document.h"
#include "photo/settings.h"
#include "share/launcher.h"
#include "share/sharecommands.h"
#include "share/sharedialogs.h"
#include "tests/app/photos.h"
#include "tests/app/scriptedprompt.h"
#include "views/buttontextview.h"

// Dialogs that answer from queues and a launcher that records instead of
// starting anything, in place for as long as they live.
class ScriptedShell : public CShareDialogs, public CShellLauncher {
 public:
  ScriptedShell()
      : dialogs_(CShareDialogs::Install(this)), launcher_(CShellLauncher::Install(this)) {}
  ~ScriptedShell() override {
    CShareDialogs::Install(dialogs_);
    CShellLauncher::Install(launcher_);
  }

  PrintAnswer AskPrintChoice() override { return Next("Print Dialog", print); }
  ProjectsAnswer AskProjects() override { return Next("Projects", projects); }
  ShareAnswer AskShare() override { return Next("Share", share); }
  // Sends the job to the PDF file `printerPdf`; cancels when it is empty.
  bool AskPrinter(QPrinter *printer) override {
    asked << "Printer";
    if (printerPdf.isEmpty()) return false;
    printer->setOutputFormat(QPrinter::PdfFormat);
    printer->setOutputFileName(printerPdf);
    if (onPrinter) onPrinter(printer);
    return true;
  }
  bool OpenUrl(const QUrl &url) override {
    urls << url.toString();
    return true;
  }
  bool StartProgram(const QString &program, const QStringList &arguments,
                    const QString &folder) override {
    started << QStringList{folder, program} + arguments;
    return true;
  }

  QStringList asked, urls;
  QList<QStringList> started;  // the folder, the program and its arguments
  std::deque<PrintAnswer> print;
  std::deque<ProjectsAnswer> projects;
  std::deque<ShareAnswer> share;
  QString printerPdf;
  std::function<void(QPrinter *)> onPrinter;

 private:
  // The next queued answer; a cancelled dialog when none is left.
  template <class T>
  T Next(const char *dialog, std::deque<T> &queue) {
    asked << dialog;
    T answer{};
    if (!queue.empty()) answer = queue.front(), queue.pop_front();
    return answer;
  }
  CShareDialogs *dialogs_;
  CShellLauncher *launcher_;
};

// Sets an environment variable for as long as it lives.
struct ScopedEnv {
  ScopedEnv(const char *name, const QByteArray &value) : name(name), old(qgetenv(name)) {
    qputenv(name, value);
  }
  ~ScopedEnv() { old.isNull() ? qunsetenv(name) : qputenv(name, old); }
  const char *name;
  QByteArray old;
};

// The main window with the output commands installed, and temporary, photo
// and desktop entry folders of its own (the user's and the system's).
class ShareTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(temp.isValid() && photos.isValid() && home.isValid() && system.isValid());
    QDir().mkpath(home.path() + "/applications");
    QDir().mkpath(system.path() + "/applications");
    previous_ = COutputCommands::Install(&commands);
    ASSERT_TRUE(app.InitInstance({"korvelapp"}));
    doc = app.Document();
    form = app.View();
  }
  void TearDown() override {
    app.MainFrame()->close();  // every photo here is added as saved: closes unasked
    COutputCommands::Install(previous_);
    KorvelSettings()->clear();
    QFile::remove(qEnvironmentVariable("XDG_CONFIG_HOME") + "/mimeapps.list");
  }

  QString Help() const { return form->GetButtonTextView()->Text(); }
  void Add(const QString &path, QRgb colour = qRgb(200, 120, 40), int width = 40, int height = 30) {
    doc->AddImage(MakePhoto(width, height, colour), 0, path);
  }
  // Runs `command` with its dialog ending in OK (Print Photo, PrintHouse or
  // Share Online), or cancelled.
  void Run(int command, bool ok = true) {
    const int result = ok ? CShareDialogs::IDOK : CShareDialogs::IDCANCEL;
    dialogs.print = {{result, CShareDialogs::kPrintPhoto}};
    dialogs.projects = {{result, "PrintHouse"}};
    dialogs.share = {{result, "SHARE"}};
    form->OnCommand(command);
  }
  static QStringList Files(const QString &folder, const QString &pattern) {
    return QDir(folder).entryList({pattern}, QDir::Files, QDir::Name);
  }
  static bool Write(const QString &path, const QByteArray &data) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
  }
  static QByteArray Read(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
  }
  // A desktop entry `id` in `folder` running `exec`, with `keys` before it.
  static void WriteEntry(const QString &folder, const QString &id, const QString &exec,
                         const QString &keys = "") {
    ASSERT_TRUE(Write(folder + "/applications/" + id,
                      ("[Desktop Action new]\nExec=wrong\n[Desktop Entry]\nType=Application\n" +
                       keys + "Exec=" + exec + "\n")
                          .toUtf8()));
  }
  static void ExpectColour(QRgb got, QRgb want, int tolerance) {
    EXPECT_NEAR(qRed(got), qRed(want), tolerance);
    EXPECT_NEAR(qGreen(got), qGreen(want), tolerance);
    EXPECT_NEAR(qBlue(got), qBlue(want), tolerance);
  }
  // A JPEG of `size` whose middle is `colour`.
  static void ExpectJpeg(const QString &path, QSize size, QRgb colour) {
    const QImage jpeg(path, "JPEG");
    ASSERT_EQ(jpeg.size(), size) << path.toStdString();
    ExpectColour(jpeg.pixel(size.width() / 2, size.height() / 2), colour, 4);
  }

  QTemporaryDir temp, photos, home, system;
  ScopedEnv tmpdir{"TMPDIR", temp.path().toUtf8()};
  ScopedEnv photoDir{"KORVEL_PHOTO_DIR", photos.path().toUtf8()};
  ScopedEnv dataHome{"XDG_DATA_HOME", home.path().toUtf8()};
  ScopedEnv dataDirs{"XDG_DATA_DIRS", ("/nonexistent:" + system.path()).toUtf8()};
  ScriptedPrompt prompt;
  ScriptedShell dialogs;
  ScriptedShell &launcher = dialogs;
  CShareCommands commands;
  CKorvelApp app;
  CKorvelAppDoc *doc = nullptr;
  CKorvelAppView *form = nullptr;

 private:
  COutputCommands *previous_ = nullptr;
};
