// Harris family through the public entries on the reference tier: the integer detector, the
// minimum-eigenvalue detector and the local maximum search against direct per-pixel models of
// their formulas, the strict maximum and the border rule, masks, capacity, the adaptive
// selection's properties, the score map against OpenCV's cornerHarris and the sub-pixel
// refinement against OpenCV's cornerSubPix, and bad arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"
#include "simd_check.h"

#if TAVIX_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;
using tvxtest::Image;
using Corners = std::vector<std::pair<uint32_t, uint32_t>>;

// A grey image with smooth blobs and steps: plenty of corners of varied strength.
Image Scene(uint32_t w, uint32_t h, uint32_t seed, uint32_t pad = 0, uint32_t misalign = 0) {
  Image img(w, h, 1, pad, misalign);
  std::mt19937 rng(seed);
  std::vector<int> v(size_t(w) * h, 60);
  for (int n = 0; n < int(w * h / 60) + 2; ++n) {
    const int x0 = rng() % w, y0 = rng() % h, rw = 2 + rng() % 9, rh = 2 + rng() % 9, d = int(rng() % 120) - 40;
    for (int y = y0; y < std::min<int>(h, y0 + rh); ++y)
      for (int x = x0; x < std::min<int>(w, x0 + rw); ++x) v[size_t(y) * w + x] += d;
  }
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) img.row(y)[x] = uint8_t(std::clamp(v[size_t(y) * w + x] + int(rng() % 7), 0, 255));
  return img;
}

// The structure tensor at (x, y), written out: halved central differences, 16-bit products, the
// 25 binomial weights at once, >> 8.
struct Tensor {
  int32_t xx, xy, yy;
};
Tensor TensorAt(const Image& img, int x, int y) {
  static const int w[5] = {1, 4, 6, 4, 1};
  int32_t sxx = 0, sxy = 0, syy = 0;
  for (int dy = -2; dy <= 2; ++dy)
    for (int dx = -2; dx <= 2; ++dx) {
      const int px = x + dx, py = y + dy;
      const int gx = (img.row(py)[px + 1] - img.row(py)[px - 1]) >> 1;
      const int gy = (img.row(py + 1)[px] - img.row(py - 1)[px]) >> 1;
      const int weight = w[dy + 2] * w[dx + 2];
      sxx += weight * int16_t(gx * gx);
      sxy += weight * int16_t(gx * gy);
      syy += weight * int16_t(gy * gy);
    }
  return {sxx >> 8, sxy >> 8, syy >> 8};
}
int32_t HarrisAt(const Image& img, int x, int y) {
  const Tensor t = TensorAt(img, x, y);
  return t.xx * t.yy - t.xy * t.xy - (((t.xx + t.yy) * (t.xx + t.yy)) >> 4);
}
float EigenAt(const Image& img, int x, int y) {
  const Tensor t = TensorAt(img, x, y);
  const double a = t.xx / 2.0, c = t.yy / 2.0;
  return float(a + c - std::sqrt((a - c) * (a - c) + double(t.xy) * t.xy));
}

// Responses on the pixels 3 .. size - 4 (0 elsewhere, never read by the models below).
template <typename T, typename F>
std::vector<T> ResponseMap(const Image& img, F f) {
  std::vector<T> r(size_t(img.width()) * img.height(), T(0));
  for (int y = 3; y + 3 < int(img.height()); ++y)
    for (int x = 3; x + 3 < int(img.width()); ++x) r[size_t(y) * img.width() + x] = f(img, x, y);
  return r;
}

template <typename T>
bool StrictMax(const std::vector<T>& r, uint32_t w, int x, int y) {
  for (int dy = -2; dy <= 2; ++dy)
    for (int dx = -2; dx <= 2; ++dx)
      if ((dx || dy) && !(r[size_t(y) * w + x] > r[size_t(y + dy) * w + x + dx])) return false;
  return true;
}

