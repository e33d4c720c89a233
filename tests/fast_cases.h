// The ten FAST entries behind one call shape for the FAST suites: each runs through the public
// entry, the reference variant or the SIMD variant, with guard values past every output it may
// write, and an independent segment-test model with its score and suppression.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "frame/frame.h"

namespace tvxtest {

enum FastEntry { k9, k9Mask, k9Score, k9MaskScore, k9ScoreNms, k9MaskScoreNms, k10, k10Mask, k10ScoreNms, k10MaskScoreNms };
constexpr FastEntry kAllFast[] = {k9, k9Mask, k9Score, k9MaskScore, k9ScoreNms, k9MaskScoreNms, k10, k10Mask, k10ScoreNms, k10MaskScoreNms};
enum Via { kEntry = 0, kReference = 1, kSimd = 2 };
constexpr uint32_t kUnset = 0xDEADBEEFu;

inline int FastN(FastEntry e) { return e >= k10 ? 10 : 9; }
inline bool HasMask(FastEntry e) { return e == k9Mask || e == k9MaskScore || e == k9MaskScoreNms || e == k10Mask || e == k10MaskScoreNms; }
inline bool HasScore(FastEntry e) { return e != k9 && e != k9Mask && e != k10 && e != k10Mask; }
inline bool HasNms(FastEntry e) { return e == k9ScoreNms || e == k9MaskScoreNms || e == k10ScoreNms || e == k10MaskScoreNms; }

struct FastArgs {
  const uint8_t* src;
  uint32_t width, height, stride;
  int32_t barrier = 20;
  uint32_t border = 3, capacity = 4096;
  const uint8_t* mask = nullptr;
  uint32_t maskWidth = 0, maskHeight = 0, nms = 0;
};

struct FastResult {
  int32_t ret;
  uint32_t count;
  std::vector<uint32_t> xy, scores;  // the first count entries, outputs past them checked intact
  bool operator==(const FastResult& o) const { return ret == o.ret && count == o.count && xy == o.xy && scores == o.scores; }
};

inline FastResult RunFast(FastEntry e, Via via, const FastArgs& a, bool nullTemp = false) {
  std::vector<uint32_t> xy(2 * size_t{a.capacity} + 8, kUnset), sc(a.capacity + 4, kUnset);
  std::vector<uint32_t> temp(3 * size_t{a.capacity} + a.height, kUnset);
  uint32_t count = kUnset;
  uint32_t* t = nullTemp ? nullptr : temp.data();
  const uint8_t* m = a.mask;
  const uint32_t mw = a.maskWidth, mh = a.maskHeight;
#define TVX_FAST_ARGS a.src, a.width, a.height, a.stride, a.barrier, a.border, xy.data()
#define TVX_FAST_PICK(name, ...) \
  (via == kEntry ? name(__VA_ARGS__) : via == kReference ? name##C(__VA_ARGS__) : name##V(__VA_ARGS__))
  int32_t r = 0;
  switch (e) {
    case k9: r = TVX_FAST_PICK(tvxCornerFast9u8, TVX_FAST_ARGS, a.capacity, &count); break;
    case k9Mask: r = TVX_FAST_PICK(tvxCornerFast9InMasku8, TVX_FAST_ARGS, a.capacity, &count, m, mw, mh); break;
    case k9Score: r = TVX_FAST_PICK(tvxCornerFast9Scoreu8, TVX_FAST_ARGS, sc.data(), a.capacity, &count); break;
    case k9MaskScore: r = TVX_FAST_PICK(tvxCornerFast9InMaskScoreu8, TVX_FAST_ARGS, sc.data(), a.capacity, &count, m, mw, mh); break;
    case k9ScoreNms: r = TVX_FAST_PICK(tvxCornerFast9Scoreu8_v2, TVX_FAST_ARGS, sc.data(), a.capacity, &count, a.nms, t); break;
    case k9MaskScoreNms:
      r = TVX_FAST_PICK(tvxCornerFast9InMaskScoreu8_v2, TVX_FAST_ARGS, sc.data(), a.capacity, &count, m, mw, mh, a.nms, t);
      break;
    case k10: r = TVX_FAST_PICK(tvxCornerFast10u8, TVX_FAST_ARGS, a.capacity, &count); break;
    case k10Mask: r = TVX_FAST_PICK(tvxCornerFast10InMasku8, TVX_FAST_ARGS, a.capacity, &count, m, mw, mh); break;
    case k10ScoreNms: r = TVX_FAST_PICK(tvxCornerFast10Scoreu8, TVX_FAST_ARGS, sc.data(), a.capacity, &count, a.nms, t); break;
    case k10MaskScoreNms:
      r = TVX_FAST_PICK(tvxCornerFast10InMaskScoreu8, TVX_FAST_ARGS, sc.data(), a.capacity, &count, m, mw, mh, a.nms, t);
      break;
  }
#undef TVX_FAST_PICK
#undef TVX_FAST_ARGS
  FastResult out{r, count, {}, {}};
  const uint32_t n = count == kUnset ? 0 : count;
  out.xy.assign(xy.begin(), xy.begin() + 2 * n);
  if (HasScore(e)) out.scores.assign(sc.begin(), sc.begin() + n);
  for (size_t i = 2 * size_t{n}; i < xy.size(); ++i)
    if (xy[i] != kUnset) ADD_FAILURE() << "xy written past the count at " << i;
  for (size_t i = HasScore(e) ? n : 0; i < sc.size(); ++i)
    if (sc[i] != kUnset) ADD_FAILURE() << "scores written past the count at " << i;
  return out;
}

// ---- model -----------------------------------------------------------------------------------

// Longest circular run of brighter or of darker pixels on the circle around (x, y).
inline bool ModelCorner(const uint8_t* src, uint32_t stride, uint32_t x, uint32_t y, int64_t b, int n) {
  static const int circle[16][2] = {{0, 3}, {1, 3}, {2, 2}, {3, 1}, {3, 0}, {3, -1}, {2, -2}, {1, -3},
                                    {0, -3}, {-1, -3}, {-2, -2}, {-3, -1}, {-3, 0}, {-3, 1}, {-2, 2}, {-1, 3}};
  const int64_t c = src[size_t{y} * stride + x];
  for (int sign : {1, -1}) {
    int run = 0, best = 0;
    for (int k = 0; k < 32; ++k) {
      const int64_t v = src[size_t(y + circle[k % 16][1]) * stride + x + circle[k % 16][0]];
      run = (sign > 0 ? v > c + b : v < c - b) ? run + 1 : 0;
      best = std::max(best, std::min(run, 16));
    }
    if (best >= n) return true;
  }
  return false;
}

struct ModelCornerList {
  std::vector<uint32_t> xy, scores;
};

// Every corner of the scanned rectangle (mask bit test given as a predicate) with the largest
// barrier in [b, 254] at which it still passes.
template <class Masked>
ModelCornerList ModelDetect(const FastArgs& a, int n, Masked masked) {
  ModelCornerList out;
  const uint32_t border = a.border < 4 ? 3 : a.border;
  const uint32_t stride = a.stride ? a.stride : a.width;
  for (uint32_t y = border; y + border < a.height; ++y)
    for (uint32_t x = border; x + border < a.width; ++x) {
      if (masked(x, y) || !ModelCorner(a.src, stride, x, y, a.barrier, n)) continue;
      int64_t s = 254;
      while (!ModelCorner(a.src, stride, x, y, s, n)) --s;
      out.xy.insert(out.xy.end(), {x, y});
      out.scores.push_back(static_cast<uint32_t>(s));
    }
  return out;
}

// Corners left after dropping those with an 8-neighbour scoring at least as much.
inline ModelCornerList ModelSuppress(const ModelCornerList& in) {
  ModelCornerList out;
  const size_t n = in.scores.size();
  for (size_t i = 0; i < n; ++i) {
    bool beaten = false;
    for (size_t j = 0; j < n && !beaten; ++j) {
      const int64_t dx = int64_t{in.xy[2 * j]} - in.xy[2 * i], dy = int64_t{in.xy[2 * j + 1]} - in.xy[2 * i + 1];
      beaten = j != i && dx >= -1 && dx <= 1 && dy >= -1 && dy <= 1 && in.scores[j] >= in.scores[i];
    }
    if (beaten) continue;
    out.xy.insert(out.xy.end(), {in.xy[2 * i], in.xy[2 * i + 1]});
    out.scores.push_back(in.scores[i]);
  }
  return out;
}

// Random rectangles of flat grey with light noise: real corners at rectangle corners.
inline void FillBlocky(uint8_t* img, uint32_t width, uint32_t height, uint32_t stride, std::mt19937& rng) {
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) img[size_t{y} * stride + x] = static_cast<uint8_t>(100 + rng() % 5);
  for (int r = 0; r < int(width * height / 60) + 2; ++r) {
    const uint32_t x0 = rng() % width, y0 = rng() % height, w = 2 + rng() % 12, h = 2 + rng() % 12;
    const uint8_t v = static_cast<uint8_t>(rng());
    for (uint32_t y = y0; y < std::min(height, y0 + h); ++y)
      for (uint32_t x = x0; x < std::min(width, x0 + w); ++x) img[size_t{y} * stride + x] = static_cast<uint8_t>(v + rng() % 3);
  }
}

}  // namespace tvxtest
