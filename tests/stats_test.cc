// Statistics family through the public entries (reference tier): min/max with locations and
// their lists, averages and matrix products, bad arguments, and the process-ending checks of
// the reference min/max variants.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;

class Stats : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  std::mt19937 rng_{21};
};

struct Loc {
  uint32_t minX = 99, minY = 99, maxX = 99, maxY = 99;
};

template <typename T, typename Fn>
Loc Locate(Fn fn, const std::vector<T>& img, uint32_t w, uint32_t h, T& mn, T& mx, uint32_t strideBytes = 0) {
  Loc l;
  EXPECT_EQ(fn(img.data(), w, h, strideBytes, &mn, &mx, &l.minX, &l.minY, &l.maxX, &l.maxY), 0);
  return l;
}

// ---- min/max with locations ----------------------------------------------------------------

TEST_F(Stats, MinMaxKeepsTheFirstOccurrence) {
  const std::vector<uint8_t> img = {7, 2, 8, 7,  //
                                    5, 9, 9, 2,  //
                                    9, 3, 2, 4};
  uint8_t mn, mx;
  const Loc l = Locate(tvxMinMaxLocu8, img, 4, 3, mn, mx);
  EXPECT_EQ(mn, 2);
  EXPECT_EQ(mx, 9);
  EXPECT_EQ(std::vector<uint32_t>({l.minX, l.minY, l.maxX, l.maxY}), std::vector<uint32_t>({1, 0, 1, 1}));

  const std::vector<uint8_t> flat(12, 4);
  const Loc f = Locate(tvxMinMaxLocu8, flat, 4, 3, mn, mx);
  EXPECT_EQ(std::vector<uint32_t>({f.minX, f.minY, f.maxX, f.maxY}), std::vector<uint32_t>({0, 0, 0, 0}));
}

TEST_F(Stats, MinMaxComparesInTheElementType) {
  int16_t s16mn, s16mx;
  const Loc s = Locate(tvxMinMaxLocs16, std::vector<int16_t>{3, -5, 32767, -32768, 0, 1}, 3, 2, s16mn, s16mx);
  EXPECT_EQ(s16mn, -32768);
  EXPECT_EQ(s16mx, 32767);
  EXPECT_EQ(std::vector<uint32_t>({s.minX, s.minY, s.maxX, s.maxY}), std::vector<uint32_t>({0, 1, 2, 0}));
  uint16_t u16mn, u16mx;
  Locate(tvxMinMaxLocu16, std::vector<uint16_t>{3, 65535, 32768, 1}, 2, 2, u16mn, u16mx);
  EXPECT_EQ(u16mn, 1);
  EXPECT_EQ(u16mx, 65535);
  uint32_t u32mn, u32mx;
  Locate(tvxMinMaxLocu32, std::vector<uint32_t>{0x80000000u, 7, 0xFFFFFFFFu}, 3, 1, u32mn, u32mx);
  EXPECT_EQ(u32mn, 7u);
  EXPECT_EQ(u32mx, 0xFFFFFFFFu);
  int32_t s32mn, s32mx;
  const Loc i = Locate(tvxMinMaxLocs32, std::vector<int32_t>{0, INT32_MIN, INT32_MAX, -1}, 1, 4, s32mn, s32mx);
  EXPECT_EQ(s32mn, INT32_MIN);
  EXPECT_EQ(s32mx, INT32_MAX);
  EXPECT_EQ(std::vector<uint32_t>({i.minX, i.minY, i.maxX, i.maxY}), std::vector<uint32_t>({0, 1, 0, 2}));
}

TEST_F(Stats, MinMaxFloatFollowsComparisonsExactly) {
  const float nan = std::nanf("");
  float mn, mx;
  // A NaN first element is never replaced; later NaNs never take part.
  const Loc a = Locate(tvxMinMaxLocf32, std::vector<float>{nan, -3.0f, 8.0f, 1.0f}, 4, 1, mn, mx);
  EXPECT_TRUE(std::isnan(mn) && std::isnan(mx));
  EXPECT_EQ(std::vector<uint32_t>({a.minX, a.maxX}), std::vector<uint32_t>({0, 0}));
  const Loc b = Locate(tvxMinMaxLocf32, std::vector<float>{2.0f, nan, -3.0f, nan, 8.0f}, 5, 1, mn, mx);
  EXPECT_EQ(mn, -3.0f);
  EXPECT_EQ(mx, 8.0f);
  EXPECT_EQ(std::vector<uint32_t>({b.minX, b.maxX}), std::vector<uint32_t>({2, 4}));
  // +0 and -0 are equal: the first one found stays, with its own sign.
  Locate(tvxMinMaxLocf32, std::vector<float>{0.0f, -0.0f, 1.0f}, 3, 1, mn, mx);
  EXPECT_FALSE(std::signbit(mn));
  Locate(tvxMinMaxLocf32, std::vector<float>{-0.0f, 0.0f, -1e-45f}, 3, 1, mn, mx);
  EXPECT_EQ(mn, -1e-45f);
  EXPECT_TRUE(std::signbit(mx));
}

