// SIMD variants of the general scaler and the M-to-N area scaler. Every output row first blends
// its source rows down the columns in 16-bit lanes (bilinear: two rows at 1/256; area: the
// covered rows, weights adding up to 256, so sums stay below 65281) into a row buffer. The
// bilinear pass across then fetches both neighbours of each output with one 32-bit gather from
// that buffer (padded by the border column either side) and blends in 32-bit lanes. Nearest
// neighbour gathers through a column table; the area pass across gathers each covered pixel.
// Exact halvings, where bilinear and area both reduce to rounded 2x2 means, take a direct path.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/scale_general.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>
#include <vector>

#include "cpu/scale_general_taps.h"
#include "cpu/scale_taps.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

inline const uint8_t* GeneralRow(const uint8_t* base, uint32_t stride, int64_t y) {
  return base + static_cast<size_t>(y) * stride;
}
inline uint8_t* GeneralRow(uint8_t* base, uint32_t stride, int64_t y) { return base + static_cast<size_t>(y) * stride; }

// Exact halving: the bilinear and area weights are then 128 and 128 on both axes, so every
// output is the rounded mean of its 2x2 block, (a + b + c + d + 2) >> 2.
void HalveRows(const uint8_t* r0, const uint8_t* r1, uint32_t outWidth, uint8_t* out) {
  const hn::ScalableTag<uint8_t> d8;
  const hn::Repartition<uint16_t, decltype(d8)> d16;
  const size_t N = hn::Lanes(d8);
  const auto low = hn::Set(d16, 0x00FF), two = hn::Set(d16, 2);
  const auto means = [&](size_t offset) {  // one u16 lane per output
    const auto a = hn::BitCast(d16, hn::LoadU(d8, r0 + offset));
    const auto b = hn::BitCast(d16, hn::LoadU(d8, r1 + offset));
    const auto sum = hn::Add(hn::Add(hn::And(a, low), hn::ShiftRight<8>(a)), hn::Add(hn::And(b, low), hn::ShiftRight<8>(b)));
    return hn::ShiftRight<2>(hn::Add(sum, two));
  };
  size_t x = 0;
  for (; x + N <= outWidth; x += N) {
    const auto lo = means(2 * x), hi = means(2 * x + N);
    hn::StoreU(hn::ConcatEven(d8, hn::BitCast(d8, hi), hn::BitCast(d8, lo)), d8, out + x);
  }
  for (; x < outWidth; ++x) out[x] = static_cast<uint8_t>((r0[2 * x] + r0[2 * x + 1] + r1[2 * x] + r1[2 * x + 1] + 2) >> 2);
}

bool Halves(uint32_t srcWidth, uint32_t srcHeight, uint32_t dstWidth, uint32_t dstHeight) {
  return srcWidth == 2 * uint64_t{dstWidth} && srcHeight == 2 * uint64_t{dstHeight};
}

void Halve(const uint8_t* src, uint32_t srcStride, uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight,
           uint32_t dstStride) {
  for (uint32_t y = 0; y < dstHeight; ++y)
    HalveRows(GeneralRow(src, srcStride, 2 * y), GeneralRow(src, srcStride, 2 * y + 1), dstWidth, GeneralRow(dst, dstStride, y));
}

void NearestScale(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                  uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  const hn::ScalableTag<int32_t> d32;
  const hn::Rebind<uint8_t, decltype(d32)> dq;
  const size_t Q = hn::Lanes(d32);
  const auto byte = hn::Set(d32, 0xFF);
  std::vector<int32_t> columns(dstWidth);
  uint32_t gatherEnd = 0;  // outputs before it read columns[x] + 3 < srcWidth (columns only grow)
  for (uint32_t x = 0; x < dstWidth; ++x) {
    columns[x] = static_cast<int32_t>(tvxscale::NearestIndex(x, srcWidth, dstWidth));
    if (uint64_t(columns[x]) + 4 <= srcWidth) gatherEnd = x + 1;
  }
  uint32_t previous = 0;
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const uint32_t sy = tvxscale::NearestIndex(y, srcHeight, dstHeight);
    uint8_t* out = GeneralRow(dst, dstStride, y);
    if (y > 0 && sy == previous) {  // the same source row: repeat the previous output row
      std::memcpy(out, GeneralRow(dst, dstStride, y - 1), dstWidth);
      continue;
    }
    const uint8_t* in = GeneralRow(src, srcStride, sy);
    // 32-bit gathers keep the low byte; they run while the 4 bytes read stay inside the row.
    uint32_t x = 0;
    for (; x + Q <= gatherEnd; x += Q) {
      const auto g = hn::GatherOffset(d32, reinterpret_cast<const int32_t*>(in), hn::LoadU(d32, columns.data() + x));
      hn::StoreU(hn::DemoteTo(dq, hn::And(g, byte)), dq, out + x);
    }
    for (; x < dstWidth; ++x) out[x] = in[columns[x]];
    previous = sy;
  }
}

