// SIMD variants of the element-wise arithmetic family, part two: products with a scale factor,
// weighted and squared accumulation. Products of u8 values (at most 65025) are scaled in 16-bit
// lanes: every scale factor and policy reduces to one of three exact 16-bit forms chosen once
// per call. Products of s16 values need 32-bit lanes.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/arith_mul.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include "cpu/arith_rules.h"
#include "frame/frame.h"
#include "lanes/arith_lanes.h"

#ifndef TVX_LANES_ARITH_MUL_PLAN
#define TVX_LANES_ARITH_MUL_PLAN
namespace tvx {

// How the unsigned 32-bit result r of scaling a product p < 2^16 is formed in 16 bits,
// already clamped to `top` when the caller saturates:
//  - round: r = ((p >> shift) + 1) >> 1, the rounded right shift by shift + 1 (1..16 bits);
//  - left:  r = min(min(p, limit) << shift, top) for left shifts of 0..15 bits, where limit
//           keeps the shifted value inside 16 bits whenever it would pass top anyway;
//  - flag:  r = (p & limit) ? top : 0, for shifts whose result is 0 or at least 2^16 (right
//           shifts of 17 bits and more, left shifts of 16 bits and more).
struct ProductPlan {
  enum Kind { kRound, kLeft, kFlag } kind;
  int shift;
  uint16_t limit;
  uint16_t top;
};

// n: scale factor; clamp: results above `saturated` are stored as `saturated`; otherwise the
// low bits are kept.
inline ProductPlan PlanU8Product(int32_t n, bool clamp, uint16_t saturated) {
  const uint16_t top = clamp ? saturated : 0xFFFF;
  if (n >= 17) return {ProductPlan::kFlag, 0, 0, 0};
  if (n >= 1) return {ProductPlan::kRound, n - 1, 0, top};
  const int m = -n;
  if (m <= 15) {
    const uint16_t limit = clamp ? static_cast<uint16_t>((saturated >> m) + 1) : 0xFFFF;
    return {ProductPlan::kLeft, m, limit, top};
  }
  // p << m is 0 modulo 2^32 exactly when the low 32 - m bits of p are 0; otherwise it is at
  // least 2^16. Its low 16 bits are always 0, which is what the wrapping policy keeps.
  const uint16_t bits = m >= 32 ? 0 : static_cast<uint16_t>((1u << (32 - m)) - 1u);
  return {ProductPlan::kFlag, 0, clamp ? bits : uint16_t{0}, saturated};
}

// Squared accumulation: dst = min(acc + t, 65535) with t from the scaled square s.
//  - right: t = ((s + (1 << shift - 1)) mod 2^16) >> shift, shift 1..15;
//  - left:  saturated when s > limit, else acc + (s << shift), shift 0..15;
//  - flag:  saturated when s & limit, else acc (right shifts of 16 bits and more leave 0,
//           left shifts of 16 bits and more leave 0 or at least 2^16).
struct SquarePlan {
  enum Kind { kRight, kLeft, kFlag } kind;
  int shift;
  uint16_t limit;
};

inline SquarePlan PlanSquare(int32_t n) {
  if (n >= 16) return {SquarePlan::kFlag, 0, 0};
  if (n >= 1) return {SquarePlan::kRight, n, 0};
  const int m = -n;
  if (m <= 15) return {SquarePlan::kLeft, m, static_cast<uint16_t>(0xFFFFu >> m)};
  return {SquarePlan::kFlag, 0, static_cast<uint16_t>(m >= 32 ? 0u : (1u << (32 - m)) - 1u)};
}

}  // namespace tvx
#endif  // TVX_LANES_ARITH_MUL_PLAN

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace rules = tvx::rules;
using rules::RowOf;

