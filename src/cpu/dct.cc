// Reference variants of the 8x8 block DCT of bytes and its inverse. Arithmetic is 32-bit with
// wrap-around (as the SIMD lanes do), so coefficient planes no byte image produces still give
// defined results that both tiers agree on.
#include <cstdint>

#include "cpu/wavelet_kernels.h"
#include "frame/frame.h"

namespace {

// A 32-bit integer whose sums, differences and products wrap around.
struct W32 {
  int32_t v;
};
inline W32 operator+(W32 a, W32 b) { return {static_cast<int32_t>(static_cast<uint32_t>(a.v) + static_cast<uint32_t>(b.v))}; }
inline W32 operator-(W32 a, W32 b) { return {static_cast<int32_t>(static_cast<uint32_t>(a.v) - static_cast<uint32_t>(b.v))}; }

struct ScalarOps {
  W32 Mul(W32 a, int32_t c) const { return {static_cast<int32_t>(static_cast<uint32_t>(a.v) * static_cast<uint32_t>(c))}; }
  W32 Shl13(W32 a) const { return {static_cast<int32_t>(static_cast<uint32_t>(a.v) << 13)}; }
  template <int kBits>
  W32 Desc(W32 a) const {
    return {(a + W32{1 << (kBits - 1)}).v >> kBits};
  }
};

#include "cpu/dct_lines.inc"

void ForwardBlock(const uint8_t* src, uint32_t srcStride, int16_t* dst, size_t dstStep) {
  const ScalarOps o;
  W32 rows[8][8];
  for (int r = 0; r < 8; ++r) {
    W32 in[8];
    for (int c = 0; c < 8; ++c) in[c] = W32{int32_t{src[r * srcStride + c]} - 128};
    FdctLine<11>(o, in, rows[r]);
  }
  for (int c = 0; c < 8; ++c) {
    W32 in[8], out[8];
    for (int r = 0; r < 8; ++r) in[r] = rows[r][c];
    FdctLine<18>(o, in, out);
    for (int u = 0; u < 8; ++u) dst[u * dstStep + c] = tvxwav::Sat16(out[u].v);
  }
}

void InverseBlock(const int16_t* src, size_t srcStep, uint8_t* dst, uint32_t dstStride) {
  const ScalarOps o;
  W32 cols[8][8];  // cols[c][r]: the column pass's output
  for (int c = 0; c < 8; ++c) {
    W32 in[8];
    for (int r = 0; r < 8; ++r) in[r] = W32{src[r * srcStep + c]};
    IdctLine<11>(o, in, cols[c]);
  }
  for (int r = 0; r < 8; ++r) {
    W32 in[8], out[8];
    for (int c = 0; c < 8; ++c) in[c] = cols[c][r];
    IdctLine<18>(o, in, out);
    for (int x = 0; x < 8; ++x) dst[r * dstStride + x] = tvxwav::Sat8((out[x] + W32{128}).v);
  }
}

}  // namespace

void tvxDCTu8C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
               uint32_t dstStride) {
  // The default destination stride rounds 2 * srcWidth up to 16 bytes; a smaller one computes nothing.
  const uint64_t defaultStride = (uint64_t{srcWidth} * 2 + 15) & ~uint64_t{15};
  if (dstStride < defaultStride || srcHeight == 0) return;
  const size_t dstStep = dstStride / 2;
  for (uint32_t by = 0; by + 8 <= srcHeight; by += 8)
    for (uint32_t bx = 0; bx + 8 <= srcWidth; bx += 8)
      ForwardBlock(src + size_t{by} * srcStride + bx, srcStride, dst + by * dstStep + bx, dstStep);
}

void tvxIDCTs16C(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                 uint32_t dstStride) {
  if (srcWidth == 0 || srcHeight == 0 || (srcWidth & 7) || (srcHeight & 7)) return;
  const size_t srcStep = srcStride / 2;
  for (uint32_t by = 0; by < srcHeight; by += 8)
    for (uint32_t bx = 0; bx < srcWidth; bx += 8)
      InverseBlock(src + by * srcStep + bx, srcStep, dst + size_t{by} * dstStride + bx, dstStride);
}
