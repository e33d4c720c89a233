// The remote tiers end to end, through the real host DSP process: session and version check,
// channel counting, fallback on a failing DSP, restart recovery, a DSP that dies under load,
// every operation's remote run against its reference run (copied and zero-copy buffers), and
// the host DSP's handling of malformed messages.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <dirent.h>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <vector>

#include "frame/frame.h"
#include "frame/hw.h"
#include "host_dsp.h"
#include "log_capture.h"
#include "remote/remote_call.h"
#include "remote/session.h"
#include "remote/shared_mem.h"
#include "stub/call.h"
#include "wire.h"

#include "samples.inc"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;
using tvxtest::HostDsp;

int OpenDescriptors() {
  int n = 0;
  DIR* d = opendir("/proc/self/fd");
  while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
  closedir(d);
  return n - 1;  // the directory stream itself
}

size_t CountLines(const std::string& text) {
  size_t n = 0;
  for (const std::string& l : g_lines) n += l.find(text) != std::string::npos;
  return n;
}

uint64_t DspCalls(int32_t op, uint64_t* bytes = nullptr) {
  uint64_t calls = 0, copied = 0;
  EXPECT_TRUE(tvx_host_dsp_stats(static_cast<uint32_t>(op), &calls, &copied));
  if (bytes) *bytes = copied;
  return calls;
}

// Sample buffers, either heap vectors or blocks from tvxMemAlloc (shared memory once a DSP
// session installed the remote allocator).
struct Buffers {
  static constexpr size_t kBytes = 64 * 1024;
  std::vector<std::vector<uint8_t>> heap;
  std::vector<uint8_t*> shared;
  TvxSample sample{};
  Buffers(uint32_t width, uint32_t height, uint32_t pad, bool useShared, size_t bytes = kBytes) : bytes_(bytes) {
    for (int i = 0; i < TVX_SAMPLE_BUFFERS; ++i) {
      uint8_t* p;
      if (useShared) {
        p = static_cast<uint8_t*>(tvxMemAlloc(static_cast<uint32_t>(bytes), 64));
        shared.push_back(p);
      } else {
        heap.emplace_back(bytes);
        p = heap.back().data();
      }
      // Small non-zero bytes, and every fourth near 0x3F so floats stay normal and moderate.
      for (size_t j = 0; j < bytes; ++j)
        p[j] = static_cast<uint8_t>(j % 4 == 3 ? 0x3E + (j / 4 + i) % 3 : (j * 7 + i * 13 + j / 97) % 61 + 1);
      sample.buf[i] = p;
    }
    sample.width = width;
    sample.height = height;
    sample.pad = pad;
  }
  ~Buffers() {
    for (uint8_t* p : shared) tvxMemFree(p);
  }
  bool Same(const Buffers& o, int* which) const {
    for (int i = 0; i < TVX_SAMPLE_BUFFERS; ++i) {
      if (memcmp(sample.buf[i], o.sample.buf[i], bytes_) != 0) {
        *which = i;
        return false;
      }
    }
    return true;
  }

 private:
  size_t bytes_;
};

class RemoteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("VENDOR_RUNTIME_TAVIX_DSP_RESTART_PAUSE_MS", "1", 1);
    setenv("TAVIX_DSP_TIMEOUT_MS", "3000", 1);
    g_lines.clear();
  }
  void TearDown() override {
    tvx_set_log_sink(nullptr);
    unsetenv("VENDOR_RUNTIME_TAVIX_LOG");
    tvxCleanUp();
    setDefaultDSPValue(1);
    tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE);
  }
};

// Runs one sample call on the reference tier and on the remote tiers the current mode chose.
void ExpectRemoteEqualsReference(const TvxSampleEntry& e, Buffers& remote, Buffers& reference, int32_t remoteMode,
                                 int64_t* result) {
  tvxSetOperationMode(TAVIX_OP_EXT_REFERENCE);
  const int64_t r0 = e.call(reference.sample);
  tvxSetOperationMode(remoteMode);
  *result = e.call(remote.sample);
  EXPECT_EQ(r0, *result);
  int which = -1;
  EXPECT_TRUE(remote.Same(reference, &which)) << "buffer " << which << " differs";
}

