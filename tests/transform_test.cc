// Frequency transforms through the public entries: wavelet planes against a model that applies
// the one-dimensional formulas to rows and then columns, the 5/3 planes against the LeGall
// filters in double precision, the DCT against the orthonormal DCT-II sums, the FFT against the
// direct DFT, forward-inverse round trips with their error bounds, the documented edge cases,
// bad arguments and scratch exhaustion.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"
#include "simd_check.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;
using tvxtest::Image;
using Plane = std::vector<std::vector<int>>;  // [row][column]

class Transform : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  Image Bytes(uint32_t w, uint32_t h) {
    Image img(w, h, 1, (w * 3) % 7, w % 3);
    img.Randomize(rng_);
    return img;
  }
  Image Shorts(uint32_t w, uint32_t h, int lo, int hi) {
    Image img(w, h, 2, 2 * (w % 3), 2 * (h % 2));
    img.RandomizeAs<int16_t>(rng_, std::uniform_int_distribution<int>(lo, hi));
    return img;
  }
  std::mt19937 rng_{2718};
};

template <typename T>
Plane Read(const Image& img) {
  Plane p(img.height(), std::vector<int>(img.width()));
  for (uint32_t y = 0; y < img.height(); ++y)
    for (uint32_t x = 0; x < img.width(); ++x) p[y][x] = reinterpret_cast<const T*>(img.row(y))[x];
  return p;
}

Plane Transposed(const Plane& p) {
  Plane t(p[0].size(), std::vector<int>(p.size()));
  for (size_t y = 0; y < p.size(); ++y)
    for (size_t x = 0; x < p[0].size(); ++x) t[x][y] = p[y][x];
  return t;
}

int Clamp16(int v) { return std::clamp(v, -32768, 32767); }

// ---- models: one-dimensional formulas on whole sequences -----------------------------------------

std::vector<int> HaarModel(const std::vector<int>& x) {
  const size_t n = x.size();
  std::vector<int> lo, hi;
  for (size_t i = 0; i + 1 < n; i += 2) {
    lo.push_back(((x[i] + x[i + 1]) * 23170 + 16384) >> 15);
    hi.push_back(((x[i] - x[i + 1]) * 23170 + 16384) >> 15);
  }
  if (n % 2) lo.push_back((x[n - 1] * 46340 + 16384) >> 15);
  lo.insert(lo.end(), hi.begin(), hi.end());
  return lo;
}

// Whole-sample mirror: ... x2 x1 | x0 x1 ... xn-1 | xn-2 ...
int At(const std::vector<int>& x, long p) {
  const long n = static_cast<long>(x.size());
  if (n == 1) return x[0];
  while (p < 0 || p >= n) p = p < 0 ? -p : 2 * (n - 1) - p;
  return x[p];
}

std::vector<int> Le53Model(const std::vector<int>& x) {
  std::vector<int> lo, hi;
  for (long p = 0; p < static_cast<long>(x.size()); ++p) {
    if (p % 2 == 0)
      lo.push_back(Clamp16(((At(x, p - 1) + At(x, p + 1)) * 5793 + (At(x, p - 2) + At(x, p + 2)) * -2896 +
                            At(x, p) * 17378 + 8192) >> 14));
    else
      hi.push_back(Clamp16(((At(x, p - 1) + At(x, p + 1)) * -11585 + At(x, p) * 23170 + 16384) >> 15));
  }
  lo.insert(lo.end(), hi.begin(), hi.end());
  return lo;
}

template <class F>
Plane Separable(const Plane& img, F line) {
  Plane rows;
  for (const auto& r : img) rows.push_back(line(r));
  return Transposed([&] {
    Plane cols;
    for (const auto& c : Transposed(rows)) cols.push_back(line(c));
    return cols;
  }());
}

