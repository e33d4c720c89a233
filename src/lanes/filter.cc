// SIMD variants of the fixed-kernel filters. Separable 3x3 filters (Gaussian, box, erode,
// dilate) reduce each source row across once into a ring of three rows and combine them down
// the column: sums in 16-bit lanes, Min/Max on bytes. The median runs a Min/Max sorting
// network over three source rows. The 5x5 and 11x11 kernels keep a row of column sums. Tails
// are scalar or go through padded copies, so no load or store leaves the caller's rows. Frame
// rows over a constant or replicated border run the same row kernels on padded copies; the
// renormalised Gaussian frames and the frame columns use the shared per-pixel rules of
// cpu/filter_rules.h. Thresholds compare whole byte vectors.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/filter.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>
#include <vector>

#include "cpu/filter_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace tvx::filter;

// ---- row engines ---------------------------------------------------------------------------

// Runs kernel k over n outputs: out[i] depends on r0, r1, r2 at i, i + 1, i + 2. Whole steps
// read the rows directly; the remainder goes through padded copies.
template <class K>
void RowKernel(const K& k, const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, uint8_t* out, size_t n) {
  const size_t step = k.Step();
  size_t i = 0;
  for (; i + step <= n; i += step) k.Apply(r0 + i, r1 + i, r2 + i, out + i);
  if (i == n) return;
  constexpr size_t kMax = K::kMaxStep;
  uint8_t t0[kMax + 2] = {}, t1[kMax + 2] = {}, t2[kMax + 2] = {}, to[kMax];
  const size_t left = n - i;
  std::memcpy(t0, r0 + i, left + 2);
  std::memcpy(t1, r1 + i, left + 2);
  std::memcpy(t2, r2 + i, left + 2);
  k.Apply(t0, t1, t2, to);
  std::memcpy(out + i, to, left);
}

// Interior pixels (x and y in 1 .. size - 2) of a 3x3 filter.
template <class K>
void Interior3x3(const K& k, const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                 uint32_t dstStride) {
  if (width < 3 || height < 3) return;
  for (uint32_t y = 1; y + 1 < height; ++y) {
    RowKernel(k, Row(src, srcStride, int64_t(y) - 1), Row(src, srcStride, y), Row(src, srcStride, y + 1),
              Row(dst, dstStride, y) + 1, width - 2);
  }
}

// Separable 3x3 filters: each source row is reduced across once (h[i] from r[i..i+2]) into a
// ring of three rows, and every output row combines three of them down the column. That is
// six loads per vector instead of nine.
template <class S>
void Separable3x3(const S& s, const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                  uint32_t dstStride) {
  if (width < 3 || height < 3) return;
  const size_t n = width - 2;
  std::vector<typename S::A> ring(3 * n);
  auto slot = [&](uint32_t y) { return ring.data() + (y % 3) * n; };
  s.Across(Row(src, srcStride, 0), slot(0), n);
  s.Across(Row(src, srcStride, 1), slot(1), n);
  for (uint32_t y = 1; y + 1 < height; ++y) {
    s.Across(Row(src, srcStride, y + 1), slot(y + 1), n);
    s.Down(slot(y - 1), slot(y), slot(y + 1), Row(dst, dstStride, y) + 1, n);
  }
}

// Minimum or maximum across and down, on bytes.
template <bool kMax>
struct SeparableMorph {
  using A = uint8_t;
  using D = hn::ScalableTag<uint8_t>;
  static hn::Vec<D> Pick(hn::Vec<D> a, hn::Vec<D> b) { return kMax ? hn::Max(a, b) : hn::Min(a, b); }
  static uint8_t Pick(uint8_t a, uint8_t b) { return kMax ? (a > b ? a : b) : (a < b ? a : b); }
  void Across(const uint8_t* r, uint8_t* h, size_t n) const {
    const D d;
    const size_t N = hn::Lanes(d);
    size_t i = 0;
    for (; i + N <= n; i += N)
      hn::StoreU(Pick(Pick(hn::LoadU(d, r + i), hn::LoadU(d, r + i + 1)), hn::LoadU(d, r + i + 2)), d, h + i);
    for (; i < n; ++i) h[i] = Pick(Pick(r[i], r[i + 1]), r[i + 2]);
  }
  void Down(const uint8_t* h0, const uint8_t* h1, const uint8_t* h2, uint8_t* out, size_t n) const {
    const D d;
    const size_t N = hn::Lanes(d);
    size_t i = 0;
    for (; i + N <= n; i += N)
      hn::StoreU(Pick(Pick(hn::LoadU(d, h0 + i), hn::LoadU(d, h1 + i)), hn::LoadU(d, h2 + i)), d, out + i);
    for (; i < n; ++i) out[i] = Pick(Pick(h0[i], h1[i]), h2[i]);
  }
};