struct MedianCase {
  std::vector<uint8_t> src = std::vector<uint8_t>(48 * 20), expected = std::vector<uint8_t>(48 * 20),
                       dst = std::vector<uint8_t>(48 * 20);
  MedianCase() {
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>((i * 131) ^ (i >> 3));
    tvxFilterMedian3x3u8_v3C(src.data(), 48, 20, 48, expected.data(), 48, 2, 0);
  }
  int32_t Run() { return tvxFilterMedian3x3u8_v3(src.data(), 48, 20, 48, dst.data(), 48, 2, 0); }
  // One call on a cleared destination: it succeeds and gives the reference result, whichever
  // tier ended up serving it.
  void ExpectCorrect() {
    dst.assign(dst.size(), 0);
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(dst, expected);
  }
};

// ---- session, modes and channels -------------------------------------------------------------

TEST_F(RemoteTest, OffloadModeOpensSessionChoosesComputeTierAndCleanUpClosesIt) {
  {
    unsetenv("TAVIX_DSP_SOCKET");
    EXPECT_EQ(tvxSetOperationMode(TAVIX_OP_CPU_OFFLOAD), 0);
    EXPECT_EQ(tvxAvailableHardware(TAVIX_OP_CPU_OFFLOAD) & TVX_HW_DSP, 0u) << "no host DSP, no DSP bit";
    EXPECT_NE(tvxImplTable[TVX_ROW_tvxFilterGaussian3x3u8], 5u);
    EXPECT_EQ(tvxSharedMemAlloc_, nullptr);
  }
  HostDsp dsp;
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_CPU_OFFLOAD), 0);
  EXPECT_TRUE(MOLAR6_is_ready());
  EXPECT_EQ(MOLAR6_get_current_mode(), 1);
  EXPECT_EQ(RDSP_initflag, 1u);
  EXPECT_EQ(tvxImplTable[TVX_ROW_tvxFilterGaussian3x3u8], 5u) << "offload set on the compute DSP";
  EXPECT_EQ(tvxImplTable[TVX_ROW_tvxAbsDiffu8], 1u) << "outside the set: SIMD";
  EXPECT_EQ(tvxInternalImplTable[TVX_IROW_probeR6Time], 5u);
  EXPECT_EQ(tvxFuncTable[TVX_ROW_tvxFilterGaussian3x3u8][5], reinterpret_cast<void*>(&tvxFilterGaussian3x3u8_v2Qc));
  EXPECT_EQ(tvxFilterGaussian3x3u8_v2R_, &tvxFilterGaussian3x3u8_v2Q);
  EXPECT_EQ(tvxAbsDiffu8R_, nullptr);
  EXPECT_EQ(probeR6TimeR_, &probeR6TimeQ);
  EXPECT_NE(tvxSharedMemAlloc_, nullptr);
  // The clock probe row runs on the DSP and answers its wall clock.
  EXPECT_GT(probeR6Time(), int64_t{1600000000} * 1000000);
  EXPECT_EQ(probeR6TimeC(), 0);

  EXPECT_EQ(tvxCleanUp(), 0);
  EXPECT_FALSE(MOLAR6_is_ready());
  EXPECT_EQ(cdsp_domain_handle, 0u);
  EXPECT_EQ(tvxSharedMemAlloc_, nullptr);
  EXPECT_EQ(tvxImplTable[TVX_ROW_tvxFilterGaussian3x3u8], 5u) << "clean-up keeps the tiers";
}

TEST_F(RemoteTest, MajorVersionMustMatchInItsFirstTwoCharacters) {
  tvx_set_log_sink(&Capture);
  {
    HostDsp dsp({"--version", "2.1.0"});
    EXPECT_EQ(tvxSetOperationMode(TAVIX_OP_CPU_OFFLOAD), 0);
    EXPECT_FALSE(MOLAR6_is_ready());
    EXPECT_EQ(tvxImplTable[TVX_ROW_tvxFilterGaussian3x3u8], 1u);
    EXPECT_EQ(CountLines("Unmatch CPU and R6 major version. CPU version is 1.7.1, R6 version is 2.1.0"), 1u);
    // A failed session stays failed: no new attempt, no new channel.
    g_lines.clear();
    EXPECT_EQ(MOLAR6_init(1, "1.7.1"), -1);
    EXPECT_EQ(CountLines("domain_channel_open"), 0u);
    tvxCleanUp();
  }
  HostDsp dsp({"--version", "1.9.0"});
  EXPECT_EQ(MOLAR6_init(1, "1.7.1"), 0) << "after clean-up (deinit) it tries again";
  EXPECT_TRUE(MOLAR6_is_ready());
}

