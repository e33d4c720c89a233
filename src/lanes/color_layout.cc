// SIMD variants of the YCbCr layout changes and of the chroma-pair swap. One exported kernel
// serves all 30 layout pairs: per chroma row it picks a row routine by (source kind,
// destination kind, horizontal ratio). Sampling down de-interleaves and keeps the even
// samples, sampling up widens every byte to a 16-bit lane holding it twice, which keeps lane
// order on every vector width. Luma rows are plain copies.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/color_layout.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstring>

#include "cpu/color_layout_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;
using color::ChromaLayout;
using color::YCbCrIn;
using color::YCbCrOut;

// Horizontal relation of destination to source chroma: same count, half (keep the even
// samples) or double (each sample twice).
enum Ratio { kSame, kHalf, kDouble };

template <bool kPlanar, class D8>
HWY_INLINE void StoreChroma(D8 d8, hn::Vec<D8> cb, hn::Vec<D8> cr, uint8_t* dcb, uint8_t* dcr, size_t at) {
  if constexpr (kPlanar) {
    hn::StoreU(cb, d8, dcb + at);
    hn::StoreU(cr, d8, dcr + at);
  } else {
    hn::StoreInterleaved2(cb, cr, d8, dcb + 2 * at);
  }
}

template <bool kPlanar, class D8>
HWY_INLINE void LoadChroma(D8 d8, const uint8_t* scb, const uint8_t* scr, size_t at, hn::Vec<D8>& cb,
                           hn::Vec<D8>& cr) {
  if constexpr (kPlanar) {
    cb = hn::LoadU(d8, scb + at);
    cr = hn::LoadU(d8, scr + at);
  } else {
    hn::LoadInterleaved2(d8, scb + 2 * at, cb, cr);
  }
}

// Each byte of the lower (kUpper false) or upper half of v, twice.
template <bool kUpper, class D8>
HWY_INLINE hn::Vec<D8> Doubled(D8 d8, hn::Vec<D8> v) {
  const hn::Repartition<uint16_t, D8> d16;
  const hn::Half<D8> d8h;
  const auto wide = hn::PromoteTo(d16, kUpper ? hn::UpperHalf(d8h, v) : hn::LowerHalf(d8h, v));
  return hn::BitCast(d8, hn::Or(wide, hn::ShiftLeft<8>(wide)));
}

// One chroma row: dstCount destination samples from srcCount source samples.
template <bool kSrcPlanar, bool kDstPlanar, Ratio kRatio>
void ChromaRow(const uint8_t* scb, const uint8_t* scr, uint32_t srcCount, uint8_t* dcb, uint8_t* dcr,
               uint32_t dstCount) {
  const hn::ScalableTag<uint8_t> d8;
  const size_t N = hn::Lanes(d8);
  using V = hn::Vec<decltype(d8)>;
  size_t x = 0;
  if constexpr (kRatio == kSame) {
    for (; x + N <= dstCount; x += N) {
      V cb, cr;
      LoadChroma<kSrcPlanar>(d8, scb, scr, x, cb, cr);
      StoreChroma<kDstPlanar>(d8, cb, cr, dcb, dcr, x);
    }
  } else if constexpr (kRatio == kHalf) {
    for (; x + N <= dstCount && 2 * (x + N) <= srcCount; x += N) {
      V cb, cr, oddCb, oddCr;
      if constexpr (kSrcPlanar) {
        hn::LoadInterleaved2(d8, scb + 2 * x, cb, oddCb);
        hn::LoadInterleaved2(d8, scr + 2 * x, cr, oddCr);
      } else {
        hn::LoadInterleaved4(d8, scb + 4 * x, cb, cr, oddCb, oddCr);
      }
      StoreChroma<kDstPlanar>(d8, cb, cr, dcb, dcr, x);
    }
  } else {
    for (; x + 2 * N <= dstCount && x / 2 + N <= srcCount; x += 2 * N) {
      V cb, cr;
      LoadChroma<kSrcPlanar>(d8, scb, scr, x / 2, cb, cr);
      StoreChroma<kDstPlanar>(d8, Doubled<false>(d8, cb), Doubled<false>(d8, cr), dcb, dcr, x);
      StoreChroma<kDstPlanar>(d8, Doubled<true>(d8, cb), Doubled<true>(d8, cr), dcb, dcr, x + N);
    }
  }
  for (; x < dstCount; ++x) {
    const size_t i = kRatio == kHalf ? 2 * x : (kRatio == kDouble ? x / 2 : x);
    const uint8_t cb = kSrcPlanar ? scb[i] : scb[2 * i];
    const uint8_t cr = kSrcPlanar ? scr[i] : scb[2 * i + 1];
    if constexpr (kDstPlanar) {
      dcb[x] = cb;
      dcr[x] = cr;
    } else {
      dcb[2 * x] = cb;
      dcb[2 * x + 1] = cr;
    }
  }
}

typedef void (*ChromaRowFn)(const uint8_t*, const uint8_t*, uint32_t, uint8_t*, uint8_t*, uint32_t);

