// Reference variants of the integral images: padded and unpadded summed-area tables, patch
// integrals, line running sums, the tilted (45-degree) sum and the YCbCr 4:2:0 plane integrals.
// All sums wrap modulo 2^32 (the squared sums of the u64 table modulo 2^64).
#include <cstddef>
#include <cstring>

#include "frame/frame.h"

namespace {

template <typename T>
inline T* RowAt(T* base, uint32_t strideBytes, uint32_t y) {
  using Byte = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
  return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + static_cast<size_t>(y) * strideBytes);
}

// Padded sum (and optionally squared-sum) tables of a width x height window.
void Padded(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint32_t* sum, uint32_t sumStride,
            uint32_t* sqsum, uint32_t sqStride) {
  std::memset(sum, 0, (size_t{width} + 1) * 4);
  if (sqsum) std::memset(sqsum, 0, (size_t{width} + 1) * 4);
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* in = src + static_cast<size_t>(y) * srcStride;
    const uint32_t* above = RowAt(sum, sumStride, y);
    uint32_t* row = RowAt(sum, sumStride, y + 1);
    uint32_t r = 0;
    row[0] = 0;
    for (uint32_t x = 0; x < width; ++x) {
      r += in[x];
      row[x + 1] = r + above[x + 1];
    }
    if (!sqsum) continue;
    const uint32_t* sqAbove = RowAt(sqsum, sqStride, y);
    uint32_t* sqRow = RowAt(sqsum, sqStride, y + 1);
    uint32_t q = 0;
    sqRow[0] = 0;
    for (uint32_t x = 0; x < width; ++x) {
      q += uint32_t{in[x]} * in[x];
      sqRow[x + 1] = q + sqAbove[x + 1];
    }
  }
}

// Unpadded inclusive sums of bytes taken every `step` bytes.
void Unpadded(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint32_t step, uint32_t* sum,
              uint32_t sumStride) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* in = src + static_cast<size_t>(y) * srcStride;
    uint32_t* row = RowAt(sum, sumStride, y);
    const uint32_t* above = y ? RowAt(sum, sumStride, y - 1) : nullptr;
    uint32_t r = 0;
    for (uint32_t x = 0; x < width; ++x) {
      r += in[static_cast<size_t>(x) * step];
      row[x] = above ? r + above[x] : r;
    }
  }
}

void Patch(const uint8_t* src, uint32_t srcStride, uint32_t patchX, uint32_t patchY, uint32_t patchW, uint32_t patchH,
           uint32_t* sum, uint32_t sumStride, uint32_t* sqsum, uint32_t sqStride) {
  Padded(src + static_cast<size_t>(patchY) * srcStride + patchX, patchW, patchH, srcStride, sum, sumStride, sqsum, sqStride);
}

}  // namespace

void tvxIntegrateImageu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t* dst,
                             uint32_t dstStride) {
  Padded(src, srcWidth, srcHeight, srcStride, dst, dstStride, nullptr, 0);
}

void tvxIntegrateImageu8u64C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint32_t* dstIntgrl, uint64_t* dstIntgrlSqrd, uint32_t dstIntgrlStride,
                             uint32_t dstIntgrlSqrdStride) {
  Unpadded(src, srcWidth, srcHeight, srcStride, 1, dstIntgrl, dstIntgrlStride);
  for (uint32_t y = 0; y < srcHeight; ++y) {
    const uint8_t* in = src + static_cast<size_t>(y) * srcStride;
    uint64_t* row = RowAt(dstIntgrlSqrd, dstIntgrlSqrdStride, y);
    const uint64_t* above = y ? RowAt(dstIntgrlSqrd, dstIntgrlSqrdStride, y - 1) : nullptr;
    uint64_t q = 0;
    for (uint32_t x = 0; x < srcWidth; ++x) {
      q += uint32_t{in[x]} * in[x];
      row[x] = above ? q + above[x] : q;
    }
  }
}

void tvxIntegratePatchu8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint32_t patchX,
                             uint32_t patchY, uint32_t patchW, uint32_t patchH, uint32_t* intgrlImgOut,
                             uint32_t* intgrlSqrdImgOut) {
  (void)srcWidth, (void)srcHeight;
  const uint32_t pitch = (patchW + 1) * 4;
  Patch(src, srcStride, patchX, patchY, patchW, patchH, intgrlImgOut, pitch, intgrlSqrdImgOut, pitch);
}

int32_t tvxIntegratePatchu8_v3C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                uint32_t patchX, uint32_t patchY, uint32_t patchW, uint32_t patchH,
                                uint32_t* intgrlImgOut, uint32_t* intgrlSqrdImgOut, uint32_t intgrlImgStride,
                                uint32_t intgrlSqrdImgStride) {
  (void)srcWidth, (void)srcHeight;
  Patch(src, srcStride, patchX, patchY, patchW, patchH, intgrlImgOut, intgrlImgStride, intgrlSqrdImgOut,
        intgrlSqrdImgStride);
  return 0;
}

