// Histogram family pairs: intensity histogram, equalisation, moments, mean and standard
// deviation and absolute difference, on the shared 1920x1080 images.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

// Largest relative difference of two lists of values, as text ("same" when equal).
std::string Relative(const double* a, const double* b, int n) {
  double worst = 0;
  for (int k = 0; k < n; ++k) {
    const double scale = std::fabs(a[k]) + std::fabs(b[k]);
    if (scale > 0) worst = std::max(worst, std::fabs(a[k] - b[k]) / scale);
  }
  if (worst == 0) return "same";
  char text[64];
  std::snprintf(text, sizeof text, "max relative difference %.2g", worst);
  return text;
}

}  // namespace

void addHistoPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  const uint32_t w = kPeerWidth, h = kPeerHeight;
  const cv::Mat& a = im.a;
  const cv::Mat& smooth = im.smooth;

  {  // histogram: 256 counts each side
    auto ours = std::make_shared<std::vector<uint32_t>>(256);
    auto theirs = std::make_shared<cv::Mat>();
    PeerPair p("histo: histogram", "tvxImageIntensityHistogram", "cv::calcHist 256 bins", TVX_ROW_tvxImageIntensityHistogram,
               im.imageBytes(), [&a, ours, w, h] { tvxImageIntensityHistogram(in(a), w, h, stride(a), ours->data(), 0); },
               [&a, theirs] {
                 const int channels[] = {0}, sizes[] = {256};
                 const float range[] = {0, 256};
                 const float* ranges[] = {range};
                 cv::calcHist(&a, 1, channels, cv::Mat(), *theirs, 1, sizes, ranges);
               },
               [ours, theirs] {
                 double x[256], y[256];
                 for (int v = 0; v < 256; ++v) x[v] = (*ours)[v], y[v] = theirs->at<float>(v);
                 return Relative(x, y, 256);
               });
    p.goalSpeedup = 2.0;
    pairs.push_back(std::move(p));
  }

  pairs.push_back(outputPair({"histo: equalize", "tvxImageHistogramEqualizeu8", "cv::equalizeHist",
                              TVX_ROW_tvxImageHistogramEqualizeu8, 2 * im.imageBytes(), int(h), int(w), CV_8UC1,
                              [&smooth, w, h](cv::Mat& o) {
                                tvxImageHistogramEqualizeu8(in(smooth), w, h, stride(smooth), out(o), stride(o));
                              },
                              [&smooth](cv::Mat& o) { cv::equalizeHist(smooth, o); }}));

  {  // moments: 24 values each side
    auto ours = std::make_shared<std::vector<float>>(24);
    auto theirs = std::make_shared<cv::Moments>();
    PeerPair p("histo: moments u8", "tvxImageMomentsu8", "cv::moments", TVX_ROW_tvxImageMomentsu8, im.imageBytes(),
               [&a, ours, w, h] { tvxImageMomentsu8(in(a), w, h, stride(a), ours->data()); },
               [&a, theirs] { *theirs = cv::moments(a); },
               [ours, theirs] {
                 const cv::Moments& m = *theirs;
                 const double y[10] = {m.m00, m.m10, m.m01, m.m20, m.m11, m.m02, m.m30, m.m21, m.m12, m.m03};
                 double x[10];
                 for (int k = 0; k < 10; ++k) x[k] = (*ours)[k];
                 return Relative(x, y, 10);
               });
    p.goalSpeedup = 2.0;
    pairs.push_back(std::move(p));
  }

  {  // mean and standard deviation
    auto ours = std::make_shared<std::pair<float, float>>();
    auto theirs = std::make_shared<std::pair<cv::Scalar, cv::Scalar>>();
    PeerPair p("histo: mean, std dev", "tvxImageIntensityStats", "cv::meanStdDev", TVX_ROW_tvxImageIntensityStats,
               im.imageBytes(), [&a, ours, w, h] { tvxImageIntensityStats(in(a), w, h, stride(a), &ours->first, &ours->second); },
               [&a, theirs] { cv::meanStdDev(a, theirs->first, theirs->second); },
               [ours, theirs] {
                 const double x[2] = {ours->first, ours->second}, y[2] = {theirs->first[0], theirs->second[0]};
                 return Relative(x, y, 2);
               });
    p.goalSpeedup = 2.0;
    pairs.push_back(std::move(p));
  }

  const cv::Mat& b = im.b;
  pairs.push_back(outputPair({"histo: image diff u8", "tvxImageDiffu8", "cv::absdiff", TVX_ROW_tvxImageDiffu8,
                              3 * im.imageBytes(), int(h), int(w), CV_8UC1,
                              [&a, &b, w, h](cv::Mat& o) {
                                tvxImageDiffu8(in(a), in(b), w, h, stride(a), stride(b), out(o), stride(o));
                              },
                              [&a, &b](cv::Mat& o) { cv::absdiff(a, b, o); }, {}, {}, 1.0}));
}
