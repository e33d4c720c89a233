// Hough family through the public entries: lines of synthetic edge images against their known
// parameters and against cv::HoughLines, capacity and ordering, circles of synthetic scenes
// against their known centres and radii and against cv::HoughCircles, minimum distance and
// capacity, the circle transform's SIMD tier against its reference on every target, and bad
// arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

#if TAVIX_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

using tvxtest::Image;
constexpr float kPi = 3.14159265358979f;

struct Line {
  float rho, theta;
};

// Edge image holding the lines x cos(theta) + y sin(theta) = rho, one pixel per step along each,
// and a sprinkling of isolated noise pixels.
Image LineScene(uint32_t w, uint32_t h, const std::vector<Line>& lines, uint32_t noise, uint32_t seed,
                uint32_t pad = 0) {
  Image img(w, h, 1, pad);
  for (uint32_t y = 0; y < h; ++y) std::fill(img.row(y), img.row(y) + w, uint8_t{0});
  for (const Line& l : lines) {
    const float c = std::cos(l.theta), s = std::sin(l.theta);
    for (int t = -int(w + h); t <= int(w + h); ++t) {
      const float x = l.rho * c - t * s, y = l.rho * s + t * c;
      const int xi = int(std::lround(x)), yi = int(std::lround(y));
      if (xi >= 0 && yi >= 0 && xi < int(w) && yi < int(h)) img.at<uint8_t>(xi, yi) = 255;
    }
  }
  std::mt19937 rng(seed);
  for (uint32_t n = 0; n < noise; ++n) img.at<uint8_t>(rng() % w, rng() % h) = 255;
  return img;
}

std::vector<Line> RunLines(const Image& img, float rho, float theta, uint32_t threshold, uint32_t capacity) {
  std::vector<float> out(2 * capacity + 2, -1.0f);
  uint32_t n = 12345;
  EXPECT_EQ(tvxHoughLineu8(img.bytes(), img.width(), img.height(), img.stride(), rho, theta, threshold, out.data(),
                           capacity, &n),
            0);
  EXPECT_LE(n, capacity);
  EXPECT_EQ(out[2 * capacity], -1.0f) << "wrote past the capacity";
  std::vector<Line> lines;
  for (uint32_t i = 0; i < n && i < capacity; ++i) lines.push_back({out[2 * i], out[2 * i + 1]});
  return lines;
}

TEST(HoughLines, KnownLinesAreFoundFirst) {
  const std::vector<Line> truth = {{40.0f, 0.0f}, {70.0f, kPi / 2}, {90.0f, kPi / 4}, {-20.0f, 2.0f}};
  const Image img = LineScene(160, 120, truth, 60, 3, 5);
  const std::vector<Line> found = RunLines(img, 1.0f, kPi / 180, 40, 4);
  ASSERT_EQ(found.size(), truth.size());
  for (const Line& t : truth) {
    const bool seen = std::any_of(found.begin(), found.end(), [&](const Line& f) {
      return std::fabs(f.rho - t.rho) <= 1.0f && std::fabs(f.theta - t.theta) <= 1.5f * kPi / 180;
    });
    EXPECT_TRUE(seen) << "line rho " << t.rho << " theta " << t.theta;
  }
}

// The sorted list: a smaller capacity returns the head of a larger one's list, in the same order;
// rho and theta sit on the grid of their resolutions.
TEST(HoughLines, CapacityKeepsTheHeadOfTheSortedList) {
  const Image img = LineScene(97, 61, {{30.0f, 0.3f}, {20.0f, 1.2f}, {50.0f, 2.5f}}, 200, 8);
  const std::vector<Line> all = RunLines(img, 2.0f, kPi / 90, 8, 400);
  ASSERT_GT(all.size(), 6u);
  const std::vector<Line> head = RunLines(img, 2.0f, kPi / 90, 8, 5);
  ASSERT_EQ(head.size(), 5u);
  for (size_t i = 0; i < head.size(); ++i) {
    EXPECT_EQ(head[i].rho, all[i].rho);
    EXPECT_EQ(head[i].theta, all[i].theta);
  }
  for (const Line& l : all) {
    EXPECT_GE(l.theta, 0.0f);
    EXPECT_LT(l.theta, kPi);
    const float step = l.theta / (kPi / 90);
    EXPECT_NEAR(step, std::round(step), 1e-3f);
  }
  EXPECT_TRUE(RunLines(img, 2.0f, kPi / 90, 8, 0).empty());
  EXPECT_TRUE(RunLines(img, 2.0f, kPi / 90, 100000, 10).empty());
}

