// Warp pairs: perspective (bilinear and nearest) and affine (bilinear) resampling of the
// 1920x1080 image under a mild rotation, scale and tilt that keeps most of the frame inside.
// The library's matrix maps destination to source, so OpenCV gets WARP_INVERSE_MAP with the
// same matrix; its bilinear weights are rounded differently (1/32 positions, but weights in
// 1/32768), so the outputs differ by a little.
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

void addWarpPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  const uint32_t w = kPeerWidth, h = kPeerHeight;
  const double bytes = 2 * im.imageBytes();
  const cv::Mat& a = im.a;
  // About 3 degrees of rotation, 4 % enlargement about the centre, a slight keystone.
  const float c = 0.96f * std::cos(0.05f), s = 0.96f * std::sin(0.05f);
  const float cx = w / 2.0f, cy = h / 2.0f;
  static float persp[9], affine[6];
  const float m[9] = {c, -s, cx - c * cx + s * cy, s, c, cy - s * cx - c * cy, 0.00001f, 0.000015f, 1.0f};
  for (int i = 0; i < 9; ++i) persp[i] = m[i];
  persp[8] = 1.0f - 0.00001f * cx - 0.000015f * cy;  // w = 1 at the centre
  for (int i = 0; i < 6; ++i) affine[i] = m[i];
  const cv::Mat P(3, 3, CV_32F, persp), A(2, 3, CV_32F, affine);
  auto u8 = [&](std::string label, std::string call, std::string peer, uint32_t row, std::function<void(cv::Mat&)> tavix,
                std::function<void(cv::Mat&)> opencv) {
    pairs.push_back(outputPair({std::move(label), std::move(call), std::move(peer), row, bytes, int(h), int(w), CV_8UC1,
                                std::move(tavix), std::move(opencv)}));
  };
  u8("warpPerspective bilinear", "tvxWarpPerspectiveu8_v3", "cv::warpPerspective LINEAR", TVX_ROW_tvxWarpPerspectiveu8_v3,
     [&a, w, h](cv::Mat& o) { tvxWarpPerspectiveu8_v3(in(a), w, h, stride(a), out(o), w, h, stride(o), persp, 1, 0, 0); },
     [&a, P](cv::Mat& o) {
       cv::warpPerspective(a, o, P, o.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_CONSTANT, 0);
     });
  u8("warpPerspective nearest", "tvxWarpPerspectiveu8_v3", "cv::warpPerspective NEAREST", TVX_ROW_tvxWarpPerspectiveu8_v3,
     [&a, w, h](cv::Mat& o) { tvxWarpPerspectiveu8_v3(in(a), w, h, stride(a), out(o), w, h, stride(o), persp, 0, 0, 0); },
     [&a, P](cv::Mat& o) {
       cv::warpPerspective(a, o, P, o.size(), cv::INTER_NEAREST | cv::WARP_INVERSE_MAP, cv::BORDER_CONSTANT, 0);
     });
  u8("warpAffine bilinear", "tvxTransformAffineu8_v2", "cv::warpAffine LINEAR", TVX_ROW_tvxTransformAffineu8_v2,
     [&a, w, h](cv::Mat& o) { tvxTransformAffineu8_v2(in(a), w, h, stride(a), out(o), w, h, stride(o), affine); },
     [&a, A](cv::Mat& o) {
       cv::warpAffine(a, o, A, o.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP, cv::BORDER_CONSTANT, 0);
     });
}
