// The mean-shift loop and the adaptive (rotated box) finish shared by the reference and SIMD
// variants of the trackers. Each variant supplies only the window moment sums; everything that
// decides a window (rounding, clamping, termination) lives here once.
#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>

namespace tvxtrack {

struct Rect {
  int64_t x, y, w, h;
};

// Raw moments of a window, relative to its top-left pixel. The second-order ones are filled
// only when asked for.
struct Moments {
  double m00 = 0, m10 = 0, m01 = 0, m20 = 0, m11 = 0, m02 = 0;
};

// Per-row sums of p, x p and x^2 p folded into window moments (y counted from the window top).
template <typename S>
inline void AddRow(Moments& m, int64_t y, S s0, S s1, S s2) {
  const double dy = static_cast<double>(y);
  m.m00 += static_cast<double>(s0);
  m.m10 += static_cast<double>(s1);
  m.m01 += dy * static_cast<double>(s0);
  m.m20 += static_cast<double>(s2);
  m.m11 += dy * static_cast<double>(s1);
  m.m02 += dy * dy * static_cast<double>(s0);
}

// Integer kinds sum exactly (wrapping modulo 2^64), then convert once.
struct IntMoments {
  uint64_t m00 = 0, m10 = 0, m01 = 0, m20 = 0, m11 = 0, m02 = 0;
  void addRow(uint64_t y, uint64_t s0, uint64_t s1, uint64_t s2) {
    m00 += s0;
    m10 += s1;
    m01 += y * s0;
    m20 += s2;
    m11 += y * s1;
    m02 += y * y * s0;
  }
  Moments toDouble() const {
    Moments m;
    m.m00 = static_cast<double>(static_cast<int64_t>(m00));
    m.m10 = static_cast<double>(static_cast<int64_t>(m10));
    m.m01 = static_cast<double>(static_cast<int64_t>(m01));
    m.m20 = static_cast<double>(static_cast<int64_t>(m20));
    m.m11 = static_cast<double>(static_cast<int64_t>(m11));
    m.m02 = static_cast<double>(static_cast<int64_t>(m02));
    return m;
  }
};

// Round half to even (the default rounding mode), saturated far outside any image coordinate so
// that odd moments of signed or extreme data never reach an undefined conversion.
inline int64_t RoundEven(double v) {
  if (!(v > -1e15)) return -1000000000000000LL;
  if (!(v < 1e15)) return 1000000000000000LL;
  return static_cast<int64_t>(std::nearbyint(v));
}

// Mean-shift steps on a window already inside the image; returns the number of completed
// steps that did not stop the loop.
template <class Sums>
uint32_t MeanShiftLoop(int64_t width, int64_t height, Rect& win, int32_t maxIterations, float epsilon, Sums&& sums) {
  const double eps = epsilon > 0 ? static_cast<double>(epsilon) : 0.0;  // NaN counts as 0
  const double epsSq = std::nearbyint(eps * eps);
  const int32_t steps = maxIterations < 1 ? 100 : maxIterations;
  int32_t i = 0;
  for (; i < steps; ++i) {
    const Moments m = sums(win, false);
    if (std::fabs(m.m00) < DBL_EPSILON) break;
    int64_t dx = RoundEven(m.m10 / m.m00 - static_cast<double>(win.w) * 0.5);
    int64_t dy = RoundEven(m.m01 / m.m00 - static_cast<double>(win.h) * 0.5);
    const int64_t nx = std::min(std::max(win.x + dx, int64_t{0}), width - win.w);
    const int64_t ny = std::min(std::max(win.y + dy, int64_t{0}), height - win.h);
    dx = nx - win.x;
    dy = ny - win.y;
    win.x = nx;
    win.y = ny;
    if (static_cast<double>(dx * dx + dy * dy) < epsSq) break;
  }
  return static_cast<uint32_t>(i);
}

// The window as the entries take it: origin inside the image, size clipped to it.
inline Rect ClipWindow(uint32_t width, uint32_t height, uint32_t x, uint32_t y, uint32_t w, uint32_t h) {
  Rect r{x, y, w, h};
  r.w = std::min<int64_t>(r.w, int64_t{width} - r.x);
  r.h = std::min<int64_t>(r.h, int64_t{height} - r.y);
  return r;
}

inline void StoreWindow(const Rect& r, uint32_t* window) {
  window[0] = static_cast<uint32_t>(r.x);
  window[1] = static_cast<uint32_t>(r.y);
  window[2] = static_cast<uint32_t>(r.w);
  window[3] = static_cast<uint32_t>(r.h);
}

// Mean shift, then the box fitted to the second-order moments of the window grown by 10 pixels
// each side, and the window resized to that box.
template <class Sums>
void AdaptiveTrack(int64_t width, int64_t height, Rect& win, int32_t maxIterations, float epsilon, Sums&& sums,
                   float* box) {
  constexpr int64_t kGrow = 10;
  constexpr double kPi = 3.14159265358979323846;
  MeanShiftLoop(width, height, win, maxIterations, epsilon, sums);
  win.x = std::max<int64_t>(win.x - kGrow, 0);
  win.y = std::max<int64_t>(win.y - kGrow, 0);
  win.w += 2 * kGrow;
  if (win.x + win.w > width) win.w = width - win.x;
  win.h += 2 * kGrow;
  if (win.y + win.h > height) win.h = height - win.y;

  const Moments m = sums(win, true);
  if (std::fabs(m.m00) < DBL_EPSILON) {
    for (int i = 0; i < 5; ++i) box[i] = 0.0f;
    return;
  }
  const double inv = 1.0 / m.m00;
  const double cx = m.m10 * inv, cy = m.m01 * inv;
  const double mu20 = m.m20 - cx * m.m10, mu11 = m.m11 - cx * m.m01, mu02 = m.m02 - cy * m.m01;
  // The centre lies inside the grown window for non-negative data; signed data may move it
  // anywhere, so it is clamped to the image before it places the new window.
  const int64_t xc = std::min(std::max(RoundEven(cx + static_cast<double>(win.x)), int64_t{0}), width - 1);
  const int64_t yc = std::min(std::max(RoundEven(cy + static_cast<double>(win.y)), int64_t{0}), height - 1);
  const double a = mu20 * inv, b = mu11 * inv, c = mu02 * inv;
  const double square = std::sqrt(4 * b * b + (a - c) * (a - c));
  double theta = std::atan2(2 * b, a - c + square);
  double cs = std::cos(theta), sn = std::sin(theta);
  const double rotA = std::max(0.0, cs * cs * mu20 + 2 * cs * sn * mu11 + sn * sn * mu02);
  const double rotC = std::max(0.0, sn * sn * mu20 - 2 * cs * sn * mu11 + cs * cs * mu02);
  double length = std::sqrt(rotA * inv) * 4;
  double breadth = std::sqrt(rotC * inv) * 4;
  if (length < breadth) {
    std::swap(length, breadth);
    std::swap(cs, sn);
    theta = kPi * 0.5 - theta;
  }
  const double centreX = cx + static_cast<double>(win.x), centreY = cy + static_cast<double>(win.y);

  int64_t t0 = std::max(RoundEven(std::fabs(length * cs)), RoundEven(std::fabs(breadth * sn))) + 2;
  const int64_t newW = std::min(t0, (width - xc) * 2);
  t0 = std::max(RoundEven(std::fabs(length * sn)), RoundEven(std::fabs(breadth * cs))) + 2;
  const int64_t newH = std::min(t0, (height - yc) * 2);
  win.x = std::max<int64_t>(0, xc - newW / 2);
  win.y = std::max<int64_t>(0, yc - newH / 2);
  win.w = std::min(width - win.x, newW);
  win.h = std::min(height - win.y, newH);

  float angle = static_cast<float>((kPi * 0.5 + theta) * 180.0 / kPi);
  while (angle < 0) angle += 360;
  while (angle >= 360) angle -= 360;
  if (angle >= 180) angle -= 180;
  box[0] = static_cast<float>(centreX);
  box[1] = static_cast<float>(centreY);
  box[2] = static_cast<float>(breadth);
  box[3] = static_cast<float>(length);
  box[4] = angle;
}

}  // namespace tvxtrack
