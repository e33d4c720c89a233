// SIMD variants of the optical-flow entries. The Lucas-Kanade trackers run the shared driver of
// cpu/optflow_track.h with vector window kernels: the bilinear sampling and the derivative
// filter compute each lane with the reference's operations in the reference's order (no fused
// multiply-add), so windows and gradients equal the reference's bit for bit; the gradient-matrix
// and mismatch sums run in lanes over rows padded to the vector width (padding zero), so their
// rounding differs slightly and positions agree with the reference within 1e-3 px. The block
// matcher sums 16-pixel rows in 16-bit lanes: exact integers.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/optflow.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>

#include "cpu/optflow_track.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace optflow {
namespace hn = hwy::HWY_NAMESPACE;

using tvxlk::Level;

template <typename T>
struct PixelLoader;
template <>
struct PixelLoader<float> {
  template <class D>
  static hn::Vec<D> Load(D df, const float* p) {
    return hn::LoadU(df, p);
  }
};
template <>
struct PixelLoader<uint8_t> {
  template <class D>
  static hn::Vec<D> Load(D df, const uint8_t* p) {
    const hn::Rebind<int32_t, D> di;
    const hn::Rebind<uint8_t, D> d8;
    return hn::ConvertTo(df, hn::PromoteTo(di, hn::LoadU(d8, p)));
  }
};

// Windows are narrow (15 columns is typical): vectors of at most 8 floats keep a row to two
// vectors on the widest targets instead of leaving it to the scalar tail.
using DF = hn::CappedTag<float, 8>;

template <typename T>
struct LanesKernel {
  static size_t Pitch(int32_t columns) {
    const DF df;
    const size_t n = hn::Lanes(df);
    return (static_cast<size_t>(columns) + n - 1) / n * n;
  }

  static bool Sample(const Level& level, float cx, float cy, int32_t halfX, int32_t halfY, float* out,
                     size_t pitch) {
    if (!tvxlk::FootprintInside(level, cx, cy, halfX, halfY)) return false;
    const int32_t cols = 2 * halfX + 1, rows = 2 * halfY + 1;
    const DF df;
    const size_t n = hn::Lanes(df);
    const tvxlk::Bilinear w = tvxlk::WeightsAt(cx, cy, halfX, halfY);
    const auto w00 = hn::Set(df, w.w00), w01 = hn::Set(df, w.w01), w10 = hn::Set(df, w.w10), w11 = hn::Set(df, w.w11);
    for (int32_t j = 0; j < rows; ++j) {
      const T* r0 = tvxlk::LevelRow<T>(level, w.y0 + j) + w.x0;
      const T* r1 = tvxlk::LevelRow<T>(level, w.y0 + j + 1) + w.x0;
      float* o = out + j * pitch;
      size_t i = 0;
      // The loads of lane i + 1 stay inside the footprint: the last one reads column i + n <= cols.
      for (; i + n <= size_t(cols); i += n) {
        const auto top2 = hn::Add(hn::Mul(w00, PixelLoader<T>::Load(df, r0 + i)),
                                  hn::Mul(w01, PixelLoader<T>::Load(df, r0 + i + 1)));
        const auto bottom2 = hn::Add(hn::Mul(w10, PixelLoader<T>::Load(df, r1 + i)),
                                     hn::Mul(w11, PixelLoader<T>::Load(df, r1 + i + 1)));
        hn::StoreU(hn::Add(top2, bottom2), df, o + i);
      }
      if (i < size_t(cols) && size_t(cols) >= n) {  // the last vector again, ending at the last column
        i = size_t(cols) - n;
        const auto top2 = hn::Add(hn::Mul(w00, PixelLoader<T>::Load(df, r0 + i)),
                                  hn::Mul(w01, PixelLoader<T>::Load(df, r0 + i + 1)));
        const auto bottom2 = hn::Add(hn::Mul(w10, PixelLoader<T>::Load(df, r1 + i)),
                                     hn::Mul(w11, PixelLoader<T>::Load(df, r1 + i + 1)));
        hn::StoreU(hn::Add(top2, bottom2), df, o + i);
        i = size_t(cols);
      }
      for (; i < size_t(cols); ++i) o[i] = tvxlk::Blend(w, float(r0[i]), float(r0[i + 1]), float(r1[i]), float(r1[i + 1]));
    }
    return true;
  }

