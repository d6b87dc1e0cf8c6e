// HEIF files (HEIC with HEVC pictures, AVIF with AV1 pictures): one module
// reads both, and the open says which a file is by its format code. Both are
// written when the installed libheif has an encoder for them; the quality
// follows the JPEG quality setting (JpegOptQuality).
#pragma once

// True when this build can write the format (RasFormatHeic or RasFormatAvif).
bool HeifCanWrite(unsigned format);
