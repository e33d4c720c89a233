// SIMD variants of the arithmetic family against their reference variants: every compiled
// target, widths 1 to 70 and large, padded strides with guards, misaligned rows, inputs mixing
// random values with the extremes of each type, and every policy and many scale factors.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

std::mt19937 g_rng(0x7A41);

// One element in four is an extreme of T (min, max, 0 or 1); the rest are uniform.
template <typename T>
T MixedValue(std::mt19937& rng) {
  if constexpr (std::is_floating_point_v<T>) {
    // Finite, normal or zero values only: NEON flushes subnormals and does not propagate NaN
    // payloads, which says nothing about the kernels.
    switch (rng() % 8) {
      case 0: return 0.0f;
      case 1: return -0.0f;
      case 2: return (rng() & 1) ? 3.0e38f : -3.0e38f;
      default: {
        const float mantissa = 1.0f + static_cast<float>(rng() % (1u << 23)) / static_cast<float>(1u << 23);
        const float v = std::ldexp(mantissa, static_cast<int>(rng() % 61) - 30);
        return (rng() & 1) ? -v : v;
      }
    }
  } else {
    switch (rng() % 8) {
      case 0: return std::numeric_limits<T>::min();
      case 1: return std::numeric_limits<T>::max();
      case 2: return T(0);
      case 3: return T(1);
      default: return static_cast<T>(rng());
    }
  }
}

// An input image of T elements (channels per pixel) shaped after s: padding and misalignment
// are whole elements so typed rows stay aligned to their element size.
template <typename T>
Image Input(const Shape& s, uint32_t channels = 1) {
  Image img(s.width, s.height, sizeof(T) * channels, s.pad * sizeof(T), s.misalign * sizeof(T));
  for (uint32_t y = 0; y < s.height; ++y) {
    T* row = reinterpret_cast<T*>(img.row(y));
    for (uint32_t i = 0; i < s.width * channels; ++i) row[i] = MixedValue<T>(g_rng);
  }
  return img;
}

// Runs call(ref, out) and call(simd, out) into two differently padded outputs of elemBytes per
// element and channels per pixel; expects the same status, the same rectangle and intact guards.
template <typename Fn, class Call>
bool Same(const Shape& s, size_t elemBytes, uint32_t channels, Fn ref, Fn simd, Call call) {
  Image outRef(s.width, s.height, elemBytes * channels);
  Image outSimd(s.width, s.height, elemBytes * channels, (s.pad + 1) * elemBytes,
                ((s.misalign + 1) % 4) * elemBytes);
  const int64_t statusRef = call(ref, outRef);
  const int64_t statusSimd = call(simd, outSimd);
  EXPECT_EQ(statusRef, statusSimd);
  const auto same = outSimd.SameRect(outRef);
  const auto guards = outSimd.GuardsIntact();
  EXPECT_TRUE(same);
  EXPECT_TRUE(guards);
  return statusRef == statusSimd && same && guards;
}

// body(shape) on every target for every sweep shape, stopping at the first failure.
template <class Body>
void Sweep(Body body) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height << " pad " << s.pad << " misalign "
                                        << s.misalign);
      if (!body(s)) return;
    }
  });
}

// Scale factors around every boundary of the shift rules, and the extremes of an s8.
const std::vector<int8_t> kScaleFactors = {-128, -40, -33, -32, -31, -17, -16, -15, -9, -8, -7, -2, -1,
                                           0,    1,   2,   7,   8,   9,   15,  16,  17,  31, 32, 33, 127};

// ---- absolute difference -------------------------------------------------------------------

template <typename T, typename O, typename Fn>
void CheckAbsDiffImages(Fn ref, Fn simd) {
  Sweep([&](const Shape& s) {
    Image a = Input<T>(s), b = Input<T>(s);
    return Same(s, sizeof(O), 1, ref, simd, [&](Fn fn, Image& o) {
      fn(a.as<T>(), b.as<T>(), s.width, s.height, a.stride(), o.as<O>(), o.stride());
      return 0;
    });
  });
}

TEST(ArithLanes, AbsDiffImages) {
  CheckAbsDiffImages<uint8_t, uint8_t>(tvxAbsDiffu8C, tvxAbsDiffu8V);
  CheckAbsDiffImages<int32_t, uint32_t>(tvxAbsDiffs32C, tvxAbsDiffs32V);
  CheckAbsDiffImages<float, float>(tvxAbsDifff32C, tvxAbsDifff32V);
}

