// Bitwise family through the public entries (reference tier): logic with its in-place and
// stride rules, masked OR, bit counts and masked fills, and the rejection of bad arguments.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"
#include "log_capture.h"

namespace {

using tvxtest::Image;

using tvxtest::Capture;
using tvxtest::g_lines;

class Bitwise : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  static std::string Assertion(const char* name, const char* cond) {
    return std::string("tavix_lib_log|Assertion failed @") + name + ": " + cond + "\n";
  }
  std::mt19937 rng_{5};
};

// ---- and / xor / not -----------------------------------------------------------------------

TEST_F(Bitwise, LogicMatchesBytewiseOperatorsInsidePaddedRectangle) {
  Image a(13, 4, 1, 3, 1), b(13, 4, 1, 5, 2);
  a.Randomize(rng_);
  b.Randomize(rng_);
  Image andOut(13, 4, 1, 2), xorOut(13, 4, 1, 0, 3), notOut(13, 4, 1, 7);
  EXPECT_EQ(tvxBitwiseAndu8(a.bytes(), 13, 4, a.stride(), b.bytes(), b.stride(), andOut.bytes(), andOut.stride()), 0);
  EXPECT_EQ(tvxBitwiseXoru8(a.bytes(), 13, 4, a.stride(), b.bytes(), b.stride(), xorOut.bytes(), xorOut.stride()), 0);
  EXPECT_EQ(tvxBitwiseNotu8(a.bytes(), 13, 4, a.stride(), notOut.bytes(), notOut.stride()), 0);
  for (uint32_t y = 0; y < 4; ++y)
    for (uint32_t x = 0; x < 13; ++x) {
      const uint8_t p = a.row(y)[x], q = b.row(y)[x];
      ASSERT_EQ(andOut.row(y)[x], p & q);
      ASSERT_EQ(xorOut.row(y)[x], p ^ q);
      ASSERT_EQ(notOut.row(y)[x], uint8_t(~p));
    }
  EXPECT_TRUE(andOut.GuardsIntact());
  EXPECT_TRUE(xorOut.GuardsIntact());
  EXPECT_TRUE(notOut.GuardsIntact());
}

TEST_F(Bitwise, LogicInPlaceAndPackedStrides) {
  std::vector<uint8_t> a = {0xF0, 0x0F, 0xAA, 0x55, 0xFF, 0x00}, b = {0xFF, 0xF0, 0x0F, 0x55, 0x81, 0x7E};
  std::vector<uint8_t> inPlace = a;
  // Zero strides mean packed 3-byte rows.
  EXPECT_EQ(tvxBitwiseXoru8(inPlace.data(), 3, 2, 0, b.data(), 0, inPlace.data(), 0), 0);
  EXPECT_EQ(inPlace, (std::vector<uint8_t>{0x0F, 0xFF, 0xA5, 0x00, 0x7E, 0x7E}));
  inPlace = a;
  EXPECT_EQ(tvxBitwiseAndu8(inPlace.data(), 3, 2, 3, b.data(), 3, inPlace.data(), 3), 0);
  EXPECT_EQ(inPlace, (std::vector<uint8_t>{0xF0, 0x00, 0x0A, 0x55, 0x81, 0x00}));
  inPlace = a;
  EXPECT_EQ(tvxBitwiseNotu8(inPlace.data(), 6, 1, 0, inPlace.data(), 0), 0);
  EXPECT_EQ(inPlace, (std::vector<uint8_t>{0x0F, 0xF0, 0x55, 0xAA, 0x00, 0xFF}));
}

