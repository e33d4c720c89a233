// SIMD variants of the filters with a caller-chosen window. Each first reads the whole source
// into a private buffer (so calls in place work) and then writes dst:
// - NxN erode / dilate: the window cut to the image is a rectangle, so min / max separate into
//   a pass across each row (over a copy padded with the neutral value 255 / 0) and a pass down
//   the rows of that result.
// - float NxN mean: row sums across, then sums of row sums down, added in the reference's order
//   (left to right, then top to bottom) so the floats come out identical; the columns whose
//   window is cut by the left or right edge are scalar, and so is the division.
// - MxN median on s16: a padded copy of the image by border rule, then per vector of outputs
//   the M*N window vectors are sorted with Batcher's merge-exchange network of Min / Max and
//   the middle one taken.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/filter_nxn.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/aligned_allocator.h"
#include "hwy/highway.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

#include "cpu/filter_rules.h"
#include "frame/frame.h"

#ifndef TVX_FILTER_NXN_SHARED
#define TVX_FILTER_NXN_SHARED
namespace tvx::nxn {

// Comparator pairs of Batcher's merge-exchange sort (Knuth 5.2.2, Algorithm M) for n keys.
inline std::vector<std::pair<uint32_t, uint32_t>> MergeExchangeNetwork(uint32_t n) {
  std::vector<std::pair<uint32_t, uint32_t>> pairs;
  if (n < 2) return pairs;
  uint32_t t = 0;
  while ((1u << t) < n) ++t;
  for (uint32_t p = 1u << (t - 1); p > 0; p >>= 1) {
    uint32_t q = 1u << (t - 1), r = 0, d = p;
    for (;;) {
      for (uint32_t i = 0; i + d < n; ++i)
        if ((i & p) == r) pairs.emplace_back(i, i + d);
      if (q == p) break;
      d = q - p;
      q >>= 1;
      r = p;
    }
  }
  return pairs;
}

}  // namespace tvx::nxn
#endif

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace tvx::filter;

// ---- erode / dilate NxN ---------------------------------------------------------------------

template <bool kMax>
void MorphNxN(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
              uint32_t dstStride, uint32_t n) {
  const hn::ScalableTag<uint8_t> d;
  const size_t L = hn::Lanes(d);
  auto pick = [](auto a, auto b) { return kMax ? hn::Max(a, b) : hn::Min(a, b); };
  auto pick1 = [](uint8_t a, uint8_t b) { return kMax ? std::max(a, b) : std::min(a, b); };
  const uint8_t neutral = kMax ? 0 : 255;
  // Reach beyond the image adds only neutral pixels: cap the radius at the image size.
  const size_t rx = std::min<size_t>(n / 2, width - 1), ry = std::min<size_t>(n / 2, height - 1);
  const size_t w = width;
  std::vector<uint8_t> across(w * height), padded(w + 2 * rx, neutral);
  for (uint32_t y = 0; y < height; ++y) {
    std::memcpy(padded.data() + rx, Row(src, srcStride, y), w);
    const uint8_t* p = padded.data();
    uint8_t* out = across.data() + y * w;
    size_t x = 0;
    for (; x + L <= w; x += L) {
      auto m = hn::LoadU(d, p + x);
      for (size_t k = 1; k <= 2 * rx; ++k) m = pick(m, hn::LoadU(d, p + x + k));
      hn::StoreU(m, d, out + x);
    }
    for (; x < w; ++x) {
      uint8_t m = p[x];
      for (size_t k = 1; k <= 2 * rx; ++k) m = pick1(m, p[x + k]);
      out[x] = m;
    }
  }
  for (size_t y = 0; y < height; ++y) {
    const size_t y0 = y >= ry ? y - ry : 0, y1 = std::min<size_t>(height - 1, y + ry);
    uint8_t* out = Row(dst, dstStride, int64_t(y));
    size_t x = 0;
    for (; x + L <= w; x += L) {
      auto m = hn::LoadU(d, across.data() + y0 * w + x);
      for (size_t sy = y0 + 1; sy <= y1; ++sy) m = pick(m, hn::LoadU(d, across.data() + sy * w + x));
      hn::StoreU(m, d, out + x);
    }
    for (; x < w; ++x) {
      uint8_t m = across[y0 * w + x];
      for (size_t sy = y0 + 1; sy <= y1; ++sy) m = pick1(m, across[sy * w + x]);
      out[x] = m;
    }
  }
}

