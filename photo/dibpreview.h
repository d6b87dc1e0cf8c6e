// What drawing derives from a photo's block: pixels decoded to 32-bit RGB, and
// scaled-down previews kept per block so that a grid of large photos repaints
// without touching their full pixels. A preview stays valid while the block's
// serial number (platform/movable.h) is unchanged.
#pragma once

#include <QImage>
#include <QRect>

#include "photo/dib.h"

// Decodes the picture's pixels inside `area` (picture coordinates, row 0 at
// the top) into an RGB32 image; null for a depth or compression that cannot
// be drawn, or a block too short for its header's claims.
QImage DibDecode(const CDib &dib, const QRect &area);

// The picture reduced by averaging `factor` x `factor` squares, edges
// averaging what they have; `factor` is at most kDibMaxReduction.
constexpr int kDibMaxReduction = 1024;
QImage DibReduce(const CDib &dib, int factor);

// The picture reduced by averaging `factor` x `factor` squares (edges average
// what they have), from the cache when the block is unchanged since it was
// made. Null when the picture cannot be drawn.
QImage DibPreview(const CDib &dib, int factor);

// Drops every preview of the block; called when a block is freed, since its
// handle may name another block later.
void DibForgetPreviews(HGLOBAL handle);
// Bytes the cache holds, for inspection.
size_t DibPreviewBytes();
