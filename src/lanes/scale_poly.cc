// SIMD variant of the polyphase scaler. Each output row filters its four source rows down the
// columns in signed 16-bit lanes (at most 84 * 255 in magnitude) into a row buffer padded with
// two copies of the edge pixels either side, which stands for the index clamp. The pass across
// fetches two neighbouring 16-bit values per 32-bit gather (one pixel of both bytes for pairs),
// filters in 32-bit lanes and saturates to bytes when narrowing.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/scale_poly.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <vector>

#include "cpu/scale_general_taps.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// ch is 1 (planar) or 2 (byte pairs).
void PolyScaleu8(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                 uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride, uint32_t ch) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8h;
  const hn::ScalableTag<int32_t> d32;
  const hn::Rebind<uint8_t, decltype(d32)> dq;
  const size_t H = hn::Lanes(d16), Q = hn::Lanes(d32);
  const size_t rowBytes = static_cast<size_t>(srcWidth) * ch;

  // Per output column: byte offset of pixel i0 - 1 in the padded buffer, and its four taps.
  std::vector<int32_t> offsets(dstWidth), taps(4 * static_cast<size_t>(dstWidth));
  for (uint32_t x = 0; x < dstWidth; ++x) {
    const tvxsg::PolyTap t = tvxsg::PolyAt(x, srcWidth, dstWidth);
    offsets[x] = static_cast<int32_t>((t.i0 + 1) * 2 * ch);  // pixel j sits at element (j + 2) * ch
    for (int k = 0; k < 4; ++k) taps[k * dstWidth + x] = tvxsg::kPolyTable[t.phase][k];
  }
  std::vector<int16_t> buf((static_cast<size_t>(srcWidth) + 4) * ch);
  int16_t* cols = buf.data() + 2 * ch;
  const int32_t* words = reinterpret_cast<const int32_t*>(buf.data());
  const auto round = hn::Set(d32, 2048);

  for (uint32_t y = 0; y < dstHeight; ++y) {
    const tvxsg::PolyTap ty = tvxsg::PolyAt(y, srcHeight, dstHeight);
    const uint8_t* r[4];
    for (int j = 0; j < 4; ++j)
      r[j] = src + static_cast<size_t>(tvxsg::Clamp(int64_t{ty.i0} - 1 + j, srcHeight)) * srcStride;
    const auto& t = tvxsg::kPolyTable[ty.phase];
    size_t i = 0;
    for (; i + H <= rowBytes; i += H) {
      auto v = hn::Mul(hn::PromoteTo(d16, hn::LoadU(d8h, r[0] + i)), hn::Set(d16, t[0]));
      for (int j = 1; j < 4; ++j) v = hn::Add(v, hn::Mul(hn::PromoteTo(d16, hn::LoadU(d8h, r[j] + i)), hn::Set(d16, t[j])));
      hn::StoreU(v, d16, cols + i);
    }
    for (; i < rowBytes; ++i) cols[i] = static_cast<int16_t>(t[0] * r[0][i] + t[1] * r[1][i] + t[2] * r[2][i] + t[3] * r[3][i]);
    for (uint32_t c = 0; c < ch; ++c) {
      for (uint32_t k = 0; k < 2; ++k) {
        buf[k * ch + c] = cols[c];
        buf[(srcWidth + 2 + k) * ch + c] = cols[(srcWidth - 1) * ch + c];
      }
    }

    uint8_t* out = dst + static_cast<size_t>(y) * dstStride;
    size_t x = 0;
    // Low and high signed halves of 32-bit lanes.
    const auto lo = [](auto g) { return hn::ShiftRight<16>(hn::ShiftLeft<16>(g)); };
    const auto hi = [](auto g) { return hn::ShiftRight<16>(g); };
    const auto tap = [&](int k, size_t at) { return hn::LoadU(d32, taps.data() + k * dstWidth + at); };
    if (ch == 1) {
      for (; x + Q <= dstWidth; x += Q) {
        const auto off = hn::LoadU(d32, offsets.data() + x);
        const auto g0 = hn::GatherOffset(d32, words, off);                          // pixels i0 - 1, i0
        const auto g1 = hn::GatherOffset(d32, words, hn::Add(off, hn::Set(d32, 4)));  // pixels i0 + 1, i0 + 2
        auto sum = hn::Add(hn::Mul(tap(0, x), lo(g0)), hn::Mul(tap(1, x), hi(g0)));
        sum = hn::Add(sum, hn::Add(hn::Mul(tap(2, x), lo(g1)), hn::Mul(tap(3, x), hi(g1))));
        hn::StoreU(hn::DemoteTo(dq, hn::ShiftRight<12>(hn::Add(sum, round))), dq, out + x);
      }
    } else {
      for (; x + Q <= dstWidth; x += Q) {
        const auto off = hn::LoadU(d32, offsets.data() + x);
        auto s0 = round, s1 = round;
        for (int k = 0; k < 4; ++k) {
          const auto g = hn::GatherOffset(d32, words, hn::Add(off, hn::Set(d32, 4 * k)));  // both bytes of a pixel
          s0 = hn::Add(s0, hn::Mul(tap(k, x), lo(g)));
          s1 = hn::Add(s1, hn::Mul(tap(k, x), hi(g)));
        }
        hn::StoreInterleaved2(hn::DemoteTo(dq, hn::ShiftRight<12>(s0)), hn::DemoteTo(dq, hn::ShiftRight<12>(s1)), dq,
                              out + 2 * x);
      }
    }
    for (; x < dstWidth; ++x) {
      const int16_t* p = buf.data() + offsets[x] / 2;
      for (uint32_t c = 0; c < ch; ++c) {
        int32_t sum = 2048;
        for (uint32_t k = 0; k < 4; ++k) sum += taps[k * dstWidth + x] * p[k * ch + c];
        const int32_t v = sum >> 12;
        out[x * ch + c] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
      }
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(PolyScaleu8);
}  // namespace tvx

using namespace tvx;

void tvxScaleUpPolyu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride, uint8_t* dst,
                       uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(PolyScaleu8)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, 1);
}
void tvxScaleUpPolyInterleaveu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstWidth, uint32_t dstHeight, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(PolyScaleu8)(src, srcWidth, srcHeight, srcStride, dst, dstWidth, dstHeight, dstStride, 2);
}
#endif  // HWY_ONCE
