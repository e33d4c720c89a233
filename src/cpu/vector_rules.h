// Rules both tiers of the vector kernels share.
#pragma once

#include <cstdint>
#include <cstring>

namespace tvxvec {

// Squared distance of two unit-normalised descriptors from their dot product:
// |2 - (2 * invLengthA) * invLengthB * dot|, the absolute value taken by clearing the sign bit.
inline float UnitDistance(float invLengthA, float invLengthB, float dot) {
  const float d = 2.0f - (2.0f * invLengthA) * invLengthB * dot;
  uint32_t bits;
  std::memcpy(&bits, &d, 4);
  bits &= 0x7FFFFFFFu;
  float r;
  std::memcpy(&r, &bits, 4);
  return r;
}

// Whether every window of kW x kH pixels at the caller's top-left corners (x, y pairs) lies
// inside the image; checked before the first result is written.
template <uint32_t kW, uint32_t kH>
bool WindowsInside(const uint32_t* xy, uint32_t numPoints, uint32_t srcWidth, uint32_t srcHeight) {
  for (uint32_t i = 0; i < numPoints; ++i) {
    const uint32_t x = xy[2 * i], y = xy[2 * i + 1];
    if (x > srcWidth || srcWidth - x < kW || y > srcHeight || srcHeight - y < kH) return false;
  }
  return true;
}

}  // namespace tvxvec
