// Interleaved timing rounds shared by the side-by-side tables (see peer_ops.h).
#include <algorithm>
#include <ctime>

#include "peer_ops.h"

double peerSeconds(PeerClock clock) {
  timespec now;
  clock_gettime(clock == PeerClock::kThreadCpu ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &now);
  return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

double medianOf(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

namespace {

double secondsPerCall(const std::function<void()>& fn, uint64_t calls, PeerClock clock) {
  const double start = peerSeconds(clock);
  for (uint64_t i = 0; i < calls; ++i) fn();
  return (peerSeconds(clock) - start) / double(calls);
}

// Calls that fill one round, from the fastest of a few single calls (the first warms up).
uint64_t callsPerRound(const std::function<void()>& fn, PeerClock clock) {
  double single = secondsPerCall(fn, 1, clock);
  for (int i = 0; i < 3; ++i) single = std::min(single, secondsPerCall(fn, 1, clock));
  return static_cast<uint64_t>(std::clamp(kPeerRoundSeconds / std::max(single, 1e-9), 1.0, 1e9));
}

}  // namespace

std::vector<double> interleavedMedians(const std::vector<std::function<void()>>& fns, PeerClock clock) {
  const size_t n = fns.size();
  std::vector<uint64_t> calls(n);
  for (size_t k = 0; k < n; ++k) calls[k] = callsPerRound(fns[k], clock);
  std::vector<std::vector<double>> times(n);
  for (int r = 0; r < kPeerRounds; ++r) {
    for (size_t i = 0; i < n; ++i) {
      const size_t k = (i + static_cast<size_t>(r)) % n;
      times[k].push_back(secondsPerCall(fns[k], calls[k], clock));
    }
  }
  std::vector<double> medians;
  for (auto& t : times) medians.push_back(medianOf(t));
  return medians;
}
