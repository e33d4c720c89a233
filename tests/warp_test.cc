// Reference warps and affine transforms against straightforward per-pixel models written here
// from the sampling, rounding and border rules: random and structured images, matrices that
// keep the source, move it by whole and half pixels, turn, scale and tilt it, map outside it,
// and degenerate matrices (w = 0, NaN, infinities, huge values).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;

// ---- models ---------------------------------------------------------------------------------

struct Pos {
  int32_t u, v;  // 1/32 pixel
};

// Source position of destination (x, y): forms evaluated directly, r = 32 / W, rounded to 1/32;
// anything not strictly inside (-2^30, 2^30) is the far position.
Pos ModelPos(const float* M, uint32_t x, uint32_t y) {
  const float xf = static_cast<float>(x), yf = static_cast<float>(y);
  const float cx = M[1] * yf + M[2], cy = M[4] * yf + M[5], cw = M[7] * yf + M[8];
  const float X = M[0] * xf + cx, Y = M[3] * xf + cy, W = M[6] * xf + cw;
  const float r = 32.0f / W;
  const float U = X * r, V = Y * r;
  const float lim = 1073741824.0f;
  if (!(std::fabs(U) < lim && std::fabs(V) < lim)) return {-(1 << 30), -(1 << 30)};
  return {static_cast<int32_t>(std::floor(U + 0.5f)), static_cast<int32_t>(std::floor(V + 0.5f))};
}

// border: 0 zero, 1 constant value, 2 clamp.
int Fetch(const uint8_t* src, uint32_t w, uint32_t h, uint32_t stride, uint32_t ch, uint32_t c, int64_t x, int64_t y,
          int border, int value) {
  if (border == 2) {
    x = std::min<int64_t>(std::max<int64_t>(x, 0), w - 1);
    y = std::min<int64_t>(std::max<int64_t>(y, 0), h - 1);
  } else if (x < 0 || y < 0 || x >= w || y >= h) {
    return border == 1 ? value : 0;
  }
  return src[y * stride + x * ch + c];
}

int ModelBilinear(const uint8_t* src, uint32_t w, uint32_t h, uint32_t stride, uint32_t ch, uint32_t c, Pos p,
                  int border, int value) {
  const int64_t x = static_cast<int64_t>(std::floor(p.u / 32.0)), y = static_cast<int64_t>(std::floor(p.v / 32.0));
  const int fx = static_cast<int>(p.u - x * 32), fy = static_cast<int>(p.v - y * 32);
  const int sum = (32 - fx) * (32 - fy) * Fetch(src, w, h, stride, ch, c, x, y, border, value) +
                  fx * (32 - fy) * Fetch(src, w, h, stride, ch, c, x + 1, y, border, value) +
                  (32 - fx) * fy * Fetch(src, w, h, stride, ch, c, x, y + 1, border, value) +
                  fx * fy * Fetch(src, w, h, stride, ch, c, x + 1, y + 1, border, value);
  return (sum + 512) / 1024;
}

int ModelNearest(const uint8_t* src, uint32_t w, uint32_t h, uint32_t stride, Pos p, int border, int value) {
  const int64_t x = static_cast<int64_t>(std::floor((p.u + 16) / 32.0)), y = static_cast<int64_t>(std::floor((p.v + 16) / 32.0));
  return Fetch(src, w, h, stride, 1, 0, x, y, border, value);
}

Image ModelWarp(const Image& src, uint32_t dw, uint32_t dh, const float* M, int interp, int border, int value) {
  Image out(dw, dh, 1);
  for (uint32_t y = 0; y < dh; ++y)
    for (uint32_t x = 0; x < dw; ++x) {
      const Pos p = ModelPos(M, x, y);
      out.row(y)[x] = static_cast<uint8_t>(interp == 0 ? ModelNearest(src.bytes(), src.width(), src.height(), src.stride(), p, border, value)
                                                       : ModelBilinear(src.bytes(), src.width(), src.height(), src.stride(), 1, 0, p, border, value));
    }
  return out;
}