Corners ModelHarris(const Image& img, uint32_t border, int32_t threshold) {
  const uint32_t w = img.width(), h = img.height(), b = std::max(border, 5u);
  const std::vector<int32_t> r = ResponseMap<int32_t>(img, HarrisAt);
  Corners out;
  for (uint32_t y = b; y + b < h; ++y)
    for (uint32_t x = b; x + b < w; ++x)
      if (r[size_t(y) * w + x] > threshold && StrictMax(r, w, x, y)) out.push_back({x, y});
  return out;
}

Corners AsList(const std::vector<uint32_t>& xy, uint32_t n) {
  Corners c;
  for (uint32_t i = 0; i < n; ++i) c.push_back({xy[2 * i], xy[2 * i + 1]});
  return c;
}

Corners Detect(const Image& img, uint32_t border, int32_t threshold, uint32_t cap = 4096) {
  std::vector<uint32_t> xy(2 * cap + 2, 0xDEADBEEF);
  uint32_t n = 777;
  EXPECT_EQ(tvxCornerHarrisu8(img.bytes(), img.width(), img.height(), img.stride(), border, xy.data(), cap, &n, threshold), 0);
  EXPECT_EQ(xy[2 * cap], 0xDEADBEEFu) << "wrote past the capacity";
  return n <= cap ? AsList(xy, n) : Corners{};
}

class Harris : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
};

TEST_F(Harris, DetectorMatchesDirectModelBorderRuleAndCapacity) {
  for (auto [w, h] : {std::pair{11u, 11u}, std::pair{12u, 40u}, std::pair{67u, 23u}, std::pair{160u, 90u}}) {
    const Image img = Scene(w, h, w * 31 + h, w % 5, w % 3);
    for (int32_t threshold : {-2000000000, 0, 5000, 200000}) {
      SCOPED_TRACE(::testing::Message() << w << "x" << h << " threshold " << threshold);
      const Corners model = ModelHarris(img, 5, threshold);
      EXPECT_EQ(Detect(img, 5, threshold), model);
      for (uint32_t border : {0u, 1u, 4u}) EXPECT_EQ(Detect(img, border, threshold), model) << "border " << border;
      EXPECT_EQ(Detect(img, 8, threshold), ModelHarris(img, 8, threshold));
    }
  }
  // A scene large enough to hold many corners: the model agrees and finds some.
  const Image big = Scene(200, 150, 5);
  const Corners model = ModelHarris(big, 5, 1000);
  EXPECT_GT(model.size(), 20u);
  EXPECT_EQ(Detect(big, 0, 1000), model);
  // A full list is no error: it holds the first corners in scan order.
  for (uint32_t cap : {0u, 1u, 3u}) EXPECT_EQ(Detect(big, 0, 1000, cap), Corners(model.begin(), model.begin() + cap));
}

