// SIMD variants of the packed-RGB conversions: repacking between RGB565, RGB888, RGBA8888 and
// their BGR forms through interleaved loads and stores, and RGB888 to grey in 16-bit lanes.
// Whole vectors of pixels run across each row; the remaining pixels use the per-pixel rules
// of the reference, so nothing past the rectangle is touched.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/color_rgb.cc"
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

template <Fmt From, Fmt To>
void Repack(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
            uint32_t dstStride) {
  constexpr size_t kIn = color::BytesPerPixel(From), kOut = color::BytesPerPixel(To);
  const hn::ScalableTag<uint8_t> d8;
  const size_t N = hn::Lanes(d8);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = color::RowAt(src, srcStride, y);
    uint8_t* d = color::RowAt(dst, dstStride, y);
    size_t x = 0;
    for (; x + N <= width; x += N) StorePixels<To>(d8, LoadPixels<From>(d8, s + x * kIn), d + x * kOut);
    for (; x < width; ++x) color::WritePixel<To>(d + x * kOut, color::ReadPixel<From>(s + x * kIn));
  }
}

#define TVX_COLOR_REPACK_KERNEL(F, T)                                                              \
  void F##To##T(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst, \
                    uint32_t dstStride) {                                                               \
    Repack<Fmt::k##F, Fmt::k##T>(src, width, height, srcStride, dst, dstStride);                   \
  }
TVX_COLOR_REPACK_KERNEL(RGB565, RGB888)
TVX_COLOR_REPACK_KERNEL(RGB565, RGBA8888)
TVX_COLOR_REPACK_KERNEL(RGB565, BGR565)
TVX_COLOR_REPACK_KERNEL(RGB565, BGR888)
TVX_COLOR_REPACK_KERNEL(RGB565, BGRA8888)
TVX_COLOR_REPACK_KERNEL(RGB888, RGB565)
TVX_COLOR_REPACK_KERNEL(RGB888, RGBA8888)
TVX_COLOR_REPACK_KERNEL(RGB888, BGR565)
TVX_COLOR_REPACK_KERNEL(RGB888, BGR888)
TVX_COLOR_REPACK_KERNEL(RGB888, BGRA8888)
TVX_COLOR_REPACK_KERNEL(RGBA8888, RGB565)
TVX_COLOR_REPACK_KERNEL(RGBA8888, RGB888)
TVX_COLOR_REPACK_KERNEL(RGBA8888, BGR565)
TVX_COLOR_REPACK_KERNEL(RGBA8888, BGR888)
TVX_COLOR_REPACK_KERNEL(RGBA8888, BGRA8888)
#undef TVX_COLOR_REPACK_KERNEL

// Grey of u16 lanes holding bytes 0-255. The 16-bit weights w = 256*h + l split the 32-bit
// sum into H = sum(h*b) and L = sum(l*b), both below 65536, and
// (256*H + L + 32768) >> 16 == (H + (L >> 8) + 128) >> 8 exactly.
template <class D16>
HWY_INLINE hn::Vec<D16> GrayLanes(D16 d16, hn::Vec<D16> b0, hn::Vec<D16> b1, hn::Vec<D16> b2) {
  const auto h = hn::Add(hn::Add(hn::Mul(b0, hn::Set(d16, 76)), hn::Mul(b1, hn::Set(d16, 150))),
                         hn::Mul(b2, hn::Set(d16, 29)));
  const auto l = hn::Add(hn::Add(hn::Mul(b0, hn::Set(d16, 139)), hn::Mul(b1, hn::Set(d16, 69))),
                         hn::Mul(b2, hn::Set(d16, 47)));
  return hn::ShiftRight<8>(hn::Add(hn::Add(h, hn::ShiftRight<8>(l)), hn::Set(d16, 128)));
}

void RGB888ToGray(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                  uint32_t dstStride) {
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const size_t N = hn::Lanes(d8);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = color::RowAt(src, srcStride, y);
    uint8_t* d = color::RowAt(dst, dstStride, y);
    size_t x = 0;
    for (; x + N <= width; x += N) {
      const auto p = LoadPixels<Fmt::kRGB888>(d8, s + 3 * x);
      const auto even = GrayLanes(d16, EvenLanes(d8, p.b0), EvenLanes(d8, p.b1), EvenLanes(d8, p.b2));
      const auto odd = GrayLanes(d16, OddLanes(d8, p.b0), OddLanes(d8, p.b1), OddLanes(d8, p.b2));
      hn::StoreU(MergeEvenOdd(d8, even, odd), d8, d + x);
    }
    for (; x < width; ++x) d[x] = color::GrayOf(s + 3 * x);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(RGB565ToRGB888);
HWY_EXPORT(RGB565ToRGBA8888);
HWY_EXPORT(RGB565ToBGR565);
HWY_EXPORT(RGB565ToBGR888);
HWY_EXPORT(RGB565ToBGRA8888);
HWY_EXPORT(RGB888ToRGB565);
HWY_EXPORT(RGB888ToRGBA8888);
HWY_EXPORT(RGB888ToBGR565);
HWY_EXPORT(RGB888ToBGR888);
HWY_EXPORT(RGB888ToBGRA8888);
HWY_EXPORT(RGBA8888ToRGB565);
HWY_EXPORT(RGBA8888ToRGB888);
HWY_EXPORT(RGBA8888ToBGR565);
HWY_EXPORT(RGBA8888ToBGR888);
HWY_EXPORT(RGBA8888ToBGRA8888);
HWY_EXPORT(RGB888ToGray);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

#define TVX_COLOR_REPACK_V(F, T)                                                                  \
  void tvxColor##F##To##T##u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,         \
                                   uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {            \
    HWY_DYNAMIC_DISPATCH(F##To##T)(src, srcWidth, srcHeight, srcStride, dst, dstStride);          \
  }
TVX_COLOR_REPACK_V(RGB565, RGB888)
TVX_COLOR_REPACK_V(RGB565, RGBA8888)
TVX_COLOR_REPACK_V(RGB565, BGR565)
TVX_COLOR_REPACK_V(RGB565, BGR888)
TVX_COLOR_REPACK_V(RGB565, BGRA8888)
TVX_COLOR_REPACK_V(RGB888, RGB565)
TVX_COLOR_REPACK_V(RGB888, RGBA8888)
TVX_COLOR_REPACK_V(RGB888, BGR565)
TVX_COLOR_REPACK_V(RGB888, BGR888)
TVX_COLOR_REPACK_V(RGB888, BGRA8888)
TVX_COLOR_REPACK_V(RGBA8888, RGB565)
TVX_COLOR_REPACK_V(RGBA8888, RGB888)
TVX_COLOR_REPACK_V(RGBA8888, BGR565)
TVX_COLOR_REPACK_V(RGBA8888, BGR888)
TVX_COLOR_REPACK_V(RGBA8888, BGRA8888)

void tvxColorRGB888ToGrayu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(RGB888ToGray)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
#endif  // HWY_ONCE
