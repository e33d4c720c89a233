// SIMD variants of the histogram family. Histograms count into four interleaved tables (one per
// byte of a 32-bit word, so consecutive equal pixels do not wait on each other's increments) and
// merge them; equalisation applies its table with the same unrolled scalar loop. Statistics and
// u8 moments sum in 16-bit lanes with widening multiply-adds into 32-bit lanes, over blocks of
// 64 columns short enough that no lane can overflow; the block sums are combined into exact
// 64-bit row sums, so both tiers finish from the same integers. Differences and the local
// binary pattern work a row at a time in widened lanes.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/histo.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cmath>
#include <cstddef>
#include <cstring>

#include "cpu/histo.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace histo {
namespace hn = hwy::HWY_NAMESPACE;
using tvxhisto::Row;

// ---- statistics ----------------------------------------------------------------------------------

// Sums of v and v*v over one row, exact.
void StatsRow(const uint8_t* in, uint32_t width, uint64_t* s1, uint64_t* s2) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t N = hn::Lanes(d16);
  uint64_t t1 = 0, t2 = 0;
  uint32_t x = 0;
  // Flushing every 16384 pixels keeps the squares' total over all lanes below 2^31.
  const uint32_t stepsPerFlush = static_cast<uint32_t>(16384 / N);
  const auto one = hn::Set(d16, 1);
  while (x + N <= width) {
    auto sum = hn::Zero(d32), sq0 = hn::Zero(d32), sq1 = hn::Zero(d32), unused = hn::Zero(d32);
    for (uint32_t steps = 0; steps < stepsPerFlush && x + N <= width; ++steps, x += static_cast<uint32_t>(N)) {
      const auto v = hn::BitCast(d16, hn::PromoteTo(hn::Rebind<uint16_t, decltype(d8)>(), hn::LoadU(d8, in + x)));
      sum = hn::ReorderWidenMulAccumulate(d32, v, one, sum, unused);
      sq0 = hn::ReorderWidenMulAccumulate(d32, v, v, sq0, sq1);
    }
    t1 += static_cast<uint64_t>(hn::GetLane(hn::SumOfLanes(d32, hn::Add(sum, unused))));
    t2 += static_cast<uint64_t>(hn::GetLane(hn::SumOfLanes(d32, hn::Add(sq0, sq1))));
  }
  for (; x < width; ++x) {
    t1 += in[x];
    t2 += uint32_t{in[x]} * in[x];
  }
  *s1 += t1;
  *s2 += t2;
}

void Stats(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, float* mean, float* stdDev) {
  uint64_t s1 = 0, s2 = 0;
  for (uint32_t y = 0; y < height; ++y) StatsRow(Row(src, stride, y), width, &s1, &s2);
  tvxhisto::FinishStats(s1, s2, uint64_t{width} * height, mean, stdDev);
}

// ---- moments -------------------------------------------------------------------------------------

// Exact sums of v, v x, v x^2, v x^3 over one row. Within a block of 64 columns with local
// offset j < 64: v j <= 16065 and j^2 <= 3969 fit 16 bits, and the block sum of v j^3 is at
// most 255 * (63 * 64 / 2)^2 < 2^31.
void MomentRow(const uint8_t* in, uint32_t width, uint64_t s[4]) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const hn::Rebind<uint16_t, decltype(d8)> du16;
  const size_t N = hn::Lanes(d16);
  const auto one = hn::Set(d16, 1);
  uint64_t s0 = 0, s1 = 0, s2 = 0, s3 = 0;
  for (uint32_t x0 = 0; x0 < width; x0 += 64) {
    const uint32_t len = width - x0 < 64 ? width - x0 : 64;
    auto a0 = hn::Zero(d32), b0 = hn::Zero(d32), a1 = hn::Zero(d32), b1 = hn::Zero(d32);
    auto a2 = hn::Zero(d32), b2 = hn::Zero(d32), a3 = hn::Zero(d32), b3 = hn::Zero(d32);
    uint32_t j = 0;
    for (; j + N <= len; j += static_cast<uint32_t>(N)) {
      const auto v = hn::BitCast(d16, hn::PromoteTo(du16, hn::LoadU(d8, in + x0 + j)));
      const auto jj = hn::Iota(d16, static_cast<int16_t>(j));
      const auto j2 = hn::Mul(jj, jj);
      const auto vj = hn::Mul(v, jj);
      a0 = hn::ReorderWidenMulAccumulate(d32, v, one, a0, b0);
      a1 = hn::ReorderWidenMulAccumulate(d32, v, jj, a1, b1);
      a2 = hn::ReorderWidenMulAccumulate(d32, v, j2, a2, b2);
      a3 = hn::ReorderWidenMulAccumulate(d32, vj, j2, a3, b3);
    }
    uint64_t t0 = static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(d32, hn::Add(a0, b0))));
    uint64_t t1 = static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(d32, hn::Add(a1, b1))));
    uint64_t t2 = static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(d32, hn::Add(a2, b2))));
    uint64_t t3 = static_cast<uint32_t>(hn::GetLane(hn::SumOfLanes(d32, hn::Add(a3, b3))));
    for (; j < len; ++j) {
      const uint64_t v = in[x0 + j];
      t0 += v;
      t1 += v * j;
      t2 += v * j * j;
      t3 += v * j * j * j;
    }
    // Shift the block's sums from local offsets j to columns x0 + j.
    const uint64_t x = x0, x2 = x * x;
    s0 += t0;
    s1 += x * t0 + t1;
    s2 += x2 * t0 + 2 * x * t1 + t2;
    s3 += x2 * x * t0 + 3 * x2 * t1 + 3 * x * t2 + t3;
  }
  s[0] = s0;
  s[1] = s1;
  s[2] = s2;
  s[3] = s3;
}

