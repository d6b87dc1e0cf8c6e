// Row application through a filled handle.
#include "colorengine/cc.h"
#include "colorengine/rows.h"

int32_t CcApplySl(const CcTransform *transform, uint32_t pixelCount, const CcPixelRow *source,
                  uint32_t sourceStride, const CcPixelRow *destination,
                  uint32_t destinationStride) {
  if (!transform || !transform->context || !source || !destination) return CcErrArgument;
  const CcTransformContext &c = *transform->context;
  if (pixelCount == 0) return CcOk;
  return cc::PickRow(c)(&c, pixelCount, source, sourceStride, destination, destinationStride);
}
