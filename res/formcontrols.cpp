// The main form's control table. Overlapping places are deliberate: Delete
// Image and ThumbNails share a slot (only one shows at a time), and the tool
// buttons on the right share space because only one tool's set is shown.
#include "res/formcontrols.h"

namespace {
constexpr FormKind S = FormKind::Skinned;
}  // namespace

const FormControl kFormControls[] = {
    {kIdGetPhotos, "DownLoad Images", 30, 0, 57, 23, S, {221, 219, 220, 270}},
    {kIdSavePhoto, "Save Image", 98, 0, 57, 23, S, {247, 245, 246, 0}},
    {kIdShare, "Share Photos", 167, 0, 57, 23, S, {301, 299, 300, 298}},
    {kIdProjects, "", 234, 0, 57, 23, S, {348, 346, 347, 345}},
    {kIdPrint, "Print", 304, 0, 57, 23, S, {256, 254, 255, 0}},
    {kIdRemovePhoto, "Delete Image", 370, 0, 57, 23, S, {259, 257, 258, 0}},
    {kIdThumbnails, "ThumbNails", 370, 0, 57, 23, S, {265, 263, 264, 0}},
    {kIdQuit, "Quit", 213, 0, 50, 14, FormKind::Push, {}},
    {kIdOpenPhoto, "Open Image", 106, 1, 50, 14, FormKind::Push, {}},
    {kIdSelectSource, "Select Source", 37, 56, 32, 23, FormKind::Push, {}},
    {kIdWorkArea, "", 22, 29, 417, 254, FormKind::Group, {}},
    {kIdZoomIn, "+", 41, 314, 32, 26, S, {227, 225, 226, 0}},
    {kIdZoomOut, "-", 87, 314, 32, 26, S, {224, 222, 223, 0}},
    {kIdZoomCombo, "", 133, 329, 32, 55, FormKind::Combo, {}},
    {kIdCrop, "Crop", 183, 314, 32, 26, S, {203, 201, 202, 0}},
    {kIdColorCorrection, "", 235, 314, 32, 26, S, {200, 198, 199, 0}},
    {kIdRotate, "Rotate", 285, 314, 32, 26, S, {238, 236, 237, 0}},
    {kIdRedEye, "Red Eye", 334, 314, 32, 26, S, {235, 231, 234, 0}},
    {kIdEditPhoto, "Edit Photo", 405, 307, 54, 22, FormKind::OwnerDrawn, {}},
    {kIdGoOnline, "Go to Korvel Online", 412, 310, 57, 23, S, {230, 228, 229, 0}},
    {kIdEmail, "Email", 487, 314, 35, 21, S, {344, 342, 343, 0}},
    {kIdSky, "Sky", 463, 50, 49, 15, S, {218, 216, 217, 217}},
    {kIdFoliage, "Foliage", 459, 99, 49, 15, S, {209, 207, 208, 208}},
    {kIdRotateRight, "Rotate Right", 463, 126, 49, 15, S, {244, 242, 243, 0}},
    {kIdRedEyeTool, "Red Eye", 465, 131, 33, 26, S, {371, 369, 370, 370}},
    {kIdCropNow, "Crop", 466, 133, 33, 26, S, {368, 366, 367, 0}},
    {kIdSkin, "Skin", 464, 143, 49, 15, S, {215, 213, 214, 214}},
    {kIdRotateLeft, "Rotate Left", 463, 181, 49, 15, S, {241, 239, 240, 0}},
    {kIdNeutrals, "Neutrals", 464, 187, 49, 15, S, {212, 210, 211, 211}},
    {kIdUndo, "Undo", 460, 236, 50, 14, S, {253, 251, 252, 0}},
    {kIdKeepEdit, "Save", 460, 253, 50, 14, S, {262, 260, 261, 0}},
    {kIdCloseEditor, "Close", 460, 271, 50, 14, S, {268, 266, 267, 0}},
};
const int kFormControlCount = sizeof kFormControls / sizeof kFormControls[0];
