// Canny detectors and the edge-pixel list through their public entries: constant images, the
// threshold pre-check, the non-maximum tie, a straightforward model of both detectors on
// random blocky images, the 5-entry trace stack on a hand-made branchy edge, argument
// rejection and the Canny tier rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "cpu/gradient_rules.h"
#include "frame/frame.h"
#include "log_capture.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;

constexpr uint8_t kMark = 0xEE;

struct Img {
  int w, h, stride;
  std::vector<uint8_t> px;
  Img(int width, int height, int pad = 0, uint8_t fill = kMark)
      : w(width), h(height), stride(width + pad), px(size_t(width + pad) * height, fill) {}
  uint8_t& at(int x, int y) { return px[size_t(y) * stride + x]; }
  int p(int x, int y) const { return px[size_t(y) * stride + x]; }
  uint8_t* data() { return px.data(); }
};

class CannyTest : public ::testing::Test {
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
  std::mt19937 rng_{5};
};

void FillBlocks(Img& img, std::mt19937& rng, int block) {
  std::vector<int> levels(16);
  for (int& l : levels) l = rng() % 4 == 0 ? 255 * int(rng() % 2) : int(rng() % 256);
  for (int y = 0; y < img.h; ++y)
    for (int x = 0; x < img.w; ++x)
      img.at(x, y) = uint8_t(rng() % 20 == 0 ? rng() % 256 : levels[((x / block) * 5 + (y / block) * 3) % 16]);
}

// ---- model of the 3x3 detector ---------------------------------------------------------------

struct Model3x3 {
  std::vector<int> gx, gy;  // central differences of the smoothed image, 0 on the frame
  std::vector<uint8_t> edges;
};

Model3x3 Canny3x3Model(const Img& src, int low, int high) {
  const int w = src.w, h = src.h;
  // Gaussian 3x3 with the kernel cut to the image and renormalised on the frame.
  std::vector<int> s(size_t(w) * h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      int sum = 0, wt = 0;
      for (int j = -1; j <= 1; ++j)
        for (int i = -1; i <= 1; ++i) {
          if (x + i < 0 || y + j < 0 || x + i >= w || y + j >= h) continue;
          const int k = (i == 0 ? 2 : 1) * (j == 0 ? 2 : 1);
          sum += k * src.p(x + i, y + j);
          wt += k;
        }
      const bool inner = x > 0 && y > 0 && x < w - 1 && y < h - 1;
      s[y * w + x] = inner ? sum >> 4 : sum / wt;
    }
  Model3x3 m;
  m.gx.assign(size_t(w) * h, 0);
  m.gy.assign(size_t(w) * h, 0);
  std::vector<long> mag(size_t(w) * h, 0);
  std::vector<int> dir(size_t(w) * h, 0);
  long maxMag = 0;
  for (int y = 1; y < h - 1; ++y)
    for (int x = 1; x < w - 1; ++x) {
      const int hx = s[y * w + x + 1] - s[y * w + x - 1], vy = s[(y + 1) * w + x] - s[(y - 1) * w + x];
      m.gx[y * w + x] = hx;
      m.gy[y * w + x] = vy;
      mag[y * w + x] = long(hx) * hx + long(vy) * vy;
      maxMag = std::max(maxMag, mag[y * w + x]);
      int d;
      if (hx == 0 && vy == 0) d = 0;
      else if (std::abs(hx) > 2 * std::abs(vy)) d = 1;
      else if (std::abs(vy) > 2 * std::abs(hx)) d = 2;
      else d = (hx > 0) == (vy > 0) ? 3 : 4;  // down-right or up-left: the main diagonal
      dir[y * w + x] = d;
    }
  auto thr = [&](int t) { return long(std::floor(float(t) * float(t) / 256.0f * (float(maxMag) / 256.0f))); };
  const long tl = thr(low), th = thr(high);
  // Offsets along the compared direction (dx, dy) per code.
  const int ax[5] = {0, 1, 0, 1, -1}, ay[5] = {0, 0, 1, 1, 1};
  std::vector<bool> maxim(size_t(w) * h, false), weak(size_t(w) * h, false), strong(size_t(w) * h, false);
  for (int y = 2; y < h - 2; ++y)
    for (int x = 2; x < w - 2; ++x) {
      const int d = dir[y * w + x];
      const long mm = mag[y * w + x];
      if (d) {
        const long fwd = mag[(y + ay[d]) * w + x + ax[d]], back = mag[(y - ay[d]) * w + x - ax[d]];
        maxim[y * w + x] = mm >= fwd && mm > back;
      }
      weak[y * w + x] = maxim[y * w + x] && mm >= tl;
      strong[y * w + x] = maxim[y * w + x] && mm >= th;
    }
  m.edges.assign(size_t(w) * h, 0);
  // Trace across the compared direction with a stack of at most five pixels.
  for (int y = 2; y < h - 2; ++y)
    for (int x = 2; x < w - 2; ++x) {
      if (!strong[y * w + x]) continue;
      m.edges[y * w + x] = 255;
      std::vector<std::pair<int, int>> stack = {{x, y}};
      while (!stack.empty()) {
        auto [px, py] = stack.back();
        stack.pop_back();
        const int d = dir[py * w + px];
        if (!d) continue;
        const int cx = d == 1 ? 0 : (d == 2 ? 1 : -ax[d]), cy = d == 1 ? 1 : (d == 2 ? 0 : ay[d]);
        for (int sgn : {-1, 1}) {
          const int qx = px + sgn * cx, qy = py + sgn * cy;
          if ((qx == x && qy == y) || !weak[qy * w + qx] || m.edges[qy * w + qx] == 255 || stack.size() == 5) continue;
          m.edges[qy * w + qx] = 255;
          stack.push_back({qx, qy});
        }
      }
    }
  return m;
}

