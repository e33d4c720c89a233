// SIMD variants of the YCbCr layout changes, the chroma swap, the video-range decoders and the
// rotated conversions against their reference variants on every compiled target: widths 1-70
// and large rows, padded strides whose guard bytes must survive, misaligned planes, random
// bytes mixed with runs of the extremes that reach the clamps.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "color_layout_cases.h"
#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::LayoutCase;
using tvxtest::LayoutKind;
using tvxtest::Shape;
using tvxtest::YuvRef;

// Random bytes with a run of eight 0s or 255s in every 32 bytes (the clamps and extremes).
void Fill(Image& img, std::mt19937& rng) {
  img.Randomize(rng);
  for (uint32_t y = 0; y < img.height(); ++y)
    for (uint32_t i = 0; i + 8 <= img.stride() && i + 8 <= img.width(); i += 32)
      for (uint32_t k = 0; k < 8; ++k) img.row(y)[i + k] = (y + i / 32) % 2 ? 255 : 0;
}

uint32_t Samples(uint32_t pixels, uint32_t step) { return (pixels + step - 1) / step; }

struct Planes {
  std::unique_ptr<Image> y, cb, cr;
  Planes(LayoutKind k, const Shape& s, uint32_t extraPad) {
    const uint32_t cw = Samples(s.width, k.stepX), ch = Samples(s.height, k.stepY);
    y = std::make_unique<Image>(s.width, s.height, 1, s.pad + extraPad, s.misalign);
    cb = std::make_unique<Image>(k.planar ? cw : 2 * cw, ch, 1, s.pad + 1, (s.misalign + 1 + extraPad) % 4);
    if (k.planar) cr = std::make_unique<Image>(cw, ch, 1, extraPad + 2, (s.misalign + 3) % 4);
  }
  YuvRef ref() {
    return {y->bytes(), cb->bytes(), cr ? cr->bytes() : nullptr, y->stride(), cb->stride(), cr ? cr->stride() : 0};
  }
  ::testing::AssertionResult Same(const Planes& o) const {
    if (auto r = y->SameRect(*o.y); !r) return r;
    if (auto r = cb->SameRect(*o.cb); !r) return r;
    return cr ? cr->SameRect(*o.cr) : ::testing::AssertionSuccess();
  }
  ::testing::AssertionResult GuardsIntact() const {
    if (auto r = y->GuardsIntact(); !r) return r;
    if (auto r = cb->GuardsIntact(); !r) return r;
    return cr ? cr->GuardsIntact() : ::testing::AssertionSuccess();
  }
};

TEST(ColorLayoutLanesTest, LayoutChangesMatchTheReference) {
  std::mt19937 rng(5);
  tvxtest::ForEachTarget([&] {
    for (const LayoutCase& c : tvxtest::kLayoutCases) {
      for (const Shape& s : tvxtest::SweepShapes()) {
        SCOPED_TRACE(std::string(c.name) + " width " + std::to_string(s.width));
        Planes src(c.from, s, 0), ref(c.to, s, 1), simd(c.to, s, 2);
        Fill(*src.y, rng);
        Fill(*src.cb, rng);
        if (src.cr) Fill(*src.cr, rng);
        c.reference(src.ref(), s.width, s.height, ref.ref());
        c.simd(src.ref(), s.width, s.height, simd.ref());
        ASSERT_TRUE(simd.Same(ref));
        ASSERT_TRUE(simd.GuardsIntact());
      }
    }
  });
}

