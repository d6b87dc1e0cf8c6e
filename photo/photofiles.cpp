// Photos in and out of the work area as files. The raster library does the
// reading and writing; the conversions of dibraster.h move the rows between
// its scanlines and the work area's pictures.
#include "photo/photofiles.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QFuture>
#include <QFutureWatcher>
#include <QGuiApplication>
#include <QPromise>
#include <QScreen>
#include <QStringList>
#include <QThread>
#include <QThreadPool>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "photo/dibraster.h"
#include "photo/document.h"
#include "photo/photometa.h"
#include "photo/photostore.h"
#include "photo/prompt.h"
#include "photo/thumbmaker.h"
#include "photo/waitcursor.h"
#include "platform/safefile.h"
#include "raster/jpeg.h"
#include "raster/jpegcheck.h"
#include "raster/ras.h"

namespace {

const QString kOpenFilter = QStringLiteral(
    "JPEG Files (*.jpg)|*.jpg|BITMAP Files (*.bmp)|*.bmp|TIFF Files(*.tif)|*.tif|"
    "PNG Files (*.png)|*.png|WebP Files (*.webp)|*.webp|"
    "HEIF Files (*.heic,*.heif,*.avif)|*.heic;*.heif;*.avif|"
    "All Image Files(*.jpg,*.bmp,*.tif,*.png,*.webp,*.heic,*.heif,*.avif)|"
    "*.jpg;*.bmp;*.tif;*.png;*.webp;*.heic;*.heif;*.avif||");
const QString kSaveFilter =
    QStringLiteral("JPEG Files (*.jpg)|*.jpg|BITMAP Files (*.bmp)|*.bmp|TIFF Files(*.tif)|*.tif||");

// One raster file and its scanline frame, both let go on every way out.
struct RasterFile {
  RasDesc desc{};
  RasSl sl{};
  bool open = false;
  bool frame = false;

  RasterFile() = default;
  RasterFile(const RasterFile &) = delete;
  RasterFile &operator=(const RasterFile &) = delete;
  ~RasterFile() { (void)Close(); }

  // The library's close result; RasOk when nothing was open.
  int Close() {
    int code = RasOk;
    if (open) code = RasClose(&desc);
    if (frame) RasFreeSl(&sl);
    open = frame = false;
    return code;
  }
};

// Photos are written at the best JPEG quality; whatever the library was set
// to before is put back afterwards, since the setting is process-wide.
class JpegQualityHold {
 public:
  explicit JpegQualityHold(int quality) {
    JpegGetOption(JpegOptQuality, &saved_);
    (void)JpegSetOption(JpegOptQuality, quality);
  }
  ~JpegQualityHold() { (void)JpegSetOption(JpegOptQuality, saved_); }
  JpegQualityHold(const JpegQualityHold &) = delete;
  JpegQualityHold &operator=(const JpegQualityHold &) = delete;

 private:
  int saved_ = 75;
};

std::string Local(const QString &path) {
  return QFile::encodeName(path).toStdString();
}

int LastSeparator(const QString &path) {
  return static_cast<int>(std::max(path.lastIndexOf('/'), path.lastIndexOf('\\')));
}

// The extension of the path's file name, as the file dialog reports it: the
// text after the name's last dot, empty when the name has none.
QString ExtensionOf(const QString &path) {
  const QString name = path.mid(LastSeparator(path) + 1);
  const qsizetype dot = name.lastIndexOf('.');
  return dot < 0 ? QString() : name.mid(dot + 1);
}

const char kUnableToSave[] = "Unable to save image. Please try again";

// BMP has no way to say "unknown" but 0 pixels per metre, which readers take
// as unspecified; the writer rounds to whole pixels per metre and puts its
// own 300 dpi in place of anything not above 0, so the resolution handed to
// it is one that rounds to 0.
constexpr float kBmpUnspecified = 0.01f;
// TIFF requires a resolution in every file; 72 dpi is what readers assume.
constexpr float kTiffUnspecified = 72.0f;

// What the writer of `format` is given for a photo whose resolution is
// `resolution`: the photo's own when it has one; else JPEG says "unknown"
// (density unit 0) when given nothing above 0.
float ResolutionToWrite(uint32_t format, float resolution) {
  if (resolution > 0.0f) return resolution;
  if (format == RasFormatBmp) return kBmpUnspecified;
  if (format == RasFormatTiff) return kTiffUnspecified;
  return kUnknownResolution;
}

// The sentence to show, or null when the picture was written; `error` is the
// system's reason when it is known.
struct SaveFailure {
  const char *sentence = nullptr;
  int error = 0;
};

// The reason a failed raster write leaves in errno, when it is one that a
// write alone sets. The library reports no errno of its own, and standard
// I/O leaves stray values behind on success (ENOTTY from its buffering
// check), which must not be passed off as the reason.
int WriteError() {
  switch (errno) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
    case EIO:
    case EROFS:
      return errno;
    default:
      return 0;
  }
}