  static void Gradients(const float* ext, size_t extPitch, int32_t cols, int32_t rows, float* ix, float* iy,
                        size_t pitch, float g[3]) {
    const DF df;
    const size_t n = hn::Lanes(df);
    const auto side = hn::Set(df, tvxlk::kSide), mid = hn::Set(df, tvxlk::kMid);
    for (int32_t j = 0; j < rows; ++j) {
      const float* e0 = ext + j * extPitch;
      const float* e1 = e0 + extPitch;
      const float* e2 = e1 + extPitch;
      const auto derive = [&](size_t i) {
        const auto l0 = hn::LoadU(df, e0 + i), c0 = hn::LoadU(df, e0 + i + 1), r0 = hn::LoadU(df, e0 + i + 2);
        const auto l1 = hn::LoadU(df, e1 + i), r1 = hn::LoadU(df, e1 + i + 2);
        const auto l2 = hn::LoadU(df, e2 + i), c2 = hn::LoadU(df, e2 + i + 1), r2 = hn::LoadU(df, e2 + i + 2);
        hn::StoreU(hn::Add(hn::Add(hn::Mul(side, hn::Sub(r0, l0)), hn::Mul(mid, hn::Sub(r1, l1))),
                           hn::Mul(side, hn::Sub(r2, l2))),
                   df, ix + j * pitch + i);
        hn::StoreU(hn::Add(hn::Add(hn::Mul(side, hn::Sub(l2, l0)), hn::Mul(mid, hn::Sub(c2, c0))),
                           hn::Mul(side, hn::Sub(r2, r0))),
                   df, iy + j * pitch + i);
      };
      size_t i = 0;
      for (; i + n <= size_t(cols); i += n) derive(i);
      if (i < size_t(cols) && size_t(cols) >= n) {  // the last vector again, ending at the last column
        derive(size_t(cols) - n);
        i = size_t(cols);
      }
      for (; i < size_t(cols); ++i) {
        ix[j * pitch + i] = (tvxlk::kSide * (e0[i + 2] - e0[i]) + tvxlk::kMid * (e1[i + 2] - e1[i])) +
                            tvxlk::kSide * (e2[i + 2] - e2[i]);
        iy[j * pitch + i] = (tvxlk::kSide * (e2[i] - e0[i]) + tvxlk::kMid * (e2[i + 1] - e0[i + 1])) +
                            tvxlk::kSide * (e2[i + 2] - e0[i + 2]);
      }
    }
    // The sums over whole padded rows (the padding is zero).
    auto sxx = hn::Zero(df), sxy = hn::Zero(df), syy = hn::Zero(df);
    for (int32_t j = 0; j < rows; ++j)
      for (size_t k = 0; k < pitch; k += n) {
        const auto gx = hn::LoadU(df, ix + j * pitch + k), gy = hn::LoadU(df, iy + j * pitch + k);
        sxx = hn::Add(sxx, hn::Mul(gx, gx));
        sxy = hn::Add(sxy, hn::Mul(gx, gy));
        syy = hn::Add(syy, hn::Mul(gy, gy));
      }
    g[0] = hn::GetLane(hn::SumOfLanes(df, sxx));
    g[1] = hn::GetLane(hn::SumOfLanes(df, sxy));
    g[2] = hn::GetLane(hn::SumOfLanes(df, syy));
  }

  // Whole padded rows: the padding of ix, iy and the second window is zero, and the first
  // window's padding reads finite pixels of its frame, so padded lanes add nothing.
  static void Mismatch(const float* first, size_t firstPitch, const float* second, const float* ix, const float* iy,
                       size_t pitch, int32_t, int32_t rows, float b[2]) {
    const DF df;
    const size_t n = hn::Lanes(df);
    auto bx = hn::Zero(df), by = hn::Zero(df);
    for (int32_t j = 0; j < rows; ++j) {
      for (size_t i = 0; i < pitch; i += n) {
        const auto diff = hn::Sub(hn::LoadU(df, first + j * firstPitch + i), hn::LoadU(df, second + j * pitch + i));
        bx = hn::Add(bx, hn::Mul(diff, hn::LoadU(df, ix + j * pitch + i)));
        by = hn::Add(by, hn::Mul(diff, hn::LoadU(df, iy + j * pitch + i)));
      }
    }
    b[0] = hn::GetLane(hn::SumOfLanes(df, bx));
    b[1] = hn::GetLane(hn::SumOfLanes(df, by));
  }
};

