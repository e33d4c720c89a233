// Fixed-kernel filters through their public entries: the documented values, a brute-force
// model of every 3x3 filter and frame rule on random images, the threshold rules, argument
// rejection (log lines, status 3, nothing written), tier downgrades and the process-ending
// block-count assertion.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;
using tvxtest::AssertLine;


// A packed or padded byte image held in a vector; the padding holds a marker.
struct Img {
  uint32_t w, h, stride;
  std::vector<uint8_t> px;
  Img(uint32_t width, uint32_t height, uint32_t pad = 0, uint8_t fill = 0)
      : w(width), h(height), stride(width + pad), px(size_t(width + pad) * height, fill) {}
  uint8_t& at(uint32_t x, uint32_t y) { return px[size_t(y) * stride + x]; }
  uint8_t at(uint32_t x, uint32_t y) const { return px[size_t(y) * stride + x]; }
  uint8_t* data() { return px.data(); }
  void Randomize(std::mt19937& rng) {
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) at(x, y) = static_cast<uint8_t>(rng());
  }
};

// ---- brute-force model of the 3x3 filters --------------------------------------------------

enum class Frame { kUntouched, kInsideOnly, kConstant, kReplicate };
struct Tap { int weight; int value; };
using Reducer = std::function<int(const std::vector<Tap>&)>;

// Expected output per pixel (-1: the filter leaves it alone). Interior pixels see all nine
// taps; frame pixels see the taps the frame rule gives them.
std::vector<int> Model3x3(const Img& src, Frame frame, int borderValue, const Reducer& reduce) {
  std::vector<int> out(size_t(src.w) * src.h, -1);
  const int w = int(src.w), h = int(src.h);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const bool interior = x > 0 && y > 0 && x < w - 1 && y < h - 1;
      if (!interior && frame == Frame::kUntouched) continue;
      std::vector<Tap> taps;
      for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
          const int sx = x + dx, sy = y + dy;
          const int weight = (dx == 0 ? 2 : 1) * (dy == 0 ? 2 : 1);
          const bool inside = sx >= 0 && sy >= 0 && sx < w && sy < h;
          if (inside) taps.push_back({weight, src.at(sx, sy)});
          else if (frame == Frame::kConstant) taps.push_back({weight, borderValue});
          else if (frame == Frame::kReplicate)
            taps.push_back({weight, src.at(std::clamp(sx, 0, w - 1), std::clamp(sy, 0, h - 1))});
        }
      }
      out[size_t(y) * w + x] = reduce(taps);
    }
  }
  return out;
}

// Weighted sum over the weights present: /16 inside, renormalised where taps are missing.
int GaussModel(const std::vector<Tap>& taps) {
  int sum = 0, weights = 0;
  for (const Tap& t : taps) sum += t.weight * t.value, weights += t.weight;
  return sum / weights;
}

::testing::AssertionResult Matches(const Img& got, const std::vector<int>& want, uint8_t untouched) {
  for (uint32_t y = 0; y < got.h; ++y) {
    for (uint32_t x = 0; x < got.w; ++x) {
      const int e = want[size_t(y) * got.w + x];
      const int g = got.at(x, y);
      if ((e < 0 && g != untouched) || (e >= 0 && g != e))
        return ::testing::AssertionFailure() << "pixel (" << x << ", " << y << ") of " << got.w << "x" << got.h
                                             << " is " << g << ", expected " << (e < 0 ? untouched : e);
    }
    for (uint32_t x = got.w; x < got.stride; ++x)
      if (got.at(x, y) != untouched) return ::testing::AssertionFailure() << "padding of row " << y << " written";
  }
  return ::testing::AssertionSuccess();
}

class FilterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
    std::fill(std::begin(tvxImplTable), std::end(tvxImplTable), 0u);
  }
  void TearDown() override {
    tvx_set_log_sink(nullptr);
    HW_constraint_checks_enable = 1;
  }
  std::mt19937 rng_{2024};
};

constexpr uint8_t kMark = 0xEE;

// ---- Gaussian 3x3 ---------------------------------------------------------------------------

TEST_F(FilterTest, GaussianDocumentedValues) {
  Img src(5, 5), dst(5, 5, 0, kMark);
  src.at(2, 2) = 255;
  tvxFilterGaussian3x3u8(src.data(), 5, 5, dst.data(), 0);
  EXPECT_EQ(dst.at(2, 2), 63);   // 255 * 4 >> 4
  EXPECT_EQ(dst.at(1, 2), 31);   // 255 * 2 >> 4
  EXPECT_EQ(dst.at(1, 1), 15);   // 255 >> 4
  EXPECT_EQ(dst.at(0, 0), kMark);  // blurBorder 0 leaves the frame

  Img flat(6, 4, 0, 77), out(6, 4, 0, kMark);
  tvxFilterGaussian3x3u8(flat.data(), 6, 4, out.data(), 1);
  for (uint8_t v : out.px) EXPECT_EQ(v, 77);  // 9v/9 in corners, 12v/12 on edges

  Img sixteen(6, 5, 0, 16), v3(6, 5, 0, kMark);
  EXPECT_EQ(tvxFilterGaussian3x3u8_v3(sixteen.data(), 6, 5, 0, v3.data(), 0, 1, 0), 0);
  EXPECT_EQ(v3.at(0, 0), 9);
  EXPECT_EQ(v3.at(5, 4), 9);
  EXPECT_EQ(v3.at(2, 0), 12);
  EXPECT_EQ(v3.at(0, 2), 12);
  EXPECT_EQ(v3.at(2, 2), 16);
}

