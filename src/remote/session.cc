// DSP session and domains: counted channels to the audio, compute and modem DSPs, the session
// that brings the DSP-side library up in a DSP mode and checks its major version, the DSP part
// of the hardware probe, the recovery after a DSP restart, and the optional platform library.
#include "remote/session.h"

#include <dlfcn.h>
#include <pthread.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "frame/frame.h"
#include "frame/hw.h"
#include "platform/platform.h"
#include "remote/shared_mem.h"

extern "C" {
uint64_t adsp_domain_handle = 0;
uint64_t cdsp_domain_handle = 0;
uint64_t mdsp_domain_handle = 0;
int32_t adspDomainHandle_count = 0;
int32_t cdspDomainHandle_count = 0;
int32_t mdspDomainHandle_count = 0;
uint32_t R6_constraint_checks_enable = 1;
}

// The begin line of a session initialisation names the handle and where it was logged from.
#define TVX_LOG_SESSION_INIT_BEGIN(handle)                                                              \
  tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "Begin of tvxR6SessionInit_internal dsp_handle=%" PRIu64 " %d %s", \
          static_cast<uint64_t>(handle), __LINE__, __FILE__)

namespace {

struct Domain {
  const char* name;   // as in the handle's name and the channel URI
  const char* upper;  // as in the messages
  uint64_t* handle;
  int32_t* count;
};

enum : int32_t { kNoDomain = -1, kAdsp = 0, kCdsp = 1, kMdsp = 2 };

const Domain g_domains[3] = {
    {"adsp", "ADSP", &adsp_domain_handle, &adspDomainHandle_count},
    {"cdsp", "CDSP", &cdsp_domain_handle, &cdspDomainHandle_count},
    {"mdsp", "MDSP", &mdsp_domain_handle, &mdspDomainHandle_count},
};

// Guards the open counts and handles of all three domains, stub calls included. Restart
// recovery may close and reopen a channel on one thread while another thread opens or closes
// it; without the lock two threads could both see themselves as the first opener (leaking a
// channel) or both close the same handle.
std::mutex g_channelMutex;

bool IsDomain(int32_t domain) { return domain >= kAdsp && domain <= kMdsp; }

uint64_t HandleOf(int32_t domain) {
  if (!IsDomain(domain)) return 0;
  std::lock_guard<std::mutex> lock(g_channelMutex);
  return *g_domains[domain].handle;
}

int32_t OpenChannel(const Domain& domain) {
  std::lock_guard<std::mutex> lock(g_channelMutex);
  ++*domain.count;
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG,
          "Begin of domain_channel_open %s_domain_handle=%p  value of %s_domain_handle=%" PRIu64 "\n", domain.name,
          static_cast<void*>(domain.handle), domain.name, *domain.handle);
  int32_t status = *domain.handle != 0 ? 0 : -1;
  if (*domain.count == 1 && *domain.handle == 0) {
    char uri[128];
    snprintf(uri, sizeof uri, "file:///libtavixdsp_skel.so?tavixdsp_skel_handle_invoke&_modver=1.0&_dom=%s",
             domain.name);
    uint64_t handle = 0;
    status = tavixdsp_open(uri, &handle);
    if (status != 0) {
      tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "\nError: tavixdsp domain open failed on %s", domain.upper);
    } else {
      *domain.handle = handle;
      tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG,
              "Domain open is successful on %s. %s_domain_handle address=%p  %s_domain_handle value=%" PRIu64 "\n",
              domain.upper, domain.name, static_cast<void*>(domain.handle), domain.name, *domain.handle);
    }
  }
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "End of domain_channel_open for %s \n", domain.upper);
  return status;
}

