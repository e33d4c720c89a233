// Harris pairs on a 640x480 scene (a smooth texture with filled rectangles): the float score map
// against cv::cornerHarris with the same Sobel aperture and block, the integer detector (5x5
// binomial window, strict 5x5 maximum) against cv::cornerHarris with a 5x5 block, and the
// minimum-eigenvalue detector against cv::goodFeaturesToTrack.
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

constexpr int kW = 640, kH = 480;

cv::Mat MakeScene(const cv::Mat& smooth) {
  cv::Mat scene = smooth(cv::Rect(0, 0, kW, kH)).clone();
  cv::RNG rng(77);
  for (int i = 0; i < 120; ++i) {
    const int x = rng.uniform(0, kW - 8), y = rng.uniform(0, kH - 8);
    cv::rectangle(scene, cv::Rect(x, y, rng.uniform(6, 60), rng.uniform(6, 60)), cv::Scalar(rng.uniform(0, 256)), cv::FILLED);
  }
  return scene;
}

struct HarrisBuffers {
  cv::Mat scene, tavixMap, opencvMap;
  std::vector<uint32_t> xy = std::vector<uint32_t>(2 * 4096);
  uint32_t n = 0;
  std::vector<cv::Point2f> peerCorners;
};

}  // namespace

void addHarrisPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  auto b = std::make_shared<HarrisBuffers>();
  b->scene = MakeScene(im.smooth);
  b->tavixMap = cv::Mat(kH, kW, CV_32F, cv::Scalar(0));
  b->opencvMap = cv::Mat(kH, kW, CV_32F, cv::Scalar(1));
  const double bytes = double(kW) * kH * 5;  // u8 in, float map out

  // The library's tensor is OpenCV's divided by s * block^2 (s the derivative scale), so the
  // maps differ by that factor squared; the comparison reports the largest difference inside
  // the frame where both borders agree, relative to the peak.
  PeerPair map(
      "Harris map 640x480", "tvxCornerHarrisScoreu8", "cv::cornerHarris 3, 3", TVX_ROW_tvxCornerHarrisScoreu8, bytes,
      [b] {
        tvxCornerHarrisScoreu8(in(b->scene), kW, kH, stride(b->scene), b->tavixMap.ptr<float>(), stride(b->tavixMap),
                               b->xy.data(), 4096, &b->n, 0.04f, 3, 3, 0, 0.0f, 0, 1e30f);
      },
      [b] { cv::cornerHarris(b->scene, b->opencvMap, 3, 3, 0.04, cv::BORDER_REPLICATE); },
      [b] {
        const double s = 1.0 / (3 * 4 * 255.0), factor = (s * 9) * (s * 9);
        double peak = 0, diff = 0;
        for (int y = 4; y < kH - 4; ++y)
          for (int x = 4; x < kW - 4; ++x) {
            peak = std::max(peak, std::fabs(double(b->opencvMap.at<float>(y, x))));
            diff = std::max(diff, std::fabs(b->tavixMap.at<float>(y, x) * factor - b->opencvMap.at<float>(y, x)));
          }
        char text[96];
        std::snprintf(text, sizeof text, "rel. diff %.1e", peak > 0 ? diff / peak : diff);
        return std::string(text);
      });
  map.goalSpeedup = 2.0;
  pairs.push_back(std::move(map));

  PeerPair corners(
      "Harris corners int", "tvxCornerHarrisu8", "cv::cornerHarris 5, 3", TVX_ROW_tvxCornerHarrisu8, double(kW) * kH,
      [b] { tvxCornerHarrisu8(in(b->scene), kW, kH, stride(b->scene), 0, b->xy.data(), 4096, &b->n, 1000); },
      [b] { cv::cornerHarris(b->scene, b->opencvMap, 5, 3, 0.0625, cv::BORDER_REPLICATE); },
      [b] { return std::to_string(b->n) + " corners (map only on the peer)"; });
  corners.goalSpeedup = 2.0;
  pairs.push_back(std::move(corners));

  PeerPair gftt(
      "good features", "tvxGoodFeatureToTracku8", "cv::goodFeaturesToTrack", TVX_ROW_tvxGoodFeatureToTracku8,
      double(kW) * kH,
      [b] { tvxGoodFeatureToTracku8(in(b->scene), kW, kH, stride(b->scene), 500, 100.0f, 5.0f, b->xy.data(), &b->n); },
      [b] { cv::goodFeaturesToTrack(b->scene, b->peerCorners, 500, 0.01, 5.0, cv::noArray(), 5, false); },
      [b] { return std::to_string(b->n) + " vs " + std::to_string(b->peerCorners.size()) + " corners"; });
  gftt.goalSpeedup = 2.0;
  pairs.push_back(std::move(gftt));
}
