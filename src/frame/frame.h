// Internal runtime frame: dispatch tables, tier state, logging, process-ending assertions and
// the scratch pool. Every library source includes this header; it is never installed.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <type_traits>

#include "tavix/tavix.h"
#include "tavix_rows.h"      // generated: TVX_ROW_* and TVX_IROW_* constants
#include "tavix_variants.h"  // generated: declarations of every reference and SIMD variant

// ---- tiers and tables ----------------------------------------------------------------------

typedef uint32_t TVX_IMPL;
enum : uint32_t {
  TVX_IMPL_CPU = 0, TVX_IMPL_LANES = 1, TVX_IMPL_RDSP = 2, TVX_IMPL_GPU = 3,
  TVX_IMPL_ADSP = 4, TVX_IMPL_CDSP = 5, TVX_IMPL_MDSP = 6, TVX_NUM_IMPL = 7
};

// Smallest width x height a remote tier is worth its transfer for (one more than 176 x 144).
constexpr uint32_t TVX_MIN_REMOTE_WORK = 25345;

typedef void* TVX_FUNC_TABLE[TVX_NUM_ROWS][TVX_NUM_IMPL];
typedef void* TVX_INTERNAL_FUNC_TABLE[TVX_NUM_INTERNAL_ROWS][TVX_NUM_IMPL];

struct TVX_FUNC_MANAGER {
  uint32_t* implTable;
  uint32_t numOps;
  void** funcTable;  // numOps x numImpl slots, row-major
  uint32_t* internalImplTable;
  uint32_t numInternalOps;
  void** internalFuncTable;
  uint32_t numImpl;
};

extern "C" {
extern TVX_FUNC_TABLE tvxFuncTable;
extern TVX_INTERNAL_FUNC_TABLE tvxInternalFuncTable;
extern uint32_t tvxImplTable[TVX_NUM_ROWS];
extern uint32_t tvxInternalImplTable[TVX_NUM_INTERNAL_ROWS];
extern TVX_FUNC_MANAGER tvxFuncManager;
extern const char* const tvxImplChar[TVX_NUM_IMPL];
extern uint32_t HW_constraint_checks_enable;
extern uint8_t libLogPrint;
extern int32_t defaultDSP;           // 0 audio, 1 compute, 2 modem DSP
extern int32_t mode_globalVar;       // the last requested operation mode
}

// Generated fill and index functions (tables.cc in the build tree).
void uCTable(uint32_t slot);
void uVTable(uint32_t slot);
void uVIndex();
void uCHelper();
void uVHelper();
// Rows of the fixed operation sets that the DSP-backed modes move to a remote tier.
struct TvxRowSet { const uint16_t* rows; uint32_t count; };
extern const TvxRowSet tvxLowPowerSet, tvxPerformanceSet, tvxPerformanceGpuSet, tvxCpuOffloadSet;

// Tables and index functions written by hand (frame/tables.cc).
int32_t tvxInitializeMasterFuncManager(TVX_FUNC_MANAGER* manager);
TVX_FUNC_MANAGER* tvxMasterFuncManager();
int32_t tvxTableHWInit(void* funcTable, void* internalFuncTable, uint32_t dspAvailable, uint32_t gpuAvailable);
int32_t uQacmIndex(TVX_FUNC_MANAGER* manager, uint32_t tier);
int32_t uQaTable(TVX_FUNC_MANAGER* manager, uint32_t slot);
int32_t uQcTable(TVX_FUNC_MANAGER* manager, uint32_t slot);
int32_t uQmTable(TVX_FUNC_MANAGER* manager, uint32_t slot);
// The mode rules for a library driven as a remote library (tvxInitRemoteLib).
int32_t tvxSetOperationModeRemoteLib(int32_t mode);
// Mode tables: move their operation set to the compute-DSP tier when a DSP session is ready.
int32_t uHWLowPowerModeTable(TVX_FUNC_MANAGER* manager);
int32_t uHWPerformanceModeTable(TVX_FUNC_MANAGER* manager);
int32_t uQCpuOffloadModeTable(TVX_FUNC_MANAGER* manager);
int32_t uGTable(TVX_FUNC_MANAGER* manager, uint32_t slot);
int32_t uGIndex(TVX_FUNC_MANAGER* manager);
void uF();
void uD();
void uG();

