// Photos in and out of the work area as files: opening one (probe, read,
// add), the save command with its file dialog, saving a picture in the format
// its extension names, and the "Save Photo" question asked at close for every
// unsaved photo. Failures are told to the user through KorvelPrompt; the
// callers repaint the views.
#pragma once

#include <QString>
#include <cstdint>
#include <functional>

#include "photo/dib.h"

class CKorvelAppDoc;

// The format code an extension (without the dot, any case) is saved as:
// "jpg" JPEG, "bmp" BMP, "tif"/"tiff" TIFF, "png" PNG, "webp" WebP, "heic"/"heif"
// HEIC, "avif" AVIF, anything else JPEG.
uint32_t FormatForExtension(const QString &extension);
// The extension a type of the save dialog stands for: 1 "jpg", 2 "bmp",
// 3 "tif"; any other index "jpg", the format every unknown name is saved in.
QString SaveTypeExtension(int index);

// Reads `path` into a new entry (unsaved flag 0). False, with nothing added
// and nothing shown, when no reader takes the file or memory runs out.
bool OpenPhotoFile(CKorvelAppDoc *doc, const QString &path);

// The open command: the file dialog, then OpenPhotoFile; a failure shows
// "Cannot open file " and the path. True when a photo was added.
bool OpenPhotoCommand(CKorvelAppDoc *doc);

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
