// SIMD variants of the colour family against their reference variants on every compiled
// target, over the sweep of widths 1-70 and large rows, padded strides with guard bytes and
// misaligned first pixels. Inputs mix random bytes with the extremes (0 and 255 runs) that
// reach the clamps and the 255 chroma rule.
#include <gtest/gtest.h>

#include <random>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

typedef void (*PackedFn)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);

struct PackedPair {
  const char* name;
  PackedFn c, v;
  uint32_t inBytes, outBytes;
};

#define TVX_PAIR(F, T, in, out) {#F "To" #T, tvxColor##F##To##T##u8C, tvxColor##F##To##T##u8V, in, out}
const PackedPair kPacked[] = {
    TVX_PAIR(RGB565, RGB888, 2, 3),     TVX_PAIR(RGB565, RGBA8888, 2, 4),   TVX_PAIR(RGB565, BGR565, 2, 2),
    TVX_PAIR(RGB565, BGR888, 2, 3),     TVX_PAIR(RGB565, BGRA8888, 2, 4),   TVX_PAIR(RGB888, RGB565, 3, 2),
    TVX_PAIR(RGB888, RGBA8888, 3, 4),   TVX_PAIR(RGB888, BGR565, 3, 2),     TVX_PAIR(RGB888, BGR888, 3, 3),
    TVX_PAIR(RGB888, BGRA8888, 3, 4),   TVX_PAIR(RGBA8888, RGB565, 4, 2),   TVX_PAIR(RGBA8888, RGB888, 4, 3),
    TVX_PAIR(RGBA8888, BGR565, 4, 2),   TVX_PAIR(RGBA8888, BGR888, 4, 3),   TVX_PAIR(RGBA8888, BGRA8888, 4, 4),
    TVX_PAIR(RGB888, Gray, 3, 1),
};
#undef TVX_PAIR

typedef void (*PlanarFn)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint8_t*, uint8_t*, uint32_t,
                         uint32_t, uint32_t);
typedef void (*PseudoPlanarFn)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint8_t*, uint32_t,
                               uint32_t);

struct ToYCbCrPair {
  const char* name;
  PlanarFn planarC, planarV;
  PseudoPlanarFn pseudoC, pseudoV;
  uint32_t inBytes, stepX, stepY;
};

#define TVX_PAIR(F, S, in, sx, sy)                                                                                \
  {#F "ToYCbCr" #S, tvxColor##F##ToYCbCr##S##Planaru8C, tvxColor##F##ToYCbCr##S##Planaru8V,                      \
   tvxColor##F##ToYCbCr##S##PseudoPlanaru8C, tvxColor##F##ToYCbCr##S##PseudoPlanaru8V, in, sx, sy}
#define TVX_PAIRS(F, in) TVX_PAIR(F, 444, in, 1, 1), TVX_PAIR(F, 422, in, 2, 1), TVX_PAIR(F, 420, in, 2, 2)
const ToYCbCrPair kToYCbCr[] = {TVX_PAIRS(RGB565, 2), TVX_PAIRS(RGB888, 3), TVX_PAIRS(RGBA8888, 4)};
#undef TVX_PAIRS
#undef TVX_PAIR

// Output planes of one tier: luma, and chroma as two planes or one plane of pairs.
struct YCbCrOut {
  Image y, cb, cr, yPairs, pairs;
  YCbCrOut(const Shape& s, uint32_t cw, uint32_t ch)
      : y(s.width, s.height, 1, s.pad, s.misalign), cb(cw, ch, 1, s.pad + 1, 1), cr(cw, ch, 1, 2, 3),
        yPairs(s.width, s.height, 1, s.pad + 1, 0),
        pairs(cw * 2, ch, 1, s.pad + 2, 2) {}
};

typedef void (*FromPlanarFn)(const uint8_t*, const uint8_t*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t,
                             uint32_t, uint8_t*, uint32_t);
typedef void (*FromPseudoPlanarFn)(const uint8_t*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t, uint8_t*,
                                   uint32_t);
struct FromYCbCrPair {
  const char* name;
  FromPlanarFn planarC, planarV;
  FromPseudoPlanarFn pseudoC, pseudoV;
  uint32_t outBytes, stepX, stepY;
};
#define TVX_PAIR(S, T, out, sx, sy)                                                                 \
  {#S "To" #T, tvxColorYCbCr##S##PlanarTo##T##u8C, tvxColorYCbCr##S##PlanarTo##T##u8V,             \
   tvxColorYCbCr##S##PseudoPlanarTo##T##u8C, tvxColorYCbCr##S##PseudoPlanarTo##T##u8V, out, sx, sy}
#define TVX_PAIRS(S, sx, sy) TVX_PAIR(S, RGB565, 2, sx, sy), TVX_PAIR(S, RGB888, 3, sx, sy), TVX_PAIR(S, RGBA8888, 4, sx, sy)
const FromYCbCrPair kFromYCbCr[] = {TVX_PAIRS(444, 1, 1), TVX_PAIRS(422, 2, 1), TVX_PAIRS(420, 2, 2)};
#undef TVX_PAIRS
#undef TVX_PAIR

// Random bytes with runs of 0 and 255 so saturated and zero pixels appear in whole vectors.
void FillMixed(Image& img, uint32_t pixelBytes, std::mt19937& rng) {
  img.RandomizeWithExtremes(rng, pixelBytes, 8);
}

class ColorLanes : public ::testing::Test {
 protected:
  std::mt19937 rng_{7};
};

TEST_F(ColorLanes, PackedConversionsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const PackedPair& p : kPacked) {
      SCOPED_TRACE(p.name);
      for (const Shape& s : tvxtest::SweepShapes()) {
        SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
        Image src(s.width, s.height, p.inBytes, s.pad, s.misalign);
        FillMixed(src, p.inBytes, rng_);
        Image c(s.width, s.height, p.outBytes, s.pad + 3, (s.misalign + 1) % 4);
        Image v(s.width, s.height, p.outBytes, s.pad + 3, (s.misalign + 1) % 4);
        p.c(src.bytes(), s.width, s.height, src.stride(), c.bytes(), c.stride());
        p.v(src.bytes(), s.width, s.height, src.stride(), v.bytes(), v.stride());
        ASSERT_TRUE(v.SameRect(c));
        ASSERT_TRUE(v.GuardsIntact());
      }
    }
  });
}

