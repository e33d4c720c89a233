// Numeric helpers exported for applications and shared by several operation families: the
// fast inverse square root behind the gradient magnitude, the rational quarter-turn arctangent
// behind the gradient phase, and the population count of every byte value.
#include <cmath>
#include <cstring>

#include "frame/frame.h"

namespace {

inline uint32_t FloatBits(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

inline float FloatFromBits(uint32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

}  // namespace

extern "C" {

// Bit-trick seed (the arithmetic shift keeps the sign of negative inputs) refined by two
// Newton steps. The SIMD magnitude kernels repeat these float operations in this order.
TVX_API float tvxIsqrt(float x) {
  const int32_t bits = static_cast<int32_t>(FloatBits(x));
  float y = FloatFromBits(0x5F3759DFu - static_cast<uint32_t>(bits >> 1));
  const float h = 0.5f * x;
  y = y * (1.5f - h * y * y);
  y = y * (1.5f - h * y * y);
  return y;
}

// Angle of (x, y) in quarter turns, [0, 4): a rational approximation of the angle inside the
// quadrant plus the quadrant offset chosen from the sign bits (so -0.0 counts as negative).
TVX_API float tvxAtan2(float y, float x) {
  if (x == 0.0f && y == 0.0f) return 0.0f;
  const float k = 0.596227f;
  const float c = k * std::fabs(x * y);
  float f = (y * y + c) / (x * x + c + y * y + c);
  const bool xNegative = std::signbit(x);
  const bool yNegative = std::signbit(y);
  if (xNegative != yNegative) f = -f;
  const float quadrant = xNegative ? 2.0f : (yNegative ? 4.0f : 0.0f);
  return quadrant + f;
}

#define TVX_POP2(n) n, n + 1, n + 1, n + 2
#define TVX_POP4(n) TVX_POP2(n), TVX_POP2(n + 1), TVX_POP2(n + 1), TVX_POP2(n + 2)
#define TVX_POP6(n) TVX_POP4(n), TVX_POP4(n + 1), TVX_POP4(n + 1), TVX_POP4(n + 2)
// Visibility comes from the declaration in the public header.
const int8_t tvxPopCountTable[256] = {TVX_POP6(0), TVX_POP6(1), TVX_POP6(1), TVX_POP6(2)};
#undef TVX_POP6
#undef TVX_POP4
#undef TVX_POP2

}  // extern "C"
