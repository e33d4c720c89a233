// Optical flow through the public entries (reference tier): argument rejection, the per-feature
// statuses, known sub-pixel and pyramid-sized motions of a smooth texture, start estimates, the
// step rule, and block matching against a direct search written here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "cpu/optflow_track.h"
#include "frame/frame.h"
#include "log_capture.h"
#include "optflow_scenes.h"

namespace {

using tvxtest::Grid;
using tvxtest::Pyramids;
using tvxtest::Scene;

const char* const kCond =
    "src1 && src2 && src1Pyr && src2Pyr && featureXY && featureXY_out && featureStatus && (windowWidth & 0x1) && "
    "(windowHeight & 0x1)";

enum Form { kU8, kU8v2, kF32, kU8v3 };
const Form kForms[] = {kU8, kU8v2, kF32, kU8v3};
const char* FormName(Form f) {
  static const char* names[] = {"u8", "u8_v2", "f32", "u8_v3"};
  return names[f];
}

struct Result {
  int32_t ret = 0;
  std::vector<float> xy;
  std::vector<int32_t> status;
};

// One call of a form; selector 2 with the given limits where the form takes them.
Result Track(Form form, Scene& s, Pyramids& p, const std::vector<float>& xy, int32_t window, int32_t levels,
           int32_t iterations = 30, float epsilon = 0.0001f, const float* estimates = nullptr, int32_t use = -1) {
  const int32_t n = static_cast<int32_t>(xy.size() / 2);
  Result r;
  r.xy.assign(xy.size(), -7.0f);
  r.status.assign(n, 99);
  switch (form) {
    case kU8:
      tvxTrackLKOpticalFlowu8(s.a.data(), s.b.data(), s.width, s.height, s.stride, p.a.data(), p.b.data(), nullptr,
                              nullptr, xy.data(), r.xy.data(), r.status.data(), n, window, window, levels, iterations);
      break;
    case kU8v2:
      tvxTrackLKOpticalFlowu8_v2(s.a.data(), s.b.data(), s.width, s.height, s.stride, p.a2.data(), p.b2.data(),
                                 nullptr, nullptr, xy.data(), r.xy.data(), r.status.data(), n, window, window, levels,
                                 2, iterations, epsilon);
      break;
    case kF32:
      tvxTrackLKOpticalFlowf32(s.fa.data(), s.fb.data(), s.width, s.height, 0, p.fa.data(), p.fb.data(), nullptr,
                               nullptr, xy.data(), r.xy.data(), r.status.data(), n, window, window, levels, iterations);
      break;
    case kU8v3:
      r.ret = tvxTrackLKOpticalFlowu8_v3(s.a.data(), s.b.data(), s.width, s.height, s.stride, p.a2.data(),
                                         p.b2.data(), xy.data(), estimates, r.xy.data(), r.status.data(), n, window,
                                         window, levels, 2, iterations, epsilon, use >= 0 ? use : estimates != nullptr);
      break;
  }
  return r;
}

// Largest distance of a tracked position from featureXY + (mx, my); -1 when a status is not 1.
double WorstError(const Result& r, const std::vector<float>& xy, double mx, double my) {
  double worst = 0;
  for (size_t i = 0; i < r.status.size(); ++i) {
    if (r.status[i] != 1) return -1;
    worst = std::max(worst, std::hypot(r.xy[2 * i] - (xy[2 * i] + mx), r.xy[2 * i + 1] - (xy[2 * i + 1] + my)));
  }
  return worst;
}

class OptflowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    tvxtest::g_lines.clear();
    tvx_set_log_sink(&tvxtest::Capture);
  }
  void TearDown() override {
    tvx_set_log_sink(nullptr);
    tvx_fail_heap_after_for_test(-1);
  }
};

