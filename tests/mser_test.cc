// MSER through its public entries: handle limits and the process-ending parameter contract,
// regions against a straightforward model written here (per-threshold labelling of the
// component tree, the same stability, local-minimum and diversity rules) on random blocky
// images, polarity symmetry, the two-thread pass against sequential runs, re-targeting of
// smaller images, capacities, the layouts of the extended forms, invariants on textured scenes,
// bad arguments and heap exhaustion.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <queue>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "cpu/mser_core.h"
#include "frame/frame.h"
#include "log_capture.h"
#include "mser_cases.h"

namespace {

using tvxmsertest::Bytes;
using tvxmsertest::CallExt;
using tvxmsertest::Result;
using tvxtest::AssertLine;
using tvxtest::Capture;
using tvxtest::g_lines;

constexpr uint32_t kUndef = 0xFFFFFFFFu;
constexpr uint32_t kVarMax = 0xFFFFFFFEu;

struct Params {
  uint32_t delta, minArea, maxArea;
  float maxVar, minDiv;
};

// ---- the model ------------------------------------------------------------------------------

struct Region {
  int32_t polarity;
  std::vector<std::pair<uint32_t, uint32_t>> points;  // (y, x), sorted
  uint32_t var, count;
  bool operator<(const Region& o) const {
    return std::tie(polarity, points, var, count) < std::tie(o.polarity, o.points, o.var, o.count);
  }
  bool operator==(const Region& o) const {
    return polarity == o.polarity && points == o.points && var == o.var && count == o.count;
  }
};

uint32_t Quant(float v) { return v <= 0 ? 0u : static_cast<uint32_t>(std::floor(double{v} * 65536.0 + 0.5)); }

// Components of {key >= t} for every threshold t by a fresh flood fill each; a component is a
// tree node at t when it holds a pixel of key t (else it is the same set as at t + 1).
std::vector<Region> ModelRegions(const Bytes& img, uint32_t w, uint32_t h, bool eight, const Params& p,
                                 uint32_t maxArea) {
  const uint32_t iw = w - 2, ih = h - 2, n = iw * ih;
  const uint32_t maxVarQ = std::min<double>(std::floor(double{p.maxVar} * 65536.0 + 0.5), kVarMax);
  const uint32_t minDivQ = Quant(p.minDiv);
  std::vector<Region> out;
  for (int32_t pol : {1, -1}) {
    std::vector<uint8_t> key(n);
    for (uint32_t y = 0; y < ih; ++y)
      for (uint32_t x = 0; x < iw; ++x) {
        const uint8_t v = img[size_t{y + 1} * w + x + 1];
        key[y * iw + x] = pol > 0 ? v : static_cast<uint8_t>(255 - v);
      }
    std::vector<std::vector<int32_t>> label(256, std::vector<int32_t>(n, -1));
    std::vector<std::vector<uint32_t>> size(256);
    std::vector<std::vector<bool>> isNode(256);
    for (int t = 0; t < 256; ++t) {
      for (uint32_t s = 0; s < n; ++s) {
        if (key[s] < t || label[t][s] >= 0) continue;
        const int32_t id = static_cast<int32_t>(size[t].size());
        size[t].push_back(0);
        isNode[t].push_back(false);
        std::queue<uint32_t> q;
        q.push(s);
        label[t][s] = id;
        while (!q.empty()) {
          const uint32_t i = q.front();
          q.pop();
          ++size[t][id];
          if (key[i] == t) isNode[t][id] = true;
          const int32_t x = i % iw, y = i / iw;
          for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
              if ((dx == 0 && dy == 0) || (!eight && dx != 0 && dy != 0)) continue;
              const int32_t nx = x + dx, ny = y + dy;
              if (nx < 0 || ny < 0 || nx >= static_cast<int32_t>(iw) || ny >= static_cast<int32_t>(ih)) continue;
              const uint32_t j = ny * iw + nx;
              if (key[j] >= t && label[t][j] < 0) {
                label[t][j] = id;
                q.push(j);
              }
            }
        }
      }
    }
    struct N { int t; int32_t c; uint32_t rep, area, var = kUndef, parent = kUndef, minChild = kUndef, count = 1; bool cand = false; };
    std::vector<N> nodes;
    std::vector<std::vector<uint32_t>> nodeOf(256);
    for (int t = 255; t >= 0; --t) {  // children (higher thresholds) first
      nodeOf[t].assign(size[t].size(), kUndef);
      std::vector<uint32_t> rep(size[t].size(), kUndef);
      for (uint32_t i = 0; i < n; ++i)
        if (label[t][i] >= 0 && rep[label[t][i]] == kUndef) rep[label[t][i]] = i;
      for (uint32_t c = 0; c < size[t].size(); ++c)
        if (isNode[t][c]) {
          nodeOf[t][c] = static_cast<uint32_t>(nodes.size());
          nodes.push_back(N{t, static_cast<int32_t>(c), rep[c], size[t][c]});
        }
    }
    for (N& a : nodes) {
      for (int t = a.t - 1; t >= 0 && a.parent == kUndef; --t) {
        const int32_t c = label[t][a.rep];
        if (isNode[t][c]) a.parent = nodeOf[t][c];
      }
      if (a.t >= static_cast<int>(p.delta)) {
        const int t = a.t - static_cast<int>(p.delta);
        const uint64_t grown = size[t][label[t][a.rep]];
        a.var = static_cast<uint32_t>(std::min<uint64_t>(((grown - a.area) << 16) / a.area, kVarMax));
      }
    }
    for (N& a : nodes)
      if (a.parent != kUndef) {
        nodes[a.parent].count += a.count;
        if (a.var != kUndef) nodes[a.parent].minChild = std::min(nodes[a.parent].minChild, a.var);
      }
    for (N& a : nodes) {
      a.cand = a.var != kUndef && a.area >= p.minArea && a.area <= maxArea && a.var <= maxVarQ &&
               !(a.minChild != kUndef && a.var > a.minChild) &&
               !(a.var > 0 && a.parent != kUndef && nodes[a.parent].var != kUndef && a.var >= nodes[a.parent].var);
    }
    for (const N& a : nodes) {
      if (!a.cand) continue;
      uint32_t up = a.parent;
      while (up != kUndef && !nodes[up].cand) up = nodes[up].parent;
      if (up != kUndef && ((uint64_t{nodes[up].area - a.area} << 16) / nodes[up].area) < minDivQ) continue;
      Region r{pol, {}, a.var, a.count};
      for (uint32_t i = 0; i < n; ++i)
        if (label[a.t][i] == a.c) r.points.emplace_back(i / iw + 1, i % iw + 1);
      out.push_back(std::move(r));
    }
  }
  std::sort(out.begin(), out.end());
  return out;
}