// The LeGall 5/3 analysis in double precision on a whole sequence (same layout).
std::vector<double> Le53Exact(const std::vector<double>& x) {
  const long n = static_cast<long>(x.size());
  const auto at = [&](long p) {
    if (n == 1) return x[0];
    while (p < 0 || p >= n) p = p < 0 ? -p : 2 * (n - 1) - p;
    return x[p];
  };
  std::vector<double> lo, hi;
  const double r2 = std::sqrt(2.0);
  for (long p = 0; p < n; ++p) {
    if (p % 2 == 0)
      lo.push_back(r2 * (-at(p - 2) / 8 + at(p - 1) / 4 + 3 * at(p) / 4 + at(p + 1) / 4 - at(p + 2) / 8));
    else
      hi.push_back((-at(p - 1) / 2 + at(p) - at(p + 1) / 2) / r2);
  }
  lo.insert(lo.end(), hi.begin(), hi.end());
  return lo;
}

// ---- Haar -------------------------------------------------------------------------------------------

TEST_F(Transform, HaarPlanesFollowTheRowThenColumnFormulas) {
  for (auto [w, h] : {std::pair{1u, 1u}, {2u, 2u}, {3u, 2u}, {7u, 5u}, {16u, 9u}, {33u, 18u}}) {
    SCOPED_TRACE(::testing::Message() << w << "x" << h);
    const Image src = Bytes(w, h);
    const Plane want = Separable(Read<uint8_t>(src), HaarModel);
    Image out(w, h, 2, 6), outT(h, w, 2, 4), outR(h, w, 2, 2);
    tvxDWTHaaru8(src.bytes(), w, h, src.stride(), out.as<int16_t>(), out.stride());
    tvxDWTHaarTransposeu8(src.bytes(), w, h, src.stride(), outT.as<int16_t>(), outT.stride());
    tvxDWTHarrTransposeu8(src.bytes(), w, h, src.stride(), outR.as<int16_t>(), outR.stride());
    EXPECT_EQ(Read<int16_t>(out), want);
    EXPECT_EQ(Read<int16_t>(outT), Transposed(want));
    EXPECT_EQ(Read<int16_t>(outR), Transposed(want));
    EXPECT_TRUE(out.GuardsIntact() && outT.GuardsIntact() && outR.GuardsIntact());
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Transform, HaarLoneSamplesAndFlatImages) {
  // 1x1: the lone sample is scaled by sqrt(2) in both passes.
  const uint8_t one = 201;
  int16_t c = 0;
  tvxDWTHaaru8(&one, 1, 1, 0, &c, 0);
  const int t = (201 * 46340 + 16384) >> 15;
  EXPECT_EQ(c, (t * 46340 + 16384) >> 15);
  // An odd width's last column is the last low-pass column, ahead of the high band.
  const uint8_t row[3] = {10, 20, 90};
  int16_t r[3];
  tvxDWTHaaru8(row, 3, 1, 0, r, 0);
  EXPECT_EQ(r[1], (((90 * 46340 + 16384) >> 15) * 46340 + 16384) >> 15);
  EXPECT_EQ(r[2], (((((10 - 20) * 23170 + 16384) >> 15)) * 46340 + 16384) >> 15);
  // A flat image has nothing outside the low band in either wavelet.
  std::vector<uint8_t> flat(10 * 7, 77);
  std::vector<int16_t> flat16(10 * 7, 77), haar(10 * 7), le53(10 * 7);
  tvxDWTHaaru8(flat.data(), 10, 7, 0, haar.data(), 0);
  tvxDWT53Tabs16(flat16.data(), 10, 7, 0, le53.data(), 0);
  for (uint32_t y = 0; y < 7; ++y)
    for (uint32_t x = 0; x < 10; ++x) {
      if (x < 5 && y < 4) continue;
      EXPECT_EQ(haar[y * 10 + x], 0) << x << "," << y;
      EXPECT_EQ(le53[y * 10 + x], 0) << x << "," << y;
    }
}

TEST_F(Transform, HaarRoundTrips) {
  // Even sides: every sample comes back within 2 (four roundings of at most 1/2 on the way,
  // none amplified: each step is orthonormal).
  int worst = 0;
  for (auto [w, h] : {std::pair{2u, 2u}, {16u, 8u}, {40u, 22u}, {64u, 64u}}) {
    const Image src = Bytes(w, h);
    Image coef(w, h, 2, 4), back(w, h, 1, 3), coefT(h, w, 2, 2), backT(w, h, 1, 1);
    tvxDWTHaaru8(src.bytes(), w, h, src.stride(), coef.as<int16_t>(), coef.stride());
    tvxIDWTHaars16(coef.as<int16_t>(), w, h, coef.stride(), back.bytes(), back.stride());
    tvxDWTHaarTransposeu8(src.bytes(), w, h, src.stride(), coefT.as<int16_t>(), coefT.stride());
    tvxIDWTHaarTransposes16(coefT.as<int16_t>(), h, w, coefT.stride(), backT.bytes(), backT.stride());
    const Plane in = Read<uint8_t>(src), out = Read<uint8_t>(back);
    EXPECT_EQ(Read<uint8_t>(backT), out) << "the transposed pair inverts the same way";
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) worst = std::max(worst, std::abs(out[y][x] - in[y][x]));
    EXPECT_TRUE(back.GuardsIntact() && backT.GuardsIntact());
  }
  EXPECT_LE(worst, 2);
  // Both spellings of the transposed inverse agree.
  const Image src = Bytes(6, 4);
  Image coefT(4, 6, 2), a(6, 4, 1), b(6, 4, 1);
  tvxDWTHaarTransposeu8(src.bytes(), 6, 4, src.stride(), coefT.as<int16_t>(), coefT.stride());
  tvxIDWTHaarTransposes16(coefT.as<int16_t>(), 4, 6, coefT.stride(), a.bytes(), a.stride());
  tvxIDWTHarrTransposes16(coefT.as<int16_t>(), 4, 6, coefT.stride(), b.bytes(), b.stride());
  EXPECT_TRUE(a.SameRect(b));
  // An odd width: the lone last column comes back doubled (sqrt(2) in both directions), the
  // pairs come back within 1; the byte output saturates.
  uint8_t two[6] = {40, 60, 100, 40, 60, 100}, back6[6], back3[3];
  int16_t coef6[6];
  tvxDWTHaaru8(two, 3, 2, 0, coef6, 0);
  tvxIDWTHaars16(coef6, 3, 2, 0, back6, 0);
  for (int r = 0; r < 2; ++r) {
    EXPECT_NEAR(back6[3 * r], 40, 1);
    EXPECT_NEAR(back6[3 * r + 1], 60, 1);
    EXPECT_NEAR(back6[3 * r + 2], 200, 2);
  }
  // A single row is an odd height: every sample is a lone one vertically and comes back doubled.
  const uint8_t row[3] = {40, 60, 200};
  int16_t coef3[3];
  tvxDWTHaaru8(row, 3, 1, 0, coef3, 0);
  tvxIDWTHaars16(coef3, 3, 1, 0, back3, 0);
  EXPECT_NEAR(back3[0], 80, 2);
  EXPECT_NEAR(back3[1], 120, 2);
  EXPECT_EQ(back3[2], 255);
  // Negative samples saturate at 0.
  const int16_t neg[2] = {-300, 0};
  tvxIDWTHaars16(neg, 2, 1, 0, back3, 0);
  EXPECT_EQ(back3[0], 0);
  EXPECT_EQ(back3[1], 0);
}

