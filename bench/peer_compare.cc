// tavix_peer_compare: the library's SIMD tier against OpenCV (and libyuv where it has the
// operation) on the same 1920x1080 images in one process; an argument limits the run to the
// operations whose label contains it. Machines shared with other work are noisy, so every
// operation runs short interleaved rounds (library, peers, a memcpy of one image) and the table
// reports medians. A last section times the DSP tier through a host DSP process (peer_dsp.cc);
// the argument "dsp" runs it alone.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "peer_ops.h"

namespace {

volatile uint64_t g_sink;

struct Result {
  const PeerPair* pair;
  double tavix, opencv, copy, libyuv;
  std::string output, outputLibyuv;
};

void printPeerTable(const std::vector<Result>& results, const PeerImages& images) {
  const double copyBytes = 2 * images.imageBytes();
  std::printf("%-22s %10s %6s %10s %6s %9s %10s %9s %10s %6s %8s  %s\n", "operation", "library", "GB/s", "OpenCV",
              "GB/s", "speed-up", "libyuv", "vs libyuv", "copy", "GB/s", "vs copy", "output (OpenCV; libyuv)");
  for (const Result& r : results) {
    const PeerPair& p = *r.pair;
    if (r.tavix == 0) {
      std::printf("%-22s %10s   (no %s variant linked for %s)\n", p.label.c_str(), "-", p.tier(), p.tavixCall.c_str());
      continue;
    }
    char yuvTime[16] = "-", yuvRatio[16] = "-";
    if (r.libyuv > 0) {
      std::snprintf(yuvTime, sizeof yuvTime, "%.1f us", r.libyuv * 1e6);
      std::snprintf(yuvRatio, sizeof yuvRatio, "%.2fx", r.libyuv / r.tavix);
    }
    std::string output = r.output + (r.libyuv > 0 ? "; " + r.outputLibyuv : "");
    std::printf("%-22s %7.1f us %6.1f %7.1f us %6.1f %8.2fx %10s %9s %7.1f us %6.1f %7.2fx  %s\n", p.label.c_str(),
                r.tavix * 1e6, p.bytes / r.tavix / 1e9, r.opencv * 1e6, p.bytes / r.opencv / 1e9, r.opencv / r.tavix,
                yuvTime, yuvRatio, r.copy * 1e6, copyBytes / r.copy / 1e9, r.tavix / r.copy, output.c_str());
  }
  std::printf("\ncalls:\n");
  for (const Result& r : results) {
    std::printf("  %-22s %s (%s tier) vs %s%s%s\n", r.pair->label.c_str(), r.pair->tavixCall.c_str(),
                r.pair->tier(), r.pair->opencvCall.c_str(), r.pair->libyuv ? " vs " : "",
                r.pair->libyuvCall.c_str());
  }
  std::printf("\ngoals:\n");
  for (const Result& r : results) {
    const PeerPair& p = *r.pair;
    if (p.goalSpeedup == 0 || r.tavix == 0) continue;
    const double speedup = r.opencv / r.tavix, vsCopy = r.tavix / r.copy;
    const bool met = speedup >= p.goalSpeedup && (p.goalVsCopy == 0 || vsCopy <= p.goalVsCopy);
    char goal[96], measured[64];
    if (p.goalVsCopy) {
      std::snprintf(goal, sizeof goal, "speed-up >= %.2fx (parity), time <= %.2fx the copy", p.goalSpeedup,
                    p.goalVsCopy);
      std::snprintf(measured, sizeof measured, "%.2fx, %.2fx the copy", speedup, vsCopy);
    } else {
      std::snprintf(goal, sizeof goal, "speed-up >= %.2fx", p.goalSpeedup);
      std::snprintf(measured, sizeof measured, "%.2fx", speedup);
    }
    std::printf("  %-22s %-52s %-22s %s\n", p.label.c_str(), goal, measured, met ? "met" : "MISSED");
    if (p.goalVsLibyuv > 0 && r.libyuv > 0) {
      const double vsLibyuv = r.libyuv / r.tavix;
      std::snprintf(goal, sizeof goal, "libyuv time / library time >= %.2fx", p.goalVsLibyuv);
      std::snprintf(measured, sizeof measured, "%.2fx", vsLibyuv);
      std::printf("  %-22s %-52s %-22s %s\n", "", goal, measured, vsLibyuv >= p.goalVsLibyuv ? "met" : "MISSED");
    }
    if (p.goalVsCopy && p.bytes > copyBytes) {
      std::printf("  %-22s (it moves %.2fx the copy's bytes; its bandwidth is %.2fx the copy's)\n", "",
                  p.bytes / copyBytes, (p.bytes / r.tavix) / (copyBytes / r.copy));
    }
  }
}

void printOverheadTable() {
  std::printf("\nEntry-point overhead: ns per call of a tiny operation through its public entry and by a\n"
              "direct call of the variant the entry dispatches to (median of %d interleaved rounds of ~%.0f ms).\n\n",
              kPeerRounds, kPeerRoundSeconds * 1e3);
  std::printf("%-30s %6s %14s %15s %11s\n", "call", "tier", "public entry", "direct variant", "difference");
  for (const OverheadPair& o : makeOverheadPairs()) {
    if (!o.available()) {
      std::printf("%-30s %6s   (no variant linked)\n", o.label.c_str(), o.tier());
      continue;
    }
    const uint64_t calls = 1000;  // per function call of the timing loop; amortises its own cost
    const std::vector<double> m = interleavedMedians({[&] { g_sink = o.entry(calls); }, [&] { g_sink = o.variant(calls); }});
    const double entryNs = m[0] / calls * 1e9, variantNs = m[1] / calls * 1e9;
    std::printf("%-30s %6s %11.2f ns %12.2f ns %8.2f ns\n", o.label.c_str(), o.tier(), entryNs, variantNs,
                entryNs - variantNs);
  }
  std::printf("goal: difference below 5 ns.\n");
}

void runPeerSection(PeerImages& images, const std::string& only) {
  std::printf("Library (SIMD tier) vs OpenCV on %dx%d u8 images: same process, same images, one thread.\n",
              kPeerWidth, kPeerHeight);
  std::printf("%s\n\n", peerRunDescription().c_str());
  std::printf("Times: thread CPU time per call, the median of %d rounds; each round runs the library, OpenCV\n"
              "and the copy for ~%.0f ms each, in turn.\n"
              "copy:     memcpy of one %dx%d u8 image (%.2f MB), the cost of one pass over the image.\n"
              "GB/s:     bytes read + written per call / time.\n"
              "speed-up: OpenCV time / library time.   vs libyuv: libyuv time / library time.\n"
              "vs copy:  library time / copy time.\n"
              "output:   the two results compared after one call of each.\n\n",
              kPeerRounds, kPeerRoundSeconds * 1e3, kPeerWidth, kPeerHeight, images.imageBytes() / 1e6);

  std::vector<PeerPair> pairs = makePeerPairs(images);
  std::vector<Result> results;
  for (const PeerPair& p : pairs) {
    if (!only.empty() && p.label.find(only) == std::string::npos) continue;
    Result r{&p, 0, 0, 0, 0, "", ""};
    if (p.available()) {
      images.scrambleOutputs();
      p.tavix();
      p.opencv();
      r.output = p.compare();
      std::vector<std::function<void()>> sides{p.tavix, p.opencv, [&images] { images.copyImage(); }};
      if (p.libyuv) {
        p.libyuv();
        r.outputLibyuv = p.compareLibyuv();
        sides.push_back(p.libyuv);
      }
      const std::vector<double> m = interleavedMedians(sides);
      r.tavix = m[0];
      r.opencv = m[1];
      r.copy = m[2];
      if (p.libyuv) r.libyuv = m[3];
    }
    results.push_back(r);
  }
  printPeerTable(results, images);
  printOverheadTable();
}

}  // namespace

int main(int argc, char** argv) {
  setUpPeerRun();
  PeerImages images;
  // Optional: "dsp" runs the DSP section alone; other text limits the peer table to the labels
  // containing it and leaves the DSP section out.
  const std::string only = argc > 1 ? argv[1] : "";
  if (only != "dsp") runPeerSection(images, only);
  if (!only.empty() && only != "dsp") return 0;
  const bool ranOnDsp = runDspSection(images);
  return ranOnDsp || only.empty() ? 0 : 1;
}
