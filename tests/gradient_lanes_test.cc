// SIMD variants of the gradient family and the Canny detectors against their reference
// variants on every compiled target: widths 1-70 and large, heights around the 3x3 frame,
// padded misaligned rows whose guards must survive, random and extreme pixels.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

std::vector<Shape> GradientShapes() {
  std::vector<Shape> shapes;
  for (const Shape& s : tvxtest::SweepShapes()) shapes.push_back({s.width, s.height + 2 * (s.width % 3), s.pad, s.misalign});
  shapes.push_back({67, 21, 3, 1});
  return shapes;
}

// Random bytes with runs of 0 and 255 so sums reach their extremes.
void Fill(Image& img, std::mt19937& rng) {
  img.RandomizeWithExtremes(rng, 1, 8);
}

// Outputs of one call: twin images for the reference and the SIMD run, pre-filled alike.
struct Outputs {
  std::vector<Image> c, v;
  Outputs(int count, uint32_t w, uint32_t h, size_t elemBytes, uint32_t pad, uint32_t misalign) {
    for (int k = 0; k < count; ++k) {
      c.emplace_back(w, h, elemBytes, pad, misalign);
      v.emplace_back(w, h, elemBytes, pad, misalign);
    }
    for (auto* set : {&c, &v})
      for (Image& img : *set)
        for (uint32_t y = 0; y < h; ++y) std::memset(img.row(y), 0x3C, w * elemBytes);
  }
  void Check() const {
    for (size_t k = 0; k < c.size(); ++k) {
      EXPECT_TRUE(v[k].SameRect(c[k])) << "output " << k;
      EXPECT_TRUE(v[k].GuardsIntact()) << "output " << k;
      EXPECT_TRUE(c[k].GuardsIntact()) << "output " << k;
    }
  }
};

using U8Fn = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, uint8_t*, uint32_t);
template <typename T> using InterFn = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, T*, uint32_t);
template <typename T> using PlanarFn = void (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, T*, T*, uint32_t);

class GradientLanes : public ::testing::Test {
 protected:
  std::mt19937 rng_{11};
};

template <typename T>
void CheckInterleaved(std::mt19937& rng, InterFn<T> c, InterFn<T> v) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : GradientShapes()) {
      SCOPED_TRACE(testing::Message() << s.width << "x" << s.height);
      Image src(s.width, s.height, 1, s.pad, s.misalign);
      Fill(src, rng);
      const uint32_t ow = s.width > 2 ? s.width - 2 : 1, oh = s.height > 2 ? s.height - 2 : 1;
      Outputs out(1, ow, oh, 2 * sizeof(T), s.pad * uint32_t(sizeof(T)), (s.misalign * uint32_t(sizeof(T))) % 16);
      c(src.bytes(), s.width, s.height, src.stride(), out.c[0].as<T>(), out.c[0].stride());
      v(src.bytes(), s.width, s.height, src.stride(), out.v[0].as<T>(), out.v[0].stride());
      out.Check();
    }
  });
}

template <typename T>
void CheckPlanar(std::mt19937& rng, PlanarFn<T> c, PlanarFn<T> v) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : GradientShapes()) {
      SCOPED_TRACE(testing::Message() << s.width << "x" << s.height);
      Image src(s.width, s.height, 1, s.pad, s.misalign);
      Fill(src, rng);
      Outputs out(2, s.width, s.height, sizeof(T), s.pad * uint32_t(sizeof(T)), (s.misalign * uint32_t(sizeof(T))) % 16);
      c(src.bytes(), s.width, s.height, src.stride(), out.c[0].as<T>(), out.c[1].as<T>(), out.c[0].stride());
      v(src.bytes(), s.width, s.height, src.stride(), out.v[0].as<T>(), out.v[1].as<T>(), out.v[0].stride());
      out.Check();
    }
  });
}

TEST_F(GradientLanes, InterleavedFormsMatchReference) {
  CheckInterleaved<int16_t>(rng_, tvxImageGradientInterleaveds16_v2C, tvxImageGradientInterleaveds16_v2V);
  CheckInterleaved<float>(rng_, tvxImageGradientInterleavedf32_v2C, tvxImageGradientInterleavedf32_v2V);
  CheckInterleaved<int16_t>(rng_, tvxImageGradientSobelInterleaveds16_v2C, tvxImageGradientSobelInterleaveds16_v2V);
  CheckInterleaved<int16_t>(rng_, tvxImageGradientSobelInterleaveds16_v3C, tvxImageGradientSobelInterleaveds16_v3V);
  CheckInterleaved<float>(rng_, tvxImageGradientSobelInterleavedf32_v2C, tvxImageGradientSobelInterleavedf32_v2V);
  CheckInterleaved<int16_t>(rng_, tvxImageGradientScharrInterleaveds16C, tvxImageGradientScharrInterleaveds16V);
}

