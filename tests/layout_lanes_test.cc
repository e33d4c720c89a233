// SIMD variants of the layout family against their reference variants on every compiled
// target: transposes and quarter turns over shapes that cover whole tiles, partial tiles and
// wide multi-tile vectors; flips out of place and in place over odd widths and heights.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"
#include "log_capture.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

// Widths and heights around the 4/8/16-element tiles and the 16..64-byte vectors.
std::vector<Shape> TileShapes() {
  std::vector<Shape> shapes;
  const uint32_t widths[] = {1, 3, 4, 7, 8, 9, 15, 16, 17, 31, 32, 33, 48, 63, 64, 65, 97, 130};
  const uint32_t heights[] = {1, 2, 5, 8, 15, 16, 17, 33, 47};
  uint32_t i = 0;
  for (uint32_t w : widths)
    for (uint32_t h : heights) shapes.push_back({w, h, (i * 5) % 11, i % 4}), ++i;
  shapes.push_back({256, 64, 0, 0});
  return shapes;
}

// Flip shapes: the sweep plus rows long enough for two full vectors from each end.
std::vector<Shape> FlipShapes() {
  std::vector<Shape> shapes = tvxtest::SweepShapes();
  for (uint32_t w : {127u, 128u, 129u, 200u, 257u}) shapes.push_back({w, 5, w % 7, w % 4});
  return shapes;
}

Image Twin(const Image& from, size_t elemBytes, const Shape& s) {
  Image twin(s.width, s.height, elemBytes, s.pad, s.misalign);
  for (uint32_t y = 0; y < s.height; ++y) std::memcpy(twin.row(y), from.row(y), s.width * elemBytes);
  return twin;
}

class LayoutLanes : public ::testing::Test {
 protected:
  std::mt19937 rng_{99};
};

TEST_F(LayoutLanes, TransposesMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : TileShapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      const uint32_t w = s.width, h = s.height;
      {
        Image src(w, h, 1, s.pad, s.misalign);
        src.Randomize(rng_);
        Image c(h, w, 1, s.pad + 1, 2), v(h, w, 1, s.pad + 1, 2);
        tvxTransposeu8C(src.bytes(), w, h, src.stride(), c.bytes(), c.stride());
        tvxTransposeu8V(src.bytes(), w, h, src.stride(), v.bytes(), v.stride());
        EXPECT_TRUE(v.SameRect(c)) << "u8";
        EXPECT_TRUE(v.GuardsIntact());
      }
      {
        Image src(w, h, 2, s.pad * 2, s.misalign * 2);
        src.Randomize(rng_);
        Image c(h, w, 2, 6, 2), v(h, w, 2, 6, 2);
        tvxTransposeu16C(src.as<uint16_t>(), w, h, src.stride(), c.as<uint16_t>(), c.stride());
        tvxTransposeu16V(src.as<uint16_t>(), w, h, src.stride(), v.as<uint16_t>(), v.stride());
        EXPECT_TRUE(v.SameRect(c)) << "u16";
        EXPECT_TRUE(v.GuardsIntact());
      }
      {
        Image src(w, h, 4, s.pad * 4, (s.misalign % 2) * 4);
        src.Randomize(rng_);
        Image c(h, w, 4, 4, 4), v(h, w, 4, 4, 4);
        tvxTransposef32C(src.as<float>(), w, h, src.stride(), c.as<float>(), c.stride());
        tvxTransposef32V(src.as<float>(), w, h, src.stride(), v.as<float>(), v.stride());
        EXPECT_TRUE(v.SameRect(c)) << "f32";
        EXPECT_TRUE(v.GuardsIntact());
      }
      {
        Image src(w, h, 3, s.pad, s.misalign);
        src.Randomize(rng_);
        // The reference also wants dstStride >= srcWidth, which a thin tall image only meets padded.
        Image c(h, w, 3, 5 + w, 1), v(h, w, 3, 5 + w, 1);
        EXPECT_EQ(tvxTransposeRGB888u8C(src.bytes(), w, h, src.stride(), c.bytes(), c.stride()), 0);
        EXPECT_EQ(tvxTransposeRGB888u8V(src.bytes(), w, h, src.stride(), v.bytes(), v.stride()), 0);
        EXPECT_TRUE(v.SameRect(c)) << "RGB";
        EXPECT_TRUE(v.GuardsIntact());
      }
    }
  });
}

TEST_F(LayoutLanes, RotationsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : TileShapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      const uint32_t w = s.width, h = s.height;
      Image src(w, h, 1, s.pad, s.misalign);
      src.Randomize(rng_);
      // Pairs keep odd byte strides and odd addresses: they are moved as bytes.
      Image pairs(w, h, 2, s.pad, s.misalign);
      pairs.Randomize(rng_);
      for (int32_t degree = 1; degree <= 3; ++degree) {
        SCOPED_TRACE(::testing::Message() << "degree " << degree);
        const uint32_t outW = degree == 2 ? w : h, outH = degree == 2 ? h : w;
        Image c(outW, outH, 1, 3, 1), v(outW, outH, 1, 3, 1);
        EXPECT_EQ(tvxRotateImageu8C(src.bytes(), w, h, src.stride(), c.bytes(), c.stride(), degree), 0);
        EXPECT_EQ(tvxRotateImageu8V(src.bytes(), w, h, src.stride(), v.bytes(), v.stride(), degree), 0);
        EXPECT_TRUE(v.SameRect(c));
        EXPECT_TRUE(v.GuardsIntact());
        if (degree == 2) continue;  // 180 degrees on pairs goes through the 16-bit flip
        Image pc(outW, outH, 2, 3, 3), pv(outW, outH, 2, 3, 3);
        EXPECT_EQ(tvxRotateImageInterleavedu8C(pairs.bytes(), w, h, pairs.stride(), pc.bytes(), pc.stride(), degree), 0);
        EXPECT_EQ(tvxRotateImageInterleavedu8V(pairs.bytes(), w, h, pairs.stride(), pv.bytes(), pv.stride(), degree), 0);
        EXPECT_TRUE(pv.SameRect(pc)) << "pairs";
        EXPECT_TRUE(pv.GuardsIntact());
      }
    }
  });
}

