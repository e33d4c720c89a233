// Reference variants of the optical-flow entries: the pyramidal Lucas-Kanade trackers (bytes and
// floats) over the shared driver of cpu/optflow_track.h with plain scalar window kernels, and the
// 16x16 block-matching flow by exhaustive zero-mean SAD search.
#include <cstdlib>

#include "cpu/optflow_track.h"
#include "frame/frame.h"

namespace {

using tvxlk::Level;

template <typename T>
struct ScalarKernel {
  static size_t Pitch(int32_t columns) { return static_cast<size_t>(columns); }

  // getRectSubPix: the (2 halfX + 1) x (2 halfY + 1) window centred on (cx, cy).
  static bool Sample(const Level& level, float cx, float cy, int32_t halfX, int32_t halfY, float* out,
                     size_t pitch) {
    if (!tvxlk::FootprintInside(level, cx, cy, halfX, halfY)) return false;
    const int32_t cols = 2 * halfX + 1, rows = 2 * halfY + 1;
    const tvxlk::Bilinear w = tvxlk::WeightsAt(cx, cy, halfX, halfY);
    for (int32_t j = 0; j < rows; ++j) {
      const T* r0 = tvxlk::LevelRow<T>(level, w.y0 + j) + w.x0;
      const T* r1 = tvxlk::LevelRow<T>(level, w.y0 + j + 1) + w.x0;
      for (int32_t i = 0; i < cols; ++i)
        out[j * pitch + i] = tvxlk::Blend(w, float(r0[i]), float(r0[i + 1]), float(r1[i]), float(r1[i + 1]));
    }
    return true;
  }

  // calcIxIy_32fC over the framed window, with the sums of the gradient matrix.
  static void Gradients(const float* ext, size_t extPitch, int32_t cols, int32_t rows, float* ix, float* iy,
                        size_t pitch, float g[3]) {
    float gxx = 0.0f, gxy = 0.0f, gyy = 0.0f;
    for (int32_t j = 0; j < rows; ++j) {
      const float* e0 = ext + j * extPitch;
      const float* e1 = e0 + extPitch;
      const float* e2 = e1 + extPitch;
      for (int32_t i = 0; i < cols; ++i) {
        const float gx = (tvxlk::kSide * (e0[i + 2] - e0[i]) + tvxlk::kMid * (e1[i + 2] - e1[i])) +
                         tvxlk::kSide * (e2[i + 2] - e2[i]);
        const float gy = (tvxlk::kSide * (e2[i] - e0[i]) + tvxlk::kMid * (e2[i + 1] - e0[i + 1])) +
                         tvxlk::kSide * (e2[i + 2] - e0[i + 2]);
        ix[j * pitch + i] = gx;
        iy[j * pitch + i] = gy;
        gxx += gx * gx;
        gxy += gx * gy;
        gyy += gy * gy;
      }
    }
    g[0] = gxx;
    g[1] = gxy;
    g[2] = gyy;
  }

  static void Mismatch(const float* first, size_t firstPitch, const float* second, const float* ix, const float* iy,
                       size_t pitch, int32_t cols, int32_t rows, float b[2]) {
    float bx = 0.0f, by = 0.0f;
    for (int32_t j = 0; j < rows; ++j) {
      for (int32_t i = 0; i < cols; ++i) {
        const float diff = first[j * firstPitch + i] - second[j * pitch + i];
        bx += diff * ix[j * pitch + i];
        by += diff * iy[j * pitch + i];
      }
    }
    b[0] = bx;
    b[1] = by;
  }
};

using Bytes = ScalarKernel<uint8_t>;
using Floats = ScalarKernel<float>;

const uint8_t* At(const uint8_t* base, uint32_t stride, int64_t x, int64_t y) {
  return base + static_cast<size_t>(y) * stride + static_cast<size_t>(x);
}

// calculateBlockSum16x16C
uint32_t BlockSum16x16(const uint8_t* p, uint32_t stride) {
  uint32_t sum = 0;
  for (int j = 0; j < 16; ++j)
    for (int i = 0; i < 16; ++i) sum += p[static_cast<size_t>(j) * stride + i];
  return sum;
}

// calculateBlockSAD_ZeroMean16x16C: sum of |a - b - (meanA - meanB)|.
uint32_t BlockSADZeroMean16x16(const uint8_t* a, const uint8_t* b, uint32_t stride, int32_t meanDiff) {
  uint32_t sad = 0;
  for (int j = 0; j < 16; ++j)
    for (int i = 0; i < 16; ++i) {
      const size_t k = static_cast<size_t>(j) * stride + i;
      sad += static_cast<uint32_t>(std::abs(int32_t(a[k]) - int32_t(b[k]) - meanDiff));
    }
  return sad;
}

}  // namespace

