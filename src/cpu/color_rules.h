// Per-pixel rules of the colour family: pixel-format reads and writes, the forward and
// inverse YCbCr matrices and the grey weights. The reference variants are loops over these;
// the SIMD variants use them for the pixels at the end of a row that do not fill a vector, so
// both tiers agree on those pixels by construction.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvx::color {

// Chroma resolution of a YCbCr layout: full, half width, half width and height.
enum class Sampling { k444, k422, k420 };

// The three colour bytes of a pixel in RGB888 memory order (b0, b1, b2) plus alpha.
struct Pixel {
  uint8_t b0, b1, b2, a;
};

enum class Fmt { kRGB565, kBGR565, kRGB888, kBGR888, kRGBA8888, kBGRA8888 };

constexpr size_t BytesPerPixel(Fmt f) {
  return f == Fmt::kRGB565 || f == Fmt::kBGR565 ? 2 : (f == Fmt::kRGB888 || f == Fmt::kBGR888 ? 3 : 4);
}
constexpr bool SwapsBytes0And2(Fmt f) { return f == Fmt::kBGR565 || f == Fmt::kBGR888 || f == Fmt::kBGRA8888; }

// RGB565 word: bits 15-11 = byte 2 >> 3, bits 10-5 = byte 1 >> 2, bits 4-0 = byte 0 >> 3.
// Expansion leaves the low bits 0 (no bit replication).
inline uint16_t Pack565(uint8_t b0, uint8_t b1, uint8_t b2) {
  return static_cast<uint16_t>(((b2 >> 3) << 11) | ((b1 >> 2) << 5) | (b0 >> 3));
}
inline Pixel Expand565(uint16_t w) {
  return {static_cast<uint8_t>((w & 0x1F) << 3), static_cast<uint8_t>(((w >> 5) & 0x3F) << 2),
          static_cast<uint8_t>((w >> 11) << 3), 255};
}

// Reads a pixel of format F; alpha is 255 for formats without it.
template <Fmt F>
inline Pixel ReadPixel(const uint8_t* p) {
  Pixel px;
  if constexpr (BytesPerPixel(F) == 2) {
    px = Expand565(static_cast<uint16_t>(p[0] | (p[1] << 8)));  // little-endian word
  } else {
    px = {p[0], p[1], p[2], BytesPerPixel(F) == 4 ? p[3] : uint8_t{255}};
  }
  if constexpr (SwapsBytes0And2(F)) return {px.b2, px.b1, px.b0, px.a};
  return px;
}

// Writes a pixel in format F; four-byte formats take the pixel's alpha.
template <Fmt F>
inline void WritePixel(uint8_t* p, Pixel px) {
  if constexpr (SwapsBytes0And2(F)) px = {px.b2, px.b1, px.b0, px.a};
  if constexpr (BytesPerPixel(F) == 2) {
    const uint16_t w = Pack565(px.b0, px.b1, px.b2);
    p[0] = static_cast<uint8_t>(w);
    p[1] = static_cast<uint8_t>(w >> 8);
  } else {
    p[0] = px.b0;
    p[1] = px.b1;
    p[2] = px.b2;
    if constexpr (BytesPerPixel(F) == 4) p[3] = px.a;
  }
}

// ---- forward matrix: byte 2 carries the red weight here (unlike grey and the inverse).

inline uint8_t LumaOf(Pixel p) { return static_cast<uint8_t>((29 * p.b0 + 150 * p.b1 + 77 * p.b2 + 128) >> 8); }

// 128 + the arithmetically shifted sum; a shifted value of 128 or more is written as 255.
inline uint8_t ChromaFromSum(int32_t sum) {
  const int32_t shifted = sum >> 8;
  return static_cast<uint8_t>(shifted > 127 ? 255 : 128 + shifted);
}
inline uint8_t CbOf(Pixel p) { return ChromaFromSum(128 * p.b0 - 85 * p.b1 - 43 * p.b2 + 128); }
inline uint8_t CrOf(Pixel p) { return ChromaFromSum(-21 * p.b0 - 107 * p.b1 + 128 * p.b2 + 128); }

// ---- grey: byte 0 weighted as red.

inline uint8_t GrayOf(const uint8_t* rgb) {
  return static_cast<uint8_t>((19595u * rgb[0] + 38469u * rgb[1] + 7471u * rgb[2] + 32768u) >> 16);
}

// ---- inverse matrix: byte 0 is red.

inline uint8_t Clamp255(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }
inline Pixel RgbOf(uint8_t y, uint8_t cb, uint8_t cr) {
  const int32_t base = 256 * y + 128, d = cb - 128, e = cr - 128;
  return {Clamp255((base + 359 * e) >> 8), Clamp255((base - 88 * d - 183 * e) >> 8),
          Clamp255((base + 454 * d) >> 8), 255};
}

// Row y of a byte image.
inline const uint8_t* RowAt(const uint8_t* base, uint32_t stride, uint32_t y) {
  return base + static_cast<size_t>(stride) * y;
}
inline uint8_t* RowAt(uint8_t* base, uint32_t stride, uint32_t y) { return base + static_cast<size_t>(stride) * y; }

}  // namespace tvx::color