TEST_F(CannyTest, Canny3x3MatchesTheModel) {
  for (auto [w, h] : {std::pair{3, 3}, std::pair{4, 9}, std::pair{5, 5}, std::pair{19, 11}, std::pair{48, 30}}) {
    for (int round = 0; round < 4; ++round) {
      SCOPED_TRACE(testing::Message() << w << "x" << h << " round " << round);
      Img src(w, h, 3);
      FillBlocks(src, rng_, 1 + round);
      const int low = int(rng_() % 120), high = low + int(rng_() % 100);
      const Model3x3 m = Canny3x3Model(src, low, high);
      Img dst(w, h, 2), dst2(w, h, 1);
      std::vector<int16_t> gx(size_t(w + 4) * h, 99), gy(size_t(w + 4) * h, 99);
      tvxFilterCanny3x3u8_v3(src.data(), w, h, src.stride, dst.data(), dst.stride, gx.data(), gy.data(), (w + 4) * 2,
                             low, high);
      tvxFilterCanny3x3u8_v2(src.data(), w, h, src.stride, dst2.data(), dst2.stride, low, high);
      ASSERT_TRUE(g_lines.empty()) << g_lines[0];
      for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
          ASSERT_EQ(dst.at(x, y), m.edges[y * w + x]) << x << "," << y;
          ASSERT_EQ(dst2.at(x, y), m.edges[y * w + x]) << x << "," << y;
          ASSERT_EQ(gx[y * (w + 4) + x], m.gx[y * w + x]) << x << "," << y;
          ASSERT_EQ(gy[y * (w + 4) + x], m.gy[y * w + x]) << x << "," << y;
        }
        for (int x = w; x < w + 2; ++x) ASSERT_EQ(dst.at(x, y), kMark);
        ASSERT_EQ(gx[y * (w + 4) + w], 99);
      }
    }
  }
}

