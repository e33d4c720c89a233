// Vector kernel pairs: Hamming distances of binary descriptors against cv::norm(NORM_HAMMING),
// byte dot products against cv::Mat::dot, each over a batch of 10000 descriptor pairs per call,
// and the 8 x 8 SAD map against cv::matchTemplate (squared differences: the nearest OpenCV
// template search; the outputs differ in metric, so only the time is compared).
#include <cstring>
#include <memory>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

constexpr int kPairs = 10000;

// kPairs rows of `len` random bytes each, as two matrices.
struct Descriptors {
  cv::Mat a, b;
  Descriptors(int len, int type) : a(kPairs, len, type), b(kPairs, len, type) {
    cv::randu(a, cv::Scalar::all(type == CV_8S ? -128 : 0), cv::Scalar::all(type == CV_8S ? 128 : 256));
    cv::randu(b, cv::Scalar::all(type == CV_8S ? -128 : 0), cv::Scalar::all(type == CV_8S ? 128 : 256));
  }
};

}  // namespace

void addVectorPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  (void)im;
  auto batch = [&](std::string label, std::string call, std::string peer, uint32_t row, int len, int type,
                   std::function<int32_t(const uint8_t*, const uint8_t*)> one, bool hamming) {
    auto d = std::make_shared<Descriptors>(len, type);
    const double bytes = 2.0 * kPairs * len + 4.0 * kPairs;
    pairs.push_back(outputPair(
        {std::move(label), std::move(call), std::move(peer), row, bytes, 1, kPairs, CV_32SC1,
         [d, one](cv::Mat& o) {
           int32_t* r = o.ptr<int32_t>();
           for (int i = 0; i < kPairs; ++i) r[i] = one(d->a.ptr<uint8_t>(i), d->b.ptr<uint8_t>(i));
         },
         [d, hamming](cv::Mat& o) {
           int32_t* r = o.ptr<int32_t>();
           for (int i = 0; i < kPairs; ++i)
             r[i] = hamming ? int32_t(cv::norm(d->a.row(i), d->b.row(i), cv::NORM_HAMMING))
                            : int32_t(d->a.row(i).dot(d->b.row(i)));
         }}));
  };
  using S8 = const int8_t*;
  batch("Hamming 32 B x10000", "tvxHammingDistance32x1u8", "cv::norm NORM_HAMMING", TVX_ROW_tvxHammingDistance32x1u8, 32,
        CV_8U, [](const uint8_t* a, const uint8_t* b) { return int32_t(tvxHammingDistance32x1u8(a, b)); }, true);
  batch("Hamming 64 B x10000", "tvxHammingDistance64x1u8", "cv::norm NORM_HAMMING", TVX_ROW_tvxHammingDistance64x1u8, 64,
        CV_8U, [](const uint8_t* a, const uint8_t* b) { return int32_t(tvxHammingDistance64x1u8(a, b)); }, true);
  batch("dot s8 36 x10000", "tvxDotProduct36x1s8", "cv::Mat::dot", TVX_ROW_tvxDotProduct36x1s8, 36, CV_8S,
        [](const uint8_t* a, const uint8_t* b) { return tvxDotProduct36x1s8(S8(a), S8(b)); }, false);
  batch("dot u8 36 x10000", "tvxDotProduct36x1u8", "cv::Mat::dot", TVX_ROW_tvxDotProduct36x1u8, 36, CV_8U,
        [](const uint8_t* a, const uint8_t* b) { return int32_t(tvxDotProduct36x1u8(a, b)); }, false);
  batch("dot s8 64 x10000", "tvxDotProduct64x1s8", "cv::Mat::dot", TVX_ROW_tvxDotProduct64x1s8, 64, CV_8S,
        [](const uint8_t* a, const uint8_t* b) { return tvxDotProduct64x1s8(S8(a), S8(b)); }, false);
  batch("dot u8 64 x10000", "tvxDotProduct64x1u8", "cv::Mat::dot", TVX_ROW_tvxDotProduct64x1u8, 64, CV_8U,
        [](const uint8_t* a, const uint8_t* b) { return int32_t(tvxDotProduct64x1u8(a, b)); }, false);
  batch("dot s8 128 x10000", "tvxDotProduct128x1s8", "cv::Mat::dot", TVX_ROW_tvxDotProduct128x1s8, 128, CV_8S,
        [](const uint8_t* a, const uint8_t* b) { return tvxDotProduct128x1s8(S8(a), S8(b)); }, false);
  batch("dot u8 128 x10000", "tvxDotProduct128x1u8", "cv::Mat::dot", TVX_ROW_tvxDotProduct128x1u8, 128, CV_8U,
        [](const uint8_t* a, const uint8_t* b) { return int32_t(tvxDotProduct128x1u8(a, b)); }, false);

  // The memory bound of the batches above: one call of each moves 2 * 10000 * len bytes in and
  // 4 * 10000 out; a copy that reads and writes half that many bytes moves the same amount
  // through the same cache level. Both sides copy (memcpy and cv::Mat::copyTo); no goal.
  for (int len : {32, 36, 64, 128}) {
    const int half = (2 * kPairs * len + 4 * kPairs) / 2;
    auto src = std::make_shared<cv::Mat>(1, half, CV_8UC1);
    cv::randu(*src, cv::Scalar::all(0), cv::Scalar::all(256));
    pairs.push_back(outputPair({"copy as " + std::to_string(len) + " B x10000", "memcpy", "cv::Mat::copyTo",
                                TVX_ROW_tvxHammingDistance32x1u8, 2.0 * half, 1, half, CV_8UC1,
                                [src, half](cv::Mat& o) { std::memcpy(o.data, src->data, size_t(half)); },
                                [src](cv::Mat& o) { src->copyTo(o); }, {}, {}, 0.0}));
  }

  // The SAD map over a 320 x 240 image against the squared-difference template match.
  const int w = 320, h = 240;
  auto src = std::make_shared<cv::Mat>(h, w, CV_8UC1), patch = std::make_shared<cv::Mat>(8, 8, CV_8UC1);
  cv::randu(*src, cv::Scalar::all(0), cv::Scalar::all(256));
  cv::randu(*patch, cv::Scalar::all(0), cv::Scalar::all(256));
  auto map = std::make_shared<cv::Mat>(h, w, CV_16UC1, cv::Scalar::all(0));
  auto peer = std::make_shared<cv::Mat>();
  pairs.emplace_back(
      "SAD map 8x8 320x240", "tvxSumOfAbsoluteDiffs8x8u8_v2", "cv::matchTemplate TM_SQDIFF",
      TVX_ROW_tvxSumOfAbsoluteDiffs8x8u8, double(w) * h * 3,
      [src, patch, map] {
        tvxSumOfAbsoluteDiffs8x8u8_v2(in(*patch), stride(*patch), in(*src), w, h, stride(*src),
                                      map->ptr<uint16_t>(), stride(*map));
      },
      [src, patch, peer] { cv::matchTemplate(*src, *patch, *peer, cv::TM_SQDIFF); },
      [] { return std::string("not compared (SAD vs squared differences)"); });
  pairs.back().goalSpeedup = 2.0;
}
