// Per-pixel rules of the JPEG-style (full-range BT.601) YCrCb conversions. The decoder's
// coefficients are 2^14-scaled (22970 = 1.402 * 2^14) and are applied to the doubled chroma
// difference with a 15-bit rounding shift, which gives the usual JPEG colours; the encoder's
// are 2^15-scaled. The reference variants loop over these and the SIMD variants use them
// for the pixels at the end of a row.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvx::jpeg {

inline uint8_t Clamp255(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

// What the chroma of a pixel adds to its luma in each of R, G and B.
struct ChromaOffsets {
  int32_t r, g, b;
};
inline ChromaOffsets OffsetsOf(uint8_t cr, uint8_t cb) {
  const int32_t e2 = 2 * (cr - 128), d2 = 2 * (cb - 128);
  return {(22970 * e2 + 16384) >> 15, (-5638 * d2 - 11700 * e2 + 16384) >> 15, (29032 * d2 + 16384) >> 15};
}
inline void WriteRgb(uint8_t* p, uint8_t y, ChromaOffsets o) {
  p[0] = Clamp255(y + o.r);
  p[1] = Clamp255(y + o.g);
  p[2] = Clamp255(y + o.b);
}

inline uint8_t LumaOf(const uint8_t* rgb) {
  return Clamp255((9798 * rgb[0] + 19235 * rgb[1] + 3736 * rgb[2] + 16384) >> 15);
}
// 128 + the rounded chroma sum, clamped to 0..255 (the smallest value reached is 1).
inline uint8_t CrOf(const uint8_t* rgb) {
  return Clamp255(((16384 * rgb[0] - 13720 * rgb[1] - 2664 * rgb[2] + 16384) >> 15) + 128);
}
inline uint8_t CbOf(const uint8_t* rgb) {
  return Clamp255(((-5529 * rgb[0] - 10855 * rgb[1] + 16384 * rgb[2] + 16384) >> 15) + 128);
}

}  // namespace tvx::jpeg