TEST_F(Harris, FlatImagesAndTiedMaximaGiveNoCorners) {
  Image flat(40, 30, 1);
  for (uint32_t y = 0; y < 30; ++y) std::memset(flat.row(y), 90, 40);
  EXPECT_TRUE(Detect(flat, 0, 0).empty());
  EXPECT_TRUE(Detect(flat, 0, -1).empty()) << "R = 0 everywhere: equal neighbours reject every pixel";

  // An image symmetric about its diagonal has R(x, y) = R(y, x) exactly, so a maximum next to
  // the diagonal ties with its mirror image one pixel away: neither is a corner.
  const uint32_t n = 48;
  Image mirrored(n, n, 1);
  std::mt19937 rng(3);
  std::vector<int> v(n * n, 100);
  for (int k = 0; k < 40; ++k) {
    const int x0 = rng() % n, y0 = rng() % n, rw = 2 + rng() % 6, rh = 2 + rng() % 6, d = int(rng() % 100) - 50;
    for (int y = y0; y < std::min<int>(n, y0 + rh); ++y)
      for (int x = x0; x < std::min<int>(n, x0 + rw); ++x) v[y * n + x] += d, v[x * n + y] += d;
  }
  for (uint32_t y = 0; y < n; ++y)
    for (uint32_t x = 0; x < n; ++x) mirrored.row(y)[x] = uint8_t(std::clamp(v[y * n + x], 0, 255));
  const std::vector<int32_t> r = ResponseMap<int32_t>(mirrored, HarrisAt);
  Corners tied;  // positive, at least every neighbour, equal to one of them
  for (uint32_t y = 5; y + 5 < n; ++y)
    for (uint32_t x = 5; x + 5 < n; ++x) {
      bool atLeast = r[y * n + x] > 0, equal = false;
      for (int dy = -2; dy <= 2; ++dy)
        for (int dx = -2; dx <= 2; ++dx) {
          if (!dx && !dy) continue;
          const int32_t other = r[(y + dy) * n + x + dx];
          atLeast = atLeast && r[y * n + x] >= other;
          equal = equal || r[y * n + x] == other;
        }
      if (atLeast && equal) tied.push_back({x, y});
    }
  ASSERT_FALSE(tied.empty()) << "the pattern must hold tied maxima for this check to mean anything";
  const Corners found = Detect(mirrored, 0, 0);
  for (auto c : tied) EXPECT_EQ(std::find(found.begin(), found.end(), c), found.end()) << c.first << "," << c.second;
}

