// The editor's quarter turn, which makes in one sweep both forms the editor
// keeps of its picture: the turned planes (what the display's reduction and
// the next tool read) and the packed block the work area, saving and undo
// hold. Doing both band by band, while a band's turned planes are still in
// the cache, saves reading the whole turned photo back a second time; and the
// storage of the picture the turn drops can be written over instead of
// asking the system for tens of megabytes of fresh pages.
#pragma once

#include <memory>

#include "photo/dib.h"
#include "photo/dibplanar.h"

struct TurnedPicture {
  CDib picture;  // byte for byte what DibFromPlanar makes of `planes`
  Planar planes;
};

// Turns `source` (three planes or more; the first three are the picture) a
// quarter right (`right`) or left, with RotateImage's bytes. `sparePicture`
// and `sparePlanes` may hold storage of a picture about to be dropped, which
// is written over when it is the right size (the picture's block only when
// nobody else holds it) and then taken, leaving the pointer null. The spare
// picture is otherwise left as it was; spare planes are only a copy of a
// picture and may be freed to make room. Returns false, with the source and
// the spare picture as they were, when memory runs out.
[[nodiscard]] bool TurnQuarter(const PlanarImage &source, bool right,
                               std::unique_ptr<CDib> &sparePicture, Planar &sparePlanes,
                               TurnedPicture *out);
