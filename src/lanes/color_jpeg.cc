// SIMD variants of the JPEG-style YCrCb decoders and encoder. Pixels are split into their
// even and odd lanes in 16-bit arithmetic (as in the other colour kernels); every formula is
// rewritten into 16-bit steps that give exactly the reference's integers (see ChromaOffsets,
// JpegLumaLanes and JpegChromaLanes). Horizontally halved chroma needs no shuffle: chroma sample i
// serves pixels 2i and 2i+1, which are lane i of the even and of the odd halves.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/color_jpeg.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <utility>

#include "cpu/color_jpeg_rules.h"
#include "cpu/color_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {

#include "lanes/color_pixels.h"

template <class DI>
struct OffsetLanes {
  hn::Vec<DI> r, g, b;
};

// Chroma offsets of the reference from Cr and Cb in i16 lanes (values 0-255).
// R: (22970*2e + 16384) >> 15 == (MulHigh(8e, 22970) + 1) >> 1, with e = Cr - 128; B alike.
// G: the sum -5638*d - 11700*e needs 23 bits. Each product is split into its high half
// (MulHigh) and its unsigned low half (Mul), and (sum + 8192) >> 14 is assembled from them:
// 4*(hiA + hiB) + (loA >> 14) + (loB >> 14) + (((loA & 16383) + (loB & 16383) + 8192) >> 14).
template <class DI>
HWY_INLINE OffsetLanes<DI> ChromaOffsets(DI di, hn::Vec<DI> cr, hn::Vec<DI> cb) {
  const hn::RebindToUnsigned<DI> du;
  const auto e = hn::Sub(cr, hn::Set(di, 128)), d = hn::Sub(cb, hn::Set(di, 128));
  const auto one = hn::Set(di, 1);
  OffsetLanes<DI> o;
  o.r = hn::ShiftRight<1>(hn::Add(hn::MulHigh(hn::ShiftLeft<3>(e), hn::Set(di, 22970)), one));
  o.b = hn::ShiftRight<1>(hn::Add(hn::MulHigh(hn::ShiftLeft<3>(d), hn::Set(di, 29032)), one));
  const auto kA = hn::Set(di, -5638), kB = hn::Set(di, -11700);
  const auto hi = hn::Add(hn::MulHigh(d, kA), hn::MulHigh(e, kB));
  const auto loA = hn::BitCast(du, hn::Mul(d, kA)), loB = hn::BitCast(du, hn::Mul(e, kB));
  const auto low14 = hn::Set(du, 16383);
  const auto carry = hn::ShiftRight<14>(hn::Add(hn::Add(hn::And(loA, low14), hn::And(loB, low14)), hn::Set(du, 8192)));
  const auto lowSum = hn::Add(hn::Add(hn::ShiftRight<14>(loA), hn::ShiftRight<14>(loB)), carry);
  o.g = hn::Add(hn::ShiftLeft<2>(hi), hn::BitCast(di, lowSum));
  return o;
}

template <class DI>
HWY_INLINE hn::Vec<DI> JpegClamp255(DI di, hn::Vec<DI> v) {
  return hn::Min(hn::Max(v, hn::Zero(di)), hn::Set(di, 255));
}

// One row of kH-subsampled chroma (kH = 1 or 2) and its luma row to RGB888.
template <uint32_t kH>
void DecodeRow(const uint8_t* luma, const uint8_t* cr, const uint8_t* cb, uint8_t* out, uint32_t width) {
  using D8 = hn::ScalableTag<uint8_t>;
  using D16 = hn::Repartition<uint16_t, D8>;
  using DI = hn::RebindToSigned<D16>;
  const D8 d8;
  const D16 d16;
  const DI di;
  const hn::Rebind<uint8_t, D16> d8h;
  const size_t N = hn::Lanes(d8);
  const auto signedLanes = [&](hn::Vec<D16> v) { return hn::BitCast(di, v); };
  size_t x = 0;
  for (; x + N <= width; x += N) {
    OffsetLanes<DI> even, odd;
    if constexpr (kH == 2) {
      even = ChromaOffsets(di, signedLanes(hn::PromoteTo(d16, hn::LoadU(d8h, cr + x / 2))),
                           signedLanes(hn::PromoteTo(d16, hn::LoadU(d8h, cb + x / 2))));
      odd = even;
    } else {
      const auto crv = hn::LoadU(d8, cr + x), cbv = hn::LoadU(d8, cb + x);
      even = ChromaOffsets(di, signedLanes(EvenLanes(d8, crv)), signedLanes(EvenLanes(d8, cbv)));
      odd = ChromaOffsets(di, signedLanes(OddLanes(d8, crv)), signedLanes(OddLanes(d8, cbv)));
    }
    const auto yv = hn::LoadU(d8, luma + x);
    const auto ye = signedLanes(EvenLanes(d8, yv)), yo = signedLanes(OddLanes(d8, yv));
    const auto channel = [&](hn::Vec<DI> offEven, hn::Vec<DI> offOdd) {
      return MergeEvenOdd(d8, hn::BitCast(d16, JpegClamp255(di, hn::Add(ye, offEven))),
                          hn::BitCast(d16, JpegClamp255(di, hn::Add(yo, offOdd))));
    };
    hn::StoreInterleaved3(channel(even.r, odd.r), channel(even.g, odd.g), channel(even.b, odd.b), d8, out + 3 * x);
  }
  for (; x < width; ++x) jpeg::WriteRgb(out + 3 * x, luma[x], jpeg::OffsetsOf(cr[x / kH], cb[x / kH]));
}

