// Times CcApplyRows through a 27-node grid (8-bit nodes, 8-bit in and out) over
// a 24-Mpixel three-plane photo, on one thread and on all, against Little CMS
// 2 (which runs on one thread unless told otherwise) applying the same grid
// to the same pixels, planar and interleaved, with its default optimisations
// and with its fastest flags; then CcBuildTransform for one and ten clicks
// on a 640x480 photo against the 20 ms an editing click may take:
//   bench NAME ours_ms=X ours_1t_ms=Z peer=P peer_ms=Y ratio=X/Y ratio_1t=Z/Y
// Usage: color_bench RUNS
#include <lcms2.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/threads.h"
#include "colorengine/apply.h"
#include "colorengine/cc.h"
#include "pixels/pixels.h"

namespace {

// Photo-like planes: smooth gradients, a few flat shapes and sensor-like
// noise, so that neighbouring pixels mostly share a grid cell as in a photo.
void PaintPhoto(PlanarImage *p) {
  uint32_t state = 12345;
  for (int32_t y = 0; y < p->height; ++y)
    for (int32_t x = 0; x < p->width; ++x) {
      int rgb[3] = {40 + 180 * x / p->width, 60 + 150 * y / p->height,
                    220 - 160 * (x + y) / (p->width + p->height)};
      if ((x / 500 + y / 400) % 5 == 0) rgb[0] = 180, rgb[1] = 60, rgb[2] = 50;
      for (int c = 0; c < 3; ++c) {
        state = state * 1664525u + 1013904223u;
        const int v = rgb[c] + static_cast<int>((state >> 24) & 15) - 8;
        p->planes[c][size_t(y) * size_t(p->rowStride) + size_t(x)] =
            static_cast<uint8_t>(v < 0     ? 0
                                 : v > 255 ? 255
                                           : v);
      }
    }
}

// Clicks spread over the photo, of every kind in turn.
CcParams Clicks(int count, const PlanarImage &photo) {
  CcParams params;
  (void)CcInitParams(&params);
  for (int i = 0; i < count; ++i)
    params.points[params.pointCount++] = {i % 4, (photo.width / 11) * (i + 1),
                                          (photo.height / 13) * (1 + (i * 7) % 12)};
  return params;
}

// The whole photo in one call, as the editing view applies a transform.
int ApplyOurs(const CcTransform &t, const PlanarImage &src, uint8_t *const dst[3],
              uint32_t dstStep) {
  const uint32_t width = static_cast<uint32_t>(src.width);
  CcPixelRow from{{src.planes[0], src.planes[1], src.planes[2], nullptr}};
  CcPixelRow to{{dst[0], dst[1], dst[2], nullptr}};
  return CcApplyRows(&t, width, static_cast<uint32_t>(src.height), &from,
                     static_cast<uint32_t>(src.pixelStep), src.rowStride, &to, dstStep,
                     static_cast<ptrdiff_t>(width) * dstStep);
}

// The same grid as an lcms2 device link: one CLUT stage of 27 points per
// axis, whose first input varies slowest (ours: red fastest).
cmsHPROFILE GridAsDeviceLink(const CcTransformContext &c) {
  const int n = c.in[0].nodeCount;
  std::vector<cmsUInt16Number> table(size_t(n) * n * n * 3);
  const auto *grid = static_cast<const uint8_t *>(c.grid);
  for (int r = 0; r < n; ++r)
    for (int g = 0; g < n; ++g)
      for (int b = 0; b < n; ++b)
        for (int k = 0; k < 3; ++k)
          table[((size_t(r) * n + g) * n + b) * 3 + k] = static_cast<cmsUInt16Number>(
              grid[(size_t(r) + size_t(n) * (g + size_t(n) * b)) * 3 + k] * 257);
  cmsHPROFILE link = cmsCreateProfilePlaceholder(nullptr);
  cmsSetProfileVersion(link, 4.3);
  cmsSetDeviceClass(link, cmsSigLinkClass);
  cmsSetColorSpace(link, cmsSigRgbData);
  cmsSetPCS(link, cmsSigRgbData);
  cmsPipeline *lut = cmsPipelineAlloc(nullptr, 3, 3);
  cmsPipelineInsertStage(
      lut, cmsAT_BEGIN,
      cmsStageAllocCLut16bit(nullptr, static_cast<cmsUInt32Number>(n), 3, 3, table.data()));
  cmsWriteTag(link, cmsSigAToB0Tag, lut);
  cmsPipelineFree(lut);
  return link;
}

int MaxDifference(const uint8_t *a, const uint8_t *b, size_t count) {
  int worst = 0;
  for (size_t i = 0; i < count; ++i)
    worst = std::max(worst, std::abs(int(a[i]) - int(b[i])));
  return worst;
}

}  // namespace

