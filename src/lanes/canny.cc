// SIMD variants of the Canny detectors. The 3x3 detector smooths with the SIMD 3x3 Gaussian,
// computes central differences, squared magnitudes, direction codes and the running maximum
// in 32-bit lanes and sets the non-maximum flags by selects; the aperture detector takes its
// gradients from the SIMD full-size Sobel and computes magnitudes and the weak/strong classes
// in 32-bit lanes. The hysteresis passes are the scalar stages shared with the reference.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "lanes/canny.cc"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#include <cstddef>
#include <cstdint>

#include "cpu/gradient_rules.h"
#include "frame/frame.h"

HWY_BEFORE_NAMESPACE();
namespace tvx {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;
using namespace tvx::gradient;

int32_t CannyGradient(const uint8_t* s, uint32_t width, uint32_t height, int32_t* mag, uint8_t* flags, int16_t* gx,
                      int16_t* gy, uint32_t gradStride) {
  if (width < 3 || height < 3) return 0;
  const hn::ScalableTag<int32_t> d;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const hn::Rebind<int16_t, decltype(d)> d16;
  const size_t N = hn::Lanes(d), w = width, n = width - 2;
  const auto zero = hn::Zero(d), one = hn::Set(d, 1);
  auto vmax = zero;
  int32_t maxMag = 0;
  for (uint32_t y = 1; y + 1 < height; ++y) {
    const uint8_t* row = s + y * w;
    int32_t* m = mag + y * w + 1;
    uint8_t* fl = flags + y * w + 1;
    size_t i = 0;
    for (; i + N <= n; i += N) {
      const auto left = hn::PromoteTo(d, hn::LoadU(d8, row + i));
      const auto right = hn::PromoteTo(d, hn::LoadU(d8, row + i + 2));
      const auto up = hn::PromoteTo(d, hn::LoadU(d8, row - w + i + 1));
      const auto down = hn::PromoteTo(d, hn::LoadU(d8, row + w + i + 1));
      const auto h = hn::Sub(right, left), v = hn::Sub(down, up);
      const auto mm = hn::Add(hn::Mul(h, h), hn::Mul(v, v));
      vmax = hn::Max(vmax, mm);
      const auto ah = hn::Abs(h), av = hn::Abs(v);
      // Same decision chain as the reference: none, |h| > 2|v|, |v| > 2|h|, then the diagonal.
      const auto sameSign = hn::Eq(hn::VecFromMask(d, hn::Lt(h, one)), hn::VecFromMask(d, hn::Gt(v, zero)));
      auto code = hn::IfThenElse(sameSign, hn::Set(d, 4), hn::Set(d, 3));
      code = hn::IfThenElse(hn::Gt(av, hn::Add(ah, ah)), hn::Set(d, 2), code);
      code = hn::IfThenElse(hn::Gt(ah, hn::Add(av, av)), one, code);
      code = hn::IfThenElse(hn::Eq(hn::Or(h, v), zero), zero, code);
      hn::StoreU(mm, d, m + i);
      hn::StoreU(hn::DemoteTo(d8, code), d8, fl + i);
      if (gx) {
        hn::StoreU(hn::DemoteTo(d16, h), d16, RowAt(gx, gradStride, y) + 1 + i);
        hn::StoreU(hn::DemoteTo(d16, v), d16, RowAt(gy, gradStride, y) + 1 + i);
      }
    }
    for (; i < n; ++i) {
      const size_t p = y * w + 1 + i;
      const int32_t h = int32_t(s[p + 1]) - s[p - 1];
      const int32_t v = int32_t(s[p + w]) - s[p - w];
      const int32_t mm = h * h + v * v;
      const uint8_t code = CannyDirection(h, v);
      mag[p] = mm;
      flags[p] = code;
      if (mm > maxMag) maxMag = mm;
      if (gx) {
        RowAt(gx, gradStride, y)[1 + i] = static_cast<int16_t>(h);
        RowAt(gy, gradStride, y)[1 + i] = static_cast<int16_t>(v);
      }
    }
  }
  const int32_t vm = hn::GetLane(hn::MaxOfLanes(d, vmax));
  return vm > maxMag ? vm : maxMag;
}

// Non-maximum flags with the shared rule: the neighbour pair of each lane's direction code is
// picked by selects from the four candidate pairs; code 0 keeps offset 0, never a maximum.
void NonMaximum(const int32_t* mag, uint8_t* flags, uint32_t width, uint32_t height, int32_t tLow, int32_t tHigh) {
  if (width < 5 || height < 5) return;
  const hn::ScalableTag<int32_t> d;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const size_t N = hn::Lanes(d), w = width, n = width - 4;
  const auto c1 = hn::Set(d, 1), c2 = hn::Set(d, 2), c3 = hn::Set(d, 3), c4 = hn::Set(d, 4);
  const auto lowT = hn::Set(d, tLow), highT = hn::Set(d, tHigh);
  const auto bitMax = hn::Set(d, tvx::canny::kLocalMax), bitLow = hn::Set(d, tvx::canny::kAboveLow),
             bitHigh = hn::Set(d, tvx::canny::kAboveHigh), codeMask = hn::Set(d, tvx::canny::kCodeMask);
  for (uint32_t y = 2; y + 2 < height; ++y) {
    const int32_t* m = mag + y * w + 2;
    uint8_t* fl = flags + y * w + 2;
    size_t i = 0;
    for (; i + N <= n; i += N) {
      const int32_t* p = m + i;
      const auto mm = hn::LoadU(d, p);
      const auto f = hn::PromoteTo(d, hn::LoadU(d8, fl + i));
      const auto code = hn::And(f, codeMask);
      auto fwd = mm, back = mm;
      auto pick = [&](decltype(c1) c, ptrdiff_t o) {
        const auto is = hn::Eq(code, c);
        fwd = hn::IfThenElse(is, hn::LoadU(d, p + o), fwd);
        back = hn::IfThenElse(is, hn::LoadU(d, p - o), back);
      };
      pick(c1, 1);
      pick(c2, ptrdiff_t(w));
      pick(c3, ptrdiff_t(w) + 1);
      pick(c4, ptrdiff_t(w) - 1);
      // a >= b as not (b > a): this Highway has no signed >= on every target.
      const auto isMax = hn::AndNot(hn::VecFromMask(d, hn::Gt(fwd, mm)), hn::VecFromMask(d, hn::Gt(mm, back)));
      auto bits = hn::And(isMax, bitMax);
      bits = hn::Or(bits, hn::AndNot(hn::VecFromMask(d, hn::Gt(lowT, mm)), bitLow));
      bits = hn::Or(bits, hn::AndNot(hn::VecFromMask(d, hn::Gt(highT, mm)), bitHigh));
      hn::StoreU(hn::DemoteTo(d8, hn::Or(f, bits)), d8, fl + i);
    }
    for (; i < n; ++i) {
      const ptrdiff_t offset[8] = {0, 1, ptrdiff_t(w), ptrdiff_t(w) + 1, ptrdiff_t(w) - 1, 0, 0, 0};
      const int32_t* p = m + i;
      const ptrdiff_t o = offset[fl[i] & tvx::canny::kCodeMask];
      const uint32_t isMax = uint32_t(p[0] >= p[o]) & uint32_t(p[0] > p[-o]);
      fl[i] |= uint8_t((isMax << 4) | (uint32_t(p[0] >= tLow) << 5) | (uint32_t(p[0] >= tHigh) << 6));
    }
  }
}

// Aperture detector magnitudes in 32-bit lanes; squares are summed as unsigned.
void Magnitude(const int16_t* gx, const int16_t* gy, uint32_t gradStride, uint32_t width, uint32_t height, bool l2,
               uint32_t* mag, size_t magStride) {
  const hn::ScalableTag<int32_t> d;
  const hn::ScalableTag<uint32_t> du;
  const hn::Rebind<int16_t, decltype(d)> d16;
  const size_t N = hn::Lanes(d);
  for (uint32_t y = 0; y < height; ++y) {
    const int16_t* rx = RowAt(gx, gradStride, y);
    const int16_t* ry = RowAt(gy, gradStride, y);
    uint32_t* m = mag + y * magStride;
    size_t x = 0;
    for (; x + N <= width; x += N) {
      const auto a = hn::PromoteTo(d, hn::LoadU(d16, rx + x)), b = hn::PromoteTo(d, hn::LoadU(d16, ry + x));
      const auto v = l2 ? hn::Add(hn::BitCast(du, hn::Mul(a, a)), hn::BitCast(du, hn::Mul(b, b)))
                        : hn::BitCast(du, hn::Add(hn::Abs(a), hn::Abs(b)));
      hn::StoreU(v, du, m + x);
    }
    for (; x < width; ++x) {
      const int32_t a = rx[x], b = ry[x];
      m[x] = l2 ? uint32_t(a * a) + uint32_t(b * b) : uint32_t((a < 0 ? -a : a) + (b < 0 ? -b : b));
    }
  }
}

// Classification with the shared direction rule in unsigned 32-bit lanes: |gy| * 2^15 against
// |gx| * 13573 and |gx| * 79109 (at most 2.6e9, so no overflow), then the neighbour pair of
// the lane's class picked by selects.
void Classify(const int16_t* gx, const int16_t* gy, uint32_t gradStride, const uint32_t* mag, size_t magStride,
              uint32_t width, uint32_t height, uint32_t lo, uint32_t hi, uint8_t* dst, uint32_t dstStride) {
  const hn::ScalableTag<int32_t> d;
  const hn::ScalableTag<uint32_t> du;
  const hn::Rebind<int16_t, decltype(d)> d16;
  const hn::Rebind<uint8_t, decltype(d)> d8;
  const size_t N = hn::Lanes(d);
  const ptrdiff_t W = ptrdiff_t(magStride);
  const auto k22 = hn::Set(du, 13573u), k67 = hn::Set(du, 79109u), loV = hn::Set(du, lo), hiV = hn::Set(du, hi);
  const auto zero = hn::Zero(d), weak = hn::Set(d, 128), strong = hn::Set(d, 255);
  for (uint32_t y = 0; y < height; ++y) {
    const int16_t* rx = RowAt(gx, gradStride, y);
    const int16_t* ry = RowAt(gy, gradStride, y);
    uint8_t* out = RowAt(dst, dstStride, y);
    const uint32_t* m = mag + y * magStride;
    size_t x = 0;
    for (; x + N <= width; x += N) {
      const auto a = hn::PromoteTo(d, hn::LoadU(d16, rx + x)), b = hn::PromoteTo(d, hn::LoadU(d16, ry + x));
      const auto ax = hn::BitCast(du, hn::Abs(a)), ay = hn::ShiftLeft<15>(hn::BitCast(du, hn::Abs(b)));
      const auto horizontal = hn::Lt(ay, hn::Mul(ax, k22));
      const auto vertical = hn::Gt(ay, hn::Mul(ax, k67));
      const auto sameSign = hn::Not(hn::VecFromMask(d, hn::Lt(hn::Xor(a, b), zero)));
      const uint32_t* p = m + x;
      const auto v = hn::LoadU(du, p);
      // Diagonal by default, then the other classes override.
      auto before = hn::IfThenElse(hn::RebindMask(du, hn::MaskFromVec(sameSign)), hn::LoadU(du, p - W - 1),
                                   hn::LoadU(du, p - W + 1));
      auto after = hn::IfThenElse(hn::RebindMask(du, hn::MaskFromVec(sameSign)), hn::LoadU(du, p + W + 1),
                                  hn::LoadU(du, p + W - 1));
      before = hn::IfThenElse(vertical, hn::LoadU(du, p - W), before);
      after = hn::IfThenElse(vertical, hn::LoadU(du, p + W), after);
      before = hn::IfThenElse(horizontal, hn::LoadU(du, p - 1), before);
      after = hn::IfThenElse(horizontal, hn::LoadU(du, p + 1), after);
      const auto straight = hn::Or(horizontal, vertical);
      // After: at or above on the straight classes, strictly above on the diagonals.
      const auto afterOk = hn::Or(hn::Gt(v, after), hn::And(straight, hn::Eq(v, after)));
      const auto isMax = hn::And(hn::And(hn::Gt(v, before), afterOk), hn::Gt(v, loV));
      const auto cls = hn::IfThenElseZero(hn::RebindMask(d, isMax),
                                          hn::IfThenElse(hn::RebindMask(d, hn::Gt(v, hiV)), strong, weak));
      hn::StoreU(hn::DemoteTo(d8, cls), d8, out + x);
    }
    for (; x < width; ++x) {
      const uint32_t v = m[x];
      uint8_t c = 0;
      if (v > lo) {
        ptrdiff_t o;
        uint32_t strict = 0;
        switch (tvx::canny::DirectionOf(rx[x], ry[x])) {
          case tvx::canny::Dir::kHorizontal: o = 1; break;
          case tvx::canny::Dir::kVertical: o = W; break;
          default:
            o = (rx[x] >= 0) == (ry[x] >= 0) ? W + 1 : W - 1;
            strict = 1;
        }
        if (v > m[ptrdiff_t(x) - o] && uint64_t(v) >= uint64_t(m[ptrdiff_t(x) + o]) + strict) c = v > hi ? 255 : 128;
      }
      out[x] = c;
    }
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace tvx
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace tvx {
HWY_EXPORT(CannyGradient);
HWY_EXPORT(NonMaximum);
HWY_EXPORT(Magnitude);
HWY_EXPORT(Classify);
}  // namespace tvx

using namespace tvx;

namespace {
int32_t CannyGradientV(const uint8_t* s, uint32_t width, uint32_t height, int32_t* mag, uint8_t* flags, int16_t* gx,
                       int16_t* gy, uint32_t gradStride) {
  return HWY_DYNAMIC_DISPATCH(CannyGradient)(s, width, height, mag, flags, gx, gy, gradStride);
}
void NonMaximumV(const int32_t* mag, uint8_t* flags, uint32_t width, uint32_t height, int32_t tLow, int32_t tHigh) {
  HWY_DYNAMIC_DISPATCH(NonMaximum)(mag, flags, width, height, tLow, tHigh);
}
void MagnitudeV(const int16_t* gx, const int16_t* gy, uint32_t gradStride, uint32_t width, uint32_t height, bool l2,
                uint32_t* mag, size_t magStride) {
  HWY_DYNAMIC_DISPATCH(Magnitude)(gx, gy, gradStride, width, height, l2, mag, magStride);
}
void ClassifyV(const int16_t* gx, const int16_t* gy, uint32_t gradStride, const uint32_t* mag, size_t magStride,
               uint32_t width, uint32_t height, uint32_t lo, uint32_t hi, uint8_t* dst, uint32_t dstStride) {
  HWY_DYNAMIC_DISPATCH(Classify)(gx, gy, gradStride, mag, magStride, width, height, lo, hi, dst, dstStride);
}
}  // namespace

void tvxFilterCanny3x3u8_v2V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride, uint32_t low, uint32_t high) {
  tvx::canny::Canny3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride, nullptr, nullptr, 0, low, high,
                       tvxFilterGaussian3x3u8_v2V, CannyGradientV, NonMaximumV);
}

void tvxFilterCanny3x3u8_v3V(const uint8_t* src, uint32_t srcWidth, uint32_t srcHeight, uint32_t srcStride,
                             uint8_t* dst, uint32_t dstStride, int16_t* gx, int16_t* gy, uint32_t gradStride,
                             uint32_t low, uint32_t high) {
  tvx::canny::Canny3x3(src, srcWidth, srcHeight, srcStride, dst, dstStride, gx, gy, gradStride, low, high,
                       tvxFilterGaussian3x3u8_v2V, CannyGradientV, NonMaximumV);
}

int32_t tvxFilterCannyu8V(const uint8_t* src, uint32_t width, uint32_t height, uint32_t srcStride, int32_t kernelSize,
                          int32_t low, int32_t high, int32_t norm, uint8_t* dst, uint32_t dstStride, int16_t* gx,
                          int16_t* gy, uint32_t gradStride) {
  tvx::canny::SobelStage sobel = kernelSize == 3   ? tvxFilterSobel3x3u8s16V
                                 : kernelSize == 5 ? tvxFilterSobel5x5u8s16V
                                 : kernelSize == 7 ? tvxFilterSobel7x7u8s16V
                                                   : nullptr;
  if (!sobel || norm > 1 || low > high) return TVX_BAD_PARAMETER;
  return tvx::canny::CannyAperture(src, width, height, srcStride, low, high, norm, dst, dstStride, gx, gy, gradStride,
                                   sobel, MagnitudeV, ClassifyV);
}
#endif  // HWY_ONCE
