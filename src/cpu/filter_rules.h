// Per-pixel rules of the fixed-kernel filters shared by the reference and SIMD variants: row
// addressing, pixels outside the image by border type, the renormalised Gaussian frame and the
// Otsu level search. The SIMD variants use these only for the image frame and other O(w + h)
// or scalar work, so both tiers give the same bytes by construction there.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvx::filter {

enum : uint32_t { kBorderUndefined = 0, kBorderConstant = 1, kBorderReplicate = 2 };

inline const uint8_t* Row(const uint8_t* base, uint32_t stride, int64_t y) {
  return base + static_cast<ptrdiff_t>(stride) * y;
}
inline uint8_t* Row(uint8_t* base, uint32_t stride, int64_t y) {
  return base + static_cast<ptrdiff_t>(stride) * y;
}

inline int64_t Clamp(int64_t v, int64_t lo, int64_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

// Pixel (x, y) of the image, where positions outside take borderValue (constant border) or
// the nearest edge pixel (replicate).
inline uint8_t Pixel(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int64_t x, int64_t y,
                     bool replicate, uint8_t borderValue) {
  const bool inside = x >= 0 && y >= 0 && x < width && y < height;
  if (!inside && !replicate) return borderValue;
  return Row(src, stride, Clamp(y, 0, int64_t(height) - 1))[Clamp(x, 0, int64_t(width) - 1)];
}

// 3x3 binomial weights [1 2 1] x [1 2 1].
inline uint32_t GaussWeight3(int dx, int dy) { return (dx == 0 ? 2u : 1u) * (dy == 0 ? 2u : 1u); }

// One frame pixel of the 3x3 Gaussian with the kernel cut to the pixels inside the image and
// divided (truncating) by the weights that remain: /9 in a corner, /12 on an edge.
inline uint8_t GaussRenormalised3x3(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride,
                                    int64_t x, int64_t y) {
  uint32_t sum = 0, weights = 0;
  for (int dy = -1; dy <= 1; ++dy) {
    for (int dx = -1; dx <= 1; ++dx) {
      const int64_t sx = x + dx, sy = y + dy;
      if (sx < 0 || sy < 0 || sx >= width || sy >= height) continue;
      sum += GaussWeight3(dx, dy) * Row(src, stride, sy)[sx];
      weights += GaussWeight3(dx, dy);
    }
  }
  return static_cast<uint8_t>(sum / weights);
}

// Calls f(x, y) once for every pixel of the one-pixel frame of a width x height image.
template <typename F>
void ForEachFramePixel(uint32_t width, uint32_t height, F f) {
  for (uint32_t x = 0; x < width; ++x) {
    f(x, 0u);
    if (height > 1) f(x, height - 1);
  }
  for (uint32_t y = 1; y + 1 < height; ++y) {
    f(0u, y);
    if (width > 1) f(width - 1, y);
  }
}

// The 3x3 neighbourhood of (x, y) in row-major order, outside pixels by border rule.
inline void Window3x3(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int64_t x, int64_t y,
                      bool replicate, uint8_t borderValue, uint8_t (&win)[9]) {
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx)
      win[(dy + 1) * 3 + dx + 1] = Pixel(src, width, height, stride, x + dx, y + dy, replicate, borderValue);
}

// Writes f(window) into every frame pixel of dst, the window taken over a constant or
// replicated border.
template <typename F>
void BorderedFrame3x3(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstStride, bool replicate, uint8_t borderValue, F f) {
  ForEachFramePixel(width, height, [&](uint32_t x, uint32_t y) {
    uint8_t win[9];
    Window3x3(src, width, height, srcStride, x, y, replicate, borderValue, win);
    Row(dst, dstStride, y)[x] = f(win);
  });
}

// Window reductions of the frame rules.
inline uint8_t GaussOfWindow(const uint8_t (&w)[9]) {
  uint32_t sum = 0;
  for (int i = 0; i < 9; ++i) sum += GaussWeight3(i % 3 - 1, i / 3 - 1) * w[i];
  return static_cast<uint8_t>(sum >> 4);
}

