// The application's hot paths: opening a large JPEG into the work area (probe
// to a drawable picture) against djpeg decoding the same file, and repainting
// the thumbnail grid with 100 large photos in the work area once each has been
// drawn, against the 16 ms of one frame at 60 Hz.
// Usage: app_bench JPEG RUNS [PHOTOS]
#include <QApplication>
#include <QElapsedTimer>
#include <cstring>
#include <string>

#include "app/document.h"
#include "app/photofiles.h"
#include "app/thumbview.h"
#include "bench/spawn.h"
#include "bench/timing.h"
#include "edit/dibplanar.h"

namespace {

// A photo of the given size with a little structure, as a camera might give.
HGLOBAL MakeLargePhoto(int width, int height, int seed) {
  PlanarImage *p = PlanarCreate(width, height, 3);
  if (!p) return nullptr;
  for (int k = 0; k < 3; ++k)
    for (int y = 0; y < height; ++y)
      std::memset(p->planes[k] + size_t(y) * size_t(width), (y * (k + 1) + seed * 37) & 255,
                  size_t(width));
  HGLOBAL block = DibFromPlanar(p);
  PlanarFree(p);
  return block;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 3) {
    std::fputs("usage: app_bench JPEG RUNS [PHOTOS]\n", stderr);
    return 2;
  }
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication qt(argc, argv);
  const QString jpeg = QString::fromLocal8Bit(argv[1]);
  const int runs = std::max(5, std::atoi(argv[2]));
  const int photos = argc > 3 ? std::atoi(argv[3]) : 100;

  CKorvelAppDoc doc;
  const double open = MedianMs(runs, [&] {
    const bool ok = OpenPhotoFile(&doc, jpeg);
    if (ok) doc.Remove(doc.Count() - 1);
    return ok;
  });
  std::string file = argv[1];
  char *djpeg[] = {const_cast<char *>("djpeg"), const_cast<char *>("-outfile"),
                   const_cast<char *>("/dev/null"), file.data(), nullptr};
  const double peer = MedianMs(runs, [&] { return SpawnQuiet(djpeg); });
  PrintBench("open_jpeg_24mp", open, "djpeg", peer);

  for (int i = 0; i < photos; ++i) {
    HGLOBAL block = MakeLargePhoto(6000, 4000, i);
    if (!block) {
      std::fprintf(stderr, "app_bench: no memory for photo %d\n", i + 1);
      return 1;
    }
    doc.AddImage(block, 0, QString("/photos/Zib%1.jpg").arg(i + 1, 3, 10, QChar('0')));
  }
  CThumbView view(&doc);
  view.resize(645, 453);
  view.show();
  view.OnInitialUpdate();
  QElapsedTimer first;
  first.start();
  view.viewport()->repaint();
  std::printf("info thumbs_first_paint photos=%d ms=%lld\n", photos, first.elapsed());
  const double repaint = MedianMs(runs, [&] {
    view.viewport()->repaint();
    return true;
  });
  PrintBench("thumbs_repaint_100x24mp", repaint, "frame_budget", 16.0);
  return 0;
}
