// Shared-memory allocator: refused requests, page-rounded writable blocks, the 128-record
// table, registration with the remote-call layer, the tvxMemAlloc hooks and descriptor
// accounting (every block holds two descriptors until it is released).
#include <gtest/gtest.h>
#include <dirent.h>
#include <fcntl.h>

#include <cstring>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"
#include "remote/shared_mem.h"

namespace {

using tvxtest::g_lines;

int OpenDescriptors() {
  DIR* dir = opendir("/proc/self/fd");
  if (dir == nullptr) return -1;
  int count = 0;
  while (readdir(dir) != nullptr) ++count;
  closedir(dir);
  return count;
}

bool PageAligned(const void* p) { return reinterpret_cast<uintptr_t>(p) % 4096 == 0; }

struct Registration {
  void* buffer;
  int32_t length, fd;
};
std::vector<Registration> g_registrations;
void RecordRegistration(void* buffer, int32_t length, int32_t fd) { g_registrations.push_back({buffer, length, fd}); }

class SharedMemTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    g_registrations.clear();
    tvx_set_log_sink(&tvxtest::Capture);
    ASSERT_EQ(tvxInitSharedMem(TVX_HW_DSP), 0);
    baseline_ = OpenDescriptors();
  }
  void TearDown() override {
    tvxDeInitSharedMem();
    tvx_set_register_lookup_for_test(nullptr);
    tvx_set_log_sink(nullptr);
    EXPECT_EQ(tvx_shared_mem_records_in_use(), 0u);
    EXPECT_EQ(OpenDescriptors(), baseline_) << "descriptors leaked";
  }
  int baseline_ = 0;
};

TEST_F(SharedMemTest, RefusedRequestsOpenNoDescriptor) {
  EXPECT_EQ(tvxSharedMemAllocQ(4096, 8192), nullptr);
  EXPECT_EQ(tvxSharedMemAllocQ(100, 4097), nullptr);
  EXPECT_EQ(tvxSharedMemAllocQ(0, 16), nullptr);
  EXPECT_EQ(tvxSharedMemAllocQ(0xFFFFFFFFu, 16), nullptr) << "page rounding must not wrap";
  EXPECT_EQ(OpenDescriptors(), baseline_);
  EXPECT_TRUE(g_lines.empty());

  void* block = tvxSharedMemAllocQ(1, 4096);  // 4096 is still accepted
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(tvxSharedMemFreeQ(block), 0);
}

TEST_F(SharedMemTest, BlocksArePageRoundedAlignedWritableAndHoldTwoDescriptors) {
  for (uint32_t size : {1u, 4095u, 4096u, 4097u, 10000u}) {
    auto* block = static_cast<uint8_t*>(tvxSharedMemAllocQ(size, 64));
    ASSERT_NE(block, nullptr) << size;
    EXPECT_TRUE(PageAligned(block));
    EXPECT_EQ(OpenDescriptors(), baseline_ + 2);
    const size_t length = (size + 4095) / 4096 * 4096;
    memset(block, 0x5A, length);  // the whole rounded length is mapped
    EXPECT_EQ(block[length - 1], 0x5A);
    EXPECT_EQ(tvxSharedMemFreeQ(block), 0);
    EXPECT_EQ(OpenDescriptors(), baseline_);
  }
}

TEST_F(SharedMemTest, The129thBlockIsReleasedAgainAndRefused) {
  std::vector<void*> blocks;
  for (int i = 0; i < 128; ++i) {
    blocks.push_back(tvxSharedMemAllocQ(4096, 16));
    ASSERT_NE(blocks.back(), nullptr) << i;
  }
  const int full = OpenDescriptors();
  EXPECT_EQ(tvxSharedMemAllocQ(4096, 16), nullptr);
  EXPECT_EQ(OpenDescriptors(), full);
  EXPECT_EQ(tvx_shared_mem_records_in_use(), 128u);
  for (void* block : blocks) EXPECT_EQ(tvxSharedMemFreeQ(block), 0);
}

