// Memory services: aligned blocks, the shared-memory hooks, the scratch pool and its
// lifecycle, the time stamp and the assertion logger.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <barrier>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <thread>
#include <vector>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "frame/frame.h"

namespace {

constexpr uint32_t kPoolTag = 0xCDCDCDCDu;
constexpr uint32_t kHeapTag = 0xABABABABu;
constexpr size_t kHeaderBytes = sizeof(uint32_t) + sizeof(void*);  // tag, then back pointer

uint32_t TagOf(const void* buffer) {
  uint32_t tag;
  std::memcpy(&tag, static_cast<const uint8_t*>(buffer) - kHeaderBytes, sizeof tag);
  return tag;
}

void* BackOf(const void* buffer) {
  void* back;
  std::memcpy(&back, static_cast<const uint8_t*>(buffer) - sizeof back, sizeof back);
  return back;
}

bool IsAligned(const void* pointer, uintptr_t alignment) {
  return reinterpret_cast<uintptr_t>(pointer) % alignment == 0;
}

// Heap blocks can be checked for their true extent where the C library tells it.
void ExpectHeapBlockHolds(const void* raw, size_t bytes) {
#if defined(__GLIBC__)
  EXPECT_GE(malloc_usable_size(const_cast<void*>(raw)), bytes);
#endif
}

// The pool is created and torn down at most once per process, so every test that depends on
// its state runs in a forked child whose pool has never been created (the parent never
// initialises it). Forking rather than re-executing the binary keeps this usable under
// qemu-arm, where the binary cannot exec itself.
//
// Forking a dynamically linked armhf binary crashes the child under qemu-arm 7.2; that is
// reported once, plainly, instead of as a failure inside every child.
bool ForkWorks() {
  static const bool works = [] {
    pid_t pid = fork();
    if (pid == 0) _exit(0);
    int status = 0;
    return pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }();
  return works;
}

// GTest prints nothing inside a death-test child, so the child writes its failures to stderr,
// which the parent shows when the exit code is not 0. Under the sanitizers the child's exit
// also runs the leak check.
[[noreturn]] void RunChild(void (*body)()) {
  body();
  const ::testing::TestResult* result = ::testing::UnitTest::GetInstance()->current_test_info()->result();
  for (int i = 0; i < result->total_part_count(); ++i) {
    const ::testing::TestPartResult& part = result->GetTestPartResult(i);
    if (part.failed()) std::fprintf(stderr, "%s:%d: %s\n", part.file_name(), part.line_number(), part.message());
  }
  std::fflush(nullptr);
  std::exit(::testing::Test::HasFailure() ? 1 : 0);
}
#define EXPECT_IN_FRESH_PROCESS(body)                                                 \
  do {                                                                                \
    ASSERT_TRUE(ForkWorks()) << "fork() fails here; under qemu-arm link tests statically"; \
    EXPECT_EXIT(RunChild(body), ::testing::ExitedWithCode(0), "");                    \
  } while (0)

// ---- aligned blocks and the shared-memory hooks ------------------------------------------------

TEST(MemAlign, BlockFollowsItsDistanceByte) {
  for (uint32_t alignment = 1; alignment <= 128; alignment *= 2) {
    for (uint32_t size : {0u, 1u, 100u, 4097u}) {
      SCOPED_TRACE(testing::Message() << "alignment " << alignment << " size " << size);
      uint8_t* block = static_cast<uint8_t*>(tvxMemAlign(size, alignment));
      ASSERT_NE(block, nullptr);
      EXPECT_TRUE(IsAligned(block, alignment));
      uint32_t distance = block[-1];
      EXPECT_GE(distance, 2u);
      EXPECT_LE(distance, alignment + 1);
      ExpectHeapBlockHolds(block - distance, size + alignment + 1);
      std::memset(block, 0x5A, size);
      tvxMemAlignFree(block);
    }
  }
}

TEST(MemAlign, OddAlignmentsAreOneAndUnrecordableOnesRefused) {
  for (uint32_t alignment : {0u, 12u, 100u}) {
    uint8_t* block = static_cast<uint8_t*>(tvxMemAlign(64, alignment));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[-1], 2) << "alignment " << alignment;
    tvxMemAlignFree(block);
  }
  // The distance byte cannot record the offsets an alignment of 256 may need.
  EXPECT_EQ(tvxMemAlign(64, 256), nullptr);
  tvxMemAlignFree(nullptr);
}

