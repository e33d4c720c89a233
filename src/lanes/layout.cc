// SIMD variants of the layout family: transpose, flip and rotation.
//
// Transposes and quarter turns work on square tiles of one 16-byte block per row (16x16
// bytes, 8x8 words, 4x4 words of 32 bits): log2(tile) rounds of InterleaveLower/Upper over
// the rows [i, i + tile/2] transpose a tile. Wider vectors hold several tiles side by side,
// one per 128-bit block, and each block is stored to its own destination row. Flips reverse
// whole vectors and store them at the mirrored place. Edges that do not fill a tile or a
// vector fall back to narrower vectors and finally to a scalar loop, so nothing outside the
// rectangle is written.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/layout.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>
#include <utility>

#include "frame/frame.h"

#ifndef TVX_LANES_LAYOUT_ONCE
#define TVX_LANES_LAYOUT_ONCE
namespace tvx {
constexpr const char* kFlipu8InPlaceError = "Error: tvxFlipu8 - Try to do in place but srcStride != dstStride";
constexpr const char* kFlipu16InPlaceError = "Error: tvxFlipu16 - Try to do in place but srcStride != dstStride";
inline void LogLayoutError(const char* text) { tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "%s\n", text); }
}  // namespace tvx
#endif

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// True when vectors of D span more than one 16-byte block.
template <class D>
constexpr bool kWide = hn::MaxLanes(D()) * sizeof(hn::TFromD<D>) > 16;

// Reverses the lanes of every 16-byte block (byte or 16-bit lanes).
template <class D>
HWY_INLINE hn::Vec<D> ReverseInBlocks(D d, hn::Vec<D> v) {
  static_assert(sizeof(hn::TFromD<D>) <= 2, "byte or 16-bit lanes");
  alignas(16) static constexpr uint8_t kBytes[16] = {15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0};
  alignas(16) static constexpr uint8_t kWords[16] = {14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1};
  const hn::Repartition<uint8_t, D> d8;
  const auto index = hn::LoadDup128(d8, sizeof(hn::TFromD<D>) == 1 ? kBytes : kWords);
  return hn::BitCast(d, hn::TableLookupBytes(hn::BitCast(d8, v), index));
}

// Reverses all byte lanes of a vector: bytes inside each 32-bit lane, then the 32-bit lanes.
template <class D>
HWY_INLINE hn::Vec<D> ReverseBytes(D d, hn::Vec<D> v) {
  if constexpr (!kWide<D>) {
    return ReverseInBlocks(d, v);
  } else {
    alignas(16) static constexpr uint8_t kIn32[16] = {3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12};
    const hn::Repartition<uint32_t, D> d32;
    const auto swapped = hn::TableLookupBytes(v, hn::LoadDup128(d, kIn32));
    return hn::BitCast(d, hn::Reverse(d32, hn::BitCast(d32, swapped)));
  }
}

// ---- flip ----------------------------------------------------------------------------------
// A mover reads a group of Pixels() pixels and stores it reversed. Narrow is the same mover
// on single 16-byte vectors, used for what is left when a full vector does not fit.

template <class D>
struct ByteMover {
  static constexpr size_t kBytes = 1;
  using Narrow = ByteMover<hn::Full128<uint8_t>>;
  using Pack = hn::Vec<D>;
  D d;
  size_t Pixels() const { return hn::Lanes(d); }
  Pack Load(const uint8_t* p) const { return hn::LoadU(d, p); }
  void StoreReversed(Pack v, uint8_t* p) const { hn::StoreU(ReverseBytes(d, v), d, p); }
};

template <class D>
struct WordMover {
  static constexpr size_t kBytes = 2;
  using Narrow = WordMover<hn::Full128<uint16_t>>;
  using Pack = hn::Vec<D>;
  D d;
  size_t Pixels() const { return hn::Lanes(d); }
  Pack Load(const uint8_t* p) const { return hn::LoadU(d, reinterpret_cast<const uint16_t*>(p)); }
  void StoreReversed(Pack v, uint8_t* p) const { hn::StoreU(hn::Reverse(d, v), d, reinterpret_cast<uint16_t*>(p)); }
};

