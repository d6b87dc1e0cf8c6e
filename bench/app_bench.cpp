// The application's hot paths, each against a peer or a budget:
// - opening a large JPEG into the work area (probe to a drawable picture)
//   against djpeg decoding the same file;
// - repainting the thumbnail grid with many large photos in the work area,
//   once each has been drawn, against the 16 ms of one frame at 60 Hz;
// - one colour click in the editor on a 640x480 photo (build, apply, commit)
//   against a 30 ms budget;
// - turning a 24-Mpixel photo in the editor (planar copy, rotate, back to a
//   picture), on one thread and on all, against the rotation routine alone on
//   the same planes (on all threads).
// Usage: app_bench JPEG RUNS [PHOTOS]
#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <cstring>
#include <string>

#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/qtprompt.h"
#include "bench/spawn.h"
#include "bench/threads.h"
#include "photo/dibplanar.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "views/imageview.h"
#include "views/thumbview.h"

namespace {

// A photo of the given size with a little structure, as a camera might give.
HGLOBAL MakePhoto(int width, int height, int seed) {
  PlanarImage *p = PlanarCreate(width, height, 3);
  if (!p) return nullptr;
  for (int k = 0; k < 3; ++k)
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; x += 64)
        std::memset(p->planes[k] + size_t(y) * size_t(width) + x,
                    (y * (k + 1) + x + seed * 37) & 255, size_t(std::min(64, width - x)));
  HGLOBAL block = DibFromPlanar(p);
  PlanarFree(p);
  return block;
}

void BenchOpen(const char *jpeg, int runs) {
  CKorvelAppDoc doc;
  const QString path = QString::fromLocal8Bit(jpeg);
  const double open = MedianMs(runs, [&] {
    const bool ok = OpenPhotoFile(&doc, path);
    if (ok) doc.Remove(doc.Count() - 1);
    return ok;
  });
  std::string file = jpeg;
  char *djpeg[] = {const_cast<char *>("djpeg"), const_cast<char *>("-outfile"),
                   const_cast<char *>("/dev/null"), file.data(), nullptr};
  PrintBench("open_jpeg_24mp", open, "djpeg", MedianMs(runs, [&] { return SpawnQuiet(djpeg); }));
}

bool BenchThumbnails(int photos, int runs) {
  CKorvelAppDoc doc;
  for (int i = 0; i < photos; ++i) {
    HGLOBAL block = MakePhoto(6000, 4000, i);
    if (!block) {
      std::fprintf(stderr, "app_bench: no memory for photo %d\n", i + 1);
      return false;
    }
    doc.AddImage(block, 0, QString("/photos/Zib%1.jpg").arg(i + 1, 3, 10, QChar('0')));
  }
  CThumbView view(&doc);
  view.resize(645, 453);
  view.show();
  view.OnInitialUpdate();
  // Painting into an image runs the view's whole paint, as an expose would.
  QImage screen(view.viewport()->size(), QImage::Format_RGB32);
  QElapsedTimer first;
  first.start();
  view.viewport()->render(&screen);
  std::printf("info thumbs_first_paint photos=%d ms=%lld\n", photos, first.elapsed());
  const double repaint = MedianMs(runs, [&] {
    view.viewport()->render(&screen);
    return true;
  });
  const std::string name = "thumbs_repaint_" + std::to_string(photos) + "x24mp";
  PrintBench(name.c_str(), repaint, "frame_budget", 16.0);
  return true;
}

void BenchEditor(int runs) {
  CKorvelApp app;
  app.InitInstance({"korvelapp"});
  CKorvelAppDoc *doc = app.Document();
  CKorvelAppView *form = app.View();
  CImageView *view = form->GetImageView();

  doc->AddImage(MakePhoto(640, 480, 1), 0, "/photos/small.jpg");
  doc->SetCurrentIndex(0);
  form->OnCommand(32778);  // the editor starts this photo at 75%...
  form->OnCommand(1007);   // ...so back to 100% before correcting its colours
  form->OnCommand(1024);
  form->OnCommand(1026);  // neutrals
  int x = 100;
  const double click = MedianMs(runs, [&] {
    view->ColorCorrectAt(QPoint(x += 7, 200), 3);
    return view->CurrentImage() && view->CurrentImage()->Width() == 640 && view->Changed();
  });
  PrintBench("colour_click_640x480", click, "budget", 30.0);

  view->KeepChanges();  // nothing left to ask about on leaving
  form->OnCommand(1003);
  doc->AddImage(MakePhoto(6000, 4000, 2), 0, "/photos/large.jpg");
  doc->SetCurrentIndex(1);
  form->OnCommand(32778);
  form->OnCommand(1012);
  const ThreadedMs turn = MedianMsThreaded(runs, [&] {
    view->Rotate(1);
    return view->CurrentImage() != nullptr;
  });
  PlanarImage *planes = PlanarFromDib(doc->ImageAt(1));
  PlanarImage *turned = PlanarCreateExchanged(planes);
  const double routine =
      MedianMs(runs, [&] { return RotateImage(planes, 0, turned, nullptr) == 0; });
  PlanarFree(planes);
  PlanarFree(turned);
  PrintBenchThreaded("editor_rotate_24mp", turn, "RotateImage", routine);
  for (int i = 0; i < doc->Count(); ++i)
    doc->ReplaceImage(i, doc->ImageAt(i), 0, QString());
  view->KeepChanges();
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 3) {
    std::fputs("usage: app_bench JPEG RUNS [PHOTOS]\n", stderr);
    return 2;
  }
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication qt(argc, argv);
  QtPrompt dialogs;
  KorvelPrompt::SetRealDialogs(&dialogs);
  const int runs = std::max(5, std::atoi(argv[2]));
  BenchOpen(argv[1], runs);
  BenchEditor(runs);
  return BenchThumbnails(argc > 3 ? std::atoi(argv[3]) : 100, runs) ? 0 : 1;
}