TEST_F(CannyTest, ConstantImageGivesNoEdges) {
  Img src(16, 10, 0, 90), dst(16, 10);
  std::vector<int16_t> gx(16 * 10, 5), gy(16 * 10, 5);
  tvxFilterCanny3x3u8(src.data(), 16, 10, dst.data(), 0, 0);
  EXPECT_TRUE(std::all_of(dst.px.begin(), dst.px.end(), [](uint8_t v) { return v == 0; }));
  std::fill(dst.px.begin(), dst.px.end(), kMark);
  tvxFilterCanny3x3u8_v3(src.data(), 16, 10, 0, dst.data(), 0, gx.data(), gy.data(), 0, 10, 20);
  EXPECT_TRUE(std::all_of(dst.px.begin(), dst.px.end(), [](uint8_t v) { return v == 0; }));
  EXPECT_TRUE(std::all_of(gx.begin(), gx.end(), [](int16_t v) { return v == 0; }));
  std::fill(dst.px.begin(), dst.px.end(), kMark);
  EXPECT_EQ(tvxFilterCannyu8(src.data(), 16, 10, 0, 3, 0, 0, 0, dst.data(), 0, gx.data(), gy.data(), 0), 0);
  EXPECT_TRUE(std::all_of(dst.px.begin(), dst.px.end(), [](uint8_t v) { return v == 0; }));
  EXPECT_TRUE(std::all_of(gy.begin(), gy.end(), [](int16_t v) { return v == 0; }));
  EXPECT_TRUE(g_lines.empty());
}

// A step 0 | 240 smooths to 0 60 180 240: the two pixels beside the step both have magnitude
// 180^2; the one whose forward neighbour ties is the local maximum.
TEST_F(CannyTest, NonMaximumTieGoesToThePixelBeforeItsForwardNeighbour) {
  Img src(12, 9);
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 12; ++x) src.at(x, y) = x <= 4 ? 0 : 240;
  Img dst(12, 9);
  std::vector<int16_t> gx(12 * 9), gy(12 * 9);
  tvxFilterCanny3x3u8_v3(src.data(), 12, 9, 0, dst.data(), 0, gx.data(), gy.data(), 0, 100, 100);
  EXPECT_EQ(gx[4 * 12 + 4], 180);
  EXPECT_EQ(gx[4 * 12 + 5], 180);
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 12; ++x) EXPECT_EQ(dst.at(x, y), (x == 4 && y >= 2 && y <= 6) ? 255 : 0) << x << "," << y;
}

TEST_F(CannyTest, ThresholdsOutsideTheRangeLogErrorAndWriteNothing) {
  Img src(16, 10, 0, 0), dst(16, 10);
  tvxFilterCanny3x3u8_v2(src.data(), 16, 10, 16, dst.data(), 16, 256, 300);
  tvxFilterCanny3x3u8(src.data(), 16, 10, dst.data(), 50, 40);
  std::vector<int16_t> g(16 * 10, 1);
  tvxFilterCanny3x3u8_v3(src.data(), 16, 10, 16, dst.data(), 16, g.data(), g.data(), 32, 10, 256);
  ASSERT_EQ(g_lines.size(), 3u);
  EXPECT_EQ(g_lines[0], "tavix_lib_log|Error at tvxFilterCanny3x3u8_v2\n");
  EXPECT_EQ(g_lines[1], "tavix_lib_log|Error at tvxFilterCanny3x3u8\n");
  EXPECT_EQ(g_lines[2], "tavix_lib_log|Error at tvxFilterCanny3x3u8_v3\n");
  EXPECT_TRUE(std::all_of(dst.px.begin(), dst.px.end(), [](uint8_t v) { return v == kMark; }));
  g_lines.clear();
  tvxFilterCanny3x3u8_v2(src.data(), 16, 10, 16, dst.data(), 16, 255, 255);
  EXPECT_TRUE(g_lines.empty());
  EXPECT_EQ(dst.at(5, 5), 0);
}

TEST_F(CannyTest, BadArgumentsLogTheCondition) {
  Img src(16, 10, 0, 0), dst(16, 10);
  std::vector<int16_t> g(16 * 10, 1);
  tvxFilterCanny3x3u8(src.data(), 2, 10, dst.data(), 10, 20);
  tvxFilterCanny3x3u8_v2(src.data(), 16, 10, 16, dst.data(), 15, 10, 20);
  tvxFilterCanny3x3u8_v3(src.data(), 16, 10, 16, dst.data(), 16, g.data(), g.data(), 31, 10, 20);
  ASSERT_EQ(g_lines.size(), 3u);
  EXPECT_EQ(g_lines[0], "tavix_lib_log|Assertion failed @tvxFilterCanny3x3u8: src && width && height && dst && "
                        "(low <= high) && width > 2 && height > 2\n");
  EXPECT_EQ(g_lines[1], "tavix_lib_log|Assertion failed @tvxFilterCanny3x3u8_v2: src && srcWidth && srcHeight && "
                        "(srcStride >= srcWidth) && dst && (dstStride >= srcWidth) && (low <= high) && srcWidth > 2 "
                        "&& srcHeight > 2\n");
  EXPECT_EQ(g_lines[2], "tavix_lib_log|Assertion failed @tvxFilterCanny3x3u8_v3: src && srcWidth && srcHeight && "
                        "(srcStride >= srcWidth) && dst && (dstStride >= srcWidth) && (gradStride >= 2*srcWidth) && "
                        "low <= high && srcWidth > 2 && srcHeight > 2\n");
  EXPECT_TRUE(std::all_of(dst.px.begin(), dst.px.end(), [](uint8_t v) { return v == kMark; }));
  EXPECT_TRUE(std::all_of(g.begin(), g.end(), [](int16_t v) { return v == 1; }));
}

