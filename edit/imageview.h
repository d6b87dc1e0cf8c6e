// The editing view: shows the photo being edited centred in the work area and
// keeps a working copy and one previous copy for undo. Edits never touch the
// work area's photo until the user keeps them.
#pragma once

#include <QAbstractScrollArea>
#include <QPoint>
#include <QRect>
#include <QString>
#include <memory>

#include "app/dib.h"
#include "edit/pixels/pixels.h"

class CKorvelAppDoc;

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
  void ClearSelection();
  void StartColorCorrection();
  // The colour tool the next click applies: 0 foliage, 1 skin, 2 sky, 3 neutrals.
  void SetColorTool(int tool) { colorTool_ = tool; }
  int ColorTool() const { return colorTool_; }
  // Crops to the selection; without a selection nothing happens.
  void Crop();
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
  QRect ImageRect() const { return imageRect_; }
  QRect ClientRect() const { return clientRect_; }
  // A point of the view (scrolled coordinates) in photo coordinates.
  QPoint ToPhoto(QPoint viewPoint) const;

 protected:
  void paintEvent(QPaintEvent *event) override;

 private:
  // The photo's place in the captured client rectangle, centred when smaller.
  QRect ComputeImageRect() const;
  QPoint ScrollPosition() const;
  // Makes `result` the current image, the old one the previous; frees both
  // planar images.
  void Commit(PlanarImage *source, PlanarImage *result);

  CKorvelAppDoc *doc_;
  std::unique_ptr<CDib> previous_;
  std::unique_ptr<CDib> current_;
  bool changed_ = false;
  QRect clientRect_;
  QRect imageRect_;
  QString mode_;
  int colorTool_ = -1;
};
