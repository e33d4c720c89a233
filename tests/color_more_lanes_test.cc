// SIMD variants of the channel, JPEG-style YCrCb, HSV and LAB entries against their reference
// variants on every compiled target: widths 1-70 and long rows, padded strides with guard
// bytes, misaligned first pixels, random bytes mixed with runs of 0 and 255.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

// Random bytes with runs of 0 and 255 so saturated and zero pixels appear in whole vectors.
void FillMixed(Image& img, std::mt19937& rng, uint32_t elemBytes = 1) {
  img.RandomizeWithExtremes(rng, elemBytes, 8);
}

class ColorMoreLanes : public ::testing::Test {
 protected:
  std::mt19937 rng_{31};
};

TEST_F(ColorMoreLanes, ChannelExtractMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (uint32_t format = 0; format <= 5; ++format) {
      for (uint32_t channel = 0; channel < (format == 1 ? 4u : 3u); ++channel) {
        SCOPED_TRACE(::testing::Message() << "format " << format << " channel " << channel);
        for (const Shape& s : tvxtest::SweepShapes()) {
          SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
          const uint32_t hw = (s.width + 1) / 2;
          const uint32_t rowBytes = format == 0 ? 3 * s.width : format == 1 ? 4 * s.width : format <= 3 ? s.width : hw * 4;
          Image src(rowBytes, s.height, 1, s.pad, s.misalign), chroma(hw * 2, (s.height + 1) / 2, 1, s.pad + 1, 3);
          FillMixed(src, rng_);
          FillMixed(chroma, rng_);
          const bool half = format >= 2 && channel > 0;
          const uint32_t ow = half ? hw : s.width, oh = half && format <= 3 ? (s.height + 1) / 2 : s.height;
          Image c(ow, oh, 1, s.pad + 2, 1), v(ow, oh, 1, s.pad + 2, 1);
          ASSERT_EQ(tvxChannelExtractu8C(src.bytes(), s.width, s.height, src.stride(), chroma.bytes(), chroma.stride(),
                                         c.bytes(), c.stride(), format, channel),
                    0);
          ASSERT_EQ(tvxChannelExtractu8V(src.bytes(), s.width, s.height, src.stride(), chroma.bytes(), chroma.stride(),
                                         v.bytes(), v.stride(), format, channel),
                    0);
          ASSERT_TRUE(v.SameRect(c));
          ASSERT_TRUE(v.GuardsIntact());
        }
      }
    }
  });
}

TEST_F(ColorMoreLanes, ChannelCombineMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      Image p1(s.width, s.height, 1, s.pad, s.misalign), p2(s.width, s.height, 1, 1, 1), p3(s.width, s.height, 1, 2, 2),
          p4(s.width, s.height, 1, 0, 3);
      for (Image* img : {&p1, &p2, &p3, &p4}) FillMixed(*img, rng_);
      for (uint32_t count = 2; count <= 4; ++count) {
        SCOPED_TRACE(count);
        Image c(s.width, s.height, count, s.pad + 1, 2), v(s.width, s.height, count, s.pad + 1, 2);
        for (Image* out : {&c, &v}) {
          const bool simd = out == &v;
          int32_t r = 0;
          if (count == 2)
            r = (simd ? tvxChannelCombine2Planesu8V : tvxChannelCombine2Planesu8C)(
                p1.bytes(), s.width, s.height, p1.stride(), p2.bytes(), p2.stride(), out->bytes(), out->stride());
          if (count == 3)
            r = (simd ? tvxChannelCombine3Planesu8V : tvxChannelCombine3Planesu8C)(
                p1.bytes(), s.width, s.height, p1.stride(), p2.bytes(), p2.stride(), p3.bytes(), p3.stride(),
                out->bytes(), out->stride());
          if (count == 4)
            r = (simd ? tvxChannelCombine4Planesu8V : tvxChannelCombine4Planesu8C)(
                p1.bytes(), s.width, s.height, p1.stride(), p2.bytes(), p2.stride(), p3.bytes(), p3.stride(),
                p4.bytes(), p4.stride(), out->bytes(), out->stride());
          ASSERT_EQ(r, 0);
        }
        ASSERT_TRUE(v.SameRect(c));
        ASSERT_TRUE(v.GuardsIntact());
      }
    }
  });
}

typedef int32_t (*DecoderFn)(const uint8_t*, const uint8_t*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t,
                             uint32_t, uint8_t*, uint32_t);
