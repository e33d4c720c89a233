// Channel extraction and interleaving, the JPEG-style YCrCb conversions and the 8-bit HSV
// and LAB conversions through the public entries (reference tier): worked values, models
// written here from the documented formats and formulas (exact integers where the entries
// are exact, double-precision colour science within a stated tolerance otherwise), round
// trips, and rejection of bad arguments with nothing written.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;

class ColorMoreTest : public ::testing::Test {
 protected:
  void SetUp() override { std::memset(tvxImplTable, 0, sizeof tvxImplTable); }
  std::mt19937 rng_{99};
};

// Whole store (rectangle and surroundings) still holds the guard byte: a rejected call wrote
// nothing.
::testing::AssertionResult Untouched(const Image& img) {
  for (uint32_t y = 0; y < img.height(); ++y)
    for (uint32_t i = 0; i < img.stride(); ++i)
      if (img.row(y)[i] != tvxtest::kGuard) return ::testing::AssertionFailure() << "row " << y << " byte " << i;
  return img.GuardsIntact();
}

// ---- channel extract and combine -----------------------------------------------------------

enum { kRGB888, kRGBA8888, kNV12, kNV21, kUYVY, kYUYV };

TEST_F(ColorMoreTest, CombineThenExtractGivesThePlanesBack) {
  const uint32_t w = 13, h = 5;
  std::vector<Image> planes;
  for (int k = 0; k < 4; ++k) {
    planes.emplace_back(w, h, 1, k + 1, k);
    planes.back().Randomize(rng_);
  }
  Image rgb(w, h, 3, 2, 1), rgba(w, h, 4, 0, 3), pairs(w, h, 2, 5, 0);
  ASSERT_EQ(tvxChannelCombine3Planesu8(planes[0].bytes(), w, h, planes[0].stride(), planes[1].bytes(),
                                       planes[1].stride(), planes[2].bytes(), planes[2].stride(), rgb.bytes(),
                                       rgb.stride()),
            0);
  ASSERT_EQ(tvxChannelCombine4Planesu8(planes[0].bytes(), w, h, planes[0].stride(), planes[1].bytes(),
                                       planes[1].stride(), planes[2].bytes(), planes[2].stride(), planes[3].bytes(),
                                       planes[3].stride(), rgba.bytes(), rgba.stride()),
            0);
  ASSERT_EQ(tvxChannelCombine2Planesu8(planes[2].bytes(), w, h, planes[2].stride(), planes[3].bytes(),
                                       planes[3].stride(), pairs.bytes(), pairs.stride()),
            0);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      EXPECT_EQ(pairs.row(y)[2 * x], planes[2].row(y)[x]);
      EXPECT_EQ(pairs.row(y)[2 * x + 1], planes[3].row(y)[x]);
    }
  for (uint32_t k = 0; k < 4; ++k) {
    SCOPED_TRACE(k);
    Image out(w, h, 1, 3, 2);
    if (k < 3) {
      ASSERT_EQ(tvxChannelExtractu8(rgb.bytes(), w, h, rgb.stride(), nullptr, 0, out.bytes(), out.stride(), kRGB888, k),
                0);
      EXPECT_TRUE(out.SameRect(planes[k]));
    }
    ASSERT_EQ(tvxChannelExtractu8(rgba.bytes(), w, h, rgba.stride(), nullptr, 0, out.bytes(), out.stride(), kRGBA8888, k),
              0);
    EXPECT_TRUE(out.SameRect(planes[k]));
    EXPECT_TRUE(out.GuardsIntact());
  }
  for (const Image* img : {&rgb, &rgba, &pairs}) EXPECT_TRUE(img->GuardsIntact());
}

