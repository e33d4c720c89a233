// Gradient Hough circles shared by the reference and SIMD variants: both hand in the pass that
// computes the Sobel gradients and L1 magnitudes of the whole image (the only vectorised stage);
// thinning, voting, centre selection and radius estimation below are scalar and common, so
// both variants give identical circles.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/frame.h"

namespace tvxhough {

// Fills gx, gy and mag (packed, width per row) with the 3x3 Sobel gradients and |gx| + |gy| of
// the interior pixels and zeros on the one-pixel frame.
typedef void (*GradientPass)(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int16_t* gx,
                             int16_t* gy, int16_t* mag);

// One scratch block, released on every return path.
struct Scratch {
  void* block = nullptr;
  explicit Scratch(uint64_t bytes) {
    if (bytes > 0 && bytes <= UINT32_MAX) block = tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 16);
  }
  ~Scratch() {
    if (block) tvxReleaseScratchBuffer_(block);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
};

// floor(sqrt(n)), exact.
inline uint32_t FloorSqrt(uint64_t n) {
  uint64_t r = static_cast<uint64_t>(std::sqrt(static_cast<double>(n)));
  while (r * r > n) --r;
  while ((r + 1) * (r + 1) <= n) ++r;
  return static_cast<uint32_t>(r);
}
// sqrt(n) rounded to the nearest integer: floor plus one when n > s^2 + s.
inline uint32_t RoundSqrt(uint64_t n) {
  const uint64_t s = FloorSqrt(n);
  return static_cast<uint32_t>(n > s * s + s ? s + 1 : s);
}

struct Edge {
  int32_t x, y, ux, uy;  // position and unit gradient in Q16
};

inline int32_t Circles(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t minDist,
                       uint32_t edgeThreshold, uint32_t accThreshold, uint32_t minRadius, uint32_t maxRadius,
                       float* circles, uint32_t capacity, uint32_t* numCircles, GradientPass gradients) {
  if (maxRadius == 0 || minRadius > maxRadius) return 3;
  const uint64_t pixels = uint64_t{width} * height;
  if (pixels > (uint64_t{1} << 28)) return 3;
  Scratch maps(pixels * 10);
  if (maps.block == nullptr) return 5;
  int16_t* gx = static_cast<int16_t*>(maps.block);
  int16_t* gy = gx + pixels;
  int16_t* mag = gy + pixels;
  uint32_t* acc = reinterpret_cast<uint32_t*>(mag + pixels);  // pixels * 6 bytes in: 4-aligned
  gradients(src, width, height, stride, gx, gy, mag);

  // Thinning: an edge is a maximum of the L1 magnitude along its quantised gradient direction.
  const int32_t least = static_cast<int32_t>(std::max<uint32_t>(std::min<uint32_t>(edgeThreshold, 0x7FFF), 1));
  const auto isEdge = [&](uint32_t x, uint32_t y) {
    const size_t i = size_t{y} * width + x;
    const int32_t m = mag[i];
    if (m < least) return false;
    const int64_t ax = std::abs(int32_t{gx[i]}), ay = std::abs(int32_t{gy[i]});
    ptrdiff_t before, after;
    if (ay * 32768 < ax * 13573) {
      before = -1, after = 1;
    } else if (ay * 32768 > ax * 79109) {
      before = -ptrdiff_t(width), after = width;
    } else if ((gx[i] > 0) == (gy[i] > 0)) {
      before = -ptrdiff_t(width) - 1, after = ptrdiff_t(width) + 1;
    } else {
      before = -ptrdiff_t(width) + 1, after = ptrdiff_t(width) - 1;
    }
    return m > mag[i + before] && m >= mag[i + after];
  };
  uint64_t edgeCount = 0;
  for (uint32_t y = 1; y + 1 < height; ++y)
    for (uint32_t x = 1; x + 1 < width; ++x) edgeCount += isEdge(x, y);
  if (edgeCount == 0) {
    *numCircles = 0;
    return 0;
  }
  Scratch edgeBlock(edgeCount * sizeof(Edge));
  if (edgeBlock.block == nullptr) return 5;
  Edge* edges = static_cast<Edge*>(edgeBlock.block);
  size_t n = 0;
  for (uint32_t y = 1; y + 1 < height; ++y)
    for (uint32_t x = 1; x + 1 < width; ++x) {
      if (!isEdge(x, y)) continue;
      const size_t i = size_t{y} * width + x;
      const int32_t dx = gx[i], dy = gy[i];
      const int32_t norm = static_cast<int32_t>(RoundSqrt(uint64_t(int64_t{dx} * dx + int64_t{dy} * dy)));
      edges[n++] = {int32_t(x), int32_t(y), int32_t((int64_t{dx} * 65536) / norm), int32_t((int64_t{dy} * 65536) / norm)};
    }

  // Voting: each edge, for every radius, in the cell at that distance along +/- its gradient.
  const uint32_t rLow = std::max<uint32_t>(minRadius, 1);
  const uint32_t rHigh = static_cast<uint32_t>(std::min<uint64_t>(maxRadius, uint64_t{width} + height));
  std::memset(acc, 0, pixels * 4);
  for (size_t e = 0; e < edgeCount; ++e) {
    const Edge& g = edges[e];
    for (int sign = -1; sign <= 1; sign += 2) {
      const int64_t sx = int64_t{sign} * g.ux, sy = int64_t{sign} * g.uy;
      int64_t px = (int64_t{g.x} << 16) + sx * rLow + 0x8000, py = (int64_t{g.y} << 16) + sy * rLow + 0x8000;
      for (uint32_t r = rLow; r <= rHigh && rLow <= rHigh; ++r, px += sx, py += sy) {
        const int64_t cx = px >> 16, cy = py >> 16;
        if (cx < 0 || cy < 0 || cx >= width || cy >= height) break;  // the ray never comes back
        ++acc[size_t(cy) * width + size_t(cx)];
      }
    }
  }

  // Centre candidates: local maxima above the threshold, most votes first, then scan order.
  const auto votes = [&](int64_t x, int64_t y) -> uint32_t {
    return (x < 0 || y < 0 || x >= width || y >= height) ? 0u : acc[size_t(y) * width + size_t(x)];
  };
  const auto isCentre = [&](uint32_t x, uint32_t y) {
    const uint32_t v = acc[size_t{y} * width + x];
    return v > accThreshold && v > votes(int64_t{x} - 1, y) && v >= votes(int64_t{x} + 1, y) &&
           v > votes(x, int64_t{y} - 1) && v >= votes(x, int64_t{y} + 1);
  };
  uint64_t centreCount = 0;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) centreCount += isCentre(x, y);
  if (centreCount == 0) {
    *numCircles = 0;
    return 0;
  }
  Scratch centreBlock(centreCount * 4 + (uint64_t{rHigh} + 2) * 8);
  if (centreBlock.block == nullptr) return 5;
  uint32_t* centres = static_cast<uint32_t*>(centreBlock.block);
  uint32_t* bins = centres + centreCount;                   // rHigh + 2 counts
  float* sums = reinterpret_cast<float*>(bins + rHigh + 2);  // rHigh + 2 sums of distances
  size_t c = 0;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      if (isCentre(x, y)) centres[c++] = y * width + x;
  std::stable_sort(centres, centres + centreCount, [&](uint32_t a, uint32_t b) { return acc[a] > acc[b]; });

