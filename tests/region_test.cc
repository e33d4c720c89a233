// Region family through the public entries: flood fills against cv::floodFill and against a
// pixel-by-pixel breadth-first model, region growing checked by the properties that define its
// labelling, seeded growth against per-seed distances, the motion history update against its
// formula over a moving silhouette and its SIMD tier against the reference on every target, and
// bad arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <deque>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"
#include "simd_check.h"

#if TAVIX_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

using tvxtest::Image;

// Blocky grey scene: rectangles of a few levels plus mild noise, so fills meet walls, plateaus
// and gentle ramps.
Image Scene(uint32_t w, uint32_t h, uint32_t seed, uint32_t pad = 0, uint32_t misalign = 0, int noise = 3) {
  Image img(w, h, 1, pad, misalign);
  std::mt19937 rng(seed);
  std::vector<int> v(size_t(w) * h, 100);
  for (uint32_t n = 0; n < 6 + w * h / 200; ++n) {
    const int x0 = rng() % w, y0 = rng() % h, rw = 1 + rng() % (w / 2 + 1), rh = 1 + rng() % (h / 2 + 1);
    const int level = int(rng() % 6) * 40;
    for (int y = y0; y < std::min<int>(h, y0 + rh); ++y)
      for (int x = x0; x < std::min<int>(w, x0 + rw); ++x) v[size_t(y) * w + x] = level;
  }
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x)
      img.at<uint8_t>(x, y) = uint8_t(std::clamp(v[size_t(y) * w + x] + int(rng() % (2 * noise + 1)) - noise, 0, 255));
  return img;
}

struct FillResult {
  std::vector<uint8_t> pixels;
  uint32_t area, rect[4];
};

// Pixel-by-pixel model: a queue of pixels, each admitted from the pixel it is reached from.
FillResult ModelFill(const Image& img, uint32_t sx, uint32_t sy, uint8_t newVal, int lo, int up, bool fixed,
                     bool eight) {
  const uint32_t w = img.width(), h = img.height();
  FillResult r{std::vector<uint8_t>(size_t(w) * h), 0, {sx, sy, sx, sy}};
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) r.pixels[size_t(y) * w + x] = img.row(y)[x];
  std::vector<char> in(size_t(w) * h, 0);
  std::deque<std::pair<int, int>> q{{int(sx), int(sy)}};
  in[size_t(sy) * w + sx] = 1;
  const int seed = img.row(sy)[sx];
  while (!q.empty()) {
    const auto [x, y] = q.front();
    q.pop_front();
    ++r.area;
    r.rect[0] = std::min<uint32_t>(r.rect[0], x), r.rect[1] = std::min<uint32_t>(r.rect[1], y);
    r.rect[2] = std::max<uint32_t>(r.rect[2], x), r.rect[3] = std::max<uint32_t>(r.rect[3], y);
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx) {
        if ((dx == 0 && dy == 0) || (!eight && dx != 0 && dy != 0)) continue;
        const int nx = x + dx, ny = y + dy;
        if (nx < 0 || ny < 0 || nx >= int(w) || ny >= int(h) || in[size_t(ny) * w + nx]) continue;
        const int from = fixed ? seed : img.row(y)[x], v = img.row(ny)[nx];
        if (v < from - lo || v > from + up) continue;
        in[size_t(ny) * w + nx] = 1;
        q.push_back({nx, ny});
      }
  }
  for (size_t i = 0; i < in.size(); ++i)
    if (in[i]) r.pixels[i] = newVal;
  r.rect[2] = r.rect[2] - r.rect[0] + 1;
  r.rect[3] = r.rect[3] - r.rect[1] + 1;
  return r;
}

std::vector<uint8_t> Pixels(const Image& img) {
  std::vector<uint8_t> p;
  for (uint32_t y = 0; y < img.height(); ++y) p.insert(p.end(), img.row(y), img.row(y) + img.width());
  return p;
}