TEST_F(ColorMoreTest, PackedYuv422WorkedValues) {
  // Two groups of four bytes: UYVY = U0 Y0 V0 Y1 U1 Y2 V1 Y3, YUYV = Y0 U0 Y1 V0 Y2 U1 Y3 V1.
  const uint8_t uyvy[8] = {10, 20, 30, 40, 50, 60, 70, 80};
  const uint8_t yuyv[8] = {20, 10, 40, 30, 60, 50, 80, 70};
  struct Case {
    const uint8_t* src;
    uint32_t format, channel;
    std::vector<uint8_t> want;
  };
  const Case cases[] = {{uyvy, kUYVY, 0, {20, 40, 60, 80}}, {uyvy, kUYVY, 1, {10, 50}}, {uyvy, kUYVY, 2, {30, 70}},
                        {yuyv, kYUYV, 0, {20, 40, 60, 80}}, {yuyv, kYUYV, 1, {10, 50}}, {yuyv, kYUYV, 2, {30, 70}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.format << "/" << c.channel);
    uint8_t out[5] = {0, 0, 0, 0, 0xEE};
    ASSERT_EQ(tvxChannelExtractu8(c.src, 4, 1, 0, nullptr, 0, out, 0, c.format, c.channel), 0);
    EXPECT_EQ(std::vector<uint8_t>(out, out + c.want.size()), c.want);
    EXPECT_EQ(out[c.want.size()], c.want.size() == 4 ? 0xEE : 0) << "wrote past the output row";
  }
}

// Expected output of an extraction, from the format definitions.
std::vector<uint8_t> ExtractModel(const Image& src, const Image& chroma, uint32_t w, uint32_t h, uint32_t format,
                                  uint32_t channel, uint32_t& ow, uint32_t& oh) {
  std::vector<uint8_t> out;
  const uint32_t hw = (w + 1) / 2;
  ow = w;
  oh = h;
  if (format >= kNV12 && channel > 0) ow = hw;
  if ((format == kNV12 || format == kNV21) && channel > 0) oh = (h + 1) / 2;
  for (uint32_t y = 0; y < oh; ++y)
    for (uint32_t x = 0; x < ow; ++x) {
      switch (format) {
        case kRGB888: out.push_back(src.row(y)[3 * x + channel]); break;
        case kRGBA8888: out.push_back(src.row(y)[4 * x + channel]); break;
        case kNV12:
        case kNV21:
          if (channel == 0) {
            out.push_back(src.row(y)[x]);
          } else {
            const bool cbWanted = channel == 1;
            const bool cbAtEven = format == kNV12;
            out.push_back(chroma.row(y)[2 * x + (cbWanted == cbAtEven ? 0 : 1)]);
          }
          break;
        case kUYVY: {
          const uint8_t* g = src.row(y) + 4 * (channel == 0 ? x / 2 : x);
          out.push_back(channel == 0 ? g[1 + 2 * (x % 2)] : (channel == 1 ? g[0] : g[2]));
          break;
        }
        default: {
          const uint8_t* g = src.row(y) + 4 * (channel == 0 ? x / 2 : x);
          out.push_back(channel == 0 ? g[2 * (x % 2)] : (channel == 1 ? g[1] : g[3]));
        }
      }
    }
  return out;
}

TEST_F(ColorMoreTest, ExtractMatchesTheFormatModelOnOddSizes) {
  for (uint32_t format = 0; format <= 5; ++format) {
    for (uint32_t channel = 0; channel < (format == kRGBA8888 ? 4u : 3u); ++channel) {
      for (auto [w, h] : {std::pair<uint32_t, uint32_t>{7, 5}, {1, 1}, {36, 3}}) {
        SCOPED_TRACE(::testing::Message() << "format " << format << " channel " << channel << " " << w << "x" << h);
        const uint32_t rowBytes = format == kRGB888 ? 3 * w : format == kRGBA8888 ? 4 * w : format <= kNV21 ? w : (w + 1) / 2 * 4;
        Image src(rowBytes, h, 1, 3, 1), chroma((w + 1) / 2 * 2, (h + 1) / 2, 1, 1, 2);
        src.Randomize(rng_);
        chroma.Randomize(rng_);
        uint32_t ow, oh;
        const std::vector<uint8_t> want = ExtractModel(src, chroma, w, h, format, channel, ow, oh);
        Image out(ow, oh, 1, 2, 3);
        ASSERT_EQ(tvxChannelExtractu8(src.bytes(), w, h, src.stride(), chroma.bytes(), chroma.stride(), out.bytes(),
                                      out.stride(), format, channel),
                  0);
        std::vector<uint8_t> got;
        for (uint32_t y = 0; y < oh; ++y) got.insert(got.end(), out.row(y), out.row(y) + ow);
        EXPECT_EQ(got, want);
        EXPECT_TRUE(out.GuardsIntact());
        // Packed rows and zero strides give the same result.
        std::vector<uint8_t> packedSrc, packedChroma, packedOut(static_cast<size_t>(ow) * oh + 1, 0xEE);
        for (uint32_t y = 0; y < h; ++y) packedSrc.insert(packedSrc.end(), src.row(y), src.row(y) + rowBytes);
        for (uint32_t y = 0; y < chroma.height(); ++y)
          packedChroma.insert(packedChroma.end(), chroma.row(y), chroma.row(y) + chroma.width());
        ASSERT_EQ(tvxChannelExtractu8(packedSrc.data(), w, h, 0, packedChroma.data(), 0, packedOut.data(), 0, format,
                                      channel),
                  0);
        EXPECT_EQ(std::vector<uint8_t>(packedOut.begin(), packedOut.end() - 1), want);
        EXPECT_EQ(packedOut.back(), 0xEE);
      }
    }
  }
}

