// Pose family: evaluation against direct projection, the Gauss-Newton step's fixed rules
// (median, failure on an exact pose, scratch), refinement recovering a known pose, the
// three-point solver, and the SE(2) and ICP terms against direct models in this file (with the
// SIMD tier of the SE(2) sums against its reference on every target).
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"
#include "simd_check.h"
#include "tavix/tavix.h"

namespace {

using tvxtest::g_lines;
using Pose = std::array<float, 12>;

class PoseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_REFERENCE), 0);
    std::memset(tvxImplTable, 0, sizeof tvxImplTable);
    g_lines.clear();
    tvx_set_log_sink(&tvxtest::Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
};

// Rotation about a unit axis by angle (Rodrigues), as a pose with translation t.
Pose MakePose(double ax, double ay, double az, double angle, double tx, double ty, double tz) {
  const double n = std::sqrt(ax * ax + ay * ay + az * az);
  ax /= n, ay /= n, az /= n;
  const double c = std::cos(angle), s = std::sin(angle), C = 1 - c;
  const double r[9] = {c + ax * ax * C,      ax * ay * C - az * s, ax * az * C + ay * s,
                       ay * ax * C + az * s, c + ay * ay * C,      ay * az * C - ax * s,
                       az * ax * C - ay * s, az * ay * C + ax * s, c + az * az * C};
  return {float(r[0]), float(r[1]), float(r[2]), float(tx), float(r[3]), float(r[4]),
          float(r[5]), float(ty), float(r[6]), float(r[7]), float(r[8]), float(tz)};
}

void Project(const Pose& p, const double* X, double* u, double* v) {
  const double z = p[8] * X[0] + p[9] * X[1] + p[10] * X[2] + p[11];
  *u = (p[0] * X[0] + p[1] * X[1] + p[2] * X[2] + p[3]) / z;
  *v = (p[4] * X[0] + p[5] * X[1] + p[6] * X[2] + p[7]) / z;
}

struct Scene {
  std::vector<float> from, to;  // from: 4 floats apart, to: 3
  std::vector<uint16_t> indices;
  tvxCorrespondences rec{};
  const tvxCorrespondences* Record() {
    rec = {from.data(), to.data(), 4, 3, uint32_t(indices.size()), indices.data(), uint32_t(indices.size())};
    return &rec;
  }
};

const Pose kTruth = MakePose(0.3, -0.8, 0.2, 0.35, 0.4, -0.2, 0.3);

// Points in front of the camera of kTruth, observed with Gaussian noise and a share of outliers.
Scene MakeScene(int n, double noise, double outliers, uint32_t seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> xy(-1.5, 1.5), depth(3.0, 7.0), unit(0.0, 1.0);
  std::normal_distribution<double> gauss(0.0, noise > 0 ? noise : 1.0);
  Scene s;
  const Pose& p = kTruth;
  for (int i = 0; i < n; ++i) {
    // A camera-frame point mapped back to the world by the inverse pose.
    const double c[3] = {xy(rng), xy(rng), depth(rng)};
    const double d[3] = {c[0] - p[3], c[1] - p[7], c[2] - p[11]};
    const double X[3] = {p[0] * d[0] + p[4] * d[1] + p[8] * d[2], p[1] * d[0] + p[5] * d[1] + p[9] * d[2],
                         p[2] * d[0] + p[6] * d[1] + p[10] * d[2]};
    double u, v;
    Project(p, X, &u, &v);
    if (unit(rng) < outliers) {
      u += 0.2 + unit(rng) * 0.2;
      v -= 0.3;
    } else if (noise > 0) {
      u += gauss(rng);
      v += gauss(rng);
    }
    s.from.insert(s.from.end(), {float(X[0]), float(X[1]), float(X[2]), 99.0f});
    s.to.insert(s.to.end(), {float(u), float(v), -1.0f});
    s.indices.push_back(uint16_t(i));
  }
  return s;
}

double PoseDistance(const float* a, const float* b) {
  double d = 0;
  for (int i = 0; i < 12; ++i) d = std::fmax(d, std::fabs(double(a[i]) - b[i]));
  return d;
}

