// The harness behind every family's fuzz target: buffers placed against inaccessible pages,
// both tier slots run over identical copies, and the generated call of every entry.
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "call.h"
#include "frame/frame.h"
#include "samples.inc"

namespace tvxfuzz {
namespace {

constexpr uint32_t kWidths[] = {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65,
                                127, 128, 129, 255, 256, 257, 641, 1023, 1921};
constexpr uint32_t kHeights[] = {1, 2, 3, 4, 5, 8, 9, 17};
constexpr double kDefaultTolerance = 1e-5;

size_t PageBytes() {
  static const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  return page;
}

// One reusable mapping per buffer slot: [inaccessible page][capacity][inaccessible page].
struct Mapping {
  uint8_t* base = nullptr;
  size_t capacity = 0;
  uint8_t* Reserve(size_t bytes) {
    const size_t page = PageBytes();
    const size_t need = (bytes + page - 1) / page * page + page;  // at least one spare page
    if (need > capacity) {
      if (base) munmap(base, capacity + 2 * page);
      void* m = mmap(nullptr, need + 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      if (m == MAP_FAILED) std::abort();
      base = static_cast<uint8_t*>(m);
      capacity = need;
      mprotect(base, page, PROT_NONE);
      mprotect(base + page + capacity, page, PROT_NONE);
    }
    return base + page;
  }
};
Mapping g_maps[2][kMaxBuffers];

uint64_t Mix(uint64_t x) {
  x ^= x >> 31;
  x *= 0x9E3779B97F4A7C15ull;
  x ^= x >> 29;
  return x;
}

// Argument-condition lines are expected and dropped; a process-ending assertion ("path@line:
// condition Assertion failed") unwinds to the harness instead of exiting.
void Sink(int, const char*, const char* message) {
  const char* end = " Assertion failed\n";
  const size_t n = std::strlen(message), m = std::strlen(end);
  if (n >= m && std::strcmp(message + n - m, end) == 0 && std::strncmp(message, "Assertion failed @", 18) != 0)
    throw ProcessEnd{};
}

bool NearlyEqual(double a, double b, double tolerance) {
  if (a == b || (std::isnan(a) && std::isnan(b))) return true;
  const double scale = std::fmax(1.0, std::fmax(std::fabs(a), std::fabs(b)));
  return std::fabs(a - b) <= tolerance * scale;
}

}  // namespace

Call::Call(const Entry& entry, const uint8_t* data, size_t size)
    : entry_(entry), data_(data), size_(size), pos_(1) {
  const uint8_t w = Next(), h = Next(), p = Next();
  flags_ = Next();
  width_ = w < std::size(kWidths) ? kWidths[w] : w;
  height_ = h < std::size(kHeights) ? kHeights[h] : 1u + h % 40u;
  const uint32_t pads[] = {0, 1, 7, 64u + p / 4u};
  pad_ = pads[p % 4];
}

void Call::Declare(int k, size_t elementBytes, int64_t count, bool real, bool written) {
  if (k >= kMaxBuffers) std::abort();
  count_ = k + 1;
  elementBytes_[k] = elementBytes;
  real_[k] = real;
  written_[k] = written;
  const uint64_t bytes = count <= 0 ? 0 : static_cast<uint64_t>(count) * elementBytes;
  if (bytes > kMaxBufferBytes) {
    oversize_ = true;
    bytes_[k] = 64;  // a call the entry rejects must not touch it anyway
  } else {
    bytes_[k] = static_cast<size_t>(bytes);
  }
}

bool Call::Place() {
  const bool atStart = flags_ & 1;
  const bool rounded = flags_ & 2;
  const int nullIndex = (flags_ & 0x80) && count_ ? ((flags_ >> 4) & 7) % count_ : -1;
  const uint8_t* tail = data_ + pos_;
  const size_t tailBytes = size_ - pos_;
  uint64_t seed = 0x5EED;
  for (size_t i = 0; i < tailBytes; ++i) seed = Mix(seed ^ tail[i]);
  for (int k = 0; k < count_; ++k) {
    size_t bytes = bytes_[k];
    if (rounded) bytes = (bytes + 63) / 64 * 64;
    std::vector<uint8_t> content(bytes);
    uint64_t state = Mix(seed + k);
    for (size_t i = 0; i < bytes; ++i) {
      if (i % 8 == 0) state = Mix(state + i);
      content[i] = static_cast<uint8_t>(state >> (8 * (i % 8)));
    }
    if (bytes && tailBytes) std::memcpy(content.data(), tail, std::min(tailBytes, bytes));
    if (real_[k] && elementBytes_[k] == 4) {
      // Finite floats in [-16, 16): bytes reinterpreted as floats would be mostly NaN or tiny.
      for (size_t i = 0; i + 4 <= bytes; i += 4) {
        const float f = static_cast<float>(static_cast<int16_t>(content[i] | content[i + 1] << 8)) / 2048.0f;
        std::memcpy(&content[i], &f, 4);
      }
    }
    for (int set = 0; set < 2; ++set) {
      uint8_t* store = g_maps[set][k].Reserve(bytes);
      uint8_t* p = atStart ? store : store + g_maps[set][k].capacity - bytes;
      if (bytes) std::memcpy(p, content.data(), bytes);
      ptr_[set][k] = k == nullIndex ? nullptr : p;
    }
    bytes_[k] = bytes;
  }
  return true;
}

void Call::Begin() {
  savedImpl_ = tvxImplTable[entry_.row];
  savedSlots_[0] = tvxFuncTable[entry_.row][0];
  savedSlots_[1] = tvxFuncTable[entry_.row][1];
  tvxFuncTable[entry_.row][0] = entry_.reference;
  tvxImplTable[entry_.row] = 0;
}

void Call::SelectSimd() {
  tvxFuncTable[entry_.row][1] = entry_.simd;
  tvxImplTable[entry_.row] = 1;
}

void Call::End() {
  tvxImplTable[entry_.row] = savedImpl_;
  tvxFuncTable[entry_.row][0] = savedSlots_[0];
  tvxFuncTable[entry_.row][1] = savedSlots_[1];
}

void Call::AfterReference(bool ok, const Outcome& r0) {
  if (ok) return;
  // Rejected: the untouched SIMD set still holds what the reference set held before the call.
  for (int k = 0; k < count_; ++k) {
    if (!ptr_[0][k] || !ptr_[1][k]) continue;
    if (std::memcmp(ptr_[0][k], ptr_[1][k], bytes_[k]) != 0) Fail("a rejected call wrote into a buffer", k);
  }
  if (!entry_.hasResult) return;
  const bool failed = r0.real ? r0.value == static_cast<double>(entry_.failValue) : r0.integer == entry_.failValue;
  if (!failed) Fail("a rejected call did not return its failure value");
}

void Call::Compare(const Outcome& r0, const Outcome& r1) {
  const double tolerance = entry_.tolerance < 0 ? kDefaultTolerance : entry_.tolerance;
  if (r0.real ? !NearlyEqual(r0.value, r1.value, tolerance) : r0.integer != r1.integer)
    Fail("the SIMD slot returned another result");
  for (int k = 0; k < count_; ++k) {
    const uint8_t* a = static_cast<const uint8_t*>(ptr_[0][k]);
    const uint8_t* b = static_cast<const uint8_t*>(ptr_[1][k]);
    if (!a || !b || std::memcmp(a, b, bytes_[k]) == 0) continue;
    for (size_t i = 0; i < bytes_[k]; ++i) {
      if (a[i] == b[i]) continue;
      if (real_[k] && elementBytes_[k] == 4) {
        const size_t at = i / 4 * 4;
        float x, y;
        std::memcpy(&x, a + at, 4);
        std::memcpy(&y, b + at, 4);
        if (NearlyEqual(x, y, tolerance)) {
          i = at + 3;
          continue;
        }
      }
      Fail("the SIMD slot wrote other bytes", k, i);
    }
  }
}

void Call::Fail(const char* what, int buffer, size_t at) {
  std::fprintf(stderr, "fuzz finding in %s: %s (width %u height %u pad %u flags 0x%02x", entry_.name, what,
               width_, height_, pad_, flags_);
  if (buffer >= 0) std::fprintf(stderr, ", buffer %d byte %zu of %zu", buffer, at, bytes_[buffer]);
  std::fprintf(stderr, ")\n");
  std::abort();
}

#include "fuzz_calls.inc"

int RunFamily(const char* family, const uint8_t* data, size_t size) {
  static const std::vector<const Entry*> entries = [family] {
    tvx_set_log_sink(&Sink);
    std::vector<const Entry*> list;
    for (const Entry& e : kTvxFuzzEntries)
      if (std::strcmp(e.family, family) == 0) list.push_back(&e);
    return list;
  }();
  if (entries.empty() || size < 1) return 0;
  const Entry& entry = *entries[data[0] % entries.size()];
  Call call(entry, data, size);
  entry.fuzz(call);
  return 0;
}

}  // namespace tvxfuzz
