// SIMD variants of the gradient family. The 3x3 operators load the eight neighbours of a run
// of output pixels as widened lanes (16-bit for integer outputs, 32-bit for float outputs),
// combine them with the reference formula and store planar, interleaved (StoreInterleaved2),
// narrowed or converted results; the last pixels of a row use the shared per-pixel rules. The
// full-size 3x3 Sobel computes both planes in one pass over three bordered rows; the 5x5 and
// 7x7 run a vertical pass per output row into a padded row of 16-bit column sums (border
// columns from the border rule) and a horizontal pass over it, in 32-bit lanes with a
// saturating narrow for the 7x7 kernel.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/gradient.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstring>
#include <vector>

#include "cpu/gradient_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace tvx::gradient;

// ---- 3x3 operators --------------------------------------------------------------------------

template <class V>
struct WindowV {
  V a, b, c, d, f, g, h, i;
};

struct CentralOp {
  template <class D, class V>
  static void Vec(D, const WindowV<V>& w, V& gx, V& gy) {
    gx = hn::Sub(w.f, w.d);
    gy = hn::Sub(w.h, w.b);
  }
  static Pair Scalar(const Window<int32_t>& w) { return Central(w); }
};
struct SobelOp {
  template <class D, class V>
  static void Vec(D, const WindowV<V>& w, V& gx, V& gy) {
    const V fd = hn::Sub(w.f, w.d), hb = hn::Sub(w.h, w.b);
    gx = hn::Add(hn::Add(hn::Sub(w.c, w.a), hn::Add(fd, fd)), hn::Sub(w.i, w.g));
    gy = hn::Add(hn::Add(hn::Sub(w.g, w.a), hn::Add(hb, hb)), hn::Sub(w.i, w.c));
  }
  static Pair Scalar(const Window<int32_t>& w) { return Sobel(w); }
};
struct ScharrOp {
  template <class D, class V>
  static void Vec(D d, const WindowV<V>& w, V& gx, V& gy) {
    const V three = hn::Set(d, 3), ten = hn::Set(d, 10);
    gx = hn::Add(hn::Mul(hn::Add(hn::Sub(w.c, w.a), hn::Sub(w.i, w.g)), three), hn::Mul(hn::Sub(w.f, w.d), ten));
    gy = hn::Add(hn::Mul(hn::Add(hn::Sub(w.g, w.a), hn::Sub(w.i, w.c)), three), hn::Mul(hn::Sub(w.h, w.b), ten));
  }
  static Pair Scalar(const Window<int32_t>& w) { return Scharr(w); }
};

// Runs k over every interior row: full vectors of lanes L, then the scalar rule for the rest.
// Output index i is column i + 1; its window spans columns i .. i + 2, so a vector at i reads
// up to column i + N + 1, inside the row while i + N <= width - 2.
template <typename L, class K>
void Rows3x3(const K& k, const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride) {
  if (width < 3 || height < 3) return;
  const hn::ScalableTag<L> d;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const size_t N = hn::Lanes(d), n = width - 2;
  for (uint32_t y = 1; y + 1 < height; ++y) {
    const uint8_t* up = RowAt(src, srcStride, y - 1);
    const uint8_t* mid = RowAt(src, srcStride, y);
    const uint8_t* down = RowAt(src, srcStride, y + 1);
    size_t i = 0;
    for (; i + N <= n; i += N) {
      auto ld = [&](const uint8_t* p) { return hn::PromoteTo(d, hn::LoadU(d8, p)); };
      const WindowV<decltype(ld(up))> w = {ld(up + i),  ld(up + i + 1),   ld(up + i + 2),  ld(mid + i),
                                           ld(mid + i + 2), ld(down + i), ld(down + i + 1), ld(down + i + 2)};
      k.Vec(d, y, i, w);
    }
    for (; i < n; ++i) k.Scalar(y, i, WindowAt<int32_t>(up, mid, down, uint32_t(i + 1)));
  }
}

