// Runtime of the generated remote family: marshalling checks, the restart section and the
// domain slot fill.
#include "remote/remote_call.h"

#include <mutex>

namespace {
// Recovery is serialised: two threads that both saw the restart status must not switch modes
// and reopen the channel at the same time.
std::recursive_mutex g_restartSection;
}  // namespace

bool tvx_remote_counts_fit(const tvxdsp::Count* counts, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    if (!counts[i].valid() || counts[i].value() > int64_t{UINT32_MAX}) return false;
  }
  return true;
}

void tvx_remote_restart_begin() {
  g_restartSection.lock();
  tvxApplyOperationMode(TAVIX_OP_CPU_PERFORMANCE);
}

int32_t tvx_remote_restart_end() {
  const int32_t result = tvxApplyOperationMode(mode_globalVar);
  g_restartSection.unlock();
  return result;
}

int32_t tvx_fill_remote_slot(TVX_FUNC_MANAGER* manager, uint32_t slot, const TvxRemoteSlot* rows, uint32_t nRows,
                             const TvxRemoteSlot* internalRows, uint32_t nInternalRows) {
  if (!manager) return 1;
  if (!manager->funcTable) return 2;
  if (!manager->internalFuncTable) return 3;
  if (slot >= manager->numImpl) return 4;
  for (uint32_t i = 0; i < nRows; ++i) {
    if (rows[i].row < manager->numOps) manager->funcTable[rows[i].row * manager->numImpl + slot] = rows[i].stub;
  }
  for (uint32_t i = 0; i < nInternalRows; ++i) {
    if (internalRows[i].row < manager->numInternalOps)
      manager->internalFuncTable[internalRows[i].row * manager->numImpl + slot] = internalRows[i].stub;
  }
  return 0;
}
