// Background code book through its public entries: the model's initial state, learning of boxes
// (clamping, one-step widening), classification, clearing of stale words and reuse of their
// storage, checked against a per-pixel model written here over a synthetic video (static noisy
// background, a moving object, a lighting step); bad arguments, heap exhaustion and the
// process-ending paths; the mask cleaning and the YCbCr foreground integral.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "cpu/codebook.h"
#include "frame/frame.h"
#include "log_capture.h"

namespace {

using tvxcb::CodeWord;
using tvxcb::Model;
using tvxtest::AssertLine;
using tvxtest::Capture;
using tvxtest::g_lines;
using Bytes = std::vector<uint8_t>;

// ---- a per-pixel code book kept in plain vectors (head of a list first) ----------------------

struct Word {
  uint8_t bmin[3], bmax[3], lmin[3], lmax[3];
  uint32_t tLast, stale;
};

struct Book {
  uint32_t w, h, t = 0;
  uint8_t bounds[3] = {10, 10, 10}, modMin[3] = {3, 1, 1}, modMax[3] = {10, 1, 1};
  std::vector<std::vector<Word>> lists;
  Book(uint32_t w_, uint32_t h_) : w(w_), h(h_), lists(size_t{w_} * h_) {}

  void Update(const Bytes& frame, const Bytes* mask) {
    ++t;
    for (uint32_t i = 0; i < w * h; ++i) {
      if (mask && (*mask)[i] == 0) continue;
      const uint8_t* p = &frame[3 * i];
      auto& list = lists[i];
      bool matched = false;
      for (Word& e : list) {
        if (!matched) {
          bool in = true;
          for (int c = 0; c < 3; ++c) in = in && e.lmin[c] <= p[c] && p[c] <= e.lmax[c];
          if (in) {
            matched = true;
            e.tLast = t;
            for (int c = 0; c < 3; ++c) {
              const int lo = std::max(0, p[c] - bounds[c]), hi = std::min(255, p[c] + bounds[c]);
              e.bmin[c] = std::min(e.bmin[c], p[c]);
              e.bmax[c] = std::max(e.bmax[c], p[c]);
              if (e.lmax[c] < hi) e.lmax[c]++;
              if (e.lmin[c] > lo) e.lmin[c]--;
            }
          }
        }
        e.stale = std::max(e.stale, t - e.tLast);
      }
      if (!matched) {
        Word e{};
        for (int c = 0; c < 3; ++c) {
          e.bmin[c] = e.bmax[c] = p[c];
          e.lmin[c] = static_cast<uint8_t>(std::max(0, p[c] - bounds[c]));
          e.lmax[c] = static_cast<uint8_t>(std::min(255, p[c] + bounds[c]));
        }
        e.tLast = t;
        list.insert(list.begin(), e);
      }
    }
  }
  int32_t Diff(const Bytes& frame, Bytes& mask) const {
    int32_t count = 0;
    for (uint32_t i = 0; i < w * h; ++i) {
      const uint8_t* p = &frame[3 * i];
      bool bg = false;
      for (const Word& e : lists[i]) {
        bool in = true;
        for (int c = 0; c < 3; ++c) in = in && e.bmin[c] - modMin[c] <= p[c] && p[c] <= e.bmax[c] + modMax[c];
        if (in) {
          bg = true;
          break;
        }
      }
      mask[i] = bg ? 0 : 255;
      count += !bg;
    }
    return count;
  }
  void Clear(int32_t thresh, const Bytes& mask) {
    for (uint32_t i = 0; i < w * h; ++i) {
      if (mask[i] == 0) continue;
      auto& list = lists[i];
      list.erase(std::remove_if(list.begin(), list.end(), [&](const Word& e) { return int64_t{e.stale} > thresh; }),
                 list.end());
      for (Word& e : list) e.tLast = t, e.stale = 0;
    }
  }
};

// The library model equals the test's book word for word.
::testing::AssertionResult SameModel(const Model* m, const Book& b) {
  if (m->t != b.t) return ::testing::AssertionFailure() << "frame counter " << m->t << " vs " << b.t;
  for (uint32_t i = 0; i < b.w * b.h; ++i) {
    const CodeWord* w = m->cbMap[i];
    for (size_t k = 0; k < b.lists[i].size(); ++k, w = w->next) {
      if (w == nullptr) return ::testing::AssertionFailure() << "pixel " << i << " has too few words";
      const Word& e = b.lists[i][k];
      const bool same = w->tLastUpdate == e.tLast && w->stale == e.stale && !std::memcmp(w->boxMin, e.bmin, 3) &&
                        !std::memcmp(w->boxMax, e.bmax, 3) && !std::memcmp(w->learnMin, e.lmin, 3) &&
                        !std::memcmp(w->learnMax, e.lmax, 3);
      if (!same) return ::testing::AssertionFailure() << "pixel " << i << " word " << k << " differs";
    }
    if (w != nullptr) return ::testing::AssertionFailure() << "pixel " << i << " has too many words";
  }
  return ::testing::AssertionSuccess();
}

size_t FreeWords(const Model* m) {
  size_t n = 0;
  for (const CodeWord* w = m->freeList; w; w = w->next) ++n;
  return n;
}

size_t UsedWords(const Model* m) {
  size_t n = 0;
  for (uint32_t i = 0; i < m->width * m->height; ++i)
    for (const CodeWord* w = m->cbMap[i]; w; w = w->next) ++n;
  return n;
}

// A synthetic video: a gradient background with +-2 noise, a 6x5 box moving across it from
// frame 20, and a lighting step of +40 from frame 45.
Bytes Frame(uint32_t w, uint32_t h, int k, std::mt19937& rng) {
  Bytes f(3 * size_t{w} * h);
  std::uniform_int_distribution<int> noise(-2, 2);
  const int light = k >= 45 ? 40 : 0;
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const bool object = k >= 20 && int(x) >= (k - 20) % int(w) && int(x) < (k - 20) % int(w) + 6 && y >= 4 && y < 9;
      for (int c = 0; c < 3; ++c) {
        const int base = object ? 230 - 60 * c : int(x * 5 + y * 3 + 40 * c) % 200 + 10;
        f[3 * (size_t{y} * w + x) + c] = static_cast<uint8_t>(std::clamp(base + light + noise(rng), 0, 255));
      }
    }
  return f;
}

