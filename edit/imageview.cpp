// The editing view's display and its whole-photo edits.
#include "edit/imageview.h"

#include <QGuiApplication>
#include <QPainter>
#include <QScrollBar>

#include "app/document.h"
#include "app/prompt.h"
#include "app/scrollsizes.h"
#include "app/waitcursor.h"
#include "edit/dibplanar.h"

CImageView::CImageView(CKorvelAppDoc *doc, QWidget *parent)
    : QAbstractScrollArea(parent), doc_(doc) {
  setFrameShape(QFrame::NoFrame);
  // Whatever the paint leaves uncovered (the strip a scroll bar had taken when
  // the client rectangle was captured) shows the same light grey.
  QPalette grey = viewport()->palette();
  grey.setColor(QPalette::Window, QColor(0xdc, 0xdc, 0xdc));
  viewport()->setPalette(grey);
  viewport()->setAutoFillBackground(true);
  doc_->AddView(this);
}

CImageView::~CImageView() {
  doc_->RemoveView(this);
}

void CImageView::OnInitialUpdate() {
  SetScrollSizes(this, QSize(453, 645));
}

void CImageView::LoadCurrentPhoto() {
  current_.reset();
  previous_.reset();
  const int index = doc_->CurrentIndex();
  if (index != -1) {
    current_ = std::make_unique<CDib>(doc_->ImageAt(index));
    previous_ = std::make_unique<CDib>(doc_->ImageAt(index));
  }
  changed_ = false;
  mode_.clear();
  clientRect_ = viewport()->rect();
}

QRect CImageView::ComputeImageRect() const {
  const uint32_t w = current_ ? current_->Width() : 0, h = current_ ? current_->Height() : 0;
  const int cw = clientRect_.width(), ch = clientRect_.height();
  int left = 0, right = int(w), top = 0, bottom = int(h);
  // The halves are taken separately, so an odd side loses a pixel when centred.
  if (uint32_t(cw) > w) {
    left = cw / 2 - int(w >> 1);
    right = cw / 2 + int(w >> 1);
  }
  if (uint32_t(ch) > h) {
    top = ch / 2 - int(h >> 1);
    bottom = ch / 2 + int(h >> 1);
  }
  return QRect(QPoint(left, top), QPoint(right - 1, bottom - 1));
}

QPoint CImageView::ToPhoto(QPoint p) const {
  const uint32_t w = current_ ? current_->Width() : 0, h = current_ ? current_->Height() : 0;
  const int cw = clientRect_.width(), ch = clientRect_.height();
  if (uint32_t(cw) > w) p.rx() += int(w / 2) - cw / 2;
  if (uint32_t(ch) > h) p.ry() += int(h / 2) - ch / 2;
  return p;
}

QPoint CImageView::ScrollPosition() const {
  return QPoint(horizontalScrollBar()->value(), verticalScrollBar()->value());
}

void CImageView::paintEvent(QPaintEvent *) {
  imageRect_ = ComputeImageRect();
  const int w = current_ ? int(current_->Width()) : 0, h = current_ ? int(current_->Height()) : 0;
  SetScrollSizes(this, QSize(w, h));
  QPainter painter(viewport());
  painter.translate(-ScrollPosition());
  painter.fillRect(QRect(0, 0, std::max(w, clientRect_.width()), std::max(h, clientRect_.height())),
                   QColor(0xdc, 0xdc, 0xdc));
  if (current_) {
    const QRect r = imageRect_;
    current_->Draw(&painter, r.left(), r.top(), r.right() + 1, r.bottom() + 1);
  }
}

void CImageView::Commit(PlanarImage *source, PlanarImage *result) {
  PlanarFree(source);
  previous_ = std::make_unique<CDib>(current_ ? *current_ : CDib());
  current_.reset();
  if (HGLOBAL block = DibFromPlanar(result)) current_ = std::make_unique<CDib>(block);
  PlanarFree(result);
  viewport()->update();
}

void CImageView::Rotate(int direction) {
  if ((direction != 0 && direction != 1) || !current_) return;
  changed_ = true;
  PlanarImage *source = PlanarFromDib(*current_);
  PlanarImage *result = source ? PlanarCreateExchanged(source) : nullptr;
  if (!result || RotateImage(source, direction == 0 ? 2 : 0, result, nullptr) != 0) {
    PlanarFree(source);
    PlanarFree(result);
    return;
  }
  Commit(source, result);
}

void CImageView::Zoom(double factor) {
  CWaitCursor wait;
  current_.reset();
  if (doc_->CurrentIndex() != -1)
    current_ = std::make_unique<CDib>(doc_->ImageAt(doc_->CurrentIndex()));
  if (!current_) return;
  PlanarImage *source = PlanarFromDib(*current_);
  PlanarImage *result = source ? PlanarCreateScaled(source, float(factor)) : nullptr;
  int code = -1;
  if (result && factor >= 1.0) {
    code = EnlargeImage(source, 0.5f, 0.5f, int32_t(factor), result, nullptr);
    horizontalScrollBar()->setValue(0);
    verticalScrollBar()->setValue(0);
  } else if (result) {
    const PixRect whole{};
    const PixReduceOptions options{};
    code = ReduceImage(nullptr, source, 1, result, &whole, &options, nullptr);
  }
  if (code != 0) {
    PlanarFree(source);
    PlanarFree(result);
    return;
  }
  Commit(source, result);
}

void CImageView::ClearSelection() {
  mode_.clear();
  viewport()->update();
}

void CImageView::StartColorCorrection() {
  mode_ = "COLORCORRECTION";
}

// The selection is drawn with the crop tracker; until one is drawn there is
// nothing to crop to.
void CImageView::Crop() {}

void CImageView::KeepChanges() {
  if (doc_->CurrentIndex() != -1 && current_)
    doc_->ReplaceImage(doc_->CurrentIndex(), *current_, 1, QString());
  changed_ = false;
  mode_.clear();
}

bool CImageView::QueryKeepChanges() {
  if (!changed_) return true;
  switch (AfxMessageBox("The image has changed. Do you want to keep these changes?",
                        KorvelPrompt::MB_YESNOCANCEL)) {
    case KorvelPrompt::IDYES:
      KeepChanges();
      return true;
    case KorvelPrompt::IDNO:
      return true;
    default:
      return false;
  }
}

void CImageView::Undo() {
  const CDib temp = current_ ? *current_ : CDib();
  current_ = std::make_unique<CDib>(previous_ ? *previous_ : CDib());
  previous_ = std::make_unique<CDib>(temp);
  viewport()->update();
}
