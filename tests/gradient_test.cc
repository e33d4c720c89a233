// Gradients and Sobel through their public entries: worked values (ramps, an impulse for the
// arithmetic shift, saturation), a brute-force model of every 3x3 form on random padded
// images, the full-size Sobel against a direct 2D convolution for every border type, argument
// rejection (log lines, status 3, nothing written) and the Sobel magnitude's tier rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;
using tvxtest::AssertLine;

constexpr uint8_t kMark = 0xEE;

// A byte image with padding; pixel (x, y) at y * stride + x.
struct Img {
  uint32_t w, h, stride;
  std::vector<uint8_t> px;
  Img(uint32_t width, uint32_t height, uint32_t pad = 0) : w(width), h(height), stride(width + pad),
      px(size_t(width + pad) * height + 1, kMark) {}
  uint8_t& at(uint32_t x, uint32_t y) { return px[size_t(y) * stride + x]; }
  int p(int x, int y) const { return px[size_t(y) * stride + x]; }
  template <typename F> void Set(F f) {
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) at(x, y) = static_cast<uint8_t>(f(x, y));
  }
};

// Output planes of T with stride in elements; every element starts as a marker value.
template <typename T>
struct Plane {
  uint32_t strideElems;
  std::vector<T> v;
  T mark;
  Plane(uint32_t strideE, uint32_t rows, T m) : strideElems(strideE), v(size_t(strideE) * rows, m), mark(m) {}
  T* data() { return v.data(); }
  uint32_t strideBytes() const { return strideElems * sizeof(T); }
  T at(uint32_t x, uint32_t y) const { return v[size_t(y) * strideElems + x]; }
  bool Untouched() const { return std::all_of(v.begin(), v.end(), [&](T e) { return std::memcmp(&e, &mark, sizeof(T)) == 0; }); }
};

class GradientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
    std::fill(std::begin(tvxImplTable), std::end(tvxImplTable), 0u);
  }
  void TearDown() override {
    tvx_set_log_sink(nullptr);
    HW_constraint_checks_enable = 1;
  }
  std::mt19937 rng_{31};
};

// Kernel-weight models: gx and gy as weighted sums over the 3x3 window (weights [dy][dx]).
struct Weights { int x[3][3], y[3][3]; };
const Weights kCentral = {{{0, 0, 0}, {-1, 0, 1}, {0, 0, 0}}, {{0, -1, 0}, {0, 0, 0}, {0, 1, 0}}};
const Weights kSobel = {{{-1, 0, 1}, {-2, 0, 2}, {-1, 0, 1}}, {{-1, -2, -1}, {0, 0, 0}, {1, 2, 1}}};
const Weights kScharr = {{{-3, 0, 3}, {-10, 0, 10}, {-3, 0, 3}}, {{-3, -10, -3}, {0, 0, 0}, {3, 10, 3}}};

int Apply(const int (&k)[3][3], const Img& img, int x, int y) {
  int s = 0;
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i < 3; ++i) s += k[j][i] * img.p(x + i - 1, y + j - 1);
  return s;
}
int FloorDiv8(int v) { return v >= 0 ? v / 8 : -((-v + 7) / 8); }

// ---- worked values ---------------------------------------------------------------------------

