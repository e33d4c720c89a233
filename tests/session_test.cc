// DSP session through the real host DSP process: the lines the session logs as it opens,
// initialises and closes a channel, the mode attribute it sends, the hardware probe's mode and
// domain switches, counted channels under unbalanced closes, a dead DSP and concurrent use, the
// rounds of restart recovery, and the optional platform library.
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "frame/frame.h"
#include "frame/hw.h"
#include "host_dsp.h"
#include "remote/session.h"
#include "remote/shared_mem.h"
#include "socket_io.h"
#include "tavix_stubs.h"
#include "wire.h"

namespace {

using tvxtest::HostDsp;
using Lines = std::vector<std::string>;

// ---- the log ---------------------------------------------------------------------------------

// Every line the library logs, as "<D|I|W|E> <tag>|<message>", with the source position some
// lines end in ("<line> <path>session.cc") replaced by "@".
std::mutex g_logMutex;
Lines g_log;

void Record(int level, const char* tag, const char* message) {
  static const std::regex kPosition(R"(\d+ \S*session\.cc$)");
  const char* letter = level == TVX_LOG_DEBUG  ? "D "
                       : level == TVX_LOG_INFO ? "I "
                       : level == TVX_LOG_WARN ? "W "
                                               : "E ";
  std::string line = letter + std::string(tag) + "|" + std::regex_replace(std::string(message), kPosition, "@");
  std::lock_guard<std::mutex> lock(g_logMutex);
  g_log.push_back(std::move(line));
}

Lines TakeLog() {
  std::lock_guard<std::mutex> lock(g_logMutex);
  Lines taken;
  taken.swap(g_log);
  return taken;
}

size_t Count(const std::string& line) {
  std::lock_guard<std::mutex> lock(g_logMutex);
  return std::count(g_log.begin(), g_log.end(), line);
}

std::string Debug(const std::string& message) { return "D tavix_lib_log|" + message; }
std::string Info(const std::string& message) { return "I tavix_lib_log|" + message; }
std::string Error(const std::string& message) { return "E tavix_lib_log|" + message; }

Lines operator+(Lines a, const Lines& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

struct DomainNames {
  std::string name, upper;
  const uint64_t* handle;
  std::string At() const {
    char text[32];
    snprintf(text, sizeof text, "%p", static_cast<const void*>(handle));
    return text;
  }
};
const DomainNames kAdsp{"adsp", "ADSP", &adsp_domain_handle};
const DomainNames kCdsp{"cdsp", "CDSP", &cdsp_domain_handle};

// The first open of a domain's channel, which the DSP accepts with `handle`.
Lines OpenLines(const DomainNames& d, uint64_t handle) {
  const std::string h = std::to_string(handle);
  return {Debug("Begin of domain_channel_open " + d.name + "_domain_handle=" + d.At() + "  value of " + d.name +
                "_domain_handle=0\n"),
          Debug("Domain open is successful on " + d.upper + ". " + d.name + "_domain_handle address=" + d.At() + "  " +
                d.name + "_domain_handle value=" + h + "\n"),
          Debug("End of domain_channel_open for " + d.upper + " \n")};
}

// The close by the channel's last user.
Lines CloseLines(const DomainNames& d, uint64_t handle) {
  return {Debug("Begin of domain_channel_close " + d.name + "_domain_handle=" + d.At() + " " + d.name +
                "_domain_handle=" + std::to_string(handle) + "\n"),
          Debug("Succesfully closed channel for " + d.name + "_domain_handle \n"),
          Debug("End of domain_channel_close for " + d.upper + " \n")};
}

// A session coming up in `mode` on an open channel.
Lines InitLines(uint64_t handle, int mode, int attributeValue) {
  return {Debug("In tvxR6SessionInit : attrib.value=" + std::to_string(attributeValue) + "  \n"),
          Error("Begin of tvxR6SessionInit_internal dsp_handle=" + std::to_string(handle) + " @"),
          Debug("Checking for tvxVersion  @"),
          Debug("R6 initialized successfully. R6 Tavix functions mode " + std::to_string(mode) + " are enabled."),
          Info("FIT:(FeatureName=>MOLAR6, Initialized=>1)")};
}

// ---- what reaches the DSP --------------------------------------------------------------------

sockaddr_un Address(const std::string& path) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  snprintf(a.sun_path, sizeof a.sun_path, "%s", path.c_str());
  return a;
}

// Relays every message between the library and the host DSP unchanged (descriptors included)
// and keeps what the library sent, so a test sees the attributes of each initialisation and
// the domain of each channel. It listens beside the host DSP's socket and points
// TAVIX_DSP_SOCKET at itself; a host DSP that is gone is gone behind it too.
class WireTap {
 public:
  struct Message {
    int connection;  // numbered in the order the library connected
    uint32_t type;
    std::vector<uint8_t> payload;
  };

