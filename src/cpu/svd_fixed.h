// Block-floating-point singular value decomposition of the reference tier and its
// back-substitution. Not a public entry: nested reference code (and the tests) call it directly.
//
// Number format: every element is a signed 32-bit mantissa M with a signed 16-bit exponent Q
// kept in a parallel array of the same shape; its value is M * 2^-Q. Results are normalised
// (the mantissa has exactly one sign bit, so |M| lies in [2^30, 2^31]), zero is mantissa 0 with
// Q = 30. Every operation rounds its exact 64-bit intermediate to nearest; a value too large for
// Q = -32768 saturates to mantissa 0x7FFFFFFF / 0x80000000 with Q = -32768, a value too small
// for Q = 32767 loses mantissa bits and ends as zero. Inputs need not be normalised.
//
// Row arguments typed void* may sit at any byte address (the decomposition's work rows live in
// an unaligned scratch buffer); mantissas are 32-bit, exponents 16-bit, element k at byte
// offset 4k and 2k.
#pragma once

#include <cstdint>

// Decomposes the m x n row-major matrix A/Qa into A = U diag(w) Vt with the float variant's
// layout: w/Qw n values in descending order, U/Qu m x n (column k is the left singular vector of
// w[k]), Vt/Qvt n x n (row k is the right singular vector of w[k]). The algorithm is the float
// variant's one-sided Jacobi scheme (min(m, 30) sweeps, pair skip test |p| <= 1.2e-6 sqrt(ab),
// descending selection sort, deterministic completion of the left vectors of zero values) in
// mantissa/exponent arithmetic, with two choices of its own: the rotated rows' sums of squares
// are recomputed after every rotation (no +-delta update), and singular values at or below
// max(m, n) 2^-31 w[0], the rounding residue of 32-bit mantissas, are reported as exact zeros
// whose left vectors come from the completion. Accuracy: U diag(w) Vt reproduces A to about
// 2e-8 max|A| per unit of n, Vt is orthonormal to the same order, the columns of U to the pair
// test's 1.2e-6.
// A null pointer or m = 0 or n = 0 logs "src/cpu/tavixSVDC@1069: <condition> Assertion failed"
// and ends the process with status 1. A work area of n (n + m) 6 bytes beyond 4 GiB returns 3
// and writes nothing. Otherwise every output is cleared first (mantissa 0, Q = 30); if the
// scratch buffer is missing the call returns 5 with the outputs cleared, else 0.
int32_t tvxSVDs32C(const int32_t* A, const int16_t* Qa, uint32_t m, uint32_t n, int32_t* w, int16_t* Qw, int32_t* U,
                   int16_t* Qu, int32_t* Vt, int16_t* Qvt);

// The Jacobi kernel on At (n rows of length m, consecutive rows astep elements apart; mantissas
// in At, exponents in Qat). W/Qw receive the n singular values, sorted descending. When Vt is
// not null it receives the right singular vectors (row step vstep) and rows 0 .. nU - 1 of At
// become the matching unit left singular vectors.
void tvxJacobiSVDFix(void* At, void* Qat, uint32_t astep, int32_t* W, int16_t* Qw, void* Vt, void* Qvt, uint32_t vstep,
                     int m, int n, int nU);

// One Givens rotation of two rows of len elements: x' = c x + s y, y' = c y - s x. When normX
// and normY are not null they receive the rotated rows' sums of squares.
void tvxVBLASGivens_32s(void* x, void* Qx, void* y, void* Qy, int len, int32_t c, int16_t Qc, int32_t s, int16_t Qs,
                        int32_t* normX, int16_t* QnormX, int32_t* normY, int16_t* QnormY);

// y += alpha * x over len elements.
void tvxMatrAXPY_32s(int len, int32_t alpha, int16_t Qalpha, const void* x, const void* Qx, void* y, void* Qy);

// Exchanges two rows of len elements (mantissas and exponents).
void tvxSwap_fixed32(void* x, void* Qx, void* y, void* Qy, int len);

// Least-squares back-substitution with a decomposition of the m x n matrix A (as written by
// tvxSVDs32C): x = V diag(1/w) U^T b, b/Qb m values, x/Qx n values. Only the first min(m, n)
// singular values count; those at or under 1.2000000424450263e-06 times their sum are skipped
// (a truncated pseudo-inverse, as the float least-squares solver does). 1/w comes from a Newton
// reciprocal of the normalised mantissa (seed 48/17 - 32/17 f, 5 iterations).
// Returns 0, or 3 without writing for a null pointer or m = 0 or n = 0.
int32_t tvxSVBkSb_32s(const int32_t* U, const int16_t* Qu, const int32_t* w, const int16_t* Qw, const int32_t* Vt,
                      const int16_t* Qvt, uint32_t m, uint32_t n, const int32_t* b, const int16_t* Qb, int32_t* x,
                      int16_t* Qx);