TEST_F(ColorMoreTest, BadExtractArgumentsReturnThreeAndWriteNothing) {
  const uint32_t w = 6, h = 4;
  Image src(4 * w, h, 1), chroma(w, (h + 1) / 2, 1), out(w, h, 1);
  src.Randomize(rng_);
  chroma.Randomize(rng_);
  struct Case {
    const char* what;
    uint32_t format, channel, srcStride, chromaStride, dstStride;
    bool chromaNull;
  };
  const Case cases[] = {
      {"unknown format", 6, 0, 0, 0, 0, false},
      {"huge format", 0xFFFFFFFFu, 0, 0, 0, 0, false},
      {"fourth channel of RGB888", kRGB888, 3, 0, 0, 0, false},
      {"fifth channel of RGBA8888", kRGBA8888, 4, 0, 0, 0, false},
      {"fourth channel of NV12", kNV12, 3, 0, 0, 0, false},
      {"fourth channel of UYVY", kUYVY, 3, 0, 0, 0, false},
      {"NV12 without a chroma plane", kNV12, 0, 0, 0, 0, true},
      {"NV21 chroma stride short", kNV21, 1, 0, w - 1, 0, false},
      {"RGB888 stride short", kRGB888, 0, 3 * w - 1, 0, 0, false},
      {"RGBA8888 stride short", kRGBA8888, 0, 4 * w - 1, 0, 0, false},
      {"YUYV stride short", kYUYV, 0, 2 * w - 1, 0, 0, false},
      {"NV12 luma stride short", kNV12, 0, w - 1, 0, 0, false},
      {"destination stride short for Y", kUYVY, 0, 0, 0, w - 1, false},
      {"destination stride short for chroma", kNV12, 2, 0, 0, w / 2 - 1, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(tvxChannelExtractu8(src.bytes(), w, h, c.srcStride, c.chromaNull ? nullptr : chroma.bytes(),
                                  c.chromaStride, out.bytes(), c.dstStride, c.format, c.channel),
              3);
    EXPECT_TRUE(Untouched(out));
  }
  EXPECT_EQ(tvxChannelExtractu8(nullptr, w, h, 0, chroma.bytes(), 0, out.bytes(), 0, kNV12, 0), 3);
  EXPECT_EQ(tvxChannelExtractu8(src.bytes(), 0, h, 0, chroma.bytes(), 0, out.bytes(), 0, kNV12, 0), 3);
  EXPECT_EQ(tvxChannelExtractu8(src.bytes(), w, 0, 0, chroma.bytes(), 0, out.bytes(), 0, kNV12, 0), 3);
  EXPECT_TRUE(Untouched(out));
  // A missing chroma plane is fine where none is read.
  EXPECT_EQ(tvxChannelExtractu8(src.bytes(), w, h, 0, nullptr, 0, out.bytes(), 0, kYUYV, 0), 0);
}

TEST_F(ColorMoreTest, BadCombineArgumentsReturnThreeAndWriteNothing) {
  const uint32_t w = 5, h = 3;
  Image a(w, h, 1), b(w, h, 1), c(w, h, 1), d(w, h, 1), out(4 * w, h, 1);
  for (Image* img : {&a, &b, &c, &d}) img->Randomize(rng_);
  EXPECT_EQ(tvxChannelCombine2Planesu8(a.bytes(), w, h, 0, nullptr, 0, out.bytes(), 0), 3);
  EXPECT_EQ(tvxChannelCombine2Planesu8(a.bytes(), w, h, w - 1, b.bytes(), 0, out.bytes(), 0), 3);
  EXPECT_EQ(tvxChannelCombine2Planesu8(a.bytes(), w, h, 0, b.bytes(), 0, out.bytes(), 2 * w - 1), 3);
  EXPECT_EQ(tvxChannelCombine3Planesu8(a.bytes(), w, h, 0, b.bytes(), 0, nullptr, 0, out.bytes(), 0), 3);
  EXPECT_EQ(tvxChannelCombine3Planesu8(a.bytes(), w, h, 0, b.bytes(), 0, c.bytes(), w - 1, out.bytes(), 0), 3);
  EXPECT_EQ(tvxChannelCombine3Planesu8(a.bytes(), w, h, 0, b.bytes(), 0, c.bytes(), 0, out.bytes(), 3 * w - 1), 3);
  EXPECT_EQ(tvxChannelCombine4Planesu8(a.bytes(), w, h, 0, b.bytes(), 0, c.bytes(), 0, nullptr, 0, out.bytes(), 0), 3);
  EXPECT_EQ(tvxChannelCombine4Planesu8(a.bytes(), w, h, 0, b.bytes(), 0, c.bytes(), 0, d.bytes(), w - 1, out.bytes(), 0),
            3);
  EXPECT_EQ(tvxChannelCombine4Planesu8(a.bytes(), w, h, 0, b.bytes(), 0, c.bytes(), 0, d.bytes(), 0, out.bytes(),
                                       4 * w - 1),
            3);
  EXPECT_EQ(tvxChannelCombine4Planesu8(a.bytes(), 0, h, 0, b.bytes(), 0, c.bytes(), 0, d.bytes(), 0, out.bytes(), 0), 3);
  EXPECT_TRUE(Untouched(out));
}

// ---- JPEG-style YCrCb ----------------------------------------------------------------------

// Exact model of the decoder with real division: the offsets are floor((k * 2 * diff + 16384) / 32768).
int OffsetModel(double sum) { return static_cast<int>(std::floor((sum + 16384.0) / 32768.0)); }
int Clamp(int v) { return std::min(255, std::max(0, v)); }
void DecodeModel(int y, int cr, int cb, int rgb[3]) {
  const int e = 2 * (cr - 128), d = 2 * (cb - 128);
  rgb[0] = Clamp(y + OffsetModel(22970.0 * e));
  rgb[1] = Clamp(y + OffsetModel(-5638.0 * d - 11700.0 * e));
  rgb[2] = Clamp(y + OffsetModel(29032.0 * d));
}

typedef int32_t (*DecoderFn)(const uint8_t*, const uint8_t*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t,
                             uint32_t, uint8_t*, uint32_t);
struct Decoder {
  const char* name;
  DecoderFn fn;
  uint32_t h, v;
};
const Decoder kDecoders[] = {{"H1V1", tvxColorYCrCbH1V1toRGB888u8, 1, 1},
                             {"H2V1", tvxColorYCrCbH2V1toRGB888u8, 2, 1},
                             {"H2V2", tvxColorYCrCbH2V2toRGB888u8, 2, 2},
                             {"H1V2", tvxColorYCrCbH1V2toRGB888u8, 1, 2}};

TEST_F(ColorMoreTest, DecoderWorkedValues) {
  // Y Cr Cb -> R G B
  const uint8_t y[5] = {0, 255, 128, 77, 200};
  const uint8_t cr[5] = {255, 128, 0, 128, 128};
  const uint8_t cb[5] = {128, 0, 0, 128, 128};
  uint8_t rgb[15];
  ASSERT_EQ(tvxColorYCrCbH1V1toRGB888u8(y, cr, cb, 5, 1, 0, 0, 0, rgb, 0), 0);
  EXPECT_EQ(rgb[0], 178);  // (22970*254 + 16384) >> 15: 1.402 * 127
  EXPECT_EQ(rgb[1], 0);    // 0 - 91, clamped
  EXPECT_EQ(rgb[2], 0);
  EXPECT_EQ(rgb[5], 28);   // 255 + ((29032*-256 + 16384) >> 15) = 255 - 227
  EXPECT_EQ(rgb[4], 255);  // 255 + 44, clamped
  EXPECT_EQ(rgb[6], 0);    // 128 - 179, clamped
  EXPECT_EQ(rgb[7], 255);  // 128 + 135, clamped
  for (int k = 9; k < 12; ++k) EXPECT_EQ(rgb[k], 77);  // neutral chroma keeps the grey
  for (int k = 12; k < 15; ++k) EXPECT_EQ(rgb[k], 200);
}

TEST_F(ColorMoreTest, DecodersMatchTheModelOnOddSizes) {
  for (const Decoder& dec : kDecoders) {
    for (auto [w, h] : {std::pair<uint32_t, uint32_t>{9, 5}, {1, 1}, {34, 3}}) {
      SCOPED_TRACE(::testing::Message() << dec.name << " " << w << "x" << h);
      const uint32_t cw = (w + dec.h - 1) / dec.h, ch = (h + dec.v - 1) / dec.v;
      Image luma(w, h, 1, 3, 1), cr(cw, ch, 1, 1, 2), cb(cw, ch, 1, 2, 3), out(w, h, 3, 4, 1);
      for (Image* img : {&luma, &cr, &cb}) img->Randomize(rng_);
      ASSERT_EQ(dec.fn(luma.bytes(), cr.bytes(), cb.bytes(), w, h, luma.stride(), cr.stride(), cb.stride(), out.bytes(),
                       out.stride()),
                0);
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
          const int c = cr.row(y / dec.v)[x / dec.h], b = cb.row(y / dec.v)[x / dec.h], lv = luma.row(y)[x];
          int want[3];
          DecodeModel(lv, c, b, want);
          for (int k = 0; k < 3; ++k) ASSERT_EQ(out.row(y)[3 * x + k], want[k]) << x << "," << y;
          // Within one of the real-valued JPEG equations.
          const double real[3] = {lv + 1.402 * (c - 128), lv - 0.344136 * (b - 128) - 0.714136 * (c - 128),
                                  lv + 1.772 * (b - 128)};
          for (int k = 0; k < 3; ++k)
            ASSERT_NEAR(out.row(y)[3 * x + k], std::clamp(real[k], 0.0, 255.0), 1.0) << x << "," << y;
        }
      EXPECT_TRUE(out.GuardsIntact());
    }
  }
}

