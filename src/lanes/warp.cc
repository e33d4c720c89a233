// SIMD variants of the perspective warps and the affine transforms. Each destination row is
// done in two passes. The first writes the row's fixed-point source positions into two int32
// buffers: lane by lane with the same float operations as the reference (IEEE mul, add, div and
// floor), except on ARMv7, whose vector division is an estimate and whose vector unit flushes
// subnormals, so the scalar rule runs there. The second pass samples: where a whole vector of
// positions has its neighbourhood inside the source it gathers 32-bit words (a pixel and its
// right neighbour, or four RGB pixels) and blends in 32-bit lanes; where a whole vector lies
// outside it stores the border value; mixed vectors use the scalar sampling rule. The
// three-channel warp's positions come from the float running sums of the reference, a short
// scalar pass; its float blends then run in lanes.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/warp.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>
#include <vector>

#include "cpu/warp_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace warp {
namespace hn = hwy::HWY_NAMESPACE;

using tvxwarp::Border;
using tvxwarp::Plane;

template <class V>
HWY_INLINE auto AtLeast(V a, V b) -> decltype(hn::Lt(a, b)) { return hn::Not(hn::Lt(a, b)); }
template <class V>
HWY_INLINE auto AtMost(V a, V b) -> decltype(hn::Lt(a, b)) { return hn::Not(hn::Gt(a, b)); }

// 32-bit gather offsets must not wrap: the vector paths need the whole plane below 2 GiB.
inline bool GatherFits(const Plane& p) { return uint64_t{p.stride} * p.height + 16 < (uint64_t{1} << 31); }

#if !HWY_ARCH_ARM_V7
// Lane-wise positions of one row: the reference's float operations on a vector of columns.
struct PositionLanes {
  using DF = hn::ScalableTag<float>;
  using DI = hn::RebindToSigned<DF>;
  using VF = hn::Vec<DF>;
  using VI = hn::Vec<DI>;
  VF m0, m3, m6, cx, cy, cw, lim, nlim, half, k32;
  VI far;
  bool affine;  // W is exactly 1, r exactly 32

  explicit PositionLanes(const tvxwarp::RowForms& f) {
    const DF df;
    const DI di;
    m0 = hn::Set(df, f.m0);
    m3 = hn::Set(df, f.m3);
    m6 = hn::Set(df, f.m6);
    cx = hn::Set(df, f.cx);
    cy = hn::Set(df, f.cy);
    cw = hn::Set(df, f.cw);
    lim = hn::Set(df, tvxwarp::kLimit);
    nlim = hn::Set(df, -tvxwarp::kLimit);
    half = hn::Set(df, 0.5f);
    k32 = hn::Set(df, 32.0f);
    far = hn::Set(di, tvxwarp::kFar);
    affine = f.m6 == 0.0f && f.cw == 1.0f;
  }
  // Columns xi (below 2^24, so exact as floats) to positions U, V.
  HWY_INLINE void At(VI xi, VI& u, VI& v) const {
    const DF df;
    const DI di;
    const auto xf = hn::ConvertTo(df, xi);
    const auto X = hn::Add(hn::Mul(m0, xf), cx);
    const auto Y = hn::Add(hn::Mul(m3, xf), cy);
    const auto r = affine ? k32 : hn::Div(k32, hn::Add(hn::Mul(m6, xf), cw));
    const auto U = hn::Mul(X, r), V = hn::Mul(Y, r);
    const auto ok = hn::And(hn::And(hn::Gt(U, nlim), hn::Lt(U, lim)), hn::And(hn::Gt(V, nlim), hn::Lt(V, lim)));
    const auto oki = hn::RebindMask(di, ok);
    // Out-of-range lanes are replaced before conversion so no lane converts a NaN or a huge value.
    const auto Uc = hn::IfThenElseZero(ok, hn::Add(U, half)), Vc = hn::IfThenElseZero(ok, hn::Add(V, half));
    u = hn::IfThenElse(oki, hn::ConvertTo(di, hn::Floor(Uc)), far);
    v = hn::IfThenElse(oki, hn::ConvertTo(di, hn::Floor(Vc)), far);
  }
};
#endif

