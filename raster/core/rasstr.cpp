// The library's own string, memory and formatting helpers, and the
// Park-Miller generator. Nothing here calls the runtime's string or printf
// family, so header text reads and writes the same on every platform.
//
// Null arguments: the copy, concatenate, search and memory helpers do nothing
// (and return their first argument, or null for the searches, 0 for the
// length) when handed a null pointer; only the comparisons report it, with
// -1000, which no byte difference can produce.
#include "raster/core/rasstr.h"

#include <cmath>
#include <cstdarg>
#include <limits>

#include "raster/core/rasdesc.h"
#include "raster/core/raserror.h"

namespace {

// ---------------------------------------------------------------------------
// Small character helpers.

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

bool IsDelimiter(char c, const char *delimiters) {
  if (delimiters == nullptr) return false;
  for (const char *d = delimiters; *d != '\0'; ++d) {
    if (*d == c) return true;
  }
  return false;
}

// The tokenizer's one remembered position (null once a string is used up).
char *g_tokenNext = nullptr;

// ---------------------------------------------------------------------------
// Formatting.

// A width this large already overruns any buffer the library formats into;
// the cap only keeps a runaway format from overflowing the counter.
constexpr int kMaxWidth = 1 << 20;

struct Field {
  int width = 0;
  bool zero = false;  // '0' flag
};

class Out {
 public:
  explicit Out(char *p) : p_(p) {}
  void Put(char c) { *p_++ = c; }
  void Put(const char *s) {
    while (*s != '\0')
      Put(*s++);
  }
  void Repeat(char c, int n) {
    for (; n > 0; --n)
      Put(c);
  }
  void Finish() { *p_ = '\0'; }

