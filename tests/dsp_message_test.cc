// The host DSP's message handling, in process: valid messages built the way the client stub
// builds them (session set-up, calls of several operations with inline, shared and null
// buffers), then mutated by a seeded generator (bytes flipped, payloads cut or extended,
// argument counts, kinds, directions and lengths changed, operation numbers and scalars pushed
// to extremes, references to blocks that do not exist or to ranges outside them) and handed to
// a Channel. Nothing may crash or touch memory outside a buffer (the sanitizer build checks),
// a refused message gets a nonzero status and no reply bytes, a message that cannot be valid
// is refused with the right status, and the valid messages keep their first answers.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "server/service.h"

namespace {

using tvxdsp::Header;
using tvxdsp::Reply;

constexpr int32_t kAny = -1;  // a mutation after which either answer is possible
constexpr uint32_t kBlock = 0xB10C;
constexpr uint64_t kBlockBytes = 64 * 1024;

// ---- messages --------------------------------------------------------------------------------

// One argument of a call, kept apart from its encoding so mutations can change its parts.
struct Arg {
  uint8_t kind = tvxdsp::kScalar;
  uint8_t direction = tvxdsp::kIn;
  uint64_t value = 0;          // scalar bits
  std::vector<uint8_t> bytes;  // inline contents
  uint64_t declared = 0;       // inline length field, bytes.size() unless mutated
  uint32_t block = kBlock;     // shared reference
  uint64_t offset = 0, length = 0;
  bool IsBuffer() const { return kind == tvxdsp::kInline || kind == tvxdsp::kShared; }
};

template <typename T>
Arg Scalar(T value) {
  Arg a;
  a.value = tvxdsp::ScalarBits(value);
  return a;
}

Arg Inline(size_t size, uint8_t direction, uint32_t seed = 0) {
  Arg a;
  a.kind = tvxdsp::kInline;
  a.direction = direction;
  for (size_t i = 0; i < size; ++i) a.bytes.push_back(static_cast<uint8_t>((i * 37 + seed * 11 + i / 7) ^ (i >> 4)));
  a.declared = size;
  return a;
}

Arg Shared(uint64_t offset, uint64_t length, uint8_t direction) {
  Arg a;
  a.kind = tvxdsp::kShared;
  a.direction = direction;
  a.offset = offset;
  a.length = length;
  return a;
}

Arg Null(uint8_t direction) {
  Arg a;
  a.kind = tvxdsp::kNull;
  a.direction = direction;
  return a;
}

std::vector<uint8_t> Encode(const std::vector<Arg>& args) {
  tvxdsp::Writer w;
  for (const Arg& a : args) {
    w.U8(a.kind);
    if (a.kind == tvxdsp::kScalar) {
      w.U64(a.value);
      continue;
    }
    w.U8(a.direction);  // kinds no decoder knows carry nothing more
    if (a.kind == tvxdsp::kInline) {
      w.U64(a.declared);
      w.Bytes(a.bytes.data(), a.bytes.size());
    } else if (a.kind == tvxdsp::kShared) {
      w.U32(a.block);
      w.U64(a.offset);
      w.U64(a.length);
    }
  }
  return std::move(w.bytes());
}

// The lengths of the inline buffers a successful call sends back, in argument order.
std::vector<uint64_t> OutputLengths(const std::vector<Arg>& args) {
  std::vector<uint64_t> lengths;
  for (const Arg& a : args) {
    if (a.kind == tvxdsp::kInline && a.direction != tvxdsp::kIn) lengths.push_back(a.bytes.size());
  }
  return lengths;
}

struct Message {
  Header header;
  std::vector<uint8_t> payload;
  int32_t expect = kAny;  // the status that must come back
  bool structured = true; // the arguments below describe the payload
  std::vector<Arg> args;
  std::string what;       // the mutation, for failure messages
};

Message Call(uint32_t op, std::vector<Arg> args) {
  Message m;
  m.header.type = tvxdsp::kCall;
  m.header.a = op;
  m.header.b = static_cast<uint32_t>(args.size());
  m.args = std::move(args);
  m.payload = Encode(m.args);
  return m;
}

Message Session(uint32_t type, uint32_t a, std::vector<uint8_t> payload) {
  Message m;
  m.header.type = type;
  m.header.a = a;
  m.payload = std::move(payload);
  m.structured = false;
  return m;
}

Message Open() { return Session(tvxdsp::kOpen, tvxdsp::kProtocolVersion, {'c', 'd', 's', 'p'}); }
Message Init() { return Session(tvxdsp::kInit, 0, {1, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0}); }

// ---- the operations the valid calls use --------------------------------------------------------

// An operation's number, looked up by its name.
uint32_t Op(const char* name) {
  for (uint32_t op = 0; op < 4096; ++op) {
    if (const char* known = tvxdsp_op_name(op); known != nullptr && strcmp(known, name) == 0) return op;
  }
  ADD_FAILURE() << "no operation " << name;
  return 0xFFFFFFFFu;
}

// Each buffer is exactly as long as the count the operation's scalars imply, as the client
// sends it, so any shorter one must be refused.
std::vector<Message> ValidCalls() {
  using tvxdsp::kIn;
  using tvxdsp::kInOut;
  using tvxdsp::kOut;
  return {
      Call(Op("tvxBitCountu8"), {Inline(64, kIn, 1), Scalar(uint32_t{64})}),
      Call(Op("tvxFilterMedian3x3u8_v2"), {Inline(32 * 10, kIn, 2), Scalar(uint32_t{24}), Scalar(uint32_t{10}),
                                             Scalar(uint32_t{32}), Inline(24 * 10, kOut), Scalar(uint32_t{24})}),
      Call(Op("tvxFilterMedian3x3u8_v3"),
           {Shared(0, 32 * 10, kIn), Scalar(uint32_t{24}), Scalar(uint32_t{10}), Scalar(uint32_t{32}),
            Shared(4096, 24 * 10, kOut), Scalar(uint32_t{24}), Scalar(uint32_t{2}), Scalar(uint8_t{200})}),
      Call(Op("tvxAbsDiffu8"), {Inline(16 * 8, kIn, 3), Shared(8192, 16 * 8, kIn), Scalar(uint32_t{16}),
                                  Scalar(uint32_t{8}), Scalar(uint32_t{16}), Inline(20 * 8, kInOut), Scalar(uint32_t{20})}),
      Call(Op("tvxAddScalarf32"), {Inline(32 * 4, kIn, 4), Scalar(uint32_t{7}), Scalar(uint32_t{4}),
                                     Scalar(uint32_t{32}), Scalar(1.5f), Inline(32 * 4, kOut), Scalar(uint32_t{32})}),
      Call(Op("tvxBitwiseOrs32"), {Inline(40 * 3, kIn, 5), Shared(12288, 40 * 3, kIn), Scalar(uint32_t{9}),
                                     Scalar(uint32_t{3}), Scalar(uint32_t{40}), Inline(36 * 3, kOut), Scalar(uint32_t{36}),
                                     Null(kIn), Scalar(uint32_t{0})}),
      Call(Op("tvxColorRGB888ToYCbCr420Planaru8"),
           {Inline(32 * 6, kIn, 6), Scalar(uint32_t{10}), Scalar(uint32_t{6}), Scalar(uint32_t{32}), Inline(10 * 6, kOut),
            Shared(16384, 5 * 3, kOut), Inline(6 * 3, kOut), Scalar(uint32_t{10}), Scalar(uint32_t{5}),
            Scalar(uint32_t{6})}),
      Call(Op("tvxFilterCorrNxNu8"), {Inline(9, kIn, 7), Scalar(uint32_t{3}), Scalar(int32_t{4}), Inline(12 * 8, kIn, 8),
                                        Scalar(uint32_t{12}), Scalar(uint32_t{8}), Scalar(uint32_t{12}), Inline(13 * 8, kOut),
                                        Scalar(uint32_t{13})}),
  };
}

// ---- a channel with its shared block ---------------------------------------------------------

// The block registered with every channel, mapped here too so the test sets its inputs and
// reads what the calls wrote.
class Block {
 public:
  Block() {
    fd_ = memfd_create("tavix-dsp-message-test", MFD_CLOEXEC);
    EXPECT_EQ(ftruncate(fd_, kBlockBytes), 0);
    data_ = static_cast<uint8_t*>(mmap(nullptr, kBlockBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0));
    EXPECT_NE(data_, MAP_FAILED);
    Fill();
  }
  ~Block() {
    munmap(data_, kBlockBytes);
    close(fd_);
  }
  void Fill() {
    for (uint64_t i = 0; i < kBlockBytes; ++i) data_[i] = static_cast<uint8_t>(i * 13 + (i >> 8));
  }
  std::vector<uint8_t> Contents() const { return std::vector<uint8_t>(data_, data_ + kBlockBytes); }
  int fd() const { return fd_; }

