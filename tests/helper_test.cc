// Internal helper pointers: what the mode selections bind them to, and the kernels the helpers
// have of their own (luma only, horizontal chroma resampling, 16-bit interleave, per-format
// channel extract) against per-sample formulas written here, and SIMD against reference on
// every compiled target with guard bytes around every plane.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "frame/hw.h"
#include "helpers.inc"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

constexpr TvxCpuRecord kArmNeon = {1, TVX_HW_ARCH7 | TVX_HW_FP | TVX_HW_SIMD, 0x41, 0};

void* Find(const std::string& name) {
  for (const TvxHelperEntry& h : kTvxHelpers)
    if (name == h.name) return *h.pointer;
  ADD_FAILURE() << "no helper " << name;
  return nullptr;
}

// Must stay the first test of this process: it sees the pointers before any mode selection.
TEST(HelperBinding, PointersStartOnReferenceAndFollowEveryModeSelection) {
  for (const TvxHelperEntry& h : kTvxHelpers) EXPECT_EQ(*h.pointer, h.reference) << h.name;
  tvx_set_cpu_record_for_test(kArmNeon);
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE), 0);
    for (const TvxHelperEntry& h : kTvxHelpers) EXPECT_EQ(*h.pointer, h.lanes) << h.name;
    ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_REFERENCE), 0);
    for (const TvxHelperEntry& h : kTvxHelpers) EXPECT_EQ(*h.pointer, h.reference) << h.name;
  }
  // Spot checks of the registry's mapping, by name.
  EXPECT_EQ(Find("rgb8882yuv_"), (void*)&tvxColorRGB888ToYCbCr422Planaru8C);
  EXPECT_EQ(Find("rgba88882yyuvp_"), (void*)&tvxColorRGBA8888ToYCbCr420PseudoPlanaru8C);
  EXPECT_EQ(Find("rgb565_to_bgra8888_"), (void*)&tvxColorRGB565ToBGRA8888u8C);
  EXPECT_EQ(Find("chroma_up_2d_"), (void*)&tvxUpsample2DInterleavedu8C);
  EXPECT_EQ(Find("ScaleDownMNu8Core_"), (void*)&tvxScaleDownMNu8C);
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_CPU), 0);
  EXPECT_EQ(Find("rgb8882y_"), (void*)&rgb8882yV);
  EXPECT_EQ(Find("itvx_yuv_interleave_chroma_"), (void*)&tvxInterleaveu8V);
  // A mode without the SIMD tier leaves every pointer on its reference kernel.
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_REFERENCE), 0);
  EXPECT_EQ(Find("rgb8882y_"), (void*)&rgb8882yC);
}

// ---- kernels of their own: each case runs one tier's kernel on a shape and returns the
// output images; `expect` checks them against the formula from the inputs.

struct Outcome {
  std::vector<Image> in, out;
};
struct OwnKernel {
  const char* name;
  std::function<Outcome(bool simd, const Shape&, std::mt19937&)> run;
  std::function<void(const Outcome&, uint32_t w, uint32_t h)> expect;
};

typedef void (*PlaneFn)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);
typedef void (*TwoToOneFn)(const uint8_t*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t, uint8_t*,
                           uint32_t);
typedef void (*OneToTwoFn)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint8_t*, uint32_t, uint32_t);

uint32_t Half(uint32_t n) { return (n + 1) / 2; }

Image Random(uint32_t w, uint32_t h, uint32_t bytes, const Shape& s, std::mt19937& rng, uint32_t pad = 0) {
  Image img(w, h, bytes, s.pad + pad, s.misalign);
  img.RandomizeWithExtremes(rng, bytes, 8);
  return img;
}