TEST_F(Bitwise, LogicRejectsBadArgumentsWithStatus3AndNoWrite) {
  std::vector<uint8_t> a(64, 1), b(64, 2), out(64, 0x5A);
  const auto untouched = [&] { return out == std::vector<uint8_t>(64, 0x5A); };
  EXPECT_EQ(tvxBitwiseAndu8(nullptr, 4, 4, 4, b.data(), 4, out.data(), 4), 3);
  EXPECT_EQ(tvxBitwiseAndu8(a.data(), 4, 4, 4, nullptr, 4, out.data(), 4), 3);
  EXPECT_EQ(tvxBitwiseXoru8(a.data(), 0, 4, 4, b.data(), 4, out.data(), 4), 3);
  EXPECT_EQ(tvxBitwiseXoru8(a.data(), 4, 0, 4, b.data(), 4, out.data(), 4), 3);
  EXPECT_EQ(tvxBitwiseXoru8(a.data(), 8, 4, 8, b.data(), 7, out.data(), 8), 3);
  EXPECT_EQ(tvxBitwiseNotu8(a.data(), 8, 4, 8, out.data(), 7), 3);
  EXPECT_EQ(tvxBitwiseNotu8(a.data(), 8, 4, 8, nullptr, 8), 3);
  EXPECT_TRUE(untouched());
  // In place needs the destination stride to equal the source's.
  std::vector<uint8_t> img(64, 0x33);
  EXPECT_EQ(tvxBitwiseAndu8(img.data(), 4, 4, 8, b.data(), 4, img.data(), 12), 3);
  EXPECT_EQ(tvxBitwiseXoru8(img.data(), 4, 4, 8, b.data(), 4, img.data(), 4), 3);
  EXPECT_EQ(tvxBitwiseNotu8(img.data(), 4, 4, 8, img.data(), 9), 3);
  EXPECT_EQ(img, std::vector<uint8_t>(64, 0x33));
  EXPECT_TRUE(g_lines.empty()) << "status-style entries do not log";
}

// ---- masked or -----------------------------------------------------------------------------

TEST_F(Bitwise, OrZeroesPixelsWhoseMaskIsZero) {
  const uint8_t a[6] = {0x01, 0x10, 0x80, 0x00, 0x0F, 0xF0}, b[6] = {0x02, 0x01, 0x08, 0x00, 0xF0, 0x0F};
  const uint8_t mask[6] = {1, 0, 255, 7, 0, 1};
  uint8_t out[6];
  tvxBitwiseOru8(a, b, 3, 2, 0, out, 0, mask, 0);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 6), (std::vector<uint8_t>{0x03, 0x00, 0x88, 0x00, 0x00, 0xFF}));
  tvxBitwiseOru8(a, b, 3, 2, 0, out, 0, nullptr, 0);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 6), (std::vector<uint8_t>{0x03, 0x11, 0x88, 0x00, 0xFF, 0xFF}));

  const int32_t a32[4] = {INT32_MIN, 0x00FF0000, 5, -2}, b32[4] = {1, 0x0000FF00, 2, 1};
  int32_t out32[4] = {9, 9, 9, 9};
  const uint8_t mask32[4] = {3, 0, 1, 1};
  tvxBitwiseOrs32(a32, b32, 2, 2, 0, out32, 0, mask32, 0);
  EXPECT_EQ(std::vector<int32_t>(out32, out32 + 4), (std::vector<int32_t>{INT32_MIN | 1, 0, 7, -1}));
  tvxBitwiseOrs32(a32, b32, 4, 1, 16, out32, 16, nullptr, 0);
  EXPECT_EQ(out32[1], 0x00FFFF00);
}

TEST_F(Bitwise, OrAssertsOnBadArgumentsWithoutWriting) {
  const uint8_t a[8] = {}, b[8] = {};
  uint8_t out[8] = {7, 7, 7, 7, 7, 7, 7, 7};
  tvxBitwiseOru8(a, b, 4, 2, 4, nullptr, 4, nullptr, 0);
  tvxBitwiseOru8(a, b, 4, 2, 3, out, 4, nullptr, 0);
  tvxBitwiseOrs32(reinterpret_cast<const int32_t*>(a), nullptr, 1, 1, 4, reinterpret_cast<int32_t*>(out), 4,
                  nullptr, 0);
  const char* cond = "src1 && src2 && srcWidth && srcHeight && (srcStride >= srcWidth) && dst && (dstStride >=srcWidth)";
  EXPECT_EQ(g_lines, (std::vector<std::string>{Assertion("tvxBitwiseOru8", cond), Assertion("tvxBitwiseOru8", cond),
                                               Assertion("tvxBitwiseOrs32", cond)}));
  EXPECT_EQ(std::vector<uint8_t>(out, out + 8), std::vector<uint8_t>(8, 7));
}

