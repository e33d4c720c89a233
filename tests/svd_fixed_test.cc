// The block-floating-point SVD against its defining identities (A = U diag(w) Vt, orthonormal
// factors, descending values) evaluated in double, against the float decomposition's singular
// values, on random, mixed-exponent, full-scale, diagonal, rank-deficient and zero matrices; the
// rotation primitives on unaligned rows; the back-substitution against a double least-squares
// solve; argument, size and scratch failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "cpu/solvers.h"
#include "cpu/svd_fixed.h"
#include "frame/frame.h"

namespace {

using Vec = std::vector<double>;

struct FixMat {
  std::vector<int32_t> m;
  std::vector<int16_t> q;
  explicit FixMat(size_t count = 0) : m(count, 0x5A5A5A5A), q(count, 0x5A5A) {}
  double at(size_t k) const { return std::ldexp(double(m[k]), -q[k]); }
  Vec values() const {
    Vec v(m.size());
    for (size_t k = 0; k < m.size(); ++k) v[k] = at(k);
    return v;
  }
};

// v at the fixed exponent q (the test's own encoder).
FixMat Encode(const Vec& v, int16_t q) {
  FixMat f(v.size());
  for (size_t k = 0; k < v.size(); ++k) {
    f.m[k] = static_cast<int32_t>(std::llround(std::ldexp(v[k], q)));
    f.q[k] = q;
  }
  return f;
}

struct Svd {
  FixMat w, U, Vt;
  int32_t status;
};

Svd Decompose(const FixMat& A, uint32_t m, uint32_t n) {
  Svd s{FixMat(n), FixMat(size_t(m) * n), FixMat(size_t(n) * n), -1};
  s.status = tvxSVDs32C(A.m.data(), A.q.data(), m, n, s.w.m.data(), s.w.q.data(), s.U.m.data(), s.U.q.data(),
                        s.Vt.m.data(), s.Vt.q.data());
  return s;
}

double MaxAbs(const Vec& v) {
  double r = 0.0;
  for (double x : v) r = std::max(r, std::fabs(x));
  return r;
}

// Largest deviation of the Gram matrix of `count` vectors from the identity; vector k's element
// e is at data[k * kStep + e * eStep].
double GramError(const Vec& data, uint32_t count, uint32_t len, uint32_t kStep, uint32_t eStep) {
  double worst = 0.0;
  for (uint32_t a = 0; a < count; ++a)
    for (uint32_t b = 0; b < count; ++b) {
      double d = 0.0;
      for (uint32_t e = 0; e < len; ++e) d += data[a * kStep + e * eStep] * data[b * kStep + e * eStep];
      worst = std::max(worst, std::fabs(d - (a == b ? 1.0 : 0.0)));
    }
  return worst;
}

// Fixed-point results carry about 31 significant bits: reconstruction and the orthonormality of
// Vt (a product of rotations) hold far below single-precision rounding. The columns of U are as
// orthogonal as the sweeps' pair test demands: cosines up to 1.2e-6 are left alone.
constexpr double kTol = 2e-8;
constexpr double kPairTol = 2e-6;

// Every identity of a decomposition, in double: reconstruction relative to the largest |A|,
// descending non-negative values, orthonormal Vt rows and min(m, n) orthonormal U columns.
void ExpectValidSvd(const Vec& A, const Svd& s, uint32_t m, uint32_t n, double tol) {
  ASSERT_EQ(s.status, 0);
  const Vec w = s.w.values(), U = s.U.values(), Vt = s.Vt.values();
  double worst = 0.0;
  for (uint32_t r = 0; r < m; ++r)
    for (uint32_t c = 0; c < n; ++c) {
      double v = 0.0;
      for (uint32_t k = 0; k < n; ++k) v += U[r * n + k] * w[k] * Vt[k * n + c];
      worst = std::max(worst, std::fabs(v - A[r * n + c]));
    }
  EXPECT_LE(worst, tol * std::max(MaxAbs(A), 1e-300) * n);
  for (uint32_t k = 0; k + 1 < n; ++k) EXPECT_GE(w[k], w[k + 1]) << k;
  EXPECT_GE(w[n - 1], 0.0);
  EXPECT_LT(GramError(Vt, n, n, n, 1), tol * n);
  EXPECT_LT(GramError(U, std::min(m, n), m, 1, n), kPairTol);
}

class SvdFixed : public ::testing::Test {
 protected:
  Vec Random(size_t count, double lo = -3.0, double hi = 3.0) {
    std::uniform_real_distribution<double> d(lo, hi);
    Vec v(count);
    for (double& x : v) x = d(rng_);
    return v;
  }
  std::mt19937 rng_{20240611};
};

TEST_F(SvdFixed, RandomMatricesReconstructAndMatchTheFloatValues) {
  const uint32_t shapes[][2] = {{1, 4}, {4, 1}, {3, 5}, {5, 3}, {9, 9}, {8, 9}, {18, 9}, {200, 9}, {24, 24}};
  for (const auto& shape : shapes) {
    const uint32_t m = shape[0], n = shape[1];
    SCOPED_TRACE(std::to_string(m) + "x" + std::to_string(n));
    const FixMat A = Encode(Random(size_t(m) * n), 28);
    const Vec a = A.values();
    const Svd s = Decompose(A, m, n);
    ExpectValidSvd(a, s, m, n, kTol);

    std::vector<float> af(a.begin(), a.end()), wf(n), Uf(size_t(m) * n), Vf(size_t(n) * n), tU(size_t(m) * n),
        tV(size_t(n) * n);
    tvxSVDf32_v2C(af.data(), m, n, wf.data(), Uf.data(), Vf.data(), tU.data(), tV.data(), 0);
    const Vec w = s.w.values();
    for (uint32_t k = 0; k < n; ++k) EXPECT_NEAR(w[k], wf[k], 2e-5 * wf[0]) << k;
    // Wide matrices have n - m zero values.
    for (uint32_t k = m; k < n; ++k) EXPECT_LT(w[k], 1e-8 * w[0]) << k;
  }
}

TEST_F(SvdFixed, MixedExponentsFullScaleAndUnnormalisedInputs) {
  // Mantissas over the whole 32-bit range (both extremes included), exponents -10 .. 40.
  const uint32_t m = 12, n = 7;
  std::uniform_int_distribution<int32_t> mant(std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max());
  std::uniform_int_distribution<int> exp(-10, 40);
  FixMat A(size_t(m) * n);
  for (size_t k = 0; k < A.m.size(); ++k) {
    A.m[k] = mant(rng_);
    A.q[k] = static_cast<int16_t>(exp(rng_));
  }
  A.m[3] = std::numeric_limits<int32_t>::min();
  A.q[3] = -10;
  A.m[20] = std::numeric_limits<int32_t>::max();
  A.q[20] = -10;
  ExpectValidSvd(A.values(), Decompose(A, m, n), m, n, kTol);

  // Every element at full scale: +-(2^31 - 1) and -2^31 at Q = -10, a rank-2 sign pattern.
  FixMat F(size_t(m) * n);
  for (uint32_t r = 0; r < m; ++r)
    for (uint32_t c = 0; c < n; ++c) {
      const bool neg = ((r + c) % 3 == 0) != (c % 2 == 0);
      F.m[r * n + c] = neg ? std::numeric_limits<int32_t>::min() : std::numeric_limits<int32_t>::max();
      F.q[r * n + c] = -10;
    }
  const Svd f = Decompose(F, m, n);
  ExpectValidSvd(F.values(), f, m, n, kTol);
  EXPECT_GT(f.w.at(0), 1e12);

  // Exponents over the whole 16-bit range: squares leave the format and saturate, yet the
  // call completes with non-negative values in descending order.
  std::uniform_int_distribution<int> anyExp(-32768, 32767);
  for (int round = 0; round < 20; ++round) {
    FixMat X(size_t(m) * n);
    for (size_t k = 0; k < X.m.size(); ++k) {
      X.m[k] = mant(rng_);
      X.q[k] = static_cast<int16_t>(round % 2 ? anyExp(rng_) : (k % 2 ? -32768 : 32767));
    }
    const Svd x = Decompose(X, m, n);
    ASSERT_EQ(x.status, 0);
    for (uint32_t k = 0; k + 1 < n; ++k) EXPECT_GE(x.w.at(k), x.w.at(k + 1)) << round << "," << k;
    EXPECT_GE(x.w.m[n - 1], 0);
  }

  // The same matrix with unnormalised mantissas (each value at a smaller exponent) decomposes
  // to the identical bits.
  const FixMat B = Encode(Random(size_t(m) * n), 28);
  FixMat coarse(B.m.size());
  for (size_t k = 0; k < B.m.size(); ++k) {
    coarse.m[k] = B.m[k] / 256;
    coarse.q[k] = 20;
  }
  FixMat fine = B;
  for (size_t k = 0; k < fine.m.size(); ++k) fine.m[k] = coarse.m[k] * 256, fine.q[k] = 28;
  const Svd x = Decompose(coarse, m, n), y = Decompose(fine, m, n);
  EXPECT_EQ(x.w.m, y.w.m);
  EXPECT_EQ(x.w.q, y.w.q);
  EXPECT_EQ(x.U.m, y.U.m);
  EXPECT_EQ(x.Vt.m, y.Vt.m);
}

// A diagonal matrix of values given as mantissa/exponent pairs.
FixMat Diagonal(const double* diag, uint32_t n) {
  FixMat A(size_t(n) * n);
  std::fill(A.m.begin(), A.m.end(), 0);
  std::fill(A.q.begin(), A.q.end(), 0);
  for (uint32_t i = 0; i < n; ++i) {
    int e = 0;
    std::frexp(diag[i], &e);
    A.q[i * n + i] = static_cast<int16_t>(30 - e);
    A.m[i * n + i] = static_cast<int32_t>(std::ldexp(diag[i], A.q[i * n + i]));
  }
  return A;
}

TEST_F(SvdFixed, DiagonalMatrixGivesExactSortedMagnitudes) {
  // Values 2^-10 .. 2^13 apart: no rotation happens, so every value comes back exactly.
  const uint32_t n = 5;
  const double diag[n] = {2.0, -std::ldexp(1.5, 12), std::ldexp(1.0, -10), std::ldexp(1.5, 12), -3.0};
  const Svd s = Decompose(Diagonal(diag, n), n, n);
  ASSERT_EQ(s.status, 0);
  const uint32_t order[n] = {1, 3, 4, 0, 2};  // equal magnitudes keep their column order
  for (uint32_t k = 0; k < n; ++k) {
    const uint32_t c = order[k];
    EXPECT_EQ(s.w.at(k), std::fabs(diag[c])) << k;
    for (uint32_t j = 0; j < n; ++j) {
      EXPECT_EQ(std::fabs(s.Vt.at(k * n + j)), j == c ? 1.0 : 0.0) << k << "," << j;
      EXPECT_EQ(std::fabs(s.U.at(j * n + k)), j == c ? 1.0 : 0.0) << k << "," << j;
    }
    EXPECT_EQ(s.U.at(c * n + k) * s.w.at(k) * s.Vt.at(k * n + c), diag[c]);
  }

  // A value at or below max(m, n) 2^-31 of the largest is rounding residue by definition: it is
  // reported as an exact zero and its left vector comes from the completion.
  const double tiny[2] = {1.0, std::ldexp(1.0, -32)};
  const Svd t = Decompose(Diagonal(tiny, 2), 2, 2);
  EXPECT_EQ(t.w.at(0), 1.0);
  EXPECT_EQ(t.w.m[1], 0);
  EXPECT_EQ(t.w.q[1], 30);
  EXPECT_NEAR(std::fabs(t.U.at(3)), 1.0, 1e-9);
  EXPECT_NEAR(t.U.at(1), 0.0, 1e-9);
}

TEST_F(SvdFixed, RankDeficientAndZeroMatricesGetOrthonormalCompletion) {
  // 7 x 5 with a zero column and a column that is the sum of two others: rank 3.
  const uint32_t m = 7, n = 5;
  Vec a = Random(m * n);
  for (uint32_t r = 0; r < m; ++r) {
    a[r * n + 2] = 0.0;
    a[r * n + 4] = a[r * n + 0] + a[r * n + 1];
  }
  const FixMat A = Encode(a, 28);
  const Svd s = Decompose(A, m, n);
  ExpectValidSvd(A.values(), s, m, n, kTol);
  EXPECT_GT(s.w.at(2), 1e-2);
  EXPECT_LT(s.w.at(3), 1e-8);
  EXPECT_EQ(s.w.m[4], 0);

  // All zero: values are mantissa 0 at Q = 30, Vt is the identity, U's first column the
  // normalised constant and the rest a completion; a second call gives the same bits.
  FixMat Z(m * n);
  std::fill(Z.m.begin(), Z.m.end(), 0);
  std::fill(Z.q.begin(), Z.q.end(), -7);
  const Svd z = Decompose(Z, m, n);
  ExpectValidSvd(Z.values(), z, m, n, kTol);
  for (uint32_t k = 0; k < n; ++k) {
    EXPECT_EQ(z.w.m[k], 0);
    EXPECT_EQ(z.w.q[k], 30);
    for (uint32_t j = 0; j < n; ++j) EXPECT_EQ(z.Vt.at(k * n + j), k == j ? 1.0 : 0.0);
  }
  for (uint32_t r = 0; r < m; ++r) EXPECT_NEAR(z.U.at(r * n), 1.0 / std::sqrt(double(m)), 1e-9);
  const Svd again = Decompose(Z, m, n);
  EXPECT_EQ(again.U.m, z.U.m);
  EXPECT_EQ(again.U.q, z.U.q);

  // A wide zero matrix cannot complete every column: the columns stay unit vectors.
  FixMat W(8);
  std::fill(W.m.begin(), W.m.end(), 0);
  std::fill(W.q.begin(), W.q.end(), 0);
  const Svd wide = Decompose(W, 2, 4);
  for (uint32_t k = 0; k < 4; ++k) EXPECT_NEAR(std::hypot(wide.U.at(k), wide.U.at(4 + k)), 1.0, 1e-9) << k;
}

TEST_F(SvdFixed, RotationPrimitivesWorkOnUnalignedRows) {
  const int len = 9;
  const Vec x = Random(len, -1e6, 1e6), y = Random(len, -1e-3, 1e-3);
  // Rows at odd byte addresses, as rows of the unaligned work area may be.
  std::vector<uint8_t> bytes(6 * 2 * len + 3);
  uint8_t* xm = bytes.data() + 1;
  uint8_t* ym = xm + 4 * len;
  uint8_t* xq = ym + 4 * len;
  uint8_t* yq = xq + 2 * len;
  const auto put = [&](const FixMat& f, uint8_t* m, uint8_t* q) {
    std::memcpy(m, f.m.data(), 4 * len);
    std::memcpy(q, f.q.data(), 2 * len);
  };
  const auto get = [&](const uint8_t* m, const uint8_t* q) {
    FixMat f(len);
    std::memcpy(f.m.data(), m, 4 * len);
    std::memcpy(f.q.data(), q, 2 * len);
    return f.values();
  };
  put(Encode(x, 10), xm, xq);
  put(Encode(y, 40), ym, yq);
  const Vec x0 = get(xm, xq), y0 = get(ym, yq);
  const double c = std::cos(0.3), s = std::sin(0.3);
  const FixMat cs = Encode({c, s}, 30);
  int32_t nx, ny;
  int16_t qx, qy;
  tvxVBLASGivens_32s(xm, xq, ym, yq, len, cs.m[0], cs.q[0], cs.m[1], cs.q[1], &nx, &qx, &ny, &qy);
  const Vec x1 = get(xm, xq), y1 = get(ym, yq);
  const double cf = cs.at(0), sf = cs.at(1);
  double sx = 0.0, sy = 0.0;
  for (int k = 0; k < len; ++k) {
    const double ex = cf * x0[k] + sf * y0[k], ey = cf * y0[k] - sf * x0[k];
    EXPECT_NEAR(x1[k], ex, 1e-9 * std::fabs(ex)) << k;
    EXPECT_NEAR(y1[k], ey, 1e-9 * std::fabs(ey)) << k;
    sx += x1[k] * x1[k];
    sy += y1[k] * y1[k];
  }
  EXPECT_NEAR(std::ldexp(double(nx), -qx), sx, 1e-8 * sx);
  EXPECT_NEAR(std::ldexp(double(ny), -qy), sy, 1e-8 * sy);

  // y += alpha x with the small row, then an exchange of the two rows.
  const FixMat alpha = Encode({-0.75}, 31);
  tvxMatrAXPY_32s(len, alpha.m[0], alpha.q[0], xm, xq, ym, yq);
  const Vec y2 = get(ym, yq);
  for (int k = 0; k < len; ++k) EXPECT_NEAR(y2[k], y1[k] - 0.75 * x1[k], 1e-9 * std::fabs(x1[k])) << k;
  tvxSwap_fixed32(xm, xq, ym, yq, len);
  EXPECT_EQ(get(xm, xq), y2);
  EXPECT_EQ(get(ym, yq), x1);
}

// Double-precision least squares through the normal equations (the test's own model).
Vec LeastSquares(const Vec& A, const Vec& b, size_t m, size_t n) {
  Vec M(n * n, 0.0), y(n, 0.0);
  for (size_t i = 0; i < n; ++i) {
    for (size_t j = 0; j < n; ++j)
      for (size_t r = 0; r < m; ++r) M[i * n + j] += A[r * n + i] * A[r * n + j];
    for (size_t r = 0; r < m; ++r) y[i] += A[r * n + i] * b[r];
  }
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
  Vec x(n);
  for (size_t i = n; i-- > 0;) {
    double s = y[i];
    for (size_t c = i + 1; c < n; ++c) s -= M[i * n + c] * x[c];
    x[i] = s / M[i * n + i];
  }
  return x;
}

TEST_F(SvdFixed, BackSubstitutionSolvesLeastSquares) {
  const uint32_t shapes[][2] = {{12, 5}, {6, 6}, {40, 9}};
  for (const auto& shape : shapes) {
    const uint32_t m = shape[0], n = shape[1];
    SCOPED_TRACE(std::to_string(m) + "x" + std::to_string(n));
    const FixMat A = Encode(Random(size_t(m) * n), 28);
    const FixMat b = Encode(Random(m, -100.0, 100.0), 20);
    const Svd s = Decompose(A, m, n);
    ASSERT_EQ(s.status, 0);
    FixMat x(n);
    ASSERT_EQ(tvxSVBkSb_32s(s.U.m.data(), s.U.q.data(), s.w.m.data(), s.w.q.data(), s.Vt.m.data(), s.Vt.q.data(), m,
                            n, b.m.data(), b.q.data(), x.m.data(), x.q.data()),
              0);
    const Vec expected = LeastSquares(A.values(), b.values(), m, n);
    const Vec got = x.values();
    for (uint32_t j = 0; j < n; ++j) EXPECT_NEAR(got[j], expected[j], 1e-6 * MaxAbs(expected)) << j;
  }

  // A zero column: its value falls under the cut, and the solution has no component along it.
  const uint32_t m = 8, n = 4;
  Vec a = Random(m * n);
  for (uint32_t r = 0; r < m; ++r) a[r * n + 1] = 0.0;
  const FixMat A = Encode(a, 28), b = Encode(Random(m), 28);
  const Svd s = Decompose(A, m, n);
  FixMat x(n);
  ASSERT_EQ(tvxSVBkSb_32s(s.U.m.data(), s.U.q.data(), s.w.m.data(), s.w.q.data(), s.Vt.m.data(), s.Vt.q.data(), m, n,
                          b.m.data(), b.q.data(), x.m.data(), x.q.data()),
            0);
  EXPECT_EQ(x.m[1], 0);
  Vec reduced;
  for (uint32_t r = 0; r < m; ++r)
    for (uint32_t c : {0u, 2u, 3u}) reduced.push_back(a[r * n + c]);
  const Vec expected = LeastSquares(reduced, b.values(), m, 3);
  EXPECT_NEAR(x.at(0), expected[0], 1e-6 * MaxAbs(expected));
  EXPECT_NEAR(x.at(2), expected[1], 1e-6 * MaxAbs(expected));
  EXPECT_NEAR(x.at(3), expected[2], 1e-6 * MaxAbs(expected));

  // A missing pointer is refused without a write.
  FixMat untouched(n);
  EXPECT_EQ(tvxSVBkSb_32s(s.U.m.data(), s.U.q.data(), s.w.m.data(), s.w.q.data(), s.Vt.m.data(), nullptr, m, n,
                          b.m.data(), b.q.data(), untouched.m.data(), untouched.q.data()),
            3);
  EXPECT_EQ(untouched.m, FixMat(n).m);
}

TEST_F(SvdFixed, OversizedWorkAreaAndMissingScratchAreReported) {
  // n (n + m) 6 bytes beyond 4 GiB: refused before any write.
  int32_t a = 1, w = 7, u = 7, v = 7;
  int16_t qa = 0, qw = 7, qu = 7, qv = 7;
  EXPECT_EQ(tvxSVDs32C(&a, &qa, 1, 30000, &w, &qw, &u, &qu, &v, &qv), 3);
  EXPECT_EQ(w + u + v + qw + qu + qv, 42);

  // No heap for the scratch buffer: status 5 with every output cleared.
  const uint32_t m = 4, n = 3;
  const FixMat A = Encode(Random(m * n), 28);
  Svd s{FixMat(n), FixMat(m * n), FixMat(n * n), -1};
  tvx_fail_heap_after_for_test(0);
  s.status = tvxSVDs32C(A.m.data(), A.q.data(), m, n, s.w.m.data(), s.w.q.data(), s.U.m.data(), s.U.q.data(),
                        s.Vt.m.data(), s.Vt.q.data());
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(s.status, 5);
  for (const FixMat* f : {&s.w, &s.U, &s.Vt}) {
    EXPECT_EQ(f->m, std::vector<int32_t>(f->m.size(), 0));
    EXPECT_EQ(f->q, std::vector<int16_t>(f->q.size(), 30));
  }
}

// The exact text as a regular expression.
std::string Literal(const std::string& text) {
  std::string r;
  for (char ch : text) {
    if (std::strchr("()[]{}.*+?^$|\\", ch)) r += '\\';
    r += ch;
  }
  return r;
}

TEST(SvdFixedDeath, BadArgumentsEndTheProcess) {
  const std::string line =
      "src/cpu/tavixSVDC@1069: (A!=__null) && (Qa!=__null) && (m > 0) && (n > 0) && (w!=__null) && (Qw!=__null) && "
      "(U!=__null) && (Qu!=__null) && (Vt!=__null) && (Qvt!=__null) Assertion failed\n";
  int32_t a[4] = {1, 2, 3, 4}, w[2], u[4], v[4];
  int16_t q[4] = {}, qw[2], qu[4], qv[4];
  EXPECT_EXIT(tvxSVDs32C(a, q, 2, 2, w, qw, u, qu, v, nullptr), ::testing::ExitedWithCode(1),
              Literal(line));
  EXPECT_EXIT(tvxSVDs32C(nullptr, q, 2, 2, w, qw, u, qu, v, qv), ::testing::ExitedWithCode(1), Literal(line));
  EXPECT_EXIT(tvxSVDs32C(a, q, 0, 2, w, qw, u, qu, v, qv), ::testing::ExitedWithCode(1), Literal(line));
}

}  // namespace
