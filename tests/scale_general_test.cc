// General scalers through the public entries (the float reduction, an internal row, through its
// reference variant): worked values, random images against independent formulations (separable
// passes over explicitly mirrored borders for the Gaussian steps, source-space taps for the
// enlargement, exact rational positions for bilinear, exact areas and block means for area
// averaging, linear interpolation of ramps for the cubic), and bad arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
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

class ScaleGeneral : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  static std::string Assertion(const char* name, const char* cond) {
    return std::string("tavix_lib_log|Assertion failed @") + name + ": " + cond + "\n";
  }
  Image Random(uint32_t w, uint32_t h, uint32_t ch = 1) {
    Image img(w, h, ch, (w * 3) % 7, w % 3);
    img.Randomize(rng_);
    return img;
  }
  std::mt19937 rng_{4242};
};

// Mirror without repeating the edge (c b | a b c d | c b), written out for the two steps a
// 5-tap kernel reaches; needs n >= 3.
int Mirror(int i, int n) {
  if (i < 0) return -i;
  if (i >= n) return 2 * n - 2 - i;
  return i;
}

bool AllEqual(const Image& img, uint8_t v) {
  for (uint32_t y = 0; y < img.height(); ++y)
    for (uint32_t x = 0; x < img.width(); ++x)
      if (img.row(y)[x] != v) return false;
  return true;
}

// ---- Gaussian steps -----------------------------------------------------------------------------

TEST_F(ScaleGeneral, GaussianReductionWorkedValues) {
  // A single 255 at (2, 2) of an 8x8 black image: centre weight 36; from the outputs at 0 the
  // kernel reaches column and row 2 twice (at +2 and, mirrored, at -2).
  Bytes src(64, 0), dst(16, 0xEE);
  src[2 * 8 + 2] = 255;
  tvxScaleDownBy2Gaussian5x5u8(src.data(), 8, 8, dst.data());
  EXPECT_EQ(dst[1 * 4 + 1], (36 * 255 + 128) >> 8);
  EXPECT_EQ(dst[1 * 4 + 2], (6 * 255 + 128) >> 8);
  EXPECT_EQ(dst[1 * 4 + 0], (2 * 6 * 255 + 128) >> 8);
  EXPECT_EQ(dst[0 * 4 + 0], (4 * 255 + 128) >> 8);
  EXPECT_EQ(dst[3 * 4 + 3], 0);
  // At the left edge the mirror doubles the reach: a 255 at column 1 is seen from 2x = 0 twice.
  std::fill(src.begin(), src.end(), 0);
  src[4 * 8 + 1] = 255;
  tvxScaleDownBy2Gaussian5x5u8_v2(src.data(), 8, 8, 8, dst.data(), 4);
  EXPECT_EQ(dst[2 * 4 + 0], (2 * 4 * 6 * 255 + 128) >> 8);

  // 3x3: the 2x2 block (1, 2, 3, 4) mirrored around (0, 0) weighs every pixel 4.
  const Bytes quad = {1, 2, 3, 4};
  uint8_t out = 0;
  EXPECT_EQ(tvxScaleDownBy2Gaussian3x3u8(quad.data(), 2, 2, 0, &out, 0), 0);
  EXPECT_EQ(out, (4 * (1 + 2 + 3 + 4) + 8) >> 4);

  // Constant images stay constant, odd sizes drop the last column and row.
  Image flat(9, 7, 1, 2, 1), half(4, 3, 1, 1, 2), third(4, 3, 1, 3, 1);
  for (uint32_t y = 0; y < 7; ++y) std::fill(flat.row(y), flat.row(y) + 9, 173);
  tvxScaleDownBy2Gaussian5x5u8_v2(flat.bytes(), 9, 7, flat.stride(), half.bytes(), half.stride());
  EXPECT_TRUE(AllEqual(half, 173));
  EXPECT_TRUE(half.GuardsIntact());
  EXPECT_EQ(tvxScaleDownBy2Gaussian3x3u8(flat.bytes(), 9, 7, flat.stride(), third.bytes(), third.stride()), 0);
  EXPECT_TRUE(AllEqual(third, 173));
  EXPECT_TRUE(third.GuardsIntact());
  EXPECT_TRUE(g_lines.empty());
}

