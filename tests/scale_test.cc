// Scaling family on the reference tier: worked values, every result checked against an
// independent formulation (quarter-weight bilinear sampling with clamped neighbours for the
// up-samplers, separable 3:1 weights for 3 to 2, plain block means for the reductions) over
// random images of odd sizes, and the rejection of bad arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"
#include "log_capture.h"

namespace {

using tvxtest::Image;
using Bytes = std::vector<uint8_t>;

using tvxtest::Capture;
using tvxtest::g_lines;

class Scale : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  static std::string Assertion(const char* name, const char* cond) {
    return std::string("tavix_lib_log|Assertion failed @") + name + ": " + cond + "\n";
  }
  std::mt19937 rng_{2024};
};

int Clamp(int v, int hi) { return std::min(std::max(v, 0), hi); }

// Output sample j of an up-sampling by 2 sits at source position (2j - 1) / 4: the two source
// samples around it (clamped to the image) with weights in quarters.
struct Taps {
  int i0, i1, w0, w1;
};
Taps TapsOf(int j, int size) {
  const int t = 2 * j - 1;
  const int i0 = t >= 0 ? t / 4 : -1;
  const int frac = t - 4 * i0;
  return {Clamp(i0, size - 1), Clamp(i0 + 1, size - 1), 4 - frac, frac};
}

// Expected up-sampled byte at output pixel (x, y), channel c, for doubled width and/or height.
uint8_t Upsampled(const Image& src, uint32_t ch, bool wide, bool tall, int x, int y, uint32_t c) {
  const Taps tx = wide ? TapsOf(x, src.width()) : Taps{x, x, 4, 0};
  const Taps ty = tall ? TapsOf(y, src.height()) : Taps{y, y, 4, 0};
  const auto s = [&](int xi, int yi) { return int(src.row(yi)[xi * ch + c]); };
  const int sum = ty.w0 * (tx.w0 * s(tx.i0, ty.i0) + tx.w1 * s(tx.i1, ty.i0)) +
                  ty.w1 * (tx.w0 * s(tx.i0, ty.i1) + tx.w1 * s(tx.i1, ty.i1));
  return static_cast<uint8_t>((sum + 8) >> 4);
}

using Upsampler = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);
struct UpsampleCase {
  const char* name;
  Upsampler fn;
  uint32_t ch;
  bool wide, tall;
};
const UpsampleCase kUpsamplers[] = {
    {"horizontal", tvxUpsampleHorizontalu8, 1, true, false},
    {"vertical", tvxUpsampleVerticalu8, 1, false, true},
    {"2d", tvxUpsample2Du8, 1, true, true},
    {"horizontal interleaved", tvxUpsampleHorizontalInterleavedu8, 2, true, false},
    {"vertical interleaved", tvxUpsampleVerticalInterleavedu8, 2, false, true},
    {"2d interleaved", tvxUpsample2DInterleavedu8, 2, true, true},
};

// ---- reductions ------------------------------------------------------------------------------

TEST_F(Scale, ReductionsTruncateBlockSums) {
  const Bytes quad = {1, 2, 3, 4};
  uint8_t out = 0;
  tvxScaleDownBy2u8(quad.data(), 2, 2, &out);
  EXPECT_EQ(out, 2) << "10 >> 2 truncates";

  Bytes block(16);
  for (int i = 0; i < 16; ++i) block[i] = static_cast<uint8_t>(i == 0 ? 15 : 0);  // sum 15 >> 4 = 0
  tvxScaleDownBy4u8(block.data(), 4, 4, &out);
  EXPECT_EQ(out, 0);
  block[1] = 1;
  tvxScaleDownBy4u8(block.data(), 4, 4, &out);
  EXPECT_EQ(out, 1);

  // 10x10 to 3x3: 3x3 means of the top-left 9x9; the last column and row (255) are ignored.
  Bytes src(100);
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 10; ++x) src[y * 10 + x] = (x == 9 || y == 9) ? 255 : static_cast<uint8_t>(x + 10 * y);
  Bytes dst(9, 0xEE);
  tvxScaleDownu8(src.data(), 10, 10, dst.data(), 3, 3);
  // Block (bx, by) holds x + 10y over three columns and rows: mean 3bx + 1 + 10 (3by + 1).
  for (int by = 0; by < 3; ++by)
    for (int bx = 0; bx < 3; ++bx) EXPECT_EQ(dst[by * 3 + bx], 3 * bx + 1 + 10 * (3 * by + 1)) << bx << "," << by;
}

