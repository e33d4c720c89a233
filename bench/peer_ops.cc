// Pairs of a library call and its OpenCV equivalent over shared images (see peer_ops.h).
#include "peer_ops.h"

#include <cstring>
#include <fstream>
#include <memory>

#include <hwy/targets.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include "frame/frame.h"

namespace {

void fillRandom(cv::Mat& m, uint64_t seed) {
  cv::RNG rng(seed);
  rng.fill(m, cv::RNG::UNIFORM, 0, 256);
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

std::string compareImages(const cv::Mat& x, const cv::Mat& y) {
  const double diff = cv::norm(x, y, cv::NORM_INF);
  return diff == 0 ? "same" : "max diff " + std::to_string(static_cast<int>(diff));
}

PeerImages::PeerImages()
    : a(kPeerHeight, kPeerWidth, CV_8UC1), b(kPeerHeight, kPeerWidth, CV_8UC1), lut(1, 256, CV_8UC1),
      tavixOut(kPeerHeight, kPeerWidth, CV_8UC1), opencvOut(kPeerHeight, kPeerWidth, CV_8UC1),
      tavixOutT(kPeerWidth, kPeerHeight, CV_8UC1), opencvOutT(kPeerWidth, kPeerHeight, CV_8UC1),
      copySrc(kPeerHeight, kPeerWidth, CV_8UC1), copyDst(kPeerHeight, kPeerWidth, CV_8UC1),
      rgb(kPeerHeight, kPeerWidth, CV_8UC3), rgba(kPeerHeight, kPeerWidth, CV_8UC4),
      cb(kPeerHeight / 2, kPeerWidth / 2, CV_8UC1), cr(kPeerHeight / 2, kPeerWidth / 2, CV_8UC1) {
  fillRandom(a, 1);
  fillRandom(b, 2);
  fillRandom(lut, 3);
  fillRandom(copySrc, 4);
  fillRandom(rgb, 5);
  fillRandom(rgba, 6);
  fillRandom(cb, 7);
  fillRandom(cr, 8);
  cv::merge(std::vector<cv::Mat>{cr, cb}, crcb);
  cv::GaussianBlur(a, smooth, cv::Size(0, 0), 4.0);
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
  std::vector<PeerPair> pairs;
  addArithPairs(im, pairs);
  addFilterPairs(im, pairs);
  addColorPairs(im, pairs);
  addScalePairs(im, pairs);
  addPyramidPairs(im, pairs);
  addWarpPairs(im, pairs);
  addRemapPairs(im, pairs);
  addFastPairs(im, pairs);
  addHarrisPairs(im, pairs);
  addContourPairs(im, pairs);
  addNccPairs(im, pairs);
  addVectorPairs(im, pairs);
  addOptflowPairs(im, pairs);
  addCodeBookPairs(im, pairs);
  addGeomPairs(im, pairs);
  addTransformPairs(im, pairs);
  addSolverPairs(im, pairs);
  addCameraPairs(im, pairs);
  addMserPairs(im, pairs);
  addHistoPairs(im, pairs);
  addRegionPairs(im, pairs);
  addSearchPairs(im, pairs);
  return pairs;
}

PeerPair& PeerPair::withLibyuv(std::string call, std::function<void()> fn, std::function<std::string()> cmp) {
  libyuvCall = std::move(call);
  libyuv = std::move(fn);
  compareLibyuv = std::move(cmp);
  return *this;
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