#if TAVIX_HAVE_OPENCV
// Same transform as OpenCV's standard one: the same lines in the same order.
TEST(HoughLines, MatchesOpenCVStandardTransform) {
  struct Case {
    uint32_t w, h;
    float rho, theta;
    uint32_t threshold;
  };
  for (const Case& c : {Case{160, 120, 1.0f, kPi / 180, 30}, Case{97, 61, 2.0f, kPi / 90, 12},
                        Case{33, 200, 0.5f, 0.05f, 20}, Case{64, 64, 1.5f, kPi / 2, 10}}) {
    SCOPED_TRACE(::testing::Message() << c.w << "x" << c.h << " rho " << c.rho << " theta " << c.theta);
    const Image img = LineScene(c.w, c.h, {{c.w / 3.0f, 0.2f}, {c.h / 2.0f, 1.4f}, {10.0f, 2.8f}}, c.w * c.h / 60,
                                c.w, 3);
    const std::vector<Line> mine = RunLines(img, c.rho, c.theta, c.threshold, 1000);
    cv::Mat mat(int(c.h), int(c.w), CV_8UC1);
    for (uint32_t y = 0; y < c.h; ++y) std::copy(img.row(y), img.row(y) + c.w, mat.ptr<uint8_t>(int(y)));
    std::vector<cv::Vec2f> cvLines;
    cv::HoughLines(mat, cvLines, c.rho, c.theta, int(c.threshold));
    ASSERT_EQ(mine.size(), std::min<size_t>(cvLines.size(), 1000));
    for (size_t i = 0; i < mine.size(); ++i) {
      EXPECT_NEAR(mine[i].rho, cvLines[i][0], 1e-4f) << i;
      EXPECT_NEAR(mine[i].theta, cvLines[i][1], 1e-6f) << i;
    }
  }
}
#endif

TEST(HoughLines, BadArgumentsReturnThreeWithoutWriting) {
  const Image img = LineScene(20, 10, {{5.0f, 0.0f}}, 0, 1);
  std::vector<float> out(8, 9.0f);
  uint32_t n = 7;
  EXPECT_EQ(tvxHoughLineu8(img.bytes(), 20, 10, img.stride(), 0.0f, 0.1f, 1, out.data(), 4, &n), 3);
  EXPECT_EQ(tvxHoughLineu8(img.bytes(), 20, 10, img.stride(), 1.0f, std::nanf(""), 1, out.data(), 4, &n), 3);
  EXPECT_EQ(tvxHoughLineu8(img.bytes(), 20, 10, img.stride(), 1e-7f, 0.01f, 1, out.data(), 4, &n), 3);
  EXPECT_EQ(tvxHoughLineu8(img.bytes(), 20, 10, img.stride(), 1.0f, 0.1f, 1, nullptr, 4, &n), 3);
  EXPECT_EQ(tvxHoughLineu8(img.bytes(), 20, 10, 19, 1.0f, 0.1f, 1, out.data(), 4, &n), 3);
  EXPECT_EQ(out, std::vector<float>(8, 9.0f));
  EXPECT_EQ(n, 7u);
}

struct Circle {
  float x, y, r;
};

