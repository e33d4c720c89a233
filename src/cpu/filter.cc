// Reference variants of the fixed-kernel filters: Gaussian 3x3, 5x5 (u8, s16, s32) and 11x11,
// box means 3x3, 5x5 and 11x11, erode, dilate and median 3x3, the fixed, range and Otsu
// thresholds and the adaptive thresholds. Plain loops over the per-pixel formulas; they define
// the results that the SIMD variants reproduce.
#include <algorithm>
#include <utility>

#include "cpu/filter_rules.h"
#include "frame/frame.h"

using namespace tvx::filter;

namespace {

// Source path the process-ending assertions of this family report.
constexpr const char* kBlurPath = "src/cpu/tavixBlurC";

// Interior 3x3 Gaussian at (x, y): column sums, then [1 2 1] across them, truncated.
uint8_t GaussInterior(const uint8_t* src, uint32_t stride, uint32_t x, uint32_t y) {
  const uint8_t* up = Row(src, stride, int64_t(y) - 1);
  const uint8_t* mid = Row(src, stride, y);
  const uint8_t* down = Row(src, stride, int64_t(y) + 1);
  auto column = [&](uint32_t cx) { return uint32_t(up[cx]) + 2u * mid[cx] + down[cx]; };
  return static_cast<uint8_t>((column(x - 1) + 2u * column(x) + column(x + 1)) >> 4);
}

void GaussInteriorRect(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstStride) {
  for (uint32_t y = 1; y + 1 < height; ++y)
    for (uint32_t x = 1; x + 1 < width; ++x) Row(dst, dstStride, y)[x] = GaussInterior(src, srcStride, x, y);
}

}  // namespace

// ---- Gaussian 3x3 ---------------------------------------------------------------------------

void tvxFilterGaussian3x3u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                uint8_t* dst, uint32_t dstStride, int32_t blurBorder) {
  // The interior runs in blocks of 6 columns plus a remainder of 0..5.
  const int32_t w_2 = static_cast<int32_t>(srcWidth) - 2;
  const int32_t w6 = w_2 / 6 * 6;
  TVX_REQUIRE(kBlurPath, w6<=w_2 && w6>=w_2-5);
  GaussInteriorRect(src, srcWidth, srcHeight, srcStride, dst, dstStride);
  if (blurBorder) GaussRenormalisedFrame3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

int32_t tvxFilterGaussian3x3u8_v3C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   uint8_t* dst, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  GaussInteriorRect(src, srcWidth, srcHeight, srcStride, dst, dstStride);
  if (borderType == kBorderUndefined) {
    GaussRenormalisedFrame3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride);
  } else {
    BorderedFrame3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType == kBorderReplicate,
                     borderValue, GaussOfWindow);
  }
  return TVX_SUCCESS;
}

// ---- erode and dilate 3x3 -------------------------------------------------------------------

namespace {

// Minimum (erode) or maximum (dilate) of the 3x3 neighbourhood; on the frame the border rule
// decides. Pixels outside only repeat edge pixels under replication, so "inside pixels only"
// is the replicated border.
template <bool kMax>
void Morph3x3(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
              uint32_t dstStride, bool replicate, uint8_t borderValue) {
  for (uint32_t y = 1; y + 1 < height; ++y) {
    for (uint32_t x = 1; x + 1 < width; ++x) {
      uint8_t m = Row(src, srcStride, y)[x];
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
          const uint8_t v = Row(src, srcStride, int64_t(y) + dy)[int64_t(x) + dx];
          m = kMax ? (v > m ? v : m) : (v < m ? v : m);
        }
      Row(dst, dstStride, y)[x] = m;
    }
  }
  BorderedFrame3x3(src, width, height, srcStride, dst, dstStride, replicate, borderValue,
                   kMax ? MaxOfWindow : MinOfWindow);
}

}  // namespace

void tvxFilterErode3x3u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride) {
  Morph3x3<false>(src, srcWidth, srcHeight, srcStride, dst, dstStride, true, 0);
}

void tvxFilterDilate3x3u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride) {
  Morph3x3<true>(src, srcWidth, srcHeight, srcStride, dst, dstStride, true, 0);
}