TEST_F(RemoteTest, ChannelStaysOpenUntilEveryOpenIsClosed) {
  HostDsp dsp;
  ASSERT_EQ(domain_channel_open_cdsp(), 0);
  const uint64_t handle = cdsp_domain_handle;
  ASSERT_NE(handle, 0u);
  EXPECT_NE(handle >> 32, 0u) << "both halves of the handle carry information";
  EXPECT_EQ(domain_channel_open_cdsp(), 0);
  EXPECT_EQ(cdsp_domain_handle, handle);
  domain_channel_close_cdsp();
  ASSERT_EQ(cdsp_domain_handle, handle);
  char version[10] = {};
  EXPECT_EQ(tavixdsp_tvxGetVersionQ(tavixdsp_low(handle), tavixdsp_high(handle), version, sizeof version), 0);
  EXPECT_STREQ(version, "1.7.1");
  domain_channel_close_cdsp();
  EXPECT_EQ(cdsp_domain_handle, 0u);
  EXPECT_NE(tavixdsp_tvxGetVersionQ(tavixdsp_low(handle), tavixdsp_high(handle), version, sizeof version), 0);
}

TEST_F(RemoteTest, ModemDomainExtendedModeMovesEveryStubbedRowAndClearsTheCheckFlag) {
  HostDsp dsp;
  setDefaultDSPValue(2);
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_RDSP), 0);
  EXPECT_EQ(HW_constraint_checks_enable, 0u);
  EXPECT_EQ(R6_constraint_checks_enable, 0u);
  for (const TvxSampleEntry& e : kTvxSamples) {
    if (e.dspOp < 0) continue;
    EXPECT_EQ(tvxImplTable[e.row], 6u) << e.name;
    EXPECT_NE(tvxFuncTable[e.row][6], nullptr) << e.name;
  }
  EXPECT_EQ(tvxImplTable[TVX_ROW_tvxImageDetectEdgePixelsu8], 6u);
  // A call lands on the modem DSP's channel.
  const uint64_t before = DspCalls(TVX_ROW_tvxFilterMedian3x3u8);
  uint8_t src[16 * 16], dst[16 * 16] = {};
  for (int i = 0; i < 256; ++i) src[i] = static_cast<uint8_t>(i * 37);
  tvxFilterMedian3x3u8(src, 16, 16, dst);
  EXPECT_EQ(DspCalls(TVX_ROW_tvxFilterMedian3x3u8), before + 1);
  EXPECT_NE(mdsp_domain_handle, 0u);
  EXPECT_EQ(cdsp_domain_handle, 0u);
}

TEST_F(RemoteTest, RemoteLibraryModeKeepsTheTablesAndClearsTheRemotePointers) {
  HostDsp dsp;
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_CPU_OFFLOAD), 0);
  ASSERT_EQ(tvxFilterGaussian3x3u8_v2R_, &tvxFilterGaussian3x3u8_v2Q);
  tvxImplTable[TVX_ROW_tvxAbsDiffu8] = 0;  // a tier the remote-library mode must not reset
  ASSERT_EQ(tvxInitRemoteLib(TAVIX_OP_EXT_RDSP), 0);
  EXPECT_EQ(tvxFilterGaussian3x3u8_v2R_, nullptr);
  EXPECT_EQ(HW_constraint_checks_enable, 0u);
  EXPECT_EQ(tvxImplTable[TVX_ROW_tvxFilterMedian3x3u8], 5u);
  EXPECT_EQ(tvxImplTable[TVX_ROW_tvxAbsDiffu8], 5u);
  tvx_set_log_sink(&Capture);
  setDefaultDSPValue(9);
  EXPECT_EQ(tvxInitRemoteLib(TAVIX_OP_EXT_RDSP), 0);
  EXPECT_EQ(CountLines("defaultDSP flag is not set. Hence unable to set memory pointers for Tavix functions"), 1u);
  EXPECT_EQ(CountLines("defaultDSP flag is not set. Hence unable to set index for Tavix functions"), 1u);
}

