// Reference variants of the packed-RGB conversions: repacking between RGB565, RGB888,
// RGBA8888 and their BGR forms, and RGB888 to grey. Every repacking is one template over the
// source and destination pixel formats.
#include "cpu/color_rules.h"
#include "frame/frame.h"

using namespace tvx::color;

namespace {

template <Fmt From, Fmt To>
void Repack(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
            uint32_t dstStride) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = RowAt(src, srcStride, y);
    uint8_t* d = RowAt(dst, dstStride, y);
    for (uint32_t x = 0; x < width; ++x)
      WritePixel<To>(d + x * BytesPerPixel(To), ReadPixel<From>(s + x * BytesPerPixel(From)));
  }
}

}  // namespace

#define TVX_COLOR_REPACK_C(F, T)                                                                  \
  void tvxColor##F##To##T##u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,         \
                                   uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {            \
    Repack<Fmt::k##F, Fmt::k##T>(src, srcWidth, srcHeight, srcStride, dst, dstStride);            \
  }

TVX_COLOR_REPACK_C(RGB565, RGB888)
TVX_COLOR_REPACK_C(RGB565, RGBA8888)
TVX_COLOR_REPACK_C(RGB565, BGR565)
TVX_COLOR_REPACK_C(RGB565, BGR888)
TVX_COLOR_REPACK_C(RGB565, BGRA8888)
TVX_COLOR_REPACK_C(RGB888, RGB565)
TVX_COLOR_REPACK_C(RGB888, RGBA8888)
TVX_COLOR_REPACK_C(RGB888, BGR565)
TVX_COLOR_REPACK_C(RGB888, BGR888)
TVX_COLOR_REPACK_C(RGB888, BGRA8888)
TVX_COLOR_REPACK_C(RGBA8888, RGB565)
TVX_COLOR_REPACK_C(RGBA8888, RGB888)
TVX_COLOR_REPACK_C(RGBA8888, BGR565)
TVX_COLOR_REPACK_C(RGBA8888, BGR888)
TVX_COLOR_REPACK_C(RGBA8888, BGRA8888)

void tvxColorRGB888ToGrayu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* s = RowAt(src, srcStride, y);
    uint8_t* d = RowAt(dst, dstStride, y);
    for (uint32_t x = 0; x < srcWidth; ++x) d[x] = GrayOf(s + 3 * x);
  }
}
