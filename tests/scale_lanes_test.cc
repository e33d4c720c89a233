// SIMD variants of the scaling family against their reference variants on every compiled
// target, over widths around every vector size, heights that give whole and partial blocks,
// padded strides and misaligned first pixels; inputs lean on 0 and 255 so that the widest
// sums and the rounding terms are reached.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

// Widths 1-70 and a few past 4 x 64 bytes, heights 1-13 (whole and partial 2, 3 and 4 row blocks).
std::vector<Shape> Shapes() {
  std::vector<Shape> shapes;
  for (uint32_t w = 1; w <= 70; ++w) shapes.push_back({w, 1 + (w * 5) % 13, (w * 7) % 13, w % 4});
  for (uint32_t w : {127u, 128u, 129u, 193u, 256u, 257u, 385u}) shapes.push_back({w, 5 + w % 8, w % 5, w % 3});
  shapes.push_back({1021, 9, 5, 3});
  return shapes;
}

class ScaleLanes : public ::testing::Test {
 protected:
  // Source of width x height pixels of ch bytes with the shape's padding and misalignment;
  // a quarter of the bytes are 0 and a quarter 255.
  Image Source(const Shape& s, uint32_t ch) {
    Image src(s.width, s.height, ch, s.pad, s.misalign);
    src.RandomizeWithExtremes(rng_, ch, 4);
    return src;
  }
  std::mt19937 rng_{77};
};

using Reducer = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);

TEST_F(ScaleLanes, ReductionsMatchReference) {
  const struct {
    const char* name;
    Reducer c, v;
    uint32_t factor;
  } kReducers[] = {{"by 2", tvxScaleDownBy2u8_v2C, tvxScaleDownBy2u8_v2V, 2}, {"by 4", tvxScaleDownBy4u8_v2C, tvxScaleDownBy4u8_v2V, 4}};
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      const Image src = Source(s, 1);
      for (const auto& r : kReducers) {
        SCOPED_TRACE(r.name);
        const uint32_t ow = s.width / r.factor, oh = s.height / r.factor;
        Image c(ow, oh, 1, s.pad + 1, 1), v(ow, oh, 1, s.pad + 1, 1);
        r.c(src.bytes(), s.width, s.height, src.stride(), c.bytes(), c.stride());
        r.v(src.bytes(), s.width, s.height, src.stride(), v.bytes(), v.stride());
        EXPECT_TRUE(v.SameRect(c));
        EXPECT_TRUE(v.GuardsIntact());
      }
      // Block averages: factors 2x2 and 4x4 take the vector paths, the others the scalar one.
      for (uint32_t f : {1u, 2u, 3u, 4u}) {
        for (uint32_t g : {2u, 4u, 5u}) {
          const uint32_t dw = s.width / f, dh = s.height / g;
          if (!dw || !dh) continue;
          Image c(dw, dh, 1, 2, 3), v(dw, dh, 1, 2, 3);
          tvxScaleDownu8_v2C(src.bytes(), s.width, s.height, src.stride(), c.bytes(), dw, dh, c.stride());
          tvxScaleDownu8_v2V(src.bytes(), s.width, s.height, src.stride(), v.bytes(), dw, dh, v.stride());
          EXPECT_TRUE(v.SameRect(c)) << "block average to " << dw << "x" << dh;
          EXPECT_TRUE(v.GuardsIntact());
        }
      }
      // Resamplers: reductions by 1 to 3 and enlargements.
      using Resampler = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, uint32_t, uint32_t);
      const Resampler pairs[2][2] = {{tvxScaleDownNNu8C, tvxScaleDownNNu8V}, {tvxScaleDownBLu8C, tvxScaleDownBLu8V}};
      for (const auto& fn : pairs) {
        for (uint32_t dw : {s.width, s.width / 2, s.width / 3, 2 * s.width + 1}) {
          const uint32_t dh = dw % 2 ? s.height / 2 : s.height + 3;
          if (!dw || !dh) continue;
          Image c(dw, dh, 1, 1, 1), v(dw, dh, 1, 1, 1);
          fn[0](src.bytes(), s.width, s.height, src.stride(), c.bytes(), dw, dh, c.stride());
          fn[1](src.bytes(), s.width, s.height, src.stride(), v.bytes(), dw, dh, v.stride());
          EXPECT_TRUE(v.SameRect(c)) << (fn[0] == tvxScaleDownNNu8C ? "nearest" : "bilinear") << " to " << dw << "x" << dh;
          EXPECT_TRUE(v.GuardsIntact());
        }
      }
      Image c(s.width / 3 * 2, s.height / 3 * 2, 1, 3, 2), v(s.width / 3 * 2, s.height / 3 * 2, 1, 3, 2);
      const int32_t rc = tvxScaleDown3To2u8C(src.bytes(), s.width, s.height, src.stride(), c.bytes(), c.stride());
      const int32_t rv = tvxScaleDown3To2u8V(src.bytes(), s.width, s.height, src.stride(), v.bytes(), v.stride());
      EXPECT_EQ(rv, rc);
      EXPECT_TRUE(v.SameRect(c)) << "3 to 2";
      EXPECT_TRUE(v.GuardsIntact());
    }
  });
}

