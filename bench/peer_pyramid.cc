// Pyramid pair: a 4-level byte Gaussian pyramid of the 1920x1080 image (levels 960x540,
// 480x270, 240x135) against cv::buildPyramid with 3 reductions, whose cv::pyrDown is the same
// 5x5 binomial with reflect-101 border and (sum + 128) >> 8 rounding.
#include <memory>

#include <opencv2/imgproc.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

struct PyramidOutputs {
  std::vector<cv::Mat> tavix, opencv;  // levels 1..3 (level 0 is the source)
  tvxPyramidLevel_v2 records[4] = {};
};

}  // namespace

void addPyramidPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  const uint32_t w = kPeerWidth, h = kPeerHeight;
  auto o = std::make_shared<PyramidOutputs>();
  for (int i = 1; i < 4; ++i) {
    o->tavix.emplace_back(int(h >> i), int(w >> i), CV_8UC1, cv::Scalar::all(0));
    o->records[i].ptr = o->tavix.back().data;
  }
  const cv::Mat& a = im.a;
  // Reads every level but the last, writes every level but the first.
  const double bytes = im.imageBytes() * ((1.0 + 1.0 / 4 + 1.0 / 16) + (1.0 / 4 + 1.0 / 16 + 1.0 / 64));
  PeerPair p(
      "pyramid 4 levels", "tvxPyramidCreateu8_v2", "cv::buildPyramid 3", TVX_ROW_tvxPyramidCreateu8_v2, bytes,
      [o, &a, w, h] { tvxPyramidCreateu8_v2(in(a), w, h, stride(a), 4, o->records); },
      [o, &a] { cv::buildPyramid(a, o->opencv, 3); },
      [o]() -> std::string {
        if (o->opencv.size() != 4) return "OpenCV built " + std::to_string(o->opencv.size()) + " levels";
        for (int i = 1; i < 4; ++i) {
          const std::string r = compareImages(o->tavix[i - 1], o->opencv[i]);
          if (r != "same") return "level " + std::to_string(i) + ": " + r;
        }
        return "same";
      });
  p.goalSpeedup = 2.0;
  pairs.push_back(std::move(p));
}
