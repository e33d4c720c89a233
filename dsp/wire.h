// The host DSP's wire format, shared by its client stub (inside the library, any architecture)
// and the host DSP process. Every field has an explicit width and is little-endian, so a
// 32-bit ARMv7 client talks to a 64-bit x86 host DSP.
//
// A message is a 24-byte header {magic, type, a, b, u64 payload length} and its payload.
// A call's payload is its arguments, their number in the header's `b`; per argument:
//   scalar:  u8 kind=1, u64 value (integers sign- or zero-extended, float as its 32 bits)
//   null:    u8 kind=2, u8 direction
//   inline:  u8 kind=3, u8 direction, u64 byte length, the bytes
//   shared:  u8 kind=4, u8 direction, u32 block, u64 offset, u64 byte length
// Output buffers travel in both directions, so bytes the operation leaves alone (padding of a
// strided image) come back unchanged. A successful call's reply holds the operation's returned
// value (u64, as a scalar) and then the bytes of every inline buffer that is not input-only,
// in argument order; the header's `a` is the status.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace tvxdsp {

constexpr uint32_t kMagic = 0x44585654u;  // "TVXD"
constexpr uint32_t kHeaderBytes = 24;
constexpr uint64_t kMaxPayload = uint64_t{1} << 28;  // 256 MiB: a 4K RGBA frame and more
constexpr uint32_t kMaxArguments = 64;

enum MessageType : uint32_t {
  kOpen = 1,        // payload: domain name; a = protocol version
  kInit = 2,        // payload: u32 count, then {i32 id, i32 value} pairs
  kDeinit = 3,
  kVersion = 4,     // reply payload: the version string
  kClock = 5,       // reply payload: u64 microseconds
  kCall = 6,        // a = operation number
  kRegister = 7,    // a = block id, payload: u64 length; the descriptor rides along (SCM_RIGHTS)
  kUnregister = 8,  // a = block id
  kFlush = 9,       // a = block id, payload: u64 offset, u64 length
  kStats = 10,      // reply payload: text, one line per operation
  kReply = 100,
};

enum ArgKind : uint8_t { kScalar = 1, kNull = 2, kInline = 3, kShared = 4 };
enum Direction : uint8_t { kIn = 1, kOut = 2, kInOut = 3 };

// Statuses the host DSP answers besides the operation's own success (0) and the restart (104).
enum : int32_t {
  kStatusBadMessage = 0x7D01,    // malformed or inconsistent message
  kStatusBadArguments = 0x7D02,  // the operation's condition or buffer sizes do not hold
  kStatusUnknownOp = 0x7D03,
  kStatusNoSession = 0x7D04,     // the DSP-side library is not initialised
  kStatusTransport = 0x7D05,     // the client could not reach the host DSP
};
constexpr uint32_t kProtocolVersion = 1;

struct Header {
  uint32_t magic = kMagic, type = 0, a = 0, b = 0;
  uint64_t length = 0;
};

inline void Put32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline void Put64(uint8_t* p, uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline uint32_t Get32(const uint8_t* p) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v |= uint32_t{p[i]} << (8 * i);
  return v;
}
inline uint64_t Get64(const uint8_t* p) {
  uint64_t v = 0;
  for (int i = 0; i < 8; ++i) v |= uint64_t{p[i]} << (8 * i);
  return v;
}

inline void EncodeHeader(const Header& h, uint8_t out[kHeaderBytes]) {
  Put32(out, h.magic);
  Put32(out + 4, h.type);
  Put32(out + 8, h.a);
  Put32(out + 12, h.b);
  Put64(out + 16, h.length);
}
inline Header DecodeHeader(const uint8_t in[kHeaderBytes]) {
  return Header{Get32(in), Get32(in + 4), Get32(in + 8), Get32(in + 12), Get64(in + 16)};
}

// Scalars of any arithmetic type as the 64-bit field of the wire.
template <typename T>
uint64_t ScalarBits(T v) {
  static_assert(std::is_arithmetic_v<T> && sizeof(T) <= 8);
  if constexpr (std::is_same_v<T, float>) {
    uint32_t bits;
    memcpy(&bits, &v, 4);
    return bits;
  } else if constexpr (std::is_same_v<T, double>) {
    uint64_t bits;
    memcpy(&bits, &v, 8);
    return bits;
  } else if constexpr (std::is_signed_v<T>) {
    return static_cast<uint64_t>(static_cast<int64_t>(v));
  } else {
    return static_cast<uint64_t>(v);
  }
}
template <typename T>
T ScalarFromBits(uint64_t bits) {
  static_assert(std::is_arithmetic_v<T> && sizeof(T) <= 8);
  if constexpr (std::is_same_v<T, float>) {
    const uint32_t low = static_cast<uint32_t>(bits);
    float v;
    memcpy(&v, &low, 4);
    return v;
  } else if constexpr (std::is_same_v<T, double>) {
    double v;
    memcpy(&v, &bits, 8);
    return v;
  } else {
    return static_cast<T>(bits);
  }
}

// Appends little-endian fields to a growing message.
class Writer {
 public:
  void U8(uint8_t v) { bytes_.push_back(v); }
  void U32(uint32_t v) { Grow(4, [&](uint8_t* p) { Put32(p, v); }); }
  void U64(uint64_t v) { Grow(8, [&](uint8_t* p) { Put64(p, v); }); }
  void Bytes(const void* data, size_t n) {
    const size_t at = bytes_.size();
    bytes_.resize(at + n);
    if (n) memcpy(bytes_.data() + at, data, n);
  }
  size_t size() const { return bytes_.size(); }
  std::vector<uint8_t>& bytes() { return bytes_; }

 private:
  template <typename F>
  void Grow(size_t n, F put) {
    const size_t at = bytes_.size();
    bytes_.resize(at + n);
    put(bytes_.data() + at);
  }
  std::vector<uint8_t> bytes_;
};

// Reads fields from a received message; any read past the end clears ok() and yields zeros.
class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  uint8_t U8() { return Take(1) ? data_[pos_ - 1] : 0; }
  uint32_t U32() { return Take(4) ? Get32(data_ + pos_ - 4) : 0; }
  uint64_t U64() { return Take(8) ? Get64(data_ + pos_ - 8) : 0; }
  const uint8_t* Bytes(uint64_t n) {
    if (n > size_ - pos_ || !Take(static_cast<size_t>(n))) {
      ok_ = false;
      return nullptr;
    }
    return data_ + pos_ - n;
  }
  bool ok() const { return ok_; }
  bool done() const { return pos_ == size_; }

 private:
  bool Take(size_t n) {
    if (!ok_ || n > size_ - pos_) {
      ok_ = false;
      return false;
    }
    pos_ += n;
    return true;
  }
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
  bool ok_ = true;
};

}  // namespace tvxdsp
