// FAST corner detection shared by the reference and SIMD variants: the radius-3 circle, the
// segment test, the bisection score, the mask mapping, non-maximum suppression and the driver
// that runs a row scanner over the image. The SIMD variant supplies its own row scanner and
// keeps everything else, so both tiers list the same corners in the same order with the same
// scores.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/frame.h"

namespace tvxfast {

constexpr const char* kFast9Path = "src/cpu/tavixFastC";
constexpr const char* kFast10Path = "src/cpu/tavixFast10C";

// The circle, index i at (kDx[i], kDy[i]) from the centre.
constexpr int kDx[16] = {0, 1, 2, 3, 3, 3, 2, 1, 0, -1, -2, -3, -3, -3, -2, -1};
constexpr int kDy[16] = {3, 3, 2, 1, 0, -1, -2, -3, -3, -3, -2, -1, 0, 1, 2, 3};

// Byte offsets of the circle pixels for rows `stride` bytes apart.
inline void make_offsets(int32_t offsets[16], uint32_t stride) {
  for (int i = 0; i < 16; ++i) offsets[i] = kDx[i] + kDy[i] * static_cast<int32_t>(stride);
}

// A barrier beyond +-256 decides like +-256 (nothing is brighter than c + 256, everything is
// brighter than c - 256), so clamping keeps c + b and c - b inside int without changing a test.
inline int ClampBarrier(int32_t barrier) { return barrier > 256 ? 256 : (barrier < -256 ? -256 : barrier); }

// True when `bits` (16 circle flags) holds a circular run of at least N set flags: bit i of
// `run` survives when flags i .. i + N - 1 of the doubled word are all set.
template <int N>
inline bool HasRun(uint32_t bits) {
  const uint32_t twice = bits | (bits << 16);
  uint32_t run = twice;
  for (int k = 1; k < N; ++k) run &= twice >> k;
  return run != 0;
}

// Segment test for N >= 9 at the pixel p. Every run of 9 or more circle pixels holds index 0 or
// 8, and two neighbouring points of 0, 4, 8, 12, so most pixels are decided after two to four
// reads; the rest build both 16-flag words and look for a run.
template <int N>
inline bool SegmentTest(const uint8_t* p, const int32_t* off, int32_t barrier) {
  static_assert(N >= 9 && N <= 16, "the quick rejection needs runs of 9 or more");
  const int b = ClampBarrier(barrier);
  const int c = p[0];
  const int hi = c + b, lo = c - b;
  const int v0 = p[off[0]], v8 = p[off[8]];
  const bool b0 = v0 > hi, d0 = v0 < lo, b8 = v8 > hi, d8 = v8 < lo;
  if (!(b0 || d0 || b8 || d8)) return false;
  const int v4 = p[off[4]], v12 = p[off[12]];
  const bool b4 = v4 > hi, d4 = v4 < lo, b12 = v12 > hi, d12 = v12 < lo;
  const bool maybeBright = (b0 && b4) || (b4 && b8) || (b8 && b12) || (b12 && b0);
  const bool maybeDark = (d0 && d4) || (d4 && d8) || (d8 && d12) || (d12 && d0);
  if (!maybeBright && !maybeDark) return false;
  uint32_t bright = 0, dark = 0;
  for (int i = 0; i < 16; ++i) {
    const int v = p[off[i]];
    bright |= static_cast<uint32_t>(v > hi) << i;
    dark |= static_cast<uint32_t>(v < lo) << i;
  }
  return (maybeBright && HasRun<N>(bright)) || (maybeDark && HasRun<N>(dark));
}

// The largest barrier at which the corner at p still passes: bisection from lo = barrier,
// hi = 255 (255 itself is never tested, so the score is at most 254).
template <int N>
inline uint32_t Score(const uint8_t* p, const int32_t* off, int32_t barrier) {
  int64_t lo = barrier, hi = 255;
  do {
    const int64_t mid = (lo + hi) / 2;
    if (SegmentTest<N>(p, off, static_cast<int32_t>(mid))) lo = mid;
    else hi = mid;
  } while (hi - lo > 1);
  return static_cast<uint32_t>(static_cast<int32_t>(lo));
}

// The same score without the search. A corner passes at t when some arc of N circle pixels has
// every p - c > t (or every c - p > t), so the largest passing t is the best arc's smallest
// difference minus 1. It is at most 254, and at least the detection barrier, where the pixel
// passed; passing is monotone in t, so the bisection ends on exactly this value.
template <int N>
inline uint32_t ScoreDirect(const uint8_t* p, const int32_t* off) {
  int d[32];
  for (int i = 0; i < 16; ++i) d[i] = d[i + 16] = p[off[i]] - p[0];
  int best = -256;
  for (int sign = 1; sign >= -1; sign -= 2) {
    int m2[31], m4[29];
    for (int i = 0; i < 31; ++i) m2[i] = sign * d[i] < sign * d[i + 1] ? sign * d[i] : sign * d[i + 1];
    for (int i = 0; i < 29; ++i) m4[i] = m2[i] < m2[i + 2] ? m2[i] : m2[i + 2];
    for (int s = 0; s < 16; ++s) {
      int m = m4[s] < m4[s + 4] ? m4[s] : m4[s + 4];  // pixels s .. s + 7
      for (int k = 8; k < N; ++k) m = m < sign * d[s + k] ? m : sign * d[s + k];
      best = m > best ? m : best;
    }
  }
  return static_cast<uint32_t>(best - 1);
}

// Which mask bit governs an image pixel: the mask has the image's size or exactly 2, 4 or 8
// times it (larger: mask column x << k) or a 2, 4 or 8 times smaller one (x >> k).
struct MaskMap {
  const uint8_t* bits = nullptr;
  uint64_t rowBytes = 0;
  int shift = 0;
  bool larger = false;

