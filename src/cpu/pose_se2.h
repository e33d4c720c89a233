// Shared pieces of the SE(2) alignment sums: the column range of a row and the final scaling,
// used by the reference and the SIMD variant alike.
#pragma once

#include <cstdint>

namespace tvxpose {

// Columns [begin, end) of row y (1 <= y <= height - 2) whose 3 x 3 cross lies inside the warped
// image's valid span: the row's own span shrunk by one, intersected with the rows above and
// below; the end never passes width - 1, so column x + 1 stays inside the row.
inline void Se2Columns(const uint16_t* border, uint32_t width, uint32_t y, int64_t* begin, int64_t* end) {
  const int64_t l0 = border[2 * (y - 1)], r0 = border[2 * (y - 1) + 1];
  const int64_t l1 = border[2 * y], r1 = border[2 * y + 1];
  const int64_t l2 = border[2 * (y + 1)], r2 = border[2 * (y + 1) + 1];
  int64_t b = l1 + 1;
  if (l0 > b) b = l0;
  if (l2 > b) b = l2;
  int64_t e = r1 - 1;
  if (r0 < e) e = r0;
  if (r2 < e) e = r2;
  if (e > int64_t(width) - 1) e = int64_t(width) - 1;
  *begin = b;
  *end = e;
}

// The ten sums in their output order: gx gx, gx gy, gx r, gy gy, gy r, r r, gx e, gy e, r e, |e|.
enum : int { kGxGx, kGxGy, kGxR, kGyGy, kGyR, kRR, kGxE, kGyE, kRE, kAbsE, kSums };

// Adds one pixel's ten products to a row's 32-bit sums. The products are formed from the low
// 16 bits of gx, gy, r and e as signed values, so a large r wraps before it is multiplied.
inline void AddSe2Pixel(uint32_t* rowSums, int32_t gx, int32_t gy, int32_t e, int64_t dx, int64_t dy) {
  const int64_t r = dx * gy - dy * gx;
  const int32_t g16 = int16_t(gx), h16 = int16_t(gy), r16 = int16_t(r), e16 = int16_t(e);
  const int32_t prods[kSums] = {g16 * g16, g16 * h16, g16 * r16, h16 * h16, h16 * r16,
                                r16 * r16, g16 * e16, h16 * e16, r16 * e16, e16 < 0 ? -e16 : e16};
  for (int k = 0; k < kSums; ++k) rowSums[k] += uint32_t(prods[k]);
}

inline void Se2Output(const int64_t* sums, uint32_t pixels, float* sumJTJ, float* sumJTE, float* sumError,
                      uint32_t* numPixels) {
  const float s = 1.53787e-05f;
  const auto f = [&](int k) { return static_cast<float>(sums[k]) * s; };
  sumJTJ[0] = f(kGxGx);
  sumJTJ[1] = f(kGxGy);
  sumJTJ[2] = f(kGxR);
  sumJTJ[3] = 0.0f;
  sumJTJ[4] = f(kGyGy);
  sumJTJ[5] = f(kGyR);
  sumJTJ[6] = 0.0f;
  sumJTJ[7] = 0.0f;
  sumJTJ[8] = f(kRR);
  sumJTE[0] = f(kGxE);
  sumJTE[1] = f(kGyE);
  sumJTE[2] = f(kRE);
  *sumError = static_cast<float>(sums[kAbsE]) * 0.003921569f;
  *numPixels = pixels;
}

}  // namespace tvxpose
