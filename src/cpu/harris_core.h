// Shared by the reference and SIMD variants of the Harris family: the scratch layout and the
// row-streaming driver of the integer structure tensor, the corner tests that run on a few
// pixels per row (strict 5x5 maximum, distance to accepted corners, window maximum of the
// score map) and the scalar row kernels the reference variants run.
//
// The integer tensor streams over the image: the gradient products of each row go to slot
// row % 5 of a ring of five rows per product plane; each response row is smoothed from the five
// ring rows around it and goes to slot row % 5 of a ring of responses, so the 5x5 maximum test of
// row y runs as soon as the response of row y + 2 exists.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "frame/frame.h"

namespace tvxharris {

// Smallest border: the 5x5 test reads responses two pixels away, each response smooths products
// two pixels away, and each product reads the pixels one away.
constexpr uint32_t kMinBorder = 5;
constexpr uint32_t kRing = 5;

inline const uint8_t* RowAt(const uint8_t* base, uint32_t stride, int64_t y) {
  return base + static_cast<size_t>(y) * stride;
}

// ---- scalar row kernels ------------------------------------------------------------------------

// Halved central differences and their products on columns 1 .. width - 2.
inline void ProductsRowScalar(const uint8_t* above, const uint8_t* row, const uint8_t* below, uint32_t x0, uint32_t x1,
                              int16_t* xx, int16_t* xy, int16_t* yy) {
  for (uint32_t x = x0; x < x1; ++x) {
    const int32_t gx = (int32_t{row[x + 1]} - row[x - 1]) >> 1;
    const int32_t gy = (int32_t{below[x]} - above[x]) >> 1;
    xx[x] = static_cast<int16_t>(gx * gx);
    xy[x] = static_cast<int16_t>(gx * gy);
    yy[x] = static_cast<int16_t>(gy * gy);
  }
}

// 5x5 binomial of five product rows on columns x0 .. x1 - 1 (reads columns x0 - 2 .. x1 + 1);
// vsum holds the column sums.
inline void BlurRowScalar(const int16_t* const* rows, uint32_t x0, uint32_t x1, int32_t* vsum, int16_t* out) {
  for (uint32_t x = x0 - 2; x < x1 + 2; ++x)
    vsum[x] = rows[0][x] + 4 * rows[1][x] + 6 * rows[2][x] + 4 * rows[3][x] + rows[4][x];
  for (uint32_t x = x0; x < x1; ++x)
    out[x] = static_cast<int16_t>((vsum[x - 2] + 4 * vsum[x - 1] + 6 * vsum[x] + 4 * vsum[x + 1] + vsum[x + 2]) >> 8);
}

inline int32_t HarrisResponse(int32_t sxx, int32_t sxy, int32_t syy) {
  const int32_t trace = sxx + syy;
  return sxx * syy - sxy * sxy - ((trace * trace) >> 4);
}

// Smaller eigenvalue of [[a, b], [b, c]] with a = Sxx / 2, c = Syy / 2 (exact halves), in double.
inline float MinEigen(int32_t sxx, int32_t sxy, int32_t syy) {
  const double a = sxx * 0.5, c = syy * 0.5, d = a - c, b = sxy;
  return static_cast<float>(a + c - std::sqrt(d * d + b * b));
}

inline void HarrisRowScalar(const int16_t* sxx, const int16_t* sxy, const int16_t* syy, uint32_t x0, uint32_t x1,
                            int32_t* out) {
  for (uint32_t x = x0; x < x1; ++x) out[x] = HarrisResponse(sxx[x], sxy[x], syy[x]);
}

inline void MinEigenRowScalar(const int16_t* sxx, const int16_t* sxy, const int16_t* syy, uint32_t x0, uint32_t x1,
                              float* out) {
  for (uint32_t x = x0; x < x1; ++x) out[x] = MinEigen(sxx[x], sxy[x], syy[x]);
}

// ---- the streaming driver ------------------------------------------------------------------------

// Scratch of one streaming pass, carved from one scratch-pool block.
template <typename R>
struct TensorScratch {
  void* block = nullptr;
  int16_t* products[3][kRing];  // xx, xy, yy
  R* responses[kRing];
  int16_t* smoothed[3];
  int32_t* vsum;

  bool Acquire(uint32_t width) {
    const size_t row = (size_t{width} + 15) & ~size_t{15};
    const size_t bytes = row * (3 * kRing * sizeof(int16_t) + kRing * sizeof(R) + 3 * sizeof(int16_t) + sizeof(int32_t));
    if (bytes > UINT32_MAX) return false;
    block = tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 64);
    if (block == nullptr) return false;
    uint8_t* p = static_cast<uint8_t*>(block);
    const auto take = [&](size_t elemBytes) {
      void* q = p;
      p += row * elemBytes;
      return q;
    };
    for (auto& plane : products)
      for (auto& r : plane) r = static_cast<int16_t*>(take(sizeof(int16_t)));
    for (auto& r : responses) r = static_cast<R*>(take(sizeof(R)));
    for (auto& r : smoothed) r = static_cast<int16_t*>(take(sizeof(int16_t)));
    vsum = static_cast<int32_t*>(take(sizeof(int32_t)));
    return true;
  }
  ~TensorScratch() {
    if (block != nullptr) tvxReleaseScratchBuffer_(block);
  }
};

