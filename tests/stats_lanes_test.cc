// SIMD variants of the statistics family against their reference variants on every compiled
// target: min/max with locations (every output, list buffers included), averages and matrix
// products, over odd widths, padded strides and data with many ties and extreme values.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

template <typename T>
using MinMaxFn = int32_t (*)(const T*, uint32_t, uint32_t, uint32_t, T*, T*, uint32_t*, uint32_t*, uint32_t*,
                             uint32_t*);
template <typename T>
using MinMaxListFn = int32_t (*)(const T*, uint32_t, uint32_t, uint32_t, T*, T*, uint32_t*, uint32_t*, uint32_t*,
                                 uint32_t*, uint32_t*, uint32_t*, uint32_t, uint32_t);

// Everything one min/max call writes, with list buffers pre-filled so that every write shows.
template <typename T>
struct MinMaxResult {
  int32_t status = -1;
  T minVal{}, maxVal{};
  uint32_t minCount = 7, maxCount = 7;
  std::vector<uint32_t> minX, minY, maxX, maxY;
  explicit MinMaxResult(uint32_t minCap, uint32_t maxCap)
      : minX(minCap + 1, 0xEEEEEEEE), minY(minCap + 1, 0xEEEEEEEE), maxX(maxCap + 1, 0xEEEEEEEE),
        maxY(maxCap + 1, 0xEEEEEEEE) {}
  bool operator==(const MinMaxResult& o) const {
    return status == o.status && std::memcmp(&minVal, &o.minVal, sizeof(T)) == 0 &&
           std::memcmp(&maxVal, &o.maxVal, sizeof(T)) == 0 && minCount == o.minCount && maxCount == o.maxCount &&
           minX == o.minX && minY == o.minY && maxX == o.maxX && maxY == o.maxY;
  }
};

template <typename T>
::testing::AssertionResult SameMinMax(const Image& img, MinMaxFn<T> c, MinMaxFn<T> v, MinMaxListFn<T> cl,
                                      MinMaxListFn<T> vl) {
  const uint32_t w = img.width(), h = img.height();
  const T* src = img.as<T>();
  MinMaxResult<T> rc(1, 1), rv(1, 1);
  rc.status = c(src, w, h, img.stride(), &rc.minVal, &rc.maxVal, &rc.minX[0], &rc.minY[0], &rc.maxX[0], &rc.maxY[0]);
  rv.status = v(src, w, h, img.stride(), &rv.minVal, &rv.maxVal, &rv.minX[0], &rv.minY[0], &rv.maxX[0], &rv.maxY[0]);
  if (!(rc == rv)) return ::testing::AssertionFailure() << "single-location form differs";
  for (const uint32_t cap : {0u, 1u, 3u, 64u, 5000u}) {
    const uint32_t maxCap = cap == 3 ? 40 : cap;  // unequal capacities too
    MinMaxResult<T> lc(cap, maxCap), lv(cap, maxCap);
    lc.status = cl(src, w, h, img.stride(), &lc.minVal, &lc.maxVal, lc.minX.data(), lc.minY.data(), lc.maxX.data(),
                   lc.maxY.data(), &lc.minCount, &lc.maxCount, cap, maxCap);
    lv.status = vl(src, w, h, img.stride(), &lv.minVal, &lv.maxVal, lv.minX.data(), lv.minY.data(), lv.maxX.data(),
                   lv.maxY.data(), &lv.minCount, &lv.maxCount, cap, maxCap);
    if (!(lc == lv)) return ::testing::AssertionFailure() << "list form differs at capacity " << cap;
  }
  return ::testing::AssertionSuccess();
}

// Images for one element type: full-range noise, few distinct values (many ties), values
// falling row by row (a new extreme in every row), and a constant image.
template <typename T, typename Fill>
void ForEachMinMaxImage(std::mt19937& rng, Fill fill, const std::function<void(const Image&)>& body) {
  for (const Shape& s : tvxtest::SweepShapes()) {
    for (uint32_t kind = 0; kind < 4; ++kind) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height << " kind " << kind);
      const uint32_t height = s.height + 3 * (kind == 2);
      Image img(s.width, height, sizeof(T), s.pad * sizeof(T), (s.misalign % 2) * sizeof(T));
      for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < s.width; ++x) {
          T& e = img.at<T>(x, y);
          if (kind == 0) e = fill(rng(), 0);
          else if (kind == 1) e = fill(rng() % 3, 1);
          else if (kind == 2) e = fill(height - y + (rng() % 2), 1);
          else e = fill(5, 1);
        }
      body(img);
    }
  }
}