 private:
  int fd_ = -1;
  uint8_t* data_ = nullptr;
};

Reply Send(tvxdsp::Channel& channel, const Message& m, int fd = -1) {
  return channel.Handle(m.header, m.payload.data(), m.payload.size(), fd);
}

// Opens the channel, brings its session up and registers the block.
void OpenSession(tvxdsp::Channel& channel, const Block& block) {
  ASSERT_EQ(Send(channel, Open()).status, 0);
  ASSERT_EQ(Send(channel, Init()).status, 0);
  tvxdsp::Writer length;
  length.U64(kBlockBytes);
  ASSERT_EQ(Send(channel, Session(tvxdsp::kRegister, kBlock, length.bytes()), dup(block.fd())).status, 0);
}

// What a call answered: its status, returned value, inline outputs and the block afterwards.
struct Answer {
  int32_t status;
  std::vector<uint8_t> body, outputs, block;
  bool operator==(const Answer&) const = default;
};

Answer Run(tvxdsp::Channel& channel, Block& block, const Message& m) {
  block.Fill();
  const Reply r = Send(channel, m);
  Answer a{r.status, r.body, {}, {}};
  for (const tvxdsp::Args::Output& o : r.outputs) a.outputs.insert(a.outputs.end(), o.data, o.data + o.length);
  a.block = block.Contents();
  return a;
}

std::vector<Answer> RunAll(tvxdsp::Channel& channel, Block& block, const std::vector<Message>& calls) {
  std::vector<Answer> answers;
  for (const Message& m : calls) answers.push_back(Run(channel, block, m));
  return answers;
}

// ---- mutations -------------------------------------------------------------------------------

// splitmix64: the same sequence on every platform.
class Random {
 public:
  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  size_t Below(size_t n) { return static_cast<size_t>(Next() % n); }
  template <typename T, size_t N>
  T Pick(const T (&values)[N]) {
    return values[Below(N)];
  }

