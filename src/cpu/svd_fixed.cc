// Block-floating-point SVD: the one-sided Jacobi scheme of the float decomposition carried out on
// mantissa/exponent pairs (value = mantissa * 2^-Q), and the back-substitution built on it.
//
// Every arithmetic step forms its exact (or, for a quotient and a root, truncated) result in 64
// bits and rounds it back to a normalised 32-bit mantissa; the 16-bit exponent saturates (see
// Normalize). Only integer arithmetic runs on the data; double appears only where the two
// algorithm constants (the pair skip threshold and the least-squares cut) are turned into
// mantissa/exponent form.
#include "cpu/svd_fixed.h"

#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>

#include "frame/frame.h"

namespace {

// A value mantissa * 2^-q. Results of the helpers below are normalised with q in the 16-bit
// range; q is wider only transiently inside a helper.
struct Fix {
  int32_t m;
  int32_t q;
};

constexpr int32_t kQMin = -32768;
constexpr int32_t kQMax = 32767;
constexpr int32_t kZeroQ = 30;
constexpr Fix kZero{0, kZeroQ};
constexpr Fix kOne{0x40000000, 30};

// v * 2^s for a shift that cannot overflow (multiplying keeps negative values well defined).
inline int64_t ShiftUp(int64_t v, int s) { return v * (int64_t{1} << s); }

// Arithmetic shift right by s >= 1, rounding half up; never overflows.
inline int64_t RoundShift(int64_t v, int s) { return ((v >> (s - 1)) + 1) >> 1; }

// Rounds v * 2^-q to a normalised mantissa. Too large for Q = -32768: saturates to
// 0x7FFFFFFF / 0x80000000 at Q = -32768. Too small for Q = 32767: keeps the mantissa bits that
// remain at Q = 32767, zero when none do.
Fix Normalize(int64_t v, int64_t q) {
  if (v == 0) return kZero;
  const int r = 32 - __builtin_clrsbll(v);  // bits to drop (negative: to add)
  int64_t mant;
  if (r > 0) {
    mant = RoundShift(v, r);
    q -= r;
    if (mant > INT32_MAX) {  // rounding carried into the sign bit: 2^31 -> 2^30
      mant >>= 1;
      q -= 1;
    }
  } else {
    mant = ShiftUp(v, -r);
    q -= r;
  }
  if (q < kQMin) return Fix{v > 0 ? INT32_MAX : INT32_MIN, kQMin};
  if (q > kQMax) {
    const int64_t d = q - kQMax;
    if (d >= 32) return kZero;
    mant = RoundShift(mant, static_cast<int>(d));
    if (mant == 0) return kZero;
    return Fix{static_cast<int32_t>(mant), kQMax};
  }
  return Fix{static_cast<int32_t>(mant), static_cast<int32_t>(q)};
}

// Normalised mantissa with an exponent that may leave the 16-bit range (kept for the next step
// only): lets quotients and roots of values stored below full precision keep their bits.
inline Fix Widen(Fix a) {
  if (a.m == 0) return a;
  const int k = __builtin_clrsb(a.m);
  return Fix{static_cast<int32_t>(ShiftUp(a.m, k)), a.q + k};
}

inline Fix Load(int32_t m, int16_t q) { return Normalize(m, q); }

Fix FromDouble(double d) {
  int e = 0;
  const double f = std::frexp(d, &e);
  return Normalize(std::llround(std::ldexp(f, 31)), 31 - int64_t{e});
}

inline Fix Neg(Fix a) { return Normalize(-int64_t{a.m}, a.q); }
inline Fix Abs(Fix a) { return a.m < 0 ? Neg(a) : a; }
inline Fix Times2(Fix a, int k) { return Normalize(a.m, int64_t{a.q} - k); }  // a * 2^k

Fix Add(Fix a, Fix b) {
  if (a.m == 0) return Normalize(b.m, b.q);
  if (b.m == 0) return Normalize(a.m, a.q);
  if (a.q > b.q) std::swap(a, b);  // a has the coarser scale
  // a moves up by 30 bits; b joins it at that scale, losing only bits below a's last 30.
  const int64_t gap = int64_t{b.q} - a.q;
  const int64_t va = ShiftUp(a.m, 30);
  int64_t vb;
  if (gap <= 30) vb = ShiftUp(b.m, static_cast<int>(30 - gap));
  else if (gap - 30 < 63) vb = int64_t{b.m} >> (gap - 30);
  else vb = b.m < 0 ? -1 : 0;
  return Normalize(va + vb, int64_t{a.q} + 30);
}

inline Fix Sub(Fix a, Fix b) { return Add(a, Neg(b)); }
inline Fix Mul(Fix a, Fix b) { return Normalize(int64_t{a.m} * b.m, int64_t{a.q} + b.q); }

// Sign of a - b; exact (the sum inside Add keeps the sign of the exact difference).
inline int Compare(Fix a, Fix b) {
  const Fix d = Sub(a, b);
  return (d.m > 0) - (d.m < 0);
}

// a / b, the quotient truncated at 33 significant bits before rounding. b = 0 saturates.
Fix Div(Fix a, Fix b) {
  if (a.m == 0) return kZero;
  if (b.m == 0) return Normalize((a.m > 0) ? INT64_MAX : INT64_MIN, int64_t{kQMin} - 64);
  b = Widen(b);  // |b.m| >= 2^30: the quotient below fits in 34 bits
  const int64_t quotient = ShiftUp(a.m, 32) / b.m;
  return Normalize(quotient, int64_t{a.q} + 32 - b.q);
}

// Integer square root of v, rounded to nearest.
uint64_t RootOf(uint64_t v) {
  uint64_t res = 0, bit = uint64_t{1} << 62;
  while (bit > v) bit >>= 2;
  while (bit != 0) {
    if (v >= res + bit) {
      v -= res + bit;
      res = (res >> 1) + bit;
    } else {
      res >>= 1;
    }
    bit >>= 2;
  }
  return v > res ? res + 1 : res;
}

// Square root; zero for a value <= 0 (a difference of sums of squares may round below zero).
Fix Sqrt(Fix a) {
  if (a.m <= 0) return kZero;
  a = Widen(a);
  const int s = (a.q & 1) ? 33 : 32;  // makes the exponent even
  const uint64_t root = RootOf(static_cast<uint64_t>(a.m) << s);
  return Normalize(static_cast<int64_t>(root), (int64_t{a.q} + s) / 2);
}

// max(|a|, |b|) * sqrt(1 + (min / max)^2).
Fix Hypot(Fix a, Fix b) {
  a = Abs(a);
  b = Abs(b);
  if (Compare(a, b) < 0) std::swap(a, b);
  if (a.m == 0) return kZero;
  const Fix r = Div(b, a);
  return Mul(a, Sqrt(Add(kOne, Mul(r, r))));
}

// 1 / d by Newton's iteration y <- y (2 - f y) on the normalised mantissa f in [0.5, 1),
// seeded with 48/17 - 32/17 f; five steps reach the 31-bit working precision.
Fix RecipNewton(Fix d) {
  if (d.m == 0) return Div(kOne, d);
  const bool negative = d.m < 0;
  const Fix a = Widen(negative ? Neg(d) : d);
  const int64_t f = a.m;  // f * 2^31, in [2^30, 2^31)
  constexpr int64_t kSeedA = (int64_t{48} << 30) / 17, kSeedB = (int64_t{32} << 30) / 17;
  int64_t y = kSeedA - ((kSeedB * f) >> 31);  // 1/f * 2^30
  for (int it = 0; it < 5; ++it) {
    const int64_t fy = (f * y) >> 31;
    y = (y * ((int64_t{2} << 30) - fy)) >> 30;
  }
  // 1/d = (y 2^-30) / (2^-31 2^-q) = y * 2^-(61 - q).
  return Normalize(negative ? -y : y, 61 - int64_t{a.q});
}

// A row of mantissa/exponent pairs at any byte alignment.
struct Row {
  uint8_t* m;
  uint8_t* q;
  Fix Get(size_t k) const {
    int32_t mant;
    int16_t exp;
    std::memcpy(&mant, m + 4 * k, 4);
    std::memcpy(&exp, q + 2 * k, 2);
    return Fix{mant, exp};
  }
  void Set(size_t k, Fix v) const {
    const int32_t mant = v.m;
    const int16_t exp = static_cast<int16_t>(v.q);
    std::memcpy(m + 4 * k, &mant, 4);
    std::memcpy(q + 2 * k, &exp, 2);
  }
};

inline Row MakeRow(const void* m, const void* q, size_t offset = 0) {
  return Row{static_cast<uint8_t*>(const_cast<void*>(m)) + 4 * offset,
             static_cast<uint8_t*>(const_cast<void*>(q)) + 2 * offset};
}

Fix SumSquares(const Row& x, int len) {
  Fix s = kZero;
  for (int k = 0; k < len; ++k) {
    const Fix v = x.Get(k);
    s = Add(s, Mul(v, v));
  }
  return s;
}

Fix Dot(const Row& x, const Row& y, int len) {
  Fix s = kZero;
  for (int k = 0; k < len; ++k) s = Add(s, Mul(x.Get(k), y.Get(k)));
  return s;
}

void DivideRow(const Row& x, int len, Fix d) {
  for (int k = 0; k < len; ++k) x.Set(k, Div(x.Get(k), d));
}

void FillRow(const Row& x, int len, Fix v) {
  for (int k = 0; k < len; ++k) x.Set(k, v);
}

// A completion candidate whose length after the projections is below this fraction of its
// length before them lies (within rounding) in the span of the earlier rows.
constexpr double kEmptyCandidate = 1e-4;

// Row i of At has a zero singular value: replace it by a unit vector orthogonal to rows
// 0 .. i - 1 (already unit length). Candidates, in order: the constant 1/m, then e0 .. e(m-1);
// the first that keeps a length after the projections wins. Bounded, so a row that cannot be
// completed (i >= m) ends as e(i mod m).
void CompleteRow(void* At, void* Qat, uint32_t astep, int m, int i) {
  const Row row = MakeRow(At, Qat, size_t(i) * astep);
  const Fix emptyFraction = FromDouble(kEmptyCandidate);
  for (int candidate = 0; candidate <= m; ++candidate) {
    if (candidate == 0) {
      FillRow(row, m, Div(kOne, Normalize(m, 0)));
    } else {
      FillRow(row, m, kZero);
      row.Set(candidate - 1, kOne);
    }
    const Fix before = Sqrt(SumSquares(row, m));
    for (int e = 0; e < i; ++e) {
      const Row other = MakeRow(At, Qat, size_t(e) * astep);
      const Fix p = Neg(Dot(row, other, m));
      const int16_t pq = static_cast<int16_t>(p.q);
      tvxMatrAXPY_32s(m, p.m, pq, other.m, other.q, row.m, row.q);
    }
    const Fix after = Sqrt(SumSquares(row, m));
    if (!(Compare(after, Mul(emptyFraction, before)) > 0)) continue;
    Fix asum = kZero;
    for (int k = 0; k < m; ++k) asum = Add(asum, Abs(row.Get(k)));
    if (asum.m != 0) DivideRow(row, m, asum);
    const Fix len = Sqrt(SumSquares(row, m));
    if (len.m == 0) continue;
    DivideRow(row, m, len);
    return;
  }
  FillRow(row, m, kZero);
  row.Set(i % m, kOne);
}

}  // namespace