template <class D>
struct RgbMover {
  static constexpr size_t kBytes = 3;
  using Narrow = RgbMover<hn::Full128<uint8_t>>;
  struct Pack { hn::Vec<D> r, g, b; };
  D d;
  size_t Pixels() const { return hn::Lanes(d); }
  Pack Load(const uint8_t* p) const {
    Pack v;
    hn::LoadInterleaved3(d, p, v.r, v.g, v.b);
    return v;
  }
  void StoreReversed(const Pack& v, uint8_t* p) const {
    hn::StoreInterleaved3(ReverseBytes(d, v.r), ReverseBytes(d, v.g), ReverseBytes(d, v.b), d, p);
  }
};

template <class M>
constexpr bool kHasNarrow = kWide<decltype(M::d)>;

// dst pixels [0, n) = src pixels [n-1 .. 0]; src and dst are distinct rows. The last group
// overlaps the previous one and rewrites the same values.
template <class M>
void ReverseCopy(const M& m, const uint8_t* src, uint8_t* dst, size_t n) {
  constexpr size_t B = M::kBytes;
  const size_t N = m.Pixels();
  if (n < N) {
    if constexpr (kHasNarrow<M>) {
      ReverseCopy(typename M::Narrow(), src, dst, n);
    } else {
      for (size_t x = 0; x < n; ++x) std::memcpy(dst + (n - 1 - x) * B, src + x * B, B);
    }
    return;
  }
  size_t x = 0;
  for (; x + N <= n; x += N) m.StoreReversed(m.Load(src + x * B), dst + (n - N - x) * B);
  if (x < n) m.StoreReversed(m.Load(src + (n - N) * B), dst);
}

// Reverses pixels [0, n) of one row in place by swapping groups from both ends.
template <class M>
void ReverseInPlace(const M& m, uint8_t* row, size_t n) {
  constexpr size_t B = M::kBytes;
  const size_t N = m.Pixels();
  size_t lo = 0, hi = n;
  for (; hi - lo >= 2 * N; lo += N, hi -= N) {
    const auto left = m.Load(row + lo * B);
    const auto right = m.Load(row + (hi - N) * B);
    m.StoreReversed(right, row + lo * B);
    m.StoreReversed(left, row + (hi - N) * B);
  }
  if constexpr (kHasNarrow<M>) {
    ReverseInPlace(typename M::Narrow(), row + lo * B, hi - lo);
  } else {
    uint8_t tmp[B];
    for (; hi - lo >= 2; ++lo, --hi) {
      std::memcpy(tmp, row + lo * B, B);
      std::memmove(row + lo * B, row + (hi - 1) * B, B);
      std::memcpy(row + (hi - 1) * B, tmp, B);
    }
  }
}

// Exchanges two distinct rows while mirroring them: a[x] <-> b[n-1-x].
template <class M>
void SwapReversed(const M& m, uint8_t* a, uint8_t* b, size_t n) {
  constexpr size_t B = M::kBytes;
  const size_t N = m.Pixels();
  size_t x = 0;
  for (; x + N <= n; x += N) {
    const auto va = m.Load(a + x * B);
    const auto vb = m.Load(b + (n - N - x) * B);
    m.StoreReversed(vb, a + x * B);
    m.StoreReversed(va, b + (n - N - x) * B);
  }
  if constexpr (kHasNarrow<M>) {
    SwapReversed(typename M::Narrow(), a + x * B, b, n - x);
  } else {
    uint8_t tmp[B];
    for (; x < n; ++x) {
      std::memcpy(tmp, a + x * B, B);
      std::memcpy(a + x * B, b + (n - 1 - x) * B, B);
      std::memcpy(b + (n - 1 - x) * B, tmp, B);
    }
  }
}

// Exchanges the first `bytes` bytes of two distinct rows.
void SwapBytes(uint8_t* a, uint8_t* b, size_t bytes) {
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  size_t i = 0;
  for (; i + N <= bytes; i += N) {
    const auto va = hn::LoadU(d, a + i);
    hn::StoreU(hn::LoadU(d, b + i), d, a + i);
    hn::StoreU(va, d, b + i);
  }
  for (; i < bytes; ++i) std::swap(a[i], b[i]);
}

