// Contour family: border following in the four retrieval modes against OpenCV's findContours
// point for point (order, start, direction, hierarchy) on blob and smoothed-noise images, with
// hand-checked shapes that run without OpenCV too; capacities, the work buffer, bad arguments;
// the SIMD tier against the reference on every target; drawing and the convex fill against
// drawContours / fillConvexPoly; the hull, the bounding rectangle and the point-in-polygon test
// against their OpenCV counterparts.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"
#include "simd_check.h"

#if TAVIX_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

using tvxtest::Image;
using Pts = std::vector<std::pair<uint32_t, uint32_t>>;
using FindFn = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t*, uint32_t*,
                           uint32_t*, int32_t*, uint32_t, uint8_t*, uint32_t);

struct Found {
  int32_t status = -1;
  std::vector<Pts> contours;
  std::vector<std::array<int32_t, 4>> hierarchy;
  bool operator==(const Found& o) const {
    return status == o.status && contours == o.contours && hierarchy == o.hierarchy;
  }
};

Found FindAll(FindFn fn, const Image& img, uint32_t approx, uint32_t maxContours = 100000, uint32_t maxPoints = 4000000,
          uint8_t* work = nullptr, uint32_t workSize = 0) {
  std::vector<uint32_t> counts(maxContours + 1, 0xEEEEEEEEu), pts(size_t{2} * std::min(maxPoints, 4000000u) + 2);
  std::vector<int32_t> hier(size_t{4} * maxContours + 4, 0x5A5A5A5A);
  uint32_t n = 0xDEADu;
  Found f;
  f.status = fn(img.bytes(), img.width(), img.height(), img.stride(), maxContours, maxPoints, &n, counts.data(),
                pts.data(), hier.data(), approx, work, workSize);
  if (f.status != 0) {
    EXPECT_EQ(n, 0xDEADu);
    return f;
  }
  EXPECT_EQ(counts[n], 0xEEEEEEEEu) << "count written past the contours";
  EXPECT_EQ(hier[size_t{4} * n], 0x5A5A5A5A) << "hierarchy written past the contours";
  size_t k = 0;
  for (uint32_t c = 0; c < n; ++c) {
    Pts p;
    for (uint32_t i = 0; i < counts[c]; ++i, ++k) p.emplace_back(pts[2 * k], pts[2 * k + 1]);
    f.contours.push_back(p);
    f.hierarchy.push_back({hier[4 * c], hier[4 * c + 1], hier[4 * c + 2], hier[4 * c + 3]});
  }
  return f;
}

// Random filled rectangles and discs with random holes and specks, some touching the edges.
Image Blobs(uint32_t w, uint32_t h, uint32_t seed, uint32_t pad = 0, uint32_t misalign = 0) {
  Image img(w, h, 1, pad, misalign);
  std::mt19937 rng(seed);
  for (uint32_t y = 0; y < h; ++y) std::memset(img.row(y), 0, w);
  const int shapes = 3 + int(w * h / 400);
  for (int s = 0; s < shapes; ++s) {
    const int cx = int(rng() % w), cy = int(rng() % h), r = 1 + int(rng() % 12);
    const uint8_t v = (s % 5 == 4) ? 0 : uint8_t(1 + rng() % 255);  // some shapes cut holes
    const bool disc = rng() & 1;
    for (int y = std::max(0, cy - r); y < std::min<int>(h, cy + r + 1); ++y)
      for (int x = std::max(0, cx - r); x < std::min<int>(w, cx + r + 1); ++x)
        if (!disc || (x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r) img.row(y)[x] = v;
  }
  for (uint32_t n = 0; n < w * h / 50; ++n) img.row(rng() % h)[rng() % w] ^= uint8_t(rng() | 1);
  return img;
}

// Thresholded smoothed noise: organic shapes with nested holes and thin bridges.
Image Organic(uint32_t w, uint32_t h, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<int> v(size_t(w) * h);
  for (auto& e : v) e = int(rng() % 256);
  for (int pass = 0; pass < 3; ++pass) {
    std::vector<int> t(v);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) {
        int s = 0, n = 0;
        for (int dy = -2; dy <= 2; ++dy)
          for (int dx = -2; dx <= 2; ++dx) {
            const int xx = int(x) + dx, yy = int(y) + dy;
            if (xx >= 0 && yy >= 0 && xx < int(w) && yy < int(h)) s += t[size_t(yy) * w + xx], ++n;
          }
        v[size_t(y) * w + x] = s / n;
      }
  }
  Image img(w, h, 1, 3, 1);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) img.row(y)[x] = v[size_t(y) * w + x] > 128 ? 200 : 0;
  return img;
}