struct FillCase {
  uint32_t w, h, pad, misalign, seed;
  uint8_t lo, up;
};

std::vector<FillCase> FillCases() {
  std::vector<FillCase> cases;
  for (uint32_t i = 0; i < 24; ++i)
    cases.push_back({1 + (i * 37) % 90, 1 + (i * 23) % 60, i % 3 * 5, i % 4, 100 + i, uint8_t(i % 5 * 3),
                     uint8_t((i * 7) % 11)});
  cases.push_back({1, 1, 0, 0, 7, 0, 0});
  cases.push_back({320, 200, 3, 1, 77, 4, 4});
  return cases;
}

// Both fills against the model and (on hosts) OpenCV: pixels, area and bounding box, with the
// bytes round the caller's rectangle untouched.
TEST(RegionFloodFill, FixedAndFloatingFillsMatchModelAndOpenCV) {
  for (const FillCase& c : FillCases()) {
    for (int mode = 0; mode < 3; ++mode) {  // 0 fixed 4-connected, 1 floating 4, 2 floating 8
      SCOPED_TRACE(::testing::Message() << c.w << "x" << c.h << " seed " << c.seed << " mode " << mode);
      const Image src = Scene(c.w, c.h, c.seed, c.pad, c.misalign);
      const uint32_t sx = c.seed % c.w, sy = (c.seed / 3) % c.h;
      const uint8_t newVal = uint8_t(c.seed * 13);
      Image out = src;
      uint32_t area = 0, rect[4] = {};
      const int32_t status =
          mode == 0 ? tvxFloodfillSimpleu8(out.bytes(), c.w, c.h, out.stride(), sx, sy, newVal, c.lo, c.up, &area, rect)
                    : tvxFloodfillMergedu8(out.bytes(), c.w, c.h, out.stride(), sx, sy, newVal, c.lo, c.up,
                                           mode == 1 ? 4 : 8, &area, rect);
      ASSERT_EQ(status, 0);
      EXPECT_TRUE(out.GuardsIntact());
      const FillResult model = ModelFill(src, sx, sy, newVal, c.lo, c.up, mode == 0, mode == 2);
      EXPECT_EQ(Pixels(out), model.pixels);
      EXPECT_EQ(area, model.area);
      EXPECT_EQ(std::vector<uint32_t>(rect, rect + 4), std::vector<uint32_t>(model.rect, model.rect + 4));
#if TAVIX_HAVE_OPENCV
      cv::Mat mat(int(c.h), int(c.w), CV_8UC1);
      for (uint32_t y = 0; y < c.h; ++y) std::copy(src.row(y), src.row(y) + c.w, mat.ptr<uint8_t>(int(y)));
      cv::Rect box;
      const int flags = (mode == 2 ? 8 : 4) | (mode == 0 ? cv::FLOODFILL_FIXED_RANGE : 0);
      const int cvArea = cv::floodFill(mat, cv::Point(int(sx), int(sy)), cv::Scalar(newVal), &box, cv::Scalar(c.lo),
                                       cv::Scalar(c.up), flags);
      EXPECT_EQ(area, uint32_t(cvArea));
      EXPECT_EQ(std::vector<uint32_t>(rect, rect + 4),
                (std::vector<uint32_t>{uint32_t(box.x), uint32_t(box.y), uint32_t(box.width), uint32_t(box.height)}));
      std::vector<uint8_t> cvPixels(mat.begin<uint8_t>(), mat.end<uint8_t>());
      EXPECT_EQ(Pixels(out), cvPixels);
#endif
    }
  }
}

