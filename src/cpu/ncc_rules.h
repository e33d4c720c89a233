// Shared rules of the patch tools: the (cos, sin) phasor table, and the NCC searches' window
// sums, variance terms, rounded NCC and candidate selection. The reference and SIMD variants
// differ only in how they compute the raw cross sums sum(t * w) of a row of candidates, which
// they pass in as a function, so every other integer is the same by construction.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/frame.h"

namespace tvxncc {

// ---- phasor table: entry i is (cos, sin) of i * 2 pi / 256 in 1/16384, built at compile time ----

struct Phasor {
  int16_t c, s;
};

constexpr double kPi = 3.14159265358979323846264338327950288;

// sin(x) for x in [-pi, pi] by its Taylor series; 40 terms leave an error far below 1e-12.
constexpr double SeriesSin(double x) {
  double term = x, sum = x;
  for (int k = 1; k < 40; ++k) {
    term *= -x * x / ((2.0 * k) * (2.0 * k + 1.0));
    sum += term;
  }
  return sum;
}
constexpr double TurnSin(int i) {  // sin(i * 2 pi / 256), angle reduced to [-pi, pi]
  const int m = ((i % 256) + 256) % 256;
  return SeriesSin((m <= 128 ? m : m - 256) * (2.0 * kPi / 256.0));
}
constexpr int16_t Q14(double v) { return static_cast<int16_t>(v >= 0 ? v * 16384.0 + 0.5 : v * 16384.0 - 0.5); }

struct PhasorTable {
  Phasor e[256];
};
constexpr PhasorTable MakePhasors() {
  PhasorTable t{};
  for (int i = 0; i < 256; ++i) t.e[i] = {Q14(TurnSin(i + 64)), Q14(TurnSin(i))};
  return t;
}
inline constexpr PhasorTable phasorLUT = MakePhasors();

// Table entry of an orientation in 1/1024 of a turn, rounded to the nearest of 256 steps.
inline uint32_t PhasorIndex(int32_t orientation) {
  return static_cast<uint32_t>(((int64_t{orientation} + 2) >> 2) & 255);
}

// ---- NCC search ------------------------------------------------------------------------------------

constexpr uint32_t kMaxRadius = 9;
constexpr uint32_t kTableSide = 2 * kMaxRadius + 1;  // NCC table: 19 values per row
constexpr uint32_t kMaxSumW = 2 * kMaxRadius + 10;   // integral tables of the 27x27 region

// Raw cross sums of `count` candidates in a row: out[k] = sum over j, i < 8 of
// tmpl[8 j + i] * src[j * stride + k + i]. Reads columns 0 .. count + 6 of eight rows only.
using CrossRowFn = void (*)(const uint8_t* src, size_t stride, const uint8_t* tmpl, int32_t* out, uint32_t count);

inline void CrossRowScalar(const uint8_t* src, size_t stride, const uint8_t* tmpl, int32_t* out, uint32_t count) {
  for (uint32_t k = 0; k < count; ++k) {
    int32_t acc = 0;
    for (uint32_t j = 0; j < 8; ++j) {
      const uint8_t* row = src + j * stride + k;
      for (uint32_t i = 0; i < 8; ++i) acc += int32_t{tmpl[j * 8 + i]} * row[i];
    }
    out[k] = acc;
  }
}

struct TemplateStats {
  int64_t sum, var;
};
inline TemplateStats StatsOf(const uint8_t* tmpl) {
  int64_t sum = 0, sq = 0;
  for (int i = 0; i < 64; ++i) {
    sum += tmpl[i];
    sq += int64_t{tmpl[i]} * tmpl[i];
  }
  return {sum, sq - ((sum * sum) >> 6)};
}

// Rounded 128 * cross / sqrt(tVar * wVar), halves away from zero, decided by exact integer
// comparisons (a double estimate only picks the starting point), clamped to -128..128: the
// truncated mean terms can lift a perfectly correlated pair a hair above 128.
inline int32_t RoundedNCC(int64_t cross, int64_t tVar, int64_t wVar) {
  if (cross == 0 || tVar <= 0 || wVar <= 0) return 0;
  const uint64_t c = static_cast<uint64_t>(cross < 0 ? -cross : cross);
  const uint64_t p = static_cast<uint64_t>(tVar) * static_cast<uint64_t>(wVar);
  const uint64_t lhs = 65536u * c * c;  // (2 * 128 c)^2
  const double est = 128.0 * static_cast<double>(c) / std::sqrt(static_cast<double>(p));
  int64_t n = est > 200.0 ? 200 : static_cast<int64_t>(est + 0.5);
  // n is right when (2n - 1)^2 p <= lhs < (2n + 1)^2 p.
  const auto square = [](int64_t v) { return static_cast<uint64_t>(v * v); };
  while (n > 0 && square(2 * n - 1) * p > lhs) --n;
  while (n < 200 && square(2 * n + 1) * p <= lhs) ++n;
  if (n > 128) n = 128;
  return static_cast<int32_t>(cross < 0 ? -n : n);
}

constexpr const char* kPath = "src/cpu/tavixNCCPatchC";

// Sum and sum of squares of the 8x8 window whose top-left is (x0, y0) of the region behind the
// integral tables (sumW entries per row, zero first row and column).
inline void calcSumsPatch(const uint32_t* sumTbl, const uint32_t* sum2Tbl, int32_t sumW, int32_t x0, int32_t y0,
                          uint32_t* windowSum, uint32_t* windowSum2) {
  const int32_t x1 = x0 + 8, y1 = y0 + 8;
  TVX_REQUIRE(kPath, x0 >= 0);
  TVX_REQUIRE(kPath, y0 >= 0);
  TVX_REQUIRE(kPath, x1 < sumW);
  TVX_REQUIRE(kPath, y1 < sumW);
  const int32_t idx00 = y0 * sumW + x0, idx01 = y0 * sumW + x1, idx10 = y1 * sumW + x0, idx11 = y1 * sumW + x1;
  TVX_REQUIRE(kPath, sumTbl[idx11] >= sumTbl[idx00]);
  TVX_REQUIRE(kPath, sumTbl[idx11] >= sumTbl[idx01]);
  TVX_REQUIRE(kPath, sumTbl[idx11] >= sumTbl[idx10]);
  TVX_REQUIRE(kPath, sum2Tbl[idx11] >= sum2Tbl[idx00]);
  TVX_REQUIRE(kPath, sum2Tbl[idx11] >= sum2Tbl[idx01]);
  TVX_REQUIRE(kPath, sum2Tbl[idx11] >= sum2Tbl[idx10]);
  const int64_t sum = int64_t{sumTbl[idx11]} - sumTbl[idx01] - sumTbl[idx10] + sumTbl[idx00];
  const int64_t sum2 = int64_t{sum2Tbl[idx11]} - sum2Tbl[idx01] - sum2Tbl[idx10] + sum2Tbl[idx00];
  TVX_REQUIRE(kPath, sum<=((2*5+1)+8)*((2*5+1)+8)*255);
  TVX_REQUIRE(kPath, sum2<=((2*5+1)+8)*((2*5+1)+8)*255*255);
  *windowSum = static_cast<uint32_t>(sum);
  *windowSum2 = static_cast<uint32_t>(sum2);
}

inline int32_t calcNCCPatch(int64_t cross, int64_t tVar, int64_t wVar) {
  const int32_t iNCC = RoundedNCC(cross, tVar, wVar);
  TVX_REQUIRE(kPath, (iNCC >= -128) && (iNCC <= 128));
  return iNCC;
}

// Padded integral tables (sumW = width + 1 entries per row) of a width x height block; sums
// wrap modulo 2^32, which window differences of at most 64 * 255^2 undo exactly.
inline void IntegrateRegion(const uint8_t* src, size_t stride, uint32_t width, uint32_t height, uint32_t* sumTbl,
                            uint32_t* sum2Tbl) {
  const size_t w = size_t{width} + 1;
  std::memset(sumTbl, 0, w * sizeof(uint32_t));
  std::memset(sum2Tbl, 0, w * sizeof(uint32_t));
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* row = src + y * stride;
    uint32_t r = 0, r2 = 0;
    uint32_t* s = sumTbl + (y + 1) * w;
    uint32_t* s2 = sum2Tbl + (y + 1) * w;
    const uint32_t* above = s - w;
    const uint32_t* above2 = s2 - w;
    s[0] = 0;
    s2[0] = 0;
    for (uint32_t x = 0; x < width; ++x) {
      r += row[x];
      r2 += uint32_t{row[x]} * row[x];
      s[x + 1] = above[x + 1] + r;
      s2[x + 1] = above2[x + 1] + r2;
    }
  }
}

