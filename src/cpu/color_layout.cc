// Reference variants of the YCbCr layout changes and of the chroma-pair swap. A layout change
// copies luma and gives every destination chroma sample the source sample under the first
// pixel it covers; one kernel serves all 30 pairs of layouts.
#include <cstring>

#include "cpu/color_layout_rules.h"
#include "frame/frame.h"

using namespace tvx::color;

namespace {

void ChangeLayout(ChromaLayout from, YCbCrIn src, ChromaLayout to, YCbCrOut dst, uint32_t width, uint32_t height) {
  for (uint32_t y = 0; y < height; ++y) std::memcpy(RowAt(dst.y, dst.yStride, y), RowAt(src.y, src.yStride, y), width);
  const uint32_t chromaWidth = ChromaWidth(to.sampling, width);
  for (uint32_t cy = 0; cy < ChromaHeight(to.sampling, height); ++cy) {
    const uint32_t sy = SourceSample(cy, StepY(to.sampling), StepY(from.sampling));
    const uint8_t* scb = RowAt(src.cb, src.cbStride, sy);
    const uint8_t* scr = from.planar ? RowAt(src.cr, src.crStride, sy) : nullptr;
    uint8_t* dcb = RowAt(dst.cb, dst.cbStride, cy);
    uint8_t* dcr = to.planar ? RowAt(dst.cr, dst.crStride, cy) : nullptr;
    for (uint32_t cx = 0; cx < chromaWidth; ++cx) {
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
