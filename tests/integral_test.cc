// Integral images through the public entries: worked tables, wrap-around modulo 2^32, random
// images against sums written straight from the definitions (rectangle, triangle, plane sums),
// and rejected arguments.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"
#include "simd_check.h"

namespace {

using tvxtest::AssertLine;
using tvxtest::Capture;
using tvxtest::g_lines;
using tvxtest::Image;
using U32 = std::vector<uint32_t>;

class Integral : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override {
    tvx_set_log_sink(nullptr);
    tvx_fail_heap_after_for_test(-1);
  }
  Image Random(uint32_t w, uint32_t h) {
    Image img(w, h, 1, (w * 3) % 7, w % 5);
    img.RandomizeWithExtremes(rng_, 1, 5);
    return img;
  }
  std::mt19937 rng_{2718};
};

// Sum (or squared sum) of src over columns [x0, x1) and rows [y0, y1), straight from the pixels.
uint64_t RectSum(const Image& src, uint32_t x0, uint32_t y0, uint32_t x1, uint32_t y1, bool squares = false) {
  uint64_t s = 0;
  for (uint32_t y = y0; y < y1; ++y)
    for (uint32_t x = x0; x < x1; ++x) s += squares ? uint64_t{src.row(y)[x]} * src.row(y)[x] : src.row(y)[x];
  return s;
}

template <typename T>
T At(const Image& table, uint32_t x, uint32_t y) {
  return reinterpret_cast<const T*>(table.row(y))[x];
}

TEST_F(Integral, WorkedTables) {
  const uint8_t seven = 7;
  U32 one(4, 0xEEEEEEEE);
  tvxIntegrateImageu8(&seven, 1, 1, one.data());
  EXPECT_EQ(one, (U32{0, 0, 0, 7}));

  const uint8_t quad[4] = {1, 2, 3, 4};
  U32 padded(9, 0xEEEEEEEE);
  tvxIntegrateImageu8_v2(quad, 2, 2, 0, padded.data(), 0);
  EXPECT_EQ(padded, (U32{0, 0, 0, 0, 1, 3, 0, 4, 10}));

  U32 sums(4, 0xEEEEEEEE);
  std::vector<uint64_t> squares(4, 0xEEEEEEEE);
  tvxIntegrateImageu8u64(quad, 2, 2, 2, sums.data(), squares.data(), 8, 16);
  EXPECT_EQ(sums, (U32{1, 3, 4, 10}));
  EXPECT_EQ(squares, (std::vector<uint64_t>{1, 5, 10, 30}));

  // A patch of the lower-right pixel and a line.
  U32 ps(4, 0xEEEEEEEE), pq(4, 0xEEEEEEEE);
  tvxIntegratePatchu8(quad, 2, 2, 1, 1, 1, 1, ps.data(), pq.data());
  EXPECT_EQ(ps, (U32{0, 0, 0, 4}));
  EXPECT_EQ(pq, (U32{0, 0, 0, 16}));
  U32 ls(4), lq(4);
  tvxIntegrateImageLineu8(quad, 4, ls.data(), lq.data());
  EXPECT_EQ(ls, (U32{1, 3, 6, 10}));
  EXPECT_EQ(lq, (U32{1, 5, 14, 30}));

  // Tilted: (1, 2 / 3, 4) gives rows (0 0 0), (0 1 2), (1 1+2+3 1+2+4): column 0 sees pixel (0, 0).
  std::vector<int32_t> tilted(9, -1);
  tvxTiltedIntegralu8s32(quad, 2, 2, 2, tilted.data(), 12);
  EXPECT_EQ(tilted, (std::vector<int32_t>{0, 0, 0, 0, 1, 2, 1, 6, 7}));
  EXPECT_TRUE(g_lines.empty());
}

// 255 everywhere: the last entry is 255 * pixels modulo 2^32; 4112 x 4112 wraps, 4096 x 4112
// (below 16843009 pixels) does not.
TEST_F(Integral, SumsWrapModulo2To32) {
  for (uint32_t w : {4096u, 4112u}) {
    const uint32_t h = 4112;
    std::vector<uint8_t> src(size_t{w} * h, 255);
    U32 dst(size_t{w + 1} * (h + 1));
    tvxIntegrateImageu8_v2(src.data(), w, h, w, dst.data(), (w + 1) * 4);
    const uint64_t exact = 255ull * w * h;
    EXPECT_EQ(dst.back(), static_cast<uint32_t>(exact % (1ull << 32))) << w;
    EXPECT_EQ(exact > 0xFFFFFFFFull, w == 4112u);
    // A middle entry as a check on the rows before.
    EXPECT_EQ(dst[size_t{w + 1} * 2001 + 1000], static_cast<uint32_t>(255ull * 1000 * 2001));
  }
}

