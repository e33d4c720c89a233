// The host stub's call encoder, used by the generated tavixdsp_<op>Q entries: scalars and
// buffers in parameter order, then one exchange with the host DSP. Buffers inside a registered
// shared block travel as references; all others are copied, outputs back again.
#pragma once

#include <cstdint>
#include <vector>

#include "../wire.h"

namespace tvxdsp {

class Call {
 public:
  Call(uint32_t handleLow, uint32_t handleHigh, uint32_t op);

  template <typename T>
  void Scalar(T value) {
    ++args_;
    w_.U8(kScalar);
    w_.U64(ScalarBits(value));
  }
  // `count` elements of `elementSize` bytes at `data`.
  void Buffer(const void* data, uint32_t count, uint32_t elementSize, Direction direction);
  // Where the operation's returned value goes; it comes back ahead of the outputs.
  template <typename T>
  void Result(T* result) {
    result_ = [](uint64_t bits, void* out) { *static_cast<T*>(out) = ScalarFromBits<T>(bits); };
    resultOut_ = result;
  }

  // The remote status: the host DSP's answer, 104 when the channel broke or stayed silent past
  // its deadline, kStatusTransport when the handle names no open channel.
  int32_t Run();

 private:
  struct Piece {
    const void* external;  // null: the piece is w_ bytes [offset, offset + length)
    size_t offset, length;
  };
  struct Output {
    void* data;
    size_t length;
  };
  void Cut();  // ends the writer's current piece

  uint64_t handle_;
  uint32_t op_;
  uint32_t args_ = 0;
  Writer w_;
  size_t cut_ = 0;
  std::vector<Piece> pieces_;
  std::vector<Output> outputs_;
  void (*result_)(uint64_t bits, void* out) = nullptr;
  void* resultOut_ = nullptr;
};

}  // namespace tvxdsp

// Host-DSP statistics for one operation number (calls served, bytes copied either way), read
// from the host DSP named by TAVIX_DSP_SOCKET. False when it cannot be reached.
bool tvx_host_dsp_stats(uint32_t op, uint64_t* calls, uint64_t* bytesCopied);