TEST_F(FilterTest, GaussianMatchesModelOnEveryFrameRule) {
  const uint32_t sizes[][2] = {{2, 2}, {2, 7}, {7, 2}, {3, 3}, {9, 4}, {17, 11}, {40, 6}};
  for (const auto& sz : sizes) {
    const uint32_t w = sz[0], h = sz[1];
    SCOPED_TRACE(::testing::Message() << w << "x" << h);
    Img src(w, h, 3);
    src.Randomize(rng_);
    for (int32_t blur = 0; blur <= 1; ++blur) {
      Img dst(w, h, 2, kMark);
      tvxFilterGaussian3x3u8_v2(src.data(), w, h, src.stride, dst.data(), dst.stride, blur);
      EXPECT_TRUE(Matches(dst, Model3x3(src, blur ? Frame::kInsideOnly : Frame::kUntouched, 0, GaussModel), kMark));
    }
    const Frame rules[] = {Frame::kInsideOnly, Frame::kConstant, Frame::kReplicate};
    for (uint32_t type = 0; type <= 2; ++type) {
      Img dst(w, h, 1, kMark);
      EXPECT_EQ(tvxFilterGaussian3x3u8_v3(src.data(), w, h, src.stride, dst.data(), dst.stride, type, 201), 0);
      EXPECT_TRUE(Matches(dst, Model3x3(src, rules[type], 201, GaussModel), kMark)) << "type " << type;
    }
  }
  // The legacy entry is the strided form over packed rows.
  Img src(13, 6), a(13, 6, 0, kMark), b(13, 6, 0, kMark);
  src.Randomize(rng_);
  tvxFilterGaussian3x3u8(src.data(), 13, 6, a.data(), 1);
  tvxFilterGaussian3x3u8_v2(src.data(), 13, 6, 0, b.data(), 0, 1);
  EXPECT_EQ(a.px, b.px);
}

TEST_F(FilterTest, GaussianRejectsBadArguments) {
  Img src(8, 8, 0, 1), dst(8, 8, 0, kMark);
  tvxFilterGaussian3x3u8(nullptr, 8, 8, dst.data(), 1);
  tvxFilterGaussian3x3u8(src.data(), 8, 0, dst.data(), 1);
  tvxFilterGaussian3x3u8(src.data(), 1, 8, dst.data(), 1);  // fails the block count before the condition
  tvxFilterGaussian3x3u8_v2(src.data(), 8, 8, 7, dst.data(), 8, 1);
  tvxFilterGaussian3x3u8_v2(src.data(), 8, 1, 8, dst.data(), 8, 1);
  tvxFilterGaussian3x3u8_v2(src.data(), 1, 8, 8, dst.data(), 8, 1);
  const std::string v2 = "src && dst && (srcWidth > 1) && (srcHeight > 1) && (srcStride >= srcWidth) && (dstStride >= srcWidth)";
  const std::vector<std::string> want = {
      AssertLine("tvxFilterGaussian3x3u8", "src && dst && width && height"),
      AssertLine("tvxFilterGaussian3x3u8", "src && dst && width && height"),
      "tavix_lib_log|Error at tvxFilterGaussian3x3u8\n",
      AssertLine("tvxFilterGaussian3x3u8_v2", v2),
      AssertLine("tvxFilterGaussian3x3u8_v2", v2),
      "tavix_lib_log|Error at tvxFilterGaussian3x3u8_v2\n"};
  EXPECT_EQ(g_lines, want);
  EXPECT_EQ(tvxFilterGaussian3x3u8_v3(src.data(), 8, 8, 0, dst.data(), 0, 3, 0), 3);
  EXPECT_EQ(tvxFilterGaussian3x3u8_v3(src.data(), 0, 8, 0, dst.data(), 0, 1, 0), 3);
  EXPECT_EQ(tvxFilterGaussian3x3u8_v3(src.data(), 8, 8, 0, nullptr, 0, 1, 0), 3);
  EXPECT_EQ(tvxFilterGaussian3x3u8_v3C(src.data(), 8, 8, 8, dst.data(), 8, 3, 0), 3);
  for (uint8_t v : dst.px) EXPECT_EQ(v, kMark);
}

TEST_F(FilterTest, GaussianBlockCountCheckEndsTheProcess) {
  uint8_t buf[16] = {};
  tvx_set_log_sink(nullptr);  // the line must reach stderr
  EXPECT_EXIT(tvxFilterGaussian3x3u8_v2C(buf, 1, 4, 1, buf + 8, 1, 1), ::testing::ExitedWithCode(1),
              "src/cpu/tavixBlurC@[0-9]+: w6<=w_2 && w6>=w_2-5 Assertion failed");
}

// ---- Gaussian 5x5 ---------------------------------------------------------------------------

// 5x5 binomial over the taps inside the image, divided by their weights (which is >> 8 with
// all 25 inside; C++ division truncates toward zero like the signed frame rule).
template <typename T>
std::vector<int64_t> GaussNxNModel(const std::vector<T>& src, int w, int h, bool frame, std::vector<bool>& written,
                                   const std::vector<int64_t>& k) {
  const int r = int(k.size() / 2);
  int64_t total = 0;
  for (int64_t a : k) total += a;
  int shift = 0;
  while ((int64_t(1) << shift) < total * total) ++shift;
  std::vector<int64_t> out(size_t(w) * h, 0);
  written.assign(size_t(w) * h, false);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const bool interior = x >= r && y >= r && x < w - r && y < h - r;
      if (!interior && !frame) continue;
      int64_t sum = 0, weights = 0;
      for (int dy = -r; dy <= r; ++dy)
        for (int dx = -r; dx <= r; ++dx) {
          if (x + dx < 0 || y + dy < 0 || x + dx >= w || y + dy >= h) continue;
          sum += k[dx + r] * k[dy + r] * src[size_t(y + dy) * w + x + dx];
          weights += k[dx + r] * k[dy + r];
        }
      out[size_t(y) * w + x] = interior ? (sum >> shift) : sum / weights;
      written[size_t(y) * w + x] = true;
    }
  return out;
}
const std::vector<int64_t> kRow5 = {1, 4, 6, 4, 1};
const std::vector<int64_t> kRow11 = {1, 10, 45, 120, 210, 252, 210, 120, 45, 10, 1};
template <typename T>
std::vector<int64_t> Gauss5x5Model(const std::vector<T>& src, int w, int h, bool frame, std::vector<bool>& written) {
  return GaussNxNModel(src, w, h, frame, written, kRow5);
}