int32_t CloseChannel(const Domain& domain) {
  std::lock_guard<std::mutex> lock(g_channelMutex);
  // A close without a matching open must not push the count below zero: the next open would
  // then not be the first one and would never open the channel again.
  if (*domain.count > 0) --*domain.count;
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "Begin of domain_channel_close %s_domain_handle=%p %s_domain_handle=%" PRIu64 "\n",
          domain.name, static_cast<void*>(domain.handle), domain.name, *domain.handle);
  if (tavixdsp_deinitR6(tavixdsp_low(*domain.handle), tavixdsp_high(*domain.handle)) != 0) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "Error while calling tavixdsp_deinitR6 for %s", domain.upper);
  }
  int32_t status = 0;
  if (*domain.count == 0 && *domain.handle != 0) {
    status = tavixdsp_close(*domain.handle);
    if (status == 0) {
      *domain.handle = 0;
      tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "Succesfully closed channel for %s_domain_handle \n", domain.name);
    } else {
      tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "\nError: error in closing %s_domain_handle", domain.name);
    }
  }
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "End of domain_channel_close for %s \n", domain.upper);
  return status;
}

// Opens or closes the default domain's channel; an unknown default domain is only logged.
int32_t OnDefaultDomain(const char* function, int32_t (*action)(const Domain&)) {
  const int32_t domain = defaultDSP;
  if (!IsDomain(domain)) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "defaultDSP flag not set for the following function %s.", function);
    return -1;
  }
  return action(g_domains[domain]);
}

// ---- session record ----------------------------------------------------------------------------

struct Session {
  int32_t state = 0;  // 0 not initialised, 1 ready, 2 failed
  int32_t mode = -1;  // DSP mode of the ready session
  int32_t lastDomain = kNoDomain;     // last domain on which a session came up
  int32_t channelDomain = kNoDomain;  // domain whose channel the session holds open
  tavixdsp_attribute attribute = {3, 0};
  int32_t numAttributes = 0;
};

Session g_session;
// Session setup is not meant to race with mode selection, but the lock costs nothing and keeps
// the state, the mode and the channel the session holds consistent if it does. Recursive,
// because a mode change deinitialises and reinitialises inside one locked step.
std::recursive_mutex g_sessionMutex;

void EndSession() {
  if (g_session.state == 1 || g_session.state == 2) tvxR6SessionDeInit();
  g_session.mode = -1;
  g_session.state = 0;
}

// DSP mode for an operation mode: extended (negative) values use mode 2.
int32_t DspModeFor(int32_t mode) {
  if (mode < 0) return 2;
  switch (mode) {
    case 0: return 0;
    case 1: return 2;
    default: return 1;
  }
}

void LibraryVersion(char (&version)[16]) {
  memset(version, 0, sizeof version);
  tvxGetVersion(version, sizeof version);
}

// ---- restart recovery --------------------------------------------------------------------------

pthread_mutex_t g_restartMutex = PTHREAD_MUTEX_INITIALIZER;

constexpr long kDefaultRestartPauseMs = 1000;
constexpr long kLongestRestartPauseMs = 60000;

// The pause between reinitialisation attempts, reread at every pause so it can be tuned on a
// running device; an absent or unusable value gives one second.
void RestartPause() {
  long pause = kDefaultRestartPauseMs;
  char value[32];
  if (tvx_platform_property("vendor.runtime.tavix.dsp_restart_pause_ms", value, sizeof value) > 0) {
    char* end = nullptr;
    const long parsed = strtol(value, &end, 10);
    if (end != value && *end == '\0' && parsed >= 0 && parsed <= kLongestRestartPauseMs) pause = parsed;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(pause));
}

int32_t RecoverChannel(uint32_t handleLow, uint32_t handleHigh) {
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "DSP SSR cleanup sequence initiated.");
  uint64_t clock = 0;
  if (tavixdsp_tvxR6GetClk(handleLow, handleHigh, &clock) == 0) {
    tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "R6 already up. Skipping reload.");
    return 0;
  }
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "Trying to reload R6 stub.");
  if (tavixdsp_handle(handleLow, handleHigh) != 0) {
    domain_channel_close();
    domain_channel_open();
    tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "Stub reloaded successfully.");
    tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "Trying to reinitialize DSP.");
    constexpr int kInitRounds = 15;
    for (int round = 0; round < kInitRounds; ++round) {
      if (round > 0) tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "Trying to reinitialize DSP.");
      // The channel was just reopened, so the caller's handle is stale: initialise through the
      // handle the default domain holds now.
      const uint64_t handle = HandleOf(defaultDSP);
      TVX_LOG_SESSION_INIT_BEGIN(handle);
      if (tavixdsp_initR6_with_attributes(tavixdsp_low(handle), tavixdsp_high(handle), nullptr, 0) != 0) {
        tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "tavixdsp_tvxR6SessionInit failed");
      }
      RestartPause();
    }
  } else {
    constexpr int kReloadRounds = 10;
    for (int round = 0; round < kReloadRounds; ++round) {
      domain_channel_close();
      domain_channel_open();
      if (round + 1 < kReloadRounds) tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "Trying to reload R6 stub.");
    }
  }
  return -1;
}

