// Colour conversions through the public entries (reference tier): worked values, every
// conversion against a per-pixel model written here from the format and matrix definitions,
// exact round trips of the repackings, and the argument checks.
#include <gtest/gtest.h>

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

typedef void (*PackedFn)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);

// ---- model of the packed formats: bytes b[0..2] in RGB888 order plus alpha -----------------

enum Layout { k565, k888, k8888 };
struct Format {
  Layout layout;
  bool bgr;
  uint32_t bytes() const { return layout == k565 ? 2 : (layout == k888 ? 3 : 4); }
};
constexpr Format RGB565{k565, false}, BGR565{k565, true}, RGB888{k888, false}, BGR888{k888, true},
    RGBA8888{k8888, false}, BGRA8888{k8888, true};

struct Px {
  int b[3];
  int a;
};

Px Decode(Format f, const uint8_t* p) {
  Px px{};
  if (f.layout == k565) {
    const int w = p[0] + 256 * p[1];
    px = {{(w % 32) * 8, (w / 32 % 64) * 4, (w / 2048) * 8}, 255};
  } else {
    px = {{p[0], p[1], p[2]}, f.layout == k8888 ? p[3] : 255};
  }
  if (f.bgr) std::swap(px.b[0], px.b[2]);
  return px;
}

void Encode(Format f, Px px, uint8_t* p) {
  if (f.bgr) std::swap(px.b[0], px.b[2]);
  if (f.layout == k565) {
    const int w = px.b[2] / 8 * 2048 + px.b[1] / 4 * 32 + px.b[0] / 8;
    p[0] = static_cast<uint8_t>(w % 256);
    p[1] = static_cast<uint8_t>(w / 256);
  } else {
    for (int c = 0; c < 3; ++c) p[c] = static_cast<uint8_t>(px.b[c]);
    if (f.layout == k8888) p[3] = static_cast<uint8_t>(px.a);
  }
}

struct Repacking {
  const char* name;
  PackedFn fn;
  Format from, to;
};

const Repacking kRepackings[] = {
    {"RGB565ToRGB888", tvxColorRGB565ToRGB888u8, RGB565, RGB888},
    {"RGB565ToRGBA8888", tvxColorRGB565ToRGBA8888u8, RGB565, RGBA8888},
    {"RGB565ToBGR565", tvxColorRGB565ToBGR565u8, RGB565, BGR565},
    {"RGB565ToBGR888", tvxColorRGB565ToBGR888u8, RGB565, BGR888},
    {"RGB565ToBGRA8888", tvxColorRGB565ToBGRA8888u8, RGB565, BGRA8888},
    {"RGB888ToRGB565", tvxColorRGB888ToRGB565u8, RGB888, RGB565},
    {"RGB888ToRGBA8888", tvxColorRGB888ToRGBA8888u8, RGB888, RGBA8888},
    {"RGB888ToBGR565", tvxColorRGB888ToBGR565u8, RGB888, BGR565},
    {"RGB888ToBGR888", tvxColorRGB888ToBGR888u8, RGB888, BGR888},
    {"RGB888ToBGRA8888", tvxColorRGB888ToBGRA8888u8, RGB888, BGRA8888},
    {"RGBA8888ToRGB565", tvxColorRGBA8888ToRGB565u8, RGBA8888, RGB565},
    {"RGBA8888ToRGB888", tvxColorRGBA8888ToRGB888u8, RGBA8888, RGB888},
    {"RGBA8888ToBGR565", tvxColorRGBA8888ToBGR565u8, RGBA8888, BGR565},
    {"RGBA8888ToBGR888", tvxColorRGBA8888ToBGR888u8, RGBA8888, BGR888},
    {"RGBA8888ToBGRA8888", tvxColorRGBA8888ToBGRA8888u8, RGBA8888, BGRA8888},
};

using tvxtest::Capture;
using tvxtest::g_lines;

class ColorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  std::mt19937 rng_{2024};
};

// ---- worked values -------------------------------------------------------------------------