// Writes the picture into the file `out` prepared. The raster file is closed
// on every path, the failed row write included.
SaveFailure WriteRows(uint32_t format, const ReplacingFile &out, const CDib &picture,
                      float resolution) {
  RasterFile file;
  if (RasSetDesc(&file.desc, format, picture.Width(), picture.Height(), 3, RasModelRgb,
                 ResolutionToWrite(format, resolution)) != RasOk)
    return {"Could not save image"};
  if (out.error() != 0) return {"Could not open file to write", out.error()};
  if (RasOpen(out.path().c_str(), 'w', &file.desc) != RasOk)
    return {"Could not open file to write"};
  file.open = true;
  if (RasMakeSl(&file.sl, &file.desc) != RasOk) return {"Could not make  header"};
  file.frame = true;
  errno = 0;
  if (DibToScanlines(picture, &file.desc, &file.sl) != RasOk) return {kUnableToSave, WriteError()};
  // The last buffered rows reach the disk only now; a failure here loses
  // them just as a failed row write does.
  if (file.Close() != RasOk) return {kUnableToSave, WriteError()};
  return {};
}

// What became of the file at the target after a failed write.
enum class Outcome { kUnchanged, kNotCreated, kWrittenInPlace };

Outcome OutcomeOf(const ReplacingFile &out) {
  if (out.direct()) return Outcome::kWrittenInPlace;
  return out.replacing() ? Outcome::kUnchanged : Outcome::kNotCreated;
}

// The message for a failure. A failed write keeps its sentence, followed by
// the system's reason and what became of the file, since the sentence alone
// leaves the user wondering whether the photo they had is still there.
QString FailureText(const SaveFailure &failure, const QString &path, Outcome outcome) {
  QString text = QString::fromLatin1(failure.sentence);
  if (std::strcmp(failure.sentence, kUnableToSave) != 0) return text;
  QStringList reason;
  if (failure.error != 0) reason << QString::fromLocal8Bit(std::strerror(failure.error)) + '.';
  if (outcome == Outcome::kUnchanged)
    reason << QStringLiteral("\"%1\" was left as it was.").arg(path);
  else if (outcome == Outcome::kNotCreated)
    reason << QStringLiteral("Nothing was saved as \"%1\".").arg(path);
  return reason.isEmpty() ? text : text + QStringLiteral("\n\n") + reason.join(' ');
}

// The wait cursor and the best JPEG quality for the length of one write.
class SaveScope {
 public:
  explicit SaveScope(uint32_t format) {
    if (format == RasFormatJpeg) quality_.emplace(100);
  }

 private:
  CWaitCursor wait_;
  std::optional<JpegQualityHold> quality_;
};

// Two threads check photos for the window: a batch checks the next two files
// while the one before them is added, never further ahead. A check holds no
// pixels once it is done (a file other than JPEG is read whole and let go on
// the worker), so what waits is a path's metadata. The pool is never
// destroyed, so that no check is cut short at exit.
constexpr int kCheckedAhead = 2;