OwnKernel Luma(const char* name, PlaneFn c, PlaneFn v, uint32_t bytes) {
  return {name,
          [=](bool simd, const Shape& s, std::mt19937& rng) {
            Outcome r;
            r.in.push_back(Random(s.width, s.height, bytes, s, rng));
            r.out.emplace_back(s.width, s.height, 1, s.pad + 3, 1);
            (simd ? v : c)(r.in[0].bytes(), s.width, s.height, r.in[0].stride(), r.out[0].bytes(), r.out[0].stride());
            return r;
          },
          [=](const Outcome& r, uint32_t w, uint32_t h) {
            for (uint32_t y = 0; y < h; ++y)
              for (uint32_t x = 0; x < w; ++x) {
                const uint8_t* p = r.in[0].row(y) + x * bytes;
                uint32_t b0 = p[0], b1 = p[1], b2 = bytes > 2 ? p[2] : 0;
                if (bytes == 2) {  // RGB565 little-endian word, low bits of the expansion 0
                  const uint32_t word = p[0] | p[1] << 8;
                  b0 = (word & 31) << 3, b1 = ((word >> 5) & 63) << 2, b2 = (word >> 11) << 3;
                }
                ASSERT_EQ(r.out[0].row(y)[x], (29 * b0 + 150 * b1 + 77 * b2 + 128) >> 8) << x << "," << y;
              }
          }};
}

// Planar (two planes) or interleaved (one plane of pairs) chroma sample i of row y.
uint8_t PlanarAt(const Outcome& r, int plane, uint32_t x, uint32_t y) { return r.in[plane].row(y)[x]; }
uint8_t PairAt(const Outcome& r, int k, uint32_t x, uint32_t y) { return r.in[0].row(y)[2 * x + k]; }

