// SIMD variants of the scaling family. Byte formulas are evaluated exactly in 16-bit lanes:
// a u8 vector seen as u16 holds its even bytes in the low halves and its odd bytes in the high
// halves, so both are widened without a shuffle and the two results merge back by a shift and
// an OR. Up-sampled samples are zipped to the output with StoreInterleaved2/4. Each row ends with
// a scalar tail that follows the reference formulas, so nothing past the rectangle is touched.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/scale.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>

#include "cpu/scale_taps.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

inline const uint8_t* RowAt(const uint8_t* base, uint32_t stride, uint32_t y) {
  return base + static_cast<size_t>(y) * stride;
}
inline uint8_t* RowAt(uint8_t* base, uint32_t stride, uint32_t y) { return base + static_cast<size_t>(y) * stride; }

inline uint8_t Near3(uint32_t nearV, uint32_t farV) { return static_cast<uint8_t>((3 * nearV + farV + 2) >> 2); }

// Applies f (u16 lanes in, u16 lanes holding values <= 255 out) to the even and the odd bytes
// of the u8 vectors v and merges the two results back into one u8 vector.
template <class D8, class F, class... V>
HWY_INLINE hn::Vec<D8> PerByte(D8 d8, F f, V... v) {
  const hn::Repartition<uint16_t, D8> d16;
  const auto low = hn::Set(d16, 0x00FF);
  const auto even = f(hn::And(hn::BitCast(d16, v), low)...);
  const auto odd = f(hn::ShiftRight<8>(hn::BitCast(d16, v))...);
  return hn::BitCast(d8, hn::Or(even, hn::ShiftLeft<8>(odd)));
}

// (3 * near + far + 2) >> 2 per byte.
template <class D8>
HWY_INLINE hn::Vec<D8> Mix31(D8 d8, hn::Vec<D8> nearV, hn::Vec<D8> farV) {
  const hn::Repartition<uint16_t, D8> d16;
  const auto two = hn::Set(d16, 2);
  return PerByte(
      d8, [&](auto n, auto f) { return hn::ShiftRight<2>(hn::Add(hn::Add(hn::ShiftLeft<1>(n), n), hn::Add(f, two))); },
      nearV, farV);
}

// N pixels of kCh bytes (1 planar, 2 interleaved pairs) split into one vector per byte.
template <uint32_t kCh, class D8>
HWY_INLINE void LoadPixels(D8 d8, const uint8_t* p, hn::Vec<D8> (&v)[kCh]) {
  if constexpr (kCh == 1) v[0] = hn::LoadU(d8, p);
  else hn::LoadInterleaved2(d8, p, v[0], v[1]);
}

// Stores pixels p[i], q[i], p[i + 1], q[i + 1], ... (every pixel from its kCh byte vectors).
template <uint32_t kCh, class D8>
HWY_INLINE void StorePixelPairs(D8 d8, const hn::Vec<D8> (&p)[kCh], const hn::Vec<D8> (&q)[kCh], uint8_t* out) {
  if constexpr (kCh == 1) hn::StoreInterleaved2(p[0], q[0], d8, out);
  else hn::StoreInterleaved4(p[0], p[1], q[0], q[1], d8, out);
}

// ---- reductions --------------------------------------------------------------------------------

void DownBy2Rows(const uint8_t* r0, const uint8_t* r1, uint32_t outWidth, uint8_t* out) {
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const size_t N = hn::Lanes(d8);
  const auto low = hn::Set(d16, 0x00FF);
  // Sums of each horizontal pair of both rows, shifted: one u16 lane per output pixel.
  const auto quads = [&](size_t offset) {
    const auto a = hn::BitCast(d16, hn::LoadU(d8, r0 + offset));
    const auto b = hn::BitCast(d16, hn::LoadU(d8, r1 + offset));
    const auto sum = hn::Add(hn::Add(hn::And(a, low), hn::ShiftRight<8>(a)), hn::Add(hn::And(b, low), hn::ShiftRight<8>(b)));
    return hn::ShiftRight<2>(sum);
  };
  size_t x = 0;
  for (; x + N <= outWidth; x += N) {
    const auto lo = quads(2 * x), hi = quads(2 * x + N);
    hn::StoreU(hn::ConcatEven(d8, hn::BitCast(d8, hi), hn::BitCast(d8, lo)), d8, out + x);
  }
  for (; x < outWidth; ++x)
    out[x] = static_cast<uint8_t>((r0[2 * x] + r0[2 * x + 1] + r1[2 * x] + r1[2 * x + 1]) >> 2);
}

