// SIMD variants of the convolution family against their reference variants on every compiled
// target: widths around each kernel size up to large rows, padded and misaligned rows whose
// guards must survive, destination pixels the operations leave alone, extreme and random
// pixels and kernels, shifts across both directions and past 31.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;

struct Shape {
  uint32_t width, height, pad, misalign;
};

// Widths from just above the kernel to a few vectors past it, plus long rows.
std::vector<Shape> Shapes(uint32_t minWidth, uint32_t minHeight) {
  std::vector<Shape> shapes;
  for (uint32_t w = minWidth; w <= minWidth + 70; w += (w < minWidth + 40 ? 1 : 7))
    shapes.push_back({w, minHeight + w % 3, (w * 7) % 13, w % 4});
  shapes.push_back({1021, minHeight + 1, 5, 3});
  shapes.push_back({1920, minHeight, 0, 0});
  return shapes;
}

// Random bytes with runs of 0 and 255 so that sums reach their extremes.
void FillBytes(Image& img, std::mt19937& rng) {
  img.RandomizeWithExtremes(rng, 1, 8);
}

// Kernels of several characters: random full range, all at one extreme, sparse, and small
// ones whose whole sum fits in 16 bits.
std::vector<int8_t> Kernel(std::mt19937& rng, size_t n, int kind) {
  std::vector<int8_t> k(n);
  for (int8_t& v : k) {
    switch (kind % 4) {
      case 0: v = int8_t(rng()); break;
      case 1: v = (kind & 4) ? int8_t(-128) : int8_t(127); break;
      case 2: v = rng() % 4 == 0 ? int8_t(rng()) : int8_t(0); break;
      default: v = int8_t(int(rng() % 5) - 2); break;
    }
  }
  return k;
}

constexpr int32_t kShifts[] = {0, 3, 7, 12, 19, 31, 36, -1, -4, -17};

// Runs reference and SIMD forms on twin destinations of elemBytes per pixel and compares them.
// Padding and misalignment come in whole elements.
template <typename C, typename V>
void Compare(uint32_t w, uint32_t h, uint32_t elemBytes, const Shape& s, C callC, V callV) {
  const uint32_t pad = (s.pad + 1) * elemBytes, misalign = (s.misalign + 1) % 4 * elemBytes;
  Image c(w, h, elemBytes, pad, misalign), v(w, h, elemBytes, pad, misalign);
  for (uint32_t y = 0; y < h; ++y) {
    std::memset(c.row(y), 0x3C, w * elemBytes);
    std::memset(v.row(y), 0x3C, w * elemBytes);
  }
  callC(c);
  callV(v);
  EXPECT_TRUE(v.SameRect(c));
  EXPECT_TRUE(v.GuardsIntact());
  EXPECT_TRUE(c.GuardsIntact());
}

class ConvLanes : public ::testing::Test {
 protected:
  std::mt19937 rng_{11};
};

TEST_F(ConvLanes, CorrNxNMatchesReference) {
  tvxtest::ForEachTarget([&] {
    int round = 0;
    for (uint32_t N : {1u, 2u, 3u, 5u, 6u, 11u}) {
      for (const Shape& s : Shapes(N + 1, N + 1)) {
        if (s.width > 1100 && N > 5) continue;
        SCOPED_TRACE(::testing::Message() << "N " << N << " " << s.width << "x" << s.height);
        Image src(s.width, s.height, 1, s.pad, s.misalign);
        FillBytes(src, rng_);
        const std::vector<int8_t> k = Kernel(rng_, N * N, round);
        const int32_t shift = kShifts[round % 10];
        ++round;
        const uint32_t w = s.width, h = s.height;
        Compare(w, h, 1, s,
                [&](Image& d) { EXPECT_EQ(tvxFilterCorrNxNu8C(k.data(), N, shift, src.bytes(), w, h, src.stride(), d.bytes(), d.stride()), 0); },
                [&](Image& d) { EXPECT_EQ(tvxFilterCorrNxNu8V(k.data(), N, shift, src.bytes(), w, h, src.stride(), d.bytes(), d.stride()), 0); });
        Compare(w, h, 2, s,
                [&](Image& d) { EXPECT_EQ(tvxFilterCorrNxNu8s16C(k.data(), N, shift, src.bytes(), w, h, src.stride(), d.as<int16_t>(), d.stride()), 0); },
                [&](Image& d) { EXPECT_EQ(tvxFilterCorrNxNu8s16V(k.data(), N, shift, src.bytes(), w, h, src.stride(), d.as<int16_t>(), d.stride()), 0); });
        if (N == 3) {
          Compare(w, h, 1, s,
                  [&](Image& d) { tvxFilterCorr3x3s8_v2C(k.data(), src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), shift); },
                  [&](Image& d) { tvxFilterCorr3x3s8_v2V(k.data(), src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), shift); });
        }
        std::vector<float> kf(N * N);
        for (size_t i = 0; i < kf.size(); ++i) kf[i] = float(k[i]) * 0.37f + 0.01f;
        Compare(w, h, 4, s,
                [&](Image& d) { EXPECT_EQ(tvxFilterCorrNxNu8f32C(kf.data(), N, src.bytes(), w, h, src.stride(), d.as<float>(), d.stride()), 0); },
                [&](Image& d) { EXPECT_EQ(tvxFilterCorrNxNu8f32V(kf.data(), N, src.bytes(), w, h, src.stride(), d.as<float>(), d.stride()), 0); });
      }
    }
  });
}

