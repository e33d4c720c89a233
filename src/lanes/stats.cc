// SIMD variants of the statistics family: minimum and maximum with their locations, image
// averages and matrix products.
//
// Min/max: one raster pass that reduces each row with vector Min/Max. Only a row whose
// extreme beats or ties the running one does more: the single-location forms search it for
// the first occurrence, the list forms replay it element by element (a better value) or
// append its ties, so the lists end exactly as the reference leaves them, stale entries past
// the count included. Floats are compared through integer keys ordered like the floats (both
// zeros share one key), which keeps comparisons exact even where vector units flush
// subnormals; an image holding a NaN goes to the reference variant.

// g++ fuses a*b+c into one FMA in C++ modes unless told not to, even across statements and
// vector intrinsics, which would round float products differently per target.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("fp-contract=off")
#endif
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/stats.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

template <typename T>
const T* RowOf(const T* base, size_t strideBytes, uint32_t y) {
  return reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(base) + static_cast<size_t>(y) * strideBytes);
}

// ---- min/max with locations ----------------------------------------------------------------

// Integer images are their own keys.
template <typename T>
struct PlainKey {
  using K = T;
  template <class D>
  static hn::Vec<D> Load(D d, const T* p) { return hn::LoadU(d, p); }
  static K Of(T v) { return v; }
};

// Floats map to signed keys ordered like the floats: negative values flip their magnitude
// bits, and -0 joins +0. NaNs are kept out beforehand.
struct FloatKey {
  using K = int32_t;
  template <class D>
  static hn::Vec<D> Load(D d, const float32_t* p) {
    const hn::Rebind<float32_t, D> df;
    const auto bits = hn::BitCast(d, hn::LoadU(df, p));
    const auto key = hn::Xor(bits, hn::And(hn::ShiftRight<31>(bits), hn::Set(d, 0x7FFFFFFF)));
    return hn::IfThenZeroElse(key == hn::Set(d, -1), key);
  }
  static K Of(float32_t v) {
    int32_t bits;
    std::memcpy(&bits, &v, 4);
    const int32_t key = bits ^ ((bits >> 31) & 0x7FFFFFFF);
    return key == -1 ? 0 : key;
  }
};

bool HasNaN(const float32_t* src, uint32_t width, uint32_t height, size_t strideBytes) {
  const hn::ScalableTag<int32_t> d;
  const hn::Rebind<float32_t, decltype(d)> df;
  const size_t N = hn::Lanes(d);
  const auto magnitude = hn::Set(d, 0x7FFFFFFF), infinity = hn::Set(d, 0x7F800000);
  auto found = hn::Zero(d);
  for (uint32_t y = 0; y < height; ++y) {
    const float32_t* row = RowOf(src, strideBytes, y);
    uint32_t x = 0;
    for (; x + N <= width; x += static_cast<uint32_t>(N)) {
      const auto bits = hn::And(hn::BitCast(d, hn::LoadU(df, row + x)), magnitude);
      found = hn::Or(found, hn::VecFromMask(d, bits > infinity));
    }
    for (; x < width; ++x)
      if (row[x] != row[x]) return true;
  }
  return !hn::AllFalse(d, hn::MaskFromVec(found));
}

// The running extreme of the raster scan, with its location list exactly as the reference
// keeps it: a strictly better value restarts the list at index 0, an equal value appends while
// there is room and is counted beyond it.
template <typename T, typename K>
struct Running {
  K key;
  T value;
  uint32_t* locX;
  uint32_t* locY;
  uint32_t capacity;
  uint32_t count;
  void Reset(K k, T v, uint32_t x, uint32_t y) {
    key = k;
    value = v;
    count = 1;
    if (capacity > 0) {
      locX[0] = x;
      locY[0] = y;
    }
  }
  void Append(uint32_t x, uint32_t y) {
    if (count < capacity) {
      locX[count] = x;
      locY[count] = y;
    }
    ++count;
  }
};