void tvxVBLASGivens_32s(void* x, void* Qx, void* y, void* Qy, int len, int32_t c, int16_t Qc, int32_t s, int16_t Qs,
                        int32_t* normX, int16_t* QnormX, int32_t* normY, int16_t* QnormY) {
  const Row rx = MakeRow(x, Qx), ry = MakeRow(y, Qy);
  const Fix fc = Load(c, Qc), fs = Load(s, Qs);
  Fix sx = kZero, sy = kZero;
  for (int k = 0; k < len; ++k) {
    const Fix t0 = rx.Get(k), t1 = ry.Get(k);
    const Fix nx = Add(Mul(fc, t0), Mul(fs, t1));
    const Fix ny = Sub(Mul(fc, t1), Mul(fs, t0));
    rx.Set(k, nx);
    ry.Set(k, ny);
    sx = Add(sx, Mul(nx, nx));
    sy = Add(sy, Mul(ny, ny));
  }
  if (normX && QnormX) {
    *normX = sx.m;
    *QnormX = static_cast<int16_t>(sx.q);
  }
  if (normY && QnormY) {
    *normY = sy.m;
    *QnormY = static_cast<int16_t>(sy.q);
  }
}

void tvxMatrAXPY_32s(int len, int32_t alpha, int16_t Qalpha, const void* x, const void* Qx, void* y, void* Qy) {
  const Row rx = MakeRow(x, Qx), ry = MakeRow(y, Qy);
  const Fix a = Load(alpha, Qalpha);
  for (int k = 0; k < len; ++k) ry.Set(k, Add(ry.Get(k), Mul(a, rx.Get(k))));
}