int main(int argc, char **argv) {
  const int runs = std::max(5, argc > 1 ? std::atoi(argv[1]) : 5);
  // The transform: clicks on a 640x480 photo, which must give the grid path.
  PlanarImage *small = PlanarCreate(640, 480, 3);
  if (!small) return 1;
  PaintPhoto(small);
  CcParams params = Clicks(2, *small);
  CcTransform t{};
  if (CcBuildTransform(&params, small, &t) != 0 || t.context->gridFlag != 1) {
    std::fputs("color_bench: the clicks did not give a grid transform\n", stderr);
    return 1;
  }

  const int32_t width = 6000, height = 4000;
  const size_t pixels = size_t(width) * height, bytes = pixels * 3;
  PlanarImage *photo = PlanarCreate(width, height, 3);
  std::vector<uint8_t> ours(bytes), theirs(bytes), interleaved(bytes);
  if (!photo) return 1;
  PaintPhoto(photo);
  for (size_t i = 0; i < pixels; ++i)
    for (int c = 0; c < 3; ++c)
      interleaved[3 * i + size_t(c)] = photo->planes[c][i];

  cmsHPROFILE link = GridAsDeviceLink(*t.context);
  const cmsUInt32Number grid = cmsFLAGS_GRIDPOINTS(27);
  const struct {
    const char *suffix, *peer;
    cmsUInt32Number flags;
  } kPeers[2] = {{"", "lcms2", grid}, {"_fastest", "lcms2_fastest", grid | cmsFLAGS_NOCACHE}};
  for (const bool planar : {true, false}) {
    uint8_t *const planes[3] = {ours.data(), ours.data() + pixels, ours.data() + 2 * pixels};
    uint8_t *const packed[3] = {ours.data(), ours.data() + 1, ours.data() + 2};
    ThreadedMs mine;
    if (planar) {
      mine = MedianMsThreaded(runs, [&] { return ApplyOurs(t, *photo, planes, 1) == 0; });
    } else {
      // Interleaved source rows as well: the same pixels, stride 3 both ways.
      PlanarImage packedPhoto = *photo;
      packedPhoto.pixelStep = 3;
      packedPhoto.rowStride = 3 * width;
      for (int c = 0; c < 3; ++c)
        packedPhoto.planes[c] = interleaved.data() + c;
      mine = MedianMsThreaded(runs, [&] { return ApplyOurs(t, packedPhoto, packed, 3) == 0; });
    }
    for (const auto &peer : kPeers) {
      const cmsUInt32Number format = planar ? TYPE_RGB_8_PLANAR : TYPE_RGB_8;
      cmsHTRANSFORM x =
          cmsCreateTransform(link, format, nullptr, format, INTENT_PERCEPTUAL, peer.flags);
      if (!x) return 1;
      const void *in = planar ? static_cast<const void *>(photo->planes[0]) : interleaved.data();
      const double lcms = MedianMs(runs, [&] {
        cmsDoTransform(x, in, theirs.data(), static_cast<cmsUInt32Number>(pixels));
        return true;
      });
      cmsDeleteTransform(x);
      char name[64];
      std::snprintf(name, sizeof name, "color_apply_%s%s", planar ? "planar" : "interleaved",
                    peer.suffix);
      PrintBenchThreaded(name, mine, peer.peer, lcms);
      std::printf("info %s mpixel_s=%.0f mpixel_s_1t=%.0f largest_difference=%d\n", name,
                  pixels / mine.all / 1000.0, pixels / mine.one / 1000.0,
                  MaxDifference(ours.data(), theirs.data(), bytes));
    }
  }
  cmsCloseProfile(link);
  int code = CcFreeTransform(&t);

  // Building: the editing view rebuilds after every click.
  for (const int clicks : {1, 10}) {
    const double ms = MedianMs(runs, [&] {
      CcParams fresh = Clicks(clicks, *small);
      CcTransform built{};
      const bool grid = CcBuildTransform(&fresh, small, &built) == 0 && built.context->gridFlag;
      return CcFreeTransform(&built) == 0 && grid;
    });
    char name[64];
    std::snprintf(name, sizeof name, "color_build_%dclick%s", clicks, clicks > 1 ? "s" : "");
    PrintBench(name, ms, "budget", 20.0);
  }
  PlanarFree(photo);
  PlanarFree(small);
  return code != 0;
}