// u8 x u8 products scaled by scale(p) in 16-bit lanes, stored as u8 (low byte) or s16.
template <typename O, class Scale, class One>
HWY_INLINE void U8Products(const uint8_t* src1, uint32_t src1Stride, const uint8_t* src2, uint32_t src2Stride,
                           O* dst, uint32_t dstStride, uint32_t width, uint32_t height, Scale scale, One one) {
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const hn::Rebind<int16_t, decltype(d16)> ds16;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* a = RowOf(src1, src1Stride, y);
    const uint8_t* b = RowOf(src2, src2Stride, y);
    O* o = RowOf(dst, dstStride, y);
    ForSpan(d16, width, [&](size_t x) HWY_ATTR {
      const auto p = hn::Mul(hn::PromoteTo(d16, hn::LoadU(d8, a + x)), hn::PromoteTo(d16, hn::LoadU(d8, b + x)));
      const auto r = scale(p);
      if constexpr (sizeof(O) == 1) hn::StoreU(hn::TruncateTo(d8, r), d8, o + x);
      else hn::StoreU(hn::BitCast(ds16, r), ds16, o + x);
    }, [&](size_t x) { o[x] = one(a[x], b[x]); });
  }
}

template <typename O, class One>
HWY_INLINE void U8ProductsPlanned(const ProductPlan& plan, const uint8_t* src1, uint32_t src1Stride,
                                  const uint8_t* src2, uint32_t src2Stride, O* dst, uint32_t dstStride,
                                  uint32_t width, uint32_t height, One one) {
  const hn::ScalableTag<uint16_t> d16;
  const auto limit = hn::Set(d16, plan.limit);
  const auto top = hn::Set(d16, plan.top);
  const int shift = plan.shift;
  switch (plan.kind) {
    case ProductPlan::kRound:
      U8Products(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
                 [=](auto p) HWY_ATTR {
                   return hn::Min(hn::AverageRound(hn::ShiftRightSame(p, shift), hn::Zero(d16)), top);
                 }, one);
      break;
    case ProductPlan::kLeft:
      U8Products(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
                 [=](auto p) HWY_ATTR { return hn::Min(hn::ShiftLeftSame(hn::Min(p, limit), shift), top); },
                 one);
      break;
    case ProductPlan::kFlag:
      U8Products(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
                 [=](auto p) HWY_ATTR {
                   return hn::IfThenElseZero(hn::Ne(hn::And(p, limit), hn::Zero(d16)), top);
                 }, one);
      break;
  }
}

int32_t ElementMultiplyu8Lanes(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                               const uint8_t* src2, uint32_t src2Stride, int8_t scaleFactor, int32_t policy,
                               uint8_t* dst, uint32_t dstStride) {
  if (!rules::ValidPolicy(policy)) return rules::kBadParameter;
  const ProductPlan plan = PlanU8Product(scaleFactor, policy == 1, 255);
  U8ProductsPlanned(plan, src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
                    [=](uint8_t a, uint8_t b) { return rules::MultiplyU8(a, b, scaleFactor, policy); });
  return 0;
}

int32_t ElementMultiplyu8s16Lanes(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                                  const uint8_t* src2, uint32_t src2Stride, int8_t scaleFactor, int32_t policy,
                                  int16_t* dst, uint32_t dstStride) {
  if (scaleFactor <= 0 && !rules::ValidPolicy(policy)) return rules::kBadParameter;
  const ProductPlan plan = PlanU8Product(scaleFactor, scaleFactor <= 0 && policy == 1, 32767);
  U8ProductsPlanned(plan, src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
                    [=](uint8_t a, uint8_t b) { return rules::MultiplyU8S16(a, b, scaleFactor, policy); });
  return 0;
}

