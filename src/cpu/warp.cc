// Reference variants of the perspective warps (single channel, three channels, luma plus
// interleaved chroma) and of the affine transforms (bilinear, nearest, 8x8 patch, bicubic).
#include <cstddef>
#include <cstring>
#include <vector>

#include "cpu/warp_rules.h"
#include "frame/frame.h"

namespace {

using tvxwarp::Border;
using tvxwarp::Plane;

// The single-channel core: every destination pixel sampled at its fixed-point position, shifted
// by (shift, shift) whole pixels (the framed copy of the _v4 warp sits one pixel in).
void WarpCore(const Plane& src, uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* M,
              uint32_t interpolation, const Border& border, int32_t shift) {
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const tvxwarp::RowForms f = tvxwarp::FormsAt(M, static_cast<float>(y));
    uint8_t* out = dst + static_cast<size_t>(y) * dstStride;
    for (uint32_t x = 0; x < dstWidth; ++x) {
      int32_t u, v;
      tvxwarp::PositionAt(f, static_cast<float>(x), &u, &v);
      if (u != tvxwarp::kFar) {
        u += shift * tvxwarp::kFracOne;
        v += shift * tvxwarp::kFracOne;
      }
      out[x] = tvxwarp::Sample(src, u, v, 0, border, interpolation);
    }
  }
}

Border BorderOf(uint32_t borderType, uint32_t borderValue) {
  if (borderType == tvxwarp::kBorderConstant) return {tvxwarp::kBorderConstant, borderValue};
  if (borderType == tvxwarp::kBorderReplicate) return {tvxwarp::kBorderReplicate, 0};
  return {tvxwarp::kBorderZero, 0};
}

int32_t AffineCore(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                   uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* A, uint32_t interpolation,
                   const Border& border) {
  if (interpolation > tvxwarp::kBilinear) return 6;
  float M[9];
  tvxwarp::AffineToPerspective(A, M);
  WarpCore({src, srcWidth, srcHeight, srcStride, 1}, dst, dstWidth, dstHeight, dstStride, M, interpolation, border, 0);
  return 0;
}

}  // namespace

int32_t tvxWarpPerspectiveu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                 const float* M) {
  WarpCore({src, srcWidth, srcHeight, srcStride, 1}, dst, dstWidth, dstHeight, dstStride, M, tvxwarp::kBilinear,
           {tvxwarp::kBorderZero, 0}, 0);
  return 0;
}

int32_t tvxWarpPerspectiveu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint8_t* dst,
                              uint32_t dstWidth, uint32_t dstHeight, const float* M) {
  return tvxWarpPerspectiveu8_v2C(src, srcWidth, srcHeight, srcWidth, dst, dstWidth, dstHeight, dstWidth, M);
}

int32_t tvxWarpPerspectiveu8_v3C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                 const float* M, uint32_t interpolation, uint32_t borderType, uint32_t borderValue) {
  if (interpolation > tvxwarp::kBilinear) return 6;
  const Border border = borderType == tvxwarp::kBorderConstant ? Border{tvxwarp::kBorderConstant, borderValue}
                                                              : Border{tvxwarp::kBorderZero, 0};
  WarpCore({src, srcWidth, srcHeight, srcStride, 1}, dst, dstWidth, dstHeight, dstStride, M, interpolation, border, 0);
  return 0;
}

int32_t tvxWarpPerspectiveu8_v4C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                 const float* M, uint32_t interpolation, uint32_t borderType, uint32_t borderValue) {
  if (interpolation > tvxwarp::kBilinear) return 6;
  if (borderType != tvxwarp::kBorderConstant)
    return tvxWarpPerspectiveu8_v3C(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M,
                                    interpolation, borderType, borderValue);
  uint8_t* framed = tvxwarp::FramedCopy(src, srcWidth, srcHeight, srcStride, borderValue);
  if (!framed) return 5;
  const uint32_t fw = srcWidth + 2, fh = srcHeight + 2;
  WarpCore({framed, fw, fh, fw, 1}, dst, dstWidth,
           dstHeight, dstStride, M, interpolation, {tvxwarp::kBorderConstant, borderValue}, 1);
  tvxMemFree(framed);
  return 0;
}

