// Camera model and depth conversions through the public entries: distortion against a
// double-precision model, the undistortion's round trip near the centre and its residual far
// from it, projection in front of, behind and in the plane of the camera, point clouds with
// invalid depths, registration's z-test and source-position store against a direct model, the
// disparity formula with its bit-pattern exponential, bad arguments, and the SIMD variants
// against the reference bit for bit on every target.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using Floats = std::vector<float>;

const float kCal[8] = {500.0f, 480.0f, 320.0f, 240.0f, -0.28f, 0.09f, 0.001f, -0.0015f};
const float kInvCal[8] = {1.0f / 500.0f, 1.0f / 480.0f, 320.0f, 240.0f, -0.28f, 0.09f, 0.001f, -0.0015f};

void DistortDouble(const float* c, double x, double y, double* u, double* v) {
  const double r2 = x * x + y * y, f = 1 + c[4] * r2 + c[5] * r2 * r2;
  const double xd = x * f + 2 * c[6] * x * y + c[7] * (r2 + 2 * x * x);
  const double yd = y * f + c[6] * (r2 + 2 * y * y) + 2 * c[7] * x * y;
  *u = c[2] + c[0] * xd;
  *v = c[3] + c[1] * yd;
}

bool SameBits(const Floats& a, const Floats& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * 4) == 0;
}

class Camera : public ::testing::Test {
 protected:
  Floats Random(size_t n, float lo, float hi) {
    std::uniform_real_distribution<float> d(lo, hi);
    Floats v(n);
    for (float& x : v) x = d(rng_);
    return v;
  }
  std::mt19937 rng_{7};
};

TEST_F(Camera, DistortionMatchesModelAndUndistortionInvertsNearTheCentre) {
  const Floats pts = Random(2 * 200, -0.15f, 0.15f);
  Floats dev(pts.size()), back(pts.size());
  ASSERT_EQ(tvxGeomDistortPoint2xNf32(kCal, pts.data(), 0, 200, dev.data(), 0), 0);
  for (int k = 0; k < 200; ++k) {
    double u, v;
    DistortDouble(kCal, pts[2 * k], pts[2 * k + 1], &u, &v);
    EXPECT_NEAR(dev[2 * k], u, 1e-3);
    EXPECT_NEAR(dev[2 * k + 1], v, 1e-3);
  }
  ASSERT_EQ(tvxGeomUndistortPoint2xNf32(kInvCal, dev.data(), 0, 200, back.data(), 0), 0);
  for (size_t i = 0; i < pts.size(); ++i) EXPECT_NEAR(back[i], pts[i], 2e-4) << i;

  // Far from the centre two steps leave a visible residual.
  const float far[2] = {0.7f, -0.6f};
  float u[2], x[2];
  ASSERT_EQ(tvxGeomDistortPoint2x1f32(kCal, far, u), 0);
  ASSERT_EQ(tvxGeomUndistortPoint2x1f32(kInvCal, u, x), 0);
  EXPECT_GT(std::hypot(x[0] - far[0], x[1] - far[1]), 1e-2);
  // The single-point forms agree with the N forms.
  float one[2];
  ASSERT_EQ(tvxGeomDistortPoint2x1f32(kCal, &pts[10], one), 0);
  EXPECT_EQ(one[0], dev[10]);
  EXPECT_EQ(one[1], dev[11]);
}

