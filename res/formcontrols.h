// Form 101's controls: place and size in dialog units, caption, kind and the
// skin bitmaps (up, down, focus, disabled; 0 where there is none).
#pragma once

// The form's controls by id. The ids are the command numbers the buttons
// send, so they stay as they are: settings, screen-reader names and tests
// refer to them.
enum FormId : int {
  kIdKeepEdit = 1002,  // "Save": the edit goes back to the work area
  kIdCloseEditor = 1003,
  kIdSelectSource = 1004,
  kIdRotateLeft = 1005,
  kIdRotateRight = 1006,
  kIdZoomIn = 1007,
  kIdZoomOut = 1008,
  kIdZoomCombo = 1009,
  kIdCropNow = 1010,
  kIdCrop = 1011,  // shows the crop tools
  kIdRotate = 1012,
  kIdRedEye = 1013,
  kIdGetPhotos = 1014,
  kIdSavePhoto = 1015,
  kIdQuit = 1016,
  kIdRemovePhoto = 1017,
  kIdUndo = 1018,
  kIdOpenPhoto = 1019,
  kIdGoOnline = 1020,
  kIdWorkArea = 1021,  // a frame marking where the views go
  kIdEditPhoto = 1022,
  kIdProjects = 1023,
  kIdColorCorrection = 1024,
  kIdFoliage = 1025,
  kIdNeutrals = 1026,
  kIdSkin = 1029,
  kIdSky = 1030,
  kIdRedEyeTool = 1031,
  kIdPrint = 1032,
  kIdThumbnails = 1033,
  kIdShare = 1037,
  kIdEmail = 1049,
};

// The thumbnails' context menu sends these.
enum MenuId : int {
  kIdMenuRemove = 32772,
  kIdMenuRotate = 32773,
  kIdMenuCrop = 32774,
  kIdMenuRedEye = 32775,
  kIdMenuSave = 32776,
  kIdMenuEdit = 32778,
  kIdMenuColor = 32779,
};

// The help line's sentences in the string table, by what they explain.
enum HelpId : int {
  kHelpWelcome = 1000,
  kHelpGetPhotos = 1001,
  kHelpSavePhoto = 1002,
  kHelpProjects = 1003,
  kHelpPrint = 1004,
  kHelpThumbnails = 1005,
  kHelpRemovePhoto = 1006,
  kHelpCrop = 1007,
  kHelpColorCorrection = 1008,
  kHelpRotate = 1009,
  kHelpRedEye = 1010,
  kHelpSky = 1011,
  kHelpFoliage = 1012,
  kHelpSkin = 1013,
  kHelpNeutrals = 1014,
  kHelpRotateLeft = 1015,
  kHelpRotateRight = 1016,
  kHelpGoOnline = 1017,
  kHelpShare = 1018,
  kHelpZoomIn = 1019,
  kHelpZoomOut = 1020,
  kHelpEditPhoto = 1021,
};

enum class FormKind { Skinned, OwnerDrawn, Push, Combo, Group };

struct FormControl {
  int id;
  const char *caption;
  int x, y, width, height;  // dialog units
  FormKind kind;
  int skins[4];
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
