// Reference variants of the pose family: evaluation of a 3 x 4 pose against 3D-to-2D
// correspondences, the Tukey-weighted Gauss-Newton step and refinement, the three-point pose,
// the SE(2) alignment sums and the point-to-plane ICP terms.
#include <cmath>
#include <cstddef>
#include <cstring>

#include "cpu/geom.h"
#include "cpu/pose_se2.h"
#include "cpu/solvers.h"
#include "frame/frame.h"

namespace {

inline const float* PointOf(const float* base, uint32_t stride, uint32_t index) {
  return base + static_cast<size_t>(index) * stride;
}

struct Projection {
  float iz, u, v;
};

inline Projection Project(const float* p, const float* X) {
  Projection r;
  r.iz = 1.0f / (p[8] * X[0] + p[9] * X[1] + p[10] * X[2] + p[11]);
  r.u = (p[0] * X[0] + p[1] * X[1] + p[2] * X[2] + p[3]) * r.iz;
  r.v = (p[4] * X[0] + p[5] * X[1] + p[6] * X[2] + p[7]) * r.iz;
  return r;
}

// Rigid transform [dR | dt] of the twist (omega, nu) by the exponential map of SE(3).
void ExpSE3(const float* xi, float* update) {
  const double w[3] = {xi[0], xi[1], xi[2]}, nu[3] = {xi[3], xi[4], xi[5]};
  const double th2 = w[0] * w[0] + w[1] * w[1] + w[2] * w[2];
  const double th = std::sqrt(th2);
  double a, b, c;  // sin(th)/th, (1 - cos th)/th^2, (th - sin th)/th^3
  if (th < 1e-4) {
    a = 1.0 - th2 / 6.0;
    b = 0.5 - th2 / 24.0;
    c = 1.0 / 6.0 - th2 / 120.0;
  } else {
    const double half = std::sin(0.5 * th);
    a = std::sin(th) / th;
    b = 2.0 * half * half / th2;  // 1 - cos th = 2 sin^2(th / 2)
    c = (th - std::sin(th)) / (th2 * th);
  }
  const double k[9] = {0, -w[2], w[1], w[2], 0, -w[0], -w[1], w[0], 0};
  double k2[9];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) k2[i * 3 + j] = k[i * 3] * k[j] + k[i * 3 + 1] * k[3 + j] + k[i * 3 + 2] * k[6 + j];
  double r[9], v[9];
  for (int i = 0; i < 9; ++i) {
    const double id = (i % 4 == 0) ? 1.0 : 0.0;
    r[i] = id + a * k[i] + b * k2[i];
    v[i] = id + b * k[i] + c * k2[i];
  }
  for (int i = 0; i < 3; ++i) {
    update[i * 4] = static_cast<float>(r[i * 3]);
    update[i * 4 + 1] = static_cast<float>(r[i * 3 + 1]);
    update[i * 4 + 2] = static_cast<float>(r[i * 3 + 2]);
    update[i * 4 + 3] = static_cast<float>(v[i * 3] * nu[0] + v[i * 3 + 1] * nu[1] + v[i * 3 + 2] * nu[2]);
  }
}

}  // namespace

// ---- evaluation --------------------------------------------------------------------------------

int32_t tvxGeomPoseEvaluatef32C(const tvxCorrespondences* corrs, const float* pose, float maxSquErr,
                                uint16_t* inliers, uint32_t* numInliers) {
  *numInliers = 0;
  int32_t result = 0;
  uint32_t count = 0;
  for (uint32_t k = 0; k < corrs->numIndices; ++k) {
    const uint16_t p = corrs->indices[k];
    const Projection pr = Project(pose, PointOf(corrs->from, corrs->fromStride, p));
    const float* obs = PointOf(corrs->to, corrs->toStride, p);
    const float du = obs[0] - pr.u, dv = obs[1] - pr.v;
    if (du * du + dv * dv < maxSquErr) {
      inliers[count++] = p;
    } else {
      result = -1;
    }
  }
  *numInliers = count;
  return result;
}

