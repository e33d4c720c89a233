// SIMD variants of the k-means pass. Every distance keeps the reference's order of summation, so
// the results are identical:
// - Euclidean (float and byte points) and dot products of lengths that are not a multiple of 4:
//   the centres are transposed once into a scratch table (element i of every centre side by
//   side), and one vector of lanes accumulates the sums of as many centres, element by element.
// - Dot products of lengths that are a multiple of 4: four lanes are the four partial sums.
// Roots, the nearest-centre search and the update stay scalar (as in the reference).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/cluster.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cmath>
#include <cstddef>
#include <cstring>

#include "cpu/cluster_pass.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace cluster {
namespace hn = hwy::HWY_NAMESPACE;

using tvxcluster::CentreAt;
using tvxcluster::Outputs;
using tvxcluster::PointAt;

enum Kind { kEuclidean, kDot };

// Centres transposed: table[i * padded + c] = centre c, element i; padding lanes are zero.
struct Table {
  float* table;
  float* sums;  // one per padded centre
  size_t padded;
};

bool MakeTable(const float* centres, int32_t stride, int32_t numClusters, int32_t dim, size_t lanes, Table* t) {
  t->padded = (size_t(numClusters) + lanes - 1) / lanes * lanes;
  const size_t floats = t->padded * (size_t(dim) + 1);
  if (floats * sizeof(float) > 0xFFFFFFF0u) return false;
  t->table = static_cast<float*>(tvxGetScratchBufferAligned_(uint32_t(floats * sizeof(float)), 64));
  if (!t->table) return false;
  t->sums = t->table + t->padded * size_t(dim);
  std::memset(t->table, 0, floats * sizeof(float));
  for (int32_t c = 0; c < numClusters; ++c) {
    const float* centre = CentreAt(centres, stride, c);
    for (int32_t i = 0; i < dim; ++i) t->table[size_t(i) * t->padded + size_t(c)] = centre[i];
  }
  return true;
}

// Sums of every centre for point x: squared differences or products, element by element.
template <Kind kKind, typename T>
void SumsAcross(const T* x, int32_t dim, const Table& t) {
  const hn::ScalableTag<float> df;
  const size_t N = hn::Lanes(df);
  for (size_t c = 0; c < t.padded; c += N) {
    auto acc = hn::Zero(df);
    const float* column = t.table + c;
    for (int32_t i = 0; i < dim; ++i) {
      const auto xi = hn::Set(df, float(x[i]));
      const auto ci = hn::Load(df, column + size_t(i) * t.padded);
      if (kKind == kEuclidean) {
        const auto d = hn::Sub(xi, ci);
        acc = hn::Add(acc, hn::Mul(d, d));
      } else {
        acc = hn::Add(acc, hn::Mul(xi, ci));
      }
    }
    hn::Store(acc, df, t.sums + c);
  }
}

// Dot product in four partial sums (lane j sums elements 4k + j), combined ((s0 + s1) + s2) + s3.
float Dot4(const float* x, const float* c, int32_t dim) {
  const hn::FixedTag<float, 4> d4;
  auto acc = hn::Zero(d4);
  for (int32_t i = 0; i < dim; i += 4) acc = hn::Add(acc, hn::Mul(hn::LoadU(d4, x + i), hn::LoadU(d4, c + i)));
  alignas(16) float s[4];
  hn::Store(acc, d4, s);
  return ((s[0] + s[1]) + s[2]) + s[3];
}

template <Kind kKind, typename T>
int32_t Pass(const T* points, int32_t dim, int32_t pointStride, const uint32_t* indices, int32_t numIndices,
             int32_t numClusters, const float* centres, int32_t centreStride, const Outputs& o) {
  const hn::ScalableTag<float> df;
  const bool quads = kKind == kDot && dim % 4 == 0;
  Table t{};
  if (!quads && !MakeTable(centres, centreStride, numClusters, dim, hn::Lanes(df), &t)) return 5;
  tvxcluster::Clear(o, numClusters, dim, numIndices);
  for (int32_t k = 0; k < numIndices; ++k) {
    const T* x = PointAt(points, pointStride, indices[k]);
    int32_t best = 0;
    float bestDistance = 0.0f;
    if (!quads) SumsAcross<kKind>(x, dim, t);
    for (int32_t c = 0; c < numClusters; ++c) {
      float d;
      if (quads) {
        d = tvxcluster::NormedDistance(Dot4(reinterpret_cast<const float*>(x), CentreAt(centres, centreStride, c), dim));
      } else {
        d = kKind == kEuclidean ? std::sqrt(t.sums[c]) : tvxcluster::NormedDistance(t.sums[c]);
      }
      if (c == 0 || d < bestDistance) {
        bestDistance = d;
        best = c;
      }
    }
    tvxcluster::Bind(o, k, x, dim, best, bestDistance);
  }
  if (t.table) tvxReleaseScratchBuffer_(t.table);
  if (kKind == kEuclidean) {
    tvxcluster::Average(o, numClusters, dim);
  } else {
    tvxcluster::Normalise(o, numClusters, dim);
  }
  return 0;
}