 private:
  uint64_t state_ = 0x7A5D5EED;
};

constexpr uint64_t kExtremes[] = {0,
                                  1,
                                  2,
                                  3,
                                  0x7F,
                                  0x80,
                                  0xFF,
                                  0x100,
                                  0x7FFF,
                                  0x8000,
                                  0xFFFF,
                                  0x10000,
                                  0x3FFFFFFF,
                                  0x40000000,
                                  0x40000001,
                                  0x55555556,
                                  0x7FFFFFFF,
                                  0x80000000,
                                  0x80000001,
                                  0xFFFFFFFE,
                                  0xFFFFFFFF,
                                  0x100000000ull,
                                  0x7FFFFFFFFFFFFFFFull,
                                  0x8000000000000000ull,
                                  0xFFFFFFFFFFFFFFFFull,
                                  0x7F800000,  // float +infinity
                                  0xFF800000,  // float -infinity
                                  0x7FC00000,  // float NaN
                                  0x4F000000,  // float 2^31
                                  0xCF000001}; // float just below -2^31

// Indexes of the arguments that satisfy `pred` (empty when none do).
template <typename P>
std::vector<size_t> Where(const std::vector<Arg>& args, P pred) {
  std::vector<size_t> at;
  for (size_t i = 0; i < args.size(); ++i) {
    if (pred(args[i])) at.push_back(i);
  }
  return at;
}

// Re-encodes a message after its arguments changed.
void Reencode(Message& m, const std::string& what, int32_t expect) {
  m.payload = Encode(m.args);
  m.header.b = static_cast<uint32_t>(m.args.size());
  m.what = what;
  m.expect = expect;
}

// One mutation of a valid call.
Message Mutate(const Message& valid, Random& random) {
  Message m = valid;
  const auto buffers = Where(m.args, [](const Arg& a) { return a.IsBuffer(); });
  const auto inlines = Where(m.args, [](const Arg& a) { return a.kind == tvxdsp::kInline; });
  const auto shared = Where(m.args, [](const Arg& a) { return a.kind == tvxdsp::kShared; });
  const auto scalars = Where(m.args, [](const Arg& a) { return a.kind == tvxdsp::kScalar; });
  const uint64_t badLengths[] = {m.payload.size() + 1, uint64_t{1} << 32, (uint64_t{1} << 32) + 64,
                                 uint64_t{1} << 63, ~uint64_t{0}};
  switch (random.Below(16)) {
    case 0: {  // bits flipped anywhere
      m.payload[random.Below(m.payload.size())] ^= static_cast<uint8_t>(1 + random.Below(255));
      m.structured = false;
      m.what = "flipped byte";
      return m;
    }
    case 1:
      m.payload.resize(random.Below(m.payload.size()));
      m.what = "cut short";
      m.expect = tvxdsp::kStatusBadMessage;
      m.structured = false;
      return m;
    case 2:
      for (size_t n = 1 + random.Below(16); n > 0; --n) m.payload.push_back(static_cast<uint8_t>(random.Next()));
      m.what = "extended";
      m.expect = tvxdsp::kStatusBadMessage;
      m.structured = false;
      return m;
    case 3: {
      const uint32_t n = static_cast<uint32_t>(m.args.size());
      const uint32_t counts[] = {0, n - 1, n + 1, n + 64, tvxdsp::kMaxArguments + 1, 0xFFFFFFFFu};
      m.header.b = random.Pick(counts);
      m.what = "argument count " + std::to_string(m.header.b);
      m.expect = tvxdsp::kStatusBadMessage;
      m.structured = false;
      return m;
    }
    case 4:
      m.args.erase(m.args.begin() + static_cast<std::ptrdiff_t>(random.Below(m.args.size())));
      Reencode(m, "argument dropped", tvxdsp::kStatusBadMessage);
      return m;
    case 5: {
      const size_t i = random.Below(m.args.size());
      m.args.insert(m.args.begin() + static_cast<std::ptrdiff_t>(i), m.args[i]);
      Reencode(m, "argument repeated", tvxdsp::kStatusBadMessage);
      return m;
    }
    case 6: {  // a scalar where a buffer belongs, or the other way round, or no known kind
      Arg& a = m.args[random.Below(m.args.size())];
      const uint8_t unknownKinds[] = {0, 5, 0x7F, 0xFF};
      if (random.Below(3) == 0) {
        a.kind = random.Pick(unknownKinds);
      } else if (a.kind == tvxdsp::kScalar) {
        a = random.Below(2) ? Inline(4, tvxdsp::kIn) : Shared(0, 4, tvxdsp::kIn);
      } else {
        a = Scalar(uint32_t{1});
      }
      Reencode(m, "argument kind", tvxdsp::kStatusBadMessage);
      return m;
    }
    case 7: {  // a buffer passed as null, inline or shared instead
      Arg& a = m.args[buffers[random.Below(buffers.size())]];
      const uint8_t direction = a.direction;
      const uint64_t bytes = a.kind == tvxdsp::kInline ? a.bytes.size() : a.length;
      switch (random.Below(3)) {
        case 0: a = Null(direction); break;
        case 1: a = Inline(bytes, direction, 9); break;
        default: a = Shared(32768, bytes, direction); break;
      }
      Reencode(m, "buffer kind", kAny);
      return m;
    }
    case 8: {
      Arg& a = m.args[buffers[random.Below(buffers.size())]];
      const uint8_t badDirections[] = {0, 4, 0x80, 0xFF};
      const bool bad = random.Below(2) == 0;
      a.direction = bad ? random.Pick(badDirections) : static_cast<uint8_t>(1 + random.Below(3));
      Reencode(m, "direction " + std::to_string(a.direction), bad ? tvxdsp::kStatusBadMessage : kAny);
      return m;
    }
    case 9: {  // an inline length field beyond what the message holds
      if (inlines.empty()) break;
      m.args[inlines[random.Below(inlines.size())]].declared = random.Pick(badLengths);
      Reencode(m, "inline length beyond the message", tvxdsp::kStatusBadMessage);
      return m;
    }
    case 10: {  // a buffer shorter than its count
      Arg& a = m.args[buffers[random.Below(buffers.size())]];
      uint64_t& bytes = a.kind == tvxdsp::kInline ? a.declared : a.length;
      if (bytes == 0) break;
      bytes -= random.Below(2) ? bytes : 1 + random.Below(std::min<uint64_t>(bytes, 8));
      a.bytes.resize(a.declared);
      Reencode(m, "buffer short by " + std::to_string(bytes), tvxdsp::kStatusBadArguments);
      return m;
    }
    case 11: {  // a longer buffer than needed
      Arg& a = m.args[buffers[random.Below(buffers.size())]];
      const uint64_t more = 1 + random.Below(64);
      if (a.kind == tvxdsp::kInline) a.bytes.resize(a.declared += more, 0x5A);
      if (a.kind == tvxdsp::kShared) a.length = std::min(a.length + more, kBlockBytes - a.offset);
      Reencode(m, "buffer longer", kAny);
      return m;
    }
    case 12: {  // a reference to a block never registered, or outside the block
      if (shared.empty()) break;
      Arg& a = m.args[shared[random.Below(shared.size())]];
      switch (random.Below(4)) {
        case 0: a.block = random.Below(2) ? 0 : kBlock + 1; break;
        case 1: a.offset = kBlockBytes - a.length + 1 + random.Below(64); break;
        case 2: a.offset = ~uint64_t{0} - random.Below(4); break;
        default: a.length = random.Pick(badLengths) | (uint64_t{1} << 32); break;
      }
      Reencode(m, "shared reference outside the block", tvxdsp::kStatusBadMessage);
      return m;
    }
    case 13: {
      if (scalars.empty()) break;
      Arg& a = m.args[scalars[random.Below(scalars.size())]];
      a.value = random.Below(4) ? random.Pick(kExtremes) : random.Next();
      Reencode(m, "scalar " + std::to_string(a.value), kAny);
      return m;
    }
    case 14: {  // another operation number: one that exists (with these arguments) or none
      uint32_t op = static_cast<uint32_t>(random.Below(1024));
      if (random.Below(4) == 0) op = random.Below(2) ? 0xFFFFFFFFu : 0x80000000u | op;
      m.header.a = op;
      m.what = "operation " + std::to_string(op);
      m.expect = tvxdsp_op_name(op) == nullptr ? tvxdsp::kStatusUnknownOp : kAny;
      return m;
    }
    default: {  // another message type
      const uint32_t types[] = {0, tvxdsp::kOpen, tvxdsp::kInit, tvxdsp::kDeinit, tvxdsp::kVersion, tvxdsp::kClock,
                                tvxdsp::kRegister, tvxdsp::kUnregister, tvxdsp::kFlush, tvxdsp::kStats, 11,
                                tvxdsp::kReply, 0xFFFFFFFFu};
      m.header.type = random.Pick(types);
      m.what = "type " + std::to_string(m.header.type);
      // An unknown type, a registration without a descriptor, a domain name that is a call's
      // arguments, an unregistration or a flush of a block that is not there: all refused.
      const bool refused = m.header.type == 0 || m.header.type > tvxdsp::kStats || m.header.type == tvxdsp::kOpen ||
                           m.header.type == tvxdsp::kRegister || m.header.type == tvxdsp::kUnregister ||
                           m.header.type == tvxdsp::kFlush;
      m.expect = refused ? tvxdsp::kStatusBadMessage : kAny;
      m.structured = false;
      return m;
    }
  }
  // The chosen mutation did not apply to this call: flip a byte instead.
  m = valid;
  m.payload[random.Below(m.payload.size())] ^= 0xA5;
  m.structured = false;
  m.what = "flipped byte";
  return m;
}

// ---- tests -----------------------------------------------------------------------------------

// A channel not yet open, the block it can register and the valid calls.
class DspMessageTest : public ::testing::Test {
 protected:
  Block block_;
  tvxdsp::Faults faults_;
  tvxdsp::Channel channel_{faults_};
  const std::vector<Message> calls_ = ValidCalls();
};

TEST_F(DspMessageTest, ValidCallsAnswerWithTheReferenceResults) {
  OpenSession(channel_, block_);
  const std::vector<Message>& calls = calls_;
  const std::vector<Answer> answers = RunAll(channel_, block_, calls);
  for (size_t i = 0; i < calls.size(); ++i) {
    SCOPED_TRACE(tvxdsp_op_name(calls[i].header.a));
    EXPECT_EQ(answers[i].status, 0);
    EXPECT_EQ(answers[i].body.size(), 8u);
    uint64_t expected = 0;
    for (uint64_t length : OutputLengths(calls[i].args)) expected += length;
    EXPECT_EQ(answers[i].outputs.size(), expected);
  }
  // Two of them against the reference kernels run here.
  const std::vector<uint8_t>& bits = calls[0].args[0].bytes;
  EXPECT_EQ(tvxdsp::Get64(answers[0].body.data()), tvxBitCountu8C(bits.data(), 64));
  std::vector<uint8_t> median = calls[1].args[4].bytes;  // the border keeps what was sent
  tvxFilterMedian3x3u8_v2C(calls[1].args[0].bytes.data(), 24, 10, 32, median.data(), 24);
  EXPECT_EQ(answers[1].outputs, median);
}

TEST_F(DspMessageTest, SessionMessagesNeedAnOpenChannelAndASession) {
  tvxdsp::Channel& channel = channel_;
  const Message& call = calls_[0];
  EXPECT_EQ(Send(channel, call).status, tvxdsp::kStatusBadMessage) << "a call before the channel is open";
  EXPECT_EQ(Send(channel, Init()).status, tvxdsp::kStatusBadMessage) << "a session before the channel is open";
  EXPECT_EQ(Send(channel, Session(tvxdsp::kOpen, tvxdsp::kProtocolVersion + 1, {'c', 'd', 's', 'p'})).status,
            tvxdsp::kStatusBadMessage);
  EXPECT_EQ(Send(channel, Session(tvxdsp::kOpen, tvxdsp::kProtocolVersion, {'g', 'p', 'u'})).status,
            tvxdsp::kStatusBadMessage);
  EXPECT_EQ(Send(channel, Session(tvxdsp::kOpen, tvxdsp::kProtocolVersion, {})).status, tvxdsp::kStatusBadMessage);
  ASSERT_EQ(Send(channel, Open()).status, 0);
  EXPECT_EQ(Send(channel, call).status, 104) << "no session: the channel is stale";
  EXPECT_EQ(Send(channel, Session(tvxdsp::kClock, 0, {})).status, tvxdsp::kStatusNoSession);
  EXPECT_EQ(Send(channel, Session(tvxdsp::kInit, 0, {2, 0, 0, 0, 3, 0, 0, 0})).status, tvxdsp::kStatusBadMessage)
      << "fewer attributes than counted";
  ASSERT_EQ(Send(channel, Init()).status, 0);
  EXPECT_EQ(Send(channel, call).status, 0);
  EXPECT_EQ(Send(channel, Session(tvxdsp::kClock, 0, {})).body.size(), 8u);
  EXPECT_EQ(Send(channel, Session(tvxdsp::kDeinit, 0, {})).status, 0);
  EXPECT_EQ(Send(channel, call).status, 104);
}

int OpenDescriptors() {
  return static_cast<int>(
      std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator()));
}