// Positions of columns x0, x0 + step, ... of the row whose forms are f.
void Positions(const tvxwarp::RowForms& f, uint32_t x0, uint32_t step, uint32_t count, int32_t* u, int32_t* v) {
#if HWY_ARCH_ARM_V7
  tvxwarp::PositionRow(f, x0, step, count, u, v);
#else
  if (uint64_t{x0} + uint64_t{step} * count >= (uint64_t{1} << 24)) {  // float columns stay exact
    tvxwarp::PositionRow(f, x0, step, count, u, v);
    return;
  }
  const PositionLanes lanes(f);
  const PositionLanes::DI di;
  const size_t N = hn::Lanes(di);
  const auto lane = hn::Mul(hn::Iota(di, 0), hn::Set(di, static_cast<int32_t>(step)));
  uint32_t i = 0;
  for (; i + N <= count; i += N) {
    PositionLanes::VI U, V;
    lanes.At(hn::Add(lane, hn::Set(di, static_cast<int32_t>(x0 + i * step))), U, V);
    hn::StoreU(U, di, u + i);
    hn::StoreU(V, di, v + i);
  }
  for (; i < count; ++i) tvxwarp::PositionAt(f, static_cast<float>(x0 + i * step), u + i, v + i);
#endif
}

// One row of CH-channel (1 or 2) samples at the given positions.
template <int CH>
void SampleRow(const Plane& p, const int32_t* u, const int32_t* v, uint32_t count, uint8_t* out, const Border& b,
               uint32_t interpolation) {
  const hn::ScalableTag<int32_t> di;
  const hn::Rebind<uint8_t, decltype(di)> d8;
  const size_t N = hn::Lanes(di);
  uint32_t i = 0;
  if (GatherFits(p)) {
    const int32_t* base = reinterpret_cast<const int32_t*>(p.data);
    const auto stride = hn::Set(di, static_cast<int32_t>(p.stride));
    const auto mask5 = hn::Set(di, tvxwarp::kFracMask), byte = hn::Set(di, 0xFF);
    const auto round = hn::Set(di, 512), sixteen = hn::Set(di, 16);
    // A 4-byte word from column x holds columns x .. x + 4 / CH - 1: it must fit the row.
    const int64_t lastWordX = int64_t{p.width} - 4 / CH;
    const bool bilinear = interpolation == tvxwarp::kBilinear;
    const int64_t lastY = int64_t{p.height} - (bilinear ? 2 : 1);
    const auto xSpan = hn::Set(di, static_cast<int32_t>(lastWordX < 0 ? -1 : lastWordX));
    const auto ySpan = hn::Set(di, static_cast<int32_t>(lastY));
    const auto zero = hn::Zero(di);
    const auto widthV = hn::Set(di, static_cast<int32_t>(p.width)), heightV = hn::Set(di, static_cast<int32_t>(p.height));
    const auto fill = hn::Set(d8, static_cast<uint8_t>(b.kind == tvxwarp::kBorderConstant ? b.value : 0));
    const int32_t reach = bilinear ? 1 : 0;  // a neighbourhood spans x .. x + reach
    for (; i + N <= count; i += N) {
      auto U = hn::LoadU(di, u + i), V = hn::LoadU(di, v + i);
      if (!bilinear) {
        U = hn::Add(U, sixteen);
        V = hn::Add(V, sixteen);
      }
      const auto x = hn::ShiftRight<tvxwarp::kFracBits>(U), y = hn::ShiftRight<tvxwarp::kFracBits>(V);
      const auto inside = hn::And(hn::And(AtLeast(x, zero), AtMost(x, xSpan)), hn::And(AtLeast(y, zero), AtMost(y, ySpan)));
      if (hn::AllTrue(di, inside)) {
        const auto off = hn::Add(hn::Mul(y, stride), hn::Mul(x, hn::Set(di, CH)));
        const auto top = hn::GatherOffset(di, base, off);
        if (!bilinear) {
          if (CH == 1) {
            hn::StoreU(hn::DemoteTo(d8, hn::And(top, byte)), d8, out + i);
          } else {
            hn::StoreInterleaved2(hn::DemoteTo(d8, hn::And(top, byte)),
                                  hn::DemoteTo(d8, hn::And(hn::ShiftRight<8>(top), byte)), d8, out + 2 * i);
          }
          continue;
        }
        const auto bottom = hn::GatherOffset(di, base, hn::Add(off, stride));
        const auto fx = hn::And(U, mask5), fy = hn::And(V, mask5);
        const auto blend = [&](int shiftA) {
          // Channel byte at shiftA of the pixel, its right neighbour CH bytes on.
          const auto a0 = hn::And(hn::ShiftRightSame(top, shiftA), byte);
          const auto b0 = hn::And(hn::ShiftRightSame(top, shiftA + 8 * CH), byte);
          const auto a1 = hn::And(hn::ShiftRightSame(bottom, shiftA), byte);
          const auto b1 = hn::And(hn::ShiftRightSame(bottom, shiftA + 8 * CH), byte);
          const auto t = hn::Add(hn::ShiftLeft<tvxwarp::kFracBits>(a0), hn::Mul(fx, hn::Sub(b0, a0)));
          const auto d = hn::Add(hn::ShiftLeft<tvxwarp::kFracBits>(a1), hn::Mul(fx, hn::Sub(b1, a1)));
          const auto o = hn::Add(hn::Add(hn::ShiftLeft<tvxwarp::kFracBits>(t), hn::Mul(fy, hn::Sub(d, t))), round);
          return hn::DemoteTo(d8, hn::ShiftRight<10>(o));
        };
        if (CH == 1) {
          hn::StoreU(blend(0), d8, out + i);
        } else {
          hn::StoreInterleaved2(blend(0), blend(8), d8, out + 2 * i);
        }
        continue;
      }
      if (b.kind != tvxwarp::kBorderReplicate) {
        // No neighbour of any lane inside: x + reach < 0 or x >= width, likewise for y.
        const auto outX = hn::Or(hn::Lt(hn::Add(x, hn::Set(di, reach)), zero), AtLeast(x, widthV));
        const auto outY = hn::Or(hn::Lt(hn::Add(y, hn::Set(di, reach)), zero), AtLeast(y, heightV));
        if (hn::AllTrue(di, hn::Or(outX, outY))) {
          if (CH == 1) {
            hn::StoreU(fill, d8, out + i);
          } else {
            hn::StoreInterleaved2(fill, fill, d8, out + 2 * i);
          }
          continue;
        }
      }
      for (uint32_t k = i; k < i + N; ++k)
        for (int c = 0; c < CH; ++c) out[k * CH + c] = tvxwarp::Sample(p, u[k], v[k], c, b, interpolation);
    }
  }
  for (; i < count; ++i)
    for (int c = 0; c < CH; ++c) out[i * CH + c] = tvxwarp::Sample(p, u[i], v[i], c, b, interpolation);
}

