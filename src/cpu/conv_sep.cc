// Reference variants of the separable correlations and the separable convolution: a row
// kernel across, a column kernel down. The u8 and convolution forms give the exact 2-D sum;
// the s16 forms round and saturate after each pass (Q15 kernels).
#include <vector>

#include "cpu/conv_rules.h"
#include "frame/frame.h"

using namespace tvx::conv;

namespace {

constexpr int32_t kS16Min = -32768, kS16Max = 32767;

// One pass of a Q15 kernel: 32-bit sum, + 2^14, >> 15, saturated.
int16_t RoundQ15(uint32_t sum) { return static_cast<int16_t>(ScaleClamp(static_cast<int32_t>(sum), 15, kS16Min, kS16Max)); }

int32_t CorrSepS16(const int16_t* kernelX, const int16_t* kernelY, uint32_t N, const int16_t* src, uint32_t width,
                   uint32_t height, uint32_t srcStride, int16_t* dst, uint32_t dstStride) {
  const uint32_t c = N / 2;
  // Row pass over every source row, at the interior columns.
  std::vector<int16_t> across(size_t(width) * height);
  for (uint32_t y = 0; y < height; ++y) {
    const int16_t* r = Row(src, srcStride, y);
    for (uint32_t x = c; x + c < width; ++x) {
      uint32_t s = 0;
      for (uint32_t j = 0; j < N; ++j) s += uint32_t(int32_t(kernelX[j]) * r[x - c + j]);
      across[size_t(y) * width + x] = RoundQ15(s);
    }
  }
  for (uint32_t y = c; y + c < height; ++y) {
    for (uint32_t x = c; x + c < width; ++x) {
      uint32_t s = 0;
      for (uint32_t i = 0; i < N; ++i) s += uint32_t(int32_t(kernelY[i]) * across[size_t(y - c + i) * width + x]);
      Row(dst, dstStride, y)[x] = RoundQ15(s);
    }
  }
  return TVX_SUCCESS;
}

}  // namespace

int32_t tvxFilterCorrSepMxNu8C(const int8_t* kernelX, const int8_t* kernelY, uint32_t M, uint32_t N, int32_t shift,
                               const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                               uint8_t* dst, uint32_t dstStride) {
  const uint32_t cx = M / 2, cy = N / 2;
  for (uint32_t y = cy; y + cy < srcHeight; ++y) {
    for (uint32_t x = cx; x + cx < srcWidth; ++x) {
      uint32_t s = 0;
      for (uint32_t i = 0; i < N; ++i) {
        const uint8_t* r = Row(src, srcStride, int64_t(y) - cy + i);
        uint32_t across = 0;
        for (uint32_t j = 0; j < M; ++j) across += uint32_t(int32_t(kernelX[j]) * r[x - cx + j]);
        s += uint32_t(int32_t(kernelY[i])) * across;
      }
      Row(dst, dstStride, y)[x] = static_cast<uint8_t>(ScaleClamp(static_cast<int32_t>(s), shift, 0, 255));
    }
  }
  return TVX_SUCCESS;
}

#define TVX_CORR_SEP_FIXED(n)                                                                                    \
  int32_t tvxFilterCorrSep##n##x##n##s16C(const int16_t* kernelX, const int16_t* kernelY, const int16_t* src,    \
                                          uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst, \
                                          uint32_t dstStride) {                                                  \
    return CorrSepS16(kernelX, kernelY, n, src, srcWidth, srcHeight, srcStride, dst, dstStride);                 \
  }
TVX_CORR_SEP_FIXED(9)
TVX_CORR_SEP_FIXED(11)
TVX_CORR_SEP_FIXED(13)
TVX_CORR_SEP_FIXED(15)
TVX_CORR_SEP_FIXED(17)
#undef TVX_CORR_SEP_FIXED

int32_t tvxFilterCorrSepNxNs16C(const int16_t* kernelX, const int16_t* kernelY, uint32_t N, const int16_t* src,
                                uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                                uint32_t dstStride) {
  return CorrSepS16(kernelX, kernelY, N, src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

// dst(x, y) = sum over i, j of kernelY[i] * kernelX[j] * src(x + M/2 - j, y + N/2 - i), outside
// pixels by the border rule.
int32_t tvxFilterConvSepMxNs16C(const int16_t* kernelX, const int16_t* kernelY, uint32_t M, uint32_t N,
                                int32_t shift, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                uint32_t srcStride, int16_t* dst, uint32_t dstStride, uint32_t borderType,
                                uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  const int64_t cx = M / 2, cy = N / 2;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    for (uint32_t x = 0; x < srcWidth; ++x) {
      uint32_t s = 0;
      for (uint32_t i = 0; i < N; ++i) {
        uint32_t across = 0;
        for (uint32_t j = 0; j < M; ++j)
          across += uint32_t(int32_t(kernelX[j]) * BorderPixel(src, srcWidth, srcHeight, srcStride, int64_t(x) + cx - j,
                                                               int64_t(y) + cy - i, borderType, borderValue));
        s += uint32_t(int32_t(kernelY[i])) * across;
      }
      Row(dst, dstStride, y)[x] = static_cast<int16_t>(ScaleClamp(static_cast<int32_t>(s), shift, kS16Min, kS16Max));
    }
  }
  return TVX_SUCCESS;
}
