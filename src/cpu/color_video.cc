// Reference variants of the video-range decoders and of the conversions that write the image
// rotated by 180 degrees (pixel (x, y) lands at (width-1-x, height-1-y)).
#include "cpu/color_video_rules.h"
#include "frame/frame.h"

using namespace tvx::color;

namespace {

// Packed 4:2:0 planes to packed RGB565 rows; every chroma sample serves its 2x2 block.
void Yuv420ToRgb565(const uint8_t* src, uint32_t width, uint32_t height, uint8_t* dst, bool rotate) {
  const Yuv420Planes p = SplitYuv420(src, width, height);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* luma = p.y + static_cast<size_t>(width) * y;
    const uint8_t* u = p.u + static_cast<size_t>(p.chromaWidth) * (y / 2);
    const uint8_t* v = p.v + static_cast<size_t>(p.chromaWidth) * (y / 2);
    const uint32_t outY = rotate ? height - 1 - y : y;
    uint8_t* out = dst + static_cast<size_t>(width) * 2 * outY;
    for (uint32_t x = 0; x < width; ++x) {
      const uint32_t outX = rotate ? width - 1 - x : x;
      StoreWord(out + 2 * outX, VideoRgb565Of(luma[x], u[x / 2], v[x / 2]));
    }
  }
}

}  // namespace

void tvxColorYUV420toRGB565u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint8_t* dst) {
  Yuv420ToRgb565(src, srcWidth, srcHeight, dst, false);
}

void tvxColorYUV420toRGB565u8Rotate180C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint8_t* dst) {
  Yuv420ToRgb565(src, srcWidth, srcHeight, dst, true);
}

void tvxColorYCrCb420PseudoPlanarToRGB8888u8C(const uint8_t* srcY, const uint8_t* srcC, uint32_t srcWidth,
                                              uint32_t srcHeight, uint32_t srcYStride, uint32_t srcCStride,
                                              uint8_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* luma = RowAt(srcY, srcYStride, y);
    const uint8_t* pairs = RowAt(srcC, srcCStride, y / 2);
    uint8_t* out = RowAt(dst, dstStride, y);
    for (uint32_t x = 0; x < srcWidth; ++x) WriteVideoRgba(out + 4 * x, luma[x], pairs[x / 2 * 2], pairs[x / 2 * 2 + 1]);
  }
}

void tvxColorRGB888ToRGB565Rotate180u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                        uint8_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* s = RowAt(src, srcStride, y);
    uint8_t* out = RowAt(dst, dstStride, srcHeight - 1 - y);
    for (uint32_t x = 0; x < srcWidth; ++x) {
      const uint8_t* px = s + 3 * x;
      StoreWord(out + 2 * (srcWidth - 1 - x), Pack565(px[0], px[1], px[2]));
    }
  }
}
