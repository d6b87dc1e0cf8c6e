// The photo image: geometry rules, shared blocks and the reference table,
// drawing, and the conversions to and from files and planes.
#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>
#include <cstring>
#include <string_view>
#include <vector>

#include "photo/dib.h"
#include "photo/dibplanar.h"
#include "photo/dibpreview.h"
#include "photo/dibraster.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "platform/workers.h"
#include "tests/raster/testutil.h"

namespace {

// A packed DIB of any depth with room for a colour table, zeroed after the
// header but for `bytes` written right behind it.
HGLOBAL MakeBlock(int32_t width, int32_t height, uint16_t bpp, uint32_t clrUsed = 0,
                  uint32_t compression = 0, size_t tableBytes = 0, std::string_view bytes = {}) {
  const size_t rowSize = ((size_t(width) * bpp + 31) / 32) * 4;
  HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT,
                          40 + tableBytes + rowSize * size_t(std::abs(height)));
  BITMAPINFOHEADER header{40, width, height, 1, bpp, compression, 0, 0, 0, clrUsed, 0};
  auto *b = static_cast<uint8_t *>(GlobalLock(h));
  std::memcpy(b, &header, sizeof header);
  if (!bytes.empty()) std::memcpy(b + 40, bytes.data(), bytes.size());
  GlobalUnlock(h);
  return h;
}

// A 24-bit picture holding `pic`'s first three planes, made the way a file is opened.
HGLOBAL BlockOf(const testutil::Picture &pic) {
  PlanarImage *p = PlanarCreate(int32_t(pic.width), int32_t(pic.height), 3);
  for (uint32_t k = 0; k < 3; ++k)
    std::memcpy(p->planes[k], pic.planes[k].data(), pic.planes[k].size());
  HGLOBAL h = DibFromPlanar(p);
  PlanarFree(p);
  return h;
}

TEST(Dib, GeometryRules) {
  for (auto [width, rowSize] : {std::pair{1, 4}, {2, 8}, {3, 12}, {4, 12}}) {
    CDib dib(MakeBlock(width, 2, 24));
    EXPECT_EQ(dib.RowSize(), rowSize) << width;
  }
  // The colour-table rule, odd 16- and 32-bit answers included.
  const struct {
    uint16_t bpp;
    uint32_t clrUsed, entries;
  } tables[] = {{1, 0, 2}, {4, 0, 16}, {8, 0, 256}, {8, 5, 5}, {16, 0, 0}, {24, 0, 0}, {32, 0, 1}};
  for (const auto &t : tables) {
    CDib dib(MakeBlock(4, 2, t.bpp, t.clrUsed, 0, 1024));
    EXPECT_EQ(dib.PaletteSize(), t.entries) << t.bpp;
    EXPECT_EQ(dib.Bits(), reinterpret_cast<uint8_t *>(dib.Header()) + 40 + t.entries * 4);
  }
  // Bottom-up rows are stored last row first; top-down ones as they are.
  CDib up(MakeBlock(3, 3, 24)), down(MakeBlock(3, -3, 24));
  EXPECT_EQ(up.RowPointer(0), up.Bits() + 2 * 12);
  EXPECT_EQ(up.RowPointer(2), up.Bits());
  EXPECT_EQ(down.Height(), 3u);
  EXPECT_EQ(down.RowPointer(0), down.Bits());
  EXPECT_EQ(down.RowPointer(2), down.Bits() + 2 * 12);
  // Empty and unlocked pictures answer with zeros and nulls.
  CDib empty;
  EXPECT_EQ(empty.Width(), 0u);
  EXPECT_EQ(empty.Height(), 0u);
  EXPECT_EQ(empty.PaletteSize(), 0u);
  EXPECT_EQ(empty.RowPointer(0), nullptr);
  EXPECT_EQ(empty.Attach(nullptr), 0);
  HGLOBAL tiny = GlobalAlloc(GMEM_MOVEABLE, 8);  // too short for a header
  CDib shortBlock(tiny);
  EXPECT_EQ(shortBlock.Header(), nullptr);
  EXPECT_EQ(shortBlock.RowPointer(0), nullptr);
}

