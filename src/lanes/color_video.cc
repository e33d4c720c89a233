// SIMD variants of the video-range decoders and of the rotated conversions. The decoders split
// a vector of pixels into its even and odd pixels (16-bit lanes), which line up with the
// chroma samples of the pixel pairs, and evaluate the fixed-point formulas exactly (the ten-bit
// one in 16-bit pieces, the RGB565 one in 32-bit lanes); results return to pixel order through
// the even/odd merge. The rotated forms convert a row into scratch and store it reversed at
// the mirrored row.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/color_video.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <utility>  // std::swap in color_pixels.h
#include <vector>

#include "cpu/color_video_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {

#include "lanes/color_pixels.h"

using color::Fmt;

// The 16-bit lanes of a vector as two 32-bit vectors (lower and upper half).
template <class DI16>
struct Wide {
  hn::Vec<hn::Repartition<int32_t, DI16>> lo, hi;
};
template <class DI16>
HWY_INLINE Wide<DI16> Widen(DI16, hn::Vec<DI16> v) {
  const hn::Repartition<int32_t, DI16> d32;
  const hn::Half<DI16> dh;
  return {hn::PromoteTo(d32, hn::LowerHalf(dh, v)), hn::PromoteTo(d32, hn::UpperHalf(dh, v))};
}
template <class DI16, class F>
HWY_INLINE Wide<DI16> Map(const Wide<DI16>& a, const Wide<DI16>& b, F f) {
  return {f(a.lo, b.lo), f(a.hi, b.hi)};
}
// (v >> kShift) of both halves, narrowed and clamped to [0, 255]; the shifted values fit int16.
template <int kShift, class DI16>
HWY_INLINE hn::Vec<DI16> Narrow255(DI16 di16, const Wide<DI16>& v) {
  const hn::Half<DI16> dh;
  const auto n = hn::Combine(di16, hn::DemoteTo(dh, hn::ShiftRight<kShift>(v.hi)),
                             hn::DemoteTo(dh, hn::ShiftRight<kShift>(v.lo)));
  return hn::Min(hn::Max(n, hn::Zero(di16)), hn::Set(di16, 255));
}
// One channel in pixel order from its even-pixel and odd-pixel values.
template <class D8, class DI16>
HWY_INLINE hn::Vec<D8> PixelOrder(D8 d8, DI16, hn::Vec<DI16> even, hn::Vec<DI16> odd) {
  const hn::Repartition<uint16_t, D8> d16;
  return MergeEvenOdd(d8, hn::BitCast(d16, even), hn::BitCast(d16, odd));
}

// ---- 4:2:0 (Cr, Cb) pairs to R, G, B, 255 ------------------------------------------------------
//
// Exact in 16-bit lanes: a channel is floor((A + T) / 1024) with A = 1192*Y' (Y' = Y - 16, or 0
// below 16) and T the chroma term. With A = 1024*qa + ra and T = 1024*qt + rt (floor division,
// remainders in [0, 1024)) it equals qa + qt + ((ra + rt) >> 10), and every piece fits int16.
// Clamping that to [0, 255] equals clamping A + T to [0, 0x3FFFF] before the shift.

// A value as (quotient, remainder) of floor division by 1024.
template <class DI16>
struct Tenths {
  hn::Vec<DI16> q, r;
};

// k*v for |v| <= 128: MulHigh((v << 6), k) = floor(64*k*v / 65536) = floor(k*v / 1024); the low 16
// bits of k*v, masked, are its remainder.
template <int kK, class DI16>
HWY_INLINE Tenths<DI16> Term(DI16 di16, hn::Vec<DI16> v) {
  return {hn::MulHigh(hn::ShiftLeft<6>(v), hn::Set(di16, kK)), hn::And(hn::Mul(v, hn::Set(di16, kK)), hn::Set(di16, 1023))};
}
template <class DI16>
HWY_INLINE Tenths<DI16> Sum(DI16 di16, const Tenths<DI16>& a, const Tenths<DI16>& b) {
  const auto r = hn::Add(a.r, b.r);
  return {hn::Add(hn::Add(a.q, b.q), hn::ShiftRight<10>(r)), hn::And(r, hn::Set(di16, 1023))};
}