TEST_F(GradientLanes, PlanarFormsMatchReference) {
  CheckPlanar<int16_t>(rng_, tvxImageGradientPlanars16_v2C, tvxImageGradientPlanars16_v2V);
  CheckPlanar<float>(rng_, tvxImageGradientPlanarf32_v2C, tvxImageGradientPlanarf32_v2V);
  CheckPlanar<int16_t>(rng_, tvxImageGradientSobelPlanars16_v2C, tvxImageGradientSobelPlanars16_v2V);
  CheckPlanar<int16_t>(rng_, tvxImageGradientSobelPlanars16_v3C, tvxImageGradientSobelPlanars16_v3V);
  CheckPlanar<int8_t>(rng_, tvxImageGradientSobelPlanars8_v2C, tvxImageGradientSobelPlanars8_v2V);
  CheckPlanar<float>(rng_, tvxImageGradientSobelPlanarf32_v2C, tvxImageGradientSobelPlanarf32_v2V);
}

TEST_F(GradientLanes, SobelMagnitudeMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : GradientShapes()) {
      SCOPED_TRACE(testing::Message() << s.width << "x" << s.height);
      Image src(s.width, s.height, 1, s.pad, s.misalign);
      Fill(src, rng_);
      Outputs out(1, s.width, s.height, 1, s.pad + 1, (s.misalign + 1) % 4);
      tvxFilterSobel3x3u8_v2C(src.bytes(), s.width, s.height, src.stride(), out.c[0].bytes(), out.c[0].stride());
      tvxFilterSobel3x3u8_v2V(src.bytes(), s.width, s.height, src.stride(), out.v[0].bytes(), out.v[0].stride());
      out.Check();
    }
  });
}

TEST_F(GradientLanes, FloatInputSobelMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : GradientShapes()) {
      SCOPED_TRACE(testing::Message() << s.width << "x" << s.height);
      Image src(s.width, s.height, 4, s.pad * 4, 0);
      // Eighths of integers keep every sum exact and clear of subnormals.
      src.RandomizeAs<float>(rng_, std::uniform_int_distribution<int>(-8000, 8000));
      for (uint32_t y = 0; y < s.height; ++y)
        for (uint32_t x = 0; x < s.width; ++x) src.at<float>(x, y) *= 0.125f;
      Outputs out(2, s.width, s.height, 4, s.pad * 4, (s.misalign * 4) % 16);
      tvxImageGradientSobelPlanarf32f32_v2C(src.as<float>(), s.width, s.height, src.stride(), out.c[0].as<float>(),
                                            out.c[1].as<float>(), out.c[0].stride());
      tvxImageGradientSobelPlanarf32f32_v2V(src.as<float>(), s.width, s.height, src.stride(), out.v[0].as<float>(),
                                            out.v[1].as<float>(), out.v[0].stride());
      out.Check();
    }
  });
}

using FullFn = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, int16_t*, int16_t*, uint32_t, uint32_t,
                           uint8_t);

TEST_F(GradientLanes, FullSizeSobelMatchesReferenceForEveryBorderAndPlane) {
  const struct { FullFn c, v; } fns[] = {{tvxFilterSobel3x3u8s16C, tvxFilterSobel3x3u8s16V},
                                         {tvxFilterSobel5x5u8s16C, tvxFilterSobel5x5u8s16V},
                                         {tvxFilterSobel7x7u8s16C, tvxFilterSobel7x7u8s16V}};
  tvxtest::ForEachTarget([&] {
    for (const auto& fn : fns) {
      for (const Shape& s : GradientShapes()) {
        if (s.width > 200) continue;
        for (uint32_t border = 0; border <= 2; ++border) {
          for (int planes = 1; planes <= 3; ++planes) {
            SCOPED_TRACE(testing::Message() << s.width << "x" << s.height << " border " << border << " planes " << planes);
            Image src(s.width, s.height, 1, s.pad, s.misalign);
            Fill(src, rng_);
            // Half the images are a hard step, which saturates the 7x7 kernel.
            if (planes == 2)
              for (uint32_t y = 0; y < s.height; ++y)
                for (uint32_t x = 0; x < s.width; ++x) src.row(y)[x] = (x + y) > (s.width + s.height) / 2 ? 255 : 0;
            Outputs out(2, s.width, s.height, 2, s.pad * 2, (s.misalign * 2) % 8);
            auto run = [&](FullFn f, std::vector<Image>& o) {
              return f(src.bytes(), s.width, s.height, src.stride(), (planes & 1) ? o[0].as<int16_t>() : nullptr,
                       (planes & 2) ? o[1].as<int16_t>() : nullptr, o[0].stride(), border, uint8_t(rng_() | 1));
            };
            const uint32_t seed = rng_();
            rng_.seed(seed);
            const int32_t rc = run(fn.c, out.c);
            rng_.seed(seed);
            const int32_t rv = run(fn.v, out.v);
            EXPECT_EQ(rc, 0);
            EXPECT_EQ(rv, 0);
            out.Check();
          }
        }
      }
    }
  });
}