  explicit WireTap(const HostDsp& dsp) : dsp_(dsp.socket()), path_(dsp.dir() + "/tap.sock") {
    listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un a = Address(path_);
    EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&a), sizeof a), 0);
    EXPECT_EQ(listen(listener_, 16), 0);
    setenv("TAVIX_DSP_SOCKET", path_.c_str(), 1);
    accepter_ = std::thread([this] { Accept(); });
  }
  ~WireTap() {
    stop_ = true;
    accepter_.join();
    {
      std::lock_guard<std::mutex> lock(mutex_);
      for (int s : sockets_) shutdown(s, SHUT_RDWR);
    }
    for (std::thread& t : relays_) t.join();
    close(listener_);
    unlink(path_.c_str());
  }
  WireTap(const WireTap&) = delete;
  WireTap& operator=(const WireTap&) = delete;

  std::vector<Message> Sent(uint32_t type) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Message> out;
    std::copy_if(sent_.begin(), sent_.end(), std::back_inserter(out), [&](const Message& m) { return m.type == type; });
    return out;
  }
  // The domain of every channel opened, in order.
  Lines Opens() const {
    Lines out;
    for (const Message& m : Sent(tvxdsp::kOpen)) out.emplace_back(m.payload.begin(), m.payload.end());
    return out;
  }
  // The attributes of every initialisation, "id=value" each ("" when none were sent).
  Lines Inits() const {
    Lines out;
    for (const Message& m : Sent(tvxdsp::kInit)) {
      tvxdsp::Reader r(m.payload.data(), m.payload.size());
      std::string attributes;
      for (uint32_t n = r.U32(); n > 0 && r.ok(); --n) {
        const int32_t id = static_cast<int32_t>(r.U32());
        const int32_t value = static_cast<int32_t>(r.U32());
        if (!attributes.empty()) attributes += ',';
        attributes += std::to_string(id) + "=" + std::to_string(value);
      }
      out.push_back(r.ok() && r.done() ? attributes : "malformed");
    }
    return out;
  }
  size_t MessageCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return sent_.size();
  }

 private:
  void Accept() {
    int next = 0;
    while (!stop_) {
      pollfd p{listener_, POLLIN, 0};
      if (poll(&p, 1, 20) <= 0) continue;
      const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0) continue;
      Track(client);
      relays_.emplace_back([this, client, connection = next++] { Relay(client, connection); });
    }
  }
  void Relay(int client, int connection) {
    int dsp = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un a = Address(dsp_);
    if (connect(dsp, reinterpret_cast<const sockaddr*>(&a), sizeof a) == 0) {
      Track(dsp);
      while (Forward(client, dsp, connection) && Forward(dsp, client, -1)) {
      }
      Release(dsp);
    } else {
      close(dsp);
    }
    Release(client);
  }
  // Moves one message; one from the library (connection >= 0) is kept before it goes on, so
  // it is recorded before its reply reaches the library.
  bool Forward(int from, int to, int connection) {
    uint8_t head[tvxdsp::kHeaderBytes];
    int fd = -1;
    bool ok = tvxdsp::ReadExact(from, head, sizeof head, -1, &fd);
    const tvxdsp::Header h = tvxdsp::DecodeHeader(head);
    std::vector<uint8_t> payload;
    if (ok && h.length <= tvxdsp::kMaxPayload) {
      payload.resize(h.length);
      ok = tvxdsp::ReadExact(from, payload.data(), payload.size(), -1, &fd);
    } else {
      ok = false;
    }
    if (ok && connection >= 0) {
      std::lock_guard<std::mutex> lock(mutex_);
      sent_.push_back({connection, h.type, payload});
    }
    iovec pieces[2] = {{head, sizeof head}, {payload.data(), payload.size()}};
    ok = ok && tvxdsp::SendAll(to, pieces, payload.empty() ? 1 : 2, fd);
    if (fd >= 0) close(fd);
    return ok;
  }
  void Track(int s) {
    std::lock_guard<std::mutex> lock(mutex_);
    sockets_.push_back(s);
  }
  // Closes under the lock, so the destructor never shuts down a number reused meanwhile.
  void Release(int s) {
    std::lock_guard<std::mutex> lock(mutex_);
    sockets_.erase(std::find(sockets_.begin(), sockets_.end(), s));
    close(s);
  }

  const std::string dsp_, path_;
  int listener_ = -1;
  std::atomic<bool> stop_{false};
  std::thread accepter_;
  std::vector<std::thread> relays_;  // only the accepting thread adds to it
  mutable std::mutex mutex_;
  std::vector<int> sockets_;
  std::vector<Message> sent_;
};

