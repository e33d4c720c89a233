// SIMD variants of the RGB to YCbCr conversions and back. A vector of pixels is loaded
// de-interleaved and split into its even and odd pixels in 16-bit lanes; both matrices run in
// exact 16-bit arithmetic (see ChromaLanes and OffsetsOf). Sub-sampled chroma simply uses the
// even pixels, which is the sampling rule, and is replicated back over pixel pairs. Pixels
// after the last whole vector use the reference's per-pixel rules.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/color_yuv.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <utility>

#include "cpu/color_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {

#include "lanes/color_pixels.h"

using color::Fmt;
using color::Sampling;

// (29*b0 + 150*b1 + 77*b2 + 128) >> 8: the sum stays below 65536.
template <class D16>
HWY_INLINE hn::Vec<D16> LumaLanes(D16 d16, hn::Vec<D16> b0, hn::Vec<D16> b1, hn::Vec<D16> b2) {
  const auto sum = hn::Add(hn::Add(hn::Mul(b0, hn::Set(d16, 29)), hn::Mul(b1, hn::Set(d16, 150))),
                           hn::Add(hn::Mul(b2, hn::Set(d16, 77)), hn::Set(d16, 128)));
  return hn::ShiftRight<8>(sum);
}

// Chroma from t = sum - 128 + 32768, where sum = (+-128, ...) weighted bytes + 128 lies in
// [-32512, 32768], so t fits in u16 (computed modulo 2^16). Then
// 128 + (sum >> 8) == (t + 128) >> 8 == ((t >> 7) + 1) >> 1, which is at most 256, and the
// rule "a shifted value of 128 or more gives 255" is min(., 255).
template <class D16>
HWY_INLINE hn::Vec<D16> ChromaLanes(D16 d16, hn::Vec<D16> t) {
  return hn::Min(hn::ShiftRight<1>(hn::Add(hn::ShiftRight<7>(t), hn::Set(d16, 1))), hn::Set(d16, 255));
}
template <class D16>
HWY_INLINE hn::Vec<D16> CbLanes(D16 d16, hn::Vec<D16> b0, hn::Vec<D16> b1, hn::Vec<D16> b2) {
  const auto t = hn::Sub(hn::Sub(hn::Add(hn::ShiftLeft<7>(b0), hn::Set(d16, 32768)), hn::Mul(b1, hn::Set(d16, 85))),
                         hn::Mul(b2, hn::Set(d16, 43)));
  return ChromaLanes(d16, t);
}
template <class D16>
HWY_INLINE hn::Vec<D16> CrLanes(D16 d16, hn::Vec<D16> b0, hn::Vec<D16> b1, hn::Vec<D16> b2) {
  const auto t = hn::Sub(hn::Sub(hn::Add(hn::ShiftLeft<7>(b2), hn::Set(d16, 32768)), hn::Mul(b0, hn::Set(d16, 21))),
                         hn::Mul(b1, hn::Set(d16, 107)));
  return ChromaLanes(d16, t);
}

