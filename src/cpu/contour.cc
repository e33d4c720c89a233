// Reference variants of the contour family: the find entries over the shared border follower,
// its work buffer, contour drawing on one, planar and interleaved channels, the convex polygon
// fill, the convex hull, the bounding rectangle and the point-in-polygon test.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <vector>

#include "cpu/contour_draw.h"
#include "cpu/contour_find.h"
#include "frame/frame.h"

namespace tvxcontour {
namespace {

void BinariseC(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int8_t* img) {
  const size_t W = size_t{width} + 2;
  std::memset(img, 0, W);
  for (uint32_t y = 0; y < height; ++y) {
    int8_t* row = img + (y + 1) * W;
    const uint8_t* s = src + size_t{y} * srcStride;
    row[0] = 0;
    for (uint32_t x = 0; x < width; ++x) row[x + 1] = s[x] != 0;
    row[width + 1] = 0;
  }
  std::memset(img + (size_t{height} + 1) * W, 0, W);
}

uint32_t SkipC(const int8_t* row, uint32_t x, uint32_t end, int8_t value) {
  while (x < end && row[x] == value) ++x;
  return x;
}

// Checks a drawing call's contour list and selection; fills offsets (where each contour's
// points begin). False: a bad argument, nothing may be drawn.
bool CheckContours(uint32_t width, uint32_t height, const uint32_t* points, uint32_t numPoints,
                   const uint32_t* numPointsInContour, uint32_t numContours, int32_t contourIndex,
                   std::vector<uint64_t>& offsets, uint32_t& first, uint32_t& last) {
  // Coordinates are drawn in signed 32-bit arithmetic.
  if (width >= (1u << 30) || height >= (1u << 30)) return false;
  if (contourIndex >= 0 && uint32_t(contourIndex) >= numContours) return false;
  offsets.resize(numContours);
  uint64_t sum = 0;
  for (uint32_t i = 0; i < numContours; ++i) {
    offsets[i] = sum;
    sum += numPointsInContour[i];
  }
  if (sum > numPoints) return false;
  first = contourIndex >= 0 ? uint32_t(contourIndex) : 0;
  last = contourIndex >= 0 ? first + 1 : numContours;
  for (uint32_t c = first; c < last; ++c) {
    const uint32_t* p = points + 2 * offsets[c];
    for (uint32_t i = 0; i < numPointsInContour[c]; ++i)
      if (p[2 * i] >= width || p[2 * i + 1] >= height) return false;
  }
  return true;
}

int32_t Draw(const Canvas& canvas, const uint32_t* points, uint32_t numPoints, const uint32_t* numPointsInContour,
             uint32_t numContours, int32_t contourIndex, int32_t thickness) {
  std::vector<uint64_t> offsets;
  uint32_t first = 0, last = 0;
  if (!CheckContours(canvas.width, canvas.height, points, numPoints, numPointsInContour, numContours, contourIndex,
                     offsets, first, last))
    return 3;
  DrawContours(canvas, points, numPointsInContour, first, last, offsets.data(), thickness < 0);
  return 0;
}

}  // namespace
}  // namespace tvxcontour

using tvxcontour::Canvas;

int32_t tvxFindContoursAllocateC(uint32_t maxWidth, uint32_t maxHeight, uint8_t** work, uint32_t* workSize) {
  const uint64_t bytes = tvxcontour::WorkBytes(maxWidth, maxHeight);
  uint8_t* block = static_cast<uint8_t*>(tvxMemAlloc(uint32_t(bytes), 16));
  *work = block;
  *workSize = block ? uint32_t(bytes) : 0;
  return block ? 0 : 5;
}

int32_t tvxFindContoursDeleteC(uint8_t** work) {
  tvxMemFree(*work);
  *work = nullptr;
  return 0;
}

#define TVX_FIND_CONTOURS_C(NAME, MODE)                                                                          \
  int32_t NAME(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t maxContours, \
               uint32_t maxPoints, uint32_t* numContours, uint32_t* numPointsInContour, uint32_t* points,          \
               int32_t* hierarchy, uint32_t approx, uint8_t* work, uint32_t workSize) {                            \
    return tvxcontour::FindContours(src, srcWidth, srcHeight, srcStride, maxContours, maxPoints, numContours,     \
                                    numPointsInContour, points, hierarchy, approx, work, workSize, MODE,          \
                                    tvxcontour::BinariseC, tvxcontour::SkipC);                                     \
  }
TVX_FIND_CONTOURS_C(tvxFindContoursListu8C, tvxcontour::kList)
TVX_FIND_CONTOURS_C(tvxFindContoursTreeu8C, tvxcontour::kTree)
TVX_FIND_CONTOURS_C(tvxFindContoursExternalu8C, tvxcontour::kExternal)
TVX_FIND_CONTOURS_C(tvxFindContoursCcompu8C, tvxcontour::kCcomp)
#undef TVX_FIND_CONTOURS_C

