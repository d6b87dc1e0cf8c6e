// The editor as a person uses it: a dragged crop band and the Crop button,
// turning with undo, red eye, colour clicks, the keep-changes question, and
// zooming, which changes only what is drawn.
// Each tool's result is also rendered to tests/screenshots/ in the build.
#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>
#include <QTest>
#include <array>

#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "colorengine/cc.h"
#include "photo/dibplanar.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "tests/app/scriptedprompt.h"
#include "tests/raster/testutil.h"
#include "views/imageview.h"

namespace {

const QString kKeepChanges = "The image has changed. Do you want to keep these changes?";

// A picture whose every pixel is rgbAt(x, y).
template <class F>
testutil::Picture Painted(uint32_t width, uint32_t height, F rgbAt) {
  testutil::Picture pic = testutil::Pattern(width, height, 3);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      for (uint32_t k = 0; k < 3; ++k)
        pic.At(x, y, k) = rgbAt(x, y)[k];
  return pic;
}

class Editor : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(app.InitInstance({"korvelapp"}));
    doc = app.Document();
    form = app.View();
    view = form->GetImageView();
  }
  void TearDown() override {
    for (int i = 0; i < doc->Count(); ++i)
      doc->ReplaceImage(i, doc->ImageAt(i), 0, QString());
    app.MainFrame()->close();
  }
  // Opens `pic` as a photo file, takes it into the editor and chooses `tool`.
  void Edit(const testutil::Picture &pic, int tool) {
    const QString path = dir.filePath("photo.bmp");
    ASSERT_EQ(testutil::WritePicture(path.toStdString(), RasFormatBmp, RasModelRgb, pic), RasOk);
    ASSERT_TRUE(form->OpenPhoto(path));
    doc->SetCurrentIndex(doc->Count() - 1);
    form->OnCommand(32778);
    view->viewport()->grab();  // a paint places the photo
    o = view->ImageRect().topLeft();
    form->OnCommand(tool);
  }
  // A picture as planes, top row first; the one being edited by default.
  testutil::Picture Current(const CDib *dib = nullptr) const {
    PlanarImage *p = PlanarFromDib(dib ? *dib : *view->CurrentImage());
    testutil::Picture pic{uint32_t(p->width), uint32_t(p->height), 3, {}};
    for (int c = 0; c < 3; ++c)
      pic.planes.emplace_back(p->planes[c], p->planes[c] + size_t(p->width) * size_t(p->height));
    PlanarFree(p);
    return pic;
  }
  void Shot(const char *name) {
    QDir().mkpath(KORVEL_SCREENSHOT_DIR);
    app.MainFrame()->grab();  // a first paint settles the scroll bars
    app.MainFrame()->grab().save(QString(KORVEL_SCREENSHOT_DIR) + "/" + name);
  }
  // Press at the first point, move through the rest, release at the last; photo coordinates.
  void Drag(std::initializer_list<QPoint> path) {
    QTest::mousePress(view->viewport(), Qt::LeftButton, {}, o + *path.begin());
    for (auto p = path.begin() + 1; p != path.end(); ++p)
      QTest::mouseMove(view->viewport(), o + *p);
    QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, o + *(path.end() - 1));
  }
  void Click(QPoint at) { QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, o + at); }
  // A zoom button, or the zoom list's entry (0 for Fit); the picture's corner
  // moves with the zoom.
  void ZoomBy(int command) {
    form->OnCommand(command);
    o = view->ImageRect().topLeft();
  }
  void ZoomTo(int percent) {
    form->ZoomCombo()->setCurrentIndex(form->ZoomCombo()->findData(percent));
    form->OnZoomSelChange();
    o = view->ImageRect().topLeft();
  }
  CRectTracker::Rect Band(int l, int t, int r, int b) const {
    return {o.x() + l, o.y() + t, o.x() + r, o.y() + b};
  }

  QTemporaryDir dir;
  ScriptedPrompt prompt;
  CKorvelApp app;
  CKorvelAppDoc *doc = nullptr;
  CKorvelAppView *form = nullptr;
  CImageView *view = nullptr;
  QPoint o;  // the photo's top-left corner in the viewport
};

