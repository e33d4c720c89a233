// Convolution and correlation through their public entries (reference tier): the documented
// values, the shift and saturation rules, kernel orientation and border rules, random images
// against a direct 64-bit model written here, argument rejection with nothing written, and the
// spectral path of the MxN convolution giving exactly the direct sums.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "cpu/conv_rules.h"
#include "frame/frame.h"
#include "log_capture.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;

// A padded image of T held in a vector; the padding holds a marker that must survive.
template <typename T>
struct Img {
  uint32_t w, h, pitch;  // pitch in elements
  std::vector<T> px;
  Img(uint32_t width, uint32_t height, uint32_t pad = 3, T fill = T(0))
      : w(width), h(height), pitch(width + pad), px(size_t(width + pad) * height, fill) {}
  T& at(uint32_t x, uint32_t y) { return px[size_t(y) * pitch + x]; }
  T at(uint32_t x, uint32_t y) const { return px[size_t(y) * pitch + x]; }
  T* data() { return px.data(); }
  uint32_t stride() const { return pitch * sizeof(T); }
  template <typename R>
  void Random(std::mt19937& rng, R lo, R hi) {
    std::uniform_int_distribution<int64_t> dist(lo, hi);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) at(x, y) = static_cast<T>(dist(rng));
  }
};

// Expected output per pixel, with "untouched" where the operation must not write.
struct Expect {
  std::vector<int64_t> v;
  std::vector<bool> set;
  uint32_t w;
  Expect(uint32_t width, uint32_t height) : v(size_t(width) * height), set(size_t(width) * height), w(width) {}
  void Put(uint32_t x, uint32_t y, int64_t value) {
    v[size_t(y) * w + x] = value;
    set[size_t(y) * w + x] = true;
  }
};

template <typename T>
::testing::AssertionResult Matches(const Img<T>& got, const Expect& want, T untouched) {
  for (uint32_t y = 0; y < got.h; ++y) {
    for (uint32_t x = 0; x < got.pitch; ++x) {
      const bool inside = x < got.w && want.set[size_t(y) * got.w + x];
      const int64_t e = inside ? want.v[size_t(y) * got.w + x] : int64_t(untouched);
      if (int64_t(got.at(x, y)) != e)
        return ::testing::AssertionFailure() << "element (" << x << ", " << y << ") of " << got.w << "x" << got.h
                                             << " is " << int64_t(got.at(x, y)) << ", expected " << e;
    }
  }
  return ::testing::AssertionSuccess();
}

template <typename T>
bool Untouched(const Img<T>& img, T fill) {
  return std::all_of(img.px.begin(), img.px.end(), [&](T v) { return v == fill; });
}

// The scale-factor rule on an exact sum, then saturation.
int64_t Scale(int64_t s, int shift, int64_t lo, int64_t hi) {
  int64_t r;
  if (shift > 0) {
    const int64_t d = int64_t(1) << shift;
    const int64_t t = s + d / 2;
    r = t >= 0 ? t / d : -((-t + d - 1) / d);  // floor division
  } else {
    r = s * (int64_t(1) << -shift);
  }
  return std::clamp(r, lo, hi);
}

// NxN correlation model: the interior only.
Expect CorrModel(const Img<uint8_t>& src, const std::vector<int>& k, uint32_t N, int shift, int64_t lo, int64_t hi) {
  Expect e(src.w, src.h);
  const uint32_t c = N / 2;
  for (uint32_t y = c; y + c < src.h; ++y)
    for (uint32_t x = c; x + c < src.w; ++x) {
      int64_t s = 0;
      for (uint32_t i = 0; i < N; ++i)
        for (uint32_t j = 0; j < N; ++j) s += int64_t(k[i * N + j]) * src.at(x - c + j, y - c + i);
      e.Put(x, y, Scale(s, shift, lo, hi));
    }
  return e;
}

// Pixel with the border rule of the convolutions.
int64_t Bordered(const Img<uint8_t>& src, int64_t x, int64_t y, uint32_t type, uint8_t value) {
  if (x >= 0 && y >= 0 && x < src.w && y < src.h) return src.at(uint32_t(x), uint32_t(y));
  if (type != 2) return value;
  return src.at(uint32_t(std::clamp<int64_t>(x, 0, src.w - 1)), uint32_t(std::clamp<int64_t>(y, 0, src.h - 1)));
}

// MxN convolution model: flipped kernel (M columns, N rows), centre (M/2, N/2).
Expect ConvolveModel(const Img<uint8_t>& src, const std::vector<int>& k, uint32_t M, uint32_t N, int shift,
                     uint32_t type, uint8_t value, int64_t lo, int64_t hi) {
  Expect e(src.w, src.h);
  for (uint32_t y = 0; y < src.h; ++y)
    for (uint32_t x = 0; x < src.w; ++x) {
      int64_t s = 0;
      for (uint32_t i = 0; i < N; ++i)
        for (uint32_t j = 0; j < M; ++j)
          s += int64_t(k[i * M + j]) * Bordered(src, int64_t(x) + M / 2 - j, int64_t(y) + N / 2 - i, type, value);
      e.Put(x, y, Scale(s, shift, lo, hi));
    }
  return e;
}

std::vector<int> RandomKernel(std::mt19937& rng, size_t n, int lo, int hi) {
  std::uniform_int_distribution<int> dist(lo, hi);
  std::vector<int> k(n);
  for (int& v : k) v = dist(rng);
  return k;
}
template <typename T>
std::vector<T> As(const std::vector<int>& k) {
  return std::vector<T>(k.begin(), k.end());
}

class ConvTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
    std::fill(std::begin(tvxImplTable), std::end(tvxImplTable), 0u);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  std::mt19937 rng_{77};
};

constexpr uint8_t kMark = 0xEE;
constexpr int16_t kMark16 = -12345;

// ---- NxN correlation ---------------------------------------------------------------------------

