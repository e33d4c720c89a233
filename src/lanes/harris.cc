// SIMD variants of the Harris family. The integer tensor is computed a row at a time in lanes:
// products of the halved central differences in 16-bit lanes, the 5x5 binomial in 32-bit lanes
// (column sums, then the taps across, >> 8, narrowed back to 16 bits), the integer response in
// 32-bit lanes; the minimum eigenvalue is formed in double lanes where the target has them, with
// the reference's operation order, so it is the same float. The 5x5 maximum test, the spacing
// rule and the corner lists are the shared scalar code, so the corners equal the reference's.
// The score map runs the SIMD Sobel and box filters and forms products, response and the
// normalisation in float lanes in the reference's order (no fused multiply-add); ARMv7, whose
// float division is an estimate, divides in scalar code.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/harris.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "cpu/harris_core.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace harris {
namespace hn = hwy::HWY_NAMESPACE;

void ProductsRow(const uint8_t* above, const uint8_t* row, const uint8_t* below, uint32_t x0, uint32_t x1,
                 int16_t* xx, int16_t* xy, int16_t* yy) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t N = hn::Lanes(d16);
  uint32_t x = x0;
  for (; x + N <= x1; x += N) {
    const auto left = hn::PromoteTo(d16, hn::LoadU(d8, row + x - 1));
    const auto right = hn::PromoteTo(d16, hn::LoadU(d8, row + x + 1));
    const auto up = hn::PromoteTo(d16, hn::LoadU(d8, above + x));
    const auto down = hn::PromoteTo(d16, hn::LoadU(d8, below + x));
    const auto gx = hn::ShiftRight<1>(hn::Sub(right, left));
    const auto gy = hn::ShiftRight<1>(hn::Sub(down, up));
    hn::StoreU(hn::Mul(gx, gx), d16, xx + x);
    hn::StoreU(hn::Mul(gx, gy), d16, xy + x);
    hn::StoreU(hn::Mul(gy, gy), d16, yy + x);
  }
  tvxharris::ProductsRowScalar(above, row, below, x, x1, xx, xy, yy);
}

void BlurRow(const int16_t* const* rows, uint32_t x0, uint32_t x1, int32_t* vsum, int16_t* out) {
  const hn::ScalableTag<int32_t> d32;
  const hn::Rebind<int16_t, decltype(d32)> d16;
  const size_t N = hn::Lanes(d32);
  const auto six = hn::Set(d32, 6);
  const auto taps = [&](auto a, auto b, auto c, auto d, auto e) {
    return hn::Add(hn::Add(a, e), hn::Add(hn::ShiftLeft<2>(hn::Add(b, d)), hn::Mul(c, six)));
  };
  uint32_t x = x0 - 2;
  for (; x + N <= x1 + 2; x += N) {
    const auto load = [&](int i) { return hn::PromoteTo(d32, hn::LoadU(d16, rows[i] + x)); };
    hn::StoreU(taps(load(0), load(1), load(2), load(3), load(4)), d32, vsum + x);
  }
  for (; x < x1 + 2; ++x)
    vsum[x] = rows[0][x] + 4 * rows[1][x] + 6 * rows[2][x] + 4 * rows[3][x] + rows[4][x];
  for (x = x0; x + N <= x1; x += N) {
    const auto s = taps(hn::LoadU(d32, vsum + x - 2), hn::LoadU(d32, vsum + x - 1), hn::LoadU(d32, vsum + x),
                        hn::LoadU(d32, vsum + x + 1), hn::LoadU(d32, vsum + x + 2));
    hn::StoreU(hn::DemoteTo(d16, hn::ShiftRight<8>(s)), d16, out + x);
  }
  for (; x < x1; ++x)
    out[x] = static_cast<int16_t>((vsum[x - 2] + 4 * vsum[x - 1] + 6 * vsum[x] + 4 * vsum[x + 1] + vsum[x + 2]) >> 8);
}