// ---- 5/3 ----------------------------------------------------------------------------------------

TEST_F(Transform, Le53PlanesFollowTheFormulasAndTheFilters) {
  for (auto [w, h] : {std::pair{1u, 1u}, {2u, 3u}, {3u, 1u}, {5u, 4u}, {9u, 12u}, {31u, 17u}}) {
    SCOPED_TRACE(::testing::Message() << w << "x" << h);
    const Image src = Shorts(w, h, -2000, 2000);
    const Plane in = Read<int16_t>(src);
    const Plane want = Separable(in, Le53Model);
    Image out(w, h, 2, 2), outT(h, w, 2, 4);
    tvxDWT53Tabs16(src.as<int16_t>(), w, h, src.stride(), out.as<int16_t>(), out.stride());
    tvxDWT53TabTransposes16(src.as<int16_t>(), w, h, src.stride(), outT.as<int16_t>(), outT.stride());
    const Plane got = Read<int16_t>(out);
    EXPECT_EQ(got, want);
    EXPECT_EQ(Read<int16_t>(outT), Transposed(want));
    // Against the real filters: two roundings, the second one amplified by at most 2.13.
    std::vector<std::vector<double>> rows;
    for (const auto& r : in) rows.push_back(Le53Exact(std::vector<double>(r.begin(), r.end())));
    for (uint32_t x = 0; x < w; ++x) {
      std::vector<double> col;
      for (uint32_t y = 0; y < h; ++y) col.push_back(rows[y][x]);
      const std::vector<double> exact = Le53Exact(col);
      for (uint32_t y = 0; y < h; ++y) EXPECT_NEAR(got[y][x], exact[y], 2.0) << x << "," << y;
    }
    EXPECT_TRUE(out.GuardsIntact() && outT.GuardsIntact());
  }
  // Results beyond 16 bits saturate.
  const int16_t edge[3] = {-32768, 32767, -32768}, flat[3] = {32767, 32767, 32767};
  int16_t c[3], f[3];
  tvxDWT53Tabs16(edge, 3, 1, 0, c, 0);
  tvxDWT53Tabs16(flat, 3, 1, 0, f, 0);
  EXPECT_EQ(c[2], 32767);
  EXPECT_EQ(f[0], 32767);
  EXPECT_EQ(f[2], 0);
}

