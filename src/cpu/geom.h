// Internal helpers of the fitting family shared with the pose family and the tests.
#pragma once

#include <cstdint>

#include "tavix/tavix.h"

// Iteration bound of a random-sampling search: confidence p, inlier ratio ep (both clamped to
// [0, 1]), model points and the current bound; the bound is only ever lowered.
int32_t updateNumIters(double p, double ep, int32_t modelPoints, int32_t maxIters);

// Centres `count` points on their centroid and scales them to a mean distance of sqrt 2 from it,
// in place; t receives the similarity applied.
void normalise2dptsC(float* x, float* y, float* t, uint32_t count);

// The least-squares homography accumulated and factorised in double precision (the fallback of
// tvxGeomHomographyFitf32C); a non-positive pivot leaves the output untouched.
void tvxGeomHomographyFitDPf32C(const tvxCorrespondences* corrs, float* homography);

// Real roots of c[0] x^4 + c[1] x^3 + c[2] x^2 + c[3] x + c[4] (c[0] != 0) in closed form,
// each polished by Newton steps; returns their count (at most 4).
int find_quartic_real_roots(const double* c, double* roots);