// Bilinear single-channel row from a row-pair copy of the source: pair row y holds, for every
// column x, the bytes (src(x, y), src(x, y + 1)), so one 32-bit word at column x brings all
// four neighbours p00, p10, p01, p11 and one gather serves a lane.
void SampleRowPairs(const Plane& p, const uint8_t* pairs, const int32_t* u, const int32_t* v, uint32_t count, uint8_t* out,
                    const Border& b) {
  const hn::ScalableTag<int32_t> di;
  const hn::Rebind<uint8_t, decltype(di)> d8;
  const size_t N = hn::Lanes(di);
  const int32_t* base = reinterpret_cast<const int32_t*>(pairs);
  const auto pairStride = hn::Set(di, static_cast<int32_t>(2 * p.width));
  const auto mask5 = hn::Set(di, tvxwarp::kFracMask), byte = hn::Set(di, 0xFF), round = hn::Set(di, 512);
  const auto zero = hn::Zero(di), one = hn::Set(di, 1);
  const auto xSpan = hn::Set(di, static_cast<int32_t>(p.width) - 2), ySpan = hn::Set(di, static_cast<int32_t>(p.height) - 2);
  const auto widthV = hn::Set(di, static_cast<int32_t>(p.width)), heightV = hn::Set(di, static_cast<int32_t>(p.height));
  const auto fill = hn::Set(d8, static_cast<uint8_t>(b.kind == tvxwarp::kBorderConstant ? b.value : 0));
  const auto scalar = [&](uint32_t k) { out[k] = tvxwarp::Bilinear(p, u[k], v[k], 0, b); };
  uint32_t i = 0;
  for (; i + N <= count; i += N) {
    const auto U = hn::LoadU(di, u + i), V = hn::LoadU(di, v + i);
    const auto x = hn::ShiftRight<tvxwarp::kFracBits>(U), y = hn::ShiftRight<tvxwarp::kFracBits>(V);
    const auto inside = hn::And(hn::And(AtLeast(x, zero), AtMost(x, xSpan)), hn::And(AtLeast(y, zero), AtMost(y, ySpan)));
    if (hn::AllTrue(di, inside)) {
      const auto w = hn::GatherOffset(di, base, hn::Add(hn::Mul(y, pairStride), hn::ShiftLeft<1>(x)));
      const auto fx = hn::And(U, mask5), fy = hn::And(V, mask5);
      const auto a0 = hn::And(w, byte), a1 = hn::And(hn::ShiftRight<8>(w), byte);
      const auto b0 = hn::And(hn::ShiftRight<16>(w), byte), b1 = hn::And(hn::ShiftRight<24>(w), byte);
      const auto t = hn::Add(hn::ShiftLeft<tvxwarp::kFracBits>(a0), hn::Mul(fx, hn::Sub(b0, a0)));
      const auto d = hn::Add(hn::ShiftLeft<tvxwarp::kFracBits>(a1), hn::Mul(fx, hn::Sub(b1, a1)));
      const auto o = hn::Add(hn::Add(hn::ShiftLeft<tvxwarp::kFracBits>(t), hn::Mul(fy, hn::Sub(d, t))), round);
      hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<10>(o)), d8, out + i);
      continue;
    }
    if (b.kind != tvxwarp::kBorderReplicate) {
      const auto outX = hn::Or(hn::Lt(hn::Add(x, one), zero), AtLeast(x, widthV));
      const auto outY = hn::Or(hn::Lt(hn::Add(y, one), zero), AtLeast(y, heightV));
      if (hn::AllTrue(di, hn::Or(outX, outY))) {
        hn::StoreU(fill, d8, out + i);
        continue;
      }
    }
    for (uint32_t k = i; k < i + N; ++k) scalar(k);
  }
  for (; i < count; ++i) scalar(i);
}