TEST_F(ColorMoreTest, EncoderWorkedValuesAndGrey) {
  const uint8_t rgb[15] = {0, 0, 0, 255, 255, 255, 255, 0, 0, 0, 0, 255, 93, 93, 93};
  uint8_t y[5], cr[5], cb[5];
  ASSERT_EQ(tvxColorRGB888toYCrCbu8(rgb, 5, 1, 0, y, cr, cb, 0, 0, 0), 0);
  const uint8_t wantY[5] = {0, 255, 76, 29, 93}, wantCr[5] = {128, 128, 255, 107, 128}, wantCb[5] = {128, 128, 85, 255, 128};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(y[i], wantY[i]) << i;
    EXPECT_EQ(cr[i], wantCr[i]) << i;  // pure red: 128 + 128 clamps to 255
    EXPECT_EQ(cb[i], wantCb[i]) << i;
  }
}

TEST_F(ColorMoreTest, EncoderMatchesTheModelAndRoundTrips) {
  const uint32_t w = 23, h = 7;
  Image src(w, h, 3, 2, 3), y(w, h, 1, 1, 0), cr(w, h, 1, 0, 1), cb(w, h, 1, 5, 2), back(w, h, 3, 1, 1);
  src.Randomize(rng_);
  ASSERT_EQ(tvxColorRGB888toYCrCbu8(src.bytes(), w, h, src.stride(), y.bytes(), cr.bytes(), cb.bytes(), y.stride(),
                                    cr.stride(), cb.stride()),
            0);
  for (uint32_t r = 0; r < h; ++r)
    for (uint32_t x = 0; x < w; ++x) {
      const double R = src.row(r)[3 * x], G = src.row(r)[3 * x + 1], B = src.row(r)[3 * x + 2];
      const int wantY = Clamp(OffsetModel(9798 * R + 19235 * G + 3736 * B));
      const int wantCr = Clamp(128 + OffsetModel(16384 * R - 13720 * G - 2664 * B));
      const int wantCb = Clamp(128 + OffsetModel(-5529 * R - 10855 * G + 16384 * B));
      ASSERT_EQ(y.row(r)[x], wantY);
      ASSERT_EQ(cr.row(r)[x], wantCr);
      ASSERT_EQ(cb.row(r)[x], wantCb);
      ASSERT_NEAR(y.row(r)[x], 0.299 * R + 0.587 * G + 0.114 * B, 1.0);
      ASSERT_NEAR(cr.row(r)[x], std::min(255.0, 128 + 0.5 * R - 0.418688 * G - 0.081312 * B), 1.0);
      ASSERT_NEAR(cb.row(r)[x], std::min(255.0, 128 - 0.168736 * R - 0.331264 * G + 0.5 * B), 1.0);
    }
  ASSERT_EQ(tvxColorYCrCbH1V1toRGB888u8(y.bytes(), cr.bytes(), cb.bytes(), w, h, y.stride(), cr.stride(), cb.stride(),
                                        back.bytes(), back.stride()),
            0);
  // Chroma clamped at 255 (saturated colours) loses half a step; everything else comes back
  // within the rounding of the two conversions.
  for (uint32_t r = 0; r < h; ++r)
    for (uint32_t i = 0; i < 3 * w; ++i) ASSERT_NEAR(back.row(r)[i], src.row(r)[i], 3) << i << "," << r;
  for (const Image* img : {&y, &cr, &cb, &back}) EXPECT_TRUE(img->GuardsIntact());
}

