// SIMD variant of the gradient Hough circles: the Sobel gradients and L1 magnitudes of every
// interior row are computed in 16-bit lanes (|gx|, |gy| <= 1020, so no lane overflows); the
// thinning, voting and radius estimation that follow are the scalar stages shared with the
// reference variant (cpu/hough_circle.h), whose cell updates are data-dependent scatters. The
// line transform has no SIMD variant: its cost is the per-pixel, per-angle vote scatter.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/hough.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "cpu/hough_circle.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hough {
namespace hn = hwy::HWY_NAMESPACE;

void SobelRow(const uint8_t* a, const uint8_t* b, const uint8_t* c, uint32_t width, int16_t* gx, int16_t* gy,
              int16_t* mag) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t N = hn::Lanes(d16);
  const auto load = [&](const uint8_t* p) { return hn::BitCast(d16, hn::PromoteTo(hn::Rebind<uint16_t, decltype(d8)>(), hn::LoadU(d8, p))); };
  uint32_t x = 1;
  for (; x + N + 1 <= width; x += N) {
    const auto a0 = load(a + x - 1), a1 = load(a + x), a2 = load(a + x + 1);
    const auto b0 = load(b + x - 1), b2 = load(b + x + 1);
    const auto c0 = load(c + x - 1), c1 = load(c + x), c2 = load(c + x + 1);
    const auto right = hn::Add(hn::Add(a2, c2), hn::Add(b2, b2));
    const auto left = hn::Add(hn::Add(a0, c0), hn::Add(b0, b0));
    const auto down = hn::Add(hn::Add(c0, c2), hn::Add(c1, c1));
    const auto up = hn::Add(hn::Add(a0, a2), hn::Add(a1, a1));
    const auto dx = hn::Sub(right, left), dy = hn::Sub(down, up);
    hn::StoreU(dx, d16, gx + x);
    hn::StoreU(dy, d16, gy + x);
    hn::StoreU(hn::Add(hn::Abs(dx), hn::Abs(dy)), d16, mag + x);
  }
  for (; x + 1 < width; ++x) {
    const int32_t dx = (a[x + 1] + 2 * b[x + 1] + c[x + 1]) - (a[x - 1] + 2 * b[x - 1] + c[x - 1]);
    const int32_t dy = (c[x - 1] + 2 * c[x] + c[x + 1]) - (a[x - 1] + 2 * a[x] + a[x + 1]);
    gx[x] = static_cast<int16_t>(dx);
    gy[x] = static_cast<int16_t>(dy);
    mag[x] = static_cast<int16_t>(std::abs(dx) + std::abs(dy));
  }
}

void SobelPass(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int16_t* gx, int16_t* gy,
               int16_t* mag) {
  const size_t row = width;
  for (int16_t* plane : {gx, gy, mag}) {
    std::memset(plane, 0, row * 2);
    std::memset(plane + (size_t{height} - 1) * row, 0, row * 2);
  }
  for (uint32_t y = 1; y + 1 < height; ++y) {
    int16_t* ox = gx + size_t{y} * row;
    int16_t* oy = gy + size_t{y} * row;
    int16_t* om = mag + size_t{y} * row;
    ox[0] = oy[0] = om[0] = 0;
    ox[width - 1] = oy[width - 1] = om[width - 1] = 0;
    const uint8_t* b = src + size_t{y} * stride;
    SobelRow(b - stride, b, b + stride, width, ox, oy, om);
  }
}

}  // namespace hough

int32_t HoughCirclesLanes(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          uint32_t minDist, uint32_t edgeThreshold, uint32_t accThreshold, uint32_t minRadius,
                          uint32_t maxRadius, float* circles, uint32_t capacity, uint32_t* numCircles) {
  return tvxhough::Circles(src, srcWidth, srcHeight, srcStride, minDist, edgeThreshold, accThreshold, minRadius,
                           maxRadius, circles, capacity, numCircles, &hough::SobelPass);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(HoughCirclesLanes);
}  // namespace tvx

using namespace tvx;

int32_t tvxHoughCircleu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          uint32_t minDist, uint32_t edgeThreshold, uint32_t accThreshold, uint32_t minRadius,
                          uint32_t maxRadius, float* circles, uint32_t capacity, uint32_t* numCircles) {
  return HWY_DYNAMIC_DISPATCH(HoughCirclesLanes)(src, srcWidth, srcHeight, srcStride, minDist, edgeThreshold,
                                                      accThreshold, minRadius, maxRadius, circles, capacity,
                                                      numCircles);
}
#endif  // HWY_ONCE
