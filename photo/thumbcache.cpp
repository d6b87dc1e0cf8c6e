#include "photo/thumbcache.h"

#include <sys/stat.h>

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QImageWriter>
#include <QStandardPaths>
#include <QTemporaryFile>
#include <QUrl>
#include <cstdio>

namespace {

constexpr char kUriKey[] = "Thumb::URI";
constexpr char kMTimeKey[] = "Thumb::MTime";
constexpr char kSizeKey[] = "Thumb::Size";
// Our own key, in our own namespace with the X- of an extension, as the
// shared cache lets each program add what it needs; others ignore it.
constexpr char kCheckedKey[] = "X-KorvelApp::OpenCheck";
constexpr char kCheckedValue[] = "passed";
// The writer's quality 80 is zlib's compression level 1.
constexpr int kPngQuality = 80;
// Each program notes its own failures in a folder of its own under "fail".
constexpr char kFailFolder[] = "korvelapp";

QString FolderName(int size) {
  return size > ThumbCache::kNormal ? QStringLiteral("large") : QStringLiteral("normal");
}

QString MTimeOf(const ThumbCache::Stamp &file) {
  return QString::number(file.modified.toSecsSinceEpoch());
}

// Makes `folder` and those between it and `root`, `root` too, with mode
// 0700, as the cache's folders hold names of the user's files. Those that
// exist are left as they are.
bool MakePrivateFolders(const QString &root, const QString &folder) {
  QDir parent = QFileInfo(root).dir();
  if (!parent.exists() && !parent.mkpath(QStringLiteral("."))) return false;
  QStringList chain{folder};
  for (QString dir = QFileInfo(folder).path(); dir.startsWith(root) && dir != chain.front();
       dir = QFileInfo(dir).path())
    chain.prepend(dir);
  for (const QString &dir : chain) {
    const QByteArray name = QFile::encodeName(dir);
    if (::mkdir(name.constData(), 0700) != 0 && !QFileInfo(dir).isDir()) return false;
  }
  return true;
}

}  // namespace

ThumbCache::ThumbCache(QString root) : root_(QDir::cleanPath(QFileInfo(root).absoluteFilePath())) {}

QString ThumbCache::DefaultRoot() {
  // QStandardPaths' cache location carries the program's name; the shared
  // thumbnail cache sits beside it under XDG_CACHE_HOME itself.
  QString base = qEnvironmentVariable("XDG_CACHE_HOME");
  if (base.isEmpty() || QDir::isRelativePath(base)) base = QDir::homePath() + "/.cache";
  return base + "/thumbnails";
}

QByteArray ThumbCache::UriOf(const QString &path) {
  return QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toEncoded();
}

ThumbCache::Stamp ThumbCache::StampOf(const QString &path) {
  const QFileInfo file(path);
  if (!file.exists()) return {};
  return {file.size(), file.lastModified()};
}

int ThumbCache::FlavourFor(int pixels) {
  return pixels <= kNormal ? kNormal : kLarge;
}

// An entry's file name: the MD5 of the photo's URI, in hexadecimal.
QString ThumbCache::EntryName(const QString &path) {
  const QByteArray md5 = QCryptographicHash::hash(UriOf(path), QCryptographicHash::Md5).toHex();
  return QString::fromLatin1(md5) + QStringLiteral(".png");
}

QString ThumbCache::EntryPath(const QString &path, int size) const {
  return root_ + '/' + FolderName(size) + '/' + EntryName(path);
}

bool ThumbCache::Holds(const QString &path) const {
  const QString absolute = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
  return absolute.startsWith(root_ + '/');
}

QImage ThumbCache::Current(const QString &entry, const QString &path) {
  const Stamp file = StampOf(path);
  if (file.size < 0) return {};
  // The reader's own text lookup splits keys at colons, so "Thumb::URI"
  // is read from the decoded image; an entry is a few kilobytes.
  QImageReader reader(entry, "png");
  QImage image;
  if (!reader.read(&image)) return {};
  if (image.text(kUriKey).toUtf8() != UriOf(path) || image.text(kMTimeKey) != MTimeOf(file))
    return {};
  // The size is optional; an entry that records one must match it too.
  const QString size = image.text(kSizeKey);
  if (!size.isEmpty() && size != QString::number(file.size)) return {};
  return image;
}

