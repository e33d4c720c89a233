// Operation modes: probing the hardware, filling the dispatch slots, choosing each row's tier,
// and the lifecycle calls around them (version, clean-up, constraint-check flag).
#include <cstring>
#include <initializer_list>

#include "frame/frame.h"
#include "frame/hw.h"
#include "remote/remote_call.h"
#include "remote/session.h"
#include "remote/shared_mem.h"

extern "C" {
int32_t mode_globalVar = TAVIX_OP_CPU_PERFORMANCE;
}

namespace {

bool g_tablesReady = false;
uint32_t g_hwMask = 0;  // mask of the mode being applied, read by the mode tables

constexpr uint32_t kExtendedBit = 0x80000000u;

void registerMasterManager() {
  tvxFuncManager = {tvxImplTable, TVX_NUM_ROWS, &tvxFuncTable[0][0], tvxInternalImplTable,
                    TVX_NUM_INTERNAL_ROWS, &tvxInternalFuncTable[0][0], TVX_NUM_IMPL};
  if (tvxInitializeMasterFuncManager(&tvxFuncManager) != 0)
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "tvxInitializeMasterFuncManager is failed");
}

void firstFill(uint32_t mask) {
  for (uint32_t slot = 0; slot <= 3; ++slot) uCTable(slot);
  if (mask & TVX_HW_SIMD) {
    for (uint32_t slot = 1; slot <= 3; ++slot) uVTable(slot);
  }
  registerMasterManager();
  tvxTableHWInit(tvxFuncTable, tvxInternalFuncTable, mask & TVX_HW_DSP, mask & TVX_HW_GPU);
  g_tablesReady = true;
}

// Every chosen tier back to the reference tier, except internal row 11 (buffer registration
// keeps its tier across mode changes) and the reserved rows, which are never touched.
void resetTiers() {
  for (uint32_t row = 0; row < TVX_NUM_ROWS; ++row) {
    if (row == 362 || row == 363) continue;
    tvxImplTable[row] = TVX_IMPL_CPU;
  }
  for (uint32_t row = 0; row < TVX_NUM_INTERNAL_ROWS; ++row) {
    if (row == TVX_IROW_tvxRegisterBuf) continue;
    tvxInternalImplTable[row] = TVX_IMPL_CPU;
  }
}

int32_t applyModeTable(TVX_FUNC_MANAGER* manager, const TvxRowSet& set) {
  if (!manager || !manager->implTable || !manager->internalImplTable) return 1;
  if (!(g_hwMask & TVX_HW_DSP) || manager->numImpl < 6) return 1;
  for (uint32_t row : {TVX_IROW_probeR6Time, TVX_IROW_tvxRegisterBuf}) {
    if (row < manager->numInternalOps) manager->internalImplTable[row] = TVX_IMPL_CDSP;
  }
  for (uint32_t i = 0; i < set.count; ++i) {
    if (set.rows[i] < manager->numOps) manager->implTable[set.rows[i]] = TVX_IMPL_CDSP;
  }
  return 0;
}

// The mode functions bind the remote pointer of each operation in their set (and the clock
// probe's) to its generic remote variant, when the probe found a DSP session.
void uHWLowPowerMode() {
  if (g_hwMask & TVX_HW_DSP) tvxBindRemoteLowPowerSet();
}
void uHWPerformanceMode() {
  if (g_hwMask & TVX_HW_DSP) tvxBindRemotePerformanceSet();
}
void uQCpuOffloadMode() {
  if (g_hwMask & TVX_HW_DSP) tvxBindRemoteCpuOffloadSet();
}

// Fills the default domain's remote slot through the master manager.
void fillDefaultDomainSlot(const char* unsetMessage) {
  switch (defaultDSP) {
    case 0: uQaTable(tvxMasterFuncManager(), TVX_IMPL_ADSP); break;
    case 1: uQcTable(tvxMasterFuncManager(), TVX_IMPL_CDSP); break;
    case 2: uQmTable(tvxMasterFuncManager(), TVX_IMPL_MDSP); break;
    default: tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "%s", unsetMessage); break;
  }
}

