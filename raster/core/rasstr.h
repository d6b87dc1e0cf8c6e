// The library's own string, memory and formatting helpers, and its
// pseudo-random generator. The library does not use the runtime's routines
// for these, so that text fields in file headers are written and parsed the
// same way everywhere, quirks included.
#pragma once

#include <cstddef>
#include <cstdint>

char *RasStrCpy(char *dst, const char *src);
char *RasStrNCpy(char *dst, const char *src, size_t n);  // pads the rest with zeros
char *RasStrCat(char *dst, const char *src);
// Writes at most n bytes; if the last byte written is not a terminator it is
// overwritten with one.
char *RasStrNCat(char *dst, const char *src, size_t n);
int RasStrCmp(const char *a, const char *b);  // -1000 when either is null
int RasStrNCmp(const char *a, const char *b, size_t n);
char *RasStrChr(const char *s, int c);
char *RasStrRChr(const char *s, int c);
size_t RasStrLen(const char *s);
// Tokenizer with one remembered position, like the standard one.
char *RasStrTok(char *s, const char *delimiters);
void *RasMemCpy(void *dst, const void *src, size_t n);
void *RasMemSet(void *dst, int value, size_t n);

// Formatting: literal text, %c, %s, %d, %ld, %x, %X (width and '0' flag) and
// %f (six decimals, no width). Returns the number of conversions made.
int RasSprintf(char *buffer, const char *format, ...);
// Reading: %c, %d, %ld, %f (into a float) and %s. Returns the conversions made.
int RasSscanf(const char *input, const char *format, ...);

// Park-Miller minimal standard generator (16807, 2^31 - 1, Schrage's method).
void RasRandomSeed(int32_t seed);
int32_t RasRandom();
// XORs the low byte of each successive value into `count` bytes of `buffer`.
void RasRandomXor(uint8_t *buffer, size_t count);