TEST_F(ColorTest, WhiteRgb565ExpandsWithZeroLowBits) {
  const uint8_t white[2] = {0xFF, 0xFF};
  uint8_t rgb[3] = {}, bgra[4] = {};
  tvxColorRGB565ToRGB888u8(white, 1, 1, 0, rgb, 0);
  EXPECT_EQ(rgb[0], 248);
  EXPECT_EQ(rgb[1], 252);
  EXPECT_EQ(rgb[2], 248);
  tvxColorRGB565ToBGRA8888u8(white, 1, 1, 0, bgra, 0);
  EXPECT_EQ(bgra[1], 252);
  EXPECT_EQ(bgra[3], 255);
}

TEST_F(ColorTest, Rgb565FieldsLandInTheirBytes) {
  // bits 15-11 = 0b10001, bits 10-5 = 0b100001, bits 4-0 = 0b00011
  const uint16_t word = (17 << 11) | (33 << 5) | 3;
  const uint8_t src[2] = {static_cast<uint8_t>(word & 0xFF), static_cast<uint8_t>(word >> 8)};
  uint8_t rgb[3], bgr[3];
  tvxColorRGB565ToRGB888u8(src, 1, 1, 0, rgb, 0);
  tvxColorRGB565ToBGR888u8(src, 1, 1, 0, bgr, 0);
  EXPECT_EQ(rgb[0], 3 << 3);
  EXPECT_EQ(rgb[1], 33 << 2);
  EXPECT_EQ(rgb[2], 17 << 3);
  EXPECT_EQ(bgr[0], 17 << 3);
  EXPECT_EQ(bgr[2], 3 << 3);
}

TEST_F(ColorTest, GreyWeightsByteZeroAsRed) {
  const uint8_t pixels[9] = {0, 0, 255, 255, 0, 0, 255, 255, 255};
  uint8_t grey[3];
  tvxColorRGB888ToGrayu8(pixels, 3, 1, 0, grey, 0);
  EXPECT_EQ(grey[0], 29);   // (7471*255 + 32768) >> 16
  EXPECT_EQ(grey[1], 76);   // (19595*255 + 32768) >> 16
  EXPECT_EQ(grey[2], 255);
}

// ---- every repacking against the model -----------------------------------------------------

TEST_F(ColorTest, RepackingsMatchTheFormatModel) {
  for (const Repacking& r : kRepackings) {
    SCOPED_TRACE(r.name);
    for (uint32_t w : {1u, 7u, 33u}) {
      const uint32_t h = 3;
      Image src(w, h, r.from.bytes(), 5, 1), dst(w, h, r.to.bytes(), 3, 2);
      src.Randomize(rng_);
      r.fn(src.bytes(), w, h, src.stride(), dst.bytes(), dst.stride());
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
          uint8_t want[4];
          Encode(r.to, Decode(r.from, src.row(y) + x * r.from.bytes()), want);
          ASSERT_EQ(0, std::memcmp(want, dst.row(y) + x * r.to.bytes(), r.to.bytes())) << x << "," << y;
        }
      EXPECT_TRUE(dst.GuardsIntact());
    }
  }
}

TEST_F(ColorTest, EveryRgb565WordRepacksByTheModel) {
  std::vector<uint8_t> words(65536 * 2);
  for (uint32_t w = 0; w < 65536; ++w) words[2 * w] = w & 0xFF, words[2 * w + 1] = static_cast<uint8_t>(w >> 8);
  for (const Repacking& r : kRepackings) {
    if (r.from.layout != k565) continue;
    SCOPED_TRACE(r.name);
    std::vector<uint8_t> out(65536 * r.to.bytes());
    r.fn(words.data(), 256, 256, 0, out.data(), 0);
    for (uint32_t w = 0; w < 65536; ++w) {
      uint8_t want[4];
      Encode(r.to, Decode(r.from, &words[2 * w]), want);
      ASSERT_EQ(0, std::memcmp(want, &out[w * r.to.bytes()], r.to.bytes())) << "word " << w;
    }
  }
}