TEST_F(Harris, MasksExcludeTheirPixels) {
  const uint32_t w = 96, h = 64;
  const Image img = Scene(w, h, 21);
  const Corners all = Detect(img, 0, 0);
  ASSERT_GT(all.size(), 8u);
  const auto run = [&](const std::vector<uint8_t>& mask, uint32_t mw, uint32_t mh) {
    std::vector<uint32_t> xy(2 * 4096);
    uint32_t n = 555;
    EXPECT_EQ(tvxCornerHarrisInMasku8(img.bytes(), w, h, img.stride(), 0, xy.data(), 4096, &n, 0, mask.data(), mw, mh), 0);
    return AsList(xy, n);
  };
  // Mask half the size, left half of its columns set: corners left of x = 48 vanish.
  const uint32_t mw = w / 2, mh = h / 2, rowBytes = (mw + 7) / 8;
  std::vector<uint8_t> half(size_t(rowBytes) * mh, 0);
  for (uint32_t y = 0; y < mh; ++y)
    for (uint32_t x = 0; x < mw / 2; ++x) half[y * rowBytes + x / 8] |= uint8_t(0x80 >> (x % 8));
  Corners right;
  for (auto c : all)
    if (c.first >= w / 2) right.push_back(c);
  EXPECT_EQ(run(half, mw, mh), right);
  // Twice the size, one bit set per image pixel (at the mapped position 2x, 2y) for the bottom half.
  const uint32_t bw = 2 * w, bh = 2 * h, bRow = (bw + 7) / 8;
  std::vector<uint8_t> big(size_t(bRow) * bh, 0);
  for (uint32_t y = h / 2; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) big[(2 * y) * bRow + (2 * x) / 8] |= uint8_t(0x80 >> ((2 * x) % 8));
  Corners top;
  for (auto c : all)
    if (c.second < h / 2) top.push_back(c);
  EXPECT_EQ(run(big, bw, bh), top);
  // Clear mask: everything; full mask: nothing; sizes off the 1, 2, 4, 8 ratios: nothing.
  EXPECT_EQ(run(std::vector<uint8_t>(12 * 64, 0), w, h), all);
  EXPECT_TRUE(run(std::vector<uint8_t>(12 * 64, 0xFF), w, h).empty());
  EXPECT_TRUE(run(std::vector<uint8_t>(64 * 96, 0), w * 3 / 2, h * 3 / 2).empty());
  EXPECT_TRUE(run(std::vector<uint8_t>(64 * 96, 0), w / 2, h / 4).empty());
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Harris, AdaptiveTakesTheStrongestSpacedMaxima) {
  const Image img = Scene(160, 120, 77, 3, 1);
  const uint32_t w = img.width();
  const std::vector<int32_t> r = ResponseMap<int32_t>(img, HarrisAt);
  std::vector<std::pair<int32_t, std::pair<uint32_t, uint32_t>>> maxima;  // (-response, (y, x))
  for (uint32_t y = 5; y + 5 < img.height(); ++y)
    for (uint32_t x = 5; x + 5 < w; ++x)
      if (r[size_t(y) * w + x] > 0 && StrictMax(r, w, x, y)) maxima.push_back({-r[size_t(y) * w + x], {y, x}});
  std::sort(maxima.begin(), maxima.end());
  ASSERT_GT(maxima.size(), 30u);
  const auto run = [&](uint32_t cap, float minDistance, int32_t threshold, float fraction) {
    std::vector<uint32_t> xy(2 * cap + 2, 0xDEADBEEF);
    uint32_t n = 999;
    EXPECT_EQ(tvxCornerHarrisAdaptiveu8(img.bytes(), w, img.height(), img.stride(), cap, minDistance, xy.data(), &n,
                                        threshold, fraction), 0);
    EXPECT_EQ(xy[2 * cap], 0xDEADBEEFu);
    return AsList(xy, std::min(n, cap));
  };
  // No spacing, a threshold far above every response and fraction 1: the threshold falls until
  // enough maxima pass, and the 20 strongest come back in scan order.
  Corners strongest;
  for (size_t i = 0; i < 20; ++i) strongest.push_back({maxima[i].second.second, maxima[i].second.first});
  std::sort(strongest.begin(), strongest.end(), [](auto a, auto b) { return std::pair(a.second, a.first) < std::pair(b.second, b.first); });
  EXPECT_EQ(run(20, 0.0f, 1 << 30, 1.0f), strongest);
  // A threshold no maximum passes, and no fraction asked: nothing.
  EXPECT_TRUE(run(20, 0.0f, 1 << 30, 0.0f).empty());
  // Spacing: every kept pair at least 15 apart, still the strongest maximum kept.
  const Corners spaced = run(50, 15.0f, 1000, 0.5f);
  ASSERT_FALSE(spaced.empty());
  for (size_t i = 0; i < spaced.size(); ++i)
    for (size_t j = i + 1; j < spaced.size(); ++j) {
      const double dx = double(spaced[i].first) - spaced[j].first, dy = double(spaced[i].second) - spaced[j].second;
      EXPECT_GE(dx * dx + dy * dy, 225.0);
    }
  EXPECT_NE(std::find(spaced.begin(), spaced.end(), std::pair(maxima[0].second.second, maxima[0].second.first)), spaced.end());
  EXPECT_TRUE(std::is_sorted(spaced.begin(), spaced.end(), [](auto a, auto b) { return std::pair(a.second, a.first) < std::pair(b.second, b.first); }));
}

TEST_F(Harris, GoodFeaturesMatchDirectEigenvalueModel) {
  for (auto [w, h] : {std::pair{11u, 13u}, std::pair{90u, 70u}}) {
    const Image img = Scene(w, h, w + 7, 2, 1);
    const std::vector<float> r = ResponseMap<float>(img, EigenAt);
    for (float threshold : {-1.0f, 0.0f, 300.5f})
      for (float minDistance : {0.0f, 1.0f, 7.5f}) {
        SCOPED_TRACE(::testing::Message() << w << "x" << h << " threshold " << threshold << " distance " << minDistance);
        Corners model;
        for (uint32_t y = 5; y + 5 < h; ++y)
          for (uint32_t x = 5; x + 5 < w; ++x) {
            if (!(r[size_t(y) * w + x] > threshold) || !StrictMax(r, w, x, y)) continue;
            bool far = true;
            for (auto c : model) {
              const float dx = float(x) - float(c.first), dy = float(y) - float(c.second);
              if (minDistance > 1.0f && dx * dx + dy * dy < minDistance * minDistance) far = false;
            }
            if (far) model.push_back({x, y});
          }
        std::vector<uint32_t> xy(2 * 1000);
        uint32_t n = 0;
        ASSERT_EQ(tvxGoodFeatureToTracku8(img.bytes(), w, h, img.stride(), 1000, threshold, minDistance, xy.data(), &n), 0);
        EXPECT_EQ(AsList(xy, n), model);
        if (model.size() > 2) {
          ASSERT_EQ(tvxGoodFeatureToTracku8(img.bytes(), w, h, img.stride(), 2, threshold, minDistance, xy.data(), &n), 0);
          EXPECT_EQ(AsList(xy, n), Corners(model.begin(), model.begin() + 2));
        }
      }
  }
}