TEST_F(Editor, DraggedBandCropsAndTheCropIsKept) {
  const testutil::Picture pic = testutil::Pattern(200, 150, 3);
  Edit(pic, 1011);
  ASSERT_EQ(o, QPoint(view->ClientRect().width() / 2 - 100, view->ClientRect().height() / 2 - 75));
  Drag({{30, 20}, {250, 300}, {90, 60}});  // outside on the way: the band stays
  EXPECT_EQ(view->Tracker().rect_, Band(30, 20, 90, 60));
  EXPECT_EQ(view->Tracker().style_, 9);
  EXPECT_TRUE(view->Changed());  // a band alone counts as a change
  Shot("edit-crop-band.png");

  form->OnCommand(1010);  // the Crop button: the band with its one-pixel border
  ASSERT_EQ(view->CurrentImage()->Width(), 62u);
  ASSERT_EQ(view->CurrentImage()->Height(), 42u);
  EXPECT_TRUE(view->Tracker().rect_.IsEmpty());
  form->OnCommand(1002);  // keep
  form->OnCommand(1033);
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_EQ(doc->UnsavedAt(0), 1);

  // Saved as BMP and opened again, the photo is the crop.
  const QString saved = dir.filePath("cropped.bmp");
  ASSERT_TRUE(SavePicture(RasFormatBmp, saved, doc->ImageAt(0)));
  ASSERT_TRUE(form->OpenPhoto(saved));
  const CDib second = doc->ImageAt(1);
  const testutil::Picture back = Current(&second);
  ASSERT_EQ(back.width, 62u);
  for (uint32_t y = 0; y < back.height; ++y)
    for (uint32_t x = 0; x < back.width; ++x)
      for (uint32_t k = 0; k < 3; ++k)
        ASSERT_EQ(back.At(x, y, k), pic.At(x + 29, y + 19, k)) << x << "," << y;
}

TEST_F(Editor, TrackerResizesMovesAndRestartsFromTheTopLeftHandle) {
  Edit(testutil::Pattern(300, 200, 3), 1011);
  struct Step {
    QPoint from, to;
    std::array<int, 4> band;
  };
  const Step steps[] = {
      {{50, 50}, {150, 120}, {50, 50, 150, 120}},
      {{148, 118}, {180, 140}, {50, 50, 182, 142}},  // bottom-right handle resizes
      {{100, 100}, {110, 90}, {60, 40, 192, 132}},   // inside moves
      {{190, 130}, {20, 20}, {60, 40, 68, 48}},      // never below 8 x 8
      {{60, 40}, {70, 90}, {60, 40, 70, 90}},        // top-left handle (hit 0): a fresh band
  };
  for (const Step &s : steps) {
    Drag({s.from, s.to});
    EXPECT_EQ(view->Tracker().rect_, Band(s.band[0], s.band[1], s.band[2], s.band[3])) << s.band[2];
  }
  // Equal coordinates give an inverted rectangle, as the four tests order it.
  EXPECT_EQ(CImageView::NormalizedRect({5, 5}, {5, 9}), (CRectTracker::Rect{5, 9, 5, 5}));
  EXPECT_EQ(CImageView::NormalizedRect({9, 2}, {3, 7}), (CRectTracker::Rect{3, 2, 9, 7}));
  EXPECT_EQ(CImageView::NormalizedRect({3, 7}, {9, 2}), (CRectTracker::Rect{3, 2, 9, 7}));

  prompt.answers = {KorvelPrompt::IDCANCEL};  // only a band drawn: still asks
  form->OnCommand(1003);
  EXPECT_EQ(prompt.messages, QStringList{kKeepChanges});
  EXPECT_EQ(doc->EditMode(), 1);
}

TEST_F(Editor, TurnsWithUndoAsAToggle) {
  const testutil::Picture pic = testutil::Pattern(9, 5, 3);
  Edit(pic, 1012);
  form->OnCommand(1006);  // right: the left column becomes the top row
  const testutil::Picture right = Current();
  ASSERT_EQ(right.width, 5u);
  for (uint32_t y = 0; y < 9; ++y)
    for (uint32_t x = 0; x < 5; ++x)
      ASSERT_EQ(right.At(x, y, 1), pic.At(y, 4 - x, 1));
  Shot("edit-rotated.png");
  form->OnCommand(1018);
  EXPECT_TRUE(Current() == pic);
  form->OnCommand(1018);
  EXPECT_TRUE(Current() == right);
  form->OnCommand(1005);  // left undoes right
  EXPECT_TRUE(Current() == pic);
  EXPECT_TRUE(view->Changed());
}