int32_t ErodeNxN(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                 uint32_t dstStride, uint32_t n) {
  MorphNxN<false>(src, width, height, srcStride, dst, dstStride, n);
  return TVX_SUCCESS;
}
int32_t DilateNxN(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                  uint32_t dstStride, uint32_t n) {
  MorphNxN<true>(src, width, height, srcStride, dst, dstStride, n);
  return TVX_SUCCESS;
}

// ---- float box NxN --------------------------------------------------------------------------

void BoxNxNf32(const float* src, uint32_t width, uint32_t height, uint32_t srcStride, float* dst, uint32_t dstStride,
               uint32_t n) {
  const hn::ScalableTag<float> d;
  const size_t L = hn::Lanes(d);
  const int64_t w = width, h = height, before = n / 2, after = (n - 1) / 2;
  // Columns whose whole window lies inside the row: [lo, hi).
  const int64_t lo = before, hi = w - after;
  auto x0Of = [&](int64_t x) { return std::max<int64_t>(0, x - before); };
  auto x1Of = [&](int64_t x) { return std::min<int64_t>(w - 1, x + after); };

  std::vector<float> across(size_t(w * h));
  for (int64_t y = 0; y < h; ++y) {
    const float* row = RowOf(src, srcStride, y);
    float* out = across.data() + y * w;
    auto scalar = [&](int64_t x) {
      const int64_t x1 = x1Of(x);
      float s = row[x0Of(x)];
      for (int64_t sx = x0Of(x) + 1; sx <= x1; ++sx) s += row[sx];
      out[x] = s;
    };
    int64_t x = 0;
    for (; x < std::min(lo, w); ++x) scalar(x);
    for (; x + int64_t(L) <= hi; x += L) {
      auto s = hn::LoadU(d, row + x - before);
      for (int64_t k = 1; k < int64_t(n); ++k) s = hn::Add(s, hn::LoadU(d, row + x - before + k));
      hn::StoreU(s, d, out + x);
    }
    for (; x < w; ++x) scalar(x);
  }

  for (int64_t y = 0; y < h; ++y) {
    const int64_t y0 = std::max<int64_t>(0, y - before), y1 = std::min<int64_t>(h - 1, y + after);
    const int64_t rows = y1 - y0 + 1;
    float* out = RowOf(dst, dstStride, y);
    auto scalar = [&](int64_t x) {
      float s = across[size_t(y0 * w + x)];
      for (int64_t sy = y0 + 1; sy <= y1; ++sy) s += across[size_t(sy * w + x)];
      out[x] = s / static_cast<float>((x1Of(x) - x0Of(x) + 1) * rows);
    };
    int64_t x = 0;
    for (; x < std::min(lo, w); ++x) scalar(x);
    // ARMv7 NEON divides by reciprocal estimates, so the division stays scalar and exact.
    const float count = static_cast<float>(int64_t(n) * rows);
    for (; x + int64_t(L) <= hi; x += L) {
      auto s = hn::LoadU(d, across.data() + y0 * w + x);
      for (int64_t sy = y0 + 1; sy <= y1; ++sy) s = hn::Add(s, hn::LoadU(d, across.data() + sy * w + x));
      hn::StoreU(s, d, out + x);
      for (size_t i = 0; i < L; ++i) out[x + i] /= count;
    }
    for (; x < w; ++x) scalar(x);
  }
}

// ---- median MxN on s16 ----------------------------------------------------------------------

