// Weights of the bilateral filters shared by the reference and SIMD variants. Both build the
// same integer tables from the sigmas once per call and evaluate the frame pixels with the same
// per-pixel rule, so the two tiers give the same bytes by construction.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "cpu/filter_rules.h"

namespace tvx::bilateral {

// Spatial and range weights are Q8 (1.0 = 256); a tap weighs space * range, at most 2^16, so
// the weighted sums of an 81-tap window stay below 2^31.
constexpr int32_t kOne = 256;
constexpr int kMaxRadius = 4;

// Sigmas of the entries without sigma arguments: the usual Gaussian-kernel sigma for the window
// size, 0.3 * ((size - 1) / 2 - 1) + 0.8 (1.1, 1.4, 1.7), and a range sigma of 50 grey levels.
inline float DefaultSigmaSpace(int radius) { return radius == 2 ? 1.1f : radius == 3 ? 1.4f : 1.7f; }
constexpr float kDefaultSigmaRange = 50.0f;

// round(256 * exp(-d2 / (2 sigma^2))), exactly 256 at distance 0 (whatever the sigma).
inline int32_t GaussQ8(double d2, double sigma) {
  if (d2 == 0) return kOne;
  return static_cast<int32_t>(std::lround(kOne * std::exp(-d2 / (2.0 * sigma * sigma))));
}

struct Tables {
  int radius;
  int32_t space[(2 * kMaxRadius + 1) * (2 * kMaxRadius + 1)];  // row-major, (dy + r) * size + dx + r
  int32_t range[256];                                           // by |p - centre|
  int size() const { return 2 * radius + 1; }
  int32_t Space(int dx, int dy) const { return space[(dy + radius) * size() + dx + radius]; }
};

inline void BuildTables(int radius, float sigmaSpace, float sigmaRange, Tables& t) {
  t.radius = radius;
  for (int dy = -radius; dy <= radius; ++dy)
    for (int dx = -radius; dx <= radius; ++dx)
      t.space[(dy + radius) * t.size() + dx + radius] = GaussQ8(double(dx * dx + dy * dy), sigmaSpace);
  for (int d = 0; d < 256; ++d) t.range[d] = GaussQ8(double(d) * d, sigmaRange);
}

// Output at (x, y): the weighted mean of the window's pixels inside the image, weights
// space(dx, dy) * range(|p - centre|), rounded: (sum + total / 2) / total. The centre always
// weighs 2^16, so the total is never 0.
inline uint8_t Pixel(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int64_t x, int64_t y,
                     const Tables& t) {
  const int32_t c = filter::Row(src, stride, y)[x];
  int32_t sum = 0, total = 0;
  for (int dy = -t.radius; dy <= t.radius; ++dy) {
    const int64_t sy = y + dy;
    if (sy < 0 || sy >= height) continue;
    const uint8_t* row = filter::Row(src, stride, sy);
    for (int dx = -t.radius; dx <= t.radius; ++dx) {
      const int64_t sx = x + dx;
      if (sx < 0 || sx >= width) continue;
      const int32_t p = row[sx];
      const int32_t w = t.Space(dx, dy) * t.range[std::abs(p - c)];
      sum += w * p;
      total += w;
    }
  }
  return static_cast<uint8_t>((sum + total / 2) / total);
}

// Feedback weights of the recursive filter (Q16) by the difference d of two neighbouring source
// pixels: round(65536 * exp(-sqrt(2) * (1 / sigmaSpace + d / sigmaRange))).
inline void RecursiveWeights(float sigmaSpace, float sigmaRange, uint32_t (&weight)[256]) {
  for (int d = 0; d < 256; ++d)
    weight[d] = static_cast<uint32_t>(
        std::lround(65536.0 * std::exp(-std::sqrt(2.0) * (1.0 / double(sigmaSpace) + d / double(sigmaRange)))));
}

}  // namespace tvx::bilateral
