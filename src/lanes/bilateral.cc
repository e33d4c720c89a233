// SIMD variants of the windowed bilateral filters (5x5, 7x7, 9x9). Every output lane keeps two
// 32-bit sums: weight * pixel and weight, where a tap's weight is the spatial table entry times
// the range table entry of |pixel - centre| (a gather from the 256-entry table). The window rows
// outside the image are skipped, as in the reference; the columns whose window is cut by the
// left or right edge, and the tail of each row, use the shared per-pixel rule. The rounded
// quotient (sum + total / 2) / total comes from a float estimate corrected by one step either
// way against the exact remainder, so it equals the integer division for every input.
//
// The recursive filter is serial along each pass, so it runs across the other axis: the row
// passes on a transposed copy (one lane per row), the column passes on the image (one lane per
// column). All of its arithmetic is exact in 32-bit lanes: a blend of two Q8 values with a Q16
// weight stays below 2^32.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/bilateral.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include "cpu/bilateral_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using tvx::filter::Row;

// Exact (a / b) for 0 <= a < 2^31 and 0 < b, when the quotient is below 2^24.
template <class D>
hn::Vec<D> DivideExact(D d, hn::Vec<D> a, hn::Vec<D> b) {
  const hn::RebindToFloat<D> df;
  auto q = hn::ConvertTo(d, hn::Div(hn::ConvertTo(df, a), hn::ConvertTo(df, b)));
  const auto one = hn::Set(d, 1);
  const auto r = hn::Sub(a, hn::Mul(q, b));
  q = hn::Sub(q, hn::IfThenElseZero(hn::Lt(r, hn::Zero(d)), one));
  q = hn::Add(q, hn::IfThenZeroElse(hn::Lt(r, b), one));
  return q;
}

void Bilateral(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
               uint32_t dstStride, int radius, float sigmaSpace, float sigmaRange) {
  bilateral::Tables t;
  bilateral::BuildTables(radius, sigmaSpace, sigmaRange, t);
  const hn::ScalableTag<int32_t> d;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const size_t L = hn::Lanes(d);
  const int64_t w = width, h = height, r = radius;
  for (int64_t y = 0; y < h; ++y) {
    const uint8_t* centre = Row(src, srcStride, y);
    uint8_t* out = Row(dst, dstStride, y);
    const int dy0 = int(y - r < 0 ? -y : -r), dy1 = int(y + r >= h ? h - 1 - y : r);
    int64_t x = 0;
    for (; x < r && x < w; ++x) out[x] = bilateral::Pixel(src, width, height, srcStride, x, y, t);
    // Vectors whose every window column lies inside the row: x + L - 1 + r <= w - 1.
    for (; x + int64_t(L) + r <= w; x += L) {
      const auto c = hn::PromoteTo(d, hn::LoadU(d8, centre + x));
      auto sum = hn::Zero(d), total = hn::Zero(d);
      for (int dy = dy0; dy <= dy1; ++dy) {
        const uint8_t* row = Row(src, srcStride, y + dy) + x;
        for (int dx = -radius; dx <= radius; ++dx) {
          const auto p = hn::PromoteTo(d, hn::LoadU(d8, row + dx));
          const auto range = hn::GatherIndex(d, t.range, hn::Abs(hn::Sub(p, c)));
          const auto wt = hn::Mul(range, hn::Set(d, t.Space(dx, dy)));
          sum = hn::Add(sum, hn::Mul(wt, p));
          total = hn::Add(total, wt);
        }
      }
      const auto q = DivideExact(d, hn::Add(sum, hn::ShiftRight<1>(total)), total);
      hn::StoreU(hn::DemoteTo(d8, q), d8, out + x);
    }
    for (; x < w; ++x) out[x] = bilateral::Pixel(src, width, height, srcStride, x, y, t);
  }
}

int32_t Bilateral5x5(const uint8_t* src, uint32_t w, uint32_t h, uint32_t ss, uint8_t* dst, uint32_t ds, float sigmaSpace,
                     float sigmaRange) {
  Bilateral(src, w, h, ss, dst, ds, 2, sigmaSpace, sigmaRange);
  return TVX_SUCCESS;
}
int32_t Bilateral7x7(const uint8_t* src, uint32_t w, uint32_t h, uint32_t ss, uint8_t* dst, uint32_t ds, float sigmaSpace,
                     float sigmaRange) {
  Bilateral(src, w, h, ss, dst, ds, 3, sigmaSpace, sigmaRange);
  return TVX_SUCCESS;
}
int32_t Bilateral9x9(const uint8_t* src, uint32_t w, uint32_t h, uint32_t ss, uint8_t* dst, uint32_t ds, float sigmaSpace,
                     float sigmaRange) {
  Bilateral(src, w, h, ss, dst, ds, 4, sigmaSpace, sigmaRange);
  return TVX_SUCCESS;
}

// ---- recursive ----------------------------------------------------------------------------

// One recursion step on every lane: ((65536 - a) * cur + a * prev + 32768) >> 16, a looked up
// by the difference of the two source pixels.
template <class D, class D8>
void BlendLanes(D d, D8 d8, const uint32_t* weight, uint32_t* cur, const uint32_t* prev, const uint8_t* sCur,
                const uint8_t* sPrev, size_t n) {
  const hn::RebindToSigned<D> di;
  const size_t L = hn::Lanes(d);
  const auto one = hn::Set(d, 65536u), half = hn::Set(d, 32768u);
  size_t i = 0;
  for (; i + L <= n; i += L) {
    const auto p = hn::PromoteTo(d, hn::LoadU(d8, sCur + i)), q = hn::PromoteTo(d, hn::LoadU(d8, sPrev + i));
    const auto diff = hn::BitCast(di, hn::Sub(hn::Max(p, q), hn::Min(p, q)));
    const auto a = hn::BitCast(d, hn::GatherIndex(di, reinterpret_cast<const int32_t*>(weight), diff));
    const auto mix = hn::Add(hn::Add(hn::Mul(hn::Sub(one, a), hn::LoadU(d, cur + i)), hn::Mul(a, hn::LoadU(d, prev + i))), half);
    hn::StoreU(hn::ShiftRight<16>(mix), d, cur + i);
  }
  for (; i < n; ++i) {
    const uint32_t a = weight[std::abs(int(sCur[i]) - int(sPrev[i]))];
    cur[i] = ((65536u - a) * cur[i] + a * prev[i] + 32768u) >> 16;
  }
}

