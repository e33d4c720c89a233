// SIMD variants of the batch camera operations: distortion and undistortion of N points, the
// depth-to-point-cloud conversion and the disparity correction. Each lane repeats the
// reference's operations in the same order (no fused multiply-add), and divisions are true
// divisions on every target (ARMv7 has no vector division: its lanes divide one by one), so the
// results equal the reference's. Packed point arrays load and store interleaved; other strides
// go through small lane buffers.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/camera.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>

#include "cpu/camera_model.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace camera {
namespace hn = hwy::HWY_NAMESPACE;

using DF = hn::ScalableTag<float>;
using VF = hn::Vec<DF>;
using tvxcamera::At;

VF ExactDiv(DF df, VF a, VF b) {
#if HWY_ARCH_ARM_V7
  constexpr size_t kMax = hn::MaxLanes(DF());
  alignas(64) float x[kMax], y[kMax];
  hn::Store(a, df, x);
  hn::Store(b, df, y);
  for (size_t i = 0; i < hn::Lanes(df); ++i) x[i] = x[i] / y[i];
  return hn::Load(df, x);
#else
  return hn::Div(a, b);
#endif
}

// Loads lanes points (x, y) from tuples `stride` bytes apart.
void LoadPairs(DF df, const float* src, uint32_t stride, size_t k, VF* x, VF* y) {
  if (stride == 8) {
    hn::LoadInterleaved2(df, src + 2 * k, *x, *y);
    return;
  }
  constexpr size_t kMax = hn::MaxLanes(DF());
  alignas(64) float a[kMax], b[kMax];
  for (size_t i = 0; i < hn::Lanes(df); ++i) {
    const float* p = At(src, stride, k + i);
    a[i] = p[0];
    b[i] = p[1];
  }
  *x = hn::Load(df, a);
  *y = hn::Load(df, b);
}

void StorePairs(DF df, VF x, VF y, float* dst, uint32_t stride, size_t k) {
  if (stride == 8) {
    hn::StoreInterleaved2(x, y, df, dst + 2 * k);
    return;
  }
  constexpr size_t kMax = hn::MaxLanes(DF());
  alignas(64) float a[kMax], b[kMax];
  hn::Store(x, df, a);
  hn::Store(y, df, b);
  for (size_t i = 0; i < hn::Lanes(df); ++i) {
    float* p = At(dst, stride, k + i);
    p[0] = a[i];
    p[1] = b[i];
  }
}

struct Lens {
  VF k1, k2, p1, p2, one, two;
  Lens(DF df, const float* cal)
      : k1(hn::Set(df, cal[4])), k2(hn::Set(df, cal[5])), p1(hn::Set(df, cal[6])), p2(hn::Set(df, cal[7])),
        one(hn::Set(df, 1.0f)), two(hn::Set(df, 2.0f)) {}
  // r2 = x x + y y; f = (k1 r2 + 1) + (k2 r2) r2.
  void Radial(VF x, VF y, VF* r2, VF* f) const {
    *r2 = hn::Add(hn::Mul(x, x), hn::Mul(y, y));
    *f = hn::Add(hn::Add(hn::Mul(k1, *r2), one), hn::Mul(hn::Mul(k2, *r2), *r2));
  }
  // Tangential terms: ((2 p1) x) y + p2 (r2 + (2 x) x) and p1 (r2 + (2 y) y) + ((2 p2) x) y.
  VF TangentX(VF x, VF y, VF r2) const {
    return hn::Add(hn::Mul(hn::Mul(hn::Mul(two, p1), x), y), hn::Mul(p2, hn::Add(r2, hn::Mul(hn::Mul(two, x), x))));
  }
  VF TangentY(VF x, VF y, VF r2) const {
    return hn::Add(hn::Mul(p1, hn::Add(r2, hn::Mul(hn::Mul(two, y), y))), hn::Mul(hn::Mul(hn::Mul(two, p2), x), y));
  }
};