const FindFn kFind[4] = {tvxFindContoursExternalu8, tvxFindContoursListu8, tvxFindContoursCcompu8,
                         tvxFindContoursTreeu8};
const FindFn kFindC[4] = {tvxFindContoursExternalu8C, tvxFindContoursListu8C, tvxFindContoursCcompu8C,
                          tvxFindContoursTreeu8C};
const FindFn kFindV[4] = {tvxFindContoursExternalu8V, tvxFindContoursListu8V, tvxFindContoursCcompu8V,
                          tvxFindContoursTreeu8V};

#if TAVIX_HAVE_OPENCV
Found OpenCvFind(const Image& img, int mode, uint32_t approx) {
  cv::Mat m(int(img.height()), int(img.width()), CV_8UC1);
  for (uint32_t y = 0; y < img.height(); ++y) std::memcpy(m.ptr(int(y)), img.row(y), img.width());
  std::vector<std::vector<cv::Point>> cs;
  std::vector<cv::Vec4i> hier;
  cv::findContours(m, cs, hier, mode, approx ? cv::CHAIN_APPROX_SIMPLE : cv::CHAIN_APPROX_NONE);
  Found f;
  f.status = 0;
  for (size_t i = 0; i < cs.size(); ++i) {
    Pts p;
    for (const cv::Point& q : cs[i]) p.emplace_back(uint32_t(q.x), uint32_t(q.y));
    f.contours.push_back(p);
    f.hierarchy.push_back({hier[i][0], hier[i][1], hier[i][2], hier[i][3]});
  }
  return f;
}

const int kCvModes[4] = {cv::RETR_EXTERNAL, cv::RETR_LIST, cv::RETR_CCOMP, cv::RETR_TREE};

TEST(ContourFind, EqualsOpenCvInEveryModeOnBlobsAndOrganicImages) {
  std::vector<Image> images;
  for (uint32_t s = 0; s < 6; ++s) images.push_back(Blobs(37 + 29 * s, 23 + 17 * s, 100 + s, s % 3, s % 2));
  images.push_back(Organic(160, 120, 7));
  images.push_back(Organic(97, 61, 8));
  // Many borders: the labels of the scan wrap around after 125 borders.
  images.push_back(Blobs(300, 200, 77));
  for (size_t i = 0; i < images.size(); ++i)
    for (int mode = 0; mode < 4; ++mode)
      for (uint32_t approx = 0; approx < 2; ++approx) {
        SCOPED_TRACE(::testing::Message() << "image " << i << " mode " << mode << " approx " << approx);
        const Found mine = FindAll(kFind[mode], images[i], approx);
        const Found ref = OpenCvFind(images[i], kCvModes[mode], approx);
        ASSERT_EQ(mine.contours.size(), ref.contours.size());
        for (size_t c = 0; c < ref.contours.size(); ++c) {
          ASSERT_EQ(mine.contours[c], ref.contours[c]) << "contour " << c;
          ASSERT_EQ(mine.hierarchy[c], ref.hierarchy[c]) << "contour " << c;
        }
      }
}

TEST(ContourFind, EqualsOpenCvOnSpecialShapes) {
  // Single pixels, one-pixel lines, diagonal chains, a full image, checkerboards.
  std::vector<Image> images;
  Image a(9, 7, 1, 0, 0);
  for (uint32_t y = 0; y < 7; ++y) std::memset(a.row(y), 0, 9);
  a.row(0)[0] = 1, a.row(3)[4] = 9, a.row(6)[8] = 1, a.row(2)[1] = a.row(3)[2] = a.row(4)[3] = 5;
  for (uint32_t x = 5; x < 9; ++x) a.row(1)[x] = 3;
  images.push_back(a);
  Image full(5, 4, 1, 1, 0);
  for (uint32_t y = 0; y < 4; ++y) std::memset(full.row(y), 255, 5);
  images.push_back(full);
  Image chk(12, 10, 1, 0, 1);
  for (uint32_t y = 0; y < 10; ++y)
    for (uint32_t x = 0; x < 12; ++x) chk.row(y)[x] = ((x + y) & 1) ? 1 : 0;
  images.push_back(chk);
  Image one(1, 1, 1, 0, 0);
  one.row(0)[0] = 1;
  images.push_back(one);
  for (size_t i = 0; i < images.size(); ++i)
    for (int mode = 0; mode < 4; ++mode)
      for (uint32_t approx = 0; approx < 2; ++approx) {
        SCOPED_TRACE(::testing::Message() << "image " << i << " mode " << mode << " approx " << approx);
        EXPECT_EQ(FindAll(kFind[mode], images[i], approx), OpenCvFind(images[i], kCvModes[mode], approx));
      }
}
#endif  // TAVIX_HAVE_OPENCV