TEST_F(Editor, RedEyeGreysThePupilOnly) {
  // A skin-toned face with a red pupil of radius 3 around (40, 30).
  const testutil::Picture face = Painted(80, 60, [](uint32_t x, uint32_t y) {
    const bool pupil = (int(x) - 40) * (int(x) - 40) + (int(y) - 30) * (int(y) - 30) <= 9;
    return pupil ? std::array<uint8_t, 3>{200, 20, 30} : std::array<uint8_t, 3>{224, 172, 140};
  });
  Edit(face, 1013);
  ZoomBy(1007);  // at 200% a click lands on the photo pixel under it
  const HGLOBAL before = view->CurrentImage()->Handle();
  Click({-20, 5});  // outside the photo: refused, nothing changes
  EXPECT_EQ(view->CurrentImage()->Handle(), before);
  Click({81, 61});
  const testutil::Picture after = Current();
  const uint8_t grey = (200 + 20 + 30 + 1) / 3;
  for (uint32_t k = 0; k < 3; ++k) {
    EXPECT_EQ(after.At(40, 30, k), grey);
    EXPECT_EQ(after.At(42, 31, k), grey);
    EXPECT_EQ(after.At(10, 10, k), face.At(10, 10, k));  // skin untouched
  }
  Shot("edit-redeye.png");
}

TEST_F(Editor, ColourClicksBuildOneCorrectionFromTheOriginal) {
  // A bluish photo: a grey card on the left, sky on the right.
  const testutil::Picture pic = Painted(64, 48, [](uint32_t x, uint32_t) {
    return x < 32 ? std::array<uint8_t, 3>{110, 120, 150} : std::array<uint8_t, 3>{140, 120, 210};
  });
  Edit(pic, 1024);
  ZoomBy(1008);     // at 75% the clicks below land on photo points (10, 10) and (50, 20)
  Click({10, 10});  // no tool chosen yet
  EXPECT_EQ(prompt.messages,
            QStringList{"Please Select a Color Correction tool and then click on the image"});
  EXPECT_EQ(view->ColorParams()->pointCount, 0);
  form->OnCommand(1026);  // neutrals
  Click({7, 7});
  form->OnCommand(1030);  // sky
  Click({37, 15});
  ASSERT_EQ(view->ColorParams()->pointCount, 2);
  EXPECT_EQ(view->ColorTool(), 2);
  const testutil::Picture twoClicks = Current();
  EXPECT_NE(twoClicks.At(10, 10, 2), 150);  // the cast moved
  Shot("edit-colour.png");

  // One build from both clicks on the original gives the same picture.
  CcParams params{};
  CcInitParams(&params);
  params.points[0] = CcPoint{3, 10, 10};
  params.points[1] = CcPoint{2, 50, 20};
  params.pointCount = 2;
  PlanarImage *source = PlanarCreate(64, 48, 3);
  testutil::Picture result = pic;
  CcPixelRow from{}, to{};  // the planes as one long row
  for (int c = 0; c < 3; ++c) {
    std::memcpy(source->planes[c], pic.planes[c].data(), 64 * 48);
    from.channel[c] = source->planes[c];
    to.channel[c] = result.planes[c].data();
  }
  CcTransform transform{};
  ASSERT_EQ(CcBuildTransform(&params, source, &transform), 0);
  EXPECT_EQ(CcApplySl(&transform, 64 * 48, &from, 1, &to, 1), 0);
  (void)CcFreeTransform(&transform);
  PlanarFree(source);
  EXPECT_TRUE(result == twoClicks);

  form->OnCommand(1018);  // undo drops the last click
  EXPECT_EQ(view->ColorParams()->pointCount, 1);
  for (int i = 0; i < 60; ++i)
    Click({5 + i % 40, 5});
  EXPECT_EQ(view->ColorParams()->pointCount, CcMaxPoints);  // the rest turned away
  EXPECT_GT(prompt.beeps, 0);
}