class CodeBook : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override {
    tvx_fail_heap_after_for_test(-1);
    tvx_set_log_sink(nullptr);
  }
};

TEST_F(CodeBook, CreateSetsDefaultsAndReleaseFreesEverything) {
  void* model = reinterpret_cast<void*>(1);
  void** map = tvxCreateBGCodeBookModel(7, 5, &model);
  ASSERT_NE(map, nullptr);
  const Model* m = static_cast<const Model*>(model);
  EXPECT_EQ(reinterpret_cast<void**>(m->cbMap), map);
  EXPECT_EQ(m->width, 7u);
  EXPECT_EQ(m->height, 5u);
  EXPECT_EQ(m->t, 0u);
  EXPECT_EQ(Bytes(m->cbBounds, m->cbBounds + 9), (Bytes{10, 10, 10, 3, 1, 1, 10, 1, 1}));
  for (uint32_t i = 0; i < 35; ++i) EXPECT_EQ(map[i], nullptr);
  EXPECT_EQ(m->freeList, nullptr);
  EXPECT_EQ(m->storage->firstBlock, nullptr);
  EXPECT_EQ(m->storage->blockSize, 65408u);
  EXPECT_EQ(m->storage->freeBytes, 0u);
  for (int k = -255; k <= 512; ++k) EXPECT_EQ(m->satTable[255 + k], std::clamp(k, 0, 255)) << k;
  if (sizeof(void*) == 4) {
    EXPECT_EQ(sizeof(CodeWord), 24u);
    EXPECT_EQ(sizeof(Model), 40u);
  }
  EXPECT_EQ(tvxReleaseBGCodeBookModel(&model), 0);
  EXPECT_EQ(model, nullptr);
  EXPECT_EQ(tvxReleaseBGCodeBookModel(&model), 0);  // already released: nothing to do
  EXPECT_EQ(tvxReleaseBGCodeBookModel(nullptr), 3);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(CodeBook, FirstUpdateCreatesTheClampedBoxAndDriftWidensOneStepPerFrame) {
  void* model = nullptr;
  void** map = tvxCreateBGCodeBookModel(2, 1, &model);
  const uint8_t bounds[3] = {10, 20, 5}, mod[3] = {1, 1, 1};
  ASSERT_EQ(tvxConfigBGCodeBookModel(model, bounds, mod, mod), 0);
  Bytes px = {5, 250, 128, 100, 100, 100};
  ASSERT_EQ(tvxBGCodeBookUpdateu8(model, px.data(), 2, 1, 0, nullptr, 0, map), 0);
  const CodeWord* w = static_cast<CodeWord*>(map[0]);
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(w->next, nullptr);
  EXPECT_EQ(Bytes(w->learnMin, w->learnMin + 3), (Bytes{0, 230, 123}));
  EXPECT_EQ(Bytes(w->learnMax, w->learnMax + 3), (Bytes{15, 255, 133}));
  EXPECT_EQ(Bytes(w->boxMin, w->boxMin + 3), (Bytes{5, 250, 128}));
  EXPECT_EQ(w->tLastUpdate, 1u);
  // Pixel 1 drifts up by one level per frame: one word, its upper learning bound one step
  // ahead per frame while the lower stays.
  for (int k = 1; k < 20; ++k) {
    px[3] = px[4] = px[5] = static_cast<uint8_t>(100 + k);
    ASSERT_EQ(tvxBGCodeBookUpdateu8(model, px.data(), 2, 1, 6, nullptr, 0, map), 0);
  }
  const CodeWord* d = static_cast<CodeWord*>(map[1]);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d->next, nullptr);
  EXPECT_EQ(Bytes(d->learnMax, d->learnMax + 3), (Bytes{129, 139, 124}));
  EXPECT_EQ(Bytes(d->learnMin, d->learnMin + 3), (Bytes{90, 80, 95}));
  EXPECT_EQ(Bytes(d->boxMax, d->boxMax + 3), (Bytes{119, 119, 119}));
  EXPECT_EQ(d->tLastUpdate, 20u);
  // A step of 6 inside the learning box still moves its bound by a single level (to 130, not
  // to colour + 10).
  px[3] = 125;
  ASSERT_EQ(tvxBGCodeBookUpdateu8(model, px.data(), 2, 1, 6, nullptr, 0, map), 0);
  EXPECT_EQ(d->learnMax[0], 130);
  EXPECT_EQ(d->boxMax[0], 125);
  // A jump outside the learning box starts a new word at the head.
  px[3] = 200;
  ASSERT_EQ(tvxBGCodeBookUpdateu8(model, px.data(), 2, 1, 6, nullptr, 0, map), 0);
  const CodeWord* head = static_cast<CodeWord*>(map[1]);
  EXPECT_EQ(head->next, d);
  EXPECT_EQ(head->boxMin[0], 200);
  EXPECT_EQ(d->stale, 1u);
  // Pixel 0 kept its colour: matched on every frame, never stale.
  EXPECT_EQ(w->stale, 0u);
  EXPECT_EQ(w->tLastUpdate, 22u);
  tvxReleaseBGCodeBookModel(&model);
}

