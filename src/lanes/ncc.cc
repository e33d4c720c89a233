// SIMD variants of the NCC searches and of the descriptor normalisation. The searches put one
// candidate of a row in each 32-bit lane and accumulate the 64 template-times-window products
// of all of them at once (bytes widened to 32 bits, template value broadcast); window sums,
// variance terms, rounding and selection are the reference's own code (cpu/ncc_rules.h), so
// the results are the same integers. Normalisation widens each signed byte to a float lane and
// multiplies by the vector's scale, exactly as the reference does per value.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/ncc.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstdint>

#include "cpu/ncc_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace ncc {
namespace hn = hwy::HWY_NAMESPACE;

// Raw cross sums of `count` neighbouring candidates, `Lanes(d)` at a time.
template <class D>
HWY_INLINE uint32_t CrossBlocks(D d, const uint8_t* src, size_t stride, const uint8_t* tmpl, int32_t* out,
                                uint32_t k, uint32_t count) {
  const hn::Rebind<uint8_t, D> d8;
  const uint32_t n = static_cast<uint32_t>(hn::Lanes(d));
  for (; k + n <= count; k += n) {
    auto acc0 = hn::Zero(d);
    auto acc1 = hn::Zero(d);
    for (uint32_t j = 0; j < 8; ++j) {
      const uint8_t* row = src + j * stride + k;
      const uint8_t* t = tmpl + j * 8;
      for (uint32_t i = 0; i < 8; i += 2) {
        const auto v0 = hn::PromoteTo(d, hn::LoadU(d8, row + i));
        const auto v1 = hn::PromoteTo(d, hn::LoadU(d8, row + i + 1));
        acc0 = hn::Add(acc0, hn::Mul(v0, hn::Set(d, static_cast<int32_t>(t[i]))));
        acc1 = hn::Add(acc1, hn::Mul(v1, hn::Set(d, static_cast<int32_t>(t[i + 1]))));
      }
    }
    hn::StoreU(hn::Add(acc0, acc1), d, out + k);
  }
  return k;
}

void CrossRow(const uint8_t* src, size_t stride, const uint8_t* tmpl, int32_t* out, uint32_t count) {
  uint32_t k = CrossBlocks(hn::ScalableTag<int32_t>(), src, stride, tmpl, out, 0, count);
  k = CrossBlocks(hn::CappedTag<int32_t, 4>(), src, stride, tmpl, out, k, count);
  if (k < count) tvxncc::CrossRowScalar(src + k, stride, tmpl, out + k, count - k);
}

int32_t Normalize36(const int8_t* src, uint32_t srcStride, const float* invLengths, uint32_t nVectors,
                    float requiredNorm, float* dst, const int32_t* stopFlag) {
  const hn::CappedTag<float, 4> df;
  const hn::Rebind<int32_t, decltype(df)> di;
  const hn::Rebind<int8_t, decltype(df)> d8;
  const uint32_t n = static_cast<uint32_t>(hn::Lanes(df));
  for (uint32_t i = 0; i < nVectors; ++i) {
    if (__atomic_load_n(stopFlag, __ATOMIC_RELAXED) != 0) break;
    const auto scale = hn::Set(df, invLengths[i] * requiredNorm);
    const int8_t* v = src + static_cast<size_t>(i) * srcStride;
    float* out = dst + static_cast<size_t>(i) * 36;
    for (uint32_t k = 0; k < 36; k += n) {
      hn::StoreU(hn::Mul(hn::ConvertTo(df, hn::PromoteTo(di, hn::LoadU(d8, v + k))), scale), df, out + k);
    }
  }
  return 0;
}

}  // namespace ncc

int32_t NccSearchu8(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                    uint32_t searchCenterX, uint32_t searchCenterY, uint32_t searchRadius, int32_t filterLowVariance,
                    uint32_t* bestX, uint32_t* bestY, int32_t* bestNCC, int32_t doSubPixel, float* subX, float* subY,
                    bool circle) {
  return tvxncc::SearchPatch(patch, src, srcWidth, srcHeight, srcStride, searchCenterX, searchCenterY, searchRadius,
                             filterLowVariance, bestX, bestY, bestNCC, doSubPixel, subX, subY, circle, &ncc::CrossRow);
}

int32_t NccRectu8(const uint8_t* patches, uint32_t nPatches, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                  uint32_t srcStride, uint32_t rectX, uint32_t rectY, uint32_t rectWidth, uint32_t rectHeight,
                  int32_t filterLowVariance, uint32_t* bestXY, int32_t* bestNCC) {
  return tvxncc::SearchRect(patches, nPatches, src, srcWidth, srcHeight, srcStride, rectX, rectY, rectWidth, rectHeight,
                            filterLowVariance, bestXY, bestNCC, &ncc::CrossRow);
}

int32_t NccNormalize36(const int8_t* src, uint32_t srcStride, const float* invLengths, uint32_t nVectors,
                       float requiredNorm, float* dst, const int32_t* stopFlag) {
  return ncc::Normalize36(src, srcStride, invLengths, nVectors, requiredNorm, dst, stopFlag);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(NccSearchu8);
HWY_EXPORT(NccRectu8);
HWY_EXPORT(NccNormalize36);
}  // namespace tvx

using namespace tvx;

int32_t tvxNCCPatchOnCircle8x8u8_v2V(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                     uint32_t srcStride, uint32_t searchCenterX, uint32_t searchCenterY,
                                     uint32_t searchRadius, int32_t filterLowVariance, uint32_t* bestX, uint32_t* bestY,
                                     int32_t* bestNCC, int32_t doSubPixel, float* subX, float* subY) {
  return HWY_DYNAMIC_DISPATCH(NccSearchu8)(patch, src, srcWidth, srcHeight, srcStride, searchCenterX, searchCenterY,
                                           searchRadius, filterLowVariance, bestX, bestY, bestNCC, doSubPixel, subX,
                                           subY, true);
}
int32_t tvxNCCPatchOnSquare8x8u8_v2V(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                     uint32_t srcStride, uint32_t searchCenterX, uint32_t searchCenterY,
                                     uint32_t searchRadius, int32_t filterLowVariance, uint32_t* bestX, uint32_t* bestY,
                                     int32_t* bestNCC, int32_t doSubPixel, float* subX, float* subY) {
  return HWY_DYNAMIC_DISPATCH(NccSearchu8)(patch, src, srcWidth, srcHeight, srcStride, searchCenterX, searchCenterY,
                                           searchRadius, filterLowVariance, bestX, bestY, bestNCC, doSubPixel, subX,
                                           subY, false);
}
int32_t tvxNCCPatchesOnRectu8V(const uint8_t* patches, uint32_t nPatches, const uint8_t* src, uint32_t srcWidth,
                               uint32_t srcHeight, uint32_t srcStride, uint32_t rectX, uint32_t rectY,
                               uint32_t rectWidth, uint32_t rectHeight, int32_t filterLowVariance, uint32_t* bestXY,
                               int32_t* bestNCC) {
  return HWY_DYNAMIC_DISPATCH(NccRectu8)(patches, nPatches, src, srcWidth, srcHeight, srcStride, rectX, rectY, rectWidth,
                                         rectHeight, filterLowVariance, bestXY, bestNCC);
}
int32_t tvxVecNormalize36s8f32V(const int8_t* src, uint32_t srcStride, const float* invLengths, uint32_t nVectors,
                                float requiredNorm, float* dst, const int32_t* stopFlag) {
  return HWY_DYNAMIC_DISPATCH(NccNormalize36)(src, srcStride, invLengths, nVectors, requiredNorm, dst, stopFlag);
}
#endif  // HWY_ONCE
