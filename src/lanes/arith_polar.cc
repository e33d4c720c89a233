// SIMD variants of gradient magnitude and phase. Both are float computations whose integer
// results must match the reference exactly, so the lanes perform the same IEEE operations in
// the same order as tvxIsqrt and tvxAtan2: correctly rounded division, and no fused
// multiply-add (the build compiles with -ffp-contract=off, which this file relies on).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/arith_polar.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include "cpu/arith_rules.h"
#include "frame/frame.h"
#include "lanes/arith_lanes.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace rules = tvx::rules;
using rules::RowOf;

using DI = hn::ScalableTag<int32_t>;
using DF = hn::Rebind<float, DI>;
using VI = hn::Vec<DI>;
using VF = hn::Vec<DF>;

// tvxIsqrt on every lane: the bit-trick seed and two Newton steps, operation for operation.
HWY_INLINE VF IsqrtVec(VF x) {
  const DI di;
  const DF df;
  VF y = hn::BitCast(df, hn::Sub(hn::Set(di, 0x5F3759DF), hn::ShiftRight<1>(hn::BitCast(di, x))));
  const VF h = hn::Mul(hn::Set(df, 0.5f), x);
  const VF threeHalves = hn::Set(df, 1.5f);
  y = hn::Mul(y, hn::Sub(threeHalves, hn::Mul(hn::Mul(h, y), y)));
  y = hn::Mul(y, hn::Sub(threeHalves, hn::Mul(hn::Mul(h, y), y)));
  return y;
}

// Correctly rounded quotient. ARMv7 NEON has no vector division (Highway refines a reciprocal
// estimate there, which can differ in the last bit), so each lane is divided by the scalar unit.
HWY_INLINE VF DivideVec(VF num, VF den) {
#if HWY_TARGET == HWY_NEON && !HWY_ARCH_ARM_A64
  const DF df;
  HWY_ALIGN float n[hn::MaxLanes(DF())];
  HWY_ALIGN float d[hn::MaxLanes(DF())];
  hn::Store(num, df, n);
  hn::Store(den, df, d);
  for (size_t i = 0; i < hn::Lanes(df); ++i) n[i] = n[i] / d[i];
  return hn::Load(df, n);
#else
  return hn::Div(num, den);
#endif
}

// tvxAtan2(y, x) on every lane, in quarter turns.
HWY_INLINE VF Atan2Vec(VF y, VF x) {
  const DI di;
  const DF df;
  const VF c = hn::Mul(hn::Set(df, 0.596227f), hn::Abs(hn::Mul(x, y)));
  const VF yy = hn::Mul(y, y);
  const VF num = hn::Add(yy, c);
  const VF den = hn::Add(hn::Add(hn::Add(hn::Mul(x, x), c), yy), c);
  const VI xBits = hn::BitCast(di, x);
  const VI yBits = hn::BitCast(di, y);
  // Negating f when the sign bits differ is flipping its sign bit.
  const VI flip = hn::And(hn::Xor(xBits, yBits), hn::Set(di, INT32_MIN));
  const VF f = hn::Xor(DivideVec(num, den), hn::BitCast(df, flip));
  const auto xNegative = hn::RebindMask(df, hn::Lt(xBits, hn::Zero(di)));
  const auto yNegative = hn::RebindMask(df, hn::Lt(yBits, hn::Zero(di)));
  const VF quadrant = hn::IfThenElse(xNegative, hn::Set(df, 2.0f),
                                     hn::IfThenElseZero(yNegative, hn::Set(df, 4.0f)));
  const auto bothZero = hn::And(hn::Eq(x, hn::Zero(df)), hn::Eq(y, hn::Zero(df)));
  return hn::IfThenZeroElse(bothZero, hn::Add(quadrant, f));
}