TEST_F(Harris, LocalMaximumSearchesItsWindow) {
  const Image img = Scene(50, 40, 13, 1, 2);
  for (auto [px, py, radius] : {std::tuple{20u, 20u, 3u}, std::tuple{0u, 0u, 6u}, std::tuple{49u, 39u, 10u}, std::tuple{25u, 18u, 0u}}) {
    int32_t best = INT32_MIN;
    uint32_t bx = 0, by = 0;
    for (int y = std::max(3, int(py) - int(radius)); y <= std::min(36, int(py + radius)); ++y)
      for (int x = std::max(3, int(px) - int(radius)); x <= std::min(46, int(px + radius)); ++x)
        if (HarrisAt(img, x, y) > best) best = HarrisAt(img, x, y), bx = x, by = y;
    uint32_t mx = 0, my = 0;
    int32_t score = 0;
    const int32_t status = tvxLocalHarrisMaxu8(img.bytes(), 50, 40, img.stride(), px, py, radius, &mx, &my, &score);
    if (best == INT32_MIN) {
      EXPECT_EQ(status, 3);
      continue;
    }
    ASSERT_EQ(status, 0);
    EXPECT_EQ(std::tuple(mx, my, score), std::tuple(bx, by, best)) << px << "," << py;
  }
  uint32_t mx = 7, my = 7;
  int32_t score = 7;
  EXPECT_EQ(tvxLocalHarrisMaxu8(img.bytes(), 50, 40, img.stride(), 50, 3, 2, &mx, &my, &score), 3);
  EXPECT_EQ(tvxLocalHarrisMaxu8(img.bytes(), 50, 40, img.stride(), 0, 0, 2, &mx, &my, &score), 3) << "window off the defined pixels";
  EXPECT_EQ(std::tuple(mx, my, score), std::tuple(7u, 7u, 7));
}

// ---- the score map -----------------------------------------------------------------------------

struct ScoreRun {
  std::vector<float> map;
  Corners corners;
  int32_t status;
};
ScoreRun Score(const Image& img, float k, uint32_t ksize, uint32_t block, uint32_t nms, float minDistance,
               uint32_t normalize, float threshold, uint32_t cap = 100000) {
  const uint32_t w = img.width(), h = img.height();
  Image resp(w, h, 4, 12, 4);
  std::vector<uint32_t> xy(2 * cap + 2, 0xDEADBEEF);
  uint32_t n = 0;
  ScoreRun run;
  run.status = tvxCornerHarrisScoreu8(img.bytes(), w, h, img.stride(), resp.as<float>(), resp.stride(), xy.data(), cap, &n,
                                      k, ksize, block, nms, minDistance, normalize, threshold);
  EXPECT_TRUE(resp.GuardsIntact());
  EXPECT_EQ(xy[2 * cap], 0xDEADBEEFu);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) run.map.push_back(reinterpret_cast<const float*>(resp.row(y))[x]);
  run.corners = AsList(xy, std::min(n, cap));
  return run;
}

