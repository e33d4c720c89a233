// Shared by the MSER suites: test images (blocky random images and a textured scene with blobs,
// strokes and a shading ramp) and one call of an extended MSER entry collected into vectors.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "tavix/tavix.h"

namespace tvxmsertest {

using Bytes = std::vector<uint8_t>;

// Rectangular cells of random size, each of one grey value drawn from `levels` values, with an
// optional +-noise: nested and touching components of every size.
inline Bytes BlockyImage(std::mt19937& rng, uint32_t w, uint32_t h, uint32_t levels, int noise) {
  Bytes img(size_t{w} * h);
  const uint32_t cw = 2 + rng() % 6, ch = 2 + rng() % 6;
  std::vector<uint8_t> cells((w / cw + 1) * (h / ch + 1));
  for (auto& c : cells) c = static_cast<uint8_t>((rng() % levels) * (255 / (levels - 1 ? levels - 1 : 1)));
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      int v = cells[(y / ch) * (w / cw + 1) + x / cw];
      if (noise) v += static_cast<int>(rng() % (2 * noise + 1)) - noise;
      img[size_t{y} * w + x] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
    }
  return img;
}

// A real-looking scene: a shading ramp, bright and dark ellipses (some nested), dark strokes
// like text, and light sensor noise.
inline Bytes TexturedScene(uint32_t w, uint32_t h, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<float> f(size_t{w} * h);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) f[size_t{y} * w + x] = 90.0f + 60.0f * x / w + 30.0f * std::sin(y * 0.02f);
  const uint32_t blobs = w * h / 3000 + 4;
  for (uint32_t b = 0; b < blobs; ++b) {
    const float cx = rng() % w, cy = rng() % h, rx = 3 + rng() % (w / 12 + 2), ry = 3 + rng() % (h / 12 + 2);
    const float v = (rng() % 2) ? 200.0f + rng() % 50 : 20.0f + rng() % 50;
    const float inner = (rng() % 3 == 0) ? 255.0f - v : v;
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) {
        const float dx = (x - cx) / rx, dy = (y - cy) / ry, r2 = dx * dx + dy * dy;
        if (r2 <= 1.0f) f[size_t{y} * w + x] = r2 < 0.25f ? inner : v;
      }
  }
  const uint32_t strokes = w * h / 4000 + 3;
  for (uint32_t s = 0; s < strokes; ++s) {
    const uint32_t x0 = rng() % w, y0 = rng() % h, len = 5 + rng() % 30, vertical = rng() % 2;
    for (uint32_t t = 0; t < len; ++t)
      for (uint32_t k = 0; k < 2; ++k) {
        const uint32_t x = vertical ? x0 + k : x0 + t, y = vertical ? y0 + t : y0 + k;
        if (x < w && y < h) f[size_t{y} * w + x] = 30.0f;
      }
  }
  Bytes img(f.size());
  for (size_t i = 0; i < f.size(); ++i) {
    const float v = f[i] + static_cast<float>(rng() % 7) - 3.0f;
    img[i] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
  }
  return img;
}

typedef int32_t (*ExtFn)(void*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t*, uint32_t*,
                         uint32_t*, float*, int32_t*, uint32_t*, uint32_t*);

// Everything one extended call wrote (arrays sized to the capacities, pre-filled with a
// pattern, so bytes beyond what the call defines are compared as well).
struct Result {
  int32_t status = -1;
  uint32_t numContours = 0xDEADBEEF;
  std::vector<uint32_t> counts, points, nodeIds, nodeCounters;
  std::vector<float> variations;
  std::vector<int32_t> polarities;
  bool operator==(const Result& o) const {
    return status == o.status && numContours == o.numContours && counts == o.counts && points == o.points &&
           nodeIds == o.nodeIds && nodeCounters == o.nodeCounters && polarities == o.polarities &&
           std::memcmp(variations.data(), o.variations.data(), variations.size() * sizeof(float)) == 0 &&
           variations.size() == o.variations.size();
  }
};

inline Result CallExt(ExtFn fn, void* handle, const uint8_t* src, uint32_t w, uint32_t h, uint32_t stride,
                      uint32_t maxContours = 4096, uint32_t pointsArraySize = 1u << 20) {
  Result r;
  r.counts.assign(maxContours, 0xCCCCCCCC);
  r.points.assign(size_t{pointsArraySize} * 2, 0xCCCCCCCC);
  r.nodeIds.assign(maxContours, 0xCCCCCCCC);
  r.nodeCounters.assign(maxContours, 0xCCCCCCCC);
  r.variations.assign(maxContours, -1.0f);
  r.polarities.assign(maxContours, 7);
  r.status = fn(handle, src, w, h, stride, maxContours, pointsArraySize, &r.numContours, r.counts.data(),
                r.points.data(), r.variations.data(), r.polarities.data(), r.nodeIds.data(), r.nodeCounters.data());
  return r;
}

}  // namespace tvxmsertest