QImage ThumbCache::Lookup(const QString &path, int size) const {
  return Current(EntryPath(path, size), path);
}

bool ThumbCache::WriteEntry(const QString &entry, const QString &path, const Stamp &file,
                            const QImage &image, bool checked) const {
  const QString folder = QFileInfo(entry).path();
  if (!MakePrivateFolders(root_, folder)) return false;
  // The same pixels with no text: the keys are this file's alone, never
  // carried over from an entry the image was read from (a mark included).
  QImage tagged(image.constBits(), image.width(), image.height(), image.bytesPerLine(),
                image.format());
  tagged.setColorTable(image.colorTable());
  tagged.setText(kUriKey, QString::fromLatin1(UriOf(path)));
  tagged.setText(kMTimeKey, MTimeOf(file));
  tagged.setText(kSizeKey, QString::number(file.size));
  tagged.setText("Software", "KorvelApp");
  if (checked) tagged.setText(kCheckedKey, kCheckedValue);
  // A temporary file is made mode 0600, which the entry keeps once renamed.
  QTemporaryFile temp(folder + "/korvel-XXXXXX.png");
  if (!temp.open()) return false;
  QImageWriter writer(&temp, "png");
  // zlib's fastest level: a fifth of the default's time for a file a quarter
  // larger, and the entry is written while the grid waits for the next one.
  writer.setQuality(kPngQuality);
  if (!writer.write(tagged) || !temp.flush()) return false;
  temp.close();
  const QByteArray from = QFile::encodeName(temp.fileName());
  if (std::rename(from.constData(), QFile::encodeName(entry).constData()) != 0) return false;
  temp.setAutoRemove(false);
  return true;
}

bool ThumbCache::Store(const QString &path, int size, const QImage &thumb) const {
  const Stamp file = StampOf(path);
  if (thumb.isNull() || file.size < 0 || Holds(path)) return false;
  return WriteEntry(EntryPath(path, size), path, file, thumb);
}

bool ThumbCache::StoreChecked(const QString &path, const Stamp &checked, int size,
                              const QImage &thumb) const {
  if (thumb.isNull() || checked.size < 0 || Holds(path) || StampOf(path) != checked) return false;
  return WriteEntry(EntryPath(path, size), path, checked, thumb, true);
}

// A passed check proves the file's data reads to the last row, which only
// a change of its bytes can undo. Such a change moves the modification time
// to the second, unless it falls within the second of the check (a copy
// still being written, a tool that puts the time back), where the size
// tells most apart: a file cut short or grown is never the file checked.
// Entries of other programs, or of our own thumbnailer, say nothing of the
// data past what they decoded (an EXIF thumbnail, a scan of a progressive
// file), so only our mark counts.
bool ThumbCache::PassedCheck(const QString &path) const {
  const QImage entry = Lookup(path, kNormal);
  if (entry.isNull() || entry.text(kCheckedKey) != QLatin1String(kCheckedValue)) return false;
  return entry.text(kSizeKey) == QString::number(StampOf(path).size);
}

QString ThumbCache::FailurePath(const QString &path) const {
  return root_ + QStringLiteral("/fail/") + kFailFolder + '/' + EntryName(path);
}

bool ThumbCache::Failed(const QString &path) const {
  return !Current(FailurePath(path), path).isNull();
}

bool ThumbCache::StoreFailure(const QString &path) const {
  const Stamp file = StampOf(path);
  if (file.size < 0 || Holds(path)) return false;
  // The note is the smallest PNG there is: only its tags are ever read.
  QImage dot(1, 1, QImage::Format_ARGB32);
  dot.fill(Qt::transparent);
  return WriteEntry(FailurePath(path), path, file, dot);
}
