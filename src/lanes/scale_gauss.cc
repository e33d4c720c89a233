// SIMD variants of the Gaussian steps by 2. Each output row first sums its source rows down
// the columns into a row buffer padded with the reflected edge columns, then combines that
// buffer across: reductions split it into even and odd columns with LoadInterleaved2,
// the enlargement zips even and odd outputs with StoreInterleaved2. Byte sums stay in 16-bit
// lanes (at most 65408); floats follow the reference order of additions exactly.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/scale_gauss.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <vector>

#include "cpu/scale_general_taps.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;
using tvxsg::Reflect101;

template <typename T>
const T* GaussRow(const T* base, uint32_t strideBytes, int64_t y) {
  return reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(base) + static_cast<size_t>(y) * strideBytes);
}
template <typename T>
T* GaussRow(T* base, uint32_t strideBytes, int64_t y) {
  return reinterpret_cast<T*>(reinterpret_cast<uint8_t*>(base) + static_cast<size_t>(y) * strideBytes);
}

// Pads a buffer holding column values at [pad, pad + width) with the reflect-101 columns
// -pad .. -1 and width .. width + pad - 1.
template <typename T>
void PadReflect(T* buf, uint32_t width, int pad) {
  for (int k = 1; k <= pad; ++k) {
    buf[pad - k] = buf[pad + Reflect101(-int64_t{k}, width)];
    buf[pad + width + k - 1] = buf[pad + Reflect101(int64_t{width} + k - 1, width)];
  }
}

}  // namespace

void GaussDown5u8(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                  uint32_t dstStride) {
  const uint32_t outW = width / 2, outH = height / 2;
  if (!outW || !outH) return;
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8h;
  const hn::Rebind<int16_t, decltype(d16)> di16;
  const size_t H = hn::Lanes(d16);
  std::vector<uint16_t> buf(width + 4);
  uint16_t* cols = buf.data() + 2;  // column sums, two reflected columns either side
  for (uint32_t y = 0; y < outH; ++y) {
    const uint8_t* r[5];
    for (int j = 0; j < 5; ++j) r[j] = GaussRow(src, srcStride, Reflect101(2 * int64_t{y} + j - 2, height));
    size_t i = 0;
    for (; i + H <= width; i += H) {
      const auto a = hn::PromoteTo(d16, hn::LoadU(d8h, r[0] + i)), b = hn::PromoteTo(d16, hn::LoadU(d8h, r[1] + i));
      const auto c = hn::PromoteTo(d16, hn::LoadU(d8h, r[2] + i)), d = hn::PromoteTo(d16, hn::LoadU(d8h, r[3] + i));
      const auto e = hn::PromoteTo(d16, hn::LoadU(d8h, r[4] + i));
      const auto six = hn::Add(hn::ShiftLeft<2>(c), hn::ShiftLeft<1>(c));
      hn::StoreU(hn::Add(hn::Add(hn::Add(a, e), hn::ShiftLeft<2>(hn::Add(b, d))), six), d16, cols + i);
    }
    for (; i < width; ++i) cols[i] = static_cast<uint16_t>(r[0][i] + r[4][i] + 4 * (r[1][i] + r[3][i]) + 6 * r[2][i]);
    PadReflect(buf.data(), width, 2);
    uint8_t* out = GaussRow(dst, dstStride, y);
    const auto round = hn::Set(d16, 128);
    size_t x = 0;
    for (; x + H <= outW; x += H) {
      hn::Vec<decltype(d16)> a, b, c, d, e, unused;
      hn::LoadInterleaved2(d16, buf.data() + 2 * x, a, b);  // columns 2x - 2, 2x - 1
      hn::LoadInterleaved2(d16, buf.data() + 2 * x + 2, c, d);
      hn::LoadInterleaved2(d16, buf.data() + 2 * x + 4, e, unused);
      const auto six = hn::Add(hn::ShiftLeft<2>(c), hn::ShiftLeft<1>(c));
      const auto sum = hn::Add(hn::Add(hn::Add(a, e), hn::ShiftLeft<2>(hn::Add(b, d))), hn::Add(six, round));
      hn::StoreU(hn::DemoteTo(d8h, hn::BitCast(di16, hn::ShiftRight<8>(sum))), d8h, out + x);
    }
    for (; x < outW; ++x) {
      const uint16_t* t = buf.data() + 2 * x;
      out[x] = static_cast<uint8_t>((t[0] + t[4] + 4 * (t[1] + t[3]) + 6 * t[2] + 128) >> 8);
    }
  }
}