// Per-channel constants: each channel gets its own value, so a misplaced pattern shows.
template <typename T, typename O, typename Fn, typename... Values>
void CheckAbsDiffChannels(Fn ref, Fn simd, Values... values) {
  constexpr uint32_t kChannels = sizeof...(Values);
  Sweep([&](const Shape& s) {
    Image a = Input<T>(s, kChannels);
    return Same(s, sizeof(O), kChannels, ref, simd, [&](Fn fn, Image& o) {
      fn(a.as<T>(), values..., s.width, s.height, a.stride(), o.as<O>(), o.stride());
      return 0;
    });
  });
}

TEST(ArithLanes, AbsDiffConstants) {
  CheckAbsDiffChannels<uint8_t, uint8_t>(tvxAbsDiffVu8C, tvxAbsDiffVu8V, uint8_t{77});
  CheckAbsDiffChannels<int32_t, uint32_t>(tvxAbsDiffVs32C, tvxAbsDiffVs32V, int32_t{-5});
  CheckAbsDiffChannels<int32_t, uint32_t>(tvxAbsDiffVs32C, tvxAbsDiffVs32V, INT32_MIN);
  CheckAbsDiffChannels<float, float>(tvxAbsDiffVf32C, tvxAbsDiffVf32V, 1.5f);
  CheckAbsDiffChannels<uint8_t, uint8_t>(tvxAbsDiffVc3u8C, tvxAbsDiffVc3u8V, uint8_t{0}, uint8_t{128},
                                         uint8_t{255});
  CheckAbsDiffChannels<int32_t, uint32_t>(tvxAbsDiffVc3s32C, tvxAbsDiffVc3s32V, INT32_MAX, -7, INT32_MIN);
  CheckAbsDiffChannels<float, float>(tvxAbsDiffVc3f32C, tvxAbsDiffVc3f32V, -2.0f, 0.0f, 1.0e20f);
  CheckAbsDiffChannels<uint8_t, uint8_t>(tvxAbsDiffVc4u8C, tvxAbsDiffVc4u8V, uint8_t{1}, uint8_t{2},
                                         uint8_t{254}, uint8_t{100});
  CheckAbsDiffChannels<int32_t, uint32_t>(tvxAbsDiffVc4s32C, tvxAbsDiffVc4s32V, 1, INT32_MIN, 0, -1000000);
  CheckAbsDiffChannels<float, float>(tvxAbsDiffVc4f32C, tvxAbsDiffVc4f32V, 0.5f, -3.0e38f, 7.0f, -0.0f);
}

// ---- two-image operations --------------------------------------------------------------------

// fn(src1, width, height, src1Stride, src2, src2Stride, extra..., dst, dstStride).
template <typename A, typename B, typename O, typename Fn, typename... Extra>
bool SameBinary(const Shape& s, Fn ref, Fn simd, Extra... extra) {
  Image a = Input<A>(s), b = Input<B>(s);
  return Same(s, sizeof(O), 1, ref, simd, [&](Fn fn, Image& o) -> int64_t {
    if constexpr (std::is_void_v<decltype(fn(a.as<A>(), 0, 0, 0, b.as<B>(), 0, extra..., o.as<O>(), 0))>) {
      fn(a.as<A>(), s.width, s.height, a.stride(), b.as<B>(), b.stride(), extra..., o.as<O>(), o.stride());
      return 0;
    } else {
      return fn(a.as<A>(), s.width, s.height, a.stride(), b.as<B>(), b.stride(), extra..., o.as<O>(),
                o.stride());
    }
  });
}

TEST(ArithLanes, AddAndSubtract) {
  Sweep([](const Shape& s) {
    bool ok = SameBinary<uint8_t, uint8_t, uint16_t>(s, tvxAddu8u16C, tvxAddu8u16V) &&
              SameBinary<int16_t, int16_t, int16_t>(s, tvxAdds16C, tvxAdds16V) &&
              SameBinary<float, float, float>(s, tvxAddf32C, tvxAddf32V) &&
              SameBinary<uint8_t, uint8_t, int16_t>(s, tvxSubtractu8s16C, tvxSubtractu8s16V);
    for (int32_t policy : {0, 1, 2, -1}) {
      ok = ok && SameBinary<uint8_t, uint8_t, uint8_t>(s, tvxAddu8C, tvxAddu8V, policy) &&
           SameBinary<uint8_t, uint8_t, uint8_t>(s, tvxSubtractu8C, tvxSubtractu8V, policy) &&
           SameBinary<int16_t, int16_t, int16_t>(s, tvxAdds16_v2C, tvxAdds16_v2V, policy) &&
           SameBinary<int16_t, int16_t, int16_t>(s, tvxSubtracts16C, tvxSubtracts16V, policy) &&
           SameBinary<uint16_t, uint8_t, uint16_t>(s, tvxAddu16u8u16C, tvxAddu16u8u16V, policy);
    }
    return ok;
  });
}

