// Vector kernels through their public entries (reference tier) against direct loops written
// here: dot products of every length and form, normalised products and unit distances, Hamming
// distances, sums of absolute differences and their maps, patch and block dot products, and the
// cross product with its process-ending check.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"

namespace {

using tvxtest::g_lines;

class VectorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // Mode selection fills the internal table's reference slots (the SAD blocks and maps).
    ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_REFERENCE), 0);
    g_lines.clear();
    tvx_set_log_sink(&tvxtest::Capture);
    std::memset(tvxImplTable, 0, sizeof tvxImplTable);
    std::memset(tvxInternalImplTable, 0, sizeof tvxInternalImplTable);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }

  // Random bytes; pattern 1 and 2 are all-minimum and all-maximum vectors.
  template <typename T>
  std::vector<T> Bytes(size_t n, int pattern = 0) {
    std::vector<T> v(n);
    std::uniform_int_distribution<int> dist(0, 255);
    for (auto& x : v) {
      const int r = pattern == 1 ? 0 : pattern == 2 ? 255 : dist(rng_);
      x = static_cast<T>(std::is_signed_v<T> ? r - 128 : r);
    }
    return v;
  }
  std::mt19937 rng_{4242};
};

template <typename T>
int64_t DirectDot(const T* a, const T* b, size_t n) {
  int64_t s = 0;
  for (size_t i = 0; i < n; ++i) s += int64_t(a[i]) * int64_t(b[i]);
  return s;
}