int32_t tvxFilterErode3x3u8_v3C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                uint8_t* dst, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  Morph3x3<false>(src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType != kBorderConstant, borderValue);
  return TVX_SUCCESS;
}

int32_t tvxFilterDilate3x3u8_v3C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  Morph3x3<true>(src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType != kBorderConstant, borderValue);
  return TVX_SUCCESS;
}

// ---- median 3x3 -----------------------------------------------------------------------------

namespace {

struct Sorted3 { uint8_t lo, mid, hi; };
Sorted3 Sort3(uint8_t a, uint8_t b, uint8_t c) {
  if (a > b) std::swap(a, b);
  if (b > c) std::swap(b, c);
  if (a > b) std::swap(a, b);
  return {a, b, c};
}

// Each column of three sorted; the median of nine is the median of the largest column
// minimum, the median column median and the smallest column maximum.
uint8_t MedianInterior(const uint8_t* src, uint32_t stride, uint32_t x, uint32_t y) {
  Sorted3 col[3];
  for (int k = 0; k < 3; ++k) {
    const uint32_t cx = x - 1 + k;
    col[k] = Sort3(Row(src, stride, int64_t(y) - 1)[cx], Row(src, stride, y)[cx], Row(src, stride, y + 1)[cx]);
  }
  const uint8_t maxOfMins = std::max({col[0].lo, col[1].lo, col[2].lo});
  const uint8_t minOfMaxes = std::min({col[0].hi, col[1].hi, col[2].hi});
  const uint8_t medOfMeds = Sort3(col[0].mid, col[1].mid, col[2].mid).mid;
  return Sort3(maxOfMins, medOfMeds, minOfMaxes).mid;
}

void MedianInteriorRect(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  for (uint32_t y = 1; y + 1 < height; ++y)
    for (uint32_t x = 1; x + 1 < width; ++x) Row(dst, dstStride, y)[x] = MedianInterior(src, srcStride, x, y);
}

}  // namespace

void tvxFilterMedian3x3u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride) {
  MedianInteriorRect(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

// Border type 0 replicates, like type 2: a median over a partial window would need a rule for
// an even count of pixels.
int32_t tvxFilterMedian3x3u8_v3C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  MedianInteriorRect(src, srcWidth, srcHeight, srcStride, dst, dstStride);
  BorderedFrame3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType != kBorderConstant, borderValue,
                   MedianOfWindow);
  return TVX_SUCCESS;
}

// ---- box 3x3 --------------------------------------------------------------------------------

int32_t tvxBoxFilter3x3u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  for (uint32_t y = 1; y + 1 < srcHeight; ++y) {
    for (uint32_t x = 1; x + 1 < srcWidth; ++x) {
      uint32_t sum = 0;
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) sum += Row(src, srcStride, int64_t(y) + dy)[int64_t(x) + dx];
      Row(dst, dstStride, y)[x] = BoxMean9(sum);
    }
  }
  // Replicate for type 2; any other type is a constant border, 0 for type 0.
  const bool replicate = borderType == kBorderReplicate;
  const uint8_t constant = borderType == kBorderConstant ? borderValue : 0;
  BorderedFrame3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride, replicate, constant, BoxOfWindow);
  return TVX_SUCCESS;
}

void tvxBoxFilter3x3u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  tvxBoxFilter3x3u8_v2C(src, srcWidth, srcHeight, srcStride, dst, dstStride, kBorderUndefined, 0);
}

// ---- box 5x5 and 11x11 ----------------------------------------------------------------------

void tvxBoxFilter5x5u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight; ++y)
    for (uint32_t x = 0; x < srcWidth; ++x)
      Row(dst, dstStride, y)[x] = BoxMeanAt<2>(src, srcWidth, srcHeight, srcStride, x, y);
}

void tvxBoxFilter11x11u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          uint8_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight; ++y)
    for (uint32_t x = 0; x < srcWidth; ++x)
      Row(dst, dstStride, y)[x] = BoxMeanAt<5>(src, srcWidth, srcHeight, srcStride, x, y);
}

// ---- thresholds -----------------------------------------------------------------------------

