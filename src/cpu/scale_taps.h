// Row addressing and sampling positions shared by the reference and SIMD scalers. For the
// nearest-neighbour and bilinear scalers, output index i of dstSize samples the source at the
// centre-aligned position (i + 0.5) * srcSize / dstSize - 0.5, computed exactly in integers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tvxscale {

// Row y of an image of T samples whose stride is in bytes.
template <typename T>
inline T* SampleRow(T* base, uint32_t strideBytes, uint32_t y) {
  using Byte = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
  return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + static_cast<size_t>(strideBytes) * y);
}

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
