// Remap and integral-image pairs: bilinear and nearest remaps from float maps with a mild lens
// distortion, the padded integral (OpenCV's layout), and sums with squared sums (the library's
// unpadded u32 + u64 tables against OpenCV's padded CV_32S + CV_64F ones, compared entry by
// entry where the layouts meet).
#include <cmath>
#include <memory>

#include <opencv2/imgproc.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

// Barrel distortion of a few percent about the image centre, mostly inside the source.
void distortionMaps(cv::Mat& mapX, cv::Mat& mapY) {
  const int w = kPeerWidth, h = kPeerHeight;
  mapX.create(h, w, CV_32FC1);
  mapY.create(h, w, CV_32FC1);
  const float cx = 0.5f * w, cy = 0.5f * h, norm = 1.0f / (cx * cx + cy * cy);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const float dx = x - cx, dy = y - cy, k = 1.0f - 0.06f * (dx * dx + dy * dy) * norm;
      mapX.at<float>(y, x) = cx + dx * k + 0.3f;
      mapY.at<float>(y, x) = cy + dy * k - 0.2f;
    }
}

struct SquaresOutputs {
  cv::Mat sum, sqsum;              // the library: h x w u32 and u64
  cv::Mat cvSum, cvSqsum;          // OpenCV: (h + 1) x (w + 1) CV_32S and CV_64F
};

}  // namespace

void addRemapPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  const uint32_t w = kPeerWidth, h = kPeerHeight;
  const double px = im.imageBytes();
  const int rows = int(h), cols = int(w);
  static cv::Mat mapX, mapY;
  distortionMaps(mapX, mapY);
  const cv::Mat& a = im.a;

  pairs.push_back(outputPair(
      {"remap bilinear", "tvxRemapu8_v2", "cv::remap INTER_LINEAR 32FC1", TVX_ROW_tvxRemapu8_v2, 10 * px, rows, cols,
       CV_8UC1,
       [&a, w, h](cv::Mat& o) {
         tvxRemapu8_v2(in(a), w, h, stride(a), out(o), w, h, stride(o), mapX.ptr<float>(), mapY.ptr<float>(),
                       stride(mapX), 1, 1, 0);
       },
       [&a](cv::Mat& o) { cv::remap(a, o, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(0)); }}));
  pairs.push_back(outputPair(
      {"remap nearest", "tvxRemapu8_v2", "cv::remap INTER_NEAREST 32FC1", TVX_ROW_tvxRemapu8_v2, 10 * px, rows, cols,
       CV_8UC1,
       [&a, w, h](cv::Mat& o) {
         tvxRemapu8_v2(in(a), w, h, stride(a), out(o), w, h, stride(o), mapX.ptr<float>(), mapY.ptr<float>(),
                       stride(mapX), 0, 1, 0);
       },
       [&a](cv::Mat& o) { cv::remap(a, o, mapX, mapY, cv::INTER_NEAREST, cv::BORDER_CONSTANT, cv::Scalar(0)); }}));

  // The padded integral has OpenCV's layout. The SIMD kernel wants strides multiple of 8, so
  // the library's table rows are 1922 entries (a packed 1921-entry row takes the reference).
  {
    auto padded = std::make_shared<cv::Mat>(rows + 1, cols + 2, CV_32S, cv::Scalar(0));
    auto table = std::make_shared<cv::Mat>((*padded)(cv::Range::all(), cv::Range(0, cols + 1)));
    auto cvTable = std::make_shared<cv::Mat>(rows + 1, cols + 1, CV_32S, cv::Scalar(1));
    PeerPair p("integral", "tvxIntegrateImageu8_v2", "cv::integral CV_32S", TVX_ROW_tvxIntegrateImageu8_v2, 9 * px,
               [&a, table, padded, w, h] {
                 tvxIntegrateImageu8_v2(in(a), w, h, stride(a), table->ptr<uint32_t>(), stride(*table));
               },
               [&a, cvTable] { cv::integral(a, *cvTable, CV_32S); },
               [table, cvTable] { return compareImages(*table, *cvTable); });
    p.goalSpeedup = 2.0;
    pairs.push_back(p);
  }
  {
    auto table = std::make_shared<cv::Mat>(rows + 1, cols + 1, CV_32S, cv::Scalar(0));
    auto cvTable = std::make_shared<cv::Mat>(rows + 1, cols + 1, CV_32S, cv::Scalar(1));
    PeerPair p("integral packed rows", "tvxIntegrateImageu8_v2", "cv::integral CV_32S", TVX_ROW_tvxIntegrateImageu8_v2,
               9 * px,
               [&a, table, w, h] { tvxIntegrateImageu8_v2(in(a), w, h, stride(a), table->ptr<uint32_t>(), stride(*table)); },
               [&a, cvTable] { cv::integral(a, *cvTable, CV_32S); },
               [table, cvTable] { return compareImages(*table, *cvTable); });
    pairs.push_back(p);
  }

  // Sums and squared sums: the library's (x, y) is OpenCV's (x + 1, y + 1).
  {
    auto o = std::make_shared<SquaresOutputs>();
    o->sum.create(rows, cols, CV_32S);
    o->sqsum.create(rows, cols * 2, CV_32S);  // u64 entries
    PeerPair p("integral + squares", "tvxIntegrateImageu8u64", "cv::integral CV_32S + CV_64F",
               TVX_ROW_tvxIntegrateImageu8u64, 25 * px,
               [&a, o, w, h] {
                 tvxIntegrateImageu8u64(in(a), w, h, stride(a), o->sum.ptr<uint32_t>(),
                                        reinterpret_cast<uint64_t*>(o->sqsum.ptr()), stride(o->sum), stride(o->sqsum));
               },
               [&a, o] { cv::integral(a, o->cvSum, o->cvSqsum, CV_32S, CV_64F); },
               [o, rows, cols] {
                 for (int y = 0; y < rows; ++y) {
                   const uint32_t* s = o->sum.ptr<uint32_t>(y);
                   const uint64_t* q = reinterpret_cast<const uint64_t*>(o->sqsum.ptr(y));
                   const int32_t* cs = o->cvSum.ptr<int32_t>(y + 1) + 1;
                   const double* cq = o->cvSqsum.ptr<double>(y + 1) + 1;
                   for (int x = 0; x < cols; ++x)
                     if (s[x] != static_cast<uint32_t>(cs[x]) || static_cast<double>(q[x]) != cq[x])
                       return std::string("differs at ") + std::to_string(x) + "," + std::to_string(y);
                 }
                 return std::string("same");
               });
    p.goalSpeedup = 2.0;
    pairs.push_back(p);
  }
}
