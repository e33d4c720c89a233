// Filters with a caller-chosen window through their public entries: NxN erode and dilate, the
// float NxN mean and the MxN median on s16. Hand-worked values, brute-force models on random
// images, in-place calls, and argument rejection (status 3 or the logged line, nothing written).
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;

// A padded image of T; the padding holds a marker that must survive.
template <typename T>
struct Img {
  uint32_t w, h, stride;  // stride in elements
  std::vector<T> px;
  Img(uint32_t width, uint32_t height, uint32_t pad = 0, T fill = T(0))
      : w(width), h(height), stride(width + pad), px(size_t(width + pad) * height, fill) {}
  T& at(int64_t x, int64_t y) { return px[size_t(y) * stride + size_t(x)]; }
  T at(int64_t x, int64_t y) const { return px[size_t(y) * stride + size_t(x)]; }
  T* data() { return px.data(); }
  uint32_t bytes() const { return stride * sizeof(T); }
};

class FilterNxNTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
    std::fill(std::begin(tvxImplTable), std::end(tvxImplTable), 0u);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  std::mt19937 rng_{99};
};

// ---- erode and dilate NxN -------------------------------------------------------------------

// Brute force: the extreme over every (sx, sy) within n/2 of (x, y) that lies in the image.
Img<uint8_t> MorphModel(const Img<uint8_t>& src, uint32_t n, bool dilate) {
  Img<uint8_t> out(src.w, src.h);
  const int64_t r = n / 2;
  for (int64_t y = 0; y < src.h; ++y)
    for (int64_t x = 0; x < src.w; ++x) {
      int best = dilate ? -1 : 256;
      for (int64_t sy = 0; sy < src.h; ++sy)
        for (int64_t sx = 0; sx < src.w; ++sx)
          if (std::llabs(sx - x) <= r && std::llabs(sy - y) <= r)
            best = dilate ? std::max<int>(best, src.at(sx, sy)) : std::min<int>(best, src.at(sx, sy));
      out.at(x, y) = uint8_t(best);
    }
  return out;
}

template <typename T>
::testing::AssertionResult SameAs(const Img<T>& got, const Img<T>& want, T padMark) {
  for (uint32_t y = 0; y < got.h; ++y) {
    for (uint32_t x = 0; x < got.w; ++x)
      if (got.at(x, y) != want.at(x, y))
        return ::testing::AssertionFailure() << "pixel (" << x << ", " << y << ") of " << got.w << "x" << got.h
                                             << " is " << +got.at(x, y) << ", expected " << +want.at(x, y);
    for (uint32_t x = got.w; x < got.stride; ++x)
      if (got.at(x, y) != padMark) return ::testing::AssertionFailure() << "padding of row " << y << " written";
  }
  return ::testing::AssertionSuccess();
}

TEST_F(FilterNxNTest, ErodeAndDilateWorkedValues) {
  // A single dark pixel in a corner spreads over the window cut to the image.
  Img<uint8_t> src(7, 6, 0, 200), dst(7, 6, 0, 1);
  src.at(0, 0) = 10;
  src.at(6, 5) = 250;
  ASSERT_EQ(tvxFilterErodeNxNu8(src.data(), 7, 6, 7, dst.data(), 7, 5), 0);
  for (uint32_t y = 0; y < 6; ++y)
    for (uint32_t x = 0; x < 7; ++x) EXPECT_EQ(dst.at(x, y), (x <= 2 && y <= 2) ? 10 : 200) << x << "," << y;
  ASSERT_EQ(tvxFilterDilateNxNu8(src.data(), 7, 6, 0, dst.data(), 0, 3), 0);
  for (uint32_t y = 0; y < 6; ++y)
    for (uint32_t x = 0; x < 7; ++x) EXPECT_EQ(dst.at(x, y), (x >= 5 && y >= 4) ? 250 : 200) << x << "," << y;
  // A window larger than the image sees the whole image everywhere.
  ASSERT_EQ(tvxFilterErodeNxNu8(src.data(), 7, 6, 7, dst.data(), 7, 1001), 0);
  for (uint8_t v : dst.px) EXPECT_EQ(v, 10);
}