// Out of place into a fresh image, then in place on twins of the source.
template <typename CallC, typename CallV>
void CheckFlip(const Image& src, const Shape& s, size_t elemBytes, CallC callC, CallV callV) {
  for (int32_t dir = 1; dir <= 3; ++dir) {
    SCOPED_TRACE(::testing::Message() << "dir " << dir);
    Image c(s.width, s.height, elemBytes, 2 * elemBytes, elemBytes), v(s.width, s.height, elemBytes, 2 * elemBytes, elemBytes);
    callC(src.bytes(), src.stride(), c.bytes(), c.stride(), dir);
    callV(src.bytes(), src.stride(), v.bytes(), v.stride(), dir);
    EXPECT_TRUE(v.SameRect(c));
    EXPECT_TRUE(v.GuardsIntact());
    Image inC = Twin(src, elemBytes, s), inV = Twin(src, elemBytes, s);
    callC(inC.bytes(), inC.stride(), inC.bytes(), inC.stride(), dir);
    callV(inV.bytes(), inV.stride(), inV.bytes(), inV.stride(), dir);
    EXPECT_TRUE(inV.SameRect(inC)) << "in place";
    EXPECT_TRUE(inV.SameRect(c)) << "in place differs from out of place";
    EXPECT_TRUE(inV.GuardsIntact());
  }
}

TEST_F(LayoutLanes, FlipsMatchReferenceOutOfPlaceAndInPlace) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& base : FlipShapes()) {
      for (const uint32_t height : {base.height, base.height + 3}) {
        const Shape s{base.width, height, base.pad, base.misalign};
        SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
        const uint32_t w = s.width, h = s.height;
        Image src8(w, h, 1, s.pad, s.misalign);
        src8.Randomize(rng_);
        CheckFlip(src8, s, 1,
                  [&](const uint8_t* in, uint32_t is, uint8_t* out, uint32_t os, int32_t dir) { tvxFlipu8C(in, w, h, is, out, os, dir); },
                  [&](const uint8_t* in, uint32_t is, uint8_t* out, uint32_t os, int32_t dir) { tvxFlipu8V(in, w, h, is, out, os, dir); });
        const Shape s16{w, h, s.pad * 2, s.misalign * 2};
        Image src16(w, h, 2, s16.pad, s16.misalign);
        src16.Randomize(rng_);
        const auto u16 = [](const uint8_t* p) { return reinterpret_cast<const uint16_t*>(p); };
        const auto u16w = [](uint8_t* p) { return reinterpret_cast<uint16_t*>(p); };
        CheckFlip(src16, s16, 2,
                  [&](const uint8_t* in, uint32_t is, uint8_t* out, uint32_t os, int32_t dir) { tvxFlipu16C(u16(in), w, h, is, u16w(out), os, dir); },
                  [&](const uint8_t* in, uint32_t is, uint8_t* out, uint32_t os, int32_t dir) { tvxFlipu16V(u16(in), w, h, is, u16w(out), os, dir); });
        Image src24(w, h, 3, s.pad, s.misalign);
        src24.Randomize(rng_);
        CheckFlip(src24, s, 3,
                  [&](const uint8_t* in, uint32_t is, uint8_t* out, uint32_t os, int32_t dir) {
                    EXPECT_EQ(tvxFlipRGB888u8C(in, w, h, is, out, os, dir), 0);
                  },
                  [&](const uint8_t* in, uint32_t is, uint8_t* out, uint32_t os, int32_t dir) {
                    EXPECT_EQ(tvxFlipRGB888u8V(in, w, h, is, out, os, dir), 0);
                  });
      }
    }
  });
}

using tvxtest::Capture;
using tvxtest::g_lines;

TEST_F(LayoutLanes, InPlaceFlipWithDifferentStridesLogsAndWritesNothing) {
  tvxtest::ForEachTarget([&] {
    Image img(37, 6, 3, 9, 1);
    img.Randomize(rng_);
    const Image before = Twin(img, 3, {37, 6, 9, 1});
    g_lines.clear();
    tvx_set_log_sink(&Capture);
    tvxFlipu8V(img.bytes(), 37, 6, img.stride(), img.bytes(), img.stride() - 1, 3);
    tvxFlipu16V(img.as<uint16_t>(), 20, 6, img.stride() - 1, img.as<uint16_t>(), img.stride() - 3, 1);
    EXPECT_EQ(tvxFlipRGB888u8V(img.bytes(), 37, 6, img.stride(), img.bytes(), img.stride() - 1, 2), 3);
    tvx_set_log_sink(nullptr);
    const std::string u8 = "tavix_lib_log|Error: tvxFlipu8 - Try to do in place but srcStride != dstStride\n";
    const std::string u16 = "tavix_lib_log|Error: tvxFlipu16 - Try to do in place but srcStride != dstStride\n";
    EXPECT_EQ(g_lines, (std::vector<std::string>{u8, u16, u8}));
    EXPECT_TRUE(img.SameRect(before));
    EXPECT_TRUE(img.GuardsIntact());
  });
}

}  // namespace
