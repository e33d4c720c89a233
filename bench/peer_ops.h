// The operations compared with OpenCV (and libyuv where it has the operation): each a public
// library call and the peers' equivalents on the same 1920x1080 images, plus the entry-point
// overhead pairs. Shared by the Google Benchmark suite and the side-by-side driver.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

constexpr int kPeerWidth = 1920, kPeerHeight = 1080;

struct PeerImages {
  cv::Mat a, b, lut;                 // pseudo-random inputs and a 1x256 table
  cv::Mat tavixOut, opencvOut;       // outputs, 1920x1080
  cv::Mat tavixOutT, opencvOutT;     // transposed outputs, 1080x1920
  cv::Mat copySrc, copyDst;          // the copy bound moves one 1920x1080 image
  cv::Mat rgb, rgba;                 // random 3- and 4-byte pixels, 1920x1080
  cv::Mat cb, cr, crcb;              // 960x540 chroma planes and their (Cr, Cb) pairs; luma is `a`
  cv::Mat smooth;                    // a blurred random image: edges and flat areas for Canny/Otsu
  PeerImages();
  void scrambleOutputs();            // different contents, so an output left unwritten shows
  void copyImage();                  // memcpy of one image: the copy bound
  double imageBytes() const { return double(kPeerWidth) * kPeerHeight; }
};

struct PeerPair {
  PeerPair(std::string label, std::string tavixCall, std::string opencvCall, uint32_t row, double bytes,
           std::function<void()> tavix, std::function<void()> opencv, std::function<std::string()> compare);
  bool available() const;  // the row's chosen tier has a variant to call
  const char* tier() const;

  std::string label;       // short name of the comparison
  std::string tavixCall;   // the library entry called
  std::string opencvCall;  // the OpenCV function called
  uint32_t row;            // the library's dispatch row
  double bytes;            // bytes read plus bytes written by one call
  std::function<void()> tavix, opencv;
  // After one call of each side: "same" when the outputs agree, else how they differ.
  std::function<std::string()> compare;
  // Targets of the library (0: none): the least OpenCV time / library time, and the most
  // library time / copy time.
  double goalSpeedup = 0, goalVsCopy = 0;

  // Optional third side: libyuv's equivalent, its output compared with the library's.
  std::string libyuvCall;
  std::function<void()> libyuv;
  std::function<std::string()> compareLibyuv;
  double goalVsLibyuv = 0;  // the least libyuv time / library time (0: none)
  PeerPair& withLibyuv(std::string call, std::function<void()> fn, std::function<std::string()> cmp);
};

// "same" when equal, else the largest absolute difference.
std::string compareImages(const cv::Mat& x, const cv::Mat& y);

// Each family adds its pairs.
void addArithPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addFilterPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addTransformPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addColorPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addScalePairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addPyramidPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addWarpPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addRemapPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addFastPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addHarrisPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addContourPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addNccPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addVectorPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addOptflowPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addCodeBookPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addGeomPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addSolverPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addCameraPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addMserPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addHistoPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addRegionPairs(PeerImages& images, std::vector<PeerPair>& pairs);
void addSearchPairs(PeerImages& images, std::vector<PeerPair>& pairs);

std::vector<PeerPair> makePeerPairs(PeerImages& images);

// A tiny operation called many times, through its public entry and through the variant the
// entry dispatches to; each function runs `calls` calls and returns a checksum.
struct OverheadPair {
  bool available() const;
  const char* tier() const;

  std::string label;
  uint32_t row;
  uint64_t (*entry)(uint64_t calls);
  uint64_t (*variant)(uint64_t calls);
};

std::vector<OverheadPair> makeOverheadPairs();

// Selects the SIMD tier (CPU-performance mode) and single-threaded OpenCV.
void setUpPeerRun();
// e.g. "SIMD target AVX3; OpenCV 4.6.0, 1 thread"
std::string peerRunDescription();

// ---- timing (peer_timing.cc) --------------------------------------------------------------

// Machines shared with other work are noisy: the functions compared run short rounds in turn,
// each round starting with a different one, and each function's median round is reported.
constexpr int kPeerRounds = 15;
constexpr double kPeerRoundSeconds = 0.020;

// Thread CPU time leaves out the time slices other processes take; wall time also counts the
// waits of a call whose work runs in another process (the host DSP).
enum class PeerClock { kThreadCpu, kWall };
double peerSeconds(PeerClock clock);
double medianOf(std::vector<double> v);
// Median seconds per call of each function, from interleaved rounds.
std::vector<double> interleavedMedians(const std::vector<std::function<void()>>& fns,
                                       PeerClock clock = PeerClock::kThreadCpu);

// ---- the DSP path (peer_dsp.cc) -----------------------------------------------------------

// The remote (DSP) tier through a host DSP process next to the reference and SIMD tiers: the
// round trip of a tiny call and a 1920x1080 Gaussian 3x3 with copied and with registered
// buffers. Prints its table and goals; false when no host DSP could be reached or used.
bool runDspSection(const PeerImages& images);