using Upsampler = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);

TEST_F(ScaleLanes, UpsamplersMatchReference) {
  const struct {
    const char* name;
    Upsampler c, v;
    uint32_t ch, wide, tall;
  } kUpsamplers[] = {
      {"horizontal", tvxUpsampleHorizontalu8C, tvxUpsampleHorizontalu8V, 1, 2, 1},
      {"vertical", tvxUpsampleVerticalu8C, tvxUpsampleVerticalu8V, 1, 1, 2},
      {"2d", tvxUpsample2Du8C, tvxUpsample2Du8V, 1, 2, 2},
      {"horizontal interleaved", tvxUpsampleHorizontalInterleavedu8C, tvxUpsampleHorizontalInterleavedu8V, 2, 2, 1},
      {"vertical interleaved", tvxUpsampleVerticalInterleavedu8C, tvxUpsampleVerticalInterleavedu8V, 2, 1, 2},
      {"2d interleaved", tvxUpsample2DInterleavedu8C, tvxUpsample2DInterleavedu8V, 2, 2, 2},
  };
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      for (const auto& u : kUpsamplers) {
        SCOPED_TRACE(u.name);
        const Image src = Source(s, u.ch);
        const uint32_t ow = s.width * u.wide, oh = s.height * u.tall;
        Image c(ow, oh, u.ch, s.pad * 2 + 1, (s.misalign + 1) % 4), v(ow, oh, u.ch, s.pad * 2 + 1, (s.misalign + 1) % 4);
        u.c(src.bytes(), s.width, s.height, src.stride(), c.bytes(), c.stride());
        u.v(src.bytes(), s.width, s.height, src.stride(), v.bytes(), v.stride());
        EXPECT_TRUE(v.SameRect(c));
        EXPECT_TRUE(v.GuardsIntact());
      }
    }
  });
}

TEST_F(ScaleLanes, InterleavingMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      const Image a = Source(s, 1), b = Source({s.width, s.height, s.pad + 3, (s.misalign + 2) % 4}, 1);
      Image c(s.width, s.height, 2, s.pad, 1), v(s.width, s.height, 2, s.pad, 1);
      tvxInterleaveu8C(a.bytes(), b.bytes(), s.width, s.height, a.stride(), b.stride(), c.bytes(), c.stride());
      tvxInterleaveu8V(a.bytes(), b.bytes(), s.width, s.height, a.stride(), b.stride(), v.bytes(), v.stride());
      EXPECT_TRUE(v.SameRect(c)) << "interleave";
      EXPECT_TRUE(v.GuardsIntact());

      const Image pairs = Source(s, 2);
      Image c0(s.width, s.height, 1, 2, 3), c1(s.width, s.height, 1, 0, 1);
      Image v0(s.width, s.height, 1, 2, 3), v1(s.width, s.height, 1, 0, 1);
      tvxDeinterleaveu8C(pairs.bytes(), s.width, s.height, pairs.stride(), c0.bytes(), c0.stride(), c1.bytes(),
                         c1.stride());
      tvxDeinterleaveu8V(pairs.bytes(), s.width, s.height, pairs.stride(), v0.bytes(), v0.stride(), v1.bytes(),
                         v1.stride());
      EXPECT_TRUE(v0.SameRect(c0)) << "deinterleave, first plane";
      EXPECT_TRUE(v1.SameRect(c1)) << "deinterleave, second plane";
      EXPECT_TRUE(v0.GuardsIntact());
      EXPECT_TRUE(v1.GuardsIntact());
    }
  });
}

}  // namespace
