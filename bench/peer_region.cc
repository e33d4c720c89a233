// Region and Hough pairs: flood fill (fixed and floating range) on a 1920x1080 scene of noisy
// plateaus against cv::floodFill, the standard line transform of the Canny edges of that scene
// (the plateaus' straight sides) against cv::HoughLines, and gradient circles on a 640x480 scene of discs
// against cv::HoughCircles. Fills work in place, so each call of either side first copies the
// scene into its own working image (the same copy on both sides).
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

struct RegionBuffers {
  cv::Mat scene, tavixWork, opencvWork;  // flood fill
  uint32_t area = 0, rect[4] = {};
  int opencvArea = 0;
  cv::Mat edges;  // line transform
  std::vector<float> lines = std::vector<float>(2 * 4096);
  uint32_t numLines = 0;
  std::vector<cv::Vec2f> peerLines;
  cv::Mat discs;  // circles, 640x480
  std::vector<float> circles = std::vector<float>(3 * 256);
  uint32_t numCircles = 0;
  std::vector<cv::Vec3f> peerCircles;
};

cv::Mat Plateaus() {
  cv::Mat scene(kPeerHeight, kPeerWidth, CV_8UC1);
  cv::RNG rng(5);
  rng.fill(scene, cv::RNG::UNIFORM, 98, 103);
  for (int i = 0; i < 300; ++i) {
    const int x = rng.uniform(0, kPeerWidth - 8), y = rng.uniform(0, kPeerHeight - 8);
    cv::rectangle(scene, cv::Rect(x, y, rng.uniform(4, 120), rng.uniform(4, 120)), cv::Scalar(rng.uniform(0, 80)),
                  cv::FILLED);
  }
  return scene;
}

cv::Mat Discs() {
  cv::Mat scene(480, 640, CV_8UC1);
  cv::RNG rng(9);
  rng.fill(scene, cv::RNG::UNIFORM, 60, 75);
  for (int i = 0; i < 14; ++i)
    cv::circle(scene, cv::Point(rng.uniform(40, 600), rng.uniform(40, 440)), rng.uniform(12, 45),
               cv::Scalar(rng.uniform(150, 230)), cv::FILLED, cv::LINE_8);
  return scene;
}

std::string FillCompare(const RegionBuffers& b) {
  const std::string pixels = compareImages(b.tavixWork, b.opencvWork);
  return pixels + ", area " + std::to_string(b.area) + " vs " + std::to_string(b.opencvArea);
}

}  // namespace

void addRegionPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  auto b = std::make_shared<RegionBuffers>();
  b->scene = Plateaus();
  b->tavixWork = b->scene.clone();
  b->opencvWork = b->scene.clone();
  const double fillBytes = 3.0 * kPeerWidth * kPeerHeight;  // copy (read + write) and the fill's pass
  const uint32_t sx = 5, sy = 5;

  PeerPair fixed(
      "flood fill fixed 4", "tvxFloodfillSimpleu8", "cv::floodFill FIXED_RANGE 4", TVX_ROW_tvxFloodfillSimpleu8,
      fillBytes,
      [b, sx, sy] {
        b->scene.copyTo(b->tavixWork);
        tvxFloodfillSimpleu8(out(b->tavixWork), kPeerWidth, kPeerHeight, stride(b->tavixWork), sx, sy, 255, 3, 3,
                             &b->area, b->rect);
      },
      [b, sx, sy] {
        b->scene.copyTo(b->opencvWork);
        b->opencvArea = cv::floodFill(b->opencvWork, cv::Point(sx, sy), cv::Scalar(255), nullptr, cv::Scalar(3),
                                      cv::Scalar(3), 4 | cv::FLOODFILL_FIXED_RANGE);
      },
      [b] { return FillCompare(*b); });
  fixed.goalSpeedup = 2.0;
  pairs.push_back(std::move(fixed));

  PeerPair floating(
      "flood fill floating 8", "tvxFloodfillMergedu8", "cv::floodFill 8", TVX_ROW_tvxFloodfillMergedu8, fillBytes,
      [b, sx, sy] {
        b->scene.copyTo(b->tavixWork);
        tvxFloodfillMergedu8(out(b->tavixWork), kPeerWidth, kPeerHeight, stride(b->tavixWork), sx, sy, 255, 2, 2, 8,
                             &b->area, b->rect);
      },
      [b, sx, sy] {
        b->scene.copyTo(b->opencvWork);
        b->opencvArea = cv::floodFill(b->opencvWork, cv::Point(sx, sy), cv::Scalar(255), nullptr, cv::Scalar(2),
                                      cv::Scalar(2), 8);
      },
      [b] { return FillCompare(*b); });
  floating.goalSpeedup = 2.0;
  pairs.push_back(std::move(floating));

  cv::Canny(b->scene, b->edges, 40, 80);  // the plateaus' straight sides
  PeerPair lines(
      "Hough lines", "tvxHoughLineu8", "cv::HoughLines 1, pi/180", TVX_ROW_tvxHoughLineu8, double(kPeerWidth) * kPeerHeight,
      [b] {
        tvxHoughLineu8(in(b->edges), kPeerWidth, kPeerHeight, stride(b->edges), 1.0f, float(CV_PI / 180), 150,
                       b->lines.data(), 4096, &b->numLines);
      },
      [b] { cv::HoughLines(b->edges, b->peerLines, 1.0, float(CV_PI / 180), 150); },
      [b] {
        size_t same = 0;
        for (size_t i = 0; i < std::min<size_t>(b->numLines, b->peerLines.size()); ++i)
          same += b->lines[2 * i] == b->peerLines[i][0] && b->lines[2 * i + 1] == b->peerLines[i][1];
        return std::to_string(b->numLines) + " vs " + std::to_string(b->peerLines.size()) + " lines, " +
               std::to_string(same) + " identical in order";
      });
  lines.goalSpeedup = 2.0;
  pairs.push_back(std::move(lines));

  b->discs = Discs();
  PeerPair circles(
      "Hough circles 640x480", "tvxHoughCircleu8", "cv::HoughCircles GRADIENT", TVX_ROW_tvxHoughCircleu8, 640.0 * 480,
      [b] {
        tvxHoughCircleu8(in(b->discs), 640, 480, stride(b->discs), 20, 200, 30, 10, 50, b->circles.data(), 256,
                         &b->numCircles);
      },
      [b] { cv::HoughCircles(b->discs, b->peerCircles, cv::HOUGH_GRADIENT, 1, 20, 100, 30, 10, 50); },
      [b] {
        size_t matched = 0;
        for (uint32_t i = 0; i < b->numCircles; ++i)
          for (const cv::Vec3f& c : b->peerCircles)
            if (std::hypot(c[0] - b->circles[3 * i], c[1] - b->circles[3 * i + 1]) <= 2.0f &&
                std::fabs(c[2] - b->circles[3 * i + 2]) <= 2.0f) {
              ++matched;
              break;
            }
        return std::to_string(b->numCircles) + " vs " + std::to_string(b->peerCircles.size()) + " circles, " +
               std::to_string(matched) + " within 2 px";
      });
  circles.goalSpeedup = 2.0;
  pairs.push_back(std::move(circles));
}
