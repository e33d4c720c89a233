// Element-wise arithmetic through the public entries (the reference tier serves every call at
// start-up): worked values, argument rejection, policy handling, the numeric helpers, and
// random images against straightforward computations written here.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;

class Arith : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  std::mt19937 rng_{99};
};

// A packed image of T with random content; `stride` is in bytes.
template <typename T>
struct Plane {
  Plane(uint32_t w, uint32_t h, std::mt19937& rng, uint32_t extra = 0)
      : width(w), height(h), stride((w + extra) * sizeof(T)), data((w + extra) * h) {
    for (auto& v : data) v = static_cast<T>(rng());
  }
  T& at(uint32_t x, uint32_t y) { return data[y * (stride / sizeof(T)) + x]; }
  uint32_t width, height, stride;
  std::vector<T> data;
};

// ---- worked values -------------------------------------------------------------------------

TEST_F(Arith, AddPolicyWrapsSaturatesOrIsRejected) {
  const uint8_t a[2] = {200, 7}, b[2] = {100, 8};
  uint8_t dst[2] = {1, 1};
  EXPECT_EQ(0, tvxAddu8(a, 2, 1, 2, b, 2, 0, dst, 2));
  EXPECT_EQ(dst[0], 44);
  EXPECT_EQ(dst[1], 15);
  EXPECT_EQ(0, tvxAddu8(a, 2, 1, 2, b, 2, 1, dst, 2));
  EXPECT_EQ(dst[0], 255);
  dst[0] = dst[1] = 9;
  EXPECT_EQ(3, tvxAddu8(a, 2, 1, 2, b, 2, 2, dst, 2));
  EXPECT_EQ(dst[0], 9);
  EXPECT_EQ(dst[1], 9);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Arith, ElementMultiplyScaleFactor) {
  const uint8_t a[1] = {3}, b[1] = {3};
  uint8_t dst[1] = {0};
  EXPECT_EQ(0, tvxElementMultiplyu8(a, 1, 1, 1, b, 1, 1, 1, dst, 1));
  EXPECT_EQ(dst[0], 5);  // (9 + 1) >> 1
  EXPECT_EQ(0, tvxElementMultiplyu8(a, 1, 1, 1, b, 1, -2, 1, dst, 1));
  EXPECT_EQ(dst[0], 36);
  EXPECT_EQ(0, tvxElementMultiplyu8(a, 1, 1, 1, b, 1, -5, 0, dst, 1));
  EXPECT_EQ(dst[0], (9 << 5) & 0xFF);
  EXPECT_EQ(0, tvxElementMultiplyu8(a, 1, 1, 1, b, 1, -5, 1, dst, 1));
  EXPECT_EQ(dst[0], 255);
}

TEST_F(Arith, AddWeightedHalvesAndFixedPointWeights) {
  Plane<uint8_t> a(33, 3, rng_), b(33, 3, rng_), dst(33, 3, rng_);
  EXPECT_EQ(0, tvxAddWeightedu8(a.data.data(), 33, 3, 0, b.data.data(), 0, 0.5f, 0.5f, dst.data.data(), 0));
  for (uint32_t y = 0; y < 3; ++y)
    for (uint32_t x = 0; x < 33; ++x) EXPECT_EQ(dst.at(x, y), (a.at(x, y) * 128 + b.at(x, y) * 128 + 128) >> 8);

  // 128.5 rounds away from zero to 129 (and -129); 200 * 256 = 51200 is taken as the s16 -14336.
  const uint8_t one[1] = {1}, full[1] = {255}, zero[1] = {0};
  uint8_t out[1];
  EXPECT_EQ(0, tvxAddWeightedu8(full, 1, 1, 1, zero, 1, 128.5f / 256.0f, 0.0f, out, 1));
  EXPECT_EQ(out[0], (255 * 129 + 128) >> 8);
  EXPECT_EQ(0, tvxAddWeightedu8(full, 1, 1, 1, full, 1, 1.0f, -128.5f / 256.0f, out, 1));
  EXPECT_EQ(out[0], (255 * 256 - 255 * 129 + 128) >> 8);
  EXPECT_EQ(0, tvxAddWeightedu8(full, 1, 1, 1, one, 1, 0.0f, 200.0f, out, 1));
  EXPECT_EQ(out[0], 0);  // 1 * -14336 is negative
}