// The three-channel float warp as described: running sums, 1 / w, checks, float blend, truncation.
Image ModelWarp3(const Image& src, uint32_t dw, uint32_t dh, const float* M) {
  Image out(dw, dh, 3);
  float rx = M[2], ry = M[5], rw = M[8];
  for (uint32_t y = 0; y < dh; ++y) {
    float X = rx, Y = ry, W = rw;
    for (uint32_t x = 0; x < dw; ++x) {
      const float inv = 1.0f / W;
      const float u = X * inv, v = Y * inv;
      uint8_t* o = out.row(y) + 3 * x;
      o[0] = o[1] = o[2] = 0;
      if (u >= 0 && v >= 0 && u < static_cast<double>(src.width()) - 1 && v < static_cast<double>(src.height()) - 1) {
        const int iu = static_cast<int>(u), iv = static_cast<int>(v);
        const float fx = std::max(u - static_cast<float>(iu), 0.0f), fy = std::max(v - static_cast<float>(iv), 0.0f);
        for (int c = 0; c < 3; ++c) {
          const float p00 = src.row(iv)[3 * iu + c], p01 = src.row(iv)[3 * iu + 3 + c];
          const float p10 = src.row(iv + 1)[3 * iu + c], p11 = src.row(iv + 1)[3 * iu + 3 + c];
          const float top = p00 + fx * (p01 - p00), bottom = p10 + fx * (p11 - p10);
          o[c] = static_cast<uint8_t>(top + fy * (bottom - top));
        }
      }
      X += M[0];
      Y += M[3];
      W += M[6];
    }
    rx += M[1];
    ry += M[4];
    rw += M[7];
  }
  return out;
}

int CubicWeight(int tap, int phase) {
  const double a = -0.75, t = phase / 32.0;
  const auto k = [&](double d) {
    d = std::fabs(d);
    if (d <= 1) return ((a + 2) * d - (a + 3)) * d * d + 1;
    if (d < 2) return ((a * d - 5 * a) * d + 8 * a) * d - 4 * a;
    return 0.0;
  };
  if (tap == 3) return 1024 - CubicWeight(0, phase) - CubicWeight(1, phase) - CubicWeight(2, phase);
  return static_cast<int>(std::lround(k(t + 1 - tap) * 1024));
}

Image ModelBicubic3(const Image& src, uint32_t dw, uint32_t dh, const float* A) {
  const float M[9] = {A[0], A[1], A[2], A[3], A[4], A[5], 0, 0, 1};
  Image out(dw, dh, 3);
  for (uint32_t y = 0; y < dh; ++y)
    for (uint32_t x = 0; x < dw; ++x) {
      const Pos p = ModelPos(M, x, y);
      const int64_t ix = static_cast<int64_t>(std::floor(p.u / 32.0)), iy = static_cast<int64_t>(std::floor(p.v / 32.0));
      const int fx = static_cast<int>(p.u - ix * 32), fy = static_cast<int>(p.v - iy * 32);
      for (uint32_t c = 0; c < 3; ++c) {
        int64_t sum = 0;
        for (int j = 0; j < 4; ++j)
          for (int i = 0; i < 4; ++i)
            sum += int64_t{CubicWeight(j, fy)} * CubicWeight(i, fx) *
                   Fetch(src.bytes(), src.width(), src.height(), src.stride(), 3, c, ix - 1 + i, iy - 1 + j, 2, 0);
        const int64_t o = (sum + (1 << 19)) >> 20;
        out.row(y)[3 * x + c] = static_cast<uint8_t>(std::min<int64_t>(std::max<int64_t>(o, 0), 255));
      }
    }
  return out;
}

// ---- fixtures --------------------------------------------------------------------------------

struct Matrix {
  const char* name;
  float m[9];
};