// ---- bit counts ----------------------------------------------------------------------------

TEST_F(Bitwise, BitCountsSumPopulationCounts) {
  std::vector<uint8_t> all(256);
  for (int i = 0; i < 256; ++i) all[i] = static_cast<uint8_t>(i);
  EXPECT_EQ(tvxBitCountu8(all.data(), 256), 1024u);  // every bit position is set in half the bytes
  const uint8_t few[3] = {0xFF, 0x0F, 0x01};
  EXPECT_EQ(tvxBitCountu8(few, 3), 13u);
  EXPECT_EQ(tvxBitCountu8(few, 0), 0u);
  const uint32_t words[3] = {0xFFFFFFFFu, 0x80000001u, 0x00F00000u};
  EXPECT_EQ(tvxBitCountu32(words, 1), 32u);  // the length counts words, not bytes
  EXPECT_EQ(tvxBitCountu32(words, 3), 38u);

  std::vector<uint8_t> block(80, 0);
  for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<uint8_t>(rng_());
  uint32_t expect32 = 0, expect64 = 0;
  for (size_t i = 0; i < 64; ++i) (i < 32 ? expect32 : expect64) += std::popcount(block[i]);
  expect64 += expect32;
  EXPECT_EQ(tvxBitCount32x1u8(block.data()), expect32);
  EXPECT_EQ(tvxBitCount64x1u8(block.data()), expect64);

  uint32_t count[4] = {};
  EXPECT_EQ(tvxBitCount32x4u8(block.data(), all.data() + 224, all.data(), block.data() + 16, count), 32u);
  uint32_t lastQuarter = 0, firstQuarter = 0, shifted = 0;
  for (int i = 0; i < 32; ++i) {
    lastQuarter += std::popcount(static_cast<unsigned>(224 + i));
    firstQuarter += std::popcount(static_cast<unsigned>(i));
    shifted += std::popcount(block[16 + i]);
  }
  EXPECT_EQ(count[0], expect32);
  EXPECT_EQ(count[1], lastQuarter);
  EXPECT_EQ(count[2], firstQuarter);
  EXPECT_EQ(count[3], shifted);
  EXPECT_EQ(tvxBitCount64x4u8(all.data() + 192, all.data(), block.data(), block.data(), count), 64u);
  EXPECT_EQ(count[2], expect64);
  EXPECT_EQ(count[3], expect64);
  EXPECT_EQ(count[0] + count[1], 1024u - tvxBitCountu8(all.data() + 64, 128));
}

TEST_F(Bitwise, BitCountsRejectNullPointers) {
  const uint8_t data[64] = {0xFF};
  EXPECT_EQ(tvxBitCountu8(nullptr, 5), 0u);
  EXPECT_EQ(tvxBitCountu32(nullptr, 5), 0u);
  EXPECT_EQ(tvxBitCount32x1u8(nullptr), 0u);
  EXPECT_EQ(tvxBitCount64x1u8(nullptr), 0u);
  EXPECT_TRUE(g_lines.empty());
  uint32_t count[4] = {9, 9, 9, 9};
  EXPECT_EQ(tvxBitCount32x4u8(data, data, nullptr, data, count), 0u);
  EXPECT_EQ(tvxBitCount64x4u8(data, data, data, data, nullptr), 0u);
  EXPECT_EQ(g_lines, (std::vector<std::string>{Assertion("tvxBitCount32x4u8", "A && B && C && D && count"),
                                               Assertion("tvxBitCount64x4u8", "A && B && C && D && count")}));
  EXPECT_EQ(count[0], 9u);
}

// ---- set elements --------------------------------------------------------------------------

TEST_F(Bitwise, SetElementsZeroStrideIsPacked) {
  std::vector<uint8_t> buf(7 * 3 + 5, 0xEE);
  tvxSetElementsu8(buf.data(), 7, 3, 0, 0x42, nullptr, 0);
  EXPECT_EQ(std::vector<uint8_t>(buf.begin(), buf.begin() + 21), std::vector<uint8_t>(21, 0x42));
  EXPECT_EQ(std::vector<uint8_t>(buf.begin() + 21, buf.end()), std::vector<uint8_t>(5, 0xEE));
}

