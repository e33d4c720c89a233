// Pairs of a library call and its OpenCV equivalent over shared images (see peer_ops.h).
#include "peer_ops.h"

#include <cstring>
#include <fstream>
#include <memory>

#include <hwy/targets.h>
#include <opencv2/core/utility.hpp>

#include "frame/frame.h"

namespace {

void fillRandom(cv::Mat& m, uint64_t seed) {
  cv::RNG rng(seed);
  rng.fill(m, cv::RNG::UNIFORM, 0, 256);
}

std::string compareImages(const cv::Mat& x, const cv::Mat& y) {
  const double diff = cv::norm(x, y, cv::NORM_INF);
  return diff == 0 ? "same" : "max diff " + std::to_string(static_cast<int>(diff));
}

const uint8_t* in(const cv::Mat& m) { return m.ptr<uint8_t>(); }
uint8_t* out(cv::Mat& m) { return m.ptr<uint8_t>(); }
uint32_t stride(const cv::Mat& m) { return static_cast<uint32_t>(m.step[0]); }

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

// ---- entry-point overhead -----------------------------------------------------------------

alignas(64) uint8_t g_bytes[64] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
alignas(64) uint8_t g_pixelOut[64];

bool onLanes(uint32_t row) { return tvxImplTable[row] == TVX_IMPL_LANES; }

uint64_t bitCountEntry(uint64_t calls) {
  uint64_t sum = 0;
  for (uint64_t i = 0; i < calls; ++i) sum += tvxBitCount32x1u8(g_bytes);
  return sum;
}

// The variant the entry dispatches to, called by name.
uint64_t bitCountVariant(uint64_t calls) {
  uint64_t sum = 0;
  if (onLanes(TVX_ROW_tvxBitCount32x1u8)) {
    for (uint64_t i = 0; i < calls; ++i) sum += tvxBitCount32x1u8V(g_bytes);
  } else {
    for (uint64_t i = 0; i < calls; ++i) sum += tvxBitCount32x1u8C(g_bytes);
  }
  return sum;
}

uint64_t absDiffEntry(uint64_t calls) {
  for (uint64_t i = 0; i < calls; ++i) tvxAbsDiffu8(g_bytes, g_bytes + 1, 1, 1, 0, g_pixelOut, 0);
  return g_pixelOut[0];
}

uint64_t absDiffVariant(uint64_t calls) {
  if (onLanes(TVX_ROW_tvxAbsDiffu8)) {
    for (uint64_t i = 0; i < calls; ++i) tvxAbsDiffu8V(g_bytes, g_bytes + 1, 1, 1, 1, g_pixelOut, 1);
  } else {
    for (uint64_t i = 0; i < calls; ++i) tvxAbsDiffu8C(g_bytes, g_bytes + 1, 1, 1, 1, g_pixelOut, 1);
  }
  return g_pixelOut[0];
}

void quietSink(int, const char*, const char*) {}

std::string cpuModel() {
  std::ifstream cpuinfo("/proc/cpuinfo");
  std::string line;
  while (std::getline(cpuinfo, line)) {
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  }
  return "unknown CPU";
}

}  // namespace

PeerImages::PeerImages()
    : a(kPeerHeight, kPeerWidth, CV_8UC1), b(kPeerHeight, kPeerWidth, CV_8UC1), lut(1, 256, CV_8UC1),
      tavixOut(kPeerHeight, kPeerWidth, CV_8UC1), opencvOut(kPeerHeight, kPeerWidth, CV_8UC1),
      tavixOutT(kPeerWidth, kPeerHeight, CV_8UC1), opencvOutT(kPeerWidth, kPeerHeight, CV_8UC1),
      copySrc(kPeerHeight, kPeerWidth, CV_8UC1), copyDst(kPeerHeight, kPeerWidth, CV_8UC1) {
  fillRandom(a, 1);
  fillRandom(b, 2);
  fillRandom(lut, 3);
  fillRandom(copySrc, 4);
  scrambleOutputs();
}

void PeerImages::scrambleOutputs() {
  tavixOut.setTo(0);
  tavixOutT.setTo(0);
  opencvOut.setTo(255);
  opencvOutT.setTo(255);
}

void PeerImages::copyImage() { std::memcpy(copyDst.data, copySrc.data, copySrc.total()); }

PeerPair::PeerPair(std::string label_, std::string tavixCall_, std::string opencvCall_, uint32_t row_, double bytes_,
                   std::function<void()> tavix_, std::function<void()> opencv_, std::function<std::string()> compare_)
    : label(std::move(label_)), tavixCall(std::move(tavixCall_)), opencvCall(std::move(opencvCall_)), row(row_),
      bytes(bytes_), tavix(std::move(tavix_)), opencv(std::move(opencv_)), compare(std::move(compare_)) {}

bool PeerPair::available() const { return tvxFuncTable[row][tvxImplTable[row]] != nullptr; }

const char* PeerPair::tier() const { return tvxImplChar[tvxImplTable[row]]; }

std::vector<PeerPair> makePeerPairs(PeerImages& im) {
  const uint32_t w = kPeerWidth, h = kPeerHeight;
  std::vector<PeerPair> pairs;
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
  return pairs;
}

std::vector<OverheadPair> makeOverheadPairs() {
  return {{"tvxBitCount32x1u8 (32 bytes)", TVX_ROW_tvxBitCount32x1u8, bitCountEntry, bitCountVariant},
          {"tvxAbsDiffu8 (1x1 image)", TVX_ROW_tvxAbsDiffu8, absDiffEntry, absDiffVariant}};
}

bool OverheadPair::available() const { return tvxFuncTable[row][tvxImplTable[row]] != nullptr; }

const char* OverheadPair::tier() const { return tvxImplChar[tvxImplTable[row]]; }

void setUpPeerRun() {
  cv::setNumThreads(1);
  // On a host the mode call reports that there is no DSP or GPU; that is expected here.
  tvx_set_log_sink(quietSink);
  tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE);
  tvx_set_log_sink(nullptr);
}

std::string peerRunDescription() {
  const int64_t targets = hwy::SupportedTargets() & HWY_TARGETS;
  const int64_t best = targets & -targets;
  return cpuModel() + "; library SIMD target " + hwy::TargetName(best) + "; OpenCV " + CV_VERSION + ", " +
         std::to_string(cv::getNumThreads()) + " thread";
}
