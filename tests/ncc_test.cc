// Patch tools through their public entries: the phasor table against std::cos/sin, oriented
// copies against exact turns and a ramp, descriptors against their cells and mirror symmetry,
// sampled statistics against double sums, and the NCC searches against a double-precision
// normalised correlation computed here, with statuses, ties, sub-pixel peaks and rectangles.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "cpu/ncc_rules.h"
#include "frame/frame.h"
#include "log_capture.h"

namespace {

using Bytes = std::vector<uint8_t>;

class Ncc : public ::testing::Test {
 protected:
  void SetUp() override { tvxtest::g_lines.clear(), tvx_set_log_sink(&tvxtest::Capture); }
  void TearDown() override { tvx_set_log_sink(nullptr), tvx_fail_heap_after_for_test(-1); }
  Bytes Random(size_t n) {
    Bytes b(n);
    for (auto& v : b) v = static_cast<uint8_t>(rng_());
    return b;
  }
  std::mt19937 rng_{977};
};

// NCC of the template with the window of candidate (x, y) from exact means, and the covariance.
std::pair<double, double> Correlate(const uint8_t* t, const uint8_t* img, size_t stride, int x, int y) {
  double mt = 0, mw = 0, c = 0, vt = 0, vw = 0;
  const auto w = [&](int i) { return img[(y - 4 + i / 8) * stride + x - 4 + i % 8]; };
  for (int i = 0; i < 64; ++i) mt += t[i] / 64.0, mw += w(i) / 64.0;
  for (int i = 0; i < 64; ++i) c += (t[i] - mt) * (w(i) - mw), vt += (t[i] - mt) * (t[i] - mt), vw += (w(i) - mw) * (w(i) - mw);
  return {vt > 0 && vw > 0 ? c / std::sqrt(vt * vw) : 0.0, c};
}
int Rounded(double ncc) { return static_cast<int>(std::round(128.0 * ncc)); }

struct Found {
  int32_t status;
  uint32_t x = 7777, y = 7777;
  int32_t ncc = 7777;
  float subX = 9, subY = 9;
};
Found Search(bool circle, const Bytes& t, const Bytes& img, uint32_t w, uint32_t h, uint32_t stride, uint32_t cx,
             uint32_t cy, uint32_t r, int32_t filter = 0) {
  Found f;
  f.status = (circle ? tvxNCCPatchOnCircle8x8u8_v2 : tvxNCCPatchOnSquare8x8u8_v2)(
      t.data(), img.data(), w, h, stride, cx, cy, r, filter, &f.x, &f.y, &f.ncc, 1, &f.subX, &f.subY);
  return f;
}
Bytes Cut(const Bytes& img, size_t stride, int x, int y) {
  Bytes t(64);
  for (int i = 0; i < 64; ++i) t[i] = img[(y - 4 + i / 8) * stride + x - 4 + i % 8];
  return t;
}

TEST_F(Ncc, PhasorsAndOrientedCopies) {
  for (int i = 0; i < 256; ++i) {
    EXPECT_LE(std::abs(tvxncc::phasorLUT.e[i].c - 16384.0 * std::cos(i * M_PI / 128)), 1.0) << i;
    EXPECT_LE(std::abs(tvxncc::phasorLUT.e[i].s - 16384.0 * std::sin(i * M_PI / 128)), 1.0) << i;
  }
  for (auto [o, idx] : {std::pair{1, 0u}, {2, 1u}, {1022, 0u}, {-3, 255u}, {INT32_MAX, 0u}, {INT32_MIN, 0u}})
    EXPECT_EQ(tvxncc::PhasorIndex(o), idx) << o;
  // Exact turns: output (u, v) reads region (12 + u ux + v vx, 12 + u uy + v vy).
  const Bytes region = Random(625);
  Bytes patch(289);
  for (auto [o, ux, uy, vx, vy] : {std::tuple{0, 1, 0, 0, 1}, {-1025, 1, 0, 0, 1}, {256, 0, 1, -1, 0},
                                    {512, -1, 0, 0, -1}, {768, 0, -1, 1, 0}}) {
    ASSERT_EQ(tvxCopyRotated17x17u8(region.data(), patch.data(), o), 0);
    for (int v = -8; v <= 8; ++v)
      for (int u = -8; u <= 8; ++u)
        ASSERT_EQ(patch[(v + 8) * 17 + u + 8], region[(12 + u * uy + v * vy) * 25 + 12 + u * ux + v * vx]) << o;
  }
  // Bilinear sampling reproduces a ramp at the turned position, within truncation.
  Bytes ramp(625);
  for (int i = 0; i < 625; ++i) ramp[i] = static_cast<uint8_t>(5 * (i % 25) + 4 * (i / 25) + 10);
  for (int32_t o : {40, 333, 1000}) {
    ASSERT_EQ(tvxCopyRotated17x17u8(ramp.data(), patch.data(), o), 0);
    const double a = ((o + 2) >> 2) * M_PI / 128;
    for (int v = -8; v <= 8; ++v)
      for (int u = -8; u <= 8; ++u)
        EXPECT_NEAR(patch[(v + 8) * 17 + u + 8],
                    5 * (12 + u * std::cos(a) - v * std::sin(a)) + 4 * (12 + u * std::sin(a) + v * std::cos(a)) + 10, 1.1);
  }
  EXPECT_EQ(tvxCopyRotated17x17u8(nullptr, patch.data(), 0), 3);
  EXPECT_EQ(tvxtest::g_lines, std::vector<std::string>{tvxtest::AssertLine("tvxCopyRotated17x17u8", "region && patch")});
}

TEST_F(Ncc, DescriptorsStatisticsAndNormalisation) {
  const int starts[6] = {0, 3, 6, 8, 11, 14};
  for (int trial = 0; trial < 10; ++trial) {
    Bytes patch = trial ? Random(289) : Bytes(289, 77);
    int8_t d[36], m[36];
    int32_t norm = -1, mirroredNorm = -1;
    ASSERT_EQ(tvxDescriptor17x17u8To36s8(patch.data(), d, &norm), 0);
    double cells[36], total = 0, maxAbs = 0;
    for (int c = 0; c < 36; ++c) {
      int s = 0;
      for (int i = 0; i < 9; ++i) s += patch[(starts[c / 6] + i / 3) * 17 + starts[c % 6] + i % 3];
      total += cells[c] = s / 8;
    }
    for (double& c : cells) maxAbs = std::max(maxAbs, std::abs(c -= std::floor(total / 36 + 0.5)));
    int32_t expectNorm = 0, largest = 0;
    for (int c = 0; c < 36; ++c) {
      const int e = maxAbs > 0 ? static_cast<int>(std::round(127 * cells[c] / maxAbs)) : 0;
      EXPECT_EQ(d[c], e) << trial << " " << c;
      expectNorm += e * e, largest = std::max(largest, std::abs(int{d[c]}));
    }
    EXPECT_EQ(norm, expectNorm);
    EXPECT_EQ(largest, trial ? 127 : 0);
    for (int y = 0; y < 17; ++y) std::reverse(patch.begin() + y * 17, patch.begin() + y * 17 + 17);
    ASSERT_EQ(tvxDescriptor17x17u8To36s8(patch.data(), m, &mirroredNorm), 0);
    for (int c = 0; c < 36; ++c) EXPECT_EQ(m[c], d[(c / 6) * 6 + 5 - c % 6]);  // mirrored cells
  }
  EXPECT_EQ(tvxDescriptor17x17u8To36s8(nullptr, nullptr, nullptr), 3);

  std::vector<float> samples(150 * 36);
  for (float& v : samples) v = std::uniform_real_distribution<float>(-3.f, 3.f)(rng_);
  std::vector<int32_t> idx(200);
  for (int32_t& i : idx) i = static_cast<int32_t>(rng_() % 150);
  float means[36], spreads[36];
  for (auto [first, last] : {std::pair{30, 180}, {5, 9}}) {  // at most 101 descriptors
    ASSERT_EQ(tvxDescriptorSampledMeanAndVar36f32(samples.data(), first, last, idx.data(), means, spreads), 0);
    const int end = std::min(first + 100, last);
    for (int c = 0; c < 36; ++c) {
      double s = 0, q = 0;
      for (int k = first; k <= end; ++k) s += samples[idx[k] * 36 + c];
      for (int k = first; k <= end; ++k) q += std::pow(samples[idx[k] * 36 + c] - s / (end - first + 1), 2);
      EXPECT_NEAR(means[c], s / (end - first + 1), 1e-5);
      EXPECT_NEAR(spreads[c], q, 1e-4 * q);
    }
  }
  ASSERT_EQ(tvxDescriptorSampledMeanAndVar36f32(samples.data(), 3, 3, idx.data(), means, spreads), 0);
  for (int c = 0; c < 36; ++c) EXPECT_TRUE(means[c] == samples[idx[3] * 36 + c] && spreads[c] == 0.f);
  ASSERT_EQ(tvxDescriptorSampledMeanAndVar36f32(samples.data(), 4, 3, idx.data(), means, spreads), 0);
  for (int c = 0; c < 36; ++c) EXPECT_TRUE(means[c] == 0.f && spreads[c] == 0.f);
  EXPECT_EQ(tvxDescriptorSampledMeanAndVar36f32(samples.data(), -1, 3, idx.data(), means, spreads), 3);

  std::vector<int8_t> vec(41 * 3);
  for (auto& v : vec) v = static_cast<int8_t>(rng_());
  const float inv[3] = {0.01f, 3.25f, 0.f};
  std::vector<float> out(36 * 3 + 1, -9.f);
  int32_t stop = 0;
  ASSERT_EQ(tvxVecNormalize36s8f32(vec.data(), 41, inv, 3, 2.f, out.data(), &stop), 0);
  for (int i = 0; i < 36 * 3; ++i) EXPECT_FLOAT_EQ(out[i], vec[i / 36 * 41 + i % 36] * inv[i / 36] * 2.f);
  EXPECT_EQ(out[36 * 3], -9.f);
  stop = 1;  // a raised flag stops before the first vector
  std::fill(out.begin(), out.end(), -9.f);
  ASSERT_EQ(tvxVecNormalize36s8f32(vec.data(), 0, inv, 3, 2.f, out.data(), &stop), 0);
  EXPECT_EQ(std::count(out.begin(), out.end(), -9.f), 36 * 3 + 1);
  EXPECT_EQ(tvxVecNormalize36s8f32(vec.data(), 35, inv, 3, 2.f, out.data(), &stop), 3);
}

TEST_F(Ncc, SearchFindsTheBestCorrelationOfItsDefinition) {
  const uint32_t w = 45, h = 40, stride = 51;
  for (int trial = 0; trial < 60; ++trial) {
    const Bytes img = Random(stride * h);
    const uint32_t r = trial % 10;
    const uint32_t cx = r + 4 + rng_() % (w - 2 * r - 8), cy = r + 4 + rng_() % (h - 2 * r - 8);
    Bytes t = Random(64);
    if (trial % 2) {  // a noisy copy of a window near the centre
      t = Cut(img, stride, cx + rng_() % 3 - 1, cy + rng_() % 3 - 1);
      for (auto& v : t) v = static_cast<uint8_t>(std::clamp<int>(v + static_cast<int>(rng_() % 41) - 20, 0, 255));
    }
    for (bool circle : {true, false}) {
      double best = -2, second = -2;
      int bx = 0, by = 0;
      for (int dy = -int(r); dy <= int(r); ++dy)
        for (int dx = -int(r); dx <= int(r); ++dx) {
          const auto [ncc, cov] = Correlate(t.data(), img.data(), stride, cx + dx, cy + dy);
          if ((circle && dx * dx + dy * dy > int(r * r)) || cov <= 0) continue;
          second = std::max(second, std::min(best, ncc));
          if (ncc > best) best = ncc, bx = dx, by = dy;
        }
      const Found f = Search(circle, t, img, w, h, stride, cx, cy, r);
      SCOPED_TRACE(testing::Message() << "trial " << trial << " circle " << circle);
      ASSERT_EQ(f.status, 0);
      EXPECT_LE(std::abs(f.ncc - (best < -1 ? -127 : Rounded(best))), best < -1 ? 0 : 1);
      if (best - second > 1e-3) {
        EXPECT_TRUE(f.x == cx + bx && f.y == cy + by);
      }
    }
  }
}

TEST_F(Ncc, ExactMatchesStatusesAndTies) {
  const uint32_t w = 40, h = 33, cx = 20, cy = 15;
  Bytes img = Random(w * h);
  const Bytes t = Cut(img, w, cx, cy), flat(64, 90), flatImg(w * h, 40);
  for (bool circle : {true, false}) {
    for (uint32_t r : {0u, 1u, 5u, 9u}) {
      const Found f = Search(circle, t, img, w, h, 0, cx, cy, r, 1);
      EXPECT_TRUE(f.status == 0 && f.ncc == 128 && f.x == cx && f.y == cy && f.subX == 0 && f.subY == 0) << r;
      Found g;  // the form without a stride
      g.status = (circle ? tvxNCCPatchOnCircle8x8u8 : tvxNCCPatchOnSquare8x8u8)(t.data(), img.data(), w, h, cx, cy, r, 1,
                                                                                 &g.x, &g.y, &g.ncc, 1, &g.subX, &g.subY);
      EXPECT_TRUE(g.status == 0 && g.x == f.x && g.y == f.y && g.ncc == f.ncc && g.subX == f.subX && g.subY == f.subY);
      // Centre +/- (r + 4) inside the image, else 2 with nothing written.
      const Found out = Search(circle, t, img, w, h, w, r + 3, cy, r);
      EXPECT_TRUE(out.status == 2 && out.x == 7777 && out.ncc == 7777 && out.subX == 9);
      EXPECT_EQ(Search(circle, t, img, w, h, w, cx, r + 3, r).status, 2);
      EXPECT_EQ(Search(circle, t, img, w, h, w, w - r - 4, cy, r).status, 2);
      EXPECT_EQ(Search(circle, t, img, w, h, w, cx, h - r - 4, r).status, 2);
      EXPECT_EQ(Search(circle, t, img, w, h, w, w - r - 5, r + 4, r).status, 0);
      EXPECT_EQ(Search(circle, t, img, w, h, w, r + 4, h - r - 5, r).status, 0);
    }
    EXPECT_EQ(Search(circle, t, img, w, h, w, cx, cy, 10).status, 1);
    EXPECT_EQ(Search(circle, t, img, w, h, w, 0xFFFFFFFFu, cy, 2).status, 2);
    const Found low = Search(circle, flat, img, w, h, w, cx, cy, 3, 1);
    EXPECT_TRUE(low.status == 4 && low.ncc == -127 && low.x == 7777);
    // No positive cross term anywhere: -127 at the centre, status 5 only when filtering.
    const Found none = Search(circle, flat, img, w, h, w, cx, cy, 3, 0);
    EXPECT_TRUE(none.status == 0 && none.ncc == -127 && none.x == cx && none.y == cy);
    const Found five = Search(circle, t, flatImg, w, h, w, cx, cy, 3, 1);
    EXPECT_TRUE(five.status == 5 && five.ncc == -127 && five.x == cx && five.y == cy);
  }
  uint32_t x = 1, y = 1;
  int32_t n = 1;
  EXPECT_EQ(tvxNCCPatchOnCircle8x8u8_v2(nullptr, img.data(), w, h, w, cx, cy, 2, 0, &x, &y, &n, 0, nullptr, nullptr), 3);
  EXPECT_EQ(tvxNCCPatchOnSquare8x8u8(t.data(), img.data(), w, h, cx, cy, 2, 0, &x, &y, &n, 1, nullptr, nullptr), 3);
  EXPECT_TRUE(x == 1 && y == 1 && n == 1);
  EXPECT_EQ(tvxNCCPatchOnSquare8x8u8(t.data(), img.data(), w, h, cx, cy, 2, 0, &x, &y, &n, 0, nullptr, nullptr), 0);
  EXPECT_TRUE(tvxtest::g_lines.empty());

  // Two exact copies of a template: the first in row-major scan order wins.
  const Bytes u = Random(64);
  for (auto [ax, ay, bx, by] : {std::tuple{3, 4, -3, -4}, {4, 0, -4, 0}}) {
    img = Random(w * h);
    for (auto [px, py] : {std::pair{ax, ay}, {bx, by}})
      for (int i = 0; i < 64; ++i) img[(cy + py - 4 + i / 8) * w + cx + px - 4 + i % 8] = u[i];
    for (bool circle : {true, false}) {
      const Found f = Search(circle, u, img, w, h, w, cx, cy, 5);
      EXPECT_TRUE(f.ncc == 128 && f.x == cx + bx && f.y == cy + by) << f.x << "," << f.y;
    }
  }
}

TEST_F(Ncc, SubPixelOffsetsFollowTheParabolaThroughTheNeighbours) {
  // A smooth pattern shifted by (+0.3, -0.25) against its unshifted template.
  const uint32_t w = 48, h = 48, cx = 24, cy = 24;
  const auto f = [](double x, double y) { return 128 + 90 * std::sin(0.45 * x + 0.2 * y) * std::cos(0.35 * y - 0.15 * x); };
  Bytes img(w * h), t(64);
  for (uint32_t i = 0; i < w * h; ++i) img[i] = static_cast<uint8_t>(std::lround(f(i % w - 0.3, i / w + 0.25)));
  for (int i = 0; i < 64; ++i) t[i] = static_cast<uint8_t>(std::lround(f(cx - 4 + i % 8, cy - 4 + i / 8)));
  const auto at = [&](int dx, int dy) { return double(Rounded(Correlate(t.data(), img.data(), w, cx + dx, cy + dy).first)); };
  const double c = at(0, 0), l = at(-1, 0), rt = at(1, 0), up = at(0, -1), dn = at(0, 1);
  for (bool circle : {true, false}) {
    const Found r = Search(circle, t, img, w, h, w, cx, cy, 3);
    ASSERT_TRUE(r.status == 0 && r.x == cx && r.y == cy);
    EXPECT_LE(std::abs(r.ncc - c), 1);
    EXPECT_NEAR(r.subX, (rt - l) / (4 * c - 2 * (l + rt)), 0.03);
    EXPECT_NEAR(r.subY, (dn - up) / (4 * c - 2 * (up + dn)), 0.03);
    EXPECT_TRUE(r.subX > 0.05f && r.subY < -0.05f);
    const Found z = Search(circle, t, img, w, h, w, cx, cy, 0);  // no neighbour is a candidate
    EXPECT_TRUE(z.subX == 0 && z.subY == 0);
    for (int side : {-1, 1}) {  // a best on the edge of the range: no offset along that axis
      const Found e = Search(false, t, img, w, h, w, cx - side, cy, 1);
      EXPECT_TRUE(e.status == 0 && e.x == cx && e.subX == 0 && std::abs(e.subY - r.subY) < 1e-6) << side;
    }
  }
}

TEST_F(Ncc, RectangleSearchFindsEachTemplateAndChecksItsBounds) {
  const uint32_t w = 60, h = 50, stride = 64, rx = 10, ry = 8, rw = 30, rh = 25;
  const Bytes img = Random(stride * h), rnd = Random(64);
  Bytes patches;
  const int places[3][2] = {{12, 9}, {39, 32}, {25, 20}};
  for (const auto& p : places) {
    const Bytes t = Cut(img, stride, p[0], p[1]);
    patches.insert(patches.end(), t.begin(), t.end());
  }
  patches.insert(patches.end(), rnd.begin(), rnd.end());
  patches.insert(patches.end(), 64, 200);  // flat
  std::vector<uint32_t> xy(12, 0xABCD);
  std::vector<int32_t> ncc(6, 0xABCD);
  ASSERT_EQ(tvxNCCPatchesOnRectu8(patches.data(), 5, img.data(), w, h, stride, rx, ry, rw, rh, 1, xy.data(), ncc.data()), 0);
  for (int k = 0; k < 3; ++k) EXPECT_TRUE(xy[2 * k] == uint32_t(places[k][0]) && xy[2 * k + 1] == uint32_t(places[k][1]) && ncc[k] == 128);
  double best = -2;
  uint32_t bx = 0, by = 0;
  for (uint32_t y = ry; y < ry + rh; ++y)
    for (uint32_t x = rx; x < rx + rw; ++x) {
      const auto [n, cov] = Correlate(rnd.data(), img.data(), stride, x, y);
      if (cov > 0 && n > best) best = n, bx = x, by = y;
    }
  EXPECT_TRUE(xy[6] == bx && xy[7] == by && std::abs(ncc[3] - Rounded(best)) <= 1);
  EXPECT_TRUE(ncc[4] == -127 && xy[8] == rx && xy[9] == ry && xy[10] == 0xABCD && ncc[5] == 0xABCD);

  const auto call = [&](uint32_t x, uint32_t y, uint32_t cw, uint32_t ch) {
    return tvxNCCPatchesOnRectu8(patches.data(), 1, img.data(), w, h, stride, x, y, cw, ch, 0, xy.data(), ncc.data());
  };
  EXPECT_EQ(call(4, 4, w - 7, h - 7), 0);  // windows reach the last row and column
  std::fill(ncc.begin(), ncc.end(), 55);
  for (auto [x, y, cw, ch] : {std::tuple{3u, 4u, 5u, 5u}, {4u, 3u, 5u, 5u}, {4u, 4u, w - 6, 5u}, {4u, 4u, 5u, h - 6},
                              {4u, 4u, 0xFFFFFFF0u, 5u}})
    EXPECT_EQ(call(x, y, cw, ch), 2);
  EXPECT_EQ(call(4, 4, 0, 5), 3);
  tvx_fail_heap_after_for_test(0);
  EXPECT_EQ(call(4, 4, 5, 5), 5);
  EXPECT_EQ(ncc[0], 55);
}

}  // namespace
