// Rules shared by the reference and SIMD variants of the convolution and correlation family:
// row addressing, the shift-and-saturate step, the border rule of the MxN convolution, and
// the two paths of that convolution (direct sum and spectral product) that must give the
// same integers.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvx::conv {

enum : uint32_t { kBorderUndefined = 0, kBorderConstant = 1, kBorderReplicate = 2 };

// Kernel area from which the MxN convolution multiplies spectra instead of summing taps: on a
// 1920x1080 image the SIMD direct sum of 45x45 taps takes half the time of the spectral path,
// 64x64 taps slightly more than it, 80x80 more than twice.
constexpr uint64_t kSpectralMinTaps = 4096;

template <typename T>
inline const T* Row(const T* base, uint32_t stride, int64_t y) {
  return reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(base) + static_cast<ptrdiff_t>(stride) * y);
}
template <typename T>
inline T* Row(T* base, uint32_t stride, int64_t y) {
  return reinterpret_cast<T*>(reinterpret_cast<uint8_t*>(base) + static_cast<ptrdiff_t>(stride) * y);
}

// Sums are 32-bit two's complement: they wrap instead of overflowing.
inline int32_t Wrap(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v))); }

// Scale-factor rule: shift > 0 adds 1 << (shift - 1) and shifts right arithmetically; shift <= 0
// shifts left by -shift. Computed without overflow, then clamped to [lo, hi].
inline int32_t ScaleClamp(int32_t s, int32_t shift, int32_t lo, int32_t hi) {
  int64_t r;
  if (shift > 0) {
    const int n = shift > 40 ? 40 : shift;  // beyond 32 every 32-bit sum rounds to 0
    r = (int64_t(s) + (int64_t(1) << (n - 1))) >> n;
  } else {
    const int n = -int64_t(shift) > 32 ? 32 : -shift;
    r = int64_t(s) * (int64_t(1) << n);
  }
  return static_cast<int32_t>(r < lo ? lo : (r > hi ? hi : r));
}

// Pixel (x, y) with positions outside the image taken from the border: borderValue for
// types 0 and 1, the nearest edge pixel for type 2.
inline uint8_t BorderPixel(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int64_t x,
                           int64_t y, uint32_t borderType, uint8_t borderValue) {
  const bool inside = x >= 0 && y >= 0 && x < width && y < height;
  if (!inside && borderType != kBorderReplicate) return borderValue;
  const int64_t cx = x < 0 ? 0 : (x >= width ? width - 1 : x);
  const int64_t cy = y < 0 ? 0 : (y >= height ? height - 1 : y);
  return Row(src, stride, cy)[cx];
}

// Row y (which may lie outside the image) of the source extended by padLeft pixels on the
// left and padRight on the right by the border rule: width + padLeft + padRight bytes.
void BorderRow(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, int64_t y, uint32_t padLeft,
               uint32_t padRight, uint32_t borderType, uint8_t borderValue, uint8_t* out);

// The MxN convolution (kernel of M columns by N rows, flipped) as raw 32-bit sums, one per
// pixel, row-major width x height. Direct: the literal double sum. Spectral: padded image and
// kernel transformed, multiplied and transformed back, rounded to the nearest integer.
// Spectral returns false when its buffers cannot be had.
void ConvolveSumsDirect(const int8_t* kernel, uint32_t M, uint32_t N, const uint8_t* src, uint32_t width,
                        uint32_t height, uint32_t stride, uint32_t borderType, uint8_t borderValue, int32_t* sums);
bool ConvolveSumsSpectral(const int8_t* kernel, uint32_t M, uint32_t N, const uint8_t* src, uint32_t width,
                          uint32_t height, uint32_t stride, uint32_t borderType, uint8_t borderValue, int32_t* sums);

// The MxN convolution through the spectral sums, scaled and saturated into dst; status 5 when
// its memory cannot be had.
int32_t ConvolveSpectral(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src,
                         uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst, uint32_t dstStride,
                         uint32_t borderType, uint8_t borderValue);
int32_t ConvolveSpectral(const int8_t* kernel, uint32_t M, uint32_t N, int32_t shift, const uint8_t* src,
                         uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dst, uint32_t dstStride,
                         uint32_t borderType, uint8_t borderValue);

// In-place radix-2 transform of n complex values (re, im interleaved), n a power of two;
// inverse = true applies the conjugate twiddles and divides by n. The table form takes the
// n / 2 twiddles exp(-2 pi i k / n) from FftTwiddles (n doubles).
void Fft(double* data, size_t n, bool inverse);
void FftTwiddles(double* twiddles, size_t n);
void Fft(double* data, size_t n, bool inverse, const double* twiddles);

}  // namespace tvx::conv
