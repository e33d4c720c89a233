// YCbCr layout changes, chroma swap and the video-range decoders through the public entries
// (and the rotated forms through their reference variants): worked values, random odd-sized
// images against per-pixel models written here from the sampling rules and formulas, exact
// round trips, default strides and the argument checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "color_layout_cases.h"
#include "frame/frame.h"
#include "simd_check.h"
#include "log_capture.h"

namespace {

using tvxtest::Image;
using tvxtest::LayoutCase;
using tvxtest::LayoutKind;
using tvxtest::YuvRef;

using tvxtest::Capture;
using tvxtest::g_lines;

class ColorLayoutTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  std::mt19937 rng_{77};
};

// ---- a YCbCr image in guarded planes -------------------------------------------------------

uint32_t Samples(uint32_t pixels, uint32_t step) { return (pixels + step - 1) / step; }

struct YuvImage {
  LayoutKind kind;
  uint32_t width, height;
  std::unique_ptr<Image> y, cb, cr;  // pseudo-planar: cb holds the pairs
  YuvImage(LayoutKind k, uint32_t w, uint32_t h, uint32_t pad, uint32_t misalign) : kind(k), width(w), height(h) {
    const uint32_t cw = Samples(w, k.stepX), ch = Samples(h, k.stepY);
    y = std::make_unique<Image>(w, h, 1, pad, misalign);
    cb = std::make_unique<Image>(k.planar ? cw : 2 * cw, ch, 1, pad + 1, (misalign + 1) % 4);
    if (k.planar) cr = std::make_unique<Image>(cw, ch, 1, pad + 2, (misalign + 3) % 4);
  }
  YuvRef ref() {
    return {y->bytes(), cb->bytes(), cr ? cr->bytes() : nullptr, y->stride(), cb->stride(), cr ? cr->stride() : 0};
  }
  uint8_t Cb(uint32_t cx, uint32_t cy) const { return kind.planar ? cb->row(cy)[cx] : cb->row(cy)[2 * cx]; }
  uint8_t Cr(uint32_t cx, uint32_t cy) const { return kind.planar ? cr->row(cy)[cx] : cb->row(cy)[2 * cx + 1]; }
  // The chroma a pixel sees: the sample of its pair or block.
  uint8_t CbAt(uint32_t x, uint32_t y) const { return Cb(x / kind.stepX, y / kind.stepY); }
  uint8_t CrAt(uint32_t x, uint32_t y) const { return Cr(x / kind.stepX, y / kind.stepY); }
  void Randomize(std::mt19937& rng) {
    y->Randomize(rng);
    cb->Randomize(rng);
    if (cr) cr->Randomize(rng);
  }
  ::testing::AssertionResult GuardsIntact() const {
    if (auto r = y->GuardsIntact(); !r) return r;
    if (auto r = cb->GuardsIntact(); !r) return r;
    return cr ? cr->GuardsIntact() : ::testing::AssertionSuccess();
  }
};

// Every destination sample holds the source chroma under the first pixel of its pair or block
// (the even column and even row), luma is copied, and nothing outside the planes is written.
::testing::AssertionResult MatchesLayoutModel(const YuvImage& src, const YuvImage& dst) {
  for (uint32_t y = 0; y < src.height; ++y)
    for (uint32_t x = 0; x < src.width; ++x)
      if (dst.y->row(y)[x] != src.y->row(y)[x]) return ::testing::AssertionFailure() << "luma at " << x << "," << y;
  const LayoutKind& k = dst.kind;
  for (uint32_t cy = 0; cy < Samples(src.height, k.stepY); ++cy) {
    for (uint32_t cx = 0; cx < Samples(src.width, k.stepX); ++cx) {
      const uint32_t px = cx * k.stepX, py = cy * k.stepY;
      if (dst.Cb(cx, cy) != src.CbAt(px, py) || dst.Cr(cx, cy) != src.CrAt(px, py))
        return ::testing::AssertionFailure() << "chroma sample " << cx << "," << cy;
    }
  }
  return dst.GuardsIntact();
}

