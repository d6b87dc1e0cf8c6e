// The application's hot paths, each against a peer or a budget:
// - opening a large JPEG into the work area (the check that it reads, with
//   no thumbnail cache entry yet) against djpeg decoding the same file;
// - repainting the thumbnail grid with many large photos in the work area,
//   once each has been drawn, against the 16 ms of one frame at 60 Hz;
// - one colour click in the editor on a 640x480 photo (build, apply, commit)
//   against a 30 ms budget;
// - turning a 24-Mpixel photo in the editor (rotate its planes, draw them
//   reduced to fit), on one thread and on all, against the rotation routine alone on
//   the same planes (on all threads).
// - the work area as a user fills it: 40 JPEGs of 4000x3000 opened at once
//   into the program's window, the time to open them, to the first screen of
//   thumbnails and to all of them, the peak resident memory and the longest
//   a 10 ms timer on the window's thread came late while opening and while
//   the thumbnails were made.
// Usage: app_bench JPEG RUNS [PHOTOS]
//        app_bench --work-area FOLDER  (the photos are made there once)
#include <sys/resource.h>

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <cstring>
#include <string>

#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "app/openphotos.h"
#include "app/qtprompt.h"
#include "bench/spawn.h"
#include "bench/threads.h"
#include "photo/dibplanar.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "photo/thumbcache.h"
#include "raster/ras.h"
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

// Opening checks a JPEG by decoding it at an eighth of each side unless the
// thumbnail cache holds an entry our check marked for the file as it is; the
// benchmark times the first kind (no entry, as on a first start) against
// djpeg, in a cache of its own, and reports the second apart.
void BenchOpen(const char *jpeg, int runs) {
  QTemporaryDir cache;
  qputenv("XDG_CACHE_HOME", cache.path().toUtf8());
  CKorvelAppDoc doc;
  const QString path = QString::fromLocal8Bit(jpeg);
  const auto open = [&](bool forget) {
    if (forget) QDir(ThumbCache().Root()).removeRecursively();
    const bool ok = OpenPhotoFile(&doc, path);
    if (ok) doc.Remove(doc.Count() - 1);
    return ok;
  };
  const double cold = MedianMs(runs, [&] { return open(true); });
  const double warm = MedianMs(runs, [&] { return open(false); });
  std::string file = jpeg;
  char *djpeg[] = {const_cast<char *>("djpeg"), const_cast<char *>("-outfile"),
                   const_cast<char *>("/dev/null"), file.data(), nullptr};
  PrintBench("open_jpeg_24mp", cold, "djpeg", MedianMs(runs, [&] { return SpawnQuiet(djpeg); }));
  std::printf("info open_jpeg_24mp_checked_before ms=%.1f\n", warm);
  qunsetenv("XDG_CACHE_HOME");
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
  // A second for the machine to settle after the open benchmark: the
  // system is still taking back the memory it freed, on the core the turn's
  // second thread wants. Nothing of this program runs meanwhile.
  QThread::sleep(1);
  const ThreadedMs turn = MedianMsThreaded(runs, [&] {
    view->Rotate(1);
    // What the user waits for: the turned photo drawn at the view's zoom.
    // The block the work area keeps is made when the edit is kept.
    return !view->DrawnSize().isEmpty();
  });
  QElapsedTimer packing;
  packing.start();
  const bool packed = view->CurrentImage() != nullptr;
  std::printf("info editor_keep_block_24mp ms=%.1f made=%d\n", packing.nsecsElapsed() / 1e6,
              int(packed));
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

constexpr int kWorkAreaPhotos = 40;
constexpr int kFirstScreen = 20;  // four rows of five show at first

// The work area's photos, written once into `folder` and reused.
QStringList WorkAreaPhotos(const QString &folder) {
  QStringList paths;
  for (int i = 0; i < kWorkAreaPhotos; ++i)
    paths << QString("%1/photo%2.jpg").arg(folder).arg(i, 2, 10, QChar('0'));
  const QString mark = folder + "/complete";
  if (QFile::exists(mark)) return paths;
  std::fprintf(stderr, "app_bench: making %d photos of 4000x3000 in %s (once)\n", kWorkAreaPhotos,
               qPrintable(folder));
  QDir().mkpath(folder);
  for (int i = 0; i < kWorkAreaPhotos; ++i)
    if (!SavePicture(RasFormatJpeg, paths[i], CDib(MakePhoto(4000, 3000, i)))) return {};
  QFile(mark).open(QIODevice::WriteOnly);
  return paths;
}

// How late a 10 ms timer on the window's thread fires, worst case, from the
// moment it starts until the phase is switched.
class StallMeter {
 public:
  StallMeter() {
    tick_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&tick_, &QTimer::timeout, [this] {
      const qint64 now = clock_.nsecsElapsed();
      worst_ = std::max(worst_, (now - last_) / 1e6 - 10.0);
      last_ = now;
    });
    clock_.start();
    last_ = clock_.nsecsElapsed();
    tick_.start(10);
  }
  // The worst lateness so far, starting afresh.
  double Take() {
    const double worst = worst_;
    worst_ = 0;
    return worst;
  }

 private:
  QTimer tick_;
  QElapsedTimer clock_;
  qint64 last_ = 0;
  double worst_ = 0;
};