void tvxTrackLKOpticalFlowu8C(const uint8_t* src1, const uint8_t* src2, uint32_t width, uint32_t height, uint32_t stride,
                              const tvxPyramidLevel* src1Pyr, const tvxPyramidLevel* src2Pyr, const tvxPyramidLevel*,
                              const tvxPyramidLevel*, const float* featureXY, float* featureXY_out,
                              int32_t* featureStatus, int32_t nFeatures, int32_t windowWidth, int32_t windowHeight,
                              int32_t nLevels, int32_t maxIterations) {
  tvxlk::Track<Bytes>(tvxlk::WithLevels(
      tvxlk::RequestOf(src1, src2, width, height, stride, 1, featureXY, featureXY, featureXY_out, featureStatus,
                       nFeatures, windowWidth, windowHeight, nLevels, tvxlk::Normalise(0, maxIterations, 0.0f)),
      src1Pyr, src2Pyr));
}

void tvxTrackLKOpticalFlowu8_v2C(const uint8_t* src1, const uint8_t* src2, uint32_t width, uint32_t height,
                                 uint32_t stride, const tvxPyramidLevel_v2* src1Pyr, const tvxPyramidLevel_v2* src2Pyr,
                                 const tvxPyramidLevel_v2*, const tvxPyramidLevel_v2*, const float* featureXY,
                                 float* featureXY_out, int32_t* featureStatus, int32_t nFeatures, int32_t windowWidth,
                                 int32_t windowHeight, int32_t nLevels, int32_t selector, int32_t maxIterations,
                                 float epsilon) {
  tvxlk::Track<Bytes>(tvxlk::WithLevels(
      tvxlk::RequestOf(src1, src2, width, height, stride, 1, featureXY, featureXY, featureXY_out, featureStatus,
                       nFeatures, windowWidth, windowHeight, nLevels,
                       tvxlk::Normalise(selector, maxIterations, epsilon)),
      src1Pyr, src2Pyr));
}

void tvxTrackLKOpticalFlowf32C(const float* src1, const float* src2, uint32_t width, uint32_t height, uint32_t stride,
                               const tvxPyramidLevel* src1Pyr, const tvxPyramidLevel* src2Pyr, const tvxPyramidLevel*,
                               const tvxPyramidLevel*, const float* featureXY, float* featureXY_out,
                               int32_t* featureStatus, int32_t nFeatures, int32_t windowWidth, int32_t windowHeight,
                               int32_t nLevels, int32_t maxIterations) {
  tvxlk::Track<Floats>(tvxlk::WithLevels(
      tvxlk::RequestOf(src1, src2, width, height, stride, 4, featureXY, featureXY, featureXY_out, featureStatus,
                       nFeatures, windowWidth, windowHeight, nLevels, tvxlk::Normalise(0, maxIterations, 0.0f)),
      src1Pyr, src2Pyr));
}

int32_t tvxTrackLKOpticalFlowu8_v3C(const uint8_t* src1, const uint8_t* src2, uint32_t width, uint32_t height,
                                    uint32_t stride, const tvxPyramidLevel_v2* src1Pyr,
                                    const tvxPyramidLevel_v2* src2Pyr, const float* featureXY, const float* estimates,
                                    float* featureXY_out, int32_t* featureStatus, int32_t nFeatures,
                                    int32_t windowWidth, int32_t windowHeight, int32_t nLevels, int32_t selector,
                                    int32_t maxIterations, float epsilon, int32_t useEstimates) {
  return tvxlk::Track<Bytes>(tvxlk::WithLevels(
      tvxlk::RequestOf(src1, src2, width, height, stride, 1, useEstimates ? estimates : featureXY, featureXY,
                       featureXY_out, featureStatus, nFeatures, windowWidth, windowHeight, nLevels,
                       tvxlk::Normalise(selector, maxIterations, epsilon)),
      src1Pyr, src2Pyr));
}

int32_t tvxTrackBMOpticalFlow16x16u8C(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                                      uint32_t srcStride, uint32_t roiLeft, uint32_t roiTop, uint32_t roiWidth,
                                      uint32_t roiHeight, uint32_t searchRadius, int32_t* flow) {
  const tvxlk::BlockSearch s{src1,        src2,          srcWidth,       srcHeight, srcStride, roiLeft, roiTop,
                             roiWidth / 16, roiHeight / 16, int32_t(searchRadius)};
  for (uint32_t by = 0; by < s.blocksY; ++by) {
    for (uint32_t bx = 0; bx < s.blocksX; ++bx) {
      const uint32_t x0 = roiLeft + 16 * bx, y0 = roiTop + 16 * by;
      const uint8_t* a = At(src1, srcStride, x0, y0);
      const int32_t meanA = int32_t((BlockSum16x16(a, srcStride) + 128) >> 8);
      const auto cost = [&](int32_t dx, int32_t dy) {
        const uint8_t* b = At(src2, srcStride, int64_t{x0} + dx, int64_t{y0} + dy);
        const int32_t meanB = int32_t((BlockSum16x16(b, srcStride) + 128) >> 8);
        return BlockSADZeroMean16x16(a, b, srcStride, meanA - meanB);
      };
      tvxlk::BestDisplacement(s, x0, y0, cost, flow + 2 * (size_t(by) * s.blocksX + bx));
    }
  }
  return 0;
}
