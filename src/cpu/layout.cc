// Reference variants of the layout family: transpose, flip and rotation. Pixels are moved
// as opaque groups of bytes, so one template serves u8, u16, f32 and 3-byte RGB pixels.
#include <cstddef>
#include <cstring>
#include <utility>

#include "frame/frame.h"

namespace {

constexpr const char* kArithPath = "src/cpu/tavixArithmC";
constexpr const char* kFlipu8InPlaceError = "Error: tvxFlipu8 - Try to do in place but srcStride != dstStride";
constexpr const char* kFlipu16InPlaceError = "Error: tvxFlipu16 - Try to do in place but srcStride != dstStride";

struct Rgb { uint8_t c[3]; };
static_assert(sizeof(Rgb) == 3, "RGB pixels are three packed bytes");

// A view of an image of pixels P whose rows are `stride` bytes apart.
template <typename P>
struct Plane {
  uint8_t* base;
  size_t stride;
  P& at(uint32_t x, uint32_t y) const {
    return reinterpret_cast<P*>(base + static_cast<size_t>(y) * stride)[x];
  }
};
template <typename P>
Plane<P> MakePlane(const void* base, size_t stride) {
  return {static_cast<uint8_t*>(const_cast<void*>(base)), stride};
}

// dst[x][y] = src[y][x].
template <typename P>
void Transpose(Plane<P> src, uint32_t width, uint32_t height, Plane<P> dst) {
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) dst.at(y, x) = src.at(x, y);
}

template <typename P>
void ReverseRowInPlace(Plane<P> img, uint32_t width, uint32_t y) {
  for (uint32_t x = 0; x < width / 2; ++x) std::swap(img.at(x, y), img.at(width - 1 - x, y));
}

// Mirrors an image: dir 1 left-right, 2 top-bottom, 3 both. In place (same base) swaps pairs.
template <typename P>
void Flip(Plane<P> src, uint32_t width, uint32_t height, Plane<P> dst, int32_t dir) {
  if (dir < 1 || dir > 3) return;
  const bool mirrorX = dir == 1 || dir == 3;
  const bool mirrorY = dir == 2 || dir == 3;
  if (src.base != dst.base) {
    for (uint32_t y = 0; y < height; ++y)
      for (uint32_t x = 0; x < width; ++x)
        dst.at(mirrorX ? width - 1 - x : x, mirrorY ? height - 1 - y : y) = src.at(x, y);
    return;
  }
  if (dir == 1) {
    for (uint32_t y = 0; y < height; ++y) ReverseRowInPlace(dst, width, y);
  } else if (dir == 2) {
    for (uint32_t y = 0; y < height / 2; ++y)
      for (uint32_t x = 0; x < width; ++x) std::swap(dst.at(x, y), dst.at(x, height - 1 - y));
  } else if (dir == 3) {
    for (uint32_t y = 0; y < height / 2; ++y)
      for (uint32_t x = 0; x < width; ++x)
        std::swap(dst.at(x, y), dst.at(width - 1 - x, height - 1 - y));
    if (height % 2) ReverseRowInPlace(dst, width, height / 2);
  }
}

// Rotation by 90 (degree 1) or 270 (degree 3) degrees clockwise.
template <typename P>
void Turn(Plane<P> src, uint32_t width, uint32_t height, Plane<P> dst, int32_t degree) {
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      if (degree == 1) dst.at(height - 1 - y, x) = src.at(x, y);
      else dst.at(y, width - 1 - x) = src.at(x, y);
    }
}

void LogError(const char* text) { tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "%s\n", text); }

}  // namespace

// ---- transpose -----------------------------------------------------------------------------

void tvxTransposeu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                     uint8_t* dst, uint32_t dstStride) {
  Transpose(MakePlane<uint8_t>(src, srcStride), srcWidth, srcHeight, MakePlane<uint8_t>(dst, dstStride));
}

