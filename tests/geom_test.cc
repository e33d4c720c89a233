// Homography and affine fitting: the generator and iteration bound, fits recovering known
// transforms (exact, noisy, with outliers, badly scaled), the evaluators' inlier lists and
// strict bounds, the robust fit's fixed rules, affine inversion and the four-point transform.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "cpu/geom.h"
#include "frame/frame.h"
#include "log_capture.h"
#include "tavix/tavix.h"

namespace {

using tvxtest::g_lines;
using H = std::array<float, 9>;

class Geom : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_REFERENCE), 0);
    std::memset(tvxImplTable, 0, sizeof tvxImplTable);
    g_lines.clear();
    tvx_set_log_sink(&tvxtest::Capture);
  }
  void TearDown() override {
    tvx_set_log_sink(nullptr);
    tvx_fail_heap_after_for_test(-1);
  }
};

// Point pairs with strided storage (from: 3 floats apart, to: 2) and an index list.
struct Pairs {
  std::vector<float> from, to;
  std::vector<uint16_t> indices;
  tvxCorrespondences rec{};
  void Add(double x, double y, double u, double v) {
    from.insert(from.end(), {float(x), float(y), -7.0f});
    to.insert(to.end(), {float(u), float(v)});
    indices.push_back(uint16_t(indices.size()));
  }
  const tvxCorrespondences* Record() {
    rec = {from.data(), to.data(), 3, 2, uint32_t(indices.size()), indices.data(), uint32_t(indices.size())};
    return &rec;
  }
};

void Map(const double* h, double x, double y, double* u, double* v) {
  const double w = h[6] * x + h[7] * y + h[8];
  *u = (h[0] * x + h[1] * y + h[2]) / w;
  *v = (h[3] * x + h[4] * y + h[5]) / w;
}

const double kTruth[9] = {1.1, 0.12, 25.0, -0.08, 0.95, -12.0, 2.0e-4, -1.5e-4, 1.0};

Pairs Synthetic(int n, double noise, double outlierShare, uint32_t seed, double extent = 640.0) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> pos(0.0, extent), off(-80.0, 80.0), unit(0.0, 1.0);
  std::normal_distribution<double> gauss(0.0, noise > 0 ? noise : 1.0);
  Pairs p;
  for (int i = 0; i < n; ++i) {
    const double x = pos(rng), y = pos(rng);
    double u, v;
    Map(kTruth, x, y, &u, &v);
    if (unit(rng) < outlierShare) {
      u += off(rng) + 20.0;
      v += off(rng) - 20.0;
    } else if (noise > 0) {
      u += gauss(rng);
      v += gauss(rng);
    }
    p.Add(x, y, u, v);
  }
  return p;
}

// Largest distance between the images of the corners of [0, extent]^2 under h and the truth.
double CornerError(const float* h, double extent = 640.0) {
  double hd[9];
  for (int i = 0; i < 9; ++i) hd[i] = h[i];
  double worst = 0.0;
  for (double x : {0.0, extent})
    for (double y : {0.0, extent}) {
      double u0, v0, u1, v1;
      Map(kTruth, x, y, &u0, &v0);
      Map(hd, x, y, &u1, &v1);
      worst = std::fmax(worst, std::hypot(u1 - u0, v1 - v0));
    }
  return worst;
}

TEST_F(Geom, GeneratorFollowsTheMinimalStandardSequence) {
  EXPECT_EQ(randValue(1), 0);
  const int32_t expected[] = {16807, 282475249, 1622650073, 984943658, 1144108930, 470211272, 101027544};
  for (int32_t e : expected) EXPECT_EQ(randValue(0), e);
  // A seed sets the state; a negative seed advances it like 0.
  randValue(200);
  const int32_t a = randValue(0);
  randValue(200);
  EXPECT_EQ(randValue(-5), a);
  EXPECT_EQ(a, 200 * 16807);
  // Schrage's step never leaves (0, 2^31 - 1), also from the largest state.
  randValue(2147483646);
  EXPECT_EQ(randValue(0), int32_t((2147483646LL * 16807) % 2147483647LL));
}

