// Reference variants of the camera model and depth conversions: lens distortion and its
// two-step inverse, projection with a pose, depth image to point cloud, depth registration into
// a second camera, and the disparity correction with its conversion to depth.
//
// Every formula is evaluated in single precision left to right as written in the comments
// (no fused multiply-add), which the SIMD variants repeat operation for operation.
#include <cstddef>
#include <cstring>

#include "cpu/camera_model.h"
#include "frame/frame.h"

namespace {

using tvxcamera::At;
using tvxcamera::kInvalid;

}  // namespace

int32_t tvxGeomDistortPoint2x1f32C(const float* cameraCalibration, const float* xyCamera, float* xyDevice) {
  tvxcamera::Distort(cameraCalibration, xyCamera[0], xyCamera[1], xyDevice);
  return 0;
}

int32_t tvxGeomDistortPoint2xNf32C(const float* cameraCalibration, const float* xyCamera, uint32_t xyCameraStride,
                                   uint32_t N, float* xyDevice, uint32_t xyDeviceStride) {
  for (uint32_t k = 0; k < N; ++k) {
    const float* in = At(xyCamera, xyCameraStride, k);
    tvxcamera::Distort(cameraCalibration, in[0], in[1], At(xyDevice, xyDeviceStride, k));
  }
  return 0;
}

int32_t tvxGeomUndistortPoint2x1f32C(const float* cameraCalibration, const float* xyDevice, float* xyCamera) {
  tvxcamera::Undistort(cameraCalibration, xyDevice[0], xyDevice[1], xyCamera);
  return 0;
}

int32_t tvxGeomUndistortPoint2xNf32C(const float* cameraCalibration, const float* xyDevice, uint32_t xyDeviceStride,
                                     uint32_t N, float* xyCamera, uint32_t xyCameraStride) {
  for (uint32_t k = 0; k < N; ++k) {
    const float* in = At(xyDevice, xyDeviceStride, k);
    tvxcamera::Undistort(cameraCalibration, in[0], in[1], At(xyCamera, xyCameraStride, k));
  }
  return 0;
}

int32_t tvxGeomProjectPoint3x1f32C(const float* pose, const float* cameraCalibration, const float* xyz,
                                   float* xyCamera, float* xyDevice) {
  const float X = xyz[0], Y = xyz[1], Z = xyz[2];
  const float w = pose[8] * X + pose[9] * Y + pose[10] * Z + pose[11];
  if (w == 0.0f) return 0;
  xyCamera[0] = (pose[0] * X + pose[1] * Y + pose[2] * Z + pose[3]) / w;
  xyCamera[1] = (pose[4] * X + pose[5] * Y + pose[6] * Z + pose[7]) / w;
  tvxGeomDistortPoint2x1f32(cameraCalibration, xyCamera, xyDevice);
  return w > 0.0f ? 1 : 0;
}

int32_t tvxGeomProjectPoint3xNf32C(const float* pose, const float* cameraCalibration, const float* xyz,
                                   uint32_t xyzStride, uint32_t N, float* xyCamera, uint32_t xyCameraStride,
                                   float* xyDevice, uint32_t xyDeviceStride) {
  int32_t inFront = 0;
  for (uint32_t k = 0; k < N; ++k)
    inFront += tvxGeomProjectPoint3x1f32C(pose, cameraCalibration, At(xyz, xyzStride, k), At(xyCamera, xyCameraStride, k),
                                          At(xyDevice, xyDeviceStride, k));
  return inFront;
}

int32_t tvxConvertDepthImageToPointCloudf32C(const float* depth, uint32_t width, uint32_t height, uint32_t depthStride,
                                             const float* invK, float* pointCloud, uint32_t pointStride) {
  for (uint32_t y = 0; y < height; ++y) {
    const float* row = At(depth, depthStride, y);
    const float fy = float(y);
    for (uint32_t x = 0; x < width; ++x) {
      float* p = At(pointCloud, pointStride, size_t(y) * width + x);
      const float d = row[x], fx = float(x);
      if (d > 0.0f) {
        p[0] = d * ((invK[0] * fx + invK[1] * fy) + invK[2]);
        p[1] = d * ((invK[3] * fx + invK[4] * fy) + invK[5]);
        p[2] = d * ((invK[6] * fx + invK[7] * fy) + invK[8]);
      } else {
        p[0] = p[1] = p[2] = kInvalid;
      }
    }
  }
  return 0;
}