TEST_F(FilterTest, Gaussian11x11MatchesModel) {
  for (const uint32_t w : {11u, 14u, 29u}) {
    const uint32_t h = w == 29 ? 12 : 13;
    Img src(w, h);
    src.Randomize(rng_);
    std::vector<bool> written;
    for (int32_t blur = 0; blur <= 1; ++blur) {
      const auto want = GaussNxNModel(src.px, w, h, blur, written, kRow11);
      std::vector<int> expect(want.size());
      for (size_t i = 0; i < want.size(); ++i) expect[i] = written[i] ? int(want[i]) : -1;
      Img a(w, h, 0, kMark), b(w, h, 0, kMark);
      tvxFilterGaussian11x11u8(src.data(), w, h, a.data(), blur);
      tvxFilterGaussian11x11u8_v2(src.data(), w, h, 0, b.data(), 0, blur);
      EXPECT_TRUE(Matches(a, expect, kMark)) << w << "x" << h << " blur " << blur;
      EXPECT_EQ(a.px, b.px);
    }
  }
  Img flat(12, 11, 0, 200), out(12, 11, 0, kMark);
  tvxFilterGaussian11x11u8(flat.data(), 12, 11, out.data(), 1);
  for (uint8_t v : out.px) EXPECT_EQ(v, 200);
  tvxFilterGaussian11x11u8(flat.data(), 12, 10, out.data(), 1);
  tvxFilterGaussian11x11u8_v2(flat.data(), 12, 11, 11, out.data(), 12, 1);
  const std::vector<std::string> want = {
      AssertLine("tvxFilterGaussian11x11u8", "src && dst && width && height && height > 10 && width > 10"),
      AssertLine("tvxFilterGaussian11x11u8_v2", "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && dstStride && srcHeight > 10 && srcWidth > 10")};
  EXPECT_EQ(g_lines, want);
}

TEST_F(FilterTest, Gaussian5x5MatchesModel) {
  Img lone(7, 7), dst(7, 7, 0, kMark);
  lone.at(3, 3) = 255;
  tvxFilterGaussian5x5u8(lone.data(), 7, 7, dst.data(), 0);
  EXPECT_EQ(dst.at(3, 3), 35);  // 255 * 36 >> 8
  EXPECT_EQ(dst.at(1, 1), kMark);
  const uint32_t sizes[][2] = {{5, 5}, {6, 9}, {23, 7}, {40, 12}};
  for (const auto& sz : sizes) {
    const uint32_t w = sz[0], h = sz[1];
    SCOPED_TRACE(::testing::Message() << w << "x" << h);
    Img src(w, h);
    src.Randomize(rng_);
    std::vector<bool> written;
    for (int32_t blur = 0; blur <= 1; ++blur) {
      const auto want = Gauss5x5Model(src.px, w, h, blur, written);
      std::vector<int> expect(want.size());
      for (size_t i = 0; i < want.size(); ++i) expect[i] = written[i] ? int(want[i]) : -1;
      Img a(w, h, 0, kMark), b(w, h, 0, kMark);
      tvxFilterGaussian5x5u8(src.data(), w, h, a.data(), blur);
      tvxFilterGaussian5x5u8_v2(src.data(), w, h, 0, b.data(), 0, blur);
      EXPECT_TRUE(Matches(a, expect, kMark));
      EXPECT_EQ(a.px, b.px);
    }
  }
  // Signed 16-bit: negative sums shift arithmetically in the interior and divide toward zero
  // on the frame; two rows are enough (all frame).
  const uint32_t sizes16[][2] = {{1, 2}, {3, 4}, {8, 8}, {19, 6}};
  for (const auto& sz : sizes16) {
    const uint32_t w = sz[0], h = sz[1];
    SCOPED_TRACE(::testing::Message() << "s16 " << w << "x" << h);
    std::vector<int16_t> src(w * h), a(w * h, 0x1234), b(w * h, 0x1234);
    for (auto& v : src) v = static_cast<int16_t>(rng_());
    std::vector<bool> written;
    const auto want = Gauss5x5Model(src, w, h, true, written);
    tvxFilterGaussian5x5s16(src.data(), w, h, a.data(), 1);
    tvxFilterGaussian5x5s16_v2(src.data(), w, h, 0, b.data(), 0, 1);
    for (size_t i = 0; i < want.size(); ++i) ASSERT_EQ(a[i], want[i]) << i;
    EXPECT_EQ(a, b);
  }
  // Signed 32-bit: sums beyond 32 bits.
  for (const uint32_t w : {5u, 11u}) {
    const uint32_t h = 6;
    std::vector<int32_t> src(w * h), a(w * h, 7), b(w * h, 7);
    for (auto& v : src) v = rng_() % 4 ? static_cast<int32_t>(rng_()) : (rng_() % 2 ? INT32_MAX : INT32_MIN);
    std::vector<bool> written;
    const auto want = Gauss5x5Model(src, w, h, true, written);
    tvxFilterGaussian5x5s32(src.data(), w, h, a.data(), 1);
    tvxFilterGaussian5x5s32_v2(src.data(), w, h, 0, b.data(), 0, 1);
    for (size_t i = 0; i < want.size(); ++i) ASSERT_EQ(a[i], want[i]) << i;
    EXPECT_EQ(a, b);
  }
  tvxFilterGaussian5x5s32(reinterpret_cast<int32_t*>(lone.data()), 4, 5, nullptr, 1);
  tvxFilterGaussian5x5u8(lone.data(), 4, 7, dst.data(), 1);
  tvxFilterGaussian5x5u8_v2(lone.data(), 7, 7, 6, dst.data(), 7, 1);
  tvxFilterGaussian5x5s16(nullptr, 4, 2, nullptr, 1);
  tvxFilterGaussian5x5s16_v2(reinterpret_cast<int16_t*>(lone.data()), 4, 4, 8, reinterpret_cast<int16_t*>(dst.data()), 7, 1);
  const std::vector<std::string> want = {
      AssertLine("tvxFilterGaussian5x5s32", "src && dst && width && height && width > 4 && height > 4"),
      AssertLine("tvxFilterGaussian5x5u8", "src && dst && width && height && height > 4 && width > 4"),
      AssertLine("tvxFilterGaussian5x5u8_v2", "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && dstStride && srcHeight > 4 && srcWidth > 4"),
      AssertLine("tvxFilterGaussian5x5s16", "src && dst && width && height && height > 1"),
      AssertLine("tvxFilterGaussian5x5s16_v2", "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth*sizeof(int16_t)) && (dstStride >= srcWidth*sizeof(int16_t)) && srcHeight > 1")};
  EXPECT_EQ(g_lines, want);
}