// ---- the 5-entry trace stack -------------------------------------------------------------------

// A hand-made flag map: S strong (code 2, traced left and right); R and the pixels below
// branch so that every popped pixel pushes two: S -> L, R; R (code 1) -> A, B; B (code 2) ->
// C, D; D (code 1) -> E, F; F (code 2) -> G, then H finds the stack full and is dropped.
TEST_F(CannyTest, TraceStackHoldsFiveEntriesAndDropsFurtherBranches) {
  using namespace tvx::canny;
  const int w = 20, h = 20;
  std::vector<uint8_t> flags(w * h, 0);
  const uint8_t weak = kLocalMax | kAboveLow;
  auto set = [&](int x, int y, uint8_t f) { flags[y * w + x] = f; };
  set(10, 10, weak | kAboveHigh | 2);  // S
  set(9, 10, weak);                    // L (code 0: a leaf)
  set(11, 10, weak | 1);               // R: up and down
  set(11, 9, weak);                    // A
  set(11, 11, weak | 2);               // B: left and right
  set(10, 11, weak);                   // C
  set(12, 11, weak | 1);               // D: up and down
  set(12, 10, weak);                   // E
  set(12, 12, weak | 2);               // F: left and right
  set(11, 12, weak);                   // G
  set(13, 12, weak);                   // H: lost to the full stack
  set(14, 12, weak);                   // beyond H: reachable only through it
  std::vector<uint8_t> out(w * h, kMark);
  Hysteresis(flags.data(), w, h, out.data(), w);
  const std::vector<std::pair<int, int>> lit = {{10, 10}, {9, 10}, {11, 10}, {11, 9}, {11, 11},
                                                 {10, 11}, {12, 11}, {12, 10}, {12, 12}, {11, 12}};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const bool on = std::find(lit.begin(), lit.end(), std::pair{x, y}) != lit.end();
      EXPECT_EQ(out[y * w + x], on ? 255 : 0) << x << "," << y;
    }
  // With H made strong it starts its own trace and reaches the pixel beyond it.
  for (uint8_t& f : flags) f &= uint8_t(~kEdge);
  set(13, 12, weak | kAboveHigh | 2);
  Hysteresis(flags.data(), w, h, out.data(), w);
  EXPECT_EQ(out[12 * w + 13], 255);
  EXPECT_EQ(out[12 * w + 14], 255);
}

// ---- the aperture detector ---------------------------------------------------------------------

std::vector<int> SobelModel(const Img& img, int size, bool isDx) {
  static const int d3[] = {-1, 0, 1}, s3[] = {1, 2, 1};
  static const int d5[] = {-1, -2, 0, 2, 1}, s5[] = {1, 4, 6, 4, 1};
  static const int d7[] = {-1, -4, -5, 0, 5, 4, 1}, s7[] = {1, 6, 15, 20, 15, 6, 1};
  const int* d = size == 3 ? d3 : size == 5 ? d5 : d7;
  const int* s = size == 3 ? s3 : size == 5 ? s5 : s7;
  const int r = size / 2;
  std::vector<int> out(size_t(img.w) * img.h);
  for (int y = 0; y < img.h; ++y)
    for (int x = 0; x < img.w; ++x) {
      long sum = 0;
      for (int j = -r; j <= r; ++j)
        for (int i = -r; i <= r; ++i)
          sum += long(isDx ? d[i + r] * s[j + r] : s[i + r] * d[j + r]) *
                 img.p(std::clamp(x + i, 0, img.w - 1), std::clamp(y + j, 0, img.h - 1));
      out[y * img.w + x] = int(std::clamp(sum, -32768L, 32767L));
    }
  return out;
}