TEST_F(Camera, ProjectionInFrontBehindAndInThePlane) {
  // Rotation about y by 0.3 rad and a translation.
  const float c = std::cos(0.3f), s = std::sin(0.3f);
  const float pose[12] = {c, 0, s, 0.1f, 0, 1, 0, -0.2f, -s, 0, c, 2.0f};
  const float front[3] = {0.3f, 0.4f, 1.0f};
  float cam[2], dev[2];
  EXPECT_EQ(tvxGeomProjectPoint3x1f32(pose, kCal, front, cam, dev), 1);
  const double X = c * 0.3 + s * 1.0 + 0.1, Y = 0.4 - 0.2, W = -s * 0.3 + c * 1.0 + 2.0;
  EXPECT_NEAR(cam[0], X / W, 1e-6);
  EXPECT_NEAR(cam[1], Y / W, 1e-6);
  double u, v;
  DistortDouble(kCal, cam[0], cam[1], &u, &v);
  EXPECT_NEAR(dev[0], u, 1e-3);
  EXPECT_NEAR(dev[1], v, 1e-3);

  const float behind[3] = {0.0f, 0.0f, -5.0f};
  cam[0] = cam[1] = 99.0f;
  EXPECT_EQ(tvxGeomProjectPoint3x1f32(pose, kCal, behind, cam, dev), 0);
  EXPECT_NE(cam[0], 99.0f);  // still written

  const float ident[12] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};
  const float plane[3] = {1.0f, 2.0f, 0.0f};
  cam[0] = cam[1] = dev[0] = dev[1] = 99.0f;
  EXPECT_EQ(tvxGeomProjectPoint3x1f32(ident, kCal, plane, cam, dev), 0);
  EXPECT_EQ(cam[0], 99.0f);
  EXPECT_EQ(dev[0], 99.0f);

  // N form: counts the points in front, leaves w = 0 points alone; padded strides.
  const Floats xyz = {0.3f, 0.4f, 1.0f, 0, 0, 0, 1.0f, 2.0f, 0.0f, 0, 0, 0, 0.0f, 0.0f, -5.0f, 0, 0, 0};
  Floats cams(9, 99.0f), devs(9, 99.0f);
  EXPECT_EQ(tvxGeomProjectPoint3xNf32(ident, kCal, xyz.data(), 24, 3, cams.data(), 12, devs.data(), 12), 1);
  EXPECT_FLOAT_EQ(cams[0], 0.3f);
  EXPECT_EQ(cams[2], 99.0f);  // padding
  EXPECT_EQ(cams[3], 99.0f);  // w = 0
  EXPECT_EQ(cams[6], -0.0f);
  EXPECT_EQ(cams[8], 99.0f);
}

TEST_F(Camera, PointCloudScalesRaysAndMarksInvalidDepths) {
  const uint32_t w = 13, h = 4;
  Floats depth = Random(w * h, 0.5f, 4.0f);
  depth[5] = 0.0f;
  depth[17] = -1.0f;
  depth[30] = NAN;
  const float invK[9] = {1 / 500.0f, 0, -0.64f, 0, 1 / 480.0f, -0.5f, 0, 0, 1};
  Floats cloud(4 * w * h, 3.0f);
  ASSERT_EQ(tvxConvertDepthImageToPointCloudf32(depth.data(), w, h, 0, invK, cloud.data(), 16), 0);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const float* p = &cloud[4 * (y * w + x)];
      const float d = depth[y * w + x];
      if (d > 0) {
        EXPECT_NEAR(p[0], d * (x / 500.0 - 0.64), 1e-5);
        EXPECT_NEAR(p[1], d * (y / 480.0 - 0.5), 1e-5);
        EXPECT_FLOAT_EQ(p[2], d);
      } else {
        EXPECT_EQ(p[0], -10000.0f);
        EXPECT_EQ(p[1], -10000.0f);
        EXPECT_EQ(p[2], -10000.0f);
      }
      EXPECT_EQ(p[3], 3.0f);  // between points
    }
  EXPECT_EQ(tvxConvertDepthImageToPointCloudf32(depth.data(), 0, h, 0, invK, cloud.data(), 0), 0);
}