TEST_F(ColorMoreTest, BadYCrCbArgumentsReturnThreeAndWriteNothing) {
  const uint32_t w = 5, h = 3;
  Image luma(w, h, 1), cr(w, h, 1), cb(w, h, 1), rgb(w, h, 3);
  for (Image* img : {&luma, &cr, &cb, &rgb}) img->Randomize(rng_);
  Image out(w, h, 3), y(w, h, 1), c1(w, h, 1), c2(w, h, 1);
  for (const Decoder& dec : kDecoders) {
    SCOPED_TRACE(dec.name);
    const uint32_t cw = (w + dec.h - 1) / dec.h;
    EXPECT_EQ(dec.fn(luma.bytes(), nullptr, cb.bytes(), w, h, 0, 0, 0, out.bytes(), 0), 3);
    EXPECT_EQ(dec.fn(luma.bytes(), cr.bytes(), cb.bytes(), w, h, 0, cw - 1, 0, out.bytes(), 0), 3);
    EXPECT_EQ(dec.fn(luma.bytes(), cr.bytes(), cb.bytes(), w, h, 0, 0, cw - 1, out.bytes(), 0), 3);
    EXPECT_EQ(dec.fn(luma.bytes(), cr.bytes(), cb.bytes(), w, h, w - 1, 0, 0, out.bytes(), 0), 3);
    EXPECT_EQ(dec.fn(luma.bytes(), cr.bytes(), cb.bytes(), w, h, 0, 0, 0, out.bytes(), 3 * w - 1), 3);
    EXPECT_EQ(dec.fn(luma.bytes(), cr.bytes(), cb.bytes(), w, 0, 0, 0, 0, out.bytes(), 0), 3);
    EXPECT_TRUE(Untouched(out));
  }
  EXPECT_EQ(tvxColorRGB888toYCrCbu8(rgb.bytes(), w, h, 0, y.bytes(), nullptr, c2.bytes(), 0, 0, 0), 3);
  EXPECT_EQ(tvxColorRGB888toYCrCbu8(rgb.bytes(), w, h, 3 * w - 1, y.bytes(), c1.bytes(), c2.bytes(), 0, 0, 0), 3);
  EXPECT_EQ(tvxColorRGB888toYCrCbu8(rgb.bytes(), w, h, 0, y.bytes(), c1.bytes(), c2.bytes(), 0, 0, w - 1), 3);
  EXPECT_EQ(tvxColorRGB888toYCrCbu8(rgb.bytes(), w, h, 0, y.bytes(), c1.bytes(), c2.bytes(), w - 1, 0, 0), 3);
  for (const Image* img : {&y, &c1, &c2}) EXPECT_TRUE(Untouched(*img));
}

