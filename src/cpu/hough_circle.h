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

constexpr double kHalfTurn = 3.14159265358979323846;  // half a circumference per unit radius

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
  uint32_t* acc = static_cast<uint32_t*>(maps.block);
  int16_t* gx = reinterpret_cast<int16_t*>(acc + pixels);  // 4-byte aligned: the score map reuses it
  int16_t* gy = gx + pixels;
  int16_t* mag = gy + pixels;
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
  // The accumulator's memory is free until the votes: it first holds one edge flag per pixel.
  uint8_t* flags = reinterpret_cast<uint8_t*>(acc);
  std::memset(flags, 0, pixels);
  uint64_t edgeCount = 0;
  for (uint32_t y = 1; y + 1 < height; ++y)
    for (uint32_t x = 1; x + 1 < width; ++x) {
      const bool edge = isEdge(x, y);
      flags[size_t{y} * width + x] = edge;
      edgeCount += edge;
    }
  if (edgeCount == 0) {
    *numCircles = 0;
    return 0;
  }
  Scratch edgeBlock(edgeCount * sizeof(Edge));
  if (edgeBlock.block == nullptr) return 5;
  Edge* edges = static_cast<Edge*>(edgeBlock.block);
  size_t n = 0;
  for (size_t i = 0; i < pixels; ++i) {
    if (!flags[i]) continue;
    const int32_t dx = gx[i], dy = gy[i];
    const int32_t norm = static_cast<int32_t>(RoundSqrt(uint64_t(int64_t{dx} * dx + int64_t{dy} * dy)));
    edges[n++] = {int32_t(i % width), int32_t(i / width), int32_t((int64_t{dx} * 65536) / norm),
                  int32_t((int64_t{dy} * 65536) / norm)};
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

  // Centre candidates: local maxima of the votes summed over each cell's 3x3 neighbourhood
  // (votes of a centre spread over neighbouring cells as gradient directions round), kept in
  // the gradient planes' memory, which the edge list has made free.
  uint32_t* score = reinterpret_cast<uint32_t*>(gx);  // pixels * 4 of the planes' pixels * 6 bytes
  for (uint32_t y = 0; y < height; ++y) {
    const uint32_t* up = acc + size_t{y > 0 ? y - 1 : y} * width;
    const uint32_t* mid = acc + size_t{y} * width;
    const uint32_t* down = acc + size_t{y + 1 < height ? y + 1 : y} * width;
    uint32_t* out = score + size_t{y} * width;
    for (uint32_t x = 0; x < width; ++x)
      out[x] = mid[x] + (y > 0 ? up[x] : 0) + (y + 1 < height ? down[x] : 0);
    uint32_t previous = 0;
    for (uint32_t x = 0; x < width; ++x) {
      const uint32_t column = out[x];
      out[x] = previous + column + (x + 1 < width ? out[x + 1] : 0);
      previous = column;
    }
  }
  const auto votes = [&](int64_t x, int64_t y) -> uint32_t {
    return (x < 0 || y < 0 || x >= width || y >= height) ? 0u : score[size_t(y) * width + size_t(x)];
  };
  const auto isCentre = [&](uint32_t x, uint32_t y) {
    const uint32_t v = score[size_t{y} * width + x];
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
  Scratch centreBlock(centreCount * 4 + (uint64_t{rHigh} + 2) * 4);
  if (centreBlock.block == nullptr) return 5;
  uint32_t* centres = static_cast<uint32_t*>(centreBlock.block);
  uint32_t* bins = centres + centreCount;  // rHigh + 2 counts
  size_t c = 0;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      if (isCentre(x, y)) centres[c++] = y * width + x;
  std::stable_sort(centres, centres + centreCount, [&](uint32_t a, uint32_t b) { return score[a] > score[b]; });

  const uint64_t dLow = uint64_t{rLow} - 1, dHigh = uint64_t{rHigh} + 1;
  const double minDist2 = double(minDist) * minDist;
  uint32_t written = 0;
  // Support of a centre: edges at distance d in [rLow - 1, rHigh + 1) whose gradient lies within
  // about 25 degrees of the line through the centre (cos^2 >= 0.81), binned by floor(d).
  struct Fit {
    uint32_t count, radius;
    double x, y, r;  // least-squares circle relative to the centre, valid when fitted
    bool fitted;
  };
  const auto evaluate = [&](int64_t cx, int64_t cy) {
    const auto supports = [&](const Edge& g, uint64_t& d2) {
      const int64_t dx = g.x - cx, dy = g.y - cy;
      d2 = uint64_t(dx * dx + dy * dy);
      if (d2 < dLow * dLow || d2 >= dHigh * dHigh || d2 == 0) return false;
      const int64_t dot = dx * g.ux + dy * g.uy;  // |d| |g| cos in Q16
      return double(dot) * double(dot) >= 0.81 * 4294967296.0 * double(d2);
    };
    std::memset(bins, 0, (size_t{rHigh} + 2) * 4);
    for (size_t e = 0; e < edgeCount; ++e) {
      uint64_t d2;
      if (supports(edges[e], d2)) ++bins[FloorSqrt(d2)];
    }
    Fit f{0, rLow, 0, 0, 0, false};
    for (uint32_t r = rLow; r <= rHigh; ++r) {
      const uint32_t count = bins[r - 1] + bins[r];
      if (count > f.count) f.count = count, f.radius = r;
    }
    if (f.count == 0) return f;
    // Algebraic least-squares circle through the supporting edges of the two best bins.
    double suu = 0, svv = 0, suv = 0, su = 0, sv = 0, szu = 0, szv = 0, sz = 0, sd = 0;
    for (size_t e = 0; e < edgeCount; ++e) {
      uint64_t d2;
      if (!supports(edges[e], d2)) continue;
      const uint32_t b = FloorSqrt(d2);
      if (b + 1 != f.radius && b != f.radius) continue;
      const double u = double(edges[e].x - cx), v = double(edges[e].y - cy), z = u * u + v * v;
      suu += u * u, svv += v * v, suv += u * v, su += u, sv += v, szu += z * u, szv += z * v, sz += z;
      sd += std::sqrt(z);
    }
    const double n = f.count;
    f.r = sd / n;
    const double det = suu * (svv * n - sv * sv) - suv * (suv * n - sv * su) + su * (suv * sv - svv * su);
    if (std::fabs(det) > 1e-9 * n * n * n) {
      const double D = (-szu * (svv * n - sv * sv) - suv * (-szv * n + sv * sz) + su * (-szv * sv + svv * sz)) / det;
      const double E = (suu * (-szv * n + sv * sz) + szu * (suv * n - sv * su) + su * (-suv * sz + szv * su)) / det;
      const double F = (suu * (-svv * sz + sv * szv) - suv * (-suv * sz + su * szv) - szu * (suv * sv - svv * su)) / det;
      const double ox = -D / 2, oy = -E / 2, r2 = ox * ox + oy * oy - F;
      if (r2 > 0 && std::fabs(ox) <= 4 && std::fabs(oy) <= 4) f.x = ox, f.y = oy, f.r = std::sqrt(r2), f.fitted = true;
    }
    return f;
  };
  const auto crowded = [&](double x, double y, uint32_t written) {
    for (uint32_t j = 0; j < written; ++j) {
      const double dx = double(circles[3 * j]) - x, dy = double(circles[3 * j + 1]) - y;
      if (dx * dx + dy * dy < minDist2) return true;
    }
    return false;
  };
  for (size_t k = 0; k < centreCount && written < capacity; ++k) {
    int64_t cx = centres[k] % width, cy = centres[k] / width;
    if (crowded(double(cx), double(cy), written)) continue;
    // Votes spread round a centre as gradient directions round, so the candidate moves to the
    // cell nearest its fitted centre (at most 4 moves) before the circle is judged.
    Fit f = evaluate(cx, cy);
    for (int step = 0; step < 4 && f.fitted; ++step) {
      const int64_t nx = cx + std::llround(f.x), ny = cy + std::llround(f.y);
      if ((nx == cx && ny == cy) || nx < 0 || ny < 0 || nx >= width || ny >= height) break;
      cx = nx, cy = ny;
      f = evaluate(cx, cy);
    }
    // A circle needs more than accThreshold supporting edges and at least half its circumference.
    if (f.count <= accThreshold || double(f.count) < kHalfTurn * f.radius) continue;
    const double x = double(cx) + f.x, y = double(cy) + f.y;
    if (crowded(x, y, written)) continue;
    circles[3 * written] = static_cast<float>(x);
    circles[3 * written + 1] = static_cast<float>(y);
    circles[3 * written + 2] = static_cast<float>(f.r);
    ++written;
  }
  *numCircles = written;
  return 0;
}

}  // namespace tvxhough
