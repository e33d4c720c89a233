// Reference variants of the patch tools: the oriented 17x17 patch copy, the 36-cell descriptor,
// sampled descriptor statistics, descriptor normalisation and the 8x8 NCC searches.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "cpu/ncc_rules.h"
#include "frame/frame.h"

namespace {

constexpr int kRegionSide = 25;
constexpr int kPatchSide = 17;
// First row (and column) of each of the six 3x3 cell bands; mirror-symmetric about row 8.
constexpr int kCellStart[6] = {0, 3, 6, 8, 11, 14};

inline int ClampRegion(int v) { return v < 0 ? 0 : (v > kRegionSide - 1 ? kRegionSide - 1 : v); }

}  // namespace

int32_t tvxCopyRotated17x17u8C(const uint8_t* region, uint8_t* patch, int32_t orientation) {
  const tvxncc::Phasor ph = tvxncc::phasorLUT.e[tvxncc::PhasorIndex(orientation)];
  const int32_t c4 = ph.c * 4, s4 = ph.s * 4;  // 16.16 fixed point
  for (int v = -8; v <= 8; ++v) {
    for (int u = -8; u <= 8; ++u) {
      const int32_t px = (12 << 16) + u * c4 - v * s4;
      const int32_t py = (12 << 16) + u * s4 + v * c4;
      const int x0 = px >> 16, y0 = py >> 16;
      const uint32_t fx = static_cast<uint32_t>(px) & 0xFFFFu;
      const uint32_t fy = (static_cast<uint32_t>(py) & 0xFFFFu) >> 2;
      const uint8_t* r0 = region + ClampRegion(y0) * kRegionSide;
      const uint8_t* r1 = region + ClampRegion(y0 + 1) * kRegionSide;
      const int xa = ClampRegion(x0), xb = ClampRegion(x0 + 1);
      const uint32_t top = (r0[xa] * (65536u - fx) + r0[xb] * fx) >> 8;
      const uint32_t bottom = (r1[xa] * (65536u - fx) + r1[xb] * fx) >> 8;
      patch[(v + 8) * kPatchSide + (u + 8)] = static_cast<uint8_t>((top * (16384u - fy) + bottom * fy) >> 22);
    }
  }
  return 0;
}

int32_t tvxDescriptor17x17u8To36s8C(const uint8_t* patch, int8_t* descriptor, int32_t* squaredNorm) {
  int32_t cell[36];
  int32_t total = 0;
  for (int cy = 0; cy < 6; ++cy) {
    for (int cx = 0; cx < 6; ++cx) {
      int32_t sum = 0;
      for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x) sum += patch[(kCellStart[cy] + y) * kPatchSide + kCellStart[cx] + x];
      cell[cy * 6 + cx] = sum >> 3;
      total += sum >> 3;
    }
  }
  const int32_t mean = (total + 18) / 36;
  int32_t maxAbs = 0;
  for (int32_t& v : cell) {
    v -= mean;
    maxAbs = std::abs(v) > maxAbs ? std::abs(v) : maxAbs;
  }
  int32_t norm = 0;
  for (int i = 0; i < 36; ++i) {
    int32_t out = 0;
    if (maxAbs != 0) {
      // round(127 d / maxAbs), halves away from zero
      const int32_t num = 2 * 127 * std::abs(cell[i]) + maxAbs;
      out = num / (2 * maxAbs);
      if (cell[i] < 0) out = -out;
    }
    descriptor[i] = static_cast<int8_t>(out);
    norm += out * out;
  }
  *squaredNorm = norm;
  return 0;
}

int32_t tvxDescriptorSampledMeanAndVar36f32C(const float* samples, int32_t first, int32_t last, const int32_t* indices,
                                             float* means, float* spreads) {
  double sum[36] = {}, sq[36] = {};
  const int64_t end = int64_t{first} + 100 < last ? int64_t{first} + 100 : last;
  const int64_t n = end >= first ? end - first + 1 : 0;
  for (int64_t k = first; k <= end; ++k) {
    const float* d = samples + 36 * static_cast<ptrdiff_t>(indices[k]);
    for (int i = 0; i < 36; ++i) {
      sum[i] += d[i];
      sq[i] += static_cast<double>(d[i]) * d[i];
    }
  }
  for (int i = 0; i < 36; ++i) {
    const double mean = n ? sum[i] / static_cast<double>(n) : 0.0;
    means[i] = static_cast<float>(mean);
    spreads[i] = static_cast<float>(sq[i] - sum[i] * mean);
  }
  return 0;
}

int32_t tvxVecNormalize36s8f32C(const int8_t* src, uint32_t srcStride, const float* invLengths, uint32_t nVectors,
                                float requiredNorm, float* dst, const int32_t* stopFlag) {
  for (uint32_t i = 0; i < nVectors; ++i) {
    if (__atomic_load_n(stopFlag, __ATOMIC_RELAXED) != 0) break;
    const float scale = invLengths[i] * requiredNorm;
    const int8_t* v = src + static_cast<size_t>(i) * srcStride;
    float* out = dst + static_cast<size_t>(i) * 36;
    for (int k = 0; k < 36; ++k) out[k] = static_cast<float>(v[k]) * scale;
  }
  return 0;
}

int32_t tvxNCCPatchOnCircle8x8u8_v2C(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                     uint32_t srcStride, uint32_t searchCenterX, uint32_t searchCenterY,
                                     uint32_t searchRadius, int32_t filterLowVariance, uint32_t* bestX, uint32_t* bestY,
                                     int32_t* bestNCC, int32_t doSubPixel, float* subX, float* subY) {
  return tvxncc::SearchPatch(patch, src, srcWidth, srcHeight, srcStride, searchCenterX, searchCenterY, searchRadius,
                             filterLowVariance, bestX, bestY, bestNCC, doSubPixel, subX, subY, true,
                             &tvxncc::CrossRowScalar);
}

int32_t tvxNCCPatchOnSquare8x8u8_v2C(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                     uint32_t srcStride, uint32_t searchCenterX, uint32_t searchCenterY,
                                     uint32_t searchRadius, int32_t filterLowVariance, uint32_t* bestX, uint32_t* bestY,
                                     int32_t* bestNCC, int32_t doSubPixel, float* subX, float* subY) {
  return tvxncc::SearchPatch(patch, src, srcWidth, srcHeight, srcStride, searchCenterX, searchCenterY, searchRadius,
                             filterLowVariance, bestX, bestY, bestNCC, doSubPixel, subX, subY, false,
                             &tvxncc::CrossRowScalar);
}

int32_t tvxNCCPatchesOnRectu8C(const uint8_t* patches, uint32_t nPatches, const uint8_t* src, uint32_t srcWidth,
                               uint32_t srcHeight, uint32_t srcStride, uint32_t rectX, uint32_t rectY,
                               uint32_t rectWidth, uint32_t rectHeight, int32_t filterLowVariance, uint32_t* bestXY,
                               int32_t* bestNCC) {
  return tvxncc::SearchRect(patches, nPatches, src, srcWidth, srcHeight, srcStride, rectX, rectY, rectWidth,
                            rectHeight, filterLowVariance, bestXY, bestNCC, &tvxncc::CrossRowScalar);
}
