// The operations compared with OpenCV: each a public library call and OpenCV's equivalent on
// the same 1920x1080 u8 images, plus the entry-point overhead pairs. Shared by the Google
// Benchmark suite and the side-by-side driver.
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
};

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
