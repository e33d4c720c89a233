// SIMD variants of the pyramid creates against their reference variants on every compiled
// target: level sizes around the vector widths (odd last levels included), padded and
// misaligned bases, level buffers surrounded by guard bytes, byte pyramids bit for bit, the
// scaled pyramid, float pyramids within 1e-6 relative and the three Sobel pyramids.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "cpu/pyramid_build.h"
#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;

struct Case {
  uint32_t width, height, levels, pad, misalign;
};

// Last levels odd, narrower than a vector, or a single column; large bases with many levels.
std::vector<Case> Cases() {
  return {{7, 5, 1, 3, 1},    {30, 18, 2, 1, 2},   {24, 40, 4, 5, 3},  {64, 48, 4, 0, 0},   {96, 32, 6, 7, 1},
          {200, 136, 4, 2, 3}, {250, 130, 2, 9, 0}, {136, 72, 4, 3, 2}, {1024, 64, 7, 0, 1}, {1016, 24, 4, 1, 0}};
}

// One buffer per level, guard bytes around each.
struct Levels {
  std::vector<Image> images;
  Levels(uint32_t w, uint32_t h, uint32_t levels, size_t elem, float scale = 0.5f) {
    for (uint32_t i = 1; i < levels; ++i)
      images.emplace_back(tvxpyr::LevelSize(w, i, scale), tvxpyr::LevelSize(h, i, scale), elem);
  }
  template <typename Level>
  std::vector<Level> Records() {
    std::vector<Level> r(images.size() + 1);
    for (size_t i = 0; i < images.size(); ++i) r[i + 1].ptr = images[i].bytes();
    return r;
  }
  ::testing::AssertionResult Same(const Levels& other) const {
    for (size_t i = 0; i < images.size(); ++i) {
      if (auto r = images[i].SameRect(other.images[i]); !r) return r << " at level " << i + 1;
      if (auto r = images[i].GuardsIntact(); !r) return r << " at level " << i + 1;
      if (auto r = other.images[i].GuardsIntact(); !r) return r << " at level " << i + 1;
    }
    return ::testing::AssertionSuccess();
  }
};

class PyramidLanes : public ::testing::Test {
 protected:
  std::mt19937 rng_{77};
};

TEST_F(PyramidLanes, BytePyramidsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Case& c : Cases()) {
      SCOPED_TRACE(::testing::Message() << c.width << "x" << c.height << " levels " << c.levels);
      Image packed(c.width, c.height, 1, 0, c.misalign);
      packed.RandomizeWithExtremes(rng_, 1, 4);
      Image padded(c.width, c.height, 1, c.pad, c.misalign);
      padded.RandomizeWithExtremes(rng_, 1, 4);
      {
        Levels lc(c.width, c.height, c.levels, 1), lv(c.width, c.height, c.levels, 1);
        auto rc = lc.Records<tvxPyramidLevel>(), rv = lv.Records<tvxPyramidLevel>();
        ASSERT_EQ(tvxPyramidCreateu8C(packed.bytes(), c.width, c.height, c.levels, rc.data()), 0);
        ASSERT_EQ(tvxPyramidCreateu8V(packed.bytes(), c.width, c.height, c.levels, rv.data()), 0);
        EXPECT_TRUE(lv.Same(lc)) << "first form";
        EXPECT_TRUE(packed.GuardsIntact());
      }
      {
        Levels lc(c.width, c.height, c.levels, 1), lv(c.width, c.height, c.levels, 1);
        auto rc = lc.Records<tvxPyramidLevel_v2>(), rv = lv.Records<tvxPyramidLevel_v2>();
        ASSERT_EQ(tvxPyramidCreateu8_v2C(padded.bytes(), c.width, c.height, padded.stride(), c.levels, rc.data()), 0);
        ASSERT_EQ(tvxPyramidCreateu8_v2V(padded.bytes(), c.width, c.height, padded.stride(), c.levels, rv.data()), 0);
        EXPECT_TRUE(lv.Same(lc)) << "second form";
      }
      for (float scale : {0.5f, 0.6f, 0.8f}) {
        SCOPED_TRACE(scale);
        Levels lc(c.width, c.height, c.levels, 1, scale), lv(c.width, c.height, c.levels, 1, scale);
        auto rc = lc.Records<tvxPyramidLevel_v2>(), rv = lv.Records<tvxPyramidLevel_v2>();
        ASSERT_EQ(tvxPyramidCreateu8_v3C(padded.bytes(), c.width, c.height, padded.stride(), c.levels, rc.data(), scale), 0);
        ASSERT_EQ(tvxPyramidCreateu8_v3V(padded.bytes(), c.width, c.height, padded.stride(), c.levels, rv.data(), scale), 0);
        EXPECT_TRUE(lv.Same(lc)) << "scaled form";
        for (uint32_t i = 1; i < c.levels; ++i) ASSERT_EQ(rv[i].width, lv.images[i - 1].width());
      }
      EXPECT_TRUE(padded.GuardsIntact());
    }
  });
}

