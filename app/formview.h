// The main form: skinned buttons around the work area, which shows either the
// thumbnails or the photo being edited, and the help pane below it. The form
// holds which screen shows and which colour tool is chosen, derives every
// button's state from them in one place, checks the selection before every
// edit command and hands each command on.
#pragma once

#include <QComboBox>
#include <QHash>
#include <QPixmap>
#include <QPushButton>
#include <QRect>
#include <QWidget>

#include "share/outputcommands.h"
#include "views/scaledpixmap.h"

class CKorvelAppDoc;
class CThumbView;
class CImageView;
class CButtonTextView;
class CSkinButton;
class CMainFrame;

class CKorvelAppView : public QWidget {
  Q_OBJECT

 public:
  // Form 101's size in pixels (dialog units converted).
  static constexpr int kFormWidth = 800;
  static constexpr int kFormHeight = 585;

  // What the form shows: the thumbnails, or the editor, either with no tools
  // beside the photo or with the set of one tool.
  enum class Screen { kThumbnails, kEditor, kCrop, kRotate, kColor, kRedEye };

  CKorvelAppView(CKorvelAppDoc *doc, CMainFrame *frame, QWidget *parent = nullptr);
  ~CKorvelAppView() override;

  // Creates the controls and child views (once).
  void OnInitialUpdate();

  CKorvelAppDoc *GetDocument() const { return doc_; }
  // A control of the form by its id, and the work area's top-left corner.
  QWidget *Control(int id) const { return controls_.value(id); }
  QComboBox *ZoomCombo() const { return zoom_; }
  QPoint WorkAreaOrigin() const { return workArea_.topLeft(); }

  void SwitchToThumbnailMode();
  bool SwitchToEditMode();  // false when the photo cannot be read
  Screen CurrentScreen() const { return screen_; }
  // The colour tool the user chose (0 foliage, 1 skin, 2 sky, 3 neutrals), or
  // -1 before one is chosen in this colour correction.
  int ColorTool() const { return colorTool_; }
  // Sets which view shows and every control's visibility and enabled state
  // from the screen and the colour tool; nothing else changes them.
  void UpdateControls();
  // The check every edit command makes first; false after telling the user.
  bool PrepareEdit();
  // Shows help string `id` in the pane.
  void SetHelpText(int id);

  CThumbView *GetThumbView() const;
  CImageView *GetImageView() const;
  CButtonTextView *GetButtonTextView() const;

  // Opens a photo file into the work area (start-up, drops, the open command).
  bool OpenPhoto(const QString &path);
  // The save-before-close question; false keeps the program open.
  bool QuerySaveBeforeClose();

 public slots:
  // Runs the command of a control or menu item id (FormId or MenuId); other
  // ids do nothing.
  void OnCommand(int id);

  void OnRotateLeft();
  void OnRotateRight();
  void OnZoomOut();
  void OnZoomIn();
  void OnZoomSelChange();
  void OnCropNow();
  void OnKeepEdit();
  void OnCloseEditor();
  void OnStartCrop();
  void OnStartRotate();
  void OnGetPhotos();
  void OnSelectSource();
  void OnSavePhoto();
  void OnQuit();
  void OnRemovePhoto();
  void OnEditPhoto();
  void OnUndo();
  void OnOpenPhoto();
  void OnGoOnline();
  void OnStartColorCorrection();
  void OnStartRedEye();
  void OnProjects();
  void OnShare();
  void OnPrint();
  void OnFoliage();
  void OnSkin();
  void OnSky();
  void OnNeutrals();
  void OnEmail();
  void OnRedEyeTool();

 protected:
  void paintEvent(QPaintEvent *event) override;
  void dragEnterEvent(QDragEnterEvent *event) override;
  void dropEvent(QDropEvent *event) override;

 private:
  void CreateControls();
  void CreateViews();
  // False, after telling the user, unless exactly one photo is picked for
  // `action` ("edit", ...).
  bool OnePhotoPicked(const QString &action);
  // Shows `screen` with no colour tool chosen.
  void ShowScreen(Screen screen);
  void ChooseColorTool(int tool, int help);
  // What the output commands are given: the work area, the help line, the window.
  COutputContext OutputContext();
  // One zoom step in (1) or out (-1) from the scale shown.
  void ZoomStep(int direction);

  CKorvelAppDoc *doc_;
  CMainFrame *frame_;
  QHash<int, QWidget *> controls_;
  QComboBox *zoom_ = nullptr;
  QRect workArea_;
  CScaledPixmap background_;
  CThumbView *thumbView_ = nullptr;
  CImageView *imageView_ = nullptr;
  CButtonTextView *helpPane_ = nullptr;
  Screen screen_ = Screen::kThumbnails;
  int colorTool_ = -1;
  bool initialised_ = false;
};
