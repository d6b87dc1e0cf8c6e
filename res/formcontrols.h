// Form 101's controls: place and size in dialog units, caption, kind and the
// skin bitmaps (up, down, focus, disabled; 0 where there is none).
#pragma once

enum class FormKind { Skinned, OwnerDrawn, Push, Combo, Group };

struct FormControl {
  int id;
  const char *caption;
  int x, y, width, height;  // dialog units
  FormKind kind;
  int skins[4];
  bool hiddenAtStart;
};

extern const FormControl kFormControls[];
extern const int kFormControlCount;

// Dialog units of the form's font to pixels.
constexpr int DluToPixelsX(int dlu) {
  return dlu * 6 / 4;
}
constexpr int DluToPixelsY(int dlu) {
  return dlu * 13 / 8;
}

// The buttons each mode switch hides before showing its own.
extern const int kGroupA[7];
extern const int kGroupB[11];