// One source row: luma for every pixel and, when kChroma, the row's chroma samples. For the
// pseudo-planar layout cb receives the (Cb, Cr) pairs and cr is unused.
template <Fmt F, Sampling S, bool kPlanar, bool kChroma>
void RgbRowToYCbCr(const uint8_t* s, uint32_t width, uint8_t* luma, uint8_t* cb, uint8_t* cr) {
  constexpr size_t kIn = color::BytesPerPixel(F);
  constexpr uint32_t kStepX = S == Sampling::k444 ? 1 : 2;
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8h;
  const hn::RebindToSigned<decltype(d16)> di16;
  const size_t N = hn::Lanes(d8);
  size_t x = 0;
  for (; x + N <= width; x += N) {
    const auto p = LoadPixels<F>(d8, s + x * kIn);
    const auto e0 = EvenLanes(d8, p.b0), e1 = EvenLanes(d8, p.b1), e2 = EvenLanes(d8, p.b2);
    const auto o0 = OddLanes(d8, p.b0), o1 = OddLanes(d8, p.b1), o2 = OddLanes(d8, p.b2);
    hn::StoreU(MergeEvenOdd(d8, LumaLanes(d16, e0, e1, e2), LumaLanes(d16, o0, o1, o2)), d8, luma + x);
    if constexpr (kChroma) {
      const auto cbEven = CbLanes(d16, e0, e1, e2), crEven = CrLanes(d16, e0, e1, e2);
      if constexpr (S == Sampling::k444) {
        const auto cbAll = MergeEvenOdd(d8, cbEven, CbLanes(d16, o0, o1, o2));
        const auto crAll = MergeEvenOdd(d8, crEven, CrLanes(d16, o0, o1, o2));
        if constexpr (kPlanar) {
          hn::StoreU(cbAll, d8, cb + x);
          hn::StoreU(crAll, d8, cr + x);
        } else {
          hn::StoreInterleaved2(cbAll, crAll, d8, cb + 2 * x);
        }
      } else if constexpr (kPlanar) {
        hn::StoreU(hn::DemoteTo(d8h, hn::BitCast(di16, cbEven)), d8h, cb + x / 2);
        hn::StoreU(hn::DemoteTo(d8h, hn::BitCast(di16, crEven)), d8h, cr + x / 2);
      } else {
        hn::StoreU(MergeEvenOdd(d8, cbEven, crEven), d8, cb + x);  // pairs of pixels x.. start at byte x
      }
    }
  }
  for (size_t i = x; i < width; ++i) luma[i] = color::LumaOf(color::ReadPixel<F>(s + i * kIn));
  if constexpr (kChroma) {
    const size_t chromaWidth = (width + kStepX - 1) / kStepX;
    for (size_t cx = x / kStepX; cx < chromaWidth; ++cx) {
      const color::Pixel px = color::ReadPixel<F>(s + cx * kStepX * kIn);
      if constexpr (kPlanar) {
        cb[cx] = color::CbOf(px);
        cr[cx] = color::CrOf(px);
      } else {
        cb[2 * cx] = color::CbOf(px);
        cb[2 * cx + 1] = color::CrOf(px);
      }
    }
  }
}

template <Fmt F, Sampling S, bool kPlanar>
void RgbToYCbCr(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dstY,
                uint8_t* dstCb, uint8_t* dstCr, uint32_t yStride, uint32_t cbStride, uint32_t crStride) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = color::RowAt(src, srcStride, y);
    uint8_t* luma = color::RowAt(dstY, yStride, y);
    if (S == Sampling::k420 && y % 2 == 1) {
      RgbRowToYCbCr<F, S, kPlanar, false>(s, width, luma, nullptr, nullptr);
      continue;
    }
    const uint32_t cy = S == Sampling::k420 ? y / 2 : y;
    RgbRowToYCbCr<F, S, kPlanar, true>(s, width, luma, color::RowAt(dstCb, cbStride, cy),
                                       kPlanar ? color::RowAt(dstCr, crStride, cy) : nullptr);
  }
}

#define TVX_COLOR_TO_YCBCR_KERNELS(F)                                                                       \
  void F##To444Planar(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, uint8_t* y, uint8_t* cb,        \
                      uint8_t* cr, uint32_t ys, uint32_t cbs, uint32_t crs) {                               \
    RgbToYCbCr<Fmt::k##F, Sampling::k444, true>(s, w, h, ss, y, cb, cr, ys, cbs, crs);                      \
  }                                                                                                         \
  void F##To422Planar(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, uint8_t* y, uint8_t* cb,        \
                      uint8_t* cr, uint32_t ys, uint32_t cbs, uint32_t crs) {                               \
    RgbToYCbCr<Fmt::k##F, Sampling::k422, true>(s, w, h, ss, y, cb, cr, ys, cbs, crs);                      \
  }                                                                                                         \
  void F##To420Planar(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, uint8_t* y, uint8_t* cb,        \
                      uint8_t* cr, uint32_t ys, uint32_t cbs, uint32_t crs) {                               \
    RgbToYCbCr<Fmt::k##F, Sampling::k420, true>(s, w, h, ss, y, cb, cr, ys, cbs, crs);                      \
  }                                                                                                         \
  void F##To444PseudoPlanar(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, uint8_t* y, uint8_t* c,   \
                            uint32_t ys, uint32_t cs) {                                                     \
    RgbToYCbCr<Fmt::k##F, Sampling::k444, false>(s, w, h, ss, y, c, nullptr, ys, cs, 0);                    \
  }                                                                                                         \
  void F##To422PseudoPlanar(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, uint8_t* y, uint8_t* c,   \
                            uint32_t ys, uint32_t cs) {                                                     \
    RgbToYCbCr<Fmt::k##F, Sampling::k422, false>(s, w, h, ss, y, c, nullptr, ys, cs, 0);                    \
  }                                                                                                         \
  void F##To420PseudoPlanar(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, uint8_t* y, uint8_t* c,   \
                            uint32_t ys, uint32_t cs) {                                                     \
    RgbToYCbCr<Fmt::k##F, Sampling::k420, false>(s, w, h, ss, y, c, nullptr, ys, cs, 0);                    \
  }