TEST_F(Stats, MinMaxAgreesWithAStraightScanOnRandomImages) {
  for (int round = 0; round < 20; ++round) {
    const uint32_t w = 1 + rng_() % 40, h = 1 + rng_() % 9, stride = (w + rng_() % 4) * 2;
    std::vector<uint16_t> img(stride / 2 * h);
    for (auto& v : img) v = static_cast<uint16_t>(rng_() % 5 + 1000);
    uint16_t mn, mx;
    const Loc l = Locate(tvxMinMaxLocu16, img, w, h, mn, mx, stride);
    uint16_t emn = img[0], emx = img[0];
    Loc e{0, 0, 0, 0};
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) {
        const uint16_t v = img[y * stride / 2 + x];
        if (v < emn) emn = v, e.minX = x, e.minY = y;
        if (v > emx) emx = v, e.maxX = x, e.maxY = y;
      }
    EXPECT_EQ(mn, emn);
    EXPECT_EQ(mx, emx);
    EXPECT_EQ(std::vector<uint32_t>({l.minX, l.minY, l.maxX, l.maxY}), std::vector<uint32_t>({e.minX, e.minY, e.maxX, e.maxY}));
  }
}

TEST_F(Stats, MinMaxListsEveryLocationAndCountsPastCapacity) {
  const std::vector<uint8_t> flat(6, 4);  // 3x2, all equal
  uint8_t mn, mx;
  uint32_t minX[4] = {}, minY[4] = {}, maxX[6] = {}, maxY[6] = {}, minCount = 0, maxCount = 0;
  EXPECT_EQ(tvxMinMaxLocu8_v2(flat.data(), 3, 2, 0, &mn, &mx, minX, minY, maxX, maxY, &minCount, &maxCount, 3, 6), 0);
  EXPECT_EQ(minCount, 6u);
  EXPECT_EQ(maxCount, 6u);
  EXPECT_EQ(std::vector<uint32_t>(minX, minX + 4), std::vector<uint32_t>({0, 1, 2, 0})) << "capacity 3 respected";
  EXPECT_EQ(std::vector<uint32_t>(minY, minY + 4), std::vector<uint32_t>({0, 0, 0, 0}));
  EXPECT_EQ(std::vector<uint32_t>(maxX, maxX + 6), std::vector<uint32_t>({0, 1, 2, 0, 1, 2}));
  EXPECT_EQ(std::vector<uint32_t>(maxY, maxY + 6), std::vector<uint32_t>({0, 0, 0, 1, 1, 1}));

  // A strictly smaller value restarts the list at index 0; later ties append after it.
  const std::vector<int32_t> img = {5, 5, 5, 3, 9, 3};
  int32_t smn, smx;
  uint32_t lx[4] = {77, 77, 77, 77}, ly[4] = {77, 77, 77, 77}, hx[2], hy[2];
  EXPECT_EQ(tvxMinMaxLocs32_v2(img.data(), 6, 1, 0, &smn, &smx, lx, ly, hx, hy, &minCount, &maxCount, 4, 2), 0);
  EXPECT_EQ(smn, 3);
  EXPECT_EQ(minCount, 2u);
  EXPECT_EQ(lx[0], 3u);
  EXPECT_EQ(lx[1], 5u);
  EXPECT_EQ(lx[2], 2u) << "entries past the count keep what the scan last wrote there";
  EXPECT_EQ(lx[3], 77u);
  EXPECT_EQ(smx, 9);
  EXPECT_EQ(maxCount, 1u);
  EXPECT_EQ(hx[0], 4u);

  // Capacity 0 only counts.
  float fmn, fmx;
  const std::vector<float> f = {1.0f, 1.0f, -0.0f, 0.0f};
  EXPECT_EQ(tvxMinMaxLocf32_v2(f.data(), 2, 2, 0, &fmn, &fmx, lx, ly, hx, hy, &minCount,
                               &maxCount, 0, 0),
            0);
  EXPECT_EQ(minCount, 2u);  // -0 and +0 are the same minimum
  EXPECT_EQ(maxCount, 2u);
  EXPECT_EQ(lx[0], 3u) << "capacity 0 writes no location";
}

