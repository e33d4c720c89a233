// Reference variants of the vector kernels: byte and float dot products, normalised dot
// products and squared distances of unit-normalised descriptors, Hamming distances through the
// shared bit-count table, 8 x 8 / 16 x 16 sums of absolute differences, patch and block dot
// products, and the cross product of 3-vectors.
//
// Integer sums run in a 32-bit unsigned accumulator (modulo 2^32, the signed result is its
// two's-complement reading); float sums run in element order from 0.0f.
#include <cmath>
#include <cstddef>
#include <cstring>

#include "cpu/vector_rules.h"
#include "frame/frame.h"

namespace {

template <typename T>
uint32_t Dot(const T* a, const T* b, size_t len) {
  uint32_t sum = 0;
  for (size_t i = 0; i < len; ++i) sum += static_cast<uint32_t>(int32_t(a[i]) * int32_t(b[i]));
  return sum;
}

// Fixed lengths: the bound is a constant, so the compiler unrolls the loop completely.
template <size_t kLen, typename T>
uint32_t DotFixed(const T* a, const T* b) {
  uint32_t sum = 0;
  for (size_t i = 0; i < kLen; ++i) sum += static_cast<uint32_t>(int32_t(a[i]) * int32_t(b[i]));
  return sum;
}

template <size_t kLen, typename T, typename R>
void DotFixedX4(const T* a, const T* b0, const T* b1, const T* b2, const T* b3, R* out) {
  out[0] = static_cast<R>(DotFixed<kLen>(a, b0));
  out[1] = static_cast<R>(DotFixed<kLen>(a, b1));
  out[2] = static_cast<R>(DotFixed<kLen>(a, b2));
  out[3] = static_cast<R>(DotFixed<kLen>(a, b3));
}

// The dot product as the float it is converted from: signed for s8, unsigned for u8.
template <typename T>
float DotAsFloat(uint32_t dot) {
  if constexpr (std::is_signed_v<T>) return static_cast<float>(static_cast<int32_t>(dot));
  else return static_cast<float>(dot);
}

template <size_t kLen, typename T>
void DotNormX4(const T* a, float invLengthA, const T* b0, const T* b1, const T* b2, const T* b3,
               const float* invLengthsB, float* out) {
  const T* b[4] = {b0, b1, b2, b3};
  for (int i = 0; i < 4; ++i) out[i] = (DotAsFloat<T>(DotFixed<kLen>(a, b[i])) * invLengthA) * invLengthsB[i];
}

template <typename T>
int32_t SquaredDiffs(const T* a, float invLengthA, uint32_t length, const T* const* b, const float* invLengthsB,
                     uint32_t N, float* distances) {
  for (uint32_t i = 0; i < N; ++i)
    if (!b[i]) return TVX_BAD_PARAMETER;
  for (uint32_t i = 0; i < N; ++i)
    distances[i] = tvxvec::UnitDistance(invLengthA, invLengthsB[i], DotAsFloat<T>(Dot(a, b[i], length)));
  return TVX_SUCCESS;
}

template <size_t kLen>
uint32_t HammingFixed(const uint8_t* a, const uint8_t* b) {
  uint32_t sum = 0;
  for (size_t i = 0; i < kLen; ++i) sum += static_cast<uint32_t>(tvxPopCountTable[a[i] ^ b[i]]);
  return sum;
}

template <size_t kLen>
void HammingFixedX4(const uint8_t* a, const uint8_t* b0, const uint8_t* b1, const uint8_t* b2, const uint8_t* b3,
                    uint32_t* out) {
  out[0] = HammingFixed<kLen>(a, b0);
  out[1] = HammingFixed<kLen>(a, b1);
  out[2] = HammingFixed<kLen>(a, b2);
  out[3] = HammingFixed<kLen>(a, b3);
}

template <uint32_t kSize>
uint32_t BlockSad(const uint8_t* patch, size_t patchStride, const uint8_t* src, size_t srcStride) {
  uint32_t sum = 0;
  for (uint32_t r = 0; r < kSize; ++r)
    for (uint32_t c = 0; c < kSize; ++c) {
      const int d = int(patch[r * patchStride + c]) - int(src[r * srcStride + c]);
      sum += static_cast<uint32_t>(d < 0 ? -d : d);
    }
  return sum;
}

// SAD of the patch at every window position, stored at the window centre. Destination rows
// start every dstStride / 2 elements, so an odd byte stride never misaligns a row.
template <uint32_t kSize>
void SadMap(const uint8_t* patch, uint32_t patchStride, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
            uint32_t srcStride, uint16_t* dst, uint32_t dstStride) {
  if (srcWidth < kSize || srcHeight < kSize) return;
  const size_t dstStep = dstStride / 2;
  for (uint32_t y = 0; y + kSize <= srcHeight; ++y) {
    uint16_t* out = dst + (y + kSize / 2) * dstStep + kSize / 2;
    for (uint32_t x = 0; x + kSize <= srcWidth; ++x)
      out[x] = static_cast<uint16_t>(BlockSad<kSize>(patch, patchStride, src + size_t(y) * srcStride + x, srcStride));
  }
}

// Patch dot products at caller-given top-left corners; every window is checked before the
// first result is written.
template <uint32_t kW, uint32_t kH>
int32_t PatchDots(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                  const uint32_t* xy, uint32_t numPoints, uint32_t* dotProducts) {
  if (!tvxvec::WindowsInside<kW, kH>(xy, numPoints, srcWidth, srcHeight)) return TVX_BAD_PARAMETER;
  for (uint32_t i = 0; i < numPoints; ++i) {
    const uint8_t* win = src + size_t(xy[2 * i + 1]) * srcStride + xy[2 * i];
    uint32_t sum = 0;
    for (uint32_t r = 0; r < kH; ++r) sum += Dot(patch + r * kW, win + size_t(r) * srcStride, kW);
    dotProducts[i] = sum;
  }
  return TVX_SUCCESS;
}

float DotFloat(const float* a, const float* b, size_t len) {
  float sum = 0.0f;
  for (size_t i = 0; i < len; ++i) sum += a[i] * b[i];
  return sum;
}

}  // namespace

