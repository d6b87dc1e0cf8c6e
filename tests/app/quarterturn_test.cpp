// The editor's quarter turns against the rotation routine on a planar copy,
// packed back the way every other edit is: the whole block (header, rows,
// padding and what follows) byte for byte, on shapes a band or tile does not
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
#include "views/imageview.h"
#include "views/quarterturn.h"

namespace {

std::vector<uint8_t> BlockBytes(const CDib &dib) {
  const auto *at = static_cast<const uint8_t *>(GlobalLock(dib.Handle()));
  std::vector<uint8_t> bytes(at, at + GlobalSize(dib.Handle()));
  GlobalUnlock(dib.Handle());
  return bytes;
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
  const CDib block(DibFromPlanar(turned.get()));
  return BlockBytes(block);
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
  const CDib photo(Noise(1000, 70, 5));  // bands of 64 rows left uneven both ways
  const Planar source(PlanarFromDib(photo));
  for (const bool right : {true, false}) {
    std::vector<uint8_t> made[2];
    for (const int threads : {1, 0}) {
      const int old = SetWorkerLimit(threads);
      std::unique_ptr<CDib> spare;
      Planar spareTurned;
      TurnedPicture turned;
      ASSERT_TRUE(TurnQuarter(*source, right, spare, spareTurned, &turned));
      SetWorkerLimit(old);
      made[threads == 0] = BlockBytes(turned.picture);
      // The planes handed back are the turned picture's own.
      const Planar again(PlanarFromDib(turned.picture));
      ASSERT_EQ(std::memcmp(again->planes[0], turned.planes->planes[0], 1000 * 70 * 3), 0);
    }
    EXPECT_EQ(made[0], made[1]);
    EXPECT_EQ(made[0], Expected(photo, right ? 1 : 0));
  }
}

// A block of `bytes` that is no picture at all, so that every byte a turn
// leaves unwritten shows.
HGLOBAL Garbage(size_t bytes) {
  HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, bytes);
  std::memset(GlobalLock(block), 0xEE, bytes);
  GlobalUnlock(block);
  return block;
}

TEST(QuarterTurn, SpareStorageIsTakenOnlyWhenNobodyElseHoldsIt) {
  const CDib photo(Noise(30, 21, 9));  // turned rows of 63 bytes and one of padding
  const Planar source(PlanarFromDib(photo));
  const std::vector<uint8_t> expected = Expected(photo, 1);
  // A block of other sides may still have the size (the rows' padding
  // decides); planes need only the same number of samples.
  struct Case {
    HGLOBAL block;
    int planeWidth, planeHeight;
    bool shared, taken;
  } cases[] = {{Noise(21, 30, 1), 21, 30, false, true},
               {Noise(21, 30, 2), 30, 21, true, false},
               {Noise(30, 21, 3), 10, 63, false, false},
               {Garbage(expected.size()), 22, 30, false, true}};
  for (const Case &c : cases) {
    auto spare = std::make_unique<CDib>(c.block);
    const CDib other = c.shared ? *spare : CDib();  // the work area's copy, say
    const std::vector<uint8_t> before = BlockBytes(*spare);
    const uint64_t serial = GlobalSerial(c.block);
    Planar sparePlanes(PlanarCreate(c.planeWidth, c.planeHeight, 3));
    const uint8_t *planesAt = sparePlanes->planes[0];
    TurnedPicture turned;
    ASSERT_TRUE(TurnQuarter(*source, true, spare, sparePlanes, &turned));
    EXPECT_EQ(BlockBytes(turned.picture), expected);
    EXPECT_EQ(turned.picture.Handle() == c.block, c.taken);
    EXPECT_EQ(spare == nullptr, c.taken);
    // Planes of the samples' number are made over, any others freed for room.
    EXPECT_FALSE(sparePlanes);
    if (c.planeWidth * c.planeHeight == 630) {
      EXPECT_EQ(turned.planes->planes[0], planesAt);
    }
    if (c.taken) {
      EXPECT_NE(GlobalSerial(c.block), serial);  // drawings of the old bytes are stale
      EXPECT_EQ(DibRefCount(c.block), 1);
    } else {
      EXPECT_EQ(BlockBytes(*spare), before);
    }
  }
}

TEST(QuarterTurn, RunningOutOfMemoryLeavesEverythingAsItWas) {
  // A source too large to turn in any memory; its samples are never read.
  uint8_t sample[3] = {};
  const PlanarImage huge{1, 3, 1 << 30, 1 << 30, 0, 1, 1 << 30, {sample, sample + 1, sample + 2}};
  auto spare = std::make_unique<CDib>(Noise(5, 4, 3));
  const std::vector<uint8_t> before = BlockBytes(*spare);
  Planar sparePlanes;
  TurnedPicture turned;
  EXPECT_FALSE(TurnQuarter(huge, true, spare, sparePlanes, &turned));
  ASSERT_TRUE(spare);
  EXPECT_EQ(BlockBytes(*spare), before);
  EXPECT_EQ(turned.picture.Handle(), nullptr);
  EXPECT_FALSE(turned.planes);
}

}  // namespace
