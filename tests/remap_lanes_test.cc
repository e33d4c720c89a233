// SIMD remaps against their reference variants on every compiled target: destination widths 1
// to 70 and large, padded and misaligned images and maps, positions inside, on the edges, far
// outside, NaN and infinities, every interpolation and border rule, 1- and 4-byte pixels.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;

class RemapLanes : public ::testing::Test {
 protected:
  void Fill(Image& mx, Image& my, uint32_t sw, uint32_t sh, int style) {
    std::uniform_real_distribution<float> ux(-2.0f, sw + 1.0f), uy(-2.0f, sh + 1.0f);
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(), 3e9f, -3e9f, -0.5f, 0.5f, -0.49999997f,
                              0.49999997f, float(sw) - 0.5f, float(sh) - 0.5f, -1.0f / 64, 1e-40f, -1e-40f,
                              1.0f / 64, 31.0f / 64};
    for (uint32_t j = 0; j < mx.height(); ++j)
      for (uint32_t i = 0; i < mx.width(); ++i) {
        float x, y;
        if (style == 0) {  // random, with special values
          x = rng_() % 7 ? ux(rng_) : specials[rng_() % 16];
          y = rng_() % 7 ? uy(rng_) : specials[rng_() % 16];
        } else {  // a smooth distortion, mostly inside
          const float cx = i - mx.width() / 2.0f, cy = j - mx.height() / 2.0f;
          const float r2 = (cx * cx + cy * cy) / (mx.width() * mx.width() + 1.0f);
          x = sw / 2.0f + cx * (1 + 0.2f * r2) * sw / mx.width();
          y = sh / 2.0f + cy * (1 + 0.2f * r2) * sh / mx.height();
        }
        mx.at<float>(i, j) = x;
        my.at<float>(i, j) = y;
      }
  }
  std::mt19937 rng_{31415};
};

struct Case {
  uint32_t sw, sh, dw, dh;
};

std::vector<Case> Cases() {
  std::vector<Case> cases;
  for (uint32_t dw = 1; dw <= 70; ++dw) cases.push_back({1 + dw % 9 + (dw % 3) * 20, 1 + dw % 5, dw, 1 + dw % 3});
  cases.push_back({1, 1, 33, 2});
  cases.push_back({3, 1, 40, 2});
  cases.push_back({640, 37, 1021, 5});
  return cases;
}

TEST_F(RemapLanes, SingleBytePixelsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Case& c : Cases()) {
      SCOPED_TRACE(::testing::Message() << c.sw << "x" << c.sh << " -> " << c.dw << "x" << c.dh);
      Image src(c.sw, c.sh, 1, c.sw % 5, c.sw % 3);
      src.Randomize(rng_);
      Image mx(c.dw, c.dh, 4, 4 * (c.dw % 3), 4 * (c.dw % 4)), my(c.dw, c.dh, 4, 4 * (c.dw % 3), 4 * (c.dw % 4));
      for (int style : {0, 1}) {
        Fill(mx, my, c.sw, c.sh, style);
        for (uint32_t interp : {0u, 1u}) {
          for (uint32_t border : {0u, 1u}) {
            Image ref(c.dw, c.dh, 1, 3, 1), simd(c.dw, c.dh, 1, 3, 1);
            const int32_t r = tvxRemapu8_v2C(src.bytes(), c.sw, c.sh, src.stride(), ref.bytes(), c.dw, c.dh, ref.stride(),
                                             mx.as<float>(), my.as<float>(), mx.stride(), interp, border, 0x1C3);
            const int32_t v = tvxRemapu8_v2V(src.bytes(), c.sw, c.sh, src.stride(), simd.bytes(), c.dw, c.dh, simd.stride(),
                                             mx.as<float>(), my.as<float>(), mx.stride(), interp, border, 0x1C3);
            ASSERT_EQ(r, 0);
            ASSERT_EQ(v, r);
            ASSERT_TRUE(simd.SameRect(ref)) << "interpolation " << interp << " border " << border << " style " << style;
            ASSERT_TRUE(simd.GuardsIntact());
          }
        }
        Image ref(c.dw, c.dh, 1), simd(c.dw, c.dh, 1);
        tvxRemapu8C(src.bytes(), c.sw, c.sh, src.stride(), ref.bytes(), c.dw, c.dh, ref.stride(), mx.as<float>(),
                    my.as<float>(), mx.stride(), 1);
        tvxRemapu8V(src.bytes(), c.sw, c.sh, src.stride(), simd.bytes(), c.dw, c.dh, simd.stride(), mx.as<float>(),
                    my.as<float>(), mx.stride(), 1);
        ASSERT_TRUE(simd.SameRect(ref)) << "tvxRemapu8";
      }
      Image untouched(c.dw, c.dh, 1), simd(c.dw, c.dh, 1);
      EXPECT_EQ(tvxRemapu8_v2V(src.bytes(), c.sw, c.sh, src.stride(), simd.bytes(), c.dw, c.dh, simd.stride(),
                               mx.as<float>(), my.as<float>(), mx.stride(), 2, 0, 0), 6);
      EXPECT_TRUE(simd.SameRect(untouched));
    }
  });
}

