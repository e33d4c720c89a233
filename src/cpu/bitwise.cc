// Reference variants of the bitwise family: logic on u8/s32 images, bit counts and masked
// fills. Plain loops that define the results the SIMD variants must reproduce.
#include <cstddef>
#include <cstring>

#include "frame/frame.h"

namespace {

inline const uint8_t* RowAt(const void* base, size_t stride, uint32_t y) {
  return static_cast<const uint8_t*>(base) + static_cast<size_t>(y) * stride;
}
inline uint8_t* RowAt(void* base, size_t stride, uint32_t y) {
  return static_cast<uint8_t*>(base) + static_cast<size_t>(y) * stride;
}

// Byte-wise logic of two images (or one, for not) through a functor.
template <typename Op>
void ByteLogic(const uint8_t* src1, uint32_t src1Stride, const uint8_t* src2, uint32_t src2Stride,
               uint32_t width, uint32_t height, uint8_t* dst, uint32_t dstStride, Op op) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* a = RowAt(src1, src1Stride, y);
    const uint8_t* b = src2 ? RowAt(src2, src2Stride, y) : nullptr;
    uint8_t* d = RowAt(dst, dstStride, y);
    for (uint32_t x = 0; x < width; ++x) d[x] = op(a[x], b ? b[x] : uint8_t{0});
  }
}

// OR of two images with an optional per-pixel mask; strides are in bytes, elements are T.
template <typename T>
void OrMasked(const T* src1, const T* src2, uint32_t width, uint32_t height, uint32_t srcStride,
              T* dst, uint32_t dstStride, const uint8_t* mask, uint32_t maskStride) {
  const size_t srcStep = srcStride / sizeof(T) * sizeof(T);
  const size_t dstStep = dstStride / sizeof(T) * sizeof(T);
  for (uint32_t y = 0; y < height; ++y) {
    const T* a = reinterpret_cast<const T*>(RowAt(src1, srcStep, y));
    const T* b = reinterpret_cast<const T*>(RowAt(src2, srcStep, y));
    T* d = reinterpret_cast<T*>(RowAt(dst, dstStep, y));
    const uint8_t* m = mask ? RowAt(mask, maskStride, y) : nullptr;
    for (uint32_t x = 0; x < width; ++x) d[x] = (m && m[x] == 0) ? T(0) : T(a[x] | b[x]);
  }
}

uint32_t CountBits(const uint8_t* bytes, size_t count) {
  uint32_t total = 0;
  for (size_t i = 0; i < count; ++i) total += static_cast<uint32_t>(tvxPopCountTable[bytes[i]]);
  return total;
}

// Sets every pixel (kChannels elements of T) to values, or only where the mask byte is nonzero.
template <typename T, int kChannels>
void SetPixels(T* image, uint32_t width, uint32_t height, uint32_t stride, const T (&values)[kChannels],
               const uint8_t* mask, uint32_t maskStride) {
  const size_t step = stride / sizeof(T) * sizeof(T);
  for (uint32_t y = 0; y < height; ++y) {
    T* row = reinterpret_cast<T*>(RowAt(image, step, y));
    const uint8_t* m = mask ? RowAt(mask, maskStride, y) : nullptr;
    for (uint32_t x = 0; x < width; ++x) {
      if (m && m[x] == 0) continue;
      for (int c = 0; c < kChannels; ++c) row[static_cast<size_t>(x) * kChannels + c] = values[c];
    }
  }
}

}  // namespace

// ---- logic ---------------------------------------------------------------------------------

int32_t tvxBitwiseAndu8C(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                         const uint8_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  if (dst == src1 && src1Stride != dstStride) return TVX_BAD_PARAMETER;
  ByteLogic(src1, src1Stride, src2, src2Stride, width, height, dst, dstStride,
            [](uint8_t a, uint8_t b) { return static_cast<uint8_t>(a & b); });
  return TVX_SUCCESS;
}

int32_t tvxBitwiseXoru8C(const uint8_t* src1, uint32_t width, uint32_t height, uint32_t src1Stride,
                         const uint8_t* src2, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  if (dst == src1 && src1Stride != dstStride) return TVX_BAD_PARAMETER;
  ByteLogic(src1, src1Stride, src2, src2Stride, width, height, dst, dstStride,
            [](uint8_t a, uint8_t b) { return static_cast<uint8_t>(a ^ b); });
  return TVX_SUCCESS;
}