// ---- fixture ---------------------------------------------------------------------------------

class SessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    unsetenv("TAVIX_DSP_SOCKET");
    setenv("VENDOR_RUNTIME_TAVIX_DSP_RESTART_PAUSE_MS", "1", 1);
    TakeLog();
    tvx_set_log_sink(&Record);
  }
  void TearDown() override {
    tvxCleanUpHW();
    tap_.reset();
    dsp_.reset();
    setDefaultDSPValue(1);
    unsetenv("VENDOR_RUNTIME_TAVIX_DSP_RESTART_PAUSE_MS");
    unsetenv("VENDOR_RUNTIME_TAVIX_LOG");
    tvx_read_log_property();
    RDSP_initflag = 0;
    tvx_set_log_sink(nullptr);
    // Every channel the test opened is closed again.
    EXPECT_EQ(adspDomainHandle_count + cdspDomainHandle_count + mdspDomainHandle_count, 0);
    EXPECT_EQ(adsp_domain_handle | cdsp_domain_handle | mdsp_domain_handle, 0u);
  }
  // A host DSP started with these options (replacing any earlier one), behind a wire tap
  // unless `tapped` is false.
  void StartDsp(std::vector<std::string> options = {}, bool tapped = true) {
    tap_.reset();
    dsp_.reset();
    dsp_ = std::make_unique<HostDsp>(std::move(options));
    if (tapped) tap_ = std::make_unique<WireTap>(*dsp_);
  }
  std::unique_ptr<HostDsp> dsp_;
  std::unique_ptr<WireTap> tap_;
};

// ---- session ---------------------------------------------------------------------------------

TEST_F(SessionTest, WithoutADspTheSessionFailsAndIsRetriedOnlyAfterDeinit) {
  EXPECT_EQ(MOLAR6_init(1, "1.7.1"), -1);
  EXPECT_EQ(Count(Error("\nError: tavixdsp domain open failed on CDSP")), 1u);
  EXPECT_EQ(Count(Error("R6 initialized failed. R6 Tavix functions are disabled.")), 1u);
  EXPECT_FALSE(MOLAR6_is_ready());
  EXPECT_EQ(MOLAR6_get_current_mode(), -1);

  TakeLog();
  EXPECT_EQ(MOLAR6_init(1, "1.7.1"), -1);
  EXPECT_TRUE(TakeLog().empty()) << "a failed session is not tried again";

  MOLAR6_deinit();
  EXPECT_EQ(cdspDomainHandle_count, 0);
  TakeLog();
  EXPECT_EQ(MOLAR6_init(1, "1.7.1"), -1);
  EXPECT_EQ(Count(Error("\nError: tavixdsp domain open failed on CDSP")), 1u);
}

