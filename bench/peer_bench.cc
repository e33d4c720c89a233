// tavix_bench: Google Benchmark suite of the library's SIMD tier against OpenCV (one thread)
// and a memcpy of one image, on the same 1920x1080 u8 images, plus the entry-point overhead.
// Run-to-run noise on shared machines is large; tavix_peer_compare interleaves the sides and
// reports medians.
#include <benchmark/benchmark.h>

#include <cctype>
#include <cstdio>

#include "peer_ops.h"

namespace {

// A label as a benchmark name: runs of other characters become one underscore.
std::string key(const std::string& label) {
  std::string k;
  for (char c : label) {
    if (std::isalnum(static_cast<unsigned char>(c))) k += c;
    else if (!k.empty() && k.back() != '_') k += '_';
  }
  while (!k.empty() && k.back() == '_') k.pop_back();
  return k;
}

void registerSide(const std::string& name, const std::function<void()>* fn, double bytes) {
  benchmark::RegisterBenchmark(name.c_str(), [fn, bytes](benchmark::State& state) {
    for (auto _ : state) (*fn)();
    state.SetBytesProcessed(static_cast<int64_t>(double(state.iterations()) * bytes));
  });
}

void registerOverhead(const OverheadPair& o) {
  constexpr uint64_t kCalls = 1000;  // calls per iteration; the counter reports time per call
  auto side = [](uint64_t (*fn)(uint64_t)) {
    return [fn](benchmark::State& state) {
      for (auto _ : state) benchmark::DoNotOptimize(fn(kCalls));
      state.counters["per_call"] = benchmark::Counter(double(state.iterations()) * kCalls,
                                                      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    };
  };
  benchmark::RegisterBenchmark(("overhead/" + key(o.label) + "/public_entry").c_str(), side(o.entry));
  benchmark::RegisterBenchmark(("overhead/" + key(o.label) + "/direct_variant").c_str(), side(o.variant));
}

}  // namespace

int main(int argc, char** argv) {
  setUpPeerRun();
  benchmark::Initialize(&argc, argv);
  benchmark::AddCustomContext("peers", peerRunDescription());

  static PeerImages images;
  static const std::vector<PeerPair> pairs = makePeerPairs(images);
  static const std::function<void()> copy = [] { images.copyImage(); };
  registerSide("copy/memcpy_one_image", &copy, 2 * images.imageBytes());
  for (const PeerPair& p : pairs) {
    if (!p.available()) {
      std::fprintf(stderr, "%s: no %s variant linked, not timed\n", p.tavixCall.c_str(), p.tier());
      continue;
    }
    registerSide(key(p.label) + "/tavix", &p.tavix, p.bytes);
    registerSide(key(p.label) + "/opencv", &p.opencv, p.bytes);
    if (p.libyuv) registerSide(key(p.label) + "/libyuv", &p.libyuv, p.bytes);
  }
  for (const OverheadPair& o : makeOverheadPairs()) {
    if (o.available()) registerOverhead(o);
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
