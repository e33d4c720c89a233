// SIMD variants of the fixed-kernel filters against their reference variants on every
// compiled target: widths 1-70 and large, heights around the 3x3 frame, padded misaligned
// rows whose guards must survive, extreme and random pixel values, every frame rule.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

// The sweep with heights 1-6 (frame only, one interior row, several) and a few tall images.
std::vector<Shape> FilterShapes() {
  std::vector<Shape> shapes;
  for (const Shape& s : tvxtest::SweepShapes()) shapes.push_back({s.width, s.height + 2 * (s.width % 3), s.pad, s.misalign});
  shapes.push_back({67, 33, 3, 1});
  shapes.push_back({130, 17, 0, 2});
  return shapes;
}

// Random bytes, with runs of 0 and 255 so sums reach their extremes and ties occur.
void Fill(Image& img, std::mt19937& rng) {
  img.RandomizeWithExtremes(rng, 1, 8);
}

// Runs reference and SIMD forms of one call on twin destinations and compares them.
template <typename C, typename V>
void Compare(const Shape& s, C callC, V callV) {
  Image c(s.width, s.height, 1, s.pad + 1, (s.misalign + 1) % 4), v(s.width, s.height, 1, s.pad + 1, (s.misalign + 1) % 4);
  // Pixels a filter leaves alone must stay as they were in both.
  for (uint32_t y = 0; y < s.height; ++y) {
    std::memset(c.row(y), 0x3C, s.width);
    std::memset(v.row(y), 0x3C, s.width);
  }
  callC(c);
  callV(v);
  EXPECT_TRUE(v.SameRect(c));
  EXPECT_TRUE(v.GuardsIntact());
  EXPECT_TRUE(c.GuardsIntact());
}

class FilterLanes : public ::testing::Test {
 protected:
  std::mt19937 rng_{7};
};

TEST_F(FilterLanes, GaussianMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : FilterShapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      Image src(s.width, s.height, 1, s.pad, s.misalign);
      Fill(src, rng_);
      const uint32_t w = s.width, h = s.height;
      if (w > 1) {
        for (int32_t blur = 0; blur <= 1; ++blur)
          Compare(s, [&](Image& d) { tvxFilterGaussian3x3u8_v2C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), blur); },
                  [&](Image& d) { tvxFilterGaussian3x3u8_v2V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), blur); });
      }
      for (uint32_t type = 0; type <= 2; ++type)
        Compare(s, [&](Image& d) { EXPECT_EQ(tvxFilterGaussian3x3u8_v3C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), type, 250), 0); },
                [&](Image& d) { EXPECT_EQ(tvxFilterGaussian3x3u8_v3V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), type, 250), 0); });
    }
  });
}

TEST_F(FilterLanes, Gaussian5x5And11x11MatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : FilterShapes()) {
      const uint32_t w = s.width + (s.width % 5 == 0 ? 10 : 0), h = s.height + 3 + (s.width % 5 == 0 ? 9 : 0);
      const Shape tall{w, h, s.pad, s.misalign};
      SCOPED_TRACE(::testing::Message() << w << "x" << h);
      Image src(w, h, 1, s.pad, s.misalign);
      Fill(src, rng_);
      for (int32_t blur = 0; blur <= 1; ++blur)
        Compare(tall, [&](Image& d) { tvxFilterGaussian11x11u8_v2C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), blur); },
                [&](Image& d) { tvxFilterGaussian11x11u8_v2V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), blur); });
      for (int32_t blur = 0; blur <= 1; ++blur)
        Compare(tall, [&](Image& d) { tvxFilterGaussian5x5u8_v2C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), blur); },
                [&](Image& d) { tvxFilterGaussian5x5u8_v2V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), blur); });
      // 16-bit pixels: even padding and offsets keep whole elements; extremes of both signs.
      Image s16(w, h, 2, s.pad * 2, s.misalign * 2);
      s16.RandomizeAs<int16_t>(rng_, std::uniform_int_distribution<int>(-32768, 32767));
      for (uint32_t y = 0; y < h; ++y) {
        s16.as<int16_t>()[y * (s16.stride() / 2)] = (y % 2) ? 32767 : -32768;
      }
      for (int32_t blur = 0; blur <= 1; ++blur) {
        Image c(w, h, 2, 2 * (s.pad % 3), 2), v(w, h, 2, 2 * (s.pad % 3), 2);
        for (uint32_t y = 0; y < h; ++y) std::memset(c.row(y), 0x3C, w * 2), std::memset(v.row(y), 0x3C, w * 2);
        tvxFilterGaussian5x5s16_v2C(s16.as<int16_t>(), w, h, s16.stride(), c.as<int16_t>(), c.stride(), blur);
        tvxFilterGaussian5x5s16_v2V(s16.as<int16_t>(), w, h, s16.stride(), v.as<int16_t>(), v.stride(), blur);
        EXPECT_TRUE(v.SameRect(c)) << "s16";
        EXPECT_TRUE(v.GuardsIntact());
      }
      Image s32(w, h, 4, s.pad * 4, (s.misalign % 2) * 4);
      s32.Randomize(rng_);
      for (uint32_t y = 0; y < h; y += 2) s32.as<int32_t>()[y * (s32.stride() / 4)] = y % 4 ? INT32_MAX : INT32_MIN;
      for (int32_t blur = 0; blur <= 1; ++blur) {
        Image c(w, h, 4, 4, 4), v(w, h, 4, 4, 4);
        for (uint32_t y = 0; y < h; ++y) std::memset(c.row(y), 0x3C, w * 4), std::memset(v.row(y), 0x3C, w * 4);
        tvxFilterGaussian5x5s32_v2C(s32.as<int32_t>(), w, h, s32.stride(), c.as<int32_t>(), c.stride(), blur);
        tvxFilterGaussian5x5s32_v2V(s32.as<int32_t>(), w, h, s32.stride(), v.as<int32_t>(), v.stride(), blur);
        EXPECT_TRUE(v.SameRect(c)) << "s32";
        EXPECT_TRUE(v.GuardsIntact());
      }
    }
  });
}