template <class Op, int kShift>
struct InterleavedS16 {
  int16_t* out;
  uint32_t stride;
  template <class D, class V>
  void Vec(D d, uint32_t y, size_t i, const WindowV<V>& w) const {
    V gx, gy;
    Op::Vec(d, w, gx, gy);
    hn::StoreInterleaved2(hn::ShiftRight<kShift>(gx), hn::ShiftRight<kShift>(gy), d,
                          RowAt(out, stride, y - 1) + 2 * i);
  }
  void Scalar(uint32_t y, size_t i, const Window<int32_t>& w) const {
    const Pair p = Op::Scalar(w);
    int16_t* row = RowAt(out, stride, y - 1);
    row[2 * i] = static_cast<int16_t>(p.x >> kShift);
    row[2 * i + 1] = static_cast<int16_t>(p.y >> kShift);
  }
};

template <class Op, int kShift>
struct PlanarS16 {
  int16_t *dx, *dy;
  uint32_t stride;
  template <class D, class V>
  void Vec(D d, uint32_t y, size_t i, const WindowV<V>& w) const {
    V gx, gy;
    Op::Vec(d, w, gx, gy);
    hn::StoreU(hn::ShiftRight<kShift>(gx), d, RowAt(dx, stride, y) + 1 + i);
    hn::StoreU(hn::ShiftRight<kShift>(gy), d, RowAt(dy, stride, y) + 1 + i);
  }
  void Scalar(uint32_t y, size_t i, const Window<int32_t>& w) const {
    const Pair p = Op::Scalar(w);
    RowAt(dx, stride, y)[1 + i] = static_cast<int16_t>(p.x >> kShift);
    RowAt(dy, stride, y)[1 + i] = static_cast<int16_t>(p.y >> kShift);
  }
};

struct PlanarS8 {
  int8_t *dx, *dy;
  uint32_t stride;
  template <class D, class V>
  void Vec(D d, uint32_t y, size_t i, const WindowV<V>& w) const {
    V gx, gy;
    SobelOp::Vec(d, w, gx, gy);
    const hn::Rebind<int8_t, D> d8;
    hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<3>(gx)), d8, RowAt(dx, stride, y) + 1 + i);
    hn::StoreU(hn::DemoteTo(d8, hn::ShiftRight<3>(gy)), d8, RowAt(dy, stride, y) + 1 + i);
  }
  void Scalar(uint32_t y, size_t i, const Window<int32_t>& w) const {
    const Pair p = Sobel(w);
    RowAt(dx, stride, y)[1 + i] = static_cast<int8_t>(p.x >> 3);
    RowAt(dy, stride, y)[1 + i] = static_cast<int8_t>(p.y >> 3);
  }
};

// Float outputs from 32-bit lanes: the integer result converted, then scaled when kEighth.
template <class Op, bool kEighth, bool kInterleaved>
struct FloatOut {
  float *dx, *dy;  // interleaved: pairs in dx
  uint32_t stride;
  static float Conv(int32_t v) { return kEighth ? static_cast<float>(v) * 0.125f : static_cast<float>(v); }
  template <class D, class V>
  void Vec(D d, uint32_t y, size_t i, const WindowV<V>& w) const {
    V gx, gy;
    Op::Vec(d, w, gx, gy);
    const hn::Rebind<float, D> df;
    auto fx = hn::ConvertTo(df, gx), fy = hn::ConvertTo(df, gy);
    if (kEighth) {
      fx = hn::Mul(fx, hn::Set(df, 0.125f));
      fy = hn::Mul(fy, hn::Set(df, 0.125f));
    }
    if (kInterleaved) {
      hn::StoreInterleaved2(fx, fy, df, RowAt(dx, stride, y - 1) + 2 * i);
    } else {
      hn::StoreU(fx, df, RowAt(dx, stride, y) + 1 + i);
      hn::StoreU(fy, df, RowAt(dy, stride, y) + 1 + i);
    }
  }
  void Scalar(uint32_t y, size_t i, const Window<int32_t>& w) const {
    const Pair p = Op::Scalar(w);
    if (kInterleaved) {
      float* row = RowAt(dx, stride, y - 1);
      row[2 * i] = Conv(p.x);
      row[2 * i + 1] = Conv(p.y);
    } else {
      RowAt(dx, stride, y)[1 + i] = Conv(p.x);
      RowAt(dy, stride, y)[1 + i] = Conv(p.y);
    }
  }
};

