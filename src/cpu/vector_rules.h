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

}  // namespace tvxvec