TEST_F(VectorTest, DotProductsOfAnyLengthMatchDirectSums) {
  for (int pattern = 0; pattern < 3; ++pattern) {
    for (uint32_t len = 0; len <= 70; ++len) {
      const auto a8 = Bytes<int8_t>(len, pattern), b8 = Bytes<int8_t>(len, pattern ? 3 - pattern : 0);
      const auto au = Bytes<uint8_t>(len, pattern), bu = Bytes<uint8_t>(len, pattern);
      EXPECT_EQ(tvxDotProducts8(a8.data(), b8.data(), len), DirectDot(a8.data(), b8.data(), len)) << len;
      EXPECT_EQ(tvxDotProductu8(au.data(), bu.data(), len), DirectDot(au.data(), bu.data(), len)) << len;
    }
  }
  const auto a = Bytes<uint8_t>(10), b = Bytes<uint8_t>(10);
  EXPECT_EQ(tvxDotProductu8(nullptr, b.data(), 10), 0u);
  EXPECT_EQ(tvxDotProducts8(reinterpret_cast<const int8_t*>(a.data()), nullptr, 10), 0);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(VectorTest, FloatDotProductSumsInElementOrder) {
  // Left to right: (1e8 + 1) rounds back to 1e8, so the sum is 0; any regrouping gives 1 or 2.
  const float a[4] = {1e8f, 1.0f, -1e8f, 1.0f}, ones[4] = {1, 1, 1, 1};
  EXPECT_EQ(tvxDotProductf32(a, ones, 3), 0.0f);
  EXPECT_EQ(tvxDotProductf32(a, ones, 4), 1.0f);
  EXPECT_EQ(tvxDotProductf32(a, ones, 0), 0.0f);
  std::uniform_real_distribution<float> dist(-10.0f, 10.0f);
  std::vector<float> x(333), y(333);
  for (size_t i = 0; i < x.size(); ++i) x[i] = dist(rng_), y[i] = dist(rng_);
  float expect = 0.0f;
  for (size_t i = 0; i < x.size(); ++i) expect += x[i] * y[i];
  EXPECT_EQ(tvxDotProductf32(x.data(), y.data(), 333), expect);
}

template <size_t kLen>
void CheckFixedForms(const std::vector<int8_t>& s, const std::vector<uint8_t>& u) {
  SCOPED_TRACE(kLen);
  const int8_t* sb[4] = {&s[kLen], &s[2 * kLen], &s[3 * kLen], &s[4 * kLen]};
  const uint8_t* ub[4] = {&u[kLen], &u[2 * kLen], &u[3 * kLen], &u[4 * kLen]};
  int32_t s4[4] = {};
  uint32_t u4[4] = {};
  float ns[4] = {}, nu[4] = {};
  const float invB[4] = {0.5f, 0.125f, 1.0f / 3.0f, 0.01f};
  const float invA = 1.0f / 7.0f;
  int32_t (*x4s)(const int8_t*, const int8_t*, const int8_t*, const int8_t*, const int8_t*, int32_t*);
  int32_t (*x4u)(const uint8_t*, const uint8_t*, const uint8_t*, const uint8_t*, const uint8_t*, uint32_t*);
  int32_t (*x1s)(const int8_t*, const int8_t*);
  uint32_t (*x1u)(const uint8_t*, const uint8_t*);
  int32_t (*nrs)(const int8_t*, float, const int8_t*, const int8_t*, const int8_t*, const int8_t*, const float*, float*);
  int32_t (*nru)(const uint8_t*, float, const uint8_t*, const uint8_t*, const uint8_t*, const uint8_t*, const float*,
                 float*);
  if constexpr (kLen == 36) {
    x4s = tvxDotProduct36x4s8, x4u = tvxDotProduct36x4u8, x1s = tvxDotProduct36x1s8, x1u = tvxDotProduct36x1u8;
    nrs = tvxDotProductNorm36x4s8, nru = tvxDotProductNorm36x4u8;
  } else if constexpr (kLen == 64) {
    x4s = tvxDotProduct64x4s8, x4u = tvxDotProduct64x4u8, x1s = tvxDotProduct64x1s8, x1u = tvxDotProduct64x1u8;
    nrs = tvxDotProductNorm64x4s8, nru = tvxDotProductNorm64x4u8;
  } else {
    x4s = tvxDotProduct128x4s8, x4u = tvxDotProduct128x4u8, x1s = tvxDotProduct128x1s8, x1u = tvxDotProduct128x1u8;
    nrs = tvxDotProductNorm128x4s8, nru = tvxDotProductNorm128x4u8;
  }
  ASSERT_EQ(x4s(s.data(), sb[0], sb[1], sb[2], sb[3], s4), 0);
  ASSERT_EQ(x4u(u.data(), ub[0], ub[1], ub[2], ub[3], u4), 0);
  ASSERT_EQ(nrs(s.data(), invA, sb[0], sb[1], sb[2], sb[3], invB, ns), 0);
  ASSERT_EQ(nru(u.data(), invA, ub[0], ub[1], ub[2], ub[3], invB, nu), 0);
  for (int i = 0; i < 4; ++i) {
    const int64_t ds = DirectDot(s.data(), sb[i], kLen), du = DirectDot(u.data(), ub[i], kLen);
    EXPECT_EQ(s4[i], ds);
    EXPECT_EQ(u4[i], du);
    EXPECT_EQ(x1s(s.data(), sb[i]), ds);
    EXPECT_EQ(x1u(u.data(), ub[i]), du);
    EXPECT_EQ(ns[i], (static_cast<float>(ds) * invA) * invB[i]);
    EXPECT_EQ(nu[i], (static_cast<float>(du) * invA) * invB[i]);
  }
  // A null among the four is rejected without a write.
  int32_t keep[4] = {9, 9, 9, 9};
  EXPECT_EQ(x4s(s.data(), sb[0], nullptr, sb[2], sb[3], keep), 3);
  EXPECT_EQ(keep[1], 9);
}

TEST_F(VectorTest, FixedLengthFormsMatchDirectSums) {
  for (int pattern = 0; pattern < 3; ++pattern) {
    const auto s = Bytes<int8_t>(5 * 128, pattern);
    const auto u = Bytes<uint8_t>(5 * 128, pattern);
    CheckFixedForms<36>(s, u);
    CheckFixedForms<64>(s, u);
    CheckFixedForms<128>(s, u);
  }
  EXPECT_TRUE(g_lines.empty());
}

float Distance(float invA, float invB, int64_t dot) {
  return std::fabs(2.0f - (2.0f * invA) * invB * static_cast<float>(dot));
}

TEST_F(VectorTest, SquaredDistancesFollowTheUnitFormula) {
  const auto s = Bytes<int8_t>(36 * 12);
  std::vector<const int8_t*> b;
  std::vector<float> invB;
  for (int i = 1; i < 12; ++i) b.push_back(&s[36 * i]), invB.push_back(0.01f * i);
  const float invA = 0.02f;
  float d4[4];
  ASSERT_EQ(tvxSumOfSquaredDiffs36x4s8(s.data(), invA, b[0], b[1], b[2], b[3], invB.data(), d4), 0);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(d4[i], Distance(invA, invB[i], DirectDot(s.data(), b[i], 36)));
  // N over groups of four and a remainder; each must equal the formula.
  for (uint32_t n = 0; n <= 11; ++n) {
    std::vector<float> d(n + 1, -7.0f);
    ASSERT_EQ(tvxSumOfSquaredDiffs36xNs8(s.data(), invA, b.data(), invB.data(), n, d.data()), 0);
    for (uint32_t i = 0; i < n; ++i) EXPECT_EQ(d[i], Distance(invA, invB[i], DirectDot(s.data(), b[i], 36))) << n;
    EXPECT_EQ(d[n], -7.0f) << "wrote past N";
  }
  std::vector<float> d(11);
  ASSERT_EQ(tvxSumOfSquaredDiffss8(s.data(), invA, 23, b.data(), invB.data(), 11, d.data()), 0);
  for (int i = 0; i < 11; ++i) EXPECT_EQ(d[i], Distance(invA, invB[i], DirectDot(s.data(), b[i], 23)));
  // A null vector pointer rejects the call before anything is written.
  b[5] = nullptr;
  std::vector<float> untouched(11, -1.0f);
  EXPECT_EQ(tvxSumOfSquaredDiffs36xNs8(s.data(), invA, b.data(), invB.data(), 11, untouched.data()), 3);
  EXPECT_EQ(tvxSumOfSquaredDiffss8(s.data(), invA, 9, b.data(), invB.data(), 11, untouched.data()), 3);
  EXPECT_EQ(untouched, std::vector<float>(11, -1.0f));
}

TEST_F(VectorTest, IdenticalUnitDescriptorsAreAtDistanceZeroOrTiny) {
  for (int trial = 0; trial < 50; ++trial) {
    const auto s = Bytes<int8_t>(36);
    const auto u = Bytes<uint8_t>(61);
    std::vector<float> f(19);
    for (auto& x : f) x = std::uniform_real_distribution<float>(-3.0f, 3.0f)(rng_);
    const float invS = 1.0f / std::sqrt(static_cast<float>(DirectDot(s.data(), s.data(), 36)));
    const float invU = 1.0f / std::sqrt(static_cast<float>(DirectDot(u.data(), u.data(), 61)));
    float ff = 0.0f;
    for (float x : f) ff += x * x;
    const float invF = 1.0f / std::sqrt(ff);
    const int8_t* bs[1] = {s.data()};
    const uint8_t* bu[1] = {u.data()};
    const float* bf[1] = {f.data()};
    float d[3];
    ASSERT_EQ(tvxSumOfSquaredDiffs36xNs8(s.data(), invS, bs, &invS, 1, &d[0]), 0);
    ASSERT_EQ(tvxSumOfSquaredDiffsu8(u.data(), invU, 61, bu, &invU, 1, &d[1]), 0);
    ASSERT_EQ(tvxSumOfSquaredDiffsf32(f.data(), invF, 19, bf, &invF, 1, &d[2]), 0);
    for (float x : d) {
      EXPECT_FALSE(std::signbit(x));
      EXPECT_LT(x, 1e-5f);
    }
  }
  // Length 0: every distance is 2.
  const uint8_t* none[2] = {reinterpret_cast<const uint8_t*>(""), reinterpret_cast<const uint8_t*>("")};
  const float inv[2] = {0.3f, 7.0f};
  float d[2];
  ASSERT_EQ(tvxSumOfSquaredDiffsu8(none[0], 0.5f, 0, none, inv, 2, d), 0);
  EXPECT_EQ(d[0], 2.0f);
  EXPECT_EQ(d[1], 2.0f);
}

uint32_t DirectHamming(const uint8_t* a, const uint8_t* b, size_t n) {
  uint32_t s = 0;
  for (size_t i = 0; i < n; ++i)
    for (int k = 0; k < 8; ++k) s += ((a[i] ^ b[i]) >> k) & 1;
  return s;
}

TEST_F(VectorTest, HammingDistancesCountDifferingBits) {
  for (uint32_t len = 0; len <= 70; ++len) {
    const auto a = Bytes<uint8_t>(len), b = Bytes<uint8_t>(len);
    EXPECT_EQ(tvxHammingDistanceu8(a.data(), b.data(), len), DirectHamming(a.data(), b.data(), len)) << len;
  }
  auto a = Bytes<uint8_t>(64);
  std::vector<uint8_t> na(64);
  for (size_t i = 0; i < 64; ++i) na[i] = static_cast<uint8_t>(~a[i]);
  EXPECT_EQ(tvxHammingDistance32x1u8(a.data(), na.data()), 256u);
  EXPECT_EQ(tvxHammingDistance32x1u8a4(a.data(), na.data()), 256u);
  EXPECT_EQ(tvxHammingDistance64x1u8(a.data(), na.data()), 512u);
  EXPECT_EQ(tvxHammingDistance64x1u8a4(a.data(), a.data()), 0u);
  const auto pool = Bytes<uint8_t>(5 * 64 + 1);
  const uint8_t* q = pool.data() + 1;  // odd address for the a4 forms: any alignment is accepted
  const uint8_t* b[4] = {q + 64, q + 128, q + 192, q + 256};
  uint32_t d32[4], d64[4], d64u[4];
  ASSERT_EQ(tvxHammingDistance32x4u8a4(q, b[0], b[1], b[2], b[3], d32), 0);
  ASSERT_EQ(tvxHammingDistance64x4u8a4(q, b[0], b[1], b[2], b[3], d64), 0);
  ASSERT_EQ(tvxHammingDistance64x4u8(q, b[0], b[1], b[2], b[3], d64u), 0);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(d32[i], DirectHamming(q, b[i], 32));
    EXPECT_EQ(d64[i], DirectHamming(q, b[i], 64));
    EXPECT_EQ(d64u[i], d64[i]);
    EXPECT_EQ(tvxHammingDistance32x1u8(q, b[i]), d32[i]);
  }
}