// A 6x4 rectangle with a 2x2 hole and a pixel inside the hole, worked out by hand.
TEST(ContourFind, NestedShapesByHand) {
  Image img(10, 8, 1, 2, 1);
  for (uint32_t y = 0; y < 8; ++y) std::memset(img.row(y), 0, 10);
  for (uint32_t y = 1; y <= 5; ++y)
    for (uint32_t x = 1; x <= 6; ++x) img.row(y)[x] = 7;
  img.row(2)[2] = img.row(2)[3] = img.row(2)[4] = 0;
  img.row(3)[2] = img.row(3)[4] = 0;
  img.row(4)[2] = img.row(4)[3] = img.row(4)[4] = 0;  // hole ring around (3, 3), which stays set
  const Found tree = FindAll(tvxFindContoursTreeu8, img, 1);
  ASSERT_EQ(tree.status, 0);
  ASSERT_EQ(tree.contours.size(), 3u);
  // Outer border: corners only with the simple form, going down first.
  EXPECT_EQ(tree.contours[0], (Pts{{1, 1}, {1, 5}, {6, 5}, {6, 1}}));
  // Hole: starts on the pixel left of the hole's first pixel, runs the other way round.
  EXPECT_EQ(tree.contours[1], (Pts{{1, 2}, {2, 1}, {4, 1}, {5, 2}, {5, 4}, {4, 5}, {2, 5}, {1, 4}}));
  EXPECT_EQ(tree.contours[2], (Pts{{3, 3}}));
  EXPECT_EQ(tree.hierarchy[0], (std::array<int32_t, 4>{-1, -1, 1, -1}));
  EXPECT_EQ(tree.hierarchy[1], (std::array<int32_t, 4>{-1, -1, 2, 0}));
  EXPECT_EQ(tree.hierarchy[2], (std::array<int32_t, 4>{-1, -1, -1, 1}));
  // Two levels: the inner pixel is top level again; newest top-level border first.
  const Found ccomp = FindAll(tvxFindContoursCcompu8, img, 1);
  ASSERT_EQ(ccomp.contours.size(), 3u);
  EXPECT_EQ(ccomp.contours[0], (Pts{{3, 3}}));
  EXPECT_EQ(ccomp.contours[1], tree.contours[0]);
  EXPECT_EQ(ccomp.hierarchy[1], (std::array<int32_t, 4>{-1, 0, 2, -1}));
  EXPECT_EQ(ccomp.hierarchy[2], (std::array<int32_t, 4>{-1, -1, -1, 1}));
  const Found ext = FindAll(tvxFindContoursExternalu8, img, 0);
  ASSERT_EQ(ext.contours.size(), 1u);
  EXPECT_EQ(ext.contours[0].size(), 2u * (6 + 5) - 4);
  EXPECT_EQ(ext.hierarchy[0], (std::array<int32_t, 4>{-1, -1, -1, -1}));
  // The list: reverse order of discovery, linked in order.
  const Found list = FindAll(tvxFindContoursListu8, img, 1);
  ASSERT_EQ(list.contours.size(), 3u);
  EXPECT_EQ(list.contours[0], tree.contours[2]);
  EXPECT_EQ(list.contours[2], tree.contours[0]);
  EXPECT_EQ(list.hierarchy[1], (std::array<int32_t, 4>{2, 0, -1, -1}));
  // Foreground on the image edge is found (the outside counts as background).
  for (uint32_t y = 0; y < 8; ++y) std::memset(img.row(y), 1, 10);
  const Found edge = FindAll(tvxFindContoursListu8, img, 1);
  ASSERT_EQ(edge.contours.size(), 1u);
  EXPECT_EQ(edge.contours[0], (Pts{{0, 0}, {0, 7}, {9, 7}, {9, 0}}));
  EXPECT_TRUE(img.GuardsIntact());
}