// Means of fx x fy blocks; the by-2 and by-4 reductions are the factors 2 and 4.
TEST_F(Scale, ReductionsMatchBlockMeansOnRandomImages) {
  for (uint32_t w : {5u, 13u, 31u}) {
    for (uint32_t h : {5u, 9u, 17u}) {
      Image src(w, h, 1, 3, 1);
      src.Randomize(rng_);
      for (uint32_t f : {2u, 4u}) {
        Image out(w / f, h / f, 1, 2, 3);
        (f == 2 ? tvxScaleDownBy2u8_v2 : tvxScaleDownBy4u8_v2)(src.bytes(), w, h, src.stride(), out.bytes(), out.stride());
        for (uint32_t y = 0; y < h / f; ++y)
          for (uint32_t x = 0; x < w / f; ++x) {
            int sum = 0;
            for (uint32_t k = 0; k < f * f; ++k) sum += src.row(y * f + k / f)[x * f + k % f];
            ASSERT_EQ(out.row(y)[x], sum / int(f * f)) << w << "x" << h << " by " << f;
          }
        EXPECT_TRUE(out.GuardsIntact());
      }
      const uint32_t dw = w / 3 + 1, dh = h / 4 + 1;  // uneven factors with leftovers
      Image out(dw, dh, 1, 1, 2);
      tvxScaleDownu8_v2(src.bytes(), w, h, src.stride(), out.bytes(), dw, dh, out.stride());
      const uint32_t fx = w / dw, fy = h / dh;
      for (uint32_t y = 0; y < dh; ++y)
        for (uint32_t x = 0; x < dw; ++x) {
          int sum = 0;
          for (uint32_t k = 0; k < fx * fy; ++k) sum += src.row(y * fy + k / fx)[x * fx + k % fx];
          ASSERT_EQ(out.row(y)[x], sum / int(fx * fy)) << w << "x" << h << " to " << dw << "x" << dh;
        }
      EXPECT_TRUE(out.GuardsIntact());
    }
  }
}

TEST_F(Scale, ReductionsPackZeroStridesAndRejectBadArguments) {
  // Zero strides: packed source rows and destination rows of the output width.
  const Bytes src = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 120};  // 3 rows of 4
  Bytes dst(3, 0xEE);
  tvxScaleDownBy2u8_v2(src.data(), 4, 3, 0, dst.data(), 0);
  EXPECT_EQ(dst, (Bytes{35, 55, 0xEE}));  // the odd last row is ignored
  tvxScaleDownu8_v2(src.data(), 4, 3, 0, dst.data(), 2, 1, 0);
  EXPECT_EQ(dst, (Bytes{55, 75, 0xEE}));  // 2x3 blocks

  Bytes untouched(8, 0x77);
  tvxScaleDownBy2u8(nullptr, 4, 4, untouched.data());
  tvxScaleDownBy4u8_v2(src.data(), 4, 3, 3, untouched.data(), 1);
  tvxScaleDownu8(src.data(), 4, 3, untouched.data(), 5, 1);  // wider output: size relation
  tvxScaleDownu8_v2(src.data(), 4, 3, 4, untouched.data(), 2, 4, 2);
  tvxScaleDownu8_v2(src.data(), 4, 3, 4, untouched.data(), 0, 1, 2);
  EXPECT_EQ(untouched, Bytes(8, 0x77));
  EXPECT_EQ(g_lines,
            (std::vector<std::string>{
                Assertion("tvxScaleDownBy2u8", "src && dst && srcWidth && srcHeight"),
                Assertion("tvxScaleDownBy4u8_v2",
                          "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && (dstStride >= srcWidth / 4)"),
                "tavix_lib_log|Error at tvxScaleDownu8\n",
                "tavix_lib_log|Error at tvxScaleDownu8_v2\n",
                Assertion("tvxScaleDownu8_v2",
                          "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && dstWidth && dstHeight && "
                          "(dstStride >= dstWidth) && srcWidth >= dstWidth && srcHeight >= dstHeight"),
            }));
}