// A new value inside the admitted range must not let the fill run on through its own output,
// and a floating fill climbs a ramp a fixed fill stops on.
TEST(RegionFloodFill, NewValueInsideRangeAndRampsAreFilledOnce) {
  Image img(40, 3, 1);
  for (uint32_t y = 0; y < 3; ++y)
    for (uint32_t x = 0; x < 40; ++x) img.at<uint8_t>(x, y) = uint8_t(y == 1 ? 250 : 10 + 2 * x);
  Image fixedOut = img, floatOut = img;
  uint32_t area = 0, rect[4];
  ASSERT_EQ(tvxFloodfillSimpleu8(fixedOut.bytes(), 40, 3, fixedOut.stride(), 0, 0, 14, 3, 3, &area, rect), 0);
  EXPECT_EQ(area, 2u);  // 10 and 12 lie within 3 of the seed; 14 does not (the new value 14 does)
  EXPECT_EQ(fixedOut.at<uint8_t>(2, 0), 14);
  EXPECT_EQ(fixedOut.at<uint8_t>(3, 0), 16);
  ASSERT_EQ(tvxFloodfillMergedu8(floatOut.bytes(), 40, 3, floatOut.stride(), 0, 0, 14, 0, 2, 4, &area, rect), 0);
  EXPECT_EQ(area, 40u);  // every step rises by 2; the 250 row blocks the way down
  EXPECT_EQ(std::vector<uint32_t>(rect, rect + 4), (std::vector<uint32_t>{0, 0, 40, 1}));
  EXPECT_EQ(floatOut.at<uint8_t>(39, 0), 14);
  EXPECT_EQ(floatOut.at<uint8_t>(0, 2), 10);
}

TEST(RegionFloodFill, BadArgumentsReturnThreeWithoutWriting) {
  Image img = Scene(20, 10, 5);
  const Image before = img;
  uint32_t area = 77, rect[4] = {1, 2, 3, 4};
  EXPECT_EQ(tvxFloodfillSimpleu8(img.bytes(), 20, 10, img.stride(), 20, 0, 1, 1, 1, &area, rect), 3);
  EXPECT_EQ(tvxFloodfillSimpleu8(img.bytes(), 20, 10, img.stride(), 0, 10, 1, 1, 1, &area, rect), 3);
  EXPECT_EQ(tvxFloodfillSimpleu8(img.bytes(), 20, 10, img.stride(), 0, 0, 1, 1, 1, nullptr, rect), 3);
  EXPECT_EQ(tvxFloodfillSimpleu8(img.bytes(), 20, 10, 19, 0, 0, 1, 1, 1, &area, rect), 3);
  EXPECT_EQ(tvxFloodfillMergedu8(img.bytes(), 20, 10, img.stride(), 0, 0, 1, 1, 1, 6, &area, rect), 3);
  EXPECT_EQ(tvxFloodfillMergedu8(img.bytes(), 20, 10, img.stride(), 0, 0, 1, 1, 1, 8, &area, nullptr), 3);
  EXPECT_TRUE(img.SameRect(before));
  EXPECT_EQ(area, 77u);
  EXPECT_EQ(rect[0], 1u);
  // Without scratch memory the fill reports 5 and leaves the image alone.
  tvx_fail_heap_after_for_test(0);
  const int32_t status = tvxFloodfillMergedu8(img.bytes(), 20, 10, img.stride(), 3, 3, 1, 200, 200, 8, &area, rect);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(status, 5);
  EXPECT_TRUE(img.SameRect(before));
}