TEST(ContourFind, CapacitiesEndTheOutputOnWholeContours) {
  const Image img = Blobs(120, 90, 5);
  for (int mode = 0; mode < 4; ++mode) {
    SCOPED_TRACE(mode);
    const Found all = FindAll(kFind[mode], img, 0);
    ASSERT_GT(all.contours.size(), 6u);
    const Found few = FindAll(kFind[mode], img, 0, 5);
    ASSERT_EQ(few.contours.size(), 5u);
    for (size_t c = 0; c < 5; ++c) {
      EXPECT_EQ(few.contours[c], all.contours[c]);
      for (int k = 0; k < 4; ++k)
        EXPECT_EQ(few.hierarchy[c][k], all.hierarchy[c][k] >= 5 ? -1 : all.hierarchy[c][k]) << c << " " << k;
    }
    // Points: the contour that does not fit ends the list even if later ones would fit.
    const uint32_t budget = uint32_t(all.contours[0].size() + all.contours[1].size() + all.contours[2].size() - 1);
    const Found pts = FindAll(kFind[mode], img, 0, 100000, budget);
    ASSERT_EQ(pts.contours.size(), 2u);
    EXPECT_EQ(pts.contours[1], all.contours[1]);
    EXPECT_EQ(FindAll(kFind[mode], img, 0, 0).contours.size(), 0u);
  }
}

TEST(ContourFind, WorkBufferAndBadArguments) {
  const Image img = Blobs(64, 48, 9);
  uint8_t* work = nullptr;
  uint32_t size = 0;
  ASSERT_EQ(tvxFindContoursAllocate(64, 48, &work, &size), 0);
  ASSERT_NE(work, nullptr);
  EXPECT_EQ(size, 5u * 66 * 50);
  for (int mode = 0; mode < 4; ++mode) {
    const Found plain = FindAll(kFind[mode], img, 0);
    EXPECT_EQ(FindAll(kFind[mode], img, 0, 100000, 4000000, work, size), plain);
    // A buffer for a smaller image is refused before anything is written.
    EXPECT_EQ(FindAll(kFind[mode], img, 0, 100000, 4000000, work, size - 1).status, 3);
    EXPECT_EQ(FindAll(kFind[mode], img, 2).status, 3);
  }
  uint8_t* none = nullptr;
  uint32_t noneSize = 7;
  EXPECT_EQ(tvxFindContoursAllocate(0, 48, &none, &noneSize), 3);
  EXPECT_EQ(tvxFindContoursAllocate(16385, 4, &none, &noneSize), 3);
  EXPECT_EQ(noneSize, 7u);
  EXPECT_EQ(tvxFindContoursDelete(&work), 0);
  EXPECT_EQ(work, nullptr);
  EXPECT_EQ(tvxFindContoursDelete(&work), 0);
  EXPECT_EQ(tvxFindContoursDelete(nullptr), 3);
  // Out of memory while recording borders: 5 and nothing written.
  tvx_fail_heap_after_for_test(1);
  const Found oom = FindAll(tvxFindContoursTreeu8, img, 0);
  tvx_fail_heap_after_for_test(-1);
  EXPECT_EQ(oom.status, 5);
  uint32_t n = 0;
  uint32_t c[4];
  uint32_t p[8];
  int32_t h[16];
  EXPECT_EQ(tvxFindContoursListu8(img.bytes(), 64, 48, 63, 4, 4, &n, c, p, h, 0, nullptr, 0), 3);
  EXPECT_EQ(tvxFindContoursListu8(img.bytes(), 64, 48, 64, 4, 4, &n, c, p, nullptr, 0, nullptr, 0), 3);
}

TEST(ContourFind, SimdTierEqualsReferenceOnEveryTarget) {
  std::vector<Image> images;
  for (uint32_t w : {1u, 7u, 16u, 33u, 95u})
    for (uint32_t h : {1u, 5u, 40u}) images.push_back(Blobs(w, h, w * 7 + h, w % 5, w % 3));
  images.push_back(Organic(131, 77, 3));
  tvxtest::ForEachTarget([&] {
    for (size_t i = 0; i < images.size(); ++i)
      for (int mode = 0; mode < 4; ++mode)
        for (uint32_t approx = 0; approx < 2; ++approx) {
          SCOPED_TRACE(::testing::Message() << "image " << i << " mode " << mode);
          const Found v = FindAll(kFindV[mode], images[i], approx);
          EXPECT_EQ(v.status, 0);
          EXPECT_EQ(v, FindAll(kFindC[mode], images[i], approx));
          EXPECT_TRUE(images[i].GuardsIntact());
        }
  });
}

// ---- drawing --------------------------------------------------------------------------------

