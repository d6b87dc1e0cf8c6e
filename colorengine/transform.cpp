// Row application through a filled handle, one row or a whole picture.
#include "colorengine/apply.h"
#include "colorengine/cc.h"
#include "colorengine/rows.h"
#include "platform/workers.h"

namespace {

// Below this many pixels a part would not repay waking a thread.
constexpr uint64_t kPixelsPerPart = 1 << 16;

CcPixelRow RowAt(const CcPixelRow &first, ptrdiff_t rowStride, int64_t y) {
  CcPixelRow row = first;
  for (uint8_t *&channel : row.channel)
    if (channel) channel += rowStride * y;
  return row;
}

}  // namespace

int32_t CcApplySl(const CcTransform *transform, uint32_t pixelCount, const CcPixelRow *source,
                  uint32_t sourceStride, const CcPixelRow *destination,
                  uint32_t destinationStride) {
  if (!transform || !transform->context || !source || !destination) return CcErrArgument;
  const CcTransformContext &c = *transform->context;
  if (pixelCount == 0) return CcOk;
  return cc::PickRow(c)(&c, pixelCount, source, sourceStride, destination, destinationStride);
}

int32_t CcApplyRows(const CcTransform *transform, uint32_t pixelCount, uint32_t rows,
                    const CcPixelRow *source, uint32_t sourceStride, ptrdiff_t sourceRowStride,
                    const CcPixelRow *destination, uint32_t destinationStride,
                    ptrdiff_t destinationRowStride) {
  if (!transform || !transform->context || !source || !destination) return CcErrArgument;
  if (rows == 0 || pixelCount == 0) return CcOk;
  const CcTransformContext &c = *transform->context;
  const cc::RowRoutine routine = cc::PickRow(c);
  // A routine fails only on what the context holds, so the first row tells.
  const int32_t first =
      routine(&c, pixelCount, source, sourceStride, destination, destinationStride);
  if (first != CcOk) return first;
  const int64_t grain = static_cast<int64_t>(kPixelsPerPart / pixelCount + 1);
  SplitWork(rows - 1, grain, [&](int64_t y0, int64_t y1) {
    for (int64_t y = y0 + 1; y <= y1; ++y) {
      const CcPixelRow from = RowAt(*source, sourceRowStride, y);
      const CcPixelRow to = RowAt(*destination, destinationRowStride, y);
      (void)routine(&c, pixelCount, &from, sourceStride, &to, destinationStride);
    }
  });
  return CcOk;
}
