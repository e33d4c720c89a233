// MSER pairs: both polarities of a 640x480 and a 1280x720 scene (a shading ramp over a smooth
// texture, filled ellipses and lines of printed text, the usual MSER targets) against
// cv::MSER::detectRegions with OpenCV's default parameters (delta 5, areas 60..14400, maximum
// variation 0.25, minimum diversity 0.2), and the same limits for the library. The library runs
// once with its second thread for MSER- and once on the caller's thread alone; OpenCV runs
// single-threaded. The comparison reports the region counts of both sides (the stability rules
// differ in detail, so the counts are close rather than equal).
#include <cstdio>
#include <memory>
#include <vector>

#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include "cpu/mser_core.h"
#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

cv::Mat MserScene(const PeerImages& im, int w, int h) {
  cv::Mat scene;
  cv::resize(im.smooth(cv::Rect(0, 0, w, h)), scene, cv::Size(w, h));
  cv::Mat ramp(h, w, CV_8UC1);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) ramp.at<uint8_t>(y, x) = static_cast<uint8_t>(60 + 80 * x / w);
  cv::addWeighted(scene, 0.5, ramp, 0.5, 0, scene);
  cv::RNG rng(31);
  for (int k = 0; k < w * h / 6000; ++k)
    cv::ellipse(scene, cv::Point(rng.uniform(0, w), rng.uniform(0, h)),
                cv::Size(rng.uniform(4, w / 20), rng.uniform(4, h / 20)), rng.uniform(0, 180), 0, 360,
                cv::Scalar(rng.uniform(0, 2) ? rng.uniform(190, 250) : rng.uniform(10, 60)), cv::FILLED);
  for (int y = 30; y < h; y += 40)
    cv::putText(scene, "MSER regions 0123 ABCDEFG xyz", cv::Point(rng.uniform(0, w / 4), y),
                cv::FONT_HERSHEY_SIMPLEX, 0.6 + (y % 3) * 0.2, cv::Scalar(rng.uniform(0, 2) ? 20 : 235), 2);
  return scene;
}

struct Side {
  void* handle = nullptr;
  cv::Mat image;
  bool threaded = true;
  uint32_t numContours = 0;
  std::vector<uint32_t> counts = std::vector<uint32_t>(65536), points = std::vector<uint32_t>(16u << 20);
  ~Side() {
    if (handle) tvxMserRelease(handle);
  }
  void Run() {
    tvx_mser_set_threading_for_test(threaded ? 1 : 0);
    tvxMseru8_v2(handle, in(image), image.cols, image.rows, stride(image), static_cast<uint32_t>(counts.size()),
                 static_cast<uint32_t>(points.size() / 2), &numContours, counts.data(), points.data());
    tvx_mser_set_threading_for_test(1);
  }
};

struct OpenCvSide {
  cv::Ptr<cv::MSER> mser = cv::MSER::create(5, 60, 14400, 0.25, 0.2);
  cv::Mat image;
  std::vector<std::vector<cv::Point>> regions;
  std::vector<cv::Rect> boxes;
  void Run() { mser->detectRegions(image, regions, boxes); }
};

void AddPair(PeerImages& im, std::vector<PeerPair>& pairs, int w, int h, bool threaded) {
  auto ours = std::make_shared<Side>();
  auto theirs = std::make_shared<OpenCvSide>();
  ours->image = MserScene(im, w, h);
  theirs->image = ours->image;
  ours->threaded = threaded;
  tvxMserInit(w, h, 5, 60, 14400, 0.25f, 0.2f, &ours->handle);
  char label[64];
  std::snprintf(label, sizeof label, "MSER %dx%d, %s", w, h, threaded ? "2 threads" : "1 thread");
  PeerPair p(label, "tvxMseru8_v2", "cv::MSER::detectRegions", TVX_ROW_tvxMseru8_v2ST, double(w) * h,
             [ours] { ours->Run(); }, [theirs] { theirs->Run(); },
             [ours, theirs] {
               char text[96];
               std::snprintf(text, sizeof text, "%u regions vs %zu", ours->numContours, theirs->regions.size());
               return std::string(text);
             });
  p.goalSpeedup = 2.0;
  pairs.push_back(std::move(p));
}

}  // namespace

void addMserPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  for (bool threaded : {false, true}) {
    AddPair(im, pairs, 640, 480, threaded);
    AddPair(im, pairs, 1280, 720, threaded);
  }
}
