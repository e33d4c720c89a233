// SIMD variants of FAST-9 and FAST-10. Each row is screened a vector of pixels at a time: the
// centre plus and minus the barrier (saturated, which decides exactly as the signed sums for a
// barrier in 0 .. 255) against the eight even-indexed circle pixels. A run of 9 circle pixels
// holds at least 4 consecutive even-indexed ones and a run of 10 at least 5, so a pixel without
// such a run among its even pixels cannot be a corner; the cardinal pixels 0, 4, 8, 12 alone
// skip most vectors before the other four are read. Surviving pixels go through the reference
// segment test in scan order, so the list, its truncation at nCornersMax, the scores (computed
// by the shared scalar bisection; corners are few) and the suppression are the reference's.
// A negative barrier, where a pixel can be brighter and darker at once and the saturated sums
// no longer decide, and row tails narrower than a vector take the scalar scanner.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/fast.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstdint>

#include "cpu/fast_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace fast {
namespace hn = hwy::HWY_NAMESPACE;

template <int N>
struct LanesScan {
  bool operator()(const tvxfast::RowJob& job, tvxfast::CornerList& list) const {
    const hn::ScalableTag<uint8_t> d;
    const size_t lanes = hn::Lanes(d);
    if (job.barrier < 0) return tvxfast::ScanRowScalar<N>(job, list);
    if (job.barrier > 255) return true;  // nothing exceeds c + 255 or falls below c - 255
    using V = decltype(hn::Zero(d));
    const V vb = hn::Set(d, static_cast<uint8_t>(job.barrier));
    const int32_t* off = job.offsets;
    uint8_t bits[64];  // one bit per lane, up to 512 lanes
    uint32_t x = job.x0;
    for (; x + lanes <= job.x1; x += static_cast<uint32_t>(lanes)) {
      const uint8_t* p = job.row + x;
      const auto c = hn::LoadU(d, p);
      const auto hi = hn::SaturatedAdd(c, vb), lo = hn::SaturatedSub(c, vb);
      V bright[8], dark[8];  // flags of circle pixels 0, 2, 4, ..., 14
      const auto flag = [&](int k) {
        const auto v = hn::LoadU(d, p + off[2 * k]);
        bright[k] = hn::VecFromMask(d, hn::Gt(v, hi));
        dark[k] = hn::VecFromMask(d, hn::Lt(v, lo));
      };
      flag(0), flag(2), flag(4), flag(6);
      const auto pairs = [&](const V* f) {
        return hn::Or(hn::Or(hn::And(f[0], f[2]), hn::And(f[2], f[4])), hn::Or(hn::And(f[4], f[6]), hn::And(f[6], f[0])));
      };
      if (hn::AllFalse(d, hn::MaskFromVec(hn::Or(pairs(bright), pairs(dark))))) continue;
      flag(1), flag(3), flag(5), flag(7);
      // Circular runs of 4 (FAST-9) or 5 (FAST-10) set flags among the eight.
      const auto runs = [&](const V* f) {
        V two[8];
        V any = hn::Zero(d);
        for (int k = 0; k < 8; ++k) two[k] = hn::And(f[k], f[(k + 1) & 7]);
        for (int k = 0; k < 8; ++k) {
          V run = hn::And(two[k], two[(k + 2) & 7]);
          if (N >= 10) run = hn::And(run, f[(k + 4) & 7]);
          any = hn::Or(any, run);
        }
        return any;
      };
      const auto candidates = hn::MaskFromVec(hn::Or(runs(bright), runs(dark)));
      if (hn::AllFalse(d, candidates)) continue;
      hn::StoreMaskBits(d, candidates, bits);
      for (size_t i = 0; i < lanes; ++i) {
        if (!((bits[i >> 3] >> (i & 7)) & 1)) continue;
        const uint32_t cx = x + static_cast<uint32_t>(i);
        if (job.mask && job.mask->Masked(job.maskRow, cx)) continue;
        if (tvxfast::SegmentTest<N>(job.row + cx, off, job.barrier) && !list.Push(cx, job.y)) return false;
      }
    }
    tvxfast::RowJob tail = job;
    tail.x0 = x;
    return tvxfast::ScanRowScalar<N>(tail, list);
  }
};

}  // namespace fast

int32_t FastCorners9u8(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int32_t barrier,
                       uint32_t border, uint32_t* xy, uint32_t* scores, uint32_t capacity, uint32_t* count,
                       const uint8_t* mask, uint32_t maskWidth, uint32_t maskHeight, uint32_t nmsEnabled,
                       uint32_t* tempBuf) {
  return tvxfast::Detect<9>(tvxfast::kFast9Path, src, width, height, stride, barrier, border, xy, scores, capacity,
                            count, mask, maskWidth, maskHeight, nmsEnabled, tempBuf, fast::LanesScan<9>());
}

int32_t FastCorners10u8(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int32_t barrier,
                        uint32_t border, uint32_t* xy, uint32_t* scores, uint32_t capacity, uint32_t* count,
                        const uint8_t* mask, uint32_t maskWidth, uint32_t maskHeight, uint32_t nmsEnabled,
                        uint32_t* tempBuf) {
  return tvxfast::Detect<10>(tvxfast::kFast10Path, src, width, height, stride, barrier, border, xy, scores, capacity,
                             count, mask, maskWidth, maskHeight, nmsEnabled, tempBuf, fast::LanesScan<10>());
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(FastCorners9u8);
HWY_EXPORT(FastCorners10u8);
}  // namespace tvx