// Perspective matrices mapping destination to source.
std::vector<Matrix> Matrices(uint32_t w, uint32_t h) {
  const float c = std::cos(0.2f), s = std::sin(0.2f);
  const float fw = static_cast<float>(w), fh = static_cast<float>(h);
  return {
      {"identity", {1, 0, 0, 0, 1, 0, 0, 0, 1}},
      {"whole shift", {1, 0, 3, 0, 1, -2, 0, 0, 1}},
      {"half shift", {1, 0, 0.5f, 0, 1, -1.5f, 0, 0, 1}},
      {"rotate and scale", {0.9f * c, -0.9f * s, fw * 0.1f, 0.9f * s, 0.9f * c, -fh * 0.05f, 0, 0, 1}},
      {"perspective", {1.02f, 0.05f, -1.3f, -0.03f, 0.97f, 2.1f, 0.0007f, -0.0004f, 1.01f}},
      {"mirror", {-1, 0, fw - 0.25f, 0, -1, fh - 0.75f, 0, 0, 1}},
      {"outside", {1, 0, fw + 5, 0, 1, -fh - 9, 0, 0, 1}},
      {"enlarge", {0.37f, 0.02f, 0.8f, -0.01f, 0.41f, 0.3f, 0.0001f, 0.0002f, 1}},
      {"horizon", {1, 0.1f, 0, 0, 1, 0, 0.05f, -0.2f, 1}},  // w crosses zero inside the image
  };
}

std::vector<Matrix> Degenerate() {
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  return {
      {"zero", {0, 0, 0, 0, 0, 0, 0, 0, 0}},
      {"zero w", {1, 0, 0, 0, 1, 0, 0, 0, 0}},
      {"nan", {nan, 0, 0, 0, 1, 0, 0, 0, 1}},
      {"inf", {1, 0, inf, 0, 1, 0, 0, 0, 1}},
      {"huge", {1e30f, 1e30f, 1e30f, -1e30f, 1e30f, 3e38f, 0, 0, 1}},
      {"tiny w", {1, 0, 0, 0, 1, 0, 1e-30f, 0, 1e-38f}},
  };
}

bool Untouched(const Image& img) {
  for (uint32_t y = 0; y < img.height(); ++y)
    for (uint32_t x = 0; x < img.width(); ++x)
      if (img.row(y)[x] != tvxtest::kGuard) return false;
  return true;
}

class Warp : public ::testing::Test {
 protected:
  Image Random(uint32_t w, uint32_t h, uint32_t ch = 1) {
    Image img(w, h, ch, (w * 3) % 7, w % 3);
    img.Randomize(rng_);
    return img;
  }
  // Gradient with a checkerboard on top: neighbours differ in both directions.
  static Image Structured(uint32_t w, uint32_t h, uint32_t ch = 1) {
    Image img(w, h, ch, 5, 1);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w * ch; ++x) img.row(y)[x] = static_cast<uint8_t>((x * 7 + y * 3) % 200 + (((x / ch) ^ y) & 1) * 55);
    return img;
  }
  std::mt19937 rng_{2718};
};

// ---- single-channel perspective warps ----------------------------------------------------------

TEST_F(Warp, PerspectiveMatchesModelForEveryInterpolationAndBorder) {
  for (const bool structured : {false, true}) {
    const Image src = structured ? Structured(23, 17) : Random(23, 17);
    for (const Matrix& m : Matrices(23, 17)) {
      SCOPED_TRACE(m.name);
      Image dst(29, 19, 1, 3, 2);
      ASSERT_EQ(tvxWarpPerspectiveu8_v2(src.bytes(), 23, 17, src.stride(), dst.bytes(), 29, 19, dst.stride(), m.m), 0);
      EXPECT_TRUE(dst.SameRect(ModelWarp(src, 29, 19, m.m, 1, 0, 0))) << "v2";
      EXPECT_TRUE(dst.GuardsIntact());
      for (uint32_t interp : {0u, 1u})
        for (uint32_t border : {0u, 1u, 2u}) {
          SCOPED_TRACE(::testing::Message() << "interpolation " << interp << " border " << border);
          Image d3(29, 19, 1, 1, 3), d4(29, 19, 1, 2, 1);
          ASSERT_EQ(tvxWarpPerspectiveu8_v3(src.bytes(), 23, 17, src.stride(), d3.bytes(), 29, 19, d3.stride(), m.m, interp, border, 201), 0);
          ASSERT_EQ(tvxWarpPerspectiveu8_v4(src.bytes(), 23, 17, src.stride(), d4.bytes(), 29, 19, d4.stride(), m.m, interp, border, 201), 0);
          const Image want = ModelWarp(src, 29, 19, m.m, static_cast<int>(interp), border == 1 ? 1 : 0, 201);
          EXPECT_TRUE(d3.SameRect(want)) << "v3";
          EXPECT_TRUE(d4.SameRect(want)) << "v4";
          EXPECT_TRUE(d4.GuardsIntact());
        }
    }
  }
}

