// Rules shared by the reference and SIMD variants of the gradient family: row addressing in
// bytes, the per-pixel 3x3 operators (used by the SIMD tails), the full-size Sobel kernels and
// the scalar Canny stages (non-maximum flags and hysteresis) that both tiers run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tvx::gradient {

template <typename T>
inline T* RowAt(T* base, uint32_t strideBytes, int64_t y) {
  using Byte = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
  return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + static_cast<ptrdiff_t>(strideBytes) * y);
}

// The 3x3 neighbourhood a b c / d e f / g h i around a pixel.
template <typename T>
struct Window {
  T a, b, c, d, f, g, h, i;
};

template <typename R, typename T>
inline Window<R> WindowAt(const T* up, const T* mid, const T* down, uint32_t x) {
  return {R(up[x - 1]), R(up[x]), R(up[x + 1]), R(mid[x - 1]), R(mid[x + 1]), R(down[x - 1]), R(down[x]), R(down[x + 1])};
}

struct Pair { int32_t x, y; };

inline Pair Central(const Window<int32_t>& w) { return {w.f - w.d, w.h - w.b}; }
inline Pair Sobel(const Window<int32_t>& w) {
  return {(w.c - w.a) + 2 * (w.f - w.d) + (w.i - w.g), (w.g - w.a) + 2 * (w.h - w.b) + (w.i - w.c)};
}
inline Pair Scharr(const Window<int32_t>& w) {
  return {3 * ((w.c - w.a) + (w.i - w.g)) + 10 * (w.f - w.d), 3 * ((w.g - w.a) + (w.i - w.c)) + 10 * (w.h - w.b)};
}
// Sign conventions of the magnitude do not matter: only |gx| + |gy| is kept.
inline uint8_t SobelMagnitude(const Window<int32_t>& w) {
  const int32_t gx = (w.a - w.c) + 2 * (w.d - w.f) + (w.g - w.i);
  const int32_t gy = (w.a + 2 * w.b + w.c) - (w.g + 2 * w.h + w.i);
  const int32_t m = (gx < 0 ? -gx : gx) + (gy < 0 ? -gy : gy);
  return static_cast<uint8_t>(m > 255 ? 255 : m);
}
struct PairF { float x, y; };
// Float input: the same formula on floats, evaluated left to right.
inline PairF SobelF(const Window<float>& w) {
  return {(((w.c - w.a) + 2.0f * (w.f - w.d)) + (w.i - w.g)) * 0.125f,
          (((w.g - w.a) + 2.0f * (w.h - w.b)) + (w.i - w.c)) * 0.125f};
}

// ---- full-size Sobel -----------------------------------------------------------------------

// Derivative and smoothing kernels of size 3, 5 and 7 as written for a convolution: output x
// takes kernel tap k from pixel x + radius - k, so the derivative is positive where intensity
// grows to the right (or downwards).
struct SobelKernel {
  int radius;
  int deriv[7];
  int smooth[7];
};
inline const SobelKernel& SobelKernelOf(int size) {
  static const SobelKernel k3 = {1, {1, 0, -1}, {1, 2, 1}};
  static const SobelKernel k5 = {2, {1, 2, 0, -2, -1}, {1, 4, 6, 4, 1}};
  static const SobelKernel k7 = {3, {1, 4, 5, 0, -5, -4, -1}, {1, 6, 15, 20, 15, 6, 1}};
  return size == 3 ? k3 : (size == 5 ? k5 : k7);
}
// Canny's quantised direction of the difference pair (h, v): 0 none, 1 compare left/right,
// 2 up/down, 3 the main diagonal, 4 the anti-diagonal (factor 2, not tan 67.5 degrees).
inline uint8_t CannyDirection(int32_t h, int32_t v) {
  const int32_t ah = h < 0 ? -h : h, av = v < 0 ? -v : v;
  if (h == 0 && v == 0) return 0;
  if (ah > 2 * av) return 1;
  if (av > 2 * ah) return 2;
  return ((h < 1) == (v > 0)) ? 4 : 3;
}

inline int16_t SaturateS16(int32_t v) {
  return static_cast<int16_t>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

enum : uint32_t { kBorderConstant0 = 0, kBorderConstant = 1, kBorderReplicate = 2 };

}  // namespace tvx::gradient