void tvxSwap_fixed32(void* x, void* Qx, void* y, void* Qy, int len) {
  const Row rx = MakeRow(x, Qx), ry = MakeRow(y, Qy);
  for (int k = 0; k < len; ++k) {
    const Fix t = rx.Get(k);
    rx.Set(k, ry.Get(k));
    ry.Set(k, t);
  }
}

void tvxJacobiSVDFix(void* At, void* Qat, uint32_t astep, int32_t* W, int16_t* Qw, void* Vt, void* Qvt, uint32_t vstep,
                     int m, int n, int nU) {
  const auto rowA = [&](int i) { return MakeRow(At, Qat, size_t(i) * astep); };
  const auto rowV = [&](int i) { return MakeRow(Vt, Qvt, size_t(i) * vstep); };
  // The values live in W/Qw throughout; these keep them as Fix.
  const auto getW = [&](int i) { return Fix{W[i], Qw[i]}; };
  const auto setW = [&](int i, Fix v) {
    W[i] = v.m;
    Qw[i] = static_cast<int16_t>(v.q);
  };
  // Inputs may be unnormalised: bring the work rows to the normalised form first.
  for (int i = 0; i < n; ++i) {
    const Row r = rowA(i);
    for (int k = 0; k < m; ++k) {
      const Fix v = r.Get(k);
      r.Set(k, Normalize(v.m, v.q));
    }
  }
  for (int i = 0; i < n; ++i) {
    setW(i, SumSquares(rowA(i), m));
    if (Vt) {
      FillRow(rowV(i), n, kZero);
      rowV(i).Set(i, kOne);
    }
  }

  const Fix eps = FromDouble(1.1999999287581886e-06);
  // Short matrices get as many sweeps as they have rows.
  const int sweeps = m < 30 ? m : 30;
  for (int sweep = 0; sweep < sweeps; ++sweep) {
    bool rotated = false;
    for (int i = 0; i < n - 1; ++i) {
      for (int j = i + 1; j < n; ++j) {
        const Row xi = rowA(i), xj = rowA(j);
        const Fix a = getW(i), b = getW(j);
        Fix p = Dot(xi, xj, m);
        if (Compare(Abs(p), Mul(eps, Sqrt(Mul(a, b)))) <= 0) continue;
        p = Times2(p, 1);
        const Fix beta = Sub(a, b);
        const Fix gamma = Hypot(p, beta);
        const Fix twoGamma = Times2(gamma, 1);
        Fix c, s;
        if (beta.m < 0) {
          const Fix delta = Times2(Sub(gamma, beta), -1);
          s = Sqrt(Div(delta, gamma));
          c = Div(p, Mul(twoGamma, s));
        } else {
          c = Sqrt(Div(Add(gamma, beta), twoGamma));
          s = Div(p, Mul(twoGamma, c));
        }
        const int16_t qc = static_cast<int16_t>(c.q), qs = static_cast<int16_t>(s.q);
        // The rotated rows' sums of squares are recomputed on every sweep. Updating them by
        // +-delta instead loses a row that cancels to a tiny length: the difference of two
        // large sums keeps only their rounding, and the skip test would then judge that row by
        // a length many binary orders too large.
        tvxVBLASGivens_32s(xi.m, xi.q, xj.m, xj.q, m, c.m, qc, s.m, qs, &W[i], &Qw[i], &W[j], &Qw[j]);
        if (Vt) {
          const Row vi = rowV(i), vj = rowV(j);
          tvxVBLASGivens_32s(vi.m, vi.q, vj.m, vj.q, n, c.m, qc, s.m, qs, nullptr, nullptr, nullptr, nullptr);
        }
        rotated = true;
      }
    }
    if (!rotated) break;
  }

  for (int i = 0; i < n; ++i) setW(i, Sqrt(SumSquares(rowA(i), m)));

  // Selection sort, descending; a strict comparison keeps the first of equal values.
  for (int i = 0; i < n - 1; ++i) {
    int k = i;
    for (int j = i + 1; j < n; ++j)
      if (Compare(getW(j), getW(k)) > 0) k = j;
    if (k != i) {
      const Fix t = getW(i);
      setW(i, getW(k));
      setW(k, t);
      const Row ri = rowA(i), rk = rowA(k);
      tvxSwap_fixed32(ri.m, ri.q, rk.m, rk.q, m);
      if (Vt) {
        const Row vi = rowV(i), vk = rowV(k);
        tvxSwap_fixed32(vi.m, vi.q, vk.m, vk.q, n);
      }
    }
  }

  // Numerical rank: mixing a row with larger ones leaves rounding residue of about 2^-31 of
  // their length per step, and a row that cancels to that level never becomes orthogonal to the
  // rows it came from (each rotation only shrinks it along them). Values at or below
  // max(m, n) 2^-31 w[0] are therefore such residue: they become exact zeros, whose left
  // vectors are completed below.
  const Fix noise = Mul(getW(0), Normalize(m > n ? m : n, 31));
  for (int i = 1; i < n; ++i)
    if (Compare(getW(i), noise) <= 0) setW(i, kZero);

  if (!Vt) return;
  for (int i = 0; i < nU && i < n; ++i) {
    if (W[i] > 0) {
      DivideRow(rowA(i), m, getW(i));
    } else {
      CompleteRow(At, Qat, astep, m, i);
    }
  }
}

