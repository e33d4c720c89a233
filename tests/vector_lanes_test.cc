// SIMD variants of the vector kernels against their reference variants on every compiled
// target: lengths around the vector widths at odd addresses, extreme byte values, SAD maps on
// guarded images of many sizes, patch and block dot products, and the float cross product.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;

class VectorLanes : public ::testing::Test {
 protected:
  // len bytes at offset `misalign` of a fresh buffer; mode 1 and 2 fill with the extremes.
  std::vector<uint8_t> Buffer(size_t len, int mode) {
    std::vector<uint8_t> v(len + 64);
    std::uniform_int_distribution<int> dist(0, 255);
    for (auto& x : v) x = static_cast<uint8_t>(mode == 1 ? 0x00 : mode == 2 ? 0xFF : mode == 3 ? 0x80 : dist(rng_));
    return v;
  }
  std::mt19937 rng_{77};
};

std::vector<uint32_t> Lengths() {
  std::vector<uint32_t> l;
  for (uint32_t n = 0; n <= 70; ++n) l.push_back(n);
  for (uint32_t n : {127u, 128u, 129u, 255u, 1000u, 4099u}) l.push_back(n);
  return l;
}

TEST_F(VectorLanes, ByteDotProductsAndHammingMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (int mode = 0; mode < 4; ++mode) {
      for (uint32_t len : Lengths()) {
        SCOPED_TRACE(::testing::Message() << "len " << len << " mode " << mode);
        const auto a = Buffer(len, mode), b = Buffer(len, mode);
        const uint8_t* pa = a.data() + len % 7;
        const uint8_t* pb = b.data() + 1 + len % 5;
        const auto* sa = reinterpret_cast<const int8_t*>(pa);
        const auto* sb = reinterpret_cast<const int8_t*>(pb);
        EXPECT_EQ(tvxDotProducts8V(sa, sb, len), tvxDotProducts8C(sa, sb, len));
        EXPECT_EQ(tvxDotProductu8V(pa, pb, len), tvxDotProductu8C(pa, pb, len));
        EXPECT_EQ(tvxHammingDistanceu8V(pa, pb, len), tvxHammingDistanceu8C(pa, pb, len));
      }
    }
  });
}