float tvxGeomPoseEvaluateErrorf32C(const tvxCorrespondences* corrs, const float* pose, float* projected,
                                   float* residuals, float* invZ, float* errors) {
  const uint32_t n = corrs->numIndices;
  if (n == 0) return 0.0f;
  float sum = 0.0f;
  for (uint32_t k = 0; k < n; ++k) {
    const uint16_t p = corrs->indices[k];
    const Projection pr = Project(pose, PointOf(corrs->from, corrs->fromStride, p));
    const float* obs = PointOf(corrs->to, corrs->toStride, p);
    const float du = obs[0] - pr.u, dv = obs[1] - pr.v;
    invZ[k] = pr.iz;
    projected[k] = pr.u;
    projected[n + k] = pr.v;
    residuals[k] = du;
    residuals[n + k] = dv;
    errors[k] = du * du + dv * dv;
    sum += errors[k];
  }
  return std::sqrt(sum / static_cast<float>(n));
}

// ---- Gauss-Newton ------------------------------------------------------------------------------

int32_t tvxGeomPoseUpdatef32C(const float* projected, const float* residuals, const float* invZ, const float* errors,
                              uint32_t N, float* update) {
  if (N == 0) return -1;
  float* sortedErrors = static_cast<float*>(tvxGetScratchBufferUnaligned_(N * uint32_t(sizeof(float))));
  if (!sortedErrors) tvx_fatal("src/cpu/tavixGeomC", 155, "sortedErrors");
  std::memcpy(sortedErrors, errors, N * sizeof(float));
  for (uint32_t i = 1; i < N; ++i) {
    const float v = sortedErrors[i];
    uint32_t j = i;
    for (; j > 0 && sortedErrors[j - 1] > v; --j) sortedErrors[j] = sortedErrors[j - 1];
    sortedErrors[j] = v;
  }
  const float median = sortedErrors[N / 2];
  tvxReleaseScratchBuffer_(sortedErrors);

  const double sigma = std::sqrt(static_cast<double>(median)) * (1.0 + 5.0 / (2.0 * N - 6.0)) * 1.4826;
  const float c = 4.6851f * static_cast<float>(sigma);
  const float c2 = c * c;
  if (!(c2 > 0.0f)) return 1;

  float a[36] = {}, b[6] = {};
  for (uint32_t k = 0; k < N; ++k) {
    const float e = errors[k];
    if (e > c2) continue;
    const float t = 1.0f - e / c2;
    const float w = t * t;
    if (w == 0.0f) continue;
    const float x = projected[k], y = projected[N + k], z = invZ[k];
    const float ju[6] = {-x * y, 1.0f + x * x, -y, z, 0.0f, -x * z};
    const float jv[6] = {-(1.0f + y * y), x * y, x, 0.0f, z, -y * z};
    const float ru = residuals[k], rv = residuals[N + k];
    for (int i = 0; i < 6; ++i) {
      const float wu = w * ju[i], wv = w * jv[i];
      for (int j = i; j < 6; ++j) a[i * 6 + j] += wu * ju[j] + wv * jv[j];
      b[i] += wu * ru + wv * rv;
    }
  }
  float diag[6], xi[6] = {};
  if (tvxSolveCholeskyf32C(a, b, diag, 6, xi) != 1) return 1;
  ExpSE3(xi, update);
  return 0;
}

int32_t tvxGeomPoseOptimizeGNf32C(const float* projected, const float* residuals, const float* invZ,
                                  const float* errors, uint32_t N, float* pose) {
  float d[12];
  if (tvxGeomPoseUpdatef32C(projected, residuals, invZ, errors, N, d) != 0) return 1;
  float out[12];
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j)
      out[i * 4 + j] = d[i * 4] * pose[j] + d[i * 4 + 1] * pose[4 + j] + d[i * 4 + 2] * pose[8 + j];
    out[i * 4 + 3] = d[i * 4] * pose[3] + d[i * 4 + 1] * pose[7] + d[i * 4 + 2] * pose[11] + d[i * 4 + 3];
  }
  std::memcpy(pose, out, sizeof out);
  return 0;
}