void BilinearScale(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                   uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t borderType,
                   uint8_t borderValue) {
  if (Halves(srcWidth, srcHeight, dstWidth, dstHeight)) return Halve(src, srcStride, dst, dstWidth, dstHeight, dstStride);
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8h;
  const hn::ScalableTag<uint32_t> d32;
  const hn::Rebind<int32_t, decltype(d32)> di32;
  const hn::Rebind<uint8_t, decltype(d32)> dq;
  const size_t H = hn::Lanes(d16), Q = hn::Lanes(d32);
  const bool replicate = borderType == 2;

  // Column x reads blend[i0 + 1] and blend[i0 + 2]: blend[0] and blend[srcWidth + 1] are the
  // columns outside the image.
  // The padding past blend[srcWidth + 1] keeps the window loads below inside the buffer.
  std::vector<uint16_t> blend(srcWidth + 2 + 2 * Q + 2);
  std::vector<int32_t> offsets(dstWidth);
  std::vector<uint32_t> wx(dstWidth);
  for (uint32_t x = 0; x < dstWidth; ++x) {
    const tvxsg::EdgeTap t = tvxsg::LinearAt(x, srcWidth, dstWidth);
    offsets[x] = (t.i0 + 1) * 2;
    wx[x] = t.w;
  }
  // Gathers are slow (and emulated on Arm), so a vector of Q outputs whose tap pairs start
  // within 2Q columns of an even column `start` reads them with two window loads instead: the
  // pairs starting at even columns (start, start + 2, ...) and at odd ones (start + 1, ...),
  // each permuted by lane. windowStart is -1 where the taps spread wider (strong reductions).
  std::vector<int32_t> windowStart(dstWidth / Q), windowLane(dstWidth);
  std::vector<uint32_t> oddColumn(dstWidth);
  for (size_t v = 0; v < windowStart.size(); ++v) {
    const int32_t start = offsets[v * Q] / 2 & ~1;
    windowStart[v] = (offsets[v * Q + Q - 1] / 2 - start) >> 1 < static_cast<int32_t>(Q) ? start : -1;
    for (size_t x = v * Q; x < v * Q + Q; ++x) {
      windowLane[x] = (offsets[x] / 2 - start) >> 1;
      oddColumn[x] = offsets[x] / 2 % 2 ? ~0u : 0u;
    }
  }
  const std::vector<uint8_t> borderRow(replicate ? 0 : srcWidth, borderValue);
  const auto rowAt = [&](int64_t y) {
    if (y >= 0 && y < srcHeight) return GeneralRow(src, srcStride, y);
    return replicate ? GeneralRow(src, srcStride, tvxsg::Clamp(y, srcHeight)) : borderRow.data();
  };
  const uint32_t* pairs = reinterpret_cast<const uint32_t*>(blend.data());
  const auto half = hn::Set(di32, 32768);
  const auto low = hn::Set(d32, 0xFFFF);

  for (uint32_t y = 0; y < dstHeight; ++y) {
    const tvxsg::EdgeTap ty = tvxsg::LinearAt(y, srcHeight, dstHeight);
    const uint8_t* r0 = rowAt(ty.i0);
    const uint8_t* r1 = rowAt(int64_t{ty.i0} + 1);
    uint16_t* cols = blend.data() + 1;
    const auto w1 = hn::Set(d16, static_cast<uint16_t>(ty.w)), w0 = hn::Set(d16, static_cast<uint16_t>(256 - ty.w));
    size_t i = 0;
    for (; i + H <= srcWidth; i += H) {
      const auto a = hn::PromoteTo(d16, hn::LoadU(d8h, r0 + i)), b = hn::PromoteTo(d16, hn::LoadU(d8h, r1 + i));
      hn::StoreU(hn::Add(hn::Mul(a, w0), hn::Mul(b, w1)), d16, cols + i);
    }
    for (; i < srcWidth; ++i) cols[i] = static_cast<uint16_t>((256 - ty.w) * r0[i] + ty.w * r1[i]);
    blend[0] = replicate ? cols[0] : static_cast<uint16_t>(256 * borderValue);
    blend[srcWidth + 1] = replicate ? cols[srcWidth - 1] : static_cast<uint16_t>(256 * borderValue);

    uint8_t* out = GeneralRow(dst, dstStride, y);
    size_t x = 0;
    for (; x + Q <= dstWidth; x += Q) {
      hn::Vec<decltype(d32)> g;
      const int32_t start = windowStart[x / Q];
      if (start >= 0) {
        const auto lane = hn::IndicesFromVec(d32, hn::LoadU(di32, windowLane.data() + x));
        const auto even = hn::LoadU(d32, pairs + start / 2);
        const auto odd = hn::BitCast(d32, hn::LoadU(d16, blend.data() + start + 1));
        g = hn::IfThenElse(hn::MaskFromVec(hn::LoadU(d32, oddColumn.data() + x)), hn::TableLookupLanes(odd, lane),
                           hn::TableLookupLanes(even, lane));
      } else {
        g = hn::GatherOffset(d32, pairs, hn::LoadU(di32, offsets.data() + x));
      }
      const auto w = hn::LoadU(d32, wx.data() + x);
      // (256 - w) * c0 + w * c1 == 256 * c0 + w * (c1 - c0): one multiplication, never negative.
      const auto c0 = hn::BitCast(di32, hn::And(g, low)), c1 = hn::BitCast(di32, hn::ShiftRight<16>(g));
      const auto sum = hn::Add(hn::Add(hn::ShiftLeft<8>(c0), hn::Mul(hn::BitCast(di32, w), hn::Sub(c1, c0))), half);
      hn::StoreU(hn::DemoteTo(dq, hn::ShiftRight<16>(sum)), dq, out + x);
    }
    for (; x < dstWidth; ++x) {
      const uint16_t* t = blend.data() + offsets[x] / 2;
      out[x] = static_cast<uint8_t>(((256 - wx[x]) * uint32_t{t[0]} + wx[x] * uint32_t{t[1]} + 32768) >> 16);
    }
  }
}

