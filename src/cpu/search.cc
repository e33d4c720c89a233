// Reference variants of the descriptor search family (linear search, KD-tree, k-means tree
// descent) and of the two-class SVM decision, plus the KD-tree construction both tiers use.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "cpu/search.h"
#include "cpu/search_kdtree.h"
#include "frame/frame.h"

namespace tvxsearch {
namespace {

inline const int8_t* At(const int8_t* base, uint32_t stride, uint32_t i) { return base + size_t{i} * stride; }

// Leaves of a subtree of c descriptors (median splits above kLeafMax).
uint32_t LeafCount(uint32_t c) { return c <= kLeafMax ? 1 : LeafCount(c / 2) + LeafCount(c - c / 2); }

struct Builder {
  const int8_t* desc;
  uint32_t stride;
  uint32_t* idx;
  KdTree* t;
  uint32_t nextNode, nextLeaf;
};

int32_t Build(Builder& b, uint32_t begin, uint32_t count) {
  const int32_t id = static_cast<int32_t>(b.nextNode++);
  KdNode& n = b.t->nodes[id];
  uint32_t* idx = b.idx + begin;
  for (uint32_t d = 0; d < kDim; ++d) {
    int8_t lo = 127, hi = -128;
    for (uint32_t i = 0; i < count; ++i) {
      const int8_t v = At(b.desc, b.stride, idx[i])[d];
      lo = std::min(lo, v);
      hi = std::max(hi, v);
    }
    n.lo[d] = lo;
    n.hi[d] = hi;
  }
  if (count <= kLeafMax) {
    std::sort(idx, idx + count);
    const uint32_t g = b.nextLeaf++;
    int16_t* group = b.t->groups + size_t{g} * kGroupValues;
    for (uint32_t j = 0; j < kGroup; ++j) {
      const int8_t* d = j < count ? At(b.desc, b.stride, idx[j]) : nullptr;
      PackSlot(group, j, d);
      b.t->sqLengths[g * kGroup + j] = d ? SquaredLength(d) : 0;
      b.t->ids[g * kGroup + j] = d ? static_cast<int32_t>(idx[j]) : -1;
    }
    n.left = n.right = -1;
    n.leaf = static_cast<int32_t>(g);
    n.count = count;
    return id;
  }
  // Split on the component of largest spread (n * sum x^2 - (sum x)^2), at the median.
  uint32_t comp = 0;
  int64_t bestSpread = -1;
  for (uint32_t d = 0; d < kDim; ++d) {
    int64_t s = 0, s2 = 0;
    for (uint32_t i = 0; i < count; ++i) {
      const int64_t v = At(b.desc, b.stride, idx[i])[d];
      s += v;
      s2 += v * v;
    }
    const int64_t spread = int64_t{count} * s2 - s * s;
    if (spread > bestSpread) {
      bestSpread = spread;
      comp = d;
    }
  }
  const uint32_t mid = count / 2;
  const int8_t* desc = b.desc;
  const uint32_t stride = b.stride;
  std::nth_element(idx, idx + mid, idx + count, [&](uint32_t x, uint32_t y) {
    const int8_t vx = At(desc, stride, x)[comp], vy = At(desc, stride, y)[comp];
    return vx < vy || (vx == vy && x < y);
  });
  n.leaf = -1;
  n.count = 0;
  const int32_t left = Build(b, begin, mid);
  const int32_t right = Build(b, begin + mid, count - mid);
  b.t->nodes[id].left = left;
  b.t->nodes[id].right = right;
  return id;
}

inline size_t AlignUp(size_t v) { return (v + 15) & ~size_t{15}; }

}  // namespace

int32_t KdCreate(const int8_t* descriptors, uint32_t n, uint32_t stride, void** handle) {
  const uint32_t leaves = LeafCount(n), nodes = 2 * leaves - 1;
  const size_t offNodes = AlignUp(sizeof(KdTree));
  const size_t offGroups = offNodes + AlignUp(sizeof(KdNode) * nodes);
  const size_t offSq = offGroups + AlignUp(sizeof(int16_t) * kGroupValues * leaves);
  const size_t offIds = offSq + AlignUp(sizeof(int32_t) * kGroup * leaves);
  const size_t total = offIds + AlignUp(sizeof(int32_t) * kGroup * leaves);
  *handle = nullptr;
  if (total > 0xFFFFFFF0u || n > 0x3FFFFFFFu) return 5;
  uint8_t* block = static_cast<uint8_t*>(tvxMemAlloc(static_cast<uint32_t>(total), 16));
  uint32_t* idx = static_cast<uint32_t*>(tvxMemAlloc(n * 4u, 16));
  if (!block || !idx) {
    if (block) tvxMemFree(block);
    if (idx) tvxMemFree(idx);
    return 5;
  }
  KdTree* t = reinterpret_cast<KdTree*>(block);
  t->magic = kKdMagic;
  t->numDescriptors = n;
  t->numNodes = nodes;
  t->numLeaves = leaves;
  t->nodes = reinterpret_cast<KdNode*>(block + offNodes);
  t->groups = reinterpret_cast<int16_t*>(block + offGroups);
  t->sqLengths = reinterpret_cast<int32_t*>(block + offSq);
  t->ids = reinterpret_cast<int32_t*>(block + offIds);
  for (uint32_t i = 0; i < n; ++i) idx[i] = i;
  Builder b{descriptors, stride, idx, t, 0, 0};
  Build(b, 0, n);
  tvxMemFree(idx);
  *handle = t;
  return 0;
}

int32_t KdQuery(void* handle, const int8_t* queries, uint32_t numQueries, uint32_t queryStride, uint32_t k,
                uint32_t maxChecks, int32_t* indices, float* distances,
                void (*dot8)(const int16_t*, const int8_t*, int32_t*), int64_t (*bound)(const KdNode&, const int8_t*)) {
  const KdTree* t = static_cast<const KdTree*>(handle);
  if (t->magic != kKdMagic) return 3;
  if (numQueries == 0) return 0;
  const size_t bytes = AlignUp(sizeof(HeapItem) * t->numNodes) + 2 * AlignUp(sizeof(int32_t) * size_t{k});
  if (bytes > 0xFFFFFFF0u) return 5;
  uint8_t* scratch = static_cast<uint8_t*>(tvxMemAlloc(static_cast<uint32_t>(bytes), 16));
  if (!scratch) return 5;
  KdScratch s{reinterpret_cast<HeapItem*>(scratch),
              reinterpret_cast<int32_t*>(scratch + AlignUp(sizeof(HeapItem) * t->numNodes)),
              reinterpret_cast<int32_t*>(scratch + AlignUp(sizeof(HeapItem) * t->numNodes) +
                                         AlignUp(sizeof(int32_t) * size_t{k}))};
  for (uint32_t q = 0; q < numQueries; ++q)
    KdQueryOne(*t, At(queries, queryStride, q), k, maxChecks, s, indices + size_t{q} * k, distances + size_t{q} * k,
               dot8, bound);
  tvxMemFree(scratch);
  return 0;
}

int32_t KdDestroy(void* handle) {
  KdTree* t = static_cast<KdTree*>(handle);
  if (t->magic != kKdMagic) return 3;
  t->magic = 0;
  tvxMemFree(t);
  return 0;
}

}  // namespace tvxsearch

