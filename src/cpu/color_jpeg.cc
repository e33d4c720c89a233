// Reference variants of the JPEG-style YCrCb decoders and encoder. The decoders read three
// planes Y, Cr, Cb; chroma is subsampled by H horizontally and V vertically (H1V1 4:4:4,
// H2V1 4:2:2, H2V2 4:2:0, H1V2 vertical only) and each sample is replicated over its block.
#include "cpu/color_jpeg_rules.h"
#include "frame/frame.h"

using namespace tvx::jpeg;

namespace {

template <uint32_t kH, uint32_t kV>
void YCrCbToRgb(const uint8_t* srcY, const uint8_t* srcCr, const uint8_t* srcCb, uint32_t width, uint32_t height,
                uint32_t yStride, uint32_t crStride, uint32_t cbStride, uint8_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* luma = srcY + static_cast<size_t>(yStride) * y;
    const uint8_t* cr = srcCr + static_cast<size_t>(crStride) * (y / kV);
    const uint8_t* cb = srcCb + static_cast<size_t>(cbStride) * (y / kV);
    uint8_t* d = dst + static_cast<size_t>(dstStride) * y;
    for (uint32_t x = 0; x < width; ++x) WriteRgb(d + 3 * x, luma[x], OffsetsOf(cr[x / kH], cb[x / kH]));
  }
}

}  // namespace

#define TVX_JPEG_DECODER_C(HF, VF)                                                                        \
  int32_t tvxColorYCrCbH##HF##V##VF##toRGB888u8C(const uint8_t* srcY, const uint8_t* srcCr, const uint8_t* srcCb, \
                                                 uint32_t srcWidth, uint32_t srcHeight, uint32_t srcYStride,      \
                                                 uint32_t srcCrStride, uint32_t srcCbStride, uint8_t* dst,         \
                                                 uint32_t dstStride) {                                            \
    YCrCbToRgb<HF, VF>(srcY, srcCr, srcCb, srcWidth, srcHeight, srcYStride, srcCrStride, srcCbStride, dst,         \
                     dstStride);                                                                                  \
    return 0;                                                                                                     \
  }
TVX_JPEG_DECODER_C(1, 1)
TVX_JPEG_DECODER_C(2, 1)
TVX_JPEG_DECODER_C(2, 2)
TVX_JPEG_DECODER_C(1, 2)
#undef TVX_JPEG_DECODER_C

int32_t tvxColorRGB888toYCrCbu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dstY, uint8_t* dstCr, uint8_t* dstCb, uint32_t dstYStride,
                                 uint32_t dstCrStride, uint32_t dstCbStride) {
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* s = src + static_cast<size_t>(srcStride) * y;
    uint8_t* luma = dstY + static_cast<size_t>(dstYStride) * y;
    uint8_t* cr = dstCr + static_cast<size_t>(dstCrStride) * y;
    uint8_t* cb = dstCb + static_cast<size_t>(dstCbStride) * y;
    for (uint32_t x = 0; x < srcWidth; ++x) {
      luma[x] = LumaOf(s + 3 * x);
      cr[x] = CrOf(s + 3 * x);
      cb[x] = CbOf(s + 3 * x);
    }
  }
  return 0;
}