// ---- logging -------------------------------------------------------------------------------

enum : int { TVX_LOG_DEBUG = 3, TVX_LOG_INFO = 4, TVX_LOG_WARN = 5, TVX_LOG_ERROR = 6 };
#define TVX_LIB_TAG "tavix_lib_log"
#define TVX_RUNTIME_TAG "tavix_runtime_log"

// Formats and hands one line to the platform logger (or to a test's capture sink).
// Returns the formatted message's length, as the platform logger reports what it wrote.
int tvx_log(int priority, const char* tag, const char* format, ...) __attribute__((format(printf, 3, 4)));
int tvx_vlog(int priority, const char* tag, const char* format, va_list args);

// Test seam: when set, every formatted line goes to the sink instead of the platform logger.
typedef void (*TvxLogSink)(int priority, const char* tag, const char* message);
void tvx_set_log_sink(TvxLogSink sink);

// Test seam: the heap serves this many more allocations and then reports exhaustion (null)
// until the seam is reset with a negative count. Aligned blocks, tvxMemAlloc's fallback and the
// scratch pool's blocks all come from this heap.
void tvx_fail_heap_after_for_test(int64_t allocations);

// Entry-point helpers, kept out of line so the entries stay small.
void tvx_trace(const char* name, uint32_t tier);
void tvx_assert_failed(const char* name, const char* condition);
void tvx_size_error(const char* name);
void tvx_out_of_memory(const char* name);  // a kernel could not get its working storage

// Broken internal invariant of a reference variant: logs "path@line: cond Assertion failed"
// and ends the process with status 1.
[[noreturn]] void tvx_fatal(const char* path, int line, const char* condition);
#define TVX_REQUIRE(path, cond) \
  do { if (!(cond)) tvx_fatal(path, __LINE__, #cond); } while (0)

// ---- small helpers used by generated entry conditions ----------------------------------------

template <typename T>
inline uintptr_t tvx_bits(T value) {
  if constexpr (std::is_pointer_v<T>) return reinterpret_cast<uintptr_t>(value);
  else return static_cast<uintptr_t>(value);
}
// True when every pointer and stride given is a multiple of the alignment.
template <uintptr_t A, typename... T>
inline bool tvx_aligned(T... values) { return ((tvx_bits(values) | ...) & (A - 1)) == 0; }
template <typename... T> inline bool tvx_aligned4(T... v) { return tvx_aligned<4>(v...); }
template <typename... T> inline bool tvx_aligned8(T... v) { return tvx_aligned<8>(v...); }
template <typename... T> inline bool tvx_aligned16(T... v) { return tvx_aligned<16>(v...); }

// ---- memory services (frame/memory.cc) -----------------------------------------------------

extern "C" {
extern void* (*tvxSharedMemAlloc_)(uint32_t size, uint32_t alignment);
extern void* (*tvxSharedMemAllocR_)(uint32_t size, uint32_t alignment);
extern int32_t (*tvxSharedMemFree_)(void* pointer);
extern int32_t (*tvxSharedMemFreeR_)(void* pointer);

extern void* (*tvxGetScratchBufferAligned_)(uint32_t size, uint32_t alignment);
extern void* (*tvxGetScratchBufferUnaligned_)(uint32_t size);
extern int32_t (*tvxReleaseScratchBuffer_)(void* buffer);
}
void* local_tvxGetScratchBufferAligned(uint32_t size, uint32_t alignment);
void* local_tvxGetScratchBufferUnaligned(uint32_t size);
int32_t local_tvxReleaseScratchBuffer(void* buffer);

void tvxHeapStatsInit();
void tvxHeapStatsMalloc(void* pointer, uint32_t size);
void tvxHeapStatsFree(void* pointer);
void tvxHeapStats();

int64_t tvxGetTime();
int tvxLogAssert(const char* file, int line, int priority, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