// Every row with a stub in the default domain's slot onto that domain's tier.
void indexDefaultDomain(const char* unsetMessage) {
  if (defaultDSP >= 0 && defaultDSP <= 2) {
    uQacmIndex(tvxMasterFuncManager(), TVX_IMPL_ADSP + static_cast<uint32_t>(defaultDSP));
  } else {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "%s", unsetMessage);
  }
}

// The operation sets of the DSP-backed modes 0-2 (and the CPU-offload mode's empty hooks).
void chooseModeSets(int32_t mode, uint32_t mask) {
  switch (mode) {
    case TAVIX_OP_LOW_POWER:
      uHWLowPowerMode();
      uHWLowPowerModeTable(tvxMasterFuncManager());
      break;
    case TAVIX_OP_PERFORMANCE:
      uHWPerformanceMode();
      uHWPerformanceModeTable(tvxMasterFuncManager());
      break;
    case TAVIX_OP_CPU_OFFLOAD:
      if (mask & 0x10u) uF();
      if (mask & 0x200u) uD();
      if (mask & TVX_HW_GPU) {
        uG();
        uGIndex(tvxMasterFuncManager());
      }
      if (mask & TVX_HW_DSP) {
        uQCpuOffloadMode();
        uQCpuOffloadModeTable(tvxMasterFuncManager());
      }
      break;
    default:
      break;
  }
}

int32_t applyMode(int32_t mode) {
  tvxSetHWFlag(1);
  tvxAvailableProcessors();
  tvx_read_log_property();
  const uint32_t mask = tvxAvailableHardware(mode);
  if ((mask & 0x86u) == TVX_HW_PROBED) return 999;
  g_hwMask = mask;

  if (!g_tablesReady) {
    firstFill(mask);
  } else {
    if (mask & TVX_HW_SIMD) uVTable(TVX_IMPL_RDSP); else uCTable(TVX_IMPL_RDSP);
    tvxTableHWInit(tvxFuncTable, tvxInternalFuncTable, mask & TVX_HW_DSP, mask & TVX_HW_GPU);
  }
  uCHelper();
  resetTiers();

  const bool simd = mask & TVX_HW_SIMD;
  if (static_cast<uint32_t>(mode) & kExtendedBit) {
    const uint32_t x = static_cast<uint32_t>(mode) & 0x7fffffffu;
    if (x != 2 && simd) {
      uVIndex();
      uVHelper();
    }
    switch (x) {
      case 1: case 2: case 4:
        return 0;
      case 8: case 1024:
        tvxSetHWFlag(0);
        if (mask & TVX_HW_DSP) indexDefaultDomain("defaultDSP flag is not set. Hence failed to set index for Q Tables");
        return 0;
      case 32:
        if (mask & TVX_HW_GPU) {
          uG();
          uGIndex(tvxMasterFuncManager());
        }
        return 0;
      default:
        return -1;
    }
  }

  if (!(mask & TVX_HW_TARGET) || mode > 3) return 0;
  if (simd) {
    uVIndex();
    uVHelper();
  }
  chooseModeSets(mode, mask);
  return 0;
}

// The library driven as a remote library: slots 0-3 and the chosen tiers are left as they are;
// the remote pointers are cleared, the default domain's slot filled and the mode's sets chosen.
int32_t applyRemoteLibMode(int32_t mode) {
  tvxSetHWFlag(1);
  tvx_read_log_property();
  const uint32_t mask = tvxAvailableHardware(mode);
  if ((mask & 0x86u) == TVX_HW_PROBED) return 999;
  g_hwMask = mask;
  if (!tvxMasterFuncManager()) registerMasterManager();
  uRNull();
  fillDefaultDomainSlot("defaultDSP flag is not set. Hence unable to set memory pointers for Tavix functions");
  const bool simd = mask & TVX_HW_SIMD;
  if (static_cast<uint32_t>(mode) & kExtendedBit) {
    const uint32_t x = static_cast<uint32_t>(mode) & 0x7fffffffu;
    if (x != 2 && simd) uVIndex();
    if (x == 8 || x == 1024) {
      tvxSetHWFlag(0);
      indexDefaultDomain("defaultDSP flag is not set. Hence unable to set index for Tavix functions");
    }
    return 0;
  }
  if (!(mask & TVX_HW_TARGET) || mode > 3) return 0;
  if (simd) uVIndex();
  chooseModeSets(mode, mask);
  return 0;
}

}  // namespace

