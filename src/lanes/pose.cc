// SIMD variant of the SE(2) alignment sums. Each row runs in 32-bit lanes: the bytes and the
// 16-bit derivatives are widened, gx, gy, e and the rotation term r are cut to their low 16 bits
// (sign-extended, as the reference's 16-bit products require), and the ten products are summed in
// unsigned 32-bit lanes, so a row's sums wrap exactly as the reference's 32-bit row sums do; the
// row's lane sums and its scalar tail then join the 64-bit totals.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/pose.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>

#include "cpu/pose_se2.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace pose {
namespace hn = hwy::HWY_NAMESPACE;

// Sign-extends the low 16 bits of every lane.
template <class DI, class V>
HWY_INLINE V Low16(DI di, V v) {
  const hn::RebindToUnsigned<DI> du;
  return hn::ShiftRight<16>(hn::BitCast(di, hn::ShiftLeft<16>(hn::BitCast(du, v))));
}

}  // namespace pose

namespace hn = hwy::HWY_NAMESPACE;

// Unqualified and family-named, as the dispatch table's name is pasted from it.
int32_t PoseJacobianSE2(const uint8_t* warpedImage, const uint16_t* warpedBorder, const uint8_t* targetImage,
                    const int16_t* targetDX, const int16_t* targetDY, uint32_t width, uint32_t height, uint32_t stride,
                    float* sumJTJ, float* sumJTE, float* sumError, uint32_t* numPixels) {
  if ((width & 1) || (height & 1)) return 3;
  const hn::ScalableTag<int32_t> di;
  const hn::RebindToUnsigned<decltype(di)> du;
  const hn::Rebind<uint8_t, decltype(di)> d8;
  const hn::Rebind<int16_t, decltype(di)> d16;
  const size_t lanes = hn::Lanes(di);
  int64_t sums[tvxpose::kSums] = {};
  uint32_t pixels = 0;
  const int64_t cx = width / 2, cy = height / 2;
  for (uint32_t y = 1; y + 1 < height; ++y) {
    int64_t begin, end;
    tvxpose::Se2Columns(warpedBorder, width, y, &begin, &end);
    const size_t row = size_t(y) * stride;
    const uint8_t* w = warpedImage + row;
    const uint8_t* up = w - stride;
    const uint8_t* down = w + stride;
    const uint8_t* t = targetImage + row;
    const int16_t* dx = targetDX + row;
    const int16_t* dy = targetDY + row;
    // Only the low 16 bits of the row offset reach the products, so it is formed modulo 2^32.
    const auto yTerm = hn::Set(du, static_cast<uint32_t>(int64_t(y) - cy));
    auto a0 = hn::Zero(du), a1 = a0, a2 = a0, a3 = a0, a4 = a0, a5 = a0, a6 = a0, a7 = a0, a8 = a0, a9 = a0;
    int64_t x = begin;
    for (; x < end && static_cast<size_t>(end - x) >= lanes; x += static_cast<int64_t>(lanes)) {
      const auto wl = hn::PromoteTo(di, hn::LoadU(d8, w + x - 1));
      const auto wr = hn::PromoteTo(di, hn::LoadU(d8, w + x + 1));
      const auto wc = hn::PromoteTo(di, hn::LoadU(d8, w + x));
      const auto wu = hn::PromoteTo(di, hn::LoadU(d8, up + x));
      const auto wd = hn::PromoteTo(di, hn::LoadU(d8, down + x));
      const auto tc = hn::PromoteTo(di, hn::LoadU(d8, t + x));
      const auto gx = hn::Add(hn::Sub(wr, wl), hn::PromoteTo(di, hn::LoadU(d16, dx + x)));
      const auto gy = hn::Add(hn::Sub(wd, wu), hn::PromoteTo(di, hn::LoadU(d16, dy + x)));
      const auto e = hn::Sub(wc, tc);
      const auto xTerm = hn::Iota(du, static_cast<uint32_t>(x - cx));
      const auto r = hn::BitCast(
          di, hn::Sub(hn::Mul(xTerm, hn::BitCast(du, gy)), hn::Mul(yTerm, hn::BitCast(du, gx))));
      const auto g = pose::Low16(di, gx), h = pose::Low16(di, gy), q = pose::Low16(di, r), f = pose::Low16(di, e);
      a0 = hn::Add(a0, hn::BitCast(du, hn::Mul(g, g)));
      a1 = hn::Add(a1, hn::BitCast(du, hn::Mul(g, h)));
      a2 = hn::Add(a2, hn::BitCast(du, hn::Mul(g, q)));
      a3 = hn::Add(a3, hn::BitCast(du, hn::Mul(h, h)));
      a4 = hn::Add(a4, hn::BitCast(du, hn::Mul(h, q)));
      a5 = hn::Add(a5, hn::BitCast(du, hn::Mul(q, q)));
      a6 = hn::Add(a6, hn::BitCast(du, hn::Mul(g, f)));
      a7 = hn::Add(a7, hn::BitCast(du, hn::Mul(h, f)));
      a8 = hn::Add(a8, hn::BitCast(du, hn::Mul(q, f)));
      a9 = hn::Add(a9, hn::BitCast(du, hn::Abs(f)));
      pixels += static_cast<uint32_t>(lanes);
    }
    // Lane sums in unsigned scalar arithmetic: the targets' own reductions may add as signed.
    uint32_t rowSums[tvxpose::kSums] = {};
    HWY_ALIGN uint32_t laneValues[hn::MaxLanes(du)];
    const decltype(a0) acc[tvxpose::kSums] = {a0, a1, a2, a3, a4, a5, a6, a7, a8, a9};
    for (int k = 0; k < tvxpose::kSums; ++k) {
      hn::Store(acc[k], du, laneValues);
      for (size_t i = 0; i < lanes; ++i) rowSums[k] += laneValues[i];
    }
    for (; x < end; ++x) {
      const int32_t gx = int32_t(w[x + 1]) - w[x - 1] + dx[x];
      const int32_t gy = int32_t(down[x]) - up[x] + dy[x];
      tvxpose::AddSe2Pixel(rowSums, gx, gy, int32_t(w[x]) - t[x], x - cx, int64_t(y) - cy);
      ++pixels;
    }
    for (int k = 0; k < tvxpose::kSums; ++k) sums[k] += int32_t(rowSums[k]);
  }
  tvxpose::Se2Output(sums, pixels, sumJTJ, sumJTE, sumError, numPixels);
  return 0;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(PoseJacobianSE2);
}  // namespace tvx

using namespace tvx;

int32_t tvxJacobianSE2f32V(const uint8_t* warpedImage, const uint16_t* warpedBorder, const uint8_t* targetImage,
                           const int16_t* targetDX, const int16_t* targetDY, uint32_t width, uint32_t height,
                           uint32_t stride, float* sumJTJ, float* sumJTE, float* sumError, uint32_t* numPixels) {
  return HWY_DYNAMIC_DISPATCH(PoseJacobianSE2)(warpedImage, warpedBorder, targetImage, targetDX, targetDY, width,
                                                 height, stride, sumJTJ, sumJTE, sumError, numPixels);
}
#endif  // HWY_ONCE
