#include "raster/jpegdcbits.h"

#include <algorithm>

namespace jpegdc {

namespace {

// The fast-table entries of one symbol whose code is `code`, `length` bits.
void FillFast(HuffTable *table, uint32_t code, int length, uint8_t symbol) {
  const int size = symbol & 15, run = symbol >> 4;
  const int spare = kFastBits - length;
  const uint32_t first = code << spare;
  for (uint32_t low = 0; low < (1u << spare); ++low) {
    uint32_t entry = static_cast<uint32_t>(length) | static_cast<uint32_t>(size) << 8 |
                     static_cast<uint32_t>(run) << 12;
    if (length + size <= kFastBits) {
      const uint32_t bits = (low >> (spare - size)) & ((1u << size) - 1);
      entry = static_cast<uint32_t>(length + size) | kEntryComplete |
              static_cast<uint32_t>(size) << 8 | static_cast<uint32_t>(run) << 12 |
              static_cast<uint32_t>(static_cast<uint16_t>(Extend(bits, size))) << 16;
    }
    table->fast[first | low] = entry;
  }
}

// The symbol the canonical code at the top of `bits` (`available` bits of
// it valid) stands for, and the code's length; false when none is that short.
bool CodeAt(const HuffTable &table, uint32_t bits, int available, uint8_t *symbol, int *length) {
  for (int l = 1; l <= available; ++l) {
    const int32_t code = static_cast<int32_t>(bits >> (32 - l));
    if (table.maxcode[l] >= 0 && code <= table.maxcode[l]) {
      *symbol = table.values[(code + table.valoffset[l]) & 255];
      *length = l;
      return true;
    }
  }
  return false;
}

// The skip entry for the kSkipBits bits `index`: whole symbols while they
// fit and the block has room, stopping after the end-of-block symbol.
uint16_t SkipEntry(const HuffTable &table, uint32_t index) {
  int used = 0, advance = 0;
  bool ends = false;
  while (!ends && advance <= 63) {
    const uint32_t bits = index << (32 - kSkipBits) << used;
    uint8_t symbol;
    int length;
    if (!CodeAt(table, bits, kSkipBits - used, &symbol, &length)) break;
    const int size = symbol & 15, run = symbol >> 4;
    if (used + length + size > kSkipBits) break;
    used += length + size;
    if (size != 0) {
      advance += run + 1;
    } else if (run == 15) {
      advance += 16;
    } else {
      ends = true;
    }
  }
  return static_cast<uint16_t>(used | std::min(advance, 255) << 4 | (ends ? 1 << 12 : 0));
}

}  // namespace

bool BuildHuffTable(const uint8_t counts[16], const uint8_t *symbols, int total, bool dc,
                    HuffTable *table) {
  if (total > 256) return false;
  uint8_t sizes[257];
  uint32_t codes[256];
  int n = 0;
  for (int length = 1; length <= 16; ++length)
    for (int i = 0; i < counts[length - 1]; ++i) {
      if (n >= total) return false;
      sizes[n++] = static_cast<uint8_t>(length);
    }
  sizes[n] = 0;
  // Canonical codes, refused as the codec refuses them: a length whose codes
  // reach its all-ones code.
  uint32_t code = 0;
  int length = n > 0 ? sizes[0] : 0;
  for (int p = 0; sizes[p] != 0;) {
    while (sizes[p] == length)
      codes[p++] = code++;
    if (code >= (1u << length)) return false;
    code <<= 1;
    ++length;
  }
  std::memset(table->fast, 0, sizeof(table->fast));
  for (int p = 0, l = 1; l <= 16; ++l) {
    if (counts[l - 1] == 0) {
      table->maxcode[l] = -1;
      continue;
    }
    table->valoffset[l] = p - static_cast<int32_t>(codes[p]);
    p += counts[l - 1];
    table->maxcode[l] = static_cast<int32_t>(codes[p - 1]);
  }
  table->maxcode[17] = 0xFFFFF;
  table->valoffset[17] = 0;
  std::memcpy(table->values, symbols, static_cast<size_t>(n));
  for (int p = 0; p < n; ++p) {
    if (dc && symbols[p] > 15) return false;
    if (sizes[p] <= kFastBits) FillFast(table, codes[p], sizes[p], symbols[p]);
  }
  if (!dc)
    for (uint32_t index = 0; index < (1u << kSkipBits); ++index)
      table->skip[index] = SkipEntry(*table, index);
  table->defined = true;
  return true;
}

}  // namespace jpegdc