// ---- dot products ------------------------------------------------------------------------------

int32_t tvxDotProducts8C(const int8_t* a, const int8_t* b, uint32_t len) {
  return static_cast<int32_t>(Dot(a, b, len));
}
uint32_t tvxDotProductu8C(const uint8_t* a, const uint8_t* b, uint32_t len) { return Dot(a, b, len); }
float tvxDotProductf32C(const float* a, const float* b, uint32_t len) { return DotFloat(a, b, len); }

int32_t tvxDotProduct36x1s8C(const int8_t* a, const int8_t* b) { return static_cast<int32_t>(DotFixed<36>(a, b)); }
uint32_t tvxDotProduct36x1u8C(const uint8_t* a, const uint8_t* b) { return DotFixed<36>(a, b); }
int32_t tvxDotProduct64x1s8C(const int8_t* a, const int8_t* b) { return static_cast<int32_t>(DotFixed<64>(a, b)); }
uint32_t tvxDotProduct64x1u8C(const uint8_t* a, const uint8_t* b) { return DotFixed<64>(a, b); }
int32_t tvxDotProduct128x1s8C(const int8_t* a, const int8_t* b) { return static_cast<int32_t>(DotFixed<128>(a, b)); }
uint32_t tvxDotProduct128x1u8C(const uint8_t* a, const uint8_t* b) { return DotFixed<128>(a, b); }

#define TVX_DOT_X4(len, sfx, T, R)                                                                             \
  int32_t tvxDotProduct##len##x4##sfx##C(const T* a, const T* b0, const T* b1, const T* b2, const T* b3,       \
                                         R* dotProducts) {                                                     \
    DotFixedX4<len>(a, b0, b1, b2, b3, dotProducts);                                                           \
    return TVX_SUCCESS;                                                                                        \
  }                                                                                                            \
  int32_t tvxDotProductNorm##len##x4##sfx##C(const T* a, float invLengthA, const T* b0, const T* b1,           \
                                             const T* b2, const T* b3, const float* invLengthsB,              \
                                             float* dotProducts) {                                             \
    DotNormX4<len>(a, invLengthA, b0, b1, b2, b3, invLengthsB, dotProducts);                                   \
    return TVX_SUCCESS;                                                                                        \
  }
TVX_DOT_X4(36, s8, int8_t, int32_t)
TVX_DOT_X4(36, u8, uint8_t, uint32_t)
TVX_DOT_X4(64, s8, int8_t, int32_t)
TVX_DOT_X4(64, u8, uint8_t, uint32_t)
TVX_DOT_X4(128, s8, int8_t, int32_t)
TVX_DOT_X4(128, u8, uint8_t, uint32_t)
#undef TVX_DOT_X4

