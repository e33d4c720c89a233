// SIMD variants of the remaps, one destination pixel per 32-bit lane. Positions are checked in
// float before any conversion (NaN and far-away values never reach it). Nearest neighbour
// rounds half away from zero from the truncation and the exact fraction m - trunc(m), which
// equals the reference's rounding in double; bilinear positions take floor(32 m + 0.5) from the
// truncation corrected by one where it exceeds the value. Pixels are fetched with 32-bit
// gathers: single bytes from the source (the word ending at the byte, so no read passes the
// last pixel), bilinear neighbours from the framed copy the reference also builds (with a few
// bytes of slack after it for the word reads).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/remap.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>

#include "cpu/remap_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace remap {
namespace hn = hwy::HWY_NAMESPACE;

using DF = hn::ScalableTag<float>;
using DI = hn::RebindToSigned<DF>;
using VF = hn::Vec<DF>;
using VI = hn::Vec<DI>;
using MI = hn::Mask<DI>;

inline const float* MapRow(const float* map, uint32_t mapStride, uint32_t y) {
  return reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(map) + static_cast<size_t>(y) * mapStride);
}

// Nearest index of the lanes of m and whether it lies in [0, size): inside exactly when
// -0.5 < m < size - 0.5 (size - 0.5 is exact for sizes below 2^22).
inline VI NearestLanes(VF m, float sizeMinusHalf, MI& inside) {
  const DF df;
  const DI di;
  const auto in = hn::And(hn::Gt(m, hn::Set(df, -0.5f)), hn::Lt(m, hn::Set(df, sizeMinusHalf)));
  inside = hn::RebindMask(di, in);
  const VF safe = hn::IfThenElseZero(in, m);
  const VI t = hn::ConvertTo(di, safe);
  const auto up = hn::Ge(hn::Sub(safe, hn::ConvertTo(df, t)), hn::Set(df, 0.5f));
  return hn::Sub(t, hn::VecFromMask(di, hn::RebindMask(di, up)));  // a true mask is -1
}

// floor(32 m + 0.5) with m clamped to [lo, hi] first, NaN to lo.
inline VI FixedLanes(VF m, VF lo, VF hi) {
  const DF df;
  const DI di;
  VF t = hn::Add(hn::Mul(m, hn::Set(df, 32.0f)), hn::Set(df, 0.5f));
  t = hn::IfThenElse(hn::Ge(t, lo), t, lo);
  t = hn::Min(t, hi);
  const VI i = hn::ConvertTo(di, t);
  return hn::Add(i, hn::VecFromMask(di, hn::RebindMask(di, hn::Gt(hn::ConvertTo(df, i), t))));
}

// Lane offsets stored for scalar fetches: vector gathers are slow on several cores this runs on
// (and emulated on NEON), while the loads themselves are cheap.
constexpr size_t kMaxLanes = HWY_MAX_BYTES / sizeof(float);

// Keeps the compiler from replacing the scalar reloads of stored lanes by lane extractions,
// which cost more on the cores measured than a store and its forwarded loads.
inline void KeepInMemory(const void* p) { asm volatile("" : : "r"(p) : "memory"); }

// The neighbour pairs of each lane: `bytes` bytes at base + offset into top and at the same
// place one row down into bottom, zero-extended to 32 bits (4-byte pixels: two words each).
template <size_t bytes>
inline void FetchNeighbours(const uint8_t* base, size_t stride, const int32_t* offsets, size_t n, int32_t* top,
                            int32_t* bottom) {
  for (size_t i = 0; i < n; ++i) {
    const uint8_t* p = base + offsets[i];
    uint32_t a = 0, b = 0;  // little-endian targets: the first byte is the low one
    std::memcpy(&a, p, bytes);
    std::memcpy(&b, p + stride, bytes);
    top[i] = static_cast<int32_t>(a);
    bottom[i] = static_cast<int32_t>(b);
  }
  KeepInMemory(top);
  KeepInMemory(bottom);
}

template <int k>
inline VI Byte(VI word) {
  return hn::And(hn::ShiftRight<8 * k>(word), hn::Set(DI(), 0xFF));
}

