// Background subtraction pairs: one code-book update plus difference per 1920x1080 colour frame
// against cv::BackgroundSubtractorMOG2::apply and cv::BackgroundSubtractorKNN::apply (each
// learns and classifies the frame in one call). The frames cycle through eight views of a
// smooth static scene with +-2 noise and a 200x150 box moving across it; every model learns
// 30 frames before the timed calls. The comparison reports how many mask pixels agree (OpenCV
// marks shadows 127; they count as foreground).
#include <cstdio>
#include <memory>

#include <opencv2/imgproc.hpp>
#include <opencv2/video/background_segm.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

constexpr int kFrames = 8;

struct Scene {
  std::vector<cv::Mat> frames;
  int next = 0;
  const cv::Mat& Next() {
    const cv::Mat& f = frames[next];
    next = (next + 1) % kFrames;
    return f;
  }
};

std::shared_ptr<Scene> MakeScene(const cv::Mat& rgb) {
  auto s = std::make_shared<Scene>();
  cv::Mat background;
  cv::GaussianBlur(rgb, background, cv::Size(31, 31), 0);
  cv::RNG rng(17);
  for (int k = 0; k < kFrames; ++k) {
    cv::Mat noise(background.size(), CV_8UC3), f;
    rng.fill(noise, cv::RNG::UNIFORM, 0, 5);
    cv::add(background, noise, f);
    cv::subtract(f, cv::Scalar::all(2), f);
    cv::rectangle(f, cv::Rect(200 + 180 * k, 400 + 20 * k, 200, 150), cv::Scalar(40, 200, 90), cv::FILLED);
    s->frames.push_back(f);
  }
  return s;
}

struct CodeBookSide {
  void* model = nullptr;
  void** map = nullptr;
  std::shared_ptr<Scene> scene;
  cv::Mat mask{kPeerHeight, kPeerWidth, CV_8UC1, cv::Scalar::all(0)};
  int32_t count = 0;
  ~CodeBookSide() { tvxReleaseBGCodeBookModel(&model); }
  void Apply() {
    const cv::Mat& f = scene->Next();
    tvxBGCodeBookUpdateu8(model, in(f), kPeerWidth, kPeerHeight, stride(f), nullptr, 0, map);
    tvxBGCodeBookDiffu8(model, in(f), kPeerWidth, kPeerHeight, stride(f), out(mask), stride(mask), map, &count);
  }
};

struct OpenCvSide {
  cv::Ptr<cv::BackgroundSubtractor> subtractor;
  std::shared_ptr<Scene> scene;
  cv::Mat mask;
  void Apply() { subtractor->apply(scene->Next(), mask); }
};

std::string Agreement(const cv::Mat& ours, const cv::Mat& theirs) {
  if (theirs.empty()) return "OpenCV gave no mask";
  cv::Mat a = ours != 0, b = theirs != 0, differ;
  cv::compare(a, b, differ, cv::CMP_NE);
  char text[96];
  std::snprintf(text, sizeof text, "masks agree on %.2f%% of pixels",
                100.0 - 100.0 * cv::countNonZero(differ) / double(ours.total()));
  return text;
}

void AddPair(PeerImages& im, std::vector<PeerPair>& pairs, const std::string& label, const std::string& peer,
             cv::Ptr<cv::BackgroundSubtractor> subtractor) {
  auto ours = std::make_shared<CodeBookSide>();
  auto theirs = std::make_shared<OpenCvSide>();
  ours->scene = MakeScene(im.rgb);
  theirs->scene = MakeScene(im.rgb);
  ours->map = tvxCreateBGCodeBookModel(kPeerWidth, kPeerHeight, &ours->model);
  theirs->subtractor = subtractor;
  for (int k = 0; k < 30; ++k) {  // both models learn the scene first
    ours->Apply();
    theirs->Apply();
  }
  // Read: the frame twice, the lists' first words; written: the mask.
  const double bytes = double(kPeerWidth) * kPeerHeight * 7;
  PeerPair p(label, "tvxBGCodeBookUpdateu8 + tvxBGCodeBookDiffu8", peer, TVX_ROW_tvxBGCodeBookDiffu8, bytes,
             [ours] { ours->Apply(); }, [theirs] { theirs->Apply(); },
             [ours, theirs] { return Agreement(ours->mask, theirs->mask); });
  p.goalSpeedup = 1.0;
  pairs.push_back(std::move(p));
}

}  // namespace

void addCodeBookPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  AddPair(im, pairs, "code book vs MOG2", "cv::BackgroundSubtractorMOG2::apply", cv::createBackgroundSubtractorMOG2());
  AddPair(im, pairs, "code book vs KNN", "cv::BackgroundSubtractorKNN::apply", cv::createBackgroundSubtractorKNN());
}
