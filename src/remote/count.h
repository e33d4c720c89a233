// Element counts of marshalled buffers, evaluated from the registry's count expressions
// (`srcStride*srcHeight`, `dstStride/2*((srcHeight+1)/2)`, ...) without wrapping around: a
// negative or oversized intermediate makes the whole count invalid instead of small. The
// remote layer uses it before copying a caller's buffer, the host DSP before trusting one.
#pragma once

#include <cstdint>
#include <type_traits>

namespace tvxdsp {

class Count {
 public:
  static constexpr int64_t kLimit = int64_t{1} << 40;  // far beyond any buffer a call can name

  template <typename T, typename = std::enable_if_t<std::is_integral_v<T>>>
  constexpr Count(T value) : value_(Clamp(value)) {}  // NOLINT: stands in for integer names

  constexpr bool valid() const { return value_ >= 0 && value_ <= kLimit; }
  constexpr int64_t value() const { return value_; }

  friend constexpr Count operator+(Count a, Count b) { return Make(a, b, a.value_ + b.value_); }
  friend constexpr Count operator-(Count a, Count b) { return Make(a, b, a.value_ - b.value_); }
  friend constexpr Count operator*(Count a, Count b) {
    if (!a.valid() || !b.valid()) return Invalid();
    if (a.value_ != 0 && b.value_ > kLimit / a.value_) return Invalid();
    return Count(a.value_ * b.value_);
  }
  friend constexpr Count operator/(Count a, Count b) {
    if (!a.valid() || !b.valid() || b.value_ == 0) return Invalid();
    return Count(a.value_ / b.value_);
  }

 private:
  static constexpr Count Invalid() { return Count(int64_t{-1}); }
  static constexpr Count Make(Count a, Count b, int64_t v) {
    return a.valid() && b.valid() ? Count(v) : Invalid();
  }
  template <typename T>
  static constexpr int64_t Clamp(T value) {
    if constexpr (std::is_signed_v<T>) {
      return static_cast<int64_t>(value);
    } else {
      return static_cast<uint64_t>(value) > static_cast<uint64_t>(kLimit) ? kLimit + 1 : static_cast<int64_t>(value);
    }
  }
  int64_t value_;
};

// Bytes of `count` elements of `elementSize` bytes, or -1 when the count is invalid.
inline int64_t Bytes(Count count, uint32_t elementSize) {
  const Count bytes = count * Count(elementSize);
  return bytes.valid() ? bytes.value() : -1;
}

}  // namespace tvxdsp