QThreadPool &CheckThreads() {
  static QThreadPool *const pool = [] {
    auto *made = new QThreadPool;
    made->setMaxThreadCount(kCheckedAhead);
    return made;
  }();
  return *pool;
}

QFuture<PhotoFileCheck> StartCheck(const QString &path) {
  auto promise = std::make_shared<QPromise<PhotoFileCheck>>();
  QFuture<PhotoFileCheck> future = promise->future();
  promise->start();
  CheckThreads().start([promise, path, thumbs = OpenThumbsForScreen()] {
    PhotoFileCheck check;
    try {
      check = CheckPhotoFile(path, &thumbs);
    } catch (const std::bad_alloc &) {
      // As a picture too large for memory: the file does not open.
    }
    promise->addResult(std::move(check));
    promise->finish();
  });
  return future;
}

// User input stays queued while a photo is checked: a click would run a
// command against a work area about to gain an entry, or open another photo
// in the middle of this one. A later launch's photos (a socket) wait as well,
// so that they come after these. Painting and timers go on.
constexpr QEventLoop::ProcessEventsFlags kWhileReading =
    QEventLoop::ExcludeUserInputEvents | QEventLoop::ExcludeSocketNotifiers;

PhotoFileCheck Await(QFuture<PhotoFileCheck> future) {
  const QCoreApplication *app = QCoreApplication::instance();
  if (!future.isFinished() && app && QThread::currentThread() == app->thread()) {
    QEventLoop loop;
    QFutureWatcher<PhotoFileCheck> watcher;
    QObject::connect(&watcher, &QFutureWatcherBase::finished, &loop, &QEventLoop::quit);
    watcher.setFuture(future);
    if (!future.isFinished()) loop.exec(kWhileReading);
  }
  future.waitForFinished();
  return future.takeResult();
}

PhotoFileCheck AwaitWaiting(const QFuture<PhotoFileCheck> &future) {
  const CWaitCursor wait;
  return Await(future);
}

// The checked photo as a new entry, its metadata remembered first as a
// synchronous read remembers it. The entry keeps only its path: the grid
// draws thumbnails and the whole photo is decoded when something needs it,
// so opening hundreds holds none of them in memory.
bool AddChecked(CKorvelAppDoc *doc, const QString &path, PhotoFileCheck check) {
  if (!doc || !check.opens) return false;
  KeepOpenedMeta(path, std::move(check.kept));
  doc->AddPath(path, check.resolution, CDib());
  return true;
}

// Whether the whole photo could be held as a full read holds it at its
// peak: the picture, and for a photo to be turned upright its planes, the
// turned planes and the turned picture beside it. The blocks are asked for
// and given back untouched, which costs no more than mapping them.
//
// A scaled decode never needs this memory, and a photo that opened only to
// fail when it is first wanted would show as a blank. A photo too large for
// the machine is refused when it is opened, as it was when opening read it
// whole; one that fails later all the same (memory taken since, the file
// changed) is an empty picture to the work area, which saving, printing and
// sending refuse with their own messages.
bool RoomForWholePhoto(uint32_t width, uint32_t height, int orientation) {
  const size_t bytes = DibBlockBytes(width, height);
  HGLOBAL held[4] = {};
  const int blocks = orientation == 1 ? 1 : 4;
  bool room = true;
  for (int i = 0; i < blocks && room; ++i)
    room = (held[i] = GlobalAlloc(GMEM_MOVEABLE, bytes)) != nullptr;
  for (HGLOBAL block : held)
    if (block) GlobalFree(block);
  return room;
}

// The sizes of `thumbs` that have no current entry for `path`: an entry
// made by anyone before is never replaced.
std::vector<int> MissingThumbs(const QString &path, const OpenThumbs *thumbs) {
  std::vector<int> sizes;
  if (!thumbs || thumbs->cache.Holds(path)) return sizes;
  for (const int size : {ThumbCache::kNormal, ThumbCache::kLarge}) {
    if (size == ThumbCache::kLarge && !thumbs->large) continue;
    if (thumbs->cache.Lookup(path, size).isNull()) sizes.push_back(size);
  }
  return sizes;
}