// Bilinear blend of four neighbour vectors with 1/32 fractions: exactly
// ((32 - fy) ((32 - fx) p00 + fx p01) + fy ((32 - fx) p10 + fx p11) + 512) >> 10.
inline VI BlendLanes(VI p00, VI p01, VI p10, VI p11, VI fx, VI fy) {
  const DI di;
  const VI top = hn::Add(hn::ShiftLeft<5>(p00), hn::Mul(hn::Sub(p01, p00), fx));
  const VI bottom = hn::Add(hn::ShiftLeft<5>(p10), hn::Mul(hn::Sub(p11, p10), fx));
  return hn::ShiftRight<10>(hn::Add(hn::Add(hn::ShiftLeft<5>(top), hn::Mul(hn::Sub(bottom, top), fy)), hn::Set(di, 512)));
}

struct Frame {
  uint8_t* bytes;
  size_t stride;  // bytes per framed row
};

// One pixel of `ch` bytes the scalar way (row tails).
inline void NearestPixel(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, float mx, float my,
                         uint32_t ch, const uint8_t* outside, uint8_t* o) {
  uint32_t sx, sy;
  const bool inside = tvxremap::NearestIndex(mx, srcWidth, &sx) && tvxremap::NearestIndex(my, srcHeight, &sy);
  std::memcpy(o, inside ? src + static_cast<size_t>(sy) * srcStride + static_cast<size_t>(sx) * ch : outside, ch);
}

inline void BilinearPixel(const Frame& f, uint32_t srcWidth, uint32_t srcHeight, float mx, float my, uint32_t ch,
                          const uint8_t* outside, uint8_t* o) {
  const int32_t X = tvxremap::FixedPosition(mx, tvxremap::FixedLow(), tvxremap::FixedHigh(srcWidth));
  const int32_t Y = tvxremap::FixedPosition(my, tvxremap::FixedLow(), tvxremap::FixedHigh(srcHeight));
  if (X < 0 || Y < 0 || X >= int64_t{srcWidth} * 32 || Y >= int64_t{srcHeight} * 32) {
    std::memcpy(o, outside, ch);
    return;
  }
  const uint8_t* p0 = f.bytes + (static_cast<size_t>(Y >> 5) + 1) * f.stride + (static_cast<size_t>(X >> 5) + 1) * ch;
  const uint8_t* p1 = p0 + f.stride;
  for (uint32_t c = 0; c < ch; ++c)
    o[c] = static_cast<uint8_t>(tvxremap::Blend(p0[c], p0[c + ch], p1[c], p1[c + ch], X & 31, Y & 31));
}

void NearestRow(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, const float* mx,
                const float* my, uint32_t dstWidth, uint32_t ch, uint8_t outsideByte, uint8_t* out) {
  const DF df;
  const DI di;
  const size_t N = hn::Lanes(df);
  const float wHalf = static_cast<float>(srcWidth) - 0.5f, hHalf = static_cast<float>(srcHeight) - 0.5f;
  const VI stride = hn::Set(di, static_cast<int32_t>(srcStride));
  alignas(64) int32_t offsets[kMaxLanes];
  uint32_t x = 0;
  for (; x + N <= dstWidth; x += N) {
    MI inX, inY;
    const VI xi = NearestLanes(hn::LoadU(df, mx + x), wHalf, inX);
    const VI yi = NearestLanes(hn::LoadU(df, my + x), hHalf, inY);
    const MI inside = hn::And(inX, inY);
    // Offsets of inside pixels, -1 for outside ones.
    const VI column = ch == 4 ? hn::ShiftLeft<2>(xi) : xi;
    hn::Store(hn::IfThenElse(inside, hn::Add(hn::Mul(yi, stride), column), hn::Set(di, -1)), di, offsets);
    KeepInMemory(offsets);
    if (ch == 4) {
      uint8_t* o = out + 4 * x;
      for (size_t i = 0; i < N; ++i) {
        uint32_t w = 0;
        if (offsets[i] >= 0) std::memcpy(&w, src + offsets[i], 4);
        std::memcpy(o + 4 * i, &w, 4);
      }
    } else {
      for (size_t i = 0; i < N; ++i) out[x + i] = offsets[i] >= 0 ? src[offsets[i]] : outsideByte;
    }
  }
  const uint8_t zero[4] = {0, 0, 0, 0};
  for (; x < dstWidth; ++x)
    NearestPixel(src, srcWidth, srcHeight, srcStride, mx[x], my[x], ch, ch == 4 ? zero : &outsideByte, out + x * ch);
}