TEST_F(FilterNxNTest, ErodeAndDilateMatchModel) {
  for (uint32_t n : {3u, 5u, 7u, 9u}) {
    for (auto [w, h] : {std::pair{1u, 1u}, {1u, 9u}, {13u, 1u}, {17u, 11u}, {6u, 23u}}) {
      Img<uint8_t> src(w, h, 3);
      for (auto& v : src.px) v = uint8_t(rng_());
      for (bool dilate : {false, true}) {
        SCOPED_TRACE(::testing::Message() << "N " << n << " " << w << "x" << h << (dilate ? " dilate" : " erode"));
        Img<uint8_t> dst(w, h, 2, 0x77);
        const auto call = dilate ? tvxFilterDilateNxNu8 : tvxFilterErodeNxNu8;
        ASSERT_EQ(call(src.data(), w, h, src.bytes(), dst.data(), dst.bytes(), n), 0);
        EXPECT_TRUE(SameAs(dst, MorphModel(src, n, dilate), uint8_t(0x77)));
        // In place with one stride reads the original pixels.
        Img<uint8_t> inplace = src;
        ASSERT_EQ(call(inplace.data(), w, h, inplace.bytes(), inplace.data(), inplace.bytes(), n), 0);
        for (uint32_t y = 0; y < h; ++y)
          for (uint32_t x = 0; x < w; ++x) ASSERT_EQ(inplace.at(x, y), dst.at(x, y));
      }
    }
  }
}

TEST_F(FilterNxNTest, ErodeAndDilateRejectBadArguments) {
  Img<uint8_t> src(8, 8, 0, 5), dst(8, 8, 0, 0x77);
  for (auto call : {tvxFilterErodeNxNu8, tvxFilterDilateNxNu8}) {
    EXPECT_EQ(call(src.data(), 8, 8, 8, dst.data(), 8, 4), 3);    // even window
    EXPECT_EQ(call(src.data(), 8, 8, 8, dst.data(), 8, 1), 3);    // smaller than 3
    EXPECT_EQ(call(src.data(), 8, 8, 8, dst.data(), 8, 0), 3);
    EXPECT_EQ(call(src.data(), 0, 8, 8, dst.data(), 8, 3), 3);
    EXPECT_EQ(call(src.data(), 8, 0, 8, dst.data(), 8, 3), 3);
    EXPECT_EQ(call(src.data(), 8, 8, 7, dst.data(), 8, 3), 3);    // source rows overlap
    EXPECT_EQ(call(src.data(), 8, 8, 8, dst.data(), 7, 3), 3);
    EXPECT_EQ(call(nullptr, 8, 8, 8, dst.data(), 8, 3), 3);
    EXPECT_EQ(call(src.data(), 8, 8, 8, nullptr, 8, 3), 3);
    EXPECT_EQ(call(dst.data(), 4, 8, 8, dst.data(), 4, 3), 3);   // in place, strides differ
    for (uint8_t v : dst.px) ASSERT_EQ(v, 0x77);
  }
  EXPECT_TRUE(g_lines.empty());
}

// ---- float box NxN --------------------------------------------------------------------------

// Mean over the window x - n/2 .. x + (n-1)/2 cut to the image, in double precision.
double BoxModel(const Img<float>& src, int64_t x, int64_t y, uint32_t n) {
  const int64_t before = n / 2, after = (n - 1) / 2;
  double sum = 0;
  int count = 0;
  for (int64_t sy = y - before; sy <= y + after; ++sy)
    for (int64_t sx = x - before; sx <= x + after; ++sx)
      if (sx >= 0 && sy >= 0 && sx < src.w && sy < src.h) sum += src.at(sx, sy), ++count;
  return sum / count;
}