// ---- erode, dilate, median, box 3x3 --------------------------------------------------------

int MinModel(const std::vector<Tap>& taps) {
  int m = 255;
  for (const Tap& t : taps) m = std::min(m, t.value);
  return m;
}
int MaxModel(const std::vector<Tap>& taps) {
  int m = 0;
  for (const Tap& t : taps) m = std::max(m, t.value);
  return m;
}
int MedianModel(const std::vector<Tap>& taps) {
  std::vector<int> v;
  for (const Tap& t : taps) v.push_back(t.value);
  std::nth_element(v.begin(), v.begin() + 4, v.end());
  return v[4];
}
int BoxModel(const std::vector<Tap>& taps) {
  int sum = 0;
  for (const Tap& t : taps) sum += t.value;
  return (sum * 7282 + 32768) >> 16;
}

using StridedFn = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);
using LegacyFn = void (*)(const uint8_t*, uint32_t, uint32_t, uint8_t*);
using BorderedFn = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, uint32_t, uint8_t);

struct Filter3x3 {
  const char* name;
  LegacyFn legacy;
  StridedFn strided;
  Frame stridedFrame;
  BorderedFn bordered;
  Frame typeZero;
  Reducer model;
};

TEST_F(FilterTest, MorphologyAndMedianMatchModel) {
  const Filter3x3 filters[] = {
      {"erode", tvxFilterErode3x3u8, tvxFilterErode3x3u8_v2, Frame::kInsideOnly, tvxFilterErode3x3u8_v3,
       Frame::kInsideOnly, MinModel},
      {"dilate", tvxFilterDilate3x3u8, tvxFilterDilate3x3u8_v2, Frame::kInsideOnly, tvxFilterDilate3x3u8_v3,
       Frame::kInsideOnly, MaxModel},
      {"median", tvxFilterMedian3x3u8, tvxFilterMedian3x3u8_v2, Frame::kUntouched, tvxFilterMedian3x3u8_v3,
       Frame::kReplicate, MedianModel},
      {"box", nullptr, tvxBoxFilter3x3u8, Frame::kConstant, tvxBoxFilter3x3u8_v2, Frame::kConstant, BoxModel},
  };
  const uint32_t sizes[][2] = {{1, 1}, {1, 5}, {5, 1}, {2, 2}, {3, 3}, {4, 7}, {19, 5}, {33, 12}};
  for (const Filter3x3& f : filters) {
    for (const auto& sz : sizes) {
      const uint32_t w = sz[0], h = sz[1];
      SCOPED_TRACE(::testing::Message() << f.name << " " << w << "x" << h);
      Img src(w, h, 2);
      src.Randomize(rng_);
      // Box's first form takes outside pixels as 0 and needs 3 x 3 at least.
      const bool boxTooSmall = !f.legacy && (w < 3 || h < 3);
      if (!boxTooSmall) {
        Img dst(w, h, 3, kMark);
        f.strided(src.data(), w, h, src.stride, dst.data(), dst.stride);
        EXPECT_TRUE(Matches(dst, Model3x3(src, f.stridedFrame, 0, f.model), kMark));
      }
      if (f.legacy) {
        Img packed(w, h), a(w, h, 0, kMark), b(w, h, 0, kMark);
        packed.Randomize(rng_);
        f.legacy(packed.data(), w, h, a.data());
        f.strided(packed.data(), w, h, 0, b.data(), 0);
        EXPECT_EQ(a.px, b.px);
      }
      const Frame rules[] = {f.typeZero, Frame::kConstant, Frame::kReplicate};
      for (uint32_t type = 0; type <= 2; ++type) {
        Img dst(w, h, 1, kMark);
        EXPECT_EQ(f.bordered(src.data(), w, h, src.stride, dst.data(), dst.stride, type, 99), 0);
        EXPECT_TRUE(Matches(dst, Model3x3(src, rules[type], type == 0 ? 0 : 99, f.model), kMark)) << "type " << type;
      }
    }
  }
}

TEST_F(FilterTest, BoxDocumentedValues) {
  Img white(5, 4, 0, 255), dst(5, 4, 0, kMark);
  tvxBoxFilter3x3u8(white.data(), 5, 4, 5, dst.data(), 5);
  EXPECT_EQ(dst.at(0, 0), 113);  // (4 * 255 * 7282 + 32768) >> 16
  EXPECT_EQ(dst.at(2, 0), 170);  // six pixels inside
  EXPECT_EQ(dst.at(2, 2), 255);
  EXPECT_EQ(tvxBoxFilter3x3u8_v2(white.data(), 5, 4, 0, dst.data(), 0, 2, 0), 0);
  EXPECT_EQ(dst.at(0, 0), 255);
  EXPECT_EQ(tvxBoxFilter3x3u8_v2(white.data(), 5, 4, 0, dst.data(), 0, 1, 30), 0);
  EXPECT_EQ(dst.at(0, 0), (4 * 255 + 5 * 30) * 7282 / 65536 + ((4 * 255 + 5 * 30) * 7282 % 65536 >= 32768));
}