// ---- HSV and LAB ---------------------------------------------------------------------------

// Real-valued HSV with hue in degrees / 2.
void HsvModel(double r, double g, double b, double hsv[3]) {
  const double v = std::max({r, g, b}), d = v - std::min({r, g, b});
  double h = 0;
  if (d > 0) {
    if (v == r) h = 30 * (g - b) / d;
    else if (v == g) h = 30 * (b - r) / d + 60;
    else h = 30 * (r - g) / d + 120;
  }
  if (h < 0) h += 180;
  hsv[0] = h;
  hsv[1] = v > 0 ? 255 * d / v : 0;
  hsv[2] = v;
}

double HueDistance(double a, double b) {
  const double d = std::fabs(a - b);
  return std::min(d, 180 - d);
}

TEST_F(ColorMoreTest, HsvWorkedValues) {
  const uint8_t rgb[] = {255, 0, 0,  0, 255, 0,  0, 0, 255,  255, 255, 0,  255, 0, 255,
                         77, 77, 77, 0, 0, 0,    255, 0, 1,  255, 0, 10,   0, 128, 255};
  const uint8_t want[] = {0, 255, 255,  60, 255, 255,  120, 255, 255,  30, 255, 255,  150, 255, 255,
                          0, 0, 77,     0, 0, 0,       0, 255, 255,    179, 255, 255,  105, 255, 255};
  const uint32_t n = sizeof rgb / 3;
  uint8_t hsv[sizeof rgb];
  ASSERT_EQ(tvxColorRGB888ToHSV888u8(rgb, n, 1, 0, hsv, 0), 0);
  for (uint32_t i = 0; i < 3 * n; ++i) EXPECT_EQ(hsv[i], want[i]) << "pixel " << i / 3 << " byte " << i % 3;
}