// The regions an extended call reported, in the model's form; also checks the documented order
// (MSER+ first, node ids rising within a polarity) and the variation's float form.
std::vector<Region> Reported(const Result& r) {
  std::vector<Region> out;
  size_t at = 0;
  for (uint32_t k = 0; k < r.numContours; ++k) {
    Region g{r.polarities[k], {}, static_cast<uint32_t>(std::lround(r.variations[k] * 65536.0)), r.nodeCounters[k]};
    for (uint32_t j = 0; j < r.counts[k]; ++j, ++at) g.points.emplace_back(r.points[2 * at + 1], r.points[2 * at]);
    std::sort(g.points.begin(), g.points.end());
    EXPECT_EQ(r.variations[k], static_cast<float>(g.var) / 65536.0f);
    if (k > 0) {
      EXPECT_LE(r.polarities[k], r.polarities[k - 1]) << "MSER+ regions come first";
      if (r.polarities[k] == r.polarities[k - 1]) {
        EXPECT_GT(r.nodeIds[k], r.nodeIds[k - 1]);
      }
    }
    out.push_back(std::move(g));
  }
  std::sort(out.begin(), out.end());
  return out;
}

class Mser : public ::testing::Test {
 protected:
  void SetUp() override {
    // The reference tier everywhere; a mode selection also binds the internal rows (the split form).
    tvxSetOperationMode(TAVIX_OP_EXT_REFERENCE);
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override {
    tvx_fail_heap_after_for_test(-1);
    tvx_mser_set_threading_for_test(1);
    tvx_mser_fail_thread_start_for_test(0);
    tvx_set_log_sink(nullptr);
  }
  static void* Make(uint32_t w, uint32_t h, const Params& p, bool eight = false) {
    void* handle = nullptr;
    const int32_t ok = eight ? tvxMserNN8Init(w, h, p.delta, p.minArea, p.maxArea, p.maxVar, p.minDiv, &handle)
                             : tvxMserInit(w, h, p.delta, p.minArea, p.maxArea, p.maxVar, p.minDiv, &handle);
    EXPECT_EQ(ok, 1);
    return handle;
  }
};

// ---- handles ---------------------------------------------------------------------------------

TEST_F(Mser, HandleSizeLimitsAndRelease) {
  const Params p{2, 5, 200, 0.5f, 0.2f};
  void* handle = reinterpret_cast<void*>(0x1);
  EXPECT_EQ(tvxMserInit(50, 20, p.delta, p.minArea, p.maxArea, p.maxVar, p.minDiv, &handle), 0);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(g_lines, (std::vector<std::string>{
                         "tavix_lib_log|ERROR: image width must be greater than 50 for MSER.\n",
                         "tavix_lib_log|Failed to initialize MSER handle!\n"}));
  g_lines.clear();
  EXPECT_EQ(tvxMserNN8Init(60, 5, p.delta, p.minArea, p.maxArea, p.maxVar, p.minDiv, &handle), 0);
  EXPECT_EQ(g_lines, (std::vector<std::string>{
                         "tavix_lib_log|ERROR: image height must be greater than 5 for MSER.\n",
                         "tavix_lib_log|Failed to initialize MSER handle!\n"}));
  g_lines.clear();
  for (bool eight : {false, true}) {
    void* ok = Make(51, 6, Params{2, 5, 100, 0.5f, 0.2f}, eight);  // 49 x 4 interior pixels
    ASSERT_NE(ok, nullptr);
    EXPECT_EQ(tvxMserRelease(ok), 0);
  }
  void* big = Make(8160, 6, p);  // the widest working stride
  EXPECT_EQ(tvxMserRelease(big), 0);
  EXPECT_TRUE(g_lines.empty());
  EXPECT_EQ(tvxMserInit(60, 20, 2, 5, 200, 0.5f, 0.2f, nullptr), 0);
  EXPECT_EQ(tvxMserRelease(nullptr), 3);
  EXPECT_EQ(g_lines, (std::vector<std::string>{AssertLine("tvxMserRelease", "mserHandle")}));
}

TEST_F(Mser, HeapExhaustionDuringCreationFailsCleanly) {
  // Every allocation of a creation fails in turn; each failure returns 0 with the right lines
  // and leaks nothing (the sanitizer build checks the leaks).
  int succeeded = 0;
  for (int64_t after = 0; after < 20; ++after) {
    g_lines.clear();
    tvx_fail_heap_after_for_test(after);
    void* handle = nullptr;
    const int32_t ok = tvxMserInit(64, 32, 2, 5, 400, 0.5f, 0.2f, &handle);
    tvx_fail_heap_after_for_test(-1);
    if (ok) {
      ++succeeded;
      tvxMserRelease(handle);
      continue;
    }
    EXPECT_EQ(handle, nullptr);
    ASSERT_EQ(g_lines.size(), 2u);
    EXPECT_TRUE(g_lines[0] == "tavix_lib_log|ERROR: Cannot allocate MSER handle.\n" ||
                g_lines[0] == "tavix_lib_log|ERROR: out of memory initializing MSER.\n")
        << g_lines[0];
    EXPECT_EQ(after == 0, g_lines[0] == "tavix_lib_log|ERROR: Cannot allocate MSER handle.\n");
    EXPECT_EQ(g_lines[1], "tavix_lib_log|Failed to initialize MSER handle!\n");
  }
  EXPECT_GT(succeeded, 0);
}

using MserDeath = Mser;

TEST_F(MserDeath, ParameterContractEndsTheProcess) {
  tvx_set_log_sink(nullptr);  // the child logs to stderr
  const std::string line = "src/cpu/tavixMserFxpC@394: \\( \\( pHandle->nStride&\\(32-1\\)\\) == 0 \\)";
  void* handle = nullptr;
  EXPECT_EXIT(tvxMserInit(64, 32, 0, 5, 400, 0.5f, 0.2f, &handle), ::testing::ExitedWithCode(1), line);
  EXPECT_EXIT(tvxMserInit(64, 32, 256, 5, 400, 0.5f, 0.2f, &handle), ::testing::ExitedWithCode(1), line);
  EXPECT_EXIT(tvxMserNN8Init(8161, 8, 2, 5, 400, 0.5f, 0.2f, &handle), ::testing::ExitedWithCode(1), line);
  EXPECT_EXIT(tvxMserInit(64, 32, 2, 62 * 30, 4000, 0.5f, 0.2f, &handle), ::testing::ExitedWithCode(1), line);
  EXPECT_EXIT(tvxMserInit(64, 32, 2, 5, 6, 0.5f, 0.2f, &handle), ::testing::ExitedWithCode(1), line);
  EXPECT_EXIT(tvxMserInit(64, 32, 2, 5, 400, 0.0f, 0.2f, &handle), ::testing::ExitedWithCode(1), line);
  EXPECT_EXIT(tvxMserInit(64, 32, 2, 5, 400, 0.5f, 256.0f, &handle), ::testing::ExitedWithCode(1), line);
  EXPECT_EXIT(
      {
        tvx_mser_mask_offset_for_test(4);
        tvxMserInit(64, 32, 2, 5, 400, 0.5f, 0.2f, &handle);
      },
      ::testing::ExitedWithCode(1),
      "src/cpu/tavixMserFxpC@431: \\(\\(uintptr_t\\)pHandle->pMaskPlus&\\(32-1\\)\\) == 0 && "
      "\\(\\(uintptr_t\\)pHandle->pMaskMinus&\\(32-1\\)\\) == 0 Assertion failed");
  // The limits themselves pass: delta 1 and 255, minArea one below the pixel count.
  for (uint32_t delta : {1u, 255u}) {
    void* ok = Make(64, 32, Params{delta, 62 * 30 - 1, 62 * 30 + 1, 0.5f, 0.2f});
    tvxMserRelease(ok);
  }
}

// ---- regions ----------------------------------------------------------------------------------

TEST_F(Mser, RegionsMatchTheModelOnBlockyImages) {
  std::mt19937 rng(2024);
  int nonEmpty = 0;
  for (int iter = 0; iter < 36; ++iter) {
    const bool eight = iter % 2;
    const uint32_t w = 51 + rng() % 30, h = 6 + rng() % 34, n = (w - 2) * (h - 2);
    const Bytes img = tvxmsertest::BlockyImage(rng, w, h, 2 + rng() % 8, iter % 3 == 0 ? 2 : 0);
    const uint32_t minArea = 1 + rng() % 8;
    const Params p{static_cast<uint32_t>(1 + rng() % 6), minArea, static_cast<uint32_t>(minArea + 2 + rng() % n), 0.05f + (rng() % 100) / 50.0f,
                   (iter % 4 == 0) ? 0.0f : (rng() % 80) / 100.0f};
    SCOPED_TRACE(testing::Message() << "iter " << iter << " " << w << "x" << h << " eight " << eight << " delta "
                                    << p.delta << " area " << p.minArea << ".." << p.maxArea << " var " << p.maxVar
                                    << " div " << p.minDiv);
    void* handle = Make(w, h, p, eight);
    ASSERT_NE(handle, nullptr);
    const Result r = CallExt(eight ? &tvxMserExtNN8u8 : &tvxMserExtu8_v2, handle, img.data(), w, h, 0);
    tvxMserRelease(handle);
    ASSERT_EQ(r.status, 0);
    const std::vector<Region> want = ModelRegions(img, w, h, eight, p, p.maxArea);
    EXPECT_EQ(Reported(r), want);
    nonEmpty += !want.empty();
  }
  EXPECT_GT(nonEmpty, 25);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Mser, PolaritiesSwapOnTheInvertedImage) {
  const uint32_t w = 120, h = 90;
  const Bytes img = tvxmsertest::TexturedScene(w, h, 7);
  Bytes inv(img.size());
  for (size_t i = 0; i < img.size(); ++i) inv[i] = static_cast<uint8_t>(255 - img[i]);
  for (bool eight : {false, true}) {
    void* handle = Make(w, h, Params{3, 10, 3000, 0.4f, 0.3f}, eight);
    tvxmsertest::ExtFn fn = eight ? &tvxMserExtNN8u8 : &tvxMserExtu8;
    const Result a = CallExt(fn, handle, img.data(), w, h, w), b = CallExt(fn, handle, inv.data(), w, h, w);
    tvxMserRelease(handle);
    std::vector<Region> ra = Reported(a), rb = Reported(b);
    ASSERT_GT(ra.size(), 4u);
    for (Region& g : rb) g.polarity = -g.polarity;
    std::sort(rb.begin(), rb.end());
    EXPECT_EQ(ra, rb);
    int plus = 0;
    for (const Region& g : ra) plus += g.polarity > 0;
    EXPECT_GT(plus, 0);
    EXPECT_LT(plus, static_cast<int>(ra.size()));
  }
}

TEST_F(Mser, ThreadedSequentialAndRefusedThreadGiveIdenticalOutput) {
  const uint32_t w = 160, h = 120;
  const Bytes img = tvxmsertest::TexturedScene(w, h, 11);
  void* handle = Make(w, h, Params{2, 8, 6000, 0.5f, 0.2f});
  const Result threaded = CallExt(&tvxMserExtu8_v2, handle, img.data(), w, h, 0);
  tvx_mser_set_threading_for_test(0);
  const Result sequential = CallExt(&tvxMserExtu8_v2, handle, img.data(), w, h, 0);
  tvx_mser_set_threading_for_test(1);
  tvx_mser_fail_thread_start_for_test(1);
  const Result refused = CallExt(&tvxMserExtu8_v2, handle, img.data(), w, h, 0);
  tvxMserRelease(handle);
  ASSERT_EQ(threaded.status, 0);
  EXPECT_GT(threaded.numContours, 5u);
  EXPECT_TRUE(threaded == sequential);
  EXPECT_TRUE(threaded == refused);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Mser, SmallerImagesRetargetAndScaleTheMaximumArea) {
  const uint32_t W = 200, H = 140, w = 100, h = 70;
  const Bytes img = tvxmsertest::TexturedScene(w, h, 5);
  const Params big{2, 4, 4000, 0.6f, 0.1f};
  const Params quarter{2, 4, 1000, 0.6f, 0.1f};
  const Params unscaled{2, 4, 4000, 0.6f, 0.1f};
  void* hb = Make(W, H, big);
  void* hq = Make(w, h, quarter);
  void* hu = Make(w, h, unscaled);
  const Result onBig = CallExt(&tvxMserExtu8, hb, img.data(), w, h, w);
  const Result onQuarter = CallExt(&tvxMserExtu8, hq, img.data(), w, h, w);
  const Result onUnscaled = CallExt(&tvxMserExtu8, hu, img.data(), w, h, w);
  // A handle's later calls on its full size are not affected by an earlier smaller call.
  const Bytes full = tvxmsertest::TexturedScene(W, H, 6);
  const Result fullAfter = CallExt(&tvxMserExtu8, hb, full.data(), W, H, W);
  void* fresh = Make(W, H, big);
  const Result fullFresh = CallExt(&tvxMserExtu8, fresh, full.data(), W, H, W);
  // Larger than the handle: refused with no regions.
  const Bytes wide = tvxmsertest::TexturedScene(w + 1, h, 5);
  const Result tooWide = CallExt(&tvxMserExtu8, hq, wide.data(), w + 1, h, w + 1);
  const Result tooTall = CallExt(&tvxMserExtu8, hq, full.data(), w, h + 1, W);
  for (void* hd : {hb, hq, hu, fresh}) tvxMserRelease(hd);
  ASSERT_EQ(onBig.status, 0);
  EXPECT_TRUE(onBig == onQuarter);
  EXPECT_EQ(Reported(onBig), ModelRegions(img, w, h, false, big, 1000));
  // The scaling matters on this scene: without it larger regions come through.
  uint32_t largest = 0;
  for (uint32_t k = 0; k < onUnscaled.numContours; ++k) largest = std::max(largest, onUnscaled.counts[k]);
  EXPECT_GT(largest, 1000u);
  EXPECT_TRUE(fullAfter == fullFresh);
  EXPECT_EQ(tooWide.status, 3);
  EXPECT_EQ(tooWide.numContours, 0u);
  EXPECT_EQ(tooTall.status, 3);
  EXPECT_EQ(tooTall.numContours, 0u);
}

TEST_F(Mser, CapacitiesStopBeforeTheFirstRegionThatDoesNotFit) {
  const uint32_t w = 140, h = 100;
  const Bytes img = tvxmsertest::TexturedScene(w, h, 3);
  void* handle = Make(w, h, Params{2, 6, 5000, 0.5f, 0.2f});
  const Result all = CallExt(&tvxMserExtu8, handle, img.data(), w, h, w);
  ASSERT_GT(all.numContours, 6u);
  uint32_t total = 0;
  for (uint32_t k = 0; k < all.numContours; ++k) total += all.counts[k];
  // Region capacity: the first maxContours regions, both messages by form.
  const uint32_t cap = all.numContours / 2;
  g_lines.clear();
  const Result fewer = CallExt(&tvxMserExtu8, handle, img.data(), w, h, w, cap);
  EXPECT_EQ(fewer.numContours, cap);
  EXPECT_EQ(g_lines, (std::vector<std::string>{"tavix_lib_log|ERROR: extracted contours exceed the maximum number allowed of " +
                                               std::to_string(cap) + ". Please increase maxContours.\n"}));
  for (uint32_t k = 0; k < cap; ++k) {
    EXPECT_EQ(fewer.counts[k], all.counts[k]);
    EXPECT_EQ(fewer.nodeIds[k], all.nodeIds[k]);
  }
  g_lines.clear();
  std::vector<uint32_t> counts(cap + 1, 0xCCCCCCCC), pts(size_t{total} * 2, 0xCCCCCCCC);
  uint32_t num = 0;
  EXPECT_EQ(tvxMseru8(handle, img.data(), w, h, w, cap, total, &num, counts.data(), pts.data()), 0);
  EXPECT_EQ(num, cap);
  EXPECT_EQ(g_lines, (std::vector<std::string>{"tavix_lib_log|ERROR: maxContours = " + std::to_string(cap) +
                                               ",  detected more MSER regions beyond this capacity. Please "
                                               "consider increasing maxContours.\n"}));
  // Point capacity: one point short of the first three regions keeps two of them.
  const uint32_t three = all.counts[0] + all.counts[1] + all.counts[2];
  g_lines.clear();
  const Result shortPts = CallExt(&tvxMserExtu8, handle, img.data(), w, h, w, 4096, three - 1);
  EXPECT_EQ(shortPts.numContours, 2u);
  EXPECT_EQ(g_lines, (std::vector<std::string>{"tavix_lib_log|ERROR: " + std::to_string(total) +
                                               " contour points extracted. Exceeds the maximum number of " +
                                               std::to_string(three - 1) +
                                               " points allowed in the contour output buffers. Please increase "
                                               "pointsArraySize.\n"}));
  const size_t two = size_t{all.counts[0] + all.counts[1]} * 2;
  EXPECT_TRUE(std::equal(shortPts.points.begin(), shortPts.points.begin() + two, all.points.begin()));
  EXPECT_EQ(shortPts.points[two], 0xCCCCCCCCu);
  // Exactly enough room: everything, no message.
  g_lines.clear();
  const Result exact = CallExt(&tvxMserExtu8, handle, img.data(), w, h, w, all.numContours, total);
  EXPECT_EQ(exact.numContours, all.numContours);
  EXPECT_TRUE(g_lines.empty());
  tvxMserRelease(handle);
}

TEST_F(Mser, FormsAgreeOnLayoutStrideAndBoundingBoxes) {
  const uint32_t w = 130, h = 77, stride = 150;
  const Bytes packed = tvxmsertest::TexturedScene(w, h, 9);
  Bytes padded(size_t{stride} * h, 0x5A);
  for (uint32_t y = 0; y < h; ++y) std::memcpy(&padded[size_t{y} * stride], &packed[size_t{y} * w], w);
  void* handle = Make(w, h, Params{2, 5, 3000, 0.5f, 0.2f});
  const Result ref = CallExt(&tvxMserExtu8, handle, packed.data(), w, h, w);
  ASSERT_GT(ref.numContours, 3u);
  EXPECT_TRUE(CallExt(&tvxMserExtu8, handle, padded.data(), w, h, stride) == ref);
  EXPECT_TRUE(CallExt(&tvxMserExtu8_v2, handle, padded.data(), w, h, stride) == ref);
  EXPECT_TRUE(CallExt(&tvxMserExtu8_v2, handle, packed.data(), w, h, 0) == ref);
  uint32_t total = 0;
  for (uint32_t k = 0; k < ref.numContours; ++k) total += ref.counts[k];
  // Basic forms: the same counts and points.
  std::vector<uint32_t> counts(4096), pts(size_t{total} * 2);
  uint32_t num = 0;
  EXPECT_EQ(tvxMseru8_v2(handle, padded.data(), w, h, stride, 4096, total, &num, counts.data(), pts.data()), 0);
  EXPECT_EQ(num, ref.numContours);
  EXPECT_TRUE(std::equal(counts.begin(), counts.begin() + num, ref.counts.begin()));
  EXPECT_TRUE(std::equal(pts.begin(), pts.end(), ref.points.begin()));
  // _v3: the same plus per-region bounding boxes of its points.
  Result v3 = ref;
  std::vector<uint32_t> boxes(4 * 4096, 0xCCCCCCCC);
  v3.status = tvxMserExtu8_v3(handle, packed.data(), w, h, 0, 4096, 1u << 20, &v3.numContours, v3.counts.data(),
                              v3.points.data(), v3.variations.data(), v3.polarities.data(), v3.nodeIds.data(),
                              v3.nodeCounters.data(), boxes.data());
  EXPECT_TRUE(v3 == ref);
  size_t at = 0;
  for (uint32_t k = 0; k < ref.numContours; ++k) {
    uint32_t b[4] = {w, h, 0, 0};
    for (uint32_t j = 0; j < ref.counts[k]; ++j, ++at) {
      b[0] = std::min(b[0], ref.points[2 * at]);
      b[1] = std::min(b[1], ref.points[2 * at + 1]);
      b[2] = std::max(b[2], ref.points[2 * at]);
      b[3] = std::max(b[3], ref.points[2 * at + 1]);
    }
    EXPECT_TRUE(std::equal(b, b + 4, &boxes[4 * k])) << k;
  }
  EXPECT_EQ(boxes[4 * ref.numContours], 0xCCCCCCCCu);
  // Split layout: x plane, then y plane, pointsArraySize apart.
  const uint32_t cap = total + 10;
  const Result split = CallExt(&tvxMserSplitExtu8, handle, packed.data(), w, h, 0, 4096, cap);
  EXPECT_EQ(split.numContours, ref.numContours);
  EXPECT_EQ(split.nodeIds, ref.nodeIds);
  for (uint32_t j = 0; j < total; ++j) {
    ASSERT_EQ(split.points[j], ref.points[2 * j]) << j;
    ASSERT_EQ(split.points[cap + j], ref.points[2 * j + 1]) << j;
  }
  EXPECT_EQ(split.points[total], 0xCCCCCCCCu);
  // Connectivity is the handle's: the other kind of call refuses it.
  num = 99;
  EXPECT_EQ(tvxMserNN8u8(handle, packed.data(), w, h, 0, 4096, total, &num, counts.data(), pts.data()), 3);
  EXPECT_EQ(num, 0u);
  tvxMserRelease(handle);
  void* nn8 = Make(w, h, Params{2, 5, 3000, 0.5f, 0.2f}, true);
  EXPECT_EQ(CallExt(&tvxMserExtu8, nn8, packed.data(), w, h, w).status, 3);
  EXPECT_EQ(CallExt(&tvxMserExtNN8u8, nn8, packed.data(), w, h, 0).status, 0);
  tvxMserRelease(nn8);
  EXPECT_TRUE(g_lines.empty()) << (g_lines.empty() ? "" : g_lines[0]);
}

TEST_F(Mser, RegionsOfTexturedScenesAreInsideNestedOrDisjointAndWithinLimits) {
  for (uint32_t seed : {1u, 2u}) {
    for (bool eight : {false, true}) {
      const uint32_t w = 320, h = 240;
      const Bytes img = tvxmsertest::TexturedScene(w, h, seed);
      const Params p{seed + 1, 12, 8000, 0.35f, 0.25f};
      void* handle = Make(w, h, p, eight);
      const Result r = CallExt(eight ? &tvxMserExtNN8u8 : &tvxMserExtu8_v2, handle, img.data(), w, h, 0);
      tvxMserRelease(handle);
      ASSERT_EQ(r.status, 0);
      ASSERT_GT(r.numContours, 10u);
      std::vector<std::vector<uint32_t>> sets;
      size_t at = 0;
      for (uint32_t k = 0; k < r.numContours; ++k) {
        EXPECT_GE(r.counts[k], p.minArea);
        EXPECT_LE(r.counts[k], p.maxArea);
        EXPECT_LE(r.variations[k], p.maxVar);
        std::vector<uint32_t> s;
        for (uint32_t j = 0; j < r.counts[k]; ++j, ++at) {
          const uint32_t x = r.points[2 * at], y = r.points[2 * at + 1];
          ASSERT_TRUE(x >= 1 && x + 1 < w && y >= 1 && y + 1 < h) << x << "," << y;
          s.push_back(y * w + x);
        }
        std::sort(s.begin(), s.end());
        EXPECT_TRUE(std::adjacent_find(s.begin(), s.end()) == s.end()) << "a point listed twice";
        sets.push_back(std::move(s));
      }
      for (uint32_t a = 0; a < sets.size(); ++a)
        for (uint32_t b = a + 1; b < sets.size(); ++b) {
          if (r.polarities[a] != r.polarities[b]) continue;
          std::vector<uint32_t> both;
          std::set_intersection(sets[a].begin(), sets[a].end(), sets[b].begin(), sets[b].end(), std::back_inserter(both));
          EXPECT_TRUE(both.empty() || both.size() == std::min(sets[a].size(), sets[b].size()))
              << "regions " << a << " and " << b << " overlap without nesting";
          EXPECT_NE(sets[a], sets[b]);
        }
    }
  }
}

TEST_F(Mser, BadArgumentsAndWorkingMemoryFailuresWriteNothing) {
  const uint32_t w = 80, h = 40;
  const Bytes img = tvxmsertest::TexturedScene(w, h, 4);
  void* handle = Make(w, h, Params{2, 5, 1000, 0.5f, 0.2f});
  std::vector<uint32_t> counts(64, 0xCCCCCCCC), pts(8192, 0xCCCCCCCC);
  uint32_t num = 0xCCCCCCCC;
  const std::string basic = "mserHandle && srcPtr && numContours && numPointsInContour && pointsArray";
  EXPECT_EQ(tvxMseru8_v2(handle, nullptr, w, h, 0, 64, 4096, &num, counts.data(), pts.data()), 3);
  EXPECT_EQ(tvxMseru8(handle, img.data(), w, h, 0, 64, 4096, &num, counts.data(), pts.data()), 3);
  EXPECT_EQ(tvxMseru8(handle, img.data(), w, h, w - 1, 64, 4096, &num, counts.data(), pts.data()), 3);
  EXPECT_EQ(tvxMserNN8u8(nullptr, img.data(), w, h, 0, 64, 4096, &num, counts.data(), pts.data()), 3);
  EXPECT_EQ(g_lines, (std::vector<std::string>{AssertLine("tvxMseru8_v2", basic), AssertLine("tvxMseru8", basic),
                                               AssertLine("tvxMseru8", basic), AssertLine("tvxMserNN8u8", basic)}));
  g_lines.clear();
  Result r = CallExt(&tvxMserExtu8_v2, handle, img.data(), w, h, 0);
  float var = 0;
  int32_t pol = 0;
  uint32_t id = 0;
  EXPECT_EQ(tvxMserExtu8_v2(handle, img.data(), w, h, 0, 64, 4096, &num, counts.data(), pts.data(), &var, &pol, &id,
                            nullptr),
            3);
  EXPECT_EQ(g_lines, (std::vector<std::string>{AssertLine("tvxMserExtu8_v2", basic +
                                               " && contourVariation && contourPolarity && contourNodeId && contourNodeCounter")}));
  EXPECT_EQ(num, 0xCCCCCCCCu);
  EXPECT_TRUE(std::all_of(counts.begin(), counts.end(), [](uint32_t v) { return v == 0xCCCCCCCC; }));
  EXPECT_TRUE(std::all_of(pts.begin(), pts.end(), [](uint32_t v) { return v == 0xCCCCCCCC; }));
  // No working memory: logged, no regions, status 5; the handle still works afterwards.
  g_lines.clear();
  tvx_fail_heap_after_for_test(0);
  EXPECT_EQ(tvxMseru8_v2(handle, img.data(), w, h, 0, 64, 4096, &num, counts.data(), pts.data()), 5);
  tvx_fail_heap_after_for_test(1);
  uint32_t num2 = 7;
  EXPECT_EQ(tvxMseru8_v2(handle, img.data(), w, h, 0, 64, 4096, &num2, counts.data(), pts.data()), 5);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(num, 0u);
  EXPECT_EQ(num2, 0u);
  EXPECT_EQ(g_lines, (std::vector<std::string>{"tavix_lib_log|ERROR: Failed to allocate memory of " +
                                                   std::to_string(96 * h) + " bytes.\n",
                                               "tavix_lib_log|ERROR: failed to extract MSER-.\n"}));
  EXPECT_TRUE(CallExt(&tvxMserExtu8_v2, handle, img.data(), w, h, 0) == r);
  // Images without interior pixels: no regions.
  EXPECT_EQ(tvxMseru8_v2(handle, img.data(), 2, 2, 0, 64, 4096, &num, counts.data(), pts.data()), 0);
  EXPECT_EQ(num, 0u);
  tvxMserRelease(handle);
}

}  // namespace