// Weighted sums across into 16-bit lanes ([1 1 1] or [1 2 1]), then down with the same
// weights and the filter's final scaling.
template <bool kGauss>
struct SeparableSum {
  using A = uint16_t;
  using D = hn::ScalableTag<uint16_t>;
  using D8 = hn::Rebind<uint8_t, D>;
  static hn::Vec<D> Combine(hn::Vec<D> a, hn::Vec<D> b, hn::Vec<D> c) {
    return hn::Add(hn::Add(a, c), kGauss ? hn::ShiftLeft<1>(b) : b);
  }
  static uint32_t Combine(uint32_t a, uint32_t b, uint32_t c) { return a + (kGauss ? 2 * b : b) + c; }
  void Across(const uint8_t* r, uint16_t* h, size_t n) const {
    const D d;
    const D8 d8;
    const size_t N = hn::Lanes(d);
    size_t i = 0;
    for (; i + N <= n; i += N) {
      const auto a = hn::PromoteTo(d, hn::LoadU(d8, r + i)), b = hn::PromoteTo(d, hn::LoadU(d8, r + i + 1)),
                 c = hn::PromoteTo(d, hn::LoadU(d8, r + i + 2));
      hn::StoreU(Combine(a, b, c), d, h + i);
    }
    for (; i < n; ++i) h[i] = static_cast<uint16_t>(Combine(r[i], r[i + 1], r[i + 2]));
  }
  void Down(const uint16_t* h0, const uint16_t* h1, const uint16_t* h2, uint8_t* out, size_t n) const {
    const D d;
    const D8 d8;
    const hn::RebindToSigned<D> di;
    const size_t N = hn::Lanes(d);
    const auto k7282 = hn::Set(d, 7282);
    size_t i = 0;
    for (; i + N <= n; i += N) {
      const auto sum = Combine(hn::LoadU(d, h0 + i), hn::LoadU(d, h1 + i), hn::LoadU(d, h2 + i));
      const auto result = kGauss ? hn::ShiftRight<4>(sum)
                                 : hn::Add(hn::MulHigh(sum, k7282), hn::ShiftRight<15>(hn::Mul(sum, k7282)));
      hn::StoreU(hn::DemoteTo(d8, hn::BitCast(di, result)), d8, out + i);
    }
    for (; i < n; ++i) {
      const uint32_t sum = Combine(h0[i], h1[i], h2[i]);
      out[i] = kGauss ? static_cast<uint8_t>(sum >> 4) : BoxMean9(sum);
    }
  }
};

// One output row of a separable filter from three given rows.
template <class S>
void SeparableRow(const S& s, const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, uint8_t* out, size_t n) {
  std::vector<typename S::A> h(3 * n);
  s.Across(r0, h.data(), n);
  s.Across(r1, h.data() + n, n);
  s.Across(r2, h.data() + 2 * n, n);
  s.Down(h.data(), h.data() + n, h.data() + 2 * n, out, n);
}

// The frame over a constant or replicated border: the top and bottom rows run the row
// function on copies of their three source rows padded by one pixel each side; the left and
// right columns of the rows between take the shared per-pixel rule.
template <class RowFn, class F>
void BorderedFrameLanes(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride, bool replicate, uint8_t borderValue, RowFn rowFn, F windowRule) {
  const size_t padded = size_t(width) + 2;
  std::vector<uint8_t> rows(3 * padded);
  for (uint32_t y : {0u, height - 1}) {
    for (int k = 0; k < 3; ++k) {
      uint8_t* p = rows.data() + k * padded;
      const int64_t sy = int64_t(y) - 1 + k;
      const bool inside = sy >= 0 && sy < height;
      if (!inside && !replicate) {
        std::memset(p, borderValue, padded);
        continue;
      }
      const uint8_t* r = Row(src, srcStride, Clamp(sy, 0, int64_t(height) - 1));
      std::memcpy(p + 1, r, width);
      p[0] = replicate ? r[0] : borderValue;
      p[width + 1] = replicate ? r[width - 1] : borderValue;
    }
    rowFn(rows.data(), rows.data() + padded, rows.data() + 2 * padded, Row(dst, dstStride, y), width);
    if (height == 1) break;
  }
  for (uint32_t y = 1; y + 1 < height; ++y) {
    for (uint32_t x : {0u, width - 1}) {
      uint8_t win[9];
      Window3x3(src, width, height, srcStride, x, y, replicate, borderValue, win);
      Row(dst, dstStride, y)[x] = windowRule(win);
      if (width == 1) break;
    }
  }
}

// ---- kernels -------------------------------------------------------------------------------

// Whole byte vectors.
struct Bytes {
  using D = hn::ScalableTag<uint8_t>;
  static constexpr size_t kMaxStep = hn::MaxLanes(D());
  size_t Step() const { return hn::Lanes(D()); }
};

// Median of nine: columns sorted with Min/Max, then the median of the largest minimum, the
// median of the medians and the smallest maximum.
struct Median3x3 : Bytes {
  using V = hn::Vec<D>;
  static void Sort2(V& a, V& b) {
    const V lo = hn::Min(a, b);
    b = hn::Max(a, b);
    a = lo;
  }
  static V Med3(V a, V b, V c) { return hn::Max(hn::Min(a, b), hn::Min(hn::Max(a, b), c)); }
  void Apply(const uint8_t* r0, const uint8_t* r1, const uint8_t* r2, uint8_t* out) const {
    const D d;
    V lo[3], mid[3], hi[3];
    for (size_t k = 0; k < 3; ++k) {
      V a = hn::LoadU(d, r0 + k), b = hn::LoadU(d, r1 + k), c = hn::LoadU(d, r2 + k);
      Sort2(a, b);
      Sort2(b, c);
      Sort2(a, b);
      lo[k] = a, mid[k] = b, hi[k] = c;
    }
    const V maxOfMins = hn::Max(hn::Max(lo[0], lo[1]), lo[2]);
    const V minOfMaxes = hn::Min(hn::Min(hi[0], hi[1]), hi[2]);
    hn::StoreU(Med3(maxOfMins, Med3(mid[0], mid[1], mid[2]), minOfMaxes), d, out);
  }
};

