// The runtime frame: entry-point shape (downgrade, trace, assertion, zero strides, retry),
// static tables, operation modes and the lifecycle calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "frame/hw.h"
#include "log_capture.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;

// Fake slot functions that record which tier ran and with which strides.
struct Call {
  int tier;
  uint32_t srcStride, dstStride;
};
std::vector<Call> g_calls;
template <int Tier>
void FakeAbsDiff(const uint8_t*, const uint8_t*, uint32_t, uint32_t, uint32_t srcStride, uint8_t*, uint32_t dstStride) {
  g_calls.push_back({Tier, srcStride, dstStride});
}
int32_t g_declineResult = 32768;
template <int Tier>
int32_t FakeAdd(const uint8_t*, uint32_t, uint32_t, uint32_t, const uint8_t*, uint32_t, int32_t, uint8_t*, uint32_t) {
  g_calls.push_back({Tier, 0, 0});
  return Tier == 1 ? 17 : g_declineResult;
}

constexpr TvxCpuRecord kArmNeon = {1, TVX_HW_ARCH7 | TVX_HW_FP | TVX_HW_SIMD, 0x41, 0};

class FrameTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::memcpy(savedSlots_, tvxFuncTable, sizeof savedSlots_);
    g_lines.clear();
    g_calls.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override {
    std::memcpy(tvxFuncTable, savedSlots_, sizeof savedSlots_);
    std::memset(tvxImplTable, 0, sizeof tvxImplTable);
    std::memset(tvxInternalImplTable, 0, sizeof tvxInternalImplTable);
    libLogPrint = 0;
    tvxSetHWFlag(1);
    tvx_set_log_sink(nullptr);
  }
  // Routes the abs-diff row's tiers 1 and 5 to recording fakes and chooses tier 5.
  void FakeAbsDiffOnTier5() {
    tvxFuncTable[TVX_ROW_tvxAbsDiffu8][1] = reinterpret_cast<void*>(&FakeAbsDiff<1>);
    tvxFuncTable[TVX_ROW_tvxAbsDiffu8][5] = reinterpret_cast<void*>(&FakeAbsDiff<5>);
    tvxImplTable[TVX_ROW_tvxAbsDiffu8] = 5;
  }
  TVX_FUNC_TABLE savedSlots_;
  alignas(64) uint8_t a_[176 * 146], b_[176 * 146], d_[176 * 146];
};

// Runs before any mode selection in this process: the static content alone serves calls.
TEST_F(FrameTest, StaticTablesBindReferenceVariantsAndLeaveReservedRowsEmpty) {
  for (uint32_t slot = 0; slot < 4; ++slot) EXPECT_EQ(tvxFuncTable[TVX_ROW_tvxAddu8][slot], (void*)&tvxAddu8C);
  for (uint32_t slot = 4; slot < 7; ++slot) EXPECT_EQ(tvxFuncTable[TVX_ROW_tvxAddu8][slot], nullptr);
  for (uint32_t slot = 0; slot < 7; ++slot) {
    EXPECT_EQ(tvxFuncTable[362][slot], nullptr);
    EXPECT_EQ(tvxFuncTable[363][slot], nullptr);
    EXPECT_EQ(tvxInternalFuncTable[2][slot], nullptr);
  }
  // Tier 1 before the SIMD fill is the reference variant.
  tvxImplTable[TVX_ROW_tvxAddu8] = 1;
  uint8_t x = 200, y = 100, out = 0;
  EXPECT_EQ(tvxAddu8(&x, 1, 1, 1, &y, 1, 0, &out, 1), 0);
  EXPECT_EQ(out, 44);
}

