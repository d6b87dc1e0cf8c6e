// The eighteen row routines and the choice among them.
#include "colorengine/rows.h"

#include "colorengine/tables.h"

namespace cc {

namespace {

// Entry i = i, built once.
template <class T, uint32_t N>
const T *Ramp() {
  static const struct Table {
    T entry[N];
    Table() {
      for (uint32_t i = 0; i < N; ++i)
        entry[i] = static_cast<T>(i);
    }
  } table;
  return table.entry;
}

}  // namespace

const uint16_t *IdentityCurve16() {
  return Ramp<uint16_t, 65536>();
}
const uint8_t *IdentityRamp8() {
  return Ramp<uint8_t, 256>();
}

namespace {

// The curve and one-input families as class templates, so that one table
// shape serves both.
template <class In, class Out, bool Coarse>
struct Curves {
  static constexpr RowRoutine row = CurveRow<In, Out, Coarse>;
};
template <class In, class Out, bool Coarse>
struct OneInput {
  static constexpr RowRoutine row = OneInputRow<In, Out, Coarse>;
};

// Indexed by [input size - 1][output size - 1][node size - 1]. The curve and
// one-input members differ by node size only with 16-bit in and out.
template <template <class, class, bool> class Family>
constexpr RowRoutine kCurveMembers[2][2][2] = {
    {{Family<uint8_t, uint8_t, false>::row, Family<uint8_t, uint8_t, false>::row},
     {Family<uint8_t, uint16_t, false>::row, Family<uint8_t, uint16_t, false>::row}},
    {{Family<uint16_t, uint8_t, false>::row, Family<uint16_t, uint8_t, false>::row},
     {Family<uint16_t, uint16_t, true>::row, Family<uint16_t, uint16_t, false>::row}}};

constexpr RowRoutine kInterpMembers[2][2][2] = {
    {{InterpRow<uint8_t, uint8_t, uint8_t>, InterpRow<uint16_t, uint8_t, uint8_t>},
     {InterpRow<uint8_t, uint8_t, uint16_t>, InterpRow<uint16_t, uint8_t, uint16_t>}},
    {{InterpRow<uint8_t, uint16_t, uint8_t>, InterpRow<uint16_t, uint16_t, uint8_t>},
     {InterpRow<uint8_t, uint16_t, uint16_t>, InterpRow<uint16_t, uint16_t, uint16_t>}}};

}  // namespace

RowRoutine PickRow(const CcTransformContext &c) {
  const int in = c.inSampleSize - 1, out = c.outSampleSize - 1, node = c.nodeSize - 1;
  if (c.gridFlag == 0) return kCurveMembers<Curves>[in][out][node];
  if (c.inChannels == 1) return kCurveMembers<OneInput>[in][out][node];
  return kInterpMembers[in][out][node];
}

}  // namespace cc