// One candidate better than the best so far: cross^2 / wVar larger (cross-multiplied).
inline bool Better(int64_t cross, int64_t wVar, int64_t bestCross, int64_t bestVar) {
  const uint64_t a = static_cast<uint64_t>(cross) * static_cast<uint64_t>(cross) * static_cast<uint64_t>(bestVar);
  const uint64_t b = static_cast<uint64_t>(bestCross) * static_cast<uint64_t>(bestCross) * static_cast<uint64_t>(wVar);
  return a > b;
}

inline int32_t SearchPatch(const uint8_t* patch, const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                           uint32_t srcStride, uint32_t searchCenterX, uint32_t searchCenterY, uint32_t searchRadius,
                           int32_t filterLowVariance, uint32_t* bestX, uint32_t* bestY, int32_t* bestNCC,
                           int32_t doSubPixel, float* subX, float* subY, bool circle, CrossRowFn crossRow) {
  if (searchRadius > kMaxRadius) return 1;
  const uint64_t reach = uint64_t{searchRadius} + 4;
  if (searchCenterX < reach || searchCenterY < reach || searchCenterX + reach >= srcWidth ||
      searchCenterY + reach >= srcHeight)
    return 2;
  const TemplateStats t = StatsOf(patch);
  if (filterLowVariance != 0 && t.var < filterLowVariance) {
    *bestNCC = -127;
    return 4;
  }
  const int32_t r = static_cast<int32_t>(searchRadius);
  const uint32_t side = 2 * searchRadius + 9;  // region: centre +/- (radius + 4)
  const int32_t sumW = static_cast<int32_t>(side + 1);
  const uint8_t* region = src + (searchCenterY - reach) * size_t{srcStride} + (searchCenterX - reach);
  uint32_t sumTbl[kMaxSumW * kMaxSumW];
  uint32_t sum2Tbl[kMaxSumW * kMaxSumW];
  IntegrateRegion(region, srcStride, side, side, sumTbl, sum2Tbl);

  // Per candidate: raw cross sums, then cross and window variance terms (0: not a candidate).
  const uint32_t count = 2 * searchRadius + 1;
  int32_t raw[kTableSide * kTableSide];
  int64_t crossTbl[kTableSide * kTableSide];
  int64_t varTbl[kTableSide * kTableSide];
  bool isCand[kTableSide * kTableSide];
  for (uint32_t y = 0; y < count; ++y) crossRow(region + y * size_t{srcStride}, srcStride, patch, raw + y * kTableSide, count);

  bool found = false;
  int64_t bestCross = 0, bestVar = 1;
  int32_t bx = 0, by = 0;
  for (int32_t dy = -r; dy <= r; ++dy) {
    for (int32_t dx = -r; dx <= r; ++dx) {
      const int32_t x = dx + r, y = dy + r;
      TVX_REQUIRE(kPath, x < sumW);
      TVX_REQUIRE(kPath, y < sumW);
      const int32_t idx = y * static_cast<int32_t>(kTableSide) + x;
      isCand[idx] = !circle || dx * dx + dy * dy <= r * r;
      if (!isCand[idx]) continue;
      uint32_t ws, ws2;
      calcSumsPatch(sumTbl, sum2Tbl, sumW, x, y, &ws, &ws2);
      const int64_t wVar = int64_t{ws2} - ((int64_t{ws} * ws) >> 6);
      const int64_t cross = int64_t{raw[idx]} - ((t.sum * ws) >> 6);
      crossTbl[idx] = cross;
      varTbl[idx] = wVar;
      if (cross <= 0 || wVar <= 0) continue;
      if (!found || Better(cross, wVar, bestCross, bestVar)) {
        found = true;
        bestCross = cross;
        bestVar = wVar;
        bx = dx;
        by = dy;
      }
    }
  }
  if (doSubPixel) {
    *subX = 0.0f;
    *subY = 0.0f;
  }
  if (!found) {
    *bestX = searchCenterX;
    *bestY = searchCenterY;
    *bestNCC = -127;
    return filterLowVariance != 0 ? 5 : 0;
  }
  const int32_t iNCC = calcNCCPatch(bestCross, t.var, bestVar);
  *bestX = static_cast<uint32_t>(static_cast<int32_t>(searchCenterX) + bx);
  *bestY = static_cast<uint32_t>(static_cast<int32_t>(searchCenterY) + by);
  *bestNCC = iNCC;
  if (filterLowVariance != 0 && iNCC == -127) return 5;
  if (!doSubPixel) return 0;

  // NCC of candidate (dx, dy); -128 where there is none.
  const auto nccAt = [&](int32_t dx, int32_t dy) -> int32_t {
    const int32_t idx = (dy + r) * static_cast<int32_t>(kTableSide) + dx + r;
    return isCand[idx] ? calcNCCPatch(crossTbl[idx], t.var, varTbl[idx]) : -128;
  };
  // Vertex offset of the parabola through (left, centre, right).
  const auto vertex = [](int32_t yL, int32_t yCtr, int32_t yR) -> float {
    TVX_REQUIRE(kPath, (yL <= yCtr && yCtr >= yR) || (yL >= yCtr && yCtr <= yR));
    const int32_t den = 4 * yCtr - 2 * (yL + yR);
    const float subX = den == 0 ? 0.0f : static_cast<float>(yR - yL) / static_cast<float>(den);
    TVX_REQUIRE(kPath, subX>-1 && subX<1);
    return subX;
  };
  if (bx > -r && bx < r) {
    const int32_t refLeft = (by + r) * static_cast<int32_t>(kTableSide) + bx + r - 1, refRight = refLeft + 2;
    TVX_REQUIRE(kPath, refLeft>=0 && refRight>=0);
    const int32_t left = nccAt(bx - 1, by), right = nccAt(bx + 1, by);
    if (left > 0 && right > 0) *subX = vertex(left, iNCC, right);
  }
  if (by > -r && by < r) {
    const int32_t refLeft = (by + r - 1) * static_cast<int32_t>(kTableSide) + bx + r,
                  refRight = refLeft + 2 * static_cast<int32_t>(kTableSide);
    TVX_REQUIRE(kPath, refLeft>=0 && refRight>=0);
    const int32_t up = nccAt(bx, by - 1), down = nccAt(bx, by + 1);
    if (up > 0 && down > 0) *subY = vertex(up, iNCC, down);
  }
  return 0;
}