TEST_F(Scale, ThreeToTwoKeepsConstantsAndRejectsSmallSources) {
  Bytes flat(6 * 6, 77), out(16, 0xEE);
  EXPECT_EQ(tvxScaleDown3To2u8(flat.data(), 6, 6, 6, out.data(), 4), 0);
  EXPECT_EQ(out, Bytes(16, 77));
  Bytes untouched(16, 0xEE);
  EXPECT_EQ(tvxScaleDown3To2u8(flat.data(), 2, 6, 6, untouched.data(), 4), 1);
  EXPECT_EQ(tvxScaleDown3To2u8(flat.data(), 6, 2, 6, untouched.data(), 4), 1);
  EXPECT_EQ(untouched, Bytes(16, 0xEE));
  EXPECT_EQ(tvxScaleDown3To2u8(nullptr, 6, 6, 6, untouched.data(), 4), 3);
  EXPECT_EQ(tvxScaleDown3To2u8(flat.data(), 6, 6, 5, untouched.data(), 4), 3);
  EXPECT_EQ(tvxScaleDown3To2u8(flat.data(), 6, 6, 6, untouched.data(), 3), 3);
  EXPECT_EQ(untouched, Bytes(16, 0xEE));
  EXPECT_TRUE(g_lines.empty());
}

// Each output of a 3x3 block weighs its corner 3:1 against the middle row and column.
TEST_F(Scale, ThreeToTwoMatchesSeparableWeights) {
  for (uint32_t w : {3u, 8u, 29u}) {
    for (uint32_t h : {3u, 7u, 11u}) {
      Image src(w, h, 1, 2, 1);
      src.Randomize(rng_);
      Image out(w / 3 * 2, h / 3 * 2, 1, 3, 2);
      ASSERT_EQ(tvxScaleDown3To2u8(src.bytes(), w, h, src.stride(), out.bytes(), out.stride()), 0);
      for (uint32_t y = 0; y < out.height(); ++y)
        for (uint32_t x = 0; x < out.width(); ++x) {
          const uint32_t cy = y / 2 * 3 + (y % 2) * 2, cx = x / 2 * 3 + (x % 2) * 2;  // corner
          const uint32_t my = y / 2 * 3 + 1, mx = x / 2 * 3 + 1;                        // middle
          const auto p = [&](uint32_t xx, uint32_t yy) { return int(src.row(yy)[xx]); };
          const int sum = 3 * (3 * p(cx, cy) + p(mx, cy)) + (3 * p(cx, my) + p(mx, my));
          ASSERT_EQ(out.row(y)[x], sum >> 4) << w << "x" << h << " at " << x << "," << y;
        }
      EXPECT_TRUE(out.GuardsIntact());
    }
  }
  // Zero strides: packed source, destination rows of (width / 3) * 2.
  Bytes src(7 * 3, 40), dst(4 * 2 + 1, 0xEE);
  EXPECT_EQ(tvxScaleDown3To2u8(src.data(), 7, 3, 0, dst.data(), 0), 0);
  EXPECT_EQ(dst, (Bytes{40, 40, 40, 40, 40, 40, 40, 40, 0xEE}));
}

// ---- up-sampling -----------------------------------------------------------------------------

TEST_F(Scale, UpsamplingWorkedValues) {
  const Bytes pair = {0, 4};
  Bytes out(4);
  tvxUpsampleHorizontalu8(pair.data(), 2, 1, 2, out.data(), 4);
  EXPECT_EQ(out, (Bytes{0, 1, 3, 4}));
  // Vertically, two columns (0 -> 4 and 8 -> 0); with one column the inner rows stay unwritten.
  const Bytes columns = {0, 8, 4, 0};
  Bytes tall(8);
  tvxUpsampleVerticalu8(columns.data(), 2, 2, 2, tall.data(), 2);
  EXPECT_EQ(tall, (Bytes{0, 8, 1, 6, 3, 2, 4, 0}));
  Bytes narrow(4, 0xEE);
  tvxUpsampleVerticalu8(pair.data(), 1, 2, 1, narrow.data(), 1);
  EXPECT_EQ(narrow, (Bytes{0, 0xEE, 0xEE, 4}));

  // Interleaved pairs: each byte on its own (0 -> 4 and 100 -> 0).
  const Bytes chroma = {0, 100, 4, 0};
  Bytes wide(8);
  tvxUpsampleHorizontalInterleavedu8(chroma.data(), 2, 1, 4, wide.data(), 8);
  EXPECT_EQ(wide, (Bytes{0, 100, 1, 75, 3, 25, 4, 0}));

  // 2-D of [[0, 16], [32, 48]]: inner samples (9n + 3e + 3e' + f + 8) >> 4.
  const Bytes square = {0, 16, 32, 48};
  Bytes big(16);
  tvxUpsample2Du8(square.data(), 2, 2, 2, big.data(), 4);
  EXPECT_EQ(big, (Bytes{0, 4, 12, 16, 8, 12, 20, 24, 24, 28, 36, 40, 32, 36, 44, 48}));
}

