// Patch tools through their public entries: the phasor table against std::cos/sin, oriented
// copies against exact turns and a linear ramp, descriptors against their cell definition and
// mirror symmetry, sampled statistics against direct double sums, normalisation, and the NCC
// searches against a double-precision normalised correlation computed here, with the range
// statuses, the low-variance filter, ties, sub-pixel peaks and the rectangle search.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "cpu/ncc_rules.h"
#include "frame/frame.h"
#include "log_capture.h"

namespace {

using Bytes = std::vector<uint8_t>;
using tvxtest::AssertLine;
using tvxtest::Capture;
using tvxtest::g_lines;

class Ncc : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override {
    tvx_set_log_sink(nullptr);
    tvx_fail_heap_after_for_test(-1);
  }
  Bytes Random(size_t n) {
    Bytes b(n);
    for (auto& v : b) v = static_cast<uint8_t>(rng_());
    return b;
  }
  std::mt19937 rng_{977};
};

// Normalised correlation of the template with the window of candidate (x, y) (columns x - 4 ..
// x + 3), from exact means; the covariance is returned too (its sign decides candidacy).
struct Corr {
  double ncc, cov;
};
Corr Correlate(const uint8_t* t, const uint8_t* img, size_t stride, int x, int y) {
  double mt = 0, mw = 0;
  for (int j = 0; j < 8; ++j)
    for (int i = 0; i < 8; ++i) {
      mt += t[j * 8 + i];
      mw += img[(y - 4 + j) * stride + x - 4 + i];
    }
  mt /= 64;
  mw /= 64;
  double c = 0, vt = 0, vw = 0;
  for (int j = 0; j < 8; ++j)
    for (int i = 0; i < 8; ++i) {
      const double a = t[j * 8 + i] - mt, b = img[(y - 4 + j) * stride + x - 4 + i] - mw;
      c += a * b;
      vt += a * a;
      vw += b * b;
    }
  return {vt > 0 && vw > 0 ? c / std::sqrt(vt * vw) : 0.0, c};
}
int Rounded(double ncc) { return static_cast<int>(std::round(128.0 * ncc)); }

struct Found {
  int32_t status;
  uint32_t x, y;
  int32_t ncc;
  float subX, subY;
};

Found Search(bool circle, const uint8_t* t, const uint8_t* img, uint32_t w, uint32_t h, uint32_t stride, uint32_t cx,
             uint32_t cy, uint32_t r, int32_t filter = 0, int32_t sub = 1) {
  Found f{-1, 7777, 7777, 7777, 9.f, 9.f};
  f.status = (circle ? tvxNCCPatchOnCircle8x8u8_v2 : tvxNCCPatchOnSquare8x8u8_v2)(
      t, img, w, h, stride, cx, cy, r, filter, &f.x, &f.y, &f.ncc, sub, &f.subX, &f.subY);
  return f;
}

Bytes Cut(const Bytes& img, size_t stride, int x, int y) {
  Bytes t(64);
  for (int j = 0; j < 8; ++j)
    for (int i = 0; i < 8; ++i) t[j * 8 + i] = img[(y - 4 + j) * stride + x - 4 + i];
  return t;
}

// ---- phasors and oriented copies ---------------------------------------------------------------

TEST_F(Ncc, PhasorTableIsWithinOneUnitOfCosAndSinAndIndexRoundsToNearestStep) {
  for (int i = 0; i < 256; ++i) {
    const double a = i * 2.0 * M_PI / 256.0;
    EXPECT_LE(std::abs(tvxncc::phasorLUT.e[i].c - 16384.0 * std::cos(a)), 1.0) << i;
    EXPECT_LE(std::abs(tvxncc::phasorLUT.e[i].s - 16384.0 * std::sin(a)), 1.0) << i;
  }
  EXPECT_EQ(tvxncc::phasorLUT.e[0].c, 16384);
  EXPECT_EQ(tvxncc::phasorLUT.e[64].s, 16384);
  const std::pair<int32_t, uint32_t> cases[] = {{0, 0}, {1, 0}, {2, 1}, {5, 1}, {6, 2}, {1021, 255}, {1022, 0},
                                                {-2, 0}, {-3, 255}, {-1024, 0}, {INT32_MAX, 0}, {INT32_MIN, 0}};
  for (const auto& [o, idx] : cases) EXPECT_EQ(tvxncc::PhasorIndex(o), idx) << o;
}