// Grey scene: discs brighter or darker than a textured background, with noise.
Image CircleScene(uint32_t w, uint32_t h, const std::vector<Circle>& discs, uint32_t seed, uint32_t pad = 0,
                  uint32_t misalign = 0) {
  Image img(w, h, 1, pad, misalign);
  std::mt19937 rng(seed);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      int v = 70 + int((x / 16 + y / 16) % 2) * 10;
      for (size_t k = 0; k < discs.size(); ++k) {
        const float dx = x - discs[k].x, dy = y - discs[k].y;
        if (dx * dx + dy * dy <= discs[k].r * discs[k].r) v = k % 2 ? 20 : 200;
      }
      img.at<uint8_t>(x, y) = uint8_t(std::clamp(v + int(rng() % 9) - 4, 0, 255));
    }
  return img;
}

std::vector<Circle> RunCircles(const Image& img, uint32_t minDist, uint32_t edge, uint32_t acc, uint32_t rMin,
                               uint32_t rMax, uint32_t capacity, bool simd = false) {
  std::vector<float> out(3 * capacity + 3, -1.0f);
  uint32_t n = 12345;
  const auto call = simd ? &tvxHoughCircleu8V : &tvxHoughCircleu8;
  EXPECT_EQ(call(img.bytes(), img.width(), img.height(), img.stride(), minDist, edge, acc, rMin, rMax, out.data(),
                 capacity, &n),
            0);
  EXPECT_LE(n, capacity);
  EXPECT_EQ(out[3 * capacity], -1.0f) << "wrote past the capacity";
  std::vector<Circle> circles;
  for (uint32_t i = 0; i < n && i < capacity; ++i) circles.push_back({out[3 * i], out[3 * i + 1], out[3 * i + 2]});
  return circles;
}

const std::vector<Circle> kDiscs = {{60, 50, 25}, {160, 60, 18}, {110, 130, 35}, {220, 140, 12}};

TEST(HoughCircles, KnownCirclesAreFound) {
  const Image img = CircleScene(260, 180, kDiscs, 5, 7, 1);
  const std::vector<Circle> found = RunCircles(img, 20, 120, 12, 8, 40, 10);
  EXPECT_EQ(found.size(), kDiscs.size());
  for (const Circle& d : kDiscs) {
    const bool seen = std::any_of(found.begin(), found.end(), [&](const Circle& f) {
      return std::hypot(f.x - d.x, f.y - d.y) <= 1.5f && std::fabs(f.r - d.r) <= 1.5f;
    });
    EXPECT_TRUE(seen) << "disc at " << d.x << "," << d.y << " r " << d.r;
  }
}

// Centres closer than minDist to one already written are skipped; capacity stops the search
// with the strongest circles first; a radius range that excludes a disc loses it.
TEST(HoughCircles, MinimumDistanceCapacityAndRadiusRange) {
  const Image img = CircleScene(260, 180, kDiscs, 6);
  const std::vector<Circle> all = RunCircles(img, 20, 120, 12, 8, 40, 10);
  ASSERT_GE(all.size(), 2u);
  for (size_t i = 0; i < all.size(); ++i)
    for (size_t j = 0; j < i; ++j) EXPECT_GE(std::hypot(all[i].x - all[j].x, all[i].y - all[j].y), 20.0f);
  const std::vector<Circle> two = RunCircles(img, 20, 200, 12, 8, 40, 2);
  ASSERT_EQ(two.size(), 2u);
  EXPECT_EQ(two[0].x, all[0].x);
  EXPECT_EQ(two[1].r, all[1].r);
  const std::vector<Circle> small = RunCircles(img, 20, 120, 12, 8, 20, 10);
  for (const Circle& c : small) EXPECT_LE(c.r, 21.0f);
  EXPECT_FALSE(std::any_of(small.begin(), small.end(), [](const Circle& c) { return std::fabs(c.x - 110) < 3; }));
  EXPECT_TRUE(RunCircles(CircleScene(40, 30, {}, 1), 5, 200, 5, 3, 10, 4).empty());
}