// Mirrors an image: dir 1 left-right, 2 top-bottom, 3 both. src == dst flips in place (the
// caller has checked that the strides agree).
template <class M>
void FlipImage(const M& m, const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, uint32_t width,
               uint32_t height, int32_t dir) {
  if (dir < 1 || dir > 3) return;
  constexpr size_t B = M::kBytes;
  const size_t rowBytes = width * B;
  if (src != dst) {
    for (uint32_t y = 0; y < height; ++y) {
      const uint8_t* in = src + y * srcStride;
      uint8_t* out = dst + static_cast<size_t>(dir & 2 ? height - 1 - y : y) * dstStride;
      if (dir & 1) ReverseCopy(m, in, out, width);
      else std::memcpy(out, in, rowBytes);
    }
    return;
  }
  const auto row = [&](uint32_t y) { return dst + static_cast<size_t>(y) * dstStride; };
  if (dir == 1) {
    for (uint32_t y = 0; y < height; ++y) ReverseInPlace(m, row(y), width);
  } else if (dir == 2) {
    for (uint32_t y = 0; y < height / 2; ++y) SwapBytes(row(y), row(height - 1 - y), rowBytes);
  } else {
    for (uint32_t y = 0; y < height / 2; ++y) SwapReversed(m, row(y), row(height - 1 - y), width);
    if (height % 2) ReverseInPlace(m, row(height / 2), width);
  }
}

void Flipu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
            uint32_t dstStride, int32_t dir) {
  if (src == dst && srcStride != dstStride) return LogLayoutError(kFlipu8InPlaceError);
  FlipImage(ByteMover<hn::ScalableTag<uint8_t>>(), src, srcStride, dst, dstStride, srcWidth, srcHeight, dir);
}

void Flipu16(const uint16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint16_t* dst,
             uint32_t dstStride, int32_t dir) {
  if (src == dst && srcStride != dstStride) return LogLayoutError(kFlipu16InPlaceError);
  FlipImage(WordMover<hn::ScalableTag<uint16_t>>(), reinterpret_cast<const uint8_t*>(src), srcStride / 2 * 2,
            reinterpret_cast<uint8_t*>(dst), dstStride / 2 * 2, srcWidth, srcHeight, dir);
}

int32_t FlipRGB888u8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                     uint32_t dstStride, int32_t dir) {
  if (dir < 1 || dir > 3) return TVX_BAD_PARAMETER;
  if (src == dst && srcStride != dstStride) {
    LogLayoutError(kFlipu8InPlaceError);
    return TVX_BAD_PARAMETER;
  }
  FlipImage(RgbMover<hn::ScalableTag<uint8_t>>(), src, srcStride, dst, dstStride, srcWidth, srcHeight, dir);
  return TVX_SUCCESS;
}

// ---- transpose and quarter turns -----------------------------------------------------------

enum class Turn { kTranspose, kRot90, kRot270 };

// Where source pixel (x, y) of a width x height image of `size`-byte pixels lands.
template <Turn kTurn>
struct TurnMap {
  uint8_t* dst;
  size_t dstStride, size;
  uint32_t width, height;
  uint8_t* At(size_t x, size_t y) const {
    if constexpr (kTurn == Turn::kTranspose) return dst + x * dstStride + y * size;
    else if constexpr (kTurn == Turn::kRot90) return dst + x * dstStride + (height - 1 - y) * size;
    else return dst + (width - 1 - x) * dstStride + y * size;
  }
};

// Transposes the square tile held in each 16-byte block of rows r[0..k).
template <class D, size_t k>
HWY_INLINE void TransposeBlocks(D d, hn::Vec<D> (&r)[k]) {
  for (size_t round = 1; round < k; round *= 2) {
    hn::Vec<D> t[k];
    for (size_t i = 0; i < k / 2; ++i) {
      t[2 * i] = hn::InterleaveLower(d, r[i], r[i + k / 2]);
      t[2 * i + 1] = hn::InterleaveUpper(d, r[i], r[i + k / 2]);
    }
    for (size_t i = 0; i < k; ++i) r[i] = t[i];
  }
}

// Stores block b of v (b counted from firstBlock) at addr(b).
template <class D, class Addr>
HWY_INLINE void StoreBlocks(D d, hn::Vec<D> v, size_t firstBlock, const Addr& addr) {
  if constexpr (!kWide<D>) {
    const hn::Repartition<uint8_t, D> d8;
    hn::StoreU(hn::BitCast(d8, v), d8, addr(firstBlock));
  } else {
    const hn::Half<D> dh;
    constexpr size_t kHalfBlocks = hn::MaxLanes(D()) * sizeof(hn::TFromD<D>) / 32;
    StoreBlocks(dh, hn::LowerHalf(dh, v), firstBlock, addr);
    StoreBlocks(dh, hn::UpperHalf(dh, v), firstBlock + kHalfBlocks, addr);
  }
}