TEST_F(SessionTest, SessionLogsEveryStepAndSendsTheModeAttribute) {
  StartDsp();
  ASSERT_EQ(MOLAR6_init(2, "1.7.1"), 0);
  const uint64_t first = cdsp_domain_handle;
  EXPECT_EQ(TakeLog(), OpenLines(kCdsp, first) + InitLines(first, 2, 2));
  EXPECT_EQ(tap_->Opens(), Lines{"cdsp"});
  EXPECT_EQ(tap_->Inits(), Lines{"3=2"});
  EXPECT_EQ(MOLAR6_get_current_mode(), 2);

  const size_t sent = tap_->MessageCount();
  EXPECT_EQ(MOLAR6_init(2, "1.7.1"), 0);  // the same mode: the session stays as it is
  EXPECT_TRUE(TakeLog().empty());
  EXPECT_EQ(tap_->MessageCount(), sent);

  ASSERT_EQ(MOLAR6_init(0, "1.7.1"), 0);  // another mode: down, then up on a new channel
  const uint64_t second = cdsp_domain_handle;
  EXPECT_NE(second, first);
  EXPECT_EQ(TakeLog(),
            Lines{Info("MOLAR6_deinit")} + CloseLines(kCdsp, first) + OpenLines(kCdsp, second) + InitLines(second, 0, 0));
  EXPECT_EQ(tap_->Inits(), (Lines{"3=2", "3=0"}));
  const std::vector<WireTap::Message> deinits = tap_->Sent(tvxdsp::kDeinit);
  ASSERT_EQ(deinits.size(), 1u);
  EXPECT_EQ(deinits[0].connection, tap_->Sent(tvxdsp::kOpen)[0].connection) << "the old channel was deinitialised";

  EXPECT_EQ(MOLAR6_deinit(), 0);
  EXPECT_EQ(TakeLog(), Lines{Info("MOLAR6_deinit")} + CloseLines(kCdsp, second));
  EXPECT_EQ(MOLAR6_get_current_mode(), -1);
  EXPECT_FALSE(MOLAR6_is_ready());

  // A mode outside 0-2 passes no attribute at all.
  ASSERT_EQ(MOLAR6_init(5, "1.7.1"), 0);
  EXPECT_EQ(tap_->Inits(), (Lines{"3=2", "3=0", ""}));
  EXPECT_EQ(Count(Debug("R6 initialized successfully. R6 Tavix functions mode 5 are enabled.")), 1u);
  EXPECT_EQ(MOLAR6_get_current_mode(), 5);
}

TEST_F(SessionTest, VersionCheckReadsAtMostTenBytesAndNeedsAVersionToCompare) {
  StartDsp({"--version", "2.1.0-rc.12345"});
  EXPECT_EQ(tvxSelectRDSP6Mode(1), -1);
  EXPECT_EQ(RDSP_initflag, 0u);
  // The buffer holds nine characters and the terminator.
  EXPECT_EQ(Count(Error("Unmatch CPU and R6 major version. CPU version is 1.7.1, R6 version is 2.1.0-rc.  @")), 1u);
  EXPECT_EQ(Count(Error("R6 initialized failed. R6 Tavix functions are disabled.")), 1u);

  tvxCleanUpHW();
  StartDsp({"--version", "1.9.9-build.77"});
  EXPECT_EQ(tvxSelectRDSP6Mode(1), 1);
  EXPECT_EQ(RDSP_initflag, 1u);
  ASSERT_EQ(tap_->Sent(tvxdsp::kVersion).size(), 1u);

  EXPECT_EQ(tvxR6SessionInit_internal(cdsp_domain_handle, nullptr, 0, nullptr), -1);
  EXPECT_EQ(tap_->Sent(tvxdsp::kVersion).size(), 1u) << "without a version of its own it asks for none";
  EXPECT_EQ(tvxR6SessionInit_internal_cdsp(nullptr, 0, "1.3"), 0);
  TakeLog();
  EXPECT_EQ(tvxR6SessionInit_internal_mdsp(nullptr, 0, "1.7.1"), -1) << "the modem DSP's channel is not open";
  EXPECT_EQ(TakeLog(), (Lines{Error("Begin of tvxR6SessionInit_internal dsp_handle=0 @"),
                              Error("tavixdsp_tvxR6SessionInit failed")}));
}