TEST_F(ConvLanes, Corr3x3SmallImagesMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (uint32_t w = 1; w <= 5; ++w)
      for (uint32_t h = 1; h <= 4; ++h) {
        const Shape s{w, h, 2, 1};
        Image src(w, h, 1, 1, 2);
        FillBytes(src, rng_);
        const std::vector<int8_t> k = Kernel(rng_, 9, int(w + h));
        Compare(w, h, 1, s,
                [&](Image& d) { tvxFilterCorr3x3s8_v2C(k.data(), src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), 2); },
                [&](Image& d) { tvxFilterCorr3x3s8_v2V(k.data(), src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), 2); });
      }
  });
}

TEST_F(ConvLanes, ConvolveMatchesReference) {
  struct Size { uint32_t M, N; };
  tvxtest::ForEachTarget([&] {
    int round = 0;
    for (const Size& ks : {Size{1, 1}, Size{3, 3}, Size{5, 5}, Size{4, 2}, Size{2, 7}, Size{11, 11}}) {
      for (const Shape& s : Shapes(1, 1)) {
        if (s.width > 1100 && ks.M > 5) continue;
        const uint32_t type = uint32_t(round % 3), w = s.width, h = s.height;
        SCOPED_TRACE(::testing::Message() << ks.M << "x" << ks.N << " border " << type << " " << w << "x" << h);
        Image src(w, h, 1, s.pad, s.misalign);
        FillBytes(src, rng_);
        const std::vector<int8_t> k = Kernel(rng_, ks.M * ks.N, round);
        const int32_t shift = kShifts[round % 10];
        const uint8_t value = uint8_t(rng_());
        ++round;
        Compare(w, h, 1, s,
                [&](Image& d) { EXPECT_EQ(tvxFilterConvolveMxNu8C(k.data(), ks.M, ks.N, shift, src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), type, value), 0); },
                [&](Image& d) { EXPECT_EQ(tvxFilterConvolveMxNu8V(k.data(), ks.M, ks.N, shift, src.bytes(), w, h, src.stride(), d.bytes(), d.stride(), type, value), 0); });
        Compare(w, h, 2, s,
                [&](Image& d) { EXPECT_EQ(tvxFilterConvolveMxNu8s16C(k.data(), ks.M, ks.N, shift, src.bytes(), w, h, src.stride(), d.as<int16_t>(), d.stride(), type, value), 0); },
                [&](Image& d) { EXPECT_EQ(tvxFilterConvolveMxNu8s16V(k.data(), ks.M, ks.N, shift, src.bytes(), w, h, src.stride(), d.as<int16_t>(), d.stride(), type, value), 0); });
      }
    }
    // A big kernel: both variants take the spectral path.
    const Shape s{37, 21, 3, 1};
    Image src(37, 21, 1, 3, 1);
    FillBytes(src, rng_);
    const std::vector<int8_t> k = Kernel(rng_, 66 * 63, 0);
    Compare(37, 21, 2, s,
            [&](Image& d) { EXPECT_EQ(tvxFilterConvolveMxNu8s16C(k.data(), 66, 63, 14, src.bytes(), 37, 21, src.stride(), d.as<int16_t>(), d.stride(), 2, 0), 0); },
            [&](Image& d) { EXPECT_EQ(tvxFilterConvolveMxNu8s16V(k.data(), 66, 63, 14, src.bytes(), 37, 21, src.stride(), d.as<int16_t>(), d.stride(), 2, 0), 0); });
  });
}

TEST_F(ConvLanes, ConvValidMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (int trial = 0; trial < 40; ++trial) {
      const uint32_t w2 = 1 + rng_() % 6, h2 = 1 + rng_() % 5;
      const uint32_t w1 = w2 + (trial == 39 ? 900 : rng_() % 40), h1 = h2 + rng_() % 4;
      SCOPED_TRACE(::testing::Message() << w1 << "x" << h1 << " by " << w2 << "x" << h2);
      Image a(w1, h1, 2, trial % 5 * 2, trial % 3 * 2), b(w2, h2, 2, trial % 3 * 2, 0);
      a.Randomize(rng_);  // every s16 value, extremes included
      b.Randomize(rng_);
      const uint32_t ow = w1 - w2 + 1, oh = h1 - h2 + 1;
      const Shape s{ow, oh, uint32_t(trial % 7), uint32_t(trial % 4)};
      Compare(ow, oh, 4, s,
              [&](Image& d) { tvxConvValids16C(a.as<int16_t>(), w1, h1, a.stride(), b.as<int16_t>(), w2, h2, b.stride(), d.as<int32_t>(), d.stride()); },
              [&](Image& d) { tvxConvValids16V(a.as<int16_t>(), w1, h1, a.stride(), b.as<int16_t>(), w2, h2, b.stride(), d.as<int32_t>(), d.stride()); });
    }
  });
}

