// EPS and DCS: what the writer produces renders in a PostScript interpreter
// (Ghostscript) as the picture, reads back exactly, and DCS plates hold the
// separations; the reader takes other writers' files of the same form and
// refuses the rest.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "raster/rasfile.h"
#include "tests/raster/testutil.h"

namespace {

using namespace testutil;  // NOLINT(build/namespaces)

std::string AsText(const Bytes &b) {
  return std::string(b.begin(), b.end());
}

bool HaveGhostscript() {
  static const bool have = std::system("command -v gs >/dev/null 2>&1") == 0;
  return have;
}

// Renders the file's first page at 72 dots an inch into raw RGB; empty when
// the interpreter fails.
Bytes Render(const std::string &eps, uint32_t *width, uint32_t *height) {
  const std::string out = eps + ".ppm";
  const std::string command =
      "gs -q -dSAFER -dBATCH -dNOPAUSE -dEPSCrop -sDEVICE=ppmraw -r72 "
      "-dFirstPage=1 -dLastPage=1 -sOutputFile=" +
      out + " " + eps + " >/dev/null 2>&1";
  if (std::system(command.c_str()) != 0) return {};
  const Bytes ppm = ReadFile(out);
  std::remove(out.c_str());
  // "P6", width, height and maximum, with comment lines between, then one
  // white-space byte before the samples.
  size_t at = 0;
  unsigned fields[4] = {};
  for (unsigned &field : fields) {
    while (at < ppm.size() && (std::isspace(ppm[at]) || ppm[at] == '#')) {
      if (ppm[at] == '#')
        while (at < ppm.size() && ppm[at] != '\n')
          ++at;
      else
        ++at;
    }
    if (at < ppm.size() && ppm[at] == 'P') at += 2;  // the magic, read as field 0
    while (at < ppm.size() && std::isdigit(ppm[at]))
      field = field * 10 + (ppm[at++] - '0');
  }
  if (at >= ppm.size()) return {};
  *width = fields[1];
  *height = fields[2];
  return Bytes(ppm.begin() + static_cast<std::ptrdiff_t>(at) + 1, ppm.end());
}

std::vector<uint32_t> Mixed(uint32_t height) {
  std::vector<uint32_t> rows;
  for (uint32_t i = 0; i < height; ++i)
    rows.push_back(i % 2 ? i / 2 : height - 1 - i / 2);
  return rows;
}

TEST(Eps, WritesPostScriptThatRendersAsThePictureAndReadsBack) {
  const std::string path = TempPath("w.eps");
  for (uint32_t width : {1u, 5u, 22u, 33u}) {
    for (const auto &[model, channels] :
         {std::pair{RasModelGray, 1u}, {RasModelRgb, 3u}, {RasModelCmyk, 4u}}) {
      SCOPED_TRACE(testing::Message() << width << " wide, " << channels << " channels");
      const Picture p = Pattern(width, 4, channels);
      RasDesc desc{};
      ASSERT_EQ(WritePicture(path, RasFormatEps, model, p, 72.0f, &desc, Mixed(4)), RasOk);
      const std::string text = AsText(ReadFile(path));
      EXPECT_EQ(text.rfind("%!PS-Adobe-3.0 EPSF-3.0\n", 0), 0u);
      EXPECT_NE(text.find("%%BoundingBox: 0 0 " + std::to_string(width) + " 4\n"),
                std::string::npos);
      const char *op = channels == 1   ? "image"
                       : channels == 3 ? "false 3 colorimage"
                                       : "false 4 colorimage";
      EXPECT_NE(text.find("%ImageData: " + std::to_string(width) + " 4 8 " +
                          std::to_string(channels) + " 0 1 1 \"" + op + "\"\n"),
                std::string::npos);
      EXPECT_EQ(text.substr(text.size() - 6), "%%EOF\n");
      Picture back;
      RasDesc read{};
      ASSERT_EQ(ReadPicture(path, &back, &read, Mixed(4)), RasOk);
      EXPECT_EQ(read.format, RasFormatEps);
      EXPECT_EQ(read.model, model);
      EXPECT_NEAR(read.resolution, 72.0f, 0.01f);
      EXPECT_EQ(back, p);

      if (!HaveGhostscript() || model == RasModelCmyk) continue;
      uint32_t w = 0, h = 0;
      const Bytes rgb = Render(path, &w, &h);
      ASSERT_EQ(w, width);
      ASSERT_EQ(h, 4u);
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
          for (uint32_t k = 0; k < 3; ++k)
            ASSERT_EQ(rgb[3 * (y * w + x) + k], p.At(x, y, channels == 1 ? 0 : k))
                << x << "," << y << "," << k;
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
  const std::string path = TempPath("w.dcs");
  const Picture p = Pattern(9, 5, 4);
  ASSERT_EQ(WritePicture(path, RasFormatDcs, RasModelCmyk, p, 72.0f, nullptr, Mixed(5)), RasOk);
  Bytes file = ReadFile(path);
  ASSERT_GT(file.size(), 30u);
  EXPECT_EQ((Bytes{file[0], file[1], file[2], file[3]}), (Bytes{0xC5, 0xD0, 0xD3, 0xC6}));
  EXPECT_EQ(GetField(file, 4, 4), 30u);
  const uint32_t composite = GetField(file, 8, 4);
  const std::string text = AsText(file);
  EXPECT_EQ(text.substr(30, 10), "%!PS-Adobe");
  EXPECT_EQ(text.substr(30 + composite - 6, 6), "%%EOF\n");

  Picture back;
  RasDesc desc{};
  ASSERT_EQ(ReadPicture(path, &back, &desc), RasOk);
  EXPECT_EQ(desc.format, RasFormatDcs);
  EXPECT_EQ(back, p);

  // Each plate, where its comment says, is an EPS of the ink's grey picture.
  const char *inks[] = {"Cyan", "Magenta", "Yellow", "Black"};
  for (uint32_t k = 0; k < 4; ++k) {
    const size_t at = text.find(std::string("%%PlateFile: (") + inks[k] + ") EPS #");
    ASSERT_NE(at, std::string::npos) << inks[k];
    unsigned long offset = 0, length = 0;
    ASSERT_EQ(
        std::sscanf(text.c_str() + at, "%%%%PlateFile: (%*[^)]) EPS #%lu %lu", &offset, &length),
        2);
    ASSERT_LE(offset + length, file.size());
    RasMemName plate;
    RasMakeMemName(&plate, file.data() + offset, length);
    Picture grey;
    RasDesc plateDesc{};
    ASSERT_EQ(ReadPicture(RasMemNameOf(plate), &grey, &plateDesc), RasOk) << inks[k];
    EXPECT_EQ(plateDesc.format, RasFormatEps);
    ASSERT_EQ(grey.channels, 1u);
    for (size_t i = 0; i < grey.planes[0].size(); ++i)
      ASSERT_EQ(grey.planes[0][i], 255 - p.planes[k][i]) << inks[k] << " " << i;
  }

  // Each reader refuses the other's files.
  const std::string plain = TempPath("plain.eps");
  ASSERT_EQ(WritePicture(plain, RasFormatEps, RasModelCmyk, p), RasOk);
  ErrorLog log;
  desc = RasDesc{};
  desc.format = RasFormatEps;
  EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), RasErrUnsupported);
  EXPECT_EQ(log.Last(), (Logged{"EpsOpen", RasErrUnsupported, 7}));
  desc.format = RasFormatDcs;
  EXPECT_EQ(RasOpen(plain.c_str(), 'r', &desc), RasErrFormat);
  EXPECT_EQ(log.Last(), (Logged{"DcsOpen", RasErrFormat, 7}));
  EXPECT_EQ(desc.state, nullptr);
  EXPECT_EQ(WritePicture(path, RasFormatDcs, RasModelRgb, Pattern(2, 2, 3)), RasErrArg);

  // An interpreter draws the composite alone, as the plain EPS of the same
  // inks.
  if (!HaveGhostscript()) return;
  uint32_t w = 0, h = 0, w2 = 0, h2 = 0;
  const Bytes drawn = Render(path, &w, &h);
  ASSERT_EQ(w, 9u);
  ASSERT_EQ(h, 5u);
  EXPECT_EQ(drawn, Render(plain, &w2, &h2));
}

Bytes Eps(const std::string &head, const Bytes &data, const std::string &tail = "\n%%EOF\n") {
  Bytes b(head.begin(), head.end());
  b.insert(b.end(), data.begin(), data.end());
  b.insert(b.end(), tail.begin(), tail.end());
  return b;
}

int Probe(const Bytes &bytes, Picture *p, RasDesc *desc) {
  const std::string path = TempPath("other.eps");
  WriteFile(path, bytes);
  return ReadPicture(path, p, desc);
}

TEST(Eps, ReadsOtherWritersOfTheFormAndRefusesTheRest) {
  const std::string head = "%!PS-Adobe-3.0 EPSF-3.0\r\n%%BoundingBox: 0 0 4 2\r\n%%EndComments\r\n";
  Picture p;
  RasDesc desc{};
  // Bytes rather than text, after CR LF line ends.
  const Bytes binary = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  ASSERT_EQ(Probe(Eps(head + "%ImageData: 2 2 8 3 0 1 2 \"beginimage\"\r\nbeginimage\r\n", binary),
                  &p, &desc),
            RasOk);
  EXPECT_EQ(desc.format, RasFormatEps);
  EXPECT_NEAR(desc.resolution, 36.0f, 0.01f);
  EXPECT_EQ(p.At(1, 1, 0), 10);
  EXPECT_EQ(p.At(1, 1, 2), 12);
  // Hexadecimal with its own line breaks, upper case and spaces.
  const std::string hex = "0A0b\n0C 0d\r\n\t0E0F10111213\n1415\n";
  const std::string grey = head + "%ImageData: 4 2 8 1 0 4 1 \"image\"\n{pop} image\n";
  ASSERT_EQ(Probe(Eps(grey, Bytes(hex.begin(), hex.end())), &p, &desc), RasOk);
  EXPECT_EQ(desc.model, RasModelGray);
  EXPECT_EQ(p.At(3, 0, 0), 0x0d);
  EXPECT_EQ(p.At(3, 1, 0), 0x11);
  // The PostScript section after a DOS EPS header.
  Bytes dos(30, 0);
  const Bytes inner = Eps(grey, Bytes(hex.begin(), hex.end()));
  dos[0] = 0xC5, dos[1] = 0xD0, dos[2] = 0xD3, dos[3] = 0xC6;
  PutField(dos, 4, 30, 4);
  PutField(dos, 8, static_cast<uint32_t>(inner.size()), 4);
  dos.insert(dos.end(), inner.begin(), inner.end());
  dos.insert(dos.end(), 100, 0xEE);  // a preview after the section
  ASSERT_EQ(Probe(dos, &p, &desc), RasOk);
  EXPECT_EQ(p.At(0, 1, 0), 0x0E);

  ErrorLog log;
  const struct {
    std::string text;
    int code, detail;
  } refused[] = {
      {"GIF89a", RasErrFormat, 3},
      {"%!PS-Adobe-3.0\n%ImageData: 2 2 8 1 0 2 1 \"image\"\nimage\n0000\n", RasErrFormat, 3},
      {head + "0 0 moveto 4 2 lineto stroke\nshowpage\n", RasErrUnsupported, 5},
      {head + "%ImageData: 2 2 8 1 0 2 1 \"image\"\nno start line\n", RasErrUnsupported, 5},
      {head + "%ImageData: 2 2 1 1 0 1 1 \"image\"\nimage\n00\n", RasErrUnsupported, 6},
      {head + "%ImageData: 2 2 8 3 1 2 2 \"beginimage\"\nbeginimage\n", RasErrUnsupported, 6},
      {head + "%ImageData: 2 2 8 2 0 1 1 \"image\"\nimage\n", RasErrUnsupported, 6},
      {head + "%ImageData: 0 2 8 1 0 1 1 \"image\"\nimage\n", RasErrUnsupported, 6},
  };
  for (const auto &r : refused) {
    const std::string path = TempPath("refused.eps");
    WriteFile(path, Bytes(r.text.begin(), r.text.end()));
    desc = RasDesc{};
    desc.format = RasFormatEps;
    EXPECT_EQ(RasOpen(path.c_str(), 'r', &desc), r.code) << r.text;
    EXPECT_EQ(log.Last(), (Logged{"EpsOpen", r.code, r.detail})) << r.text;
    EXPECT_EQ(desc.state, nullptr);
    log.Clear();
  }
  // Rows that the data does not hold, or that are not hexadecimal, fail on
  // reading; earlier rows still read.
  const std::string shortHex = grey + "00112233\n4455\n%%EOF\n";
  EXPECT_EQ(Probe(Bytes(shortHex.begin(), shortHex.end()), &p, &desc), RasErrFormat);
  const std::string cut = grey + "00112233\n4455";
  EXPECT_EQ(Probe(Bytes(cut.begin(), cut.end()), &p, &desc), RasErrRead);
  EXPECT_EQ(log.Last(), (Logged{"EpsReadSl", RasErrRead, 6}));
}

}  // namespace
