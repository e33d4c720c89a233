// Shared-memory allocator for the DSP: every block is its own DMA buffer from the ION heap,
// mapped read-write into the process, opened for CPU access and registered with the
// remote-call layer; a table of 128 records remembers the blocks handed out.
#include "remote/shared_mem.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <mutex>

#include "frame/frame.h"
#include "platform/platform.h"

namespace {

constexpr uint32_t kRecordCount = 128;
constexpr uint64_t kPageBytes = 4096;
constexpr uint32_t kIonHeapMask = 0x2000000;  // heap 25
constexpr uint32_t kIonFlagCached = 1;
constexpr uint64_t kSyncStartReadWrite = 3;  // DMA_BUF_SYNC_START | READ | WRITE
constexpr uint64_t kSyncEndReadWrite = 7;    // DMA_BUF_SYNC_END | READ | WRITE

// One block handed out. On 32-bit ARM these are six 32-bit words; on 64-bit hosts the two
// addresses are pointer-sized, in the same order.
struct SharedBlock {
  uintptr_t userAddress;  // 0 marks a free record
  int32_t ionDevice;
  void* mappedAddress;
  uint32_t reserved;  // passed through to mem_free_ion
  uint32_t size;      // requested size in bytes
  int32_t dmaFd;
};

// The table lives for the whole process and starts zeroed. A release clears its own record,
// so the table never needs zeroing again: a de-initialisation followed by a new
// initialisation keeps the records of blocks still handed out, which can then still be
// released instead of leaking their mappings and descriptors.
SharedBlock g_blocks[kRecordCount];
std::mutex g_blocksMutex;  // guards g_blocks; never destroyed, so late releases stay safe
std::atomic<bool> g_initialised{false};

std::atomic<TvxRegisterLookup> g_registerLookup{&tvx_platform_register_buf};

tavixdsp_register_buf_fn RegisterFunction() { return g_registerLookup.load()(); }

uint64_t PageRounded(uint64_t size) { return (size + kPageBytes - 1) & ~(kPageBytes - 1); }

// Gives back a block that was mapped but never handed out.
void DiscardMapping(int device, int dmaFd, void* mapped, size_t length) {
  munmap(mapped, length);
  close(dmaFd);
  tvx_platform_ion_close(device);
}

}  // namespace

uint32_t tvx_shared_mem_records_in_use() {
  std::lock_guard<std::mutex> lock(g_blocksMutex);
  uint32_t used = 0;
  for (const SharedBlock& block : g_blocks) used += block.userAddress != 0;
  return used;
}

void tvx_set_register_lookup_for_test(TvxRegisterLookup lookup) {
  g_registerLookup.store(lookup != nullptr ? lookup : &tvx_platform_register_buf);
}