int32_t tvxDrawContouru8C(uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                          const uint32_t* points, uint32_t numPoints, const uint32_t* numPointsInContour,
                          uint32_t numContours, int32_t contourIndex, int32_t thickness, uint8_t color) {
  const Canvas canvas{dst, dstWidth, dstHeight, dstStride, 1, false, 0, {color, 0, 0, 0}};
  return tvxcontour::Draw(canvas, points, numPoints, numPointsInContour, numContours, contourIndex, thickness);
}

int32_t tvxDrawContourPlanaru8C(uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                uint32_t numChannels, const uint32_t* points, uint32_t numPoints,
                                const uint32_t* numPointsInContour, uint32_t numContours, int32_t contourIndex,
                                int32_t thickness, const uint8_t* color) {
  Canvas canvas{dst, dstWidth, dstHeight, dstStride, numChannels, true, size_t{dstStride} * dstHeight, {0, 0, 0, 0}};
  std::memcpy(canvas.color, color, numChannels);
  return tvxcontour::Draw(canvas, points, numPoints, numPointsInContour, numContours, contourIndex, thickness);
}

int32_t tvxDrawContourInterleavedu8C(uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                     uint32_t numChannels, const uint32_t* points, uint32_t numPoints,
                                     const uint32_t* numPointsInContour, uint32_t numContours, int32_t contourIndex,
                                     int32_t thickness, const uint8_t* color) {
  Canvas canvas{dst, dstWidth, dstHeight, dstStride, numChannels, false, 0, {0, 0, 0, 0}};
  std::memcpy(canvas.color, color, numChannels);
  return tvxcontour::Draw(canvas, points, numPoints, numPointsInContour, numContours, contourIndex, thickness);
}

int32_t tvxFillConvexPolyu8C(uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                             const uint32_t* points, uint32_t numPoints, uint8_t color) {
  if (dstWidth >= (1u << 30) || dstHeight >= (1u << 30)) return 3;
  for (uint32_t i = 0; i < numPoints; ++i)
    if (points[2 * i] >= dstWidth || points[2 * i + 1] >= dstHeight) return 3;
  const Canvas canvas{dst, dstWidth, dstHeight, dstStride, 1, false, 0, {color, 0, 0, 0}};
  tvxcontour::FillConvex(canvas, points, numPoints);
  return 0;
}

namespace tvxcontour {
namespace {

// One half-chain of Sklansky's scan over the x-sorted points from start towards end (inclusive):
// keeps the turns whose sign is sign2, skipping points whose y step has the sign nsign. Writes
// sorted positions into stack; returns their number.
int Sklansky(const int32_t* pts, const uint32_t* order, int start, int end, int* stack, int nsign, int sign2) {
  auto X = [&](int k) { return int64_t(pts[2 * order[k]]); };
  auto Y = [&](int k) { return int64_t(pts[2 * order[k] + 1]); };
  auto sign = [](int64_t v) { return (v > 0) - (v < 0); };
  const int incr = end > start ? 1 : -1;
  int pprev = start, pcur = pprev + incr, pnext = pcur + incr;
  int stacksize = 3;
  if (start == end || (X(start) == X(end) && Y(start) == Y(end))) {
    stack[0] = start;
    return 1;
  }
  stack[0] = pprev;
  stack[1] = pcur;
  stack[2] = pnext;
  end += incr;
  while (pnext != end) {
    const int64_t cury = Y(pcur), nexty = Y(pnext);
    const int64_t by = nexty - cury;
    if (sign(by) != nsign) {
      const int64_t ax = X(pcur) - X(pprev), bx = X(pnext) - X(pcur), ay = cury - Y(pprev);
      const int64_t convexity = ay * bx - ax * by;
      if (sign(convexity) == sign2 && (ax != 0 || ay != 0)) {
        pprev = pcur;
        pcur = pnext;
        pnext += incr;
        stack[stacksize] = pnext;
        stacksize++;
      } else if (pprev == start) {
        pcur = pnext;
        stack[1] = pcur;
        pnext += incr;
        stack[2] = pnext;
      } else {
        stack[stacksize - 2] = pnext;
        pcur = pprev;
        pprev = stack[stacksize - 4];
        stacksize--;
      }
    } else {
      pnext += incr;
      stack[stacksize - 1] = pnext;
    }
  }
  return --stacksize;
}

}  // namespace
}  // namespace tvxcontour