void Moments(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, float* moments) {
  tvxhisto::MomentSums sums;
  for (uint32_t y = 0; y < height; ++y) {
    uint64_t s[4];
    MomentRow(Row(src, stride, y), width, s);
    sums.AddRow(static_cast<double>(s[0]), static_cast<double>(s[1]), static_cast<double>(s[2]),
                static_cast<double>(s[3]), y);
  }
  tvxhisto::FinishMoments(sums, moments);
}

// ---- differences ---------------------------------------------------------------------------------

void DiffU8(const uint8_t* a, const uint8_t* b, uint32_t width, uint8_t* out) {
  const hn::ScalableTag<uint8_t> d;
  const size_t N = hn::Lanes(d);
  uint32_t x = 0;
  for (; x + N <= width; x += static_cast<uint32_t>(N)) {
    const auto va = hn::LoadU(d, a + x), vb = hn::LoadU(d, b + x);
    hn::StoreU(hn::Or(hn::SaturatedSub(va, vb), hn::SaturatedSub(vb, va)), d, out + x);
  }
  for (; x < width; ++x) out[x] = static_cast<uint8_t>(a[x] > b[x] ? a[x] - b[x] : b[x] - a[x]);
}

void DiffS16(const int16_t* a, const int16_t* b, uint32_t width, int16_t* out) {
  const hn::ScalableTag<int16_t> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  const size_t N = hn::Lanes(d);
  const auto cap = hn::Set(du, 32767);
  uint32_t x = 0;
  for (; x + N <= width; x += static_cast<uint32_t>(N)) {
    const auto va = hn::LoadU(d, a + x), vb = hn::LoadU(d, b + x);
    // max - min wraps into the true difference 0..65535 when read unsigned.
    const auto diff = hn::BitCast(du, hn::Sub(hn::Max(va, vb), hn::Min(va, vb)));
    hn::StoreU(hn::BitCast(d, hn::Min(diff, cap)), d, out + x);
  }
  for (; x < width; ++x) {
    const int32_t v = int32_t{a[x]} - int32_t{b[x]}, m = v < 0 ? -v : v;
    out[x] = static_cast<int16_t>(m > 32767 ? 32767 : m);
  }
}

void DiffF32(const float* a, const float* b, uint32_t width, float* out) {
  const hn::ScalableTag<float> d;
  const size_t N = hn::Lanes(d);
  uint32_t x = 0;
  for (; x + N <= width; x += static_cast<uint32_t>(N))
    hn::StoreU(hn::Abs(hn::Sub(hn::LoadU(d, a + x), hn::LoadU(d, b + x))), d, out + x);
  for (; x < width; ++x) {
    out[x] = std::fabs(a[x] - b[x]);
  }
}

void DiffU8F32(const uint8_t* a, const uint8_t* b, uint32_t width, float* out) {
  const hn::ScalableTag<int32_t> d32;
  const hn::Rebind<float, decltype(d32)> df;
  const hn::Rebind<uint8_t, decltype(d32)> d8;
  const size_t N = hn::Lanes(d32);
  uint32_t x = 0;
  for (; x + N <= width; x += static_cast<uint32_t>(N)) {
    const auto va = hn::BitCast(d32, hn::PromoteTo(hn::RebindToUnsigned<decltype(d32)>(), hn::LoadU(d8, a + x)));
    const auto vb = hn::BitCast(d32, hn::PromoteTo(hn::RebindToUnsigned<decltype(d32)>(), hn::LoadU(d8, b + x)));
    hn::StoreU(hn::ConvertTo(df, hn::Sub(va, vb)), df, out + x);
  }
  for (; x < width; ++x) out[x] = static_cast<float>(int32_t{a[x]} - int32_t{b[x]});
}

