// SIMD variants of the bitwise family: logic on u8/s32 images, bit counts and masked fills.
// Full vectors run across each row; the last width % lanes pixels take a scalar tail so that
// nothing past the rectangle is touched.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/bitwise.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>

#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

inline const uint8_t* RowAt(const void* base, size_t stride, uint32_t y) {
  return static_cast<const uint8_t*>(base) + static_cast<size_t>(y) * stride;
}
inline uint8_t* RowAt(void* base, size_t stride, uint32_t y) {
  return static_cast<uint8_t*>(base) + static_cast<size_t>(y) * stride;
}

// ---- logic ---------------------------------------------------------------------------------

enum class Logic { kAnd, kXor, kNot };

template <Logic kOp>
int32_t ByteLogic(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                  const uint8_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  if (dst == src1 && src1Stride != dstStride) return TVX_BAD_PARAMETER;
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  const auto apply = [&](auto a, auto b) {
    if constexpr (kOp == Logic::kAnd) return hn::And(a, b);
    else if constexpr (kOp == Logic::kXor) return hn::Xor(a, b);
    else return hn::Not(a);
  };
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* a = RowAt(src1, src1Stride, y);
    const uint8_t* b = kOp == Logic::kNot ? a : RowAt(src2, src2Stride, y);
    uint8_t* out = RowAt(dst, dstStride, y);
    size_t x = 0;
    for (; x + N <= width; x += N) hn::StoreU(apply(hn::LoadU(d, a + x), hn::LoadU(d, b + x)), d, out + x);
    for (; x < width; ++x) {
      if constexpr (kOp == Logic::kAnd) out[x] = static_cast<uint8_t>(a[x] & b[x]);
      else if constexpr (kOp == Logic::kXor) out[x] = static_cast<uint8_t>(a[x] ^ b[x]);
      else out[x] = static_cast<uint8_t>(~a[x]);
    }
  }
  return TVX_SUCCESS;
}

int32_t BitwiseAndu8(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                     const uint8_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  return ByteLogic<Logic::kAnd>(src1, width, height, src1Stride, src2, src2Stride, dst, dstStride);
}
int32_t BitwiseXoru8(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                     const uint8_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  return ByteLogic<Logic::kXor>(src1, width, height, src1Stride, src2, src2Stride, dst, dstStride);
}
int32_t BitwiseNotu8(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                     uint32_t dstStride) {
  return ByteLogic<Logic::kNot>(src, width, height, srcStride, nullptr, 0, dst, dstStride);
}

// Lanes of D whose mask byte (one per pixel) is nonzero.
template <class D>
hn::Mask<D> PixelMask(D d, const uint8_t* mask) {
  using T = hn::TFromD<D>;
  if constexpr (sizeof(T) == 1) {
    return hn::LoadU(d, mask) != hn::Zero(d);
  } else {
    const hn::Rebind<uint8_t, D> d8;
    return hn::PromoteTo(d, hn::LoadU(d8, mask)) != hn::Zero(d);
  }
}

// dst = src1 | src2 on elements of T (u8 or u32 bits); pixels whose mask byte is 0 become 0.
template <typename T>
void OrMasked(const uint8_t* src1, const uint8_t* src2, uint32_t width, uint32_t height, uint32_t srcStride,
              uint8_t* dst, uint32_t dstStride, const uint8_t* mask, uint32_t maskStride) {
  const hn::ScalableTag<T> d;
  const size_t N = hn::Lanes(d);
  const size_t srcStep = srcStride / sizeof(T) * sizeof(T);
  const size_t dstStep = dstStride / sizeof(T) * sizeof(T);
  for (uint32_t y = 0; y < height; ++y) {
    const T* a = reinterpret_cast<const T*>(RowAt(src1, srcStep, y));
    const T* b = reinterpret_cast<const T*>(RowAt(src2, srcStep, y));
    T* out = reinterpret_cast<T*>(RowAt(dst, dstStep, y));
    const uint8_t* m = mask ? RowAt(mask, maskStride, y) : nullptr;
    size_t x = 0;
    for (; x + N <= width; x += N) {
      auto v = hn::Or(hn::LoadU(d, a + x), hn::LoadU(d, b + x));
      if (m) v = hn::IfThenElseZero(PixelMask(d, m + x), v);
      hn::StoreU(v, d, out + x);
    }
    for (; x < width; ++x) out[x] = (m && m[x] == 0) ? T(0) : T(a[x] | b[x]);
  }
}