// ---- channels --------------------------------------------------------------------------------

TEST_F(SessionTest, ChannelCountSurvivesUnbalancedClosesAnUnknownDomainAndADeadDsp) {
  StartDsp();
  ASSERT_EQ(domain_channel_open_adsp(), 0);
  const uint64_t handle = adsp_domain_handle;
  EXPECT_EQ(TakeLog(), OpenLines(kAdsp, handle));
  EXPECT_EQ(domain_channel_close_adsp(), 0);
  EXPECT_EQ(TakeLog(), CloseLines(kAdsp, handle));

  // A close without an open: the DSP refuses to deinitialise a channel that is not there,
  // nothing is closed and the count stays at 0 ...
  EXPECT_EQ(domain_channel_close_adsp(), 0);
  EXPECT_EQ(adspDomainHandle_count, 0);
  EXPECT_EQ(TakeLog(), (Lines{Debug("Begin of domain_channel_close adsp_domain_handle=" + kAdsp.At() +
                                    " adsp_domain_handle=0\n"),
                              Error("Error while calling tavixdsp_deinitR6 for ADSP"),
                              Debug("End of domain_channel_close for ADSP \n")}));
  // ... so the next open is a first one again and really opens the channel.
  ASSERT_EQ(domain_channel_open_adsp(), 0);
  EXPECT_NE(adsp_domain_handle, 0u);
  EXPECT_EQ(tap_->Opens(), (Lines{"adsp", "adsp"}));

  // An unknown default domain: the unsuffixed forms only say so.
  setDefaultDSPValue(7);
  TakeLog();
  EXPECT_NE(domain_channel_open(), 0);
  EXPECT_NE(domain_channel_close(), 0);
  EXPECT_EQ(TakeLog(), (Lines{Error("defaultDSP flag not set for the following function domain_channel_open."),
                              Error("defaultDSP flag not set for the following function domain_channel_close.")}));
  EXPECT_EQ(tap_->Opens().size(), 2u);
  EXPECT_EQ(adspDomainHandle_count, 1);
  setDefaultDSPValue(1);

  // The DSP dies: the close cannot deinitialise it but still releases the channel, and the next
  // open fails.
  dsp_->Stop();
  EXPECT_EQ(domain_channel_close_adsp(), 0);
  EXPECT_EQ(adsp_domain_handle, 0u);
  EXPECT_EQ(Count(Error("Error while calling tavixdsp_deinitR6 for ADSP")), 1u);
  EXPECT_EQ(Count(Debug("Succesfully closed channel for adsp_domain_handle \n")), 1u);
  EXPECT_NE(domain_channel_open_adsp(), 0);
  EXPECT_EQ(Count(Error("\nError: tavixdsp domain open failed on ADSP")), 1u);
  EXPECT_EQ(adsp_domain_handle, 0u);
  domain_channel_close_adsp();
}

