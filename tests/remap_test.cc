// Remaps through the public entries: worked positions, identity and translations, random and
// far-away maps against a sampler written from the rounding, border and blend rules, 4-byte
// pixels channel by channel, bad arguments and an unavailable frame.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"
#include "simd_check.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;
using tvxtest::Image;

struct Maps {
  Image x, y;
  Maps(uint32_t w, uint32_t h, uint32_t pad = 8) : x(w, h, 4, pad, 4), y(w, h, 4, pad, 4) {}
  float& X(uint32_t i, uint32_t j) { return x.at<float>(i, j); }
  float& Y(uint32_t i, uint32_t j) { return y.at<float>(i, j); }
  const float* px() const { return x.as<float>(); }
  const float* py() const { return y.as<float>(); }
  uint32_t stride() const { return x.stride(); }
};

// Nearest: round half away from zero, inside when 0 <= r < size.
bool NearIndex(float m, uint32_t size, int64_t* r) {
  if (std::isnan(m) || std::fabs(m) > 1e12f) return false;
  *r = static_cast<int64_t>(std::round(static_cast<double>(m)));  // std::round: half away from zero
  return *r >= 0 && *r < int64_t{size};
}

// Bilinear: 1/32 position floor(32 m + 0.5) in float, inside when within the image; the four
// weights (32 - fx)(32 - fy), fx(32 - fy), (32 - fx)fy, fx fy; neighbours past the image take
// the outside value.
uint8_t BilinearSample(const Image& src, uint32_t ch, uint32_t c, float mx, float my, uint8_t outside) {
  const float fxp = std::floor(mx * 32.0f + 0.5f), fyp = std::floor(my * 32.0f + 0.5f);
  const double W = src.width(), H = src.height();
  if (!(fxp >= 0 && fyp >= 0 && fxp < 32 * W && fyp < 32 * H)) return outside;
  const int64_t X = static_cast<int64_t>(fxp), Y = static_cast<int64_t>(fyp);
  const int64_t ix = X / 32, iy = Y / 32, fx = X % 32, fy = Y % 32;
  const auto pixel = [&](int64_t x, int64_t y) -> int64_t {
    return (x < int64_t(src.width()) && y < int64_t(src.height())) ? src.row(uint32_t(y))[x * ch + c] : outside;
  };
  const int64_t sum = (32 - fx) * (32 - fy) * pixel(ix, iy) + fx * (32 - fy) * pixel(ix + 1, iy) +
                      (32 - fx) * fy * pixel(ix, iy + 1) + fx * fy * pixel(ix + 1, iy + 1);
  return static_cast<uint8_t>((sum + 512) / 1024);
}

class Remap : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override {
    tvx_set_log_sink(nullptr);
    tvx_fail_heap_after_for_test(-1);
  }
  // Positions mostly inside, some just outside, some far, NaN and infinities.
  void RandomMaps(Maps& m, uint32_t srcW, uint32_t srcH) {
    std::uniform_real_distribution<float> ux(-1.5f, srcW + 0.5f), uy(-1.5f, srcH + 0.5f);
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(), 3e9f, -3e9f, -0.5f, 0.5f, -0.49999997f,
                              float(srcW) - 0.5f, float(srcW) - 0.50001f, -1.0f / 64, 1e-40f};
    for (uint32_t j = 0; j < m.x.height(); ++j)
      for (uint32_t i = 0; i < m.x.width(); ++i) {
        m.X(i, j) = rng_() % 9 ? ux(rng_) : specials[rng_() % 12];
        m.Y(i, j) = rng_() % 9 ? uy(rng_) : specials[rng_() % 12];
        if (rng_() % 5 == 0) m.X(i, j) = std::round(m.X(i, j) * 2) / 2;  // halves exactly
      }
  }
  std::mt19937 rng_{1618};
};

