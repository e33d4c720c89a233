// FAST SIMD variants against the reference variants on every compiled target: widths 7 to 70
// and large, padded misaligned images with guard bytes, random, blocky and saturated content,
// barriers from negative to beyond 255, masks, capacities that cut a row's vector in the middle.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "fast_cases.h"
#include "simd_check.h"

namespace {

using namespace tvxtest;

void ExpectSame(FastEntry e, const FastArgs& a) {
  const FastResult ref = RunFast(e, kReference, a);
  const FastResult simd = RunFast(e, kSimd, a);
  EXPECT_EQ(simd.ret, ref.ret);
  EXPECT_EQ(simd.count, ref.count);
  EXPECT_EQ(simd.xy, ref.xy);
  EXPECT_EQ(simd.scores, ref.scores);
}

TEST(FastLanes, SimdListsTheReferenceCornersOnEveryShape) {
  std::mt19937 rng(777);
  ForEachTarget([&] {
    std::vector<Shape> shapes;
    for (uint32_t w = 7; w <= 70; ++w) shapes.push_back({w, 7 + w % 5, (w * 5) % 11, w % 4});
    shapes.push_back({1920, 9, 0, 0});
    shapes.push_back({1021, 23, 5, 3});
    uint64_t total = 0;
    for (const Shape& s : shapes) {
      Image img(s.width, s.height, 1, s.pad, s.misalign);
      const int content = static_cast<int>(rng() % 3);
      if (content == 0) img.Randomize(rng);
      if (content == 1) img.RandomizeWithExtremes(rng, 1, 4);
      if (content == 2) FillBlocky(img.bytes(), s.width, s.height, img.stride(), rng);
      for (int32_t barrier : {-4, 0, 9, 40, 254, 300}) {
        SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height << " content " << content << " barrier " << barrier);
        FastArgs a{img.bytes(), s.width, s.height, img.stride(), barrier, s.width % 5};
        for (FastEntry e : {k9, k10, k9Score}) ExpectSame(e, a);
        a.nms = 1;
        for (FastEntry e : {k9ScoreNms, k10ScoreNms}) ExpectSame(e, a);
        total += RunFast(k9, kReference, a).count;
      }
      EXPECT_TRUE(img.GuardsIntact());
    }
    EXPECT_GT(total, 1000u);
  });
}

TEST(FastLanes, MasksAndCapacitiesCutAnywhere) {
  std::mt19937 rng(31337);
  Image img(200, 40, 1, 7, 1);
  img.Randomize(rng);
  ForEachTarget([&] {
    FastArgs a{img.bytes(), 200, 40, img.stride(), 12};
    const uint32_t all = RunFast(k9, kReference, a).count;
    ASSERT_GT(all, 100u);
    // Every capacity up to the full list: the SIMD scan stops on the same corner.
    for (uint32_t cap = 1; cap <= all + 1; cap += 1 + cap / 8) {
      a.capacity = cap;
      ExpectSame(k9, a);
      ExpectSame(k10MaskScoreNms, a);
    }
    a.capacity = 4096;
    for (int k : {-2, 0, 1}) {
      const uint32_t mw = k >= 0 ? 200u << k : 200u >> -k, mh = k >= 0 ? 40u << k : 40u >> -k;
      std::vector<uint8_t> mask(size_t{(mw + 7) / 8} * mh);
      for (auto& v : mask) v = static_cast<uint8_t>(rng() | rng());
      a.mask = mask.data(), a.maskWidth = mw, a.maskHeight = mh;
      a.nms = 1;
      for (FastEntry e : {k9Mask, k9MaskScoreNms, k10Mask, k10MaskScoreNms}) ExpectSame(e, a);
    }
  });
}

}  // namespace
