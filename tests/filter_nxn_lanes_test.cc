// SIMD variants of the caller-sized window filters against their reference variants on every
// compiled target: widths 1-70 and large, padded misaligned rows whose guards must survive,
// extreme and random values, windows wider than the image, and calls in place.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

std::vector<Shape> Shapes() {
  std::vector<Shape> shapes;
  for (const Shape& s : tvxtest::SweepShapes())
    if (s.width < 1000) shapes.push_back({s.width, s.height + 2 * (s.width % 4), s.pad, s.misalign});
  shapes.push_back({131, 12, 3, 1});
  shapes.push_back({300, 5, 0, 2});
  return shapes;
}

// Runs reference and SIMD forms on twin destinations pre-filled alike; same bytes, guards kept.
template <typename C, typename V>
void Compare(const Shape& s, size_t elem, C callC, V callV) {
  Image c(s.width, s.height, elem, s.pad * uint32_t(elem), (s.misalign + 1) % 4 * uint32_t(elem));
  Image v(s.width, s.height, elem, s.pad * uint32_t(elem), (s.misalign + 1) % 4 * uint32_t(elem));
  for (uint32_t y = 0; y < s.height; ++y) {
    std::memset(c.row(y), 0x3C, s.width * elem);
    std::memset(v.row(y), 0x3C, s.width * elem);
  }
  callC(c);
  callV(v);
  EXPECT_TRUE(v.SameRect(c));
  EXPECT_TRUE(v.GuardsIntact());
  EXPECT_TRUE(c.GuardsIntact());
}

class FilterNxNLanes : public ::testing::Test {
 protected:
  std::mt19937 rng_{31};
};

TEST_F(FilterNxNLanes, ErodeDilateMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      Image src(s.width, s.height, 1, s.pad, s.misalign);
      src.Randomize(rng_);
      const uint32_t w = s.width, h = s.height;
      for (uint32_t n : {3u, 5u, 9u, 301u}) {
        SCOPED_TRACE(::testing::Message() << w << "x" << h << " N " << n);
        Compare(s, 1, [&](Image& d) { EXPECT_EQ(tvxFilterErodeNxNu8C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), n), 0); },
                [&](Image& d) { EXPECT_EQ(tvxFilterErodeNxNu8V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), n), 0); });
        Compare(s, 1, [&](Image& d) { EXPECT_EQ(tvxFilterDilateNxNu8C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), n), 0); },
                [&](Image& d) { EXPECT_EQ(tvxFilterDilateNxNu8V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), n), 0); });
      }
      // In place: the SIMD variant must read the original pixels too.
      Image inC(s.width, s.height, 1, s.pad, s.misalign), inV(s.width, s.height, 1, s.pad, s.misalign);
      for (uint32_t y = 0; y < h; ++y) {
        std::memcpy(inC.row(y), src.row(y), w);
        std::memcpy(inV.row(y), src.row(y), w);
      }
      tvxFilterErodeNxNu8C(inC.bytes(), w, h, inC.stride(), inC.bytes(), inC.stride(), 5);
      tvxFilterErodeNxNu8V(inV.bytes(), w, h, inV.stride(), inV.bytes(), inV.stride(), 5);
      EXPECT_TRUE(inV.SameRect(inC));
      EXPECT_TRUE(inV.GuardsIntact());
    }
  });
}

TEST_F(FilterNxNLanes, BoxFloatMatchesReferenceExactly) {
  std::uniform_real_distribution<float> dist(-3.0e4f, 3.0e4f);
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      Image src(s.width, s.height, 4, s.pad * 4, s.misalign * 4);
      src.RandomizeAs<float>(rng_, dist);
      const uint32_t w = s.width, h = s.height;
      for (uint32_t n : {2u, 3u, 6u, 11u, 200u}) {
        SCOPED_TRACE(::testing::Message() << w << "x" << h << " N " << n);
        Compare(s, 4, [&](Image& d) { tvxBoxFilterNxNf32C(src.as<float>(), w, h, src.stride(), d.as<float>(), d.stride(), n); },
                [&](Image& d) { tvxBoxFilterNxNf32V(src.as<float>(), w, h, src.stride(), d.as<float>(), d.stride(), n); });
      }
      Image inC(s.width, s.height, 4, s.pad * 4), inV(s.width, s.height, 4, s.pad * 4);
      for (uint32_t y = 0; y < h; ++y) {
        std::memcpy(inC.row(y), src.row(y), w * 4);
        std::memcpy(inV.row(y), src.row(y), w * 4);
      }
      tvxBoxFilterNxNf32C(inC.as<float>(), w, h, inC.stride(), inC.as<float>(), inC.stride(), 5);
      tvxBoxFilterNxNf32V(inV.as<float>(), w, h, inV.stride(), inV.as<float>(), inV.stride(), 5);
      EXPECT_TRUE(inV.SameRect(inC));
      EXPECT_TRUE(inV.GuardsIntact());
    }
  });
}

TEST_F(FilterNxNLanes, MedianMatchesReference) {
  std::uniform_int_distribution<int> dist(INT16_MIN, INT16_MAX);
  const std::pair<uint32_t, uint32_t> windows[] = {{3, 3}, {5, 3}, {1, 7}, {7, 7}};
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      Image src(s.width, s.height, 2, s.pad * 2, s.misalign * 2);
      src.RandomizeAs<int16_t>(rng_, dist);
      for (uint32_t y = 0; y < s.height; ++y)  // extremes and ties
        for (uint32_t x = 0; x < s.width; x += 3) src.at<int16_t>(x, y) = (x + y) % 2 ? INT16_MIN : INT16_MAX;
      const uint32_t w = s.width, h = s.height;
      for (auto [m, n] : windows) {
        for (uint32_t type = 0; type <= 2; ++type) {
          SCOPED_TRACE(::testing::Message() << w << "x" << h << " window " << m << "x" << n << " type " << type);
          Compare(s, 2, [&](Image& d) { EXPECT_EQ(tvxFilterMedianMxNs16C(src.as<int16_t>(), w, h, src.stride(), d.as<int16_t>(), d.stride(), m, n, type, -77), 0); },
                  [&](Image& d) { EXPECT_EQ(tvxFilterMedianMxNs16V(src.as<int16_t>(), w, h, src.stride(), d.as<int16_t>(), d.stride(), m, n, type, -77), 0); });
        }
      }
    }
  });
}

}  // namespace
