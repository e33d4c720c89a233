// Hardware probe: cpuinfo field extraction and parsing, the hardware mask, the processor
// count, the log switch and the host platform seams.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "frame/frame.h"
#include "frame/hw.h"
#include "hwy/highway.h"
#include "hwy/targets.h"
#include "platform/platform.h"

namespace {

// Field value as a std::string, or nullopt when the field has no value.
std::optional<std::string> Field(const std::string& text, const char* name, int length = -1) {
  char* value = extract_cpuinfo_field(text.data(), length < 0 ? static_cast<int>(text.size()) : length, name);
  if (value == nullptr) return std::nullopt;
  std::string copy(value);
  free(value);
  return copy;
}

TvxCpuRecord Parse(const std::string& text) {
  TvxCpuRecord record;
  std::memset(&record, 0xEE, sizeof record);  // parsing must clear what it does not set
  tvx_parse_cpuinfo(text.data(), text.size(), &record);
  return record;
}

const std::string kArmv7Phone =
    "Processor\t: ARMv7 Processor rev 0 (v7l)\n"
    "processor\t: 0\n"
    "BogoMIPS\t: 38.40\n"
    "\n"
    "Features\t: half thumb fastmult vfp edsp neon vfpv3 tls vfpv4 idiva idivt\n"
    "CPU implementer\t: 0x41\n"
    "CPU architecture: 7\n"
    "CPU variant\t: 0x0\n"
    "CPU part\t: 0xc07\n"
    "CPU revision\t: 5\n"
    "\n"
    "Hardware\t: Generic phone board\n"
    "Revision\t: 0000\n";

const std::string kArmv8In32Bit =
    "processor\t: 0\n"
    "model name\t: ARMv8 Processor rev 4 (v8l)\n"
    "Features\t: fp asimd evtstrm aes pmull sha1 sha2 crc32\n"
    "CPU implementer\t: 0x51\n"
    "CPU architecture: 8\n"
    "CPU part\t: 0x801\n"
    "Hardware\t: Vendor PLATCC board\n";

const std::string kX86Host =
    "processor\t: 0\n"
    "vendor_id\t: GenuineIntel\n"
    "fpu\t\t: yes\n"
    "flags\t\t: fpu vme de pse tsc msr sse sse2 ssse3 sse4_1 sse4_2 avx avx2\n";

// This machine's /proc/cpuinfo through the once-only probe. Tests that replace the
// process-wide record put the probed one back, so the order of tests does not matter.
TEST(HwProbe, ProbesThisMachineOnceFromProcCpuinfo) {
  std::ifstream file("/proc/cpuinfo", std::ios::binary);
  std::string text(4096, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(file.gcount()));
  ASSERT_FALSE(text.empty());

  const TvxCpuRecord expected = Parse(text);
  const TvxCpuRecord& probed = tvx_cpu_record();
  EXPECT_EQ(probed.probed, 1u);
  EXPECT_EQ(probed.features, expected.features);
  EXPECT_EQ(probed.implementer, expected.implementer);
  EXPECT_EQ(probed.cpuOnly, expected.cpuOnly);
  EXPECT_EQ(&tvx_cpu_record(), &probed);

  // A development machine (x86, or qemu-arm showing the host's text) must not be refused as
  // a CPU without SIMD and floating point.
  EXPECT_NE(tvxAvailableHardware(TAVIX_OP_CPU_PERFORMANCE) & 0x86u, TVX_HW_PROBED);
}

TEST(CpuinfoField, FindsValuesAtLineStartsOnly) {
  EXPECT_EQ(Field(kArmv7Phone, "CPU implementer"), "0x41");
  EXPECT_EQ(Field(kArmv7Phone, "Processor"), "ARMv7 Processor rev 0 (v7l)");
  EXPECT_EQ(Field(kArmv7Phone, "Revision"), "0000");  // last line, value up to the newline
  EXPECT_EQ(Field("Hardware\t: board", "Hardware"), "board");  // value up to the buffer's end

  // Occurrences inside values or after other text on a line are skipped.
  const std::string midLine =
      "model name\t: Hardware: fake\n"
      "xHardware\t: also fake\n"
      "Hardware\t: real\n";
  EXPECT_EQ(Field(midLine, "Hardware"), "real");
  EXPECT_EQ(Field("model name\t: Features: neon\n", "Features"), std::nullopt);
  // A longer field that starts with the name, on a later line, does not hide the field.
  EXPECT_EQ(Field("Features\t: vfp\nFeatures2\t: neon\n", "Features"), "vfp");
  EXPECT_EQ(Field(kArmv7Phone, "Serial"), std::nullopt);
}

TEST(CpuinfoField, NeedsABlankAfterTheColon) {
  EXPECT_EQ(Field("Hardware:PLATCC\n", "Hardware"), std::nullopt);
  EXPECT_EQ(Field("Hardware\t:\tPLATCC\n", "Hardware"), std::nullopt);
  EXPECT_EQ(Field("Hardware\t:", "Hardware"), std::nullopt);
  EXPECT_EQ(Field("Hardware", "Hardware"), std::nullopt);
  EXPECT_EQ(Field("Hardware\t: \nRevision\t: 1\n", "Hardware"), "");
}

TEST(CpuinfoField, StaysWithinTheGivenLength) {
  const std::string text = "Hardware\t: board\nRevision\t: 1\n";
  EXPECT_EQ(Field(text, "Revision", 17), std::nullopt);
  EXPECT_EQ(Field(text, "Hardware", 13), "bo");
  EXPECT_EQ(Field(text, "Hardware", 0), std::nullopt);
  EXPECT_EQ(extract_cpuinfo_field(nullptr, 10, "Hardware"), nullptr);
}

TEST(CpuinfoParse, Armv7Phone) {
  const TvxCpuRecord record = Parse(kArmv7Phone);
  EXPECT_EQ(record.probed, 1u);
  EXPECT_EQ(record.features, TVX_HW_ARCH7 | TVX_HW_FP | TVX_HW_SIMD);
  EXPECT_EQ(record.implementer, 65u);
  EXPECT_EQ(record.cpuOnly, 0u);
}

TEST(CpuinfoParse, Armv8In32BitModeOnACpuOnlyPlatform) {
  const TvxCpuRecord record = Parse(kArmv8In32Bit);
  EXPECT_EQ(record.features, TVX_HW_ARCH7 | TVX_HW_FP | TVX_HW_SIMD);
  EXPECT_EQ(record.implementer, 0x51u);
  EXPECT_EQ(record.cpuOnly, 1u);
}

TEST(CpuinfoParse, ArchitectureNeedsDigitsAndSevenOrMore) {
  EXPECT_EQ(Parse("Features\t: vfp\nCPU architecture: AArch64\n").features, TVX_HW_FP);
  EXPECT_EQ(Parse("Features\t: vfp\nCPU architecture: 6TEJ\n").features, TVX_HW_FP);
  EXPECT_EQ(Parse("Features\t: vfp\nCPU architecture: 12\n").features, TVX_HW_FP | TVX_HW_ARCH7);
}

TEST(CpuinfoParse, FeaturesAreWholeTokensSplitAtBlanksAndTabs) {
  EXPECT_EQ(Parse("Features\t: vfpv3 neonx asimdhp fphp\n").features, 0u);
  EXPECT_EQ(Parse("Features\t: half\tneon\n").features, TVX_HW_SIMD);
  EXPECT_EQ(Parse("Features\t: swp  fp\n").features, TVX_HW_FP);
  EXPECT_EQ(Parse("Features\t: asimd\n").features, TVX_HW_SIMD);
  // An empty Features field is an ARM text without units, not a build host.
  EXPECT_EQ(Parse("Features\t: \nCPU implementer\t: 0x41\n").features, 0u);
}

TEST(CpuinfoParse, ImplementerHonoursCBasePrefixes) {
  EXPECT_EQ(Parse("Features\t: vfp\nCPU implementer\t: 0x51\n").implementer, 81u);
  EXPECT_EQ(Parse("Features\t: vfp\nCPU implementer\t: 065\n").implementer, 53u);
  EXPECT_EQ(Parse("Features\t: vfp\nCPU implementer\t: 78\n").implementer, 78u);
  EXPECT_EQ(Parse("Features\t: vfp\n").implementer, 0u);
}

TEST(CpuinfoParse, CpuOnlyPlatformsByHardwareName) {
  for (const char* name : {"PLATBB", "PLATCC", "PLATAA", "PLATDD"}) {
    EXPECT_EQ(Parse(std::string("Features\t: neon\nHardware\t: Maker ") + name + " rev2\n").cpuOnly, 1u) << name;
  }
  EXPECT_EQ(Parse("Features\t: neon\nHardware\t: platcc\n").cpuOnly, 0u);
  EXPECT_EQ(Parse("Features\t: neon\nHardware:PLATCC\n").cpuOnly, 0u);  // no value at all
}

TEST(CpuinfoParse, BuildHostWithoutFeaturesUsesCompiledTargets) {
  const TvxCpuRecord record = Parse(kX86Host);
  EXPECT_EQ(record.features & TVX_HW_FP, TVX_HW_FP);
  EXPECT_EQ(record.features & TVX_HW_ARCH7, 0u);
  EXPECT_EQ((record.features & TVX_HW_SIMD) != 0, tvx_simd_target_available());
  EXPECT_EQ(record.implementer, 0x41u);
  // An implementer the text names is kept.
  EXPECT_EQ(Parse(kX86Host + "CPU implementer\t: 0x50\n").implementer, 0x50u);
}

TEST(SimdTargets, FollowTheTargetsThisCpuCanRun) {
  constexpr int64_t kFallbacks = HWY_SCALAR | HWY_EMU128;
  if ((HWY_TARGETS & (HWY_TARGETS - 1)) == 0) {
    // One target compiled in (ARMv7 NEON): the compiler was told the CPU has it.
    EXPECT_EQ(tvx_simd_target_available(), (HWY_TARGETS & ~kFallbacks) != 0);
    return;
  }
  hwy::SetSupportedTargetsForTest(HWY_EMU128);
  EXPECT_FALSE(tvx_simd_target_available());
  EXPECT_EQ(Parse(kX86Host).features & TVX_HW_SIMD, 0u);
  hwy::SetSupportedTargetsForTest(HWY_TARGETS);
  const bool simdCompiled = (HWY_TARGETS & ~kFallbacks) != 0;
  EXPECT_EQ(tvx_simd_target_available(), simdCompiled);
  hwy::SetSupportedTargetsForTest(0);
}

// Restores an environment variable on scope exit.
class ScopedEnv {
 public:
  explicit ScopedEnv(const char* name) : name_(name) {
    if (const char* value = getenv(name)) saved_ = value;
    unsetenv(name);
  }
  ~ScopedEnv() {
    if (saved_) setenv(name_, saved_->c_str(), 1);
    else unsetenv(name_);
  }
  void Set(const char* value) { setenv(name_, value, 1); }

