// SIMD tier of MSER. What vectorises is the preparation of a call: the source rows copied into
// the 32-aligned working layout (padding columns zeroed), the inverted plane the dark polarity
// walks (255 - v is the bitwise complement of a byte), and the per-pixel mask planes set to
// "not yet added". The component-tree walk itself is a sequence of dependent union-find steps
// and stays scalar: both tiers share it (tvxmser::Run), so the regions are identical.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/mser.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>

#include "cpu/mser_core.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace mser {
namespace hn = hwy::HWY_NAMESPACE;

void ToWorking(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
               uint32_t dstStride) {
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  const auto zero = hn::Zero(d);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = src + size_t{y} * srcStride;
    uint8_t* o = dst + size_t{y} * dstStride;
    size_t x = 0;
    for (; x + N <= width; x += N) hn::StoreU(hn::LoadU(d, s + x), d, o + x);
    for (; x < width; ++x) o[x] = s[x];
    size_t z = width;  // zeros up to the stride
    for (; z + N <= dstStride; z += N) hn::StoreU(zero, d, o + z);
    for (; z < dstStride; ++z) o[z] = 0;
  }
}

void Invert(const uint8_t* src, uint8_t* dst, size_t count) {
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  size_t i = 0;
  for (; i + N <= count; i += N) hn::StoreU(hn::Not(hn::LoadU(d, src + i)), d, dst + i);
  for (; i < count; ++i) dst[i] = static_cast<uint8_t>(255 - src[i]);
}

void Fill(uint32_t* plane, size_t count, uint32_t value) {
  const hn::ScalableTag<uint32_t> d;
  const size_t N = hn::Lanes(d);
  const auto v = hn::Set(d, value);
  size_t i = 0;
  for (; i + N <= count; i += N) hn::StoreU(v, d, plane + i);
  for (; i < count; ++i) plane[i] = value;
}

}  // namespace mser

void MserToWorking(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                   uint32_t dstStride) {
  mser::ToWorking(src, width, height, srcStride, dst, dstStride);
}
void MserInvert(const uint8_t* src, uint8_t* dst, size_t count) { mser::Invert(src, dst, count); }
void MserFill(uint32_t* plane, size_t count, uint32_t value) { mser::Fill(plane, count, value); }

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(MserToWorking);
HWY_EXPORT(MserInvert);
HWY_EXPORT(MserFill);

namespace {
void LanesToWorking(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(MserToWorking)(src, width, height, srcStride, dst, dstStride);
}
void LanesInvert(const uint8_t* src, uint8_t* dst, size_t count) { HWY_DYNAMIC_DISPATCH(MserInvert)(src, dst, count); }
void LanesFill(uint32_t* plane, size_t count, uint32_t value) { HWY_DYNAMIC_DISPATCH(MserFill)(plane, count, value); }
const tvxmser::Prep kLanesPrep = {&LanesToWorking, &LanesInvert, &LanesFill};
}  // namespace
}  // namespace tvx

TVX_MSER_IMAGE_ENTRIES(V, tvx::kLanesPrep)
#endif  // HWY_ONCE