// The row-pair copy (2 srcWidth bytes per row; the last row pairs with zeros), or null when
// it does not pay or no scratch buffer is free. The caller releases it.
uint8_t* MakePairs(const Plane& p, uint32_t dstWidth, uint32_t dstHeight) {
  const uint64_t bytes = 2 * uint64_t{p.width} * p.height;
  // Worth a pass over the source when the destination is at least a quarter of its size.
  if (p.width < 2 || p.height < 2 || bytes + 16 >= (uint64_t{1} << 31) ||
      4 * uint64_t{dstWidth} * dstHeight < uint64_t{p.width} * p.height || uint64_t{dstWidth} * dstHeight < 4096)
    return nullptr;
  uint8_t* pairs = static_cast<uint8_t*>(tvxGetScratchBufferAligned_(static_cast<uint32_t>(bytes), 64));
  if (!pairs) return nullptr;
  const hn::ScalableTag<uint8_t> d8;
  const size_t N = hn::Lanes(d8);
  for (uint32_t y = 0; y < p.height; ++y) {
    const uint8_t* r0 = p.data + static_cast<size_t>(y) * p.stride;
    const uint8_t* r1 = y + 1 < p.height ? r0 + p.stride : nullptr;
    uint8_t* o = pairs + static_cast<size_t>(y) * 2 * p.width;
    uint32_t x = 0;
    if (r1) {
      for (; x + N <= p.width; x += N) hn::StoreInterleaved2(hn::LoadU(d8, r0 + x), hn::LoadU(d8, r1 + x), d8, o + 2 * x);
    }
    for (; x < p.width; ++x) {
      o[2 * x] = r0[x];
      o[2 * x + 1] = r1 ? r1[x] : 0;
    }
  }
  return pairs;
}

// Destinations are done in tiles of kTileRows x kTileCols, so that under a strong rotation a
// tile's source footprint stays in cache; full-HD rows fit one tile (narrower tiles measured no
// faster there, as every row segment pays the per-call set-up of the passes again).
constexpr uint32_t kTileRows = 64, kTileCols = 2048;

void WarpPlane(const Plane& src, uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* M,
               uint32_t interpolation, const Border& border, int32_t shift) {
  const uint32_t cols = dstWidth < kTileCols ? dstWidth : kTileCols;
  std::vector<int32_t> u(cols), v(cols);
  uint8_t* pairs = interpolation == tvxwarp::kBilinear && shift == 0 ? MakePairs(src, dstWidth, dstHeight) : nullptr;
  for (uint32_t y0 = 0; y0 < dstHeight; y0 += kTileRows) {
    const uint32_t y1 = dstHeight - y0 < kTileRows ? dstHeight : y0 + kTileRows;
    for (uint32_t x0 = 0; x0 < dstWidth; x0 += cols) {
      const uint32_t n = dstWidth - x0 < cols ? dstWidth - x0 : cols;
      for (uint32_t y = y0; y < y1; ++y) {
        uint8_t* out = dst + static_cast<size_t>(y) * dstStride + x0;
        Positions(tvxwarp::FormsAt(M, static_cast<float>(y)), x0, 1, n, u.data(), v.data());
        if (pairs) {
          SampleRowPairs(src, pairs, u.data(), v.data(), n, out, border);
          continue;
        }
        if (shift != 0) {
          for (uint32_t x = 0; x < n; ++x) {
            if (u[x] == tvxwarp::kFar) continue;
            u[x] += shift * tvxwarp::kFracOne;
            v[x] += shift * tvxwarp::kFracOne;
          }
        }
        SampleRow<1>(src, u.data(), v.data(), n, out, border, interpolation);
      }
    }
  }
  if (pairs) tvxReleaseScratchBuffer_(pairs);
}

