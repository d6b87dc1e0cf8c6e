// The thumbnails of photos kept on disk where every desktop program looks for
// them: $XDG_CACHE_HOME/thumbnails (~/.cache/thumbnails when unset), a
// folder for each size ("normal" up to 128 pixels, "large" up to 256), one
// PNG a photo named by the MD5 of the photo's file URI. Each PNG says which
// file it shows (Thumb::URI) and that file's modification time
// (Thumb::MTime), so a thumbnail of a file changed since is recognised as
// stale and made again; the file's size (Thumb::Size), when an entry
// records it, must match as well. A photo no thumbnail could be made of is noted under
// "fail/korvelapp" the same way, so it is not tried again until it changes.
// Lookups and stores may run on several threads.
#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QFileInfo>
#include <QImage>
#include <QString>

class ThumbCache {
 public:
  // What an entry records of its file: the size and modification time it
  // had when StampOf looked. A missing file's size is -1.
  struct Stamp {
    qint64 size = -1;
    QDateTime modified;
    bool operator==(const Stamp &) const = default;
  };
  static Stamp StampOf(const QString &path);

  // The two sizes the cache keeps, as the longer side in pixels.
  static constexpr int kNormal = 128;
  static constexpr int kLarge = 256;

  // A cache under `root` (the folder holding "normal" and "large").
  explicit ThumbCache(QString root = DefaultRoot());

  static QString DefaultRoot();
  // The file URI of `path` made absolute, percent-encoded.
  static QByteArray UriOf(const QString &path);
  // The smallest size the cache keeps that holds `pixels`: kNormal up to
  // 128, else kLarge.
  static int FlavourFor(int pixels);

  const QString &Root() const { return root_; }
  // Where the thumbnail of `path` at `size` (kNormal or kLarge) lives.
  QString EntryPath(const QString &path, int size) const;
  // True for files inside the cache: their thumbnails are never stored, or
  // showing the cache folder would feed it with thumbnails of thumbnails.
  bool Holds(const QString &path) const;

  // The stored thumbnail of `path`, or a null image when there is none, it
  // is stale (the file's modification time or name differ from those it
  // records) or it cannot be read.
  QImage Lookup(const QString &path, int size) const;
  // Stores `thumb` as the thumbnail of `path`: written to a private
  // temporary file in the entry's folder and renamed over the entry, so a
  // reader never sees half a file. Folders are made readable by the user
  // only, as are the files. False when `path` is inside the cache, its file
  // cannot be seen, or the entry could not be written.
  bool Store(const QString &path, int size, const QImage &thumb) const;

  // Stores `thumb` as Store does, marked as made by a check of the file that
  // walked all its data without fault. `checked` is the file's stamp taken
  // before that check began; nothing is stored when the file differs from
  // it now, as the check then saw other bytes than those the entry would
  // describe. The mark is a key of our own beside the standard ones, which
  // other programs ignore.
  bool StoreChecked(const QString &path, const Stamp &checked, int size, const QImage &thumb) const;
  // True when the normal entry of `path` is current, carries the mark of
  // StoreChecked and records the size the file has now.
  bool PassedCheck(const QString &path) const;

  // Where the note that no thumbnail of `path` could be made lives.
  QString FailurePath(const QString &path) const;
  // True when such a note exists for `path` as it is now (same URI and
  // modification time).
  bool Failed(const QString &path) const;
  // Notes that no thumbnail of `path` could be made; written as Store writes.
  bool StoreFailure(const QString &path) const;

 private:
  // `image`, tagged with the URI of `path` and the size and modification
  // time of `file`, marked when `checked`, written privately to `entry`
  // and renamed into place.
  bool WriteEntry(const QString &entry, const QString &path, const Stamp &file, const QImage &image,
                  bool checked = false) const;
  // The stored PNG at `entry` when it describes `path` as it is now.
  static QImage Current(const QString &entry, const QString &path);
  static QString EntryName(const QString &path);

  QString root_;
};