// A descriptor may ride along with any message; only a registration keeps (maps) it, every
// other message must close it, or a client could exhaust the host DSP's descriptors.
TEST_F(DspMessageTest, DescriptorsThatComeWithAnyMessageAreReleased) {
  const int before = OpenDescriptors();
  {
    tvxdsp::Channel channel(faults_);
    for (uint32_t type = 0; type <= tvxdsp::kReply; ++type) {
      if (type > tvxdsp::kStats && type != tvxdsp::kReply) continue;
      Message m = type == tvxdsp::kCall ? calls_[0] : Session(type, kBlock, {0, 0, 1, 0, 0, 0, 0, 0});
      m.header.type = type;
      Send(channel, m, dup(block_.fd()));
    }
  }
  EXPECT_EQ(OpenDescriptors(), before);
}

// A block may not claim more bytes than its descriptor holds (touching the mapping past the end
// of the file would kill the host DSP with SIGBUS), and a reference into a block must suit the
// alignment of the elements the kernel reads through it.
TEST_F(DspMessageTest, SharedReferencesStayInsideTheFileAndSuitTheirElements) {
  tvxdsp::Channel& channel = channel_;
  ASSERT_EQ(Send(channel, Open()).status, 0);
  ASSERT_EQ(Send(channel, Init()).status, 0);
  tvxdsp::Writer length;
  length.U64(kBlockBytes * 4);
  EXPECT_EQ(Send(channel, Session(tvxdsp::kRegister, kBlock, length.bytes()), dup(block_.fd())).status,
            tvxdsp::kStatusBadMessage);
  const Message beyond = Call(Op("tvxBitCountu8"), {Shared(kBlockBytes * 2, 64, tvxdsp::kIn), Scalar(uint32_t{64})});
  EXPECT_EQ(Send(channel, beyond).status, tvxdsp::kStatusBadMessage) << "no such block";

  OpenSession(channel, block_);
  Message orS32 = calls_[5];  // its second source, 32-bit elements, is in the block
  ASSERT_EQ(orS32.args[1].kind, tvxdsp::kShared);
  for (const uint64_t offset : {1, 2, 3, 4}) {
    orS32.args[1].offset = 12288 + offset;
    Reencode(orS32, "", kAny);
    EXPECT_EQ(Send(channel, orS32).status, offset == 4 ? 0 : tvxdsp::kStatusBadMessage) << offset;
  }
}

