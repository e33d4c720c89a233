// Bilateral filters: hand-worked values through the public entries, a straightforward model of
// the windowed and recursive filters on random images, edge preservation, argument rejection
// (status 3, nothing written), and the SIMD variants against the reference on every target.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

// A padded byte image; the padding holds a marker that must survive.
struct Img {
  uint32_t w, h, stride;
  std::vector<uint8_t> px;
  Img(uint32_t width, uint32_t height, uint32_t pad = 0, uint8_t fill = 0)
      : w(width), h(height), stride(width + pad), px(size_t(width + pad) * height, fill) {}
  uint8_t& at(int64_t x, int64_t y) { return px[size_t(y) * stride + size_t(x)]; }
  uint8_t at(int64_t x, int64_t y) const { return px[size_t(y) * stride + size_t(x)]; }
  uint8_t* data() { return px.data(); }
};

using Windowed = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, float, float);
using Fixed = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);

struct Form {
  int radius;
  Windowed withSigmas;
  Fixed fixed;
  float defaultSpace;
};
const Form kForms[] = {{2, tvxBilateralFilter5x5u8_v2, tvxBilateralFilter5x5u8, 1.1f},
                       {3, tvxBilateralFilter7x7u8_v2, tvxBilateralFilter7x7u8, 1.4f},
                       {4, tvxBilateralFilter9x9u8_v2, tvxBilateralFilter9x9u8, 1.7f}};

long Q8(double d2, double sigma) { return d2 == 0 ? 256 : std::lround(256 * std::exp(-d2 / (2 * sigma * sigma))); }

// Weighted mean over the window cut to the image, rounded to nearest (half up).
Img BilateralModel(const Img& src, int radius, double sigmaSpace, double sigmaRange) {
  Img out(src.w, src.h);
  for (int64_t y = 0; y < src.h; ++y)
    for (int64_t x = 0; x < src.w; ++x) {
      long long sum = 0, total = 0;
      for (int64_t sy = y - radius; sy <= y + radius; ++sy)
        for (int64_t sx = x - radius; sx <= x + radius; ++sx) {
          if (sx < 0 || sy < 0 || sx >= src.w || sy >= src.h) continue;
          const int p = src.at(sx, sy), c = src.at(x, y);
          const long long wt = Q8(double((sx - x) * (sx - x) + (sy - y) * (sy - y)), sigmaSpace) *
                               Q8(double(p - c) * (p - c), sigmaRange);
          sum += wt * p;
          total += wt;
        }
      out.at(x, y) = uint8_t((2 * sum + total) / (2 * total));
    }
  return out;
}

::testing::AssertionResult Same(const Img& got, const Img& want, uint8_t padMark) {
  for (uint32_t y = 0; y < got.h; ++y) {
    for (uint32_t x = 0; x < got.w; ++x)
      if (got.at(x, y) != want.at(x, y))
        return ::testing::AssertionFailure() << "pixel (" << x << ", " << y << ") of " << got.w << "x" << got.h
                                             << " is " << int(got.at(x, y)) << ", expected " << int(want.at(x, y));
    for (uint32_t x = got.w; x < got.stride; ++x)
      if (got.at(x, y) != padMark) return ::testing::AssertionFailure() << "padding of row " << y << " written";
  }
  return ::testing::AssertionSuccess();
}

class BilateralTest : public ::testing::Test {
 protected:
  void SetUp() override { std::fill(std::begin(tvxImplTable), std::end(tvxImplTable), 0u); }
  std::mt19937 rng_{5};
};

TEST_F(BilateralTest, WorkedValuesAlongARowAndAColumn) {
  // sigmaSpace 1: neighbours weigh 155, two away 35; sigmaRange 100: differences 100, 150, 250
  // weigh 155, 83, 11. At x = 1: (65536*100 + 12865*250 + 51213) / 102426 = 95.
  Img row(3, 1), out(3, 1, 0, 7);
  row.at(0, 0) = 0, row.at(1, 0) = 100, row.at(2, 0) = 250;
  ASSERT_EQ(tvxBilateralFilter5x5u8_v2(row.data(), 3, 1, 0, out.data(), 0, 1.0f, 100.0f), 0);
  EXPECT_EQ(out.at(0, 0), 28);
  EXPECT_EQ(out.at(1, 0), 95);
  EXPECT_EQ(out.at(2, 0), 224);
  Img column(1, 3, 2), outColumn(1, 3, 1, 9);
  column.at(0, 0) = 0, column.at(0, 1) = 100, column.at(0, 2) = 250;
  ASSERT_EQ(tvxBilateralFilter9x9u8_v2(column.data(), 1, 3, 3, outColumn.data(), 2, 1.0f, 100.0f), 0);
  EXPECT_EQ(outColumn.at(0, 0), 28);
  EXPECT_EQ(outColumn.at(0, 1), 95);
  EXPECT_EQ(outColumn.at(0, 2), 224);
  for (uint32_t y = 0; y < 3; ++y) EXPECT_EQ(outColumn.at(1, y), 9) << "padding written";
}

