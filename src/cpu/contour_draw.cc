// Rasterisation of the contour drawing entries. Lines step along the major axis with an error
// term err = dx - 2dy (a minor step whenever err is negative before the update), always from
// the left end point, so a line and its reverse cover the same pixels. Fills work in 16.16 fixed
// point: the general fill pairs the sorted crossings of each scan row (even-odd rule, rows from
// an edge's top end up to but not including its bottom end), the convex fill walks the two
// chains that leave the topmost vertex.
#include "cpu/contour_draw.h"

#include <algorithm>
#include <vector>

namespace tvxcontour {

namespace {

constexpr int kShift = 16;
constexpr int64_t kOne = int64_t{1} << kShift;

struct Edge {
  int32_t y0, y1;
  int64_t x, dx;
};

}  // namespace

void DrawLine(const Canvas& canvas, int32_t x0, int32_t y0, int32_t x1, int32_t y1) {
  if (x1 < x0) {
    std::swap(x0, x1);
    std::swap(y0, y1);
  }
  int32_t major = x1 - x0, minor = y1 - y0;
  int32_t stepMajor = 1, stepMinor = 1;
  if (minor < 0) {
    minor = -minor;
    stepMinor = -1;
  }
  const bool vertical = minor > major;
  if (vertical) {
    std::swap(major, minor);
    std::swap(stepMajor, stepMinor);
  }
  int32_t err = major - 2 * minor;
  int32_t x = x0, y = y0;
  for (int32_t i = 0; i <= major; ++i) {
    canvas.Dot(x, y);
    const bool minorStep = err < 0;
    err += -2 * minor + (minorStep ? 2 * major : 0);
    if (vertical) {
      y += stepMajor;
      if (minorStep) x += stepMinor;
    } else {
      x += stepMajor;
      if (minorStep) y += stepMinor;
    }
  }
}

void DrawContours(const Canvas& canvas, const uint32_t* points, const uint32_t* numPointsInContour, uint32_t first,
                  uint32_t last, const uint64_t* offsets, bool filled) {
  std::vector<Edge> edges;
  for (uint32_t c = first; c < last; ++c) {
    const uint32_t n = numPointsInContour[c];
    if (n == 0) continue;
    const uint32_t* p = points + 2 * offsets[c];
    int32_t px = int32_t(p[2 * (n - 1)]), py = int32_t(p[2 * (n - 1) + 1]);
    for (uint32_t i = 0; i < n; ++i) {
      const int32_t qx = int32_t(p[2 * i]), qy = int32_t(p[2 * i + 1]);
      DrawLine(canvas, px, py, qx, qy);
      if (filled && py != qy) {
        Edge e;
        const int64_t fx0 = int64_t{px} << kShift, fx1 = int64_t{qx} << kShift;
        e.dx = (fx1 - fx0) / (qy - py);
        if (py < qy) {
          e.y0 = py, e.y1 = qy, e.x = fx0;
        } else {
          e.y0 = qy, e.y1 = py, e.x = fx1;
        }
        edges.push_back(e);
      }
      px = qx, py = qy;
    }
  }
  if (!filled || edges.size() < 2) return;
  std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) { return a.y0 < b.y0; });
  const int32_t yEnd = std::min<int32_t>(int32_t(canvas.height),
                                         std::max_element(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) {
                                           return a.y1 < b.y1;
                                         })->y1);
  std::vector<Edge> active;
  std::vector<int64_t> xs;
  size_t next = 0;
  for (int32_t y = edges[0].y0; y < yEnd; ++y) {
    active.erase(std::remove_if(active.begin(), active.end(), [y](const Edge& e) { return e.y1 <= y; }), active.end());
    while (next < edges.size() && edges[next].y0 == y) active.push_back(edges[next++]);
    xs.clear();
    for (const Edge& e : active) xs.push_back(e.x + (y - e.y0) * e.dx);
    std::sort(xs.begin(), xs.end());
    for (size_t i = 0; i + 1 < xs.size(); i += 2) {
      int32_t xl = int32_t((xs[i] + kOne - 1) >> kShift), xr = int32_t(xs[i + 1] >> kShift);
      if (xl >= int32_t(canvas.width) || xr < 0) continue;
      xl = std::max(xl, 0);
      xr = std::min(xr, int32_t(canvas.width) - 1);
      canvas.Span(xl, xr, y);
    }
  }
}

void FillConvex(const Canvas& canvas, const uint32_t* points, uint32_t numPoints) {
  struct Chain {
    uint32_t idx, di;
    int64_t x, dx;
    int32_t ye;
  } edge[2];
  const int64_t half = kOne >> 1;
  const uint32_t n = numPoints;
  auto X = [&](uint32_t i) { return int64_t(points[2 * i]); };
  auto Y = [&](uint32_t i) { return int32_t(points[2 * i + 1]); };
  uint32_t imin = 0;
  int32_t ymin = Y(0), ymax = Y(0);
  int32_t px = int32_t(X(n - 1)), py = Y(n - 1);
  for (uint32_t i = 0; i < n; ++i) {
    if (Y(i) < ymin) {
      ymin = Y(i);
      imin = i;
    }
    ymax = std::max(ymax, Y(i));
    DrawLine(canvas, px, py, int32_t(X(i)), Y(i));
    px = int32_t(X(i)), py = Y(i);
  }
  if (n < 3) return;
  ymax = std::min(ymax, int32_t(canvas.height) - 1);
  edge[0].idx = edge[1].idx = imin;
  edge[0].ye = edge[1].ye = ymin;
  edge[0].di = 1;
  edge[1].di = n - 1;
  edge[0].x = edge[1].x = -kOne;
  edge[0].dx = edge[1].dx = 0;
  int64_t edges = n;
  int32_t y = ymin;
  do {
    for (int i = 0; i < 2; ++i) {
      if (y >= edge[i].ye) {
        uint32_t idx0 = edge[i].idx, di = edge[i].di;
        uint32_t idx = idx0 + di;
        if (idx >= n) idx -= n;
        for (; edges-- > 0;) {
          const int32_t ty = Y(idx);
          if (ty > y) {
            const int64_t xs = X(idx0) << kShift, xe = X(idx) << kShift;
            edge[i].ye = ty;
            edge[i].dx = ((xe - xs) * 2 + (ty - y)) / (2 * int64_t(ty - y));
            edge[i].x = xs;
            edge[i].idx = idx;
            break;
          }
          idx0 = idx;
          idx += di;
          if (idx >= n) idx -= n;
        }
      }
    }
    if (edges < 0) break;
    const int l = edge[0].x > edge[1].x ? 1 : 0;
    int32_t xl = int32_t((edge[l].x + half) >> kShift), xr = int32_t((edge[1 - l].x + half) >> kShift);
    if (xr >= 0 && xl < int32_t(canvas.width)) {
      xl = std::max(xl, 0);
      xr = std::min(xr, int32_t(canvas.width) - 1);
      canvas.Span(xl, xr, y);
    }
    edge[0].x += edge[0].dx;
    edge[1].x += edge[1].dx;
  } while (++y <= ymax);
}

}  // namespace tvxcontour
