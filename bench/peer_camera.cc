// Camera pairs: undistortion of 10000 device points against cv::undistortPoints with the same
// camera matrix and [k1, k2, p1, p2]. The library runs exactly two fixed-point steps, OpenCV
// iterates further (its default criteria), so the outputs differ far from the centre; the
// comparison reports the largest difference in normalised coordinates.
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include "frame/frame.h"
#include "peer_ops.h"

void addCameraPairs(PeerImages& images, std::vector<PeerPair>& pairs) {
  (void)images;
  constexpr int kPoints = 10000;
  struct Data {
    std::vector<float> device = std::vector<float>(2 * kPoints), tavix = device, opencv = device;
  };
  auto d = std::make_shared<Data>();
  cv::RNG rng(3);
  for (int k = 0; k < kPoints; ++k) {
    d->device[2 * k] = rng.uniform(0.0f, 640.0f);
    d->device[2 * k + 1] = rng.uniform(0.0f, 480.0f);
  }
  const float fx = 520.0f, fy = 515.0f, cx = 320.0f, cy = 240.0f, k1 = -0.12f, k2 = 0.05f, p1 = 0.001f, p2 = -0.0008f;
  const float cal[8] = {1.0f / fx, 1.0f / fy, cx, cy, k1, k2, p1, p2};
  auto calibration = std::make_shared<std::vector<float>>(cal, cal + 8);
  pairs.emplace_back(
      "camera undistort 10000 points", "tvxGeomUndistortPoint2xNf32", "cv::undistortPoints", TVX_ROW_tvxGeomUndistortPoint2xNf32,
      16.0 * kPoints,
      [d, calibration] { tvxGeomUndistortPoint2xNf32(calibration->data(), d->device.data(), 0, kPoints, d->tavix.data(), 0); },
      [d, fx, fy, cx, cy, k1, k2, p1, p2] {
        const cv::Matx33f K(fx, 0, cx, 0, fy, cy, 0, 0, 1);
        const cv::Vec4f dist(k1, k2, p1, p2);
        cv::Mat src(kPoints, 1, CV_32FC2, d->device.data()), dst(kPoints, 1, CV_32FC2, d->opencv.data());
        cv::undistortPoints(src, dst, K, dist);
      },
      [d] {
        double worst = 0;
        for (size_t i = 0; i < d->tavix.size(); ++i) worst = std::max(worst, double(std::fabs(d->tavix[i] - d->opencv[i])));
        return "max |diff| " + std::to_string(worst) + " (two steps vs OpenCV's iteration)";
      });
  pairs.back().goalSpeedup = 2.0;
}
