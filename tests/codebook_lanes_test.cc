// SIMD variants of the code book and its companions against the reference variants on every
// compiled target: the model after a sequence of updates word for word, masks and counts of the
// difference, cleaned masks and foreground integrals, over odd widths, padded strides,
// misaligned and page-end images, colours at 0 and 255 and margins that saturate.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "cpu/codebook.h"
#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxcb::CodeWord;
using tvxcb::Model;
using tvxtest::Image;
using tvxtest::Shape;

std::vector<Shape> Shapes() {
  std::vector<Shape> shapes;
  for (uint32_t w = 1; w <= 70; w += (w < 20 ? 1 : 7)) shapes.push_back({w, 1 + w % 4, (w * 7) % 13, w % 4});
  shapes.push_back({257, 3, 5, 1});
  shapes.push_back({1021, 2, 3, 3});
  return shapes;
}

::testing::AssertionResult SameModels(const Model* a, const Model* b) {
  if (a->t != b->t) return ::testing::AssertionFailure() << "frame counters differ";
  for (uint32_t i = 0; i < a->width * a->height; ++i) {
    const CodeWord *u = a->cbMap[i], *v = b->cbMap[i];
    for (int k = 0; u || v; ++k, u = u->next, v = v->next) {
      if (!u || !v) return ::testing::AssertionFailure() << "pixel " << i << ": lists of different lengths";
      if (u->tLastUpdate != v->tLastUpdate || u->stale != v->stale || std::memcmp(u->boxMin, v->boxMin, 12) != 0)
        return ::testing::AssertionFailure() << "pixel " << i << " word " << k << " differs";
    }
  }
  size_t fa = 0, fb = 0;
  for (const CodeWord* w = a->freeList; w; w = w->next) ++fa;
  for (const CodeWord* w = b->freeList; w; w = w->next) ++fb;
  if (fa != fb) return ::testing::AssertionFailure() << "free lists differ: " << fa << " vs " << fb;
  return ::testing::AssertionSuccess();
}

struct Config {
  uint8_t bounds[3], modMin[3], modMax[3];
};

class CodeBookLanes : public ::testing::Test {
 protected:
  // Each pixel shows one of three colours (one of them near 0 or 255) with noise, so lists
  // grow to several words and pixels match first, later or no words.
  void Fill(Image& img, uint32_t seed) {
    std::mt19937 pick(seed);
    for (uint32_t y = 0; y < img.height(); ++y)
      for (uint32_t x = 0; x < img.width(); ++x) {
        const uint32_t mode = pick() % 4;
        for (int c = 0; c < 3; ++c) {
          const int base = mode == 0 ? 3 : mode == 1 ? 252 : mode == 2 ? int((x * 37 + y * 11 + c * 50) % 256) : int(rng_() % 256);
          const int v = base + int(rng_() % 9) - 4;
          img.row(y)[3 * x + c] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
        }
      }
  }
  std::mt19937 rng_{4242};
};

TEST_F(CodeBookLanes, UpdateAndDiffMatchReference) {
  const Config configs[] = {{{10, 10, 10}, {3, 1, 1}, {10, 1, 1}},
                            {{0, 255, 30}, {255, 0, 7}, {0, 255, 9}},
                            {{40, 3, 200}, {20, 60, 0}, {5, 0, 250}}};
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      for (const Config& cfg : configs) {
        SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height << " bounds " << int(cfg.bounds[0]));
        void *mc = nullptr, *mv = nullptr;
        void** mapC = tvxCreateBGCodeBookModel(s.width, s.height, &mc);
        void** mapV = tvxCreateBGCodeBookModel(s.width, s.height, &mv);
        ASSERT_TRUE(mapC && mapV);
        tvxConfigBGCodeBookModel(mc, cfg.bounds, cfg.modMin, cfg.modMax);
        tvxConfigBGCodeBookModel(mv, cfg.bounds, cfg.modMin, cfg.modMax);
        Image mask(s.width, s.height, 1, s.pad % 5, s.misalign);
        for (uint32_t y = 0; y < s.height; ++y)
          for (uint32_t x = 0; x < s.width; ++x) mask.row(y)[x] = static_cast<uint8_t>((x * 7 + y) % 5 ? 9 : 0);
        for (int k = 0; k < 8; ++k) {
          Image frame(s.width, s.height, 3, s.pad, (s.misalign + k) % 4);
          Fill(frame, 100 + k);
          const uint8_t* m = k % 3 == 2 ? mask.bytes() : nullptr;
          ASSERT_EQ(tvxBGCodeBookUpdateu8C(mc, frame.bytes(), s.width, s.height, frame.stride(), m, mask.stride(), mapC), 0);
          ASSERT_EQ(tvxBGCodeBookUpdateu8V(mv, frame.bytes(), s.width, s.height, frame.stride(), m, mask.stride(), mapV), 0);
          ASSERT_TRUE(SameModels(static_cast<Model*>(mc), static_cast<Model*>(mv))) << "after update " << k;
          EXPECT_TRUE(frame.GuardsIntact());
          Image probe(s.width, s.height, 3, s.pad + 1, s.misalign);
          Fill(probe, 100 + (k * 5) % 9);  // learnt and unlearnt mixes
          Image c(s.width, s.height, 1, s.pad, 1), v(s.width, s.height, 1, s.pad, 1);
          int32_t nc = -1, nv = -2;
          ASSERT_EQ(tvxBGCodeBookDiffu8C(mc, probe.bytes(), s.width, s.height, probe.stride(), c.bytes(), c.stride(), mapC, &nc), 0);
          ASSERT_EQ(tvxBGCodeBookDiffu8V(mv, probe.bytes(), s.width, s.height, probe.stride(), v.bytes(), v.stride(), mapV, &nv), 0);
          EXPECT_TRUE(v.SameRect(c)) << "mask after update " << k;
          EXPECT_EQ(nv, nc);
          EXPECT_TRUE(v.GuardsIntact());
        }
        tvxReleaseBGCodeBookModel(&mc);
        tvxReleaseBGCodeBookModel(&mv);
      }
    }
  });
}

