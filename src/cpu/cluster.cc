// Reference variants of the k-means pass: Euclidean distance of float and byte vectors (sums in
// element order), the distance of unit vectors from their dot product (four partial sums when
// the length is a multiple of 4), and the centre updates.
#include <cmath>
#include <vector>

#include "cpu/cluster_pass.h"
#include "frame/frame.h"

namespace {

using tvxcluster::CentreAt;
using tvxcluster::Outputs;
using tvxcluster::PointAt;

template <typename T>
float Euclidean(const T* x, const float* c, int32_t dim) {
  float s = 0.0f;
  for (int32_t i = 0; i < dim; ++i) {
    const float d = float(x[i]) - c[i];
    s += d * d;
  }
  return std::sqrt(s);
}

float NormedDot(const float* x, const float* c, int32_t dim) {
  if (dim % 4 == 0) {
    float s0 = 0.0f, s1 = 0.0f, s2 = 0.0f, s3 = 0.0f;
    for (int32_t i = 0; i < dim; i += 4) {
      s0 += x[i] * c[i];
      s1 += x[i + 1] * c[i + 1];
      s2 += x[i + 2] * c[i + 2];
      s3 += x[i + 3] * c[i + 3];
    }
    return ((s0 + s1) + s2) + s3;
  }
  float s = 0.0f;
  for (int32_t i = 0; i < dim; ++i) s += x[i] * c[i];
  return s;
}

// Assignment pass with the distance `dist(x, centre)`.
template <typename T, typename Dist>
void Assign(const T* points, int32_t dim, int32_t pointStride, const uint32_t* indices, int32_t numIndices,
            int32_t numClusters, const float* centres, int32_t centreStride, const Outputs& o, Dist dist) {
  tvxcluster::Clear(o, numClusters, dim, numIndices);
  for (int32_t k = 0; k < numIndices; ++k) {
    const T* x = PointAt(points, pointStride, indices[k]);
    int32_t best = 0;
    float bestDistance = dist(x, centres);
    for (int32_t c = 1; c < numClusters; ++c) {
      const float d = dist(x, CentreAt(centres, centreStride, c));
      if (d < bestDistance) {
        bestDistance = d;
        best = c;
      }
    }
    tvxcluster::Bind(o, k, x, dim, best, bestDistance);
  }
}

}  // namespace

int32_t tvxClusterEuclideanf32C(const float* points, int32_t numPoints, int32_t dim, int32_t pointStride,
                                const uint32_t* indices, int32_t numIndices, int32_t numClusters, float* clusterCenters,
                                int32_t clusterCenterStride, float* newClusterCenters, uint32_t* clusterMemberCounts,
                                uint32_t* clusterBindings, float* sumOfClusterDistances) {
  (void)numPoints;
  const Outputs o{newClusterCenters, clusterCenterStride, clusterMemberCounts, clusterBindings, sumOfClusterDistances};
  Assign(points, dim, pointStride, indices, numIndices, numClusters, clusterCenters, clusterCenterStride, o,
         [dim](const float* x, const float* c) { return Euclidean(x, c, dim); });
  tvxcluster::Average(o, numClusters, dim);
  return 0;
}

int32_t tvxClusterEuclideanu8C(const uint8_t* points, int32_t numPoints, int32_t dim, int32_t pointStride,
                               const uint32_t* indices, int32_t numIndices, int32_t numClusters, float* clusterCenters,
                               int32_t clusterCenterStride, float* newClusterCenters, uint32_t* clusterMemberCounts,
                               uint32_t* clusterBindings, float* sumOfClusterDistances) {
  (void)numPoints;
  const Outputs o{newClusterCenters, clusterCenterStride, clusterMemberCounts, clusterBindings, sumOfClusterDistances};
  Assign(points, dim, pointStride, indices, numIndices, numClusters, clusterCenters, clusterCenterStride, o,
         [dim](const uint8_t* x, const float* c) { return Euclidean(x, c, dim); });
  tvxcluster::Average(o, numClusters, dim);
  return 0;
}

int32_t tvxClusterEuclideanNormedf32C(const float* points, int32_t numPoints, int32_t dim, int32_t pointStride,
                                      const uint32_t* indices, int32_t numIndices, int32_t numClusters,
                                      float* clusterCenters, int32_t clusterCenterStride, float* newClusterCenters,
                                      uint32_t* clusterMemberCounts, uint32_t* clusterBindings,
                                      float* sumOfClusterDistances) {
  (void)numPoints;
  const Outputs o{newClusterCenters, clusterCenterStride, clusterMemberCounts, clusterBindings, sumOfClusterDistances};
  Assign(points, dim, pointStride, indices, numIndices, numClusters, clusterCenters, clusterCenterStride, o,
         [dim](const float* x, const float* c) { return tvxcluster::NormedDistance(NormedDot(x, c, dim)); });
  tvxcluster::Normalise(o, numClusters, dim);
  return 0;
}

int32_t tvxClusterEuclideanNormed36f32C(const float* points, int32_t numPoints, int32_t pointStride,
                                        const uint32_t* indices, int32_t numIndices, int32_t numClusters,
                                        float* clusterCenters, int32_t clusterCenterStride, float* newClusterCenters,
                                        uint32_t* clusterMemberCounts, uint32_t* clusterBindings,
                                        float* sumOfClusterDistances) {
  (void)numPoints;
  return tvxClusterEuclideanNormedf32(points, 0, 36, pointStride, indices, numIndices, numClusters, clusterCenters,
                                      clusterCenterStride, newClusterCenters, clusterMemberCounts, clusterBindings,
                                      sumOfClusterDistances);
}