// A buffer the application maps itself and registers through the registration row crosses by
// reference; the cache operation reaches the DSP's view of it.
TEST_F(RemoteTest, BufferRegisteredThroughTheRegistrationRowIsNotCopied) {
  HostDsp dsp;
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_CPU_OFFLOAD), 0);
  ASSERT_EQ(tvxInternalImplTable[TVX_IROW_tvxRegisterBuf], 5u);
  constexpr uint32_t kBytes = 2 * 48 * 20;
  const int fd = memfd_create("tavix-test", MFD_CLOEXEC);
  ASSERT_EQ(ftruncate(fd, 4096), 0);
  auto* block = static_cast<uint8_t*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
  ASSERT_NE(block, MAP_FAILED);
  EXPECT_EQ(tvxRegisterBuf(block, 4096, fd), 0);
  MedianCase m;
  memcpy(block, m.src.data(), m.src.size());
  tvxSetOperationMode(TAVIX_OP_EXT_RDSP);
  uint64_t bytesBefore = 0, bytesAfter = 0;
  DspCalls(TVX_ROW_tvxFilterMedian3x3u8_v3, &bytesBefore);
  EXPECT_EQ(tvxFilterMedian3x3u8_v3(block, 48, 20, 48, block + 48 * 20, 48, 2, 0), 0);
  DspCalls(TVX_ROW_tvxFilterMedian3x3u8_v3, &bytesAfter);
  EXPECT_EQ(bytesAfter - bytesBefore, 0u);
  EXPECT_EQ(0, memcmp(block + 48 * 20, m.expected.data(), m.expected.size()));
  EXPECT_EQ(tvx_cache_flush_invalidateQ(block, kBytes), 0);
  EXPECT_EQ(tvxRegisterBuf(block, 4096, -1), 0);  // unregistered: copied again
  DspCalls(TVX_ROW_tvxFilterMedian3x3u8_v3, &bytesBefore);
  EXPECT_EQ(tvxFilterMedian3x3u8_v3(block, 48, 20, 48, block + 48 * 20, 48, 2, 0), 0);
  DspCalls(TVX_ROW_tvxFilterMedian3x3u8_v3, &bytesAfter);
  EXPECT_EQ(bytesAfter - bytesBefore, 3u * 48 * 20) << "source in, destination in and out";
  munmap(block, 4096);
  close(fd);
}

// ---- failures and restart recovery ----------------------------------------------------------


TEST_F(RemoteTest, FailingDspStatusFallsBackToTheSimdTier) {
  HostDsp dsp({"--fail-status", "5"});
  setenv("VENDOR_RUNTIME_TAVIX_LOG", "1", 1);
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_RDSP), 0);
  tvx_set_log_sink(&Capture);
  MedianCase m;
  m.ExpectCorrect();
  EXPECT_EQ(CountLines("tavix_runtime_log|tvxFilterMedian3x3u8_v3_CDSP"), 1u) << "the call was routed to the DSP";
  EXPECT_EQ(DspCalls(TVX_ROW_tvxFilterMedian3x3u8_v3), 0u) << "and the DSP refused it";
}

TEST_F(RemoteTest, OneRestartWithTheDspBackUpRetriesRemotelyAndKeepsTheMode) {
  HostDsp dsp({"--restart-once"});
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_RDSP), 0);
  tvx_set_log_sink(&Capture);
  MedianCase m;
  m.ExpectCorrect();
  EXPECT_EQ(CountLines("DSP SSR cleanup sequence initiated."), 1u);
  EXPECT_EQ(CountLines("R6 already up. Skipping reload."), 1u);
  EXPECT_EQ(DspCalls(TVX_ROW_tvxFilterMedian3x3u8_v3), 1u) << "the repeated call ran on the DSP";
  EXPECT_EQ(mode_globalVar, TAVIX_OP_EXT_RDSP);
  EXPECT_EQ(tvxImplTable[TVX_ROW_tvxFilterMedian3x3u8_v3], 5u) << "the mode was reapplied";
}

TEST_F(RemoteTest, RestartEveryTimeEndsOnTheSimdTierAfterFiveRecoveries) {
  HostDsp dsp({"--restart-every", "1"});
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_RDSP), 0);
  tvx_set_log_sink(&Capture);
  MedianCase m;
  m.ExpectCorrect();
  EXPECT_EQ(CountLines("DSP SSR cleanup sequence initiated."), 5u);
  EXPECT_EQ(tvxImplTable[TVX_ROW_tvxFilterMedian3x3u8_v3], 5u);
}