TEST_F(FrameTest, GatedRuleKeepsRemoteTierOnlyForLargeAlignedWork) {
  FakeAbsDiffOnTier5();
  tvxAbsDiffu8(a_, b_, 176, 144, 176, d_, 176);  // 25344 pixels: too small
  tvxAbsDiffu8(a_, b_, 176, 145, 176, d_, 176);  // 25520 pixels, aligned: stays
  tvxAbsDiffu8(a_ + 1, b_, 176, 145, 176, d_, 176);  // misaligned source
  tvxAbsDiffu8(a_, b_, 176, 145, 177, d_, 176);  // stride not a multiple of 8
  tvxSetHWFlag(0);
  tvxAbsDiffu8(a_, b_, 176, 144, 176, d_, 176);  // checks off: stays
  ASSERT_EQ(g_calls.size(), 5u);
  EXPECT_EQ(g_calls[0].tier, 1);
  EXPECT_EQ(g_calls[1].tier, 5);
  EXPECT_EQ(g_calls[2].tier, 1);
  EXPECT_EQ(g_calls[3].tier, 1);
  EXPECT_EQ(g_calls[4].tier, 5);
}

TEST_F(FrameTest, DowngradeNeverTouchesLocalTiers) {
  tvxFuncTable[TVX_ROW_tvxAbsDiffu8][0] = reinterpret_cast<void*>(&FakeAbsDiff<0>);
  tvxFuncTable[TVX_ROW_tvxAbsDiffu8][3] = reinterpret_cast<void*>(&FakeAbsDiff<3>);
  tvxAbsDiffu8(a_, b_, 3, 3, 3, d_, 3);
  tvxImplTable[TVX_ROW_tvxAbsDiffu8] = 3;  // no GPU rule for this row: tier 3 stands
  tvxAbsDiffu8(a_ + 1, b_, 3, 3, 3, d_, 3);
  ASSERT_EQ(g_calls.size(), 2u);
  EXPECT_EQ(g_calls[0].tier, 0);
  EXPECT_EQ(g_calls[1].tier, 3);
}

