// Reference variants of the RGB to YCbCr conversions and back (planar and pseudo-planar,
// 4:4:4, 4:2:2 and 4:2:0). Towards YCbCr, luma is computed for every pixel and chroma is
// sampled, not averaged: from every pixel (4:4:4), from the even column of each pair (4:2:2),
// and additionally only on the even rows (4:2:0), whose odd rows contribute luma only. Back to
// RGB, each chroma sample is replicated over the pixels it covers.
#include "cpu/color_rules.h"
#include "frame/frame.h"

using namespace tvx::color;

namespace {

// Chroma destination: planar writes Cb and Cr to their own planes; pseudo-planar writes
// interleaved (Cb, Cr) pairs into one plane (cr unused).
struct ChromaOut {
  uint8_t* cb;
  uint8_t* cr;
  uint32_t cbStride, crStride;
  bool planar;
};

template <Fmt F, Sampling S>
void RgbToYCbCr(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dstY,
                uint32_t yStride, ChromaOut c) {
  constexpr size_t kIn = BytesPerPixel(F);
  constexpr uint32_t kStepX = S == Sampling::k444 ? 1 : 2;
  const uint32_t chromaWidth = (width + kStepX - 1) / kStepX;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = RowAt(src, srcStride, y);
    uint8_t* luma = RowAt(dstY, yStride, y);
    for (uint32_t x = 0; x < width; ++x) luma[x] = LumaOf(ReadPixel<F>(s + x * kIn));
    if (S == Sampling::k420 && y % 2 == 1) continue;
    const uint32_t cy = S == Sampling::k420 ? y / 2 : y;
    uint8_t* cb = RowAt(c.cb, c.cbStride, cy);
    uint8_t* cr = c.planar ? RowAt(c.cr, c.crStride, cy) : nullptr;
    for (uint32_t cx = 0; cx < chromaWidth; ++cx) {
      const Pixel p = ReadPixel<F>(s + cx * kStepX * kIn);
      if (c.planar) {
        cb[cx] = CbOf(p);
        cr[cx] = CrOf(p);
      } else {
        cb[2 * cx] = CbOf(p);
        cb[2 * cx + 1] = CrOf(p);
      }
    }
  }
}

}  // namespace

#define TVX_COLOR_TO_PLANAR_C(F, S)                                                                     \
  void tvxColor##F##ToYCbCr##S##Planaru8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,     \
                                          uint32_t srcStride, uint8_t* dstY, uint8_t* dstCb,             \
                                          uint8_t* dstCr, uint32_t dstYStride, uint32_t dstCbStride,     \
                                          uint32_t dstCrStride) {                                       \
    RgbToYCbCr<Fmt::k##F, Sampling::k##S>(src, srcWidth, srcHeight, srcStride, dstY, dstYStride,        \
                                          {dstCb, dstCr, dstCbStride, dstCrStride, true});              \
  }
#define TVX_COLOR_TO_PSEUDO_PLANAR_C(F, S)                                                              \
  void tvxColor##F##ToYCbCr##S##PseudoPlanaru8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, \
                                                uint32_t srcStride, uint8_t* dstY, uint8_t* dstC,        \
                                                uint32_t dstYStride, uint32_t dstCStride) {             \
    RgbToYCbCr<Fmt::k##F, Sampling::k##S>(src, srcWidth, srcHeight, srcStride, dstY, dstYStride,        \
                                          {dstC, nullptr, dstCStride, 0, false});                       \
  }
#define TVX_COLOR_TO_YCBCR_C(F)     \
  TVX_COLOR_TO_PLANAR_C(F, 444)        \
  TVX_COLOR_TO_PLANAR_C(F, 422)        \
  TVX_COLOR_TO_PLANAR_C(F, 420)        \
  TVX_COLOR_TO_PSEUDO_PLANAR_C(F, 444) \
  TVX_COLOR_TO_PSEUDO_PLANAR_C(F, 422) \
  TVX_COLOR_TO_PSEUDO_PLANAR_C(F, 420)

TVX_COLOR_TO_YCBCR_C(RGB565)
TVX_COLOR_TO_YCBCR_C(RGB888)
TVX_COLOR_TO_YCBCR_C(RGBA8888)

// ---- YCbCr to RGB --------------------------------------------------------------------------