TEST_F(PoseTest, EvaluationMatchesDirectProjection) {
  Scene s = MakeScene(10, 0.0, 0.0, 1);
  s.to[3 * 4] += 0.1f;  // point 4 off by 0.1 in u
  s.indices = {9, 4, 0, 2};
  const uint32_t n = 4;
  std::vector<float> proj(2 * n), res(2 * n), iz(n), err(n);
  const float rms = tvxGeomPoseEvaluateErrorf32(s.Record(), kTruth.data(), proj.data(), res.data(), iz.data(), err.data());
  double sum = 0;
  for (uint32_t k = 0; k < n; ++k) {
    const uint16_t p = s.indices[k];
    const double X[3] = {s.from[4 * p], s.from[4 * p + 1], s.from[4 * p + 2]};
    double u, v;
    Project(kTruth, X, &u, &v);
    EXPECT_NEAR(proj[k], u, 1e-5);
    EXPECT_NEAR(proj[n + k], v, 1e-5);
    EXPECT_NEAR(res[k], s.to[3 * p] - u, 1e-5);
    EXPECT_NEAR(res[n + k], s.to[3 * p + 1] - v, 1e-5);
    EXPECT_NEAR(err[k], res[k] * res[k] + res[n + k] * res[n + k], 1e-6);
    EXPECT_GT(iz[k], 0.0f);
    sum += err[k];
  }
  EXPECT_NEAR(rms, std::sqrt(sum / n), 1e-5);
  EXPECT_NEAR(rms, 0.05, 1e-4);  // only point 4 misses, by 0.1
  std::vector<uint16_t> in(n, 77);
  uint32_t count = 0;
  EXPECT_EQ(tvxGeomPoseEvaluatef32(s.Record(), kTruth.data(), 1e-4f, in.data(), &count), -1);
  ASSERT_EQ(count, 3u);
  EXPECT_EQ((std::vector<uint16_t>(in.begin(), in.begin() + 3)), (std::vector<uint16_t>{9, 0, 2}));
  EXPECT_EQ(tvxGeomPoseEvaluatef32(s.Record(), kTruth.data(), 0.0101f, in.data(), &count), 0);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(tvxGeomPoseEvaluatef32(s.Record(), nullptr, 1.0f, in.data(), &count), -1);
  EXPECT_EQ(tvxGeomPoseEvaluateErrorf32(s.Record(), kTruth.data(), nullptr, res.data(), iz.data(), err.data()), -1.0f);
  s.indices.clear();
  EXPECT_EQ(tvxGeomPoseEvaluateErrorf32(s.Record(), kTruth.data(), proj.data(), res.data(), iz.data(), err.data()), 0.0f);
  EXPECT_EQ(tvxGeomPoseEvaluatef32(s.Record(), kTruth.data(), 1.0f, in.data(), &count), 0);
  EXPECT_EQ(count, 0u);
}

TEST_F(PoseTest, ExactPoseStopsTheStepAndTheRefinement) {
  // Points projected exactly at integer-friendly values give zero errors: c^2 = 0, step fails.
  const uint32_t n = 8;
  std::vector<float> proj(2 * n, 0.25f), res(2 * n, 0.0f), iz(n, 0.5f), err(n, 0.0f);
  float update[12];
  std::fill(update, update + 12, 9.0f);
  EXPECT_EQ(tvxGeomPoseUpdatef32(proj.data(), res.data(), iz.data(), err.data(), n, update), 1);
  EXPECT_EQ(update[0], 9.0f);
  Pose pose = kTruth;
  EXPECT_EQ(tvxGeomPoseOptimizeGNf32(proj.data(), res.data(), iz.data(), err.data(), n, pose.data()), 1);
  EXPECT_EQ(pose, kTruth);
  EXPECT_EQ(tvxGeomPoseUpdatef32(proj.data(), res.data(), iz.data(), err.data(), 0, update), -1);

  // A scene whose observations are exactly representable reprojections: error 0 at once.
  Scene s;
  const Pose id = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};
  for (int i = 0; i < 8; ++i) {
    const float X = float(i % 3) - 1.0f, Y = float(i / 3) - 1.0f;
    s.from.insert(s.from.end(), {X * 4.0f, Y * 4.0f, 4.0f, 0.0f});
    s.to.insert(s.to.end(), {X, Y, 0.0f});
    s.indices.push_back(uint16_t(i));
  }
  Pose refined{};
  EXPECT_EQ(tvxGeomPoseRefineGNf32(s.Record(), 1, 20, 0.01f, id.data(), refined.data()), 0.0f);
  EXPECT_EQ(refined, id);
}