TEST_F(ColorMoreTest, HsvIsWithinOneOfTheRealValuedFormulas) {
  // Every colour on a lattice of 5-step channels plus random odd-sized images.
  std::vector<uint8_t> rgb;
  for (int r = 0; r < 256; r += 5)
    for (int g = 0; g < 256; g += 5)
      for (int b = 0; b < 256; b += 5) rgb.insert(rgb.end(), {uint8_t(r), uint8_t(g), uint8_t(b)});
  std::uniform_int_distribution<int> byte(0, 255);
  for (int i = 0; i < 3 * 5000; ++i) rgb.push_back(static_cast<uint8_t>(byte(rng_)));
  const uint32_t w = 19, h = static_cast<uint32_t>(rgb.size() / 3 / w);
  Image out(w, h, 3, 2, 1);
  ASSERT_EQ(tvxColorRGB888ToHSV888u8(rgb.data(), w, h, 0, out.bytes(), out.stride()), 0);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t* p = &rgb[3 * (y * w + x)];
      const uint8_t* q = out.row(y) + 3 * x;
      double want[3];
      HsvModel(p[0], p[1], p[2], want);
      const bool ok = q[0] <= 179 && HueDistance(q[0], want[0]) <= 1.0 && std::fabs(q[1] - want[1]) <= 1.0 && q[2] == want[2];
      ASSERT_TRUE(ok) << "RGB " << int(p[0]) << "," << int(p[1]) << "," << int(p[2]) << " gave HSV " << int(q[0]) << ","
                      << int(q[1]) << "," << int(q[2]) << ", real " << want[0] << "," << want[1] << "," << want[2];
    }
  EXPECT_TRUE(out.GuardsIntact());
}

// Real-valued CIELAB of an sRGB colour under D65, in the 8-bit scaling (clamped, unrounded).
void LabModel(int r8, int g8, int b8, double lab[3]) {
  const auto lin = [](int v) {
    const double c = v / 255.0;
    return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
  };
  const double r = lin(r8), g = lin(g8), b = lin(b8);
  const double X = (0.4124564 * r + 0.3575761 * g + 0.1804375 * b) / 0.950456;
  const double Y = 0.2126729 * r + 0.7151522 * g + 0.0721750 * b;
  const double Z = (0.0193339 * r + 0.1191920 * g + 0.9503041 * b) / 1.088754;
  const auto f = [](double t) { return t > 216.0 / 24389 ? std::cbrt(t) : (24389.0 / 27 * t + 16) / 116; };
  lab[0] = std::clamp((116 * f(Y) - 16) * 255 / 100, 0.0, 255.0);
  lab[1] = std::clamp(500 * (f(X) - f(Y)) + 128, 0.0, 255.0);
  lab[2] = std::clamp(200 * (f(Y) - f(Z)) + 128, 0.0, 255.0);
}

