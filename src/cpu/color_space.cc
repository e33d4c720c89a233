// Reference variants of the 8-bit HSV and LAB conversions (rules in color_space_rules.h).
#include "cpu/color_space_rules.h"
#include "frame/frame.h"

using namespace tvx::colorspace;

int32_t tvxColorRGB888ToHSV888u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                  uint8_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* s = src + static_cast<size_t>(srcStride) * y;
    uint8_t* d = dst + static_cast<size_t>(dstStride) * y;
    for (uint32_t x = 0; x < srcWidth; ++x) HsvOf(s + 3 * x, d + 3 * x);
  }
  return 0;
}

int32_t tvxColorRGBA8888ToLABu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* s = src + static_cast<size_t>(srcStride) * y;
    uint8_t* d = dst + static_cast<size_t>(dstStride) * y;
    for (uint32_t x = 0; x < srcWidth; ++x) LabOf(s + 4 * x, d + 3 * x);
  }
  return 0;
}
