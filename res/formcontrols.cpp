// The main form's control table. Overlapping places are deliberate: 1017 and
// 1033 share a slot (only one shows at a time), and the tool buttons on the
// right share space because only one tool's set is shown.
#include "res/formcontrols.h"

namespace {
constexpr FormKind S = FormKind::Skinned;
}  // namespace

const FormControl kFormControls[] = {
    {1014, "DownLoad Images", 30, 0, 57, 23, S, {221, 219, 220, 270}, false},
    {1015, "Save Image", 98, 0, 57, 23, S, {247, 245, 246, 0}, false},
    {1037, "Share Photos", 167, 0, 57, 23, S, {301, 299, 300, 298}, false},
    {1023, "", 234, 0, 57, 23, S, {348, 346, 347, 345}, false},
    {1032, "Print", 304, 0, 57, 23, S, {256, 254, 255, 0}, false},
    {1017, "Delete Image", 370, 0, 57, 23, S, {259, 257, 258, 0}, false},
    {1033, "ThumbNails", 370, 0, 57, 23, S, {265, 263, 264, 0}, false},
    {1016, "Quit", 213, 0, 50, 14, FormKind::Push, {}, true},
    {1019, "Open Image", 106, 1, 50, 14, FormKind::Push, {}, false},
    {1004, "Select Source", 37, 56, 32, 23, FormKind::Push, {}, false},
    {1021, "", 22, 29, 417, 254, FormKind::Group, {}, true},
    {1007, "+", 41, 314, 32, 26, S, {227, 225, 226, 0}, false},
    {1008, "-", 87, 314, 32, 26, S, {224, 222, 223, 0}, false},
    {1009, "", 133, 329, 32, 55, FormKind::Combo, {}, false},
    {1011, "Crop", 183, 314, 32, 26, S, {203, 201, 202, 0}, false},
    {1024, "", 235, 314, 32, 26, S, {200, 198, 199, 0}, false},
    {1012, "Rotate", 285, 314, 32, 26, S, {238, 236, 237, 0}, false},
    {1013, "Red Eye", 334, 314, 32, 26, S, {235, 231, 234, 0}, false},
    {1022, "Edit Photo", 405, 307, 54, 22, FormKind::OwnerDrawn, {}, true},
    {1020, "Go to Korvel Online", 412, 310, 57, 23, S, {230, 228, 229, 0}, false},
    {1049, "Email", 487, 314, 35, 21, S, {344, 342, 343, 0}, true},
    {1030, "Sky", 463, 50, 49, 15, S, {218, 216, 217, 217}, false},
    {1025, "Foliage", 459, 99, 49, 15, S, {209, 207, 208, 208}, false},
    {1006, "Rotate Right", 463, 126, 49, 15, S, {244, 242, 243, 0}, false},
    {1031, "Red Eye", 465, 131, 33, 26, S, {371, 369, 370, 370}, false},
    {1010, "Crop", 466, 133, 33, 26, S, {368, 366, 367, 0}, false},
    {1029, "Skin", 464, 143, 49, 15, S, {215, 213, 214, 214}, false},
    {1005, "Rotate Left", 463, 181, 49, 15, S, {241, 239, 240, 0}, false},
    {1026, "Neutrals", 464, 187, 49, 15, S, {212, 210, 211, 211}, false},
    {1018, "Undo", 460, 236, 50, 14, S, {253, 251, 252, 0}, false},
    {1002, "Save", 460, 253, 50, 14, S, {262, 260, 261, 0}, false},
    {1003, "Close", 460, 271, 50, 14, S, {268, 266, 267, 0}, false},
};
const int kFormControlCount = sizeof kFormControls / sizeof kFormControls[0];

const int kGroupA[7] = {1008, 1007, 1009, 1004, 1017, 1019, 1033};
const int kGroupB[11] = {1005, 1006, 1010, 1030, 1029, 1026, 1025, 1031, 1002, 1003, 1018};
