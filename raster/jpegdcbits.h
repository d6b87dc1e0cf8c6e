// The entropy-coded data of a baseline JPEG scan as the DC-only decoder reads
// it: Huffman tables built the way the codec builds them (and refused where
// it refuses them), and a bit reader that undoes byte stuffing and stops at
// markers. Kept inline: they run once a coefficient, millions of times a
// photo.
#pragma once

#include <cstdint>
#include <cstring>

namespace jpegdc {

// Codes of up to this many bits, together with the magnitude bits after
// them when those fit as well, are read with one table look-up.
constexpr int kFastBits = 10;

// A fast-table entry: bits 0-4 how many bits it takes (the code, or the
// code and its magnitude bits when bit 5 says they are included), 8-11 the
// magnitude size, 12-15 the zero run, 16-31 the coefficient value when
// included. Zero: a code longer than kFastBits.
constexpr uint32_t kEntryComplete = 1u << 5;
inline int EntryBits(uint32_t e) {
  return static_cast<int>(e & 31u);
}
inline int EntrySize(uint32_t e) {
  return static_cast<int>((e >> 8) & 15u);
}
inline int EntryRun(uint32_t e) {
  return static_cast<int>((e >> 12) & 15u);
}
inline int EntryValue(uint32_t e) {
  return static_cast<int16_t>(e >> 16);
}

// The coefficient `size` magnitude bits `bits` stand for.
inline int Extend(uint32_t bits, int size) {
  if (size == 0) return 0;
  const int value = static_cast<int>(bits);
  return value < (1 << (size - 1)) ? value - (1 << size) + 1 : value;
}

// For passing over AC coefficients unread: several whole symbols (code and
// magnitude bits) at once from the next kSkipBits bits. An entry holds in
// bits 0-3 how many bits they take (0: not even the first fits), in 4-11
// how far they move along the block, and in bit 12 whether the last of
// them is the end of the block.
constexpr int kSkipBits = 12;
inline int SkipBits(uint16_t e) {
  return e & 15;
}
inline int SkipAdvance(uint16_t e) {
  return (e >> 4) & 255;
}
inline bool SkipEnds(uint16_t e) {
  return (e >> 12) != 0;
}

struct HuffTable {
  bool defined = false;
  uint32_t fast[1 << kFastBits];
  uint16_t skip[1 << kSkipBits];  // AC tables only
  int32_t maxcode[18];            // by code length, the largest code; -1 for none
  int32_t valoffset[18];          // by code length, symbol index minus code
  uint8_t values[256];
};

// Builds `table` from a DHT segment's 16 counts and `total` symbols. False
// for a table the codec refuses: more than 256 codes, codes that overflow
// their length or use the all-ones code, DC sizes over 15.
bool BuildHuffTable(const uint8_t counts[16], const uint8_t *symbols, int total, bool dc,
                    HuffTable *table);

class BitReader {
 public:
  BitReader(const uint8_t *data, const uint8_t *end) : p_(data), end_(end) {}

  // At least 57 bits in hand: the data's, then zeros once a marker or the
  // end of the data is reached (which Overran notices being used).
  void Fill() {
    while (count_ <= 56) {
      if (!stopped_ && end_ - p_ >= 8 && FillWord()) continue;
      uint64_t byte = 0;
      bool real = false;
      if (!stopped_ && p_ < end_) {
        if (*p_ != 0xFF) {
          byte = *p_++, real = true;
        } else if (p_ + 1 < end_ && p_[1] == 0) {
          byte = 0xFF, real = true;
          p_ += 2;
        } else {  // a marker: the scan's data ends here
          stopped_ = true;
        }
      }
      if (!real) fake_ += 8;
      buffer_ |= byte << (56 - count_);
      count_ += 8;
    }
  }
  // Enough bits for any one symbol with its magnitude bits (16 + 16).
  void Ensure() {
    if (count_ < 32) Fill();
  }
  uint32_t Peek(int n) const { return static_cast<uint32_t>(buffer_ >> (64 - n)); }
  void Drop(int n) {
    buffer_ <<= n;
    count_ -= n;
  }
  uint32_t Take(int n) {
    if (n == 0) return 0;
    const uint32_t bits = Peek(n);
    Drop(n);
    return bits;
  }
  // Whether bits past the end of the data were used: a damaged or cut
  // scan, which the codec reports.
  bool Overran() const { return count_ < fake_; }
  // Passes the restart marker RSTn, n = `number`, that must follow the
  // bits used so far (nothing but padding before it), and starts afresh.
  bool Restart(int number) { return PassMarker(0xD0 + number) && Reset(); }
  // Whether only padding and then the end-of-image marker follow.
  bool AtEnd() { return PassMarker(0xD9); }

 private:
  // Eight bytes at once when none of them is 0xFF.
  bool FillWord() {
    uint64_t word;
    std::memcpy(&word, p_, 8);
    word = __builtin_bswap64(word);
    const uint64_t inverted = ~word;
    if (((inverted - 0x0101010101010101ull) & word & 0x8080808080808080ull) != 0) return false;
    const int bytes = (64 - count_) / 8;
    const uint64_t taken = bytes == 8 ? word : word >> (64 - 8 * bytes) << (64 - 8 * bytes);
    buffer_ |= taken >> count_;
    count_ += 8 * bytes;
    p_ += bytes;
    return true;
  }
  bool PassMarker(int marker) {
    Fill();
    if (Overran() || !stopped_ || count_ - fake_ >= 8) return false;
    while (p_ < end_ && *p_ == 0xFF)
      ++p_;
    if (p_ >= end_ || *p_ != marker) return false;
    ++p_;
    return true;
  }
  bool Reset() {
    buffer_ = 0;
    count_ = fake_ = 0;
    stopped_ = false;
    return true;
  }

  const uint8_t *p_;
  const uint8_t *end_;
  uint64_t buffer_ = 0;  // the next bits, first at the top
  int64_t count_ = 0;    // bits in buffer_
  int64_t fake_ = 0;     // of them, the zeros made up at the end
  bool stopped_ = false;
};

}  // namespace jpegdc
