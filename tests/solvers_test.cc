// Dense solvers through the public entries: the SVD against its defining identities (A =
// U diag(w) Vt, orthonormal factors, descending values) on random, diagonal, rank-deficient and
// wide matrices; least squares against a double-precision normal-equation solve; the square
// solvers by their residuals and their documented result codes; the sort of eight scores
// against std::sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "cpu/solvers.h"
#include "frame/frame.h"
#include "log_capture.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;
using Mat = std::vector<float>;

class Solvers : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  Mat Random(size_t count, float lo = -1.0f, float hi = 1.0f) {
    std::uniform_real_distribution<float> d(lo, hi);
    Mat v(count);
    for (float& x : v) x = d(rng_);
    return v;
  }
  std::mt19937 rng_{1234};
};

struct Svd {
  Mat w, U, Vt;
};

Svd Decompose(const Mat& A, uint32_t m, uint32_t n) {
  Svd r{Mat(n, -7.0f), Mat(size_t(m) * n, -7.0f), Mat(size_t(n) * n, -7.0f)};
  Mat tmpU(size_t(m) * n), tmpV(size_t(n) * n);
  tvxSVDf32(A.data(), m, n, r.w.data(), r.U.data(), r.Vt.data(), tmpU.data(), tmpV.data());
  return r;
}

// Largest |(U diag(w) Vt)[r][c] - A[r][c]|, in double.
double ReconstructionError(const Mat& A, const Svd& s, uint32_t m, uint32_t n) {
  double worst = 0.0;
  for (uint32_t r = 0; r < m; ++r)
    for (uint32_t c = 0; c < n; ++c) {
      double v = 0.0;
      for (uint32_t k = 0; k < n; ++k) v += double(s.U[r * n + k]) * s.w[k] * s.Vt[k * n + c];
      worst = std::max(worst, std::fabs(v - A[r * n + c]));
    }
  return worst;
}

// Largest deviation of the Gram matrix of `count` vectors from the identity; vector k's element
// e is at data[k * kStep + e * eStep].
double GramError(const Mat& data, uint32_t count, uint32_t len, uint32_t kStep, uint32_t eStep) {
  double worst = 0.0;
  for (uint32_t a = 0; a < count; ++a)
    for (uint32_t b = 0; b < count; ++b) {
      double d = 0.0;
      for (uint32_t e = 0; e < len; ++e) d += double(data[a * kStep + e * eStep]) * data[b * kStep + e * eStep];
      worst = std::max(worst, std::fabs(d - (a == b ? 1.0 : 0.0)));
    }
  return worst;
}

// Checks every identity of a decomposition; `rank` columns of U (and, when m >= n, all n) must
// be orthonormal.
void ExpectValidSvd(const Mat& A, const Svd& s, uint32_t m, uint32_t n, float tol) {
  float scale = 1.0f;
  for (float v : A) scale = std::max(scale, std::fabs(v));
  EXPECT_LT(ReconstructionError(A, s, m, n), tol * scale * n);
  for (uint32_t k = 0; k + 1 < n; ++k) EXPECT_GE(s.w[k], s.w[k + 1]) << k;
  EXPECT_GE(s.w[n - 1], 0.0f);
  EXPECT_LT(GramError(s.Vt, n, n, n, 1), tol * n);
  EXPECT_LT(GramError(s.U, std::min(m, n), m, 1, n), tol * n);
}

TEST_F(Solvers, SvdOfRandomMatricesReconstructsWithOrthonormalFactors) {
  const uint32_t shapes[][2] = {{9, 9}, {8, 9}, {18, 9}, {3, 5}, {5, 3}, {1, 4}, {4, 1}, {200, 9}, {40, 40}};
  for (const auto& shape : shapes) {
    const uint32_t m = shape[0], n = shape[1];
    SCOPED_TRACE(std::to_string(m) + "x" + std::to_string(n));
    const Mat A = Random(size_t(m) * n, -3.0f, 3.0f);
    const Svd s = Decompose(A, m, n);
    ExpectValidSvd(A, s, m, n, 2e-5f);
    // Wide matrices have n - m zero singular values.
    for (uint32_t k = m; k < n; ++k) EXPECT_LT(s.w[k], 1e-5f * s.w[0]) << k;
    // The values match the eigenvalues' roots of A^T A: their squares sum to the Frobenius norm.
    double frob = 0.0, sum = 0.0;
    for (float v : A) frob += double(v) * v;
    for (float v : s.w) sum += double(v) * v;
    EXPECT_NEAR(sum, frob, 1e-5 * frob);
  }
}

