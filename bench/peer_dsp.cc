// The DSP path: the library's remote tier served by the host DSP (tavix-dsp, a separate process
// that runs each call it receives on the reference kernels), next to the reference and SIMD
// tiers in this process and to a bare round trip between two processes (a socket ping-pong).
// The host DSP is the one TAVIX_DSP_SOCKET names, else one started for the run, once on another
// CPU than the caller and once on the same CPU. Times are wall time: a remote call's work runs
// in the other process, which the calling thread's CPU time would not see. The host DSP's own
// counters tell whether each call really ran there and how many bytes it copied.
#include <fcntl.h>
#include <sched.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "frame/frame.h"
#include "peer_ops.h"
#include "remote/session.h"
#include "stub/call.h"

extern char** environ;

namespace {

constexpr double kReadySeconds = 5;        // for a started host DSP to report its socket
constexpr int kSingleCalls = 20000;        // individually timed tiny calls, for their spread
constexpr int kCountedCalls = 3;           // calls per path whose host-DSP counters are read
constexpr double kRoundTripGoalUs = 30;    // the tiny call's median round trip
constexpr double kRegisteredRoundTrips = 2;  // the registered call's allowance over the kernel
// Wire numbers of the internal rows (the clock probe's among them) follow the public rows'.
constexpr uint32_t kInternalOpBase = 1000;

// ---- the host DSP process -------------------------------------------------------------------

// A started host DSP makes its own private socket directory, prints TAVIX_DSP_SOCKET=<path>
// once it listens, and on SIGTERM prints its per-operation counters on stderr, removes the
// directory and exits.
class HostDspProcess {
 public:
  HostDspProcess() = default;
  HostDspProcess(const HostDspProcess&) = delete;
  HostDspProcess& operator=(const HostDspProcess&) = delete;
  ~HostDspProcess() { stop(); }

  // Empty when a host DSP is there to use, else why not.
  std::string start() {
    if (const char* named = getenv("TAVIX_DSP_SOCKET"); named && *named) {
      where_ = std::string("the host DSP at ") + named + " (TAVIX_DSP_SOCKET)";
      return {};
    }
    const char* fromEnv = getenv("TAVIX_HOST_DSP");
    std::string program = fromEnv && *fromEnv ? fromEnv : TAVIX_HOST_DSP_DEFAULT;
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return std::string("pipe: ") + strerror(errno);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    char* argv[] = {program.data(), nullptr};
    const int failed = posix_spawnp(&pid_, program.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    ready_ = fds[0];
    if (failed) {
      pid_ = -1;
      return "cannot start " + program + ": " + strerror(failed);
    }
    const std::string key = "TAVIX_DSP_SOCKET=", line = readyLine();
    if (line.rfind(key, 0) != 0) return program + " did not report its socket";
    setenv("TAVIX_DSP_SOCKET", line.c_str() + key.size(), 1);
    exported_ = true;
    where_ = program + ", started for this run (socket " + line.substr(key.size()) + ")";
    return {};
  }

  void stop() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      int status;
      waitpid(pid_, &status, 0);
      pid_ = -1;
    }
    if (ready_ >= 0) close(ready_);
    ready_ = -1;
    if (exported_) unsetenv("TAVIX_DSP_SOCKET");
    exported_ = false;
  }

  const std::string& where() const { return where_; }

 private:
  std::string readyLine() {
    std::string line;
    const double deadline = peerSeconds(PeerClock::kWall) + kReadySeconds;
    for (;;) {
      const double left = deadline - peerSeconds(PeerClock::kWall);
      pollfd p{ready_, POLLIN, 0};
      char c;
      if (left <= 0 || poll(&p, 1, static_cast<int>(left * 1000) + 1) <= 0 || read(ready_, &c, 1) != 1) return {};
      if (c == '\n') return line;
      line += c;
    }
  }

  pid_t pid_ = -1;
  int ready_ = -1;  // the read end of the host DSP's standard output
  bool exported_ = false;
  std::string where_;
};

// ---- buffers --------------------------------------------------------------------------------

struct SharedFree {
  void operator()(uint8_t* p) const { tvxMemFree(p); }
};
using SharedBlock = std::unique_ptr<uint8_t, SharedFree>;

// A block from tvxMemAlloc: with a DSP session, shared memory registered with the DSP.
SharedBlock sharedBlock(size_t bytes) {
  return SharedBlock(static_cast<uint8_t*>(tvxMemAlloc(static_cast<uint32_t>(bytes), 64)));
}

// ---- host-DSP counters ----------------------------------------------------------------------