int32_t tvxApplyOperationMode(int32_t mode) { return applyMode(mode); }

int32_t tvxSetOperationModeRemoteLib(int32_t mode) {
  mode_globalVar = mode;
  return applyRemoteLibMode(mode);
}

int32_t uHWLowPowerModeTable(TVX_FUNC_MANAGER* manager) { return applyModeTable(manager, tvxLowPowerSet); }

int32_t uHWPerformanceModeTable(TVX_FUNC_MANAGER* manager) {
  int32_t result = applyModeTable(manager, tvxPerformanceSet);
  if (result == 0 && (g_hwMask & TVX_HW_GPU) && manager->numImpl >= 4) {
    for (uint32_t i = 0; i < tvxPerformanceGpuSet.count; ++i) {
      if (tvxPerformanceGpuSet.rows[i] < manager->numOps) manager->implTable[tvxPerformanceGpuSet.rows[i]] = TVX_IMPL_GPU;
    }
  }
  return result;
}

int32_t uQCpuOffloadModeTable(TVX_FUNC_MANAGER* manager) { return applyModeTable(manager, tvxCpuOffloadSet); }

extern "C" {

TVX_API int32_t tvxSetOperationMode(tvxOperationMode mode) {
  if (tvx_check_only_cpu() && mode != TAVIX_OP_EXT_REFERENCE) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "%s\n",
            "DSP and GPU not present. Setting TAVIX mode to TAVIX_OP_CPU_PERFORMANCE.");
    mode = TAVIX_OP_CPU_PERFORMANCE;
  }
  mode_globalVar = mode;
  return applyMode(mode);
}

TVX_API int32_t tvxSetOperationModeExt(int32_t option) {
  if (option == 0) return tvxSetOperationMode(TAVIX_OP_EXT_RDSP) == 0 ? 0 : 1;
  if (option == 1) return tvxSetOperationMode(TAVIX_OP_EXT_GPU) == 0 ? 0 : 1;
  const char* fn = "tvxSetOperationModeExt";
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG,
          "Failed in %s. Please select appropriate option for mode to %s based on the target of interest", fn, fn);
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "For mobile targets, %s supports only TAVIX_OP_EXT_RDSP and TAVIX_OP_EXT_GPU options", fn);
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG,
          "For non mobile targets(IOT or HBX), %s supports TAVIX_OP_EXT_RDSP, TAVIX_OP_EXT_GPU, "
          "TAVIX_OP_EXT_ADSP, TAVIX_OP_EXT_CDSP and TAVIX_OP_EXT_MDSP  options", fn);
  return 1;
}

TVX_API int32_t tvxInitRemoteLib(tvxOperationMode mode) { return tvxSetOperationModeRemoteLib(mode); }

// The remote layer keeps its own copy of the flag.
TVX_API void tvxSetHWFlag(uint32_t value) {
  HW_constraint_checks_enable = value;
  tvxUpdateR6ConstraintCheckFlag(value);
}

TVX_API void tvxGetVersion(char* buffer, uint32_t length) {
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "%s\n", "Tavix vendor library");
  if (!buffer) return;
  static const char kVersion[] = "1.7.1";
  if (length >= sizeof kVersion) {
    memcpy(buffer, kVersion, sizeof kVersion);
  } else {
    memset(buffer, 0, length);
  }
}

// Closes the DSP session, releases the shared-memory allocator, clears the shared-memory hooks
// and the hardware flags. Tables and tiers stay.
TVX_API int32_t tvxCleanUp(void) {
  tvxCleanUpHW();
  GPU_initflag = 0;
  RDSP_initflag = 0;
  return 0;
}

}  // extern "C"