TEST_F(ColorTest, ByteSwapsAndRgb565RoundTripsAreExact) {
  const uint32_t w = 29, h = 4;
  Image rgb565(w, h, 2), rgb888(w, h, 3), rgba(w, h, 4);
  rgb565.Randomize(rng_);
  rgb888.Randomize(rng_);
  rgba.Randomize(rng_);
  {
    Image mid(w, h, 2), back(w, h, 2);
    tvxColorRGB565ToBGR565u8(rgb565.bytes(), w, h, 0, mid.bytes(), 0);
    tvxColorRGB565ToBGR565u8(mid.bytes(), w, h, 0, back.bytes(), 0);
    EXPECT_TRUE(back.SameRect(rgb565));
    Image wide(w, h, 3), narrow(w, h, 2);
    tvxColorRGB565ToRGB888u8(rgb565.bytes(), w, h, 0, wide.bytes(), 0);
    tvxColorRGB888ToRGB565u8(wide.bytes(), w, h, 0, narrow.bytes(), 0);
    EXPECT_TRUE(narrow.SameRect(rgb565));
  }
  {
    Image mid(w, h, 3), back(w, h, 3);
    tvxColorRGB888ToBGR888u8(rgb888.bytes(), w, h, 0, mid.bytes(), 0);
    tvxColorRGB888ToBGR888u8(mid.bytes(), w, h, 0, back.bytes(), 0);
    EXPECT_TRUE(back.SameRect(rgb888));
    Image four(w, h, 4), three(w, h, 3);
    tvxColorRGB888ToRGBA8888u8(rgb888.bytes(), w, h, 0, four.bytes(), 0);
    tvxColorRGBA8888ToRGB888u8(four.bytes(), w, h, 0, three.bytes(), 0);
    EXPECT_TRUE(three.SameRect(rgb888));
  }
  {
    Image mid(w, h, 4), back(w, h, 4);
    tvxColorRGBA8888ToBGRA8888u8(rgba.bytes(), w, h, 0, mid.bytes(), 0);
    tvxColorRGBA8888ToBGRA8888u8(mid.bytes(), w, h, 0, back.bytes(), 0);
    EXPECT_TRUE(back.SameRect(rgba)) << "alpha is carried through";
  }
}

TEST_F(ColorTest, GreyMatchesItsFormulaOnRandomImages) {
  const uint32_t w = 45, h = 7;
  Image src(w, h, 3, 4, 3), dst(w, h, 1, 2, 1);
  src.Randomize(rng_);
  tvxColorRGB888ToGrayu8(src.bytes(), w, h, src.stride(), dst.bytes(), dst.stride());
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t* p = src.row(y) + 3 * x;
      const uint64_t want = (19595ull * p[0] + 38469ull * p[1] + 7471ull * p[2] + 32768) / 65536;
      ASSERT_EQ(dst.row(y)[x], want) << x << "," << y;
    }
  EXPECT_TRUE(dst.GuardsIntact());
}

// ---- RGB to YCbCr against the matrix and sampling rules ------------------------------------

typedef void (*PlanarFn)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint8_t*, uint8_t*, uint32_t,
                         uint32_t, uint32_t);
typedef void (*PseudoPlanarFn)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint8_t*, uint32_t,
                               uint32_t);

int FloorDiv256(int v) { return static_cast<int>(std::floor(v / 256.0)); }
int ModelLuma(const Px& p) { return FloorDiv256(29 * p.b[0] + 150 * p.b[1] + 77 * p.b[2] + 128); }
int ModelChroma(int sum) {
  const int shifted = FloorDiv256(sum);
  return shifted > 127 ? 255 : 128 + shifted;
}
int ModelCb(const Px& p) { return ModelChroma(128 * p.b[0] - 85 * p.b[1] - 43 * p.b[2] + 128); }
int ModelCr(const Px& p) { return ModelChroma(-21 * p.b[0] - 107 * p.b[1] + 128 * p.b[2] + 128); }

struct ToYCbCr {
  const char* name;
  PlanarFn planar;
  PseudoPlanarFn pseudo;
  Format from;
  uint32_t stepX, stepY;  // chroma sampling steps
};

