// SIMD variants of the integral images. A row is summed 16 bytes at a time (128-bit targets below;
// 256-bit ones scan both u16 halves in one vector, see SumRow):
// the bytes widen to two u16 halves, each half gets its prefix sum by three shift-and-add steps
// (at most 16 * 255, so u16 holds it), the low half's total carries into the high half, and the
// halves widen to u32, gain the running row total and the entry above, and are stored. Squared
// sums widen the squares (at most 65025) to u32 first and scan there. The tails of rows finish
// with the scalar recurrence from the carried total.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/integral.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>

#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace integral {
namespace hn = hwy::HWY_NAMESPACE;

using D8 = hn::Full128<uint8_t>;
using D16 = hn::Full128<uint16_t>;
using D32 = hn::Full128<uint32_t>;
using D64 = hn::Full128<uint64_t>;
using V32 = hn::Vec<D32>;

template <typename T>
inline T* RowAt(T* base, uint32_t strideBytes, uint32_t y) {
  using Byte = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
  return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + static_cast<size_t>(y) * strideBytes);
}

// Inclusive prefix sums of 8 u16 lanes.
inline hn::Vec<D16> Scan16(hn::Vec<D16> v) {
  v = hn::Add(v, hn::ShiftLeftLanes<1>(v));
  v = hn::Add(v, hn::ShiftLeftLanes<2>(v));
  return hn::Add(v, hn::ShiftLeftLanes<4>(v));
}
// Inclusive prefix sums of 4 u32 lanes.
inline V32 Scan32(V32 v) {
  v = hn::Add(v, hn::ShiftLeftLanes<1>(v));
  return hn::Add(v, hn::ShiftLeftLanes<2>(v));
}

// Running sums of 16 bytes as four u32 vectors (lanes 0..15), the running total included; the
// total advances past them.
inline void Sums16(hn::Vec<D8> bytes, V32& total, V32 out[4]) {
  const D16 d16;
  const D32 d32;
  const hn::Half<D8> h8;
  const hn::Half<D16> h16;
  const auto lo = Scan16(hn::PromoteTo(d16, hn::LowerHalf(h8, bytes)));
  const auto hi = hn::Add(Scan16(hn::PromoteTo(d16, hn::UpperHalf(h8, bytes))), hn::Broadcast<7>(lo));
  out[0] = hn::Add(total, hn::PromoteTo(d32, hn::LowerHalf(h16, lo)));
  out[1] = hn::Add(total, hn::PromoteTo(d32, hn::UpperHalf(h16, lo)));
  out[2] = hn::Add(total, hn::PromoteTo(d32, hn::LowerHalf(h16, hi)));
  out[3] = hn::Add(total, hn::PromoteTo(d32, hn::UpperHalf(h16, hi)));
  total = hn::Broadcast<3>(out[3]);
}

// Running squared sums of 16 bytes as four u32 vectors.
inline void Squares16(hn::Vec<D8> bytes, V32& total, V32 out[4]) {
  const D16 d16;
  const D32 d32;
  const hn::Half<D8> h8;
  const hn::Half<D16> h16;
  const auto lo = hn::PromoteTo(d16, hn::LowerHalf(h8, bytes));
  const auto hi = hn::PromoteTo(d16, hn::UpperHalf(h8, bytes));
  const auto qlo = hn::Mul(lo, lo), qhi = hn::Mul(hi, hi);  // at most 65025
  const V32 q[4] = {hn::PromoteTo(d32, hn::LowerHalf(h16, qlo)), hn::PromoteTo(d32, hn::UpperHalf(h16, qlo)),
                    hn::PromoteTo(d32, hn::LowerHalf(h16, qhi)), hn::PromoteTo(d32, hn::UpperHalf(h16, qhi))};
  for (int i = 0; i < 4; ++i) {
    out[i] = hn::Add(total, Scan32(q[i]));
    total = hn::Broadcast<3>(out[i]);
  }
}