template <Ratio kRatio>
ChromaRowFn PickRow(bool srcPlanar, bool dstPlanar) {
  if (srcPlanar) return dstPlanar ? ChromaRow<true, true, kRatio> : ChromaRow<true, false, kRatio>;
  return dstPlanar ? ChromaRow<false, true, kRatio> : ChromaRow<false, false, kRatio>;
}

ChromaRowFn RowFor(const ChromaLayout& from, const ChromaLayout& to) {
  const uint32_t fromX = color::StepX(from.sampling), toX = color::StepX(to.sampling);
  if (fromX == toX) return PickRow<kSame>(from.planar, to.planar);
  return fromX < toX ? PickRow<kHalf>(from.planar, to.planar) : PickRow<kDouble>(from.planar, to.planar);
}

void ChangeLayout(const ChromaLayout& from, const YCbCrIn& src, const ChromaLayout& to, const YCbCrOut& dst,
                  uint32_t width, uint32_t height) {
  for (uint32_t y = 0; y < height; ++y)
    std::memcpy(color::RowAt(dst.y, dst.yStride, y), color::RowAt(src.y, src.yStride, y), width);
  const ChromaRowFn row = RowFor(from, to);
  const uint32_t srcCount = color::ChromaWidth(from.sampling, width);
  const uint32_t dstCount = color::ChromaWidth(to.sampling, width);
  for (uint32_t cy = 0; cy < color::ChromaHeight(to.sampling, height); ++cy) {
    const uint32_t sy = color::SourceSample(cy, color::StepY(to.sampling), color::StepY(from.sampling));
    row(color::RowAt(src.cb, src.cbStride, sy), from.planar ? color::RowAt(src.cr, src.crStride, sy) : nullptr,
        srcCount, color::RowAt(dst.cb, dst.cbStride, cy), to.planar ? color::RowAt(dst.cr, dst.crStride, cy) : nullptr,
        dstCount);
  }
}

// The horizontal chroma resampling helpers: the chroma rows of a layout change, no luma and no
// vertical resampling; width is the full-resolution sample count.
void ResampleChroma(const ChromaLayout& from, const YCbCrIn& src, const ChromaLayout& to, const YCbCrOut& dst,
                    uint32_t width, uint32_t height) {
  const ChromaRowFn row = RowFor(from, to);
  const uint32_t srcCount = color::ChromaWidth(from.sampling, width);
  const uint32_t dstCount = color::ChromaWidth(to.sampling, width);
  for (uint32_t y = 0; y < height; ++y)
    row(color::RowAt(src.cb, src.cbStride, y), from.planar ? color::RowAt(src.cr, src.crStride, y) : nullptr,
        srcCount, color::RowAt(dst.cb, dst.cbStride, y), to.planar ? color::RowAt(dst.cr, dst.crStride, y) : nullptr,
        dstCount);
}

// One plane to half width, keeping the even samples.
void EvenSamples(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                 uint32_t dstStride) {
  const hn::ScalableTag<uint8_t> d8;
  const size_t N = hn::Lanes(d8);
  const size_t count = (width + 1) / 2;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = color::RowAt(src, srcStride, y);
    uint8_t* d = color::RowAt(dst, dstStride, y);
    size_t x = 0;
    for (; 2 * (x + N) <= width; x += N) {
      hn::Vec<decltype(d8)> even, odd;
      hn::LoadInterleaved2(d8, s + 2 * x, even, odd);
      hn::StoreU(even, d8, d + x);
    }
    for (; x < count; ++x) d[x] = s[2 * x];
  }
}

// Swaps the bytes of every 16-bit lane; a pair starts at every even byte of the row.
void SwapPairs(const uint8_t* src, uint32_t pairs, uint32_t height, uint32_t srcStride, uint8_t* dst,
               uint32_t dstStride) {
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const size_t N = hn::Lanes(d8);
  const size_t bytes = static_cast<size_t>(pairs) * 2;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = color::RowAt(src, srcStride, y);
    uint8_t* d = color::RowAt(dst, dstStride, y);
    size_t i = 0;
    for (; i + N <= bytes; i += N) {
      const auto w = hn::BitCast(d16, hn::LoadU(d8, s + i));
      hn::StoreU(hn::BitCast(d8, hn::Or(hn::ShiftLeft<8>(w), hn::ShiftRight<8>(w))), d8, d + i);
    }
    for (; i < bytes; i += 2) {
      const uint8_t first = s[i], second = s[i + 1];
      d[i] = second;
      d[i + 1] = first;
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(ChangeLayout);
HWY_EXPORT(SwapPairs);
HWY_EXPORT(ResampleChroma);
HWY_EXPORT(EvenSamples);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

#define TVX_LAYOUT_V(S, P, T, Q) TVX_LAYOUT_VARIANT(V, HWY_DYNAMIC_DISPATCH(ChangeLayout), S, P, T, Q)
TVX_COLOR_LAYOUT_PAIRS(TVX_LAYOUT_V)
#undef TVX_LAYOUT_V

void tvxColorCbCrSwapu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                         uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(SwapPairs)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

void downsample_horizontalV(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                            uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(EvenSamples)(src, width, height, srcStride, dst, dstStride);
}
TVX_RESAMPLE_HELPERS(V, HWY_DYNAMIC_DISPATCH(ResampleChroma))
#endif  // HWY_ONCE