TEST_F(Editor, ZoomDrawsCentredAndEditsStayFullSize) {
  // No pixel is the view's light grey, so the picture's edges show.
  const testutil::Picture pic = Painted(640, 480, [](uint32_t x, uint32_t y) {
    return std::array<uint8_t, 3>{uint8_t(x / 3), uint8_t(y / 2), 40};
  });
  Edit(pic, 1012);
  EXPECT_TRUE(view->Fitted());  // larger than the view: seen whole
  EXPECT_EQ(view->DrawnSize(), QSize(604, 453));
  ZoomBy(1008);  // out from Fit: the next step below it
  ASSERT_EQ(view->Scale(), 0.75f);
  // Centred in the whole view, and exactly the reduction routine's picture.
  const QImage shown = view->viewport()->grab().toImage().convertToFormat(QImage::Format_RGB32);
  ASSERT_EQ(view->ImageRect(), QRect(82, 46, 480, 360));
  const Planar source(PlanarFromDib(*view->CurrentImage()));
  const Planar reduced(PlanarCreateScaled(source.get(), 0.75f));
  const PixRect whole{};
  const PixReduceOptions options{};
  ASSERT_EQ(ReduceImage(nullptr, source.get(), 1, reduced.get(), &whole, &options, nullptr), 0);
  EXPECT_TRUE(shown.copy(view->ImageRect()) == ImageFromPlanar(reduced.get()));
  for (const QPoint grey : {QPoint(81, 46), QPoint(562, 405), QPoint(82, 45), QPoint(561, 406)})
    EXPECT_EQ(shown.pixel(grey), qRgb(220, 220, 220)) << grey.x() << "," << grey.y();

  form->OnCommand(1006);  // right, at 75%: the photo itself turns
  const testutil::Picture turned = Current();
  ASSERT_EQ(turned.width, 480u);
  ASSERT_EQ(turned.height, 640u);
  EXPECT_EQ(view->DrawnSize(), QSize(360, 480));
  form->OnCommand(1002);
  const QString saved = dir.filePath("turned.bmp");
  ASSERT_TRUE(SavePicture(RasFormatBmp, saved, doc->ImageAt(0)));
  ASSERT_TRUE(form->OpenPhoto(saved));
  const CDib second = doc->ImageAt(1);
  const testutil::Picture back = Current(&second);
  ASSERT_TRUE(back == turned);
  for (uint32_t y = 0; y < 640; y += 7)
    for (uint32_t x = 0; x < 480; x += 5)
      ASSERT_EQ(back.At(x, y, 0), pic.At(y, 479 - x, 0)) << x << "," << y;
}

TEST_F(Editor, CropsAtHalfSizeInPhotoPixelsAndZoomKeepsEdits) {
  const testutil::Picture pic = testutil::Pattern(200, 150, 3);
  Edit(pic, 1011);
  ZoomTo(50);
  ASSERT_EQ(view->DrawnSize(), QSize(100, 75));
  Drag({{10, 10}, {40, 30}});
  ZoomTo(100);  // the band stays on the same part of the photo
  EXPECT_EQ(view->Tracker().rect_, Band(20, 20, 80, 60));
  ZoomTo(50);
  EXPECT_EQ(view->Tracker().rect_, Band(10, 10, 40, 30));
  form->OnCommand(1010);  // the band and its border, (9, 9)-(41, 31) drawn
  const testutil::Picture cropped = Current();
  ASSERT_EQ(cropped.width, 64u);
  ASSERT_EQ(cropped.height, 44u);
  for (uint32_t y = 0; y < 44; ++y)
    for (uint32_t x = 0; x < 64; ++x)
      ASSERT_EQ(cropped.At(x, y, 1), pic.At(x + 18, y + 18, 1)) << x << "," << y;
  for (int command : {1007, 1007, 1008, 1008, 1008})
    ZoomBy(command);
  EXPECT_TRUE(Current() == cropped);  // zooming never drops the edit
  EXPECT_EQ(view->DrawnSize(), QSize(16, 11));
  form->OnCommand(1018);  // undo still toggles the edit
  EXPECT_TRUE(Current() == pic);
  EXPECT_EQ(view->DrawnSize(), QSize(49, 37));  // the routine keeps the aspect ratio
  form->OnCommand(1018);
  EXPECT_TRUE(Current() == cropped);
  EXPECT_TRUE(view->Changed());
}

}  // namespace
