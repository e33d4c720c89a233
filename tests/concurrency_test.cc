// Operations called from several threads at once, after one mode selection: every registry
// entry's sample call on each worker's own buffers must leave them exactly as a single-threaded
// run does, while another thread keeps allocating and freeing library memory. Run under
// ThreadSanitizer (preset tsan) this also proves the scratch pool, tvxMemAlloc, the dispatch
// tables and the DSP channel free of data races.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "frame/frame.h"
#include "host_dsp.h"

#include "samples.inc"

namespace {

constexpr size_t kBytes = 64 * 1024;
constexpr int kWorkers = 4;

// Entries that change library-wide state rather than compute: a mode, a registration, a cache
// flush. They belong to set-up, not to the operations that run concurrently.
bool ChangesLibraryState(const TvxSampleEntry& e) {
  for (const char* name : {"probeR6Time", "tvxRegisterBuf", "tvx_cache_flush_invalidate"})
    if (std::strcmp(e.name, name) == 0) return true;
  return false;
}

// The nine sample buffers of one call, from the heap or from tvxMemAlloc.
struct Buffers {
  std::vector<uint8_t*> blocks;
  bool fromLibrary;
  TvxSample sample{};
  explicit Buffers(bool library) : fromLibrary(library) {
    for (int i = 0; i < TVX_SAMPLE_BUFFERS; ++i) {
      auto* p = static_cast<uint8_t*>(library ? tvxMemAlloc(kBytes, 64) : ::operator new(kBytes));
      blocks.push_back(p);
      sample.buf[i] = p;
    }
    sample.width = 37;
    sample.height = 5;
    sample.pad = 16;
    Reset();
  }
  ~Buffers() {
    for (uint8_t* p : blocks) fromLibrary ? tvxMemFree(p) : ::operator delete(p);
  }
  Buffers(const Buffers&) = delete;
  Buffers& operator=(const Buffers&) = delete;
  void Reset() {
    for (int i = 0; i < TVX_SAMPLE_BUFFERS; ++i) std::memcpy(blocks[i], Pattern().data() + i * kBytes, kBytes);
  }
  std::vector<uint8_t> Snapshot() const {
    std::vector<uint8_t> all(kBytes * TVX_SAMPLE_BUFFERS);
    for (int i = 0; i < TVX_SAMPLE_BUFFERS; ++i) std::memcpy(all.data() + i * kBytes, blocks[i], kBytes);
    return all;
  }
  bool Equals(const std::vector<uint8_t>& all) const {
    for (int i = 0; i < TVX_SAMPLE_BUFFERS; ++i)
      if (std::memcmp(all.data() + i * kBytes, blocks[i], kBytes) != 0) return false;
    return true;
  }

 private:
  // Small non-zero bytes, every fourth near 0x3F so floats read from the buffers stay normal.
  static const std::vector<uint8_t>& Pattern() {
    static const std::vector<uint8_t> pattern = [] {
      std::vector<uint8_t> p(kBytes * TVX_SAMPLE_BUFFERS);
      for (int i = 0; i < TVX_SAMPLE_BUFFERS; ++i)
        for (size_t j = 0; j < kBytes; ++j)
          p[i * kBytes + j] =
              static_cast<uint8_t>(j % 4 == 3 ? 0x3E + (j / 4 + i) % 3 : (j * 7 + i * 13 + j / 97) % 61 + 1);
      return p;
    }();
    return pattern;
  }
};

struct Outcome {
  int64_t result;
  std::vector<uint8_t> bytes;
};

std::vector<const TvxSampleEntry*> Operations(bool remoteOnly) {
  std::vector<const TvxSampleEntry*> ops;
  for (const TvxSampleEntry& e : kTvxSamples)
    if (!ChangesLibraryState(e) && (!remoteOnly || e.dspOp >= 0)) ops.push_back(&e);
  return ops;
}

// Runs every operation once on one thread, then on kWorkers threads at the same time (each in
// its own order, on its own buffers, several rounds) beside a thread that allocates and frees
// library memory of changing sizes; every concurrent call must reproduce the single-threaded one.
void ExpectConcurrentRunsMatch(int32_t mode, bool remoteOnly, bool libraryBuffers, int rounds) {
  ASSERT_EQ(tvxSetOperationMode(mode), 0);
  const std::vector<const TvxSampleEntry*> ops = Operations(remoteOnly);
  ASSERT_FALSE(ops.empty());
  std::vector<Outcome> expected;
  {
    Buffers b(libraryBuffers);
    for (const TvxSampleEntry* e : ops) {
      b.Reset();
      const int64_t r = e->call(b.sample);
      expected.push_back({r, b.Snapshot()});
    }
  }

  std::atomic<bool> stop{false};
  std::atomic<int> mismatches{0};
  std::vector<std::string> failed(kWorkers);
  std::thread allocator([&] {
    std::mt19937 rng(7);
    std::vector<void*> held;
    while (!stop) {
      if (held.size() < 64 && (rng() & 1)) {
        const uint32_t size = 1 + rng() % 50000;
        if (void* p = tvxMemAlloc(size, 16u << (rng() % 3))) {
          std::memset(p, 0xA5, size);
          held.push_back(p);
        }
      } else if (!held.empty()) {
        const size_t i = rng() % held.size();
        tvxMemFree(held[i]);
        held.erase(held.begin() + static_cast<std::ptrdiff_t>(i));
      }
    }
    for (void* p : held) tvxMemFree(p);
  });
  std::vector<std::thread> workers;
  for (int w = 0; w < kWorkers; ++w) {
    workers.emplace_back([&, w] {
      Buffers b(libraryBuffers);
      std::vector<size_t> order(ops.size());
      for (size_t i = 0; i < order.size(); ++i) order[i] = i;
      std::mt19937 rng(100 + w);
      for (int round = 0; round < rounds; ++round) {
        std::shuffle(order.begin(), order.end(), rng);
        for (size_t i : order) {
          b.Reset();
          const int64_t r = ops[i]->call(b.sample);
          if (r != expected[i].result || !b.Equals(expected[i].bytes)) {
            if (failed[w].empty()) failed[w] = ops[i]->name;
            ++mismatches;
          }
        }
      }
    });
  }
  for (std::thread& t : workers) t.join();
  stop = true;
  allocator.join();
  EXPECT_EQ(mismatches, 0);
  for (int w = 0; w < kWorkers; ++w) EXPECT_EQ(failed[w], "") << "worker " << w << ": first differing operation";
}

class ConcurrencyTest : public ::testing::Test {
 protected:
  void TearDown() override {
    tvxCleanUp();
    tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE);
  }
};