int32_t tvxBitwiseNotu8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                         uint8_t* dst, uint32_t dstStride) {
  if (dst == src && srcStride != dstStride) return TVX_BAD_PARAMETER;
  ByteLogic(src, srcStride, nullptr, 0, width, height, dst, dstStride,
            [](uint8_t a, uint8_t) { return static_cast<uint8_t>(~a); });
  return TVX_SUCCESS;
}

void tvxBitwiseOru8C(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                     uint32_t srcStride, uint8_t* dst, uint32_t dstStride, const uint8_t* mask,
                     uint32_t maskStride) {
  OrMasked(src1, src2, srcWidth, srcHeight, srcStride, dst, dstStride, mask, maskStride);
}

void tvxBitwiseOrs32C(const int32_t* src1, const int32_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                      uint32_t srcStride, int32_t* dst, uint32_t dstStride, const uint8_t* mask,
                      uint32_t maskStride) {
  OrMasked(src1, src2, srcWidth, srcHeight, srcStride, dst, dstStride, mask, maskStride);
}

// ---- bit counts ----------------------------------------------------------------------------

uint32_t tvxBitCountu8C(const uint8_t* src, uint32_t length) {
  return src ? CountBits(src, length) : 0;
}

uint32_t tvxBitCountu32C(const uint32_t* src, uint32_t length) {
  return src ? CountBits(reinterpret_cast<const uint8_t*>(src), static_cast<size_t>(length) * 4) : 0;
}

uint32_t tvxBitCount32x1u8C(const uint8_t* src) { return src ? CountBits(src, 32) : 0; }

uint32_t tvxBitCount64x1u8C(const uint8_t* src) { return src ? CountBits(src, 64) : 0; }

uint32_t tvxBitCount32x4u8C(const uint8_t* A, const uint8_t* B, const uint8_t* C, const uint8_t* D,
                            uint32_t* count) {
  count[0] = CountBits(A, 32);
  count[1] = CountBits(B, 32);
  count[2] = CountBits(C, 32);
  count[3] = CountBits(D, 32);
  return 32;
}

uint32_t tvxBitCount64x4u8C(const uint8_t* A, const uint8_t* B, const uint8_t* C, const uint8_t* D,
                            uint32_t* count) {
  count[0] = CountBits(A, 64);
  count[1] = CountBits(B, 64);
  count[2] = CountBits(C, 64);
  count[3] = CountBits(D, 64);
  return 64;
}

// ---- set elements --------------------------------------------------------------------------

void tvxSetElementsu8C(uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                       uint8_t value, const uint8_t* mask, uint32_t maskStride) {
  const uint8_t values[1] = {value};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}

void tvxSetElementss32C(int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                        int32_t value, const uint8_t* mask, uint32_t maskStride) {
  const int32_t values[1] = {value};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}

void tvxSetElementsf32C(float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                        float32_t value, const uint8_t* mask, uint32_t maskStride) {
  const float32_t values[1] = {value};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}

void tvxSetElementsc4u8C(uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                         uint8_t value1, uint8_t value2, uint8_t value3, uint8_t value4,
                         const uint8_t* mask, uint32_t maskStride) {
  const uint8_t values[4] = {value1, value2, value3, value4};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}

void tvxSetElementsc4s32C(int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          int32_t value1, int32_t value2, int32_t value3, int32_t value4,
                          const uint8_t* mask, uint32_t maskStride) {
  const int32_t values[4] = {value1, value2, value3, value4};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}

void tvxSetElementsc4f32C(float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          float32_t value1, float32_t value2, float32_t value3, float32_t value4,
                          const uint8_t* mask, uint32_t maskStride) {
  const float32_t values[4] = {value1, value2, value3, value4};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}

void tvxSetElementsc3u8C(uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                         uint8_t value1, uint8_t value2, uint8_t value3, const uint8_t* mask,
                         uint32_t maskStride) {
  const uint8_t values[3] = {value1, value2, value3};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}

void tvxSetElementsc3s32C(int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          int32_t value1, int32_t value2, int32_t value3, const uint8_t* mask,
                          uint32_t maskStride) {
  const int32_t values[3] = {value1, value2, value3};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}

void tvxSetElementsc3f32C(float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          float32_t value1, float32_t value2, float32_t value3, const uint8_t* mask,
                          uint32_t maskStride) {
  const float32_t values[3] = {value1, value2, value3};
  SetPixels(src, srcWidth, srcHeight, srcStride, values, mask, maskStride);
}
