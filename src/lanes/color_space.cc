// SIMD variants of the 8-bit HSV and LAB conversions. Pixels are de-interleaved at full byte
// width, each channel vector is parked in a small buffer and re-read a quarter at a time as
// 32-bit lanes, where the reference's integer formulas run unchanged (table entries through
// gathers); the results go back the same way. Pixels after the last whole vector use the
// reference's per-pixel rules.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/color_space.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include "cpu/color_space_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D32 = hn::ScalableTag<int32_t>;
using V32 = hn::Vec<D32>;

// Runs kernel(r, g, b, &c0, &c1, &c2) on 32-bit lanes over one row of kIn-byte pixels and
// stores the three results as 3-byte pixels.
template <size_t kIn, class Kernel>
HWY_INLINE void ConvertRow(const uint8_t* s, uint8_t* d, uint32_t width, const Kernel& kernel,
                           void (*pixel)(const uint8_t*, uint8_t*)) {
  const hn::ScalableTag<uint8_t> d8;
  const D32 d32;
  const hn::Rebind<uint8_t, D32> d8q;
  const size_t N = hn::Lanes(d8), Q = hn::Lanes(d32);
  HWY_ALIGN uint8_t in[3][HWY_MAX_BYTES], out[3][HWY_MAX_BYTES];
  size_t x = 0;
  for (; x + N <= width; x += N) {
    hn::Vec<decltype(d8)> c0, c1, c2, alpha;
    if constexpr (kIn == 4) {
      hn::LoadInterleaved4(d8, s + 4 * x, c0, c1, c2, alpha);
    } else {
      hn::LoadInterleaved3(d8, s + 3 * x, c0, c1, c2);
    }
    hn::Store(c0, d8, in[0]);
    hn::Store(c1, d8, in[1]);
    hn::Store(c2, d8, in[2]);
    for (size_t q = 0; q < N; q += Q) {
      V32 o0, o1, o2;
      kernel(hn::PromoteTo(d32, hn::LoadU(d8q, in[0] + q)), hn::PromoteTo(d32, hn::LoadU(d8q, in[1] + q)),
             hn::PromoteTo(d32, hn::LoadU(d8q, in[2] + q)), o0, o1, o2);
      hn::StoreU(hn::DemoteTo(d8q, o0), d8q, out[0] + q);
      hn::StoreU(hn::DemoteTo(d8q, o1), d8q, out[1] + q);
      hn::StoreU(hn::DemoteTo(d8q, o2), d8q, out[2] + q);
    }
    hn::StoreInterleaved3(hn::Load(d8, out[0]), hn::Load(d8, out[1]), hn::Load(d8, out[2]), d8, d + 3 * x);
  }
  for (; x < width; ++x) pixel(s + kIn * x, d + 3 * x);
}

HWY_INLINE V32 Clamp255(V32 v) {
  const D32 d32;
  return hn::Min(hn::Max(v, hn::Zero(d32)), hn::Set(d32, 255));
}

void RGB888ToHSV(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                 uint32_t dstStride) {
  const colorspace::HsvTables& t = colorspace::Hsv();
  const D32 d32;
  const auto kernel = [&](V32 r, V32 g, V32 b, V32& h, V32& s, V32& v) {
    v = hn::Max(hn::Max(r, g), b);
    const V32 d = hn::Sub(v, hn::Min(hn::Min(r, g), b));
    const auto isR = hn::Eq(v, r);
    const auto isG = hn::AndNot(isR, hn::Eq(v, g));
    const V32 num = hn::IfThenElse(isR, hn::Sub(g, b),
                                   hn::IfThenElse(isG, hn::Add(hn::Sub(b, r), hn::Add(d, d)),
                                                  hn::Add(hn::Sub(r, g), hn::ShiftLeft<2>(d))));
    const V32 half = hn::Set(d32, 2048);
    const V32 hue = hn::ShiftRight<12>(hn::Add(hn::Mul(num, hn::GatherIndex(d32, t.hue, d)), half));
    h = hn::Add(hue, hn::And(hn::VecFromMask(d32, hn::Lt(hue, hn::Zero(d32))), hn::Set(d32, 180)));
    s = hn::ShiftRight<12>(hn::Add(hn::Mul(d, hn::GatherIndex(d32, t.sat, v)), half));
  };
  for (uint32_t y = 0; y < height; ++y)
    ConvertRow<3>(src + static_cast<size_t>(srcStride) * y, dst + static_cast<size_t>(dstStride) * y, width, kernel,
                  &colorspace::HsvOf);
}