// Smallest and largest key of a row.
template <class KeyT, class D, typename T>
void RowExtremes(D d, const T* row, uint32_t width, typename KeyT::K& lo, typename KeyT::K& hi) {
  using K = typename KeyT::K;
  const size_t N = hn::Lanes(d);
  if (width < N) {
    lo = hi = KeyT::Of(row[0]);
    for (uint32_t x = 1; x < width; ++x) {
      const K k = KeyT::Of(row[x]);
      lo = k < lo ? k : lo;
      hi = k > hi ? k : hi;
    }
    return;
  }
  auto vmin = KeyT::Load(d, row), vmax = vmin;
  size_t x = N;
  for (; x + N <= width; x += N) {
    const auto k = KeyT::Load(d, row + x);
    vmin = hn::Min(vmin, k);
    vmax = hn::Max(vmax, k);
  }
  if (x < width) {  // the last group overlaps lanes already seen, which cannot change an extreme
    const auto k = KeyT::Load(d, row + width - N);
    vmin = hn::Min(vmin, k);
    vmax = hn::Max(vmax, k);
  }
  alignas(64) K lanes[hn::MaxLanes(D())];
  hn::Store(vmin, d, lanes);
  lo = lanes[0];
  for (size_t i = 1; i < N; ++i) lo = lanes[i] < lo ? lanes[i] : lo;
  hn::Store(vmax, d, lanes);
  hi = lanes[0];
  for (size_t i = 1; i < N; ++i) hi = lanes[i] > hi ? lanes[i] : hi;
}

// First x in the row whose key equals `key` (the caller knows one exists).
template <class KeyT, class D, typename T>
uint32_t FirstEqual(D d, const T* row, uint32_t width, typename KeyT::K key) {
  const size_t N = hn::Lanes(d);
  if (width >= N) {
    const auto target = hn::Set(d, key);
    size_t x = 0;
    for (; x + N <= width; x += N) {
      const intptr_t at = hn::FindFirstTrue(d, KeyT::Load(d, row + x) == target);
      if (at >= 0) return static_cast<uint32_t>(x + at);
    }
    // The last group overlaps lanes known not to match, so its first match is the one.
    const intptr_t at = hn::FindFirstTrue(d, KeyT::Load(d, row + width - N) == target);
    return static_cast<uint32_t>(width - N + at);
  }
  for (uint32_t x = 0; x < width; ++x)
    if (KeyT::Of(row[x]) == key) return x;
  return 0;
}

// Appends every location of the row equal to the running extreme, in order.
template <class KeyT, class D, typename T>
void AppendTies(D d, const T* row, uint32_t width, uint32_t y, Running<T, typename KeyT::K>& r) {
  const size_t N = hn::Lanes(d);
  const auto target = hn::Set(d, r.key);
  uint32_t x = 0;
  for (; x + N <= width; x += static_cast<uint32_t>(N)) {
    const auto equal = KeyT::Load(d, row + x) == target;
    if (hn::AllFalse(d, equal)) continue;
    if (r.count >= r.capacity) {  // a full list only counts
      r.count += static_cast<uint32_t>(hn::CountTrue(d, equal));
      continue;
    }
    for (uint32_t i = x; i < x + N; ++i)
      if (KeyT::Of(row[i]) == r.key) r.Append(i, y);
  }
  for (; x < width; ++x)
    if (KeyT::Of(row[x]) == r.key) r.Append(x, y);
}

// The reference's element-by-element update of one extreme over row[x0, width).
template <class KeyT, bool kMin, typename T>
void VisitRow(const T* row, uint32_t x0, uint32_t width, uint32_t y, Running<T, typename KeyT::K>& r, bool lists) {
  for (uint32_t x = x0; x < width; ++x) {
    const auto k = KeyT::Of(row[x]);
    if (kMin ? k < r.key : k > r.key) r.Reset(k, row[x], x, y);
    else if (lists && k == r.key) r.Append(x, y);
  }
}