TEST_F(BilateralTest, ConstantStaysAndStepEdgeSurvivesSmallRangeSigma) {
  Img flat(20, 9, 0, 77), step(20, 9), out(20, 9);
  for (uint32_t y = 0; y < 9; ++y)
    for (uint32_t x = 0; x < 20; ++x) step.at(x, y) = x < 10 ? 20 : 220;
  for (const Form& f : kForms) {
    ASSERT_EQ(f.fixed(flat.data(), 20, 9, 0, out.data(), 0), 0);
    for (uint8_t v : out.px) ASSERT_EQ(v, 77);
    ASSERT_EQ(f.withSigmas(step.data(), 20, 9, 0, out.data(), 0, 3.0f, 10.0f), 0);
    EXPECT_TRUE(Same(out, step, 0));
    // A large range sigma blurs across the edge.
    ASSERT_EQ(f.withSigmas(step.data(), 20, 9, 0, out.data(), 0, 3.0f, 1000.0f), 0);
    EXPECT_GT(out.at(9, 4), 20);
    EXPECT_LT(out.at(10, 4), 220);
  }
}

TEST_F(BilateralTest, MatchesModelOnRandomImages) {
  for (const Form& f : kForms) {
    for (auto [w, h] : {std::pair{1u, 1u}, {2u, 13u}, {17u, 3u}, {25u, 21u}}) {
      Img src(w, h, 3), out(w, h, 2, 0x5A);
      for (auto& v : src.px) v = uint8_t(rng_() % 5 == 0 ? (rng_() % 2) * 255 : rng_());
      SCOPED_TRACE(::testing::Message() << "radius " << f.radius << " " << w << "x" << h);
      ASSERT_EQ(f.fixed(src.data(), w, h, src.stride, out.data(), out.stride), 0);
      EXPECT_TRUE(Same(out, BilateralModel(src, f.radius, f.defaultSpace, 50.0), 0x5A));
      for (auto [ss, sr] : {std::pair{0.5f, 8.0f}, {2.5f, 30.0f}, {40.0f, 1.0e6f}, {1.0e-30f, 1.0e-30f}}) {
        ASSERT_EQ(f.withSigmas(src.data(), w, h, src.stride, out.data(), out.stride, ss, sr), 0);
        EXPECT_TRUE(Same(out, BilateralModel(src, f.radius, ss, sr), 0x5A)) << "sigmas " << ss << " " << sr;
      }
    }
  }
}

TEST_F(BilateralTest, RejectsBadArguments) {
  Img src(8, 8, 0, 50), dst(8, 8, 0, 0x77);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const Form& f : kForms) {
    EXPECT_EQ(f.fixed(src.data(), 8, 8, 8, src.data(), 8), 3);   // not in place
    EXPECT_EQ(f.fixed(nullptr, 8, 8, 8, dst.data(), 8), 3);
    EXPECT_EQ(f.fixed(src.data(), 8, 8, 8, nullptr, 8), 3);
    EXPECT_EQ(f.fixed(src.data(), 0, 8, 8, dst.data(), 8), 3);
    EXPECT_EQ(f.fixed(src.data(), 8, 0, 8, dst.data(), 8), 3);
    EXPECT_EQ(f.fixed(src.data(), 8, 8, 7, dst.data(), 8), 3);
    EXPECT_EQ(f.fixed(src.data(), 8, 8, 8, dst.data(), 7), 3);
    EXPECT_EQ(f.withSigmas(src.data(), 8, 8, 8, dst.data(), 8, 0.0f, 10.0f), 3);
    EXPECT_EQ(f.withSigmas(src.data(), 8, 8, 8, dst.data(), 8, 2.0f, -1.0f), 3);
    EXPECT_EQ(f.withSigmas(src.data(), 8, 8, 8, dst.data(), 8, nan, 10.0f), 3);
    EXPECT_EQ(f.withSigmas(src.data(), 8, 8, 8, dst.data(), 8, 2.0f, nan), 3);
    EXPECT_EQ(f.withSigmas(src.data(), 8, 8, 8, src.data(), 8, 2.0f, 10.0f), 3);
    EXPECT_EQ(f.withSigmas(src.data(), 8, 8, 6, dst.data(), 8, 2.0f, 10.0f), 3);
    for (uint8_t v : dst.px) ASSERT_EQ(v, 0x77);
    for (uint8_t v : src.px) ASSERT_EQ(v, 50);
  }
}