// ---- Gaussian 5x5 ---------------------------------------------------------------------------

// Separable 5x5 binomial on T (u8 or s16) with sums in A (u16 or s32, wide enough for the
// full 256-weight sum): a vertical pass into a row of column sums, then [1 4 6 4 1] across.
template <typename T, typename A>
void Gauss5x5Lanes(const T* src, uint32_t width, uint32_t height, uint32_t srcStride, T* dst, uint32_t dstStride,
                   int32_t blurBorder) {
  const hn::ScalableTag<A> da;
  const hn::Rebind<T, decltype(da)> dt;
  const size_t N = hn::Lanes(da);
  const auto load = [&](const T* p) { return hn::PromoteTo(da, hn::LoadU(dt, p)); };
  const auto binomial = [](auto a, auto b, auto c, auto d, auto e) {  // a + 4b + 6c + 4d + e
    const auto bd = hn::Add(b, d);
    return hn::Add(hn::Add(hn::Add(a, e), hn::ShiftLeft<2>(bd)), hn::Add(hn::ShiftLeft<2>(c), hn::ShiftLeft<1>(c)));
  };
  if (width > 4 && height > 4) {
    std::vector<A> col(width);
    for (uint32_t y = 2; y + 2 < height; ++y) {
      const T* r[5];
      for (int k = 0; k < 5; ++k) r[k] = RowOf(src, srcStride, int64_t(y) - 2 + k);
      size_t x = 0;
      for (; x + N <= width; x += N)
        hn::StoreU(binomial(load(r[0] + x), load(r[1] + x), load(r[2] + x), load(r[3] + x), load(r[4] + x)), da,
                   col.data() + x);
      for (; x < width; ++x)
        col[x] = static_cast<A>(r[0][x] + 4 * r[1][x] + 6 * r[2][x] + 4 * r[3][x] + r[4][x]);
      T* out = RowOf(dst, dstStride, y);
      const A* c = col.data();
      x = 2;
      for (; x + N + 2 <= width; x += N) {
        const auto sum = binomial(hn::LoadU(da, c + x - 2), hn::LoadU(da, c + x - 1), hn::LoadU(da, c + x),
                                  hn::LoadU(da, c + x + 1), hn::LoadU(da, c + x + 2));
        const auto mean = hn::ShiftRight<8>(sum);
        if constexpr (sizeof(T) == 1) hn::StoreU(hn::DemoteTo(dt, hn::BitCast(hn::RebindToSigned<decltype(da)>(), mean)), dt, out + x);
        else hn::StoreU(hn::DemoteTo(dt, mean), dt, out + x);
      }
      for (; x + 2 < width; ++x) {
        const int64_t sum = int64_t(c[x - 2]) + 4 * int64_t(c[x - 1]) + 6 * int64_t(c[x]) + 4 * int64_t(c[x + 1]) + c[x + 2];
        out[x] = static_cast<T>(sum >> 8);
      }
    }
  }
  if (blurBorder) GaussRenormalisedFrame5x5(src, width, height, srcStride, dst, dstStride);
}

void Gaussian5x5(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                 uint32_t dstStride, int32_t blurBorder) {
  Gauss5x5Lanes<uint8_t, uint16_t>(src, srcWidth, srcHeight, srcStride, dst, dstStride, blurBorder);
}
void Gaussian5x5s16(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
                    uint32_t dstStride, int32_t blurBorder) {
  Gauss5x5Lanes<int16_t, int32_t>(src, srcWidth, srcHeight, srcStride, dst, dstStride, blurBorder);
}

// 11x11 binomial on bytes: column sums (up to 1024 x 255) and the full sum (up to 2^20 x 255)
// in 32-bit lanes.
void Gaussian11x11(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                   uint32_t dstStride, int32_t blurBorder) {
  const hn::ScalableTag<uint32_t> d;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const hn::RebindToSigned<decltype(d)> di;
  const size_t N = hn::Lanes(d);
  if (width > 10 && height > 10) {
    std::vector<uint32_t> col(width);
    for (uint32_t y = 5; y + 5 < height; ++y) {
      const uint8_t* r[11];
      for (int k = 0; k < 11; ++k) r[k] = Row(src, srcStride, int64_t(y) - 5 + k);
      size_t x = 0;
      for (; x + N <= width; x += N) {
        auto sum = hn::PromoteTo(d, hn::LoadU(d8, r[0] + x));
        for (int k = 1; k < 11; ++k)
          sum = hn::Add(sum, hn::Mul(hn::Set(d, kBinomial11[k]), hn::PromoteTo(d, hn::LoadU(d8, r[k] + x))));
        hn::StoreU(sum, d, col.data() + x);
      }
      for (; x < width; ++x) {
        uint32_t sum = 0;
        for (int k = 0; k < 11; ++k) sum += uint32_t(kBinomial11[k]) * r[k][x];
        col[x] = sum;
      }
      uint8_t* out = Row(dst, dstStride, y);
      x = 5;
      for (; x + N + 5 <= width; x += N) {
        auto sum = hn::LoadU(d, &col[x - 5]);
        for (int k = 1; k < 11; ++k) sum = hn::Add(sum, hn::Mul(hn::Set(d, kBinomial11[k]), hn::LoadU(d, &col[x - 5 + k])));
        hn::StoreU(hn::DemoteTo(d8, hn::BitCast(di, hn::ShiftRight<20>(sum))), d8, out + x);
      }
      for (; x + 5 < width; ++x) {
        uint32_t sum = 0;
        for (int k = 0; k < 11; ++k) sum += uint32_t(kBinomial11[k]) * col[x - 5 + k];
        out[x] = static_cast<uint8_t>(sum >> 20);
      }
    }
  }
  if (blurBorder) GaussRenormalisedFrame<5>(src, width, height, srcStride, dst, dstStride, kBinomial11);
}

