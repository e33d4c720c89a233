// SIMD variants of the optical-flow entries against their reference variants on every compiled
// target: tracked positions within 1e-3 px and identical statuses (features kept clear of the
// det and border thresholds) over window sizes around the vector widths, padded level-0 strides
// and every record form; block matching bit-identical over regions, radii and strides.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "optflow_scenes.h"
#include "simd_check.h"

namespace {

using tvxtest::Grid;
using tvxtest::Pyramids;
using tvxtest::Scene;

struct Out {
  std::vector<float> xy;
  std::vector<int32_t> status;
  int32_t ret = 0;
  explicit Out(size_t n) : xy(2 * n, -7.0f), status(n, 99) {}
};

void ExpectClose(const Out& c, const Out& v) {
  EXPECT_EQ(c.ret, v.ret);
  ASSERT_EQ(c.status, v.status);
  int tracked = 0;
  for (size_t i = 0; i < c.xy.size(); ++i) {
    EXPECT_NEAR(c.xy[i], v.xy[i], 1e-3f) << "coordinate " << i;
    tracked += c.status[i / 2] == 1;
  }
  EXPECT_GT(tracked, 0);
}

TEST(OptflowLanes, TrackersMatchReference) {
  struct Case {
    uint32_t width, height, pad;
    double mx, my;
    int32_t levels, ww, wh;
  };
  const Case cases[] = {{96, 64, 0, 0.4, -0.7, 1, 3, 3},    {112, 80, 5, 2.3, 1.6, 2, 7, 5},
                        {160, 128, 3, -5.2, 3.9, 3, 15, 15}, {128, 96, 1, 1.1, -2.2, 2, 21, 9},
                        {96, 96, 7, -0.6, 0.2, 2, 17, 1}};
  tvxtest::ForEachTarget([&] {
    for (const Case& c : cases) {
      SCOPED_TRACE(::testing::Message() << c.width << "x" << c.height << " window " << c.ww << "x" << c.wh);
      Scene s(c.width, c.height, c.mx, c.my, c.pad, 20);  // columns 0..19 flat: -2 there
      Pyramids p(s, c.levels);
      ASSERT_TRUE(p.built);
      // Textured features only: a window reaching into the flat columns has a nearly singular
      // gradient matrix, which magnifies the rounding of the sums far beyond the tolerance.
      std::vector<float> xy;
      const std::vector<float> grid = Grid(s.width, s.height, 8, 7, 0.3f);
      for (size_t i = 0; i < grid.size(); i += 2)
        if (grid[i] >= 36.0f) xy.insert(xy.end(), {grid[i], grid[i + 1]});
      xy.insert(xy.end(), {10.0f, 40.0f, 1.0f, 30.0f, float(s.width) - 1.5f, 30.0f});  // flat, left and right edges
      const size_t n = xy.size() / 2;
      const int32_t nf = static_cast<int32_t>(n);
      {
        Out ref(n), simd(n);
        tvxTrackLKOpticalFlowu8C(s.a.data(), s.b.data(), s.width, s.height, s.stride, p.a.data(), p.b.data(), nullptr,
                                 nullptr, xy.data(), ref.xy.data(), ref.status.data(), nf, c.ww, c.wh, c.levels, 20);
        tvxTrackLKOpticalFlowu8V(s.a.data(), s.b.data(), s.width, s.height, s.stride, p.a.data(), p.b.data(), nullptr,
                                 nullptr, xy.data(), simd.xy.data(), simd.status.data(), nf, c.ww, c.wh, c.levels, 20);
        SCOPED_TRACE("u8");
        ExpectClose(ref, simd);
      }
      {
        Out ref(n), simd(n);
        tvxTrackLKOpticalFlowu8_v2C(s.a.data(), s.b.data(), s.width, s.height, s.stride, p.a2.data(), p.b2.data(),
                                    nullptr, nullptr, xy.data(), ref.xy.data(), ref.status.data(), nf, c.ww, c.wh,
                                    c.levels, 2, 40, 0.0f);
        tvxTrackLKOpticalFlowu8_v2V(s.a.data(), s.b.data(), s.width, s.height, s.stride, p.a2.data(), p.b2.data(),
                                    nullptr, nullptr, xy.data(), simd.xy.data(), simd.status.data(), nf, c.ww, c.wh,
                                    c.levels, 2, 40, 0.0f);
        SCOPED_TRACE("u8_v2");
        ExpectClose(ref, simd);
      }
      {
        Out ref(n), simd(n);
        tvxTrackLKOpticalFlowf32C(s.fa.data(), s.fb.data(), s.width, s.height, s.width * 4, p.fa.data(), p.fb.data(),
                                  nullptr, nullptr, xy.data(), ref.xy.data(), ref.status.data(), nf, c.ww, c.wh,
                                  c.levels, 20);
        tvxTrackLKOpticalFlowf32V(s.fa.data(), s.fb.data(), s.width, s.height, s.width * 4, p.fa.data(), p.fb.data(),
                                  nullptr, nullptr, xy.data(), simd.xy.data(), simd.status.data(), nf, c.ww, c.wh,
                                  c.levels, 20);
        SCOPED_TRACE("f32");
        ExpectClose(ref, simd);
      }
      {
        std::vector<float> estimates(xy);
        for (float& e : estimates) e += 0.5f;
        Out ref(n), simd(n);
        ref.ret = tvxTrackLKOpticalFlowu8_v3C(s.a.data(), s.b.data(), s.width, s.height, s.stride, p.a2.data(),
                                              p.b2.data(), xy.data(), estimates.data(), ref.xy.data(),
                                              ref.status.data(), nf, c.ww, c.wh, c.levels, 0, 10, 0.0f, 1);
        simd.ret = tvxTrackLKOpticalFlowu8_v3V(s.a.data(), s.b.data(), s.width, s.height, s.stride, p.a2.data(),
                                               p.b2.data(), xy.data(), estimates.data(), simd.xy.data(),
                                               simd.status.data(), nf, c.ww, c.wh, c.levels, 0, 10, 0.0f, 1);
        SCOPED_TRACE("u8_v3");
        ExpectClose(ref, simd);
      }
    }
  });
}

TEST(OptflowLanes, BlockMatchingIsBitIdentical) {
  std::mt19937 rng(5);
  struct Case {
    uint32_t width, height, pad, left, top, roiW, roiH, radius;
  };
  const Case cases[] = {{64, 48, 0, 0, 0, 64, 48, 3},     {101, 77, 9, 5, 3, 90, 70, 6},
                        {48, 48, 1, 16, 16, 17, 31, 16}, {200, 40, 3, 0, 0, 200, 40, 64},
                        {37, 20, 0, 2, 1, 33, 18, 0}};
  tvxtest::ForEachTarget([&] {
    for (const Case& c : cases) {
      SCOPED_TRACE(::testing::Message() << c.width << "x" << c.height << " r " << c.radius);
      tvxtest::Image a(c.width, c.height, 1, c.pad, c.pad % 3), b(c.width, c.height, 1, c.pad, 1);
      a.RandomizeWithExtremes(rng, 1, 5);
      // b: a moved by (2, 1) with noise, so minima are distinct but near-ties happen.
      for (uint32_t y = 0; y < c.height; ++y)
        for (uint32_t x = 0; x < c.width; ++x)
          b.row(y)[x] = static_cast<uint8_t>(
              std::min<int>(255, a.row(y >= 1 ? y - 1 : 0)[x >= 2 ? x - 2 : 0] + int(rng() % 9)));
      const size_t blocks = size_t(c.roiW / 16) * (c.roiH / 16);
      std::vector<int32_t> ref(2 * blocks + 2, 77), simd(2 * blocks + 2, 77);
      EXPECT_EQ(tvxTrackBMOpticalFlow16x16u8C(a.bytes(), b.bytes(), c.width, c.height, a.stride(), c.left, c.top,
                                              c.roiW, c.roiH, c.radius, ref.data()),
                0);
      EXPECT_EQ(tvxTrackBMOpticalFlow16x16u8V(a.bytes(), b.bytes(), c.width, c.height, a.stride(), c.left, c.top,
                                              c.roiW, c.roiH, c.radius, simd.data()),
                0);
      EXPECT_EQ(ref, simd);
      EXPECT_EQ(simd[2 * blocks], 77);
    }
  });
}

}  // namespace