  const uint64_t dLow = uint64_t{rLow} - 1, dHigh = uint64_t{rHigh} + 1;
  const uint64_t minDist2 = uint64_t{minDist} * minDist;
  uint32_t written = 0;
  for (size_t k = 0; k < centreCount && written < capacity; ++k) {
    const int64_t cx = centres[k] % width, cy = centres[k] / width;
    bool crowded = false;
    for (uint32_t j = 0; j < written && !crowded; ++j) {
      const int64_t dx = int64_t(circles[3 * j]) - cx, dy = int64_t(circles[3 * j + 1]) - cy;
      crowded = uint64_t(dx * dx + dy * dy) < minDist2;
    }
    if (crowded) continue;
    std::memset(bins, 0, (size_t{rHigh} + 2) * 4);
    std::memset(sums, 0, (size_t{rHigh} + 2) * 4);
    for (size_t e = 0; e < edgeCount; ++e) {
      const int64_t dx = edges[e].x - cx, dy = edges[e].y - cy;
      const uint64_t d2 = uint64_t(dx * dx + dy * dy);
      if (d2 < dLow * dLow || d2 >= dHigh * dHigh) continue;
      const uint32_t b = FloorSqrt(d2);
      ++bins[b];
      sums[b] += std::sqrt(static_cast<float>(d2));
    }
    uint32_t best = 0, bestR = rLow;
    for (uint32_t r = rLow; r <= rHigh; ++r) {
      const uint32_t count = bins[r - 1] + bins[r];
      if (count > best) best = count, bestR = r;
    }
    if (best <= accThreshold) continue;
    circles[3 * written] = static_cast<float>(cx);
    circles[3 * written + 1] = static_cast<float>(cy);
    circles[3 * written + 2] = (sums[bestR - 1] + sums[bestR]) / static_cast<float>(best);
    ++written;
  }
  *numCircles = written;
  return 0;
}

}  // namespace tvxhough