struct List {
  std::vector<uint32_t> pts, counts;
};
List Polys(std::mt19937& rng, uint32_t w, uint32_t h, uint32_t n) {
  List l;
  for (uint32_t c = 0; c < n; ++c) {
    // Even contours star-shaped (vertices sorted by angle around a centre), odd ones in random order.
    const uint32_t k = 1 + rng() % 9;
    const double cx = double(rng() % w), cy = double(rng() % h);
    std::vector<std::pair<double, std::pair<uint32_t, uint32_t>>> v;
    for (uint32_t i = 0; i < k; ++i) {
      const uint32_t x = uint32_t(rng() % w), y = uint32_t(rng() % h);
      v.push_back({std::atan2(double(y) - cy + 0.1, double(x) - cx + 0.1), {x, y}});
    }
    if (c % 2 == 0) std::sort(v.begin(), v.end());  // odd contours: any order, edges may cross
    for (const auto& e : v) l.pts.push_back(e.second.first), l.pts.push_back(e.second.second);
    l.counts.push_back(k);
  }
  return l;
}

TEST(ContourDraw, RejectsBadListsWithoutDrawing) {
  Image img(20, 10, 1, 0, 0);
  for (uint32_t y = 0; y < 10; ++y) std::memset(img.row(y), 0, 20);
  const uint32_t pts[6] = {1, 1, 19, 9, 20, 3};
  const uint32_t counts[2] = {2, 1};
  const uint8_t col[3] = {1, 2, 3};
  EXPECT_EQ(tvxDrawContouru8(img.bytes(), 20, 10, 20, pts, 3, counts, 2, -1, 1, 9), 3);  // (20, 3) outside
  EXPECT_EQ(tvxDrawContouru8(img.bytes(), 20, 10, 20, pts, 2, counts, 2, -1, 1, 9), 3);  // counts exceed points
  EXPECT_EQ(tvxDrawContouru8(img.bytes(), 20, 10, 20, pts, 3, counts, 2, 2, 1, 9), 3);   // index past the list
  EXPECT_EQ(tvxDrawContouru8(img.bytes(), 20, 10, 20, pts, 3, counts, 2, 0, 2, 9), 3);   // thickness
  EXPECT_EQ(tvxDrawContourPlanaru8(img.bytes(), 20, 5, 20, 5, pts, 3, counts, 2, 0, 1, col), 3);
  EXPECT_EQ(tvxFillConvexPolyu8(img.bytes(), 20, 10, 20, pts, 3, 9), 3);
  for (uint32_t y = 0; y < 10; ++y)
    for (uint32_t x = 0; x < 20; ++x) ASSERT_EQ(img.row(y)[x], 0) << x << "," << y;
  // The first contour alone is inside: drawn.
  EXPECT_EQ(tvxDrawContouru8(img.bytes(), 20, 10, 20, pts, 3, counts, 2, 0, 1, 9), 0);
  EXPECT_EQ(img.row(1)[1], 9);
  EXPECT_EQ(img.row(9)[19], 9);
  EXPECT_TRUE(img.GuardsIntact());
}

TEST(ContourDraw, LineIsSymmetricAndEightConnected) {
  // A line covers max(|dx|, |dy|) + 1 pixels, one per step of the major axis, whatever its direction.
  std::mt19937 rng(3);
  for (int t = 0; t < 200; ++t) {
    const uint32_t pts[4] = {uint32_t(rng() % 31), uint32_t(rng() % 23), uint32_t(rng() % 31), uint32_t(rng() % 23)};
    const uint32_t rev[4] = {pts[2], pts[3], pts[0], pts[1]};
    const uint32_t two = 2;
    std::vector<uint8_t> a(31 * 23, 0), b(31 * 23, 0);
    ASSERT_EQ(tvxDrawContouru8(a.data(), 31, 23, 31, pts, 2, &two, 1, -1, 1, 1), 0);
    ASSERT_EQ(tvxDrawContouru8(b.data(), 31, 23, 31, rev, 2, &two, 1, -1, 1, 1), 0);
    EXPECT_EQ(a, b);
    const int dx = std::abs(int(pts[2]) - int(pts[0])), dy = std::abs(int(pts[3]) - int(pts[1]));
    EXPECT_EQ(std::count(a.begin(), a.end(), 1), std::max(dx, dy) + 1);
  }
}

#if TAVIX_HAVE_OPENCV
std::vector<std::vector<cv::Point>> ToCv(const List& l) {
  std::vector<std::vector<cv::Point>> out;
  size_t k = 0;
  for (uint32_t n : l.counts) {
    std::vector<cv::Point> c;
    for (uint32_t i = 0; i < n; ++i, ++k) c.emplace_back(int(l.pts[2 * k]), int(l.pts[2 * k + 1]));
    out.push_back(c);
  }
  return out;
}