TEST_F(Ncc, RotatedCopyOfExactTurnsIsACropTransposeOrFlip) {
  const Bytes region = Random(625);
  Bytes patch(289);
  const auto at = [&](int x, int y) { return region[y * 25 + x]; };
  // orientation -> where output (u, v) reads the region
  struct Turn {
    int32_t orientation;
    int ux, uy, vx, vy;
  };
  for (const Turn& t : {Turn{0, 1, 0, 0, 1}, Turn{1024, 1, 0, 0, 1}, Turn{-1025, 1, 0, 0, 1}, Turn{256, 0, 1, -1, 0},
                        Turn{512, -1, 0, 0, -1}, Turn{768, 0, -1, 1, 0}}) {
    ASSERT_EQ(tvxCopyRotated17x17u8(region.data(), patch.data(), t.orientation), 0);
    for (int v = -8; v <= 8; ++v)
      for (int u = -8; u <= 8; ++u)
        ASSERT_EQ(patch[(v + 8) * 17 + u + 8], at(12 + u * t.ux + v * t.vx, 12 + u * t.uy + v * t.vy))
            << "orientation " << t.orientation << " u " << u << " v " << v;
  }
}

TEST_F(Ncc, RotatedCopyOfARampFollowsTheTurnedCoordinates) {
  // A linear ramp is reproduced by bilinear sampling: the output is the ramp at the turned
  // position, within the truncation and the table's rounding.
  Bytes region(625);
  for (int y = 0; y < 25; ++y)
    for (int x = 0; x < 25; ++x) region[y * 25 + x] = static_cast<uint8_t>(5 * x + 4 * y + 10);
  Bytes patch(289);
  for (int32_t o : {40, 100, 333, 600, 1000}) {
    ASSERT_EQ(tvxCopyRotated17x17u8(region.data(), patch.data(), o), 0);
    const double a = ((o + 2) >> 2) * 2.0 * M_PI / 256.0;
    for (int v = -8; v <= 8; ++v)
      for (int u = -8; u <= 8; ++u) {
        const double px = 12 + u * std::cos(a) - v * std::sin(a), py = 12 + u * std::sin(a) + v * std::cos(a);
        EXPECT_NEAR(patch[(v + 8) * 17 + u + 8], 5 * px + 4 * py + 10, 1.1) << o << " " << u << " " << v;
      }
  }
  EXPECT_EQ(tvxCopyRotated17x17u8(nullptr, patch.data(), 0), 3);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0], AssertLine("tvxCopyRotated17x17u8", "region && patch"));
}

// ---- descriptors -------------------------------------------------------------------------------