// Several templates over every candidate of a rectangle; see the registry note of
// tvxNCCPatchesOnRectu8 for the layout and statuses.
inline int32_t SearchRect(const uint8_t* patches, uint32_t nPatches, const uint8_t* src, uint32_t srcWidth,
                          uint32_t srcHeight, uint32_t srcStride, uint32_t rectX, uint32_t rectY, uint32_t rectWidth,
                          uint32_t rectHeight, int32_t filterLowVariance, uint32_t* bestXY, int32_t* bestNCC,
                          CrossRowFn crossRow) {
  if (rectX < 4 || rectY < 4 || uint64_t{rectX} + rectWidth + 3 > srcWidth || uint64_t{rectY} + rectHeight + 3 > srcHeight)
    return 2;
  if (nPatches == 0) return 0;
  const uint64_t sumW = uint64_t{rectWidth} + 8, sumH = uint64_t{rectHeight} + 8;
  const uint64_t cands = uint64_t{rectWidth} * rectHeight;
  const uint64_t words = 2 * sumW * sumH + 2 * cands + rectWidth;
  if (words * 4 > 0xFFFFFFFFull) return 5;
  uint32_t* block = static_cast<uint32_t*>(tvxMemAlloc(static_cast<uint32_t>(words * 4), 16));
  if (!block) return 5;
  uint32_t* sumTbl = block;
  uint32_t* sum2Tbl = sumTbl + sumW * sumH;
  uint32_t* winSum = sum2Tbl + sumW * sumH;
  int32_t* winVar = reinterpret_cast<int32_t*>(winSum + cands);
  int32_t* raw = winVar + cands;
  const uint8_t* region = src + (rectY - 4) * size_t{srcStride} + (rectX - 4);
  IntegrateRegion(region, srcStride, rectWidth + 7, rectHeight + 7, sumTbl, sum2Tbl);
  for (uint32_t y = 0; y < rectHeight; ++y) {
    for (uint32_t x = 0; x < rectWidth; ++x) {
      const size_t i00 = y * sumW + x, i11 = (y + 8) * sumW + x + 8, i01 = y * sumW + x + 8, i10 = (y + 8) * sumW + x;
      const uint32_t s = sumTbl[i11] - sumTbl[i01] - sumTbl[i10] + sumTbl[i00];
      const uint32_t s2 = sum2Tbl[i11] - sum2Tbl[i01] - sum2Tbl[i10] + sum2Tbl[i00];
      winSum[y * size_t{rectWidth} + x] = s;
      winVar[y * size_t{rectWidth} + x] = static_cast<int32_t>(int64_t{s2} - ((int64_t{s} * s) >> 6));
    }
  }
  for (uint32_t k = 0; k < nPatches; ++k) {
    const uint8_t* tmpl = patches + size_t{k} * 64;
    const TemplateStats t = StatsOf(tmpl);
    bool found = false;
    int64_t bestCross = 0, bestVar = 1;
    uint32_t bx = 0, by = 0;
    if (filterLowVariance == 0 || t.var >= filterLowVariance) {
      for (uint32_t y = 0; y < rectHeight; ++y) {
        crossRow(region + y * size_t{srcStride}, srcStride, tmpl, raw, rectWidth);
        const uint32_t* ws = winSum + y * size_t{rectWidth};
        const int32_t* wv = winVar + y * size_t{rectWidth};
        for (uint32_t x = 0; x < rectWidth; ++x) {
          const int64_t cross = int64_t{raw[x]} - ((t.sum * ws[x]) >> 6);
          if (cross <= 0 || wv[x] <= 0) continue;
          if (!found || Better(cross, wv[x], bestCross, bestVar)) {
            found = true;
            bestCross = cross;
            bestVar = wv[x];
            bx = x;
            by = y;
          }
        }
      }
    }
    bestXY[2 * size_t{k}] = rectX + bx;
    bestXY[2 * size_t{k} + 1] = rectY + by;
    bestNCC[k] = found ? RoundedNCC(bestCross, t.var, bestVar) : -127;
  }
  tvxMemFree(block);
  return 0;
}

}  // namespace tvxncc