int32_t tvxSVDs32C(const int32_t* A, const int16_t* Qa, uint32_t m, uint32_t n, int32_t* w, int16_t* Qw, int32_t* U,
                   int16_t* Qu, int32_t* Vt, int16_t* Qvt) {
  if (!((A != nullptr) && (Qa != nullptr) && (m > 0) && (n > 0) && (w != nullptr) && (Qw != nullptr) &&
        (U != nullptr) && (Qu != nullptr) && (Vt != nullptr) && (Qvt != nullptr)))
    tvx_fatal("src/cpu/tavixSVDC", 1069,
              "(A!=__null) && (Qa!=__null) && (m > 0) && (n > 0) && (w!=__null) && (Qw!=__null) && (U!=__null) && "
              "(Qu!=__null) && (Vt!=__null) && (Qvt!=__null)");
  // Work area: At (n rows of m) and V (n x n), mantissas then exponents, 6 bytes per element.
  const uint64_t elements = uint64_t{n} * (uint64_t{n} + m);
  if (elements * 6 > UINT32_MAX) return TVX_BAD_PARAMETER;
  // Below 4 GiB of work area, m * n and n * n fit in size_t and int on every target.
  const size_t mn = size_t(m) * n, nn = size_t(n) * n;
  for (size_t k = 0; k < n; ++k) {
    w[k] = 0;
    Qw[k] = kZeroQ;
  }
  for (size_t k = 0; k < mn; ++k) {
    U[k] = 0;
    Qu[k] = kZeroQ;
  }
  for (size_t k = 0; k < nn; ++k) {
    Vt[k] = 0;
    Qvt[k] = kZeroQ;
  }
  uint8_t* work = static_cast<uint8_t*>(tvxGetScratchBufferUnaligned_(static_cast<uint32_t>(elements * 6)));
  if (work == nullptr) return TVX_OUT_OF_MEMORY;
  uint8_t* atM = work;
  uint8_t* vM = atM + 4 * mn;
  uint8_t* atQ = vM + 4 * nn;
  uint8_t* vQ = atQ + 2 * mn;

  // At: column c of A becomes row c.
  const Row at = MakeRow(atM, atQ);
  for (size_t r = 0; r < m; ++r)
    for (size_t c = 0; c < n; ++c) at.Set(c * m + r, Fix{A[r * n + c], Qa[r * n + c]});
  tvxJacobiSVDFix(atM, atQ, m, w, Qw, vM, vQ, n, static_cast<int>(m), static_cast<int>(n), static_cast<int>(n));
  for (size_t r = 0; r < m; ++r)
    for (size_t c = 0; c < n; ++c) {
      const Fix v = at.Get(c * m + r);
      U[r * n + c] = v.m;
      Qu[r * n + c] = static_cast<int16_t>(v.q);
    }
  const Row v = MakeRow(vM, vQ);
  for (size_t k = 0; k < nn; ++k) {
    const Fix e = v.Get(k);
    Vt[k] = e.m;
    Qvt[k] = static_cast<int16_t>(e.q);
  }
  tvxReleaseScratchBuffer_(work);
  return TVX_SUCCESS;
}