TEST_F(Warp, IdentityAndTranslationsMoveWholePixelsAndAverageHalves) {
  const Image src = Random(40, 12);
  const float identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  const float shift[9] = {1, 0, 2, 0, 1, 1, 0, 0, 1};
  const float half[9] = {1, 0, 0.5f, 0, 1, 0, 0, 0, 1};
  Image a(40, 12, 1), b(40, 12, 1), c(40, 12, 1);
  ASSERT_EQ(tvxWarpPerspectiveu8_v2(src.bytes(), 40, 12, src.stride(), a.bytes(), 40, 12, a.stride(), identity), 0);
  ASSERT_EQ(tvxWarpPerspectiveu8_v2(src.bytes(), 40, 12, src.stride(), b.bytes(), 40, 12, b.stride(), shift), 0);
  ASSERT_EQ(tvxWarpPerspectiveu8_v2(src.bytes(), 40, 12, src.stride(), c.bytes(), 40, 12, c.stride(), half), 0);
  EXPECT_TRUE(a.SameRect(src));
  for (uint32_t y = 0; y < 12; ++y)
    for (uint32_t x = 0; x < 40; ++x) {
      const int moved = (x + 2 < 40 && y + 1 < 12) ? src.row(y + 1)[x + 2] : 0;
      ASSERT_EQ(b.row(y)[x], moved) << x << "," << y;
      const int right = x + 1 < 40 ? src.row(y)[x + 1] : 0;
      ASSERT_EQ(c.row(y)[x], (src.row(y)[x] + right + 1) / 2) << x << "," << y;
    }
  // The packed form is the strided one with packed strides.
  std::vector<uint8_t> packed(40 * 12), outPacked(40 * 12, 7);
  for (uint32_t y = 0; y < 12; ++y) std::memcpy(&packed[y * 40], src.row(y), 40);
  ASSERT_EQ(tvxWarpPerspectiveu8(packed.data(), 40, 12, outPacked.data(), 40, 12, half), 0);
  for (uint32_t y = 0; y < 12; ++y) EXPECT_EQ(0, std::memcmp(&outPacked[y * 40], c.row(y), 40));
}

TEST_F(Warp, DegenerateMatricesGiveTheBorderEverywhere) {
  const Image src = Random(16, 9);
  for (const Matrix& m : Degenerate()) {
    SCOPED_TRACE(m.name);
    for (uint32_t interp : {0u, 1u}) {
      Image d(21, 6, 1);
      ASSERT_EQ(tvxWarpPerspectiveu8_v3(src.bytes(), 16, 9, src.stride(), d.bytes(), 21, 6, d.stride(), m.m, interp, 1, 77), 0);
      EXPECT_TRUE(d.SameRect(ModelWarp(src, 21, 6, m.m, static_cast<int>(interp), 1, 77)));
      EXPECT_TRUE(d.GuardsIntact());
    }
    Image d3(21, 6, 3);
    ASSERT_EQ(tvx3ChannelWarpPerspectiveu8_v2(Random(16, 9, 3).bytes(), 16, 9, 0, d3.bytes(), 21, 6, d3.stride(), m.m), 0);
    EXPECT_TRUE(d3.GuardsIntact());
  }
  // W = 0 and NaN positions are far outside: the constant border, or the corner pixel when clipped.
  const float zeroW[9] = {1, 0, 0, 0, 1, 0, 0, 0, 0};
  Image d(5, 3, 1);
  ASSERT_EQ(tvxWarpPerspectiveu8_v3(src.bytes(), 16, 9, src.stride(), d.bytes(), 5, 3, d.stride(), zeroW, 1, 1, 77), 0);
  for (uint32_t y = 0; y < 3; ++y)
    for (uint32_t x = 0; x < 5; ++x) EXPECT_EQ(d.row(y)[x], 77);
  const float nanA[6] = {std::numeric_limits<float>::quiet_NaN(), 0, 0, 0, 1, 0};
  ASSERT_EQ(tvxTransformAffineClippedu8(src.bytes(), 16, 9, src.stride(), d.bytes(), 5, 3, d.stride(), nanA), 0);
  for (uint32_t y = 0; y < 3; ++y)
    for (uint32_t x = 0; x < 5; ++x) EXPECT_EQ(d.row(y)[x], src.row(0)[0]);
}