// Source rows y0..y0+k-1, columns x0..x0+Lanes(d)-1: one tile per block.
template <Turn kTurn, class D>
HWY_INLINE void TurnTiles(D d, const uint8_t* src, size_t srcStride, const TurnMap<kTurn>& map, uint32_t x0,
                          uint32_t y0) {
  using T = hn::TFromD<D>;
  constexpr size_t k = 16 / sizeof(T);
  const hn::Repartition<uint8_t, D> d8;
  hn::Vec<D> r[k];
  for (size_t i = 0; i < k; ++i) r[i] = hn::BitCast(d, hn::LoadU(d8, src + (y0 + i) * srcStride + x0 * sizeof(T)));
  TransposeBlocks(d, r);
  // Row i of block b now holds source column x0 + b*k + i over rows y0..y0+k-1.
  for (size_t i = 0; i < k; ++i) {
    hn::Vec<D> v = r[i];
    // A clockwise quarter turn reads each column bottom-up: the tile's last row lands first.
    const size_t y = kTurn == Turn::kRot90 ? y0 + k - 1 : y0;
    if constexpr (kTurn == Turn::kRot90) v = ReverseInBlocks(d, v);
    StoreBlocks(d, v, 0, [&](size_t b) { return map.At(x0 + b * k + i, y); });
  }
}

template <Turn kTurn, typename T>
void TurnImage(const uint8_t* src, size_t srcStride, uint8_t* dst, size_t dstStride, uint32_t width,
               uint32_t height) {
  constexpr size_t k = 16 / sizeof(T);
  const hn::ScalableTag<T> d;
  const hn::Full128<T> d128;
  const size_t N = hn::Lanes(d);
  const TurnMap<kTurn> map{dst, dstStride, sizeof(T), width, height};
  const auto moveOne = [&](uint32_t x, uint32_t y) {
    std::memcpy(map.At(x, y), src + static_cast<size_t>(y) * srcStride + x * sizeof(T), sizeof(T));
  };
  uint32_t y0 = 0;
  for (; y0 + k <= height; y0 += k) {
    uint32_t x0 = 0;
    for (; x0 + N <= width; x0 += N) TurnTiles(d, src, srcStride, map, x0, y0);
    if constexpr (kWide<decltype(d)>) {
      for (; x0 + k <= width; x0 += k) TurnTiles(d128, src, srcStride, map, x0, y0);
    }
    for (uint32_t y = y0; y < y0 + k; ++y)
      for (uint32_t x = x0; x < width; ++x) moveOne(x, y);
  }
  for (uint32_t y = y0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) moveOne(x, y);
}

void Transposeu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                 uint32_t dstStride) {
  TurnImage<Turn::kTranspose, uint8_t>(src, srcStride, dst, dstStride, srcWidth, srcHeight);
}
void Transposeu16(const uint16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint16_t* dst,
                  uint32_t dstStride) {
  TurnImage<Turn::kTranspose, uint16_t>(reinterpret_cast<const uint8_t*>(src), srcStride / 2 * 2,
                                        reinterpret_cast<uint8_t*>(dst), dstStride / 2 * 2, srcWidth, srcHeight);
}
void Transposef32(const float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, float32_t* dst,
                  uint32_t dstStride) {
  TurnImage<Turn::kTranspose, uint32_t>(reinterpret_cast<const uint8_t*>(src), srcStride / 4 * 4,
                                        reinterpret_cast<uint8_t*>(dst), dstStride / 4 * 4, srcWidth, srcHeight);
}

// 3-byte pixels: 16x16 pixel tiles split into three byte planes, each transposed as above.
int32_t TransposeRGB888u8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          uint8_t* dst, uint32_t dstStride) {
  if (!(src && dst && srcWidth && srcHeight) || srcStride < srcWidth * 3ull || dstStride < srcHeight * 3ull)
    return TVX_BAD_PARAMETER;
  constexpr uint32_t k = 16;
  const hn::Full128<uint8_t> d;
  const TurnMap<Turn::kTranspose> map{dst, dstStride, 3, srcWidth, srcHeight};
  const auto moveOne = [&](uint32_t x, uint32_t y) {
    std::memcpy(map.At(x, y), src + static_cast<size_t>(y) * srcStride + x * 3, 3);
  };
  uint32_t y0 = 0;
  for (; y0 + k <= srcHeight; y0 += k) {
    uint32_t x0 = 0;
    for (; x0 + k <= srcWidth; x0 += k) {
      hn::Vec<decltype(d)> r[k], g[k], b[k];
      for (uint32_t i = 0; i < k; ++i)
        hn::LoadInterleaved3(d, src + (y0 + i) * static_cast<size_t>(srcStride) + x0 * 3, r[i], g[i], b[i]);
      TransposeBlocks(d, r);
      TransposeBlocks(d, g);
      TransposeBlocks(d, b);
      for (uint32_t i = 0; i < k; ++i) hn::StoreInterleaved3(r[i], g[i], b[i], d, map.At(x0 + i, y0));
    }
    for (uint32_t y = y0; y < y0 + k; ++y)
      for (uint32_t x = x0; x < srcWidth; ++x) moveOne(x, y);
  }
  for (uint32_t y = y0; y < srcHeight; ++y)
    for (uint32_t x = 0; x < srcWidth; ++x) moveOne(x, y);
  return TVX_SUCCESS;
}