TEST(ContourDraw, EqualsOpenCvOnOneAndManyChannels) {
  std::mt19937 rng(11);
  for (int t = 0; t < 40; ++t) {
    const uint32_t w = 20 + rng() % 60, h = 10 + rng() % 50, nc = 1 + rng() % 5;
    const List l = Polys(rng, w, h, nc);
    const auto cvl = ToCv(l);
    const int32_t index = (t % 3 == 0) ? int32_t(rng() % nc) : -1;
    const int32_t thick = (t & 1) ? -1 : 1;
    SCOPED_TRACE(::testing::Message() << "case " << t << " thickness " << thick);
    // One channel.
    Image img(w, h, 1, 3, 1);
    cv::Mat ref(int(h), int(w), CV_8UC1);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) img.row(y)[x] = ref.at<uint8_t>(int(y), int(x)) = uint8_t(rng() % 4);
    ASSERT_EQ(tvxDrawContouru8(img.bytes(), w, h, img.stride(), l.pts.data(), uint32_t(l.pts.size() / 2),
                               l.counts.data(), nc, index, thick, 200), 0);
    cv::drawContours(ref, cvl, index, cv::Scalar(200), thick, cv::LINE_8);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) ASSERT_EQ(img.row(y)[x], ref.at<uint8_t>(int(y), int(x))) << x << "," << y;
    EXPECT_TRUE(img.GuardsIntact());
    // Interleaved and planar, 1 to 4 channels.
    const uint32_t ch = 1 + t % 4;
    const uint8_t col[4] = {10, 20, 30, 40};
    cv::Mat refc(int(h), int(w), CV_8UC(int(ch)), cv::Scalar::all(0));
    cv::drawContours(refc, cvl, index, cv::Scalar(10, 20, 30, 40), thick, cv::LINE_8);
    Image il(w, h, ch, 5, 0);
    for (uint32_t y = 0; y < h; ++y) std::memset(il.row(y), 0, size_t{w} * ch);
    ASSERT_EQ(tvxDrawContourInterleavedu8(il.bytes(), w, h, il.stride(), ch, l.pts.data(),
                                          uint32_t(l.pts.size() / 2), l.counts.data(), nc, index, thick, col), 0);
    std::vector<uint8_t> planes(size_t{w + 2} * h * ch, 0);
    ASSERT_EQ(tvxDrawContourPlanaru8(planes.data(), w, h, w + 2, ch, l.pts.data(), uint32_t(l.pts.size() / 2),
                                     l.counts.data(), nc, index, thick, col), 0);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x)
        for (uint32_t c = 0; c < ch; ++c) {
          const uint8_t want = refc.ptr<uint8_t>(int(y))[x * ch + c];
          ASSERT_EQ(il.row(y)[x * ch + c], want) << x << "," << y << " ch " << c;
          ASSERT_EQ(planes[c * size_t{w + 2} * h + size_t{y} * (w + 2) + x], want) << x << "," << y << " plane " << c;
        }
    EXPECT_TRUE(il.GuardsIntact());
  }
}

TEST(ContourDraw, FilledContoursOfFoundBordersEqualOpenCv) {
  // Drawing what the finder returns, holes included, reproduces OpenCV's picture.
  const Image img = Organic(120, 90, 21);
  uint32_t n = 0;
  std::vector<uint32_t> counts(4000), pts(400000);
  std::vector<int32_t> hier(16000);
  ASSERT_EQ(tvxFindContoursListu8(img.bytes(), 120, 90, img.stride(), 4000, 200000, &n, counts.data(), pts.data(),
                                  hier.data(), 0, nullptr, 0), 0);
  List l;
  l.counts.assign(counts.begin(), counts.begin() + n);
  uint32_t total = 0;
  for (uint32_t c : l.counts) total += c;
  l.pts.assign(pts.begin(), pts.begin() + 2 * total);
  for (int32_t thick : {1, -1}) {
    std::vector<uint8_t> mine(120 * 90, 0);
    cv::Mat ref(90, 120, CV_8UC1, cv::Scalar(0));
    ASSERT_EQ(tvxDrawContouru8(mine.data(), 120, 90, 0, l.pts.data(), total, l.counts.data(), n, -1, thick, 255), 0);
    cv::drawContours(ref, ToCv(l), -1, cv::Scalar(255), thick, cv::LINE_8);
    EXPECT_EQ(0, std::memcmp(mine.data(), ref.data, mine.size())) << "thickness " << thick;
  }
}

