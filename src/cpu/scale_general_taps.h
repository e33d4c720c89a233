// Filter taps shared by the reference and SIMD general scalers: border index rules, bilinear
// taps that may fall outside the image, area-overlap weights and the polyphase cubic table.
// Every weight is an integer computed in integers, so both variants see the same numbers.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace tvxsg {

// Reflect-101 (c b | a b c | b a) index into n samples, for any distance outside.
inline int32_t Reflect101(int64_t i, int64_t n) {
  if (n == 1) return 0;
  while (i < 0 || i >= n) {
    if (i < 0) i = -i;
    if (i >= n) i = 2 * (n - 1) - i;
  }
  return static_cast<int32_t>(i);
}

inline int32_t Clamp(int64_t i, int64_t n) { return static_cast<int32_t>(i < 0 ? 0 : (i >= n ? n - 1 : i)); }

// Floor of a / b for b > 0.
inline int64_t FloorDiv(int64_t a, int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

// ---- bilinear ------------------------------------------------------------------------------
// Output i samples the centre-aligned position (i + 0.5) * srcSize / dstSize - 0.5 between
// source i0 and i0 + 1 (i0 in -1 .. srcSize - 1, so either may lie outside), the second with
// weight w / 256, w rounded, 0 <= w <= 256.
struct EdgeTap {
  int32_t i0;
  uint32_t w;
};
inline EdgeTap LinearAt(uint32_t i, uint32_t srcSize, uint32_t dstSize) {
  const int64_t den = 2 * int64_t{dstSize};
  const int64_t num = (2 * int64_t{i} + 1) * srcSize - dstSize;
  const int64_t i0 = FloorDiv(num, den), rem = num - i0 * den;
  return {static_cast<int32_t>(i0), static_cast<uint32_t>((rem * 256 + dstSize) / den)};
}

// ---- area ----------------------------------------------------------------------------------
// Output i covers the source interval [i * srcSize / dstSize, (i + 1) * srcSize / dstSize).
// Each covered pixel weighs its overlap, in 1/256 of the interval; the weights are differences
// of rounded running sums, so they always add up to exactly 256.
struct AreaTaps {
  std::vector<uint32_t> first, count, start;  // per output: first pixel, pixels, index into weight
  std::vector<uint16_t> weight;
};
inline AreaTaps AreaWeights(uint32_t srcSize, uint32_t dstSize) {
  AreaTaps t;
  t.first.resize(dstSize);
  t.count.resize(dstSize);
  t.start.resize(dstSize);
  for (uint32_t i = 0; i < dstSize; ++i) {
    const uint64_t lo = uint64_t{i} * srcSize, hi = lo + srcSize;  // in 1/dstSize pixels
    const uint64_t k0 = lo / dstSize, k1 = (hi - 1) / dstSize;
    t.first[i] = static_cast<uint32_t>(k0);
    t.count[i] = static_cast<uint32_t>(k1 - k0 + 1);
    t.start[i] = static_cast<uint32_t>(t.weight.size());
    uint64_t before = 0;
    for (uint64_t k = k0; k <= k1; ++k) {
      const uint64_t end = (k + 1) * dstSize < hi ? (k + 1) * dstSize : hi;
      const uint64_t cum = end - lo;
      const uint64_t w = (cum * 256 + srcSize / 2) / srcSize - (before * 256 + srcSize / 2) / srcSize;
      t.weight.push_back(static_cast<uint16_t>(w));
      before = cum;
    }
  }
  return t;
}

// ---- polyphase cubic -----------------------------------------------------------------------
// 32 phases of the Catmull-Rom cubic (a = -0.5) in 1/64, each row adding up to exactly 64.
constexpr uint32_t kPhases = 32;
constexpr int32_t kPolyOne = 64;

constexpr int32_t RoundDiv1024(int64_t v) { return static_cast<int32_t>(v >= 0 ? (v + 512) / 1024 : -((-v + 512) / 1024)); }

constexpr std::array<std::array<int16_t, 4>, kPhases> MakePolyTable() {
  std::array<std::array<int16_t, 4>, kPhases> table{};
  for (int64_t p = 0; p < int64_t{kPhases}; ++p) {
    // Weights at t = p / 32, scaled by 64: numerators over 1024.
    int32_t w[4] = {RoundDiv1024(-p * p * p + 64 * p * p - 1024 * p), RoundDiv1024(3 * p * p * p - 160 * p * p + 65536),
                    RoundDiv1024(-3 * p * p * p + 128 * p * p + 1024 * p), RoundDiv1024(p * p * p - 32 * p * p)};
    const int32_t rest = kPolyOne - (w[0] + w[1] + w[2] + w[3]);
    w[p < 16 ? 1 : 2] += rest;
    for (int k = 0; k < 4; ++k) table[p][k] = static_cast<int16_t>(w[k]);
  }
  return table;
}
inline constexpr auto kPolyTable = MakePolyTable();

// Output i sits at (i + 0.5) * srcSize / dstSize - 0.5 = i0 + phase / 32 (phase rounded, a full
// step carried into i0); its taps apply to source i0 - 1 .. i0 + 2.
struct PolyTap {
  int32_t i0;
  uint32_t phase;
};
inline PolyTap PolyAt(uint32_t i, uint32_t srcSize, uint32_t dstSize) {
  const int64_t den = 2 * int64_t{dstSize};
  const int64_t num = (2 * int64_t{i} + 1) * srcSize - dstSize;
  int64_t i0 = FloorDiv(num, den);
  const int64_t rem = num - i0 * den;
  int64_t phase = (rem * kPhases + dstSize) / den;
  if (phase == kPhases) {
    ++i0;
    phase = 0;
  }
  return {static_cast<int32_t>(i0), static_cast<uint32_t>(phase)};
}

}  // namespace tvxsg
