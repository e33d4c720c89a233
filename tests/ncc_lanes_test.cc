// SIMD variants of the NCC searches and of the descriptor normalisation against their reference
// variants on every compiled target: every radius on both shapes, centres at the edges of the
// allowed range, padded strides, templates cut from the image (sub-pixel paths taken),
// rectangles whose widths straddle the vector widths, and vectors holding -128 and 127.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Random(std::mt19937& rng, size_t n) {
  Bytes b(n);
  for (auto& v : b) v = static_cast<uint8_t>(rng());
  return b;
}

using SearchFn = int32_t (*)(const uint8_t*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                             int32_t, uint32_t*, uint32_t*, int32_t*, int32_t, float*, float*);

TEST(NccLanes, SearchesMatchTheReference) {
  const SearchFn pairs[2][2] = {{&tvxNCCPatchOnCircle8x8u8_v2C, &tvxNCCPatchOnCircle8x8u8_v2V},
                                {&tvxNCCPatchOnSquare8x8u8_v2C, &tvxNCCPatchOnSquare8x8u8_v2V}};
  tvxtest::ForEachTarget([&] {
    std::mt19937 rng(31);
    int compared = 0;
    for (int trial = 0; trial < 120; ++trial) {
      const uint32_t r = trial % 10, w = 2 * r + 9 + rng() % 20, h = 2 * r + 9 + rng() % 9, stride = w + rng() % 9;
      Bytes img = Random(rng, size_t{stride} * h);
      if (trial % 7 == 0)  // low-contrast images give many small, equal terms
        for (auto& v : img) v = static_cast<uint8_t>(100 + v % 3);
      const uint32_t cx = r + 4 + rng() % (w - 2 * r - 8), cy = r + 4 + rng() % (h - 2 * r - 8);
      Bytes t = Random(rng, 64);
      if (trial % 3) {  // a window near the centre, so that sub-pixel neighbours are positive
        const uint32_t x = cx - r + rng() % (2 * r + 1), y = cy - r + rng() % (2 * r + 1);
        for (int j = 0; j < 8; ++j)
          for (int i = 0; i < 8; ++i) t[j * 8 + i] = img[(y - 4 + j) * stride + x - 4 + i] ^ (rng() % 4 == 0);
      }
      for (const auto& pair : pairs) {
        uint32_t x[2] = {1, 1}, y[2] = {2, 2};
        int32_t n[2] = {3, 3};
        float sx[2] = {4, 4}, sy[2] = {5, 5};
        int32_t s[2];
        for (int k = 0; k < 2; ++k)
          s[k] = pair[k](t.data(), img.data(), w, h, stride, cx, cy, r, trial % 2, &x[k], &y[k], &n[k], 1, &sx[k], &sy[k]);
        SCOPED_TRACE(testing::Message() << "trial " << trial << " radius " << r);
        EXPECT_EQ(s[0], s[1]);
        EXPECT_EQ(x[0], x[1]);
        EXPECT_EQ(y[0], y[1]);
        EXPECT_EQ(n[0], n[1]);
        EXPECT_EQ(std::memcmp(&sx[0], &sx[1], sizeof(float)), 0);
        EXPECT_EQ(std::memcmp(&sy[0], &sy[1], sizeof(float)), 0);
        compared += s[0] == 0 && (sx[0] != 0 || sy[0] != 0);
      }
    }
    EXPECT_GT(compared, 20);  // the sub-pixel path ran often enough to matter
  });
}

TEST(NccLanes, RectangleSearchMatchesTheReference) {
  tvxtest::ForEachTarget([&] {
    std::mt19937 rng(57);
    for (uint32_t rw = 1; rw <= 40; rw += (rw < 20 ? 1 : 3)) {
      const uint32_t rh = 1 + rw % 5, w = rw + 8 + rng() % 5, h = rh + 8 + rng() % 3, stride = w + rw % 4;
      const Bytes img = Random(rng, size_t{stride} * h);
      Bytes patches = Random(rng, 64 * 4);
      for (int k = 0; k < 64; ++k) patches[64 + k] = img[(k / 8) * stride + 1 + k % 8];  // a real window
      std::memset(patches.data() + 128, 9, 64);                                            // flat
      std::vector<uint32_t> xy[2];
      std::vector<int32_t> ncc[2];
      int32_t s[2];
      for (int k = 0; k < 2; ++k) {
        xy[k].assign(2 * 4 + 2, 0xEEEE);
        ncc[k].assign(4 + 1, 0xEEEE);
        s[k] = (k ? tvxNCCPatchesOnRectu8V : tvxNCCPatchesOnRectu8C)(patches.data(), 4, img.data(), w, h, stride, 4, 4, rw,
                                                                    rh, rw % 2, xy[k].data(), ncc[k].data());
      }
      SCOPED_TRACE(rw);
      EXPECT_EQ(s[0], 0);
      EXPECT_EQ(s[1], 0);
      EXPECT_EQ(xy[0], xy[1]);
      EXPECT_EQ(ncc[0], ncc[1]);
    }
  });
}

TEST(NccLanes, NormalisationMatchesTheReferenceBitForBit) {
  tvxtest::ForEachTarget([&] {
    std::mt19937 rng(5);
    for (uint32_t n : {1u, 2u, 7u}) {
      for (uint32_t stride : {36u, 37u, 64u}) {
        std::vector<int8_t> src(size_t{stride} * n);
        for (auto& v : src) v = static_cast<int8_t>(rng());
        src[0] = -128;
        src[35] = 127;
        std::vector<float> inv(n);
        for (auto& v : inv) v = std::uniform_real_distribution<float>(0.001f, 2.f)(rng);
        std::vector<float> out[2];
        const int32_t go = 0;
        for (int k = 0; k < 2; ++k) {
          out[k].assign(36 * n + 8, -1.f);
          ASSERT_EQ((k ? tvxVecNormalize36s8f32V : tvxVecNormalize36s8f32C)(src.data(), stride, inv.data(), n, 1.7f,
                                                                           out[k].data(), &go),
                    0);
        }
        EXPECT_EQ(std::memcmp(out[0].data(), out[1].data(), out[0].size() * sizeof(float)), 0) << n << " " << stride;
      }
    }
  });
}

}  // namespace
