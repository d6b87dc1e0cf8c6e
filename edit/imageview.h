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

#include "app/dib.h"
#include "edit/pixels/pixels.h"
#include "edit/recttracker.h"

class CKorvelAppDoc;
struct CcParams;

class CImageView : public QAbstractScrollArea {
  Q_OBJECT

 public:
  explicit CImageView(CKorvelAppDoc *doc, QWidget *parent = nullptr);
  ~CImageView() override;

  void OnInitialUpdate();

  // Takes up the work area's current photo: current and previous become copies
  // of it, the changed flag and the tool mode are cleared, and the client
  // rectangle the photo is centred in is captured.
  void LoadCurrentPhoto();
  // 0 turns left, 1 right; anything else does nothing.
  void Rotate(int direction);
  // Always from the work area's photo: factor >= 1 enlarges by whole steps,
  // below 1 reduces the whole photo.
  void Zoom(double factor);
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
  void ColorCorrectAt(QPoint photo);
  // Builds the transform from every click and applies it to the colour source.
  int ApplyColorCorrection();
  // Greys the red pupil around the photo point.
  void RemoveRedEyeAt(QPoint photo);
  // Hands the working copy to the work area (marked unsaved).
  void KeepChanges();
  // Asks whether to keep changes; false when the user cancels.
  bool QueryKeepChanges();
  // Swaps current and previous: a single-level toggle.
  void Undo();

  const QString &Mode() const { return mode_; }
  bool Changed() const { return changed_; }
  const CDib *CurrentImage() const { return current_.get(); }
  const CDib *PreviousImage() const { return previous_.get(); }
  const CRectTracker &Tracker() const { return tracker_; }
  const CcParams *ColorParams() const { return colorParams_.get(); }
  int ColorTool() const { return colorTool_; }
  QRect ImageRect() const { return imageRect_; }
  QRect ClientRect() const { return clientRect_; }
  // A point of the view (scrolled coordinates) in photo coordinates.
  QPoint ToPhoto(QPoint viewPoint) const;
  // The rubber band from two corners, tested in the view's order: equal
  // coordinates on an axis give an inverted rectangle.
  static CRectTracker::Rect NormalizedRect(QPoint a, QPoint b);

 protected:
  void paintEvent(QPaintEvent *event) override;
  void mousePressEvent(QMouseEvent *event) override;
  void mouseMoveEvent(QMouseEvent *event) override;
  void mouseReleaseEvent(QMouseEvent *event) override;

 private:
  struct PlanarDeleter {
    void operator()(PlanarImage *image) const { PlanarFree(image); }
  };
  using Planar = std::unique_ptr<PlanarImage, PlanarDeleter>;

  // The photo's place in the captured client rectangle, centred when smaller.
  QRect ComputeImageRect() const;
  QPoint ViewPoint(const QMouseEvent *event) const;
  // Makes `result` the current image and the old current the previous. A
  // result that cannot become a picture leaves both images as they were.
  bool Commit(Planar result);

  CKorvelAppDoc *doc_;
  std::unique_ptr<CDib> previous_;
  std::unique_ptr<CDib> current_;
  CRectTracker tracker_;
  bool changed_ = false;
  QRect clientRect_;
  QPoint dragStart_;
  bool dragging_ = false;
  CRectTracker::Rect lastDrag_;
  QRect imageRect_;
  QString mode_;
  Planar colorSource_;
  int colorTool_ = -1;
  std::unique_ptr<CcParams> colorParams_;
};
