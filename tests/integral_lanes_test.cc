// SIMD integral images against their reference variants on every compiled target: widths 1 to
// 70 and large, aligned tables (the vector kernel) and misaligned ones (its fallback), padded
// strides with guard bytes, and the largest image the vector kernel takes, of 255 everywhere.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;

struct Shape {
  uint32_t w, h;
};

std::vector<Shape> Shapes() {
  std::vector<Shape> shapes;
  for (uint32_t w = 1; w <= 70; ++w) shapes.push_back({w, 1 + w % 4});
  shapes.push_back({1920, 3});
  shapes.push_back({1021, 9});
  return shapes;
}

class IntegralLanes : public ::testing::Test {
 protected:
  std::mt19937 rng_{577};
};

TEST_F(IntegralLanes, PaddedTablesMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      SCOPED_TRACE(::testing::Message() << s.w << "x" << s.h);
      for (bool aligned : {true, false}) {
        // Aligned: 16-byte first pixels and strides multiple of 8; otherwise odd source strides
        // and tables 4 bytes past a 16-byte boundary.
        const uint32_t srcPad = aligned ? (8 - s.w % 8) % 8 + 8 : 3, srcMis = aligned ? 0 : 5;
        const uint32_t dstPad = aligned ? ((s.w + 1) % 2) * 4 + 8 : 4, dstMis = aligned ? 0 : 4;
        Image src(s.w, s.h, 1, srcPad, srcMis);
        src.RandomizeWithExtremes(rng_, 1, 3);
        Image ref(s.w + 1, s.h + 1, 4, dstPad, dstMis), simd(s.w + 1, s.h + 1, 4, dstPad, dstMis);
        if (aligned) {
          ASSERT_EQ((src.stride() | ref.stride()) % 8, 0u);
        }
        tvxIntegrateImageu8_v2C(src.bytes(), s.w, s.h, src.stride(), ref.as<uint32_t>(), ref.stride());
        tvxIntegrateImageu8_v2V(src.bytes(), s.w, s.h, src.stride(), simd.as<uint32_t>(), simd.stride());
        ASSERT_TRUE(simd.SameRect(ref)) << (aligned ? "aligned" : "misaligned");
        ASSERT_TRUE(simd.GuardsIntact());
      }
    }
  });
}

TEST_F(IntegralLanes, SquaredAndChromaTablesMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      SCOPED_TRACE(::testing::Message() << s.w << "x" << s.h);
      Image src(s.w, s.h, 1, s.w % 7, s.w % 3);
      src.RandomizeWithExtremes(rng_, 1, 3);
      Image rs(s.w, s.h, 4, 4 * (s.w % 3), 4), vs(s.w, s.h, 4, 4 * (s.w % 3), 4);
      Image rq(s.w, s.h, 8, 8, 8), vq(s.w, s.h, 8, 8, 8);
      tvxIntegrateImageu8u64C(src.bytes(), s.w, s.h, src.stride(), rs.as<uint32_t>(), rq.as<uint64_t>(), rs.stride(), rq.stride());
      tvxIntegrateImageu8u64V(src.bytes(), s.w, s.h, src.stride(), vs.as<uint32_t>(), vq.as<uint64_t>(), vs.stride(), vq.stride());
      ASSERT_TRUE(vs.SameRect(rs));
      ASSERT_TRUE(vq.SameRect(rq));
      ASSERT_TRUE(vs.GuardsIntact());
      ASSERT_TRUE(vq.GuardsIntact());

      const uint32_t cw = s.w / 2 ? s.w / 2 : 1, chh = s.h / 2 ? s.h / 2 : 1;
      Image chroma(s.w, chh, 1, 1, 1);
      chroma.Randomize(rng_);
      Image ry(s.w, s.h, 4), vy(s.w, s.h, 4), rcb(cw, chh, 4, 4, 4), vcb(cw, chh, 4, 4, 4), rcr(cw, chh, 4, 0, 8),
          vcr(cw, chh, 4, 0, 8);
      tvxIntegrateImageYCbCr420PseudoPlanaru8C(src.bytes(), chroma.bytes(), s.w, s.h, src.stride(), chroma.stride(),
                                               ry.as<uint32_t>(), rcb.as<uint32_t>(), rcr.as<uint32_t>(), ry.stride(),
                                               rcb.stride(), rcr.stride());
      tvxIntegrateImageYCbCr420PseudoPlanaru8V(src.bytes(), chroma.bytes(), s.w, s.h, src.stride(), chroma.stride(),
                                               vy.as<uint32_t>(), vcb.as<uint32_t>(), vcr.as<uint32_t>(), vy.stride(),
                                               vcb.stride(), vcr.stride());
      ASSERT_TRUE(vy.SameRect(ry));
      ASSERT_TRUE(vcb.SameRect(rcb));
      ASSERT_TRUE(vcr.SameRect(rcr));
      ASSERT_TRUE(vcb.GuardsIntact());
      ASSERT_TRUE(vcr.GuardsIntact());
    }
  });
}

// 4096 x 4112 of 255: the largest sums the vector kernel meets, 255 * 16842752 < 2^32.
TEST_F(IntegralLanes, LargestVectorImage) {
  const uint32_t w = 4096, h = 4112;
  std::vector<uint8_t> src(size_t{w} * h, 255);
  std::vector<uint32_t> ref(size_t{w + 2} * (h + 1), 0xEEEEEEEE), simd(ref.size());  // rows of w + 2 entries
  tvxIntegrateImageu8_v2C(src.data(), w, h, w, ref.data(), (w + 2) * 4);
  tvxtest::ForEachTarget([&] {
    std::fill(simd.begin(), simd.end(), 0xEEEEEEEE);
    tvxIntegrateImageu8_v2V(src.data(), w, h, w, simd.data(), (w + 2) * 4);
    EXPECT_EQ(simd, ref);
  });
  EXPECT_EQ(ref[size_t{h} * (w + 2) + w], 255u * w * h);
}

}  // namespace