struct DecoderPair {
  const char* name;
  DecoderFn c, v;
  uint32_t h, v2;
};
#define TVX_PAIR(HF, VF) {"H" #HF "V" #VF, tvxColorYCrCbH##HF##V##VF##toRGB888u8C, tvxColorYCrCbH##HF##V##VF##toRGB888u8V, HF, VF}
const DecoderPair kDecoders[] = {TVX_PAIR(1, 1), TVX_PAIR(2, 1), TVX_PAIR(2, 2), TVX_PAIR(1, 2)};
#undef TVX_PAIR

TEST_F(ColorMoreLanes, JpegDecodersMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const DecoderPair& p : kDecoders) {
      SCOPED_TRACE(p.name);
      for (const Shape& s : tvxtest::SweepShapes()) {
        SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
        const uint32_t cw = (s.width + p.h - 1) / p.h, ch = (s.height + p.v2 - 1) / p.v2;
        Image luma(s.width, s.height, 1, s.pad, s.misalign), cr(cw, ch, 1, 1, 2), cb(cw, ch, 1, 3, 1);
        for (Image* img : {&luma, &cr, &cb}) FillMixed(*img, rng_);
        Image c(s.width, s.height, 3, s.pad + 2, 1), v(s.width, s.height, 3, s.pad + 2, 1);
        ASSERT_EQ(p.c(luma.bytes(), cr.bytes(), cb.bytes(), s.width, s.height, luma.stride(), cr.stride(), cb.stride(),
                      c.bytes(), c.stride()),
                  0);
        ASSERT_EQ(p.v(luma.bytes(), cr.bytes(), cb.bytes(), s.width, s.height, luma.stride(), cr.stride(), cb.stride(),
                      v.bytes(), v.stride()),
                  0);
        ASSERT_TRUE(v.SameRect(c));
        ASSERT_TRUE(v.GuardsIntact());
      }
    }
  });
}

// Every (Cr, Cb) pair over a few luma values: the 16-bit rewriting of the offsets must agree
// with the reference's 32-bit sums everywhere, not only on random samples.
TEST_F(ColorMoreLanes, JpegDecoderAgreesOnEveryChromaPair) {
  const uint32_t w = 256, h = 256;
  Image luma(w, h, 1), cr(w, h, 1), cb(w, h, 1);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      cr.row(y)[x] = static_cast<uint8_t>(x);
      cb.row(y)[x] = static_cast<uint8_t>(y);
      luma.row(y)[x] = static_cast<uint8_t>((x * 7 + y * 13) % 256);
    }
  tvxtest::ForEachTarget([&] {
    Image c(w, h, 3), v(w, h, 3);
    tvxColorYCrCbH1V1toRGB888u8C(luma.bytes(), cr.bytes(), cb.bytes(), w, h, w, w, w, c.bytes(), c.stride());
    tvxColorYCrCbH1V1toRGB888u8V(luma.bytes(), cr.bytes(), cb.bytes(), w, h, w, w, w, v.bytes(), v.stride());
    ASSERT_TRUE(v.SameRect(c));
  });
}

TEST_F(ColorMoreLanes, JpegEncoderMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      Image src(s.width, s.height, 3, s.pad, s.misalign);
      FillMixed(src, rng_, 3);
      Image cy(s.width, s.height, 1, s.pad + 1, 1), ccr(s.width, s.height, 1, 2, 2), ccb(s.width, s.height, 1, 0, 3);
      Image vy(s.width, s.height, 1, s.pad + 1, 1), vcr(s.width, s.height, 1, 2, 2), vcb(s.width, s.height, 1, 0, 3);
      ASSERT_EQ(tvxColorRGB888toYCrCbu8C(src.bytes(), s.width, s.height, src.stride(), cy.bytes(), ccr.bytes(),
                                         ccb.bytes(), cy.stride(), ccr.stride(), ccb.stride()),
                0);
      ASSERT_EQ(tvxColorRGB888toYCrCbu8V(src.bytes(), s.width, s.height, src.stride(), vy.bytes(), vcr.bytes(),
                                         vcb.bytes(), vy.stride(), vcr.stride(), vcb.stride()),
                0);
      ASSERT_TRUE(vy.SameRect(cy));
      ASSERT_TRUE(vcr.SameRect(ccr));
      ASSERT_TRUE(vcb.SameRect(ccb));
      for (const Image* img : {&vy, &vcr, &vcb}) ASSERT_TRUE(img->GuardsIntact());
    }
  });
}