TEST_F(Ncc, DescriptorFollowsItsCellsAndMirrorsWithThePatch) {
  const int starts[6] = {0, 3, 6, 8, 11, 14};
  for (int trial = 0; trial < 20; ++trial) {
    Bytes patch = Random(289);
    if (trial == 1) std::fill(patch.begin(), patch.end(), 77);
    int8_t d[36];
    int32_t norm = -1;
    ASSERT_EQ(tvxDescriptor17x17u8To36s8(patch.data(), d, &norm), 0);
    double cells[36], total = 0, maxAbs = 0;
    for (int c = 0; c < 36; ++c) {
      int s = 0;
      for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 3; ++x) s += patch[(starts[c / 6] + y) * 17 + starts[c % 6] + x];
      cells[c] = s / 8;
      total += cells[c];
    }
    const double mean = std::floor(total / 36 + 0.5);
    for (double& c : cells) maxAbs = std::max(maxAbs, std::abs(c -= mean));
    int32_t expectNorm = 0;
    for (int c = 0; c < 36; ++c) {
      const int e = maxAbs > 0 ? static_cast<int>(std::round(127 * cells[c] / maxAbs)) : 0;
      EXPECT_EQ(d[c], e) << "trial " << trial << " cell " << c;
      expectNorm += e * e;
    }
    EXPECT_EQ(norm, expectNorm);
    int largest = 0;
    for (int8_t v : d) largest = std::max(largest, std::abs(int{v}));
    EXPECT_EQ(largest, trial == 1 ? 0 : 127);
    // Mirroring the patch left-right mirrors the grid of cells.
    Bytes mirrored(289);
    for (int y = 0; y < 17; ++y)
      for (int x = 0; x < 17; ++x) mirrored[y * 17 + x] = patch[y * 17 + 16 - x];
    int8_t m[36];
    ASSERT_EQ(tvxDescriptor17x17u8To36s8(mirrored.data(), m, &norm), 0);
    for (int c = 0; c < 36; ++c) EXPECT_EQ(m[c], d[(c / 6) * 6 + 5 - c % 6]);
  }
  EXPECT_EQ(tvxDescriptor17x17u8To36s8(nullptr, nullptr, nullptr), 3);
}

TEST_F(Ncc, SampledStatisticsTakeAtMost101ListedDescriptors) {
  std::uniform_real_distribution<float> u(-3.f, 3.f);
  std::vector<float> samples(150 * 36);
  for (float& v : samples) v = u(rng_);
  std::vector<int32_t> indices(200);
  for (int32_t& i : indices) i = static_cast<int32_t>(rng_() % 150);
  float means[36], spreads[36];
  for (auto [first, last] : {std::pair{30, 180}, std::pair{5, 9}, std::pair{0, 100}}) {
    ASSERT_EQ(tvxDescriptorSampledMeanAndVar36f32(samples.data(), first, last, indices.data(), means, spreads), 0);
    const int end = std::min(first + 100, last);
    const int n = end - first + 1;
    for (int c = 0; c < 36; ++c) {
      double s = 0, q = 0;
      for (int k = first; k <= end; ++k) s += samples[indices[k] * 36 + c];
      const double m = s / n;
      for (int k = first; k <= end; ++k) q += (samples[indices[k] * 36 + c] - m) * (samples[indices[k] * 36 + c] - m);
      EXPECT_NEAR(means[c], m, 1e-5) << first << " " << c;
      EXPECT_NEAR(spreads[c], q, 1e-4 * std::max(1.0, q)) << first << " " << c;
    }
  }
  // One descriptor: means are the descriptor, spreads zero; an empty range gives zeros.
  const int32_t one[1] = {17};
  ASSERT_EQ(tvxDescriptorSampledMeanAndVar36f32(samples.data(), 0, 0, one, means, spreads), 0);
  for (int c = 0; c < 36; ++c) {
    EXPECT_EQ(means[c], samples[17 * 36 + c]);
    EXPECT_EQ(spreads[c], 0.f);
  }
  ASSERT_EQ(tvxDescriptorSampledMeanAndVar36f32(samples.data(), 4, 3, one, means, spreads), 0);
  for (int c = 0; c < 36; ++c) EXPECT_TRUE(means[c] == 0.f && spreads[c] == 0.f);
  EXPECT_EQ(tvxDescriptorSampledMeanAndVar36f32(samples.data(), -1, 3, one, means, spreads), 3);
}

