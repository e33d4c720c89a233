// Small helpers shared by the pair files: pointers and strides of OpenCV images.
#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

inline const uint8_t* in(const cv::Mat& m) { return m.ptr<uint8_t>(); }
inline uint8_t* out(cv::Mat& m) { return m.ptr<uint8_t>(); }
inline uint32_t stride(const cv::Mat& m) { return static_cast<uint32_t>(m.step[0]); }

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "peer_ops.h"

// Output images owned by one pair: each side writes its own, and they start different so
// that an output a side leaves unwritten shows in the comparison.
struct PeerOutputs {
  cv::Mat tavix, opencv, libyuv;
  PeerOutputs(int rows, int cols, int type)
      : tavix(rows, cols, type, cv::Scalar::all(0)), opencv(rows, cols, type, cv::Scalar::all(255)),
        libyuv(rows, cols, type, cv::Scalar::all(127)) {}
};

// A pair whose sides each write one image of the given geometry; libyuv is a third side when
// given.
struct PeerSpec {
  std::string label, tavixCall, opencvCall;
  uint32_t row;
  double bytes;             // bytes read plus written per call
  int rows, cols, type;     // the output image
  std::function<void(cv::Mat&)> tavix, opencv;
  std::string libyuvCall = {};
  std::function<void(cv::Mat&)> libyuv = {};
  double goalSpeedup = 2.0;
};

inline PeerPair outputPair(PeerSpec s) {
  auto o = std::make_shared<PeerOutputs>(s.rows, s.cols, s.type);
  auto tavix = s.tavix, opencv = s.opencv, libyuv = s.libyuv;
  PeerPair p(s.label, s.tavixCall, s.opencvCall, s.row, s.bytes, [o, tavix] { tavix(o->tavix); },
             [o, opencv] { opencv(o->opencv); }, [o] { return compareImages(o->tavix, o->opencv); });
  p.goalSpeedup = s.goalSpeedup;
  if (libyuv) {
    p.withLibyuv(s.libyuvCall, [o, libyuv] { libyuv(o->libyuv); }, [o] { return compareImages(o->tavix, o->libyuv); });
    p.goalVsLibyuv = 1.0;
  }
  return p;
}