// Every RGB value with 4-step channels (64^3 pixels, all extremes included) through the
// encoder's 16-bit rewriting.
TEST_F(ColorMoreLanes, JpegEncoderAgreesOnARgbLattice) {
  const uint32_t w = 4096, h = 64;
  Image src(w, h, 3);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t* p = src.row(y) + 3 * x;
      p[0] = static_cast<uint8_t>(std::min(255u, (x % 64) * 4 + (x % 64 == 63 ? 3 : 0)));
      p[1] = static_cast<uint8_t>(std::min(255u, (x / 64) * 4 + (x / 64 == 63 ? 3 : 0)));
      p[2] = static_cast<uint8_t>(std::min(255u, y * 4 + (y == 63 ? 3 : 0)));
    }
  tvxtest::ForEachTarget([&] {
    Image cy(w, h, 1), ccr(w, h, 1), ccb(w, h, 1), vy(w, h, 1), vcr(w, h, 1), vcb(w, h, 1);
    tvxColorRGB888toYCrCbu8C(src.bytes(), w, h, src.stride(), cy.bytes(), ccr.bytes(), ccb.bytes(), w, w, w);
    tvxColorRGB888toYCrCbu8V(src.bytes(), w, h, src.stride(), vy.bytes(), vcr.bytes(), vcb.bytes(), w, w, w);
    ASSERT_TRUE(vy.SameRect(cy));
    ASSERT_TRUE(vcr.SameRect(ccr));
    ASSERT_TRUE(vcb.SameRect(ccb));
  });
}

typedef int32_t (*PackedFn)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);
struct SpacePair {
  const char* name;
  PackedFn c, v;
  uint32_t inBytes;
};
const SpacePair kSpaces[] = {{"HSV", tvxColorRGB888ToHSV888u8C, tvxColorRGB888ToHSV888u8V, 3},
                             {"LAB", tvxColorRGBA8888ToLABu8C, tvxColorRGBA8888ToLABu8V, 4}};

TEST_F(ColorMoreLanes, HsvAndLabMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const SpacePair& p : kSpaces) {
      SCOPED_TRACE(p.name);
      for (const Shape& s : tvxtest::SweepShapes()) {
        SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
        Image src(s.width * p.inBytes, s.height, 1, s.pad, s.misalign);
        FillMixed(src, rng_);
        Image c(s.width, s.height, 3, s.pad + 1, 2), v(s.width, s.height, 3, s.pad + 1, 2);
        ASSERT_EQ(p.c(src.bytes(), s.width, s.height, src.stride(), c.bytes(), c.stride()), 0);
        ASSERT_EQ(p.v(src.bytes(), s.width, s.height, src.stride(), v.bytes(), v.stride()), 0);
        ASSERT_TRUE(v.SameRect(c));
        ASSERT_TRUE(v.GuardsIntact());
      }
    }
  });
}

// Every colour with 4-step channels (64^3 pixels, all extremes and greys included): the
// gathers, sector selection and shifts of the vector code against the reference.
TEST_F(ColorMoreLanes, HsvAndLabAgreeOnAColourLattice) {
  const uint32_t w = 4096, h = 64;
  Image rgb(w, h, 3), rgba(w, h, 4);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t px[4] = {static_cast<uint8_t>(std::min(255u, (x % 64) * 4 + (x % 64 == 63 ? 3 : 0))),
                             static_cast<uint8_t>(std::min(255u, (x / 64) * 4 + (x / 64 == 63 ? 3 : 0))),
                             static_cast<uint8_t>(std::min(255u, y * 4 + (y == 63 ? 3 : 0))), static_cast<uint8_t>(x)};
      std::copy(px, px + 3, rgb.row(y) + 3 * x);
      std::copy(px, px + 4, rgba.row(y) + 4 * x);
    }
  tvxtest::ForEachTarget([&] {
    for (const SpacePair& p : kSpaces) {
      SCOPED_TRACE(p.name);
      const Image& src = p.inBytes == 3 ? rgb : rgba;
      Image c(w, h, 3), v(w, h, 3);
      p.c(src.bytes(), w, h, src.stride(), c.bytes(), c.stride());
      p.v(src.bytes(), w, h, src.stride(), v.bytes(), v.stride());
      ASSERT_TRUE(v.SameRect(c));
    }
  });
}

}  // namespace