void BilinearRow(const Frame& f, uint32_t srcWidth, uint32_t srcHeight, const float* mx, const float* my,
                 uint32_t dstWidth, uint32_t ch, uint8_t outsideByte, uint8_t* out) {
  const DF df;
  const DI di;
  const hn::Rebind<uint8_t, DI> d8;
  const size_t N = hn::Lanes(df);
  const VF lo = hn::Set(df, tvxremap::FixedLow());
  const VF hiX = hn::Set(df, tvxremap::FixedHigh(srcWidth)), hiY = hn::Set(df, tvxremap::FixedHigh(srcHeight));
  const VI limX = hn::Set(di, static_cast<int32_t>(srcWidth * 32)), limY = hn::Set(di, static_cast<int32_t>(srcHeight * 32));
  const VI minus1 = hn::Set(di, -1), one = hn::Set(di, 1), low5 = hn::Set(di, 31);
  const VI fstride = hn::Set(di, static_cast<int32_t>(f.stride));
  const VI outside = hn::Set(di, outsideByte);
  alignas(64) int32_t offsets[kMaxLanes], w0[kMaxLanes], w1[kMaxLanes], w2[kMaxLanes], w3[kMaxLanes];
  for (uint32_t x = 0; x + N <= dstWidth; x += N) {
    const VI X = FixedLanes(hn::LoadU(df, mx + x), lo, hiX);
    const VI Y = FixedLanes(hn::LoadU(df, my + x), lo, hiY);
    const MI inside = hn::And(hn::And(hn::Gt(X, minus1), hn::Lt(X, limX)), hn::And(hn::Gt(Y, minus1), hn::Lt(Y, limY)));
    const VI fx = hn::And(X, low5), fy = hn::And(Y, low5);
    const VI column = hn::Add(hn::ShiftRight<5>(X), one);
    const VI rowStart = hn::Mul(hn::Add(hn::ShiftRight<5>(Y), one), fstride);
    if (ch == 4) {
      hn::Store(hn::IfThenElseZero(inside, hn::Add(rowStart, hn::ShiftLeft<2>(column))), di, offsets);
      KeepInMemory(offsets);
      FetchNeighbours<4>(f.bytes, f.stride, offsets, N, w0, w2);
      FetchNeighbours<4>(f.bytes + 4, f.stride, offsets, N, w1, w3);
      const VI g00 = hn::Load(di, w0), g01 = hn::Load(di, w1), g10 = hn::Load(di, w2), g11 = hn::Load(di, w3);
      VI v = BlendLanes(Byte<0>(g00), Byte<0>(g01), Byte<0>(g10), Byte<0>(g11), fx, fy);
      v = hn::Or(v, hn::ShiftLeft<8>(BlendLanes(Byte<1>(g00), Byte<1>(g01), Byte<1>(g10), Byte<1>(g11), fx, fy)));
      v = hn::Or(v, hn::ShiftLeft<16>(BlendLanes(Byte<2>(g00), Byte<2>(g01), Byte<2>(g10), Byte<2>(g11), fx, fy)));
      v = hn::Or(v, hn::ShiftLeft<24>(BlendLanes(Byte<3>(g00), Byte<3>(g01), Byte<3>(g10), Byte<3>(g11), fx, fy)));
      hn::StoreU(hn::IfThenElseZero(inside, v), di, reinterpret_cast<int32_t*>(out + 4 * x));
    } else {
      hn::Store(hn::IfThenElseZero(inside, hn::Add(rowStart, column)), di, offsets);
      KeepInMemory(offsets);
      FetchNeighbours<2>(f.bytes, f.stride, offsets, N, w0, w1);
      const VI g0 = hn::Load(di, w0), g1 = hn::Load(di, w1);
      const VI v = BlendLanes(Byte<0>(g0), Byte<1>(g0), Byte<0>(g1), Byte<1>(g1), fx, fy);
      hn::StoreU(hn::DemoteTo(d8, hn::IfThenElse(inside, v, outside)), d8, out + x);
    }
  }
  const uint8_t zero[4] = {0, 0, 0, 0};
  for (uint32_t x = static_cast<uint32_t>(dstWidth / N * N); x < dstWidth; ++x)
    BilinearPixel(f, srcWidth, srcHeight, mx[x], my[x], ch, ch == 4 ? zero : &outsideByte, out + x * ch);
}

}  // namespace remap

