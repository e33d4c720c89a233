// DSP session: the failed session without a DSP, counted domain channels, the session's mode
// and version check against a fake DSP, the domain switch of the hardware probe, restart
// recovery and the optional platform library.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "frame/frame.h"
#include "frame/hw.h"
#include "log_capture.h"
#include "remote/session.h"
#include "remote/shared_mem.h"

namespace {

using tvxtest::g_lines;

// A DSP behind a channel: calls on a handle it did not open fail; opening fails for the
// domains named in failDomains.
struct FakeDsp {
  std::mutex mutex;
  std::vector<std::string> uris;
  std::set<uint64_t> open;
  uint64_t nextHandle = 0x12345678'00000001ull;  // both halves nonzero
  int closes = 0, deinits = 0;
  std::vector<uint64_t> initHandles;
  std::vector<int32_t> initModes;  // the mode attribute's value, -1 when none was passed
  std::string failDomains, version = "1.7.1";
  int32_t clockStatus = -1;
  int32_t OnOpen(uint64_t handle, int32_t status) { return open.count(handle) ? status : 8; }
};
FakeDsp* g_dsp = nullptr;

const TvxDspStub kFakeStub = {
    [](const char* uri, uint64_t* handle) -> int32_t {
      std::lock_guard<std::mutex> lock(g_dsp->mutex);
      g_dsp->uris.push_back(uri);
      if (g_dsp->failDomains.find(g_dsp->uris.back().substr(g_dsp->uris.back().size() - 4)) != std::string::npos) return 7;
      g_dsp->open.insert(*handle = g_dsp->nextHandle++);
      return 0;
    },
    [](uint64_t handle) -> int32_t {
      std::lock_guard<std::mutex> lock(g_dsp->mutex);
      ++g_dsp->closes;
      return g_dsp->open.erase(handle) == 1 ? 0 : 9;
    },
    [](uint32_t low, uint32_t high, const tavixdsp_attribute* attributes, int32_t count) -> int32_t {
      std::lock_guard<std::mutex> lock(g_dsp->mutex);
      g_dsp->initHandles.push_back(tavixdsp_handle(low, high));
      g_dsp->initModes.push_back(attributes != nullptr && count == 1 && attributes[0].id == 3 ? attributes[0].value : -1);
      return g_dsp->OnOpen(tavixdsp_handle(low, high), 0);
    },
    [](uint32_t low, uint32_t high) -> int32_t {
      std::lock_guard<std::mutex> lock(g_dsp->mutex);
      ++g_dsp->deinits;
      return g_dsp->OnOpen(tavixdsp_handle(low, high), 0);
    },
    [](uint32_t low, uint32_t high, char* version, int32_t length) -> int32_t {
      snprintf(version, static_cast<size_t>(length), "%s", g_dsp->version.c_str());
      return g_dsp->OnOpen(tavixdsp_handle(low, high), 0);
    },
    [](uint32_t low, uint32_t high, uint64_t* clock) -> int32_t {
      *clock = 1;
      return g_dsp->OnOpen(tavixdsp_handle(low, high), g_dsp->clockStatus);
    },
};

size_t CountOf(const std::string& line) { return std::count(g_lines.begin(), g_lines.end(), line); }

bool HasPrefix(const std::string& prefix) {
  return std::any_of(g_lines.begin(), g_lines.end(), [&](const std::string& l) { return l.rfind(prefix, 0) == 0; });
}

std::string Pointer(const void* p) {
  char text[32];
  snprintf(text, sizeof text, "%p", p);
  return text;
}

class SessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    unsetenv("TAVIX_DSP_SOCKET");
    g_lines.clear();
    tvx_set_log_sink(&tvxtest::Capture);
  }
  void UseFakeDsp() {
    g_dsp = &dsp_;
    tvx_set_dsp_stub_for_test(&kFakeStub);
  }
  void TearDown() override {
    tvxCleanUpHW();
    tvx_set_dsp_stub_for_test(nullptr);
    g_dsp = nullptr;
    setDefaultDSPValue(1);
    unsetenv("VENDOR_RUNTIME_TAVIX_DSP_RESTART_PAUSE_MS");
    RDSP_initflag = 0;
    tvx_set_log_sink(nullptr);
    // Every channel the test opened is closed again, once.
    EXPECT_EQ(adspDomainHandle_count + cdspDomainHandle_count + mdspDomainHandle_count, 0);
    EXPECT_TRUE(dsp_.open.empty());
  }
  FakeDsp dsp_;
};