TEST_F(VectorLanes, FixedLengthFormsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (int mode = 0; mode < 4; ++mode) {
      for (int shift = 0; shift < 3; ++shift) {
        SCOPED_TRACE(::testing::Message() << "mode " << mode << " shift " << shift);
        const auto pool = Buffer(5 * 128 + 3, mode);
        const uint8_t* a = pool.data() + shift;
        const uint8_t* b[4] = {a + 128, a + 256 + shift, a + 384, a + 512 - shift};
        const int8_t* s = reinterpret_cast<const int8_t*>(a);
        const int8_t* t[4];
        for (int i = 0; i < 4; ++i) t[i] = reinterpret_cast<const int8_t*>(b[i]);
        const float invB[4] = {0.5f, 1e-3f, 1.0f / 3.0f, 2.0f};
        int32_t sc[4], sv[4];
        uint32_t uc[4], uv[4];
        float fc[4], fv[4];
#define TVX_CHECK_LEN(n)                                                                            \
  tvxDotProduct##n##x4s8C(s, t[0], t[1], t[2], t[3], sc);                                           \
  tvxDotProduct##n##x4s8V(s, t[0], t[1], t[2], t[3], sv);                                           \
  tvxDotProduct##n##x4u8C(a, b[0], b[1], b[2], b[3], uc);                                           \
  tvxDotProduct##n##x4u8V(a, b[0], b[1], b[2], b[3], uv);                                           \
  for (int i = 0; i < 4; ++i) {                                                                     \
    EXPECT_EQ(sv[i], sc[i]) << n;                                                                   \
    EXPECT_EQ(uv[i], uc[i]) << n;                                                                   \
    EXPECT_EQ(tvxDotProduct##n##x1s8V(s, t[i]), tvxDotProduct##n##x1s8C(s, t[i])) << n;            \
    EXPECT_EQ(tvxDotProduct##n##x1u8V(a, b[i]), tvxDotProduct##n##x1u8C(a, b[i])) << n;            \
  }                                                                                                 \
  tvxDotProductNorm##n##x4s8C(s, 0.01f, t[0], t[1], t[2], t[3], invB, fc);                          \
  tvxDotProductNorm##n##x4s8V(s, 0.01f, t[0], t[1], t[2], t[3], invB, fv);                          \
  for (int i = 0; i < 4; ++i) EXPECT_EQ(fv[i], fc[i]) << n;                                         \
  tvxDotProductNorm##n##x4u8C(a, 0.01f, b[0], b[1], b[2], b[3], invB, fc);                          \
  tvxDotProductNorm##n##x4u8V(a, 0.01f, b[0], b[1], b[2], b[3], invB, fv);                          \
  for (int i = 0; i < 4; ++i) EXPECT_EQ(fv[i], fc[i]) << n;
        TVX_CHECK_LEN(36)
        TVX_CHECK_LEN(64)
        TVX_CHECK_LEN(128)
#undef TVX_CHECK_LEN
        tvxSumOfSquaredDiffs36x4s8C(s, 0.02f, t[0], t[1], t[2], t[3], invB, fc);
        tvxSumOfSquaredDiffs36x4s8V(s, 0.02f, t[0], t[1], t[2], t[3], invB, fv);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(fv[i], fc[i]);
        float nc[4], nv[4];
        EXPECT_EQ(tvxSumOfSquaredDiffss8V(s, 0.02f, 77, t, invB, 4, nv), 0);
        tvxSumOfSquaredDiffss8C(s, 0.02f, 77, t, invB, 4, nc);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(nv[i], nc[i]);
        EXPECT_EQ(tvxSumOfSquaredDiffsu8V(a, 0.02f, 101, b, invB, 4, nv), 0);
        tvxSumOfSquaredDiffsu8C(a, 0.02f, 101, b, invB, 4, nc);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(nv[i], nc[i]);
        // Hamming, fixed lengths.
        uint32_t hc[4], hv[4];
        tvxHammingDistance32x4u8a4C(a, b[0], b[1], b[2], b[3], hc);
        tvxHammingDistance32x4u8a4V(a, b[0], b[1], b[2], b[3], hv);
        for (int i = 0; i < 4; ++i) {
          EXPECT_EQ(hv[i], hc[i]);
          EXPECT_EQ(tvxHammingDistance32x1u8V(a, b[i]), hc[i]);
          EXPECT_EQ(tvxHammingDistance32x1u8a4V(a, b[i]), hc[i]);
        }
        tvxHammingDistance64x4u8C(a, b[0], b[1], b[2], b[3], hc);
        tvxHammingDistance64x4u8V(a, b[0], b[1], b[2], b[3], hv);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(hv[i], hc[i]);
        tvxHammingDistance64x4u8a4V(a, b[0], b[1], b[2], b[3], hv);
        for (int i = 0; i < 4; ++i) {
          EXPECT_EQ(hv[i], hc[i]);
          EXPECT_EQ(tvxHammingDistance64x1u8V(a, b[i]), hc[i]);
          EXPECT_EQ(tvxHammingDistance64x1u8a4V(a, b[i]), hc[i]);
        }
      }
    }
  });
}

TEST_F(VectorLanes, SadBlocksAndMapsMatchReference) {
  std::vector<tvxtest::Shape> shapes;
  for (uint32_t w = 1; w <= 70; w += (w < 24 ? 1 : 5)) shapes.push_back({w, 7 + w % 12, (w * 7) % 13, w % 4});
  shapes.push_back({257, 18, 3, 1});
  tvxtest::ForEachTarget([&] {
    for (const tvxtest::Shape& s : shapes) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      Image src(s.width, s.height, 1, s.pad, s.misalign), patch(16, 16, 1, s.pad % 3, 1);
      src.RandomizeWithExtremes(rng_, 1, 4);
      patch.RandomizeWithExtremes(rng_, 1, 4);
      {
        Image c(s.width, s.height, 2, 4, 2), v(s.width, s.height, 2, 4, 2);
        EXPECT_EQ(tvxSumOfAbsoluteDiffs8x8u8_v2C(patch.bytes(), patch.stride(), src.bytes(), s.width, s.height,
                                                 src.stride(), reinterpret_cast<uint16_t*>(c.bytes()), c.stride()), 0);
        EXPECT_EQ(tvxSumOfAbsoluteDiffs8x8u8_v2V(patch.bytes(), patch.stride(), src.bytes(), s.width, s.height,
                                                 src.stride(), reinterpret_cast<uint16_t*>(v.bytes()), v.stride()), 0);
        EXPECT_TRUE(v.SameRect(c)) << "8x8 map";
        EXPECT_TRUE(v.GuardsIntact());
      }
      {
        Image c(s.width, s.height, 2, 2, 0), v(s.width, s.height, 2, 2, 0);
        tvxSumOfAbsoluteDiffs16x16u8C(patch.bytes(), patch.stride(), src.bytes(), s.width, s.height, src.stride(),
                                      reinterpret_cast<uint16_t*>(c.bytes()), c.stride());
        tvxSumOfAbsoluteDiffs16x16u8V(patch.bytes(), patch.stride(), src.bytes(), s.width, s.height, src.stride(),
                                      reinterpret_cast<uint16_t*>(v.bytes()), v.stride());
        EXPECT_TRUE(v.SameRect(c)) << "16x16 map";
        EXPECT_TRUE(v.GuardsIntact());
      }
      if (s.width >= 16 && s.height >= 16) {
        const uint8_t* corner = src.row(s.height - 16) + (s.width - 16);
        EXPECT_EQ(tvxSumOfAbsoluteDiff16x16u8V(patch.bytes(), patch.stride(), corner, src.stride()),
                  tvxSumOfAbsoluteDiff16x16u8C(patch.bytes(), patch.stride(), corner, src.stride()));
      }
      if (s.width >= 8 && s.height >= 8) {
        const uint8_t* corner = src.row(s.height - 8) + (s.width - 8);
        EXPECT_EQ(tvxSumOfAbsoluteDiff8x8u8V(patch.bytes(), patch.stride(), corner, src.stride()),
                  tvxSumOfAbsoluteDiff8x8u8C(patch.bytes(), patch.stride(), corner, src.stride()));
      }
    }
  });
}