TEST_F(Integral, WholeImagesMatchRectangleSums) {
  for (uint32_t w : {1u, 3u, 17u, 40u}) {
    for (uint32_t h : {1u, 2u, 9u}) {
      SCOPED_TRACE(::testing::Message() << w << "x" << h);
      const Image src = Random(w, h);
      Image padded(w + 1, h + 1, 4, 12, 4), legacyOut(w + 1, h + 1, 4), sums(w, h, 4, 4, 8), squares(w, h, 8, 8, 8);
      tvxIntegrateImageu8_v2(src.bytes(), w, h, src.stride(), padded.as<uint32_t>(), padded.stride());
      tvxIntegrateImageu8u64(src.bytes(), w, h, src.stride(), sums.as<uint32_t>(), squares.as<uint64_t>(), sums.stride(),
                             squares.stride());
      std::vector<uint8_t> packed(w * h);
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) packed[y * w + x] = src.row(y)[x];
      tvxIntegrateImageu8(packed.data(), w, h, legacyOut.as<uint32_t>());
      for (uint32_t y = 0; y <= h; ++y)
        for (uint32_t x = 0; x <= w; ++x) {
          ASSERT_EQ(At<uint32_t>(padded, x, y), RectSum(src, 0, 0, x, y)) << x << "," << y;
          ASSERT_EQ(At<uint32_t>(legacyOut, x, y), RectSum(src, 0, 0, x, y)) << x << "," << y;
          if (x < w && y < h) {
            ASSERT_EQ(At<uint32_t>(sums, x, y), RectSum(src, 0, 0, x + 1, y + 1)) << x << "," << y;
            ASSERT_EQ(At<uint64_t>(squares, x, y), RectSum(src, 0, 0, x + 1, y + 1, true)) << x << "," << y;
          }
        }
      EXPECT_TRUE(padded.GuardsIntact());
      EXPECT_TRUE(sums.GuardsIntact());
      EXPECT_TRUE(squares.GuardsIntact());
    }
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Integral, PatchesMatchRectangleSums) {
  const Image src = Random(41, 29);
  struct Case { uint32_t px, py, pw, ph; };
  for (const Case& c : {Case{0, 0, 41, 29}, Case{5, 3, 12, 12}, Case{23, 11, 18, 18}, Case{40, 28, 1, 1}, Case{7, 2, 0, 5}}) {
    SCOPED_TRACE(::testing::Message() << c.px << "," << c.py << " " << c.pw << "x" << c.ph);
    const uint32_t n = (c.pw + 1) * (c.ph + 1);
    U32 s2(n, 1), q2(n, 1);
    tvxIntegratePatchu8_v2(src.bytes(), 41, 29, src.stride(), c.px, c.py, c.pw, c.ph, s2.data(), q2.data());
    Image s3(c.pw + 1, c.ph + 1, 4, 8, 4), q3(c.pw + 1, c.ph + 1, 4, 4, 0);
    ASSERT_EQ(tvxIntegratePatchu8_v3(src.bytes(), 41, 29, src.stride(), c.px, c.py, c.pw, c.ph, s3.as<uint32_t>(),
                                     q3.as<uint32_t>(), s3.stride(), q3.stride()),
              0);
    for (uint32_t y = 0; y <= c.ph; ++y)
      for (uint32_t x = 0; x <= c.pw; ++x) {
        const uint64_t s = RectSum(src, c.px, c.py, c.px + x, c.py + y);
        const uint64_t q = RectSum(src, c.px, c.py, c.px + x, c.py + y, true);
        ASSERT_EQ(s2[y * (c.pw + 1) + x], s);
        ASSERT_EQ(q2[y * (c.pw + 1) + x], q);
        ASSERT_EQ(At<uint32_t>(s3, x, y), s);
        ASSERT_EQ(At<uint32_t>(q3, x, y), q);
      }
    EXPECT_TRUE(s3.GuardsIntact());
    EXPECT_TRUE(q3.GuardsIntact());
    // The fixed sizes and the packed forms give the same tables.
    if (c.pw == 12 || c.pw == 18) {
      U32 fs(n, 2), fq(n, 2), ls(n, 3), lq(n, 3);
      std::vector<uint8_t> packed(41 * 29);
      for (uint32_t y = 0; y < 29; ++y)
        for (uint32_t x = 0; x < 41; ++x) packed[y * 41 + x] = src.row(y)[x];
      if (c.pw == 12) {
        tvxIntegratePatch12x12u8_v2(src.bytes(), 41, 29, src.stride(), c.px, c.py, fs.data(), fq.data());
        tvxIntegratePatch12x12u8(packed.data(), 41, 29, c.px, c.py, ls.data(), lq.data());
      } else {
        tvxIntegratePatch18x18u8_v2(src.bytes(), 41, 29, src.stride(), c.px, c.py, fs.data(), fq.data());
        tvxIntegratePatch18x18u8(packed.data(), 41, 29, c.px, c.py, ls.data(), lq.data());
      }
      EXPECT_EQ(fs, s2);
      EXPECT_EQ(fq, q2);
      EXPECT_EQ(ls, s2);
      EXPECT_EQ(lq, q2);
    }
  }
  U32 s(65), q(65);
  std::vector<uint8_t> line(64);
  for (uint32_t i = 0; i < 64; ++i) line[i] = static_cast<uint8_t>(rng_());
  tvxIntegrateImageLine64u8(line.data(), s.data(), q.data());
  uint32_t rs = 0, rq = 0;
  for (uint32_t i = 0; i < 64; ++i) {
    rs += line[i], rq += line[i] * line[i];
    ASSERT_EQ(s[i], rs);
    ASSERT_EQ(q[i], rq);
  }
  EXPECT_EQ(s[64], 0u);
  EXPECT_TRUE(g_lines.empty());
}