// Status 5 when the framed copy cannot be had, as the reference.
int32_t RemapPixels(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* mapX, const float* mapY,
                    uint32_t mapStride, uint32_t bilinear, uint32_t ch, uint8_t outsideByte) {
  using namespace remap;
  if (!bilinear) {
    for (uint32_t y = 0; y < dstHeight; ++y)
      NearestRow(src, srcWidth, srcHeight, srcStride, MapRow(mapX, mapStride, y), MapRow(mapY, mapStride, y), dstWidth,
                 ch, outsideByte, dst + static_cast<size_t>(y) * dstStride);
    return 0;
  }
  const size_t fstride = (size_t{srcWidth} + 2) * ch;
  const size_t frameBytes = fstride * (size_t{srcHeight} + 2);
  uint8_t* frame = static_cast<uint8_t*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(frameBytes), 16));
  if (!frame) return 5;
  std::memset(frame, ch == 4 ? 0 : outsideByte, frameBytes);
  for (uint32_t y = 0; y < srcHeight; ++y)
    std::memcpy(frame + (y + 1) * fstride + ch, src + static_cast<size_t>(y) * srcStride, size_t{srcWidth} * ch);
  const Frame f{frame, fstride};
  for (uint32_t y = 0; y < dstHeight; ++y)
    BilinearRow(f, srcWidth, srcHeight, MapRow(mapX, mapStride, y), MapRow(mapY, mapStride, y), dstWidth, ch,
                outsideByte, dst + static_cast<size_t>(y) * dstStride);
  tvxReleaseScratchBuffer_(frame);
  return 0;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(RemapPixels);

// The vector kernels index with 32-bit lanes and compare positions in float: sources up to
// 2^22 pixels a side whose bytes (and framed copy) stay below 2^31. Other sources take the
// reference kernels.
bool RemapFitsLanes(uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t ch) {
  const uint64_t span = uint64_t{srcStride} * (srcHeight - 1) + uint64_t{srcWidth} * ch;
  const uint64_t frame = (uint64_t{srcWidth} + 2) * ch * (uint64_t{srcHeight} + 2);
  return srcWidth < (1u << 22) && srcHeight < (1u << 22) && span < (1u << 31) && frame < (1u << 31);
}
}  // namespace tvx

using namespace tvx;

int32_t tvxRemapu8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* mapX, const float* mapY,
                       uint32_t mapStride, uint32_t interpolation, uint32_t borderType, uint32_t borderValue) {
  if (interpolation > 1 || !RemapFitsLanes(srcWidth, srcHeight, srcStride, 1))
    return tvxRemapu8_v2C(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, mapX, mapY, mapStride,
                          interpolation, borderType, borderValue);
  const uint8_t outside = borderType == tvxremap::kBorderConstant ? static_cast<uint8_t>(borderValue) : 0;
  return HWY_DYNAMIC_DISPATCH(RemapPixels)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride,
                                                mapX, mapY, mapStride, interpolation, 1, outside);
}

int32_t tvxRemapu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* mapX, const float* mapY,
                    uint32_t mapStride, uint32_t interpolation) {
  return tvxRemapu8_v2V(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, mapX, mapY, mapStride,
                        interpolation, 0, 0);
}

int32_t tvxRemapRGBA8888NNu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                              uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* mapX,
                              const float* mapY, uint32_t mapStride) {
  if (!RemapFitsLanes(srcWidth, srcHeight, srcStride, 4))
    return tvxRemapRGBA8888NNu8C(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, mapX, mapY,
                                 mapStride);
  return HWY_DYNAMIC_DISPATCH(RemapPixels)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride,
                                                mapX, mapY, mapStride, 0, 4, 0);
}

int32_t tvxRemapRGBA8888BLu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                              uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* mapX,
                              const float* mapY, uint32_t mapStride) {
  if (!RemapFitsLanes(srcWidth, srcHeight, srcStride, 4))
    return tvxRemapRGBA8888BLu8C(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, mapX, mapY,
                                 mapStride);
  return HWY_DYNAMIC_DISPATCH(RemapPixels)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride,
                                                mapX, mapY, mapStride, 1, 4, 0);
}
#endif  // HWY_ONCE