TEST_F(ColorLayoutTest, EveryLayoutChangeMatchesTheSamplingModelOnOddSizes) {
  const uint32_t sizes[][2] = {{1, 1}, {2, 2}, {3, 5}, {7, 2}, {17, 9}, {40, 3}};
  for (const LayoutCase& c : tvxtest::kLayoutCases) {
    for (const auto& s : sizes) {
      SCOPED_TRACE(std::string(c.name) + " " + std::to_string(s[0]) + "x" + std::to_string(s[1]));
      YuvImage src(c.from, s[0], s[1], 3, 1), dst(c.to, s[0], s[1], 2, 2);
      src.Randomize(rng_);
      c.entry(src.ref(), s[0], s[1], dst.ref());
      EXPECT_TRUE(g_lines.empty());
      EXPECT_TRUE(MatchesLayoutModel(src, dst));
    }
  }
}

// Sampling up then back down returns the original chroma exactly (4:2:0 -> 4:4:4 -> 4:2:0,
// planar <-> pseudo-planar, ...).
TEST_F(ColorLayoutTest, UpThenDownIsTheIdentity) {
  int checked = 0;
  for (const LayoutCase& up : tvxtest::kLayoutCases) {
    if (up.to.stepX > up.from.stepX || up.to.stepY > up.from.stepY) continue;
    const LayoutCase* back = nullptr;
    for (const LayoutCase& c : tvxtest::kLayoutCases)
      if (c.from.stepX == up.to.stepX && c.from.stepY == up.to.stepY && c.from.planar == up.to.planar &&
          c.to.stepX == up.from.stepX && c.to.stepY == up.from.stepY && c.to.planar == up.from.planar)
        back = &c;
    ASSERT_NE(back, nullptr);
    SCOPED_TRACE(std::string(up.name) + " and back");
    YuvImage src(up.from, 13, 7, 0, 0), mid(up.to, 13, 7, 1, 3), out(up.from, 13, 7, 2, 1);
    src.Randomize(rng_);
    up.entry(src.ref(), 13, 7, mid.ref());
    back->entry(mid.ref(), 13, 7, out.ref());
    EXPECT_TRUE(out.y->SameRect(*src.y));
    EXPECT_TRUE(out.cb->SameRect(*src.cb));
    if (src.cr) {
      EXPECT_TRUE(out.cr->SameRect(*src.cr));
    }
    EXPECT_TRUE(out.GuardsIntact());
    ++checked;
  }
  EXPECT_EQ(checked, 18);  // every pair whose destination resolves at least as finely
}

TEST_F(ColorLayoutTest, WorkedSamplingValues) {
  // 4x2 image, 4:4:4 planar with distinct chroma: 4:2:0 keeps columns 0 and 2 of row 0.
  const uint8_t y[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  const uint8_t cb[8] = {10, 11, 12, 13, 14, 15, 16, 17}, cr[8] = {20, 21, 22, 23, 24, 25, 26, 27};
  uint8_t outY[8] = {}, pairs[4] = {};
  tvxColorYCbCr444PlanarToYCbCr420PseudoPlanaru8(y, cb, cr, 4, 2, 0, 0, 0, outY, pairs, 0, 0);
  EXPECT_EQ(std::vector<uint8_t>(pairs, pairs + 4), (std::vector<uint8_t>{10, 20, 12, 22}));
  EXPECT_EQ(std::vector<uint8_t>(outY, outY + 8), std::vector<uint8_t>(y, y + 8));

  // A 2x2 4:2:0 image has one chroma pair, which all four pixels take in 4:4:4.
  const uint8_t one[2] = {90, 200};
  uint8_t fullCb[4] = {}, fullCr[4] = {};
  tvxColorYCbCr420PseudoPlanarToYCbCr444Planaru8(y, one, 2, 2, 0, 0, outY, fullCb, fullCr, 0, 0, 0);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(fullCb[i], 90);
    EXPECT_EQ(fullCr[i], 200);
  }
}

