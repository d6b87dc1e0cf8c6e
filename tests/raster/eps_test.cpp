// EPS and DCS: what the writer produces renders in a PostScript interpreter
// as the picture and reads back exactly, DCS plates hold the separations; the
// reader takes other writers' files of the same form and refuses the rest.
#include <gtest/gtest.h>

#include <tuple>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "raster/core/rasfile.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

std::string AsText(const Bytes &b) {
  return std::string(b.begin(), b.end());
}
Bytes AsBytes(const std::string &s) {
  return Bytes(s.begin(), s.end());
}

bool HaveGhostscript() {
  static const bool have = std::system("command -v gs >/dev/null 2>&1") == 0;
  return have;
}

// The file's first page at 72 dots an inch as raw RGB; empty on failure.
Bytes Render(const std::string &eps, uint32_t *width, uint32_t *height) {
  const std::string out = eps + ".ppm", gs = "gs -q -dSAFER -dBATCH -dNOPAUSE -dEPSCrop "
                                             "-sDEVICE=ppmraw -r72 -dLastPage=1 -sOutputFile=";
  if (std::system((gs + out + " " + eps + " >/dev/null 2>&1").c_str()) != 0) return {};
  const std::string ppm = AsText(ReadFile(out));
  std::remove(out.c_str());
  std::istringstream in(ppm);  // "P6", comment lines, width, height, maximum
  std::string line;
  std::getline(in, line);
  while (in.peek() == '#')
    std::getline(in, line);
  in >> *width >> *height >> line;
  return in ? Bytes(ppm.begin() + in.tellg() + 1, ppm.end()) : Bytes{};
}

TEST(Eps, WritesPostScriptThatRendersAsThePictureAndReadsBack) {
  const std::string path = TempPath("w.eps");
  const std::tuple<uint32_t, uint32_t, std::string> models[] = {
      {RasModelGray, 1, "image"},
      {RasModelRgb, 3, "false 3 colorimage"},
      {RasModelCmyk, 4, "false 4 colorimage"}};
  for (uint32_t width : {1u, 5u, 22u, 33u}) {
    for (const auto &[model, channels, op] : models) {
      SCOPED_TRACE(testing::Message() << width << " wide, " << channels << " channels");
      const Picture p = Pattern(width, 4, channels);
      ASSERT_EQ(WritePicture(path, RasFormatEps, model, p, 72.0f, nullptr, {3, 0, 2, 1}), RasOk);
      const std::string text = AsText(ReadFile(path)), w = std::to_string(width);
      EXPECT_EQ(text.rfind("%!PS-Adobe-3.0 EPSF-3.0\n", 0), 0u);
      EXPECT_NE(text.find("%%BoundingBox: 0 0 " + w + " 4\n"), std::string::npos);
      EXPECT_NE(text.find("%ImageData: " + w + " 4 8 " + std::to_string(channels) + " 0 1 1 \"" +
                          op + "\"\n"),
                std::string::npos);
      EXPECT_EQ(text.substr(text.size() - 6), "%%EOF\n");
      Picture back;
      RasDesc read{};
      ASSERT_EQ(ReadPicture(path, &back, &read, {3, 0, 2, 1}), RasOk);
      EXPECT_EQ(std::tuple(read.format, read.model), std::tuple(RasFormatEps, model));
      EXPECT_NEAR(read.resolution, 72.0f, 0.01f);
      EXPECT_EQ(back, p);
      // An interpreter draws grey and RGB as the picture.
      if (!HaveGhostscript() || model == RasModelCmyk || width != 5) continue;
      uint32_t rw = 0, rh = 0;
      const Bytes rgb = Render(path, &rw, &rh);
      ASSERT_EQ(rw * rh, width * 4);
      ASSERT_EQ(rgb.size(), rw * rh * 3);
      for (uint32_t i = 0; i < rw * rh * 3; ++i)
        ASSERT_EQ(rgb[i], p.planes[channels == 1 ? 0 : i % 3][i / 3]) << i;
    }
  }
  // The resolution decides the size in points; none means 300 an inch.
  RasDesc desc{};
  ASSERT_EQ(WritePicture(path, RasFormatEps, RasModelRgb, Pattern(600, 2, 3), 0.0f, &desc), RasOk);
  EXPECT_EQ(desc.resolution, 300.0f);
  EXPECT_NE(AsText(ReadFile(path)).find("%%BoundingBox: 0 0 144 1\n"), std::string::npos);
  EXPECT_EQ(WritePicture(path, RasFormatEps, RasModelLab, Pattern(2, 2, 3)), RasErrArg);
}