TEST_F(Stats, MinMaxRejectsBadArguments) {
  std::vector<uint8_t> img(5000, 1);
  uint8_t mn = 42, mx = 42;
  uint32_t a = 7, b = 7, c = 7, d = 7, n = 7, m = 7;
  EXPECT_EQ(tvxMinMaxLocu8(img.data(), 4097, 1, 0, &mn, &mx, &a, &b, &c, &d), 3);  // u8 rows up to 4096
  EXPECT_EQ(tvxMinMaxLocu8(img.data(), 4096, 1, 0, &mn, &mx, &a, &b, &c, &d), 0);
  mn = mx = 42;
  a = 7;
  EXPECT_EQ(tvxMinMaxLocu8(img.data(), 8, 2, 7, &mn, &mx, &a, &b, &c, &d), 3);
  EXPECT_EQ(tvxMinMaxLocu8(img.data(), 8, 2, 8, &mn, &mx, &a, nullptr, &c, &d), 3);
  EXPECT_EQ(tvxMinMaxLocu8_v2(img.data(), 8, 2, 8, &mn, &mx, &a, &b, &c, &d, &n, nullptr, 1, 1), 3);
  EXPECT_EQ(tvxMinMaxLocu8_v2(img.data(), 4097, 1, 0, &mn, &mx, &a, &b, &c, &d, &n, &m, 1, 1), 3);
  std::vector<uint16_t> wide(5000, 3);
  uint16_t wmn, wmx;
  EXPECT_EQ(tvxMinMaxLocu16(wide.data(), 4097, 1, 0, &wmn, &wmx, &a, &b, &c, &d), 0) << "only u8 has the width limit";
  EXPECT_EQ(tvxMinMaxLocu16(wide.data(), 4, 1, 7, &wmn, &wmx, &a, &b, &c, &d), 3);
  EXPECT_EQ(tvxMinMaxLocs32(nullptr, 4, 1, 0, nullptr, nullptr, &a, &b, &c, &d), 3);
  EXPECT_EQ(mn, 42);
  EXPECT_EQ(n, 7u);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Stats, MinMaxReferenceEndsProcessOnBrokenArguments) {
  tvx_set_log_sink(nullptr);  // the child logs to stderr
  const char* text =
      "src/cpu/tavixArithmC@[0-9]+: src && srcWidth && srcHeight && minVal && maxVal && minLocX && minLocY && "
      "maxLocX && maxLocY && srcStride >= srcWidth Assertion failed";
  uint8_t img[8] = {}, v;
  uint32_t a, b, c, d, n, m;
  EXPECT_EXIT(tvxMinMaxLocu8C(img, 4, 2, 4, &v, nullptr, &a, &b, &c, &d), ::testing::ExitedWithCode(1), text);
  EXPECT_EXIT(tvxMinMaxLocu8_v2C(img, 4, 2, 3, &v, &v, &a, &b, &c, &d, &n, &m, 1, 1), ::testing::ExitedWithCode(1), text);
  float f[4] = {};
  float fv;
  EXPECT_EXIT(tvxMinMaxLocf32C(f, 2, 2, 4, &fv, &fv, &a, &b, &c, &d), ::testing::ExitedWithCode(1), text);
  int16_t s[4] = {}, sv;
  EXPECT_EXIT(tvxMinMaxLocs16C(s, 0, 2, 8, &sv, &sv, &a, &b, &c, &d), ::testing::ExitedWithCode(1), text);
}

// ---- averages ------------------------------------------------------------------------------

TEST_F(Stats, AveragesDivideTheSumByTheArea) {
  const uint8_t u8[8] = {1, 2, 99, 99, 3, 4, 99, 99};
  float avg = 0;
  EXPECT_EQ(tvxAverageu8(u8, 2, 2, 4, &avg), 4u);
  EXPECT_EQ(avg, 2.5f);
  // The s32 sum is 64-bit: it does not wrap where a 32-bit one would.
  const int32_t s32[4] = {INT32_MAX, INT32_MAX, -3, -4};
  EXPECT_EQ(tvxAverages32(s32, 4, 1, 0, &avg), 4u);
  EXPECT_EQ(avg, static_cast<float>(2.0 * INT32_MAX - 7) / 4.0f);
  const int32_t neg[2] = {-7, -8};
  EXPECT_EQ(tvxAverages32(neg, 1, 2, 4, &avg), 2u);
  EXPECT_EQ(avg, -7.5f);
}

TEST_F(Stats, AverageU8SumWrapsAt32Bits) {
  const uint32_t w = 4096, h = 4113;  // 255 * w * h exceeds 2^32
  std::vector<uint8_t> img(static_cast<size_t>(w) * h, 255);
  float avg = 0;
  EXPECT_EQ(tvxAverageu8(img.data(), w, h, 0, &avg), w * h);
  const uint32_t wrapped = static_cast<uint32_t>(255ull * w * h);
  EXPECT_EQ(avg, static_cast<float>(wrapped) / static_cast<float>(w * h));
}

