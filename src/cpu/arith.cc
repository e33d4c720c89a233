// Reference variants of the element-wise arithmetic family: plain loops over the per-element
// rules of arith_rules.h. They define the results that the SIMD variants reproduce.
#include "cpu/arith_rules.h"
#include "frame/frame.h"

using namespace tvx::rules;

namespace {

// dst = f(src1, src2) over a width x height rectangle; strides in bytes.
template <typename A, typename B, typename O, typename F>
void Binary(const A* src1, uint32_t src1Stride, const B* src2, uint32_t src2Stride, O* dst,
            uint32_t dstStride, uint32_t width, uint32_t height, F f) {
  for (uint32_t y = 0; y < height; ++y) {
    const A* a = RowOf(src1, src1Stride, y);
    const B* b = RowOf(src2, src2Stride, y);
    O* d = RowOf(dst, dstStride, y);
    for (uint32_t x = 0; x < width; ++x) d[x] = f(a[x], b[x]);
  }
}

// dst = f(src) over a width x height rectangle.
template <typename A, typename O, typename F>
void Unary(const A* src, uint32_t srcStride, O* dst, uint32_t dstStride, uint32_t width,
           uint32_t height, F f) {
  for (uint32_t y = 0; y < height; ++y) {
    const A* a = RowOf(src, srcStride, y);
    O* d = RowOf(dst, dstStride, y);
    for (uint32_t x = 0; x < width; ++x) d[x] = f(a[x]);
  }
}

// dst = f(src, value of the element's channel) for images of C interleaved channels.
template <size_t C, typename A, typename O, typename F>
void PerChannel(const A* src, const A (&value)[C], uint32_t srcStride, O* dst, uint32_t dstStride,
                uint32_t width, uint32_t height, F f) {
  for (uint32_t y = 0; y < height; ++y) {
    const A* a = RowOf(src, srcStride, y);
    O* d = RowOf(dst, dstStride, y);
    for (uint32_t x = 0; x < width; ++x)
      for (size_t c = 0; c < C; ++c) d[x * C + c] = f(a[x * C + c], value[c]);
  }
}

}  // namespace

// ---- absolute difference -------------------------------------------------------------------

void tvxAbsDiffu8C(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                   uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  Binary(src1, srcStride, src2, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffU8);
}

void tvxAbsDiffs32C(const int32_t* src1, const int32_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                    uint32_t srcStride, uint32_t* dst, uint32_t dstStride) {
  Binary(src1, srcStride, src2, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffS32);
}

void tvxAbsDifff32C(const float32_t* src1, const float32_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                    uint32_t srcStride, float32_t* dst, uint32_t dstStride) {
  Binary(src1, srcStride, src2, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffF32);
}

void tvxAbsDiffVu8C(const uint8_t* src, uint8_t value, uint32_t srcWidth, uint32_t srcHeight,
                    uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  const uint8_t v[1] = {value};
  PerChannel(src, v, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffU8);
}

void tvxAbsDiffVs32C(const int32_t* src, int32_t value, uint32_t srcWidth, uint32_t srcHeight,
                     uint32_t srcStride, uint32_t* dst, uint32_t dstStride) {
  const int32_t v[1] = {value};
  PerChannel(src, v, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffS32);
}

void tvxAbsDiffVf32C(const float32_t* src, float32_t value, uint32_t srcWidth, uint32_t srcHeight,
                     uint32_t srcStride, float32_t* dst, uint32_t dstStride) {
  const float32_t v[1] = {value};
  PerChannel(src, v, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffF32);
}

void tvxAbsDiffVc4u8C(const uint8_t* src, uint8_t value1, uint8_t value2, uint8_t value3, uint8_t value4,
                      uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstStride) {
  const uint8_t v[4] = {value1, value2, value3, value4};
  PerChannel(src, v, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffU8);
}

void tvxAbsDiffVc4s32C(const int32_t* src, int32_t value1, int32_t value2, int32_t value3, int32_t value4,
                       uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t* dst,
                       uint32_t dstStride) {
  const int32_t v[4] = {value1, value2, value3, value4};
  PerChannel(src, v, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffS32);
}

void tvxAbsDiffVc4f32C(const float32_t* src, float32_t value1, float32_t value2, float32_t value3,
                       float32_t value4, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                       float32_t* dst, uint32_t dstStride) {
  const float32_t v[4] = {value1, value2, value3, value4};
  PerChannel(src, v, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffF32);
}

