// Reference variants of the dense solvers: the one-sided Jacobi SVD and the least-squares solver
// on top of it, Cholesky, LDL^T and LU solvers of square systems, and the sort of eight scores.
//
// Dot products and norms accumulate in single precision in element order; square roots and the
// few quantities that would lose too much in float (the skip test's product, the rotation's
// delta, the least-squares projections) are taken in double.
#include "cpu/solvers.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "frame/frame.h"

namespace {

// Pair-skip threshold of the Jacobi sweeps and the relative cut of the least-squares solver.
constexpr double kJacobiEps = 1.1999999287581886e-06;
constexpr double kSolveCut = 1.2000000424450263e-06;
// A completion candidate whose length after the projections is below this fraction of its
// length before them lies (within rounding) in the span of the earlier rows.
constexpr float kEmptyCandidate = 1e-4f;

inline float SumSquares(const float* x, int len) {
  float s = 0.0f;
  for (int k = 0; k < len; ++k) s += x[k] * x[k];
  return s;
}

inline float Dot(const float* x, const float* y, int len) {
  float s = 0.0f;
  for (int k = 0; k < len; ++k) s += x[k] * y[k];
  return s;
}

inline float RootOf(float v) { return static_cast<float>(std::sqrt(static_cast<double>(v))); }

inline void Scale(float* x, int len, float s) {
  for (int k = 0; k < len; ++k) x[k] *= s;
}

// x' = c x + s y, y' = c y - s x.
inline void Rotate(float* x, float* y, int len, float c, float s) {
  for (int k = 0; k < len; ++k) {
    const float t0 = x[k], t1 = y[k];
    x[k] = c * t0 + s * t1;
    y[k] = c * t1 - s * t0;
  }
}

// The same rotation, also returning the new rows' sums of squares.
inline void RotateWithNorms(float* x, float* y, int len, float c, float s, float* a, float* b) {
  float sa = 0.0f, sb = 0.0f;
  for (int k = 0; k < len; ++k) {
    const float t0 = c * x[k] + s * y[k];
    const float t1 = c * y[k] - s * x[k];
    x[k] = t0;
    y[k] = t1;
    sa += t0 * t0;
    sb += t1 * t1;
  }
  *a = sa;
  *b = sb;
}

inline void SwapRows(float* x, float* y, int len) {
  for (int k = 0; k < len; ++k) std::swap(x[k], y[k]);
}

// Row i of At has a zero singular value: replace it by a unit vector orthogonal to rows
// 0 .. i - 1 (already unit length). Candidates, in order: the constant 1/m, then e0 .. e(m-1);
// the first that keeps a length after the projections wins. Bounded, so a row that cannot be
// completed (i >= m) ends as e(i mod m).
void CompleteRow(float* At, unsigned astep, int m, int i) {
  float* row = At + static_cast<size_t>(i) * astep;
  for (int candidate = 0; candidate <= m; ++candidate) {
    if (candidate == 0) {
      const float fill = static_cast<float>(1.0 / m);
      for (int k = 0; k < m; ++k) row[k] = fill;
    } else {
      for (int k = 0; k < m; ++k) row[k] = 0.0f;
      row[candidate - 1] = 1.0f;
    }
    const float before = RootOf(SumSquares(row, m));
    for (int e = 0; e < i; ++e) {
      const float* other = At + static_cast<size_t>(e) * astep;
      const float p = Dot(row, other, m);
      for (int k = 0; k < m; ++k) row[k] -= p * other[k];
    }
    const float after = RootOf(SumSquares(row, m));
    if (!(after > kEmptyCandidate * before)) continue;
    float asum = 0.0f;
    for (int k = 0; k < m; ++k) asum += std::fabs(row[k]);
    if (asum != 0.0f) Scale(row, m, 1.0f / asum);
    const float len = RootOf(SumSquares(row, m));
    if (len == 0.0f) continue;
    Scale(row, m, 1.0f / len);
    return;
  }
  for (int k = 0; k < m; ++k) row[k] = 0.0f;
  row[i % m] = 1.0f;
}

}  // namespace

float tvxHypotC(float a, float b) {
  a = std::fabs(a);
  b = std::fabs(b);
  const float hi = std::max(a, b), lo = std::min(a, b);
  if (hi == 0.0f) return 0.0f;
  const float r = lo / hi;
  return hi * static_cast<float>(std::sqrt(1.0 + static_cast<double>(r * r)));
}

