// Reference variants of the Canny detectors and the edge-pixel list, and the scalar stages
// both tiers share: relative thresholds, non-maximum flags, the bounded-stack hysteresis of the
// 3x3 detector and the whole aperture detector after its gradients.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "cpu/gradient_rules.h"
#include "frame/frame.h"

using namespace tvx::gradient;

namespace tvx::canny {

int32_t RelativeThreshold(uint32_t t, int32_t maxMagnitude) {
  const float tf = static_cast<float>(t);
  return static_cast<int32_t>(std::floor(tf * tf * (1.0f / 256) * (static_cast<float>(maxMagnitude) * (1.0f / 256))));
}

void NonMaximumFlags(const int32_t* mag, uint8_t* flags, uint32_t width, uint32_t height, int32_t tLow,
                     int32_t tHigh) {
  if (width < 5 || height < 5) return;
  const ptrdiff_t w = width;
  // Neighbour offset of each direction code. Code 0 (no gradient) gets offset 0, which can
  // never pass the strict comparison, so it is never a maximum. Branch-free: the codes vary
  // from pixel to pixel and a branch per pixel mispredicts.
  const ptrdiff_t offset[8] = {0, 1, w, w + 1, w - 1, 0, 0, 0};
  for (uint32_t y = 2; y + 2 < height; ++y) {
    const ptrdiff_t rowStart = ptrdiff_t(y) * w;
    for (uint32_t x = 2; x + 2 < width; ++x) {
      const ptrdiff_t p = rowStart + x;
      const int32_t m = mag[p];
      const ptrdiff_t o = offset[flags[p] & kCodeMask];
      const uint32_t isMax = uint32_t(m >= mag[p + o]) & uint32_t(m > mag[p - o]);
      flags[p] |= uint8_t((isMax << 4) | (uint32_t(m >= tLow) << 5) | (uint32_t(m >= tHigh) << 6));
    }
  }
}

void Hysteresis(uint8_t* flags, uint32_t width, uint32_t height, uint8_t* dst, uint32_t dstStride) {
  if (width >= 5 && height >= 5) {
    const ptrdiff_t w = width;
    // The trace follows the edge: the two neighbours across the compared direction. Pixels
    // written 255 are marked in the flags, so the trace needs no division to find them.
    const ptrdiff_t across[8] = {0, w, 1, w - 1, w + 1, 0, 0, 0};
    ptrdiff_t stack[kTraceStack];
    for (uint32_t y = 2; y + 2 < height; ++y) {
      for (uint32_t x = 2; x + 2 < width; ++x) {
        const ptrdiff_t start = ptrdiff_t(y) * w + x;
        // Skip eight pixels at once when none of them is a strong maximum.
        if (x + 10 <= width) {
          uint64_t eight;
          std::memcpy(&eight, flags + start, 8);
          if (((eight >> 4) & (eight >> 6) & 0x0101010101010101ull) == 0) {
            x += 7;
            continue;
          }
        }
        if ((flags[start] & (kLocalMax | kAboveHigh)) != (kLocalMax | kAboveHigh)) continue;
        flags[start] |= kEdge;
        int top = 0;
        stack[top++] = start;
        while (top > 0) {
          const ptrdiff_t p = stack[--top];
          const uint8_t code = flags[p] & kCodeMask;
          if (code == 0) continue;
          for (ptrdiff_t q : {p - across[code], p + across[code]}) {
            // Only rows and columns 2 .. size - 3 carry the maximum bit, so q stays inside.
            if (q == start || (flags[q] & (kLocalMax | kAboveLow | kEdge)) != (kLocalMax | kAboveLow)) continue;
            if (top == kTraceStack) continue;  // full: this side branch is dropped
            flags[q] |= kEdge;
            stack[top++] = q;
          }
        }
      }
    }
  }
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* out = RowAt(dst, dstStride, y);
    const uint8_t* f = flags + size_t(y) * width;
    for (uint32_t x = 0; x < width; ++x) out[x] = (f[x] & kEdge) ? 255 : 0;
  }
}

