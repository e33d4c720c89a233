// Reference variants of the gradient family: 3x3 central-difference, Sobel and Scharr
// gradients in interleaved and planar layouts, the Sobel magnitude and the full-size Sobel
// 3x3, 5x5 and 7x7 with border types. Each pixel follows its formula literally.
#include <cstdint>

#include "cpu/gradient_rules.h"
#include "frame/frame.h"

using namespace tvx::gradient;

namespace {

// Calls f(x, y, window) for every interior pixel (x and y in 1 .. size - 2).
template <typename R, typename T, typename F>
void ForEachInterior(const T* src, uint32_t width, uint32_t height, uint32_t srcStride, F f) {
  if (width < 3 || height < 3) return;
  for (uint32_t y = 1; y + 1 < height; ++y) {
    const T* up = RowAt(src, srcStride, y - 1);
    const T* mid = RowAt(src, srcStride, y);
    const T* down = RowAt(src, srcStride, y + 1);
    for (uint32_t x = 1; x + 1 < width; ++x) f(x, y, WindowAt<R>(up, mid, down, x));
  }
}

// Interleaved layout: output row y - 1 holds the pairs of image row y, pair x - 1 for column x.
template <typename Out, typename Op, typename Conv>
void Interleaved(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, Out* out,
                 uint32_t outStride, Op op, Conv conv) {
  ForEachInterior<int32_t>(src, width, height, srcStride, [&](uint32_t x, uint32_t y, const Window<int32_t>& w) {
    const Pair p = op(w);
    Out* row = RowAt(out, outStride, y - 1);
    row[2 * (x - 1)] = conv(p.x);
    row[2 * (x - 1) + 1] = conv(p.y);
  });
}

template <typename Out, typename Op, typename Conv>
void Planar(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, Out* dx, Out* dy,
            uint32_t outStride, Op op, Conv conv) {
  ForEachInterior<int32_t>(src, width, height, srcStride, [&](uint32_t x, uint32_t y, const Window<int32_t>& w) {
    const Pair p = op(w);
    RowAt(dx, outStride, y)[x] = conv(p.x);
    RowAt(dy, outStride, y)[x] = conv(p.y);
  });
}

auto AsS16 = [](int32_t v) { return static_cast<int16_t>(v); };
auto ShiftS16 = [](int32_t v) { return static_cast<int16_t>(v >> 3); };
auto ShiftS8 = [](int32_t v) { return static_cast<int8_t>(v >> 3); };
auto AsF32 = [](int32_t v) { return static_cast<float>(v); };
auto EighthF32 = [](int32_t v) { return static_cast<float>(v) * 0.125f; };

}  // namespace

void tvxImageGradientInterleaveds16_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, int16_t* gradients, uint32_t gradStride) {
  Interleaved(src, srcWidth, srcHeight, srcStride, gradients, gradStride, Central, AsS16);
}
void tvxImageGradientInterleavedf32_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, float* gradients, uint32_t gradStride) {
  Interleaved(src, srcWidth, srcHeight, srcStride, gradients, gradStride, Central, AsF32);
}
void tvxImageGradientPlanars16_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   int16_t* dx, int16_t* dy, uint32_t dxyStride) {
  Planar(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride, Central, AsS16);
}
void tvxImageGradientPlanarf32_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   float* dx, float* dy, uint32_t dxyStride) {
  Planar(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride, Central, AsF32);
}
void tvxImageGradientSobelInterleaveds16_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                             uint32_t srcStride, int16_t* gradients, uint32_t gradStride) {
  Interleaved(src, srcWidth, srcHeight, srcStride, gradients, gradStride, Sobel, ShiftS16);
}
void tvxImageGradientSobelInterleaveds16_v3C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                             uint32_t srcStride, int16_t* gradients, uint32_t gradStride) {
  Interleaved(src, srcWidth, srcHeight, srcStride, gradients, gradStride, Sobel, AsS16);
}
void tvxImageGradientSobelInterleavedf32_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                             uint32_t srcStride, float* gradients, uint32_t gradStride) {
  Interleaved(src, srcWidth, srcHeight, srcStride, gradients, gradStride, Sobel, EighthF32);
}
void tvxImageGradientSobelPlanars16_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, int16_t* dx, int16_t* dy, uint32_t dxyStride) {
  Planar(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride, Sobel, ShiftS16);
}
void tvxImageGradientSobelPlanars16_v3C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, int16_t* dx, int16_t* dy, uint32_t dxyStride) {
  Planar(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride, Sobel, AsS16);
}
void tvxImageGradientSobelPlanars8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                       uint32_t srcStride, int8_t* dx, int8_t* dy, uint32_t dxyStride) {
  Planar(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride, Sobel, ShiftS8);
}
void tvxImageGradientSobelPlanarf32_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, float* dx, float* dy, uint32_t dxyStride) {
  Planar(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride, Sobel, EighthF32);
}
void tvxImageGradientSobelPlanarf32f32_v2C(const float* src, uint32_t srcWidth, uint32_t srcHeight,
                                           uint32_t srcStride, float* dx, float* dy, uint32_t dxyStride) {
  ForEachInterior<float>(src, srcWidth, srcHeight, srcStride, [&](uint32_t x, uint32_t y, const Window<float>& w) {
    const PairF p = SobelF(w);
    RowAt(dx, dxyStride, y)[x] = p.x;
    RowAt(dy, dxyStride, y)[x] = p.y;
  });
}
void tvxImageGradientScharrInterleaveds16C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                           uint32_t srcStride, int16_t* gradients, uint32_t gradStride) {
  Interleaved(src, srcWidth, srcHeight, srcStride, gradients, gradStride, Scharr, AsS16);
}