TEST_F(GradientTest, RampGivesItsSlopeInEveryForm) {
  Img img(9, 6);
  img.Set([](int x, int y) { return 3 * x + 5 * y; });
  Plane<int16_t> inter(2 * 7, 4, -999), dx(9, 6, -999), dy(9, 6, -999);
  tvxImageGradientInterleaveds16_v2(img.px.data(), 9, 6, 0, inter.data(), 0);
  tvxImageGradientSobelPlanars16_v2(img.px.data(), 9, 6, 9, dx.data(), dy.data(), 0);
  Plane<float> fx(9, 6, -1.0f), fy(9, 6, -1.0f);
  tvxImageGradientSobelPlanarf32(img.px.data(), 9, 6, 9, fx.data(), fy.data());
  Plane<int16_t> raw(2 * 7, 4, -999);
  tvxImageGradientSobelInterleaveds16_v3(img.px.data(), 9, 6, 9, raw.data(), 0);
  Img mag(9, 6);
  tvxFilterSobel3x3u8(img.px.data(), 9, 6, mag.px.data());
  for (uint32_t y = 1; y < 5; ++y) {
    for (uint32_t x = 1; x < 8; ++x) {
      EXPECT_EQ(inter.at(2 * (x - 1), y - 1), 6);
      EXPECT_EQ(inter.at(2 * (x - 1) + 1, y - 1), 10);
      EXPECT_EQ(dx.at(x, y), 3);  // Sobel 24 >> 3
      EXPECT_EQ(dy.at(x, y), 5);  // Sobel 40 >> 3
      EXPECT_EQ(fx.at(x, y), 3.0f);
      EXPECT_EQ(fy.at(x, y), 5.0f);
      EXPECT_EQ(raw.at(2 * (x - 1), y - 1), 24);
      EXPECT_EQ(raw.at(2 * (x - 1) + 1, y - 1), 40);
      EXPECT_EQ(mag.at(x, y), 64);
    }
  }
  EXPECT_EQ(dx.at(0, 0), -999);
  EXPECT_EQ(dx.at(8, 3), -999);
  EXPECT_EQ(mag.at(0, 2), kMark);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(GradientTest, ShiftedSobelRoundsTowardsMinusInfinity) {
  Img img(5, 5, 0);
  img.Set([](int x, int y) { return (x == 2 && y == 2) ? 255 : 0; });
  Plane<int16_t> dx(5, 5, 0), dy(5, 5, 0);
  Plane<int8_t> bx(5, 5, 0), by(5, 5, 0);
  Plane<float> fx(5, 5, 0), fy(5, 5, 0);
  tvxImageGradientSobelPlanars16(img.px.data(), 5, 5, 5, dx.data(), dy.data());
  tvxImageGradientSobelPlanars8(img.px.data(), 5, 5, 5, bx.data(), by.data());
  tvxImageGradientSobelPlanarf32_v2(img.px.data(), 5, 5, 5, fx.data(), fy.data(), 0);
  // Left of the impulse gx = 510, right of it -510: 63 and -64 (not -63) after >> 3.
  EXPECT_EQ(dx.at(1, 2), 63);
  EXPECT_EQ(dx.at(3, 2), -64);
  EXPECT_EQ(dy.at(2, 3), -64);
  EXPECT_EQ(bx.at(3, 2), -64);
  EXPECT_EQ(by.at(2, 1), 63);
  EXPECT_EQ(fx.at(3, 2), -63.75f);
  EXPECT_EQ(fy.at(1, 1), 31.875f);  // 255 * 0.125 from the corner tap
  EXPECT_EQ(dx.at(3, 3), -32);      // -255 >> 3
}

TEST_F(GradientTest, SobelMagnitudeSaturatesAt255) {
  Img img(8, 5, 3);
  img.Set([](int x, int) { return x < 4 ? 0 : 255; });
  Img out(8, 5, 2);
  tvxFilterSobel3x3u8_v2(img.px.data(), 8, 5, img.stride, out.px.data(), out.stride);
  for (uint32_t y = 1; y < 4; ++y) {
    EXPECT_EQ(out.at(2, y), 0);
    EXPECT_EQ(out.at(3, y), 255);  // |gx| = 1020
    EXPECT_EQ(out.at(4, y), 255);
    EXPECT_EQ(out.at(5, y), 0);
    EXPECT_EQ(out.at(8, y), kMark);  // padding
  }
}

TEST_F(GradientTest, ConstantImageGivesZeroGradients) {
  Img img(10, 7);
  img.Set([](int, int) { return 77; });
  Plane<int16_t> dx(10, 7, 5), dy(10, 7, 5);
  Plane<float> g(2 * 8, 5, 5.0f);
  tvxImageGradientPlanars16(img.px.data(), 10, 7, 10, dx.data(), dy.data());
  tvxImageGradientSobelInterleavedf32(img.px.data(), 10, 7, 10, g.data());
  for (uint32_t y = 1; y < 6; ++y)
    for (uint32_t x = 1; x < 9; ++x) {
      EXPECT_EQ(dx.at(x, y), 0);
      EXPECT_EQ(dy.at(x, y), 0);
      EXPECT_EQ(g.at(2 * (x - 1), y - 1), 0.0f);
    }
  EXPECT_EQ(dx.at(0, 3), 5);
}

TEST_F(GradientTest, ImagesNarrowerOrShorterThanThreeAreLeftAlone) {
  for (auto [w, h] : {std::pair{2u, 9u}, std::pair{9u, 2u}, std::pair{1u, 1u}}) {
    Img img(w, h);
    img.Set([](int x, int y) { return x * 40 + y * 90; });
    Plane<int16_t> a(2 * 9, 9, 7), b(2 * 9, 9, 7);
    Plane<float> f(2 * 9, 9, 7.0f);
    Img mag(9, 9);
    tvxImageGradientInterleaveds16(img.px.data(), w, h, w, a.data());
    tvxImageGradientSobelPlanars16(img.px.data(), w, h, w, a.data(), b.data());
    tvxImageGradientSobelPlanarf32f32(reinterpret_cast<const float*>(f.data()), w, h, w * 4, f.data(), f.data() + 40);
    tvxFilterSobel3x3u8(img.px.data(), w, h, mag.px.data());
    EXPECT_TRUE(a.Untouched());
    EXPECT_TRUE(b.Untouched());
    EXPECT_TRUE(f.Untouched());
    EXPECT_TRUE(std::all_of(mag.px.begin(), mag.px.end(), [](uint8_t v) { return v == kMark; }));
  }
  EXPECT_TRUE(g_lines.empty());
}

// ---- every 3x3 form against the weight models on random padded images ---------------------------

TEST_F(GradientTest, EveryFormMatchesTheKernelModel) {
  for (auto [w, h] : {std::pair{3u, 3u}, std::pair{17u, 6u}, std::pair{40u, 9u}}) {
    SCOPED_TRACE(testing::Message() << w << "x" << h);
    Img img(w, h, 5);
    img.Set([&](int, int) { return rng_() % 4 == 0 ? 255 * (rng_() % 2) : rng_() % 256; });
    const uint32_t pairs = w - 2, ps = 2 * pairs + 3;
    Plane<int16_t> gi(ps, h - 2, -7), sgi(ps, h - 2, -7), sgr(ps, h - 2, -7), sch(ps, h - 2, -7);
    Plane<float> gif(ps, h - 2, -7.0f), sgif(ps, h - 2, -7.0f);
    tvxImageGradientInterleaveds16_v2(img.px.data(), w, h, img.stride, gi.data(), gi.strideBytes());
    tvxImageGradientInterleavedf32_v2(img.px.data(), w, h, img.stride, gif.data(), gif.strideBytes());
    tvxImageGradientSobelInterleaveds16_v2(img.px.data(), w, h, img.stride, sgi.data(), sgi.strideBytes());
    tvxImageGradientSobelInterleaveds16_v3(img.px.data(), w, h, img.stride, sgr.data(), sgr.strideBytes());
    tvxImageGradientSobelInterleavedf32_v2(img.px.data(), w, h, img.stride, sgif.data(), sgif.strideBytes());
    tvxImageGradientScharrInterleaveds16C(img.px.data(), w, h, img.stride, sch.data(), sch.strideBytes());
    const uint32_t s = w + 2;
    Plane<int16_t> px(s, h, -7), py(s, h, -7), sx(s, h, -7), sy(s, h, -7), rx(s, h, -7), ry(s, h, -7);
    Plane<int8_t> bx(s, h, -7), by(s, h, -7);
    Plane<float> fx(s, h, -7.0f), fy(s, h, -7.0f), qx(s, h, -7.0f), qy(s, h, -7.0f), ffx(s, h, -7.0f), ffy(s, h, -7.0f);
    tvxImageGradientPlanars16_v2(img.px.data(), w, h, img.stride, px.data(), py.data(), px.strideBytes());
    tvxImageGradientPlanarf32_v2(img.px.data(), w, h, img.stride, fx.data(), fy.data(), fx.strideBytes());
    tvxImageGradientSobelPlanars16_v2(img.px.data(), w, h, img.stride, sx.data(), sy.data(), sx.strideBytes());
    tvxImageGradientSobelPlanars16_v3(img.px.data(), w, h, img.stride, rx.data(), ry.data(), rx.strideBytes());
    tvxImageGradientSobelPlanars8_v2(img.px.data(), w, h, img.stride, bx.data(), by.data(), bx.strideBytes());
    tvxImageGradientSobelPlanarf32_v2(img.px.data(), w, h, img.stride, qx.data(), qy.data(), qx.strideBytes());
    std::vector<float> fimg(size_t(w + 1) * h);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) fimg[y * (w + 1) + x] = img.p(x, y) * 0.5f - 20.0f;
    tvxImageGradientSobelPlanarf32f32_v2(fimg.data(), w, h, (w + 1) * 4, ffx.data(), ffy.data(), ffx.strideBytes());
    Img mag(w, h, 1);
    tvxFilterSobel3x3u8_v2(img.px.data(), w, h, img.stride, mag.px.data(), mag.stride);
    EXPECT_TRUE(g_lines.empty());

    for (uint32_t y = 0; y < h; ++y) {
      for (uint32_t x = 0; x < s; ++x) {
        const bool inner = x >= 1 && y >= 1 && x + 1 < w && y + 1 < h;
        if (!inner) {
          ASSERT_EQ(px.at(x, y), -7);
          ASSERT_EQ(rx.at(x, y), -7);
          ASSERT_EQ(by.at(x, y), -7);
          ASSERT_EQ(ffy.at(x, y), -7.0f);
          if (x < w) {
            ASSERT_EQ(mag.at(x, y), kMark);
          }
          continue;
        }
        const int cx = Apply(kCentral.x, img, x, y), cy = Apply(kCentral.y, img, x, y);
        const int ox = Apply(kSobel.x, img, x, y), oy = Apply(kSobel.y, img, x, y);
        const int hx = Apply(kScharr.x, img, x, y), hy = Apply(kScharr.y, img, x, y);
        const uint32_t i = 2 * (x - 1), r = y - 1;
        ASSERT_EQ(gi.at(i, r), cx);
        ASSERT_EQ(gi.at(i + 1, r), cy);
        ASSERT_EQ(gif.at(i, r), float(cx));
        ASSERT_EQ(gif.at(i + 1, r), float(cy));
        ASSERT_EQ(sgi.at(i, r), FloorDiv8(ox));
        ASSERT_EQ(sgi.at(i + 1, r), FloorDiv8(oy));
        ASSERT_EQ(sgr.at(i, r), ox);
        ASSERT_EQ(sgr.at(i + 1, r), oy);
        ASSERT_EQ(sgif.at(i, r), ox / 8.0f);
        ASSERT_EQ(sgif.at(i + 1, r), oy / 8.0f);
        ASSERT_EQ(sch.at(i, r), hx);
        ASSERT_EQ(sch.at(i + 1, r), hy);
        ASSERT_EQ(px.at(x, y), cx);
        ASSERT_EQ(py.at(x, y), cy);
        ASSERT_EQ(fx.at(x, y), float(cx));
        ASSERT_EQ(fy.at(x, y), float(cy));
        ASSERT_EQ(sx.at(x, y), FloorDiv8(ox));
        ASSERT_EQ(sy.at(x, y), FloorDiv8(oy));
        ASSERT_EQ(rx.at(x, y), ox);
        ASSERT_EQ(ry.at(x, y), oy);
        ASSERT_EQ(bx.at(x, y), FloorDiv8(ox));
        ASSERT_EQ(by.at(x, y), FloorDiv8(oy));
        ASSERT_EQ(qx.at(x, y), ox / 8.0f);
        ASSERT_EQ(qy.at(x, y), oy / 8.0f);
        // Float input 0.5 p - 20: the constant cancels, so the result is half the byte result.
        ASSERT_EQ(ffx.at(x, y), ox / 16.0f);
        ASSERT_EQ(ffy.at(x, y), oy / 16.0f);
        ASSERT_EQ(mag.at(x, y), std::min(255, std::abs(ox) + std::abs(oy)));
      }
      // Interleaved rows hold exactly (w - 2) pairs.
      if (y + 2 < h) {
        ASSERT_EQ(gi.at(2 * pairs, y), -7);
      }
    }
  }
}