// Floats: the SIMD levels equal the reference's within 1e-6 relative.
::testing::AssertionResult Close(const Image& a, const Image& b) {
  for (uint32_t y = 0; y < a.height(); ++y) {
    const float* ra = reinterpret_cast<const float*>(a.row(y));
    const float* rb = reinterpret_cast<const float*>(b.row(y));
    for (uint32_t x = 0; x < a.width(); ++x) {
      if (!(std::fabs(ra[x] - rb[x]) <= 1e-6f * std::max(1.0f, std::fabs(rb[x]))))
        return ::testing::AssertionFailure() << "(" << x << ", " << y << "): " << ra[x] << " vs " << rb[x];
    }
  }
  return a.GuardsIntact();
}

TEST_F(PyramidLanes, FloatPyramidsMatchReference) {
  std::uniform_real_distribution<float> dist(-1000.0f, 1000.0f);
  tvxtest::ForEachTarget([&] {
    for (const Case& c : Cases()) {
      SCOPED_TRACE(::testing::Message() << c.width << "x" << c.height << " levels " << c.levels);
      Image packed(c.width, c.height, 4, 0, 4 * (c.misalign % 2));
      packed.RandomizeAs<float>(rng_, dist);
      Image padded(c.width, c.height, 4, 4 * c.pad, 4 * (c.misalign % 2));
      padded.RandomizeAs<float>(rng_, dist);
      Levels l1c(c.width, c.height, c.levels, 4), l1v(c.width, c.height, c.levels, 4);
      auto r1c = l1c.Records<tvxPyramidLevel>(), r1v = l1v.Records<tvxPyramidLevel>();
      ASSERT_EQ(tvxPyramidCreatef32C(packed.as<float>(), c.width, c.height, c.levels, r1c.data()), 0);
      ASSERT_EQ(tvxPyramidCreatef32V(packed.as<float>(), c.width, c.height, c.levels, r1v.data()), 0);
      Levels l2c(c.width, c.height, c.levels, 4), l2v(c.width, c.height, c.levels, 4);
      auto r2c = l2c.Records<tvxPyramidLevel_v2>(), r2v = l2v.Records<tvxPyramidLevel_v2>();
      ASSERT_EQ(tvxPyramidCreatef32_v2C(padded.as<float>(), c.width, c.height, padded.stride(), c.levels, r2c.data()), 0);
      ASSERT_EQ(tvxPyramidCreatef32_v2V(padded.as<float>(), c.width, c.height, padded.stride(), c.levels, r2v.data()), 0);
      for (size_t i = 0; i < l1c.images.size(); ++i) {
        SCOPED_TRACE(i + 1);
        EXPECT_TRUE(Close(l1v.images[i], l1c.images[i]));
        EXPECT_TRUE(Close(l2v.images[i], l2c.images[i]));
        EXPECT_EQ(r2v[i + 1].stride, l2c.images[i].width() * 4);
      }
    }
  });
}

template <typename T, typename Create>
void CompareSobel(const std::vector<tvxPyramidLevel>& img, Create createC, Create createV) {
  const uint32_t levels = static_cast<uint32_t>(img.size());
  std::vector<Image> planes;  // dx C, dy C, dx V, dy V per level
  std::vector<tvxPyramidLevel> dxc(levels), dyc(levels), dxv(levels), dyv(levels);
  for (uint32_t i = 0; i < levels; ++i)
    for (int k = 0; k < 4; ++k) planes.emplace_back(img[i].width, img[i].height, sizeof(T));
  for (uint32_t i = 0; i < levels; ++i) {
    dxc[i].ptr = planes[4 * i].bytes();
    dyc[i].ptr = planes[4 * i + 1].bytes();
    dxv[i].ptr = planes[4 * i + 2].bytes();
    dyv[i].ptr = planes[4 * i + 3].bytes();
  }
  ASSERT_EQ(createC(img.data(), dxc.data(), dyc.data(), levels), 0);
  ASSERT_EQ(createV(img.data(), dxv.data(), dyv.data(), levels), 0);
  for (uint32_t i = 0; i < levels; ++i) {
    SCOPED_TRACE(i);
    EXPECT_TRUE(planes[4 * i + 2].SameRect(planes[4 * i])) << "dx";
    EXPECT_TRUE(planes[4 * i + 3].SameRect(planes[4 * i + 1])) << "dy";
    for (int k = 0; k < 4; ++k) EXPECT_TRUE(planes[4 * i + k].GuardsIntact());
  }
}

TEST_F(PyramidLanes, SobelPyramidsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Case& c : Cases()) {
      SCOPED_TRACE(::testing::Message() << c.width << "x" << c.height << " levels " << c.levels);
      Image base(c.width, c.height, 1);
      base.RandomizeWithExtremes(rng_, 1, 4);
      Levels l(c.width, c.height, c.levels, 1);
      auto rec = l.Records<tvxPyramidLevel>();
      ASSERT_EQ(tvxPyramidCreateu8C(base.bytes(), c.width, c.height, c.levels, rec.data()), 0);
      CompareSobel<int16_t>(rec, &tvxPyramidSobelGradientCreatei16C, &tvxPyramidSobelGradientCreatei16V);
      CompareSobel<int8_t>(rec, &tvxPyramidSobelGradientCreatei8C, &tvxPyramidSobelGradientCreatei8V);
      CompareSobel<float>(rec, &tvxPyramidSobelGradientCreatef32C, &tvxPyramidSobelGradientCreatef32V);
    }
  });
}

}  // namespace