// Separable passes over a mirrored copy: rows filtered across at every even column, then down.
TEST_F(ScaleGeneral, GaussianReductionsMatchSeparablePasses) {
  for (uint32_t w : {3u, 6u, 11u, 32u}) {
    for (uint32_t h : {3u, 4u, 9u}) {
      const Image src = Random(w, h);
      Image out5(w / 2, h / 2, 1, 3, 1), out3(w / 2, h / 2, 1, 2, 2);
      tvxScaleDownBy2Gaussian5x5u8_v2(src.bytes(), w, h, src.stride(), out5.bytes(), out5.stride());
      ASSERT_EQ(tvxScaleDownBy2Gaussian3x3u8(src.bytes(), w, h, src.stride(), out3.bytes(), out3.stride()), 0);
      const int k5[5] = {1, 4, 6, 4, 1}, k3[3] = {1, 2, 1};
      for (uint32_t y = 0; y < h / 2; ++y) {
        for (uint32_t x = 0; x < w / 2; ++x) {
          int across5[5], across3[3];
          for (int j = -2; j <= 2; ++j) {
            const uint8_t* r = src.row(Mirror(2 * y + j, h));
            across5[j + 2] = 0;
            for (int i = -2; i <= 2; ++i) across5[j + 2] += k5[i + 2] * r[Mirror(2 * x + i, w)];
          }
          for (int j = -1; j <= 1; ++j) {
            const uint8_t* r = src.row(Mirror(2 * y + j, h));
            across3[j + 1] = r[Mirror(2 * x - 1, w)] + 2 * r[2 * x] + r[2 * x + 1];
          }
          int s5 = 0;
          for (int j = 0; j < 5; ++j) s5 += k5[j] * across5[j];
          const int s3 = k3[0] * across3[0] + k3[1] * across3[1] + k3[2] * across3[2];
          ASSERT_EQ(out5.row(y)[x], (s5 + 128) >> 8) << w << "x" << h << " at " << x << "," << y;
          ASSERT_EQ(out3.row(y)[x], (s3 + 8) >> 4) << w << "x" << h << " at " << x << "," << y;
        }
      }
      EXPECT_TRUE(out5.GuardsIntact());
      EXPECT_TRUE(out3.GuardsIntact());
      if (w % 2 == 0 && h % 2 == 0) {  // the packed form gives the same pixels
        Bytes packedSrc(w * h), packedDst((w / 2) * (h / 2));
        for (uint32_t y = 0; y < h; ++y) std::copy(src.row(y), src.row(y) + w, packedSrc.begin() + y * w);
        tvxScaleDownBy2Gaussian5x5u8(packedSrc.data(), w, h, packedDst.data());
        for (uint32_t y = 0; y < h / 2; ++y)
          for (uint32_t x = 0; x < w / 2; ++x) ASSERT_EQ(packedDst[y * (w / 2) + x], out5.row(y)[x]);
      }
    }
  }
}

TEST_F(ScaleGeneral, FloatGaussianReductionMatchesDoubleSums) {
  std::uniform_real_distribution<float> dist(-100.0f, 100.0f);
  for (uint32_t w : {4u, 10u, 22u}) {
    const uint32_t h = 6;
    Image src(w, h, 4, 8, 4), out(w / 2, h / 2, 4, 4, 0);
    src.RandomizeAs<float>(rng_, dist);
    tvxScaleDownBy2Gaussian5x5f32_v2C(src.as<float>(), w, h, src.stride(), out.as<float>(), out.stride());
    EXPECT_TRUE(out.GuardsIntact());
    const int k5[5] = {1, 4, 6, 4, 1};
    for (uint32_t y = 0; y < h / 2; ++y)
      for (uint32_t x = 0; x < w / 2; ++x) {
        double sum = 0;
        for (int j = -2; j <= 2; ++j)
          for (int i = -2; i <= 2; ++i)
            sum += k5[j + 2] * k5[i + 2] * double(reinterpret_cast<const float*>(src.row(Mirror(2 * y + j, h)))[Mirror(2 * x + i, w)]);
        ASSERT_NEAR(reinterpret_cast<const float*>(out.row(y))[x], sum / 256.0, 1e-3) << x << "," << y;
      }
    // The packed form agrees bit for bit.
    std::vector<float> packed(w * h), small((w / 2) * (h / 2));
    for (uint32_t y = 0; y < h; ++y)
      std::copy_n(reinterpret_cast<const float*>(src.row(y)), w, packed.begin() + y * w);
    tvxScaleDownBy2Gaussian5x5f32C(packed.data(), w, h, small.data());
    for (uint32_t y = 0; y < h / 2; ++y)
      for (uint32_t x = 0; x < w / 2; ++x) ASSERT_EQ(small[y * (w / 2) + x], reinterpret_cast<const float*>(out.row(y))[x]);
  }
}