TEST(Dib, CopiesShareOneBlockFreedExactlyOnce) {
  EXPECT_FALSE(DibRefTableAllocated());
  HGLOBAL h = MakeBlock(4, 4, 24);
  {
    auto *first = new CDib(h);
    EXPECT_TRUE(DibRefTableAllocated());
    CDib second(*first);
    EXPECT_EQ(DibRefCount(h), 2);
    EXPECT_EQ(GlobalLockCount(h), 2u);
    second = second;  // never frees the block
    second = *first;
    EXPECT_EQ(DibRefCount(h), 2);
    delete first;
    EXPECT_EQ(DibRefCount(h), 1);
    EXPECT_EQ(second.Width(), 4u);
    EXPECT_NE(second.RowPointer(3), nullptr);
    EXPECT_EQ(GlobalSize(h), 40u + 4 * 12);  // still alive
  }
  EXPECT_EQ(GlobalSize(h), 0u);  // freed with the last holder
  EXPECT_EQ(DibRefEntries(), 0);
  EXPECT_FALSE(DibRefTableAllocated());

  // Assigning another picture releases the old block first held.
  HGLOBAL a = MakeBlock(1, 1, 24), b = MakeBlock(2, 2, 24);
  CDib x(a), y(b);
  x = y;
  EXPECT_EQ(GlobalSize(a), 0u);
  EXPECT_EQ(DibRefCount(b), 2);
  x.Detach();
  EXPECT_EQ(x.Handle(), nullptr);
  EXPECT_EQ(x.Width(), 0u);
  EXPECT_EQ(DibRefCount(b), 1);

  // More handles than one block of entries; releasing an unheld handle frees it.
  std::vector<CDib> many;
  for (int i = 0; i < 25; ++i)
    many.emplace_back(MakeBlock(1, 1, 24));
  EXPECT_EQ(DibRefEntries(), 26);
  for (const CDib &d : many)
    EXPECT_EQ(DibRefCount(d.Handle()), 1);
  many.clear();
  EXPECT_EQ(DibRefEntries(), 1);
  HGLOBAL stray = MakeBlock(1, 1, 24);
  DibRelease(stray);
  EXPECT_EQ(GlobalSize(stray), 0u);
  DibAddRef(nullptr);
  DibRelease(nullptr);
  EXPECT_EQ(DibRefEntries(), 1);
}

// Paints the picture into a grey canvas and returns the canvas.
QImage Painted(const CDib &dib, QSize canvas, QRect target) {
  QImage image(canvas, QImage::Format_RGB32);
  image.fill(qRgb(1, 2, 3));
  QPainter painter(&image);
  dib.Draw(&painter, target.left(), target.top(), target.right() + 1, target.bottom() + 1);
  return image;
}

TEST(Dib, DrawsStretchedAndKeepsPreviewsOnlyWhileTheBlockIsUnchanged) {
  const testutil::Picture pic = testutil::Pattern(40, 30, 3);
  CDib dib(BlockOf(pic));
  // Drawn at its own size, every pixel lands as it is.
  QImage one = Painted(dib, {60, 50}, {10, 5, 40, 30});
  for (uint32_t y = 0; y < 30; ++y)
    for (uint32_t x = 0; x < 40; ++x)
      ASSERT_EQ(one.pixel(int(x) + 10, int(y) + 5),
                qRgb(pic.At(x, y, 0), pic.At(x, y, 1), pic.At(x, y, 2)))
          << x << "," << y;
  EXPECT_EQ(one.pixel(9, 5), qRgb(1, 2, 3));
  // Enlarged, each pixel becomes a square.
  QImage two = Painted(dib, {80, 60}, {0, 0, 80, 60});
  EXPECT_EQ(two.pixel(7, 9), qRgb(pic.At(3, 4, 0), pic.At(3, 4, 1), pic.At(3, 4, 2)));
  EXPECT_EQ(two.pixel(6, 8), two.pixel(7, 9));
  // An empty picture draws nothing.
  EXPECT_EQ(Painted(CDib(), {8, 8}, {0, 0, 8, 8}).pixel(4, 4), qRgb(1, 2, 3));

  // Reduced strongly: averaged squares, from a preview made once.
  HGLOBAL h = MakeBlock(400, 300, 24);
  CDib big(h);
  for (uint32_t y = 0; y < 300; ++y)
    for (uint32_t x = 0; x < 400; ++x)
      std::memcpy(big.RowPointer(int32_t(y)) + 3 * x, x < 200 ? "\x10\x20\xF0" : "\xF0\x80\x00", 3);
  const size_t before = DibPreviewBytes();
  QImage thumb = Painted(big, {100, 100}, {0, 0, 100, 75});
  EXPECT_EQ(thumb.pixel(20, 40), qRgb(0xF0, 0x20, 0x10));
  EXPECT_EQ(thumb.pixel(80, 40), qRgb(0x00, 0x80, 0xF0));
  EXPECT_EQ(thumb.pixel(50, 80), qRgb(1, 2, 3));
  const size_t withPreview = DibPreviewBytes();
  EXPECT_GT(withPreview, before);
  Painted(big, {100, 100}, {0, 0, 100, 75});
  EXPECT_EQ(DibPreviewBytes(), withPreview);  // drawn again from the same preview
  // Rewritten in place and announced: the next paint shows the new pixels.
  for (uint32_t y = 0; y < 300; ++y)
    std::memset(big.RowPointer(int32_t(y)), 0x40, 1200);
  GlobalTouch(h);
  EXPECT_EQ(Painted(big, {100, 100}, {0, 0, 100, 75}).pixel(20, 40), qRgb(0x40, 0x40, 0x40));
  big.Detach();
  EXPECT_EQ(DibPreviewBytes(), before);  // a freed block keeps no previews
}

