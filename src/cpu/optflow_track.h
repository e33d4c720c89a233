// The pyramidal Lucas-Kanade driver shared by the reference and SIMD trackers: parameter
// normalisation, level checks, the working area, the per-level and per-feature loop and the
// step rule. A kernel type supplies the window work (sampling, gradients, mismatch sums):
//
//   static size_t Pitch(int32_t columns);  // floats per window row (>= columns)
//   static bool Sample(const Level&, float cx, float cy, int32_t halfX, int32_t halfY, float* out,
//                      size_t pitch);       // bilinear window around (cx, cy); false when outside
//   static void Gradients(const float* ext, size_t extPitch, int32_t cols, int32_t rows, float* ix,
//                         float* iy, size_t pitch, float g[3]);  // g = {Gxx, Gxy, Gyy}
//   static void Mismatch(const float* i, size_t iPitch, const float* j, const float* ix,
//                        const float* iy, size_t pitch, int32_t cols, int32_t rows, float b[2]);
//
// Window rows beyond `cols` up to the pitch stay zero in ix, iy and j, so a kernel may sum whole
// padded rows.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/frame.h"
#include "tavix/tavix.h"

namespace tvxlk {

// One pyramid level: pixels, size, stride in bytes.
struct Level {
  const void* ptr;
  uint32_t width, height, stride;
};

template <typename T>
inline const T* LevelRow(const Level& level, int64_t y) {
  return reinterpret_cast<const T*>(static_cast<const uint8_t*>(level.ptr) + static_cast<size_t>(y) * level.stride);
}

// Whether the (2 halfX + 1) x (2 halfY + 1) window centred on (cx, cy) keeps every bilinear tap
// (each sample and its right and lower neighbours) inside the level. Written on floats so that
// NaN and huge positions fail without a conversion.
inline bool FootprintInside(const Level& level, float cx, float cy, int32_t halfX, int32_t halfY) {
  const int64_t endX = int64_t{level.width} - 1 - halfX, endY = int64_t{level.height} - 1 - halfY;
  return cx >= static_cast<float>(halfX) && cy >= static_cast<float>(halfY) && cx < static_cast<float>(endX) &&
         cy < static_cast<float>(endY);
}

// Bilinear weights shared by every sample of a window centred on (cx, cy): its samples are whole
// pixels apart, so they all have the fractions of the centre, and two windows centred on the same
// point sample the same values whatever their sizes.
struct Bilinear {
  int32_t x0, y0;  // top-left tap
  float w00, w01, w10, w11;
};
inline Bilinear WeightsAt(float cx, float cy, int32_t halfX, int32_t halfY) {
  const float fx0 = std::floor(cx), fy0 = std::floor(cy);
  const float fx = cx - fx0, fy = cy - fy0;
  return {static_cast<int32_t>(fx0) - halfX, static_cast<int32_t>(fy0) - halfY, (1.0f - fx) * (1.0f - fy),
          fx * (1.0f - fy), (1.0f - fx) * fy, fx * fy};
}
inline float Blend(const Bilinear& w, float p00, float p01, float p10, float p11) {
  return (w.w00 * p00 + w.w01 * p01) + (w.w10 * p10 + w.w11 * p11);
}

// Derivative weights: central difference smoothed 3/32, 10/32, 3/32 across it.
constexpr float kSide = 0.09375f, kMid = 0.3125f;

struct Termination {
  int32_t maxIterations;
  float epsilon;
};
inline Termination Normalise(int32_t selector, int32_t maxIterations, float epsilon) {
  Termination t{maxIterations, epsilon};
  if (t.maxIterations < 2) t.maxIterations = 1;
  if (t.maxIterations > 99) t.maxIterations = 100;
  if (!(t.epsilon >= 0.0f)) t.epsilon = 0.0f;  // also NaN
  if (t.epsilon > 10.0f) t.epsilon = 10.0f;
  if (selector == 0) t.epsilon = 0.0009f;
  if (selector == 1) t.maxIterations = 30;
  return t;
}

// One Lucas-Kanade step d added to g. Returns true when the iteration ends: the squared step is
// below epsilon, or (from the second step on) the step reverses the previous one, in which case
// half of it is taken back.
inline bool ApplyStep(float& gx, float& gy, float dx, float dy, float& prevDx, float& prevDy, int32_t iteration,
                      float epsilon) {
  gx += dx;
  gy += dy;
  if (dx * dx + dy * dy < epsilon) return true;
  if (iteration > 0 && std::fabs(dx + prevDx) < 0.01f && std::fabs(dy + prevDy) < 0.01f) {
    gx -= dx * 0.5f;
    gy -= dy * 0.5f;
    return true;
  }
  prevDx = dx;
  prevDy = dy;
  return false;
}

enum Status : int32_t { kTracked = 1, kSingular = -2, kOutside = -4 };

struct Request {
  Level base1, base2;            // level 0 of both images
  const tvxPyramidLevel* pyr1;   // one of the two record forms is set
  const tvxPyramidLevel* pyr2;
  const tvxPyramidLevel_v2* pyr1v2;
  const tvxPyramidLevel_v2* pyr2v2;
  uint32_t elemBytes;
  const float* start;            // start positions (featureXY or the estimates)
  const float* featureXY;
  float* out;
  int32_t* status;
  int32_t nFeatures, windowWidth, windowHeight, nLevels;
  Termination term;
};

// The level l record of a pyramid, checked against the halved base size; false when unusable.
inline bool LevelOf(const Request& r, int32_t l, bool second, Level* level) {
  const Level& base = second ? r.base2 : r.base1;
  if (l == 0) {
    *level = base;
    return true;
  }
  const uint32_t w = base.width >> l, h = base.height >> l;
  uint32_t stride = w * r.elemBytes;
  const void* ptr = nullptr;
  uint32_t lw = 0, lh = 0;
  if (r.pyr1v2) {
    const tvxPyramidLevel_v2& rec = (second ? r.pyr2v2 : r.pyr1v2)[l];
    ptr = rec.ptr;
    lw = rec.width;
    lh = rec.height;
    if (rec.stride) stride = rec.stride;
  } else {
    const tvxPyramidLevel& rec = (second ? r.pyr2 : r.pyr1)[l];
    ptr = rec.ptr;
    lw = rec.width;
    lh = rec.height;
  }
  if (!ptr || lw != w || lh != h || uint64_t{stride} < uint64_t{w} * r.elemBytes) return false;
  *level = {ptr, w, h, stride};
  return true;
}

// Tracks every feature; returns 0, 3 for an unusable level (nothing written), 5 without a
// working area (nothing written).
template <class K>
int32_t Track(const Request& r) {
  if (r.nFeatures < 1 || r.nLevels < 0) return 0;
  if (r.nLevels > 32) return 3;
  constexpr int32_t kMaxLevels = 32;
  Level levels1[kMaxLevels], levels2[kMaxLevels];
  for (int32_t l = 0; l < r.nLevels; ++l)
    if (!LevelOf(r, l, false, &levels1[l]) || !LevelOf(r, l, true, &levels2[l])) return 3;

  const int32_t hw = r.windowWidth >> 1, hh = r.windowHeight >> 1;
  const int32_t cols = 2 * hw + 1, rows = 2 * hh + 1;
  const size_t extPitch = K::Pitch(cols + 2), pitch = K::Pitch(cols);
  const uint64_t extFloats = uint64_t(extPitch) * (rows + 2), winFloats = uint64_t(pitch) * rows;
  // Tracking in place (featureXY_out over featureXY) keeps a copy of the first image's positions
  // after the per-level bytes, as every level reads them again.
  const size_t n = static_cast<size_t>(r.nFeatures);
  const uintptr_t in0 = reinterpret_cast<uintptr_t>(r.featureXY), out0 = reinterpret_cast<uintptr_t>(r.out);
  const uint64_t span = 2 * uint64_t(n) * sizeof(float);
  const bool inPlace = in0 < out0 + span && out0 < in0 + span;
  const uint64_t bytes =
      (extFloats + 3 * winFloats) * sizeof(float) + 12u * uint64_t(r.nLevels) + (inPlace ? span : 0);
  if (bytes > 0x7FFFFFFFu) return 5;
  float* area = static_cast<float*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 16));
  if (!area) return 5;
  std::memset(area, 0, static_cast<size_t>(bytes));  // the row padding stays zero
  float* ext = area;
  float* ix = ext + extFloats;
  float* iy = ix + winFloats;
  float* jw = iy + winFloats;
  float* scale = jw + winFloats;  // one float per level; the rest of the 12 bytes is spare
  for (int32_t l = 0; l < r.nLevels; ++l) scale[l] = std::ldexp(1.0f, -l);
  const float* featureXY = r.featureXY;
  if (inPlace) {
    float* copy = scale + 3 * r.nLevels;
    std::memcpy(copy, r.featureXY, static_cast<size_t>(span));
    featureXY = copy;
  }
  const float* start = r.start == r.featureXY ? featureXY : r.start;

  if (r.out != start)
    for (size_t i = 0; i < 2 * n; ++i) r.out[i] = start[i];
  for (size_t i = 0; i < n; ++i) r.status[i] = kTracked;

  const float* interior = ext + extPitch + 1;  // the first image's window without its frame
  for (int32_t l = r.nLevels - 1; l >= 0; --l) {
    const Level& a = levels1[l];
    const Level& b = levels2[l];
    for (size_t f = 0; f < n; ++f) {
      if (r.status[f] != kTracked) continue;
      const float px = featureXY[2 * f] * scale[l], py = featureXY[2 * f + 1] * scale[l];
      float gx, gy;
      if (l == r.nLevels - 1) {
        gx = start[2 * f] * scale[l];
        gy = start[2 * f + 1] * scale[l];
      } else {
        gx = 2.0f * r.out[2 * f];
        gy = 2.0f * r.out[2 * f + 1];
      }
      if (!K::Sample(a, px, py, hw + 1, hh + 1, ext, extPitch)) {
        r.status[f] = kOutside;
        continue;
      }
      float g[3];
      K::Gradients(ext, extPitch, cols, rows, ix, iy, pitch, g);
      const float det = g[0] * g[2] - g[1] * g[1];
      float prevDx = 0.0f, prevDy = 0.0f;
      int32_t outcome = kTracked;
      for (int32_t it = 0; it < r.term.maxIterations; ++it) {
        // The second window must keep the same one-pixel frame inside the level.
        if (!FootprintInside(b, gx, gy, hw + 1, hh + 1) || !K::Sample(b, gx, gy, hw, hh, jw, pitch)) {
          outcome = kOutside;
          break;
        }
        if (det < 1e-7f) {
          outcome = kSingular;
          break;
        }
        float m[2];
        K::Mismatch(interior, extPitch, jw, ix, iy, pitch, cols, rows, m);
        const float dx = (g[2] * m[0] - g[1] * m[1]) / det;
        const float dy = (g[0] * m[1] - g[1] * m[0]) / det;
        if (ApplyStep(gx, gy, dx, dy, prevDx, prevDy, it, r.term.epsilon)) break;
      }
      if (outcome != kTracked) {
        r.status[f] = outcome;
        continue;
      }
      r.out[2 * f] = gx;
      r.out[2 * f + 1] = gy;
    }
  }
  tvxReleaseScratchBuffer_(area);
  return 0;
}

