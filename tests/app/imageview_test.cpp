// The editor as a person uses it: a dragged crop band and the Crop button,
// turning with undo, red eye, colour clicks, and the keep-changes question.
// Each tool's result is also rendered to tests/screenshots/ in the build.
#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include "app/document.h"
#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "app/photofiles.h"
#include "colorengine/cc.h"
#include "edit/dibplanar.h"
#include "edit/imageview.h"
#include "tests/app/scriptedprompt.h"
#include "tests/raster/testutil.h"

namespace {

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
  // Opens `pic` as a photo file and takes it into the editor.
  void Edit(const testutil::Picture &pic) {
    const QString path = dir.filePath("photo.bmp");
    ASSERT_EQ(testutil::WritePicture(path.toStdString(), RasFormatBmp, RasModelRgb, pic), RasOk);
    ASSERT_TRUE(form->OpenPhoto(path));
    doc->SetCurrentIndex(doc->Count() - 1);
    form->OnCommand(32778);
    view->viewport()->grab();  // a paint places the photo
  }
  // The current picture as planes, top row first.
  testutil::Picture Current() const {
    testutil::Picture pic;
    PlanarImage *p = PlanarFromDib(*view->CurrentImage());
    pic.width = uint32_t(p->width);
    pic.height = uint32_t(p->height);
    pic.channels = 3;
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
  void Click(QPoint at) { QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, at); }

  QTemporaryDir dir;
  ScriptedPrompt prompt;
  CKorvelApp app;
  CKorvelAppDoc *doc = nullptr;
  CKorvelAppView *form = nullptr;
  CImageView *view = nullptr;
};

TEST_F(Editor, DraggedBandCropsKeptSavedAndReopened) {
  const testutil::Picture pic = testutil::Pattern(200, 150, 3);
  Edit(pic);
  const QPoint origin = view->ImageRect().topLeft();
  ASSERT_EQ(origin,
            QPoint(view->ClientRect().width() / 2 - 100, view->ClientRect().height() / 2 - 75));
  form->OnCommand(1011);
  QTest::mousePress(view->viewport(), Qt::LeftButton, {}, origin + QPoint(30, 20));
  QTest::mouseMove(view->viewport(), origin + QPoint(250, 300));  // outside: band stays
  QTest::mouseMove(view->viewport(), origin + QPoint(90, 60));
  QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, origin + QPoint(90, 60));
  const CRectTracker::Rect band = view->Tracker().m_rect;
  EXPECT_EQ(band, (CRectTracker::Rect{origin.x() + 30, origin.y() + 20, origin.x() + 90,
                                      origin.y() + 60}));
  EXPECT_EQ(view->Tracker().m_nStyle, 9);
  EXPECT_TRUE(view->Changed());  // a band alone counts as a change
  Shot("edit-crop-band.png");

  form->OnCommand(1010);  // the Crop button: the band with its one-pixel border
  ASSERT_EQ(view->CurrentImage()->Width(), 62u);
  ASSERT_EQ(view->CurrentImage()->Height(), 42u);
  EXPECT_TRUE(view->Tracker().m_rect.IsEmpty());
  Shot("edit-cropped.png");
  form->OnCommand(1002);  // keep
  form->OnCommand(1033);
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_EQ(doc->UnsavedAt(0), 1);

  const QString saved = dir.filePath("cropped.bmp");
  ASSERT_TRUE(SavePicture(RasFormatBmp, saved, doc->ImageAt(0)));
  testutil::Picture back;
  ASSERT_EQ(testutil::ReadPicture(saved.toStdString(), &back), RasOk);
  ASSERT_EQ(back.width, 62u);
  for (uint32_t y = 0; y < back.height; ++y)
    for (uint32_t x = 0; x < back.width; ++x)
      for (uint32_t k = 0; k < 3; ++k)
        ASSERT_EQ(back.At(x, y, k), pic.At(x + 29, y + 19, k)) << x << "," << y;
}

