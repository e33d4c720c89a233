// Rasterisation shared by the contour drawing and polygon fill entries: 8-connected lines, the
// even-odd fill of a set of closed point lists and the convex polygon fill, over a canvas that
// writes one colour into a single-channel, planar or interleaved image.
#pragma once

#include <cstdint>
#include <cstring>

namespace tvxcontour {

// Where drawn pixels go: numChannels interleaved bytes per pixel (numChannels 1: a plain image),
// or numChannels planes of planeBytes each.
struct Canvas {
  uint8_t* base;
  uint32_t width, height, stride;
  uint32_t numChannels;
  bool planar;
  size_t planeBytes;
  uint8_t color[4];

  void Span(int32_t x0, int32_t x1, int32_t y) const {
    if (x0 > x1) return;
    uint8_t* row = base + size_t(y) * stride;
    if (numChannels == 1) {
      std::memset(row + x0, color[0], size_t(x1 - x0 + 1));
    } else if (planar) {
      for (uint32_t c = 0; c < numChannels; ++c) std::memset(row + c * planeBytes + x0, color[c], size_t(x1 - x0 + 1));
    } else {
      uint8_t* p = row + size_t(x0) * numChannels;
      for (int32_t x = x0; x <= x1; ++x, p += numChannels)
        for (uint32_t c = 0; c < numChannels; ++c) p[c] = color[c];
    }
  }
  void Dot(int32_t x, int32_t y) const { Span(x, x, y); }
};

// An 8-connected line between two points inside the canvas, drawn from its left end point.
void DrawLine(const Canvas& canvas, int32_t x0, int32_t y0, int32_t x1, int32_t y1);

// Outlines (thickness 1) or outlines plus the even-odd fill (thickness -1) of the closed point
// lists [first, last) of a contour list; offsets[i] is where contour i's points begin.
void DrawContours(const Canvas& canvas, const uint32_t* points, const uint32_t* numPointsInContour, uint32_t first,
                  uint32_t last, const uint64_t* offsets, bool filled);

// The convex polygon fill with its outline.
void FillConvex(const Canvas& canvas, const uint32_t* points, uint32_t numPoints);

}  // namespace tvxcontour