void BitwiseOru8(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                 uint32_t srcStride, uint8_t* dst, uint32_t dstStride, const uint8_t* mask, uint32_t maskStride) {
  OrMasked<uint8_t>(src1, src2, srcWidth, srcHeight, srcStride, dst, dstStride, mask, maskStride);
}
void BitwiseOrs32(const int32_t* src1, const int32_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                  uint32_t srcStride, int32_t* dst, uint32_t dstStride, const uint8_t* mask, uint32_t maskStride) {
  OrMasked<uint32_t>(reinterpret_cast<const uint8_t*>(src1), reinterpret_cast<const uint8_t*>(src2), srcWidth,
                     srcHeight, srcStride, reinterpret_cast<uint8_t*>(dst), dstStride, mask, maskStride);
}

// ---- bit counts ----------------------------------------------------------------------------

// Population counts of whole vectors summed per 8 bytes into 64-bit lanes; the tail uses the
// shared byte table. Totals wrap modulo 2^32 exactly like a 32-bit accumulator.
template <class D>
uint32_t CountBits(D d, const uint8_t* bytes, size_t count) {
  const size_t N = hn::Lanes(d);
  const hn::Repartition<uint64_t, D> d64;
  auto acc = hn::Zero(d64);
  size_t i = 0;
  for (; i + N <= count; i += N) acc = hn::Add(acc, hn::SumsOf8(hn::PopulationCount(hn::LoadU(d, bytes + i))));
  alignas(64) uint64_t lanes[hn::MaxLanes(decltype(d64)())];
  hn::Store(acc, d64, lanes);
  uint64_t total = 0;
  for (size_t k = 0; k < hn::Lanes(d64); ++k) total += lanes[k];
  for (; i < count; ++i) total += static_cast<uint64_t>(tvxPopCountTable[bytes[i]]);
  return static_cast<uint32_t>(total);
}

uint32_t BitCountu8(const uint8_t* src, uint32_t length) {
  return src ? CountBits(hn::ScalableTag<uint8_t>(), src, length) : 0;
}
uint32_t BitCountu32(const uint32_t* src, uint32_t length) {
  return src ? CountBits(hn::ScalableTag<uint8_t>(), reinterpret_cast<const uint8_t*>(src),
                         static_cast<size_t>(length) * 4)
             : 0;
}
uint32_t BitCount32x1u8(const uint8_t* src) { return src ? CountBits(hn::CappedTag<uint8_t, 32>(), src, 32) : 0; }
uint32_t BitCount64x1u8(const uint8_t* src) { return src ? CountBits(hn::CappedTag<uint8_t, 64>(), src, 64) : 0; }

uint32_t BitCount32x4u8(const uint8_t* A, const uint8_t* B, const uint8_t* C, const uint8_t* D, uint32_t* count) {
  const hn::CappedTag<uint8_t, 32> d;
  count[0] = CountBits(d, A, 32);
  count[1] = CountBits(d, B, 32);
  count[2] = CountBits(d, C, 32);
  count[3] = CountBits(d, D, 32);
  return 32;
}
uint32_t BitCount64x4u8(const uint8_t* A, const uint8_t* B, const uint8_t* C, const uint8_t* D, uint32_t* count) {
  const hn::CappedTag<uint8_t, 64> d;
  count[0] = CountBits(d, A, 64);
  count[1] = CountBits(d, B, 64);
  count[2] = CountBits(d, C, 64);
  count[3] = CountBits(d, D, 64);
  return 64;
}

// ---- set elements --------------------------------------------------------------------------