void ScaleDownBy2u8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight / 2; ++y)
    DownBy2Rows(RowAt(src, srcStride, 2 * y), RowAt(src, srcStride, 2 * y + 1), srcWidth / 2, RowAt(dst, dstStride, y));
}

void DownBy4Rows(const uint8_t* const rows[4], uint32_t outWidth, uint8_t* out) {
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const hn::Repartition<uint32_t, decltype(d8)> d32;
  const hn::Repartition<int32_t, decltype(d8)> di32;
  const hn::Rebind<uint8_t, decltype(d32)> dq;  // one byte per u32 lane
  const size_t N = hn::Lanes(d8), Q = N / 4;
  const auto low8 = hn::Set(d16, 0x00FF);
  const auto low16 = hn::Set(d32, 0xFFFF);
  size_t x = 0;
  for (; x + Q <= outWidth; x += Q) {
    auto pairs = hn::Zero(d16);  // at most 8 * 255
    for (int k = 0; k < 4; ++k) {
      const auto v = hn::BitCast(d16, hn::LoadU(d8, rows[k] + 4 * x));
      pairs = hn::Add(pairs, hn::Add(hn::And(v, low8), hn::ShiftRight<8>(v)));
    }
    const auto p32 = hn::BitCast(d32, pairs);
    const auto sum = hn::ShiftRight<4>(hn::Add(hn::And(p32, low16), hn::ShiftRight<16>(p32)));
    hn::StoreU(hn::DemoteTo(dq, hn::BitCast(di32, sum)), dq, out + x);
  }
  for (; x < outWidth; ++x) {
    uint32_t sum = 0;
    for (int k = 0; k < 4; ++k) sum += rows[k][4 * x] + rows[k][4 * x + 1] + rows[k][4 * x + 2] + rows[k][4 * x + 3];
    out[x] = static_cast<uint8_t>(sum >> 4);
  }
}

void ScaleDownBy4u8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstStride) {
  for (uint32_t y = 0; y < srcHeight / 4; ++y) {
    const uint8_t* rows[4];
    for (uint32_t k = 0; k < 4; ++k) rows[k] = RowAt(src, srcStride, 4 * y + k);
    DownBy4Rows(rows, srcWidth / 4, RowAt(dst, dstStride, y));
  }
}

// Each 3x3 block gives a 2x2 block; LoadInterleaved3 splits a row into the block columns.
int32_t ScaleDown3To2u8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  if (srcWidth < 3 || srcHeight < 3) return 1;
  const hn::ScalableTag<uint8_t> d8;
  const size_t N = hn::Lanes(d8);
  const uint32_t blocks = srcWidth / 3;
  // (9 * corner + 3 * (edge1 + edge2) + centre) >> 4, at most 16 * 255 in u16 lanes.
  const auto corner = [](auto c, auto e1, auto e2, auto m) {
    const auto nine = hn::Add(hn::ShiftLeft<3>(c), c);
    const auto edges = hn::Add(e1, e2);
    return hn::ShiftRight<4>(hn::Add(hn::Add(nine, hn::Add(hn::ShiftLeft<1>(edges), edges)), m));
  };
  for (uint32_t by = 0; by + 2 < srcHeight; by += 3) {
    const uint8_t* r0 = RowAt(src, srcStride, by);
    const uint8_t* r1 = RowAt(src, srcStride, by + 1);
    const uint8_t* r2 = RowAt(src, srcStride, by + 2);
    uint8_t* top = RowAt(dst, dstStride, by / 3 * 2);
    uint8_t* bottom = RowAt(dst, dstStride, by / 3 * 2 + 1);
    size_t b = 0;
    for (; b + N <= blocks; b += N) {
      hn::Vec<decltype(d8)> p00, p01, p02, p10, p11, p12, p20, p21, p22;
      hn::LoadInterleaved3(d8, r0 + 3 * b, p00, p01, p02);
      hn::LoadInterleaved3(d8, r1 + 3 * b, p10, p11, p12);
      hn::LoadInterleaved3(d8, r2 + 3 * b, p20, p21, p22);
      hn::StoreInterleaved2(PerByte(d8, corner, p00, p01, p10, p11), PerByte(d8, corner, p02, p01, p12, p11), d8,
                            top + 2 * b);
      hn::StoreInterleaved2(PerByte(d8, corner, p20, p21, p10, p11), PerByte(d8, corner, p22, p21, p12, p11), d8,
                            bottom + 2 * b);
    }
    for (; b < blocks; ++b) {
      const uint32_t x = 3 * static_cast<uint32_t>(b);
      const uint32_t p00 = r0[x], p01 = r0[x + 1], p02 = r0[x + 2];
      const uint32_t p10 = r1[x], p11 = r1[x + 1], p12 = r1[x + 2];
      const uint32_t p20 = r2[x], p21 = r2[x + 1], p22 = r2[x + 2];
      top[2 * b] = static_cast<uint8_t>((9 * p00 + 3 * p01 + 3 * p10 + p11) >> 4);
      top[2 * b + 1] = static_cast<uint8_t>((9 * p02 + 3 * p01 + 3 * p12 + p11) >> 4);
      bottom[2 * b] = static_cast<uint8_t>((9 * p20 + 3 * p21 + 3 * p10 + p11) >> 4);
      bottom[2 * b + 1] = static_cast<uint8_t>((9 * p22 + 3 * p21 + 3 * p12 + p11) >> 4);
    }
  }
  return 0;
}

