#include "skintable.h"

#include <vector>

#include "res/formcontrols.h"

namespace skingen {
namespace {

using P = Pictogram;

// What each skinned button of the form shows besides its place and bitmaps:
// its pictogram, and a label where the form's caption will not do. The zoom
// buttons' "+" and "-" are the marks inside their magnifier lens, which says
// more at this size than a lone sign would; 1023 and 1024 have no caption in
// the form and get a short name.
struct Decoration {
  int id;
  const char *label;  // null: the form's caption
  Pictogram pictogram;
};
constexpr Decoration kDecorations[] = {
    {1014, nullptr, P::kDownload},   {1015, nullptr, P::kSave},
    {1037, nullptr, P::kShare},      {1023, "Projects", P::kProjects},
    {1032, nullptr, P::kPrint},      {1017, nullptr, P::kDelete},
    {1033, nullptr, P::kThumbnails}, {1007, "", P::kZoomIn},
    {1008, "", P::kZoomOut},         {1011, nullptr, P::kCrop},
    {1024, "Color", P::kColor},      {1012, nullptr, P::kRotate},
    {1013, nullptr, P::kRedEye},     {1020, nullptr, P::kGlobe},
    {1049, nullptr, P::kEmail},      {1030, nullptr, P::kSky},
    {1025, nullptr, P::kFoliage},    {1006, nullptr, P::kRotateRight},
    {1031, nullptr, P::kRedEye},     {1010, nullptr, P::kCrop},
    {1029, nullptr, P::kSkin},       {1005, nullptr, P::kRotateLeft},
    {1026, nullptr, P::kNeutrals},   {1018, nullptr, P::kUndo},
    {1002, nullptr, P::kKeep},       {1003, nullptr, P::kClose},
};

std::vector<SkinnedControl> MakeTable() {
  std::vector<SkinnedControl> table;
  for (const Decoration &d : kDecorations) {
    for (int i = 0; i < kFormControlCount; ++i) {
      const FormControl &c = kFormControls[i];
      if (c.id != d.id) continue;
      table.push_back({c.id, d.label ? d.label : c.caption, d.pictogram, c.x, c.y, c.width,
                       c.height, c.skins[0], c.skins[1], c.skins[2], c.skins[3]});
    }
  }
  return table;
}

}  // namespace

std::span<const SkinnedControl> SkinnedControls() {
  static const std::vector<SkinnedControl> table = MakeTable();
  return table;
}

const SkinnedControl *FindControl(int id) {
  for (const SkinnedControl &control : SkinnedControls()) {
    if (control.id == id) return &control;
  }
  return nullptr;
}

}  // namespace skingen
