// The editor's quarter turns against the rotation routine on a planar copy,
// packed back the way every other edit is: the whole block (header, rows,
// padding and what follows) byte for byte, on shapes a group or tile does not
// divide, through storage reused from the dropped picture, with undo, on one
// thread and on several, and with memory running out.
#include <gtest/gtest.h>

#include <QImage>
#include <cstring>
#include <random>
#include <vector>

#include "photo/dibplanar.h"
#include "photo/document.h"
#include "platform/workers.h"
#include "tests/app/photos.h"
#include "views/imageview.h"
#include "views/quarterturn.h"

namespace {

// The bytes of three planes as one picture block, the way the work area
// will keep them.
std::vector<uint8_t> Packed(const PlanarImage &planes) {
  const CDib block(DibFromPlanar(&planes));
  return BlockBytes(block);
}

// A picture of noise, so that any misplaced byte shows.
HGLOBAL Noise(int width, int height, unsigned seed) {
  const Planar planes(PlanarCreate(width, height, 3));
  std::mt19937 random(seed);
  for (size_t i = 0; i < size_t(width) * size_t(height) * 3; ++i)
    planes->planes[0][i] = uint8_t(random());
  return DibFromPlanar(planes.get());
}

// What the editor made of a turn before it kept planes: the routine on a
// planar copy, then a new block.
std::vector<uint8_t> Expected(const CDib &dib, int direction) {
  const Planar source(PlanarFromDib(dib));
  const Planar turned(PlanarCreateExchanged(source.get()));
  EXPECT_EQ(RotateImage(source.get(), direction == 1 ? 0 : 2, turned.get(), nullptr), 0);
  return Packed(*turned);
}

// The drawn picture as the reduction routine makes it from the picture.
QImage Reduced(const CDib &dib, float scale) {
  const Planar source(PlanarFromDib(dib));
  const Planar reduced(PlanarCreateScaled(source.get(), scale));
  const PixRect whole{};
  const PixReduceOptions options{};
  if (ReduceImage(nullptr, source.get(), 1, reduced.get(), &whole, &options, nullptr) != 0)
    return QImage();
  return ImageFromPlanar(reduced.get());
}

struct Editor {
  CKorvelAppDoc doc;
  CImageView view{&doc};
  Editor(int width, int height, float scale) {
    doc.AddImage(Noise(width, height, unsigned(width * 7919 + height)), 0, "/photos/n.jpg");
    doc.SetCurrentIndex(0);
    view.resize(420, 420);
    view.LoadCurrentPhoto();
    if (scale != 1.0f) view.Zoom(scale);
  }
  std::vector<uint8_t> Current() const { return BlockBytes(*view.CurrentImage()); }
};

TEST(QuarterTurn, EditorTurnsGiveTheRoutinesBytesAndDrawThem) {
  // Sides off the 16-pixel tile and the 64-row band, single rows and columns.
  const QSize sizes[] = {{7, 5}, {1, 9}, {9, 1}, {1, 1}, {65, 3}, {3, 130}, {129, 67}, {200, 131}};
  const int turns[] = {1, 1, 0, 1, 1, 1, 0, 0};  // storage is reused from the third on
  for (const QSize size : sizes) {
    for (const float scale : {1.0f, 0.5f}) {
      SCOPED_TRACE(testing::Message() << size.width() << "x" << size.height() << " at " << scale);
      Editor editor(size.width(), size.height(), scale);
      for (const int direction : turns) {
        const CDib before = *editor.view.CurrentImage();
        const std::vector<uint8_t> expected = Expected(before, direction);
        const std::vector<uint8_t> old = BlockBytes(before);
        editor.view.Rotate(direction);
        ASSERT_EQ(editor.Current(), expected) << "turn " << direction;
        ASSERT_EQ(BlockBytes(*editor.view.PreviousImage()), old);
      }
      const QImage drawn =
          editor.view.viewport()->grab().toImage().convertToFormat(QImage::Format_RGB32);
      const QImage reduced = Reduced(*editor.view.CurrentImage(), scale);
      if (scale < 1.0f && !reduced.isNull()) {
        EXPECT_TRUE(drawn.copy(editor.view.ImageRect()) == reduced);
      }
    }
  }
}

TEST(QuarterTurn, UndoAndFourTurnsGiveTheOriginalBack) {
  for (const float scale : {1.0f, 0.25f}) {
    Editor editor(129, 67, scale);
    const std::vector<uint8_t> original = editor.Current();
    editor.view.Rotate(1);
    const std::vector<uint8_t> right = editor.Current();
    ASSERT_NE(right, original);
    editor.view.Undo();
    EXPECT_EQ(editor.Current(), original);
    editor.view.Undo();  // a toggle: the turn again
    EXPECT_EQ(editor.Current(), right);
    for (int i = 0; i < 3; ++i)
      editor.view.Rotate(1);
    EXPECT_EQ(editor.Current(), original);
    editor.view.Rotate(0);
    editor.view.Undo();
    EXPECT_EQ(editor.Current(), original);
    // A turn after undo reads the picture undo brought back.
    editor.view.Rotate(0);
    EXPECT_EQ(editor.Current(), Expected(*editor.view.PreviousImage(), 0));
    EXPECT_TRUE(editor.view.Changed());
  }
}

TEST(QuarterTurn, SeveralThreadsGiveTheOneThreadBytes) {
  const CDib photo(Noise(1000, 70, 5));  // groups of 64 rows left uneven both ways
  const Planar source(PlanarFromDib(photo));
  for (const bool right : {true, false}) {
    std::vector<uint8_t> made[2];
    for (const int threads : {1, 0}) {
      const int old = SetWorkerLimit(threads);
      Planar spare;
      const Planar turned = TurnQuarter(*source, right, spare);
      SetWorkerLimit(old);
      ASSERT_TRUE(turned);
      made[threads == 0] = Packed(*turned);
    }
    EXPECT_EQ(made[0], made[1]);
    EXPECT_EQ(made[0], Expected(photo, right ? 1 : 0));
  }
}

TEST(QuarterTurn, SpareStorageIsTakenOnlyWithTheSamplesNumber) {
  const CDib photo(Noise(30, 21, 9));
  const Planar source(PlanarFromDib(photo));
  const std::vector<uint8_t> expected = Expected(photo, 1);
  // Planes need only the same number of samples, whatever their sides.
  struct Case {
    int width, height;
    bool taken;
  } cases[] = {{21, 30, true}, {30, 21, true}, {10, 63, true}, {22, 30, false}, {1, 1, false}};
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << c.width << "x" << c.height);
    Planar spare(PlanarCreate(c.width, c.height, 3));
    std::memset(spare->planes[0], 0xEE, size_t(c.width) * size_t(c.height) * 3);
    const uint8_t *at = spare->planes[0];
    const Planar turned = TurnQuarter(*source, true, spare);
    ASSERT_TRUE(turned);
    EXPECT_EQ(Packed(*turned), expected);
    EXPECT_EQ(turned->width, 21);
    EXPECT_EQ(turned->height, 30);
    EXPECT_EQ(turned->planes[0] == at, c.taken);
    EXPECT_EQ(spare == nullptr, c.taken);
    if (!c.taken) {
      // Left exactly as it was: it is still a picture someone may undo to.
      EXPECT_EQ(spare->width, c.width);
      EXPECT_EQ(spare->height, c.height);
      EXPECT_EQ(spare->planes[0], at);
      EXPECT_EQ(at[0], 0xEE);
    }
  }
}

TEST(QuarterTurn, RunningOutOfMemoryLeavesTheSpareAsItWas) {
  // A source too large to turn in any memory; its samples are never read.
  uint8_t sample[3] = {};
  const PlanarImage huge{1, 3, 1 << 30, 1 << 30, 0, 1, 1 << 30, {sample, sample + 1, sample + 2}};
  Planar spare(PlanarCreate(5, 4, 3));
  const uint8_t *at = spare->planes[0];
  EXPECT_FALSE(TurnQuarter(huge, true, spare));
  ASSERT_TRUE(spare);
  EXPECT_EQ(spare->planes[0], at);
  EXPECT_EQ(spare->width, 5);
}

}  // namespace