// ---- squared distances -------------------------------------------------------------------------

int32_t tvxSumOfSquaredDiffs36x4s8C(const int8_t* a, float invLengthA, const int8_t* b0, const int8_t* b1,
                                    const int8_t* b2, const int8_t* b3, const float* invLengthsB, float* distances) {
  const int8_t* b[4] = {b0, b1, b2, b3};
  for (int i = 0; i < 4; ++i)
    distances[i] = tvxvec::UnitDistance(invLengthA, invLengthsB[i], DotAsFloat<int8_t>(DotFixed<36>(a, b[i])));
  return TVX_SUCCESS;
}

int32_t tvxSumOfSquaredDiffs36xNs8C(const int8_t* a, float invLengthA, const int8_t* const* b,
                                    const float* invLengthsB, uint32_t N, float* distances) {
  for (uint32_t i = 0; i < N; ++i)
    if (!b[i]) return TVX_BAD_PARAMETER;
  uint32_t i = 0;
  for (; i + 4 <= N; i += 4) {
    int32_t dots[4];
    if (tvxDotProduct36x4s8(a, b[i], b[i + 1], b[i + 2], b[i + 3], dots) != TVX_SUCCESS) return TVX_BAD_PARAMETER;
    for (uint32_t k = 0; k < 4; ++k)
      distances[i + k] = tvxvec::UnitDistance(invLengthA, invLengthsB[i + k], static_cast<float>(dots[k]));
  }
  for (; i < N; ++i)
    distances[i] = tvxvec::UnitDistance(invLengthA, invLengthsB[i], static_cast<float>(tvxDotProduct36x1s8(a, b[i])));
  return TVX_SUCCESS;
}

int32_t tvxSumOfSquaredDiffss8C(const int8_t* a, float invLengthA, uint32_t length, const int8_t* const* b,
                                const float* invLengthsB, uint32_t N, float* distances) {
  return SquaredDiffs(a, invLengthA, length, b, invLengthsB, N, distances);
}
int32_t tvxSumOfSquaredDiffsu8C(const uint8_t* a, float invLengthA, uint32_t length, const uint8_t* const* b,
                                const float* invLengthsB, uint32_t N, float* distances) {
  return SquaredDiffs(a, invLengthA, length, b, invLengthsB, N, distances);
}
int32_t tvxSumOfSquaredDiffsf32C(const float* a, float invLengthA, uint32_t length, const float* const* b,
                                 const float* invLengthsB, uint32_t N, float* distances) {
  for (uint32_t i = 0; i < N; ++i)
    if (!b[i]) return TVX_BAD_PARAMETER;
  for (uint32_t i = 0; i < N; ++i)
    distances[i] = tvxvec::UnitDistance(invLengthA, invLengthsB[i], tvxDotProductf32(a, b[i], length));
  return TVX_SUCCESS;
}

// ---- Hamming distances -------------------------------------------------------------------------

uint32_t tvxHammingDistanceu8C(const uint8_t* a, const uint8_t* b, uint32_t len) {
  uint32_t sum = 0;
  for (uint32_t i = 0; i < len; ++i) sum += static_cast<uint32_t>(tvxPopCountTable[a[i] ^ b[i]]);
  return sum;
}
uint32_t tvxHammingDistance32x1u8C(const uint8_t* a, const uint8_t* b) { return HammingFixed<32>(a, b); }
uint32_t tvxHammingDistance32x1u8a4C(const uint8_t* a, const uint8_t* b) { return HammingFixed<32>(a, b); }
uint32_t tvxHammingDistance64x1u8C(const uint8_t* a, const uint8_t* b) { return HammingFixed<64>(a, b); }
uint32_t tvxHammingDistance64x1u8a4C(const uint8_t* a, const uint8_t* b) { return HammingFixed<64>(a, b); }
int32_t tvxHammingDistance32x4u8a4C(const uint8_t* a, const uint8_t* b0, const uint8_t* b1, const uint8_t* b2,
                                    const uint8_t* b3, uint32_t* distances) {
  HammingFixedX4<32>(a, b0, b1, b2, b3, distances);
  return TVX_SUCCESS;
}
int32_t tvxHammingDistance64x4u8a4C(const uint8_t* a, const uint8_t* b0, const uint8_t* b1, const uint8_t* b2,
                                    const uint8_t* b3, uint32_t* distances) {
  HammingFixedX4<64>(a, b0, b1, b2, b3, distances);
  return TVX_SUCCESS;
}
int32_t tvxHammingDistance64x4u8C(const uint8_t* a, const uint8_t* b0, const uint8_t* b1, const uint8_t* b2,
                                  const uint8_t* b3, uint32_t* distances) {
  HammingFixedX4<64>(a, b0, b1, b2, b3, distances);
  return TVX_SUCCESS;
}