  bool Init(const uint8_t* mask, uint32_t width, uint32_t height, uint32_t maskWidth, uint32_t maskHeight) {
    bits = mask;
    rowBytes = (uint64_t{maskWidth} + 7) / 8;
    for (int k = 0; k <= 3; ++k) {
      if (uint64_t{maskWidth} == (uint64_t{width} << k) && uint64_t{maskHeight} == (uint64_t{height} << k)) {
        shift = k;
        larger = true;
        return true;
      }
      if ((uint64_t{maskWidth} << k) == width && (uint64_t{maskHeight} << k) == height) {
        shift = k;
        larger = false;
        return true;
      }
    }
    return false;
  }
  const uint8_t* Row(uint32_t y) const {
    const uint64_t my = larger ? uint64_t{y} << shift : uint64_t{y} >> shift;
    return bits + static_cast<size_t>(my * rowBytes);
  }
  bool Masked(const uint8_t* row, uint32_t x) const {
    const uint64_t mx = larger ? uint64_t{x} << shift : uint64_t{x} >> shift;
    return (row[mx >> 3] >> (7 - (mx & 7))) & 1;
  }
};

// Where a row scanner writes: the corner list, the scores when the scanner scores as it goes
// (null otherwise), the capacity and the count so far.
struct CornerList {
  uint32_t* xy;
  uint32_t* scores;
  uint32_t capacity;
  uint32_t count;
  // Appends (x, y) with its score; false once the list is full.
  bool Push(uint32_t x, uint32_t y, uint32_t score = 0) {
    xy[2 * size_t{count}] = x;
    xy[2 * size_t{count} + 1] = y;
    if (scores) scores[count] = score;
    return ++count < capacity;
  }
};

// Everything a row scanner needs for one image row.
struct RowJob {
  const uint8_t* row;      // the row's first pixel
  const int32_t* offsets;  // circle offsets
  int32_t barrier;
  uint32_t y, x0, x1;       // columns x0 .. x1 - 1
  const MaskMap* mask;     // null: no mask
  const uint8_t* maskRow;
};

// The plain scanner: every column in turn, the mask bit first. False once the list is full.
template <int N>
inline bool ScanRowScalar(const RowJob& job, CornerList& list) {
  for (uint32_t x = job.x0; x < job.x1; ++x) {
    if (job.mask && job.mask->Masked(job.maskRow, x)) continue;
    if (!SegmentTest<N>(job.row + x, job.offsets, job.barrier)) continue;
    const uint32_t score = list.scores ? ScoreDirect<N>(job.row + x, job.offsets) : 0;
    if (!list.Push(x, job.y, score)) return false;
  }
  return true;
}

// Drops every corner that has an 8-neighbour in the list with a score greater than or equal to
// its own and copies the survivors in order to xy and scores. The list sits in tempBuf: n pairs,
// then `capacity` values later the n scores, then a row index (first corner of each row, all
// ones for none) over rows 0 .. y of the last corner.
inline uint32_t nms_processing(uint32_t* tempBuf, uint32_t n, uint32_t capacity, uint32_t* xy, uint32_t* scores) {
  if (n == 0) return 0;
  const uint32_t* list = tempBuf;
  const uint32_t* score = tempBuf + 2 * size_t{capacity};
  uint32_t* rowIndex = tempBuf + 3 * size_t{capacity};
  const uint32_t lastY = list[2 * size_t{n - 1} + 1];
  for (uint32_t r = 0; r <= lastY; ++r) rowIndex[r] = 0xFFFFFFFFu;
  for (uint32_t i = n; i-- > 0;) rowIndex[list[2 * size_t{i} + 1]] = i;
  // True when a corner of row r at column x - 1 .. x + 1 scores at least s. Corners of a row
  // come in increasing x, so each neighbouring row keeps a cursor that only moves forward.
  const auto rowBeats = [&](uint32_t r, uint32_t& j, uint32_t x, uint32_t s) {
    while (j < n && list[2 * size_t{j} + 1] == r && list[2 * size_t{j}] + 1 < x) ++j;
    for (uint32_t k = j; k < n && list[2 * size_t{k} + 1] == r && list[2 * size_t{k}] <= x + 1; ++k)
      if (score[k] >= s) return true;
    return false;
  };
  uint32_t kept = 0, rowOf = 0xFFFFFFFFu, above = 0, below = 0;
  for (uint32_t i = 0; i < n; ++i) {
    const uint32_t x = list[2 * size_t{i}], y = list[2 * size_t{i} + 1], s = score[i];
    if (y != rowOf) {
      rowOf = y;
      above = y > 0 ? rowIndex[y - 1] : n;
      below = y < lastY ? rowIndex[y + 1] : n;
    }
    bool beaten = i > 0 && list[2 * size_t{i} - 1] == y && list[2 * size_t{i} - 2] + 1 == x && score[i - 1] >= s;
    beaten = beaten || (i + 1 < n && list[2 * size_t{i} + 3] == y && list[2 * size_t{i} + 2] == x + 1 && score[i + 1] >= s);
    beaten = beaten || (y > 0 && rowBeats(y - 1, above, x, s));
    beaten = beaten || (y < lastY && rowBeats(y + 1, below, x, s));
    if (beaten) continue;
    xy[2 * size_t{kept}] = x;
    xy[2 * size_t{kept} + 1] = y;
    scores[kept] = s;
    ++kept;
  }
  return kept;
}

// The whole operation over a row scanner `scan(const RowJob&, CornerList&)`. With `direct` the
// scanner scores each corner as it lists it (the closed form, same values); otherwise the
// corners are scored by bisection afterwards.
template <int N, bool direct = false, class Scan>
inline int32_t Detect(const char* path, const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride,
                      int32_t barrier, uint32_t border, uint32_t* xy, uint32_t* scores, uint32_t capacity,
                      uint32_t* count, const uint8_t* mask, uint32_t maskWidth, uint32_t maskHeight,
                      uint32_t nmsEnabled, uint32_t* tempBuf, Scan scan) {
  *count = 0;
  if (nmsEnabled) TVX_REQUIRE(path, tempBuf);
  if (stride == 0) stride = width;
  if (border < 4) border = 3;
  MaskMap map;
  if (mask && !map.Init(mask, width, height, maskWidth, maskHeight)) return 0;
  // A zero capacity holds no corner: nothing is written.
  if (capacity == 0 || uint64_t{border} * 2 >= width || uint64_t{border} * 2 >= height) return 0;
  int32_t offsets[16];
  make_offsets(offsets, stride);
  // Suppression compares scores, so it runs in the scoring entries only.
  const bool nms = nmsEnabled && scores;
  uint32_t* scoreOut = scores ? (nms ? tempBuf + 2 * size_t{capacity} : scores) : nullptr;
  CornerList list{nms ? tempBuf : xy, direct ? scoreOut : nullptr, capacity, 0};
  for (uint32_t y = border; y < height - border; ++y) {
    const RowJob job{src + size_t{y} * stride, offsets, barrier, y, border, width - border,
                     mask ? &map : nullptr, mask ? map.Row(y) : nullptr};
    if (!scan(job, list)) break;
  }
  const uint32_t n = list.count;
  if (scores && !direct) {
    for (uint32_t i = 0; i < n; ++i) {
      const uint32_t x = list.xy[2 * size_t{i}], y = list.xy[2 * size_t{i} + 1];
      scoreOut[i] = Score<N>(src + size_t{y} * stride + x, offsets, barrier);
    }
  }
  *count = nms ? nms_processing(tempBuf, n, capacity, xy, scores) : n;
  return 0;
}

}  // namespace tvxfast