TVX_COLOR_TO_YCBCR_KERNELS(RGB565)
TVX_COLOR_TO_YCBCR_KERNELS(RGB888)
TVX_COLOR_TO_YCBCR_KERNELS(RGBA8888)
#undef TVX_COLOR_TO_YCBCR_KERNELS

// Luma only, for the internal helpers.
template <Fmt F>
void RgbToLuma(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dstY,
               uint32_t dstStride) {
  for (uint32_t y = 0; y < height; ++y)
    RgbRowToYCbCr<F, Sampling::k444, true, false>(color::RowAt(src, srcStride, y), width,
                                                  color::RowAt(dstY, dstStride, y), nullptr, nullptr);
}
void RGB565ToLuma(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, uint8_t* y, uint32_t ys) {
  RgbToLuma<Fmt::kRGB565>(s, w, h, ss, y, ys);
}
void RGB888ToLuma(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, uint8_t* y, uint32_t ys) {
  RgbToLuma<Fmt::kRGB888>(s, w, h, ss, y, ys);
}
void RGBA8888ToLuma(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, uint8_t* y, uint32_t ys) {
  RgbToLuma<Fmt::kRGBA8888>(s, w, h, ss, y, ys);
}

// ---- YCbCr to RGB --------------------------------------------------------------------------

// Per chroma sample, the offsets that the inverse matrix adds to luma, exact in 16-bit lanes:
// (256*Y + 128 + k*e) >> 8 == Y + ((k*e + 128) >> 8), and each k*e is split as 256*e + r*e so
// that (r*e + 128) stays within int16 (e.g. 359*e = 256*e + 103*e).
template <class DI>
struct RgbOffsets {
  hn::Vec<DI> o0, o1, o2;
};
template <class DI>
HWY_INLINE RgbOffsets<DI> OffsetsOf(DI di, hn::Vec<DI> cb, hn::Vec<DI> cr) {
  const auto half = hn::Set(di, 128);
  const auto d = hn::Sub(cb, half), e = hn::Sub(cr, half);
  RgbOffsets<DI> o;
  o.o0 = hn::Add(e, hn::ShiftRight<8>(hn::Add(hn::Mul(e, hn::Set(di, 103)), half)));
  o.o1 = hn::Sub(hn::ShiftRight<8>(hn::Add(hn::Sub(hn::Mul(e, hn::Set(di, 73)), hn::Mul(d, hn::Set(di, 88))), half)), e);
  o.o2 = hn::Add(d, hn::ShiftRight<8>(hn::Add(hn::Mul(d, hn::Set(di, 198)), half)));
  return o;
}

template <class DI>
HWY_INLINE hn::Vec<DI> Clamp255(DI di, hn::Vec<DI> v) {
  return hn::Min(hn::Max(v, hn::Zero(di)), hn::Set(di, 255));
}