// Box means of (2R+1)-square windows: column sums and window sums in 16-bit lanes (at most
// 121 x 255), then the rounded division by the area as a multiply by m = ceil(2^k / area) and
// a shift: m * area exceeds 2^k by e < area, so the quotient is exact while n * e < 2^k, far
// above the largest rounded sum (area x 256).
template <int R>
struct BoxDivider {
  static constexpr uint32_t kShift = R == 2 ? 20 : 22;
  static constexpr uint32_t kMul = ((1u << kShift) + kBoxArea<R> - 1) / kBoxArea<R>;
};

template <int R>
void BoxMeanLanes(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                  uint32_t dstStride) {
  const hn::ScalableTag<uint32_t> d32;
  const hn::Rebind<uint16_t, decltype(d32)> d16;
  const hn::Rebind<uint8_t, decltype(d32)> d8;
  const hn::RebindToSigned<decltype(d32)> di;
  const size_t N = hn::Lanes(d32);
  constexpr int K = 2 * R + 1;
  if (width > 2 * R && height > 2 * R) {
    std::vector<uint16_t> col(width);
    for (uint32_t y = R; y + R < height; ++y) {
      size_t x = 0;
      for (; x + N <= width; x += N) {
        auto sum = hn::Zero(d32);
        for (int k = 0; k < K; ++k) sum = hn::Add(sum, hn::PromoteTo(d32, hn::LoadU(d8, Row(src, srcStride, int64_t(y) - R + k) + x)));
        hn::StoreU(hn::DemoteTo(d16, hn::BitCast(di, sum)), d16, col.data() + x);
      }
      for (; x < width; ++x) {
        uint32_t sum = 0;
        for (int k = 0; k < K; ++k) sum += Row(src, srcStride, int64_t(y) - R + k)[x];
        col[x] = static_cast<uint16_t>(sum);
      }
      uint8_t* out = Row(dst, dstStride, y);
      const auto half = hn::Set(d32, kBoxArea<R> / 2), mul = hn::Set(d32, BoxDivider<R>::kMul);
      x = R;
      for (; x + N + R <= width; x += N) {
        auto sum = half;
        for (int k = 0; k < K; ++k) sum = hn::Add(sum, hn::PromoteTo(d32, hn::LoadU(d16, &col[x - R + k])));
        const auto mean = hn::ShiftRight<BoxDivider<R>::kShift>(hn::Mul(sum, mul));
        hn::StoreU(hn::DemoteTo(d8, hn::BitCast(di, mean)), d8, out + x);
      }
      for (; x + R < width; ++x) {
        uint32_t sum = 0;
        for (int k = 0; k < K; ++k) sum += col[x - R + k];
        out[x] = BoxRoundedMean<R>(sum);
      }
    }
  }
  BoxMeanFrame<R>(src, width, height, srcStride, dst, dstStride);
}
void Box5x5(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
            uint32_t dstStride) {
  BoxMeanLanes<2>(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void Box11x11(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
              uint32_t dstStride) {
  BoxMeanLanes<5>(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

// 32-bit pixels: a full 256-weight sum needs 40 bits, so each pixel is split into its signed
// high and unsigned low 16 bits, both summed exactly in 32-bit lanes, and
// (hi * 65536 + lo) >> 8 = (hi << 8) + (lo >> 8) since the low sum is never negative.
void Gaussian5x5s32(const int32_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int32_t* dst,
                    uint32_t dstStride, int32_t blurBorder) {
  const hn::ScalableTag<int32_t> d;
  const size_t N = hn::Lanes(d);
  const auto binomial = [](auto a, auto b, auto c, auto e, auto f) {  // a + 4b + 6c + 4e + f
    return hn::Add(hn::Add(hn::Add(a, f), hn::ShiftLeft<2>(hn::Add(b, e))), hn::Add(hn::ShiftLeft<2>(c), hn::ShiftLeft<1>(c)));
  };
  const auto mask = hn::Set(d, 0xFFFF);
  if (width > 4 && height > 4) {
    std::vector<int32_t> lo(width), hi(width);
    for (uint32_t y = 2; y + 2 < height; ++y) {
      const int32_t* r[5];
      for (int k = 0; k < 5; ++k) r[k] = RowOf(src, srcStride, int64_t(y) - 2 + k);
      size_t x = 0;
      for (; x + N <= width; x += N) {
        hn::Vec<decltype(d)> l[5], h[5];
        for (int k = 0; k < 5; ++k) {
          const auto v = hn::LoadU(d, r[k] + x);
          l[k] = hn::And(v, mask);
          h[k] = hn::ShiftRight<16>(v);
        }
        hn::StoreU(binomial(l[0], l[1], l[2], l[3], l[4]), d, lo.data() + x);
        hn::StoreU(binomial(h[0], h[1], h[2], h[3], h[4]), d, hi.data() + x);
      }
      for (; x < width; ++x) {
        int32_t l[5], h[5];
        for (int k = 0; k < 5; ++k) l[k] = r[k][x] & 0xFFFF, h[k] = r[k][x] >> 16;
        lo[x] = l[0] + 4 * l[1] + 6 * l[2] + 4 * l[3] + l[4];
        hi[x] = h[0] + 4 * h[1] + 6 * h[2] + 4 * h[3] + h[4];
      }
      int32_t* out = RowOf(dst, dstStride, y);
      x = 2;
      for (; x + N + 2 <= width; x += N) {
        const auto sumLo = binomial(hn::LoadU(d, &lo[x - 2]), hn::LoadU(d, &lo[x - 1]), hn::LoadU(d, &lo[x]),
                                    hn::LoadU(d, &lo[x + 1]), hn::LoadU(d, &lo[x + 2]));
        const auto sumHi = binomial(hn::LoadU(d, &hi[x - 2]), hn::LoadU(d, &hi[x - 1]), hn::LoadU(d, &hi[x]),
                                    hn::LoadU(d, &hi[x + 1]), hn::LoadU(d, &hi[x + 2]));
        hn::StoreU(hn::Add(hn::ShiftLeft<8>(sumHi), hn::ShiftRight<8>(sumLo)), d, out + x);
      }
      for (; x + 2 < width; ++x) {
        const int64_t sumLo = int64_t(lo[x - 2]) + 4 * lo[x - 1] + 6 * lo[x] + 4 * lo[x + 1] + lo[x + 2];
        const int64_t sumHi = int64_t(hi[x - 2]) + 4 * hi[x - 1] + 6 * hi[x] + 4 * hi[x + 1] + hi[x + 2];
        out[x] = static_cast<int32_t>(sumHi * 256 + (sumLo >> 8));
      }
    }
  }
  if (blurBorder) GaussRenormalisedFrame5x5(src, width, height, srcStride, dst, dstStride);
}

// ---- per-pixel thresholds --------------------------------------------------------------------

// dst = pick(src) where pick(v) selects between two constants by comparisons; the scalar
// tail applies the same rule to the last width % lanes pixels.
template <typename VecRule, typename ScalarRule>
void PerPixel(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
              uint32_t dstStride, VecRule vec, ScalarRule scalar) {
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = Row(src, srcStride, y);
    uint8_t* o = Row(dst, dstStride, y);
    size_t x = 0;
    for (; x + N <= width; x += N) hn::StoreU(vec(hn::LoadU(d, s + x)), d, o + x);
    for (; x < width; ++x) o[x] = scalar(s[x]);
  }
}

// 255 where src >= threshold (0..256), else 0; inverse: 255 where src < threshold.
void ThresholdAtLeast(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstStride, uint32_t threshold, bool inverse) {
  const hn::ScalableTag<uint8_t> d;
  const auto v255 = hn::Set(d, 255);
  if (threshold > 255) {  // nothing reaches it
    const uint8_t fill = inverse ? 255 : 0;
    PerPixel(src, width, height, srcStride, dst, dstStride, [&](auto) { return hn::Set(d, fill); },
             [&](uint8_t) { return fill; });
    return;
  }
  const auto t = hn::Set(d, static_cast<uint8_t>(threshold));
  const uint8_t below = inverse ? 255 : 0, above = inverse ? 0 : 255;
  PerPixel(src, width, height, srcStride, dst, dstStride,
           [&](auto v) { return inverse ? hn::IfThenElseZero(t > v, v255) : hn::IfThenZeroElse(t > v, v255); },
           [&](uint8_t v) { return v < threshold ? below : above; });
}

void Threshold(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
               uint32_t dstStride, uint32_t threshold) {
  ThresholdAtLeast(src, srcWidth, srcHeight, srcStride, dst, dstStride, threshold < 255 ? threshold : 255, false);
}

int32_t ThresholdAbove(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstStride, uint32_t threshold, uint8_t trueValue, uint8_t falseValue) {
  const hn::ScalableTag<uint8_t> d;
  const auto yes = hn::Set(d, trueValue), no = hn::Set(d, falseValue);
  const auto t = hn::Set(d, static_cast<uint8_t>(threshold < 255 ? threshold : 255));
  PerPixel(src, srcWidth, srcHeight, srcStride, dst, dstStride, [&](auto v) { return hn::IfThenElse(v > t, yes, no); },
           [&](uint8_t v) { return v > threshold ? trueValue : falseValue; });
  return TVX_SUCCESS;
}

int32_t ThresholdRange(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstStride, uint8_t lowThresh, uint8_t highThresh, uint8_t trueValue,
                       uint8_t falseValue) {
  const hn::ScalableTag<uint8_t> d;
  const auto yes = hn::Set(d, trueValue), no = hn::Set(d, falseValue);
  const auto lo = hn::Set(d, lowThresh), hi = hn::Set(d, highThresh);
  PerPixel(src, srcWidth, srcHeight, srcStride, dst, dstStride,
           [&](auto v) { return hn::IfThenElse(hn::Or(lo > v, v > hi), no, yes); },
           [&](uint8_t v) { return lowThresh <= v && v <= highThresh ? trueValue : falseValue; });
  return TVX_SUCCESS;
}
int32_t ThresholdRange255(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          uint8_t* dst, uint32_t dstStride, uint8_t lowThresh, uint8_t highThresh) {
  return ThresholdRange(src, srcWidth, srcHeight, srcStride, dst, dstStride, lowThresh, highThresh, 255, 0);
}

// The histogram is a scalar pass with one sub-histogram per byte of an 8-byte load: equal
// neighbouring pixels (flat areas) then never increment the same counter twice in a row, which
// would chain the increments through store-to-load forwarding. The level search is shared with
// the reference; the threshold is SIMD.
void ThresholdOtsu(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                   uint32_t dstStride, int32_t thresholdType) {
  const uint64_t total = uint64_t(srcWidth) * srcHeight;
  if (total == 0) return;
  uint32_t sub[8][256] = {};
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* s = Row(src, srcStride, y);
    uint32_t x = 0;
    for (; x + 8 <= srcWidth; x += 8) {
      uint64_t v;
      std::memcpy(&v, s + x, 8);
      for (int k = 0; k < 8; ++k) ++sub[k][(v >> (8 * k)) & 0xFF];
    }
    for (; x < srcWidth; ++x) ++sub[0][s[x]];
  }
  uint32_t hist[256];
  for (int i = 0; i < 256; ++i) {
    hist[i] = 0;
    for (int k = 0; k < 8; ++k) hist[i] += sub[k][i];
  }
  const uint32_t threshold = OtsuLevel(hist, total) + 1;
  if (thresholdType == 1) ThresholdAtLeast(src, srcWidth, srcHeight, srcStride, dst, dstStride, threshold, true);
  else ThresholdAtLeast(src, srcWidth, srcHeight, srcStride, dst, dstStride, threshold < 255 ? threshold : 255, false);
}

// ---- kernels behind the dispatch -------------------------------------------------------------

void Gaussian3x3(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                 uint32_t dstStride, int32_t blurBorder) {
  Separable3x3(SeparableSum<true>(), src, srcWidth, srcHeight, srcStride, dst, dstStride);
  if (blurBorder) GaussRenormalisedFrame3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

int32_t Gaussian3x3Bordered(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                            uint8_t* dst, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  Separable3x3(SeparableSum<true>(), src, srcWidth, srcHeight, srcStride, dst, dstStride);
  if (borderType == kBorderUndefined) {
    GaussRenormalisedFrame3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride);
  } else {
    BorderedFrameLanes(
        src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType == kBorderReplicate, borderValue,
        [](const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* o, size_t n) {
          SeparableRow(SeparableSum<true>(), a, b, c, o, n);
        },
        GaussOfWindow);
  }
  return TVX_SUCCESS;
}

template <bool kMax>
int32_t Morph(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
              uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  Separable3x3(SeparableMorph<kMax>(), src, srcWidth, srcHeight, srcStride, dst, dstStride);
  BorderedFrameLanes(
      src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType != kBorderConstant, borderValue,
      [](const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* o, size_t n) {
        SeparableRow(SeparableMorph<kMax>(), a, b, c, o, n);
      },
      kMax ? MaxOfWindow : MinOfWindow);
  return TVX_SUCCESS;
}
// The strided forms look at the pixels inside the image, which is what replication gives.
void Erode3x3(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
              uint32_t dstStride) {
  Morph<false>(src, srcWidth, srcHeight, srcStride, dst, dstStride, kBorderReplicate, 0);
}
void Dilate3x3(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
               uint32_t dstStride) {
  Morph<true>(src, srcWidth, srcHeight, srcStride, dst, dstStride, kBorderReplicate, 0);
}
int32_t Erode3x3Bordered(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                         uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  return Morph<false>(src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType, borderValue);
}
int32_t Dilate3x3Bordered(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                          uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  return Morph<true>(src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType, borderValue);
}

void MedianInterior3x3(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstStride) {
  Interior3x3(Median3x3(), src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
int32_t Median3x3Bordered(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                          uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  Interior3x3(Median3x3(), src, srcWidth, srcHeight, srcStride, dst, dstStride);
  BorderedFrameLanes(
      src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType != kBorderConstant, borderValue,
      [](const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* o, size_t n) {
        RowKernel(Median3x3(), a, b, c, o, n);
      },
      MedianOfWindow);
  return TVX_SUCCESS;
}

int32_t BoxBordered(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate) return TVX_BAD_PARAMETER;
  Separable3x3(SeparableSum<false>(), src, srcWidth, srcHeight, srcStride, dst, dstStride);
  BorderedFrameLanes(
      src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType == kBorderReplicate,
      borderType == kBorderConstant ? borderValue : uint8_t{0},
      [](const uint8_t* a, const uint8_t* b, const uint8_t* c, uint8_t* o, size_t n) {
        SeparableRow(SeparableSum<false>(), a, b, c, o, n);
      },
      BoxOfWindow);
  return TVX_SUCCESS;
}
void Box(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
         uint32_t dstStride) {
  BoxBordered(src, srcWidth, srcHeight, srcStride, dst, dstStride, kBorderUndefined, 0);
}

// ---- adaptive thresholds --------------------------------------------------------------------

template <typename Blur>
void AdaptiveLanes(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t maxValue,
                   int32_t thresholdType, int32_t value, uint8_t* dst, uint32_t dstStride, Blur blur) {
  if (AdaptiveShortcut(srcWidth, srcHeight, maxValue, thresholdType, value, dst, dstStride)) return;
  blur();
  const AdaptiveRule rule(maxValue, thresholdType, value);
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  const auto t = hn::Set(d, rule.t), maxv = hn::Set(d, maxValue);
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* s = Row(src, srcStride, y);
    uint8_t* o = Row(dst, dstStride, y);
    size_t x = 0;
    for (; x + N <= srcWidth; x += N) {
      const auto sv = hn::LoadU(d, s + x), bv = hn::LoadU(d, o + x);
      const auto dist = rule.positive ? hn::SaturatedSub(bv, sv) : hn::SaturatedSub(sv, bv);
      const auto on = rule.belowWins ? (t > dist) : (dist > t);
      hn::StoreU(hn::IfThenElseZero(on, maxv), d, o + x);
    }
    for (; x < srcWidth; ++x) o[x] = rule(s[x], o[x]);
  }
}

void AdaptiveGaussian3x3(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                         uint8_t maxValue, int32_t thresholdType, int32_t value, uint8_t* dst, uint32_t dstStride) {
  AdaptiveLanes(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
                [&] { Gaussian3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride, 1); });
}
void AdaptiveGaussian5x5(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                         uint8_t maxValue, int32_t thresholdType, int32_t value, uint8_t* dst, uint32_t dstStride) {
  AdaptiveLanes(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
                [&] { Gaussian5x5(src, srcWidth, srcHeight, srcStride, dst, dstStride, 1); });
}
void AdaptiveGaussian11x11(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                           uint8_t maxValue, int32_t thresholdType, int32_t value, uint8_t* dst, uint32_t dstStride) {
  AdaptiveLanes(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
                [&] { Gaussian11x11(src, srcWidth, srcHeight, srcStride, dst, dstStride, 1); });
}
void AdaptiveMean5x5(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t maxValue,
                     int32_t thresholdType, int32_t value, uint8_t* dst, uint32_t dstStride) {
  AdaptiveLanes(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
                [&] { Box5x5(src, srcWidth, srcHeight, srcStride, dst, dstStride); });
}
void AdaptiveMean11x11(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                       uint8_t maxValue, int32_t thresholdType, int32_t value, uint8_t* dst, uint32_t dstStride) {
  AdaptiveLanes(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
                [&] { Box11x11(src, srcWidth, srcHeight, srcStride, dst, dstStride); });
}
void AdaptiveMean3x3(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t maxValue,
                     int32_t thresholdType, int32_t value, uint8_t* dst, uint32_t dstStride) {
  AdaptiveLanes(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst, dstStride,
                [&] { Box(src, srcWidth, srcHeight, srcStride, dst, dstStride); });
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(Gaussian3x3);
HWY_EXPORT(Gaussian3x3Bordered);
HWY_EXPORT(Erode3x3);
HWY_EXPORT(Dilate3x3);
HWY_EXPORT(Erode3x3Bordered);
HWY_EXPORT(Dilate3x3Bordered);
HWY_EXPORT(MedianInterior3x3);
HWY_EXPORT(Median3x3Bordered);
HWY_EXPORT(Box);
HWY_EXPORT(BoxBordered);
HWY_EXPORT(Threshold);
HWY_EXPORT(ThresholdAbove);
HWY_EXPORT(ThresholdRange);
HWY_EXPORT(ThresholdRange255);
HWY_EXPORT(ThresholdOtsu);
HWY_EXPORT(Gaussian5x5);
HWY_EXPORT(Gaussian5x5s16);
HWY_EXPORT(Gaussian5x5s32);
HWY_EXPORT(AdaptiveGaussian3x3);
HWY_EXPORT(AdaptiveGaussian5x5);
HWY_EXPORT(AdaptiveMean3x3);
HWY_EXPORT(Gaussian11x11);
HWY_EXPORT(AdaptiveGaussian11x11);
HWY_EXPORT(Box5x5);
HWY_EXPORT(Box11x11);
HWY_EXPORT(AdaptiveMean5x5);
HWY_EXPORT(AdaptiveMean11x11);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

void tvxFilterGaussian3x3u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                uint8_t* dst, uint32_t dstStride, int32_t blurBorder) {
  HWY_DYNAMIC_DISPATCH(Gaussian3x3)(src, srcWidth, srcHeight, srcStride, dst, dstStride, blurBorder);
}
int32_t tvxFilterGaussian3x3u8_v3V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   uint8_t* dst, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(Gaussian3x3Bordered)(src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType,
                                                   borderValue);
}