float tvxGeomPoseRefineGNf32C(const tvxCorrespondences* corrs, int32_t minIterations, int32_t maxIterations,
                              float stopCriteria, const float* initpose, float* refinedpose) {
  (void)stopCriteria;  // the relative improvement bound is the fixed 5 %
  const uint32_t n = corrs->numIndices;
  if (n < 6 || n > UINT32_MAX / 24) return -1.0f;  // the work block size is formed in 32 bits
  float* work = static_cast<float*>(tvxGetScratchBufferUnaligned_(24 * n));
  if (!work) tvx_fatal("src/cpu/tavixGeomC", 1607, "work");
  float* projected = work;
  float* invZ = projected + 2 * size_t(n);
  float* residuals = invZ + n;
  float* errors = residuals + 2 * size_t(n);

  float best[12];
  std::memcpy(refinedpose, initpose, sizeof best);
  std::memcpy(best, initpose, sizeof best);
  float bestError = tvxGeomPoseEvaluateErrorf32(corrs, refinedpose, projected, residuals, invZ, errors);
  float prev = bestError;
  const uint16_t last = static_cast<uint16_t>(maxIterations & 0xFFFF);
  if (maxIterations >= 1) {
    for (uint16_t i = 1; i != last; ++i) {
      if (tvxGeomPoseOptimizeGNf32(projected, residuals, invZ, errors, n, refinedpose) != 0) break;
      const float e = tvxGeomPoseEvaluateErrorf32(corrs, refinedpose, projected, residuals, invZ, errors);
      if (e < bestError) {
        bestError = e;
        std::memcpy(best, refinedpose, sizeof best);
      }
      if (int32_t(i) >= minIterations && 1.0f - e / prev <= 0.05f) break;
      prev = e;
    }
  }
  std::memcpy(refinedpose, best, sizeof best);
  tvxReleaseScratchBuffer_(work);
  return bestError;
}

// ---- three-point pose ----------------------------------------------------------------------------

namespace {

double Horner(const double* c, double x) { return (((c[0] * x + c[1]) * x + c[2]) * x + c[3]) * x + c[4]; }

// The largest real root of t^3 + a t^2 + b t + c.
double LargestCubicRoot(double a, double b, double c) {
  const double p = b - a * a / 3.0, q = 2.0 * a * a * a / 27.0 - a * b / 3.0 + c;
  const double disc = q * q / 4.0 + p * p * p / 27.0;
  double t;
  if (disc >= 0.0) {
    const double s = std::sqrt(disc);
    t = std::cbrt(-q / 2.0 + s) + std::cbrt(-q / 2.0 - s);
  } else {
    const double r = std::sqrt(-p / 3.0);
    double arg = (3.0 * q / (2.0 * p)) * std::sqrt(-3.0 / p);
    arg = arg > 1.0 ? 1.0 : (arg < -1.0 ? -1.0 : arg);
    t = 2.0 * r * std::cos(std::acos(arg) / 3.0);
  }
  double m = t - a / 3.0;
  for (int i = 0; i < 3; ++i) {
    const double f = ((m + a) * m + b) * m + c, df = (3.0 * m + 2.0 * a) * m + b;
    if (df == 0.0) break;
    m -= f / df;
  }
  return m;
}

// Real roots of y^2 + b y + c appended to `out`; a slightly negative discriminant (a double root
// blurred by rounding) counts as zero.
int QuadraticRoots(double b, double c, double* out) {
  double disc = b * b - 4.0 * c;
  if (disc < 0.0) {
    if (disc < -1e-10 * (b * b + std::fabs(c) + 1e-300)) return 0;
    disc = 0.0;
  }
  const double s = std::sqrt(disc);
  out[0] = (-b + s) / 2.0;
  out[1] = (-b - s) / 2.0;
  return 2;
}

}  // namespace