struct DspCounters {
  uint64_t calls = 0, bytes = 0;
  bool read = false;
};

DspCounters countersOf(uint32_t op) {
  DspCounters c;
  c.read = tvx_host_dsp_stats(op, &c.calls, &c.bytes);
  return c;
}

volatile int64_t g_sink;
uint8_t g_pixels[3] = {200, 17, 0};  // the 1x1 call's two inputs and its output

// ---- rows -----------------------------------------------------------------------------------

constexpr uint32_t kCpuOnly = 0xFFFFFFFFu;

struct Row {
  Row(std::string operation_, std::string path_, uint32_t op_, std::function<void()> call_,
      std::function<std::string()> output_, bool gaussian_)
      : operation(std::move(operation_)), path(std::move(path_)), op(op_), call(std::move(call_)),
        output(std::move(output_)), gaussian(gaussian_) {}

  std::string operation, path;
  uint32_t op;                  // the host DSP's number for the call, or kCpuOnly
  std::function<void()> call;
  std::function<std::string()> output;  // after one call: the result against the reference tier
  bool gaussian;                // compared with the reference Gaussian
  double seconds = 0;
  uint64_t timedCalls = 0;      // calls made while timing
  double bytesPerCall = -1;     // counted by the host DSP; -1 for CPU rows
  std::string fault;            // why the row's numbers are not the DSP's, when they are not
};

std::string sameImage(const uint8_t* x, const uint8_t* y, size_t bytes) {
  if (std::memcmp(x, y, bytes) == 0) return "same";
  size_t differing = 0;
  for (size_t i = 0; i < bytes; ++i) differing += x[i] != y[i];
  return std::to_string(differing) + " bytes differ";
}

// Runs each DSP row a few times between two readings of the host DSP's counters: every call
// must have been served there (a failed remote call falls back to the SIMD tier silently).
void countCopies(std::vector<Row>& rows) {
  for (Row& r : rows) {
    if (r.op == kCpuOnly) continue;
    const DspCounters before = countersOf(r.op);
    for (int i = 0; i < kCountedCalls; ++i) r.call();
    const DspCounters after = countersOf(r.op);
    if (!before.read || !after.read) {
      r.fault = "host DSP counters unreadable";
    } else if (after.calls - before.calls != kCountedCalls) {
      r.fault = "only " + std::to_string(after.calls - before.calls) + " of " + std::to_string(kCountedCalls) +
                " calls reached the host DSP";
    } else {
      r.bytesPerCall = double(after.bytes - before.bytes) / kCountedCalls;
    }
  }
}

// Wall time of each of kSingleCalls calls: the median, 90th and 99th percentiles.
std::vector<double> spreadOf(const std::function<void()>& call) {
  std::vector<double> t(kSingleCalls);
  for (double& s : t) {
    const double start = peerSeconds(PeerClock::kWall);
    call();
    s = peerSeconds(PeerClock::kWall) - start;
  }
  std::sort(t.begin(), t.end());
  return {t[t.size() / 2], t[t.size() * 9 / 10], t[t.size() * 99 / 100]};
}

void printTable(const std::vector<Row>& rows, double referenceSeconds) {
  std::printf("%-36s %-42s %11s %13s %14s  %s\n", "operation", "tier / path", "median", "vs reference",
              "bytes copied", "output vs reference tier");
  for (const Row& r : rows) {
    char ratio[24] = "-", bytes[24] = "-";
    if (r.gaussian) std::snprintf(ratio, sizeof ratio, "%.2fx", r.seconds / referenceSeconds);
    if (r.bytesPerCall >= 0) std::snprintf(bytes, sizeof bytes, "%.0f", r.bytesPerCall);
    const std::string note = r.fault.empty() ? (r.output ? r.output() : "") : "NOT ON THE DSP: " + r.fault;
    std::printf("%-36s %-42s %8.1f us %13s %14s  %s\n", r.operation.c_str(), r.path.c_str(), r.seconds * 1e6, ratio,
                bytes, note.c_str());
  }
}

void printGoal(const char* goal, const std::string& measured, bool met) {
  std::printf("  %-58s %-40s %s\n", goal, measured.c_str(), met ? "met" : "MISSED");
}

__attribute__((format(printf, 1, 2))) std::string format(const char* pattern, ...) {
  char text[128];
  va_list args;
  va_start(args, pattern);
  std::vsnprintf(text, sizeof text, pattern, args);
  va_end(args);
  return text;
}

// ---- placement --------------------------------------------------------------------------

