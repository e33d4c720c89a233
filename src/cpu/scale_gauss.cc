// Reference variants of the Gaussian steps by 2: reductions with the 5x5 binomial kernel (bytes
// and floats) and the 3x3 one, and the 5x5 enlargement. Every kernel is centred on the even
// source pixels and reads past the edges with reflect-101, as image pyramids usually do.
#include <cstddef>

#include "cpu/scale_general_taps.h"
#include "frame/frame.h"

namespace {

using tvxsg::Reflect101;

constexpr int kBinomial5[5] = {1, 4, 6, 4, 1};
constexpr int kBinomial3[3] = {1, 2, 1};

template <typename T>
const T* RowOf(const T* base, uint32_t strideBytes, int64_t y) {
  return reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(base) + static_cast<size_t>(y) * strideBytes);
}
template <typename T>
T* RowOf(T* base, uint32_t strideBytes, int64_t y) {
  return reinterpret_cast<T*>(reinterpret_cast<uint8_t*>(base) + static_cast<size_t>(y) * strideBytes);
}

void DownBy2Gaussian5x5(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  for (uint32_t y = 0; y < height / 2; ++y) {
    for (uint32_t x = 0; x < width / 2; ++x) {
      int sum = 0;
      for (int j = -2; j <= 2; ++j) {
        const uint8_t* row = RowOf(src, srcStride, Reflect101(2 * int64_t{y} + j, height));
        for (int i = -2; i <= 2; ++i) sum += kBinomial5[j + 2] * kBinomial5[i + 2] * row[Reflect101(2 * int64_t{x} + i, width)];
      }
      RowOf(dst, dstStride, y)[x] = static_cast<uint8_t>((sum + 128) >> 8);
    }
  }
}

// ((a + e) + 4 (b + d)) + 6 c: the float order both variants follow.
inline float Binomial5(float a, float b, float c, float d, float e) { return ((a + e) + 4.0f * (b + d)) + 6.0f * c; }

void DownBy2Gaussian5x5f(const float* src, uint32_t width, uint32_t height, uint32_t srcStride, float* dst,
                         uint32_t dstStride) {
  for (uint32_t y = 0; y < height / 2; ++y) {
    const float* rows[5];
    for (int j = 0; j < 5; ++j) rows[j] = RowOf(src, srcStride, Reflect101(2 * int64_t{y} + j - 2, height));
    for (uint32_t x = 0; x < width / 2; ++x) {
      float column[5];  // vertical sums of the five columns around 2x
      for (int i = 0; i < 5; ++i) {
        const int32_t c = Reflect101(2 * int64_t{x} + i - 2, width);
        column[i] = Binomial5(rows[0][c], rows[1][c], rows[2][c], rows[3][c], rows[4][c]);
      }
      RowOf(dst, dstStride, y)[x] = Binomial5(column[0], column[1], column[2], column[3], column[4]) * (1.0f / 256.0f);
    }
  }
}

void DownBy2Gaussian3x3(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  for (uint32_t y = 0; y < height / 2; ++y) {
    for (uint32_t x = 0; x < width / 2; ++x) {
      int sum = 0;
      for (int j = -1; j <= 1; ++j) {
        const uint8_t* row = RowOf(src, srcStride, Reflect101(2 * int64_t{y} + j, height));
        for (int i = -1; i <= 1; ++i) sum += kBinomial3[j + 1] * kBinomial3[i + 1] * row[Reflect101(2 * int64_t{x} + i, width)];
      }
      RowOf(dst, dstStride, y)[x] = static_cast<uint8_t>((sum + 8) >> 4);
    }
  }
}

// The enlarged grid holds source pixel (x, y) at (2x, 2y) and zeros elsewhere; output (X, Y)
// is the 5x5 binomial over that grid, reflect-101 at its edges: the taps that land on source
// pixels weigh 8 per axis (1 6 1 or 4 4), so 64 in all.
void UpBy2Gaussian5x5(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstStride) {
  const int64_t bigW = 2 * int64_t{width}, bigH = 2 * int64_t{height};
  for (int64_t Y = 0; Y < bigH; ++Y) {
    for (int64_t X = 0; X < bigW; ++X) {
      int sum = 0;
      for (int j = -2; j <= 2; ++j) {
        const int32_t gy = Reflect101(Y + j, bigH);
        if (gy & 1) continue;
        const uint8_t* row = RowOf(src, srcStride, gy / 2);
        for (int i = -2; i <= 2; ++i) {
          const int32_t gx = Reflect101(X + i, bigW);
          if (gx & 1) continue;
          sum += kBinomial5[j + 2] * kBinomial5[i + 2] * row[gx / 2];
        }
      }
      RowOf(dst, dstStride, Y)[X] = static_cast<uint8_t>((sum + 32) >> 6);
    }
  }
}

}  // namespace

void tvxScaleDownBy2Gaussian5x5u8C(const uint8_t* src, uint32_t width, uint32_t height, uint8_t* dst) {
  DownBy2Gaussian5x5(src, width, height, width, dst, width / 2);
}

void tvxScaleDownBy2Gaussian5x5u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                      uint8_t* dst, uint32_t dstStride) {
  DownBy2Gaussian5x5(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

void tvxScaleDownBy2Gaussian5x5f32C(const float* srcImg, uint32_t width, uint32_t height, float* dst) {
  DownBy2Gaussian5x5f(srcImg, width, height, width * 4, dst, (width / 2) * 4);
}

void tvxScaleDownBy2Gaussian5x5f32_v2C(const float* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                       float* dst, uint32_t dstStride) {
  DownBy2Gaussian5x5f(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

int32_t tvxScaleDownBy2Gaussian3x3u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                      uint8_t* dst, uint32_t dstStride) {
  DownBy2Gaussian3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride);
  return 0;
}

void tvxScaleUpBy2Gaussian5x5u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t* dst, uint32_t dstStride) {
  UpBy2Gaussian5x5(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