void HarrisRow(const int16_t* sxx, const int16_t* sxy, const int16_t* syy, uint32_t x0, uint32_t x1, int32_t* out) {
  const hn::ScalableTag<int32_t> d32;
  const hn::Rebind<int16_t, decltype(d32)> d16;
  const size_t N = hn::Lanes(d32);
  uint32_t x = x0;
  for (; x + N <= x1; x += N) {
    const auto a = hn::PromoteTo(d32, hn::LoadU(d16, sxx + x));
    const auto b = hn::PromoteTo(d32, hn::LoadU(d16, sxy + x));
    const auto c = hn::PromoteTo(d32, hn::LoadU(d16, syy + x));
    const auto t = hn::Add(a, c);
    hn::StoreU(hn::Sub(hn::Sub(hn::Mul(a, c), hn::Mul(b, b)), hn::ShiftRight<4>(hn::Mul(t, t))), d32, out + x);
  }
  tvxharris::HarrisRowScalar(sxx, sxy, syy, x, x1, out);
}

void MinEigenRow(const int16_t* sxx, const int16_t* sxy, const int16_t* syy, uint32_t x0, uint32_t x1, float* out) {
  uint32_t x = x0;
#if HWY_HAVE_FLOAT64
  const hn::ScalableTag<double> df;
  const hn::Rebind<int32_t, decltype(df)> d32;
  const hn::Rebind<int16_t, decltype(df)> d16;
  const hn::Rebind<float, decltype(df)> dout;
  const size_t N = hn::Lanes(df);
  const auto half = hn::Set(df, 0.5);
  const auto load = [&](const int16_t* p) { return hn::PromoteTo(df, hn::PromoteTo(d32, hn::LoadU(d16, p + x))); };
  for (; x + N <= x1; x += N) {
    const auto a = hn::Mul(load(sxx), half), c = hn::Mul(load(syy), half), b = load(sxy);
    const auto d = hn::Sub(a, c);
    const auto root = hn::Sqrt(hn::Add(hn::Mul(d, d), hn::Mul(b, b)));
    hn::StoreU(hn::DemoteTo(dout, hn::Sub(hn::Add(a, c), root)), dout, out + x);
  }
#endif
  tvxharris::MinEigenRowScalar(sxx, sxy, syy, x, x1, out);
}

}  // namespace harris

int32_t HarrisCorners(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t border,
                     uint32_t* xy, uint32_t nCornersMax, uint32_t* numcorners, int32_t threshold) {
  return tvxharris::DetectHarris(src, width, height, stride, border, xy, nCornersMax, numcorners, threshold,
                                 harris::ProductsRow, harris::BlurRow, harris::HarrisRow, [](uint32_t, uint32_t) { return false; });
}

int32_t HarrisCornersInMask(const uint8_t* srcImg, uint32_t width, uint32_t height, uint32_t stride, uint32_t border,
                           uint32_t* xy, uint32_t nCornersMax, uint32_t* numcorners, int32_t threshold,
                           const uint8_t* bitMask, uint32_t maskWidth, uint32_t maskHeight) {
  const tvxharris::MaskMap m = tvxharris::MapMask(width, height, maskWidth, maskHeight);
  if (!m.valid) {
    *numcorners = 0;
    return 0;
  }
  return tvxharris::DetectHarris(
      srcImg, width, height, stride, border, xy, nCornersMax, numcorners, threshold, harris::ProductsRow, harris::BlurRow, harris::HarrisRow,
      [&](uint32_t x, uint32_t y) { return tvxharris::MaskBitSet(bitMask, maskWidth, m, x, y); });
}

int32_t HarrisCornersAdaptive(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint32_t nCornersMax, float minDistance, uint32_t* xy, uint32_t* nCorners,
                             int32_t threshold, float minFraction) {
  return tvxharris::DetectAdaptive(src, srcWidth, srcHeight, srcStride, nCornersMax, minDistance, xy, nCorners,
                                   threshold, minFraction, harris::ProductsRow, harris::BlurRow, harris::HarrisRow);
}

int32_t HarrisGoodFeatures(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t capacity,
                     float threshold, float minDistance, uint32_t* xy, uint32_t* nCorners) {
  return tvxharris::DetectGoodFeatures(src, width, height, stride, capacity, threshold, minDistance, xy, nCorners,
                                       harris::ProductsRow, harris::BlurRow, harris::MinEigenRow);
}

