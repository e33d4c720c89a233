// Reference variants of the Harris family: the integer detector and its masked and adaptive
// forms, the local maximum search, the float score map, the minimum-eigenvalue detector and the
// sub-pixel refinement.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

#include "cpu/harris_core.h"
#include "frame/frame.h"

using namespace tvxharris;

namespace {

const auto kProducts = ProductsRowScalar;
const auto kBlur = BlurRowScalar;
const auto kHarris = HarrisRowScalar;
const auto kMinEigen = MinEigenRowScalar;

// Integer Harris response at (x, y), computed directly; needs 3 <= x < width - 3 and likewise y.
int32_t ResponseAt(const uint8_t* src, uint32_t stride, uint32_t x, uint32_t y) {
  static const int32_t w[5] = {1, 4, 6, 4, 1};
  int32_t sxx = 0, sxy = 0, syy = 0;
  for (int i = 0; i < 5; ++i) {
    const uint32_t r = y - 2 + i;
    const uint8_t *above = RowAt(src, stride, r - 1), *row = RowAt(src, stride, r), *below = RowAt(src, stride, r + 1);
    for (int j = 0; j < 5; ++j) {
      const uint32_t c = x - 2 + j;
      const int32_t gx = (int32_t{row[c + 1]} - row[c - 1]) >> 1, gy = (int32_t{below[c]} - above[c]) >> 1;
      const int32_t weight = w[i] * w[j];
      sxx += weight * static_cast<int16_t>(gx * gx);
      sxy += weight * static_cast<int16_t>(gx * gy);
      syy += weight * static_cast<int16_t>(gy * gy);
    }
  }
  return HarrisResponse(sxx >> 8, sxy >> 8, syy >> 8);
}

// ---- sub-pixel refinement -----------------------------------------------------------------------

// Bilinear sample of the image with replicated border.
inline float Sample(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, float x, float y) {
  x = std::min(std::max(x, 0.0f), static_cast<float>(width - 1));
  y = std::min(std::max(y, 0.0f), static_cast<float>(height - 1));
  const uint32_t x0 = static_cast<uint32_t>(x), y0 = static_cast<uint32_t>(y);
  const uint32_t x1 = std::min(x0 + 1, width - 1), y1 = std::min(y0 + 1, height - 1);
  const float ax = x - static_cast<float>(x0), ay = y - static_cast<float>(y0);
  const uint8_t *r0 = RowAt(src, stride, y0), *r1 = RowAt(src, stride, y1);
  const float top = r0[x0] + ax * (r0[x1] - r0[x0]);
  const float bottom = r1[x0] + ax * (r1[x1] - r1[x0]);
  return top + ay * (bottom - top);
}

void RefineOne(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, float* pt, int32_t winW,
               int32_t winH, int32_t maxIterations, float epsilon, const float* weights, float* patch) {
  const float startX = pt[0], startY = pt[1];
  if (!std::isfinite(startX) || !std::isfinite(startY)) return;
  const int32_t pw = 2 * winW + 3, ph = 2 * winH + 3;  // window plus one pixel each side
  const double eps2 = double{epsilon} * epsilon;
  float cx = startX, cy = startY;
  for (int32_t iter = 0; iter < maxIterations; ++iter) {
    for (int32_t i = 0; i < ph; ++i)
      for (int32_t j = 0; j < pw; ++j)
        patch[i * pw + j] = Sample(src, width, height, stride, cx + static_cast<float>(j - winW - 1),
                                   cy + static_cast<float>(i - winH - 1));
    double a = 0, b = 0, c = 0, bb1 = 0, bb2 = 0;
    for (int32_t i = 0; i < 2 * winH + 1; ++i) {
      const double py = i - winH;
      for (int32_t j = 0; j < 2 * winW + 1; ++j) {
        const float* p = patch + (i + 1) * pw + (j + 1);
        const double m = weights[i * (2 * winW + 1) + j];
        const double gx = double{p[1]} - p[-1], gy = double{p[pw]} - p[-pw];
        const double gxx = gx * gx * m, gxy = gx * gy * m, gyy = gy * gy * m;
        const double px = j - winW;
        a += gxx;
        b += gxy;
        c += gyy;
        bb1 += gxx * px + gxy * py;
        bb2 += gxy * px + gyy * py;
      }
    }
    const double det = a * c - b * b;
    if (std::fabs(det) <= std::numeric_limits<double>::epsilon() * std::numeric_limits<double>::epsilon()) break;
    const double nx = cx + (c * bb1 - b * bb2) / det, ny = cy + (a * bb2 - b * bb1) / det;
    const double step = (nx - cx) * (nx - cx) + (ny - cy) * (ny - cy);
    if (!(std::fabs(nx) < 1e30 && std::fabs(ny) < 1e30)) break;  // also NaN
    cx = static_cast<float>(nx);
    cy = static_cast<float>(ny);
    if (cx < 0 || cx >= width || cy < 0 || cy >= height || step <= eps2) break;
  }
  if (std::fabs(cx - startX) > winW || std::fabs(cy - startY) > winH) {
    cx = startX;
    cy = startY;
  }
  pt[0] = cx;
  pt[1] = cy;
}

}  // namespace