TEST_F(ConvTest, CorrNxNDocumentedValues) {
  Img<uint8_t> src(9, 7);
  src.Random(rng_, 0, 255);
  // A centre 1 with shift 0 copies the interior; the one-pixel frame stays as it was.
  const int8_t centre[9] = {0, 0, 0, 0, 1, 0, 0, 0, 0};
  Img<uint8_t> copy(9, 7, 3, kMark);
  ASSERT_EQ(tvxFilterCorrNxNu8(centre, 3, 0, src.data(), 9, 7, src.stride(), copy.data(), copy.stride()), 0);
  Expect e(9, 7);
  for (uint32_t y = 1; y < 6; ++y)
    for (uint32_t x = 1; x < 8; ++x) e.Put(x, y, src.at(x, y));
  EXPECT_TRUE(Matches(copy, e, kMark));
  Img<int16_t> copy16(9, 7, 3, kMark16);
  ASSERT_EQ(tvxFilterCorrNxNu8s16(centre, 3, 0, src.data(), 9, 7, src.stride(), copy16.data(), copy16.stride()), 0);
  EXPECT_TRUE(Matches(copy16, e, kMark16));

  // All ones, shift 3, constant 8: (72 + 4) >> 3 = 9.
  const int8_t ones[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
  Img<uint8_t> eight(6, 5, 0, 8), nine(6, 5, 0, kMark);
  ASSERT_EQ(tvxFilterCorrNxNu8(ones, 3, 3, eight.data(), 6, 5, 6, nine.data(), 6), 0);
  EXPECT_EQ(nine.at(1, 1), 9);
  EXPECT_EQ(nine.at(4, 3), 9);
  EXPECT_EQ(nine.at(0, 0), kMark);
  EXPECT_EQ(nine.at(5, 2), kMark);
  const float onesF[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
  Img<float> sum(6, 5, 0, -1.0f);
  ASSERT_EQ(tvxFilterCorrNxNu8f32(onesF, 3, eight.data(), 6, 5, 6, sum.data(), sum.stride()), 0);
  EXPECT_EQ(sum.at(2, 2), 72.0f);
  EXPECT_EQ(sum.at(0, 2), -1.0f);
}

TEST_F(ConvTest, CorrNxNShiftRoundingAndSaturation) {
  Img<uint8_t> src(5, 5, 0, 0);
  auto run16 = [&](int k, int shift, uint8_t pixel) {
    std::fill(src.px.begin(), src.px.end(), pixel);
    int8_t kernel[9] = {};
    kernel[4] = int8_t(k);
    Img<int16_t> d(5, 5, 0, kMark16);
    EXPECT_EQ(tvxFilterCorrNxNu8s16(kernel, 3, shift, src.data(), 5, 5, 5, d.data(), 10), 0);
    return int(d.at(2, 2));
  };
  auto run8 = [&](int k, int shift, uint8_t pixel) {
    std::fill(src.px.begin(), src.px.end(), pixel);
    int8_t kernel[9] = {};
    kernel[4] = int8_t(k);
    Img<uint8_t> d(5, 5, 0, kMark);
    EXPECT_EQ(tvxFilterCorrNxNu8(kernel, 3, shift, src.data(), 5, 5, 5, d.data(), 5), 0);
    return int(d.at(2, 2));
  };
  EXPECT_EQ(run8(3, 1, 5), 8);      // (15 + 1) >> 1
  EXPECT_EQ(run16(-3, 1, 5), -7);   // (-15 + 1) >> 1, arithmetic
  EXPECT_EQ(run16(-3, 2, 5), -4);   // (-15 + 2) >> 2
  EXPECT_EQ(run8(-3, 1, 5), 0);     // negative sums clamp to 0
  EXPECT_EQ(run8(1, -2, 50), 200);  // negative shift multiplies
  EXPECT_EQ(run8(1, -2, 100), 255);
  EXPECT_EQ(run16(100, -8, 200), 32767);
  EXPECT_EQ(run16(-128, -8, 200), -32768);
  EXPECT_EQ(run16(1, -40, 1), 32767);   // very large left shifts still saturate
  EXPECT_EQ(run16(-1, -40, 1), -32768);
  EXPECT_EQ(run16(127, 40, 255), 0);    // very large right shifts round to 0

  // Nine taps at their extremes.
  const int8_t big[9] = {127, 127, 127, 127, 127, 127, 127, 127, 127};
  const int8_t low[9] = {-128, -128, -128, -128, -128, -128, -128, -128, -128};
  std::fill(src.px.begin(), src.px.end(), 255);
  Img<uint8_t> d8(5, 5);
  Img<int16_t> d16(5, 5);
  ASSERT_EQ(tvxFilterCorrNxNu8(big, 3, 0, src.data(), 5, 5, 5, d8.data(), d8.stride()), 0);
  EXPECT_EQ(d8.at(2, 2), 255);
  ASSERT_EQ(tvxFilterCorrNxNu8s16(big, 3, 4, src.data(), 5, 5, 5, d16.data(), d16.stride()), 0);
  EXPECT_EQ(d16.at(2, 2), 18217);  // (291465 + 8) >> 4
  ASSERT_EQ(tvxFilterCorrNxNu8s16(low, 3, 0, src.data(), 5, 5, 5, d16.data(), d16.stride()), 0);
  EXPECT_EQ(d16.at(1, 3), -32768);
}

TEST_F(ConvTest, CorrNxNMatchesModelOnRandomImages) {
  for (uint32_t N : {1u, 2u, 3u, 4u, 5u, 7u, 9u}) {
    for (int trial = 0; trial < 3; ++trial) {
      SCOPED_TRACE(::testing::Message() << "N " << N << " trial " << trial);
      const uint32_t w = N + 1 + rng_() % 20, h = N + 1 + rng_() % 9;
      const int shift = int(rng_() % 16) - 3;
      Img<uint8_t> src(w, h, rng_() % 5);
      src.Random(rng_, 0, 255);
      const std::vector<int> k = RandomKernel(rng_, N * N, -128, 127);
      const std::vector<int8_t> k8 = As<int8_t>(k);
      Img<uint8_t> d8(w, h, 2, kMark);
      ASSERT_EQ(tvxFilterCorrNxNu8(k8.data(), N, shift, src.data(), w, h, src.stride(), d8.data(), d8.stride()), 0);
      EXPECT_TRUE(Matches(d8, CorrModel(src, k, N, shift, 0, 255), kMark));
      Img<int16_t> d16(w, h, 1, kMark16);
      ASSERT_EQ(tvxFilterCorrNxNu8s16(k8.data(), N, shift, src.data(), w, h, src.stride(), d16.data(), d16.stride()), 0);
      EXPECT_TRUE(Matches(d16, CorrModel(src, k, N, shift, -32768, 32767), kMark16));
    }
  }
}

TEST_F(ConvTest, CorrNxNFloatSumsInKernelOrder) {
  for (uint32_t N : {2u, 3u, 5u}) {
    const uint32_t w = 13, h = 8;
    Img<uint8_t> src(w, h);
    src.Random(rng_, 0, 255);
    std::vector<float> k(N * N);
    std::uniform_real_distribution<float> dist(-2.0f, 2.0f);
    for (float& v : k) v = dist(rng_);
    Img<float> d(w, h, 1, -7.0f);
    ASSERT_EQ(tvxFilterCorrNxNu8f32(k.data(), N, src.data(), w, h, src.stride(), d.data(), d.stride()), 0);
    const uint32_t c = N / 2;
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < d.pitch; ++x) {
        const bool interior = x >= c && x + c < w && y >= c && y + c < h;
        float s = 0.0f;
        if (interior)
          for (uint32_t i = 0; i < N; ++i)
            for (uint32_t j = 0; j < N; ++j) s = s + k[i * N + j] * float(src.at(x - c + j, y - c + i));
        EXPECT_EQ(d.at(x, y), interior ? s : -7.0f) << x << ", " << y << " N " << N;
      }
  }
}

TEST_F(ConvTest, CorrNxNRejectsBadArgumentsWithoutWriting) {
  Img<uint8_t> src(8, 8, 0, 10), d8(8, 8, 0, kMark);
  Img<int16_t> d16(8, 8, 0, kMark16);
  Img<float> df(8, 8, 0, 1.5f);
  const int8_t k[16] = {1};
  const float kf[16] = {1.0f};
  struct Case { uint32_t N, w, h, srcStride, dstStride; };
  // srcWidth or srcHeight equal to N, N zero, strides below the width.
  for (const Case& c : {Case{3, 3, 8, 8, 8}, Case{3, 8, 3, 8, 8}, Case{0, 8, 8, 8, 8}, Case{3, 8, 8, 7, 8},
                        Case{3, 8, 8, 8, 7}, Case{8, 8, 8, 8, 8}}) {
    EXPECT_EQ(tvxFilterCorrNxNu8(k, c.N, 0, src.data(), c.w, c.h, c.srcStride, d8.data(), c.dstStride), 3);
    EXPECT_EQ(tvxFilterCorrNxNu8s16(k, c.N, 0, src.data(), c.w, c.h, c.srcStride, d16.data(), 2 * c.dstStride), 3);
    EXPECT_EQ(tvxFilterCorrNxNu8f32(kf, c.N, src.data(), c.w, c.h, c.srcStride, df.data(), 4 * c.dstStride), 3);
  }
  EXPECT_EQ(tvxFilterCorrNxNu8(nullptr, 3, 0, src.data(), 8, 8, 8, d8.data(), 8), 3);
  EXPECT_EQ(tvxFilterCorrNxNu8(k, 3, 0, nullptr, 8, 8, 8, d8.data(), 8), 3);
  EXPECT_EQ(tvxFilterCorrNxNu8(k, 3, 0, src.data(), 8, 8, 8, nullptr, 8), 3);
  // The wider outputs need their element size in the destination stride.
  EXPECT_EQ(tvxFilterCorrNxNu8s16(k, 3, 0, src.data(), 8, 8, 8, d16.data(), 15), 3);
  EXPECT_EQ(tvxFilterCorrNxNu8f32(kf, 3, src.data(), 8, 8, 8, df.data(), 31), 3);
  EXPECT_TRUE(Untouched(d8, kMark));
  EXPECT_TRUE(Untouched(d16, kMark16));
  EXPECT_TRUE(Untouched(df, 1.5f));
  EXPECT_TRUE(g_lines.empty());
  // One past the limits is accepted.
  EXPECT_EQ(tvxFilterCorrNxNu8(k, 3, 0, src.data(), 4, 4, 8, d8.data(), 8), 0);
}

// ---- 3x3 signed-kernel correlation ------------------------------------------------------------

TEST_F(ConvTest, Corr3x3MatchesModelAndKeepsTheFrame) {
  for (uint32_t w : {3u, 4u, 17u, 40u}) {
    const uint32_t h = 3 + w % 5;
    Img<uint8_t> src(w, h);
    src.Random(rng_, 0, 255);
    const std::vector<int> k = RandomKernel(rng_, 9, -128, 127);
    const std::vector<int8_t> k8 = As<int8_t>(k);
    const int shift = int(w % 9) - 1;
    Img<uint8_t> d(w, h, 2, kMark);
    tvxFilterCorr3x3s8_v2(k8.data(), src.data(), w, h, src.stride(), d.data(), d.stride(), shift);
    EXPECT_TRUE(Matches(d, CorrModel(src, k, 3, shift, 0, 255), kMark)) << "width " << w;
  }
  // Stride 0 means packed rows.
  Img<uint8_t> src(6, 4, 0), a(6, 4, 0, kMark), b(6, 4, 0, kMark);
  src.Random(rng_, 0, 255);
  const int8_t k[9] = {1, -2, 3, -4, 5, -6, 7, -8, 9};
  tvxFilterCorr3x3s8_v2(k, src.data(), 6, 4, 0, a.data(), 0, 1);
  tvxFilterCorr3x3s8_v2(k, src.data(), 6, 4, 6, b.data(), 6, 1);
  EXPECT_EQ(a.px, b.px);
  EXPECT_FALSE(Untouched(a, kMark));
  // Below 3 x 3 there is no interior: nothing is written.
  Img<uint8_t> tiny(2, 5, 0, kMark);
  tvxFilterCorr3x3s8_v2(k, src.data(), 2, 5, 6, tiny.data(), 2, 0);
  EXPECT_TRUE(Untouched(tiny, kMark));
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(ConvTest, Corr3x3LogsItsConditionOnBadArguments) {
  const std::string line =
      "tavix_lib_log|Assertion failed @tvxFilterCorr3x3s8_v2: kernel && src && dst && srcWidth && srcHeight && "
      "(srcStride >= srcWidth) && (dstStride >= srcWidth)\n";
  Img<uint8_t> src(8, 8, 0, 1), d(8, 8, 0, kMark);
  const int8_t k[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
  tvxFilterCorr3x3s8_v2(nullptr, src.data(), 8, 8, 8, d.data(), 8, 0);
  tvxFilterCorr3x3s8_v2(k, src.data(), 8, 8, 7, d.data(), 8, 0);
  tvxFilterCorr3x3s8_v2(k, src.data(), 8, 0, 8, d.data(), 8, 0);
  EXPECT_EQ(g_lines, std::vector<std::string>(3, line));
  EXPECT_TRUE(Untouched(d, kMark));
}

// ---- valid convolution of two 16-bit images -------------------------------------------------------

TEST_F(ConvTest, ConvValidFlipsTheSecondImage) {
  // src1 3x2, src2 2x2: two outputs, src2 applied rotated by 180 degrees.
  const int16_t a[6] = {1, 2, 3, 4, 5, 6};
  const int16_t b[4] = {1, 10, 100, 1000};
  int32_t out[4] = {-1, -1, -1, -1};
  tvxConvValids16(a, 3, 2, 6, b, 2, 2, 4, out, 16);
  EXPECT_EQ(out[0], 1 * 1000 + 2 * 100 + 4 * 10 + 5 * 1);
  EXPECT_EQ(out[1], 2 * 1000 + 3 * 100 + 5 * 10 + 6 * 1);
  EXPECT_EQ(out[2], -1);
  // Sums wrap modulo 2^32: four products of 2^30.
  const int16_t m[4] = {-32768, -32768, -32768, -32768};
  int32_t wrapped = 5;
  tvxConvValids16(m, 2, 2, 4, m, 2, 2, 4, &wrapped, 4);
  EXPECT_EQ(wrapped, 0);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(ConvTest, ConvValidMatchesModel) {
  for (int trial = 0; trial < 6; ++trial) {
    const uint32_t w2 = 1 + rng_() % 5, h2 = 1 + rng_() % 4;
    const uint32_t w1 = w2 + rng_() % 12, h1 = h2 + rng_() % 6;
    Img<int16_t> a(w1, h1, trial % 3), b(w2, h2, trial % 2);
    a.Random(rng_, -32768, 32767);
    b.Random(rng_, -300, 300);
    const uint32_t ow = w1 - w2 + 1, oh = h1 - h2 + 1;
    Img<int32_t> d(ow, oh, 2, -99);
    tvxConvValids16(a.data(), w1, h1, a.stride(), b.data(), w2, h2, b.stride(), d.data(), d.stride());
    Expect e(ow, oh);
    for (uint32_t y = 0; y < oh; ++y)
      for (uint32_t x = 0; x < ow; ++x) {
        int64_t s = 0;
        for (uint32_t i = 0; i < h2; ++i)
          for (uint32_t j = 0; j < w2; ++j) s += int64_t(a.at(x + j, y + i)) * b.at(w2 - 1 - j, h2 - 1 - i);
        e.Put(x, y, s);
      }
    EXPECT_TRUE(Matches(d, e, int32_t(-99))) << "trial " << trial;
  }
}

TEST_F(ConvTest, ConvValidLogsItsCondition) {
  const std::string cond =
      "src1 && src1Width && src1Height && (src1Stride >= src1Width * sizeof (int16_t)) && src2 && src2Width && "
      "src2Height && (src2Stride >= src2Width * sizeof (int16_t)) && (src1Width >= src2Width) && (src1Height >= "
      "src2Height) && dst && (dstStride >= (src1Width -src2Width+1)*sizeof (int32_t))";
  int16_t a[16] = {}, b[4] = {};
  int32_t out[16];
  std::fill(std::begin(out), std::end(out), 7);
  tvxConvValids16(a, 2, 2, 4, b, 3, 1, 6, out, 64);   // src2 wider than src1
  tvxConvValids16(a, 4, 4, 8, b, 2, 2, 4, out, 8);    // dst stride below 3 values
  tvxConvValids16(a, 4, 4, 7, b, 2, 2, 4, out, 64);   // src1 stride below its row
  EXPECT_EQ(g_lines, std::vector<std::string>(3, "tavix_lib_log|Assertion failed @tvxConvValids16: " + cond + "\n"));
  EXPECT_TRUE(std::all_of(std::begin(out), std::end(out), [](int32_t v) { return v == 7; }));
}

// ---- MxN convolution --------------------------------------------------------------------------------

TEST_F(ConvTest, ConvolveFlipsTheKernelAndAppliesTheBorder) {
  Img<uint8_t> src(5, 4, 0);
  for (uint32_t y = 0; y < 4; ++y)
    for (uint32_t x = 0; x < 5; ++x) src.at(x, y) = uint8_t(10 * y + x);
  // A single 1 in the top-left tap of a 3x3 kernel picks the pixel down and to the right.
  const int8_t k[9] = {1, 0, 0, 0, 0, 0, 0, 0, 0};
  Img<uint8_t> rep(5, 4, 0, kMark), con(5, 4, 0, kMark), zero(5, 4, 0, kMark);
  ASSERT_EQ(tvxFilterConvolveMxNu8(k, 3, 3, 0, src.data(), 5, 4, 5, rep.data(), 5, 2, 200), 0);
  ASSERT_EQ(tvxFilterConvolveMxNu8(k, 3, 3, 0, src.data(), 5, 4, 5, con.data(), 5, 1, 200), 0);
  ASSERT_EQ(tvxFilterConvolveMxNu8(k, 3, 3, 0, src.data(), 5, 4, 5, zero.data(), 5, 0, 200), 0);
  EXPECT_EQ(rep.at(1, 1), src.at(2, 2));
  EXPECT_EQ(rep.at(4, 1), src.at(4, 2));  // replicated right edge
  EXPECT_EQ(rep.at(2, 3), src.at(3, 3));  // replicated bottom edge
  EXPECT_EQ(con.at(1, 1), src.at(2, 2));
  EXPECT_EQ(con.at(4, 1), 200);
  EXPECT_EQ(con.at(2, 3), 200);
  EXPECT_EQ(zero.px, con.px);  // type 0 is the constant border too
  // M columns by N rows: a 3x1 kernel [1 0 0] reaches one pixel right, never down.
  const int8_t row[3] = {1, 0, 0};
  Img<int16_t> d16(5, 4, 0, kMark16);
  ASSERT_EQ(tvxFilterConvolveMxNu8s16(row, 3, 1, -1, src.data(), 5, 4, 5, d16.data(), 10, 2, 0), 0);
  EXPECT_EQ(d16.at(0, 3), 2 * src.at(1, 3));
  EXPECT_EQ(d16.at(4, 3), 2 * src.at(4, 3));
}

TEST_F(ConvTest, ConvolveMatchesModelOnEveryBorder) {
  struct Size { uint32_t M, N; };
  for (const Size& ks : {Size{1, 1}, Size{3, 3}, Size{5, 5}, Size{4, 2}, Size{2, 5}, Size{7, 3}, Size{11, 11}}) {
    for (uint32_t type = 0; type <= 2; ++type) {
      SCOPED_TRACE(::testing::Message() << ks.M << "x" << ks.N << " border " << type);
      const uint32_t w = 1 + rng_() % 23, h = 1 + rng_() % 9;
      const int shift = int(rng_() % 14) - 2;
      const uint8_t value = uint8_t(rng_());
      Img<uint8_t> src(w, h, rng_() % 4);
      src.Random(rng_, 0, 255);
      const std::vector<int> k = RandomKernel(rng_, ks.M * ks.N, -128, 127);
      const std::vector<int8_t> k8 = As<int8_t>(k);
      Img<uint8_t> d8(w, h, 3, kMark);
      ASSERT_EQ(tvxFilterConvolveMxNu8(k8.data(), ks.M, ks.N, shift, src.data(), w, h, src.stride(), d8.data(),
                                       d8.stride(), type, value), 0);
      EXPECT_TRUE(Matches(d8, ConvolveModel(src, k, ks.M, ks.N, shift, type, value, 0, 255), kMark));
      Img<int16_t> d16(w, h, 1, kMark16);
      ASSERT_EQ(tvxFilterConvolveMxNu8s16(k8.data(), ks.M, ks.N, shift, src.data(), w, h, src.stride(), d16.data(),
                                          d16.stride(), type, value), 0);
      EXPECT_TRUE(Matches(d16, ConvolveModel(src, k, ks.M, ks.N, shift, type, value, -32768, 32767), kMark16));
    }
  }
}

TEST_F(ConvTest, ConvolveBigKernelsMatchModel) {
  // 64 x 64 and 100 x 41 taps take the spectral path.
  struct Size { uint32_t M, N; };
  for (const Size& ks : {Size{64, 64}, Size{100, 41}}) {
    const uint32_t w = 50, h = 30;
    Img<uint8_t> src(w, h, 1);
    src.Random(rng_, 0, 255);
    const std::vector<int> k = RandomKernel(rng_, ks.M * ks.N, -128, 127);
    const std::vector<int8_t> k8 = As<int8_t>(k);
    Img<int16_t> d16(w, h, 1, kMark16);
    ASSERT_EQ(tvxFilterConvolveMxNu8s16(k8.data(), ks.M, ks.N, 9, src.data(), w, h, src.stride(), d16.data(),
                                        d16.stride(), 2, 0), 0);
    EXPECT_TRUE(Matches(d16, ConvolveModel(src, k, ks.M, ks.N, 9, 2, 0, -32768, 32767), kMark16));
    Img<uint8_t> d8(w, h, 0, kMark);
    ASSERT_EQ(tvxFilterConvolveMxNu8(k8.data(), ks.M, ks.N, 12, src.data(), w, h, src.stride(), d8.data(),
                                     d8.stride(), 1, 77), 0);
    EXPECT_TRUE(Matches(d8, ConvolveModel(src, k, ks.M, ks.N, 12, 1, 77, 0, 255), kMark));
  }
}

// Both paths of the convolution give identical 32-bit sums, for kernel sizes on both sides of
// the switch-over and images with extreme values.
TEST_F(ConvTest, SpectralSumsEqualDirectSums) {
  struct Case { uint32_t M, N, w, h; };
  for (const Case& c : {Case{3, 3, 17, 9}, Case{5, 4, 1, 1}, Case{31, 33, 50, 40}, Case{32, 32, 64, 64},
                        Case{48, 40, 70, 33}, Case{2, 64, 9, 70}, Case{64, 70, 40, 30}}) {
    for (int fill = 0; fill < 3; ++fill) {
      SCOPED_TRACE(::testing::Message() << c.M << "x" << c.N << " on " << c.w << "x" << c.h << " fill " << fill);
      Img<uint8_t> src(c.w, c.h, 2);
      src.Random(rng_, fill == 1 ? 255 : 0, 255);
      // Kernels of random signs or all at an extreme: the largest sums either way.
      std::vector<int> k = RandomKernel(rng_, c.M * c.N, -128, 127);
      if (fill == 1) std::fill(k.begin(), k.end(), 127);
      if (fill == 2) std::fill(k.begin(), k.end(), -128);
      const std::vector<int8_t> k8 = As<int8_t>(k);
      std::vector<int32_t> direct(size_t(c.w) * c.h), spectral(direct.size());
      const uint32_t type = uint32_t(fill);
      tvx::conv::ConvolveSumsDirect(k8.data(), c.M, c.N, src.data(), c.w, c.h, src.stride(), type, 255,
                                    direct.data());
      ASSERT_TRUE(tvx::conv::ConvolveSumsSpectral(k8.data(), c.M, c.N, src.data(), c.w, c.h, src.stride(), type, 255,
                                                  spectral.data()));
      EXPECT_EQ(direct, spectral);
    }
  }
}

TEST_F(ConvTest, ConvolveRejectsBadArgumentsWithoutWriting) {
  Img<uint8_t> src(8, 8, 0, 3), d8(8, 8, 0, kMark);
  Img<int16_t> d16(8, 8, 0, kMark16);
  const int8_t k[9] = {1};
  EXPECT_EQ(tvxFilterConvolveMxNu8(k, 3, 3, 0, src.data(), 8, 8, 8, d8.data(), 8, 3, 0), 3);
  EXPECT_EQ(tvxFilterConvolveMxNu8(k, 0, 3, 0, src.data(), 8, 8, 8, d8.data(), 8, 2, 0), 3);
  EXPECT_EQ(tvxFilterConvolveMxNu8(k, 3, 0, 0, src.data(), 8, 8, 8, d8.data(), 8, 2, 0), 3);
  EXPECT_EQ(tvxFilterConvolveMxNu8(nullptr, 3, 3, 0, src.data(), 8, 8, 8, d8.data(), 8, 2, 0), 3);
  EXPECT_EQ(tvxFilterConvolveMxNu8(k, 3, 3, 0, src.data(), 0, 8, 8, d8.data(), 8, 2, 0), 3);
  EXPECT_EQ(tvxFilterConvolveMxNu8(k, 3, 3, 0, src.data(), 8, 8, 7, d8.data(), 8, 2, 0), 3);
  EXPECT_EQ(tvxFilterConvolveMxNu8(k, 3, 3, 0, src.data(), 8, 8, 8, d8.data(), 7, 2, 0), 3);
  EXPECT_EQ(tvxFilterConvolveMxNu8s16(k, 3, 3, 0, src.data(), 8, 8, 8, d16.data(), 15, 2, 0), 3);
  EXPECT_EQ(tvxFilterConvolveMxNu8s16(k, 3, 3, 0, src.data(), 8, 8, 8, d16.data(), 16, 7, 0), 3);
  EXPECT_EQ(tvxFilterConvolveMxNu8s16(k, 3, 3, 0, src.data(), 8, 8, 8, nullptr, 16, 2, 0), 3);
  // The variants refuse an unknown border themselves.
  EXPECT_EQ(tvxFilterConvolveMxNu8C(k, 3, 3, 0, src.data(), 8, 8, 8, d8.data(), 8, 3, 0), 3);
  EXPECT_TRUE(Untouched(d8, kMark));
  EXPECT_TRUE(Untouched(d16, kMark16));
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(ConvTest, SpectralPathReportsMissingMemory) {
  // 4096 x 1 taps over a 1 x 65537 column pad to 4096 x 131072 complex values: more than the
  // 4 GiB a block can hold, so the call fails with status 5 and writes nothing.
  const uint32_t h = 65537;
  std::vector<int8_t> k(4096, 1);
  Img<uint8_t> src(1, h, 0, 9), d8(1, h, 0, kMark);
  EXPECT_EQ(tvxFilterConvolveMxNu8(k.data(), 4096, 1, 0, src.data(), 1, h, 1, d8.data(), 1, 2, 0), 5);
  EXPECT_EQ(tvxFilterConvolveMxNu8V(k.data(), 4096, 1, 0, src.data(), 1, h, 1, d8.data(), 1, 2, 0), 5);
  EXPECT_TRUE(Untouched(d8, kMark));
}

// ---- separable forms ---------------------------------------------------------------------------------

TEST_F(ConvTest, CorrSepU8EqualsTheOuterProductKernel) {
  struct Size { uint32_t M, N; };
  for (const Size& ks : {Size{3, 3}, Size{5, 1}, Size{1, 4}, Size{7, 5}, Size{17, 17}}) {
    SCOPED_TRACE(::testing::Message() << ks.M << "x" << ks.N);
    const uint32_t w = ks.M + 1 + rng_() % 20, h = ks.N + 1 + rng_() % 7;
    Img<uint8_t> src(w, h, 1);
    src.Random(rng_, 0, 255);
    const std::vector<int> kx = RandomKernel(rng_, ks.M, -128, 127), ky = RandomKernel(rng_, ks.N, -128, 127);
    const std::vector<int8_t> kx8 = As<int8_t>(kx), ky8 = As<int8_t>(ky);
    const int shift = (ks.M * ks.N > 20 ? 17 : 14) + int(rng_() % 2);
    Img<uint8_t> d(w, h, 2, kMark);
    ASSERT_EQ(tvxFilterCorrSepMxNu8(kx8.data(), ky8.data(), ks.M, ks.N, shift, src.data(), w, h, src.stride(),
                                    d.data(), d.stride()), 0);
    Expect e(w, h);
    for (uint32_t y = ks.N / 2; y + ks.N / 2 < h; ++y)
      for (uint32_t x = ks.M / 2; x + ks.M / 2 < w; ++x) {
        int64_t s = 0;
        for (uint32_t i = 0; i < ks.N; ++i)
          for (uint32_t j = 0; j < ks.M; ++j)
            s += int64_t(ky[i]) * kx[j] * src.at(x - ks.M / 2 + j, y - ks.N / 2 + i);
        e.Put(x, y, Scale(s, shift, 0, 255));
      }
    EXPECT_TRUE(Matches(d, e, kMark));
  }
  // Sizes at the image size are refused.
  const int8_t k[4] = {1, 1, 1, 1};
  Img<uint8_t> src(4, 4), d(4, 4, 0, kMark);
  EXPECT_EQ(tvxFilterCorrSepMxNu8(k, k, 4, 3, 0, src.data(), 4, 4, 4, d.data(), 4), 3);
  EXPECT_EQ(tvxFilterCorrSepMxNu8(k, k, 3, 4, 0, src.data(), 4, 4, 4, d.data(), 4), 3);
  EXPECT_EQ(tvxFilterCorrSepMxNu8(k, nullptr, 3, 3, 0, src.data(), 4, 4, 4, d.data(), 4), 3);
  EXPECT_TRUE(Untouched(d, kMark));
}

// Two Q15 passes, each rounded and saturated to s16.
Expect CorrSepS16Model(const Img<int16_t>& src, const std::vector<int>& kx, const std::vector<int>& ky) {
  const uint32_t N = uint32_t(kx.size()), c = N / 2;
  auto q15 = [](int64_t s) { return Scale(s, 15, -32768, 32767); };
  std::vector<int64_t> across(size_t(src.w) * src.h);
  for (uint32_t y = 0; y < src.h; ++y)
    for (uint32_t x = c; x + c < src.w; ++x) {
      int64_t s = 0;
      for (uint32_t j = 0; j < N; ++j) s += int64_t(kx[j]) * src.at(x - c + j, y);
      across[size_t(y) * src.w + x] = q15(s);
    }
  Expect e(src.w, src.h);
  for (uint32_t y = c; y + c < src.h; ++y)
    for (uint32_t x = c; x + c < src.w; ++x) {
      int64_t s = 0;
      for (uint32_t i = 0; i < N; ++i) s += int64_t(ky[i]) * across[size_t(y - c + i) * src.w + x];
      e.Put(x, y, q15(s));
    }
  return e;
}

using SepFixed = int32_t (*)(const int16_t*, const int16_t*, const int16_t*, uint32_t, uint32_t, uint32_t, int16_t*,
                             uint32_t);

TEST_F(ConvTest, CorrSepS16RoundsEachPass) {
  const std::pair<uint32_t, SepFixed> fixed[] = {{9, &tvxFilterCorrSep9x9s16},
                                                 {11, &tvxFilterCorrSep11x11s16},
                                                 {13, &tvxFilterCorrSep13x13s16},
                                                 {15, &tvxFilterCorrSep15x15s16},
                                                 {17, &tvxFilterCorrSep17x17s16}};
  for (const auto& [N, fn] : fixed) {
    SCOPED_TRACE(::testing::Message() << "N " << N);
    // Half in the centre of both kernels: round(round(p / 2) / 2), with stride 0 for packed rows.
    std::vector<int16_t> half(N, 0);
    half[N / 2] = 16384;
    const uint32_t w = N + 3, h = N + 2;
    Img<int16_t> src(w, h, 0, 0), d(w, h, 0, kMark16);
    src.at(N / 2 + 1, N / 2 + 1) = 100;
    src.at(N / 2 + 2, N / 2 + 1) = -3;
    src.at(N / 2 + 1, N / 2) = 32767;
    ASSERT_EQ(fn(half.data(), half.data(), src.data(), w, h, 0, d.data(), 0), 0);
    EXPECT_EQ(d.at(N / 2 + 1, N / 2 + 1), 25);
    EXPECT_EQ(d.at(N / 2 + 2, N / 2 + 1), 0);     // -3 -> -1 -> 0
    EXPECT_EQ(d.at(N / 2 + 1, N / 2), 8192);      // 32767 -> 16384 -> 8192
    EXPECT_EQ(d.at(0, 0), kMark16);
    // Random Q15 kernels of modest weight against the two-pass model.
    std::vector<int> kx = RandomKernel(rng_, N, -3000, 3000), ky = RandomKernel(rng_, N, -3000, 3000);
    Img<int16_t> r(w + 5, h + 1, 2), out(w + 5, h + 1, 1, kMark16);
    r.Random(rng_, -32768, 32767);
    const std::vector<int16_t> kx16 = As<int16_t>(kx), ky16 = As<int16_t>(ky);
    ASSERT_EQ(fn(kx16.data(), ky16.data(), r.data(), r.w, r.h, r.stride(), out.data(), out.stride()), 0);
    EXPECT_TRUE(Matches(out, CorrSepS16Model(r, kx, ky), kMark16));
    // Width equal to the kernel size is refused.
    EXPECT_EQ(fn(kx16.data(), ky16.data(), r.data(), N, r.h, r.stride(), out.data(), out.stride()), 3);
  }
  // Saturation after the first pass: 2 * 32767^2 >> 15 = 65534 -> 32767.
  std::vector<int16_t> two(5, 0), one(5, 0);
  two[1] = two[2] = 32767;
  one[2] = 32767;
  Img<int16_t> src(6, 6, 0, 32767), d(6, 6, 0, kMark16);
  ASSERT_EQ(tvxFilterCorrSepNxNs16(two.data(), one.data(), 5, src.data(), 6, 6, 12, d.data(), 12), 0);
  EXPECT_EQ(d.at(2, 2), 32766);  // 32767 * 32767 + 2^14 >> 15
  for (uint32_t N : {1u, 2u, 4u, 7u}) {
    const std::vector<int> kx = RandomKernel(rng_, N, -8000, 8000), ky = RandomKernel(rng_, N, -8000, 8000);
    Img<int16_t> r(N + 9, N + 4, 1), out(N + 9, N + 4, 0, kMark16);
    r.Random(rng_, -32768, 32767);
    const std::vector<int16_t> kx16 = As<int16_t>(kx), ky16 = As<int16_t>(ky);
    ASSERT_EQ(tvxFilterCorrSepNxNs16(kx16.data(), ky16.data(), N, r.data(), r.w, r.h, r.stride(), out.data(),
                                     out.stride()), 0);
    EXPECT_TRUE(Matches(out, CorrSepS16Model(r, kx, ky), kMark16)) << "N " << N;
  }
  EXPECT_EQ(tvxFilterCorrSepNxNs16(two.data(), one.data(), 0, src.data(), 6, 6, 12, d.data(), 12), 3);
}

TEST_F(ConvTest, ConvSepIsTheFlippedSeparableConvolution) {
  // Derivative (1, 0, -1) across, smoothing (1, 2, 1) down, on a horizontal ramp 10 * x:
  // flipped, the derivative is src(x + 1) - src(x - 1), times the smoothing weight 4.
  const int16_t deriv[3] = {1, 0, -1}, smooth[3] = {1, 2, 1};
  Img<uint8_t> ramp(6, 4, 0);
  for (uint32_t y = 0; y < 4; ++y)
    for (uint32_t x = 0; x < 6; ++x) ramp.at(x, y) = uint8_t(10 * x);
  Img<int16_t> rep(6, 4, 0, kMark16), con(6, 4, 0, kMark16);
  ASSERT_EQ(tvxFilterConvSepMxNs16C(deriv, smooth, 3, 3, 1, ramp.data(), 6, 4, 6, rep.data(), 12, 2, 0), 0);
  ASSERT_EQ(tvxFilterConvSepMxNs16C(deriv, smooth, 3, 3, 1, ramp.data(), 6, 4, 6, con.data(), 12, 1, 0), 0);
  EXPECT_EQ(rep.at(2, 2), 40);  // 4 * 20 >> 1
  EXPECT_EQ(rep.at(0, 1), 20);  // replicated left edge: 4 * (10 - 0) >> 1
  EXPECT_EQ(rep.at(5, 3), 20);
  EXPECT_EQ(con.at(2, 0), 30);  // constant 0 above: (1 + 2) * 20 >> 1
  EXPECT_EQ(con.at(0, 2), 20);  // 4 * (10 - 0) >> 1
  EXPECT_EQ(con.at(5, 2), -80);  // (4 * (0 - 40) + 1) >> 1
  EXPECT_EQ(tvxFilterConvSepMxNs16C(deriv, smooth, 3, 3, 0, ramp.data(), 6, 4, 6, con.data(), 12, 5, 0), 3);

  for (uint32_t type = 0; type <= 2; ++type) {
    const uint32_t M = 1 + rng_() % 7, N = 1 + rng_() % 7, w = 1 + rng_() % 20, h = 1 + rng_() % 8;
    const std::vector<int> kx = RandomKernel(rng_, M, -300, 300), ky = RandomKernel(rng_, N, -300, 300);
    std::vector<int> k2(size_t(M) * N);
    for (uint32_t i = 0; i < N; ++i)
      for (uint32_t j = 0; j < M; ++j) k2[i * M + j] = ky[i] * kx[j];
    Img<uint8_t> src(w, h, 1);
    src.Random(rng_, 0, 255);
    Img<int16_t> d(w, h, 1, kMark16);
    const std::vector<int16_t> kx16 = As<int16_t>(kx), ky16 = As<int16_t>(ky);
    ASSERT_EQ(tvxFilterConvSepMxNs16C(kx16.data(), ky16.data(), M, N, 12, src.data(), w, h, src.stride(), d.data(),
                                      d.stride(), type, 33), 0);
    EXPECT_TRUE(Matches(d, ConvolveModel(src, k2, M, N, 12, type, 33, -32768, 32767), kMark16)) << "type " << type;
  }
}

// ---- tier downgrades ---------------------------------------------------------------------------------

int g_slot = -1;
template <int kSlot>
int32_t SpySep(const int16_t*, const int16_t*, const int16_t*, uint32_t, uint32_t, uint32_t, int16_t*, uint32_t) {
  g_slot = kSlot;
  return 0;
}
template <int kSlot>
void SpyCorr3x3(const int8_t*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, int32_t) {
  g_slot = kSlot;
}

// The remote tier stays only for work of at least 25345 (2 x width x height for the separable
// 9x9), widths a multiple of 4 and aligned buffers while the constraint checks are on.
TEST_F(ConvTest, RemoteTierNeedsEnoughAlignedWork) {
  const uint32_t sepRow = TVX_ROW_tvxFilterCorrSep9x9s16, corrRow = TVX_ROW_tvxFilterCorr3x3s8_v2;
  void* savedSep[TVX_NUM_IMPL];
  void* savedCorr[TVX_NUM_IMPL];
  std::copy(std::begin(tvxFuncTable[sepRow]), std::end(tvxFuncTable[sepRow]), savedSep);
  std::copy(std::begin(tvxFuncTable[corrRow]), std::end(tvxFuncTable[corrRow]), savedCorr);
  tvxFuncTable[sepRow][1] = reinterpret_cast<void*>(&SpySep<1>);
  tvxFuncTable[sepRow][5] = reinterpret_cast<void*>(&SpySep<5>);
  tvxFuncTable[corrRow][1] = reinterpret_cast<void*>(&SpyCorr3x3<1>);
  tvxFuncTable[corrRow][5] = reinterpret_cast<void*>(&SpyCorr3x3<5>);
  tvxImplTable[sepRow] = tvxImplTable[corrRow] = 5;
  alignas(16) static int16_t buf16[2][200 * 200];
  alignas(16) static uint8_t buf8[2][200 * 200];
  const int16_t k16[9] = {};
  const int8_t k8[9] = {};
  struct Case { uint32_t flag, width, height, offset; int slot; };
  for (const Case& c : {Case{1, 128, 100, 0, 5}, Case{1, 128, 99, 0, 1}, Case{1, 126, 110, 0, 1},
                        Case{1, 128, 100, 1, 1}, Case{0, 126, 20, 1, 5}}) {
    HW_constraint_checks_enable = c.flag;
    g_slot = -1;
    tvxFilterCorrSep9x9s16(k16, k16, buf16[0] + c.offset, c.width, c.height, 0, buf16[1], 0);
    EXPECT_EQ(g_slot, c.slot) << "separable " << c.width << "x" << c.height << " flag " << c.flag;
  }
  for (const Case& c : {Case{1, 176, 145, 0, 5}, Case{1, 176, 144, 0, 1}, Case{1, 174, 150, 0, 1},
                        Case{1, 176, 145, 2, 1}, Case{0, 6, 3, 2, 5}}) {
    HW_constraint_checks_enable = c.flag;
    g_slot = -1;
    tvxFilterCorr3x3s8_v2(k8, buf8[0] + c.offset, c.width, c.height, 0, buf8[1], 0, 0);
    EXPECT_EQ(g_slot, c.slot) << "3x3 " << c.width << "x" << c.height << " flag " << c.flag;
  }
  std::copy(std::begin(savedSep), std::end(savedSep), tvxFuncTable[sepRow]);
  std::copy(std::begin(savedCorr), std::end(savedCorr), tvxFuncTable[corrRow]);
  tvxImplTable[sepRow] = tvxImplTable[corrRow] = 0;
  HW_constraint_checks_enable = 1;
}

}  // namespace