TEST_F(RemoteTest, RestartThatDropsTheSessionReloadsTheChannelAndLaterCallsRunRemotely) {
  HostDsp dsp({"--restart-once", "--restart-drops-session"});
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_RDSP), 0);
  tvx_set_log_sink(&Capture);
  MedianCase m;
  m.ExpectCorrect();
  EXPECT_EQ(CountLines("Trying to reload R6 stub."), 1u);
  EXPECT_EQ(CountLines("Stub reloaded successfully."), 1u);
  EXPECT_EQ(DspCalls(TVX_ROW_tvxFilterMedian3x3u8_v3), 0u);
  m.ExpectCorrect();
  EXPECT_EQ(DspCalls(TVX_ROW_tvxFilterMedian3x3u8_v3), 1u) << "the reinitialised session serves again";
}

TEST_F(RemoteTest, SilentDspTimesOutInsteadOfHanging) {
  setenv("TAVIX_DSP_TIMEOUT_MS", "200", 1);
  HostDsp dsp({"--delay-ms", "1000"});
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_RDSP), 0);
  MedianCase m;
  const auto start = std::chrono::steady_clock::now();
  m.ExpectCorrect();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST_F(RemoteTest, DspKilledUnderFourThreadsLeavesCorrectOutputsAndNoLeaks) {
  const int descriptorsBefore = OpenDescriptors();
  {
    HostDsp dsp;
    ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_RDSP), 0);
    constexpr uint32_t kW = 64, kH = 24;
    std::vector<uint8_t> a(kW * kH), b(kW * kH), expected(kW * kH);
    for (size_t i = 0; i < a.size(); ++i) {
      a[i] = static_cast<uint8_t>(i * 7);
      b[i] = static_cast<uint8_t>(i * 13 + 5);
    }
    tvxAbsDiffu8C(a.data(), b.data(), kW, kH, kW, expected.data(), kW);
    std::atomic<int> wrong{0}, done{0};
    auto worker = [&] {
      std::vector<uint8_t> out(kW * kH);
      for (int i = 0; i < 1500; ++i) {
        std::fill(out.begin(), out.end(), 0);
        tvxAbsDiffu8(a.data(), b.data(), kW, kH, kW, out.data(), kW);
        wrong += out != expected;
        ++done;
      }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back(worker);
    while (done < 400) std::this_thread::yield();
    dsp.Stop(SIGKILL);
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(done, 6000);
    tvxCleanUp();
  }
  EXPECT_EQ(OpenDescriptors(), descriptorsBefore);
  EXPECT_EQ(tvx_shared_mem_records_in_use(), 0u);
}

TEST_F(RemoteTest, DspThatExitsInTheMiddleOfACallIsSurvived) {
  HostDsp dsp({"--exit-after", "2"});
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_RDSP), 0);
  MedianCase m;
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    m.ExpectCorrect();
  }
}

TEST_F(RemoteTest, SharedBlockFreedAfterCleanUpIsStillReleasedByTheSharedAllocator) {
  HostDsp dsp;
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_CPU_OFFLOAD), 0);
  const uint32_t before = tvx_shared_mem_records_in_use();
  void* block = tvxMemAlloc(5000, 64);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 4096, 0u);
  EXPECT_EQ(tvx_shared_mem_records_in_use(), before + 1);
  tvxCleanUp();
  tvxMemFree(block);  // no distance byte before it: a heap release would corrupt the heap
  EXPECT_EQ(tvx_shared_mem_records_in_use(), before);
}

// ---- every operation through the DSP ---------------------------------------------------------

