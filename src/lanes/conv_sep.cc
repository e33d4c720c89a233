// SIMD variants of the separable correlations and the separable convolution. Each source row
// is filtered across once into a ring of N rows; every output row combines N ring rows down the
// column. The u8 correlation and the convolution keep exact 32-bit row sums; the s16 forms
// round each pass to s16 as the reference does.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/conv_sep.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <vector>

#include "cpu/conv_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
using namespace tvx::conv;

#include "lanes/conv_taps.h"

// Sum of coef[t] * rows[t][x] for 32-bit rows (or byte rows widened to 32 bits), wrapping.
template <typename T, class VecF, class ScalarF>
HWY_INLINE void TapSums32(const T* const* rows, const int32_t* coef, size_t taps, size_t n, VecF vec,
                          ScalarF scalar) {
  const D32 d32;
  const hn::Rebind<T, D32> dt;
  const size_t L = hn::Lanes(d32);
  size_t x = 0;
  for (; x + L <= n; x += L) {
    V32 acc = hn::Zero(d32);
    for (size_t t = 0; t < taps; ++t) {
      V32 v;
      if constexpr (sizeof(T) == 4) v = hn::LoadU(d32, reinterpret_cast<const int32_t*>(rows[t]) + x);
      else v = hn::BitCast(d32, hn::PromoteTo(hn::Rebind<uint32_t, D32>(), hn::LoadU(dt, rows[t] + x)));
      acc = hn::Add(acc, hn::Mul(v, hn::Set(d32, coef[t])));
    }
    vec(x, acc);
  }
  for (; x < n; ++x) {
    uint32_t s = 0;
    for (size_t t = 0; t < taps; ++t) s += uint32_t(coef[t]) * uint32_t(int32_t(rows[t][x]));
    scalar(x, static_cast<int32_t>(s));
  }
}

int32_t CorrSepU8(const int8_t* kernelX, const int8_t* kernelY, uint32_t M, uint32_t N, int32_t shift,
                  const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                  uint32_t dstStride) {
  const D32 d32;
  const size_t L32 = hn::Lanes(d32);
  const uint32_t cx = M / 2, cy = N / 2;
  const size_t n = width - 2 * cx;
  std::vector<int32_t> ring(n * N);
  auto slot = [&](uint32_t y) { return ring.data() + size_t(y % N) * n; };
  TapGroups g;
  auto across = [&](uint32_t y) {
    const uint8_t* r = Row(src, srcStride, y);
    g.Clear();
    for (uint32_t j = 0; j < M; ++j) g.Add(r + j, kernelX[j]);
    int32_t* out = slot(y);
    TapSumsU8(
        g, n,
        [&](size_t x, V32 lo, V32 hi) {
          hn::StoreU(lo, d32, out + x);
          hn::StoreU(hi, d32, out + x + L32);
        },
        [&](size_t x, int32_t s) { out[x] = s; });
  };
  std::vector<const int32_t*> rows(N);
  std::vector<int32_t> coef(kernelY, kernelY + N);
  for (uint32_t y = 0; y + 1 < N; ++y) across(y);
  for (uint32_t y = cy; y + cy < height; ++y) {
    across(y - cy + N - 1);
    for (uint32_t i = 0; i < N; ++i) rows[i] = slot(y - cy + i);
    uint8_t* out = Row(dst, dstStride, y) + cx;
    TapSums32(
        rows.data(), coef.data(), N, n, [&](size_t x, V32 s) { StoreScaled(s, shift, out + x); },
        [&](size_t x, int32_t s) { out[x] = static_cast<uint8_t>(ScaleClamp(s, shift, 0, 255)); });
  }
  return 0;
}

// s16 pixels, Q15 kernels: each pass rounds (+2^14 >> 15) and saturates to s16.
int32_t CorrSepS16(const int16_t* kernelX, const int16_t* kernelY, uint32_t N, const int16_t* src, uint32_t width,
                   uint32_t height, uint32_t srcStride, int16_t* dst, uint32_t dstStride) {
  const uint32_t c = N / 2;
  const size_t n = width - 2 * c;
  std::vector<int16_t> ring(n * N);
  auto slot = [&](uint32_t y) { return ring.data() + size_t(y % N) * n; };
  std::vector<const int16_t*> rows(N);
  const std::vector<int32_t> coefX(kernelX, kernelX + N), coefY(kernelY, kernelY + N);
  auto pass = [&](const int32_t* coef, int16_t* out) {
    TapSums16(
        rows.data(), coef, N, n, [&](size_t x, V32 s) { StoreScaled(s, 15, out + x); },
        [&](size_t x, int32_t s) { out[x] = static_cast<int16_t>(ScaleClamp(s, 15, -32768, 32767)); });
  };
  auto across = [&](uint32_t y) {
    const int16_t* r = Row(src, srcStride, y);
    for (uint32_t j = 0; j < N; ++j) rows[j] = r + j;
    pass(coefX.data(), slot(y));
  };
  for (uint32_t y = 0; y + 1 < N; ++y) across(y);
  for (uint32_t y = c; y + c < height; ++y) {
    across(y - c + N - 1);
    for (uint32_t i = 0; i < N; ++i) rows[i] = slot(y - c + i);
    pass(coefY.data(), Row(dst, dstStride, y) + c);
  }
  return 0;
}

