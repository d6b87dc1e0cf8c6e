// Conversions between interleaved file rows (samples of a pixel side by side)
// and the scanline record's planes, for 8-bit samples. Every format that
// stores pixels interleaved uses these, so the fast paths live in one place.
// A format picks its routine once, at open; a file whose channel order differs
// from the planes' (BMP stores blue first) passes its plane pointers in file
// order.
#pragma once

#include <cstdint>

using RasSplitRowFn = void (*)(const uint8_t *row, uint8_t *const *planes, uint32_t width);
using RasJoinRowFn = void (*)(uint8_t *row, const uint8_t *const *planes, uint32_t width);

// For 1, 3 or 4 channels; `complement` turns every sample v into 255 - v on
// the way (CMYK JPEG files store their inks that way). Null for other counts.
RasSplitRowFn RasSplitRowFor(uint32_t channels, bool complement);
RasJoinRowFn RasJoinRowFor(uint32_t channels, bool complement);

// Rows of samples wider than 8 bits, interleaved in host order, to planes and
// back, for 1, 3 or 4 channels (the PNG and HEIF modules).
void RasSplitRow16(const uint16_t *row, uint16_t *const *planes, uint32_t width, uint32_t channels);
void RasJoinRow16(uint16_t *row, const uint16_t *const *planes, uint32_t width, uint32_t channels);
