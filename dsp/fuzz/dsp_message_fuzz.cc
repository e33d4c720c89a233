// libFuzzer target for the host DSP's message handling: tvxdsp::Channel::Handle, that is the
// argument decoding, the generated dispatch's count and condition checks and the reference
// kernels behind them, under AddressSanitizer and UndefinedBehaviorSanitizer.
//
//   bash scripts/fuzz.sh [seconds]     installs clang if missing, builds the `fuzz` preset and
//                                      runs the target on dsp/fuzz/corpus for that long (60 s)
// or by hand:
//   cmake --preset fuzz && cmake --build --preset fuzz --target dsp_message_fuzz
//   mkdir -p build/fuzz/corpus && build/fuzz/dsp/fuzz/dsp_message_fuzz -max_total_time=60 \
//       build/fuzz/corpus dsp/fuzz/corpus
//
// An input is one flags byte and then records, all handled by one fresh channel. Unless the
// flags say otherwise (bit 0: leave it closed, bit 1: no session) the channel is open, has a
// session and has the 64 KiB block 1 registered. Records:
//   0x00 type:u32 a:u32 b:u32 n:u16 payload[n]   a message as it arrives (the payload is cut at
//                                                 the end of the input); a registration brings
//                                                 a descriptor of the block along
//   0x01 op:u16 count:u8 argument[count]          a call, its arguments encoded from:
//     tag:u8   tag & 3: 0 scalar, 1 inline buffer, 2 null buffer, 3 shared reference;
//              (tag >> 2) & 3: the direction (0 is none the decoder accepts)
//     scalar:  tag & 0x80 ? u64 : u8               the value
//     inline:  u16                                 its length; the bytes are a pattern
//     shared:  u16 offset, u16 length              into block 1, or block 2 when tag & 0x40
// Little-endian throughout. Besides crashes and sanitizer reports, a broken reply aborts: a
// refusal that carries reply bytes, or an accepted call whose reply is not its returned value
// followed by exactly the inline buffers that are not input-only.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "server/service.h"

namespace {

constexpr uint32_t kBlockId = 1;
constexpr uint64_t kBlockBytes = 64 * 1024;

// Reads the input front to back; past its end every field is 0 and ok() is false.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : r_(data, size) {}
  uint8_t U8() { return r_.U8(); }
  uint16_t U16() { return static_cast<uint16_t>(r_.U8() | r_.U8() << 8); }
  uint32_t U32() { return r_.U32(); }
  uint64_t U64() { return r_.U64(); }
  // Up to n bytes, fewer at the end of the input.
  std::vector<uint8_t> Bytes(size_t n) {
    std::vector<uint8_t> out;
    while (out.size() < n && !r_.done()) out.push_back(r_.U8());
    return out;
  }
  bool more() const { return r_.ok() && !r_.done(); }

 private:
  tvxdsp::Reader r_;
};

// The shared block, mapped here too so every input starts from the same contents.
struct Block {
  int fd = -1;
  uint8_t* data = nullptr;
  std::vector<uint8_t> start = std::vector<uint8_t>(kBlockBytes);
  Block() {
    fd = memfd_create("tavix-dsp-fuzz", MFD_CLOEXEC);
    if (fd < 0 || ftruncate(fd, kBlockBytes) != 0) abort();
    data = static_cast<uint8_t*>(mmap(nullptr, kBlockBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    if (data == MAP_FAILED) abort();
    for (uint64_t i = 0; i < kBlockBytes; ++i) start[i] = static_cast<uint8_t>(i * 7 + (i >> 9));
  }
  void Reset() { memcpy(data, start.data(), kBlockBytes); }
};

Block& SharedBlock() {
  static Block block;
  return block;
}

void Check(bool holds) {
  if (!holds) abort();
}

tvxdsp::Reply Send(tvxdsp::Channel& channel, uint32_t type, uint32_t a, uint32_t b, const std::vector<uint8_t>& payload,
                   int fd = -1) {
  tvxdsp::Header h;
  h.type = type;
  h.a = a;
  h.b = b;
  h.length = payload.size();
  tvxdsp::Reply reply = channel.Handle(h, payload.data(), payload.size(), fd);
  Check(reply.status == 0 || (reply.body.empty() && reply.outputs.empty()));
  return reply;
}

void Register(tvxdsp::Channel& channel, uint32_t id, uint64_t length) {
  tvxdsp::Writer w;
  w.U64(length);
  Send(channel, tvxdsp::kRegister, id, 0, w.bytes(), dup(SharedBlock().fd));
}

void Call(tvxdsp::Channel& channel, Input& in) {
  const uint32_t op = in.U16();
  const uint32_t count = in.U8();
  tvxdsp::Writer w;
  std::vector<uint64_t> outputs;  // lengths of the inline buffers that come back
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t tag = in.U8();
    const uint8_t direction = (tag >> 2) & 3;
    switch (tag & 3) {
      case 0:
        w.U8(tvxdsp::kScalar);
        w.U64(tag & 0x80 ? in.U64() : in.U8());
        break;
      case 1: {
        const uint16_t length = in.U16();
        w.U8(tvxdsp::kInline);
        w.U8(direction);
        w.U64(length);
        std::vector<uint8_t> bytes(length);
        for (uint32_t j = 0; j < length; ++j) bytes[j] = static_cast<uint8_t>(j * 31 + tag);
        w.Bytes(bytes.data(), bytes.size());
        if (direction != tvxdsp::kIn) outputs.push_back(length);
        break;
      }
      case 2:
        w.U8(tvxdsp::kNull);
        w.U8(direction);
        break;
      default:
        w.U8(tvxdsp::kShared);
        w.U8(direction);
        w.U32(tag & 0x40 ? kBlockId + 1 : kBlockId);
        w.U64(in.U16());
        w.U64(in.U16());
        break;
    }
  }
  const tvxdsp::Reply reply = Send(channel, tvxdsp::kCall, op, count, w.bytes());
  if (reply.status != 0) return;
  Check(reply.body.size() == 8);
  // A bad direction never decodes, so the encoded list is exactly what the call answers.
  Check(reply.outputs.size() == outputs.size());
  for (size_t i = 0; i < outputs.size(); ++i) Check(reply.outputs[i].length == outputs[i]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input in(data, size);
  const uint8_t flags = in.U8();
  Block& block = SharedBlock();
  block.Reset();

  tvxdsp::Faults faults;
  tvxdsp::Channel channel(faults);
  if (!(flags & 1)) Send(channel, tvxdsp::kOpen, tvxdsp::kProtocolVersion, 0, {'c', 'd', 's', 'p'});
  if (!(flags & 2)) Send(channel, tvxdsp::kInit, 0, 0, {1, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0});
  Register(channel, kBlockId, kBlockBytes);

  while (in.more()) {
    if (in.U8() & 1) {
      Call(channel, in);
      continue;
    }
    const uint32_t type = in.U32(), a = in.U32(), b = in.U32();
    const std::vector<uint8_t> payload = in.Bytes(in.U16());
    // The statistics dump (a == all operations) only prints; leave stderr to the fuzzer.
    if (type == tvxdsp::kStats && a == 0xFFFFFFFFu) continue;
    Send(channel, type, a, b, payload, type == tvxdsp::kRegister ? dup(block.fd) : -1);
  }
  return 0;
}
