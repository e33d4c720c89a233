// SIMD variants of the vector kernels. Byte dot products widen to 16 bits and multiply-add
// pairs into 32-bit lanes; Hamming distances XOR, count bits per byte and sum per 8 bytes; sums
// of absolute differences take |a - b| as the OR of the two saturated differences. Integer
// results equal the reference bit for bit (sums modulo 2^32 do not depend on order). The float
// normalisations run on the integer dot product exactly as the reference does.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/vector.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>

#include "cpu/vector_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace vector_k {

// Sum of a[i] * b[i] modulo 2^32 for signed or unsigned bytes.
template <typename T>
HWY_INLINE uint32_t DotBytes(const T* HWY_RESTRICT a, const T* HWY_RESTRICT b, size_t len) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<T, decltype(d16)> d8;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const hn::Repartition<uint32_t, decltype(d16)> du32;
  const size_t N = hn::Lanes(d16);
  auto s0 = hn::Zero(d32), s1 = hn::Zero(d32), s2 = hn::Zero(d32), s3 = hn::Zero(d32);
  size_t i = 0;
  for (; i + 2 * N <= len; i += 2 * N) {
    s0 = hn::ReorderWidenMulAccumulate(d32, hn::PromoteTo(d16, hn::LoadU(d8, a + i)),
                                       hn::PromoteTo(d16, hn::LoadU(d8, b + i)), s0, s1);
    s2 = hn::ReorderWidenMulAccumulate(d32, hn::PromoteTo(d16, hn::LoadU(d8, a + i + N)),
                                       hn::PromoteTo(d16, hn::LoadU(d8, b + i + N)), s2, s3);
  }
  if (i + N <= len) {
    s0 = hn::ReorderWidenMulAccumulate(d32, hn::PromoteTo(d16, hn::LoadU(d8, a + i)),
                                       hn::PromoteTo(d16, hn::LoadU(d8, b + i)), s0, s1);
    i += N;
  }
  const auto total = hn::Add(hn::Add(hn::BitCast(du32, s0), hn::BitCast(du32, s1)),
                             hn::Add(hn::BitCast(du32, s2), hn::BitCast(du32, s3)));
  uint32_t sum = hn::GetLane(hn::SumOfLanes(du32, total));
  for (; i < len; ++i) sum += static_cast<uint32_t>(int32_t(a[i]) * int32_t(b[i]));
  return sum;
}

template <typename T>
HWY_INLINE float DotAsFloat(uint32_t dot) {
  if constexpr (hwy::IsSigned<T>()) return static_cast<float>(static_cast<int32_t>(dot));
  else return static_cast<float>(dot);
}

// Sum of the 64-bit lanes of v.
template <class D>
HWY_INLINE uint64_t SumU64(D d, hn::Vec<D> v) {
  alignas(64) uint64_t lanes[hn::MaxLanes(D())];
  hn::Store(v, d, lanes);
  uint64_t sum = 0;
  for (size_t k = 0; k < hn::Lanes(d); ++k) sum += lanes[k];
  return sum;
}

// Differing bits of two byte vectors: whole vectors of D, then the shared table for the tail.
template <class D>
HWY_INLINE uint32_t HammingBytes(D d, const uint8_t* HWY_RESTRICT a, const uint8_t* HWY_RESTRICT b, size_t len) {
  const size_t N = hn::Lanes(d);
  const hn::Repartition<uint64_t, D> d64;
  auto acc = hn::Zero(d64);
  size_t i = 0;
  for (; i + N <= len; i += N)
    acc = hn::Add(acc, hn::SumsOf8(hn::PopulationCount(hn::Xor(hn::LoadU(d, a + i), hn::LoadU(d, b + i)))));
  uint64_t sum = SumU64(d64, acc);
  for (; i < len; ++i) sum += static_cast<uint64_t>(tvxPopCountTable[a[i] ^ b[i]]);
  return static_cast<uint32_t>(sum);
}

template <class D>
HWY_INLINE hn::Vec<D> AbsDiffU8(D, hn::Vec<D> a, hn::Vec<D> b) {
  return hn::Or(hn::SaturatedSub(a, b), hn::SaturatedSub(b, a));
}