// Each operation with a remote form, on padded strides, through the extended DSP mode: the
// remote run equals the reference run bit for bit, and the host DSP really served it. With
// buffers from tvxMemAlloc (registered shared memory) it copies none of their bytes.
void SweepRegistry(bool useShared) {
  HostDsp dsp;
  setenv("VENDOR_RUNTIME_TAVIX_LOG", "1", 1);
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_EXT_RDSP), 0);
  ASSERT_NE(tvxSharedMemAlloc_, nullptr);
  tvx_set_log_sink(&Capture);
  int served = 0;
  for (const TvxSampleEntry& e : kTvxSamples) {
    if (e.dspOp < 0) continue;
    SCOPED_TRACE(e.name);
    // A small sample that the entry rejects or lowers to the SIMD tier (an alignment rule that
    // holds whatever the check flag says) runs again at a size the entry keeps on the DSP.
    for (const bool large : {false, true}) {
      const uint32_t w = large ? 208 : 37, h = large ? 136 : 5;
      const size_t bytes = large ? (1 << 20) : Buffers::kBytes;
      Buffers remote(w, h, 16, useShared, bytes), reference(w, h, 16, false, bytes);
      uint64_t bytesBefore = 0, bytesAfter = 0;
      const uint64_t before = DspCalls(e.dspOp, &bytesBefore);
      int64_t result;
      g_lines.clear();
      ExpectRemoteEqualsReference(e, remote, reference, TAVIX_OP_EXT_RDSP, &result);
      const uint64_t after = DspCalls(e.dspOp, &bytesAfter);
      if (after != before + 1 && !large) continue;
      std::string log;
      for (const std::string& l : g_lines) log += l;
      EXPECT_EQ(after, before + 1) << "the call did not run on the host DSP; log: " << log;
      if (useShared) {
        EXPECT_EQ(bytesAfter - bytesBefore, 0u) << "a registered buffer was copied";
      }
      served += after == before + 1;
      break;
    }
  }
  EXPECT_GT(served, 250);
}

TEST_F(RemoteTest, EveryOperationOnTheDspEqualsItsReferenceWithCopiedBuffers) { SweepRegistry(false); }

TEST_F(RemoteTest, EveryOperationOnTheDspEqualsItsReferenceWithSharedBuffersAndNoCopies) { SweepRegistry(true); }

// The offload mode with the constraint checks on, on images large enough for the work rule:
// every operation the set keeps on the DSP runs there and equals its reference; the few whose
// alignment rules lower the sample shape to the SIMD tier still give the reference result.
TEST_F(RemoteTest, OffloadSetRunsOnTheDspWithChecksOn) {
  HostDsp dsp;
  setenv("VENDOR_RUNTIME_TAVIX_LOG", "1", 1);
  ASSERT_EQ(tvxSetOperationMode(TAVIX_OP_CPU_OFFLOAD), 0);
  ASSERT_EQ(HW_constraint_checks_enable, 1u);
  tvx_set_log_sink(&Capture);
  int inSet = 0, remote = 0;
  for (const TvxSampleEntry& e : kTvxSamples) {
    if (e.dspOp < 0 || tvxImplTable[e.row] != 5) continue;
    SCOPED_TRACE(e.name);
    ++inSet;
    Buffers onDsp(208, 136, 16, false, 1 << 20), reference(208, 136, 16, false, 1 << 20);
    const uint64_t before = DspCalls(e.dspOp);
    int64_t result;
    g_lines.clear();
    ExpectRemoteEqualsReference(e, onDsp, reference, TAVIX_OP_CPU_OFFLOAD, &result);
    if (CountLines(std::string(e.name) + "_CDSP") == 0) continue;
    EXPECT_EQ(DspCalls(e.dspOp), before + 1);
    ++remote;
  }
  EXPECT_GT(inSet, 60);
  EXPECT_GT(remote, inSet * 3 / 4);
}

// ---- the host DSP itself ---------------------------------------------------------------------