int find_quartic_real_roots(const double* c, double* roots) {
  const double a = c[1] / c[0], b = c[2] / c[0], cc = c[3] / c[0], d = c[4] / c[0];
  // Depressed quartic y^4 + p y^2 + q y + r with x = y - a/4.
  const double a2 = a * a;
  const double p = b - 3.0 * a2 / 8.0;
  const double q = cc - a * b / 2.0 + a2 * a / 8.0;
  const double r = d - a * cc / 4.0 + a2 * b / 16.0 - 3.0 * a2 * a2 / 256.0;
  double y[4];
  int n = 0;
  const double m = LargestCubicRoot(p, p * p / 4.0 - r, -q * q / 8.0);
  if (m > 1e-14 * (std::fabs(p) + 1.0)) {
    const double s = std::sqrt(2.0 * m);
    n += QuadraticRoots(-s, p / 2.0 + m + q / (2.0 * s), y + n);
    n += QuadraticRoots(s, p / 2.0 + m - q / (2.0 * s), y + n);
  } else {
    // q vanishes: y^4 + p y^2 + r is a quadratic in y^2.
    double z[2];
    if (QuadraticRoots(p, r, z) == 2) {
      for (double zz : z) {
        if (zz < 0.0) continue;
        y[n++] = std::sqrt(zz);
        y[n++] = -std::sqrt(zz);
      }
    }
  }
  for (int i = 0; i < n; ++i) {
    double x = y[i] - a / 4.0;
    for (int it = 0; it < 3; ++it) {
      const double f = Horner(c, x);
      const double df = ((4.0 * c[0] * x + 3.0 * c[1]) * x + 2.0 * c[2]) * x + c[3];
      if (df == 0.0) break;
      const double nx = x - f / df;
      if (std::fabs(Horner(c, nx)) > std::fabs(f)) break;
      x = nx;
    }
    roots[i] = x;
  }
  return n;
}