TEST_F(Arith, AddSquaredCutsTheRoundedSquareTo16Bits) {
  const uint8_t a[3] = {255, 255, 10};
  const uint16_t acc[3] = {0, 65535, 7};
  uint16_t dst[3];
  EXPECT_EQ(0, tvxAddSquaredu8u16(a, 3, 1, 3, acc, 6, 16, dst, 6));
  EXPECT_EQ(dst[0], 0);  // (65025 + 32768) mod 65536 >> 16
  EXPECT_EQ(dst[1], 65535);
  EXPECT_EQ(0, tvxAddSquaredu8u16(a, 3, 1, 3, acc, 6, 1, dst, 6));
  EXPECT_EQ(dst[0], (65025 + 1) >> 1);
  EXPECT_EQ(dst[2], 7 + 50);
  EXPECT_EQ(0, tvxAddSquaredu8u16(a, 3, 1, 3, acc, 6, -2, dst, 6));
  EXPECT_EQ(dst[0], 65535);
  EXPECT_EQ(dst[2], 7 + 400);
}

TEST_F(Arith, WideningAndSaturatingForms) {
  const uint8_t a8[2] = {255, 0}, b8[2] = {255, 255};
  uint16_t u16[2];
  int16_t s16[2];
  tvxAddu8u16(a8, 2, 1, 2, b8, 2, u16, 4);
  EXPECT_EQ(u16[0], 510);
  tvxElementMultiplyu8u16(a8, 2, 1, 2, b8, 2, u16, 4);
  EXPECT_EQ(u16[0], 65025);
  EXPECT_EQ(0, tvxSubtractu8s16(a8, 2, 1, 2, b8, 2, s16, 4));
  EXPECT_EQ(s16[1], -255);

  const int16_t big[2] = {32767, -32768}, plusMinus[2] = {1, -1};
  tvxAdds16(big, 2, 1, 4, plusMinus, 4, s16, 4);
  EXPECT_EQ(s16[0], 32767);
  EXPECT_EQ(s16[1], -32768);
  EXPECT_EQ(0, tvxSubtracts16(big, 2, 1, 4, plusMinus, 4, 0, s16, 4));
  EXPECT_EQ(s16[0], 32766);
  EXPECT_EQ(s16[1], -32767);
  EXPECT_EQ(0, tvxAdds16_v2(big, 2, 1, 4, plusMinus, 4, 0, s16, 4));
  EXPECT_EQ(s16[0], -32768);  // 32767 + 1 wraps
  EXPECT_EQ(0, tvxSubtracts16(plusMinus, 2, 1, 4, big, 4, 1, s16, 4));
  EXPECT_EQ(s16[0], -32766);
  EXPECT_EQ(s16[1], 32767);  // -1 - (-32768) fits
  const uint16_t top[1] = {65535};
  const uint8_t one[1] = {1};
  EXPECT_EQ(0, tvxAddu16u8u16(top, 1, 1, 2, one, 1, 0, u16, 2));
  EXPECT_EQ(u16[0], 0);
  EXPECT_EQ(0, tvxAddu16u8u16(top, 1, 1, 2, one, 1, 1, u16, 2));
  EXPECT_EQ(u16[0], 65535);
}

TEST_F(Arith, ScalarForms) {
  const int16_t src[3] = {100, -1, 1000};
  int16_t dst[3];
  EXPECT_EQ(0, tvxAddScalars16(src, 3, 1, 6, 0x18000, dst, 6));  // low 16 bits: -32768
  EXPECT_EQ(dst[0], 100 - 32768);
  EXPECT_EQ(dst[1], -32768);
  EXPECT_EQ(0, tvxMultiplyScalars16(src, 3, 1, 6, 100, 4, dst, 6));
  EXPECT_EQ(dst[2], (100000 + 8) >> 4);
  EXPECT_EQ(dst[1], (-100 + 8) >> 4);
  EXPECT_EQ(0, tvxMultiplyScalars16(src, 3, 1, 6, 100, -1, dst, 6));
  EXPECT_EQ(dst[2], 32767);
  EXPECT_EQ(dst[1], -200);
  const float f[2] = {1.5f, -2.0f};
  float out[2];
  EXPECT_EQ(0, tvxAddScalarf32(f, 2, 1, 8, 0.25f, out, 8));
  EXPECT_EQ(out[1], -1.75f);
  EXPECT_EQ(0, tvxMultiplyScalarf32(f, 2, 1, 8, -3.0f, out, 8));
  EXPECT_EQ(out[0], -4.5f);
}