TEST_F(ColorLayoutTest, ZeroStridesFollowTheLayoutDefaults) {
  // Even width: a written halved plane defaults to width >> 1, a read one to (width+1) >> 1.
  std::vector<uint8_t> y(6 * 4), cb(3 * 2), cr(3 * 2), outY(6 * 4), pairs(6 * 2, 0xEE);
  for (size_t i = 0; i < cb.size(); ++i) {
    cb[i] = static_cast<uint8_t>(i);
    cr[i] = static_cast<uint8_t>(100 + i);
  }
  tvxColorYCbCr420PlanarToYCbCr420PseudoPlanaru8(y.data(), cb.data(), cr.data(), 6, 4, 0, 0, 0, outY.data(),
                                                 pairs.data(), 0, 0);
  EXPECT_EQ(pairs, (std::vector<uint8_t>{0, 100, 1, 101, 2, 102, 3, 103, 4, 104, 5, 105}));
  std::vector<uint8_t> backCb(3 * 2, 0xEE), backCr(3 * 2, 0xEE);
  tvxColorYCbCr420PseudoPlanarToYCbCr420Planaru8(outY.data(), pairs.data(), 6, 4, 0, 0, y.data(), backCb.data(),
                                                 backCr.data(), 0, 0, 0);
  EXPECT_EQ(backCb, cb);
  EXPECT_EQ(backCr, cr);

  // Odd width: reading a halved planar plane packed works ((5+1) >> 1 = 3 samples per row).
  std::vector<uint8_t> oddCb = {1, 2, 3, 4, 5, 6}, oddCr = {7, 8, 9, 10, 11, 12}, oddPairs(12, 0);
  tvxColorYCbCr420PlanarToYCbCr420PseudoPlanaru8(y.data(), oddCb.data(), oddCr.data(), 5, 4, 0, 0, 0, outY.data(),
                                                 oddPairs.data(), 0, 0);
  EXPECT_EQ(oddPairs, (std::vector<uint8_t>{1, 7, 2, 8, 3, 9, 4, 10, 5, 11, 6, 12}));
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(ColorLayoutTest, OddWidthRejectsTheDefaultOfWrittenHalvedPlanes) {
  // 5 pixels need 3 chroma samples per row; the written default (5 >> 1 = 2) is too short.
  std::vector<uint8_t> y(5 * 2, 1), pairs(6, 2), outY(5 * 2, 0x33), cb(8, 0x33), cr(8, 0x33);
  tvxColorYCbCr420PseudoPlanarToYCbCr422Planaru8(y.data(), pairs.data(), 5, 2, 0, 0, outY.data(), cb.data(), cr.data(),
                                                 0, 0, 0);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0],
            "tavix_lib_log|Assertion failed @tvxColorYCbCr420PseudoPlanarToYCbCr422Planaru8: srcY && srcC && dstY && "
            "dstCb && dstCr && srcWidth && srcHeight && (srcYStride >= srcWidth) && (srcCStride >= ((srcWidth+1)>>1)*2) "
            "&& (dstYStride >= srcWidth) && (dstCbStride >= ((srcWidth+1)>>1)) && (dstCrStride >= ((srcWidth+1)>>1))\n");
  EXPECT_TRUE(std::all_of(outY.begin(), outY.end(), [](uint8_t v) { return v == 0x33; }));
  EXPECT_TRUE(std::all_of(cb.begin(), cb.end(), [](uint8_t v) { return v == 0x33; }));
  // With explicit strides the odd last column gets its own sample.
  g_lines.clear();
  tvxColorYCbCr420PseudoPlanarToYCbCr422Planaru8(y.data(), pairs.data(), 5, 2, 0, 0, outY.data(), cb.data(), cr.data(),
                                                 0, 3, 3);
  EXPECT_TRUE(g_lines.empty());
  EXPECT_EQ(cb[2], 2);
  EXPECT_EQ(cb[5], 2);
  EXPECT_EQ(cb[6], 0x33);
}

