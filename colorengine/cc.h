// The colour correction engine: a transform handle filled from the user's
// colour-correction clicks, row application through per-channel curves or a
// grid of colour nodes with simplex interpolation, small float arrays for the
// colour arithmetic, and the builder that turns clicks into a transform.
// Plain procedural code: every call returns 0 or a small negative code.
#pragma once

#include <cstdint>

struct PlanarImage;

// Result codes.
enum : int32_t {
  CcOk = 0,
  CcErrArgument = -1,     // null handle or context, argument out of range, channel count
                          // that does not match its colour-space code
  CcErrUndescribed = -2,  // a grid axis (or a curve) used before it has been described
  CcErrMemory = -3,
  CcErrUnsupported = -9,  // a colour space, or a curve-only transform, the mode does not allow
};

// Colour-space codes the engine accepts, with the channel count each demands.
enum : int32_t {
  CcSpaceRgb = 1,   // 3 channels
  CcSpaceCmyk = 4,  // 4 channels
  CcSpaceGrey = 5,  // 1 channel
  CcSpaceLab = 7,   // 3 channels
  CcSpaceYcc = 8,   // 3 channels
};

struct CcTransformContext;

// The caller's handle: seven words copied from the context when the handle is
// filled, then the context itself, which is the only word the engine reads.
// On a 64-bit system the last "word" is a full pointer.
struct CcTransform {
  int32_t inChannels;
  int32_t outChannels;
  int32_t inSpace;
  int32_t outSpace;
  int32_t nodeSize;       // 1: 8-bit grid nodes, 2: 16-bit grid nodes
  int32_t inSampleSize;   // 1: 8-bit samples, 2: 16-bit samples
  int32_t outSampleSize;  // as inSampleSize
  CcTransformContext *context;
};

// Channel k's sample of the first pixel of a row; 16-bit samples are native
// uint16_t values. Entries beyond the transform's channel count are not read.
struct CcPixelRow {
  uint8_t *channel[4];
};

// One input channel: its grid axis, or for curve-only transforms its curve.
struct CcInputChannel {
  // Grid axis node count, or for curve-only transforms the size of the
  // curve's table; 1 while nothing has been described.
  int32_t nodeCount;
  int32_t low, high;  // input range, 0..255 or 0..65535 by default
  // Axis node positions. Curve-only and one-input transforms keep their 256
  // curve points here instead (16-bit scale, evenly spaced over the input).
  uint16_t nodes[256];
  int32_t stride;  // grid entries between neighbouring nodes of this axis
  // Curve-only and one-input transforms: the curve. Grid transforms with
  // 16-bit input: 65,536 interval indices, one byte each.
  void *table;
  // 8-bit input: grid offset of the interval holding each input value.
  // 16-bit input: grid offset of each interval index (stride x k).
  uint32_t offsets[256];
  uint16_t *fractions;  // 0..32768 per input value; 32768 means the upper node
};

struct CcOutputChannel {
  int32_t low, high;  // output range
  // 8-bit output: 256 bytes (and a guard entry). 16-bit output: 65,536 entries,
  // or null for the identity.
  void *curve;
};

struct CcTransformContext {
  int32_t mode;  // 0 and 1 allow only evenly spaced grids; 2 takes any positions
  int32_t inChannels, outChannels;
  int32_t inSpace, outSpace;
  int32_t gridFlag;  // 0: per-channel curves only, 1: through a grid
  int32_t nodeSize;
  int32_t inSampleSize, outSampleSize;
  // Scaling of an interpolated sum (fractions sum to 32768) back to an
  // output-curve index: (sum + rounding) >> shift.
  uint32_t shift, rounding;
  CcInputChannel in[4];
  CcOutputChannel out[4];
  void *grid;          // node values, axis 0 fastest, output channels side by side
  uint32_t gridNodes;  // nodes in the grid block, once it exists
};

// --- Transform handle and rows -------------------------------------------

[[nodiscard]] int32_t CcCreateContext(CcTransformContext **out, int32_t inChannels,
                                      int32_t outChannels, int32_t inSpace, int32_t outSpace,
                                      int32_t gridFlag, int32_t mode, int32_t nodeSize);
