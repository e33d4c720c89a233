// SIMD variants of the square and 3x3 correlations, the valid convolution of two 16-bit images
// and the direct MxN convolution. Byte correlations sum their taps in 16-bit lane groups that
// cannot overflow and widen each group once (see conv_taps.h), so sums are exact 32-bit values
// like the reference; zero taps are skipped. The MxN convolution runs the same engine with the
// flipped kernel over rows extended by the border rule; big kernels take the shared spectral
// path. The float correlation adds kernel-times-pixel products in the reference's order.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/conv.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstring>
#include <vector>

#include "cpu/conv_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
using namespace tvx::conv;

#include "lanes/conv_taps.h"

// Interior of an N x N (3 x 3 for the s8 form) correlation: one output row per source window.
template <typename Out>
void CorrNxN(const int8_t* kernel, uint32_t N, int32_t shift, const uint8_t* src, uint32_t width, uint32_t height,
             uint32_t srcStride, Out* dst, uint32_t dstStride) {
  const uint32_t c = N / 2;
  if (width < 2 * c + 1 || height < 2 * c + 1) return;
  const size_t n = width - 2 * c;
  const size_t L32 = hn::Lanes(D32());
  TapGroups g;
  for (uint32_t y = c; y + c < height; ++y) {
    g.Clear();
    for (uint32_t i = 0; i < N; ++i) {
      const uint8_t* r = Row(src, srcStride, int64_t(y) - c + i);
      for (uint32_t j = 0; j < N; ++j) g.Add(r + j, kernel[size_t(i) * N + j]);
    }
    Out* out = Row(dst, dstStride, y) + c;
    TapSumsU8(
        g, n,
        [&](size_t x, V32 lo, V32 hi) {
          StoreScaled(lo, shift, out + x);
          StoreScaled(hi, shift, out + x + L32);
        },
        [&](size_t x, int32_t s) { out[x] = static_cast<Out>(ScaleClamp(s, shift, OutMin<Out>(), OutMax<Out>())); });
  }
}

int32_t CorrNxNu8(const int8_t* kernel, uint32_t N, int32_t shift, const uint8_t* src, uint32_t srcWidth,
                  uint32_t srcHeight, uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  CorrNxN(kernel, N, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride);
  return 0;
}

int32_t CorrNxNu8s16(const int8_t* kernel, uint32_t N, int32_t shift, const uint8_t* src, uint32_t srcWidth,
                     uint32_t srcHeight, uint32_t srcStride, int16_t* dst, uint32_t dstStride) {
  CorrNxN(kernel, N, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride);
  return 0;
}

