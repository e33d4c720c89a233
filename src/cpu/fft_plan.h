// Tables of the radix-2 FFT shared by the reference and SIMD variants: bit-reversed indices and
// twiddle factors, built once per power-of-two length and kept for the life of the process.
#pragma once

#include <cstdint>

namespace tvxfft {

struct Plan {
  uint32_t n = 0, bits = 0;
  const uint32_t* reversed = nullptr;  // reversed[i]: i with its lowest `bits` bits reversed
  // Twiddles of the stage that combines halves of m: exp(-2 pi i j / (2 m)) for j < m, as
  // (re, im) float pairs at twiddle + 2 (m - 1 + j); n - 1 pairs in all.
  const float* twiddle = nullptr;
};

// The plan of length n = 2^bits (bits < 31); thread-safe.
const Plan& PlanFor(uint32_t bits);

inline uint32_t Log2(uint32_t n) {
  uint32_t b = 0;
  while ((uint32_t{1} << b) < n) ++b;
  return b;
}

// b times the twiddle (wr, wi), written so that the SIMD form b * (wr, wr) + swap(b) * (-wi, wi)
// rounds identically.
inline void Twiddle(float br, float bi, float wr, float wi, float* tr, float* ti) {
  *tr = br * wr + bi * -wi;
  *ti = bi * wr + br * wi;
}

// In-place butterflies of one sequence of n complex values (already in bit-reversed order),
// element i at x + 2 * i * step.
inline void Stages(const Plan& p, float* x, uint32_t step) {
  for (uint32_t m = 1; m < p.n; m *= 2) {
    const float* w = p.twiddle + 2 * (m - 1);
    for (uint32_t k = 0; k < p.n; k += 2 * m) {
      for (uint32_t j = 0; j < m; ++j) {
        float* a = x + 2 * size_t{(k + j)} * step;
        float* b = x + 2 * size_t{(k + j + m)} * step;
        float tr, ti;
        Twiddle(b[0], b[1], w[2 * j], w[2 * j + 1], &tr, &ti);
        const float ar = a[0], ai = a[1];
        a[0] = ar + tr;
        a[1] = ai + ti;
        b[0] = ar - tr;
        b[1] = ai - ti;
      }
    }
  }
}

}  // namespace tvxfft
