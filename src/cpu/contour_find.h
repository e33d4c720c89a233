// Border following of binary images shared by the reference and SIMD variants of the find
// entries: the variants differ only in the two pixel passes they hand in (the binarised copy with
// its one-pixel frame, and the search for the next byte that differs from the current run).
#pragma once

#include <cstdint>

namespace tvxcontour {

// Retrieval modes, numbered as the scan's decisions test them.
enum Mode : int { kExternal = 0, kList = 1, kCcomp = 2, kTree = 3 };

// Writes the (width + 2) x (height + 2) framed copy: 1 where src is non-zero, 0 elsewhere and on
// the frame.
using BinariseFn = void (*)(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int8_t* img);
// The first index in [x, end) whose byte differs from value, or end.
using SkipFn = uint32_t (*)(const int8_t* row, uint32_t x, uint32_t end, int8_t value);

// Bytes of work memory the find entries need for a width x height image.
inline uint64_t WorkBytes(uint32_t width, uint32_t height) {
  return uint64_t{5} * (uint64_t{width} + 2) * (uint64_t{height} + 2);
}

int32_t FindContours(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                     uint32_t maxContours, uint32_t maxPoints, uint32_t* numContours, uint32_t* numPointsInContour,
                     uint32_t* points, int32_t* hierarchy, uint32_t approx, uint8_t* work, uint32_t workSize, int mode,
                     BinariseFn binarise, SkipFn skip);

}  // namespace tvxcontour