TEST_F(GradientTest, LegacyFormsUsePackedOutputs) {
  Img img(12, 5, 4);
  img.Set([&](int, int) { return rng_() % 256; });
  Plane<int16_t> a(2 * 10, 3, 0), b(2 * 10, 3, 0), ax(12, 5, 0), ay(12, 5, 0), bxp(12, 5, 0), byp(12, 5, 0);
  tvxImageGradientSobelInterleaveds16(img.px.data(), 12, 5, img.stride, a.data());
  tvxImageGradientSobelInterleaveds16_v2(img.px.data(), 12, 5, img.stride, b.data(), 0);
  EXPECT_EQ(a.v, b.v);
  tvxImageGradientPlanars16(img.px.data(), 12, 5, img.stride, ax.data(), ay.data());
  tvxImageGradientPlanars16_v2(img.px.data(), 12, 5, img.stride, bxp.data(), byp.data(), 0);
  EXPECT_EQ(ax.v, bxp.v);
  EXPECT_EQ(ay.v, byp.v);
  Img m1(12, 5), m2(12, 5);
  tvxFilterSobel3x3u8(img.px.data() , 12, 5, m1.px.data());  // reads the image as packed rows of 12
  Img packed(12, 5);
  packed.px = std::vector<uint8_t>(img.px.begin(), img.px.begin() + 60);
  packed.px.push_back(kMark);
  tvxFilterSobel3x3u8_v2(packed.px.data(), 12, 5, 0, m2.px.data(), 0);
  EXPECT_EQ(m1.px, m2.px);
}

