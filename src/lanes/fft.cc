// SIMD variants of the 2-D FFT and its inverse. Along a row, every butterfly stage whose half
// length covers at least one vector runs on vectors of interleaved (re, im) pairs with the
// stage's twiddles laid out as (wr, wr) and (-wi, wi) pairs; shorter stages run the shared
// scalar butterfly. Down the columns a butterfly combines two whole rows with one twiddle, so
// every stage is vector work. The operations per value are the reference variant's, in the same
// order, so both tiers give the same floats.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/fft.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <mutex>
#include <vector>

#include "cpu/fft_plan.h"
#include "frame/frame.h"

#ifndef TVX_LANES_FFT_TWIDDLES_
#define TVX_LANES_FFT_TWIDDLES_
namespace tvxfft {
// Per length, the twiddle table split for vector use: (wr, wr) pairs and (-wi, wi) pairs.
struct VectorTwiddles {
  const float* re;
  const float* im;
};
const VectorTwiddles& VectorTwiddlesFor(uint32_t bits);
}  // namespace tvxfft
#endif

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace fft {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::ScalableTag<float>;
using V = hn::Vec<D>;

// a, b <- a + w b, a - w b on n floats (n / 2 complex values), with w given per pair in wre/wim
// (wre, wim null: one twiddle (wr, wi) for all).
HWY_INLINE void Butterflies(float* a, float* b, size_t n, const float* wre, const float* wim, float wr, float wi) {
  const D d;
  const size_t N = hn::Lanes(d);
  const V cr = hn::Set(d, wr);
  const V ci = hn::Set(d, wi);
  const V sign = hn::Set(d, -1.0f);
  // (-wi, wi) for the single-twiddle case: negate the even lanes.
  const V ciPairs = hn::OddEven(ci, (ci * sign));
  size_t i = 0;
  for (; i + N <= n; i += N) {
    const V bv = hn::LoadU(d, b + i);
    const V tre = wre ? hn::LoadU(d, wre + i) : cr;
    const V tim = wim ? hn::LoadU(d, wim + i) : ciPairs;
    const V t = hn::Add((bv * tre), (hn::Reverse2(d, bv) * tim));
    const V av = hn::LoadU(d, a + i);
    hn::StoreU(hn::Add(av, t), d, a + i);
    hn::StoreU(hn::Sub(av, t), d, b + i);
  }
  for (; i < n; i += 2) {
    const float pr = wre ? wre[i] : wr, pi = wim ? wim[i + 1] : wi;
    float tr, ti;
    tvxfft::Twiddle(b[i], b[i + 1], pr, pi, &tr, &ti);
    const float ar = a[i], ai = a[i + 1];
    a[i] = ar + tr;
    a[i + 1] = ai + ti;
    b[i] = ar - tr;
    b[i + 1] = ai - ti;
  }
}

// All stages along one row of n complex values in bit-reversed order.
void RowStages(const tvxfft::Plan& p, const tvxfft::VectorTwiddles& vt, float* x) {
  const size_t N = hn::Lanes(D());
  for (uint32_t m = 1; m < p.n; m *= 2) {
    const float* w = p.twiddle + 2 * (m - 1);
    if (2 * size_t{m} >= N) {
      for (uint32_t k = 0; k < p.n; k += 2 * m)
        Butterflies(x + 2 * size_t{k}, x + 2 * size_t{k + m}, 2 * size_t{m}, vt.re + 2 * (m - 1), vt.im + 2 * (m - 1), 0, 0);
      continue;
    }
    for (uint32_t k = 0; k < p.n; k += 2 * m) {
      for (uint32_t j = 0; j < m; ++j) {
        float* a = x + 2 * size_t{k + j};
        float* b = x + 2 * size_t{k + j + m};
        float tr, ti;
        tvxfft::Twiddle(b[0], b[1], w[2 * j], w[2 * j + 1], &tr, &ti);
        const float ar = a[0], ai = a[1];
        a[0] = ar + tr;
        a[1] = ai + ti;
        b[0] = ar - tr;
        b[1] = ai - ti;
      }
    }
  }
}

void Transform2D(float* plane, size_t rowFloats, uint32_t width, uint32_t height) {
  const uint32_t wb = tvxfft::Log2(width), hb = tvxfft::Log2(height);
  const tvxfft::Plan& pw = tvxfft::PlanFor(wb);
  const tvxfft::VectorTwiddles& vt = tvxfft::VectorTwiddlesFor(wb);
  for (uint32_t y = 0; y < height; ++y) RowStages(pw, vt, plane + y * rowFloats);
  // Columns: rows into bit-reversed order, then butterflies between whole rows.
  const tvxfft::Plan& ph = tvxfft::PlanFor(hb);
  for (uint32_t y = 0; y < height; ++y) {
    const uint32_t r = ph.reversed[y];
    if (r > y)
      for (size_t i = 0; i < 2 * size_t{width}; ++i) std::swap(plane[y * rowFloats + i], plane[r * rowFloats + i]);
  }
  for (uint32_t m = 1; m < height; m *= 2) {
    const float* w = ph.twiddle + 2 * (m - 1);
    for (uint32_t k = 0; k < height; k += 2 * m)
      for (uint32_t j = 0; j < m; ++j)
        Butterflies(plane + (k + j) * rowFloats, plane + (k + j + m) * rowFloats, 2 * size_t{width}, nullptr, nullptr,
                    w[2 * j], w[2 * j + 1]);
  }
}

}  // namespace fft

