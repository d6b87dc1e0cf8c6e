// The editor's quarter turn, written into the storage of the picture the
// turn drops when it has the right size: asking the system for tens of
// megabytes of fresh pages costs more than the turn itself.
#pragma once

#include "photo/dibplanar.h"

// Turns `source` (three planes or more; the first three are the picture) a
// quarter right (`right`) or left, with RotateImage's bytes. `spare`, planes
// of a picture about to be dropped, is written over and taken (left null)
// when it is one block of exactly as many samples; otherwise it is left as
// it was and new planes are made. Null when memory runs out.
[[nodiscard]] Planar TurnQuarter(const PlanarImage &source, bool right, Planar &spare);