// Fake shared allocator: one block inside a static arena. The byte before the block would send
// an aligned-block free to a non-heap address, so a wrong free path crashes the test.
alignas(64) uint8_t g_arena[256];
uint8_t* const g_sharedBlock = g_arena + 64;
bool g_sharedHasRoom = true;
int g_sharedAllocs = 0;
int g_sharedFrees = 0;

void* FakeSharedAlloc(uint32_t, uint32_t) {
  ++g_sharedAllocs;
  return g_sharedHasRoom ? g_sharedBlock : nullptr;
}
int32_t FakeSharedFree(void* pointer) {
  ++g_sharedFrees;
  return pointer == g_sharedBlock ? 0 : 1;
}

class MemAllocTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_arena[63] = 1;
    g_sharedHasRoom = true;
    g_sharedAllocs = g_sharedFrees = 0;
  }
  void TearDown() override {
    tvxSharedMemAlloc_ = nullptr;
    tvxSharedMemFree_ = nullptr;
  }
  static void InstallHooks() {
    tvxSharedMemAlloc_ = &FakeSharedAlloc;
    tvxSharedMemFree_ = &FakeSharedFree;
  }
};

TEST_F(MemAllocTest, SharedBlockGoesBackToTheSharedAllocator) {
  InstallHooks();
  void* block = tvxMemAlloc(64, 16);
  EXPECT_EQ(block, g_sharedBlock);
  tvxMemFree(block);
  EXPECT_EQ(g_sharedAllocs, 1);
  EXPECT_EQ(g_sharedFrees, 1);
  tvxMemFree(nullptr);
  EXPECT_EQ(g_sharedFrees, 1);
}

TEST_F(MemAllocTest, FallsBackToAlignedBlocks) {
  InstallHooks();
  g_sharedHasRoom = false;
  uint8_t* block = static_cast<uint8_t*>(tvxMemAlloc(64, 32));
  ASSERT_NE(block, nullptr);
  EXPECT_NE(block, g_sharedBlock);
  EXPECT_TRUE(IsAligned(block, 32));
  ExpectHeapBlockHolds(block - block[-1], 64 + 32 + 1);
  tvxMemFree(block);  // unknown to the shared allocator: freed as an aligned block
  EXPECT_EQ(g_sharedAllocs, 1);
  EXPECT_EQ(g_sharedFrees, 1);

  // Without its free hook the shared allocator is not used at all.
  tvxSharedMemFree_ = nullptr;
  g_sharedHasRoom = true;
  block = static_cast<uint8_t*>(tvxMemAlloc(64, 16));
  EXPECT_NE(block, g_sharedBlock);
  EXPECT_EQ(g_sharedAllocs, 1);
  tvxMemFree(block);
}

// ---- scratch pool ------------------------------------------------------------------------------

TEST(ScratchRelease, IgnoresBuffersWithoutAKnownTag) {
  EXPECT_EQ(tvxReleaseScratchBuffer_, &local_tvxReleaseScratchBuffer);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(nullptr), 0);
  alignas(16) uint8_t bytes[64] = {};
  uint8_t* buffer = bytes + 32;
  std::memset(buffer, 0x77, 32);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(buffer), 0);
  // A pool tag whose back pointer is no slot is ignored as well.
  std::memcpy(buffer - kHeaderBytes, &kPoolTag, sizeof kPoolTag);
  void* notASlot = bytes;
  std::memcpy(buffer - sizeof notASlot, &notASlot, sizeof notASlot);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(buffer), 0);
  for (int i = 0; i < 32; ++i) ASSERT_EQ(buffer[i], 0x77);
}