// trunc(double(s) + 0.5) for 0 <= s < 2^23 without double precision: trunc(s) plus one when
// the fraction s - trunc(s), which is exact, is at least one half. (Adding 0.5f in single
// precision would round 0.49999997f up to 1.)
HWY_INLINE VI RoundHalfUpVec(VF s) {
  const DI di;
  const DF df;
  const VI whole = hn::ConvertTo(di, s);
  const VF fraction = hn::Sub(s, hn::ConvertTo(df, whole));
  const auto up = hn::RebindMask(di, hn::Ge(fraction, hn::Set(df, 0.5f)));
  return hn::IfThenElse(up, hn::Add(whole, hn::Set(di, 1)), whole);
}

int32_t Magnitudes16Lanes(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                          const int16_t* src2, uint32_t src2Stride, uint16_t* dst, uint32_t dstStride) {
  const DI di;
  const DF df;
  const hn::Rebind<uint32_t, DI> du32;
  const hn::Rebind<int16_t, DI> d16;
  const hn::Rebind<uint16_t, DI> du16;
  const VF top = hn::Set(df, 32767.0f);
  for (uint32_t y = 0; y < height; ++y) {
    const int16_t* a = RowOf(src1, src1Stride, y);
    const int16_t* b = RowOf(src2, src2Stride, y);
    uint16_t* o = RowOf(dst, dstStride, y);
    ForSpan(di, width, [&](size_t x) HWY_ATTR {
      const VI dx = hn::PromoteTo(di, hn::LoadU(d16, a + x));
      const VI dy = hn::PromoteTo(di, hn::LoadU(d16, b + x));
      // The sum of squares wraps at 32 bits like the reference's integer sum.
      const auto sum = hn::Add(hn::BitCast(du32, hn::Mul(dx, dx)), hn::BitCast(du32, hn::Mul(dy, dy)));
      const VF m = hn::ConvertTo(df, hn::BitCast(di, sum));
      VF v = hn::Mul(m, IsqrtVec(m));
      // Float to unsigned: NaN and negatives give 0; then at most 32767.
      v = hn::Min(hn::IfThenElseZero(hn::Gt(v, hn::Zero(df)), v), top);
      hn::StoreU(hn::DemoteTo(du16, hn::ConvertTo(di, v)), du16, o + x);
    }, [&](size_t x) { o[x] = rules::MagnitudeS16(a[x], b[x]); });
  }
  return 0;
}

int32_t Phases16Lanes(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                      const int16_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  const DI di;
  const DF df;
  const hn::Rebind<uint32_t, DI> du32;
  const hn::Rebind<int16_t, DI> d16;
  const hn::Rebind<uint8_t, DI> d8;
  const VF quarter = hn::Set(df, 0.25f);
  const VF steps = hn::Set(df, 256.0f);
  for (uint32_t y = 0; y < height; ++y) {
    const int16_t* a = RowOf(src1, src1Stride, y);
    const int16_t* b = RowOf(src2, src2Stride, y);
    uint8_t* o = RowOf(dst, dstStride, y);
    ForSpan(di, width, [&](size_t x) HWY_ATTR {
      const VF fx = hn::ConvertTo(df, hn::PromoteTo(di, hn::LoadU(d16, a + x)));
      const VF fy = hn::ConvertTo(df, hn::PromoteTo(di, hn::LoadU(d16, b + x)));
      const VF s = hn::Mul(hn::Mul(Atan2Vec(fy, fx), quarter), steps);
      hn::StoreU(hn::TruncateTo(d8, hn::BitCast(du32, RoundHalfUpVec(s))), d8, o + x);
    }, [&](size_t x) { o[x] = rules::PhaseS16(a[x], b[x]); });
  }
  return 0;
}

// NOLINTNEXTLINE(google-readability-namespace-comments)
}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(Magnitudes16Lanes);
HWY_EXPORT(Phases16Lanes);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

int32_t tvxMagnitudes16V(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                         const int16_t* src2, uint32_t src2Stride, uint16_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(Magnitudes16Lanes)(src1, width, height, src1Stride, src2, src2Stride, dst,
                                                      dstStride);
}
int32_t tvxPhases16V(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                     const int16_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(Phases16Lanes)(src1, width, height, src1Stride, src2, src2Stride, dst,
                                                  dstStride);
}
#endif  // HWY_ONCE