TEST_F(ScaleGeneral, GaussianEnlargementWorkedValuesAndSourceTaps) {
  // (0, 64) doubles to (16, 32, 56, 64): left taps 6 + 2, right edge 1 + 7, odd outputs 4 + 4.
  const Bytes pair = {0, 64};
  Bytes out(8, 0xEE);
  tvxScaleUpBy2Gaussian5x5u8(pair.data(), 2, 1, out.data());
  EXPECT_EQ(out, (Bytes{16, 32, 56, 64, 16, 32, 56, 64}));

  // Random images against per-axis source taps: even output 2x weighs x - 1, x, x + 1 as
  // 1, 6, 1; odd output 2x + 1 weighs x and x + 1 as 4, 4; -1 mirrors to 1, n repeats n - 1.
  const auto taps = [](int o, int n, int idx[3], int w[3]) {
    const int x = o / 2;
    if (o % 2 == 0) {
      idx[0] = x == 0 ? 1 : x - 1, idx[1] = x, idx[2] = x + 1 == n ? n - 1 : x + 1;
      w[0] = 1, w[1] = 6, w[2] = 1;
    } else {
      idx[0] = x, idx[1] = x + 1 == n ? n - 1 : x + 1, idx[2] = x;
      w[0] = 4, w[1] = 4, w[2] = 0;
    }
  };
  for (uint32_t w : {2u, 5u, 17u}) {
    for (uint32_t h : {2u, 3u, 8u}) {
      const Image src = Random(w, h);
      Image big(2 * w, 2 * h, 1, 5, 3);
      tvxScaleUpBy2Gaussian5x5u8_v2(src.bytes(), w, h, src.stride(), big.bytes(), big.stride());
      EXPECT_TRUE(big.GuardsIntact());
      for (uint32_t Y = 0; Y < 2 * h; ++Y)
        for (uint32_t X = 0; X < 2 * w; ++X) {
          int iy[3], wy[3], ix[3], wx[3];
          taps(Y, h, iy, wy);
          taps(X, w, ix, wx);
          int sum = 0;
          for (int j = 0; j < 3; ++j)
            for (int i = 0; i < 3; ++i) sum += wy[j] * wx[i] * src.row(iy[j])[ix[i]];
          ASSERT_EQ(big.row(Y)[X], (sum + 32) >> 6) << w << "x" << h << " at " << X << "," << Y;
        }
    }
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(ScaleGeneral, GaussianStepsRejectBadArguments) {
  Bytes src(64, 9), dst(64, 0xEE);
  tvxScaleDownBy2Gaussian5x5u8(src.data(), 7, 8, dst.data());
  tvxScaleDownBy2Gaussian5x5u8_v2(src.data(), 8, 8, 7, dst.data(), 4);
  tvxScaleDownBy2Gaussian5x5u8_v2(src.data(), 8, 8, 8, dst.data(), 3);
  tvxScaleUpBy2Gaussian5x5u8(src.data(), 4, 0, dst.data());
  tvxScaleUpBy2Gaussian5x5u8_v2(src.data(), 4, 4, 4, dst.data(), 7);
  ASSERT_EQ(g_lines.size(), 5u);
  EXPECT_EQ(g_lines[0], Assertion("tvxScaleDownBy2Gaussian5x5u8",
                                  "src && dst && width && height && ((width & 1) == 0 ) && ((height & 1) == 0)"));
  EXPECT_EQ(g_lines[1], Assertion("tvxScaleDownBy2Gaussian5x5u8_v2",
                                  "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && (dstStride >= srcWidth/2)"));
  EXPECT_EQ(g_lines[2], g_lines[1]);
  EXPECT_EQ(g_lines[3], Assertion("tvxScaleUpBy2Gaussian5x5u8", "src && dst && width && height"));
  EXPECT_EQ(g_lines[4], Assertion("tvxScaleUpBy2Gaussian5x5u8_v2",
                                  "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && (dstStride >= srcWidth*2)"));
  EXPECT_EQ(tvxScaleDownBy2Gaussian3x3u8(src.data(), 8, 8, 7, dst.data(), 4), 3);
  EXPECT_EQ(tvxScaleDownBy2Gaussian3x3u8(src.data(), 8, 8, 8, nullptr, 4), 3);
  EXPECT_EQ(dst, Bytes(64, 0xEE));
}

// ---- general scaler -----------------------------------------------------------------------------

int32_t Scale(const Image& src, Image& dst, uint32_t interpolation, uint32_t border = 2, uint8_t value = 0) {
  return tvxScaleu8_v2(src.bytes(), src.width(), src.height(), src.stride(), dst.bytes(), dst.width(), dst.height(),
                       dst.stride(), interpolation, border, value);
}

TEST_F(ScaleGeneral, ScaleWorkedValues) {
  // 2x2 blocks of (1, 2, 3, 4): bilinear and area give the rounded mean 3, nearest the pixel
  // nearest the block centre from below-right, 4.
  Image quad(4, 2, 1, 1, 1), one(2, 1, 1, 2, 3);
  const uint8_t block[4] = {1, 2, 3, 4};
  for (uint32_t i = 0; i < 8; ++i) quad.row(i / 4)[i % 4] = block[(i / 4) * 2 + (i % 2)];
  for (uint32_t interp : {0u, 1u, 2u}) {
    ASSERT_EQ(Scale(quad, one, interp), 0);
    const uint8_t want = interp == 0 ? 4 : 3;
    EXPECT_EQ(one.row(0)[0], want) << interp;
    EXPECT_EQ(one.row(0)[1], want) << interp;
    EXPECT_TRUE(one.GuardsIntact());
  }

  // (0, 100) to 4 wide samples at -0.25, 0.25, 0.75, 1.25.
  Image ramp(2, 1, 1), wide(4, 1, 1);
  ramp.row(0)[0] = 0, ramp.row(0)[1] = 100;
  ASSERT_EQ(Scale(ramp, wide, 1, 2), 0);
  EXPECT_EQ(Bytes(wide.row(0), wide.row(0) + 4), (Bytes{0, 25, 75, 100}));
  ASSERT_EQ(Scale(ramp, wide, 1, 1, 200), 0);  // the outside is 200: a quarter of it at each end
  EXPECT_EQ(Bytes(wide.row(0), wide.row(0) + 4), (Bytes{50, 25, 75, 125}));
  ASSERT_EQ(tvxScaleu8(ramp.bytes(), 2, 1, 0, wide.bytes(), 4, 1, 0, 1), 0);  // border 0, value 0
  EXPECT_EQ(Bytes(wide.row(0), wide.row(0) + 4), (Bytes{0, 25, 75, 75}));

  // Same size copies; constant images stay constant whatever the sizes.
  const Image src = Random(13, 7);
  Image same(13, 7, 1, 3, 2);
  for (uint32_t interp : {0u, 1u, 2u}) {
    for (uint32_t border : {0u, 2u}) {
      ASSERT_EQ(Scale(src, same, interp, border, 77), 0);
      EXPECT_TRUE(same.SameRect(src)) << interp << " " << border;
    }
  }
  Image flat(11, 6, 1, 2, 1);
  for (uint32_t y = 0; y < 6; ++y) std::fill(flat.row(y), flat.row(y) + 11, 201);
  for (uint32_t dw : {3u, 11u, 25u})
    for (uint32_t dh : {1u, 5u, 13u}) {
      Image out(dw, dh, 1, 1, 3);
      for (uint32_t interp : {0u, 1u, 2u}) {
        ASSERT_EQ(Scale(flat, out, interp, 1, 201), 0);
        EXPECT_TRUE(AllEqual(out, 201)) << interp << " to " << dw << "x" << dh;
      }
      EXPECT_TRUE(out.GuardsIntact());
    }
  EXPECT_TRUE(g_lines.empty());
}

// Bilinear weights from exact rational positions: output i sits at ((2i + 1) s - d) / (2d).
struct Lin {
  int i0, w;
};
Lin LinOf(int i, int s, int d) {
  const long num = long(2 * i + 1) * s - d, den = 2L * d;
  long i0 = num / den;
  if (num < 0 && num % den) --i0;
  const long frac = num - i0 * den;
  return {int(i0), int((frac * 512 + den) / (2 * den))};
}

TEST_F(ScaleGeneral, BilinearMatchesExactPositions) {
  for (uint32_t w : {1u, 7u, 16u}) {
    for (uint32_t h : {1u, 6u}) {
      const Image src = Random(w, h);
      for (uint32_t dw : {1u, w / 2 + 1, 2 * w + 3}) {
        for (uint32_t dh : {1u, 3 * h + 1}) {
          for (uint32_t border : {0u, 2u}) {
            const uint8_t value = 33;
            Image out(dw, dh, 1, 2, 1);
            ASSERT_EQ(Scale(src, out, 1, border, value), 0);
            EXPECT_TRUE(out.GuardsIntact());
            const auto pix = [&](int x, int y) -> long {
              if (border == 2) return src.row(std::clamp(y, 0, int(h) - 1))[std::clamp(x, 0, int(w) - 1)];
              return (x < 0 || y < 0 || x >= int(w) || y >= int(h)) ? value : src.row(y)[x];
            };
            for (uint32_t y = 0; y < dh; ++y)
              for (uint32_t x = 0; x < dw; ++x) {
                const Lin lx = LinOf(x, w, dw), ly = LinOf(y, h, dh);
                const long sum = long(256 - ly.w) * (256 - lx.w) * pix(lx.i0, ly.i0) + long(256 - ly.w) * lx.w * pix(lx.i0 + 1, ly.i0) +
                                 long(ly.w) * (256 - lx.w) * pix(lx.i0, ly.i0 + 1) + long(ly.w) * lx.w * pix(lx.i0 + 1, ly.i0 + 1);
                ASSERT_EQ(out.row(y)[x], (sum + 32768) >> 16)
                    << w << "x" << h << " to " << dw << "x" << dh << " border " << border << " at " << x << "," << y;
              }
          }
        }
      }
    }
  }
}

// With a replicated border the general bilinear and nearest scalers sample exactly as the
// dedicated down-scalers do.
TEST_F(ScaleGeneral, ReplicatedBorderAgreesWithDedicatedScalers) {
  for (uint32_t w : {9u, 32u}) {
    const Image src = Random(w, 7);
    for (uint32_t dw : {1u, w / 3, w - 2})
      for (uint32_t dh : {1u, 3u, 6u}) {
        Image general(dw, dh, 1, 1, 1), dedicated(dw, dh, 1, 2, 3);
        ASSERT_EQ(Scale(src, general, 1, 2), 0);
        tvxScaleDownBLu8(src.bytes(), w, 7, src.stride(), dedicated.bytes(), dw, dh, dedicated.stride());
        EXPECT_TRUE(general.SameRect(dedicated)) << "bilinear " << w << " to " << dw << "x" << dh;
        ASSERT_EQ(Scale(src, general, 0, 0, 5), 0);
        tvxScaleDownNNu8(src.bytes(), w, 7, src.stride(), dedicated.bytes(), dw, dh, dedicated.stride());
        EXPECT_TRUE(general.SameRect(dedicated)) << "nearest " << w << " to " << dw << "x" << dh;
      }
  }
}

TEST_F(ScaleGeneral, NearestPicksCentreAlignedPixels) {
  const Image src = Random(10, 9);
  Image out(4, 4, 1, 1, 1), up(23, 20, 1);
  ASSERT_EQ(Scale(src, out, 0), 0);
  ASSERT_EQ(Scale(src, up, 0, 0, 99), 0);
  // 10 to 4 samples the centres 1.25, 3.75, 6.25, 8.75: columns 1, 3, 6, 8.
  const int cols[4] = {1, 3, 6, 8}, rows[4] = {1, 3, 5, 7};  // 9 to 4: 1.125, 3.375, 5.625, 7.875
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(out.row(y)[x], src.row(rows[y])[cols[x]]);
  for (uint32_t y = 0; y < 20; ++y)
    for (uint32_t x = 0; x < 23; ++x)
      ASSERT_EQ(up.row(y)[x], src.row(int((y + 0.5) * 9 / 20))[int((x + 0.5) * 10 / 23)]) << x << "," << y;
}

// Exact area average in doubles: the fixed-point weights keep within 2 of it, and exact
// factors of 2 and 4 give the rounded block means.
TEST_F(ScaleGeneral, AreaAveragesOverlaps) {
  const auto overlap = [](int k, int i, int s, int d) {  // of pixel k with output i, in 1/d pixels
    const long lo = long(i) * s, hi = lo + s;
    return double(std::max(0L, std::min(hi, long(k + 1) * d) - std::max(lo, long(k) * d)));
  };
  for (uint32_t w : {8u, 15u, 40u}) {
    const uint32_t h = 12;
    const Image src = Random(w, h);
    for (uint32_t dw : {w / 4, w / 2, w / 3 + 1, w - 1, w + 5}) {
      for (uint32_t dh : {h / 4, h / 2, 5u}) {
        Image out(dw, dh, 1, 3, 2), mn(dw, dh, 1, 0, 1);
        ASSERT_EQ(Scale(src, out, 2), 0);
        tvxScaleDownMNu8(src.bytes(), w, h, src.stride(), mn.bytes(), dw, dh, mn.stride());
        EXPECT_TRUE(mn.SameRect(out)) << "the M-to-N scaler is area averaging";
        EXPECT_TRUE(out.GuardsIntact());
        EXPECT_TRUE(mn.GuardsIntact());
        for (uint32_t y = 0; y < dh; ++y)
          for (uint32_t x = 0; x < dw; ++x) {
            double sum = 0;
            for (uint32_t j = 0; j < h; ++j)
              for (uint32_t i = 0; i < w; ++i) sum += overlap(i, x, w, dw) * overlap(j, y, h, dh) * src.row(j)[i];
            const double exact = sum / (double(w) * h);
            ASSERT_LE(std::fabs(out.row(y)[x] - exact), 2.0) << w << "x" << h << " to " << dw << "x" << dh;
            const uint32_t fx = w / dw, fy = h / dh;
            if (fx * dw == w && fy * dh == h && (fx == 2 || fx == 4) && (fy == 2 || fy == 4)) {
              int block = 0;
              for (uint32_t j = 0; j < fy; ++j)
                for (uint32_t i = 0; i < fx; ++i) block += src.row(y * fy + j)[x * fx + i];
              ASSERT_EQ(out.row(y)[x], (block + int(fx * fy) / 2) / int(fx * fy));
            }
          }
      }
    }
  }
}

TEST_F(ScaleGeneral, InterleavedFormsFilterEachByteOnItsOwn) {
  const uint32_t w = 13, h = 7;
  const Image pairs = Random(w, h, 2);
  Image plane[2] = {Image(w, h, 1), Image(w, h, 1)};
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x)
      for (int c = 0; c < 2; ++c) plane[c].row(y)[x] = pairs.row(y)[2 * x + c];
  using Fn = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, uint32_t, uint32_t);
  const struct {
    Fn planar, paired;
    uint32_t dw, dh;
  } kCases[] = {{tvxScaleDownMNu8, tvxScaleDownMNInterleaveu8, 5, 4},
                {tvxScaleDownMNu8, tvxScaleDownMNInterleaveu8, 17, 9},
                {tvxScaleUpPolyu8, tvxScaleUpPolyInterleaveu8, 29, 16},
                {tvxScaleUpPolyu8, tvxScaleUpPolyInterleaveu8, 6, 3}};
  for (const auto& k : kCases) {
    Image both(k.dw, k.dh, 2, 3, 1);
    k.paired(pairs.bytes(), w, h, pairs.stride(), both.bytes(), k.dw, k.dh, both.stride());
    EXPECT_TRUE(both.GuardsIntact());
    for (int c = 0; c < 2; ++c) {
      Image one(k.dw, k.dh, 1);
      k.planar(plane[c].bytes(), w, h, plane[c].stride(), one.bytes(), k.dw, k.dh, one.stride());
      for (uint32_t y = 0; y < k.dh; ++y)
        for (uint32_t x = 0; x < k.dw; ++x) ASSERT_EQ(both.row(y)[2 * x + c], one.row(y)[x]) << k.dw << " byte " << c;
    }
  }
  EXPECT_TRUE(g_lines.empty());
}