TEST(Dib, DrawsPicturesOfOtherDepths) {
  // 8 bits with a two-colour table (red, blue), top-down.
  CDib pal(MakeBlock(2, -1, 8, 2, 0, 8, {"\x00\x00\xFF\x00\xFF\x00\x00\x00\x01\x00", 10}));
  QImage p = Painted(pal, {2, 1}, {0, 0, 2, 1});
  EXPECT_EQ(p.pixel(0, 0), qRgb(0, 0, 255));
  EXPECT_EQ(p.pixel(1, 0), qRgb(255, 0, 0));
  // 16 bits, five to a channel: green is 0x1F << 5.
  CDib d16(MakeBlock(1, 1, 16, 0, 0, 0, {"\xE0\x03", 2}));
  EXPECT_EQ(Painted(d16, {1, 1}, {0, 0, 1, 1}).pixel(0, 0), qRgb(0, 255, 0));
  // Compressed pictures and blocks shorter than their header claims draw nothing.
  CDib rle(MakeBlock(4, 4, 8, 0, 1, 1024));
  EXPECT_EQ(Painted(rle, {4, 4}, {0, 0, 4, 4}).pixel(1, 1), qRgb(1, 2, 3));
  HGLOBAL cut = MakeBlock(4, 4, 24);
  ASSERT_NE(GlobalReAlloc(cut, 50, GMEM_MOVEABLE), nullptr);
  CDib shortened(cut);
  EXPECT_EQ(Painted(shortened, {4, 4}, {0, 0, 4, 4}).pixel(1, 1), qRgb(1, 2, 3));
  // Planes from a palette picture are its colours.
  PlanarImage *planes = PlanarFromDib(pal);
  ASSERT_NE(planes, nullptr);
  EXPECT_EQ(planes->planes[0][1], 255);
  EXPECT_EQ(planes->planes[2][0], 255);
  PlanarFree(planes);
}

TEST(Dib, FilesBecomeBottomUpPicturesAndComeBackUnchanged) {
  for (auto [width, height] : {std::pair{1u, 5u}, {2u, 3u}, {3u, 2u}, {4u, 1u}, {5u, 9u}}) {
    const testutil::Picture pic = testutil::Pattern(width, height, 3);
    const std::string in = testutil::TempPath("in.bmp"), out = testutil::TempPath("out.tif");
    ASSERT_EQ(testutil::WritePicture(in, RasFormatBmp, RasModelRgb, pic), RasOk);
    CKorvelAppDoc doc;
    ASSERT_TRUE(OpenPhotoFile(&doc, QString::fromStdString(in)));
    const CDib &dib = doc.ImageAt(0);
    const BITMAPINFOHEADER want{
        40, int32_t(width), int32_t(height), 1, 24, 0, width * height * 3, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(dib.Header(), &want, 40), 0);
    EXPECT_GE(GlobalSize(dib.Handle()), 40 + size_t(dib.RowSize()) * height);
    const uint8_t *last = dib.Bits();  // the bottom row is stored first
    EXPECT_EQ(last[0], pic.At(0, height - 1, 2));
    EXPECT_EQ(last[2], pic.At(0, height - 1, 0));
    for (uint32_t y = 0; y < height; ++y)
      for (uint32_t at = width * 3; at < uint32_t(dib.RowSize()); ++at)
        EXPECT_EQ(dib.RowPointer(int32_t(y))[at], 0) << "padding";

    ASSERT_TRUE(SavePicture(RasFormatTiff, QString::fromStdString(out), dib));
    testutil::Picture back;
    ASSERT_EQ(testutil::ReadPicture(out, &back), RasOk);
    EXPECT_TRUE(back == pic) << width << "x" << height;
  }
  // The reserved size follows the width's padding, and covers every row.
  EXPECT_EQ(DibBlockBytes(5, 2), 40u + 30 + 1 * 5);
  EXPECT_EQ(DibBlockBytes(2, 9), 40u + 54 + 2 * 9);
  EXPECT_EQ(DibBlockBytes(4, 4), 40u + 48);
}