namespace harris {

// ---- score map ----------------------------------------------------------------------------------

void ScaledProducts(const int16_t* gx, const int16_t* gy, size_t count, float scale, float* pxx, float* pxy,
                    float* pyy) {
  const hn::ScalableTag<float> df;
  const hn::Rebind<int32_t, decltype(df)> d32;
  const hn::Rebind<int16_t, decltype(df)> d16;
  const size_t N = hn::Lanes(df);
  const auto s = hn::Set(df, scale);
  size_t i = 0;
  for (; i + N <= count; i += N) {
    const auto fx = hn::ConvertTo(df, hn::PromoteTo(d32, hn::LoadU(d16, gx + i)));
    const auto fy = hn::ConvertTo(df, hn::PromoteTo(d32, hn::LoadU(d16, gy + i)));
    const auto sx = hn::Mul(s, fx);
    hn::StoreU(hn::Mul(sx, fx), df, pxx + i);
    hn::StoreU(hn::Mul(sx, fy), df, pxy + i);
    hn::StoreU(hn::Mul(hn::Mul(s, fy), fy), df, pyy + i);
  }
  for (; i < count; ++i) {
    const float fx = gx[i], fy = gy[i];
    pxx[i] = scale * fx * fx;
    pxy[i] = scale * fx * fy;
    pyy[i] = scale * fy * fy;
  }
}

// Window sums across one row of n-wide windows (x - n/2 .. x + (n-1)/2 cut to the row), each
// added left to right from its first column, as the float box filter does.
void WindowSumsAcross(const float* p, uint32_t width, uint32_t n, float* out) {
  const hn::ScalableTag<float> df;
  const int64_t L = static_cast<int64_t>(hn::Lanes(df));
  const int64_t w = width, before = n / 2, after = (n - 1) / 2, lo = before, hi = w - after;
  const auto scalar = [&](int64_t x) {
    const int64_t x0 = std::max<int64_t>(0, x - before), x1 = std::min<int64_t>(w - 1, x + after);
    float sum = p[x0];
    for (int64_t sx = x0 + 1; sx <= x1; ++sx) sum += p[sx];
    out[x] = sum;
  };
  int64_t x = 0;
  for (; x < std::min(lo, w); ++x) scalar(x);
  for (; x + L <= hi; x += L) {
    auto sum = hn::LoadU(df, p + x - before);
    for (int64_t k = 1; k < int64_t{n}; ++k) sum = hn::Add(sum, hn::LoadU(df, p + x - before + k));
    hn::StoreU(sum, df, out + x);
  }
  for (; x < w; ++x) scalar(x);
}

// Window means of one output row from the window sums of its rows (added top to bottom), divided
// by the number of pixels in the window cut to the image.
void WindowMeans(const float* ringPlane, uint32_t ringRows, size_t rowElems, uint32_t y0, uint32_t rows,
                 uint32_t width, uint32_t n, float* out) {
  const auto sumsOf = [&](uint32_t r) { return ringPlane + ((y0 + r) % ringRows) * rowElems; };
  const hn::ScalableTag<float> df;
  const int64_t L = static_cast<int64_t>(hn::Lanes(df));
  const int64_t w = width, before = n / 2, after = (n - 1) / 2, lo = before, hi = w - after;
  const auto scalar = [&](int64_t x) {
    const int64_t x0 = std::max<int64_t>(0, x - before), x1 = std::min<int64_t>(w - 1, x + after);
    float total = sumsOf(0)[x];
    for (uint32_t r = 1; r < rows; ++r) total += sumsOf(r)[x];
    out[x] = total / static_cast<float>((x1 - x0 + 1) * int64_t{rows});
  };
  int64_t x = 0;
  for (; x < std::min(lo, w); ++x) scalar(x);
  const float count = static_cast<float>(int64_t{n} * rows);
#if HWY_ARCH_ARM_V7
  for (; x + L <= hi; x += L) {  // float division is an estimate in NEON: divide in scalar code
    auto total = hn::LoadU(df, sumsOf(0) + x);
    for (uint32_t r = 1; r < rows; ++r) total = hn::Add(total, hn::LoadU(df, sumsOf(r) + x));
    hn::StoreU(total, df, out + x);
    for (int64_t i = 0; i < L; ++i) out[x + i] /= count;
  }
#else
  const auto vcount = hn::Set(df, count);
  for (; x + L <= hi; x += L) {
    auto total = hn::LoadU(df, sumsOf(0) + x);
    for (uint32_t r = 1; r < rows; ++r) total = hn::Add(total, hn::LoadU(df, sumsOf(r) + x));
    hn::StoreU(hn::Div(total, vcount), df, out + x);
  }
#endif
  for (; x < w; ++x) scalar(x);
}

// Response row; widens [lo, hi] to cover it.
void ResponseRow(const float* pxx, const float* pxy, const float* pyy, uint32_t width, float k, float* out, float& lo,
                 float& hi) {
  const hn::ScalableTag<float> df;
  const size_t N = hn::Lanes(df);
  const auto kv = hn::Set(df, k);
  auto vlo = hn::Set(df, lo), vhi = hn::Set(df, hi);
  uint32_t x = 0;
  for (; x + N <= width; x += N) {
    const auto a = hn::LoadU(df, pxx + x), b = hn::LoadU(df, pxy + x), c = hn::LoadU(df, pyy + x);
    const auto t = hn::Add(a, c);
    const auto r = hn::Sub(hn::Sub(hn::Mul(a, c), hn::Mul(b, b)), hn::Mul(hn::Mul(kv, t), t));
    hn::StoreU(r, df, out + x);
    vlo = hn::Min(vlo, r);
    vhi = hn::Max(vhi, r);
  }
  lo = hn::GetLane(hn::MinOfLanes(df, vlo));
  hi = hn::GetLane(hn::MaxOfLanes(df, vhi));
  for (; x < width; ++x) {
    const float a = pxx[x], b = pxy[x], c = pyy[x];
    const float t = a + c;
    out[x] = (a * c - b * b) - k * t * t;
    lo = std::min(lo, out[x]);
    hi = std::max(hi, out[x]);
  }
}

void NormalizeRow(float* row, uint32_t width, float lo, float range) {
  uint32_t x = 0;
#if !HWY_ARCH_ARM_V7
  const hn::ScalableTag<float> df;
  const size_t N = hn::Lanes(df);
  const auto vlo = hn::Set(df, lo), vrange = hn::Set(df, range), k255 = hn::Set(df, 255.0f);
  for (; x + N <= width; x += N)
    hn::StoreU(hn::Div(hn::Mul(hn::Sub(hn::LoadU(df, row + x), vlo), k255), vrange), df, row + x);
#endif
  for (; x < width; ++x) row[x] = (row[x] - lo) * 255.0f / range;
}

}  // namespace harris