#if TAVIX_HAVE_OPENCV
// Every circle OpenCV's gradient transform finds on the same scene is found here too (within
// 4 pixels: OpenCV's own centres and radii stray up to 3 pixels on these discs).
TEST(HoughCircles, AgreesWithOpenCVGradientTransform) {
  const Image img = CircleScene(260, 180, kDiscs, 9);
  const std::vector<Circle> mine = RunCircles(img, 20, 120, 12, 8, 40, 10);
  cv::Mat mat(180, 260, CV_8UC1);
  for (uint32_t y = 0; y < 180; ++y) std::copy(img.row(y), img.row(y) + 260, mat.ptr<uint8_t>(int(y)));
  std::vector<cv::Vec3f> theirs;
  cv::HoughCircles(mat, theirs, cv::HOUGH_GRADIENT, 1, 20, 100, 20, 8, 40);
  ASSERT_GE(theirs.size(), 2u);
  for (const cv::Vec3f& t : theirs) {
    const bool seen = std::any_of(mine.begin(), mine.end(), [&](const Circle& c) {
      return std::hypot(c.x - t[0], c.y - t[1]) <= 4.0f && std::fabs(c.r - t[2]) <= 4.0f;
    });
    EXPECT_TRUE(seen) << t[0] << "," << t[1] << " r " << t[2];
  }
}
#endif

TEST(HoughCircles, SimdMatchesReferenceOnEveryTarget) {
  tvxtest::ForEachTarget([&] {
    for (uint32_t i = 0; i < 10; ++i) {
      const uint32_t w = 1 + (i * 53) % 120, h = 1 + (i * 29) % 90;
      SCOPED_TRACE(::testing::Message() << w << "x" << h);
      std::mt19937 rng(i);
      std::vector<Circle> discs;
      for (int k = 0; k < 3; ++k)
        discs.push_back({float(rng() % (w + 1)), float(rng() % (h + 1)), float(3 + rng() % 20)});
      const Image img = CircleScene(w, h, discs, i, i % 4, i % 3);
      for (uint32_t edge : {1u, 150u}) {
        const std::vector<Circle> c = RunCircles(img, 3, edge, 4, 2, 25, 30, false);
        const std::vector<Circle> v = RunCircles(img, 3, edge, 4, 2, 25, 30, true);
        ASSERT_EQ(c.size(), v.size());
        for (size_t k = 0; k < c.size(); ++k) {
          EXPECT_EQ(c[k].x, v[k].x);
          EXPECT_EQ(c[k].y, v[k].y);
          EXPECT_EQ(c[k].r, v[k].r);
        }
      }
      EXPECT_TRUE(img.GuardsIntact());
    }
  });
}

TEST(HoughCircles, BadArgumentsReturnThreeWithoutWriting) {
  const Image img = CircleScene(30, 20, {{15, 10, 6}}, 2);
  std::vector<float> out(9, 9.0f);
  uint32_t n = 7;
  EXPECT_EQ(tvxHoughCircleu8(img.bytes(), 30, 20, img.stride(), 5, 100, 5, 10, 5, out.data(), 3, &n), 3);
  EXPECT_EQ(tvxHoughCircleu8(img.bytes(), 30, 20, img.stride(), 5, 100, 5, 0, 0, out.data(), 3, &n), 3);
  EXPECT_EQ(tvxHoughCircleu8(img.bytes(), 30, 20, img.stride(), 5, 100, 5, 1, 8, nullptr, 3, &n), 3);
  EXPECT_EQ(tvxHoughCircleu8(img.bytes(), 30, 20, img.stride(), 5, 100, 5, 1, 8, out.data(), 3, nullptr), 3);
  EXPECT_EQ(tvxHoughCircleu8(img.bytes(), 30, 20, 29, 5, 100, 5, 1, 8, out.data(), 3, &n), 3);
  EXPECT_EQ(out, std::vector<float>(9, 9.0f));
  EXPECT_EQ(n, 7u);
}

}  // namespace
