// The output commands of the form (printing, e-mail, the outside editor and
// the online service). The form reaches them through this interface so that
// tests can put recording commands in their place. The program installs the real
// commands at start; without any, the form's buttons only show their help.
#pragma once

#include <functional>

class CKorvelAppDoc;
class QWidget;

// What an output command works with: the work area, the help line and the
// window its dialogs belong to. The form fills it in; the commands never see
// the form itself.
struct COutputContext {
  CKorvelAppDoc *doc = nullptr;
  std::function<void(int)> showHelp;  // shows help string `id`
  QWidget *window = nullptr;

  void ShowHelp(int id) const {
    if (showHelp) showHelp(id);
  }
};

class COutputCommands {
 public:
  virtual ~COutputCommands() = default;

  // The Print button: the print chooser, then printing or ordering online.
  virtual void OnPrint(const COutputContext &context) = 0;
  // Sends the current photo as an attachment through the user's mail program.
  virtual void OnEmail(const COutputContext &context) = 0;
  // Hands the current photo to the outside photo editor.
  virtual void OnSendToPhotoDeluxe(const COutputContext &context) = 0;
  // The projects chooser: the outside editor or the online photo site.
  virtual void OnProjects(const COutputContext &context) = 0;
  // The Share Photos button: the share dialog, the list file, the share page.
  virtual void OnSharePhotos(const COutputContext &context) = 0;
  // The Go to Korvel Online button: the service's home page.
  virtual void OnVisitOnline(const COutputContext &context) = 0;

  // The commands in use, or null when none were installed.
  static COutputCommands *Current();
  // Installs `commands` (not owned; null removes them) and returns the ones
  // it replaces.
  static COutputCommands *Install(COutputCommands *commands);
};