// ---- recursive --------------------------------------------------------------------------------

// The four passes written out on a Q8 image with the 256-entry feedback table.
Img RecursiveModel(const Img& src, double sigmaSpace, double sigmaRange) {
  long a[256];
  for (int d = 0; d < 256; ++d) a[d] = std::lround(65536 * std::exp(-std::sqrt(2.0) * (1 / sigmaSpace + d / sigmaRange)));
  const int64_t w = src.w, h = src.h;
  std::vector<long long> v(size_t(w * h));
  auto at = [&](int64_t x, int64_t y) -> long long& { return v[size_t(y * w + x)]; };
  auto step = [&](int64_t x, int64_t y, int64_t px, int64_t py) {
    const long k = a[std::abs(src.at(x, y) - src.at(px, py))];
    at(x, y) = ((65536 - k) * at(x, y) + k * at(px, py) + 32768) / 65536;
  };
  for (int64_t y = 0; y < h; ++y)
    for (int64_t x = 0; x < w; ++x) at(x, y) = src.at(x, y) * 256;
  for (int64_t y = 0; y < h; ++y) {
    for (int64_t x = 1; x < w; ++x) step(x, y, x - 1, y);
    for (int64_t x = w - 2; x >= 0; --x) step(x, y, x + 1, y);
  }
  for (int64_t x = 0; x < w; ++x) {
    for (int64_t y = 1; y < h; ++y) step(x, y, x, y - 1);
    for (int64_t y = h - 2; y >= 0; --y) step(x, y, x, y + 1);
  }
  Img out(src.w, src.h);
  for (int64_t y = 0; y < h; ++y)
    for (int64_t x = 0; x < w; ++x) out.at(x, y) = uint8_t((at(x, y) + 128) / 256);
  return out;
}

TEST_F(BilateralTest, RecursiveWorkedValues) {
  // Feedback weight round(65536 e^-2) = 8869 across the 0 | 255 step: right 65280 -> 56446,
  // then left 0 -> 7639; bytes 30 and 220.
  Img src(2, 1), out(2, 1);
  src.at(0, 0) = 0, src.at(1, 0) = 255;
  ASSERT_EQ(tvxBilateralFilterRecursiveu8(src.data(), 2, 1, 0, out.data(), 0, 1.41421356f, 360.624458f), 0);
  EXPECT_EQ(out.at(0, 0), 30);
  EXPECT_EQ(out.at(1, 0), 220);
  // The same step down a column.
  Img col(1, 2), outCol(1, 2);
  col.at(0, 0) = 0, col.at(0, 1) = 255;
  ASSERT_EQ(tvxBilateralFilterRecursiveu8(col.data(), 1, 2, 0, outCol.data(), 0, 1.41421356f, 360.624458f), 0);
  EXPECT_EQ(outCol.at(0, 0), 30);
  EXPECT_EQ(outCol.at(0, 1), 220);
  // A constant image stays constant.
  Img flat(9, 7, 0, 201), outFlat(9, 7);
  ASSERT_EQ(tvxBilateralFilterRecursiveu8(flat.data(), 9, 7, 0, outFlat.data(), 0, 20.0f, 5.0f), 0);
  for (uint8_t v : outFlat.px) EXPECT_EQ(v, 201);
}

TEST_F(BilateralTest, RecursiveMatchesModelAndWorksInPlace) {
  for (auto [w, h] : {std::pair{1u, 1u}, {1u, 17u}, {23u, 1u}, {31u, 19u}}) {
    Img src(w, h, 2);
    for (auto& v : src.px) v = uint8_t(rng_());
    for (auto [ss, sr] : {std::pair{3.0f, 30.0f}, {50.0f, 200.0f}, {0.2f, 5.0f}}) {
      SCOPED_TRACE(::testing::Message() << w << "x" << h << " sigmas " << ss << " " << sr);
      Img out(w, h, 1, 0x5A);
      ASSERT_EQ(tvxBilateralFilterRecursiveu8(src.data(), w, h, src.stride, out.data(), out.stride, ss, sr), 0);
      EXPECT_TRUE(Same(out, RecursiveModel(src, ss, sr), 0x5A));
      Img inplace = src;
      ASSERT_EQ(tvxBilateralFilterRecursiveu8(inplace.data(), w, h, inplace.stride, inplace.data(), inplace.stride, ss, sr), 0);
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) ASSERT_EQ(inplace.at(x, y), out.at(x, y));
    }
  }
}