int32_t tvxRegisterDepthImagef32C(const float* depth, uint32_t width, uint32_t height, uint32_t depthStride,
                                  const float* invKDepth, const float* KColor, const float* R,
                                  const float* translation, float* registered, uint32_t registeredStride) {
  if (width == 0 || height == 0) return 0;
  const uint32_t pixels = width * height;
  uint8_t* marked = static_cast<uint8_t*>(tvxGetScratchBufferAligned_(pixels, 16));
  if (!marked) return 5;
  std::memset(marked, 0, pixels);
  // M = R invKDepth, each element summed over k in order.
  float M[9];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      M[r * 3 + c] = R[r * 3] * invKDepth[c] + R[r * 3 + 1] * invKDepth[3 + c] + R[r * 3 + 2] * invKDepth[6 + c];
  for (uint32_t y = 0; y < height; ++y) {
    const float* in = At(depth, depthStride, y);
    float* out = At(registered, registeredStride, y);
    const float fy = float(y);
    for (uint32_t x = 0; x < width; ++x) {
      const float d = in[x], fx = float(x);
      float value = kInvalid;
      if (d > 0.0f) {
        float P[3];
        for (int r = 0; r < 3; ++r) P[r] = d * ((M[r * 3] * fx + M[r * 3 + 1] * fy) + M[r * 3 + 2]) + translation[r];
        if (P[2] > 0.0f) {
          const float den = KColor[6] * P[0] + KColor[7] * P[1] + KColor[8] * P[2];
          const float u = (KColor[0] * P[0] + KColor[1] * P[1] + KColor[2] * P[2]) / den;
          const float v = (KColor[3] * P[0] + KColor[4] * P[1] + KColor[5] * P[2]) / den;
          int64_t iu = -1, iv = -1;
          if (tvxcamera::FitsInt32(u) && tvxcamera::FitsInt32(v)) {
            iu = static_cast<int32_t>(u);  // truncation toward zero
            iv = static_cast<int32_t>(v);
          }
          if (iu >= 0 && iv >= 0 && iu < int64_t(width) && iv < int64_t(height)) {
            uint8_t& mark = marked[size_t(iv) * width + size_t(iu)];
            if (!mark || At(registered, registeredStride, uint32_t(iv))[iu] > P[2]) {
              mark = 1;
              value = P[2];
            }
          }
        }
      }
      out[x] = value;
    }
  }
  tvxReleaseScratchBuffer_(marked);
  return 0;
}

int32_t tvxUndistortDisparityConvertDepthf32C(const float* disparity, uint32_t width, uint32_t height,
                                              uint32_t disparityStride, const uint8_t* mask, uint32_t maskStride,
                                              const float* distortionMap, uint32_t distortionMapStride,
                                              int32_t convertToDepth, const float* distortionCoeffs,
                                              const float* depthParams, float* dst, uint32_t dstStride) {
  const float a = distortionCoeffs[0], b = distortionCoeffs[1];
  for (uint32_t y = 0; y < height; ++y) {
    const float* d = At(disparity, disparityStride, y);
    const float* map = At(distortionMap, distortionMapStride, y);
    const uint8_t* m = mask + size_t(y) * maskStride;
    float* out = At(dst, dstStride, y);
    for (uint32_t x = 0; x < width; ++x)
      out[x] = m[x] ? d[x] + map[x] * tvxcamera::ApproxExp2(tvxcamera::DisparityExponent(a, b, d[x])) : 0.0f;
  }
  if (!convertToDepth) return 0;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* m = mask + size_t(y) * maskStride;
    float* out = At(dst, dstStride, y);
    for (uint32_t x = 0; x < width; ++x)
      if (m[x]) out[x] = 1.0f / (depthParams[1] + depthParams[0] * out[x]);
  }
  return 0;
}

int32_t tvxDepthFusion8x8x8xNs16C(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                                  uint32_t numMaps, int16_t* dst, uint32_t dstStride) {
  const size_t mapBytes = size_t(height) * srcStride;
  constexpr uint32_t kTile = 8;
  for (uint32_t ty = 0; ty < height; ty += kTile) {
    for (uint32_t tx = 0; tx < width; tx += kTile) {
      const uint32_t ey = ty + kTile < height ? ty + kTile : height, ex = tx + kTile < width ? tx + kTile : width;
      for (uint32_t y = ty; y < ey; ++y) {
        int16_t* out = At(dst, dstStride, y);
        for (uint32_t x = tx; x < ex; ++x) {
          int64_t sum = 0, count = 0;
          for (uint32_t k = 0; k < numMaps; ++k) {
            const int16_t* map = reinterpret_cast<const int16_t*>(reinterpret_cast<const uint8_t*>(src) + k * mapBytes);
            const int16_t v = At(map, srcStride, y)[x];
            if (v > 0) {
              sum += v;
              ++count;
            }
          }
          out[x] = static_cast<int16_t>(count ? (sum + count / 2) / count : 0);
        }
      }
    }
  }
  return 0;
}