int32_t RotateImageu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstStride, int32_t degree) {
  if (degree == 2) {
    tvxFlipu8(src, srcWidth, srcHeight, srcStride, dst, dstStride, 3);
  } else if (degree == 1) {
    TurnImage<Turn::kRot90, uint8_t>(src, srcStride, dst, dstStride, srcWidth, srcHeight);
  } else if (degree == 3) {
    TurnImage<Turn::kRot270, uint8_t>(src, srcStride, dst, dstStride, srcWidth, srcHeight);
  } else {
    return TVX_BAD_PARAMETER;
  }
  return TVX_SUCCESS;
}

// Byte pairs move as 16-bit words; strides stay in bytes, so rows may start at odd offsets.
int32_t RotateImageInterleavedu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride, int32_t degree) {
  if (degree == 2) {
    tvxFlipu16(reinterpret_cast<const uint16_t*>(src), srcWidth, srcHeight, srcStride,
               reinterpret_cast<uint16_t*>(dst), dstStride, 3);
  } else if (degree == 1) {
    TurnImage<Turn::kRot90, uint16_t>(src, srcStride, dst, dstStride, srcWidth, srcHeight);
  } else if (degree == 3) {
    TurnImage<Turn::kRot270, uint16_t>(src, srcStride, dst, dstStride, srcWidth, srcHeight);
  } else {
    return TVX_BAD_PARAMETER;
  }
  return TVX_SUCCESS;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(Transposeu8);
HWY_EXPORT(Transposeu16);
HWY_EXPORT(Transposef32);
HWY_EXPORT(TransposeRGB888u8);
HWY_EXPORT(Flipu8);
HWY_EXPORT(Flipu16);
HWY_EXPORT(FlipRGB888u8);
HWY_EXPORT(RotateImageu8);
HWY_EXPORT(RotateImageInterleavedu8);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

void tvxTransposeu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                     uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Transposeu8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxTransposeu16V(const uint16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint16_t* dst,
                      uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Transposeu16)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxTransposef32V(const float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                      float32_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Transposef32)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
int32_t tvxTransposeRGB888u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(TransposeRGB888u8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxFlipu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                uint32_t dstStride, int32_t dir) {
  HWY_DYNAMIC_DISPATCH(Flipu8)(src, srcWidth, srcHeight, srcStride, dst, dstStride, dir);
}
void tvxFlipu16V(const uint16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint16_t* dst,
                 uint32_t dstStride, int32_t dir) {
  HWY_DYNAMIC_DISPATCH(Flipu16)(src, srcWidth, srcHeight, srcStride, dst, dstStride, dir);
}
int32_t tvxFlipRGB888u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                         uint8_t* dst, uint32_t dstStride, int32_t dir) {
  return HWY_DYNAMIC_DISPATCH(FlipRGB888u8)(src, srcWidth, srcHeight, srcStride, dst, dstStride, dir);
}
int32_t tvxRotateImageu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          uint8_t* dst, uint32_t dstStride, int32_t degree) {
  return HWY_DYNAMIC_DISPATCH(RotateImageu8)(src, srcWidth, srcHeight, srcStride, dst, dstStride, degree);
}
int32_t tvxRotateImageInterleavedu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                     uint32_t srcStride, uint8_t* dst, uint32_t dstStride, int32_t degree) {
  return HWY_DYNAMIC_DISPATCH(RotateImageInterleavedu8)(src, srcWidth, srcHeight, srcStride, dst, dstStride,
                                                             degree);
}
#endif  // HWY_ONCE