TEST_F(FilterTest, FilterRejectionsLogOrReturnThree) {
  Img src(8, 8, 0, 1), dst(8, 8, 0, kMark);
  tvxFilterErode3x3u8(src.data(), 8, 8, nullptr);
  tvxFilterDilate3x3u8_v2(src.data(), 8, 8, 8, dst.data(), 7);
  tvxFilterMedian3x3u8(src.data(), 0, 8, dst.data());
  tvxFilterMedian3x3u8_v2(src.data(), 8, 8, 4, dst.data(), 8);
  tvxBoxFilter3x3u8(src.data(), 8, 2, 8, dst.data(), 8);
  tvxBoxFilter3x3u8(src.data(), 8, 8, 0, dst.data(), 8);  // the first box form has no packed default
  const std::string box = "src && dst && srcWidth && srcHeight && srcStride && dstStride && ( srcStride >=srcWidth ) && srcWidth > 2 && srcHeight > 2";
  const std::vector<std::string> want = {
      AssertLine("tvxFilterErode3x3u8", "src && width && height && dst"),
      AssertLine("tvxFilterDilate3x3u8_v2", "src && srcWidth && srcHeight && (srcStride >= srcWidth) && dst && (dstStride >= srcWidth)"),
      AssertLine("tvxFilterMedian3x3u8", "src && dst && width && height"),
      AssertLine("tvxFilterMedian3x3u8_v2", "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && dstStride"),
      AssertLine("tvxBoxFilter3x3u8", box), AssertLine("tvxBoxFilter3x3u8", box)};
  EXPECT_EQ(g_lines, want);
  const BorderedFn bordered[] = {tvxFilterErode3x3u8_v3, tvxFilterDilate3x3u8_v3, tvxFilterMedian3x3u8_v3,
                                 tvxBoxFilter3x3u8_v2};
  for (BorderedFn f : bordered) {
    EXPECT_EQ(f(src.data(), 8, 8, 0, dst.data(), 0, 3, 0), 3);
    EXPECT_EQ(f(nullptr, 8, 8, 0, dst.data(), 0, 0, 0), 3);
    EXPECT_EQ(f(src.data(), 8, 0, 0, dst.data(), 0, 0, 0), 3);
  }
  EXPECT_EQ(tvxFilterMedian3x3u8_v3C(src.data(), 8, 8, 8, dst.data(), 8, 7, 0), 3);
  EXPECT_EQ(tvxBoxFilter3x3u8_v2C(src.data(), 8, 8, 8, dst.data(), 8, 3, 0), 3);
  for (uint8_t v : dst.px) EXPECT_EQ(v, kMark);
}

TEST_F(FilterTest, BoxMeans5x5And11x11) {
  using Fn = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);
  struct Case { Fn fn; int r; };
  for (const Case& c : {Case{tvxBoxFilter5x5u8, 2}, Case{tvxBoxFilter11x11u8, 5}}) {
    const int area = (2 * c.r + 1) * (2 * c.r + 1);
    for (const uint32_t w : {uint32_t(2 * c.r + 1), 17u, 40u}) {
      const uint32_t h = 2 * c.r + 3;
      SCOPED_TRACE(::testing::Message() << "radius " << c.r << " " << w << "x" << h);
      Img src(w, h, 2), dst(w, h, 1, kMark);
      src.Randomize(rng_);
      c.fn(src.data(), w, h, src.stride, dst.data(), dst.stride);
      std::vector<int> want(w * h);
      for (int y = 0; y < int(h); ++y)
        for (int x = 0; x < int(w); ++x) {
          int sum = 0;
          for (int sy = std::max(0, y - c.r); sy <= std::min(int(h) - 1, y + c.r); ++sy)
            for (int sx = std::max(0, x - c.r); sx <= std::min(int(w) - 1, x + c.r); ++sx) sum += src.at(sx, sy);
          want[y * w + x] = (sum + area / 2) / area;
        }
      EXPECT_TRUE(Matches(dst, want, kMark));
    }
  }
  Img white(12, 11, 0, 255), out(12, 11, 0, kMark);
  tvxBoxFilter5x5u8(white.data(), 12, 11, 12, out.data(), 12);
  EXPECT_EQ(out.at(0, 0), 92);  // (9 * 255 + 12) / 25
  EXPECT_EQ(out.at(5, 5), 255);
  tvxBoxFilter5x5u8(white.data(), 4, 11, 12, out.data(), 12);
  tvxBoxFilter11x11u8(white.data(), 12, 10, 12, out.data(), 12);
  const std::vector<std::string> want = {
      AssertLine("tvxBoxFilter5x5u8", "src && dst && srcWidth && srcHeight && srcStride && dstStride && ( srcStride >=srcWidth ) && srcWidth > 4 && srcHeight > 4"),
      AssertLine("tvxBoxFilter11x11u8", "src && dst && srcWidth && srcHeight && srcStride && dstStride && ( srcStride >=srcWidth ) && srcWidth > 10 && srcHeight > 10")};
  EXPECT_EQ(g_lines, want);
}

// ---- thresholds ------------------------------------------------------------------------------

TEST_F(FilterTest, ThresholdComparisons) {
  Img src(256, 1), dst(256, 1, 0, kMark);
  for (uint32_t x = 0; x < 256; ++x) src.at(x, 0) = static_cast<uint8_t>(x);
  for (uint32_t t : {0u, 1u, 100u, 255u, 300u}) {
    tvxFilterThresholdu8(src.data(), 256, 1, dst.data(), t);
    for (uint32_t x = 0; x < 256; ++x) ASSERT_EQ(dst.at(x, 0), x >= std::min(t, 255u) ? 255 : 0) << t << " " << x;
    EXPECT_EQ(tvxFilterThresholdu8_v3(src.data(), 256, 1, 0, dst.data(), 0, t, 7, 9), 0);
    for (uint32_t x = 0; x < 256; ++x) ASSERT_EQ(dst.at(x, 0), x > t ? 7 : 9) << t << " " << x;
  }
  EXPECT_EQ(tvxFilterThresholdRangeu8(src.data(), 256, 1, 256, dst.data(), 256, 10, 20), 0);
  for (uint32_t x = 0; x < 256; ++x) ASSERT_EQ(dst.at(x, 0), x >= 10 && x <= 20 ? 255 : 0);
  EXPECT_EQ(tvxFilterThresholdRangeu8_v2(src.data(), 256, 1, 0, dst.data(), 0, 30, 29, 1, 2), 0);
  for (uint32_t x = 0; x < 256; ++x) ASSERT_EQ(dst.at(x, 0), 2);  // an empty range
  // In place with equal strides.
  Img img(256, 1);
  img.px = src.px;
  tvxFilterThresholdu8_v2(img.data(), 200, 1, 256, img.data(), 256, 128);
  for (uint32_t x = 0; x < 256; ++x) ASSERT_EQ(img.at(x, 0), x >= 200 ? x : (x >= 128 ? 255 : 0));
}