TEST_F(Scale, UpsamplingMatchesClampedBilinearOnRandomImages) {
  for (const UpsampleCase& u : kUpsamplers) {
    for (uint32_t w : {1u, 2u, 7u, 33u}) {
      for (uint32_t h : {1u, 2u, 5u}) {
        SCOPED_TRACE(::testing::Message() << u.name << " " << w << "x" << h);
        Image src(w, h, u.ch, 3, 1);
        src.Randomize(rng_);
        const uint32_t ow = u.wide ? 2 * w : w, oh = u.tall ? 2 * h : h;
        Image out(ow, oh, u.ch, 5, 2);
        u.fn(src.bytes(), w, h, src.stride(), out.bytes(), out.stride());
        for (uint32_t y = 0; y < oh; ++y)
          for (uint32_t x = 0; x < ow; ++x)
            for (uint32_t c = 0; c < u.ch; ++c) {
              // Vertical inner rows leave an odd last pixel unwritten.
              const bool skipped = u.tall && !u.wide && w % 2 == 1 && x == w - 1 && y > 0 && y + 1 < oh;
              const uint8_t want = skipped ? tvxtest::kGuard : Upsampled(src, u.ch, u.wide, u.tall, x, y, c);
              ASSERT_EQ(out.row(y)[x * u.ch + c], want) << "at " << x << "," << y << " byte " << c;
            }
        EXPECT_TRUE(out.GuardsIntact());
      }
    }
  }
}

TEST_F(Scale, UpsamplingRejectsBadArguments) {
  Bytes src(8, 1), dst(64, 0x77);
  tvxUpsampleHorizontalu8(src.data(), 4, 2, 4, dst.data(), 7);
  tvxUpsampleVerticalu8(src.data(), 4, 2, 3, dst.data(), 4);
  tvxUpsample2Du8(nullptr, 4, 2, 4, dst.data(), 8);
  tvxUpsampleHorizontalInterleavedu8(src.data(), 2, 2, 4, dst.data(), 7);
  tvxUpsampleVerticalInterleavedu8(src.data(), 2, 2, 4, dst.data(), 3);
  tvxUpsample2DInterleavedu8(src.data(), 2, 0, 4, dst.data(), 8);
  EXPECT_EQ(g_lines,
            (std::vector<std::string>{
                Assertion("tvxUpsampleHorizontalu8",
                          "src && srcWidth && srcHeight && dst && (srcStride >= srcWidth) && (dstStride >= (2 * srcWidth))"),
                Assertion("tvxUpsampleVerticalu8",
                          "src && srcWidth && srcHeight && dst && (srcStride >= srcWidth) && (dstStride >=srcWidth)"),
                Assertion("tvxUpsample2Du8",
                          "src && srcWidth && srcHeight && dst && (srcStride >= srcWidth) && (dstStride >=(2 * srcWidth))"),
                Assertion("tvxUpsampleHorizontalInterleavedu8",
                          "src && srcWidth && srcHeight && dst && (srcStride >= srcWidth * 2) && (dstStride >= srcWidth * 4)"),
                Assertion("tvxUpsampleVerticalInterleavedu8",
                          "src && srcWidth && srcHeight && dst && (srcStride >= srcWidth * 2) && (dstStride >=srcWidth * 2)"),
                Assertion("tvxUpsample2DInterleavedu8",
                          "src && srcWidth && srcHeight && dst && (srcStride >= srcWidth * 2) && (dstStride >= srcWidth * 4)"),
            }));
  EXPECT_EQ(dst, Bytes(64, 0x77));
}