TEST_F(Warp, FramedCopyNeedsItsBlockAndOtherArgumentsAreChecked) {
  const Image src = Random(16, 9);
  const float m[9] = {1, 0, -0.5f, 0, 1, 0.5f, 0, 0, 1};
  Image d(16, 9, 1);  // every byte still holds the guard while nothing is written
  tvx_fail_heap_after_for_test(0);
  const int32_t r = tvxWarpPerspectiveu8_v4(src.bytes(), 16, 9, src.stride(), d.bytes(), 16, 9, d.stride(), m, 1, 1, 3);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(r, 5);
  EXPECT_TRUE(Untouched(d));
  EXPECT_EQ(tvxWarpPerspectiveu8_v4(src.bytes(), 16, 9, src.stride(), d.bytes(), 16, 9, d.stride(), m, 2, 1, 3), 6);
  EXPECT_EQ(tvxWarpPerspectiveu8_v3(src.bytes(), 16, 9, src.stride(), d.bytes(), 16, 9, d.stride(), m, 2, 1, 3), 6);
  EXPECT_EQ(tvxTransformAffineClippedu8_v2(src.bytes(), 16, 9, src.stride(), d.bytes(), 16, 9, d.stride(), m, 5), 6);
  EXPECT_EQ(tvxTransformAffineClippedu8_v3(src.bytes(), 16, 9, src.stride(), d.bytes(), 16, 9, d.stride(), m, 2, 1, 3), 6);
  EXPECT_EQ(tvxWarpPerspectiveu8_v3(src.bytes(), 16, 9, src.stride(), d.bytes(), 16, 9, d.stride(), m, 1, 1, 256), 3);
  EXPECT_EQ(tvxWarpPerspectiveu8_v2(src.bytes(), 16, 9, 15, d.bytes(), 16, 9, d.stride(), m), 3);
  EXPECT_EQ(tvxWarpPerspectiveu8_v2(src.bytes(), 16, 9, src.stride(), d.bytes(), 16, 9, d.stride(), nullptr), 3);
  EXPECT_EQ(tvxWarpPerspectiveu8(src.bytes(), 16, 9, d.bytes(), 0, 9, m), 3);
  EXPECT_EQ(tvx3ChannelWarpPerspectiveu8_v2(src.bytes(), 5, 9, 14, d.bytes(), 5, 9, 15, m), 3);
  EXPECT_EQ(tvx2PlaneWarpPerspectiveu8(src.bytes(), src.bytes(), 7, 4, 7, 7, d.bytes(), d.bytes(), 5, 3, 5, 6, m), 3);
  EXPECT_EQ(tvxTransformAffine8x8u8(src.bytes(), 16, 9, src.stride(), d.bytes(), 7, m), 3);
  EXPECT_EQ(tvx3ChannelTransformAffineClippedBCu8(src.bytes(), 16, 0, 48, d.bytes(), 4, 4, 12, m), 3);
  EXPECT_TRUE(Untouched(d));
  EXPECT_TRUE(d.GuardsIntact());
  // Without the constant border no copy is needed.
  tvx_fail_heap_after_for_test(0);
  const int32_t r0 = tvxWarpPerspectiveu8_v4(src.bytes(), 16, 9, src.stride(), d.bytes(), 16, 9, d.stride(), m, 1, 0, 3);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(r0, 0);
  EXPECT_TRUE(d.SameRect(ModelWarp(src, 16, 9, m, 1, 0, 0)));
}