TEST_F(Solvers, SvdOfDiagonalMatrixSortsMagnitudesWithUnitVectors) {
  const uint32_t n = 5;
  const float diag[n] = {2.0f, -7.0f, 0.5f, 7.0f, -3.0f};
  Mat A(n * n, 0.0f);
  for (uint32_t i = 0; i < n; ++i) A[i * n + i] = diag[i];
  const Svd s = Decompose(A, n, n);
  // Equal magnitudes keep their column order (the sort prefers the first).
  const uint32_t order[n] = {1, 3, 4, 0, 2};
  for (uint32_t k = 0; k < n; ++k) {
    const uint32_t c = order[k];
    EXPECT_EQ(s.w[k], std::fabs(diag[c])) << k;
    for (uint32_t j = 0; j < n; ++j) {
      EXPECT_EQ(std::fabs(s.Vt[k * n + j]), j == c ? 1.0f : 0.0f) << k << "," << j;
      EXPECT_EQ(std::fabs(s.U[j * n + k]), j == c ? 1.0f : 0.0f) << k << "," << j;
    }
    // The signs pair up so that U diag(w) Vt gives back the negative entries.
    EXPECT_EQ(s.U[c * n + k] * s.w[k] * s.Vt[k * n + c], diag[c]);
  }
}

TEST_F(Solvers, RankDeficientAndZeroMatricesGetOrthonormalCompletion) {
  // 7 x 5 with a zero column and a column that is a sum of two others: rank 3.
  const uint32_t m = 7, n = 5;
  Mat A = Random(m * n);
  for (uint32_t r = 0; r < m; ++r) {
    A[r * n + 2] = 0.0f;
    A[r * n + 4] = A[r * n + 0] + A[r * n + 1];
  }
  const Svd s = Decompose(A, m, n);
  ExpectValidSvd(A, s, m, n, 2e-5f);
  EXPECT_GT(s.w[2], 1e-2f);
  EXPECT_LT(s.w[3], 1e-5f);
  EXPECT_EQ(s.w[4], 0.0f);

  // All zero: every value 0, Vt the identity, U's first column the normalised constant and the
  // rest an orthonormal completion; the same again on a second call (no random fill).
  const Mat Z(m * n, 0.0f);
  const Svd z = Decompose(Z, m, n);
  ExpectValidSvd(Z, z, m, n, 1e-6f);
  for (uint32_t k = 0; k < n; ++k) {
    EXPECT_EQ(z.w[k], 0.0f);
    for (uint32_t j = 0; j < n; ++j) EXPECT_EQ(z.Vt[k * n + j], k == j ? 1.0f : 0.0f);
  }
  for (uint32_t r = 0; r < m; ++r) EXPECT_NEAR(z.U[r * n], 1.0 / std::sqrt(double(m)), 1e-6);
  const Svd again = Decompose(Z, m, n);
  EXPECT_EQ(again.U, z.U);

  // A wide zero matrix cannot complete every column: the columns stay unit vectors.
  const Svd wide = Decompose(Mat(2 * 4, 0.0f), 2, 4);
  for (uint32_t k = 0; k < 4; ++k) EXPECT_NEAR(std::hypot(wide.U[k], wide.U[4 + k]), 1.0, 1e-6) << k;
}

TEST_F(Solvers, FinalFlagSkipsOnlyTheLeftVectors) {
  const uint32_t m = 10, n = 6;
  const Mat A = Random(m * n);
  const Svd full = Decompose(A, m, n);
  Mat w(n), U(m * n, 42.0f), Vt(n * n), tmpU(m * n), tmpV(n * n);
  EXPECT_EQ(tvxSVDf32_v2C(A.data(), m, n, w.data(), U.data(), Vt.data(), tmpU.data(), tmpV.data(), 1), 0);
  EXPECT_EQ(w, full.w);
  EXPECT_EQ(Vt, full.Vt);
  EXPECT_EQ(U, Mat(m * n, 42.0f));
  EXPECT_EQ(tvxSVDf32_v2C(A.data(), m, n, w.data(), U.data(), Vt.data(), tmpU.data(), tmpV.data(), 0), 0);
  EXPECT_EQ(U, full.U);
}

TEST_F(Solvers, HypotIsOverflowSafe) {
  EXPECT_FLOAT_EQ(tvxHypotC(3.0f, -4.0f), 5.0f);
  EXPECT_FLOAT_EQ(tvxHypotC(3e30f, 4e30f), 5e30f);
  EXPECT_FLOAT_EQ(tvxHypotC(-3e-30f, 4e-30f), 5e-30f);
  EXPECT_EQ(tvxHypotC(0.0f, -0.0f), 0.0f);
}