struct Magnitude {
  uint8_t* dst;
  uint32_t stride;
  template <class D, class V>
  void Vec(D d, uint32_t y, size_t i, const WindowV<V>& w) const {
    V gx, gy;
    SobelOp::Vec(d, w, gx, gy);
    const hn::Rebind<uint8_t, D> d8;
    hn::StoreU(hn::DemoteTo(d8, hn::Add(hn::Abs(gx), hn::Abs(gy))), d8, RowAt(dst, stride, y) + 1 + i);
  }
  void Scalar(uint32_t y, size_t i, const Window<int32_t>& w) const { RowAt(dst, stride, y)[1 + i] = SobelMagnitude(w); }
};

void GradInterleavedS16(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, int16_t* out, uint32_t os) {
  Rows3x3<int16_t>(InterleavedS16<CentralOp, 0>{out, os}, src, w, h, s);
}
void GradPlanarS16(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, int16_t* dx, int16_t* dy, uint32_t os) {
  Rows3x3<int16_t>(PlanarS16<CentralOp, 0>{dx, dy, os}, src, w, h, s);
}
void GradInterleavedF32(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, float* out, uint32_t os) {
  Rows3x3<int32_t>(FloatOut<CentralOp, false, true>{out, nullptr, os}, src, w, h, s);
}
void GradPlanarF32(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, float* dx, float* dy, uint32_t os) {
  Rows3x3<int32_t>(FloatOut<CentralOp, false, false>{dx, dy, os}, src, w, h, s);
}
void SobelInterleavedS16(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, int16_t* out, uint32_t os) {
  Rows3x3<int16_t>(InterleavedS16<SobelOp, 3>{out, os}, src, w, h, s);
}
void SobelInterleavedS16Raw(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, int16_t* out, uint32_t os) {
  Rows3x3<int16_t>(InterleavedS16<SobelOp, 0>{out, os}, src, w, h, s);
}
void SobelInterleavedF32(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, float* out, uint32_t os) {
  Rows3x3<int32_t>(FloatOut<SobelOp, true, true>{out, nullptr, os}, src, w, h, s);
}
void SobelPlanarS16(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, int16_t* dx, int16_t* dy, uint32_t os) {
  Rows3x3<int16_t>(PlanarS16<SobelOp, 3>{dx, dy, os}, src, w, h, s);
}
void SobelPlanarS16Raw(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, int16_t* dx, int16_t* dy,
                       uint32_t os) {
  Rows3x3<int16_t>(PlanarS16<SobelOp, 0>{dx, dy, os}, src, w, h, s);
}
void SobelPlanarS8(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, int8_t* dx, int8_t* dy, uint32_t os) {
  Rows3x3<int16_t>(PlanarS8{dx, dy, os}, src, w, h, s);
}
void SobelPlanarF32(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, float* dx, float* dy, uint32_t os) {
  Rows3x3<int32_t>(FloatOut<SobelOp, true, false>{dx, dy, os}, src, w, h, s);
}
void ScharrInterleavedS16(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, int16_t* out, uint32_t os) {
  Rows3x3<int16_t>(InterleavedS16<ScharrOp, 0>{out, os}, src, w, h, s);
}
void SobelMagnitudeU8(const uint8_t* src, uint32_t w, uint32_t h, uint32_t s, uint8_t* dst, uint32_t ds) {
  Rows3x3<int16_t>(Magnitude{dst, ds}, src, w, h, s);
}