void tvxIntegratePatch12x12u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                  uint32_t patchX, uint32_t patchY, uint32_t* intgrlImgOut, uint32_t* intgrlSqrdImgOut) {
  tvxIntegratePatchu8_v2C(src, srcWidth, srcHeight, srcStride, patchX, patchY, 12, 12, intgrlImgOut, intgrlSqrdImgOut);
}

void tvxIntegratePatch18x18u8_v2C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                  uint32_t patchX, uint32_t patchY, uint32_t* intgrlImgOut, uint32_t* intgrlSqrdImgOut) {
  tvxIntegratePatchu8_v2C(src, srcWidth, srcHeight, srcStride, patchX, patchY, 18, 18, intgrlImgOut, intgrlSqrdImgOut);
}

void tvxIntegrateImageLineu8C(const uint8_t* imageIn, uint32_t length, uint32_t* intgrl, uint32_t* intgrlSqrd) {
  uint32_t r = 0, q = 0;
  for (uint32_t i = 0; i < length; ++i) {
    r += imageIn[i];
    q += uint32_t{imageIn[i]} * imageIn[i];
    intgrl[i] = r;
    intgrlSqrd[i] = q;
  }
}

void tvxIntegrateImageLine64u8C(const uint8_t* imageIn, uint32_t* intgrl, uint32_t* intgrlSqrd) {
  tvxIntegrateImageLineu8C(imageIn, 64, intgrl, intgrlSqrd);
}

// Tilted sum T(X, Y) over the upright triangle with apex (X - 1, Y - 1). With E(x) the exclusive
// prefix sum of a row (E(0) = 0, E(x) = sum of its first x bytes) and P(x) = E(x + 1),
//   T(X, Y) = A_Y(X + Y - 2) - B_Y(X - Y - 1),
//   A_Y(c) = sum over rows y < Y of P(c - y, y),   B_Y(d) = sum over rows y < Y of P(d + y, y),
// with P(x) = 0 left of the row and the row total right of it. Each row needs A on a window of
// srcWidth + 1 diagonals that moves one step right per row (the entering diagonal holds the total
// of all rows so far) and B on one that moves one step left (the entering diagonal holds 0).
void tvxTiltedIntegralu8s32C(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int32_t* dst,
                             uint32_t dstStride) {
  const uint64_t words = uint64_t{srcWidth} + srcHeight + 1;
  if (2 * words * 4 > 0xFFFFFFFFu) return;
  uint32_t* a = static_cast<uint32_t*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(2 * words * 4), 16));
  if (!a) return;
  uint32_t* b = a + words;
  std::memset(a, 0, words * 8);
  // Diagonal c of A lives at a[c + 1]; diagonal d of B at b[d + srcHeight + 1].
  std::memset(dst, 0, (size_t{srcWidth} + 1) * 4);
  uint32_t total = 0;
  for (uint32_t Y = 1; Y <= srcHeight; ++Y) {
    const uint8_t* in = src + static_cast<size_t>(Y - 1) * srcStride;
    uint32_t* aw = a + (Y - 1);                   // A at c = Y - 2 + x', x' = 0 .. srcWidth
    uint32_t* bw = b + (srcHeight + 1 - Y);  // B at d = x' - Y, x' = -1 .. srcWidth - 1
    uint32_t e = 0;
    for (uint32_t x = 0; x < srcWidth; ++x) {
      aw[x] += e;
      bw[x] += e;
      e += in[x];
    }
    total += e;
    aw[srcWidth] = total;
    bw[-1] = 0;
    int32_t* row = RowAt(dst, dstStride, Y);
    // T(X, Y) = A(X + Y - 2) - B(X - Y - 1): A at aw[X], B at bw[X - 1].
    for (uint32_t X = 0; X <= srcWidth; ++X) row[X] = static_cast<int32_t>(aw[X] - bw[static_cast<int64_t>(X) - 1]);
  }
  tvxReleaseScratchBuffer_(a);
}

void tvxIntegrateImageYCbCr420PseudoPlanaru8C(const uint8_t* srcY, const uint8_t* srcC, uint32_t srcWidth,
                                              uint32_t srcHeight, uint32_t srcYStride, uint32_t srcCStride,
                                              uint32_t* integralY, uint32_t* integralCb, uint32_t* integralCr,
                                              uint32_t integralYStride, uint32_t integralCbStride,
                                              uint32_t integralCrStride) {
  Unpadded(srcY, srcWidth, srcHeight, srcYStride, 1, integralY, integralYStride);
  Unpadded(srcC, srcWidth / 2, srcHeight / 2, srcCStride, 2, integralCb, integralCbStride);
  Unpadded(srcC + 1, srcWidth / 2, srcHeight / 2, srcCStride, 2, integralCr, integralCrStride);
}
