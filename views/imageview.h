// The editing view: shows the photo being edited centred in the work area,
// keeps a working copy and one previous copy for undo, and turns the mouse
// into a crop selection, red-eye and colour-correction clicks. Edits never
// touch the work area's photo until the user keeps them.
#pragma once

#include <QAbstractScrollArea>
#include <QPoint>
#include <QRect>
#include <QString>
#include <memory>

#include "photo/dib.h"
#include "photo/dibplanar.h"
#include "pixels/pixels.h"
#include "views/editorpicture.h"
#include "views/recttracker.h"
#include "views/zoomedpicture.h"

class CKorvelAppDoc;
struct CcParams;

class CImageView : public QAbstractScrollArea {
  Q_OBJECT

 public:
  explicit CImageView(CKorvelAppDoc *doc, QWidget *parent = nullptr);
  ~CImageView() override;

  void OnInitialUpdate();

  // Takes up the work area's current photo at 100%: current and previous
  // become copies of it, the changed flag and the tool mode are cleared.
  void LoadCurrentPhoto();
  // 0 turns left, 1 right; anything else does nothing.
  void Rotate(int direction);
  // Changes only what is drawn: factor >= 1 enlarges by whole steps, below 1
  // reduces. The working picture, the edits and the selection stay.
  void Zoom(double factor);
  // The largest scale, at most 1, at which the whole photo fits the view;
  // kept through edits that change the photo's size.
  void ZoomToFit();
  float FitScale() const;
  // The scale the picture is drawn at, and its drawn size.
  float Scale() const { return fit_ ? FitScale() : scale_; }
  bool Fitted() const { return fit_; }
  QSize DrawnSize() const { return zoomed_.Size(); }
  void SetCropMode() { mode_ = "CROP"; }
  void SetRedEyeMode() { mode_ = "REDEYE"; }
  void ClearMode() { mode_.clear(); }
  // Empties the crop selection and leaves every tool.
  void ClearSelection();
  // Crops to the selection; returns the pixel routine's code (0 on success).
  int Crop();
  // Colour correction: fresh parameters and a copy of the photo as it is now,
  // which every click is applied to.
  void StartColorCorrection();
  void ResetColorState();
  // A click with the colour tool whose button the form has disabled.
  // One click of the colour correction with `tool` (0-3; -1 when none is
  // chosen, which asks the user to choose one first).
  void ColorCorrectAt(QPoint photo, int tool);
  // Builds the transform from every click and applies it to the colour source.
  int ApplyColorCorrection();
  // Greys the red pupil around the photo point.
  void RemoveRedEyeAt(QPoint photo);
  // Hands the working copy to the work area (marked unsaved). False, with
  // the user told and the edit still here, when memory runs out making it.
  bool KeepChanges();
  // Asks whether to keep changes; false when the user cancels or keeping fails.
  bool QueryKeepChanges();
  // Swaps current and previous: a single-level toggle.
  void Undo();

  const QString &Mode() const { return mode_; }
  bool Changed() const { return changed_; }
  // The pictures as packed blocks, made when first asked for; null when
  // there is none or memory runs out.
  const CDib *CurrentImage() const { return current_ ? current_->Picture() : nullptr; }
  const CDib *PreviousImage() const { return previous_ ? previous_->Picture() : nullptr; }
  const CRectTracker &Tracker() const { return tracker_; }
  const CcParams *ColorParams() const { return colorParams_.get(); }
  int ColorTool() const { return colorTool_; }
  QRect ImageRect() const { return imageRect_; }
  QRect ClientRect() const { return clientRect_; }
  // A point of the view (scrolled coordinates) in photo coordinates.
  QPoint ToPhoto(QPoint viewPoint) const;
  // The crop selection with its border, in photo coordinates.
  CRectTracker::Rect SelectionInPhoto() const;
  // The rubber band from two corners, tested in the view's order: equal
  // coordinates on an axis give an inverted rectangle.
  static CRectTracker::Rect NormalizedRect(QPoint a, QPoint b);

 signals:
  // A click on the photo in colour correction mode, in photo pixels; the form
  // answers with ColorCorrectAt and the tool it has chosen.
  void colorClick(QPoint photo);

 protected:
  void paintEvent(QPaintEvent *event) override;
  void mousePressEvent(QMouseEvent *event) override;
  void mouseMoveEvent(QMouseEvent *event) override;
  void mouseReleaseEvent(QMouseEvent *event) override;

 private:
  // The drawn picture's place in the client rectangle, centred when smaller.
  QRect ComputeImageRect() const;
  // Brings the drawn picture, the scroll bars and the client rectangle up to
  // date with the working picture and the zoom.
  void Rezoom();
  // Rezoom at a new scale, the selection staying on the same part of the photo.
  void ZoomKeepingSelection(bool fit, float scale);
  QPoint ViewPoint(const QMouseEvent *event) const;
  // Makes `result` the current image and the old current the previous.
  void Commit(Planar result);
  // The current picture as planes, made when first asked for; null when there
  // is none or memory runs out.
  const PlanarImage *CurrentPlanes();

  CKorvelAppDoc *doc_;
  // Shared with the drawn copy, which reads the picture it shows.
  std::shared_ptr<EditorPicture> previous_;
  std::shared_ptr<EditorPicture> current_;
  CRectTracker tracker_;
  bool changed_ = false;
  QRect clientRect_;
  QPoint dragStart_;
  bool dragging_ = false;
  CRectTracker::Rect lastDrag_;
  QRect imageRect_;
  QString mode_;
  bool fit_ = false;
  float scale_ = 1.0f;
  CZoomedPicture zoomed_;
  // The picture every colour click starts again from.
  std::shared_ptr<const EditorPicture> colorSource_;
  int colorTool_ = -1;
  std::unique_ptr<CcParams> colorParams_;
};