TEST_F(Arith, DepthConversion) {
  const uint8_t u8[3] = {255, 127, 128};
  int16_t s16[3];
  EXPECT_EQ(0, tvxConvertDepthu8s16(u8, 3, 1, 3, 8, s16, 6));
  EXPECT_EQ(s16[0], 32767);
  EXPECT_EQ(s16[1], 127 * 256);
  EXPECT_EQ(s16[2], 32767);
  EXPECT_EQ(0, tvxConvertDepthu8s16(u8, 3, 1, 3, 3, s16, 6));
  EXPECT_EQ(s16[0], 255 * 8);
  EXPECT_EQ(3, tvxConvertDepthu8s16(u8, 3, 1, 3, 9, s16, 6));

  const int16_t wide[3] = {1000, -300, -1};
  uint8_t out[3];
  EXPECT_EQ(0, tvxConvertDepths16u8(wide, 3, 1, 6, 2, 1, out, 3));
  EXPECT_EQ(out[0], 250);
  EXPECT_EQ(out[1], 0);
  EXPECT_EQ(0, tvxConvertDepths16u8(wide, 3, 1, 6, 0, 0, out, 3));
  EXPECT_EQ(out[1], static_cast<uint8_t>(-300));
  EXPECT_EQ(0, tvxConvertDepths16u8(wide, 3, 1, 6, 8, 0, out, 3));
  EXPECT_EQ(out[2], 255);  // -1 >> 8 stays -1
  EXPECT_EQ(3, tvxConvertDepths16u8(wide, 3, 1, 6, 9, 0, out, 3));
}

TEST_F(Arith, AbsDiffWrapsAt32Bits) {
  const int32_t a[3] = {INT32_MIN, 0, -5}, b[3] = {1, INT32_MIN, 7};
  uint32_t dst[3];
  tvxAbsDiffs32(a, b, 3, 1, 12, dst, 12);
  EXPECT_EQ(dst[0], 2147483647u);  // INT_MIN - 1 wraps to INT_MAX
  EXPECT_EQ(dst[1], 2147483648u);
  EXPECT_EQ(dst[2], 12u);
  tvxAbsDiffVs32(a, INT32_MAX, 3, 1, 12, dst, 12);
  EXPECT_EQ(dst[0], 1u);  // INT_MIN - INT_MAX wraps to 1
}

// ---- magnitude, phase and the numeric helpers ------------------------------------------------

TEST_F(Arith, PhaseOfAxesAndDiagonalsAndTheWrapBelowAFullTurn) {
  const int16_t dx[8] = {1, 0, -1, 0, 1, 0, 32767, -5};
  const int16_t dy[8] = {0, 1, 0, -1, 1, 0, -1, -5};
  uint8_t out[8];
  EXPECT_EQ(0, tvxPhases16(dx, 8, 1, 16, dy, 16, out, 8));
  const uint8_t expected[8] = {0, 64, 128, 192, 32, 0, 0, 160};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], expected[i]) << i;
}

