// The k-means pass through the public entries: bindings, counts, distance sums and new centres
// against a double-precision model of the pass (on well-separated data, where rounding cannot
// change a binding), the tie, empty-cluster, repeated-index and zero-distance rules, bad
// arguments, and the SIMD variants against the reference bit for bit on every target.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using Floats = std::vector<float>;
using Words = std::vector<uint32_t>;

struct Result {
  Floats centres;
  Words counts, bindings;
  Floats sums;
  int32_t status = 0;
  Result(size_t centreFloats, int32_t clusters, int32_t indices)
      : centres(centreFloats, 77.0f), counts(clusters, 77), bindings(indices, 77), sums(clusters, 77.0f) {}
  bool operator==(const Result& o) const {
    return status == o.status && std::memcmp(centres.data(), o.centres.data(), centres.size() * 4) == 0 &&
           counts == o.counts && bindings == o.bindings && std::memcmp(sums.data(), o.sums.data(), sums.size() * 4) == 0;
  }
};

enum class Kind { kEuclidean, kNormed, kBytes };

// A data set: points with pointStride floats (or bytes) per vector, centres with centreStride
// floats per centre, and the selection.
struct Data {
  int32_t dim, numPoints, pointStride, numClusters, centreStride;
  Floats points, centres;
  std::vector<uint8_t> bytes;
  Words indices;
};

Result RunPass(const Data& d, Kind kind, int tier) {
  Result r(d.centres.size(), d.numClusters, int32_t(d.indices.size()));
  float* centres = const_cast<float*>(d.centres.data());
  const int32_t n = int32_t(d.indices.size());
  if (kind == Kind::kEuclidean) {
    auto f = tier ? tvxClusterEuclideanf32V : tvxClusterEuclideanf32C;
    r.status = f(d.points.data(), d.numPoints, d.dim, d.pointStride * 4, d.indices.data(), n, d.numClusters, centres,
                 d.centreStride * 4, r.centres.data(), r.counts.data(), r.bindings.data(), r.sums.data());
  } else if (kind == Kind::kNormed) {
    auto f = tier ? tvxClusterEuclideanNormedf32V : tvxClusterEuclideanNormedf32C;
    r.status = f(d.points.data(), d.numPoints, d.dim, d.pointStride * 4, d.indices.data(), n, d.numClusters, centres,
                 d.centreStride * 4, r.centres.data(), r.counts.data(), r.bindings.data(), r.sums.data());
  } else {
    auto f = tier ? tvxClusterEuclideanu8V : tvxClusterEuclideanu8C;
    r.status = f(d.bytes.data(), d.numPoints, d.dim, d.pointStride, d.indices.data(), n, d.numClusters, centres,
                 d.centreStride * 4, r.centres.data(), r.counts.data(), r.bindings.data(), r.sums.data());
  }
  return r;
}

class Cluster : public ::testing::Test {
 protected:
  // Points scattered tightly around well-separated centres (or random unit vectors when normed).
  Data Make(int32_t dim, int32_t numClusters, int32_t numPoints, int32_t numIndices, bool normed, float spread) {
    Data d{dim, numPoints, dim + int32_t(rng_() % 3), numClusters, dim + int32_t(rng_() % 3), {}, {}, {}, {}};
    std::normal_distribution<float> g(0.0f, 1.0f);
    d.centres.assign(size_t(numClusters) * d.centreStride, 0.0f);
    for (int32_t c = 0; c < numClusters; ++c) {
      float* v = &d.centres[size_t(c) * d.centreStride];
      for (int32_t i = 0; i < dim; ++i) v[i] = 10.0f * g(rng_);
      if (normed) Normalise(v, dim);
    }
    d.points.assign(size_t(numPoints) * d.pointStride, 0.0f);
    for (int32_t p = 0; p < numPoints; ++p) {
      const float* c = &d.centres[size_t(rng_() % numClusters) * d.centreStride];
      float* v = &d.points[size_t(p) * d.pointStride];
      for (int32_t i = 0; i < dim; ++i) v[i] = c[i] + spread * g(rng_);
      if (normed) Normalise(v, dim);
    }
    for (int32_t k = 0; k < numIndices; ++k) d.indices.push_back(uint32_t(rng_() % numPoints));
    return d;
  }
  static void Normalise(float* v, int32_t dim) {
    double s = 0.0;
    for (int32_t i = 0; i < dim; ++i) s += double(v[i]) * v[i];
    for (int32_t i = 0; i < dim; ++i) v[i] = float(v[i] / std::sqrt(s));
  }
  std::mt19937 rng_{99};
};