int32_t tvxSVBkSb_32s(const int32_t* U, const int16_t* Qu, const int32_t* w, const int16_t* Qw, const int32_t* Vt,
                      const int16_t* Qvt, uint32_t m, uint32_t n, const int32_t* b, const int16_t* Qb, int32_t* x,
                      int16_t* Qx) {
  if (!(U && Qu && w && Qw && Vt && Qvt && m > 0 && n > 0 && b && Qb && x && Qx)) return TVX_BAD_PARAMETER;
  const uint32_t kept = m < n ? m : n;
  Fix total = kZero;
  for (uint32_t k = 0; k < kept; ++k) total = Add(total, Load(w[k], Qw[k]));
  const Fix cut = Mul(total, FromDouble(1.2000000424450263e-06));
  for (uint32_t j = 0; j < n; ++j) {
    x[j] = 0;
    Qx[j] = kZeroQ;
  }
  for (uint32_t k = 0; k < kept; ++k) {
    const Fix wk = Load(w[k], Qw[k]);
    if (!(Compare(Abs(wk), cut) > 0)) continue;
    Fix s = kZero;
    for (uint32_t i = 0; i < m; ++i) {
      const size_t e = size_t(i) * n + k;
      s = Add(s, Mul(Load(U[e], Qu[e]), Load(b[i], Qb[i])));
    }
    const Fix q = Mul(s, RecipNewton(wk));
    for (uint32_t j = 0; j < n; ++j) {
      const size_t e = size_t(k) * n + j;
      const Fix r = Add(Load(x[j], Qx[j]), Mul(q, Load(Vt[e], Qvt[e])));
      x[j] = r.m;
      Qx[j] = static_cast<int16_t>(r.q);
    }
  }
  return TVX_SUCCESS;
}