TEST_F(ColorLayoutTest, ShortSourceChromaStrideIsRejected) {
  std::vector<uint8_t> y(8 * 2, 1), cb(8 * 2, 2), cr(8 * 2, 3), outY(8 * 2, 0x44), pairs(16 * 2, 0x44);
  tvxColorYCbCr444PlanarToYCbCr444PseudoPlanaru8(y.data(), cb.data(), cr.data(), 8, 2, 8, 8, 7, outY.data(),
                                                 pairs.data(), 8, 16);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_NE(g_lines[0].find("@tvxColorYCbCr444PlanarToYCbCr444PseudoPlanaru8: "), std::string::npos);
  EXPECT_TRUE(std::all_of(pairs.begin(), pairs.end(), [](uint8_t v) { return v == 0x44; }));
  EXPECT_TRUE(std::all_of(outY.begin(), outY.end(), [](uint8_t v) { return v == 0x44; }));
}

// ---- chroma pair swap ----------------------------------------------------------------------

TEST_F(ColorLayoutTest, CbCrSwapExchangesEveryPair) {
  const uint8_t src[6] = {1, 2, 3, 4, 5, 6};
  uint8_t dst[8] = {0, 0, 0, 0, 0, 0, 0x77, 0x77};
  tvxColorCbCrSwapu8(src, 3, 1, 0, dst, 0);
  EXPECT_EQ(std::vector<uint8_t>(dst, dst + 8), (std::vector<uint8_t>{2, 1, 4, 3, 6, 5, 0x77, 0x77}));
}

TEST_F(ColorLayoutTest, CbCrSwapMatchesTheModelAndTwiceIsTheIdentityInPlace) {
  for (uint32_t w : {1u, 5u, 16u, 37u}) {
    Image src(2 * w, 5, 1, 3, 1), dst(2 * w, 5, 1, 1, 2);
    src.Randomize(rng_);
    tvxColorCbCrSwapu8(src.bytes(), w, 5, src.stride(), dst.bytes(), dst.stride());
    for (uint32_t y = 0; y < 5; ++y)
      for (uint32_t i = 0; i < w; ++i) {
        ASSERT_EQ(dst.row(y)[2 * i], src.row(y)[2 * i + 1]);
        ASSERT_EQ(dst.row(y)[2 * i + 1], src.row(y)[2 * i]);
      }
    EXPECT_TRUE(dst.GuardsIntact());
    // dst == src with equal strides: in place, and a second swap restores the original.
    Image copy(2 * w, 5, 1, 1, 2);
    tvxColorCbCrSwapu8(dst.bytes(), w, 5, dst.stride(), dst.bytes(), dst.stride());
    tvxColorCbCrSwapu8(src.bytes(), w, 5, src.stride(), copy.bytes(), copy.stride());
    tvxColorCbCrSwapu8(copy.bytes(), w, 5, copy.stride(), copy.bytes(), copy.stride());
    EXPECT_TRUE(dst.SameRect(src));
    EXPECT_TRUE(copy.SameRect(src));
    EXPECT_TRUE(dst.GuardsIntact());
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(ColorLayoutTest, InPlaceSwapNeedsEqualStrides) {
  std::vector<uint8_t> buf(3 * 12, 9);
  tvxColorCbCrSwapu8(buf.data(), 4, 3, 12, buf.data(), 10);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0], "tavix_lib_log|Assertion failed @tvxColorCbCrSwapu8: dstStride == srcStride\n");
  EXPECT_TRUE(std::all_of(buf.begin(), buf.end(), [](uint8_t v) { return v == 9; }));
}

// ---- video-range decoders ------------------------------------------------------------------

int Clamp(int v, int lo, int hi) { return std::min(std::max(v, lo), hi); }

// R, G, B of the 4:2:0 (Cr, Cb) decoder, ten-bit fixed point.
std::vector<int> TenBitModel(int y, int cr, int cb) {
  const int luma = y < 16 ? 0 : 1192 * (y - 16);
  const int c = cr - 128, b = cb - 128;
  return {Clamp(luma + 1634 * c, 0, 262143) / 1024, Clamp(luma - 833 * c - 400 * b, 0, 262143) / 1024,
          Clamp(luma + 2066 * b, 0, 262143) / 1024};
}