void tvxTransposeu16C(const uint16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                      uint16_t* dst, uint32_t dstStride) {
  Transpose(MakePlane<uint16_t>(src, srcStride / 2 * 2), srcWidth, srcHeight,
            MakePlane<uint16_t>(dst, dstStride / 2 * 2));
}

void tvxTransposef32C(const float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                      float32_t* dst, uint32_t dstStride) {
  Transpose(MakePlane<float32_t>(src, srcStride / 4 * 4), srcWidth, srcHeight,
            MakePlane<float32_t>(dst, dstStride / 4 * 4));
}

int32_t tvxTransposeRGB888u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                              uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  if (!(src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && (dstStride >= srcWidth)))
    tvx_fatal(kArithPath, __LINE__,
              "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && (dstStride >= srcWidth)");
  // Rows of 3-byte pixels must fit their strides, or the copy would leave the caller's buffers.
  if (srcStride < srcWidth * 3ull || dstStride < srcHeight * 3ull) return TVX_BAD_PARAMETER;
  Transpose(MakePlane<Rgb>(src, srcStride), srcWidth, srcHeight, MakePlane<Rgb>(dst, dstStride));
  return TVX_SUCCESS;
}

// ---- flip ----------------------------------------------------------------------------------

void tvxFlipu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                uint8_t* dst, uint32_t dstStride, int32_t dir) {
  if (src == dst && srcStride != dstStride) {
    LogError(kFlipu8InPlaceError);
    return;
  }
  Flip(MakePlane<uint8_t>(src, srcStride), srcWidth, srcHeight, MakePlane<uint8_t>(dst, dstStride), dir);
}

void tvxFlipu16C(const uint16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                 uint16_t* dst, uint32_t dstStride, int32_t dir) {
  if (src == dst && srcStride != dstStride) {
    LogError(kFlipu16InPlaceError);
    return;
  }
  Flip(MakePlane<uint16_t>(src, srcStride / 2 * 2), srcWidth, srcHeight,
       MakePlane<uint16_t>(dst, dstStride / 2 * 2), dir);
}

int32_t tvxFlipRGB888u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                         uint8_t* dst, uint32_t dstStride, int32_t dir) {
  if (dir < 1 || dir > 3) return TVX_BAD_PARAMETER;
  if (src == dst && srcStride != dstStride) {
    LogError(kFlipu8InPlaceError);
    return TVX_BAD_PARAMETER;
  }
  Flip(MakePlane<Rgb>(src, srcStride), srcWidth, srcHeight, MakePlane<Rgb>(dst, dstStride), dir);
  return TVX_SUCCESS;
}

// ---- rotation ------------------------------------------------------------------------------

int32_t tvxRotateImageu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          uint8_t* dst, uint32_t dstStride, int32_t degree) {
  if (degree == 2) {
    tvxFlipu8(src, srcWidth, srcHeight, srcStride, dst, dstStride, 3);
    return TVX_SUCCESS;
  }
  if (degree != 1 && degree != 3) return TVX_BAD_PARAMETER;
  Turn(MakePlane<uint8_t>(src, srcStride), srcWidth, srcHeight, MakePlane<uint8_t>(dst, dstStride), degree);
  return TVX_SUCCESS;
}

int32_t tvxRotateImageInterleavedu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                     uint32_t srcStride, uint8_t* dst, uint32_t dstStride, int32_t degree) {
  if (degree == 2) {
    tvxFlipu16(reinterpret_cast<const uint16_t*>(src), srcWidth, srcHeight, srcStride,
               reinterpret_cast<uint16_t*>(dst), dstStride, 3);
    return TVX_SUCCESS;
  }
  if (degree != 1 && degree != 3) return TVX_BAD_PARAMETER;
  struct Pair { uint8_t b[2]; };
  Turn(MakePlane<Pair>(src, srcStride), srcWidth, srcHeight, MakePlane<Pair>(dst, dstStride), degree);
  return TVX_SUCCESS;
}