// Registration, directly from its description (single precision, R the identity): z-test at
// the target, store at the source.
Floats RegisterModel(const Floats& depth, uint32_t w, uint32_t h, const float* iK, const float* K, const float* t,
                     Floats reg) {
  std::vector<uint8_t> mark(w * h, 0);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const float d = depth[y * w + x];
      float out = -10000.0f;
      if (d > 0) {
        float P[3];
        for (int r = 0; r < 3; ++r) P[r] = d * (iK[r * 3] * float(x) + iK[r * 3 + 1] * float(y) + iK[r * 3 + 2]) + t[r];
        if (P[2] > 0) {
          const float den = K[6] * P[0] + K[7] * P[1] + K[8] * P[2];
          const int u = int((K[0] * P[0] + K[1] * P[1] + K[2] * P[2]) / den);
          const int v = int((K[3] * P[0] + K[4] * P[1] + K[5] * P[2]) / den);
          if (u >= 0 && v >= 0 && u < int(w) && v < int(h) && (!mark[v * w + u] || reg[v * w + u] > P[2])) {
            mark[v * w + u] = 1;
            out = P[2];
          }
        }
      }
      reg[y * w + x] = out;
    }
  return reg;
}

TEST_F(Camera, RegistrationTestsAtTargetAndStoresAtSource) {
  const uint32_t w = 24, h = 16;
  // Depth on a coarse grid of values, so that many pixels land on the same target.
  Floats depth(w * h);
  std::uniform_int_distribution<int> q(0, 6);
  for (float& d : depth) d = q(rng_) * 0.5f;  // includes 0 (invalid)
  const float iK[9] = {1 / 20.0f, 0, -0.6f, 0, 1 / 20.0f, -0.4f, 0, 0, 1};
  const float K[9] = {10.0f, 0, 12.0f, 0, 10.0f, 8.0f, 0, 0, 1};
  const float R[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  const float t[3] = {0.05f, -0.02f, 0.25f};
  Floats reg(w * h), start(w * h);
  for (size_t i = 0; i < reg.size(); ++i) start[i] = reg[i] = float(i % 5);  // the caller's values matter
  ASSERT_EQ(tvxRegisterDepthImagef32(depth.data(), w, h, 0, iK, K, R, t, reg.data(), 0), 0);
  const Floats model = RegisterModel(depth, w, h, iK, K, t, start);
  int accepted = 0;
  for (size_t i = 0; i < reg.size(); ++i) {
    EXPECT_EQ(reg[i], model[i]) << i;
    accepted += reg[i] != -10000.0f;
  }
  EXPECT_GT(accepted, 20);
  EXPECT_LT(accepted, int(w * h) - 20);

  // Without scratch memory: 5, nothing written.
  Floats untouched = start;
  tvx_fail_heap_after_for_test(0);
  const int32_t r = tvxRegisterDepthImagef32(depth.data(), w, h, 0, iK, K, R, t, untouched.data(), 0);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(r, 5);
  EXPECT_EQ(untouched, start);
}

float Exp2Bits(float t) {
  const int32_t bits = int32_t((t + 126.942696f) * 8388608.0f);
  float e;
  std::memcpy(&e, &bits, 4);
  return e;
}

TEST_F(Camera, DisparityCorrectionAndDepthConversion) {
  const uint32_t w = 19, h = 3;
  const Floats disp = Random(w * h, 1.0f, 60.0f), map = Random(w * h, -2.0f, 2.0f);
  std::vector<uint8_t> mask(w * h);
  for (auto& m : mask) m = rng_() % 3 ? 255 : 0;
  const float coeffs[2] = {1.5f, 0.04f}, params[2] = {0.002f, 0.01f};
  Floats out(w * h, 5.0f), depthOut(w * h, 5.0f);
  ASSERT_EQ(tvxUndistortDisparityConvertDepthf32(disp.data(), w, h, 0, mask.data(), 0, map.data(), 0, 0, coeffs, params,
                                                 out.data(), 0),
            0);
  ASSERT_EQ(tvxUndistortDisparityConvertDepthf32(disp.data(), w, h, 0, mask.data(), 0, map.data(), 0, 1, coeffs, params,
                                                 depthOut.data(), 0),
            0);
  for (size_t i = 0; i < out.size(); ++i) {
    if (!mask[i]) {
      EXPECT_EQ(out[i], 0.0f);
      EXPECT_EQ(depthOut[i], 0.0f);
      continue;
    }
    const float t = std::max((coeffs[0] - coeffs[1] * disp[i]) * 1.442695f, -126.0f);
    const float e = Exp2Bits(t);
    EXPECT_NEAR(e, std::exp2(t), 0.07 * std::exp2(t));  // the approximation is within a few percent
    const float v = disp[i] + map[i] * e;
    EXPECT_FLOAT_EQ(out[i], v);
    EXPECT_FLOAT_EQ(depthOut[i], 1.0f / (params[1] + params[0] * v));
  }
  // The exponent is clamped below at -126.
  const float big[1] = {1e6f}, one[1] = {1.0f};
  const uint8_t on[1] = {1};
  float res[1];
  ASSERT_EQ(tvxUndistortDisparityConvertDepthf32(big, 1, 1, 0, on, 0, one, 0, 0, coeffs, params, res, 0), 0);
  EXPECT_EQ(res[0], big[0] + Exp2Bits(-126.0f));
}

TEST_F(Camera, DepthFusionAveragesValidSamples) {
  const uint32_t w = 11, h = 10, maps = 4, stride = 13 * 2;  // padded rows; tiles cut at 8
  std::vector<int16_t> src(stride / 2 * h * maps);
  std::uniform_int_distribution<int> d(-3, 9);
  for (auto& v : src) v = int16_t(d(rng_) <= 0 ? (rng_() % 2 ? 0 : -5) : 1000 + rng_() % 20000);
  for (uint32_t k = 0; k < maps; ++k) src[k * h * stride / 2 + 3 * stride / 2 + 9] = int16_t(k % 2 ? 0 : -1);
  std::vector<int16_t> dst(stride / 2 * h, 77);
  ASSERT_EQ(tvxDepthFusion8x8x8xNs16(src.data(), w, h, stride, maps, dst.data(), stride), 0);
  int none = 0;
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      double sum = 0;
      int count = 0;
      for (uint32_t k = 0; k < maps; ++k) {
        const int v = src[k * h * stride / 2 + y * stride / 2 + x];
        if (v > 0) {
          sum += v;
          ++count;
        }
      }
      const int expect = count ? int(std::floor(sum / count + 0.5)) : 0;
      none += count == 0;
      EXPECT_EQ(dst[y * stride / 2 + x], expect) << x << "," << y;
    }
  EXPECT_GT(none, 0);
  for (uint32_t y = 0; y < h; ++y) EXPECT_EQ(dst[y * stride / 2 + w], 77);  // padding untouched
  // Two maxima average without overflow.
  const int16_t big[2] = {32767, 32767};
  int16_t out = 0;
  ASSERT_EQ(tvxDepthFusion8x8x8xNs16(big, 1, 1, 0, 2, &out, 0), 0);
  EXPECT_EQ(out, 32767);
  EXPECT_EQ(tvxDepthFusion8x8x8xNs16(big, 1, 1, 0, 0, &out, 0), 3);
}

