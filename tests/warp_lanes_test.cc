// SIMD warps and affine transforms against their reference variants on every compiled target:
// destination widths 1 to 70 and large ones, padded strides, misaligned first pixels, matrices
// that keep most of the source, that cut its edges, that leave it, and degenerate ones.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

std::vector<Shape> Shapes() {
  std::vector<Shape> shapes;
  for (uint32_t w = 1; w <= 70; ++w) shapes.push_back({w, 1 + w % 5, (w * 7) % 13, w % 4});
  shapes.push_back({331, 7, 5, 3});
  shapes.push_back({1283, 3, 0, 1});
  return shapes;
}

struct Matrix {
  const char* name;
  float m[9];
};

// Matrices for a destination of dw x dh over a source of sw x sh.
std::vector<Matrix> Matrices(uint32_t sw, uint32_t sh, uint32_t dw, uint32_t dh) {
  const float sx = static_cast<float>(sw) / static_cast<float>(dw), sy = static_cast<float>(sh) / static_cast<float>(dh);
  const float c = std::cos(0.1f), s = std::sin(0.1f);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  return {
      {"identity", {1, 0, 0, 0, 1, 0, 0, 0, 1}},
      {"half shift", {1, 0, 0.5f, 0, 1, 0.5f, 0, 0, 1}},
      {"fit", {sx * 0.97f, 0, 0.3f, 0, sy * 0.95f, 0.2f, 0, 0, 1}},
      {"rotate", {sx * c, -sx * s, 1.5f, sy * s, sy * c, -0.7f, 0, 0, 1}},
      {"perspective", {sx * 1.01f, 0.02f, -0.4f, -0.01f, sy * 0.98f, 0.6f, 0.0003f, -0.0002f, 1.0f}},
      {"overhang", {sx * 1.2f, 0.05f, -2.3f, 0.03f, sy * 1.3f, -1.1f, 0, 0, 1}},
      {"outside", {1, 0, -static_cast<float>(sw) - 4, 0, 1, 0, 0, 0, 1}},
      {"horizon", {1, 0.1f, 0, 0, 1, 0, 0.05f, -0.2f, 1}},
      {"degenerate", {nan, 0, 0, 0, 1, 0, 0, 0, 0}},
  };
}

class WarpLanes : public ::testing::Test {
 protected:
  Image Source(uint32_t w, uint32_t h, uint32_t ch, const Shape& s) {
    Image img(w, h, ch, s.pad + 1, (s.misalign + 1) % 4);
    img.RandomizeWithExtremes(rng_, ch, 5);
    return img;
  }
  // Runs C and V on fresh destinations of the same shape and compares them.
  template <typename Call>
  void Same(uint32_t w, uint32_t h, uint32_t ch, const Shape& s, const char* what, Call call) {
    Image c(w, h, ch, s.pad, s.misalign), v(w, h, ch, s.pad, s.misalign);
    const int32_t rc = call(true, c), rv = call(false, v);
    EXPECT_EQ(rc, rv) << what;
    EXPECT_TRUE(v.SameRect(c)) << what;
    EXPECT_TRUE(v.GuardsIntact()) << what;
  }
  std::mt19937 rng_{1618};
};

TEST_F(WarpLanes, SingleChannelWarpsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      const uint32_t sw = s.width % 3 == 0 ? s.width + 5 : s.width, sh = s.height + 4;
      const Image src = Source(sw, sh, 1, s);
      for (const Matrix& m : Matrices(sw, sh, s.width, s.height)) {
        SCOPED_TRACE(::testing::Message() << m.name << " " << s.width << "x" << s.height);
        const float* M = m.m;
        Same(s.width, s.height, 1, s, "v2", [&](bool ref, Image& d) {
          return (ref ? tvxWarpPerspectiveu8_v2C : tvxWarpPerspectiveu8_v2V)(src.bytes(), sw, sh, src.stride(), d.bytes(), s.width, s.height, d.stride(), M);
        });
        for (uint32_t interp : {0u, 1u})
          for (uint32_t border : {0u, 1u}) {
            Same(s.width, s.height, 1, s, "v3", [&](bool ref, Image& d) {
              return (ref ? tvxWarpPerspectiveu8_v3C : tvxWarpPerspectiveu8_v3V)(src.bytes(), sw, sh, src.stride(), d.bytes(), s.width, s.height, d.stride(), M, interp, border, 211);
            });
            Same(s.width, s.height, 1, s, "v4", [&](bool ref, Image& d) {
              return (ref ? tvxWarpPerspectiveu8_v4C : tvxWarpPerspectiveu8_v4V)(src.bytes(), sw, sh, src.stride(), d.bytes(), s.width, s.height, d.stride(), M, interp, border, 211);
            });
          }
      }
    }
  });
}