void Distort(const float* cal, const float* src, uint32_t srcStride, uint32_t N, float* dst, uint32_t dstStride) {
  const DF df;
  const size_t L = hn::Lanes(df);
  const Lens lens(df, cal);
  const VF fx = hn::Set(df, cal[0]), fy = hn::Set(df, cal[1]), cx = hn::Set(df, cal[2]), cy = hn::Set(df, cal[3]);
  size_t k = 0;
  for (; k + L <= N; k += L) {
    VF x, y, r2, f;
    LoadPairs(df, src, srcStride, k, &x, &y);
    lens.Radial(x, y, &r2, &f);
    // xd = (x f + tangential) with the reference's association: (x f + 2 p1 x y) + p2 (...).
    const VF xd = hn::Add(hn::Add(hn::Mul(x, f), hn::Mul(hn::Mul(hn::Mul(lens.two, lens.p1), x), y)),
                          hn::Mul(lens.p2, hn::Add(r2, hn::Mul(hn::Mul(lens.two, x), x))));
    const VF yd = hn::Add(hn::Add(hn::Mul(y, f), hn::Mul(lens.p1, hn::Add(r2, hn::Mul(hn::Mul(lens.two, y), y)))),
                          hn::Mul(hn::Mul(hn::Mul(lens.two, lens.p2), x), y));
    StorePairs(df, hn::Add(cx, hn::Mul(fx, xd)), hn::Add(cy, hn::Mul(fy, yd)), dst, dstStride, k);
  }
  for (; k < N; ++k) {
    const float* p = At(src, srcStride, k);
    tvxcamera::Distort(cal, p[0], p[1], At(dst, dstStride, k));
  }
}

void Undistort(const float* cal, const float* src, uint32_t srcStride, uint32_t N, float* dst, uint32_t dstStride) {
  const DF df;
  const size_t L = hn::Lanes(df);
  const Lens lens(df, cal);
  const VF ifx = hn::Set(df, cal[0]), ify = hn::Set(df, cal[1]), cx = hn::Set(df, cal[2]), cy = hn::Set(df, cal[3]);
  size_t k = 0;
  for (; k + L <= N; k += L) {
    VF u, v;
    LoadPairs(df, src, srcStride, k, &u, &v);
    const VF x0 = hn::Mul(hn::Sub(u, cx), ifx), y0 = hn::Mul(hn::Sub(v, cy), ify);
    VF x = x0, y = y0;
    for (int step = 0; step < 2; ++step) {
      VF r2, f;
      lens.Radial(x, y, &r2, &f);
      const VF nx = ExactDiv(df, hn::Sub(x0, lens.TangentX(x, y, r2)), f);
      const VF ny = ExactDiv(df, hn::Sub(y0, lens.TangentY(x, y, r2)), f);
      x = nx;
      y = ny;
    }
    StorePairs(df, x, y, dst, dstStride, k);
  }
  for (; k < N; ++k) {
    const float* p = At(src, srcStride, k);
    tvxcamera::Undistort(cal, p[0], p[1], At(dst, dstStride, k));
  }
}

