// Reference variants of the statistics family: minimum and maximum with their locations,
// image averages and matrix products.
// g++ fuses a*b+c into one FMA in C++ modes unless told not to, even across statements and
// vector intrinsics, which would round float products differently per target.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("fp-contract=off")
#endif
#include <cstddef>

#include "frame/frame.h"

namespace {

constexpr const char* kArithPath = "src/cpu/tavixArithmC";
constexpr const char* kMinMaxCondition =
    "src && srcWidth && srcHeight && minVal && maxVal && minLocX && minLocY && maxLocX && maxLocY && "
    "srcStride >= srcWidth";

template <typename T>
const T* RowOf(const T* base, size_t strideBytes, uint32_t y) {
  return reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(base) + static_cast<size_t>(y) * strideBytes);
}

// One running extreme with its location list. `Better(a, b)` is the strict order that
// replaces the extreme; equal values append to the list while it has room and are counted
// beyond it.
template <typename T>
struct Extreme {
  T value;
  uint32_t* locX;
  uint32_t* locY;
  uint32_t capacity;  // list capacity; single-location forms use 1
  uint32_t count;

  void Start(T v) {
    value = v;
    count = 1;
    if (capacity > 0) locX[0] = locY[0] = 0;
  }
  template <typename Better>
  void Visit(T v, uint32_t x, uint32_t y, Better better) {
    if (better(v, value)) {
      value = v;
      count = 1;
      if (capacity > 0) {
        locX[0] = x;
        locY[0] = y;
      }
    } else if (v == value) {
      if (count < capacity) {
        locX[count] = x;
        locY[count] = y;
      }
      ++count;
    }
  }
};

// Raster scan shared by both forms. With keepAll false only the first occurrence is kept
// (ties never replace it); with keepAll true every equal value is listed and counted.
template <typename T>
void ScanExtremes(const T* src, uint32_t width, uint32_t height, size_t strideBytes, Extreme<T>& mn,
                  Extreme<T>& mx, bool keepAll) {
  const auto less = [](T a, T b) { return a < b; };
  const auto greater = [](T a, T b) { return a > b; };
  mn.Start(src[0]);
  mx.Start(src[0]);
  for (uint32_t y = 0; y < height; ++y) {
    const T* row = RowOf(src, strideBytes, y);
    for (uint32_t x = (y == 0 ? 1 : 0); x < width; ++x) {
      const T v = row[x];
      if (keepAll) {
        mn.Visit(v, x, y, less);
        mx.Visit(v, x, y, greater);
      } else {
        if (v < mn.value) {
          mn.value = v;
          mn.locX[0] = x;
          mn.locY[0] = y;
        }
        if (v > mx.value) {
          mx.value = v;
          mx.locX[0] = x;
          mx.locY[0] = y;
        }
      }
    }
  }
}

template <typename T>
int32_t MinMaxLoc(const T* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t strideBytes, T* minVal,
                  T* maxVal, uint32_t* minLocX, uint32_t* minLocY, uint32_t* maxLocX, uint32_t* maxLocY,
                  int line) {
  const uint32_t srcStride = strideBytes / sizeof(T);
  if (!(src && srcWidth && srcHeight && minVal && maxVal && minLocX && minLocY && maxLocX && maxLocY &&
        srcStride >= srcWidth))
    tvx_fatal(kArithPath, line, kMinMaxCondition);
  Extreme<T> mn{T(), minLocX, minLocY, 1, 0};
  Extreme<T> mx{T(), maxLocX, maxLocY, 1, 0};
  ScanExtremes(src, srcWidth, srcHeight, strideBytes, mn, mx, false);
  *minVal = mn.value;
  *maxVal = mx.value;
  return TVX_SUCCESS;
}

template <typename T>
int32_t MinMaxLocList(const T* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t strideBytes, T* minVal,
                      T* maxVal, uint32_t* minLocX, uint32_t* minLocY, uint32_t* maxLocX, uint32_t* maxLocY,
                      uint32_t* minCount, uint32_t* maxCount, uint32_t nMinLocSize, uint32_t nMaxLocSize,
                      int line) {
  const uint32_t srcStride = strideBytes / sizeof(T);
  if (!(src && srcWidth && srcHeight && minVal && maxVal && minLocX && minLocY && maxLocX && maxLocY &&
        srcStride >= srcWidth))
    tvx_fatal(kArithPath, line, kMinMaxCondition);
  if (!minCount || !maxCount) tvx_fatal(kArithPath, line, "minCount && maxCount");
  Extreme<T> mn{T(), minLocX, minLocY, nMinLocSize, 0};
  Extreme<T> mx{T(), maxLocX, maxLocY, nMaxLocSize, 0};
  ScanExtremes(src, srcWidth, srcHeight, strideBytes, mn, mx, true);
  *minVal = mn.value;
  *maxVal = mx.value;
  *minCount = mn.count;
  *maxCount = mx.count;
  return TVX_SUCCESS;
}

}  // namespace