void tvxFilterErode3x3u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Erode3x3)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxFilterDilate3x3u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Dilate3x3)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
int32_t tvxFilterErode3x3u8_v3V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                uint8_t* dst, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(Erode3x3Bordered)(src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType,
                                                borderValue);
}
int32_t tvxFilterDilate3x3u8_v3V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(Dilate3x3Bordered)(src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType,
                                                 borderValue);
}
void tvxFilterMedian3x3u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(MedianInterior3x3)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
int32_t tvxFilterMedian3x3u8_v3V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(Median3x3Bordered)(src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType,
                                                 borderValue);
}
void tvxBoxFilter3x3u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Box)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
int32_t tvxBoxFilter3x3u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride, uint32_t borderType, uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(BoxBordered)(src, srcWidth, srcHeight, srcStride, dst, dstStride, borderType,
                                           borderValue);
}

void tvxFilterThresholdu8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride, uint32_t threshold) {
  HWY_DYNAMIC_DISPATCH(Threshold)(src, srcWidth, srcHeight, srcStride, dst, dstStride, threshold);
}
int32_t tvxFilterThresholdu8_v3V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride, uint32_t threshold, uint8_t trueValue,
                                 uint8_t falseValue) {
  return HWY_DYNAMIC_DISPATCH(ThresholdAbove)(src, srcWidth, srcHeight, srcStride, dst, dstStride, threshold,
                                              trueValue, falseValue);
}
int32_t tvxFilterThresholdRangeu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   uint8_t* dst, uint32_t dstStride, uint8_t lowThresh, uint8_t highThresh) {
  return HWY_DYNAMIC_DISPATCH(ThresholdRange255)(src, srcWidth, srcHeight, srcStride, dst, dstStride, lowThresh,
                                                 highThresh);
}
int32_t tvxFilterThresholdRangeu8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                      uint8_t* dst, uint32_t dstStride, uint8_t lowThresh, uint8_t highThresh,
                                      uint8_t trueValue, uint8_t falseValue) {
  return HWY_DYNAMIC_DISPATCH(ThresholdRange)(src, srcWidth, srcHeight, srcStride, dst, dstStride, lowThresh,
                                              highThresh, trueValue, falseValue);
}
void tvxFilterThresholdOtsuu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                               uint8_t* dst, uint32_t dstStride, int32_t thresholdType) {
  HWY_DYNAMIC_DISPATCH(ThresholdOtsu)(src, srcWidth, srcHeight, srcStride, dst, dstStride, thresholdType);
}

