// The host stub library: the DSP stub interface (session calls, per-operation calls, buffer
// registration) implemented as messages to the host DSP process over a UNIX-domain socket.
// It connects only when TAVIX_DSP_SOCKET names the host DSP's socket; otherwise every channel
// open fails, as on a phone without a DSP. Reads have a deadline (TAVIX_DSP_TIMEOUT_MS, 5000 ms
// by default): a silent or dead host DSP turns into the restart status, never a hang.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "../socket_io.h"
#include "call.h"
#include "remote/tavixdsp.h"
#include "tavix_stubs.h"

namespace tvxdsp {
namespace {

constexpr uint64_t kHandleTag = uint64_t{0x7A5D} << 32;  // handles use both 32-bit halves

int TimeoutMs() { return EnvMilliseconds("TAVIX_DSP_TIMEOUT_MS", 5000); }

// One socket to the host DSP; one exchange at a time. A channel that broke (peer gone, reply
// late or malformed) stays broken until it is closed and opened again.
struct Connection {
  int socket = -1;
  bool broken = false;
  std::mutex mutex;
  ~Connection() {
    if (socket >= 0) close(socket);
  }
};

struct SharedBlock {
  uintptr_t address;
  uint64_t length;
  int fd;
  uint32_t id;
};

std::mutex g_mutex;  // the two tables below
std::map<uint64_t, std::shared_ptr<Connection>> g_connections;
std::vector<SharedBlock> g_blocks;
uint32_t g_nextBlock = 1;
uint32_t g_nextHandle = 1;

std::shared_ptr<Connection> Find(uint64_t handle) {
  std::lock_guard<std::mutex> lock(g_mutex);
  auto it = g_connections.find(handle);
  return it == g_connections.end() ? nullptr : it->second;
}

int Connect() {
  const char* path = getenv("TAVIX_DSP_SOCKET");
  if (!path || !*path) return -1;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (strlen(path) >= sizeof address.sun_path) return -1;
  strcpy(address.sun_path, path);
  const int s = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (s < 0) return -1;
  if (connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(s);
    return -1;
  }
  return s;
}

// Sends a message and reads the reply header; the caller reads the reply payload. The caller
// holds the connection's mutex. False (and the channel broken) when the exchange failed.
bool Exchange(Connection& c, const Header& request, iovec* payload, int pieces, int fd, Header* reply) {
  if (c.broken) return false;
  uint8_t head[kHeaderBytes];
  EncodeHeader(request, head);
  std::vector<iovec> all(1 + pieces);
  all[0] = {head, kHeaderBytes};
  for (int i = 0; i < pieces; ++i) all[1 + i] = payload[i];
  uint8_t replyHead[kHeaderBytes];
  if (!SendAll(c.socket, all.data(), static_cast<int>(all.size()), fd) ||
      !ReadExact(c.socket, replyHead, kHeaderBytes, TimeoutMs())) {
    c.broken = true;
    return false;
  }
  *reply = DecodeHeader(replyHead);
  if (reply->magic != kMagic || reply->type != kReply || reply->length > kMaxPayload) {
    c.broken = true;
    return false;
  }
  return true;
}

// A request whose reply payload is read whole; returns the status (104 for a broken channel).
int32_t Simple(Connection& c, uint32_t type, uint32_t a, const std::vector<uint8_t>& payload,
               std::vector<uint8_t>* replyPayload = nullptr, int fd = -1) {
  Header h{kMagic, type, a, 0, payload.size()};
  iovec piece{const_cast<uint8_t*>(payload.data()), payload.size()};
  Header reply;
  if (!Exchange(c, h, &piece, payload.empty() ? 0 : 1, fd, &reply)) return TAVIXDSP_RESTARTED;
  std::vector<uint8_t> body(reply.length);
  if (!ReadExact(c.socket, body.data(), body.size(), TimeoutMs())) {
    c.broken = true;
    return TAVIXDSP_RESTARTED;
  }
  if (replyPayload) *replyPayload = std::move(body);
  return static_cast<int32_t>(reply.a);
}

int32_t SimpleOn(uint64_t handle, uint32_t type, uint32_t a, const std::vector<uint8_t>& payload,
                 std::vector<uint8_t>* replyPayload = nullptr) {
  std::shared_ptr<Connection> c = Find(handle);
  if (!c) return kStatusTransport;
  std::lock_guard<std::mutex> lock(c->mutex);
  return Simple(*c, type, a, payload, replyPayload);
}

std::vector<uint8_t> U64Payload(uint64_t v) {
  Writer w;
  w.U64(v);
  return std::move(w.bytes());
}

bool FindBlock(const void* data, uint64_t bytes, uint32_t* id, uint64_t* offset) {
  const uintptr_t at = reinterpret_cast<uintptr_t>(data);
  std::lock_guard<std::mutex> lock(g_mutex);
  for (const SharedBlock& b : g_blocks) {
    if (at >= b.address && at - b.address <= b.length && bytes <= b.length - (at - b.address)) {
      *id = b.id;
      *offset = at - b.address;
      return true;
    }
  }
  return false;
}

}  // namespace

Call::Call(uint32_t handleLow, uint32_t handleHigh, uint32_t op)
    : handle_(tavixdsp_handle(handleLow, handleHigh)), op_(op) {}

void Call::Cut() {
  if (w_.size() > cut_) pieces_.push_back({nullptr, cut_, w_.size() - cut_});
  cut_ = w_.size();
}

void Call::Buffer(const void* data, uint32_t count, uint32_t elementSize, Direction direction) {
  ++args_;
  const uint64_t bytes = uint64_t{count} * elementSize;
  uint32_t block;
  uint64_t offset;
  if (!data) {
    w_.U8(kNull);
    w_.U8(direction);
  } else if (FindBlock(data, bytes, &block, &offset)) {
    w_.U8(kShared);
    w_.U8(direction);
    w_.U32(block);
    w_.U64(offset);
    w_.U64(bytes);
  } else {
    w_.U8(kInline);
    w_.U8(direction);
    w_.U64(bytes);
    Cut();
    pieces_.push_back({data, 0, static_cast<size_t>(bytes)});
    if (direction != kIn) outputs_.push_back({const_cast<void*>(data), static_cast<size_t>(bytes)});
  }
}

int32_t Call::Run() {
  Cut();
  std::vector<iovec> payload;
  uint64_t length = 0;
  for (const Piece& p : pieces_) {
    const void* base = p.external ? p.external : w_.bytes().data() + p.offset;
    payload.push_back({const_cast<void*>(base), p.length});
    length += p.length;
  }
  std::shared_ptr<Connection> c = Find(handle_);
  if (!c) return kStatusTransport;
  std::lock_guard<std::mutex> lock(c->mutex);
  Header reply;
  if (!Exchange(*c, Header{kMagic, kCall, op_, args_, length}, payload.data(), static_cast<int>(payload.size()), -1,
                &reply))
    return TAVIXDSP_RESTARTED;
  const int32_t status = static_cast<int32_t>(reply.a);
  uint64_t expected = 0;
  if (status == 0) {
    expected = 8;  // the returned value's bits
    for (const Output& o : outputs_) expected += o.length;
  }
  if (reply.length != expected) {
    c->broken = true;
    return TAVIXDSP_RESTARTED;
  }
  if (status == 0) {
    uint8_t bits[8];
    if (!ReadExact(c->socket, bits, sizeof bits, TimeoutMs())) {
      c->broken = true;
      return TAVIXDSP_RESTARTED;
    }
    if (result_) result_(Get64(bits), resultOut_);
    for (const Output& o : outputs_) {
      if (!ReadExact(c->socket, o.data, o.length, TimeoutMs())) {
        c->broken = true;
        return TAVIXDSP_RESTARTED;
      }
    }
  }
  return status;
}

}  // namespace tvxdsp

