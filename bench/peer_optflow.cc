// Lucas-Kanade pair: 500 features tracked over 3 pyramid levels with a 15x15 window between two
// 640x480 frames of a smooth texture, the second moved by (2.6, -1.8) px, against
// cv::calcOpticalFlowPyrLK with the same window, levels and stopping rule (30 steps or a step
// below 0.01 px). Both sides get their pyramids built outside the timed call (OpenCV's with its
// Scharr derivatives). The comparison reports the largest distance between the two trackers'
// positions over the features both tracked, and how many statuses disagree.
#include <cmath>
#include <memory>
#include <random>

#include <opencv2/video/tracking.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

constexpr int kW = 640, kH = 480, kFeatures = 500, kLevels = 3, kWindow = 15;

double TextureAt(double x, double y) {
  return 128.0 + 45.0 * std::sin(0.31 * x + 0.17 * y) + 35.0 * std::cos(0.13 * x - 0.29 * y) +
         25.0 * std::sin(0.23 * x) * std::cos(0.19 * y + 1.0);
}

struct FlowScene {
  cv::Mat a, b;
  std::vector<cv::Mat> cvPyrA, cvPyrB;
  tvxPyramidLevel_v2 pyrA[kLevels] = {}, pyrB[kLevels] = {};
  std::vector<float> xy, tavixOut;
  std::vector<int32_t> tavixStatus;
  std::vector<cv::Point2f> points, cvOut;
  std::vector<uint8_t> cvStatus;
  std::vector<float> cvError;
  ~FlowScene() {
    tvxPyramidDelete_v2(pyrA, kLevels, 1);
    tvxPyramidDelete_v2(pyrB, kLevels, 1);
  }
};

}  // namespace

void addOptflowPairs(PeerImages&, std::vector<PeerPair>& pairs) {
  auto s = std::make_shared<FlowScene>();
  s->a.create(kH, kW, CV_8UC1);
  s->b.create(kH, kW, CV_8UC1);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      s->a.at<uint8_t>(y, x) = cv::saturate_cast<uint8_t>(TextureAt(x, y));
      s->b.at<uint8_t>(y, x) = cv::saturate_cast<uint8_t>(TextureAt(x - 2.6, y + 1.8));
    }
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> ux(40.0f, kW - 40.0f), uy(40.0f, kH - 40.0f);
  for (int i = 0; i < kFeatures; ++i) {
    s->points.emplace_back(ux(rng), uy(rng));
    s->xy.push_back(s->points.back().x);
    s->xy.push_back(s->points.back().y);
  }
  s->tavixOut.resize(2 * kFeatures);
  s->tavixStatus.resize(kFeatures);
  tvxPyramidAllocate_v2(s->pyrA, kW, kH, stride(s->a), 1, kLevels, 0);
  tvxPyramidAllocate_v2(s->pyrB, kW, kH, stride(s->b), 1, kLevels, 0);
  tvxPyramidCreateu8_v2(in(s->a), kW, kH, stride(s->a), kLevels, s->pyrA);
  tvxPyramidCreateu8_v2(in(s->b), kW, kH, stride(s->b), kLevels, s->pyrB);
  const cv::Size window(kWindow, kWindow);
  cv::buildOpticalFlowPyramid(s->a, s->cvPyrA, window, kLevels - 1);
  cv::buildOpticalFlowPyramid(s->b, s->cvPyrB, window, kLevels - 1);

  // Window samples of both images per step, plus the first image's framed window per level.
  const double bytes = double(kFeatures) * kLevels * kWindow * kWindow * 2;
  PeerPair p(
      "LK 500 pts 3 lv 15x15", "tvxTrackLKOpticalFlowu8_v3", "cv::calcOpticalFlowPyrLK",
      TVX_ROW_tvxTrackLKOpticalFlowu8_v3, bytes,
      [s] {
        tvxTrackLKOpticalFlowu8_v3(in(s->a), in(s->b), kW, kH, stride(s->a), s->pyrA, s->pyrB, s->xy.data(), nullptr,
                                   s->tavixOut.data(), s->tavixStatus.data(), kFeatures, kWindow, kWindow, kLevels, 2,
                                   30, 0.0001f, 0);
      },
      [s] {
        cv::calcOpticalFlowPyrLK(s->cvPyrA, s->cvPyrB, s->points, s->cvOut, s->cvStatus, s->cvError,
                                 cv::Size(kWindow, kWindow), kLevels - 1,
                                 cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 30, 0.01));
      },
      [s]() -> std::string {
        if (s->cvOut.size() != size_t(kFeatures)) return "OpenCV gave no positions";
        double worst = 0;
        int statusDiffers = 0;
        for (int i = 0; i < kFeatures; ++i) {
          const bool ours = s->tavixStatus[i] == 1, theirs = s->cvStatus[i] != 0;
          if (ours != theirs) ++statusDiffers;
          if (ours && theirs)
            worst = std::max(worst, double(std::hypot(s->tavixOut[2 * i] - s->cvOut[i].x,
                                                      s->tavixOut[2 * i + 1] - s->cvOut[i].y)));
        }
        char text[96];
        std::snprintf(text, sizeof text, "max |dp| %.4f px, %d statuses differ", worst, statusDiffers);
        return text;
      });
  p.goalSpeedup = 2.0;
  pairs.push_back(std::move(p));
}
