// Applying a transform to a whole picture at once: the rows are shared out
// among the worker threads (platform/workers.h) when the picture is large.
#pragma once

#include <cstddef>
#include <cstdint>

#include "colorengine/cc.h"

// Runs `rows` rows of `pixelCount` pixels through the transform, each as one
// CcApplySl call would: row y's channel k starts at source->channel[k] +
// y * sourceRowStride, and likewise on the destination side. The first row
// runs first and alone; its non-zero result (which every row would give,
// before writing anything) is returned at once. Otherwise 0.
[[nodiscard]] int32_t CcApplyRows(const CcTransform *transform, uint32_t pixelCount, uint32_t rows,
                                  const CcPixelRow *source, uint32_t sourceStride,
                                  ptrdiff_t sourceRowStride, const CcPixelRow *destination,
                                  uint32_t destinationStride, ptrdiff_t destinationRowStride);
