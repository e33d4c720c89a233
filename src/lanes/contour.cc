// SIMD variants of the contour family. Border following itself is a pointer walk and stays
// scalar (the shared follower in cpu/contour_find.cc); the vector work is the framed 0/1 copy of
// the image and the scan's search for the next byte that differs from the current run, which
// is where a mostly uniform image spends its time. The bounding rectangle takes the minima and
// maxima of whole vectors of (x, y) pairs.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/contour.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "cpu/contour_find.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace contour {
namespace hn = hwy::HWY_NAMESPACE;

void Binarise(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int8_t* img) {
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  const size_t W = size_t{width} + 2;
  const auto zero = hn::Zero(d);
  const auto one = hn::Set(d, 1);
  std::memset(img, 0, W);
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* row = reinterpret_cast<uint8_t*>(img) + (y + 1) * W;
    const uint8_t* s = src + size_t{y} * srcStride;
    row[0] = 0;
    size_t x = 0;
    for (; x + N <= width; x += N) hn::StoreU(hn::And(hn::VecFromMask(d, hn::Ne(hn::LoadU(d, s + x), zero)), one), d, row + 1 + x);
    for (; x < width; ++x) row[1 + x] = s[x] != 0;
    row[width + 1] = 0;
  }
  std::memset(img + (size_t{height} + 1) * W, 0, W);
}

uint32_t Skip(const int8_t* row, uint32_t x, uint32_t end, int8_t value) {
  // Runs are often short next to borders: look at a few bytes before starting on vectors.
  for (uint32_t stop = std::min(end, x + 8); x < stop; ++x)
    if (row[x] != value) return x;
  const hn::ScalableTag<int8_t> d;
  const size_t N = hn::Lanes(d);
  const auto v = hn::Set(d, value);
  for (; x + N <= end; x += uint32_t(N)) {
    const intptr_t hit = hn::FindFirstTrue(d, hn::Ne(hn::LoadU(d, row + x), v));
    if (hit >= 0) return x + uint32_t(hit);
  }
  while (x < end && row[x] == value) ++x;
  return x;
}

int32_t Find(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t maxContours,
             uint32_t maxPoints, uint32_t* numContours, uint32_t* numPointsInContour, uint32_t* points,
             int32_t* hierarchy, uint32_t approx, uint8_t* work, uint32_t workSize, int mode) {
  return tvxcontour::FindContours(src, srcWidth, srcHeight, srcStride, maxContours, maxPoints, numContours,
                                  numPointsInContour, points, hierarchy, approx, work, workSize, mode, &Binarise, &Skip);
}

int32_t Bounding(const uint32_t* points, uint32_t numPoints, uint32_t* rect) {
  if (numPoints == 0) {
    rect[0] = rect[1] = rect[2] = rect[3] = 0;
    return 0;
  }
  const hn::ScalableTag<uint32_t> d;
  const size_t N = hn::Lanes(d);
  const size_t total = size_t{2} * numPoints;
  uint32_t lo[2] = {points[0], points[1]}, hi[2] = {points[0], points[1]};
  size_t i = 0;
  if (N >= 2 && total >= N) {
    auto vmin = hn::LoadU(d, points), vmax = vmin;
    for (i = N; i + N <= total; i += N) {
      const auto v = hn::LoadU(d, points + i);
      vmin = hn::Min(vmin, v);
      vmax = hn::Max(vmax, v);
    }
    HWY_ALIGN uint32_t a[HWY_MAX_BYTES / sizeof(uint32_t)];
    HWY_ALIGN uint32_t b[HWY_MAX_BYTES / sizeof(uint32_t)];
    hn::Store(vmin, d, a);
    hn::Store(vmax, d, b);
    for (size_t k = 0; k < N; ++k) {
      lo[k & 1] = std::min(lo[k & 1], a[k]);
      hi[k & 1] = std::max(hi[k & 1], b[k]);
    }
  }
  for (; i < total; ++i) {
    lo[i & 1] = std::min(lo[i & 1], points[i]);
    hi[i & 1] = std::max(hi[i & 1], points[i]);
  }
  rect[0] = lo[0];
  rect[1] = lo[1];
  rect[2] = hi[0] - lo[0] + 1;
  rect[3] = hi[1] - lo[1] + 1;
  return 0;
}

}  // namespace contour

int32_t ContourFind(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t maxContours,
                    uint32_t maxPoints, uint32_t* numContours, uint32_t* numPointsInContour, uint32_t* points,
                    int32_t* hierarchy, uint32_t approx, uint8_t* work, uint32_t workSize, int mode) {
  return contour::Find(src, srcWidth, srcHeight, srcStride, maxContours, maxPoints, numContours, numPointsInContour,
                       points, hierarchy, approx, work, workSize, mode);
}
int32_t ContourBounding(const uint32_t* points, uint32_t numPoints, uint32_t* rect) {
  return contour::Bounding(points, numPoints, rect);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(ContourFind);
HWY_EXPORT(ContourBounding);
}  // namespace tvx

using namespace tvx;

#define TVX_FIND_CONTOURS_V(NAME, MODE)                                                                          \
  int32_t NAME(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t maxContours, \
               uint32_t maxPoints, uint32_t* numContours, uint32_t* numPointsInContour, uint32_t* points,          \
               int32_t* hierarchy, uint32_t approx, uint8_t* work, uint32_t workSize) {                            \
    return HWY_DYNAMIC_DISPATCH(ContourFind)(src, srcWidth, srcHeight, srcStride, maxContours, maxPoints,         \
                                             numContours, numPointsInContour, points, hierarchy, approx, work,    \
                                             workSize, MODE);                                                      \
  }
TVX_FIND_CONTOURS_V(tvxFindContoursListu8V, tvxcontour::kList)
TVX_FIND_CONTOURS_V(tvxFindContoursTreeu8V, tvxcontour::kTree)
TVX_FIND_CONTOURS_V(tvxFindContoursExternalu8V, tvxcontour::kExternal)
TVX_FIND_CONTOURS_V(tvxFindContoursCcompu8V, tvxcontour::kCcomp)
#undef TVX_FIND_CONTOURS_V

int32_t tvxBoundingRectangleV(const uint32_t* points, uint32_t numPoints, uint32_t* rect) {
  return HWY_DYNAMIC_DISPATCH(ContourBounding)(points, numPoints, rect);
}
#endif  // HWY_ONCE