// Lanes(d8) pixels of one luma row; the even pixels take the offsets `even`, the odd ones `odd`.
template <Fmt To, class D8, class DI>
HWY_INLINE void StoreRgbPixels(D8 d8, DI di, const uint8_t* luma, const RgbOffsets<DI>& even,
                               const RgbOffsets<DI>& odd, uint8_t* out) {
  const auto y = hn::LoadU(d8, luma);
  const auto ye = hn::BitCast(di, EvenLanes(d8, y)), yo = hn::BitCast(di, OddLanes(d8, y));
  const hn::Repartition<uint16_t, D8> d16;
  const auto channel = [&](hn::Vec<DI> offEven, hn::Vec<DI> offOdd) {
    return MergeEvenOdd(d8, hn::BitCast(d16, Clamp255(di, hn::Add(ye, offEven))),
                        hn::BitCast(d16, Clamp255(di, hn::Add(yo, offOdd))));
  };
  PixelVecs<D8> p;
  p.b0 = channel(even.o0, odd.o0);
  p.b1 = channel(even.o1, odd.o1);
  p.b2 = channel(even.o2, odd.o2);
  p.a = hn::Set(d8, 255);
  StorePixels<To>(d8, p, out);
}

// One chroma row with one luma row, or two for 4:2:0 (y1 null for a last single row).
// Pseudo-planar passes the (Cb, Cr) pairs in cb and a null cr.
template <Fmt To, Sampling S, bool kPlanar>
void YCbCrRowsToRgb(const uint8_t* y0, const uint8_t* y1, const uint8_t* cb, const uint8_t* cr, uint8_t* d0,
                    uint8_t* d1, uint32_t width) {
  constexpr size_t kOut = color::BytesPerPixel(To);
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8h;
  const hn::RebindToSigned<decltype(d16)> di;
  const size_t N = hn::Lanes(d8);
  size_t x = 0;
  for (; x + N <= width; x += N) {
    if constexpr (S == Sampling::k444) {  // one chroma sample per pixel
      decltype(hn::Zero(d8)) u, v;
      if constexpr (kPlanar) {
        u = hn::LoadU(d8, cb + x);
        v = hn::LoadU(d8, cr + x);
      } else {
        hn::LoadInterleaved2(d8, cb + 2 * x, u, v);
      }
      const auto even = OffsetsOf(di, hn::BitCast(di, EvenLanes(d8, u)), hn::BitCast(di, EvenLanes(d8, v)));
      const auto odd = OffsetsOf(di, hn::BitCast(di, OddLanes(d8, u)), hn::BitCast(di, OddLanes(d8, v)));
      StoreRgbPixels<To>(d8, di, y0 + x, even, odd, d0 + x * kOut);
    } else {  // one chroma sample per pair of pixels
      decltype(hn::Zero(di)) u, v;
      if constexpr (kPlanar) {
        u = hn::BitCast(di, hn::PromoteTo(d16, hn::LoadU(d8h, cb + x / 2)));
        v = hn::BitCast(di, hn::PromoteTo(d16, hn::LoadU(d8h, cr + x / 2)));
      } else {
        const auto pairs = hn::LoadU(d8, cb + x);  // pairs of pixels x.. start at byte x
        u = hn::BitCast(di, EvenLanes(d8, pairs));
        v = hn::BitCast(di, OddLanes(d8, pairs));
      }
      const auto o = OffsetsOf(di, u, v);
      StoreRgbPixels<To>(d8, di, y0 + x, o, o, d0 + x * kOut);
      if (y1) StoreRgbPixels<To>(d8, di, y1 + x, o, o, d1 + x * kOut);
    }
  }
  for (; x < width; ++x) {
    const size_t i = S == Sampling::k444 ? x : x / 2;
    const uint8_t u = kPlanar ? cb[i] : cb[2 * i];
    const uint8_t v = kPlanar ? cr[i] : cb[2 * i + 1];
    color::WritePixel<To>(d0 + x * kOut, color::RgbOf(y0[x], u, v));
    if (y1) color::WritePixel<To>(d1 + x * kOut, color::RgbOf(y1[x], u, v));
  }
}

template <Fmt To, Sampling S, bool kPlanar>
void YCbCrToRgb(const uint8_t* srcY, const uint8_t* srcCb, const uint8_t* srcCr, uint32_t width, uint32_t height,
                uint32_t yStride, uint32_t cbStride, uint32_t crStride, uint8_t* dst, uint32_t dstStride) {
  const uint32_t rowsPerStep = S == Sampling::k420 ? 2 : 1;
  for (uint32_t y = 0; y < height; y += rowsPerStep) {
    const uint32_t cy = y / rowsPerStep;
    const bool second = rowsPerStep == 2 && y + 1 < height;
    YCbCrRowsToRgb<To, S, kPlanar>(
        color::RowAt(srcY, yStride, y), second ? color::RowAt(srcY, yStride, y + 1) : nullptr,
        color::RowAt(srcCb, cbStride, cy), kPlanar ? color::RowAt(srcCr, crStride, cy) : nullptr,
        color::RowAt(dst, dstStride, y), second ? color::RowAt(dst, dstStride, y + 1) : nullptr, width);
  }
}