// SAD of one kSize x kSize block, one row per vector of kSize bytes.
template <size_t kSize>
HWY_INLINE uint32_t BlockSad(const uint8_t* patch, size_t patchStride, const uint8_t* src, size_t srcStride) {
  const hn::FixedTag<uint8_t, kSize> d;
  const hn::Repartition<uint64_t, decltype(d)> d64;
  auto acc = hn::Zero(d64);
  for (size_t r = 0; r < kSize; ++r)
    acc = hn::Add(acc, hn::SumsOf8(AbsDiffU8(d, hn::LoadU(d, patch + r * patchStride), hn::LoadU(d, src + r * srcStride))));
  return static_cast<uint32_t>(SumU64(d64, acc));
}

// SAD map: lanes hold consecutive window positions; every patch byte is broadcast against the
// source shifted by its column, absolute differences widen to 16 bits (at most 65280 fits).
template <uint32_t kSize>
void SadMap(const uint8_t* patch, uint32_t patchStride, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
            uint32_t srcStride, uint16_t* dst, uint32_t dstStride) {
  if (srcWidth < kSize || srcHeight < kSize) return;
  const hn::ScalableTag<uint8_t> d8;
  const hn::Half<decltype(d8)> dh;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const size_t N = hn::Lanes(d8);
  const size_t half = hn::Lanes(d16);
  const size_t dstStep = dstStride / 2;
  const size_t positions = srcWidth - kSize + 1;
  for (uint32_t y = 0; y + kSize <= srcHeight; ++y) {
    const uint8_t* top = src + size_t(y) * srcStride;
    uint16_t* out = dst + (y + kSize / 2) * dstStep + kSize / 2;
    size_t x = 0;
    for (; x + N <= positions; x += N) {
      auto lo = hn::Zero(d16), hi = hn::Zero(d16);
      for (uint32_t r = 0; r < kSize; ++r) {
        const uint8_t* row = top + size_t(r) * srcStride + x;
        const uint8_t* p = patch + size_t(r) * patchStride;
        for (uint32_t c = 0; c < kSize; ++c) {
          const auto ad = AbsDiffU8(d8, hn::LoadU(d8, row + c), hn::Set(d8, p[c]));
          lo = hn::Add(lo, hn::PromoteTo(d16, hn::LowerHalf(dh, ad)));
          hi = hn::Add(hi, hn::PromoteTo(d16, hn::UpperHalf(dh, ad)));
        }
      }
      hn::StoreU(lo, d16, out + x);
      hn::StoreU(hi, d16, out + x + half);
    }
    for (; x < positions; ++x) out[x] = static_cast<uint16_t>(BlockSad<kSize>(patch, patchStride, top + x, srcStride));
  }
}

template <uint32_t kW, uint32_t kH>
int32_t PatchDots(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                  const uint32_t* xy, uint32_t numPoints, uint32_t* dotProducts) {
  if (!tvxvec::WindowsInside<kW, kH>(xy, numPoints, srcWidth, srcHeight)) return TVX_BAD_PARAMETER;
  // Eight columns per row in vectors; an 11-wide patch adds its last three columns in scalars.
  const hn::FixedTag<int16_t, 8> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const hn::Repartition<uint32_t, decltype(d16)> du32;
  for (uint32_t i = 0; i < numPoints; ++i) {
    const uint8_t* win = src + size_t(xy[2 * i + 1]) * srcStride + xy[2 * i];
    auto s0 = hn::Zero(d32), s1 = hn::Zero(d32);
    uint32_t tail = 0;
    for (uint32_t r = 0; r < kH; ++r) {
      const uint8_t* p = patch + r * kW;
      const uint8_t* w = win + size_t(r) * srcStride;
      s0 = hn::ReorderWidenMulAccumulate(d32, hn::PromoteTo(d16, hn::LoadU(d8, p)), hn::PromoteTo(d16, hn::LoadU(d8, w)),
                                         s0, s1);
      for (uint32_t c = 8; c < kW; ++c) tail += uint32_t(p[c]) * w[c];
    }
    const auto total = hn::Add(hn::BitCast(du32, s0), hn::BitCast(du32, s1));
    dotProducts[i] = hn::GetLane(hn::SumOfLanes(du32, total)) + tail;
  }
  return TVX_SUCCESS;
}

}  // namespace vector_k

// ---- dispatched kernels ------------------------------------------------------------------------

uint32_t VkDotS8(const int8_t* a, const int8_t* b, uint32_t len) { return vector_k::DotBytes(a, b, len); }
uint32_t VkDotU8(const uint8_t* a, const uint8_t* b, uint32_t len) { return vector_k::DotBytes(a, b, len); }

