// SIMD variants of the frequency transforms against their reference variants on every compiled
// target: wavelets and DCT bit for bit over odd sizes around the vector widths, padded strides
// and misaligned rows (coefficients over the whole 16-bit range, where the inverse DCT's 32-bit
// arithmetic wraps), the FFT pair within a tolerance relative to the spectrum's magnitude.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;

struct Size {
  uint32_t w, h;
};

std::vector<Size> WaveletSizes() {
  std::vector<Size> sizes;
  for (uint32_t w = 1; w <= 40; w += (w < 18 ? 1 : 5)) sizes.push_back({w, 1 + (w * 5) % 9});
  sizes.push_back({67, 33});
  sizes.push_back({2, 64});
  return sizes;
}

class TransformLanes : public ::testing::Test {
 protected:
  Image Bytes(uint32_t w, uint32_t h) {
    Image img(w, h, 1, w % 5, w % 3);
    img.RandomizeWithExtremes(rng_, 1, 5);
    return img;
  }
  Image Shorts(uint32_t w, uint32_t h, int lo = -32768, int hi = 32767) {
    Image img(w, h, 2, 2 * (w % 3), 2 * (h % 2));
    img.RandomizeAs<int16_t>(rng_, std::uniform_int_distribution<int>(lo, hi));
    return img;
  }
  std::mt19937 rng_{1414};
};

using Fwd8 = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, int16_t*, uint32_t);
using Fwd16 = void (*)(const int16_t*, uint32_t, uint32_t, uint32_t, int16_t*, uint32_t);
using Inv8 = void (*)(const int16_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);

TEST_F(TransformLanes, WaveletsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Size& s : WaveletSizes()) {
      SCOPED_TRACE(::testing::Message() << s.w << "x" << s.h);
      const Image bytes = Bytes(s.w, s.h);
      // Samples that keep the 5/3 results inside 16 bits and ones that saturate them.
      const Image small = Shorts(s.w, s.h, -3000, 3000), full = Shorts(s.w, s.h);
      for (bool t : {false, true}) {
        const uint32_t ow = t ? s.h : s.w, oh = t ? s.w : s.h;
        {
          Image c(ow, oh, 2, 4, 2), v(ow, oh, 2, 4, 2);
          const Fwd8 fc = t ? tvxDWTHaarTransposeu8C : tvxDWTHaaru8C, fv = t ? tvxDWTHaarTransposeu8V : tvxDWTHaaru8V;
          fc(bytes.bytes(), s.w, s.h, bytes.stride(), c.as<int16_t>(), c.stride());
          fv(bytes.bytes(), s.w, s.h, bytes.stride(), v.as<int16_t>(), v.stride());
          EXPECT_TRUE(v.SameRect(c)) << "Haar, transposed " << t;
          EXPECT_TRUE(v.GuardsIntact());
        }
        for (const Image* src : {&small, &full}) {
          Image c(ow, oh, 2, 2, 0), v(ow, oh, 2, 2, 0);
          const Fwd16 fc = t ? tvxDWT53TabTransposes16C : tvxDWT53Tabs16C;
          const Fwd16 fv = t ? tvxDWT53TabTransposes16V : tvxDWT53Tabs16V;
          fc(src->as<int16_t>(), s.w, s.h, src->stride(), c.as<int16_t>(), c.stride());
          fv(src->as<int16_t>(), s.w, s.h, src->stride(), v.as<int16_t>(), v.stride());
          EXPECT_TRUE(v.SameRect(c)) << "5/3, transposed " << t;
          EXPECT_TRUE(v.GuardsIntact());
        }
        // Inverses read a plane of the forward output's shape and write the image.
        for (const Image* src : {&small, &full}) {
          const Image coef = Shorts(ow, oh, src == &small ? -3000 : -32768, src == &small ? 3000 : 32767);
          Image c(s.w, s.h, 1, 3, 1), v(s.w, s.h, 1, 3, 1);
          const Inv8 ic = t ? tvxIDWTHaarTransposes16C : tvxIDWTHaars16C, iv = t ? tvxIDWTHaarTransposes16V : tvxIDWTHaars16V;
          ic(coef.as<int16_t>(), ow, oh, coef.stride(), c.bytes(), c.stride());
          iv(coef.as<int16_t>(), ow, oh, coef.stride(), v.bytes(), v.stride());
          EXPECT_TRUE(v.SameRect(c)) << "inverse Haar, transposed " << t;
          EXPECT_TRUE(v.GuardsIntact());
          Image c16(s.w, s.h, 2, 2, 2), v16(s.w, s.h, 2, 2, 2);
          const Fwd16 jc = t ? tvxIDWT53TabTransposes16C : tvxIDWT53Tabs16C;
          const Fwd16 jv = t ? tvxIDWT53TabTransposes16V : tvxIDWT53Tabs16V;
          jc(coef.as<int16_t>(), ow, oh, coef.stride(), c16.as<int16_t>(), c16.stride());
          jv(coef.as<int16_t>(), ow, oh, coef.stride(), v16.as<int16_t>(), v16.stride());
          EXPECT_TRUE(v16.SameRect(c16)) << "inverse 5/3, transposed " << t;
          EXPECT_TRUE(v16.GuardsIntact());
        }
      }
    }
  });
}

