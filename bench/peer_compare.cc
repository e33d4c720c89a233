// tavix_peer_compare: the library's SIMD tier against OpenCV (and libyuv where it has the
// operation) on the same 1920x1080 images in one process; an argument limits the run to the
// operations whose label contains it. Machines shared with other work are noisy, so every
// operation runs short interleaved rounds (library, peers, a memcpy of one image) and the table
// reports medians.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "peer_ops.h"

namespace {

constexpr int kRounds = 15;
constexpr double kRoundSeconds = 0.020;

volatile uint64_t g_sink;

// CPU time of this thread: time slices that other processes take on a shared machine do not
// count.
double threadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

double secondsPerCall(const std::function<void()>& fn, uint64_t calls) {
  const double start = threadSeconds();
  for (uint64_t i = 0; i < calls; ++i) fn();
  return (threadSeconds() - start) / double(calls);
}

// Calls that fill one round, from the fastest of a few single calls (the first warms up).
uint64_t callsPerRound(const std::function<void()>& fn) {
  double single = secondsPerCall(fn, 1);
  for (int i = 0; i < 3; ++i) single = std::min(single, secondsPerCall(fn, 1));
  return static_cast<uint64_t>(std::clamp(kRoundSeconds / std::max(single, 1e-9), 1.0, 1e9));
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

// Median seconds per call of each function, over rounds that run every function in turn
// (starting with a different one each round).
std::vector<double> interleavedMedians(const std::vector<std::function<void()>>& fns) {
  const size_t n = fns.size();
  std::vector<uint64_t> calls(n);
  for (size_t k = 0; k < n; ++k) calls[k] = callsPerRound(fns[k]);
  std::vector<std::vector<double>> times(n);
  for (int r = 0; r < kRounds; ++r) {
    for (size_t i = 0; i < n; ++i) {
      const size_t k = (i + static_cast<size_t>(r)) % n;
      times[k].push_back(secondsPerCall(fns[k], calls[k]));
    }
  }
  std::vector<double> medians;
  for (auto& t : times) medians.push_back(median(t));
  return medians;
}

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
              kRounds, kRoundSeconds * 1e3);
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

}  // namespace

int main(int argc, char** argv) {
  setUpPeerRun();
  PeerImages images;
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
              kRounds, kRoundSeconds * 1e3, kPeerWidth, kPeerHeight, images.imageBytes() / 1e6);

  std::vector<PeerPair> pairs = makePeerPairs(images);
  std::vector<Result> results;
  const std::string only = argc > 1 ? argv[1] : "";  // optional: labels containing this text
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
  return 0;
}
