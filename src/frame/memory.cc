// Memory services: aligned heap blocks, blocks that prefer DSP-visible shared memory, the
// scratch pool that operations draw temporary buffers from, the library's time stamp and
// its formatted assertion logger.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "frame/frame.h"
#include "remote/shared_mem.h"

extern "C" {
// Shared-memory allocator hooks; the DSP shared-memory layer installs them.
void* (*tvxSharedMemAlloc_)(uint32_t size, uint32_t alignment) = nullptr;
void* (*tvxSharedMemAllocR_)(uint32_t size, uint32_t alignment) = nullptr;
int32_t (*tvxSharedMemFree_)(void* pointer) = nullptr;
int32_t (*tvxSharedMemFreeR_)(void* pointer) = nullptr;

void* (*tvxGetScratchBufferAligned_)(uint32_t size, uint32_t alignment) = &local_tvxGetScratchBufferAligned;
void* (*tvxGetScratchBufferUnaligned_)(uint32_t size) = &local_tvxGetScratchBufferUnaligned;
int32_t (*tvxReleaseScratchBuffer_)(void* buffer) = &local_tvxReleaseScratchBuffer;
}

// ---- heap, with the statistics hooks around every allocation and release ---------------------

void tvxHeapStatsInit() {}
void tvxHeapStatsMalloc(void*, uint32_t) {}
void tvxHeapStatsFree(void*) {}
void tvxHeapStats() {}

namespace {

// Allocations left before the heap reports exhaustion; negative: never (see the test seam).
std::atomic<int64_t> g_allocationsBeforeFailure{-1};

bool InjectedFailure() {
  int64_t left = g_allocationsBeforeFailure.load(std::memory_order_relaxed);
  while (left >= 0) {
    if (left == 0) return true;
    if (g_allocationsBeforeFailure.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) return false;
  }
  return false;
}

// Sizes are computed in 64 bits so that a request near 4 GiB fails like an exhausted heap
// instead of wrapping around to a small block.
uint8_t* HeapAlloc(uint64_t bytes) {
  if (bytes > SIZE_MAX || InjectedFailure()) return nullptr;
  void* block = std::malloc(static_cast<size_t>(bytes));
  tvxHeapStatsMalloc(block, static_cast<uint32_t>(bytes));
  return static_cast<uint8_t*>(block);
}

void HeapFree(void* block) {
  tvxHeapStatsFree(block);
  std::free(block);
}

bool IsPowerOfTwo(uint32_t value) { return value != 0 && (value & (value - 1)) == 0; }

uint8_t* AlignDown(uint8_t* address, uint32_t alignment) {
  uintptr_t bits = reinterpret_cast<uintptr_t>(address);
  return address - (bits & (alignment - 1));
}

uint8_t* AlignUp(uint8_t* address, uint32_t alignment) {
  return AlignDown(address + (alignment - 1), alignment);
}

}  // namespace

void tvx_fail_heap_after_for_test(int64_t allocations) {
  g_allocationsBeforeFailure.store(allocations, std::memory_order_relaxed);
}

// ---- aligned blocks --------------------------------------------------------------------------

// The distance from the raw allocation lives in one byte just before the returned address.
// The largest distance is alignment + 1, so alignments above 128 cannot be recorded and are
// refused rather than freed wrongly later.
constexpr uint32_t kMaxBlockAlignment = 128;

void* tvxMemAlign(uint32_t size, uint32_t alignment) {
  if (!IsPowerOfTwo(alignment)) alignment = 1;
  if (alignment > kMaxBlockAlignment) return nullptr;
  uint8_t* raw = HeapAlloc(uint64_t{size} + alignment + 1);
  if (raw == nullptr) return nullptr;
  uint8_t* block = AlignDown(raw + alignment + 1, alignment);
  block[-1] = static_cast<uint8_t>(block - raw);
  return block;
}

void tvxMemAlignFree(void* pointer) {
  if (pointer == nullptr) return;
  uint8_t* block = static_cast<uint8_t*>(pointer);
  HeapFree(block - block[-1]);
}

void* tvxMemAlloc(uint32_t size, uint32_t alignment) {
  if (tvxSharedMemAlloc_ != nullptr && tvxSharedMemFree_ != nullptr) {
    if (void* shared = tvxSharedMemAlloc_(size, alignment)) return shared;
  }
  return tvxMemAlign(size, alignment);
}

void tvxMemFree(void* pointer) {
  if (pointer == nullptr) return;
  // A zero result means the shared allocator owned the block; anything else means it does
  // not know it, so it came from tvxMemAlign.
  if (tvxSharedMemAlloc_ != nullptr && tvxSharedMemFree_ != nullptr) {
    if (tvxSharedMemFree_(pointer) == 0) return;
  } else if (tvxSharedMemFreeQ(pointer) == 0) {
    // A shared block handed out before clean-up uninstalled the allocator: it has no distance
    // byte, so only the shared allocator can release it.
    return;
  }
  tvxMemAlignFree(pointer);
}