namespace {

struct V3 {
  double x, y, z;
};
inline V3 Sub(V3 a, V3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline double Dot(V3 a, V3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline V3 Cross(V3 a, V3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
inline V3 Scale(V3 a, double s) { return {a.x * s, a.y * s, a.z * s}; }

// Orthonormal frame (columns e1, e2, e3) of a triangle: e1 along p1 - p0, e3 normal to the
// plane; false for a degenerate triangle.
bool Frame(V3 p0, V3 p1, V3 p2, V3* e) {
  const V3 a = Sub(p1, p0), b = Sub(p2, p0);
  const double la = std::sqrt(Dot(a, a));
  V3 n = Cross(a, b);
  const double ln = std::sqrt(Dot(n, n));
  if (!(la > 0.0) || !(ln > 1e-12 * la * std::sqrt(Dot(b, b)))) return false;
  e[0] = Scale(a, 1.0 / la);
  e[2] = Scale(n, 1.0 / ln);
  e[1] = Cross(e[2], e[0]);
  return true;
}

}  // namespace

int32_t tvxGeom3PointPoseEstimatef32C(const tvxCorrespondences* corrs, float* pose, int32_t* numPoses) {
  *numPoses = 0;
  if (corrs->numIndices < 3) return 0;
  V3 P[3], j[3];
  for (int i = 0; i < 3; ++i) {
    const uint16_t p = corrs->indices[i];
    const float* X = PointOf(corrs->from, corrs->fromStride, p);
    const float* x = PointOf(corrs->to, corrs->toStride, p);
    P[i] = {X[0], X[1], X[2]};
    const double inv = 1.0 / std::sqrt(static_cast<double>(x[0]) * x[0] + static_cast<double>(x[1]) * x[1] + 1.0);
    j[i] = {x[0] * inv, x[1] * inv, inv};
  }
  V3 worldFrame[3];
  if (!Frame(P[0], P[1], P[2], worldFrame)) return 0;
  const double a2 = Dot(Sub(P[1], P[2]), Sub(P[1], P[2]));
  const double b2 = Dot(Sub(P[0], P[2]), Sub(P[0], P[2]));
  const double c2 = Dot(Sub(P[0], P[1]), Sub(P[0], P[1]));
  const double ca = Dot(j[1], j[2]), cb = Dot(j[0], j[2]), cg = Dot(j[0], j[1]);
  // Distances s1, s2 = u s1, s3 = v s1 along the bearings. Eliminating s1 from the three
  // cosine laws gives u = N(v) / D(v) and the quartic D^2 + N^2 - 2 cg N D - (c2 / b2) M D^2 = 0
  // with M(v) = 1 + v^2 - 2 v cb (coefficients below in ascending powers).
  const double k = (a2 - c2) / b2, cr = c2 / b2;
  const double nq[3] = {1.0 + k, -2.0 * k * cb, k - 1.0};
  const double dq[2] = {2.0 * cg, -2.0 * ca};
  const double mq[3] = {1.0, -2.0 * cb, 1.0};
  double dd[3] = {}, nn[5] = {}, nd[4] = {}, mdd[5] = {};
  for (int i = 0; i < 2; ++i)
    for (int l = 0; l < 2; ++l) dd[i + l] += dq[i] * dq[l];
  for (int i = 0; i < 3; ++i)
    for (int l = 0; l < 3; ++l) nn[i + l] += nq[i] * nq[l];
  for (int i = 0; i < 3; ++i)
    for (int l = 0; l < 2; ++l) nd[i + l] += nq[i] * dq[l];
  for (int i = 0; i < 3; ++i)
    for (int l = 0; l < 3; ++l) mdd[i + l] += mq[i] * dd[l];
  double poly[5];  // descending powers for the root finder
  for (int e = 0; e <= 4; ++e) {
    const double v = (e < 3 ? dd[e] : 0.0) + nn[e] - 2.0 * cg * (e < 4 ? nd[e] : 0.0) - cr * mdd[e];
    poly[4 - e] = v;
  }
  double scale = 0.0;
  for (double v : poly) scale = std::fmax(scale, std::fabs(v));
  if (!(std::fabs(poly[0]) > 1e-12 * scale)) return 0;
  double roots[4];
  const int nr = find_quartic_real_roots(poly, roots);
  int32_t count = 0;
  for (int i = 0; i < nr; ++i) {
    const double v = roots[i];
    const double den = dq[0] + dq[1] * v;
    if (!(v > 0.0) || std::fabs(den) < 1e-12) continue;
    const double u = (nq[0] + nq[1] * v + nq[2] * v * v) / den;
    const double m = mq[0] + mq[1] * v + mq[2] * v * v;
    if (!(u > 0.0) || !(m > 0.0)) continue;
    const double s1 = std::sqrt(b2 / m);
    const V3 C[3] = {Scale(j[0], s1), Scale(j[1], u * s1), Scale(j[2], v * s1)};
    V3 camFrame[3];
    if (!Frame(C[0], C[1], C[2], camFrame)) continue;
    // R maps the world frame onto the camera frame: R = F E^T.
    double R[9];
    const double* f = &camFrame[0].x;
    const double* e = &worldFrame[0].x;
    for (int r = 0; r < 3; ++r)
      for (int cidx = 0; cidx < 3; ++cidx)
        R[r * 3 + cidx] = f[0 * 3 + r] * e[0 * 3 + cidx] + f[1 * 3 + r] * e[1 * 3 + cidx] + f[2 * 3 + r] * e[2 * 3 + cidx];
    const double t[3] = {C[0].x - (R[0] * P[0].x + R[1] * P[0].y + R[2] * P[0].z),
                         C[0].y - (R[3] * P[0].x + R[4] * P[0].y + R[5] * P[0].z),
                         C[0].z - (R[6] * P[0].x + R[7] * P[0].y + R[8] * P[0].z)};
    float* out = pose + 12 * count;
    for (int r = 0; r < 3; ++r) {
      out[r * 4] = static_cast<float>(R[r * 3]);
      out[r * 4 + 1] = static_cast<float>(R[r * 3 + 1]);
      out[r * 4 + 2] = static_cast<float>(R[r * 3 + 2]);
      out[r * 4 + 3] = static_cast<float>(t[r]);
    }
    ++count;
  }
  *numPoses = count;
  return count;
}

// ---- SE(2) alignment sums ------------------------------------------------------------------------

int32_t tvxJacobianSE2f32C(const uint8_t* warpedImage, const uint16_t* warpedBorder, const uint8_t* targetImage,
                           const int16_t* targetDX, const int16_t* targetDY, uint32_t width, uint32_t height,
                           uint32_t stride, float* sumJTJ, float* sumJTE, float* sumError, uint32_t* numPixels) {
  if ((width & 1) || (height & 1)) return 3;
  int64_t sums[tvxpose::kSums] = {};
  uint32_t pixels = 0;
  const int64_t cx = width / 2, cy = height / 2;
  for (uint32_t y = 1; y + 1 < height; ++y) {
    int64_t begin, end;
    tvxpose::Se2Columns(warpedBorder, width, y, &begin, &end);
    const size_t row = size_t(y) * stride;
    const uint8_t* w = warpedImage + row;
    const uint8_t* up = w - stride;
    const uint8_t* down = w + stride;
    uint32_t rowSums[tvxpose::kSums] = {};  // 32-bit sums within the row, modulo 2^32
    for (int64_t x = begin; x < end; ++x) {
      const int32_t gx = int32_t(w[x + 1]) - w[x - 1] + targetDX[row + x];
      const int32_t gy = int32_t(down[x]) - up[x] + targetDY[row + x];
      tvxpose::AddSe2Pixel(rowSums, gx, gy, int32_t(w[x]) - targetImage[row + x], x - cx, int64_t(y) - cy);
      ++pixels;
    }
    for (int k = 0; k < tvxpose::kSums; ++k) sums[k] += int32_t(rowSums[k]);
  }
  tvxpose::Se2Output(sums, pixels, sumJTJ, sumJTE, sumError, numPixels);
  return 0;
}

// ---- point-to-plane ICP terms ------------------------------------------------------------------

int32_t tvxICPJacobianErrorSE3f32C(const uint16_t* depthImage, uint32_t width, uint32_t height, uint32_t depthStride,
                                   const float* points, uint32_t N, const float* pose, const float* camera,
                                   float maxDistSq, float* distSq, float* residuals, float* jacobian) {
  const float fx = camera[0], fy = camera[1], cx = camera[2], cy = camera[3], ifx = camera[4], ify = camera[5];
  const float* R = pose;
  for (uint32_t i = 0; i < N; ++i) {
    const float* p = points + 6 * size_t(i);
    const float P[3] = {R[0] * p[0] + R[1] * p[1] + R[2] * p[2] + R[3], R[4] * p[0] + R[5] * p[1] + R[6] * p[2] + R[7],
                        R[8] * p[0] + R[9] * p[1] + R[10] * p[2] + R[11]};
    const float u = (P[0] / P[2]) * fx + cx + 0.5f;
    const float v = (P[1] / P[2]) * fy + cy + 0.5f;
    // Truncation keeps (-1, width) inside columns 0 .. width - 1; anything else (or NaN) is
    // outside, and never reaches the conversion.
    const bool inside = u > -1.0f && u < static_cast<float>(width) && v > -1.0f && v < static_cast<float>(height);
    const uint32_t px = inside ? static_cast<uint32_t>(static_cast<int32_t>(u)) : 0;
    const uint32_t py = inside ? static_cast<uint32_t>(static_cast<int32_t>(v)) : 0;
    const float d = inside && px < width && py < height
                        ? depthImage[size_t(py) * (depthStride / 2) + px] * 0.001f
                        : 0.0f;
    if (!(d > 0.0f)) {
      distSq[i] = maxDistSq + 1.0f;
      continue;
    }
    const float Q[3] = {d * (static_cast<float>(px) - cx) * ifx, d * (static_cast<float>(py) - cy) * ify, d};
    const float diff[3] = {Q[0] - P[0], Q[1] - P[1], Q[2] - P[2]};
    const float dist = diff[0] * diff[0] + diff[1] * diff[1] + diff[2] * diff[2];
    distSq[i] = dist;
    float* row = jacobian + 6 * size_t(i);
    if (dist < maxDistSq) {
      const float n[3] = {R[0] * p[3] + R[1] * p[4] + R[2] * p[5], R[4] * p[3] + R[5] * p[4] + R[6] * p[5],
                          R[8] * p[3] + R[9] * p[4] + R[10] * p[5]};
      residuals[i] = diff[0] * n[0] + diff[1] * n[1] + diff[2] * n[2];
      row[0] = n[0];
      row[1] = n[1];
      row[2] = n[2];
      tvxCrossProduct3x1f32(P, n, row + 3, 1);
    } else {
      residuals[i] = 0.0f;
      for (int k = 0; k < 6; ++k) row[k] = 0.0f;
    }
  }
  return 0;
}