// The tilted sum from its definition: pixels (x, y) with y < Y and |x - X + 1| <= Y - 1 - y.
TEST_F(Integral, TiltedSumMatchesTriangleSums) {
  for (uint32_t w : {1u, 2u, 5u, 13u, 31u}) {
    for (uint32_t h : {1u, 3u, 8u, 20u}) {
      const Image src = Random(w, h);
      Image dst(w + 1, h + 1, 4, 8, 4);
      tvxTiltedIntegralu8s32(src.bytes(), w, h, src.stride(), dst.as<int32_t>(), dst.stride());
      for (uint32_t Y = 0; Y <= h; ++Y)
        for (uint32_t X = 0; X <= w; ++X) {
          int64_t s = 0;
          for (int y = 0; y < int(Y); ++y)
            for (int x = 0; x < int(w); ++x)
              if (std::abs(x - int(X) + 1) <= int(Y) - 1 - y) s += src.row(y)[x];
          ASSERT_EQ(At<int32_t>(dst, X, Y), s) << w << "x" << h << " at " << X << "," << Y;
        }
      EXPECT_TRUE(dst.GuardsIntact());
    }
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Integral, YCbCr420PlanesMatchPlaneSums) {
  for (uint32_t w : {1u, 2u, 7u, 36u}) {
    for (uint32_t h : {1u, 2u, 5u}) {
      SCOPED_TRACE(::testing::Message() << w << "x" << h);
      const Image luma = Random(w, h), chroma = Random(w, h / 2 ? h / 2 : 1);
      const uint32_t cw = w / 2, ch = h / 2;
      Image iy(w, h, 4, 4, 4), icb(cw ? cw : 1, ch ? ch : 1, 4, 8, 0), icr(cw ? cw : 1, ch ? ch : 1, 4, 0, 8);
      tvxIntegrateImageYCbCr420PseudoPlanaru8(luma.bytes(), chroma.bytes(), w, h, luma.stride(), chroma.stride(),
                                              iy.as<uint32_t>(), icb.as<uint32_t>(), icr.as<uint32_t>(), iy.stride(),
                                              icb.stride(), icr.stride());
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) ASSERT_EQ(At<uint32_t>(iy, x, y), RectSum(luma, 0, 0, x + 1, y + 1));
      for (uint32_t y = 0; y < ch; ++y)
        for (uint32_t x = 0; x < cw; ++x) {
          uint32_t cb = 0, cr = 0;
          for (uint32_t j = 0; j <= y; ++j)
            for (uint32_t i = 0; i <= x; ++i) cb += chroma.row(j)[2 * i], cr += chroma.row(j)[2 * i + 1];
          ASSERT_EQ(At<uint32_t>(icb, x, y), cb);
          ASSERT_EQ(At<uint32_t>(icr, x, y), cr);
        }
      EXPECT_TRUE(iy.GuardsIntact());
      EXPECT_TRUE(icb.GuardsIntact());
      EXPECT_TRUE(icr.GuardsIntact());
    }
  }
}