template <uint32_t kH, uint32_t kV>
void Decode(const uint8_t* srcY, const uint8_t* srcCr, const uint8_t* srcCb, uint32_t width, uint32_t height,
            uint32_t yStride, uint32_t crStride, uint32_t cbStride, uint8_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < height; ++y) {
    DecodeRow<kH>(srcY + static_cast<size_t>(yStride) * y, srcCr + static_cast<size_t>(crStride) * (y / kV),
                  srcCb + static_cast<size_t>(cbStride) * (y / kV), dst + static_cast<size_t>(dstStride) * y, width);
  }
}

#define TVX_JPEG_DECODER_KERNEL(HF, VF)                                                                    \
  void DecodeH##HF##V##VF(const uint8_t* sy, const uint8_t* scr, const uint8_t* scb, uint32_t w, uint32_t h,   \
                          uint32_t ys, uint32_t crs, uint32_t cbs, uint8_t* d, uint32_t ds) {                  \
    Decode<HF, VF>(sy, scr, scb, w, h, ys, crs, cbs, d, ds);                                                  \
  }
TVX_JPEG_DECODER_KERNEL(1, 1)
TVX_JPEG_DECODER_KERNEL(2, 1)
TVX_JPEG_DECODER_KERNEL(2, 2)
TVX_JPEG_DECODER_KERNEL(1, 2)
#undef TVX_JPEG_DECODER_KERNEL

// Luma (9798R + 19235G + 3736B + 16384) >> 15 on u16 lanes: each weight is 256*h + l, the sums
// H = sum(h*c) and L = sum(l*c) stay below 65536, and the result is (H + (L >> 8) + 64) >> 7.
template <class D16>
HWY_INLINE hn::Vec<D16> JpegLumaLanes(D16 d16, hn::Vec<D16> r, hn::Vec<D16> g, hn::Vec<D16> b) {
  const auto h = hn::Add(hn::Add(hn::Mul(r, hn::Set(d16, 38)), hn::Mul(g, hn::Set(d16, 75))),
                         hn::Mul(b, hn::Set(d16, 14)));
  const auto l = hn::Add(hn::Add(hn::Mul(r, hn::Set(d16, 70)), hn::Mul(g, hn::Set(d16, 35))),
                         hn::Mul(b, hn::Set(d16, 152)));
  return hn::ShiftRight<7>(hn::Add(hn::Add(h, hn::ShiftRight<8>(l)), hn::Set(d16, 64)));
}

// Chroma 128 + ((k0*p - k1*q - k2*s + 16384) >> 15) with k0 = 16384 = k1 + k2: replacing q
// and s by 255 - q and 255 - s makes every weight positive and the sum
// 16384p + k1(255-q) + k2(255-s) + 32768, whose >> 15 is the offset result. Split as for
// luma (k = 256*h + l); the only clamp that can bite is 256 -> 255.
template <int kH1, int kL1, int kH2, int kL2, class D16>
HWY_INLINE hn::Vec<D16> JpegChromaLanes(D16 d16, hn::Vec<D16> p, hn::Vec<D16> q, hn::Vec<D16> s) {
  const auto full = hn::Set(d16, 255);
  const auto qn = hn::Sub(full, q), sn = hn::Sub(full, s);
  const auto h = hn::Add(hn::Add(hn::ShiftLeft<6>(p), hn::Mul(qn, hn::Set(d16, kH1))), hn::Mul(sn, hn::Set(d16, kH2)));
  const auto l = hn::Add(hn::Mul(qn, hn::Set(d16, kL1)), hn::Mul(sn, hn::Set(d16, kL2)));
  return hn::Min(hn::ShiftRight<7>(hn::Add(hn::Add(h, hn::ShiftRight<8>(l)), hn::Set(d16, 128))), full);
}