// Each thumbnail of `sizes` MakeThumbnail would make from the camera's EXIF
// thumbnail or from `reduced`, stored with the mark of a passed check while
// the file is still as `checked` found it before the check. Camera photos
// mostly carry a thumbnail of their own, so their entries come from that,
// marked all the same, and their next opening reads only the header too.
void LeaveThumbs(const QString &path, const OpenThumbs &thumbs, const std::vector<int> &sizes,
                 const JpegThumb &reduced, const ThumbCache::Stamp &checked) {
  MetaThumbInfo info;
  (void)MetaReadThumbInfo(QFile::encodeName(path).constData(), &info);
  for (const int size : sizes) {
    const QImage thumb = ThumbFromJpegCheck(reduced, info, size);
    if (!thumb.isNull()) (void)thumbs.cache.StoreChecked(path, checked, size, thumb);
  }
}

// What the header found, with the metadata and the room a full read needs.
PhotoFileCheck Opens(const QString &path, const JpegCheck &jpeg) {
  PhotoFileCheck check{true, jpeg.resolution, ReadOpenedMeta(path)};
  if (!RoomForWholePhoto(jpeg.width, jpeg.height, check.kept.meta.orientation)) return {};
  return check;
}

// A file our own check passed, unchanged since (see PassedCheck), still
// reads to its last row: only its header is read again, for the picture's
// size and resolution and for the pixel limit, which is this machine's
// setting rather than the file's.
PhotoFileCheck CheckJpeg(const QString &path, const char *name, const OpenThumbs *thumbs) {
  JpegCheck jpeg{};
  if (thumbs && thumbs->cache.PassedCheck(path)) {
    if (JpegCheckHeader(name, &jpeg) != RasOk) return {};
    return Opens(path, jpeg);
  }
  const std::vector<int> sizes = MissingThumbs(path, thumbs);
  const ThumbCache::Stamp before = ThumbCache::StampOf(path);
  ReducedJpeg reduced;
  if (JpegCheckFile(name, &jpeg, sizes.empty() ? nullptr : &reduced.thumb) != RasOk) return {};
  PhotoFileCheck check = Opens(path, jpeg);
  if (check.opens && !sizes.empty()) LeaveThumbs(path, *thumbs, sizes, reduced.thumb, before);
  return check;
}

PhotoFileCheck ReadWhole(const QString &path) {
  PhotoFileRead read = ReadPhotoFileApart(path);
  if (!read.handle) return {};
  GlobalFree(read.handle);
  return {true, read.resolution, std::move(read.kept)};
}

}  // namespace

QString SaveTypeExtension(int index) {
  switch (index) {
    case 2:
      return QStringLiteral("bmp");
    case 3:
      return QStringLiteral("tif");
    default:
      return QStringLiteral("jpg");
  }
}

uint32_t FormatForExtension(const QString &extension) {
  const QString lower = extension.toLower();
  if (lower == QLatin1String("jpg")) return RasFormatJpeg;
  if (lower == QLatin1String("bmp")) return RasFormatBmp;
  if (lower == QLatin1String("tiff") || lower == QLatin1String("tif")) return RasFormatTiff;
  if (lower == QLatin1String("png")) return RasFormatPng;
  if (lower == QLatin1String("webp")) return RasFormatWebp;
  if (lower == QLatin1String("heic") || lower == QLatin1String("heif")) return RasFormatHeic;
  if (lower == QLatin1String("avif")) return RasFormatAvif;
  return RasFormatJpeg;
}

OpenThumbs OpenThumbsForScreen() {
  // Without a window system (tests, tools) there is no screen to ask.
  const QScreen *screen = qobject_cast<QGuiApplication *>(QCoreApplication::instance())
                              ? QGuiApplication::primaryScreen()
                              : nullptr;
  return {ThumbCache(), screen != nullptr && screen->devicePixelRatio() > 1.0};
}

