// Reference variants of the plane-to-plane fits: least-squares and normalised homography fits,
// the robust random-sampling fit with its generator, inlier evaluation of homographies and
// affine transforms, the affine fit, affine inversion and the four-point perspective transform.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "cpu/geom.h"
#include "cpu/solvers.h"
#include "frame/frame.h"

namespace {

constexpr float kSqrt2 = 1.4142135623730951f;

inline const float* PointOf(const float* base, uint32_t stride, uint32_t index) {
  return base + static_cast<size_t>(index) * stride;
}

void ClearTransform(float* h) {
  for (int i = 0; i < 9; ++i) h[i] = 0.0f;
}

// Normal equations of the h8 = 1 homography: two rows per pair, accumulated in T (float or
// double); `ata` is the full symmetric 8 x 8 matrix.
template <typename T>
void HomographyNormalEquations(const tvxCorrespondences* c, T* ata, T* atb) {
  for (int i = 0; i < 64; ++i) ata[i] = 0;
  for (int i = 0; i < 8; ++i) atb[i] = 0;
  for (uint32_t k = 0; k < c->numIndices; ++k) {
    const uint32_t p = c->indices[k];
    const float* s = PointOf(c->from, c->fromStride, p);
    const float* d = PointOf(c->to, c->toStride, p);
    const T x = s[0], y = s[1], u = d[0], v = d[1];
    const T r1[8] = {x, y, 1, 0, 0, 0, -u * x, -u * y};
    const T r2[8] = {0, 0, 0, x, y, 1, -v * x, -v * y};
    for (int i = 0; i < 8; ++i) {
      for (int j = 0; j < 8; ++j) ata[i * 8 + j] += r1[i] * r1[j] + r2[i] * r2[j];
      atb[i] += r1[i] * u + r2[i] * v;
    }
  }
}

// 3 x 3 product c = a * b in double.
void Mul3(const double* a, const double* b, double* c) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) c[i * 3 + j] = a[i * 3] * b[j] + a[i * 3 + 1] * b[3 + j] + a[i * 3 + 2] * b[6 + j];
}

// Output T2^-1 * Hn * T1 scaled to h8 = 1, where Ti = [si 0 -si cxi; 0 si -si cyi; 0 0 1]. An
// unscalable result (h8 = 0) leaves the output as it is.
void Denormalise(const double* hn, const float* t1, const float* t2, float* out) {
  const double a[9] = {t1[0], t1[1], t1[2], t1[3], t1[4], t1[5], t1[6], t1[7], t1[8]};
  const double s2 = t2[0];
  const double inv2[9] = {1.0 / s2, 0, -t2[2] / s2, 0, 1.0 / s2, -t2[5] / s2, 0, 0, 1};
  double tmp[9], h[9];
  Mul3(hn, a, tmp);
  Mul3(inv2, tmp, h);
  if (h[8] == 0.0 || !std::isfinite(h[8])) return;
  for (int i = 0; i < 8; ++i) out[i] = static_cast<float>(h[i] / h[8]);
  out[8] = 1.0f;
}

}  // namespace

// ---- random generator and iteration limit ------------------------------------------------------

static int32_t g_randState = 55;

extern "C" int32_t randValue(int32_t seed) {
  if (seed >= 1) {
    g_randState = seed;
    return 0;
  }
  const int32_t hi = g_randState / 127773;
  const int32_t lo = g_randState - hi * 127773;
  int32_t next = 16807 * lo - 2836 * hi;
  if (next <= 0) next += 2147483647;
  g_randState = next;
  return next;
}

int32_t updateNumIters(double p, double ep, int32_t modelPoints, int32_t maxIters) {
  p = p < 0 ? 0 : (p > 1 ? 1 : p);
  ep = ep < 0 ? 0 : (ep > 1 ? 1 : ep);
  const double q = 1.0 - std::pow(ep, modelPoints);
  if (q < 1.1920929e-07) return 0;
  const double num = std::log(std::max(1.0 - p, 1.1920929e-07));
  const double denom = std::log(q);
  if (maxIters * denom > num) return maxIters;
  const double n = num / denom;
  // The limit only matters below the fixed iteration cap; keep the conversion in range.
  if (n >= 2147483647.0) return 2147483647;
  return static_cast<int32_t>(n + (n < 0 ? -0.5 : 0.5));
}

