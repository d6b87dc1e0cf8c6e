// korvel-raster with the Targa, Scitex CT, Cineon and EPS writers chosen by
// extension, and info naming every format the probe knows.
#include <gtest/gtest.h>

#include <string>

#include "raster/ras.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

// Every extension writes its format, and the picture comes back sample for
// sample through it (Cineon's 10 bits hold 8-bit samples exactly), for a
// width that needs Scitex CT's padding byte.
TEST(ToolFormats, ConvertWritesEachFormatByExtensionAndKeepsEverySample) {
  const std::string source = TempPath("src.bmp");
  const Picture picture = Pattern(13, 6, 3);
  ASSERT_EQ(WritePicture(source, RasFormatBmp, RasModelRgb, picture), RasOk);
  const struct {
    const char *name;
    uint32_t format;
  } targets[] = {{"out.tga", RasFormatTarga},
                 {"out.SCT", RasFormatScitex},
                 {"out.cin", RasFormatCineon},
                 {"out.eps", RasFormatEps}};
  for (const auto &t : targets) {
    SCOPED_TRACE(t.name);
    const std::string out = TempPath(t.name), back = TempPath(std::string(t.name) + ".bmp");
    ToolResult r = RunTool("convert " + source + " " + out);
    ASSERT_EQ(r.status, 0) << r.out;
    r = RunTool("info " + out);
    EXPECT_NE(r.out.find(std::string(": ") + RasFormatName(t.format) + " 13x6 channels=3"),
              std::string::npos)
        << r.out;
    ASSERT_EQ(RunTool("convert " + out + " " + back).status, 0);
    Picture again;
    ASSERT_EQ(ReadPicture(back, &again), RasOk);
    EXPECT_TRUE(again == picture);
  }
}

// What a target cannot hold becomes RGB: Photo CD's YCC, and inks for Targa;
// 16-bit samples are narrowed, Cineon's widened.
TEST(ToolFormats, ConvertBridgesModelsAndSampleWidths) {
  const std::string data = KORVEL_TESTDATA_DIR, wide = data + "/tiff/libtiff__rgb-3c-16b.tiff";
  const std::string tga = TempPath("pcd.tga"), cin = TempPath("t16.cin");
  ToolResult r = RunTool("convert " + data + "/photocd/pillow__hopper.pcd " + tga);
  ASSERT_EQ(r.status, 0) << r.out;
  EXPECT_NE(r.out.find("cannot hold Photo CD YCC samples; writing RGB"), std::string::npos);
  RasDesc desc{};
  ASSERT_EQ(RasGetInfo(tga.c_str(), &desc), RasOk);
  EXPECT_EQ(desc.width, 768u);
  EXPECT_EQ(desc.model, RasModelRgb);

  r = RunTool("convert " + wide + " " + cin);
  ASSERT_EQ(r.status, 0) << r.out;
  // Every sample scaled from 0..65535 to 0..1023.
  Planes16 in, out;
  ASSERT_EQ(ReadPlanes16(wide, &desc, &in), RasOk);
  ASSERT_EQ(ReadPlanes16(cin, &desc, &out), RasOk);
  EXPECT_EQ(desc.format, RasFormatCineon);
  EXPECT_EQ(desc.width, 157u);
  ASSERT_EQ(out.size(), 3u);
  for (uint32_t k = 0; k < 3; ++k) {
    ASSERT_EQ(out[k].size(), in[k].size());
    for (size_t i = 0; i < in[k].size(); ++i)
      ASSERT_EQ(out[k][i], (in[k][i] * 1023u + 32767) / 65535) << k << " " << i;
  }
  r = RunTool("convert " + data + "/scitex/kif__sct_cmyk.sct " + TempPath("inks.tga"));
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("cannot hold CMYK samples"), std::string::npos);
  r = RunTool("convert " + data + "/scitex/kif__sct_cmyk.sct " + TempPath("inks.eps"));
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");  // EPS holds inks as they are
}

}  // namespace