// The score map streams down the image: each row's products go to window sums across, kept in a
// ring of as many rows as the window has; each output row adds the sums of its window rows,
// divides, and forms the response. The arithmetic is the reference's (products, then the float
// box mean, then the response), so the map is the same bit for bit.
int32_t HarrisScoreMap(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, float* resp,
                       uint32_t respStride, uint32_t* xy, uint32_t nCornersMax, uint32_t* nCorners, float k,
                       uint32_t kernelSize, uint32_t blockSize, uint32_t nms, float minDistance, uint32_t normalize,
                       float threshold) {
  *nCorners = 0;
  const uint64_t pixels = uint64_t{width} * height;
  const uint32_t ringRows = std::min(blockSize, height);
  const uint64_t row = (uint64_t{width} + 15) & ~uint64_t{15};
  const uint64_t bytes = pixels * 2 * sizeof(int16_t) + row * sizeof(float) * (6 + 3 * uint64_t{ringRows}) + 64;
  if (bytes > UINT32_MAX) return 5;
  void* block = tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 64);
  if (block == nullptr) return 5;
  float* rowsBase = static_cast<float*>(block);
  float* products[3] = {rowsBase, rowsBase + row, rowsBase + 2 * row};
  float* means[3] = {rowsBase + 3 * row, rowsBase + 4 * row, rowsBase + 5 * row};
  float* ring = rowsBase + 6 * row;  // plane p, row r at ring + (p * ringRows + r % ringRows) * row
  int16_t* gx = reinterpret_cast<int16_t*>(ring + 3 * ringRows * row);
  int16_t* gy = gx + pixels;
  const auto sobel = kernelSize == 3   ? tvxFilterSobel3x3u8s16V
                     : kernelSize == 5 ? tvxFilterSobel5x5u8s16V
                                       : tvxFilterSobel7x7u8s16V;
  sobel(src, width, height, srcStride, gx, gy, 2 * width, 2, 0);
  const float scale = static_cast<float>(1.0 / (static_cast<double>(blockSize) * double(1u << (kernelSize - 1)) * 255.0));
  const uint32_t before = blockSize / 2, after = (blockSize - 1) / 2;
  const auto sumsOf = [&](uint32_t plane, uint32_t r) { return ring + (size_t{plane} * ringRows + r % ringRows) * row; };
  const auto out = [&](uint32_t y) { return reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(resp) + size_t{y} * respStride); };
  float lo = std::numeric_limits<float>::max(), hi = std::numeric_limits<float>::lowest();
  uint32_t next = 0;  // the next row whose window sums are due
  for (uint32_t y = 0; y < height; ++y) {
    const uint32_t y0 = y > before ? y - before : 0, y1 = static_cast<uint32_t>(std::min<uint64_t>(height - 1, uint64_t{y} + after));
    for (; next <= y1; ++next) {
      harris::ScaledProducts(gx + size_t{next} * width, gy + size_t{next} * width, width, scale, products[0], products[1],
                             products[2]);
      for (uint32_t p = 0; p < 3; ++p) {
        if (blockSize > 1)
          harris::WindowSumsAcross(products[p], width, blockSize, sumsOf(p, next));
        else
          std::copy(products[p], products[p] + width, sumsOf(p, next));
      }
    }
    for (uint32_t p = 0; p < 3; ++p) {
      if (blockSize > 1) {
        harris::WindowMeans(ring + size_t{p} * ringRows * row, ringRows, row, y0, y1 - y0 + 1, width, blockSize, means[p]);
      } else {
        std::copy(sumsOf(p, y), sumsOf(p, y) + width, means[p]);
      }
    }
    harris::ResponseRow(means[0], means[1], means[2], width, k, out(y), lo, hi);
  }
  tvxReleaseScratchBuffer_(block);
  if (normalize) {
    const bool flat = !(double{hi} - double{lo} > tvxharris::kFlatRange);
    for (uint32_t y = 0; y < height; ++y) {
      if (flat)
        std::fill(out(y), out(y) + width, 0.0f);
      else
        harris::NormalizeRow(out(y), width, lo, hi - lo);
    }
  }
  tvxharris::SelectScoreCorners(resp, width, height, respStride, xy, nCornersMax, nCorners, nms, minDistance, threshold);
  return 0;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(HarrisCorners);
