// Reference variants of the filters with a caller-chosen window: NxN erode and dilate, the
// MxN median on 16-bit signed pixels and the NxN float mean. Each works from a private copy
// of the source rows, so a call in place (same buffer, same stride) reads the original pixels.
#include <algorithm>
#include <cstring>
#include <vector>

#include "cpu/filter_rules.h"
#include "frame/frame.h"

using namespace tvx::filter;

namespace {

// The width x height pixels of an image of T, packed.
template <typename T>
std::vector<T> PackedCopy(const T* src, uint32_t width, uint32_t height, uint32_t stride) {
  std::vector<T> copy(size_t(width) * height);
  for (uint32_t y = 0; y < height; ++y) std::memcpy(&copy[size_t(y) * width], RowOf(src, stride, y), width * sizeof(T));
  return copy;
}

// Minimum (erode) or maximum (dilate) over the NxN window cut to the image.
template <bool kMax>
void MorphNxN(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
              uint32_t dstStride, uint32_t n) {
  const std::vector<uint8_t> in = PackedCopy(src, width, height, srcStride);
  const int64_t r = n / 2;
  for (int64_t y = 0; y < height; ++y) {
    for (int64_t x = 0; x < width; ++x) {
      uint8_t m = kMax ? 0 : 255;
      for (int64_t sy = std::max<int64_t>(0, y - r); sy <= std::min<int64_t>(height - 1, y + r); ++sy)
        for (int64_t sx = std::max<int64_t>(0, x - r); sx <= std::min<int64_t>(width - 1, x + r); ++sx) {
          const uint8_t v = in[size_t(sy) * width + size_t(sx)];
          m = kMax ? std::max(m, v) : std::min(m, v);
        }
      Row(dst, dstStride, y)[x] = m;
    }
  }
}

}  // namespace

int32_t tvxFilterErodeNxNu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride, uint32_t N) {
  MorphNxN<false>(src, srcWidth, srcHeight, srcStride, dst, dstStride, N);
  return TVX_SUCCESS;
}

int32_t tvxFilterDilateNxNu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride, uint32_t N) {
  MorphNxN<true>(src, srcWidth, srcHeight, srcStride, dst, dstStride, N);
  return TVX_SUCCESS;
}

// ---- float box NxN ----------------------------------------------------------------------------

// The window spans x - N/2 .. x + (N-1)/2 (and likewise down), cut to the image. Each window
// row is summed left to right, the row sums are added top to bottom, and the total is divided
// by the number of pixels: the SIMD variant adds in exactly this order.
void tvxBoxFilterNxNf32C(const float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                         float32_t* dst, uint32_t dstStride, uint32_t N) {
  const std::vector<float> in = PackedCopy(src, srcWidth, srcHeight, srcStride);
  const int64_t before = N / 2, after = (N - 1) / 2;
  for (int64_t y = 0; y < srcHeight; ++y) {
    const int64_t y0 = std::max<int64_t>(0, y - before), y1 = std::min<int64_t>(srcHeight - 1, y + after);
    for (int64_t x = 0; x < srcWidth; ++x) {
      const int64_t x0 = std::max<int64_t>(0, x - before), x1 = std::min<int64_t>(srcWidth - 1, x + after);
      float total = 0.0f;
      for (int64_t sy = y0; sy <= y1; ++sy) {
        const float* row = &in[size_t(sy) * srcWidth];
        float rowSum = row[x0];
        for (int64_t sx = x0 + 1; sx <= x1; ++sx) rowSum += row[sx];
        total = sy == y0 ? rowSum : total + rowSum;
      }
      const float count = static_cast<float>((x1 - x0 + 1) * (y1 - y0 + 1));
      RowOf(dst, dstStride, y)[x] = total / count;
    }
  }
}

// ---- median MxN on s16 ------------------------------------------------------------------------

int32_t tvxFilterMedianMxNs16C(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                               int16_t* dst, uint32_t dstStride, uint32_t M, uint32_t N, uint32_t borderType,
                               int16_t borderValue) {
  if (borderType > kBorderReplicate || M % 2 == 0 || N % 2 == 0 || M > 31 || N > 31) return TVX_BAD_PARAMETER;
  const std::vector<int16_t> in = PackedCopy(src, srcWidth, srcHeight, srcStride);
  const bool replicate = borderType == kBorderReplicate;
  const int64_t rx = M / 2, ry = N / 2, w = srcWidth, h = srcHeight;
  std::vector<int16_t> window(size_t(M) * N);
  for (int64_t y = 0; y < h; ++y) {
    for (int64_t x = 0; x < w; ++x) {
      size_t k = 0;
      for (int64_t sy = y - ry; sy <= y + ry; ++sy)
        for (int64_t sx = x - rx; sx <= x + rx; ++sx) {
          const bool inside = sx >= 0 && sy >= 0 && sx < w && sy < h;
          window[k++] = inside || replicate ? in[size_t(Clamp(sy, 0, h - 1) * w + Clamp(sx, 0, w - 1))] : borderValue;
        }
      std::nth_element(window.begin(), window.begin() + window.size() / 2, window.end());
      RowOf(dst, dstStride, y)[x] = window[window.size() / 2];
    }
  }
  return TVX_SUCCESS;
}
