// Scenes for the optical-flow suites: a smooth texture of mixed sinusoids rendered at any
// sub-pixel offset (so the second image of a known motion is exact up to the byte rounding), and
// byte or float pyramids of both images built with the library's pyramid entries.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "tavix/tavix.h"

namespace tvxtest {

// About 20 .. 235, gradients of a few levels per pixel in every direction, and no period short
// enough to alias after two halvings.
inline double Texture(double x, double y) {
  return 128.0 + 45.0 * std::sin(0.31 * x + 0.17 * y) + 35.0 * std::cos(0.13 * x - 0.29 * y) +
         25.0 * std::sin(0.23 * x) * std::cos(0.19 * y + 1.0);
}

// Image pair: the second shows the first moved by (mx, my). Columns below flatX are flat (90).
struct Scene {
  uint32_t width, height, stride;
  std::vector<uint8_t> a, b;
  std::vector<float> fa, fb;  // the same images as floats, packed

  Scene(uint32_t w, uint32_t h, double mx, double my, uint32_t pad = 0, uint32_t flatX = 0)
      : width(w), height(h), stride(w + pad), a(size_t(stride) * h, 0xA5), b(size_t(stride) * h, 0xA5),
        fa(size_t(w) * h), fb(size_t(w) * h) {
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) {
        const double va = x < flatX ? 90.0 : Texture(x, y);
        const double vb = x < flatX ? 90.0 : Texture(x - mx, y - my);
        a[size_t(y) * stride + x] = static_cast<uint8_t>(std::lround(va));
        b[size_t(y) * stride + x] = static_cast<uint8_t>(std::lround(vb));
        fa[size_t(y) * w + x] = static_cast<float>(va);
        fb[size_t(y) * w + x] = static_cast<float>(vb);
      }
  }
};

// Both images' pyramids in the three record forms the trackers take.
struct Pyramids {
  int32_t levels;
  std::vector<tvxPyramidLevel> a, b, fa, fb;
  std::vector<tvxPyramidLevel_v2> a2, b2;

  Pyramids(Scene& s, int32_t n) : levels(n), a(n), b(n), fa(n), fb(n), a2(n), b2(n) {
    const uint32_t L = static_cast<uint32_t>(n);
    std::vector<uint8_t> packedA(size_t(s.width) * s.height), packedB(packedA.size());
    for (uint32_t y = 0; y < s.height; ++y)
      for (uint32_t x = 0; x < s.width; ++x) {
        packedA[size_t(y) * s.width + x] = s.a[size_t(y) * s.stride + x];
        packedB[size_t(y) * s.width + x] = s.b[size_t(y) * s.stride + x];
      }
    packedA_ = packedA;
    packedB_ = packedB;
    Ok(tvxPyramidAllocate(a.data(), s.width, s.height, 1, L, 0) == 0);
    Ok(tvxPyramidAllocate(b.data(), s.width, s.height, 1, L, 0) == 0);
    Ok(tvxPyramidAllocate(fa.data(), s.width, s.height, 4, L, 0) == 0);
    Ok(tvxPyramidAllocate(fb.data(), s.width, s.height, 4, L, 0) == 0);
    Ok(tvxPyramidAllocate_v2(a2.data(), s.width, s.height, s.stride, 1, L, 0) == 0);
    Ok(tvxPyramidAllocate_v2(b2.data(), s.width, s.height, s.stride, 1, L, 0) == 0);
    Ok(tvxPyramidCreateu8(packedA_.data(), s.width, s.height, L, a.data()) == 0);
    Ok(tvxPyramidCreateu8(packedB_.data(), s.width, s.height, L, b.data()) == 0);
    Ok(tvxPyramidCreatef32(s.fa.data(), s.width, s.height, L, fa.data()) == 0);
    Ok(tvxPyramidCreatef32(s.fb.data(), s.width, s.height, L, fb.data()) == 0);
    Ok(tvxPyramidCreateu8_v2(s.a.data(), s.width, s.height, s.stride, L, a2.data()) == 0);
    Ok(tvxPyramidCreateu8_v2(s.b.data(), s.width, s.height, s.stride, L, b2.data()) == 0);
  }
  ~Pyramids() {
    const uint32_t L = static_cast<uint32_t>(levels);
    for (auto* p : {&a, &b, &fa, &fb}) tvxPyramidDelete(p->data(), L, 1);
    for (auto* p : {&a2, &b2}) tvxPyramidDelete_v2(p->data(), L, 1);
  }
  Pyramids(const Pyramids&) = delete;
  Pyramids& operator=(const Pyramids&) = delete;
  bool built = true;

 private:
  void Ok(bool fine) { built = built && fine; }
  std::vector<uint8_t> packedA_, packedB_;
};

// Feature grid with `margin` pixels to every border, `step` apart, offset by a fraction.
inline std::vector<float> Grid(uint32_t width, uint32_t height, uint32_t margin, uint32_t step, float fraction) {
  std::vector<float> xy;
  for (uint32_t y = margin; y + margin < height; y += step)
    for (uint32_t x = margin; x + margin < width; x += step) {
      xy.push_back(float(x) + fraction);
      xy.push_back(float(y) + 0.5f * fraction);
    }
  return xy;
}

}  // namespace tvxtest
