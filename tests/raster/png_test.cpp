// PNG files: every kind the writer makes comes back sample for sample, files
// that ImageMagick writes decode to what pngtopnm decodes, damage is refused
// with the reason logged, and alpha is flattened on white for display.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <tuple>

#include "raster/ras.h"
#include "raster/rasrgb.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

TEST(Png, EveryKindWrittenComesBackAndRowsMayGoBack) {
  const std::vector<uint32_t> jumbled = {3, 0, 4, 1, 2};  // read order, going back twice
  for (const uint32_t channels : {1u, 3u, 4u}) {
    SCOPED_TRACE(channels);
    const uint32_t model = channels == 1 ? RasModelGray : RasModelRgb;
    const std::string narrow = TempPath("narrow.png"), wide = TempPath("wide.png");
    const Picture picture = Pattern(9, 5, channels);
    RasDesc desc{};
    ASSERT_EQ(WritePicture(narrow, RasFormatPng, model, picture, 300.0f), RasOk);
    Picture back;
    ASSERT_EQ(ReadPicture(narrow, &back, &desc, jumbled), RasOk);
    EXPECT_TRUE(back == picture);
    EXPECT_EQ(std::tuple(desc.format, desc.model, desc.maxval),
              std::tuple(RasFormatPng, model, 255u));
    EXPECT_NEAR(desc.resolution, 300.0f, 0.05f);
    const Planes16 planes = Pattern16(9, 5, channels, 65535);
    ASSERT_EQ(WritePlanes16(wide, RasFormatPng, model, 9, 5, planes), RasOk);
    Planes16 wideBack;
    ASSERT_EQ(ReadPlanes16(wide, &desc, &wideBack), RasOk);
    EXPECT_EQ(wideBack, planes);
    EXPECT_EQ(desc.maxval, 65535u);
  }
}

// The reference: pngtopnm's colours, and its alpha plane when the file has one.
Samples DecodedByPngtopnm(const std::string &png, uint32_t channels) {
  const Samples colour =
      Shell("pngtopnm " + png + " > " + png + ".pnm") ? ReadNetpbm(png + ".pnm") : Samples{};
  if (colour.values.empty() || channels == colour.channels) return colour;
  Samples alpha;
  if (channels == 4 && Shell("pngtopnm -alpha " + png + " > " + png + ".pgm"))
    alpha = ReadNetpbm(png + ".pgm");
  Samples out = colour;
  out.channels = channels;
  out.values.clear();
  for (size_t i = 0; i < size_t{colour.width} * colour.height; ++i) {
    for (uint32_t k = 0; k < 3; ++k)
      out.values.push_back(colour.values[i * colour.channels + (colour.channels == 1 ? 0 : k)]);
    if (channels == 4) out.values.push_back(alpha.values.empty() ? 0 : alpha.values[i]);
  }
  return out;
}

TEST(Png, FilesImageMagickWritesDecodeAsPngtopnmDecodesThem) {
  if (!Shell("command -v convert-im6.q16 && command -v pngtopnm"))
    GTEST_SKIP() << "imagemagick/netpbm";
  const std::string source = TempPath("im_source.bmp");
  ASSERT_EQ(WritePicture(source, RasFormatBmp, RasModelRgb, Pattern(23, 7, 3)), RasOk);
  const std::string alpha =
      " \\( +clone -channel R -separate \\) -alpha off -compose CopyOpacity"
      " -composite ";
  const struct {
    const char *name, *options;
    uint32_t channels, maxval;
  } cases[] = {{"rgb", " PNG24:", 3, 255},
               {"palette", " -colors 40 PNG8:", 3, 255},
               {"rgb16", " -depth 16 PNG48:", 3, 65535},
               {"grey16", " -colorspace Gray -depth 16 PNG:", 1, 65535},
               {"rgba_interlaced", " PNG32:", 4, 255},
               {"grey_alpha", " -colorspace Gray -define png:color-type=4 PNG:", 4, 255}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    const std::string png = TempPath(std::string(c.name) + ".png");
    const bool withAlpha = c.channels == 4;
    const std::string interlace =
        std::string(c.name).find("interlaced") != std::string::npos ? "-interlace PNG " : "";
    ASSERT_TRUE(Shell("convert-im6.q16 " + source + (withAlpha ? alpha : " ") + interlace +
                      c.options + png));
    int code = 0;
    const Samples ours = ReadSamples(png, &code);
    ASSERT_EQ(code, RasOk);
    EXPECT_EQ(std::tuple(ours.channels, ours.maxval), std::tuple(c.channels, c.maxval));
    EXPECT_TRUE(ours == DecodedByPngtopnm(png, c.channels));
  }
}

