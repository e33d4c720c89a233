// Pieces of the dense solvers that other reference variants (homography, pose, perspective
// transforms) call directly. The reference solvers themselves (tvxSolveCholeskyf32C,
// tvxSolveLDLf32C, tvxSolveLUf32C, tvxSVDf32C, tvxSolvef32C) are declared by the generated
// variants header that frame/frame.h includes.
#pragma once

#include <cstdint>

// Overflow-safe hypotenuse: max(|a|, |b|) * sqrt(1 + (min / max)^2), the root in double.
float tvxHypotC(float a, float b);

// Singular value decomposition of the m x n row-major matrix A = U diag(w) Vt (w: n values,
// descending; U: m x n; Vt: n x n), with tmpU (m * n floats) and tmpV (n * n floats) as work
// areas. finalFlag 0 writes w, U and Vt. finalFlag 1 leaves U untouched (it may then be null)
// and skips normalising the left singular vectors; w and Vt are identical to those of flag 0,
// so callers that need only the right singular vectors (null spaces) save that work.
// Returns 0. No argument checks: callers pass valid pointers and m, n > 0.
int tvxSVDf32_v2C(const float* A, uint32_t m, uint32_t n, float* w, float* U, float* Vt, float* tmpU, float* tmpV,
                  int finalFlag);

// The Jacobi kernel on At (n rows of length m, row step astep floats): W receives n singular
// values; when Vt is not null it receives the right singular vectors (row step vstep) and rows
// 0 .. nU - 1 of At become the matching unit left singular vectors.
void tvxJacobiSVDImpl_32f(float* At, unsigned astep, float* W, float* Vt, unsigned vstep, int m, int n, int nU);