#define TVX_TO_YCBCR(F, S, sx, sy)                                                                     \
  {#F "ToYCbCr" #S "Planar", tvxColor##F##ToYCbCr##S##Planaru8, nullptr, F, sx, sy},                  \
  {#F "ToYCbCr" #S "PseudoPlanar", nullptr, tvxColor##F##ToYCbCr##S##PseudoPlanaru8, F, sx, sy}
#define TVX_TO_YCBCR_ALL(F) TVX_TO_YCBCR(F, 444, 1, 1), TVX_TO_YCBCR(F, 422, 2, 1), TVX_TO_YCBCR(F, 420, 2, 2)
const ToYCbCr kToYCbCr[] = {TVX_TO_YCBCR_ALL(RGB565), TVX_TO_YCBCR_ALL(RGB888), TVX_TO_YCBCR_ALL(RGBA8888)};
#undef TVX_TO_YCBCR_ALL
#undef TVX_TO_YCBCR

TEST_F(ColorTest, ForwardMatrixGivesByteTwoTheRedWeight) {
  // (0, 0, 255): luma 77 here while grey gives 29; Cr saturates to 255, Cb = 128 - 43.
  // (255, 0, 0): the Cb sum is exactly 32768, shifted 128, written as 255.
  const uint8_t pixels[6] = {0, 0, 255, 255, 0, 0};
  uint8_t y[2], cb[2], cr[2];
  tvxColorRGB888ToYCbCr444Planaru8(pixels, 2, 1, 0, y, cb, cr, 0, 0, 0);
  EXPECT_EQ(y[0], 77);
  EXPECT_EQ(cr[0], 255);
  EXPECT_EQ(cb[0], 85);
  EXPECT_EQ(y[1], 29);
  EXPECT_EQ(cb[1], 255);
  EXPECT_EQ(cr[1], 107);  // 128 + ((-21*255 + 128) >> 8) = 128 - 21
}

TEST_F(ColorTest, RgbToYCbCrMatchesTheModelOnOddSizes) {
  for (const ToYCbCr& t : kToYCbCr) {
    SCOPED_TRACE(t.name);
    for (auto [w, h] : {std::pair{1u, 1u}, {2u, 2u}, {5u, 3u}, {37u, 6u}, {64u, 5u}}) {
      SCOPED_TRACE(::testing::Message() << w << "x" << h);
      const uint32_t cw = (w + t.stepX - 1) / t.stepX, ch = (h + t.stepY - 1) / t.stepY;
      Image src(w, h, t.from.bytes(), 3, 1), luma(w, h, 1, 2, 3);
      src.Randomize(rng_);
      // Planar: Cb and Cr planes; pseudo-planar: one plane of (Cb, Cr) pairs in "cb".
      Image cb(t.planar ? cw : 2 * cw, ch, 1, 4, 2), cr(cw, ch, 1, 1, 0);
      if (t.planar)
        t.planar(src.bytes(), w, h, src.stride(), luma.bytes(), cb.bytes(), cr.bytes(), luma.stride(), cb.stride(),
                 cr.stride());
      else
        t.pseudo(src.bytes(), w, h, src.stride(), luma.bytes(), cb.bytes(), luma.stride(), cb.stride());
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
          ASSERT_EQ(luma.row(y)[x], ModelLuma(Decode(t.from, src.row(y) + x * t.from.bytes()))) << x << "," << y;
      for (uint32_t y = 0; y < ch; ++y)
        for (uint32_t x = 0; x < cw; ++x) {
          const Px p = Decode(t.from, src.row(y * t.stepY) + x * t.stepX * t.from.bytes());
          const int gotCb = t.planar ? cb.row(y)[x] : cb.row(y)[2 * x];
          const int gotCr = t.planar ? cr.row(y)[x] : cb.row(y)[2 * x + 1];
          ASSERT_EQ(gotCb, ModelCb(p)) << x << "," << y;
          ASSERT_EQ(gotCr, ModelCr(p)) << x << "," << y;
        }
      EXPECT_TRUE(luma.GuardsIntact());
      EXPECT_TRUE(cb.GuardsIntact());
      EXPECT_TRUE(cr.GuardsIntact());
    }
  }
}

TEST_F(ColorTest, HalvedChromaPlanesDefaultToRoundedUpWidths) {
  // Width 5: planar chroma planes of 3 samples per row, pseudo-planar rows of 3 pairs.
  const uint32_t w = 5, h = 3;
  Image src(w, h, 3);
  src.Randomize(rng_);
  Image y0(w, h, 1), cb0(3, 2, 1), cr0(3, 2, 1), y1(w, h, 1), cb1(3, 2, 1), cr1(3, 2, 1);
  tvxColorRGB888ToYCbCr420Planaru8(src.bytes(), w, h, 0, y0.bytes(), cb0.bytes(), cr0.bytes(), 0, 0, 0);
  tvxColorRGB888ToYCbCr420Planaru8(src.bytes(), w, h, 15, y1.bytes(), cb1.bytes(), cr1.bytes(), 5, 3, 3);
  EXPECT_TRUE(cb0.SameRect(cb1));
  EXPECT_TRUE(cr0.SameRect(cr1));
  EXPECT_TRUE(cb0.GuardsIntact());
  Image c0(6, 3, 1), c1(6, 3, 1);
  tvxColorRGB888ToYCbCr422PseudoPlanaru8(src.bytes(), w, h, 0, y0.bytes(), c0.bytes(), 0, 0);
  tvxColorRGB888ToYCbCr422PseudoPlanaru8(src.bytes(), w, h, 15, y1.bytes(), c1.bytes(), 5, 6);
  EXPECT_TRUE(c0.SameRect(c1));
  EXPECT_TRUE(c0.GuardsIntact());
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(ColorTest, ShortChromaStrideIsRejected) {
  uint8_t src[64] = {}, y[64], cb[64], cr[64];
  std::memset(cb, 0x33, sizeof cb);
  tvxColorRGB565ToYCbCr420Planaru8(src, 5, 2, 0, y, cb, cr, 0, 3, 2);
  for (uint8_t b : cb) ASSERT_EQ(b, 0x33);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0],
            "tavix_lib_log|Assertion failed @tvxColorRGB565ToYCbCr420Planaru8: src && dstY && dstCb && dstCr && "
            "srcWidth && srcHeight && (srcStride >= srcWidth*2) && (dstYStride >= srcWidth) && "
            "(dstCbStride >= (srcWidth+1)/2) && (dstCrStride >= (srcWidth+1)/2)\n");
}

// ---- YCbCr to RGB against the inverse matrix and chroma replication ----------------------------------------

typedef void (*FromPlanarFn)(const uint8_t*, const uint8_t*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t,
                             uint32_t, uint8_t*, uint32_t);
typedef void (*FromPseudoPlanarFn)(const uint8_t*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t, uint8_t*,
                                   uint32_t);

int Clamp(int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }
Px ModelRgb(int y, int cb, int cr) {
  const int base = 256 * y + 128, d = cb - 128, e = cr - 128;
  return {{Clamp(FloorDiv256(base + 359 * e)), Clamp(FloorDiv256(base - 88 * d - 183 * e)),
           Clamp(FloorDiv256(base + 454 * d))},
          255};
}

struct FromYCbCr {
  const char* name;
  FromPlanarFn planar;
  FromPseudoPlanarFn pseudo;
  Format to;
  uint32_t stepX, stepY;  // pixels per chroma sample
};
#define TVX_FROM(S, T, sx, sy)                                                                     \
  {#S "PlanarTo" #T, tvxColorYCbCr##S##PlanarTo##T##u8, nullptr, T, sx, sy},                     \
  {#S "PseudoPlanarTo" #T, nullptr, tvxColorYCbCr##S##PseudoPlanarTo##T##u8, T, sx, sy}
#define TVX_FROM_ALL(S, sx, sy) TVX_FROM(S, RGB565, sx, sy), TVX_FROM(S, RGB888, sx, sy), TVX_FROM(S, RGBA8888, sx, sy)
const FromYCbCr kFromYCbCr[] = {TVX_FROM_ALL(444, 1, 1), TVX_FROM_ALL(422, 2, 1), TVX_FROM_ALL(420, 2, 2)};
#undef TVX_FROM_ALL
#undef TVX_FROM

TEST_F(ColorTest, InverseMatrixWorkedValues) {
  // Row 0: Y = 255 with neutral chroma is white. Row 1: Y = 0 under Cr = 255 gives byte 0 178.
  const uint8_t luma[4] = {255, 255, 0, 0};
  const uint8_t pairs[4] = {128, 128, 128, 255};  // two chroma rows of one (Cb, Cr) pair
  uint8_t rgb[12];
  tvxColorYCbCr420PseudoPlanarToRGB888u8(luma, pairs, 2, 1, 0, 0, rgb, 0);
  tvxColorYCbCr420PseudoPlanarToRGB888u8(luma + 2, pairs + 2, 2, 1, 0, 0, rgb + 6, 0);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(rgb[i], 255) << i;
  EXPECT_EQ(rgb[6], 178);
  EXPECT_EQ(rgb[7], 0);  // (128 - 183*127) >> 8 clamps to 0
  EXPECT_EQ(rgb[8], 0);
  EXPECT_EQ(rgb[9], 178);
}

TEST_F(ColorTest, OneChromaPairServesATwoByTwoBlock) {
  const uint8_t luma[4] = {10, 90, 160, 240};
  const uint8_t cb[1] = {60}, cr[1] = {200};
  uint8_t rgba[16];
  tvxColorYCbCr420PlanarToRGBA8888u8(luma, cb, cr, 2, 2, 0, 0, 0, rgba, 0);
  for (int i = 0; i < 4; ++i) {
    const Px want = ModelRgb(luma[i], 60, 200);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(rgba[4 * i + c], want.b[c]) << i << "," << c;
    EXPECT_EQ(rgba[4 * i + 3], 255);
  }
}

TEST_F(ColorTest, YCbCrToRgbMatchesTheModelOnOddSizes) {
  for (const FromYCbCr& t : kFromYCbCr) {
    SCOPED_TRACE(t.name);
    for (auto [w, h] : {std::pair{2u, 1u}, {3u, 3u}, {5u, 2u}, {37u, 7u}, {66u, 4u}}) {
      SCOPED_TRACE(::testing::Message() << w << "x" << h);
      const uint32_t cw = (w + t.stepX - 1) / t.stepX, ch = (h + t.stepY - 1) / t.stepY;
      Image luma(w, h, 1, 3, 1), cb(t.planar ? cw : 2 * cw, ch, 1, 2, 3), cr(cw, ch, 1, 5, 2);
      Image dst(w, h, t.to.bytes(), 4, 1);
      luma.Randomize(rng_);
      cb.Randomize(rng_);
      cr.Randomize(rng_);
      if (t.planar)
        t.planar(luma.bytes(), cb.bytes(), cr.bytes(), w, h, luma.stride(), cb.stride(), cr.stride(), dst.bytes(),
                 dst.stride());
      else
        t.pseudo(luma.bytes(), cb.bytes(), w, h, luma.stride(), cb.stride(), dst.bytes(), dst.stride());
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
          const uint32_t i = x / t.stepX, row = y / t.stepY;
          const int u = t.planar ? cb.row(row)[i] : cb.row(row)[2 * i];
          const int v = t.planar ? cr.row(row)[i] : cb.row(row)[2 * i + 1];
          uint8_t want[4];
          Encode(t.to, ModelRgb(luma.row(y)[x], u, v), want);
          ASSERT_EQ(0, std::memcmp(want, dst.row(y) + x * t.to.bytes(), t.to.bytes())) << x << "," << y;
        }
      EXPECT_TRUE(dst.GuardsIntact());
    }
  }
}

TEST_F(ColorTest, PlanarChromaStridesDefaultToRoundedUpHalfWidth) {
  const uint32_t w = 7, h = 3;
  Image luma(w, h, 1), cb(4, 2, 1), cr(4, 2, 1);
  luma.Randomize(rng_);
  cb.Randomize(rng_);
  cr.Randomize(rng_);
  Image a(w, h, 2), b(w, h, 2);
  tvxColorYCbCr420PlanarToRGB565u8(luma.bytes(), cb.bytes(), cr.bytes(), w, h, 0, 0, 0, a.bytes(), 0);
  tvxColorYCbCr420PlanarToRGB565u8(luma.bytes(), cb.bytes(), cr.bytes(), w, h, 7, 4, 4, b.bytes(), 14);
  EXPECT_TRUE(a.SameRect(b));
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(ColorTest, WidthOneEndsTheProcessInThePairRowKernel) {
  tvx_set_log_sink(nullptr);  // the child logs to stderr
  uint8_t y[4] = {}, c[4] = {}, out[16];
  EXPECT_EXIT(tvxColorYCbCr422PlanarToRGB565u8C(y, c, c + 1, 1, 1, 1, 1, 1, out, 2), ::testing::ExitedWithCode(1),
              "src/cpu/tavixColorC@[0-9]+: length > 1 Assertion failed");
  EXPECT_EXIT(tvxColorYCbCr420PseudoPlanarToRGB888u8C(y, c, 1, 2, 1, 2, out, 3), ::testing::ExitedWithCode(1),
              "src/cpu/tavixColorC@[0-9]+: length > 1 Assertion failed");
  EXPECT_EXIT(tvxColorYCbCr420PlanarToRGBA8888u8(y, c, c + 1, 1, 1, 0, 0, 0, out, 0), ::testing::ExitedWithCode(1),
              "length > 1 Assertion failed");
  // The SIMD tier ends the process the same way.
  EXPECT_EXIT(tvxColorYCbCr422PlanarToRGB565u8V(y, c, c + 1, 1, 1, 1, 1, 1, out, 2), ::testing::ExitedWithCode(1),
              "src/cpu/tavixColorC@[0-9]+: length > 1 Assertion failed");
  EXPECT_EXIT(tvxColorYCbCr420PseudoPlanarToRGB888u8V(y, c, 1, 2, 1, 2, out, 3), ::testing::ExitedWithCode(1),
              "src/cpu/tavixColorC@[0-9]+: length > 1 Assertion failed");
}

// ---- argument checks -----------------------------------------------------------------------

TEST_F(ColorTest, ShortStridesAreRejectedWithTheConditionText) {
  uint8_t src[64] = {}, dst[64];
  std::memset(dst, 0x77, sizeof dst);
  tvxColorRGB888ToRGB565u8(src, 4, 2, 11, dst, 0);
  tvxColorRGB888ToRGB565u8(src, 4, 2, 12, dst, 7);
  tvxColorRGB888ToGrayu8(src, 4, 2, 12, dst, 3);
  for (uint8_t b : dst) ASSERT_EQ(b, 0x77);
  ASSERT_EQ(g_lines.size(), 3u);
  const std::string cond565 =
      "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth*3) && (dstStride >= srcWidth*2)";
  EXPECT_EQ(g_lines[0], "tavix_lib_log|Assertion failed @tvxColorRGB888ToRGB565u8: " + cond565 + "\n");
  EXPECT_EQ(g_lines[1], g_lines[0]);
  EXPECT_EQ(g_lines[2],
            "tavix_lib_log|Assertion failed @tvxColorRGB888ToGrayu8: src && dst && srcWidth && srcHeight && "
            "(srcStride >= srcWidth*3) && (dstStride >= srcWidth)\n");
}

TEST_F(ColorTest, ZeroStridesMeanPackedRowsOfTheFormat) {
  const uint32_t w = 5, h = 3;
  Image src(w, h, 4);
  src.Randomize(rng_);
  Image packed(w, h, 2), explicitStride(w, h, 2);
  tvxColorRGBA8888ToBGR565u8(src.bytes(), w, h, 0, packed.bytes(), 0);
  tvxColorRGBA8888ToBGR565u8(src.bytes(), w, h, w * 4, explicitStride.bytes(), w * 2);
  EXPECT_TRUE(packed.SameRect(explicitStride));
  EXPECT_TRUE(packed.GuardsIntact());
}

}  // namespace
