// Geometry pairs: the robust homography fit on 500 correspondences with 30% outliers against
// cv::findHomography (RANSAC, same threshold, 1500 iterations at confidence 0.995), with the
// accuracy of both against the ground truth (largest corner error over a 640 x 480 frame), and
// the three-point pose over a batch of 1000 problems against cv::solveP3P.
#include <cmath>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include "frame/frame.h"
#include "peer_ops.h"

namespace {

const double kTruth[9] = {1.1, 0.12, 25.0, -0.08, 0.95, -12.0, 2.0e-4, -1.5e-4, 1.0};

void MapPoint(const double* h, double x, double y, double* u, double* v) {
  const double w = h[6] * x + h[7] * y + h[8];
  *u = (h[0] * x + h[1] * y + h[2]) / w;
  *v = (h[3] * x + h[4] * y + h[5]) / w;
}

double CornerError(const double* h) {
  double worst = 0;
  for (double x : {0.0, 640.0})
    for (double y : {0.0, 480.0}) {
      double u0, v0, u1, v1;
      MapPoint(kTruth, x, y, &u0, &v0);
      MapPoint(h, x, y, &u1, &v1);
      worst = std::fmax(worst, std::hypot(u1 - u0, v1 - v0));
    }
  return worst;
}

struct HomographyCase {
  std::vector<float> from, to;
  std::vector<uint16_t> indices;
  std::vector<cv::Point2f> src, dst;
  tvxCorrespondences rec{};
  float tavix[9] = {};
  cv::Mat opencv;
  HomographyCase() {
    std::mt19937 rng(42);
    std::uniform_real_distribution<double> px(0.0, 640.0), py(0.0, 480.0), off(-60.0, 60.0), unit(0.0, 1.0);
    std::normal_distribution<double> noise(0.0, 0.5);
    for (int i = 0; i < 500; ++i) {
      const double x = px(rng), y = py(rng);
      double u, v;
      MapPoint(kTruth, x, y, &u, &v);
      if (unit(rng) < 0.3) {
        u += off(rng) + 15.0;
        v += off(rng) - 15.0;
      } else {
        u += noise(rng);
        v += noise(rng);
      }
      from.insert(from.end(), {float(x), float(y)});
      to.insert(to.end(), {float(u), float(v)});
      indices.push_back(uint16_t(i));
      src.emplace_back(float(x), float(y));
      dst.emplace_back(float(u), float(v));
    }
    rec = {from.data(), to.data(), 2, 2, 500, indices.data(), 500};
  }
};

// Three-point problems: a random pose and three points in front of it, normalised image points.
struct P3PCase {
  static constexpr int kProblems = 1000;
  std::vector<float> world, image;  // 3 points each per problem
  std::vector<uint16_t> indices{0, 1, 2};
  std::vector<cv::Mat> objects, images;
  cv::Mat camera = cv::Mat::eye(3, 3, CV_64F);
  int tavixSolutions = 0, opencvSolutions = 0;
  P3PCase() {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> c(-1.0, 1.0), z(3.0, 6.0);
    for (int k = 0; k < kProblems; ++k) {
      cv::Mat obj(3, 1, CV_32FC3), img(3, 1, CV_32FC2);
      for (int i = 0; i < 3; ++i) {
        // The camera is the identity pose shifted along z; world points lie in front of it.
        const double X = c(rng), Y = c(rng), Z = z(rng);
        const double u = X / Z, v = Y / Z;
        world.insert(world.end(), {float(X), float(Y), float(Z)});
        image.insert(image.end(), {float(u), float(v)});
        obj.at<cv::Vec3f>(i) = cv::Vec3f(float(X), float(Y), float(Z));
        img.at<cv::Vec2f>(i) = cv::Vec2f(float(u), float(v));
      }
      objects.push_back(obj);
      images.push_back(img);
    }
  }
};

}  // namespace

void addGeomPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  (void)im;
  auto h = std::make_shared<HomographyCase>();
  pairs.emplace_back(
      "robust homography 500 (30% out)", "tvxGeomHomographyRobustFitf32_v2", "cv::findHomography RANSAC",
      TVX_ROW_tvxGeomHomographyRobustFitf32_v2, 500.0 * 16,
      [h] { tvxGeomHomographyRobustFitf32_v2(&h->rec, h->tavix, 2.0f, 0); },
      [h] { h->opencv = cv::findHomography(h->src, h->dst, cv::RANSAC, 2.0, cv::noArray(), 1500, 0.995); },
      [h] {
        double t[9], o[9];
        for (int i = 0; i < 9; ++i) t[i] = h->tavix[i];
        if (h->opencv.empty()) return std::string("OpenCV found no homography");
        for (int i = 0; i < 9; ++i) o[i] = h->opencv.at<double>(i / 3, i % 3) / h->opencv.at<double>(2, 2);
        char text[128];
        std::snprintf(text, sizeof text, "corner error vs truth: tavix %.3f px, OpenCV %.3f px", CornerError(t),
                      CornerError(o));
        return std::string(text);
      });
  pairs.back().goalSpeedup = 2.0;

  auto p = std::make_shared<P3PCase>();
  pairs.emplace_back(
      "3-point pose x1000", "tvxGeom3PointPoseEstimatef32", "cv::solveP3P P3P", TVX_ROW_tvxGeom3PointPoseEstimatef32,
      P3PCase::kProblems * 60.0,
      [p] {
        float poses[48];
        int32_t n = 0;
        int total = 0;
        for (int k = 0; k < P3PCase::kProblems; ++k) {
          const tvxCorrespondences rec = {&p->world[9 * k], &p->image[6 * k], 3, 2, 3, p->indices.data(), 3};
          total += tvxGeom3PointPoseEstimatef32(&rec, poses, &n);
        }
        p->tavixSolutions = total;
      },
      [p] {
        std::vector<cv::Mat> rvecs, tvecs;
        int total = 0;
        for (int k = 0; k < P3PCase::kProblems; ++k)
          total += cv::solveP3P(p->objects[k], p->images[k], p->camera, cv::noArray(), rvecs, tvecs, cv::SOLVEPNP_P3P);
        p->opencvSolutions = total;
      },
      [p] {
        char text[128];
        std::snprintf(text, sizeof text, "solutions: tavix %d, OpenCV %d", p->tavixSolutions, p->opencvSolutions);
        return std::string(text);
      });
  pairs.back().goalSpeedup = 2.0;
}