TEST_F(TransformLanes, DctPairMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (Size s : {Size{8, 8}, Size{16, 24}, Size{21, 13}, Size{64, 16}, Size{7, 30}}) {
      SCOPED_TRACE(::testing::Message() << s.w << "x" << s.h);
      const Image src = Bytes(s.w, s.h);
      // Padded so that the default rule (2 * width rounded up to 16 bytes) holds.
      const uint32_t pad = ((2 * s.w + 15) & ~15u) - 2 * s.w + 2;
      Image c(s.w, s.h, 2, pad, 2), v(s.w, s.h, 2, pad, 2);
      tvxDCTu8C(src.bytes(), s.w, s.h, src.stride(), c.as<int16_t>(), c.stride());
      tvxDCTu8V(src.bytes(), s.w, s.h, src.stride(), v.as<int16_t>(), v.stride());
      EXPECT_TRUE(v.SameRect(c)) << "DCT";
      EXPECT_TRUE(v.GuardsIntact());
      if (s.w % 8 || s.h % 8) continue;
      // Coefficients over the whole 16-bit range: the 32-bit arithmetic wraps in both tiers.
      for (int range : {300, 32767}) {
        const Image coef = Shorts(s.w, s.h, -range - 1, range);
        Image ci(s.w, s.h, 1, 5, 3), vi(s.w, s.h, 1, 5, 3);
        tvxIDCTs16C(coef.as<int16_t>(), s.w, s.h, coef.stride(), ci.bytes(), ci.stride());
        tvxIDCTs16V(coef.as<int16_t>(), s.w, s.h, coef.stride(), vi.bytes(), vi.stride());
        EXPECT_TRUE(vi.SameRect(ci)) << "IDCT, range " << range;
        EXPECT_TRUE(vi.GuardsIntact());
      }
    }
  });
}

// Largest difference of the first 2 * w floats per row, relative to the largest magnitude in c.
double RelativeDifference(const Image& c, const Image& v, uint32_t floats) {
  double diff = 0, top = 0;
  for (uint32_t y = 0; y < c.height(); ++y)
    for (uint32_t i = 0; i < floats; ++i) {
      const float a = reinterpret_cast<const float*>(c.row(y))[i], b = reinterpret_cast<const float*>(v.row(y))[i];
      diff = std::max(diff, double(std::fabs(a - b)));
      top = std::max(top, double(std::fabs(a)));
    }
  return top > 0 ? diff / top : diff;
}

TEST_F(TransformLanes, FftPairMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (Size s : {Size{1, 1}, Size{2, 4}, Size{4, 1}, Size{8, 2}, Size{16, 16}, Size{128, 8}, Size{1, 64},
                   Size{1024, 1}, Size{256, 64}}) {
      SCOPED_TRACE(::testing::Message() << s.w << "x" << s.h);
      const Image src = Bytes(s.w, s.h);
      Image c(2 * s.w, s.h, 4, 8), v(2 * s.w, s.h, 4, 8);
      ASSERT_EQ(tvxFFTu8C(src.bytes(), s.w, s.h, src.stride(), c.as<float>(), c.stride()), 0);
      ASSERT_EQ(tvxFFTu8V(src.bytes(), s.w, s.h, src.stride(), v.as<float>(), v.stride()), 0);
      EXPECT_LE(RelativeDifference(c, v, 2 * s.w), 1e-6);
      EXPECT_TRUE(v.GuardsIntact());
      Image ci(s.w, s.h, 4, 4), vi(s.w, s.h, 4, 4);
      ASSERT_EQ(tvxIFFTf32C(c.as<float>(), s.w, s.h, c.stride(), ci.as<float>(), ci.stride()), 0);
      ASSERT_EQ(tvxIFFTf32V(c.as<float>(), s.w, s.h, c.stride(), vi.as<float>(), vi.stride()), 0);
      EXPECT_LE(RelativeDifference(ci, vi, s.w), 1e-6);
      EXPECT_TRUE(vi.GuardsIntact());
    }
  });
}

}  // namespace