void VkDotS8X4(const int8_t* a, const int8_t* const* b, uint32_t len, uint32_t* out) {
  for (int i = 0; i < 4; ++i) out[i] = vector_k::DotBytes(a, b[i], len);
}
void VkDotU8X4(const uint8_t* a, const uint8_t* const* b, uint32_t len, uint32_t* out) {
  for (int i = 0; i < 4; ++i) out[i] = vector_k::DotBytes(a, b[i], len);
}

int32_t VkSquaredDiffsS8(const int8_t* a, float invLengthA, uint32_t length, const int8_t* const* b,
                       const float* invLengthsB, uint32_t N, float* distances) {
  for (uint32_t i = 0; i < N; ++i)
    if (!b[i]) return TVX_BAD_PARAMETER;
  for (uint32_t i = 0; i < N; ++i)
    distances[i] = tvxvec::UnitDistance(invLengthA, invLengthsB[i],
                                          vector_k::DotAsFloat<int8_t>(vector_k::DotBytes(a, b[i], length)));
  return TVX_SUCCESS;
}
int32_t VkSquaredDiffsU8(const uint8_t* a, float invLengthA, uint32_t length, const uint8_t* const* b,
                       const float* invLengthsB, uint32_t N, float* distances) {
  for (uint32_t i = 0; i < N; ++i)
    if (!b[i]) return TVX_BAD_PARAMETER;
  for (uint32_t i = 0; i < N; ++i)
    distances[i] = tvxvec::UnitDistance(invLengthA, invLengthsB[i],
                                          vector_k::DotAsFloat<uint8_t>(vector_k::DotBytes(a, b[i], length)));
  return TVX_SUCCESS;
}

uint32_t VkHamming(const uint8_t* a, const uint8_t* b, uint32_t len) {
  return vector_k::HammingBytes(hn::ScalableTag<uint8_t>(), a, b, len);
}
uint32_t VkHamming32(const uint8_t* a, const uint8_t* b) {
  return vector_k::HammingBytes(hn::CappedTag<uint8_t, 32>(), a, b, 32);
}
uint32_t VkHamming64(const uint8_t* a, const uint8_t* b) {
  return vector_k::HammingBytes(hn::CappedTag<uint8_t, 64>(), a, b, 64);
}