// Loads 16 bytes taken every kStep bytes. The interleaved load reads 16 * kStep bytes, past the
// last byte it keeps, so a row's vector loop stops kExtra samples before the end.
template <int kStep>
constexpr uint32_t kExtra = kStep > 1 ? 1 : 0;

template <int kStep>
inline hn::Vec<D8> Bytes16(const uint8_t* in) {
  const D8 d8;
  if constexpr (kStep == 1) {
    return hn::LoadU(d8, in);
  } else {
    hn::Vec<D8> even, odd;
    hn::LoadInterleaved2(d8, in, even, odd);
    return even;
  }
}

#if HWY_MAX_BYTES >= 32
// 256-bit targets: the 16 bytes widen to one u16 vector of two blocks, scanned per block; the
// low block's total moves into the high block; the sums widen to two u32 vectors of 8. The
// running total stays a vector and gains the block's total off the stores' path.
using D16W = hn::CappedTag<uint16_t, 16>;
using D32W = hn::CappedTag<uint32_t, 8>;

template <int kStep>
void SumRow(const uint8_t* in, uint32_t width, const uint32_t* above, uint32_t* out) {
  const D16W d16;
  const D32W d32;
  const hn::Half<D16W> h16;
  auto total = hn::Zero(d32);
  uint32_t x = 0;
  for (; x + 16 + kExtra<kStep> <= width; x += 16) {
    auto v = hn::PromoteTo(d16, Bytes16<kStep>(in + static_cast<size_t>(x) * kStep));
    v = hn::Add(v, hn::ShiftLeftLanes<1>(d16, v));
    v = hn::Add(v, hn::ShiftLeftLanes<2>(d16, v));
    v = hn::Add(v, hn::ShiftLeftLanes<4>(d16, v));
    const auto blockTotals = hn::Broadcast<7>(v);
    v = hn::Add(v, hn::ConcatLowerLower(d16, blockTotals, hn::Zero(d16)));
    auto lo = hn::Add(total, hn::PromoteTo(d32, hn::LowerHalf(h16, v)));
    auto hi = hn::Add(total, hn::PromoteTo(d32, hn::UpperHalf(h16, v)));
    total = hn::Add(total, hn::PromoteTo(d32, hn::UpperHalf(h16, hn::Broadcast<7>(v))));
    if (above) {
      lo = hn::Add(lo, hn::LoadU(d32, above + x));
      hi = hn::Add(hi, hn::LoadU(d32, above + x + 8));
    }
    hn::StoreU(lo, d32, out + x);
    hn::StoreU(hi, d32, out + x + 8);
  }
  uint32_t r = hn::GetLane(total);
  for (; x < width; ++x) {
    r += in[static_cast<size_t>(x) * kStep];
    out[x] = above ? r + above[x] : r;
  }
}
#else
// out[x] = running sum of bytes in[0 .. x] (taken every `step` bytes, step 1 or 2) + above[x]
// (above may be null: nothing added), for x < width.
template <int kStep>
void SumRow(const uint8_t* in, uint32_t width, const uint32_t* above, uint32_t* out) {
  const D32 d32;
  V32 total = hn::Zero(d32);
  uint32_t x = 0;
  for (; x + 16 + kExtra<kStep> <= width; x += 16) {
    V32 s[4];
    Sums16(Bytes16<kStep>(in + static_cast<size_t>(x) * kStep), total, s);
    for (int i = 0; i < 4; ++i) {
      if (above) s[i] = hn::Add(s[i], hn::LoadU(d32, above + x + 4 * i));
      hn::StoreU(s[i], d32, out + x + 4 * i);
    }
  }
  uint32_t r = hn::GetLane(total);
  for (; x < width; ++x) {
    r += in[static_cast<size_t>(x) * kStep];
    out[x] = above ? r + above[x] : r;
  }
}
#endif

}  // namespace integral