TEST_F(BilateralTest, RecursiveRejectsBadArguments) {
  Img src(8, 8, 0, 50), dst(8, 8, 0, 0x77);
  EXPECT_EQ(tvxBilateralFilterRecursiveu8(src.data(), 8, 8, 8, dst.data(), 8, 0.0f, 10.0f), 3);
  EXPECT_EQ(tvxBilateralFilterRecursiveu8(src.data(), 8, 8, 8, dst.data(), 8, 2.0f, 0.0f), 3);
  EXPECT_EQ(tvxBilateralFilterRecursiveu8(src.data(), 8, 8, 8, dst.data(), 8, std::nanf(""), 10.0f), 3);
  EXPECT_EQ(tvxBilateralFilterRecursiveu8(nullptr, 8, 8, 8, dst.data(), 8, 2.0f, 10.0f), 3);
  EXPECT_EQ(tvxBilateralFilterRecursiveu8(src.data(), 8, 8, 8, nullptr, 8, 2.0f, 10.0f), 3);
  EXPECT_EQ(tvxBilateralFilterRecursiveu8(src.data(), 0, 8, 8, dst.data(), 8, 2.0f, 10.0f), 3);
  EXPECT_EQ(tvxBilateralFilterRecursiveu8(src.data(), 8, 8, 7, dst.data(), 8, 2.0f, 10.0f), 3);
  EXPECT_EQ(tvxBilateralFilterRecursiveu8(dst.data(), 4, 8, 8, dst.data(), 4, 2.0f, 10.0f), 3);  // in place, strides differ
  for (uint8_t v : dst.px) ASSERT_EQ(v, 0x77);
}

// ---- SIMD against reference -------------------------------------------------------------------

TEST(BilateralLanes, MatchesReferenceOnEveryTarget) {
  std::mt19937 rng(17);
  std::vector<Shape> shapes;
  for (const Shape& s : tvxtest::SweepShapes())
    if (s.width < 1000) shapes.push_back({s.width, s.height + 2 * (s.width % 5), s.pad, s.misalign});
  shapes.push_back({200, 11, 3, 1});
  using V = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, float, float);
  const std::pair<V, V> pairs[] = {{tvxBilateralFilter5x5u8_v2C, tvxBilateralFilter5x5u8_v2V},
                                   {tvxBilateralFilter7x7u8_v2C, tvxBilateralFilter7x7u8_v2V},
                                   {tvxBilateralFilter9x9u8_v2C, tvxBilateralFilter9x9u8_v2V}};
  const std::pair<Fixed, Fixed> fixedPairs[] = {{tvxBilateralFilter5x5u8C, tvxBilateralFilter5x5u8V},
                                                {tvxBilateralFilter7x7u8C, tvxBilateralFilter7x7u8V},
                                                {tvxBilateralFilter9x9u8C, tvxBilateralFilter9x9u8V}};
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : shapes) {
      Image src(s.width, s.height, 1, s.pad, s.misalign);
      src.Randomize(rng);
      for (uint32_t y = 0; y < s.height; ++y)
        for (uint32_t x = 0; x < s.width; x += 4) src.row(y)[x] = (x / 4 + y) % 2 ? 255 : 0;
      const uint32_t w = s.width, h = s.height;
      auto compare = [&](auto callC, auto callV) {
        Image c(w, h, 1, s.pad + 1, (s.misalign + 1) % 4), v(w, h, 1, s.pad + 1, (s.misalign + 1) % 4);
        EXPECT_EQ(callC(c), 0);
        EXPECT_EQ(callV(v), 0);
        EXPECT_TRUE(v.SameRect(c)) << w << "x" << h;
        EXPECT_TRUE(v.GuardsIntact());
      };
      for (int k = 0; k < 3; ++k) {
        compare([&](Image& d) { return fixedPairs[k].first(src.bytes(), w, h, src.stride(), d.bytes(), d.stride()); },
                [&](Image& d) { return fixedPairs[k].second(src.bytes(), w, h, src.stride(), d.bytes(), d.stride()); });
        for (auto [ss, sr] : {std::pair{0.7f, 12.0f}, {6.0f, 1.0e9f}, {1.0e-30f, 3.0f}}) {
          compare([&](Image& d) { return pairs[k].first(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), ss, sr); },
                  [&](Image& d) { return pairs[k].second(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), ss, sr); });
        }
      }
      // The recursive form, including a feedback weight of exactly 65536 (sigmas without end).
      const float inf = std::numeric_limits<float>::infinity();
      for (auto [ss, sr] : {std::pair{3.0f, 30.0f}, {0.3f, 2.0f}, {inf, inf}}) {
        compare([&](Image& d) { return tvxBilateralFilterRecursiveu8C(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), ss, sr); },
                [&](Image& d) { return tvxBilateralFilterRecursiveu8V(src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), ss, sr); });
      }
    }
  });
}