TEST_F(Transform, Le53RoundTrips) {
  int worst = 0;
  for (auto [w, h] : {std::pair{2u, 2u}, {8u, 6u}, {24u, 40u}, {1u, 1u}, {5u, 7u}, {33u, 3u}}) {
    SCOPED_TRACE(::testing::Message() << w << "x" << h);
    const Image src = Shorts(w, h, -1000, 1000);
    Image coef(w, h, 2, 4), back(w, h, 2, 2), coefT(h, w, 2, 6), backT(w, h, 2, 0);
    tvxDWT53Tabs16(src.as<int16_t>(), w, h, src.stride(), coef.as<int16_t>(), coef.stride());
    tvxIDWT53Tabs16(coef.as<int16_t>(), w, h, coef.stride(), back.as<int16_t>(), back.stride());
    tvxDWT53TabTransposes16(src.as<int16_t>(), w, h, src.stride(), coefT.as<int16_t>(), coefT.stride());
    tvxIDWT53TabTransposes16(coefT.as<int16_t>(), h, w, coefT.stride(), backT.as<int16_t>(), backT.stride());
    EXPECT_TRUE(backT.SameRect(back));
    const Plane in = Read<int16_t>(src), out = Read<int16_t>(back);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) worst = std::max(worst, std::abs(out[y][x] - in[y][x]));
    EXPECT_TRUE(back.GuardsIntact() && backT.GuardsIntact());
  }
  // Odd sides included (symmetric extension keeps them invertible), within 2.
  EXPECT_LE(worst, 2);
}

TEST_F(Transform, WaveletEntriesRejectBadArgumentsWithoutWriting) {
  std::vector<uint8_t> b(64, 9);
  std::vector<int16_t> s(64, 9);
  const std::vector<uint8_t> b0 = b;
  const std::vector<int16_t> s0 = s;
  tvxDWTHaaru8(nullptr, 4, 4, 0, s.data(), 0);
  tvxDWTHarrTransposeu8(b.data(), 4, 3, 4, s.data(), 5);  // a row of 3 coefficients needs 6 bytes
  tvxIDWTHaars16(s.data(), 4, 0, 0, b.data(), 0);
  tvxDWT53TabTransposes16(s.data(), 4, 4, 6, s.data() + 32, 0);
  EXPECT_EQ(b, b0);
  EXPECT_EQ(s, s0);
  ASSERT_EQ(g_lines.size(), 4u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxDWTHaaru8",
            "src && dst && srcWidth && srcHeight && (srcStride == 0 || (srcStride >= srcWidth * sizeof(uint8_t)))&& (dstStride == 0 || (dstStride >= srcWidth * sizeof(int16_t)))"));
  EXPECT_EQ(g_lines[1], tvxtest::AssertLine("tvxDWTHarrTransposeu8",
            "src && dst && srcWidth && srcHeight && (srcStride == 0 || (srcStride >= srcWidth * sizeof(uint8_t)))&& (dstStride == 0 || (dstStride >= srcHeight* sizeof(int16_t)))"));
  EXPECT_NE(g_lines[2].find("@tvxIDWTHaars16: "), std::string::npos);
  EXPECT_NE(g_lines[3].find("(dstStride >= srcHeight * sizeof(int16_t))"), std::string::npos);
}

