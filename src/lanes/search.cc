// SIMD variants of the descriptor search family and of the SVM decision. The search loops are
// the shared ones (cpu/search.h); only the inner sums run on vectors:
//  - eight dot products of a packed group: each 16-value row (elements 2r, 2r + 1 of eight
//    descriptors) is multiplied by the broadcast query pair and summed pairwise into 32-bit
//    lanes (exact integers);
//  - KD-tree box bounds: 16-bit gaps to the box squared and summed pairwise (exact integers);
//  - ten centre distances of a k-means node: 16-bit differences squared and summed pairwise;
//  - SVM rows: four-lane float sums, lane k holding elements k mod 4, as the reference orders
//    them, so decisions are identical.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/search.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>

#include "cpu/search.h"
#include "cpu/search_kdtree.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace search {
namespace hn = hwy::HWY_NAMESPACE;
using namespace tvxsearch;

// Query pairs (q[2r], q[2r + 1]) as 32-bit patterns, broadcast per row.
struct QueryPairs {
  int32_t pair[kDim / 2];
  explicit QueryPairs(const int8_t* q) {
    for (uint32_t r = 0; r < kDim / 2; ++r)
      pair[r] = static_cast<int32_t>(static_cast<uint16_t>(int16_t{q[2 * r]}) |
                                     (uint32_t{static_cast<uint16_t>(int16_t{q[2 * r + 1]})} << 16));
  }
};

inline void Dot8Pairs(const int16_t* group, const QueryPairs& qp, int32_t* out) {
  const hn::CappedTag<int16_t, 16> d16;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const size_t n16 = hn::Lanes(d16);
  for (size_t off = 0; off < 16; off += n16) {
    auto s0 = hn::Zero(d32), s1 = hn::Zero(d32);
    for (uint32_t r = 0; r < kDim / 2; ++r) {
      const auto q = hn::BitCast(d16, hn::Set(d32, qp.pair[r]));
      s0 = hn::ReorderWidenMulAccumulate(d32, hn::LoadU(d16, group + r * 16 + off), q, s0, s1);
    }
    hn::StoreU(hn::RearrangeToOddPlusEven(s0, s1), d32, out + off / 2);
  }
}

inline void Dot8(const int16_t* group, const int8_t* q, int32_t* out) { Dot8Pairs(group, QueryPairs(q), out); }

inline void Dist10(const int8_t* centres, const int8_t* q, int32_t* out) {
  const hn::FixedTag<int16_t, 8> d16;
  const hn::Rebind<int8_t, decltype(d16)> d8;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const auto q0 = hn::PromoteTo(d16, hn::LoadU(d8, q)), q1 = hn::PromoteTo(d16, hn::LoadU(d8, q + 8));
  const auto q2 = hn::PromoteTo(d16, hn::LoadU(d8, q + 16)), q3 = hn::PromoteTo(d16, hn::LoadU(d8, q + 24));
  for (uint32_t b = 0; b < 10; ++b) {
    const int8_t* c = centres + b * kDim;
    auto s0 = hn::Zero(d32), s1 = hn::Zero(d32);
    const auto t0 = hn::Sub(q0, hn::PromoteTo(d16, hn::LoadU(d8, c)));
    const auto t1 = hn::Sub(q1, hn::PromoteTo(d16, hn::LoadU(d8, c + 8)));
    const auto t2 = hn::Sub(q2, hn::PromoteTo(d16, hn::LoadU(d8, c + 16)));
    const auto t3 = hn::Sub(q3, hn::PromoteTo(d16, hn::LoadU(d8, c + 24)));
    s0 = hn::ReorderWidenMulAccumulate(d32, t0, t0, s0, s1);
    s0 = hn::ReorderWidenMulAccumulate(d32, t1, t1, s0, s1);
    s0 = hn::ReorderWidenMulAccumulate(d32, t2, t2, s0, s1);
    s0 = hn::ReorderWidenMulAccumulate(d32, t3, t3, s0, s1);
    int32_t s = hn::GetLane(hn::SumOfLanes(d32, hn::RearrangeToOddPlusEven(s0, s1)));
    for (uint32_t i = 32; i < kDim; ++i) {
      const int32_t t = int32_t{q[i]} - c[i];
      s += t * t;
    }
    out[b] = s;
  }
}

// Squared distance of q to a node's box: per component the gap below lo or above hi (one of
// them is zero), squared and summed pairwise in 32-bit lanes; an exact integer.
inline int64_t Bound(const KdNode& n, const int8_t* q) {
  const hn::FixedTag<int16_t, 8> d16;
  const hn::Rebind<int8_t, decltype(d16)> d8;
  const hn::Repartition<int32_t, decltype(d16)> d32;
  const auto zero = hn::Zero(d16);
  auto s0 = hn::Zero(d32), s1 = hn::Zero(d32);
  for (uint32_t i = 0; i < 32; i += 8) {
    const auto v = hn::PromoteTo(d16, hn::LoadU(d8, q + i));
    const auto lo = hn::PromoteTo(d16, hn::LoadU(d8, n.lo + i)), hi = hn::PromoteTo(d16, hn::LoadU(d8, n.hi + i));
    const auto gap = hn::Add(hn::Max(hn::Sub(lo, v), zero), hn::Max(hn::Sub(v, hi), zero));
    s0 = hn::ReorderWidenMulAccumulate(d32, gap, gap, s0, s1);
  }
  int64_t s = hn::GetLane(hn::SumOfLanes(d32, hn::RearrangeToOddPlusEven(s0, s1)));
  for (uint32_t i = 32; i < kDim; ++i) {
    int32_t gap = 0;
    if (q[i] < n.lo[i]) gap = n.lo[i] - q[i];
    else if (q[i] > n.hi[i]) gap = q[i] - n.hi[i];
    s += int64_t{gap} * gap;
  }
  return s;
}

