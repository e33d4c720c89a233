// Reference variants of the mean-shift trackers on u8, s32 and f32 probability images.
#include <cstddef>

#include "cpu/track_shift.h"
#include "frame/frame.h"

namespace {

using tvxtrack::IntMoments;
using tvxtrack::Moments;
using tvxtrack::Rect;

template <typename T>
const T* RowAt(const T* src, uint32_t stride, int64_t y) {
  return reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(src) + static_cast<size_t>(y) * stride);
}

// Exact sums for integer probabilities (wrapping modulo 2^64 for extreme s32 data).
template <typename T>
Moments IntegerSums(const T* src, uint32_t stride, const Rect& r, bool second) {
  IntMoments acc;
  for (int64_t y = 0; y < r.h; ++y) {
    const T* row = RowAt(src, stride, r.y + y) + r.x;
    uint64_t s0 = 0, s1 = 0, s2 = 0;
    for (int64_t x = 0; x < r.w; ++x) {
      const uint64_t p = static_cast<uint64_t>(static_cast<int64_t>(row[x]));
      s0 += p;
      s1 += static_cast<uint64_t>(x) * p;
      if (second) s2 += static_cast<uint64_t>(x * x) * p;
    }
    acc.addRow(static_cast<uint64_t>(y), s0, s1, s2);
  }
  return acc.toDouble();
}

// Float probabilities: four single-precision partial sums per row (columns j mod 4), the rows
// added in double precision.
Moments FloatSums(const float* src, uint32_t stride, const Rect& r, bool second) {
  Moments m;
  for (int64_t y = 0; y < r.h; ++y) {
    const float* row = RowAt(src, stride, r.y + y) + r.x;
    float s0[4] = {0, 0, 0, 0}, s1[4] = {0, 0, 0, 0}, s2[4] = {0, 0, 0, 0};
    for (int64_t x = 0; x < r.w; ++x) {
      const float p = row[x], fx = static_cast<float>(x);
      s0[x & 3] += p;
      s1[x & 3] += fx * p;
      if (second) s2[x & 3] += (fx * fx) * p;
    }
    tvxtrack::AddRow(m, y, ((s0[0] + s0[1]) + s0[2]) + s0[3], ((s1[0] + s1[1]) + s1[2]) + s1[3],
                     ((s2[0] + s2[1]) + s2[2]) + s2[3]);
  }
  return m;
}

template <typename T>
Moments Sums(const T* src, uint32_t stride, const Rect& r, bool second) {
  return IntegerSums(src, stride, r, second);
}
template <>
Moments Sums<float>(const float* src, uint32_t stride, const Rect& r, bool second) {
  return FloatSums(src, stride, r, second);
}

template <typename T>
int32_t MeanShift(const T* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t windowX,
                  uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight, int32_t maxIterations, float epsilon,
                  uint32_t* window, uint32_t* iterations) {
  Rect r = tvxtrack::ClipWindow(srcWidth, srcHeight, windowX, windowY, windowWidth, windowHeight);
  const uint32_t n = tvxtrack::MeanShiftLoop(srcWidth, srcHeight, r, maxIterations, epsilon,
                                             [&](const Rect& w, bool second) { return Sums(src, srcStride, w, second); });
  tvxtrack::StoreWindow(r, window);
  if (iterations) *iterations = n;
  return 0;
}

template <typename T>
int32_t Adaptive(const T* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t windowX,
                 uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight, int32_t maxIterations, float epsilon,
                 uint32_t* window, float* box) {
  Rect r = tvxtrack::ClipWindow(srcWidth, srcHeight, windowX, windowY, windowWidth, windowHeight);
  tvxtrack::AdaptiveTrack(srcWidth, srcHeight, r, maxIterations, epsilon,
                          [&](const Rect& w, bool second) { return Sums(src, srcStride, w, second); }, box);
  tvxtrack::StoreWindow(r, window);
  return 0;
}

}  // namespace

int32_t tvxMeanShiftu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t windowX,
                        uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight, int32_t maxIterations,
                        float epsilon, uint32_t* window, uint32_t* iterations) {
  return MeanShift(src, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth, windowHeight, maxIterations,
                   epsilon, window, iterations);
}
int32_t tvxMeanShifts32C(const int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                         uint32_t windowX, uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight,
                         int32_t maxIterations, float epsilon, uint32_t* window, uint32_t* iterations) {
  return MeanShift(src, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth, windowHeight, maxIterations,
                   epsilon, window, iterations);
}
int32_t tvxMeanShiftf32C(const float* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t windowX,
                         uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight, int32_t maxIterations,
                         float epsilon, uint32_t* window, uint32_t* iterations) {
  return MeanShift(src, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth, windowHeight, maxIterations,
                   epsilon, window, iterations);
}
int32_t tvxConAdaTracku8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          uint32_t windowX, uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight,
                          int32_t maxIterations, float epsilon, uint32_t* window, float* box) {
  return Adaptive(src, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth, windowHeight, maxIterations,
                  epsilon, window, box);
}
int32_t tvxConAdaTracks32C(const int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                           uint32_t windowX, uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight,
                           int32_t maxIterations, float epsilon, uint32_t* window, float* box) {
  return Adaptive(src, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth, windowHeight, maxIterations,
                  epsilon, window, box);
}
int32_t tvxConAdaTrackf32C(const float* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                           uint32_t windowX, uint32_t windowY, uint32_t windowWidth, uint32_t windowHeight,
                           int32_t maxIterations, float epsilon, uint32_t* window, float* box) {
  return Adaptive(src, srcWidth, srcHeight, srcStride, windowX, windowY, windowWidth, windowHeight, maxIterations,
                  epsilon, window, box);
}