void DiffU8S8(const uint8_t* a, const uint8_t* b, uint32_t width, int8_t* out) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const hn::Rebind<int8_t, decltype(d16)> ds8;
  const hn::RebindToUnsigned<decltype(d16)> du16;
  const size_t N = hn::Lanes(d16);
  uint32_t x = 0;
  for (; x + N <= width; x += static_cast<uint32_t>(N)) {
    const auto va = hn::BitCast(d16, hn::PromoteTo(du16, hn::LoadU(d8, a + x)));
    const auto vb = hn::BitCast(d16, hn::PromoteTo(du16, hn::LoadU(d8, b + x)));
    hn::StoreU(hn::DemoteTo(ds8, hn::ShiftRight<1>(hn::Sub(va, vb))), ds8, out + x);
  }
  for (; x < width; ++x) out[x] = static_cast<int8_t>((int32_t{a[x]} - int32_t{b[x]}) >> 1);
}

// min(|x| + |y|, 32767): the magnitudes read unsigned are exact (|-32768| = 32768), their
// saturated sum then capped.
void EdgeWeightRow(const int16_t* gx, const int16_t* gy, uint32_t width, int16_t* out) {
  const hn::ScalableTag<int16_t> d;
  const hn::RebindToUnsigned<decltype(d)> du;
  const size_t N = hn::Lanes(d);
  const auto cap = hn::Set(du, 32767);
  uint32_t x = 0;
  for (; x + N <= width; x += static_cast<uint32_t>(N)) {
    const auto ax = hn::BitCast(du, hn::Abs(hn::LoadU(d, gx + x)));
    const auto ay = hn::BitCast(du, hn::Abs(hn::LoadU(d, gy + x)));
    hn::StoreU(hn::BitCast(d, hn::Min(hn::SaturatedAdd(ax, ay), cap)), d, out + x);
  }
  for (; x < width; ++x) {
    const int32_t ax = gx[x] < 0 ? -int32_t{gx[x]} : gx[x], ay = gy[x] < 0 ? -int32_t{gy[x]} : gy[x];
    out[x] = static_cast<int16_t>(ax + ay > 32767 ? 32767 : ax + ay);
  }
}

template <typename In, typename Out, typename RowFn>
void RowWise(const In* src1, const In* src2, uint32_t width, uint32_t height, uint32_t stride1, uint32_t stride2,
             Out* dst, uint32_t dstStride, RowFn f) {
  for (uint32_t y = 0; y < height; ++y)
    f(reinterpret_cast<const In*>(Row(src1, stride1, y)), reinterpret_cast<const In*>(Row(src2, stride2, y)), width,
      reinterpret_cast<Out*>(Row(dst, dstStride, y)));
}

// ---- local binary pattern ------------------------------------------------------------------------

// The code of pixel x of a row with replicated neighbours (the rows above and below already
// clamped by the caller).
uint8_t LbpAt(const uint8_t* up, const uint8_t* mid, const uint8_t* down, uint32_t width, int64_t x, int64_t t) {
  const auto cl = [&](int64_t i) { return static_cast<uint32_t>(i < 0 ? 0 : (i >= width ? width - 1 : i)); };
  const uint32_t l = cl(x - 1), c = cl(x), r = cl(x + 1);
  const int32_t n[8] = {mid[l], down[l], down[c], down[r], mid[r], up[r], up[c], up[l]};
  return tvxhisto::LbpCode(mid[c], n, t);
}