TEST(ColorLayoutLanesTest, CbCrSwapMatchesTheReferenceAlsoInPlace) {
  std::mt19937 rng(6);
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(s.width);
      Image src(2 * s.width, s.height, 1, s.pad, s.misalign), ref(2 * s.width, s.height, 1, s.pad + 1, 1),
          simd(2 * s.width, s.height, 1, 3, (s.misalign + 2) % 4);
      Fill(src, rng);
      tvxColorCbCrSwapu8C(src.bytes(), s.width, s.height, src.stride(), ref.bytes(), ref.stride());
      tvxColorCbCrSwapu8V(src.bytes(), s.width, s.height, src.stride(), simd.bytes(), simd.stride());
      ASSERT_TRUE(simd.SameRect(ref));
      ASSERT_TRUE(simd.GuardsIntact());
      tvxColorCbCrSwapu8V(src.bytes(), s.width, s.height, src.stride(), src.bytes(), src.stride());
      ASSERT_TRUE(src.SameRect(ref));
      ASSERT_TRUE(src.GuardsIntact());
    }
  });
}

TEST(ColorLayoutLanesTest, TenBitDecoderMatchesTheReference) {
  std::mt19937 rng(7);
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(s.width);
      const uint32_t cw = Samples(s.width, 2), ch = Samples(s.height, 2);
      Image y(s.width, s.height, 1, s.pad, s.misalign), pairs(2 * cw, ch, 1, s.pad + 1, (s.misalign + 1) % 4);
      Image ref(s.width, s.height, 4, s.pad + 2, 0), simd(s.width, s.height, 4, 1, (s.misalign + 3) % 4);
      Fill(y, rng);
      Fill(pairs, rng);
      tvxColorYCrCb420PseudoPlanarToRGB8888u8C(y.bytes(), pairs.bytes(), s.width, s.height, y.stride(), pairs.stride(),
                                               ref.bytes(), ref.stride());
      tvxColorYCrCb420PseudoPlanarToRGB8888u8V(y.bytes(), pairs.bytes(), s.width, s.height, y.stride(),
                                               pairs.stride(), simd.bytes(), simd.stride());
      ASSERT_TRUE(simd.SameRect(ref));
      ASSERT_TRUE(simd.GuardsIntact());
    }
  });
}

TEST(ColorLayoutLanesTest, Rgb565DecoderAndItsRotatedFormMatchTheReference) {
  std::mt19937 rng(8);
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(s.width);
      const uint32_t planeBytes = s.width * s.height + 2 * Samples(s.width, 2) * Samples(s.height, 2);
      Image src(planeBytes, 1, 1, 0, s.misalign);
      Fill(src, rng);
      Image ref(s.width, s.height, 2, 0, s.misalign % 2), simd(s.width, s.height, 2, 0, (s.misalign + 1) % 2);
      tvxColorYUV420toRGB565u8C(src.bytes(), s.width, s.height, ref.bytes());
      tvxColorYUV420toRGB565u8V(src.bytes(), s.width, s.height, simd.bytes());
      ASSERT_TRUE(simd.SameRect(ref));
      ASSERT_TRUE(simd.GuardsIntact());
      tvxColorYUV420toRGB565u8Rotate180C(src.bytes(), s.width, s.height, ref.bytes());
      tvxColorYUV420toRGB565u8Rotate180V(src.bytes(), s.width, s.height, simd.bytes());
      ASSERT_TRUE(simd.SameRect(ref));
      ASSERT_TRUE(simd.GuardsIntact());
    }
  });
}

TEST(ColorLayoutLanesTest, RotatedRgb565MatchesTheReference) {
  std::mt19937 rng(9);
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(s.width);
      Image src(s.width, s.height, 3, s.pad, s.misalign), ref(s.width, s.height, 2, s.pad + 1, 1),
          simd(s.width, s.height, 2, 2 * s.pad, (s.misalign + 1) % 4);
      Fill(src, rng);
      tvxColorRGB888ToRGB565Rotate180u8C(src.bytes(), s.width, s.height, src.stride(), ref.bytes(), ref.stride());
      tvxColorRGB888ToRGB565Rotate180u8V(src.bytes(), s.width, s.height, src.stride(), simd.bytes(), simd.stride());
      ASSERT_TRUE(simd.SameRect(ref));
      ASSERT_TRUE(simd.GuardsIntact());
    }
  });
}

}  // namespace