void tvxJacobiSVDImpl_32f(float* At, unsigned astep, float* W, float* Vt, unsigned vstep, int m, int n, int nU) {
  const auto rowA = [&](int i) { return At + static_cast<size_t>(i) * astep; };
  const auto rowV = [&](int i) { return Vt + static_cast<size_t>(i) * vstep; };
  for (int i = 0; i < n; ++i) {
    W[i] = SumSquares(rowA(i), m);
    if (Vt) {
      for (int k = 0; k < n; ++k) rowV(i)[k] = 0.0f;
      rowV(i)[i] = 1.0f;
    }
  }

  // Short matrices get as many sweeps as they have rows.
  const int sweeps = std::min(m, 30);
  for (int sweep = 0; sweep < sweeps; ++sweep) {
    bool rotated = false;
    for (int i = 0; i < n - 1; ++i) {
      for (int j = i + 1; j < n; ++j) {
        float* xi = rowA(i);
        float* xj = rowA(j);
        const float a = W[i], b = W[j];
        float p = Dot(xi, xj, m);
        if (std::fabs(p) <= kJacobiEps * std::sqrt(static_cast<double>(a) * b)) continue;
        p *= 2.0f;
        const float beta = a - b;
        const float gamma = tvxHypotC(p, beta);
        float c, s, delta;
        if (beta < 0.0f) {
          delta = (gamma - beta) * 0.5f;
          s = RootOf(delta / gamma);
          c = p / (gamma * s * 2.0f);
        } else {
          c = RootOf((gamma + beta) / (gamma * 2.0f));
          s = p / (gamma * c * 2.0f);
          delta = static_cast<float>(static_cast<double>(p) * p * 0.5 / (static_cast<double>(gamma) + beta));
        }
        if (sweep % 2 == 1) {
          Rotate(xi, xj, m, c, s);
          W[i] += delta;
          W[j] -= delta;
        } else {
          RotateWithNorms(xi, xj, m, c, s, &W[i], &W[j]);
        }
        if (Vt) Rotate(rowV(i), rowV(j), n, c, s);
        rotated = true;
      }
    }
    if (!rotated) break;
  }

  for (int i = 0; i < n; ++i) W[i] = RootOf(SumSquares(rowA(i), m));

  // Selection sort, descending; a strict comparison keeps the first of equal values.
  for (int i = 0; i < n - 1; ++i) {
    int k = i;
    for (int j = i + 1; j < n; ++j)
      if (W[j] > W[k]) k = j;
    if (k != i) {
      std::swap(W[i], W[k]);
      SwapRows(rowA(i), rowA(k), m);
      if (Vt) SwapRows(rowV(i), rowV(k), n);
    }
  }

  if (!Vt) return;
  for (int i = 0; i < nU && i < n; ++i) {
    if (W[i] > FLT_MIN) {
      Scale(rowA(i), m, 1.0f / W[i]);
    } else {
      CompleteRow(At, astep, m, i);
    }
  }
}

int tvxSVDf32_v2C(const float* A, uint32_t m, uint32_t n, float* w, float* U, float* Vt, float* tmpU, float* tmpV,
                  int finalFlag) {
  // Work copy: At, n rows of m (column c of A is row c of At).
  if (n == 1 || m == 1) {
    std::memcpy(tmpU, A, sizeof(float) * m * n);
  } else {
    for (uint32_t r = 0; r < m; ++r)
      for (uint32_t c = 0; c < n; ++c) tmpU[static_cast<size_t>(c) * m + r] = A[static_cast<size_t>(r) * n + c];
  }
  const int nU = finalFlag == 1 ? 0 : static_cast<int>(n);
  tvxJacobiSVDImpl_32f(tmpU, m, w, tmpV, n, static_cast<int>(m), static_cast<int>(n), nU);
  std::memcpy(Vt, tmpV, sizeof(float) * n * n);
  if (nU > 0) {
    for (uint32_t r = 0; r < m; ++r)
      for (uint32_t c = 0; c < n; ++c) U[static_cast<size_t>(r) * n + c] = tmpU[static_cast<size_t>(c) * m + r];
  }
  return 0;
}