void WarpChroma(const Plane& chroma, uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                const float* M) {
  const uint32_t cw = (dstWidth + 1) / 2, chh = (dstHeight + 1) / 2;
  std::vector<int32_t> u(cw), v(cw);
  const Border neutral{tvxwarp::kBorderConstant, 128};
  for (uint32_t cy = 0; cy < chh; ++cy) {
    Positions(tvxwarp::FormsAt(M, static_cast<float>(2 * cy)), 0, 2, cw, u.data(), v.data());
    for (uint32_t x = 0; x < cw; ++x) {
      u[x] >>= 1;
      v[x] >>= 1;
    }
    SampleRow<2>(chroma, u.data(), v.data(), cw, dst + static_cast<size_t>(cy) * dstStride, neutral, tvxwarp::kBilinear);
  }
}

// The three-channel float warp: scalar running sums per row, float blends in lanes.
void Warp3(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
           uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* M) {
  const hn::ScalableTag<int32_t> di;
  const hn::RebindToUnsigned<decltype(di)> du;
  const hn::Rebind<float, decltype(di)> df;
  const hn::Rebind<uint8_t, decltype(di)> d8;
  const size_t N = hn::Lanes(di);
  const bool vectors = srcWidth >= 2 && srcHeight >= 2 && GatherFits({src, srcWidth, srcHeight, srcStride, 3});
  std::vector<uint32_t> iu(dstWidth), iv(dstWidth);
  std::vector<float> fx(dstWidth), fy(dstWidth);
  const uint32_t* base = reinterpret_cast<const uint32_t*>(src);
  const auto stride = hn::Set(di, static_cast<int32_t>(srcStride));
  const auto byte = hn::Set(du, 0xFF), skip = hn::Set(du, tvxwarp::kSkip);
  tvxwarp::Forms3 f{M[2], M[5], M[8]};
  for (uint32_t y = 0; y < dstHeight; ++y) {
    tvxwarp::ThreeChannelRow(M, f, srcWidth, srcHeight, dstWidth, iu.data(), iv.data(), fx.data(), fy.data());
    uint8_t* out = dst + static_cast<size_t>(y) * dstStride;
    uint32_t x = 0;
    if (vectors) {
      for (; x + N <= dstWidth; x += N) {
        const auto rowV = hn::LoadU(du, iv.data() + x);
        const auto valid = hn::RebindMask(di, hn::Ne(rowV, skip));
        // Skipped lanes read from offset 0: inside the image (two rows of at least six bytes).
        const auto off = hn::IfThenElseZero(
            valid, hn::Add(hn::Mul(hn::BitCast(di, rowV), stride), hn::Mul(hn::BitCast(di, hn::LoadU(du, iu.data() + x)), hn::Set(di, 3))));
        const auto two = hn::Set(di, 2);
        const auto g00 = hn::BitCast(du, hn::GatherOffset(du, base, off));
        const auto g01 = hn::ShiftRight<8>(hn::BitCast(du, hn::GatherOffset(du, base, hn::Add(off, two))));
        const auto g10 = hn::BitCast(du, hn::GatherOffset(du, base, hn::Add(off, stride)));
        const auto g11 = hn::ShiftRight<8>(hn::BitCast(du, hn::GatherOffset(du, base, hn::Add(hn::Add(off, stride), two))));
        const auto vx = hn::LoadU(df, fx.data() + x), vy = hn::LoadU(df, fy.data() + x);
        const auto channel = [&](int shift) {
          const auto p00 = hn::BitCast(di, hn::And(hn::ShiftRightSame(g00, shift), byte));
          const auto p01 = hn::BitCast(di, hn::And(hn::ShiftRightSame(g01, shift), byte));
          const auto p10 = hn::BitCast(di, hn::And(hn::ShiftRightSame(g10, shift), byte));
          const auto p11 = hn::BitCast(di, hn::And(hn::ShiftRightSame(g11, shift), byte));
          const auto top = hn::Add(hn::ConvertTo(df, p00), hn::Mul(vx, hn::ConvertTo(df, hn::Sub(p01, p00))));
          const auto bottom = hn::Add(hn::ConvertTo(df, p10), hn::Mul(vx, hn::ConvertTo(df, hn::Sub(p11, p10))));
          const auto o = hn::Add(top, hn::Mul(vy, hn::Sub(bottom, top)));
          return hn::DemoteTo(d8, hn::IfThenElseZero(valid, hn::ConvertTo(di, o)));
        };
        hn::StoreInterleaved3(channel(0), channel(8), channel(16), d8, out + 3 * x);
      }
    }
    for (; x < dstWidth; ++x) {
      if (iv[x] == tvxwarp::kSkip) {
        out[3 * x] = out[3 * x + 1] = out[3 * x + 2] = 0;
        continue;
      }
      const uint8_t* p0 = src + static_cast<size_t>(iv[x]) * srcStride + static_cast<size_t>(iu[x]) * 3;
      const uint8_t* p1 = p0 + srcStride;
      for (int c = 0; c < 3; ++c) out[3 * x + c] = tvxwarp::Blend3(p0[c], p0[c + 3], p1[c], p1[c + 3], fx[x], fy[x]);
    }
    f.x += M[1];
    f.y += M[4];
    f.w += M[7];
  }
}