// ---- argument rejection --------------------------------------------------------------------------

TEST_F(GradientTest, BadArgumentsLogTheConditionAndWriteNothing) {
  Img img(8, 6);
  Plane<int16_t> a(64, 8, 3), b(64, 8, 3);
  Plane<int8_t> c(64, 8, 3), d(64, 8, 3);
  Img mag(8, 6);
  tvxImageGradientInterleaveds16_v2(img.px.data(), 8, 6, 8, a.data(), 23);
  tvxImageGradientPlanars16_v2(img.px.data(), 8, 6, 7, a.data(), b.data(), 16);
  tvxImageGradientSobelPlanars8_v2(img.px.data(), 8, 6, 8, c.data(), d.data(), 7);
  tvxImageGradientSobelPlanars16(img.px.data(), 8, 6, 8, a.data(), nullptr);
  tvxFilterSobel3x3u8_v2(img.px.data(), 8, 6, 8, mag.px.data(), 7);
  tvxFilterSobel3x3u8(img.px.data(), 0, 6, mag.px.data());
  tvxImageGradientSobelPlanarf32f32_v2(reinterpret_cast<const float*>(img.px.data()), 8, 6, 31,
                                       reinterpret_cast<float*>(a.data()), reinterpret_cast<float*>(b.data()), 0);
  ASSERT_EQ(g_lines.size(), 7u);
  EXPECT_EQ(g_lines[0], AssertLine("tvxImageGradientInterleaveds16_v2",
                                   "src && srcWidth && srcHeight && (srcStride >= srcWidth) && gradients && "
                                   "(gradStride >= ((srcWidth-2)*2*sizeof(int16_t)))"));
  EXPECT_EQ(g_lines[1], AssertLine("tvxImageGradientPlanars16_v2",
                                   "src && srcWidth && srcHeight && (srcStride >= srcWidth) && dx && dy && "
                                   "(dxyStride >= (srcWidth*sizeof(int16_t)))"));
  EXPECT_EQ(g_lines[2], AssertLine("tvxImageGradientSobelPlanars8_v2",
                                   "src && srcWidth && srcHeight && (srcStride >= srcWidth) && dx && dy && "
                                   "(dxyStride >= srcWidth)"));
  EXPECT_EQ(g_lines[3], AssertLine("tvxImageGradientSobelPlanars16",
                                   "src && srcWidth && srcHeight && (srcStride >= srcWidth) && dx && dy"));
  EXPECT_EQ(g_lines[4], AssertLine("tvxFilterSobel3x3u8_v2",
                                   "src && srcWidth && srcHeight && (srcStride >= srcWidth) && dst && "
                                   "(dstStride >= srcWidth)"));
  EXPECT_EQ(g_lines[5], AssertLine("tvxFilterSobel3x3u8", "src && width && height && dst"));
  EXPECT_EQ(g_lines[6], AssertLine("tvxImageGradientSobelPlanarf32f32_v2",
                                   "src && srcWidth && srcHeight && (srcStride >= (srcWidth*sizeof(float))) && dx && "
                                   "dy && (dxyStride >= (srcWidth*sizeof(float)))"));
  EXPECT_TRUE(a.Untouched());
  EXPECT_TRUE(b.Untouched());
  EXPECT_TRUE(c.Untouched());
  EXPECT_TRUE(std::all_of(mag.px.begin(), mag.px.end(), [](uint8_t v) { return v == kMark; }));
}

