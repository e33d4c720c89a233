// Runtime of the generated remote family (remote.cc in the build tree): the checks before
// marshalling, the restart section around the recovery of a DSP restart, and the fill of a
// domain's dispatch slot.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/frame.h"
#include "remote/count.h"
#include "remote/session.h"

// A call whose buffers cannot be described to the DSP (a count beyond 32 bits) never reaches
// the stub; the abstraction layer treats it as a failed remote run.
constexpr int32_t TVX_REMOTE_UNMARSHALLABLE = -2;
// Recovery rounds after a restart status before the call falls back to the SIMD tier.
constexpr int TVX_REMOTE_RESTART_ROUNDS = 5;

// True when every count is valid and fits the stub's 32-bit element counts.
bool tvx_remote_counts_fit(const tvxdsp::Count* counts, size_t n);

// Restart section: the first applies the CPU-performance mode so that other calls stay on the
// CPU while the channel recovers; the second reapplies the mode the application chose and
// returns that result. Sections of several threads run one after the other.
void tvx_remote_restart_begin();
int32_t tvx_remote_restart_end();

// One operation's stub for a domain slot.
struct TvxRemoteSlot {
  uint32_t row;
  void* stub;
};
// Writes the stubs into `slot` of the manager's tables: 1 for a null manager, 2 for a null
// dispatch table, 3 for a null internal dispatch table, 4 when the slot is not below the number
// of tiers, else 0. Rows beyond the manager's counts are skipped.
int32_t tvx_fill_remote_slot(TVX_FUNC_MANAGER* manager, uint32_t slot, const TvxRemoteSlot* rows, uint32_t nRows,
                             const TvxRemoteSlot* internalRows, uint32_t nInternalRows);

// Generated with the family: every R_ pointer to null, and the binders of the mode sets.
void uRNull();
void tvxBindRemoteLowPowerSet();
void tvxBindRemotePerformanceSet();
void tvxBindRemoteCpuOffloadSet();

// Applies an operation mode without recording it as the application's choice (mode.cc).
int32_t tvxApplyOperationMode(int32_t mode);