void InactivePoolServesTaggedHeapBlocks() {
  EXPECT_EQ(tvxMemDeInit(), 0);  // without tvxMemInit: changes nothing

  uint8_t* aligned = static_cast<uint8_t*>(local_tvxGetScratchBufferAligned(100, 32));
  ASSERT_NE(aligned, nullptr);
  EXPECT_EQ(TagOf(aligned), kHeapTag);
  uint8_t* raw = static_cast<uint8_t*>(BackOf(aligned));
  EXPECT_TRUE(IsAligned(aligned, 32));
  EXPECT_GE(aligned - raw, static_cast<ptrdiff_t>(kHeaderBytes));
  EXPECT_LT(aligned - raw, static_cast<ptrdiff_t>(kHeaderBytes + 32));
  ExpectHeapBlockHolds(raw, 100 + 31 + kHeaderBytes);
  std::memset(aligned, 1, 100);

  // An alignment that is not a power of two is served with alignment 1: right after the header.
  uint8_t* twelve = static_cast<uint8_t*>(local_tvxGetScratchBufferAligned(100, 12));
  ASSERT_NE(twelve, nullptr);
  EXPECT_EQ(twelve - static_cast<uint8_t*>(BackOf(twelve)), static_cast<ptrdiff_t>(kHeaderBytes));
  uint8_t* plain = static_cast<uint8_t*>(local_tvxGetScratchBufferUnaligned(50));
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(TagOf(plain), kHeapTag);
  EXPECT_EQ(plain - static_cast<uint8_t*>(BackOf(plain)), static_cast<ptrdiff_t>(kHeaderBytes));

  for (void* buffer : {aligned, twelve, plain}) EXPECT_EQ(local_tvxReleaseScratchBuffer(buffer), 1);

  // The earlier tvxMemDeInit must not have spent the pool's one creation.
  EXPECT_EQ(tvxMemInit(), 1);
  void* pooled = local_tvxGetScratchBufferUnaligned(16);
  ASSERT_NE(pooled, nullptr);
  EXPECT_EQ(TagOf(pooled), kPoolTag);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(pooled), 1);
}
TEST(ScratchPool, InactivePoolServesTaggedHeapBlocks) {
  EXPECT_IN_FRESH_PROCESS(InactivePoolServesTaggedHeapBlocks);
}

void SlotKeepsAndRegrowsItsMemory() {
  ASSERT_EQ(tvxMemInit(), 1);
  uint8_t* first = static_cast<uint8_t*>(local_tvxGetScratchBufferAligned(1000, 16));
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(TagOf(first), kPoolTag);
  void* slot = BackOf(first);
  EXPECT_TRUE(IsAligned(first, 16));
  std::memset(first, 1, 1000);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(first), 1);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(first), 0);  // second release is ignored

  // Smaller requests reuse the slot's memory untouched.
  uint8_t* smaller = static_cast<uint8_t*>(local_tvxGetScratchBufferAligned(500, 16));
  EXPECT_EQ(smaller, first);
  EXPECT_EQ(smaller[499], 1);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(smaller), 1);
  EXPECT_EQ(local_tvxGetScratchBufferUnaligned(1000), first);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(first), 1);

  // A larger one replaces the allocation; the new block exists before the old one is freed.
  uint8_t* larger = static_cast<uint8_t*>(local_tvxGetScratchBufferAligned(3000, 1));
  ASSERT_NE(larger, nullptr);
  EXPECT_NE(larger, first);
  EXPECT_EQ(BackOf(larger), slot);
  std::memset(larger, 2, 3000);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(larger), 1);

  // A stricter alignment than the buffer has moves it; if that took a new block, the slot now
  // serves only 100 bytes and must grow again for 3000 (the sanitizers catch an overrun).
  uint8_t* strict = static_cast<uint8_t*>(local_tvxGetScratchBufferAligned(100, 64));
  ASSERT_NE(strict, nullptr);
  EXPECT_TRUE(IsAligned(strict, 64));
  EXPECT_EQ(TagOf(strict), kPoolTag);
  std::memset(strict, 3, 100);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(strict), 1);
  uint8_t* again = static_cast<uint8_t*>(local_tvxGetScratchBufferAligned(3000, 1));
  ASSERT_NE(again, nullptr);
  std::memset(again, 4, 3000);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(again), 1);
}
TEST(ScratchPool, SlotKeepsAndRegrowsItsMemory) { EXPECT_IN_FRESH_PROCESS(SlotKeepsAndRegrowsItsMemory); }

