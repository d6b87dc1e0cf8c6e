// WebP files: quality 100 writes lossless files that keep every sample, lower
// qualities lossy ones; files cwebp writes decode to what dwebp decodes.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "raster/jpeg.h"
#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

double MeanDifference(const Picture &a, const Picture &b) {
  double sum = 0;
  for (size_t k = 0; k < a.planes.size(); ++k)
    for (size_t i = 0; i < a.planes[k].size(); ++i)
      sum += std::abs(int(a.planes[k][i]) - int(b.planes[k][i]));
  return sum / (a.planes.size() * a.planes[0].size());
}

class QualityScope {
 public:
  explicit QualityScope(int quality) {
    JpegGetOption(JpegOptQuality, &saved_);
    EXPECT_EQ(JpegSetOption(JpegOptQuality, quality), RasOk);
  }
  ~QualityScope() { (void)JpegSetOption(JpegOptQuality, saved_); }

 private:
  int saved_ = 75;
};

TEST(Webp, QualityHundredKeepsEverySampleAndLowerQualitiesStayClose) {
  for (const uint32_t channels : {1u, 3u, 4u}) {
    SCOPED_TRACE(channels);
    const uint32_t model = channels == 1 ? RasModelGray : RasModelRgb;
    const Picture exact = Pattern(37, 21, channels), smooth = Smooth(60, 40, channels);
    const std::string lossless = TempPath("lossless.webp"), lossy = TempPath("lossy.webp");
    {
      QualityScope quality(100);
      ASSERT_EQ(WritePicture(lossless, RasFormatWebp, model, exact), RasOk);
    }
    {
      QualityScope quality(80);
      ASSERT_EQ(WritePicture(lossy, RasFormatWebp, model, smooth), RasOk);
    }
    Picture back;
    RasDesc desc{};
    ASSERT_EQ(ReadPicture(lossless, &back, &desc, {4, 0, 20}), RasOk);
    // Grey comes back as RGB: the format stores no grey of its own.
    const uint32_t stored = channels == 1 ? 3 : channels;
    EXPECT_EQ(std::tuple(desc.format, desc.channels, desc.model),
              std::tuple(RasFormatWebp, stored, RasModelRgb));
    ASSERT_EQ(ReadPicture(lossless, &back), RasOk);
    for (uint32_t k = 0; k < stored; ++k)
      EXPECT_EQ(back.planes[k], exact.planes[channels == 1 ? 0 : k]) << k;
    ASSERT_EQ(ReadPicture(lossy, &back), RasOk);
    if (channels != 1) {
      EXPECT_GT(MaxDifference(back, smooth), 0);  // really lossy
      EXPECT_LT(MeanDifference(back, smooth), 2.0);
    }
  }
  RasDesc desc{};
  ASSERT_EQ(RasSetDesc(&desc, RasFormatWebp, 20000, 4, 3, RasModelRgb, 72.0f), RasOk);
  EXPECT_EQ(RasOpen(TempPath("huge.webp").c_str(), 'w', &desc), RasErrArg);  // beyond 16383
  EXPECT_EQ(desc.state, nullptr);
}

TEST(Webp, FilesCwebpWritesDecodeAsDwebpDecodesThem) {
  if (!Shell("command -v cwebp && command -v dwebp")) GTEST_SKIP() << "webp tools missing";
  const std::string source = TempPath("cwebp_source.png");
  ASSERT_EQ(WritePicture(source, RasFormatPng, RasModelRgb, Pattern(45, 17, 4)), RasOk);
  for (const char *options : {"-q 80", "-lossless", "-q 30 -alpha_q 50", "-q 90 -noalpha"}) {
    SCOPED_TRACE(options);
    const std::string webp = TempPath("cwebp.webp"), pam = TempPath("dwebp.pam");
    ASSERT_TRUE(Shell(std::string("cwebp ") + options + " " + source + " -o " + webp));
    ASSERT_TRUE(Shell("dwebp " + webp + " -pam -o " + pam));
    Samples reference = ReadNetpbm(pam);
    int code = 0;
    const Samples ours = ReadSamples(webp, &code);
    ASSERT_EQ(code, RasOk);
    if (ours.channels == 3) {  // dwebp writes opaque alpha for a file without any
      Samples rgb = reference;
      rgb.channels = 3;
      rgb.values.clear();
      for (size_t i = 0; i < reference.values.size(); ++i)
        if (i % 4 != 3) rgb.values.push_back(reference.values[i]);
      reference = rgb;
    }
    EXPECT_EQ(ours.channels, std::string(options).find("noalpha") == std::string::npos ? 4u : 3u);
    EXPECT_TRUE(ours == reference);
  }
}

}  // namespace
