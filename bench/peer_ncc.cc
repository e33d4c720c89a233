// NCC template search against OpenCV: 1000 searches of 8x8 templates, each over the 11x11
// candidates of a radius-5 square at its own place of a 640x480 image. OpenCV runs
// matchTemplate (TM_CCOEFF_NORMED) of the template over the 18x18 pixels those candidates'
// windows cover, then minMaxLoc; the library runs its square search without sub-pixel.
#include <memory>
#include <opencv2/imgproc.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

void addNccPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  constexpr int kSearches = 1000, kRadius = 5, kSide = 2 * kRadius + 8;
  struct State {
    cv::Mat image;                 // 640x480 view of the blurred test image
    std::vector<cv::Point> centres;
    std::vector<cv::Mat> templates;  // 8x8 each, cut a few pixels away from their centre
    std::vector<cv::Point> tavixBest, opencvBest;
    cv::Mat result;
  };
  auto s = std::make_shared<State>();
  s->image = im.smooth(cv::Rect(0, 0, 640, 480));
  cv::RNG rng(12345);
  for (int k = 0; k < kSearches; ++k) {
    const cv::Point c(rng.uniform(kRadius + 4, 640 - kRadius - 5), rng.uniform(kRadius + 4, 480 - kRadius - 5));
    const cv::Point at(c.x + rng.uniform(-kRadius, kRadius + 1), c.y + rng.uniform(-kRadius, kRadius + 1));
    s->centres.push_back(c);
    s->templates.push_back(s->image(cv::Rect(at.x - 4, at.y - 4, 8, 8)).clone());
  }
  s->tavixBest.assign(kSearches, cv::Point(-1, -1));
  s->opencvBest.assign(kSearches, cv::Point(-2, -2));
  const double bytes = kSearches * (64.0 + kSide * kSide);
  pairs.emplace_back(
      "NCC 8x8 r5 x1000", "tvxNCCPatchOnSquare8x8u8_v2", "cv::matchTemplate CCOEFF_NORMED + minMaxLoc",
      TVX_ROW_tvxNCCPatchOnSquare8x8u8, bytes,
      [s] {
        const cv::Mat& img = s->image;
        for (int k = 0; k < kSearches; ++k) {
          uint32_t x, y;
          int32_t ncc;
          tvxNCCPatchOnSquare8x8u8_v2(s->templates[k].ptr<uint8_t>(), img.ptr<uint8_t>(), 640, 480, stride(img),
                                      s->centres[k].x, s->centres[k].y, kRadius, 0, &x, &y, &ncc, 0, nullptr, nullptr);
          s->tavixBest[k] = cv::Point(int(x), int(y));
        }
      },
      [s] {
        for (int k = 0; k < kSearches; ++k) {
          const cv::Point c = s->centres[k];
          const cv::Mat region = s->image(cv::Rect(c.x - kRadius - 4, c.y - kRadius - 4, kSide, kSide));
          cv::matchTemplate(region, s->templates[k], s->result, cv::TM_CCOEFF_NORMED);
          cv::Point best;
          cv::minMaxLoc(s->result, nullptr, nullptr, nullptr, &best);
          s->opencvBest[k] = cv::Point(c.x - kRadius + best.x, c.y - kRadius + best.y);
        }
      },
      [s] {
        int differ = 0;
        for (int k = 0; k < kSearches; ++k) differ += s->tavixBest[k] != s->opencvBest[k];
        return differ == 0 ? std::string("same") : std::to_string(differ) + " of 1000 positions differ";
      });
  pairs.back().goalSpeedup = 2.0;
}