void ThirtyTwoBuffersFillThePool() {
  ASSERT_EQ(tvxMemInit(), 1);
  std::vector<uint8_t*> held;
  std::set<void*> slots;
  for (int i = 0; i < 32; ++i) {
    void* buffer = i % 2 ? local_tvxGetScratchBufferUnaligned(256) : local_tvxGetScratchBufferAligned(256, 32);
    ASSERT_NE(buffer, nullptr) << "request " << i;
    held.push_back(static_cast<uint8_t*>(buffer));
    slots.insert(BackOf(buffer));
    std::memset(buffer, i, 256);
  }
  EXPECT_EQ(slots.size(), 32u);
  EXPECT_EQ(local_tvxGetScratchBufferAligned(16, 16), nullptr);
  EXPECT_EQ(local_tvxGetScratchBufferUnaligned(16), nullptr);
  EXPECT_EQ(tvxMemInitPreAlloc(64), 0);  // no slot for the pre-allocation either
  for (int i = 0; i < 32; ++i) {
    for (int k = 0; k < 256; ++k) ASSERT_EQ(held[i][k], i) << "buffer " << i << " overwritten";
  }

  // A released slot is the only one free, and it keeps its memory.
  EXPECT_EQ(local_tvxReleaseScratchBuffer(held[5]), 1);
  EXPECT_EQ(local_tvxGetScratchBufferUnaligned(200), held[5]);
  for (uint8_t* buffer : held) EXPECT_EQ(local_tvxReleaseScratchBuffer(buffer), 1);
}
TEST(ScratchPool, ThirtyTwoBuffersFillThePool) { EXPECT_IN_FRESH_PROCESS(ThirtyTwoBuffersFillThePool); }

// Every thread holds its buffer until all have requested, so each try-lock scan sees the
// others' slots taken; with one thread more than slots exactly one request finds none.
void RequestConcurrently(int threads, std::vector<uint8_t*>& results) {
  results.assign(threads, nullptr);
  std::barrier allRequested(threads);
  std::barrier allChecked(threads);
  std::vector<int> overwritten(threads, 0);
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&, t] {
      uint32_t size = 4096 + t;
      void* buffer = t % 2 ? tvxGetScratchBufferUnaligned_(size) : tvxGetScratchBufferAligned_(size, 16);
      uint8_t* bytes = static_cast<uint8_t*>(buffer);
      if (bytes != nullptr) std::memset(bytes, t, size);
      allRequested.arrive_and_wait();
      if (bytes != nullptr) {
        for (uint32_t k = 0; k < size; ++k) overwritten[t] += bytes[k] != t;
      }
      allChecked.arrive_and_wait();
      if (bytes != nullptr) tvxReleaseScratchBuffer_(bytes);  // on the requesting thread
      results[t] = bytes;
    });
  }
  for (std::thread& worker : workers) worker.join();
  for (int t = 0; t < threads; ++t) EXPECT_EQ(overwritten[t], 0) << "thread " << t;
}