// ---- three channels and two planes -------------------------------------------------------------

TEST_F(Warp, ThreeChannelWarpFollowsTheFloatRule) {
  for (const bool structured : {false, true}) {
    const Image src = structured ? Structured(19, 13, 3) : Random(19, 13, 3);
    for (const Matrix& m : Matrices(19, 13)) {
      SCOPED_TRACE(m.name);
      Image dst(22, 15, 3, 4, 1);
      ASSERT_EQ(tvx3ChannelWarpPerspectiveu8_v2(src.bytes(), 19, 13, src.stride(), dst.bytes(), 22, 15, dst.stride(), m.m), 0);
      EXPECT_TRUE(dst.SameRect(ModelWarp3(src, 22, 15, m.m)));
      EXPECT_TRUE(dst.GuardsIntact());
    }
  }
  // Identity: the source comes back except its last row and column, which are 0.
  const Image src = Random(10, 6, 3);
  const float identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  std::vector<uint8_t> packed(10 * 6 * 3), out(10 * 6 * 3, 9);
  for (uint32_t y = 0; y < 6; ++y) std::memcpy(&packed[y * 30], src.row(y), 30);
  ASSERT_EQ(tvx3ChannelWarpPerspectiveu8(packed.data(), 10, 6, out.data(), 10, 6, identity), 0);
  for (uint32_t y = 0; y < 6; ++y)
    for (uint32_t i = 0; i < 30; ++i) EXPECT_EQ(out[y * 30 + i], (y == 5 || i >= 27) ? 0 : packed[y * 30 + i]) << i << "," << y;
}

TEST_F(Warp, TwoPlaneWarpMovesLumaAndChromaTogether) {
  for (const auto& size : {std::pair<uint32_t, uint32_t>{24, 14}, {17, 9}}) {
    const uint32_t w = size.first, h = size.second, cw = (w + 1) / 2, ch = (h + 1) / 2;
    const Image y = Random(w, h), uv = Random(cw, ch, 2);
    for (const Matrix& m : Matrices(w, h)) {
      SCOPED_TRACE(m.name);
      const uint32_t dw = w + 3, dh = h - 1, dcw = (dw + 1) / 2, dch = (dh + 1) / 2;
      Image dy(dw, dh, 1, 2, 1), duv(dcw, dch, 2, 3, 2);
      ASSERT_EQ(tvx2PlaneWarpPerspectiveu8(y.bytes(), uv.bytes(), w, h, y.stride(), uv.stride(), dy.bytes(), duv.bytes(), dw, dh,
                                           dy.stride(), duv.stride(), m.m), 0);
      EXPECT_TRUE(dy.SameRect(ModelWarp(y, dw, dh, m.m, 1, 0, 0)));
      Image want(dcw, dch, 2);
      for (uint32_t cy = 0; cy < dch; ++cy)
        for (uint32_t cx = 0; cx < dcw; ++cx) {
          const Pos p = ModelPos(m.m, 2 * cx, 2 * cy);
          const Pos half{static_cast<int32_t>(std::floor(p.u / 2.0)), static_cast<int32_t>(std::floor(p.v / 2.0))};
          for (uint32_t c = 0; c < 2; ++c)
            want.row(cy)[2 * cx + c] = static_cast<uint8_t>(ModelBilinear(uv.bytes(), cw, ch, uv.stride(), 2, c, half, 1, 128));
        }
      EXPECT_TRUE(duv.SameRect(want));
      EXPECT_TRUE(dy.GuardsIntact());
      EXPECT_TRUE(duv.GuardsIntact());
    }
  }
}

// ---- affine transforms ----------------------------------------------------------------------