int32_t tvx3ChannelWarpPerspectiveu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                         uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                         const float* M) {
  std::vector<uint32_t> iu(dstWidth), iv(dstWidth);
  std::vector<float> fx(dstWidth), fy(dstWidth);
  tvxwarp::Forms3 f{M[2], M[5], M[8]};
  for (uint32_t y = 0; y < dstHeight; ++y) {
    tvxwarp::ThreeChannelRow(M, f, srcWidth, srcHeight, dstWidth, iu.data(), iv.data(), fx.data(), fy.data());
    uint8_t* out = dst + static_cast<size_t>(y) * dstStride;
    for (uint32_t x = 0; x < dstWidth; ++x) {
      if (iv[x] == tvxwarp::kSkip) {
        out[3 * x] = out[3 * x + 1] = out[3 * x + 2] = 0;
        continue;
      }
      const uint8_t* p0 = src + static_cast<size_t>(iv[x]) * srcStride + static_cast<size_t>(iu[x]) * 3;
      const uint8_t* p1 = p0 + srcStride;
      for (int c = 0; c < 3; ++c) out[3 * x + c] = tvxwarp::Blend3(p0[c], p0[c + 3], p1[c], p1[c + 3], fx[x], fy[x]);
    }
    f.x += M[1];
    f.y += M[4];
    f.w += M[7];
  }
  return 0;
}

int32_t tvx3ChannelWarpPerspectiveu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint8_t* dst,
                                      uint32_t dstWidth, uint32_t dstHeight, const float* M) {
  return tvx3ChannelWarpPerspectiveu8_v2C(src, srcWidth, srcHeight, srcWidth * 3, dst, dstWidth, dstHeight,
                                          dstWidth * 3, M);
}

int32_t tvx2PlaneWarpPerspectiveu8C(const uint8_t* src, const uint8_t* srcUV, uint32_t srcWidth, uint32_t srcHeight,
                                    uint32_t srcStride, uint32_t srcUVStride, uint8_t* dst, uint8_t* dstUV,
                                    uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t dstUVStride,
                                    const float* M) {
  WarpCore({src, srcWidth, srcHeight, srcStride, 1}, dst, dstWidth, dstHeight, dstStride, M, tvxwarp::kBilinear,
           {tvxwarp::kBorderZero, 0}, 0);
  const Plane chroma{srcUV, (srcWidth + 1) / 2, (srcHeight + 1) / 2, srcUVStride, 2};
  const Border neutral{tvxwarp::kBorderConstant, 128};
  const uint32_t cw = (dstWidth + 1) / 2, chh = (dstHeight + 1) / 2;
  for (uint32_t cy = 0; cy < chh; ++cy) {
    const tvxwarp::RowForms f = tvxwarp::FormsAt(M, static_cast<float>(2 * cy));
    uint8_t* out = dstUV + static_cast<size_t>(cy) * dstUVStride;
    for (uint32_t cx = 0; cx < cw; ++cx) {
      int32_t u, v;
      tvxwarp::PositionAt(f, static_cast<float>(2 * cx), &u, &v);
      out[2 * cx] = tvxwarp::Bilinear(chroma, u >> 1, v >> 1, 0, neutral);
      out[2 * cx + 1] = tvxwarp::Bilinear(chroma, u >> 1, v >> 1, 1, neutral);
    }
  }
  return 0;
}

int32_t tvxTransformAffineClippedu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                     uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                     const float* M) {
  return AffineCore(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M, tvxwarp::kBilinear,
                    {tvxwarp::kBorderReplicate, 0});
}

int32_t tvxTransformAffineClippedu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                        uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                        const float* M, uint32_t interpolation) {
  return AffineCore(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M, interpolation,
                    {tvxwarp::kBorderReplicate, 0});
}

int32_t tvxTransformAffineClippedu8_v3C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                        uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                        const float* M, uint32_t interpolation, uint32_t borderType,
                                        uint32_t borderValue) {
  return AffineCore(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M, interpolation,
                    BorderOf(borderType, borderValue));
}

int32_t tvxTransformAffineu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                 const float* M) {
  return AffineCore(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M, tvxwarp::kBilinear,
                    {tvxwarp::kBorderZero, 0});
}

int32_t tvxTransformAffine8x8u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride, const float* M) {
  return AffineCore(src, srcWidth, srcHeight, srcStride, dst, 8, 8, dstStride, M, tvxwarp::kBilinear,
                    {tvxwarp::kBorderReplicate, 0});
}

int32_t tvx3ChannelTransformAffineClippedBCu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                               uint32_t srcStride, uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight,
                                               uint32_t dstStride, const float* A) {
  float M[9];
  tvxwarp::AffineToPerspective(A, M);
  const Plane plane{src, srcWidth, srcHeight, srcStride, 3};
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const tvxwarp::RowForms f = tvxwarp::FormsAt(M, static_cast<float>(y));
    uint8_t* out = dst + static_cast<size_t>(y) * dstStride;
    for (uint32_t x = 0; x < dstWidth; ++x) {
      int32_t u, v;
      tvxwarp::PositionAt(f, static_cast<float>(x), &u, &v);
      for (uint32_t c = 0; c < 3; ++c) out[3 * x + c] = tvxwarp::Bicubic(plane, u, v, c);
    }
  }
  return 0;
}
