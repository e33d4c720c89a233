// Shared shape of the YCbCr layout changes: the planes of one image, the sampling steps, the
// rule that maps a destination chroma sample to its source sample, and the parameter lists of
// the 30 layout-change entries (every pair of the six layouts that differ), so the reference
// and SIMD files define their variants as one-line instantiations of one generic kernel.
#pragma once

#include <cstdint>

#include "cpu/color_rules.h"

namespace tvx::color {

// A chroma layout: resolution and whether Cb and Cr have planes of their own (planar) or share
// one plane of (Cb, Cr) pairs (pseudo-planar).
struct ChromaLayout {
  Sampling sampling;
  bool planar;
};

// Planes of one YCbCr image; pseudo-planar uses cb for the pairs and leaves cr null.
template <typename Byte>
struct YCbCrPlanes {
  Byte* y;
  Byte* cb;
  Byte* cr;
  uint32_t yStride, cbStride, crStride;
};
using YCbCrIn = YCbCrPlanes<const uint8_t>;
using YCbCrOut = YCbCrPlanes<uint8_t>;

constexpr uint32_t StepX(Sampling s) { return s == Sampling::k444 ? 1 : 2; }
constexpr uint32_t StepY(Sampling s) { return s == Sampling::k420 ? 2 : 1; }
// Chroma samples per row and chroma rows: an odd last column or row keeps a sample of its own.
constexpr uint32_t ChromaWidth(Sampling s, uint32_t width) { return (width + StepX(s) - 1) / StepX(s); }
constexpr uint32_t ChromaHeight(Sampling s, uint32_t height) { return (height + StepY(s) - 1) / StepY(s); }

// Along one axis, destination chroma sample i covers pixels from i * dstStep on; it takes the
// source sample under that first pixel. Sampling down thereby keeps the even column or row,
// sampling up replicates.
constexpr uint32_t SourceSample(uint32_t i, uint32_t dstStep, uint32_t srcStep) { return i * dstStep / srcStep; }

}  // namespace tvx::color

// ---- parameter lists of the layout-change entries, by layout kind --------------------------

#define TVX_LAYOUT_PLANAR_Planar true
#define TVX_LAYOUT_PLANAR_PseudoPlanar false

#define TVX_LAYOUT_SRC_PARAMS_Planar                                                                \
  const uint8_t *srcY, const uint8_t *srcCb, const uint8_t *srcCr, uint32_t srcWidth, uint32_t srcHeight, \
      uint32_t srcYStride, uint32_t srcCbStride, uint32_t srcCrStride
#define TVX_LAYOUT_SRC_PARAMS_PseudoPlanar \
  const uint8_t *srcY, const uint8_t *srcC, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcYStride, uint32_t srcCStride
#define TVX_LAYOUT_DST_PARAMS_Planar \
  uint8_t *dstY, uint8_t *dstCb, uint8_t *dstCr, uint32_t dstYStride, uint32_t dstCbStride, uint32_t dstCrStride
#define TVX_LAYOUT_DST_PARAMS_PseudoPlanar uint8_t *dstY, uint8_t *dstC, uint32_t dstYStride, uint32_t dstCStride

#define TVX_LAYOUT_SRC_Planar \
  tvx::color::YCbCrIn { srcY, srcCb, srcCr, srcYStride, srcCbStride, srcCrStride }
#define TVX_LAYOUT_SRC_PseudoPlanar \
  tvx::color::YCbCrIn { srcY, srcC, nullptr, srcYStride, srcCStride, 0 }
#define TVX_LAYOUT_DST_Planar \
  tvx::color::YCbCrOut { dstY, dstCb, dstCr, dstYStride, dstCbStride, dstCrStride }
#define TVX_LAYOUT_DST_PseudoPlanar \
  tvx::color::YCbCrOut { dstY, dstC, nullptr, dstYStride, dstCStride, 0 }