 private:
  const char* name_;
  std::optional<std::string> saved_;
};

constexpr TvxCpuRecord kArmNeon = {1, TVX_HW_ARCH7 | TVX_HW_FP | TVX_HW_SIMD, 0x41, 0};
constexpr uint32_t kArmNeonMask = TVX_HW_PROBED | TVX_HW_SIMD | TVX_HW_FP | TVX_HW_ARCH7 | TVX_HW_TARGET;
const tvxOperationMode kAllModes[] = {
    TAVIX_OP_LOW_POWER, TAVIX_OP_PERFORMANCE, TAVIX_OP_CPU_OFFLOAD, TAVIX_OP_CPU_PERFORMANCE,
    TAVIX_OP_EXT_CPU, TAVIX_OP_EXT_REFERENCE, TAVIX_OP_EXT_CPU_ALT, TAVIX_OP_EXT_RDSP_ALIAS,
    TAVIX_OP_EXT_GPU, TAVIX_OP_EXT_RDSP, 7};

class HardwareMask : public ::testing::Test {
 protected:
  void SetUp() override { saved_ = tvx_cpu_record(); }
  void TearDown() override {
    tvx_set_cpu_record_for_test(saved_);
    libLogPrint = 0;
    RDSP_initflag = 0;
    GPU_initflag = 0;
  }
  TvxCpuRecord saved_;
  ScopedEnv board_{"RO_BOARD_PLATFORM"};
  ScopedEnv log_{"VENDOR_RUNTIME_TAVIX_LOG"};
};

TEST_F(HardwareMask, SupportedArmTargetWithoutDsp) {
  for (uint32_t implementer : {0x41u, 0x51u}) {
    TvxCpuRecord record = kArmNeon;
    record.implementer = implementer;
    tvx_set_cpu_record_for_test(record);
    for (tvxOperationMode mode : kAllModes) {
      EXPECT_EQ(tvxAvailableHardware(mode), kArmNeonMask) << std::hex << mode;
    }
  }
}

TEST_F(HardwareMask, OnlyDspModesConsultTheDsp) {
  tvx_set_cpu_record_for_test(kArmNeon);
  for (tvxOperationMode mode : {TAVIX_OP_CPU_PERFORMANCE, TAVIX_OP_EXT_CPU, TAVIX_OP_EXT_REFERENCE,
                                TAVIX_OP_EXT_CPU_ALT}) {
    RDSP_initflag = GPU_initflag = 1;
    tvxAvailableHardware(mode);
    EXPECT_EQ(RDSP_initflag, 1u) << std::hex << mode;
    EXPECT_EQ(GPU_initflag, 1u) << std::hex << mode;
  }
  for (tvxOperationMode mode : {TAVIX_OP_LOW_POWER, TAVIX_OP_CPU_OFFLOAD, TAVIX_OP_EXT_RDSP}) {
    RDSP_initflag = GPU_initflag = 1;
    tvxAvailableHardware(mode);
    EXPECT_EQ(RDSP_initflag, 0u) << std::hex << mode;
    EXPECT_EQ(GPU_initflag, 0u) << std::hex << mode;
  }
  // An unsupported target never reaches the DSP.
  tvx_set_cpu_record_for_test({1, TVX_HW_FP, 0x50, 0});
  RDSP_initflag = 1;
  EXPECT_EQ(tvxAvailableHardware(TAVIX_OP_LOW_POWER), TVX_HW_PROBED | TVX_HW_FP);
  EXPECT_EQ(RDSP_initflag, 1u);
}

TEST_F(HardwareMask, BoardPlatformMakesOtherImplementersSupported) {
  tvx_set_cpu_record_for_test({1, TVX_HW_FP | TVX_HW_SIMD, 0x50, 0});
  const uint32_t base = TVX_HW_PROBED | TVX_HW_FP | TVX_HW_SIMD;
  EXPECT_EQ(tvxAvailableHardware(TAVIX_OP_PERFORMANCE), base);
  for (const char* board : {"plta", "pltb100", "pltc", "pltd_x"}) {
    board_.Set(board);
    EXPECT_EQ(tvxAvailableHardware(TAVIX_OP_PERFORMANCE), base | TVX_HW_TARGET) << board;
  }
  for (const char* board : {"plt", "plte", "PLTA", "xplta", ""}) {
    board_.Set(board);
    EXPECT_EQ(tvxAvailableHardware(TAVIX_OP_PERFORMANCE), base) << board;
  }
}

TEST_F(HardwareMask, CarriesOnlyItsOwnBits) {
  tvx_set_cpu_record_for_test({0, 0xFFFFFFFFu, 0x41, 0});
  for (tvxOperationMode mode : kAllModes) {
    EXPECT_EQ(tvxAvailableHardware(mode), TVX_HW_SIMD | TVX_HW_FP | TVX_HW_ARCH7 | TVX_HW_TARGET)
        << std::hex << mode;
  }
  // An unreadable cpuinfo leaves just the probed bit, which the mode logic refuses.
  tvx_set_cpu_record_for_test({1, 0, 0, 0});
  EXPECT_EQ(tvxAvailableHardware(TAVIX_OP_CPU_PERFORMANCE), TVX_HW_PROBED);
}

TEST_F(HardwareMask, RereadsTheLogSwitch) {
  tvx_set_cpu_record_for_test(kArmNeon);
  const std::pair<const char*, uint8_t> cases[] = {{"1", 1}, {"0", 0}, {"2", 1}, {"-1", 1}, {"abc", 0}, {"", 0}};
  for (const auto& [text, expected] : cases) {
    log_.Set(text);
    libLogPrint = 1 - expected;
    tvxAvailableHardware(TAVIX_OP_CPU_PERFORMANCE);
    EXPECT_EQ(libLogPrint, expected) << '"' << text << '"';
  }
  unsetenv("VENDOR_RUNTIME_TAVIX_LOG");
  libLogPrint = 1;
  tvx_read_log_property();
  EXPECT_EQ(libLogPrint, 0);
}

TEST(Processors, CountsOnlineProcessors) {
  nTvxAvailableProc = 0;
  const int32_t count = tvxAvailableProcessors();
  EXPECT_EQ(count, get_nprocs());
  EXPECT_EQ(nTvxAvailableProc, count);
}

TEST(HostPlatform, PropertiesComeFromTheEnvironment) {
  ScopedEnv env("TAVIX_TEST_PROP_NAME");
  char value[8];
  std::memset(value, 'x', sizeof value);
  EXPECT_EQ(tvx_platform_property("tavix.test.Prop_name", value, sizeof value), 0);
  EXPECT_STREQ(value, "");

  env.Set("3");
  EXPECT_EQ(tvx_platform_property("tavix.test.Prop_name", value, sizeof value), 1);
  EXPECT_STREQ(value, "3");

  env.Set("0123456789");
  std::memset(value, 'x', sizeof value);
  EXPECT_EQ(tvx_platform_property("tavix.test.prop_name", value, 4), 3);
  EXPECT_STREQ(value, "012");
  EXPECT_EQ(value[4], 'x');  // nothing beyond the given capacity
}

TEST(HostPlatform, ReadsAFileOnceUpToCapacity) {
  char path[] = "/tmp/tavix_hw_test_XXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  const std::string content(100, 'c');
  ASSERT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
  close(fd);

  char buffer[64];
  EXPECT_EQ(tvx_platform_read_file(path, buffer, sizeof buffer), 64);
  EXPECT_EQ(std::string(buffer, 64), content.substr(0, 64));
  char whole[256];
  EXPECT_EQ(tvx_platform_read_file(path, whole, sizeof whole), 100);
  unlink(path);
  EXPECT_EQ(tvx_platform_read_file(path, whole, sizeof whole), -1);
}

TEST(HostPlatform, LogLinesGoToStderrUnderTheirTag) {
  testing::internal::CaptureStderr();
  tvx_platform_log(TVX_LOG_ERROR, "tavix_lib_log", "Error at tvxAbsDiffu8\n");
  tvx_platform_log(TVX_LOG_ERROR, "tavix_runtime_log", "tvxAbsDiffu8_LANES");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "tavix_lib_log: Error at tvxAbsDiffu8\ntavix_runtime_log: tvxAbsDiffu8_LANES\n");
}

}  // namespace