namespace {

// dst = f(src) per pixel; row by row, so in place works with equal strides.
template <typename F>
void PerPixel(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
              uint32_t dstStride, F f) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = Row(src, srcStride, y);
    uint8_t* d = Row(dst, dstStride, y);
    for (uint32_t x = 0; x < width; ++x) d[x] = f(s[x]);
  }
}

}  // namespace

void tvxFilterThresholdu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride, uint32_t threshold) {
  const uint32_t t = std::min<uint32_t>(threshold, 255);
  PerPixel(src, srcWidth, srcHeight, srcStride, dst, dstStride, [t](uint8_t s) { return s >= t ? 255 : 0; });
}

int32_t tvxFilterThresholdu8_v3C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride, uint32_t threshold, uint8_t trueValue,
                                 uint8_t falseValue) {
  PerPixel(src, srcWidth, srcHeight, srcStride, dst, dstStride,
           [&](uint8_t s) { return s > threshold ? trueValue : falseValue; });
  return TVX_SUCCESS;
}

int32_t tvxFilterThresholdRangeu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                      uint8_t* dst, uint32_t dstStride, uint8_t lowThresh, uint8_t highThresh,
                                      uint8_t trueValue, uint8_t falseValue) {
  PerPixel(src, srcWidth, srcHeight, srcStride, dst, dstStride,
           [&](uint8_t s) { return lowThresh <= s && s <= highThresh ? trueValue : falseValue; });
  return TVX_SUCCESS;
}

int32_t tvxFilterThresholdRangeu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   uint8_t* dst, uint32_t dstStride, uint8_t lowThresh, uint8_t highThresh) {
  return tvxFilterThresholdRangeu8_v2C(src, srcWidth, srcHeight, srcStride, dst, dstStride, lowThresh, highThresh,
                                       255, 0);
}

void tvxFilterThresholdOtsuu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                               uint8_t* dst, uint32_t dstStride, int32_t thresholdType) {
  const uint64_t total = uint64_t(srcWidth) * srcHeight;
  if (total == 0) return;
  uint32_t hist[256] = {};
  for (uint32_t y = 0; y < srcHeight; ++y)
    for (uint32_t x = 0; x < srcWidth; ++x) ++hist[Row(src, srcStride, y)[x]];
  const uint32_t threshold = OtsuLevel(hist, total) + 1;
  if (thresholdType == 1) {
    PerPixel(src, srcWidth, srcHeight, srcStride, dst, dstStride, [&](uint8_t s) { return s < threshold ? 255 : 0; });
  } else {
    tvxFilterThresholdu8_v2C(src, srcWidth, srcHeight, srcStride, dst, dstStride, threshold);
  }
}

// ---- Gaussian 5x5 ---------------------------------------------------------------------------

namespace {

// Interior (two pixels from every edge): the full 5x5 binomial sum >> 8, an arithmetic shift
// for signed data.
template <typename T>
void Gauss5x5(const T* src, uint32_t width, uint32_t height, uint32_t srcStride, T* dst, uint32_t dstStride,
              int32_t blurBorder) {
  for (uint32_t y = 2; y + 2 < height; ++y) {
    for (uint32_t x = 2; x + 2 < width; ++x) {
      int64_t sum = 0;
      for (int dy = -2; dy <= 2; ++dy)
        for (int dx = -2; dx <= 2; ++dx)
          sum += int64_t(kBinomial5[dx + 2]) * kBinomial5[dy + 2] * At(src, srcStride, int64_t(x) + dx, int64_t(y) + dy);
      RowOf(dst, dstStride, y)[x] = static_cast<T>(sum >> 8);
    }
  }
  if (blurBorder) GaussRenormalisedFrame5x5(src, width, height, srcStride, dst, dstStride);
}

}  // namespace

