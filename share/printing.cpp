// Printing. Copies and collation are the printer's business (the printer
// dialog passes them on to the print system), so every page is drawn once.
#include "share/printing.h"

#include <QPagedPaintDevice>
#include <QPrinter>

#include "photo/dib.h"
#include "photo/document.h"

CPrintDC::CPrintDC(QPaintDevice *device) : device_(device) {}

CPrintDC::~CPrintDC() {
  if (painter_.isActive()) painter_.end();
}

bool CPrintDC::StartDoc(const QString &name) {
  if (auto *printer = dynamic_cast<QPrinter *>(device_)) printer->setDocName(name);
  pages_ = 0;
  return painter_.begin(device_);
}

void CPrintDC::StartPage() {
  if (pages_ > 0) {
    if (auto *paged = dynamic_cast<QPagedPaintDevice *>(device_)) paged->newPage();
  }
  ++pages_;
}

void CPrintDC::EndPage() {}

void CPrintDC::EndDoc() {
  if (painter_.isActive()) painter_.end();
}

int CPrintDC::GetDeviceCaps(DeviceCap cap) const {
  switch (cap) {
    case HORZRES:
      return device_->width();
    case VERTRES:
      return device_->height();
    case LOGPIXELSX:
      return device_->logicalDpiX();
    case LOGPIXELSY:
      return device_->logicalDpiY();
  }
  return 0;
}

QRect PrintedRect(int width, int height, int horzRes, int vertRes, int logPixelsX, int logPixelsY) {
  if (width <= 0 || height <= 0 || logPixelsX <= 0 || logPixelsY <= 0) return QRect();
  // Each side in device pixels for the other side's length, in doubles so
  // that large photos on fine printers do not overflow.
  const double dotsAcross = double(width) * double(logPixelsX);
  const double dotsDown = double(height) * double(logPixelsY);
  const int fullWidthHeight = static_cast<int>(dotsDown * double(horzRes) / dotsAcross);
  if (fullWidthHeight <= vertRes) return QRect(0, 0, horzRes, fullWidthHeight);
  const int fullHeightWidth = static_cast<int>(dotsAcross * double(vertRes) / dotsDown);
  return QRect((horzRes - fullHeightWidth) / 2, 0, fullHeightWidth, vertRes);
}

void PrintPhotoPage(CPrintDC &dc, const CDib &photo) {
  dc.StartPage();
  const QRect area =
      PrintedRect(int(photo.Width()), int(photo.Height()), dc.GetDeviceCaps(CPrintDC::HORZRES),
                  dc.GetDeviceCaps(CPrintDC::VERTRES), dc.GetDeviceCaps(CPrintDC::LOGPIXELSX),
                  dc.GetDeviceCaps(CPrintDC::LOGPIXELSY));
  photo.Draw(dc.Painter(), area.left(), area.top(), area.left() + area.width(),
             area.top() + area.height());
  dc.EndPage();
}

void PrintPhotos(const CKorvelAppDoc *doc, QPrinter *printer) {
  CPrintDC dc(printer);
  if (!dc.StartDoc(QStringLiteral("KorvelApp Image"))) return;
  if (doc->Selection().empty()) {
    PrintPhotoPage(dc, doc->ImageAt(doc->CurrentIndex()));
  } else {
    for (uint32_t index : doc->Selection()) {
      const CDib photo = doc->ImageAt(int(index));
      PrintPhotoPage(dc, photo);
    }
  }
  dc.EndDoc();
}
