// SIMD variants of the element-wise arithmetic family, part one: absolute differences (images
// and per-channel constants), add and subtract, float products, scalar forms and depth
// conversion. Whole vectors first, then the remaining pixels of a row through the same
// per-element rules as the reference variants, so nothing outside the rectangle is touched.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/arith.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include "cpu/arith_rules.h"
#include "frame/frame.h"
#include "lanes/arith_lanes.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
namespace rules = tvx::rules;
using rules::RowOf;

// ---- absolute difference -------------------------------------------------------------------

HWY_INLINE hn::Vec<hn::ScalableTag<uint8_t>> AbsDiffVec(hn::Vec<hn::ScalableTag<uint8_t>> a,
                                                        hn::Vec<hn::ScalableTag<uint8_t>> b) {
  return hn::Or(hn::SaturatedSub(a, b), hn::SaturatedSub(b, a));
}
// Wrapped 32-bit difference; |d| through the sign mask, so INT_MIN stays 0x80000000.
HWY_INLINE hn::Vec<hn::ScalableTag<uint32_t>> AbsDiffVec(hn::Vec<hn::ScalableTag<int32_t>> a,
                                                         hn::Vec<hn::ScalableTag<int32_t>> b) {
  const auto d = hn::Sub(a, b);
  const auto sign = hn::ShiftRight<31>(d);
  return hn::BitCast(hn::ScalableTag<uint32_t>(), hn::Sub(hn::Xor(d, sign), sign));
}
HWY_INLINE hn::Vec<hn::ScalableTag<float>> AbsDiffVec(hn::Vec<hn::ScalableTag<float>> a,
                                                      hn::Vec<hn::ScalableTag<float>> b) {
  return hn::Abs(hn::Sub(a, b));
}

inline uint8_t AbsDiffOne(uint8_t a, uint8_t b) { return rules::AbsDiffU8(a, b); }
inline uint32_t AbsDiffOne(int32_t a, int32_t b) { return rules::AbsDiffS32(a, b); }
inline float AbsDiffOne(float a, float b) { return rules::AbsDiffF32(a, b); }

// |src1 - src2| for u8, s32 (unsigned result) and f32 images sharing one source stride.
template <typename T, typename O>
HWY_INLINE void AbsDiffImages(const T* src1, const T* src2, uint32_t width, uint32_t height,
                              uint32_t srcStride, O* dst, uint32_t dstStride) {
  const hn::ScalableTag<T> d;
  const hn::ScalableTag<O> dOut;
  for (uint32_t y = 0; y < height; ++y) {
    const T* a = RowOf(src1, srcStride, y);
    const T* b = RowOf(src2, srcStride, y);
    O* o = RowOf(dst, dstStride, y);
    ForSpan(d, width, [&](size_t x) HWY_ATTR {
      hn::StoreU(AbsDiffVec(hn::LoadU(d, a + x), hn::LoadU(d, b + x)), dOut, o + x);
    }, [&](size_t x) { o[x] = AbsDiffOne(a[x], b[x]); });
  }
}

// |src - value[channel]| for C interleaved channels. C whole vectors cover a whole number of
// pixels, so C pattern vectors (the values repeated from channel 0) line up with every group
// of C vectors that starts on a pixel.
template <size_t C, typename T, typename O>
HWY_INLINE void AbsDiffChannels(const T* src, const T (&value)[C], uint32_t width, uint32_t height,
                                uint32_t srcStride, O* dst, uint32_t dstStride) {
  const hn::ScalableTag<T> d;
  const hn::ScalableTag<O> dOut;
  using V = hn::Vec<decltype(d)>;
  const size_t N = hn::Lanes(d);
  HWY_ALIGN T pattern[C * HWY_MAX_BYTES / sizeof(T)];
  for (size_t i = 0; i < C * N; ++i) pattern[i] = value[i % C];
  V channel[C];
  for (size_t k = 0; k < C; ++k) channel[k] = hn::Load(d, pattern + k * N);
  const size_t n = static_cast<size_t>(width) * C;
  for (uint32_t y = 0; y < height; ++y) {
    const T* a = RowOf(src, srcStride, y);
    O* o = RowOf(dst, dstStride, y);
    size_t x = 0;
    for (; x + C * N <= n; x += C * N) {
      for (size_t k = 0; k < C; ++k)
        hn::StoreU(AbsDiffVec(hn::LoadU(d, a + x + k * N), channel[k]), dOut, o + x + k * N);
    }
    for (size_t k = 0; x + N <= n; x += N, ++k)
      hn::StoreU(AbsDiffVec(hn::LoadU(d, a + x), channel[k]), dOut, o + x);
    for (; x < n; ++x) o[x] = AbsDiffOne(a[x], value[x % C]);
  }
}