// ---- min/max with locations ----------------------------------------------------------------

#define TVX_MINMAX_REFERENCE(SUFFIX, T)                                                              \
  int32_t tvxMinMaxLoc##SUFFIX##C(const T* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, \
                                  T* minVal, T* maxVal, uint32_t* minLocX, uint32_t* minLocY,            \
                                  uint32_t* maxLocX, uint32_t* maxLocY) {                                \
    return MinMaxLoc(src, srcWidth, srcHeight, srcStride, minVal, maxVal, minLocX, minLocY, maxLocX,     \
                     maxLocY, __LINE__);                                                                 \
  }                                                                                                      \
  int32_t tvxMinMaxLoc##SUFFIX##_v2C(const T* src, uint32_t srcWidth, uint32_t srcHeight,                \
                                     uint32_t srcStride, T* minVal, T* maxVal, uint32_t* minLocX,        \
                                     uint32_t* minLocY, uint32_t* maxLocX, uint32_t* maxLocY,            \
                                     uint32_t* minCount, uint32_t* maxCount, uint32_t nMinLocSize,       \
                                     uint32_t nMaxLocSize) {                                             \
    return MinMaxLocList(src, srcWidth, srcHeight, srcStride, minVal, maxVal, minLocX, minLocY, maxLocX, \
                         maxLocY, minCount, maxCount, nMinLocSize, nMaxLocSize, __LINE__);               \
  }

TVX_MINMAX_REFERENCE(u8, uint8_t)
TVX_MINMAX_REFERENCE(u16, uint16_t)
TVX_MINMAX_REFERENCE(s16, int16_t)
TVX_MINMAX_REFERENCE(u32, uint32_t)
TVX_MINMAX_REFERENCE(s32, int32_t)
TVX_MINMAX_REFERENCE(f32, float32_t)

#undef TVX_MINMAX_REFERENCE

// ---- averages ------------------------------------------------------------------------------

uint32_t tvxAverageu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                       float32_t* avgValue) {
  uint32_t sum = 0;  // wraps like the 32-bit accumulator it stands for
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* row = RowOf(src, srcStride, y);
    for (uint32_t x = 0; x < srcWidth; ++x) sum += row[x];
  }
  const uint32_t area = srcWidth * srcHeight;
  *avgValue = static_cast<float32_t>(sum) / static_cast<float32_t>(area);
  return area;
}

uint32_t tvxAverages32C(const int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                        float32_t* avgValue) {
  uint64_t sum = 0;  // two's-complement 64-bit sum, kept unsigned so it can never be undefined
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const int32_t* row = RowOf(src, srcStride / 4 * 4, y);
    for (uint32_t x = 0; x < srcWidth; ++x) sum += static_cast<uint64_t>(static_cast<int64_t>(row[x]));
  }
  const uint32_t area = srcWidth * srcHeight;
  *avgValue = static_cast<float32_t>(static_cast<int64_t>(sum)) / static_cast<float32_t>(area);
  return area;
}

// ---- matrix products -----------------------------------------------------------------------

void tvxMatrixMultiplys8s32C(const int8_t* src1, uint32_t src1Width, uint32_t src1Height, uint32_t src1Stride,
                             const int8_t* src2, uint32_t src2Width, uint32_t src2Stride, int32_t* dst,
                             uint32_t dstStride) {
  for (uint32_t i = 0; i < src1Height; ++i) {
    const int8_t* a = RowOf(src1, src1Stride, i);
    int32_t* out = const_cast<int32_t*>(RowOf(dst, dstStride / 4 * 4, i));
    for (uint32_t j = 0; j < src2Width; ++j) {
      uint32_t sum = 0;  // 32-bit two's-complement accumulation
      for (uint32_t k = 0; k < src1Width; ++k)
        sum += static_cast<uint32_t>(int32_t{a[k]} * int32_t{RowOf(src2, src2Stride, k)[j]});
      out[j] = static_cast<int32_t>(sum);
    }
  }
}

void tvxMatrixMultiplyf32C(const float32_t* src1, uint32_t src1Width, uint32_t src1Height,
                           uint32_t src1Stride, const float32_t* src2, uint32_t src2Width, uint32_t src2Stride,
                           float32_t* dst, uint32_t dstStride) {
  const size_t stride1 = src1Stride / 4 * 4, stride2 = src2Stride / 4 * 4;
  for (uint32_t i = 0; i < src1Height; ++i) {
    const float32_t* a = RowOf(src1, stride1, i);
    float32_t* out = const_cast<float32_t*>(RowOf(dst, dstStride / 4 * 4, i));
    for (uint32_t j = 0; j < src2Width; ++j) {
      float32_t sum = 0.0f;
      for (uint32_t k = 0; k < src1Width; ++k) {
        // Separate statements keep clang from fusing them (the pragma above covers g++), so
        // every variant rounds each step the same way.
        const float32_t product = a[k] * RowOf(src2, stride2, k)[j];
        sum += product;
      }
      out[j] = sum;
    }
  }
}