 private:
  char *p_;
};

// Digits of `value` in `base`, least significant first; returns their count.
// 64 binary digits is the longest a uint64_t gives.
int ReversedDigits(uint64_t value, unsigned base, bool upper, char (&rev)[64]) {
  const char *set = upper ? "0123456789ABCDEF" : "0123456789abcdef";
  int n = 0;
  do {
    rev[n++] = set[value % base];
    value /= base;
  } while (value != 0);
  return n;
}

void PutReversed(Out &out, const char *rev, int n) {
  while (n > 0)
    out.Put(rev[--n]);
}

// %d and %ld. With the '0' flag the sign always leads the zeros. Without it,
// %d puts the sign after the padding spaces ("  -42") while %ld puts it
// before them ("-  42"); the %ld layout is an old quirk that header writers
// depend on, so both are kept.
void WriteDecimal(Out &out, bool negative, uint64_t magnitude, Field field, bool signFirst) {
  char rev[64];
  const int n = ReversedDigits(magnitude, 10, false, rev);
  const int pad = field.width - n - (negative ? 1 : 0);
  const bool signLeads = field.zero || signFirst;
  if (negative && signLeads) out.Put('-');
  out.Repeat(field.zero ? '0' : ' ', pad);
  if (negative && !signLeads) out.Put('-');
  PutReversed(out, rev, n);
}

template <typename T>
void WriteSigned(Out &out, T value, Field field, bool signFirst) {
  // Negate in unsigned arithmetic so that the most negative value is exact.
  const bool negative = value < 0;
  const uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(static_cast<int64_t>(value))
                                      : static_cast<uint64_t>(value);
  WriteDecimal(out, negative, magnitude, field, signFirst);
}

void WriteHex(Out &out, unsigned value, Field field, bool upper) {
  char rev[64];
  const int n = ReversedDigits(value, 16, upper, rev);
  out.Repeat(field.zero ? '0' : ' ', field.width - n);
  PutReversed(out, rev, n);
}

// Integer part of a finite, non-negative double.
void WriteWhole(Out &out, double whole) {
  constexpr double kTwoTo64 = 18446744073709551616.0;
  if (whole < kTwoTo64) {
    char rev[64];
    PutReversed(out, rev, ReversedDigits(static_cast<uint64_t>(whole), 10, false, rev));
    return;
  }
  // Beyond 64 bits the digits come from repeated division; the value has no
  // fraction this large and the trailing digits are as good as the double.
  char rev[320];
  int n = 0;
  while (whole >= 1.0 && n < static_cast<int>(sizeof rev)) {
    const double digit = std::fmod(whole, 10.0);
    rev[n++] = static_cast<char>('0' + static_cast<int>(digit));
    whole = std::floor((whole - digit) / 10.0);
  }
  PutReversed(out, rev, n);
}

// %f: always six decimals, no width. The fraction is rounded by adding half a
// millionth and only its six low digits are kept, so a carry out of the
// fraction is dropped rather than added to the integer part: 1.9999999 prints
// "1.000000". Header readers of files written that way expect exactly this.
// A negative value prints '-' and then its magnitude the same way (so
// -1.9999999 gives "-1.000000" and -0.0000001 gives "-0.000000"); -0.0 prints
// without a sign. Infinities print "inf" / "-inf" and NaN prints "nan".
void WriteFixed(Out &out, double value) {
  if (std::isnan(value)) {
    out.Put("nan");
    return;
  }
  const bool negative = value < 0.0;
  const double magnitude = negative ? -value : value;
  if (negative) out.Put('-');
  if (std::isinf(magnitude)) {
    out.Put("inf");
    return;
  }
  const double whole = std::floor(magnitude);
  const double fraction = magnitude - whole;
  const auto millionths = static_cast<uint32_t>(fraction * 1000000.0 + 0.5) % 1000000u;
  WriteWhole(out, whole);
  out.Put('.');
  char rev[64];
  const int n = ReversedDigits(millionths, 10, false, rev);
  out.Repeat('0', 6 - n);
  PutReversed(out, rev, n);
}

// Handles the conversion whose letter is at `f` (the flag and width already
// read); returns where the format continues.
//
// "%l" followed by anything but 'd' writes nothing and takes no argument;
// the character after the 'l' is dropped with it, unless it ends the format.
// After a width (or the '0' flag) only d, l, x and X are conversions: any
// other character there is dropped, with no output and no argument taken.
const char *Convert(Out &out, const char *f, Field field, bool hasWidth, va_list *args,
                    int &count) {
  switch (*f) {
    case 'd':
      WriteSigned(out, va_arg(*args, int), field, false);
      ++count;
      return f + 1;
    case 'l':
      if (f[1] == 'd') {
        WriteSigned(out, va_arg(*args, long), field, true);
        ++count;
        return f + 2;
      }
      return f[1] != '\0' ? f + 2 : f + 1;
    case 'x':
    case 'X':
      WriteHex(out, va_arg(*args, unsigned), field, *f == 'X');
      ++count;
      return f + 1;
    default:
      break;
  }
  if (*f == '\0') return f;
  if (hasWidth) return f + 1;
  switch (*f) {
    case 'c':
      out.Put(static_cast<char>(va_arg(*args, int)));
      ++count;
      break;
    case 's': {
      // A null string writes nothing but still counts as the conversion.
      const char *s = va_arg(*args, const char *);
      if (s != nullptr) out.Put(s);
      ++count;
      break;
    }
    case 'f':
      WriteFixed(out, va_arg(*args, double));
      ++count;
      break;
    default:
      out.Put(*f);  // "%%" gives '%', "%q" gives 'q'
      break;
  }
  return f + 1;
}

// ---------------------------------------------------------------------------
// Reading.

enum class Scan { kNone, kChar, kInt, kLong, kFloat, kString };

// Classifies the conversion after a '%' at f[-1]; `f` moves past it. The
// reader has no widths or flags: any other character after '%' (a digit,
// '%', "%l" without 'd' and its next character) is passed over with no
// conversion and no argument taken.
Scan Classify(const char *&f) {
  const char c = *f;
  if (c == '\0') return Scan::kNone;
  ++f;
  switch (c) {
    case 'c':
      return Scan::kChar;
    case 'd':
      return Scan::kInt;
    case 'f':
      return Scan::kFloat;
    case 's':
      return Scan::kString;
    case 'l':
      if (*f == 'd') {
        ++f;
        return Scan::kLong;
      }
      if (*f != '\0') ++f;
      return Scan::kNone;
    default:
      return Scan::kNone;
  }
}

const char *SkipSpace(const char *in) {
  while (IsSpace(*in))
    ++in;
  return in;
}

// A number ends at white space, the end, or any other character; that
// character is not consumed, so it is what the next conversion sees (after
// its own white-space skip). Fields such as "0.1000 2.5" read naturally, "12x"
// read with "%d%c" gives 12 and 'x', and a separator other than white space
// must be passed over with a %c, since literal format text is not matched.
// The reader has no field widths, so a fixed-width field that runs straight
// into more digits has to be copied into its own terminated buffer first.
//
// A number with no digit at all ("-", ".", "x") is not a conversion: nothing
// is stored and the reading stops there.

struct Integer {
  bool negative = false;
  uint64_t magnitude = 0;     // saturates at 2^63
  const char *end = nullptr;  // null when there was no digit
};

Integer ScanInteger(const char *in) {
  constexpr uint64_t kCap = uint64_t{1} << 63;
  Integer r;
  if (*in == '-') {
    r.negative = true;
    ++in;
  }
  const char *digits = in;
  for (; IsDigit(*in); ++in) {
    const auto d = static_cast<uint64_t>(*in - '0');
    r.magnitude = r.magnitude > (kCap - d) / 10 ? kCap : r.magnitude * 10 + d;
  }
  if (in != digits) r.end = in;
  return r;
}

// Out-of-range numbers clamp to the type's limits rather than wrapping, so a
// header with an absurd field reads as an absurd, rejectable value.
template <typename T>
T Clamp(const Integer &n) {
  using Lim = std::numeric_limits<T>;
  const uint64_t maxMagnitude = static_cast<uint64_t>(Lim::max());
  if (!n.negative) return n.magnitude > maxMagnitude ? Lim::max() : static_cast<T>(n.magnitude);
  if (n.magnitude > maxMagnitude) return Lim::min();
  return static_cast<T>(-static_cast<T>(n.magnitude));
}

// %f: an optional '-', digits and at most one '.'; the digits after the point
// are divided out by the power of ten they span. Fraction digits past the
// eighteenth cannot change a float and are consumed without being counted,
// which keeps the divisor finite. Values beyond the float range become
// infinities.
const char *ScanFloat(const char *in, float &value) {
  constexpr int kFractionDigits = 18;
  const bool negative = *in == '-';
  if (negative) ++in;
  double whole = 0.0, fraction = 0.0, divisor = 1.0;
  int fractionDigits = 0;
  bool digits = false, point = false;
  for (;; ++in) {
    if (IsDigit(*in)) {
      digits = true;
      const int d = *in - '0';
      if (!point) {
        whole = whole * 10.0 + d;
      } else if (fractionDigits < kFractionDigits) {
        fraction = fraction * 10.0 + d;
        divisor *= 10.0;
        ++fractionDigits;
      }
    } else if (*in == '.' && !point) {
      point = true;
    } else {
      break;
    }
  }
  if (!digits) return nullptr;
  const double magnitude = whole + fraction / divisor;
  const float result = magnitude > std::numeric_limits<float>::max()
                           ? std::numeric_limits<float>::infinity()
                           : static_cast<float>(magnitude);
  value = negative ? -result : result;
  return in;
}

// Performs one conversion at `in` (not at the end, white space skipped);
// returns the new input position, or null when the conversion failed. A
// null destination consumes the input without storing.
const char *ScanOne(Scan kind, const char *in, va_list *args) {
  switch (kind) {
    case Scan::kChar: {
      char *dst = va_arg(*args, char *);
      if (dst != nullptr) *dst = *in;
      return in + 1;
    }
    case Scan::kInt:
    case Scan::kLong: {
      const Integer n = ScanInteger(in);
      if (kind == Scan::kInt) {
        int *dst = va_arg(*args, int *);
        if (n.end != nullptr && dst != nullptr) *dst = Clamp<int>(n);
      } else {
        long *dst = va_arg(*args, long *);
        if (n.end != nullptr && dst != nullptr) *dst = Clamp<long>(n);
      }
      return n.end;
    }
    case Scan::kFloat: {
      float *dst = va_arg(*args, float *);
      float value = 0.0f;
      const char *end = ScanFloat(in, value);
      if (end != nullptr && dst != nullptr) *dst = value;
      return end;
    }
    case Scan::kString: {
      char *dst = va_arg(*args, char *);
      for (; *in != '\0' && !IsSpace(*in); ++in) {
        if (dst != nullptr) *dst++ = *in;
      }
      if (dst != nullptr) *dst = '\0';
      return in;
    }
    case Scan::kNone:
      break;
  }
  return nullptr;
}

// ---------------------------------------------------------------------------
// Park-Miller minimal standard generator.

constexpr int32_t kModulus = 2147483647;  // 2^31 - 1
constexpr int32_t kMultiplier = 16807;
constexpr int32_t kQuotient = 127773;  // kModulus / kMultiplier
constexpr int32_t kRemainder = 2836;   // kModulus % kMultiplier

int32_t g_randomState = 1;

}  // namespace