uint32_t DirectSad(const uint8_t* p, size_t ps, const uint8_t* s, size_t ss, int n) {
  uint32_t sum = 0;
  for (int r = 0; r < n; ++r)
    for (int c = 0; c < n; ++c) sum += std::abs(int(p[r * ps + c]) - int(s[r * ss + c]));
  return sum;
}

TEST_F(VectorTest, BlockSadsSumAbsoluteDifferences) {
  std::vector<uint8_t> zeros(16 * 16, 0), full(20 * 16, 255);
  EXPECT_EQ(tvxSumOfAbsoluteDiff16x16u8(zeros.data(), 16, full.data(), 20), 65280);
  EXPECT_EQ(tvxSumOfAbsoluteDiff8x8u8(full.data(), 20, zeros.data(), 16), 16320);
  const auto p = Bytes<uint8_t>(16 * 19), s = Bytes<uint8_t>(16 * 23);
  EXPECT_EQ(tvxSumOfAbsoluteDiff16x16u8(p.data(), 19, s.data(), 23), DirectSad(p.data(), 19, s.data(), 23, 16));
  EXPECT_EQ(tvxSumOfAbsoluteDiff8x8u8(p.data() + 3, 19, s.data() + 5, 23), DirectSad(p.data() + 3, 19, s.data() + 5, 23, 8));
  EXPECT_EQ(tvxSumOfAbsoluteDiff8x8u8(p.data(), 7, s.data(), 23), 0) << "a stride below 8 is rejected";
}