// Four threads opening and closing the same channel: it is opened by whoever finds it closed
// and closed by whoever leaves last, once each time, and no connection to the DSP is left over.
TEST_F(SessionTest, ThreadsSharingAChannelOpenAndCloseItOnceEachTime) {
  StartDsp({}, false);
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
  };
  const auto before = descriptors();
  std::atomic<int> failed{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&failed] {
      for (int i = 0; i < 300; ++i) {
        failed += domain_channel_open_cdsp() != 0;
        failed += domain_channel_close_cdsp() != 0;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(cdsp_domain_handle, 0u);
  const Lines log = TakeLog();
  const size_t opens = std::count_if(log.begin(), log.end(), [](const std::string& l) {
    return l.rfind(Debug("Domain open is successful on CDSP."), 0) == 0;
  });
  EXPECT_GT(opens, 0u);
  EXPECT_EQ(static_cast<size_t>(std::count(log.begin(), log.end(), Debug("Succesfully closed channel for cdsp_domain_handle \n"))),
            opens);
  EXPECT_EQ(std::count_if(log.begin(), log.end(), [](const std::string& l) { return l[0] != 'D'; }), 0);
  EXPECT_EQ(descriptors(), before);
}

// ---- hardware probe --------------------------------------------------------------------------

TEST_F(SessionTest, ProbeMapsModesKeepsAReadySessionAndFollowsTheDefaultDomain) {
  StartDsp();
  setenv("VENDOR_RUNTIME_TAVIX_LOG", "1", 1);
  const std::pair<int32_t, int32_t> modes[] = {{0, 0}, {1, 2}, {2, 1}, {3, 1}, {7, 1}, {TAVIX_OP_EXT_RDSP, 2}};
  for (auto [mode, dspMode] : modes) {
    EXPECT_EQ(tvxAvailableHWComponent(mode), TVX_HW_DSP) << mode;
    EXPECT_EQ(MOLAR6_get_current_mode(), dspMode) << mode;
  }
  EXPECT_EQ(tap_->Inits(), (Lines{"3=0", "3=2", "3=1", "3=2"})) << "a ready session in the same mode is kept";
  EXPECT_EQ(tvxSharedMemAlloc_, &tvxSharedMemAllocQ);
  // With tracing on, every probe reports the time the setup took.
  const Lines traced = TakeLog();
  const std::regex timeLine(R"(E tavix_runtime_log\| R6 Initialization Time : \d+)");
  EXPECT_EQ(std::count_if(traced.begin(), traced.end(), [&](const std::string& l) { return std::regex_match(l, timeLine); }),
            6);
  unsetenv("VENDOR_RUNTIME_TAVIX_LOG");
  tvx_read_log_property();

  // Another default domain: the session moves there.
  setDefaultDSPValue(0);
  EXPECT_EQ(tvxAvailableHWComponent(TAVIX_OP_EXT_RDSP), TVX_HW_DSP);
  EXPECT_EQ(cdsp_domain_handle, 0u);
  EXPECT_NE(adsp_domain_handle, 0u);
  EXPECT_EQ(tap_->Opens(), (Lines{"cdsp", "cdsp", "cdsp", "cdsp", "adsp"}));
  EXPECT_EQ(tap_->Inits().back(), "3=2");
  EXPECT_EQ(tvxAvailableHWComponent(TAVIX_OP_EXT_RDSP), TVX_HW_DSP);
  EXPECT_EQ(tap_->Opens().size(), 5u) << "and stays there";

  setDefaultDSPValue(7);
  TakeLog();
  EXPECT_EQ(tvxAvailableHWComponent(TAVIX_OP_EXT_RDSP), 0u);
  // (The probe asks the library's version, which names the library.)
  EXPECT_EQ(TakeLog(), (Lines{Debug("Tavix vendor library\n"), Error("Unknown DSP type selected.@")}));
  EXPECT_TRUE(MOLAR6_is_ready()) << "the session stays on the audio DSP";
  EXPECT_NE(adsp_domain_handle, 0u);

  // The modem DSP cannot be reached: the session is lost and the probe says why.
  dsp_->Stop();
  setDefaultDSPValue(2);
  EXPECT_EQ(tvxAvailableHWComponent(TAVIX_OP_EXT_RDSP), 0u);
  EXPECT_FALSE(MOLAR6_is_ready());
  EXPECT_EQ(adsp_domain_handle, 0u);
  EXPECT_EQ(Count(Error("\nError: tavixdsp domain open failed on MDSP")), 1u);
  EXPECT_EQ(Count(Error("Failed to open channel on MDSP!! MDSP does not support Domains on this target @")), 1u);

  // The next probe tries again and succeeds once a DSP answers.
  StartDsp();
  EXPECT_EQ(tvxAvailableHWComponent(TAVIX_OP_EXT_RDSP), TVX_HW_DSP);
  EXPECT_NE(mdsp_domain_handle, 0u);
  EXPECT_EQ(tap_->Opens(), Lines{"mdsp"});
  EXPECT_EQ(tap_->Inits(), Lines{"3=2"});
}

// ---- restart recovery ------------------------------------------------------------------------

int32_t BitCountOn(uint64_t handle) {
  const uint8_t bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  uint32_t bits = 0;
  return tavixdsp_tvxBitCountu8Q(tavixdsp_low(handle), tavixdsp_high(handle), bytes, 8, 8, &bits);
}

bool ClockAnswers(uint64_t handle) {
  uint64_t microseconds = 0;
  return tavixdsp_tvxR6GetClk(tavixdsp_low(handle), tavixdsp_high(handle), &microseconds) == 0;
}

int32_t Recover(uint64_t handle) { return adspSSRcleanUpSequence(tavixdsp_low(handle), tavixdsp_high(handle)); }

// The reinitialisation rounds after the channel was reopened, on `handle`; `fails` when the
// DSP refuses each of them.
Lines RoundLines(uint64_t handle, bool fails) {
  Lines lines{Debug("Stub reloaded successfully.")};
  for (int round = 0; round < 15; ++round) {
    lines.push_back(Debug("Trying to reinitialize DSP."));
    lines.push_back(Error("Begin of tvxR6SessionInit_internal dsp_handle=" + std::to_string(handle) + " @"));
    if (fails) lines.push_back(Error("tavixdsp_tvxR6SessionInit failed"));
  }
  return lines;
}

const Lines kRecoveryStart = {Debug("DSP SSR cleanup sequence initiated."), Debug("Trying to reload R6 stub.")};

TEST_F(SessionTest, RecoveryReopensTheChannelAndReinitialisesItFifteenTimesWhenTheClockIsSilent) {
  StartDsp({"--restart-once", "--restart-drops-session"});
  setenv("VENDOR_RUNTIME_TAVIX_DSP_RESTART_PAUSE_MS", "20", 1);
  ASSERT_EQ(MOLAR6_init(1, "1.7.1"), 0);
  const uint64_t stale = cdsp_domain_handle;
  TakeLog();
  // While the DSP answers its clock there is nothing to recover.
  EXPECT_EQ(Recover(stale), 0);
  EXPECT_EQ(TakeLog(), (Lines{Debug("DSP SSR cleanup sequence initiated."), Debug("R6 already up. Skipping reload.")}));

  // The DSP restarts under a call and forgets the session, so its clock falls silent.
  ASSERT_EQ(BitCountOn(stale), TAVIXDSP_RESTARTED);
  ASSERT_FALSE(ClockAnswers(stale));
  const size_t inits = tap_->Inits().size();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Recover(stale), -1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(15 * 20)) << "a pause per round";
  const uint64_t reopened = cdsp_domain_handle;
  ASSERT_NE(reopened, 0u);
  EXPECT_NE(reopened, stale);
  EXPECT_EQ(TakeLog(), kRecoveryStart + CloseLines(kCdsp, stale) + OpenLines(kCdsp, reopened) + RoundLines(reopened, false));
  // Every round initialised the reopened channel, without attributes.
  EXPECT_EQ(tap_->Inits(), Lines(inits, "3=1") + Lines(15, ""));
  const int channel = tap_->Sent(tvxdsp::kOpen).back().connection;
  for (const WireTap::Message& m : tap_->Sent(tvxdsp::kInit)) {
    if (m.payload.size() == 4) {
      EXPECT_EQ(m.connection, channel);
    }
  }
  EXPECT_TRUE(ClockAnswers(reopened));
  EXPECT_EQ(cdspDomainHandle_count, 1) << "the session still holds its one reference";
}

