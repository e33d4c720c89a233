// Reference variants of the Hough family: the standard line transform of an edge image and the
// gradient circle transform (whose common stages live in cpu/hough_circle.h).
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "cpu/hough_circle.h"
#include "frame/frame.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

// Rounds to the nearest integer, halves to even, as lrintf does in the default rounding mode,
// without a library call: adding 1.5 * 2^23 leaves the rounded value in the low mantissa bits.
// Exact for |v| < 2^22.
inline int32_t RoundEven(float v) {
  const float t = v + 12582912.0f;
  int32_t bits;
  std::memcpy(&bits, &t, sizeof bits);
  return bits - 0x4B400000;
}

void SobelPass(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int16_t* gx, int16_t* gy,
               int16_t* mag) {
  const size_t pixels = size_t{width} * height;
  std::memset(gx, 0, pixels * 2);
  std::memset(gy, 0, pixels * 2);
  std::memset(mag, 0, pixels * 2);
  for (uint32_t y = 1; y + 1 < height; ++y) {
    const uint8_t* a = src + size_t{y - 1} * stride;
    const uint8_t* b = a + stride;
    const uint8_t* c = b + stride;
    for (uint32_t x = 1; x + 1 < width; ++x) {
      const int32_t dx = (a[x + 1] + 2 * b[x + 1] + c[x + 1]) - (a[x - 1] + 2 * b[x - 1] + c[x - 1]);
      const int32_t dy = (c[x - 1] + 2 * c[x] + c[x + 1]) - (a[x - 1] + 2 * a[x] + a[x + 1]);
      const size_t i = size_t{y} * width + x;
      gx[i] = static_cast<int16_t>(dx);
      gy[i] = static_cast<int16_t>(dy);
      mag[i] = static_cast<int16_t>(std::abs(dx) + std::abs(dy));
    }
  }
}

}  // namespace

int32_t tvxHoughLineu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, float rho,
                        float theta, uint32_t threshold, float* lines, uint32_t capacity, uint32_t* numLines) {
  if (!(rho > 0) || !(theta > 0)) return 3;
  // Angle and distance resolution as the usual standard transform: angles 0 .. pi, the last one
  // dropped when it would repeat angle 0; distances cover +/- (width + height).
  const double angles = std::floor(kPi / double{theta}) + 1;
  const float dists = std::nearbyint(static_cast<float>(2.0 * (static_cast<double>(srcWidth) + srcHeight) + 1) / rho);
  if (!(angles < (1 << 26)) || !(dists < (1 << 26)) || (angles + 2) * (double{dists} + 2) > double(1 << 26)) return 3;
  int32_t numAngle = static_cast<int32_t>(angles);
  if (numAngle > 1 && std::fabs(kPi - double{(numAngle - 1) * theta}) < theta / 2) --numAngle;
  const int32_t numRho = static_cast<int32_t>(dists);
  const size_t cells = size_t(numAngle + 2) * size_t(numRho + 2);
  tvxhough::Scratch block(cells * 4 + size_t(numAngle) * 8);
  if (block.block == nullptr) return 5;
  uint32_t* acc = static_cast<uint32_t*>(block.block);
  float* tabCos = reinterpret_cast<float*>(acc + cells);
  float* tabSin = tabCos + numAngle;
  std::memset(acc, 0, cells * 4);
  const float irho = 1.0f / rho;
  float ang = 0.0f;
  for (int32_t n = 0; n < numAngle; ++n, ang += theta) {
    tabSin[n] = static_cast<float>(std::sin(double{ang}) * irho);
    tabCos[n] = static_cast<float>(std::cos(double{ang}) * irho);
  }
  const int32_t centre = (numRho - 1) / 2;
  const size_t rowCells = size_t(numRho) + 2;
  // Distances stay below (width + height) / rho + 1 < numRho / 2 + 2 in magnitude.
  const bool small = numRho < (1 << 21);
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* row = src + size_t{y} * srcStride;
    const float fy = static_cast<float>(y);
    for (uint32_t x = 0; x < srcWidth; ++x) {
      if (row[x] == 0) continue;
      const float fx = static_cast<float>(x);
      uint32_t* cell = acc + rowCells + 1 + centre;
      if (small) {
        for (int32_t n = 0; n < numAngle; ++n, cell += rowCells) ++cell[RoundEven(fx * tabCos[n] + fy * tabSin[n])];
      } else {
        for (int32_t n = 0; n < numAngle; ++n, cell += rowCells) ++cell[std::lrint(fx * tabCos[n] + fy * tabSin[n])];
      }
    }
  }
  // Local maxima in (distance, angle) order; the sort below orders them by votes, then index.
  uint64_t found = 0;
  const auto isLine = [&](size_t base) {
    const uint32_t v = acc[base];
    return v > threshold && v > acc[base - 1] && v >= acc[base + 1] && v > acc[base - rowCells] &&
           v >= acc[base + rowCells];
  };
  for (int32_t r = 0; r < numRho; ++r)
    for (int32_t n = 0; n < numAngle; ++n) found += isLine(size_t(n + 1) * rowCells + r + 1);
  const uint32_t keep = static_cast<uint32_t>(std::min<uint64_t>(found, capacity));
  if (keep > 0) {
    tvxhough::Scratch listBlock(found * 4);
    if (listBlock.block == nullptr) return 5;
    uint32_t* list = static_cast<uint32_t*>(listBlock.block);
    size_t k = 0;
    for (int32_t r = 0; r < numRho; ++r)
      for (int32_t n = 0; n < numAngle; ++n) {
        const size_t base = size_t(n + 1) * rowCells + r + 1;
        if (isLine(base)) list[k++] = static_cast<uint32_t>(base);
      }
    const auto before = [&](uint32_t a, uint32_t b) { return acc[a] > acc[b] || (acc[a] == acc[b] && a < b); };
    std::partial_sort(list, list + keep, list + found, before);
    for (uint32_t i = 0; i < keep; ++i) {
      const int32_t n = static_cast<int32_t>(list[i] / rowCells) - 1;
      const int32_t r = static_cast<int32_t>(list[i] - size_t(n + 1) * rowCells) - 1;
      lines[2 * i] = (static_cast<float>(r) - static_cast<float>(numRho - 1) * 0.5f) * rho;
      lines[2 * i + 1] = static_cast<float>(n) * theta;
    }
  }
  *numLines = keep;
  return 0;
}

int32_t tvxHoughCircleu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          uint32_t minDist, uint32_t edgeThreshold, uint32_t accThreshold, uint32_t minRadius,
                          uint32_t maxRadius, float* circles, uint32_t capacity, uint32_t* numCircles) {
  return tvxhough::Circles(src, srcWidth, srcHeight, srcStride, minDist, edgeThreshold, accThreshold, minRadius,
                           maxRadius, circles, capacity, numCircles, &SobelPass);
}