// RGB565 word of the planar decoder.
int Rgb565Model(int y, int u, int v) {
  const int luma = 298 * y - 4768;
  const auto shift8 = [](int s) { return Clamp(s >= 0 ? s / 256 : -((-s + 255) / 256), 0, 255); };  // floor
  const int r = shift8(luma + 409 * v - 52352), g = shift8(luma + 100 * (128 - u) + 208 * (128 - v)),
            b = shift8(luma + 517 * u - 66176);
  return (b / 8) * 2048 + (g / 4) * 32 + r / 8;
}

TEST_F(ColorLayoutTest, TenBitDecoderWorkedValues) {
  // One 2x2 block per pair: luma 16, 10, 235, 255 with (Cr, Cb) = (255, 128) and (128, 255).
  const uint8_t y[8] = {16, 10, 235, 255, 235, 235, 235, 235};
  const uint8_t pairs[4] = {255, 128, 128, 255};
  uint8_t out[32];
  tvxColorYCrCb420PseudoPlanarToRGB8888u8(y, pairs, 4, 2, 0, 0, out, 0);
  // luma 16: y = 0, R = 1634*127 >> 10 = 202; luma 10 counts as 0 as well.
  EXPECT_EQ(std::vector<int>(out, out + 4), (std::vector<int>{202, 0, 0, 255}));
  EXPECT_EQ(std::vector<int>(out + 4, out + 8), (std::vector<int>{202, 0, 0, 255}));
  // luma 235: y = 261048; R = 254, G = (261048 - 50800) >> 10 = 205, B clamps to 255.
  EXPECT_EQ(std::vector<int>(out + 8, out + 12), (std::vector<int>{254, 205, 255, 255}));
  // luma 255: y = 284888 already exceeds 0x3FFFF; G = (284888 - 50800) >> 10 = 228.
  EXPECT_EQ(std::vector<int>(out + 12, out + 16), (std::vector<int>{255, 228, 255, 255}));
}

TEST_F(ColorLayoutTest, TenBitDecoderMatchesTheModelOnOddSizes) {
  const uint32_t sizes[][2] = {{1, 1}, {3, 3}, {17, 5}, {40, 2}};
  for (const auto& s : sizes) {
    const uint32_t w = s[0], h = s[1];
    SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
    Image y(w, h, 1, 3, 1), pairs(2 * ((w + 1) / 2), (h + 1) / 2, 1, 2, 3), out(w, h, 4, 5, 2);
    y.Randomize(rng_);
    pairs.Randomize(rng_);
    tvxColorYCrCb420PseudoPlanarToRGB8888u8(y.bytes(), pairs.bytes(), w, h, y.stride(), pairs.stride(), out.bytes(),
                                            out.stride());
    for (uint32_t r = 0; r < h; ++r)
      for (uint32_t x = 0; x < w; ++x) {
        const uint8_t* pair = pairs.row(r / 2) + x / 2 * 2;
        const std::vector<int> rgb = TenBitModel(y.row(r)[x], pair[0], pair[1]);
        const uint8_t* px = out.row(r) + 4 * x;
        ASSERT_EQ(std::vector<int>(px, px + 4), (std::vector<int>{rgb[0], rgb[1], rgb[2], 255})) << x << "," << r;
      }
    EXPECT_TRUE(out.GuardsIntact());
  }
}

// The single source holds Y (w x h), then U, then V, each ((w+1)/2) x ((h+1)/2), all packed.
std::vector<uint8_t> RandomYuv420(std::mt19937& rng, uint32_t w, uint32_t h) {
  std::vector<uint8_t> v(w * h + 2 * ((w + 1) / 2) * ((h + 1) / 2));
  for (auto& b : v) b = static_cast<uint8_t>(rng());
  return v;
}
// Little-endian 16-bit word of pixel (x, y), read bytewise (rows may be odd-aligned).
int WordAt(const Image& img, uint32_t x, uint32_t y) { return img.row(y)[2 * x] | img.row(y)[2 * x + 1] << 8; }

int ModelWordAt(const std::vector<uint8_t>& yuv, uint32_t w, uint32_t h, uint32_t x, uint32_t y) {
  const uint32_t cw = (w + 1) / 2, ch = (h + 1) / 2;
  const size_t c = (y / 2) * cw + x / 2;
  return Rgb565Model(yuv[y * w + x], yuv[w * h + c], yuv[w * h + cw * ch + c]);
}