TEST_F(Remap, WorkedPositionsAndUnsupportedInterpolation) {
  Image src(4, 4, 1);
  for (uint32_t y = 0; y < 4; ++y)
    for (uint32_t x = 0; x < 4; ++x) src.row(y)[x] = static_cast<uint8_t>(10 * y + x + 1);
  Maps m(2, 1);
  m.X(0, 0) = -0.4f, m.Y(0, 0) = 2.0f;  // rounds to (0, 2)
  m.X(1, 0) = -0.6f, m.Y(1, 0) = 2.0f;  // rounds to (-1, 2): outside
  Image dst(2, 1, 1, 3, 1);
  ASSERT_EQ(tvxRemapu8_v2(src.bytes(), 4, 4, src.stride(), dst.bytes(), 2, 1, dst.stride(), m.px(), m.py(), m.stride(), 0, 1, 77), 0);
  EXPECT_EQ(dst.row(0)[0], 21);
  EXPECT_EQ(dst.row(0)[1], 77);
  ASSERT_EQ(tvxRemapu8(src.bytes(), 4, 4, src.stride(), dst.bytes(), 2, 1, dst.stride(), m.px(), m.py(), m.stride(), 0), 0);
  EXPECT_EQ(dst.row(0)[1], 0);
  // Bilinear: (0.5, 2.0) halves between 21 and 22 (rounds up), (3.5, 0) blends 4 with the border.
  m.X(0, 0) = 0.5f, m.X(1, 0) = 3.5f, m.Y(1, 0) = 0.0f;
  ASSERT_EQ(tvxRemapu8_v2(src.bytes(), 4, 4, src.stride(), dst.bytes(), 2, 1, dst.stride(), m.px(), m.py(), m.stride(), 1, 1, 200), 0);
  EXPECT_EQ(dst.row(0)[0], 22);
  EXPECT_EQ(dst.row(0)[1], (4 + 200 + 1) / 2);
  EXPECT_TRUE(dst.GuardsIntact());

  std::fill(dst.row(0), dst.row(0) + 2, 0x33);
  EXPECT_EQ(tvxRemapu8_v2(src.bytes(), 4, 4, src.stride(), dst.bytes(), 2, 1, dst.stride(), m.px(), m.py(), m.stride(), 2, 1, 9), 6);
  EXPECT_EQ(tvxRemapu8(src.bytes(), 4, 4, src.stride(), dst.bytes(), 2, 1, dst.stride(), m.px(), m.py(), m.stride(), 2), 6);
  EXPECT_EQ(dst.row(0)[0], 0x33);
  EXPECT_EQ(dst.row(0)[1], 0x33);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Remap, IdentityAndTranslations) {
  const uint32_t w = 23, h = 9;
  Image src(w, h, 1, 5, 2);
  src.Randomize(rng_);
  Maps m(w, h);
  Image dst(w, h, 1, 2, 3);
  for (float shift : {0.0f, 1.0f, 0.5f, -2.0f}) {
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) m.X(x, y) = x + shift, m.Y(x, y) = float(y);
    for (uint32_t interp : {0u, 1u}) {
      if (interp == 0 && shift == 0.5f) continue;
      ASSERT_EQ(tvxRemapu8_v2(src.bytes(), w, h, src.stride(), dst.bytes(), w, h, dst.stride(), m.px(), m.py(), m.stride(), interp, 1, 250), 0);
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
          const float sx = x + shift;
          uint8_t expected;
          if (shift == 0.5f) {
            const int b = x + 1 < w ? src.row(y)[x + 1] : 250;
            expected = static_cast<uint8_t>((src.row(y)[x] + b + 1) / 2);
          } else {
            expected = (sx >= 0 && sx < w) ? src.row(y)[int(sx)] : 250;
          }
          ASSERT_EQ(dst.row(y)[x], expected) << "shift " << shift << " interpolation " << interp << " at " << x << "," << y;
        }
      EXPECT_TRUE(dst.GuardsIntact());
    }
  }
}