// Float input: the same float operations in the same order as the reference.
void SobelPlanarF32F32(const float* src, uint32_t width, uint32_t height, uint32_t srcStride, float* dx, float* dy,
                       uint32_t os) {
  if (width < 3 || height < 3) return;
  const hn::ScalableTag<float> d;
  const size_t N = hn::Lanes(d), n = width - 2;
  const auto two = hn::Set(d, 2.0f), eighth = hn::Set(d, 0.125f);
  for (uint32_t y = 1; y + 1 < height; ++y) {
    const float* up = RowAt(src, srcStride, y - 1);
    const float* mid = RowAt(src, srcStride, y);
    const float* down = RowAt(src, srcStride, y + 1);
    float* ox = RowAt(dx, os, y) + 1;
    float* oy = RowAt(dy, os, y) + 1;
    size_t i = 0;
    for (; i + N <= n; i += N) {
      const auto a = hn::LoadU(d, up + i), b = hn::LoadU(d, up + i + 1), c = hn::LoadU(d, up + i + 2);
      const auto dd = hn::LoadU(d, mid + i), f = hn::LoadU(d, mid + i + 2);
      const auto g = hn::LoadU(d, down + i), h = hn::LoadU(d, down + i + 1), ii = hn::LoadU(d, down + i + 2);
      const auto gx = hn::Add(hn::Add(hn::Sub(c, a), hn::Mul(two, hn::Sub(f, dd))), hn::Sub(ii, g));
      const auto gy = hn::Add(hn::Add(hn::Sub(g, a), hn::Mul(two, hn::Sub(h, b))), hn::Sub(ii, c));
      hn::StoreU(hn::Mul(gx, eighth), d, ox + i);
      hn::StoreU(hn::Mul(gy, eighth), d, oy + i);
    }
    for (; i < n; ++i) {
      const PairF p = SobelF(WindowAt<float>(up, mid, down, uint32_t(i + 1)));
      ox[i] = p.x;
      oy[i] = p.y;
    }
  }
}

// ---- full-size Sobel ------------------------------------------------------------------------

// One plane: out = horizontal (x) vertical kernel, as a convolution over the bordered image.
template <int R>
void SobelPlane(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* out,
                uint32_t outStride, uint32_t borderType, uint8_t borderValue, const int* horizontal,
                const int* vertical) {
  constexpr int kTaps = 2 * R + 1;
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t N16 = hn::Lanes(d16);
  const bool replicate = borderType == kBorderReplicate;
  std::vector<uint8_t> constantRow(replicate ? 0 : width, borderValue);
  std::vector<int16_t> col(width + 2 * R);
  int verticalSum = 0;
  for (int k = 0; k < kTaps; ++k) verticalSum += vertical[k];
  const int16_t outsideColumn = static_cast<int16_t>(verticalSum * borderValue);

  for (uint32_t y = 0; y < height; ++y) {
    // Source row for vertical tap k is y + R - k, through the border rule.
    const uint8_t* rows[kTaps];
    for (int k = 0; k < kTaps; ++k) {
      int64_t sy = int64_t(y) + R - k;
      if (sy < 0 || sy >= height) {
        if (!replicate) {
          rows[k] = constantRow.data();
          continue;
        }
        sy = sy < 0 ? 0 : int64_t(height) - 1;
      }
      rows[k] = RowAt(src, srcStride, sy);
    }
    int16_t* c = col.data() + R;
    size_t x = 0;
    for (; x + N16 <= width; x += N16) {
      auto sum = hn::Zero(d16);
      for (int k = 0; k < kTaps; ++k) {
        if (vertical[k] == 0) continue;
        const auto p = hn::PromoteTo(d16, hn::LoadU(d8, rows[k] + x));
        sum = hn::Add(sum, vertical[k] == 1 ? p : hn::Mul(p, hn::Set(d16, static_cast<int16_t>(vertical[k]))));
      }
      hn::StoreU(sum, d16, c + x);
    }
    for (; x < width; ++x) {
      int32_t sum = 0;
      for (int k = 0; k < kTaps; ++k) sum += vertical[k] * rows[k][x];
      c[x] = static_cast<int16_t>(sum);
    }
    for (int k = 1; k <= R; ++k) {
      c[-k] = replicate ? c[0] : outsideColumn;
      c[width - 1 + k] = replicate ? c[width - 1] : outsideColumn;
    }

    // Horizontal pass: out[x] = sum of horizontal[k] * col[x + 2R - k] (col index relative to
    // the padded start).
    const int16_t* p0 = col.data();
    int16_t* o = RowAt(out, outStride, y);
    x = 0;
    if constexpr (R < 3) {
      // Column sums and the result stay within 16 bits for the 3x3 and 5x5 kernels.
      for (; x + N16 <= width; x += N16) {
        auto sum = hn::Zero(d16);
        for (int k = 0; k < kTaps; ++k) {
          if (horizontal[k] == 0) continue;
          const auto v = hn::LoadU(d16, p0 + x + 2 * R - k);
          sum = horizontal[k] == 1    ? hn::Add(sum, v)
                : horizontal[k] == -1 ? hn::Sub(sum, v)
                                      : hn::Add(sum, hn::Mul(v, hn::Set(d16, static_cast<int16_t>(horizontal[k]))));
        }
        hn::StoreU(sum, d16, o + x);
      }
    } else {
      const hn::ScalableTag<int32_t> d32;
      const hn::Rebind<int16_t, decltype(d32)> dh;
      const size_t N32 = hn::Lanes(d32);
      for (; x + N32 <= width; x += N32) {
        auto sum = hn::Zero(d32);
        for (int k = 0; k < kTaps; ++k) {
          if (horizontal[k] == 0) continue;
          const auto v = hn::PromoteTo(d32, hn::LoadU(dh, p0 + x + 2 * R - k));
          sum = hn::Add(sum, hn::Mul(v, hn::Set(d32, horizontal[k])));
        }
        hn::StoreU(hn::DemoteTo(dh, sum), dh, o + x);
      }
    }
    for (; x < width; ++x) {
      int32_t sum = 0;
      for (int k = 0; k < kTaps; ++k) sum += horizontal[k] * p0[x + 2 * R - k];
      o[x] = SaturateS16(sum);
    }
  }
}