int32_t MedianMxNs16(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dst,
                     uint32_t dstStride, uint32_t m, uint32_t n, uint32_t borderType, int16_t borderValue) {
  if (borderType > kBorderReplicate || m % 2 == 0 || n % 2 == 0 || m > 31 || n > 31) return TVX_BAD_PARAMETER;
  const hn::ScalableTag<int16_t> d;
  const size_t L = hn::Lanes(d);
  const int64_t w = width, h = height, rx = m / 2, ry = n / 2;
  const int64_t pw = w + 2 * rx, ph = h + 2 * ry;
  const bool replicate = borderType == kBorderReplicate;

  std::vector<int16_t> padded(size_t(pw * ph));
  for (int64_t py = 0; py < ph; ++py)
    for (int64_t px = 0; px < pw; ++px) {
      const int64_t sx = px - rx, sy = py - ry;
      const bool inside = sx >= 0 && sy >= 0 && sx < w && sy < h;
      padded[size_t(py * pw + px)] =
          inside || replicate ? RowOf(src, srcStride, Clamp(sy, 0, h - 1))[Clamp(sx, 0, w - 1)] : borderValue;
    }

  const size_t k = size_t(m) * n;
  const auto network = tvx::nxn::MergeExchangeNetwork(uint32_t(k));
  auto lanes = hwy::AllocateAligned<int16_t>(k * L);
  std::vector<int16_t> window(k);
  for (int64_t y = 0; y < h; ++y) {
    int16_t* out = RowOf(dst, dstStride, y);
    int64_t x = 0;
    for (; x + int64_t(L) <= w; x += L) {
      size_t i = 0;
      for (int64_t dy = 0; dy < int64_t(n); ++dy)
        for (int64_t dx = 0; dx < int64_t(m); ++dx, ++i)
          hn::Store(hn::LoadU(d, &padded[size_t((y + dy) * pw + x + dx)]), d, lanes.get() + i * L);
      for (const auto& c : network) {
        int16_t* a = lanes.get() + c.first * L;
        int16_t* b = lanes.get() + c.second * L;
        const auto va = hn::Load(d, a), vb = hn::Load(d, b);
        hn::Store(hn::Min(va, vb), d, a);
        hn::Store(hn::Max(va, vb), d, b);
      }
      hn::StoreU(hn::Load(d, lanes.get() + (k / 2) * L), d, out + x);
    }
    for (; x < w; ++x) {
      size_t i = 0;
      for (int64_t dy = 0; dy < int64_t(n); ++dy)
        for (int64_t dx = 0; dx < int64_t(m); ++dx) window[i++] = padded[size_t((y + dy) * pw + x + dx)];
      std::nth_element(window.begin(), window.begin() + k / 2, window.end());
      out[x] = window[k / 2];
    }
  }
  return TVX_SUCCESS;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(ErodeNxN);
HWY_EXPORT(DilateNxN);
HWY_EXPORT(BoxNxNf32);
HWY_EXPORT(MedianMxNs16);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

int32_t tvxFilterErodeNxNu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride, uint32_t N) {
  return HWY_DYNAMIC_DISPATCH(ErodeNxN)(src, srcWidth, srcHeight, srcStride, dst, dstStride, N);
}
int32_t tvxFilterDilateNxNu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                              uint8_t* dst, uint32_t dstStride, uint32_t N) {
  return HWY_DYNAMIC_DISPATCH(DilateNxN)(src, srcWidth, srcHeight, srcStride, dst, dstStride, N);
}
void tvxBoxFilterNxNf32V(const float32_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                         float32_t* dst, uint32_t dstStride, uint32_t N) {
  HWY_DYNAMIC_DISPATCH(BoxNxNf32)(src, srcWidth, srcHeight, srcStride, dst, dstStride, N);
}
int32_t tvxFilterMedianMxNs16V(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                               int16_t* dst, uint32_t dstStride, uint32_t M, uint32_t N, uint32_t borderType,
                               int16_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(MedianMxNs16)(src, srcWidth, srcHeight, srcStride, dst, dstStride, M, N, borderType,
                                            borderValue);
}
#endif  // HWY_ONCE