using StridedFn = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);
using BorderedFn = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, uint32_t, uint8_t);

TEST_F(FilterLanes, MorphologyMedianAndBoxesMatchReference) {
  struct Pair { const char* name; StridedFn c, v; BorderedFn bc, bv; };
  const Pair pairs[] = {
      {"erode", tvxFilterErode3x3u8_v2C, tvxFilterErode3x3u8_v2V, tvxFilterErode3x3u8_v3C, tvxFilterErode3x3u8_v3V},
      {"dilate", tvxFilterDilate3x3u8_v2C, tvxFilterDilate3x3u8_v2V, tvxFilterDilate3x3u8_v3C, tvxFilterDilate3x3u8_v3V},
      {"median", tvxFilterMedian3x3u8_v2C, tvxFilterMedian3x3u8_v2V, tvxFilterMedian3x3u8_v3C, tvxFilterMedian3x3u8_v3V},
      {"box", tvxBoxFilter3x3u8C, tvxBoxFilter3x3u8V, tvxBoxFilter3x3u8_v2C, tvxBoxFilter3x3u8_v2V},
      {"box 5x5", tvxBoxFilter5x5u8C, tvxBoxFilter5x5u8V, nullptr, nullptr},
      {"box 11x11", tvxBoxFilter11x11u8C, tvxBoxFilter11x11u8V, nullptr, nullptr},
  };
  tvxtest::ForEachTarget([&] {
    for (const Pair& p : pairs) {
      for (const Shape& s : FilterShapes()) {
        SCOPED_TRACE(::testing::Message() << p.name << " " << s.width << "x" << s.height);
        Image src(s.width, s.height, 1, s.pad, s.misalign);
        Fill(src, rng_);
        const uint32_t w = s.width, h = s.height;
        Compare(s, [&](Image& d) { p.c(src.bytes(), w, h, src.stride(), d.bytes(), d.stride()); },
                [&](Image& d) { p.v(src.bytes(), w, h, src.stride(), d.bytes(), d.stride()); });
        if (!p.bc) {  // the larger boxes also over tall images, so their interior runs
          const Shape tall{w, h + 12, s.pad, s.misalign};
          Image big(w, h + 12, 1, s.pad, s.misalign);
          Fill(big, rng_);
          Compare(tall, [&](Image& d) { p.c(big.bytes(), w, h + 12, big.stride(), d.bytes(), d.stride()); },
                  [&](Image& d) { p.v(big.bytes(), w, h + 12, big.stride(), d.bytes(), d.stride()); });
          continue;
        }
        for (uint32_t type = 0; type <= 2; ++type)
          Compare(s, [&](Image& d) { EXPECT_EQ(p.bc(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), type, 17), 0); },
                  [&](Image& d) { EXPECT_EQ(p.bv(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), type, 17), 0); });
      }
    }
  });
}