class RawClient {
 public:
  explicit RawClient(const std::string& path) {
    s_ = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    snprintf(a.sun_path, sizeof a.sun_path, "%s", path.c_str());
    EXPECT_EQ(connect(s_, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
  }
  ~RawClient() { close(s_); }
  void Send(const tvxdsp::Header& h, const std::vector<uint8_t>& payload) {
    uint8_t head[tvxdsp::kHeaderBytes];
    tvxdsp::EncodeHeader(h, head);
    ASSERT_EQ(write(s_, head, sizeof head), static_cast<ssize_t>(sizeof head));
    if (!payload.empty()) {
      ASSERT_EQ(write(s_, payload.data(), payload.size()), static_cast<ssize_t>(payload.size()));
    }
  }
  // The status of the reply, or -1 when the connection was dropped.
  int64_t Status() {
    uint8_t head[tvxdsp::kHeaderBytes];
    if (read(s_, head, sizeof head) != static_cast<ssize_t>(sizeof head)) return -1;
    const tvxdsp::Header h = tvxdsp::DecodeHeader(head);
    std::vector<uint8_t> body(h.length);
    if (h.length && read(s_, body.data(), body.size()) != static_cast<ssize_t>(body.size())) return -1;
    return static_cast<int32_t>(h.a);
  }
  int64_t Request(uint32_t type, uint32_t a, uint32_t b, const std::vector<uint8_t>& payload) {
    Send(tvxdsp::Header{tvxdsp::kMagic, type, a, b, payload.size()}, payload);
    return Status();
  }

 private:
  int s_;
};

std::vector<uint8_t> Open() { return {'c', 'd', 's', 'p'}; }

TEST_F(RemoteTest, HostDspAnswersMalformedMessagesAndKeepsServing) {
  HostDsp dsp;
  RawClient c(dsp.socket());
  ASSERT_EQ(c.Request(tvxdsp::kOpen, tvxdsp::kProtocolVersion, 0, Open()), 0);
  ASSERT_EQ(c.Request(tvxdsp::kInit, 0, 0, {0, 0, 0, 0}), 0);
  EXPECT_EQ(c.Request(tvxdsp::kCall, 99999, 0, {}), tvxdsp::kStatusUnknownOp);
  EXPECT_EQ(c.Request(77, 0, 0, {}), tvxdsp::kStatusBadMessage);
  // tvxBitCountu8(src, length): an inline buffer claiming more bytes than arrived, a length
  // scalar larger than the buffer sent, an argument count that disagrees, a shared reference
  // to a block never registered.
  auto bitCount = [](uint64_t declared, size_t sent, uint32_t length) {
    tvxdsp::Writer w;
    w.U8(tvxdsp::kInline);
    w.U8(tvxdsp::kIn);
    w.U64(declared);
    std::vector<uint8_t> bytes(sent, 0xFF);
    w.Bytes(bytes.data(), bytes.size());
    w.U8(tvxdsp::kScalar);
    w.U64(length);
    return w.bytes();
  };
  EXPECT_EQ(c.Request(tvxdsp::kCall, TVX_ROW_tvxBitCountu8, 2, bitCount(64, 8, 8)), tvxdsp::kStatusBadMessage);
  EXPECT_EQ(c.Request(tvxdsp::kCall, TVX_ROW_tvxBitCountu8, 2, bitCount(8, 8, 4096)), tvxdsp::kStatusBadArguments);
  EXPECT_EQ(c.Request(tvxdsp::kCall, TVX_ROW_tvxBitCountu8, 3, bitCount(8, 8, 8)), tvxdsp::kStatusBadMessage);
  tvxdsp::Writer shared;
  shared.U8(tvxdsp::kShared);
  shared.U8(tvxdsp::kIn);
  shared.U32(42);
  shared.U64(0);
  shared.U64(8);
  shared.U8(tvxdsp::kScalar);
  shared.U64(8);
  EXPECT_EQ(c.Request(tvxdsp::kCall, TVX_ROW_tvxBitCountu8, 2, shared.bytes()), tvxdsp::kStatusBadMessage);
  EXPECT_EQ(c.Request(tvxdsp::kCall, TVX_ROW_tvxBitCountu8, 2, bitCount(8, 8, 8)), 0) << "a good call still works";
  // A truncated message on another connection, then a bad magic: those connections end, the
  // host DSP goes on.
  {
    RawClient t(dsp.socket());
    t.Send(tvxdsp::Header{tvxdsp::kMagic, tvxdsp::kCall, 1, 1, 1000}, {1, 2, 3});
  }
  {
    RawClient bad(dsp.socket());
    bad.Send(tvxdsp::Header{0xBADBAD, tvxdsp::kOpen, 1, 0, 0}, {});
    EXPECT_EQ(bad.Status(), -1);
  }
  RawClient again(dsp.socket());
  EXPECT_EQ(again.Request(tvxdsp::kOpen, tvxdsp::kProtocolVersion, 0, Open()), 0);
}

TEST_F(RemoteTest, HostDspSocketIsPrivateToTheUser) {
  HostDsp dsp;
  struct stat st;
  ASSERT_EQ(stat(dsp.socket().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  ASSERT_EQ(stat(dsp.dir().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 077, 0u);
}

}  // namespace