void tvxFilterGaussian11x11u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                  uint8_t* dst, uint32_t dstStride, int32_t blurBorder) {
  for (uint32_t y = 5; y + 5 < srcHeight; ++y) {
    for (uint32_t x = 5; x + 5 < srcWidth; ++x) {
      uint64_t sum = 0;
      for (int dy = -5; dy <= 5; ++dy)
        for (int dx = -5; dx <= 5; ++dx)
          sum += uint64_t(kBinomial11[dx + 5]) * kBinomial11[dy + 5] * At(src, srcStride, int64_t(x) + dx, int64_t(y) + dy);
      Row(dst, dstStride, y)[x] = static_cast<uint8_t>(sum >> 20);
    }
  }
  if (blurBorder) GaussRenormalisedFrame<5>(src, srcWidth, srcHeight, srcStride, dst, dstStride, kBinomial11);
}

void tvxFilterGaussian5x5u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                uint8_t* dst, uint32_t dstStride, int32_t blurBorder) {
  Gauss5x5(src, srcWidth, srcHeight, srcStride, dst, dstStride, blurBorder);
}

void tvxFilterGaussian5x5s16_v2C(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 int16_t* dst, uint32_t dstStride, int32_t blurBorder) {
  Gauss5x5(src, srcWidth, srcHeight, srcStride, dst, dstStride, blurBorder);
}

void tvxFilterGaussian5x5s32_v2C(const int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 int32_t* dst, uint32_t dstStride, int32_t blurBorder) {
  Gauss5x5(src, srcWidth, srcHeight, srcStride, dst, dstStride, blurBorder);
}

// ---- adaptive thresholds --------------------------------------------------------------------

namespace {

// Blurs src into dst with blur(), then decides every pixel from src and the blurred value.
template <typename Blur>
void Adaptive(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t maxValue,
              int32_t thresholdType, int32_t value, uint8_t* dst, uint32_t dstStride, Blur blur) {
  if (AdaptiveShortcut(srcWidth, srcHeight, maxValue, thresholdType, value, dst, dstStride)) return;
  blur();
  const AdaptiveRule rule(maxValue, thresholdType, value);
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* s = Row(src, srcStride, y);
    uint8_t* d = Row(dst, dstStride, y);
    for (uint32_t x = 0; x < srcWidth; ++x) d[x] = rule(s[x], d[x]);
  }
}

}  // namespace

void tvxAdaptiveThresholdGaussian3x3u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, uint8_t maxValue, int32_t thresholdType, int32_t value,
                                        uint8_t* dst, uint32_t dstStride) {
  Adaptive(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
           [&] { tvxFilterGaussian3x3u8_v2C(src, srcWidth, srcHeight, srcStride, dst, dstStride, 1); });
}

void tvxAdaptiveThresholdGaussian5x5u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, uint8_t maxValue, int32_t thresholdType, int32_t value,
                                        uint8_t* dst, uint32_t dstStride) {
  Adaptive(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
           [&] { tvxFilterGaussian5x5u8_v2C(src, srcWidth, srcHeight, srcStride, dst, dstStride, 1); });
}

void tvxAdaptiveThresholdGaussian11x11u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                          uint32_t srcStride, uint8_t maxValue, int32_t thresholdType, int32_t value,
                                          uint8_t* dst, uint32_t dstStride) {
  Adaptive(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
           [&] { tvxFilterGaussian11x11u8_v2C(src, srcWidth, srcHeight, srcStride, dst, dstStride, 1); });
}

// The mean is the 3x3 box filter (pixels outside the image count as 0).
void tvxAdaptiveThresholdMean3x3u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t maxValue, int32_t thresholdType, int32_t value, uint8_t* dst,
                                    uint32_t dstStride) {
  Adaptive(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
           [&] { tvxBoxFilter3x3u8C(src, srcWidth, srcHeight, srcStride, dst, dstStride); });
}

void tvxAdaptiveThresholdMean5x5u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t maxValue, int32_t thresholdType, int32_t value, uint8_t* dst,
                                    uint32_t dstStride) {
  Adaptive(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
           [&] { tvxBoxFilter5x5u8C(src, srcWidth, srcHeight, srcStride, dst, dstStride); });
}

void tvxAdaptiveThresholdMean11x11u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                      uint8_t maxValue, int32_t thresholdType, int32_t value, uint8_t* dst,
                                      uint32_t dstStride) {
  Adaptive(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
           [&] { tvxBoxFilter11x11u8C(src, srcWidth, srcHeight, srcStride, dst, dstStride); });
}
