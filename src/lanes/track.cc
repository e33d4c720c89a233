// SIMD variants of the mean-shift trackers. Only the window sums are vectorised; the loop and
// the box fit are the shared ones, so windows and boxes equal the reference's exactly.
//  - u8: bytes widened to 32-bit lanes, sums of p and x p (x p < 2^24, lanes flushed to 64 bits
//    every 128 vectors, so no lane wraps);
//  - s32: 64-bit products of even and odd lanes (MulEven), summed modulo 2^64 as the reference;
//  - f32: four-lane vectors, lane k holding the partial sum of columns k mod 4, the tail loaded
//    with zeros: the reference's order, hence identical float sums.
// Second-order row sums (one pass per adaptive call) use the scalar loop.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/track.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>

#include "cpu/track_shift.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace track {
namespace hn = hwy::HWY_NAMESPACE;
using tvxtrack::IntMoments;
using tvxtrack::Moments;
using tvxtrack::Rect;

template <typename T>
inline const T* RowAt(const T* src, uint32_t stride, int64_t y) {
  return reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(src) + static_cast<size_t>(y) * stride);
}

inline Moments SumsU8(const uint8_t* src, uint32_t stride, const Rect& r, bool second) {
  const hn::ScalableTag<uint32_t> d32;
  const hn::Rebind<uint8_t, decltype(d32)> d8;
  const size_t N = hn::Lanes(d32);
  const int64_t w = r.w;
  IntMoments acc;
  for (int64_t y = 0; y < r.h; ++y) {
    const uint8_t* row = RowAt(src, stride, r.y + y) + r.x;
    uint64_t s0 = 0, s1 = 0, s2 = 0;
    int64_t x = 0;
    while (x + static_cast<int64_t>(N) <= w) {
      auto a0 = hn::Zero(d32), a1 = hn::Zero(d32);
      auto xs = hn::Iota(d32, static_cast<uint32_t>(x));
      const auto step = hn::Set(d32, static_cast<uint32_t>(N));
      for (int k = 0; k < 128 && x + static_cast<int64_t>(N) <= w; ++k, x += N) {
        const auto p = hn::PromoteTo(d32, hn::LoadU(d8, row + x));
        a0 = hn::Add(a0, p);
        a1 = hn::Add(a1, hn::Mul(xs, p));
        xs = hn::Add(xs, step);
      }
      s0 += hn::GetLane(hn::SumOfLanes(d32, a0));
      // Lane sums may exceed 32 bits together: add them one by one in 64 bits.
      alignas(64) uint32_t lanes[hn::MaxLanes(d32)];
      hn::Store(a1, d32, lanes);
      for (size_t i = 0; i < N; ++i) s1 += lanes[i];
    }
    for (; x < w; ++x) {
      s0 += row[x];
      s1 += static_cast<uint64_t>(x) * row[x];
    }
    if (second)
      for (int64_t i = 0; i < w; ++i) s2 += static_cast<uint64_t>(i * i) * row[i];
    acc.addRow(static_cast<uint64_t>(y), s0, s1, s2);
  }
  return acc.toDouble();
}

inline Moments SumsS32(const int32_t* src, uint32_t stride, const Rect& r, bool second) {
  const hn::FixedTag<int32_t, 4> d32;
  const hn::Repartition<int64_t, decltype(d32)> d64;
  const int64_t w = r.w;
  IntMoments acc;
  const auto one = hn::Set(d32, 1);
  for (int64_t y = 0; y < r.h; ++y) {
    const int32_t* row = RowAt(src, stride, r.y + y) + r.x;
    auto a0 = hn::Zero(d64), a1 = hn::Zero(d64);
    auto xs = hn::Iota(d32, 0);  // columns x, x+1, x+2, x+3: even lanes give x and x+2
    const auto xodd = hn::Iota(d32, 1);
    int64_t x = 0;
    for (; x + 4 <= w; x += 4) {
      const auto p = hn::LoadU(d32, row + x);
      const auto po = hn::BitCast(d32, hn::ShiftRight<32>(hn::BitCast(d64, p)));  // odd lanes moved down
      const auto base = hn::Set(d32, static_cast<int32_t>(x));
      a0 = hn::Add(a0, hn::Add(hn::MulEven(p, one), hn::MulEven(po, one)));
      a1 = hn::Add(a1, hn::Add(hn::MulEven(p, hn::Add(xs, base)), hn::MulEven(po, hn::Add(xodd, base))));
    }
    uint64_t s0 = static_cast<uint64_t>(hn::GetLane(hn::SumOfLanes(d64, a0)));
    uint64_t s1 = static_cast<uint64_t>(hn::GetLane(hn::SumOfLanes(d64, a1)));
    uint64_t s2 = 0;
    for (; x < w; ++x) {
      const uint64_t p = static_cast<uint64_t>(static_cast<int64_t>(row[x]));
      s0 += p;
      s1 += static_cast<uint64_t>(x) * p;
    }
    if (second)
      for (int64_t i = 0; i < w; ++i) s2 += static_cast<uint64_t>(i * i) * static_cast<uint64_t>(int64_t{row[i]});
    acc.addRow(static_cast<uint64_t>(y), s0, s1, s2);
  }
  return acc.toDouble();
}