// ---- homography fits -----------------------------------------------------------------------

void tvxGeomHomographyFitDPf32C(const tvxCorrespondences* corrs, float* homography) {
  double a[64], b[8];
  HomographyNormalEquations<double>(corrs, a, b);
  // In-place Cholesky a = L L^T (lower triangle), then forward and back substitution.
  for (int k = 0; k < 8; ++k) {
    double s = a[k * 8 + k];
    for (int j = 0; j < k; ++j) s -= a[k * 8 + j] * a[k * 8 + j];
    if (!(s > 0.0)) return;
    const double l = std::sqrt(s);
    a[k * 8 + k] = l;
    for (int i = k + 1; i < 8; ++i) {
      double t = a[i * 8 + k];
      for (int j = 0; j < k; ++j) t -= a[i * 8 + j] * a[k * 8 + j];
      a[i * 8 + k] = t / l;
    }
  }
  double y[8], x[8];
  for (int i = 0; i < 8; ++i) {
    double t = b[i];
    for (int j = 0; j < i; ++j) t -= a[i * 8 + j] * y[j];
    y[i] = t / a[i * 8 + i];
  }
  for (int i = 7; i >= 0; --i) {
    double t = y[i];
    for (int j = i + 1; j < 8; ++j) t -= a[j * 8 + i] * x[j];
    x[i] = t / a[i * 8 + i];
  }
  for (int i = 0; i < 8; ++i) homography[i] = static_cast<float>(x[i]);
  homography[8] = 1.0f;
}

void tvxGeomHomographyFitf32C(const tvxCorrespondences* corrs, float* homography) {
  ClearTransform(homography);
  if (corrs->numIndices <= 3) return;
  float a[64], b[8], diag[8], x[8];
  HomographyNormalEquations<float>(corrs, a, b);
  if (tvxSolveCholeskyf32(a, b, diag, 8, x) != 1) {
    tvxGeomHomographyFitDPf32C(corrs, homography);
    return;
  }
  for (int i = 0; i < 8; ++i) homography[i] = x[i];
  homography[8] = 1.0f;
}

void normalise2dptsC(float* x, float* y, float* t, uint32_t count) {
  float sx = 0.0f, sy = 0.0f;
  for (uint32_t i = 0; i < count; ++i) {
    sx += x[i];
    sy += y[i];
  }
  const float cx = sx / static_cast<float>(count), cy = sy / static_cast<float>(count);
  float dist = 0.0f;
  for (uint32_t i = 0; i < count; ++i) {
    x[i] -= cx;
    y[i] -= cy;
    dist += static_cast<float>(std::sqrt(static_cast<double>(x[i] * x[i] + y[i] * y[i])));
  }
  const float d = dist / static_cast<float>(count);
  // Coincident points have no scale; keep them as they are rather than divide by zero.
  const float s = d > 0.0f ? kSqrt2 / d : 1.0f;
  for (uint32_t i = 0; i < count; ++i) {
    x[i] *= s;
    y[i] *= s;
  }
  const float out[9] = {s, 0.0f, -s * cx, 0.0f, s, -s * cy, 0.0f, 0.0f, 1.0f};
  std::memcpy(t, out, sizeof out);
}