inline float KernelSum(const float* a, const float* b, uint32_t dim, bool squared) {
  const hn::FixedTag<float, 4> d;
  auto acc = hn::Zero(d);
  const uint32_t dim4 = dim & ~3u;
  if (squared) {
    for (uint32_t i = 0; i < dim4; i += 4) {
      const auto t = hn::Sub(hn::LoadU(d, a + i), hn::LoadU(d, b + i));
      acc = hn::Add(acc, hn::Mul(t, t));
    }
  } else {
    for (uint32_t i = 0; i < dim4; i += 4) acc = hn::Add(acc, hn::Mul(hn::LoadU(d, a + i), hn::LoadU(d, b + i)));
  }
  alignas(16) float p[4];
  hn::Store(acc, d, p);
  float s = ((p[0] + p[1]) + p[2]) + p[3];
  for (uint32_t i = dim4; i < dim; ++i) s += squared ? (a[i] - b[i]) * (a[i] - b[i]) : a[i] * b[i];
  return s;
}

}  // namespace search

int32_t SearchLinear(const int16_t* packed, const float* invLengths, uint32_t numDescriptors, const int8_t* queries,
                     uint32_t numQueries, uint32_t queryStride, int32_t* matchIndex, float* matchScore) {
  for (uint32_t q = 0; q < numQueries; ++q)
    tvxsearch::LinearOne(packed, invLengths, numDescriptors, queries + size_t{q} * queryStride, matchIndex + q,
                         matchScore + q, search::Dot8);
  return 0;
}

void SearchDot8(const int16_t* group, const int8_t* q, int32_t* out) { search::Dot8(group, q, out); }

int64_t SearchBound(const tvxsearch::KdNode& n, const int8_t* q) { return search::Bound(n, q); }

int32_t SearchKMeans(const int8_t* centres, const int32_t* children, uint32_t numNodes, const int8_t* queries,
                     uint32_t numQueries, uint32_t queryStride, int32_t* leaves, uint32_t* distances) {
  for (uint32_t q = 0; q < numQueries; ++q)
    tvxsearch::KMeansOne(centres, children, numNodes, queries + size_t{q} * queryStride, leaves + q, distances + q,
                         search::Dist10);
  return 0;
}

int32_t SearchSvm(const float* sv, uint32_t numSv, uint32_t svStride, uint32_t dim, const float* alphas, float rho,
                  uint32_t kernelType, float gamma, const float* samples, uint32_t numSamples, uint32_t sampleStride,
                  float* decisions, int32_t* classes) {
  for (uint32_t i = 0; i < numSamples; ++i) {
    const float* x = reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(samples) + size_t{i} * sampleStride);
    tvxsearch::SvmDecide(sv, numSv, svStride, dim, alphas, rho, kernelType, gamma, x, decisions + i, classes + i,
                         search::KernelSum);
  }
  return 0;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(SearchLinear);
HWY_EXPORT(SearchDot8);
HWY_EXPORT(SearchBound);
HWY_EXPORT(SearchKMeans);
HWY_EXPORT(SearchSvm);
}  // namespace tvx

using namespace tvx;

namespace {
void Dot8Dispatch(const int16_t* group, const int8_t* q, int32_t* out) { HWY_DYNAMIC_DISPATCH(SearchDot8)(group, q, out); }
int64_t BoundDispatch(const tvxsearch::KdNode& n, const int8_t* q) { return HWY_DYNAMIC_DISPATCH(SearchBound)(n, q); }
}  // namespace

int32_t tvxLinearSearch8x36s8V(const int16_t* packed, const float* invLengths, uint32_t numDescriptors,
                               const int8_t* queries, uint32_t numQueries, uint32_t queryStride, int32_t* matchIndex,
                               float* matchScore) {
  return HWY_DYNAMIC_DISPATCH(SearchLinear)(packed, invLengths, numDescriptors, queries, numQueries, queryStride,
                                            matchIndex, matchScore);
}

int32_t tvxKDTreeQuery36s8f32V(void* handle, const int8_t* queries, uint32_t numQueries, uint32_t queryStride, uint32_t k,
                               uint32_t maxChecks, int32_t* indices, float* distances) {
  return tvxsearch::KdQuery(handle, queries, numQueries, queryStride, k, maxChecks, indices, distances,
                            Dot8Dispatch, BoundDispatch);
}

int32_t tvxKMeansTreeSearch36x10s8V(const int8_t* centres, const int32_t* children, uint32_t numNodes,
                                    const int8_t* queries, uint32_t numQueries, uint32_t queryStride, int32_t* leaves,
                                    uint32_t* distances) {
  return HWY_DYNAMIC_DISPATCH(SearchKMeans)(centres, children, numNodes, queries, numQueries, queryStride, leaves,
                                            distances);
}

int32_t tvxSVMPredict2Classf32V(const float* supportVectors, uint32_t numSupportVectors, uint32_t svStride, uint32_t dim,
                                const float* alphas, float rho, uint32_t kernelType, float gamma, const float* samples,
                                uint32_t numSamples, uint32_t sampleStride, float* decisions, int32_t* classes) {
  return HWY_DYNAMIC_DISPATCH(SearchSvm)(supportVectors, numSupportVectors, svStride, dim, alphas, rho, kernelType, gamma,
                                         samples, numSamples, sampleStride, decisions, classes);
}
#endif  // HWY_ONCE