TEST_F(PoseTest, MedianOfAnEvenCountIsTheUpperMiddle) {
  // Eight points, four with zero error and four with 0.01: the upper middle (0.01) gives a
  // positive cut-off and a step; the lower middle would give c^2 = 0 and a failure. Seven points
  // with four zeros put a zero in the middle: the step fails.
  const float xs[8] = {-0.5f, 0.4f, 0.1f, -0.3f, 0.6f, -0.2f, 0.3f, 0.0f};
  const float ys[8] = {0.2f, -0.4f, 0.5f, -0.1f, 0.3f, -0.6f, 0.1f, 0.45f};
  for (uint32_t n : {8u, 7u}) {
    std::vector<float> proj(2 * n), res(2 * n), iz(n), err(n);
    for (uint32_t k = 0; k < n; ++k) {
      proj[k] = xs[k];
      proj[n + k] = ys[k];
      iz[k] = 0.2f + 0.05f * float(k);
      const bool off = k >= 4;
      res[k] = off ? 0.1f : 0.0f;
      res[n + k] = 0.0f;
      err[k] = off ? 0.01f : 0.0f;
    }
    float update[12];
    EXPECT_EQ(tvxGeomPoseUpdatef32(proj.data(), res.data(), iz.data(), err.data(), n, update), n == 8 ? 0 : 1) << n;
  }
}

TEST_F(PoseTest, OneStepMovesTowardsTheObservations) {
  Scene s = MakeScene(30, 0.0, 0.0, 2);
  Pose start = kTruth;
  start[3] += 0.05f;
  start[11] -= 0.1f;
  const uint32_t n = 30;
  std::vector<float> proj(2 * n), res(2 * n), iz(n), err(n);
  const float e0 = tvxGeomPoseEvaluateErrorf32(s.Record(), start.data(), proj.data(), res.data(), iz.data(), err.data());
  Pose p = start;
  ASSERT_EQ(tvxGeomPoseOptimizeGNf32(proj.data(), res.data(), iz.data(), err.data(), n, p.data()), 0);
  const float e1 = tvxGeomPoseEvaluateErrorf32(s.Record(), p.data(), proj.data(), res.data(), iz.data(), err.data());
  EXPECT_LT(e1, 0.1f * e0);
  EXPECT_LT(PoseDistance(p.data(), kTruth.data()), 0.2 * PoseDistance(start.data(), kTruth.data()));
  // The rotation stays a rotation.
  for (int i = 0; i < 3; ++i) {
    double norm = 0;
    for (int j = 0; j < 3; ++j) norm += double(p[i * 4 + j]) * p[i * 4 + j];
    EXPECT_NEAR(norm, 1.0, 1e-5);
  }
}

TEST_F(PoseTest, RefinementRecoversAKnownPose) {
  Scene s = MakeScene(60, 0.002, 0.0, 3);
  Pose start = MakePose(0.3, -0.8, 0.25, 0.30, 0.45, -0.15, 0.2);
  Pose refined{};
  const float e = tvxGeomPoseRefineGNf32(s.Record(), 3, 30, 0.0f, start.data(), refined.data());
  EXPECT_GT(e, 0.0f);
  EXPECT_LT(PoseDistance(refined.data(), kTruth.data()), 0.01);
  // No iteration: the initial pose and its error.
  const uint32_t n = 60;
  std::vector<float> proj(2 * n), res(2 * n), iz(n), err(n);
  const float e0 = tvxGeomPoseEvaluateErrorf32(s.Record(), start.data(), proj.data(), res.data(), iz.data(), err.data());
  for (int32_t maxIterations : {0, -4, 65536}) {
    Pose out{};
    EXPECT_EQ(tvxGeomPoseRefineGNf32(s.Record(), 0, maxIterations, 0.0f, start.data(), out.data()),
              maxIterations == 65536 ? e : e0);
    if (maxIterations <= 0) EXPECT_EQ(out, start);
  }
  // One iteration allowed by maxIterations = 2 (i = 1 only).
  Pose one{};
  const float e1 = tvxGeomPoseRefineGNf32(s.Record(), 0, 2, 0.0f, start.data(), one.data());
  EXPECT_LT(e1, e0);
  EXPECT_GE(e1, e);
  // Five pairs are too few.
  s.indices.resize(5);
  Pose out{};
  out.fill(3.0f);
  EXPECT_EQ(tvxGeomPoseRefineGNf32(s.Record(), 0, 10, 0.0f, start.data(), out.data()), -1.0f);
  EXPECT_EQ(out[0], 3.0f);
}