// Factors 2x2 and 4x4 (division by a power of two truncates like the shift) use the vector
// reductions; other factors average their blocks one output pixel at a time.
void ScaleDownu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                 uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  const uint32_t fx = srcWidth / dstWidth, fy = srcHeight / dstHeight;
  for (uint32_t y = 0; y < dstHeight; ++y) {
    uint8_t* out = RowAt(dst, dstStride, y);
    if (fx == 2 && fy == 2) {
      DownBy2Rows(RowAt(src, srcStride, 2 * y), RowAt(src, srcStride, 2 * y + 1), dstWidth, out);
    } else if (fx == 4 && fy == 4) {
      const uint8_t* rows[4];
      for (uint32_t k = 0; k < 4; ++k) rows[k] = RowAt(src, srcStride, 4 * y + k);
      DownBy4Rows(rows, dstWidth, out);
    } else {
      for (uint32_t x = 0; x < dstWidth; ++x) {
        uint32_t sum = 0;
        for (uint32_t k = 0; k < fy; ++k) {
          const uint8_t* r = RowAt(src, srcStride, y * fy + k) + x * fx;
          for (uint32_t i = 0; i < fx; ++i) sum += r[i];
        }
        out[x] = static_cast<uint8_t>(sum / (fx * fy));
      }
    }
  }
}

// ---- up-sampling by 2 ------------------------------------------------------------------------
// kCh bytes per pixel; interleaved pairs are split into one vector per byte, so every vector
// holds N pixels of one byte position.

template <uint32_t kCh>
void UpsampleRow(const uint8_t* s, uint32_t width, uint8_t* out) {
  const hn::ScalableTag<uint8_t> d8;
  using V = hn::Vec<decltype(d8)>;
  const size_t N = hn::Lanes(d8);
  for (uint32_t c = 0; c < kCh; ++c) out[c] = s[c];
  size_t i = 0;
  for (; i + N + 1 <= width; i += N) {
    V a[kCh], b[kCh], p[kCh], q[kCh];
    LoadPixels<kCh>(d8, s + i * kCh, a);
    LoadPixels<kCh>(d8, s + (i + 1) * kCh, b);
    for (uint32_t c = 0; c < kCh; ++c) {
      p[c] = Mix31(d8, a[c], b[c]);
      q[c] = Mix31(d8, b[c], a[c]);
    }
    StorePixelPairs<kCh>(d8, p, q, out + (2 * i + 1) * kCh);
  }
  for (; i + 1 < width; ++i)
    for (uint32_t c = 0; c < kCh; ++c) {
      const uint32_t a = s[i * kCh + c], b = s[(i + 1) * kCh + c];
      out[(2 * i + 1) * kCh + c] = Near3(a, b);
      out[(2 * i + 2) * kCh + c] = Near3(b, a);
    }
  for (uint32_t c = 0; c < kCh; ++c) out[(2 * width - 1) * kCh + c] = s[(width - 1) * kCh + c];
}

template <uint32_t kCh>
void UpsampleHorizontal(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  for (uint32_t y = 0; y < height; ++y) UpsampleRow<kCh>(RowAt(src, srcStride, y), width, RowAt(dst, dstStride, y));
}