PhotoFileCheck CheckPhotoFile(const QString &path, const OpenThumbs *thumbs) {
  const QByteArray name = QFile::encodeName(path);
  RasDesc desc{};
  if (RasGetInfo(name.constData(), &desc) != RasOk) return {};
  // A JPEG file's rows are its entropy-coded data, which a scaled decode
  // walks just as a full one does; other formats have no such shortcut.
  return desc.format == RasFormatJpeg ? CheckJpeg(path, name.constData(), thumbs) : ReadWhole(path);
}

// The photo is checked here, on the worker, although the entry only needs
// its path: a file whose header reads but whose rows do not is refused now,
// as before, rather than showing up empty later. The entry is a saved one and
// reads its file when the whole photo is wanted.
bool OpenPhotoFile(CKorvelAppDoc *doc, const QString &path) {
  if (!doc) return false;
  return AddChecked(doc, path, AwaitWaiting(StartCheck(path)));
}

OpenBatch OpenPhotoFiles(CKorvelAppDoc *doc, const QStringList &paths,
                         const OpenProgress &progress) {
  OpenBatch batch;
  const int total = static_cast<int>(paths.size());
  // The workers check the files after the one being added, so the window
  // never waits on a decode; results are taken in the order of the paths.
  std::deque<QFuture<PhotoFileCheck>> ahead;
  int started = 0;
  const auto startMore = [&] {
    while (started < total && static_cast<int>(ahead.size()) < kCheckedAhead)
      ahead.push_back(StartCheck(paths[started++]));
  };
  startMore();
  for (int i = 0; i < total; ++i) {
    PhotoFileCheck check = AwaitWaiting(ahead.front());
    ahead.pop_front();
    startMore();
    if (AddChecked(doc, paths[i], std::move(check)))
      ++batch.opened;
    else
      batch.failed.append(paths[i]);
    // Asked after the file rather than before it: the first one is always
    // opened, and a stop never throws away a photo already added. The ones
    // checked ahead were never shown, and go once their workers are done.
    if (progress && !progress(i + 1, total) && i + 1 < total) {
      batch.stopped = true;
      for (const QFuture<PhotoFileCheck> &left : ahead)
        (void)Await(left);
      break;
    }
  }
  return batch;
}

QStringList PhotosInFolder(const QString &folder) {
  QStringList photos;
  const QDir dir(folder);
  for (const QString &name : dir.entryList(QDir::Files, QDir::Name)) {
    const QString path = dir.filePath(name);
    RasDesc desc{};
    if (RasGetInfo(QFile::encodeName(path).constData(), &desc) == RasOk) photos.append(path);
  }
  return photos;
}

QStringList ExpandPhotoFolders(const QStringList &paths) {
  QStringList expanded;
  for (const QString &path : paths) {
    if (QFileInfo(path).isDir())
      expanded += PhotosInFolder(path);
    else
      expanded.append(path);
  }
  return expanded;
}

void ReportUnopened(const QStringList &paths) {
  for (const QString &path : paths)
    AfxMessageBox(QStringLiteral("Cannot open file ") + path);
}

bool OpenPhotoCommand(CKorvelAppDoc *doc, const OpenProgress &progress) {
  const QString folder = CKorvelAppDoc::DefaultPhotoFolder();
  const QString initial = QFileInfo::exists(folder) ? folder + QStringLiteral("/*.jpg") : QString();
  const KorvelPrompt::FilesAnswer answer =
      KorvelPrompt::Current().AskOpenFiles(kOpenFilter, initial);
  if (!answer.ok) return false;
  const OpenBatch batch = OpenPhotoFiles(doc, answer.paths, progress);
  ReportUnopened(batch.failed);
  return batch.opened > 0;
}