TEST_F(WarpLanes, ThreeChannelAndTwoPlaneWarpsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      const uint32_t sw = s.width + 3, sh = s.height + 3;
      const Image rgb = Source(sw, sh, 3, s);
      const Image luma = Source(sw, sh, 1, s), chroma = Source((sw + 1) / 2, (sh + 1) / 2, 2, s);
      for (const Matrix& m : Matrices(sw, sh, s.width, s.height)) {
        SCOPED_TRACE(::testing::Message() << m.name << " " << s.width << "x" << s.height);
        const float* M = m.m;
        Same(s.width, s.height, 3, s, "3 channels", [&](bool ref, Image& d) {
          return (ref ? tvx3ChannelWarpPerspectiveu8_v2C : tvx3ChannelWarpPerspectiveu8_v2V)(rgb.bytes(), sw, sh, rgb.stride(), d.bytes(), s.width, s.height, d.stride(), M);
        });
        const uint32_t cw = (s.width + 1) / 2, ch = (s.height + 1) / 2;
        Image yc(s.width, s.height, 1, s.pad, s.misalign), yv(s.width, s.height, 1, s.pad, s.misalign);
        Image uvc(cw, ch, 2, s.pad + 2, 1), uvv(cw, ch, 2, s.pad + 2, 1);
        EXPECT_EQ(tvx2PlaneWarpPerspectiveu8C(luma.bytes(), chroma.bytes(), sw, sh, luma.stride(), chroma.stride(), yc.bytes(), uvc.bytes(),
                                              s.width, s.height, yc.stride(), uvc.stride(), M), 0);
        EXPECT_EQ(tvx2PlaneWarpPerspectiveu8V(luma.bytes(), chroma.bytes(), sw, sh, luma.stride(), chroma.stride(), yv.bytes(), uvv.bytes(),
                                              s.width, s.height, yv.stride(), uvv.stride(), M), 0);
        EXPECT_TRUE(yv.SameRect(yc));
        EXPECT_TRUE(uvv.SameRect(uvc));
        EXPECT_TRUE(yv.GuardsIntact());
        EXPECT_TRUE(uvv.GuardsIntact());
      }
    }
  });
}

TEST_F(WarpLanes, AffineTransformsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : Shapes()) {
      const uint32_t sw = s.width + 6, sh = s.height + 5;
      const Image src = Source(sw, sh, 1, s), rgb = Source(sw, sh, 3, s);
      for (const Matrix& m : Matrices(sw, sh, s.width, s.height)) {
        if (m.m[6] != 0 || m.m[7] != 0) continue;
        SCOPED_TRACE(::testing::Message() << m.name << " " << s.width << "x" << s.height);
        const float* A = m.m;
        Same(s.width, s.height, 1, s, "clipped", [&](bool ref, Image& d) {
          return (ref ? tvxTransformAffineClippedu8C : tvxTransformAffineClippedu8V)(src.bytes(), sw, sh, src.stride(), d.bytes(), s.width, s.height, d.stride(), A);
        });
        Same(s.width, s.height, 1, s, "clipped nearest", [&](bool ref, Image& d) {
          return (ref ? tvxTransformAffineClippedu8_v2C : tvxTransformAffineClippedu8_v2V)(src.bytes(), sw, sh, src.stride(), d.bytes(), s.width, s.height, d.stride(), A, 0);
        });
        for (uint32_t border : {0u, 1u, 2u})
          Same(s.width, s.height, 1, s, "v3", [&](bool ref, Image& d) {
            return (ref ? tvxTransformAffineClippedu8_v3C : tvxTransformAffineClippedu8_v3V)(src.bytes(), sw, sh, src.stride(), d.bytes(), s.width, s.height, d.stride(), A, border & 1, border, 17);
          });
        Same(s.width, s.height, 1, s, "zero border", [&](bool ref, Image& d) {
          return (ref ? tvxTransformAffineu8_v2C : tvxTransformAffineu8_v2V)(src.bytes(), sw, sh, src.stride(), d.bytes(), s.width, s.height, d.stride(), A);
        });
        Same(8, 8, 1, s, "8x8", [&](bool ref, Image& d) {
          return (ref ? tvxTransformAffine8x8u8C : tvxTransformAffine8x8u8V)(src.bytes(), sw, sh, src.stride(), d.bytes(), d.stride(), A);
        });
        Same(s.width, s.height, 3, s, "bicubic", [&](bool ref, Image& d) {
          return (ref ? tvx3ChannelTransformAffineClippedBCu8C : tvx3ChannelTransformAffineClippedBCu8V)(rgb.bytes(), sw, sh, rgb.stride(), d.bytes(), s.width, s.height, d.stride(), A);
        });
      }
    }
  });
}