using namespace tvxdsp;

extern "C" {

int32_t tavixdsp_open(const char* uri, uint64_t* handle) {
  if (!uri || !handle) return kStatusTransport;
  const char* domain = strstr(uri, "_dom=");
  if (!domain) return kStatusTransport;
  auto c = std::make_shared<Connection>();
  c->socket = Connect();
  if (c->socket < 0) return kStatusTransport;
  const std::string name(domain + 5);
  if (Simple(*c, kOpen, kProtocolVersion, std::vector<uint8_t>(name.begin(), name.end())) != 0) return kStatusTransport;
  std::lock_guard<std::mutex> lock(g_mutex);
  // The host DSP maps every block registered so far; later ones arrive as they are registered.
  for (const SharedBlock& b : g_blocks) Simple(*c, kRegister, b.id, U64Payload(b.length), nullptr, b.fd);
  *handle = kHandleTag | g_nextHandle++;
  g_connections[*handle] = c;
  return 0;
}

int32_t tavixdsp_close(uint64_t handle) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_connections.erase(handle) ? 0 : kStatusTransport;
}

int32_t tavixdsp_initR6_with_attributes(uint32_t handleLow, uint32_t handleHigh, const tavixdsp_attribute* attributes,
                                        int32_t numAttributes) {
  Writer w;
  const uint32_t n = attributes && numAttributes > 0 ? static_cast<uint32_t>(numAttributes) : 0;
  w.U32(n);
  for (uint32_t i = 0; i < n; ++i) {
    w.U32(static_cast<uint32_t>(attributes[i].id));
    w.U32(static_cast<uint32_t>(attributes[i].value));
  }
  return SimpleOn(tavixdsp_handle(handleLow, handleHigh), kInit, 0, w.bytes());
}