void ThreadsTakeDistinctSlots() {
  ASSERT_EQ(tvxMemInit(), 1);
  std::vector<uint8_t*> results;
  RequestConcurrently(33, results);
  std::set<uint8_t*> distinct(results.begin(), results.end());
  EXPECT_EQ(std::count(results.begin(), results.end(), nullptr), 1);
  EXPECT_EQ(distinct.size(), 33u);  // 32 distinct buffers and the one null

  // Every thread released its slot: a second round finds all 32 free.
  RequestConcurrently(32, results);
  EXPECT_EQ(std::count(results.begin(), results.end(), nullptr), 0);
  EXPECT_EQ(std::set<uint8_t*>(results.begin(), results.end()).size(), 32u);
}
TEST(ScratchPool, ThreadsTakeDistinctSlots) { EXPECT_IN_FRESH_PROCESS(ThreadsTakeDistinctSlots); }

void PreAllocationFillsAZeroedSlot() {
  EXPECT_EQ(tvxMemInitPreAlloc(0), 1);
  uint8_t* buffer = static_cast<uint8_t*>(local_tvxGetScratchBufferAligned(4096, 16));
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(TagOf(buffer), kPoolTag);
  std::memset(buffer, 0x5A, 4096);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(buffer), 1);

  EXPECT_EQ(tvxMemInitPreAlloc(4096), 1);
  uint8_t* reused = static_cast<uint8_t*>(local_tvxGetScratchBufferAligned(4096, 16));
  ASSERT_EQ(reused, buffer);
  EXPECT_EQ(std::count(reused, reused + 4096, 0), 4096);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(reused), 1);

  // The pre-allocation stops at 7680 x 4320 bytes: one byte more needs a new block.
  constexpr uint32_t kLimit = 33177600;
  EXPECT_EQ(tvxMemInitPreAlloc(40000000), 1);
  uint8_t* largest = static_cast<uint8_t*>(local_tvxGetScratchBufferAligned(kLimit, 16));
  ASSERT_NE(largest, nullptr);
  EXPECT_EQ(largest[kLimit - 1], 0);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(largest), 1);
  uint8_t* beyond = static_cast<uint8_t*>(local_tvxGetScratchBufferAligned(kLimit + 1, 16));
  ASSERT_NE(beyond, nullptr);
  EXPECT_NE(beyond, largest);
  EXPECT_EQ(local_tvxReleaseScratchBuffer(beyond), 1);
}
TEST(ScratchPool, PreAllocationFillsAZeroedSlot) { EXPECT_IN_FRESH_PROCESS(PreAllocationFillsAZeroedSlot); }

// ---- lifecycle ---------------------------------------------------------------------------------

bool PoolIsActive() {
  void* buffer = local_tvxGetScratchBufferUnaligned(8);
  bool active = buffer != nullptr && TagOf(buffer) == kPoolTag;
  local_tvxReleaseScratchBuffer(buffer);
  return active;
}

// A tvxMemDeInit that does not tear down clears the init flag, so the next one does nothing:
// after two tvxMemInit calls the count never returns to zero.
void DeInitAfterSecondInitKeepsThePool() {
  EXPECT_EQ(tvxMemInit(), 1);
  EXPECT_EQ(tvxMemInit(), 1);
  EXPECT_EQ(tvxMemDeInit(), 0);
  EXPECT_EQ(tvxMemDeInit(), 0);
  EXPECT_TRUE(PoolIsActive());
  EXPECT_EQ(tvxMemInit(), 1);
  EXPECT_EQ(tvxMemDeInit(), 0);
  EXPECT_EQ(tvxMemDeInit(), 0);
  EXPECT_TRUE(PoolIsActive());
}
TEST(MemLifecycle, DeInitAfterSecondInitKeepsThePool) {
  EXPECT_IN_FRESH_PROCESS(DeInitAfterSecondInitKeepsThePool);
}