#define TVX_COLOR_FROM_YCBCR_KERNELS(S, T)                                                                    \
  void Planar##S##To##T(const uint8_t* y, const uint8_t* cb, const uint8_t* cr, uint32_t w, uint32_t h,       \
                        uint32_t ys, uint32_t cbs, uint32_t crs, uint8_t* dst, uint32_t ds) {                 \
    YCbCrToRgb<Fmt::k##T, Sampling::k##S, true>(y, cb, cr, w, h, ys, cbs, crs, dst, ds);                      \
  }                                                                                                           \
  void PseudoPlanar##S##To##T(const uint8_t* y, const uint8_t* c, uint32_t w, uint32_t h, uint32_t ys,        \
                              uint32_t cs, uint8_t* dst, uint32_t ds) {                                       \
    YCbCrToRgb<Fmt::k##T, Sampling::k##S, false>(y, c, nullptr, w, h, ys, cs, 0, dst, ds);                    \
  }
#define TVX_COLOR_FROM_YCBCR_ALL(S)           \
  TVX_COLOR_FROM_YCBCR_KERNELS(S, RGB565)     \
  TVX_COLOR_FROM_YCBCR_KERNELS(S, RGB888)     \
  TVX_COLOR_FROM_YCBCR_KERNELS(S, RGBA8888)
