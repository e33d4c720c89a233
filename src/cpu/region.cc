// Reference variants of the region family: flood fills with a fixed or a floating range,
// region-growing segmentation (every pixel labelled, or regions grown from caller seeds) and the
// motion history update.
#include <cstddef>
#include <cstring>

#include "frame/frame.h"

namespace {

// Scratch for the fills: a per-pixel byte, non-zero once the pixel is in the region, followed by
// a stack of runs (first pixel's index, last column), at most one per pixel.
struct FillScratch {
  void* block = nullptr;
  uint8_t* filled = nullptr;
  uint32_t* stack = nullptr;
  bool Take(uint64_t pixels) {
    const uint64_t mapBytes = (pixels + 15) & ~uint64_t{15};
    const uint64_t bytes = mapBytes + 8 * pixels;
    if (bytes > UINT32_MAX) return false;
    block = tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 16);
    if (block == nullptr) return false;
    filled = static_cast<uint8_t*>(block);
    stack = reinterpret_cast<uint32_t*>(filled + mapBytes);
    std::memset(filled, 0, pixels);
    return true;
  }
  ~FillScratch() {
    if (block) tvxReleaseScratchBuffer_(block);
  }
};

// Run fill with a visited map: every run joins the region whole (grown along its row as far as
// the range admits each step), is pushed once, and when popped the rows above and below are
// scanned along it (one pixel wider each side for 8-connectivity); each admitted pixel found
// there that is not yet in the region starts a new run, grown at once. The image is written once
// the region is known, so every comparison sees the values from before the call.
template <bool kFixed>
int32_t FloodFill(uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t seedX, uint32_t seedY,
                  uint8_t newVal, uint8_t loDiff, uint8_t upDiff, bool eight, uint32_t* area, uint32_t* rect) {
  const uint64_t pixels = uint64_t{width} * height;
  if (pixels > UINT32_MAX / 9) return 3;
  FillScratch s;
  if (!s.Take(pixels)) return 5;
  const int32_t seedVal = src[size_t{seedY} * stride + seedX];
  const int32_t lo = loDiff, up = upDiff;
  // q joins from p when p - lo <= q <= p + up (fixed range: p is the seed's value).
  const auto admits = [&](int32_t q, int32_t p) {
    const int32_t from = kFixed ? seedVal : p;
    return q >= from - lo && q <= from + up;
  };
  uint32_t top = 0, count = 0, minX = seedX, maxX = seedX, minY = seedY, maxY = seedY;
  // Grows the run through (x, y), marks it and pushes it.
  const auto addRun = [&](uint32_t x, uint32_t y) {
    const uint8_t* row = src + size_t{y} * stride;
    uint8_t* mark = s.filled + size_t{y} * width;
    uint32_t left = x, right = x;
    while (left > 0 && !mark[left - 1] && admits(row[left - 1], row[left])) --left;
    while (right + 1 < width && !mark[right + 1] && admits(row[right + 1], row[right])) ++right;
    std::memset(mark + left, 1, right - left + 1);
    count += right - left + 1;
    if (left < minX) minX = left;
    if (right > maxX) maxX = right;
    if (y < minY) minY = y;
    if (y > maxY) maxY = y;
    s.stack[top++] = y * width + left;
    s.stack[top++] = right;
    return right;
  };
  addRun(seedX, seedY);
  while (top > 0) {
    const uint32_t right = s.stack[--top];
    const uint32_t index = s.stack[--top];
    const uint32_t y = index / width, left = index % width;
    const uint8_t* row = src + size_t{y} * stride;
    const uint32_t first = eight && left > 0 ? left - 1 : left;
    const uint32_t last = eight && right + 1 < width ? right + 1 : right;
    for (int dy = -1; dy <= 1; dy += 2) {
      if ((dy < 0 && y == 0) || (dy > 0 && y + 1 == height)) continue;
      const uint32_t ny = y + dy;
      const uint8_t* nrow = src + size_t{ny} * stride;
      const uint8_t* nmark = s.filled + size_t{ny} * width;
      for (uint32_t i = first; i <= last; ++i) {
        if (nmark[i]) continue;
        bool ok;
        if (kFixed) {
          ok = admits(nrow[i], seedVal);
        } else {
          // Neighbours of (i, ny) in the run: (i, y), and for 8-connectivity (i - 1, y), (i + 1, y).
          const uint32_t j0 = eight && i > left ? i - 1 : (i < left ? left : i);
          const uint32_t j1 = eight && i < right ? i + 1 : (i > right ? right : i);
          ok = false;
          for (uint32_t j = j0; j <= j1 && !ok; ++j) ok = admits(nrow[i], row[j]);
        }
        if (ok) i = addRun(i, ny);
      }
    }
  }
  for (uint32_t y = minY; y <= maxY; ++y) {
    uint8_t* row = src + size_t{y} * stride;
    const uint8_t* mark = s.filled + size_t{y} * width;
    for (uint32_t x = minX; x <= maxX; ++x)
      if (mark[x]) row[x] = newVal;
  }
  *area = count;
  rect[0] = minX;
  rect[1] = minY;
  rect[2] = maxX - minX + 1;
  rect[3] = maxY - minY + 1;
  return 0;
}