namespace tvx::canny {

// Working flag bits: direction code in bits 0-2, then local maximum, low and high; the
// hysteresis marks the pixels it writes 255 with kEdge.
enum : uint8_t { kCodeMask = 7, kLocalMax = 16, kAboveLow = 32, kAboveHigh = 64, kEdge = 128 };
constexpr int kTraceStack = 5;

// The gradient stage of the 3x3 Canny: from the smoothed image (packed, width stride) fills
// magnitude and direction codes for rows and columns 1 .. size - 2 and, when gx is given, the
// central differences. Returns the largest magnitude.
typedef int32_t (*GradientStage)(const uint8_t* smooth, uint32_t width, uint32_t height, int32_t* mag,
                                 uint8_t* flags, int16_t* gx, int16_t* gy, uint32_t gradStride);
typedef void (*SmoothStage)(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                            uint32_t dstStride, int32_t blurBorder);

typedef void (*NonMaximumStage)(const int32_t* mag, uint8_t* flags, uint32_t width, uint32_t height, int32_t tLow,
                                int32_t tHigh);

// Relative threshold: floor(t * t / 256 * (maxMagnitude / 256)), in float.
int32_t RelativeThreshold(uint32_t t, int32_t maxMagnitude);
// Sets the local-maximum, low and high bits on rows and columns 2 .. size - 3.
void NonMaximumFlags(const int32_t* mag, uint8_t* flags, uint32_t width, uint32_t height, int32_t tLow,
                     int32_t tHigh);
// Writes 255 along the traced edges and 0 elsewhere (flags packed, width stride; marked with
// kEdge on the way).
void Hysteresis(uint8_t* flags, uint32_t width, uint32_t height, uint8_t* dst, uint32_t dstStride);
// The whole 3x3 Canny with the given smoothing and gradient stages.
void Canny3x3(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
              uint32_t dstStride, int16_t* gx, int16_t* gy, uint32_t gradStride, uint32_t low, uint32_t high,
              SmoothStage smooth, GradientStage gradient, NonMaximumStage nonMaximum);

typedef int32_t (*SobelStage)(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dx,
                              int16_t* dy, uint32_t dxyStride, uint32_t borderType, uint8_t borderValue);
// Magnitudes of the aperture detector (|gx| + |gy|, or gx^2 + gy^2 when l2) into a buffer of
// magStride elements per row.
typedef void (*MagnitudeStage)(const int16_t* gx, const int16_t* gy, uint32_t gradStride, uint32_t width,
                               uint32_t height, bool l2, uint32_t* mag, size_t magStride);
// Writes 0, 128 (weak) or 255 (strong) per pixel; mag has a frame of zeros one pixel wide.
typedef void (*ClassifyStage)(const int16_t* gx, const int16_t* gy, uint32_t gradStride, const uint32_t* mag,
                              size_t magStride, uint32_t width, uint32_t height, uint32_t lo, uint32_t hi,
                              uint8_t* dst, uint32_t dstStride);
void ApertureMagnitude(const int16_t* gx, const int16_t* gy, uint32_t gradStride, uint32_t width, uint32_t height,
                       bool l2, uint32_t* mag, size_t magStride);
void ApertureClassify(const int16_t* gx, const int16_t* gy, uint32_t gradStride, const uint32_t* mag,
                      size_t magStride, uint32_t width, uint32_t height, uint32_t lo, uint32_t hi, uint8_t* dst,
                      uint32_t dstStride);
// The Canny with selectable aperture and norm, on the given full-size Sobel variant and stages.
int32_t CannyAperture(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int32_t low,
                      int32_t high, int32_t norm, uint8_t* dst, uint32_t dstStride, int16_t* gx, int16_t* gy,
                      uint32_t gradStride, SobelStage sobel, MagnitudeStage magnitude, ClassifyStage classify);

// Direction classes of the aperture Canny and the edge-pixel list.
enum class Dir { kHorizontal, kDiagonal, kVertical };
inline Dir DirectionOf(int32_t gx, int32_t gy) {
  const int64_t ax = gx < 0 ? -int64_t(gx) : gx, ay = gy < 0 ? -int64_t(gy) : gy;
  if (ay * 32768 < ax * 13573) return Dir::kHorizontal;
  if (ay * 32768 <= ax * 79109) return Dir::kDiagonal;
  return Dir::kVertical;
}
// Local maximum along the gradient; magnitude(dx, dy) gives a neighbour's magnitude.
template <typename M, typename F>
inline bool IsDirectionalMaximum(M m, int32_t gx, int32_t gy, F magnitude) {
  switch (DirectionOf(gx, gy)) {
    case Dir::kHorizontal: return m > magnitude(-1, 0) && m >= magnitude(1, 0);
    case Dir::kVertical: return m > magnitude(0, -1) && m >= magnitude(0, 1);
    default:
      if ((gx >= 0) == (gy >= 0) || gx == 0 || gy == 0) return m > magnitude(-1, -1) && m > magnitude(1, 1);
      return m > magnitude(1, -1) && m > magnitude(-1, 1);
  }
}

}  // namespace tvx::canny
