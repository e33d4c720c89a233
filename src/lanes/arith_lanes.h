// Per-target helpers shared by the SIMD variants of the arithmetic family. Included once per
// Highway target (hence the toggled guard instead of #pragma once).
#if defined(TVX_LANES_ARITH_LANES_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef TVX_LANES_ARITH_LANES_H_
#undef TVX_LANES_ARITH_LANES_H_
#else
#define TVX_LANES_ARITH_LANES_H_
#endif

#include <cstddef>

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {

// Covers x in [0, n): vec(x) for every whole vector of tag d, then one(x) for each element
// left over, so a row is never read or written past its end.
template <class D, class VecStep, class OneStep>
HWY_INLINE void ForSpan(D d, size_t n, VecStep vec, OneStep one) {
  const size_t lanes = hwy::HWY_NAMESPACE::Lanes(d);
  size_t x = 0;
  for (; x + lanes <= n; x += lanes) vec(x);
  for (; x < n; ++x) one(x);
}

// NOLINTNEXTLINE(google-readability-namespace-comments)
}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#endif  // TVX_LANES_ARITH_LANES_H_