void PointCloud(const float* depth, uint32_t width, uint32_t height, uint32_t depthStride, const float* m,
                float* cloud, uint32_t pointStride) {
  const DF df;
  const hn::RebindToSigned<DF> di;
  const size_t L = hn::Lanes(df);
  const VF invalid = hn::Set(df, tvxcamera::kInvalid), zero = hn::Zero(df);
  VF k[9];
  for (int i = 0; i < 9; ++i) k[i] = hn::Set(df, m[i]);
  constexpr size_t kMax = hn::MaxLanes(DF());
  alignas(64) float bx[kMax], by[kMax], bz[kMax];
  for (uint32_t y = 0; y < height; ++y) {
    const float* row = At(depth, depthStride, y);
    const VF fy = hn::Set(df, float(y));
    uint32_t x = 0;
    for (; x + L <= width; x += L) {
      const VF d = hn::LoadU(df, row + x);
      const VF fx = hn::ConvertTo(df, hn::Iota(di, int32_t(x)));
      const auto valid = hn::Gt(d, zero);
      const VF X = hn::IfThenElse(valid, hn::Mul(d, hn::Add(hn::Add(hn::Mul(k[0], fx), hn::Mul(k[1], fy)), k[2])), invalid);
      const VF Y = hn::IfThenElse(valid, hn::Mul(d, hn::Add(hn::Add(hn::Mul(k[3], fx), hn::Mul(k[4], fy)), k[5])), invalid);
      const VF Z = hn::IfThenElse(valid, hn::Mul(d, hn::Add(hn::Add(hn::Mul(k[6], fx), hn::Mul(k[7], fy)), k[8])), invalid);
      const size_t first = size_t(y) * width + x;
      if (pointStride == 12) {
        hn::StoreInterleaved3(X, Y, Z, df, cloud + 3 * first);
      } else {
        hn::Store(X, df, bx);
        hn::Store(Y, df, by);
        hn::Store(Z, df, bz);
        for (size_t i = 0; i < L; ++i) {
          float* p = At(cloud, pointStride, first + i);
          p[0] = bx[i];
          p[1] = by[i];
          p[2] = bz[i];
        }
      }
    }
    for (; x < width; ++x) {
      float* p = At(cloud, pointStride, size_t(y) * width + x);
      const float d = row[x], fx = float(x), fyv = float(y);
      if (d > 0.0f) {
        p[0] = d * ((m[0] * fx + m[1] * fyv) + m[2]);
        p[1] = d * ((m[3] * fx + m[4] * fyv) + m[5]);
        p[2] = d * ((m[6] * fx + m[7] * fyv) + m[8]);
      } else {
        p[0] = p[1] = p[2] = tvxcamera::kInvalid;
      }
    }
  }
}

void Disparity(const float* disparity, uint32_t width, uint32_t height, uint32_t disparityStride, const uint8_t* mask,
               uint32_t maskStride, const float* distortionMap, uint32_t distortionMapStride, int32_t convertToDepth,
               const float* coeffs, const float* depthParams, float* dst, uint32_t dstStride) {
  const DF df;
  const hn::RebindToSigned<DF> di;
  const hn::Rebind<uint8_t, decltype(di)> d8;
  const size_t L = hn::Lanes(df);
  const VF a = hn::Set(df, coeffs[0]), b = hn::Set(df, coeffs[1]), log2e = hn::Set(df, 1.442695f);
  const VF lo = hn::Set(df, -126.0f), hi = hn::Set(df, 128.0f), bias = hn::Set(df, 126.942696f),
           scale = hn::Set(df, 8388608.0f);
  const VF p0 = hn::Set(df, depthParams[0]), p1 = hn::Set(df, depthParams[1]), one = hn::Set(df, 1.0f);
  const auto zero8 = hn::Zero(di);
  for (uint32_t y = 0; y < height; ++y) {
    const float* d = At(disparity, disparityStride, y);
    const float* map = At(distortionMap, distortionMapStride, y);
    const uint8_t* m = mask + size_t(y) * maskStride;
    float* out = At(dst, dstStride, y);
    uint32_t x = 0;
    for (; x + L <= width; x += L) {
      const auto inside = hn::RebindMask(df, hn::Ne(hn::BitCast(di, hn::PromoteTo(hn::RebindToUnsigned<decltype(di)>(), hn::LoadU(d8, m + x))), zero8));
      const VF dv = hn::LoadU(df, d + x);
      VF t = hn::Mul(hn::Sub(a, hn::Mul(b, dv)), log2e);
      t = hn::IfThenElse(hn::Ge(t, lo), t, lo);
      t = hn::IfThenElse(hn::Gt(t, hi), hi, t);
      const VF e = hn::BitCast(df, hn::ConvertTo(di, hn::Mul(hn::Add(t, bias), scale)));
      VF v = hn::Add(dv, hn::Mul(hn::LoadU(df, map + x), e));
      if (convertToDepth) v = ExactDiv(df, one, hn::Add(p1, hn::Mul(p0, v)));
      hn::StoreU(hn::IfThenElseZero(inside, v), df, out + x);
    }
    for (; x < width; ++x) {
      if (!m[x]) {
        out[x] = 0.0f;
        continue;
      }
      float v = d[x] + map[x] * tvxcamera::ApproxExp2(tvxcamera::DisparityExponent(coeffs[0], coeffs[1], d[x]));
      if (convertToDepth) v = 1.0f / (depthParams[1] + depthParams[0] * v);
      out[x] = v;
    }
  }
}

}  // namespace camera