int32_t tvxGeomHomographyFitf32_v2C(const tvxCorrespondences* corrs, float* homography, uint32_t fitOption) {
  ClearTransform(homography);
  const uint32_t n = corrs->numIndices;
  if (n < 4) return 3;
  if (fitOption == 0) {
    tvxGeomHomographyFitf32C(corrs, homography);
    return 0;
  }
  const uint32_t rows = 2 * n, urows = rows > 9 ? rows : 9;
  const size_t floats = 4 * size_t(n) + size_t(rows) * 9 + 9 + 2 * size_t(urows) * 9 + 2 * 81;
  if (floats * 4 > 0xFFFFFFF0u) return 5;
  float* block = static_cast<float*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(floats * 4), 16));
  if (!block) return 5;
  float* sx = block;
  float* sy = sx + n;
  float* tx = sy + n;
  float* ty = tx + n;
  float* a = ty + n;
  float* w = a + size_t(rows) * 9;
  float* u = w + 9;
  float* tmpU = u + size_t(urows) * 9;
  float* vt = tmpU + size_t(urows) * 9;
  float* tmpV = vt + 81;
  for (uint32_t k = 0; k < n; ++k) {
    const uint32_t p = corrs->indices[k];
    const float* s = PointOf(corrs->from, corrs->fromStride, p);
    const float* d = PointOf(corrs->to, corrs->toStride, p);
    sx[k] = s[0];
    sy[k] = s[1];
    tx[k] = d[0];
    ty[k] = d[1];
  }
  float t1[9], t2[9];
  normalise2dptsC(sx, sy, t1, n);
  normalise2dptsC(tx, ty, t2, n);
  for (uint32_t k = 0; k < n; ++k) {
    const float x = sx[k], y = sy[k], uu = tx[k], vv = ty[k];
    float* r0 = a + size_t(2 * k) * 9;
    float* r1 = r0 + 9;
    const float row0[9] = {0.0f, 0.0f, 0.0f, -x, -y, -1.0f, vv * x, vv * y, vv};
    const float row1[9] = {x, y, 1.0f, 0.0f, 0.0f, 0.0f, -uu * x, -uu * y, -uu};
    std::memcpy(r0, row0, sizeof row0);
    std::memcpy(r1, row1, sizeof row1);
  }
  tvxSVDf32_v2C(a, rows, 9, w, u, vt, tmpU, tmpV, 1);
  double hn[9];
  for (int i = 0; i < 9; ++i) hn[i] = vt[8 * 9 + i];
  Denormalise(hn, t1, t2, homography);
  tvxReleaseScratchBuffer_(block);
  return 0;
}

// ---- evaluation -------------------------------------------------------------------------------

int32_t tvxGeomHomographyEvaluatef32_v2C(const tvxCorrespondences* corrs, const float* h, float maxSquErr,
                                         uint16_t* inliers, float* errors, uint32_t* numInliers) {
  *numInliers = 0;
  if (corrs->numIndices == 0) return 0;
  int32_t result = 0;
  uint32_t count = 0;
  for (uint32_t k = 0; k < corrs->numIndices; ++k) {
    const uint16_t p = corrs->indices[k];
    const float* s = PointOf(corrs->from, corrs->fromStride, p);
    const float* d = PointOf(corrs->to, corrs->toStride, p);
    const float x = s[0], y = s[1], u = d[0], v = d[1];
    const float w = h[6] * x + h[7] * y + h[8];
    const float ex = h[0] * x + h[1] * y + h[2] - w * u;
    const float ey = h[3] * x + h[4] * y + h[5] - w * v;
    const float e = ex * ex + ey * ey;
    if (e < w * w * maxSquErr) {
      if (errors) errors[count] = e;
      inliers[count++] = p;
    } else {
      result = -1;
    }
  }
  *numInliers = count;
  return result;
}

int32_t tvxGeomHomographyEvaluatef32C(const tvxCorrespondences* corrs, const float* homography, float maxSquErr,
                                      uint16_t* inliers, uint32_t* numInliers) {
  return tvxGeomHomographyEvaluatef32_v2C(corrs, homography, maxSquErr, inliers, nullptr, numInliers);
}

int32_t tvxGeomAffineEvaluatef32C(const tvxCorrespondences* corrs, const float* a, float maxSquErr, uint16_t* inliers,
                                  uint32_t* numInliers) {
  *numInliers = 0;
  int32_t result = 0;
  uint32_t count = 0;
  for (uint32_t k = 0; k < corrs->numIndices; ++k) {
    const uint16_t p = corrs->indices[k];
    const float* s = PointOf(corrs->from, corrs->fromStride, p);
    const float* d = PointOf(corrs->to, corrs->toStride, p);
    const float x = s[0], y = s[1];
    const float ex = a[0] * x + a[1] * y + a[2] - d[0];
    const float ey = a[3] * x + a[4] * y + a[5] - d[1];
    if (ex * ex + ey * ey < maxSquErr) {
      inliers[count++] = p;
    } else {
      result = -1;
    }
  }
  *numInliers = count;
  return result;
}

// ---- robust fit --------------------------------------------------------------------------------