namespace tvxharris {

uint32_t SelectAdaptive(Candidate* cands, uint32_t nCands, int32_t threshold, float minFraction, uint32_t nCornersMax,
                        float minDistance, uint32_t* xy) {
  const float fraction = minFraction > 0.0f ? std::min(minFraction, 1.0f) : 0.0f;  // NaN as 0
  const uint32_t wanted = static_cast<uint32_t>(std::ceil(static_cast<double>(fraction) * nCornersMax));
  const auto above = [&](int32_t t) {
    uint32_t n = 0;
    for (uint32_t i = 0; i < nCands; ++i) n += cands[i].response > t;
    return n;
  };
  int32_t t = threshold;
  while (t > 0 && above(t) < wanted) t /= 2;
  // Strongest first; equal responses keep scan order (the list is in scan order).
  uint32_t n = 0;
  for (uint32_t i = 0; i < nCands; ++i)
    if (cands[i].response > t) cands[n++] = cands[i];
  std::sort(cands, cands + n, [&](const Candidate& p, const Candidate& q) {
    if (p.response != q.response) return p.response > q.response;
    return p.y != q.y ? p.y < q.y : p.x < q.x;
  });
  const bool spaced = minDistance > 1.0f;
  uint32_t kept = 0;
  for (uint32_t i = 0; i < n && kept < nCornersMax; ++i) {
    if (spaced && !FarFromAll(xy, kept, cands[i].x, cands[i].y, minDistance)) continue;
    xy[2 * kept] = cands[i].x;
    xy[2 * kept + 1] = cands[i].y;
    ++kept;
  }
  // Back to scan order.
  for (uint32_t i = 0; i < kept; ++i) cands[i] = {xy[2 * i], xy[2 * i + 1], 0};
  std::sort(cands, cands + kept,
            [](const Candidate& p, const Candidate& q) { return p.y != q.y ? p.y < q.y : p.x < q.x; });
  for (uint32_t i = 0; i < kept; ++i) {
    xy[2 * i] = cands[i].x;
    xy[2 * i + 1] = cands[i].y;
  }
  return kept;
}

void SelectScoreCorners(const float* resp, uint32_t width, uint32_t height, uint32_t respStride, uint32_t* xy,
                        uint32_t nCornersMax, uint32_t* nCorners, uint32_t nms, float minDistance, float threshold) {
  const auto row = [&](uint32_t y) { return reinterpret_cast<const float*>(RowAt(reinterpret_cast<const uint8_t*>(resp), respStride, y)); };
  uint32_t half = 0;
  if (nms && minDistance >= 1.0f) {
    const float limit = 2.0f * static_cast<float>(std::max(width, height));
    half = static_cast<uint32_t>(std::floor(std::min(minDistance, limit))) >> 1;
  }
  uint32_t count = 0;
  for (uint32_t y = 0; y < height && count < nCornersMax; ++y) {
    const float* r = row(y);
    for (uint32_t x = 0; x < width && count < nCornersMax; ++x) {
      const float v = r[x];
      if (!(v > threshold)) continue;
      if (nms) {
        const uint32_t y0 = y > half ? y - half : 0, y1 = std::min<uint64_t>(uint64_t{y} + half, height - 1);
        const uint32_t x0 = x > half ? x - half : 0, x1 = std::min<uint64_t>(uint64_t{x} + half, width - 1);
        float best = 0.0f;
        for (uint32_t wy = y0; wy <= y1; ++wy) {
          const float* wr = row(wy);
          for (uint32_t wx = x0; wx <= x1; ++wx) best = std::max(best, wr[wx]);
        }
        if (v != best) continue;
      }
      xy[2 * count] = x;
      xy[2 * count + 1] = y;
      ++count;
    }
  }
  *nCorners = count;
}

}  // namespace tvxharris