TEST_F(Camera, BadArgumentsReturnStatusWithoutWriting) {
  Floats pts(8, 1.0f), out(8, 5.0f);
  EXPECT_EQ(tvxGeomDistortPoint2xNf32(kCal, pts.data(), 4, 2, out.data(), 8), 3);  // stride below a pair
  EXPECT_EQ(tvxGeomUndistortPoint2xNf32(kInvCal, pts.data(), 10, 2, out.data(), 8), 3);  // not whole floats
  EXPECT_EQ(tvxGeomDistortPoint2x1f32(nullptr, pts.data(), out.data()), 3);
  EXPECT_EQ(tvxGeomProjectPoint3xNf32(nullptr, kCal, pts.data(), 0, 2, out.data(), 0, out.data(), 0), -1);
  EXPECT_EQ(tvxConvertDepthImageToPointCloudf32(pts.data(), 2, 2, 4, kCal, out.data(), 0), 3);  // stride < row
  EXPECT_EQ(tvxUndistortDisparityConvertDepthf32(pts.data(), 2, 2, 0, nullptr, 0, pts.data(), 0, 0, kCal, kCal,
                                                 out.data(), 0),
            3);
  EXPECT_EQ(out, Floats(8, 5.0f));
}

TEST_F(Camera, SimdEqualsReferenceOnEveryTarget) {
  tvxtest::ForEachTarget([&] {
    for (uint32_t n : {1u, 3u, 8u, 17u, 64u, 101u}) {
      for (uint32_t pad : {0u, 4u, 12u}) {
        SCOPED_TRACE(::testing::Message() << "n " << n << " pad " << pad);
        const uint32_t stride = 8 + pad;
        const Floats src = Random(n * stride / 4, -0.8f, 0.8f), dev = Random(n * stride / 4, 0.0f, 640.0f);
        Floats a(n * stride / 4, 3.0f), b = a;
        tvxGeomDistortPoint2xNf32C(kCal, src.data(), stride, n, a.data(), stride);
        tvxGeomDistortPoint2xNf32V(kCal, src.data(), stride, n, b.data(), stride);
        EXPECT_TRUE(SameBits(a, b));
        tvxGeomUndistortPoint2xNf32C(kInvCal, dev.data(), stride, n, a.data(), stride);
        tvxGeomUndistortPoint2xNf32V(kInvCal, dev.data(), stride, n, b.data(), stride);
        EXPECT_TRUE(SameBits(a, b));
      }
    }
    const float invK[9] = {0.002f, 0.0001f, -0.64f, -0.0003f, 0.0021f, -0.5f, 0.001f, 0.0f, 1.0f};
    for (uint32_t w : {1u, 7u, 16u, 33u}) {
      for (uint32_t pointStride : {12u, 16u}) {
        SCOPED_TRACE(::testing::Message() << "w " << w << " pointStride " << pointStride);
        const uint32_t h = 5, dstride = w * 4 + 8;
        Floats depth = Random(dstride / 4 * h, -1.0f, 5.0f);
        Floats a(pointStride / 4 * w * h, 3.0f), b = a;
        tvxConvertDepthImageToPointCloudf32C(depth.data(), w, h, dstride, invK, a.data(), pointStride);
        tvxConvertDepthImageToPointCloudf32V(depth.data(), w, h, dstride, invK, b.data(), pointStride);
        EXPECT_TRUE(SameBits(a, b));

        std::vector<uint8_t> mask(w * h);
        for (auto& m : mask) m = rng_() % 2 ? uint8_t(rng_()) : 0;
        const Floats map = Random(dstride / 4 * h, -3.0f, 3.0f);
        // Disparities from small to huge: exponents clamped at both ends.
        Floats disp = Random(dstride / 4 * h, -4000.0f, 4000.0f);
        const float coeffs[2] = {2.0f, 0.05f}, params[2] = {0.003f, 0.02f};
        for (int32_t convert : {0, 1}) {
          Floats c(dstride / 4 * h, 3.0f), v = c;
          tvxUndistortDisparityConvertDepthf32C(disp.data(), w, h, dstride, mask.data(), w, map.data(), dstride, convert,
                                                coeffs, params, c.data(), dstride);
          tvxUndistortDisparityConvertDepthf32V(disp.data(), w, h, dstride, mask.data(), w, map.data(), dstride, convert,
                                                coeffs, params, v.data(), dstride);
          EXPECT_TRUE(SameBits(c, v)) << convert;
        }
      }
    }
  });
}

}  // namespace