TEST_F(Ncc, NormalisedVectorsScaleEachByItsLengthAndStopOnTheFlag) {
  const uint32_t n = 5, stride = 41;
  std::vector<int8_t> src(stride * n);
  for (auto& v : src) v = static_cast<int8_t>(rng_());
  src[0] = -128;
  const float inv[n] = {0.01f, 1.f, 0.5f, 3.25f, 0.f};
  std::vector<float> dst(36 * n + 4, -9.f);
  int32_t stop = 0;
  ASSERT_EQ(tvxVecNormalize36s8f32(src.data(), stride, inv, n, 2.f, dst.data(), &stop), 0);
  for (uint32_t i = 0; i < n; ++i)
    for (int k = 0; k < 36; ++k)
      EXPECT_NEAR(dst[i * 36 + k], src[i * stride + k] * inv[i] * 2.0, 1e-5 * std::abs(src[i * stride + k] * inv[i] * 2.0));
  EXPECT_EQ(dst[36 * n], -9.f);
  std::fill(dst.begin(), dst.end(), -9.f);
  stop = 1;
  ASSERT_EQ(tvxVecNormalize36s8f32(src.data(), 0, inv, n, 2.f, dst.data(), &stop), 0);
  EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](float v) { return v == -9.f; }));
  EXPECT_EQ(tvxVecNormalize36s8f32(src.data(), 35, inv, n, 2.f, dst.data(), &stop), 3);
}

// ---- single-template searches ------------------------------------------------------------------

TEST_F(Ncc, SearchFindsTheBestCorrelationOfItsDefinition) {
  const uint32_t w = 45, h = 40, stride = 51;
  for (int trial = 0; trial < 60; ++trial) {
    const Bytes img = Random(stride * h);
    const uint32_t r = trial % 10;
    const uint32_t cx = r + 4 + rng_() % (w - 2 * r - 8), cy = r + 4 + rng_() % (h - 2 * r - 8);
    // Half the templates are noisy copies of some window nearby, the others random.
    Bytes t = Random(64);
    if (trial % 2) {
      t = Cut(img, stride, cx + (rng_() % 3) - 1, cy + (rng_() % 3) - 1);
      for (auto& v : t) v = static_cast<uint8_t>(std::clamp<int>(v + static_cast<int>(rng_() % 41) - 20, 0, 255));
    }
    for (bool circle : {true, false}) {
      SCOPED_TRACE(testing::Message() << "trial " << trial << " circle " << circle);
      double best = -2, second = -2;
      int bx = 0, by = 0;
      for (int dy = -int(r); dy <= int(r); ++dy)
        for (int dx = -int(r); dx <= int(r); ++dx) {
          if (circle && dx * dx + dy * dy > int(r * r)) continue;
          const Corr c = Correlate(t.data(), img.data(), stride, cx + dx, cy + dy);
          if (c.cov <= 0) continue;
          if (c.ncc > best) {
            second = best;
            best = c.ncc;
            bx = dx;
            by = dy;
          } else {
            second = std::max(second, c.ncc);
          }
        }
      const Found f = Search(circle, t.data(), img.data(), w, h, stride, cx, cy, r, 0, 0);
      ASSERT_EQ(f.status, 0);
      if (best < -1) {
        EXPECT_EQ(f.ncc, -127);
        continue;
      }
      EXPECT_LE(std::abs(f.ncc - Rounded(best)), 1) << best;
      if (best - second > 1e-3) {
        EXPECT_EQ(f.x, cx + bx);
        EXPECT_EQ(f.y, cy + by);
      }
    }
  }
}

TEST_F(Ncc, TemplateCutAtTheCentreGives128WithoutSubPixelOffsetOnBothShapesAndForms) {
  const uint32_t w = 40, h = 33;
  const Bytes img = Random(w * h);
  const uint32_t cx = 20, cy = 15;
  const Bytes t = Cut(img, w, cx, cy);
  for (bool circle : {true, false}) {
    for (uint32_t r : {0u, 1u, 5u, 9u}) {
      const Found f = Search(circle, t.data(), img.data(), w, h, 0, cx, cy, r, 1);
      EXPECT_EQ(f.status, 0);
      EXPECT_EQ(f.ncc, 128);
      EXPECT_EQ(f.x, cx);
      EXPECT_EQ(f.y, cy);
      EXPECT_EQ(f.subX, 0.f);
      EXPECT_EQ(f.subY, 0.f);
      Found g{};
      g.status = (circle ? tvxNCCPatchOnCircle8x8u8 : tvxNCCPatchOnSquare8x8u8)(
          t.data(), img.data(), w, h, cx, cy, r, 1, &g.x, &g.y, &g.ncc, 1, &g.subX, &g.subY);
      EXPECT_EQ(g.status, 0);
      EXPECT_TRUE(g.x == f.x && g.y == f.y && g.ncc == f.ncc && g.subX == f.subX && g.subY == f.subY);
    }
  }
}