TEST_F(Harris, ScoreMapSelectionAndNormalisation) {
  Image flat(30, 20, 1);
  for (uint32_t y = 0; y < 20; ++y) std::memset(flat.row(y), 200, 30);
  const ScoreRun constant = Score(flat, 0.04f, 3, 3, 0, 0, 1, 0.0f);
  EXPECT_EQ(constant.status, 0);
  EXPECT_EQ(constant.map, std::vector<float>(600, 0.0f));
  EXPECT_TRUE(constant.corners.empty());

  const Image img = Scene(70, 50, 4);
  const ScoreRun raw = Score(img, 0.05f, 3, 2, 0, 0, 0, 0.0f);
  const ScoreRun norm = Score(img, 0.05f, 3, 2, 0, 0, 1, 100.0f);
  const auto [lo, hi] = std::minmax_element(raw.map.begin(), raw.map.end());
  ASSERT_LT(*lo, *hi);
  for (size_t i = 0; i < raw.map.size(); ++i) EXPECT_NEAR(norm.map[i], (raw.map[i] - *lo) * 255.0f / (*hi - *lo), 1e-3f);
  // Plain thresholding: scan order, every pixel above; with suppression: only window maxima
  // (from 0), plateaus kept.
  for (auto [nms, minDistance] : {std::pair{0u, 0.0f}, std::pair{1u, 5.9f}, std::pair{1u, 0.5f}}) {
    const ScoreRun run = Score(img, 0.05f, 3, 2, nms, minDistance, 1, 100.0f);
    const int half = nms ? int(std::floor(minDistance)) >> 1 : 0;
    Corners model;
    for (int y = 0; y < 50; ++y)
      for (int x = 0; x < 70; ++x) {
        const float v = run.map[size_t(y) * 70 + x];
        float best = 0.0f;
        for (int wy = std::max(0, y - half); wy <= std::min(49, y + half); ++wy)
          for (int wx = std::max(0, x - half); wx <= std::min(69, x + half); ++wx) best = std::max(best, run.map[size_t(wy) * 70 + wx]);
        if (v > 100.0f && (!nms || v == best)) model.push_back({uint32_t(x), uint32_t(y)});
      }
    ASSERT_FALSE(model.empty());
    EXPECT_EQ(run.corners, model) << "nms " << nms << " distance " << minDistance;
    EXPECT_EQ(Score(img, 0.05f, 3, 2, nms, minDistance, 1, 100.0f, 2).corners, Corners(model.begin(), model.begin() + std::min<size_t>(2, model.size())));
  }
}