inline Moments SumsF32(const float* src, uint32_t stride, const Rect& r, bool second) {
  const hn::FixedTag<float, 4> d;
  const int64_t w = r.w;
  Moments m;
  alignas(16) float l0[4], l1[4], l2[4];
  for (int64_t y = 0; y < r.h; ++y) {
    const float* row = RowAt(src, stride, r.y + y) + r.x;
    auto a0 = hn::Zero(d), a1 = hn::Zero(d), a2 = hn::Zero(d);
    auto xs = hn::Iota(d, 0.0f);
    const auto four = hn::Set(d, 4.0f);
    int64_t x = 0;
    const auto add = [&](decltype(a0) p) {
      a0 = hn::Add(a0, p);
      a1 = hn::Add(a1, hn::Mul(xs, p));
      if (second) a2 = hn::Add(a2, hn::Mul(hn::Mul(xs, xs), p));
      xs = hn::Add(xs, four);
    };
    for (; x + 4 <= w; x += 4) add(hn::LoadU(d, row + x));
    if (x < w) {
      alignas(16) float tail[4] = {0, 0, 0, 0};
      for (int64_t i = x; i < w; ++i) tail[i - x] = row[i];
      add(hn::Load(d, tail));
    }
    hn::Store(a0, d, l0);
    hn::Store(a1, d, l1);
    hn::Store(a2, d, l2);
    tvxtrack::AddRow(m, y, ((l0[0] + l0[1]) + l0[2]) + l0[3], ((l1[0] + l1[1]) + l1[2]) + l1[3],
                     ((l2[0] + l2[1]) + l2[2]) + l2[3]);
  }
  return m;
}

}  // namespace track

int32_t TrackMeanShift(const void* src, uint32_t kind, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                       uint32_t windowX, uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight,
                       int32_t maxIterations, float epsilon, uint32_t* window, uint32_t* iterations, float* box) {
  tvxtrack::Rect r = tvxtrack::ClipWindow(srcWidth, srcHeight, windowX, windowY, windowWidth, windowHeight);
  const auto sums = [&](const tvxtrack::Rect& w, bool second) {
    if (kind == 0) return track::SumsU8(static_cast<const uint8_t*>(src), srcStride, w, second);
    if (kind == 1) return track::SumsS32(static_cast<const int32_t*>(src), srcStride, w, second);
    return track::SumsF32(static_cast<const float*>(src), srcStride, w, second);
  };
  if (box) {
    tvxtrack::AdaptiveTrack(srcWidth, srcHeight, r, maxIterations, epsilon, sums, box);
  } else {
    const uint32_t n = tvxtrack::MeanShiftLoop(srcWidth, srcHeight, r, maxIterations, epsilon, sums);
    if (iterations) *iterations = n;
  }
  tvxtrack::StoreWindow(r, window);
  return 0;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(TrackMeanShift);
}  // namespace tvx

using namespace tvx;

int32_t tvxMeanShiftu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t windowX,
                        uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight, int32_t maxIterations,
                        float epsilon, uint32_t* window, uint32_t* iterations) {
  return HWY_DYNAMIC_DISPATCH(TrackMeanShift)(src, 0, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth,
                                              windowHeight, maxIterations, epsilon, window, iterations, nullptr);
}
int32_t tvxMeanShifts32V(const int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                         uint32_t windowX, uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight,
                         int32_t maxIterations, float epsilon, uint32_t* window, uint32_t* iterations) {
  return HWY_DYNAMIC_DISPATCH(TrackMeanShift)(src, 1, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth,
                                              windowHeight, maxIterations, epsilon, window, iterations, nullptr);
}
int32_t tvxMeanShiftf32V(const float* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t windowX,
                         uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight, int32_t maxIterations,
                         float epsilon, uint32_t* window, uint32_t* iterations) {
  return HWY_DYNAMIC_DISPATCH(TrackMeanShift)(src, 2, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth,
                                              windowHeight, maxIterations, epsilon, window, iterations, nullptr);
}
int32_t tvxConAdaTracku8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          uint32_t windowX, uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight,
                          int32_t maxIterations, float epsilon, uint32_t* window, float* box) {
  return HWY_DYNAMIC_DISPATCH(TrackMeanShift)(src, 0, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth,
                                              windowHeight, maxIterations, epsilon, window, nullptr, box);
}
int32_t tvxConAdaTracks32V(const int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                           uint32_t windowX, uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight,
                           int32_t maxIterations, float epsilon, uint32_t* window, float* box) {
  return HWY_DYNAMIC_DISPATCH(TrackMeanShift)(src, 1, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth,
                                              windowHeight, maxIterations, epsilon, window, nullptr, box);
}
int32_t tvxConAdaTrackf32V(const float* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                           uint32_t windowX, uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight,
                           int32_t maxIterations, float epsilon, uint32_t* window, float* box) {
  return HWY_DYNAMIC_DISPATCH(TrackMeanShift)(src, 2, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth,
                                              windowHeight, maxIterations, epsilon, window, nullptr, box);
}
#endif  // HWY_ONCE