// ---- nearest-neighbour and bilinear -----------------------------------------------------------

TEST_F(Scale, NearestAndBilinearWorkedValues) {
  const Bytes ramp = {0, 100, 200, 40};
  Bytes half(2), wide(4);
  tvxScaleDownNNu8(ramp.data(), 4, 1, 4, half.data(), 2, 1, 2);
  EXPECT_EQ(half, (Bytes{100, 40}));  // source positions 1 and 3
  tvxScaleDownBLu8(ramp.data(), 4, 1, 4, half.data(), 2, 1, 2);
  EXPECT_EQ(half, (Bytes{50, 120}));  // midpoints of 0..100 and 200..40
  // Enlarging clamps at both ends: positions -0.25, 0.25, 0.75, 1.25.
  const Bytes pair = {0, 100};
  tvxScaleDownBLu8(pair.data(), 2, 1, 2, wide.data(), 4, 1, 4);
  EXPECT_EQ(wide, (Bytes{0, 25, 75, 100}));
  tvxScaleDownNNu8(pair.data(), 2, 1, 2, wide.data(), 4, 1, 4);
  EXPECT_EQ(wide, (Bytes{0, 0, 100, 100}));
}

// Nearest: exactly the source pixel under the output centre. Bilinear: within 1 of the blend
// with exact weights (the 1/256 weights and the final rounding move it by less).
TEST_F(Scale, NearestAndBilinearFollowCentreAlignedPositions) {
  const auto position = [](uint32_t i, uint32_t srcSize, uint32_t dstSize) {
    return (i + 0.5) * srcSize / dstSize - 0.5;
  };
  for (uint32_t w : {7u, 31u}) {
    for (uint32_t h : {5u, 9u}) {
      Image src(w, h, 1, 3, 1);
      src.Randomize(rng_);
      for (uint32_t dw : {1u, 3u, w / 2, w, 2 * w - 1}) {
        for (uint32_t dh : {1u, h / 2 + 1, h + 2}) {
          SCOPED_TRACE(::testing::Message() << w << "x" << h << " to " << dw << "x" << dh);
          Image nn(dw, dh, 1, 2, 3), bl(dw, dh, 1, 1, 2);
          tvxScaleDownNNu8(src.bytes(), w, h, src.stride(), nn.bytes(), dw, dh, nn.stride());
          tvxScaleDownBLu8(src.bytes(), w, h, src.stride(), bl.bytes(), dw, dh, bl.stride());
          for (uint32_t y = 0; y < dh; ++y)
            for (uint32_t x = 0; x < dw; ++x) {
              const int sx = int(std::floor(position(x, w, dw) + 0.5)), sy = int(std::floor(position(y, h, dh) + 0.5));
              ASSERT_EQ(nn.row(y)[x], src.row(Clamp(sy, h - 1))[Clamp(sx, w - 1)]) << x << "," << y;
              const double px = std::clamp(position(x, w, dw), 0.0, w - 1.0);
              const double py = std::clamp(position(y, h, dh), 0.0, h - 1.0);
              const int x0 = int(px), y0 = int(py);
              const int x1 = std::min<int>(x0 + 1, w - 1), y1 = std::min<int>(y0 + 1, h - 1);
              const double fx = px - x0, fy = py - y0;
              const auto p = [&](int xx, int yy) { return double(src.row(yy)[xx]); };
              const double want = (1 - fy) * ((1 - fx) * p(x0, y0) + fx * p(x1, y0)) + fy * ((1 - fx) * p(x0, y1) + fx * p(x1, y1));
              ASSERT_NEAR(bl.row(y)[x], want, 1.0) << x << "," << y;
            }
          EXPECT_TRUE(nn.GuardsIntact());
          EXPECT_TRUE(bl.GuardsIntact());
        }
      }
    }
  }
  Bytes src(16, 9), dst(16, 0x77);
  tvxScaleDownNNu8(src.data(), 4, 4, 3, dst.data(), 2, 2, 2);
  tvxScaleDownBLu8(src.data(), 4, 4, 4, dst.data(), 2, 0, 2);
  EXPECT_EQ(dst, Bytes(16, 0x77));
  const char* cond = "src && srcWidth && srcHeight && (srcStride >= srcWidth) && dst && dstWidth && dstHeight && (dstStride >= dstWidth)";
  EXPECT_EQ(g_lines, (std::vector<std::string>{Assertion("tvxScaleDownNNu8", cond), Assertion("tvxScaleDownBLu8", cond)}));
}