TEST_F(FilterLanes, ThresholdsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      Image src(s.width, s.height, 1, s.pad, s.misalign);
      Fill(src, rng_);
      const uint32_t w = s.width, h = s.height;
      for (uint32_t t : {0u, 1u, 77u, 254u, 255u, 256u, 0x7FFFFFFFu}) {
        SCOPED_TRACE(t);
        Compare(s, [&](Image& d) { tvxFilterThresholdu8_v2C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), t); },
                [&](Image& d) { tvxFilterThresholdu8_v2V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), t); });
        Compare(s, [&](Image& d) { tvxFilterThresholdu8_v3C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), t, 200, 3); },
                [&](Image& d) { tvxFilterThresholdu8_v3V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), t, 200, 3); });
      }
      const uint8_t ranges[][2] = {{0, 255}, {10, 200}, {255, 255}, {90, 40}};
      for (const auto& r : ranges) {
        Compare(s, [&](Image& d) { tvxFilterThresholdRangeu8C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), r[0], r[1]); },
                [&](Image& d) { tvxFilterThresholdRangeu8V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), r[0], r[1]); });
        Compare(s, [&](Image& d) { tvxFilterThresholdRangeu8_v2C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), r[0], r[1], 5, 250); },
                [&](Image& d) { tvxFilterThresholdRangeu8_v2V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), r[0], r[1], 5, 250); });
      }
      for (int32_t type : {0, 1, 5})
        Compare(s, [&](Image& d) { tvxFilterThresholdOtsuu8C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), type); },
                [&](Image& d) { tvxFilterThresholdOtsuu8V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), type); });
      // In place: each tier overwrites its own copy of the source.
      Image c(w, h, 1, s.pad, s.misalign), v(w, h, 1, s.pad, s.misalign);
      for (uint32_t y = 0; y < h; ++y) std::memcpy(c.row(y), src.row(y), w), std::memcpy(v.row(y), src.row(y), w);
      tvxFilterThresholdOtsuu8C(c.bytes(), w, h, c.stride(), c.bytes(), c.stride(), 1);
      tvxFilterThresholdOtsuu8V(v.bytes(), w, h, v.stride(), v.bytes(), v.stride(), 1);
      EXPECT_TRUE(v.SameRect(c));
      EXPECT_TRUE(v.GuardsIntact());
    }
  });
}

TEST_F(FilterLanes, AdaptiveThresholdsMatchReference) {
  using Fn = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t, int32_t, int32_t, uint8_t*, uint32_t);
  struct Pair { Fn c, v; uint32_t minSize; };
  const Pair pairs[] = {{tvxAdaptiveThresholdGaussian3x3u8C, tvxAdaptiveThresholdGaussian3x3u8V, 2},
                        {tvxAdaptiveThresholdGaussian5x5u8C, tvxAdaptiveThresholdGaussian5x5u8V, 5},
                        {tvxAdaptiveThresholdMean3x3u8C, tvxAdaptiveThresholdMean3x3u8V, 3},
                        {tvxAdaptiveThresholdGaussian11x11u8C, tvxAdaptiveThresholdGaussian11x11u8V, 11},
                        {tvxAdaptiveThresholdMean5x5u8C, tvxAdaptiveThresholdMean5x5u8V, 5},
                        {tvxAdaptiveThresholdMean11x11u8C, tvxAdaptiveThresholdMean11x11u8V, 11}};
  const int32_t offsets[][2] = {{0, 4}, {0, -4}, {1, 9}, {1, -9}, {0, 0}, {1, 1}, {0, 300}, {1, -254}};
  tvxtest::ForEachTarget([&] {
    for (const Pair& p : pairs) {
      for (const Shape& s : FilterShapes()) {
        const uint32_t w = s.width + p.minSize, h = s.height + p.minSize;
        const Shape grown{w, h, s.pad, s.misalign};
        SCOPED_TRACE(::testing::Message() << w << "x" << h);
        Image src(w, h, 1, s.pad, s.misalign);
        Fill(src, rng_);
        for (const auto& o : offsets)
          Compare(grown, [&](Image& d) { p.c(src.bytes(), w, h, src.stride(), 180, o[0], o[1], d.bytes(), d.stride()); },
                  [&](Image& d) { p.v(src.bytes(), w, h, src.stride(), 180, o[0], o[1], d.bytes(), d.stride()); });
      }
    }
  });
}

}  // namespace