// Blocky random images give Canny real edges, ties and plateaus.
void FillBlocks(Image& img, std::mt19937& rng, uint32_t block) {
  std::vector<uint8_t> levels(64);
  for (auto& l : levels) l = static_cast<uint8_t>(rng() % 4 == 0 ? 255 * (rng() % 2) : rng());
  for (uint32_t y = 0; y < img.height(); ++y)
    for (uint32_t x = 0; x < img.width(); ++x) {
      uint8_t v = levels[((x / block) * 7 + (y / block) * 3) % 64];
      if (rng() % 16 == 0) v = static_cast<uint8_t>(rng());
      img.row(y)[x] = v;
    }
}

TEST_F(GradientLanes, Canny3x3MatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : GradientShapes()) {
      if (s.width < 3) continue;
      const uint32_t h = s.height + 3;
      SCOPED_TRACE(testing::Message() << s.width << "x" << h);
      Image src(s.width, h, 1, s.pad, s.misalign);
      FillBlocks(src, rng_, 1 + s.width % 5);
      const uint32_t low = rng_() % 200, high = low + rng_() % (256 - low);
      Outputs out(1, s.width, h, 1, s.pad + 1, 0);
      Outputs grads(2, s.width, h, 2, s.pad * 2, 0);
      tvxFilterCanny3x3u8_v3C(src.bytes(), s.width, h, src.stride(), out.c[0].bytes(), out.c[0].stride(),
                              grads.c[0].as<int16_t>(), grads.c[1].as<int16_t>(), grads.c[0].stride(), low, high);
      tvxFilterCanny3x3u8_v3V(src.bytes(), s.width, h, src.stride(), out.v[0].bytes(), out.v[0].stride(),
                              grads.v[0].as<int16_t>(), grads.v[1].as<int16_t>(), grads.v[0].stride(), low, high);
      out.Check();
      grads.Check();
      Outputs plain(1, s.width, h, 1, 3, 1);
      tvxFilterCanny3x3u8_v2C(src.bytes(), s.width, h, src.stride(), plain.c[0].bytes(), plain.c[0].stride(), low, high);
      tvxFilterCanny3x3u8_v2V(src.bytes(), s.width, h, src.stride(), plain.v[0].bytes(), plain.v[0].stride(), low, high);
      plain.Check();
      EXPECT_TRUE(plain.c[0].SameRect(out.c[0]));
    }
  });
}

TEST_F(GradientLanes, CannyApertureMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : GradientShapes()) {
      if (s.width < 3 || s.width > 200) continue;
      const uint32_t h = s.height + 3;
      for (int32_t kernel : {3, 5, 7}) {
        for (int32_t norm : {0, 1}) {
          SCOPED_TRACE(testing::Message() << s.width << "x" << h << " kernel " << kernel << " norm " << norm);
          Image src(s.width, h, 1, s.pad, s.misalign);
          FillBlocks(src, rng_, 1 + s.width % 4);
          const int32_t scale = kernel == 3 ? 4 : (kernel == 5 ? 60 : 800);
          const int32_t low = int32_t(rng_() % 200) * scale / 10, high = low + int32_t(rng_() % 400) * scale / 10;
          Outputs out(1, s.width, h, 1, s.pad + 1, 0);
          Outputs grads(2, s.width, h, 2, s.pad * 2, 0);
          const int32_t rc = tvxFilterCannyu8C(src.bytes(), s.width, h, src.stride(), kernel, -low, high, norm,
                                               out.c[0].bytes(), out.c[0].stride(), grads.c[0].as<int16_t>(),
                                               grads.c[1].as<int16_t>(), grads.c[0].stride());
          const int32_t rv = tvxFilterCannyu8V(src.bytes(), s.width, h, src.stride(), kernel, -low, high, norm,
                                               out.v[0].bytes(), out.v[0].stride(), grads.v[0].as<int16_t>(),
                                               grads.v[1].as<int16_t>(), grads.v[0].stride());
          EXPECT_EQ(rc, 0);
          EXPECT_EQ(rv, 0);
          out.Check();
          grads.Check();
        }
      }
    }
  });
}

}  // namespace
