// Per-pixel rules of the video-range decoders (luma offset 16): the 4:2:0 planes behind the
// single source pointer of the RGB565 decoder, its 8-bit fixed-point matrix, and the ten-bit
// matrix of the (Cr, Cb) pseudo-planar decoder. Reference loops use them for every pixel, the
// SIMD kernels for the pixels after the last whole vector.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cpu/color_rules.h"

namespace tvx::color {

// The single source of the RGB565 decoder: the Y plane (width x height, packed), then the U
// plane, then the V plane, each ((width+1)/2) x ((height+1)/2), packed.
struct Yuv420Planes {
  const uint8_t *y, *u, *v;
  uint32_t chromaWidth;
};
inline Yuv420Planes SplitYuv420(const uint8_t* src, uint32_t width, uint32_t height) {
  const uint32_t cw = (width + 1) / 2, ch = (height + 1) / 2;
  const uint8_t* u = src + static_cast<size_t>(width) * height;
  return {src, u, u + static_cast<size_t>(cw) * ch, cw};
}

// Y' = 298*Y - 4768 and the chroma terms; each channel is arithmetically shifted by 8 and
// clamped. The word holds B in bits 15-11, G in 10-5 and R in 4-0.
inline uint16_t VideoRgb565Of(uint8_t y, uint8_t u, uint8_t v) {
  const int32_t luma = 298 * y - 4768;
  const int32_t r = Clamp255((luma + 409 * v - 52352) >> 8);
  const int32_t g = Clamp255((luma + 100 * (128 - u) + 208 * (128 - v)) >> 8);
  const int32_t b = Clamp255((luma + 517 * u - 66176) >> 8);
  return static_cast<uint16_t>(((b & 0xF8) << 8) | ((g & 0xFC) << 3) | (r >> 3));
}
inline void StoreWord(uint8_t* p, uint16_t w) {  // little-endian
  p[0] = static_cast<uint8_t>(w);
  p[1] = static_cast<uint8_t>(w >> 8);
}

// Ten-bit fixed point: luma below 16 counts as 0; each channel is clamped to [0, 0x3FFFF] and
// shifted right by 10.
inline uint8_t TenBitChannel(int32_t v) { return static_cast<uint8_t>((v < 0 ? 0 : (v > 0x3FFFF ? 0x3FFFF : v)) >> 10); }
inline void WriteVideoRgba(uint8_t* p, uint8_t y, uint8_t cr, uint8_t cb) {
  const int32_t luma = y < 16 ? 0 : 1192 * y - 19072;
  const int32_t c = cr - 128, b = cb - 128;
  p[0] = TenBitChannel(luma + 1634 * c);
  p[1] = TenBitChannel(luma - 833 * c - 400 * b);
  p[2] = TenBitChannel(luma + 2066 * b);
  p[3] = 255;
}

}  // namespace tvx::color