TEST_F(Ncc, RangeStatusesFilterAndNullsWriteNothing) {
  const uint32_t w = 30, h = 26;
  const Bytes img = Random(w * h);
  const Bytes t = Random(64);
  const Bytes flat(64, 90);
  for (bool circle : {true, false}) {
    EXPECT_EQ(Search(circle, t.data(), img.data(), w, h, w, 15, 13, 10).status, 1);
    for (uint32_t r : {0u, 3u}) {
      // Centre +/- (r + 4) must lie inside: r + 4 from the left and top, r + 5 from the right and bottom.
      const Found tooLeft = Search(circle, t.data(), img.data(), w, h, w, r + 3, 13, r);
      EXPECT_EQ(tooLeft.status, 2);
      EXPECT_TRUE(tooLeft.x == 7777 && tooLeft.ncc == 7777 && tooLeft.subX == 9.f);
      EXPECT_EQ(Search(circle, t.data(), img.data(), w, h, w, 15, r + 3, r).status, 2);
      EXPECT_EQ(Search(circle, t.data(), img.data(), w, h, w, w - r - 4, 13, r).status, 2);
      EXPECT_EQ(Search(circle, t.data(), img.data(), w, h, w, 15, h - r - 4, r).status, 2);
      EXPECT_EQ(Search(circle, t.data(), img.data(), w, h, w, r + 4, r + 4, r).status, 0);
      EXPECT_EQ(Search(circle, t.data(), img.data(), w, h, w, w - r - 5, h - r - 5, r).status, 0);
    }
    EXPECT_EQ(Search(circle, t.data(), img.data(), w, h, w, 0xFFFFFFFFu, 13, 2).status, 2);
    // A flat template below the variance floor: status 4 and -127, position untouched.
    const Found low = Search(circle, flat.data(), img.data(), w, h, w, 15, 13, 3, 1);
    EXPECT_EQ(low.status, 4);
    EXPECT_EQ(low.ncc, -127);
    EXPECT_EQ(low.x, 7777u);
    // Filtering off, the flat template has no positive cross term anywhere: -127 at the centre.
    const Found none = Search(circle, flat.data(), img.data(), w, h, w, 15, 13, 3, 0);
    EXPECT_EQ(none.status, 0);
    EXPECT_TRUE(none.ncc == -127 && none.x == 15 && none.y == 13);
  }
  // A textured template over a flat image: no positive cross term, status 5 when filtering.
  const Bytes flatImg(w * h, 40);
  const Found five = Search(true, t.data(), flatImg.data(), w, h, w, 15, 13, 3, 1);
  EXPECT_EQ(five.status, 5);
  EXPECT_TRUE(five.ncc == -127 && five.x == 15 && five.y == 13);

  uint32_t x = 1, y = 1;
  int32_t n = 1;
  EXPECT_EQ(tvxNCCPatchOnCircle8x8u8_v2(nullptr, img.data(), w, h, w, 15, 13, 2, 0, &x, &y, &n, 0, nullptr, nullptr), 3);
  EXPECT_EQ(tvxNCCPatchOnSquare8x8u8(t.data(), img.data(), w, h, 15, 13, 2, 0, &x, &y, &n, 1, nullptr, nullptr), 3);
  EXPECT_TRUE(x == 1 && y == 1 && n == 1);
  // Without sub-pixel the offsets may be absent.
  EXPECT_EQ(tvxNCCPatchOnSquare8x8u8(t.data(), img.data(), w, h, 15, 13, 2, 0, &x, &y, &n, 0, nullptr, nullptr), 0);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Ncc, EqualCorrelationsKeepTheFirstInScanOrder) {
  const uint32_t w = 40, h = 40, cx = 20, cy = 20;
  Bytes img = Random(w * h);
  const Bytes t = Random(64);
  const auto paste = [&](int x, int y) {
    for (int j = 0; j < 8; ++j)
      for (int i = 0; i < 8; ++i) img[(y - 4 + j) * w + x - 4 + i] = t[j * 8 + i];
  };
  paste(cx + 3, cy + 4);  // later in scan order
  paste(cx - 3, cy - 4);  // earlier row
  for (bool circle : {true, false}) {
    const Found f = Search(circle, t.data(), img.data(), w, h, w, cx, cy, 5, 0, 0);
    EXPECT_EQ(f.ncc, 128);
    EXPECT_EQ(f.x, cx - 3);
    EXPECT_EQ(f.y, cy - 4);
  }
  img = Random(w * h);
  paste(cx + 4, cy);  // same row: the left one is first
  paste(cx - 4, cy);
  const Found f = Search(false, t.data(), img.data(), w, h, w, cx, cy, 4, 0, 0);
  EXPECT_TRUE(f.x == cx - 4 && f.y == cy);
}