// Otsu from first principles: class weights and means recomputed for every split.
uint32_t OtsuModel(const Img& img) {
  std::vector<double> hist(256, 0.0);
  for (uint32_t y = 0; y < img.h; ++y)
    for (uint32_t x = 0; x < img.w; ++x) hist[img.at(x, y)] += 1;
  const double n = double(img.w) * img.h;
  double best = 0;
  uint32_t level = 0;
  for (uint32_t t = 0; t < 256; ++t) {
    double c1 = 0, s1 = 0, c2 = 0, s2 = 0;
    for (uint32_t i = 0; i < 256; ++i) (i <= t ? c1 : c2) += hist[i], (i <= t ? s1 : s2) += i * hist[i];
    const double q1 = c1 / n, q2 = c2 / n;
    if (std::min(q1, q2) < 1.1920928955078125e-7 || std::max(q1, q2) > 0.9999998807907104) continue;
    const double d = s1 / c1 - s2 / c2;
    if (q1 * q2 * d * d > best * (1 + 1e-12)) best = q1 * q2 * d * d, level = t;
  }
  return level + 1;
}

TEST_F(FilterTest, OtsuThresholdsAtTheBestSplit) {
  Img flat(9, 4, 0, 5), out(9, 4, 0, kMark);
  tvxFilterThresholdOtsuu8(flat.data(), 9, 4, 9, out.data(), 9, 0);
  for (uint8_t v : out.px) EXPECT_EQ(v, 255);  // one grey level: threshold 1
  Img black(9, 4, 0, 0);
  tvxFilterThresholdOtsuu8(black.data(), 9, 4, 9, out.data(), 9, 1);
  for (uint8_t v : out.px) EXPECT_EQ(v, 255);  // inverse: 0 < 1
  for (int trial = 0; trial < 6; ++trial) {
    Img src(31, 17, 2);
    // Two clusters of random spread around random centres.
    const int c1 = 20 + rng_() % 60, c2 = 140 + rng_() % 90, spread = 5 + trial * 8;
    for (uint32_t y = 0; y < src.h; ++y)
      for (uint32_t x = 0; x < src.w; ++x)
        src.at(x, y) = static_cast<uint8_t>(std::clamp<int>((rng_() % 3 ? c1 : c2) + int(rng_() % (2 * spread)) - spread, 0, 255));
    const uint32_t t = OtsuModel(src);
    for (int32_t type : {0, 1, 2}) {
      Img dst(31, 17, 1, kMark);
      tvxFilterThresholdOtsuu8(src.data(), 31, 17, src.stride, dst.data(), dst.stride, type);
      std::vector<int> want(31 * 17);
      for (uint32_t y = 0; y < 17; ++y)
        for (uint32_t x = 0; x < 31; ++x)
          want[y * 31 + x] = type == 1 ? (src.at(x, y) < t ? 255 : 0) : (src.at(x, y) >= std::min(t, 255u) ? 255 : 0);
      EXPECT_TRUE(Matches(dst, want, kMark)) << "trial " << trial << " type " << type << " threshold " << t;
    }
  }
}

TEST_F(FilterTest, ThresholdRejections) {
  Img src(8, 8, 0, 1), dst(8, 8, 0, kMark);
  tvxFilterThresholdu8(src.data(), 8, 8, nullptr, 5);
  tvxFilterThresholdu8(src.data(), 8, 8, dst.data(), 0x80000000u);
  tvxFilterThresholdu8_v2(src.data(), 8, 4, 8, src.data(), 16, 5);  // in place, strides differ
  tvxFilterThresholdu8_v2(src.data(), 8, 8, 4, dst.data(), 8, 5);
  tvxFilterThresholdOtsuu8(src.data(), 4, 8, 8, src.data(), 4, 0);
  tvxFilterThresholdOtsuu8(src.data(), 8, 8, 8, dst.data(), 7, 0);
  const std::string v2 = "src && dst && dstStride && srcStride && (srcStride >=srcWidth) && (signed)threshold >= 0";
  const std::string otsu = "src && dst && srcStride >= srcWidth && dstStride >= srcWidth";
  const std::vector<std::string> want = {
      AssertLine("tvxFilterThresholdu8", "src && dst && (signed)threshold >= 0"),
      AssertLine("tvxFilterThresholdu8", "src && dst && (signed)threshold >= 0"),
      AssertLine("tvxFilterThresholdu8_v2", "srcStride == dstStride"),
      AssertLine("tvxFilterThresholdu8_v2", v2),
      AssertLine("tvxFilterThresholdOtsuu8", "srcStride == dstStride"),
      AssertLine("tvxFilterThresholdOtsuu8", otsu)};
  EXPECT_EQ(g_lines, want);
  EXPECT_EQ(tvxFilterThresholdu8_v3(src.data(), 8, 8, 0, dst.data(), 0, 0xFFFFFFFFu, 1, 2), 3);
  EXPECT_EQ(tvxFilterThresholdu8_v3(src.data(), 8, 4, 8, src.data(), 16, 5, 1, 2), 3);
  EXPECT_EQ(tvxFilterThresholdu8_v3(src.data(), 8, 8, 4, dst.data(), 8, 5, 1, 2), 3);
  EXPECT_EQ(tvxFilterThresholdRangeu8(src.data(), 8, 8, 0, dst.data(), 8, 1, 2), 3);
  EXPECT_EQ(tvxFilterThresholdRangeu8(src.data(), 8, 8, 8, dst.data(), 7, 1, 2), 3);
  EXPECT_EQ(tvxFilterThresholdRangeu8_v2(src.data(), 8, 4, 8, src.data(), 16, 1, 2, 3, 4), 3);
  EXPECT_EQ(tvxFilterThresholdRangeu8_v2(nullptr, 8, 8, 0, dst.data(), 0, 1, 2, 3, 4), 3);
  for (uint8_t v : dst.px) EXPECT_EQ(v, kMark);
  for (uint8_t v : src.px) EXPECT_EQ(v, 1);
}