// The pass in double precision; bindings by the smallest distance, ties to the lower index.
void ExpectMatchesModel(const Data& d, Kind kind, const Result& r) {
  const int32_t n = int32_t(d.indices.size());
  std::vector<double> centres(size_t(d.numClusters) * d.dim, 0.0), sums(d.numClusters, 0.0);
  std::vector<uint32_t> counts(d.numClusters, 0);
  for (int32_t k = 0; k < n; ++k) {
    const auto x = [&](int32_t i) {
      return kind == Kind::kBytes ? double(d.bytes[size_t(d.indices[k]) * d.pointStride + i])
                                  : double(d.points[size_t(d.indices[k]) * d.pointStride + i]);
    };
    int32_t best = 0;
    double bestDistance = 0.0;
    for (int32_t c = 0; c < d.numClusters; ++c) {
      double s = 0.0, dot = 0.0;
      for (int32_t i = 0; i < d.dim; ++i) {
        const double ci = d.centres[size_t(c) * d.centreStride + i];
        s += (x(i) - ci) * (x(i) - ci);
        dot += x(i) * ci;
      }
      const double dist = kind == Kind::kNormed ? std::sqrt(std::max(0.0, 2.0 - 2.0 * dot)) : std::sqrt(s);
      if (c == 0 || dist < bestDistance) {
        bestDistance = dist;
        best = c;
      }
    }
    ASSERT_EQ(r.bindings[k], uint32_t(best)) << k;
    counts[best]++;
    sums[best] += bestDistance;
    for (int32_t i = 0; i < d.dim; ++i) centres[size_t(best) * d.dim + i] += x(i);
  }
  EXPECT_EQ(r.counts, counts);
  for (int32_t c = 0; c < d.numClusters; ++c) {
    EXPECT_NEAR(r.sums[c], sums[c], 1e-4 * (1.0 + sums[c])) << c;
    double norm = 0.0;
    for (int32_t i = 0; i < d.dim; ++i) norm += centres[size_t(c) * d.dim + i] * centres[size_t(c) * d.dim + i];
    for (int32_t i = 0; i < d.dim; ++i) {
      double expect = centres[size_t(c) * d.dim + i];
      if (kind == Kind::kNormed) {
        expect = norm > 0 ? expect / std::sqrt(norm) : 0.0;
      } else if (counts[c]) {
        expect /= counts[c];
      }
      EXPECT_NEAR(r.centres[size_t(c) * d.centreStride + i], expect, 1e-4 * (1.0 + std::fabs(expect))) << c << "," << i;
    }
  }
}

TEST_F(Cluster, PassMatchesDoublePrecisionModel) {
  for (int32_t dim : {1, 3, 4, 36, 37}) {
    for (int32_t clusters : {1, 4, 19}) {
      SCOPED_TRACE(::testing::Message() << "dim " << dim << " clusters " << clusters);
      const Data e = Make(dim, clusters, 60, 90, false, 0.05f);
      Result r(e.centres.size(), clusters, 90);
      r.status = tvxClusterEuclideanf32(e.points.data(), e.numPoints, dim, e.pointStride * 4, e.indices.data(), 90,
                                        clusters, const_cast<float*>(e.centres.data()), e.centreStride * 4,
                                        r.centres.data(), r.counts.data(), r.bindings.data(), r.sums.data());
      EXPECT_EQ(r.status, 0);
      ExpectMatchesModel(e, Kind::kEuclidean, r);

      const Data u = Make(dim, clusters, 60, 90, true, 0.05f);
      Result q(u.centres.size(), clusters, 90);
      q.status = tvxClusterEuclideanNormedf32(u.points.data(), u.numPoints, dim, u.pointStride * 4, u.indices.data(),
                                              90, clusters, const_cast<float*>(u.centres.data()), u.centreStride * 4,
                                              q.centres.data(), q.counts.data(), q.bindings.data(), q.sums.data());
      EXPECT_EQ(q.status, 0);
      ExpectMatchesModel(u, Kind::kNormed, q);
    }
  }
  // Bytes: centres in the byte range.
  Data b = Make(16, 6, 40, 50, false, 0.0f);
  for (float& c : b.centres) c = std::fabs(c) * 6.0f;
  b.bytes.resize(size_t(b.numPoints) * b.pointStride);
  for (size_t i = 0; i < b.bytes.size(); ++i) b.bytes[i] = uint8_t(rng_());
  Result r(b.centres.size(), 6, 50);
  r.status = tvxClusterEuclideanu8(b.bytes.data(), b.numPoints, 16, b.pointStride, b.indices.data(), 50, 6,
                                   b.centres.data(), b.centreStride * 4, r.centres.data(), r.counts.data(),
                                   r.bindings.data(), r.sums.data());
  EXPECT_EQ(r.status, 0);
  ExpectMatchesModel(b, Kind::kBytes, r);
}

