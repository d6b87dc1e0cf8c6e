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

QString FolderName(int size) {
  return size > ThumbCache::kNormal ? QStringLiteral("large") : QStringLiteral("normal");
}

QString MTimeOf(const QFileInfo &file) {
  return QString::number(file.lastModified().toSecsSinceEpoch());
}

// Makes `folder` and those above it up to `root` with mode 0700, as the
// cache's folders hold names of the user's files. One that exists is left as
// it is.
bool MakePrivateFolder(const QString &root, const QString &folder) {
  QDir parent = QFileInfo(root).dir();
  if (!parent.exists() && !parent.mkpath(QStringLiteral("."))) return false;
  for (const QString &dir : {root, folder}) {
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

QString ThumbCache::EntryPath(const QString &path, int size) const {
  const QByteArray md5 = QCryptographicHash::hash(UriOf(path), QCryptographicHash::Md5).toHex();
  return root_ + '/' + FolderName(size) + '/' + QString::fromLatin1(md5) + ".png";
}

bool ThumbCache::Holds(const QString &path) const {
  const QString absolute = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
  return absolute.startsWith(root_ + '/');
}

QImage ThumbCache::Lookup(const QString &path, int size) const {
  const QFileInfo file(path);
  if (!file.exists()) return {};
  // The reader's own text lookup splits keys at colons, so "Thumb::URI"
  // is read from the decoded image; an entry is a few kilobytes.
  QImageReader reader(EntryPath(path, size), "png");
  QImage thumb;
  if (!reader.read(&thumb)) return {};
  if (thumb.text(kUriKey).toUtf8() != UriOf(path) || thumb.text(kMTimeKey) != MTimeOf(file))
    return {};
  return thumb;
}

bool ThumbCache::Store(const QString &path, int size, const QImage &thumb) const {
  const QFileInfo file(path);
  if (thumb.isNull() || !file.exists() || Holds(path)) return false;
  const QString entry = EntryPath(path, size);
  const QString folder = QFileInfo(entry).path();
  if (!MakePrivateFolder(root_, folder)) return false;
  QImage tagged(thumb);
  tagged.setText(kUriKey, QString::fromLatin1(UriOf(path)));
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
