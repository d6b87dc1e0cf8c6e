// Printing. Copies and collation are the printer's business (the printer
// dialog passes them on to the print system), so every page is drawn once.
#include "share/printing.h"

#include <QPagedPaintDevice>
#include <QPrinter>

#include "app/dib.h"
#include "app/document.h"

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

int PrintedHeight(int width, int height, int horzRes, int logPixelsX, int logPixelsY) {
  if (width <= 0 || logPixelsX <= 0) return 0;
  return static_cast<int>(double(height) * double(logPixelsY) * double(horzRes) /
                          (double(width) * double(logPixelsX)));
}

void PrintPhotoPage(CPrintDC &dc, const CDib &photo) {
  dc.StartPage();
  const int horzRes = dc.GetDeviceCaps(CPrintDC::HORZRES);
  const int logPixelsX = dc.GetDeviceCaps(CPrintDC::LOGPIXELSX);
  const int logPixelsY = dc.GetDeviceCaps(CPrintDC::LOGPIXELSY);
  const int height =
      PrintedHeight(int(photo.Width()), int(photo.Height()), horzRes, logPixelsX, logPixelsY);
  photo.Draw(dc.Painter(), 0, 0, horzRes, height);
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
