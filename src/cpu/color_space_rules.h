// Per-pixel rules of the 8-bit HSV and LAB conversions, in exact integer (fixed-point and
// table) arithmetic so that the reference and SIMD variants give the same bytes. Both
// variants read the same tables, built once on first use.
//
// HSV (byte 0 = R): V = max(R, G, B), S = 255 * (V - min) / V, H = hue in degrees / 2
// (0..179), with 12-bit reciprocal tables for the two divisions.
// LAB (sRGB, D65 white): L scaled to 0..255 (L * 255 / 100), a and b offset by 128, each
// clamped to 0..255. sRGB bytes become linear light in Q15 through a table, X/Xn, Y/Yn, Z/Zn
// come from a Q14 matrix whose rows sum to one (white gives exactly 1), and the cube-root
// function f of the LAB definition is a 1025-step Q15 table, linearly interpolated.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace tvx::colorspace {

// ---- HSV -----------------------------------------------------------------------------------

struct HsvTables {
  int32_t sat[256];  // round(255 * 4096 / v), 0 for v = 0
  int32_t hue[256];  // round(30 * 4096 / d): 60 degrees of hue are 30 units
};

inline const HsvTables& Hsv() {
  static const HsvTables tables = [] {
    HsvTables t{};
    for (int32_t i = 1; i < 256; ++i) {
      t.sat[i] = (2 * 255 * 4096 + i) / (2 * i);
      t.hue[i] = (2 * 30 * 4096 + i) / (2 * i);
    }
    return t;
  }();
  return tables;
}

inline void HsvOf(const uint8_t* rgb, uint8_t* hsv) {
  const HsvTables& t = Hsv();
  const int32_t r = rgb[0], g = rgb[1], b = rgb[2];
  const int32_t v = r > g ? (r > b ? r : b) : (g > b ? g : b);
  const int32_t mn = r < g ? (r < b ? r : b) : (g < b ? g : b);
  const int32_t d = v - mn;
  // Hue numerator in units of d per 60 degrees: red sector around 0, green at 2, blue at 4.
  const int32_t h = v == r ? g - b : (v == g ? b - r + 2 * d : r - g + 4 * d);
  int32_t hue = (h * t.hue[d] + 2048) >> 12;
  if (hue < 0) hue += 180;
  hsv[0] = static_cast<uint8_t>(hue);
  hsv[1] = static_cast<uint8_t>((d * t.sat[v] + 2048) >> 12);
  hsv[2] = static_cast<uint8_t>(v);
}

// ---- LAB -----------------------------------------------------------------------------------

constexpr int32_t kCubeSteps = 1024;  // table steps over t in [0, 1]; t is Q15, so 32 per step

struct LabTables {
  int32_t linear[256];              // sRGB byte -> linear light, Q15
  int32_t f[kCubeSteps + 2];        // f(i / 1024), Q15; one extra entry past t = 1
};

inline const LabTables& Lab() {
  static const LabTables tables = [] {
    LabTables t{};
    for (int i = 0; i < 256; ++i) {
      const double c = i / 255.0;
      const double lin = c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
      t.linear[i] = static_cast<int32_t>(std::lround(lin * 32768.0));
    }
    const double delta = 6.0 / 29.0;
    for (int i = 0; i < kCubeSteps + 2; ++i) {
      const double x = static_cast<double>(i) / kCubeSteps;
      const double f = x > delta * delta * delta ? std::cbrt(x) : x / (3 * delta * delta) + 4.0 / 29.0;
      t.f[i] = static_cast<int32_t>(std::lround(f * 32768.0));
    }
    return t;
  }();
  return tables;
}

// Rows of the sRGB-to-XYZ matrix divided by the D65 white, Q14, each summing to 16384.
constexpr int32_t kXr = 7110, kXg = 6164, kXb = 3110;
constexpr int32_t kYr = 3484, kYg = 11717, kYb = 1183;
constexpr int32_t kZr = 291, kZg = 1794, kZb = 14299;

// L = 2.55 * (116 f(Y) - 16) = 295.8 f - 40.8, in Q20 with rounding.
constexpr int32_t kLScale = 9466, kLOffset = -42781901 + (1 << 19);

inline int32_t CubeOf(int32_t t) {  // f(t) for t in Q15, 0 <= t <= 32768
  const LabTables& tab = Lab();
  const int32_t i = t >> 5, frac = t & 31;
  return tab.f[i] + (((tab.f[i + 1] - tab.f[i]) * frac + 16) >> 5);
}

inline uint8_t ClampByte(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

inline void LabOf(const uint8_t* rgb, uint8_t* lab) {
  const LabTables& tab = Lab();
  const int32_t r = tab.linear[rgb[0]], g = tab.linear[rgb[1]], b = tab.linear[rgb[2]];
  const int32_t fx = CubeOf((kXr * r + kXg * g + kXb * b + 8192) >> 14);
  const int32_t fy = CubeOf((kYr * r + kYg * g + kYb * b + 8192) >> 14);
  const int32_t fz = CubeOf((kZr * r + kZg * g + kZb * b + 8192) >> 14);
  lab[0] = ClampByte((fy * kLScale + kLOffset) >> 20);
  lab[1] = ClampByte(((fx - fy) * 500 + (128 << 15) + (1 << 14)) >> 15);
  lab[2] = ClampByte(((fy - fz) * 200 + (128 << 15) + (1 << 14)) >> 15);
}

}  // namespace tvx::colorspace
