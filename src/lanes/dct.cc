// SIMD variants of the 8x8 block DCT and its inverse. A block is sixteen vectors of four 32-bit
// lanes (eight rows, two halves each). The pass down the columns combines whole row vectors; the
// pass along the rows transposes the block (four 4x4 transposes), runs the same combination and
// transposes back. Both passes share their steps with the reference variant, and the 32-bit
// lanes wrap around as the reference's arithmetic does.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/dct.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>

#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace dct {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::Full128<int32_t>;
using V = hn::Vec<D>;

struct VecOps {
  V Mul(V a, int32_t c) const { return (a * hn::Set(D(), c)); }
  V Shl13(V a) const { return hn::ShiftLeft<13>(a); }
  template <int kBits>
  V Desc(V a) const {
    return hn::ShiftRight<kBits>(hn::Add(a, hn::Set(D(), 1 << (kBits - 1))));
  }
};

#include "cpu/dct_lines.inc"

// In-place 4x4 transpose of r[0..3].
HWY_INLINE void Transpose4(V& r0, V& r1, V& r2, V& r3) {
  const D d;
  const V t0 = hn::InterleaveLower(d, r0, r1), t1 = hn::InterleaveLower(d, r2, r3);
  const V t2 = hn::InterleaveUpper(d, r0, r1), t3 = hn::InterleaveUpper(d, r2, r3);
  r0 = hn::ConcatLowerLower(d, t1, t0);
  r1 = hn::ConcatUpperUpper(d, t1, t0);
  r2 = hn::ConcatLowerLower(d, t3, t2);
  r3 = hn::ConcatUpperUpper(d, t3, t2);
}

// b[r][h]: row r, columns 4h..4h+3. Afterwards b[c][h]: column c, rows 4h..4h+3.
HWY_INLINE void Transpose8(V b[8][2]) {
  Transpose4(b[0][0], b[1][0], b[2][0], b[3][0]);
  Transpose4(b[4][1], b[5][1], b[6][1], b[7][1]);
  Transpose4(b[0][1], b[1][1], b[2][1], b[3][1]);
  Transpose4(b[4][0], b[5][0], b[6][0], b[7][0]);
  for (int i = 0; i < 4; ++i) {
    const V t = b[i][1];
    b[i][1] = b[4 + i][0];
    b[4 + i][0] = t;
  }
}

// One pass over all eight lines held in b (line i = b[i][0..1]), both halves.
template <int kBits, bool kInverse>
HWY_INLINE void Pass(V b[8][2]) {
  const VecOps o;
  for (int h = 0; h < 2; ++h) {
    V in[8], out[8];
    for (int i = 0; i < 8; ++i) in[i] = b[i][h];
    if (kInverse) IdctLine<kBits>(o, in, out);
    else FdctLine<kBits>(o, in, out);
    for (int i = 0; i < 8; ++i) b[i][h] = out[i];
  }
}

}  // namespace dct

void DctForwardBlocks(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dst,
                      uint32_t dstStride) {
  namespace hn = hwy::HWY_NAMESPACE;
  const dct::D d;
  const hn::Rebind<uint8_t, dct::D> d8;
  const hn::Rebind<int16_t, dct::D> d16;
  const dct::V bias = hn::Set(d, 128);
  const size_t dstStep = dstStride / 2;
  for (uint32_t by = 0; by + 8 <= height; by += 8) {
    for (uint32_t bx = 0; bx + 8 <= width; bx += 8) {
      dct::V b[8][2];
      for (int r = 0; r < 8; ++r) {
        const uint8_t* row = src + size_t{by + r} * srcStride + bx;
        b[r][0] = hn::Sub(hn::PromoteTo(d, hn::LoadU(d8, row)), bias);
        b[r][1] = hn::Sub(hn::PromoteTo(d, hn::LoadU(d8, row + 4)), bias);
      }
      dct::Transpose8(b);  // columns as vectors: the row pass combines them
      dct::Pass<11, false>(b);
      dct::Transpose8(b);  // back to rows: the column pass combines them
      dct::Pass<18, false>(b);
      for (int u = 0; u < 8; ++u) {
        int16_t* out = dst + (by + u) * dstStep + bx;
        hn::StoreU(hn::DemoteTo(d16, b[u][0]), d16, out);
        hn::StoreU(hn::DemoteTo(d16, b[u][1]), d16, out + 4);
      }
    }
  }
}

void DctInverseBlocks(const int16_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                      uint32_t dstStride) {
  namespace hn = hwy::HWY_NAMESPACE;
  const dct::D d;
  const hn::Rebind<uint8_t, dct::D> d8;
  const hn::Rebind<int16_t, dct::D> d16;
  const dct::V bias = hn::Set(d, 128);
  const size_t srcStep = srcStride / 2;
  for (uint32_t by = 0; by < height; by += 8) {
    for (uint32_t bx = 0; bx < width; bx += 8) {
      dct::V b[8][2];
      for (int r = 0; r < 8; ++r) {
        const int16_t* row = src + (by + r) * srcStep + bx;
        b[r][0] = hn::PromoteTo(d, hn::LoadU(d16, row));
        b[r][1] = hn::PromoteTo(d, hn::LoadU(d16, row + 4));
      }
      dct::Pass<11, true>(b);  // columns: rows as vectors
      dct::Transpose8(b);
      dct::Pass<18, true>(b);  // rows: columns as vectors
      dct::Transpose8(b);
      for (int r = 0; r < 8; ++r) {
        uint8_t* out = dst + size_t{by + r} * dstStride + bx;
        hn::StoreU(hn::DemoteTo(d8, hn::Add(b[r][0], bias)), d8, out);
        hn::StoreU(hn::DemoteTo(d8, hn::Add(b[r][1], bias)), d8, out + 4);
      }
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(DctForwardBlocks);
HWY_EXPORT(DctInverseBlocks);
}  // namespace tvx

using namespace tvx;

void tvxDCTu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, int16_t* dst,
               uint32_t dstStride) {
  // Same stride rule as the reference: below 2 * srcWidth rounded up to 16 bytes nothing is computed.
  const uint64_t defaultStride = (uint64_t{srcWidth} * 2 + 15) & ~uint64_t{15};
  if (dstStride < defaultStride || srcHeight == 0) return;
  HWY_DYNAMIC_DISPATCH(DctForwardBlocks)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}

void tvxIDCTs16V(const int16_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                 uint32_t dstStride) {
  if (srcWidth == 0 || srcHeight == 0 || (srcWidth & 7) || (srcHeight & 7)) return;
  HWY_DYNAMIC_DISPATCH(DctInverseBlocks)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
#endif  // HWY_ONCE
