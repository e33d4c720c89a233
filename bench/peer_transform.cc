// Frequency transform pairs: the 8x8 block DCT of the 1920x1080 image against cv::dct per block
// (OpenCV's side converts each block to float, shifts it by -128 and rounds the coefficients back
// to 16 bits, which is part of its cost), and the FFT and its inverse of 1024- and 4096-point
// images (one row, and 32x32 / 64x64) against cv::dft on the same input and output layouts.
#include <memory>

#include <opencv2/core.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

void addTransformPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  const uint32_t w = kPeerWidth, h = kPeerHeight;
  const cv::Mat& a = im.a;
  pairs.push_back(outputPair(
      {"DCT 8x8 blocks", "tvxDCTu8", "cv::dct per 8x8 block", TVX_ROW_tvxDCTu8, im.imageBytes() * 3, int(h), int(w),
       CV_16SC1,
       [&a, w, h](cv::Mat& o) { tvxDCTu8(in(a), w, h, stride(a), o.ptr<int16_t>(), stride(o)); },
       [&a, w, h](cv::Mat& o) {
         cv::Mat block(8, 8, CV_32F), coef(8, 8, CV_32F);
         for (uint32_t by = 0; by < h; by += 8)
           for (uint32_t bx = 0; bx < w; bx += 8) {
             a(cv::Rect(bx, by, 8, 8)).convertTo(block, CV_32F, 1.0, -128.0);
             cv::dct(block, coef);
             cv::Mat dst = o(cv::Rect(bx, by, 8, 8));
             coef.convertTo(dst, CV_16S);
           }
       }}));

  for (auto [fw, fh] : {std::pair{1024, 1}, {32, 32}, {4096, 1}, {64, 64}}) {
    auto img = std::make_shared<cv::Mat>(fh, fw, CV_8UC1);
    cv::randu(*img, cv::Scalar::all(0), cv::Scalar::all(256));
    auto spec = std::make_shared<cv::Mat>();
    cv::Mat f;
    img->convertTo(f, CV_32F);
    cv::dft(f, *spec, cv::DFT_COMPLEX_OUTPUT);
    const std::string size = std::to_string(fw) + "x" + std::to_string(fh);
    const double n = double(fw) * fh;
    pairs.push_back(outputPair(
        {"FFT " + size, "tvxFFTu8", "cv::dft complex output", TVX_ROW_tvxFFTu8, n * 9, fh, fw, CV_32FC2,
         [img, fw, fh](cv::Mat& o) {
           tvxFFTu8(in(*img), uint32_t(fw), uint32_t(fh), stride(*img), o.ptr<float>(), stride(o));
         },
         [img](cv::Mat& o) {
           cv::Mat fl;
           img->convertTo(fl, CV_32F);
           cv::dft(fl, o, cv::DFT_COMPLEX_OUTPUT);
         }}));
    pairs.push_back(outputPair(
        {"IFFT " + size, "tvxIFFTf32", "cv::dft inverse real output", TVX_ROW_tvxIFFTf32, n * 12, fh, fw, CV_32FC1,
         [spec, fw, fh](cv::Mat& o) {
           tvxIFFTf32(spec->ptr<float>(), uint32_t(fw), uint32_t(fh), stride(*spec), o.ptr<float>(), stride(o));
         },
         [spec](cv::Mat& o) { cv::dft(*spec, o, cv::DFT_INVERSE | cv::DFT_REAL_OUTPUT | cv::DFT_SCALE); }}));
  }
}