// Bicubic three-channel affine transform with taps clipped to the image.
void Bicubic3(const Plane& p, uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* M) {
  const hn::ScalableTag<int32_t> di;
  const hn::RebindToUnsigned<decltype(di)> du;
  const hn::Rebind<uint8_t, decltype(di)> d8;
  const size_t N = hn::Lanes(di);
  const tvxwarp::CubicTable& table = tvxwarp::Cubic();
  const bool vectors = GatherFits(p);
  const uint32_t* base = reinterpret_cast<const uint32_t*>(p.data);
  std::vector<int32_t> u(dstWidth), v(dstWidth);
  const auto stride = hn::Set(di, static_cast<int32_t>(p.stride));
  const auto mask5 = hn::Set(di, tvxwarp::kFracMask), one = hn::Set(di, 1), zero = hn::Zero(di);
  const auto xLast = hn::Set(di, static_cast<int32_t>(int64_t{p.width} - 4));
  const auto yLast = hn::Set(di, static_cast<int32_t>(int64_t{p.height} - 4));
  const auto byte = hn::Set(du, 0xFF);
  const auto round = hn::Set(di, 1 << (2 * tvxwarp::kCubicBits - 1));
  for (uint32_t y = 0; y < dstHeight; ++y) {
    Positions(tvxwarp::FormsAt(M, static_cast<float>(y)), 0, 1, dstWidth, u.data(), v.data());
    uint8_t* out = dst + static_cast<size_t>(y) * dstStride;
    uint32_t x = 0;
    if (vectors && p.width >= 4 && p.height >= 4) {
      for (; x + N <= dstWidth; x += N) {
        const auto U = hn::LoadU(di, u.data() + x), V = hn::LoadU(di, v.data() + x);
        // First tap column and row: x - 1 and y - 1, all four inside the image.
        const auto x0 = hn::Sub(hn::ShiftRight<tvxwarp::kFracBits>(U), one);
        const auto y0 = hn::Sub(hn::ShiftRight<tvxwarp::kFracBits>(V), one);
        const auto inside = hn::And(hn::And(AtLeast(x0, zero), AtMost(x0, xLast)), hn::And(AtLeast(y0, zero), AtMost(y0, yLast)));
        if (!hn::AllTrue(di, inside)) {
          for (uint32_t k = x; k < x + N; ++k)
            for (uint32_t c = 0; c < 3; ++c) out[3 * k + c] = tvxwarp::Bicubic(p, u[k], v[k], c);
          continue;
        }
        const auto fx = hn::And(U, mask5), fy = hn::And(V, mask5);
        hn::Vec<decltype(di)> wx[4];
        for (int t = 0; t < 4; ++t) wx[t] = hn::GatherIndex(di, table.w[t], fx);
        auto sum0 = round, sum1 = round, sum2 = round;
        auto off = hn::Add(hn::Mul(y0, stride), hn::Mul(x0, hn::Set(di, 3)));
        for (int j = 0; j < 4; ++j) {
          // Twelve bytes: four pixels of three channels.
          hn::Vec<decltype(du)> w[3];
          for (int k = 0; k < 3; ++k) w[k] = hn::BitCast(du, hn::GatherOffset(du, base, hn::Add(off, hn::Set(di, 4 * k))));
          const auto across = [&](int c) {
            auto s = zero;
            for (int t = 0; t < 4; ++t) {
              const int at = 3 * t + c;
              const auto px = hn::BitCast(di, hn::And(hn::ShiftRightSame(w[at / 4], 8 * (at % 4)), byte));
              s = hn::Add(s, hn::Mul(wx[t], px));
            }
            return s;
          };
          const auto wy = hn::GatherIndex(di, table.w[j], fy);
          sum0 = hn::Add(sum0, hn::Mul(wy, across(0)));
          sum1 = hn::Add(sum1, hn::Mul(wy, across(1)));
          sum2 = hn::Add(sum2, hn::Mul(wy, across(2)));
          off = hn::Add(off, stride);
        }
        constexpr int kShift = 2 * tvxwarp::kCubicBits;
        hn::StoreInterleaved3(hn::DemoteTo(d8, hn::ShiftRight<kShift>(sum0)), hn::DemoteTo(d8, hn::ShiftRight<kShift>(sum1)),
                              hn::DemoteTo(d8, hn::ShiftRight<kShift>(sum2)), d8, out + 3 * x);
      }
    }
    for (; x < dstWidth; ++x)
      for (uint32_t c = 0; c < 3; ++c) out[3 * x + c] = tvxwarp::Bicubic(p, u[x], v[x], c);
  }
}

}  // namespace warp