TEST_F(PoseTest, MissingScratchEndsTheProcess) {
  const uint32_t n = 8;
  std::vector<float> proj(2 * n, 0.1f), res(2 * n, 0.1f), iz(n, 0.5f), err(n, 0.02f);
  float update[12];
  EXPECT_EXIT(
      {
        tvx_set_log_sink(nullptr);
        tvx_fail_heap_after_for_test(0);
        tvxGeomPoseUpdatef32(proj.data(), res.data(), iz.data(), err.data(), n, update);
      },
      ::testing::ExitedWithCode(1), "src/cpu/tavixGeomC@155: sortedErrors Assertion failed");
  Scene s = MakeScene(8, 0.0, 0.0, 4);
  Pose out{};
  EXPECT_EXIT(
      {
        tvx_set_log_sink(nullptr);
        tvx_fail_heap_after_for_test(0);
        tvxGeomPoseRefineGNf32(s.Record(), 0, 5, 0.0f, kTruth.data(), out.data());
      },
      ::testing::ExitedWithCode(1), "src/cpu/tavixGeomC@1607: work Assertion failed");
}

TEST_F(PoseTest, ThreePointPoseFindsTheTruthAmongItsSolutions) {
  int found = 0, trials = 0;
  for (uint32_t seed = 10; seed < 60; ++seed) {
    Scene s = MakeScene(3, 0.0, 0.0, seed);
    float poses[48];
    int32_t count = -1;
    const int32_t r = tvxGeom3PointPoseEstimatef32(s.Record(), poses, &count);
    ASSERT_EQ(r, count);
    ASSERT_LE(count, 4);
    ++trials;
    bool hit = false;
    for (int32_t k = 0; k < count; ++k) {
      const float* p = poses + 12 * k;
      hit = hit || PoseDistance(p, kTruth.data()) < 2e-3;
      // Every solution reprojects the three points and puts them in front of the camera.
      for (int i = 0; i < 3; ++i) {
        const float* X = &s.from[4 * i];
        const double z = p[8] * X[0] + p[9] * X[1] + p[10] * X[2] + p[11];
        EXPECT_GT(z, 0.0);
        const double u = (p[0] * X[0] + p[1] * X[1] + p[2] * X[2] + p[3]) / z;
        const double v = (p[4] * X[0] + p[5] * X[1] + p[6] * X[2] + p[7]) / z;
        EXPECT_NEAR(u, s.to[3 * i], 2e-3) << seed;
        EXPECT_NEAR(v, s.to[3 * i + 1], 2e-3) << seed;
      }
      // And its rotation is orthonormal with determinant 1.
      const double det = p[0] * (p[5] * p[10] - p[6] * p[9]) - p[1] * (p[4] * p[10] - p[6] * p[8]) +
                         p[2] * (p[4] * p[9] - p[5] * p[8]);
      EXPECT_NEAR(det, 1.0, 1e-3);
    }
    found += hit;
  }
  EXPECT_EQ(found, trials);
}

TEST_F(PoseTest, ThreePointPoseRejectsDegenerateInput) {
  Scene s;
  for (int i = 0; i < 3; ++i) {
    s.from.insert(s.from.end(), {float(i), float(2 * i), 5.0f, 0.0f});  // collinear
    s.to.insert(s.to.end(), {0.1f * i, 0.2f * i, 0.0f});
    s.indices.push_back(uint16_t(i));
  }
  float poses[48];
  int32_t count = -1;
  EXPECT_EQ(tvxGeom3PointPoseEstimatef32(s.Record(), poses, &count), 0);
  EXPECT_EQ(count, 0);
  s.indices.resize(2);
  count = -1;
  EXPECT_EQ(tvxGeom3PointPoseEstimatef32(s.Record(), poses, &count), 0);
  EXPECT_EQ(count, 0);
  EXPECT_TRUE(g_lines.empty());
  EXPECT_EQ(tvxGeom3PointPoseEstimatef32(s.Record(), poses, nullptr), 0);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxGeom3PointPoseEstimatef32",
                                            "corrs && corrs->from && corrs->to && corrs->indices && pose && numPoses"));
}