void LbpRow(const uint8_t* up, const uint8_t* mid, const uint8_t* down, uint32_t width, int32_t threshold,
            uint8_t* out) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const hn::RebindToUnsigned<decltype(d16)> du16;
  const size_t N = hn::Lanes(d16);
  // Differences lie in -255..255, so a threshold outside -256..256 acts as its clamp.
  const int16_t tc = static_cast<int16_t>(threshold < -256 ? -256 : (threshold > 256 ? 256 : threshold));
  const auto below = hn::Set(d16, static_cast<int16_t>(tc - 1));  // n - c >= t  <=>  n - c > t - 1
  const auto load = [&](const uint8_t* p) { return hn::BitCast(d16, hn::PromoteTo(du16, hn::LoadU(d8, p))); };
  out[0] = LbpAt(up, mid, down, width, 0, threshold);
  uint32_t x = 1;
  for (; x + N + 1 <= width; x += static_cast<uint32_t>(N)) {
    const auto c = load(mid + x);
    const auto bit = [&](const uint8_t* p, int k) {
      return hn::IfThenElseZero(hn::Gt(hn::Sub(load(p), c), below), hn::Set(d16, static_cast<int16_t>(1 << k)));
    };
    auto code = hn::Or(bit(mid + x - 1, 0), bit(down + x - 1, 1));
    code = hn::Or(code, hn::Or(bit(down + x, 2), bit(down + x + 1, 3)));
    code = hn::Or(code, hn::Or(bit(mid + x + 1, 4), bit(up + x + 1, 5)));
    code = hn::Or(code, hn::Or(bit(up + x, 6), bit(up + x - 1, 7)));
    hn::StoreU(hn::DemoteTo(d8, code), d8, out + x);
  }
  for (; x < width; ++x) out[x] = LbpAt(up, mid, down, width, x, threshold);
}

void Lbp(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint8_t* dst, uint32_t dstStride,
         int32_t threshold) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* up = Row(src, stride, y == 0 ? 0 : y - 1);
    const uint8_t* down = Row(src, stride, y + 1 >= height ? height - 1 : y + 1);
    LbpRow(up, Row(src, stride, y), down, width, threshold, Row(dst, dstStride, y));
  }
}

}  // namespace histo

void HistoStats(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, float* mean, float* stdDev) {
  histo::Stats(src, width, height, stride, mean, stdDev);
}
void HistoMoments(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, float* moments) {
  histo::Moments(src, width, height, stride, moments);
}
void HistoDiffu8(const uint8_t* a, const uint8_t* b, uint32_t w, uint32_t h, uint32_t sa, uint32_t sb, uint8_t* d,
                 uint32_t sd) {
  histo::RowWise(a, b, w, h, sa, sb, d, sd, histo::DiffU8);
}
void HistoDiffs16(const int16_t* a, const int16_t* b, uint32_t w, uint32_t h, uint32_t sa, uint32_t sb, int16_t* d,
                  uint32_t sd) {
  histo::RowWise(a, b, w, h, sa, sb, d, sd, histo::DiffS16);
}
void HistoDifff32(const float* a, const float* b, uint32_t w, uint32_t h, uint32_t sa, uint32_t sb, float* d,
                  uint32_t sd) {
  histo::RowWise(a, b, w, h, sa, sb, d, sd, histo::DiffF32);
}
void HistoDiffu8f32(const uint8_t* a, const uint8_t* b, uint32_t w, uint32_t h, uint32_t sa, uint32_t sb, float* d,
                    uint32_t sd) {
  histo::RowWise(a, b, w, h, sa, sb, d, sd, histo::DiffU8F32);
}
void HistoDiffu8s8(const uint8_t* a, const uint8_t* b, uint32_t w, uint32_t h, uint32_t sa, uint32_t sb, int8_t* d,
                   uint32_t sd) {
  histo::RowWise(a, b, w, h, sa, sb, d, sd, histo::DiffU8S8);
}
void HistoEdgeWeight(const int16_t* a, const int16_t* b, uint32_t w, uint32_t h, uint32_t sa, uint32_t sb, int16_t* d,
                     uint32_t sd) {
  histo::RowWise(a, b, w, h, sa, sb, d, sd, histo::EdgeWeightRow);
}
void HistoLbp(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint8_t* dst, uint32_t dstStride,
              int32_t threshold) {
  histo::Lbp(src, width, height, stride, dst, dstStride, threshold);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(HistoStats);
HWY_EXPORT(HistoMoments);
HWY_EXPORT(HistoDiffu8);
HWY_EXPORT(HistoDiffs16);
HWY_EXPORT(HistoDifff32);
HWY_EXPORT(HistoDiffu8f32);
HWY_EXPORT(HistoDiffu8s8);
HWY_EXPORT(HistoLbp);
HWY_EXPORT(HistoEdgeWeight);

namespace {

// Counts into four tables, one per byte position of each 32-bit word read, then merges them.
void FastHistogram(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t hist[256]) {
  uint32_t t[4][256];
  std::memset(t, 0, sizeof t);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* in = tvxhisto::Row(src, stride, y);
    uint32_t x = 0;
    for (; x + 8 <= width; x += 8) {
      uint32_t w0, w1;
      std::memcpy(&w0, in + x, 4);
      std::memcpy(&w1, in + x + 4, 4);
      ++t[0][w0 & 0xFF];
      ++t[1][(w0 >> 8) & 0xFF];
      ++t[2][(w0 >> 16) & 0xFF];
      ++t[3][w0 >> 24];
      ++t[0][w1 & 0xFF];
      ++t[1][(w1 >> 8) & 0xFF];
      ++t[2][(w1 >> 16) & 0xFF];
      ++t[3][w1 >> 24];
    }
    for (; x < width; ++x) ++t[x & 3][in[x]];
  }
  for (uint32_t v = 0; v < 256; ++v) hist[v] += t[0][v] + t[1][v] + t[2][v] + t[3][v];
}

}  // namespace
}  // namespace tvx