// ---- full-size Sobel -------------------------------------------------------------------------

// Direct 2D convolution with the outer product of the two kernels, pixels outside by the
// border rule, saturated to s16.
std::vector<int> FullModel(const Img& img, int size, bool isDx, uint32_t border, int borderValue) {
  static const int d3[] = {1, 0, -1}, s3[] = {1, 2, 1};
  static const int d5[] = {1, 2, 0, -2, -1}, s5[] = {1, 4, 6, 4, 1};
  static const int d7[] = {1, 4, 5, 0, -5, -4, -1}, s7[] = {1, 6, 15, 20, 15, 6, 1};
  const int* deriv = size == 3 ? d3 : size == 5 ? d5 : d7;
  const int* smooth = size == 3 ? s3 : size == 5 ? s5 : s7;
  const int r = size / 2, w = img.w, h = img.h;
  std::vector<int> out(size_t(w) * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      long sum = 0;
      for (int j = -r; j <= r; ++j)
        for (int i = -r; i <= r; ++i) {
          // Convolution: the tap at offset (i, j) is kernel[r - i] x kernel[r - j].
          const int kx = isDx ? deriv[r - i] : smooth[r - i];
          const int ky = isDx ? smooth[r - j] : deriv[r - j];
          int sx = x + i, sy = y + j, v;
          if (sx >= 0 && sy >= 0 && sx < w && sy < h) v = img.p(sx, sy);
          else if (border == 2) v = img.p(std::clamp(sx, 0, w - 1), std::clamp(sy, 0, h - 1));
          else v = borderValue;
          sum += long(kx) * ky * v;
        }
      out[size_t(y) * w + x] = int(std::clamp(sum, -32768L, 32767L));
    }
  return out;
}

