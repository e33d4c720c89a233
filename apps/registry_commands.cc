// `tavix list` and `tavix bench`: every operation of the registry, called through its
// generated sample (the public entry on caller-provided buffers) on the reference (CPU) and
// SIMD (LANES) tiers, and on the remote (DSP) tier when a host DSP is reachable.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "remote/session.h"
#include "stub/call.h"
#include "tool.h"

#include "samples.inc"

namespace {

// ---- tiers of an entry ----------------------------------------------------------------------

bool hasReference(const TvxSampleEntry& e) { return tvxFuncTable[e.row][TVX_IMPL_CPU] != nullptr; }

enum class Lanes { kNone, kReady, kMissing, kNotSelected };

Lanes lanesState(const TvxSampleEntry& e) {
  if (!e.simd) return Lanes::kNone;
  void* slot = tvxFuncTable[e.row][TVX_IMPL_LANES];
  if (!e.simdVariant || !slot) return Lanes::kMissing;
  // Without a SIMD target on this CPU the mode leaves the reference variant in the SIMD slot.
  return slot == e.simdVariant ? Lanes::kReady : Lanes::kNotSelected;
}

const char* lanesNote(Lanes lanes) {
  switch (lanes) {
    case Lanes::kMissing: return "LANES variant missing";
    case Lanes::kNotSelected: return "no SIMD target on this CPU";
    default: return "";
  }
}

// ---- sample buffers -------------------------------------------------------------------------

struct Size {
  uint32_t width, height;
  double pixels() const { return double(width) * height; }
};
// Full HD first; an operation too slow for it runs at the first smaller size that fits.
constexpr Size kSizes[] = {{1920, 1080}, {960, 540}, {480, 270}, {240, 135}};
constexpr Size kFullSize = kSizes[0];
// Four channels of 32 bits is the widest pixel any sample reads or writes.
constexpr size_t kBufferBytes = size_t(kFullSize.width) * kFullSize.height * 16;

struct FreeBuffer {
  bool shared = false;  // from tvxMemAlloc, else from aligned_alloc
  void operator()(uint8_t* p) const {
    if (shared) tvxMemFree(p);
    else std::free(p);
  }
};

class SampleBuffers {
 public:
  // shared: the buffers come from tvxMemAlloc, which with a DSP session serves blocks
  // registered with the DSP (passed by reference, not copied).
  explicit SampleBuffers(bool shared) : pattern_(allocate(false)) {
    fillPattern(pattern_.get());
    for (Buffer& b : buffers_) b = allocate(shared);
  }

  // Gives the first `count` buffers the pattern again: earlier operations wrote into them.
  void restore(int count) {
    for (int i = 0; i < count && i < TVX_SAMPLE_BUFFERS; ++i) std::memcpy(buffers_[i].get(), pattern_.get(), kBufferBytes);
  }

  TvxSample sample(Size size) const {
    TvxSample s{};
    for (int i = 0; i < TVX_SAMPLE_BUFFERS; ++i) s.buf[i] = buffers_[i].get();
    s.width = size.width;
    s.height = size.height;
    return s;
  }

 private:
  using Buffer = std::unique_ptr<uint8_t, FreeBuffer>;

  static Buffer allocate(bool shared) {
    void* p = shared ? tvxMemAlloc(static_cast<uint32_t>(kBufferBytes), 64) : std::aligned_alloc(64, kBufferBytes);
    if (!p) {
      std::fprintf(stderr, "tavix bench: out of memory\n");
      std::exit(kExitFailed);
    }
    return Buffer(static_cast<uint8_t*>(p), FreeBuffer{shared});
  }

  // Pseudo-random bytes from a fixed seed, except that the top byte of every 32-bit word keeps
  // a float within +-[2^-7, 2^9): float operations then meet no NaN, infinity or denormal,
  // whose slow paths would be timed instead of the operation.
  static void fillPattern(uint8_t* p) {
    uint64_t state = 0x9E3779B97F4A7C15ull;
    for (size_t i = 0; i < kBufferBytes; i += 4) {
      state ^= state << 13;
      state ^= state >> 7;
      state ^= state << 17;
      uint32_t w = static_cast<uint32_t>(state >> 16);
      w = (w & 0x80FFFFFFu) | ((0x3Cu + ((w >> 24) & 7u)) << 24);
      std::memcpy(p + i, &w, 4);
    }
  }