// ---- optional platform library -----------------------------------------------------------------

constexpr char kPlatformLibrary[] = "/data/local/libtvxopt.so";
constexpr char kPlatformTag[] = "tavix_PLATFORM";
std::mutex g_platformMutex;
void* g_platformLibrary = nullptr;

const char* LoaderError() {
  const char* error = dlerror();
  return error != nullptr ? error : "unknown error";
}

}  // namespace

extern "C" {

void tvxUpdateR6ConstraintCheckFlag(uint32_t value) { R6_constraint_checks_enable = value; }

// ---- channels ----------------------------------------------------------------------------------

int32_t domain_channel_open_adsp(void) { return OpenChannel(g_domains[kAdsp]); }
int32_t domain_channel_open_cdsp(void) { return OpenChannel(g_domains[kCdsp]); }
int32_t domain_channel_open_mdsp(void) { return OpenChannel(g_domains[kMdsp]); }
int32_t domain_channel_close_adsp(void) { return CloseChannel(g_domains[kAdsp]); }
int32_t domain_channel_close_cdsp(void) { return CloseChannel(g_domains[kCdsp]); }
int32_t domain_channel_close_mdsp(void) { return CloseChannel(g_domains[kMdsp]); }

int32_t domain_channel_open(void) { return OnDefaultDomain("domain_channel_open", &OpenChannel); }
int32_t domain_channel_close(void) { return OnDefaultDomain("domain_channel_close", &CloseChannel); }

// ---- session -----------------------------------------------------------------------------------

int32_t tvxR6SessionInit_internal(uint64_t handle, const tavixdsp_attribute* attributes, int32_t numAttributes,
                                  const char* versionString) {
  TVX_LOG_SESSION_INIT_BEGIN(handle);
  const uint32_t low = tavixdsp_low(handle);
  const uint32_t high = tavixdsp_high(handle);
  if (tavixdsp_initR6_with_attributes(low, high, attributes, numAttributes) != 0) {
    tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "tavixdsp_tvxR6SessionInit failed");
    return -1;
  }
  if (versionString == nullptr) return -1;

  constexpr int32_t kVersionBytes = 10;
  char dspVersion[kVersionBytes + 1] = {};
  tavixdsp_tvxGetVersionQ(low, high, dspVersion, kVersionBytes);
  dspVersion[kVersionBytes] = '\0';  // whatever the DSP wrote, the string ends in the buffer
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "Checking for tvxVersion  %d %s", __LINE__, __FILE__);
  if (strncmp(versionString, dspVersion, 2) == 0) return 0;
  tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "Unmatch CPU and R6 major version. CPU version is %s, R6 version is %s  %d %s",
          versionString, dspVersion, __LINE__, __FILE__);
  return -1;
}

int32_t tvxR6SessionInit_internal_adsp(const tavixdsp_attribute* attributes, int32_t numAttributes,
                                       const char* versionString) {
  return tvxR6SessionInit_internal(HandleOf(kAdsp), attributes, numAttributes, versionString);
}

int32_t tvxR6SessionInit_internal_cdsp(const tavixdsp_attribute* attributes, int32_t numAttributes,
                                       const char* versionString) {
  return tvxR6SessionInit_internal(HandleOf(kCdsp), attributes, numAttributes, versionString);
}