// ---------------------------------------------------------------------------
// Strings and memory.

char *RasStrCpy(char *dst, const char *src) {
  if (dst == nullptr || src == nullptr) return dst;
  char *d = dst;
  while ((*d++ = *src++) != '\0') {
  }
  return dst;
}

char *RasStrNCpy(char *dst, const char *src, size_t n) {
  if (dst == nullptr || src == nullptr) return dst;
  size_t i = 0;
  for (; i < n && src[i] != '\0'; ++i)
    dst[i] = src[i];
  for (; i < n; ++i)
    dst[i] = '\0';
  return dst;
}

char *RasStrCat(char *dst, const char *src) {
  if (dst == nullptr || src == nullptr) return dst;
  RasStrCpy(dst + RasStrLen(dst), src);
  return dst;
}

// Unlike the runtime's bounded concatenate, at most n bytes are written in
// all, the terminator included: a source that does not fit loses its last
// copied character to the terminator.
char *RasStrNCat(char *dst, const char *src, size_t n) {
  if (dst == nullptr || src == nullptr || n == 0) return dst;
  char *d = dst + RasStrLen(dst);
  size_t i = 0;
  for (; i < n; ++i) {
    d[i] = src[i];
    if (src[i] == '\0') return dst;
  }
  d[i - 1] = '\0';
  return dst;
}