void TeardownIsForGood() {
  EXPECT_EQ(tvxMemInit(), 1);
  // Give a few slots memory; teardown must free it (the leak check sees it otherwise).
  std::vector<void*> held;
  for (uint32_t size : {100u, 5000u, 70000u}) held.push_back(local_tvxGetScratchBufferAligned(size, 16));
  for (void* buffer : held) EXPECT_EQ(local_tvxReleaseScratchBuffer(buffer), 1);
  EXPECT_TRUE(PoolIsActive());

  EXPECT_EQ(tvxMemDeInit(), 0);
  EXPECT_FALSE(PoolIsActive());
  EXPECT_EQ(tvxMemInit(), 1);
  EXPECT_EQ(tvxMemInitPreAlloc(1000), 1);
  EXPECT_FALSE(PoolIsActive());
  std::vector<void*> many;
  for (int i = 0; i < 40; ++i) many.push_back(local_tvxGetScratchBufferAligned(64, 16));
  EXPECT_EQ(std::count(many.begin(), many.end(), nullptr), 0);
  for (void* buffer : many) {
    EXPECT_EQ(TagOf(buffer), kHeapTag);
    EXPECT_EQ(local_tvxReleaseScratchBuffer(buffer), 1);
  }
}
TEST(MemLifecycle, TeardownIsForGood) { EXPECT_IN_FRESH_PROCESS(TeardownIsForGood); }

// ---- time stamp and assertion logger -----------------------------------------------------------

TEST(GetTime, MicrosecondsOfTheWallClock) {
  int64_t before = static_cast<int64_t>(std::time(nullptr));
  int64_t stamp = tvxGetTime();
  int64_t after = static_cast<int64_t>(std::time(nullptr));
  EXPECT_GE(stamp, before * 1000000);
  EXPECT_LT(stamp, (after + 1) * 1000000);
}

struct LoggedLine {
  int priority;
  std::string tag, message;
};
std::vector<LoggedLine> g_logged;
void CaptureLine(int priority, const char* tag, const char* message) { g_logged.push_back({priority, tag, message}); }

class LogAssertTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_logged.clear();
    tvx_set_log_sink(&CaptureLine);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
};

TEST_F(LogAssertTest, PrefixesLineAndTagsWithFileName) {
  EXPECT_EQ(tvxLogAssert("src/cpu/filter.cc", 42, TVX_LOG_WARN, "bad %s %d", "x", 7), 7);
  EXPECT_EQ(tvxLogAssert("plain.cc", 0, TVX_LOG_ERROR, "%s", "100%"), 4);
  EXPECT_EQ(tvxLogAssert("/a/b/", 123456, TVX_LOG_INFO, "end"), 3);
  ASSERT_EQ(g_logged.size(), 3u);
  EXPECT_EQ(g_logged[0].priority, TVX_LOG_WARN);
  EXPECT_EQ(g_logged[0].tag, "filter.cc");
  EXPECT_EQ(g_logged[0].message, "  42| bad x 7");
  EXPECT_EQ(g_logged[1].priority, TVX_LOG_ERROR);
  EXPECT_EQ(g_logged[1].tag, "plain.cc");
  EXPECT_EQ(g_logged[1].message, "100%");
  EXPECT_EQ(g_logged[2].tag, "");
  EXPECT_EQ(g_logged[2].message, "123456| end");
}

TEST_F(LogAssertTest, TruncatesMessageAndTagButReportsFullLength) {
  std::string longName = "dir/" + std::string(200, 'f');
  std::string longText(600, 'm');
  EXPECT_EQ(tvxLogAssert(longName.c_str(), 7, TVX_LOG_ERROR, "%s", longText.c_str()), 600);
  ASSERT_EQ(g_logged.size(), 1u);
  EXPECT_EQ(g_logged[0].tag, std::string(127, 'f'));
  EXPECT_EQ(g_logged[0].message, "   7| " + std::string(511 - 6, 'm'));
}

}  // namespace