std::vector<uint8_t> ApertureModel(const Img& img, int size, int low, int high, int norm, std::vector<int>& gx,
                                   std::vector<int>& gy) {
  const int w = img.w, h = img.h;
  gx = SobelModel(img, size, true);
  gy = SobelModel(img, size, false);
  int64_t lo = std::min(std::abs(low), 32767), hi = std::min(std::abs(high), 32767);
  if (norm == 1) lo *= lo, hi *= hi;
  // 64-bit: twice 32768 squared overflows a 32-bit long.
  auto mag = [&](int x, int y) -> int64_t {
    if (x < 0 || y < 0 || x >= w || y >= h) return 0;
    const int64_t a = gx[y * w + x], b = gy[y * w + x];
    return norm == 1 ? a * a + b * b : std::abs(a) + std::abs(b);
  };
  std::vector<int> map(size_t(w) * h, 0);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const int64_t m = mag(x, y);
      const double ax = std::abs(gx[y * w + x]), ay = std::abs(gy[y * w + x]);
      bool isMax;
      if (ay * 32768 < ax * 13573) isMax = m > mag(x - 1, y) && m >= mag(x + 1, y);
      else if (ay * 32768 <= ax * 79109) {
        const bool same = int64_t(gx[y * w + x]) * gy[y * w + x] >= 0;
        isMax = same ? m > mag(x - 1, y - 1) && m > mag(x + 1, y + 1) : m > mag(x + 1, y - 1) && m > mag(x - 1, y + 1);
      } else isMax = m > mag(x, y - 1) && m >= mag(x, y + 1);
      map[y * w + x] = (!isMax || m <= lo) ? 0 : (m <= hi ? 1 : 2);
    }
  // Grow strong regions through 8-connected weak pixels until nothing changes.
  for (bool changed = true; changed;) {
    changed = false;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        if (map[y * w + x] != 1) continue;
        for (int j = -1; j <= 1 && map[y * w + x] == 1; ++j)
          for (int i = -1; i <= 1; ++i) {
            const int nx = x + i, ny = y + j;
            if (nx >= 0 && ny >= 0 && nx < w && ny < h && map[ny * w + nx] == 2) {
              map[y * w + x] = 2;
              changed = true;
              break;
            }
          }
      }
  }
  std::vector<uint8_t> out(size_t(w) * h);
  for (size_t i = 0; i < out.size(); ++i) out[i] = map[i] == 2 ? 255 : 0;
  return out;
}

TEST_F(CannyTest, ApertureCannyMatchesTheModel) {
  for (auto [w, h] : {std::pair{3, 3}, std::pair{13, 7}, std::pair{40, 25}}) {
    for (int size : {3, 5, 7}) {
      for (int norm : {-1, 0, 1}) {
        SCOPED_TRACE(testing::Message() << w << "x" << h << " size " << size << " norm " << norm);
        Img src(w, h, 2);
        FillBlocks(src, rng_, 2 + size % 3);
        const int scale = size == 3 ? 4 : (size == 5 ? 60 : 800);
        const int low = int(rng_() % 100) * scale, high = low + int(rng_() % 200) * scale;
        std::vector<int> mx, my;
        const std::vector<uint8_t> expect = ApertureModel(src, size, -low, high, norm, mx, my);
        Img dst(w, h, 3);
        std::vector<int16_t> gx(size_t(w + 1) * h, 7), gy(size_t(w + 1) * h, 7);
        ASSERT_EQ(tvxFilterCannyu8(src.data(), w, h, src.stride, size, -low, high, norm, dst.data(), dst.stride,
                                   gx.data(), gy.data(), (w + 1) * 2), 0);
        for (int y = 0; y < h; ++y) {
          for (int x = 0; x < w; ++x) {
            ASSERT_EQ(dst.at(x, y), expect[y * w + x]) << x << "," << y;
            ASSERT_EQ(gx[y * (w + 1) + x], mx[y * w + x]);
            ASSERT_EQ(gy[y * (w + 1) + x], my[y * w + x]);
          }
          ASSERT_EQ(dst.at(w, y), kMark);
          ASSERT_EQ(gx[y * (w + 1) + w], 7);
        }
      }
    }
  }
}