TEST_F(Geom, IterationBoundOnlyEverLowers) {
  const double bound = std::log(0.005) / std::log(1.0 - std::pow(0.5, 4.0));
  EXPECT_EQ(updateNumIters(0.995, 0.5, 4, 1500), int32_t(std::floor(bound + 0.5)));
  EXPECT_EQ(updateNumIters(0.995, 0.5, 4, 10), 10);  // already below the bound
  EXPECT_EQ(updateNumIters(0.995, 1.0, 4, 1500), 0);  // every sample clean
  EXPECT_EQ(updateNumIters(0.995, 1.7, 4, 1500), 0);  // ratio clamped to 1
  EXPECT_EQ(updateNumIters(2.0, 0.5, 4, 1500), updateNumIters(1.0, 0.5, 4, 1500));
}

TEST_F(Geom, FitsRecoverAnExactHomography) {
  Pairs p = Synthetic(40, 0.0, 0.0, 1);
  H ls{}, dlt{}, dp{};
  tvxGeomHomographyFitf32(p.Record(), ls.data());
  EXPECT_EQ(tvxGeomHomographyFitf32_v2(p.Record(), dlt.data(), 1), 0);
  tvxGeomHomographyFitDPf32C(p.Record(), dp.data());
  for (const H* h : {&ls, &dlt, &dp}) {
    EXPECT_EQ((*h)[8], 1.0f);
    EXPECT_LT(CornerError(h->data()), 0.05);
  }
  // fitOption 0 is the least-squares fit, bit for bit.
  H zero{};
  EXPECT_EQ(tvxGeomHomographyFitf32_v2(p.Record(), zero.data(), 0), 0);
  EXPECT_EQ(zero, ls);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Geom, FitsWithNoiseStayCloseToTheTruth) {
  Pairs p = Synthetic(200, 0.5, 0.0, 2);
  H ls{}, dlt{};
  tvxGeomHomographyFitf32(p.Record(), ls.data());
  ASSERT_EQ(tvxGeomHomographyFitf32_v2(p.Record(), dlt.data(), 7), 0);
  EXPECT_LT(CornerError(ls.data()), 1.0);
  EXPECT_LT(CornerError(dlt.data()), 1.0);
}

TEST_F(Geom, BadlyScaledPointsFallBackToDoublePrecision) {
  // Coordinates near 2e4 put the normal matrix's diagonal over a 1e8 spread, which the
  // single-precision Cholesky refuses; the double-precision refit must still find the truth.
  Pairs p = Synthetic(30, 0.0, 0.0, 3, 20000.0);
  H ls{};
  tvxGeomHomographyFitf32(p.Record(), ls.data());
  EXPECT_EQ(ls[8], 1.0f);
  EXPECT_LT(CornerError(ls.data(), 20000.0), 0.5);
}

TEST_F(Geom, TooFewPairsLeaveZerosOrAreRejected) {
  Pairs p = Synthetic(3, 0.0, 0.0, 4);
  H h;
  h.fill(5.0f);
  tvxGeomHomographyFitf32(p.Record(), h.data());
  EXPECT_EQ(h, H{});
  h.fill(5.0f);
  EXPECT_EQ(tvxGeomHomographyFitf32_v2(p.Record(), h.data(), 1), 3);
  EXPECT_EQ(h[0], 5.0f);  // rejected without a write
  tvxGeomAffineFitf32(p.Record(), h.data());
  EXPECT_NE(h[0], 0.0f);  // three pairs suffice for an affine fit
  Pairs two = Synthetic(2, 0.0, 0.0, 4);
  h.fill(5.0f);
  tvxGeomAffineFitf32(two.Record(), h.data());
  EXPECT_EQ(h, H{});
  // A stride below 2 is refused with the logged condition.
  tvxCorrespondences bad = *p.Record();
  bad.toStride = 1;
  h.fill(5.0f);
  tvxGeomHomographyFitf32(&bad, h.data());
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxGeomHomographyFitf32",
                                            "corrs && homography && corrs->from && corrs->to && corrs->indices && "
                                            "corrs->fromStride > 1 && corrs->toStride > 1"));
  EXPECT_EQ(h[0], 5.0f);
}