TEST_F(Integral, BadArgumentsAreRejectedWithoutWriting) {
  const std::vector<uint8_t> src(64, 9);
  U32 a(400, 0xEE), b(400, 0xEE);
  const U32 untouched(400, 0xEE);
  const auto expectLine = [&](const char* name, const char* cond) {
    ASSERT_EQ(g_lines.size(), 1u) << name;
    EXPECT_EQ(g_lines[0], AssertLine(name, cond));
    EXPECT_EQ(a, untouched) << name;
    EXPECT_EQ(b, untouched) << name;
    g_lines.clear();
  };
  tvxIntegrateImageu8_v2(src.data(), 8, 8, 7, a.data(), 36);
  expectLine("tvxIntegrateImageu8_v2", "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && (dstStride >= (srcWidth+1)*sizeof(uint32_t))");
  tvxIntegrateImageu8_v2(src.data(), 8, 8, 8, a.data(), 35);
  expectLine("tvxIntegrateImageu8_v2", "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && (dstStride >= (srcWidth+1)*sizeof(uint32_t))");
  tvxIntegrateImageu8(src.data(), 0, 8, a.data());
  expectLine("tvxIntegrateImageu8", "src && dst && width && height");
  tvxIntegrateImageu8u64(src.data(), 8, 8, 8, a.data(), reinterpret_cast<uint64_t*>(b.data()), 32, 60);
  expectLine("tvxIntegrateImageu8u64", "src && dstIntgrl && dstIntgrlSqrd && srcWidth && srcHeight && (srcStride >= srcWidth) && (dstIntgrlStride>=srcWidth*sizeof(uint32_t)) && (dstIntgrlSqrdStride>=srcWidth*sizeof(uint64_t))");
  // Patches reaching past the image are refused with the entry's condition line.
  tvxIntegratePatchu8_v2(src.data(), 8, 8, 8, 4, 0, 5, 2, a.data(), b.data());
  expectLine("tvxIntegratePatchu8_v2", "src && intgrlImgOut && intgrlSqrdImgOut && srcWidth && srcHeight && (srcStride >= srcWidth)");
  tvxIntegratePatchu8(src.data(), 8, 8, 0, 7, 2, 2, a.data(), b.data());
  expectLine("tvxIntegratePatchu8", "src && intgrlImgOut && intgrlSqrdImgOut && width && height");
  tvxIntegratePatch12x12u8(src.data(), 8, 8, 0, 0, a.data(), b.data());
  expectLine("tvxIntegratePatch12x12u8", "src && intgrlImgOut && intgrlSqrdImgOut && width && height");
  tvxIntegratePatch18x18u8_v2(src.data(), 32, 2, 32, 0, 0, a.data(), b.data());
  expectLine("tvxIntegratePatch18x18u8_v2", "src && intgrlImgOut && intgrlSqrdImgOut && srcWidth && srcHeight && (srcStride >= srcWidth)");
  EXPECT_EQ(tvxIntegratePatchu8_v3(src.data(), 8, 8, 8, 0, 0, 4, 4, a.data(), b.data(), 19, 20), 3);
  EXPECT_EQ(tvxIntegratePatchu8_v3(src.data(), 8, 8, 8, 0, 0, 4, 9, a.data(), b.data(), 20, 20), 3);
  EXPECT_EQ(tvxIntegratePatchu8_v3(src.data(), 8, 8, 8, 0xFFFFFFFFu, 0, 2, 2, a.data(), b.data(), 20, 20), 3);
  EXPECT_EQ(tvxIntegratePatchu8_v3(nullptr, 8, 8, 8, 0, 0, 2, 2, a.data(), b.data(), 20, 20), 3);
  EXPECT_EQ(a, untouched);
  tvxIntegrateImageLineu8(src.data(), 8, a.data(), nullptr);
  expectLine("tvxIntegrateImageLineu8", "imageIn && intgrl && intgrlSqrd");
  tvxTiltedIntegralu8s32(src.data(), 8, 8, 8, reinterpret_cast<int32_t*>(a.data()), 35);
  expectLine("tvxTiltedIntegralu8s32", "src && srcWidth && srcHeight && dst && srcStride >= srcWidth && dstStride >= (srcWidth+1)*sizeof(int32_t)");
  tvxIntegrateImageYCbCr420PseudoPlanaru8(src.data(), src.data(), 8, 4, 8, 8, a.data(), b.data(), b.data() + 100, 32, 12, 16);
  expectLine("tvxIntegrateImageYCbCr420PseudoPlanaru8", "srcY && srcC && integralY && integralCb && integralCr && srcWidth && srcHeight && (srcYStride >= srcWidth) && (srcCStride >= srcWidth) && (integralYStride >= srcWidth*sizeof(uint32_t)) && (integralCbStride >= (srcWidth/2)*sizeof(uint32_t)) && (integralCrStride >= (srcWidth/2)*sizeof(uint32_t))");

  // Without scratch words the tilted sum writes nothing.
  tvx_fail_heap_after_for_test(0);
  tvxTiltedIntegralu8s32(src.data(), 8, 8, 8, reinterpret_cast<int32_t*>(a.data()), 36);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(a, untouched);
  EXPECT_TRUE(g_lines.empty());
}

}  // namespace