uint32_t VkSad8x8(const uint8_t* patch, uint32_t patchStride, const uint8_t* src, uint32_t srcStride) {
  return vector_k::BlockSad<8>(patch, patchStride, src, srcStride);
}
uint32_t VkSad16x16(const uint8_t* patch, uint32_t patchStride, const uint8_t* src, uint32_t srcStride) {
  return vector_k::BlockSad<16>(patch, patchStride, src, srcStride);
}
void VkSadMap8(const uint8_t* patch, uint32_t patchStride, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
             uint32_t srcStride, uint16_t* dst, uint32_t dstStride) {
  vector_k::SadMap<8>(patch, patchStride, src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void VkSadMap16(const uint8_t* patch, uint32_t patchStride, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
              uint32_t srcStride, uint16_t* dst, uint32_t dstStride) {
  vector_k::SadMap<16>(patch, patchStride, src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

int32_t VkPatchDots8x8(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                     uint32_t srcStride, const uint32_t* xy, uint32_t numPoints, uint32_t* dotProducts) {
  return vector_k::PatchDots<8, 8>(patch, src, srcWidth, srcHeight, srcStride, xy, numPoints, dotProducts);
}
int32_t VkPatchDots11x12(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                       uint32_t srcStride, const uint32_t* xy, uint32_t numPoints, uint32_t* dotProducts) {
  return vector_k::PatchDots<11, 12>(patch, src, srcWidth, srcHeight, srcStride, xy, numPoints, dotProducts);
}

void VkBlockDotU8(const uint8_t* a, uint32_t numA, uint32_t aStride, const uint8_t* b, uint32_t numB, uint32_t bStride,
                uint32_t length, uint32_t* dst, uint32_t dstStride) {
  for (uint32_t i = 0; i < numA; ++i) {
    uint32_t* out = dst + size_t(i) * (dstStride / 4);
    for (uint32_t j = 0; j < numB; ++j)
      out[j] = vector_k::DotBytes(a + size_t(i) * aStride, b + size_t(j) * bStride, length);
  }
}

// Cross products of interleaved 3-vectors, the same products and differences as the reference
// in the same order (no fused multiply-add).
void VkCross(const float* a, const float* b, float* c, uint32_t N) {
  const hn::ScalableTag<float> d;
  const size_t L = hn::Lanes(d);
  size_t k = 0;
  for (; k + L <= N; k += L) {
    hn::Vec<decltype(d)> a0, a1, a2, b0, b1, b2;
    hn::LoadInterleaved3(d, a + 3 * k, a0, a1, a2);
    hn::LoadInterleaved3(d, b + 3 * k, b0, b1, b2);
    const auto c0 = hn::Sub(hn::Mul(a1, b2), hn::Mul(b1, a2));
    const auto c1 = hn::Sub(hn::Mul(a2, b0), hn::Mul(b2, a0));
    const auto c2 = hn::Sub(hn::Mul(a0, b1), hn::Mul(a1, b0));
    hn::StoreInterleaved3(c0, c1, c2, d, c + 3 * k);
  }
  for (; k < N; ++k) {
    const float a0 = a[3 * k], a1 = a[3 * k + 1], a2 = a[3 * k + 2];
    const float b0 = b[3 * k], b1 = b[3 * k + 1], b2 = b[3 * k + 2];
    c[3 * k] = a1 * b2 - b1 * a2;
    c[3 * k + 1] = a2 * b0 - b2 * a0;
    c[3 * k + 2] = a0 * b1 - a1 * b0;
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(VkDotS8);
HWY_EXPORT(VkDotU8);
HWY_EXPORT(VkDotS8X4);
HWY_EXPORT(VkDotU8X4);
HWY_EXPORT(VkSquaredDiffsS8);
HWY_EXPORT(VkSquaredDiffsU8);
HWY_EXPORT(VkHamming);
HWY_EXPORT(VkHamming32);
HWY_EXPORT(VkHamming64);
HWY_EXPORT(VkSad8x8);
HWY_EXPORT(VkSad16x16);
HWY_EXPORT(VkSadMap8);
HWY_EXPORT(VkSadMap16);
HWY_EXPORT(VkPatchDots8x8);
HWY_EXPORT(VkPatchDots11x12);
HWY_EXPORT(VkBlockDotU8);
HWY_EXPORT(VkCross);
}  // namespace tvx

using namespace tvx;

namespace {

void DotsX4S8(const int8_t* a, const int8_t* b0, const int8_t* b1, const int8_t* b2, const int8_t* b3, uint32_t len,
              uint32_t* out) {
  const int8_t* b[4] = {b0, b1, b2, b3};
  HWY_DYNAMIC_DISPATCH(VkDotS8X4)(a, b, len, out);
}
void DotsX4U8(const uint8_t* a, const uint8_t* b0, const uint8_t* b1, const uint8_t* b2, const uint8_t* b3,
              uint32_t len, uint32_t* out) {
  const uint8_t* b[4] = {b0, b1, b2, b3};
  HWY_DYNAMIC_DISPATCH(VkDotU8X4)(a, b, len, out);
}

inline float SignedDot(uint32_t dot) { return static_cast<float>(static_cast<int32_t>(dot)); }
inline float UnsignedDot(uint32_t dot) { return static_cast<float>(dot); }

inline float ClearSign(float d) {
  uint32_t bits;
  std::memcpy(&bits, &d, 4);
  bits &= 0x7FFFFFFFu;
  std::memcpy(&d, &bits, 4);
  return d;
}

}  // namespace

int32_t tvxDotProducts8V(const int8_t* a, const int8_t* b, uint32_t len) {
  return static_cast<int32_t>(HWY_DYNAMIC_DISPATCH(VkDotS8)(a, b, len));
}
uint32_t tvxDotProductu8V(const uint8_t* a, const uint8_t* b, uint32_t len) {
  return HWY_DYNAMIC_DISPATCH(VkDotU8)(a, b, len);
}

#define TVX_DOT_LEN(len)                                                                                        \
  int32_t tvxDotProduct##len##x1s8V(const int8_t* a, const int8_t* b) {                                         \
    return static_cast<int32_t>(HWY_DYNAMIC_DISPATCH(VkDotS8)(a, b, len));                                        \
  }                                                                                                             \
  uint32_t tvxDotProduct##len##x1u8V(const uint8_t* a, const uint8_t* b) {                                      \
    return HWY_DYNAMIC_DISPATCH(VkDotU8)(a, b, len);                                                              \
  }                                                                                                             \
  int32_t tvxDotProduct##len##x4s8V(const int8_t* a, const int8_t* b0, const int8_t* b1, const int8_t* b2,      \
                                    const int8_t* b3, int32_t* dotProducts) {                                   \
    uint32_t d[4];                                                                                              \
    DotsX4S8(a, b0, b1, b2, b3, len, d);                                                               \
    for (int i = 0; i < 4; ++i) dotProducts[i] = static_cast<int32_t>(d[i]);                                    \
    return TVX_SUCCESS;                                                                                         \
  }                                                                                                             \
  int32_t tvxDotProduct##len##x4u8V(const uint8_t* a, const uint8_t* b0, const uint8_t* b1, const uint8_t* b2,  \
                                    const uint8_t* b3, uint32_t* dotProducts) {                                 \
    DotsX4U8(a, b0, b1, b2, b3, len, dotProducts);                                                              \
    return TVX_SUCCESS;                                                                                         \
  }                                                                                                             \
  int32_t tvxDotProductNorm##len##x4s8V(const int8_t* a, float invLengthA, const int8_t* b0, const int8_t* b1,  \
                                        const int8_t* b2, const int8_t* b3, const float* invLengthsB,          \
                                        float* dotProducts) {                                                   \
    uint32_t d[4];                                                                                              \
    DotsX4S8(a, b0, b1, b2, b3, len, d);                                                               \
    for (int i = 0; i < 4; ++i) dotProducts[i] = (SignedDot(d[i]) * invLengthA) * invLengthsB[i];              \
    return TVX_SUCCESS;                                                                                         \
  }                                                                                                             \
  int32_t tvxDotProductNorm##len##x4u8V(const uint8_t* a, float invLengthA, const uint8_t* b0,                 \
                                        const uint8_t* b1, const uint8_t* b2, const uint8_t* b3,               \
                                        const float* invLengthsB, float* dotProducts) {                        \
    uint32_t d[4];                                                                                              \
    DotsX4U8(a, b0, b1, b2, b3, len, d);                                                                        \
    for (int i = 0; i < 4; ++i) dotProducts[i] = (UnsignedDot(d[i]) * invLengthA) * invLengthsB[i];            \
    return TVX_SUCCESS;                                                                                         \
  }