// The counts only say how many bytes a buffer holds; the rows a kernel walks must fit in them
// too: no stride shorter than a row, no byte stride that splits an element, no width whose
// row length wraps around 32 bits.
TEST_F(DspMessageTest, RowsThatDoNotFitTheirBuffersAreRefused) {
  OpenSession(channel_, block_);
  struct Case {
    size_t call, arg;
    Arg replacement;
    const char* what;
  } cases[] = {
      {2, 3, Scalar(uint32_t{23}), "a median's source stride below its width"},
      {2, 5, Scalar(uint32_t{20}), "a median's destination stride below its width"},
      {4, 3, Scalar(uint32_t{30}), "a float stride that splits an element"},
      {4, 1, Scalar(uint32_t{0x80000000}), "a float width whose row length wraps to 0"},
      {5, 7, Inline(4 * 3, tvxdsp::kIn), "a mask whose stride is below the width"},
  };
  for (const Case& c : cases) {
    Message m = calls_[c.call];
    m.args[c.arg] = c.replacement;
    if (c.call == 5) m.args[8] = Scalar(uint32_t{4});
    Reencode(m, c.what, tvxdsp::kStatusBadArguments);
    EXPECT_EQ(Send(channel_, m).status, tvxdsp::kStatusBadArguments) << c.what;
  }
}