TEST_F(SessionTest, WithoutADspTheSessionFailsAndIsRetriedOnlyAfterDeinit) {
  EXPECT_EQ(MOLAR6_init(1, "1.7.1"), -1);
  EXPECT_EQ(CountOf("tavix_lib_log|\nError: tavixdsp domain open failed on CDSP"), 1u);
  EXPECT_EQ(CountOf("tavix_lib_log|R6 initialized failed. R6 Tavix functions are disabled."), 1u);
  EXPECT_FALSE(MOLAR6_is_ready());
  EXPECT_EQ(MOLAR6_get_current_mode(), -1);

  g_lines.clear();
  EXPECT_EQ(MOLAR6_init(1, "1.7.1"), -1);
  EXPECT_TRUE(g_lines.empty()) << "a failed session is not tried again";

  MOLAR6_deinit();
  EXPECT_EQ(cdspDomainHandle_count, 0);
  g_lines.clear();
  EXPECT_EQ(MOLAR6_init(1, "1.7.1"), -1);
  EXPECT_EQ(CountOf("tavix_lib_log|\nError: tavixdsp domain open failed on CDSP"), 1u);
}

TEST_F(SessionTest, SessionOpensTheDefaultDomainInTheRequestedModeAndSwitchesModes) {
  UseFakeDsp();
  ASSERT_EQ(MOLAR6_init(2, "1.7.1"), 0);
  const uint64_t handle = cdsp_domain_handle;
  const std::string at = Pointer(&cdsp_domain_handle);
  EXPECT_EQ(dsp_.uris, std::vector<std::string>{"file:///libtavixdsp_skel.so?tavixdsp_skel_handle_invoke&_modver=1.0&_dom=cdsp"});
  EXPECT_EQ(dsp_.initHandles, std::vector<uint64_t>{handle});
  EXPECT_EQ(dsp_.initModes, std::vector<int32_t>{2});
  EXPECT_EQ(MOLAR6_get_current_mode(), 2);
  for (const std::string& line :
       {"tavix_lib_log|Begin of domain_channel_open cdsp_domain_handle=" + at + "  value of cdsp_domain_handle=0\n",
        "tavix_lib_log|Domain open is successful on CDSP. cdsp_domain_handle address=" + at +
            "  cdsp_domain_handle value=" + std::to_string(handle) + "\n",
        std::string("tavix_lib_log|End of domain_channel_open for CDSP \n"),
        std::string("tavix_lib_log|In tvxR6SessionInit : attrib.value=2  \n"),
        std::string("tavix_lib_log|R6 initialized successfully. R6 Tavix functions mode 2 are enabled."),
        std::string("tavix_lib_log|FIT:(FeatureName=>MOLAR6, Initialized=>1)")}) {
    EXPECT_EQ(CountOf(line), 1u) << line;
  }
  EXPECT_TRUE(HasPrefix("tavix_lib_log|Begin of tvxR6SessionInit_internal dsp_handle=" + std::to_string(handle) + " "));

  EXPECT_EQ(MOLAR6_init(2, "1.7.1"), 0);  // same mode: nothing to do
  EXPECT_EQ(dsp_.uris.size(), 1u);

  g_lines.clear();
  EXPECT_EQ(MOLAR6_init(0, "1.7.1"), 0);  // another mode: down and up again
  EXPECT_EQ(CountOf("tavix_lib_log|MOLAR6_deinit"), 1u);
  EXPECT_EQ(CountOf("tavix_lib_log|Succesfully closed channel for cdsp_domain_handle \n"), 1u);
  EXPECT_EQ(dsp_.closes, 1);
  EXPECT_EQ(dsp_.initModes.back(), 0);

  MOLAR6_deinit();
  EXPECT_EQ(MOLAR6_init(5, "1.7.1"), 0);  // no DSP mode attribute for other modes
  EXPECT_EQ(dsp_.initModes.back(), -1);
}

