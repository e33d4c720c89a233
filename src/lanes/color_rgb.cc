// SIMD variants of the packed-RGB conversions: repacking between RGB565, RGB888, RGBA8888 and
// their BGR forms through interleaved loads and stores, and RGB888 to grey in 16-bit lanes.
// Whole vectors of pixels run across each row; the remaining pixels use the per-pixel rules
// of the reference, so nothing past the rectangle is touched.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/color_rgb.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <algorithm>
#include <utility>

#include "cpu/color_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {

#include "lanes/color_pixels.h"

using color::Fmt;

#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSE4
// x86 has no native 3-byte de-interleave, so the 4-byte <-> 3-byte repackings move whole
// pixels instead: a byte shuffle inside each 128-bit block drops (or opens) the alpha byte,
// swapping bytes 0 and 2 where the formats differ, and a 32-bit lane permutation closes (or
// opens) the gaps between blocks. A store writes a full vector of which only the valid part
// counts: rows stop while a whole vector still fits, and the next store or the per-pixel tail
// rewrites the rest. The shuffles are set up once per image.
template <bool kDrop, bool kSwap, class D8>
class AlphaRepack {
 public:
  explicit AlphaRepack(D8 d8) {
    alignas(16) static constexpr uint8_t kKeep[2][16] = {{0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 15, 15, 15, 15},
                                                         {2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, 15, 15, 15, 15}};
    alignas(16) static constexpr uint8_t kOpen[2][16] = {
        {0, 1, 2, 0x80, 3, 4, 5, 0x80, 6, 7, 8, 0x80, 9, 10, 11, 0x80},
        {2, 1, 0, 0x80, 5, 4, 3, 0x80, 8, 7, 6, 0x80, 11, 10, 9, 0x80}};
    bytes_ = hn::LoadDup128(d8, (kDrop ? kKeep : kOpen)[kSwap]);
    const size_t lanes32 = hn::Lanes(d32_);
    int32_t idx[HWY_MAX_BYTES / 4];
    for (size_t i = 0; i < lanes32; ++i) {
      // Dropping: lane i takes lane 4(i/3) + i%3 (the tail lanes are don't-care); opening: the
      // reverse, lane 3 of each group repeating lane 2 (its bytes are replaced by alpha).
      idx[i] = static_cast<int32_t>(kDrop ? (i < lanes32 / 4 * 3 ? i / 3 * 4 + i % 3 : i)
                                          : i / 4 * 3 + std::min<size_t>(i % 4, 2));
    }
    lanes_ = hn::SetTableIndices(d32_, idx);
  }

  // Converts the leading pixels of a row; returns the first pixel left to the tail.
  size_t Row(D8 d8, const uint8_t* s, uint8_t* d, size_t width) const {
    const size_t N = hn::Lanes(d8);
    const auto alpha = hn::BitCast(d8, hn::Set(d32_, 0xFF000000u));
    size_t x = 0;
    for (; 3 * x + N <= 3 * width; x += N / 4) {
      if constexpr (kDrop) {
        const auto packed = hn::TableLookupBytes(hn::LoadU(d8, s + 4 * x), bytes_);
        hn::StoreU(hn::BitCast(d8, hn::TableLookupLanes(hn::BitCast(d32_, packed), lanes_)), d8, d + 3 * x);
      } else {
        const auto spread = hn::TableLookupLanes(hn::BitCast(d32_, hn::LoadU(d8, s + 3 * x)), lanes_);
        hn::StoreU(hn::Or(hn::TableLookupBytesOr0(hn::BitCast(d8, spread), bytes_), alpha), d8, d + 4 * x);
      }
    }
    return x;
  }

 private:
  hn::Repartition<uint32_t, D8> d32_;
  hn::Vec<D8> bytes_;
  decltype(hn::SetTableIndices(hn::Repartition<uint32_t, D8>(), static_cast<const int32_t*>(nullptr))) lanes_;
};
#endif

template <Fmt From, Fmt To>
void Repack(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
            uint32_t dstStride) {
  constexpr size_t kIn = color::BytesPerPixel(From), kOut = color::BytesPerPixel(To);
  const hn::ScalableTag<uint8_t> d8;
  const size_t N = hn::Lanes(d8);
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSE4
  constexpr bool kWholePixels = (kIn == 4 && kOut == 3) || (kIn == 3 && kOut == 4);
  const AlphaRepack<kIn == 4, color::SwapsBytes0And2(From) != color::SwapsBytes0And2(To), decltype(d8)> whole(d8);
#endif
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = color::RowAt(src, srcStride, y);
    uint8_t* d = color::RowAt(dst, dstStride, y);
    size_t x = 0;
#if HWY_ARCH_X86 && HWY_TARGET <= HWY_SSE4
    if constexpr (kWholePixels) x = whole.Row(d8, s, d, width);
#endif
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
