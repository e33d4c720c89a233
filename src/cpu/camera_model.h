// Scalar camera-model formulas shared by the reference variants and the scalar tails of the
// SIMD variants, so both evaluate them in the same order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tvxcamera {

constexpr float kInvalid = -10000.0f;

template <typename T>
inline T* At(T* base, uint32_t stride, size_t k) {
  using Byte = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
  return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + k * stride);
}

// cal = [fx, fy, cx, cy, k1, k2, p1, p2].
inline void Distort(const float* cal, float x, float y, float* out) {
  const float k1 = cal[4], k2 = cal[5], p1 = cal[6], p2 = cal[7];
  const float r2 = x * x + y * y;
  const float f = k1 * r2 + 1.0f + k2 * r2 * r2;
  const float xd = x * f + 2.0f * p1 * x * y + p2 * (r2 + 2.0f * x * x);
  const float yd = y * f + p1 * (r2 + 2.0f * y * y) + 2.0f * p2 * x * y;
  out[0] = cal[2] + cal[0] * xd;
  out[1] = cal[3] + cal[1] * yd;
}

// cal = [1/fx, 1/fy, cx, cy, k1, k2, p1, p2]; exactly two fixed-point steps.
inline void Undistort(const float* cal, float u, float v, float* out) {
  const float k1 = cal[4], k2 = cal[5], p1 = cal[6], p2 = cal[7];
  const float x0 = (u - cal[2]) * cal[0], y0 = (v - cal[3]) * cal[1];
  float x = x0, y = y0;
  for (int step = 0; step < 2; ++step) {
    const float r2 = x * x + y * y;
    const float f = k1 * r2 + 1.0f + k2 * r2 * r2;
    const float nx = (x0 - (2.0f * p1 * x * y + p2 * (r2 + 2.0f * x * x))) / f;
    const float ny = (y0 - (p1 * (r2 + 2.0f * y * y) + 2.0f * p2 * x * y)) / f;
    x = nx;
    y = ny;
  }
  out[0] = x;
  out[1] = y;
}

// True when truncating v toward zero gives an int32_t (NaN is not).
inline bool FitsInt32(float v) { return v > -2147483648.0f && v < 2147483648.0f; }

// t = (a - b d) log2(e), clamped to [-126, 128] (NaN to -126).
inline float DisparityExponent(float a, float b, float d) {
  float t = (a - b * d) * 1.442695f;
  if (!(t >= -126.0f)) t = -126.0f;
  if (t > 128.0f) t = 128.0f;
  return t;
}

// 2^t from the bit pattern (t + 126.942696) 2^23 (t within [-126, 128], so the integer fits).
inline float ApproxExp2(float t) {
  const int32_t bits = static_cast<int32_t>((t + 126.942696f) * 8388608.0f);
  float e;
  std::memcpy(&e, &bits, sizeof e);
  return e;
}

}  // namespace tvxcamera
