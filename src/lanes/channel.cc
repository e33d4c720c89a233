// SIMD variants of the channel extraction and the plane interleaving: de-interleaving loads
// pick the wanted byte of every 2-, 3- or 4-byte group, interleaving stores build the pixels.
// Samples after the last whole vector are copied one by one, so no access leaves a row.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/channel.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstring>

#include "cpu/channel_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// One output row: out[x] = s[first + x * kStep].
template <size_t kStep>
void ExtractRow(const uint8_t* s, uint32_t first, uint8_t* out, uint32_t n) {
  const hn::ScalableTag<uint8_t> d8;
  const size_t N = hn::Lanes(d8);
  size_t x = 0;
  if constexpr (kStep == 1) {
    std::memcpy(out, s + first, n);
    return;
  }
  for (; x + N <= n; x += N) {
    hn::Vec<decltype(d8)> v[4];
    const uint8_t* p = s + x * kStep;
    if constexpr (kStep == 2) hn::LoadInterleaved2(d8, p, v[0], v[1]);
    if constexpr (kStep == 3) hn::LoadInterleaved3(d8, p, v[0], v[1], v[2]);
    if constexpr (kStep == 4) hn::LoadInterleaved4(d8, p, v[0], v[1], v[2], v[3]);
    hn::StoreU(v[first], d8, out + x);
  }
  for (; x < n; ++x) out[x] = s[first + x * kStep];
}

void Extract(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, const uint8_t* srcChroma,
             uint32_t srcChromaStride, uint8_t* dst, uint32_t dstStride, uint32_t format, uint32_t channel) {
  const channel::Walk w = channel::WalkOf(format, channel, width, height);
  const uint8_t* base = w.chromaPlane ? srcChroma : src;
  const size_t stride = w.chromaPlane ? srcChromaStride : srcStride;
  for (uint32_t y = 0; y < w.outHeight; ++y) {
    const uint8_t* s = base + stride * y;
    uint8_t* d = dst + static_cast<size_t>(dstStride) * y;
    switch (w.step) {
      case 1: ExtractRow<1>(s, w.first, d, w.outWidth); break;
      case 2: ExtractRow<2>(s, w.first, d, w.outWidth); break;
      case 3: ExtractRow<3>(s, w.first, d, w.outWidth); break;
      default: ExtractRow<4>(s, w.first, d, w.outWidth); break;
    }
  }
}

// Interleaves kCount planes: dst pixel x = (planes[0][x], ..., planes[kCount-1][x]).
template <size_t kCount>
void Combine(const uint8_t* const* planes, const uint32_t* strides, uint32_t width, uint32_t height, uint8_t* dst,
             uint32_t dstStride) {
  const hn::ScalableTag<uint8_t> d8;
  const size_t N = hn::Lanes(d8);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s[kCount];
    for (size_t k = 0; k < kCount; ++k) s[k] = planes[k] + static_cast<size_t>(strides[k]) * y;
    uint8_t* d = dst + static_cast<size_t>(dstStride) * y;
    size_t x = 0;
    for (; x + N <= width; x += N) {
      if constexpr (kCount == 2) {
        hn::StoreInterleaved2(hn::LoadU(d8, s[0] + x), hn::LoadU(d8, s[1] + x), d8, d + 2 * x);
      } else if constexpr (kCount == 3) {
        hn::StoreInterleaved3(hn::LoadU(d8, s[0] + x), hn::LoadU(d8, s[1] + x), hn::LoadU(d8, s[2] + x), d8,
                              d + 3 * x);
      } else {
        hn::StoreInterleaved4(hn::LoadU(d8, s[0] + x), hn::LoadU(d8, s[1] + x), hn::LoadU(d8, s[2] + x),
                              hn::LoadU(d8, s[3] + x), d8, d + 4 * x);
      }
    }
    for (; x < width; ++x)
      for (size_t k = 0; k < kCount; ++k) d[x * kCount + k] = s[k][x];
  }
}

void Combine2(const uint8_t* const* planes, const uint32_t* strides, uint32_t width, uint32_t height, uint8_t* dst,
              uint32_t dstStride) {
  Combine<2>(planes, strides, width, height, dst, dstStride);
}
void Combine3(const uint8_t* const* planes, const uint32_t* strides, uint32_t width, uint32_t height, uint8_t* dst,
              uint32_t dstStride) {
  Combine<3>(planes, strides, width, height, dst, dstStride);
}
void Combine4(const uint8_t* const* planes, const uint32_t* strides, uint32_t width, uint32_t height, uint8_t* dst,
              uint32_t dstStride) {
  Combine<4>(planes, strides, width, height, dst, dstStride);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(Extract);
HWY_EXPORT(Combine2);
HWY_EXPORT(Combine3);
HWY_EXPORT(Combine4);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

int32_t tvxChannelExtractu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             const uint8_t* srcChroma, uint32_t srcChromaStride, uint8_t* dst, uint32_t dstStride,
                             uint32_t format, uint32_t channel) {
  HWY_DYNAMIC_DISPATCH(Extract)(src, srcWidth, srcHeight, srcStride, srcChroma, srcChromaStride, dst, dstStride,
                                format, channel);
  return 0;
}

int32_t tvxChannelCombine2Planesu8V(const uint8_t* src1, uint32_t srcWidth, uint32_t srcHeight, uint32_t src1Stride,
                                    const uint8_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  const uint8_t* planes[] = {src1, src2};
  const uint32_t strides[] = {src1Stride, src2Stride};
  HWY_DYNAMIC_DISPATCH(Combine2)(planes, strides, srcWidth, srcHeight, dst, dstStride);
  return 0;
}

int32_t tvxChannelCombine3Planesu8V(const uint8_t* src1, uint32_t srcWidth, uint32_t srcHeight, uint32_t src1Stride,
                                    const uint8_t* src2, uint32_t src2Stride, const uint8_t* src3,
                                    uint32_t src3Stride, uint8_t* dst, uint32_t dstStride) {
  const uint8_t* planes[] = {src1, src2, src3};
  const uint32_t strides[] = {src1Stride, src2Stride, src3Stride};
  HWY_DYNAMIC_DISPATCH(Combine3)(planes, strides, srcWidth, srcHeight, dst, dstStride);
  return 0;
}

int32_t tvxChannelCombine4Planesu8V(const uint8_t* src1, uint32_t srcWidth, uint32_t srcHeight, uint32_t src1Stride,
                                    const uint8_t* src2, uint32_t src2Stride, const uint8_t* src3,
                                    uint32_t src3Stride, const uint8_t* src4, uint32_t src4Stride, uint8_t* dst,
                                    uint32_t dstStride) {
  const uint8_t* planes[] = {src1, src2, src3, src4};
  const uint32_t strides[] = {src1Stride, src2Stride, src3Stride, src4Stride};
  HWY_DYNAMIC_DISPATCH(Combine4)(planes, strides, srcWidth, srcHeight, dst, dstStride);
  return 0;
}

TVX_EXTRACT_HELPERS(V, tvxChannelExtractu8V)
#endif  // HWY_ONCE
