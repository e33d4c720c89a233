// Sampling rules of the remaps shared by the reference and SIMD variants: nearest positions
// rounded half away from zero, bilinear positions in 1/32 pixel, and the bilinear blend.
#pragma once

#include <cstdint>

namespace tvxremap {

constexpr uint32_t kBorderConstant = 1;

// Nearest neighbour: round half away from zero in double; the result counts as inside when its
// truncation lies in [0, size). Comparing the double first keeps NaN and huge values away from
// the conversion (they are outside).
inline bool NearestIndex(float m, uint32_t size, uint32_t* index) {
  const double v = m;
  const double r = v >= 0 ? v + 0.5 : v - 0.5;
  if (!(r > -1.0 && r < static_cast<double>(size))) return false;
  *index = static_cast<uint32_t>(static_cast<int64_t>(r));
  return true;
}

// Bilinear: fixed position floor(32 m + 0.5) computed in single precision, clamped to
// [lo, hi] before conversion (NaN becomes lo). The clamps lie outside [0, 32 size), so
// clamped positions stay outside.
inline int32_t FixedPosition(float m, float lo, float hi) {
  float t = m * 32.0f + 0.5f;
  if (!(t >= lo)) t = lo;
  if (t > hi) t = hi;
  int32_t i = static_cast<int32_t>(t);
  if (static_cast<float>(i) > t) --i;
  return i;
}

// Clamp bounds for a source side of `size` pixels.
inline float FixedLow() { return -64.0f; }
inline float FixedHigh(uint32_t size) { return static_cast<float>(size) * 32.0f + 64.0f; }

// Blend of the four neighbours with 1/32 fractions fx, fy.
inline uint32_t Blend(uint32_t p00, uint32_t p01, uint32_t p10, uint32_t p11, uint32_t fx, uint32_t fy) {
  const uint32_t top = (32 - fx) * p00 + fx * p01;
  const uint32_t bottom = (32 - fx) * p10 + fx * p11;
  return ((32 - fy) * top + fy * bottom + 512) >> 10;
}

}  // namespace tvxremap
