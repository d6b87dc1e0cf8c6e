// The grid cell's kept picture: drawn, it gives exactly what CDib::Draw gives
// for the whole photo in the cell, for every shape and device ratio, and it
// stays small.
#include "photo/cellpicture.h"

#include <gtest/gtest.h>

#include <QPainter>

#include "tests/photo/patterned.h"

namespace {

// A grey cell at (10, 10) of a device of `ratio`, with `draw` run on it.
template <class Paint>
QImage Cell(qreal ratio, Paint draw) {
  const int side = int(120 * ratio);
  QImage image(side, side, QImage::Format_RGB32);
  image.setDevicePixelRatio(ratio);
  image.fill(qRgb(220, 220, 220));
  QPainter painter(&image);
  draw(painter, QRect(10, 10, kGridCell, kGridCell));
  return image;
}

TEST(CellPicture, DrawsWhatDrawingThePhotoDraws) {
  struct Case {
    int width, height;
    qreal ratio;
    int pictureWidth, pictureHeight;  // -1: kept whole; 0: nothing to draw
  };
  const Case cases[] = {
      {1200, 800, 1, 100, 67},  // reduced by 12
      {800, 1200, 1, 67, 100}, {1200, 800, 2, 200, 134}, {333, 101, 1, 111, 34},
      {101, 50, 1, -1, -1},  // under twice the cell: whole
      {60, 40, 1, -1, -1},   // enlarged
      {7, 3, 2, -1, -1},       {3000, 60, 1, 100, 2},    {1, 300, 1, 0, 0},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " @" << c.ratio);
    const CDib photo = Patterned(c.width, c.height);
    const std::optional<CellPicture> kept = MakeCellPicture(photo, c.ratio);
    ASSERT_TRUE(kept.has_value());
    EXPECT_EQ(kept->width, uint32_t(c.width));
    EXPECT_EQ(kept->height, uint32_t(c.height));
    const QSize expected =
        c.pictureWidth < 0 ? QSize(c.width, c.height) : QSize(c.pictureWidth, c.pictureHeight);
    EXPECT_EQ(kept->image.size(), c.pictureWidth == 0 ? QSize(0, 0) : expected);
    const QImage drawn = Cell(c.ratio, [&](QPainter &painter, const QRect &cell) {
      const QRect at = CellPictureRect(cell, photo.Width(), photo.Height());
      photo.Draw(&painter, at.left(), at.top(), at.right() + 1, at.bottom() + 1);
    });
    const QImage fromKept = Cell(c.ratio, [&](QPainter &painter, const QRect &cell) {
      DrawCellPicture(painter, *kept, cell);
    });
    EXPECT_EQ(drawn, fromKept);
    // Something, unless the fitted picture covers no pixel.
    const QImage blank = Cell(c.ratio, [](QPainter &, const QRect &) {});
    EXPECT_EQ(drawn == blank, c.pictureWidth == 0);
  }
}

// A photo under twice the cell would be kept whole; past the limit it is not
// kept at all (it is cheap to read back), unless the screen is dense enough
// to need that many pixels anyway.
TEST(CellPicture, APictureTooLargeIsNotMade) {
  const CDib small = Patterned(190, 190);  // 144 KB whole
  EXPECT_FALSE(MakeCellPicture(small, 1).has_value());
  ASSERT_TRUE(MakeCellPicture(small, 2).has_value());
  EXPECT_EQ(MakeCellPicture(small, 2)->image.size(), QSize(190, 190));
  ASSERT_TRUE(MakeCellPicture(Patterned(150, 100), 1).has_value());  // 60 KB
  EXPECT_FALSE(MakeCellPicture(CDib(), 1).has_value());
  // A 24-megapixel 3:2 photo's, measured on a reduced copy of the same shape.
  const std::optional<CellPicture> photo = MakeCellPicture(Patterned(1500, 1000), 1);
  ASSERT_TRUE(photo.has_value());
  EXPECT_LE(photo->image.sizeInBytes(), 30 * 1024);
}

}  // namespace
