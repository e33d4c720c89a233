// SIMD variants of FAST-9 and FAST-10. Each row is tested a vector of pixels at a time: the
// centre plus and minus the barrier (saturated, which decides exactly as the signed sums for a
// barrier in 0 .. 255) against the circle pixels. The cardinal pixels 0, 4, 8, 12 go first: a
// run of 9 or more holds two neighbouring ones of them, so most vectors stop after four loads.
// The others then load too and the runs are found with whole-vector ANDs (spans of 2, 4, 8 and
// the rest), so every lane's answer is the segment test's. Corners are listed in scan order
// with the mask bit checked per corner, which gives the reference's list and its truncation at
// nCornersMax; suppression is the reference's, and scores come from the scalar closed form
// (the best arc's smallest difference minus 1), which equals the reference's bisection.
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
  static_assert(N == 9 || N == 10, "runs are built for 9 and 10");
  bool operator()(const tvxfast::RowJob& job, tvxfast::CornerList& list) const {
    const hn::ScalableTag<uint8_t> d;
    const size_t lanes = hn::Lanes(d);
    if (job.barrier < 0) return tvxfast::ScanRowScalar<N>(job, list);
    if (job.barrier > 255) return true;  // nothing exceeds c + 255 or falls below c - 255
    using V = decltype(hn::Zero(d));
    const V vb = hn::Set(d, static_cast<uint8_t>(job.barrier));
    const int32_t* off = job.offsets;
    uint8_t bits[64];         // one bit per lane, up to 512 lanes
    uint8_t laneScores[512];  // the vector's scores when the list takes them
    uint32_t x = job.x0;
    for (; x + lanes <= job.x1; x += static_cast<uint32_t>(lanes)) {
      const uint8_t* p = job.row + x;
      const auto c = hn::LoadU(d, p);
      const auto hi = hn::SaturatedAdd(c, vb), lo = hn::SaturatedSub(c, vb);
      using M = decltype(hn::Gt(c, c));
      V pixel[16];
      M bright[16], dark[16];  // per circle pixel: brighter (darker) lanes
      const auto flag = [&](int i) {
        pixel[i] = hn::LoadU(d, p + off[i]);
        bright[i] = hn::Gt(pixel[i], hi);
        dark[i] = hn::Lt(pixel[i], lo);
      };
      flag(0), flag(4), flag(8), flag(12);
      const auto pairs = [&](const M* f) {
        return hn::Or(hn::Or(hn::And(f[0], f[4]), hn::And(f[4], f[8])), hn::Or(hn::And(f[8], f[12]), hn::And(f[12], f[0])));
      };
      const bool anyBright = !hn::AllFalse(d, pairs(bright)), anyDark = !hn::AllFalse(d, pairs(dark));
      if (!anyBright && !anyDark) continue;
      for (int i = 1; i < 16; ++i)
        if (i % 4 != 0) flag(i);
      // A circular run of N set flags starting at i: doubling spans 2, 4, 8, then the rest.
      const auto runs = [&](const M* f) {
        M two[16], four[16];
        for (int i = 0; i < 16; ++i) two[i] = hn::And(f[i], f[(i + 1) & 15]);
        for (int i = 0; i < 16; ++i) four[i] = hn::And(two[i], two[(i + 2) & 15]);
        M any = hn::And(hn::And(four[0], four[4]), N == 9 ? f[8] : two[8]);
        for (int i = 1; i < 16; ++i) {
          const M eight = hn::And(four[i], four[(i + 4) & 15]);
          any = hn::Or(any, hn::And(eight, N == 9 ? f[(i + 8) & 15] : two[(i + 8) & 15]));
        }
        return any;
      };
      M candidates;
      if (anyBright && anyDark) candidates = hn::Or(runs(bright), runs(dark));
      else candidates = anyBright ? runs(bright) : runs(dark);
      if (hn::AllFalse(d, candidates)) continue;
      if (list.scores) {
        // Per lane the best arc's smallest difference, less 1. Saturated differences only turn
        // arcs holding a non-positive difference into 0, and a corner's best arc has all of
        // them above the barrier (>= 0), so they never decide.
        const auto bestArc = [&](const V* diff) {
          V two[16], four[16];
          for (int i = 0; i < 16; ++i) two[i] = hn::Min(diff[i], diff[(i + 1) & 15]);
          for (int i = 0; i < 16; ++i) four[i] = hn::Min(two[i], two[(i + 2) & 15]);
          V best = hn::Zero(d);
          for (int i = 0; i < 16; ++i) {
            const V eight = hn::Min(four[i], four[(i + 4) & 15]);
            best = hn::Max(best, hn::Min(eight, N == 9 ? diff[(i + 8) & 15] : two[(i + 8) & 15]));
          }
          return best;
        };
        // A polarity without a neighbouring cardinal pair has no corner arc: skip it.
        V diff[16], best = hn::Zero(d);
        if (anyBright) {
          for (int i = 0; i < 16; ++i) diff[i] = hn::SaturatedSub(pixel[i], c);
          best = bestArc(diff);
        }
        if (anyDark) {
          for (int i = 0; i < 16; ++i) diff[i] = hn::SaturatedSub(c, pixel[i]);
          best = hn::Max(best, bestArc(diff));
        }
        hn::StoreU(hn::SaturatedSub(best, hn::Set(d, 1)), d, laneScores);
      }
      hn::StoreMaskBits(d, candidates, bits);
      for (size_t chunk = 0; chunk < (lanes + 63) / 64; ++chunk) {
        uint64_t word = 0;  // candidate lanes 64 * chunk .. 64 * chunk + 63, in scan order
        for (size_t b = 0; b < 8 && 8 * chunk + b < (lanes + 7) / 8; ++b) word |= uint64_t{bits[8 * chunk + b]} << (8 * b);
        for (; word != 0; word &= word - 1) {
          const uint32_t cx = x + static_cast<uint32_t>(64 * chunk + __builtin_ctzll(word));
          if (job.mask && job.mask->Masked(job.maskRow, cx)) continue;
          if (!list.Push(cx, job.y, laneScores[64 * chunk + __builtin_ctzll(word)])) return false;
        }
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
  return tvxfast::Detect<9, true>(tvxfast::kFast9Path, src, width, height, stride, barrier, border, xy, scores, capacity,
                            count, mask, maskWidth, maskHeight, nmsEnabled, tempBuf, fast::LanesScan<9>());
}

int32_t FastCorners10u8(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int32_t barrier,
                        uint32_t border, uint32_t* xy, uint32_t* scores, uint32_t capacity, uint32_t* count,
                        const uint8_t* mask, uint32_t maskWidth, uint32_t maskHeight, uint32_t nmsEnabled,
                        uint32_t* tempBuf) {
  return tvxfast::Detect<10, true>(tvxfast::kFast10Path, src, width, height, stride, barrier, border, xy, scores, capacity,
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