TEST_F(CodeBook, SyntheticVideoMatchesThePerPixelModel) {
  const uint32_t w = 23, h = 13;
  std::mt19937 rng(77);
  void* model = nullptr;
  void** map = tvxCreateBGCodeBookModel(w, h, &model);
  const Model* m = static_cast<const Model*>(model);
  Book book(w, h);
  Bytes mask(size_t{w} * h), expect(mask.size());
  Bytes half(mask.size());
  for (size_t i = 0; i < half.size(); ++i) half[i] = (i % 3) ? 255 : 0;
  for (int k = 0; k < 60; ++k) {
    SCOPED_TRACE(k);
    const Bytes f = Frame(w, h, k, rng);
    if (k < 20 || (k >= 45 && k < 52)) {
      // Learning on the empty scene, then on the lit scene for a few frames (a third of the
      // pixels masked off in the second phase).
      const Bytes* upd = k < 20 ? nullptr : &half;
      ASSERT_EQ(tvxBGCodeBookUpdateu8(model, f.data(), w, h, 0, upd ? upd->data() : nullptr, 0, map), 0);
      book.Update(f, upd);
    }
    int32_t count = -1;
    ASSERT_EQ(tvxBGCodeBookDiffu8(model, f.data(), w, h, 3 * w, mask.data(), w, map, &count), 0);
    const int32_t want = book.Diff(f, expect);
    EXPECT_EQ(count, want);
    EXPECT_EQ(mask, expect);
    if (k < 20) {
      EXPECT_EQ(count, 0) << "a learnt scene has no foreground";
    } else if (k < 45) {
      EXPECT_GT(count, 0) << "the object is found";
    }
  }
  EXPECT_TRUE(SameModel(m, book));
  // Words not matched over the last frames are cleared where the mask is set.
  ASSERT_EQ(tvxBGCodeBookClearStaleu8(model, 3, half.data(), w, h, 0, map), 0);
  book.Clear(3, half);
  EXPECT_TRUE(SameModel(m, book));
  // Words come in runs of 1024, as many runs to a block as fit after its link.
  const size_t words = UsedWords(m) + FreeWords(m), runsPerBlock = 65400 / (1024 * sizeof(CodeWord));
  EXPECT_EQ(tvxcb::RunLength(65408), 1024u);
  EXPECT_EQ(words % 1024, 0u);
  EXPECT_EQ(tvxcb::BlockCount(m), (words / 1024 + runsPerBlock - 1) / runsPerBlock);
  tvxReleaseBGCodeBookModel(&model);
}

