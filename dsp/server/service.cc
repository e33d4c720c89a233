// The host DSP's message handling: validates every message before use, serves the session
// requests, maps registered blocks, runs calls on the reference kernels and injects faults.
#include "service.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

namespace tvxdsp {
namespace {

std::mutex g_statsMutex;
struct OpStats {
  uint64_t calls = 0, bytes = 0;
};
std::map<uint32_t, OpStats> g_stats;
std::atomic<uint64_t> g_callNumber{0};

Reply Status(int32_t status) {
  Reply r;
  r.status = status;
  return r;
}

}  // namespace

void* Args::RawBuffer(int64_t* bytes) {
  if (!Next()) return Fail<void*>();
  const uint8_t kind = r_.U8();
  const uint8_t direction = r_.U8();
  if (direction < kIn || direction > kInOut) return Fail<void*>();
  if (kind == kNull) return nullptr;
  if (kind == kShared) {
    const uint32_t id = r_.U32();
    const uint64_t offset = r_.U64(), length = r_.U64();
    for (const MappedBlock& b : blocks_) {
      if (b.id == id && offset <= b.length && length <= b.length - offset) {
        *bytes = static_cast<int64_t>(length);
        return b.base + offset;
      }
    }
    return Fail<void*>();  // unknown block, or a range reaching outside it
  }
  if (kind != kInline) return Fail<void*>();
  const uint64_t length = r_.U64();
  const uint8_t* data = r_.Bytes(length);
  if (!data && length) return Fail<void*>();
  copies_.emplace_back(new uint8_t[length ? length : 1]);
  uint8_t* copy = copies_.back().get();
  if (length) memcpy(copy, data, length);
  copiedIn_ += length;
  if (direction != kIn) outputs_.push_back({copy, length});
  *bytes = static_cast<int64_t>(length);
  return copy;
}

Channel::~Channel() {
  for (const MappedBlock& b : blocks_) munmap(b.base, b.length);
}

Reply Channel::Handle(const Header& h, const uint8_t* payload, size_t size, int fd) {
  // Only a registration keeps the descriptor that came along; any other message gives it back
  // at once, or a client could run the host DSP out of descriptors.
  if (fd >= 0 && h.type != kRegister) {
    close(fd);
    fd = -1;
  }
  Reader r(payload, size);
  switch (h.type) {
    case kOpen: {
      const std::string domain(reinterpret_cast<const char*>(payload), size);
      if (h.a != kProtocolVersion || (domain != "adsp" && domain != "cdsp" && domain != "mdsp"))
        return Status(kStatusBadMessage);
      opened_ = true;
      return Status(0);
    }
    case kInit: {
      const uint32_t n = r.U32();
      for (uint32_t i = 0; i < n && r.ok(); ++i) {
        r.U32();
        r.U32();
      }
      if (!r.ok() || !r.done() || !opened_) return Status(kStatusBadMessage);
      session_ = true;
      return Status(0);
    }
    case kDeinit:
      session_ = false;
      return Status(opened_ ? 0 : kStatusBadMessage);
    case kVersion: {
      Reply reply;
      reply.body.assign(faults_.version.begin(), faults_.version.end());
      return reply;
    }
    case kClock: {
      if (!session_) return Status(kStatusNoSession);
      Reply reply;
      Writer w;
      w.U64(static_cast<uint64_t>(tvxdsp_clock_now()));
      reply.body = std::move(w.bytes());
      return reply;
    }
    case kRegister: {
      const uint64_t length = r.U64();
      // The block may not reach past the end of what the descriptor holds: touching such a
      // mapping beyond the end of the file raises SIGBUS.
      struct stat file;
      if (fd < 0 || !r.ok() || !r.done() || length == 0 || length > kMaxPayload * 4 || fstat(fd, &file) != 0 ||
          file.st_size < 0 || static_cast<uint64_t>(file.st_size) < length) {
        if (fd >= 0) close(fd);
        return Status(kStatusBadMessage);
      }
      void* base = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
      close(fd);
      if (base == MAP_FAILED) return Status(kStatusBadMessage);
      blocks_.push_back({h.a, static_cast<uint8_t*>(base), length});
      return Status(0);
    }
    case kUnregister:
      for (size_t i = 0; i < blocks_.size(); ++i) {
        if (blocks_[i].id != h.a) continue;
        munmap(blocks_[i].base, blocks_[i].length);
        blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(i));
        return Status(0);
      }
      return Status(kStatusBadMessage);
    case kFlush: {
      const uint64_t offset = r.U64(), length = r.U64();
      for (const MappedBlock& b : blocks_) {
        if (b.id == h.a && r.ok() && offset <= b.length && length <= b.length - offset) return Status(0);
      }
      return Status(kStatusBadMessage);
    }
    case kStats: {
      uint64_t calls = 0, bytes = 0;
      if (h.a == 0xFFFFFFFFu) fputs(StatsTable().c_str(), stderr);
      ReadStats(h.a, &calls, &bytes);
      Reply reply;
      Writer w;
      w.U64(calls);
      w.U64(bytes);
      reply.body = std::move(w.bytes());
      return reply;
    }
    case kCall:
      return Call(h, payload, size);
    default:
      return Status(kStatusBadMessage);
  }
}