TEST_F(ConvLanes, SeparableMatchReference) {
  tvxtest::ForEachTarget([&] {
    int round = 0;
    // Byte correlation.
    for (uint32_t M : {1u, 3u, 4u, 9u}) {
      for (const Shape& s : Shapes(M + 1, 6)) {
        if (s.width > 1100 && M > 3) continue;
        const uint32_t N = 1 + (s.width + M) % 5, w = s.width, h = s.height;
        SCOPED_TRACE(::testing::Message() << M << "x" << N << " " << w << "x" << h);
        Image src(w, h, 1, s.pad, s.misalign);
        FillBytes(src, rng_);
        const std::vector<int8_t> kx = Kernel(rng_, M, round), ky = Kernel(rng_, N, round + 1);
        const int32_t shift = kShifts[round % 10];
        ++round;
        Compare(w, h, 1, s,
                [&](Image& d) { EXPECT_EQ(tvxFilterCorrSepMxNu8C(kx.data(), ky.data(), M, N, shift, src.bytes(), w, h, src.stride(), d.bytes(), d.stride()), 0); },
                [&](Image& d) { EXPECT_EQ(tvxFilterCorrSepMxNu8V(kx.data(), ky.data(), M, N, shift, src.bytes(), w, h, src.stride(), d.bytes(), d.stride()), 0); });
        // Separable convolution of bytes with 16-bit kernels, every border.
        std::vector<int16_t> cx(M), cy(N);
        for (int16_t& v : cx) v = int16_t(rng_());
        for (int16_t& v : cy) v = int16_t(int(rng_() % 601) - 300);
        const uint32_t type = uint32_t(round % 3);
        Compare(w, h, 2, s,
                [&](Image& d) { EXPECT_EQ(tvxFilterConvSepMxNs16C(cx.data(), cy.data(), M, N, shift + 8, src.bytes(), w, h, src.stride(), d.as<int16_t>(), d.stride(), type, 201), 0); },
                [&](Image& d) { EXPECT_EQ(tvxFilterConvSepMxNs16V(cx.data(), cy.data(), M, N, shift + 8, src.bytes(), w, h, src.stride(), d.as<int16_t>(), d.stride(), type, 201), 0); });
      }
    }
    // 16-bit correlations: every s16 pixel and kernel value, so sums wrap as well.
    using Fixed = int32_t (*)(const int16_t*, const int16_t*, const int16_t*, uint32_t, uint32_t, uint32_t, int16_t*, uint32_t);
    const struct { uint32_t N; Fixed c, v; } fixed[] = {
        {9, &tvxFilterCorrSep9x9s16C, &tvxFilterCorrSep9x9s16V},
        {11, &tvxFilterCorrSep11x11s16C, &tvxFilterCorrSep11x11s16V},
        {13, &tvxFilterCorrSep13x13s16C, &tvxFilterCorrSep13x13s16V},
        {15, &tvxFilterCorrSep15x15s16C, &tvxFilterCorrSep15x15s16V},
        {17, &tvxFilterCorrSep17x17s16C, &tvxFilterCorrSep17x17s16V}};
    for (const auto& f : fixed) {
      for (uint32_t extra : {1u, 2u, 7u, 8u, 9u, 16u, 33u, 60u}) {
        const uint32_t w = f.N + extra, h = f.N + 1 + extra % 3;
        const Shape s{w, h, extra % 5, extra % 3};
        SCOPED_TRACE(::testing::Message() << "N " << f.N << " " << w << "x" << h);
        Image src(w, h, 2, s.pad * 2, s.misalign * 2);
        src.Randomize(rng_);
        std::vector<int16_t> kx(f.N), ky(f.N);
        for (int16_t& v : kx) v = int16_t(extra % 2 ? rng_() : rng_() % 4001);
        for (int16_t& v : ky) v = int16_t(extra % 2 ? rng_() : rng_() % 4001);
        Compare(w, h, 2, s,
                [&](Image& d) { EXPECT_EQ(f.c(kx.data(), ky.data(), src.as<int16_t>(), w, h, src.stride(), d.as<int16_t>(), d.stride()), 0); },
                [&](Image& d) { EXPECT_EQ(f.v(kx.data(), ky.data(), src.as<int16_t>(), w, h, src.stride(), d.as<int16_t>(), d.stride()), 0); });
        const uint32_t n = 1 + extra % 8;
        Compare(w, h, 2, s,
                [&](Image& d) { EXPECT_EQ(tvxFilterCorrSepNxNs16C(kx.data(), ky.data(), n, src.as<int16_t>(), w, h, src.stride(), d.as<int16_t>(), d.stride()), 0); },
                [&](Image& d) { EXPECT_EQ(tvxFilterCorrSepNxNs16V(kx.data(), ky.data(), n, src.as<int16_t>(), w, h, src.stride(), d.as<int16_t>(), d.stride()), 0); });
      }
    }
  });
}

}  // namespace