// ---- sums of absolute differences ----------------------------------------------------------------

uint16_t tvxSumOfAbsoluteDiff8x8u8C(const uint8_t* patch, uint32_t patchStride, const uint8_t* src,
                                    uint32_t srcStride) {
  return static_cast<uint16_t>(BlockSad<8>(patch, patchStride, src, srcStride) & 0xFFFFu);
}
uint16_t tvxSumOfAbsoluteDiff16x16u8C(const uint8_t* patch, uint32_t patchStride, const uint8_t* src,
                                      uint32_t srcStride) {
  return static_cast<uint16_t>(BlockSad<16>(patch, patchStride, src, srcStride));
}
int32_t tvxSumOfAbsoluteDiffs8x8u8_v2C(const uint8_t* patch, uint32_t patchStride, const uint8_t* src,
                                       uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint16_t* dst,
                                       uint32_t dstStride) {
  SadMap<8>(patch, patchStride, src, srcWidth, srcHeight, srcStride, dst, dstStride);
  return TVX_SUCCESS;
}
int32_t tvxSumOfAbsoluteDiffs16x16u8C(const uint8_t* patch, uint32_t patchStride, const uint8_t* src,
                                      uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint16_t* dst,
                                      uint32_t dstStride) {
  SadMap<16>(patch, patchStride, src, srcWidth, srcHeight, srcStride, dst, dstStride);
  return TVX_SUCCESS;
}

// ---- patch and block dot products --------------------------------------------------------------

int32_t tvxDotProduct8x8u8C(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                            uint32_t srcStride, const uint32_t* xy, uint32_t numPoints, uint32_t* dotProducts) {
  return PatchDots<8, 8>(patch, src, srcWidth, srcHeight, srcStride, xy, numPoints, dotProducts);
}
int32_t tvxDotProduct11x12u8C(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                              uint32_t srcStride, const uint32_t* xy, uint32_t numPoints, uint32_t* dotProducts) {
  return PatchDots<11, 12>(patch, src, srcWidth, srcHeight, srcStride, xy, numPoints, dotProducts);
}

int32_t tvxBlockDotProductu8C(const uint8_t* a, uint32_t numA, uint32_t aStride, const uint8_t* b, uint32_t numB,
                              uint32_t bStride, uint32_t length, uint32_t* dst, uint32_t dstStride) {
  for (uint32_t i = 0; i < numA; ++i) {
    uint32_t* out = dst + size_t(i) * (dstStride / 4);
    for (uint32_t j = 0; j < numB; ++j) out[j] = Dot(a + size_t(i) * aStride, b + size_t(j) * bStride, length);
  }
  return TVX_SUCCESS;
}
int32_t tvxBlockDotProductf32C(const float* a, uint32_t numA, uint32_t aStride, const float* b, uint32_t numB,
                               uint32_t bStride, uint32_t length, float* dst, uint32_t dstStride) {
  for (uint32_t i = 0; i < numA; ++i) {
    float* out = dst + size_t(i) * (dstStride / 4);
    for (uint32_t j = 0; j < numB; ++j)
      out[j] = DotFloat(a + size_t(i) * (aStride / 4), b + size_t(j) * (bStride / 4), length);
  }
  return TVX_SUCCESS;
}

// ---- cross product -----------------------------------------------------------------------------

int32_t tvxCrossProduct3x1f32C(const float* a, const float* b, float* c, uint32_t N) {
  // Called directly (nested callers, the remote side), a bad argument ends the process.
  if (!(a && b && c && N > 0)) tvx_fatal("src/cpu/tavixDotC", 725, "a && b && c && N > 0");
  for (uint32_t k = 0; k < N; ++k) {
    const float a0 = a[3 * k], a1 = a[3 * k + 1], a2 = a[3 * k + 2];
    const float b0 = b[3 * k], b1 = b[3 * k + 1], b2 = b[3 * k + 2];
    c[3 * k] = a1 * b2 - b1 * a2;
    c[3 * k + 1] = a2 * b0 - b2 * a0;
    c[3 * k + 2] = a0 * b1 - a1 * b0;
  }
  return TVX_SUCCESS;
}