int32_t tvxCornerHarrisu8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t border,
                           uint32_t* xy, uint32_t nCornersMax, uint32_t* numcorners, int32_t threshold) {
  return DetectHarris(src, width, height, stride, border, xy, nCornersMax, numcorners, threshold, kProducts, kBlur,
                      kHarris, [](uint32_t, uint32_t) { return false; });
}

int32_t tvxCornerHarrisInMasku8C(const uint8_t* srcImg, uint32_t width, uint32_t height, uint32_t stride,
                                 uint32_t border, uint32_t* xy, uint32_t nCornersMax, uint32_t* numcorners,
                                 int32_t threshold, const uint8_t* bitMask, uint32_t maskWidth, uint32_t maskHeight) {
  const MaskMap m = MapMask(width, height, maskWidth, maskHeight);
  if (!m.valid) {
    *numcorners = 0;
    return 0;
  }
  return DetectHarris(srcImg, width, height, stride, border, xy, nCornersMax, numcorners, threshold, kProducts, kBlur,
                      kHarris, [&](uint32_t x, uint32_t y) { return MaskBitSet(bitMask, maskWidth, m, x, y); });
}

int32_t tvxCornerHarrisAdaptiveu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   uint32_t nCornersMax, float minDistance, uint32_t* xy, uint32_t* nCorners,
                                   int32_t threshold, float minFraction) {
  return DetectAdaptive(src, srcWidth, srcHeight, srcStride, nCornersMax, minDistance, xy, nCorners, threshold,
                        minFraction, kProducts, kBlur, kHarris);
}

int32_t tvxGoodFeatureToTracku8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride,
                                 uint32_t capacity, float threshold, float minDistance, uint32_t* xy,
                                 uint32_t* nCorners) {
  return DetectGoodFeatures(src, width, height, stride, capacity, threshold, minDistance, xy, nCorners, kProducts,
                            kBlur, kMinEigen);
}

int32_t tvxLocalHarrisMaxu8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t posX,
                             uint32_t posY, uint32_t radius, uint32_t* maxX, uint32_t* maxY, int32_t* maxScore) {
  if (width < 7 || height < 7) return 3;
  const int64_t x0 = std::max<int64_t>(3, int64_t{posX} - radius), x1 = std::min<int64_t>(width - 4, int64_t{posX} + radius);
  const int64_t y0 = std::max<int64_t>(3, int64_t{posY} - radius), y1 = std::min<int64_t>(height - 4, int64_t{posY} + radius);
  if (x0 > x1 || y0 > y1) return 3;
  int64_t bx = x0, by = y0;
  int32_t best = ResponseAt(src, stride, static_cast<uint32_t>(x0), static_cast<uint32_t>(y0));
  for (int64_t y = y0; y <= y1; ++y)
    for (int64_t x = x0; x <= x1; ++x) {
      const int32_t r = ResponseAt(src, stride, static_cast<uint32_t>(x), static_cast<uint32_t>(y));
      if (r > best) {
        best = r;
        bx = x;
        by = y;
      }
    }
  *maxX = static_cast<uint32_t>(bx);
  *maxY = static_cast<uint32_t>(by);
  *maxScore = best;
  return 0;
}