TEST_F(Cluster, TiesEmptyClustersRepeatsAndZeroDistances) {
  // Six centres on a line; the point 3.5 lies between centres 2 (at 2) and 5 (at 5): equal
  // distance 1.5, bound to 2. Centre 4 is far and stays empty. Point 0 is listed twice.
  const int32_t dim = 2;
  Floats centres = {-9, 0, 0, 0, 2, 0, 10, 0, 50, 0, 5, 0};
  Floats points = {3.5f, 0.0f, 0.0f, 0.0f, 10.0f, 0.0f};
  Words indices = {0, 1, 0, 2};
  Floats out(12, 7.0f), sums(6, 7.0f);
  Words counts(6, 7), bindings(4, 7);
  ASSERT_EQ(tvxClusterEuclideanf32(points.data(), 3, dim, 8, indices.data(), 4, 6, centres.data(), 8, out.data(),
                                   counts.data(), bindings.data(), sums.data()),
            0);
  EXPECT_EQ(bindings, Words({2, 1, 2, 3}));
  EXPECT_EQ(counts, Words({0, 1, 2, 1, 0, 0}));
  EXPECT_EQ(sums, Floats({0.0f, 0.0f, 3.0f, 0.0f, 0.0f, 0.0f}));
  EXPECT_EQ(out, Floats({0, 0, 0, 0, 3.5f, 0, 10, 0, 0, 0, 0, 0}));

  // Normed: a point equal to its centre whose dot product rounds above 1 has distance exactly 0
  // (never the root of a negative number); one that rounds below 1 a tiny distance.
  for (int32_t d : {4, 5, 36}) {
    Floats v(d, 0.0f);
    v[d - 1] = 1.0000001f;  // dot 1.0000002
    Floats next(d);
    uint32_t count = 0, binding = 9, index = 0;
    float sum = -1.0f;
    ASSERT_EQ(tvxClusterEuclideanNormedf32(v.data(), 1, d, d * 4, &index, 1, 1, v.data(), d * 4, next.data(), &count,
                                           &binding, &sum),
              0);
    EXPECT_EQ(sum, 0.0f) << d;
    EXPECT_EQ(count, 1u);
    EXPECT_FLOAT_EQ(next[d - 1], 1.0f);  // renormalised
  }
  std::normal_distribution<float> g;
  for (int round = 0; round < 100; ++round) {
    const int32_t d = round % 2 ? 36 : 5;
    Floats v(d);
    double s = 0;
    for (float& x : v) {
      x = g(rng_);
      s += double(x) * x;
    }
    for (float& x : v) x = float(x / std::sqrt(s));
    Floats next(d);
    uint32_t count = 0, binding = 9, index = 0;
    float sum = -1.0f;
    ASSERT_EQ(tvxClusterEuclideanNormedf32(v.data(), 1, d, d * 4, &index, 1, 1, v.data(), d * 4, next.data(), &count,
                                           &binding, &sum),
              0);
    EXPECT_GE(sum, 0.0f);
    EXPECT_LT(sum, 1e-3f);
  }
}

