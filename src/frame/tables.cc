// Tier state shared by every entry point, the master manager, and the index and fill functions
// that work through a manager (the per-row fill functions are generated from the registry).
#include "frame/frame.h"

extern "C" {
uint32_t tvxImplTable[TVX_NUM_ROWS] = {};
uint32_t tvxInternalImplTable[TVX_NUM_INTERNAL_ROWS] = {};
const char* const tvxImplChar[TVX_NUM_IMPL] = {"CPU", "LANES", "RDSP", "GPU", "ADSP", "CDSP", "MDSP"};
uint32_t HW_constraint_checks_enable = 1;
uint8_t libLogPrint = 0;
TVX_FUNC_MANAGER tvxFuncManager = {};
int32_t defaultDSP = 1;
}

namespace {
TVX_FUNC_MANAGER* g_master = nullptr;
}

TVX_FUNC_MANAGER* tvxMasterFuncManager() { return g_master; }

int32_t tvxInitializeMasterFuncManager(TVX_FUNC_MANAGER* manager) {
  if (!manager || !manager->implTable || !manager->funcTable || !manager->internalImplTable ||
      !manager->internalFuncTable)
    return 1;
  g_master = manager;
  return 0;
}

int32_t uGTable(TVX_FUNC_MANAGER* manager, uint32_t slot) {
  if (!manager) return 1;
  if (!manager->funcTable) return 2;
  if (slot >= manager->numImpl) return 4;
  return 0;
}

int32_t uGIndex(TVX_FUNC_MANAGER* manager) { return manager ? 0 : 1; }

// Hooks of the CPU-offload and GPU modes; the GPU tier never receives implementations.
void uF() {}
void uD() {}
void uG() {}

int32_t uQacmIndex(TVX_FUNC_MANAGER* manager, uint32_t tier) {
  if (!manager) return 1;
  if (!manager->implTable) return 2;
  if (!manager->internalImplTable) return 3;
  if (tier >= manager->numImpl) return 4;
  for (uint32_t row = 0; row < manager->numOps; ++row) {
    if (manager->funcTable && manager->funcTable[row * manager->numImpl + tier])
      manager->implTable[row] = tier;
  }
  // Internal rows move only where the slot holds a stub: a row without a remote form (or
  // not built yet) stays where it is rather than dispatching to an empty slot.
  static const uint32_t kInternalRows[] = {0, 1, 2, 3, 4, 5, 6, 7, 10, 11, 12};
  for (uint32_t row : kInternalRows) {
    if (row < manager->numInternalOps && manager->internalFuncTable &&
        manager->internalFuncTable[row * manager->numImpl + tier])
      manager->internalImplTable[row] = tier;
  }
  return 0;
}

int32_t tvxTableHWInit(void* funcTable, void* internalFuncTable, uint32_t dspAvailable,
                       uint32_t gpuAvailable) {
  if (!funcTable || !internalFuncTable) return 1;
  int32_t result = 0;
  if (dspAvailable) {
    switch (defaultDSP) {
      case 0:
        tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "ADSP is available");
        result = uQaTable(g_master, TVX_IMPL_ADSP);
        break;
      case 1:
        tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "CDSP is available");
        result = uQcTable(g_master, TVX_IMPL_CDSP);
        break;
      case 2:
        tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "MDSP is available");
        result = uQmTable(g_master, TVX_IMPL_MDSP);
        break;
      default:
        tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG,
                "defaultDSP flag is not set. Hence unable to set memory pointers for TAVIX function");
        break;
    }
  }
  if (gpuAvailable) {
    tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "GPU is available");
    if (!g_master) {
      result += 1;
    } else {
      if (!g_master->funcTable) result += 2;
      if (g_master->numImpl < 4) result += 4;
    }
  }
  return result;
}

extern "C" TVX_API void setDefaultDSPValue(int32_t value) { defaultDSP = value; }