// ---- SE(2) sums ------------------------------------------------------------------------------

struct Se2Case {
  uint32_t width, height, stride;
  std::vector<uint8_t> warped, target;
  std::vector<int16_t> dx, dy;
  std::vector<uint16_t> border;
};

Se2Case MakeSe2(uint32_t width, uint32_t height, uint32_t pad, uint32_t seed, int16_t derivLimit) {
  std::mt19937 rng(seed);
  Se2Case c{width, height, width + pad, {}, {}, {}, {}, {}};
  const size_t n = size_t(c.stride) * height;
  std::uniform_int_distribution<int> byte(0, 255), deriv(-derivLimit, derivLimit);
  for (size_t i = 0; i < n; ++i) {
    c.warped.push_back(uint8_t(byte(rng)));
    c.target.push_back(uint8_t(byte(rng)));
    c.dx.push_back(int16_t(deriv(rng)));
    c.dy.push_back(int16_t(deriv(rng)));
  }
  std::uniform_int_distribution<uint32_t> left(0, width / 4), right(width / 2, width + 3);
  for (uint32_t y = 0; y < height; ++y) {
    c.border.push_back(uint16_t(left(rng)));
    c.border.push_back(uint16_t(right(rng)));
  }
  return c;
}

struct Se2Out {
  std::array<float, 9> jtj{};
  std::array<float, 3> jte{};
  float error = -1;
  uint32_t pixels = 0;
  bool operator==(const Se2Out&) const = default;
};

// Direct model: every pixel's 16-bit terms and products, each row's sums wrapped to 32 bits.
Se2Out ModelSe2(const Se2Case& c) {
  auto s16 = [](int64_t v) { return int64_t(int16_t(uint16_t(uint64_t(v) & 0xFFFF))); };
  int64_t sums[10] = {};
  uint32_t pixels = 0;
  for (uint32_t y = 1; y + 1 < c.height; ++y) {
    int64_t b = std::max<int64_t>({c.border[2 * y] + 1, c.border[2 * y - 2], c.border[2 * y + 2]});
    int64_t e = std::min<int64_t>({c.border[2 * y + 1] - 1, c.border[2 * y - 1], c.border[2 * y + 3]});
    e = std::min<int64_t>(e, c.width - 1);
    int64_t row[10] = {};
    for (int64_t x = b; x < e; ++x) {
      const size_t i = size_t(y) * c.stride + size_t(x);
      const int64_t gx = int64_t(c.warped[i + 1]) - c.warped[i - 1] + c.dx[i];
      const int64_t gy = int64_t(c.warped[i + c.stride]) - c.warped[i - c.stride] + c.dy[i];
      const int64_t er = int64_t(c.warped[i]) - c.target[i];
      const int64_t r = (x - c.width / 2) * gy - (int64_t(y) - c.height / 2) * gx;
      const int64_t g = s16(gx), h = s16(gy), q = s16(r), f = s16(er);
      const int64_t p[10] = {g * g, g * h, g * q, h * h, h * q, q * q, g * f, h * f, q * f, std::llabs(f)};
      for (int k = 0; k < 10; ++k) row[k] += p[k];
      ++pixels;
    }
    for (int k = 0; k < 10; ++k) sums[k] += int32_t(uint32_t(uint64_t(row[k])));
  }
  const float s = 1.53787e-05f;
  Se2Out o;
  o.jtj = {float(sums[0]) * s, float(sums[1]) * s, float(sums[2]) * s, 0, float(sums[3]) * s, float(sums[4]) * s,
           0, 0, float(sums[5]) * s};
  o.jte = {float(sums[6]) * s, float(sums[7]) * s, float(sums[8]) * s};
  o.error = float(sums[9]) * 0.003921569f;
  o.pixels = pixels;
  return o;
}

