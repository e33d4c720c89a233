// Position and sampling rules shared by the reference and SIMD warps: the fixed-point source
// position of a destination pixel, the border rule, one bilinear or nearest sample, the
// bicubic tap weights and the float pass of the three-channel warp. Both tiers call these for
// every pixel they do not handle in vector lanes, so the two agree by construction there.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/frame.h"

namespace tvxwarp {

// The source inside a one-pixel frame of `value`: a (width + 2) x (height + 2) block from the
// library allocator (free it with tvxMemFree), or null when it cannot be had.
inline uint8_t* FramedCopy(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t value) {
  const uint64_t fw = uint64_t{width} + 2, fh = uint64_t{height} + 2;
  if (fw * fh > 0xFFFFFFFFu) return nullptr;
  uint8_t* framed = static_cast<uint8_t*>(tvxMemAlloc(static_cast<uint32_t>(fw * fh), 16));
  if (!framed) return nullptr;
  std::memset(framed, static_cast<int>(value), static_cast<size_t>(fw * fh));
  for (uint32_t y = 0; y < height; ++y)
    std::memcpy(framed + (y + 1) * fw + 1, src + static_cast<size_t>(y) * stride, width);
  return framed;
}

// Positions are held in 1/32 pixel.
constexpr int kFracBits = 5;
constexpr int32_t kFracOne = 1 << kFracBits;
constexpr int32_t kFracMask = kFracOne - 1;
// X*r and Y*r must lie strictly inside (-kLimit, kLimit) to be converted; anything else (w = 0,
// NaN, infinities, huge values) becomes the far position (kFar, kFar), outside every image.
constexpr float kLimit = 1073741824.0f;  // 2^30
constexpr int32_t kFar = -(1 << 30);

enum : uint32_t { kNearest = 0, kBilinear = 1 };
enum : uint32_t { kBorderZero = 0, kBorderConstant = 1, kBorderReplicate = 2 };

struct Border {
  uint32_t kind;   // kBorderZero, kBorderConstant or kBorderReplicate
  uint32_t value;  // the constant for kBorderConstant (0 for kBorderZero)
};

// The three linear forms of one destination row: X = m0 * x + cx and so on. Affine matrices
// are expanded to (M0..M5, 0, 0, 1) before they get here.
struct RowForms {
  float m0, m3, m6;
  float cx, cy, cw;
};

inline RowForms FormsAt(const float* M, float y) {
  RowForms f;
  f.m0 = M[0];
  f.m3 = M[3];
  f.m6 = M[6];
  f.cx = M[1] * y + M[2];
  f.cy = M[4] * y + M[5];
  f.cw = M[7] * y + M[8];
  return f;
}

// Fixed-point position of destination column xf; the float operations are the ones the SIMD
// pass performs lane by lane (no fused multiply-add: the build disables contraction).
inline void PositionAt(const RowForms& f, float xf, int32_t* u, int32_t* v) {
  const float X = f.m0 * xf + f.cx;
  const float Y = f.m3 * xf + f.cy;
  const float W = f.m6 * xf + f.cw;
  const float r = 32.0f / W;
  const float U = X * r, V = Y * r;
  if (U > -kLimit && U < kLimit && V > -kLimit && V < kLimit) {
    *u = static_cast<int32_t>(std::floor(U + 0.5f));
    *v = static_cast<int32_t>(std::floor(V + 0.5f));
  } else {
    *u = kFar;
    *v = kFar;
  }
}

// Positions of columns x0, x0 + step, x0 + 2 step, ... (count of them) of one row.
inline void PositionRow(const RowForms& f, uint32_t x0, uint32_t step, uint32_t count, int32_t* u, int32_t* v) {
  for (uint32_t i = 0; i < count; ++i) PositionAt(f, static_cast<float>(x0 + i * step), u + i, v + i);
}

// A plane of interleaved channels: pixel (x, y), channel c at row y, byte x * ch + c.
struct Plane {
  const uint8_t* data;
  uint32_t width, height, stride, ch;
};

inline uint32_t PixelOf(const Plane& p, int64_t x, int64_t y, uint32_t c, const Border& b) {
  if (x < 0 || y < 0 || x >= p.width || y >= p.height) {
    if (b.kind != kBorderReplicate) return b.kind == kBorderConstant ? b.value : 0;
    x = x < 0 ? 0 : (x >= p.width ? p.width - 1 : x);
    y = y < 0 ? 0 : (y >= p.height ? p.height - 1 : y);
  }
  return p.data[static_cast<size_t>(y) * p.stride + static_cast<size_t>(x) * p.ch + c];
}

inline uint8_t Bilinear(const Plane& p, int32_t u, int32_t v, uint32_t c, const Border& b) {
  const int64_t x = u >> kFracBits, y = v >> kFracBits;
  const int32_t fx = u & kFracMask, fy = v & kFracMask;
  const int32_t p00 = static_cast<int32_t>(PixelOf(p, x, y, c, b)), p01 = static_cast<int32_t>(PixelOf(p, x + 1, y, c, b));
  const int32_t p10 = static_cast<int32_t>(PixelOf(p, x, y + 1, c, b)), p11 = static_cast<int32_t>(PixelOf(p, x + 1, y + 1, c, b));
  const int32_t top = kFracOne * p00 + fx * (p01 - p00);
  const int32_t bottom = kFracOne * p10 + fx * (p11 - p10);
  return static_cast<uint8_t>((kFracOne * top + fy * (bottom - top) + 512) >> 10);
}

inline uint8_t Nearest(const Plane& p, int32_t u, int32_t v, uint32_t c, const Border& b) {
  return static_cast<uint8_t>(PixelOf(p, (u + 16) >> kFracBits, (v + 16) >> kFracBits, c, b));
}

inline uint8_t Sample(const Plane& p, int32_t u, int32_t v, uint32_t c, const Border& b, uint32_t interpolation) {
  return interpolation == kNearest ? Nearest(p, u, v, c, b) : Bilinear(p, u, v, c, b);
}

// The 3x3 perspective matrix of a 2x3 affine one.
inline void AffineToPerspective(const float* A, float* M) {
  for (int i = 0; i < 6; ++i) M[i] = A[i];
  M[6] = 0.0f;
  M[7] = 0.0f;
  M[8] = 1.0f;
}

// ---- bicubic ----------------------------------------------------------------------------------

constexpr int kCubicBits = 10;  // tap weights in 1/1024

// Taps of the cubic with a = -0.75 at t = phase / 32 for the source pixels at -1, 0, 1, 2.
struct CubicTable {
  int32_t w[4][kFracOne];
  CubicTable() {
    const double a = -0.75;
    for (int32_t phase = 0; phase < kFracOne; ++phase) {
      const double t = phase / 32.0, t1 = t + 1.0, s = 1.0 - t;
      const double w0 = ((a * t1 - 5.0 * a) * t1 + 8.0 * a) * t1 - 4.0 * a;
      const double w1 = ((a + 2.0) * t - (a + 3.0)) * t * t + 1.0;
      const double w2 = ((a + 2.0) * s - (a + 3.0)) * s * s + 1.0;
      w[0][phase] = static_cast<int32_t>(std::lround(w0 * (1 << kCubicBits)));
      w[1][phase] = static_cast<int32_t>(std::lround(w1 * (1 << kCubicBits)));
      w[2][phase] = static_cast<int32_t>(std::lround(w2 * (1 << kCubicBits)));
      w[3][phase] = (1 << kCubicBits) - w[0][phase] - w[1][phase] - w[2][phase];
    }
  }
};

inline const CubicTable& Cubic() {
  static const CubicTable table;
  return table;
}

inline int32_t ClampIndex(int64_t i, uint32_t n) { return static_cast<int32_t>(i < 0 ? 0 : (i >= n ? n - 1 : i)); }

// One channel of one bicubic sample with taps clipped to the image.
inline uint8_t Bicubic(const Plane& p, int32_t u, int32_t v, uint32_t c) {
  const CubicTable& t = Cubic();
  const int64_t x = u >> kFracBits, y = v >> kFracBits;
  const int32_t fx = u & kFracMask, fy = v & kFracMask;
  int32_t sum = 0;
  for (int j = 0; j < 4; ++j) {
    const uint8_t* row = p.data + static_cast<size_t>(ClampIndex(y - 1 + j, p.height)) * p.stride;
    int32_t across = 0;
    for (int i = 0; i < 4; ++i) across += t.w[i][fx] * row[static_cast<size_t>(ClampIndex(x - 1 + i, p.width)) * p.ch + c];
    sum += t.w[j][fy] * across;
  }
  const int32_t out = (sum + (1 << (2 * kCubicBits - 1))) >> (2 * kCubicBits);
  return static_cast<uint8_t>(out < 0 ? 0 : (out > 255 ? 255 : out));
}

// ---- three-channel float warp -----------------------------------------------------------------

// Running forms of the three-channel warp: they start at (M2, M5, M8) and advance by adding.
struct Forms3 {
  float x, y, w;
};

// One row of the three-channel warp's positions: for every pixel the source column and row of
// its top-left neighbour (row kSkip when the pixel is not sampled) and its fractions. The forms
// advance along the row by adding M0, M3, M6; f is left at the row start.
constexpr uint32_t kSkip = 0xFFFFFFFFu;
inline void ThreeChannelRow(const float* M, Forms3 f, uint32_t srcWidth, uint32_t srcHeight, uint32_t dstWidth,
                            uint32_t* iu, uint32_t* iv, float* fx, float* fy) {
  const double lastX = static_cast<double>(srcWidth) - 1.0, lastY = static_cast<double>(srcHeight) - 1.0;
  for (uint32_t x = 0; x < dstWidth; ++x) {
    const float r = 1.0f / f.w;
    const float u = f.x * r, v = f.y * r;
    // trunc(u) < srcWidth - 1 holds exactly when u < srcWidth - 1 for u >= 0; comparing first
    // keeps huge and NaN values away from the conversion.
    if (v >= 0.0f && u >= 0.0f && static_cast<double>(u) < lastX && static_cast<double>(v) < lastY) {
      const uint32_t cu = static_cast<uint32_t>(u), cv = static_cast<uint32_t>(v);
      const float du = u - static_cast<float>(cu), dv = v - static_cast<float>(cv);
      iu[x] = cu;
      iv[x] = cv;
      fx[x] = du > 0.0f ? du : 0.0f;
      fy[x] = dv > 0.0f ? dv : 0.0f;
    } else {
      iu[x] = 0;
      iv[x] = kSkip;
      fx[x] = 0.0f;
      fy[x] = 0.0f;
    }
    f.x += M[0];
    f.y += M[3];
    f.w += M[6];
  }
}

// The float blend of one channel: top, bottom, then down, truncated.
inline uint8_t Blend3(uint32_t p00, uint32_t p01, uint32_t p10, uint32_t p11, float fx, float fy) {
  const float top = static_cast<float>(p00) + fx * static_cast<float>(static_cast<int32_t>(p01) - static_cast<int32_t>(p00));
  const float bottom = static_cast<float>(p10) + fx * static_cast<float>(static_cast<int32_t>(p11) - static_cast<int32_t>(p10));
  const float out = top + fy * (bottom - top);
  return static_cast<uint8_t>(static_cast<int32_t>(out));
}

}  // namespace tvxwarp