namespace {

constexpr int32_t kMaxIterations = 1500;
constexpr int32_t kMaxDraws = 199;
constexpr double kLogOneMinusConfidence = -5.298318386077881;  // log(1 - 0.995)

// The iteration limit for a best inlier ratio r with 4-point samples; limit kept when it is
// already below the bound.
int32_t LoweredLimit(uint32_t inliers, uint32_t total, int32_t limit) {
  double r = static_cast<double>(inliers) / total;
  r = r < 0 ? 0 : (r > 1 ? 1 : r);
  const double q = 1.0 - std::pow(r, 4.0);
  if (q < 1.1920928955078125e-07) return 0;
  const double l = std::log(q);
  if (limit * l > kLogOneMinusConfidence) return limit;
  const double n = kLogOneMinusConfidence / l;
  if (n >= 2147483647.0) return 2147483647;
  return static_cast<int32_t>(n + 0.5);
}

}  // namespace

int32_t tvxGeomHomographyRobustFitf32_v2C(const tvxCorrespondences* corrs, float* homography, float errThreshold,
                                          uint32_t fitOption) {
  const uint32_t n = corrs->numIndices;
  if (n == 0) return 0;
  const float t = errThreshold < 0.0f ? 3.0f : errThreshold * errThreshold;
  if (n == 4) return tvxGeomHomographyFitf32_v2(corrs, homography, fitOption);
  const uint32_t fs = corrs->fromStride, ts = corrs->toStride;
  // The sample buffer size is formed in 32 bits; strides beyond 16 bits would wrap it.
  if (fs > 0xFFFF || ts > 0xFFFF || n > 0xFFFF) return 3;
  uint16_t* lists = static_cast<uint16_t*>(tvxGetScratchBufferUnaligned_(36 + 4 * n));
  float* points = static_cast<float*>(tvxGetScratchBufferUnaligned_(((fs + ts) << 4) | 8));
  if (!lists || !points) {
    if (lists) tvxReleaseScratchBuffer_(lists);
    if (points) tvxReleaseScratchBuffer_(points);
    return 5;
  }
  ClearTransform(homography);
  uint16_t* current = lists;
  uint16_t* best = lists + n;
  float* sampleFrom = points;
  float* sampleTo = points + 4 * size_t(fs);
  static const uint16_t kSampleIndices[4] = {0, 1, 2, 3};
  const tvxCorrespondences sample = {sampleFrom, sampleTo, fs, ts, 4, kSampleIndices, 4};

  randValue(200);
  int32_t limit = kMaxIterations;
  uint32_t bestCount = 0;
  float model[9], bestModel[9];
  ClearTransform(bestModel);
  for (int32_t iter = 0; iter < kMaxIterations && iter < limit; ++iter) {
    uint32_t drawn[4];
    int held = 0;
    for (int draws = 0; held < 4 && draws < kMaxDraws; ++draws) {
      const uint32_t c = static_cast<uint32_t>(randValue(0)) % corrs->numCorrespondences;
      bool repeat = false;
      for (int j = 0; j < held; ++j) repeat = repeat || drawn[j] == c;
      // A candidate without an entry in `indices` has no target point: draw again.
      if (repeat || c >= n) continue;
      std::memcpy(sampleFrom + size_t(held) * fs, PointOf(corrs->from, fs, c), fs * sizeof(float));
      std::memcpy(sampleTo + size_t(held) * ts, PointOf(corrs->to, ts, corrs->indices[c]), ts * sizeof(float));
      drawn[held++] = c;
    }
    if (held < 4) break;
    tvxGeomHomographyFitf32_v2(&sample, model, fitOption);
    uint32_t count = 0;
    tvxGeomHomographyEvaluatef32(corrs, model, t, current, &count);
    if (count > bestCount && count > 3) {
      bestCount = count;
      std::memcpy(best, current, count * sizeof(uint16_t));
      std::memcpy(bestModel, model, sizeof model);
      limit = LoweredLimit(count, n, limit);
    }
  }
  const tvxCorrespondences refit = {corrs->from, corrs->to, fs, ts, corrs->numCorrespondences, best, bestCount};
  const int32_t status = tvxGeomHomographyFitf32_v2(&refit, homography, fitOption);
  tvxReleaseScratchBuffer_(points);
  tvxReleaseScratchBuffer_(lists);
  return status;
}

int32_t tvxGeomHomographyRobustFitf32C(const tvxCorrespondences* corrs, float* homography, float maxSquErr) {
  return tvxGeomHomographyRobustFitf32_v2C(corrs, homography, maxSquErr, 0);
}