TEST_F(FrameTest, TraceComesBeforeTheAssertionAndNothingIsCalled) {
  FakeAbsDiffOnTier5();
  libLogPrint = 1;
  tvxAbsDiffu8(nullptr, b_, 176, 145, 176, d_, 176);
  EXPECT_TRUE(g_calls.empty());
  ASSERT_EQ(g_lines.size(), 2u);
  EXPECT_EQ(g_lines[0], "tavix_runtime_log|tvxAbsDiffu8_CDSP");
  EXPECT_EQ(g_lines[1],
            "tavix_lib_log|Assertion failed @tvxAbsDiffu8: src1 && src2 && dst && srcWidth && srcHeight && "
            "(srcStride >= srcWidth) && dstStride\n");
  g_lines.clear();
  libLogPrint = 0;
  tvxAbsDiffu8(a_, b_, 176, 145, 176, d_, 176);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(FrameTest, ZeroStrideIsThePackedStride) {
  FakeAbsDiffOnTier5();
  tvxImplTable[TVX_ROW_tvxAbsDiffu8] = 1;
  tvxAbsDiffu8(a_, b_, 40, 2, 0, d_, 0);
  tvxAbsDiffu8(a_, b_, 40, 2, 40, d_, 40);
  ASSERT_EQ(g_calls.size(), 2u);
  EXPECT_EQ(g_calls[0].srcStride, 40u);
  EXPECT_EQ(g_calls[0].dstStride, 40u);
  EXPECT_EQ(g_calls[0].srcStride, g_calls[1].srcStride);
}

TEST_F(FrameTest, DecliningTierIsRetriedOnSlotOne) {
  tvxFuncTable[TVX_ROW_tvxAddu8][1] = reinterpret_cast<void*>(&FakeAdd<1>);
  tvxFuncTable[TVX_ROW_tvxAddu8][0] = reinterpret_cast<void*>(&FakeAdd<0>);
  g_declineResult = 32768;
  EXPECT_EQ(tvxAddu8(a_, 8, 8, 8, b_, 8, 1, d_, 8), 17);
  ASSERT_EQ(g_calls.size(), 2u);
  EXPECT_EQ(g_calls[0].tier, 0);
  EXPECT_EQ(g_calls[1].tier, 1);
  g_calls.clear();
  g_declineResult = 5;  // any other result is returned as it is
  EXPECT_EQ(tvxAddu8(a_, 8, 8, 8, b_, 8, 1, d_, 8), 5);
  EXPECT_EQ(g_calls.size(), 1u);
}

// ---- modes -----------------------------------------------------------------------------------

uint32_t CountTier(uint32_t tier) {
  uint32_t n = 0;
  for (uint32_t row = 0; row < TVX_NUM_ROWS; ++row) n += tvxImplTable[row] == tier;
  return n;
}

class ModeTest : public FrameTest {
 protected:
  void SetUp() override {
    FrameTest::SetUp();
    tvx_set_cpu_record_for_test(kArmNeon);
  }
};

TEST_F(ModeTest, EveryModeValueChoosesTheDocumentedTiers) {
  struct Case {
    int32_t mode;
    int32_t result;
    bool simd;  // SIMD rows on tier 1 afterwards
    uint32_t flag;
  };
  const Case cases[] = {
      {TAVIX_OP_LOW_POWER, 0, true, 1},        {TAVIX_OP_PERFORMANCE, 0, true, 1},
      {TAVIX_OP_CPU_OFFLOAD, 0, true, 1},      {TAVIX_OP_CPU_PERFORMANCE, 0, true, 1},
      {TAVIX_OP_EXT_CPU, 0, true, 1},          {TAVIX_OP_EXT_CPU_ALT, 0, true, 1},
      {TAVIX_OP_EXT_REFERENCE, 0, false, 1},   {TAVIX_OP_EXT_RDSP, 0, true, 0},
      {TAVIX_OP_EXT_RDSP_ALIAS, 0, true, 0},   {TAVIX_OP_EXT_GPU, 0, true, 1},
      {(int32_t)0x80000003, -1, true, 1},      {(int32_t)0x80000040, -1, true, 1},
      {7, 0, false, 1},                        {4, 0, false, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.mode);
    std::memset(tvxImplTable, 0xFF, sizeof tvxImplTable);  // stale tiers must all be reset
    tvxImplTable[362] = tvxImplTable[363] = 0;
    EXPECT_EQ(tvxSetOperationMode(c.mode), c.result);
    EXPECT_EQ(mode_globalVar, c.mode);
    EXPECT_EQ(HW_constraint_checks_enable, c.flag);
    // No DSP session can be opened here: nothing is ever on a remote tier.
    EXPECT_EQ(CountTier(4) + CountTier(5) + CountTier(6) + CountTier(2) + CountTier(3), 0u);
    if (c.simd) {
      // Exactly the rows whose SIMD slot holds a SIMD variant run on tier 1.
      for (uint32_t row = 0; row < TVX_NUM_ROWS; ++row) {
        const bool hasSimd = tvxFuncTable[row][0] && tvxFuncTable[row][1] != tvxFuncTable[row][0];
        EXPECT_EQ(tvxImplTable[row], hasSimd ? 1u : 0u) << "row " << row;
      }
      EXPECT_EQ(tvxFuncTable[TVX_ROW_tvxAddu8][1], (void*)&tvxAddu8V);
      EXPECT_EQ(tvxFuncTable[TVX_ROW_tvxAddu8][2], (void*)&tvxAddu8V);
    } else {
      EXPECT_EQ(CountTier(0), TVX_NUM_ROWS);
    }
  }
}

TEST_F(ModeTest, ExtendedReferenceModePutsInternalRowsOnTierZeroToo) {
  std::memset(tvxInternalImplTable, 0, sizeof tvxInternalImplTable);
  tvxInternalImplTable[3] = 1;
  EXPECT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_REFERENCE), 0);
  for (uint32_t row = 0; row < TVX_NUM_INTERNAL_ROWS; ++row) EXPECT_EQ(tvxInternalImplTable[row], 0u);
  EXPECT_EQ(CountTier(0), TVX_NUM_ROWS);
}

TEST_F(ModeTest, ReservedRowsAndBufferRegistrationKeepTheirTiers) {
  tvxImplTable[362] = 6;
  tvxImplTable[363] = 4;
  tvxInternalImplTable[TVX_IROW_tvxRegisterBuf] = 5;
  for (int32_t mode : {3, static_cast<int32_t>(0x80000002), 7, 0}) {
    tvxSetOperationMode(mode);
    EXPECT_EQ(tvxImplTable[362], 6u);
    EXPECT_EQ(tvxImplTable[363], 4u);
    EXPECT_EQ(tvxInternalImplTable[TVX_IROW_tvxRegisterBuf], 5u);
    for (uint32_t slot = 0; slot < 7; ++slot) EXPECT_EQ(tvxFuncTable[362][slot], nullptr);
  }
}

