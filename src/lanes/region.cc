// SIMD variant of the motion history update: per vector of 32-bit timestamps, the silhouette
// bytes are widened to a lane mask that selects the new timestamp, and the remaining lanes are
// cleared where older than the oldest kept time. The fills and region growers have no SIMD
// variant (their work is a data-dependent walk).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/region.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>

#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace region {
namespace hn = hwy::HWY_NAMESPACE;

void MotionHistoryRow(const uint8_t* sil, int32_t* mhi, uint32_t width, int32_t timestamp, int32_t keep) {
  const hn::ScalableTag<int32_t> d32;
  const hn::Rebind<uint8_t, decltype(d32)> d8;
  const size_t N = hn::Lanes(d32);
  const auto now = hn::Set(d32, timestamp), oldest = hn::Set(d32, keep), zero = hn::Zero(d32);
  size_t x = 0;
  for (; x + N <= width; x += N) {
    const auto s = hn::PromoteTo(d32, hn::LoadU(d8, sil + x));
    const auto m = hn::LoadU(d32, mhi + x);
    const auto aged = hn::IfThenZeroElse(hn::Lt(m, oldest), m);
    hn::StoreU(hn::IfThenElse(hn::Ne(s, zero), now, aged), d32, mhi + x);
  }
  for (; x < width; ++x) {
    if (sil[x] != 0) mhi[x] = timestamp;
    else if (mhi[x] < keep) mhi[x] = 0;
  }
}

}  // namespace region

int32_t RegionMotionHistory(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int32_t* mhi,
                      uint32_t mhiStride, int32_t timestamp, int32_t duration) {
  if (duration < 0) return 3;
  const int64_t oldest = int64_t{timestamp} - duration;
  const int32_t keep = oldest > INT32_MIN ? static_cast<int32_t>(oldest) : INT32_MIN;
  for (uint32_t y = 0; y < srcHeight; ++y)
    region::MotionHistoryRow(src + size_t{y} * srcStride,
                             reinterpret_cast<int32_t*>(reinterpret_cast<uint8_t*>(mhi) + size_t{y} * mhiStride),
                             srcWidth, timestamp, keep);
  return 0;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(RegionMotionHistory);
}  // namespace tvx

using namespace tvx;

int32_t tvxUpdateMotionHistoryu8s32V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                     int32_t* mhi, uint32_t mhiStride, int32_t timestamp, int32_t duration) {
  return HWY_DYNAMIC_DISPATCH(RegionMotionHistory)(src, srcWidth, srcHeight, srcStride, mhi, mhiStride, timestamp,
                                                  duration);
}
#endif  // HWY_ONCE
