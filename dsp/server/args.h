// Decoding of one call's arguments on the host DSP side, used by the generated dispatch: every
// read is checked against the message, inline buffers get exact-size copies of their own (so a
// kernel that reads past its count is caught by the sanitizers), shared references resolve into
// the blocks this channel registered.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "../wire.h"
#include "remote/count.h"

namespace tvxdsp {

// A registered shared block as mapped into the host DSP.
struct MappedBlock {
  uint32_t id;
  uint8_t* base;
  uint64_t length;
};

class Args {
 public:
  Args(const uint8_t* payload, size_t size, uint32_t argCount, const std::vector<MappedBlock>& blocks)
      : r_(payload, size), expected_(argCount), blocks_(blocks) {}

  template <typename T>
  T Scalar() {
    if (!Next() || r_.U8() != kScalar) return Fail<T>();
    return ScalarFromBits<T>(r_.U64());
  }

  // The kernel reads T through the pointer, so a shared reference at an offset that T's
  // alignment does not divide is refused like a malformed one (inline copies are aligned).
  template <typename T>
  T* Buffer(int64_t* bytes) {
    *bytes = 0;
    void* data = RawBuffer(bytes);
    if (reinterpret_cast<uintptr_t>(data) % alignof(T) != 0) return Fail<T*>();
    return static_cast<T*>(data);
  }

  template <typename T>
  void Result(T value) {
    result_ = ScalarBits(value);
  }
  uint64_t result() const { return result_; }

  // True when every argument was read and the message holds nothing more.
  bool Finish() const { return ok_ && r_.ok() && r_.done() && read_ == expected_; }

  // Inline buffers that go back to the caller, in argument order.
  struct Output {
    const uint8_t* data;
    uint64_t length;
  };
  const std::vector<Output>& outputs() const { return outputs_; }
  uint64_t copiedIn() const { return copiedIn_; }

 private:
  bool Next() {
    if (read_ >= expected_) ok_ = false;
    ++read_;
    return ok_;
  }
  template <typename T>
  T Fail() {
    ok_ = false;
    return T{};
  }
  void* RawBuffer(int64_t* bytes);

  Reader r_;
  uint32_t expected_;
  uint32_t read_ = 0;
  bool ok_ = true;
  const std::vector<MappedBlock>& blocks_;
  std::vector<std::unique_ptr<uint8_t[]>> copies_;
  std::vector<Output> outputs_;
  uint64_t copiedIn_ = 0;
  uint64_t result_ = 0;
};

// True when a buffer of `bytes` bytes holds `count` elements of `elementSize` bytes.
inline bool Covers(int64_t bytes, Count count, uint32_t elementSize) {
  const int64_t need = Bytes(count, elementSize);
  return need >= 0 && bytes >= need;
}

}  // namespace tvxdsp

// Generated (dsp_server.cc): runs operation `op` on the decoded arguments; 0 or a status.
int32_t tvxdsp_run(uint32_t op, tvxdsp::Args& args);
const char* tvxdsp_op_name(uint32_t op);
// The DSP's clock, which the clock-probe row runs on this side.
int64_t tvxdsp_clock_now();