inline uint8_t MinOfWindow(const uint8_t (&w)[9]) {
  uint8_t m = w[0];
  for (uint8_t v : w) m = v < m ? v : m;
  return m;
}
inline uint8_t MaxOfWindow(const uint8_t (&w)[9]) {
  uint8_t m = w[0];
  for (uint8_t v : w) m = v > m ? v : m;
  return m;
}
// Rounded division by 9 in 16-bit fixed point.
inline uint8_t BoxMean9(uint32_t sum) { return static_cast<uint8_t>((sum * 7282u + 32768u) >> 16); }
inline uint8_t BoxOfWindow(const uint8_t (&w)[9]) {
  uint32_t sum = 0;
  for (uint8_t v : w) sum += v;
  return BoxMean9(sum);
}
inline uint8_t MedianOfWindow(const uint8_t (&w)[9]) {
  uint8_t s[9];
  for (int i = 0; i < 9; ++i) s[i] = w[i];
  for (int i = 1; i < 9; ++i)  // insertion sort: nine bytes
    for (int j = i; j > 0 && s[j - 1] > s[j]; --j) {
      const uint8_t t = s[j];
      s[j] = s[j - 1];
      s[j - 1] = t;
    }
  return s[4];
}

// The renormalised frame of the 3x3 Gaussian written into dst.
inline void GaussRenormalisedFrame3x3(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                                      uint8_t* dst, uint32_t dstStride) {
  ForEachFramePixel(width, height, [&](uint32_t x, uint32_t y) {
    Row(dst, dstStride, y)[x] = GaussRenormalised3x3(src, width, height, srcStride, x, y);
  });
}

}  // namespace tvx::filter

namespace tvx::filter {

// Otsu's level: the grey level that maximises the between-class variance of the histogram
// (ties keep the lowest), walking the levels with cumulative probability and first moment.
// Levels where either class holds less than a float epsilon of the pixels are skipped; with
// none left the level is 0. The caller thresholds at level + 1.
inline uint32_t OtsuLevel(const uint32_t (&hist)[256], uint64_t total) {
  constexpr double kEps = 1.1920928955078125e-7;  // float epsilon
  const double scale = 1.0 / static_cast<double>(total);
  double mean = 0;
  for (int i = 0; i < 256; ++i) mean += i * static_cast<double>(hist[i]);
  mean *= scale;
  double q1 = 0, moment1 = 0, best = 0;
  uint32_t level = 0;
  for (int i = 0; i < 256; ++i) {
    const double p = hist[i] * scale;
    q1 += p;
    moment1 += i * p;
    const double q2 = 1.0 - q1;
    if ((q1 < q2 ? q1 : q2) < kEps || (q1 > q2 ? q1 : q2) > 1.0 - kEps) continue;
    const double mu1 = moment1 / q1;
    const double mu2 = (mean - q1 * mu1) / q2;
    const double sigma = q1 * q2 * (mu1 - mu2) * (mu1 - mu2);
    if (sigma > best) {
      best = sigma;
      level = static_cast<uint32_t>(i);
    }
  }
  return level;
}

}  // namespace tvx::filter

namespace tvx::filter {

// Binomial row of the 5x5 Gaussian; the 2-D kernel is its outer product (total 256).
constexpr int32_t kBinomial5[5] = {1, 4, 6, 4, 1};

// Rows of an image of T whose byte stride counts whole elements (an odd stride of a 16-bit
// image is rounded down).
template <typename T>
inline T* RowOf(T* base, uint32_t stride, int64_t y) {
  return base + static_cast<ptrdiff_t>(stride / sizeof(T)) * y;
}
template <typename T>
inline T At(const T* base, uint32_t stride, int64_t x, int64_t y) {
  return RowOf(base, stride, y)[x];
}

// Binomial row of the 11x11 Gaussian (total 1024; the square kernel totals 2^20).
constexpr int32_t kBinomial11[11] = {1, 10, 45, 120, 210, 252, 210, 120, 45, 10, 1};

// One frame pixel of a (2R+1)-square binomial Gaussian: the weighted sum of the taps inside
// the image divided (truncating toward zero) by the sum of their weights.
template <int R, typename T>
inline T GaussRenormalised(const T* src, uint32_t width, uint32_t height, uint32_t stride, int64_t x, int64_t y,
                           const int32_t (&k)[2 * R + 1]) {
  int64_t sum = 0, weights = 0;
  for (int dy = -R; dy <= R; ++dy) {
    for (int dx = -R; dx <= R; ++dx) {
      const int64_t sx = x + dx, sy = y + dy;
      if (sx < 0 || sy < 0 || sx >= width || sy >= height) continue;
      const int64_t w = int64_t(k[dx + R]) * k[dy + R];
      sum += w * At(src, stride, sx, sy);
      weights += w;
    }
  }
  return static_cast<T>(sum / weights);
}

// The R-pixel renormalised frame of a (2R+1)-square binomial Gaussian written into dst.
template <int R, typename T>
void GaussRenormalisedFrame(const T* src, uint32_t width, uint32_t height, uint32_t srcStride, T* dst,
                            uint32_t dstStride, const int32_t (&k)[2 * R + 1]) {
  for (uint32_t y = 0; y < height; ++y) {
    T* out = RowOf(dst, dstStride, y);
    const bool frameRow = y < uint32_t(R) || y + R >= height;
    for (uint32_t x = 0; x < width; ++x) {
      if (!frameRow && x == uint32_t(R) && width > 2 * R) x = width - R;  // skip the interior of the row
      out[x] = GaussRenormalised<R>(src, width, height, srcStride, x, y, k);
    }
  }
}
template <typename T>
void GaussRenormalisedFrame5x5(const T* src, uint32_t width, uint32_t height, uint32_t srcStride, T* dst,
                               uint32_t dstStride) {
  GaussRenormalisedFrame<2>(src, width, height, srcStride, dst, dstStride, kBinomial5);
}

}  // namespace tvx::filter

