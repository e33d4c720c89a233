// SIMD variants of the Harris family against their reference variants on every compiled target:
// identical corner lists (and counts, and untouched list tails) for the integer detectors and the
// minimum-eigenvalue detector, an identical float score map for every kernel and block size, over
// widths 5 to 70 and large rows, padded strides and misaligned first pixels.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

std::vector<Shape> Shapes() {
  std::vector<Shape> shapes;
  for (uint32_t w = 5; w <= 70; ++w) shapes.push_back({w, 11 + (w * 5) % 9, (w * 7) % 13, w % 4});
  shapes.push_back({640, 24, 0, 0});
  shapes.push_back({1021, 17, 5, 3});
  return shapes;
}

// Random texture with flat patches and saturated spots: strong, weak and tied responses.
Image Source(const Shape& s, std::mt19937& rng) {
  Image img(s.width, s.height, 1, s.pad, s.misalign);
  img.RandomizeWithExtremes(rng, 1, 9);
  for (uint32_t y = 0; y < s.height; ++y)
    for (uint32_t x = 0; x < s.width; ++x)
      if ((x / 6 + y / 5) % 3 == 0) img.row(y)[x] = 77;
  return img;
}

struct List {
  std::vector<uint32_t> xy;
  uint32_t n = 0xFFFF;
  int32_t status = -1;
  bool operator==(const List& o) const { return xy == o.xy && n == o.n && status == o.status; }
};

// Corners found by the reference in the current test, so that a sweep finding none shows.
uint64_t g_found = 0;

template <typename F>
void ExpectSameLists(F call, const char* what) {
  List c, v;
  c.xy.assign(2 * 300, 0xABCD);
  v.xy = c.xy;
  call(true, c);
  call(false, v);
  g_found += c.n <= 300 ? c.n : 0;
  EXPECT_TRUE(c == v) << what << ": reference " << c.n << " corners, SIMD " << v.n;
}

TEST(HarrisLanes, IntegerDetectorsMatchReference) {
  std::mt19937 rng(11);
  g_found = 0;
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      const Image img = Source(s, rng);
      const uint8_t* p = img.bytes();
      const uint32_t w = s.width, h = s.height, st = img.stride();
      for (int32_t threshold : {-5, 0, 2000}) {
        ExpectSameLists([&](bool ref, List& l) {
          l.status = (ref ? tvxCornerHarrisu8C : tvxCornerHarrisu8V)(p, w, h, st, 0, l.xy.data(), 300, &l.n, threshold);
        }, "Harris");
        ExpectSameLists([&](bool ref, List& l) {
          l.status = (ref ? tvxCornerHarrisu8C : tvxCornerHarrisu8V)(p, w, h, st, 6, l.xy.data(), 7, &l.n, threshold);
        }, "Harris, border 6, capacity 7");
      }
      const bool halve = w % 2 == 0 && h % 2 == 0;  // a half-size mask where it fits, else full size
      const uint32_t mw = halve ? w / 2 : w, mh = halve ? h / 2 : h;
      std::vector<uint8_t> mask(size_t((mw + 7) / 8) * mh);
      for (auto& b : mask) b = uint8_t(rng()) & uint8_t(rng());
      ExpectSameLists([&](bool ref, List& l) {
        l.status = (ref ? tvxCornerHarrisInMasku8C : tvxCornerHarrisInMasku8V)(p, w, h, st, 0, l.xy.data(), 300, &l.n, 0,
                                                                               mask.data(), mw, mh);
      }, "Harris in mask");
      for (float minDistance : {0.0f, 4.5f})
        ExpectSameLists([&](bool ref, List& l) {
          l.status = (ref ? tvxCornerHarrisAdaptiveu8C : tvxCornerHarrisAdaptiveu8V)(p, w, h, st, 40, minDistance,
                                                                                     l.xy.data(), &l.n, 100000, 0.7f);
        }, "adaptive Harris");
    }
  });
  EXPECT_GT(g_found, 1000u);
}

TEST(HarrisLanes, GoodFeaturesMatchReference) {
  std::mt19937 rng(12);
  g_found = 0;
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      const Image img = Source(s, rng);
      for (auto [threshold, minDistance] : {std::pair{0.0f, 0.0f}, std::pair{50.25f, 3.0f}, std::pair{-1.0f, 8.0f}})
        ExpectSameLists([&](bool ref, List& l) {
          l.status = (ref ? tvxGoodFeatureToTracku8C : tvxGoodFeatureToTracku8V)(
              img.bytes(), s.width, s.height, img.stride(), 300, threshold, minDistance, l.xy.data(), &l.n);
        }, "good features");
    }
  });
  EXPECT_GT(g_found, 1000u);
}

TEST(HarrisLanes, ScoreMapMatchesReferenceBitForBit) {
  std::mt19937 rng(13);
  g_found = 0;
  tvxtest::ForEachTarget([&] {
    std::vector<Shape> shapes = {{1, 1, 0, 0}, {2, 3, 1, 1}, {4, 7, 2, 3}};
    for (const Shape& s : Shapes())
      if (s.width % 3 == 0 || s.width > 600) shapes.push_back(s);  // the detectors sweep every width
    for (const Shape& s : shapes) {
      const Image img = Source(s, rng);
      for (auto [ksize, block, normalize] : {std::tuple{3u, 3u, 1u}, std::tuple{5u, 2u, 0u}, std::tuple{7u, 5u, 1u},
                                             std::tuple{3u, 1u, 0u}, std::tuple{5u, 6u, 1u}, std::tuple{3u, 40u, 0u}}) {
        SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height << " kernel " << ksize << " block " << block);
        Image mapC(s.width, s.height, 4, s.pad * 4, 4), mapV(s.width, s.height, 4, s.pad * 4, 4);
        const float threshold = normalize ? 60.0f : 0.0f;
        ExpectSameLists([&](bool ref, List& l) {
          Image& map = ref ? mapC : mapV;
          l.status = (ref ? tvxCornerHarrisScoreu8C : tvxCornerHarrisScoreu8V)(
              img.bytes(), s.width, s.height, img.stride(), map.as<float>(), map.stride(), l.xy.data(), 300, &l.n,
              0.04f, ksize, block, block % 2, 4.0f, normalize, threshold);
        }, "score map corners");
        EXPECT_TRUE(mapV.SameRect(mapC));
        EXPECT_TRUE(mapV.GuardsIntact());
      }
    }
  });
  EXPECT_GT(g_found, 1000u);
}

}  // namespace