using namespace tvx;

int32_t tvxImageIntensityHistogramV(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint32_t* histogram, uint32_t accumulate) {
  uint32_t hist[256];
  if (accumulate) {
    std::memcpy(hist, histogram, sizeof hist);
  } else {
    std::memset(hist, 0, sizeof hist);
  }
  FastHistogram(src, srcWidth, srcHeight, srcStride, hist);
  std::memcpy(histogram, hist, sizeof hist);
  return 0;
}

int32_t tvxImageHistogramEqualizeu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                     uint8_t* dst, uint32_t dstStride) {
  uint32_t hist[256] = {};
  FastHistogram(src, srcWidth, srcHeight, srcStride, hist);
  uint8_t lut[256];
  tvxhisto::EqualizeTable(hist, srcWidth * srcHeight, lut);
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* in = tvxhisto::Row(src, srcStride, y);
    uint8_t* out = tvxhisto::Row(dst, dstStride, y);
    uint32_t x = 0;
    for (; x + 4 <= srcWidth; x += 4) {
      const uint8_t a = lut[in[x]], b = lut[in[x + 1]], c = lut[in[x + 2]], d = lut[in[x + 3]];
      out[x] = a;
      out[x + 1] = b;
      out[x + 2] = c;
      out[x + 3] = d;
    }
    for (; x < srcWidth; ++x) out[x] = lut[in[x]];
  }
  return 0;
}

int32_t tvxImageIntensityStatsV(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                float* mean, float* stdDev) {
  HWY_DYNAMIC_DISPATCH(HistoStats)(src, srcWidth, srcHeight, srcStride, mean, stdDev);
  return 0;
}

int32_t tvxImageMomentsu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                           float* moments) {
  HWY_DYNAMIC_DISPATCH(HistoMoments)(src, srcWidth, srcHeight, srcStride, moments);
  return 0;
}

int32_t tvxImageDiffu8V(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                        uint32_t src1Stride, uint32_t src2Stride, uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(HistoDiffu8)(src1, src2, srcWidth, srcHeight, src1Stride, src2Stride, dst, dstStride);
  return 0;
}

int32_t tvxImageDiffs16V(const int16_t* src1, const int16_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                         uint32_t src1Stride, uint32_t src2Stride, int16_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(HistoDiffs16)(src1, src2, srcWidth, srcHeight, src1Stride, src2Stride, dst, dstStride);
  return 0;
}

int32_t tvxImageDifff32V(const float* src1, const float* src2, uint32_t srcWidth, uint32_t srcHeight,
                         uint32_t src1Stride, uint32_t src2Stride, float* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(HistoDifff32)(src1, src2, srcWidth, srcHeight, src1Stride, src2Stride, dst, dstStride);
  return 0;
}

int32_t tvxImageDiffu8f32V(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                           uint32_t src1Stride, uint32_t src2Stride, float* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(HistoDiffu8f32)(src1, src2, srcWidth, srcHeight, src1Stride, src2Stride, dst, dstStride);
  return 0;
}

int32_t tvxImageDiffu8s8V(const uint8_t* src1, const uint8_t* src2, uint32_t srcWidth, uint32_t srcHeight,
                          uint32_t src1Stride, uint32_t src2Stride, int8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(HistoDiffu8s8)(src1, src2, srcWidth, srcHeight, src1Stride, src2Stride, dst, dstStride);
  return 0;
}

int32_t tvxGLBPu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                   uint32_t dstStride, int32_t threshold) {
  HWY_DYNAMIC_DISPATCH(HistoLbp)(src, srcWidth, srcHeight, srcStride, dst, dstStride, threshold);
  return 0;
}

int32_t tvxEdgeWeightings16V(const int16_t* gradX, const int16_t* gradY, uint32_t width, uint32_t height,
                             uint32_t gradXStride, uint32_t gradYStride, int16_t* weight, uint32_t weightStride) {
  HWY_DYNAMIC_DISPATCH(HistoEdgeWeight)(gradX, gradY, width, height, gradXStride, gradYStride, weight, weightStride);
  return 0;
}
#endif  // HWY_ONCE