// Requests of the entry forms. Level 0 always comes from the images themselves.
inline Request RequestOf(const void* src1, const void* src2, uint32_t width, uint32_t height, uint32_t stride,
                         uint32_t elemBytes, const float* start, const float* featureXY, float* out, int32_t* status,
                         int32_t nFeatures, int32_t windowWidth, int32_t windowHeight, int32_t nLevels,
                         Termination term) {
  Request r{};
  r.base1 = {src1, width, height, stride};
  r.base2 = {src2, width, height, stride};
  r.elemBytes = elemBytes;
  r.start = start;
  r.featureXY = featureXY;
  r.out = out;
  r.status = status;
  r.nFeatures = nFeatures;
  r.windowWidth = windowWidth;
  r.windowHeight = windowHeight;
  r.nLevels = nLevels;
  r.term = term;
  return r;
}
inline Request WithLevels(Request r, const tvxPyramidLevel* a, const tvxPyramidLevel* b) {
  r.pyr1 = a;
  r.pyr2 = b;
  return r;
}
inline Request WithLevels(Request r, const tvxPyramidLevel_v2* a, const tvxPyramidLevel_v2* b) {
  r.pyr1v2 = a;
  r.pyr2v2 = b;
  return r;
}

// ---- block matching ------------------------------------------------------------------------

