// Reference variants of the 2-D FFT of a byte image and its inverse: radix-2 float transforms of
// every row, then of every column, over interleaved (re, im) pairs. The inverse conjugates its
// input, runs the forward transform and keeps the real part scaled by 1 / (width * height).
#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

#include "cpu/fft_plan.h"
#include "frame/frame.h"

namespace tvxfft {

const Plan& PlanFor(uint32_t bits) {
  struct Store {
    std::once_flag once;
    Plan plan;
    std::vector<uint32_t> reversed;
    std::vector<float> twiddle;
  };
  static Store stores[31];
  Store& s = stores[bits];
  std::call_once(s.once, [&s, bits] {
    const uint32_t n = uint32_t{1} << bits;
    s.reversed.resize(n);
    for (uint32_t i = 0; i < n; ++i) {
      uint32_t r = 0;
      for (uint32_t b = 0; b < bits; ++b) r |= ((i >> b) & 1u) << (bits - 1 - b);
      s.reversed[i] = r;
    }
    s.twiddle.resize(2 * size_t{n});
    for (uint32_t m = 1; m < n; m *= 2)
      for (uint32_t j = 0; j < m; ++j) {
        const double angle = -M_PI * j / m;
        s.twiddle[2 * (m - 1 + j)] = static_cast<float>(std::cos(angle));
        s.twiddle[2 * (m - 1 + j) + 1] = static_cast<float>(std::sin(angle));
      }
    s.plan.n = n;
    s.plan.bits = bits;
    s.plan.reversed = s.reversed.data();
    s.plan.twiddle = s.twiddle.data();
  });
  return s.plan;
}

}  // namespace tvxfft

namespace {

// Columns of a plane of rows of `width` complex values: rows swapped into bit-reversed order,
// then the butterflies down every column.
void ColumnPass(float* plane, size_t rowFloats, uint32_t width, uint32_t height) {
  const tvxfft::Plan& p = tvxfft::PlanFor(tvxfft::Log2(height));
  for (uint32_t y = 0; y < height; ++y) {
    const uint32_t r = p.reversed[y];
    if (r > y)
      for (uint32_t i = 0; i < 2 * width; ++i) std::swap(plane[y * rowFloats + i], plane[r * rowFloats + i]);
  }
  const uint32_t step = static_cast<uint32_t>(rowFloats / 2);
  for (uint32_t x = 0; x < width; ++x) tvxfft::Stages(p, plane + 2 * x, step);
}

// Rows already holding their bit-reversed complex input: butterflies along each row, then columns.
void Transform2D(float* plane, size_t rowFloats, uint32_t width, uint32_t height) {
  const tvxfft::Plan& p = tvxfft::PlanFor(tvxfft::Log2(width));
  for (uint32_t y = 0; y < height; ++y) tvxfft::Stages(p, plane + y * rowFloats, 1);
  ColumnPass(plane, rowFloats, width, height);
}

}  // namespace

int32_t tvxFFTu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, float* dst,
                  uint32_t dstStride) {
  const tvxfft::Plan& p = tvxfft::PlanFor(tvxfft::Log2(srcWidth));
  const size_t rowFloats = dstStride / 4;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* in = src + size_t{y} * srcStride;
    float* out = dst + y * rowFloats;
    for (uint32_t x = 0; x < srcWidth; ++x) {
      out[2 * p.reversed[x]] = in[x];
      out[2 * p.reversed[x] + 1] = 0.0f;
    }
  }
  Transform2D(dst, rowFloats, srcWidth, srcHeight);
  return 0;
}

int32_t tvxIFFTf32C(const float* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, float* dst,
                    uint32_t dstStride) {
  const size_t rowFloats = 2 * size_t{srcWidth};
  const uint64_t bytes = uint64_t{rowFloats} * srcHeight * sizeof(float);
  float* plane = bytes <= UINT32_MAX ? static_cast<float*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 64))
                                     : nullptr;
  if (!plane) return 5;
  const tvxfft::Plan& p = tvxfft::PlanFor(tvxfft::Log2(srcWidth));
  const size_t srcStep = srcStride / 4, dstStep = dstStride / 4;
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const float* in = src + y * srcStep;
    float* row = plane + y * rowFloats;
    for (uint32_t x = 0; x < srcWidth; ++x) {
      row[2 * p.reversed[x]] = in[2 * x];
      row[2 * p.reversed[x] + 1] = -in[2 * x + 1];
    }
  }
  Transform2D(plane, rowFloats, srcWidth, srcHeight);
  const float scale = 1.0f / (static_cast<float>(srcWidth) * static_cast<float>(srcHeight));
  for (uint32_t y = 0; y < srcHeight; ++y)
    for (uint32_t x = 0; x < srcWidth; ++x) dst[y * dstStep + x] = plane[y * rowFloats + 2 * x] * scale;
  tvxReleaseScratchBuffer_(plane);
  return 0;
}
