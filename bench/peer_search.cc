// Tracking and descriptor search pairs: mean shift on a 1920x1080 probability image against
// cv::meanShift (same windows expected), linear search of 1000 queries over 10,000 36-byte
// descriptors against cv::BFMatcher (L2 on the float descriptors scaled to unit length, which
// ranks as the normalised dot product does), and KD-tree queries against cv::flann's
// randomised KD-trees (4 trees, 32 checks) on the same float descriptors.
#include <cmath>
#include <memory>
#include <random>

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/flann.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

constexpr int kDb = 10000, kQueries = 1000;

struct SearchData {
  cv::Mat db, queries;          // CV_8S rows of 36
  cv::Mat dbF, queriesF;        // unit-length float rows
  std::vector<int16_t> packed;
  std::vector<float> inv;
  std::vector<int32_t> index, kdIndex;
  std::vector<float> score, kdDist;
  void* tree = nullptr;
  std::unique_ptr<cv::flann::Index> flann;
  std::vector<cv::DMatch> matches;
  cv::Mat flannIdx, flannDist;
  SearchData() : db(kDb, 36, CV_8S), queries(kQueries, 36, CV_8S) {
    cv::randu(db, cv::Scalar::all(-60), cv::Scalar::all(61));
    std::mt19937 rng(5);
    for (int i = 0; i < kQueries; ++i) {  // queries near database entries
      const int8_t* d = db.ptr<int8_t>(static_cast<int>(rng() % kDb));
      for (int k = 0; k < 36; ++k)
        queries.ptr<int8_t>(i)[k] = cv::saturate_cast<int8_t>(d[k] + static_cast<int>(rng() % 21) - 10);
    }
    auto unit = [](const cv::Mat& m) {
      cv::Mat f;
      m.convertTo(f, CV_32F);
      for (int i = 0; i < f.rows; ++i) {
        const double n = cv::norm(f.row(i));
        if (n > 0) f.row(i) *= 1.0 / n;
      }
      return f;
    };
    dbF = unit(db);
    queriesF = unit(queries);
    packed.resize(((kDb + 7) / 8) * 288);
    inv.resize(((kDb + 7) / 8) * 8);
    tvxLinearSearchPrepare8x36s8(db.ptr<int8_t>(), kDb, 36, packed.data(), inv.data());
    index.resize(kQueries);
    score.resize(kQueries);
    kdIndex.resize(kQueries);
    kdDist.resize(kQueries);
    tvxKDTreeCreate36s8f32(db.ptr<int8_t>(), kDb, 36, &tree);
    flann = std::make_unique<cv::flann::Index>(dbF, cv::flann::KDTreeIndexParams(4));
  }
  ~SearchData() { tvxKDTreeDestroy36s8f32(tree); }
};

}  // namespace

void addSearchPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  (void)im;
  // Mean shift: a bright disc of radius 180 on a faint random background, the window 360 x 360
  // starting 90 pixels off the disc, 10 steps at most.
  auto prob = std::make_shared<cv::Mat>(kPeerHeight, kPeerWidth, CV_8UC1);
  cv::randu(*prob, cv::Scalar::all(0), cv::Scalar::all(8));
  cv::circle(*prob, cv::Point(1100, 560), 180, cv::Scalar::all(200), cv::FILLED);
  auto tavixWin = std::make_shared<cv::Rect>(), cvWin = std::make_shared<cv::Rect>();
  pairs.emplace_back(
      "meanShift u8 1920x1080", "tvxMeanShiftu8", "cv::meanShift", TVX_ROW_tvxMeanShiftu8, 360.0 * 360 * 4,
      [prob, tavixWin] {
        uint32_t w[4];
        tvxMeanShiftu8(in(*prob), kPeerWidth, kPeerHeight, stride(*prob), 830, 290, 360, 360, 10, 1.0f, w, nullptr);
        *tavixWin = cv::Rect(w[0], w[1], w[2], w[3]);
      },
      [prob, cvWin] {
        *cvWin = cv::Rect(830, 290, 360, 360);
        cv::meanShift(*prob, *cvWin, cv::TermCriteria(3, 10, 1.0));
      },
      [tavixWin, cvWin] { return *tavixWin == *cvWin ? std::string("same") : std::string("windows differ"); });
  pairs.back().goalSpeedup = 2.0;

  auto d = std::make_shared<SearchData>();
  const double bytes = 36.0 * kDb + 36.0 * kQueries;
  const auto agreement = [d](const std::vector<int32_t>& ours, auto theirs) {
    int same = 0;
    for (int i = 0; i < kQueries; ++i) same += ours[i] == theirs(i);
    return std::to_string(same * 100 / kQueries) + "% same nearest";
  };
  pairs.emplace_back(
      "linear search 1000 x 10000 x 36", "tvxLinearSearch8x36s8", "cv::BFMatcher NORM_L2 (float)",
      TVX_ROW_tvxLinearSearch8x36s8, bytes,
      [d] {
        tvxLinearSearch8x36s8(d->packed.data(), d->inv.data(), kDb, d->queries.ptr<int8_t>(), kQueries, 36,
                              d->index.data(), d->score.data());
      },
      [d] { cv::BFMatcher(cv::NORM_L2).match(d->queriesF, d->dbF, d->matches); },
      [d, agreement] { return agreement(d->index, [&](int i) { return d->matches[i].trainIdx; }); });
  pairs.back().goalSpeedup = 2.0;

  for (uint32_t checks : {0u, 32u}) {
    const std::string label = checks ? "KD-tree 1000 q, 32 checks" : "KD-tree 1000 q, exact";
    pairs.emplace_back(
        label, "tvxKDTreeQuery36s8f32", "cv::flann::Index KDTree(4) checks 32", TVX_ROW_tvxKDTreeQuery36s8f32, bytes,
        [d, checks] {
          tvxKDTreeQuery36s8f32(d->tree, d->queries.ptr<int8_t>(), kQueries, 36, 1, checks, d->kdIndex.data(),
                                d->kdDist.data());
        },
        [d] { d->flann->knnSearch(d->queriesF, d->flannIdx, d->flannDist, 1, cv::flann::SearchParams(32)); },
        [d, agreement] { return agreement(d->kdIndex, [&](int i) { return d->flannIdx.at<int>(i, 0); }); });
    pairs.back().goalSpeedup = 2.0;
  }
}