void RGBA8888ToLAB(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, uint8_t* dst,
                   uint32_t dstStride) {
  using namespace colorspace;
  const LabTables& tab = Lab();
  const D32 d32;
  const auto cube = [&](V32 t) {
    const V32 i = hn::ShiftRight<5>(t), frac = hn::And(t, hn::Set(d32, 31));
    const V32 f0 = hn::GatherIndex(d32, tab.f, i);
    const V32 f1 = hn::GatherIndex(d32, tab.f, hn::Add(i, hn::Set(d32, 1)));
    return hn::Add(f0, hn::ShiftRight<5>(hn::Add(hn::Mul(hn::Sub(f1, f0), frac), hn::Set(d32, 16))));
  };
  const auto row = [&](V32 r, V32 g, V32 b, int32_t kr, int32_t kg, int32_t kb) {
    const V32 sum = hn::Add(hn::Add(hn::Mul(r, hn::Set(d32, kr)), hn::Mul(g, hn::Set(d32, kg))),
                            hn::Add(hn::Mul(b, hn::Set(d32, kb)), hn::Set(d32, 8192)));
    return cube(hn::ShiftRight<14>(sum));
  };
  const auto kernel = [&](V32 r8, V32 g8, V32 b8, V32& l, V32& a, V32& b) {
    const V32 r = hn::GatherIndex(d32, tab.linear, r8), g = hn::GatherIndex(d32, tab.linear, g8),
              bl = hn::GatherIndex(d32, tab.linear, b8);
    const V32 fx = row(r, g, bl, kXr, kXg, kXb), fy = row(r, g, bl, kYr, kYg, kYb), fz = row(r, g, bl, kZr, kZg, kZb);
    const V32 centre = hn::Set(d32, (128 << 15) + (1 << 14));
    l = Clamp255(hn::ShiftRight<20>(hn::Add(hn::Mul(fy, hn::Set(d32, kLScale)), hn::Set(d32, kLOffset))));
    a = Clamp255(hn::ShiftRight<15>(hn::Add(hn::Mul(hn::Sub(fx, fy), hn::Set(d32, 500)), centre)));
    b = Clamp255(hn::ShiftRight<15>(hn::Add(hn::Mul(hn::Sub(fy, fz), hn::Set(d32, 200)), centre)));
  };
  for (uint32_t y = 0; y < height; ++y)
    ConvertRow<4>(src + static_cast<size_t>(srcStride) * y, dst + static_cast<size_t>(dstStride) * y, width, kernel,
                  &colorspace::LabOf);
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tvx {
HWY_EXPORT(RGB888ToHSV);
HWY_EXPORT(RGBA8888ToLAB);
}  // namespace tvx

// A single-target build (ARMv7 NEON) expands the dispatch to N_NEON::Kernel, which only
// resolves with the kernels' namespace in scope.
using namespace tvx;

int32_t tvxColorRGB888ToHSV888u8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                  uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(RGB888ToHSV)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
  return 0;
}

int32_t tvxColorRGBA8888ToLABu8V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                                 uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(RGBA8888ToLAB)(src, srcWidth, srcHeight, srcStride, dst, dstStride);
  return 0;
}
#endif  // HWY_ONCE
