// Layout family through the public entries (reference tier): transpose, flip and rotation on
// small images with known results, the in-place rules of flip, the rejection of bad
// arguments, and the process-ending assertion of the RGB transpose.
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
using Bytes = std::vector<uint8_t>;

using tvxtest::Capture;
using tvxtest::g_lines;

class Layout : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override {
    tvx_set_log_sink(nullptr);
    libLogPrint = 0;
  }
  static std::string Assertion(const char* name, const char* cond) {
    return std::string("tavix_lib_log|Assertion failed @") + name + ": " + cond + "\n";
  }
};

// Reads a width x height image of T out of a strided buffer, row after row.
template <typename T>
std::vector<T> Packed(const void* base, uint32_t width, uint32_t height, uint32_t strideBytes) {
  std::vector<T> out;
  for (uint32_t y = 0; y < height; ++y)
    for (uint32_t x = 0; x < width; ++x) {
      T v;
      std::memcpy(&v, static_cast<const uint8_t*>(base) + y * strideBytes + x * sizeof(T), sizeof(T));
      out.push_back(v);
    }
  return out;
}

// ---- transpose -----------------------------------------------------------------------------

TEST_F(Layout, TransposeSwapsRowsAndColumns) {
  const uint8_t src8[2][4] = {{1, 2, 3, 99}, {4, 5, 6, 99}};  // 3x2 with one byte of padding
  uint8_t dst8[3][3];
  std::memset(dst8, 0xEE, sizeof dst8);
  tvxTransposeu8(&src8[0][0], 3, 2, 4, &dst8[0][0], 3);
  EXPECT_EQ(Packed<uint8_t>(dst8, 2, 3, 3), (Bytes{1, 4, 2, 5, 3, 6}));
  EXPECT_EQ(dst8[0][2], 0xEE) << "padding written";

  const uint16_t src16[6] = {100, 200, 300, 400, 500, 60000};
  uint16_t dst16[6] = {};
  tvxTransposeu16(src16, 3, 2, 0, dst16, 0);  // zero strides: packed
  EXPECT_EQ(std::vector<uint16_t>(dst16, dst16 + 6), (std::vector<uint16_t>{100, 400, 200, 500, 300, 60000}));

  const float srcf[4] = {1.5f, -2.0f, 3.25f, 4.0f};
  float dstf[4] = {};
  tvxTransposef32(srcf, 1, 4, 4, dstf, 16);  // a column becomes a row
  EXPECT_EQ(std::vector<float>(dstf, dstf + 4), std::vector<float>(srcf, srcf + 4));

  // 3-byte pixels move together: 2x1 RGB becomes 1x2.
  const uint8_t rgb[6] = {1, 2, 3, 4, 5, 6};
  uint8_t rgbT[8] = {0, 0, 0, 0xEE, 0, 0, 0, 0xEE};
  EXPECT_EQ(tvxTransposeRGB888u8(rgb, 2, 1, 6, rgbT, 4), 0);
  EXPECT_EQ(Bytes(rgbT, rgbT + 8), (Bytes{1, 2, 3, 0xEE, 4, 5, 6, 0xEE}));
}

TEST_F(Layout, TransposeRejectsBadArguments) {
  uint8_t src[16] = {}, dst[16];
  std::memset(dst, 0x77, sizeof dst);
  tvxTransposeu8(src, 4, 4, 4, dst, 3);
  tvxTransposeu16(nullptr, 2, 2, 4, reinterpret_cast<uint16_t*>(dst), 4);
  EXPECT_EQ(g_lines,
            (std::vector<std::string>{
                Assertion("tvxTransposeu8", "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && (dstStride >= srcHeight)"),
                Assertion("tvxTransposeu16",
                          "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth*2) && (dstStride >= srcHeight*2)")}));
  g_lines.clear();
  // RGB: status 3, also when a stride cannot hold rows of 3-byte pixels.
  EXPECT_EQ(tvxTransposeRGB888u8(nullptr, 2, 2, 6, dst, 6), 3);
  EXPECT_EQ(tvxTransposeRGB888u8(src, 2, 2, 5, dst, 6), 3);
  EXPECT_EQ(tvxTransposeRGB888u8(src, 2, 2, 6, dst, 5), 3);
  EXPECT_EQ(tvxTransposeRGB888u8(src, 0, 2, 6, dst, 6), 3);
  EXPECT_TRUE(g_lines.empty());
  EXPECT_EQ(Bytes(dst, dst + 16), Bytes(16, 0x77));
}

TEST_F(Layout, TransposeRGBReferenceEndsProcessOnBrokenArguments) {
  tvx_set_log_sink(nullptr);  // the child logs to stderr
  uint8_t buf[64] = {};
  EXPECT_EXIT(tvxTransposeRGB888u8C(nullptr, 2, 2, 6, buf, 6), ::testing::ExitedWithCode(1),
              "src/cpu/tavixArithmC@[0-9]+: src && dst && srcWidth && srcHeight && \\(srcStride >= srcWidth\\) && "
              "\\(dstStride >= srcWidth\\) Assertion failed");
  // The reference checks dstStride against the source width.
  EXPECT_EXIT(tvxTransposeRGB888u8C(buf, 4, 1, 12, buf + 32, 3), ::testing::ExitedWithCode(1), "Assertion failed");
}