// Sum of the 16 x 16 block and, when meanDiff is given, its zero-mean SAD against `a`. The
// 16-bit lanes hold at most 32 terms of at most 510.
struct BlockRows {
  static int32_t Reduce(const hn::CappedTag<int16_t, 8> d16, hn::Vec<hn::CappedTag<int16_t, 8>> v) {
    HWY_ALIGN int16_t lanes[8];
    hn::Store(v, d16, lanes);
    int32_t sum = 0;
    for (size_t i = 0; i < hn::Lanes(d16); ++i) sum += lanes[i];
    return sum;
  }
  static uint32_t Sum(const uint8_t* b, uint32_t stride) {
    const hn::CappedTag<int16_t, 8> d16;
    const hn::Rebind<uint8_t, decltype(d16)> d8;
    const size_t n = hn::Lanes(d16);
    auto acc = hn::Zero(d16);
    for (int j = 0; j < 16; ++j)
      for (size_t i = 0; i < 16; i += n) acc = hn::Add(acc, hn::PromoteTo(d16, hn::LoadU(d8, b + size_t(j) * stride + i)));
    return static_cast<uint32_t>(Reduce(d16, acc));
  }
  static uint32_t SAD(const uint8_t* a, const uint8_t* b, uint32_t stride, int32_t meanDiff) {
    const hn::CappedTag<int16_t, 8> d16;
    const hn::Rebind<uint8_t, decltype(d16)> d8;
    const size_t n = hn::Lanes(d16);
    const auto shift = hn::Set(d16, static_cast<int16_t>(meanDiff));
    auto acc = hn::Zero(d16);
    for (int j = 0; j < 16; ++j) {
      for (size_t i = 0; i < 16; i += n) {
        const size_t k = size_t(j) * stride + i;
        const auto va = hn::PromoteTo(d16, hn::LoadU(d8, a + k)), vb = hn::PromoteTo(d16, hn::LoadU(d8, b + k));
        acc = hn::Add(acc, hn::Abs(hn::Sub(hn::Sub(va, vb), shift)));
      }
    }
    return static_cast<uint32_t>(Reduce(d16, acc));
  }
};

}  // namespace optflow

int32_t OptflowTrackBytes(const tvxlk::Request& r) { return tvxlk::Track<optflow::LanesKernel<uint8_t>>(r); }
int32_t OptflowTrackFloats(const tvxlk::Request& r) { return tvxlk::Track<optflow::LanesKernel<float>>(r); }

int32_t OptflowBlockFlow(const tvxlk::BlockSearch& s, int32_t* flow) {
  for (uint32_t by = 0; by < s.blocksY; ++by) {
    for (uint32_t bx = 0; bx < s.blocksX; ++bx) {
      const uint32_t x0 = s.left + 16 * bx, y0 = s.top + 16 * by;
      const uint8_t* a = s.src1 + size_t(y0) * s.stride + x0;
      const int32_t meanA = int32_t((optflow::BlockRows::Sum(a, s.stride) + 128) >> 8);
      const auto cost = [&](int32_t dx, int32_t dy) {
        const uint8_t* b = s.src2 + size_t(int64_t{y0} + dy) * s.stride + size_t(int64_t{x0} + dx);
        const int32_t meanB = int32_t((optflow::BlockRows::Sum(b, s.stride) + 128) >> 8);
        return optflow::BlockRows::SAD(a, b, s.stride, meanA - meanB);
      };
      tvxlk::BestDisplacement(s, x0, y0, cost, flow + 2 * (size_t(by) * s.blocksX + bx));
    }
  }
  return 0;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(OptflowTrackBytes);
HWY_EXPORT(OptflowTrackFloats);
HWY_EXPORT(OptflowBlockFlow);
}  // namespace tvx

using namespace tvx;