TEST_F(Editor, PressOnTheTopLeftHandleStartsANewBand) {
  Edit(testutil::Pattern(300, 200, 3));
  const QPoint o = view->ImageRect().topLeft();
  form->OnCommand(1011);
  QTest::mousePress(view->viewport(), Qt::LeftButton, {}, o + QPoint(50, 50));
  QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, o + QPoint(150, 120));
  // Dragging the bottom-right handle resizes...
  QTest::mousePress(view->viewport(), Qt::LeftButton, {}, o + QPoint(148, 118));
  QTest::mouseMove(view->viewport(), o + QPoint(180, 140));
  QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, o + QPoint(180, 140));
  EXPECT_EQ(view->Tracker().m_rect,
            (CRectTracker::Rect{o.x() + 50, o.y() + 50, o.x() + 182, o.y() + 142}));
  // ...and inside moves, never shrinking below 8 x 8.
  QTest::mousePress(view->viewport(), Qt::LeftButton, {}, o + QPoint(100, 100));
  QTest::mouseMove(view->viewport(), o + QPoint(110, 90));
  QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, o + QPoint(110, 90));
  EXPECT_EQ(view->Tracker().m_rect,
            (CRectTracker::Rect{o.x() + 60, o.y() + 40, o.x() + 192, o.y() + 132}));
  QTest::mousePress(view->viewport(), Qt::LeftButton, {}, o + QPoint(190, 130));
  QTest::mouseMove(view->viewport(), o + QPoint(20, 20));
  QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, o + QPoint(20, 20));
  EXPECT_EQ(view->Tracker().m_rect,
            (CRectTracker::Rect{o.x() + 60, o.y() + 40, o.x() + 68, o.y() + 48}));
  // The top-left handle (hit 0) starts a fresh band instead.
  QTest::mousePress(view->viewport(), Qt::LeftButton, {}, o + QPoint(60, 40));
  QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, o + QPoint(70, 90));
  EXPECT_EQ(view->Tracker().m_rect,
            (CRectTracker::Rect{o.x() + 60, o.y() + 40, o.x() + 70, o.y() + 90}));
  // Equal coordinates give an inverted rectangle, as the four tests order it.
  EXPECT_EQ(CImageView::NormalizedRect({5, 5}, {5, 9}), (CRectTracker::Rect{5, 9, 5, 5}));
  EXPECT_EQ(CImageView::NormalizedRect({9, 2}, {3, 7}), (CRectTracker::Rect{3, 2, 9, 7}));
  EXPECT_EQ(CImageView::NormalizedRect({3, 7}, {9, 2}), (CRectTracker::Rect{3, 2, 9, 7}));

  // Leaving with only a band drawn asks; Cancel stays in the editor.
  prompt.answers = {KorvelPrompt::IDCANCEL};
  form->OnCommand(1003);
  EXPECT_EQ(prompt.messages,
            QStringList{"The image has changed. Do you want to keep these changes?"});
  EXPECT_EQ(doc->EditMode(), 1);
}

TEST_F(Editor, TurnsWithUndoAsAToggle) {
  const testutil::Picture pic = testutil::Pattern(9, 5, 3);
  Edit(pic);
  form->OnCommand(1012);
  form->OnCommand(1006);  // right: the left column becomes the top row
  testutil::Picture right = Current();
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
  testutil::Picture face = testutil::Pattern(80, 60, 3);
  for (uint32_t y = 0; y < 60; ++y)
    for (uint32_t x = 0; x < 80; ++x) {
      const bool pupil = (int(x) - 40) * (int(x) - 40) + (int(y) - 30) * (int(y) - 30) <= 9;
      const uint8_t rgb[3] = {uint8_t(pupil ? 200 : 224), uint8_t(pupil ? 20 : 172),
                              uint8_t(pupil ? 30 : 140)};
      for (uint32_t k = 0; k < 3; ++k)
        face.At(x, y, k) = rgb[k];
    }
  Edit(face);
  form->OnCommand(1013);
  const QPoint o = view->ImageRect().topLeft();
  const HGLOBAL before = view->CurrentImage()->Handle();
  Click(o + QPoint(-20, 5));  // outside the photo: refused, nothing changes
  EXPECT_EQ(view->CurrentImage()->Handle(), before);
  Click(o + QPoint(40, 30));
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
  testutil::Picture pic = testutil::Pattern(64, 48, 3);
  for (uint32_t y = 0; y < 48; ++y)
    for (uint32_t x = 0; x < 64; ++x) {
      const uint8_t card[3] = {110, 120, 150}, sky[3] = {140, 120, 210};
      for (uint32_t k = 0; k < 3; ++k)
        pic.At(x, y, k) = x < 32 ? card[k] : sky[k];
    }
  Edit(pic);
  form->OnCommand(1024);
  const QPoint o = view->ImageRect().topLeft();
  Click(o + QPoint(10, 10));  // no tool chosen yet
  EXPECT_EQ(prompt.messages,
            QStringList{"Please Select a Color Correction tool and then click on the image"});
  EXPECT_EQ(view->ColorParams()->pointCount, 0);

  form->OnCommand(1026);  // neutrals
  Click(o + QPoint(10, 10));
  form->OnCommand(1030);  // sky
  Click(o + QPoint(50, 20));
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
  PlanarImage *source = PlanarCreate(64, 48, 3), *result = PlanarCreate(64, 48, 3);
  for (int c = 0; c < 3; ++c)
    std::memcpy(source->planes[c], pic.planes[c].data(), 64 * 48);
  CcTransform transform{};
  ASSERT_EQ(CcBuildTransform(&params, source, &transform), 0);
  for (int y = 0; y < 48; ++y) {
    CcPixelRow from{}, to{};
    for (int c = 0; c < 3; ++c) {
      from.channel[c] = source->planes[c] + y * 64;
      to.channel[c] = result->planes[c] + y * 64;
    }
    ASSERT_EQ(CcApplySl(&transform, 64, &from, 1, &to, 1), 0);
  }
  (void)CcFreeTransform(&transform);
  for (int c = 0; c < 3; ++c)
    EXPECT_EQ(std::memcmp(result->planes[c], twoClicks.planes[c].data(), 64 * 48), 0) << c;
  PlanarFree(source);
  PlanarFree(result);

  form->OnCommand(1018);  // undo drops the last click
  EXPECT_EQ(view->ColorParams()->pointCount, 1);
  for (int i = 0; i < 60; ++i)
    Click(o + QPoint(5 + i % 50, 5));
  EXPECT_EQ(view->ColorParams()->pointCount, CcMaxPoints);  // the rest turned away
  EXPECT_GT(prompt.beeps, 0);
}

}  // namespace