void tvxFilterGaussian5x5u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                uint8_t* dst, uint32_t dstStride, int32_t blurBorder) {
  HWY_DYNAMIC_DISPATCH(Gaussian5x5)(src, srcWidth, srcHeight, srcStride, dst, dstStride, blurBorder);
}
void tvxFilterGaussian5x5s16_v2V(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 int16_t* dst, uint32_t dstStride, int32_t blurBorder) {
  HWY_DYNAMIC_DISPATCH(Gaussian5x5s16)(src, srcWidth, srcHeight, srcStride, dst, dstStride, blurBorder);
}
void tvxFilterGaussian5x5s32_v2V(const int32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 int32_t* dst, uint32_t dstStride, int32_t blurBorder) {
  HWY_DYNAMIC_DISPATCH(Gaussian5x5s32)(src, srcWidth, srcHeight, srcStride, dst, dstStride, blurBorder);
}

void tvxAdaptiveThresholdGaussian3x3u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, uint8_t maxValue, int32_t thresholdType, int32_t value,
                                        uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AdaptiveGaussian3x3)(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst,
                                            dstStride);
}
void tvxAdaptiveThresholdGaussian5x5u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, uint8_t maxValue, int32_t thresholdType, int32_t value,
                                        uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AdaptiveGaussian5x5)(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst,
                                            dstStride);
}
void tvxAdaptiveThresholdMean3x3u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t maxValue, int32_t thresholdType, int32_t value, uint8_t* dst,
                                    uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AdaptiveMean3x3)(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst,
                                        dstStride);
}
void tvxFilterGaussian11x11u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                  uint8_t* dst, uint32_t dstStride, int32_t blurBorder) {
  HWY_DYNAMIC_DISPATCH(Gaussian11x11)(src, srcWidth, srcHeight, srcStride, dst, dstStride, blurBorder);
}
void tvxAdaptiveThresholdGaussian11x11u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                          uint32_t srcStride, uint8_t maxValue, int32_t thresholdType, int32_t value,
                                          uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AdaptiveGaussian11x11)(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value,
                                              dst, dstStride);
}
void tvxBoxFilter5x5u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                        uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Box5x5)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxBoxFilter11x11u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                          uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Box11x11)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxAdaptiveThresholdMean5x5u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t maxValue, int32_t thresholdType, int32_t value, uint8_t* dst,
                                    uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AdaptiveMean5x5)(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst,
                                        dstStride);
}
void tvxAdaptiveThresholdMean11x11u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                      uint8_t maxValue, int32_t thresholdType, int32_t value, uint8_t* dst,
                                      uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(AdaptiveMean11x11)(src, srcWidth, srcHeight, srcStride, maxValue, thresholdType, value, dst,
                                          dstStride);
}
#endif  // HWY_ONCE