TEST(Png, DamageIsRefusedWithItsReasonAndNoPicture) {
  const std::string good = TempPath("good.png"), bad = TempPath("bad.png");
  ASSERT_EQ(WritePicture(good, RasFormatPng, RasModelRgb, Pattern(64, 64, 3)), RasOk);
  const Bytes bytes = ReadFile(good);
  ErrorLog log;
  Bytes cut(bytes.begin(), bytes.begin() + 200);  // inside the picture data
  Bytes flipped = bytes;
  flipped[bytes.size() / 2] ^= 0x55;  // the picture data's checksum no longer holds
  Bytes header = bytes;
  header[20] ^= 1;  // the header's checksum no longer holds
  const struct {
    Bytes file;
    int code;
    Logged logged;
  } cases[] = {{cut, RasErrFormat, {"PngReadSl", RasErrFormat, 5}},
               {flipped, RasErrFormat, {"PngReadSl", RasErrFormat, 5}},
               {header, RasErrFormat, {"PngOpen", RasErrFormat, 4}}};
  for (const auto &c : cases) {
    WriteFile(bad, c.file);
    log.Clear();
    RasDesc desc{};
    desc.format = RasFormatPng;
    int code = RasOpen(bad.c_str(), 'r', &desc);
    RasSl sl{};
    for (uint32_t y = 0; code == RasOk && y < desc.height; ++y)
      code = RasReadSl(&desc, y, &sl);
    EXPECT_EQ(code, c.code);
    EXPECT_EQ(log.Last(), c.logged);
    if (desc.state) {
      EXPECT_EQ(RasReadSl(&desc, 0, &sl), RasErrFormat);  // nothing more after a failure
      RasClose(&desc);
    }
    RasFreeSl(&sl);
  }
  RasDesc desc{};
  ASSERT_EQ(RasSetDesc(&desc, RasFormatPng, 4, 4, 4, RasModelCmyk, 72.0f), RasOk);
  EXPECT_EQ(RasOpen(TempPath("cmyk.png").c_str(), 'w', &desc), RasErrArg);
  EXPECT_EQ(log.Last(), (Logged{"PngOpen", RasErrArg, 5}));
}

// What a viewer shows for a pixel over a white page: c a + 255 (1 - a).
TEST(Png, AlphaIsFlattenedOnWhiteForDisplay) {
  const struct {
    uint16_t colour, alpha;
    uint32_t maxval;
  } cases[] = {{0, 0, 255}, {0, 255, 255}, {100, 128, 255}, {200, 1, 255}, {30000, 40000, 65535}};
  for (const auto &c : cases) {
    uint8_t c8 = uint8_t(c.colour), a8 = uint8_t(c.alpha), zero8 = 0;
    uint16_t c16 = c.colour, a16 = c.alpha, zero16 = 0;
    const bool wide = c.maxval > 255;
    RasSl sl{1, 4, {&c8, &zero8, &c8, &a8}, {&c16, &zero16, &c16, &a16}};
    if (wide) std::fill(std::begin(sl.plane8), std::end(sl.plane8), nullptr);
    RasDesc desc{1, 1, 4, RasModelRgb, RasFormatPng, 0, c.maxval, -1.0f, nullptr};
    uint8_t rgb[3];
    ASSERT_EQ(RasSlToRgb(&sl, &desc, &rgb[0], &rgb[1], &rgb[2]), RasOk);
    const double a = double(c.alpha) / c.maxval, white = 255 * (1 - a);
    EXPECT_NEAR(rgb[0], 255.0 * c.colour / c.maxval * a + white, 0.5) << c.colour << "/" << c.alpha;
    EXPECT_NEAR(rgb[1], white, 0.5);
    EXPECT_EQ(rgb[2], rgb[0]);
  }
}

}  // namespace
