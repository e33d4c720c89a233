// tavix-dsp: the host DSP. It listens on a UNIX-domain socket private to the user, serves the
// three DSP domains, runs each call on the library's reference kernels and sends the outputs
// back; blocks registered by the client are mapped here, so buffers inside them are not copied.
// Faults for testing the client's fallback and restart recovery are chosen on the command line.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

#include "../socket_io.h"
#include "service.h"

namespace {

using namespace tvxdsp;

std::atomic<bool> g_stop{false};
void OnSignal(int) { g_stop = true; }

const char kUsage[] =
    "usage: tavix-dsp [--socket PATH] [--fail-status S [--fail-every K]] [--restart-once | --restart-every K]\n"
    "                 [--restart-drops-session] [--version TEXT] [--delay-ms N] [--exit-after N] [--verbose]\n"
    "Prints TAVIX_DSP_SOCKET=<path> when ready; SIGINT/SIGTERM print the statistics and stop.\n";

bool ParseNumber(const char* text, uint64_t* out) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long v = strtoull(text, &end, 10);
  if (errno || !*text || *end) return false;
  *out = v;
  return true;
}

void Serve(int socket, const Faults* faults) {
  Channel channel(*faults);
  for (;;) {
    uint8_t head[kHeaderBytes];
    int fd = -1;
    if (!ReadExact(socket, head, kHeaderBytes, -1, &fd)) break;
    const Header h = DecodeHeader(head);
    if (h.magic != kMagic || h.length > kMaxPayload) {
      if (fd >= 0) close(fd);
      break;  // not a client of ours: nothing after this can be trusted
    }
    std::vector<uint8_t> payload(h.length);
    if (!ReadExact(socket, payload.data(), payload.size(), -1, &fd)) {
      if (fd >= 0) close(fd);
      break;  // truncated message
    }
    Reply reply = channel.Handle(h, payload.data(), payload.size(), fd);
    std::vector<iovec> pieces;
    uint8_t out[kHeaderBytes];
    uint64_t length = reply.body.size();
    for (const Args::Output& o : reply.outputs) length += o.length;
    EncodeHeader(Header{kMagic, kReply, static_cast<uint32_t>(reply.status), 0, length}, out);
    pieces.push_back({out, kHeaderBytes});
    if (!reply.body.empty()) pieces.push_back({reply.body.data(), reply.body.size()});
    for (const Args::Output& o : reply.outputs) pieces.push_back({const_cast<uint8_t*>(o.data), o.length});
    if (!SendAll(socket, pieces.data(), static_cast<int>(pieces.size()))) break;
  }
  close(socket);
}

// The socket's directory must be ours alone; a new one is created 0700.
bool PrivateDirectory(const std::string& dir) {
  if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return false;
  struct stat st;
  return stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == getuid() && (st.st_mode & 077) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  Faults faults;
  std::string path;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    const char* v = i + 1 < argc ? argv[i + 1] : nullptr;
    uint64_t n = 0;
    auto number = [&](uint64_t* out) {
      if (!v || !ParseNumber(v, out)) {
        fprintf(stderr, "tavix-dsp: %s needs a number\n%s", a.c_str(), kUsage);
        exit(2);
      }
      ++i;
    };
    if (a == "--socket" && v) { path = v; ++i; }
    else if (a == "--version" && v) { faults.version = v; ++i; }
    else if (a == "--fail-status") { number(&n); faults.failStatus = static_cast<int32_t>(n); }
    else if (a == "--fail-every") { number(&n); faults.failEvery = static_cast<uint32_t>(n); }
    else if (a == "--restart-every") { number(&n); faults.restartEvery = static_cast<uint32_t>(n); }
    else if (a == "--restart-once") faults.restartOnce = true;
    else if (a == "--restart-drops-session") faults.restartDropsSession = true;
    else if (a == "--verbose") faults.verbose = true;
    else if (a == "--delay-ms") { number(&n); faults.delayMs = static_cast<uint32_t>(n); }
    else if (a == "--exit-after") { number(&n); faults.exitAfter = n; }
    else {
      fprintf(stderr, "tavix-dsp: unknown option %s\n%s", a.c_str(), kUsage);
      return 2;
    }
  }

  std::string dir;
  bool ownDir = false;
  if (path.empty()) {
    const char* base = getenv("XDG_RUNTIME_DIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/tavix-dsp-XXXXXX";
    if (!mkdtemp(pattern.data())) {
      perror("tavix-dsp: mkdtemp");
      return 1;
    }
    dir = pattern;
    ownDir = true;
    path = dir + "/dsp.sock";
  } else {
    const size_t slash = path.rfind('/');
    dir = slash == std::string::npos ? "." : path.substr(0, slash);
    if (dir != "." && !PrivateDirectory(dir)) {
      fprintf(stderr, "tavix-dsp: %s must be a directory only this user can enter\n", dir.c_str());
      return 1;
    }
  }

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    fprintf(stderr, "tavix-dsp: socket path too long\n");
    return 1;
  }
  strcpy(address.sun_path, path.c_str());
  unlink(path.c_str());
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  umask(077);
  if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      chmod(path.c_str(), 0600) != 0 || listen(listener, 64) != 0) {
    perror("tavix-dsp: listen");
    return 1;
  }
  signal(SIGPIPE, SIG_IGN);
  signal(SIGINT, OnSignal);
  signal(SIGTERM, OnSignal);
  printf("TAVIX_DSP_SOCKET=%s\n", path.c_str());
  fflush(stdout);

  while (!g_stop) {
    pollfd p{listener, POLLIN, 0};
    if (poll(&p, 1, 100) <= 0) continue;
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) continue;
    std::thread(Serve, client, &faults).detach();
  }
  fputs(StatsTable().c_str(), stderr);
  close(listener);
  unlink(path.c_str());
  if (ownDir) rmdir(dir.c_str());
  return 0;
}
