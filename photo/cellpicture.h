// The small picture a thumbnail-grid cell shows of a photo. The work area
// keeps one for every photo whose only copy leaves memory for a spill file,
// so that the grid draws it without reading the photo back: it holds exactly
// what CDib::Draw would draw from in the cell, so either way the cell shows
// the same pixels. The cell's geometry lives here, below the grid and the
// work area, because both need it.
#pragma once

#include <QImage>
#include <QRect>
#include <QSize>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "photo/dib.h"

class QPainter;

// A grid cell is this many logical pixels square.
inline constexpr int kGridCell = 100;

// Where a picture of `w` x `h` goes in `cell`: fitted and centred (see
// cellpicture.cpp for the fitting rule).
QRect CellPictureRect(const QRect &cell, uint32_t w, uint32_t h);

// The whole step CDib::Draw reduces a picture of `w` x `h` by before drawing
// it over a non-empty `target` (logical pixels) on a device of `ratio` device
// pixels to the logical one: the largest that keeps the picture at least as
// large as the device pixels it covers, and at least 1.
int DrawReduction(uint32_t w, uint32_t h, QSize target, qreal ratio);

struct CellPicture {
  QImage image;        // null when the fitted picture covers no pixel at all
  uint32_t width = 0;  // the photo's own size, which places the picture
  uint32_t height = 0;
};

// A 3:2 photo's picture takes about 26 KB at ratio 1; a reduced picture never
// passes 1.5 cells a side (90 KB). Only a photo less than twice the cell, kept
// whole, can exceed this; such a photo is cheap to read back instead.
inline constexpr size_t kCellPictureMostBytes = size_t{96} << 10;

// The grid's highest device pixel ratio: that of the densest screen.
qreal CellPictureRatio();

// What a cell on a device of `ratio` shows of `dib`. Nothing when the
// picture cannot be drawn or would take more than kCellPictureMostBytes
// times the square of `ratio`.
std::optional<CellPicture> MakeCellPicture(const CDib &dib, qreal ratio);

// Draws `picture` over its place in `cell` as CDib::Draw draws the photo
// there: a reduction smoothly, an enlargement showing its pixels.
void DrawCellPicture(QPainter &painter, const CellPicture &picture, const QRect &cell);
