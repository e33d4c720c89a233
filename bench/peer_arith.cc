// Element-wise pairs: arithmetic, bitwise, look-up, transpose, flips and min/max location.
#include <cstdio>
#include <memory>

#include "frame/frame.h"
#include "peer_ops.h"
#include "peer_util.h"

namespace {

// A two-input pixel operation: library and OpenCV each write their own output image.
PeerPair binaryPair(PeerImages& im, std::string label, std::string tavixCall, std::string opencvCall,
                    uint32_t row, std::function<void()> tavix, std::function<void()> opencv) {
  return {std::move(label), std::move(tavixCall), std::move(opencvCall), row, 3 * im.imageBytes(),
          std::move(tavix), std::move(opencv), [&im] { return compareImages(im.tavixOut, im.opencvOut); }};
}

struct MinMax {
  double minValue = -1, maxValue = -1;
  cv::Point minLoc{-1, -1}, maxLoc{-1, -1};
  bool operator==(const MinMax& o) const {
    return minValue == o.minValue && maxValue == o.maxValue && minLoc == o.minLoc && maxLoc == o.maxLoc;
  }
};

// The random images hold 0 and 255 many times; both sides must report the first occurrence.
PeerPair minMaxPair(PeerImages& im) {
  auto tavixResult = std::make_shared<MinMax>(), opencvResult = std::make_shared<MinMax>();
  return {"min/max location", "tvxMinMaxLocu8", "cv::minMaxLoc", TVX_ROW_tvxMinMaxLocu8, im.imageBytes(),
          [&im, tavixResult] {
            uint8_t minValue = 0, maxValue = 0;
            uint32_t minX = 0, minY = 0, maxX = 0, maxY = 0;
            tvxMinMaxLocu8(in(im.a), kPeerWidth, kPeerHeight, stride(im.a), &minValue, &maxValue, &minX, &minY,
                           &maxX, &maxY);
            *tavixResult = {double(minValue), double(maxValue), cv::Point(int(minX), int(minY)),
                            cv::Point(int(maxX), int(maxY))};
          },
          [&im, opencvResult] {
            MinMax& r = *opencvResult;
            cv::minMaxLoc(im.a, &r.minValue, &r.maxValue, &r.minLoc, &r.maxLoc);
          },
          [tavixResult, opencvResult] {
            if (*tavixResult == *opencvResult) return std::string("same");
            const MinMax &t = *tavixResult, &o = *opencvResult;
            char text[160];
            std::snprintf(text, sizeof text, "differs: min %g@(%d,%d) max %g@(%d,%d) vs min %g@(%d,%d) max %g@(%d,%d)",
                          t.minValue, t.minLoc.x, t.minLoc.y, t.maxValue, t.maxLoc.x, t.maxLoc.y, o.minValue,
                          o.minLoc.x, o.minLoc.y, o.maxValue, o.maxLoc.x, o.maxLoc.y);
            return std::string(text);
          }};
}

}  // namespace