TEST(Dib, PlanesAndPicturesConvertBothWays) {
  for (auto [width, height] : {std::pair{1, 7}, {7, 1}, {641, 3}, {3, 700}}) {
    const testutil::Picture pic = testutil::Pattern(uint32_t(width), uint32_t(height), 3);
    CDib dib(BlockOf(pic));
    ASSERT_NE(dib.Header(), nullptr);
    EXPECT_EQ(dib.Header()->biSizeImage, uint32_t(width * height * 3));
    EXPECT_EQ(GlobalSize(dib.Handle()), DibPlanarBlockBytes(uint32_t(width), uint32_t(height)));
    EXPECT_EQ(dib.RowPointer(0)[0], pic.At(0, 0, 2));  // blue first
    PlanarImage *p = PlanarFromDib(dib);
    ASSERT_NE(p, nullptr);
    for (uint32_t k = 0; k < 3; ++k)
      EXPECT_EQ(std::memcmp(p->planes[k], pic.planes[k].data(), pic.planes[k].size()), 0) << k;
    PlanarFree(p);
  }
  // 40 + w*h*3 + (w / 1024 + 1) * pad * 1024, unless the rows need more.
  EXPECT_EQ(DibPlanarBlockBytes(641, 3), 40u + 641 * 3 * 3 + 1024);
  EXPECT_EQ(DibPlanarBlockBytes(2049, 2), 40u + 2049 * 2 * 3 + 3 * 1 * 1024);
  EXPECT_EQ(DibPlanarBlockBytes(640, 480), 40u + 640 * 480 * 3);
  EXPECT_EQ(DibPlanarBlockBytes(3, 2000), 40u + 3 * 2000 * 3 + 3 * 2000);
  EXPECT_EQ(PlanarFromDib(CDib()), nullptr);
  EXPECT_EQ(DibFromPlanar(nullptr), nullptr);
}

// The conversions share rows out among threads; on sizes that split unevenly
// every byte must match the one-thread result, padding included.
TEST(Dib, ConversionsGiveTheSameBytesOnEveryThreadCount) {
  const auto once = [](int threads, const testutil::Picture &pic, const QRect &area) {
    const int old = SetWorkerLimit(threads);
    CDib dib(BlockOf(pic));
    const auto *block = static_cast<const uint8_t *>(GlobalLock(dib.Handle()));
    std::vector<uint8_t> bytes(block, block + GlobalSize(dib.Handle()));
    GlobalUnlock(dib.Handle());
    const Planar part(PlanarFromDib(dib, area));
    for (uint32_t k = 0; k < 3 && part; ++k)
      for (int y = 0; y < area.height(); ++y)
        bytes.insert(bytes.end(), part->planes[k] + size_t(y) * size_t(part->rowStride),
                     part->planes[k] + size_t(y) * size_t(part->rowStride) + area.width());
    const QImage image = ImageFromPlanar(part.get());
    SetWorkerLimit(old);
    return std::pair{bytes, image};
  };
  for (auto [width, height] : {std::pair{1, 45}, {45, 1}, {37, 203}, {1031, 67}}) {
    const testutil::Picture pic = testutil::Pattern(uint32_t(width), uint32_t(height), 3);
    const QRect area(width / 3, height / 4, width - width / 3, height - height / 2);
    const auto [bytes, image] = once(1, pic, area);
    EXPECT_EQ(once(0, pic, area), std::pair(bytes, image)) << width << "x" << height;
    ASSERT_FALSE(image.isNull());
    const QPoint last = area.bottomRight();
    EXPECT_EQ(image.pixel(area.width() - 1, area.height() - 1),
              qRgb(pic.At(uint32_t(last.x()), uint32_t(last.y()), 0),
                   pic.At(uint32_t(last.x()), uint32_t(last.y()), 1),
                   pic.At(uint32_t(last.x()), uint32_t(last.y()), 2)));
  }
}

}  // namespace