void Canny3x3(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
              uint32_t dstStride, int16_t* gx, int16_t* gy, uint32_t gradStride, uint32_t low, uint32_t high,
              SmoothStage smooth, GradientStage gradient, NonMaximumStage nonMaximum) {
  const size_t n = size_t(width) * height;
  // The gradient stage writes every magnitude the later stages read (rows and columns
  // 1 .. size - 2), so only the flags start cleared.
  std::unique_ptr<uint8_t[]> smoothed(new uint8_t[n]);
  std::unique_ptr<int32_t[]> mag(new int32_t[n]);
  std::vector<uint8_t> flags(n, 0);
  smooth(src, width, height, srcStride, smoothed.get(), width, 1);
  if (gx) {
    for (uint32_t y = 0; y < height; ++y) {
      std::memset(RowAt(gx, gradStride, y), 0, size_t(width) * 2);
      std::memset(RowAt(gy, gradStride, y), 0, size_t(width) * 2);
    }
  }
  const int32_t maxMag = gradient(smoothed.get(), width, height, mag.get(), flags.data(), gx, gy, gradStride);
  nonMaximum(mag.get(), flags.data(), width, height, RelativeThreshold(low, maxMag), RelativeThreshold(high, maxMag));
  Hysteresis(flags.data(), width, height, dst, dstStride);
}

void ApertureMagnitude(const int16_t* gx, const int16_t* gy, uint32_t gradStride, uint32_t width, uint32_t height,
                       bool l2, uint32_t* mag, size_t magStride) {
  for (uint32_t y = 0; y < height; ++y) {
    const int16_t* rx = RowAt(gx, gradStride, y);
    const int16_t* ry = RowAt(gy, gradStride, y);
    uint32_t* m = mag + y * magStride;
    for (uint32_t x = 0; x < width; ++x) {
      const int32_t a = rx[x], b = ry[x];
      m[x] = l2 ? uint32_t(a * a) + uint32_t(b * b) : uint32_t((a < 0 ? -a : a) + (b < 0 ? -b : b));
    }
  }
}

// Each direction compares with a pair (p - o, p + o): strictly greater before, and at or
// above after except on the diagonals, where both comparisons are strict.
void ApertureClassify(const int16_t* gx, const int16_t* gy, uint32_t gradStride, const uint32_t* mag,
                      size_t magStride, uint32_t width, uint32_t height, uint32_t lo, uint32_t hi, uint8_t* dst,
                      uint32_t dstStride) {
  const ptrdiff_t W = ptrdiff_t(magStride);
  for (uint32_t y = 0; y < height; ++y) {
    const int16_t* rx = RowAt(gx, gradStride, y);
    const int16_t* ry = RowAt(gy, gradStride, y);
    uint8_t* out = RowAt(dst, dstStride, y);
    const uint32_t* m = mag + y * magStride;
    for (uint32_t x = 0; x < width; ++x) {
      const uint32_t v = m[x];
      uint8_t cls = 0;
      if (v > lo) {
        ptrdiff_t o;
        uint32_t strict = 0;
        switch (DirectionOf(rx[x], ry[x])) {
          case Dir::kHorizontal: o = 1; break;
          case Dir::kVertical: o = W; break;
          default:
            o = (rx[x] >= 0) == (ry[x] >= 0) ? W + 1 : W - 1;
            strict = 1;
        }
        if (v > m[x - o] && uint64_t(v) >= uint64_t(m[x + o]) + strict) cls = v > hi ? 255 : 128;
      }
      out[x] = cls;
    }
  }
}

int32_t CannyAperture(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int32_t low,
                      int32_t high, int32_t norm, uint8_t* dst, uint32_t dstStride, int16_t* gx, int16_t* gy,
                      uint32_t gradStride, SobelStage sobel, MagnitudeStage magnitude, ClassifyStage classify) {
  int32_t status = sobel(src, width, height, srcStride, gx, gy, gradStride, kBorderReplicate, 0);
  if (status != TVX_SUCCESS) return status;
  auto clampAbs = [](int32_t t) -> uint32_t {
    const int64_t a = t < 0 ? -int64_t(t) : t;
    return static_cast<uint32_t>(a > 32767 ? 32767 : a);
  };
  uint32_t lo = clampAbs(low), hi = clampAbs(high);
  if (norm == 1) lo *= lo, hi *= hi;
  // Magnitudes in 32 unsigned bits (twice 32768 squared does not fit a signed int), in a
  // buffer with a one-pixel frame of zeros: pixels outside the image count as magnitude 0.
  const size_t W = size_t(width) + 2;
  std::vector<uint32_t> magBuf(W * (size_t(height) + 2), 0);
  uint32_t* mag = magBuf.data() + W + 1;
  magnitude(gx, gy, gradStride, width, height, norm == 1, mag, W);
  classify(gx, gy, gradStride, mag, W, width, height, lo, hi, dst, dstStride);
  // Strong pixels start the trace.
  std::vector<uint32_t> stack;
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* out = RowAt(dst, dstStride, y);
    for (uint32_t x = 0; x < width; ++x)
      if (out[x] == 255) stack.push_back(y * width + x);
  }
  while (!stack.empty()) {
    const uint32_t p = stack.back();
    stack.pop_back();
    const int64_t px = p % width, py = p / width;
    for (int ddy = -1; ddy <= 1; ++ddy) {
      for (int ddx = -1; ddx <= 1; ++ddx) {
        const int64_t nx = px + ddx, ny = py + ddy;
        if (nx < 0 || ny < 0 || nx >= width || ny >= height) continue;
        uint8_t& o = RowAt(dst, dstStride, ny)[nx];
        if (o != 128) continue;
        o = 255;
        stack.push_back(uint32_t(ny * width + nx));
      }
    }
  }
  // The final map keeps strong pixels (at or above 129) only.
  for (uint32_t y = 0; y < height; ++y) {
    uint8_t* out = RowAt(dst, dstStride, y);
    for (uint32_t x = 0; x < width; ++x) out[x] = out[x] >= 129 ? 255 : 0;
  }
  return TVX_SUCCESS;
}

}  // namespace tvx::canny