void IntegralPadded(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t* dst,
                     uint32_t dstStride) {
  std::memset(dst, 0, (size_t{srcWidth} + 1) * 4);
  for (uint32_t y = 0; y < srcHeight; ++y) {
    uint32_t* row = integral::RowAt(dst, dstStride, y + 1);
    row[0] = 0;
    integral::SumRow<1>(src + static_cast<size_t>(y) * srcStride, srcWidth, integral::RowAt(dst, dstStride, y) + 1, row + 1);
  }
}

void IntegralWithSquares(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t* sum,
                          uint64_t* sqsum, uint32_t sumStride, uint32_t sqStride) {
  using namespace integral;
  const D8 d8;
  const D32 d32;
  const D64 d64;
  const hn::Half<D32> h32;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* in = src + static_cast<size_t>(y) * srcStride;
    SumRow<1>(in, srcWidth, y ? RowAt(sum, sumStride, y - 1) : nullptr, RowAt(sum, sumStride, y));
    const uint64_t* above = y ? RowAt(sqsum, sqStride, y - 1) : nullptr;
    uint64_t* out = RowAt(sqsum, sqStride, y);
    // Squares are scanned in u32 within blocks of 16 (at most 16 * 65025) and widened onto the
    // row's u64 running total, so any width is exact.
    uint64_t base = 0;
    uint32_t x = 0;
#if HWY_MAX_BYTES >= 32
    {
      const D16W d16w;
      const D32W d32w;
      const hn::CappedTag<uint64_t, 4> d64w;
      const hn::Half<D16W> h16w;
      const hn::Half<D32W> h32w;
      auto total = hn::Zero(d64w);
      for (; x + 16 <= srcWidth; x += 16) {
        const auto v = hn::PromoteTo(d16w, hn::LoadU(d8, in + x));
        const auto q = hn::Mul(v, v);  // at most 65025
        // Two u32 vectors of 8, each scanned per 4-lane block, the low block's total moved up.
        auto scan = [&](hn::Vec<D32W> w) {
          w = hn::Add(w, hn::ShiftLeftLanes<1>(d32w, w));
          w = hn::Add(w, hn::ShiftLeftLanes<2>(d32w, w));
          return hn::Add(w, hn::ConcatLowerLower(d32w, hn::Broadcast<3>(w), hn::Zero(d32w)));
        };
        const auto lo = scan(hn::PromoteTo(d32w, hn::LowerHalf(h16w, q)));
        auto hi = scan(hn::PromoteTo(d32w, hn::UpperHalf(h16w, q)));
        const auto loTotal = hn::Broadcast<3>(lo);  // lane 7 in the upper block
        hi = hn::Add(hi, hn::ConcatUpperUpper(d32w, loTotal, loTotal));
        const hn::Vec<decltype(d64w)> parts[4] = {
            hn::PromoteTo(d64w, hn::LowerHalf(h32w, lo)), hn::PromoteTo(d64w, hn::UpperHalf(h32w, lo)),
            hn::PromoteTo(d64w, hn::LowerHalf(h32w, hi)), hn::PromoteTo(d64w, hn::UpperHalf(h32w, hi))};
        for (int i = 0; i < 4; ++i) {
          auto e = hn::Add(total, parts[i]);
          if (above) e = hn::Add(e, hn::LoadU(d64w, above + x + 4 * i));
          hn::StoreU(e, d64w, out + x + 4 * i);
        }
        const auto hiTotal = hn::Broadcast<3>(hi);
        total = hn::Add(total, hn::PromoteTo(d64w, hn::UpperHalf(h32w, hiTotal)));
      }
      base = hn::GetLane(total);
    }
#else
    for (; x + 16 <= srcWidth; x += 16) {
      V32 total = hn::Zero(d32), q[4];
      Squares16(hn::LoadU(d8, in + x), total, q);
      const auto b = hn::Set(d64, base);
      for (int i = 0; i < 4; ++i) {
        auto lo = hn::Add(b, hn::PromoteTo(d64, hn::LowerHalf(h32, q[i])));
        auto hi = hn::Add(b, hn::PromoteTo(d64, hn::UpperHalf(h32, q[i])));
        if (above) {
          lo = hn::Add(lo, hn::LoadU(d64, above + x + 4 * i));
          hi = hn::Add(hi, hn::LoadU(d64, above + x + 4 * i + 2));
        }
        hn::StoreU(lo, d64, out + x + 4 * i);
        hn::StoreU(hi, d64, out + x + 4 * i + 2);
      }
      base += hn::GetLane(total);
    }
#endif
    for (; x < srcWidth; ++x) {
      base += uint32_t{in[x]} * in[x];
      out[x] = above ? base + above[x] : base;
    }
  }
}

