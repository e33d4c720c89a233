// Reference variants of the histogram family: intensity histogram and equalisation, mean and
// standard deviation, moments, per-pixel differences and the thresholded local binary pattern.
#include <cmath>
#include <cstddef>
#include <cstring>

#include "cpu/histo.h"
#include "frame/frame.h"

using tvxhisto::Row;

namespace {

void Histogram(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t hist[256]) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* in = Row(src, stride, y);
    for (uint32_t x = 0; x < width; ++x) ++hist[in[x]];
  }
}

// Moments of any pixel type whose row sums are taken in double precision from the left.
template <typename T>
void MomentsDouble(const T* src, uint32_t width, uint32_t height, uint32_t stride, float* moments) {
  tvxhisto::MomentSums sums;
  for (uint32_t y = 0; y < height; ++y) {
    const T* in = reinterpret_cast<const T*>(Row(src, stride, y));
    double s0 = 0, s1 = 0, s2 = 0, s3 = 0;
    for (uint32_t x = 0; x < width; ++x) {
      const double v = static_cast<double>(in[x]), fx = x;
      const double vx = v * fx, vx2 = vx * fx;
      s0 += v;
      s1 += vx;
      s2 += vx2;
      s3 += vx2 * fx;
    }
    sums.AddRow(s0, s1, s2, s3, y);
  }
  tvxhisto::FinishMoments(sums, moments);
}

template <typename In, typename Out, typename F>
void PerPixel(const In* src1, const In* src2, uint32_t width, uint32_t height, uint32_t stride1, uint32_t stride2,
              Out* dst, uint32_t dstStride, F f) {
  for (uint32_t y = 0; y < height; ++y) {
    const In* a = reinterpret_cast<const In*>(Row(src1, stride1, y));
    const In* b = reinterpret_cast<const In*>(Row(src2, stride2, y));
    Out* out = reinterpret_cast<Out*>(Row(dst, dstStride, y));
    for (uint32_t x = 0; x < width; ++x) out[x] = f(a[x], b[x]);
  }
}

}  // namespace

int32_t tvxImageIntensityHistogramC(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint32_t* histogram, uint32_t accumulate) {
  uint32_t hist[256];
  if (accumulate) {
    std::memcpy(hist, histogram, sizeof hist);
  } else {
    std::memset(hist, 0, sizeof hist);
  }
  Histogram(src, srcWidth, srcHeight, srcStride, hist);
  std::memcpy(histogram, hist, sizeof hist);
  return 0;
}

int32_t tvxImageHistogramEqualizeu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                     uint8_t* dst, uint32_t dstStride) {
  uint32_t hist[256] = {};
  Histogram(src, srcWidth, srcHeight, srcStride, hist);
  uint8_t lut[256];
  tvxhisto::EqualizeTable(hist, srcWidth * srcHeight, lut);
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* in = Row(src, srcStride, y);
    uint8_t* out = Row(dst, dstStride, y);
    for (uint32_t x = 0; x < srcWidth; ++x) out[x] = lut[in[x]];
  }
  return 0;
}

int32_t tvxImageIntensityStatsC(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                float* mean, float* stdDev) {
  uint64_t s1 = 0, s2 = 0;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* in = Row(src, srcStride, y);
    for (uint32_t x = 0; x < srcWidth; ++x) {
      s1 += in[x];
      s2 += uint32_t{in[x]} * in[x];
    }
  }
  tvxhisto::FinishStats(s1, s2, uint64_t{srcWidth} * srcHeight, mean, stdDev);
  return 0;
}

int32_t tvxImageIntensityStats_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   const uint8_t* mask, uint32_t maskStride, float* mean, float* stdDev,
                                   uint32_t* count) {
  uint64_t s1 = 0, s2 = 0, n = 0;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* in = Row(src, srcStride, y);
    const uint8_t* m = Row(mask, maskStride, y);
    for (uint32_t x = 0; x < srcWidth; ++x) {
      if (!m[x]) continue;
      s1 += in[x];
      s2 += uint32_t{in[x]} * in[x];
      ++n;
    }
  }
  tvxhisto::FinishStats(s1, s2, n, mean, stdDev);
  *count = static_cast<uint32_t>(n);
  return 0;
}