TVX_DOT_LEN(36)
TVX_DOT_LEN(64)
TVX_DOT_LEN(128)
#undef TVX_DOT_LEN

int32_t tvxSumOfSquaredDiffs36x4s8V(const int8_t* a, float invLengthA, const int8_t* b0, const int8_t* b1,
                                    const int8_t* b2, const int8_t* b3, const float* invLengthsB, float* distances) {
  uint32_t d[4];
  DotsX4S8(a, b0, b1, b2, b3, 36, d);
  for (int i = 0; i < 4; ++i)
    distances[i] = ClearSign(2.0f - (2.0f * invLengthA) * invLengthsB[i] * SignedDot(d[i]));
  return TVX_SUCCESS;
}
int32_t tvxSumOfSquaredDiffss8V(const int8_t* a, float invLengthA, uint32_t length, const int8_t* const* b,
                                const float* invLengthsB, uint32_t N, float* distances) {
  return HWY_DYNAMIC_DISPATCH(VkSquaredDiffsS8)(a, invLengthA, length, b, invLengthsB, N, distances);
}
int32_t tvxSumOfSquaredDiffsu8V(const uint8_t* a, float invLengthA, uint32_t length, const uint8_t* const* b,
                                const float* invLengthsB, uint32_t N, float* distances) {
  return HWY_DYNAMIC_DISPATCH(VkSquaredDiffsU8)(a, invLengthA, length, b, invLengthsB, N, distances);
}