TEST(ContourFill, ConvexPolygonsEqualOpenCv) {
  std::mt19937 rng(5);
  for (int t = 0; t < 300; ++t) {
    const uint32_t w = 8 + rng() % 70, h = 8 + rng() % 50;
    std::vector<cv::Point> raw, poly;
    const uint32_t k = 1 + rng() % 12;
    for (uint32_t i = 0; i < k; ++i) raw.emplace_back(int(rng() % w), int(rng() % h));
    if (t % 4 == 0) poly = raw;  // degenerate and non-convex inputs too: the rules still hold
    else cv::convexHull(raw, poly, t % 8 == 1);
    std::vector<uint32_t> pts;
    for (const cv::Point& p : poly) pts.push_back(uint32_t(p.x)), pts.push_back(uint32_t(p.y));
    Image img(w, h, 1, 2, 3);
    cv::Mat ref(int(h), int(w), CV_8UC1, cv::Scalar(0));
    for (uint32_t y = 0; y < h; ++y) std::memset(img.row(y), 0, w);
    ASSERT_EQ(tvxFillConvexPolyu8(img.bytes(), w, h, img.stride(), pts.data(), uint32_t(poly.size()), 77), 0);
    cv::fillConvexPoly(ref, poly, cv::Scalar(77), cv::LINE_8, 0);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x)
        ASSERT_EQ(img.row(y)[x], ref.at<uint8_t>(int(y), int(x))) << "case " << t << " at " << x << "," << y;
    EXPECT_TRUE(img.GuardsIntact());
  }
}

// ---- point sets -------------------------------------------------------------------------------

TEST(ContourPoints, HullEqualsOpenCvIndices) {
  std::mt19937 rng(8);
  for (int t = 0; t < 400; ++t) {
    const uint32_t n = 1 + rng() % 40;
    const uint32_t range = (t % 5 == 0) ? 3 : 1000;  // small ranges: duplicates and collinear runs
    std::vector<cv::Point> p;
    std::vector<uint32_t> pts;
    for (uint32_t i = 0; i < n; ++i) {
      uint32_t x = rng() % range, y = rng() % range;
      if (t % 7 == 0) y = 2 * x + 1;  // every point on one line
      p.emplace_back(int(x), int(y));
      pts.push_back(x), pts.push_back(y);
    }
    for (int cw = 0; cw < 2; ++cw) {
      std::vector<int> ref;
      cv::convexHull(p, ref, cw != 0, false);
      std::vector<uint32_t> idx(n, 0xFFFFFFFFu);
      uint32_t m = 0;
      ASSERT_EQ(tvxFindConvexHull(pts.data(), n, cw, idx.data(), &m), 0);
      ASSERT_EQ(m, ref.size()) << "case " << t;
      for (uint32_t i = 0; i < m; ++i) EXPECT_EQ(idx[i], uint32_t(ref[i])) << "case " << t << " cw " << cw << " at " << i;
    }
  }
}

TEST(ContourPoints, PointPolygonTestEqualsOpenCv) {
  std::mt19937 rng(12);
  for (int t = 0; t < 100; ++t) {
    const uint32_t n = 1 + rng() % 12;
    std::vector<cv::Point> p;
    std::vector<uint32_t> pts;
    for (uint32_t i = 0; i < n; ++i) {
      p.emplace_back(int(rng() % 40), int(rng() % 40));
      pts.push_back(uint32_t(p.back().x)), pts.push_back(uint32_t(p.back().y));
    }
    for (int q = 0; q < 30; ++q) {
      float x = float(rng() % 44) - 2, y = float(rng() % 44) - 2;
      if (q & 1) x += 0.25f * float(rng() % 4), y += 0.5f * float(rng() % 2);
      for (int md = 0; md < 2; ++md) {
        float r = 99;
        ASSERT_EQ(tvxPointPolygonTest(pts.data(), n, x, y, md, &r), 0);
        const double ref = cv::pointPolygonTest(p, cv::Point2f(x, y), md != 0);
        EXPECT_NEAR(r, ref, 1e-5 * (1 + std::fabs(ref))) << "case " << t << " (" << x << ", " << y << ") " << md;
      }
    }
  }
}