// Releases the context and its tables; null is accepted.
void CcFreeContext(CcTransformContext *context);
// side 0 = input, 1 = output; size 1 or 2. Resets that side to the full range
// and rebuilds every table that depends on it.
[[nodiscard]] int32_t CcSetSampleSize(CcTransformContext *context, int32_t side, int32_t size);
// The same through a handle, whose word 6 or 7 follows the change.
[[nodiscard]] int32_t CcSetTransformSampleSize(CcTransform *transform, int32_t side, int32_t size);
// Narrows one channel's range (side 0 input, 1 output) and rebuilds its tables.
[[nodiscard]] int32_t CcSetChannelRange(CcTransformContext *context, int32_t side, int32_t channel,
                                        int32_t low, int32_t high);
// Copies the context's description into the handle's first seven words.
void CcFillTransform(CcTransform *transform, CcTransformContext *context);

[[nodiscard]] int32_t CcApplySl(const CcTransform *transform, uint32_t pixelCount,
                                const CcPixelRow *source, uint32_t sourceStride,
                                const CcPixelRow *destination, uint32_t destinationStride);
[[nodiscard]] int32_t CcFreeTransform(CcTransform *transform);

// --- Grid axes, nodes and curves -----------------------------------------

[[nodiscard]] int32_t CcSetGridAxis(CcTransformContext *context, int32_t channel, int32_t nodeCount,
                                    const uint16_t *nodes);
// Stores the output values of node `index` (axis 0 fastest); values must fit
// the node size.
[[nodiscard]] int32_t CcSetGridNode(CcTransformContext *context, uint32_t index,
                                    const uint16_t *values);
// Curve-only transforms: channel's curve. One-input grids: channel 0's map
// from input to output-curve index. 256 points at 16-bit scale, evenly spaced
// over the input range; the tables for the sample sizes in force are made
// from them by linear interpolation.
[[nodiscard]] int32_t CcSetCurve(CcTransformContext *context, int32_t channel,
                                 const uint16_t points[256]);

// --- Arrays ----------------------------------------------------------------

// size^dimensions float cells, reachable by indexing once per axis.
struct CcArray {
  int32_t size;        // 1..6
  int32_t dimensions;  // 1..4
  void *data;          // float* for one dimension, float** for two, ...
};

CcArray *CcArrayCreate(int32_t size, int32_t dimensions);
int32_t CcArrayCellCount(const CcArray *array);
float *CcArrayCells(const CcArray *array);
[[nodiscard]] int32_t CcArrayCopy(const CcArray *from, CcArray *to);
// Inverse of a square matrix (two dimensions); non-zero when singular.
[[nodiscard]] int32_t CcArrayInvert(const CcArray *from, CcArray *to);
int32_t CcArrayFree(CcArray *array);

// --- Correction parameters and the builder ---------------------------------

enum : int32_t { CcMaxPoints = 50 };

enum : int32_t {
  CcKindUnclassified = -1,
  CcKindFoliage = 0,
  CcKindSkin = 1,
  CcKindSky = 2,
  CcKindNeutral = 3,
};

struct CcColorSpace {
  float gamma;
  float white[3];      // CIE XYZ
  float primaries[6];  // x, y of red, green, blue
};

// Chroma at L = 50, hue in degrees at L = 50, hue change per unit of L.
struct CcToolTarget {
  float chroma, hue, hueSlope;
};

struct CcPoint {
  int32_t kind;  // CcKind...; -1 until classified
  int32_t x, y;  // column and row in the photo
};

// The editing view allocates exactly 700 bytes for this record.
struct CcParams {
  CcColorSpace space;
  CcToolTarget targets[4];
  // flags[0]: neutral points set per-channel tone curves (else they only join
  // the matrix fit). flags[1]: a point is sampled as the mean of its 5 x 5
  // neighbourhood (else the one pixel).
  uint8_t flags[2];
  float bias;  // brightness, 0.5 = no change
  int32_t pointCount;
  CcPoint points[CcMaxPoints];
};
static_assert(sizeof(CcParams) == 700, "the editing view allocates 700 bytes");

int32_t CcInitParams(CcParams *params);
int32_t CcInitColorSpace(CcColorSpace *block);
int32_t CcGetToolTarget(int32_t tool, CcToolTarget *target);
// White point (CIE XYZ, Y = 1) of daylight at a colour temperature in kelvin,
// clamped into 4000..25000 K.
int32_t CcWhiteFromTemperature(double kelvin, float xyz[3]);

// Fits a transform to the clicks in `params` on the photo `imageDesc` and
// fills `transform`. Writes the kinds it determines back into `params`.
[[nodiscard]] int32_t CcBuildTransform(CcParams *params, const PlanarImage *imageDesc,
                                       CcTransform *transform);