std::vector<OwnKernel> OwnKernels() {
  std::vector<OwnKernel> k = {Luma("rgb5652y_", rgb5652yC, rgb5652yV, 2), Luma("rgb8882y_", rgb8882yC, rgb8882yV, 3),
                              Luma("rgba88882y_", rgba88882yC, rgba88882yV, 4)};
  // One plane or plane of pairs in, one out; `down` halves the sample count.
  auto plane = [&](const char* name, PlaneFn c, PlaneFn v, uint32_t bytes) {
    k.push_back({name,
                 [=](bool simd, const Shape& s, std::mt19937& rng) {
                   Outcome r;
                   r.in.push_back(Random(s.width, s.height, bytes, s, rng));
                   r.out.emplace_back(Half(s.width), s.height, bytes, s.pad + 2, 2);
                   (simd ? v : c)(r.in[0].bytes(), s.width, s.height, r.in[0].stride(), r.out[0].bytes(),
                                  r.out[0].stride());
                   return r;
                 },
                 [=](const Outcome& r, uint32_t w, uint32_t h) {
                   for (uint32_t y = 0; y < h; ++y)
                     for (uint32_t i = 0; i < Half(w) * bytes; ++i)
                       ASSERT_EQ(r.out[0].row(y)[i], r.in[0].row(y)[2 * bytes * (i / bytes) + i % bytes]);
                 }});
  };
  plane("downsample_horizontal_", downsample_horizontalC, downsample_horizontalV, 1);
  plane("downsample_horizontal_i_", downsample_horizontal_iC, downsample_horizontal_iV, 2);
  // Two planes in, pairs out; source index of output x is 2x (down) or x/2 (up).
  auto interleave = [&](const char* name, TwoToOneFn c, TwoToOneFn v, bool up) {
    k.push_back({name,
                 [=](bool simd, const Shape& s, std::mt19937& rng) {
                   const uint32_t inW = up ? Half(s.width) : s.width, outW = up ? s.width : Half(s.width);
                   Outcome r;
                   r.in.push_back(Random(inW, s.height, 1, s, rng));
                   r.in.push_back(Random(inW, s.height, 1, s, rng, 5));
                   r.out.emplace_back(outW, s.height, 2, s.pad + 1, 3);
                   (simd ? v : c)(r.in[0].bytes(), r.in[1].bytes(), s.width, s.height, r.in[0].stride(),
                                  r.in[1].stride(), r.out[0].bytes(), r.out[0].stride());
                   return r;
                 },
                 [=](const Outcome& r, uint32_t w, uint32_t h) {
                   for (uint32_t y = 0; y < h; ++y)
                     for (uint32_t x = 0; x < (up ? w : Half(w)); ++x)
                       for (int c = 0; c < 2; ++c)
                         ASSERT_EQ(r.out[0].row(y)[2 * x + c], PlanarAt(r, c, up ? x / 2 : 2 * x, y)) << x;
                 }});
  };
  interleave("downsample_and_interleave_horizontal_", downsample_and_interleave_horizontalC,
             downsample_and_interleave_horizontalV, false);
  interleave("upsample_and_interleave_horizontal_", upsample_and_interleave_horizontalC,
             upsample_and_interleave_horizontalV, true);
  auto deinterleave = [&](const char* name, OneToTwoFn c, OneToTwoFn v, bool up) {
    k.push_back({name,
                 [=](bool simd, const Shape& s, std::mt19937& rng) {
                   const uint32_t inW = up ? Half(s.width) : s.width, outW = up ? s.width : Half(s.width);
                   Outcome r;
                   r.in.push_back(Random(inW, s.height, 2, s, rng));
                   r.out.emplace_back(outW, s.height, 1, s.pad + 1, 3);
                   r.out.emplace_back(outW, s.height, 1, 7, 1);
                   (simd ? v : c)(r.in[0].bytes(), s.width, s.height, r.in[0].stride(), r.out[0].bytes(),
                                  r.out[1].bytes(), r.out[0].stride(), r.out[1].stride());
                   return r;
                 },
                 [=](const Outcome& r, uint32_t w, uint32_t h) {
                   for (uint32_t y = 0; y < h; ++y)
                     for (uint32_t x = 0; x < (up ? w : Half(w)); ++x)
                       for (int c = 0; c < 2; ++c)
                         ASSERT_EQ(r.out[c].row(y)[x], PairAt(r, c, up ? x / 2 : 2 * x, y)) << x;
                 }});
  };
  deinterleave("downsample_and_deinterleave_horizontal_", downsample_and_deinterleave_horizontalC,
               downsample_and_deinterleave_horizontalV, false);
  deinterleave("upsample_and_deinterleave_horizontal_", upsample_and_deinterleave_horizontalC,
               upsample_and_deinterleave_horizontalV, true);
  k.push_back({"interleaves16_",
               [](bool simd, const Shape& s, std::mt19937& rng) {
                 // 16-bit samples stay 2-byte aligned: even pads and offsets.
                 const Shape even{s.width, s.height, 2 * s.pad, 2 * (s.misalign % 2)};
                 Outcome r;
                 r.in.push_back(Random(s.width, s.height, 2, even, rng));
                 r.in.push_back(Random(s.width, s.height, 2, even, rng, 4));
                 r.out.emplace_back(s.width, s.height, 4, 2 * s.pad, 2);
                 (simd ? interleaves16V : interleaves16C)(r.in[0].as<int16_t>(), r.in[1].as<int16_t>(), s.width,
                                                          s.height, r.in[0].stride(), r.in[1].stride(),
                                                          r.out[0].as<int16_t>(), r.out[0].stride());
                 return r;
               },
               [](const Outcome& r, uint32_t w, uint32_t h) {
                 for (uint32_t y = 0; y < h; ++y)
                   for (uint32_t x = 0; x < 2 * w; ++x)
                     ASSERT_EQ(0, std::memcmp(r.out[0].row(y) + 2 * x, r.in[x % 2].row(y) + 2 * (x / 2), 2)) << x;
               }});
  return k;
}

