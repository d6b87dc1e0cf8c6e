// Photos in and out of the work area as files: opening one (probe, read,
// add), the save command with its file dialog, saving a picture in the format
// its extension names, and the "Save Photo" question asked at close for every
// unsaved photo. Failures are told to the user through KorvelPrompt; the
// callers repaint the views.
#pragma once

#include <QString>
#include <cstdint>

#include "app/dib.h"

class CKorvelAppDoc;

// The format code an extension (without the dot, any case) is saved as:
// "jpg" JPEG, "bmp" BMP, "tif"/"tiff" TIFF, "png" PNG, "webp" WebP, "heic"/"heif"
// HEIC, "avif" AVIF, anything else JPEG.
uint32_t FormatForExtension(const QString &extension);

// Reads `path` into a new entry (unsaved flag 0). False, with nothing added
// and nothing shown, when no reader takes the file or memory runs out.
bool OpenPhotoFile(CKorvelAppDoc *doc, const QString &path);

// The open command: the file dialog, then OpenPhotoFile; a failure shows
// "Cannot open file " and the path. True when a photo was added.
bool OpenPhotoCommand(CKorvelAppDoc *doc);

// The save command for the current entry (refusals, dialog, extension rules,
// save, entry marked saved). True when the entry was replaced, which it is
// even when the write itself failed.
bool SavePhotoCommand(CKorvelAppDoc *doc);

// Writes `picture` to `path` as `format` (JPEG at quality 100, the library's
// setting put back afterwards); every failure is shown. True on success.
bool SavePicture(uint32_t format, const QString &path, const CDib &picture);

// Asks about every unsaved entry and saves those answered "Yes" to their own
// paths, leaving the flags alone; false when the user cancelled the close.
bool SaveBeforeClose(CKorvelAppDoc *doc);