// s16 x s16 products in 32-bit lanes (the product of two s16 values always fits), scaled with
// the wrapping 32-bit rounding term, then saturated or cut to 16 bits.
template <class One>
HWY_INLINE void S16Products(const int16_t* src1, uint32_t src1Stride, const int16_t* src2, uint32_t src2Stride,
                            bool scalarSecond, int16_t scalar, int32_t n, bool saturate, int16_t* dst,
                            uint32_t dstStride, uint32_t width, uint32_t height, One one) {
  const hn::ScalableTag<int32_t> d32;
  const hn::Rebind<int16_t, decltype(d32)> d16;
  const hn::Rebind<uint32_t, decltype(d32)> du32;
  const hn::Rebind<uint16_t, decltype(d32)> du16;
  // Right shifts of 32 bits and more give the sign, which a shift by 31 already gives.
  const int right = n > 0 ? (n > 31 ? 31 : n) : 0;
  const int left = n > 0 ? 0 : -n;
  const auto round = hn::Set(d32, n > 0 ? rules::ShiftLeftS32(1, static_cast<uint32_t>(n - 1)) : 0);
  const auto second = hn::Set(d32, scalar);
  for (uint32_t y = 0; y < height; ++y) {
    const int16_t* a = RowOf(src1, src1Stride, y);
    const int16_t* b = scalarSecond ? nullptr : RowOf(src2, src2Stride, y);
    int16_t* o = RowOf(dst, dstStride, y);
    ForSpan(d32, width, [&](size_t x) HWY_ATTR {
      const auto va = hn::PromoteTo(d32, hn::LoadU(d16, a + x));
      const auto vb = scalarSecond ? second : hn::PromoteTo(d32, hn::LoadU(d16, b + x));
      const auto p = hn::Mul(va, vb);
      const auto r = n > 0 ? hn::ShiftRightSame(hn::Add(p, round), right)
                           : (left >= 32 ? hn::Zero(d32) : hn::ShiftLeftSame(p, left));
      if (saturate) hn::StoreU(hn::DemoteTo(d16, r), d16, o + x);
      else hn::StoreU(hn::BitCast(d16, hn::TruncateTo(du16, hn::BitCast(du32, r))), d16, o + x);
    }, [&](size_t x) { o[x] = one(a[x], scalarSecond ? scalar : b[x]); });
  }
}

int32_t ElementMultiplys16Lanes(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                                const int16_t* src2, uint32_t src2Stride, int8_t scaleFactor, int32_t policy,
                                int16_t* dst, uint32_t dstStride) {
  if (!rules::ValidPolicy(policy)) return rules::kBadParameter;
  S16Products(src1, src1Stride, src2, src2Stride, false, 0, scaleFactor, policy == 1, dst, dstStride, width,
              height, [=](int16_t a, int16_t b) { return rules::MultiplyS16(a, b, scaleFactor, policy); });
  return 0;
}

int32_t MultiplyScalars16Lanes(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                               int16_t scalar, int8_t shift, int16_t* dst, uint32_t dstStride) {
  S16Products(src, srcStride, nullptr, 0, true, scalar, shift, true, dst, dstStride, width, height,
              [=](int16_t a, int16_t s) { return rules::MultiplyScalarS16(a, s, shift); });
  return 0;
}

// Weights are fixed once in scalar code; the integer blend runs in 32-bit lanes.
int32_t AddWeightedu8Lanes(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                           const uint8_t* src2, uint32_t src2Stride, float32_t alpha, float32_t beta,
                           uint8_t* dst, uint32_t dstStride) {
  const int16_t wa = rules::FixedWeight(alpha);
  const int16_t wb = rules::FixedWeight(beta);
  const hn::ScalableTag<int32_t> d32;
  const hn::Rebind<uint8_t, decltype(d32)> d8;
  const auto va = hn::Set(d32, wa);
  const auto vb = hn::Set(d32, wb);
  const auto half = hn::Set(d32, 128);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* a = RowOf(src1, src1Stride, y);
    const uint8_t* b = RowOf(src2, src2Stride, y);
    uint8_t* o = RowOf(dst, dstStride, y);
    ForSpan(d32, width, [&](size_t x) HWY_ATTR {
      const auto pa = hn::Mul(hn::PromoteTo(d32, hn::LoadU(d8, a + x)), va);
      const auto pb = hn::Mul(hn::PromoteTo(d32, hn::LoadU(d8, b + x)), vb);
      hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<8>(hn::Add(hn::Add(pa, pb), half))), d8, o + x);
    }, [&](size_t x) { o[x] = rules::AddWeightedU8(a[x], b[x], wa, wb); });
  }
  return 0;
}