TEST_F(SessionTest, MajorVersionsMustAgreeInTheirFirstTwoCharacters) {
  UseFakeDsp();
  dsp_.version = "2.1.0";
  EXPECT_EQ(MOLAR6_init(1, "1.7.1"), -1);
  EXPECT_TRUE(HasPrefix("tavix_lib_log|Unmatch CPU and R6 major version. CPU version is 1.7.1, R6 version is 2.1.0  "));
  EXPECT_EQ(tvxSelectRDSP6Mode(1), -1);
  EXPECT_EQ(RDSP_initflag, 0u);

  MOLAR6_deinit();
  dsp_.version = "1.9.0";
  EXPECT_EQ(tvxSelectRDSP6Mode(1), 1);
  EXPECT_EQ(RDSP_initflag, 1u);
  EXPECT_EQ(tvxR6SessionInit_internal(cdsp_domain_handle, nullptr, 0, nullptr), -1) << "no version to compare";
  EXPECT_EQ(tvxR6SessionInit_internal_mdsp(nullptr, 0, "1.7.1"), -1) << "no channel";
  EXPECT_EQ(CountOf("tavix_lib_log|tavixdsp_tvxR6SessionInit failed"), 1u);
}

TEST_F(SessionTest, ChannelOpensOnFirstUseAndClosesWhenTheLastUserCloses) {
  UseFakeDsp();
  domain_channel_open_adsp();
  domain_channel_open_adsp();
  domain_channel_close_adsp();
  EXPECT_NE(adsp_domain_handle, 0u) << "two opens and one close keep the channel";
  EXPECT_EQ(dsp_.uris.size(), 1u);
  EXPECT_EQ(dsp_.deinits, 1) << "every close deinitialises the DSP side";
  domain_channel_close_adsp();
  EXPECT_EQ(adsp_domain_handle, 0u);
  EXPECT_EQ(dsp_.closes, 1);
  domain_channel_close_adsp();  // unbalanced: the count stays at 0, nothing is closed twice
  EXPECT_EQ(adspDomainHandle_count, 0);
  EXPECT_EQ(dsp_.closes, 1);

  setDefaultDSPValue(7);
  EXPECT_EQ(MOLAR6_init(1, "1.7.1"), -1);
  EXPECT_EQ(CountOf("tavix_lib_log|defaultDSP flag not set for the following function domain_channel_open."), 1u);
  EXPECT_EQ(dsp_.uris.size(), 1u);
  MOLAR6_deinit();
  setDefaultDSPValue(1);

  // Threads opening and closing the same channel never double-close or leak it.
  tvx_set_log_sink([](int, const char*, const char*) {});
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 3000; ++i) {
        domain_channel_open_cdsp();
        domain_channel_close_cdsp();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(cdsp_domain_handle, 0u);
  EXPECT_EQ(static_cast<size_t>(dsp_.closes), dsp_.uris.size()) << "one close per open";
}