TEST_F(Arith, PhaseFollowsTheAngleWithinOneStep) {
  Plane<int16_t> dx(64, 32, rng_), dy(64, 32, rng_);
  for (int i = 0; i < 64 * 16; ++i) {  // half the image with small gradients
    dx.data[i] = static_cast<int16_t>(dx.data[i] % 50);
    dy.data[i] = static_cast<int16_t>(dy.data[i] % 50);
  }
  Plane<uint8_t> out(64, 32, rng_);
  EXPECT_EQ(0, tvxPhases16(dx.data.data(), 64, 32, 0, dy.data.data(), 0, out.data.data(), 0));
  for (uint32_t y = 0; y < 32; ++y)
    for (uint32_t x = 0; x < 64; ++x) {
      if (dx.at(x, y) == 0 && dy.at(x, y) == 0) continue;
      const double turns = std::atan2(double(dy.at(x, y)), double(dx.at(x, y))) / (2 * M_PI);
      const int steps = static_cast<int>(std::lround((turns < 0 ? turns + 1 : turns) * 256)) & 255;
      const int diff = (out.at(x, y) - steps + 256) % 256;
      EXPECT_TRUE(diff <= 1 || diff == 255) << dx.at(x, y) << "," << dy.at(x, y);
    }
}

TEST_F(Arith, MagnitudeUsesTheFastInverseSquareRoot) {
  // 25 * isqrt(25) is 4.99998..., truncated to 4: a true square root would give 5.
  const int16_t dx[4] = {3, -32768, 0, 32767}, dy[4] = {4, -32768, 0, 32767};
  uint16_t out[4];
  EXPECT_EQ(0, tvxMagnitudes16(dx, 4, 1, 8, dy, 8, out, 8));
  EXPECT_EQ(out[0], 4);
  EXPECT_EQ(out[1], 0);  // the 32-bit sum of squares wraps negative
  EXPECT_EQ(out[2], 0);
  EXPECT_EQ(out[3], 32767);

  Plane<int16_t> a(50, 20, rng_), b(50, 20, rng_);
  Plane<uint16_t> m(50, 20, rng_);
  EXPECT_EQ(0, tvxMagnitudes16(a.data.data(), 50, 20, 0, b.data.data(), 0, m.data.data(), 0));
  for (uint32_t i = 0; i < 1000; ++i) {
    const double exact = std::hypot(double(a.data[i]), double(b.data[i]));
    if (a.data[i] == -32768 && b.data[i] == -32768) continue;
    EXPECT_NEAR(m.data[i], std::min(exact, 32767.0), 1.2) << a.data[i] << "," << b.data[i];
  }
}

TEST_F(Arith, InverseSquareRootIsCloseToTheTrueOne) {
  for (int i = 0; i < 100000; ++i) {
    const float x = std::ldexp(1.0f + static_cast<float>(rng_() % 1000000) / 1e6f, static_cast<int>(rng_() % 200) - 100);
    EXPECT_NEAR(tvxIsqrt(x) * std::sqrt(static_cast<double>(x)), 1.0, 5e-6) << x;
  }
}

TEST_F(Arith, Atan2QuadrantsComeFromSignBits) {
  EXPECT_EQ(tvxAtan2(0.0f, 0.0f), 0.0f);
  EXPECT_EQ(tvxAtan2(-0.0f, -0.0f), 0.0f);
  EXPECT_EQ(tvxAtan2(1.0f, 0.0f), 1.0f);
  EXPECT_EQ(tvxAtan2(1.0f, -0.0f), 1.0f);   // x = -0 counts as negative: 2 - 1
  EXPECT_EQ(tvxAtan2(-0.0f, 1.0f), 4.0f);   // y = -0 counts as negative: 4 - 0
  EXPECT_EQ(tvxAtan2(0.0f, -1.0f), 2.0f);
  EXPECT_EQ(tvxAtan2(-1.0f, 0.0f), 3.0f);
  EXPECT_EQ(tvxAtan2(2.0f, 2.0f), 0.5f);
  for (int i = 0; i < 20000; ++i) {
    const float y = static_cast<float>(static_cast<int>(rng_() % 2001) - 1000);
    const float x = static_cast<float>(static_cast<int>(rng_() % 2001) - 1000);
    if (x == 0 && y == 0) continue;
    double quarters = std::atan2(double(y), double(x)) / (M_PI / 2);
    if (quarters < 0) quarters += 4;
    double error = std::fabs(tvxAtan2(y, x) - quarters);
    EXPECT_LT(std::min(error, 4 - error), 0.002) << y << "," << x;
  }
}