#define TVX_LAYOUT_OF(S, P) \
  tvx::color::ChromaLayout { tvx::color::Sampling::k##S, TVX_LAYOUT_PLANAR_##P }

// Defines tvxColorYCbCr<S><P>ToYCbCr<T><Q>u8<SUFFIX> as a call of KERNEL(from, src, to, dst,
// width, height).
#define TVX_LAYOUT_VARIANT(SUFFIX, KERNEL, S, P, T, Q)                                               \
  void tvxColorYCbCr##S##P##ToYCbCr##T##Q##u8##SUFFIX(TVX_LAYOUT_SRC_PARAMS_##P, TVX_LAYOUT_DST_PARAMS_##Q) { \
    KERNEL(TVX_LAYOUT_OF(S, P), TVX_LAYOUT_SRC_##P, TVX_LAYOUT_OF(T, Q), TVX_LAYOUT_DST_##Q, srcWidth, srcHeight); \
  }

// Every pair of distinct layouts: X(from sampling, from kind, to sampling, to kind).
#define TVX_COLOR_LAYOUT_PAIRS(X) \
  X(444, Planar, 444, PseudoPlanar) X(444, Planar, 422, Planar) X(444, Planar, 422, PseudoPlanar) \
  X(444, Planar, 420, Planar) X(444, Planar, 420, PseudoPlanar) \
  X(444, PseudoPlanar, 444, Planar) X(444, PseudoPlanar, 422, Planar) X(444, PseudoPlanar, 422, PseudoPlanar) \
  X(444, PseudoPlanar, 420, Planar) X(444, PseudoPlanar, 420, PseudoPlanar) \
  X(422, Planar, 444, Planar) X(422, Planar, 444, PseudoPlanar) X(422, Planar, 422, PseudoPlanar) \
  X(422, Planar, 420, Planar) X(422, Planar, 420, PseudoPlanar) \
  X(422, PseudoPlanar, 444, Planar) X(422, PseudoPlanar, 444, PseudoPlanar) X(422, PseudoPlanar, 422, Planar) \
  X(422, PseudoPlanar, 420, Planar) X(422, PseudoPlanar, 420, PseudoPlanar) \
  X(420, Planar, 444, Planar) X(420, Planar, 444, PseudoPlanar) X(420, Planar, 422, Planar) \
  X(420, Planar, 422, PseudoPlanar) X(420, Planar, 420, PseudoPlanar) \
  X(420, PseudoPlanar, 444, Planar) X(420, PseudoPlanar, 444, PseudoPlanar) X(420, PseudoPlanar, 422, Planar) \
  X(420, PseudoPlanar, 422, PseudoPlanar) X(420, PseudoPlanar, 420, Planar)

// The horizontal chroma resampling helpers as calls of KERNEL(from, src, to, dst, width, height),
// which resamples the chroma rows of a layout change and leaves luma alone. Each helper is one
// pair of (sampling, kind) layouts; 4:4:4 and 4:2:2 only stand for full and half width here.
#define TVX_RESAMPLE_CHROMA_IN_PseudoPlanar const uint8_t *src, uint32_t width, uint32_t height, uint32_t srcStride
#define TVX_RESAMPLE_CHROMA_IN_Planar                                                             \
  const uint8_t *srcCb, const uint8_t *srcCr, uint32_t width, uint32_t height, uint32_t srcCbStride, \
      uint32_t srcCrStride
#define TVX_RESAMPLE_CHROMA_OUT_PseudoPlanar uint8_t *dst, uint32_t dstStride
#define TVX_RESAMPLE_CHROMA_OUT_Planar uint8_t *dstCb, uint8_t *dstCr, uint32_t dstCbStride, uint32_t dstCrStride
#define TVX_RESAMPLE_SRC_PseudoPlanar {nullptr, src, nullptr, 0, srcStride, 0}
#define TVX_RESAMPLE_SRC_Planar {nullptr, srcCb, srcCr, 0, srcCbStride, srcCrStride}
#define TVX_RESAMPLE_DST_PseudoPlanar {nullptr, dst, nullptr, 0, dstStride, 0}
#define TVX_RESAMPLE_DST_Planar {nullptr, dstCb, dstCr, 0, dstCbStride, dstCrStride}

#define TVX_RESAMPLE_HELPER(NAME, SUFFIX, KERNEL, S, P, T, Q)                                                 \
  void NAME##SUFFIX(TVX_RESAMPLE_CHROMA_IN_##P, TVX_RESAMPLE_CHROMA_OUT_##Q) {                                \
    KERNEL(TVX_LAYOUT_OF(S, P), TVX_RESAMPLE_SRC_##P, TVX_LAYOUT_OF(T, Q), TVX_RESAMPLE_DST_##Q, width, height); \
  }
#define TVX_RESAMPLE_HELPERS(SUFFIX, KERNEL)                                                                     \
  TVX_RESAMPLE_HELPER(downsample_horizontal_i, SUFFIX, KERNEL, 444, PseudoPlanar, 422, PseudoPlanar)            \
  TVX_RESAMPLE_HELPER(downsample_and_interleave_horizontal, SUFFIX, KERNEL, 444, Planar, 422, PseudoPlanar)     \
  TVX_RESAMPLE_HELPER(upsample_and_interleave_horizontal, SUFFIX, KERNEL, 422, Planar, 444, PseudoPlanar)       \
  TVX_RESAMPLE_HELPER(downsample_and_deinterleave_horizontal, SUFFIX, KERNEL, 444, PseudoPlanar, 422, Planar)   \
  TVX_RESAMPLE_HELPER(upsample_and_deinterleave_horizontal, SUFFIX, KERNEL, 422, PseudoPlanar, 444, Planar)