TEST_F(RemapLanes, FourBytePixelsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Case& c : Cases()) {
      SCOPED_TRACE(::testing::Message() << c.sw << "x" << c.sh << " -> " << c.dw << "x" << c.dh);
      Image src(c.sw, c.sh, 4, 4 * (c.sw % 3), 4 * (c.sw % 2));
      src.RandomizeWithExtremes(rng_, 4, 4);
      Image mx(c.dw, c.dh, 4, 8, 4), my(c.dw, c.dh, 4, 8, 4);
      for (int style : {0, 1}) {
        Fill(mx, my, c.sw, c.sh, style);
        Image rn(c.dw, c.dh, 4, 4, 4), vn(c.dw, c.dh, 4, 4, 4), rb(c.dw, c.dh, 4, 0, 8), vb(c.dw, c.dh, 4, 0, 8);
        ASSERT_EQ(tvxRemapRGBA8888NNu8C(src.bytes(), c.sw, c.sh, src.stride(), rn.bytes(), c.dw, c.dh, rn.stride(),
                                        mx.as<float>(), my.as<float>(), mx.stride()), 0);
        ASSERT_EQ(tvxRemapRGBA8888NNu8V(src.bytes(), c.sw, c.sh, src.stride(), vn.bytes(), c.dw, c.dh, vn.stride(),
                                        mx.as<float>(), my.as<float>(), mx.stride()), 0);
        ASSERT_EQ(tvxRemapRGBA8888BLu8C(src.bytes(), c.sw, c.sh, src.stride(), rb.bytes(), c.dw, c.dh, rb.stride(),
                                        mx.as<float>(), my.as<float>(), mx.stride()), 0);
        ASSERT_EQ(tvxRemapRGBA8888BLu8V(src.bytes(), c.sw, c.sh, src.stride(), vb.bytes(), c.dw, c.dh, vb.stride(),
                                        mx.as<float>(), my.as<float>(), mx.stride()), 0);
        ASSERT_TRUE(vn.SameRect(rn)) << "nearest, style " << style;
        ASSERT_TRUE(vb.SameRect(rb)) << "bilinear, style " << style;
        ASSERT_TRUE(vn.GuardsIntact());
        ASSERT_TRUE(vb.GuardsIntact());
      }
    }
  });
}

// A 1920-wide source row by row with a realistic distortion, plus one without any frame memory.
TEST_F(RemapLanes, LargeDistortionAndMissingFrame) {
  Image src(1920, 24, 1, 0, 0), mx(1920, 24, 4), my(1920, 24, 4);
  src.Randomize(rng_);
  Fill(mx, my, 1920, 24, 1);
  tvxtest::ForEachTarget([&] {
    Image ref(1920, 24, 1), simd(1920, 24, 1);
    ASSERT_EQ(tvxRemapu8_v2C(src.bytes(), 1920, 24, src.stride(), ref.bytes(), 1920, 24, ref.stride(), mx.as<float>(),
                             my.as<float>(), mx.stride(), 1, 1, 17), 0);
    ASSERT_EQ(tvxRemapu8_v2V(src.bytes(), 1920, 24, src.stride(), simd.bytes(), 1920, 24, simd.stride(), mx.as<float>(),
                             my.as<float>(), mx.stride(), 1, 1, 17), 0);
    EXPECT_TRUE(simd.SameRect(ref));
    Image untouched(1920, 24, 1);
    tvx_fail_heap_after_for_test(0);
    const int32_t status = tvxRemapu8_v2V(src.bytes(), 1920, 24, src.stride(), untouched.bytes(), 1920, 24,
                                          untouched.stride(), mx.as<float>(), my.as<float>(), mx.stride(), 1, 1, 17);
    tvx_fail_heap_after_for_test(-1);
    EXPECT_EQ(status, 5);
    EXPECT_TRUE(untouched.SameRect(Image(1920, 24, 1)));
  });
}

}  // namespace