namespace {

int32_t GradientStageC(const uint8_t* s, uint32_t width, uint32_t height, int32_t* mag, uint8_t* flags, int16_t* gx,
                       int16_t* gy, uint32_t gradStride) {
  int32_t maxMag = 0;
  const size_t w = width;
  for (uint32_t y = 1; y + 1 < height; ++y) {
    for (uint32_t x = 1; x + 1 < width; ++x) {
      const size_t p = y * w + x;
      const int32_t h = int32_t(s[p + 1]) - s[p - 1];
      const int32_t v = int32_t(s[p + w]) - s[p - w];
      const int32_t m = h * h + v * v;
      const uint8_t code = CannyDirection(h, v);
      mag[p] = m;
      flags[p] = code;
      if (m > maxMag) maxMag = m;
      if (gx) {
        RowAt(gx, gradStride, y)[x] = static_cast<int16_t>(h);
        RowAt(gy, gradStride, y)[x] = static_cast<int16_t>(v);
      }
    }
  }
  return maxMag;
}

}  // namespace

void tvxFilterCanny3x3u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride, uint32_t low, uint32_t high) {
  tvx::canny::Canny3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride, nullptr, nullptr, 0, low, high,
                       tvxFilterGaussian3x3u8_v2C, GradientStageC, tvx::canny::NonMaximumFlags);
}

void tvxFilterCanny3x3u8_v3C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride, int16_t* gx, int16_t* gy, uint32_t gradStride,
                             uint32_t low, uint32_t high) {
  tvx::canny::Canny3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride, gx, gy, gradStride, low, high,
                       tvxFilterGaussian3x3u8_v2C, GradientStageC, tvx::canny::NonMaximumFlags);
}

int32_t tvxFilterCannyu8C(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int32_t kernelSize,
                          int32_t low, int32_t high, int32_t norm, uint8_t* dst, uint32_t dstStride, int16_t* gx,
                          int16_t* gy, uint32_t gradStride) {
  tvx::canny::SobelStage sobel = kernelSize == 3   ? tvxFilterSobel3x3u8s16C
                                 : kernelSize == 5 ? tvxFilterSobel5x5u8s16C
                                 : kernelSize == 7 ? tvxFilterSobel7x7u8s16C
                                                   : nullptr;
  if (!sobel || norm > 1 || low > high) return TVX_BAD_PARAMETER;
  return tvx::canny::CannyAperture(src, width, height, srcStride, low, high, norm, dst, dstStride, gx, gy, gradStride,
                                   sobel, tvx::canny::ApertureMagnitude, tvx::canny::ApertureClassify);
}

void tvxImageDetectEdgePixelsu8C(const int16_t* gxgy, uint32_t width, uint32_t height, uint32_t gxgyStride,
                                 const uint8_t* mag, uint32_t magStride, uint8_t threshold, uint32_t capacity,
                                 uint32_t* nEdgePixels, uint32_t* coordEdgePixels) {
  uint32_t count = 0;
  for (uint32_t y = 1; y + 1 < height && count < capacity; ++y) {
    const int16_t* g = RowAt(gxgy, gxgyStride, y);
    const uint8_t* m = RowAt(mag, magStride, y);
    for (uint32_t x = 1; x + 1 < width && count < capacity; ++x) {
      if (m[x] < threshold) continue;
      auto around = [&](int ddx, int ddy) { return RowAt(mag, magStride, int64_t(y) + ddy)[x + ddx]; };
      if (!tvx::canny::IsDirectionalMaximum(m[x], g[2 * x], g[2 * x + 1], around)) continue;
      coordEdgePixels[2 * count] = x;
      coordEdgePixels[2 * count + 1] = y;
      ++count;
    }
  }
  *nEdgePixels = count;
}