int32_t BilateralRecursive(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                           uint32_t dstStride, float sigmaSpace, float sigmaRange) {
  uint32_t weight[256];
  bilateral::RecursiveWeights(sigmaSpace, sigmaRange, weight);
  const hn::ScalableTag<uint32_t> d;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const size_t w = width, h = height, L = hn::Lanes(d);

  // Row passes on the transposed image: line x holds column x of the source.
  std::vector<uint8_t> sT(w * h);
  std::vector<uint32_t> vT(w * h), v(w * h);
  for (size_t y = 0; y < h; ++y) {
    const uint8_t* row = Row(src, srcStride, int64_t(y));
    for (size_t x = 0; x < w; ++x) sT[x * h + y] = row[x];
  }
  for (size_t i = 0; i < w * h; ++i) vT[i] = uint32_t(sT[i]) << 8;
  for (size_t x = 1; x < w; ++x)
    BlendLanes(d, d8, weight, &vT[x * h], &vT[(x - 1) * h], &sT[x * h], &sT[(x - 1) * h], h);
  for (size_t x = w - 1; x-- > 0;)
    BlendLanes(d, d8, weight, &vT[x * h], &vT[(x + 1) * h], &sT[x * h], &sT[(x + 1) * h], h);
  for (size_t y = 0; y < h; ++y)
    for (size_t x = 0; x < w; ++x) v[y * w + x] = vT[x * h + y];

  // Column passes in place, the weights from the source rows.
  auto srcRow = [&](size_t y) { return Row(src, srcStride, int64_t(y)); };
  for (size_t y = 1; y < h; ++y) BlendLanes(d, d8, weight, &v[y * w], &v[(y - 1) * w], srcRow(y), srcRow(y - 1), w);
  for (size_t y = h - 1; y-- > 0;) BlendLanes(d, d8, weight, &v[y * w], &v[(y + 1) * w], srcRow(y), srcRow(y + 1), w);

  const hn::RebindToSigned<decltype(d)> di;
  const auto round = hn::Set(d, 128u);
  for (size_t y = 0; y < h; ++y) {
    uint8_t* out = Row(dst, dstStride, int64_t(y));
    const uint32_t* r = &v[y * w];
    size_t x = 0;
    for (; x + L <= w; x += L)
      hn::StoreU(hn::DemoteTo(d8, hn::BitCast(di, hn::ShiftRight<8>(hn::Add(hn::LoadU(d, r + x), round)))), d8, out + x);
    for (; x < w; ++x) out[x] = static_cast<uint8_t>((r[x] + 128) >> 8);
  }
  return TVX_SUCCESS;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(Bilateral5x5);
HWY_EXPORT(Bilateral7x7);
HWY_EXPORT(Bilateral9x9);
HWY_EXPORT(BilateralRecursive);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

int32_t tvxBilateralFilter5x5u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(Bilateral5x5)(src, srcWidth, srcHeight, srcStride, dst, dstStride,
                                            bilateral::DefaultSigmaSpace(2), bilateral::kDefaultSigmaRange);
}
int32_t tvxBilateralFilter7x7u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(Bilateral7x7)(src, srcWidth, srcHeight, srcStride, dst, dstStride,
                                            bilateral::DefaultSigmaSpace(3), bilateral::kDefaultSigmaRange);
}
int32_t tvxBilateralFilter9x9u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(Bilateral9x9)(src, srcWidth, srcHeight, srcStride, dst, dstStride,
                                            bilateral::DefaultSigmaSpace(4), bilateral::kDefaultSigmaRange);
}
int32_t tvxBilateralFilter5x5u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t* dst, uint32_t dstStride, float32_t sigmaSpace, float32_t sigmaRange) {
  return HWY_DYNAMIC_DISPATCH(Bilateral5x5)(src, srcWidth, srcHeight, srcStride, dst, dstStride, sigmaSpace,
                                            sigmaRange);
}
int32_t tvxBilateralFilter7x7u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t* dst, uint32_t dstStride, float32_t sigmaSpace, float32_t sigmaRange) {
  return HWY_DYNAMIC_DISPATCH(Bilateral7x7)(src, srcWidth, srcHeight, srcStride, dst, dstStride, sigmaSpace,
                                            sigmaRange);
}
int32_t tvxBilateralFilter9x9u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t* dst, uint32_t dstStride, float32_t sigmaSpace, float32_t sigmaRange) {
  return HWY_DYNAMIC_DISPATCH(Bilateral9x9)(src, srcWidth, srcHeight, srcStride, dst, dstStride, sigmaSpace,
                                            sigmaRange);
}
int32_t tvxBilateralFilterRecursiveu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                       uint8_t* dst, uint32_t dstStride, float32_t sigmaSpace, float32_t sigmaRange) {
  return HWY_DYNAMIC_DISPATCH(BilateralRecursive)(src, srcWidth, srcHeight, srcStride, dst, dstStride, sigmaSpace,
                                                  sigmaRange);
}
#endif  // HWY_ONCE