TEST(ArithLanes, Products) {
  Sweep([](const Shape& s) {
    bool ok = SameBinary<uint8_t, uint8_t, uint16_t>(s, tvxElementMultiplyu8u16C, tvxElementMultiplyu8u16V) &&
              SameBinary<float, float, float>(s, tvxElementMultiplyf32C, tvxElementMultiplyf32V);
    for (int8_t n : kScaleFactors) {
      for (int32_t policy : {0, 1, 5}) {
        ok = ok &&
             SameBinary<uint8_t, uint8_t, uint8_t>(s, tvxElementMultiplyu8C, tvxElementMultiplyu8V, n, policy) &&
             SameBinary<int16_t, int16_t, int16_t>(s, tvxElementMultiplys16C, tvxElementMultiplys16V, n,
                                                   policy) &&
             SameBinary<uint8_t, uint8_t, int16_t>(s, tvxElementMultiplyu8s16C, tvxElementMultiplyu8s16V, n,
                                                   policy);
      }
      ok = ok && SameBinary<uint8_t, uint16_t, uint16_t>(s, tvxAddSquaredu8u16C, tvxAddSquaredu8u16V, n);
    }
    return ok;
  });
}

// Every scale factor an s8 can hold, on one shape with a vector body and a tail.
TEST(ArithLanes, ProductsForEveryScaleFactor) {
  const Shape s{77, 3, 5, 1};
  tvxtest::ForEachTarget([&] {
    for (int n = -128; n <= 127; ++n) {
      SCOPED_TRACE(n);
      const auto f = static_cast<int8_t>(n);
      bool ok = true;
      for (int32_t policy : {0, 1}) {
        ok = ok && SameBinary<uint8_t, uint8_t, uint8_t>(s, tvxElementMultiplyu8C, tvxElementMultiplyu8V, f, policy);
        ok = ok && SameBinary<int16_t, int16_t, int16_t>(s, tvxElementMultiplys16C, tvxElementMultiplys16V, f, policy);
        ok = ok && SameBinary<uint8_t, uint8_t, int16_t>(s, tvxElementMultiplyu8s16C, tvxElementMultiplyu8s16V, f,
                                                         policy);
      }
      ok = ok && SameBinary<uint8_t, uint16_t, uint16_t>(s, tvxAddSquaredu8u16C, tvxAddSquaredu8u16V, f);
      if (!ok) return;
    }
  });
}

TEST(ArithLanes, AddWeighted) {
  const std::vector<std::pair<float, float>> weights = {
      {0.5f, 0.5f}, {1.0f, 0.0f}, {0.3f, 0.7f}, {-0.25f, 1.5f}, {2.0f, -1.0f}, {127.9f, -128.0f},
      {1.0e6f, 0.001953125f}, {-0.001953125f, -1.0e9f}};
  Sweep([&](const Shape& s) {
    bool ok = true;
    for (const auto& w : weights)
      ok = ok && SameBinary<uint8_t, uint8_t, uint8_t>(s, tvxAddWeightedu8C, tvxAddWeightedu8V, w.first, w.second);
    return ok;
  });
}

TEST(ArithLanes, MagnitudeAndPhase) {
  Sweep([](const Shape& s) {
    return SameBinary<int16_t, int16_t, uint16_t>(s, tvxMagnitudes16C, tvxMagnitudes16V) &&
           SameBinary<int16_t, int16_t, uint8_t>(s, tvxPhases16C, tvxPhases16V);
  });
}