using namespace tvxsearch;

int32_t tvxLinearSearchPrepare8x36s8C(const int8_t* descriptors, uint32_t numDescriptors, uint32_t descriptorStride,
                                      int16_t* packed, float* invLengths) {
  for (uint32_t g = 0; g < Groups(numDescriptors); ++g) {
    for (uint32_t j = 0; j < kGroup; ++j) {
      const uint32_t i = g * kGroup + j;
      const int8_t* d = i < numDescriptors ? At(descriptors, descriptorStride, i) : nullptr;
      PackSlot(packed + size_t{g} * kGroupValues, j, d);
      invLengths[i] = d ? InvLength(d) : 0.0f;
    }
  }
  return 0;
}

int32_t tvxLinearSearch8x36s8C(const int16_t* packed, const float* invLengths, uint32_t numDescriptors,
                               const int8_t* queries, uint32_t numQueries, uint32_t queryStride, int32_t* matchIndex,
                               float* matchScore) {
  for (uint32_t q = 0; q < numQueries; ++q)
    LinearOne(packed, invLengths, numDescriptors, At(queries, queryStride, q), matchIndex + q, matchScore + q,
              Dot8Scalar);
  return 0;
}

int32_t tvxKDTreeCreate36s8f32C(const int8_t* descriptors, uint32_t numDescriptors, uint32_t descriptorStride,
                                void** handle) {
  return KdCreate(descriptors, numDescriptors, descriptorStride, handle);
}

int32_t tvxKDTreeQuery36s8f32C(void* handle, const int8_t* queries, uint32_t numQueries, uint32_t queryStride, uint32_t k,
                               uint32_t maxChecks, int32_t* indices, float* distances) {
  return KdQuery(handle, queries, numQueries, queryStride, k, maxChecks, indices, distances, Dot8Scalar, BoxBound);
}

int32_t tvxKDTreeDestroy36s8f32C(void* handle) { return KdDestroy(handle); }

int32_t tvxKMeansTreeSearch36x10s8C(const int8_t* centres, const int32_t* children, uint32_t numNodes,
                                    const int8_t* queries, uint32_t numQueries, uint32_t queryStride, int32_t* leaves,
                                    uint32_t* distances) {
  for (uint32_t q = 0; q < numQueries; ++q)
    KMeansOne(centres, children, numNodes, At(queries, queryStride, q), leaves + q, distances + q, Dist10Scalar);
  return 0;
}

int32_t tvxSVMPredict2Classf32C(const float* supportVectors, uint32_t numSupportVectors, uint32_t svStride, uint32_t dim,
                                const float* alphas, float rho, uint32_t kernelType, float gamma, const float* samples,
                                uint32_t numSamples, uint32_t sampleStride, float* decisions, int32_t* classes) {
  for (uint32_t i = 0; i < numSamples; ++i) {
    const float* x = reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(samples) + size_t{i} * sampleStride);
    SvmDecide(supportVectors, numSupportVectors, svStride, dim, alphas, rho, kernelType, gamma, x, decisions + i,
              classes + i, KernelSumScalar);
  }
  return 0;
}