// Inner rows cover 2 * (width / 2) pixels, as in the reference.
template <uint32_t kCh>
void UpsampleVertical(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstStride) {
  const hn::ScalableTag<uint8_t> d8;
  const size_t N = hn::Lanes(d8);
  const size_t rowBytes = static_cast<size_t>(width) * kCh;
  const size_t mixBytes = static_cast<size_t>(width / 2) * 2 * kCh;
  std::memcpy(RowAt(dst, dstStride, 0), src, rowBytes);
  std::memcpy(RowAt(dst, dstStride, 2 * height - 1), RowAt(src, srcStride, height - 1), rowBytes);
  for (uint32_t y = 0; y + 1 < height; ++y) {
    const uint8_t* a = RowAt(src, srcStride, y);
    const uint8_t* b = RowAt(src, srcStride, y + 1);
    uint8_t* upper = RowAt(dst, dstStride, 2 * y + 1);
    uint8_t* lower = RowAt(dst, dstStride, 2 * y + 2);
    size_t i = 0;
    for (; i + N <= mixBytes; i += N) {
      const auto va = hn::LoadU(d8, a + i), vb = hn::LoadU(d8, b + i);
      hn::StoreU(Mix31(d8, va, vb), d8, upper + i);
      hn::StoreU(Mix31(d8, vb, va), d8, lower + i);
    }
    for (; i < mixBytes; ++i) {
      upper[i] = Near3(a[i], b[i]);
      lower[i] = Near3(b[i], a[i]);
    }
  }
}

// The two inner output rows between source rows a and b. With the vertical 3:1 sums
// U = 3 * nearer + farther (nearer is a for the upper row, b for the lower), the 9:3:3:1
// samples are (3 * U(i) + U(i+1) + 8) >> 4 and (U(i) + 3 * U(i+1) + 8) >> 4; the end columns
// are (U + 2) >> 2.
template <uint32_t kCh>
void Upsample2DRowPair(const uint8_t* a, const uint8_t* b, uint32_t width, uint8_t* upper, uint8_t* lower) {
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  using V = hn::Vec<decltype(d8)>;
  const size_t N = hn::Lanes(d8);
  const auto eight = hn::Set(d16, 8);
  const auto triple = [](auto v) { return hn::Add(hn::ShiftLeft<1>(v), v); };
  const auto left = [&](auto n0, auto f0, auto n1, auto f1) {
    const auto u0 = hn::Add(triple(n0), f0), u1 = hn::Add(triple(n1), f1);
    return hn::ShiftRight<4>(hn::Add(hn::Add(triple(u0), u1), eight));
  };
  const auto right = [&](auto n0, auto f0, auto n1, auto f1) {
    const auto u0 = hn::Add(triple(n0), f0), u1 = hn::Add(triple(n1), f1);
    return hn::ShiftRight<4>(hn::Add(hn::Add(u0, triple(u1)), eight));
  };
  for (uint32_t c = 0; c < kCh; ++c) {
    upper[c] = Near3(a[c], b[c]);
    lower[c] = Near3(b[c], a[c]);
  }
  size_t i = 0;
  for (; i + N + 1 <= width; i += N) {
    V a0[kCh], a1[kCh], b0[kCh], b1[kCh], ul[kCh], ur[kCh], ll[kCh], lr[kCh];
    LoadPixels<kCh>(d8, a + i * kCh, a0);
    LoadPixels<kCh>(d8, a + (i + 1) * kCh, a1);
    LoadPixels<kCh>(d8, b + i * kCh, b0);
    LoadPixels<kCh>(d8, b + (i + 1) * kCh, b1);
    for (uint32_t c = 0; c < kCh; ++c) {
      ul[c] = PerByte(d8, left, a0[c], b0[c], a1[c], b1[c]);
      ur[c] = PerByte(d8, right, a0[c], b0[c], a1[c], b1[c]);
      ll[c] = PerByte(d8, left, b0[c], a0[c], b1[c], a1[c]);
      lr[c] = PerByte(d8, right, b0[c], a0[c], b1[c], a1[c]);
    }
    StorePixelPairs<kCh>(d8, ul, ur, upper + (2 * i + 1) * kCh);
    StorePixelPairs<kCh>(d8, ll, lr, lower + (2 * i + 1) * kCh);
  }
  for (; i + 1 < width; ++i)
    for (uint32_t c = 0; c < kCh; ++c) {
      const uint32_t a0 = a[i * kCh + c], a1 = a[(i + 1) * kCh + c];
      const uint32_t b0 = b[i * kCh + c], b1 = b[(i + 1) * kCh + c];
      upper[(2 * i + 1) * kCh + c] = static_cast<uint8_t>((9 * a0 + 3 * (a1 + b0) + b1 + 8) >> 4);
      upper[(2 * i + 2) * kCh + c] = static_cast<uint8_t>((9 * a1 + 3 * (a0 + b1) + b0 + 8) >> 4);
      lower[(2 * i + 1) * kCh + c] = static_cast<uint8_t>((9 * b0 + 3 * (b1 + a0) + a1 + 8) >> 4);
      lower[(2 * i + 2) * kCh + c] = static_cast<uint8_t>((9 * b1 + 3 * (b0 + a1) + a0 + 8) >> 4);
    }
  for (uint32_t c = 0; c < kCh; ++c) {
    const size_t last = (width - 1) * kCh + c, out = (2 * static_cast<size_t>(width) - 1) * kCh + c;
    upper[out] = Near3(a[last], b[last]);
    lower[out] = Near3(b[last], a[last]);
  }
}