void tvxTrackLKOpticalFlowu8V(const uint8_t* src1, const uint8_t* src2, uint32_t width, uint32_t height, uint32_t stride,
                              const tvxPyramidLevel* src1Pyr, const tvxPyramidLevel* src2Pyr, const tvxPyramidLevel*,
                              const tvxPyramidLevel*, const float* featureXY, float* featureXY_out,
                              int32_t* featureStatus, int32_t nFeatures, int32_t windowWidth, int32_t windowHeight,
                              int32_t nLevels, int32_t maxIterations) {
  HWY_DYNAMIC_DISPATCH(OptflowTrackBytes)(tvxlk::WithLevels(
      tvxlk::RequestOf(src1, src2, width, height, stride, 1, featureXY, featureXY, featureXY_out, featureStatus,
                       nFeatures, windowWidth, windowHeight, nLevels, tvxlk::Normalise(0, maxIterations, 0.0f)),
      src1Pyr, src2Pyr));
}

void tvxTrackLKOpticalFlowu8_v2V(const uint8_t* src1, const uint8_t* src2, uint32_t width, uint32_t height,
                                 uint32_t stride, const tvxPyramidLevel_v2* src1Pyr, const tvxPyramidLevel_v2* src2Pyr,
                                 const tvxPyramidLevel_v2*, const tvxPyramidLevel_v2*, const float* featureXY,
                                 float* featureXY_out, int32_t* featureStatus, int32_t nFeatures, int32_t windowWidth,
                                 int32_t windowHeight, int32_t nLevels, int32_t selector, int32_t maxIterations,
                                 float epsilon) {
  HWY_DYNAMIC_DISPATCH(OptflowTrackBytes)(tvxlk::WithLevels(
      tvxlk::RequestOf(src1, src2, width, height, stride, 1, featureXY, featureXY, featureXY_out, featureStatus,
                       nFeatures, windowWidth, windowHeight, nLevels,
                       tvxlk::Normalise(selector, maxIterations, epsilon)),
      src1Pyr, src2Pyr));
}

void tvxTrackLKOpticalFlowf32V(const float* src1, const float* src2, uint32_t width, uint32_t height, uint32_t stride,
                               const tvxPyramidLevel* src1Pyr, const tvxPyramidLevel* src2Pyr, const tvxPyramidLevel*,
                               const tvxPyramidLevel*, const float* featureXY, float* featureXY_out,
                               int32_t* featureStatus, int32_t nFeatures, int32_t windowWidth, int32_t windowHeight,
                               int32_t nLevels, int32_t maxIterations) {
  HWY_DYNAMIC_DISPATCH(OptflowTrackFloats)(tvxlk::WithLevels(
      tvxlk::RequestOf(src1, src2, width, height, stride, 4, featureXY, featureXY, featureXY_out, featureStatus,
                       nFeatures, windowWidth, windowHeight, nLevels, tvxlk::Normalise(0, maxIterations, 0.0f)),
      src1Pyr, src2Pyr));
}

int32_t tvxTrackLKOpticalFlowu8_v3V(const uint8_t* src1, const uint8_t* src2, uint32_t width, uint32_t height,
                                    uint32_t stride, const tvxPyramidLevel_v2* src1Pyr,
                                    const tvxPyramidLevel_v2* src2Pyr, const float* featureXY, const float* estimates,
                                    float* featureXY_out, int32_t* featureStatus, int32_t nFeatures,
                                    int32_t windowWidth, int32_t windowHeight, int32_t nLevels, int32_t selector,
                                    int32_t maxIterations, float epsilon, int32_t useEstimates) {
  return HWY_DYNAMIC_DISPATCH(OptflowTrackBytes)(tvxlk::WithLevels(
      tvxlk::RequestOf(src1, src2, width, height, stride, 1, useEstimates ? estimates : featureXY, featureXY,
                       featureXY_out, featureStatus, nFeatures, windowWidth, windowHeight, nLevels,
                       tvxlk::Normalise(selector, maxIterations, epsilon)),
      src1Pyr, src2Pyr));
}

int32_t tvxTrackBMOpticalFlow16x16u8V(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                                      uint32_t srcStride, uint32_t roiLeft, uint32_t roiTop, uint32_t roiWidth,
                                      uint32_t roiHeight, uint32_t searchRadius, int32_t* flow) {
  const tvxlk::BlockSearch s{src1,        src2,          srcWidth,       srcHeight, srcStride, roiLeft, roiTop,
                             roiWidth / 16, roiHeight / 16, int32_t(searchRadius)};
  return HWY_DYNAMIC_DISPATCH(OptflowBlockFlow)(s, flow);
}
#endif  // HWY_ONCE