uint32_t tvxHammingDistanceu8V(const uint8_t* a, const uint8_t* b, uint32_t len) {
  return HWY_DYNAMIC_DISPATCH(VkHamming)(a, b, len);
}
uint32_t tvxHammingDistance32x1u8V(const uint8_t* a, const uint8_t* b) { return HWY_DYNAMIC_DISPATCH(VkHamming32)(a, b); }
uint32_t tvxHammingDistance32x1u8a4V(const uint8_t* a, const uint8_t* b) {
  return HWY_DYNAMIC_DISPATCH(VkHamming32)(a, b);
}
uint32_t tvxHammingDistance64x1u8V(const uint8_t* a, const uint8_t* b) { return HWY_DYNAMIC_DISPATCH(VkHamming64)(a, b); }
uint32_t tvxHammingDistance64x1u8a4V(const uint8_t* a, const uint8_t* b) {
  return HWY_DYNAMIC_DISPATCH(VkHamming64)(a, b);
}
int32_t tvxHammingDistance32x4u8a4V(const uint8_t* a, const uint8_t* b0, const uint8_t* b1, const uint8_t* b2,
                                    const uint8_t* b3, uint32_t* distances) {
  const uint8_t* b[4] = {b0, b1, b2, b3};
  for (int i = 0; i < 4; ++i) distances[i] = HWY_DYNAMIC_DISPATCH(VkHamming32)(a, b[i]);
  return TVX_SUCCESS;
}
int32_t tvxHammingDistance64x4u8a4V(const uint8_t* a, const uint8_t* b0, const uint8_t* b1, const uint8_t* b2,
                                    const uint8_t* b3, uint32_t* distances) {
  const uint8_t* b[4] = {b0, b1, b2, b3};
  for (int i = 0; i < 4; ++i) distances[i] = HWY_DYNAMIC_DISPATCH(VkHamming64)(a, b[i]);
  return TVX_SUCCESS;
}
int32_t tvxHammingDistance64x4u8V(const uint8_t* a, const uint8_t* b0, const uint8_t* b1, const uint8_t* b2,
                                  const uint8_t* b3, uint32_t* distances) {
  return tvxHammingDistance64x4u8a4V(a, b0, b1, b2, b3, distances);
}

uint16_t tvxSumOfAbsoluteDiff8x8u8V(const uint8_t* patch, uint32_t patchStride, const uint8_t* src,
                                    uint32_t srcStride) {
  return static_cast<uint16_t>(HWY_DYNAMIC_DISPATCH(VkSad8x8)(patch, patchStride, src, srcStride) & 0xFFFFu);
}
uint16_t tvxSumOfAbsoluteDiff16x16u8V(const uint8_t* patch, uint32_t patchStride, const uint8_t* src,
                                      uint32_t srcStride) {
  return static_cast<uint16_t>(HWY_DYNAMIC_DISPATCH(VkSad16x16)(patch, patchStride, src, srcStride));
}
int32_t tvxSumOfAbsoluteDiffs8x8u8_v2V(const uint8_t* patch, uint32_t patchStride, const uint8_t* src,
                                       uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint16_t* dst,
                                       uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(VkSadMap8)(patch, patchStride, src, srcWidth, srcHeight, srcStride, dst, dstStride);
  return TVX_SUCCESS;
}
int32_t tvxSumOfAbsoluteDiffs16x16u8V(const uint8_t* patch, uint32_t patchStride, const uint8_t* src,
                                      uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint16_t* dst,
                                      uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(VkSadMap16)(patch, patchStride, src, srcWidth, srcHeight, srcStride, dst, dstStride);
  return TVX_SUCCESS;
}

int32_t tvxDotProduct8x8u8V(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                            uint32_t srcStride, const uint32_t* xy, uint32_t numPoints, uint32_t* dotProducts) {
  return HWY_DYNAMIC_DISPATCH(VkPatchDots8x8)(patch, src, srcWidth, srcHeight, srcStride, xy, numPoints, dotProducts);
}
int32_t tvxDotProduct11x12u8V(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                              uint32_t srcStride, const uint32_t* xy, uint32_t numPoints, uint32_t* dotProducts) {
  return HWY_DYNAMIC_DISPATCH(VkPatchDots11x12)(patch, src, srcWidth, srcHeight, srcStride, xy, numPoints, dotProducts);
}
int32_t tvxBlockDotProductu8V(const uint8_t* a, uint32_t numA, uint32_t aStride, const uint8_t* b, uint32_t numB,
                              uint32_t bStride, uint32_t length, uint32_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(VkBlockDotU8)(a, numA, aStride, b, numB, bStride, length, dst, dstStride);
  return TVX_SUCCESS;
}

int32_t tvxCrossProduct3x1f32V(const float* a, const float* b, float* c, uint32_t N) {
  // Like the reference variant, a direct call with a bad argument ends the process.
  if (!(a && b && c && N > 0)) tvx_fatal("src/cpu/tavixDotC", 725, "a && b && c && N > 0");
  HWY_DYNAMIC_DISPATCH(VkCross)(a, b, c, N);
  return TVX_SUCCESS;
}
#endif  // HWY_ONCE