// Row kernels of one tier: products(above, row, below, x0, x1, xx, xy, yy),
// blur(rows[5], x0, x1, vsum, out), response(sxx, sxy, syy, x0, x1, out).
//
// Streams the responses over rows border - 2 .. height - border + 1 and columns
// border - 2 .. width - border + 1, and calls visit(y, rows) for each scan row
// y = border .. height - border - 1 with rows[i] the response row y - 2 + i; visit returns false
// to stop. Returns 0, or 5 when scratch is unavailable. border must be at least kMinBorder.
template <typename R, class Products, class Blur, class Response, class Visit>
int32_t StreamTensor(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t border,
                     Products products, Blur blur, Response response, Visit visit) {
  if (uint64_t{border} * 2 >= width || uint64_t{border} * 2 >= height) return 0;
  TensorScratch<R> s;
  if (!s.Acquire(width)) return 5;
  const uint32_t rx0 = border - 2, rx1 = width - border + 2;  // response columns
  const uint32_t px0 = rx0 - 2, px1 = rx1 + 2;                // product columns
  const auto productRow = [&](int64_t r) {
    const uint32_t slot = static_cast<uint32_t>(r % kRing);
    products(RowAt(src, stride, r - 1), RowAt(src, stride, r), RowAt(src, stride, r + 1), px0, px1,
             s.products[0][slot], s.products[1][slot], s.products[2][slot]);
  };
  const int64_t first = int64_t{border} - 2, last = int64_t{height} - border + 2;
  for (int64_t r = first - 2; r < first + 2; ++r) productRow(r);
  for (int64_t y = first; y < last; ++y) {
    productRow(y + 2);
    for (int plane = 0; plane < 3; ++plane) {
      const int16_t* rows[kRing];
      for (int i = 0; i < 5; ++i) rows[i] = s.products[plane][(y - 2 + i) % kRing];
      blur(rows, rx0, rx1, s.vsum, s.smoothed[plane]);
    }
    response(s.smoothed[0], s.smoothed[1], s.smoothed[2], rx0, rx1, s.responses[y % kRing]);
    const int64_t centre = y - 2;
    if (centre >= int64_t{border}) {
      const R* rows[kRing];
      for (int i = 0; i < 5; ++i) rows[i] = s.responses[(centre - 2 + i) % kRing];
      if (!visit(static_cast<uint32_t>(centre), rows)) break;
    }
  }
  return 0;
}

// True when rows[2][x] is strictly greater than the 24 other values of its 5x5 neighbourhood.
template <typename R>
inline bool StrictMax5x5(const R* const* rows, uint32_t x) {
  const R v = rows[2][x];
  for (int dy = 0; dy < 5; ++dy)
    for (int dx = -2; dx <= 2; ++dx) {
      if (dy == 2 && dx == 0) continue;
      if (!(v > rows[dy][x + dx])) return false;
    }
  return true;
}

// True when (x, y) lies at least minDistance from each of the n corners listed (squared integer
// distances compared in float).
inline bool FarFromAll(const uint32_t* xy, uint32_t n, uint32_t x, uint32_t y, float minDistance) {
  const float limit = minDistance * minDistance;
  for (uint32_t i = 0; i < n; ++i) {
    const int64_t dx = int64_t{x} - xy[2 * i], dy = int64_t{y} - xy[2 * i + 1];
    if (static_cast<float>(dx * dx + dy * dy) < limit) return false;
  }
  return true;
}

// Border of the integer detectors: 5 or more.
inline uint32_t DetectorBorder(uint32_t border) { return border <= kMinBorder ? kMinBorder : border; }

// Integer Harris detection into xy (with an optional exclusion test per pixel).
template <class Products, class Blur, class Response, class Excluded>
int32_t DetectHarris(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t border,
                     uint32_t* xy, uint32_t nCornersMax, uint32_t* numcorners, int32_t threshold, Products products,
                     Blur blur, Response response, Excluded excluded) {
  *numcorners = 0;
  if (nCornersMax == 0) return 0;
  border = DetectorBorder(border);
  uint32_t count = 0;
  const uint32_t x1 = width - border;
  const int32_t status = StreamTensor<int32_t>(
      src, width, height, stride, border, products, blur, response, [&](uint32_t y, const int32_t* const* rows) {
        for (uint32_t x = border; x < x1; ++x) {
          if (rows[2][x] <= threshold || !StrictMax5x5(rows, x) || excluded(x, y)) continue;
          xy[2 * count] = x;
          xy[2 * count + 1] = y;
          if (++count == nCornersMax) return false;
        }
        return true;
      });
  *numcorners = status == 0 ? count : 0;
  return status;
}

