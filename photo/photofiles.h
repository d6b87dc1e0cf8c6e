// Photos in and out of the work area as files: opening one (probe, check,
// add), the save command with its file dialog, saving a picture in the format
// its extension names, and the "Save Photo" question asked at close for every
// unsaved photo. Failures are told to the user through KorvelPrompt; the
// callers repaint the views.
#pragma once

#include <QString>
#include <QStringList>
#include <cstdint>
#include <functional>

#include "photo/dib.h"
#include "photo/photometa.h"
#include "photo/thumbcache.h"

class CKorvelAppDoc;

// The format code an extension (without the dot, any case) is saved as:
// "jpg" JPEG, "bmp" BMP, "tif"/"tiff" TIFF, "png" PNG, "webp" WebP, "heic"/"heif"
// HEIC, "avif" AVIF, anything else JPEG.
uint32_t FormatForExtension(const QString &extension);
// The extension a type of the save dialog stands for: 1 "jpg", 2 "bmp",
// 3 "tif"; any other index "jpg", the format every unknown name is saved in.
QString SaveTypeExtension(int index);

// A photo file read as ReadPhotoFile reads it, but with nothing remembered,
// so that it can be read on any thread: the upright picture (null when no
// reader takes the file or memory runs out), its pixels per inch and the
// metadata that KeepOpenedMeta remembers once its entry is added.
struct PhotoFileRead {
  HGLOBAL handle = nullptr;
  float resolution = kUnknownResolution;
  KeptMeta kept;
};
PhotoFileRead ReadPhotoFileApart(const QString &path);

// What opening a photo file learns about it, on any thread, without keeping
// its pixels: whether it opens, its pixels per inch and the metadata that
// KeepOpenedMeta remembers once its entry is added.
struct PhotoFileCheck {
  bool opens = false;
  float resolution = kUnknownResolution;
  KeptMeta kept;
};
// Where the check of a JPEG file leaves the thumbnails its scaled decode
// gives on the way, so that the grid finds them in the cache instead of
// decoding the file again.
struct OpenThumbs {
  ThumbCache cache;
  bool large = false;  // the large size as well, which a dense screen's grid asks for
};
// The thumbnails opening leaves for the grid: in the user's cache, large ones
// too when the primary screen is dense. Ask on the window's thread.
OpenThumbs OpenThumbsForScreen();

// Refuses the files ReadPhotoFileApart refuses and learns the same of the
// others. A JPEG file is walked by a scaled decode instead of being read
// whole; any other is read whole and let go. Given `thumbs`, a JPEG that
// opens leaves in that cache the thumbnails MakeThumbnail would make of it
// from that decode, at each size with no current entry yet; those it would
// make otherwise (from the EXIF thumbnail, or at another reduction) are left
// to the thumbnailer.
PhotoFileCheck CheckPhotoFile(const QString &path, const OpenThumbs *thumbs = nullptr);

// Adds `path` as a new entry (unsaved flag 0) once CheckPhotoFile finds that
// it opens. False, with nothing added and nothing shown, when no reader takes
// the file or memory runs out. The file is checked on a worker thread;
// meanwhile the window's thread goes on painting and running timers, but
// takes no user input, so no command can start under the open.
bool OpenPhotoFile(CKorvelAppDoc *doc, const QString &path);

// Told after each file of a batch that `done` of `total` are handled. False
// asks to stop before the next one; the photos opened so far stay.
using OpenProgress = std::function<bool(int done, int total)>;

// What became of a batch of files.
struct OpenBatch {
  int opened = 0;
  QStringList failed;    // the paths that did not open, in order
  bool stopped = false;  // the progress asked to stop before the end
};

// Opens `paths` in order, each as OpenPhotoFile does; nothing is shown. Two
// workers check the next two files while the one before them is added.
OpenBatch OpenPhotoFiles(CKorvelAppDoc *doc, const QStringList &paths,
                         const OpenProgress &progress = {});

// The files directly in `folder` that a reader takes, sorted by name. Hidden
// files and subfolders are passed over; an unreadable folder gives none.
QStringList PhotosInFolder(const QString &folder);
// `paths` with every folder in it replaced by the photos in it.
QStringList ExpandPhotoFolders(const QStringList &paths);

// Shows "Cannot open file " and the path for each of `paths`.
void ReportUnopened(const QStringList &paths);

// The open command: the file dialog, which takes several files, then each
// opened in turn; a failure shows "Cannot open file " and the path. True when
// a photo was added.
bool OpenPhotoCommand(CKorvelAppDoc *doc, const OpenProgress &progress = {});

// The save command for the current entry (refusals, dialog, extension rules,
// save, entry marked saved). True when the entry was replaced; after a failed
// write it is left as it was, still unsaved if it was, so that the close
// question still offers to save it.
bool SavePhotoCommand(CKorvelAppDoc *doc);

// Writes `picture` to `path` as `format` (JPEG at quality 100, the library's
// setting put back afterwards) at `resolution` pixels per inch. The file is
// replaced only once the whole new one is on the disk: after any failure the
// file that was there is untouched. Every failure is shown. True on success.
bool SavePicture(uint32_t format, const QString &path, const CDib &picture,
                 float resolution = kUnknownResolution);

// Writes `picture` as a new file under the first name `nextName` offers that
// nothing stands at, not even a symbolic link, asking for another name when
// one turns out to be taken; it gives up on an empty name or the same name
// twice. Returns the name written, or an empty string after a failure, which
// has been shown.
QString SaveNewPicture(uint32_t format, const std::function<QString()> &nextName,
                       const CDib &picture, float resolution = kUnknownResolution);

// Asks about every unsaved entry and saves those answered "Yes" to their own
// paths, leaving the flags alone; false when the user cancelled the close or
// a save failed (the program then stays open with the photo).
bool SaveBeforeClose(CKorvelAppDoc *doc);