template <typename T>
T FromBits(uint32_t r) {
  T v;
  std::memcpy(&v, &r, sizeof(T));
  return v;
}

TEST(StatsLanes, IntegerMinMaxLocMatchesReference) {
  std::mt19937 rng(7);
  tvxtest::ForEachTarget([&] {
    ForEachMinMaxImage<uint8_t>(rng, [](uint32_t r, int small) { return small ? uint8_t(r) : FromBits<uint8_t>(r); },
                                [](const Image& img) {
      EXPECT_TRUE(SameMinMax<uint8_t>(img, tvxMinMaxLocu8C, tvxMinMaxLocu8V, tvxMinMaxLocu8_v2C, tvxMinMaxLocu8_v2V));
    });
    ForEachMinMaxImage<uint16_t>(rng, [](uint32_t r, int small) { return small ? uint16_t(r + 65530) : FromBits<uint16_t>(r); },
                                 [](const Image& img) {
      EXPECT_TRUE(SameMinMax<uint16_t>(img, tvxMinMaxLocu16C, tvxMinMaxLocu16V, tvxMinMaxLocu16_v2C, tvxMinMaxLocu16_v2V));
    });
    ForEachMinMaxImage<int16_t>(rng, [](uint32_t r, int small) { return small ? int16_t(int(r) - 1) : FromBits<int16_t>(r); },
                                [](const Image& img) {
      EXPECT_TRUE(SameMinMax<int16_t>(img, tvxMinMaxLocs16C, tvxMinMaxLocs16V, tvxMinMaxLocs16_v2C, tvxMinMaxLocs16_v2V));
    });
    ForEachMinMaxImage<uint32_t>(rng, [](uint32_t r, int small) { return small ? r + 0xFFFFFFF0u : r; },
                                 [](const Image& img) {
      EXPECT_TRUE(SameMinMax<uint32_t>(img, tvxMinMaxLocu32C, tvxMinMaxLocu32V, tvxMinMaxLocu32_v2C, tvxMinMaxLocu32_v2V));
    });
    ForEachMinMaxImage<int32_t>(rng, [](uint32_t r, int small) { return small ? int32_t(r) - 1 : FromBits<int32_t>(r); },
                                [](const Image& img) {
      EXPECT_TRUE(SameMinMax<int32_t>(img, tvxMinMaxLocs32C, tvxMinMaxLocs32V, tvxMinMaxLocs32_v2C, tvxMinMaxLocs32_v2V));
    });
  });
}

TEST(StatsLanes, FloatMinMaxLocMatchesReferenceWithZerosSubnormalsAndNaN) {
  std::mt19937 rng(8);
  // Signed zeros that compare equal, subnormals, infinities and ordinary values.
  const float specials[] = {0.0f, -0.0f, 1e-45f, -1e-45f, 1e-39f, -1e-39f, 1.0f, -1.0f,
                            std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()};
  const auto fill = [&](uint32_t r, int small) {
    if (small) return specials[r % 6];  // mostly zeros and tiny values: many ties
    return r % 4 == 0 ? specials[r % 10] : FromBits<float>(r & 0xFF7FFFFF);  // no NaN bit patterns
  };
  tvxtest::ForEachTarget([&] {
    ForEachMinMaxImage<float>(rng, fill, [](const Image& img) {
      EXPECT_TRUE(SameMinMax<float>(img, tvxMinMaxLocf32C, tvxMinMaxLocf32V, tvxMinMaxLocf32_v2C, tvxMinMaxLocf32_v2V));
    });
    // A NaN first element, or one anywhere else, follows the reference too.
    for (const uint32_t at : {0u, 1u, 17u, 95u}) {
      Image img(32, 3, 4, 8, 4);
      for (uint32_t y = 0; y < 3; ++y)
        for (uint32_t x = 0; x < 32; ++x) img.at<float>(x, y) = float(int(rng() % 7) - 3);
      img.at<float>(at % 32, at / 32) = std::nanf("");
      EXPECT_TRUE(SameMinMax<float>(img, tvxMinMaxLocf32C, tvxMinMaxLocf32V, tvxMinMaxLocf32_v2C, tvxMinMaxLocf32_v2V))
          << "NaN at " << at;
    }
  });
}

