// Scalar building blocks of the Haar and 5/3 wavelet transforms, shared by the reference and
// SIMD variants so that both tiers compute every coefficient with the same integer steps.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvxwav {

// Q15 1/sqrt(2), Q15 sqrt(2).
constexpr int32_t kHalfRoot2 = 23170, kRoot2 = 46340;
// 5/3 analysis: low-pass taps in Q14 (centre, +-1, +-2), high-pass taps in Q15 (centre, +-1).
constexpr int32_t kLo0 = 17378, kLo1 = 5793, kLo2 = -2896, kHi0 = 23170, kHi1 = -11585;

inline int16_t Sat16(int32_t v) { return static_cast<int16_t>(v < -32768 ? -32768 : (v > 32767 ? 32767 : v)); }
inline uint8_t Sat8(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

inline int32_t HaarSum(int32_t a, int32_t b) { return ((a + b) * kHalfRoot2 + 16384) >> 15; }
inline int32_t HaarDiff(int32_t a, int32_t b) { return ((a - b) * kHalfRoot2 + 16384) >> 15; }
inline int32_t HaarLone(int32_t x) { return (x * kRoot2 + 16384) >> 15; }

// 5/3 analysis at one position from the centre sample and its mirrored neighbours at distance 1 and 2.
inline int32_t Lo53(int32_t c, int32_t n1, int32_t n2) { return (n1 * kLo1 + n2 * kLo2 + c * kLo0 + 8192) >> 14; }
inline int32_t Hi53(int32_t c, int32_t n1) { return (n1 * kHi1 + c * kHi0 + 16384) >> 15; }
// 5/3 synthesis: even positions from the low coefficient and the two high neighbours, odd positions
// from the high coefficient, the two low neighbours (sum n1) and the two high ones at distance 2 (n2).
inline int32_t Even53(int32_t c, int32_t n1) { return (c * kHi0 + n1 * kHi1 + 16384) >> 15; }
inline int32_t Odd53(int32_t c, int32_t n1, int32_t n2) { return (n1 * kLo1 + c * kLo0 + n2 * kLo2 + 8192) >> 14; }

// Index p mirrored about the end samples of a sequence of n (whole-sample symmetric extension).
inline uint32_t Mirror(int64_t p, uint32_t n) {
  if (n == 1) return 0;
  const int64_t period = 2 * (static_cast<int64_t>(n) - 1);
  p %= period;
  if (p < 0) p += period;
  return static_cast<uint32_t>(p < n ? p : period - p);
}

// One-dimensional Haar analysis of n samples read every inStep elements; coefficient k is written
// at out[k * outStep] (lows first, highs from (n + 1) / 2).
template <typename T>
void Haar1D(const T* in, ptrdiff_t inStep, uint32_t n, int16_t* out, ptrdiff_t outStep) {
  const uint32_t half = n / 2, hiBase = (n + 1) / 2;
  for (uint32_t i = 0; i < half; ++i) {
    const int32_t a = in[2 * i * inStep], b = in[(2 * i + 1) * inStep];
    out[i * outStep] = Sat16(HaarSum(a, b));
    out[(hiBase + i) * outStep] = Sat16(HaarDiff(a, b));
  }
  if (n & 1) out[half * outStep] = Sat16(HaarLone(in[(n - 1) * inStep]));
}

// One-dimensional Haar synthesis: the n samples into out[] (32-bit, the caller narrows them).
inline void IHaar1D(const int16_t* in, ptrdiff_t inStep, uint32_t n, int32_t* out) {
  const uint32_t half = n / 2, hiBase = (n + 1) / 2;
  for (uint32_t i = 0; i < half; ++i) {
    const int32_t lo = in[i * inStep], hi = in[(hiBase + i) * inStep];
    out[2 * i] = HaarSum(lo, hi);
    out[2 * i + 1] = HaarDiff(lo, hi);
  }
  if (n & 1) out[n - 1] = HaarLone(in[half * inStep]);
}

template <typename T>
void F53_1D(const T* in, ptrdiff_t inStep, uint32_t n, int16_t* out, ptrdiff_t outStep) {
  const uint32_t hiBase = (n + 1) / 2;
  const auto x = [&](int64_t p) -> int32_t { return in[Mirror(p, n) * inStep]; };
  for (int64_t p = 0; p < n; ++p) {
    if ((p & 1) == 0) {
      out[(p / 2) * outStep] = Sat16(Lo53(x(p), x(p - 1) + x(p + 1), x(p - 2) + x(p + 2)));
    } else {
      out[(hiBase + p / 2) * outStep] = Sat16(Hi53(x(p), x(p - 1) + x(p + 1)));
    }
  }
}

// Coefficient of signal position p of an n-sample 5/3 plane line (mirrored; a length of 1 has no
// high-pass coefficient, which counts as 0).
inline int32_t Coef53(const int16_t* in, ptrdiff_t inStep, uint32_t n, int64_t p) {
  if (n == 1) return (p & 1) ? 0 : in[0];
  const uint32_t q = Mirror(p, n);
  return in[((q & 1) ? (n + 1) / 2 + q / 2 : q / 2) * inStep];
}

inline void I53_1D(const int16_t* in, ptrdiff_t inStep, uint32_t n, int32_t* out) {
  const auto c = [&](int64_t p) { return Coef53(in, inStep, n, p); };
  for (int64_t p = 0; p < n; ++p) {
    if ((p & 1) == 0) out[p] = Even53(c(p), c(p - 1) + c(p + 1));
    else out[p] = Odd53(c(p), c(p - 1) + c(p + 1), c(p - 2) + c(p + 2));
  }
}

}  // namespace tvxwav