// Every dx against gradients at the edges of the s16 range and around the axes and diagonals,
// then a dense block of small gradients: the lanes must agree bit for bit, which also pins the
// single-precision replacement of the reference's double-precision rounding of the phase.
TEST(ArithLanes, MagnitudeAndPhaseOverWideInputSets) {
  const std::vector<int16_t> edges = {-32768, -32767, -32766, -16384, -1000, -255, -129, -128, -127, -3, -2, -1,
                                      0,      1,      2,      3,      127,   128,  129,  255,  1000, 16383, 16384,
                                      32766,  32767};
  const uint32_t width = 65536;
  Image dx(width, static_cast<uint32_t>(edges.size()), 2), dy(width, static_cast<uint32_t>(edges.size()), 2);
  for (uint32_t y = 0; y < edges.size(); ++y)
    for (uint32_t x = 0; x < width; ++x) {
      dx.at<int16_t>(x, y) = static_cast<int16_t>(x - 32768);
      dy.at<int16_t>(x, y) = edges[y];
    }
  const uint32_t side = 601;  // dx, dy in [-300, 300]
  Image sx(side, side, 2), sy(side, side, 2);
  for (uint32_t y = 0; y < side; ++y)
    for (uint32_t x = 0; x < side; ++x) {
      sx.at<int16_t>(x, y) = static_cast<int16_t>(static_cast<int>(x) - 300);
      sy.at<int16_t>(x, y) = static_cast<int16_t>(static_cast<int>(y) - 300);
    }
  auto compare = [](Image& a, Image& b) {
    const Shape s{a.width(), a.height(), 0, 0};
    Image refM(s.width, s.height, 2), simdM(s.width, s.height, 2), refP(s.width, s.height, 1),
        simdP(s.width, s.height, 1);
    for (int swap = 0; swap < 2; ++swap) {
      Image& x = swap ? b : a;
      Image& y = swap ? a : b;
      EXPECT_EQ(0, tvxMagnitudes16C(x.as<int16_t>(), s.width, s.height, x.stride(), y.as<int16_t>(), y.stride(),
                                    refM.as<uint16_t>(), refM.stride()));
      EXPECT_EQ(0, tvxMagnitudes16V(x.as<int16_t>(), s.width, s.height, x.stride(), y.as<int16_t>(), y.stride(),
                                    simdM.as<uint16_t>(), simdM.stride()));
      EXPECT_EQ(0, tvxPhases16C(x.as<int16_t>(), s.width, s.height, x.stride(), y.as<int16_t>(), y.stride(),
                                refP.as<uint8_t>(), refP.stride()));
      EXPECT_EQ(0, tvxPhases16V(x.as<int16_t>(), s.width, s.height, x.stride(), y.as<int16_t>(), y.stride(),
                                simdP.as<uint8_t>(), simdP.stride()));
      EXPECT_TRUE(simdM.SameRect(refM));
      EXPECT_TRUE(simdP.SameRect(refP));
    }
  };
  tvxtest::ForEachTarget([&] {
    compare(dx, dy);
    compare(sx, sy);
  });
}

// ---- one-image operations --------------------------------------------------------------------

// fn(src, width, height, srcStride, extra..., dst, dstStride).
template <typename A, typename O, typename Fn, typename... Extra>
bool SameUnary(const Shape& s, Fn ref, Fn simd, Extra... extra) {
  Image a = Input<A>(s);
  return Same(s, sizeof(O), 1, ref, simd, [&](Fn fn, Image& o) -> int64_t {
    return fn(a.as<A>(), s.width, s.height, a.stride(), extra..., o.as<O>(), o.stride());
  });
}

TEST(ArithLanes, ScalarForms) {
  Sweep([](const Shape& s) {
    bool ok = true;
    for (float scalar : {0.0f, -1.25f, 3.0e38f})
      ok = ok && SameUnary<float, float>(s, tvxAddScalarf32C, tvxAddScalarf32V, scalar) &&
           SameUnary<float, float>(s, tvxMultiplyScalarf32C, tvxMultiplyScalarf32V, scalar);
    for (int32_t scalar : {0, 1, -1, 32767, -32768, 0x12345, 0x18000})
      ok = ok && SameUnary<int16_t, int16_t>(s, tvxAddScalars16C, tvxAddScalars16V, scalar);
    for (int16_t scalar : {int16_t{0}, int16_t{3}, int16_t{-1}, int16_t{32767}, int16_t{-32768}})
      for (int8_t shift : kScaleFactors)
        ok = ok && SameUnary<int16_t, int16_t>(s, tvxMultiplyScalars16C, tvxMultiplyScalars16V, scalar, shift);
    return ok;
  });
}

TEST(ArithLanes, DepthConversion) {
  Sweep([](const Shape& s) {
    bool ok = true;
    for (uint32_t shift = 0; shift <= 8; ++shift) {
      ok = ok && SameUnary<uint8_t, int16_t>(s, tvxConvertDepthu8s16C, tvxConvertDepthu8s16V, shift);
      for (int32_t policy : {0, 1, 3})
        ok = ok && SameUnary<int16_t, uint8_t>(s, tvxConvertDepths16u8C, tvxConvertDepths16u8V, shift, policy);
    }
    return ok;
  });
}