TEST_F(Ncc, SubPixelOffsetsFollowTheParabolaThroughTheNeighbours) {
  // A smooth pattern shifted by (+0.3, -0.25) against its unshifted template: the integer best
  // is the centre and the offsets lean towards the shift.
  const uint32_t w = 48, h = 48, cx = 24, cy = 24;
  const auto f = [](double x, double y) { return 128 + 90 * std::sin(0.45 * x + 0.2 * y) * std::cos(0.35 * y - 0.15 * x); };
  Bytes img(w * h), t(64);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) img[y * w + x] = static_cast<uint8_t>(std::lround(f(x - 0.3, y + 0.25)));
  for (int j = 0; j < 8; ++j)
    for (int i = 0; i < 8; ++i) t[j * 8 + i] = static_cast<uint8_t>(std::lround(f(cx - 4 + i, cy - 4 + j)));
  for (bool circle : {true, false}) {
    const Found r = Search(circle, t.data(), img.data(), w, h, w, cx, cy, 3);
    ASSERT_EQ(r.status, 0);
    ASSERT_EQ(r.x, cx);
    ASSERT_EQ(r.y, cy);
    const auto at = [&](int dx, int dy) { return Rounded(Correlate(t.data(), img.data(), w, cx + dx, cy + dy).ncc); };
    const double c = at(0, 0), l = at(-1, 0), rt = at(1, 0), u = at(0, -1), d = at(0, 1);
    EXPECT_LE(std::abs(r.ncc - c), 1);
    EXPECT_NEAR(r.subX, (rt - l) / (4 * c - 2 * (l + rt)), 0.03);
    EXPECT_NEAR(r.subY, (d - u) / (4 * c - 2 * (u + d)), 0.03);
    EXPECT_GT(r.subX, 0.05f);
    EXPECT_LT(r.subY, -0.05f);
    // A best on the edge of the range has no offset along that axis, only across it.
    for (int side : {-1, 1}) {
      const Found e = Search(false, t.data(), img.data(), w, h, w, cx - side, cy, 1);
      ASSERT_TRUE(e.status == 0 && e.x == cx && e.y == cy) << side;
      EXPECT_EQ(e.subX, 0.f);
      EXPECT_NEAR(e.subY, r.subY, 1e-6);
    }
    // At the edge of the range (radius 0) no neighbour is a candidate: offsets stay 0.
    const Found z = Search(circle, t.data(), img.data(), w, h, w, cx, cy, 0);
    EXPECT_TRUE(z.subX == 0.f && z.subY == 0.f);
  }
}

// ---- rectangle search ----------------------------------------------------------------------------