void tvxAbsDiffVc3u8C(const uint8_t* src, uint8_t value1, uint8_t value2, uint8_t value3, uint32_t srcWidth,
                      uint32_t srcHeight, uint32_t srcStride, uint8_t* dst, uint32_t dstStride) {
  const uint8_t v[3] = {value1, value2, value3};
  PerChannel(src, v, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffU8);
}

void tvxAbsDiffVc3s32C(const int32_t* src, int32_t value1, int32_t value2, int32_t value3, uint32_t srcWidth,
                       uint32_t srcHeight, uint32_t srcStride, uint32_t* dst, uint32_t dstStride) {
  const int32_t v[3] = {value1, value2, value3};
  PerChannel(src, v, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffS32);
}

void tvxAbsDiffVc3f32C(const float32_t* src, float32_t value1, float32_t value2, float32_t value3,
                       uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, float32_t* dst,
                       uint32_t dstStride) {
  const float32_t v[3] = {value1, value2, value3};
  PerChannel(src, v, srcStride, dst, dstStride, srcWidth, srcHeight, AbsDiffF32);
}

// ---- add and subtract ----------------------------------------------------------------------

void tvxAddu8u16C(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                  const uint8_t* src2, uint32_t src2Stride, uint16_t* dst, uint32_t dstStride) {
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [](uint8_t a, uint8_t b) { return static_cast<uint16_t>(a + b); });
}

void tvxAdds16C(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                const int16_t* src2, uint32_t src2Stride, int16_t* dst, uint32_t dstStride) {
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [](int16_t a, int16_t b) { return AddS16(a, b, 1); });
}

void tvxAddf32C(const float32_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                const float32_t* src2, uint32_t src2Stride, float32_t* dst, uint32_t dstStride) {
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [](float32_t a, float32_t b) { return a + b; });
}

int32_t tvxAddu8C(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                  const uint8_t* src2, uint32_t src2Stride, int32_t policy, uint8_t* dst, uint32_t dstStride) {
  if (!ValidPolicy(policy)) return kBadParameter;
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [policy](uint8_t a, uint8_t b) { return AddU8(a, b, policy); });
  return 0;
}

int32_t tvxSubtractu8C(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                       const uint8_t* src2, uint32_t src2Stride, int32_t policy, uint8_t* dst,
                       uint32_t dstStride) {
  if (!ValidPolicy(policy)) return kBadParameter;
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [policy](uint8_t a, uint8_t b) { return SubU8(a, b, policy); });
  return 0;
}

int32_t tvxAdds16_v2C(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                      const int16_t* src2, uint32_t src2Stride, int32_t policy, int16_t* dst,
                      uint32_t dstStride) {
  if (!ValidPolicy(policy)) return kBadParameter;
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [policy](int16_t a, int16_t b) { return AddS16(a, b, policy); });
  return 0;
}

int32_t tvxSubtracts16C(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                        const int16_t* src2, uint32_t src2Stride, int32_t policy, int16_t* dst,
                        uint32_t dstStride) {
  if (!ValidPolicy(policy)) return kBadParameter;
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [policy](int16_t a, int16_t b) { return SubS16(a, b, policy); });
  return 0;
}

int32_t tvxAddu16u8u16C(const uint16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                        const uint8_t* src2, uint32_t src2Stride, int32_t policy, uint16_t* dst,
                        uint32_t dstStride) {
  if (!ValidPolicy(policy)) return kBadParameter;
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [policy](uint16_t a, uint8_t b) { return AddU16U8(a, b, policy); });
  return 0;
}

int32_t tvxSubtractu8s16C(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                          const uint8_t* src2, uint32_t src2Stride, int16_t* dst, uint32_t dstStride) {
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [](uint8_t a, uint8_t b) { return static_cast<int16_t>(a - b); });
  return 0;
}

// ---- multiply ------------------------------------------------------------------------------

void tvxElementMultiplyu8u16C(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                              const uint8_t* src2, uint32_t src2Stride, uint16_t* dst, uint32_t dstStride) {
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [](uint8_t a, uint8_t b) { return static_cast<uint16_t>(a * b); });
}

void tvxElementMultiplyf32C(const float32_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                            const float32_t* src2, uint32_t src2Stride, float32_t* dst, uint32_t dstStride) {
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [](float32_t a, float32_t b) { return a * b; });
}

int32_t tvxElementMultiplyu8C(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                              const uint8_t* src2, uint32_t src2Stride, int8_t scaleFactor, int32_t policy,
                              uint8_t* dst, uint32_t dstStride) {
  if (!ValidPolicy(policy)) return kBadParameter;
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [=](uint8_t a, uint8_t b) { return MultiplyU8(a, b, scaleFactor, policy); });
  return 0;
}

