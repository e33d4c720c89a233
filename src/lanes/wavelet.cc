// SIMD variants of the Haar and 5/3 wavelet transforms. The pass along rows runs the shared
// scalar line kernels into a scratch plane kept in image orientation; the pass down columns then
// combines whole rows of that plane in 32-bit lanes (every output row is a fixed mix of at most
// five plane rows), which is where the work vectorises. Transposed forms transpose the finished
// plane (forward) or the coefficient plane first (inverse), so each coefficient is computed by
// the same integer steps as in the reference variant.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/wavelet.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>

#include "cpu/wavelet_kernels.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace wavelet {
namespace hn = hwy::HWY_NAMESPACE;

using D32 = hn::ScalableTag<int32_t>;
using D16 = hn::Rebind<int16_t, D32>;
using V32 = hn::Vec<D32>;

constexpr const char* kPath = "src/cpu/tavixIppTransformC";

void* TakeScratch(uint64_t bytes, int line) {
  void* p = bytes <= UINT32_MAX ? tvxGetScratchBufferUnaligned_(static_cast<uint32_t>(bytes)) : nullptr;
  if (!p) tvx_fatal(kPath, line, "tmpBuf != NULL");
  return p;
}

HWY_INLINE V32 Load(const int16_t* p) { return hn::PromoteTo(D32(), hn::LoadU(D16(), p)); }
HWY_INLINE V32 K(int32_t c) { return hn::Set(D32(), c); }
template <int kBits>
HWY_INLINE V32 Descale(V32 v) {
  return hn::ShiftRight<kBits>(hn::Add(v, K(1 << (kBits - 1))));
}

// out[x] = f(rows[0][x], ..., rows[count - 1][x]) for x < width, saturated to int16; vf is the
// vector form, sf the shared scalar one for the tail.
template <int kCount, class VF, class SF>
void Combine(const int16_t* const* rows, int16_t* out, uint32_t width, VF vf, SF sf) {
  const D32 d32;
  const size_t N = hn::Lanes(d32);
  uint32_t x = 0;
  for (; x + N <= width; x += N) {
    V32 v[kCount];
    for (int i = 0; i < kCount; ++i) v[i] = Load(rows[i] + x);
    hn::StoreU(hn::DemoteTo(D16(), vf(v)), D16(), out + x);
  }
  for (; x < width; ++x) {
    int32_t s[kCount];
    for (int i = 0; i < kCount; ++i) s[i] = rows[i][x];
    out[x] = tvxwav::Sat16(sf(s));
  }
}

// Vector forms of the shared formulas, over arrays of rows.
struct HaarSum {
  V32 operator()(const V32* v) const { return Descale<15>((hn::Add(v[0], v[1]) * K(tvxwav::kHalfRoot2))); }
  int32_t operator()(const int32_t* s) const { return tvxwav::HaarSum(s[0], s[1]); }
};
struct HaarDiff {
  V32 operator()(const V32* v) const { return Descale<15>((hn::Sub(v[0], v[1]) * K(tvxwav::kHalfRoot2))); }
  int32_t operator()(const int32_t* s) const { return tvxwav::HaarDiff(s[0], s[1]); }
};
struct HaarLone {
  V32 operator()(const V32* v) const { return Descale<15>((v[0] * K(tvxwav::kRoot2))); }
  int32_t operator()(const int32_t* s) const { return tvxwav::HaarLone(s[0]); }
};
// Rows: centre, the two at distance 1, the two at distance 2.
struct Lo53 {
  V32 operator()(const V32* v) const {
    const V32 n1 = (hn::Add(v[1], v[2]) * K(tvxwav::kLo1)), n2 = (hn::Add(v[3], v[4]) * K(tvxwav::kLo2));
    return Descale<14>(hn::Add(hn::Add(n1, n2), (v[0] * K(tvxwav::kLo0))));
  }
  int32_t operator()(const int32_t* s) const { return tvxwav::Lo53(s[0], s[1] + s[2], s[3] + s[4]); }
};
struct Hi53 {
  V32 operator()(const V32* v) const {
    return Descale<15>(hn::Add((hn::Add(v[1], v[2]) * K(tvxwav::kHi1)), (v[0] * K(tvxwav::kHi0))));
  }
  int32_t operator()(const int32_t* s) const { return tvxwav::Hi53(s[0], s[1] + s[2]); }
};
struct Even53 {
  V32 operator()(const V32* v) const {
    return Descale<15>(hn::Add((v[0] * K(tvxwav::kHi0)), (hn::Add(v[1], v[2]) * K(tvxwav::kHi1))));
  }
  int32_t operator()(const int32_t* s) const { return tvxwav::Even53(s[0], s[1] + s[2]); }
};
struct Odd53 {
  V32 operator()(const V32* v) const {
    const V32 n1 = (hn::Add(v[1], v[2]) * K(tvxwav::kLo1));
    const V32 c = (v[0] * K(tvxwav::kLo0));
    const V32 n2 = (hn::Add(v[3], v[4]) * K(tvxwav::kLo2));
    return Descale<14>(hn::Add(hn::Add(n1, c), n2));
  }
  int32_t operator()(const int32_t* s) const { return tvxwav::Odd53(s[0], s[1] + s[2], s[3] + s[4]); }
};