TEST_F(Arith, PopCountTable) {
  for (int i = 0; i < 256; ++i) EXPECT_EQ(tvxPopCountTable[i], std::popcount(static_cast<unsigned>(i))) << i;
}

// ---- random images against straightforward computations -------------------------------------

// Every scale factor an s8 holds: 32-bit products, rounding, and the shift-magnitude rule.
int64_t ExpectedScaled(int64_t p, int n, bool isSigned) {
  if (n > 0) {
    const int64_t round = n - 1 < 32 ? (int64_t{1} << (n - 1)) : 0;
    int64_t sum = p + round;
    if (isSigned) sum = static_cast<int32_t>(static_cast<uint32_t>(sum));
    else sum = static_cast<uint32_t>(sum);
    if (n >= 32) return isSigned && sum < 0 ? -1 : 0;
    return sum >> n;
  }
  const int m = -n;
  if (m >= 32) return 0;
  const uint32_t shifted = static_cast<uint32_t>(static_cast<uint64_t>(p) << m);
  if (isSigned) return static_cast<int32_t>(shifted);
  return shifted;
}

TEST_F(Arith, ProductsAgainstDirectComputation) {
  Plane<uint8_t> a(21, 4, rng_), b(21, 4, rng_, 3), d8(21, 4, rng_, 1);
  Plane<int16_t> s1(21, 4, rng_, 2), s2(21, 4, rng_), d16(21, 4, rng_, 5);
  for (int n = -128; n <= 127; ++n) {
    const auto f = static_cast<int8_t>(n);
    for (int policy = 0; policy <= 1; ++policy) {
      ASSERT_EQ(0, tvxElementMultiplyu8(a.data.data(), 21, 4, a.stride, b.data.data(), b.stride, f, policy,
                                        d8.data.data(), d8.stride));
      for (uint32_t y = 0; y < 4; ++y)
        for (uint32_t x = 0; x < 21; ++x) {
          const int64_t r = ExpectedScaled(a.at(x, y) * b.at(x, y), n, false);
          ASSERT_EQ(d8.at(x, y), policy ? std::min<int64_t>(r, 255) : (r & 255)) << n << " " << policy;
        }
      ASSERT_EQ(0, tvxElementMultiplys16(s1.data.data(), 21, 4, s1.stride, s2.data.data(), s2.stride, f, policy,
                                         d16.data.data(), d16.stride));
      for (uint32_t y = 0; y < 4; ++y)
        for (uint32_t x = 0; x < 21; ++x) {
          const int64_t r = ExpectedScaled(int64_t{s1.at(x, y)} * s2.at(x, y), n, true);
          const int64_t want = policy ? std::clamp<int64_t>(r, -32768, 32767) : static_cast<int16_t>(r & 0xFFFF);
          ASSERT_EQ(d16.at(x, y), want) << n << " " << policy;
        }
      ASSERT_EQ(0, tvxElementMultiplyu8s16(a.data.data(), 21, 4, a.stride, b.data.data(), b.stride, f, policy,
                                           d16.data.data(), d16.stride));
      for (uint32_t y = 0; y < 4; ++y)
        for (uint32_t x = 0; x < 21; ++x) {
          const int64_t r = ExpectedScaled(a.at(x, y) * b.at(x, y), n, false);
          const int64_t want = (n <= 0 && policy) ? std::min<int64_t>(r, 32767) : static_cast<int16_t>(r & 0xFFFF);
          ASSERT_EQ(d16.at(x, y), want) << n << " " << policy;
        }
    }
  }
}