TEST_F(Harris, ScoreMapRejectsBadParametersWithoutWriting) {
  const Image img = Scene(20, 16, 1);
  std::vector<float> resp(20 * 16, -7.0f);
  std::vector<uint32_t> xy(64, 9);
  uint32_t n = 9;
  const auto call = [&](uint32_t respStride, uint32_t ksize, uint32_t block, uint32_t normalize, float threshold) {
    return tvxCornerHarrisScoreu8(img.bytes(), 20, 16, img.stride(), resp.data(), respStride, xy.data(), 32, &n, 0.04f,
                                  ksize, block, 1, 3.0f, normalize, threshold);
  };
  for (auto [respStride, ksize, block, normalize, threshold] :
       {std::tuple{79u, 3u, 3u, 0u, 0.0f}, {80u, 4u, 3u, 0u, 0.0f}, {80u, 9u, 3u, 0u, 0.0f}, {80u, 3u, 0u, 0u, 0.0f},
        {80u, 3u, 3u, 1u, 255.5f}, {80u, 3u, 3u, 1u, -0.5f}})
    EXPECT_EQ(call(respStride, ksize, block, normalize, threshold), 3) << respStride << " " << ksize << " " << block;
  EXPECT_EQ(tvxCornerHarrisScoreu8(img.bytes(), 20, 16, 19, resp.data(), 80, xy.data(), 32, &n, 0.04f, 3, 3, 0, 0, 0, 0), 3);
  EXPECT_EQ(tvxCornerHarrisScoreu8(img.bytes(), 20, 16, 0, resp.data(), 80, xy.data(), 32, nullptr, 0.04f, 3, 3, 0, 0, 0, 0), 3);
  EXPECT_EQ(resp, std::vector<float>(20 * 16, -7.0f));
  EXPECT_EQ(xy, std::vector<uint32_t>(64, 9));
  EXPECT_EQ(n, 9u);
  // Thresholds outside 0..255 are fine on the raw map.
  EXPECT_EQ(call(80, 3, 3, 0, -0.5f), 0);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Harris, DetectorsRejectBadArgumentsWithTheirCondition) {
  const Image img = Scene(20, 16, 2);
  std::vector<uint32_t> xy(64, 9);
  uint32_t n = 9;
  const char* cond = "src && xy && numcorners && width && height && (stride >= width) && width > 4 && height > 4";
  EXPECT_EQ(tvxCornerHarrisu8(img.bytes(), 4, 16, 0, 0, xy.data(), 32, &n, 0), 3);
  EXPECT_EQ(tvxCornerHarrisu8(img.bytes(), 20, 16, 19, 0, xy.data(), 32, &n, 0), 3);
  EXPECT_EQ(tvxCornerHarrisu8(img.bytes(), 20, 16, 0, 0, xy.data(), 32, nullptr, 0), 3);
  ASSERT_EQ(g_lines.size(), 3u);
  for (const auto& line : g_lines) EXPECT_EQ(line, tvxtest::AssertLine("tvxCornerHarrisu8", cond));
  g_lines.clear();
  EXPECT_EQ(tvxCornerHarrisInMasku8(img.bytes(), 20, 16, 0, 0, xy.data(), 32, &n, 0, img.bytes(), 0, 16), 3);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxCornerHarrisInMasku8", "srcImg && xy && numcorners && bitMask && width && height && (stride >= width) && maskHeight && maskWidth"));
  g_lines.clear();
  EXPECT_EQ(tvxGoodFeatureToTracku8(img.bytes(), 20, 4, 20, 32, 0.0f, 0.0f, xy.data(), &n), 3);
  EXPECT_EQ(tvxGoodFeatureToTracku8(img.bytes(), 20, 16, 19, 32, 0.0f, 0.0f, xy.data(), &n), 3);
  EXPECT_EQ(tvxGoodFeatureToTracku8(img.bytes(), 20, 16, 20, 32, 0.0f, 0.0f, nullptr, &n), 3);
  EXPECT_TRUE(g_lines.empty());
  EXPECT_EQ(xy, std::vector<uint32_t>(64, 9));
  EXPECT_EQ(n, 9u);
  // An image too small for the border is accepted and has no corners.
  EXPECT_EQ(tvxCornerHarrisu8(img.bytes(), 10, 16, 0, 0, xy.data(), 32, &n, 0), 0);
  EXPECT_EQ(n, 0u);
}

TEST_F(Harris, NoScratchMeansNoCorners) {
  const Image img = Scene(60, 40, 8);
  std::vector<uint32_t> xy(2 * 256);
  std::vector<float> resp(60 * 40);
  uint32_t n = 77;
  tvx_fail_heap_after_for_test(0);
  const int32_t harris = tvxCornerHarrisu8(img.bytes(), 60, 40, 0, 0, xy.data(), 256, &n, 0);
  const uint32_t harrisCount = n;
  n = 77;
  const int32_t gftt = tvxGoodFeatureToTracku8(img.bytes(), 60, 40, 0, 256, 0.0f, 0.0f, xy.data(), &n);
  const uint32_t gfttCount = n;
  n = 77;
  const int32_t score = tvxCornerHarrisScoreu8(img.bytes(), 60, 40, 0, resp.data(), 0, xy.data(), 256, &n, 0.04f, 3, 3, 0, 0, 0, 0);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(std::tuple(harris, harrisCount), std::tuple(5, 0u));
  EXPECT_EQ(std::tuple(gftt, gfttCount), std::tuple(5, 0u));
  EXPECT_EQ(std::tuple(score, n), std::tuple(5, 0u));
}

#if TAVIX_HAVE_OPENCV