// Known motions of the texture: sub-pixel ones at one level and with a pyramid, a motion larger
// than the window only with a pyramid; every form within 0.05 px.
TEST_F(OptflowTest, TracksKnownTranslations) {
  struct Case {
    double mx, my;
    int32_t levels, window;
  };
  for (const Case c : {Case{0.3, -1.7, 1, 9}, Case{0.3, -1.7, 3, 9}, Case{6.0, -4.5, 3, 15}, Case{-2.6, 3.2, 2, 7}}) {
    Scene s(160, 128, c.mx, c.my, 3);
    Pyramids p(s, c.levels);
    ASSERT_TRUE(p.built);
    const std::vector<float> xy = Grid(s.width, s.height, 40, 11, 0.25f);
    for (Form f : kForms) {
      SCOPED_TRACE(::testing::Message() << FormName(f) << " motion " << c.mx << "," << c.my << " levels " << c.levels);
      const Result r = Track(f, s, p, xy, c.window, c.levels);
      EXPECT_EQ(r.ret, 0);
      const double worst = WorstError(r, xy, c.mx, c.my);
      EXPECT_GE(worst, 0.0) << "a feature was lost";
      EXPECT_LT(worst, 0.05);
    }
    // In place: featureXY_out over featureXY gives the same positions.
    const Result apart = Track(kU8v2, s, p, xy, c.window, c.levels);
    std::vector<float> inPlace(xy);
    std::vector<int32_t> status(xy.size() / 2);
    tvxTrackLKOpticalFlowu8_v2(s.a.data(), s.b.data(), s.width, s.height, s.stride, p.a2.data(), p.b2.data(), nullptr,
                               nullptr, inPlace.data(), inPlace.data(), status.data(), int32_t(status.size()),
                               c.window, c.window, c.levels, 2, 30, 0.0001f);
    EXPECT_EQ(inPlace, apart.xy);
  }
  EXPECT_TRUE(tvxtest::g_lines.empty());
}

TEST_F(OptflowTest, IdenticalImagesKeepStartPositions) {
  Scene s(96, 64, 0, 0, 5);
  Pyramids p(s, 2);
  ASSERT_TRUE(p.built);
  const std::vector<float> xy = Grid(s.width, s.height, 14, 9, 0.37f);
  for (Form f : kForms) {
    for (float eps : {0.0f, 0.01f}) {
      SCOPED_TRACE(::testing::Message() << FormName(f) << " epsilon " << eps);
      const Result r = Track(f, s, p, xy, 11, 2, 10, eps);
      EXPECT_EQ(r.xy, xy);
      EXPECT_EQ(r.status, std::vector<int32_t>(xy.size() / 2, 1));
    }
  }
}

// A flat area gives a singular gradient matrix (-2); a window that reaches the border gives -4;
// a failed feature keeps its start position; other features are unaffected.
TEST_F(OptflowTest, FlatAreasAndBordersFail) {
  Scene s(128, 96, 0.6, 0.4, 0, 56);  // columns 0..55 flat
  const int32_t window = 11;          // half-size 5: the framed window needs 6 pixels each side
  const std::vector<float> xy = {24.0f,  30.0f,  // flat
                                 80.0f,  3.5f,   // top border
                                 124.2f, 30.0f,  // right border
                                 84.0f,  32.0f, 96.3f, 40.6f};
  for (int32_t levels : {1, 3}) {
    Pyramids p(s, levels);
    ASSERT_TRUE(p.built);
    for (Form f : kForms) {
      SCOPED_TRACE(::testing::Message() << FormName(f) << " levels " << levels);
      const Result r = Track(f, s, p, xy, window, levels);
      EXPECT_EQ(r.status, (std::vector<int32_t>{-2, -4, -4, 1, 1}));
      for (int i = 0; i < 6; ++i) EXPECT_EQ(r.xy[i], xy[i]) << "coordinate " << i;
      EXPECT_NEAR(r.xy[6], 84.6f, 0.05f);
      EXPECT_NEAR(r.xy[9], 41.0f, 0.05f);
    }
  }
  // The framed window at level 0: x = 4 is the least centre that fits, x = 3.9 is out.
  Scene t(96, 64, 0.0, 0.0);
  Pyramids q(t, 1);
  ASSERT_TRUE(q.built);
  const Result r = Track(kU8, t, q, {3.9f, 30.0f, 4.0f, 30.0f}, 7, 1);
  EXPECT_EQ(r.status, (std::vector<int32_t>{-4, 1}));
}