TEST_F(Geom, HomographyEvaluatorListsPointIndicesWithStrictBound) {
  // Four points; the index list names them out of order and skips point 1.
  Pairs p;
  const double h2[9] = {2.0, 0.0, 0.0, 0.0, 2.0, 0.0, 0.0, 0.0, 2.0};  // identity scaled by 2: w = 2
  p.Add(0, 0, 0, 0);
  p.Add(5, 5, 100, 100);
  p.Add(1, 2, 1, 3);  // error (0, -1) in the image plane
  p.Add(3, 4, 3, 4);
  p.indices = {3, 2, 0};
  tvxCorrespondences rec = {p.from.data(), p.to.data(), 3, 2, 4, p.indices.data(), 3};
  const float hf[9] = {float(h2[0]), 0, 0, 0, float(h2[4]), 0, 0, 0, float(h2[8])};
  std::vector<uint16_t> in(3, 99);
  std::vector<float> err(3, -1.0f);
  uint32_t n = 77;
  // The pair at distance 1 sits exactly on the bound 1: strict comparison makes it an outlier.
  EXPECT_EQ(tvxGeomHomographyEvaluatef32_v2(&rec, hf, 1.0f, in.data(), err.data(), &n), -1);
  ASSERT_EQ(n, 2u);
  EXPECT_EQ(in[0], 3);
  EXPECT_EQ(in[1], 0);
  EXPECT_EQ(in[2], 99);
  EXPECT_EQ(err[0], 0.0f);
  // Slightly above: every pair passes; the error is ex^2 + ey^2 with w = 2, i.e. 4, not 1.
  EXPECT_EQ(tvxGeomHomographyEvaluatef32_v2(&rec, hf, 1.001f, in.data(), err.data(), &n), 0);
  ASSERT_EQ(n, 3u);
  EXPECT_EQ(in[1], 2);
  EXPECT_EQ(err[1], 4.0f);
  EXPECT_EQ(tvxGeomHomographyEvaluatef32(&rec, hf, 1.001f, in.data(), &n), 0);
  EXPECT_EQ(n, 3u);
  // Rejections return -1 and leave the count.
  n = 77;
  EXPECT_EQ(tvxGeomHomographyEvaluatef32(&rec, hf, -0.5f, in.data(), &n), -1);
  EXPECT_EQ(tvxGeomHomographyEvaluatef32(&rec, hf, NAN, in.data(), &n), -1);
  rec.numIndices = 0;
  EXPECT_EQ(tvxGeomHomographyEvaluatef32(&rec, hf, 1.0f, in.data(), &n), -1);
  EXPECT_EQ(n, 77u);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Geom, AffineFitAndEvaluator) {
  const float a[6] = {0.9f, -0.2f, 14.0f, 0.3f, 1.2f, -6.0f};
  Pairs p;
  std::mt19937 rng(5);
  std::uniform_real_distribution<double> pos(-50.0, 50.0);
  for (int i = 0; i < 12; ++i) {
    const double x = pos(rng), y = pos(rng);
    p.Add(x, y, a[0] * x + a[1] * y + a[2], a[3] * x + a[4] * y + a[5] + (i == 7 ? 3.0 : 0.0));
  }
  p.to[7 * 2 + 1] -= 3.0f;  // fit on exact data first
  H fit{};
  tvxGeomAffineFitf32(p.Record(), fit.data());
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(fit[i], a[i], 1e-3f * (1.0f + std::fabs(a[i])));
  EXPECT_EQ(fit[6], 0.0f);
  EXPECT_EQ(fit[7], 0.0f);
  EXPECT_EQ(fit[8], 1.0f);
  p.to[7 * 2 + 1] += 3.0f;  // point 7 now misses by 3
  std::vector<uint16_t> in(12);
  uint32_t n = 0;
  const float am[9] = {a[0], a[1], a[2], a[3], a[4], a[5], 0, 0, 1};
  EXPECT_EQ(tvxGeomAffineEvaluatef32(p.Record(), am, 0.01f, in.data(), &n), -1);
  ASSERT_EQ(n, 11u);
  EXPECT_EQ(in[6], 6);
  EXPECT_EQ(in[7], 8);
  EXPECT_EQ(tvxGeomAffineEvaluatef32(p.Record(), am, 9.5f, in.data(), &n), 0);
  EXPECT_EQ(n, 12u);
  EXPECT_EQ(tvxGeomAffineEvaluatef32(p.Record(), am, 0.01f, nullptr, &n), -1);
}