TEST_F(ConcurrencyTest, EveryOperationOnTheSimdTierFromSeveralThreadsMatchesOneThread) {
  ExpectConcurrentRunsMatch(TAVIX_OP_CPU_PERFORMANCE, false, false, 4);
}

TEST_F(ConcurrencyTest, EveryOperationOnTheReferenceTierFromSeveralThreadsMatchesOneThread) {
  ExpectConcurrentRunsMatch(TAVIX_OP_EXT_REFERENCE, false, true, 2);
}

// Without a DSP session tvxMemAlloc serves the heap; with one it serves shared memory the DSP
// reads in place, and the channel to the DSP is shared by every calling thread.
TEST_F(ConcurrencyTest, RemoteCallsFromSeveralThreadsMatchOneThread) {
  tvxtest::HostDsp dsp;
  ExpectConcurrentRunsMatch(TAVIX_OP_EXT_RDSP, true, false, 1);
  ExpectConcurrentRunsMatch(TAVIX_OP_EXT_RDSP, true, true, 1);
}

// MSER starts a thread of its own per call (MSER- beside the caller's MSER+). Several callers,
// each with its own handle, on the SIMD and the reference tier: every run equals a
// single-threaded run of the same image, and the polarity threads share nothing but the source.
TEST_F(ConcurrencyTest, MserCallsWithTheirOwnThreadsFromSeveralThreadsMatchOneThread) {
  constexpr uint32_t w = 96, h = 64;
  std::mt19937 rng(5);
  std::vector<uint8_t> img(w * h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) img[y * w + x] = static_cast<uint8_t>(((x / 9 + y / 7) % 5) * 50 + rng() % 9);
  for (int32_t mode : {int32_t(TAVIX_OP_CPU_PERFORMANCE), int32_t(TAVIX_OP_EXT_REFERENCE)}) {
    tvxSetOperationMode(mode);
    auto run = [&](void* handle, std::vector<uint32_t>& out) {
      out.assign(64 + 2 * 20000 + 1, 0);
      tvxMseru8_v2(handle, img.data(), w, h, 0, 64, 20000, &out[0], &out[1], &out[65]);
    };
    void* single = nullptr;
    ASSERT_EQ(tvxMserInit(w, h, 2, 4, 3000, 0.5f, 0.2f, &single), 1);
    std::vector<uint32_t> want;
    run(single, want);
    tvxMserRelease(single);
    ASSERT_GT(want[0], 0u);
    std::vector<int> same(kWorkers, 0);
    std::vector<std::thread> workers;
    for (int k = 0; k < kWorkers; ++k)
      workers.emplace_back([&, k] {
        void* handle = nullptr;
        if (tvxMserInit(w, h, 2, 4, 3000, 0.5f, 0.2f, &handle) != 1) return;
        for (int rep = 0; rep < 3; ++rep) {
          std::vector<uint32_t> got;
          run(handle, got);
          same[k] += got == want;
        }
        tvxMserRelease(handle);
      });
    for (auto& t : workers) t.join();
    for (int k = 0; k < kWorkers; ++k) EXPECT_EQ(same[k], 3) << "worker " << k;
  }
}

}  // namespace