TEST_F(ColorLanes, RgbToYCbCrMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const ToYCbCrPair& p : kToYCbCr) {
      SCOPED_TRACE(p.name);
      for (const Shape& s : tvxtest::SweepShapes()) {
        SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
        const uint32_t cw = (s.width + p.stepX - 1) / p.stepX, ch = (s.height + p.stepY - 1) / p.stepY;
        Image src(s.width, s.height, p.inBytes, s.pad, s.misalign);
        FillMixed(src, p.inBytes, rng_);
        YCbCrOut c(s, cw, ch), v(s, cw, ch);
        p.planarC(src.bytes(), s.width, s.height, src.stride(), c.y.bytes(), c.cb.bytes(), c.cr.bytes(),
                  c.y.stride(), c.cb.stride(), c.cr.stride());
        p.planarV(src.bytes(), s.width, s.height, src.stride(), v.y.bytes(), v.cb.bytes(), v.cr.bytes(),
                  v.y.stride(), v.cb.stride(), v.cr.stride());
        p.pseudoC(src.bytes(), s.width, s.height, src.stride(), c.yPairs.bytes(), c.pairs.bytes(), c.yPairs.stride(),
                  c.pairs.stride());
        p.pseudoV(src.bytes(), s.width, s.height, src.stride(), v.yPairs.bytes(), v.pairs.bytes(), v.yPairs.stride(),
                  v.pairs.stride());
        ASSERT_TRUE(v.y.SameRect(c.y));
        ASSERT_TRUE(v.cb.SameRect(c.cb));
        ASSERT_TRUE(v.cr.SameRect(c.cr));
        ASSERT_TRUE(v.yPairs.SameRect(c.yPairs));
        ASSERT_TRUE(v.pairs.SameRect(c.pairs));
        for (const Image* img : {&v.y, &v.cb, &v.cr, &v.yPairs, &v.pairs}) ASSERT_TRUE(img->GuardsIntact());
      }
    }
  });
}

TEST_F(ColorLanes, YCbCrToRgbMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const FromYCbCrPair& p : kFromYCbCr) {
      SCOPED_TRACE(p.name);
      for (const Shape& s : tvxtest::SweepShapes()) {
        if (s.width < 2 && p.stepX == 2) continue;  // the reference pair kernel needs two pixels
        SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
        const uint32_t cw = (s.width + p.stepX - 1) / p.stepX, ch = (s.height + p.stepY - 1) / p.stepY;
        Image luma(s.width, s.height, 1, s.pad, s.misalign), cb(cw, ch, 1, 1, 2), cr(cw, ch, 1, 3, 1);
        Image pairs(2 * cw, ch, 1, s.pad + 1, 3);
        for (Image* img : {&luma, &cb, &cr, &pairs}) FillMixed(*img, 1, rng_);
        Image c(s.width, s.height, p.outBytes, s.pad + 2, 1), v(s.width, s.height, p.outBytes, s.pad + 2, 1);
        p.planarC(luma.bytes(), cb.bytes(), cr.bytes(), s.width, s.height, luma.stride(), cb.stride(), cr.stride(),
                  c.bytes(), c.stride());
        p.planarV(luma.bytes(), cb.bytes(), cr.bytes(), s.width, s.height, luma.stride(), cb.stride(), cr.stride(),
                  v.bytes(), v.stride());
        ASSERT_TRUE(v.SameRect(c)) << "planar";
        ASSERT_TRUE(v.GuardsIntact());
        p.pseudoC(luma.bytes(), pairs.bytes(), s.width, s.height, luma.stride(), pairs.stride(), c.bytes(), c.stride());
        p.pseudoV(luma.bytes(), pairs.bytes(), s.width, s.height, luma.stride(), pairs.stride(), v.bytes(), v.stride());
        ASSERT_TRUE(v.SameRect(c)) << "pseudo-planar";
        ASSERT_TRUE(v.GuardsIntact());
      }
    }
  });
}

}  // namespace