long PeakRssKb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// One run in a fresh window: the photos opened as a drop or the command line
// opens them, the grid asking for their thumbnails meanwhile.
bool BenchWorkArea(const QStringList &paths, const char *label) {
  CKorvelApp app;
  if (!app.InitInstance({"korvelapp"})) return false;
  app.MainFrame()->show();
  CKorvelAppDoc *doc = app.Document();
  CThumbView *grid = app.View()->GetThumbView();
  Thumbnailer &thumbnailer = grid->Thumbnails();
  QElapsedTimer clock;
  double firstScreenMs = -1, allMs = -1;
  int arrived = 0, firstScreen = 0;
  QEventLoop loop;
  const auto answered = [&](const QString &path) {
    ++arrived;
    if (paths.indexOf(path) < kFirstScreen && ++firstScreen == kFirstScreen) {
      grid->viewport()->repaint();  // the first screen, painted with its thumbnails
      firstScreenMs = clock.nsecsElapsed() / 1e6;
    }
    if (arrived == static_cast<int>(paths.size())) {
      allMs = clock.nsecsElapsed() / 1e6;
      loop.quit();
    }
  };
  QObject::connect(&thumbnailer, &Thumbnailer::thumbnailReady,
                   [&](const QString &path, const QImage &) { answered(path); });
  QObject::connect(&thumbnailer, &Thumbnailer::thumbnailFailed, answered);
  StallMeter stalls;
  clock.start();
  const int opened = OpenPhotos(doc, paths, app.MainFrame(), OpenReport::kSilent);
  const double openMs = clock.nsecsElapsed() / 1e6;
  const double openStall = stalls.Take();
  if (arrived < static_cast<int>(paths.size())) loop.exec();
  const double thumbStall = stalls.Take();
  std::printf(
      "info work_area_%s photos=%d opened=%d open_ms=%.1f first_screen_thumbs_ms=%.1f"
      " all_thumbs_ms=%.1f worst_timer_late_open_ms=%.1f worst_timer_late_thumbs_ms=%.1f"
      " resident_mb=%zu budget_mb=%zu peak_rss_kb=%ld\n",
      label, int(paths.size()), opened, openMs, firstScreenMs, allMs, openStall, thumbStall,
      doc->Pixels().ResidentBytes() >> 20, doc->Pixels().Budget() >> 20, PeakRssKb());
  std::fflush(stdout);
  return opened == static_cast<int>(paths.size());
}

int WorkArea(const char *folder) {
  const QStringList paths = WorkAreaPhotos(QString::fromLocal8Bit(folder) + "/work-area");
  if (paths.isEmpty()) return 1;
  QTemporaryDir cache;
  qputenv("XDG_CACHE_HOME", cache.path().toUtf8());
  std::printf("info work_area threads=%d\n", WorkerCount());
  // An empty thumbnail cache first, then the one that run filled.
  return BenchWorkArea(paths, "cold") && BenchWorkArea(paths, "warm") ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 3) {
    std::fputs("usage: app_bench JPEG RUNS [PHOTOS]\n       app_bench --work-area FOLDER\n",
               stderr);
    return 2;
  }
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication qt(argc, argv);
  QtPrompt dialogs;
  KorvelPrompt::SetRealDialogs(&dialogs);
  if (std::strcmp(argv[1], "--work-area") == 0) return WorkArea(argv[2]);
  const int runs = std::max(5, std::atoi(argv[2]));
  BenchOpen(argv[1], runs);
  BenchEditor(runs);
  return BenchThumbnails(argc > 3 ? std::atoi(argv[3]) : 100, runs) ? 0 : 1;
}
