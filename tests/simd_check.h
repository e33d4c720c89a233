// Shared harness for checking SIMD variants against reference variants: runs a body on every
// Highway target compiled into the library and supported here, and provides images whose
// padding and surroundings carry a guard pattern that must survive every call, placed in turn
// against inaccessible pages so that reads outside the rectangle fault as well.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <random>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
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

// Where an image's rectangle sits in its mapping. Guarded: misalign bytes past a 64-byte boundary
// with guard bytes all round. PageEnd: the last byte of the last row is the last byte before an
// inaccessible page, so any read or write past the rectangle faults. PageStart: the first byte
// of the rectangle is the first byte after an inaccessible page, so any access before it faults.
enum class Placement { kGuarded, kPageEnd, kPageStart };

// Successive images take the three placements in turn, so every sweep of shapes meets all three
// (and both tiers of a comparison run on the same placement of their input).
inline Placement NextPlacement() {
  static int counter = 0;
  return static_cast<Placement>(counter++ % 3);
}

// A width x height image of elemBytes per pixel (channels included) with pad extra bytes per
// row, placed as NextPlacement says (the guarded placement honours misalign). Everything in its
// mapping outside the rectangle holds kGuard; the mapping is fenced by inaccessible pages.
class Image {
 public:
  Image(uint32_t width, uint32_t height, size_t elemBytes, uint32_t pad = 0, uint32_t misalign = 0,
        Placement placement = NextPlacement())
      : width_(width), height_(height), rowBytes_(width * elemBytes),
        stride_(static_cast<uint32_t>(width * elemBytes + pad)), misalign_(misalign), placement_(placement) {
    Map(2 * kMargin + misalign + static_cast<size_t>(stride_) * height + 64);
    std::memset(store_, kGuard, size_);
    first_ = Locate();
  }
  Image(const Image& o)
      : width_(o.width_), height_(o.height_), rowBytes_(o.rowBytes_), stride_(o.stride_), misalign_(o.misalign_),
        placement_(o.placement_) {
    Map(o.size_);
    std::memcpy(store_, o.store_, size_);
    first_ = store_ + (o.first_ - o.store_);
  }
  Image& operator=(const Image& o) {
    if (this != &o) {
      Image copy(o);
      Swap(copy);
    }
    return *this;
  }
  Image(Image&& o) noexcept { Swap(o); }
  Image& operator=(Image&& o) noexcept {
    Swap(o);
    return *this;
  }
  ~Image() {
    if (mapping_) munmap(mapping_, size_ + 2 * PageBytes());
  }

  uint8_t* bytes() { return first_; }
  const uint8_t* bytes() const { return first_; }
  template <typename T> T* as() { return reinterpret_cast<T*>(first_); }
  template <typename T> const T* as() const { return reinterpret_cast<const T*>(first_); }
  uint32_t stride() const { return stride_; }
  uint32_t width() const { return width_; }
  uint32_t height() const { return height_; }
  Placement placement() const { return placement_; }
  uint8_t* row(uint32_t y) { return first_ + static_cast<size_t>(y) * stride_; }
  const uint8_t* row(uint32_t y) const { return first_ + static_cast<size_t>(y) * stride_; }
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

  // Every byte of the mapping outside the rectangle still holds the guard.
  ::testing::AssertionResult GuardsIntact() const {
    for (size_t i = 0; i < size_; ++i) {
      const uint8_t* p = store_ + i;
      bool inside = false;
      if (p >= first_) {
        size_t off = static_cast<size_t>(p - first_);
        size_t y = off / stride_;
        inside = y < height_ && off % stride_ < rowBytes_;
      }
      if (!inside && *p != kGuard) {
        return ::testing::AssertionFailure()
               << "guard byte overwritten at offset " << (p - first_) << " from the first pixel";
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
  static size_t PageBytes() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

  // size bytes rounded up to whole pages, between two inaccessible pages.
  void Map(size_t bytes) {
    const size_t page = PageBytes();
    size_ = (bytes + page - 1) / page * page;
    void* m = mmap(nullptr, size_ + 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) throw std::bad_alloc();
    mapping_ = static_cast<uint8_t*>(m);
    mprotect(mapping_, page, PROT_NONE);
    mprotect(mapping_ + page + size_, page, PROT_NONE);
    store_ = mapping_ + page;
  }
  uint8_t* Locate() const {
    switch (placement_) {
      case Placement::kPageEnd: {
        const size_t extent = height_ == 0 ? 0 : static_cast<size_t>(height_ - 1) * stride_ + rowBytes_;
        return store_ + size_ - extent;
      }
      case Placement::kPageStart:
        return store_;
      case Placement::kGuarded:
        break;
    }
    uintptr_t p = reinterpret_cast<uintptr_t>(store_) + kMargin;
    p = (p + 63) & ~uintptr_t{63};
    return reinterpret_cast<uint8_t*>(p + misalign_);
  }
  void Swap(Image& o) noexcept {
    std::swap(width_, o.width_);
    std::swap(height_, o.height_);
    std::swap(rowBytes_, o.rowBytes_);
    std::swap(stride_, o.stride_);
    std::swap(misalign_, o.misalign_);
    std::swap(placement_, o.placement_);
    std::swap(mapping_, o.mapping_);
    std::swap(store_, o.store_);
    std::swap(size_, o.size_);
    std::swap(first_, o.first_);
  }

  uint32_t width_ = 0, height_ = 0;
  size_t rowBytes_ = 0;
  uint32_t stride_ = 0, misalign_ = 0;
  Placement placement_ = Placement::kGuarded;
  uint8_t* mapping_ = nullptr;  // the whole mapping, fence pages included
  uint8_t* store_ = nullptr;    // its accessible part
  size_t size_ = 0;             // bytes in the accessible part
  uint8_t* first_ = nullptr;    // the first pixel
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