#define TVX_CORR_SEP_FIXED(n)                                                                                  \
  int32_t CorrSep##n(const int16_t* kernelX, const int16_t* kernelY, const int16_t* src, uint32_t srcWidth,   \
                     uint32_t srcHeight, uint32_t srcStride, int16_t* dst, uint32_t dstStride) {              \
    return CorrSepS16(kernelX, kernelY, n, src, srcWidth, srcHeight, srcStride, dst, dstStride);               \
  }
TVX_CORR_SEP_FIXED(9)
TVX_CORR_SEP_FIXED(11)
TVX_CORR_SEP_FIXED(13)
TVX_CORR_SEP_FIXED(15)
TVX_CORR_SEP_FIXED(17)
#undef TVX_CORR_SEP_FIXED

// Separable convolution over the whole image: flipped kernels, rows extended by the border
// rule, exact 32-bit row sums in a ring of N rows.
int32_t ConvSep(const int16_t* kernelX, const int16_t* kernelY, uint32_t M, uint32_t N, int32_t shift,
                const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dst,
                uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  const D32 d32;
  const size_t n = width;
  const uint32_t padT = (N - 1) / 2;
  std::vector<uint8_t> extended(size_t(width) + M - 1);
  std::vector<int32_t> ring(n * N);
  auto slot = [&](uint32_t v) { return ring.data() + size_t(v % N) * n; };
  std::vector<int32_t> coefX(M), coefY(N);
  for (uint32_t j = 0; j < M; ++j) coefX[j] = kernelX[M - 1 - j];
  for (uint32_t i = 0; i < N; ++i) coefY[i] = kernelY[N - 1 - i];
  std::vector<const uint8_t*> taps(M);
  auto across = [&](uint32_t v) {
    BorderRow(src, width, height, srcStride, int64_t(v) - padT, (M - 1) / 2, M / 2, borderType, borderValue,
              extended.data());
    for (uint32_t j = 0; j < M; ++j) taps[j] = extended.data() + j;
    int32_t* out = slot(v);
    TapSums32(
        taps.data(), coefX.data(), M, n, [&](size_t x, V32 s) { hn::StoreU(s, d32, out + x); },
        [&](size_t x, int32_t s) { out[x] = s; });
  };
  std::vector<const int32_t*> rows(N);
  for (uint32_t v = 0; v + 1 < N; ++v) across(v);
  for (uint32_t y = 0; y < height; ++y) {
    across(y + N - 1);
    for (uint32_t i = 0; i < N; ++i) rows[i] = slot(y + i);
    int16_t* out = Row(dst, dstStride, y);
    TapSums32(
        rows.data(), coefY.data(), N, n, [&](size_t x, V32 s) { StoreScaled(s, shift, out + x); },
        [&](size_t x, int32_t s) { out[x] = static_cast<int16_t>(ScaleClamp(s, shift, -32768, 32767)); });
  }
  return TVX_SUCCESS;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(CorrSepU8);
HWY_EXPORT(CorrSep9);
HWY_EXPORT(CorrSep11);
HWY_EXPORT(CorrSep13);
HWY_EXPORT(CorrSep15);
HWY_EXPORT(CorrSep17);
HWY_EXPORT(CorrSepS16);
HWY_EXPORT(ConvSep);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

int32_t tvxFilterCorrSepMxNu8V(const int8_t* kernelX, const int8_t* kernelY, uint32_t M, uint32_t N, int32_t shift,
                               const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                               uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(CorrSepU8)(kernelX, kernelY, M, N, shift, src, srcWidth, srcHeight, srcStride, dst,
                                         dstStride);
}

#define TVX_CORR_SEP_FIXED_V(n)                                                                                 \
  int32_t tvxFilterCorrSep##n##x##n##s16V(const int16_t* kernelX, const int16_t* kernelY, const int16_t* src,  \
                                          uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,            \
                                          int16_t* dst, uint32_t dstStride) {                                   \
    return HWY_DYNAMIC_DISPATCH(CorrSep##n)(kernelX, kernelY, src, srcWidth, srcHeight, srcStride, dst,         \
                                            dstStride);                                                         \
  }
TVX_CORR_SEP_FIXED_V(9)
TVX_CORR_SEP_FIXED_V(11)
TVX_CORR_SEP_FIXED_V(13)
TVX_CORR_SEP_FIXED_V(15)
TVX_CORR_SEP_FIXED_V(17)
#undef TVX_CORR_SEP_FIXED_V

int32_t tvxFilterCorrSepNxNs16V(const int16_t* kernelX, const int16_t* kernelY, uint32_t N, const int16_t* src,
                                uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                                uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(CorrSepS16)(kernelX, kernelY, N, src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

int32_t tvxFilterConvSepMxNs16V(const int16_t* kernelX, const int16_t* kernelY, uint32_t M, uint32_t N,
                                int32_t shift, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                uint32_t srcStride, int16_t* dst, uint32_t dstStride, uint32_t borderType,
                                uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(ConvSep)(kernelX, kernelY, M, N, shift, src, srcWidth, srcHeight, srcStride, dst,
                                       dstStride, borderType, borderValue);
}
#endif  // HWY_ONCE
