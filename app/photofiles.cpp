// Photos in and out of the work area as files. The raster library does the
// reading and writing; the conversions of dibraster.h move the rows between
// its scanlines and the work area's pictures.
#include "app/photofiles.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <optional>

#include "app/dibraster.h"
#include "app/document.h"
#include "app/filedialog.h"
#include "app/prompt.h"
#include "app/waitcursor.h"
#include "raster/jpeg.h"
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

// Writes the picture and returns the sentence to show, or null when it was
// written. The raster file is closed on every path, the failed row write
// included: the half-written file is left on disk as it is, neither completed
// nor removed, but its handle is let go, since nothing would ever close it
// later and a long session would pile up open files.
const char *WriteRows(uint32_t format, const QString &path, const CDib &picture) {
  RasterFile file;
  if (RasSetDesc(&file.desc, format, picture.Width(), picture.Height(), 3, RasModelRgb, 1.0f) !=
      RasOk)
    return "Could not save image";
  if (RasOpen(QFile::encodeName(path).constData(), 'w', &file.desc) != RasOk)
    return "Could not open file to write";
  file.open = true;
  if (RasMakeSl(&file.sl, &file.desc) != RasOk) return "Could not make  header";
  file.frame = true;
  if (DibToScanlines(picture, &file.desc, &file.sl) != RasOk)
    return "Unable to save image. Please try again";
  // The last buffered rows reach the disk only now; a failure here loses
  // them just as a failed row write does.
  if (file.Close() != RasOk) return "Unable to save image. Please try again";
  return nullptr;
}

}  // namespace

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

bool OpenPhotoFile(CKorvelAppDoc *doc, const QString &path) {
  if (!doc) return false;
  const QByteArray name = QFile::encodeName(path);
  RasterFile file;
  if (RasGetInfo(name.constData(), &file.desc) != RasOk) return false;
  CWaitCursor wait;
  if (RasOpen(name.constData(), 'r', &file.desc) != RasOk) return false;
  file.open = true;
  if (RasMakeSl(&file.sl, &file.desc) != RasOk) return false;
  file.frame = true;
  int code = RasOk;
  HGLOBAL handle = DibFromScanlines(&file.desc, &file.sl, &code);
  if (!handle) return false;
  doc->AddImage(handle, 0, path);
  return true;
}

bool OpenPhotoCommand(CKorvelAppDoc *doc) {
  const QString folder = CKorvelAppDoc::DefaultPhotoFolder();
  const QString initial = QFileInfo::exists(folder) ? folder + QStringLiteral("/*.jpg") : QString();
  const KorvelPrompt::FileAnswer answer = KorvelPrompt::Current().AskOpenFile(kOpenFilter, initial);
  if (!answer.ok) return false;
  if (OpenPhotoFile(doc, answer.path)) return true;
  AfxMessageBox(QStringLiteral("Cannot open file ") + answer.path);
  return false;
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
  if (extension.isEmpty()) extension = DFileDialog::ExtensionForIndex(answer.filterIndex);
  // Anywhere in the path, folders included: "x.jpg.old/photo" keeps its name.
  if (!path.contains('.' + extension)) path += '.' + extension;
  (void)SavePicture(FormatForExtension(extension), path, image);
  // The entry counts as saved even when the write failed: the user has been
  // told, and the close question will not ask about it again.
  doc->ReplaceImage(index, image, 0, path);
  return true;
}

bool SavePicture(uint32_t format, const QString &path, const CDib &picture) {
  const char *failure = nullptr;
  {
    CWaitCursor wait;
    std::optional<JpegQualityHold> quality;
    if (format == RasFormatJpeg) quality.emplace(100);
    failure = WriteRows(format, path, picture);
  }
  // The quality is back and the wait cursor gone before the user is asked to
  // read the message.
  if (!failure) return true;
  AfxMessageBox(QString::fromLatin1(failure));
  return false;
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
      (void)SavePicture(FormatForExtension(extension), doc->PathAt(i), doc->ImageAt(i));
    } else if (answer.choice == QLatin1String("NOTOALL")) {
      break;
    }
  }
  return true;
}
