// Shared pieces of the descriptor search family: the packed group layout (eight 36-byte
// descriptors as 18 rows of 16 int16 values, row r holding elements 2r and 2r + 1 of each
// descriptor side by side), the KD-tree record, and the search loops. The loops take the inner
// kernel (eight dot products, ten centre distances, one SVM kernel row) as a functor so that
// the reference and SIMD variants share every decision and differ only in how they sum.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tvxsearch {

constexpr uint32_t kDim = 36;
constexpr uint32_t kGroup = 8;
constexpr uint32_t kGroupValues = 288;  // 18 rows of 16
constexpr uint32_t kLeafMax = 8;

inline uint32_t Groups(uint32_t n) { return (n + kGroup - 1) / kGroup; }

inline int32_t SquaredLength(const int8_t* d) {
  int32_t s = 0;
  for (uint32_t i = 0; i < kDim; ++i) s += int32_t{d[i]} * d[i];
  return s;
}

inline float InvLength(const int8_t* d) {
  const int32_t s = SquaredLength(d);
  return s ? 1.0f / std::sqrt(static_cast<float>(s)) : 0.0f;
}

// Descriptor j of a group into slot j (a null descriptor fills the slot with zeros).
inline void PackSlot(int16_t* group, uint32_t j, const int8_t* d) {
  for (uint32_t r = 0; r < kDim / 2; ++r) {
    group[r * 16 + 2 * j] = d ? d[2 * r] : 0;
    group[r * 16 + 2 * j + 1] = d ? d[2 * r + 1] : 0;
  }
}

// Eight dot products of a query with a packed group, in exact integers.
inline void Dot8Scalar(const int16_t* group, const int8_t* q, int32_t* out) {
  for (uint32_t j = 0; j < kGroup; ++j) {
    int32_t s = 0;
    for (uint32_t r = 0; r < kDim / 2; ++r)
      s += int32_t{group[r * 16 + 2 * j]} * q[2 * r] + int32_t{group[r * 16 + 2 * j + 1]} * q[2 * r + 1];
    out[j] = s;
  }
}

// Linear search of one query; dot8(group, query, out[8]).
template <class Dot8>
void LinearOne(const int16_t* packed, const float* invLengths, uint32_t n, const int8_t* q, int32_t* index, float* score,
               Dot8&& dot8) {
  const float invQ = InvLength(q);
  int32_t best = -1;
  float bestScore = 0;
  int32_t dots[kGroup];
  for (uint32_t g = 0; g < Groups(n); ++g) {
    dot8(packed + size_t{g} * kGroupValues, q, dots);
    const uint32_t count = std::min(kGroup, n - g * kGroup);
    for (uint32_t j = 0; j < count; ++j) {
      const float s = (static_cast<float>(dots[j]) * invQ) * invLengths[g * kGroup + j];
      if (best < 0 || s > bestScore) {
        best = static_cast<int32_t>(g * kGroup + j);
        bestScore = s;
      }
    }
  }
  *index = best;
  *score = bestScore;
}

// ---- KD-tree -----------------------------------------------------------------------------------

struct KdNode {
  int32_t left, right;     // children (inner node) or -1
  int32_t leaf;            // leaf group index, or -1 for an inner node
  uint32_t count;          // descriptors in the leaf
  int8_t lo[kDim], hi[kDim];  // bounding box of the node's descriptors
};

struct KdTree {
  uint32_t magic;
  uint32_t numDescriptors, numNodes, numLeaves;
  KdNode* nodes;
  int16_t* groups;      // numLeaves packed groups
  int32_t* sqLengths;   // numLeaves * 8
  int32_t* ids;         // numLeaves * 8: positions in the create call
};

constexpr uint32_t kKdMagic = 0x4b445433;  // "KDT3"

inline int64_t BoxBound(const KdNode& n, const int8_t* q) {
  int64_t s = 0;
  for (uint32_t d = 0; d < kDim; ++d) {
    int32_t gap = 0;
    if (q[d] < n.lo[d]) gap = n.lo[d] - q[d];
    else if (q[d] > n.hi[d]) gap = q[d] - n.hi[d];
    s += int64_t{gap} * gap;
  }
  return s;
}

struct HeapItem {
  int64_t bound;
  int32_t node;
};

// Scratch of one query: a heap of at most numNodes items and the k best so far.
struct KdScratch {
  HeapItem* heap;
  int32_t* bestDist;
  int32_t* bestId;
};

inline bool HeapLess(const HeapItem& a, const HeapItem& b) {  // min-heap on (bound, node)
  return a.bound > b.bound || (a.bound == b.bound && a.node > b.node);
}