// Region growing: the labelling is fixed by three properties, each checked on its own: neighbours
// within the threshold share a label, every label is one connected region under the relation,
// and labels appear in scan order 1, 2, ... up to the count.
TEST(RegionSegmentation, LabelsAreTheComponentsNumberedInScanOrder) {
  for (uint32_t t : {0u, 2u, 5u, 40u}) {
    for (uint32_t i = 0; i < 6; ++i) {
      const uint32_t w = 1 + (i * 29) % 70, h = 1 + (i * 17) % 40;
      SCOPED_TRACE(::testing::Message() << w << "x" << h << " threshold " << t);
      const Image src = Scene(w, h, 300 + i, i % 3, i % 2);
      Image labels(w, h, 4, 4 * (i % 2));
      uint32_t count = 0;
      ASSERT_EQ(tvxImageSegmentationRegionGrow(src.bytes(), w, h, src.stride(), t, labels.as<uint32_t>(),
                                               labels.stride(), &count),
                0);
      EXPECT_TRUE(labels.GuardsIntact());
      const auto L = [&](uint32_t x, uint32_t y) { return labels.at<uint32_t>(x, y); };
      const auto near = [&](uint32_t x0, uint32_t y0, uint32_t x1, uint32_t y1) {
        return uint32_t(std::abs(int(src.row(y0)[x0]) - int(src.row(y1)[x1]))) <= t;
      };
      uint32_t next = 1;
      std::vector<char> seen(size_t(w) * h, 0);
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
          if (x + 1 < w && near(x, y, x + 1, y)) {
            ASSERT_EQ(L(x, y), L(x + 1, y));
          }
          if (y + 1 < h && near(x, y, x, y + 1)) {
            ASSERT_EQ(L(x, y), L(x, y + 1));
          }
          if (seen[size_t(y) * w + x]) continue;
          ASSERT_EQ(L(x, y), next) << "first pixel of a new region at " << x << "," << y;
          // Everything the region reaches from its first pixel, and nothing else, has its label.
          std::deque<std::pair<uint32_t, uint32_t>> q{{x, y}};
          seen[size_t(y) * w + x] = 1;
          size_t reached = 0;
          while (!q.empty()) {
            const auto [px, py] = q.front();
            q.pop_front();
            ++reached;
            const int steps[4][2] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
            for (const auto& s : steps) {
              const int nx = int(px) + s[0], ny = int(py) + s[1];
              if (nx < 0 || ny < 0 || nx >= int(w) || ny >= int(h) || seen[size_t(ny) * w + nx]) continue;
              if (!near(px, py, nx, ny)) continue;
              seen[size_t(ny) * w + nx] = 1;
              q.push_back({uint32_t(nx), uint32_t(ny)});
            }
          }
          size_t labelled = 0;
          for (uint32_t yy = 0; yy < h; ++yy)
            for (uint32_t xx = 0; xx < w; ++xx) labelled += L(xx, yy) == next;
          ASSERT_EQ(labelled, reached);
          ++next;
        }
      EXPECT_EQ(count, next - 1);
    }
  }
}

// Seeded growth: each labelled pixel's region is one whose seed reaches it in the fewest steps
// (distances from a breadth-first search per seed), unreachable pixels stay 0, and a duplicate
// seed grows nothing.
TEST(RegionSegmentation, SeededRegionsTakeNearestReachingSeed) {
  for (uint32_t i = 0; i < 8; ++i) {
    const uint32_t w = 5 + (i * 31) % 60, h = 3 + (i * 13) % 30, t = i % 4 * 3;
    SCOPED_TRACE(::testing::Message() << w << "x" << h);
    const Image src = Scene(w, h, 700 + i, i % 2, i % 3);
    std::mt19937 rng(i);
    std::vector<uint32_t> seeds;
    for (uint32_t k = 0; k < 1 + i % 5; ++k) seeds.insert(seeds.end(), {uint32_t(rng() % w), uint32_t(rng() % h)});
    seeds.insert(seeds.end(), {seeds[0], seeds[1]});  // duplicate of the first seed
    const uint32_t n = uint32_t(seeds.size() / 2);
    Image labels(w, h, 2, 2 * (i % 3));
    ASSERT_EQ(tvxImageSegmentationSeedRegionGrows16(src.bytes(), w, h, src.stride(), seeds.data(), n, t,
                                                    labels.as<int16_t>(), labels.stride()),
              0);
    EXPECT_TRUE(labels.GuardsIntact());
    std::vector<std::vector<int>> dist(n, std::vector<int>(size_t(w) * h, INT_MAX));
    for (uint32_t k = 0; k < n; ++k) {
      std::deque<uint32_t> q{seeds[2 * k + 1] * w + seeds[2 * k]};
      dist[k][q.front()] = 0;
      while (!q.empty()) {
        const uint32_t p = q.front();
        q.pop_front();
        const int x = int(p % w), y = int(p / w);
        const int steps[4][2] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
        for (const auto& s : steps) {
          const int nx = x + s[0], ny = y + s[1];
          if (nx < 0 || ny < 0 || nx >= int(w) || ny >= int(h)) continue;
          const uint32_t np = uint32_t(ny) * w + uint32_t(nx);
          if (dist[k][np] != INT_MAX || uint32_t(std::abs(src.row(y)[x] - src.row(ny)[nx])) > t) continue;
          dist[k][np] = dist[k][p] + 1;
          q.push_back(np);
        }
      }
    }
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) {
        const int16_t l = labels.at<int16_t>(x, y);
        int best = INT_MAX;
        for (uint32_t k = 0; k + 1 < n; ++k) best = std::min(best, dist[k][size_t(y) * w + x]);
        if (best == INT_MAX) {
          ASSERT_EQ(l, 0) << x << "," << y;
          continue;
        }
        ASSERT_GE(l, 1);
        ASSERT_LT(l, int16_t(n)) << "the duplicate seed must grow nothing";
        EXPECT_EQ(dist[l - 1][size_t(y) * w + x], best) << x << "," << y;
      }
  }
}