// Area averaging of pixels of ch interleaved bytes.
void AreaScale(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
               uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t ch) {
  if (ch == 1 && Halves(srcWidth, srcHeight, dstWidth, dstHeight))
    return Halve(src, srcStride, dst, dstWidth, dstHeight, dstStride);
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8h;
  const size_t H = hn::Lanes(d16);
  const tvxsg::AreaTaps tx = tvxsg::AreaWeights(srcWidth, dstWidth);
  const tvxsg::AreaTaps ty = tvxsg::AreaWeights(srcHeight, dstHeight);
  const size_t rowBytes = static_cast<size_t>(srcWidth) * ch;
  // The pass across runs every output over the same number of tap slots (the most any output
  // covers); slots past an output's own pixels weigh 0 and read the zero padding.
  uint32_t slots = 0;
  for (uint32_t x = 0; x < dstWidth; ++x) slots = tx.count[x] > slots ? tx.count[x] : slots;
  std::vector<int32_t> offsets(dstWidth);  // byte offset of each output's first pixel
  std::vector<uint32_t> slotWeights(static_cast<size_t>(slots) * dstWidth, 0);
  for (uint32_t x = 0; x < dstWidth; ++x) {
    offsets[x] = static_cast<int32_t>(tx.first[x] * 2 * ch);
    for (uint32_t k = 0; k < tx.count[x]; ++k) slotWeights[static_cast<size_t>(k) * dstWidth + x] = tx.weight[tx.start[x] + k];
  }
  std::vector<uint16_t> acc(rowBytes + (slots + 1) * ch, 0);
  const hn::ScalableTag<uint32_t> d32;
  const hn::Rebind<int32_t, decltype(d32)> di32;
  const hn::Rebind<uint8_t, decltype(d32)> dq;
  const size_t Q = hn::Lanes(d32);
  const uint32_t* words = reinterpret_cast<const uint32_t*>(acc.data());
  const auto low = hn::Set(d32, 0xFFFF), half = hn::Set(d32, 32768);
  for (uint32_t y = 0; y < dstHeight; ++y) {
    const uint16_t* wy = ty.weight.data() + ty.start[y];
    const uint8_t* first = GeneralRow(src, srcStride, ty.first[y]);
    size_t i = 0;
    for (; i + H <= rowBytes; i += H) {
      auto v = hn::Mul(hn::PromoteTo(d16, hn::LoadU(d8h, first + i)), hn::Set(d16, wy[0]));
      for (uint32_t j = 1; j < ty.count[y]; ++j) {
        const uint8_t* r = GeneralRow(src, srcStride, ty.first[y] + j);
        v = hn::Add(v, hn::Mul(hn::PromoteTo(d16, hn::LoadU(d8h, r + i)), hn::Set(d16, wy[j])));
      }
      hn::StoreU(v, d16, acc.data() + i);
    }
    for (; i < rowBytes; ++i) {
      uint32_t v = 0;
      for (uint32_t j = 0; j < ty.count[y]; ++j) v += wy[j] * uint32_t{GeneralRow(src, srcStride, ty.first[y] + j)[i]};
      acc[i] = static_cast<uint16_t>(v);
    }
    uint8_t* out = GeneralRow(dst, dstStride, y);
    uint32_t x = 0;
    for (; x + Q <= dstWidth; x += Q) {
      const auto off = hn::LoadU(di32, offsets.data() + x);
      auto s0 = half, s1 = half;
      for (uint32_t k = 0; k < slots; ++k) {
        // One pixel per gather: a planar value and its neighbour, or both bytes of a pair.
        const auto g = hn::GatherOffset(d32, words, hn::Add(off, hn::Set(di32, static_cast<int32_t>(2 * ch * k))));
        const auto w = hn::LoadU(d32, slotWeights.data() + static_cast<size_t>(k) * dstWidth + x);
        s0 = hn::Add(s0, hn::Mul(w, hn::And(g, low)));
        if (ch == 2) s1 = hn::Add(s1, hn::Mul(w, hn::ShiftRight<16>(g)));
      }
      const auto v0 = hn::DemoteTo(dq, hn::BitCast(di32, hn::ShiftRight<16>(s0)));
      if (ch == 1) {
        hn::StoreU(v0, dq, out + x);
      } else {
        hn::StoreInterleaved2(v0, hn::DemoteTo(dq, hn::BitCast(di32, hn::ShiftRight<16>(s1))), dq, out + 2 * x);
      }
    }
    for (; x < dstWidth; ++x) {
      const uint16_t* w = tx.weight.data() + tx.start[x];
      const uint16_t* a = acc.data() + static_cast<size_t>(tx.first[x]) * ch;
      for (uint32_t c = 0; c < ch; ++c) {
        uint32_t sum = 32768;
        for (uint32_t k = 0; k < tx.count[x]; ++k) sum += uint32_t{w[k]} * a[k * ch + c];
        out[x * ch + c] = static_cast<uint8_t>(sum >> 16);
      }
    }
  }
}

}  // namespace

int32_t GeneralScaleu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t interpolation,
                       uint32_t borderType, uint8_t borderValue) {
  switch (interpolation) {
    case 0:
      NearestScale(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride);
      return 0;
    case 1:
      BilinearScale(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, borderType, borderValue);
      return 0;
    case 2:
      AreaScale(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, 1);
      return 0;
    default:
      return 3;
  }
}

void GeneralAreau8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                   uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t ch) {
  AreaScale(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, ch);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(GeneralScaleu8);
HWY_EXPORT(GeneralAreau8);
}  // namespace tvx

using namespace tvx;

int32_t tvxScaleu8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t interpolation,
                       uint32_t borderType, uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(GeneralScaleu8)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride,
                                              interpolation, borderType, borderValue);
}
int32_t tvxScaleu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t interpolation) {
  return HWY_DYNAMIC_DISPATCH(GeneralScaleu8)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride,
                                              interpolation, 0, 0);
}
void tvxScaleDownMNu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(GeneralAreau8)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, 1);
}
void tvxScaleDownMNInterleaveu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(GeneralAreau8)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, 2);
}
#endif  // HWY_ONCE
