// Rows of samples wider than 8 bits, interleaved in host order, to planes and
// back: the 16-bit counterpart of rowpack.h, for the PNG and HEIF modules.
#pragma once

#include <cstdint>

// `channels` is 1, 3 or 4.
void RasSplitRow16(const uint16_t *row, uint16_t *const *planes, uint32_t width, uint32_t channels);
void RasJoinRow16(uint16_t *row, const uint16_t *const *planes, uint32_t width, uint32_t channels);
