// Hardware probe: CPU features from /proc/cpuinfo, the supported-target test, the hardware
// mask the mode logic reads, the processor count and the log switch.
#include "frame/hw.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "frame/frame.h"
#include "platform/platform.h"

extern "C" {
uint32_t GPU_initflag = 0;
uint32_t RDSP_initflag = 0;
int32_t nTvxAvailableProc = 0;
}

namespace {

TvxCpuRecord g_record{};
std::once_flag g_probe_once;

constexpr size_t kCpuinfoBytes = 4096;
constexpr uint32_t kImplementerArm = 0x41;
constexpr uint32_t kImplementerQualcomm = 0x51;

// Frees the string extract_cpuinfo_field hands out.
struct Field {
  char* text;
  explicit Field(const char* buffer, size_t length, const char* name)
      : text(extract_cpuinfo_field(buffer, static_cast<int>(length), name)) {}
  ~Field() { free(text); }
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;
};

bool has_token(std::string_view list, std::string_view wanted) {
  size_t start = 0;
  while (start < list.size()) {
    const size_t end = std::min(list.find_first_of(" \t", start), list.size());
    if (list.substr(start, end - start) == wanted) return true;
    start = end + 1;
  }
  return false;
}

bool is_supported_board() {
  char platform[96];
  if (tvx_platform_property("ro.board.platform", platform, sizeof platform) <= 0) return false;
  for (const char* prefix : {"plta", "pltb", "pltc", "pltd"}) {
    if (strncmp(platform, prefix, 4) == 0) return true;
  }
  return false;
}

void probe_cpu() {
  g_record = TvxCpuRecord{};
  char text[kCpuinfoBytes];
  const long length = tvx_platform_read_file("/proc/cpuinfo", text, sizeof text);
  if (length < 0) {
    g_record.probed = 1;
    return;
  }
  tvx_parse_cpuinfo(text, static_cast<size_t>(length), &g_record);
}

}  // namespace

extern "C" char* extract_cpuinfo_field(const char* buffer, int length, const char* name) {
  if (buffer == nullptr || name == nullptr || length <= 0 || name[0] == '\0') return nullptr;
  const std::string_view text(buffer, static_cast<size_t>(length));
  const std::string_view field(name);

  // The first occurrence that starts a line names the field; others are part of values.
  size_t at = text.find(field);
  while (at != std::string_view::npos && at != 0 && text[at - 1] != '\n') {
    at = text.find(field, at + field.size());
  }
  if (at == std::string_view::npos) return nullptr;

  const size_t colon = text.find(':', at + field.size());
  if (colon == std::string_view::npos || colon + 1 >= text.size() || text[colon + 1] != ' ') {
    return nullptr;
  }
  const size_t start = colon + 2;
  const size_t end = std::min(text.find('\n', start), text.size());
  const size_t size = end - start;

  char* value = static_cast<char*>(malloc(size + 1));
  if (value == nullptr) return nullptr;
  memcpy(value, text.data() + start, size);
  value[size] = '\0';
  return value;
}

void tvx_parse_cpuinfo(const char* text, size_t length, TvxCpuRecord* record) {
  *record = TvxCpuRecord{};
  record->probed = 1;

  if (Field architecture(text, length, "CPU architecture"); architecture.text != nullptr) {
    char* end = nullptr;
    const long value = strtol(architecture.text, &end, 10);
    if (end != architecture.text && value >= 7) record->features |= TVX_HW_ARCH7;
  }

  bool named_implementer = false;
  if (Field implementer(text, length, "CPU implementer"); implementer.text != nullptr) {
    record->implementer = static_cast<uint32_t>(strtoul(implementer.text, nullptr, 0));
    named_implementer = true;
  }

  if (Field features(text, length, "Features"); features.text != nullptr) {
    const std::string_view list(features.text);
    if (has_token(list, "vfp") || has_token(list, "fp")) record->features |= TVX_HW_FP;
    if (has_token(list, "neon") || has_token(list, "asimd")) record->features |= TVX_HW_SIMD;
  } else {
    // A build host (x86 lists "flags", not "Features"): the SIMD bit follows the targets the
    // library was compiled for, the FPU is a given, and the host counts as a supported
    // target through the ARM implementer code so the CPU modes run the SIMD tier.
    if (tvx_simd_target_available()) record->features |= TVX_HW_SIMD;
    record->features |= TVX_HW_FP;
    if (!named_implementer) record->implementer = kImplementerArm;
  }

  if (Field hardware(text, length, "Hardware"); hardware.text != nullptr) {
    for (const char* platform : {"PLATBB", "PLATCC", "PLATAA", "PLATDD"}) {
      if (strstr(hardware.text, platform) != nullptr) {
        record->cpuOnly = 1;
        break;
      }
    }
  }
}

extern "C" void tvx_android_cpuInit() { std::call_once(g_probe_once, probe_cpu); }

const TvxCpuRecord& tvx_cpu_record() {
  tvx_android_cpuInit();
  return g_record;
}

void tvx_set_cpu_record_for_test(const TvxCpuRecord& record) {
  std::call_once(g_probe_once, [] {});
  g_record = record;
}

extern "C" int32_t tvx_check_only_cpu() { return tvx_cpu_record().cpuOnly != 0; }

void tvx_read_log_property() {
  char value[96];
  const bool present = tvx_platform_property("vendor.runtime.tavix.log", value, sizeof value) > 0;
  libLogPrint = present && strtol(value, nullptr, 10) != 0;
}

extern "C" uint32_t tvxAvailableHardware(tvxOperationMode mode) {
  const TvxCpuRecord& record = tvx_cpu_record();
  uint32_t mask = record.probed ? TVX_HW_PROBED : 0;
  tvx_read_log_property();

  const bool supported = record.implementer == kImplementerArm ||
                         record.implementer == kImplementerQualcomm || is_supported_board();
  if (supported) mask |= TVX_HW_TARGET;
  mask |= record.features & (TVX_HW_SIMD | TVX_HW_FP | TVX_HW_ARCH7);

  const bool cpu_only_mode = mode == TAVIX_OP_EXT_CPU_ALT || mode == TAVIX_OP_EXT_CPU ||
                             mode == TAVIX_OP_EXT_REFERENCE || mode == TAVIX_OP_CPU_PERFORMANCE;
  if (cpu_only_mode || !supported) return mask;

  mask |= tvxAvailableHWComponent(mode);
  RDSP_initflag = (mask & TVX_HW_DSP) != 0;
  GPU_initflag = (mask & TVX_HW_GPU) != 0;
  return mask;
}

extern "C" int32_t tvxAvailableProcessors() {
  const long count = tvx_platform_processors();
  if (count <= 0) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "%s", "Error in getting the number of available processor");
    nTvxAvailableProc = 1;
    return 1;
  }
  nTvxAvailableProc = static_cast<int32_t>(count);
  return nTvxAvailableProc;
}