TEST_F(DspMessageTest, MutatedCallsAreRefusedOrAnsweredConsistentlyAndValidCallsKeepTheirAnswers) {
  constexpr int kRounds = 300;
  constexpr int kMutationsPerCall = 64;
  Block& block = block_;
  const std::vector<Message>& calls = calls_;
  OpenSession(channel_, block);
  const std::vector<Answer> baseline = RunAll(channel_, block, calls);
  Random random;
  size_t messages = 0, refused = 0, mismatches = 0;
  auto report = [&](const Message& m, const std::string& problem) {
    if (++mismatches <= 10) ADD_FAILURE() << tvxdsp_op_name(m.header.a) << ", " << m.what << ": " << problem;
  };
  std::unique_ptr<tvxdsp::Channel> channel;
  for (int round = 0; round < kRounds; ++round) {
    // Every other round starts on a fresh channel; the rest keep the one the mutations used.
    if (round % 2 == 0) {
      channel = std::make_unique<tvxdsp::Channel>(faults_);
      OpenSession(*channel, block);
    }
    for (const Message& valid : calls) {
      for (int i = 0; i < kMutationsPerCall; ++i) {
        const Message m = Mutate(valid, random);
        const Reply r = Send(*channel, m);
        ++messages;
        refused += r.status != 0;
        if (r.status != 0 && (!r.body.empty() || !r.outputs.empty())) report(m, "a refusal that carries reply bytes");
        if (m.expect != kAny && r.status != m.expect) {
          report(m, "status " + std::to_string(r.status) + ", not " + std::to_string(m.expect));
        }
        if (r.status == 0 && m.header.type == tvxdsp::kCall) {
          std::vector<uint64_t> lengths;
          for (const tvxdsp::Args::Output& o : r.outputs) lengths.push_back(o.length);
          if (r.body.size() != 8) report(m, "an answer without its returned value");
          if (m.structured && lengths != OutputLengths(m.args)) report(m, "outputs that are not the inline outputs");
        }
        // A type mutation may have ended the session or the channel; bring them back.
        if (m.header.type != tvxdsp::kCall) {
          Send(*channel, Open());
          Send(*channel, Init());
        }
      }
    }
    ASSERT_EQ(mismatches, 0u) << "in round " << round;
    const std::vector<Answer> answers = RunAll(*channel, block, calls);
    for (size_t i = 0; i < calls.size(); ++i) {
      ASSERT_TRUE(answers[i] == baseline[i]) << tvxdsp_op_name(calls[i].header.a) << " answers differently in round "
                                             << round;
    }
  }
  EXPECT_EQ(messages, size_t{kRounds} * kMutationsPerCall * calls.size());
  // Most mutations must be refused; some (a flipped pixel, another direction) remain valid.
  EXPECT_GT(refused, messages / 2);
  EXPECT_LT(refused, messages);
}

}  // namespace