TEST_F(ColorLayoutTest, Rgb565DecoderWorkedValues) {
  // 4x2 image, two blocks: (U, V) = (128, 128) then (0, 255).
  const uint8_t src[8 + 2 + 2] = {16, 235, 128, 128, 16, 235, 128, 128, /*U*/ 128, 0, /*V*/ 128, 255};
  uint16_t out[8];
  tvxColorYUV420toRGB565u8(src, 4, 2, reinterpret_cast<uint8_t*>(out));
  EXPECT_EQ(out[0], 0x0000);  // Y 16 with neutral chroma is black
  EXPECT_EQ(out[1], 0xFFFF);  // Y 235: Y' = 65262, every channel 254
  // Y 128, U 0, V 255: R = 85319 >> 8 clamps to 255, G = 19760 >> 8 = 77, B negative gives 0.
  EXPECT_EQ(out[2], (77 & 0xFC) << 3 | 255 >> 3);
  EXPECT_EQ(out[6], out[2]);
  EXPECT_EQ(out[4], 0x0000);
}

TEST_F(ColorLayoutTest, Rgb565DecoderMatchesTheModelOnOddSizes) {
  const uint32_t sizes[][2] = {{1, 1}, {2, 2}, {5, 3}, {33, 7}};
  for (const auto& s : sizes) {
    const uint32_t w = s[0], h = s[1];
    SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
    const std::vector<uint8_t> yuv = RandomYuv420(rng_, w, h);
    Image out(w, h, 2), rotated(w, h, 2);
    tvxColorYUV420toRGB565u8(yuv.data(), w, h, out.bytes());
    tvxColorYUV420toRGB565u8Rotate180C(yuv.data(), w, h, rotated.bytes());
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) {
        const int word = ModelWordAt(yuv, w, h, x, y);
        ASSERT_EQ(WordAt(out, x, y), word) << x << "," << y;
        ASSERT_EQ(WordAt(rotated, w - 1 - x, h - 1 - y), word) << "rotated " << x << "," << y;
      }
    EXPECT_TRUE(out.GuardsIntact());
    EXPECT_TRUE(rotated.GuardsIntact());
  }
}

TEST_F(ColorLayoutTest, RotatedRgb565PacksEachPixelAtItsMirroredPlace) {
  const uint32_t w = 7, h = 4;
  Image src(w, h, 3, 2, 1), dst(w, h, 2, 3, 2);
  src.Randomize(rng_);
  tvxColorRGB888ToRGB565Rotate180u8C(src.bytes(), w, h, src.stride(), dst.bytes(), dst.stride());
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t* p = src.row(y) + 3 * x;
      const int word = (p[2] / 8) * 2048 + (p[1] / 4) * 32 + p[0] / 8;
      ASSERT_EQ(WordAt(dst, w - 1 - x, h - 1 - y), word) << x << "," << y;
    }
  EXPECT_TRUE(dst.GuardsIntact());
}

TEST_F(ColorLayoutTest, DecodersRejectShortStridesAndEmptyImages) {
  std::vector<uint8_t> y(8 * 2, 16), pairs(8, 128), out(8 * 2 * 4, 0x55);
  tvxColorYCrCb420PseudoPlanarToRGB8888u8(y.data(), pairs.data(), 8, 2, 0, 0, out.data(), 31);
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0],
            "tavix_lib_log|Assertion failed @tvxColorYCrCb420PseudoPlanarToRGB8888u8: srcY && srcC && dst && srcWidth "
            "&& srcHeight && (srcYStride >= srcWidth) && (srcCStride >= ((srcWidth+1)>>1)*2) && (dstStride >= "
            "srcWidth*4)\n");
  tvxColorYUV420toRGB565u8(y.data(), 0, 2, out.data());
  ASSERT_EQ(g_lines.size(), 2u);
  EXPECT_EQ(g_lines[1], "tavix_lib_log|Assertion failed @tvxColorYUV420toRGB565u8: src && dst && srcWidth && srcHeight\n");
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint8_t v) { return v == 0x55; }));
}

}  // namespace