template <int kCount, class F>
void Rows(const int16_t* const* rows, int16_t* out, uint32_t width, F f) {
  Combine<kCount>(rows, out, width, [&f](const V32* v) { return f(v); }, [&f](const int32_t* s) { return f(s); });
}

// Column pass of the forward transform: plane (width x height, rows `width` apart) into out rows.
void ForwardColumns(bool haar, const int16_t* plane, uint32_t width, uint32_t height, int16_t* out, size_t outStep) {
  const auto row = [&](int64_t p) { return plane + size_t{tvxwav::Mirror(p, height)} * width; };
  const uint32_t half = height / 2, hiBase = (height + 1) / 2;
  if (haar) {
    for (uint32_t i = 0; i < half; ++i) {
      const int16_t* r[2] = {row(2 * i), row(2 * i + 1)};
      Rows<2>(r, out + i * outStep, width, HaarSum());
      Rows<2>(r, out + (hiBase + i) * outStep, width, HaarDiff());
    }
    if (height & 1) {
      const int16_t* r[1] = {row(height - 1)};
      Rows<1>(r, out + half * outStep, width, HaarLone());
    }
    return;
  }
  for (uint32_t p = 0; p < height; ++p) {
    const int16_t* r[5] = {row(p), row(int64_t{p} - 1), row(int64_t{p} + 1), row(int64_t{p} - 2), row(int64_t{p} + 2)};
    if ((p & 1) == 0) Rows<5>(r, out + (p / 2) * outStep, width, Lo53());
    else Rows<3>(r, out + (hiBase + p / 2) * outStep, width, Hi53());
  }
}

// Column pass of the inverse: coefficient plane rows (`step` apart) into image rows of out.
void InverseColumns(bool haar, const int16_t* coef, size_t step, uint32_t width, uint32_t height, const int16_t* zeros,
                    int16_t* out) {
  const uint32_t half = height / 2, hiBase = (height + 1) / 2;
  if (haar) {
    for (uint32_t i = 0; i < half; ++i) {
      const int16_t* r[2] = {coef + i * step, coef + (hiBase + i) * step};
      Rows<2>(r, out + size_t{2 * i} * width, width, HaarSum());
      Rows<2>(r, out + size_t{2 * i + 1} * width, width, HaarDiff());
    }
    if (height & 1) {
      const int16_t* r[1] = {coef + half * step};
      Rows<1>(r, out + size_t{height - 1} * width, width, HaarLone());
    }
    return;
  }
  // Coefficient row of signal position p (a single row has no high-pass row: zeros).
  const auto c = [&](int64_t p) -> const int16_t* {
    if (height == 1) return (p & 1) ? zeros : coef;
    const uint32_t q = tvxwav::Mirror(p, height);
    return coef + ((q & 1) ? hiBase + q / 2 : q / 2) * step;
  };
  for (uint32_t p = 0; p < height; ++p) {
    const int16_t* r[5] = {c(p), c(int64_t{p} - 1), c(int64_t{p} + 1), c(int64_t{p} - 2), c(int64_t{p} + 2)};
    if ((p & 1) == 0) Rows<3>(r, out + size_t{p} * width, width, Even53());
    else Rows<5>(r, out + size_t{p} * width, width, Odd53());
  }
}

template <typename T>
void RowPass(bool haar, const T* src, size_t srcStep, uint32_t width, uint32_t height, int16_t* plane) {
  for (uint32_t y = 0; y < height; ++y) {
    if (haar) tvxwav::Haar1D(src + y * srcStep, 1, width, plane + size_t{y} * width, 1);
    else tvxwav::F53_1D(src + y * srcStep, 1, width, plane + size_t{y} * width, 1);
  }
}

template <typename T>
void Forward(bool haar, const T* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dst,
             uint32_t dstStride, bool transposed, int line) {
  const uint64_t planeElems = uint64_t{width} * height;
  int16_t* plane = static_cast<int16_t*>(TakeScratch(planeElems * 2 * (transposed ? 2 : 1), line));
  RowPass(haar, src, srcStride / sizeof(T), width, height, plane);
  const size_t dstStep = dstStride / 2;
  if (!transposed) {
    ForwardColumns(haar, plane, width, height, dst, dstStep);
  } else {
    int16_t* done = plane + planeElems;
    ForwardColumns(haar, plane, width, height, done, width);
    for (uint32_t k = 0; k < width; ++k)
      for (uint32_t j = 0; j < height; ++j) dst[k * dstStep + j] = done[size_t{j} * width + k];
  }
  tvxReleaseScratchBuffer_(plane);
}