TEST_F(CodeBook, ClearingBelowEveryStaleValueRecyclesAllWordsWithoutNewBlocks) {
  const uint32_t w = 40, h = 30;  // 1200 pixels: more than one run of words
  std::mt19937 rng(5);
  void* model = nullptr;
  void** map = tvxCreateBGCodeBookModel(w, h, &model);
  const Model* m = static_cast<const Model*>(model);
  for (int k = 0; k < 3; ++k) {
    Bytes f(3 * w * h);
    for (auto& v : f) v = static_cast<uint8_t>(rng());
    ASSERT_EQ(tvxBGCodeBookUpdateu8(model, f.data(), w, h, 0, nullptr, 0, map), 0);
  }
  const uint32_t blocks = tvxcb::BlockCount(m);
  const size_t used = UsedWords(m), total = used + FreeWords(m);
  EXPECT_GE(used, size_t{w} * h);
  Bytes all(size_t{w} * h, 1);
  ASSERT_EQ(tvxBGCodeBookClearStaleu8(model, -1, all.data(), w, h, w, map), 0);
  EXPECT_EQ(UsedWords(m), 0u);
  EXPECT_EQ(FreeWords(m), total);
  // The next update takes its words from the free list: the heap is not touched.
  tvx_fail_heap_after_for_test(0);
  Bytes f(3 * w * h, 9);
  ASSERT_EQ(tvxBGCodeBookUpdateu8(model, f.data(), w, h, 0, nullptr, 0, map), 0);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(tvxcb::BlockCount(m), blocks);
  EXPECT_EQ(UsedWords(m), size_t{w} * h);
  EXPECT_EQ(FreeWords(m), total - size_t{w} * h);
  // A second colour adds a word per pixel and ages the first; a threshold above every
  // staleness keeps both words and renews them.
  Bytes g(3 * w * h, 200);
  ASSERT_EQ(tvxBGCodeBookUpdateu8(model, g.data(), w, h, 0, nullptr, 0, map), 0);
  const CodeWord* old = static_cast<CodeWord*>(map[0])->next;
  ASSERT_NE(old, nullptr);
  EXPECT_EQ(old->stale, 1u);
  ASSERT_EQ(tvxBGCodeBookClearStaleu8(model, 1000, all.data(), w, h, w, map), 0);
  EXPECT_EQ(UsedWords(m), 2 * size_t{w} * h);
  EXPECT_EQ(old->stale, 0u);
  EXPECT_EQ(old->tLastUpdate, 5u);
  EXPECT_EQ(tvxcb::BlockCount(m), blocks);
  tvxReleaseBGCodeBookModel(&model);
}