TEST_F(Stats, AveragesAssertOnBadArguments) {
  const uint8_t u8[4] = {};
  EXPECT_EQ(tvxAverageu8(u8, 4, 1, 0, nullptr), 0u);
  EXPECT_EQ(tvxAverages32(reinterpret_cast<const int32_t*>(u8), 1, 1, 3, nullptr), 0u);
  float avg = 5;
  EXPECT_EQ(tvxAverages32(reinterpret_cast<const int32_t*>(u8), 2, 1, 4, &avg), 0u);
  EXPECT_EQ(avg, 5.0f);
  EXPECT_EQ(g_lines, (std::vector<std::string>{
                         "tavix_lib_log|Assertion failed @tvxAverageu8: src && avgValue && ( srcStride >= srcWidth )\n",
                         "tavix_lib_log|Assertion failed @tvxAverages32: src && avgValue && ( srcStride >= srcWidth * sizeof(uint32_t) )\n",
                         "tavix_lib_log|Assertion failed @tvxAverages32: src && avgValue && ( srcStride >= srcWidth * sizeof(uint32_t) )\n"}));
}

// ---- matrix products -----------------------------------------------------------------------

TEST_F(Stats, MatrixMultiplyS8SumsProductsIn32Bits) {
  const int8_t a[2][4] = {{1, -2, 3, 0}, {-128, -128, 127, 0}};  // 3 wide, 2 tall, stride 4
  const int8_t b[3][2] = {{4, -128}, {5, -128}, {6, 1}};         // 2 wide, 3 tall
  int32_t out[2][3];
  std::memset(out, 0x11, sizeof out);
  tvxMatrixMultiplys8s32(&a[0][0], 3, 2, 4, &b[0][0], 2, 0, &out[0][0], 12);
  EXPECT_EQ(out[0][0], 1 * 4 - 2 * 5 + 3 * 6);
  EXPECT_EQ(out[0][1], -128 + 256 + 3);
  EXPECT_EQ(out[1][0], -128 * 4 - 128 * 5 + 127 * 6);
  EXPECT_EQ(out[1][1], 16384 + 16384 + 127);
  EXPECT_EQ(out[0][2], 0x11111111) << "padding written";
}

TEST_F(Stats, MatrixMultiplyF32AgreesWithAStraightProduct) {
  const uint32_t n = 5, k = 7, m = 6;
  std::uniform_real_distribution<float> uni(-4.0f, 4.0f);
  std::vector<float> a(n * k), b(k * m), out(n * m, -1.0f);
  for (auto& v : a) v = uni(rng_);
  for (auto& v : b) v = uni(rng_);
  tvxMatrixMultiplyf32(a.data(), k, n, 0, b.data(), m, 0, out.data(), 0);
  for (uint32_t i = 0; i < n; ++i)
    for (uint32_t j = 0; j < m; ++j) {
      double exact = 0;
      for (uint32_t t = 0; t < k; ++t) exact += double(a[i * k + t]) * b[t * m + j];
      EXPECT_NEAR(out[i * m + j], exact, 1e-4) << i << "," << j;
    }
}

TEST_F(Stats, MatrixMultiplyAssertsOnBadArguments) {
  std::vector<int8_t> a(16), b(16);
  std::vector<int32_t> out(4, 3);
  tvxMatrixMultiplys8s32(a.data(), 131073, 1, 131073, b.data(), 1, 1, out.data(), 4);
  tvxMatrixMultiplys8s32(a.data(), 2, 2, 2, b.data(), 2, 2, out.data(), 7);
  std::vector<float> f(16);
  tvxMatrixMultiplyf32(f.data(), 2, 2, 8, nullptr, 2, 8, f.data(), 8);
  const char* s8 = "src1 && src2 && dst && src1Width && src1Height && src2Width && (src1Stride >= src1Width) && "
                   "(src2Stride >= src2Width) && (dstStride >= src2Width*sizeof(int32_t)) && src1Width <= 131072";
  const char* f32 = "src1 && src2 && dst && src1Width && src1Height && src2Width && (src1Stride >= "
                    "src1Width*sizeof(float32_t)) && (src2Stride >= src2Width*sizeof(float32_t)) && (dstStride >= "
                    "src2Width*sizeof(float32_t))";
  EXPECT_EQ(g_lines, (std::vector<std::string>{std::string("tavix_lib_log|Assertion failed @tvxMatrixMultiplys8s32: ") + s8 + "\n",
                                               std::string("tavix_lib_log|Assertion failed @tvxMatrixMultiplys8s32: ") + s8 + "\n",
                                               std::string("tavix_lib_log|Assertion failed @tvxMatrixMultiplyf32: ") + f32 + "\n"}));
  EXPECT_EQ(out, std::vector<int32_t>(4, 3));
}

}  // namespace
