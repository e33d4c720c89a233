// Reference variants of the bilateral filters: the windowed 5x5, 7x7 and 9x9 forms (integer
// spatial and range weights from per-call tables, an integer weighted mean) and the recursive
// form, a one-iteration domain-transform recursive filter run along rows and then columns.
#include <cmath>
#include <cstdlib>
#include <vector>

#include "cpu/bilateral_rules.h"
#include "frame/frame.h"

using namespace tvx;

namespace {

void Windowed(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
              uint32_t dstStride, int radius, float sigmaSpace, float sigmaRange) {
  bilateral::Tables t;
  bilateral::BuildTables(radius, sigmaSpace, sigmaRange, t);
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x)
      filter::Row(dst, dstStride, y)[x] = bilateral::Pixel(src, width, height, srcStride, x, y, t);
}

}  // namespace

int32_t tvxBilateralFilter5x5u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride) {
  Windowed(src, srcWidth, srcHeight, srcStride, dst, dstStride, 2, bilateral::DefaultSigmaSpace(2),
           bilateral::kDefaultSigmaRange);
  return TVX_SUCCESS;
}
int32_t tvxBilateralFilter7x7u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride) {
  Windowed(src, srcWidth, srcHeight, srcStride, dst, dstStride, 3, bilateral::DefaultSigmaSpace(3),
           bilateral::kDefaultSigmaRange);
  return TVX_SUCCESS;
}
int32_t tvxBilateralFilter9x9u8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride) {
  Windowed(src, srcWidth, srcHeight, srcStride, dst, dstStride, 4, bilateral::DefaultSigmaSpace(4),
           bilateral::kDefaultSigmaRange);
  return TVX_SUCCESS;
}

int32_t tvxBilateralFilter5x5u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t* dst, uint32_t dstStride, float32_t sigmaSpace, float32_t sigmaRange) {
  Windowed(src, srcWidth, srcHeight, srcStride, dst, dstStride, 2, sigmaSpace, sigmaRange);
  return TVX_SUCCESS;
}
int32_t tvxBilateralFilter7x7u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t* dst, uint32_t dstStride, float32_t sigmaSpace, float32_t sigmaRange) {
  Windowed(src, srcWidth, srcHeight, srcStride, dst, dstStride, 3, sigmaSpace, sigmaRange);
  return TVX_SUCCESS;
}
int32_t tvxBilateralFilter9x9u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t* dst, uint32_t dstStride, float32_t sigmaSpace, float32_t sigmaRange) {
  Windowed(src, srcWidth, srcHeight, srcStride, dst, dstStride, 4, sigmaSpace, sigmaRange);
  return TVX_SUCCESS;
}

// ---- recursive ------------------------------------------------------------------------------

namespace {

// One step of the recursion in Q8 pixels and a Q16 feedback weight a:
// out = ((1 - a) * current + a * previous), rounded.
inline uint32_t Blend(uint32_t current, uint32_t previous, uint32_t a) {
  return static_cast<uint32_t>(((65536ull - a) * current + uint64_t(a) * previous + 32768u) >> 16);
}

}  // namespace

// The feedback weight between two neighbours whose source pixels differ by d is
// round(65536 * exp(-sqrt(2) * (1 / sigmaSpace + d / sigmaRange))): smooth areas carry the
// previous output far, edges stop it. Rows are filtered left to right and back, then columns
// top to bottom and back, each pass over the previous pass's result, with the weights always
// taken from the source. Working values are Q8; the result is rounded back to bytes. Every
// pass finishes before dst is written, so the call works in place.
int32_t tvxBilateralFilterRecursiveu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                       uint8_t* dst, uint32_t dstStride, float32_t sigmaSpace, float32_t sigmaRange) {
  uint32_t weight[256];
  bilateral::RecursiveWeights(sigmaSpace, sigmaRange, weight);
  const size_t w = srcWidth, h = srcHeight;
  auto s = [&](size_t x, size_t y) { return int(filter::Row(src, srcStride, int64_t(y))[x]); };
  auto a = [&](int p, int q) { return weight[std::abs(p - q)]; };
  std::vector<uint32_t> v(w * h);
  for (size_t y = 0; y < h; ++y)
    for (size_t x = 0; x < w; ++x) v[y * w + x] = uint32_t(s(x, y)) << 8;

  for (size_t y = 0; y < h; ++y) {
    uint32_t* r = &v[y * w];
    for (size_t x = 1; x < w; ++x) r[x] = Blend(r[x], r[x - 1], a(s(x, y), s(x - 1, y)));
    for (size_t x = w - 1; x-- > 0;) r[x] = Blend(r[x], r[x + 1], a(s(x, y), s(x + 1, y)));
  }
  for (size_t x = 0; x < w; ++x) {
    for (size_t y = 1; y < h; ++y) v[y * w + x] = Blend(v[y * w + x], v[(y - 1) * w + x], a(s(x, y), s(x, y - 1)));
    for (size_t y = h - 1; y-- > 0;) v[y * w + x] = Blend(v[y * w + x], v[(y + 1) * w + x], a(s(x, y), s(x, y + 1)));
  }
  for (size_t y = 0; y < h; ++y)
    for (size_t x = 0; x < w; ++x) filter::Row(dst, dstStride, int64_t(y))[x] = static_cast<uint8_t>((v[y * w + x] + 128) >> 8);
  return TVX_SUCCESS;
}