// ---- polyphase ----------------------------------------------------------------------------------

TEST_F(ScaleGeneral, PolyphaseCopiesEqualSizesAndFollowsRamps) {
  const Image src = Random(19, 6);
  Image same(19, 6, 1, 2, 1);
  tvxScaleUpPolyu8(src.bytes(), 19, 6, src.stride(), same.bytes(), 19, 6, same.stride());
  EXPECT_TRUE(same.SameRect(src));

  // A ramp 10 + 8x across, constant down: the cubic reproduces straight lines wherever its four
  // taps lie inside the image, and rows stay identical.
  const uint32_t w = 24, h = 5;
  Image ramp(w, h, 1, 3, 3);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) ramp.row(y)[x] = static_cast<uint8_t>(10 + 8 * x);
  for (uint32_t dw : {37u, 48u, 61u, 13u}) {
    Image out(dw, 11, 1, 1, 2);
    tvxScaleUpPolyu8(ramp.bytes(), w, h, ramp.stride(), out.bytes(), dw, 11, out.stride());
    EXPECT_TRUE(out.GuardsIntact());
    for (uint32_t x = 0; x < dw; ++x) {
      const double pos = (x + 0.5) * w / dw - 0.5;
      for (uint32_t y = 1; y < 11; ++y) ASSERT_EQ(out.row(y)[x], out.row(0)[x]);
      if (pos < 1.0 || pos > w - 3.0) continue;
      EXPECT_LE(std::fabs(out.row(0)[x] - (10 + 8 * pos)), 1.0) << "to " << dw << " at " << x;
    }
  }

  // Constant images stay constant; a hard edge overshoots and saturates at 0 and 255.
  Image flat(7, 4, 1), edge(8, 1, 1), big(33, 9, 1), wide(29, 1, 1);
  for (uint32_t y = 0; y < 4; ++y) std::fill(flat.row(y), flat.row(y) + 7, 58);
  tvxScaleUpPolyu8(flat.bytes(), 7, 4, flat.stride(), big.bytes(), 33, 9, big.stride());
  EXPECT_TRUE(AllEqual(big, 58));
  for (uint32_t x = 0; x < 8; ++x) edge.row(0)[x] = x < 4 ? 0 : 255;
  tvxScaleUpPolyu8(edge.bytes(), 8, 1, edge.stride(), wide.bytes(), 29, 1, wide.stride());
  int zeros = 0, fulls = 0;
  for (uint32_t x = 0; x < 29; ++x) zeros += wide.row(0)[x] == 0, fulls += wide.row(0)[x] == 255;
  EXPECT_GE(zeros, 9);
  EXPECT_GE(fulls, 9);
  for (uint32_t x = 1; x < 29; ++x) EXPECT_GE(wide.row(0)[x], wide.row(0)[x - 1]) << "clamped, not wrapped";
  EXPECT_TRUE(g_lines.empty());
}