void GaussDown5f32(const float* src, uint32_t width, uint32_t height, uint32_t srcStride, float* dst,
                   uint32_t dstStride) {
  const uint32_t outW = width / 2, outH = height / 2;
  if (!outW || !outH) return;
  const hn::ScalableTag<float> df;
  const size_t N = hn::Lanes(df);
  const auto four = hn::Set(df, 4.0f), six = hn::Set(df, 6.0f), scale = hn::Set(df, 1.0f / 256.0f);
  // ((a + e) + 4 (b + d)) + 6 c, the reference order.
  const auto binomial = [&](auto a, auto b, auto c, auto d, auto e) {
    return hn::Add(hn::Add(hn::Add(a, e), hn::Mul(four, hn::Add(b, d))), hn::Mul(six, c));
  };
  std::vector<float> buf(width + 4);
  float* cols = buf.data() + 2;
  for (uint32_t y = 0; y < outH; ++y) {
    const float* r[5];
    for (int j = 0; j < 5; ++j) r[j] = GaussRow(src, srcStride, Reflect101(2 * int64_t{y} + j - 2, height));
    size_t i = 0;
    for (; i + N <= width; i += N) {
      hn::StoreU(binomial(hn::LoadU(df, r[0] + i), hn::LoadU(df, r[1] + i), hn::LoadU(df, r[2] + i),
                          hn::LoadU(df, r[3] + i), hn::LoadU(df, r[4] + i)),
                 df, cols + i);
    }
    for (; i < width; ++i) cols[i] = ((r[0][i] + r[4][i]) + 4.0f * (r[1][i] + r[3][i])) + 6.0f * r[2][i];
    PadReflect(buf.data(), width, 2);
    float* out = GaussRow(dst, dstStride, y);
    size_t x = 0;
    for (; x + N <= outW; x += N) {
      hn::Vec<decltype(df)> a, b, c, d, e, unused;
      hn::LoadInterleaved2(df, buf.data() + 2 * x, a, b);
      hn::LoadInterleaved2(df, buf.data() + 2 * x + 2, c, d);
      hn::LoadInterleaved2(df, buf.data() + 2 * x + 4, e, unused);
      hn::StoreU(hn::Mul(binomial(a, b, c, d, e), scale), df, out + x);
    }
    for (; x < outW; ++x) {
      const float* t = buf.data() + 2 * x;
      out[x] = (((t[0] + t[4]) + 4.0f * (t[1] + t[3])) + 6.0f * t[2]) * (1.0f / 256.0f);
    }
  }
}

int32_t GaussDown3u8(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                     uint32_t dstStride) {
  const uint32_t outW = width / 2, outH = height / 2;
  if (!outW || !outH) return 0;
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8h;
  const hn::Rebind<int16_t, decltype(d16)> di16;
  const size_t H = hn::Lanes(d16);
  std::vector<uint16_t> buf(width + 2);
  uint16_t* cols = buf.data() + 1;
  for (uint32_t y = 0; y < outH; ++y) {
    const uint8_t* r0 = GaussRow(src, srcStride, Reflect101(2 * int64_t{y} - 1, height));
    const uint8_t* r1 = GaussRow(src, srcStride, 2 * int64_t{y});
    const uint8_t* r2 = GaussRow(src, srcStride, 2 * int64_t{y} + 1);
    size_t i = 0;
    for (; i + H <= width; i += H) {
      const auto a = hn::PromoteTo(d16, hn::LoadU(d8h, r0 + i)), b = hn::PromoteTo(d16, hn::LoadU(d8h, r1 + i));
      const auto c = hn::PromoteTo(d16, hn::LoadU(d8h, r2 + i));
      hn::StoreU(hn::Add(hn::Add(a, c), hn::ShiftLeft<1>(b)), d16, cols + i);
    }
    for (; i < width; ++i) cols[i] = static_cast<uint16_t>(r0[i] + 2 * r1[i] + r2[i]);
    PadReflect(buf.data(), width, 1);
    uint8_t* out = GaussRow(dst, dstStride, y);
    const auto round = hn::Set(d16, 8);
    size_t x = 0;
    for (; x + H <= outW; x += H) {
      hn::Vec<decltype(d16)> a, b, c, unused;
      hn::LoadInterleaved2(d16, buf.data() + 2 * x, a, b);  // columns 2x - 1, 2x
      hn::LoadInterleaved2(d16, buf.data() + 2 * x + 2, c, unused);
      const auto sum = hn::Add(hn::Add(a, c), hn::Add(hn::ShiftLeft<1>(b), round));
      hn::StoreU(hn::DemoteTo(d8h, hn::BitCast(di16, hn::ShiftRight<4>(sum))), d8h, out + x);
    }
    for (; x < outW; ++x) {
      const uint16_t* t = buf.data() + 2 * x;
      out[x] = static_cast<uint8_t>((t[0] + 2 * t[1] + t[2] + 8) >> 4);
    }
  }
  return 0;
}