namespace {

constexpr const char* kColorPath = "src/cpu/tavixColorC";

// Chroma source: planar reads Cb and Cr from their planes, pseudo-planar reads (Cb, Cr) pairs
// from one plane (cr unused).
struct ChromaIn {
  const uint8_t* cb;
  const uint8_t* cr;
  uint32_t cbStride, crStride;
  bool planar;
};

// One luma row with its chroma row. For 4:2:2 and 4:2:0 each chroma sample serves a pair of
// pixels, and an odd length ends with a single pixel that takes the row's last chroma sample;
// that pair kernel needs at least two pixels.
template <Fmt To, Sampling S>
void YCbCrRowToRgb(const uint8_t* luma, const uint8_t* cb, const uint8_t* cr, bool planar, uint8_t* dst,
                   uint32_t length) {
  if constexpr (S != Sampling::k444) TVX_REQUIRE(kColorPath, length > 1);
  constexpr size_t kOut = BytesPerPixel(To);
  for (uint32_t x = 0; x < length; ++x) {
    const uint32_t i = S == Sampling::k444 ? x : x / 2;
    const uint8_t u = planar ? cb[i] : cb[2 * i];
    const uint8_t v = planar ? cr[i] : cb[2 * i + 1];
    WritePixel<To>(dst + x * kOut, RgbOf(luma[x], u, v));
  }
}

// 4:2:0 converts two rows per step with the same chroma row; an odd height ends with a single row.
template <Fmt To, Sampling S>
void YCbCrToRgb(const uint8_t* srcY, uint32_t width, uint32_t height, uint32_t yStride, ChromaIn c, uint8_t* dst,
                uint32_t dstStride) {
  const uint32_t rowsPerStep = S == Sampling::k420 ? 2 : 1;
  for (uint32_t y = 0; y < height; y += rowsPerStep) {
    const uint32_t cy = y / rowsPerStep;
    const uint8_t* cb = RowAt(c.cb, c.cbStride, cy);
    const uint8_t* cr = c.planar ? RowAt(c.cr, c.crStride, cy) : nullptr;
    for (uint32_t r = y; r < y + rowsPerStep && r < height; ++r)
      YCbCrRowToRgb<To, S>(RowAt(srcY, yStride, r), cb, cr, c.planar, RowAt(dst, dstStride, r), width);
  }
}

}  // namespace

#define TVX_COLOR_FROM_YCBCR_C(S, T)                                                                       \
  void tvxColorYCbCr##S##PlanarTo##T##u8C(const uint8_t* srcY, const uint8_t* srcCb, const uint8_t* srcCr,  \
                                          uint32_t srcWidth, uint32_t srcHeight, uint32_t srcYStride,      \
                                          uint32_t srcCbStride, uint32_t srcCrStride, uint8_t* dst,        \
                                          uint32_t dstStride) {                                           \
    YCbCrToRgb<Fmt::k##T, Sampling::k##S>(srcY, srcWidth, srcHeight, srcYStride,                           \
                                          {srcCb, srcCr, srcCbStride, srcCrStride, true}, dst, dstStride); \
  }                                                                                                        \
  void tvxColorYCbCr##S##PseudoPlanarTo##T##u8C(const uint8_t* srcY, const uint8_t* srcC, uint32_t srcWidth, \
                                                uint32_t srcHeight, uint32_t srcYStride, uint32_t srcCStride, \
                                                uint8_t* dst, uint32_t dstStride) {                       \
    YCbCrToRgb<Fmt::k##T, Sampling::k##S>(srcY, srcWidth, srcHeight, srcYStride,                           \
                                          {srcC, nullptr, srcCStride, 0, false}, dst, dstStride);          \
  }
#define TVX_COLOR_FROM_YCBCR_ALL_C(S) \
  TVX_COLOR_FROM_YCBCR_C(S, RGB565)   \
  TVX_COLOR_FROM_YCBCR_C(S, RGB888)   \
  TVX_COLOR_FROM_YCBCR_C(S, RGBA8888)
TVX_COLOR_FROM_YCBCR_ALL_C(444)
TVX_COLOR_FROM_YCBCR_ALL_C(422)
TVX_COLOR_FROM_YCBCR_ALL_C(420)

// ---- luma only (internal helpers) ------------------------------------------------------------

namespace {

template <Fmt F>
void RgbToLuma(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dstY,
               uint32_t dstStride) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = RowAt(src, srcStride, y);
    uint8_t* luma = RowAt(dstY, dstStride, y);
    for (uint32_t x = 0; x < width; ++x) luma[x] = LumaOf(ReadPixel<F>(s + x * BytesPerPixel(F)));
  }
}

}  // namespace

void rgb5652yC(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dstY,
               uint32_t dstStride) {
  RgbToLuma<Fmt::kRGB565>(src, width, height, srcStride, dstY, dstStride);
}
void rgb8882yC(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dstY,
               uint32_t dstStride) {
  RgbToLuma<Fmt::kRGB888>(src, width, height, srcStride, dstY, dstStride);
}
void rgba88882yC(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dstY,
                 uint32_t dstStride) {
  RgbToLuma<Fmt::kRGBA8888>(src, width, height, srcStride, dstY, dstStride);
}
