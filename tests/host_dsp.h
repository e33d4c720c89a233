// Starts the real host DSP process (tavix-dsp) for a test, in a private directory, and points
// the library's stub at it through TAVIX_DSP_SOCKET. The ARMv7 suite under qemu-arm starts the
// x86-64 host DSP the same way (TAVIX_HOST_DSP names it).
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <spawn.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace tvxtest {

inline std::string HostDspPath() {
  const char* env = getenv("TAVIX_HOST_DSP");
  return env && *env ? env : TAVIX_HOST_DSP_DEFAULT;
}

class HostDsp {
 public:
  explicit HostDsp(std::vector<std::string> options = {}) {
    char pattern[] = "/tmp/tavix-test-XXXXXX";
    dir_ = mkdtemp(pattern);
    socket_ = dir_ + "/dsp.sock";
    std::vector<std::string> args = {HostDspPath(), "--socket", socket_};
    args.insert(args.end(), options.begin(), options.end());
    if (getenv("TAVIX_TEST_DSP_VERBOSE")) args.push_back("--verbose");
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
      pid_ = -1;
      ADD_FAILURE() << "cannot start " << argv[0];
      return;
    }
    for (int i = 0; i < 500 && !Reachable(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(Reachable()) << "the host DSP did not come up";
    setenv("TAVIX_DSP_SOCKET", socket_.c_str(), 1);
  }
  ~HostDsp() {
    Stop(SIGTERM);
    unsetenv("TAVIX_DSP_SOCKET");
    rmdir(dir_.c_str());
  }
  HostDsp(const HostDsp&) = delete;
  HostDsp& operator=(const HostDsp&) = delete;

  // Ends the process (SIGKILL: an abrupt death) and waits for it.
  void Stop(int signal = SIGKILL) {
    if (pid_ <= 0) return;
    kill(pid_, signal);
    int status;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    unlink(socket_.c_str());
  }
  const std::string& socket() const { return socket_; }
  const std::string& dir() const { return dir_; }

 private:
  bool Reachable() const {
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    snprintf(a.sun_path, sizeof a.sun_path, "%s", socket_.c_str());
    const int s = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const bool ok = connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    close(s);
    return ok;
  }
  pid_t pid_ = -1;
  std::string dir_, socket_;
};

}  // namespace tvxtest