using FullEntry = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, int16_t*, int16_t*, uint32_t, uint32_t,
                              uint8_t);

TEST_F(GradientTest, FullSizeSobelMatchesDirectConvolution) {
  const struct { int size; FullEntry fn; } sizes[] = {
      {3, tvxFilterSobel3x3u8s16}, {5, tvxFilterSobel5x5u8s16}, {7, tvxFilterSobel7x7u8s16}};
  for (const auto& k : sizes) {
    for (auto [w, h] : {std::pair{1u, 1u}, std::pair{4u, 2u}, std::pair{23u, 9u}}) {
      for (uint32_t border = 0; border <= 2; ++border) {
        SCOPED_TRACE(testing::Message() << k.size << " " << w << "x" << h << " border " << border);
        Img img(w, h, 3);
        img.Set([&](int x, int y) { return (x * 37 + y * 91 + int(rng_() % 50)) % 256; });
        Plane<int16_t> dx(w + 1, h, 1234), dy(w + 1, h, 1234);
        ASSERT_EQ(k.fn(img.px.data(), w, h, img.stride, dx.data(), dy.data(), dx.strideBytes(), border, 200), 0);
        const std::vector<int> mx = FullModel(img, k.size, true, border, 200);
        const std::vector<int> my = FullModel(img, k.size, false, border, 200);
        for (uint32_t y = 0; y < h; ++y) {
          for (uint32_t x = 0; x < w; ++x) {
            ASSERT_EQ(dx.at(x, y), mx[y * w + x]) << x << "," << y;
            ASSERT_EQ(dy.at(x, y), my[y * w + x]) << x << "," << y;
          }
          ASSERT_EQ(dx.at(w, y), 1234);
        }
      }
    }
  }
}