TEST(ContourPoints, BoundingRectangleEqualsOpenCv) {
  std::mt19937 rng(2);
  for (uint32_t n : {1u, 2u, 3u, 7u, 8u, 9u, 33u, 1000u}) {
    std::vector<cv::Point> p;
    std::vector<uint32_t> pts;
    for (uint32_t i = 0; i < n; ++i) {
      p.emplace_back(int(rng() % 5000), int(rng() % 3000));
      pts.push_back(uint32_t(p.back().x)), pts.push_back(uint32_t(p.back().y));
    }
    const cv::Rect ref = cv::boundingRect(p);
    uint32_t r[4];
    ASSERT_EQ(tvxBoundingRectangle(pts.data(), n, r), 0);
    EXPECT_EQ(r[0], uint32_t(ref.x));
    EXPECT_EQ(r[1], uint32_t(ref.y));
    EXPECT_EQ(r[2], uint32_t(ref.width));
    EXPECT_EQ(r[3], uint32_t(ref.height));
  }
}
#endif  // TAVIX_HAVE_OPENCV

TEST(ContourPoints, IndependentChecksAndBadArguments) {
  // A square with an interior point and edge midpoints: the hull is the four corners.
  const uint32_t sq[12] = {5, 5, 0, 0, 10, 0, 10, 5, 10, 10, 0, 10};
  uint32_t idx[6], m = 0;
  ASSERT_EQ(tvxFindConvexHull(sq, 6, 0, idx, &m), 0);
  std::vector<uint32_t> got(idx, idx + m);
  std::sort(got.begin(), got.end());
  EXPECT_EQ(got, (std::vector<uint32_t>{1, 2, 4, 5}));
  // Orientation: the signed area (y down) is negative for the clockwise flag, positive without.
  for (int32_t cw = 0; cw < 2; ++cw) {
    ASSERT_EQ(tvxFindConvexHull(sq, 6, cw, idx, &m), 0);
    ASSERT_EQ(m, 4u);
    int64_t area = 0;
    for (uint32_t i = 0; i < m; ++i) {
      const uint32_t a = idx[i], b = idx[(i + 1) % m];
      area += int64_t(sq[2 * a]) * sq[2 * b + 1] - int64_t(sq[2 * b]) * sq[2 * a + 1];
    }
    EXPECT_EQ(area, cw ? -200 : 200);
  }
  const uint32_t far[2] = {1u << 30, 0};
  m = 9;
  EXPECT_EQ(tvxFindConvexHull(far, 1, 0, idx, &m), 3);
  EXPECT_EQ(m, 9u);
  // Inside, outside, on an edge, on a vertex; distances to the square.
  const uint32_t box[8] = {0, 0, 10, 0, 10, 10, 0, 10};
  float r = 0;
  for (auto [x, y, md, want] : std::vector<std::array<float, 4>>{{5, 5, 0, 1},     {11, 5, 0, -1}, {10, 3, 0, 0},
                                                                {0, 0, 0, 0},     {5.5f, 2, 0, 1}, {5, 3, 1, 3},
                                                                {13, 14, 1, -5}, {10, 7, 1, 0}}) {
    ASSERT_EQ(tvxPointPolygonTest(box, 4, x, y, int32_t(md), &r), 0);
    EXPECT_FLOAT_EQ(r, want) << x << "," << y;
  }
  ASSERT_EQ(tvxPointPolygonTest(box, 0, 1, 1, 1, &r), 0);
  EXPECT_EQ(r, -FLT_MAX);
  r = 5;
  EXPECT_EQ(tvxPointPolygonTest(box, 4, NAN, 1, 1, &r), 3);
  EXPECT_EQ(tvxPointPolygonTest(box, 4, 1, 1, 1, nullptr), 3);
  EXPECT_EQ(r, 5);
  uint32_t rect[4] = {9, 9, 9, 9};
  ASSERT_EQ(tvxBoundingRectangle(box, 0, rect), 0);
  EXPECT_EQ(rect[2], 0u);
  // SIMD tier against the reference on every target, odd counts, unaligned starts.
  std::mt19937 rng(4);
  std::vector<uint32_t> pts(2 * 301 + 1);
  for (auto& v : pts) v = rng();
  tvxtest::ForEachTarget([&] {
    for (uint32_t n : {1u, 2u, 3u, 5u, 8u, 17u, 300u}) {
      uint32_t a[4], b[4];
      ASSERT_EQ(tvxBoundingRectangleC(pts.data() + 1, n, a), 0);
      ASSERT_EQ(tvxBoundingRectangleV(pts.data() + 1, n, b), 0);
      EXPECT_EQ(std::vector<uint32_t>(a, a + 4), std::vector<uint32_t>(b, b + 4)) << n;
    }
  });
}

}  // namespace
