// Every entry survives a heap that refuses: kernels whose containers cannot get their storage
// (a phone out of memory, or a size beyond a 32-bit address space) fail the call with the
// entry's failure value and a log line instead of ending the process at the C boundary.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"
#include "samples.inc"

namespace {
std::atomic<bool> g_refuse{false};
}  // namespace

// This executable's allocation functions: every C++ allocation of the library's kernels goes
// through them, so a test can make them fail on demand.
void* operator new(std::size_t n) {
  if (g_refuse.load(std::memory_order_relaxed)) throw std::bad_alloc();
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return operator new(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
  return g_refuse.load(std::memory_order_relaxed) ? nullptr : std::malloc(n ? n : 1);
}
void* operator new[](std::size_t n, const std::nothrow_t& tag) noexcept { return operator new(n, tag); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace {

using tvxtest::g_lines;

constexpr size_t kBufferBytes = 64 * 1024;

struct Buffers {
  std::vector<std::vector<uint8_t>> store;
  TvxSample sample{};
  Buffers(uint32_t width, uint32_t height) {
    store.assign(TVX_SAMPLE_BUFFERS, std::vector<uint8_t>(kBufferBytes));
    for (int i = 0; i < TVX_SAMPLE_BUFFERS; ++i) {
      // Floats read from these bytes stay within [1/4, 4] (see the entry suite).
      for (size_t j = 0; j < kBufferBytes; ++j)
        store[i][j] = static_cast<uint8_t>(j % 4 == 3 ? 0x3E + (j / 4 + i) % 3 : (j * 7 + i * 13) % 61 + 1);
      sample.buf[i] = store[i].data();
    }
    sample.width = width;
    sample.height = height;
  }
};

// The capture itself allocates, so the heap accepts while a line is being recorded.
void CaptureWithHeap(int priority, const char* tag, const char* message) {
  const bool refusing = g_refuse.exchange(false);
  tvxtest::Capture(priority, tag, message);
  g_refuse = refusing;
}

bool LoggedOutOfMemory(const char* name) {
  const std::string expected = std::string("Out of memory at ") + name;
  for (const std::string& line : g_lines)
    if (line.find(expected) != std::string::npos) return true;
  return false;
}

// Runs every sample call on the reference slot and on the SIMD slot with the heap refusing.
// An entry that needed the heap reports it and returns its failure value; every other entry
// completes. The suite fails if no entry reached the failure path, since it then proves nothing.
TEST(OutOfMemory, EveryEntryFailsCleanlyWhenItsContainersCannotAllocate) {
  std::memset(tvxImplTable, 0, sizeof tvxImplTable);
  tvx_set_log_sink(&CaptureWithHeap);
  int refused = 0;
  for (const TvxSampleEntry& e : kTvxSamples) {
    for (int tier = 0; tier < (e.simd ? 2 : 1); ++tier) {
      SCOPED_TRACE(std::string(e.name) + (tier ? " SIMD" : " reference"));
      Buffers b(37, 5);
      void* saved = tvxFuncTable[e.row][1];
      if (tier == 1) tvxFuncTable[e.row][1] = e.simdVariant;
      tvxImplTable[e.row] = static_cast<uint32_t>(tier);
      g_lines.clear();
      g_refuse = true;
      const int64_t result = e.call(b.sample);
      g_refuse = false;
      tvxImplTable[e.row] = 0;
      tvxFuncTable[e.row][1] = saved;
      if (!LoggedOutOfMemory(e.name)) continue;
      ++refused;
      if (e.style == 1) EXPECT_EQ(result, 5);
      if (e.style == 2) EXPECT_EQ(result, e.failValue);
    }
  }
  tvx_set_log_sink(nullptr);
  EXPECT_GT(refused, 20) << "too few entries allocate with the C++ heap for this check to mean anything";
}

}  // namespace
