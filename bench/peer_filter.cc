// Neighbourhood filter pairs: Gaussian, box, median, erode/dilate, adaptive and Otsu thresholds,
// Sobel, Canny and caller-kernel correlation (filter2D).
#include <opencv2/imgproc.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

void addFilterPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  const uint32_t w = kPeerWidth, h = kPeerHeight;
  const double bytes = 2 * im.imageBytes();
  auto u8 = [&](std::string label, std::string call, std::string peer, uint32_t row, std::function<void(cv::Mat&)> tavix,
                std::function<void(cv::Mat&)> opencv) {
    pairs.push_back(outputPair({std::move(label), std::move(call), std::move(peer), row, bytes, int(h), int(w), CV_8UC1,
                                std::move(tavix), std::move(opencv)}));
  };
  const cv::Mat& a = im.a;
  const cv::Mat& smooth = im.smooth;

  u8("Gaussian 3x3", "tvxFilterGaussian3x3u8_v2", "cv::GaussianBlur 3x3", TVX_ROW_tvxFilterGaussian3x3u8,
     [&a, w, h](cv::Mat& o) { tvxFilterGaussian3x3u8_v2(in(a), w, h, stride(a), out(o), stride(o), 1); },
     [&a](cv::Mat& o) { cv::GaussianBlur(a, o, cv::Size(3, 3), 0, 0, cv::BORDER_REPLICATE); });
  u8("Gaussian 5x5", "tvxFilterGaussian5x5u8_v2", "cv::GaussianBlur 5x5", TVX_ROW_tvxFilterGaussian5x5u8,
     [&a, w, h](cv::Mat& o) { tvxFilterGaussian5x5u8_v2(in(a), w, h, stride(a), out(o), stride(o), 1); },
     [&a](cv::Mat& o) { cv::GaussianBlur(a, o, cv::Size(5, 5), 0, 0, cv::BORDER_REPLICATE); });
  u8("box 3x3", "tvxBoxFilter3x3u8", "cv::blur 3x3", TVX_ROW_tvxBoxFilter3x3u8,
     [&a, w, h](cv::Mat& o) { tvxBoxFilter3x3u8(in(a), w, h, stride(a), out(o), stride(o)); },
     [&a](cv::Mat& o) { cv::blur(a, o, cv::Size(3, 3), cv::Point(-1, -1), cv::BORDER_CONSTANT); });
  u8("median 3x3", "tvxFilterMedian3x3u8_v3", "cv::medianBlur 3", TVX_ROW_tvxFilterMedian3x3u8_v3,
     [&a, w, h](cv::Mat& o) { tvxFilterMedian3x3u8_v3(in(a), w, h, stride(a), out(o), stride(o), 2, 0); },
     [&a](cv::Mat& o) { cv::medianBlur(a, o, 3); });
  u8("erode 3x3", "tvxFilterErode3x3u8_v2", "cv::erode 3x3", TVX_ROW_tvxFilterErode3x3u8,
     [&a, w, h](cv::Mat& o) { tvxFilterErode3x3u8_v2(in(a), w, h, stride(a), out(o), stride(o)); },
     [&a](cv::Mat& o) { cv::erode(a, o, cv::Mat()); });
  u8("dilate 3x3", "tvxFilterDilate3x3u8_v2", "cv::dilate 3x3", TVX_ROW_tvxFilterDilate3x3u8,
     [&a, w, h](cv::Mat& o) { tvxFilterDilate3x3u8_v2(in(a), w, h, stride(a), out(o), stride(o)); },
     [&a](cv::Mat& o) { cv::dilate(a, o, cv::Mat()); });
  u8("adaptive mean 3x3", "tvxAdaptiveThresholdMean3x3u8", "cv::adaptiveThreshold MEAN 3",
     TVX_ROW_tvxAdaptiveThresholdMean3x3u8,
     [&smooth, w, h](cv::Mat& o) {
       tvxAdaptiveThresholdMean3x3u8(in(smooth), w, h, stride(smooth), 255, 0, 2, out(o), stride(o));
     },
     [&smooth](cv::Mat& o) {
       cv::adaptiveThreshold(smooth, o, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, 3, 2);
     });
  u8("adaptive Gauss 3x3", "tvxAdaptiveThresholdGaussian3x3u8", "cv::adaptiveThreshold GAUSS 3",
     TVX_ROW_tvxAdaptiveThresholdGaussian3x3u8,
     [&smooth, w, h](cv::Mat& o) {
       tvxAdaptiveThresholdGaussian3x3u8(in(smooth), w, h, stride(smooth), 255, 0, 2, out(o), stride(o));
     },
     [&smooth](cv::Mat& o) {
       cv::adaptiveThreshold(smooth, o, 255, cv::ADAPTIVE_THRESH_GAUSSIAN_C, cv::THRESH_BINARY, 3, 2);
     });
  u8("Otsu threshold", "tvxFilterThresholdOtsuu8", "cv::threshold OTSU", TVX_ROW_tvxFilterThresholdOtsuu8,
     [&smooth, w, h](cv::Mat& o) { tvxFilterThresholdOtsuu8(in(smooth), w, h, stride(smooth), out(o), stride(o), 0); },
     [&smooth](cv::Mat& o) { cv::threshold(smooth, o, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU); });

  const double s16bytes = im.imageBytes() * 5;  // u8 in, two s16 planes out
  pairs.push_back(outputPair(
      {"Sobel 3x3 to s16", "tvxFilterSobel3x3u8s16", "cv::Sobel dx + dy", TVX_ROW_tvxFilterSobel3x3u8s16, s16bytes,
       int(2 * h), int(w), CV_16SC1,
       [&a, w, h](cv::Mat& o) {
         tvxFilterSobel3x3u8s16(in(a), w, h, stride(a), o.ptr<int16_t>(0), o.ptr<int16_t>(int(h)), stride(o), 2, 0);
       },
       [&a, h](cv::Mat& o) {
         cv::Mat dx = o.rowRange(0, int(h)), dy = o.rowRange(int(h), int(2 * h));
         cv::Sobel(a, dx, CV_16S, 1, 0, 3, 1, 0, cv::BORDER_REPLICATE);
         cv::Sobel(a, dy, CV_16S, 0, 1, 3, 1, 0, cv::BORDER_REPLICATE);
       }}));
  u8("Canny 3x3", "tvxFilterCanny3x3u8_v2", "cv::Canny", TVX_ROW_tvxFilterCanny3x3u8,
     [&smooth, w, h](cv::Mat& o) { tvxFilterCanny3x3u8_v2(in(smooth), w, h, stride(smooth), out(o), stride(o), 20, 60); },
     [&smooth](cv::Mat& o) { cv::Canny(smooth, o, 10, 30); });
  // filter2D with an all-ones kernel: the library's shift divides by the next power of two,
  // OpenCV gets the same factor as a float kernel.
  for (int n : {5, 11}) {
    const int shift = n == 5 ? 5 : 7;
    std::vector<int8_t> kernel(size_t(n) * n, 1);
    const cv::Mat peerKernel = cv::Mat::ones(n, n, CV_32F) / float(1 << shift);
    u8("filter2D " + std::to_string(n) + "x" + std::to_string(n), "tvxFilterCorrNxNu8", "cv::filter2D",
       TVX_ROW_tvxFilterCorrNxNu8,
       [&a, w, h, kernel, n, shift](cv::Mat& o) {
         tvxFilterCorrNxNu8(kernel.data(), uint32_t(n), shift, in(a), w, h, stride(a), out(o), stride(o));
       },
       [&a, peerKernel](cv::Mat& o) { cv::filter2D(a, o, -1, peerKernel); });
  }
}