TEST_F(ModeTest, UnsupportedTargetStaysOnTheReferenceTier) {
  tvx_set_cpu_record_for_test({1, TVX_HW_ARCH7 | TVX_HW_FP | TVX_HW_SIMD, 0x99, 0});
  EXPECT_EQ(tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE), 0);
  EXPECT_EQ(CountTier(0), TVX_NUM_ROWS);
  // Extended CPU values do not need a supported target.
  EXPECT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_CPU), 0);
  EXPECT_EQ(tvxImplTable[TVX_ROW_tvxAddu8], 1u);
}

TEST_F(ModeTest, CpuWithoutSimdOrFloatingPointIsRefused) {
  tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE);
  tvx_set_cpu_record_for_test({1, 0, 0x41, 0});
  EXPECT_EQ(tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE), 999);
  EXPECT_EQ(tvxImplTable[TVX_ROW_tvxAddu8], 1u);  // tables unchanged
}

TEST_F(ModeTest, CpuOnlyPlatformRunsTheCpuPerformanceMode) {
  tvx_set_cpu_record_for_test({1, TVX_HW_ARCH7 | TVX_HW_FP | TVX_HW_SIMD, 0x41, 1});
  EXPECT_EQ(tvxSetOperationMode(TAVIX_OP_LOW_POWER), 0);
  EXPECT_EQ(mode_globalVar, TAVIX_OP_CPU_PERFORMANCE);
  const std::string msg =
      "tavix_lib_log|DSP and GPU not present. Setting TAVIX mode to TAVIX_OP_CPU_PERFORMANCE.\n";
  EXPECT_EQ(std::count(g_lines.begin(), g_lines.end(), msg), 1);
  g_lines.clear();
  EXPECT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_REFERENCE), 0);  // the one value left alone
  EXPECT_EQ(mode_globalVar, TAVIX_OP_EXT_REFERENCE);
  EXPECT_EQ(std::count(g_lines.begin(), g_lines.end(), msg), 0);
}

TEST_F(ModeTest, ExtendedOptionSelectsRdspOrGpuAndRejectsOthers) {
  EXPECT_EQ(tvxSetOperationModeExt(0), 0);
  EXPECT_EQ(mode_globalVar, TAVIX_OP_EXT_RDSP);
  EXPECT_EQ(tvxSetOperationModeExt(1), 0);
  EXPECT_EQ(mode_globalVar, TAVIX_OP_EXT_GPU);
  g_lines.clear();
  EXPECT_EQ(tvxSetOperationModeExt(2), 1);
  ASSERT_EQ(g_lines.size(), 3u);
  EXPECT_EQ(g_lines[0], "tavix_lib_log|Failed in tvxSetOperationModeExt. Please select appropriate option for mode "
                        "to tvxSetOperationModeExt based on the target of interest");
  EXPECT_EQ(g_lines[2], "tavix_lib_log|For non mobile targets(IOT or HBX), tvxSetOperationModeExt supports "
                        "TAVIX_OP_EXT_RDSP, TAVIX_OP_EXT_GPU, TAVIX_OP_EXT_ADSP, TAVIX_OP_EXT_CDSP and "
                        "TAVIX_OP_EXT_MDSP  options");
}

TEST_F(ModeTest, TracingFollowsTheLogPropertyAtEveryModeSelection) {
  setenv("VENDOR_RUNTIME_TAVIX_LOG", "1", 1);
  tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE);
  EXPECT_EQ(libLogPrint, 1);
  g_lines.clear();
  uint8_t x = 1, y = 2, out = 0;
  tvxAddu8(&x, 1, 1, 1, &y, 1, 0, &out, 1);
  EXPECT_EQ(g_lines, std::vector<std::string>{"tavix_runtime_log|tvxAddu8_LANES"});
  setenv("VENDOR_RUNTIME_TAVIX_LOG", "0", 1);
  tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE);
  EXPECT_EQ(libLogPrint, 0);
  unsetenv("VENDOR_RUNTIME_TAVIX_LOG");
}

