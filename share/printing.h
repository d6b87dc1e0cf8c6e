// Printing photos, one photo a page, each as large as the printable area
// allows.
#pragma once

#include <QPainter>
#include <QRect>
#include <QString>

class CDib;
class CKorvelAppDoc;
class QPaintDevice;
class QPrinter;

// One print job on a paint device, with the page steps and device figures a
// page is laid out by. On a printer the origin is the printable area's
// top-left corner; a plain paint device (an image) has a single page.
class CPrintDC {
 public:
  enum DeviceCap { HORZRES, VERTRES, LOGPIXELSX, LOGPIXELSY };

  explicit CPrintDC(QPaintDevice *device);
  ~CPrintDC();
  CPrintDC(const CPrintDC &) = delete;
  CPrintDC &operator=(const CPrintDC &) = delete;

  // Names the job (on a printer) and starts it; false when the device
  // refuses to start.
  bool StartDoc(const QString &name);
  // Every page after the first begins on a new sheet.
  void StartPage();
  void EndPage();
  void EndDoc();

  // The printable width and height in device pixels, and the device's
  // horizontal and vertical resolution in dots per inch.
  int GetDeviceCaps(DeviceCap cap) const;
  QPainter *Painter() { return &painter_; }
  int PagesStarted() const { return pages_; }

 private:
  QPaintDevice *device_;
  QPainter painter_;
  int pages_ = 0;
};

// The page's photo rectangle, keeping the photo's proportions on a device
// whose two resolutions may differ: the full printable width from the
// printable area's top-left corner, unless the photo would then run past the
// bottom of the printable area; then the full printable height, centred
// across, so that no part of a tall photo is lost off the page.
QRect PrintedRect(int width, int height, int horzRes, int vertRes, int logPixelsX, int logPixelsY);

// Prints `photo` on a page of its own.
void PrintPhotoPage(CPrintDC &dc, const CDib &photo);

// The job "KorvelApp Image" on `printer`: the current photo when none is
// selected, else every selected photo in selection order, a page each.
void PrintPhotos(const CKorvelAppDoc *doc, QPrinter *printer);