TEST_F(SessionTest, RecoveryWithoutAHandleReloadsTheChannelTenTimes) {
  StartDsp();
  ASSERT_EQ(MOLAR6_init(1, "1.7.1"), 0);
  TakeLog();
  EXPECT_EQ(Recover(0), -1);
  // Each round closes the session's channel and opens a new one (handle values aside).
  Lines expected = kRecoveryStart;
  for (int round = 0; round < 10; ++round) {
    expected.push_back(Debug("Succesfully closed channel for cdsp_domain_handle \n"));
    expected.push_back(Debug("End of domain_channel_close for CDSP \n"));
    expected.push_back(Debug("End of domain_channel_open for CDSP \n"));
    if (round < 9) expected.push_back(Debug("Trying to reload R6 stub."));
  }
  Lines log = TakeLog();
  const auto namesHandle = [](const std::string& l) {
    return l.find("Begin of domain_channel_") != std::string::npos || l.find("Domain open is successful") != std::string::npos;
  };
  EXPECT_EQ(std::count_if(log.begin(), log.end(), namesHandle), 30);
  log.erase(std::remove_if(log.begin(), log.end(), namesHandle), log.end());
  EXPECT_EQ(log, expected);
  EXPECT_EQ(tap_->Opens().size(), 11u);
  EXPECT_EQ(tap_->Sent(tvxdsp::kDeinit).size(), 10u);
  EXPECT_EQ(tap_->Inits().size(), 1u) << "reloading alone initialises nothing";
  EXPECT_FALSE(ClockAnswers(cdsp_domain_handle)) << "so the reloaded channel has no session";
  EXPECT_EQ(cdspDomainHandle_count, 1);
}

