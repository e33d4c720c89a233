// Per-element rules of the arithmetic family. The reference variants are loops over these, and
// the SIMD variants use them for the pixels of a row that do not fill a whole vector, so both
// tiers agree by construction on every pixel that is not computed in vector lanes.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "tavix/tavix.h"

namespace tvx::rules {

// Row y of an image whose stride is in bytes; a stride that is not a whole number of elements
// is rounded down.
template <typename T>
inline T* RowOf(T* base, uint32_t strideBytes, uint32_t y) {
  return base + static_cast<size_t>(strideBytes / sizeof(T)) * y;
}

constexpr int32_t kBadParameter = 3;

inline bool ValidPolicy(int32_t policy) { return policy == 0 || policy == 1; }

// ---- shifts with the scale-factor rule: a magnitude of 32 or more gives 0 for a left shift
// and the sign for an arithmetic right shift; arithmetic wraps at 32 bits.

inline int32_t ShiftLeftS32(int32_t x, uint32_t n) {
  return n >= 32 ? 0 : static_cast<int32_t>(static_cast<uint32_t>(x) << n);
}
inline int32_t ShiftRightS32(int32_t x, uint32_t n) { return x >> (n >= 32 ? 31 : n); }
inline uint32_t ShiftLeftU32(uint32_t x, uint32_t n) { return n >= 32 ? 0 : x << n; }
inline uint32_t ShiftRightU32(uint32_t x, uint32_t n) { return n >= 32 ? 0 : x >> n; }

// Signed intermediates (products of s16 values): n > 0 rounds and shifts right arithmetically.
inline int32_t ScaleS32(int32_t p, int32_t n) {
  if (n > 0) {
    const uint32_t rounded = static_cast<uint32_t>(p) + static_cast<uint32_t>(ShiftLeftS32(1, n - 1));
    return ShiftRightS32(static_cast<int32_t>(rounded), static_cast<uint32_t>(n));
  }
  return ShiftLeftS32(p, static_cast<uint32_t>(-n));
}

// Unsigned intermediates (products of u8 values): the same with a logical shift.
inline uint32_t ScaleU32(uint32_t p, int32_t n) {
  if (n > 0) return ShiftRightU32(p + ShiftLeftU32(1, n - 1), static_cast<uint32_t>(n));
  return ShiftLeftU32(p, static_cast<uint32_t>(-n));
}

// ---- saturation

inline uint8_t SatU8(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }
inline int16_t SatS16(int32_t v) {
  return static_cast<int16_t>(v < -32768 ? -32768 : (v > 32767 ? 32767 : v));
}
inline uint16_t SatU16(int32_t v) {
  return static_cast<uint16_t>(v < 0 ? 0 : (v > 65535 ? 65535 : v));
}
inline uint8_t MinU8(uint32_t v) { return static_cast<uint8_t>(v > 255u ? 255u : v); }

// ---- absolute difference

inline uint8_t AbsDiffU8(uint8_t a, uint8_t b) { return static_cast<uint8_t>(a > b ? a - b : b - a); }
// The 32-bit difference wraps; its absolute value is stored as unsigned 32 bits.
inline uint32_t AbsDiffS32(int32_t a, int32_t b) {
  const uint32_t d = static_cast<uint32_t>(a) - static_cast<uint32_t>(b);
  return static_cast<int32_t>(d) < 0 ? 0u - d : d;
}
inline float AbsDiffF32(float a, float b) { return std::fabs(a - b); }

// ---- add and subtract with a conversion policy (0 wraps, 1 saturates)

inline uint8_t AddU8(uint8_t a, uint8_t b, int32_t policy) {
  const int32_t s = a + b;
  return policy ? SatU8(s) : static_cast<uint8_t>(s);
}
inline uint8_t SubU8(uint8_t a, uint8_t b, int32_t policy) {
  const int32_t s = a - b;
  return policy ? SatU8(s) : static_cast<uint8_t>(s);
}
inline int16_t AddS16(int16_t a, int16_t b, int32_t policy) {
  const int32_t s = a + b;
  return policy ? SatS16(s) : static_cast<int16_t>(static_cast<uint16_t>(s));
}
inline int16_t SubS16(int16_t a, int16_t b, int32_t policy) {
  const int32_t s = a - b;
  return policy ? SatS16(s) : static_cast<int16_t>(static_cast<uint16_t>(s));
}
inline uint16_t AddU16U8(uint16_t a, uint8_t b, int32_t policy) {
  const int32_t s = a + b;
  return policy ? SatU16(s) : static_cast<uint16_t>(s);
}

// ---- multiplication with a scale factor

inline uint8_t MultiplyU8(uint8_t a, uint8_t b, int32_t n, int32_t policy) {
  const uint32_t r = ScaleU32(static_cast<uint32_t>(a) * b, n);
  return policy ? MinU8(r) : static_cast<uint8_t>(r);
}
inline int16_t MultiplyS16(int16_t a, int16_t b, int32_t n, int32_t policy) {
  const int32_t r = ScaleS32(static_cast<int32_t>(a) * b, n);
  return policy ? SatS16(r) : static_cast<int16_t>(static_cast<uint16_t>(r));
}
// A right shift keeps the low 16 bits whatever the policy; a left shift clamps to 32767 under
// policy 1.
inline int16_t MultiplyU8S16(uint8_t a, uint8_t b, int32_t n, int32_t policy) {
  const uint32_t r = ScaleU32(static_cast<uint32_t>(a) * b, n);
  if (n <= 0 && policy) return static_cast<int16_t>(r > 32767u ? 32767u : r);
  return static_cast<int16_t>(static_cast<uint16_t>(r));
}
inline int16_t MultiplyScalarS16(int16_t a, int16_t scalar, int32_t shift) {
  return SatS16(ScaleS32(static_cast<int32_t>(a) * scalar, shift));
}

// ---- weighted and squared accumulation

// Weight in 8.8 fixed point: rounded half away from zero in double precision, truncated (a
// conversion that saturates at the 32-bit range, NaN giving 0), then taken as 16 bits.
inline int16_t FixedWeight(float w) {
  const double scaled = static_cast<double>(w) * 256.0;
  const double rounded = scaled >= 0.0 ? scaled + 0.5 : scaled - 0.5;
  int32_t whole;
  if (std::isnan(rounded)) whole = 0;
  else if (rounded >= 2147483647.0) whole = INT32_MAX;
  else if (rounded <= -2147483648.0) whole = INT32_MIN;
  else whole = static_cast<int32_t>(rounded);
  return static_cast<int16_t>(static_cast<uint16_t>(static_cast<uint32_t>(whole)));
}
inline uint8_t AddWeightedU8(uint8_t a, uint8_t b, int16_t wa, int16_t wb) {
  return SatU8((a * wa + b * wb + 128) >> 8);
}
// The rounded square is cut to 16 bits before a right shift; a left shift works in 32 bits.
inline uint16_t AddSquaredU8U16(uint8_t a, uint16_t acc, int32_t n) {
  const uint32_t s = static_cast<uint32_t>(a) * a;
  uint32_t t;
  if (n > 0) t = ShiftRightU32((s + ShiftLeftU32(1, n - 1)) & 0xFFFFu, static_cast<uint32_t>(n));
  else t = ShiftLeftU32(s, static_cast<uint32_t>(-n));
  const uint64_t sum = static_cast<uint64_t>(acc) + t;
  return static_cast<uint16_t>(sum > 65535u ? 65535u : sum);
}

// ---- magnitude and phase of gradient pairs

inline uint16_t MagnitudeS16(int16_t dx, int16_t dy) {
  // The sum of squares is a 32-bit integer: (-32768, -32768) wraps to a negative value.
  const int32_t m = static_cast<int32_t>(static_cast<uint32_t>(dx * dx) + static_cast<uint32_t>(dy * dy));
  const float mf = static_cast<float>(m);
  const float v = mf * tvxIsqrt(mf);
  // Float to unsigned: NaN and negatives give 0.
  if (!(v > 0.0f)) return 0;
  if (v >= 32767.0f) return 32767;
  return static_cast<uint16_t>(v);
}
// A full turn is 256 steps; the +0.5 is added in double precision and the low 8 bits kept.
inline uint8_t PhaseS16(int16_t dx, int16_t dy) {
  const float a = tvxAtan2(static_cast<float>(dy), static_cast<float>(dx));
  const float steps = a * 0.25f * 256.0f;
  return static_cast<uint8_t>(static_cast<int32_t>(static_cast<double>(steps) + 0.5));
}

// ---- depth conversion

inline int16_t DepthU8S16(uint8_t v, uint32_t shift) {
  const uint32_t s = ShiftLeftU32(v, shift);
  return static_cast<int16_t>(s > 32767u ? 32767u : s);
}
inline uint8_t DepthS16U8(int16_t v, uint32_t shift, int32_t policy) {
  const int32_t s = ShiftRightS32(v, shift);
  return policy ? SatU8(s) : static_cast<uint8_t>(s);
}

}  // namespace tvx::rules