TEST_F(Bitwise, SetElementsWithMaskSetOnlyMarkedPixels) {
  const uint8_t mask[6] = {0, 1, 0, 255, 0, 2};
  Image img(3, 2, 12, 8, 4);  // c3 s32/f32 pixels with padded rows
  std::vector<uint8_t> before(img.row(0), img.row(0) + 36), before1(img.row(1), img.row(1) + 36);
  tvxSetElementsc3s32(img.as<int32_t>(), 3, 2, img.stride(), -1, 2, INT32_MAX, mask, 3);
  for (uint32_t y = 0; y < 2; ++y)
    for (uint32_t x = 0; x < 3; ++x) {
      const int32_t* px = reinterpret_cast<const int32_t*>(img.row(y)) + 3 * x;
      if (mask[y * 3 + x]) {
        EXPECT_EQ(px[0], -1);
        EXPECT_EQ(px[1], 2);
        EXPECT_EQ(px[2], INT32_MAX);
      } else {
        EXPECT_EQ(0, std::memcmp(px, (y ? before1 : before).data() + 12 * x, 12)) << "masked-out pixel changed";
      }
    }
  EXPECT_TRUE(img.GuardsIntact());

  float f[2][4] = {};
  const uint8_t mask2[2] = {0, 1};
  tvxSetElementsc4f32(&f[0][0], 2, 1, 0, 1.5f, -2.0f, 0.25f, 8.0f, mask2, 0);
  EXPECT_EQ(f[0][0], 0.0f);
  EXPECT_EQ(f[1][0], 1.5f);
  EXPECT_EQ(f[1][3], 8.0f);
  uint8_t rgba[8] = {};
  tvxSetElementsc4u8(rgba, 2, 1, 0, 1, 2, 3, 4, nullptr, 0);
  EXPECT_EQ(std::vector<uint8_t>(rgba, rgba + 8), (std::vector<uint8_t>{1, 2, 3, 4, 1, 2, 3, 4}));
  uint8_t rgb[6] = {};
  tvxSetElementsc3u8(rgb, 2, 1, 0, 9, 8, 7, mask2, 0);
  EXPECT_EQ(std::vector<uint8_t>(rgb, rgb + 6), (std::vector<uint8_t>{0, 0, 0, 9, 8, 7}));
  int32_t s[3] = {};
  const uint8_t mask3[3] = {4, 0, 4};
  tvxSetElementss32(s, 3, 1, 0, -7, mask3, 0);
  EXPECT_EQ(std::vector<int32_t>(s, s + 3), (std::vector<int32_t>{-7, 0, -7}));
  float g[2] = {};
  tvxSetElementsf32(g, 2, 1, 8, 3.0f, nullptr, 0);
  EXPECT_EQ(g[1], 3.0f);
}

TEST_F(Bitwise, SetElementsAssertOnBadArguments) {
  uint8_t buf[16] = {};
  tvxSetElementsu8(nullptr, 4, 1, 4, 1, nullptr, 0);
  tvxSetElementsc3f32(reinterpret_cast<float*>(buf), 0, 1, 12, 1, 2, 3, nullptr, 0);
  tvxSetElementsc4u8(buf, 4, 1, 15, 1, 2, 3, 4, nullptr, 0);
  EXPECT_EQ(g_lines,
            (std::vector<std::string>{
                Assertion("tvxSetElementsu8", "src && srcWidth && srcHeight && (srcStride == 0 || srcStride >= srcWidth)"),
                Assertion("tvxSetElementsc3f32",
                          "src && srcWidth && srcHeight && (srcStride == 0 || srcStride >= srcWidth*3*sizeof(float32_t))"),
                Assertion("tvxSetElementsc4u8", "src && srcWidth && srcHeight && (srcStride == 0 || srcStride >= srcWidth*4)")}));
  EXPECT_EQ(std::vector<uint8_t>(buf, buf + 16), std::vector<uint8_t>(16, 0));
}

}  // namespace