// One raster pass. Rows that cannot change an extreme are only reduced; a row with an equal
// extreme appends its ties; a row with a better one is replayed element by element (list
// form) or searched for its first occurrence (single-location form).
template <class KeyT, typename T>
void ScanExtremes(const T* src, uint32_t width, uint32_t height, size_t strideBytes,
                  Running<T, typename KeyT::K>& mn, Running<T, typename KeyT::K>& mx, bool lists) {
  using K = typename KeyT::K;
  const hn::ScalableTag<K> d;
  mn.Reset(KeyT::Of(src[0]), src[0], 0, 0);
  mx.Reset(KeyT::Of(src[0]), src[0], 0, 0);
  VisitRow<KeyT, true>(src, 1, width, 0, mn, lists);
  VisitRow<KeyT, false>(src, 1, width, 0, mx, lists);
  for (uint32_t y = 1; y < height; ++y) {
    const T* row = RowOf(src, strideBytes, y);
    K lo, hi;
    RowExtremes<KeyT>(d, row, width, lo, hi);
    if (lo < mn.key) {
      if (lists) {
        VisitRow<KeyT, true>(row, 0, width, y, mn, true);
      } else {
        const uint32_t x = FirstEqual<KeyT>(d, row, width, lo);
        mn.Reset(lo, row[x], x, y);
      }
    } else if (lists && lo == mn.key) {
      AppendTies<KeyT>(d, row, width, y, mn);
    }
    if (hi > mx.key) {
      if (lists) {
        VisitRow<KeyT, false>(row, 0, width, y, mx, true);
      } else {
        const uint32_t x = FirstEqual<KeyT>(d, row, width, hi);
        mx.Reset(hi, row[x], x, y);
      }
    } else if (lists && hi == mx.key) {
      AppendTies<KeyT>(d, row, width, y, mx);
    }
  }
}

template <typename T>
bool NeedsReference(const T* src, uint32_t width, uint32_t height, size_t strideBytes) {
  if constexpr (std::is_same_v<T, float32_t>) return HasNaN(src, width, height, strideBytes);
  else return false;
}

template <class KeyT, typename T>
int32_t MinMaxLoc(const T* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, T* minVal, T* maxVal,
                  uint32_t* minLocX, uint32_t* minLocY, uint32_t* maxLocX, uint32_t* maxLocY,
                  int32_t (*reference)(const T*, uint32_t, uint32_t, uint32_t, T*, T*, uint32_t*, uint32_t*,
                                       uint32_t*, uint32_t*)) {
  const size_t stride = srcStride / sizeof(T) * sizeof(T);
  if (NeedsReference(src, srcWidth, srcHeight, stride))
    return reference(src, srcWidth, srcHeight, srcStride, minVal, maxVal, minLocX, minLocY, maxLocX, maxLocY);
  Running<T, typename KeyT::K> mn{{}, {}, minLocX, minLocY, 1, 0}, mx{{}, {}, maxLocX, maxLocY, 1, 0};
  ScanExtremes<KeyT>(src, srcWidth, srcHeight, stride, mn, mx, false);
  *minVal = mn.value;
  *maxVal = mx.value;
  return TVX_SUCCESS;
}

template <class KeyT, typename T>
int32_t MinMaxLocList(const T* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, T* minVal,
                      T* maxVal, uint32_t* minLocX, uint32_t* minLocY, uint32_t* maxLocX, uint32_t* maxLocY,
                      uint32_t* minCount, uint32_t* maxCount, uint32_t nMinLocSize, uint32_t nMaxLocSize,
                      int32_t (*reference)(const T*, uint32_t, uint32_t, uint32_t, T*, T*, uint32_t*, uint32_t*,
                                           uint32_t*, uint32_t*, uint32_t*, uint32_t*, uint32_t, uint32_t)) {
  const size_t stride = srcStride / sizeof(T) * sizeof(T);
  if (NeedsReference(src, srcWidth, srcHeight, stride))
    return reference(src, srcWidth, srcHeight, srcStride, minVal, maxVal, minLocX, minLocY, maxLocX, maxLocY,
                     minCount, maxCount, nMinLocSize, nMaxLocSize);
  Running<T, typename KeyT::K> mn{{}, {}, minLocX, minLocY, nMinLocSize, 0};
  Running<T, typename KeyT::K> mx{{}, {}, maxLocX, maxLocY, nMaxLocSize, 0};
  ScanExtremes<KeyT>(src, srcWidth, srcHeight, stride, mn, mx, true);
  *minVal = mn.value;
  *maxVal = mx.value;
  *minCount = mn.count;
  *maxCount = mx.count;
  return TVX_SUCCESS;
}

