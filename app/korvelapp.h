// The application object: start-up in its fixed order, and the one work area
// with its main window.
#pragma once

#include <QStringList>
#include <memory>

class CKorvelAppDoc;
class CMainFrame;
class CKorvelAppView;

class CKorvelApp {
 public:
  static constexpr int kRecentFiles = 4;

  // What the command line asks for. Options come before the photos; "--" ends them.
  // Every other word is a photo (or a folder of photos) of its own, except that words
  // which name no file while the whole line joined by spaces does are that one path:
  // some file managers pass a single name with spaces unquoted.
  struct CommandLine {
    enum Action { kRun, kHelp, kVersion, kUsageError };
    Action action = kRun;
    QStringList paths;  // kRun: the photos to open, in order; empty for none
    QString problem;    // kUsageError: what is wrong, for the message
    // kUsageError: a long option, which Qt never takes, so it can be refused
    // before Qt starts (and without a display).
    bool longOption = false;
  };
  static CommandLine ParseCommandLine(const QStringList &arguments);
  static QString Usage();
  // "KorvelApp <version>".
  static QString VersionLine();

  CKorvelApp();
  ~CKorvelApp();

  // Creates the work area, frame and form, shows the window and opens the
  // command line's photos; false, creating nothing, for a command line that does not
  // ask to run.
  bool InitInstance(const QStringList &arguments);

  CKorvelAppDoc *Document() const { return doc_.get(); }
  CMainFrame *MainFrame() const { return frame_.get(); }
  CKorvelAppView *View() const { return view_; }
  // The recent-file list read from the settings (at most four entries).
  const QStringList &RecentFiles() const { return recent_; }

 private:
  void LoadStdProfileSettings(int count);

  std::unique_ptr<CKorvelAppDoc> doc_;
  std::unique_ptr<CMainFrame> frame_;
  CKorvelAppView *view_ = nullptr;  // owned by the frame
  QStringList recent_;
};