// ---- adaptive thresholds ----------------------------------------------------------------------

using AdaptiveFn = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t, int32_t, int32_t, uint8_t*, uint32_t);

TEST_F(FilterTest, AdaptiveThresholdAgainstBlurAndOffsetRule) {
  struct Case { AdaptiveFn fn; std::function<void(const Img&, Img&)> blur; };
  const Case cases[] = {
      {tvxAdaptiveThresholdGaussian3x3u8,
       [](const Img& s, Img& b) { tvxFilterGaussian3x3u8_v2(s.px.data(), s.w, s.h, s.stride, b.data(), b.stride, 1); }},
      {tvxAdaptiveThresholdGaussian5x5u8,
       [](const Img& s, Img& b) { tvxFilterGaussian5x5u8_v2(s.px.data(), s.w, s.h, s.stride, b.data(), b.stride, 1); }},
      {tvxAdaptiveThresholdMean3x3u8,
       [](const Img& s, Img& b) { tvxBoxFilter3x3u8(s.px.data(), s.w, s.h, s.stride, b.data(), b.stride); }},
      {tvxAdaptiveThresholdGaussian11x11u8,
       [](const Img& s, Img& b) { tvxFilterGaussian11x11u8_v2(s.px.data(), s.w, s.h, s.stride, b.data(), b.stride, 1); }},
      {tvxAdaptiveThresholdMean5x5u8,
       [](const Img& s, Img& b) { tvxBoxFilter5x5u8(s.px.data(), s.w, s.h, s.stride, b.data(), b.stride); }},
      {tvxAdaptiveThresholdMean11x11u8,
       [](const Img& s, Img& b) { tvxBoxFilter11x11u8(s.px.data(), s.w, s.h, s.stride, b.data(), b.stride); }},
  };
  const int32_t offsets[][2] = {{0, 5}, {0, -5}, {1, 5}, {1, -5}, {0, 0}, {1, 0}, {0, 255}, {1, -254 + 1}, {0, -255}};
  for (const Case& c : cases) {
    Img src(21, 12, 3);
    src.Randomize(rng_);
    Img blurred(21, 12, 2);
    c.blur(src, blurred);
    for (const auto& o : offsets) {
      const int32_t type = o[0], value = o[1];
      SCOPED_TRACE(::testing::Message() << "type " << type << " value " << value);
      Img dst(21, 12, 2, kMark);
      c.fn(src.data(), 21, 12, src.stride, 200, type, value, dst.data(), dst.stride);
      std::vector<int> want(21 * 12);
      const int t = std::min(std::abs(value - type), 255);
      for (uint32_t y = 0; y < 12; ++y)
        for (uint32_t x = 0; x < 21; ++x) {
          const int sv = src.at(x, y), b = blurred.at(x, y);
          const int d = value > 0 ? std::max(b - sv, 0) : std::max(sv - b, 0);
          const bool cond = value > 0 ? type == 0 : type == 1;
          want[y * 21 + x] = (cond && t > d) || (!cond && d > t) ? 200 : 0;
        }
      EXPECT_TRUE(Matches(dst, want, kMark));
    }
  }
}

TEST_F(FilterTest, AdaptiveThresholdShortcutsSkipTheBlur) {
  struct Case { int32_t type, value; int fill; };
  const Case cases[] = {{1, -254, 77}, {1, -255, 77}, {0, 256, 77}, {0, -256, 0}, {1, 256, 0}, {1, 255, -1}};
  for (AdaptiveFn fn : {tvxAdaptiveThresholdGaussian3x3u8, tvxAdaptiveThresholdGaussian5x5u8,
                        tvxAdaptiveThresholdMean3x3u8, tvxAdaptiveThresholdGaussian11x11u8,
                        tvxAdaptiveThresholdMean5x5u8, tvxAdaptiveThresholdMean11x11u8}) {
    Img src(11, 11);
    src.Randomize(rng_);
    for (const Case& c : cases) {
      Img dst(11, 11, 2, kMark);
      fn(src.data(), 11, 11, 11, 77, c.type, c.value, dst.data(), dst.stride);
      if (c.fill < 0) continue;  // 255 is a real offset: blurred and decided
      EXPECT_TRUE(Matches(dst, std::vector<int>(11 * 11, c.fill), kMark)) << c.type << " " << c.value;
    }
    // An unknown type clears the destination, row padding included.
    Img dst(11, 11, 2, kMark);
    fn(src.data(), 11, 11, 11, 77, 2, 3, dst.data(), dst.stride);
    for (uint8_t v : dst.px) EXPECT_EQ(v, 0);
  }
  Img src(8, 8);
  tvxAdaptiveThresholdGaussian3x3u8(src.data(), 1, 8, 8, 1, 0, 0, src.data(), 8);
  tvxAdaptiveThresholdMean3x3u8(src.data(), 8, 8, 8, 1, 0, 0, src.data(), 0);
  tvxAdaptiveThresholdGaussian5x5u8(src.data(), 8, 4, 8, 1, 0, 0, src.data(), 8);
  tvxAdaptiveThresholdGaussian11x11u8(src.data(), 8, 4, 8, 1, 0, 0, src.data(), 8);
  tvxAdaptiveThresholdMean5x5u8(src.data(), 8, 4, 8, 1, 0, 0, src.data(), 8);
  tvxAdaptiveThresholdMean11x11u8(src.data(), 8, 4, 8, 1, 0, 0, src.data(), 8);
  const std::vector<std::string> want = {
      AssertLine("tvxAdaptiveThresholdGaussian3x3u8", "src && dst && (srcWidth > 1) && (srcHeight > 1) && (srcStride >= srcWidth) && (dstStride >= srcWidth)"),
      AssertLine("tvxAdaptiveThresholdMean3x3u8", "src && dst && srcWidth && srcHeight && srcStride && dstStride && ( srcStride >=srcWidth ) && srcWidth > 2 && srcHeight > 2"),
      AssertLine("tvxAdaptiveThresholdGaussian5x5u8", "src && dst && srcWidth && srcHeight && (srcStride >= srcWidth) && dstStride && srcHeight > 4 && srcWidth > 4"),
      AssertLine("tvxAdaptiveThresholdGaussian11x11u8", "src && dst && srcWidth > 10 && srcHeight && (srcStride >= srcWidth) && dstStride && srcHeight > 10"),
      AssertLine("tvxAdaptiveThresholdMean5x5u8", "src && dst && srcWidth && srcHeight && srcStride && dstStride && (srcStride >=srcWidth) && srcWidth > 4 && srcHeight > 4"),
      AssertLine("tvxAdaptiveThresholdMean11x11u8", "src && dst && srcWidth && srcHeight && srcStride && dstStride && ( srcStride >=srcWidth) && srcWidth > 10 && srcHeight > 10")};
  EXPECT_EQ(g_lines, want);
}