int32_t tvxR6SessionInit_internal_mdsp(const tavixdsp_attribute* attributes, int32_t numAttributes,
                                       const char* versionString) {
  return tvxR6SessionInit_internal(HandleOf(kMdsp), attributes, numAttributes, versionString);
}

int32_t tvxR6SessionInit(int32_t dspMode, const char* versionString) {
  std::lock_guard<std::recursive_mutex> lock(g_sessionMutex);
  // The session holds at most one reference to a channel; a repeated setup gives the old one
  // back first instead of leaving the channel open for good.
  tvxR6SessionDeInit();

  g_session.attribute = {3, 0};
  g_session.numAttributes = 0;
  if (dspMode >= 0 && dspMode <= 2) {
    g_session.attribute.value = dspMode;
    g_session.numAttributes = 1;
  }
  const int32_t domain = defaultDSP;
  domain_channel_open();
  if (IsDomain(domain)) g_session.channelDomain = domain;
  tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "In tvxR6SessionInit : attrib.value=%d  \n", g_session.attribute.value);
  return tvxR6SessionInit_internal(HandleOf(domain), g_session.numAttributes != 0 ? &g_session.attribute : nullptr,
                                   g_session.numAttributes, versionString);
}

// Closes the channel the session opened. That is the default domain's unless the default has
// changed since, and then closing the default domain's would leave the session's channel open
// and take a reference the session never had.
int32_t tvxR6SessionDeInit(void) {
  std::lock_guard<std::recursive_mutex> lock(g_sessionMutex);
  const int32_t domain = g_session.channelDomain;
  if (!IsDomain(domain)) return 0;
  g_session.channelDomain = kNoDomain;
  return CloseChannel(g_domains[domain]);
}

int32_t tvxR6Initialize(int32_t dspMode, const char* versionString) {
  std::lock_guard<std::recursive_mutex> lock(g_sessionMutex);
  if (tvxR6SessionInit(dspMode, versionString) == 0) {
    g_session.state = 1;
    g_session.mode = dspMode;
    g_session.lastDomain = g_session.channelDomain;
    tvx_log(TVX_LOG_DEBUG, TVX_LIB_TAG, "R6 initialized successfully. R6 Tavix functions mode %d are enabled.", dspMode);
    tvx_log(TVX_LOG_INFO, TVX_LIB_TAG, "FIT:(FeatureName=>MOLAR6, Initialized=>1)");
    return 0;
  }
  g_session.state = 2;
  g_session.mode = -1;
  tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "R6 initialized failed. R6 Tavix functions are disabled.");
  return -1;
}

int32_t MOLAR6_init(int32_t dspMode, const char* versionString) {
  tvx_read_log_property();
  std::lock_guard<std::recursive_mutex> lock(g_sessionMutex);
  switch (g_session.state) {
    case 0:
      return tvxR6Initialize(dspMode, versionString);
    case 1:
      if (g_session.mode == dspMode) return 0;
      tvx_log(TVX_LOG_INFO, TVX_LIB_TAG, "MOLAR6_deinit");
      EndSession();
      return tvxR6Initialize(dspMode, versionString);
    default:
      return -1;  // a failed session stays failed until MOLAR6_deinit
  }
}

int32_t MOLAR6_deinit(void) {
  tvx_log(TVX_LOG_INFO, TVX_LIB_TAG, "MOLAR6_deinit");
  std::lock_guard<std::recursive_mutex> lock(g_sessionMutex);
  EndSession();
  return 0;
}

int32_t MOLAR6_is_ready(void) {
  std::lock_guard<std::recursive_mutex> lock(g_sessionMutex);
  return g_session.state == 1;
}

int32_t MOLAR6_get_current_mode(void) {
  std::lock_guard<std::recursive_mutex> lock(g_sessionMutex);
  return g_session.mode;
}

// ---- hardware probe and mode entry -------------------------------------------------------------