  Buffer pattern_;
  Buffer buffers_[TVX_SAMPLE_BUFFERS];
};

// ---- the DSP tier ---------------------------------------------------------------------------

// The remote tier `tavix bench` times as its DSP column; 0 when no host DSP is reachable, and
// then there is no column.
uint32_t g_dspTier = 0;

// With TAVIX_DSP_SOCKET naming a host DSP, the extended DSP mode opens a session and puts every
// operation with a remote form on the default domain's tier, size checks off. The internal
// rows keep their CPU tiers, so the reference and SIMD columns time what they time without a
// DSP. False (and the CPU mode back) when no session opens.
bool openDspSession() {
  const char* socket = std::getenv("TAVIX_DSP_SOCKET");
  if (!socket || !*socket) return false;
  uint32_t internalTiers[TVX_NUM_INTERNAL_ROWS];
  std::memcpy(internalTiers, tvxInternalImplTable, sizeof internalTiers);
  tvx_set_log_sink(quietSink);
  tvxSetOperationMode(TAVIX_OP_EXT_RDSP);
  const bool ready = MOLAR6_is_ready();
  if (!ready) tvxSetOperationMode(TAVIX_OP_CPU_PERFORMANCE);
  tvx_set_log_sink(nullptr);
  if (!ready) {
    std::fprintf(stderr, "tavix bench: no DSP session through %s; timing the CPU tiers only\n", socket);
    return false;
  }
  std::memcpy(tvxInternalImplTable, internalTiers, sizeof internalTiers);
  g_dspTier = TVX_IMPL_ADSP + static_cast<uint32_t>(defaultDSP);
  return true;
}

void closeDspSession() {
  if (!g_dspTier) return;
  tvx_set_log_sink(quietSink);
  tvxCleanUp();
  tvx_set_log_sink(nullptr);
  g_dspTier = 0;
}

bool hasDspForm(const TvxSampleEntry& e) { return e.dspOp >= 0; }

// ---- timing ---------------------------------------------------------------------------------

constexpr int kRounds = 9;                 // interleaved rounds per tier; the median is reported
constexpr double kRoundSeconds = 0.010;    // length of one round of one tier
constexpr double kMaxReferenceCall = 0.1;  // seconds; slower operations move to a smaller size

volatile int64_t g_sink;

// CPU time of this thread: time slices that other processes take on a shared machine do not
// count. With a DSP column every tier is timed in wall time instead, since a remote call's work
// runs in the host DSP's process.
double seconds() {
  timespec now;
  clock_gettime(g_dspTier ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID, &now);
  return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

double secondsPerCall(const TvxSampleEntry& e, const TvxSample& s, uint32_t reps) {
  int64_t results = 0;
  const double start = seconds();
  for (uint32_t i = 0; i < reps; ++i) results += e.call(s);
  const double stop = seconds();
  g_sink = results;
  return (stop - start) / reps;
}

double fastestCall(const TvxSampleEntry& e, const TvxSample& s, int tries) {
  double best = secondsPerCall(e, s, 1);
  for (int i = 1; i < tries; ++i) best = std::min(best, secondsPerCall(e, s, 1));
  return best;
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

std::string formatTime(double seconds) {
  char text[32];
  if (seconds >= 1e-3) std::snprintf(text, sizeof text, "%.3f ms", seconds * 1e3);
  else if (seconds >= 1e-6) std::snprintf(text, sizeof text, "%.2f us", seconds * 1e6);
  else std::snprintf(text, sizeof text, "%.1f ns", seconds * 1e9);
  return text;
}

// ---- one operation --------------------------------------------------------------------------

int g_lastLogPriority = 0;
std::string g_lastLog;
void captureLog(int priority, const char*, const char* message) {
  g_lastLogPriority = priority;
  g_lastLog = message;
  while (!g_lastLog.empty() && g_lastLog.back() == '\n') g_lastLog.pop_back();
}

// One call on the current tier; a sample its own entry rejects is not worth timing.
bool acceptedBySample(const TvxSampleEntry& e, const TvxSample& s, std::string* why) {
  g_lastLogPriority = 0;
  tvx_set_log_sink(captureLog);
  const int64_t result = e.call(s);
  tvx_set_log_sink(nullptr);
  if (e.style == 1 && result == e.failValue) {
    *why = "rejected by its entry: status " + std::to_string(result);
    return false;
  }
  if (g_lastLogPriority >= TVX_LOG_ERROR) {
    *why = "rejected by its entry: " + g_lastLog;
    return false;
  }
  return true;
}

// The size to time an operation at: the largest whose reference call stays under the limit.
struct SizeChoice {
  size_t index = 0;          // in kSizes
  double fullSeconds = 0;    // one reference call at full size, measured or projected
  bool fullMeasured = false;
};

// Projects the reference call from two small sizes (work grows with pixels, or faster, as for
// the matrix products whose sample is width x width), then checks the choice by one call: a
// projection can miss a cache cliff. False when even the smallest size is too slow.
bool chooseSize(const TvxSampleEntry& e, const SampleBuffers& buffers, SizeChoice* choice) {
  const Size small = kSizes[3], mid = kSizes[2];
  const double tSmall = std::max(fastestCall(e, buffers.sample(small), 3), 1e-9);
  const double tMid = std::max(fastestCall(e, buffers.sample(mid), 3), 1e-9);
  const double growth = std::clamp(std::log(tMid / tSmall) / std::log(4.0), 1.0, 2.0);
  auto projected = [&](Size size) { return tMid * std::pow(size.pixels() / mid.pixels(), growth); };
  choice->fullSeconds = projected(kFullSize);
  choice->index = std::size(kSizes) - 1;
  for (size_t i = 0; i < std::size(kSizes); ++i) {
    if (projected(kSizes[i]) <= kMaxReferenceCall) {
      choice->index = i;
      break;
    }
  }
  for (;;) {
    const double seconds = fastestCall(e, buffers.sample(kSizes[choice->index]), 1);
    if (choice->index == 0) {
      choice->fullSeconds = seconds;
      choice->fullMeasured = true;
    }
    if (seconds <= 4 * kMaxReferenceCall) return true;
    if (++choice->index == std::size(kSizes)) return false;
  }
}

// Median seconds per call on each tier, from interleaved rounds; calls[k] counts the calls
// made on tiers[k].
void timeTiers(const TvxSampleEntry& e, const TvxSample& s, const std::vector<uint32_t>& tiers,
               std::vector<double>* medians, std::vector<uint64_t>* calls) {
  const size_t n = tiers.size();
  std::vector<uint32_t> reps(n);
  calls->assign(n, 0);
  for (size_t k = 0; k < n; ++k) {
    tvxImplTable[e.row] = tiers[k];
    const double single = fastestCall(e, s, 2);
    reps[k] = static_cast<uint32_t>(std::clamp(kRoundSeconds / std::max(single, 1e-9), 1.0, 1e7));
    (*calls)[k] += 2;
  }
  std::vector<std::vector<double>> times(n);
  for (int r = 0; r < kRounds; ++r) {
    for (size_t i = 0; i < n; ++i) {
      const size_t k = (r % 2 == 0) ? i : n - 1 - i;  // alternate which tier goes first
      tvxImplTable[e.row] = tiers[k];
      times[k].push_back(secondsPerCall(e, s, reps[k]));
      (*calls)[k] += reps[k];
    }
  }
  medians->clear();
  for (auto& t : times) medians->push_back(median(t));
}

void printRow(const char* name, const std::string& size, const std::string& reference, const std::string& simd,
              const std::string& speedup, const std::string& dsp, const std::string& note) {
  if (g_dspTier) {
    std::printf("%-28s %-10s %12s %12s %9s %12s  %s\n", name, size.c_str(), reference.c_str(), simd.c_str(),
                speedup.c_str(), dsp.c_str(), note.c_str());
  } else {
    std::printf("%-28s %-10s %12s %12s %9s  %s\n", name, size.c_str(), reference.c_str(), simd.c_str(),
                speedup.c_str(), note.c_str());
  }
  std::fflush(stdout);
}

void addNote(std::string* note, const std::string& more) { *note = note->empty() ? more : *note + "; " + more; }

// The host DSP's counters for one operation, or false when they cannot be read.
struct DspCounters {
  uint64_t calls = 0, bytes = 0;
};
bool readCounters(const TvxSampleEntry& e, DspCounters* c) {
  return tvx_host_dsp_stats(static_cast<uint32_t>(e.dspOp), &c->calls, &c->bytes);
}

// Ratios of one operation's row: SIMD and DSP speed-ups over the reference tier, 0 when the
// row has none.
struct Speedups {
  double simd = 0, dsp = 0;
};

// Times one operation on its tiers and prints its row. The operation's tier is left as it was.
Speedups benchOne(const TvxSampleEntry& e, SampleBuffers& buffers) {
  if (!hasReference(e)) {
    printRow(e.name, "-", "-", "-", "-", "-", "reference variant missing");
    return {};
  }
  const uint32_t savedTier = tvxImplTable[e.row];
  tvxImplTable[e.row] = TVX_IMPL_CPU;
  buffers.restore(e.pointers);

  std::string why;
  SizeChoice choice;
  if (!acceptedBySample(e, buffers.sample(kSizes[3]), &why) || !chooseSize(e, buffers, &choice)) {
    printRow(e.name, "-", "-", "-", "-", "-", why.empty() ? "skipped (slow)" : why);
    tvxImplTable[e.row] = savedTier;
    return {};
  }
  const Size size = kSizes[choice.index];
  const Lanes lanes = lanesState(e);
  std::vector<uint32_t> tiers = {TVX_IMPL_CPU};
  if (lanes == Lanes::kReady) tiers.push_back(TVX_IMPL_LANES);
  const bool onDsp = g_dspTier && hasDspForm(e);
  if (onDsp) tiers.push_back(g_dspTier);
  DspCounters before, after;
  const bool counted = onDsp && readCounters(e, &before);
  std::vector<double> medians;
  std::vector<uint64_t> calls;
  timeTiers(e, buffers.sample(size), tiers, &medians, &calls);
  tvxImplTable[e.row] = savedTier;

  char sizeText[24], text[128];
  std::snprintf(sizeText, sizeof sizeText, "%ux%u", size.width, size.height);
  std::string note = lanesNote(lanes);
  if (choice.index != 0) {
    std::snprintf(text, sizeof text, "smaller size: one %ux%u reference call takes ~%.1f s (%s)", kFullSize.width,
                  kFullSize.height, choice.fullSeconds, choice.fullMeasured ? "measured" : "projected");
    addNote(&note, text);
  }
  Speedups speedups;
  std::string simdText = "-", speedupText = "-", dspText = g_dspTier ? "no remote form" : "";
  if (lanes == Lanes::kReady) {
    speedups.simd = medians[0] / medians[1];
    simdText = formatTime(medians[1]);
    std::snprintf(text, sizeof text, "%.2fx", speedups.simd);
    speedupText = text;
  }
  // A remote call the entry keeps on the CPU, or one the DSP refuses, runs on the SIMD tier
  // instead; only calls the host DSP counted as served make a DSP time.
  if (onDsp) {
    const uint64_t made = calls.back();
    if (!counted || !readCounters(e, &after)) {
      dspText = "-";
      addNote(&note, "DSP counters unreadable");
    } else if (after.calls - before.calls != made) {
      dspText = "-";
      addNote(&note, "DSP served " + std::to_string(after.calls - before.calls) + " of " + std::to_string(made) +
                         " calls (the others ran on the CPU)");
    } else {
      speedups.dsp = medians[0] / medians.back();
      dspText = formatTime(medians.back());
      if (after.bytes != before.bytes) {
        std::snprintf(text, sizeof text, "DSP copied %.0f bytes per call", double(after.bytes - before.bytes) / made);
        addNote(&note, text);
      }
    }
  }
  printRow(e.name, sizeText, formatTime(medians[0]), simdText, speedupText, dspText, note);
  return speedups;
}

// Geometric mean of the ratios above zero, and how many there were.
struct GeometricMean {
  double logSum = 0;
  size_t count = 0;
  void add(double ratio) {
    if (ratio <= 0) return;
    logSum += std::log(ratio);
    ++count;
  }
  double value() const { return std::exp(logSum / double(count)); }
};

}  // namespace

int listCommand() {
  std::printf("%4s  %-30s %s\n", "row", "operation", "tiers");
  size_t withSimd = 0, withDsp = 0, missing = 0;
  for (const TvxSampleEntry& e : kTvxSamples) {
    const Lanes lanes = lanesState(e);
    std::string tiers = hasReference(e) ? "CPU" : "CPU(missing)";
    if (lanes == Lanes::kReady) tiers += " LANES";
    else if (lanes == Lanes::kMissing) tiers += " LANES(missing)";
    else if (lanes == Lanes::kNotSelected) tiers += " LANES(no SIMD target on this CPU)";
    if (hasDspForm(e)) tiers += " DSP";
    withSimd += e.simd;
    withDsp += hasDspForm(e);
    missing += !hasReference(e) + (lanes == Lanes::kMissing);
    std::printf("%4u  %-30s %s\n", e.row, e.name, tiers.c_str());
  }
  std::printf("\n%zu operations, %zu with a SIMD tier, %zu with a remote (DSP) form", std::size(kTvxSamples),
              withSimd, withDsp);
  if (missing) std::printf("; %zu variants not linked (marked missing)", missing);
  std::printf(".\n");
  return kExitOk;
}

int benchCommand(const char* pattern) {
  size_t matched = 0;
  for (const TvxSampleEntry& e : kTvxSamples) matched += std::strstr(e.name, pattern) != nullptr;
  if (matched == 0) {
    std::fprintf(stderr, "tavix bench: no operation name contains '%s'\n", pattern);
    return kExitUsage;
  }
  const bool dsp = openDspSession();
  {
    SampleBuffers buffers(dsp);
    if (dsp) {
      std::printf("Time per call of each operation's sample on pseudo-random data (wall time): the median of %d\n"
                  "rounds of ~%.0f ms per tier, the reference (CPU), SIMD (LANES) and remote (%s) tiers interleaved.\n"
                  "Remote calls go to the host DSP at %s, which runs the reference kernels;\n"
                  "the buffers come from tvxMemAlloc, registered with the DSP, which reads and writes them in place.\n"
                  "Operations whose %ux%u reference call would exceed %.0f ms run at the largest smaller size\n"
                  "that fits.\n\n",
                  kRounds, kRoundSeconds * 1e3, tvxImplChar[g_dspTier], std::getenv("TAVIX_DSP_SOCKET"),
                  kFullSize.width, kFullSize.height, kMaxReferenceCall * 1e3);
    } else {
      std::printf("Time per call of each operation's sample on pseudo-random data (thread CPU time): the median\n"
                  "of %d rounds of ~%.0f ms per tier, the reference (CPU) and SIMD (LANES) tiers interleaved.\n"
                  "Operations whose %ux%u reference call would exceed %.0f ms run at the largest smaller size\n"
                  "that fits.\n\n",
                  kRounds, kRoundSeconds * 1e3, kFullSize.width, kFullSize.height, kMaxReferenceCall * 1e3);
    }
    printRow("operation", "size", "reference", "SIMD", "speed-up", "DSP", "");
    GeometricMean simd, remote;
    for (const TvxSampleEntry& e : kTvxSamples) {
      if (!std::strstr(e.name, pattern)) continue;
      const Speedups s = benchOne(e, buffers);
      simd.add(s.simd);
      remote.add(s.dsp);
    }
    if (simd.count) {
      std::printf("\ngeometric mean speed-up of the SIMD tier over %zu operations: %.2fx\n", simd.count, simd.value());
    }
    if (remote.count) {
      std::printf("geometric mean of reference time / DSP time over %zu operations: %.2fx\n", remote.count,
                  remote.value());
    }
  }
  closeDspSession();
  return kExitOk;
}