// ---- flip ----------------------------------------------------------------------------------

const Bytes k3x3 = {1, 2, 3, 4, 5, 6, 7, 8, 9};
const Bytes kMirrored[4] = {{}, {3, 2, 1, 6, 5, 4, 9, 8, 7}, {7, 8, 9, 4, 5, 6, 1, 2, 3}, {9, 8, 7, 6, 5, 4, 3, 2, 1}};

TEST_F(Layout, FlipMirrorsOutOfPlaceAndInPlace) {
  for (int32_t dir = 1; dir <= 3; ++dir) {
    SCOPED_TRACE(dir);
    Bytes out(12, 0xEE);  // 3x3 into rows of 4
    tvxFlipu8(k3x3.data(), 3, 3, 3, out.data(), 4, dir);
    EXPECT_EQ(Packed<uint8_t>(out.data(), 3, 3, 4), kMirrored[dir]);
    EXPECT_EQ(out[3], 0xEE);
    Bytes inPlace = k3x3;  // odd height: the middle row stays for dir 2 and is reversed for dir 3
    tvxFlipu8(inPlace.data(), 3, 3, 0, inPlace.data(), 0, dir);
    EXPECT_EQ(inPlace, kMirrored[dir]);
  }
  // Even sizes in place: every row pair and pixel pair swaps.
  Bytes even = {1, 2, 3, 4, 5, 6, 7, 8};
  tvxFlipu8(even.data(), 4, 2, 4, even.data(), 4, 3);
  EXPECT_EQ(even, (Bytes{8, 7, 6, 5, 4, 3, 2, 1}));

  std::vector<uint16_t> words = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  tvxFlipu16(words.data(), 3, 3, 6, words.data(), 6, 3);
  EXPECT_EQ(words, (std::vector<uint16_t>{9, 8, 7, 6, 5, 4, 3, 2, 1}));
  std::vector<uint16_t> out16(9);
  tvxFlipu16(words.data(), 3, 3, 0, out16.data(), 0, 1);
  EXPECT_EQ(out16, (std::vector<uint16_t>{7, 8, 9, 4, 5, 6, 1, 2, 3}));

  // RGB pixels keep their channel order.
  Bytes rgb = {1, 2, 3, 4, 5, 6, 7, 8, 9};  // 3x1
  EXPECT_EQ(tvxFlipRGB888u8(rgb.data(), 3, 1, 0, rgb.data(), 0, 1), 0);
  EXPECT_EQ(rgb, (Bytes{7, 8, 9, 4, 5, 6, 1, 2, 3}));
  Bytes rgbOut(6);
  EXPECT_EQ(tvxFlipRGB888u8(rgb.data(), 1, 2, 3, rgbOut.data(), 3, 2), 0);
  EXPECT_EQ(rgbOut, (Bytes{4, 5, 6, 7, 8, 9}));
}

TEST_F(Layout, FlipInPlaceWithDifferentStridesLogsAndWritesNothing) {
  Bytes img(32, 0);
  for (size_t i = 0; i < img.size(); ++i) img[i] = static_cast<uint8_t>(i);
  const Bytes before = img;
  tvxFlipu8(img.data(), 3, 3, 4, img.data(), 5, 1);
  tvxFlipu16(reinterpret_cast<uint16_t*>(img.data()), 2, 2, 4, reinterpret_cast<uint16_t*>(img.data()), 6, 2);
  EXPECT_EQ(tvxFlipRGB888u8(img.data(), 2, 2, 6, img.data(), 7, 3), 3);
  const std::string u8 = "tavix_lib_log|Error: tvxFlipu8 - Try to do in place but srcStride != dstStride\n";
  const std::string u16 = "tavix_lib_log|Error: tvxFlipu16 - Try to do in place but srcStride != dstStride\n";
  EXPECT_EQ(g_lines, (std::vector<std::string>{u8, u16, u8}));
  EXPECT_EQ(img, before);
}

TEST_F(Layout, FlipRejectsBadArguments) {
  Bytes src(16, 1), dst(16, 0x66);
  tvxFlipu8(src.data(), 4, 4, 4, dst.data(), 4, 0);
  tvxFlipu16(reinterpret_cast<const uint16_t*>(src.data()), 2, 2, 3, reinterpret_cast<uint16_t*>(dst.data()), 4, 1);
  EXPECT_EQ(g_lines,
            (std::vector<std::string>{
                Assertion("tvxFlipu8", "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && (dstStride >= srcWidth) && dir >= 1 && dir <= 3"),
                Assertion("tvxFlipu16",
                          "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth*2) && (dstStride >= srcWidth*2) && dir >= 1 && dir <= 3")}));
  EXPECT_EQ(tvxFlipRGB888u8(src.data(), 2, 2, 5, dst.data(), 6, 1), 3);
  EXPECT_EQ(tvxFlipRGB888u8(src.data(), 2, 2, 6, dst.data(), 6, 4), 3);
  EXPECT_EQ(tvxFlipRGB888u8(src.data(), 2, 2, 6, nullptr, 6, 1), 3);
  EXPECT_EQ(dst, Bytes(16, 0x66));
}

