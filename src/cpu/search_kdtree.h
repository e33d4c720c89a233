// KD-tree construction and release, shared by the entries of both tiers (the build is scalar;
// only the query's leaf distances differ between tiers).
#pragma once

#include "cpu/search.h"

namespace tvxsearch {

// Creates a tree over n descriptors; returns 0, or 5 when memory cannot be had.
int32_t KdCreate(const int8_t* descriptors, uint32_t n, uint32_t stride, void** handle);
// Runs one query call with the given eight-dot kernel; returns 0, 3 or 5.
int32_t KdQuery(void* handle, const int8_t* queries, uint32_t numQueries, uint32_t queryStride, uint32_t k,
                uint32_t maxChecks, int32_t* indices, float* distances, void (*dot8)(const int16_t*, const int8_t*, int32_t*),
                int64_t (*bound)(const KdNode&, const int8_t*));
int32_t KdDestroy(void* handle);

}  // namespace tvxsearch
