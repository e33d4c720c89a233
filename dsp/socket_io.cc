// Socket plumbing shared by the host DSP and its client stub.
#include "socket_io.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <climits>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tvxdsp {

bool SendAll(int socket, struct iovec* pieces, int count, int fd) {
  char control[CMSG_SPACE(sizeof(int))];
  bool sendFd = fd >= 0;
  while (count > 0) {
    msghdr msg{};
    msg.msg_iov = pieces;
    msg.msg_iovlen = static_cast<size_t>(count > IOV_MAX ? IOV_MAX : count);
    if (sendFd) {
      memset(control, 0, sizeof control);
      msg.msg_control = control;
      msg.msg_controllen = sizeof control;
      cmsghdr* c = CMSG_FIRSTHDR(&msg);
      c->cmsg_level = SOL_SOCKET;
      c->cmsg_type = SCM_RIGHTS;
      c->cmsg_len = CMSG_LEN(sizeof(int));
      memcpy(CMSG_DATA(c), &fd, sizeof(int));
    }
    const ssize_t sent = sendmsg(socket, &msg, MSG_NOSIGNAL);
    if (sent < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    sendFd = false;
    size_t left = static_cast<size_t>(sent);
    while (count > 0 && left >= pieces->iov_len) {
      left -= pieces->iov_len;
      ++pieces;
      --count;
    }
    if (count > 0) {
      pieces->iov_base = static_cast<uint8_t*>(pieces->iov_base) + left;
      pieces->iov_len -= left;
    }
  }
  return true;
}

bool ReadExact(int socket, void* buffer, size_t n, int timeoutMs, int* fd) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs);
  uint8_t* out = static_cast<uint8_t*>(buffer);
  while (n > 0) {
    if (timeoutMs >= 0) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) return false;
      pollfd p{socket, POLLIN, 0};
      const int ready = poll(&p, 1, static_cast<int>(left));
      if (ready < 0 && errno == EINTR) continue;
      if (ready <= 0) return false;
    }
    iovec piece{out, n};
    char control[CMSG_SPACE(sizeof(int))];
    msghdr msg{};
    msg.msg_iov = &piece;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    const ssize_t got = recvmsg(socket, &msg, MSG_CMSG_CLOEXEC);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
      if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
      const size_t nfds = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
      for (size_t i = 0; i < nfds; ++i) {
        int received;
        memcpy(&received, CMSG_DATA(c) + i * sizeof(int), sizeof(int));
        if (fd && *fd < 0) *fd = received; else close(received);
      }
    }
    out += got;
    n -= static_cast<size_t>(got);
  }
  return true;
}

int EnvMilliseconds(const char* name, int fallback) {
  const char* text = getenv(name);
  if (!text || !*text) return fallback;
  char* end = nullptr;
  const long value = strtol(text, &end, 10);
  return (*end || value < 0 || value > 3600000) ? fallback : static_cast<int>(value);
}

}  // namespace tvxdsp