// Single-scale tracking starts from the start positions: a 6 px motion with estimates near the
// truth, estimates on the exact answer of an integer motion (nothing to correct), and estimates
// not read without useEstimates.
TEST_F(OptflowTest, StartEstimates) {
  Scene s(128, 96, 6.0, -4.5);
  Pyramids p(s, 1);
  ASSERT_TRUE(p.built);
  const std::vector<float> xy = Grid(s.width, s.height, 24, 13, 0.1f);
  std::vector<float> estimates(xy);
  for (size_t i = 0; i < xy.size(); i += 2) {
    estimates[i] += 6.0f + 0.7f;
    estimates[i + 1] += -4.5f - 0.6f;
  }
  const Result from = Track(kU8v3, s, p, xy, 9, 1, 30, 0.0001f, estimates.data());
  EXPECT_EQ(from.ret, 0);
  const double worst = WorstError(from, xy, 6.0, -4.5);
  EXPECT_GE(worst, 0.0);
  EXPECT_LT(worst, 0.05);

  Scene t(96, 64, 3.0, -2.0);
  Pyramids q(t, 1);
  ASSERT_TRUE(q.built);
  const std::vector<float> at = {40.5f, 30.25f, 50.0f, 33.0f};
  const std::vector<float> answer = {43.5f, 28.25f, 53.0f, 31.0f};
  const Result exact = Track(kU8v3, t, q, at, 9, 1, 30, 0.0001f, answer.data());
  EXPECT_EQ(exact.xy, answer);
  EXPECT_EQ(exact.status, (std::vector<int32_t>{1, 1}));

  const Result ignored = Track(kU8v3, t, q, at, 9, 1, 30, 0.0001f, answer.data(), 0);
  const Result plain = Track(kU8v3, t, q, at, 9, 1);
  EXPECT_EQ(ignored.xy, plain.xy);
  EXPECT_NE(plain.xy, answer);
}

TEST_F(OptflowTest, StepRuleAndTermination) {
  // Reversal from the second step on: half of the step is taken back and the iteration ends.
  float gx = 10.0f, gy = 20.0f, pdx = 0.0f, pdy = 0.0f;
  EXPECT_FALSE(tvxlk::ApplyStep(gx, gy, 0.5f, 0.2f, pdx, pdy, 0, 0.0f));
  EXPECT_TRUE(tvxlk::ApplyStep(gx, gy, -0.495f, -0.195f, pdx, pdy, 1, 0.0f));
  EXPECT_FLOAT_EQ(gx, 10.0f + 0.5f - 0.495f * 0.5f);
  EXPECT_FLOAT_EQ(gy, 20.0f + 0.2f - 0.195f * 0.5f);
  // Not a reversal when one axis differs by 0.01 or more, nor on the first step.
  gx = 0.0f, gy = 0.0f, pdx = 0.3f, pdy = 0.3f;
  EXPECT_FALSE(tvxlk::ApplyStep(gx, gy, -0.3f, -0.3f, pdx, pdy, 0, 0.0f));
  EXPECT_FALSE(tvxlk::ApplyStep(gx, gy, 0.3f, 0.315f, pdx, pdy, 1, 0.0f));
  EXPECT_FLOAT_EQ(gx, 0.0f);
  // The squared step against epsilon.
  gx = 1.0f, gy = 1.0f;
  EXPECT_TRUE(tvxlk::ApplyStep(gx, gy, 0.02f, 0.02f, pdx, pdy, 0, 0.0009f));
  EXPECT_FALSE(tvxlk::ApplyStep(gx, gy, 0.03f, 0.0f, pdx, pdy, 0, 0.0009f));

  struct Case {
    int32_t selector, iterations;
    float epsilon;
    int32_t wantIterations;
    float wantEpsilon;
  };
  for (const Case c : {Case{2, 1, 0.5f, 1, 0.5f}, Case{2, -5, -1.0f, 1, 0.0f}, Case{2, 99, 11.0f, 99, 10.0f},
                       Case{2, 100, NAN, 100, 0.0f}, Case{0, 500, 3.0f, 100, 0.0009f}, Case{1, 5, 0.25f, 30, 0.25f}}) {
    const tvxlk::Termination t = tvxlk::Normalise(c.selector, c.iterations, c.epsilon);
    EXPECT_EQ(t.maxIterations, c.wantIterations) << c.selector << " " << c.iterations;
    EXPECT_EQ(t.epsilon, c.wantEpsilon) << c.selector << " " << c.epsilon;
  }
}