int32_t tvxCornerHarrisScoreu8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, float* resp,
                                uint32_t respStride, uint32_t* xy, uint32_t nCornersMax, uint32_t* nCorners, float k,
                                uint32_t kernelSize, uint32_t blockSize, uint32_t nms, float minDistance,
                                uint32_t normalize, float threshold) {
  const uint64_t pixels = uint64_t{width} * height;
  *nCorners = 0;
  if (pixels * (2 * sizeof(int16_t) + 3 * sizeof(float)) > UINT32_MAX) return 5;
  void* block = tvxGetScratchBufferAligned_(static_cast<uint32_t>(pixels * (2 * sizeof(int16_t) + 3 * sizeof(float))), 64);
  if (block == nullptr) return 5;
  float* planes = static_cast<float*>(block);  // xx, xy, yy
  float *pxx = planes, *pxy = planes + pixels, *pyy = planes + 2 * pixels;
  int16_t* gx = reinterpret_cast<int16_t*>(planes + 3 * pixels);
  int16_t* gy = gx + pixels;
  const auto sobel = kernelSize == 3 ? tvxFilterSobel3x3u8s16C : kernelSize == 5 ? tvxFilterSobel5x5u8s16C : tvxFilterSobel7x7u8s16C;
  sobel(src, width, height, srcStride, gx, gy, 2 * width, 2, 0);
  const float scale = static_cast<float>(1.0 / (static_cast<double>(blockSize) * double(1u << (kernelSize - 1)) * 255.0));
  for (uint64_t i = 0; i < pixels; ++i) {
    const float fx = gx[i], fy = gy[i];
    pxx[i] = scale * fx * fx;
    pxy[i] = scale * fx * fy;
    pyy[i] = scale * fy * fy;
  }
  if (blockSize > 1)
    for (float* p : {pxx, pxy, pyy}) tvxBoxFilterNxNf32C(p, width, height, 4 * width, p, 4 * width, blockSize);
  float lo = std::numeric_limits<float>::max(), hi = std::numeric_limits<float>::lowest();
  for (uint32_t y = 0; y < height; ++y) {
    float* out = reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(resp) + size_t{y} * respStride);
    const size_t base = size_t{y} * width;
    for (uint32_t x = 0; x < width; ++x) {
      const float a = pxx[base + x], b = pxy[base + x], c = pyy[base + x];
      const float t = a + c;
      out[x] = (a * c - b * b) - k * t * t;
      lo = std::min(lo, out[x]);
      hi = std::max(hi, out[x]);
    }
  }
  tvxReleaseScratchBuffer_(block);
  if (normalize) {
    const bool flat = !(double{hi} - double{lo} > kFlatRange);
    const float range = hi - lo;
    for (uint32_t y = 0; y < height; ++y) {
      float* out = reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(resp) + size_t{y} * respStride);
      for (uint32_t x = 0; x < width; ++x) out[x] = flat ? 0.0f : (out[x] - lo) * 255.0f / range;
    }
  }
  SelectScoreCorners(resp, width, height, respStride, xy, nCornersMax, nCorners, nms, minDistance, threshold);
  return 0;
}

int32_t tvxCornerRefineSubPixu8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, float* xy,
                                 uint32_t nCorners, uint32_t winWidth, uint32_t winHeight, int32_t maxIterations,
                                 float epsilon) {
  const int32_t winW = static_cast<int32_t>(winWidth), winH = static_cast<int32_t>(winHeight);
  const uint32_t weightCount = (2 * winWidth + 1) * (2 * winHeight + 1);
  const uint32_t patchCount = (2 * winWidth + 3) * (2 * winHeight + 3);
  float* weights = static_cast<float*>(tvxGetScratchBufferAligned_((weightCount + patchCount) * sizeof(float), 16));
  if (weights == nullptr) return 5;
  for (int32_t i = 0; i <= 2 * winH; ++i) {
    const float v = static_cast<float>(i - winH) / static_cast<float>(winH);
    const float vy = std::exp(-v * v);
    for (int32_t j = 0; j <= 2 * winW; ++j) {
      const float u = static_cast<float>(j - winW) / static_cast<float>(winW);
      weights[i * (2 * winW + 1) + j] = vy * std::exp(-u * u);
    }
  }
  const int32_t iterations = maxIterations < 1 ? 1 : maxIterations;
  const float eps = epsilon > 0.0f ? epsilon : 0.0f;
  for (uint32_t i = 0; i < nCorners; ++i)
    RefineOne(src, width, height, stride, xy + 2 * size_t{i}, winW, winH, iterations, eps, weights, weights + weightCount);
  tvxReleaseScratchBuffer_(weights);
  return 0;
}
