// SIMD variants of the histogram family against their reference variants on every compiled
// target: histograms, equalisation, statistics and u8 moments bit for bit (both tiers finish
// from the same exact sums), differences and local binary patterns byte for byte, over odd
// widths, padded and misaligned rows and saturated data that reaches the lane bounds.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::ForEachTarget;
using tvxtest::Image;
using tvxtest::Shape;

Image Bytes(const Shape& s, std::mt19937& rng, int lo, int hi) {
  Image img(s.width, s.height, 1, s.pad, s.misalign);
  img.RandomizeAs<uint8_t>(rng, std::uniform_int_distribution<int>(lo, hi));
  return img;
}

std::vector<Shape> Shapes() {
  std::vector<Shape> shapes = tvxtest::SweepShapes();
  shapes.push_back({16384, 2, 3, 1});  // the widest moments row
  shapes.push_back({200, 130, 0, 0});
  return shapes;
}

TEST(HistoLanes, HistogramAndEqualisationMatch) {
  std::mt19937 rng(1);
  ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      SCOPED_TRACE(s.width);
      for (const auto& range : {std::pair<int, int>{0, 255}, {60, 66}, {255, 255}}) {
        const Image src = Bytes(s, rng, range.first, range.second);
        std::vector<uint32_t> hc(256), hv(256);
        for (uint32_t v = 0; v < 256; ++v) hc[v] = hv[v] = v * 977u;
        ASSERT_EQ(tvxImageIntensityHistogramC(src.bytes(), s.width, s.height, src.stride(), hc.data(), 1), 0);
        ASSERT_EQ(tvxImageIntensityHistogramV(src.bytes(), s.width, s.height, src.stride(), hv.data(), 1), 0);
        ASSERT_EQ(hc, hv);
        ASSERT_EQ(tvxImageIntensityHistogramC(src.bytes(), s.width, s.height, src.stride(), hc.data(), 0), 0);
        ASSERT_EQ(tvxImageIntensityHistogramV(src.bytes(), s.width, s.height, src.stride(), hv.data(), 0), 0);
        ASSERT_EQ(hc, hv);

        Image dc(s.width, s.height, 1, s.pad + 1), dv(s.width, s.height, 1, s.pad + 2, 3);
        ASSERT_EQ(tvxImageHistogramEqualizeu8C(src.bytes(), s.width, s.height, src.stride(), dc.bytes(), dc.stride()), 0);
        ASSERT_EQ(tvxImageHistogramEqualizeu8V(src.bytes(), s.width, s.height, src.stride(), dv.bytes(), dv.stride()), 0);
        ASSERT_TRUE(dc.SameRect(dv));
        ASSERT_TRUE(dv.GuardsIntact());
      }
    }
  });
}

TEST(HistoLanes, StatisticsAndMomentsMatchExactly) {
  std::mt19937 rng(2);
  ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      SCOPED_TRACE(s.width);
      for (const auto& range : {std::pair<int, int>{0, 255}, {250, 255}, {255, 255}, {0, 1}}) {
        const Image src = Bytes(s, rng, range.first, range.second);
        float mc = 0, sc = 0, mv = 1, sv = 1;
        ASSERT_EQ(tvxImageIntensityStatsC(src.bytes(), s.width, s.height, src.stride(), &mc, &sc), 0);
        ASSERT_EQ(tvxImageIntensityStatsV(src.bytes(), s.width, s.height, src.stride(), &mv, &sv), 0);
        ASSERT_EQ(std::memcmp(&mc, &mv, 4), 0) << mc << " vs " << mv;
        ASSERT_EQ(std::memcmp(&sc, &sv, 4), 0) << sc << " vs " << sv;
        float momC[24], momV[24];
        ASSERT_EQ(tvxImageMomentsu8C(src.bytes(), s.width, s.height, src.stride(), momC), 0);
        ASSERT_EQ(tvxImageMomentsu8V(src.bytes(), s.width, s.height, src.stride(), momV), 0);
        for (int k = 0; k < 24; ++k) ASSERT_EQ(std::memcmp(&momC[k], &momV[k], 4), 0) << "moment " << k;
      }
    }
    // Rows long enough to need several lane flushes, all saturated.
    const Image bright = Bytes({40000, 2, 0, 0}, rng, 255, 255);
    float mc, sc, mv, sv;
    tvxImageIntensityStatsC(bright.bytes(), 40000, 2, bright.stride(), &mc, &sc);
    tvxImageIntensityStatsV(bright.bytes(), 40000, 2, bright.stride(), &mv, &sv);
    EXPECT_EQ(mv, 255.0f);
    EXPECT_EQ(sv, 0.0f);
    EXPECT_EQ(mc, mv);
  });
}

