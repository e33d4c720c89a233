// FAST corners through the public entries against the segment-test model of fast_cases.h:
// lists, scores and suppression on random and blocky images, borders, capacities, masks of
// every accepted and a rejected size, bad arguments and the null-tempBuf hard stop.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "fast_cases.h"
#include "frame/frame.h"
#include "log_capture.h"

namespace {

using namespace tvxtest;

class Fast : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
  std::vector<uint8_t> Image(uint32_t w, uint32_t h, bool blocky) {
    std::vector<uint8_t> img(size_t{w} * h);
    if (blocky) FillBlocky(img.data(), w, h, w, rng_);
    else for (auto& v : img) v = static_cast<uint8_t>(rng_());
    return img;
  }
  std::mt19937 rng_{9090};
};

const auto kNoMask = [](uint32_t, uint32_t) { return false; };

TEST_F(Fast, EveryEntryMatchesTheModel) {
  const std::vector<uint8_t> zeros((53 + 7) / 8 * 31, 0);
  for (bool blocky : {false, true}) {
    const auto img = Image(53, 31, blocky);
    for (int32_t barrier : {0, 20, 60, -2}) {
      FastArgs a{img.data(), 53, 31, 0, barrier};
      for (FastEntry e : kAllFast) {
        for (uint32_t nms : {0u, 1u}) {
          if (nms && !HasNms(e)) continue;
          SCOPED_TRACE(::testing::Message() << "entry " << e << " barrier " << barrier << " blocky " << blocky << " nms " << nms);
          a.nms = nms;
          if (HasMask(e)) a.mask = zeros.data(), a.maskWidth = 53, a.maskHeight = 31;
          ModelCornerList want = ModelDetect(a, FastN(e), kNoMask);
          if (nms) want = ModelSuppress(want);
          const FastResult got = RunFast(e, kEntry, a);
          EXPECT_EQ(got.ret, 0);
          EXPECT_EQ(got.xy, want.xy);
          if (HasScore(e)) { EXPECT_EQ(got.scores, want.scores); }
          ASSERT_GT(want.scores.size(), blocky && barrier > 0 ? 0u : 5u);
        }
      }
    }
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Fast, BordersCapacitiesAndBarrierExtremes) {
  const auto img = Image(40, 36, false);
  FastArgs a{img.data(), 40, 36, 40};
  const FastResult three = RunFast(k9Score, kEntry, a);
  for (uint32_t border : {0u, 1u, 2u}) {
    a.border = border;
    EXPECT_EQ(RunFast(k9Score, kEntry, a), three);
  }
  a.border = 6;  // kept as given
  EXPECT_EQ(RunFast(k10, kEntry, a).xy, ModelDetect(a, 10, kNoMask).xy);
  a.border = 3;
  // Truncation keeps the first corners in scan order, and exactly nCornersMax of them.
  for (uint32_t cap : {1u, 2u, 7u}) {
    a.capacity = cap;
    const FastResult got = RunFast(k9Score, kEntry, a);
    ASSERT_EQ(got.count, cap);
    EXPECT_EQ(got.xy, std::vector<uint32_t>(three.xy.begin(), three.xy.begin() + 2 * cap));
    EXPECT_EQ(got.scores, std::vector<uint32_t>(three.scores.begin(), three.scores.begin() + cap));
  }
  a.capacity = 4096;
  for (int32_t big : {255, 256, 0x7FFFFFFF}) {
    a.barrier = big;
    EXPECT_EQ(RunFast(k10ScoreNms, kEntry, a).count, 0u);
  }
  // Everything is brighter than c + INT32_MIN: every scanned pixel is a corner.
  a.barrier = INT32_MIN;
  const FastResult all = RunFast(k9Score, kEntry, a);
  EXPECT_EQ(all.count, 34u * 30u);
  EXPECT_EQ(all.scores, ModelDetect(a, 9, kNoMask).scores);
}

TEST_F(Fast, SuppressionDropsEqualNeighboursBoth) {
  std::vector<uint8_t> img(20 * 20, 0);
  img[10 * 20 + 10] = 200;
  img[10 * 20 + 11] = 200;
  FastArgs a{img.data(), 20, 20, 20, 30};
  a.nms = 1;
  EXPECT_EQ(RunFast(k9ScoreNms, kEntry, a).count, 0u);
  EXPECT_EQ(RunFast(k10MaskScoreNms, kEntry, {img.data(), 20, 20, 20, 30, 3, 64, std::vector<uint8_t>(60, 0).data(), 20, 20, 1}).count, 0u);
  img[10 * 20 + 11] = 201;
  const FastResult one = RunFast(k10ScoreNms, kEntry, a);
  EXPECT_EQ(one.xy, (std::vector<uint32_t>{11, 10}));
  EXPECT_EQ(one.scores, std::vector<uint32_t>{200});
  a.nms = 0;
  EXPECT_EQ(RunFast(k10ScoreNms, kEntry, a).scores, (std::vector<uint32_t>{199, 200}));
}

TEST_F(Fast, MasksOfEveryFactorAndRejectedSizes) {
  const uint32_t w = 64, h = 48;
  const auto img = Image(w, h, false);
  for (int k = -3; k <= 3; ++k) {
    const uint32_t mw = k >= 0 ? w << k : w >> -k, mh = k >= 0 ? h << k : h >> -k, rb = (mw + 7) / 8;
    std::vector<uint8_t> mask(size_t{rb} * mh);
    for (auto& v : mask) v = static_cast<uint8_t>(rng_() & rng_());
    const auto masked = [&](uint32_t x, uint32_t y) {
      const uint32_t mx = k >= 0 ? x << k : x >> -k, my = k >= 0 ? y << k : y >> -k;
      return (mask[size_t{my} * rb + mx / 8] & (0x80 >> (mx % 8))) != 0;
    };
    FastArgs a{img.data(), w, h, 0, 15, 3, 4096, mask.data(), mw, mh};
    const ModelCornerList want = ModelDetect(a, 9, masked);
    EXPECT_LT(want.scores.size(), ModelDetect(a, 9, kNoMask).scores.size()) << k;
    EXPECT_EQ(RunFast(k9MaskScore, kEntry, a).scores, want.scores) << k;
    EXPECT_EQ(RunFast(k10Mask, kEntry, a).xy, ModelDetect(a, 10, masked).xy) << k;
    std::fill(mask.begin(), mask.end(), 0xFF);
    EXPECT_EQ(RunFast(k9Mask, kEntry, a).count, 0u);
  }
  // 3/2 of the image, or different factors per axis: no corners, count reset.
  std::vector<uint8_t> zeros(64 * 96, 0);
  for (auto [mw, mh] : {std::pair{96u, 72u}, {128u, 48u}, {63u, 48u}}) {
    for (FastEntry e : {k9Mask, k9MaskScoreNms, k10MaskScoreNms}) {
      const FastResult got = RunFast(e, kEntry, {img.data(), w, h, 0, 15, 3, 4096, zeros.data(), mw, mh, 1});
      EXPECT_EQ(got.ret, 0);
      EXPECT_EQ(got.count, 0u);
    }
  }
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Fast, BadArgumentsAreLoggedAndTouchNothing) {
  const auto img = Image(12, 12, false);
  const std::string c9 = "src && xy && scores && numcorners && stride >= width && border*2 < width && border*2 < height";
  const std::string c10 = "src && xy && nCorners && srcStride >= srcWidth && border*2 < srcWidth && border*2 < srcHeight";
  struct Bad { FastEntry e; FastArgs a; std::string name, cond; };
  const Bad bad[] = {
      {k9ScoreNms, {img.data(), 12, 12, 12, 20, 6}, "tvxCornerFast9Scoreu8_v2", c9},   // border*2 == width
      {k9ScoreNms, {img.data(), 12, 6, 12, 20, 0}, "tvxCornerFast9Scoreu8_v2", c9},    // raised to 3: 6 rows too few
      {k10, {img.data(), 12, 12, 11, 20, 3}, "tvxCornerFast10u8", c10},                 // stride below width
      {k10, {nullptr, 12, 12, 12, 20, 3}, "tvxCornerFast10u8", c10},
  };
  for (const Bad& b : bad) {
    g_lines.clear();
    const FastResult got = RunFast(b.e, kEntry, b.a);
    EXPECT_EQ(got.ret, 3);
    EXPECT_EQ(got.count, kUnset);
    ASSERT_EQ(g_lines.size(), 1u);
    EXPECT_EQ(g_lines[0], AssertLine(b.name, b.cond));
  }
}

TEST_F(Fast, NullTempBufWithSuppressionEndsTheProcess) {
  tvx_set_log_sink(nullptr);  // the child logs to stderr
  const auto img = Image(20, 20, false);
  FastArgs a{img.data(), 20, 20, 20};
  a.nms = 1;
  EXPECT_EXIT(RunFast(k9ScoreNms, kEntry, a, true), ::testing::ExitedWithCode(1), "src/cpu/tavixFastC@[0-9]+: tempBuf Assertion failed\n");
  EXPECT_EXIT(RunFast(k10ScoreNms, kSimd, a, true), ::testing::ExitedWithCode(1), "src/cpu/tavixFast10C@[0-9]+: tempBuf Assertion failed\n");
  a.nms = 0;  // without suppression tempBuf is not needed
  EXPECT_EQ(RunFast(k10ScoreNms, kEntry, a, true).ret, 0);
}

}  // namespace