#define TVX_MINMAX_LANES(SUFFIX, T, KEY)                                                                        \
  int32_t MinMaxLoc##SUFFIX(const T* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, T* minVal,  \
                            T* maxVal, uint32_t* minLocX, uint32_t* minLocY, uint32_t* maxLocX,                  \
                            uint32_t* maxLocY) {                                                                 \
    return MinMaxLoc<KEY>(src, srcWidth, srcHeight, srcStride, minVal, maxVal, minLocX, minLocY, maxLocX,        \
                          maxLocY, &tvxMinMaxLoc##SUFFIX##C);                                                    \
  }                                                                                                              \
  int32_t MinMaxLoc##SUFFIX##_v2(const T* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,        \
                                 T* minVal, T* maxVal, uint32_t* minLocX, uint32_t* minLocY, uint32_t* maxLocX,  \
                                 uint32_t* maxLocY, uint32_t* minCount, uint32_t* maxCount,                      \
                                 uint32_t nMinLocSize, uint32_t nMaxLocSize) {                                   \
    return MinMaxLocList<KEY>(src, srcWidth, srcHeight, srcStride, minVal, maxVal, minLocX, minLocY, maxLocX,    \
                              maxLocY, minCount, maxCount, nMinLocSize, nMaxLocSize,                             \
                              &tvxMinMaxLoc##SUFFIX##_v2C);                                                      \
  }

TVX_MINMAX_LANES(u8, uint8_t, PlainKey<uint8_t>)
TVX_MINMAX_LANES(u16, uint16_t, PlainKey<uint16_t>)
TVX_MINMAX_LANES(s16, int16_t, PlainKey<int16_t>)
TVX_MINMAX_LANES(u32, uint32_t, PlainKey<uint32_t>)
TVX_MINMAX_LANES(s32, int32_t, PlainKey<int32_t>)
TVX_MINMAX_LANES(f32, float32_t, FloatKey)
#undef TVX_MINMAX_LANES

// ---- averages ------------------------------------------------------------------------------

uint32_t Averageu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                   float32_t* avgValue) {
  const hn::ScalableTag<uint8_t> d;
  const hn::Repartition<uint64_t, decltype(d)> d64;
  const size_t N = hn::Lanes(d);
  auto acc = hn::Zero(d64);
  uint64_t total = 0;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* row = RowOf(src, srcStride, y);
    size_t x = 0;
    for (; x + N <= srcWidth; x += N) acc = hn::Add(acc, hn::SumsOf8(hn::LoadU(d, row + x)));
    for (; x < srcWidth; ++x) total += row[x];
  }
  alignas(64) uint64_t lanes[hn::MaxLanes(decltype(d64)())];
  hn::Store(acc, d64, lanes);
  for (size_t i = 0; i < hn::Lanes(d64); ++i) total += lanes[i];
  // The sum wraps like a 32-bit accumulator would.
  const uint32_t sum = static_cast<uint32_t>(total);
  const uint32_t area = srcWidth * srcHeight;
  *avgValue = static_cast<float32_t>(sum) / static_cast<float32_t>(area);
  return area;
}

uint32_t Averages32(const int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                    float32_t* avgValue) {
  const hn::ScalableTag<int64_t> d64;
  const hn::Rebind<int32_t, decltype(d64)> d32;
  const size_t N = hn::Lanes(d64);
  const size_t stride = srcStride / 4 * 4;
  auto acc = hn::Zero(d64);
  uint64_t total = 0;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const int32_t* row = RowOf(src, stride, y);
    size_t x = 0;
    for (; x + N <= srcWidth; x += N) acc = hn::Add(acc, hn::PromoteTo(d64, hn::LoadU(d32, row + x)));
    for (; x < srcWidth; ++x) total += static_cast<uint64_t>(static_cast<int64_t>(row[x]));
  }
  alignas(64) int64_t lanes[hn::MaxLanes(decltype(d64)())];
  hn::Store(acc, d64, lanes);
  for (size_t i = 0; i < N; ++i) total += static_cast<uint64_t>(lanes[i]);
  const uint32_t area = srcWidth * srcHeight;
  *avgValue = static_cast<float32_t>(static_cast<int64_t>(total)) / static_cast<float32_t>(area);
  return area;
}

// ---- matrix products -----------------------------------------------------------------------
// Vectors run along a destination row: dst[i][j..j+N) accumulates src1[i][k] * src2[k][j..j+N)
// for k in order, so every element sees the same sequence of operations as the reference.