bool SavePhotoCommand(CKorvelAppDoc *doc) {
  const int index = doc->CurrentIndex();
  if (index == -1) {
    AfxMessageBox(QStringLiteral("Please select an image that you would like to save"));
    return false;
  }
  if (doc->Selection().size() > 1) {
    AfxMessageBox(QStringLiteral("Please select only one image that you would like to save"));
    return false;
  }
  const CDib image = doc->ImageAt(index);
  if (!image.Header()) {
    AfxMessageBox(QStringLiteral("Unable to save the image"));
    return false;
  }
  const KorvelPrompt::FileAnswer answer =
      KorvelPrompt::Current().AskSaveFile(kSaveFilter, doc->PathAt(index));
  if (!answer.ok) return false;

  QString path = answer.path;
  QString extension = ExtensionOf(path);
  if (extension.isEmpty()) extension = SaveTypeExtension(answer.filterIndex);
  // Anywhere in the path, folders included: "x.jpg.old/photo" keeps its name.
  if (!path.contains('.' + extension)) path += '.' + extension;
  // The new file stands for this entry's photo and takes its metadata.
  CarryKeptMeta(doc->PathAt(index), path);
  // After a failed write the entry stays as it was: marked saved, its edit
  // would be lost at close without a question.
  if (!SavePicture(FormatForExtension(extension), path, image, doc->ResolutionAt(index)))
    return false;
  doc->ReplaceImage(index, image, 0, path);
  return true;
}

bool SavePicture(uint32_t format, const QString &path, const CDib &picture, float resolution) {
  SaveFailure failure;
  Outcome outcome;
  {
    SaveScope scope(format);
    ReplacingFile out(Local(path));
    HandKeptMetaToEncoder(format, path, picture);
    failure = WriteRows(format, out, picture, resolution);
    if (!failure.sentence) {
      WriteKeptMeta(out.path().c_str(), path, picture);
      if (const int error = out.Commit()) failure = {kUnableToSave, error};
    }
    outcome = OutcomeOf(out);
  }
  // The quality is back and the wait cursor gone before the user is asked to
  // read the message.
  if (!failure.sentence) return true;
  AfxMessageBox(FailureText(failure, path, outcome));
  return false;
}

QString SaveNewPicture(uint32_t format, const std::function<QString()> &nextName,
                       const CDib &picture, float resolution) {
  QString name = nextName();
  SaveFailure failure;
  {
    SaveScope scope(format);
    ReplacingFile out(Local(name), ReplacingFile::kNew);
    HandKeptMetaToEncoder(format, name, picture);
    failure = WriteRows(format, out, picture, resolution);
    if (!failure.sentence) WriteKeptMeta(out.path().c_str(), name, picture);
    while (!failure.sentence) {
      const int error = out.CommitNew(Local(name));
      if (error == 0) break;
      const QString next = error == EEXIST ? nextName() : QString();
      if (next.isEmpty() || next == name) {
        failure = {kUnableToSave, error};
        break;
      }
      name = next;
    }
  }
  if (!failure.sentence) {
    AdoptKeptMeta(picture.Handle(), name);
    return name;
  }
  AfxMessageBox(FailureText(failure, name, Outcome::kNotCreated));
  return QString();
}

bool SaveBeforeClose(CKorvelAppDoc *doc) {
  KorvelPrompt &prompt = KorvelPrompt::Current();
  for (int i = 0; i < doc->Count(); ++i) {
    if (doc->UnsavedAt(i) != 1) continue;
    prompt.Beep();
    const QString name = doc->FileNameAt(i);
    const KorvelPrompt::SavePhotoAnswer answer = prompt.AskSavePhoto(name);
    if (answer.result != KorvelPrompt::IDOK) return false;
    if (answer.choice == QLatin1String("YES")) {
      // Everything after the first dot: "a.b.jpg" gives "b.jpg", which like
      // every unknown extension is written as JPEG.
      const qsizetype dot = name.indexOf('.');
      const QString extension = dot < 0 ? QStringLiteral("jpg") : name.mid(dot + 1);
      // A photo that could not be saved keeps the program open: closing now
      // would throw away the only copy of what the user asked to keep.
      if (!SavePicture(FormatForExtension(extension), doc->PathAt(i), doc->ImageAt(i),
                       doc->ResolutionAt(i)))
        return false;
    } else if (answer.choice == QLatin1String("NOTOALL")) {
      break;
    }
  }
  return true;
}