TEST_F(CodeBook, SmallerFramesUseTheTopLeftOfTheMap) {
  void* model = nullptr;
  void** map = tvxCreateBGCodeBookModel(5, 4, &model);
  Bytes f(3 * 3 * 2, 50);
  ASSERT_EQ(tvxBGCodeBookUpdateu8(model, f.data(), 3, 2, 9, nullptr, 0, map), 0);
  for (uint32_t y = 0; y < 4; ++y)
    for (uint32_t x = 0; x < 5; ++x) EXPECT_EQ(map[y * 5 + x] != nullptr, x < 3 && y < 2) << x << "," << y;
  tvxReleaseBGCodeBookModel(&model);
}

TEST_F(CodeBook, BadArgumentsAreLoggedAndChangeNothing) {
  void* model = nullptr;
  void** map = tvxCreateBGCodeBookModel(4, 3, &model);
  const Model* m = static_cast<const Model*>(model);
  Bytes f(3 * 4 * 3, 7), mask(12, 0x5A);
  const std::string upd = "cbmodel && src && cbMap && srcStride >= srcWidth*3";
  const std::string dif = "cbmodel && src && fgMask && cbMap && srcStride >= srcWidth*3";
  const std::string clr = "cbmodel && fgMask && cbMap";
  EXPECT_EQ(tvxBGCodeBookUpdateu8(nullptr, f.data(), 4, 3, 12, nullptr, 0, map), 3);
  EXPECT_EQ(tvxBGCodeBookUpdateu8(model, nullptr, 4, 3, 12, nullptr, 0, map), 3);
  EXPECT_EQ(tvxBGCodeBookUpdateu8(model, f.data(), 4, 3, 11, nullptr, 0, map), 3);
  EXPECT_EQ(tvxBGCodeBookUpdateu8(model, f.data(), 4, 3, 12, mask.data(), 3, map), 3);  // mask rows too short
  EXPECT_EQ(tvxBGCodeBookDiffu8(model, f.data(), 4, 3, 12, nullptr, 4, map, nullptr), 3);
  EXPECT_EQ(tvxBGCodeBookClearStaleu8(model, 0, nullptr, 4, 3, 4, map), 3);
  EXPECT_EQ(tvxConfigBGCodeBookModel(nullptr, f.data(), f.data(), f.data()), 3);
  EXPECT_EQ(tvxConfigBGCodeBookModel(model, f.data(), nullptr, f.data()), 3);
  EXPECT_EQ(g_lines, (std::vector<std::string>{
                         AssertLine("tvxBGCodeBookUpdateu8", upd), AssertLine("tvxBGCodeBookUpdateu8", upd),
                         AssertLine("tvxBGCodeBookUpdateu8", upd), AssertLine("tvxBGCodeBookUpdateu8", upd),
                         AssertLine("tvxBGCodeBookDiffu8", dif), AssertLine("tvxBGCodeBookClearStaleu8", clr),
                         AssertLine("tvxConfigBGCodeBookModel", "cbmodel"),
                         AssertLine("tvxConfigBGCodeBookModel", "cbmodel")}));
  // A frame larger than the model or a map that is not the model's: refused, nothing changes.
  void** other = nullptr;
  Bytes big(3 * 5 * 3, 7);
  int32_t count = -7;
  EXPECT_EQ(tvxBGCodeBookUpdateu8(model, big.data(), 5, 3, 0, nullptr, 0, map), 3);
  EXPECT_EQ(tvxBGCodeBookUpdateu8(model, f.data(), 4, 3, 0, nullptr, 0, other), 3);
  EXPECT_EQ(tvxBGCodeBookUpdateu8(model, f.data(), 4, 3, 0, nullptr, 0, map + 1), 3);
  EXPECT_EQ(tvxBGCodeBookDiffu8(model, f.data(), 4, 4, 0, mask.data(), 0, map, &count), 3);
  EXPECT_EQ(tvxBGCodeBookClearStaleu8(model, -1, mask.data(), 4, 4, 0, map), 3);
  EXPECT_EQ(m->t, 0u) << "a rejected update does not count a frame";
  EXPECT_EQ(count, -7);
  EXPECT_EQ(mask, Bytes(12, 0x5A));
  for (int i = 0; i < 12; ++i) EXPECT_EQ(map[i], nullptr);
  EXPECT_EQ(tvxCreateBGCodeBookModel(4, 3, nullptr), nullptr);
  void* untouched = reinterpret_cast<void*>(8);
  EXPECT_EQ(tvxCreateBGCodeBookModel(0, 3, &untouched), nullptr);
  EXPECT_EQ(untouched, reinterpret_cast<void*>(8));
  tvxReleaseBGCodeBookModel(&model);
}