TEST_F(GradientTest, FullSizeSobelWorkedValues) {
  // A vertical step 0 | 255: the 3x3 dx is 4 * 255 beside it; the 7x7 saturates.
  Img img(16, 8);
  img.Set([](int x, int) { return x < 8 ? 0 : 255; });
  Plane<int16_t> dx(16, 8, 0), dy(16, 8, 0);
  ASSERT_EQ(tvxFilterSobel3x3u8s16(img.px.data(), 16, 8, 0, dx.data(), dy.data(), 0, 2, 0), 0);
  EXPECT_EQ(dx.at(7, 4), 1020);
  EXPECT_EQ(dx.at(8, 0), 1020);  // replicated rows above keep the step
  EXPECT_EQ(dx.at(5, 4), 0);
  EXPECT_EQ(dy.at(8, 4), 0);
  ASSERT_EQ(tvxFilterSobel7x7u8s16(img.px.data(), 16, 8, 0, dx.data(), dy.data(), 0, 2, 0), 0);
  EXPECT_EQ(dx.at(7, 4), 32767);  // 64 * (5 + 4 + 1 + 5 + 4 + 1 ...) * 255 saturates
  // A constant border of 255 around a black image: the top row sees 255 above it.
  Img black(6, 6);
  black.Set([](int, int) { return 0; });
  ASSERT_EQ(tvxFilterSobel3x3u8s16(black.px.data(), 6, 6, 0, dx.data(), dy.data(), dx.strideBytes(), 1, 255), 0);
  EXPECT_EQ(dy.at(2, 0), -1020);
  EXPECT_EQ(dy.at(2, 5), 1020);
  EXPECT_EQ(dx.at(0, 2), -1020);
  EXPECT_EQ(dx.at(2, 2), 0);
  ASSERT_EQ(tvxFilterSobel3x3u8s16(black.px.data(), 6, 6, 0, dx.data(), dy.data(), dx.strideBytes(), 0, 255), 0);
  EXPECT_EQ(dy.at(2, 0), -1020);  // type 0 is a constant border too
}

TEST_F(GradientTest, FullSizeSobelComputesOnlyTheRequestedPlane) {
  Img img(9, 7);
  img.Set([&](int, int) { return rng_() % 256; });
  Plane<int16_t> both_x(9, 7, 0), both_y(9, 7, 0), only(9, 7, 0);
  ASSERT_EQ(tvxFilterSobel5x5u8s16(img.px.data(), 9, 7, 9, both_x.data(), both_y.data(), 18, 2, 0), 0);
  ASSERT_EQ(tvxFilterSobel5x5u8s16(img.px.data(), 9, 7, 9, nullptr, only.data(), 18, 2, 0), 0);
  EXPECT_EQ(only.v, both_y.v);
  ASSERT_EQ(tvxFilterSobel5x5u8s16(img.px.data(), 9, 7, 9, only.data(), nullptr, 18, 2, 0), 0);
  EXPECT_EQ(only.v, both_x.v);
}