// ---- scratch pool ----------------------------------------------------------------------------

namespace {

constexpr uint32_t kPoolTag = 0xCDCDCDCDu;  // buffer belongs to a pool slot
constexpr uint32_t kHeapTag = 0xABABABABu;  // buffer is a plain heap block
// Header before every scratch buffer: the tag word, then a pointer-sized back pointer ending
// right at the buffer. On 32-bit ARM that is exactly two 32-bit words; on 64-bit hosts 12 bytes.
constexpr uint32_t kHeaderBytes = sizeof(uint32_t) + sizeof(void*);
constexpr uint32_t kSlotCount = 32;
constexpr uint32_t kPreAllocLimit = 7680 * 4320;

struct ScratchSlot {
  uint8_t* raw = nullptr;  // current allocation
  uint64_t rawSize = 0;
  uint8_t* data = nullptr;  // buffer handed out
  uint32_t usable = 0;      // largest request the current allocation serves
  // Read before the try-lock by other threads, so atomic; written only by the mutex holder.
  std::atomic<uint32_t> inUse{0};
  std::mutex mutex;  // held by the owning thread from request to release
};

ScratchSlot g_slots[kSlotCount];
std::atomic<bool> g_poolActive{false};
std::once_flag g_poolCreated;
std::once_flag g_poolTornDown;
std::mutex g_refCountMutex;
int32_t g_refCount = 0;
std::atomic<uint32_t> CPU_initflag{0};

void WriteHeader(uint8_t* buffer, uint32_t tag, const void* back) {
  std::memcpy(buffer - sizeof back, &back, sizeof back);
  std::memcpy(buffer - kHeaderBytes, &tag, sizeof tag);
}

uint32_t ReadTag(const uint8_t* buffer) {
  uint32_t tag;
  std::memcpy(&tag, buffer - kHeaderBytes, sizeof tag);
  return tag;
}

void* ReadBackPointer(const uint8_t* buffer) {
  void* back;
  std::memcpy(&back, buffer - sizeof back, sizeof back);
  return back;
}

// Pool not active: a plain heap block with the buffer at the first aligned address that
// leaves room for the header.
void* HeapScratch(uint32_t size, uint32_t alignment) {
  uint8_t* raw = HeapAlloc(uint64_t{size} + (alignment - 1) + kHeaderBytes);
  if (raw == nullptr) return nullptr;
  uint8_t* buffer = AlignUp(raw + kHeaderBytes, alignment);
  WriteHeader(buffer, kHeapTag, raw);
  return buffer;
}

// Gives the slot a fresh allocation for the request, freeing the old one only once the new
// one exists. False when the heap fails; the slot is then unchanged.
bool Reallocate(ScratchSlot& slot, uint32_t size, uint32_t alignment) {
  uint64_t rawSize = uint64_t{size} + (alignment - 1) + kHeaderBytes;
  uint8_t* raw = HeapAlloc(rawSize);
  if (raw == nullptr) return false;
  if (slot.raw != nullptr) HeapFree(slot.raw);
  slot.raw = raw;
  slot.rawSize = rawSize;
  slot.data = AlignUp(raw + kHeaderBytes, alignment);
  slot.usable = size;
  return true;
}

// Prepares the locked slot's buffer for a request. alignment 0 marks an unaligned request.
bool PrepareSlot(ScratchSlot& slot, uint32_t size, uint32_t alignment) {
  bool fits = slot.data != nullptr && slot.usable >= size;
  if (alignment == 0) return fits || Reallocate(slot, size, 1);
  if (!fits) return Reallocate(slot, size, alignment);
  if ((reinterpret_cast<uintptr_t>(slot.data) & (alignment - 1)) == 0) return true;
  // A misaligned buffer may move within its block. The first comparison sets a size against
  // an address, which almost never holds; the second keeps the moved buffer inside the block.
  uint64_t furthestOffset = uint64_t{alignment} - 1 + kHeaderBytes;
  if (slot.rawSize >= reinterpret_cast<uintptr_t>(slot.raw) + furthestOffset &&
      furthestOffset + size <= slot.rawSize) {
    slot.data = AlignDown(slot.raw + furthestOffset, alignment);
    return true;
  }
  return Reallocate(slot, size, alignment);
}

// Takes the first free slot without waiting; the slot's mutex stays held until release.
void* PoolScratch(uint32_t size, uint32_t alignment) {
  for (ScratchSlot& slot : g_slots) {
    if (slot.inUse.load(std::memory_order_relaxed) != 0) continue;
    if (!slot.mutex.try_lock()) continue;
    if (!PrepareSlot(slot, size, alignment)) {
      slot.mutex.unlock();
      return nullptr;
    }
    WriteHeader(slot.data, kPoolTag, &slot);
    slot.inUse.store(1, std::memory_order_relaxed);
    return slot.data;
  }
  return nullptr;
}

ScratchSlot* SlotOf(const void* back) {
  for (ScratchSlot& slot : g_slots) {
    if (&slot == back) return &slot;
  }
  return nullptr;
}

void CreatePool() {
  tvxHeapStatsInit();
  for (ScratchSlot& slot : g_slots) {
    slot.raw = nullptr;
    slot.rawSize = 0;
    slot.data = nullptr;
    slot.usable = 0;
    slot.inUse.store(0, std::memory_order_relaxed);
  }
  g_poolActive.store(true, std::memory_order_release);
}

// Waits for each slot's owner to release it, then frees the slot's memory for good.
void TearDownPool() {
  g_poolActive.store(false, std::memory_order_release);
  for (ScratchSlot& slot : g_slots) {
    std::lock_guard<std::mutex> lock(slot.mutex);
    if (slot.raw != nullptr) HeapFree(slot.raw);
    slot.raw = nullptr;
    slot.rawSize = 0;
    slot.data = nullptr;
    slot.usable = 0;
    slot.inUse.store(0, std::memory_order_relaxed);
  }
  tvxHeapStats();
}

}  // namespace

