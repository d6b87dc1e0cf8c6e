// The JPEG format's process-wide settings.
#pragma once

enum : int {
  JpegOptQuality = 0,    // 0..100, default 75, baseline forced
  JpegOptDctMethod = 1,  // 0 accurate integer, 1 fast integer, 2 float
  JpegOptSmoothing = 2,  // 0..100
  JpegOptRestart = 3,    // restart marker every this many MCU rows, default 1
  JpegOptNoFancy = 4,    // 1 turns fancy upsampling off
};

// Both ignore an index above 4 and return 0 for it.
int JpegGetOption(int index, int *value);
[[nodiscard]] int JpegSetOption(int index, int value);