TEST_F(Warp, AffineEntriesSampleLikeTheCoreWithTheirBorders) {
  const Image src = Random(21, 15);
  for (const Matrix& m : Matrices(21, 15)) {
    if (m.m[6] != 0 || m.m[7] != 0) continue;
    SCOPED_TRACE(m.name);
    const float* A = m.m;
    Image clipped(25, 11, 1, 2), nearest(25, 11, 1, 1, 1), zero(25, 11, 1, 3), v3(25, 11, 1);
    ASSERT_EQ(tvxTransformAffineClippedu8(src.bytes(), 21, 15, src.stride(), clipped.bytes(), 25, 11, clipped.stride(), A), 0);
    ASSERT_EQ(tvxTransformAffineClippedu8_v2(src.bytes(), 21, 15, src.stride(), nearest.bytes(), 25, 11, nearest.stride(), A, 0), 0);
    ASSERT_EQ(tvxTransformAffineu8_v2(src.bytes(), 21, 15, src.stride(), zero.bytes(), 25, 11, zero.stride(), A), 0);
    EXPECT_TRUE(clipped.SameRect(ModelWarp(src, 25, 11, m.m, 1, 2, 0)));
    EXPECT_TRUE(nearest.SameRect(ModelWarp(src, 25, 11, m.m, 0, 2, 0)));
    EXPECT_TRUE(zero.SameRect(ModelWarp(src, 25, 11, m.m, 1, 0, 0)));
    for (uint32_t border : {0u, 1u, 2u, 3u}) {
      ASSERT_EQ(tvxTransformAffineClippedu8_v3(src.bytes(), 21, 15, src.stride(), v3.bytes(), 25, 11, v3.stride(), A, 1, border, 9), 0);
      EXPECT_TRUE(v3.SameRect(ModelWarp(src, 25, 11, m.m, 1, border == 3 ? 0 : static_cast<int>(border), 9))) << border;
    }
    Image patch(8, 8, 1, 4, 1);
    ASSERT_EQ(tvxTransformAffine8x8u8(src.bytes(), 21, 15, src.stride(), patch.bytes(), patch.stride(), A), 0);
    EXPECT_TRUE(patch.SameRect(ModelWarp(src, 8, 8, m.m, 1, 2, 0)));
    EXPECT_TRUE(patch.GuardsIntact());
  }
}

TEST_F(Warp, BicubicAffineMatchesTheCubicModel) {
  for (const bool structured : {false, true}) {
    const Image src = structured ? Structured(18, 13, 3) : Random(18, 13, 3);
    for (const Matrix& m : Matrices(18, 13)) {
      if (m.m[6] != 0 || m.m[7] != 0) continue;
      SCOPED_TRACE(m.name);
      Image dst(20, 9, 3, 5, 3);
      ASSERT_EQ(tvx3ChannelTransformAffineClippedBCu8(src.bytes(), 18, 13, src.stride(), dst.bytes(), 20, 9, dst.stride(), m.m), 0);
      EXPECT_TRUE(dst.SameRect(ModelBicubic3(src, 20, 9, m.m)));
      EXPECT_TRUE(dst.GuardsIntact());
    }
  }
  // Whole-pixel positions reproduce the source; a flat image stays flat at any phase.
  const Image src = Random(12, 7, 3);
  const float identity[6] = {1, 0, 0, 0, 1, 0};
  Image same(12, 7, 3);
  ASSERT_EQ(tvx3ChannelTransformAffineClippedBCu8(src.bytes(), 12, 7, src.stride(), same.bytes(), 12, 7, same.stride(), identity), 0);
  EXPECT_TRUE(same.SameRect(src));
  Image flat(12, 7, 3), out(9, 9, 3);
  for (uint32_t y = 0; y < 7; ++y) std::memset(flat.row(y), 143, 36);
  const float turn[6] = {0.83f, -0.31f, 2.2f, 0.29f, 0.87f, -0.6f};
  ASSERT_EQ(tvx3ChannelTransformAffineClippedBCu8(flat.bytes(), 12, 7, flat.stride(), out.bytes(), 9, 9, out.stride(), turn), 0);
  for (uint32_t y = 0; y < 9; ++y)
    for (uint32_t i = 0; i < 27; ++i) ASSERT_EQ(out.row(y)[i], 143);
}

}  // namespace