TEST_F(Transform, WaveletsWithoutScratchEndTheProcess) {
  tvx_set_log_sink(nullptr);  // the child logs to stderr
  std::vector<uint8_t> b(16, 1);
  std::vector<int16_t> s(16, 1);
  const auto starved = [](auto call) {
    tvx_fail_heap_after_for_test(0);
    call();
    tvx_fail_heap_after_for_test(-1);
  };
  EXPECT_EXIT(starved([&] { tvxDWTHaaru8C(b.data(), 4, 4, 4, s.data(), 8); }), ::testing::ExitedWithCode(1),
              "src/cpu/tavixIppTransformC@[0-9]+: tmpBuf != NULL Assertion failed");
  EXPECT_EXIT(starved([&] { tvxIDWT53Tabs16V(s.data(), 4, 4, 8, s.data(), 8); }), ::testing::ExitedWithCode(1),
              "src/cpu/tavixIppTransformC@[0-9]+: tmpBuf != NULL Assertion failed");
}

// ---- DCT ------------------------------------------------------------------------------------------

double Basis(int k, int n) {
  return (k == 0 ? std::sqrt(0.125) : 0.5) * std::cos((2 * n + 1) * k * M_PI / 16);
}

TEST_F(Transform, DctIsTheOrthonormalDctOfTheShiftedBlock) {
  const Image src = Bytes(24, 16);
  Image dst(24, 16, 2, 16);  // a padded stride is fine
  tvxDCTu8(src.bytes(), 24, 16, src.stride(), dst.as<int16_t>(), dst.stride());
  for (uint32_t by = 0; by < 16; by += 8)
    for (uint32_t bx = 0; bx < 24; bx += 8)
      for (int v = 0; v < 8; ++v)
        for (int u = 0; u < 8; ++u) {
          double sum = 0;
          for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x) sum += (src.row(by + y)[bx + x] - 128.0) * Basis(u, x) * Basis(v, y);
          EXPECT_NEAR(dst.at<int16_t>(bx + u, by + v), sum, 1.0) << bx + u << "," << by + v;
        }
  EXPECT_TRUE(dst.GuardsIntact());
  // Flat blocks: only DC, 8 (v - 128); 128 gives zeros.
  for (int v : {128, 0, 255, 37}) {
    std::vector<uint8_t> flat(64, static_cast<uint8_t>(v));
    std::vector<int16_t> c(64, 999);
    tvxDCTu8(flat.data(), 8, 8, 0, c.data(), 0);
    EXPECT_EQ(c[0], 8 * (v - 128));
    EXPECT_TRUE(std::all_of(c.begin() + 1, c.end(), [](int16_t k) { return k == 0; })) << v;
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Transform, IdctInvertsTheDct) {
  // All-zero coefficients give 128.
  std::vector<int16_t> zeros(16 * 8, 0);
  std::vector<uint8_t> out(16 * 8, 1);
  tvxIDCTs16(zeros.data(), 16, 8, 0, out.data(), 0);
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint8_t v) { return v == 128; }));
  // Against the inverse sums on moderate coefficients.
  Image coef = Shorts(16, 8, -200, 200);
  Image px(16, 8, 1, 5, 1);
  tvxIDCTs16(coef.as<int16_t>(), 16, 8, coef.stride(), px.bytes(), px.stride());
  for (uint32_t bx = 0; bx < 16; bx += 8)
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 8; ++x) {
        double sum = 128;
        for (int v = 0; v < 8; ++v)
          for (int u = 0; u < 8; ++u) sum += coef.at<int16_t>(bx + u, v) * Basis(u, x) * Basis(v, y);
        EXPECT_NEAR(px.row(y)[bx + x], std::clamp(sum, 0.0, 255.0), 1.0) << bx + x << "," << y;
      }
  EXPECT_TRUE(px.GuardsIntact());
  // Round trip within 1.
  const Image src = Bytes(32, 24);
  Image c(32, 24, 2, 0), back(32, 24, 1, 2);
  tvxDCTu8(src.bytes(), 32, 24, src.stride(), c.as<int16_t>(), c.stride());
  tvxIDCTs16(c.as<int16_t>(), 32, 24, c.stride(), back.bytes(), back.stride());
  int worst = 0;
  for (uint32_t y = 0; y < 24; ++y)
    for (uint32_t x = 0; x < 32; ++x) worst = std::max(worst, std::abs(back.row(y)[x] - src.row(y)[x]));
  EXPECT_LE(worst, 1);
}