int32_t tavixdsp_deinitR6(uint32_t handleLow, uint32_t handleHigh) {
  return SimpleOn(tavixdsp_handle(handleLow, handleHigh), kDeinit, 0, {});
}

int32_t tavixdsp_tvxGetVersionQ(uint32_t handleLow, uint32_t handleHigh, char* version, int32_t versionLength) {
  std::vector<uint8_t> text;
  const int32_t status = SimpleOn(tavixdsp_handle(handleLow, handleHigh), kVersion, 0, {}, &text);
  if (status != 0 || !version || versionLength <= 0) return status;
  const size_t n = std::min(text.size(), static_cast<size_t>(versionLength - 1));
  memcpy(version, text.data(), n);
  version[n] = '\0';
  return 0;
}

int32_t tavixdsp_tvxR6GetClk(uint32_t handleLow, uint32_t handleHigh, uint64_t* microseconds) {
  std::vector<uint8_t> body;
  const int32_t status = SimpleOn(tavixdsp_handle(handleLow, handleHigh), kClock, 0, {}, &body);
  if (status != 0) return status;
  if (body.size() != 8) return kStatusBadMessage;
  if (microseconds) *microseconds = Get64(body.data());
  return 0;
}

// The remote-call layer's registration: a block with its descriptor (fd >= 0), or its removal
// (fd == -1). Every open channel is told at once; channels opened later are told on opening.
void rmtcall_register_buf(void* buffer, int32_t length, int32_t fd) {
  std::lock_guard<std::mutex> lock(g_mutex);
  const uintptr_t at = reinterpret_cast<uintptr_t>(buffer);
  if (fd >= 0) {
    if (!buffer || length <= 0) return;
    const SharedBlock b{at, static_cast<uint64_t>(length), fd, g_nextBlock++};
    g_blocks.push_back(b);
    for (auto& [h, c] : g_connections) {
      std::lock_guard<std::mutex> cl(c->mutex);
      Simple(*c, kRegister, b.id, U64Payload(b.length), nullptr, b.fd);
    }
    return;
  }
  for (size_t i = 0; i < g_blocks.size(); ++i) {
    if (g_blocks[i].address != at) continue;
    const uint32_t id = g_blocks[i].id;
    g_blocks.erase(g_blocks.begin() + static_cast<std::ptrdiff_t>(i));
    for (auto& [h, c] : g_connections) {
      std::lock_guard<std::mutex> cl(c->mutex);
      Simple(*c, kUnregister, id, {});
    }
    return;
  }
}

int32_t tavixdsp_tvxRegisterBufQ(uint32_t handleLow, uint32_t handleHigh, uint8_t* buffer, uint32_t bufferLen,
                                 uint32_t length, int32_t fd, int32_t* retval_) {
  rmtcall_register_buf(buffer, static_cast<int32_t>(length), fd);
  if (retval_) *retval_ = 0;
  return 0;
}

int32_t tavixdsp_tvx_cache_flush_invalidateQ(uint32_t handleLow, uint32_t handleHigh, uint8_t* buffer,
                                             uint32_t bufferLen, uint32_t length, int32_t* retval_) {
  if (retval_) *retval_ = 0;
  uint32_t block;
  uint64_t offset;
  if (!buffer || !FindBlock(buffer, length, &block, &offset)) return 0;  // a copied buffer has no DSP view
  Writer w;
  w.U64(offset);
  w.U64(length);
  return SimpleOn(tavixdsp_handle(handleLow, handleHigh), kFlush, block, w.bytes());
}

}  // extern "C"

bool tvx_host_dsp_stats(uint32_t op, uint64_t* calls, uint64_t* bytesCopied) {
  Connection c;
  c.socket = Connect();
  if (c.socket < 0) return false;
  std::vector<uint8_t> body;
  if (Simple(c, kStats, op, {}, &body) != 0 || body.size() != 16) return false;
  *calls = Get64(body.data());
  *bytesCopied = Get64(body.data() + 8);
  return true;
}
