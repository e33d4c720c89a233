// Contour pairs on a 640x480 blob image (filled discs and rectangles, some with holes, some
// nested): the four retrieval modes of the library's border following against cv::findContours
// with the same mode and CHAIN_APPROX_NONE. The library side uses a work buffer from
// tvxFindContoursAllocate, as a video loop would; the comparison checks contour and point counts.
#include <opencv2/imgproc.hpp>

#include <memory>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

constexpr int kW = 640, kH = 480;

cv::Mat MakeBlobs() {
  cv::Mat img(kH, kW, CV_8UC1, cv::Scalar(0));
  cv::RNG rng(123);
  for (int i = 0; i < 300; ++i) {
    const cv::Point c(rng.uniform(0, kW), rng.uniform(0, kH));
    const int r = rng.uniform(3, 30);
    const cv::Scalar v(i % 4 == 3 ? 0 : 255);  // every fourth shape cuts a hole
    if (i & 1) cv::circle(img, c, r, v, cv::FILLED);
    else cv::rectangle(img, cv::Rect(c.x, c.y, r, rng.uniform(3, 30)), v, cv::FILLED);
  }
  return img;
}

struct ContourBuffers {
  cv::Mat img;
  uint8_t* work = nullptr;
  uint32_t workSize = 0, n = 0;
  std::vector<uint32_t> counts = std::vector<uint32_t>(100000), points = std::vector<uint32_t>(2 * 2000000);
  std::vector<int32_t> hierarchy = std::vector<int32_t>(4 * 100000);
  std::vector<std::vector<cv::Point>> peer;
  std::vector<cv::Vec4i> peerHierarchy;
  ~ContourBuffers() { tvxFindContoursDelete(&work); }
};

}  // namespace

void addContourPairs(PeerImages&, std::vector<PeerPair>& pairs) {
  auto b = std::make_shared<ContourBuffers>();
  b->img = MakeBlobs();
  tvxFindContoursAllocate(kW, kH, &b->work, &b->workSize);
  using Find = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t*, uint32_t*,
                           uint32_t*, int32_t*, uint32_t, uint8_t*, uint32_t);
  struct Mode {
    const char* label;
    const char* call;
    const char* peer;
    uint32_t row;
    Find fn;
    int cvMode;
  };
  const Mode modes[] = {
      {"contours list 640x480", "tvxFindContoursListu8", "cv::findContours LIST", TVX_ROW_tvxFindContoursListu8,
       tvxFindContoursListu8, cv::RETR_LIST},
      {"contours tree 640x480", "tvxFindContoursTreeu8", "cv::findContours TREE", TVX_ROW_tvxFindContoursTreeu8,
       tvxFindContoursTreeu8, cv::RETR_TREE},
      {"contours external 640x480", "tvxFindContoursExternalu8", "cv::findContours EXTERNAL",
       TVX_ROW_tvxFindContoursExternalu8, tvxFindContoursExternalu8, cv::RETR_EXTERNAL},
      {"contours ccomp 640x480", "tvxFindContoursCcompu8", "cv::findContours CCOMP", TVX_ROW_tvxFindContoursCcompu8,
       tvxFindContoursCcompu8, cv::RETR_CCOMP},
  };
  for (const Mode& m : modes) {
    const Find fn = m.fn;
    const int cvMode = m.cvMode;
    PeerPair pair(
        m.label, m.call, m.peer, m.row, double(kW) * kH,
        [b, fn] {
          fn(in(b->img), kW, kH, stride(b->img), 100000, 2000000, &b->n, b->counts.data(), b->points.data(),
             b->hierarchy.data(), 0, b->work, b->workSize);
        },
        [b, cvMode] { cv::findContours(b->img, b->peer, b->peerHierarchy, cvMode, cv::CHAIN_APPROX_NONE); },
        [b] {
          size_t mine = 0, theirs = 0;
          for (uint32_t i = 0; i < b->n; ++i) mine += b->counts[i];
          for (const auto& c : b->peer) theirs += c.size();
          if (b->n == b->peer.size() && mine == theirs) return std::string("same");
          return std::to_string(b->n) + "/" + std::to_string(mine) + " vs " + std::to_string(b->peer.size()) + "/" +
                 std::to_string(theirs) + " contours/points";
        });
    pair.goalSpeedup = 2.0;
    pairs.push_back(std::move(pair));
  }
}