// bound(node, q): BoxBound or an equal computation.
template <class Dot8, class Bound>
void KdQueryOne(const KdTree& t, const int8_t* q, uint32_t k, uint32_t maxChecks, KdScratch& s, int32_t* indices,
                float* distances, Dot8&& dot8, Bound&& bound) {
  const int32_t qq = SquaredLength(q);
  uint32_t found = 0, checks = 0, heapSize = 0;
  const auto worse = [&](int64_t bound) { return found == k && bound > s.bestDist[k - 1]; };
  s.heap[heapSize++] = HeapItem{bound(t.nodes[0], q), 0};
  int32_t dots[kGroup];
  bool stop = false;
  while (heapSize && !stop) {
    std::pop_heap(s.heap, s.heap + heapSize, HeapLess);
    HeapItem item = s.heap[--heapSize];
    if (worse(item.bound)) break;
    int32_t node = item.node;
    while (t.nodes[node].leaf < 0) {
      const KdNode& n = t.nodes[node];
      const int64_t bl = bound(t.nodes[n.left], q), br = bound(t.nodes[n.right], q);
      const bool goLeft = bl <= br;
      const int32_t next = goLeft ? n.left : n.right, other = goLeft ? n.right : n.left;
      const int64_t bn = goLeft ? bl : br, bo = goLeft ? br : bl;
      if (!worse(bo)) {
        s.heap[heapSize++] = HeapItem{bo, other};
        std::push_heap(s.heap, s.heap + heapSize, HeapLess);
      }
      if (worse(bn)) {
        node = -1;
        break;
      }
      node = next;
    }
    if (node < 0) continue;
    const KdNode& leaf = t.nodes[node];
    dot8(t.groups + size_t(leaf.leaf) * kGroupValues, q, dots);
    for (uint32_t j = 0; j < leaf.count; ++j) {
      const int32_t dist = t.sqLengths[leaf.leaf * kGroup + j] + qq - 2 * dots[j];
      const int32_t id = t.ids[leaf.leaf * kGroup + j];
      if (found == k && (dist > s.bestDist[k - 1] || (dist == s.bestDist[k - 1] && id > s.bestId[k - 1]))) continue;
      uint32_t pos = found < k ? found++ : k - 1;
      while (pos > 0 && (s.bestDist[pos - 1] > dist || (s.bestDist[pos - 1] == dist && s.bestId[pos - 1] > id))) {
        s.bestDist[pos] = s.bestDist[pos - 1];
        s.bestId[pos] = s.bestId[pos - 1];
        --pos;
      }
      s.bestDist[pos] = dist;
      s.bestId[pos] = id;
    }
    checks += leaf.count;
    if (maxChecks && checks >= maxChecks) stop = true;
  }
  for (uint32_t i = 0; i < k; ++i) {
    indices[i] = i < found ? s.bestId[i] : -1;
    distances[i] = i < found ? static_cast<float>(s.bestDist[i]) : -1.0f;
  }
}

// ---- k-means tree ------------------------------------------------------------------------------

inline void Dist10Scalar(const int8_t* centres, const int8_t* q, int32_t* out) {
  for (uint32_t b = 0; b < 10; ++b) {
    int32_t s = 0;
    for (uint32_t i = 0; i < kDim; ++i) {
      const int32_t d = int32_t{q[i]} - centres[b * kDim + i];
      s += d * d;
    }
    out[b] = s;
  }
}

template <class Dist10>
void KMeansOne(const int8_t* centres, const int32_t* children, uint32_t numNodes, const int8_t* q, int32_t* leaf,
               uint32_t* distance, Dist10&& dist10) {
  uint32_t node = 0;
  int32_t d[10];
  for (;;) {
    dist10(centres + size_t{node} * 360, q, d);
    uint32_t b = 0;
    for (uint32_t i = 1; i < 10; ++i)
      if (d[i] < d[b]) b = i;
    const int32_t e = children[size_t{node} * 10 + b];
    if (e > static_cast<int64_t>(node) && static_cast<uint32_t>(e) < numNodes) {
      node = static_cast<uint32_t>(e);
      continue;
    }
    *leaf = e;
    *distance = static_cast<uint32_t>(d[b]);
    return;
  }
}

// ---- SVM ---------------------------------------------------------------------------------------

// Dot product (squared == false) or squared distance of two float rows: four partial sums over
// the elements below dim rounded down to 4, combined ((s0 + s1) + s2) + s3, then the rest in order.
inline float KernelSumScalar(const float* a, const float* b, uint32_t dim, bool squared) {
  float p[4] = {0, 0, 0, 0};
  const uint32_t dim4 = dim & ~3u;
  for (uint32_t i = 0; i < dim4; ++i) {
    const float t = squared ? (a[i] - b[i]) * (a[i] - b[i]) : a[i] * b[i];
    p[i & 3] += t;
  }
  float s = ((p[0] + p[1]) + p[2]) + p[3];
  for (uint32_t i = dim4; i < dim; ++i) s += squared ? (a[i] - b[i]) * (a[i] - b[i]) : a[i] * b[i];
  return s;
}

template <class KernelSum>
void SvmDecide(const float* sv, uint32_t numSv, uint32_t svStride, uint32_t dim, const float* alphas, float rho,
               uint32_t kernelType, float gamma, const float* x, float* decision, int32_t* cls, KernelSum&& ksum) {
  float sum = 0;
  for (uint32_t i = 0; i < numSv; ++i) {
    const float* row = reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(sv) + size_t{i} * svStride);
    const float v = ksum(row, x, dim, kernelType == 1);
    const float kv = kernelType == 1 ? std::exp(-gamma * v) : v;
    sum += alphas[i] * kv;
  }
  sum -= rho;
  *decision = sum;
  *cls = sum > 0 ? 0 : 1;
}

}  // namespace tvxsearch