void GaussUp5u8(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                uint32_t dstStride) {
  const hn::ScalableTag<uint16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8h;
  const hn::Rebind<int16_t, decltype(d16)> di16;
  const size_t H = hn::Lanes(d16);
  const int64_t bigW = 2 * int64_t{width}, bigH = 2 * int64_t{height};
  std::vector<uint16_t> buf(width + 2);
  uint16_t* cols = buf.data() + 1;  // column sums of source columns -1 .. width
  const auto round = hn::Set(d16, 32);
  for (int64_t Y = 0; Y < bigH; ++Y) {
    // Source rows under output row Y: the even rows of the enlarged grid within reach.
    const uint8_t* rows[3];
    uint16_t weights[3];
    int taps = 0;
    for (int k = -2; k <= 2; ++k) {
      const int32_t g = Reflect101(Y + k, bigH);
      if (g & 1) continue;
      static constexpr uint16_t kW[5] = {1, 4, 6, 4, 1};
      const uint8_t* row = GaussRow(src, srcStride, g / 2);
      int t = 0;
      while (t < taps && rows[t] != row) ++t;
      if (t == taps) {
        rows[taps] = row;
        weights[taps++] = 0;
      }
      weights[t] = static_cast<uint16_t>(weights[t] + kW[k + 2]);
    }
    size_t i = 0;
    for (; i + H <= width; i += H) {
      auto v = hn::Mul(hn::PromoteTo(d16, hn::LoadU(d8h, rows[0] + i)), hn::Set(d16, weights[0]));
      for (int t = 1; t < taps; ++t)
        v = hn::Add(v, hn::Mul(hn::PromoteTo(d16, hn::LoadU(d8h, rows[t] + i)), hn::Set(d16, weights[t])));
      hn::StoreU(v, d16, cols + i);
    }
    for (; i < width; ++i) {
      uint32_t v = 0;
      for (int t = 0; t < taps; ++t) v += weights[t] * rows[t][i];
      cols[i] = static_cast<uint16_t>(v);
    }
    // Column -1 stands for the grid column -2, column width for the grid column 2 width.
    buf[0] = cols[Reflect101(-2, bigW) / 2];
    buf[width + 1] = cols[Reflect101(bigW, bigW) / 2];
    uint8_t* out = GaussRow(dst, dstStride, Y);
    size_t x = 0;
    for (; x + H <= width; x += H) {
      const auto l = hn::LoadU(d16, buf.data() + x), c = hn::LoadU(d16, buf.data() + x + 1);
      const auto r = hn::LoadU(d16, buf.data() + x + 2);
      const auto six = hn::Add(hn::ShiftLeft<2>(c), hn::ShiftLeft<1>(c));
      const auto even = hn::ShiftRight<6>(hn::Add(hn::Add(l, r), hn::Add(six, round)));
      const auto odd = hn::ShiftRight<6>(hn::Add(hn::ShiftLeft<2>(hn::Add(c, r)), round));
      hn::StoreInterleaved2(hn::DemoteTo(d8h, hn::BitCast(di16, even)), hn::DemoteTo(d8h, hn::BitCast(di16, odd)), d8h,
                            out + 2 * x);
    }
    for (; x < width; ++x) {
      const uint16_t* t = buf.data() + x;
      out[2 * x] = static_cast<uint8_t>((t[0] + 6 * t[1] + t[2] + 32) >> 6);
      out[2 * x + 1] = static_cast<uint8_t>((4 * (t[1] + t[2]) + 32) >> 6);
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(GaussDown5u8);
HWY_EXPORT(GaussDown5f32);
HWY_EXPORT(GaussDown3u8);
HWY_EXPORT(GaussUp5u8);
}  // namespace tvx

using namespace tvx;

void tvxScaleDownBy2Gaussian5x5u8V(const uint8_t* src, uint32_t width, uint32_t height, uint8_t* dst) {
  HWY_DYNAMIC_DISPATCH(GaussDown5u8)(src, width, height, width, dst, width / 2);
}
void tvxScaleDownBy2Gaussian5x5u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                      uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(GaussDown5u8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxScaleDownBy2Gaussian5x5f32V(const float* srcImg, uint32_t width, uint32_t height, float* dst) {
  HWY_DYNAMIC_DISPATCH(GaussDown5f32)(srcImg, width, height, width * 4, dst, (width / 2) * 4);
}
void tvxScaleDownBy2Gaussian5x5f32_v2V(const float* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                       float* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(GaussDown5f32)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
int32_t tvxScaleDownBy2Gaussian3x3u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                      uint8_t* dst, uint32_t dstStride) {
  return HWY_DYNAMIC_DISPATCH(GaussDown3u8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
void tvxScaleUpBy2Gaussian5x5u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                    uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(GaussUp5u8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
#endif  // HWY_ONCE