// ---- affine ------------------------------------------------------------------------------------

void tvxGeomAffineFitf32C(const tvxCorrespondences* corrs, float* affine) {
  ClearTransform(affine);
  if (corrs->numIndices < 3) return;
  float a[36] = {}, b[6] = {}, diag[6], x[6] = {};
  for (uint32_t k = 0; k < corrs->numIndices; ++k) {
    const uint32_t p = corrs->indices[k];
    const float* s = PointOf(corrs->from, corrs->fromStride, p);
    const float* d = PointOf(corrs->to, corrs->toStride, p);
    const float r1[6] = {s[0], s[1], 1.0f, 0.0f, 0.0f, 0.0f};
    const float r2[6] = {0.0f, 0.0f, 0.0f, s[0], s[1], 1.0f};
    for (int i = 0; i < 6; ++i) {
      for (int j = 0; j < 6; ++j) a[i * 6 + j] += r1[i] * r1[j] + r2[i] * r2[j];
      b[i] += r1[i] * d[0] + r2[i] * d[1];
    }
  }
  tvxSolveCholeskyf32C(a, b, diag, 6, x);
  for (int i = 0; i < 6; ++i) affine[i] = x[i];
  affine[8] = 1.0f;
}

int32_t tvxInvertAffineTransformf32C(const float* m, float* mi) {
  const float det = m[0] * m[4] - m[1] * m[3];
  const float inv = det != 0.0f ? 1.0f / det : 0.0f;
  const float a00 = m[4] * inv, a01 = -m[1] * inv, a10 = -m[3] * inv, a11 = m[0] * inv;
  mi[0] = a00;
  mi[1] = a01;
  mi[2] = -a00 * m[2] - a01 * m[5];
  mi[3] = a10;
  mi[4] = a11;
  mi[5] = -a10 * m[2] - a11 * m[5];
  mi[6] = 0.0f;
  mi[7] = 0.0f;
  mi[8] = 1.0f;
  return 0;
}

// ---- four-point perspective transform ------------------------------------------------------------

namespace {

// Centres four points on their centroid and scales them to a mean distance of sqrt 2 from it.
void NormaliseFour(const float* src, float* out, float* t) {
  const float cx = (src[0] + src[2] + src[4] + src[6]) * 0.25f;
  const float cy = (src[1] + src[3] + src[5] + src[7]) * 0.25f;
  float dist = 0.0f;
  for (int i = 0; i < 4; ++i) {
    out[2 * i] = src[2 * i] - cx;
    out[2 * i + 1] = src[2 * i + 1] - cy;
    dist += tvxHypotC(out[2 * i], out[2 * i + 1]);
  }
  const float s = dist > 0.0f ? 4.0f * kSqrt2 / dist : 1.0f;
  for (int i = 0; i < 8; ++i) out[i] *= s;
  const float m[9] = {s, 0.0f, -s * cx, 0.0f, s, -s * cy, 0.0f, 0.0f, 1.0f};
  std::memcpy(t, m, sizeof m);
}

}  // namespace

void tvxGetPerspectiveTransformf32C(const float* src1, const float* src2, float* transformCoefficient) {
  float p[8], q[8], t1[9], t2[9];
  NormaliseFour(src1, p, t1);
  NormaliseFour(src2, q, t2);
  float a[64], b[8], x[8] = {};
  for (int i = 0; i < 4; ++i) {
    const float px = p[2 * i], py = p[2 * i + 1], u = q[2 * i], v = q[2 * i + 1];
    const float r1[8] = {px, py, 1.0f, 0.0f, 0.0f, 0.0f, -u * px, -u * py};
    const float r2[8] = {0.0f, 0.0f, 0.0f, px, py, 1.0f, -v * px, -v * py};
    std::memcpy(a + 16 * i, r1, sizeof r1);
    std::memcpy(a + 16 * i + 8, r2, sizeof r2);
    b[2 * i] = u;
    b[2 * i + 1] = v;
  }
  tvxSolvef32(a, 8, 8, b, x);
  const double hn[9] = {x[0], x[1], x[2], x[3], x[4], x[5], x[6], x[7], 1.0};
  ClearTransform(transformCoefficient);
  Denormalise(hn, t1, t2, transformCoefficient);
}
