// The differential fuzz harness every generated entry call (fuzz_calls.inc) runs through.
//
// An input is a five-byte header and a stream the entry's call draws from:
//   byte 0  which entry of the family (modulo their number)
//   byte 1  width: codes below 26 pick from kWidths, others are the width itself
//   byte 2  height: codes below 8 pick from kHeights, others give 1 + code % 40
//   byte 3  stride padding: 0, 1, 7, or 64 + code / 4, by code % 4
//   byte 4  placement: bit 0 buffers start right after an inaccessible page (else they end
//           right before one); bit 1 sizes are rounded up to 64 bytes so page-end buffers start
//           aligned; bit 7 passes pointer (bits 4..6) as null
// then one selector byte per scalar and stride in parameter order (selectors below 128 keep the
// sample value or the packed stride; see Scalar and Stride), and the remaining bytes seed the
// buffers' contents. A short input falls back to the sample values.
//
// The oracle: no sanitizer report or fault; a call the entry's condition rejects writes nothing
// and returns its failure value; an accepted call gives the same bytes and result on the SIMD
// slot as on the reference slot (float buffers and results within the entry's tolerance).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace tvxfuzz {

struct Outcome {
  bool real = false;
  int64_t integer = 0;
  double value = 0;
  static Outcome Integer(int64_t v) { Outcome o; o.integer = v; return o; }
  static Outcome Real(double v) { Outcome o; o.real = true; o.value = v; return o; }
};

class Call;

// A buffer's element count, held within int64_t.
inline int64_t Clamp(__int128 count) {
  const __int128 limit = (__int128{1} << 62);
  return static_cast<int64_t>(count < 0 ? 0 : count > limit ? limit : count);
}

// Thrown by the harness's log sink when the library logs a process-ending assertion, so that the
// fuzzer can tell the library's deliberate exit from a crash.
struct ProcessEnd {};

struct Entry {
  const char* family;
  const char* name;
  uint32_t row;
  bool hasResult;
  bool realResult;
  int64_t failValue;
  double tolerance;  // negative: the harness default
  void* reference;
  void* simd;
  void (*fuzz)(Call&);
};

constexpr int kMaxBuffers = 16;
// An accepted call whose buffers would exceed this is skipped (it cannot be held, and the entry
// would be entitled to read all of it).
constexpr size_t kMaxBufferBytes = size_t{16} << 20;

class Call {
 public:
  Call(const Entry& entry, const uint8_t* data, size_t size);

  uint32_t Width() const { return width_; }
  uint32_t Height() const { return height_; }
  uint32_t Pad() const { return pad_; }

  // The sample value most of the time; otherwise a value across or outside the valid range.
  template <class T>
  T Scalar(T sample) {
    const uint8_t sel = Next();
    if (sel < 128) return sample;
    if constexpr (std::is_floating_point_v<T>) {
      switch (sel & 15) {
        case 0: return T(0);
        case 1: return T(1);
        case 2: return T(-1);
        case 3: return T(0.5);
        case 4: return sample * T(2);
        case 5: return -sample;
        case 6: return T(static_cast<int8_t>(Next())) / T(16);
        case 7: { uint32_t bits = Next32(); float f; std::memcpy(&f, &bits, 4); return T(f); }
        case 8: return T(1e30);
        case 9: return T(-1e30);
        case 10: return std::numeric_limits<T>::infinity();
        case 11: return std::numeric_limits<T>::quiet_NaN();
        case 12: return T(1e-30);
        case 13: return T(255);
        case 14: return T(65536);
        default: return sample;
      }
    } else {
      using U = std::make_unsigned_t<T>;
      switch (sel & 15) {
        case 0: return T(0);
        case 1: return T(1);
        case 2: return T(2);
        case 3: return T(U(sample) + 1);
        case 4: return T(U(sample) - 1);
        case 5: return T(~U(0));
        case 6: return T(Next());
        case 7: return T(U(Next32()));
        case 8: return T(U(1) << (sizeof(T) * 8 - 1));
        case 9: return T(U(sample) * 2);
        case 10: return T(255);
        case 11: return T(U(256));
        case 12: return T(U(65535));
        case 13: return T(U(65536u & U(~U(0))));
        case 14: return T(U(sample) + 16);
        default: return sample;
      }
    }
  }

  // A stride with a packed form: zero or padded by the header's padding most of the time;
  // otherwise tight, just below or above a row, tiny, arbitrary or huge.
  template <class T>
  T Stride(T packed, uint32_t pad) {
    const uint8_t sel = Next();
    if (sel < 128) return (sel & 1) ? packed : (pad ? T(packed + pad) : T(0));
    switch (sel & 7) {
      case 0: return T(0);
      case 1: return T(packed - 1);
      case 2: return T(packed + 1);
      case 3: return T(1);
      case 4: return T(Next());
      case 5: return T(Next32());
      case 6: return T(~T(0));
      default: return T(packed * 2);
    }
  }

  // Buffer k holds `count` elements of `elementBytes` (its size over the values the entry sees).
  void Declare(int k, size_t elementBytes, int64_t count, bool real, bool written);
  // Sizes, places and fills both sets of buffers (0: the reference run's, 1: the SIMD run's).
  bool Place();
  void* Pointer(int k, int set) const { return ptr_[set][k]; }

  // A call that ends the process by the library's own assertion on the reference tier must end
  // it on the SIMD tier too, and may not do so for a call the condition rejects.
  template <class F>
  void Run(bool ok, F call) {
    if (ok && oversize_) return;
    Begin();
    Outcome r0;
    bool ended = false;
    try {
      r0 = call(0);
    } catch (const ProcessEnd&) {
      ended = true;
    }
    if (ended && !ok) Fail("a rejected call ended the process");
    if (!ended) AfterReference(ok, r0);
    if (ok && entry_.simd) {
      SelectSimd();
      Outcome r1;
      bool simdEnded = false;
      try {
        r1 = call(1);
      } catch (const ProcessEnd&) {
        simdEnded = true;
      }
      if (ended != simdEnded) Fail("only one tier ended the process");
      if (!ended) Compare(r0, r1);
    }
    End();
  }

 private:
  uint8_t Next() { return pos_ < size_ ? data_[pos_++] : 0; }
  uint32_t Next32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= uint32_t(Next()) << (8 * i);
    return v;
  }
  void Begin();
  void SelectSimd();
  void End();
  void AfterReference(bool ok, const Outcome& r0);
  void Compare(const Outcome& r0, const Outcome& r1);
  [[noreturn]] void Fail(const char* what, int buffer = -1, size_t at = 0);

  const Entry& entry_;
  const uint8_t* data_;
  size_t size_, pos_;
  uint32_t width_, height_, pad_;
  uint8_t flags_;
  int count_ = 0;
  bool oversize_ = false;
  size_t bytes_[kMaxBuffers] = {};
  size_t elementBytes_[kMaxBuffers] = {};
  bool real_[kMaxBuffers] = {};
  bool written_[kMaxBuffers] = {};
  void* ptr_[2][kMaxBuffers] = {};
  uint32_t savedImpl_ = 0;
  void* savedSlots_[2] = {};
};

// Runs one input against the entries of `family`.
int RunFamily(const char* family, const uint8_t* data, size_t size);

}  // namespace tvxfuzz