TEST_F(GradientTest, FullSizeSobelRejectsBadParametersWithoutWriting) {
  Img img(9, 7);
  Plane<int16_t> dx(9, 7, 55), dy(9, 7, 55);
  for (FullEntry fn : {tvxFilterSobel3x3u8s16, tvxFilterSobel5x5u8s16, tvxFilterSobel7x7u8s16}) {
    EXPECT_EQ(fn(img.px.data(), 9, 7, 9, nullptr, nullptr, 18, 2, 0), 3);
    EXPECT_EQ(fn(img.px.data(), 9, 7, 9, dx.data(), dy.data(), 18, 3, 0), 3);
    EXPECT_EQ(fn(img.px.data(), 9, 7, 8, dx.data(), dy.data(), 18, 2, 0), 3);
    EXPECT_EQ(fn(img.px.data(), 9, 7, 9, dx.data(), dy.data(), 17, 2, 0), 3);
    EXPECT_EQ(fn(nullptr, 9, 7, 9, dx.data(), dy.data(), 18, 2, 0), 3);
    EXPECT_EQ(fn(img.px.data(), 0, 7, 9, dx.data(), dy.data(), 18, 2, 0), 3);
    EXPECT_EQ(fn(img.px.data(), 9, 0, 9, dx.data(), dy.data(), 18, 2, 0), 3);
  }
  EXPECT_TRUE(dx.Untouched());
  EXPECT_TRUE(dy.Untouched());
  EXPECT_TRUE(g_lines.empty());
}

// ---- tier rules of the Sobel magnitude ----------------------------------------------------------

int g_slot = -1;
template <int kSlot>
void SpySobel(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t) { g_slot = kSlot; }

TEST_F(GradientTest, SobelMagnitudeDowngradeFollowsItsTierRules) {
  const uint32_t row = TVX_ROW_tvxFilterSobel3x3u8;
  void* saved[TVX_NUM_IMPL];
  std::copy(std::begin(tvxFuncTable[row]), std::end(tvxFuncTable[row]), saved);
  tvxFuncTable[row][1] = reinterpret_cast<void*>(&SpySobel<1>);
  tvxFuncTable[row][3] = reinterpret_cast<void*>(&SpySobel<3>);
  tvxFuncTable[row][5] = reinterpret_cast<void*>(&SpySobel<5>);
  alignas(16) static uint8_t src[200 * 200], dst[200 * 200];
  struct Case { uint32_t tier, flag, width, height, offset; int slot; };
  const Case cases[] = {
      {5, 1, 176, 145, 0, 5}, {5, 1, 176, 144, 0, 1},  // 25520 vs 25344 pixels
      {5, 1, 178, 145, 0, 1},                         // width % 4
      {5, 1, 176, 145, 2, 1},                         // 4-byte alignment
      {5, 1, 176, 145, 4, 5},
      {5, 0, 10, 2, 1, 5},                            // checks off: the tier stands
      {3, 1, 16, 2, 1, 3},  {3, 1, 12, 2, 0, 1},     // GPU: width % 8 only
  };
  for (const Case& c : cases) {
    tvxImplTable[row] = c.tier;
    HW_constraint_checks_enable = c.flag;
    g_slot = -1;
    tvxFilterSobel3x3u8_v2(src + c.offset, c.width, c.height, c.width, dst + c.offset, c.width);
    EXPECT_EQ(g_slot, c.slot) << c.tier << " " << c.width << "x" << c.height << " +" << c.offset;
  }
  std::copy(std::begin(saved), std::end(saved), tvxFuncTable[row]);
  tvxImplTable[row] = 0;
}

}  // namespace