// The 3x3 kernel in one pass over three bordered rows: both planes from the same loads, in
// 16-bit lanes (|result| <= 1020); the two edge columns take the border rule per pixel.
void Sobel3Fused(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dx, int16_t* dy,
                 uint32_t dxyStride, uint32_t borderType, uint8_t borderValue) {
  const hn::ScalableTag<int16_t> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const size_t N = hn::Lanes(d16);
  const bool replicate = borderType == kBorderReplicate;
  std::vector<uint8_t> constantRow(replicate ? 0 : width, borderValue);
  auto rowAt = [&](int64_t y) -> const uint8_t* {
    if (y < 0 || y >= height) {
      if (!replicate) return constantRow.data();
      y = y < 0 ? 0 : int64_t(height) - 1;
    }
    return RowAt(src, srcStride, y);
  };
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t* r0 = rowAt(int64_t(y) - 1);
    const uint8_t* r1 = rowAt(y);
    const uint8_t* r2 = rowAt(int64_t(y) + 1);
    int16_t* ox = dx ? RowAt(dx, dxyStride, y) : nullptr;
    int16_t* oy = dy ? RowAt(dy, dxyStride, y) : nullptr;
    auto pixel = [&](const uint8_t* r, int64_t x) -> int32_t {
      if (x >= 0 && x < width) return r[x];
      return replicate ? r[x < 0 ? 0 : width - 1] : borderValue;
    };
    auto scalar = [&](int64_t x) {
      const int32_t a = pixel(r0, x - 1), b = pixel(r0, x), c = pixel(r0, x + 1);
      const int32_t dd = pixel(r1, x - 1), f = pixel(r1, x + 1);
      const int32_t g = pixel(r2, x - 1), h = pixel(r2, x), i = pixel(r2, x + 1);
      if (ox) ox[x] = static_cast<int16_t>((c - a) + 2 * (f - dd) + (i - g));
      if (oy) oy[x] = static_cast<int16_t>((g + 2 * h + i) - (a + 2 * b + c));
    };
    scalar(0);
    // Vectors cover columns 1 + k .. N + k, reading columns k .. N + k + 1 < width.
    size_t x = 1;
    for (; x + N + 1 <= width; x += N) {
      auto ld = [&](const uint8_t* p) { return hn::PromoteTo(d16, hn::LoadU(d8, p)); };
      const auto a = ld(r0 + x - 1), b = ld(r0 + x), c = ld(r0 + x + 1);
      const auto g = ld(r2 + x - 1), h = ld(r2 + x), i = ld(r2 + x + 1);
      if (ox) {
        const auto fd = hn::Sub(ld(r1 + x + 1), ld(r1 + x - 1));
        hn::StoreU(hn::Add(hn::Add(hn::Sub(c, a), hn::Add(fd, fd)), hn::Sub(i, g)), d16, ox + x);
      }
      if (oy) {
        const auto hb = hn::Sub(h, b);
        hn::StoreU(hn::Add(hn::Add(hn::Sub(g, a), hn::Add(hb, hb)), hn::Sub(i, c)), d16, oy + x);
      }
    }
    for (; x < width; ++x) scalar(int64_t(x));
  }
}