// Fixed range whose new value lies outside it: a filled pixel no longer passes the range test,
// so the image itself marks the region and the fill writes each run as it is found, without a
// visited map. The stack holds run starts; a pixel can be queued once from the run above and
// once from the run below it, so two entries per pixel bound it.
int32_t FixedFillInPlace(uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t seedX,
                         uint32_t seedY, uint8_t newVal, int32_t low, int32_t high, uint32_t* area, uint32_t* rect) {
  const uint64_t entries = 2 * uint64_t{width} * height + 1;
  if (entries * 4 > UINT32_MAX) return 3;
  uint32_t* stack = static_cast<uint32_t*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(entries * 4), 16));
  if (stack == nullptr) return 5;
  const auto inside = [&](uint8_t v) { return int32_t{v} >= low && int32_t{v} <= high; };
  uint32_t top = 0;
  stack[top++] = seedY * width + seedX;
  uint32_t count = 0, minX = seedX, maxX = seedX, minY = seedY, maxY = seedY;
  while (top > 0) {
    const uint32_t index = stack[--top];
    const uint32_t y = index / width, x = index % width;
    uint8_t* row = src + size_t{y} * stride;
    if (!inside(row[x])) continue;  // filled since it was queued
    uint32_t left = x, right = x;
    while (left > 0 && inside(row[left - 1])) --left;
    while (right + 1 < width && inside(row[right + 1])) ++right;
    std::memset(row + left, newVal, right - left + 1);
    count += right - left + 1;
    if (left < minX) minX = left;
    if (right > maxX) maxX = right;
    if (y < minY) minY = y;
    if (y > maxY) maxY = y;
    for (int dy = -1; dy <= 1; dy += 2) {
      if ((dy < 0 && y == 0) || (dy > 0 && y + 1 == height)) continue;
      const uint32_t ny = y + dy;
      const uint8_t* nrow = src + size_t{ny} * stride;
      bool inRun = false;
      for (uint32_t i = left; i <= right; ++i) {
        const bool ok = inside(nrow[i]);
        if (ok && !inRun) stack[top++] = ny * width + i;
        inRun = ok;
      }
    }
  }
  tvxReleaseScratchBuffer_(stack);
  *area = count;
  rect[0] = minX;
  rect[1] = minY;
  rect[2] = maxX - minX + 1;
  rect[3] = maxY - minY + 1;
  return 0;
}

inline bool Near(uint8_t a, uint8_t b, uint32_t threshold) {
  return uint32_t(a > b ? a - b : b - a) <= threshold;
}

// Breadth-first growth over 4-neighbours within threshold: pops queue entries from head to tail,
// labelling unlabelled neighbours (left, right, up, down) with the label of the pixel they are
// reached from. Label is uint32_t or int16_t; 0 means unlabelled.
template <typename Label>
void Grow(const uint8_t* src, uint32_t width, uint32_t height, uint32_t stride, uint32_t threshold, Label* labels,
          uint32_t labelStride, uint32_t* queue, uint32_t head, uint32_t tail) {
  const auto labelRow = [&](uint32_t y) {
    return reinterpret_cast<Label*>(reinterpret_cast<uint8_t*>(labels) + size_t{y} * labelStride);
  };
  while (head < tail) {
    const uint32_t index = queue[head++];
    const uint32_t y = index / width, x = index % width;
    const uint8_t v = src[size_t{y} * stride + x];
    const Label label = labelRow(y)[x];
    const auto visit = [&](uint32_t nx, uint32_t ny) {
      Label& l = labelRow(ny)[nx];
      if (l == 0 && Near(src[size_t{ny} * stride + nx], v, threshold)) {
        l = label;
        queue[tail++] = ny * width + nx;
      }
    };
    if (x > 0) visit(x - 1, y);
    if (x + 1 < width) visit(x + 1, y);
    if (y > 0) visit(x, y - 1);
    if (y + 1 < height) visit(x, y + 1);
  }
}

uint32_t* TakeQueue(uint32_t width, uint32_t height) {
  const uint64_t bytes = uint64_t{width} * height * 4;
  if (bytes > UINT32_MAX) return nullptr;
  return static_cast<uint32_t*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 16));
}

}  // namespace