TEST(ArithLanes, TableLookup) {
  std::vector<uint8_t> lut(256);
  for (auto& v : lut) v = static_cast<uint8_t>(g_rng());
  Sweep([&](const Shape& s) { return SameUnary<uint8_t, uint8_t>(s, tvxTableLookupu8C, tvxTableLookupu8V, lut.data()); });
}

// Every byte value through tables that single out each entry: a wrong sub-table shows at once.
TEST(ArithLanes, TableLookupEveryIndex) {
  Image src(256, 1, 1);
  for (uint32_t x = 0; x < 256; ++x) src.at<uint8_t>(x, 0) = static_cast<uint8_t>(x * 7 + 3);
  tvxtest::ForEachTarget([&] {
    std::vector<uint8_t> lut(256);
    for (int pattern = 0; pattern < 3; ++pattern) {
      for (int i = 0; i < 256; ++i)
        lut[i] = static_cast<uint8_t>(pattern == 0 ? 255 - i : pattern == 1 ? (i * 37) ^ 0x5A : (i == 200 ? 1 : 0));
      Image out(256, 1, 1);
      ASSERT_EQ(0, tvxTableLookupu8V(src.as<uint8_t>(), 256, 1, 256, lut.data(), out.as<uint8_t>(), 256));
      for (uint32_t x = 0; x < 256; ++x) ASSERT_EQ(out.at<uint8_t>(x, 0), lut[src.at<uint8_t>(x, 0)]) << x;
    }
  });
}

// ---- in place ------------------------------------------------------------------------------

// Copies the rectangle of a u8 image.
void CopyRect(const Image& from, Image& to) {
  for (uint32_t y = 0; y < from.height(); ++y) std::memcpy(to.row(y), from.row(y), from.width());
}

// Same-type operations may write over their first source.
TEST(ArithLanes, InPlaceMatchesOutOfPlace) {
  std::vector<uint8_t> lut(256);
  for (auto& v : lut) v = static_cast<uint8_t>(g_rng());
  Sweep([&](const Shape& s) {
    Image a = Input<uint8_t>(s), b = Input<uint8_t>(s);
    Image ref(s.width, s.height, 1, s.pad, s.misalign);
    Image work(s.width, s.height, 1, s.pad, s.misalign);
    CopyRect(a, work);
    tvxAbsDiffu8C(a.as<uint8_t>(), b.as<uint8_t>(), s.width, s.height, a.stride(), ref.as<uint8_t>(), a.stride());
    tvxAbsDiffu8V(work.as<uint8_t>(), b.as<uint8_t>(), s.width, s.height, a.stride(), work.as<uint8_t>(),
                  a.stride());
    bool ok = work.SameRect(ref);
    CopyRect(a, work);
    tvxAddu8C(a.as<uint8_t>(), s.width, s.height, a.stride(), b.as<uint8_t>(), b.stride(), 1, ref.as<uint8_t>(),
              ref.stride());
    tvxAddu8V(work.as<uint8_t>(), s.width, s.height, work.stride(), b.as<uint8_t>(), b.stride(), 1,
              work.as<uint8_t>(), work.stride());
    ok = ok && work.SameRect(ref);
    CopyRect(a, work);
    tvxElementMultiplyu8C(a.as<uint8_t>(), s.width, s.height, a.stride(), b.as<uint8_t>(), b.stride(), 3, 1,
                          ref.as<uint8_t>(), ref.stride());
    tvxElementMultiplyu8V(work.as<uint8_t>(), s.width, s.height, work.stride(), b.as<uint8_t>(), b.stride(), 3,
                          1, work.as<uint8_t>(), work.stride());
    ok = ok && work.SameRect(ref);
    CopyRect(a, work);
    tvxTableLookupu8C(a.as<uint8_t>(), s.width, s.height, a.stride(), lut.data(), ref.as<uint8_t>(), ref.stride());
    tvxTableLookupu8V(work.as<uint8_t>(), s.width, s.height, work.stride(), lut.data(), work.as<uint8_t>(),
                      work.stride());
    ok = ok && work.SameRect(ref) && work.GuardsIntact();
    EXPECT_TRUE(ok);
    return ok;
  });
}

}  // namespace
