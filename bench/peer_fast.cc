// FAST-9 corner pairs: the library's detector against cv::FAST (TYPE_9_16, same threshold) on a
// textured image at 640x480 and 1920x1080, without and with non-maximum suppression. The
// plain lists must hold the same number of corners; OpenCV's suppression rule differs (it
// keeps one of two equal neighbours), so there the counts are only reported.
#include <memory>
#include <string>
#include <vector>

#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

constexpr int kBarrier = 20;

// Blocks of flat grey (corners), a soft random relief (texture) and a little pixel noise.
cv::Mat texturedImage(int width, int height, uint64_t seed) {
  cv::RNG rng(seed);
  cv::Mat coarse(height / 12 + 1, width / 12 + 1, CV_8UC1), blocks, relief(height, width, CV_8UC1), noise(height, width, CV_8UC1);
  rng.fill(coarse, cv::RNG::UNIFORM, 0, 256);
  cv::resize(coarse, blocks, cv::Size(width, height), 0, 0, cv::INTER_NEAREST);
  rng.fill(relief, cv::RNG::UNIFORM, 0, 256);
  cv::GaussianBlur(relief, relief, cv::Size(0, 0), 3.0);
  rng.fill(noise, cv::RNG::UNIFORM, 0, 8);
  cv::Mat img;
  cv::addWeighted(blocks, 0.7, relief, 0.3, 0, img);
  img += noise;
  cv::GaussianBlur(img, img, cv::Size(3, 3), 0.7);
  return img;
}

struct FastSides {
  cv::Mat img;
  std::vector<uint32_t> xy, scores, temp;
  uint32_t count = 0;
  std::vector<cv::KeyPoint> keypoints;
};

}  // namespace

void addFastPairs(PeerImages&, std::vector<PeerPair>& pairs) {
  for (auto [w, h] : {std::pair{640, 480}, std::pair{1920, 1080}}) {
    for (bool nms : {false, true}) {
      auto s = std::make_shared<FastSides>();
      s->img = texturedImage(w, h, 77 + w);
      const uint32_t capacity = uint32_t(w) * uint32_t(h) / 4;
      s->xy.resize(2 * size_t{capacity});
      s->scores.resize(capacity);
      s->temp.resize(3 * size_t{capacity} + h);
      const std::string size = std::to_string(w) + "x" + std::to_string(h);
      const auto tavix = [s, w, h, capacity, nms] {
        if (nms)
          tvxCornerFast9Scoreu8_v2(in(s->img), w, h, stride(s->img), kBarrier, 3, s->xy.data(), s->scores.data(), capacity,
                                   &s->count, 1, s->temp.data());
        else
          tvxCornerFast9u8(in(s->img), w, h, stride(s->img), kBarrier, 3, s->xy.data(), capacity, &s->count);
      };
      const auto opencv = [s, nms] { cv::FAST(s->img, s->keypoints, kBarrier, nms, cv::FastFeatureDetector::TYPE_9_16); };
      const auto compare = [s, nms]() -> std::string {
        if (!nms && s->count == s->keypoints.size()) return "same";
        return "corners " + std::to_string(s->count) + " vs " + std::to_string(s->keypoints.size());
      };
      PeerPair p(std::string("FAST-9 ") + (nms ? "nms " : "") + size,
                 nms ? "tvxCornerFast9Scoreu8_v2" : "tvxCornerFast9u8", std::string("cv::FAST nms=") + (nms ? "1" : "0"),
                 nms ? TVX_ROW_tvxCornerFast9Scoreu8_v2 : TVX_ROW_tvxCornerFast9u8, double(w) * h, tavix, opencv, compare);
      p.goalSpeedup = 2.0;
      pairs.push_back(std::move(p));
    }
  }
}