void tvxSVDf32C(const float* A, uint32_t m, uint32_t n, float* w, float* U, float* Vt, float* tmpU, float* tmpV) {
  tvxSVDf32_v2C(A, m, n, w, U, Vt, tmpU, tmpV, 0);
}

void tvxSolvef32C(const float* A, int32_t numCols, int32_t numRows, const float* b, float* x) {
  const uint32_t rows = static_cast<uint32_t>(numRows), cols = static_cast<uint32_t>(numCols);
  const uint32_t mn = rows * cols * 4, nn = cols * cols * 4;
  float* U = static_cast<float*>(tvxGetScratchBufferAligned_(mn, 16));
  float* w = static_cast<float*>(tvxGetScratchBufferAligned_(cols * 4, 16));
  float* Vt = static_cast<float*>(tvxGetScratchBufferAligned_(nn, 16));
  float* tmpU = static_cast<float*>(tvxGetScratchBufferAligned_(mn, 16));
  float* tmpV = static_cast<float*>(tvxGetScratchBufferAligned_(nn, 16));
  float* products = static_cast<float*>(tvxGetScratchBufferAligned_(rows * 4, 4));
  if (U && w && Vt && tmpU && tmpV && products) {
    tvxSVDf32(A, rows, cols, w, U, Vt, tmpU, tmpV);
    for (uint32_t j = 0; j < cols; ++j) x[j] = 0.0f;
    const uint32_t kept = std::min(cols, rows);
    double total = 0.0;
    for (uint32_t k = 0; k < kept; ++k) total += w[k];
    const double cut = total * kSolveCut;
    for (uint32_t k = 0; k < kept; ++k) {
      if (!(std::fabs(static_cast<double>(w[k])) > cut)) continue;
      for (uint32_t i = 0; i < rows; ++i) products[i] = U[static_cast<size_t>(i) * cols + k] * b[i];
      double s = 0.0;
      for (uint32_t i = 0; i < rows; ++i) s += products[i];
      const float q = static_cast<float>(s / w[k]);
      const float* v = Vt + static_cast<size_t>(k) * cols;
      for (uint32_t j = 0; j < cols; ++j) x[j] += q * v[j];
    }
  }
  for (void* p : {static_cast<void*>(U), static_cast<void*>(w), static_cast<void*>(Vt), static_cast<void*>(tmpU),
                  static_cast<void*>(tmpV), static_cast<void*>(products)})
    if (p) tvxReleaseScratchBuffer_(p);
}

int32_t tvxSolveCholeskyf32C(float* A, const float* b, float* diag, uint32_t N, float* x) {
  if (N == 0) return 1;
  const auto at = [&](uint32_t r, uint32_t c) -> float& { return A[static_cast<size_t>(r) * N + c]; };
  const auto invRoot = [](float v) { return static_cast<float>(1.0 / std::sqrt(static_cast<double>(v))); };
  float lo = 0.0f, hi = 0.0f;
  for (uint32_t i = 0; i < N; ++i) {
    if (!(at(i, i) > 0.0f)) return 0;
    diag[i] = invRoot(at(i, i));
    lo = i == 0 ? diag[i] : std::min(lo, diag[i]);
    hi = i == 0 ? diag[i] : std::max(hi, diag[i]);
  }
  // Some diag[j] > 10000 diag[i] exactly when the largest exceeds 10000 times the smallest.
  if (hi > 10000.0f * lo) return 0;

  for (uint32_t k = 0; k < N; ++k) {
    if (!(at(k, k) > 0.0f)) return 0;
    const float d = invRoot(at(k, k));
    diag[k] = d;
    for (uint32_t j = k + 1; j < N; ++j) at(k, j) *= d;
    for (uint32_t i = k + 1; i < N; ++i) {
      const float f = at(k, i);
      for (uint32_t j = i; j < N; ++j) at(i, j) -= at(k, j) * f;
    }
  }
  for (uint32_t i = 0; i < N; ++i) {
    float s = 0.0f;
    for (uint32_t j = 0; j < i; ++j) s += at(j, i) * x[j];
    x[i] = (b[i] - s) * diag[i];
  }
  for (uint32_t i = N; i-- > 0;) {
    float s = 0.0f;
    for (uint32_t j = i + 1; j < N; ++j) s += at(i, j) * x[j];
    x[i] = (x[i] - s) * diag[i];
  }
  return 1;
}

