// The output commands of the form (printing, e-mail, the outside editor and
// the online service) live in a module above the application, so the form
// reaches them through this interface. The program installs the real
// commands at start; without any, the form's buttons only show their help.
#pragma once

class CKorvelAppView;

class COutputCommands {
 public:
  virtual ~COutputCommands() = default;

  // The Print button: the print chooser, then printing or ordering online.
  virtual void OnPrint(CKorvelAppView *view) = 0;
  // Sends the current photo as an attachment through the user's mail program.
  virtual void OnEmail(CKorvelAppView *view) = 0;
  // Hands the current photo to the outside photo editor.
  virtual void OnSendToPhotoDeluxe(CKorvelAppView *view) = 0;
  // The projects chooser: the outside editor or the online photo site.
  virtual void OnProjects(CKorvelAppView *view) = 0;
  // The Share Photos button: the share dialog, the list file, the share page.
  virtual void OnSharePhotos(CKorvelAppView *view) = 0;
  // The Go to Korvel Online button: the service's home page.
  virtual void OnVisitOnline(CKorvelAppView *view) = 0;

  // The commands in use, or null when none were installed.
  static COutputCommands *Current();
  // Installs `commands` (not owned; null removes them) and returns the ones
  // it replaces.
  static COutputCommands *Install(COutputCommands *commands);
};