extern "C" {

int32_t tvxInitSharedMem_Rdsp(void) {
  g_initialised.store(true);
  return 0;
}

int32_t tvxDeInitSharedMem_Rdsp(void) {
  g_initialised.store(false);
  return 0;
}

void* tvxSharedMemAllocQ(uint32_t size, uint32_t alignment) {
  // The registration call takes a 32-bit length, so a block must fit one. Without an
  // initialised table there is no allocator to serve the request.
  const uint64_t rounded = PageRounded(size);
  if (size == 0 || alignment > kPageBytes || rounded > INT32_MAX || !g_initialised.load()) return nullptr;

  const int device = tvx_platform_ion_open();
  if (device < 0) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "mem_alloc_ion : Open ion device failed\n");
    return nullptr;
  }
  const size_t length = static_cast<size_t>(rounded);

  int dmaFd = -1;
  if (tvx_platform_ion_alloc_fd(device, length, 0, kIonHeapMask, kIonFlagCached, &dmaFd) != 0) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "mem_alloc_ion : ION alloc length %zu\n", length);
    tvx_platform_ion_close(device);
    return nullptr;
  }

  void* mapped = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, dmaFd, 0);
  if (mapped == MAP_FAILED) {
    const int error = errno;
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "mem_alloc_ion : mmap call failed %d\n", error);
    close(dmaFd);
    tvx_platform_ion_close(device);
    return nullptr;
  }

  // A failed start of CPU access also unmaps: the mapping would otherwise outlive both of
  // its descriptors with nobody left to release it.
  if (tvx_platform_dma_buf_sync(dmaFd, kSyncStartReadWrite) != 0) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "mem_alloc_ion : failed to start DMA_BUF_IOCTL_SYNC\n");
    DiscardMapping(device, dmaFd, mapped, length);
    return nullptr;
  }

  const tavixdsp_register_buf_fn registerBuffer = RegisterFunction();
  if (registerBuffer == nullptr) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "mem_alloc_ion : Failed to register buffer with rpc %d\n", -1);
    DiscardMapping(device, dmaFd, mapped, length);
    return nullptr;
  }
  registerBuffer(mapped, static_cast<int32_t>(length), dmaFd);

  // Mappings start on a page, so this refusal is a guard only; the refused block is released
  // rather than kept, since nothing would ever release it later.
  if ((reinterpret_cast<uintptr_t>(mapped) & (kPageBytes - 1)) != 0) {
    mem_free_ion(device, mapped, 0, size, dmaFd);
    return nullptr;
  }

  {
    std::lock_guard<std::mutex> lock(g_blocksMutex);
    for (SharedBlock& block : g_blocks) {
      if (block.userAddress != 0) continue;
      block = {reinterpret_cast<uintptr_t>(mapped), device, mapped, 0, size, dmaFd};
      return mapped;
    }
  }
  mem_free_ion(device, mapped, 0, size, dmaFd);  // all records taken
  return nullptr;
}

int32_t tvxSharedMemFreeQ(void* address) {
  if (address == nullptr) return -1;
  SharedBlock found{};
  {
    std::lock_guard<std::mutex> lock(g_blocksMutex);
    SharedBlock* record = nullptr;
    for (SharedBlock& block : g_blocks) {
      if (block.userAddress == reinterpret_cast<uintptr_t>(address)) {
        record = &block;
        break;
      }
    }
    if (record == nullptr) return -1;
    found = *record;
    record->userAddress = 0;
  }
  mem_free_ion(found.ionDevice, found.mappedAddress, found.reserved, found.size, found.dmaFd);
  return 0;
}

int32_t mem_free_ion(int32_t ionDevice, void* address, uint32_t reserved, uint32_t size, int32_t dmaFd) {
  const size_t length = static_cast<size_t>(PageRounded(size));
  if (const tavixdsp_register_buf_fn registerBuffer = RegisterFunction()) {
    registerBuffer(address, static_cast<int32_t>(length), -1);
  } else {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "%s", "register_buf to unregister ion buffer failed\n");
  }
  if (tvx_platform_dma_buf_sync(dmaFd, kSyncEndReadWrite) != 0) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "mem_free_ion : failed to end DMA_BUF_IOCTL_SYNC\n");
  }
  munmap(address, length);
  close(dmaFd);
  tvx_platform_ion_close(ionDevice);
  return 0;
}

TVX_API int32_t tvxInitSharedMem(uint32_t hardwareMask) {
  if (!(hardwareMask & TVX_HW_DSP) || (hardwareMask & TVX_HW_GPU)) return 0;
  if (tvxInitSharedMem_Rdsp() != 0) return -1;
  tvxSharedMemAlloc_ = &tvxSharedMemAllocQ;
  tvxSharedMemAllocR_ = &tvxSharedMemAllocQ;
  tvxSharedMemFree_ = &tvxSharedMemFreeQ;
  tvxSharedMemFreeR_ = &tvxSharedMemFreeQ;
  return 0;
}

TVX_API int32_t tvxDeInitSharedMem(void) {
  if (tvxSharedMemAlloc_ == &tvxSharedMemAllocQ) tvxDeInitSharedMem_Rdsp();
  tvxSharedMemAlloc_ = nullptr;
  tvxSharedMemAllocR_ = nullptr;
  tvxSharedMemFree_ = nullptr;
  tvxSharedMemFreeR_ = nullptr;
  return 0;
}

}  // extern "C"
