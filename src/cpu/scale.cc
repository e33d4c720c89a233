// Reference variants of the scaling family: fixed-ratio reductions (by 2, by 4, 3 to 2),
// integer-factor block averages, up-sampling by 2 with source samples centred between output
// samples (planar and interleaved byte pairs), and interleaving of two planes.
#include <cstddef>
#include <cstring>

#include "cpu/scale_taps.h"
#include "frame/frame.h"

namespace {

inline const uint8_t* Row(const uint8_t* base, uint32_t stride, uint32_t y) {
  return base + static_cast<size_t>(y) * stride;
}
inline uint8_t* Row(uint8_t* base, uint32_t stride, uint32_t y) {
  return base + static_cast<size_t>(y) * stride;
}

// Sum of the fx x fy block whose top-left pixel is (x0, y0).
uint32_t BlockSum(const uint8_t* src, uint32_t stride, uint32_t x0, uint32_t y0, uint32_t fx, uint32_t fy) {
  uint32_t sum = 0;
  for (uint32_t y = y0; y < y0 + fy; ++y)
    for (uint32_t x = x0; x < x0 + fx; ++x) sum += Row(src, stride, y)[x];
  return sum;
}

// ---- up-sampling by 2 ------------------------------------------------------------------------
// `ch` is the number of interleaved bytes per pixel (1 planar, 2 chroma pairs); every rule
// applies to each byte of a pixel on its own.

uint8_t Near3(uint32_t nearV, uint32_t farV) { return static_cast<uint8_t>((3 * nearV + farV + 2) >> 2); }

// One row up-sampled horizontally: the ends copy, each neighbouring pair gives 3:1 and 1:3.
void UpsampleRow(const uint8_t* s, uint32_t width, uint32_t ch, uint8_t* out) {
  for (uint32_t c = 0; c < ch; ++c) {
    out[c] = s[c];
    for (uint32_t i = 0; i + 1 < width; ++i) {
      const uint32_t a = s[i * ch + c], b = s[(i + 1) * ch + c];
      out[(2 * i + 1) * ch + c] = Near3(a, b);
      out[(2 * i + 2) * ch + c] = Near3(b, a);
    }
    out[(2 * width - 1) * ch + c] = s[(width - 1) * ch + c];
  }
}

void UpsampleHorizontal(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride, uint32_t ch) {
  for (uint32_t y = 0; y < height; ++y) UpsampleRow(Row(src, srcStride, y), width, ch, Row(dst, dstStride, y));
}

// The first and last output rows copy the source; between source rows a and b come a 3:1 and a
// 1:3 row, which cover only 2 * (width / 2) pixels (an odd last pixel stays unwritten).
void UpsampleVertical(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstStride, uint32_t ch) {
  const size_t rowBytes = static_cast<size_t>(width) * ch;
  const size_t mixBytes = static_cast<size_t>(width / 2) * 2 * ch;
  std::memcpy(Row(dst, dstStride, 0), src, rowBytes);
  std::memcpy(Row(dst, dstStride, 2 * height - 1), Row(src, srcStride, height - 1), rowBytes);
  for (uint32_t y = 0; y + 1 < height; ++y) {
    const uint8_t* a = Row(src, srcStride, y);
    const uint8_t* b = Row(src, srcStride, y + 1);
    uint8_t* upper = Row(dst, dstStride, 2 * y + 1);
    uint8_t* lower = Row(dst, dstStride, 2 * y + 2);
    for (size_t i = 0; i < mixBytes; ++i) {
      upper[i] = Near3(a[i], b[i]);
      lower[i] = Near3(b[i], a[i]);
    }
  }
}

// An inner 2-D output row whose nearer source row is n and farther one f: 9:3:3:1 weights
// inside, 3:1 vertical weights in the first and last columns.
void Upsample2DRow(const uint8_t* n, const uint8_t* f, uint32_t width, uint32_t ch, uint8_t* out) {
  for (uint32_t c = 0; c < ch; ++c) {
    out[c] = Near3(n[c], f[c]);
    for (uint32_t i = 0; i + 1 < width; ++i) {
      const uint32_t n0 = n[i * ch + c], n1 = n[(i + 1) * ch + c];
      const uint32_t f0 = f[i * ch + c], f1 = f[(i + 1) * ch + c];
      out[(2 * i + 1) * ch + c] = static_cast<uint8_t>((9 * n0 + 3 * (n1 + f0) + f1 + 8) >> 4);
      out[(2 * i + 2) * ch + c] = static_cast<uint8_t>((9 * n1 + 3 * (n0 + f1) + f0 + 8) >> 4);
    }
    const uint32_t last = (width - 1) * ch + c;
    out[(2 * width - 1) * ch + c] = Near3(n[last], f[last]);
  }
}

void Upsample2D(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                uint32_t dstStride, uint32_t ch) {
  UpsampleRow(src, width, ch, Row(dst, dstStride, 0));
  UpsampleRow(Row(src, srcStride, height - 1), width, ch, Row(dst, dstStride, 2 * height - 1));
  for (uint32_t y = 0; y + 1 < height; ++y) {
    const uint8_t* a = Row(src, srcStride, y);
    const uint8_t* b = Row(src, srcStride, y + 1);
    Upsample2DRow(a, b, width, ch, Row(dst, dstStride, 2 * y + 1));
    Upsample2DRow(b, a, width, ch, Row(dst, dstStride, 2 * y + 2));
  }
}

}  // namespace