TEST(RegionSegmentation, BadArgumentsReturnThreeWithoutWriting) {
  const Image src = Scene(12, 6, 9);
  std::vector<uint32_t> labels(12 * 6, 0xABCD);
  std::vector<int16_t> marks(12 * 6, 77);
  uint32_t count = 5;
  EXPECT_EQ(tvxImageSegmentationRegionGrow(src.bytes(), 12, 6, src.stride(), 3, labels.data(), 44, &count), 3);
  EXPECT_EQ(tvxImageSegmentationRegionGrow(src.bytes(), 12, 6, src.stride(), 3, labels.data(), 48, nullptr), 3);
  const uint32_t outside[4] = {1, 1, 12, 0};
  EXPECT_EQ(tvxImageSegmentationSeedRegionGrows16(src.bytes(), 12, 6, src.stride(), outside, 2, 3, marks.data(), 24), 3);
  EXPECT_EQ(tvxImageSegmentationSeedRegionGrows16(src.bytes(), 12, 6, src.stride(), nullptr, 1, 3, marks.data(), 24), 3);
  EXPECT_EQ(tvxImageSegmentationSeedRegionGrows16(src.bytes(), 12, 6, src.stride(), outside, 32768, 3, marks.data(), 24), 3);
  EXPECT_EQ(labels, std::vector<uint32_t>(12 * 6, 0xABCD));
  EXPECT_EQ(marks, std::vector<int16_t>(12 * 6, 77));
  EXPECT_EQ(count, 5u);
}

// The motion history over a moving silhouette against the formula evaluated as floats (the
// form in which OpenCV keeps its history: exact here, as every time stays below 2^24).
TEST(RegionMotionHistory, MovingSilhouetteFollowsTheFloatFormula) {
  const uint32_t w = 53, h = 21;
  Image sil(w, h, 1, 3, 1), mhi(w, h, 4, 8);
  std::vector<float> model(size_t(w) * h, 0.0f);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) mhi.at<int32_t>(x, y) = 0;
  const int32_t duration = 5;
  for (int32_t t = 1; t <= 30; ++t) {
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) sil.at<uint8_t>(x, y) = ((x + 2 * t) % 23 < 6 && (y + t) % 7 < 5) ? 255 : 0;
    ASSERT_EQ(tvxUpdateMotionHistoryu8s32(sil.bytes(), w, h, sil.stride(), mhi.as<int32_t>(), mhi.stride(), t,
                                          duration),
              0);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) {
        float& m = model[size_t(y) * w + x];
        m = sil.at<uint8_t>(x, y) ? float(t) : (m < float(t) - float(duration) ? 0.0f : m);
        ASSERT_EQ(float(mhi.at<int32_t>(x, y)), m) << x << "," << y << " t " << t;
      }
  }
  EXPECT_TRUE(mhi.GuardsIntact());
  EXPECT_TRUE(sil.GuardsIntact());
}