template <uint32_t kCh>
void Upsample2D(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                uint32_t dstStride) {
  UpsampleRow<kCh>(src, width, dst);
  UpsampleRow<kCh>(RowAt(src, srcStride, height - 1), width, RowAt(dst, dstStride, 2 * height - 1));
  for (uint32_t y = 0; y + 1 < height; ++y)
    Upsample2DRowPair<kCh>(RowAt(src, srcStride, y), RowAt(src, srcStride, y + 1), width,
                           RowAt(dst, dstStride, 2 * y + 1), RowAt(dst, dstStride, 2 * y + 2));
}

void UpsampleHorizontalu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                          uint32_t dstStride) {
  UpsampleHorizontal<1>(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void UpsampleVerticalu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  UpsampleVertical<1>(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void Upsample2Du8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                  uint32_t dstStride) {
  Upsample2D<1>(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void UpsampleHorizontalInterleavedu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                     uint8_t* dst, uint32_t dstStride) {
  UpsampleHorizontal<2>(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void UpsampleVerticalInterleavedu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   uint8_t* dst, uint32_t dstStride) {
  UpsampleVertical<2>(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void Upsample2DInterleavedu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride) {
  Upsample2D<2>(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

// ---- interleaving ------------------------------------------------------------------------------

template <typename T>
void InterleaveRows(const T* src0, const T* src1, uint32_t width, uint32_t height, uint32_t src0Stride,
                    uint32_t src1Stride, T* dst, uint32_t dstStride) {
  const hn::ScalableTag<T> d;
  const size_t N = hn::Lanes(d);
  for (uint32_t y = 0; y < height; ++y) {
    const T* a = tvxscale::SampleRow(src0, src0Stride, y);
    const T* b = tvxscale::SampleRow(src1, src1Stride, y);
    T* out = tvxscale::SampleRow(dst, dstStride, y);
    size_t x = 0;
    for (; x + N <= width; x += N) hn::StoreInterleaved2(hn::LoadU(d, a + x), hn::LoadU(d, b + x), d, out + 2 * x);
    for (; x < width; ++x) {
      out[2 * x] = a[x];
      out[2 * x + 1] = b[x];
    }
  }
}

void Interleaveu8(const uint8_t* src0, const uint8_t* src1, uint32_t imageWidth, uint32_t imageHeight,
                  uint32_t src0Stride, uint32_t src1Stride, uint8_t* dst, uint32_t dstStride) {
  InterleaveRows(src0, src1, imageWidth, imageHeight, src0Stride, src1Stride, dst, dstStride);
}

void Interleaves16(const int16_t* src0, const int16_t* src1, uint32_t imageWidth, uint32_t imageHeight,
                   uint32_t src0Stride, uint32_t src1Stride, int16_t* dst, uint32_t dstStride) {
  InterleaveRows(src0, src1, imageWidth, imageHeight, src0Stride, src1Stride, dst, dstStride);
}

void Deinterleaveu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst0,
                    uint32_t dst0Stride, uint8_t* dst1, uint32_t dst1Stride) {
  const hn::ScalableTag<uint8_t> d8;
  const size_t N = hn::Lanes(d8);
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* in = RowAt(src, srcStride, y);
    uint8_t* a = RowAt(dst0, dst0Stride, y);
    uint8_t* b = RowAt(dst1, dst1Stride, y);
    size_t x = 0;
    for (; x + N <= srcWidth; x += N) {
      hn::Vec<decltype(d8)> va, vb;
      hn::LoadInterleaved2(d8, in + 2 * x, va, vb);
      hn::StoreU(va, d8, a + x);
      hn::StoreU(vb, d8, b + x);
    }
    for (; x < srcWidth; ++x) {
      a[x] = in[2 * x];
      b[x] = in[2 * x + 1];
    }
  }
}


// ---- nearest-neighbour and bilinear resampling ---------------------------------------------------
// Byte gathers have no vector form here, so the horizontal steps stay scalar over column tables
// taken from the scratch pool; nearest-neighbour rows that sample the same source row are copied,
// and the bilinear vertical blend runs in 16-bit lanes. Without scratch the reference runs.

void ScaleDownNNu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                   uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  // A table of more than 2^32 bytes (possible for a 1 GB row on a 32-bit target) is not taken.
  uint32_t* columns = dstWidth <= UINT32_MAX / 4
                          ? static_cast<uint32_t*>(tvxGetScratchBufferAligned_(dstWidth * 4, 64))
                          : nullptr;
  if (!columns) return tvxScaleDownNNu8C(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride);
  for (uint32_t x = 0; x < dstWidth; ++x) columns[x] = tvxscale::NearestIndex(x, srcWidth, dstWidth);
  uint32_t previous = 0;
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const uint32_t sy = tvxscale::NearestIndex(y, srcHeight, dstHeight);
    uint8_t* out = RowAt(dst, dstStride, y);
    if (y > 0 && sy == previous) {
      std::memcpy(out, RowAt(dst, dstStride, y - 1), dstWidth);
      continue;
    }
    const uint8_t* in = RowAt(src, srcStride, sy);
    for (uint32_t x = 0; x < dstWidth; ++x) out[x] = in[columns[x]];
    previous = sy;
  }
  tvxReleaseScratchBuffer_(columns);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(ScaleDownBy2u8);
HWY_EXPORT(ScaleDownBy4u8);
HWY_EXPORT(ScaleDown3To2u8);
HWY_EXPORT(ScaleDownu8);
HWY_EXPORT(UpsampleHorizontalu8);
HWY_EXPORT(UpsampleVerticalu8);
HWY_EXPORT(Upsample2Du8);
HWY_EXPORT(UpsampleHorizontalInterleavedu8);
HWY_EXPORT(UpsampleVerticalInterleavedu8);
HWY_EXPORT(Upsample2DInterleavedu8);
HWY_EXPORT(Interleaveu8);
HWY_EXPORT(Interleaves16);
HWY_EXPORT(Deinterleaveu8);
HWY_EXPORT(ScaleDownNNu8);
}  // namespace tvx

using namespace tvx;

void tvxScaleDownBy2u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(ScaleDownBy2u8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxScaleDownBy4u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(ScaleDownBy4u8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
int32_t tvxScaleDown3To2u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                            uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(ScaleDown3To2u8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxScaleDownu8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                     uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(ScaleDownu8)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride);
}
void tvxUpsampleHorizontalu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(UpsampleHorizontalu8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxUpsampleVerticalu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                            uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(UpsampleVerticalu8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxUpsample2Du8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Upsample2Du8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxUpsampleHorizontalInterleavedu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                         uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(UpsampleHorizontalInterleavedu8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxUpsampleVerticalInterleavedu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                       uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(UpsampleVerticalInterleavedu8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxUpsample2DInterleavedu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Upsample2DInterleavedu8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxInterleaveu8V(const uint8_t* src0, const uint8_t* src1, uint32_t imageWidth, uint32_t imageHeight,
                      uint32_t src0Stride, uint32_t src1Stride, uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Interleaveu8)(src0, src1, imageWidth, imageHeight, src0Stride, src1Stride, dst, dstStride);
}
void interleaves16V(const int16_t* src0, const int16_t* src1, uint32_t imageWidth, uint32_t imageHeight,
                    uint32_t src0Stride, uint32_t src1Stride, int16_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Interleaves16)(src0, src1, imageWidth, imageHeight, src0Stride, src1Stride, dst, dstStride);
}
void tvxDeinterleaveu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst0,
                        uint32_t dst0Stride, uint8_t* dst1, uint32_t dst1Stride) {
  HWY_DYNAMIC_DISPATCH(Deinterleaveu8)(src, srcWidth, srcHeight, srcStride, dst0, dst0Stride, dst1, dst1Stride);
}
void tvxScaleDownNNu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(ScaleDownNNu8)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride);
}
// The bilinear down-scaler is the general scaler's bilinear path with a replicated border
// (same centre-aligned taps and rounding), which has the faster SIMD kernel.
void tvxScaleDownBLu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  tvxScaleu8_v2V(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, 1, 2, 0);
}
#endif  // HWY_ONCE