int32_t WarpPlaneu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* M, uint32_t interpolation,
                    uint32_t borderKind, uint32_t borderValue, int32_t shift) {
  warp::WarpPlane({src, srcWidth, srcHeight, srcStride, 1}, dst, dstWidth, dstHeight, dstStride, M, interpolation,
                  {borderKind, borderValue}, shift);
  return 0;
}

int32_t Warp2Planeu8(const uint8_t* src, const uint8_t* srcUV, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                     uint32_t srcUVStride, uint8_t* dst, uint8_t* dstUV, uint32_t dstWidth, uint32_t dstHeight,
                     uint32_t dstStride, uint32_t dstUVStride, const float* M) {
  warp::WarpPlane({src, srcWidth, srcHeight, srcStride, 1}, dst, dstWidth, dstHeight, dstStride, M, tvxwarp::kBilinear,
                  {tvxwarp::kBorderZero, 0}, 0);
  warp::WarpChroma({srcUV, (srcWidth + 1) / 2, (srcHeight + 1) / 2, srcUVStride, 2}, dstUV, dstWidth, dstHeight,
                   dstUVStride, M);
  return 0;
}

int32_t Warp3Channelu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* M) {
  warp::Warp3(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M);
  return 0;
}

int32_t AffineBicubic3u8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                         uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* M) {
  warp::Bicubic3({src, srcWidth, srcHeight, srcStride, 3}, dst, dstWidth, dstHeight, dstStride, M);
  return 0;
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(WarpPlaneu8);
HWY_EXPORT(Warp2Planeu8);
HWY_EXPORT(Warp3Channelu8);
HWY_EXPORT(AffineBicubic3u8);
}  // namespace tvx

using namespace tvx;

namespace {

int32_t RunPlane(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
              uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* M, uint32_t interpolation,
              uint32_t borderKind, uint32_t borderValue, int32_t shift = 0) {
  return HWY_DYNAMIC_DISPATCH(WarpPlaneu8)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M,
                                           interpolation, borderKind, borderValue, shift);
}

int32_t Affine(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
               uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, const float* A, uint32_t interpolation,
               uint32_t borderKind, uint32_t borderValue) {
  if (interpolation > tvxwarp::kBilinear) return 6;
  float M[9];
  tvxwarp::AffineToPerspective(A, M);
  return RunPlane(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M, interpolation, borderKind,
               borderValue);
}

uint32_t BorderKind(uint32_t borderType) {
  return borderType == tvxwarp::kBorderConstant ? tvxwarp::kBorderConstant
         : borderType == tvxwarp::kBorderReplicate ? tvxwarp::kBorderReplicate
                                                   : tvxwarp::kBorderZero;
}

}  // namespace

