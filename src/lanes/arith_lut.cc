// SIMD variant of the 256-entry byte look-up table.
//
// x86: a byte shuffle looks up 16 entries, using the low four bits of each index and giving 0
// when bit 7 is set. Let t = (index & 0x7F) - 16j (wrapping) for j = 0..7: bit 7 of t is clear
// exactly when j <= h, where h = bits 4..6 of the index, and the low nibble is kept. XOR-ing the
// shuffles of j = 0..h of the tables D0 = T0, Dj = Tj ^ Tj-1 (Tj = entries 16j to 16j + 15)
// telescopes to Th; the tables D8 = T8, Dj = Tj ^ Tj-1 (j = 9..15) give T8+h the same way from
// the same indices. Bit 7 of the index picks between the two sums: 16 shuffles per vector.
// NEON: table look-ups over 4 registers (32 bytes on ARMv7, 64 on AArch64) that leave a lane
// unchanged when its index is out of range, walking the index down one table at a time.
// Other targets: the scalar loop.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/arith_lut.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include "cpu/arith_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using tvx::rules::RowOf;

#if HWY_ARCH_X86 && HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR
#define TVX_LUT_SHUFFLE 1

class ShuffleTable {
 public:
  using D = hn::ScalableTag<uint8_t>;
  using V = hn::Vec<D>;

  explicit ShuffleTable(const uint8_t* lut) {
    const D d;
    HWY_ALIGN uint8_t delta[256];
    for (int i = 0; i < 256; ++i) delta[i] = (i & 0x70) ? lut[i] ^ lut[i - 16] : lut[i];
    for (int j = 0; j < 16; ++j) table_[j] = hn::LoadDup128(d, delta + 16 * j);
  }

  HWY_INLINE V Lookup(V index) const {
    const D d;
    const hn::RebindToSigned<D> di;
    const V step = hn::Set(d, 16);
    // Both halves of the table share the indices: bit 7 cleared, then walked down by 16.
    V t = hn::And(index, hn::Set(d, 0x7F));
    V low = hn::TableLookupBytesOr0(table_[0], t);
    V high = hn::TableLookupBytesOr0(table_[8], t);
    for (int j = 1; j < 8; ++j) {
      t = hn::Sub(t, step);
      low = hn::Xor(low, hn::TableLookupBytesOr0(table_[j], t));
      high = hn::Xor(high, hn::TableLookupBytesOr0(table_[8 + j], t));
    }
    return hn::BitCast(d, hn::IfNegativeThenElse(hn::BitCast(di, index), hn::BitCast(di, high),
                                                 hn::BitCast(di, low)));
  }

 private:
  V table_[16];
};

#elif HWY_TARGET == HWY_NEON
#define TVX_LUT_SHUFFLE 1

class ShuffleTable {
 public:
  using D = hn::Full128<uint8_t>;
  using V = hn::Vec<D>;

#if HWY_ARCH_ARM_A64
  explicit ShuffleTable(const uint8_t* lut) {
    for (int k = 0; k < 4; ++k) table_[k] = vld1q_u8_x4(lut + 64 * k);
  }
  HWY_INLINE V Lookup(V index) const {
    const uint8x16_t step = vdupq_n_u8(64);
    uint8x16_t t = index.raw;
    uint8x16_t r = vqtbl4q_u8(table_[0], t);
    for (int k = 1; k < 4; ++k) {
      t = vsubq_u8(t, step);
      r = vqtbx4q_u8(r, table_[k], t);
    }
    return V(r);
  }

 private:
  uint8x16x4_t table_[4];
#else
  explicit ShuffleTable(const uint8_t* lut) {
    for (int k = 0; k < 8; ++k)
      for (int i = 0; i < 4; ++i) table_[k].val[i] = vld1_u8(lut + 32 * k + 8 * i);
  }
  HWY_INLINE V Lookup(V index) const {
    const uint8x8_t step = vdup_n_u8(32);
    uint8x8_t lo = vget_low_u8(index.raw);
    uint8x8_t hi = vget_high_u8(index.raw);
    uint8x8_t rlo = vtbl4_u8(table_[0], lo);
    uint8x8_t rhi = vtbl4_u8(table_[0], hi);
    for (int k = 1; k < 8; ++k) {
      lo = vsub_u8(lo, step);
      hi = vsub_u8(hi, step);
      rlo = vtbx4_u8(rlo, table_[k], lo);
      rhi = vtbx4_u8(rhi, table_[k], hi);
    }
    return V(vcombine_u8(rlo, rhi));
  }

 private:
  uint8x8x4_t table_[8];
#endif
};

#endif

int32_t TableLookupu8Lanes(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                           const uint8_t* lut, uint8_t* dst, uint32_t dstStride) {
#ifdef TVX_LUT_SHUFFLE
  const ShuffleTable table(lut);
  const ShuffleTable::D d;
  const size_t lanes = hn::Lanes(d);
#endif
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* s = RowOf(src, srcStride, y);
    uint8_t* o = RowOf(dst, dstStride, y);
    size_t x = 0;
#ifdef TVX_LUT_SHUFFLE
    // Two vectors per step share every table register.
    for (; x + 2 * lanes <= width; x += 2 * lanes) {
      const auto r0 = table.Lookup(hn::LoadU(d, s + x));
      const auto r1 = table.Lookup(hn::LoadU(d, s + x + lanes));
      hn::StoreU(r0, d, o + x);
      hn::StoreU(r1, d, o + x + lanes);
    }
    for (; x + lanes <= width; x += lanes) hn::StoreU(table.Lookup(hn::LoadU(d, s + x)), d, o + x);
#endif
    for (; x < width; ++x) o[x] = lut[s[x]];
  }
  return 0;
}

#undef TVX_LUT_SHUFFLE

// NOLINTNEXTLINE(google-readability-namespace-comments)
}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(TableLookupu8Lanes);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

int32_t tvxTableLookupu8V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride,
                          const uint8_t* lut, uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(TableLookupu8Lanes)(src, width, height, srcStride, lut, dst, dstStride);
}
#endif  // HWY_ONCE