void AbsDiffu8Lanes(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                    uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  AbsDiffImages(src1, src2, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void AbsDiffs32Lanes(const int32_t* src1, const int32_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                     uint32_t srcStride, uint32_t* dst, uint32_t dstStride) {
  AbsDiffImages(src1, src2, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void AbsDifff32Lanes(const float32_t* src1, const float32_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                     uint32_t srcStride, float32_t* dst, uint32_t dstStride) {
  AbsDiffImages(src1, src2, srcWidth, srcHeight, srcStride, dst, dstStride);
}

void AbsDiffVu8Lanes(const uint8_t* src, uint8_t value, uint32_t srcWidth, uint32_t srcHeight,
                     uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  const uint8_t v[1] = {value};
  AbsDiffChannels(src, v, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void AbsDiffVs32Lanes(const int32_t* src, int32_t value, uint32_t srcWidth, uint32_t srcHeight,
                      uint32_t srcStride, uint32_t* dst, uint32_t dstStride) {
  const int32_t v[1] = {value};
  AbsDiffChannels(src, v, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void AbsDiffVf32Lanes(const float32_t* src, float32_t value, uint32_t srcWidth, uint32_t srcHeight,
                      uint32_t srcStride, float32_t* dst, uint32_t dstStride) {
  const float32_t v[1] = {value};
  AbsDiffChannels(src, v, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void AbsDiffVc4u8Lanes(const uint8_t* src, uint8_t value1, uint8_t value2, uint8_t value3, uint8_t value4,
                       uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstStride) {
  const uint8_t v[4] = {value1, value2, value3, value4};
  AbsDiffChannels(src, v, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void AbsDiffVc4s32Lanes(const int32_t* src, int32_t value1, int32_t value2, int32_t value3, int32_t value4,
                        uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t* dst,
                        uint32_t dstStride) {
  const int32_t v[4] = {value1, value2, value3, value4};
  AbsDiffChannels(src, v, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void AbsDiffVc4f32Lanes(const float32_t* src, float32_t value1, float32_t value2, float32_t value3,
                        float32_t value4, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                        float32_t* dst, uint32_t dstStride) {
  const float32_t v[4] = {value1, value2, value3, value4};
  AbsDiffChannels(src, v, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void AbsDiffVc3u8Lanes(const uint8_t* src, uint8_t value1, uint8_t value2, uint8_t value3, uint32_t srcWidth,
                       uint32_t srcHeight, uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  const uint8_t v[3] = {value1, value2, value3};
  AbsDiffChannels(src, v, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void AbsDiffVc3s32Lanes(const int32_t* src, int32_t value1, int32_t value2, int32_t value3, uint32_t srcWidth,
                        uint32_t srcHeight, uint32_t srcStride, uint32_t* dst, uint32_t dstStride) {
  const int32_t v[3] = {value1, value2, value3};
  AbsDiffChannels(src, v, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void AbsDiffVc3f32Lanes(const float32_t* src, float32_t value1, float32_t value2, float32_t value3,
                        uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, float32_t* dst,
                        uint32_t dstStride) {
  const float32_t v[3] = {value1, value2, value3};
  AbsDiffChannels(src, v, srcWidth, srcHeight, srcStride, dst, dstStride);
}

// ---- add and subtract ----------------------------------------------------------------------

// Same-type binary operation on full vectors of tag d; vec(a, b) and one(a, b) per element.
template <class D, typename T, class VecOp, class OneOp>
HWY_INLINE void SameType(D d, const T* src1, uint32_t src1Stride, const T* src2, uint32_t src2Stride,
                         T* dst, uint32_t dstStride, uint32_t width, uint32_t height, VecOp vec, OneOp one) {
  for (uint32_t y = 0; y < height; ++y) {
    const T* a = RowOf(src1, src1Stride, y);
    const T* b = RowOf(src2, src2Stride, y);
    T* o = RowOf(dst, dstStride, y);
    ForSpan(d, width, [&](size_t x) HWY_ATTR {
      hn::StoreU(vec(hn::LoadU(d, a + x), hn::LoadU(d, b + x)), d, o + x);
    }, [&](size_t x) { o[x] = one(a[x], b[x]); });
  }
}

void Addu8u16Lanes(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                   const uint8_t* src2, uint32_t src2Stride, uint16_t* dst, uint32_t dstStride) {
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* a = RowOf(src1, src1Stride, y);
    const uint8_t* b = RowOf(src2, src2Stride, y);
    uint16_t* o = RowOf(dst, dstStride, y);
    ForSpan(d16, width, [&](size_t x) HWY_ATTR {
      hn::StoreU(hn::Add(hn::PromoteTo(d16, hn::LoadU(d8, a + x)), hn::PromoteTo(d16, hn::LoadU(d8, b + x))),
                 d16, o + x);
    }, [&](size_t x) { o[x] = static_cast<uint16_t>(a[x] + b[x]); });
  }
}

void Adds16Lanes(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                 const int16_t* src2, uint32_t src2Stride, int16_t* dst, uint32_t dstStride) {
  const hn::ScalableTag<int16_t> d;
  SameType(d, src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
           [](auto a, auto b) HWY_ATTR { return hn::SaturatedAdd(a, b); },
           [](int16_t a, int16_t b) { return rules::AddS16(a, b, 1); });
}

void Addf32Lanes(const float32_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                 const float32_t* src2, uint32_t src2Stride, float32_t* dst, uint32_t dstStride) {
  const hn::ScalableTag<float> d;
  SameType(d, src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
           [](auto a, auto b) HWY_ATTR { return hn::Add(a, b); }, [](float a, float b) { return a + b; });
}

// Wrapping or saturating add/subtract of two same-type images under a valid policy.
template <typename T>
HWY_INLINE void AddOrSubtract(bool subtract, int32_t policy, const T* src1, uint32_t width, uint32_t height,
                              uint32_t src1Stride, const T* src2, uint32_t src2Stride, T* dst,
                              uint32_t dstStride) {
  const hn::ScalableTag<T> d;
  auto one = [subtract, policy](T a, T b) {
    if constexpr (sizeof(T) == 1) return subtract ? rules::SubU8(a, b, policy) : rules::AddU8(a, b, policy);
    else return subtract ? rules::SubS16(a, b, policy) : rules::AddS16(a, b, policy);
  };
  if (subtract && policy)
    SameType(d, src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
             [](auto a, auto b) HWY_ATTR { return hn::SaturatedSub(a, b); }, one);
  else if (subtract)
    SameType(d, src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
             [](auto a, auto b) HWY_ATTR { return hn::Sub(a, b); }, one);
  else if (policy)
    SameType(d, src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
             [](auto a, auto b) HWY_ATTR { return hn::SaturatedAdd(a, b); }, one);
  else
    SameType(d, src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
             [](auto a, auto b) HWY_ATTR { return hn::Add(a, b); }, one);
}

int32_t Addu8Lanes(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                   const uint8_t* src2, uint32_t src2Stride, int32_t policy, uint8_t* dst, uint32_t dstStride) {
  if (!rules::ValidPolicy(policy)) return rules::kBadParameter;
  AddOrSubtract(false, policy, src1, width, height, src1Stride, src2, src2Stride, dst, dstStride);
  return 0;
}

int32_t Subtractu8Lanes(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                        const uint8_t* src2, uint32_t src2Stride, int32_t policy, uint8_t* dst,
                        uint32_t dstStride) {
  if (!rules::ValidPolicy(policy)) return rules::kBadParameter;
  AddOrSubtract(true, policy, src1, width, height, src1Stride, src2, src2Stride, dst, dstStride);
  return 0;
}

int32_t Adds16_v2Lanes(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                       const int16_t* src2, uint32_t src2Stride, int32_t policy, int16_t* dst,
                       uint32_t dstStride) {
  if (!rules::ValidPolicy(policy)) return rules::kBadParameter;
  AddOrSubtract(false, policy, src1, width, height, src1Stride, src2, src2Stride, dst, dstStride);
  return 0;
}

int32_t Subtracts16Lanes(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                         const int16_t* src2, uint32_t src2Stride, int32_t policy, int16_t* dst,
                         uint32_t dstStride) {
  if (!rules::ValidPolicy(policy)) return rules::kBadParameter;
  AddOrSubtract(true, policy, src1, width, height, src1Stride, src2, src2Stride, dst, dstStride);
  return 0;
}

int32_t Addu16u8u16Lanes(const uint16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                         const uint8_t* src2, uint32_t src2Stride, int32_t policy, uint16_t* dst,
                         uint32_t dstStride) {
  if (!rules::ValidPolicy(policy)) return rules::kBadParameter;
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  for (uint32_t y = 0; y < height; ++y) {
    const uint16_t* a = RowOf(src1, src1Stride, y);
    const uint8_t* b = RowOf(src2, src2Stride, y);
    uint16_t* o = RowOf(dst, dstStride, y);
    ForSpan(d16, width, [&](size_t x) HWY_ATTR {
      const auto va = hn::LoadU(d16, a + x);
      const auto vb = hn::PromoteTo(d16, hn::LoadU(d8, b + x));
      hn::StoreU(policy ? hn::SaturatedAdd(va, vb) : hn::Add(va, vb), d16, o + x);
    }, [&](size_t x) { o[x] = rules::AddU16U8(a[x], b[x], policy); });
  }
  return 0;
}

int32_t Subtractu8s16Lanes(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                           const uint8_t* src2, uint32_t src2Stride, int16_t* dst, uint32_t dstStride) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* a = RowOf(src1, src1Stride, y);
    const uint8_t* b = RowOf(src2, src2Stride, y);
    int16_t* o = RowOf(dst, dstStride, y);
    ForSpan(d16, width, [&](size_t x) HWY_ATTR {
      hn::StoreU(hn::Sub(hn::PromoteTo(d16, hn::LoadU(d8, a + x)), hn::PromoteTo(d16, hn::LoadU(d8, b + x))),
                 d16, o + x);
    }, [&](size_t x) { o[x] = static_cast<int16_t>(a[x] - b[x]); });
  }
  return 0;
}

// ---- float products and scalar forms -------------------------------------------------------

void ElementMultiplyu8u16Lanes(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                               const uint8_t* src2, uint32_t src2Stride, uint16_t* dst, uint32_t dstStride) {
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* a = RowOf(src1, src1Stride, y);
    const uint8_t* b = RowOf(src2, src2Stride, y);
    uint16_t* o = RowOf(dst, dstStride, y);
    ForSpan(d16, width, [&](size_t x) HWY_ATTR {
      hn::StoreU(hn::Mul(hn::PromoteTo(d16, hn::LoadU(d8, a + x)), hn::PromoteTo(d16, hn::LoadU(d8, b + x))),
                 d16, o + x);
    }, [&](size_t x) { o[x] = static_cast<uint16_t>(a[x] * b[x]); });
  }
}

void ElementMultiplyf32Lanes(const float32_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                             const float32_t* src2, uint32_t src2Stride, float32_t* dst, uint32_t dstStride) {
  const hn::ScalableTag<float> d;
  SameType(d, src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
           [](auto a, auto b) HWY_ATTR { return hn::Mul(a, b); }, [](float a, float b) { return a * b; });
}

// dst = f(src) for same-type images.
template <class D, typename T, class VecOp, class OneOp>
HWY_INLINE void SameTypeUnary(D d, const T* src, uint32_t srcStride, T* dst, uint32_t dstStride,
                              uint32_t width, uint32_t height, VecOp vec, OneOp one) {
  for (uint32_t y = 0; y < height; ++y) {
    const T* a = RowOf(src, srcStride, y);
    T* o = RowOf(dst, dstStride, y);
    ForSpan(d, width, [&](size_t x) HWY_ATTR { hn::StoreU(vec(hn::LoadU(d, a + x)), d, o + x); },
            [&](size_t x) { o[x] = one(a[x]); });
  }
}

int32_t AddScalarf32Lanes(const float32_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                          float32_t scalar, float32_t* dst, uint32_t dstStride) {
  const hn::ScalableTag<float> d;
  const auto s = hn::Set(d, scalar);
  SameTypeUnary(d, src, srcStride, dst, dstStride, width, height,
                [s](auto a) HWY_ATTR { return hn::Add(a, s); }, [scalar](float a) { return a + scalar; });
  return 0;
}

int32_t AddScalars16Lanes(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                          int32_t scalar, int16_t* dst, uint32_t dstStride) {
  const int16_t low = static_cast<int16_t>(static_cast<uint16_t>(scalar));
  const hn::ScalableTag<int16_t> d;
  const auto s = hn::Set(d, low);
  SameTypeUnary(d, src, srcStride, dst, dstStride, width, height,
                [s](auto a) HWY_ATTR { return hn::SaturatedAdd(a, s); },
                [low](int16_t a) { return rules::AddS16(a, low, 1); });
  return 0;
}

int32_t MultiplyScalarf32Lanes(const float32_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                               float32_t scalar, float32_t* dst, uint32_t dstStride) {
  const hn::ScalableTag<float> d;
  const auto s = hn::Set(d, scalar);
  SameTypeUnary(d, src, srcStride, dst, dstStride, width, height,
                [s](auto a) HWY_ATTR { return hn::Mul(a, s); }, [scalar](float a) { return a * scalar; });
  return 0;
}

// ---- depth conversion ----------------------------------------------------------------------

// Shifts above 8 never pass the entry's check; the reference variant keeps its meaning for them.
int32_t ConvertDepthu8s16Lanes(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                               uint32_t shift, int16_t* dst, uint32_t dstStride) {
  if (shift > 8) return tvxConvertDepthu8s16C(src, width, height, srcStride, shift, dst, dstStride);
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<int16_t, decltype(d16)> ds16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const auto limit = hn::Set(d16, 32767);
  const int bits = static_cast<int>(shift);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* a = RowOf(src, srcStride, y);
    int16_t* o = RowOf(dst, dstStride, y);
    ForSpan(d16, width, [&](size_t x) HWY_ATTR {
      const auto v = hn::ShiftLeftSame(hn::PromoteTo(d16, hn::LoadU(d8, a + x)), bits);
      hn::StoreU(hn::BitCast(ds16, hn::Min(v, limit)), ds16, o + x);
    }, [&](size_t x) { o[x] = rules::DepthU8S16(a[x], shift); });
  }
  return 0;
}

int32_t ConvertDepths16u8Lanes(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                               uint32_t shift, int32_t policy, uint8_t* dst, uint32_t dstStride) {
  if (!rules::ValidPolicy(policy)) return rules::kBadParameter;
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint16_t, decltype(d16)> du16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  // An arithmetic shift by 15 already leaves only the sign, as any larger shift does.
  const int bits = static_cast<int>(shift > 15 ? 15 : shift);
  for (uint32_t y = 0; y < height; ++y) {
    const int16_t* a = RowOf(src, srcStride, y);
    uint8_t* o = RowOf(dst, dstStride, y);
    ForSpan(d16, width, [&](size_t x) HWY_ATTR {
      const auto v = hn::ShiftRightSame(hn::LoadU(d16, a + x), bits);
      hn::StoreU(policy ? hn::DemoteTo(d8, v) : hn::TruncateTo(d8, hn::BitCast(du16, v)), d8, o + x);
    }, [&](size_t x) { o[x] = rules::DepthS16U8(a[x], shift, policy); });
  }
  return 0;
}

// NOLINTNEXTLINE(google-readability-namespace-comments)
}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(AbsDiffu8Lanes);
HWY_EXPORT(AbsDiffs32Lanes);
HWY_EXPORT(AbsDifff32Lanes);
HWY_EXPORT(AbsDiffVu8Lanes);
HWY_EXPORT(AbsDiffVs32Lanes);
HWY_EXPORT(AbsDiffVf32Lanes);
HWY_EXPORT(AbsDiffVc4u8Lanes);
HWY_EXPORT(AbsDiffVc4s32Lanes);
HWY_EXPORT(AbsDiffVc4f32Lanes);
HWY_EXPORT(AbsDiffVc3u8Lanes);
HWY_EXPORT(AbsDiffVc3s32Lanes);
HWY_EXPORT(AbsDiffVc3f32Lanes);
HWY_EXPORT(Addu8u16Lanes);
HWY_EXPORT(Adds16Lanes);
HWY_EXPORT(Addf32Lanes);
HWY_EXPORT(Addu8Lanes);
HWY_EXPORT(Subtractu8Lanes);
HWY_EXPORT(Adds16_v2Lanes);
HWY_EXPORT(Subtracts16Lanes);
HWY_EXPORT(Addu16u8u16Lanes);
HWY_EXPORT(Subtractu8s16Lanes);
HWY_EXPORT(ElementMultiplyu8u16Lanes);
HWY_EXPORT(ElementMultiplyf32Lanes);
HWY_EXPORT(AddScalarf32Lanes);
HWY_EXPORT(AddScalars16Lanes);
HWY_EXPORT(MultiplyScalarf32Lanes);
HWY_EXPORT(ConvertDepthu8s16Lanes);
HWY_EXPORT(ConvertDepths16u8Lanes);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

void tvxAbsDiffu8V(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                   uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDiffu8Lanes)(src1, src2, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxAbsDiffs32V(const int32_t* src1, const int32_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                    uint32_t srcStride, uint32_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDiffs32Lanes)(src1, src2, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxAbsDifff32V(const float32_t* src1, const float32_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                    uint32_t srcStride, float32_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDifff32Lanes)(src1, src2, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxAbsDiffVu8V(const uint8_t* src, uint8_t value, uint32_t srcWidth, uint32_t srcHeight,
                    uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDiffVu8Lanes)(src, value, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxAbsDiffVs32V(const int32_t* src, int32_t value, uint32_t srcWidth, uint32_t srcHeight,
                     uint32_t srcStride, uint32_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDiffVs32Lanes)(src, value, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxAbsDiffVf32V(const float32_t* src, float32_t value, uint32_t srcWidth, uint32_t srcHeight,
                     uint32_t srcStride, float32_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDiffVf32Lanes)(src, value, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxAbsDiffVc4u8V(const uint8_t* src, uint8_t value1, uint8_t value2, uint8_t value3, uint8_t value4,
                      uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDiffVc4u8Lanes)(src, value1, value2, value3, value4, srcWidth, srcHeight,
                                               srcStride, dst, dstStride);
}
void tvxAbsDiffVc4s32V(const int32_t* src, int32_t value1, int32_t value2, int32_t value3, int32_t value4,
                       uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t* dst,
                       uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDiffVc4s32Lanes)(src, value1, value2, value3, value4, srcWidth, srcHeight,
                                                srcStride, dst, dstStride);
}
void tvxAbsDiffVc4f32V(const float32_t* src, float32_t value1, float32_t value2, float32_t value3,
                       float32_t value4, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                       float32_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDiffVc4f32Lanes)(src, value1, value2, value3, value4, srcWidth, srcHeight,
                                                srcStride, dst, dstStride);
}
void tvxAbsDiffVc3u8V(const uint8_t* src, uint8_t value1, uint8_t value2, uint8_t value3, uint32_t srcWidth,
                      uint32_t srcHeight, uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDiffVc3u8Lanes)(src, value1, value2, value3, srcWidth, srcHeight, srcStride,
                                               dst, dstStride);
}
void tvxAbsDiffVc3s32V(const int32_t* src, int32_t value1, int32_t value2, int32_t value3, uint32_t srcWidth,
                       uint32_t srcHeight, uint32_t srcStride, uint32_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDiffVc3s32Lanes)(src, value1, value2, value3, srcWidth, srcHeight, srcStride,
                                                dst, dstStride);
}
void tvxAbsDiffVc3f32V(const float32_t* src, float32_t value1, float32_t value2, float32_t value3,
                       uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, float32_t* dst,
                       uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AbsDiffVc3f32Lanes)(src, value1, value2, value3, srcWidth, srcHeight, srcStride,
                                                dst, dstStride);
}

void tvxAddu8u16V(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                  const uint8_t* src2, uint32_t src2Stride, uint16_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Addu8u16Lanes)(src1, width, height, src1Stride, src2, src2Stride, dst, dstStride);
}
void tvxAdds16V(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                const int16_t* src2, uint32_t src2Stride, int16_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Adds16Lanes)(src1, width, height, src1Stride, src2, src2Stride, dst, dstStride);
}
void tvxAddf32V(const float32_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                const float32_t* src2, uint32_t src2Stride, float32_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Addf32Lanes)(src1, width, height, src1Stride, src2, src2Stride, dst, dstStride);
}
int32_t tvxAddu8V(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                  const uint8_t* src2, uint32_t src2Stride, int32_t policy, uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(Addu8Lanes)(src1, width, height, src1Stride, src2, src2Stride, policy, dst,
                                               dstStride);
}
int32_t tvxSubtractu8V(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                       const uint8_t* src2, uint32_t src2Stride, int32_t policy, uint8_t* dst,
                       uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(Subtractu8Lanes)(src1, width, height, src1Stride, src2, src2Stride, policy,
                                                    dst, dstStride);
}
int32_t tvxAdds16_v2V(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                      const int16_t* src2, uint32_t src2Stride, int32_t policy, int16_t* dst,
                      uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(Adds16_v2Lanes)(src1, width, height, src1Stride, src2, src2Stride, policy,
                                                   dst, dstStride);
}
int32_t tvxSubtracts16V(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                        const int16_t* src2, uint32_t src2Stride, int32_t policy, int16_t* dst,
                        uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(Subtracts16Lanes)(src1, width, height, src1Stride, src2, src2Stride, policy,
                                                     dst, dstStride);
}
int32_t tvxAddu16u8u16V(const uint16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                        const uint8_t* src2, uint32_t src2Stride, int32_t policy, uint16_t* dst,
                        uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(Addu16u8u16Lanes)(src1, width, height, src1Stride, src2, src2Stride, policy,
                                                     dst, dstStride);
}
int32_t tvxSubtractu8s16V(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                          const uint8_t* src2, uint32_t src2Stride, int16_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(Subtractu8s16Lanes)(src1, width, height, src1Stride, src2, src2Stride, dst,
                                                       dstStride);
}
void tvxElementMultiplyu8u16V(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                              const uint8_t* src2, uint32_t src2Stride, uint16_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(ElementMultiplyu8u16Lanes)(src1, width, height, src1Stride, src2, src2Stride, dst,
                                                       dstStride);
}
void tvxElementMultiplyf32V(const float32_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                            const float32_t* src2, uint32_t src2Stride, float32_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(ElementMultiplyf32Lanes)(src1, width, height, src1Stride, src2, src2Stride, dst,
                                                     dstStride);
}
int32_t tvxAddScalarf32V(const float32_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                         float32_t scalar, float32_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(AddScalarf32Lanes)(src, width, height, srcStride, scalar, dst, dstStride);
}
int32_t tvxAddScalars16V(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                         int32_t scalar, int16_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(AddScalars16Lanes)(src, width, height, srcStride, scalar, dst, dstStride);
}
int32_t tvxMultiplyScalarf32V(const float32_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                              float32_t scalar, float32_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(MultiplyScalarf32Lanes)(src, width, height, srcStride, scalar, dst,
                                                           dstStride);
}
int32_t tvxConvertDepthu8s16V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                              uint32_t shift, int16_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(ConvertDepthu8s16Lanes)(src, width, height, srcStride, shift, dst,
                                                           dstStride);
}
int32_t tvxConvertDepths16u8V(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                              uint32_t shift, int32_t policy, uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(ConvertDepths16u8Lanes)(src, width, height, srcStride, shift, policy, dst,
                                                           dstStride);
}
#endif  // HWY_ONCE