Reply Channel::Call(const Header& h, const uint8_t* payload, size_t size) {
  const uint64_t n = ++g_callNumber;
  if (faults_.exitAfter && n == faults_.exitAfter) _exit(3);  // dies in the middle of a call
  if (faults_.delayMs) std::this_thread::sleep_for(std::chrono::milliseconds(faults_.delayMs));
  if ((faults_.restartOnce && n == 1) || (faults_.restartEvery && n % faults_.restartEvery == 0)) {
    if (faults_.restartDropsSession) session_ = false;
    return Status(104);
  }
  if (faults_.failStatus && n % (faults_.failEvery ? faults_.failEvery : 1) == 0) return Status(faults_.failStatus);
  if (!opened_) return Status(kStatusBadMessage);
  if (!session_) return Status(104);  // a channel whose session was dropped is stale
  Reply reply;
  reply.keep = std::make_unique<Args>(payload, size, h.b, blocks_);
  reply.status = tvxdsp_run(h.a, *reply.keep);
  uint64_t copied = reply.keep->copiedIn();
  if (reply.status == 0) {
    Writer w;
    w.U64(reply.keep->result());
    reply.body = std::move(w.bytes());
    reply.outputs = reply.keep->outputs();
    for (const Args::Output& o : reply.outputs) copied += o.length;
  }
  if (reply.status == 0) {
    RecordCall(h.a, copied);
  } else if (faults_.verbose) {
    const char* name = tvxdsp_op_name(h.a);
    fprintf(stderr, "tavix-dsp: %s (operation %u) refused with status 0x%x\n", name ? name : "?", h.a, reply.status);
  }
  return reply;
}

void RecordCall(uint32_t op, uint64_t bytesCopied) {
  std::lock_guard<std::mutex> lock(g_statsMutex);
  OpStats& s = g_stats[op];
  ++s.calls;
  s.bytes += bytesCopied;
}

bool ReadStats(uint32_t op, uint64_t* calls, uint64_t* bytes) {
  std::lock_guard<std::mutex> lock(g_statsMutex);
  *calls = *bytes = 0;
  for (const auto& [o, s] : g_stats) {
    if (op != 0xFFFFFFFFu && o != op) continue;
    *calls += s.calls;
    *bytes += s.bytes;
  }
  return true;
}

std::string StatsTable() {
  std::lock_guard<std::mutex> lock(g_statsMutex);
  std::string out = "tavix-dsp: calls and copied bytes per operation\n";
  char line[256];
  for (const auto& [op, s] : g_stats) {
    const char* name = tvxdsp_op_name(op);
    snprintf(line, sizeof line, "%-48s %10llu calls %14llu bytes copied\n", name ? name : "?",
             static_cast<unsigned long long>(s.calls), static_cast<unsigned long long>(s.bytes));
    out += line;
  }
  return out;
}

}  // namespace tvxdsp

int64_t tvxdsp_clock_now() {
  timeval now;
  gettimeofday(&now, nullptr);
  return int64_t{now.tv_sec} * 1000000 + now.tv_usec;
}
