// Reference variants of the histogram family's neighbourhood operations: per-cell histograms,
// local box normalisation, local maxima with suppression and the edge weight of gradients.
#include <cmath>
#include <cstddef>
#include <cstring>

#include "cpu/histo.h"
#include "frame/frame.h"

using tvxhisto::Row;

namespace {

void SpatialHistogram(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, const uint8_t* mask,
                      uint32_t maskStride, uint32_t cellsX, uint32_t cellsY, uint32_t numBins, uint32_t* histogram) {
  std::memset(histogram, 0, sizeof(uint32_t) * cellsX * cellsY * numBins);
  for (uint32_t j = 0; j < cellsY; ++j) {
    const uint32_t y0 = static_cast<uint32_t>(uint64_t{j} * height / cellsY);
    const uint32_t y1 = static_cast<uint32_t>(uint64_t{j + 1} * height / cellsY);
    for (uint32_t i = 0; i < cellsX; ++i) {
      const uint32_t x0 = static_cast<uint32_t>(uint64_t{i} * width / cellsX);
      const uint32_t x1 = static_cast<uint32_t>(uint64_t{i + 1} * width / cellsX);
      uint32_t* cell = histogram + (size_t{j} * cellsX + i) * numBins;
      for (uint32_t y = y0; y < y1; ++y) {
        const uint8_t* in = Row(src, stride, y);
        const uint8_t* m = mask ? Row(mask, maskStride, y) : nullptr;
        for (uint32_t x = x0; x < x1; ++x)
          if (!m || m[x]) ++cell[in[x] * numBins / 256];
      }
    }
  }
}

// Box sums of v and v*v around pixel x from the column sums of the box's rows, columns outside
// the image taking the nearest edge column.
void BoxSums(const uint32_t* colS1, const uint64_t* colS2, uint32_t width, uint32_t pw, uint32_t x, uint64_t* s1,
             uint64_t* s2) {
  const int64_t rw = pw / 2;
  uint64_t a = 0, b = 0;
  for (int64_t k = -rw; k <= rw; ++k) {
    int64_t cx = int64_t{x} + k;
    cx = cx < 0 ? 0 : (cx >= width ? width - 1 : cx);
    a += colS1[cx];
    b += colS2[cx];
  }
  *s1 = a;
  *s2 = b;
}

template <typename Out, typename F>
int32_t NormalizeLocalBox(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t pw,
                          uint32_t ph, Out* dst, uint32_t dstStride, F finish) {
  if (width > 0x7FFFFFFFu / 12) return 5;
  uint8_t* block = static_cast<uint8_t*>(tvxMemAlloc(width * 12u, 16));
  if (!block) return 5;
  uint64_t* colS2 = reinterpret_cast<uint64_t*>(block);
  uint32_t* colS1 = reinterpret_cast<uint32_t*>(block + size_t{width} * 8);
  const int64_t rh = ph / 2;
  const uint64_t n = uint64_t{pw} * ph;
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      colS1[x] = 0;
      colS2[x] = 0;
    }
    for (int64_t k = -rh; k <= rh; ++k) {
      int64_t ry = int64_t{y} + k;
      ry = ry < 0 ? 0 : (ry >= height ? height - 1 : ry);
      const uint8_t* in = Row(src, stride, static_cast<uint32_t>(ry));
      for (uint32_t x = 0; x < width; ++x) {
        colS1[x] += in[x];
        colS2[x] += uint32_t{in[x]} * in[x];
      }
    }
    const uint8_t* in = Row(src, stride, y);
    Out* out = reinterpret_cast<Out*>(Row(dst, dstStride, y));
    for (uint32_t x = 0; x < width; ++x) {
      uint64_t s1, s2;
      BoxSums(colS1, colS2, width, pw, x, &s1, &s2);
      const int64_t d = static_cast<int64_t>(n * in[x]) - static_cast<int64_t>(s1);
      const int64_t q = static_cast<int64_t>(n * s2) - static_cast<int64_t>(s1 * s1);
      out[x] = finish(d, q, static_cast<int64_t>(n));
    }
  }
  tvxMemFree(block);
  return 0;
}

// Floor division for a positive divisor.
inline int64_t FloorDiv(int64_t a, int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

inline uint8_t ClampByte(int64_t v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

}  // namespace

int32_t tvxImageSpatialHistogramu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint32_t cellsX, uint32_t cellsY, uint32_t numBins, uint32_t* histogram) {
  SpatialHistogram(src, srcWidth, srcHeight, srcStride, nullptr, 0, cellsX, cellsY, numBins, histogram);
  return 0;
}