// ---- tier downgrades -------------------------------------------------------------------------

int g_slot = -1;
template <int kSlot>
void SpyGaussian(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, int32_t) { g_slot = kSlot; }

TEST_F(FilterTest, GaussianLegacyDowngradeIgnoresTheConstraintFlag) {
  const uint32_t row = TVX_ROW_tvxFilterGaussian3x3u8;
  void* saved[TVX_NUM_IMPL];
  std::copy(std::begin(tvxFuncTable[row]), std::end(tvxFuncTable[row]), saved);
  tvxFuncTable[row][1] = reinterpret_cast<void*>(&SpyGaussian<1>);
  tvxFuncTable[row][5] = reinterpret_cast<void*>(&SpyGaussian<5>);
  tvxImplTable[row] = 5;
  alignas(16) static uint8_t src[200 * 200], dst[200 * 200];
  struct Case { uint32_t flag, width, height, offset; bool legacy; int slot; };
  const Case cases[] = {
      {1, 8, 8, 0, true, 5},     // legacy: aligned, width % 4 == 0, however small
      {0, 10, 8, 0, true, 1},    // legacy: width % 4 != 0 lowers even with the checks off
      {1, 8, 8, 2, true, 1},     // legacy: misaligned source
      {1, 176, 144, 0, false, 1},  // strided form: 25344 pixels are too few
      {1, 176, 145, 0, false, 5},
      {0, 10, 8, 0, false, 5},   // strided form: the flag off keeps the tier
      {1, 176, 145, 4, false, 1},  // strided form: 8-byte alignment
  };
  for (const Case& c : cases) {
    HW_constraint_checks_enable = c.flag;
    g_slot = -1;
    if (c.legacy) tvxFilterGaussian3x3u8(src + c.offset, c.width, c.height, dst, 1);
    else tvxFilterGaussian3x3u8_v2(src + c.offset, c.width, c.height, c.width, dst, c.width, 1);
    EXPECT_EQ(g_slot, c.slot) << c.width << "x" << c.height << " legacy " << c.legacy << " flag " << c.flag;
  }
  std::copy(std::begin(saved), std::end(saved), tvxFuncTable[row]);
  tvxImplTable[row] = 0;
}

template <int kSlot>
void SpyMedian(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t) { g_slot = kSlot; }

TEST_F(FilterTest, MedianDowngradeFollowsItsTierRules) {
  const uint32_t row = TVX_ROW_tvxFilterMedian3x3u8;
  void* saved[TVX_NUM_IMPL];
  std::copy(std::begin(tvxFuncTable[row]), std::end(tvxFuncTable[row]), saved);
  tvxFuncTable[row][1] = reinterpret_cast<void*>(&SpyMedian<1>);
  tvxFuncTable[row][3] = reinterpret_cast<void*>(&SpyMedian<3>);
  tvxFuncTable[row][4] = reinterpret_cast<void*>(&SpyMedian<4>);
  alignas(16) static uint8_t src[200 * 200], dst[200 * 200];
  struct Case { uint32_t tier, flag, width, height, offset; int slot; };
  const Case cases[] = {
      {3, 1, 16, 2, 0, 3},    {3, 0, 12, 2, 0, 1},   {3, 1, 16, 2, 8, 1},      // GPU: 16-byte aligned, width % 8
      {4, 1, 168, 152, 0, 4}, {4, 1, 168, 150, 0, 1},                          // 25536 vs 25200 pixels
      {4, 1, 9000, 3, 0, 1},  {4, 1, 9000, 4, 8, 4}, {4, 1, 172, 160, 0, 1},  // height >= 4, width % 8
      {4, 0, 12, 3, 1, 4},    {0, 1, 12, 3, 1, -2},
  };
  for (const Case& c : cases) {
    tvxImplTable[row] = c.tier;
    HW_constraint_checks_enable = c.flag;
    g_slot = -1;
    tvxFilterMedian3x3u8(src + c.offset, c.width, c.height, dst);
    if (c.slot >= 0) EXPECT_EQ(g_slot, c.slot) << c.tier << " " << c.width << "x" << c.height;
    else EXPECT_EQ(g_slot, -1);  // tier 0 runs the reference variant
  }
  std::copy(std::begin(saved), std::end(saved), tvxFuncTable[row]);
  tvxImplTable[row] = 0;
}

}  // namespace