TEST(Dcs, CarriesTheCompositeAndOnePlateAnInk) {
  const std::string path = TempPath("w.dcs"), plain = TempPath("plain.eps");
  const Picture p = Pattern(9, 5, 4);
  ASSERT_EQ(WritePicture(path, RasFormatDcs, RasModelCmyk, p, 72.0f, nullptr, {4, 0, 2, 1, 3}),
            RasOk);
  Bytes file = ReadFile(path);
  ASSERT_GT(file.size(), 30u);
  EXPECT_EQ(GetField(file, 0, 4, true), 0xC5D0D3C6u);
  EXPECT_EQ(GetField(file, 4, 4), 30u);
  const std::string text = AsText(file);
  EXPECT_EQ(text.substr(30, 10), "%!PS-Adobe");
  EXPECT_EQ(text.substr(30 + GetField(file, 8, 4) - 6, 6), "%%EOF\n");
  Picture back;
  RasDesc desc{};
  ASSERT_EQ(ReadPicture(path, &back, &desc), RasOk);
  EXPECT_EQ(desc.format, RasFormatDcs);
  EXPECT_EQ(back, p);

  // Each plate, where its comment says, is an EPS of the ink's grey picture.
  const char *inks[] = {"Cyan", "Magenta", "Yellow", "Black"};
  for (uint32_t k = 0; k < 4; ++k) {
    SCOPED_TRACE(inks[k]);
    const size_t at = text.find(std::string("%%PlateFile: (") + inks[k] + ") EPS #");
    unsigned long offset = 0, length = 0;
    ASSERT_EQ(std::sscanf(text.c_str() + std::min(at, text.size()),
                          "%%%%PlateFile: (%*[^)]) EPS #%lu %lu", &offset, &length),
              2);
    ASSERT_LE(offset + length, file.size());
    RasMemName plate;
    RasMakeMemName(&plate, file.data() + offset, length);
    Picture grey;
    ASSERT_EQ(ReadPicture(RasMemNameOf(plate), &grey, &desc), RasOk);
    EXPECT_EQ(desc.format, RasFormatEps);
    ASSERT_EQ(grey.channels, 1u);
    for (size_t i = 0; i < grey.planes[0].size(); ++i)
      ASSERT_EQ(grey.planes[0][i], 255 - p.planes[k][i]) << i;
  }

  // Each reader refuses the other's files.
  ASSERT_EQ(WritePicture(plain, RasFormatEps, RasModelCmyk, p), RasOk);
  ErrorLog log;
  EXPECT_EQ(OpenAs(path, RasFormatEps), RasErrUnsupported);
  EXPECT_EQ(log.Last(), (Logged{"EpsOpen", RasErrUnsupported, 7}));
  EXPECT_EQ(OpenAs(plain, RasFormatDcs), RasErrFormat);
  EXPECT_EQ(log.Last(), (Logged{"DcsOpen", RasErrFormat, 7}));
  EXPECT_EQ(WritePicture(path, RasFormatDcs, RasModelRgb, Pattern(2, 2, 3)), RasErrArg);

  // An interpreter draws the composite alone, as the plain EPS of the inks.
  if (!HaveGhostscript()) return;
  uint32_t w = 0, h = 0, w2 = 0, h2 = 0;
  const Bytes drawn = Render(path, &w, &h);
  EXPECT_EQ(w * 100 + h, 905u);
  EXPECT_EQ(drawn, Render(plain, &w2, &h2));
}

int Probe(const Bytes &bytes, Picture *p, RasDesc *desc) {
  const std::string path = TempPath("other.eps");
  WriteFile(path, bytes);
  return ReadPicture(path, p, desc);
}