TEST_F(Transform, DctSizesOutsideWholeBlocks) {
  // The IDCT ignores sides that are not multiples of 8.
  std::vector<int16_t> coef(16 * 16, 5);
  std::vector<uint8_t> px(16 * 16, 3);
  tvxIDCTs16(coef.data(), 12, 8, 0, px.data(), 0);
  tvxIDCTs16(coef.data(), 8, 4, 0, px.data(), 0);
  EXPECT_TRUE(std::all_of(px.begin(), px.end(), [](uint8_t v) { return v == 3; }));
  // The DCT transforms whole blocks only; a stride below 2 * width rounded to 16 is rejected
  // (by the entry with its condition's line, by the variants silently) and computes nothing.
  std::vector<uint8_t> img(20 * 10, 200);
  std::vector<int16_t> c(16 * 10, 7);
  tvxDCTu8(img.data(), 12, 10, 20, c.data(), 24);
  tvxDCTu8C(img.data(), 12, 10, 20, c.data(), 24);
  tvxDCTu8V(img.data(), 12, 10, 20, c.data(), 24);
  EXPECT_TRUE(std::all_of(c.begin(), c.end(), [](int16_t v) { return v == 7; }));
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_NE(g_lines[0].find("@tvxDCTu8: "), std::string::npos);
  g_lines.clear();
  tvxDCTu8(img.data(), 12, 10, 20, c.data(), 32);
  EXPECT_EQ(c[0], 8 * (200 - 128));
  EXPECT_EQ(c[8], 7);           // column 8 of the partial block column
  EXPECT_EQ(c[8 * 16], 7);      // row 8 of the partial block row
  EXPECT_EQ(c[7 * 16 + 7], 0);  // inside the block
  EXPECT_TRUE(g_lines.empty());
}

// ---- FFT ----------------------------------------------------------------------------------------

using Spectrum = std::vector<std::complex<double>>;

// Direct 2-D DFT, exp(-i ...) (inverse: exp(+i ...) / (w h)).
Spectrum Dft(const Spectrum& x, uint32_t w, uint32_t h, bool inverse) {
  Spectrum out(size_t{w} * h);
  const double sign = inverse ? 1 : -1;
  for (uint32_t v = 0; v < h; ++v)
    for (uint32_t u = 0; u < w; ++u) {
      std::complex<double> s = 0;
      for (uint32_t n = 0; n < h; ++n)
        for (uint32_t m = 0; m < w; ++m)
          s += x[n * w + m] * std::polar(1.0, sign * 2 * M_PI * (double(u * m) / w + double(v * n) / h));
      out[v * w + u] = inverse ? s / double(w * h) : s;
    }
  return out;
}

double Largest(const Spectrum& s) {
  double m = 0;
  for (const auto& c : s) m = std::max(m, std::abs(c));
  return m;
}

TEST_F(Transform, FftIsTheDftWithinSinglePrecision) {
  for (auto [w, h] : {std::pair{1u, 1u}, {2u, 1u}, {1u, 8u}, {4u, 2u}, {8u, 8u}, {32u, 4u}, {16u, 32u}}) {
    SCOPED_TRACE(::testing::Message() << w << "x" << h);
    const Image src = Bytes(w, h);
    Image spec(2 * w, h, 4, 8);
    ASSERT_EQ(tvxFFTu8(src.bytes(), w, h, src.stride(), spec.as<float>(), spec.stride()), 0);
    Spectrum x(size_t{w} * h);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t i = 0; i < w; ++i) x[y * w + i] = src.row(y)[i];
    const Spectrum want = Dft(x, w, h, false);
    const double tol = 1e-5 * Largest(want);
    for (uint32_t v = 0; v < h; ++v)
      for (uint32_t u = 0; u < w; ++u) {
        EXPECT_NEAR(spec.at<float>(2 * u, v), want[v * w + u].real(), tol) << u << "," << v;
        EXPECT_NEAR(spec.at<float>(2 * u + 1, v), want[v * w + u].imag(), tol) << u << "," << v;
      }
    EXPECT_TRUE(spec.GuardsIntact());
  }
}

