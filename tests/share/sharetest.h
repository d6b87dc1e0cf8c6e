// What the output tests share: dialogs that answer from queues, a launcher
// that records instead of starting anything, and a fixture with the main
// window, the output commands installed and temporary and photo folders of
// its own.
#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QPrinter>
#include <QTemporaryDir>
#include <deque>
#include <functional>
#include <optional>

#include "app/buttontextview.h"
#include "app/document.h"
#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "share/launcher.h"
#include "share/sharecommands.h"
#include "share/sharedialogs.h"
#include "tests/app/photos.h"
#include "tests/app/scriptedprompt.h"

class ScriptedShareDialogs : public CShareDialogs {
 public:
  ScriptedShareDialogs() { previous_ = Install(this); }
  ~ScriptedShareDialogs() override { Install(previous_); }

  PrintAnswer AskPrintChoice() override { return Next("Print Dialog", print); }
  ProjectsAnswer AskProjects() override { return Next("Projects", projects); }
  ShareAnswer AskShare() override { return Next("Share", share); }
  bool AskPrinter(QPrinter *printer) override {
    asked << "Printer";
    if (printerPdf.isEmpty()) return false;
    printer->setOutputFormat(QPrinter::PdfFormat);
    printer->setOutputFileName(printerPdf);
    if (onPrinter) onPrinter(printer);
    return true;
  }

  QStringList asked;
  std::deque<PrintAnswer> print;
  std::deque<ProjectsAnswer> projects;
  std::deque<ShareAnswer> share;
  // Where the printer dialog sends the job (a PDF file); empty cancels it.
  QString printerPdf;
  // Sees the printer as the dialog leaves it.
  std::function<void(QPrinter *)> onPrinter;

 private:
  // Notes the dialog and takes the next queued answer; a cancelled dialog
  // when none is left.
  template <class T>
  T Next(const char *dialog, std::deque<T> &queue) {
    asked << dialog;
    T answer{};
    if (!queue.empty()) answer = queue.front(), queue.pop_front();
    return answer;
  }
  CShareDialogs *previous_ = nullptr;
};

class RecordingLauncher : public CShellLauncher {
 public:
  RecordingLauncher() { previous_ = Install(this); }
  ~RecordingLauncher() override { Install(previous_); }

  bool OpenUrl(const QUrl &url) override {
    urls << url.toString();
    return true;
  }
  bool StartProgram(const QString &program, const QStringList &arguments,
                    const QString &folder) override {
    programs << program;
    this->arguments << arguments;
    folders << folder;
    return true;
  }

  QStringList urls, programs, folders;
  QList<QStringList> arguments;

 private:
  CShellLauncher *previous_ = nullptr;
};

// Sets an environment variable for as long as it lives.
class ScopedEnv {
 public:
  ScopedEnv(const char *name, const QByteArray &value) : name_(name) {
    if (qEnvironmentVariableIsSet(name)) old_ = qgetenv(name);
    qputenv(name, value);
  }
  ~ScopedEnv() { old_ ? qputenv(name_, *old_) : qunsetenv(name_); }

 private:
  const char *name_;
  std::optional<QByteArray> old_;
};

class ShareTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(temp.isValid() && photos.isValid());
    previous_ = COutputCommands::Install(&commands);
    ASSERT_TRUE(app.InitInstance({"korvelapp"}));
    doc = app.Document();
    form = app.View();
  }
  void TearDown() override {
    // Every photo here is added as saved, so the window closes unasked.
    app.MainFrame()->close();
    COutputCommands::Install(previous_);
  }

  QString Help() const { return form->GetButtonTextView()->Text(); }
  void Add(const QString &path, QRgb colour = qRgb(200, 120, 40), int width = 40, int height = 30) {
    doc->AddImage(MakePhoto(width, height, colour), 0, path);
  }
  // Runs the event loop until `done` or five seconds have passed.
  static bool WaitFor(const std::function<bool()> &done) {
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < 5000)
      QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
  }
  // The names in `folder` matching `pattern`.
  static QStringList Files(const QString &folder, const QString &pattern) {
    return QDir(folder).entryList({pattern}, QDir::Files, QDir::Name);
  }
  static QByteArray Read(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
  }

  QTemporaryDir temp, photos;
  ScopedEnv tmpdir{"TMPDIR", temp.path().toUtf8()};
  ScopedEnv photoDir{"KORVEL_PHOTO_DIR", photos.path().toUtf8()};
  ScriptedPrompt prompt;
  ScriptedShareDialogs dialogs;
  RecordingLauncher launcher;
  CShareCommands commands;
  CKorvelApp app;
  CKorvelAppDoc *doc = nullptr;
  CKorvelAppView *form = nullptr;

 private:
  COutputCommands *previous_ = nullptr;
};