int32_t AddSquaredu8u16Lanes(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                             const uint16_t* src2, uint32_t src2Stride, int8_t scaleFactor, uint16_t* dst,
                             uint32_t dstStride) {
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const SquarePlan plan = PlanSquare(scaleFactor);
  const int shift = plan.shift;
  const auto limit = hn::Set(d16, plan.limit);
  const auto full = hn::Set(d16, 0xFFFF);
  const auto round = hn::Set(d16, static_cast<uint16_t>(plan.kind == SquarePlan::kRight ? 1u << (shift - 1) : 0u));
  auto rows = [&](auto accumulate) HWY_ATTR {
    for (uint32_t y = 0; y < height; ++y) {
      const uint8_t* a = RowOf(src1, src1Stride, y);
      const uint16_t* acc = RowOf(src2, src2Stride, y);
      uint16_t* o = RowOf(dst, dstStride, y);
      ForSpan(d16, width, [&](size_t x) HWY_ATTR {
        const auto va = hn::PromoteTo(d16, hn::LoadU(d8, a + x));
        hn::StoreU(accumulate(hn::Mul(va, va), hn::LoadU(d16, acc + x)), d16, o + x);
      }, [&](size_t x) { o[x] = rules::AddSquaredU8U16(a[x], acc[x], scaleFactor); });
    }
  };
  switch (plan.kind) {
    case SquarePlan::kRight:
      rows([=](auto s, auto acc) HWY_ATTR {
        return hn::SaturatedAdd(acc, hn::ShiftRightSame(hn::Add(s, round), shift));
      });
      break;
    case SquarePlan::kLeft:
      rows([=](auto s, auto acc) HWY_ATTR {
        return hn::IfThenElse(hn::Gt(s, limit), full, hn::SaturatedAdd(acc, hn::ShiftLeftSame(s, shift)));
      });
      break;
    case SquarePlan::kFlag:
      rows([=](auto s, auto acc) HWY_ATTR {
        return hn::IfThenElse(hn::Ne(hn::And(s, limit), hn::Zero(d16)), full, acc);
      });
      break;
  }
  return 0;
}

// NOLINTNEXTLINE(google-readability-namespace-comments)
}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(ElementMultiplyu8Lanes);
HWY_EXPORT(ElementMultiplyu8s16Lanes);
HWY_EXPORT(ElementMultiplys16Lanes);
HWY_EXPORT(MultiplyScalars16Lanes);
HWY_EXPORT(AddWeightedu8Lanes);
HWY_EXPORT(AddSquaredu8u16Lanes);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

int32_t tvxElementMultiplyu8V(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                              const uint8_t* src2, uint32_t src2Stride, int8_t scaleFactor, int32_t policy,
                              uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(ElementMultiplyu8Lanes)(src1, width, height, src1Stride, src2, src2Stride,
                                                           scaleFactor, policy, dst, dstStride);
}
int32_t tvxElementMultiplyu8s16V(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                                 const uint8_t* src2, uint32_t src2Stride, int8_t scaleFactor, int32_t policy,
                                 int16_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(ElementMultiplyu8s16Lanes)(src1, width, height, src1Stride, src2,
                                                              src2Stride, scaleFactor, policy, dst, dstStride);
}
int32_t tvxElementMultiplys16V(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                               const int16_t* src2, uint32_t src2Stride, int8_t scaleFactor, int32_t policy,
                               int16_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(ElementMultiplys16Lanes)(src1, width, height, src1Stride, src2, src2Stride,
                                                            scaleFactor, policy, dst, dstStride);
}
int32_t tvxMultiplyScalars16V(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                              int16_t scalar, int8_t shift, int16_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(MultiplyScalars16Lanes)(src, width, height, srcStride, scalar, shift, dst,
                                                           dstStride);
}
int32_t tvxAddWeightedu8V(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                          const uint8_t* src2, uint32_t src2Stride, float32_t alpha, float32_t beta,
                          uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(AddWeightedu8Lanes)(src1, width, height, src1Stride, src2, src2Stride, alpha,
                                                       beta, dst, dstStride);
}
int32_t tvxAddSquaredu8u16V(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                            const uint16_t* src2, uint32_t src2Stride, int8_t scaleFactor, uint16_t* dst,
                            uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(AddSquaredu8u16Lanes)(src1, width, height, src1Stride, src2, src2Stride,
                                                         scaleFactor, dst, dstStride);
}
#endif  // HWY_ONCE