// Minimum-eigenvalue detection into xy.
template <class Products, class Blur, class Response>
int32_t DetectGoodFeatures(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t capacity,
                           float threshold, float minDistance, uint32_t* xy, uint32_t* nCorners, Products products,
                           Blur blur, Response response) {
  *nCorners = 0;
  if (capacity == 0) return 0;
  uint32_t count = 0;
  const bool spaced = minDistance > 1.0f;
  const uint32_t x1 = width - kMinBorder;
  const int32_t status = StreamTensor<float>(
      src, width, height, stride, kMinBorder, products, blur, response, [&](uint32_t y, const float* const* rows) {
        for (uint32_t x = kMinBorder; x < x1; ++x) {
          if (!(rows[2][x] > threshold) || !StrictMax5x5(rows, x)) continue;
          if (spaced && !FarFromAll(xy, count, x, y, minDistance)) continue;
          xy[2 * count] = x;
          xy[2 * count + 1] = y;
          if (++count == capacity) return false;
        }
        return true;
      });
  *nCorners = status == 0 ? count : 0;
  return status;
}

// ---- masks ----------------------------------------------------------------------------------------

// Maps image pixels to mask bits: shift > 0 when the mask is smaller, < 0 when larger. valid is
// false for a mask of any other size.
struct MaskMap {
  bool valid = false;
  int shift = 0;
};

inline MaskMap MapMask(uint32_t width, uint32_t height, uint32_t maskWidth, uint32_t maskHeight) {
  MaskMap m;
  for (int s = 0; s <= 3; ++s) {
    if (uint64_t{maskWidth} << s == width && uint64_t{maskHeight} << s == height) return {true, s};
    if (uint64_t{width} << s == maskWidth && uint64_t{height} << s == maskHeight) return {true, -s};
  }
  return m;
}

inline bool MaskBitSet(const uint8_t* mask, uint32_t maskWidth, const MaskMap& m, uint32_t x, uint32_t y) {
  const uint32_t mx = m.shift >= 0 ? x >> m.shift : x << -m.shift;
  const uint32_t my = m.shift >= 0 ? y >> m.shift : y << -m.shift;
  const size_t rowBytes = (size_t{maskWidth} + 7) / 8;
  return (mask[my * rowBytes + mx / 8] >> (7 - mx % 8)) & 1;
}

// ---- adaptive selection ---------------------------------------------------------------------------

struct Candidate {
  uint32_t x, y;
  int32_t response;
};

// Picks corners from the strict maxima (in scan order): lowers the threshold by halving until
// enough lie above it, takes them strongest first with the spacing rule, writes them in scan order.
uint32_t SelectAdaptive(Candidate* cands, uint32_t nCands, int32_t threshold, float minFraction, uint32_t nCornersMax,
                        float minDistance, uint32_t* xy);

// Upper bound of the number of strict 5x5 maxima of a width x height image: no two lie within
// two pixels of each other, so each 3x3 tile holds at most one.
inline uint64_t MaxStrictMaxima(uint32_t width, uint32_t height) {
  return ((uint64_t{width} + 2) / 3) * ((uint64_t{height} + 2) / 3);
}

// Adaptive detection: collects every strict maximum with a response above min(threshold, 0)
// (above threshold when it is not positive), then selects.
template <class Products, class Blur, class Response>
int32_t DetectAdaptive(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t nCornersMax,
                       float minDistance, uint32_t* xy, uint32_t* nCorners, int32_t threshold, float minFraction,
                       Products products, Blur blur, Response response) {
  *nCorners = 0;
  if (nCornersMax == 0) return 0;
  const uint64_t bytes = MaxStrictMaxima(width, height) * sizeof(Candidate);
  if (bytes > UINT32_MAX) return 5;
  Candidate* cands = static_cast<Candidate*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 16));
  if (cands == nullptr) return 5;
  const int32_t floor = threshold > 0 ? 0 : threshold;
  uint32_t n = 0;
  const uint32_t x1 = width - kMinBorder;
  const int32_t status = StreamTensor<int32_t>(
      src, width, height, stride, kMinBorder, products, blur, response, [&](uint32_t y, const int32_t* const* rows) {
        for (uint32_t x = kMinBorder; x < x1; ++x)
          if (rows[2][x] > floor && StrictMax5x5(rows, x)) cands[n++] = {x, y, rows[2][x]};
        return true;
      });
  if (status == 0) *nCorners = SelectAdaptive(cands, n, threshold, minFraction, nCornersMax, minDistance, xy);
  tvxReleaseScratchBuffer_(cands);
  return status;
}

// ---- score map ------------------------------------------------------------------------------------

// Normalisation range test and the corner selection over a finished map.
constexpr double kFlatRange = 2.220446e-16;

void SelectScoreCorners(const float* resp, uint32_t width, uint32_t height, uint32_t respStride, uint32_t* xy,
                        uint32_t nCornersMax, uint32_t* nCorners, uint32_t nms, float minDistance, float threshold);

}  // namespace tvxharris
