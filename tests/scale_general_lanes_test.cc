// SIMD variants of the general scalers against their reference variants on every compiled
// target: odd sizes around the vector widths, padded strides, misaligned first pixels, output
// sizes that shrink, keep and grow each side, and inputs leaning on 0 and 255.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

std::vector<Shape> Shapes() {
  std::vector<Shape> shapes;
  for (uint32_t w = 1; w <= 70; w += (w < 20 ? 1 : 3)) shapes.push_back({w, 1 + (w * 5) % 11, (w * 7) % 13, w % 4});
  for (uint32_t w : {127u, 129u, 257u}) shapes.push_back({w, 6 + w % 5, w % 5, w % 3});
  shapes.push_back({1021, 7, 5, 3});
  return shapes;
}

class ScaleGeneralLanes : public ::testing::Test {
 protected:
  Image Source(const Shape& s, uint32_t ch) {
    Image src(s.width, s.height, ch, s.pad, s.misalign);
    src.RandomizeWithExtremes(rng_, ch, 4);
    return src;
  }
  std::mt19937 rng_{909};
};

using Step = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);

TEST_F(ScaleGeneralLanes, GaussianStepsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      const Image src = Source(s, 1);
      const uint32_t hw = s.width / 2, hh = s.height / 2;
      {
        Image c(hw, hh, 1, s.pad + 1, 1), v(hw, hh, 1, s.pad + 1, 1);
        tvxScaleDownBy2Gaussian5x5u8_v2C(src.bytes(), s.width, s.height, src.stride(), c.bytes(), c.stride());
        tvxScaleDownBy2Gaussian5x5u8_v2V(src.bytes(), s.width, s.height, src.stride(), v.bytes(), v.stride());
        EXPECT_TRUE(v.SameRect(c)) << "5x5 reduction";
        EXPECT_TRUE(v.GuardsIntact());
      }
      {
        Image c(hw, hh, 1, 2, 3), v(hw, hh, 1, 2, 3);
        EXPECT_EQ(tvxScaleDownBy2Gaussian3x3u8C(src.bytes(), s.width, s.height, src.stride(), c.bytes(), c.stride()), 0);
        EXPECT_EQ(tvxScaleDownBy2Gaussian3x3u8V(src.bytes(), s.width, s.height, src.stride(), v.bytes(), v.stride()), 0);
        EXPECT_TRUE(v.SameRect(c)) << "3x3 reduction";
        EXPECT_TRUE(v.GuardsIntact());
      }
      {
        Image c(2 * s.width, 2 * s.height, 1, 3, 2), v(2 * s.width, 2 * s.height, 1, 3, 2);
        tvxScaleUpBy2Gaussian5x5u8_v2C(src.bytes(), s.width, s.height, src.stride(), c.bytes(), c.stride());
        tvxScaleUpBy2Gaussian5x5u8_v2V(src.bytes(), s.width, s.height, src.stride(), v.bytes(), v.stride());
        EXPECT_TRUE(v.SameRect(c)) << "enlargement";
        EXPECT_TRUE(v.GuardsIntact());
      }
      if (s.width % 2 == 0 && s.height % 2 == 0) {  // the packed form
        Image packed(s.width, s.height, 1), c(hw, hh, 1), v(hw, hh, 1);
        for (uint32_t y = 0; y < s.height; ++y)
          for (uint32_t x = 0; x < s.width; ++x) packed.row(y)[x] = src.row(y)[x];
        tvxScaleDownBy2Gaussian5x5u8C(packed.bytes(), s.width, s.height, c.bytes());
        tvxScaleDownBy2Gaussian5x5u8V(packed.bytes(), s.width, s.height, v.bytes());
        EXPECT_TRUE(v.SameRect(c)) << "packed 5x5 reduction";
        EXPECT_TRUE(v.GuardsIntact());
      }
    }
  });
}

TEST_F(ScaleGeneralLanes, FloatGaussianReductionIsBitIdentical) {
  std::uniform_real_distribution<float> dist(-1000.0f, 1000.0f);
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      const uint32_t w = s.width & ~1u, h = (s.height + 1) & ~1u;
      if (!w) continue;
      SCOPED_TRACE(::testing::Message() << w << "x" << h);
      Image src(w, h, 4, 4 * (s.pad % 3), 4 * (s.misalign % 2));
      src.RandomizeAs<float>(rng_, dist);
      Image c(w / 2, h / 2, 4, 8, 4), v(w / 2, h / 2, 4, 8, 4);
      tvxScaleDownBy2Gaussian5x5f32_v2C(src.as<float>(), w, h, src.stride(), c.as<float>(), c.stride());
      tvxScaleDownBy2Gaussian5x5f32_v2V(src.as<float>(), w, h, src.stride(), v.as<float>(), v.stride());
      EXPECT_TRUE(v.SameRect(c));
      EXPECT_TRUE(v.GuardsIntact());
      if (s.pad % 3 == 0) {  // packed rows: the first form
        Image pc(w / 2, h / 2, 4), pv(w / 2, h / 2, 4);
        tvxScaleDownBy2Gaussian5x5f32C(src.as<float>(), w, h, pc.as<float>());
        tvxScaleDownBy2Gaussian5x5f32V(src.as<float>(), w, h, pv.as<float>());
        EXPECT_TRUE(pv.SameRect(pc));
        EXPECT_TRUE(pv.GuardsIntact());
      }
    }
  });
}