TEST_F(CannyTest, ApertureCannyStepEdgeWorkedValue) {
  Img src(12, 8);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 12; ++x) src.at(x, y) = x < 5 ? 0 : 100;
  Img dst(12, 8);
  std::vector<int16_t> gx(12 * 8), gy(12 * 8);
  ASSERT_EQ(tvxFilterCannyu8(src.data(), 12, 8, 0, 3, 100, 200, 0, dst.data(), 0, gx.data(), gy.data(), 0), 0);
  EXPECT_EQ(gx[3 * 12 + 4], 400);
  EXPECT_EQ(gx[3 * 12 + 5], 400);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 12; ++x) EXPECT_EQ(dst.at(x, y), x == 4 ? 255 : 0) << x << "," << y;
}

TEST_F(CannyTest, ApertureCannyRejectsBadParametersWithoutWriting) {
  Img src(12, 8, 0, 0), dst(12, 8);
  std::vector<int16_t> gx(12 * 8, 3), gy(12 * 8, 3);
  auto call = [&](const uint8_t* s, uint32_t w, uint32_t h, uint32_t ss, int32_t k, int32_t lo, int32_t hi,
                  int32_t norm, uint32_t ds, int16_t* x, uint32_t gs) {
    return tvxFilterCannyu8(s, w, h, ss, k, lo, hi, norm, dst.data(), ds, x, gy.data(), gs);
  };
  EXPECT_EQ(call(src.data(), 12, 8, 0, 4, 1, 2, 0, 0, gx.data(), 0), 3);
  EXPECT_EQ(call(src.data(), 12, 8, 0, 3, 1, 2, 2, 0, gx.data(), 0), 3);
  EXPECT_EQ(call(src.data(), 12, 8, 0, 3, 3, 2, 0, 0, gx.data(), 0), 3);
  EXPECT_EQ(call(src.data(), 2, 8, 0, 3, 1, 2, 0, 0, gx.data(), 0), 3);
  EXPECT_EQ(call(src.data(), 12, 8, 11, 3, 1, 2, 0, 0, gx.data(), 0), 3);
  EXPECT_EQ(call(src.data(), 12, 8, 0, 3, 1, 2, 0, 11, gx.data(), 0), 3);
  EXPECT_EQ(call(src.data(), 12, 8, 0, 3, 1, 2, 0, 0, gx.data(), 23), 3);
  EXPECT_EQ(call(src.data(), 12, 8, 0, 3, 1, 2, 0, 0, nullptr, 0), 3);
  EXPECT_EQ(call(nullptr, 12, 8, 0, 3, 1, 2, 0, 0, gx.data(), 0), 3);
  EXPECT_TRUE(std::all_of(dst.px.begin(), dst.px.end(), [](uint8_t v) { return v == kMark; }));
  EXPECT_TRUE(std::all_of(gx.begin(), gx.end(), [](int16_t v) { return v == 3; }));
  EXPECT_TRUE(std::all_of(gy.begin(), gy.end(), [](int16_t v) { return v == 3; }));
  EXPECT_TRUE(g_lines.empty());
}

// ---- edge-pixel list ---------------------------------------------------------------------------