// Where the calling thread and the other process of a round trip run. On a shared or virtual
// machine a round trip that wakes another CPU costs several times one that stays on one CPU,
// and the scheduler may choose either, so the measurement pins both sides.
enum class Placement {
  kTwoCpus,   // this thread on one CPU, the host DSP and the echo process on another
  kOneCpu,    // all on one CPU: a synchronous call leaves it to the other side while it waits
  kScheduler  // a host DSP this run did not start: placed by the scheduler
};

// The calling thread's CPU affinity, restored on destruction. Processes started while it is
// pinned inherit its CPU.
class Affinity {
 public:
  Affinity() : saved_(readMask()) {}
  Affinity(const Affinity&) = delete;
  Affinity& operator=(const Affinity&) = delete;
  ~Affinity() { sched_setaffinity(0, sizeof saved_, &saved_); }

  bool pin(int cpu) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(cpu, &one);
    return sched_setaffinity(0, sizeof one, &one) == 0;
  }
  // The CPU this thread runs on, and another it may run on (-1 when there is none).
  int here() const { return sched_getcpu(); }
  int another() const {
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
      if (cpu != here() && CPU_ISSET(cpu, &saved_)) return cpu;
    }
    return -1;
  }

 private:
  static cpu_set_t readMask() {
    cpu_set_t mask;
    CPU_ZERO(&mask);
    sched_getaffinity(0, sizeof mask, &mask);
    return mask;
  }
  cpu_set_t saved_;
};

// A child process that echoes 8 bytes over a UNIX socket pair: a round trip to another process
// with no library code in it, the floor under any call to the host DSP.
class PingPong {
 public:
  PingPong() {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      close(fds[0]);
      uint8_t b[8];
      while (read(fds[1], b, sizeof b) == static_cast<ssize_t>(sizeof b) &&
             write(fds[1], b, sizeof b) == static_cast<ssize_t>(sizeof b)) {
      }
      _exit(0);
    }
    close(fds[1]);
    socket_ = fds[0];
    if (pid_ < 0) stop();
  }
  PingPong(const PingPong&) = delete;
  PingPong& operator=(const PingPong&) = delete;
  ~PingPong() { stop(); }
  bool ready() const { return socket_ >= 0; }
  void roundTrip() {
    uint8_t b[8] = {};
    if (write(socket_, b, sizeof b) != static_cast<ssize_t>(sizeof b) ||
        read(socket_, b, sizeof b) != static_cast<ssize_t>(sizeof b)) {
      failed_ = true;
    }
  }
  bool failed() const { return failed_; }

 private:
  void stop() {
    if (socket_ >= 0) close(socket_);  // the child reads end-of-file and exits
    socket_ = -1;
    if (pid_ > 0) waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  int socket_ = -1;
  pid_t pid_ = -1;
  bool failed_ = false;
};

// The library in the extended DSP mode, which moves every operation with a remote form to the
// default domain's tier with the size constraint checks off (so a 1x1 call goes remote too);
// on destruction the session closes and the SIMD run of the other sections comes back.
// The session's progress lines go nowhere: the section reports what it found itself.
class ExtendedDspMode {
 public:
  ExtendedDspMode() {
    tvx_set_log_sink(quiet);
    tvxSetOperationMode(TAVIX_OP_EXT_RDSP);
    tvx_set_log_sink(nullptr);
  }
  ExtendedDspMode(const ExtendedDspMode&) = delete;
  ExtendedDspMode& operator=(const ExtendedDspMode&) = delete;
  ~ExtendedDspMode() {
    tvx_set_log_sink(quiet);
    tvxCleanUp();
    setUpPeerRun();
  }

 private:
  static void quiet(int, const char*, const char*) {}
};