TEST(RegionMotionHistory, SimdMatchesReferenceAcrossShapesAndExtremeTimes) {
  std::mt19937 rng(41);
  const std::pair<int32_t, int32_t> times[] = {{1000, 300}, {INT32_MIN + 5, 10}, {INT32_MAX, INT32_MAX}, {-7, 0}};
  tvxtest::ForEachTarget([&] {
    for (const tvxtest::Shape& s : tvxtest::SweepShapes()) {
      for (const auto& [timestamp, duration] : times) {
        SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height << " t " << timestamp);
        Image sil(s.width, s.height, 1, s.pad, s.misalign);
        sil.RandomizeWithExtremes(rng, 1, 3);
        for (uint32_t y = 0; y < s.height; ++y)
          for (uint32_t x = 0; x < s.width; ++x) sil.at<uint8_t>(x, y) = sil.at<uint8_t>(x, y) & (rng() % 2 ? 0xFF : 0);
        Image c(s.width, s.height, 4, 4 * s.pad, 0);
        c.RandomizeAs<int32_t>(rng, std::uniform_int_distribution<int32_t>(INT32_MIN, INT32_MAX));
        for (uint32_t y = 0; y < s.height; ++y)  // half of the old times near the cut
          for (uint32_t x = 0; x < s.width; x += 2)
            c.at<int32_t>(x, y) = int32_t(std::clamp<int64_t>(int64_t(timestamp) - duration + int64_t(rng() % 5) - 2,
                                                              INT32_MIN, INT32_MAX));
        Image v = c;
        ASSERT_EQ(tvxUpdateMotionHistoryu8s32C(sil.bytes(), s.width, s.height, sil.stride(), c.as<int32_t>(),
                                               c.stride(), timestamp, duration),
                  0);
        ASSERT_EQ(tvxUpdateMotionHistoryu8s32V(sil.bytes(), s.width, s.height, sil.stride(), v.as<int32_t>(),
                                               v.stride(), timestamp, duration),
                  0);
        ASSERT_TRUE(v.SameRect(c));
        ASSERT_TRUE(v.GuardsIntact());
      }
    }
  });
}

TEST(RegionMotionHistory, OldestTimesAreClearedWithoutOverflow) {
  int32_t mhi[4] = {INT32_MIN, -100, -10, INT32_MAX};
  const uint8_t sil[4] = {0, 0, 0, 0};
  // timestamp - duration lies below the int32 range: nothing is old enough to clear.
  ASSERT_EQ(tvxUpdateMotionHistoryu8s32(sil, 4, 1, 4, mhi, 16, INT32_MIN + 3, 100), 0);
  EXPECT_EQ(mhi[0], INT32_MIN);
  EXPECT_EQ(mhi[1], -100);
  ASSERT_EQ(tvxUpdateMotionHistoryu8s32(sil, 4, 1, 4, mhi, 16, 50, 60), 0);
  EXPECT_EQ(mhi[0], 0);
  EXPECT_EQ(mhi[1], 0);
  EXPECT_EQ(mhi[2], -10);  // -10 is not below 50 - 60
  EXPECT_EQ(mhi[3], INT32_MAX);
  int32_t keep[2] = {5, 6};
  EXPECT_EQ(tvxUpdateMotionHistoryu8s32(sil, 2, 1, 2, keep, 8, 50, -1), 3);
  EXPECT_EQ(tvxUpdateMotionHistoryu8s32(sil, 2, 1, 2, keep, 6, 50, 1), 3);
  EXPECT_EQ(keep[0], 5);
}

}  // namespace