TEST_F(Harris, ScoreMapAgreesWithOpenCvCornerHarris) {
  const Image img = Scene(80, 60, 12);
  cv::Mat mat(60, 80, CV_8UC1);
  for (int y = 0; y < 60; ++y) std::memcpy(mat.ptr(y), img.row(y), 80);
  for (auto [ksize, block] : {std::pair{3u, 3u}, std::pair{5u, 2u}, std::pair{3u, 5u}, std::pair{5u, 1u}}) {
    SCOPED_TRACE(::testing::Message() << "kernel " << ksize << " block " << block);
    const float k = 0.04f;
    cv::Mat peer;
    cv::cornerHarris(mat, peer, int(block), int(ksize), k, cv::BORDER_REPLICATE);
    const ScoreRun run = Score(img, k, ksize, block, 0, 0, 0, 1e30f);
    // OpenCV scales the derivatives and sums the window: its tensor is ours times
    // s * blockSize^2 with s = 1 / (blockSize * 2^(ksize-1) * 255), its response that squared.
    const double s = 1.0 / (block * double(1 << (ksize - 1)) * 255.0);
    const double factor = (s * block * block) * (s * block * block);
    double peak = 0;
    for (int y = 0; y < 60; ++y)
      for (int x = 0; x < 80; ++x) peak = std::max(peak, std::fabs(double(peer.at<float>(y, x))));
    ASSERT_GT(peak, 0);
    const int margin = int(ksize / 2 + block);  // the box window is cut at the edges here
    for (int y = margin; y < 60 - margin; ++y)
      for (int x = margin; x < 80 - margin; ++x)
        ASSERT_NEAR(run.map[size_t(y) * 80 + x] * factor, peer.at<float>(y, x), 1e-4 * peak) << x << "," << y;
  }
}

TEST_F(Harris, SubPixelRefinementAgreesWithOpenCvCornerSubPix) {
  // Two smoothed corners of a quadrant pattern whose true centres lie between pixels.
  const int w = 64, h = 48;
  const float cx[2] = {20.3f, 41.7f}, cy[2] = {18.6f, 30.25f};
  Image img(w, h, 1, 3, 1);
  cv::Mat mat(h, w, CV_8UC1);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const int i = x < 31 ? 0 : 1;
      const double u = (x - cx[i]) / 0.8, v = (y - cy[i]) / 0.8;
      const double sx = std::erf(u), sy = std::erf(v);
      const uint8_t p = uint8_t(std::lround(128 + 90 * sx * sy));
      img.row(y)[x] = p;
      mat.at<uint8_t>(y, x) = p;
    }
  std::vector<float> xy = {20.0f, 19.0f, 42.0f, 30.0f, 2.0f, 2.0f};
  std::vector<cv::Point2f> peer = {{20.0f, 19.0f}, {42.0f, 30.0f}};
  ASSERT_EQ(tvxCornerRefineSubPixu8(img.bytes(), w, h, img.stride(), xy.data(), 2, 4, 4, 40, 0.001f), 0);
  cv::cornerSubPix(mat, peer, cv::Size(4, 4), cv::Size(-1, -1),
                   cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 40, 0.001));
  for (int i = 0; i < 2; ++i) {
    EXPECT_NEAR(xy[2 * i], peer[i].x, 0.02);
    EXPECT_NEAR(xy[2 * i + 1], peer[i].y, 0.02);
    // And both find the saddle of the pattern.
    EXPECT_NEAR(xy[2 * i], cx[i], 0.2);
    EXPECT_NEAR(xy[2 * i + 1], cy[i], 0.2);
  }
  EXPECT_EQ(xy[4], 2.0f) << "only nCorners points move";
  EXPECT_EQ(tvxCornerRefineSubPixu8(img.bytes(), w, h, img.stride(), xy.data(), 2, 0, 4, 40, 0.001f), 3);
  EXPECT_EQ(tvxCornerRefineSubPixu8(img.bytes(), w, h, img.stride(), xy.data(), 2, 4, 33, 40, 0.001f), 3);
}

#endif  // TAVIX_HAVE_OPENCV

}  // namespace
