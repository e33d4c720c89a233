// Reference variants of the remaps: nearest neighbour and bilinear sampling of single-byte and
// 4-byte pixels at per-pixel float positions.
#include <cstddef>
#include <cstring>

#include "cpu/remap_rules.h"
#include "frame/frame.h"

namespace {

enum : uint32_t { kNearest = 0, kBilinear = 1, kUnsupported = 2 };

inline const float* MapRow(const float* map, uint32_t mapStride, uint32_t y) {
  return reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(map) + static_cast<size_t>(y) * mapStride);
}

// Pixels of `ch` bytes; `outside` holds the bytes of an outside pixel.
void NearestRemap(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                  uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* mapX, const float* mapY,
                  uint32_t mapStride, uint32_t ch, const uint8_t* outside) {
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const float* mx = MapRow(mapX, mapStride, y);
    const float* my = MapRow(mapY, mapStride, y);
    uint8_t* out = dst + static_cast<size_t>(y) * dstStride;
    for (uint32_t x = 0; x < dstWidth; ++x) {
      uint32_t sx, sy;
      const bool inside = tvxremap::NearestIndex(mx[x], srcWidth, &sx) && tvxremap::NearestIndex(my[x], srcHeight, &sy);
      const uint8_t* pixel = inside ? src + static_cast<size_t>(sy) * srcStride + static_cast<size_t>(sx) * ch : outside;
      std::memcpy(out + static_cast<size_t>(x) * ch, pixel, ch);
    }
  }
}

// Bilinear sampling from a copy of the source framed by one pixel of the outside value on
// every side: neighbours past the last column or row read the frame.
int32_t BilinearRemap(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* mapX, const float* mapY,
                      uint32_t mapStride, uint32_t ch, const uint8_t* outside) {
  const uint64_t fw = uint64_t{srcWidth} + 2, fh = uint64_t{srcHeight} + 2;
  const uint64_t frameBytes = fw * fh * ch;
  if (frameBytes > 0xFFFFFFFFu) return 5;
  uint8_t* frame = static_cast<uint8_t*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(frameBytes), 16));
  if (!frame) return 5;
  const size_t frameStride = static_cast<size_t>(fw) * ch;
  for (size_t i = 0; i < frameBytes; i += ch) std::memcpy(frame + i, outside, ch);
  for (uint32_t y = 0; y < srcHeight; ++y)
    std::memcpy(frame + (y + 1) * frameStride + ch, src + static_cast<size_t>(y) * srcStride, size_t{srcWidth} * ch);

  const float lo = tvxremap::FixedLow(), hiX = tvxremap::FixedHigh(srcWidth), hiY = tvxremap::FixedHigh(srcHeight);
  const int64_t limitX = int64_t{srcWidth} * 32, limitY = int64_t{srcHeight} * 32;
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const float* mx = MapRow(mapX, mapStride, y);
    const float* my = MapRow(mapY, mapStride, y);
    uint8_t* out = dst + static_cast<size_t>(y) * dstStride;
    for (uint32_t x = 0; x < dstWidth; ++x) {
      const int32_t X = tvxremap::FixedPosition(mx[x], lo, hiX);
      const int32_t Y = tvxremap::FixedPosition(my[x], lo, hiY);
      uint8_t* o = out + static_cast<size_t>(x) * ch;
      if (X < 0 || Y < 0 || X >= limitX || Y >= limitY) {
        std::memcpy(o, outside, ch);
        continue;
      }
      const uint32_t fx = X & 31, fy = Y & 31;
      const uint8_t* p0 = frame + (static_cast<size_t>(Y >> 5) + 1) * frameStride + (static_cast<size_t>(X >> 5) + 1) * ch;
      const uint8_t* p1 = p0 + frameStride;
      for (uint32_t c = 0; c < ch; ++c)
        o[c] = static_cast<uint8_t>(tvxremap::Blend(p0[c], p0[c + ch], p1[c], p1[c + ch], fx, fy));
    }
  }
  tvxReleaseScratchBuffer_(frame);
  return 0;
}

}  // namespace

int32_t tvxRemapu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* mapX, const float* mapY,
                       uint32_t mapStride, uint32_t interpolation, uint32_t borderType, uint32_t borderValue) {
  const uint8_t outside = borderType == tvxremap::kBorderConstant ? static_cast<uint8_t>(borderValue) : 0;
  switch (interpolation) {
    case kNearest:
      NearestRemap(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, mapX, mapY, mapStride, 1,
                   &outside);
      return 0;
    case kBilinear:
      return BilinearRemap(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, mapX, mapY,
                           mapStride, 1, &outside);
    case kUnsupported:
      return 6;
    default:
      return 3;
  }
}

int32_t tvxRemapu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* mapX, const float* mapY,
                    uint32_t mapStride, uint32_t interpolation) {
  return tvxRemapu8_v2C(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, mapX, mapY, mapStride,
                        interpolation, 0, 0);
}

int32_t tvxRemapRGBA8888NNu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                              uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* mapX,
                              const float* mapY, uint32_t mapStride) {
  const uint8_t zero[4] = {0, 0, 0, 0};
  NearestRemap(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, mapX, mapY, mapStride, 4, zero);
  return 0;
}

int32_t tvxRemapRGBA8888BLu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                              uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* mapX,
                              const float* mapY, uint32_t mapStride) {
  const uint8_t zero[4] = {0, 0, 0, 0};
  return BilinearRemap(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, mapX, mapY, mapStride, 4,
                       zero);
}