TEST_F(Remap, RandomMapsMatchTheSamplingRules) {
  for (uint32_t sw : {1u, 2u, 7u, 33u}) {
    for (uint32_t sh : {1u, 3u, 12u}) {
      SCOPED_TRACE(::testing::Message() << sw << "x" << sh);
      Image src(sw, sh, 1, 3, 1), rgba(sw, sh, 4, 4, 0);
      src.Randomize(rng_);
      rgba.Randomize(rng_);
      const uint32_t dw = 19, dh = 6;
      Maps m(dw, dh);
      RandomMaps(m, sw, sh);
      for (uint32_t border : {0u, 1u, 2u}) {
        Image nn(dw, dh, 1, 1, 2), bl(dw, dh, 1, 4, 0);
        ASSERT_EQ(tvxRemapu8_v2(src.bytes(), sw, sh, src.stride(), nn.bytes(), dw, dh, nn.stride(), m.px(), m.py(), m.stride(), 0, border, 256 + 45), 0);
        ASSERT_EQ(tvxRemapu8_v2(src.bytes(), sw, sh, src.stride(), bl.bytes(), dw, dh, bl.stride(), m.px(), m.py(), m.stride(), 1, border, 256 + 45), 0);
        const uint8_t outside = border == 1 ? 45 : 0;  // the low byte of the border value
        for (uint32_t y = 0; y < dh; ++y)
          for (uint32_t x = 0; x < dw; ++x) {
            int64_t ix, iy;
            const bool in = NearIndex(m.X(x, y), sw, &ix) && NearIndex(m.Y(x, y), sh, &iy);
            ASSERT_EQ(nn.row(y)[x], in ? src.row(uint32_t(iy))[ix] : outside) << m.X(x, y) << "," << m.Y(x, y);
            ASSERT_EQ(bl.row(y)[x], BilinearSample(src, 1, 0, m.X(x, y), m.Y(x, y), outside)) << m.X(x, y) << "," << m.Y(x, y);
          }
        EXPECT_TRUE(nn.GuardsIntact());
        EXPECT_TRUE(bl.GuardsIntact());
      }
      Image nn4(dw, dh, 4, 4, 4), bl4(dw, dh, 4, 8, 0);
      ASSERT_EQ(tvxRemapRGBA8888NNu8(rgba.bytes(), sw, sh, rgba.stride(), nn4.bytes(), dw, dh, nn4.stride(), m.px(), m.py(), m.stride()), 0);
      ASSERT_EQ(tvxRemapRGBA8888BLu8(rgba.bytes(), sw, sh, rgba.stride(), bl4.bytes(), dw, dh, bl4.stride(), m.px(), m.py(), m.stride()), 0);
      Image planeOf(sw, sh, 1);  // one channel of the 4-byte source at a time, for the sampler
      for (uint32_t c = 0; c < 4; ++c) {
        for (uint32_t y = 0; y < dh; ++y)
          for (uint32_t x = 0; x < dw; ++x) {
            int64_t ix, iy;
            const bool in = NearIndex(m.X(x, y), sw, &ix) && NearIndex(m.Y(x, y), sh, &iy);
            ASSERT_EQ(nn4.row(y)[4 * x + c], in ? rgba.row(uint32_t(iy))[4 * ix + c] : 0);
            ASSERT_EQ(bl4.row(y)[4 * x + c], BilinearSample(rgba, 4, c, m.X(x, y), m.Y(x, y), 0)) << "channel " << c;
          }
      }
      EXPECT_TRUE(nn4.GuardsIntact());
      EXPECT_TRUE(bl4.GuardsIntact());
    }
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Remap, BadArgumentsAndMissingFrame) {
  Image src(8, 8, 1), dst(8, 8, 1), rgba(8, 8, 4);
  Maps m(8, 8, 0);
  for (uint32_t y = 0; y < 8; ++y)
    for (uint32_t x = 0; x < 8; ++x) m.X(x, y) = x + 0.25f, m.Y(x, y) = y + 0.75f;
  const auto untouched = [&] { return dst.SameRect(Image(8, 8, 1)) && rgba.SameRect(Image(8, 8, 4)); };
  EXPECT_EQ(tvxRemapu8_v2(nullptr, 8, 8, 8, dst.bytes(), 8, 8, 8, m.px(), m.py(), 32, 0, 0, 0), 3);
  EXPECT_EQ(tvxRemapu8_v2(src.bytes(), 8, 8, 7, dst.bytes(), 8, 8, 8, m.px(), m.py(), 32, 0, 0, 0), 3);
  EXPECT_EQ(tvxRemapu8_v2(src.bytes(), 8, 8, 8, dst.bytes(), 8, 8, 8, m.px(), m.py(), 31, 0, 0, 0), 3);
  EXPECT_EQ(tvxRemapu8_v2(src.bytes(), 8, 8, 8, dst.bytes(), 8, 8, 8, m.px(), m.py(), 32, 3, 0, 0), 3);
  EXPECT_EQ(tvxRemapu8(src.bytes(), 8, 8, 8, dst.bytes(), 8, 0, 8, m.px(), m.py(), 32, 1), 3);
  EXPECT_EQ(tvxRemapu8(src.bytes(), 8, 8, 0, dst.bytes(), 8, 8, 8, m.px(), m.py(), 32, 1), 3);  // no packed default
  EXPECT_EQ(tvxRemapRGBA8888NNu8(rgba.bytes(), 8, 8, 31, rgba.bytes(), 8, 8, 32, m.px(), m.py(), 32), 3);
  EXPECT_EQ(tvxRemapRGBA8888BLu8(rgba.bytes(), 8, 8, 32, rgba.bytes(), 8, 8, 32, nullptr, m.py(), 32), 3);
  EXPECT_TRUE(untouched());
  // Zero strides of the _v2 form are packed.
  std::vector<uint8_t> packedSrc(64, 5), packedDst(64, 0);
  std::vector<float> mx(64, 1.0f), my(64, 1.0f);
  EXPECT_EQ(tvxRemapu8_v2(packedSrc.data(), 8, 8, 0, packedDst.data(), 8, 8, 0, mx.data(), my.data(), 0, 1, 0, 0), 0);
  EXPECT_EQ(packedDst, std::vector<uint8_t>(64, 5));

  // The bilinear forms need their framed copy: none, status 5 and nothing written.
  tvx_fail_heap_after_for_test(0);
  EXPECT_EQ(tvxRemapu8_v2(src.bytes(), 8, 8, 8, dst.bytes(), 8, 8, 8, m.px(), m.py(), 32, 1, 1, 9), 5);
  EXPECT_EQ(tvxRemapRGBA8888BLu8(rgba.bytes(), 8, 8, 32, rgba.bytes(), 8, 8, 32, m.px(), m.py(), 32), 5);
  EXPECT_EQ(tvxRemapu8_v2(src.bytes(), 8, 8, 8, dst.bytes(), 8, 8, 8, m.px(), m.py(), 32, 0, 1, 9), 0);  // nearest needs none
  tvx_fail_heap_after_for_test(-1);
  EXPECT_TRUE(rgba.SameRect(Image(8, 8, 4)));
  EXPECT_TRUE(g_lines.empty());
}

}  // namespace