void addArithPairs(PeerImages& im, std::vector<PeerPair>& pairs) {
  const uint32_t w = kPeerWidth, h = kPeerHeight;
  pairs.push_back(binaryPair(
      im, "absolute difference", "tvxAbsDiffu8", "cv::absdiff", TVX_ROW_tvxAbsDiffu8,
      [&im, w, h] { tvxAbsDiffu8(in(im.a), in(im.b), w, h, stride(im.a), out(im.tavixOut), stride(im.tavixOut)); },
      [&im] { cv::absdiff(im.a, im.b, im.opencvOut); }));
  pairs.push_back(binaryPair(
      im, "saturating add", "tvxAddu8", "cv::add", TVX_ROW_tvxAddu8,
      [&im, w, h] {
        tvxAddu8(in(im.a), w, h, stride(im.a), in(im.b), stride(im.b), TVX_CONVERT_POLICY_SATURATE,
                 out(im.tavixOut), stride(im.tavixOut));
      },
      [&im] { cv::add(im.a, im.b, im.opencvOut); }));
  pairs.push_back(binaryPair(
      im, "bitwise and", "tvxBitwiseAndu8", "cv::bitwise_and", TVX_ROW_tvxBitwiseAndu8,
      [&im, w, h] {
        tvxBitwiseAndu8(in(im.a), w, h, stride(im.a), in(im.b), stride(im.b), out(im.tavixOut), stride(im.tavixOut));
      },
      [&im] { cv::bitwise_and(im.a, im.b, im.opencvOut); }));
  pairs.push_back(binaryPair(
      im, "multiply, scale 1", "tvxElementMultiplyu8 n=0", "cv::multiply 1.0", TVX_ROW_tvxElementMultiplyu8,
      [&im, w, h] {
        tvxElementMultiplyu8(in(im.a), w, h, stride(im.a), in(im.b), stride(im.b), 0, TVX_CONVERT_POLICY_SATURATE,
                             out(im.tavixOut), stride(im.tavixOut));
      },
      [&im] { cv::multiply(im.a, im.b, im.opencvOut, 1.0); }));
  pairs.push_back(binaryPair(
      im, "multiply, scale 1/256", "tvxElementMultiplyu8 n=8", "cv::multiply 1/256", TVX_ROW_tvxElementMultiplyu8,
      [&im, w, h] {
        tvxElementMultiplyu8(in(im.a), w, h, stride(im.a), in(im.b), stride(im.b), 8, TVX_CONVERT_POLICY_SATURATE,
                             out(im.tavixOut), stride(im.tavixOut));
      },
      [&im] { cv::multiply(im.a, im.b, im.opencvOut, 1.0 / 256); }));
  pairs.push_back({"table look-up", "tvxTableLookupu8", "cv::LUT", TVX_ROW_tvxTableLookupu8, 2 * im.imageBytes(),
                   [&im, w, h] {
                     tvxTableLookupu8(in(im.a), w, h, stride(im.a), in(im.lut), out(im.tavixOut), stride(im.tavixOut));
                   },
                   [&im] { cv::LUT(im.a, im.lut, im.opencvOut); },
                   [&im] { return compareImages(im.tavixOut, im.opencvOut); }});
  pairs.push_back({"transpose", "tvxTransposeu8", "cv::transpose", TVX_ROW_tvxTransposeu8, 2 * im.imageBytes(),
                   [&im, w, h] { tvxTransposeu8(in(im.a), w, h, stride(im.a), out(im.tavixOutT), stride(im.tavixOutT)); },
                   [&im] { cv::transpose(im.a, im.opencvOutT); },
                   [&im] { return compareImages(im.tavixOutT, im.opencvOutT); }});
  pairs.push_back({"flip horizontal", "tvxFlipu8 dir 1", "cv::flip 1", TVX_ROW_tvxFlipu8, 2 * im.imageBytes(),
                   [&im, w, h] {
                     tvxFlipu8(in(im.a), w, h, stride(im.a), out(im.tavixOut), stride(im.tavixOut), TVX_FLIP_HORIZONTAL);
                   },
                   [&im] { cv::flip(im.a, im.opencvOut, 1); },
                   [&im] { return compareImages(im.tavixOut, im.opencvOut); }});
  pairs.push_back({"flip vertical", "tvxFlipu8 dir 2", "cv::flip 0", TVX_ROW_tvxFlipu8, 2 * im.imageBytes(),
                   [&im, w, h] {
                     tvxFlipu8(in(im.a), w, h, stride(im.a), out(im.tavixOut), stride(im.tavixOut), TVX_FLIP_VERTICAL);
                   },
                   [&im] { cv::flip(im.a, im.opencvOut, 0); },
                   [&im] { return compareImages(im.tavixOut, im.opencvOut); }});
  pairs.push_back(minMaxPair(im));
  for (PeerPair& p : pairs) {
    if (p.tavixCall == "tvxAbsDiffu8" || p.tavixCall == "tvxAddu8" || p.tavixCall == "tvxBitwiseAndu8") {
      p.goalSpeedup = 0.95;  // parity, within the noise of these machines
      p.goalVsCopy = 1.25;
    } else if (p.row == TVX_ROW_tvxTableLookupu8 || p.row == TVX_ROW_tvxTransposeu8 || p.row == TVX_ROW_tvxFlipu8) {
      p.goalSpeedup = 2.0;
    }
  }
}

