// Shared harness for checking SIMD variants against reference variants: runs a body on every
// Highway target compiled into the library and supported here, and provides images whose
// padding and surroundings carry a guard pattern that must survive every call.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "hwy/targets.h"

namespace tvxtest {

constexpr uint8_t kGuard = 0xA5;
constexpr size_t kMargin = 64;

// Runs body once per compiled and supported SIMD target, then restores normal dispatch. A
// build with one static target (ARMv7 NEON) runs the body once on it: Debian's armhf Highway
// runtime reports only its own fallback targets, so the intersection would be empty there.
inline void ForEachTarget(const std::function<void()>& body) {
  const std::vector<int64_t> targets = hwy::SupportedAndGeneratedTargets();
  if (targets.empty()) {
    SCOPED_TRACE(hwy::TargetName(HWY_STATIC_TARGET));
    body();
    return;
  }
  for (int64_t target : targets) {
    hwy::SetSupportedTargetsForTest(target);
    SCOPED_TRACE(hwy::TargetName(target));
    body();
  }
  hwy::SetSupportedTargetsForTest(0);
}

// A width x height image of elemBytes per pixel (channels included) with pad extra bytes per
// row, whose first pixel sits misalign bytes past a 64-byte boundary. Everything outside the
// rectangle holds kGuard.
class Image {
 public:
  Image(uint32_t width, uint32_t height, size_t elemBytes, uint32_t pad = 0, uint32_t misalign = 0)
      : width_(width), height_(height), rowBytes_(width * elemBytes),
        stride_(static_cast<uint32_t>(width * elemBytes + pad)), misalign_(misalign),
        store_(2 * kMargin + misalign + static_cast<size_t>(stride_) * height + 64, kGuard) {}

  uint8_t* bytes() { return first(); }
  const uint8_t* bytes() const { return const_cast<Image*>(this)->first(); }
  template <typename T> T* as() { return reinterpret_cast<T*>(first()); }
  template <typename T> const T* as() const { return reinterpret_cast<const T*>(bytes()); }
  uint32_t stride() const { return stride_; }
  uint32_t width() const { return width_; }
  uint32_t height() const { return height_; }
  uint8_t* row(uint32_t y) { return first() + static_cast<size_t>(y) * stride_; }
  const uint8_t* row(uint32_t y) const { return bytes() + static_cast<size_t>(y) * stride_; }
  template <typename T> T& at(uint32_t x, uint32_t y) { return reinterpret_cast<T*>(row(y))[x]; }

  // Random bytes inside the rectangle; the guard stays.
  void Randomize(std::mt19937& rng) {
    for (uint32_t y = 0; y < height_; ++y)
      for (size_t i = 0; i < rowBytes_; ++i) row(y)[i] = static_cast<uint8_t>(rng());
  }
  // Random bytes where, over the first width * bytesPerPixel bytes of each row, about one byte
  // in `oneIn` is 0 and as many are 255: saturated and zero values then fill whole vectors.
  void RandomizeWithExtremes(std::mt19937& rng, uint32_t bytesPerPixel, uint32_t oneIn) {
    Randomize(rng);
    for (uint32_t y = 0; y < height_; ++y)
      for (size_t i = 0; i < size_t{width_} * bytesPerPixel; ++i) {
        const uint32_t r = rng() % oneIn;
        if (r == 0) row(y)[i] = 0;
        if (r == 1) row(y)[i] = 255;
      }
  }
  // Random elements of type T drawn from [lo, hi] inside the rectangle.
  template <typename T, typename D>
  void RandomizeAs(std::mt19937& rng, D dist) {
    for (uint32_t y = 0; y < height_; ++y) {
      T* r = reinterpret_cast<T*>(row(y));
      for (size_t i = 0; i < rowBytes_ / sizeof(T); ++i) r[i] = static_cast<T>(dist(rng));
    }
  }

  // Every byte outside the rectangle still holds the guard.
  ::testing::AssertionResult GuardsIntact() const {
    const uint8_t* base = store_.data();
    const uint8_t* start = bytes();
    for (size_t i = 0; i < store_.size(); ++i) {
      const uint8_t* p = base + i;
      bool inside = false;
      if (p >= start) {
        size_t off = static_cast<size_t>(p - start);
        size_t y = off / stride_;
        inside = y < height_ && off % stride_ < rowBytes_;
      }
      if (!inside && *p != kGuard) {
        return ::testing::AssertionFailure()
               << "guard byte overwritten at offset " << (p - start) << " from the first pixel";
      }
    }
    return ::testing::AssertionSuccess();
  }

  // Same bytes inside the rectangle (strides may differ).
  ::testing::AssertionResult SameRect(const Image& other) const {
    if (other.width_ != width_ || other.height_ != height_ || other.rowBytes_ != rowBytes_)
      return ::testing::AssertionFailure() << "shape differs";
    for (uint32_t y = 0; y < height_; ++y) {
      const uint8_t* a = row(y);
      const uint8_t* b = other.row(y);
      for (size_t i = 0; i < rowBytes_; ++i) {
        if (a[i] != b[i]) {
          return ::testing::AssertionFailure()
                 << "byte " << i << " of row " << y << " differs: " << int(a[i]) << " vs " << int(b[i])
                 << " (image " << width_ << "x" << height_ << ")";
        }
      }
    }
    return ::testing::AssertionSuccess();
  }

 private:
  uint8_t* first() {
    uintptr_t p = reinterpret_cast<uintptr_t>(store_.data()) + kMargin;
    p = (p + 63) & ~uintptr_t{63};
    return reinterpret_cast<uint8_t*>(p + misalign_);
  }

  uint32_t width_, height_;
  size_t rowBytes_;
  uint32_t stride_, misalign_;
  std::vector<uint8_t> store_;
};

struct Shape {
  uint32_t width, height, pad, misalign;
};

// Widths 1 to 70 over small heights with varied padding and misalignment, plus large images.
inline std::vector<Shape> SweepShapes() {
  std::vector<Shape> shapes;
  for (uint32_t w = 1; w <= 70; ++w) shapes.push_back({w, 1 + w % 4, (w * 7) % 13, w % 4});
  shapes.push_back({1920, 3, 0, 0});
  shapes.push_back({1021, 9, 5, 3});
  return shapes;
}

}  // namespace tvxtest
