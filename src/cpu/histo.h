// Scalar pieces the reference and SIMD variants of the histogram family share, so that both
// tiers finish from the same exact integer sums with the same floating-point steps.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace tvxhisto {

inline const uint8_t* Row(const void* base, uint32_t stride, uint32_t y) {
  return static_cast<const uint8_t*>(base) + static_cast<size_t>(y) * stride;
}
inline uint8_t* Row(void* base, uint32_t stride, uint32_t y) {
  return static_cast<uint8_t*>(base) + static_cast<size_t>(y) * stride;
}

// Mean and population standard deviation from the exact sums of v and v*v over n pixels.
inline void FinishStats(uint64_t s1, uint64_t s2, uint64_t n, float* mean, float* stdDev) {
  if (n == 0) {
    *mean = 0.0f;
    *stdDev = 0.0f;
    return;
  }
  const double m = static_cast<double>(s1) / static_cast<double>(n);
  double var = (static_cast<double>(s2) - static_cast<double>(s1) * m) / static_cast<double>(n);
  if (var < 0.0) var = 0.0;
  *mean = static_cast<float>(m);
  *stdDev = static_cast<float>(std::sqrt(var));
}

// Equalisation table from a 256-bin histogram of n pixels (n >= 1): the cumulative count above
// the lowest present value, scaled in single precision to 0..255 and rounded half to even.
inline void EqualizeTable(const uint32_t hist[256], uint32_t n, uint8_t lut[256]) {
  uint32_t i = 0;
  while (hist[i] == 0) ++i;  // n >= 1, so some bin is non-zero
  if (hist[i] == n) {
    for (uint32_t v = 0; v < 256; ++v) lut[v] = static_cast<uint8_t>(i);
    return;
  }
  const float scale = 255.0f / static_cast<float>(n - hist[i]);
  for (uint32_t v = 0; v <= i; ++v) lut[v] = 0;
  uint32_t sum = 0;
  for (uint32_t v = i + 1; v < 256; ++v) {
    sum += hist[v];
    const float scaled = static_cast<float>(sum) * scale;
    long r = std::lrintf(scaled);  // current rounding mode: to nearest, ties to even
    lut[v] = static_cast<uint8_t>(r < 0 ? 0 : (r > 255 ? 255 : r));
  }
}

// Raw moments in double precision, accumulated row by row from the top.
struct MomentSums {
  double m00 = 0, m10 = 0, m01 = 0, m20 = 0, m11 = 0, m02 = 0, m30 = 0, m21 = 0, m12 = 0, m03 = 0;
  // Adds one row's sums of v, v x, v x^2 and v x^3 at row y.
  void AddRow(double s0, double s1, double s2, double s3, uint32_t y) {
    const double fy = y, fy2 = fy * fy, fy3 = fy2 * fy;
    m00 += s0;
    m10 += s1;
    m01 += s0 * fy;
    m20 += s2;
    m11 += s1 * fy;
    m02 += s0 * fy2;
    m30 += s3;
    m21 += s2 * fy;
    m12 += s1 * fy2;
    m03 += s0 * fy3;
  }
};

// The 24 outputs: raw, central and normalised moments.
inline void FinishMoments(const MomentSums& s, float* out) {
  double cx = 0, cy = 0, inv = 0;
  if (s.m00 != 0.0) {
    inv = 1.0 / s.m00;
    cx = s.m10 * inv;
    cy = s.m01 * inv;
  }
  const double mu20 = s.m20 - s.m10 * cx;
  const double mu11 = s.m11 - s.m10 * cy;
  const double mu02 = s.m02 - s.m01 * cy;
  const double mu30 = s.m30 - cx * (3 * mu20 + cx * s.m10);
  const double mu21 = s.m21 - cx * (2 * mu11 + cx * s.m01) - cy * mu20;
  const double mu12 = s.m12 - cy * (2 * mu11 + cy * s.m10) - cx * mu02;
  const double mu03 = s.m03 - cy * (3 * mu02 + cy * s.m01);
  const double s2 = inv * inv, s3 = s2 * std::sqrt(std::fabs(inv));
  const double all[24] = {s.m00, s.m10, s.m01, s.m20, s.m11, s.m02, s.m30, s.m21, s.m12, s.m03,
                          mu20,  mu11,  mu02,  mu30,  mu21,  mu12,  mu03,
                          mu20 * s2, mu11 * s2, mu02 * s2, mu30 * s3, mu21 * s3, mu12 * s3, mu03 * s3};
  for (int k = 0; k < 24; ++k) out[k] = static_cast<float>(all[k]);
}

// One pixel's local binary pattern code: bit k set when neighbour k minus the centre reaches t.
inline uint8_t LbpCode(int32_t c, const int32_t n[8], int64_t t) {
  uint32_t code = 0;
  for (int k = 7; k >= 0; --k) code = (code << 1) | (int64_t{n[k]} - c >= t ? 1u : 0u);
  return static_cast<uint8_t>(code);
}

}  // namespace tvxhisto