TEST_F(Arith, AddSubtractAbsDiffAgainstDirectComputation) {
  Plane<uint8_t> a(37, 5, rng_, 2), b(37, 5, rng_, 2), d8(37, 5, rng_);
  for (int policy = 0; policy <= 1; ++policy) {
    ASSERT_EQ(0, tvxAddu8(a.data.data(), 37, 5, a.stride, b.data.data(), b.stride, policy, d8.data.data(), 0));
    for (uint32_t y = 0; y < 5; ++y)
      for (uint32_t x = 0; x < 37; ++x) {
        const int s = a.at(x, y) + b.at(x, y);
        ASSERT_EQ(d8.at(x, y), policy ? std::min(s, 255) : s % 256);
      }
    ASSERT_EQ(0, tvxSubtractu8(a.data.data(), 37, 5, a.stride, b.data.data(), b.stride, policy, d8.data.data(), 0));
    for (uint32_t y = 0; y < 5; ++y)
      for (uint32_t x = 0; x < 37; ++x) {
        const int s = a.at(x, y) - b.at(x, y);
        ASSERT_EQ(d8.at(x, y), policy ? std::max(s, 0) : (s + 256) % 256);
      }
  }
  tvxAbsDiffu8(a.data.data(), b.data.data(), 37, 5, a.stride, d8.data.data(), 0);
  for (uint32_t y = 0; y < 5; ++y)
    for (uint32_t x = 0; x < 37; ++x) ASSERT_EQ(d8.at(x, y), std::abs(a.at(x, y) - b.at(x, y)));

  // Three interleaved channels, each against its own constant.
  Plane<uint8_t> c3(3 * 11, 4, rng_), out3(3 * 11, 4, rng_);
  tvxAbsDiffVc3u8(c3.data.data(), 10, 200, 255, 11, 4, 0, out3.data.data(), 0);
  const int values[3] = {10, 200, 255};
  for (uint32_t y = 0; y < 4; ++y)
    for (uint32_t x = 0; x < 33; ++x) ASSERT_EQ(out3.at(x, y), std::abs(c3.at(x, y) - values[x % 3]));
  Plane<float> f4(4 * 9, 2, rng_), outf(4 * 9, 2, rng_);
  for (auto& v : f4.data) v = static_cast<float>(static_cast<int>(rng_() % 2000) - 1000) / 8.0f;
  tvxAbsDiffVc4f32(f4.data.data(), 1.0f, -2.5f, 0.0f, 100.0f, 9, 2, 0, outf.data.data(), 0);
  const float fv[4] = {1.0f, -2.5f, 0.0f, 100.0f};
  for (uint32_t y = 0; y < 2; ++y)
    for (uint32_t x = 0; x < 36; ++x) ASSERT_EQ(outf.at(x, y), std::fabs(f4.at(x, y) - fv[x % 4]));
}

TEST_F(Arith, TableLookupAgainstDirectComputation) {
  std::vector<uint8_t> lut(256);
  for (auto& v : lut) v = static_cast<uint8_t>(rng_());
  Plane<uint8_t> src(45, 7, rng_, 3), dst(45, 7, rng_, 1);
  ASSERT_EQ(0, tvxTableLookupu8(src.data.data(), 45, 7, src.stride, lut.data(), dst.data.data(), dst.stride));
  for (uint32_t y = 0; y < 7; ++y)
    for (uint32_t x = 0; x < 45; ++x) ASSERT_EQ(dst.at(x, y), lut[src.at(x, y)]);
}

// ---- rejection -----------------------------------------------------------------------------

TEST_F(Arith, PolicyIsCheckedBeforeAnythingElse) {
  uint8_t dst[4] = {7, 7, 7, 7};
  const uint8_t src[4] = {1, 2, 3, 4};
  const int16_t s16[2] = {1, 2};
  int16_t d16[2] = {5, 5};
  uint16_t du16[2] = {5, 5};
  for (auto fn : {&tvxAddu8C, &tvxAddu8V, &tvxSubtractu8C, &tvxSubtractu8V}) {
    EXPECT_EQ(3, fn(src, 4, 0, 4, src, 4, 2, dst, 4));  // even with no rows
    EXPECT_EQ(3, fn(src, 4, 1, 4, src, 4, -1, dst, 4));
  }
  EXPECT_EQ(3, tvxAdds16_v2C(s16, 2, 1, 4, s16, 4, 2, d16, 4));
  EXPECT_EQ(3, tvxSubtracts16V(s16, 2, 1, 4, s16, 4, 2, d16, 4));
  EXPECT_EQ(3, tvxAddu16u8u16C(du16, 2, 1, 4, src, 4, 2, du16, 4));
  EXPECT_EQ(3, tvxElementMultiplyu8C(src, 4, 1, 4, src, 4, 1, 2, dst, 4));
  EXPECT_EQ(3, tvxElementMultiplys16V(s16, 2, 1, 4, s16, 4, 1, 2, d16, 4));
  EXPECT_EQ(3, tvxConvertDepths16u8C(s16, 2, 1, 4, 0, 2, dst, 4));
  for (uint8_t v : dst) EXPECT_EQ(v, 7);
  for (int16_t v : d16) EXPECT_EQ(v, 5);
  for (uint16_t v : du16) EXPECT_EQ(v, 5);

  // u8 x u8 into s16: a positive scale factor never looks at the policy.
  for (auto fn : {&tvxElementMultiplyu8s16C, &tvxElementMultiplyu8s16V}) {
    d16[0] = d16[1] = 5;
    EXPECT_EQ(3, fn(src, 2, 1, 4, src, 4, 0, 9, d16, 4));
    EXPECT_EQ(d16[0], 5);
    EXPECT_EQ(0, fn(src, 2, 1, 4, src, 4, 2, 9, d16, 4));
    EXPECT_EQ(d16[1], (4 + 2) >> 2);
  }
}