HWY_EXPORT(HarrisCornersInMask);
HWY_EXPORT(HarrisCornersAdaptive);
HWY_EXPORT(HarrisGoodFeatures);
HWY_EXPORT(HarrisScoreMap);
}  // namespace tvx

using namespace tvx;

int32_t tvxCornerHarrisu8V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t border,
                           uint32_t* xy, uint32_t nCornersMax, uint32_t* numcorners, int32_t threshold) {
  return HWY_DYNAMIC_DISPATCH(HarrisCorners)(src, width, height, stride, border, xy, nCornersMax, numcorners, threshold);
}
int32_t tvxCornerHarrisInMasku8V(const uint8_t* srcImg, uint32_t width, uint32_t height, uint32_t stride,
                                 uint32_t border, uint32_t* xy, uint32_t nCornersMax, uint32_t* numcorners,
                                 int32_t threshold, const uint8_t* bitMask, uint32_t maskWidth, uint32_t maskHeight) {
  return HWY_DYNAMIC_DISPATCH(HarrisCornersInMask)(srcImg, width, height, stride, border, xy, nCornersMax, numcorners,
                                                  threshold, bitMask, maskWidth, maskHeight);
}
int32_t tvxCornerHarrisAdaptiveu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   uint32_t nCornersMax, float minDistance, uint32_t* xy, uint32_t* nCorners,
                                   int32_t threshold, float minFraction) {
  return HWY_DYNAMIC_DISPATCH(HarrisCornersAdaptive)(src, srcWidth, srcHeight, srcStride, nCornersMax, minDistance, xy,
                                                    nCorners, threshold, minFraction);
}
int32_t tvxGoodFeatureToTracku8V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride,
                                 uint32_t capacity, float threshold, float minDistance, uint32_t* xy,
                                 uint32_t* nCorners) {
  return HWY_DYNAMIC_DISPATCH(HarrisGoodFeatures)(src, width, height, stride, capacity, threshold, minDistance, xy, nCorners);
}
int32_t tvxCornerHarrisScoreu8V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, float* resp,
                                uint32_t respStride, uint32_t* xy, uint32_t nCornersMax, uint32_t* nCorners, float k,
                                uint32_t kernelSize, uint32_t blockSize, uint32_t nms, float minDistance,
                                uint32_t normalize, float threshold) {
  return HWY_DYNAMIC_DISPATCH(HarrisScoreMap)(src, width, height, srcStride, resp, respStride, xy, nCornersMax, nCorners, k,
                                           kernelSize, blockSize, nms, minDistance, normalize, threshold);
}
#endif  // HWY_ONCE