// Inverse of a width x height image whose coefficient plane has rows `step` elements apart, or,
// when transposed, whose plane is stored transposed (rows are image columns, `step` apart).
template <typename Out>
void Inverse(bool haar, const int16_t* src, size_t step, uint32_t width, uint32_t height, bool transposed, Out* dst,
             uint32_t dstStride, int line) {
  const uint64_t planeElems = uint64_t{width} * height;
  const uint32_t longest = width > height ? width : height;
  const uint64_t elems = planeElems * (transposed ? 2 : 1) + width;  // planes, then a zero row
  const uint64_t lineOffset = (elems * 2 + 3) & ~uint64_t{3};
  uint8_t* block = static_cast<uint8_t*>(TakeScratch(lineOffset + uint64_t{longest} * 4, line));
  int16_t* plane = reinterpret_cast<int16_t*>(block);
  int16_t* zeros = plane + planeElems * (transposed ? 2 : 1);
  int32_t* tmp = reinterpret_cast<int32_t*>(block + lineOffset);
  std::memset(zeros, 0, size_t{width} * 2);
  const int16_t* coef = src;
  if (transposed) {
    int16_t* normal = plane + planeElems;
    for (uint32_t j = 0; j < height; ++j)
      for (uint32_t k = 0; k < width; ++k) normal[size_t{j} * width + k] = src[k * step + j];
    coef = normal;
    step = width;
  }
  InverseColumns(haar, coef, step, width, height, zeros, plane);
  const size_t dstStep = dstStride / sizeof(Out);
  for (uint32_t y = 0; y < height; ++y) {
    if (haar) tvxwav::IHaar1D(plane + size_t{y} * width, 1, width, tmp);
    else tvxwav::I53_1D(plane + size_t{y} * width, 1, width, tmp);
    Out* row = dst + y * dstStep;
    for (uint32_t x = 0; x < width; ++x) {
      if constexpr (sizeof(Out) == 1) row[x] = tvxwav::Sat8(tmp[x]);
      else row[x] = tvxwav::Sat16(tmp[x]);
    }
  }
  tvxReleaseScratchBuffer_(block);
}

}  // namespace wavelet

void WaveletHaarForward(const uint8_t* src, uint32_t w, uint32_t h, uint32_t srcStride, int16_t* dst,
                        uint32_t dstStride, bool transposed) {
  wavelet::Forward(true, src, w, h, srcStride, dst, dstStride, transposed, transposed ? 196 : 118);
}
void Wavelet53Forward(const int16_t* src, uint32_t w, uint32_t h, uint32_t srcStride, int16_t* dst,
                      uint32_t dstStride, bool transposed) {
  wavelet::Forward(false, src, w, h, srcStride, dst, dstStride, transposed, transposed ? 468 : 412);
}
void WaveletHaarInverse(const int16_t* src, uint32_t w, uint32_t h, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride, bool transposed) {
  if (transposed) wavelet::Inverse(true, src, srcStride / 2, h, w, true, dst, dstStride, 341);
  else wavelet::Inverse(true, src, srcStride / 2, w, h, false, dst, dstStride, 285);
}
void Wavelet53Inverse(const int16_t* src, uint32_t w, uint32_t h, uint32_t srcStride, int16_t* dst,
                      uint32_t dstStride, bool transposed) {
  if (transposed) wavelet::Inverse(false, src, srcStride / 2, h, w, true, dst, dstStride, 587);
  else wavelet::Inverse(false, src, srcStride / 2, w, h, false, dst, dstStride, 530);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(WaveletHaarForward);
HWY_EXPORT(Wavelet53Forward);
HWY_EXPORT(WaveletHaarInverse);
HWY_EXPORT(Wavelet53Inverse);
}  // namespace tvx

using namespace tvx;

void tvxDWTHaaru8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                   uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(WaveletHaarForward)(src, srcWidth, srcHeight, srcStride, dst, dstStride, false);
}
void tvxDWTHaarTransposeu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                            int16_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(WaveletHaarForward)(src, srcWidth, srcHeight, srcStride, dst, dstStride, true);
}
void tvxDWT53Tabs16V(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                     uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Wavelet53Forward)(src, srcWidth, srcHeight, srcStride, dst, dstStride, false);
}
void tvxDWT53TabTransposes16V(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              int16_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Wavelet53Forward)(src, srcWidth, srcHeight, srcStride, dst, dstStride, true);
}
void tvxIDWTHaars16V(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                     uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(WaveletHaarInverse)(src, srcWidth, srcHeight, srcStride, dst, dstStride, false);
}
void tvxIDWTHaarTransposes16V(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(WaveletHaarInverse)(src, srcWidth, srcHeight, srcStride, dst, dstStride, true);
}
void tvxIDWT53Tabs16V(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                      uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Wavelet53Inverse)(src, srcWidth, srcHeight, srcStride, dst, dstStride, false);
}
void tvxIDWT53TabTransposes16V(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                               int16_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Wavelet53Inverse)(src, srcWidth, srcHeight, srcStride, dst, dstStride, true);
}
#endif  // HWY_ONCE