int RasStrCmp(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return RasErrNullString;
  while (*a != '\0' && *a == *b) {
    ++a;
    ++b;
  }
  return static_cast<unsigned char>(*a) - static_cast<unsigned char>(*b);
}

int RasStrNCmp(const char *a, const char *b, size_t n) {
  if (a == nullptr || b == nullptr) return RasErrNullString;
  for (size_t i = 0; i < n; ++i) {
    const int diff = static_cast<unsigned char>(a[i]) - static_cast<unsigned char>(b[i]);
    if (diff != 0 || a[i] == '\0') return diff;
  }
  return 0;
}

// Searching for the terminator finds it, as with the runtime's routines.
char *RasStrChr(const char *s, int c) {
  if (s == nullptr) return nullptr;
  const char ch = static_cast<char>(c);
  for (;; ++s) {
    if (*s == ch) return const_cast<char *>(s);
    if (*s == '\0') return nullptr;
  }
}

char *RasStrRChr(const char *s, int c) {
  if (s == nullptr) return nullptr;
  const char ch = static_cast<char>(c);
  const char *found = nullptr;
  for (;; ++s) {
    if (*s == ch) found = s;
    if (*s == '\0') return const_cast<char *>(found);
  }
}

size_t RasStrLen(const char *s) {
  if (s == nullptr) return 0;
  size_t n = 0;
  while (s[n] != '\0')
    ++n;
  return n;
}

