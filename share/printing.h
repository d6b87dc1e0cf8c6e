// Printing photos, one photo a page, each as wide as the printable area.
#pragma once

#include <QPainter>
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

// The page's photo rectangle: from the top-left corner of the printable area,
// the full printable width wide, and as high as keeps the photo's proportions
// on a device whose two resolutions may differ. The height is not limited to
// the page: a tall photo runs past its bottom.
int PrintedHeight(int width, int height, int horzRes, int logPixelsX, int logPixelsY);

// Prints `photo` on a page of its own.
void PrintPhotoPage(CPrintDC &dc, const CDib &photo);

// The job "KorvelApp Image" on `printer`: the current photo when none is
// selected, else every selected photo in selection order, a page each.
void PrintPhotos(const CKorvelAppDoc *doc, QPrinter *printer);