// Sets pixels of kC interleaved channels of T (u8 or u32 bits) to values, or only where the
// mask byte is nonzero. Pixels left out by the mask are stored back unchanged.
template <typename T, int kC>
void SetPixels(uint8_t* image, uint32_t width, uint32_t height, uint32_t stride, const T (&values)[kC],
               const uint8_t* mask, uint32_t maskStride) {
  static_assert(kC == 1 || kC == 3 || kC == 4, "one, three or four channels");
  const hn::ScalableTag<T> d;
  const size_t N = hn::Lanes(d);
  const size_t step = stride / sizeof(T) * sizeof(T);
  hn::Vec<decltype(d)> fill[kC];
  for (int c = 0; c < kC; ++c) fill[c] = hn::Set(d, values[c]);
  for (uint32_t y = 0; y < height; ++y) {
    T* row = reinterpret_cast<T*>(RowAt(image, step, y));
    const uint8_t* m = mask ? RowAt(mask, maskStride, y) : nullptr;
    size_t x = 0;
    for (; x + N <= width; x += N) {
      T* p = row + x * kC;
      if constexpr (kC == 1) {
        if (m) hn::StoreU(hn::IfThenElse(PixelMask(d, m + x), fill[0], hn::LoadU(d, p)), d, p);
        else hn::StoreU(fill[0], d, p);
      } else if constexpr (kC == 3) {
        if (m) {
          const auto keep = PixelMask(d, m + x);
          hn::Vec<decltype(d)> c0, c1, c2;
          hn::LoadInterleaved3(d, p, c0, c1, c2);
          hn::StoreInterleaved3(hn::IfThenElse(keep, fill[0], c0), hn::IfThenElse(keep, fill[1], c1),
                                hn::IfThenElse(keep, fill[2], c2), d, p);
        } else {
          hn::StoreInterleaved3(fill[0], fill[1], fill[2], d, p);
        }
      } else {
        if (m) {
          const auto keep = PixelMask(d, m + x);
          hn::Vec<decltype(d)> c0, c1, c2, c3;
          hn::LoadInterleaved4(d, p, c0, c1, c2, c3);
          hn::StoreInterleaved4(hn::IfThenElse(keep, fill[0], c0), hn::IfThenElse(keep, fill[1], c1),
                                hn::IfThenElse(keep, fill[2], c2), hn::IfThenElse(keep, fill[3], c3), d, p);
        } else {
          hn::StoreInterleaved4(fill[0], fill[1], fill[2], fill[3], d, p);
        }
      }
    }
    for (; x < width; ++x) {
      if (m && m[x] == 0) continue;
      std::memcpy(row + x * kC, values, sizeof values);  // memcpy: T may stand for float bits
    }
  }
}

template <typename V>
uint32_t Bits32(V value) {
  static_assert(sizeof(V) == 4, "32-bit elements");
  uint32_t bits;
  std::memcpy(&bits, &value, 4);
  return bits;
}

void SetElementsu8(uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t value,
                   const uint8_t* mask, uint32_t maskStride) {
  const uint8_t values[1] = {value};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}
void SetElementss32(int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int32_t value,
                    const uint8_t* mask, uint32_t maskStride) {
  const uint32_t values[1] = {Bits32(value)};
  SetPixels(reinterpret_cast<uint8_t*>(src), srcWidth, srcHeight, srcStride, values, mask, maskStride);
}
void SetElementsf32(float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, float32_t value,
                    const uint8_t* mask, uint32_t maskStride) {
  const uint32_t values[1] = {Bits32(value)};
  SetPixels(reinterpret_cast<uint8_t*>(src), srcWidth, srcHeight, srcStride, values, mask, maskStride);
}
void SetElementsc4u8(uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t value1,
                     uint8_t value2, uint8_t value3, uint8_t value4, const uint8_t* mask, uint32_t maskStride) {
  const uint8_t values[4] = {value1, value2, value3, value4};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}