uint32_t tvxAvailableHWComponent(int32_t mode) {
  const int64_t start = tvxGetTime();
  const int32_t dspMode = DspModeFor(mode);
  char version[16];
  LibraryVersion(version);

  bool unknownDomain = false;
  uint32_t result = 0;
  {
    std::lock_guard<std::recursive_mutex> lock(g_sessionMutex);
    if (MOLAR6_is_ready() && MOLAR6_get_current_mode() == dspMode) {
      const int32_t domain = defaultDSP;
      if (domain != g_session.lastDomain) {
        if (IsDomain(domain)) {
          MOLAR6_deinit();
          if (MOLAR6_init(dspMode, version) != 0) {
            const char* name = g_domains[domain].upper;
            tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG,
                    "Failed to open channel on %s!! %s does not support Domains on this target %d %s", name, name,
                    __LINE__, __FILE__);
          }
        } else {
          tvx_log(TVX_LOG_ERROR, TVX_LIB_TAG, "Unknown DSP type selected.%d %s", __LINE__, __FILE__);
          unknownDomain = true;
        }
      }
    } else {
      MOLAR6_deinit();
      MOLAR6_init(dspMode, version);
    }
    if (!unknownDomain && MOLAR6_is_ready()) result = TVX_HW_DSP;
  }

  if (libLogPrint) {
    tvx_log(TVX_LOG_ERROR, TVX_RUNTIME_TAG, "%s %lld", " R6 Initialization Time :",
            static_cast<long long>(tvxGetTime() - start));
  }
  tvxInitSharedMem(result);
  return result;
}

int32_t tvxSelectRDSP6Mode(int32_t dspMode) {
  char version[16];
  LibraryVersion(version);
  const int32_t result = MOLAR6_init(dspMode, version);
  if (result != 0) return result;
  RDSP_initflag = 1;
  return 1;
}

void tvxR6GetClk(void) {}

int32_t adspSSRcleanUpSequence(uint32_t handleLow, uint32_t handleHigh) {
  if (pthread_mutex_lock(&g_restartMutex) != 0) return -1;
  const int32_t result = RecoverChannel(handleLow, handleHigh);
  pthread_mutex_unlock(&g_restartMutex);
  return result;
}

void tvxCleanUpHW(void) {
  MOLAR6_deinit();
  tvxDeInitSharedMem();
}

// ---- optional platform library -----------------------------------------------------------------

int32_t tvxPlatformOptLoad(void) {
  tvx_log(TVX_LOG_DEBUG, "tvx", "Loading from: %s\n", kPlatformLibrary);
  std::lock_guard<std::mutex> lock(g_platformMutex);
  if (g_platformLibrary != nullptr) return 0;
  g_platformLibrary = dlopen(kPlatformLibrary, RTLD_LAZY);
  if (g_platformLibrary == nullptr) {
    tvx_log(TVX_LOG_ERROR, kPlatformTag, "dlopen for %s failed!\n Error:%s\n", kPlatformLibrary, LoaderError());
    return -1;
  }
  tvx_log(TVX_LOG_DEBUG, kPlatformTag, "dlopen for %s is successfull.\n", kPlatformLibrary);
  return 0;
}

int32_t tvxPlatformOptClose(void) {
  std::lock_guard<std::mutex> lock(g_platformMutex);
  if (g_platformLibrary != nullptr) dlclose(g_platformLibrary);
  g_platformLibrary = nullptr;
  return 0;
}

void* tvxPlatformOptGetFunc(const char* name) {
  const char* shown = name != nullptr ? name : "";
  std::lock_guard<std::mutex> lock(g_platformMutex);
  if (g_platformLibrary == nullptr || name == nullptr) {
    tvx_log(TVX_LOG_ERROR, kPlatformTag, "dlsym for %s failed! \n Error:%s\n", shown,
            g_platformLibrary == nullptr ? "library not loaded" : "no symbol name");
    return nullptr;
  }
  dlerror();
  void* function = dlsym(g_platformLibrary, name);
  if (function == nullptr) {
    tvx_log(TVX_LOG_ERROR, kPlatformTag, "dlsym for %s failed! \n Error:%s\n", shown, LoaderError());
  }
  return function;
}

// The stub library is linked, so there are no symbols to look up.
int32_t load_stub_symbols(void) { return 0; }

}  // extern "C"
