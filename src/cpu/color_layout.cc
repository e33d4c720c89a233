// Reference variants of the YCbCr layout changes and of the chroma-pair swap. A layout change
// copies luma and gives every destination chroma sample the source sample under the first
// pixel it covers; one kernel serves all 30 pairs of layouts.
#include <cstring>

#include "cpu/color_layout_rules.h"
#include "frame/frame.h"

using namespace tvx::color;

namespace {

// One chroma row: destination sample cx takes the source sample under the first pixel it
// covers; planar rows keep Cb and Cr in planes of their own, pseudo-planar rows in pairs.
void ChromaRow(ChromaLayout from, const uint8_t* scb, const uint8_t* scr, ChromaLayout to, uint8_t* dcb, uint8_t* dcr,
               uint32_t count) {
  for (uint32_t cx = 0; cx < count; ++cx) {
    const uint32_t sx = SourceSample(cx, StepX(to.sampling), StepX(from.sampling));
    const uint8_t cb = from.planar ? scb[sx] : scb[2 * sx];
    const uint8_t cr = from.planar ? scr[sx] : scb[2 * sx + 1];
    if (to.planar) {
      dcb[cx] = cb;
      dcr[cx] = cr;
    } else {
      dcb[2 * cx] = cb;
      dcb[2 * cx + 1] = cr;
    }
  }
}

void ChangeLayout(ChromaLayout from, YCbCrIn src, ChromaLayout to, YCbCrOut dst, uint32_t width, uint32_t height) {
  for (uint32_t y = 0; y < height; ++y) std::memcpy(RowAt(dst.y, dst.yStride, y), RowAt(src.y, src.yStride, y), width);
  const uint32_t chromaWidth = ChromaWidth(to.sampling, width);
  for (uint32_t cy = 0; cy < ChromaHeight(to.sampling, height); ++cy) {
    const uint32_t sy = SourceSample(cy, StepY(to.sampling), StepY(from.sampling));
    ChromaRow(from, RowAt(src.cb, src.cbStride, sy), from.planar ? RowAt(src.cr, src.crStride, sy) : nullptr, to,
              RowAt(dst.cb, dst.cbStride, cy), to.planar ? RowAt(dst.cr, dst.crStride, cy) : nullptr, chromaWidth);
  }
}

// The horizontal chroma resampling helpers: the chroma rows of a layout change without luma
// or vertical resampling. width is the full-resolution sample count.
void ResampleChroma(ChromaLayout from, YCbCrIn src, ChromaLayout to, YCbCrOut dst, uint32_t width, uint32_t height) {
  for (uint32_t y = 0; y < height; ++y)
    ChromaRow(from, RowAt(src.cb, src.cbStride, y), from.planar ? RowAt(src.cr, src.crStride, y) : nullptr, to,
              RowAt(dst.cb, dst.cbStride, y), to.planar ? RowAt(dst.cr, dst.crStride, y) : nullptr,
              ChromaWidth(to.sampling, width));
}

}  // namespace

#define TVX_LAYOUT_C(S, P, T, Q) TVX_LAYOUT_VARIANT(C, ChangeLayout, S, P, T, Q)
TVX_COLOR_LAYOUT_PAIRS(TVX_LAYOUT_C)
#undef TVX_LAYOUT_C

// Each pair is read whole before it is written, so dst may be src (equal strides).
void tvxColorCbCrSwapu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                         uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* s = RowAt(src, srcStride, y);
    uint8_t* d = RowAt(dst, dstStride, y);
    for (uint32_t i = 0; i < srcWidth; ++i) {
      const uint8_t first = s[2 * i], second = s[2 * i + 1];
      d[2 * i] = second;
      d[2 * i + 1] = first;
    }
  }
}

// ---- horizontal chroma resampling (internal helpers) ------------------------------------------

void downsample_horizontalC(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                            uint32_t dstStride) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = RowAt(src, srcStride, y);
    uint8_t* d = RowAt(dst, dstStride, y);
    for (uint32_t x = 0; x < (width + 1) / 2; ++x) d[x] = s[2 * x];
  }
}

TVX_RESAMPLE_HELPERS(C, ResampleChroma)