void FftForward(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, float* dst, uint32_t dstStride) {
  const tvxfft::Plan& p = tvxfft::PlanFor(tvxfft::Log2(width));
  const size_t rowFloats = dstStride / 4;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* in = src + size_t{y} * srcStride;
    float* out = dst + y * rowFloats;
    for (uint32_t x = 0; x < width; ++x) {
      out[2 * p.reversed[x]] = in[x];
      out[2 * p.reversed[x] + 1] = 0.0f;
    }
  }
  fft::Transform2D(dst, rowFloats, width, height);
}

int32_t FftInverse(const float* src, uint32_t width, uint32_t height, uint32_t srcStride, float* dst, uint32_t dstStride) {
  const size_t rowFloats = 2 * size_t{width};
  const uint64_t bytes = uint64_t{rowFloats} * height * sizeof(float);
  float* plane = bytes <= UINT32_MAX ? static_cast<float*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 64))
                                     : nullptr;
  if (!plane) return 5;
  const tvxfft::Plan& p = tvxfft::PlanFor(tvxfft::Log2(width));
  const size_t srcStep = srcStride / 4, dstStep = dstStride / 4;
  for (uint32_t y = 0; y < height; ++y) {
    const float* in = src + y * srcStep;
    float* row = plane + y * rowFloats;
    for (uint32_t x = 0; x < width; ++x) {
      row[2 * p.reversed[x]] = in[2 * x];
      row[2 * p.reversed[x] + 1] = -in[2 * x + 1];
    }
  }
  fft::Transform2D(plane, rowFloats, width, height);
  const float scale = 1.0f / (static_cast<float>(width) * static_cast<float>(height));
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) dst[y * dstStep + x] = plane[y * rowFloats + 2 * x] * scale;
  tvxReleaseScratchBuffer_(plane);
  return 0;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvxfft {
const VectorTwiddles& VectorTwiddlesFor(uint32_t bits) {
  struct Store {
    std::once_flag once;
    std::vector<float> re, im;
    VectorTwiddles t;
  };
  static Store stores[31];
  Store& s = stores[bits];
  std::call_once(s.once, [&s, bits] {
    const Plan& p = PlanFor(bits);
    s.re.resize(2 * size_t{p.n});
    s.im.resize(2 * size_t{p.n});
    for (uint32_t i = 0; i + 1 < p.n; ++i) {
      s.re[2 * i] = s.re[2 * i + 1] = p.twiddle[2 * i];
      s.im[2 * i] = -p.twiddle[2 * i + 1];
      s.im[2 * i + 1] = p.twiddle[2 * i + 1];
    }
    s.t = {s.re.data(), s.im.data()};
  });
  return s.t;
}
}  // namespace tvxfft

namespace tvx {
HWY_EXPORT(FftForward);
HWY_EXPORT(FftInverse);
}  // namespace tvx

using namespace tvx;

int32_t tvxFFTu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, float* dst,
                  uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(FftForward)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
  return 0;
}

int32_t tvxIFFTf32V(const float* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, float* dst,
                    uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(FftInverse)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
#endif  // HWY_ONCE