namespace integral {
template <int kStep>
void Unpadded(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint32_t* sum, uint32_t sumStride) {
  for (uint32_t y = 0; y < height; ++y)
    SumRow<kStep>(src + static_cast<size_t>(y) * srcStride, width, y ? RowAt(sum, sumStride, y - 1) : nullptr,
                  RowAt(sum, sumStride, y));
}

}  // namespace integral

void IntegralYCbCr420(const uint8_t* srcY, const uint8_t* srcC, uint32_t srcWidth, uint32_t srcHeight,
                       uint32_t srcYStride, uint32_t srcCStride, uint32_t* integralY, uint32_t* integralCb,
                       uint32_t* integralCr, uint32_t integralYStride, uint32_t integralCbStride,
                       uint32_t integralCrStride) {
  integral::Unpadded<1>(srcY, srcWidth, srcHeight, srcYStride, integralY, integralYStride);
  integral::Unpadded<2>(srcC, srcWidth / 2, srcHeight / 2, srcCStride, integralCb, integralCbStride);
  integral::Unpadded<2>(srcC + 1, srcWidth / 2, srcHeight / 2, srcCStride, integralCr, integralCrStride);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(IntegralPadded);
HWY_EXPORT(IntegralWithSquares);
HWY_EXPORT(IntegralYCbCr420);
}  // namespace tvx

using namespace tvx;

// The vector kernel serves 16-byte aligned buffers with strides multiple of 8 and images below
// 16843009 pixels; other calls take the reference kernel, which gives the same table.
void tvxIntegrateImageu8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t* dst,
                             uint32_t dstStride) {
  if (tvx_aligned16(src, dst) && tvx_aligned8(srcStride, dstStride) && uint64_t{srcWidth} * srcHeight < 16843009u) {
    HWY_DYNAMIC_DISPATCH(IntegralPadded)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
  } else {
    tvxIntegrateImageu8_v2C(src, srcWidth, srcHeight, srcStride, dst, dstStride);
  }
}

void tvxIntegrateImageu8u64V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint32_t* dstIntgrl, uint64_t* dstIntgrlSqrd, uint32_t dstIntgrlStride,
                             uint32_t dstIntgrlSqrdStride) {
  HWY_DYNAMIC_DISPATCH(IntegralWithSquares)(src, srcWidth, srcHeight, srcStride, dstIntgrl, dstIntgrlSqrd,
                                                 dstIntgrlStride, dstIntgrlSqrdStride);
}

void tvxIntegrateImageYCbCr420PseudoPlanaru8V(const uint8_t* srcY, const uint8_t* srcC, uint32_t srcWidth,
                                              uint32_t srcHeight, uint32_t srcYStride, uint32_t srcCStride,
                                              uint32_t* integralY, uint32_t* integralCb, uint32_t* integralCr,
                                              uint32_t integralYStride, uint32_t integralCbStride,
                                              uint32_t integralCrStride) {
  HWY_DYNAMIC_DISPATCH(IntegralYCbCr420)(srcY, srcC, srcWidth, srcHeight, srcYStride, srcCStride, integralY,
                                              integralCb, integralCr, integralYStride, integralCbStride,
                                              integralCrStride);
}
#endif  // HWY_ONCE
