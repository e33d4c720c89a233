// Colour conversion and scaling pairs, against OpenCV and, where it has the conversion, libyuv.
// Byte orders: the library's RGB888 has red in byte 0 for the inverse matrix and grey (libyuv
// "RAW", OpenCV RGB) and in byte 2 for the forward matrix (libyuv "RGB24", OpenCV BGR). The
// library is full range, so libyuv's full-range "J" forms are the like-for-like peers; OpenCV's
// YUV conversions are video range, so their outputs differ by design.
#include <libyuv.h>
#include <opencv2/imgproc.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

void addColorPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  const uint32_t w = kPeerWidth, h = kPeerHeight;
  const double px = im.imageBytes();
  const int rows = int(h), cols = int(w);

  // One contiguous I420 image (Y, then Cb, then Cr) as OpenCV reads it.
  static cv::Mat i420;
  cv::vconcat(std::vector<cv::Mat>{im.a, im.cb.reshape(1, rows / 4), im.cr.reshape(1, rows / 4)}, i420);
  const uint8_t* y = i420.ptr<uint8_t>();
  const uint8_t* u = y + size_t(w) * h;
  const uint8_t* v = u + size_t(w / 2) * (h / 2);

  pairs.push_back(outputPair(
      {"YCbCr420 planar->RGB", "tvxColorYCbCr420PlanarToRGB888u8", "cv::cvtColor YUV2RGB_I420",
       TVX_ROW_tvxColorYCbCr420PlanarToRGB888u8, 1.5 * px + 3 * px, rows, cols, CV_8UC3,
       [=](cv::Mat& o) { tvxColorYCbCr420PlanarToRGB888u8(y, u, v, w, h, w, w / 2, w / 2, out(o), stride(o)); },
       [](cv::Mat& o) { cv::cvtColor(i420, o, cv::COLOR_YUV2RGB_I420); }, "libyuv::J420ToRAW",
       [=](cv::Mat& o) { libyuv::J420ToRAW(y, w, u, w / 2, v, w / 2, out(o), int(stride(o)), cols, rows); }}));

  // NV21: luma, then (Cr, Cb) pairs, contiguous as OpenCV reads it.
  static cv::Mat nv21;
  cv::vconcat(std::vector<cv::Mat>{im.a, im.crcb.reshape(1, rows / 2)}, nv21);
  const uint8_t* vu = nv21.ptr<uint8_t>() + size_t(w) * h;
  pairs.push_back(outputPair(
      {"NV21->RGBA8888", "tvxColorYCrCb420PseudoPlanarToRGB8888u8", "cv::cvtColor YUV2RGBA_NV21",
       TVX_ROW_tvxColorYCrCb420PseudoPlanarToRGB8888u8, 1.5 * px + 4 * px, rows, cols, CV_8UC4,
       [=](cv::Mat& o) {
         tvxColorYCrCb420PseudoPlanarToRGB8888u8(nv21.ptr<uint8_t>(), vu, w, h, w, w, out(o), stride(o));
       },
       [](cv::Mat& o) { cv::cvtColor(nv21, o, cv::COLOR_YUV2RGBA_NV21); }, "libyuv::NV21ToABGR",
       [=](cv::Mat& o) { libyuv::NV21ToABGR(nv21.ptr<uint8_t>(), w, vu, w, out(o), int(stride(o)), cols, rows); }}));

  const cv::Mat& rgb = im.rgb;
  pairs.push_back(outputPair(
      {"RGB888->YCbCr420", "tvxColorRGB888ToYCbCr420Planaru8", "cv::cvtColor BGR2YUV_I420",
       TVX_ROW_tvxColorRGB888ToYCbCr420Planaru8, 3 * px + 1.5 * px, rows * 3 / 2, cols, CV_8UC1,
       [&rgb, w, h](cv::Mat& o) {
         uint8_t* oy = out(o);
         uint8_t* ou = oy + size_t(w) * h;
         tvxColorRGB888ToYCbCr420Planaru8(in(rgb), w, h, stride(rgb), oy, ou, ou + size_t(w / 2) * (h / 2), w, w / 2,
                                          w / 2);
       },
       [&rgb](cv::Mat& o) { cv::cvtColor(rgb, o, cv::COLOR_BGR2YUV_I420); }, "libyuv::RGB24ToJ420",
       [&rgb, w, h](cv::Mat& o) {
         uint8_t* oy = out(o);
         uint8_t* ou = oy + size_t(w) * h;
         libyuv::RGB24ToJ420(in(rgb), int(stride(rgb)), oy, int(w), ou, int(w / 2), ou + size_t(w / 2) * (h / 2),
                             int(w / 2), int(w), int(h));
       }}));
  pairs.push_back(outputPair(
      {"RGB888->grey", "tvxColorRGB888ToGrayu8", "cv::cvtColor RGB2GRAY", TVX_ROW_tvxColorRGB888ToGrayu8, 4 * px,
       rows, cols, CV_8UC1,
       [&rgb, w, h](cv::Mat& o) { tvxColorRGB888ToGrayu8(in(rgb), w, h, stride(rgb), out(o), stride(o)); },
       [&rgb](cv::Mat& o) { cv::cvtColor(rgb, o, cv::COLOR_RGB2GRAY); }, "libyuv::RAWToJ400",
       [&rgb, w, h](cv::Mat& o) { libyuv::RAWToJ400(in(rgb), int(stride(rgb)), out(o), int(stride(o)), int(w), int(h)); }}));
  pairs.push_back(outputPair(
      {"RGB888->RGB565", "tvxColorRGB888ToRGB565u8", "cv::cvtColor BGR2BGR565", TVX_ROW_tvxColorRGB888ToRGB565u8,
       5 * px, rows, cols, CV_8UC2,
       [&rgb, w, h](cv::Mat& o) { tvxColorRGB888ToRGB565u8(in(rgb), w, h, stride(rgb), out(o), stride(o)); },
       [&rgb](cv::Mat& o) { cv::cvtColor(rgb, o, cv::COLOR_BGR2BGR565); }}));
  const cv::Mat& rgba = im.rgba;
  pairs.push_back(outputPair(
      {"RGBA8888->RGB888", "tvxColorRGBA8888ToRGB888u8", "cv::cvtColor RGBA2RGB", TVX_ROW_tvxColorRGBA8888ToRGB888u8,
       7 * px, rows, cols, CV_8UC3,
       [&rgba, w, h](cv::Mat& o) { tvxColorRGBA8888ToRGB888u8(in(rgba), w, h, stride(rgba), out(o), stride(o)); },
       [&rgba](cv::Mat& o) { cv::cvtColor(rgba, o, cv::COLOR_RGBA2RGB); }, "libyuv::ARGBToRGB24",
       [&rgba, w, h](cv::Mat& o) {
         libyuv::ARGBToRGB24(in(rgba), int(stride(rgba)), out(o), int(stride(o)), int(w), int(h));
       }}));
}

void addScalePairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  const uint32_t w = kPeerWidth, h = kPeerHeight;
  const double px = im.imageBytes();
  const cv::Mat& a = im.a;
  pairs.push_back(outputPair(
      {"down by 2", "tvxScaleDownBy2u8_v2", "cv::resize AREA 1/2", TVX_ROW_tvxScaleDownBy2u8, 1.25 * px,
       int(h / 2), int(w / 2), CV_8UC1,
       [&a, w, h](cv::Mat& o) { tvxScaleDownBy2u8_v2(in(a), w, h, stride(a), out(o), stride(o)); },
       [&a](cv::Mat& o) { cv::resize(a, o, o.size(), 0, 0, cv::INTER_AREA); }, "libyuv::ScalePlane box",
       [&a, w, h](cv::Mat& o) {
         libyuv::ScalePlane(in(a), int(stride(a)), int(w), int(h), out(o), int(stride(o)), o.cols, o.rows,
                            libyuv::kFilterBox);
       }}));
  pairs.back().goalVsLibyuv = 0;  // the libyuv target covers the colour conversions
  const uint32_t bw = 1280, bh = 720;
  pairs.push_back(outputPair(
      {"bilinear 1080p->720p", "tvxScaleDownBLu8", "cv::resize LINEAR", TVX_ROW_tvxScaleDownBLu8,
       px + double(bw) * bh, int(bh), int(bw), CV_8UC1,
       [&a, w, h, bw, bh](cv::Mat& o) { tvxScaleDownBLu8(in(a), w, h, stride(a), out(o), bw, bh, stride(o)); },
       [&a](cv::Mat& o) { cv::resize(a, o, o.size(), 0, 0, cv::INTER_LINEAR); }, "libyuv::ScalePlane bilinear",
       [&a, w, h](cv::Mat& o) {
         libyuv::ScalePlane(in(a), int(stride(a)), int(w), int(h), out(o), int(stride(o)), o.cols, o.rows,
                            libyuv::kFilterBilinear);
       }}));
  pairs.back().goalVsLibyuv = 0;
  pairs.push_back(outputPair(
      {"Gaussian down by 2", "tvxScaleDownBy2Gaussian5x5u8_v2", "cv::pyrDown", TVX_ROW_tvxScaleDownBy2Gaussian5x5u8_v2,
       1.25 * px, int(h / 2), int(w / 2), CV_8UC1,
       [&a, w, h](cv::Mat& o) { tvxScaleDownBy2Gaussian5x5u8_v2(in(a), w, h, stride(a), out(o), stride(o)); },
       [&a](cv::Mat& o) { cv::pyrDown(a, o, o.size()); }}));
  pairs.push_back(outputPair(
      {"scale bilinear ->720p", "tvxScaleu8_v2 bilinear", "cv::resize LINEAR", TVX_ROW_tvxScaleu8_v2,
       px + double(bw) * bh, int(bh), int(bw), CV_8UC1,
       [&a, w, h, bw, bh](cv::Mat& o) { tvxScaleu8_v2(in(a), w, h, stride(a), out(o), bw, bh, stride(o), 1, 2, 0); },
       [&a](cv::Mat& o) { cv::resize(a, o, o.size(), 0, 0, cv::INTER_LINEAR); }, "libyuv::ScalePlane bilinear",
       [&a, w, h](cv::Mat& o) {
         libyuv::ScalePlane(in(a), int(stride(a)), int(w), int(h), out(o), int(stride(o)), o.cols, o.rows,
                            libyuv::kFilterBilinear);
       }}));
  pairs.back().goalVsLibyuv = 0;
  pairs.push_back(outputPair(
      {"scale area ->720p", "tvxScaleu8_v2 area", "cv::resize AREA", TVX_ROW_tvxScaleu8_v2, px + double(bw) * bh,
       int(bh), int(bw), CV_8UC1,
       [&a, w, h, bw, bh](cv::Mat& o) { tvxScaleu8_v2(in(a), w, h, stride(a), out(o), bw, bh, stride(o), 2, 2, 0); },
       [&a](cv::Mat& o) { cv::resize(a, o, o.size(), 0, 0, cv::INTER_AREA); }}));
}