TEST_F(Transform, IfftIsTheRealPartOfTheInverseDft) {
  // Any complex input (not only a real image's spectrum).
  std::uniform_real_distribution<float> any(-100, 100);
  for (auto [w, h] : {std::pair{1u, 1u}, {8u, 1u}, {4u, 4u}, {16u, 8u}}) {
    Image spec(2 * w, h, 4, 12);
    Spectrum x(size_t{w} * h);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t u = 0; u < w; ++u) {
        spec.at<float>(2 * u, y) = any(rng_);
        spec.at<float>(2 * u + 1, y) = any(rng_);
        x[y * w + u] = {spec.at<float>(2 * u, y), spec.at<float>(2 * u + 1, y)};
      }
    Image out(w, h, 4, 4);
    ASSERT_EQ(tvxIFFTf32(spec.as<float>(), w, h, spec.stride(), out.as<float>(), out.stride()), 0);
    const Spectrum want = Dft(x, w, h, true);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t i = 0; i < w; ++i) EXPECT_NEAR(out.at<float>(i, y), want[y * w + i].real(), 1e-4) << i << "," << y;
    EXPECT_TRUE(out.GuardsIntact());
  }
  // Round trip of a 64x32 image.
  const Image src = Bytes(64, 32);
  Image spec(128, 32, 4), back(64, 32, 4, 8);
  ASSERT_EQ(tvxFFTu8(src.bytes(), 64, 32, src.stride(), spec.as<float>(), spec.stride()), 0);
  ASSERT_EQ(tvxIFFTf32(spec.as<float>(), 64, 32, spec.stride(), back.as<float>(), back.stride()), 0);
  for (uint32_t y = 0; y < 32; ++y)
    for (uint32_t x = 0; x < 64; ++x) ASSERT_NEAR(back.at<float>(x, y), src.row(y)[x], 1e-3);
}

TEST_F(Transform, FftRejectsBadShapesWithStatus3) {
  std::vector<uint8_t> img(16 * 16, 1);
  std::vector<float> spec(2 * 16 * 16, 5.0f), out(16 * 16, 5.0f);
  EXPECT_EQ(tvxFFTu8(img.data(), 12, 4, 0, spec.data(), 0), 3);
  EXPECT_EQ(tvxFFTu8(img.data(), 8, 3, 0, spec.data(), 0), 3);
  EXPECT_EQ(tvxFFTu8(img.data(), 8, 4, 0, spec.data(), 8 * 8 - 4), 3);
  EXPECT_EQ(tvxFFTu8(img.data(), 8, 4, 7, spec.data(), 0), 3);
  EXPECT_EQ(tvxFFTu8(img.data(), 0, 4, 0, spec.data(), 0), 3);
  EXPECT_EQ(tvxIFFTf32(spec.data(), 6, 4, 0, out.data(), 0), 3);
  EXPECT_EQ(tvxIFFTf32(spec.data(), 8, 4, 8 * 8 - 8, out.data(), 0), 3);
  EXPECT_EQ(tvxIFFTf32(spec.data(), 8, 4, 0, out.data(), 31), 3);
  EXPECT_EQ(tvxIFFTf32(nullptr, 8, 4, 0, out.data(), 0), 3);
  EXPECT_TRUE(std::all_of(spec.begin(), spec.end(), [](float v) { return v == 5.0f; }));
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](float v) { return v == 5.0f; }));
  EXPECT_TRUE(g_lines.empty());
  // Without scratch the inverse reports 5.
  tvx_fail_heap_after_for_test(0);
  const int32_t starved = tvxIFFTf32C(spec.data(), 8, 4, 64, out.data(), 32);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(starved, 5);
}

}  // namespace
