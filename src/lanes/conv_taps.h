// Per-target building blocks of the convolution family's SIMD variants (included inside the
// Highway target namespace by lanes/conv.cc and lanes/conv_sep.cc):
// - TapSumsU8: exact 32-bit sums of byte pixels times small integer coefficients. Taps are
//   grouped so that a group's partial sum cannot leave the int16 range (sum of |k| * 255 <=
//   32767); a group accumulates in 16-bit lanes and is widened once, which keeps the sum exact
//   at a fraction of the cost of 32-bit multiplies.
// - TapSums16: exact 32-bit (wrapping) sums of s16 pixels times s16 coefficients.
// - ScaleLanes: the shift rule on 32-bit lanes without overflow, matching ScaleClamp.
// Include guard per target, as Highway's foreach_target re-includes the file.
#if defined(TVX_LANES_CONV_TAPS_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef TVX_LANES_CONV_TAPS_H_
#undef TVX_LANES_CONV_TAPS_H_
#else
#define TVX_LANES_CONV_TAPS_H_
#endif

namespace hn = hwy::HWY_NAMESPACE;

using D16 = hn::ScalableTag<int16_t>;
using DH16 = hn::Half<D16>;
using D32 = hn::Repartition<int32_t, D16>;
using D8 = hn::Rebind<uint8_t, D16>;
using D8Q = hn::Rebind<uint8_t, D32>;
using V32 = hn::Vec<D32>;

// Coefficient groups whose partial sums stay inside int16 for any byte pixels.
struct TapGroups {
  std::vector<const uint8_t*> ptr;  // one source pointer per tap, at output position 0
  std::vector<int16_t> coef;
  std::vector<uint32_t> ends;       // end index of each group
  void Add(const uint8_t* p, int32_t k) {
    if (k == 0) return;
    const uint32_t mag = uint32_t(k < 0 ? -k : k);
    if (ends.empty() || load_ + mag > 128) {
      ends.push_back(uint32_t(coef.size()));
      load_ = 0;
    }
    load_ += mag;
    ptr.push_back(p);
    coef.push_back(int16_t(k));
    ends.back() = uint32_t(coef.size());
  }
  void Clear() {
    ptr.clear();
    coef.clear();
    ends.clear();
    load_ = 0;
  }

 private:
  uint32_t load_ = 0;
};

// Calls vec(x, lo, hi) for each whole step of Lanes(D16) outputs (lo holds outputs x..,
// hi the next Lanes(D32)) and scalar(x, sum) for the tail.
template <class VecF, class ScalarF>
HWY_INLINE void TapSumsU8(const TapGroups& g, size_t n, VecF vec, ScalarF scalar) {
  const D16 d16;
  const DH16 dh16;
  const D32 d32;
  const D8 d8;
  const size_t L = hn::Lanes(d16);
  const size_t groups = g.ends.size();
  const uint8_t* const* p = g.ptr.data();
  const int16_t* k = g.coef.data();
  size_t x = 0;
  for (; x + L <= n; x += L) {
    V32 lo = hn::Zero(d32), hi = hn::Zero(d32);
    uint32_t t = 0;
    for (size_t c = 0; c < groups; ++c) {
      auto acc = hn::Zero(d16);
      for (const uint32_t end = g.ends[c]; t < end; ++t)
        acc = hn::Add(acc, hn::Mul(hn::PromoteTo(d16, hn::LoadU(d8, p[t] + x)), hn::Set(d16, k[t])));
      lo = hn::Add(lo, hn::PromoteTo(d32, hn::LowerHalf(dh16, acc)));
      hi = hn::Add(hi, hn::PromoteTo(d32, hn::UpperHalf(dh16, acc)));
    }
    vec(x, lo, hi);
  }
  for (; x < n; ++x) {
    uint32_t s = 0;
    for (size_t t = 0; t < g.coef.size(); ++t) s += uint32_t(int32_t(k[t]) * p[t][x]);
    scalar(x, static_cast<int32_t>(s));
  }
}

// Sum of coef[t] * rows[t][x] over taps, 32-bit wrapping, for s16 rows; results to out.
template <class VecF, class ScalarF>
HWY_INLINE void TapSums16(const int16_t* const* rows, const int32_t* coef, size_t taps, size_t n, VecF vec,
                          ScalarF scalar) {
  const D32 d32;
  const hn::Rebind<int16_t, D32> dh16;
  const size_t L = hn::Lanes(d32);
  size_t x = 0;
  for (; x + L <= n; x += L) {
    V32 acc = hn::Zero(d32);
    for (size_t t = 0; t < taps; ++t)
      acc = hn::Add(acc, hn::Mul(hn::PromoteTo(d32, hn::LoadU(dh16, rows[t] + x)), hn::Set(d32, coef[t])));
    vec(x, acc);
  }
  for (; x < n; ++x) {
    uint32_t s = 0;
    for (size_t t = 0; t < taps; ++t) s += uint32_t(coef[t] * rows[t][x]);
    scalar(x, static_cast<int32_t>(s));
  }
}

// The shift rule on lanes: right shifts round by adding bit (n - 1), which cannot overflow;
// left shifts pre-clamp so that any saturating result stays saturated.
HWY_INLINE V32 ScaleLanes(V32 s, int32_t shift) {
  const D32 d32;
  if (shift > 0) {
    if (shift >= 32) return hn::Zero(d32);
    return hn::Add(hn::ShiftRightSame(s, shift), hn::And(hn::ShiftRightSame(s, shift - 1), hn::Set(d32, 1)));
  }
  const int left = -int64_t(shift) > 15 ? 15 : -shift;
  return hn::ShiftLeftSame(hn::Min(hn::Max(s, hn::Set(d32, -32768)), hn::Set(d32, 32768)), left);
}

// Scaled, saturated stores of Lanes(D32) sums.
// Bytes go through int16: Highway 1.0.3's direct int32-to-byte demotion on AVX2 and AVX-512
// turns 32768..65535 into 0.
HWY_INLINE void StoreScaled(V32 s, int32_t shift, uint8_t* out) {
  const D8Q d8q;
  const hn::Rebind<int16_t, D32> dh16;
  hn::StoreU(hn::DemoteTo(d8q, hn::DemoteTo(dh16, ScaleLanes(s, shift))), d8q, out);
}
HWY_INLINE void StoreScaled(V32 s, int32_t shift, int16_t* out) {
  const hn::Rebind<int16_t, D32> dh16;
  hn::StoreU(hn::DemoteTo(dh16, ScaleLanes(s, shift)), dh16, out);
}

template <typename Out>
constexpr int32_t OutMin() { return sizeof(Out) == 1 ? 0 : -32768; }
template <typename Out>
constexpr int32_t OutMax() { return sizeof(Out) == 1 ? 255 : 32767; }

#endif  // TVX_LANES_CONV_TAPS_H_
