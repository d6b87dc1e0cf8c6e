// The editor's pictures: each form made from the other only when asked for,
// with the bytes the conversions give, the work area's block shared rather
// than copied, and planes kept when no block can be made of them.
#include "views/editorpicture.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tests/app/photos.h"

namespace {

Planar NoisePlanes(int width, int height, unsigned seed) {
  Planar planes(PlanarCreate(width, height, 3));
  std::mt19937 random(seed);
  for (size_t i = 0; i < size_t(width) * size_t(height) * 3; ++i)
    planes->planes[0][i] = uint8_t(random());
  return planes;
}

std::vector<uint8_t> PlaneBytes(const PlanarImage &p) {
  std::vector<uint8_t> bytes;
  for (int c = 0; c < 3; ++c)
    for (int y = 0; y < p.height; ++y)
      for (int x = 0; x < p.width; ++x)
        bytes.push_back(p.planes[c][ptrdiff_t{y} * p.rowStride + ptrdiff_t{x} * p.pixelStep]);
  return bytes;
}

TEST(EditorPicture, AWorkAreaPhotoSharesItsBlockAndGivesItsPlanes) {
  const Planar made = NoisePlanes(37, 23, 1);
  const CDib photo(DibFromPlanar(made.get()));
  const EditorPicture picture(photo);
  EXPECT_EQ(picture.Width(), 37u);
  EXPECT_EQ(picture.Height(), 23u);
  EXPECT_EQ(picture.Picture()->Handle(), photo.Handle());
  const PlanarImage *planes = picture.Planes();
  ASSERT_NE(planes, nullptr);
  EXPECT_EQ(PlaneBytes(*planes), PlaneBytes(*made));
  EXPECT_EQ(picture.Planes(), planes);  // converted once
  const QRect area(5, 3, 11, 17);
  const Planar part(picture.CopyArea(area));
  const Planar expected(PlanarFromDib(photo, area));
  ASSERT_TRUE(part && expected);
  EXPECT_EQ(PlaneBytes(*part), PlaneBytes(*expected));
}

TEST(EditorPicture, AnEditsBlockIsMadeOnceWhenFirstAskedFor) {
  Planar made = NoisePlanes(29, 31, 2);
  const PlanarImage *at = made.get();
  const CDib expected(DibFromPlanar(made.get()));
  const EditorPicture picture(std::move(made));
  EXPECT_EQ(picture.Planes(), at);
  // Only the part asked for, before and after the block exists.
  const QRect area(0, 30, 29, 1);
  const Planar before(picture.CopyArea(area));
  const CDib *block = picture.Picture();
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(BlockBytes(*block), BlockBytes(expected));
  EXPECT_EQ(picture.Picture()->Handle(), block->Handle());
  const Planar after(PlanarFromDib(*block, area));
  ASSERT_TRUE(before && after);
  EXPECT_EQ(PlaneBytes(*before), PlaneBytes(*after));
  EXPECT_NE(EditorPicture(*block).Serial(), picture.Serial());
}

TEST(EditorPicture, PlanesStayWhenNoBlockCanBeMade) {
  EditorPicture picture(NoisePlanes(4, 3, 3));
  Planar &planes = picture.StorageToReuse();
  const std::vector<uint8_t> bytes = PlaneBytes(*planes);
  // Sides whose block no memory holds; the conversion asks before it reads.
  const PlanarImage shape = *planes;
  planes->width = planes->height = planes->rowStride = 1 << 30;
  EXPECT_EQ(picture.Picture(), nullptr);
  *planes = shape;
  ASSERT_EQ(picture.Planes(), planes.get());
  EXPECT_EQ(PlaneBytes(*picture.Planes()), bytes);
  ASSERT_NE(picture.Picture(), nullptr);  // and made once there is room
}

}  // namespace