TEST(HelperKernels, ReferenceKernelsFollowTheirFormulas) {
  std::mt19937 rng(11);
  for (const OwnKernel& k : OwnKernels()) {
    SCOPED_TRACE(k.name);
    for (const Shape& s : {Shape{1, 1, 0, 0}, Shape{2, 3, 1, 1}, Shape{37, 5, 3, 2}, Shape{130, 2, 0, 3}}) {
      const Outcome r = k.run(false, s, rng);
      k.expect(r, s.width, s.height);
      for (const Image& out : r.out) EXPECT_TRUE(out.GuardsIntact());
    }
  }
}

TEST(HelperKernels, SimdKernelsMatchReferenceOnEveryTarget) {
  const std::vector<OwnKernel> kernels = OwnKernels();
  tvxtest::ForEachTarget([&] {
    for (const OwnKernel& k : kernels) {
      SCOPED_TRACE(k.name);
      for (const Shape& s : tvxtest::SweepShapes()) {
        std::mt19937 a(s.width * 31 + s.height), b(s.width * 31 + s.height);
        const Outcome ref = k.run(false, s, a), simd = k.run(true, s, b);
        for (size_t i = 0; i < ref.out.size(); ++i) {
          ASSERT_TRUE(simd.out[i].SameRect(ref.out[i])) << "output " << i << ", width " << s.width;
          ASSERT_TRUE(simd.out[i].GuardsIntact()) << "output " << i << ", width " << s.width;
        }
      }
    }
  });
}

// The per-format extract helpers are the public extract with the format fixed: same bytes for
// every channel, through the pointers bound by the SIMD mode.
TEST(HelperKernels, ChannelExtractHelpersFixTheFormat) {
  tvx_set_cpu_record_for_test(kArmNeon);
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE), 0);
  std::mt19937 rng(5);
  const uint32_t w = 37, h = 7;
  Image packed(w, h, 4, 3, 1), chroma(Half(w), Half(h), 2, 1, 2);
  packed.Randomize(rng);
  chroma.Randomize(rng);
  typedef void (*PackedExtract)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, uint32_t);
  typedef void (*SemiPlanarExtract)(const uint8_t*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t, uint8_t*,
                                    uint32_t, uint32_t);
  const struct {
    PackedExtract* packed;
    SemiPlanarExtract* semiPlanar;
    uint32_t format, channels;
  } cases[] = {{&itvxChannelExtractFromRGB_, nullptr, 0, 3},  {&itvxChannelExtractFromRGBA_, nullptr, 1, 4},
               {nullptr, &itvxChannelExtractFromNV12_, 2, 3}, {nullptr, &itvxChannelExtractFromNV21_, 3, 3},
               {&itvxChannelExtractFromUYVY_, nullptr, 4, 3}, {&itvxChannelExtractFromYUYV_, nullptr, 5, 3}};
  for (const auto& c : cases) {
    for (uint32_t ch = 0; ch < c.channels; ++ch) {
      SCOPED_TRACE(testing::Message() << "format " << c.format << " channel " << ch);
      const bool half = c.format >= 2 && ch > 0;
      const uint32_t outW = half ? Half(w) : w, outH = half && c.format <= 3 ? Half(h) : h;
      Image viaHelper(outW, outH, 1, 2, 1), viaEntry(outW, outH, 1);
      if (c.packed)
        (*c.packed)(packed.bytes(), w, h, packed.stride(), viaHelper.bytes(), viaHelper.stride(), ch);
      else
        (*c.semiPlanar)(packed.bytes(), chroma.bytes(), w, h, packed.stride(), chroma.stride(), viaHelper.bytes(),
                        viaHelper.stride(), ch);
      ASSERT_EQ(tvxChannelExtractu8(packed.bytes(), w, h, packed.stride(), chroma.bytes(), chroma.stride(),
                                    viaEntry.bytes(), viaEntry.stride(), c.format, ch),
                0);
      EXPECT_TRUE(viaHelper.SameRect(viaEntry));
      EXPECT_TRUE(viaHelper.GuardsIntact());
    }
  }
  tvxSetOperationMode(TAVIX_OP_EXT_REFERENCE);
}

}  // namespace