// ---- interleaving ------------------------------------------------------------------------------

TEST_F(Scale, InterleaveAndDeinterleaveAreInverse) {
  const Bytes a = {1, 2, 3, 99, 4, 5, 6, 99}, b = {7, 8, 9, 10, 11, 12};  // 3x2, strides 4 and 3
  Bytes both(2 * 7, 0xEE);
  tvxInterleaveu8(a.data(), b.data(), 3, 2, 4, 3, both.data(), 7);
  EXPECT_EQ(both, (Bytes{1, 7, 2, 8, 3, 9, 0xEE, 4, 10, 5, 11, 6, 12, 0xEE}));

  Bytes a2(6, 0xEE), b2(8, 0xEE);
  tvxDeinterleaveu8(both.data(), 3, 2, 7, a2.data(), 0, b2.data(), 4);  // zero stride: packed
  EXPECT_EQ(a2, (Bytes{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(b2, (Bytes{7, 8, 9, 0xEE, 10, 11, 12, 0xEE}));

  // Random round trip over odd sizes with packed source rows.
  Image pairs(13, 7, 2);
  pairs.Randomize(rng_);
  Image p0(13, 7, 1, 3, 1), p1(13, 7, 1, 0, 2), back(13, 7, 2, 5, 3);
  tvxDeinterleaveu8(pairs.bytes(), 13, 7, 0, p0.bytes(), p0.stride(), p1.bytes(), p1.stride());
  for (uint32_t y = 0; y < 7; ++y)
    for (uint32_t x = 0; x < 13; ++x) {
      ASSERT_EQ(p0.row(y)[x], pairs.row(y)[2 * x]);
      ASSERT_EQ(p1.row(y)[x], pairs.row(y)[2 * x + 1]);
    }
  tvxInterleaveu8(p0.bytes(), p1.bytes(), 13, 7, p0.stride(), p1.stride(), back.bytes(), back.stride());
  EXPECT_TRUE(back.SameRect(pairs));
  EXPECT_TRUE(p0.GuardsIntact());
  EXPECT_TRUE(p1.GuardsIntact());
  EXPECT_TRUE(back.GuardsIntact());
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Scale, InterleavingRejectsBadArguments) {
  Bytes src(16, 1), dst(32, 0x77), dst1(32, 0x77);
  tvxInterleaveu8(src.data(), src.data(), 4, 2, 4, 4, dst.data(), 7);
  tvxInterleaveu8(src.data(), src.data(), 4, 2, 0, 4, dst.data(), 8);
  tvxDeinterleaveu8(src.data(), 4, 2, 7, dst.data(), 4, dst1.data(), 4);
  tvxDeinterleaveu8(src.data(), 4, 2, 8, dst.data(), 4, nullptr, 4);
  const char* interleave =
      "src0 && src1 && dst && imageWidth && imageHeight && (src0Stride >= imageWidth) && (src1Stride >= imageWidth) && "
      "(dstStride >= imageWidth*2)";
  const char* deinterleave =
      "src && dst0 && dst1 && srcWidth && srcHeight && (srcStride == 0 || srcStride >= srcWidth*2) && (dst0Stride == 0 "
      "|| dst0Stride >= srcWidth) && (dst1Stride == 0 || dst1Stride >= srcWidth)";
  EXPECT_EQ(g_lines, (std::vector<std::string>{Assertion("tvxInterleaveu8", interleave),
                                               Assertion("tvxInterleaveu8", interleave),
                                               Assertion("tvxDeinterleaveu8", deinterleave),
                                               Assertion("tvxDeinterleaveu8", deinterleave)}));
  EXPECT_EQ(dst, Bytes(32, 0x77));
  EXPECT_EQ(dst1, Bytes(32, 0x77));
}

}  // namespace