// ---- manager and index functions ---------------------------------------------------------

TEST(ManagerTest, IndexFunctionsValidateTheirManager) {
  uint32_t impl[4] = {}, internalImpl[16] = {};
  void* slots[4 * 7] = {};
  void* internalSlots[16 * 7] = {};
  slots[2 * 7 + 5] = reinterpret_cast<void*>(&tvxAddu8C);  // row 2 has a compute-DSP stub
  internalSlots[11 * 7 + 5] = reinterpret_cast<void*>(&tvxAddu8C);  // so has internal row 11
  TVX_FUNC_MANAGER m = {impl, 4, slots, internalImpl, 16, internalSlots, 7};
  EXPECT_EQ(uQacmIndex(nullptr, 5), 1);
  EXPECT_EQ(uQacmIndex(&m, 7), 4);
  EXPECT_EQ(impl[2], 0u);
  EXPECT_EQ(uQacmIndex(&m, 5), 0);
  EXPECT_EQ(impl[2], 5u);
  EXPECT_EQ(impl[1], 0u);
  EXPECT_EQ(internalImpl[11], 5u);
  EXPECT_EQ(internalImpl[10], 0u) << "an internal row without a stub in the slot must not move";
  EXPECT_EQ(internalImpl[8], 0u);
  TVX_FUNC_MANAGER noImpl = m;
  noImpl.implTable = nullptr;
  EXPECT_EQ(uQacmIndex(&noImpl, 5), 2);
  EXPECT_EQ(uQcTable(&m, 7), 4);
  EXPECT_EQ(uGTable(nullptr, 3), 1);
  EXPECT_EQ(uGIndex(nullptr), 1);
}

TEST(ManagerTest, RegistrationRejectsNullTablesAndKeepsThePreviousMaster) {
  uint32_t impl[1] = {}, internalImpl[1] = {};
  void* slots[7] = {};
  void* internalSlots[7] = {};
  TVX_FUNC_MANAGER good = {impl, 1, slots, internalImpl, 1, internalSlots, 7};
  TVX_FUNC_MANAGER* before = tvxMasterFuncManager();
  ASSERT_EQ(tvxInitializeMasterFuncManager(&good), 0);
  TVX_FUNC_MANAGER bad = good;
  bad.internalFuncTable = nullptr;
  EXPECT_EQ(tvxInitializeMasterFuncManager(&bad), 1);
  EXPECT_EQ(tvxInitializeMasterFuncManager(nullptr), 1);
  EXPECT_EQ(tvxMasterFuncManager(), &good);
  if (before) tvxInitializeMasterFuncManager(before);
}

// ---- lifecycle ---------------------------------------------------------------------------

TEST(LifecycleTest, VersionNeedsSixBytesAndZeroFillsShorterBuffers) {
  char buf[8];
  std::memset(buf, 'x', sizeof buf);
  tvxGetVersion(buf, 5);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(buf[i], 0);
  EXPECT_EQ(buf[5], 'x');
  tvxGetVersion(buf, 6);
  EXPECT_STREQ(buf, "1.7.1");
  tvxGetVersion(nullptr, 6);  // ignored
}

TEST(LifecycleTest, CleanUpKeepsTiersAndClearsHooks) {
  tvx_set_cpu_record_for_test(kArmNeon);
  tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE);
  tvxSharedMemFree_ = [](void*) -> int32_t { return 0; };
  EXPECT_EQ(tvxCleanUp(), 0);
  EXPECT_EQ(tvxSharedMemFree_, nullptr);
  EXPECT_EQ(tvxImplTable[TVX_ROW_tvxAddu8], 1u);
  EXPECT_EQ(GPU_initflag, 0u);
  EXPECT_EQ(RDSP_initflag, 0u);
  std::memset(tvxImplTable, 0, sizeof tvxImplTable);
}

}  // namespace