template <int R>
int32_t SobelFull(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dx, int16_t* dy,
                  uint32_t dxyStride, uint32_t borderType, uint8_t borderValue) {
  if (borderType > kBorderReplicate || (!dx && !dy)) return TVX_BAD_PARAMETER;
  if constexpr (R == 1) {
    Sobel3Fused(src, width, height, srcStride, dx, dy, dxyStride, borderType, borderValue);
    return TVX_SUCCESS;
  }
  const SobelKernel& k = SobelKernelOf(2 * R + 1);
  if (dx) SobelPlane<R>(src, width, height, srcStride, dx, dxyStride, borderType, borderValue, k.deriv, k.smooth);
  if (dy) SobelPlane<R>(src, width, height, srcStride, dy, dxyStride, borderType, borderValue, k.smooth, k.deriv);
  return TVX_SUCCESS;
}
int32_t Sobel3(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, int16_t* dx, int16_t* dy, uint32_t ds,
               uint32_t bt, uint8_t bv) {
  return SobelFull<1>(s, w, h, ss, dx, dy, ds, bt, bv);
}
int32_t Sobel5(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, int16_t* dx, int16_t* dy, uint32_t ds,
               uint32_t bt, uint8_t bv) {
  return SobelFull<2>(s, w, h, ss, dx, dy, ds, bt, bv);
}
int32_t Sobel7(const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, int16_t* dx, int16_t* dy, uint32_t ds,
               uint32_t bt, uint8_t bv) {
  return SobelFull<3>(s, w, h, ss, dx, dy, ds, bt, bv);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace tvx {
HWY_EXPORT(GradInterleavedS16);
HWY_EXPORT(GradPlanarS16);
HWY_EXPORT(GradInterleavedF32);
HWY_EXPORT(GradPlanarF32);
HWY_EXPORT(SobelInterleavedS16);
HWY_EXPORT(SobelInterleavedS16Raw);
HWY_EXPORT(SobelInterleavedF32);
HWY_EXPORT(SobelPlanarS16);
HWY_EXPORT(SobelPlanarS16Raw);
HWY_EXPORT(SobelPlanarS8);
HWY_EXPORT(SobelPlanarF32);
HWY_EXPORT(SobelPlanarF32F32);
HWY_EXPORT(ScharrInterleavedS16);
HWY_EXPORT(SobelMagnitudeU8);
HWY_EXPORT(Sobel3);
HWY_EXPORT(Sobel5);
HWY_EXPORT(Sobel7);
}  // namespace tvx

using namespace tvx;

void tvxImageGradientInterleaveds16_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, int16_t* gradients, uint32_t gradStride) {
  HWY_DYNAMIC_DISPATCH(GradInterleavedS16)(src, srcWidth, srcHeight, srcStride, gradients, gradStride);
}
void tvxImageGradientInterleavedf32_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, float* gradients, uint32_t gradStride) {
  HWY_DYNAMIC_DISPATCH(GradInterleavedF32)(src, srcWidth, srcHeight, srcStride, gradients, gradStride);
}
void tvxImageGradientPlanars16_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   int16_t* dx, int16_t* dy, uint32_t dxyStride) {
  HWY_DYNAMIC_DISPATCH(GradPlanarS16)(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride);
}
void tvxImageGradientPlanarf32_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                   float* dx, float* dy, uint32_t dxyStride) {
  HWY_DYNAMIC_DISPATCH(GradPlanarF32)(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride);
}
void tvxImageGradientSobelInterleaveds16_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                             uint32_t srcStride, int16_t* gradients, uint32_t gradStride) {
  HWY_DYNAMIC_DISPATCH(SobelInterleavedS16)(src, srcWidth, srcHeight, srcStride, gradients, gradStride);
}
void tvxImageGradientSobelInterleaveds16_v3V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                             uint32_t srcStride, int16_t* gradients, uint32_t gradStride) {
  HWY_DYNAMIC_DISPATCH(SobelInterleavedS16Raw)(src, srcWidth, srcHeight, srcStride, gradients, gradStride);
}
void tvxImageGradientSobelInterleavedf32_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                             uint32_t srcStride, float* gradients, uint32_t gradStride) {
  HWY_DYNAMIC_DISPATCH(SobelInterleavedF32)(src, srcWidth, srcHeight, srcStride, gradients, gradStride);
}
void tvxImageGradientSobelPlanars16_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, int16_t* dx, int16_t* dy, uint32_t dxyStride) {
  HWY_DYNAMIC_DISPATCH(SobelPlanarS16)(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride);
}
void tvxImageGradientSobelPlanars16_v3V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, int16_t* dx, int16_t* dy, uint32_t dxyStride) {
  HWY_DYNAMIC_DISPATCH(SobelPlanarS16Raw)(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride);
}
void tvxImageGradientSobelPlanars8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                       uint32_t srcStride, int8_t* dx, int8_t* dy, uint32_t dxyStride) {
  HWY_DYNAMIC_DISPATCH(SobelPlanarS8)(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride);
}
void tvxImageGradientSobelPlanarf32_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                        uint32_t srcStride, float* dx, float* dy, uint32_t dxyStride) {
  HWY_DYNAMIC_DISPATCH(SobelPlanarF32)(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride);
}
void tvxImageGradientSobelPlanarf32f32_v2V(const float* src, uint32_t srcWidth, uint32_t srcHeight,
                                           uint32_t srcStride, float* dx, float* dy, uint32_t dxyStride) {
  HWY_DYNAMIC_DISPATCH(SobelPlanarF32F32)(src, srcWidth, srcHeight, srcStride, dx, dy, dxyStride);
}
void tvxImageGradientScharrInterleaveds16V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight,
                                           uint32_t srcStride, int16_t* gradients, uint32_t gradStride) {
  HWY_DYNAMIC_DISPATCH(ScharrInterleavedS16)(src, srcWidth, srcHeight, srcStride, gradients, gradStride);
}
void tvxFilterSobel3x3u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(SobelMagnitudeU8)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
}
int32_t tvxFilterSobel3x3u8s16V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dx,
                                int16_t* dy, uint32_t dxyStride, uint32_t borderType, uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(Sobel3)(src, width, height, srcStride, dx, dy, dxyStride, borderType, borderValue);
}
int32_t tvxFilterSobel5x5u8s16V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dx,
                                int16_t* dy, uint32_t dxyStride, uint32_t borderType, uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(Sobel5)(src, width, height, srcStride, dx, dy, dxyStride, borderType, borderValue);
}
int32_t tvxFilterSobel7x7u8s16V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int16_t* dx,
                                int16_t* dy, uint32_t dxyStride, uint32_t borderType, uint8_t borderValue) {
  return HWY_DYNAMIC_DISPATCH(Sobel7)(src, width, height, srcStride, dx, dy, dxyStride, borderType, borderValue);
}
#endif  // HWY_ONCE