TEST_F(Geom, AffineInversion) {
  const float m[6] = {2.0f, 0.5f, -3.0f, -1.0f, 1.5f, 7.0f};
  float mi[9];
  ASSERT_EQ(tvxInvertAffineTransformf32(m, mi), 0);
  // Mi * M = identity on the 2 x 3 part.
  const float full[9] = {m[0], m[1], m[2], m[3], m[4], m[5], 0, 0, 1};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      float s = 0;
      for (int k = 0; k < 3; ++k) s += mi[i * 3 + k] * full[k * 3 + j];
      EXPECT_NEAR(s, i == j ? 1.0f : 0.0f, 1e-5f) << i << j;
    }
  const float singular[6] = {1.0f, 2.0f, 5.0f, 2.0f, 4.0f, -1.0f};
  ASSERT_EQ(tvxInvertAffineTransformf32(singular, mi), 0);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(mi[i], 0.0f);
  EXPECT_EQ(std::vector<float>(mi + 6, mi + 9), (std::vector<float>{0, 0, 1}));
  EXPECT_EQ(tvxInvertAffineTransformf32(nullptr, mi), 3);
}

TEST_F(Geom, PerspectiveTransformOfFourPairs) {
  const double pts[8] = {10, 20, 600, 35, 580, 410, 30, 450};
  float src[8], dst[8];
  for (int i = 0; i < 4; ++i) {
    double u, v;
    Map(kTruth, pts[2 * i], pts[2 * i + 1], &u, &v);
    src[2 * i] = float(pts[2 * i]);
    src[2 * i + 1] = float(pts[2 * i + 1]);
    dst[2 * i] = float(u);
    dst[2 * i + 1] = float(v);
  }
  float h[9];
  tvxGetPerspectiveTransformf32(src, dst, h);
  EXPECT_EQ(h[8], 1.0f);
  EXPECT_LT(CornerError(h), 0.05);
  tvxGetPerspectiveTransformf32(src, nullptr, h);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxGetPerspectiveTransformf32", "src1 && src2 && transformCoefficient"));
}

TEST_F(Geom, RobustFitRecoversTheTruthAmongOutliers) {
  for (uint32_t option : {0u, 1u}) {
    Pairs p = Synthetic(500, 0.5, 0.3, 6);
    H h{}, again{};
    ASSERT_EQ(tvxGeomHomographyRobustFitf32_v2(p.Record(), h.data(), 2.0f, option), 0);
    EXPECT_LT(CornerError(h.data()), 2.0) << option;
    // Seeded at every call: a second run gives the same bits.
    ASSERT_EQ(tvxGeomHomographyRobustFitf32_v2(p.Record(), again.data(), 2.0f, option), 0);
    EXPECT_EQ(h, again);
  }
  // The legacy form is the fitOption 0 run.
  Pairs p = Synthetic(120, 0.3, 0.25, 7);
  H a{}, b{};
  ASSERT_EQ(tvxGeomHomographyRobustFitf32(p.Record(), a.data(), 1.5f), 0);
  ASSERT_EQ(tvxGeomHomographyRobustFitf32_v2(p.Record(), b.data(), 1.5f, 0), 0);
  EXPECT_EQ(a, b);
  // A plain least-squares fit over the same pairs is pulled far off by the outliers.
  H ls{};
  tvxGeomHomographyFitf32(p.Record(), ls.data());
  EXPECT_GT(CornerError(ls.data()), 5.0);
  EXPECT_LT(CornerError(a.data()), 2.0);
}