template <class DI16>
struct TenBitChroma {
  Tenths<DI16> r, g, b;
};

template <class D8, class DI16>
HWY_INLINE void TenBitRow(D8 d8, DI16 di16, const uint8_t* luma, const TenBitChroma<DI16>& c, uint8_t* out) {
  const hn::Repartition<uint16_t, D8> d16;
  // Luma below 16 gives 0: the saturating subtraction does exactly that.
  const auto y = hn::SaturatedSub(hn::LoadU(d8, luma), hn::Set(d8, 16));
  // 1192*Y' = 8*149*Y': quotient (149*Y') >> 7, remainder 8*((149*Y') & 127); 149*239 fits u16.
  const auto split = [&](hn::Vec<decltype(d16)> v) {
    const auto m = hn::Mul(v, hn::Set(d16, 149));
    return Tenths<DI16>{hn::BitCast(di16, hn::ShiftRight<7>(m)),
                        hn::BitCast(di16, hn::ShiftLeft<3>(hn::And(m, hn::Set(d16, 127))))};
  };
  const Tenths<DI16> ye = split(EvenLanes(d8, y)), yo = split(OddLanes(d8, y));
  const auto value = [&](const Tenths<DI16>& a, const Tenths<DI16>& t) {
    const auto v = hn::Add(hn::Add(a.q, t.q), hn::ShiftRight<10>(hn::Add(a.r, t.r)));
    return hn::Min(hn::Max(v, hn::Zero(di16)), hn::Set(di16, 255));
  };
  const auto channel = [&](const Tenths<DI16>& t) { return PixelOrder(d8, di16, value(ye, t), value(yo, t)); };
  hn::StoreInterleaved4(channel(c.r), channel(c.g), channel(c.b), hn::Set(d8, 255), d8, out);
}

// Two luma rows sharing one row of pairs (y1 null for a last single row).
void YCrCb420ToRgba(const uint8_t* y0, const uint8_t* y1, const uint8_t* pairs, uint8_t* d0, uint8_t* d1,
                    uint32_t width) {
  using DI16 = hn::Repartition<int16_t, hn::ScalableTag<uint8_t>>;
  const hn::ScalableTag<uint8_t> d8;
  const DI16 di16;
  const size_t N = hn::Lanes(d8);
  size_t x = 0;
  for (; x + N <= width; x += N) {
    const auto p = hn::LoadU(d8, pairs + x);  // the pairs of pixels x.. start at byte x
    const auto half = hn::Set(di16, 128);
    const auto c = hn::Sub(hn::BitCast(di16, EvenLanes(d8, p)), half);  // Cr - 128
    const auto b = hn::Sub(hn::BitCast(di16, OddLanes(d8, p)), half);   // Cb - 128
    TenBitChroma<DI16> t;
    t.r = Term<1634>(di16, c);
    t.g = Sum(di16, Term<-833>(di16, c), Term<-400>(di16, b));
    t.b = Term<2066>(di16, b);
    TenBitRow(d8, di16, y0 + x, t, d0 + 4 * x);
    if (y1) TenBitRow(d8, di16, y1 + x, t, d1 + 4 * x);
  }
  for (; x < width; ++x) {
    const uint8_t cr = pairs[x / 2 * 2], cb = pairs[x / 2 * 2 + 1];
    color::WriteVideoRgba(d0 + 4 * x, y0[x], cr, cb);
    if (y1) color::WriteVideoRgba(d1 + 4 * x, y1[x], cr, cb);
  }
}

void YCrCb420PseudoPlanarToRgba(const uint8_t* srcY, const uint8_t* srcC, uint32_t width, uint32_t height,
                                uint32_t yStride, uint32_t cStride, uint8_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < height; y += 2) {
    const bool second = y + 1 < height;
    YCrCb420ToRgba(color::RowAt(srcY, yStride, y), second ? color::RowAt(srcY, yStride, y + 1) : nullptr,
                   color::RowAt(srcC, cStride, y / 2), color::RowAt(dst, dstStride, y),
                   second ? color::RowAt(dst, dstStride, y + 1) : nullptr, width);
  }
}