// Larger frames: destinations big enough for the row-pair path, under matrices that keep the
// source, cut its edges or turn it, for every border rule.
TEST_F(WarpLanes, LargeFramesMatchReference) {
  const Shape s{640, 48, 16, 0};
  const Image src = Source(700, 60, 1, s), rgb = Source(700, 60, 3, s);
  const float c = std::cos(0.3f), sn = std::sin(0.3f);
  const std::vector<Matrix> matrices = {
      {"mild", {1.05f, 0.03f, 3.7f, -0.02f, 1.1f, 2.9f, 0.00002f, 0.00004f, 1.0f}},
      {"overhang", {1.2f, 0.0f, -20.5f, 0.0f, 1.3f, -4.25f, 0, 0, 1}},
      {"turn", {c, -sn, 30.0f, sn, c, -60.0f, 0, 0, 1}},
      {"tilt", {1.0f, 0.2f, -5.0f, 0.01f, 1.0f, -3.0f, 0.001f, 0.002f, 0.9f}},
  };
  tvxtest::ForEachTarget([&] {
    for (const Matrix& m : matrices) {
      SCOPED_TRACE(m.name);
      const float* M = m.m;
      for (uint32_t interp : {0u, 1u})
        for (uint32_t border : {0u, 1u})
          Same(s.width, s.height, 1, s, "v3", [&](bool ref, Image& d) {
            return (ref ? tvxWarpPerspectiveu8_v3C : tvxWarpPerspectiveu8_v3V)(src.bytes(), 700, 60, src.stride(), d.bytes(), s.width, s.height, d.stride(), M, interp, border, 5);
          });
      Same(s.width, s.height, 1, s, "v4", [&](bool ref, Image& d) {
        return (ref ? tvxWarpPerspectiveu8_v4C : tvxWarpPerspectiveu8_v4V)(src.bytes(), 700, 60, src.stride(), d.bytes(), s.width, s.height, d.stride(), M, 1, 1, 250);
      });
      Same(s.width, s.height, 3, s, "3 channels", [&](bool ref, Image& d) {
        return (ref ? tvx3ChannelWarpPerspectiveu8_v2C : tvx3ChannelWarpPerspectiveu8_v2V)(rgb.bytes(), 700, 60, rgb.stride(), d.bytes(), s.width, s.height, d.stride(), M);
      });
      if (M[6] != 0 || M[7] != 0) continue;
      Same(s.width, s.height, 1, s, "clipped", [&](bool ref, Image& d) {
        return (ref ? tvxTransformAffineClippedu8C : tvxTransformAffineClippedu8V)(src.bytes(), 700, 60, src.stride(), d.bytes(), s.width, s.height, d.stride(), M);
      });
      Same(s.width, s.height, 3, s, "bicubic", [&](bool ref, Image& d) {
        return (ref ? tvx3ChannelTransformAffineClippedBCu8C : tvx3ChannelTransformAffineClippedBCu8V)(rgb.bytes(), 700, 60, rgb.stride(), d.bytes(), s.width, s.height, d.stride(), M);
      });
    }
  });
}

// With the heap exhausted the framed copy cannot be had (5, nothing written) and the bilinear
// path goes without its row-pair copy, with unchanged results.
TEST_F(WarpLanes, ExhaustedHeapKeepsResultsOrReportsFive) {
  const Shape s{96, 64, 3, 1};
  const Image src = Source(100, 70, 1, s);
  const float M[9] = {0.98f, 0.05f, 1.3f, -0.04f, 1.02f, 2.7f, 0.0001f, 0.0002f, 1.0f};
  tvxtest::ForEachTarget([&] {
    Image c(96, 64, 1, 3, 1), v(96, 64, 1, 3, 1), framed(96, 64, 1, 3, 1);
    ASSERT_EQ(tvxWarpPerspectiveu8_v3C(src.bytes(), 100, 70, src.stride(), c.bytes(), 96, 64, c.stride(), M, 1, 1, 40), 0);
    tvx_fail_heap_after_for_test(0);
    const int32_t rv = tvxWarpPerspectiveu8_v3V(src.bytes(), 100, 70, src.stride(), v.bytes(), 96, 64, v.stride(), M, 1, 1, 40);
    const int32_t r4 = tvxWarpPerspectiveu8_v4V(src.bytes(), 100, 70, src.stride(), framed.bytes(), 96, 64, framed.stride(), M, 1, 1, 40);
    tvx_fail_heap_after_for_test(-1);
    EXPECT_EQ(rv, 0);
    EXPECT_TRUE(v.SameRect(c));
    EXPECT_EQ(r4, 5);
    for (uint32_t y = 0; y < 64; ++y)
      for (uint32_t x = 0; x < 96; ++x) ASSERT_EQ(framed.row(y)[x], tvxtest::kGuard);
  });
}

}  // namespace