TEST_F(Arith, AssertionEntriesLogTheirConditionAndWriteNothing) {
  uint8_t src[12] = {}, dst[12] = {9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9};
  tvxAbsDiffVc3u8(src, 1, 2, 3, 4, 1, 11, dst, 12);  // source rows shorter than 4 pixels
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0],
            "tavix_lib_log|Assertion failed @tvxAbsDiffVc3u8: src && dst && srcWidth && srcHeight && "
            "(srcStride >= srcWidth * 3) && (dstStride >= srcWidth * 3)\n");
  g_lines.clear();
  tvxAbsDiffu8(src, src, 4, 1, 3, dst, 4);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0],
            "tavix_lib_log|Assertion failed @tvxAbsDiffu8: src1 && src2 && dst && srcWidth && srcHeight && "
            "(srcStride >= srcWidth) && dstStride\n");
  for (uint8_t v : dst) EXPECT_EQ(v, 9);
}

TEST_F(Arith, StatusEntriesRejectShortStridesSilently) {
  uint8_t src[8] = {}, dst[8] = {9, 9, 9, 9, 9, 9, 9, 9};
  int16_t s16[8] = {};
  EXPECT_EQ(3, tvxPhases16(s16, 4, 1, 6, s16, 8, dst, 4));
  EXPECT_EQ(3, tvxPhases16(s16, 4, 1, 8, s16, 8, dst, 3));
  EXPECT_EQ(3, tvxTableLookupu8(src, 4, 1, 4, nullptr, dst, 4));
  EXPECT_EQ(3, tvxAddu8(src, 4, 1, 4, src, 3, 0, dst, 4));
  EXPECT_EQ(3, tvxElementMultiplyu8s16(src, 4, 1, 4, src, 4, 1, 0, s16, 7));
  EXPECT_TRUE(g_lines.empty());
  for (uint8_t v : dst) EXPECT_EQ(v, 9);
}

TEST_F(Arith, ZeroStrideMeansPackedRows) {
  Plane<uint8_t> a(13, 3, rng_), b(13, 3, rng_);
  std::vector<uint16_t> packed(13 * 3), explicitStride(13 * 3);
  tvxAddu8u16(a.data.data(), 13, 3, 0, b.data.data(), 0, packed.data(), 0);
  tvxAddu8u16(a.data.data(), 13, 3, 13, b.data.data(), 13, explicitStride.data(), 26);
  EXPECT_EQ(packed, explicitStride);
  std::vector<uint8_t> p8(13 * 3, 1), e8(13 * 3, 2);
  EXPECT_EQ(0, tvxElementMultiplyu8(a.data.data(), 13, 3, 0, b.data.data(), 0, 3, 1, p8.data(), 0));
  EXPECT_EQ(0, tvxElementMultiplyu8(a.data.data(), 13, 3, 13, b.data.data(), 13, 3, 1, e8.data(), 13));
  EXPECT_EQ(p8, e8);
}

}  // namespace