TEST_F(FilterNxNTest, BoxFloatWorkedValues) {
  Img<float> ramp(6, 5), dst(6, 5, 1, -1.0f);
  for (uint32_t y = 0; y < 5; ++y)
    for (uint32_t x = 0; x < 6; ++x) ramp.at(x, y) = float(x + 10 * y);
  tvxBoxFilterNxNf32(ramp.data(), 6, 5, 0, dst.data(), dst.bytes(), 3);
  EXPECT_EQ(dst.at(0, 0), 5.5f);    // (0 + 1 + 10 + 11) / 4
  EXPECT_EQ(dst.at(2, 0), 7.0f);    // (1 + 2 + 3 + 11 + 12 + 13) / 6
  EXPECT_EQ(dst.at(3, 2), 23.0f);   // a full window of a plane is its centre
  EXPECT_EQ(dst.at(5, 4), 39.5f);   // (44 + 45 + 34 + 35) / 4
  // An even window reaches one further back than forward: x - 1 .. x.
  tvxBoxFilterNxNf32(ramp.data(), 6, 5, 0, dst.data(), dst.bytes(), 2);
  EXPECT_EQ(dst.at(0, 0), 0.0f);
  EXPECT_EQ(dst.at(1, 0), 0.5f);
  EXPECT_EQ(dst.at(3, 2), 17.5f);   // (12 + 13 + 22 + 23) / 4
  for (uint32_t y = 0; y < 5; ++y) EXPECT_EQ(dst.at(6, y), -1.0f) << "padding written";
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(FilterNxNTest, BoxFloatMatchesModelAndWorksInPlace) {
  std::uniform_real_distribution<float> dist(-1000.0f, 1000.0f);
  for (uint32_t n : {2u, 3u, 4u, 7u, 40u}) {
    for (auto [w, h] : {std::pair{5u, 5u}, {23u, 9u}, {8u, 31u}}) {
      SCOPED_TRACE(::testing::Message() << "N " << n << " " << w << "x" << h);
      Img<float> src(w, h, 2), dst(w, h, 1, 123.0f);
      for (auto& v : src.px) v = dist(rng_);
      tvxBoxFilterNxNf32(src.data(), w, h, src.bytes(), dst.data(), dst.bytes(), n);
      for (uint32_t y = 0; y < h; ++y) {
        for (uint32_t x = 0; x < w; ++x) {
          const double want = BoxModel(src, x, y, n);
          ASSERT_NEAR(dst.at(x, y), want, 1e-2) << x << "," << y;
        }
        ASSERT_EQ(dst.at(w, y), 123.0f);
      }
      Img<float> inplace = src;
      tvxBoxFilterNxNf32(inplace.data(), w, h, inplace.bytes(), inplace.data(), inplace.bytes(), n);
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) ASSERT_EQ(inplace.at(x, y), dst.at(x, y));
    }
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(FilterNxNTest, BoxFloatRejectsBadArgumentsWithTheLoggedCondition) {
  const std::string line =
      "tavix_lib_log|Assertion failed @tvxBoxFilterNxNf32: src && dst && srcWidth && srcHeight && (N > 1) && "
      "((src == dst && srcStride == dstStride) || (src != dst)) && (srcStride >=srcWidth*4) && "
      "(dstStride >=srcWidth*4) && srcWidth > 4 && srcHeight > 4\n";
  Img<float> src(8, 8, 0, 1.0f), dst(8, 8, 0, 7.0f);
  struct Case { const float* s; uint32_t w, h, ss; float* d; uint32_t ds, n; };
  const Case cases[] = {
      {src.data(), 8, 8, 32, dst.data(), 32, 1},   // window of one
      {src.data(), 8, 8, 32, dst.data(), 32, 0},
      {src.data(), 4, 8, 32, dst.data(), 32, 3},   // too narrow
      {src.data(), 8, 4, 32, dst.data(), 32, 3},   // too short
      {src.data(), 8, 8, 31, dst.data(), 32, 3},   // stride below the row
      {src.data(), 8, 8, 32, dst.data(), 28, 3},
      {nullptr, 8, 8, 32, dst.data(), 32, 3},
      {src.data(), 8, 8, 32, nullptr, 32, 3},
      {dst.data(), 5, 5, 32, dst.data(), 24, 3},   // in place, strides differ
  };
  for (const Case& c : cases) {
    g_lines.clear();
    tvxBoxFilterNxNf32(c.s, c.w, c.h, c.ss, c.d, c.ds, c.n);
    ASSERT_EQ(g_lines.size(), 1u);
    EXPECT_EQ(g_lines[0], line);
    for (float v : dst.px) ASSERT_EQ(v, 7.0f);
  }
}

// ---- median MxN on s16 ----------------------------------------------------------------------

// The middle of the sorted window, m columns by n rows, outside pixels by border rule.
int16_t MedianModel(const Img<int16_t>& src, int64_t x, int64_t y, uint32_t m, uint32_t n, uint32_t type,
                    int16_t value) {
  std::vector<int16_t> win;
  for (int64_t sy = y - n / 2; sy <= y + int64_t(n / 2); ++sy)
    for (int64_t sx = x - m / 2; sx <= x + int64_t(m / 2); ++sx) {
      const bool inside = sx >= 0 && sy >= 0 && sx < src.w && sy < src.h;
      if (inside) win.push_back(src.at(sx, sy));
      else if (type == 2) win.push_back(src.at(std::clamp<int64_t>(sx, 0, src.w - 1), std::clamp<int64_t>(sy, 0, src.h - 1)));
      else win.push_back(value);
    }
  std::sort(win.begin(), win.end());
  return win[win.size() / 2];
}

TEST_F(FilterNxNTest, MedianWorkedValues) {
  Img<int16_t> src(4, 3), dst(4, 3, 0, 1);
  const int16_t rows[3][4] = {{-5, 300, 7, 8}, {1, 2, 3, 4}, {-32768, 32767, 0, 9}};
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) src.at(x, y) = rows[y][x];
  // Three wide, one high: the median along each row, the ends replicated.
  ASSERT_EQ(tvxFilterMedianMxNs16(src.data(), 4, 3, 0, dst.data(), 0, 3, 1, 2, 0), 0);
  const int16_t across[3][4] = {{-5, 7, 8, 8}, {1, 2, 3, 4}, {-32768, 0, 9, 9}};
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(dst.at(x, y), across[y][x]) << x << "," << y;
  // One wide, three high: the median down each column, outside pixels = borderValue 100.
  ASSERT_EQ(tvxFilterMedianMxNs16(src.data(), 4, 3, 8, dst.data(), 8, 1, 3, 1, 100), 0);
  const int16_t down[3][4] = {{1, 100, 7, 8}, {-5, 300, 3, 8}, {1, 100, 3, 9}};
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(dst.at(x, y), down[y][x]) << x << "," << y;
  // 3x3 with border type 0 (constant): five of nine taps in a corner are borderValue.
  ASSERT_EQ(tvxFilterMedianMxNs16(src.data(), 4, 3, 8, dst.data(), 8, 3, 3, 0, -7), 0);
  EXPECT_EQ(dst.at(0, 0), -7);
  EXPECT_EQ(dst.at(1, 1), 2);   // sorted -32768 -5 0 1 2 3 7 300 32767
  // 1x1 copies.
  ASSERT_EQ(tvxFilterMedianMxNs16(src.data(), 4, 3, 8, dst.data(), 8, 1, 1, 1, 0), 0);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(dst.at(x, y), rows[y][x]);
}

TEST_F(FilterNxNTest, MedianMatchesModelOnEveryBorderRule) {
  std::uniform_int_distribution<int> dist(INT16_MIN, INT16_MAX);
  const std::pair<uint32_t, uint32_t> windows[] = {{3, 3}, {5, 3}, {1, 7}, {7, 5}, {31, 1}};
  for (auto [m, n] : windows) {
    for (auto [w, h] : {std::pair{1u, 1u}, {12u, 7u}, {3u, 19u}}) {
      Img<int16_t> src(w, h, 1);
      for (auto& v : src.px) v = int16_t(rng_() % 4 == 0 ? (rng_() % 2 ? INT16_MIN : INT16_MAX) : dist(rng_));
      for (uint32_t type = 0; type <= 2; ++type) {
        SCOPED_TRACE(::testing::Message() << m << "x" << n << " on " << w << "x" << h << " type " << type);
        Img<int16_t> dst(w, h, 2, 0x1234);
        ASSERT_EQ(tvxFilterMedianMxNs16(src.data(), w, h, src.bytes(), dst.data(), dst.bytes(), m, n, type, -321), 0);
        Img<int16_t> want(w, h, 2, 0x1234);
        for (uint32_t y = 0; y < h; ++y)
          for (uint32_t x = 0; x < w; ++x) want.at(x, y) = MedianModel(src, x, y, m, n, type, -321);
        EXPECT_TRUE(SameAs(dst, want, int16_t(0x1234)));
        Img<int16_t> inplace = src;
        ASSERT_EQ(tvxFilterMedianMxNs16(inplace.data(), w, h, inplace.bytes(), inplace.data(), inplace.bytes(), m, n,
                                        type, -321), 0);
        for (uint32_t y = 0; y < h; ++y)
          for (uint32_t x = 0; x < w; ++x) ASSERT_EQ(inplace.at(x, y), want.at(x, y));
      }
    }
  }
}

TEST_F(FilterNxNTest, MedianRejectsBadArguments) {
  Img<int16_t> src(8, 8, 0, 5), dst(8, 8, 0, 0x77);
  EXPECT_EQ(tvxFilterMedianMxNs16(src.data(), 8, 8, 16, dst.data(), 16, 3, 3, 3, 0), 3);   // border type
  EXPECT_EQ(tvxFilterMedianMxNs16(src.data(), 8, 8, 16, dst.data(), 16, 2, 3, 2, 0), 3);   // even width
  EXPECT_EQ(tvxFilterMedianMxNs16(src.data(), 8, 8, 16, dst.data(), 16, 3, 4, 2, 0), 3);   // even height
  EXPECT_EQ(tvxFilterMedianMxNs16(src.data(), 8, 8, 16, dst.data(), 16, 33, 3, 2, 0), 3);  // too wide
  EXPECT_EQ(tvxFilterMedianMxNs16(src.data(), 8, 8, 16, dst.data(), 16, 3, 33, 2, 0), 3);
  EXPECT_EQ(tvxFilterMedianMxNs16(src.data(), 8, 8, 15, dst.data(), 16, 3, 3, 2, 0), 3);   // stride below row
  EXPECT_EQ(tvxFilterMedianMxNs16(src.data(), 8, 8, 16, dst.data(), 14, 3, 3, 2, 0), 3);
  EXPECT_EQ(tvxFilterMedianMxNs16(src.data(), 0, 8, 16, dst.data(), 16, 3, 3, 2, 0), 3);
  EXPECT_EQ(tvxFilterMedianMxNs16(nullptr, 8, 8, 16, dst.data(), 16, 3, 3, 2, 0), 3);
  EXPECT_EQ(tvxFilterMedianMxNs16(src.data(), 8, 8, 16, nullptr, 16, 3, 3, 2, 0), 3);
  EXPECT_EQ(tvxFilterMedianMxNs16(dst.data(), 4, 8, 16, dst.data(), 8, 3, 3, 2, 0), 3);    // in place, strides differ
  for (int16_t v : dst.px) ASSERT_EQ(v, 0x77);
  EXPECT_TRUE(g_lines.empty());
}

}  // namespace