// ---- rotation ------------------------------------------------------------------------------

TEST_F(Layout, RotateTurnsClockwise) {
  const Bytes src = {1, 2, 3, 4, 5, 6};  // 3 wide, 2 tall
  Bytes out(6, 0);
  EXPECT_EQ(tvxRotateImageu8(src.data(), 3, 2, 0, out.data(), 0, 1), 0);
  EXPECT_EQ(out, (Bytes{4, 1, 5, 2, 6, 3}));
  EXPECT_EQ(tvxRotateImageu8(src.data(), 3, 2, 3, out.data(), 2, 3), 0);
  EXPECT_EQ(out, (Bytes{3, 6, 2, 5, 1, 4}));
  EXPECT_EQ(tvxRotateImageu8(src.data(), 3, 2, 0, out.data(), 0, 2), 0);
  EXPECT_EQ(out, (Bytes{6, 5, 4, 3, 2, 1}));

  // Pairs move as units; a padded destination keeps its padding.
  const Bytes pairs = {1, 11, 2, 22, 3, 33, 4, 44};  // 2x2 pairs
  Bytes turned(10, 0xEE);
  EXPECT_EQ(tvxRotateImageInterleavedu8(pairs.data(), 2, 2, 4, turned.data(), 5, 1), 0);
  EXPECT_EQ(turned, (Bytes{3, 33, 1, 11, 0xEE, 4, 44, 2, 22, 0xEE}));
  Bytes half(8, 0);
  EXPECT_EQ(tvxRotateImageInterleavedu8(pairs.data(), 2, 2, 0, half.data(), 0, 2), 0);
  EXPECT_EQ(half, (Bytes{4, 44, 3, 33, 2, 22, 1, 11}));
  EXPECT_EQ(tvxRotateImageInterleavedu8(pairs.data(), 2, 2, 0, half.data(), 0, 3), 0);
  EXPECT_EQ(half, (Bytes{2, 22, 4, 44, 1, 11, 3, 33}));
}

TEST_F(Layout, RotateHalfTurnGoesThroughThePublicFlip) {
  libLogPrint = 1;
  const Bytes src = {1, 2, 3, 4};
  Bytes out(4), out16(4);
  EXPECT_EQ(tvxRotateImageu8(src.data(), 2, 2, 0, out.data(), 0, 2), 0);
  EXPECT_EQ(tvxRotateImageInterleavedu8(src.data(), 1, 2, 0, out16.data(), 0, 2), 0);
  EXPECT_EQ(g_lines, (std::vector<std::string>{"tavix_runtime_log|tvxRotateImageu8_CPU", "tavix_runtime_log|tvxFlipu8_CPU",
                                               "tavix_runtime_log|tvxRotateImageInterleavedu8_CPU",
                                               "tavix_runtime_log|tvxFlipu16_CPU"}));
  EXPECT_EQ(out, (Bytes{4, 3, 2, 1}));
  EXPECT_EQ(out16, (Bytes{3, 4, 1, 2}));
}

TEST_F(Layout, RotateRejectsBadArguments) {
  Bytes src(16, 1), dst(16, 0x55);
  EXPECT_EQ(tvxRotateImageu8(src.data(), 4, 2, 4, dst.data(), 2, 0), 3);
  EXPECT_EQ(tvxRotateImageu8(src.data(), 4, 2, 4, dst.data(), 2, 4), 3);
  EXPECT_EQ(tvxRotateImageu8(src.data(), 4, 2, 4, dst.data(), 1, 1), 3);   // rows of 2 need 2 bytes
  EXPECT_EQ(tvxRotateImageu8(src.data(), 4, 2, 4, dst.data(), 3, 2), 3);   // a half turn keeps width 4
  EXPECT_EQ(tvxRotateImageu8(src.data(), 4, 2, 3, dst.data(), 2, 1), 3);
  EXPECT_EQ(tvxRotateImageu8(nullptr, 4, 2, 4, dst.data(), 2, 1), 3);
  EXPECT_EQ(tvxRotateImageInterleavedu8(src.data(), 2, 2, 4, dst.data(), 3, 1), 3);  // needs 2*2 bytes
  EXPECT_EQ(tvxRotateImageInterleavedu8(src.data(), 2, 2, 3, dst.data(), 4, 3), 3);
  EXPECT_EQ(dst, Bytes(16, 0x55));
  EXPECT_TRUE(g_lines.empty());
}

}  // namespace