TEST_F(SessionTest, ProbeMapsModesAndFollowsTheDefaultDomain) {
  UseFakeDsp();
  const std::pair<int32_t, int32_t> modes[] = {{0, 0}, {1, 2}, {2, 1}, {3, 1}, {7, 1}, {TAVIX_OP_EXT_RDSP, 2}};
  for (auto [mode, dspMode] : modes) {
    EXPECT_EQ(tvxAvailableHWComponent(mode), TVX_HW_DSP);
    EXPECT_EQ(MOLAR6_get_current_mode(), dspMode) << mode;
  }
  EXPECT_EQ(tvxSharedMemAlloc_, &tvxSharedMemAllocQ);
  const size_t opens = dsp_.uris.size();
  EXPECT_EQ(tvxAvailableHWComponent(TAVIX_OP_EXT_RDSP), TVX_HW_DSP);
  EXPECT_EQ(dsp_.uris.size(), opens) << "a ready session in the same mode is kept";

  setDefaultDSPValue(0);
  EXPECT_EQ(tvxAvailableHWComponent(TAVIX_OP_EXT_RDSP), TVX_HW_DSP);
  EXPECT_EQ(cdsp_domain_handle, 0u);
  EXPECT_NE(adsp_domain_handle, 0u);

  setDefaultDSPValue(7);
  g_lines.clear();
  EXPECT_EQ(tvxAvailableHWComponent(TAVIX_OP_EXT_RDSP), 0u);
  EXPECT_TRUE(HasPrefix("tavix_lib_log|Unknown DSP type selected."));
  EXPECT_TRUE(MOLAR6_is_ready()) << "the session stays on its domain";

  dsp_.failDomains = "mdsp";
  setDefaultDSPValue(2);
  EXPECT_EQ(tvxAvailableHWComponent(TAVIX_OP_EXT_RDSP), 0u);
  EXPECT_TRUE(HasPrefix("tavix_lib_log|Failed to open channel on MDSP!! MDSP does not support Domains on this target "));
}

TEST_F(SessionTest, RestartRecoveryReloadsTheChannel) {
  UseFakeDsp();
  setenv("VENDOR_RUNTIME_TAVIX_DSP_RESTART_PAUSE_MS", "20", 1);
  ASSERT_EQ(MOLAR6_init(1, "1.7.1"), 0);
  const uint64_t stale = cdsp_domain_handle;

  dsp_.clockStatus = 0;
  EXPECT_EQ(adspSSRcleanUpSequence(tavixdsp_low(stale), tavixdsp_high(stale)), 0);
  EXPECT_EQ(CountOf("tavix_lib_log|R6 already up. Skipping reload."), 1u);
  EXPECT_EQ(dsp_.closes, 0);

  dsp_.clockStatus = 104;
  dsp_.initHandles.clear();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(adspSSRcleanUpSequence(tavixdsp_low(stale), tavixdsp_high(stale)), -1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(15 * 20)) << "pause per round";
  EXPECT_EQ(dsp_.closes, 1);
  EXPECT_NE(cdsp_domain_handle, stale);
  EXPECT_EQ(dsp_.initHandles, std::vector<uint64_t>(15, cdsp_domain_handle)) << "rounds use the reopened channel";
  EXPECT_EQ(dsp_.initModes.back(), -1);
  EXPECT_EQ(CountOf("tavix_lib_log|Trying to reinitialize DSP."), 15u);
  EXPECT_EQ(CountOf("tavix_lib_log|Stub reloaded successfully."), 1u);

  g_lines.clear();
  EXPECT_EQ(adspSSRcleanUpSequence(0, 0), -1);
  EXPECT_EQ(dsp_.closes, 11);
  EXPECT_EQ(CountOf("tavix_lib_log|Trying to reload R6 stub."), 10u);
  EXPECT_EQ(cdspDomainHandle_count, 1) << "the session still holds its one reference";
}

TEST_F(SessionTest, PlatformLibraryAbsentOnTheHost) {
  EXPECT_EQ(tvxPlatformOptLoad(), -1);
  EXPECT_EQ(CountOf("tvx|Loading from: /data/local/libtvxopt.so\n"), 1u);
  EXPECT_TRUE(HasPrefix("tavix_PLATFORM|dlopen for /data/local/libtvxopt.so failed!\n Error:"));
  EXPECT_EQ(tvxPlatformOptGetFunc("tvxOptInit"), nullptr);
  EXPECT_TRUE(HasPrefix("tavix_PLATFORM|dlsym for tvxOptInit failed! \n Error:"));
  EXPECT_EQ(tvxPlatformOptClose(), 0);
}

}  // namespace