void SetElementsc4s32(int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int32_t value1,
                      int32_t value2, int32_t value3, int32_t value4, const uint8_t* mask, uint32_t maskStride) {
  const uint32_t values[4] = {Bits32(value1), Bits32(value2), Bits32(value3), Bits32(value4)};
  SetPixels(reinterpret_cast<uint8_t*>(src), srcWidth, srcHeight, srcStride, values, mask, maskStride);
}
void SetElementsc4f32(float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                      float32_t value1, float32_t value2, float32_t value3, float32_t value4, const uint8_t* mask,
                      uint32_t maskStride) {
  const uint32_t values[4] = {Bits32(value1), Bits32(value2), Bits32(value3), Bits32(value4)};
  SetPixels(reinterpret_cast<uint8_t*>(src), srcWidth, srcHeight, srcStride, values, mask, maskStride);
}
void SetElementsc3u8(uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t value1,
                     uint8_t value2, uint8_t value3, const uint8_t* mask, uint32_t maskStride) {
  const uint8_t values[3] = {value1, value2, value3};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}
void SetElementsc3s32(int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int32_t value1,
                      int32_t value2, int32_t value3, const uint8_t* mask, uint32_t maskStride) {
  const uint32_t values[3] = {Bits32(value1), Bits32(value2), Bits32(value3)};
  SetPixels(reinterpret_cast<uint8_t*>(src), srcWidth, srcHeight, srcStride, values, mask, maskStride);
}
void SetElementsc3f32(float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                      float32_t value1, float32_t value2, float32_t value3, const uint8_t* mask,
                      uint32_t maskStride) {
  const uint32_t values[3] = {Bits32(value1), Bits32(value2), Bits32(value3)};
  SetPixels(reinterpret_cast<uint8_t*>(src), srcWidth, srcHeight, srcStride, values, mask, maskStride);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(BitwiseAndu8);
HWY_EXPORT(BitwiseXoru8);
HWY_EXPORT(BitwiseNotu8);
HWY_EXPORT(BitwiseOru8);
HWY_EXPORT(BitwiseOrs32);
HWY_EXPORT(BitCountu8);
HWY_EXPORT(BitCountu32);
HWY_EXPORT(BitCount32x1u8);
HWY_EXPORT(BitCount64x1u8);
HWY_EXPORT(BitCount32x4u8);
HWY_EXPORT(BitCount64x4u8);
HWY_EXPORT(SetElementsu8);
HWY_EXPORT(SetElementss32);
HWY_EXPORT(SetElementsf32);
HWY_EXPORT(SetElementsc4u8);
HWY_EXPORT(SetElementsc4s32);
HWY_EXPORT(SetElementsc4f32);
HWY_EXPORT(SetElementsc3u8);
HWY_EXPORT(SetElementsc3s32);
HWY_EXPORT(SetElementsc3f32);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

int32_t tvxBitwiseAndu8V(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                         const uint8_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(BitwiseAndu8)(src1, width, height, src1Stride, src2, src2Stride, dst, dstStride);
}
int32_t tvxBitwiseXoru8V(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                         const uint8_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(BitwiseXoru8)(src1, width, height, src1Stride, src2, src2Stride, dst, dstStride);
}
int32_t tvxBitwiseNotu8V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                         uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(BitwiseNotu8)(src, width, height, srcStride, dst, dstStride);
}
void tvxBitwiseOru8V(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                     uint32_t srcStride, uint8_t* dst, uint32_t dstStride, const uint8_t* mask, uint32_t maskStride) {
  HWY_DYNAMIC_DISPATCH(BitwiseOru8)(src1, src2, srcWidth, srcHeight, srcStride, dst, dstStride, mask, maskStride);
}
void tvxBitwiseOrs32V(const int32_t* src1, const int32_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                      uint32_t srcStride, int32_t* dst, uint32_t dstStride, const uint8_t* mask, uint32_t maskStride) {
  HWY_DYNAMIC_DISPATCH(BitwiseOrs32)(src1, src2, srcWidth, srcHeight, srcStride, dst, dstStride, mask,
                                          maskStride);
}
uint32_t tvxBitCountu8V(const uint8_t* src, uint32_t length) {
  return HWY_DYNAMIC_DISPATCH(BitCountu8)(src, length);
}
uint32_t tvxBitCountu32V(const uint32_t* src, uint32_t length) {
  return HWY_DYNAMIC_DISPATCH(BitCountu32)(src, length);
}
uint32_t tvxBitCount32x1u8V(const uint8_t* src) { return HWY_DYNAMIC_DISPATCH(BitCount32x1u8)(src); }
uint32_t tvxBitCount64x1u8V(const uint8_t* src) { return HWY_DYNAMIC_DISPATCH(BitCount64x1u8)(src); }
uint32_t tvxBitCount32x4u8V(const uint8_t* A, const uint8_t* B, const uint8_t* C, const uint8_t* D,
                            uint32_t* count) {
  return HWY_DYNAMIC_DISPATCH(BitCount32x4u8)(A, B, C, D, count);
}
uint32_t tvxBitCount64x4u8V(const uint8_t* A, const uint8_t* B, const uint8_t* C, const uint8_t* D,
                            uint32_t* count) {
  return HWY_DYNAMIC_DISPATCH(BitCount64x4u8)(A, B, C, D, count);
}
void tvxSetElementsu8V(uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t value,
                       const uint8_t* mask, uint32_t maskStride) {
  HWY_DYNAMIC_DISPATCH(SetElementsu8)(src, srcWidth, srcHeight, srcStride, value, mask, maskStride);
}
void tvxSetElementss32V(int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int32_t value,
                        const uint8_t* mask, uint32_t maskStride) {
  HWY_DYNAMIC_DISPATCH(SetElementss32)(src, srcWidth, srcHeight, srcStride, value, mask, maskStride);
}
void tvxSetElementsf32V(float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                        float32_t value, const uint8_t* mask, uint32_t maskStride) {
  HWY_DYNAMIC_DISPATCH(SetElementsf32)(src, srcWidth, srcHeight, srcStride, value, mask, maskStride);
}
void tvxSetElementsc4u8V(uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t value1,
                         uint8_t value2, uint8_t value3, uint8_t value4, const uint8_t* mask, uint32_t maskStride) {
  HWY_DYNAMIC_DISPATCH(SetElementsc4u8)(src, srcWidth, srcHeight, srcStride, value1, value2, value3, value4,
                                             mask, maskStride);
}
void tvxSetElementsc4s32V(int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          int32_t value1, int32_t value2, int32_t value3, int32_t value4, const uint8_t* mask,
                          uint32_t maskStride) {
  HWY_DYNAMIC_DISPATCH(SetElementsc4s32)(src, srcWidth, srcHeight, srcStride, value1, value2, value3, value4,
                                              mask, maskStride);
}
void tvxSetElementsc4f32V(float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          float32_t value1, float32_t value2, float32_t value3, float32_t value4,
                          const uint8_t* mask, uint32_t maskStride) {
  HWY_DYNAMIC_DISPATCH(SetElementsc4f32)(src, srcWidth, srcHeight, srcStride, value1, value2, value3, value4,
                                              mask, maskStride);
}
void tvxSetElementsc3u8V(uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t value1,
                         uint8_t value2, uint8_t value3, const uint8_t* mask, uint32_t maskStride) {
  HWY_DYNAMIC_DISPATCH(SetElementsc3u8)(src, srcWidth, srcHeight, srcStride, value1, value2, value3, mask,
                                             maskStride);
}
void tvxSetElementsc3s32V(int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          int32_t value1, int32_t value2, int32_t value3, const uint8_t* mask, uint32_t maskStride) {
  HWY_DYNAMIC_DISPATCH(SetElementsc3s32)(src, srcWidth, srcHeight, srcStride, value1, value2, value3, mask,
                                              maskStride);
}
void tvxSetElementsc3f32V(float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          float32_t value1, float32_t value2, float32_t value3, const uint8_t* mask,
                          uint32_t maskStride) {
  HWY_DYNAMIC_DISPATCH(SetElementsc3f32)(src, srcWidth, srcHeight, srcStride, value1, value2, value3, mask,
                                              maskStride);
}
#endif  // HWY_ONCE