template <class D, class LoadRow, typename A>
HWY_INLINE void ProductRow(D d, const A* a, uint32_t depth, LoadRow loadB, hn::TFromD<D>* out, uint32_t width) {
  const size_t N = hn::Lanes(d);
  uint32_t j = 0;
  for (; j + 4 * N <= width; j += static_cast<uint32_t>(4 * N)) {
    auto acc0 = hn::Zero(d), acc1 = hn::Zero(d), acc2 = hn::Zero(d), acc3 = hn::Zero(d);
    for (uint32_t k = 0; k < depth; ++k) {
      const auto ak = hn::Set(d, static_cast<hn::TFromD<D>>(a[k]));
      acc0 = hn::Add(acc0, hn::Mul(ak, loadB(k, j)));
      acc1 = hn::Add(acc1, hn::Mul(ak, loadB(k, j + N)));
      acc2 = hn::Add(acc2, hn::Mul(ak, loadB(k, j + 2 * N)));
      acc3 = hn::Add(acc3, hn::Mul(ak, loadB(k, j + 3 * N)));
    }
    hn::StoreU(acc0, d, out + j);
    hn::StoreU(acc1, d, out + j + N);
    hn::StoreU(acc2, d, out + j + 2 * N);
    hn::StoreU(acc3, d, out + j + 3 * N);
  }
  for (; j + N <= width; j += static_cast<uint32_t>(N)) {
    auto acc = hn::Zero(d);
    for (uint32_t k = 0; k < depth; ++k) acc = hn::Add(acc, hn::Mul(hn::Set(d, static_cast<hn::TFromD<D>>(a[k])), loadB(k, j)));
    hn::StoreU(acc, d, out + j);
  }
}

void MatrixMultiplys8s32(const int8_t* src1, uint32_t src1Width, uint32_t src1Height, uint32_t src1Stride,
                         const int8_t* src2, uint32_t src2Width, uint32_t src2Stride, int32_t* dst,
                         uint32_t dstStride) {
  const hn::ScalableTag<int32_t> d;
  const hn::Rebind<int8_t, decltype(d)> d8;
  const size_t N = hn::Lanes(d);
  const auto loadB = [&](uint32_t k, size_t j) { return hn::PromoteTo(d, hn::LoadU(d8, RowOf(src2, src2Stride, k) + j)); };
  const uint32_t vectorWidth = static_cast<uint32_t>(src2Width / N * N);
  for (uint32_t i = 0; i < src1Height; ++i) {
    const int8_t* a = RowOf(src1, src1Stride, i);
    int32_t* out = const_cast<int32_t*>(RowOf(dst, dstStride / 4 * 4, i));
    ProductRow(d, a, src1Width, loadB, out, src2Width);
    for (uint32_t j = vectorWidth; j < src2Width; ++j) {
      uint32_t sum = 0;
      for (uint32_t k = 0; k < src1Width; ++k)
        sum += static_cast<uint32_t>(int32_t{a[k]} * int32_t{RowOf(src2, src2Stride, k)[j]});
      out[j] = static_cast<int32_t>(sum);
    }
  }
}