// Checks one SAD map: centre positions hold the window SAD, everything else keeps the sentinel.
void CheckSadMap(const std::vector<uint16_t>& dst, uint32_t dstStep, const uint8_t* patch, uint32_t ps,
                 const uint8_t* src, uint32_t w, uint32_t h, uint32_t ss, int n) {
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < dstStep; ++x) {
      const bool centre = w >= uint32_t(n) && h >= uint32_t(n) && x >= uint32_t(n / 2) && y >= uint32_t(n / 2) &&
                          x - n / 2 + n <= w && y - n / 2 + n <= h;
      const uint16_t expect = centre ? DirectSad(patch, ps, src + (y - n / 2) * ss + (x - n / 2), ss, n) : 0xBEEF;
      ASSERT_EQ(dst[y * dstStep + x], expect) << x << "," << y << " of " << w << "x" << h;
    }
}

TEST_F(VectorTest, SadMapsWriteOnlyWindowCentres) {
  for (uint32_t w : {7u, 8u, 9u, 16u, 17u, 40u}) {
    for (uint32_t h : {7u, 8u, 12u, 16u, 19u}) {
      const uint32_t ss = w + 3, dstStep = w + 2;
      const auto src = Bytes<uint8_t>(ss * h), patch = Bytes<uint8_t>(18 * 16);
      std::vector<uint16_t> d8(dstStep * h, 0xBEEF), d16(dstStep * h, 0xBEEF), legacy(w * h, 0xBEEF);
      EXPECT_EQ(tvxSumOfAbsoluteDiffs8x8u8_v2(patch.data(), 18, src.data(), w, h, ss, d8.data(), dstStep * 2), 0);
      CheckSadMap(d8, dstStep, patch.data(), 18, src.data(), w, h, ss, 8);
      EXPECT_EQ(tvxSumOfAbsoluteDiffs16x16u8(patch.data(), 18, src.data(), w, h, ss, d16.data(), dstStep * 2), 0);
      CheckSadMap(d16, dstStep, patch.data(), 18, src.data(), w, h, ss, 16);
      // The legacy entry with zero strides: a packed patch and destination.
      std::vector<uint8_t> packed(w * h);
      for (uint32_t y = 0; y < h; ++y) std::memcpy(&packed[y * w], &src[y * ss], w);
      EXPECT_EQ(tvxSumOfAbsoluteDiffs8x8u8(patch.data(), 0, packed.data(), w, h, 0, legacy.data(), 0), 0);
      CheckSadMap(legacy, w, patch.data(), 8, packed.data(), w, h, w, 8);
    }
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(VectorTest, SadMapsRejectBadArgumentsWithTheirConditions) {
  std::vector<uint8_t> src(64 * 16, 1), patch(256, 2);
  std::vector<uint16_t> dst(64 * 16, 0xBEEF);
  EXPECT_EQ(tvxSumOfAbsoluteDiffs8x8u8_v2(patch.data(), 8, src.data(), 20, 10, 20, dst.data(), 39), 3);
  EXPECT_EQ(tvxSumOfAbsoluteDiffs16x16u8(patch.data(), 15, src.data(), 20, 16, 20, dst.data(), 40), 3);
  EXPECT_EQ(tvxSumOfAbsoluteDiffs8x8u8(patch.data(), 0, src.data(), 20, 0, 0, dst.data(), 0), 3);
  // The legacy condition does not name strides, yet one too small for the row is refused.
  EXPECT_EQ(tvxSumOfAbsoluteDiffs8x8u8(patch.data(), 0, src.data(), 20, 10, 19, dst.data(), 0), 3);
  EXPECT_EQ(dst, std::vector<uint16_t>(64 * 16, 0xBEEF));
  ASSERT_EQ(g_lines.size(), 4u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxSumOfAbsoluteDiffs8x8u8_v2",
                                             "patch && src && dst && (patchStride >= 8) && srcWidth && srcHeight && "
                                             "(srcStride >= srcWidth) && (dstStride >= srcWidth*2)"));
  EXPECT_EQ(g_lines[1], tvxtest::AssertLine("tvxSumOfAbsoluteDiffs16x16u8",
                                             "patch && src && dst && (patchStride >= 16) && srcWidth && srcHeight && "
                                             "(srcStride >= srcWidth) && (dstStride >= srcWidth*2)"));
  EXPECT_EQ(g_lines[2], tvxtest::AssertLine("tvxSumOfAbsoluteDiffs8x8u8", "patch && src && dst && width && height"));
  EXPECT_EQ(g_lines[3], g_lines[2]);
}

TEST_F(VectorTest, PatchDotProductsAtGivenCorners) {
  const uint32_t w = 30, h = 25, ss = 33;
  const auto src = Bytes<uint8_t>(ss * h, 0), patch = Bytes<uint8_t>(132);
  const std::vector<uint32_t> xy = {0, 0, 22, 17, 19, 13, 5, 9};
  std::vector<uint32_t> d8(4), d11(4);
  ASSERT_EQ(tvxDotProduct8x8u8(patch.data(), src.data(), w, h, ss, xy.data(), 3, d8.data()), 0);
  ASSERT_EQ(tvxDotProduct11x12u8(patch.data(), src.data(), w, h, ss, xy.data() + 4, 2, d11.data()), 0);
  const auto direct = [&](uint32_t x, uint32_t y, uint32_t pw, uint32_t ph) {
    int64_t s = 0;
    for (uint32_t r = 0; r < ph; ++r) s += DirectDot(&patch[r * pw], &src[(y + r) * ss + x], pw);
    return s;
  };
  for (int i = 0; i < 3; ++i) EXPECT_EQ(d8[i], direct(xy[2 * i], xy[2 * i + 1], 8, 8));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(d11[i], direct(xy[4 + 2 * i], xy[5 + 2 * i], 11, 12));
  // One window past the edge (x = 23 needs columns to 30) rejects the whole call unwritten.
  const std::vector<uint32_t> bad = {0, 0, 23, 0};
  std::vector<uint32_t> out(2, 77);
  EXPECT_EQ(tvxDotProduct8x8u8(patch.data(), src.data(), w, h, ss, bad.data(), 2, out.data()), 3);
  const std::vector<uint32_t> low = {19, 14};
  EXPECT_EQ(tvxDotProduct11x12u8(patch.data(), src.data(), w, h, ss, low.data(), 1, out.data()), 3);
  EXPECT_EQ(out, std::vector<uint32_t>(2, 77));
}

TEST_F(VectorTest, BlockDotProductsFillEveryPair) {
  const uint32_t numA = 5, numB = 7, len = 45, aStride = 50, bStride = 47, dstStride = 4 * numB + 12;
  const auto a = Bytes<uint8_t>(aStride * numA), b = Bytes<uint8_t>(bStride * numB);
  std::vector<uint32_t> dst(dstStride / 4 * numA, 0xABCD);
  ASSERT_EQ(tvxBlockDotProductu8(a.data(), numA, aStride, b.data(), numB, bStride, len, dst.data(), dstStride), 0);
  std::vector<float> fa(len * numA), fb(len * numB), fd(numA * numB);
  for (size_t i = 0; i < fa.size(); ++i) fa[i] = 0.25f * (int(i % 17) - 8);
  for (size_t i = 0; i < fb.size(); ++i) fb[i] = 0.1f * (int(i % 13) - 5);
  ASSERT_EQ(tvxBlockDotProductf32(fa.data(), numA, 0, fb.data(), numB, 0, len, fd.data(), 0), 0);
  for (uint32_t i = 0; i < numA; ++i) {
    for (uint32_t j = 0; j < numB; ++j) {
      EXPECT_EQ(dst[i * dstStride / 4 + j], DirectDot(&a[i * aStride], &b[j * bStride], len));
      float s = 0.0f;
      for (uint32_t k = 0; k < len; ++k) s += fa[i * len + k] * fb[j * len + k];
      EXPECT_EQ(fd[i * numB + j], s);
    }
    for (uint32_t j = numB; j < dstStride / 4; ++j) EXPECT_EQ(dst[i * dstStride / 4 + j], 0xABCDu) << "padding";
  }
}

TEST_F(VectorTest, CrossProductsOfConsecutiveVectors) {
  const float a[6] = {1, 0, 0, 2, 3, 4}, b[6] = {0, 1, 0, 5, 6, 7};
  float c[6];
  ASSERT_EQ(tvxCrossProduct3x1f32(a, b, c, 2), 0);
  const float expect[6] = {0, 0, 1, 3 * 7 - 6 * 4, 4 * 5 - 7 * 2, 2 * 6 - 3 * 5};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(c[i], expect[i]);
  // In place on a.
  float inplace[6] = {1, 0, 0, 2, 3, 4};
  ASSERT_EQ(tvxCrossProduct3x1f32(inplace, b, inplace, 2), 0);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(inplace[i], expect[i]);
  // The entry refuses a bad argument with status 3, no log and no write.
  float keep[3] = {9, 9, 9};
  EXPECT_EQ(tvxCrossProduct3x1f32(a, b, keep, 0), 3);
  EXPECT_EQ(tvxCrossProduct3x1f32(a, nullptr, keep, 1), 3);
  EXPECT_EQ(keep[0], 9.0f);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(VectorTest, CrossProductVariantsEndTheProcessOnABadArgument) {
  tvx_set_log_sink(nullptr);  // the child logs to stderr
  const float a[3] = {1, 2, 3};
  float c[3];
  EXPECT_EXIT(tvxCrossProduct3x1f32C(a, a, c, 0), ::testing::ExitedWithCode(1),
              "src/cpu/tavixDotC@725: a && b && c && N > 0 Assertion failed");
  EXPECT_EXIT(tvxCrossProduct3x1f32C(nullptr, a, c, 1), ::testing::ExitedWithCode(1),
              "src/cpu/tavixDotC@725: a && b && c && N > 0 Assertion failed");
  EXPECT_EXIT(tvxCrossProduct3x1f32V(a, a, nullptr, 1), ::testing::ExitedWithCode(1),
              "src/cpu/tavixDotC@725: a && b && c && N > 0 Assertion failed");
}

}  // namespace