TEST_F(Ncc, RectangleSearchFindsEachTemplateAndChecksItsBounds) {
  const uint32_t w = 60, h = 50, stride = 64;
  const Bytes img = Random(stride * h);
  const uint32_t rx = 10, ry = 8, rw = 30, rh = 25;
  Bytes patches;
  const int places[3][2] = {{12, 9}, {39, 32}, {25, 20}};
  for (const auto& p : places) {
    const Bytes t = Cut(img, stride, p[0], p[1]);
    patches.insert(patches.end(), t.begin(), t.end());
  }
  const Bytes rnd = Random(64);
  patches.insert(patches.end(), rnd.begin(), rnd.end());
  patches.insert(patches.end(), 64, 200);  // flat
  std::vector<uint32_t> xy(2 * 5 + 2, 0xABCD);
  std::vector<int32_t> ncc(5 + 1, 0xABCD);
  ASSERT_EQ(tvxNCCPatchesOnRectu8(patches.data(), 5, img.data(), w, h, stride, rx, ry, rw, rh, 1, xy.data(), ncc.data()), 0);
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(xy[2 * k], uint32_t(places[k][0]));
    EXPECT_EQ(xy[2 * k + 1], uint32_t(places[k][1]));
    EXPECT_EQ(ncc[k], 128);
  }
  double best = -2;
  uint32_t bx = 0, by = 0;
  for (uint32_t y = ry; y < ry + rh; ++y)
    for (uint32_t x = rx; x < rx + rw; ++x) {
      const Corr c = Correlate(rnd.data(), img.data(), stride, x, y);
      if (c.cov > 0 && c.ncc > best) best = c.ncc, bx = x, by = y;
    }
  EXPECT_TRUE(xy[6] == bx && xy[7] == by) << xy[6] << "," << xy[7] << " vs " << bx << "," << by;
  EXPECT_LE(std::abs(ncc[3] - Rounded(best)), 1);
  EXPECT_TRUE(ncc[4] == -127 && xy[8] == rx && xy[9] == ry);
  EXPECT_TRUE(xy[10] == 0xABCD && ncc[5] == 0xABCD);

  // Windows must stay inside: the last column x + 3 <= w - 1.
  EXPECT_EQ(tvxNCCPatchesOnRectu8(patches.data(), 1, img.data(), w, h, stride, 4, 4, w - 7, h - 7, 0, xy.data(), ncc.data()), 0);
  std::fill(ncc.begin(), ncc.end(), 55);
  EXPECT_EQ(tvxNCCPatchesOnRectu8(patches.data(), 1, img.data(), w, h, stride, 3, 4, 5, 5, 0, xy.data(), ncc.data()), 2);
  EXPECT_EQ(tvxNCCPatchesOnRectu8(patches.data(), 1, img.data(), w, h, stride, 4, 3, 5, 5, 0, xy.data(), ncc.data()), 2);
  EXPECT_EQ(tvxNCCPatchesOnRectu8(patches.data(), 1, img.data(), w, h, stride, 4, 4, w - 6, 5, 0, xy.data(), ncc.data()), 2);
  EXPECT_EQ(tvxNCCPatchesOnRectu8(patches.data(), 1, img.data(), w, h, stride, 4, 4, 5, h - 6, 0, xy.data(), ncc.data()), 2);
  EXPECT_EQ(tvxNCCPatchesOnRectu8(patches.data(), 1, img.data(), w, h, stride, 4, 4, 0xFFFFFFF0u, 5, 0, xy.data(), ncc.data()), 2);
  EXPECT_EQ(tvxNCCPatchesOnRectu8(patches.data(), 1, img.data(), w, h, stride, 4, 4, 0, 5, 0, xy.data(), ncc.data()), 3);
  tvx_fail_heap_after_for_test(0);
  EXPECT_EQ(tvxNCCPatchesOnRectu8(patches.data(), 1, img.data(), w, h, stride, 4, 4, 5, 5, 0, xy.data(), ncc.data()), 5);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(ncc[0], 55);
}

}  // namespace