// A null delimiter set counts as empty: the rest of the string is one token.
char *RasStrTok(char *s, const char *delimiters) {
  char *p = s != nullptr ? s : g_tokenNext;
  if (p == nullptr) return nullptr;
  while (*p != '\0' && IsDelimiter(*p, delimiters))
    ++p;
  if (*p == '\0') {
    g_tokenNext = nullptr;
    return nullptr;
  }
  char *token = p;
  while (*p != '\0' && !IsDelimiter(*p, delimiters))
    ++p;
  if (*p != '\0') {
    *p = '\0';
    g_tokenNext = p + 1;
  } else {
    g_tokenNext = nullptr;
  }
  return token;
}

void *RasMemCpy(void *dst, const void *src, size_t n) {
  if (dst == nullptr || src == nullptr) return dst;
  auto *d = static_cast<unsigned char *>(dst);
  const auto *s = static_cast<const unsigned char *>(src);
  for (size_t i = 0; i < n; ++i)
    d[i] = s[i];
  return dst;
}

void *RasMemSet(void *dst, int value, size_t n) {
  if (dst == nullptr) return dst;
  auto *d = static_cast<unsigned char *>(dst);
  const auto byte = static_cast<unsigned char>(value);
  for (size_t i = 0; i < n; ++i)
    d[i] = byte;
  return dst;
}

// ---------------------------------------------------------------------------
// Formatting and reading.

int RasSprintf(char *buffer, const char *format, ...) {
  if (buffer == nullptr) return 0;
  Out out(buffer);
  int count = 0;
  va_list args;
  va_start(args, format);
  const char *f = format != nullptr ? format : "";
  while (*f != '\0') {
    if (*f != '%') {
      out.Put(*f++);
      continue;
    }
    ++f;
    Field field;
    bool hasWidth = false;
    if (*f == '0') {
      field.zero = true;
      hasWidth = true;
      ++f;
    }
    for (; IsDigit(*f); ++f) {
      field.width = field.width >= kMaxWidth ? kMaxWidth : field.width * 10 + (*f - '0');
      hasWidth = true;
    }
    f = Convert(out, f, field, hasWidth, &args, count);
  }
  va_end(args);
  out.Finish();
  return count;
}

int RasSscanf(const char *input, const char *format, ...) {
  if (input == nullptr || format == nullptr) return 0;
  int count = 0;
  va_list args;
  va_start(args, format);
  const char *in = input;
  const char *f = format;
  while (*f != '\0') {
    if (*f++ != '%') continue;  // literal format text is not matched
    const Scan kind = Classify(f);
    if (kind == Scan::kNone) continue;
    in = SkipSpace(in);
    if (*in == '\0') break;
    in = ScanOne(kind, in, &args);
    if (in == nullptr) break;
    ++count;
  }
  va_end(args);
  return count;
}

// ---------------------------------------------------------------------------
// Generator.

// Any seed is reduced into 1 .. 2^31 - 2, the generator's cycle. 0 (and its
// multiples of the modulus) would lock the generator at 0 for ever, so it is
// taken as 1, the seed the generator starts from when never seeded: seeds
// 0 and 1 give the same sequence. Negative seeds are brought into range by
// adding the modulus.
void RasRandomSeed(int32_t seed) {
  int32_t s = seed % kModulus;
  if (s < 0) s += kModulus;
  g_randomState = s == 0 ? 1 : s;
}

// Schrage's method: 16807 x state mod 2^31 - 1 without a 64-bit product.
int32_t RasRandom() {
  const int32_t hi = g_randomState / kQuotient;
  const int32_t lo = g_randomState % kQuotient;
  int32_t next = kMultiplier * lo - kRemainder * hi;
  if (next <= 0) next += kModulus;
  g_randomState = next;
  return next;
}

void RasRandomXor(uint8_t *buffer, size_t count) {
  if (buffer == nullptr) return;
  for (size_t i = 0; i < count; ++i) {
    buffer[i] ^= static_cast<uint8_t>(RasRandom() & 0xFF);
  }
}