Se2Out RunSe2(const Se2Case& c, bool simd, uint32_t stride) {
  Se2Out o;
  o.jtj.fill(-5.0f);
  const auto fn = simd ? &tvxJacobianSE2f32V : &tvxJacobianSE2f32C;
  EXPECT_EQ(fn(c.warped.data(), c.border.data(), c.target.data(), c.dx.data(), c.dy.data(), c.width, c.height, stride,
               o.jtj.data(), o.jte.data(), &o.error, &o.pixels),
            0);
  return o;
}

TEST_F(PoseTest, Se2SumsMatchTheDirectModel) {
  // Small derivatives, then a wide image with large derivatives where r wraps in 16 bits.
  for (auto [w, h, pad, limit] : {std::tuple(40u, 12u, 0u, 20), std::tuple(2400u, 6u, 5u, 30000)}) {
    const Se2Case c = MakeSe2(w, h, pad, w + h, int16_t(limit));
    const Se2Out model = ModelSe2(c);
    EXPECT_GT(model.pixels, 0u);
    EXPECT_EQ(RunSe2(c, false, c.stride), model) << w;
  }
  // The entry: packed stride 0, the logged condition, odd sizes rejected without output.
  const Se2Case c = MakeSe2(30, 8, 0, 3, 100);
  Se2Out o;
  ASSERT_EQ(tvxJacobianSE2f32(c.warped.data(), c.border.data(), c.target.data(), c.dx.data(), c.dy.data(), 30, 8, 0,
                              o.jtj.data(), o.jte.data(), &o.error, &o.pixels),
            0);
  EXPECT_EQ(o, ModelSe2(c));
  Se2Out untouched;
  EXPECT_EQ(tvxJacobianSE2f32(c.warped.data(), c.border.data(), c.target.data(), c.dx.data(), c.dy.data(), 29, 8, 30,
                              untouched.jtj.data(), untouched.jte.data(), &untouched.error, &untouched.pixels),
            3);
  EXPECT_EQ(untouched, Se2Out{});
  EXPECT_EQ(tvxJacobianSE2f32(c.warped.data(), nullptr, c.target.data(), c.dx.data(), c.dy.data(), 30, 8, 30,
                              o.jtj.data(), o.jte.data(), &o.error, &o.pixels),
            3);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxJacobianSE2f32",
                                            "warpedImage && warpedBorder && targetImage && targetDX && targetDY && "
                                            "sumJTJ && sumJTE && sumError && numPixels"));
}

TEST_F(PoseTest, Se2SimdMatchesReference) {
  tvxtest::ForEachTarget([&] {
    uint32_t seed = 1;
    for (uint32_t w : {2u, 4u, 10u, 18u, 34u, 66u, 130u, 640u})
      for (uint32_t h : {2u, 4u, 10u})
        for (uint32_t pad : {0u, 3u}) {
          const Se2Case c = MakeSe2(w, h, pad, seed++, int16_t(seed % 2 ? 200 : 32000));
          EXPECT_EQ(RunSe2(c, true, c.stride), RunSe2(c, false, c.stride)) << w << "x" << h;
        }
  });
}

// ---- ICP terms -------------------------------------------------------------------------------