int32_t tvxFloodfillSimpleu8C(uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t seedX,
                              uint32_t seedY, uint8_t newVal, uint8_t loDiff, uint8_t upDiff, uint32_t* area,
                              uint32_t* rect) {
  const int32_t seed = src[size_t{seedY} * srcStride + seedX];
  const int32_t low = seed - loDiff, high = seed + upDiff;
  if (newVal < low || newVal > high)
    return FixedFillInPlace(src, srcWidth, srcHeight, srcStride, seedX, seedY, newVal, low, high, area, rect);
  return FloodFill<true>(src, srcWidth, srcHeight, srcStride, seedX, seedY, newVal, loDiff, upDiff, false, area, rect);
}

int32_t tvxFloodfillMergedu8C(uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t seedX,
                              uint32_t seedY, uint8_t newVal, uint8_t loDiff, uint8_t upDiff, uint32_t connectivity,
                              uint32_t* area, uint32_t* rect) {
  if (connectivity != 4 && connectivity != 8) return 3;
  return FloodFill<false>(src, srcWidth, srcHeight, srcStride, seedX, seedY, newVal, loDiff, upDiff, connectivity == 8,
                          area, rect);
}

int32_t tvxImageSegmentationRegionGrowC(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                        uint32_t threshold, uint32_t* labels, uint32_t labelStride,
                                        uint32_t* numRegions) {
  uint32_t* queue = TakeQueue(srcWidth, srcHeight);
  if (queue == nullptr) return 5;
  for (uint32_t y = 0; y < srcHeight; ++y)
    std::memset(reinterpret_cast<uint8_t*>(labels) + size_t{y} * labelStride, 0, size_t{srcWidth} * 4);
  uint32_t regions = 0;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    uint32_t* row = reinterpret_cast<uint32_t*>(reinterpret_cast<uint8_t*>(labels) + size_t{y} * labelStride);
    for (uint32_t x = 0; x < srcWidth; ++x) {
      if (row[x] != 0) continue;
      row[x] = ++regions;
      queue[0] = y * srcWidth + x;
      Grow(src, srcWidth, srcHeight, srcStride, threshold, labels, labelStride, queue, 0, 1);
    }
  }
  tvxReleaseScratchBuffer_(queue);
  *numRegions = regions;
  return 0;
}

int32_t tvxImageSegmentationSeedRegionGrows16C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                               uint32_t srcStride, const uint32_t* seeds, uint32_t numSeeds,
                                               uint32_t threshold, int16_t* labels, uint32_t labelStride) {
  if (numSeeds > 32767) return 3;
  for (uint32_t k = 0; k < numSeeds; ++k)
    if (seeds[2 * k] >= srcWidth || seeds[2 * k + 1] >= srcHeight) return 3;
  uint32_t* queue = TakeQueue(srcWidth, srcHeight);
  if (queue == nullptr) return 5;
  const auto labelRow = [&](uint32_t y) {
    return reinterpret_cast<int16_t*>(reinterpret_cast<uint8_t*>(labels) + size_t{y} * labelStride);
  };
  for (uint32_t y = 0; y < srcHeight; ++y) std::memset(labelRow(y), 0, size_t{srcWidth} * 2);
  uint32_t tail = 0;
  for (uint32_t k = 0; k < numSeeds; ++k) {
    int16_t& l = labelRow(seeds[2 * k + 1])[seeds[2 * k]];
    if (l != 0) continue;  // an earlier seed holds the pixel
    l = static_cast<int16_t>(k + 1);
    queue[tail++] = seeds[2 * k + 1] * srcWidth + seeds[2 * k];
  }
  Grow(src, srcWidth, srcHeight, srcStride, threshold, labels, labelStride, queue, 0, tail);
  tvxReleaseScratchBuffer_(queue);
  return 0;
}

int32_t tvxUpdateMotionHistoryu8s32C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                     int32_t* mhi, uint32_t mhiStride, int32_t timestamp, int32_t duration) {
  if (duration < 0) return 3;
  // Values below the oldest kept time are cleared; when that time lies below the int32 range
  // nothing is old enough.
  const int64_t oldest = int64_t{timestamp} - duration;
  const bool clears = oldest > INT32_MIN;
  const int32_t keep = clears ? static_cast<int32_t>(oldest) : INT32_MIN;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* sil = src + size_t{y} * srcStride;
    int32_t* row = reinterpret_cast<int32_t*>(reinterpret_cast<uint8_t*>(mhi) + size_t{y} * mhiStride);
    for (uint32_t x = 0; x < srcWidth; ++x) {
      if (sil[x] != 0) row[x] = timestamp;
      else if (row[x] < keep) row[x] = 0;
    }
  }
  return 0;
}