TEST_F(ColorMoreTest, LabWorkedValues) {
  // White, black and greys have a = b = 128 exactly; alpha is ignored.
  const uint8_t rgba[] = {255, 255, 255, 0, 0, 0, 0, 255, 119, 119, 119, 7, 255, 0, 0, 255, 0, 0, 255, 1};
  uint8_t lab[15];
  ASSERT_EQ(tvxColorRGBA8888ToLABu8(rgba, 5, 1, 0, lab, 0), 0);
  EXPECT_EQ(lab[0], 255);
  EXPECT_EQ(lab[3], 0);
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(lab[3 * p + 1], 128) << p;
    EXPECT_EQ(lab[3 * p + 2], 128) << p;
  }
  EXPECT_NEAR(lab[6], 50.0 * 2.55, 1.0);  // sRGB 119 is close to L = 50
  // Pure red: L 53.2, a 80.1, b 67.2; pure blue: L 32.3, a 79.2, b -107.9.
  double red[3], blue[3];
  LabModel(255, 0, 0, red);
  LabModel(0, 0, 255, blue);
  for (int k = 0; k < 3; ++k) {
    EXPECT_NEAR(lab[9 + k], red[k], 1.0) << k;
    EXPECT_NEAR(lab[12 + k], blue[k], 1.0) << k;
  }
  EXPECT_NEAR(red[1], 80.1 + 128, 0.1);  // the model itself is the textbook one
  EXPECT_NEAR(blue[2], -107.9 + 128, 0.1);
}

TEST_F(ColorMoreTest, LabIsWithinOneOfTheRealValuedFormulas) {
  std::vector<uint8_t> rgba;
  std::uniform_int_distribution<int> byte(0, 255);
  for (int r = 0; r < 256; r += 5)
    for (int g = 0; g < 256; g += 5)
      for (int b = 0; b < 256; b += 5) rgba.insert(rgba.end(), {uint8_t(r), uint8_t(g), uint8_t(b), uint8_t(byte(rng_))});
  for (int i = 0; i < 4 * 5000; ++i) rgba.push_back(static_cast<uint8_t>(byte(rng_)));
  const uint32_t w = 21, h = static_cast<uint32_t>(rgba.size() / 4 / w);
  Image out(w, h, 3, 1, 2);
  ASSERT_EQ(tvxColorRGBA8888ToLABu8(rgba.data(), w, h, 0, out.bytes(), out.stride()), 0);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const uint8_t* p = &rgba[4 * (y * w + x)];
      double want[3];
      LabModel(p[0], p[1], p[2], want);
      for (int k = 0; k < 3; ++k) {
        const double err = std::fabs(out.row(y)[3 * x + k] - want[k]);
        ASSERT_LE(err, 1.0) << int(p[0]) << "," << int(p[1]) << "," << int(p[2]) << " channel " << k;
      }
    }
  EXPECT_TRUE(out.GuardsIntact());
}

TEST_F(ColorMoreTest, BadHsvAndLabArgumentsReturnThreeAndWriteNothing) {
  const uint32_t w = 6, h = 2;
  Image src(4 * w, h, 1), out(3 * w, h, 1);
  src.Randomize(rng_);
  EXPECT_EQ(tvxColorRGB888ToHSV888u8(src.bytes(), w, h, 3 * w - 1, out.bytes(), 0), 3);
  EXPECT_EQ(tvxColorRGB888ToHSV888u8(src.bytes(), w, h, 0, out.bytes(), 3 * w - 1), 3);
  EXPECT_EQ(tvxColorRGB888ToHSV888u8(src.bytes(), w, h, 0, nullptr, 0), 3);
  EXPECT_EQ(tvxColorRGBA8888ToLABu8(src.bytes(), w, h, 4 * w - 1, out.bytes(), 0), 3);
  EXPECT_EQ(tvxColorRGBA8888ToLABu8(src.bytes(), w, h, 0, out.bytes(), 3 * w - 1), 3);
  EXPECT_EQ(tvxColorRGBA8888ToLABu8(src.bytes(), 0, h, 0, out.bytes(), 0), 3);
  EXPECT_TRUE(Untouched(out));
}

}  // namespace