TEST(StatsLanes, AveragesMatchReference) {
  std::mt19937 rng(9);
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      Image u8(s.width, s.height, 1, s.pad, s.misalign);
      u8.Randomize(rng);
      float avgC = -1, avgV = -2;
      EXPECT_EQ(tvxAverageu8V(u8.bytes(), s.width, s.height, u8.stride(), &avgV),
                tvxAverageu8C(u8.bytes(), s.width, s.height, u8.stride(), &avgC));
      EXPECT_EQ(avgV, avgC);
      Image s32(s.width, s.height, 4, s.pad * 4, (s.misalign % 2) * 4);
      for (uint32_t y = 0; y < s.height; ++y)
        for (uint32_t x = 0; x < s.width; ++x)
          s32.at<int32_t>(x, y) = rng() % 3 == 0 ? (rng() % 2 ? INT32_MIN : INT32_MAX) : FromBits<int32_t>(rng());
      EXPECT_EQ(tvxAverages32V(s32.as<int32_t>(), s.width, s.height, s32.stride(), &avgV),
                tvxAverages32C(s32.as<int32_t>(), s.width, s.height, s32.stride(), &avgC));
      EXPECT_EQ(avgV, avgC);
    }
  });
}

TEST(StatsLanes, MatrixProductsMatchReferenceExactly) {
  std::mt19937 rng(10);
  tvxtest::ForEachTarget([&] {
    for (uint32_t depth : {1u, 2u, 7u, 33u, 150u}) {
      for (uint32_t cols : {1u, 3u, 4u, 15u, 16u, 17u, 64u, 65u, 70u, 131u}) {
        SCOPED_TRACE(::testing::Message() << "depth " << depth << " cols " << cols);
        const uint32_t rows = 1 + (depth + cols) % 4;
        Image a8(depth, rows, 1, 3, 1), b8(cols, depth, 1, 5, 2);
        for (uint32_t y = 0; y < rows; ++y)
          for (uint32_t x = 0; x < depth; ++x) a8.at<int8_t>(x, y) = rng() % 4 ? int8_t(rng()) : int8_t(-128);
        for (uint32_t y = 0; y < depth; ++y)
          for (uint32_t x = 0; x < cols; ++x) b8.at<int8_t>(x, y) = rng() % 4 ? int8_t(rng()) : int8_t(-128);
        Image c32(cols, rows, 4, 8, 4), v32(cols, rows, 4, 8, 4);
        const auto s8 = [](const Image& i) { return i.as<int8_t>(); };
        tvxMatrixMultiplys8s32C(s8(a8), depth, rows, a8.stride(), s8(b8), cols, b8.stride(), c32.as<int32_t>(), c32.stride());
        tvxMatrixMultiplys8s32V(s8(a8), depth, rows, a8.stride(), s8(b8), cols, b8.stride(), v32.as<int32_t>(), v32.stride());
        EXPECT_TRUE(v32.SameRect(c32)) << "s8s32";
        EXPECT_TRUE(v32.GuardsIntact());

        Image af(depth, rows, 4, 4, 4), bf(cols, depth, 4, 12, 0);
        std::uniform_real_distribution<float> uni(-100.0f, 100.0f);
        for (uint32_t y = 0; y < rows; ++y)
          for (uint32_t x = 0; x < depth; ++x) af.at<float>(x, y) = uni(rng);
        for (uint32_t y = 0; y < depth; ++y)
          for (uint32_t x = 0; x < cols; ++x) bf.at<float>(x, y) = rng() % 9 ? uni(rng) : -0.0f;
        Image cf(cols, rows, 4, 4, 0), vf(cols, rows, 4, 4, 0);
        tvxMatrixMultiplyf32C(af.as<float>(), depth, rows, af.stride(), bf.as<float>(), cols, bf.stride(), cf.as<float>(), cf.stride());
        tvxMatrixMultiplyf32V(af.as<float>(), depth, rows, af.stride(), bf.as<float>(), cols, bf.stride(), vf.as<float>(), vf.stride());
        EXPECT_TRUE(vf.SameRect(cf)) << "f32 (bit-exact)";
        EXPECT_TRUE(vf.GuardsIntact());
      }
    }
  });
}

}  // namespace