TEST_F(OptflowTest, BadArgumentsWriteNothing) {
  Scene s(64, 48, 0.5, 0.5);
  Pyramids p(s, 2);
  ASSERT_TRUE(p.built);
  const std::vector<float> xy = {30.0f, 20.0f};
  for (Form f : kForms) {
    for (int32_t window : {8, -1}) {
      SCOPED_TRACE(::testing::Message() << FormName(f) << " window " << window);
      tvxtest::g_lines.clear();
      const Result r = Track(f, s, p, xy, window, 2);
      EXPECT_EQ(r.xy, std::vector<float>(2, -7.0f));
      EXPECT_EQ(r.status, std::vector<int32_t>(1, 99));
      const std::string name = std::string("tvxTrackLKOpticalFlow") + FormName(f);
      const std::string cond = f == kU8v3 ? std::string(kCond) + " && (estimates || !useEstimates)" : kCond;
      EXPECT_EQ(tvxtest::g_lines, std::vector<std::string>{tvxtest::AssertLine(name, cond)});
      if (f == kU8v3) {
        EXPECT_EQ(r.ret, 3);
      }
    }
  }
  std::vector<float> out(2, -7.0f);
  std::vector<int32_t> status(1, 99);
  const auto v3 = [&](const float* estimates, int32_t use, const tvxPyramidLevel_v2* pyr, int32_t n, int32_t levels) {
    return tvxTrackLKOpticalFlowu8_v3(s.a.data(), s.b.data(), s.width, s.height, s.stride, pyr, p.b2.data(),
                                      xy.data(), estimates, out.data(), status.data(), n, 7, 7, levels, 0, 10, 0.0f,
                                      use);
  };
  tvxtest::g_lines.clear();
  EXPECT_EQ(v3(nullptr, 1, p.a2.data(), 1, 2), 3);  // estimates requested but missing
  EXPECT_EQ(tvxtest::g_lines.size(), 1u);
  std::vector<tvxPyramidLevel_v2> wrong(p.a2);
  wrong[1].width += 1;
  EXPECT_EQ(v3(nullptr, 0, wrong.data(), 1, 2), 3);  // a level not of the halved size
  wrong[1] = p.a2[1];
  wrong[1].ptr = nullptr;
  EXPECT_EQ(v3(nullptr, 0, wrong.data(), 1, 2), 3);
  EXPECT_EQ(v3(nullptr, 0, p.a2.data(), 0, 2), 0);  // nothing to track
  EXPECT_EQ(v3(nullptr, 0, p.a2.data(), 1, -1), 0);
  tvx_fail_heap_after_for_test(0);  // no working area
  EXPECT_EQ(v3(nullptr, 0, p.a2.data(), 1, 2), 5);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(out, std::vector<float>(2, -7.0f));
  EXPECT_EQ(status, std::vector<int32_t>(1, 99));
  EXPECT_EQ(tvxtest::g_lines.size(), 1u);
  EXPECT_EQ(v3(nullptr, 0, p.a2.data(), 1, 2), 0);
  EXPECT_EQ(status[0], 1);
}

// ---- block matching ------------------------------------------------------------------------

// The zero-mean SAD search written out directly: every displacement whose block lies inside
// the second image, (0, 0) first, the least cost kept on ties.
std::vector<int32_t> DirectBlockSearch(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b, int w, int h,
                                       int stride, int left, int top, int roiW, int roiH, int r) {
  std::vector<int32_t> flow;
  const auto blockMean = [&](const std::vector<uint8_t>& img, int x0, int y0) {
    int sum = 0;
    for (int y = y0; y < y0 + 16; ++y)
      for (int x = x0; x < x0 + 16; ++x) sum += img[y * stride + x];
    return (sum + 128) / 256;
  };
  for (int y0 = top; y0 + 16 <= top + roiH; y0 += 16)
    for (int x0 = left; x0 + 16 <= left + roiW; x0 += 16) {
      long best = -1;
      int bx = 0, by = 0;
      std::vector<std::pair<int, int>> order = {{0, 0}};
      for (int dy = -r; dy <= r; ++dy)
        for (int dx = -r; dx <= r; ++dx) order.push_back({dx, dy});
      for (auto [dx, dy] : order) {
        if (x0 + dx < 0 || y0 + dy < 0 || x0 + dx + 16 > w || y0 + dy + 16 > h) continue;
        const int shift = blockMean(a, x0, y0) - blockMean(b, x0 + dx, y0 + dy);
        long cost = 0;
        for (int y = 0; y < 16; ++y)
          for (int x = 0; x < 16; ++x)
            cost += std::abs(a[(y0 + y) * stride + x0 + x] - b[(y0 + dy + y) * stride + x0 + dx + x] - shift);
        if (best < 0 || cost < best) best = cost, bx = dx, by = dy;
      }
      flow.push_back(bx);
      flow.push_back(by);
    }
  return flow;
}