TEST_F(Cluster, Normed36FormEqualsGeneralForm) {
  const Data d = Make(36, 7, 30, 45, true, 0.3f);
  Result a(d.centres.size(), 7, 45), b(d.centres.size(), 7, 45);
  float* c = const_cast<float*>(d.centres.data());
  a.status = tvxClusterEuclideanNormed36f32(d.points.data(), d.numPoints, d.pointStride * 4, d.indices.data(), 45, 7, c,
                                            d.centreStride * 4, a.centres.data(), a.counts.data(), a.bindings.data(),
                                            a.sums.data());
  b.status = tvxClusterEuclideanNormedf32(d.points.data(), d.numPoints, 36, d.pointStride * 4, d.indices.data(), 45, 7,
                                          c, d.centreStride * 4, b.centres.data(), b.counts.data(), b.bindings.data(),
                                          b.sums.data());
  EXPECT_EQ(a.status, 0);
  EXPECT_TRUE(a == b);
}

TEST_F(Cluster, BadArgumentsReturnMinusOneWithoutWriting) {
  Floats pts(8, 1.0f), centres(8, 1.0f), out(8, 5.0f), sums(2, 5.0f);
  Words idx = {0, 1}, counts(2, 5), bind(2, 5);
  const auto call = [&](int32_t dim, int32_t pointStride, int32_t nIdx, int32_t nClusters, int32_t centreStride,
                        const uint32_t* indices) {
    return tvxClusterEuclideanf32(pts.data(), 2, dim, pointStride, indices, nIdx, nClusters, centres.data(),
                                  centreStride, out.data(), counts.data(), bind.data(), sums.data());
  };
  EXPECT_EQ(call(0, 16, 2, 2, 16, idx.data()), -1);
  EXPECT_EQ(call(4, 16, 0, 2, 16, idx.data()), -1);
  EXPECT_EQ(call(4, 16, 2, 0, 16, idx.data()), -1);
  EXPECT_EQ(call(4, 16, 2, 2, 16, nullptr), -1);
  EXPECT_EQ(call(4, 12, 2, 2, 16, idx.data()), -1);  // stride shorter than a vector
  EXPECT_EQ(call(4, 16, 2, 2, 18, idx.data()), -1);  // stride not whole floats
  EXPECT_EQ(tvxClusterEuclideanu8(nullptr, 2, 4, 4, idx.data(), 2, 2, centres.data(), 16, out.data(), counts.data(),
                                  bind.data(), sums.data()),
            -1);
  EXPECT_EQ(tvxClusterEuclideanNormed36f32(pts.data(), 2, 144, idx.data(), 2, 2, centres.data(), 16, out.data(),
                                           counts.data(), bind.data(), sums.data()),
            -1);
  EXPECT_EQ(out, Floats(8, 5.0f));
  EXPECT_EQ(counts, Words(2, 5));
  EXPECT_EQ(bind, Words(2, 5));
  EXPECT_EQ(call(4, 16, 2, 2, 16, idx.data()), 0);
}

TEST_F(Cluster, SimdEqualsReferenceOnEveryTarget) {
  tvxtest::ForEachTarget([&] {
    for (int32_t dim : {1, 2, 4, 7, 8, 36, 37, 64}) {
      for (int32_t clusters : {1, 3, 8, 17}) {
        SCOPED_TRACE(::testing::Message() << "dim " << dim << " clusters " << clusters);
        // Loose clusters: many near-ties, so any change of summation order would show.
        Data d = Make(dim, clusters, 50, 70, false, 8.0f);
        EXPECT_TRUE(RunPass(d, Kind::kEuclidean, 0) == RunPass(d, Kind::kEuclidean, 1));
        d.bytes.resize(size_t(d.numPoints) * d.pointStride);
        for (auto& v : d.bytes) v = uint8_t(rng_());
        for (float& c : d.centres) c = std::fabs(c) * 5.0f;
        EXPECT_TRUE(RunPass(d, Kind::kBytes, 0) == RunPass(d, Kind::kBytes, 1));
        const Data u = Make(dim, clusters, 50, 70, true, 3.0f);
        EXPECT_TRUE(RunPass(u, Kind::kNormed, 0) == RunPass(u, Kind::kNormed, 1));
      }
    }
  });
}

}  // namespace