// ---- packed 4:2:0 planes to RGB565 ---------------------------------------------------------

template <class DI16>
struct VideoChroma {
  Wide<DI16> r, g, b;
};

template <class D8, class DI16>
HWY_INLINE void Rgb565Row(D8 d8, DI16 di16, const uint8_t* luma, const VideoChroma<DI16>& c, uint8_t* out) {
  const hn::Repartition<int32_t, DI16> d32;
  const auto y = hn::LoadU(d8, luma);
  const auto scale = [&](hn::Vec<DI16> v) {  // 298*Y - 4768
    Wide<DI16> w = Widen(di16, v);
    return Wide<DI16>{hn::Sub(hn::Mul(w.lo, hn::Set(d32, 298)), hn::Set(d32, 4768)),
                      hn::Sub(hn::Mul(w.hi, hn::Set(d32, 298)), hn::Set(d32, 4768))};
  };
  const Wide<DI16> ye = scale(hn::BitCast(di16, EvenLanes(d8, y))), yo = scale(hn::BitCast(di16, OddLanes(d8, y)));
  const auto add = [](auto a, auto b) { return hn::Add(a, b); };
  const auto channel = [&](const Wide<DI16>& term) {
    return PixelOrder(d8, di16, Narrow255<8>(di16, Map(ye, term, add)), Narrow255<8>(di16, Map(yo, term, add)));
  };
  PixelVecs<D8> px;
  px.b0 = channel(c.r);  // the RGB565 word keeps byte 0 in its low bits
  px.b1 = channel(c.g);
  px.b2 = channel(c.b);
  px.a = hn::Set(d8, 255);
  StorePixels<Fmt::kRGB565>(d8, px, out);
}

// Two luma rows of the 4:2:0 image sharing chroma row u/v (y1 null for a last single row).
void Yuv420RowsToRgb565(const uint8_t* y0, const uint8_t* y1, const uint8_t* u, const uint8_t* v, uint8_t* d0,
                        uint8_t* d1, uint32_t width) {
  using DI16 = hn::Repartition<int16_t, hn::ScalableTag<uint8_t>>;
  const hn::ScalableTag<uint8_t> d8;
  const DI16 di16;
  const hn::Rebind<uint8_t, DI16> d8h;
  const hn::Repartition<int32_t, decltype(d8)> d32;
  const size_t N = hn::Lanes(d8);
  size_t x = 0;
  for (; x + N <= width; x += N) {
    const Wide<DI16> U = Widen(di16, hn::BitCast(di16, hn::PromoteTo(di16, hn::LoadU(d8h, u + x / 2))));
    const Wide<DI16> V = Widen(di16, hn::BitCast(di16, hn::PromoteTo(di16, hn::LoadU(d8h, v + x / 2))));
    const auto k = [&](int32_t c) { return hn::Set(d32, c); };
    VideoChroma<DI16> t;
    // 409*V - 52352; 100*(128-U) + 208*(128-V) = 39424 - 100*U - 208*V; 517*U - 66176
    t.r = {hn::Sub(hn::Mul(V.lo, k(409)), k(52352)), hn::Sub(hn::Mul(V.hi, k(409)), k(52352))};
    t.g = {hn::Sub(hn::Sub(k(39424), hn::Mul(U.lo, k(100))), hn::Mul(V.lo, k(208))),
           hn::Sub(hn::Sub(k(39424), hn::Mul(U.hi, k(100))), hn::Mul(V.hi, k(208)))};
    t.b = {hn::Sub(hn::Mul(U.lo, k(517)), k(66176)), hn::Sub(hn::Mul(U.hi, k(517)), k(66176))};
    Rgb565Row(d8, di16, y0 + x, t, d0 + 2 * x);
    if (y1) Rgb565Row(d8, di16, y1 + x, t, d1 + 2 * x);
  }
  for (; x < width; ++x) {
    color::StoreWord(d0 + 2 * x, color::VideoRgb565Of(y0[x], u[x / 2], v[x / 2]));
    if (y1) color::StoreWord(d1 + 2 * x, color::VideoRgb565Of(y1[x], u[x / 2], v[x / 2]));
  }
}