// ---- reductions ------------------------------------------------------------------------------

void tvxScaleDownBy2u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight / 2; ++y)
    for (uint32_t x = 0; x < srcWidth / 2; ++x)
      Row(dst, dstStride, y)[x] = static_cast<uint8_t>(BlockSum(src, srcStride, 2 * x, 2 * y, 2, 2) >> 2);
}

void tvxScaleDownBy4u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight / 4; ++y)
    for (uint32_t x = 0; x < srcWidth / 4; ++x)
      Row(dst, dstStride, y)[x] = static_cast<uint8_t>(BlockSum(src, srcStride, 4 * x, 4 * y, 4, 4) >> 4);
}

int32_t tvxScaleDown3To2u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                            uint8_t* dst, uint32_t dstStride) {
  if (srcWidth < 3 || srcHeight < 3) return 1;
  for (uint32_t by = 0; by + 2 < srcHeight; by += 3) {
    const uint8_t* r0 = Row(src, srcStride, by);
    const uint8_t* r1 = Row(src, srcStride, by + 1);
    const uint8_t* r2 = Row(src, srcStride, by + 2);
    uint8_t* top = Row(dst, dstStride, by / 3 * 2);
    uint8_t* bottom = Row(dst, dstStride, by / 3 * 2 + 1);
    for (uint32_t bx = 0; bx + 2 < srcWidth; bx += 3) {
      const uint32_t p00 = r0[bx], p01 = r0[bx + 1], p02 = r0[bx + 2];
      const uint32_t p10 = r1[bx], p11 = r1[bx + 1], p12 = r1[bx + 2];
      const uint32_t p20 = r2[bx], p21 = r2[bx + 1], p22 = r2[bx + 2];
      const uint32_t ox = bx / 3 * 2;
      top[ox] = static_cast<uint8_t>((9 * p00 + 3 * p01 + 3 * p10 + p11) >> 4);
      top[ox + 1] = static_cast<uint8_t>((9 * p02 + 3 * p01 + 3 * p12 + p11) >> 4);
      bottom[ox] = static_cast<uint8_t>((9 * p20 + 3 * p21 + 3 * p10 + p11) >> 4);
      bottom[ox + 1] = static_cast<uint8_t>((9 * p22 + 3 * p21 + 3 * p12 + p11) >> 4);
    }
  }
  return 0;
}

void tvxScaleDownu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                     uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  const uint32_t fx = srcWidth / dstWidth, fy = srcHeight / dstHeight;
  for (uint32_t y = 0; y < dstHeight; ++y)
    for (uint32_t x = 0; x < dstWidth; ++x)
      Row(dst, dstStride, y)[x] = static_cast<uint8_t>(BlockSum(src, srcStride, x * fx, y * fy, fx, fy) / (fx * fy));
}

// ---- up-sampling -------------------------------------------------------------------------------