TEST_F(CodeBookLanes, SegmentMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      for (uint32_t density : {3u, 50u, 90u}) {
        Image src(s.width, s.height + 4, 1, s.pad, s.misalign);
        for (uint32_t y = 0; y < src.height(); ++y)
          for (uint32_t x = 0; x < s.width; ++x)
            src.row(y)[x] = rng_() % 100 < density ? static_cast<uint8_t>(1 + rng_() % 255) : 0;
        for (uint32_t morphology = 0; morphology <= 2; ++morphology)
          for (uint32_t minArea : {0u, 3u, 9u}) {
            SCOPED_TRACE(::testing::Message() << s.width << "x" << src.height() << " density " << density << " morphology "
                                              << morphology << " minArea " << minArea);
            Image c(s.width, src.height(), 1, s.pad + 2, 3), v(s.width, src.height(), 1, s.pad + 2, 3);
            ASSERT_EQ(tvxSegmentFGMasku8C(src.bytes(), s.width, src.height(), src.stride(), c.bytes(), c.stride(), morphology, minArea), 0);
            ASSERT_EQ(tvxSegmentFGMasku8V(src.bytes(), s.width, src.height(), src.stride(), v.bytes(), v.stride(), morphology, minArea), 0);
            EXPECT_TRUE(v.SameRect(c));
            EXPECT_TRUE(v.GuardsIntact());
          }
      }
    }
  });
}

TEST_F(CodeBookLanes, ForegroundIntegralMatchesReference) {
  const uint32_t thresholds[][2] = {{0, 0}, {6, 8}, {254, 509}, {255, 510}, {1000, 3}, {3, 100000}};
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      const uint32_t h = s.height + 3, cw = (s.width + 1) / 2 * 2, ch = (h + 1) / 2;
      Image y(s.width, h, 1, s.pad, s.misalign), yr(s.width, h, 1, s.pad, s.misalign);
      Image c(cw, ch, 1, s.pad, s.misalign), cr(cw, ch, 1, s.pad, s.misalign);
      y.RandomizeWithExtremes(rng_, 1, 4);
      c.RandomizeWithExtremes(rng_, 1, 4);
      for (uint32_t j = 0; j < h; ++j)
        for (uint32_t i = 0; i < s.width; ++i)
          yr.row(j)[i] = static_cast<uint8_t>(rng_() % 3 ? y.row(j)[i] + int(rng_() % 15) - 7 : rng_());
      for (uint32_t j = 0; j < ch; ++j)
        for (uint32_t i = 0; i < cw; ++i)
          cr.row(j)[i] = static_cast<uint8_t>(rng_() % 2 ? c.row(j)[i] + int(rng_() % 11) - 5 : rng_());
      for (const auto& t : thresholds) {
        SCOPED_TRACE(::testing::Message() << s.width << "x" << h << " thresholds " << t[0] << ", " << t[1]);
        Image oc(s.width + 1, h + 1, 4, 4 * (s.pad % 3), 0), ov(s.width + 1, h + 1, 4, 4 * (s.pad % 3), 0);
        ASSERT_EQ(tvxFindForegroundIntegrateImageYCbCr420u32C(y.bytes(), c.bytes(), yr.bytes(), cr.bytes(), s.width, h,
                                                              y.stride(), c.stride(), t[0], t[1], oc.as<uint32_t>(), oc.stride()),
                  0);
        ASSERT_EQ(tvxFindForegroundIntegrateImageYCbCr420u32V(y.bytes(), c.bytes(), yr.bytes(), cr.bytes(), s.width, h,
                                                              y.stride(), c.stride(), t[0], t[1], ov.as<uint32_t>(), ov.stride()),
                  0);
        EXPECT_TRUE(ov.SameRect(oc));
        EXPECT_TRUE(ov.GuardsIntact());
      }
    }
  });
}

}  // namespace