int32_t tvxImageMomentsu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                           float* moments) {
  tvxhisto::MomentSums sums;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* in = Row(src, srcStride, y);
    // Exact: with x < 16384 the sum of v x^3 over a row stays below 2^63.
    uint64_t s0 = 0, s1 = 0, s2 = 0, s3 = 0;
    for (uint32_t x = 0; x < srcWidth; ++x) {
      const uint64_t v = in[x], vx = v * x, vx2 = vx * x;
      s0 += v;
      s1 += vx;
      s2 += vx2;
      s3 += vx2 * x;
    }
    sums.AddRow(static_cast<double>(s0), static_cast<double>(s1), static_cast<double>(s2), static_cast<double>(s3), y);
  }
  tvxhisto::FinishMoments(sums, moments);
  return 0;
}

int32_t tvxImageMomentss32C(const int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                            float* moments) {
  MomentsDouble(src, srcWidth, srcHeight, srcStride, moments);
  return 0;
}

int32_t tvxImageMomentsf32C(const float* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                            float* moments) {
  MomentsDouble(src, srcWidth, srcHeight, srcStride, moments);
  return 0;
}

int32_t tvxImageDiffu8C(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                        uint32_t src1Stride, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  PerPixel(src1, src2, srcWidth, srcHeight, src1Stride, src2Stride, dst, dstStride,
           [](uint8_t a, uint8_t b) { return static_cast<uint8_t>(a > b ? a - b : b - a); });
  return 0;
}

int32_t tvxImageDiffs16C(const int16_t* src1, const int16_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                         uint32_t src1Stride, uint32_t src2Stride, int16_t* dst, uint32_t dstStride) {
  PerPixel(src1, src2, srcWidth, srcHeight, src1Stride, src2Stride, dst, dstStride, [](int16_t a, int16_t b) {
    const int32_t d = std::abs(int32_t{a} - int32_t{b});
    return static_cast<int16_t>(d > 32767 ? 32767 : d);
  });
  return 0;
}

int32_t tvxImageDifff32C(const float* src1, const float* src2, uint32_t srcWidth, uint32_t srcHeight,
                         uint32_t src1Stride, uint32_t src2Stride, float* dst, uint32_t dstStride) {
  PerPixel(src1, src2, srcWidth, srcHeight, src1Stride, src2Stride, dst, dstStride,
           [](float a, float b) { return std::fabs(a - b); });
  return 0;
}

int32_t tvxImageDiffu8f32C(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                           uint32_t src1Stride, uint32_t src2Stride, float* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* a = Row(src1, src1Stride, y);
    const uint8_t* b = Row(src2, src2Stride, y);
    float* out = reinterpret_cast<float*>(Row(dst, dstStride, y));
    for (uint32_t x = 0; x < srcWidth; ++x) out[x] = static_cast<float>(int32_t{a[x]} - int32_t{b[x]});
  }
  return 0;
}

int32_t tvxImageDiffu8s8C(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                          uint32_t src1Stride, uint32_t src2Stride, int8_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* a = Row(src1, src1Stride, y);
    const uint8_t* b = Row(src2, src2Stride, y);
    int8_t* out = reinterpret_cast<int8_t*>(Row(dst, dstStride, y));
    // The difference is in -255..255; an arithmetic shift halves it towards minus infinity.
    for (uint32_t x = 0; x < srcWidth; ++x) out[x] = static_cast<int8_t>((int32_t{a[x]} - int32_t{b[x]}) >> 1);
  }
  return 0;
}

int32_t tvxGLBPu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                   uint32_t dstStride, int32_t threshold) {
  const auto at = [&](int64_t x, int64_t y) -> int32_t {
    x = x < 0 ? 0 : (x >= srcWidth ? srcWidth - 1 : x);
    y = y < 0 ? 0 : (y >= srcHeight ? srcHeight - 1 : y);
    return Row(src, srcStride, static_cast<uint32_t>(y))[x];
  };
  static const int kDx[8] = {-1, -1, 0, 1, 1, 1, 0, -1};
  static const int kDy[8] = {0, 1, 1, 1, 0, -1, -1, -1};
  for (uint32_t y = 0; y < srcHeight; ++y) {
    uint8_t* out = Row(dst, dstStride, y);
    for (uint32_t x = 0; x < srcWidth; ++x) {
      int32_t n[8];
      for (int k = 0; k < 8; ++k) n[k] = at(int64_t{x} + kDx[k], int64_t{y} + kDy[k]);
      out[x] = tvxhisto::LbpCode(at(x, y), n, threshold);
    }
  }
  return 0;
}