void MatrixMultiplyf32(const float32_t* src1, uint32_t src1Width, uint32_t src1Height, uint32_t src1Stride,
                       const float32_t* src2, uint32_t src2Width, uint32_t src2Stride, float32_t* dst,
                       uint32_t dstStride) {
  const hn::ScalableTag<float32_t> d;
  const size_t N = hn::Lanes(d);
  const size_t stride1 = src1Stride / 4 * 4, stride2 = src2Stride / 4 * 4;
  const auto loadB = [&](uint32_t k, size_t j) { return hn::LoadU(d, RowOf(src2, stride2, k) + j); };
  const uint32_t vectorWidth = static_cast<uint32_t>(src2Width / N * N);
  for (uint32_t i = 0; i < src1Height; ++i) {
    const float32_t* a = RowOf(src1, stride1, i);
    float32_t* out = const_cast<float32_t*>(RowOf(dst, dstStride / 4 * 4, i));
    ProductRow(d, a, src1Width, loadB, out, src2Width);
    for (uint32_t j = vectorWidth; j < src2Width; ++j) {
      float32_t sum = 0.0f;
      for (uint32_t k = 0; k < src1Width; ++k) {
        const float32_t product = a[k] * RowOf(src2, stride2, k)[j];
        sum += product;
      }
      out[j] = sum;
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(MinMaxLocu8);
HWY_EXPORT(MinMaxLocu16);
HWY_EXPORT(MinMaxLocs16);
HWY_EXPORT(MinMaxLocu32);
HWY_EXPORT(MinMaxLocs32);
HWY_EXPORT(MinMaxLocf32);
HWY_EXPORT(MinMaxLocu8_v2);
HWY_EXPORT(MinMaxLocu16_v2);
HWY_EXPORT(MinMaxLocs16_v2);
HWY_EXPORT(MinMaxLocu32_v2);
HWY_EXPORT(MinMaxLocs32_v2);
HWY_EXPORT(MinMaxLocf32_v2);
HWY_EXPORT(Averageu8);
HWY_EXPORT(Averages32);
HWY_EXPORT(MatrixMultiplys8s32);
HWY_EXPORT(MatrixMultiplyf32);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

#define TVX_MINMAX_DISPATCH(SUFFIX, T)                                                                          \
  int32_t tvxMinMaxLoc##SUFFIX##V(const T* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,       \
                                  T* minVal, T* maxVal, uint32_t* minLocX, uint32_t* minLocY, uint32_t* maxLocX, \
                                  uint32_t* maxLocY) {                                                          \
    return HWY_DYNAMIC_DISPATCH(MinMaxLoc##SUFFIX)(src, srcWidth, srcHeight, srcStride, minVal, maxVal,    \
                                                        minLocX, minLocY, maxLocX, maxLocY);                    \
  }                                                                                                             \
  int32_t tvxMinMaxLoc##SUFFIX##_v2V(const T* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,    \
                                     T* minVal, T* maxVal, uint32_t* minLocX, uint32_t* minLocY,                \
                                     uint32_t* maxLocX, uint32_t* maxLocY, uint32_t* minCount,                  \
                                     uint32_t* maxCount, uint32_t nMinLocSize, uint32_t nMaxLocSize) {          \
    return HWY_DYNAMIC_DISPATCH(MinMaxLoc##SUFFIX##_v2)(src, srcWidth, srcHeight, srcStride, minVal,       \
                                                             maxVal, minLocX, minLocY, maxLocX, maxLocY,        \
                                                             minCount, maxCount, nMinLocSize, nMaxLocSize);     \
  }

TVX_MINMAX_DISPATCH(u8, uint8_t)
TVX_MINMAX_DISPATCH(u16, uint16_t)
TVX_MINMAX_DISPATCH(s16, int16_t)
TVX_MINMAX_DISPATCH(u32, uint32_t)
TVX_MINMAX_DISPATCH(s32, int32_t)
TVX_MINMAX_DISPATCH(f32, float32_t)
#undef TVX_MINMAX_DISPATCH

uint32_t tvxAverageu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                       float32_t* avgValue) {
  return HWY_DYNAMIC_DISPATCH(Averageu8)(src, srcWidth, srcHeight, srcStride, avgValue);
}
uint32_t tvxAverages32V(const int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                        float32_t* avgValue) {
  return HWY_DYNAMIC_DISPATCH(Averages32)(src, srcWidth, srcHeight, srcStride, avgValue);
}
void tvxMatrixMultiplys8s32V(const int8_t* src1, uint32_t src1Width, uint32_t src1Height, uint32_t src1Stride,
                             const int8_t* src2, uint32_t src2Width, uint32_t src2Stride, int32_t* dst,
                             uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(MatrixMultiplys8s32)(src1, src1Width, src1Height, src1Stride, src2, src2Width,
                                                 src2Stride, dst, dstStride);
}
void tvxMatrixMultiplyf32V(const float32_t* src1, uint32_t src1Width, uint32_t src1Height, uint32_t src1Stride,
                           const float32_t* src2, uint32_t src2Width, uint32_t src2Stride, float32_t* dst,
                           uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(MatrixMultiplyf32)(src1, src1Width, src1Height, src1Stride, src2, src2Width,
                                               src2Stride, dst, dstStride);
}
#endif  // HWY_ONCE
