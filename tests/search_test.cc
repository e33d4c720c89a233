// Descriptor search (linear, KD-tree, k-means tree descent) and the two-class SVM decision:
// results against brute force computed here, the stated recall of bounded KD-tree queries,
// argument rejection, and SIMD against reference on every compiled target.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"
#include "simd_check.h"

namespace {

constexpr uint32_t kDim = 36;

std::vector<int8_t> RandomDescriptors(uint32_t n, uint32_t stride, std::mt19937& rng, int range = 127) {
  std::vector<int8_t> v(size_t{n} * stride + 1, 0x55);
  std::uniform_int_distribution<int> dist(-range, range);
  for (uint32_t i = 0; i < n; ++i)
    for (uint32_t k = 0; k < kDim; ++k) v[size_t{i} * stride + k] = static_cast<int8_t>(dist(rng));
  return v;
}

// Queries near database entries: a copy of entry i with small noise.
std::vector<int8_t> NearQueries(const std::vector<int8_t>& db, uint32_t stride, uint32_t n, uint32_t count,
                                std::mt19937& rng, int noise) {
  std::vector<int8_t> q(size_t{count} * kDim);
  for (uint32_t i = 0; i < count; ++i) {
    const int8_t* d = db.data() + size_t(rng() % n) * stride;
    for (uint32_t k = 0; k < kDim; ++k)
      q[i * kDim + k] = static_cast<int8_t>(std::clamp<int>(d[k] + static_cast<int>(rng() % (2 * noise + 1)) - noise, -128, 127));
  }
  return q;
}

int64_t Dist2(const int8_t* a, const int8_t* b) {
  int64_t s = 0;
  for (uint32_t k = 0; k < kDim; ++k) s += int64_t(a[k] - b[k]) * (a[k] - b[k]);
  return s;
}

class Search : public ::testing::Test {
 protected:
  void SetUp() override {
    tvxtest::g_lines.clear();
    tvx_set_log_sink(&tvxtest::Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
};

struct Packed {
  std::vector<int16_t> values;
  std::vector<float> inv;
  Packed(const std::vector<int8_t>& db, uint32_t n, uint32_t stride)
      : values(((n + 7) / 8) * 288, 0x7777), inv(((n + 7) / 8) * 8, -5.0f) {
    EXPECT_EQ(tvxLinearSearchPrepare8x36s8(db.data(), n, stride, values.data(), inv.data()), 0);
  }
};

// The packed layout holds every element where the search reads it, zero past the last
// descriptor, and the inverse lengths; the search returns the best normalised match computed
// here in double precision (the index wherever the best is clear by a margin).
TEST_F(Search, LinearSearchEqualsBruteForce) {
  std::mt19937 rng(3);
  for (uint32_t n : {1u, 7u, 8u, 9u, 100u, 1001u}) {
    const uint32_t stride = 36 + n % 5;
    std::vector<int8_t> db = RandomDescriptors(n, stride, rng);
    if (n > 8) std::memset(db.data() + 5 * stride, 0, kDim);  // an all-zero descriptor scores 0
    const Packed p(db, n, stride);
    for (uint32_t i = 0; i < ((n + 7) / 8) * 8; ++i)
      for (uint32_t k = 0; k < kDim; ++k) {
        const int16_t expect = i < n ? db[size_t{i} * stride + k] : 0;
        ASSERT_EQ(p.values[(i / 8) * 288 + (k / 2) * 16 + (i % 8) * 2 + k % 2], expect) << i << " " << k;
      }
    for (uint32_t i = 0; i < n; ++i) {
      double len = 0;
      for (uint32_t k = 0; k < kDim; ++k) len += double(db[size_t{i} * stride + k]) * db[size_t{i} * stride + k];
      EXPECT_NEAR(p.inv[i], len ? 1 / std::sqrt(len) : 0.0, 1e-7);
    }
    for (uint32_t i = n; i < p.inv.size(); ++i) EXPECT_EQ(p.inv[i], 0.0f);

    const uint32_t nq = 50;
    std::vector<int8_t> q = RandomDescriptors(nq, kDim, rng);
    std::memset(q.data(), 0, kDim);  // an all-zero query: every score 0, the first index
    std::vector<int32_t> idx(nq, -7);
    std::vector<float> score(nq);
    ASSERT_EQ(tvxLinearSearch8x36s8(p.values.data(), p.inv.data(), n, q.data(), nq, 0, idx.data(), score.data()), 0);
    EXPECT_EQ(idx[0], 0);
    EXPECT_EQ(score[0], 0.0f);
    for (uint32_t j = 1; j < nq; ++j) {
      std::vector<double> cos(n);
      for (uint32_t i = 0; i < n; ++i) {
        double dot = 0, la = 0, lb = 0;
        for (uint32_t k = 0; k < kDim; ++k) {
          const double a = q[j * kDim + k], b = db[size_t{i} * stride + k];
          dot += a * b, la += a * a, lb += b * b;
        }
        cos[i] = lb ? dot / std::sqrt(la * lb) : 0;
      }
      const uint32_t best = static_cast<uint32_t>(std::max_element(cos.begin(), cos.end()) - cos.begin());
      EXPECT_NEAR(score[j], cos[best], 1e-5);
      std::vector<double> sorted = cos;
      std::sort(sorted.rbegin(), sorted.rend());
      if (n == 1 || sorted[0] - sorted[1] > 1e-5) {
        EXPECT_EQ(idx[j], static_cast<int32_t>(best)) << "query " << j;
      }
    }
  }
  EXPECT_TRUE(tvxtest::g_lines.empty());
}

struct Tree {
  void* handle = nullptr;
  Tree(const std::vector<int8_t>& db, uint32_t n, uint32_t stride) {
    EXPECT_EQ(tvxKDTreeCreate36s8f32(db.data(), n, stride, &handle), 0);
  }
  ~Tree() {
    if (handle) {
      EXPECT_EQ(tvxKDTreeDestroy36s8f32(handle), 0);
    }
  }
};

// Exact queries (maxChecks 0) return the k nearest of a brute-force search, ties in index
// order, for sizes around the leaf size, duplicates and k beyond the database; the tree keeps
// its own copy of the descriptors.
TEST_F(Search, KDTreeExactEqualsBruteForce) {
  std::mt19937 rng(5);
  for (uint32_t n : {1u, 5u, 8u, 9u, 17u, 300u, 3000u}) {
    const uint32_t stride = 36 + (n % 3) * 4;
    std::vector<int8_t> db = RandomDescriptors(n, stride, rng, n > 100 ? 20 : 127);
    for (uint32_t i = 1; i < n; i += 7) std::memcpy(&db[size_t{i} * stride], &db[size_t(i / 2) * stride], kDim);
    Tree tree(db, n, stride);
    std::vector<int8_t> original = db;
    std::fill(db.begin(), db.end(), 0);  // the tree must not read the caller's copy any more
    const uint32_t nq = 40;
    std::vector<int8_t> q = NearQueries(original, stride, n, nq, rng, 6);
    for (uint32_t k : {1u, 4u, 12u}) {
      std::vector<int32_t> idx(nq * k, -9);
      std::vector<float> dist(nq * k);
      ASSERT_EQ(tvxKDTreeQuery36s8f32(tree.handle, q.data(), nq, 0, k, 0, idx.data(), dist.data()), 0);
      for (uint32_t j = 0; j < nq; ++j) {
        std::vector<std::pair<int64_t, int32_t>> all;
        for (uint32_t i = 0; i < n; ++i)
          all.emplace_back(Dist2(&q[j * kDim], &original[size_t{i} * stride]), static_cast<int32_t>(i));
        std::sort(all.begin(), all.end());
        for (uint32_t r = 0; r < k; ++r) {
          SCOPED_TRACE(testing::Message() << "n " << n << " k " << k << " query " << j << " rank " << r);
          if (r < n) {
            EXPECT_EQ(idx[j * k + r], all[r].second);
            EXPECT_EQ(dist[j * k + r], static_cast<float>(all[r].first));
          } else {
            EXPECT_EQ(idx[j * k + r], -1);
            EXPECT_EQ(dist[j * k + r], -1.0f);
          }
        }
      }
    }
  }
}

// Bounded queries on 10,000 random descriptors with queries made from database entries: every
// result is a true distance of the index returned, sorted, and the nearest neighbour is found
// at least as often as the API page states (99.8% with 32 checks at +/-10, 94% with 128 checks
// at +/-30; the thresholds leave a little room for the different draws here).
TEST_F(Search, KDTreeBoundedChecksReachStatedRecall) {
  std::mt19937 rng(9);
  const uint32_t n = 10000, nq = 500;
  const std::vector<int8_t> db = RandomDescriptors(n, kDim, rng, 60);
  Tree tree(db, n, kDim);
  struct Case { int noise; uint32_t checks; uint32_t permille; };
  for (const Case c : {Case{10, 32, 985}, Case{30, 128, 910}}) {
    const std::vector<int8_t> q = NearQueries(db, kDim, n, nq, rng, c.noise);
    std::vector<int32_t> idx(nq * 2);
    std::vector<float> dist(nq * 2);
    ASSERT_EQ(tvxKDTreeQuery36s8f32(tree.handle, q.data(), nq, kDim, 2, c.checks, idx.data(), dist.data()), 0);
    uint32_t hits = 0;
    for (uint32_t j = 0; j < nq; ++j) {
      int64_t best = INT64_MAX;
      for (uint32_t i = 0; i < n; ++i) best = std::min(best, Dist2(&q[j * kDim], &db[size_t{i} * kDim]));
      for (uint32_t r = 0; r < 2; ++r) {
        ASSERT_GE(idx[j * 2 + r], 0);
        EXPECT_EQ(dist[j * 2 + r], static_cast<float>(Dist2(&q[j * kDim], &db[size_t(idx[j * 2 + r]) * kDim])));
      }
      EXPECT_LE(dist[j * 2], dist[j * 2 + 1]);
      hits += dist[j * 2] == static_cast<float>(best);
    }
    EXPECT_GE(hits * 1000, nq * c.permille) << hits << " of " << nq << " with " << c.checks << " checks";
  }
}

TEST_F(Search, KDTreeRejectsBadArgumentsAndMissingMemory) {
  std::mt19937 rng(1);
  const std::vector<int8_t> db = RandomDescriptors(20, kDim, rng);
  void* h = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(tvxKDTreeCreate36s8f32(db.data(), 0, 0, &h), 3);
  EXPECT_EQ(tvxKDTreeCreate36s8f32(db.data(), 20, 35, &h), 3);
  EXPECT_EQ(h, reinterpret_cast<void*>(0x1));
  tvx_fail_heap_after_for_test(0);
  EXPECT_EQ(tvxKDTreeCreate36s8f32(db.data(), 20, 0, &h), 5);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(h, nullptr);
  Tree tree(db, 20, kDim);
  int32_t idx[3] = {-9, -9, -9};
  float dist[3] = {-9, -9, -9};
  EXPECT_EQ(tvxKDTreeQuery36s8f32(tree.handle, db.data(), 1, 0, 0, 0, idx, dist), 3);
  EXPECT_EQ(tvxKDTreeQuery36s8f32(nullptr, db.data(), 1, 0, 3, 0, idx, dist), 3);
  EXPECT_EQ(tvxKDTreeQuery36s8f32(tree.handle, db.data(), 1, 20, 3, 0, idx, dist), 3);
  int32_t notATree[64] = {};
  EXPECT_EQ(tvxKDTreeQuery36s8f32(notATree, db.data(), 1, 0, 3, 0, idx, dist), 3);
  tvx_fail_heap_after_for_test(0);
  EXPECT_EQ(tvxKDTreeQuery36s8f32(tree.handle, db.data(), 1, 0, 3, 0, idx, dist), 5);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(idx[0], -9);
  EXPECT_EQ(dist[2], -9.0f);
  EXPECT_EQ(tvxKDTreeDestroy36s8f32(nullptr), 3);
  EXPECT_EQ(tvxKDTreeDestroy36s8f32(notATree), 3);
}

// A caller-built two-level tree: the descent equals the nearest centre chosen level by level
// here; entries that do not lead to a later node end the descent (cycles cannot loop).
TEST_F(Search, KMeansTreeDescentEqualsDirectDescent) {
  std::mt19937 rng(13);
  const uint32_t numNodes = 11;
  const std::vector<int8_t> centres = RandomDescriptors(numNodes * 10, kDim, rng);
  std::vector<int32_t> children(numNodes * 10);
  for (uint32_t b = 0; b < 10; ++b) children[b] = static_cast<int32_t>(1 + b);  // root -> nodes 1..10
  for (uint32_t n = 1; n < numNodes; ++n)
    for (uint32_t b = 0; b < 10; ++b) children[n * 10 + b] = -static_cast<int32_t>(n * 10 + b) - 1;
  children[3 * 10 + 4] = 3;   // a self-loop ends at node 3 with result 3
  children[7 * 10 + 2] = 99;  // past the last node: result 99
  const uint32_t nq = 300;
  const std::vector<int8_t> q = RandomDescriptors(nq, 40, rng);
  std::vector<int32_t> leaves(nq);
  std::vector<uint32_t> dist(nq);
  ASSERT_EQ(tvxKMeansTreeSearch36x10s8(centres.data(), children.data(), numNodes, q.data(), nq, 40, leaves.data(),
                                       dist.data()), 0);
  for (uint32_t j = 0; j < nq; ++j) {
    auto nearest = [&](uint32_t node, int64_t& d) {
      uint32_t best = 0;
      d = INT64_MAX;
      for (uint32_t b = 0; b < 10; ++b) {
        const int64_t t = Dist2(&q[j * 40], &centres[(node * 10 + b) * kDim]);
        if (t < d) d = t, best = b;
      }
      return best;
    };
    int64_t d;
    const uint32_t node = 1 + nearest(0, d);
    const uint32_t b = nearest(node, d);
    EXPECT_EQ(leaves[j], children[node * 10 + b]);
    EXPECT_EQ(dist[j], static_cast<uint32_t>(d));
  }
  std::vector<int32_t> self(10, 0);  // every entry 0: the root's result is 0
  int32_t leaf = 5;
  uint32_t dd = 0;
  ASSERT_EQ(tvxKMeansTreeSearch36x10s8(centres.data(), self.data(), 1, q.data(), 1, 0, &leaf, &dd), 0);
  EXPECT_EQ(leaf, 0);
}

// Decisions equal sum alpha_i K(sv_i, x) - rho computed here in double precision, and the class
// follows its sign.
TEST_F(Search, SvmDecisionEqualsDirectSum) {
  std::mt19937 rng(17);
  std::uniform_real_distribution<float> u(-1.f, 1.f);
  for (uint32_t dim : {1u, 3u, 4u, 36u, 37u}) {
    for (uint32_t kernel : {0u, 1u}) {
      const uint32_t nsv = 23, ns = 40, svStride = dim * 4 + 8;
      std::vector<float> sv(nsv * svStride / 4), alphas(nsv), x(ns * dim);
      for (float& v : sv) v = u(rng);
      for (float& v : alphas) v = u(rng);
      for (float& v : x) v = u(rng);
      const float rho = 0.3f, gamma = 0.7f;
      std::vector<float> dec(ns);
      std::vector<int32_t> cls(ns, 7);
      ASSERT_EQ(tvxSVMPredict2Classf32(sv.data(), nsv, svStride, dim, alphas.data(), rho, kernel, gamma, x.data(), ns, 0,
                                       dec.data(), cls.data()), 0);
      for (uint32_t s = 0; s < ns; ++s) {
        double sum = -rho;
        for (uint32_t i = 0; i < nsv; ++i) {
          double k = 0;
          for (uint32_t e = 0; e < dim; ++e) {
            const double a = sv[i * svStride / 4 + e], b = x[s * dim + e];
            k += kernel ? (a - b) * (a - b) : a * b;
          }
          sum += alphas[i] * (kernel ? std::exp(-gamma * k) : k);
        }
        EXPECT_NEAR(dec[s], sum, 1e-5 * (1 + std::fabs(sum))) << dim << " " << kernel;
        EXPECT_EQ(cls[s], dec[s] > 0 ? 0 : 1);
      }
    }
  }
  float one = 1, dec = 5;
  int32_t cls = 5;
  EXPECT_EQ(tvxSVMPredict2Classf32(&one, 1, 0, 1, &one, 0, 2, 1, &one, 1, 0, &dec, &cls), 3);
  EXPECT_EQ(tvxSVMPredict2Classf32(&one, 1, 2, 1, &one, 0, 0, 1, &one, 1, 0, &dec, &cls), 3);
  EXPECT_EQ(dec, 5.0f);
  EXPECT_EQ(cls, 5);
}

// Every searching entry's SIMD variant equals the reference bit for bit on every target.
TEST_F(Search, SimdMatchesReferenceOnEveryTarget) {
  std::mt19937 rng(21);
  for (uint32_t n : {1u, 9u, 64u, 777u}) {
    const std::vector<int8_t> db = RandomDescriptors(n, 37, rng, n > 64 ? 128 : 3);
    const Packed p(db, n, 37);
    const uint32_t nq = 33;
    const std::vector<int8_t> q = RandomDescriptors(nq, 39, rng, 128);
    std::vector<int32_t> ri(nq);
    std::vector<float> rs(nq);
    ASSERT_EQ(tvxLinearSearch8x36s8C(p.values.data(), p.inv.data(), n, q.data(), nq, 39, ri.data(), rs.data()), 0);
    Tree tree(db, n, 37);
    const uint32_t k = 5;
    std::vector<int32_t> rki(nq * k);
    std::vector<float> rkd(nq * k);
    ASSERT_EQ(tvxKDTreeQuery36s8f32C(tree.handle, q.data(), nq, 39, k, n % 2 ? 16 : 0, rki.data(), rkd.data()), 0);
    std::vector<int32_t> children(10 * n);
    for (int32_t& c : children) c = static_cast<int32_t>(rng() % (n + 3)) - 1;
    std::vector<int8_t> centres = RandomDescriptors(10 * n, kDim, rng, 128);
    centres.resize(size_t{n} * 360);
    std::vector<int32_t> rl(nq);
    std::vector<uint32_t> rd(nq);
    ASSERT_EQ(tvxKMeansTreeSearch36x10s8C(centres.data(), children.data(), n, q.data(), nq, 39, rl.data(), rd.data()), 0);
    tvxtest::ForEachTarget([&] {
      std::vector<int32_t> vi(nq), vki(nq * k), vl(nq);
      std::vector<float> vs(nq), vkd(nq * k);
      std::vector<uint32_t> vd(nq);
      ASSERT_EQ(tvxLinearSearch8x36s8V(p.values.data(), p.inv.data(), n, q.data(), nq, 39, vi.data(), vs.data()), 0);
      EXPECT_EQ(vi, ri);
      EXPECT_EQ(std::memcmp(vs.data(), rs.data(), nq * 4), 0);
      ASSERT_EQ(tvxKDTreeQuery36s8f32V(tree.handle, q.data(), nq, 39, k, n % 2 ? 16 : 0, vki.data(), vkd.data()), 0);
      EXPECT_EQ(vki, rki);
      EXPECT_EQ(vkd, rkd);
      ASSERT_EQ(tvxKMeansTreeSearch36x10s8V(centres.data(), children.data(), n, q.data(), nq, 39, vl.data(), vd.data()),
                0);
      EXPECT_EQ(vl, rl);
      EXPECT_EQ(vd, rd);
    });
  }
  for (uint32_t dim : {1u, 5u, 8u, 36u, 63u}) {
    std::uniform_real_distribution<float> u(-2.f, 2.f);
    const uint32_t nsv = 31, ns = 17;
    std::vector<float> sv(nsv * (dim + 1)), alphas(nsv), x(ns * (dim + 3));
    for (float& v : sv) v = u(rng);
    for (float& v : alphas) v = u(rng);
    for (float& v : x) v = u(rng);
    for (uint32_t kernel : {0u, 1u}) {
      std::vector<float> rdec(ns), vdec(ns);
      std::vector<int32_t> rc(ns), vc(ns);
      ASSERT_EQ(tvxSVMPredict2Classf32C(sv.data(), nsv, (dim + 1) * 4, dim, alphas.data(), 0.1f, kernel, 0.2f, x.data(),
                                        ns, (dim + 3) * 4, rdec.data(), rc.data()), 0);
      tvxtest::ForEachTarget([&] {
        ASSERT_EQ(tvxSVMPredict2Classf32V(sv.data(), nsv, (dim + 1) * 4, dim, alphas.data(), 0.1f, kernel, 0.2f,
                                          x.data(), ns, (dim + 3) * 4, vdec.data(), vc.data()), 0);
        EXPECT_EQ(std::memcmp(vdec.data(), rdec.data(), ns * 4), 0) << dim << " " << kernel;
        EXPECT_EQ(vc, rc);
      });
    }
  }
}

}  // namespace
