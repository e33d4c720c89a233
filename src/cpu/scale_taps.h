// Sampling positions shared by the reference and SIMD nearest-neighbour and bilinear scalers.
// Output index i of dstSize samples the source at the centre-aligned position
// (i + 0.5) * srcSize / dstSize - 0.5, computed exactly in integers.
#pragma once

#include <cstdint>

namespace tvxscale {

// Source index nearest to output i: floor((2i + 1) * srcSize / (2 * dstSize)), always < srcSize.
inline uint32_t NearestIndex(uint32_t i, uint32_t srcSize, uint32_t dstSize) {
  return static_cast<uint32_t>((2 * uint64_t{i} + 1) * srcSize / (2 * uint64_t{dstSize}));
}

// The two source samples around output i and the weight of the second, in 1/256 (rounded).
// Positions before the first or past the last sample clamp to it with weight 0.
struct LinearTap {
  uint32_t i0, i1, w;
};
inline LinearTap Linear(uint32_t i, uint32_t srcSize, uint32_t dstSize) {
  const int64_t den = 2 * int64_t{dstSize};
  int64_t num = (2 * int64_t{i} + 1) * srcSize - dstSize;
  if (num < 0) num = 0;
  const int64_t i0 = num / den, rem = num % den;
  if (i0 >= int64_t{srcSize} - 1) return {srcSize - 1, srcSize - 1, 0};
  return {static_cast<uint32_t>(i0), static_cast<uint32_t>(i0 + 1), static_cast<uint32_t>((rem * 256 + dstSize) / den)};
}

}  // namespace tvxscale