TVX_COLOR_FROM_YCBCR_ALL(444)
TVX_COLOR_FROM_YCBCR_ALL(422)
TVX_COLOR_FROM_YCBCR_ALL(420)
#undef TVX_COLOR_FROM_YCBCR_ALL
#undef TVX_COLOR_FROM_YCBCR_KERNELS

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
#define TVX_COLOR_EXPORT_YCBCR(F) \
  HWY_EXPORT(F##To444Planar);     \
  HWY_EXPORT(F##To422Planar);     \
  HWY_EXPORT(F##To420Planar);     \
  HWY_EXPORT(F##To444PseudoPlanar); \
  HWY_EXPORT(F##To422PseudoPlanar); \
  HWY_EXPORT(F##To420PseudoPlanar);
TVX_COLOR_EXPORT_YCBCR(RGB565)
TVX_COLOR_EXPORT_YCBCR(RGB888)
TVX_COLOR_EXPORT_YCBCR(RGBA8888)
#undef TVX_COLOR_EXPORT_YCBCR
HWY_EXPORT(RGB565ToLuma);
HWY_EXPORT(RGB888ToLuma);
HWY_EXPORT(RGBA8888ToLuma);
#define TVX_COLOR_EXPORT_RGB(S)     \
  HWY_EXPORT(Planar##S##ToRGB565);       \
  HWY_EXPORT(Planar##S##ToRGB888);       \
  HWY_EXPORT(Planar##S##ToRGBA8888);     \
  HWY_EXPORT(PseudoPlanar##S##ToRGB565); \
  HWY_EXPORT(PseudoPlanar##S##ToRGB888); \
  HWY_EXPORT(PseudoPlanar##S##ToRGBA8888);
TVX_COLOR_EXPORT_RGB(444)
TVX_COLOR_EXPORT_RGB(422)
TVX_COLOR_EXPORT_RGB(420)
#undef TVX_COLOR_EXPORT_RGB
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

#define TVX_COLOR_TO_PLANAR_V(F, S)                                                                     \
  void tvxColor##F##ToYCbCr##S##Planaru8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,     \
                                          uint32_t srcStride, uint8_t* dstY, uint8_t* dstCb,             \
                                          uint8_t* dstCr, uint32_t dstYStride, uint32_t dstCbStride,     \
                                          uint32_t dstCrStride) {                                       \
    HWY_DYNAMIC_DISPATCH(F##To##S##Planar)(src, srcWidth, srcHeight, srcStride, dstY, dstCb, dstCr,     \
                                           dstYStride, dstCbStride, dstCrStride);                       \
  }
#define TVX_COLOR_TO_PSEUDO_PLANAR_V(F, S)                                                              \
  void tvxColor##F##ToYCbCr##S##PseudoPlanaru8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, \
                                                uint32_t srcStride, uint8_t* dstY, uint8_t* dstC,        \
                                                uint32_t dstYStride, uint32_t dstCStride) {             \
    HWY_DYNAMIC_DISPATCH(F##To##S##PseudoPlanar)(src, srcWidth, srcHeight, srcStride, dstY, dstC,       \
                                                 dstYStride, dstCStride);                               \
  }
#define TVX_COLOR_TO_YCBCR_V(F)        \
  TVX_COLOR_TO_PLANAR_V(F, 444)        \
  TVX_COLOR_TO_PLANAR_V(F, 422)        \
  TVX_COLOR_TO_PLANAR_V(F, 420)        \
  TVX_COLOR_TO_PSEUDO_PLANAR_V(F, 444) \
  TVX_COLOR_TO_PSEUDO_PLANAR_V(F, 422) \
  TVX_COLOR_TO_PSEUDO_PLANAR_V(F, 420)
TVX_COLOR_TO_YCBCR_V(RGB565)
TVX_COLOR_TO_YCBCR_V(RGB888)
TVX_COLOR_TO_YCBCR_V(RGBA8888)

void rgb5652yV(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dstY,
               uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(RGB565ToLuma)(src, width, height, srcStride, dstY, dstStride);
}
void rgb8882yV(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dstY,
               uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(RGB888ToLuma)(src, width, height, srcStride, dstY, dstStride);
}
void rgba88882yV(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dstY,
                 uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(RGBA8888ToLuma)(src, width, height, srcStride, dstY, dstStride);
}

// The subsampled layouts convert pixels in pairs: a one-pixel row ends the process exactly as
// the reference pair kernel does.
inline void RequirePairRow(int sampling, uint32_t length) {
  if (sampling != 444) TVX_REQUIRE("src/cpu/tavixColorC", length > 1);
}
#define TVX_COLOR_FROM_YCBCR_V(S, T)                                                                       \
  void tvxColorYCbCr##S##PlanarTo##T##u8V(const uint8_t* srcY, const uint8_t* srcCb, const uint8_t* srcCr,  \
                                          uint32_t srcWidth, uint32_t srcHeight, uint32_t srcYStride,      \
                                          uint32_t srcCbStride, uint32_t srcCrStride, uint8_t* dst,        \
                                          uint32_t dstStride) {                                           \
    RequirePairRow(S, srcWidth);                                                                           \
    HWY_DYNAMIC_DISPATCH(Planar##S##To##T)(srcY, srcCb, srcCr, srcWidth, srcHeight, srcYStride, srcCbStride, \
                                           srcCrStride, dst, dstStride);                                  \
  }                                                                                                        \
  void tvxColorYCbCr##S##PseudoPlanarTo##T##u8V(const uint8_t* srcY, const uint8_t* srcC, uint32_t srcWidth, \
                                                uint32_t srcHeight, uint32_t srcYStride, uint32_t srcCStride, \
                                                uint8_t* dst, uint32_t dstStride) {                       \
    RequirePairRow(S, srcWidth);                                                                           \
    HWY_DYNAMIC_DISPATCH(PseudoPlanar##S##To##T)(srcY, srcC, srcWidth, srcHeight, srcYStride, srcCStride, dst, \
                                                 dstStride);                                              \
  }
#define TVX_COLOR_FROM_YCBCR_ALL_V(S) \
  TVX_COLOR_FROM_YCBCR_V(S, RGB565)   \
  TVX_COLOR_FROM_YCBCR_V(S, RGB888)   \
  TVX_COLOR_FROM_YCBCR_V(S, RGBA8888)
TVX_COLOR_FROM_YCBCR_ALL_V(444)
TVX_COLOR_FROM_YCBCR_ALL_V(422)
TVX_COLOR_FROM_YCBCR_ALL_V(420)
#endif  // HWY_ONCE