int32_t tvxFindConvexHullC(const uint32_t* points, uint32_t numPoints, int32_t clockwise, uint32_t* hullIndices,
                           uint32_t* numHull) {
  for (uint32_t i = 0; i < 2 * numPoints; ++i)
    if (points[i] >= (1u << 30)) return 3;
  if (numPoints > 0x3FFFFFFFu) return 3;
  const int total = int(numPoints);
  const int32_t* pts = reinterpret_cast<const int32_t*>(points);
  std::vector<uint32_t> order(numPoints);
  for (uint32_t i = 0; i < numPoints; ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [pts](uint32_t a, uint32_t b) {
    if (pts[2 * a] != pts[2 * b]) return pts[2 * a] < pts[2 * b];
    if (pts[2 * a + 1] != pts[2 * b + 1]) return pts[2 * a + 1] < pts[2 * b + 1];
    return a < b;  // equal points keep their input order
  });
  auto Y = [&](int k) { return pts[2 * order[k] + 1]; };
  int miny = 0, maxy = 0;
  for (int i = 1; i < total; ++i) {
    if (Y(miny) > Y(i)) miny = i;
    if (Y(maxy) < Y(i)) maxy = i;
  }
  std::vector<int> stackBuf(size_t(total) + 2);
  std::vector<uint32_t> hull(numPoints);
  int* stack = stackBuf.data();
  int nout = 0;
  const uint32_t first = order[0], lastp = order[total - 1];
  if (pts[2 * first] == pts[2 * lastp] && pts[2 * first + 1] == pts[2 * lastp + 1]) {
    hull[nout++] = first;
  } else {
    int* tl = stack;
    int tlc = tvxcontour::Sklansky(pts, order.data(), 0, maxy, tl, -1, 1);
    int* tr = stack + tlc;
    int trc = tvxcontour::Sklansky(pts, order.data(), total - 1, maxy, tr, -1, -1);
    if (!clockwise) {
      std::swap(tl, tr);
      std::swap(tlc, trc);
    }
    for (int i = 0; i < tlc - 1; ++i) hull[nout++] = order[tl[i]];
    for (int i = trc - 1; i > 0; --i) hull[nout++] = order[tr[i]];
    const int stop = trc > 2 ? tr[1] : tlc > 2 ? tl[tlc - 2] : -1;

    int* bl = stack;
    int blc = tvxcontour::Sklansky(pts, order.data(), 0, miny, bl, 1, -1);
    int* br = stack + blc;
    int brc = tvxcontour::Sklansky(pts, order.data(), total - 1, miny, br, 1, 1);
    if (clockwise) {
      std::swap(bl, br);
      std::swap(blc, brc);
    }
    if (stop >= 0) {
      const int check = blc > 2 ? bl[1] : blc + brc > 2 ? br[2 - blc] : -1;
      if (check == stop || (check >= 0 && pts[2 * order[check]] == pts[2 * order[stop]] &&
                            pts[2 * order[check] + 1] == pts[2 * order[stop] + 1])) {
        // All points on one line: the lower chain mirrors the upper one.
        blc = std::min(blc, 2);
        brc = std::min(brc, 2);
      }
    }
    for (int i = 0; i < blc - 1; ++i) hull[nout++] = order[bl[i]];
    for (int i = brc - 1; i > 0; --i) hull[nout++] = order[br[i]];

    // Rotate the list so that the indices ascend or descend cyclically, when they can.
    if (nout >= 3) {
      int minIdx = 0, maxIdx = 0, lt = 0;
      for (int i = 1; i < nout; ++i) {
        const uint32_t idx = hull[i];
        lt += hull[i - 1] < idx;
        if (lt > 1 && lt <= i - 2) break;
        if (idx < hull[minIdx]) minIdx = i;
        if (idx > hull[maxIdx]) maxIdx = i;
      }
      const int mmdist = std::abs(maxIdx - minIdx);
      if ((mmdist == 1 || mmdist == nout - 1) && (lt <= 1 || lt >= nout - 2)) {
        const bool ascending = (maxIdx + 1) % nout == minIdx;
        const int i0 = ascending ? minIdx : maxIdx;
        int j = i0;
        if (i0 > 0) {
          std::vector<uint32_t> rotated(static_cast<size_t>(nout));
          for (int i = 0; i < nout; ++i) {
            const uint32_t cur = rotated[size_t(i)] = hull[j];
            const uint32_t nxt = hull[j + 1 < nout ? j + 1 : 0];
            if (i < nout - 1 && (ascending != (cur < nxt))) {
              lt = 0;
              break;
            }
            if (++j >= nout) j = 0;
          }
          if (lt > 0) std::copy(rotated.begin(), rotated.end(), hull.begin());
        }
      }
    }
  }
  std::copy(hull.begin(), hull.begin() + nout, hullIndices);
  *numHull = uint32_t(nout);
  return 0;
}