// Writes the words of a row in reverse order: word i of src becomes word count-1-i of dst.
void ReverseWords(const uint8_t* src, uint32_t count, uint8_t* dst) {
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const size_t n16 = hn::Lanes(d16);
  size_t i = 0;
  for (; i + n16 <= count; i += n16) {
    const auto w = hn::BitCast(d16, hn::LoadU(d8, src + 2 * i));
    hn::StoreU(hn::BitCast(d8, hn::Reverse(d16, w)), d8, dst + 2 * (count - i - n16));
  }
  for (; i < count; ++i) {
    dst[2 * (count - 1 - i)] = src[2 * i];
    dst[2 * (count - 1 - i) + 1] = src[2 * i + 1];
  }
}

void Yuv420ToRgb565(const uint8_t* src, uint32_t width, uint32_t height, uint8_t* dst, bool rotate) {
  const color::Yuv420Planes p = color::SplitYuv420(src, width, height);
  const size_t rowBytes = static_cast<size_t>(width) * 2;
  std::vector<uint8_t> scratch(rotate ? 2 * rowBytes : 0);
  for (uint32_t y = 0; y < height; y += 2) {
    const bool second = y + 1 < height;
    const uint8_t* y0 = p.y + static_cast<size_t>(width) * y;
    const uint8_t* cu = p.u + static_cast<size_t>(p.chromaWidth) * (y / 2);
    const uint8_t* cv = p.v + static_cast<size_t>(p.chromaWidth) * (y / 2);
    uint8_t* d0 = rotate ? scratch.data() : dst + rowBytes * y;
    uint8_t* d1 = rotate ? scratch.data() + rowBytes : dst + rowBytes * (y + 1);
    Yuv420RowsToRgb565(y0, second ? y0 + width : nullptr, cu, cv, d0, second ? d1 : nullptr, width);
    if (rotate) {
      ReverseWords(d0, width, dst + rowBytes * (height - 1 - y));
      if (second) ReverseWords(d1, width, dst + rowBytes * (height - 2 - y));
    }
  }
}

void Rgb888ToRgb565Rotated(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                           uint32_t dstStride) {
  const hn::ScalableTag<uint8_t> d8;
  const size_t N = hn::Lanes(d8);
  std::vector<uint8_t> scratch(static_cast<size_t>(width) * 2);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = color::RowAt(src, srcStride, y);
    size_t x = 0;
    for (; x + N <= width; x += N) StorePixels<Fmt::kRGB565>(d8, LoadPixels<Fmt::kRGB888>(d8, s + 3 * x), scratch.data() + 2 * x);
    for (; x < width; ++x) color::StoreWord(scratch.data() + 2 * x, color::Pack565(s[3 * x], s[3 * x + 1], s[3 * x + 2]));
    ReverseWords(scratch.data(), width, color::RowAt(dst, dstStride, height - 1 - y));
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(YCrCb420PseudoPlanarToRgba);
HWY_EXPORT(Yuv420ToRgb565);
HWY_EXPORT(Rgb888ToRgb565Rotated);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

void tvxColorYCrCb420PseudoPlanarToRGB8888u8V(const uint8_t* srcY, const uint8_t* srcC, uint32_t srcWidth,
                                              uint32_t srcHeight, uint32_t srcYStride, uint32_t srcCStride,
                                              uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(YCrCb420PseudoPlanarToRgba)(srcY, srcC, srcWidth, srcHeight, srcYStride, srcCStride, dst,
                                                   dstStride);
}

void tvxColorYUV420toRGB565u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint8_t* dst) {
  HWY_DYNAMIC_DISPATCH(Yuv420ToRgb565)(src, srcWidth, srcHeight, dst, false);
}

void tvxColorYUV420toRGB565u8Rotate180V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint8_t* dst) {
  HWY_DYNAMIC_DISPATCH(Yuv420ToRgb565)(src, srcWidth, srcHeight, dst, true);
}

void tvxColorRGB888ToRGB565Rotate180u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                        uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Rgb888ToRgb565Rotated)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
#endif  // HWY_ONCE
