// Reference variants of the polyphase scaler: a 4-tap Catmull-Rom cubic in 32 phases per axis
// (taps in 1/64), source indices clamped to the image, one rounding at the end.
#include <cstddef>

#include "cpu/scale_general_taps.h"
#include "frame/frame.h"

namespace {

void Poly(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst, uint32_t dstWidth,
          uint32_t dstHeight, uint32_t dstStride, uint32_t ch) {
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const tvxsg::PolyTap ty = tvxsg::PolyAt(y, srcHeight, dstHeight);
    uint8_t* out = dst + static_cast<size_t>(y) * dstStride;
    for (uint32_t x = 0; x < dstWidth; ++x) {
      const tvxsg::PolyTap tx = tvxsg::PolyAt(x, srcWidth, dstWidth);
      for (uint32_t c = 0; c < ch; ++c) {
        int32_t sum = 0;
        for (int j = 0; j < 4; ++j) {
          const uint8_t* row = src + static_cast<size_t>(tvxsg::Clamp(int64_t{ty.i0} - 1 + j, srcHeight)) * srcStride;
          for (int i = 0; i < 4; ++i) {
            const int32_t sx = tvxsg::Clamp(int64_t{tx.i0} - 1 + i, srcWidth);
            sum += tvxsg::kPolyTable[ty.phase][j] * tvxsg::kPolyTable[tx.phase][i] * row[sx * ch + c];
          }
        }
        const int32_t v = (sum + 2048) >> 12;  // arithmetic shift: overshoots below 0 stay negative
        out[x * ch + c] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
      }
    }
  }
}

}  // namespace

void tvxScaleUpPolyu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  Poly(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, 1);
}

void tvxScaleUpPolyInterleaveu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  Poly(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, 2);
}