struct BlockSearch {
  const uint8_t* src1;
  const uint8_t* src2;
  uint32_t width, height, stride, left, top, blocksX, blocksY;
  int32_t radius;
};

// Visits (0, 0) and then every displacement within the radius whose block lies inside the
// second image, in row-major order; cost(dx, dy) gives the zero-mean SAD, the least one wins and
// the first met keeps a tie.
template <class Cost>
inline void BestDisplacement(const BlockSearch& s, uint32_t x0, uint32_t y0, Cost cost, int32_t* flow) {
  uint32_t best = cost(0, 0);
  int32_t bestX = 0, bestY = 0;
  for (int32_t dy = -s.radius; dy <= s.radius; ++dy) {
    const int64_t y = int64_t{y0} + dy;
    if (y < 0 || y + 16 > s.height) continue;
    for (int32_t dx = -s.radius; dx <= s.radius; ++dx) {
      const int64_t x = int64_t{x0} + dx;
      if (x < 0 || x + 16 > s.width || (dx == 0 && dy == 0)) continue;
      const uint32_t c = cost(dx, dy);
      if (c < best) {
        best = c;
        bestX = dx;
        bestY = dy;
      }
    }
  }
  flow[0] = bestX;
  flow[1] = bestY;
}

}  // namespace tvxlk
