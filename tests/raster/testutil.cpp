#include "tests/raster/testutil.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <ostream>
#include <regex>
#include <sstream>
#include <tuple>

#include <gtest/gtest.h>

namespace testutil {

Bytes ReadFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string &path, const Bytes &bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char *>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

namespace {

struct TempFiles {
  std::vector<std::string> paths;
  ~TempFiles() {
    for (const auto &path : paths)
      std::remove(path.c_str());
  }
};

}  // namespace

std::string TempPath(const std::string &name) {
  static TempFiles files;
  files.paths.push_back(testing::TempDir() + "korvel_" + std::to_string(getpid()) + "_" + name);
  return files.paths.back();
}

uint32_t GetField(const Bytes &bytes, size_t at, int size, bool big) {
  uint32_t value = 0;
  for (int i = 0; i < size; ++i) {
    const uint32_t byte = bytes.at(at + (big ? i : size - 1 - i));
    value = value << 8 | byte;
  }
  return value;
}

void PutField(Bytes &bytes, size_t at, uint32_t value, int size, bool big) {
  if (bytes.size() < at + size) bytes.resize(at + size);
  for (int i = 0; i < size; ++i)
    bytes[at + (big ? size - 1 - i : i)] = static_cast<uint8_t>(value >> (8 * i));
}

bool operator==(const Picture &a, const Picture &b) {
  return a.width == b.width && a.height == b.height && a.channels == b.channels &&
         a.planes == b.planes;
}

Picture Smooth(uint32_t width, uint32_t height, uint32_t channels) {
  Picture p = Pattern(width, height, channels);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      for (uint32_t k = 0; k < channels; ++k)
        p.At(x, y, k) = uint8_t(k == 3 ? 255 - 2 * y : 20 + 2 * x + y + 30 * k);
  return p;
}

Picture Pattern(uint32_t width, uint32_t height, uint32_t channels) {
  Picture picture{width, height, channels,
                  std::vector<Bytes>(channels, Bytes(size_t{width} * height))};
  for (uint32_t k = 0; k < channels; ++k)
    for (uint32_t y = 0; y < height; ++y)
      for (uint32_t x = 0; x < width; ++x)
        picture.At(x, y, k) = static_cast<uint8_t>(x * 7 + y * 13 + k * 61 + (x * y) % 5);
  return picture;
}

int MaxDifference(const Picture &a, const Picture &b) {
  int most = 0;
  for (uint32_t k = 0; k < a.channels; ++k)
    for (size_t i = 0; i < a.planes[k].size(); ++i)
      most = std::max(most, std::abs(a.planes[k][i] - b.planes[k][i]));
  return most;
}

int WritePicture(const char *name, uint32_t format, uint32_t model, const Picture &picture,
                 float resolution, RasDesc *desc, const std::vector<uint32_t> &order) {
  RasDesc local;
  RasDesc *d = desc ? desc : &local;
  int code =
      RasSetDesc(d, format, picture.width, picture.height, picture.channels, model, resolution);
  if (code == RasOk) code = RasOpen(name, 'w', d);
  if (code != RasOk) return code;
  std::vector<uint32_t> rows = order;
  if (rows.empty())
    for (uint32_t y = 0; y < picture.height; ++y)
      rows.push_back(y);
  RasSl sl{};
  sl.width = picture.width;
  sl.channels = picture.channels;
  for (uint32_t y : rows) {
    for (uint32_t k = 0; k < picture.channels; ++k)
      sl.plane8[k] = const_cast<uint8_t *>(&picture.planes[k][size_t{y} * picture.width]);
    if ((code = RasWriteSl(d, y, &sl)) != RasOk) break;
  }
  const int closed = RasClose(d);
  return code != RasOk ? code : closed;
}

int ReadPicture(const char *name, Picture *picture, RasDesc *desc,
                const std::vector<uint32_t> &order) {
  RasDesc local{};
  RasDesc *d = desc ? desc : &local;
  int code = RasGetInfo(name, d);
  if (code == RasOk) code = RasOpen(name, 'r', d);
  if (code != RasOk) return code;
  *picture = Picture{d->width, d->height, d->channels,
                     std::vector<Bytes>(d->channels, Bytes(size_t{d->width} * d->height))};
  std::vector<uint32_t> rows = order;
  if (rows.empty())
    for (uint32_t y = 0; y < d->height; ++y)
      rows.push_back(y);
  RasSl sl{};
  for (uint32_t y : rows) {
    code = RasReadSl(d, y, &sl);
    if (code != RasOk) break;
    for (uint32_t k = 0; k < d->channels; ++k)
      std::copy_n(sl.plane8[k], d->width, &picture->At(0, y, k));
  }
  RasFreeSl(&sl);
  const int closed = RasClose(d);
  return code != RasOk ? code : closed;
}

Planes16 Pattern16(uint32_t width, uint32_t height, uint32_t channels, uint32_t maxval) {
  Planes16 p(channels, std::vector<uint16_t>(size_t{width} * height));
  for (uint32_t k = 0; k < channels; ++k)
    for (uint32_t i = 0; i < width * height; ++i)
      p[k][i] =
          static_cast<uint16_t>((0x0102 * (k + 1) + 0x1357 * i + (i % 7 << 12)) % (maxval + 1));
  return p;
}

int WritePlanes16(const std::string &name, uint32_t format, uint32_t model, uint32_t width,
                  uint32_t height, const Planes16 &planes, float resolution,
                  const std::vector<uint32_t> &order) {
  RasDesc desc{};
  const auto channels = static_cast<uint32_t>(planes.size());
  int code = RasSetDesc(&desc, format, width, height, channels, model, resolution);
  if (RasFormatDepthVaries(format)) desc.maxval = 65535;  // 16 bits asked for, not implied
  if (code == RasOk) code = RasOpen(name.c_str(), 'w', &desc);
  if (code != RasOk) return code;
  std::vector<uint32_t> rows = order;
  if (rows.empty())
    for (uint32_t y = 0; y < height; ++y)
      rows.push_back(y);
  RasSl sl{width, channels, {}, {}};
  for (uint32_t y : rows) {
    for (uint32_t k = 0; k < channels; ++k)
      sl.plane16[k] = const_cast<uint16_t *>(&planes[k][size_t{y} * width]);
    if ((code = RasWriteSl(&desc, y, &sl)) != RasOk) break;
  }
  const int closed = RasClose(&desc);
  return code != RasOk ? code : closed;
}

int ReadPlanes16(const std::string &name, RasDesc *desc, Planes16 *planes) {
  int code = RasGetInfo(name.c_str(), desc);
  if (code == RasOk) code = RasOpen(name.c_str(), 'r', desc);
  if (code != RasOk) return code;
  planes->assign(desc->channels, std::vector<uint16_t>(size_t{desc->width} * desc->height));
  RasSl sl{};
  for (uint32_t y = 0; y < desc->height && code == RasOk; ++y) {
    code = RasReadSl(desc, y, &sl);
    for (uint32_t k = 0; code == RasOk && k < desc->channels; ++k) {
      EXPECT_EQ(sl.plane8[k], nullptr);
      std::copy_n(sl.plane16[k], desc->width, &(*planes)[k][size_t{y} * desc->width]);
    }
  }
  RasFreeSl(&sl);
  const int closed = RasClose(desc);
  return code != RasOk ? code : closed;
}

void ExpectPlanes16(const std::string &path, uint32_t format, uint32_t maxval, uint32_t model,
                    float resolution, const Planes16 &planes) {
  Planes16 back;
  RasDesc desc{};
  ASSERT_EQ(ReadPlanes16(path, &desc, &back), RasOk);
  EXPECT_EQ(std::tuple(desc.format, desc.maxval, desc.model), std::tuple(format, maxval, model));
  EXPECT_NEAR(desc.resolution, resolution, 0.01f);
  EXPECT_EQ(back, planes);
}

int OpenAs(const std::string &path, uint32_t format) {
  RasDesc desc{};
  desc.format = format;
  const int code = RasOpen(path.c_str(), 'r', &desc);
  if (code == RasOk) return RasClose(&desc);
  EXPECT_EQ(desc.state, nullptr);
  return code;
}

ToolResult RunTool(const std::string &args) {
  const std::string command = std::string(KORVEL_TOOL_PATH) + " " + args + " 2>&1";
  ToolResult result;
  FILE *pipe = popen(command.c_str(), "r");
  if (!pipe) return result;
  char buffer[512];
  while (std::fgets(buffer, sizeof buffer, pipe))
    result.out += buffer;
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

Samples ReadNetpbm(const std::string &path) {
  const Bytes bytes = ReadFile(path);
  const std::string text(bytes.begin(), bytes.begin() + std::min<size_t>(bytes.size(), 200));
  static const std::regex pnm(R"(^P([56])\s+(\d+)\s+(\d+)\s+(\d+)\s)");
  static const std::regex pam(
      R"(^P7\nWIDTH (\d+)\nHEIGHT (\d+)\nDEPTH (\d)\nMAXVAL (\d+)\n(?:TUPLTYPE \w+\n)?ENDHDR\n)");
  std::smatch m;
  Samples s;
  if (std::regex_search(text, m, pnm)) {
    s = {uint32_t(std::stoul(m[2])),
         uint32_t(std::stoul(m[3])),
         m[1] == "5" ? 1u : 3u,
         uint32_t(std::stoul(m[4])),
         {}};
  } else if (std::regex_search(text, m, pam)) {
    s = {uint32_t(std::stoul(m[1])),
         uint32_t(std::stoul(m[2])),
         uint32_t(std::stoul(m[3])),
         uint32_t(std::stoul(m[4])),
         {}};
  } else {
    return s;
  }
  const size_t count = size_t{s.width} * s.height * s.channels, wide = s.maxval > 255 ? 2 : 1;
  const size_t at = size_t(m.length(0));
  if (bytes.size() < at + count * wide) return Samples{};
  for (size_t i = 0; i < count; ++i)
    s.values.push_back(wide == 2 ? uint16_t(bytes[at + 2 * i] << 8 | bytes[at + 2 * i + 1])
                                 : bytes[at + i]);
  return s;
}

Samples ReadSamples(const std::string &path, int *code) {
  RasDesc desc{};
  Samples s;
  *code = RasGetInfo(path.c_str(), &desc);
  if (*code == RasOk) *code = RasOpen(path.c_str(), 'r', &desc);
  if (*code != RasOk) return s;
  s = {desc.width, desc.height, desc.channels, desc.maxval, {}};
  s.values.resize(size_t{s.width} * s.height * s.channels);
  RasSl sl{};
  for (uint32_t y = 0; y < desc.height && *code == RasOk; ++y) {
    *code = RasReadSl(&desc, y, &sl);
    for (uint32_t x = 0; x < desc.width && *code == RasOk; ++x)
      for (uint32_t k = 0; k < desc.channels; ++k)
        s.values[(size_t{y} * s.width + x) * s.channels + k] =
            desc.maxval > 255 ? sl.plane16[k][x] : sl.plane8[k][x];
  }
  RasFreeSl(&sl);
  const int closed = RasClose(&desc);
  if (*code == RasOk) *code = closed;
  return s;
}

bool Shell(const std::string &command) {
  return std::system(("( " + command + " ) >/dev/null 2>&1").c_str()) == 0;
}

std::ostream &operator<<(std::ostream &out, const Logged &logged) {
  return out << logged.function << " " << logged.code << "/" << logged.detail;
}

ErrorLog::ErrorLog() : path_(TempPath("errors.log")) {
  std::remove(path_.c_str());
  setenv("KORVEL_RAS_LOG", path_.c_str(), 1);
}

ErrorLog::~ErrorLog() {
  unsetenv("KORVEL_RAS_LOG");
  std::remove(path_.c_str());
}

std::string ErrorLog::Text() const {
  std::ifstream in(path_);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void ErrorLog::Clear() const {
  std::remove(path_.c_str());
}

Logged ErrorLog::Last() const {
  static const std::regex line(
      R"(korvel-raster: (\w+) failed: code (-?\d+) \(.*\) detail (-?\d+))");
  Logged last;
  std::stringstream text(Text());
  std::string row;
  std::smatch m;
  while (std::getline(text, row))
    if (std::regex_search(row, m, line)) last = {m[1], std::stoi(m[2]), std::stoi(m[3])};
  return last;
}

std::vector<ManifestRow> ReadManifest(const std::string &testData) {
  std::ifstream in(testData + "/MANIFEST.md");
  static const std::regex section(R"(^## .*\(`([a-z0-9]+)/`)");
  static const std::regex row(R"(^\| `([^`]+)` \|(?:[^|]*\|){4} ([^|]*?) \|)");
  std::vector<ManifestRow> rows;
  std::string line, folder;
  std::smatch m;
  while (std::getline(in, line)) {
    if (std::regex_search(line, m, section)) folder = m[1];
    if (!folder.empty() && std::regex_search(line, m, row)) rows.push_back({folder, m[1], m[2]});
  }
  return rows;
}

}  // namespace testutil