TEST_F(CodeBook, EmptyFramesCountAFrameButTouchNoPixel) {
  void* model = nullptr;
  void** map = tvxCreateBGCodeBookModel(4, 3, &model);
  Bytes f(36, 1), mask(12, 0x5A);
  int32_t count = -1;
  EXPECT_EQ(tvxBGCodeBookUpdateu8(model, f.data(), 4, 0, 12, nullptr, 0, map), 0);
  EXPECT_EQ(static_cast<Model*>(model)->t, 1u);
  EXPECT_EQ(tvxBGCodeBookDiffu8(model, f.data(), 0, 3, 0, mask.data(), 4, map, &count), 0);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(mask, Bytes(12, 0x5A));
  tvxReleaseBGCodeBookModel(&model);
}

TEST_F(CodeBook, CreateFailuresFreeWhatWasTakenAndLog) {
  for (int64_t granted = 0; granted < 3; ++granted) {
    SCOPED_TRACE(granted);
    g_lines.clear();
    void* model = reinterpret_cast<void*>(8);
    tvx_fail_heap_after_for_test(granted);
    EXPECT_EQ(tvxCreateBGCodeBookModel(8, 8, &model), nullptr);
    tvx_fail_heap_after_for_test(-1);
    EXPECT_EQ(model, nullptr);
    EXPECT_EQ(g_lines, std::vector<std::string>{"tavix_lib_log|NULL storage pointer\n"});
  }  // ASan reports the blocks taken before the failure if they leak
}

using CodeBookDeath = CodeBook;

TEST_F(CodeBookDeath, MapOrWordStorageExhaustionEndsTheProcess) {
  tvx_set_log_sink(nullptr);  // the child logs to stderr
  EXPECT_EXIT(
      {
        void* model = nullptr;
        tvx_fail_heap_after_for_test(3);
        tvxCreateBGCodeBookModel(8, 8, &model);
      },
      ::testing::ExitedWithCode(1), "src/cpu/tavixBGCodeBookC@272: cbmodel->cbMap Assertion failed");
  EXPECT_EXIT(
      {
        void* model = nullptr;
        void** map = tvxCreateBGCodeBookModel(8, 8, &model);
        Bytes f(3 * 64, 1);
        tvx_fail_heap_after_for_test(0);
        tvxBGCodeBookUpdateu8(model, f.data(), 8, 8, 0, nullptr, 0, map);
      },
      ::testing::ExitedWithCode(1), "src/cpu/tavixBGCodeBookC@441: cwfreelist Assertion failed");
}