int32_t tvxWarpPerspectiveu8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                 const float* M) {
  return RunPlane(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M, tvxwarp::kBilinear,
               tvxwarp::kBorderZero, 0);
}

int32_t tvxWarpPerspectiveu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint8_t* dst,
                              uint32_t dstWidth, uint32_t dstHeight, const float* M) {
  return tvxWarpPerspectiveu8_v2V(src, srcWidth, srcHeight, srcWidth, dst, dstWidth, dstHeight, dstWidth, M);
}

int32_t tvxWarpPerspectiveu8_v3V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                 const float* M, uint32_t interpolation, uint32_t borderType, uint32_t borderValue) {
  if (interpolation > tvxwarp::kBilinear) return 6;
  const bool constant = borderType == tvxwarp::kBorderConstant;
  return RunPlane(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M, interpolation,
               constant ? tvxwarp::kBorderConstant : tvxwarp::kBorderZero, constant ? borderValue : 0);
}

int32_t tvxWarpPerspectiveu8_v4V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                 const float* M, uint32_t interpolation, uint32_t borderType, uint32_t borderValue) {
  if (interpolation > tvxwarp::kBilinear) return 6;
  if (borderType != tvxwarp::kBorderConstant)
    return tvxWarpPerspectiveu8_v3V(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M,
                                    interpolation, borderType, borderValue);
  uint8_t* framed = tvxwarp::FramedCopy(src, srcWidth, srcHeight, srcStride, borderValue);
  if (!framed) return 5;
  const uint32_t fw = srcWidth + 2, fh = srcHeight + 2;
  RunPlane(framed, fw, fh, fw, dst, dstWidth,
        dstHeight, dstStride, M, interpolation, tvxwarp::kBorderConstant, borderValue, 1);
  tvxMemFree(framed);
  return 0;
}

int32_t tvx3ChannelWarpPerspectiveu8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                         uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                         const float* M) {
  return HWY_DYNAMIC_DISPATCH(Warp3Channelu8)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M);
}

int32_t tvx3ChannelWarpPerspectiveu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint8_t* dst,
                                      uint32_t dstWidth, uint32_t dstHeight, const float* M) {
  return tvx3ChannelWarpPerspectiveu8_v2V(src, srcWidth, srcHeight, srcWidth * 3, dst, dstWidth, dstHeight,
                                          dstWidth * 3, M);
}

int32_t tvx2PlaneWarpPerspectiveu8V(const uint8_t* src, const uint8_t* srcUV, uint32_t srcWidth, uint32_t srcHeight,
                                    uint32_t srcStride, uint32_t srcUVStride, uint8_t* dst, uint8_t* dstUV,
                                    uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t dstUVStride,
                                    const float* M) {
  return HWY_DYNAMIC_DISPATCH(Warp2Planeu8)(src, srcUV, srcWidth, srcHeight, srcStride, srcUVStride, dst, dstUV,
                                            dstWidth, dstHeight, dstStride, dstUVStride, M);
}

int32_t tvxTransformAffineClippedu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                     uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                     const float* M) {
  return Affine(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M, tvxwarp::kBilinear,
                tvxwarp::kBorderReplicate, 0);
}

int32_t tvxTransformAffineClippedu8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                        uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                        const float* M, uint32_t interpolation) {
  return Affine(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M, interpolation,
                tvxwarp::kBorderReplicate, 0);
}

int32_t tvxTransformAffineClippedu8_v3V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                        uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                        const float* M, uint32_t interpolation, uint32_t borderType,
                                        uint32_t borderValue) {
  const uint32_t kind = BorderKind(borderType);
  return Affine(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M, interpolation, kind,
                kind == tvxwarp::kBorderConstant ? borderValue : 0);
}

int32_t tvxTransformAffineu8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride,
                                 const float* M) {
  return Affine(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, M, tvxwarp::kBilinear,
                tvxwarp::kBorderZero, 0);
}

int32_t tvxTransformAffine8x8u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride, const float* M) {
  return Affine(src, srcWidth, srcHeight, srcStride, dst, 8, 8, dstStride, M, tvxwarp::kBilinear,
                tvxwarp::kBorderReplicate, 0);
}

int32_t tvx3ChannelTransformAffineClippedBCu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                               uint32_t srcStride, uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight,
                                               uint32_t dstStride, const float* A) {
  float M[9];
  tvxwarp::AffineToPerspective(A, M);
  return HWY_DYNAMIC_DISPATCH(AffineBicubic3u8)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride,
                                                M);
}
#endif  // HWY_ONCE