TEST_F(Geom, RobustFitOfFourPairsIsTheDirectFit) {
  Pairs p = Synthetic(4, 2.0, 0.0, 8);
  H robust{}, direct{};
  ASSERT_EQ(tvxGeomHomographyRobustFitf32_v2(p.Record(), robust.data(), 1.0f, 1), 0);
  ASSERT_EQ(tvxGeomHomographyFitf32_v2(p.Record(), direct.data(), 1), 0);
  EXPECT_EQ(robust, direct);
}

TEST_F(Geom, NegativeThresholdMeansSquaredThree) {
  // 60 exact pairs and 20 whose targets miss by sqrt 2 (squared error 2, w = 1): they are
  // inliers for a squared threshold of 3 and outliers for 1, which changes the refit.
  const double affine[9] = {1.05, 0.1, 4.0, -0.05, 0.98, 9.0, 0.0, 0.0, 1.0};
  Pairs p;
  std::mt19937 rng(9);
  std::uniform_real_distribution<double> pos(0.0, 300.0);
  for (int i = 0; i < 80; ++i) {
    const double x = pos(rng), y = pos(rng);
    double u, v;
    Map(affine, x, y, &u, &v);
    p.Add(x, y, u + (i % 4 == 0 ? 1.0 : 0.0), v + (i % 4 == 0 ? 1.0 : 0.0));
  }
  H negative{}, three{}, one{};
  ASSERT_EQ(tvxGeomHomographyRobustFitf32_v2(p.Record(), negative.data(), -1.0f, 0), 0);
  ASSERT_EQ(tvxGeomHomographyRobustFitf32_v2(p.Record(), three.data(), std::sqrt(3.0f), 0), 0);
  ASSERT_EQ(tvxGeomHomographyRobustFitf32_v2(p.Record(), one.data(), 1.0f, 0), 0);
  EXPECT_EQ(negative, three);
  EXPECT_NE(negative, one);
  EXPECT_NEAR(one[2], 4.0f, 1e-2f);  // the clean refit
}

TEST_F(Geom, RobustFitRejectionsAndMissingScratch) {
  Pairs p = Synthetic(50, 0.0, 0.0, 10);
  H h;
  h.fill(5.0f);
  tvxCorrespondences rec = *p.Record();
  rec.numIndices = 3;
  EXPECT_EQ(tvxGeomHomographyRobustFitf32_v2(&rec, h.data(), 1.0f, 0), 3);
  rec = *p.Record();
  rec.indices = nullptr;
  EXPECT_EQ(tvxGeomHomographyRobustFitf32_v2(&rec, h.data(), 1.0f, 0), 3);
  rec = *p.Record();
  rec.numCorrespondences = 0;
  EXPECT_EQ(tvxGeomHomographyRobustFitf32(&rec, h.data(), 1.0f), 3);
  EXPECT_EQ(h[0], 5.0f);
  tvx_fail_heap_after_for_test(0);
  EXPECT_EQ(tvxGeomHomographyRobustFitf32_v2(p.Record(), h.data(), 1.0f, 0), 5);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(h[0], 5.0f);
  // Fewer than four distinct points to draw from: no sample, zeros and status 3.
  rec = *p.Record();
  rec.numCorrespondences = 3;
  EXPECT_EQ(tvxGeomHomographyRobustFitf32_v2(&rec, h.data(), 1.0f, 0), 3);
  EXPECT_EQ(h, H{});
  EXPECT_TRUE(g_lines.empty());
}

}  // namespace
