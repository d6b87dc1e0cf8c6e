// The PNG and WebP metadata chunks, read back by walking the containers here
// rather than through the code that wrote them: chunk order, exact contents,
// checksums and sizes, what is replaced and what stays, and refusals that
// leave everything as it was.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "meta/chunks.h"
#include "meta/meta.h"
#include "tests/raster/testutil.h"

namespace {

using testutil::Bytes;

const std::string kData = std::string(KORVEL_TESTDATA_DIR) + "/";

struct Chunk {
  std::string type;
  Bytes data;
  bool crcOk = false;
};

// Every chunk of a PNG file; `tail` gets what follows IEND.
std::vector<Chunk> PngChunks(const Bytes &png, Bytes *tail = nullptr) {
  std::vector<Chunk> chunks;
  size_t at = 8;
  while (at + 12 <= png.size()) {
    const uint32_t length = testutil::GetField(png, at, 4, true);
    Chunk c;
    c.type.assign(png.begin() + at + 4, png.begin() + at + 8);
    c.data.assign(png.begin() + at + 8, png.begin() + at + 8 + length);
    const uint32_t crc = testutil::GetField(png, at + 8 + length, 4, true);
    c.crcOk = crc == (crc32(0, &png[at + 4], length + 4) & 0xffffffffu);
    chunks.push_back(c);
    at += 12 + length;
    if (c.type == "IEND") break;
  }
  if (tail) tail->assign(png.begin() + at, png.end());
  return chunks;
}

Bytes PngChunk(const char *type, const Bytes &data) {
  Bytes out(4);
  testutil::PutField(out, 0, static_cast<uint32_t>(data.size()), 4, true);
  out.insert(out.end(), type, type + 4);
  out.insert(out.end(), data.begin(), data.end());
  const uint32_t crc = crc32(0, out.data() + 4, static_cast<uInt>(data.size() + 4));
  out.resize(out.size() + 4);
  testutil::PutField(out, out.size() - 4, crc, 4, true);
  return out;
}

Bytes Text(const std::string &s) {
  return Bytes(s.begin(), s.end());
}

// A literal's bytes, zeros inside it included.
template <size_t N>
Bytes Lit(const char (&s)[N]) {
  return Bytes(s, s + N - 1);
}

// A 3x2 RGB PNG that already carries sRGB, a comment, an old eXIf and an old
// XMP packet, with a few bytes after IEND.
Bytes HandMadePng() {
  Bytes header(13, 0);
  testutil::PutField(header, 0, 3, 4, true);
  testutil::PutField(header, 4, 2, 4, true);
  header[8] = 8;  // depth
  header[9] = 2;  // RGB
  Bytes rows;
  for (int y = 0; y < 2; ++y) {
    rows.push_back(0);  // no filter
    for (int i = 0; i < 9; ++i)
      rows.push_back(static_cast<uint8_t>(y * 90 + i * 17));
  }
  uLongf size = compressBound(static_cast<uLong>(rows.size()));
  Bytes packed(size);
  compress(packed.data(), &size, rows.data(), static_cast<uLong>(rows.size()));
  packed.resize(size);
  Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  for (const Bytes &chunk :
       {PngChunk("IHDR", header), PngChunk("sRGB", {0}), PngChunk("tEXt", Lit("Comment\0hi")),
        PngChunk("eXIf", Lit("MM\0*old")),
        PngChunk("iTXt", Lit("XML:com.adobe.xmp\0\0\0\0\0<old/>")), PngChunk("IDAT", packed),
        PngChunk("IEND", {})})
    png.insert(png.end(), chunk.begin(), chunk.end());
  png.insert(png.end(), {'x', 'y'});
  return png;
}

MetaBlocks SomeBlocks() {
  MetaBlocks blocks;
  blocks.exif = {'I', 'I', '*', 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0};  // no entries
  blocks.xmp = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>";
  for (int i = 0; i < 300; ++i)
    blocks.icc.push_back(static_cast<uint8_t>(i * 7));
  return blocks;
}

std::vector<std::string> Types(const std::vector<Chunk> &chunks) {
  std::vector<std::string> types;
  for (const Chunk &c : chunks)
    types.push_back(c.type);
  return types;
}

testutil::Picture Decoded(const Bytes &file, const std::string &name) {
  const std::string path = testutil::TempPath(name);
  testutil::WriteFile(path, file);
  testutil::Picture picture;
  EXPECT_EQ(testutil::ReadPicture(path, &picture), RasOk) << name;
  return picture;
}

TEST(MetaChunks, PngTakesItsChunksAfterTheHeaderAndKeepsTheRest) {
  const Bytes png = HandMadePng();
  const MetaBlocks blocks = SomeBlocks();
  Bytes out;
  std::string error;
  ASSERT_TRUE(PngWithMeta(png, blocks, &out, &error)) << error;
  Bytes tail;
  const std::vector<Chunk> before = PngChunks(png), after = PngChunks(out, &tail);
  EXPECT_EQ(Types(after),
            (std::vector<std::string>{"IHDR", "iCCP", "eXIf", "iTXt", "tEXt", "IDAT", "IEND"}));
  for (const Chunk &c : after)
    EXPECT_TRUE(c.crcOk) << c.type;
  EXPECT_EQ(after[0].data, before[0].data);
  EXPECT_EQ(after[4].data, before[2].data);  // the comment
  EXPECT_EQ(after[5].data, before[5].data);  // the picture
  EXPECT_EQ(tail, Text("xy"));
  // iCCP: the name, its zero, method 0, then the profile deflated.
  const Bytes name = Lit("ICC Profile\0\0");
  ASSERT_GT(after[1].data.size(), name.size());
  EXPECT_TRUE(std::equal(name.begin(), name.end(), after[1].data.begin()));
  uLongf size = 4096;
  Bytes profile(size);
  ASSERT_EQ(uncompress(profile.data(), &size, after[1].data.data() + name.size(),
                       static_cast<uLong>(after[1].data.size() - name.size())),
            Z_OK);
  profile.resize(size);
  EXPECT_EQ(profile, blocks.icc);
  EXPECT_EQ(after[2].data, blocks.exif);
  EXPECT_EQ(after[3].data, Text(std::string("XML:com.adobe.xmp\0\0\0\0\0", 22) + blocks.xmp));
  EXPECT_TRUE(Decoded(out, "chunked.png") == Decoded(png, "plain.png"));

  // Only EXIF: the old eXIf goes, the sRGB claim and the old XMP stay.
  MetaBlocks exifOnly;
  exifOnly.exif = blocks.exif;
  ASSERT_TRUE(PngWithMeta(png, exifOnly, &out, &error)) << error;
  EXPECT_EQ(Types(PngChunks(out)),
            (std::vector<std::string>{"IHDR", "eXIf", "sRGB", "tEXt", "iTXt", "IDAT", "IEND"}));
}

TEST(MetaChunks, PngRefusalsLeaveTheOutputAlone) {
  const Bytes png = HandMadePng();
  const struct {
    Bytes bytes;
    const char *error;
  } kCases[] = {
      {Text("GIF89a..."), "not a PNG file"},
      {Bytes(png.begin(), png.end() - 16), "the PNG file is cut short"},
      {Bytes(png.begin(), png.begin() + 40), "the PNG file is cut short"},
      {[&] {
         Bytes swapped = png;
         std::memcpy(&swapped[12], "IHDX", 4);
         return swapped;
       }(),
       "the PNG file does not start with IHDR"},
  };
  for (const auto &c : kCases) {
    Bytes out = Text("untouched");
    std::string error;
    EXPECT_FALSE(PngWithMeta(c.bytes, SomeBlocks(), &out, &error));
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(out, Text("untouched"));
  }
}

struct RiffChunk {
  std::string type;
  Bytes data;
};

// The chunks of a WebP file, after checking the RIFF header's size and the
// even padding of every chunk.
std::vector<RiffChunk> WebpChunks(const Bytes &webp) {
  EXPECT_EQ(std::string(webp.begin(), webp.begin() + 4), "RIFF");
  EXPECT_EQ(testutil::GetField(webp, 4, 4), webp.size() - 8);
  EXPECT_EQ(std::string(webp.begin() + 8, webp.begin() + 12), "WEBP");
  std::vector<RiffChunk> chunks;
  size_t at = 12;
  while (at + 8 <= webp.size()) {
    const uint32_t length = testutil::GetField(webp, at + 4, 4);
    chunks.push_back({std::string(webp.begin() + at, webp.begin() + at + 4),
                      Bytes(webp.begin() + at + 8, webp.begin() + at + 8 + length)});
    at += 8 + length + (length & 1);
  }
  EXPECT_EQ(at, webp.size());
  return chunks;
}

TEST(MetaChunks, WebpBecomesExtendedWithOneChunkOfEachKind) {
  const MetaBlocks blocks = SomeBlocks();
  for (const char *file :
       {"webp/pillow__hopper.webp", "webp/imagers__images_webp_lossless_images_simple_xmp.webp",
        "webp/pillow__flower.webp"}) {
    SCOPED_TRACE(file);
    const Bytes webp = testutil::ReadFile(kData + file);
    Bytes out;
    std::string error;
    ASSERT_TRUE(WebpWithMeta(webp, blocks, &out, &error)) << error;
    const std::vector<RiffChunk> chunks = WebpChunks(out);
    ASSERT_GE(chunks.size(), 5u);
    ASSERT_EQ(chunks[0].type, "VP8X");
    // Flags: ICC 0x20, EXIF 0x08, XMP 0x04; the canvas is the picture's.
    EXPECT_EQ(chunks[0].data[0] & 0x2c, 0x2c);
    const testutil::Picture picture = Decoded(webp, "plain.webp");
    EXPECT_EQ(testutil::GetField(chunks[0].data, 4, 3) + 1, picture.width);
    EXPECT_EQ(testutil::GetField(chunks[0].data, 7, 3) + 1, picture.height);
    std::vector<std::string> types;
    for (const RiffChunk &c : chunks)
      types.push_back(c.type);
    const std::string image = types[types.size() - 3];
    EXPECT_TRUE(image == "VP8 " || image == "VP8L") << image;
    EXPECT_EQ(types, (std::vector<std::string>{"VP8X", "ICCP", image, "EXIF", "XMP "}));
    EXPECT_EQ(chunks[1].data, blocks.icc);
    EXPECT_EQ(chunks[3].data, blocks.exif);
    EXPECT_EQ(chunks[4].data, Text(blocks.xmp));
    EXPECT_TRUE(Decoded(out, "chunked.webp") == picture);

    // A second pass replaces the chunks rather than adding more.
    MetaBlocks other;
    other.exif = {'M', 'M', 0, '*', 0, 0, 0, 8, 0, 0, 0, 0, 0, 0};
    Bytes again;
    ASSERT_TRUE(WebpWithMeta(out, other, &again, &error)) << error;
    const std::vector<RiffChunk> second = WebpChunks(again);
    ASSERT_EQ(second.size(), 5u);
    EXPECT_EQ(second[3].data, other.exif);
    EXPECT_EQ(second[4].data, Text(blocks.xmp));
  }
  Bytes out = Text("untouched");
  std::string error;
  EXPECT_FALSE(WebpWithMeta(Lit("RIFF\14\0\0\0WEBPjunk"), blocks, &out, &error));
  EXPECT_EQ(error, "not a WebP file");
  EXPECT_EQ(out, Text("untouched"));
}

// A save hands MetaWrite its finished file; one the chunk writer refuses
// keeps its bytes, and no temporary file is left beside it.
TEST(MetaChunks, AFailedRewriteLeavesTheFileAsItWas) {
  const std::filesystem::path folder = testutil::TempPath("chunkfail");
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  const std::string path = (folder / "cut.png").string();
  const Bytes png = HandMadePng();
  const Bytes cut(png.begin(), png.end() - 30);
  testutil::WriteFile(path, cut);
  PhotoMeta meta;
  meta.icc = SomeBlocks().icc;
  std::string error;
  EXPECT_FALSE(MetaWrite(path.c_str(), meta, MetaSaveInfo{3, 2, 1}, &error));
  EXPECT_EQ(error, "the PNG file is cut short");
  EXPECT_EQ(testutil::ReadFile(path), cut);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder),
                          std::filesystem::directory_iterator()),
            1);
  // The whole file takes the profile in place of its sRGB claim.
  testutil::WriteFile(path, png);
  ASSERT_TRUE(MetaWrite(path.c_str(), meta, MetaSaveInfo{3, 2, 1}, &error)) << error;
  EXPECT_EQ(Types(PngChunks(testutil::ReadFile(path))),
            (std::vector<std::string>{"IHDR", "iCCP", "tEXt", "eXIf", "iTXt", "IDAT", "IEND"}));
  EXPECT_TRUE(MetaWritable(path.c_str()));
  std::filesystem::remove_all(folder);
}

}  // namespace
