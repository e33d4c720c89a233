// Reference variants of the channel extraction and the plane interleaving.
#include "cpu/channel_rules.h"
#include "frame/frame.h"

using namespace tvx::channel;

namespace {

inline const uint8_t* Row(const uint8_t* base, uint32_t stride, uint32_t y) {
  return base + static_cast<size_t>(stride) * y;
}
inline uint8_t* Row(uint8_t* base, uint32_t stride, uint32_t y) { return base + static_cast<size_t>(stride) * y; }

// dst pixel x of every row takes byte k from planes[k] at x.
void Interleave(const uint8_t* const* planes, const uint32_t* strides, uint32_t count, uint32_t width,
                uint32_t height, uint8_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* d = Row(dst, dstStride, y);
    for (uint32_t k = 0; k < count; ++k) {
      const uint8_t* s = Row(planes[k], strides[k], y);
      for (uint32_t x = 0; x < width; ++x) d[x * count + k] = s[x];
    }
  }
}

}  // namespace

int32_t tvxChannelExtractu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             const uint8_t* srcChroma, uint32_t srcChromaStride, uint8_t* dst, uint32_t dstStride,
                             uint32_t format, uint32_t channel) {
  const Walk w = WalkOf(format, channel, srcWidth, srcHeight);
  const uint8_t* base = w.chromaPlane ? srcChroma : src;
  const uint32_t stride = w.chromaPlane ? srcChromaStride : srcStride;
  for (uint32_t y = 0; y < w.outHeight; ++y) {
    const uint8_t* s = Row(base, stride, y) + w.first;
    uint8_t* d = Row(dst, dstStride, y);
    for (uint32_t x = 0; x < w.outWidth; ++x) d[x] = s[static_cast<size_t>(x) * w.step];
  }
  return 0;
}

int32_t tvxChannelCombine2Planesu8C(const uint8_t* src1, uint32_t srcWidth, uint32_t srcHeight, uint32_t src1Stride,
                                    const uint8_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  const uint8_t* planes[] = {src1, src2};
  const uint32_t strides[] = {src1Stride, src2Stride};
  Interleave(planes, strides, 2, srcWidth, srcHeight, dst, dstStride);
  return 0;
}

int32_t tvxChannelCombine3Planesu8C(const uint8_t* src1, uint32_t srcWidth, uint32_t srcHeight, uint32_t src1Stride,
                                    const uint8_t* src2, uint32_t src2Stride, const uint8_t* src3,
                                    uint32_t src3Stride, uint8_t* dst, uint32_t dstStride) {
  const uint8_t* planes[] = {src1, src2, src3};
  const uint32_t strides[] = {src1Stride, src2Stride, src3Stride};
  Interleave(planes, strides, 3, srcWidth, srcHeight, dst, dstStride);
  return 0;
}

int32_t tvxChannelCombine4Planesu8C(const uint8_t* src1, uint32_t srcWidth, uint32_t srcHeight, uint32_t src1Stride,
                                    const uint8_t* src2, uint32_t src2Stride, const uint8_t* src3,
                                    uint32_t src3Stride, const uint8_t* src4, uint32_t src4Stride, uint8_t* dst,
                                    uint32_t dstStride) {
  const uint8_t* planes[] = {src1, src2, src3, src4};
  const uint32_t strides[] = {src1Stride, src2Stride, src3Stride, src4Stride};
  Interleave(planes, strides, 4, srcWidth, srcHeight, dst, dstStride);
  return 0;
}

TVX_EXTRACT_HELPERS(C, tvxChannelExtractu8C)