namespace tvx::filter {

// Adaptive threshold: the cases decided without blurring. An unknown thresholdType clears
// the whole destination (stride x height bytes); offsets beyond the byte range fill every row
// with maxValue or 0. Returns true when dst is final.
inline bool AdaptiveShortcut(uint32_t width, uint32_t height, uint8_t maxValue, int32_t thresholdType, int32_t value,
                             uint8_t* dst, uint32_t dstStride) {
  int fill = -1;
  if (thresholdType != 0 && thresholdType != 1) {
    for (uint32_t y = 0; y < height; ++y)
      for (uint32_t x = 0; x < dstStride; ++x) Row(dst, dstStride, y)[x] = 0;
    return true;
  }
  if (thresholdType == 0) {
    if (value >= 256) fill = maxValue;
    else if (value < -255) fill = 0;
  } else {
    if (value >= 256) fill = 0;
    else if (value < -254) fill = maxValue;
  }
  if (fill < 0) return false;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) Row(dst, dstStride, y)[x] = static_cast<uint8_t>(fill);
  return true;
}

// The per-pixel decision from the source s and the blurred b: the distance d on the side the
// offset's sign picks, against t = min(|value - thresholdType|, 255).
struct AdaptiveRule {
  uint8_t t;
  bool positive;    // value > 0: d = max(b - s, 0), else d = max(s - b, 0)
  bool belowWins;   // maxValue when t > d (else when d > t)
  uint8_t maxValue;
  AdaptiveRule(uint8_t maxV, int32_t thresholdType, int32_t value) : maxValue(maxV) {
    const int64_t diff = int64_t(value) - thresholdType;
    const int64_t mag = diff < 0 ? -diff : diff;
    t = static_cast<uint8_t>(mag < 255 ? mag : 255);
    positive = value > 0;
    belowWins = positive ? thresholdType == 0 : thresholdType == 1;
  }
  uint8_t operator()(uint8_t s, uint8_t b) const {
    const int d = positive ? (b > s ? b - s : 0) : (s > b ? s - b : 0);
    const bool on = belowWins ? t > d : d > t;
    return on ? maxValue : 0;
  }
};

}  // namespace tvx::filter

namespace tvx::filter {

// Box means over (2R+1)-square windows (5x5 and 11x11): pixels outside the image count as
// 0, like the first 3x3 box form, and the sum is divided by the window area with rounding.
template <int R>
constexpr uint32_t kBoxArea = (2 * R + 1) * (2 * R + 1);
template <int R>
inline uint8_t BoxRoundedMean(uint32_t sum) {
  return static_cast<uint8_t>((sum + kBoxArea<R> / 2) / kBoxArea<R>);
}
template <int R>
inline uint8_t BoxMeanAt(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int64_t x, int64_t y) {
  uint32_t sum = 0;
  for (int64_t sy = y - R; sy <= y + R; ++sy)
    for (int64_t sx = x - R; sx <= x + R; ++sx)
      if (sx >= 0 && sy >= 0 && sx < width && sy < height) sum += Row(src, stride, sy)[sx];
  return BoxRoundedMean<R>(sum);
}
// The R-pixel frame of the box mean written into dst.
template <int R>
void BoxMeanFrame(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                  uint32_t dstStride) {
  for (uint32_t y = 0; y < height; ++y) {
    const bool frameRow = y < uint32_t(R) || y + R >= height;
    for (uint32_t x = 0; x < width; ++x) {
      if (!frameRow && x == uint32_t(R) && width > 2 * R) x = width - R;
      Row(dst, dstStride, y)[x] = BoxMeanAt<R>(src, width, height, srcStride, x, y);
    }
  }
}

}  // namespace tvx::filter
