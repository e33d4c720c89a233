// MSER SIMD tier against the reference tier on every compiled target: every image form, both
// connectivities, widths around the vector sizes, padded and misaligned sources placed against
// inaccessible pages (the preparation must read nothing outside the rectangle), smaller images
// on one handle (re-targeted working strides), and capacity-limited outputs.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

#include "frame/frame.h"
#include "mser_cases.h"
#include "simd_check.h"

namespace {

using tvxmsertest::CallExt;
using tvxmsertest::Result;
using tvxtest::Image;

Image Load(const tvxmsertest::Bytes& pixels, uint32_t w, uint32_t h, uint32_t pad, uint32_t misalign) {
  Image img(w, h, 1, pad, misalign);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) img.row(y)[x] = pixels[size_t{y} * w + x];
  return img;
}

TEST(MserLanes, ExtendedFormsMatchReference) {
  std::mt19937 rng(77);
  void* h4 = nullptr;
  void* h8 = nullptr;
  ASSERT_EQ(tvxMserInit(300, 64, 2, 4, 4000, 0.6f, 0.2f, &h4), 1);
  ASSERT_EQ(tvxMserNN8Init(300, 64, 3, 4, 4000, 0.6f, 0.2f, &h8), 1);
  const struct { tvxmsertest::ExtFn c, v; bool eight; } forms[] = {
      {&tvxMserExtu8C, &tvxMserExtu8V, false},
      {&tvxMserExtu8_v2C, &tvxMserExtu8_v2V, false},
      {&tvxMserSplitExtu8C, &tvxMserSplitExtu8V, false},
      {&tvxMserExtNN8u8C, &tvxMserExtNN8u8V, true},
  };
  tvxtest::ForEachTarget([&] {
    int shape = 0;
    for (uint32_t w : {51u, 63u, 64u, 65u, 97u, 128u, 131u, 255u, 300u}) {
      const uint32_t h = 6 + (w * 7) % 59, pad = (w * 3) % 37, misalign = w % 5;
      const tvxmsertest::Bytes pixels = (shape++ % 2) ? tvxmsertest::TexturedScene(w, h, w)
                                                      : tvxmsertest::BlockyImage(rng, w, h, 6, 3);
      const Image src = Load(pixels, w, h, pad, misalign);
      for (const auto& f : forms) {
        SCOPED_TRACE(::testing::Message() << w << "x" << h << " pad " << pad << " eight " << f.eight);
        void* handle = f.eight ? h8 : h4;
        const Result c = CallExt(f.c, handle, src.bytes(), w, h, src.stride(), 512, 40000);
        const Result v = CallExt(f.v, handle, src.bytes(), w, h, src.stride(), 512, 40000);
        EXPECT_EQ(c.status, 0);
        EXPECT_TRUE(v == c);
        // Tight capacities end both tiers at the same region.
        const Result ct = CallExt(f.c, handle, src.bytes(), w, h, src.stride(), 3, 700);
        const Result vt = CallExt(f.v, handle, src.bytes(), w, h, src.stride(), 3, 700);
        EXPECT_TRUE(vt == ct);
      }
      EXPECT_TRUE(src.GuardsIntact());
    }
  });
  tvxMserRelease(h4);
  tvxMserRelease(h8);
}

TEST(MserLanes, BasicFormsAndBoundingBoxesMatchReference) {
  void* h4 = nullptr;
  void* h8 = nullptr;
  ASSERT_EQ(tvxMserInit(200, 120, 2, 6, 5000, 0.5f, 0.25f, &h4), 1);
  ASSERT_EQ(tvxMserNN8Init(200, 120, 2, 6, 5000, 0.5f, 0.25f, &h8), 1);
  typedef int32_t (*BasicFn)(void*, const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t*,
                             uint32_t*, uint32_t*);
  const struct { BasicFn c, v; bool eight; } forms[] = {
      {&tvxMseru8C, &tvxMseru8V, false}, {&tvxMseru8_v2C, &tvxMseru8_v2V, false}, {&tvxMserNN8u8C, &tvxMserNN8u8V, true}};
  tvxtest::ForEachTarget([&] {
    for (uint32_t w : {61u, 150u, 200u}) {
      const uint32_t h = w * 3 / 5;
      const Image src = Load(tvxmsertest::TexturedScene(w, h, w + 1), w, h, w % 11, w % 3);
      for (const auto& f : forms) {
        std::vector<uint32_t> cc(300, 1), vc(300, 2), cp(60000, 3), vp(60000, 3);
        uint32_t cn = 5, vn = 6;
        void* handle = f.eight ? h8 : h4;
        EXPECT_EQ(f.c(handle, src.bytes(), w, h, src.stride(), 300, 30000, &cn, cc.data(), cp.data()), 0);
        EXPECT_EQ(f.v(handle, src.bytes(), w, h, src.stride(), 300, 30000, &vn, vc.data(), vp.data()), 0);
        EXPECT_EQ(cn, vn);
        EXPECT_GT(cn, 0u);
        EXPECT_TRUE(std::equal(cc.begin(), cc.begin() + cn, vc.begin()));
        EXPECT_EQ(cp, vp);
      }
      Result c, v;
      std::vector<uint32_t> cb(4 * 300, 9), vb(4 * 300, 9);
      for (auto [r, fn, boxes] : {std::make_tuple(&c, &tvxMserExtu8_v3C, &cb), std::make_tuple(&v, &tvxMserExtu8_v3V, &vb)}) {
        *r = CallExt(&tvxMserExtu8C, h4, src.bytes(), w, h, src.stride(), 300, 30000);  // sizes the arrays
        r->status = fn(h4, src.bytes(), w, h, src.stride(), 300, 30000, &r->numContours, r->counts.data(),
                       r->points.data(), r->variations.data(), r->polarities.data(), r->nodeIds.data(),
                       r->nodeCounters.data(), boxes->data());
      }
      EXPECT_TRUE(v == c);
      EXPECT_EQ(vb, cb);
      EXPECT_TRUE(src.GuardsIntact());
    }
  });
  tvxMserRelease(h4);
  tvxMserRelease(h8);
}

}  // namespace
