// Hardware probe: CPU features from /proc/cpuinfo text, board platform, DSP presence.
#pragma once

#include <cstddef>
#include <cstdint>

struct TvxCpuRecord {
  uint32_t probed;       // /proc/cpuinfo was read (or could not be)
  uint32_t features;     // TVX_HW_ARCH7 | TVX_HW_FP | TVX_HW_SIMD
  uint32_t implementer;  // "CPU implementer", C base prefixes honoured
  uint32_t cpuOnly;      // "Hardware" names a platform that must stay on the CPU
};

// Value of one "name: value" field as a new string (free with free()), or null.
extern "C" char* extract_cpuinfo_field(const char* buffer, int length, const char* name);

// Parses cpuinfo text into a record (pure; the probe and the tests share it).
void tvx_parse_cpuinfo(const char* text, size_t length, TvxCpuRecord* record);

// The process-wide record, probed once from /proc/cpuinfo.
extern "C" void tvx_android_cpuInit();
const TvxCpuRecord& tvx_cpu_record();
// Test seam: replaces the process-wide record (the once-only probe is considered done).
void tvx_set_cpu_record_for_test(const TvxCpuRecord& record);

extern "C" int32_t tvx_check_only_cpu();
// DSP part of the probe: 8 when a DSP session is ready, else 0.
extern "C" uint32_t tvxAvailableHWComponent(int32_t mode);

// True when this CPU can run a SIMD target the library was compiled for (lanes/targets.cc).
bool tvx_simd_target_available();

// Reads "vendor.runtime.tavix.log" into libLogPrint.
void tvx_read_log_property();

extern "C" {
extern uint32_t GPU_initflag;
extern uint32_t RDSP_initflag;
extern int32_t nTvxAvailableProc;
}