void tvxFilterSobel3x3u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride) {
  ForEachInterior<int32_t>(src, srcWidth, srcHeight, srcStride, [&](uint32_t x, uint32_t y, const Window<int32_t>& w) {
    RowAt(dst, dstStride, y)[x] = SobelMagnitude(w);
  });
}

// ---- full-size Sobel ------------------------------------------------------------------------

namespace {

int32_t BorderedPixel(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int64_t x, int64_t y,
                      uint32_t borderType, uint8_t borderValue) {
  const bool inside = x >= 0 && y >= 0 && x < width && y < height;
  if (inside) return RowAt(src, stride, y)[x];
  if (borderType != kBorderReplicate) return borderValue;
  x = x < 0 ? 0 : (x >= width ? width - 1 : x);
  y = y < 0 ? 0 : (y >= height ? height - 1 : y);
  return RowAt(src, stride, y)[x];
}

// out(x, y) = sum over taps of horizontal[kx] * vertical[ky] * p(x + r - kx, y + r - ky).
void SobelFull(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* out,
               uint32_t outStride, uint32_t borderType, uint8_t borderValue, const int* horizontal,
               const int* vertical, int radius) {
  const int taps = 2 * radius + 1;
  for (uint32_t y = 0; y < height; ++y) {
    int16_t* row = RowAt(out, outStride, y);
    for (uint32_t x = 0; x < width; ++x) {
      int32_t sum = 0;
      for (int ky = 0; ky < taps; ++ky)
        for (int kx = 0; kx < taps; ++kx)
          sum += horizontal[kx] * vertical[ky] *
                 BorderedPixel(src, width, height, srcStride, int64_t(x) + radius - kx, int64_t(y) + radius - ky,
                               borderType, borderValue);
      row[x] = SaturateS16(sum);
    }
  }
}

int32_t SobelSize(int size, const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dx,
                  int16_t* dy, uint32_t dxyStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate || (!dx && !dy)) return TVX_BAD_PARAMETER;
  const SobelKernel& k = SobelKernelOf(size);
  if (dx) SobelFull(src, width, height, srcStride, dx, dxyStride, borderType, borderValue, k.deriv, k.smooth, k.radius);
  if (dy) SobelFull(src, width, height, srcStride, dy, dxyStride, borderType, borderValue, k.smooth, k.deriv, k.radius);
  return TVX_SUCCESS;
}

}  // namespace

int32_t tvxFilterSobel3x3u8s16C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dx,
                                int16_t* dy, uint32_t dxyStride, uint32_t borderType, uint8_t borderValue) {
  return SobelSize(3, src, width, height, srcStride, dx, dy, dxyStride, borderType, borderValue);
}
int32_t tvxFilterSobel5x5u8s16C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dx,
                                int16_t* dy, uint32_t dxyStride, uint32_t borderType, uint8_t borderValue) {
  return SobelSize(5, src, width, height, srcStride, dx, dy, dxyStride, borderType, borderValue);
}
int32_t tvxFilterSobel7x7u8s16C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dx,
                                int16_t* dy, uint32_t dxyStride, uint32_t borderType, uint8_t borderValue) {
  return SobelSize(7, src, width, height, srcStride, dx, dy, dxyStride, borderType, borderValue);
}