TEST_F(PoseTest, IcpTermsMatchTheDirectModel) {
  const uint32_t width = 64, height = 48;
  std::vector<uint16_t> depth(width * height);
  std::mt19937 rng(7);
  for (auto& d : depth) d = uint16_t(900 + rng() % 200);
  for (uint32_t y = 16; y < 26; ++y)
    for (uint32_t x = 24; x < 36; ++x) depth[y * width + x] = 0;  // a hole
  const float cam[6] = {50.0f, 52.0f, 31.5f, 23.5f, 1.0f / 50.0f, 1.0f / 52.0f};
  const Pose pose = MakePose(0.1, 0.2, 1.0, 0.05, 0.02, -0.01, 0.03);
  const float maxDistSq = 0.01f;
  std::vector<float> pts;
  std::uniform_real_distribution<float> xy(-0.8f, 0.8f), z(0.9f, 1.1f), nrm(-1.0f, 1.0f);
  const uint32_t N = 200;
  for (uint32_t i = 0; i < N; ++i) pts.insert(pts.end(), {xy(rng), xy(rng), z(rng), nrm(rng), nrm(rng), 1.0f});
  // One point behind the camera (its projection still lands in the image), two far outside.
  pts[6 * 0 + 0] = 0.0f, pts[6 * 0 + 1] = 0.0f, pts[6 * 0 + 2] = -1.0f;
  pts[6 * 1 + 0] = 40.0f;
  pts[6 * 2 + 1] = -30.0f;
  std::vector<float> dist(N, -7.0f), res(N, -7.0f), jac(6 * N, -7.0f);
  ASSERT_EQ(tvxICPJacobianErrorSE3f32(depth.data(), width, height, 0, pts.data(), N, pose.data(), cam, maxDistSq,
                                      dist.data(), res.data(), jac.data()),
            0);
  int near = 0, far = 0, outside = 0;
  for (uint32_t i = 0; i < N; ++i) {
    const float* p = &pts[6 * i];
    double P[3], n[3];
    for (int r = 0; r < 3; ++r) {
      P[r] = pose[4 * r] * p[0] + pose[4 * r + 1] * p[1] + pose[4 * r + 2] * p[2] + pose[4 * r + 3];
      n[r] = pose[4 * r] * p[3] + pose[4 * r + 1] * p[4] + pose[4 * r + 2] * p[5];
    }
    const double u = P[0] / P[2] * cam[0] + cam[2] + 0.5, v = P[1] / P[2] * cam[1] + cam[3] + 0.5;
    // Skip points whose pixel choice sits on a rounding edge between float and double.
    if (std::fabs(u - std::round(u)) < 1e-3 || std::fabs(v - std::round(v)) < 1e-3) continue;
    // Truncation towards zero: (-1, width) lands inside; a point behind the camera is not
    // excluded as such, only by where its projection falls.
    const bool in = u > -1 && v > -1 && u < width && v < height;
    const double col = std::trunc(u), line = std::trunc(v);
    const double d = in ? depth[size_t(line) * width + size_t(col)] * 0.001 : 0.0;
    if (!(d > 0)) {
      ++outside;
      EXPECT_EQ(dist[i], maxDistSq + 1.0f) << i;
      EXPECT_EQ(res[i], -7.0f);
      EXPECT_EQ(jac[6 * i], -7.0f);
      continue;
    }
    const double Q[3] = {d * (col - cam[2]) / cam[0], d * (line - cam[3]) / cam[1], d};
    const double D[3] = {Q[0] - P[0], Q[1] - P[1], Q[2] - P[2]};
    const double ds = D[0] * D[0] + D[1] * D[1] + D[2] * D[2];
    EXPECT_NEAR(dist[i], ds, 1e-5 + 1e-4 * ds) << i;
    if (std::fabs(ds - maxDistSq) < 1e-5) continue;
    if (ds < maxDistSq) {
      ++near;
      EXPECT_NEAR(res[i], D[0] * n[0] + D[1] * n[1] + D[2] * n[2], 1e-4) << i;
      const double cr[3] = {P[1] * n[2] - P[2] * n[1], P[2] * n[0] - P[0] * n[2], P[0] * n[1] - P[1] * n[0]};
      for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(jac[6 * i + k], n[k], 1e-5);
        EXPECT_NEAR(jac[6 * i + 3 + k], cr[k], 1e-4);
      }
    } else {
      ++far;
      EXPECT_EQ(res[i], 0.0f);
      for (int k = 0; k < 6; ++k) EXPECT_EQ(jac[6 * i + k], 0.0f);
    }
  }
  EXPECT_GE(outside, 4);
  EXPECT_GT(near, 5);
  EXPECT_GT(far, 5);
  EXPECT_EQ(tvxICPJacobianErrorSE3f32(depth.data(), width, height, 0, pts.data(), 0, pose.data(), cam, maxDistSq,
                                      dist.data(), res.data(), jac.data()),
            0);
  EXPECT_EQ(tvxICPJacobianErrorSE3f32(depth.data(), width, height, 10, pts.data(), N, pose.data(), cam, maxDistSq,
                                      dist.data(), res.data(), jac.data()),
            3);
}

}  // namespace