// Exported entry points (Highway exports unqualified names of this namespace).
void CameraDistortN(const float* cal, const float* src, uint32_t srcStride, uint32_t N, float* dst, uint32_t dstStride) {
  camera::Distort(cal, src, srcStride, N, dst, dstStride);
}
void CameraUndistortN(const float* cal, const float* src, uint32_t srcStride, uint32_t N, float* dst,
                      uint32_t dstStride) {
  camera::Undistort(cal, src, srcStride, N, dst, dstStride);
}
void CameraPointCloud(const float* depth, uint32_t width, uint32_t height, uint32_t depthStride, const float* m,
                      float* cloud, uint32_t pointStride) {
  camera::PointCloud(depth, width, height, depthStride, m, cloud, pointStride);
}
void CameraDisparity(const float* disparity, uint32_t width, uint32_t height, uint32_t disparityStride,
                     const uint8_t* mask, uint32_t maskStride, const float* distortionMap, uint32_t distortionMapStride,
                     int32_t convertToDepth, const float* coeffs, const float* depthParams, float* dst,
                     uint32_t dstStride) {
  camera::Disparity(disparity, width, height, disparityStride, mask, maskStride, distortionMap, distortionMapStride,
                    convertToDepth, coeffs, depthParams, dst, dstStride);
}
}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(CameraDistortN);
HWY_EXPORT(CameraUndistortN);
HWY_EXPORT(CameraPointCloud);
HWY_EXPORT(CameraDisparity);
}  // namespace tvx

using namespace tvx;

int32_t tvxGeomDistortPoint2xNf32V(const float* cameraCalibration, const float* xyCamera, uint32_t xyCameraStride,
                                   uint32_t N, float* xyDevice, uint32_t xyDeviceStride) {
  HWY_DYNAMIC_DISPATCH(CameraDistortN)(cameraCalibration, xyCamera, xyCameraStride, N, xyDevice, xyDeviceStride);
  return 0;
}

int32_t tvxGeomUndistortPoint2xNf32V(const float* cameraCalibration, const float* xyDevice, uint32_t xyDeviceStride,
                                     uint32_t N, float* xyCamera, uint32_t xyCameraStride) {
  HWY_DYNAMIC_DISPATCH(CameraUndistortN)(cameraCalibration, xyDevice, xyDeviceStride, N, xyCamera, xyCameraStride);
  return 0;
}

int32_t tvxConvertDepthImageToPointCloudf32V(const float* depth, uint32_t width, uint32_t height, uint32_t depthStride,
                                             const float* invK, float* pointCloud, uint32_t pointStride) {
  HWY_DYNAMIC_DISPATCH(CameraPointCloud)(depth, width, height, depthStride, invK, pointCloud, pointStride);
  return 0;
}

int32_t tvxUndistortDisparityConvertDepthf32V(const float* disparity, uint32_t width, uint32_t height,
                                              uint32_t disparityStride, const uint8_t* mask, uint32_t maskStride,
                                              const float* distortionMap, uint32_t distortionMapStride,
                                              int32_t convertToDepth, const float* distortionCoeffs,
                                              const float* depthParams, float* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(CameraDisparity)(disparity, width, height, disparityStride, mask, maskStride, distortionMap,
                                          distortionMapStride, convertToDepth, distortionCoeffs, depthParams, dst,
                                          dstStride);
  return 0;
}
#endif  // HWY_ONCE