void Corr3x3s8(const int8_t* kernel, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
               uint8_t* dst, uint32_t dstStride, int32_t shift) {
  CorrNxN(kernel, 3, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

// Float kernel: s = ((0 + k0 * p0) + k1 * p1) + ... in row-major kernel order, per lane.
int32_t CorrNxNu8f32(const float* kernel, uint32_t N, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                     uint32_t srcStride, float* dst, uint32_t dstStride) {
  const hn::ScalableTag<float> df;
  const hn::RebindToSigned<decltype(df)> di;
  const hn::Rebind<uint8_t, decltype(df)> d8;
  const size_t L = hn::Lanes(df);
  const uint32_t c = N / 2;
  const size_t n = srcWidth - 2 * c;
  std::vector<const uint8_t*> rows(N);
  for (uint32_t y = c; y + c < srcHeight; ++y) {
    for (uint32_t i = 0; i < N; ++i) rows[i] = Row(src, srcStride, int64_t(y) - c + i);
    float* out = Row(dst, dstStride, y) + c;
    size_t x = 0;
    for (; x + L <= n; x += L) {
      auto acc = hn::Zero(df);
      for (uint32_t i = 0; i < N; ++i)
        for (uint32_t j = 0; j < N; ++j) {
          const auto px = hn::ConvertTo(df, hn::PromoteTo(di, hn::LoadU(d8, rows[i] + x + j)));
          acc = hn::Add(acc, hn::Mul(hn::Set(df, kernel[size_t(i) * N + j]), px));
        }
      hn::StoreU(acc, df, out + x);
    }
    for (; x < n; ++x) {
      float s = 0.0f;
      for (uint32_t i = 0; i < N; ++i)
        for (uint32_t j = 0; j < N; ++j) s = s + kernel[size_t(i) * N + j] * float(rows[i][x + j]);
      out[x] = s;
    }
  }
  return 0;
}

// Valid convolution: src2 flipped, s16 x s16 products summed in 32-bit lanes.
void ConvValid(const int16_t* src1, uint32_t src1Width, uint32_t src1Height, uint32_t src1Stride,
               const int16_t* src2, uint32_t src2Width, uint32_t src2Height, uint32_t src2Stride, int32_t* dst,
               uint32_t dstStride) {
  const D32 d32;
  const size_t n = src1Width - src2Width + 1;
  const size_t taps = size_t(src2Width) * src2Height;
  std::vector<int32_t> coef(taps);
  std::vector<const int16_t*> rows(taps);
  for (uint32_t i = 0; i < src2Height; ++i)
    for (uint32_t j = 0; j < src2Width; ++j)
      coef[size_t(i) * src2Width + j] = Row(src2, src2Stride, src2Height - 1 - i)[src2Width - 1 - j];
  for (uint32_t y = 0; y + src2Height <= src1Height; ++y) {
    for (uint32_t i = 0; i < src2Height; ++i)
      for (uint32_t j = 0; j < src2Width; ++j) rows[size_t(i) * src2Width + j] = Row(src1, src1Stride, y + i) + j;
    int32_t* out = Row(dst, dstStride, y);
    TapSums16(
        rows.data(), coef.data(), taps, n, [&](size_t x, V32 s) { hn::StoreU(s, d32, out + x); },
        [&](size_t x, int32_t s) { out[x] = s; });
  }
}

// Direct MxN convolution: correlation with the flipped kernel over a ring of N source rows
// extended by the border rule ((M - 1) / 2 columns left, M / 2 right).
template <typename Out>
int32_t Convolve(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src, uint32_t width,
                 uint32_t height, uint32_t srcStride, Out* dst, uint32_t dstStride, uint32_t borderType,
                 uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  if (uint64_t(M) * N >= kSpectralMinTaps)
    return ConvolveSpectral(kernel, M, N, shift, src, width, height, srcStride, dst, dstStride, borderType,
                            borderValue);
  const size_t padded = size_t(width) + M - 1;
  const uint32_t padT = (N - 1) / 2;
  const size_t L32 = hn::Lanes(D32());
  std::vector<uint8_t> ring(padded * N);
  auto slot = [&](uint32_t v) { return ring.data() + size_t(v % N) * padded; };
  for (uint32_t v = 0; v + 1 < N; ++v)
    BorderRow(src, width, height, srcStride, int64_t(v) - padT, (M - 1) / 2, M / 2, borderType, borderValue, slot(v));
  TapGroups g;
  for (uint32_t y = 0; y < height; ++y) {
    // Window rows y .. y + N - 1 of the extended image; the newest one enters the ring now.
    BorderRow(src, width, height, srcStride, int64_t(y) + N - 1 - padT, (M - 1) / 2, M / 2, borderType,
              borderValue, slot(y + N - 1));
    g.Clear();
    for (uint32_t i = 0; i < N; ++i)
      for (uint32_t j = 0; j < M; ++j) g.Add(slot(y + i) + j, kernel[size_t(N - 1 - i) * M + (M - 1 - j)]);
    Out* out = Row(dst, dstStride, y);
    TapSumsU8(
        g, width,
        [&](size_t x, V32 lo, V32 hi) {
          StoreScaled(lo, shift, out + x);
          StoreScaled(hi, shift, out + x + L32);
        },
        [&](size_t x, int32_t s) { out[x] = static_cast<Out>(ScaleClamp(s, shift, OutMin<Out>(), OutMax<Out>())); });
  }
  return TVX_SUCCESS;
}

int32_t ConvolveU8(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src, uint32_t width,
                   uint32_t height, uint32_t srcStride, uint8_t* dst, uint32_t dstStride, uint32_t borderType,
                   uint8_t borderValue) {
  return Convolve(kernel, M, N, shift, src, width, height, srcStride, dst, dstStride, borderType, borderValue);
}
int32_t ConvolveS16(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src, uint32_t width,
                    uint32_t height, uint32_t srcStride, int16_t* dst, uint32_t dstStride, uint32_t borderType,
                    uint8_t borderValue) {
  return Convolve(kernel, M, N, shift, src, width, height, srcStride, dst, dstStride, borderType, borderValue);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(CorrNxNu8);
HWY_EXPORT(CorrNxNu8s16);
HWY_EXPORT(CorrNxNu8f32);
HWY_EXPORT(Corr3x3s8);
HWY_EXPORT(ConvValid);
HWY_EXPORT(ConvolveU8);
HWY_EXPORT(ConvolveS16);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

int32_t tvxFilterCorrNxNu8V(const int8_t* kernel, uint32_t N, int32_t shift, const uint8_t* src, uint32_t srcWidth,
                            uint32_t srcHeight, uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(CorrNxNu8)(kernel, N, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
int32_t tvxFilterCorrNxNu8s16V(const int8_t* kernel, uint32_t N, int32_t shift, const uint8_t* src,
                               uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                               uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(CorrNxNu8s16)(kernel, N, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
int32_t tvxFilterCorrNxNu8f32V(const float* kernel, uint32_t N, const uint8_t* src, uint32_t srcWidth,
                               uint32_t srcHeight, uint32_t srcStride, float* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(CorrNxNu8f32)(kernel, N, src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxFilterCorr3x3s8_v2V(const int8_t* kernel, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                            uint32_t srcStride, uint8_t* dst, uint32_t dstStride, int32_t shift) {
  HWY_DYNAMIC_DISPATCH(Corr3x3s8)(kernel, src, srcWidth, srcHeight, srcStride, dst, dstStride, shift);
}
void tvxConvValids16V(const int16_t* src1, uint32_t src1Width, uint32_t src1Height, uint32_t src1Stride,
                      const int16_t* src2, uint32_t src2Width, uint32_t src2Height, uint32_t src2Stride,
                      int32_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(ConvValid)(src1, src1Width, src1Height, src1Stride, src2, src2Width, src2Height, src2Stride,
                                  dst, dstStride);
}
int32_t tvxFilterConvolveMxNu8V(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src,
                                uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                                uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(ConvolveU8)(kernel, M, N, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride,
                                          borderType, borderValue);
}
int32_t tvxFilterConvolveMxNu8s16V(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src,
                                   uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                                   uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(ConvolveS16)(kernel, M, N, shift, src, srcWidth, srcHeight, srcStride, dst, dstStride,
                                           borderType, borderValue);
}
#endif  // HWY_ONCE