// ---- bad arguments ------------------------------------------------------------------------------

TEST_F(ScaleGeneral, ScalersRejectBadArguments) {
  Bytes src(400, 9), dst(400, 0xEE);
  // Status entries: bad sizes, strides and codes give 3.
  EXPECT_EQ(tvxScaleu8_v2(src.data(), 10, 10, 10, dst.data(), 5, 5, 5, 3, 0, 0), 3);
  EXPECT_EQ(tvxScaleu8_v2(src.data(), 10, 10, 10, dst.data(), 5, 5, 5, 1, 3, 0), 3);
  EXPECT_EQ(tvxScaleu8_v2(src.data(), 10, 10, 9, dst.data(), 5, 5, 5, 1, 2, 0), 3);
  EXPECT_EQ(tvxScaleu8_v2(src.data(), 10, 10, 10, dst.data(), 5, 0, 5, 1, 2, 0), 3);
  EXPECT_EQ(tvxScaleu8(src.data(), 10, 10, 10, dst.data(), 5, 5, 4, 0), 3);
  EXPECT_EQ(tvxScaleu8(src.data(), 10, 10, 10, nullptr, 5, 5, 5, 0), 3);
  EXPECT_EQ(tvxScaleu8(src.data(), 10, 10, 10, dst.data(), 5, 5, 5, 7), 3);
  EXPECT_TRUE(g_lines.empty());

  // Assertion entries log their condition.
  tvxScaleDownMNu8(src.data(), 20, 4, 20, dst.data(), 1, 2, 1);  // a factor of 20
  tvxScaleDownMNInterleaveu8(src.data(), 10, 4, 19, dst.data(), 5, 2, 10);
  tvxScaleUpPolyu8(src.data(), 10, 4, 10, dst.data(), 20, 8, 19);
  tvxScaleUpPolyInterleaveu8(src.data(), 10, 0, 20, dst.data(), 20, 8, 40);
  ASSERT_EQ(g_lines.size(), 4u);
  EXPECT_EQ(g_lines[0], Assertion("tvxScaleDownMNu8",
                                  "src && dst && srcWidth && srcHeight && dstWidth && dstHeight && (srcStride==0 || srcStride >=srcWidth) && (dstStride == 0 || dstStride >= dstWidth) && dstWidth * 20 > srcWidth && dstHeight * 20 > srcHeight"));
  EXPECT_EQ(g_lines[1], Assertion("tvxScaleDownMNInterleaveu8",
                                  "src && dst && srcWidth && srcHeight && dstWidth && dstHeight && (srcStride==0 || srcStride >=srcWidth*2) && (dstStride == 0 || dstStride >= dstWidth*2)"));
  EXPECT_EQ(g_lines[2], Assertion("tvxScaleUpPolyu8",
                                  "src && dst && srcWidth && srcHeight && (srcStride == 0 || srcStride >= srcWidth) && dstWidth && dstHeight && (dstStride == 0 || dstStride >= dstWidth)"));
  EXPECT_EQ(g_lines[3], Assertion("tvxScaleUpPolyInterleaveu8",
                                  "src && dst && srcWidth && srcHeight && dstWidth && dstHeight && (srcStride==0 || srcStride >=srcWidth*2) && (dstStride == 0 || dstStride >= dstWidth*2)"));
  EXPECT_EQ(dst, Bytes(400, 0xEE));

  // Zero strides are packed rows.
  const Bytes quad = {10, 20, 30, 40, 50, 60, 70, 80};  // 4 x 2
  Bytes two(2, 0);
  tvxScaleDownMNu8(quad.data(), 4, 2, 0, two.data(), 2, 1, 0);
  EXPECT_EQ(two, (Bytes{(10 + 20 + 50 + 60 + 2) / 4, (30 + 40 + 70 + 80 + 2) / 4}));
  EXPECT_EQ(tvxScaleu8(quad.data(), 4, 2, 0, two.data(), 2, 1, 0, 2), 0);
  EXPECT_EQ(two, (Bytes{35, 55}));
}

}  // namespace