TEST_F(OptflowTest, BlockMatchingFindsShiftsAndAgreesWithDirectSearch) {
  const int w = 100, h = 84, stride = 103;
  std::mt19937 rng(17);
  std::vector<uint8_t> a(stride * h), b(stride * h), noisy(stride * h);
  for (auto& v : a) v = static_cast<uint8_t>(rng() % 200);
  // b shows a moved by (3, -2) and brightened by 20: every zero-mean cost at (3, -2) is 0.
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const int sx = std::clamp(x - 3, 0, w - 1), sy = std::clamp(y + 2, 0, h - 1);
      b[y * stride + x] = static_cast<uint8_t>(a[sy * stride + sx] + 20);
      noisy[y * stride + x] = static_cast<uint8_t>(std::clamp(int(a[sy * stride + sx]) + int(rng() % 61) - 30, 0, 255));
    }
  std::vector<int32_t> flow(2 * 4 * 3, 77);
  ASSERT_EQ(tvxTrackBMOpticalFlow16x16u8(a.data(), b.data(), w, h, stride, 10, 12, 70, 50, 5, flow.data()), 0);
  for (size_t i = 0; i < flow.size(); i += 2) EXPECT_EQ((std::pair{flow[i], flow[i + 1]}), (std::pair{3, -2})) << i;

  // Noise and the border: blocks near the image edges lose candidates.
  struct Roi {
    int left, top, width, height, radius;
  };
  for (const Roi roi : {Roi{0, 0, w, h, 4}, Roi{3, 2, 64, 80, 7}, Roi{40, 30, 33, 20, 0}, Roi{0, 60, 100, 24, 12}}) {
    SCOPED_TRACE(::testing::Message() << roi.left << "," << roi.top << " r " << roi.radius);
    std::vector<int32_t> got(2 * (roi.width / 16) * (roi.height / 16) + 2, 77);
    ASSERT_EQ(tvxTrackBMOpticalFlow16x16u8(a.data(), noisy.data(), w, h, stride, roi.left, roi.top, roi.width,
                                           roi.height, roi.radius, got.data()),
              0);
    EXPECT_EQ(got.back(), 77) << "wrote past the last block";
    got.resize(got.size() - 2);
    EXPECT_EQ(got, DirectBlockSearch(a, noisy, w, h, stride, roi.left, roi.top, roi.width, roi.height, roi.radius));
  }

  // Flat images: every cost ties, so (0, 0) stands.
  std::vector<uint8_t> flat(stride * h, 60), flat2(stride * h, 90);
  ASSERT_EQ(tvxTrackBMOpticalFlow16x16u8(flat.data(), flat2.data(), w, h, stride, 16, 16, 32, 32, 6, flow.data()), 0);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(flow[i], 0);

  // A region outside the image, or too wide a search, is rejected without a write.
  std::fill(flow.begin(), flow.end(), 77);
  tvxtest::g_lines.clear();
  EXPECT_EQ(tvxTrackBMOpticalFlow16x16u8(a.data(), b.data(), w, h, stride, 50, 0, 51, 16, 2, flow.data()), 3);
  EXPECT_EQ(tvxTrackBMOpticalFlow16x16u8(a.data(), b.data(), w, h, stride, 0, 0, 16, 16, 65, flow.data()), 3);
  EXPECT_EQ(tvxtest::g_lines.size(), 2u);
  EXPECT_EQ(flow, std::vector<int32_t>(flow.size(), 77));
}

}  // namespace
