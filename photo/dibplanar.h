// The editing view's two conversions: the current picture into three 8-bit
// planes R, G, B (top row first) for the pixel routines and the colour
// engine, and a routine's planar result back into a new 24-bit bottom-up
// picture block.
#pragma once

#include <QImage>
#include <QRect>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "photo/dib.h"
#include "pixels/pixels.h"

// An owned planar image, freed with its planes.
struct PlanarDeleter {
  void operator()(PlanarImage *image) const { PlanarFree(image); }
};
using Planar = std::unique_ptr<PlanarImage, PlanarDeleter>;

// A new three-plane image in the view's layout (one block, planes one after
// another), or null for an empty picture or when memory runs out. Pictures of
// depths other than 24 bits are decoded as they are drawn.
PlanarImage *PlanarFromDib(const CDib &dib);
// The same for the pixels inside `area` (picture coordinates, row 0 at the
// top), which must lie inside the picture; null otherwise.
PlanarImage *PlanarFromDib(const CDib &dib, const QRect &area);

// The first three planes as a 32-bit RGB image for drawing; a null image for
// a planar image without three planes.
QImage ImageFromPlanar(const PlanarImage *image);

// Bytes the view reserves for a w x h result: 40 + w*h*3 + extra, where
// extra = (w / 1024 + 1) * pad * 1024 with pad the row padding. The extra is
// reckoned from the width; a picture with more rows than that covers gets
// the padding of every row.
size_t DibPlanarBlockBytes(uint32_t width, uint32_t height);

// A new block holding the planes as a packed DIB (header, then rows bottom
// first, B, G, R, zero padding), or null when either allocation fails. Only
// the first three planes are read.
HGLOBAL DibFromPlanar(const PlanarImage *image);