// One measurement with its own host DSP (or the named one); false when there was none to use.
bool measure(const PeerImages& images, Placement placement) {
  Affinity affinity;
  const int here = affinity.here(), there = placement == Placement::kTwoCpus ? affinity.another() : here;
  switch (placement) {
    case Placement::kTwoCpus:
      std::printf("\nplacement: this thread on CPU %d, the host DSP and the echo process on CPU %d\n", here, there);
      break;
    case Placement::kOneCpu:
      std::printf("\nplacement: this thread, the host DSP and the echo process on CPU %d\n", here);
      break;
    case Placement::kScheduler:
      std::printf("\nplacement: as the scheduler places the processes\n");
      break;
  }
  // The host DSP and the echo process start on their CPU; this thread then moves to its own.
  const bool pinned = placement == Placement::kScheduler || (there >= 0 && affinity.pin(there));
  HostDspProcess dsp;
  const std::string why = pinned ? dsp.start() : "cannot pin this thread to a CPU";
  PingPong pingPong;
  if (why.empty() && placement != Placement::kScheduler && !affinity.pin(here)) {
    std::printf("cannot pin this thread to CPU %d\n", here);
    return false;
  }
  if (!why.empty()) {
    std::printf("no host DSP: %s\n", why.c_str());
    return false;
  }
  std::printf("host DSP: %s\n", dsp.where().c_str());
  ExtendedDspMode mode;
  const uint32_t gaussRow = TVX_ROW_tvxFilterGaussian3x3u8, remote = tvxImplTable[gaussRow];
  if (!MOLAR6_is_ready() || remote < TVX_IMPL_ADSP) {
    std::printf("no DSP session: the extended DSP mode left the Gaussian on the %s tier\n", tvxImplChar[remote]);
    return false;
  }
  const std::string dspTier = std::string("DSP (") + tvxImplChar[remote] + ")";
  std::printf("session: %s tier, registered shared memory %s\n\n", tvxImplChar[remote],
              tvxSharedMemAlloc_ ? "installed" : "NOT installed");

  const uint32_t w = kPeerWidth, h = kPeerHeight;
  const size_t bytes = size_t(w) * h;
  const uint8_t* src = images.a.ptr<uint8_t>();
  std::vector<uint8_t> referenceOut(bytes, 0), simdOut(bytes, 1), copiedOut(bytes, 2);
  SharedBlock sharedSrc = sharedBlock(bytes), sharedOut = sharedBlock(bytes), sharedReferenceOut = sharedBlock(bytes);
  if (!sharedSrc || !sharedOut || !sharedReferenceOut) {
    std::printf("tvxMemAlloc failed for a %zu-byte block\n", bytes);
    return false;
  }
  std::memcpy(sharedSrc.get(), src, bytes);
  std::memset(sharedOut.get(), 3, bytes);
  std::memset(sharedReferenceOut.get(), 4, bytes);
  if (!pingPong.ready()) {
    std::printf("cannot start the ping-pong process\n");
    return false;
  }

  auto gaussian = [w, h, gaussRow](uint32_t tier, const uint8_t* in, uint8_t* out) {
    return [=] {
      tvxImplTable[gaussRow] = tier;
      tvxFilterGaussian3x3u8_v2(in, w, h, w, out, w, 1);
    };
  };
  auto against = [&referenceOut, bytes](const uint8_t* out) {
    return [&referenceOut, bytes, out] { return sameImage(out, referenceOut.data(), bytes); };
  };
  const uint32_t probeTier = tvxInternalImplTable[TVX_IROW_probeR6Time];
  const std::string gauss = "tvxFilterGaussian3x3u8_v2 1920x1080";
  std::vector<Row> rows = {
      {"UNIX socket ping-pong, 8 bytes", "two processes, no library code", kCpuOnly,
       [&pingPong] { pingPong.roundTrip(); },
       [&pingPong] { return pingPong.failed() ? std::string("FAILED") : std::string(); }, false},
      {"probeR6Time (the DSP's clock)", dspTier + ", no buffers", kInternalOpBase + TVX_IROW_probeR6Time,
       [probeTier] {
         tvxInternalImplTable[TVX_IROW_probeR6Time] = probeTier;
         g_sink = probeR6Time();
       },
       {}, false},
      {"tvxAbsDiffu8 1x1", dspTier + ", heap buffers (copied)", TVX_ROW_tvxAbsDiffu8,
       [remote] {
         tvxImplTable[TVX_ROW_tvxAbsDiffu8] = remote;
         tvxAbsDiffu8(g_pixels, g_pixels + 1, 1, 1, 1, g_pixels + 2, 1);
       },
       [] { return g_pixels[2] == 183 ? std::string("same") : "|200 - 17| gave " + std::to_string(g_pixels[2]); },
       false},
      {gauss, "CPU (reference tier)", kCpuOnly, gaussian(TVX_IMPL_CPU, src, referenceOut.data()), {}, true},
      // The reference kernel on the registered blocks: what the kernel itself costs on that memory.
      {gauss, "CPU (reference tier), tvxMemAlloc blocks", kCpuOnly,
       gaussian(TVX_IMPL_CPU, sharedSrc.get(), sharedReferenceOut.get()), against(sharedReferenceOut.get()), true},
      {gauss, "LANES (SIMD tier)", kCpuOnly, gaussian(TVX_IMPL_LANES, src, simdOut.data()), against(simdOut.data()),
       true},
      {gauss, dspTier + ", heap buffers (copied)", gaussRow, gaussian(remote, src, copiedOut.data()),
       against(copiedOut.data()), true},
      {gauss, dspTier + ", tvxMemAlloc (registered)", gaussRow,
       gaussian(remote, sharedSrc.get(), sharedOut.get()), against(sharedOut.get()), true},
  };

  countCopies(rows);  // also leaves every output written
  const DspCounters before = countersOf(gaussRow);
  std::vector<std::function<void()>> sides;
  for (Row& r : rows) {
    sides.push_back([&r] {
      ++r.timedCalls;
      r.call();
    });
  }
  const std::vector<double> medians = interleavedMedians(sides, PeerClock::kWall);
  for (size_t i = 0; i < rows.size(); ++i) rows[i].seconds = medians[i];
  const DspCounters after = countersOf(gaussRow);
  const Row &floor = rows[0], &probe = rows[1], &reference = rows[3], &referenceShared = rows[4], &copied = rows[6],
            &registered = rows[7];
  const std::vector<double> spread = spreadOf(probe.call), floorSpread = spreadOf(floor.call);

  printTable(rows, reference.seconds);
  std::printf("\n%d single calls each: probeR6Time median %.1f us (90th percentile %.1f, 99th %.1f);\n"
              "ping-pong median %.1f us (90th percentile %.1f, 99th %.1f).\n",
              kSingleCalls, spread[0] * 1e6, spread[1] * 1e6, spread[2] * 1e6, floorSpread[0] * 1e6,
              floorSpread[1] * 1e6, floorSpread[2] * 1e6);
  const uint64_t gaussCalls = copied.timedCalls + registered.timedCalls;
  std::printf("host DSP counters over the timed rounds, tvxFilterGaussian3x3u8_v2: %llu calls served (%llu made),\n"
              "%llu bytes copied (%.0f expected from the copied calls alone).\n",
              static_cast<unsigned long long>(after.calls - before.calls), static_cast<unsigned long long>(gaussCalls),
              static_cast<unsigned long long>(after.bytes - before.bytes),
              copied.bytesPerCall * double(copied.timedCalls));

  std::printf("\ngoals:\n");
  printGoal("tiny call round trip: median under 30 us",
            format("%.1f us (ping-pong floor %.1f us)", probe.seconds * 1e6, floor.seconds * 1e6),
            probe.fault.empty() && probe.seconds * 1e6 < kRoundTripGoalUs);
  printGoal("registered Gaussian copies no image bytes",
            registered.fault.empty() ? format("%.0f bytes per call", registered.bytesPerCall) : registered.fault,
            registered.fault.empty() && registered.bytesPerCall == 0);
  const double allowance = reference.seconds + kRegisteredRoundTrips * probe.seconds;
  printGoal("registered Gaussian <= reference + 2 tiny round trips",
            format("%.1f us <= %.1f + 2 x %.1f = %.1f us", registered.seconds * 1e6, reference.seconds * 1e6,
                   probe.seconds * 1e6, allowance * 1e6),
            registered.fault.empty() && registered.seconds <= allowance);
  std::printf("  (over the reference kernel: the copied call %.1f us, the registered one %.1f us, or %.1f us over\n"
              "   the kernel on the same blocks; the tiny call %.1f us over the ping-pong)\n",
              (copied.seconds - reference.seconds) * 1e6, (registered.seconds - reference.seconds) * 1e6,
              (registered.seconds - referenceShared.seconds) * 1e6, (probe.seconds - floor.seconds) * 1e6);
  std::fflush(stdout);
  return true;
}

}  // namespace

bool runDspSection(const PeerImages& images) {
  std::printf("\nDSP path: the remote tier through the host DSP process, which runs each call on the reference\n"
              "kernels, against the reference and SIMD tiers here. Wall time per call, the median of %d\n"
              "interleaved rounds of ~%.0f ms per row; one thread calls, the host DSP serves in its own process.\n"
              "A host DSP started here is measured twice: on another CPU than the caller, and on the same CPU.\n"
              "The ping-pong is a peer: the same round trip to another process with no library code in it.\n",
              kPeerRounds, kPeerRoundSeconds * 1e3);
  if (const char* named = getenv("TAVIX_DSP_SOCKET"); named && *named) return measure(images, Placement::kScheduler);
  if (Affinity().another() < 0) {
    std::printf("\n(one CPU only: the two-CPU placement is left out)\n");
  } else if (!measure(images, Placement::kTwoCpus)) {
    return false;
  }
  return measure(images, Placement::kOneCpu);
}