// 9x9 windows whose rounded quotient sits so close to an integer that a float division lands on
// the wrong side of it: the SIMD variant's correction steps must bring it back.
TEST(BilateralLanes, QuotientNextToAnIntegerIsExact) {
  struct Case { float sigmaSpace, sigmaRange; uint8_t centre; uint8_t px[81]; };
  const Case cases[] = {
      {1.5f, 20.0f, 131, {182, 238, 169, 219, 157, 252, 38,  40,  2,   179, 52,  102, 231, 193, 7,   65,  60,
                          170, 114, 165, 28,  232, 52,  64,  237, 172, 239, 56,  214, 217, 100, 137, 144, 172,
                          119, 149, 224, 79,  198, 49,  129, 94,  150, 191, 62,  31,  174, 134, 140, 142, 102,
                          233, 70,  41,  205, 210, 60,  200, 23,  236, 182, 123, 205, 249, 3,   209, 110, 108,
                          248, 30,  168, 160, 0,   51,  98,  136, 109, 26,  137, 146, 102}},
      {10.0f, 80.0f, 186, {20,  226, 127, 227, 190, 52,  130, 239, 10,  248, 248, 38,  97,  76,  125, 121, 181,
                           85,  133, 0,   149, 77,  7,   192, 64,  207, 183, 202, 85,  231, 30,  84,  185, 74,
                           27,  20,  54,  252, 167, 237, 224, 18,  75,  87,  21,  178, 63,  199, 7,   171, 26,
                           37,  60,  191, 48,  251, 22,  72,  225, 5,   201, 227, 242, 63,  25,  191, 237, 83,
                           76,  128, 186, 169, 221, 1,   236, 137, 9,   93,  168, 150, 107}},
      // ... and one just below an integer, where the estimate truncates one short.
      {0.7f, 40.0f, 221, {130, 48,  152, 195, 147, 98,  248, 169, 136, 177, 95,  2,   32,  85,  230, 225, 157,
                          6,   238, 237, 89,  203, 83,  26,  10,  77,  47,  172, 67,  47,  77,  87,  144, 47,
                          121, 233, 185, 247, 210, 238, 227, 127, 1,   55,  238, 43,  235, 249, 177, 180, 78,
                          2,   45,  49,  226, 93,  24,  238, 60,  12,  182, 133, 26,  145, 47,  41,  103, 9,
                          31,  108, 167, 74,  162, 80,  188, 31,  19,  226, 2,   126, 90}},
  };
  for (const Case& c : cases) {
    // The window repeated across a row wide enough for whole vectors on every target.
    constexpr uint32_t kWidth = 9 * 8;
    Image src(kWidth, 9, 1);
    for (uint32_t y = 0; y < 9; ++y)
      for (uint32_t x = 0; x < kWidth; ++x) src.row(y)[x] = c.px[y * 9 + x % 9];
    Image ref(kWidth, 9, 1);
    ASSERT_EQ(tvxBilateralFilter9x9u8_v2C(src.bytes(), kWidth, 9, src.stride(), ref.bytes(), ref.stride(),
                                          c.sigmaSpace, c.sigmaRange), 0);
    EXPECT_EQ(ref.row(4)[4], c.centre);
    tvxtest::ForEachTarget([&] {
      Image out(kWidth, 9, 1);
      ASSERT_EQ(tvxBilateralFilter9x9u8_v2V(src.bytes(), kWidth, 9, src.stride(), out.bytes(), out.stride(),
                                            c.sigmaSpace, c.sigmaRange), 0);
      EXPECT_TRUE(out.SameRect(ref));
    });
  }
}

}  // namespace
