// SIMD variants of the NCC searches and the descriptor normalisation against their reference
// variants on every compiled target: every radius on both shapes, padded strides, templates cut
// near the centre (sub-pixel paths taken), rectangle widths around the vector widths, and
// vectors holding -128 and 127. Every output must be equal bit for bit.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using Bytes = std::vector<uint8_t>;
Bytes Random(std::mt19937& rng, size_t n, int span = 256) {
  Bytes b(n);
  for (auto& v : b) v = static_cast<uint8_t>(span == 256 ? rng() : 100 + rng() % span);
  return b;
}

TEST(NccLanes, SearchesMatchTheReference) {
  tvxtest::ForEachTarget([&] {
    std::mt19937 rng(31);
    int withOffsets = 0;
    for (int trial = 0; trial < 120; ++trial) {
      const uint32_t r = trial % 10, w = 2 * r + 9 + rng() % 20, h = 2 * r + 9 + rng() % 9, stride = w + rng() % 9;
      const Bytes img = Random(rng, size_t{stride} * h, trial % 7 ? 256 : 3);  // some nearly flat
      const uint32_t cx = r + 4 + rng() % (w - 2 * r - 8), cy = r + 4 + rng() % (h - 2 * r - 8);
      Bytes t = Random(rng, 64);
      const uint32_t x = cx - r + rng() % (2 * r + 1), y = cy - r + rng() % (2 * r + 1);
      for (int i = 0; trial % 3 && i < 64; ++i) t[i] = img[(y - 4 + i / 8) * stride + x - 4 + i % 8] ^ (rng() % 4 == 0);
      for (bool circle : {true, false}) {
        uint32_t bx[2] = {1, 1}, by[2] = {2, 2};
        int32_t n[2] = {3, 3}, s[2];
        float sx[2] = {4, 4}, sy[2] = {5, 5};
        for (int k = 0; k < 2; ++k)
          s[k] = (circle ? (k ? tvxNCCPatchOnCircle8x8u8_v2V : tvxNCCPatchOnCircle8x8u8_v2C)
                         : (k ? tvxNCCPatchOnSquare8x8u8_v2V : tvxNCCPatchOnSquare8x8u8_v2C))(
              t.data(), img.data(), w, h, stride, cx, cy, r, trial % 2, &bx[k], &by[k], &n[k], 1, &sx[k], &sy[k]);
        EXPECT_TRUE(s[0] == s[1] && bx[0] == bx[1] && by[0] == by[1] && n[0] == n[1]) << trial;
        EXPECT_TRUE(!std::memcmp(&sx[0], &sx[1], 4) && !std::memcmp(&sy[0], &sy[1], 4)) << trial;
        withOffsets += s[0] == 0 && (sx[0] != 0 || sy[0] != 0);
      }
    }
    EXPECT_GT(withOffsets, 20);
  });
}

TEST(NccLanes, RectangleSearchAndNormalisationMatchTheReference) {
  tvxtest::ForEachTarget([&] {
    std::mt19937 rng(57);
    for (uint32_t rw = 1; rw <= 40; rw += (rw < 20 ? 1 : 3)) {
      const uint32_t rh = 1 + rw % 5, w = rw + 8 + rng() % 5, h = rh + 8 + rng() % 3, stride = w + rw % 4;
      const Bytes img = Random(rng, size_t{stride} * h);
      Bytes patches = Random(rng, 64 * 4);
      for (int k = 0; k < 64; ++k) patches[64 + k] = img[(k / 8) * stride + 1 + k % 8];  // a real window
      std::memset(patches.data() + 128, 9, 64);                                            // flat
      std::vector<uint32_t> xy[2] = {std::vector<uint32_t>(10, 0xEE), std::vector<uint32_t>(10, 0xEE)};
      std::vector<int32_t> ncc[2] = {std::vector<int32_t>(5, 0xEE), std::vector<int32_t>(5, 0xEE)};
      for (int k = 0; k < 2; ++k)
        EXPECT_EQ((k ? tvxNCCPatchesOnRectu8V : tvxNCCPatchesOnRectu8C)(patches.data(), 4, img.data(), w, h, stride, 4, 4,
                                                                       rw, rh, rw % 2, xy[k].data(), ncc[k].data()), 0);
      EXPECT_TRUE(xy[0] == xy[1] && ncc[0] == ncc[1]) << rw;
    }
    for (uint32_t n : {1u, 2u, 7u}) {
      for (uint32_t stride : {36u, 37u, 64u}) {
        std::vector<int8_t> src(size_t{stride} * n);
        for (auto& v : src) v = static_cast<int8_t>(rng());
        src[0] = -128, src[35] = 127;
        std::vector<float> inv(n), out[2];
        for (auto& v : inv) v = std::uniform_real_distribution<float>(0.001f, 2.f)(rng);
        const int32_t go = 0;
        for (int k = 0; k < 2; ++k) {
          out[k].assign(36 * n + 8, -1.f);
          (k ? tvxVecNormalize36s8f32V : tvxVecNormalize36s8f32C)(src.data(), stride, inv.data(), n, 1.7f, out[k].data(), &go);
        }
        EXPECT_EQ(std::memcmp(out[0].data(), out[1].data(), out[0].size() * 4), 0) << n << " " << stride;
      }
    }
  });
}

}  // namespace