TEST(Eps, ReadsOtherWritersOfTheFormAndRefusesTheRest) {
  const std::string head = "%!PS-Adobe-3.0 EPSF-3.0\r\n%%BoundingBox: 0 0 4 2\r\n%%EndComments\r\n";
  const std::string grey = head + "%ImageData: 4 2 8 1 0 4 1 \"image\"\n{pop} image\n";
  // Hexadecimal with its own line breaks, upper case and spaces.
  const std::string inner = grey + "0A0b\n0C 0d\r\n\t0E0F10111213\n1415\n\n%%EOF\n";
  // Bytes rather than text, after CR LF line ends.
  const std::string binary = head + "%ImageData: 2 2 8 3 0 1 2 \"beginimage\"\r\nbeginimage\r\n" +
                             "\1\2\3\4\5\6\7\10\11\12\13\14";
  // The PostScript section after a DOS EPS header, a preview after it.
  Bytes dos(30, 0);
  PutField(dos, 0, 0xC5D0D3C6u, 4, true);
  PutField(dos, 4, 30, 4);
  PutField(dos, 8, static_cast<uint32_t>(inner.size()), 4);
  dos.insert(dos.end(), inner.begin(), inner.end());
  dos.insert(dos.end(), 100, 0xEE);
  Picture p;
  RasDesc desc{};
  ASSERT_EQ(Probe(AsBytes(binary), &p, &desc), RasOk);
  EXPECT_EQ(desc.format, RasFormatEps);
  EXPECT_NEAR(desc.resolution, 36.0f, 0.01f);
  EXPECT_EQ((Bytes{p.At(1, 1, 0), p.At(1, 1, 2)}), (Bytes{10, 12}));
  for (const Bytes &bytes : {AsBytes(inner), dos}) {
    ASSERT_EQ(Probe(bytes, &p, &desc), RasOk);
    EXPECT_EQ(desc.model, RasModelGray);
    EXPECT_EQ((Bytes{p.At(3, 0, 0), p.At(0, 1, 0), p.At(3, 1, 0)}), (Bytes{0x0d, 0x0e, 0x11}));
  }

  ErrorLog log;
  const std::string path = TempPath("refused.eps");
  const std::tuple<std::string, int, int> refused[] = {
      {"GIF89a", RasErrFormat, 3},
      {"%!PS-Adobe-3.0\n%ImageData: 2 2 8 1 0 2 1 \"image\"\nimage\n0000\n", RasErrFormat, 3},
      {head + "0 0 moveto 4 2 lineto stroke\nshowpage\n", RasErrUnsupported, 5},
      {head + "%ImageData: 2 2 8 1 0 2 1 \"image\"\nno start line\n", RasErrUnsupported, 5},
      {head + "%ImageData: 2 2 1 1 0 1 1 \"image\"\nimage\n00\n", RasErrUnsupported, 6},
      {head + "%ImageData: 2 2 8 3 1 2 2 \"beginimage\"\nbeginimage\n", RasErrUnsupported, 6},
      {head + "%ImageData: 2 2 8 2 0 1 1 \"image\"\nimage\n", RasErrUnsupported, 6},
      {head + "%ImageData: 0 2 8 1 0 1 1 \"image\"\nimage\n", RasErrUnsupported, 6},
  };
  for (const auto &[text, code, detail] : refused) {
    SCOPED_TRACE(text);
    log.Clear();
    WriteFile(path, AsBytes(text));
    EXPECT_EQ(OpenAs(path, RasFormatEps), code);
    EXPECT_EQ(log.Last(), (Logged{"EpsOpen", code, detail}));
  }
  // Rows that the data does not hold, or that are not hexadecimal, fail on
  // reading.
  EXPECT_EQ(Probe(AsBytes(grey + "00112233\n4455\n%%EOF\n"), &p, &desc), RasErrFormat);
  EXPECT_EQ(Probe(AsBytes(grey + "00112233\n4455"), &p, &desc), RasErrRead);
  EXPECT_EQ(log.Last(), (Logged{"EpsReadSl", RasErrRead, 6}));
}

}  // namespace