TEST_F(VectorLanes, PatchAndBlockDotProductsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (uint32_t w : {11u, 12u, 29u, 64u}) {
      const uint32_t h = 12 + w % 5;
      Image src(w, h, 1, w % 4, w % 3);
      src.RandomizeWithExtremes(rng_, 1, 4);
      const auto patch = Buffer(132, 0);
      std::vector<uint32_t> xy;
      for (uint32_t y = 0; y + 12 <= h; y += 2)
        for (uint32_t x = 0; x + 11 <= w; x += 3) xy.push_back(x), xy.push_back(y);
      xy.push_back(w - 11), xy.push_back(h - 12);
      const uint32_t n = static_cast<uint32_t>(xy.size() / 2);
      std::vector<uint32_t> c(n), v(n);
      EXPECT_EQ(tvxDotProduct11x12u8C(patch.data(), src.bytes(), w, h, src.stride(), xy.data(), n, c.data()), 0);
      EXPECT_EQ(tvxDotProduct11x12u8V(patch.data(), src.bytes(), w, h, src.stride(), xy.data(), n, v.data()), 0);
      EXPECT_EQ(v, c) << w;
      EXPECT_EQ(tvxDotProduct8x8u8C(patch.data() + 1, src.bytes(), w, h, src.stride(), xy.data(), n, c.data()), 0);
      EXPECT_EQ(tvxDotProduct8x8u8V(patch.data() + 1, src.bytes(), w, h, src.stride(), xy.data(), n, v.data()), 0);
      EXPECT_EQ(v, c) << w;
    }
    for (uint32_t len : {1u, 7u, 33u, 64u, 129u}) {
      const uint32_t numA = 3, numB = 5;
      const auto a = Buffer((len + 3) * numA, len % 3), b = Buffer((len + 1) * numB, 0);
      Image c(numB, numA, 4, 4, 0), v(numB, numA, 4, 4, 0);
      tvxBlockDotProductu8C(a.data() + 1, numA, len + 3, b.data(), numB, len + 1, len,
                            reinterpret_cast<uint32_t*>(c.bytes()), c.stride());
      tvxBlockDotProductu8V(a.data() + 1, numA, len + 3, b.data(), numB, len + 1, len,
                            reinterpret_cast<uint32_t*>(v.bytes()), v.stride());
      EXPECT_TRUE(v.SameRect(c)) << len;
      EXPECT_TRUE(v.GuardsIntact());
    }
  });
}

// Products and differences of values in [-1000, 1000] with at least a few units of magnitude are
// normal floats, where the SIMD variant equals the reference bit for bit.
TEST_F(VectorLanes, CrossProductMatchesReference) {
  std::uniform_real_distribution<float> dist(-1000.0f, 1000.0f);
  tvxtest::ForEachTarget([&] {
    for (uint32_t n : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 16u, 17u, 33u, 100u}) {
      std::vector<float> a(3 * n + 1), b(3 * n + 1), c(3 * n + 2, -5.0f), v(3 * n + 2, -5.0f);
      for (auto& x : a) x = dist(rng_);
      for (auto& x : b) x = dist(rng_);
      EXPECT_EQ(tvxCrossProduct3x1f32C(a.data() + 1, b.data(), c.data() + 1, n), 0);
      EXPECT_EQ(tvxCrossProduct3x1f32V(a.data() + 1, b.data(), v.data() + 1, n), 0);
      EXPECT_EQ(v, c) << n;
      EXPECT_EQ(v.front(), -5.0f);
      EXPECT_EQ(v.back(), -5.0f);
    }
  });
}

}  // namespace
