// Reference variants of the general scaler (nearest, bilinear with a border rule, area) and of
// the M-to-N area scaler for planar bytes and byte pairs.
#include <cstddef>

#include "cpu/scale_general_taps.h"
#include "cpu/scale_taps.h"
#include "frame/frame.h"

namespace {

enum : uint32_t { kNearest = 0, kBilinear = 1, kArea = 2 };
enum : uint32_t { kBorderReplicate = 2 };

inline const uint8_t* RowOf(const uint8_t* base, uint32_t stride, int64_t y) {
  return base + static_cast<size_t>(y) * stride;
}
inline uint8_t* RowOf(uint8_t* base, uint32_t stride, int64_t y) { return base + static_cast<size_t>(y) * stride; }

void Nearest(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
             uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const uint8_t* in = RowOf(src, srcStride, tvxscale::NearestIndex(y, srcHeight, dstHeight));
    for (uint32_t x = 0; x < dstWidth; ++x) RowOf(dst, dstStride, y)[x] = in[tvxscale::NearestIndex(x, srcWidth, dstWidth)];
  }
}

void Bilinear(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
              uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  // Pixel (x, y), which may lie one step outside the image.
  const auto at = [&](int64_t x, int64_t y) -> uint32_t {
    const bool inside = x >= 0 && y >= 0 && x < srcWidth && y < srcHeight;
    if (!inside && borderType != kBorderReplicate) return borderValue;
    return RowOf(src, srcStride, tvxsg::Clamp(y, srcHeight))[tvxsg::Clamp(x, srcWidth)];
  };
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const tvxsg::EdgeTap ty = tvxsg::LinearAt(y, srcHeight, dstHeight);
    for (uint32_t x = 0; x < dstWidth; ++x) {
      const tvxsg::EdgeTap tx = tvxsg::LinearAt(x, srcWidth, dstWidth);
      const uint32_t v0 = (256 - ty.w) * at(tx.i0, ty.i0) + ty.w * at(tx.i0, ty.i0 + 1);
      const uint32_t v1 = (256 - ty.w) * at(tx.i0 + 1, ty.i0) + ty.w * at(tx.i0 + 1, ty.i0 + 1);
      RowOf(dst, dstStride, y)[x] = static_cast<uint8_t>(((256 - tx.w) * v0 + tx.w * v1 + 32768) >> 16);
    }
  }
}

// Area averaging of pixels of ch interleaved bytes, each byte on its own.
void Area(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst, uint32_t dstWidth,
          uint32_t dstHeight, uint32_t dstStride, uint32_t ch) {
  const tvxsg::AreaTaps tx = tvxsg::AreaWeights(srcWidth, dstWidth);
  const tvxsg::AreaTaps ty = tvxsg::AreaWeights(srcHeight, dstHeight);
  for (uint32_t y = 0; y < dstHeight; ++y) {
    for (uint32_t x = 0; x < dstWidth; ++x) {
      for (uint32_t c = 0; c < ch; ++c) {
        uint32_t sum = 0;
        for (uint32_t j = 0; j < ty.count[y]; ++j) {
          const uint8_t* row = RowOf(src, srcStride, ty.first[y] + j);
          for (uint32_t i = 0; i < tx.count[x]; ++i)
            sum += uint32_t{ty.weight[ty.start[y] + j]} * tx.weight[tx.start[x] + i] * row[(tx.first[x] + i) * ch + c];
        }
        RowOf(dst, dstStride, y)[x * ch + c] = static_cast<uint8_t>((sum + 32768) >> 16);
      }
    }
  }
}

}  // namespace

int32_t tvxScaleu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t interpolation,
                       uint32_t borderType, uint8_t borderValue) {
  switch (interpolation) {
    case kNearest:
      Nearest(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride);
      return 0;
    case kBilinear:
      Bilinear(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, borderType, borderValue);
      return 0;
    case kArea:
      Area(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, 1);
      return 0;
    default:
      return 3;
  }
}

int32_t tvxScaleu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t interpolation) {
  return tvxScaleu8_v2C(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, interpolation, 0, 0);
}

void tvxScaleDownMNu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  Area(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, 1);
}

void tvxScaleDownMNInterleaveu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  Area(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, 2);
}