int32_t tvxElementMultiplys16C(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                               const int16_t* src2, uint32_t src2Stride, int8_t scaleFactor, int32_t policy,
                               int16_t* dst, uint32_t dstStride) {
  if (!ValidPolicy(policy)) return kBadParameter;
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [=](int16_t a, int16_t b) { return MultiplyS16(a, b, scaleFactor, policy); });
  return 0;
}

// With a positive scale factor the policy is never looked at, so any value is accepted there.
int32_t tvxElementMultiplyu8s16C(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                                 const uint8_t* src2, uint32_t src2Stride, int8_t scaleFactor,
                                 int32_t policy, int16_t* dst, uint32_t dstStride) {
  if (scaleFactor <= 0 && !ValidPolicy(policy)) return kBadParameter;
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [=](uint8_t a, uint8_t b) { return MultiplyU8S16(a, b, scaleFactor, policy); });
  return 0;
}

int32_t tvxAddWeightedu8C(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                          const uint8_t* src2, uint32_t src2Stride, float32_t alpha, float32_t beta,
                          uint8_t* dst, uint32_t dstStride) {
  const int16_t wa = FixedWeight(alpha);
  const int16_t wb = FixedWeight(beta);
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [=](uint8_t a, uint8_t b) { return AddWeightedU8(a, b, wa, wb); });
  return 0;
}

int32_t tvxAddSquaredu8u16C(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                            const uint16_t* src2, uint32_t src2Stride, int8_t scaleFactor, uint16_t* dst,
                            uint32_t dstStride) {
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height,
         [=](uint8_t a, uint16_t acc) { return AddSquaredU8U16(a, acc, scaleFactor); });
  return 0;
}

// ---- scalar forms --------------------------------------------------------------------------

int32_t tvxAddScalarf32C(const float32_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                         float32_t scalar, float32_t* dst, uint32_t dstStride) {
  Unary(src, srcStride, dst, dstStride, width, height, [=](float32_t a) { return a + scalar; });
  return 0;
}

// Only the low 16 bits of the scalar count, as a signed value.
int32_t tvxAddScalars16C(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                         int32_t scalar, int16_t* dst, uint32_t dstStride) {
  const int16_t s = static_cast<int16_t>(static_cast<uint16_t>(scalar));
  Unary(src, srcStride, dst, dstStride, width, height, [=](int16_t a) { return AddS16(a, s, 1); });
  return 0;
}

int32_t tvxMultiplyScalarf32C(const float32_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                              float32_t scalar, float32_t* dst, uint32_t dstStride) {
  Unary(src, srcStride, dst, dstStride, width, height, [=](float32_t a) { return a * scalar; });
  return 0;
}

int32_t tvxMultiplyScalars16C(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                              int16_t scalar, int8_t shift, int16_t* dst, uint32_t dstStride) {
  Unary(src, srcStride, dst, dstStride, width, height,
        [=](int16_t a) { return MultiplyScalarS16(a, scalar, shift); });
  return 0;
}

// ---- magnitude, phase, depth, look-up --------------------------------------------------------

int32_t tvxMagnitudes16C(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                         const int16_t* src2, uint32_t src2Stride, uint16_t* dst, uint32_t dstStride) {
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height, MagnitudeS16);
  return 0;
}

int32_t tvxPhases16C(const int16_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                     const int16_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  Binary(src1, src1Stride, src2, src2Stride, dst, dstStride, width, height, PhaseS16);
  return 0;
}

int32_t tvxConvertDepthu8s16C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                              uint32_t shift, int16_t* dst, uint32_t dstStride) {
  Unary(src, srcStride, dst, dstStride, width, height, [=](uint8_t v) { return DepthU8S16(v, shift); });
  return 0;
}

int32_t tvxConvertDepths16u8C(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                              uint32_t shift, int32_t policy, uint8_t* dst, uint32_t dstStride) {
  if (!ValidPolicy(policy)) return kBadParameter;
  Unary(src, srcStride, dst, dstStride, width, height,
        [=](int16_t v) { return DepthS16U8(v, shift, policy); });
  return 0;
}

int32_t tvxTableLookupu8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                          const uint8_t* lut, uint8_t* dst, uint32_t dstStride) {
  Unary(src, srcStride, dst, dstStride, width, height, [=](uint8_t v) { return lut[v]; });
  return 0;
}