void Encode(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dstY, uint8_t* dstCr,
            uint8_t* dstCb, uint32_t yStride, uint32_t crStride, uint32_t cbStride) {
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const size_t N = hn::Lanes(d8);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = src + static_cast<size_t>(srcStride) * y;
    uint8_t* luma = dstY + static_cast<size_t>(yStride) * y;
    uint8_t* cr = dstCr + static_cast<size_t>(crStride) * y;
    uint8_t* cb = dstCb + static_cast<size_t>(cbStride) * y;
    size_t x = 0;
    for (; x + N <= width; x += N) {
      hn::Vec<decltype(d8)> r, g, b;
      hn::LoadInterleaved3(d8, s + 3 * x, r, g, b);
      const auto re = EvenLanes(d8, r), ge = EvenLanes(d8, g), be = EvenLanes(d8, b);
      const auto ro = OddLanes(d8, r), go = OddLanes(d8, g), bo = OddLanes(d8, b);
      hn::StoreU(MergeEvenOdd(d8, JpegLumaLanes(d16, re, ge, be), JpegLumaLanes(d16, ro, go, bo)), d8, luma + x);
      // Cr: 16384R - 13720G - 2664B (13720 = 53*256 + 152, 2664 = 10*256 + 104).
      hn::StoreU(MergeEvenOdd(d8, JpegChromaLanes<53, 152, 10, 104>(d16, re, ge, be),
                              JpegChromaLanes<53, 152, 10, 104>(d16, ro, go, bo)),
                 d8, cr + x);
      // Cb: 16384B - 5529R - 10855G (5529 = 21*256 + 153, 10855 = 42*256 + 103).
      hn::StoreU(MergeEvenOdd(d8, JpegChromaLanes<21, 153, 42, 103>(d16, be, re, ge),
                              JpegChromaLanes<21, 153, 42, 103>(d16, bo, ro, go)),
                 d8, cb + x);
    }
    for (; x < width; ++x) {
      luma[x] = jpeg::LumaOf(s + 3 * x);
      cr[x] = jpeg::CrOf(s + 3 * x);
      cb[x] = jpeg::CbOf(s + 3 * x);
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(DecodeH1V1);
HWY_EXPORT(DecodeH2V1);
HWY_EXPORT(DecodeH2V2);
HWY_EXPORT(DecodeH1V2);
HWY_EXPORT(Encode);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

#define TVX_JPEG_DECODER_V(HF, VF)                                                                            \
  int32_t tvxColorYCrCbH##HF##V##VF##toRGB888u8V(const uint8_t* srcY, const uint8_t* srcCr, const uint8_t* srcCb,   \
                                                 uint32_t srcWidth, uint32_t srcHeight, uint32_t srcYStride,        \
                                                 uint32_t srcCrStride, uint32_t srcCbStride, uint8_t* dst,           \
                                                 uint32_t dstStride) {                                              \
    HWY_DYNAMIC_DISPATCH(DecodeH##HF##V##VF)(srcY, srcCr, srcCb, srcWidth, srcHeight, srcYStride, srcCrStride,        \
                                           srcCbStride, dst, dstStride);                                            \
    return 0;                                                                                                       \
  }
TVX_JPEG_DECODER_V(1, 1)
TVX_JPEG_DECODER_V(2, 1)
TVX_JPEG_DECODER_V(2, 2)
TVX_JPEG_DECODER_V(1, 2)
#undef TVX_JPEG_DECODER_V

int32_t tvxColorRGB888toYCrCbu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dstY, uint8_t* dstCr, uint8_t* dstCb, uint32_t dstYStride,
                                 uint32_t dstCrStride, uint32_t dstCbStride) {
  HWY_DYNAMIC_DISPATCH(Encode)(src, srcWidth, srcHeight, srcStride, dstY, dstCr, dstCb, dstYStride, dstCrStride,
                               dstCbStride);
  return 0;
}
#endif  // HWY_ONCE
