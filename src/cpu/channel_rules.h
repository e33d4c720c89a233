// Source formats of the channel extraction and where a channel's bytes lie in them. The
// reference and SIMD variants share these so that both read the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvx::channel {

enum Format : uint32_t { kRGB888 = 0, kRGBA8888 = 1, kNV12 = 2, kNV21 = 3, kUYVY = 4, kYUYV = 5 };
enum YuvChannel : uint32_t { kY = 0, kCb = 1, kCr = 2 };

// Bytes that one extraction walks: output sample x of row y reads row y of the source plane
// at first + x * step. The chroma plane of NV12/NV21 has half the rows.
struct Walk {
  bool chromaPlane;  // read srcChroma instead of src
  uint32_t first, step;
  uint32_t outWidth;  // samples per output row
  uint32_t outHeight;
};

inline Walk WalkOf(uint32_t format, uint32_t channel, uint32_t width, uint32_t height) {
  const uint32_t halfWidth = (width + 1) / 2;
  switch (format) {
    case kRGB888: return {false, channel, 3, width, height};
    case kRGBA8888: return {false, channel, 4, width, height};
    case kNV12:
    case kNV21: {
      if (channel == kY) return {false, 0, 1, width, height};
      const bool cbFirst = format == kNV12;
      const uint32_t first = (channel == kCb) == cbFirst ? 0 : 1;
      return {true, first, 2, halfWidth, (height + 1) / 2};
    }
    case kUYVY:  // U Y0 V Y1
      return channel == kY ? Walk{false, 1, 2, width, height}
                           : Walk{false, channel == kCb ? 0u : 2u, 4, halfWidth, height};
    default:  // kYUYV: Y0 U Y1 V
      return channel == kY ? Walk{false, 0, 2, width, height}
                           : Walk{false, channel == kCb ? 1u : 3u, 4, halfWidth, height};
  }
}

}  // namespace tvx::channel

// The channel-extract helpers (one per source format) as calls of
// EXTRACT(src, width, height, srcStride, srcChroma, srcChromaStride, dst, dstStride, format, channel).
#define TVX_EXTRACT_HELPER_PACKED(SUFFIX, EXTRACT, NAME, FORMAT)                                          \
  void itvxChannelExtractFrom##NAME##SUFFIX(const uint8_t* src, uint32_t width, uint32_t height,         \
                                            uint32_t srcStride, uint8_t* dst, uint32_t dstStride,        \
                                            uint32_t channel) {                                          \
    EXTRACT(src, width, height, srcStride, nullptr, 0, dst, dstStride, FORMAT, channel);                 \
  }
#define TVX_EXTRACT_HELPER_SEMI_PLANAR(SUFFIX, EXTRACT, NAME, FORMAT)                                     \
  void itvxChannelExtractFrom##NAME##SUFFIX(const uint8_t* srcY, const uint8_t* srcC, uint32_t width,    \
                                            uint32_t height, uint32_t srcYStride, uint32_t srcCStride,   \
                                            uint8_t* dst, uint32_t dstStride, uint32_t channel) {        \
    EXTRACT(srcY, width, height, srcYStride, srcC, srcCStride, dst, dstStride, FORMAT, channel);         \
  }
#define TVX_EXTRACT_HELPERS(SUFFIX, EXTRACT)                 \
  TVX_EXTRACT_HELPER_PACKED(SUFFIX, EXTRACT, RGB, 0)         \
  TVX_EXTRACT_HELPER_PACKED(SUFFIX, EXTRACT, RGBA, 1)        \
  TVX_EXTRACT_HELPER_SEMI_PLANAR(SUFFIX, EXTRACT, NV12, 2)   \
  TVX_EXTRACT_HELPER_SEMI_PLANAR(SUFFIX, EXTRACT, NV21, 3)   \
  TVX_EXTRACT_HELPER_PACKED(SUFFIX, EXTRACT, UYVY, 4)        \
  TVX_EXTRACT_HELPER_PACKED(SUFFIX, EXTRACT, YUYV, 5)
