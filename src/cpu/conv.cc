// Reference variants of the square and 3x3 correlations, the valid convolution of two 16-bit
// images and the MxN convolution. Plain loops over the per-pixel sums; they define the results
// the SIMD variants reproduce.
#include <cstring>
#include <vector>

#include "cpu/conv_rules.h"
#include "frame/frame.h"

using namespace tvx::conv;

namespace tvx::conv {

void BorderRow(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int64_t y, uint32_t padLeft,
               uint32_t padRight, uint32_t borderType, uint8_t borderValue, uint8_t* out) {
  const size_t total = size_t(padLeft) + width + padRight;
  const bool inside = y >= 0 && y < height;
  if (!inside && borderType != kBorderReplicate) {
    std::memset(out, borderValue, total);
    return;
  }
  const uint8_t* r = Row(src, stride, y < 0 ? 0 : (y >= height ? height - 1 : y));
  const bool replicate = borderType == kBorderReplicate;
  std::memset(out, replicate ? r[0] : borderValue, padLeft);
  std::memcpy(out + padLeft, r, width);
  std::memset(out + padLeft + width, replicate ? r[width - 1] : borderValue, padRight);
}

void ConvolveSumsDirect(const int8_t* kernel, uint32_t M, uint32_t N, const uint8_t* src, uint32_t width,
                        uint32_t height, uint32_t stride, uint32_t borderType, uint8_t borderValue, int32_t* sums) {
  const int64_t cx = M / 2, cy = N / 2;
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      uint32_t s = 0;  // wraps like the 32-bit sum it stands for
      for (uint32_t i = 0; i < N; ++i)
        for (uint32_t j = 0; j < M; ++j) {
          const uint8_t p = BorderPixel(src, width, height, stride, int64_t(x) + cx - j, int64_t(y) + cy - i,
                                        borderType, borderValue);
          s += uint32_t(int32_t(kernel[size_t(i) * M + j]) * p);
        }
      sums[size_t(y) * width + x] = static_cast<int32_t>(s);
    }
  }
}

}  // namespace tvx::conv

namespace {

// s = sum of kernel[i*N + j] * src(y - N/2 + i, x - N/2 + j) over the interior.
template <typename Out>
void CorrNxN(const int8_t* kernel, uint32_t N, int32_t shift, const uint8_t* src, uint32_t width, uint32_t height,
             uint32_t srcStride, Out* dst, uint32_t dstStride, int32_t lo, int32_t hi) {
  const uint32_t c = N / 2;
  for (uint32_t y = c; y + c < height; ++y) {
    for (uint32_t x = c; x + c < width; ++x) {
      uint32_t s = 0;
      for (uint32_t i = 0; i < N; ++i) {
        const uint8_t* r = Row(src, srcStride, int64_t(y) - c + i);
        for (uint32_t j = 0; j < N; ++j) s += uint32_t(int32_t(kernel[size_t(i) * N + j]) * r[x - c + j]);
      }
      Row(dst, dstStride, y)[x] = static_cast<Out>(ScaleClamp(static_cast<int32_t>(s), shift, lo, hi));
    }
  }
}

template <typename Out>
int32_t ConvolveMxN(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src,
                    uint32_t width, uint32_t height, uint32_t srcStride, Out* dst, uint32_t dstStride,
                    uint32_t borderType, uint8_t borderValue, int32_t lo, int32_t hi) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  if (uint64_t(M) * N >= kSpectralMinTaps)
    return ConvolveSpectral(kernel, M, N, shift, src, width, height, srcStride, dst, dstStride, borderType,
                            borderValue);
  std::vector<int32_t> sums(size_t(width) * height);
  ConvolveSumsDirect(kernel, M, N, src, width, height, srcStride, borderType, borderValue, sums.data());
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      Row(dst, dstStride, y)[x] = static_cast<Out>(ScaleClamp(sums[size_t(y) * width + x], shift, lo, hi));
  return TVX_SUCCESS;
}

}  // namespace

int32_t tvxFilterCorrNxNu8C(const int8_t* kernel, uint32_t N, int32_t shift, const uint8_t* src, uint32_t srcWidth,
                            uint32_t srcHeight, uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  CorrNxN(kernel, N, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride, 0, 255);
  return TVX_SUCCESS;
}

int32_t tvxFilterCorrNxNu8s16C(const int8_t* kernel, uint32_t N, int32_t shift, const uint8_t* src,
                               uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                               uint32_t dstStride) {
  CorrNxN(kernel, N, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride, -32768, 32767);
  return TVX_SUCCESS;
}

int32_t tvxFilterCorrNxNu8f32C(const float* kernel, uint32_t N, const uint8_t* src, uint32_t srcWidth,
                               uint32_t srcHeight, uint32_t srcStride, float* dst, uint32_t dstStride) {
  const uint32_t c = N / 2;
  for (uint32_t y = c; y + c < srcHeight; ++y) {
    for (uint32_t x = c; x + c < srcWidth; ++x) {
      float s = 0.0f;
      for (uint32_t i = 0; i < N; ++i) {
        const uint8_t* r = Row(src, srcStride, int64_t(y) - c + i);
        for (uint32_t j = 0; j < N; ++j) s = s + kernel[size_t(i) * N + j] * float(r[x - c + j]);
      }
      Row(dst, dstStride, y)[x] = s;
    }
  }
  return TVX_SUCCESS;
}

void tvxFilterCorr3x3s8_v2C(const int8_t* kernel, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                            uint32_t srcStride, uint8_t* dst, uint32_t dstStride, int32_t shift) {
  CorrNxN(kernel, 3, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride, 0, 255);
}

void tvxConvValids16C(const int16_t* src1, uint32_t src1Width, uint32_t src1Height, uint32_t src1Stride,
                      const int16_t* src2, uint32_t src2Width, uint32_t src2Height, uint32_t src2Stride,
                      int32_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y + src2Height <= src1Height; ++y) {
    for (uint32_t x = 0; x + src2Width <= src1Width; ++x) {
      uint32_t s = 0;
      for (uint32_t i = 0; i < src2Height; ++i) {
        const int16_t* a = Row(src1, src1Stride, y + i);
        const int16_t* b = Row(src2, src2Stride, src2Height - 1 - i);
        for (uint32_t j = 0; j < src2Width; ++j) s += uint32_t(int32_t(a[x + j]) * b[src2Width - 1 - j]);
      }
      Row(dst, dstStride, y)[x] = static_cast<int32_t>(s);
    }
  }
}

int32_t tvxFilterConvolveMxNu8C(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src,
                                uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                                uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  return ConvolveMxN(kernel, M, N, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType,
                     borderValue, 0, 255);
}

int32_t tvxFilterConvolveMxNu8s16C(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src,
                                   uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                                   uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  return ConvolveMxN(kernel, M, N, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType,
                     borderValue, -32768, 32767);
}
