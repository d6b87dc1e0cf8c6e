// HEIC and AVIF files: what heif-enc makes decodes close to the picture it
// was given, and what the library writes reads back close to what it wrote.
// Both codecs are lossy and convert RGB to YCbCr with halved chroma, so
// "close" is a mean difference below 3 levels and no sample off by more
// than 40 on a smooth picture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <thread>

#include "raster/heif.h"
#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

void ExpectClose(const Picture &back, const Picture &want) {
  ASSERT_EQ(back.planes.size(), want.planes.size());
  double sum = 0;
  for (size_t k = 0; k < want.planes.size(); ++k)
    for (size_t i = 0; i < want.planes[k].size(); ++i)
      sum += std::abs(int(back.planes[k][i]) - int(want.planes[k][i]));
  EXPECT_LT(sum / (want.planes.size() * want.planes[0].size()), 3.0);
  EXPECT_LE(MaxDifference(back, want), 40);
}

TEST(Heif, FilesHeifEncMakesDecodeCloseToTheirSource) {
  if (!Shell("command -v heif-enc")) GTEST_SKIP() << "libheif-examples missing";
  const Picture picture = Smooth(64, 48, 4);
  const std::string source = TempPath("heif_source.png");
  ASSERT_EQ(WritePicture(source, RasFormatPng, RasModelRgb, picture), RasOk);
  for (const auto &[options, name, format] :
       {std::tuple("-q 90", "enc.heic", RasFormatHeic), {"-A -q 90", "enc.avif", RasFormatAvif}}) {
    SCOPED_TRACE(name);
    const std::string file = TempPath(name);
    ASSERT_TRUE(Shell(std::string("heif-enc ") + options + " -o " + file + " " + source));
    Picture back;
    RasDesc desc{};
    ASSERT_EQ(ReadPicture(file, &back, &desc, {47, 3, 0}), RasOk);
    EXPECT_EQ(std::tuple(desc.format, desc.width, desc.height, desc.channels, desc.maxval),
              std::tuple(format, 64u, 48u, 4u, 255u));
    ASSERT_EQ(ReadPicture(file, &back), RasOk);
    ExpectClose(back, picture);
  }
}

TEST(Heif, WhatIsWrittenReadsBackCloseAndBadWritesAreRefused) {
  for (const uint32_t format : {RasFormatHeic, RasFormatAvif}) {
    SCOPED_TRACE(RasFormatName(format));
    if (!HeifCanWrite(format)) continue;  // this libheif has no encoder for it
    for (const uint32_t channels : {3u, 4u}) {
      const Picture picture = Smooth(40, 30, channels);
      const std::string file = TempPath("written.heif");
      ASSERT_EQ(WritePicture(file, format, RasModelRgb, picture), RasOk);
      Picture back;
      RasDesc desc{};
      ASSERT_EQ(ReadPicture(file, &back, &desc), RasOk);
      EXPECT_EQ(desc.format, format);
      ExpectClose(back, picture);
    }
    ErrorLog log;
    RasDesc desc{};
    ASSERT_EQ(RasSetDesc(&desc, format, 8, 8, 4, RasModelCmyk, -1.0f), RasOk);
    EXPECT_EQ(RasOpen(TempPath("cmyk.heic").c_str(), 'w', &desc), RasErrArg);
    EXPECT_EQ(log.Last(), (Logged{"HeifOpen", RasErrArg, 5}));
  }
}

Bytes Exif() {
  return {'I', 'I', '*', 0, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0};
}

// The metadata set for the next file goes into that file alone, as items
// readers find (the EXIF after an "Exif\0\0" mark its header offset steps
// over) and as the picture's colour profile; a failed open or another
// thread's setting leaves later files without any.
TEST(Heif, MetadataGoesIntoTheNextFileWrittenOnTheThread) {
  if (!HeifCanWrite(RasFormatHeic)) GTEST_SKIP() << "no HEVC encoder";
  const Picture picture = Smooth(40, 30, 3);
  const Bytes exif = Exif();
  const std::string xmp = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>";
  Bytes icc(300);  // any bytes: the library keeps a raw profile as it is
  for (size_t i = 0; i < icc.size(); ++i)
    icc[i] = static_cast<uint8_t>(i * 7);
  HeifSetNextMeta(exif.data(), exif.size(), xmp.data(), xmp.size(), icc.data(), icc.size());
  const std::string with = TempPath("with-meta.heic");
  ASSERT_EQ(WritePicture(with, RasFormatHeic, RasModelRgb, picture), RasOk);
  const Bytes file = ReadFile(with);
  Bytes item = {0, 0, 0, 6, 'E', 'x', 'i', 'f', 0, 0};
  item.insert(item.end(), exif.begin(), exif.end());
  EXPECT_NE(std::search(file.begin(), file.end(), item.begin(), item.end()), file.end());
  Bytes gotExif, gotIcc;
  std::string gotXmp;
  ASSERT_TRUE(HeifReadMeta(file.data(), file.size(), &gotExif, &gotXmp, &gotIcc));
  EXPECT_EQ(gotExif, exif);
  EXPECT_EQ(gotXmp, xmp);
  EXPECT_EQ(gotIcc, icc);
  Picture back;
  ASSERT_EQ(ReadPicture(with, &back), RasOk);
  ExpectClose(back, picture);

  const auto expectBare = [&](const std::string &name) {
    const Bytes bare = ReadFile(name);
    ASSERT_TRUE(HeifReadMeta(bare.data(), bare.size(), &gotExif, &gotXmp, &gotIcc));
    EXPECT_TRUE(gotExif.empty() && gotXmp.empty() && gotIcc.empty()) << name;
  };
  // Taken by that file: the next has none.
  const std::string next = TempPath("next.heic");
  ASSERT_EQ(WritePicture(next, RasFormatHeic, RasModelRgb, picture), RasOk);
  expectBare(next);
  // An open that fails takes it too.
  HeifSetNextMeta(exif.data(), exif.size(), nullptr, 0, nullptr, 0);
  RasDesc desc{};
  ASSERT_EQ(RasSetDesc(&desc, RasFormatHeic, 8, 8, 4, RasModelCmyk, -1.0f), RasOk);
  EXPECT_NE(RasOpen(TempPath("cmyk.heic").c_str(), 'w', &desc), RasOk);
  ASSERT_EQ(WritePicture(next, RasFormatHeic, RasModelRgb, picture), RasOk);
  expectBare(next);
  // Another thread's setting stays on that thread.
  std::thread([&] { HeifSetNextMeta(exif.data(), exif.size(), nullptr, 0, nullptr, 0); }).join();
  ASSERT_EQ(WritePicture(next, RasFormatHeic, RasModelRgb, picture), RasOk);
  expectBare(next);
  // Bytes that are no HEIF file.
  EXPECT_FALSE(HeifReadMeta(exif.data(), exif.size(), &gotExif, &gotXmp, &gotIcc));
}

}  // namespace

// The HEVC encoder that libheif drives keeps a few blocks from each encoder
// it opens after heif_encoder_release has closed it; they are that library's,
// not ours, so the leak check of the sanitizer build passes over them only.
extern "C" const char *__lsan_default_suppressions() {
  return "leak:libx265.so\n";
}