// Dense double-precision Gaussian elimination with partial pivoting (the test's own model).
std::vector<double> SolveDouble(std::vector<double> M, std::vector<double> y, size_t n) {
  for (size_t k = 0; k < n; ++k) {
    size_t p = k;
    for (size_t r = k + 1; r < n; ++r)
      if (std::fabs(M[r * n + k]) > std::fabs(M[p * n + k])) p = r;
    for (size_t c = 0; c < n; ++c) std::swap(M[k * n + c], M[p * n + c]);
    std::swap(y[k], y[p]);
    for (size_t r = k + 1; r < n; ++r) {
      const double f = M[r * n + k] / M[k * n + k];
      for (size_t c = k; c < n; ++c) M[r * n + c] -= f * M[k * n + c];
      y[r] -= f * y[k];
    }
  }
  std::vector<double> x(n);
  for (size_t i = n; i-- > 0;) {
    double s = y[i];
    for (size_t c = i + 1; c < n; ++c) s -= M[i * n + c] * x[c];
    x[i] = s / M[i * n + i];
  }
  return x;
}

TEST_F(Solvers, LeastSquaresMatchesNormalEquations) {
  for (const auto& shape : {std::pair<int, int>{9, 6}, {30, 8}, {5, 5}, {1, 1}, {12, 1}}) {
    const int rows = shape.first, cols = shape.second;
    SCOPED_TRACE(std::to_string(rows) + "x" + std::to_string(cols));
    const Mat A = Random(size_t(rows) * cols);
    const Mat b = Random(rows, -5.0f, 5.0f);
    std::vector<double> N(size_t(cols) * cols, 0.0), y(cols, 0.0);
    for (int i = 0; i < cols; ++i) {
      for (int j = 0; j < cols; ++j)
        for (int r = 0; r < rows; ++r) N[i * cols + j] += double(A[r * cols + i]) * A[r * cols + j];
      for (int r = 0; r < rows; ++r) y[i] += double(A[r * cols + i]) * b[r];
    }
    const std::vector<double> expect = SolveDouble(N, y, cols);
    Mat x(cols, 99.0f);
    tvxSolvef32(A.data(), cols, rows, b.data(), x.data());
    double norm = 1.0;
    for (double v : expect) norm = std::max(norm, std::fabs(v));
    for (int j = 0; j < cols; ++j) EXPECT_NEAR(x[j], expect[j], 2e-4 * norm) << j;
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Solvers, LeastSquaresOfSingularSystemIsMinimumNorm) {
  // Two equal columns: any x0 + x1 = t solves; the minimum-norm solution splits t evenly.
  const int rows = 4, cols = 3;
  Mat A(rows * cols);
  const Mat base = Random(rows * 2);
  for (int r = 0; r < rows; ++r) {
    A[r * cols] = A[r * cols + 1] = base[r * 2];
    A[r * cols + 2] = base[r * 2 + 1];
  }
  Mat b(rows);
  for (int r = 0; r < rows; ++r) b[r] = A[r * cols] * 3.0f + A[r * cols + 2] * -2.0f;
  Mat x(cols);
  tvxSolvef32(A.data(), cols, rows, b.data(), x.data());
  EXPECT_NEAR(x[0], 1.5f, 1e-4f);
  EXPECT_NEAR(x[1], 1.5f, 1e-4f);
  EXPECT_NEAR(x[2], -2.0f, 1e-4f);
}

TEST_F(Solvers, LeastSquaresWithoutScratchLeavesXUntouched) {
  const Mat A = Random(6 * 3), b = Random(6);
  Mat x(3, 5.0f);
  tvx_fail_heap_after_for_test(0);
  tvxSolvef32(A.data(), 3, 6, b.data(), x.data());
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(x, Mat(3, 5.0f));
  tvxSolvef32(A.data(), 3, 6, b.data(), x.data());
  EXPECT_NE(x, Mat(3, 5.0f));
}

TEST_F(Solvers, BadArgumentsAreLoggedAndNothingIsWritten) {
  Mat A(16, 1.0f), w(4, 3.0f), U(16, 3.0f), Vt(16, 3.0f), t1(16), t2(16);
  tvxSVDf32(A.data(), 4, 4, w.data(), U.data(), nullptr, t1.data(), t2.data());
  tvxSVDf32(A.data(), 0, 4, w.data(), U.data(), Vt.data(), t1.data(), t2.data());
  ASSERT_EQ(g_lines.size(), 2u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxSVDf32", "(A != NULL) && (m > 0) && (n > 0) && (w != NULL) && (U != NULL) && (Vt != NULL) && (tmpU != NULL) && (tmpV != NULL)"));
  EXPECT_EQ(w, Mat(4, 3.0f));
  EXPECT_EQ(U, Mat(16, 3.0f));
  g_lines.clear();
  Mat b(4, 1.0f), x(4, 3.0f);
  tvxSolvef32(A.data(), 4, 3, b.data(), x.data());      // fewer rows than columns
  tvxSolvef32(A.data(), -2, -1, b.data(), x.data());    // negative counts
  ASSERT_EQ(g_lines.size(), 2u);
  EXPECT_EQ(g_lines[1], tvxtest::AssertLine("tvxSolvef32", "A && b && x && numRows && numCols && numRows >= numCols"));
  EXPECT_EQ(x, Mat(4, 3.0f));
  g_lines.clear();
  uint8_t piv[4];
  EXPECT_EQ(tvxSolveCholeskyf32(A.data(), b.data(), nullptr, 4, x.data()), -1);
  EXPECT_EQ(tvxSolveLDLf32(A.data(), nullptr, w.data(), 4, x.data()), 0);
  EXPECT_EQ(tvxSolveLUf32(A.data(), b.data(), 0, piv, x.data()), 3);
  EXPECT_EQ(tvxSolveLUf32(A.data(), b.data(), 4, piv, nullptr), 3);
  EXPECT_EQ(tvxSolveCholeskyf32(A.data(), b.data(), w.data(), 0, x.data()), 1);
  EXPECT_EQ(tvxSolveLDLf32(A.data(), b.data(), w.data(), 0, x.data()), 1);
  EXPECT_TRUE(g_lines.empty());
  EXPECT_EQ(x, Mat(4, 3.0f));
  EXPECT_EQ(A, Mat(16, 1.0f));
}

// Symmetric positive definite: B B^T + n I.
Mat RandomSpd(std::mt19937& rng, uint32_t n) {
  std::uniform_real_distribution<float> d(-1.0f, 1.0f);
  Mat B(n * n), A(n * n);
  for (float& v : B) v = d(rng);
  for (uint32_t i = 0; i < n; ++i)
    for (uint32_t j = 0; j < n; ++j) {
      float s = i == j ? float(n) : 0.0f;
      for (uint32_t k = 0; k < n; ++k) s += B[i * n + k] * B[j * n + k];
      A[i * n + j] = s;
    }
  return A;
}

double Residual(const Mat& A, const Mat& x, const Mat& b, uint32_t n) {
  double worst = 0.0;
  for (uint32_t i = 0; i < n; ++i) {
    double s = 0.0;
    for (uint32_t j = 0; j < n; ++j) s += double(A[i * n + j]) * x[j];
    worst = std::max(worst, std::fabs(s - b[i]));
  }
  return worst;
}

TEST_F(Solvers, CholeskyAndLdlSolveSymmetricSystems) {
  for (uint32_t n : {1u, 2u, 6u, 8u, 17u}) {
    SCOPED_TRACE(n);
    const Mat A = RandomSpd(rng_, n), b = Random(n, -4.0f, 4.0f);
    Mat work = A, diag(n), x(n);
    EXPECT_EQ(tvxSolveCholeskyf32(work.data(), b.data(), diag.data(), n, x.data()), 1);
    EXPECT_LT(Residual(A, x, b, n), 1e-4 * n);
    // The first pivot stays in A; its reciprocal root is in diag.
    EXPECT_EQ(work[0], A[0]);
    EXPECT_FLOAT_EQ(diag[0], 1.0f / std::sqrt(A[0]));

    // LDL^T also handles indefinite symmetric matrices.
    Mat S = A;
    for (uint32_t i = 0; i < n; ++i) S[i * n + i] -= (i % 2) ? 3.0f * n : 0.0f;
    work = S;
    EXPECT_EQ(tvxSolveLDLf32(work.data(), b.data(), diag.data(), n, x.data()), 1);
    EXPECT_LT(Residual(S, x, b, n), 1e-4 * n);
  }
}

TEST_F(Solvers, CholeskyRejectsIndefiniteAndIllConditionedMatrices) {
  Mat x(2), diag(2);
  const Mat b = {1.0f, 1.0f};
  Mat wide = {1.0f, 0.0f, 0.0f, 1e9f};  // positive definite, but the diagonal spans 1e9
  EXPECT_EQ(tvxSolveCholeskyf32(wide.data(), b.data(), diag.data(), 2, x.data()), 0);
  Mat edge = {1.0f, 0.0f, 0.0f, 1e8f};  // spans exactly 1e8: accepted
  EXPECT_EQ(tvxSolveCholeskyf32(edge.data(), b.data(), diag.data(), 2, x.data()), 1);
  EXPECT_FLOAT_EQ(x[1], 1e-8f);
  Mat negative = {1.0f, 0.0f, 0.0f, -1.0f};
  EXPECT_EQ(tvxSolveCholeskyf32(negative.data(), b.data(), diag.data(), 2, x.data()), 0);
  Mat indefinite = {1.0f, 2.0f, 2.0f, 1.0f};  // positive diagonal, negative second pivot
  EXPECT_EQ(tvxSolveCholeskyf32(indefinite.data(), b.data(), diag.data(), 2, x.data()), 0);
  Mat singular = {1.0f, 1.0f, 1.0f, 1.0f};
  EXPECT_EQ(tvxSolveLDLf32(singular.data(), b.data(), diag.data(), 2, x.data()), 0);
}

TEST_F(Solvers, LuSolvesWhenARowIsExchangedAndReportsItsCodes) {
  uint8_t piv[8];
  Mat x(8, 0.0f);
  Mat one = {4.0f}, b1 = {8.0f};
  EXPECT_EQ(tvxSolveLUf32(one.data(), b1.data(), 1, piv, x.data()), 3);
  Mat diagDominant = {2.0f, 1.0f, 1.0f, 3.0f}, b2 = {1.0f, 2.0f};
  EXPECT_EQ(tvxSolveLUf32(diagDominant.data(), b2.data(), 2, piv, x.data()), 3);

  Mat A = {1.0f, 2.0f, 3.0f, 4.0f}, b = {5.0f, 11.0f};
  EXPECT_EQ(tvxSolveLUf32(A.data(), b.data(), 2, piv, x.data()), 0);
  EXPECT_FLOAT_EQ(x[0], 1.0f);
  EXPECT_FLOAT_EQ(x[1], 2.0f);
  EXPECT_EQ(b, Mat({5.0f, 11.0f}));  // permuted during the solve, restored at the end
  EXPECT_EQ(piv[0], 1);

  Mat singular = {1.0f, 2.0f, 3.0f, 2.0f, 4.0f, 6.0f, 1.0f, 1.0f, 1.0f}, b3 = {1.0f, 2.0f, 3.0f};
  EXPECT_EQ(tvxSolveLUf32(singular.data(), b3.data(), 3, piv, x.data()), 1);

  for (uint32_t n : {2u, 5u, 8u}) {
    SCOPED_TRACE(n);
    for (int round = 0; round < 20; ++round) {
      // Random rows: pivots move at most steps; a larger element below in column 0 forces the
      // first exchange.
      Mat R = Random(n * n);
      R[0] = 0.01f;
      R[n] = 3.0f;
      const Mat bb = Random(n, -2.0f, 2.0f);
      Mat work = R, bw = bb;
      EXPECT_EQ(tvxSolveLUf32(work.data(), bw.data(), n, piv, x.data()), 0);
      std::vector<double> Rd(R.begin(), R.end()), bd(bb.begin(), bb.end());
      const std::vector<double> exact = SolveDouble(Rd, bd, n);
      double scale = 1.0;
      for (double v : exact) scale = std::max(scale, std::fabs(v));
      EXPECT_LT(Residual(R, x, bb, n), 2e-5 * n * scale);
      EXPECT_EQ(bw, bb);
    }
  }
}

TEST_F(Solvers, SortOfEightScoresSortsHalvesAndMerges) {
  std::uniform_int_distribution<int> d(-3, 3);  // few values: many ties across the halves
  for (int round = 0; round < 200; ++round) {
    Mat in(8), out(8, 99.0f);
    for (float& v : in) v = float(d(rng_)) * 0.5f;
    Mat expect = in;
    std::sort(expect.begin(), expect.end());
    Mat halves = in;
    std::sort(halves.begin(), halves.begin() + 4);
    std::sort(halves.begin() + 4, halves.end());
    tvxSort8Scoresf32(in.data(), out.data());
    EXPECT_EQ(out, expect);
    EXPECT_EQ(in, halves);
  }
  Mat out(8, 1.0f);
  tvxSort8Scoresf32(nullptr, out.data());
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxSort8Scoresf32", "inScores && outScores"));
  EXPECT_EQ(out, Mat(8, 1.0f));
}

}  // namespace