using Resampler = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, uint32_t, uint32_t);

// Output sizes that shrink strongly, shrink a little, keep and grow.
std::vector<std::pair<uint32_t, uint32_t>> Sizes(const Shape& s) {
  const auto pick = [](uint32_t n, uint32_t k) {
    const uint32_t options[4] = {n / 3 + 1, (3 * n) / 4 + 1, n, 2 * n + 1};
    return options[k];
  };
  std::vector<std::pair<uint32_t, uint32_t>> sizes;
  for (uint32_t k = 0; k < 4; ++k) sizes.push_back({pick(s.width, k), pick(s.height, (k + s.width) % 4)});
  return sizes;
}

TEST_F(ScaleGeneralLanes, GeneralScalerMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      const Image src = Source(s, 1);
      for (const auto& [dw, dh] : Sizes(s)) {
        for (uint32_t interp : {0u, 1u, 2u}) {
          for (uint32_t border : {1u, 2u}) {
            if (interp != 1 && border == 1) continue;  // the border only reaches bilinear taps
            SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height << " to " << dw << "x" << dh << " interpolation "
                                              << interp << " border " << border);
            Image c(dw, dh, 1, s.pad, 3 - s.misalign), v(dw, dh, 1, s.pad, 3 - s.misalign);
            const uint8_t value = static_cast<uint8_t>(rng_());
            EXPECT_EQ(tvxScaleu8_v2C(src.bytes(), s.width, s.height, src.stride(), c.bytes(), dw, dh, c.stride(), interp,
                                     border, value),
                      0);
            EXPECT_EQ(tvxScaleu8_v2V(src.bytes(), s.width, s.height, src.stride(), v.bytes(), dw, dh, v.stride(), interp,
                                     border, value),
                      0);
            EXPECT_TRUE(v.SameRect(c));
            EXPECT_TRUE(v.GuardsIntact());
          }
        }
        // Exact halving of the even part of the source.
        const uint32_t hw = s.width / 2, hh = s.height / 2;
        if (hw && hh) {
          for (uint32_t interp : {1u, 2u}) {
            Image c(hw, hh, 1, 2, 1), v(hw, hh, 1, 2, 1);
            tvxScaleu8_v2C(src.bytes(), 2 * hw, 2 * hh, src.stride(), c.bytes(), hw, hh, c.stride(), interp, 1, 7);
            tvxScaleu8_v2V(src.bytes(), 2 * hw, 2 * hh, src.stride(), v.bytes(), hw, hh, v.stride(), interp, 1, 7);
            EXPECT_TRUE(v.SameRect(c)) << "halving, interpolation " << interp;
            EXPECT_TRUE(v.GuardsIntact());
          }
        }
        Image c(dw, dh, 1, 1, 1), v(dw, dh, 1, 1, 1);
        tvxScaleu8C(src.bytes(), s.width, s.height, src.stride(), c.bytes(), dw, dh, c.stride(), 1);
        tvxScaleu8V(src.bytes(), s.width, s.height, src.stride(), v.bytes(), dw, dh, v.stride(), 1);
        EXPECT_TRUE(v.SameRect(c)) << "first form";
        EXPECT_TRUE(v.GuardsIntact());
      }
    }
  });
}

TEST_F(ScaleGeneralLanes, AreaAndPolyphaseMatchReference) {
  const struct {
    const char* name;
    Resampler c, v;
    uint32_t ch;
  } kCases[] = {{"area", tvxScaleDownMNu8C, tvxScaleDownMNu8V, 1},
                {"area pairs", tvxScaleDownMNInterleaveu8C, tvxScaleDownMNInterleaveu8V, 2},
                {"polyphase", tvxScaleUpPolyu8C, tvxScaleUpPolyu8V, 1},
                {"polyphase pairs", tvxScaleUpPolyInterleaveu8C, tvxScaleUpPolyInterleaveu8V, 2}};
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      for (const auto& k : kCases) {
        const Image src = Source(s, k.ch);
        for (const auto& [dw, dh] : Sizes(s)) {
          SCOPED_TRACE(::testing::Message() << k.name << " " << s.width << "x" << s.height << " to " << dw << "x" << dh);
          Image c(dw, dh, k.ch, s.pad + 2, s.misalign), v(dw, dh, k.ch, s.pad + 2, s.misalign);
          k.c(src.bytes(), s.width, s.height, src.stride(), c.bytes(), dw, dh, c.stride());
          k.v(src.bytes(), s.width, s.height, src.stride(), v.bytes(), dw, dh, v.stride());
          EXPECT_TRUE(v.SameRect(c));
          EXPECT_TRUE(v.GuardsIntact());
        }
        const uint32_t hw = s.width / 2, hh = s.height / 2;  // exact halving of the even part
        if (hw && hh) {
          SCOPED_TRACE(::testing::Message() << k.name << " halving " << s.width << "x" << s.height);
          Image c(hw, hh, k.ch, 1, 2), v(hw, hh, k.ch, 1, 2);
          k.c(src.bytes(), 2 * hw, 2 * hh, src.stride(), c.bytes(), hw, hh, c.stride());
          k.v(src.bytes(), 2 * hw, 2 * hh, src.stride(), v.bytes(), hw, hh, v.stride());
          EXPECT_TRUE(v.SameRect(c));
          EXPECT_TRUE(v.GuardsIntact());
        }
      }
    }
  });
}

}  // namespace
