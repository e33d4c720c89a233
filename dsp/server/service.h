// The host DSP's message handling, apart from its sockets: one Channel per client connection
// (its DSP-side session and mapped shared blocks), the faults to inject, the statistics.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "args.h"

namespace tvxdsp {

struct Faults {
  int32_t failStatus = 0;      // answer calls with this status ...
  uint32_t failEvery = 1;      // ... on every k-th call
  uint32_t restartEvery = 0;   // answer 104 on every k-th call (0: never)
  bool restartOnce = false;    // answer 104 on the first call only
  bool restartDropsSession = false;  // after a 104 the session must be initialised again
  std::string version = "1.7.1";
  uint32_t delayMs = 0;        // slow answers
  uint64_t exitAfter = 0;      // end the process abruptly while serving this call
  bool verbose = false;        // report every refused call on stderr
};

struct Reply {
  int32_t status = 0;
  std::vector<uint8_t> body;                 // small replies
  std::vector<Args::Output> outputs;         // call outputs, pointing into `keep`
  std::unique_ptr<Args> keep;
};

class Channel {
 public:
  explicit Channel(const Faults& faults) : faults_(faults) {}
  ~Channel();
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  // Handles one message; `fd` is a descriptor that came with it (taken over, or -1).
  Reply Handle(const Header& h, const uint8_t* payload, size_t size, int fd);

 private:
  Reply Call(const Header& h, const uint8_t* payload, size_t size);
  const Faults& faults_;
  bool opened_ = false;
  bool session_ = false;
  std::vector<MappedBlock> blocks_;
};

// Per-operation statistics of the whole process.
void RecordCall(uint32_t op, uint64_t bytesCopied);
bool ReadStats(uint32_t op, uint64_t* calls, uint64_t* bytes);
std::string StatsTable();

}  // namespace tvxdsp