TEST_F(SharedMemTest, FreeingAnUnknownAddressChangesNothing) {
  auto* block = static_cast<uint8_t*>(tvxSharedMemAllocQ(4096, 16));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(tvxSharedMemFreeQ(nullptr), -1);
  EXPECT_EQ(tvxSharedMemFreeQ(block + 1), -1);
  EXPECT_EQ(tvx_shared_mem_records_in_use(), 1u);
  block[0] = 1;  // still mapped
  EXPECT_EQ(tvxSharedMemFreeQ(block), 0);
  EXPECT_EQ(tvxSharedMemFreeQ(block), -1) << "a second release is refused";
}

TEST_F(SharedMemTest, BlocksAreRegisteredWhileHandedOut) {
  tvx_set_register_lookup_for_test([] { return &RecordRegistration; });
  void* block = tvxSharedMemAllocQ(5000, 16);
  ASSERT_NE(block, nullptr);
  ASSERT_EQ(g_registrations.size(), 1u);
  const Registration registered = g_registrations[0];
  EXPECT_EQ(registered.buffer, block);
  EXPECT_EQ(registered.length, 8192);
  EXPECT_NE(fcntl(registered.fd, F_GETFD), -1) << "the registered descriptor is open";
  EXPECT_EQ(tvxSharedMemFreeQ(block), 0);
  ASSERT_EQ(g_registrations.size(), 2u);
  EXPECT_EQ(g_registrations[1].buffer, block);
  EXPECT_EQ(g_registrations[1].length, 8192);
  EXPECT_EQ(g_registrations[1].fd, -1);

  // Without the remote-call layer nothing is handed out, and a release still closes everything.
  block = tvxSharedMemAllocQ(4096, 16);
  tvx_set_register_lookup_for_test([]() -> tavixdsp_register_buf_fn { return nullptr; });
  EXPECT_EQ(tvxSharedMemAllocQ(4096, 16), nullptr);
  EXPECT_EQ(OpenDescriptors(), baseline_ + 2);
  EXPECT_EQ(tvxSharedMemFreeQ(block), 0);
  EXPECT_EQ(g_lines, (std::vector<std::string>{"tavix_lib_log|mem_alloc_ion : Failed to register buffer with rpc -1\n",
                                               "tavix_lib_log|register_buf to unregister ion buffer failed\n"}));
}

TEST_F(SharedMemTest, MemAllocUsesTheHooksOnlyWhileInstalled) {
  EXPECT_EQ(tvxSharedMemAlloc_, &tvxSharedMemAllocQ);
  void* shared = tvxMemAlloc(100, 16);
  ASSERT_NE(shared, nullptr);
  EXPECT_TRUE(PageAligned(shared));
  EXPECT_EQ(tvx_shared_mem_records_in_use(), 1u);
  void* heap = tvxMemAlign(100, 16);  // unknown to the table: freed as a heap block
  void* empty = tvxMemAlloc(0, 16);   // refused by the table: a heap block
  ASSERT_NE(empty, nullptr);
  tvxMemFree(heap);
  tvxMemFree(empty);
  EXPECT_EQ(tvx_shared_mem_records_in_use(), 1u);
  tvxMemFree(shared);
  EXPECT_EQ(tvx_shared_mem_records_in_use(), 0u);

  // A block outlives a de-initialisation and can still be released after the next one.
  shared = tvxMemAlloc(100, 16);
  EXPECT_EQ(tvxDeInitSharedMem(), 0);
  EXPECT_EQ(tvxSharedMemFree_, nullptr);
  EXPECT_EQ(tvxSharedMemAllocQ(100, 16), nullptr) << "no allocator until initialised again";
  EXPECT_EQ(tvxInitSharedMem(TVX_HW_DSP | TVX_HW_GPU), 0);
  EXPECT_EQ(tvxSharedMemAlloc_, nullptr) << "not with a GPU";
  EXPECT_EQ(tvxInitSharedMem(TVX_HW_DSP), 0);
  tvxMemFree(shared);
}

}  // namespace