// ---- mask cleaning ---------------------------------------------------------------------------------

Bytes Grid(const std::vector<std::string>& rows) {
  Bytes out;
  for (const auto& r : rows)
    for (char c : r) out.push_back(c == '#' ? 255 : c == '+' ? 1 : 0);
  return out;
}

Bytes Segment(const Bytes& in, uint32_t w, uint32_t h, uint32_t morphology, uint32_t minArea) {
  Bytes out(in.size(), 0x77);
  EXPECT_EQ(tvxSegmentFGMasku8(in.data(), w, h, 0, out.data(), 0, morphology, minArea), 0);
  return out;
}

TEST_F(CodeBook, OpeningRemovesSpecksAndClosingFillsHoles) {
  // Any non-zero byte is foreground ('+' is 1). The block touches the image's edges: outside
  // pixels do not erode it.
  const Bytes in = Grid({"####.....#",
                         "####......",
                         "#++#...#..",
                         "####......",
                         "..........",
                         ".......###"});
  EXPECT_EQ(Segment(in, 10, 6, 0, 0), Grid({"####.....#", "####......", "####...#..", "####......", "..........",
                                            ".......###"}));
  EXPECT_EQ(Segment(in, 10, 6, 1, 0), Grid({"####......", "####......", "####......", "####......", "..........",
                                            ".........."}));
  const Bytes holed = Grid({"#######.#",
                            "#######..",
                            "#######..",
                            "###.###..",
                            "#######..",
                            "#######..",
                            "#######.."});
  const Bytes block = Grid({"#######..", "#######..", "#######..", "#######..", "#######..", "#######..",
                            "#######.."});
  EXPECT_EQ(Segment(holed, 9, 7, 2, 0), block);
  Bytes opened = block;
  opened[3 * 9 + 3] = 0;  // opening alone keeps the hole
  EXPECT_EQ(Segment(holed, 9, 7, 1, 0), opened);
}

TEST_F(CodeBook, SmallBlobsAreDroppedByEightConnectedArea) {
  const Bytes in = Grid({"#.#...##",
                         ".#....##",
                         "#.#.....",
                         "......#.",
                         "##......"});
  // The X of five diagonal pixels is one blob; the 2x2 square has 4; the pairs 1 and 2.
  EXPECT_EQ(Segment(in, 8, 5, 0, 5), Grid({"#.#.....", ".#......", "#.#.....", "........", "........"}));
  EXPECT_EQ(Segment(in, 8, 5, 0, 4), Grid({"#.#...##", ".#....##", "#.#.....", "........", "........"}));
  EXPECT_EQ(Segment(in, 8, 5, 0, 2), Grid({"#.#...##", ".#....##", "#.#.....", "........", "##......"}));
  EXPECT_EQ(Segment(in, 8, 5, 0, 1), Segment(in, 8, 5, 0, 0));
}