TEST_F(CannyTest, EdgePixelsAreDirectionalMaximaInScanOrder) {
  const int w = 8, h = 6;
  std::vector<int16_t> g(2 * w * h, 0);
  std::vector<uint8_t> mag(w * h, 0);
  auto put = [&](int x, int y, int gx, int gy, int m) {
    g[2 * (y * w + x)] = int16_t(gx);
    g[2 * (y * w + x) + 1] = int16_t(gy);
    mag[y * w + x] = uint8_t(m);
  };
  put(3, 2, 10, 0, 50);  // horizontal maximum
  put(4, 2, 10, 0, 50);  // ties with its left neighbour: not a maximum
  put(5, 4, 0, 9, 40);   // vertical maximum
  put(1, 1, 5, 5, 30);   // diagonal, same signs: compares (0,0) and (2,2)
  put(2, 2, 5, 5, 20);
  put(6, 1, 5, 5, 10);   // below the threshold
  put(6, 4, 0, 9, 90);   // vertical, but the pixel above is larger
  put(6, 3, 0, 0, 95);   // no gradient falls in the diagonal class: a maximum
  uint32_t coords[16] = {}, n = 99;
  tvxImageDetectEdgePixelsu8(g.data(), w, h, 0, mag.data(), 0, 15, 8, &n, coords);
  ASSERT_EQ(n, 4u);
  const uint32_t expect[] = {1, 1, 3, 2, 6, 3, 5, 4};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(coords[i], expect[i]) << i;
  // The capacity bounds the list.
  uint32_t few[4] = {}, m = 0;
  tvxImageDetectEdgePixelsu8(g.data(), w, h, 4 * w, mag.data(), w, 15, 2, &m, few);
  EXPECT_EQ(m, 2u);
  EXPECT_EQ(few[2], 3u);
  EXPECT_EQ(few[3], 2u);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(CannyTest, EdgePixelsRejectBadArguments) {
  std::vector<int16_t> g(2 * 64, 0);
  std::vector<uint8_t> mag(64, 0);
  uint32_t coords[8] = {}, n = 77;
  tvxImageDetectEdgePixelsu8(g.data(), 8, 8, 0, mag.data(), 0, 1, 4, nullptr, coords);
  tvxImageDetectEdgePixelsu8(g.data(), 8, 8, 30, mag.data(), 0, 1, 4, &n, coords);
  ASSERT_EQ(g_lines.size(), 2u);
  EXPECT_EQ(g_lines[0], "tavix_lib_log|Assertion failed @tvxImageDetectEdgePixelsu8: gxgy && mag && nEdgePixels && "
                        "coordEdgePixels\n");
  EXPECT_EQ(g_lines[1], "tavix_lib_log|Error at tvxImageDetectEdgePixelsu8\n");
  EXPECT_EQ(n, 77u);
}

// ---- tier rules --------------------------------------------------------------------------------

int g_slot = -1;
template <int kSlot>
void SpyCanny(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t, uint32_t, uint32_t) { g_slot = kSlot; }

TEST_F(CannyTest, CannyDowngradeFollowsItsTierRules) {
  const uint32_t row = TVX_ROW_tvxFilterCanny3x3u8;
  void* saved[TVX_NUM_IMPL];
  std::copy(std::begin(tvxFuncTable[row]), std::end(tvxFuncTable[row]), saved);
  tvxFuncTable[row][1] = reinterpret_cast<void*>(&SpyCanny<1>);
  tvxFuncTable[row][3] = reinterpret_cast<void*>(&SpyCanny<3>);
  tvxFuncTable[row][4] = reinterpret_cast<void*>(&SpyCanny<4>);
  alignas(16) static uint8_t src[200 * 200], dst[200 * 200];
  struct Case { uint32_t tier, flag, width, height, offset; int slot; };
  const Case cases[] = {
      {4, 1, 176, 145, 0, 4}, {4, 1, 176, 144, 0, 1},  // area
      {4, 1, 180, 145, 0, 1},                         // width % 8
      {4, 1, 8000, 4, 0, 1},  {4, 1, 8000, 5, 0, 4},  // at least 5 rows
      {4, 1, 176, 145, 4, 1}, {4, 1, 176, 145, 8, 4}, // 8-byte alignment
      {4, 0, 12, 3, 1, 4},                            // checks off
      {3, 1, 16, 3, 0, 3},    {3, 1, 16, 3, 8, 1},    {3, 1, 12, 3, 0, 1},  // GPU: width % 8, 16-byte aligned
  };
  for (const Case& c : cases) {
    tvxImplTable[row] = c.tier;
    HW_constraint_checks_enable = c.flag;
    g_slot = -1;
    tvxFilterCanny3x3u8_v2(src + c.offset, c.width, c.height, c.width, dst + c.offset, c.width, 10, 20);
    EXPECT_EQ(g_slot, c.slot) << c.tier << " " << c.width << "x" << c.height << " +" << c.offset;
  }
  std::copy(std::begin(saved), std::end(saved), tvxFuncTable[row]);
  tvxImplTable[row] = 0;
}

}  // namespace