int32_t tvxSolveLDLf32C(float* A, const float* b, float* diag, uint32_t N, float* x) {
  if (N == 0) return 1;
  const auto row = [&](uint32_t r) { return A + static_cast<size_t>(r) * N; };
  for (uint32_t i = 0; i < N; ++i) {
    // diag[0 .. i) holds D[j] L[i][j] for this step.
    for (uint32_t j = 0; j < i; ++j) diag[j] = row(j)[j] * row(i)[j];
    const float d = row(i)[i] - tvxDotProductf32(row(i), diag, i);
    diag[i] = d;
    row(i)[i] = d;
    if (d == 0.0f) return 0;
    const float inv = 1.0f / d;
    for (uint32_t r = i + 1; r < N; ++r) row(r)[i] = (row(r)[i] - tvxDotProductf32(row(r), diag, i)) * inv;
  }
  for (uint32_t i = 0; i < N; ++i) {
    float s = 0.0f;
    for (uint32_t j = 0; j < i; ++j) s += row(i)[j] * x[j];
    x[i] = b[i] - s;
  }
  for (uint32_t i = 0; i < N; ++i) x[i] /= row(i)[i];
  for (uint32_t i = N; i-- > 0;) {
    float s = 0.0f;
    for (uint32_t j = i + 1; j < N; ++j) s += row(j)[i] * x[j];
    x[i] -= s;
  }
  return 1;
}

int32_t tvxSolveLUf32C(float* A, float* b, uint32_t N, uint8_t* pivot, float* x) {
  if (N < 1) return 0;
  const auto row = [&](uint32_t r) { return A + static_cast<size_t>(r) * N; };
  // Set the first time any step finds a larger element below the diagonal, never reset.
  const float* pivotRow = nullptr;
  for (uint32_t k = 0; k < N; ++k) {
    uint32_t p = k;
    float best = std::fabs(row(k)[k]);
    for (uint32_t r = k + 1; r < N; ++r) {
      if (std::fabs(row(r)[k]) > best) {
        best = std::fabs(row(r)[k]);
        p = r;
        if (!pivotRow) pivotRow = row(r);
      }
    }
    if (!pivotRow) return 3;
    pivot[k] = static_cast<uint8_t>(p);
    if (p != k) SwapRows(row(k), row(p), static_cast<int>(N));
    float* rk = row(k);
    if (rk[k] == 0.0f) return 1;
    for (uint32_t j = k + 1; j < N; ++j) rk[j] /= rk[k];
    for (uint32_t r = k + 1; r < N; ++r) {
      float* rr = row(r);
      const float f = rr[k];
      for (uint32_t j = k + 1; j < N; ++j) rr[j] -= f * rk[j];
    }
  }
  for (uint32_t i = 0; i < N; ++i) {
    if (pivot[i] != i) std::swap(b[i], b[pivot[i]]);
    float s = 0.0f;
    for (uint32_t j = 0; j < i; ++j) s += x[j] * row(i)[j];
    x[i] = (b[i] - s) / row(i)[i];
  }
  for (uint32_t i = N; i-- > 0;) {
    if (pivot[i] != i) std::swap(b[i], b[pivot[i]]);
    float s = 0.0f;
    for (uint32_t j = i + 1; j < N; ++j) s += x[j] * row(i)[j];
    x[i] -= s;
    if (row(i)[i] == 0.0f) return 1;
  }
  return 0;
}

void tvxSort8Scoresf32C(float* inScores, float* outScores) {
  const auto exchange = [](float* v, int i, int j) {
    if (v[j] < v[i]) std::swap(v[i], v[j]);
  };
  for (float* run : {inScores, inScores + 4}) {
    exchange(run, 0, 1);
    exchange(run, 2, 3);
    exchange(run, 0, 2);
    exchange(run, 1, 3);
    exchange(run, 1, 2);
  }
  int a = 0, b = 4, o = 0;
  while (a < 4 && b < 8) outScores[o++] = inScores[a] < inScores[b] ? inScores[a++] : inScores[b++];
  if (a < 4) std::memcpy(outScores + o, inScores + a, sizeof(float) * (4 - a));
  if (b < 8) std::memcpy(outScores + o, inScores + b, sizeof(float) * (8 - b));
}
