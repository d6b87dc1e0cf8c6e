// Orientation and metadata of the photos in the work area. A photo is turned
// upright by its file's orientation tag once, as it enters (open, drop,
// command line, camera download), and its file's metadata is remembered
// under the entry's path, so a save writes upright pixels with Orientation 1
// and the EXIF, XMP, IPTC and colour profile the photo came with (JPEG and
// TIFF; BMP has no place for them).
#pragma once

#include <QByteArray>
#include <QString>
#include <cstdint>

#include "meta/meta.h"
#include "photo/dib.h"

// What the work area knows about one entry's metadata.
struct KeptMeta {
  PhotoMeta meta;
  QString source;              // the file it was read from
  int appliedOrientation = 1;  // the tag the pixels were turned by on entry
};

// An opened photo's metadata in two halves, so that photos can be read off
// the window's thread. The first, safe on any thread, reads the metadata of
// the file at `path` into `*kept` and returns `handle` turned upright (the
// block it replaces is freed; null when memory ran out while turning). The
// second, on the window's thread, remembers `kept` for the entry of `path`
// once the entry is there.
HGLOBAL UprightOpenedPhoto(HGLOBAL handle, const QString &path, KeptMeta *kept);
// The first half without pixels: what UprightOpenedPhoto puts in `*kept`,
// for an entry that is opened by its path and turned when it is decoded.
KeptMeta ReadOpenedMeta(const QString &path);
void KeepOpenedMeta(const QString &path, KeptMeta kept);
// `handle` turned upright by the orientation in the file bytes it was read
// from (a camera's picture or its preview); null when memory ran out.
HGLOBAL UprightReceivedPhoto(HGLOBAL handle, const QByteArray &bytes);
// A downloaded photo's metadata waits under its block until AdoptKeptMeta
// names its entry; downloads arrive one at a time, so only the latest waits.
HGLOBAL KeepReceivedMeta(HGLOBAL handle, const QByteArray &bytes);
void AdoptKeptMeta(HGLOBAL handle, const QString &path);

// The metadata remembered for the entry named `path`, or waiting under
// `handle`; null when there is none.
const KeptMeta *KeptMetaFor(const QString &path, HGLOBAL handle = nullptr);
// The entry at `from` is being saved as `to`: `to` now stands for the same
// photo (and for nothing else that was saved there before).
void CarryKeptMeta(const QString &from, const QString &to);

// A copy of the entry at `from` is about to be written as `to` to leave the
// machine (an e-mail attachment): `to` takes the entry's metadata, without
// the GPS position and serial numbers when `withoutPrivate`.
void ShareKeptMeta(const QString &from, const QString &to, bool withoutPrivate);
// Whether photos leave the machine without position and serial numbers: the
// setting privacy/stripLocation, on unless the user turned it off.
bool StripPrivateOnShare();

// Hands the metadata remembered for `path` (or the picture's block) to the
// encoder of a `format` that places it itself (HEIC, AVIF); before the file
// holding `picture` is opened for writing.
void HandKeptMetaToEncoder(uint32_t format, const QString &path, const CDib &picture);

// Writes the metadata remembered for `path` (or the picture's block) into
// the finished, not yet renamed, file `file` holding `picture`. A file whose
// metadata cannot be written keeps its pixels: the user's edit matters more
// than the tags, and the source file still has them.
void WriteKeptMeta(const char *file, const QString &path, const CDib &picture);
