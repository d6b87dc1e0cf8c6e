#include "skintable.h"

namespace skingen {
namespace {

using P = Pictogram;

// The zoom buttons' captions "+" and "-" are the marks inside their magnifier lens,
// which says more at this size than a lone sign would.
constexpr SkinnedControl kControls[] = {
    {1014, "DownLoad Images", P::kDownload, 30, 0, 57, 23, 221, 219, 220, 270},
    {1015, "Save Image", P::kSave, 98, 0, 57, 23, 247, 245, 246, 0},
    {1037, "Share Photos", P::kShare, 167, 0, 57, 23, 301, 299, 300, 298},
    {1023, "Projects", P::kProjects, 234, 0, 57, 23, 348, 346, 347, 345},
    {1032, "Print", P::kPrint, 304, 0, 57, 23, 256, 254, 255, 0},
    {1017, "Delete Image", P::kDelete, 370, 0, 57, 23, 259, 257, 258, 0},
    {1033, "ThumbNails", P::kThumbnails, 370, 0, 57, 23, 265, 263, 264, 0},
    {1007, "", P::kZoomIn, 41, 314, 32, 26, 227, 225, 226, 0},
    {1008, "", P::kZoomOut, 87, 314, 32, 26, 224, 222, 223, 0},
    {1011, "Crop", P::kCrop, 183, 314, 32, 26, 203, 201, 202, 0},
    {1024, "Color", P::kColor, 235, 314, 32, 26, 200, 198, 199, 0},
    {1012, "Rotate", P::kRotate, 285, 314, 32, 26, 238, 236, 237, 0},
    {1013, "Red Eye", P::kRedEye, 334, 314, 32, 26, 235, 231, 234, 0},
    {1020, "Go to Korvel Online", P::kGlobe, 412, 310, 57, 23, 230, 228, 229, 0},
    {1049, "Email", P::kEmail, 487, 314, 35, 21, 344, 342, 343, 0},
    {1030, "Sky", P::kSky, 463, 50, 49, 15, 218, 216, 217, 217},
    {1025, "Foliage", P::kFoliage, 459, 99, 49, 15, 209, 207, 208, 208},
    {1006, "Rotate Right", P::kRotateRight, 463, 126, 49, 15, 244, 242, 243, 0},
    {1031, "Red Eye", P::kRedEye, 465, 131, 33, 26, 371, 369, 370, 370},
    {1010, "Crop", P::kCrop, 466, 133, 33, 26, 368, 366, 367, 0},
    {1029, "Skin", P::kSkin, 464, 143, 49, 15, 215, 213, 214, 214},
    {1005, "Rotate Left", P::kRotateLeft, 463, 181, 49, 15, 241, 239, 240, 0},
    {1026, "Neutrals", P::kNeutrals, 464, 187, 49, 15, 212, 210, 211, 211},
    {1018, "Undo", P::kUndo, 460, 236, 50, 14, 253, 251, 252, 0},
    {1002, "Save", P::kKeep, 460, 253, 50, 14, 262, 260, 261, 0},
    {1003, "Close", P::kClose, 460, 271, 50, 14, 268, 266, 267, 0},
};

}  // namespace

std::span<const SkinnedControl> SkinnedControls() {
  return kControls;
}

const SkinnedControl *FindControl(int id) {
  for (const SkinnedControl &control : kControls) {
    if (control.id == id) return &control;
  }
  return nullptr;
}

}  // namespace skingen