TEST_F(SessionTest, RecoveryAfterTheDspDiedInACallFailsEveryRound) {
  StartDsp({"--exit-after", "1"});
  ASSERT_EQ(MOLAR6_init(1, "1.7.1"), 0);
  const uint64_t handle = cdsp_domain_handle;
  ASSERT_EQ(BitCountOn(handle), TAVIXDSP_RESTARTED);
  TakeLog();
  EXPECT_EQ(Recover(handle), -1);
  const Lines close = {
      Debug("Begin of domain_channel_close cdsp_domain_handle=" + kCdsp.At() + " cdsp_domain_handle=" +
            std::to_string(handle) + "\n"),
      Error("Error while calling tavixdsp_deinitR6 for CDSP"),
      Debug("Succesfully closed channel for cdsp_domain_handle \n"),
      Debug("End of domain_channel_close for CDSP \n")};
  const Lines open = {
      Debug("Begin of domain_channel_open cdsp_domain_handle=" + kCdsp.At() + "  value of cdsp_domain_handle=0\n"),
      Error("\nError: tavixdsp domain open failed on CDSP"), Debug("End of domain_channel_open for CDSP \n")};
  EXPECT_EQ(TakeLog(), kRecoveryStart + close + open + RoundLines(0, true));
  EXPECT_EQ(cdsp_domain_handle, 0u);
  EXPECT_EQ(cdspDomainHandle_count, 1) << "the session's reference stays until it is deinitialised";
}

// ---- optional platform library ---------------------------------------------------------------

TEST_F(SessionTest, PlatformLibraryAbsentOnTheHost) {
  EXPECT_EQ(tvxPlatformOptLoad(), -1);
  const Lines log = TakeLog();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0], "D tvx|Loading from: /data/local/libtvxopt.so\n");
  EXPECT_EQ(log[1].rfind("E tavix_PLATFORM|dlopen for /data/local/libtvxopt.so failed!\n Error:", 0), 0u);
  EXPECT_EQ(tvxPlatformOptGetFunc("tvxOptInit"), nullptr);
  EXPECT_EQ(TakeLog().at(0).rfind("E tavix_PLATFORM|dlsym for tvxOptInit failed! \n Error:", 0), 0u);
  EXPECT_EQ(tvxPlatformOptClose(), 0);
}

}  // namespace