int32_t EuclideanF32(const float* points, int32_t dim, int32_t pointStride, const uint32_t* indices, int32_t numIndices,
                     int32_t numClusters, const float* centres, int32_t centreStride, const Outputs& o) {
  return Pass<kEuclidean>(points, dim, pointStride, indices, numIndices, numClusters, centres, centreStride, o);
}
int32_t EuclideanU8(const uint8_t* points, int32_t dim, int32_t pointStride, const uint32_t* indices,
                    int32_t numIndices, int32_t numClusters, const float* centres, int32_t centreStride,
                    const Outputs& o) {
  return Pass<kEuclidean>(points, dim, pointStride, indices, numIndices, numClusters, centres, centreStride, o);
}
int32_t Normed(const float* points, int32_t dim, int32_t pointStride, const uint32_t* indices, int32_t numIndices,
               int32_t numClusters, const float* centres, int32_t centreStride, const Outputs& o) {
  return Pass<kDot>(points, dim, pointStride, indices, numIndices, numClusters, centres, centreStride, o);
}

}  // namespace cluster

// Exported entry points (Highway exports unqualified names of this namespace).
int32_t ClusterEuclideanF32(const float* points, int32_t dim, int32_t pointStride, const uint32_t* indices,
                            int32_t numIndices, int32_t numClusters, const float* centres, int32_t centreStride,
                            const tvxcluster::Outputs& o) {
  return cluster::EuclideanF32(points, dim, pointStride, indices, numIndices, numClusters, centres, centreStride, o);
}
int32_t ClusterEuclideanU8(const uint8_t* points, int32_t dim, int32_t pointStride, const uint32_t* indices,
                           int32_t numIndices, int32_t numClusters, const float* centres, int32_t centreStride,
                           const tvxcluster::Outputs& o) {
  return cluster::EuclideanU8(points, dim, pointStride, indices, numIndices, numClusters, centres, centreStride, o);
}
int32_t ClusterNormed(const float* points, int32_t dim, int32_t pointStride, const uint32_t* indices, int32_t numIndices,
                      int32_t numClusters, const float* centres, int32_t centreStride, const tvxcluster::Outputs& o) {
  return cluster::Normed(points, dim, pointStride, indices, numIndices, numClusters, centres, centreStride, o);
}
}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(ClusterEuclideanF32);
HWY_EXPORT(ClusterEuclideanU8);
HWY_EXPORT(ClusterNormed);
}  // namespace tvx

using namespace tvx;

// Without scratch memory for the centre table the reference variant serves the call (the same
// results, element by element).
int32_t tvxClusterEuclideanf32V(const float* points, int32_t numPoints, int32_t dim, int32_t pointStride,
                                const uint32_t* indices, int32_t numIndices, int32_t numClusters, float* clusterCenters,
                                int32_t clusterCenterStride, float* newClusterCenters, uint32_t* clusterMemberCounts,
                                uint32_t* clusterBindings, float* sumOfClusterDistances) {
  const tvxcluster::Outputs o{newClusterCenters, clusterCenterStride, clusterMemberCounts, clusterBindings,
                              sumOfClusterDistances};
  if (HWY_DYNAMIC_DISPATCH(ClusterEuclideanF32)(points, dim, pointStride, indices, numIndices, numClusters, clusterCenters,
                                         clusterCenterStride, o) == 0)
    return 0;
  return tvxClusterEuclideanf32C(points, numPoints, dim, pointStride, indices, numIndices, numClusters, clusterCenters,
                                 clusterCenterStride, newClusterCenters, clusterMemberCounts, clusterBindings,
                                 sumOfClusterDistances);
}

int32_t tvxClusterEuclideanu8V(const uint8_t* points, int32_t numPoints, int32_t dim, int32_t pointStride,
                               const uint32_t* indices, int32_t numIndices, int32_t numClusters, float* clusterCenters,
                               int32_t clusterCenterStride, float* newClusterCenters, uint32_t* clusterMemberCounts,
                               uint32_t* clusterBindings, float* sumOfClusterDistances) {
  const tvxcluster::Outputs o{newClusterCenters, clusterCenterStride, clusterMemberCounts, clusterBindings,
                              sumOfClusterDistances};
  if (HWY_DYNAMIC_DISPATCH(ClusterEuclideanU8)(points, dim, pointStride, indices, numIndices, numClusters, clusterCenters,
                                        clusterCenterStride, o) == 0)
    return 0;
  return tvxClusterEuclideanu8C(points, numPoints, dim, pointStride, indices, numIndices, numClusters, clusterCenters,
                                clusterCenterStride, newClusterCenters, clusterMemberCounts, clusterBindings,
                                sumOfClusterDistances);
}

int32_t tvxClusterEuclideanNormedf32V(const float* points, int32_t numPoints, int32_t dim, int32_t pointStride,
                                      const uint32_t* indices, int32_t numIndices, int32_t numClusters,
                                      float* clusterCenters, int32_t clusterCenterStride, float* newClusterCenters,
                                      uint32_t* clusterMemberCounts, uint32_t* clusterBindings,
                                      float* sumOfClusterDistances) {
  const tvxcluster::Outputs o{newClusterCenters, clusterCenterStride, clusterMemberCounts, clusterBindings,
                              sumOfClusterDistances};
  if (HWY_DYNAMIC_DISPATCH(ClusterNormed)(points, dim, pointStride, indices, numIndices, numClusters, clusterCenters,
                                   clusterCenterStride, o) == 0)
    return 0;
  return tvxClusterEuclideanNormedf32C(points, numPoints, dim, pointStride, indices, numIndices, numClusters,
                                       clusterCenters, clusterCenterStride, newClusterCenters, clusterMemberCounts,
                                       clusterBindings, sumOfClusterDistances);
}
#endif  // HWY_ONCE