void* local_tvxGetScratchBufferAligned(uint32_t size, uint32_t alignment) {
  if (!IsPowerOfTwo(alignment)) alignment = 1;
  if (!g_poolActive.load(std::memory_order_acquire)) return HeapScratch(size, alignment);
  return PoolScratch(size, alignment);
}

void* local_tvxGetScratchBufferUnaligned(uint32_t size) {
  if (!g_poolActive.load(std::memory_order_acquire)) return HeapScratch(size, 1);
  return PoolScratch(size, 0);
}

// Returns 1 when the buffer went back to its slot or the heap, 0 when the call was ignored.
int32_t local_tvxReleaseScratchBuffer(void* buffer) {
  if (buffer == nullptr) return 0;
  uint8_t* bytes = static_cast<uint8_t*>(buffer);
  uint32_t tag = ReadTag(bytes);
  if (tag == kHeapTag) {
    HeapFree(ReadBackPointer(bytes));
    return 1;
  }
  if (tag != kPoolTag) return 0;
  // Only the owner of a slot that really handed out this buffer may unlock it; anything else
  // (a stale copy of the header, a second release) is ignored.
  ScratchSlot* slot = SlotOf(ReadBackPointer(bytes));
  if (slot == nullptr || slot->data != bytes || slot->inUse.load(std::memory_order_relaxed) == 0) return 0;
  slot->inUse.store(0, std::memory_order_relaxed);
  slot->mutex.unlock();
  return 1;
}

int32_t tvxMemInit(void) {
  std::call_once(g_poolCreated, CreatePool);
  {
    std::lock_guard<std::mutex> lock(g_refCountMutex);
    ++g_refCount;
  }
  CPU_initflag.store(1);
  return 1;
}

int32_t tvxMemInitPreAlloc(uint32_t size) {
  tvxMemInit();
  if (size == 0) return 1;
  uint32_t bytes = size < kPreAllocLimit ? size : kPreAllocLimit;
  void* buffer = local_tvxGetScratchBufferAligned(bytes, 16);
  if (buffer == nullptr) return 0;
  std::memset(buffer, 0, bytes);
  return local_tvxReleaseScratchBuffer(buffer);
}

// Only the call that brings the count from 1 to 0 tears the pool down, and it leaves
// CPU_initflag set; every other call clears the flag, so a following call does nothing.
int32_t tvxMemDeInit(void) {
  if (CPU_initflag.load() == 0) return 0;
  int32_t before;
  {
    std::lock_guard<std::mutex> lock(g_refCountMutex);
    before = g_refCount--;
  }
  if (before == 1) {
    std::call_once(g_poolTornDown, TearDownPool);
    // The count mutex stays usable for later tvxMemInit calls, so there is no destroy step
    // that could fail.
    return 0;
  }
  CPU_initflag.store(0);
  return 0;
}

// ---- time stamp and assertion logger ---------------------------------------------------------

int64_t tvxGetTime() {
  auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count();
}

int tvxLogAssert(const char* file, int line, int priority, const char* format, ...) {
  char message[512];
  message[0] = '\0';
  size_t used = 0;
  if (line != 0) used = static_cast<size_t>(std::snprintf(message, sizeof message, "%4d| ", line));
  int length = 0;
  if (format != nullptr) {
    va_list args;
    va_start(args, format);
    length = std::vsnprintf(message + used, sizeof message - used, format, args);
    va_end(args);
  }
  const char* name = file != nullptr ? file : "";
  if (const char* slash = std::strrchr(name, '/')) name = slash + 1;
  char tag[128];
  std::snprintf(tag, sizeof tag, "%s", name);
  tvx_log(priority, tag, "%s", message);
  return length;
}