int32_t tvxImageSpatialHistogramu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                       const uint8_t* mask, uint32_t maskStride, uint32_t cellsX, uint32_t cellsY,
                                       uint32_t numBins, uint32_t* histogram) {
  SpatialHistogram(src, srcWidth, srcHeight, srcStride, mask, maskStride, cellsX, cellsY, numBins, histogram);
  return 0;
}

int32_t tvxNormalizeLocalBoxu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                uint32_t patternWidth, uint32_t patternHeight, uint32_t useStdDev, uint8_t* dst,
                                uint32_t dstStride) {
  if (useStdDev) {
    return NormalizeLocalBox(src, srcWidth, srcHeight, srcStride, patternWidth, patternHeight, dst, dstStride,
                             [](int64_t d, int64_t q, int64_t) -> uint8_t {
                               if (q == 0) return 128;
                               const double t = std::floor(32.0 * static_cast<double>(d) / std::sqrt(double(q)) + 0.5);
                               return static_cast<uint8_t>(t < -128.0 ? 0 : (t > 127.0 ? 255 : 128 + int(t)));
                             });
  }
  return NormalizeLocalBox(src, srcWidth, srcHeight, srcStride, patternWidth, patternHeight, dst, dstStride,
                           [](int64_t d, int64_t, int64_t n) { return ClampByte(128 + FloorDiv(2 * d + n, 2 * n)); });
}

int32_t tvxNormalizeLocalBoxf32C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint32_t patternWidth, uint32_t patternHeight, uint32_t useStdDev, float* dst,
                                 uint32_t dstStride) {
  if (useStdDev) {
    return NormalizeLocalBox(src, srcWidth, srcHeight, srcStride, patternWidth, patternHeight, dst, dstStride,
                             [](int64_t d, int64_t q, int64_t) {
                               return q == 0 ? 0.0f : static_cast<float>(double(d) / std::sqrt(double(q)));
                             });
  }
  return NormalizeLocalBox(src, srcWidth, srcHeight, srcStride, patternWidth, patternHeight, dst, dstStride,
                           [](int64_t d, int64_t, int64_t n) { return static_cast<float>(double(d) / double(n)); });
}

int32_t tvxFindMultipleMaximau8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint32_t threshold, uint32_t nmsRadius, uint32_t* xy, uint32_t maxNumMaxima,
                                 uint32_t* numMaxima) {
  uint32_t found = 0;
  const int64_t r = nmsRadius;
  for (uint32_t y = 0; y < srcHeight && found < maxNumMaxima; ++y) {
    const uint8_t* in = Row(src, srcStride, y);
    for (uint32_t x = 0; x < srcWidth && found < maxNumMaxima; ++x) {
      const uint32_t v = in[x];
      if (v < threshold) continue;
      bool keep = true;
      const int64_t y0 = int64_t{y} - r < 0 ? 0 : int64_t{y} - r;
      const int64_t y1 = int64_t{y} + r >= srcHeight ? srcHeight - 1 : int64_t{y} + r;
      const int64_t x0 = int64_t{x} - r < 0 ? 0 : int64_t{x} - r;
      const int64_t x1 = int64_t{x} + r >= srcWidth ? srcWidth - 1 : int64_t{x} + r;
      for (int64_t wy = y0; wy <= y1 && keep; ++wy) {
        const uint8_t* w = Row(src, srcStride, static_cast<uint32_t>(wy));
        for (int64_t wx = x0; wx <= x1; ++wx) {
          const bool before = wy < y || (wy == y && wx < x);
          if (before ? w[wx] >= v : w[wx] > v) {
            keep = false;
            break;
          }
        }
      }
      if (!keep) continue;
      xy[2 * found] = x;
      xy[2 * found + 1] = y;
      ++found;
    }
  }
  *numMaxima = found;
  return 0;
}

int32_t tvxEdgeWeightings16C(const int16_t* gradX, const int16_t* gradY, uint32_t width, uint32_t height,
                             uint32_t gradXStride, uint32_t gradYStride, int16_t* weight, uint32_t weightStride) {
  for (uint32_t y = 0; y < height; ++y) {
    const int16_t* gx = reinterpret_cast<const int16_t*>(Row(gradX, gradXStride, y));
    const int16_t* gy = reinterpret_cast<const int16_t*>(Row(gradY, gradYStride, y));
    int16_t* out = reinterpret_cast<int16_t*>(Row(weight, weightStride, y));
    for (uint32_t x = 0; x < width; ++x) {
      const int32_t s = std::abs(int32_t{gx[x]}) + std::abs(int32_t{gy[x]});
      out[x] = static_cast<int16_t>(s > 32767 ? 32767 : s);
    }
  }
  return 0;
}