void tvxUpsampleHorizontalu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride) {
  UpsampleHorizontal(src, srcWidth, srcHeight, srcStride, dst, dstStride, 1);
}
void tvxUpsampleVerticalu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                            uint8_t* dst, uint32_t dstStride) {
  UpsampleVertical(src, srcWidth, srcHeight, srcStride, dst, dstStride, 1);
}
void tvxUpsample2Du8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstStride) {
  Upsample2D(src, srcWidth, srcHeight, srcStride, dst, dstStride, 1);
}
void tvxUpsampleHorizontalInterleavedu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                         uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  UpsampleHorizontal(src, srcWidth, srcHeight, srcStride, dst, dstStride, 2);
}
void tvxUpsampleVerticalInterleavedu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                       uint8_t* dst, uint32_t dstStride) {
  UpsampleVertical(src, srcWidth, srcHeight, srcStride, dst, dstStride, 2);
}
void tvxUpsample2DInterleavedu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride) {
  Upsample2D(src, srcWidth, srcHeight, srcStride, dst, dstStride, 2);
}

// ---- two planes and their interleaving ----------------------------------------------------------

namespace {

template <typename T>
void InterleaveRows(const T* src0, const T* src1, uint32_t width, uint32_t height, uint32_t src0Stride,
                    uint32_t src1Stride, T* dst, uint32_t dstStride) {
  for (uint32_t y = 0; y < height; ++y) {
    const T* a = tvxscale::SampleRow(src0, src0Stride, y);
    const T* b = tvxscale::SampleRow(src1, src1Stride, y);
    T* out = tvxscale::SampleRow(dst, dstStride, y);
    for (uint32_t x = 0; x < width; ++x) {
      out[2 * x] = a[x];
      out[2 * x + 1] = b[x];
    }
  }
}

}  // namespace

void tvxInterleaveu8C(const uint8_t* src0, const uint8_t* src1, uint32_t imageWidth, uint32_t imageHeight,
                      uint32_t src0Stride, uint32_t src1Stride, uint8_t* dst, uint32_t dstStride) {
  InterleaveRows(src0, src1, imageWidth, imageHeight, src0Stride, src1Stride, dst, dstStride);
}

void interleaves16C(const int16_t* src0, const int16_t* src1, uint32_t imageWidth, uint32_t imageHeight,
                    uint32_t src0Stride, uint32_t src1Stride, int16_t* dst, uint32_t dstStride) {
  InterleaveRows(src0, src1, imageWidth, imageHeight, src0Stride, src1Stride, dst, dstStride);
}

void tvxDeinterleaveu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst0,
                        uint32_t dst0Stride, uint8_t* dst1, uint32_t dst1Stride) {
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* in = Row(src, srcStride, y);
    uint8_t* a = Row(dst0, dst0Stride, y);
    uint8_t* b = Row(dst1, dst1Stride, y);
    for (uint32_t x = 0; x < srcWidth; ++x) {
      a[x] = in[2 * x];
      b[x] = in[2 * x + 1];
    }
  }
}

// ---- nearest-neighbour and bilinear resampling ---------------------------------------------------
// Both sample at centre-aligned positions: output pixel x covers source position
// (x + 0.5) * srcSize / dstSize - 0.5.

void tvxScaleDownNNu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const uint8_t* in = Row(src, srcStride, tvxscale::NearestIndex(y, srcHeight, dstHeight));
    uint8_t* out = Row(dst, dstStride, y);
    for (uint32_t x = 0; x < dstWidth; ++x) out[x] = in[tvxscale::NearestIndex(x, srcWidth, dstWidth)];
  }
}

void tvxScaleDownBLu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const tvxscale::LinearTap ty = tvxscale::Linear(y, srcHeight, dstHeight);
    const uint8_t* r0 = Row(src, srcStride, ty.i0);
    const uint8_t* r1 = Row(src, srcStride, ty.i1);
    uint8_t* out = Row(dst, dstStride, y);
    for (uint32_t x = 0; x < dstWidth; ++x) {
      const tvxscale::LinearTap tx = tvxscale::Linear(x, srcWidth, dstWidth);
      const uint32_t v0 = (256 - ty.w) * r0[tx.i0] + ty.w * r1[tx.i0];
      const uint32_t v1 = (256 - ty.w) * r0[tx.i1] + ty.w * r1[tx.i1];
      out[x] = static_cast<uint8_t>(((256 - tx.w) * v0 + tx.w * v1 + 32768) >> 16);
    }
  }
}