TEST(HistoLanes, DifferencesMatch) {
  std::mt19937 rng(3);
  ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(s.width);
      const uint32_t w = s.width, h = s.height;
      const Image a = Bytes(s, rng, 0, 255), b = Bytes({w, h, s.pad + 3, s.misalign + 1}, rng, 0, 255);
      {
        Image c(w, h, 1, s.pad), v(w, h, 1, s.pad + 1, 1);
        tvxImageDiffu8C(a.bytes(), b.bytes(), w, h, a.stride(), b.stride(), c.bytes(), c.stride());
        tvxImageDiffu8V(a.bytes(), b.bytes(), w, h, a.stride(), b.stride(), v.bytes(), v.stride());
        ASSERT_TRUE(c.SameRect(v));
        ASSERT_TRUE(v.GuardsIntact());
      }
      {
        Image c(w, h, 1, s.pad), v(w, h, 1, s.pad + 1, 2);
        tvxImageDiffu8s8C(a.bytes(), b.bytes(), w, h, a.stride(), b.stride(), c.as<int8_t>(), c.stride());
        tvxImageDiffu8s8V(a.bytes(), b.bytes(), w, h, a.stride(), b.stride(), v.as<int8_t>(), v.stride());
        ASSERT_TRUE(c.SameRect(v));
        ASSERT_TRUE(v.GuardsIntact());
      }
      {
        Image c(w, h, 4, 4 * s.pad), v(w, h, 4, 8);
        tvxImageDiffu8f32C(a.bytes(), b.bytes(), w, h, a.stride(), b.stride(), c.as<float>(), c.stride());
        tvxImageDiffu8f32V(a.bytes(), b.bytes(), w, h, a.stride(), b.stride(), v.as<float>(), v.stride());
        ASSERT_TRUE(c.SameRect(v));
        ASSERT_TRUE(v.GuardsIntact());
      }
      {
        Image x(w, h, 2, 2 * s.pad), y(w, h, 2, 6), c(w, h, 2, 0), v(w, h, 2, 4);
        // Mostly extremes, so |x - y| overflows 16 bits often.
        const auto extreme = [&](Image& img) {
          std::uniform_int_distribution<int> any(-32768, 32767), pick(0, 3);
          for (uint32_t r = 0; r < h; ++r)
            for (uint32_t i = 0; i < w; ++i) {
              const int p = pick(rng);
              img.at<int16_t>(i, r) = static_cast<int16_t>(p == 0 ? -32768 : p == 1 ? 32767 : any(rng));
            }
        };
        extreme(x);
        extreme(y);
        tvxImageDiffs16C(x.as<int16_t>(), y.as<int16_t>(), w, h, x.stride(), y.stride(), c.as<int16_t>(), c.stride());
        tvxImageDiffs16V(x.as<int16_t>(), y.as<int16_t>(), w, h, x.stride(), y.stride(), v.as<int16_t>(), v.stride());
        ASSERT_TRUE(c.SameRect(v));
        ASSERT_TRUE(v.GuardsIntact());
      }
      {
        Image x(w, h, 4, 4 * s.pad), y(w, h, 4, 12), c(w, h, 4, 0), v(w, h, 4, 4);
        x.RandomizeAs<float>(rng, std::uniform_real_distribution<float>(-1e6f, 1e6f));
        y.RandomizeAs<float>(rng, std::uniform_real_distribution<float>(-1e6f, 1e6f));
        y.at<float>(0, 0) = x.at<float>(0, 0);  // an exact zero
        tvxImageDifff32C(x.as<float>(), y.as<float>(), w, h, x.stride(), y.stride(), c.as<float>(), c.stride());
        tvxImageDifff32V(x.as<float>(), y.as<float>(), w, h, x.stride(), y.stride(), v.as<float>(), v.stride());
        ASSERT_TRUE(c.SameRect(v));
        ASSERT_TRUE(v.GuardsIntact());
      }
    }
  });
}

TEST(HistoLanes, EdgeWeightMatches) {
  std::mt19937 rng(5);
  ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(s.width);
      const uint32_t w = s.width, h = s.height;
      Image x(w, h, 2, 2 * s.pad), y(w, h, 2, 4), c(w, h, 2, 0), v(w, h, 2, 2);
      std::uniform_int_distribution<int> any(-32768, 32767), pick(0, 3);
      for (Image* img : {&x, &y})
        for (uint32_t r = 0; r < h; ++r)
          for (uint32_t i = 0; i < w; ++i) {
            const int p = pick(rng);
            img->at<int16_t>(i, r) = static_cast<int16_t>(p == 0 ? -32768 : p == 1 ? any(rng) / 256 : any(rng));
          }
      tvxEdgeWeightings16C(x.as<int16_t>(), y.as<int16_t>(), w, h, x.stride(), y.stride(), c.as<int16_t>(), c.stride());
      tvxEdgeWeightings16V(x.as<int16_t>(), y.as<int16_t>(), w, h, x.stride(), y.stride(), v.as<int16_t>(), v.stride());
      ASSERT_TRUE(c.SameRect(v));
      ASSERT_TRUE(v.GuardsIntact());
    }
  });
}

TEST(HistoLanes, LocalBinaryPatternMatches) {
  std::mt19937 rng(4);
  ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(s.width);
      const Image src = Bytes(s, rng, 0, 255);
      const Image flat = Bytes(s, rng, 120, 124);
      for (int32_t t : {-2147483647 - 1, -300, -255, -3, 0, 1, 4, 255, 256, 100000}) {
        for (const Image* in : {&src, &flat}) {
          Image c(s.width, s.height, 1, s.pad), v(s.width, s.height, 1, s.pad + 2, 1);
          ASSERT_EQ(tvxGLBPu8C(in->bytes(), s.width, s.height, in->stride(), c.bytes(), c.stride(), t), 0);
          ASSERT_EQ(tvxGLBPu8V(in->bytes(), s.width, s.height, in->stride(), v.bytes(), v.stride(), t), 0);
          ASSERT_TRUE(c.SameRect(v)) << "threshold " << t;
          ASSERT_TRUE(v.GuardsIntact());
        }
      }
    }
  });
}

}  // namespace