TEST_F(CodeBook, SegmentInPlaceWithStridesAndBadArguments) {
  const uint32_t w = 6, h = 4, stride = 9;
  Bytes buf(stride * h, 0xEE);
  const Bytes grid = Grid({"#....+", "..###.", "..###.", "......"});
  const Bytes want = Grid({".....#", "..###.", "..###.", "......"});
  for (uint32_t y = 0; y < h; ++y) std::copy_n(&grid[y * w], w, &buf[y * stride]);
  EXPECT_EQ(tvxSegmentFGMasku8(buf.data(), w, h, stride, buf.data(), stride, 0, 2), 0);
  for (uint32_t y = 0; y < h; ++y) {
    EXPECT_EQ(Bytes(&buf[y * stride], &buf[y * stride + w]), Bytes(&want[y * w], &want[y * w + w])) << y;
    EXPECT_EQ(Bytes(&buf[y * stride + w], &buf[y * stride + stride]), Bytes(stride - w, 0xEE)) << "padding " << y;
  }
  Bytes out(w * h, 3);
  EXPECT_EQ(tvxSegmentFGMasku8(grid.data(), w, h, 0, out.data(), 0, 3, 0), 3);
  EXPECT_EQ(tvxSegmentFGMasku8(grid.data(), w, h, 5, out.data(), 0, 0, 0), 3);
  EXPECT_EQ(out, Bytes(w * h, 3));
  EXPECT_TRUE(g_lines.empty());
  tvx_fail_heap_after_for_test(0);  // the scratch buffer cannot be had
  EXPECT_EQ(tvxSegmentFGMasku8(grid.data(), w, h, 0, out.data(), 0, 2, 4), 5);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(out, Bytes(w * h, 3));
}

// ---- foreground integral ---------------------------------------------------------------------------

TEST_F(CodeBook, ForegroundIntegralCountsLumaAndChromaChanges) {
  std::mt19937 rng(31);
  for (uint32_t w : {1u, 2u, 5u, 8u, 37u}) {
    for (uint32_t h : {1u, 3u, 6u}) {
      SCOPED_TRACE(::testing::Message() << w << "x" << h);
      const uint32_t cw = (w + 1) / 2 * 2, ch = (h + 1) / 2;
      Bytes y(w * h), yr(w * h), c(cw * ch), cr(cw * ch);
      for (size_t i = 0; i < y.size(); ++i) {
        y[i] = static_cast<uint8_t>(rng());
        yr[i] = static_cast<uint8_t>(rng() % 3 ? y[i] + int(rng() % 21) - 10 : rng());
      }
      for (size_t i = 0; i < c.size(); ++i) {
        c[i] = static_cast<uint8_t>(rng());
        cr[i] = static_cast<uint8_t>(rng() % 2 ? c[i] + int(rng() % 13) - 6 : rng());
      }
      const uint32_t stride = (w + 1) * 4 + 8;
      std::vector<uint32_t> out(stride / 4 * (h + 1), 0xDEADBEEF);
      ASSERT_EQ(tvxFindForegroundIntegrateImageYCbCr420u32(y.data(), c.data(), yr.data(), cr.data(), w, h, 0, 0, 6, 8,
                                                           out.data(), stride),
                0);
      // Window counts from the definition, per entry.
      for (uint32_t yy = 0; yy <= h; ++yy)
        for (uint32_t xx = 0; xx <= w; ++xx) {
          uint32_t n = 0;
          for (uint32_t j = 0; j < yy; ++j)
            for (uint32_t i = 0; i < xx; ++i) {
              const size_t k = (j / 2) * cw + (i / 2) * 2;
              const int dl = std::abs(int(y[j * w + i]) - int(yr[j * w + i]));
              const int dc = std::abs(int(c[k]) - int(cr[k])) + std::abs(int(c[k + 1]) - int(cr[k + 1]));
              n += dl > 6 || dc > 8;
            }
          ASSERT_EQ(out[yy * stride / 4 + xx], n) << xx << "," << yy;
        }
      for (uint32_t yy = 0; yy <= h; ++yy) EXPECT_EQ(out[yy * stride / 4 + w + 1], 0xDEADBEEF) << "padding";
    }
  }
  uint8_t p[4] = {};
  uint32_t out[16] = {};
  EXPECT_EQ(tvxFindForegroundIntegrateImageYCbCr420u32(p, p, p, p, 3, 1, 3, 3, 0, 0, out, 16), 3);  // chroma row short
  EXPECT_EQ(tvxFindForegroundIntegrateImageYCbCr420u32(p, p, p, nullptr, 2, 1, 0, 0, 0, 0, out, 0), 3);
}

}  // namespace