using namespace tvx;

int32_t tvxCornerFast9u8V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int32_t barrier,
                          uint32_t border, uint32_t* xy, uint32_t nCornersMax, uint32_t* numcorners) {
  return HWY_DYNAMIC_DISPATCH(FastCorners9u8)(src, width, height, stride, barrier, border, xy, nullptr, nCornersMax,
                                              numcorners, nullptr, 0, 0, 0, nullptr);
}

int32_t tvxCornerFast9InMasku8V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int32_t barrier,
                                uint32_t border, uint32_t* xy, uint32_t nCornersMax, uint32_t* numcorners,
                                const uint8_t* bitMask, uint32_t maskWidth, uint32_t maskHeight) {
  return HWY_DYNAMIC_DISPATCH(FastCorners9u8)(src, width, height, stride, barrier, border, xy, nullptr, nCornersMax,
                                              numcorners, bitMask, maskWidth, maskHeight, 0, nullptr);
}

int32_t tvxCornerFast9Scoreu8V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int32_t barrier,
                               uint32_t border, uint32_t* xy, uint32_t* scores, uint32_t nCornersMax,
                               uint32_t* numcorners) {
  return HWY_DYNAMIC_DISPATCH(FastCorners9u8)(src, width, height, stride, barrier, border, xy, scores, nCornersMax,
                                              numcorners, nullptr, 0, 0, 0, nullptr);
}

int32_t tvxCornerFast9InMaskScoreu8V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride,
                                     int32_t barrier, uint32_t border, uint32_t* xy, uint32_t* scores,
                                     uint32_t nCornersMax, uint32_t* numcorners, const uint8_t* bitMask,
                                     uint32_t maskWidth, uint32_t maskHeight) {
  return HWY_DYNAMIC_DISPATCH(FastCorners9u8)(src, width, height, stride, barrier, border, xy, scores, nCornersMax,
                                              numcorners, bitMask, maskWidth, maskHeight, 0, nullptr);
}

int32_t tvxCornerFast9Scoreu8_v2V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride,
                                  int32_t barrier, uint32_t border, uint32_t* xy, uint32_t* scores,
                                  uint32_t nCornersMax, uint32_t* numcorners, uint32_t nmsEnabled, uint32_t* tempBuf) {
  return HWY_DYNAMIC_DISPATCH(FastCorners9u8)(src, width, height, stride, barrier, border, xy, scores, nCornersMax,
                                              numcorners, nullptr, 0, 0, nmsEnabled, tempBuf);
}

int32_t tvxCornerFast9InMaskScoreu8_v2V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride,
                                        int32_t barrier, uint32_t border, uint32_t* xy, uint32_t* scores,
                                        uint32_t nCornersMax, uint32_t* numcorners, const uint8_t* bitMask,
                                        uint32_t maskWidth, uint32_t maskHeight, uint32_t nmsEnabled,
                                        uint32_t* tempBuf) {
  return HWY_DYNAMIC_DISPATCH(FastCorners9u8)(src, width, height, stride, barrier, border, xy, scores, nCornersMax,
                                              numcorners, bitMask, maskWidth, maskHeight, nmsEnabled, tempBuf);
}

int32_t tvxCornerFast10u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                           int32_t barrier, uint32_t border, uint32_t* xy, uint32_t nCornersMax, uint32_t* nCorners) {
  return HWY_DYNAMIC_DISPATCH(FastCorners10u8)(src, srcWidth, srcHeight, srcStride, barrier, border, xy, nullptr,
                                               nCornersMax, nCorners, nullptr, 0, 0, 0, nullptr);
}

int32_t tvxCornerFast10InMasku8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 int32_t barrier, uint32_t border, uint32_t* xy, uint32_t nCornersMax,
                                 uint32_t* nCorners, const uint8_t* mask, uint32_t maskWidth, uint32_t maskHeight) {
  return HWY_DYNAMIC_DISPATCH(FastCorners10u8)(src, srcWidth, srcHeight, srcStride, barrier, border, xy, nullptr,
                                               nCornersMax, nCorners, mask, maskWidth, maskHeight, 0, nullptr);
}

int32_t tvxCornerFast10Scoreu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                int32_t barrier, uint32_t border, uint32_t* xy, uint32_t* scores,
                                uint32_t nCornersMax, uint32_t* nCorners, uint32_t nmsEnabled, uint32_t* tempBuf) {
  return HWY_DYNAMIC_DISPATCH(FastCorners10u8)(src, srcWidth, srcHeight, srcStride, barrier, border, xy, scores,
                                               nCornersMax, nCorners, nullptr, 0, 0, nmsEnabled, tempBuf);
}

int32_t tvxCornerFast10InMaskScoreu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                      int32_t barrier, uint32_t border, uint32_t* xy, uint32_t* scores,
                                      uint32_t nCornersMax, uint32_t* nCorners, const uint8_t* mask,
                                      uint32_t maskWidth, uint32_t maskHeight, uint32_t nmsEnabled,
                                      uint32_t* tempBuf) {
  return HWY_DYNAMIC_DISPATCH(FastCorners10u8)(src, srcWidth, srcHeight, srcStride, barrier, border, xy, scores,
                                               nCornersMax, nCorners, mask, maskWidth, maskHeight, nmsEnabled, tempBuf);
}
#endif  // HWY_ONCE
