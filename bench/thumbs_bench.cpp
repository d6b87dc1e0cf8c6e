// Thumbnails of a work area of camera photos, against vipsthumbnail over the
// same files: the time to the first screen (25 thumbnails), to all of them
// with an empty thumbnail cache and again with the cache filled, the peak
// resident memory, and the longest a 10 ms timer on the user-interface
// thread came late while the thumbnails were made.
//
// The photos are made once into the folder given and reused: 500 of 12
// Mpixels, 100 of 24 Mpixels carrying a 160x120 EXIF thumbnail and 100 of 24
// Mpixels without one, each a sky-to-ground gradient with hills and sensor
// noise, shifted a little from one photo to the next.
// Usage: thumbs_bench DATA_FOLDER [GROUP]  (GROUP: 12mp, 24mp_exif or 24mp_plain
// alone, when only one is of interest)
#include <sys/resource.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "bench/spawn.h"
#include "meta/exifthumb.h"
#include "photo/thumbnailer.h"
#include "platform/workers.h"
#include "raster/jpeg.h"
#include "raster/ras.h"

namespace {

struct Group {
  const char *name;
  int count;
  uint32_t width, height;
  bool exifThumb;
};
constexpr Group kGroups[] = {{"12mp", 500, 4000, 3000, false},
                             {"24mp_exif", 100, 6000, 4000, true},
                             {"24mp_plain", 100, 6000, 4000, false}};
constexpr int kFirstScreen = 25;
constexpr int kBox = ThumbCache::kNormal;

uint8_t Clamp(int v) {
  return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}

// One row of photo `seed`: smooth gradients, a hill line and noise.
void PaintRow(uint32_t width, uint32_t height, uint32_t y, int seed, uint32_t *noise,
              uint8_t *const rgb[3]) {
  const double fy = static_cast<double>(y) / height;
  const double shift = 0.03 * (seed % 17);
  for (uint32_t x = 0; x < width; ++x) {
    const double fx = static_cast<double>(x) / width;
    const double hill = 0.55 + 0.08 * std::sin((fx + shift) * 9.0);
    int r, g, b;
    if (fy < hill) {
      r = static_cast<int>(90 + 100 * fy), g = static_cast<int>(140 + 80 * fy);
      b = static_cast<int>(230 - 30 * fy);
    } else {
      r = static_cast<int>(60 + 40 * fy + 30 * fx), g = static_cast<int>(150 - 30 * fy);
      b = static_cast<int>(40 + 20 * fx);
    }
    *noise = *noise * 1664525u + 1013904223u;
    const int n = static_cast<int>((*noise >> 24) & 15) - 8;
    rgb[0][x] = Clamp(r + n), rgb[1][x] = Clamp(g + n / 2), rgb[2][x] = Clamp(b - n);
  }
}

bool WritePhoto(const std::string &path, uint32_t width, uint32_t height, int seed) {
  RasDesc desc{};
  RasSl sl{};
  if (RasSetDesc(&desc, RasFormatJpeg, width, height, 3, RasModelRgb, 72.0f) != RasOk ||
      RasOpen(path.c_str(), 'w', &desc) != RasOk)
    return false;
  bool ok = RasMakeSl(&sl, &desc) == RasOk;
  uint32_t noise = 12345u + static_cast<uint32_t>(seed);
  for (uint32_t y = 0; y < height && ok; ++y) {
    PaintRow(width, height, y, seed, &noise, sl.plane8);
    ok = RasWriteSl(&desc, y, &sl) == RasOk;
  }
  RasFreeSl(&sl);
  return RasClose(&desc) == RasOk && ok;
}

// The camera's thumbnail: the same scene painted small, 160 pixels wide and
// of the photo's shape.
constexpr uint32_t kExifWidth = 160;
uint32_t ExifHeight(const Group &group) {
  return (kExifWidth * group.height + group.width / 2) / group.width;
}

bool AddExifThumb(const std::string &path, const Group &group, int seed) {
  const std::string small = path + ".thumb.jpg";
  if (!WritePhoto(small, kExifWidth, ExifHeight(group), seed)) return false;
  QFile file(QString::fromStdString(small));
  if (!file.open(QIODevice::ReadOnly)) return false;
  const QByteArray bytes = file.readAll();
  file.remove();
  std::string error;
  return MetaWriteExifThumb(path.c_str(), std::vector<uint8_t>(bytes.begin(), bytes.end()), &error);
}

std::vector<std::string> GroupFiles(const QString &data, const Group &group) {
  std::vector<std::string> files;
  for (int i = 0; i < group.count; ++i)
    files.push_back(
        QString("%1/%2/photo%3.jpg").arg(data, group.name).arg(i, 4, 10, QChar('0')).toStdString());
  return files;
}

// Makes the photos of every group on two threads, once: a finished group
// leaves a mark behind.
bool MakePhotos(const QString &data) {
  (void)JpegSetOption(JpegOptQuality, 88);
  for (const Group &group : kGroups) {
    // The mark names the thumbnail's size, so a change of it remakes the group.
    const QString mark = QString("%1/%2/complete-%3")
                             .arg(data, group.name)
                             .arg(group.exifThumb ? ExifHeight(group) : 0);
    if (QFile::exists(mark)) continue;
    std::fprintf(stderr, "thumbs_bench: making %d photos of %ux%u in %s/%s (once)\n", group.count,
                 group.width, group.height, qPrintable(data), group.name);
    QDir().mkpath(QString("%1/%2").arg(data, group.name));
    const std::vector<std::string> files = GroupFiles(data, group);
    std::atomic<int> next{0};
    std::atomic<bool> ok{true};
    auto work = [&] {
      for (int i = next++; i < group.count && ok; i = next++) {
        if (!WritePhoto(files[i], group.width, group.height, i) ||
            (group.exifThumb && !AddExifThumb(files[i], group, i)))
          ok = false;
      }
    };
    std::thread helper(work);
    work();
    helper.join();
    if (!ok) return false;
    QFile(mark).open(QIODevice::WriteOnly);
  }
  return true;
}

// User and system time of this process, or of its finished children.
double CpuMs(int who) {
  rusage usage{};
  getrusage(who, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
         (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

struct Run {
  double firstScreenMs = 0, allMs = 0, worstLateMs = 0, cpuMs = 0;
  int failed = 0;
};

// Asks for every thumbnail (the first screen's first) and runs the event
// loop until all have come, a 10 ms timer measuring how late it fires.
Run Load(const std::vector<std::string> &files, const ThumbCache &cache) {
  Run run;
  const double cpuBefore = CpuMs(RUSAGE_SELF);
  QElapsedTimer clock;
  clock.start();
  Thumbnailer thumbnailer(kBox, cache);
  int firstScreen = 0, answered = 0;
  QEventLoop loop;
  const auto answer = [&](const QString &path) {
    const int index = path.section("photo", -1).left(4).toInt();
    if (index < kFirstScreen && ++firstScreen == kFirstScreen)
      run.firstScreenMs = clock.nsecsElapsed() / 1e6;
    if (++answered == static_cast<int>(files.size())) loop.quit();
  };
  QObject::connect(&thumbnailer, &Thumbnailer::thumbnailReady,
                   [&](const QString &path, const QImage &) { answer(path); });
  QObject::connect(&thumbnailer, &Thumbnailer::thumbnailFailed, [&](const QString &path) {
    ++run.failed;
    answer(path);
  });
  QTimer tick;
  tick.setTimerType(Qt::PreciseTimer);
  qint64 last = clock.nsecsElapsed();
  QObject::connect(&tick, &QTimer::timeout, [&] {
    const qint64 now = clock.nsecsElapsed();
    run.worstLateMs = std::max(run.worstLateMs, (now - last) / 1e6 - 10.0);
    last = now;
  });
  tick.start(10);
  // The rows on screen rank highest, the rest in work-area order.
  for (size_t i = 0; i < files.size(); ++i)
    thumbnailer.Request(QString::fromStdString(files[i]), -static_cast<int>(i));
  loop.exec();
  run.allMs = clock.nsecsElapsed() / 1e6;
  run.cpuMs = CpuMs(RUSAGE_SELF) - cpuBefore;
  return run;
}

// The wall time of vipsthumbnail over `files`; `cpuMs` its processor time.
double VipsMs(const std::vector<std::string> &files, const QString &out, double *cpuMs) {
  std::vector<std::string> args = {"vipsthumbnail", "--size", std::to_string(kBox), "-o",
                                   (out + "/%s.jpg").toStdString()};
  args.insert(args.end(), files.begin(), files.end());
  std::vector<char *> argv;
  for (std::string &a : args)
    argv.push_back(a.data());
  argv.push_back(nullptr);
  const double cpuBefore = CpuMs(RUSAGE_CHILDREN);
  QElapsedTimer clock;
  clock.start();
  if (!SpawnQuiet(argv.data())) return -1;
  *cpuMs = CpuMs(RUSAGE_CHILDREN) - cpuBefore;
  return clock.nsecsElapsed() / 1e6;
}

// Reads every file once, so neither program pays for the disk.
void WarmPageCache(const std::vector<std::string> &files) {
  std::vector<char> buffer(1 << 20);
  for (const std::string &name : files) {
    QFile file(QString::fromStdString(name));
    if (file.open(QIODevice::ReadOnly))
      while (file.read(buffer.data(), static_cast<qint64>(buffer.size())) > 0) {
      }
  }
}

void Measure(const QString &data, const Group &group) {
  const std::vector<std::string> files = GroupFiles(data, group);
  WarmPageCache(files);
  QTemporaryDir scratch;
  double vipsCpu = 0;
  const double vips = VipsMs(files, scratch.path(), &vipsCpu);
  const ThumbCache cache(scratch.path() + "/thumbnails");
  const Run cold = Load(files, cache);
  const Run warm = Load(files, cache);
  std::printf(
      "thumbs %s files=%d first_screen_ms=%.1f cold_ms=%.1f warm_ms=%.1f"
      " worst_timer_late_ms=%.1f failed=%d\n",
      group.name, group.count, cold.firstScreenMs, cold.allMs, warm.allMs,
      std::max(cold.worstLateMs, warm.worstLateMs), cold.failed + warm.failed);
  std::printf("bench thumbs_cold_%s ours_ms=%.1f peer=vipsthumbnail peer_ms=%.1f ratio=%.3f\n",
              group.name, cold.allMs, vips, cold.allMs / vips);
  // Processor time stays meaningful on a machine busy with other work.
  std::printf("cpu thumbs_cold_%s ours_ms=%.1f peer=vipsthumbnail peer_ms=%.1f ratio=%.3f\n",
              group.name, cold.cpuMs, vipsCpu, cold.cpuMs / vipsCpu);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2 && argc != 3) {
    std::fputs("usage: thumbs_bench DATA_FOLDER [GROUP]\n", stderr);
    return 2;
  }
  QCoreApplication app(argc, argv);
  const QString data = QDir(QString::fromLocal8Bit(argv[1])).absolutePath();
  if (!MakePhotos(data)) {
    std::fputs("thumbs_bench: the photos could not be made\n", stderr);
    return 1;
  }
  std::printf("thumbs threads=%d\n", WorkerCount());
  for (const Group &group : kGroups)
    if (argc == 2 || std::string(argv[2]) == group.name) Measure(data, group);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("memory thumbs peak_rss_kb=%ld\n", usage.ru_maxrss);
  return 0;
}
