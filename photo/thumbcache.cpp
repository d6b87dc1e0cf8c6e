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
// The writer's quality 80 is zlib's compression level 1.
constexpr int kPngQuality = 80;
// Each program notes its own failures in a folder of its own under "fail".
constexpr char kFailFolder[] = "korvelapp";

QString FolderName(int size) {
  return size > ThumbCache::kNormal ? QStringLiteral("large") : QStringLiteral("normal");
}

QString MTimeOf(const QFileInfo &file) {
  return QString::number(file.lastModified().toSecsSinceEpoch());
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
  const QFileInfo file(path);
  if (!file.exists()) return {};
  // The reader's own text lookup splits keys at colons, so "Thumb::URI"
  // is read from the decoded image; an entry is a few kilobytes.
  QImageReader reader(entry, "png");
  QImage image;
  if (!reader.read(&image)) return {};
  if (image.text(kUriKey).toUtf8() != UriOf(path) || image.text(kMTimeKey) != MTimeOf(file))
    return {};
  return image;
}

QImage ThumbCache::Lookup(const QString &path, int size) const {
  return Current(EntryPath(path, size), path);
}

bool ThumbCache::WriteEntry(const QString &entry, const QFileInfo &file,
                            const QImage &image) const {
  const QString folder = QFileInfo(entry).path();
  if (!MakePrivateFolders(root_, folder)) return false;
  QImage tagged(image);
  tagged.setText(kUriKey, QString::fromLatin1(UriOf(file.filePath())));
  tagged.setText(kMTimeKey, MTimeOf(file));
  tagged.setText("Thumb::Size", QString::number(file.size()));
  tagged.setText("Software", "KorvelApp");
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
  const QFileInfo file(path);
  if (thumb.isNull() || !file.exists() || Holds(path)) return false;
  return WriteEntry(EntryPath(path, size), file, thumb);
}

QString ThumbCache::FailurePath(const QString &path) const {
  return root_ + QStringLiteral("/fail/") + kFailFolder + '/' + EntryName(path);
}

bool ThumbCache::Failed(const QString &path) const {
  return !Current(FailurePath(path), path).isNull();
}

bool ThumbCache::StoreFailure(const QString &path) const {
  const QFileInfo file(path);
  if (!file.exists() || Holds(path)) return false;
  // The note is the smallest PNG there is: only its tags are ever read.
  QImage dot(1, 1, QImage::Format_ARGB32);
  dot.fill(Qt::transparent);
  return WriteEntry(FailurePath(path), file, dot);
}