int32_t tvxBoundingRectangleC(const uint32_t* points, uint32_t numPoints, uint32_t* rect) {
  if (numPoints == 0) {
    rect[0] = rect[1] = rect[2] = rect[3] = 0;
    return 0;
  }
  uint32_t x0 = points[0], x1 = points[0], y0 = points[1], y1 = points[1];
  for (uint32_t i = 1; i < numPoints; ++i) {
    x0 = std::min(x0, points[2 * i]);
    x1 = std::max(x1, points[2 * i]);
    y0 = std::min(y0, points[2 * i + 1]);
    y1 = std::max(y1, points[2 * i + 1]);
  }
  rect[0] = x0;
  rect[1] = y0;
  rect[2] = x1 - x0 + 1;
  rect[3] = y1 - y0 + 1;
  return 0;
}

int32_t tvxPointPolygonTestC(const uint32_t* points, uint32_t numPoints, float x, float y, int32_t measureDist,
                             float* result) {
  if (numPoints == 0) {
    *result = measureDist ? -FLT_MAX : -1.0f;
    return 0;
  }
  if (!std::isfinite(x) || !std::isfinite(y)) return 3;
  const uint32_t total = numPoints;
  int counter = 0;
  const double ix = std::nearbyint(double(x)), iy = std::nearbyint(double(y));
  if (!measureDist && ix == x && iy == y) {
    // Whole-number test point: exact integer crossings.
    const int64_t px = int64_t(ix), py = int64_t(iy);
    int64_t vx = points[2 * (total - 1)], vy = points[2 * (total - 1) + 1];
    for (uint32_t i = 0; i < total; ++i) {
      const int64_t v0x = vx, v0y = vy;
      vx = points[2 * i];
      vy = points[2 * i + 1];
      if ((v0y <= py && vy <= py) || (v0y > py && vy > py) || (v0x < px && vx < px)) {
        if (py == vy && (px == vx || (py == v0y && ((v0x <= px && px <= vx) || (vx <= px && px <= v0x))))) {
          *result = 0.0f;
          return 0;
        }
        continue;
      }
      int64_t dist = (py - v0y) * (vx - v0x) - (px - v0x) * (vy - v0y);
      if (dist == 0) {
        *result = 0.0f;
        return 0;
      }
      if (vy < v0y) dist = -dist;
      counter += dist > 0;
    }
    *result = counter % 2 == 0 ? -1.0f : 1.0f;
    return 0;
  }
  // Vertices as floats, differences in float, products in double.
  float vx = float(points[2 * (total - 1)]), vy = float(points[2 * (total - 1) + 1]);
  if (!measureDist) {
    for (uint32_t i = 0; i < total; ++i) {
      const float v0x = vx, v0y = vy;
      vx = float(points[2 * i]);
      vy = float(points[2 * i + 1]);
      if ((v0y <= y && vy <= y) || (v0y > y && vy > y) || (v0x < x && vx < x)) {
        if (y == vy && (x == vx || (y == v0y && ((v0x <= x && x <= vx) || (vx <= x && x <= v0x))))) {
          *result = 0.0f;
          return 0;
        }
        continue;
      }
      double dist = double(y - v0y) * double(vx - v0x) - double(x - v0x) * double(vy - v0y);
      if (dist == 0) {
        *result = 0.0f;
        return 0;
      }
      if (vy < v0y) dist = -dist;
      counter += dist > 0;
    }
    *result = counter % 2 == 0 ? -1.0f : 1.0f;
    return 0;
  }
  double minNum = FLT_MAX, minDenom = 1;
  for (uint32_t i = 0; i < total; ++i) {
    const float v0x = vx, v0y = vy;
    vx = float(points[2 * i]);
    vy = float(points[2 * i + 1]);
    const double dx = vx - v0x, dy = vy - v0y;
    const double dx1 = x - v0x, dy1 = y - v0y;
    const double dx2 = x - vx, dy2 = y - vy;
    double num, denom = 1;
    if (dx1 * dx + dy1 * dy <= 0) {
      num = dx1 * dx1 + dy1 * dy1;
    } else if (dx2 * dx + dy2 * dy >= 0) {
      num = dx2 * dx2 + dy2 * dy2;
    } else {
      num = dy1 * dx - dx1 * dy;
      num *= num;
      denom = dx * dx + dy * dy;
    }
    if (num * minDenom < minNum * denom) {
      minNum = num;
      minDenom = denom;
      if (minNum == 0) break;
    }
    if ((v0y <= y && vy <= y) || (v0y > y && vy > y) || (v0x < x && vx < x)) continue;
    num = dy1 * dx - dx1 * dy;
    if (dy < 0) num = -num;
    counter += num > 0;
  }
  double r = std::sqrt(minNum / minDenom);
  if (counter % 2 == 0) r = -r;
  *result = float(r);
  return 0;
}
