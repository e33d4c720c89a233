// The parts of a k-means pass that both tiers share: addressing, clearing the outputs, the
// binding of one point to its nearest centre and the centre update. The tiers differ only in how
// they compute the distances of one point to every centre.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace tvxcluster {

template <typename T>
inline const T* PointAt(const T* points, int32_t stride, uint32_t index) {
  return reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(points) + size_t(index) * uint32_t(stride));
}
inline float* CentreAt(float* centres, int32_t stride, int32_t k) {
  return reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(centres) + size_t(k) * uint32_t(stride));
}
inline const float* CentreAt(const float* centres, int32_t stride, int32_t k) {
  return reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(centres) + size_t(k) * uint32_t(stride));
}

struct Outputs {
  float* newCentres;
  int32_t centreStride;
  uint32_t* counts;
  uint32_t* bindings;
  float* sums;
};

inline void Clear(const Outputs& o, int32_t numClusters, int32_t dim, int32_t numIndices) {
  for (int32_t c = 0; c < numClusters; ++c) {
    o.counts[c] = 0;
    o.sums[c] = 0.0f;
  }
  for (int32_t c = 0; c < numClusters; ++c) {
    float* centre = CentreAt(o.newCentres, o.centreStride, c);
    for (int32_t i = 0; i < dim; ++i) centre[i] = 0.0f;
  }
  for (int32_t k = 0; k < numIndices; ++k) o.bindings[k] = 0;
}

// Index of the smallest distance; a later centre wins only when strictly nearer.
inline int32_t Nearest(const float* distances, int32_t numClusters) {
  int32_t best = 0;
  for (int32_t c = 1; c < numClusters; ++c)
    if (distances[c] < distances[best]) best = c;
  return best;
}

template <typename T>
inline void Bind(const Outputs& o, int32_t k, const T* x, int32_t dim, int32_t best, float distance) {
  o.bindings[k] = uint32_t(best);
  o.counts[best] += 1;
  float* centre = CentreAt(o.newCentres, o.centreStride, best);
  for (int32_t i = 0; i < dim; ++i) centre[i] += float(x[i]);
  o.sums[best] += distance;
}

// Euclidean update: members' mean; an empty cluster keeps its zero centre.
inline void Average(const Outputs& o, int32_t numClusters, int32_t dim) {
  for (int32_t c = 0; c < numClusters; ++c) {
    if (o.counts[c] == 0) continue;
    const float inv = 1.0f / float(o.counts[c]);
    float* centre = CentreAt(o.newCentres, o.centreStride, c);
    for (int32_t i = 0; i < dim; ++i) centre[i] *= inv;
  }
}

// Normed update: the members' sum scaled to unit length; a zero sum stays zero.
inline void Normalise(const Outputs& o, int32_t numClusters, int32_t dim) {
  for (int32_t c = 0; c < numClusters; ++c) {
    float* centre = CentreAt(o.newCentres, o.centreStride, c);
    float ss = 0.0f;
    for (int32_t i = 0; i < dim; ++i) ss += centre[i] * centre[i];
    if (!(ss > 0.0f)) continue;
    const float inv = 1.0f / std::sqrt(ss);
    for (int32_t i = 0; i < dim; ++i) centre[i] *= inv;
  }
}

// Distance of two unit vectors from their dot product, never the root of a negative rounding.
inline float NormedDistance(float dot) {
  const float v = 2.0f - 2.0f * dot;
  return std::sqrt(v > 0.0f ? v : 0.0f);
}

}  // namespace tvxcluster
