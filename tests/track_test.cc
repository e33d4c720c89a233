// Mean-shift and adaptive (rotated box) trackers: convergence on synthetic targets, agreement
// with OpenCV's meanShift and CamShift, argument rejection, and SIMD against reference on every
// compiled target.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"
#include "simd_check.h"

#if TAVIX_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#endif

namespace {

using tvxtest::Image;

class Track : public ::testing::Test {
 protected:
  void SetUp() override {
    tvxtest::g_lines.clear();
    tvx_set_log_sink(&tvxtest::Capture);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
};

// A filled ellipse of value `peak` centred at (cx, cy), semi-axes (a, b), major axis at
// `degrees` from the x axis (y down), over a faint random background.
Image Ellipse(uint32_t w, uint32_t h, double cx, double cy, double a, double b, double degrees, uint8_t peak,
              uint32_t seed, uint32_t pad = 3, uint32_t noise = 3) {
  Image img(w, h, 1, pad, seed % 7);
  std::mt19937 rng(seed);
  const double t = degrees * M_PI / 180, c = std::cos(t), s = std::sin(t);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      const double dx = x - cx, dy = y - cy, u = dx * c + dy * s, v = -dx * s + dy * c;
      img.at<uint8_t>(x, y) = (u * u) / (a * a) + (v * v) / (b * b) <= 1 ? peak : static_cast<uint8_t>(rng() % noise);
    }
  return img;
}

template <typename T>
Image Convert(const Image& src, double scale) {
  Image out(src.width(), src.height(), sizeof(T), 8, 4);
  for (uint32_t y = 0; y < src.height(); ++y)
    for (uint32_t x = 0; x < src.width(); ++x)
      out.at<T>(x, y) = static_cast<T>(src.row(y)[x] * scale);
  return out;
}

// A target that moves 6 pixels right and 4 down per frame is followed by every element type: the
// window centre stays within 1.5 pixels of the target centre.
TEST_F(Track, MeanShiftFollowsMovingTargetOnEveryType) {
  uint32_t win[4] = {20, 30, 24, 24};
  uint32_t winS[4] = {20, 30, 24, 24}, winF[4] = {20, 30, 24, 24};
  for (int frame = 1; frame <= 12; ++frame) {
    const double cx = 32 + 6 * frame, cy = 42 + 4 * frame;
    const Image u8 = Ellipse(160, 120, cx, cy, 9, 9, 0, 200, frame);
    const Image s32 = Convert<int32_t>(u8, 1000.0), f32 = Convert<float>(u8, 1 / 255.0);
    uint32_t out[4], iters = 99;
    ASSERT_EQ(tvxMeanShiftu8(u8.as<uint8_t>(), 160, 120, u8.stride(), win[0], win[1], win[2], win[3], 20, 1.0f, out,
                             &iters), 0);
    EXPECT_LT(iters, 20u);
    std::memcpy(win, out, sizeof out);
    ASSERT_EQ(tvxMeanShifts32(s32.as<int32_t>(), 160, 120, s32.stride(), winS[0], winS[1], winS[2], winS[3], 20, 1.0f,
                              winS, nullptr), 0);
    ASSERT_EQ(tvxMeanShiftf32(f32.as<float>(), 160, 120, f32.stride(), winF[0], winF[1], winF[2], winF[3], 20, 1.0f,
                              winF, nullptr), 0);
    for (const uint32_t* w : {win, winS, winF}) {
      EXPECT_EQ(w[2], 24u);
      EXPECT_NEAR(w[0] + 11.5, cx, 1.5) << "frame " << frame;
      EXPECT_NEAR(w[1] + 11.5, cy, 1.5) << "frame " << frame;
    }
  }
  EXPECT_TRUE(tvxtest::g_lines.empty());
}

// The adaptive tracker recovers a uniform ellipse's axes (full lengths 2a and 2b) and its
// orientation (major axis at 30 degrees gives the box angle 30 + 90), and centres a window on it;
// the background is empty, so the moments are the ellipse's alone.
TEST_F(Track, AdaptiveTrackFitsRotatedEllipse) {
  for (double deg : {0.0, 30.0, 75.0, 140.0}) {
    const Image img = Ellipse(200, 160, 101.3, 77.6, 20, 8, deg, 255, 5, 3, 1);
    const Image f32 = Convert<float>(img, 1 / 255.0);
    uint32_t win[4];
    float box[5];
    ASSERT_EQ(tvxConAdaTracku8(img.as<uint8_t>(), 200, 160, img.stride(), 80, 60, 40, 40, 10, 1.0f, win, box), 0);
    SCOPED_TRACE(deg);
    EXPECT_NEAR(box[0], 101.3, 0.6);
    EXPECT_NEAR(box[1], 77.6, 0.6);
    EXPECT_NEAR(box[3], 40, 1.5);
    EXPECT_NEAR(box[2], 16, 1.5);
    const double expected = std::fmod(deg + 90, 180);
    EXPECT_NEAR(std::remainder(box[4] - expected, 180.0), 0, 2.0);
    EXPECT_GE(box[4], 0.f);
    EXPECT_LT(box[4], 180.f);
    // The new window holds the box and is centred on it.
    EXPECT_NEAR(win[0] + win[2] / 2.0, 101.3, 1.5);
    EXPECT_NEAR(win[1] + win[3] / 2.0, 77.6, 1.5);
    uint32_t winF[4];
    float boxF[5];
    ASSERT_EQ(tvxConAdaTrackf32(f32.as<float>(), 200, 160, f32.stride(), 80, 60, 40, 40, 10, 1.0f, winF, boxF), 0);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(winF[i], win[i], 1.0);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(boxF[i], box[i], 0.05);
  }
}

// An all-zero image stops at once: the mean shift keeps the window (clipped) and reports 0
// steps; the adaptive form returns an all-zero box and the window grown by 10 each side.
TEST_F(Track, EmptyImageAndClippedWindows) {
  Image zero(50, 40, 1, 2);
  for (uint32_t y = 0; y < 40; ++y) std::memset(zero.row(y), 0, 50);
  uint32_t win[4], iters = 7;
  ASSERT_EQ(tvxMeanShiftu8(zero.as<uint8_t>(), 50, 40, zero.stride(), 40, 5, 30, 10, 0, 0.0f, win, &iters), 0);
  EXPECT_EQ(iters, 0u);
  EXPECT_EQ(std::vector<uint32_t>(win, win + 4), (std::vector<uint32_t>{40, 5, 10, 10}));
  float box[5] = {1, 1, 1, 1, 1};
  ASSERT_EQ(tvxConAdaTracku8(zero.as<uint8_t>(), 50, 40, zero.stride(), 12, 15, 6, 6, 0, 0.0f, win, box), 0);
  EXPECT_EQ(std::vector<uint32_t>(win, win + 4), (std::vector<uint32_t>{2, 5, 26, 26}));
  for (float v : box) EXPECT_EQ(v, 0.0f);
  // A window hanging over the right and bottom edges is clipped and pulled onto a corner target.
  const Image img = Ellipse(64, 48, 58, 43, 5, 4, 0, 255, 3);
  ASSERT_EQ(tvxMeanShiftu8(img.as<uint8_t>(), 64, 48, img.stride(), 50, 30, 100, 100, 30, 0.5f, win, nullptr), 0);
  EXPECT_EQ(win[0] + win[2], 64u);
  EXPECT_EQ(win[1] + win[3], 48u);
}

TEST_F(Track, BadArgumentsWriteNothing) {
  const Image img = Ellipse(32, 24, 10, 10, 4, 4, 0, 255, 1);
  const uint8_t* p = img.as<uint8_t>();
  const uint32_t sentinel[4] = {0xDEAD, 0xBEEF, 0xF00D, 0xCAFE};
  struct Case { uint32_t w, h, stride, x, y, ww, wh; };
  for (const Case& c : {Case{32, 24, 32 + 3, 0, 0, 0, 5}, Case{32, 24, 35, 0, 0, 5, 0}, Case{32, 24, 35, 32, 0, 4, 4},
                        Case{32, 24, 35, 0, 24, 4, 4}, Case{32, 24, 31, 0, 0, 4, 4}, Case{0, 24, 35, 0, 0, 4, 4}}) {
    uint32_t win[4], iters = 77;
    float box[5] = {9, 9, 9, 9, 9};
    std::memcpy(win, sentinel, sizeof win);
    EXPECT_EQ(tvxMeanShiftu8(p, c.w, c.h, c.stride, c.x, c.y, c.ww, c.wh, 5, 1.0f, win, &iters), 3);
    EXPECT_EQ(tvxConAdaTracku8(p, c.w, c.h, c.stride, c.x, c.y, c.ww, c.wh, 5, 1.0f, win, box), 3);
    EXPECT_EQ(std::memcmp(win, sentinel, sizeof win), 0);
    EXPECT_EQ(iters, 77u);
    EXPECT_EQ(box[0], 9.0f);
  }
  uint32_t win[4];
  EXPECT_EQ(tvxConAdaTrackf32(reinterpret_cast<const float*>(p), 8, 24, 34, 0, 0, 4, 4, 5, 1.0f, win, nullptr), 3);
  EXPECT_EQ(tvxMeanShifts32(reinterpret_cast<const int32_t*>(p), 8, 24, 30, 0, 0, 4, 4, 5, 1.0f, win, nullptr), 3);
}

// SIMD against reference, bit for bit: random and blob images of odd widths with padded,
// misaligned rows, random windows and limits; signed data includes negative values.
TEST_F(Track, SimdMatchesReferenceOnEveryTarget) {
  std::mt19937 rng(42);
  struct Shape { uint32_t w, h; };
  for (const Shape s : {Shape{1, 1}, Shape{3, 7}, Shape{17, 9}, Shape{61, 33}, Shape{129, 70}, Shape{300, 40}}) {
    const Image blob = Ellipse(s.w, s.h, s.w * 0.6, s.h * 0.4, s.w / 5.0 + 1, s.h / 6.0 + 1, 20, 230, s.w + s.h, 5);
    Image noise(s.w, s.h, 1, 1, 3);
    noise.Randomize(rng);
    Image s32(s.w, s.h, 4, 12, 4), f32(s.w, s.h, 4, 4, 8);
    s32.RandomizeAs<int32_t>(rng, std::uniform_int_distribution<int32_t>(-40000, 2000000));
    f32.RandomizeAs<float>(rng, std::uniform_real_distribution<float>(0.f, 3.f));
    for (int trial = 0; trial < 6; ++trial) {
      const uint32_t x = rng() % s.w, y = rng() % s.h, ww = 1 + rng() % (s.w + 4), wh = 1 + rng() % (s.h + 4);
      const int32_t iters = static_cast<int32_t>(rng() % 12) - 1;
      const float eps = (rng() % 3) * 0.75f;
      SCOPED_TRACE(testing::Message() << s.w << "x" << s.h << " window " << x << "," << y << "," << ww << "," << wh);
      uint32_t rw[4], rn = 0, rw2[4];
      float rb[5];
      auto check = [&](auto refShift, auto simdShift, auto refAda, auto simdAda, const auto* data, uint32_t stride) {
        ASSERT_EQ(refShift(data, s.w, s.h, stride, x, y, ww, wh, iters, eps, rw, &rn), 0);
        ASSERT_EQ(refAda(data, s.w, s.h, stride, x, y, ww, wh, iters, eps, rw2, rb), 0);
        tvxtest::ForEachTarget([&] {
          uint32_t vw[4], vn = 0, vw2[4];
          float vb[5];
          ASSERT_EQ(simdShift(data, s.w, s.h, stride, x, y, ww, wh, iters, eps, vw, &vn), 0);
          ASSERT_EQ(simdAda(data, s.w, s.h, stride, x, y, ww, wh, iters, eps, vw2, vb), 0);
          EXPECT_EQ(std::memcmp(rw, vw, sizeof rw), 0);
          EXPECT_EQ(rn, vn);
          EXPECT_EQ(std::memcmp(rw2, vw2, sizeof rw2), 0);
          EXPECT_EQ(std::memcmp(rb, vb, sizeof rb), 0);
        });
      };
      for (const Image* img : {static_cast<const Image*>(&blob), static_cast<const Image*>(&noise)})
        check(tvxMeanShiftu8C, tvxMeanShiftu8V, tvxConAdaTracku8C, tvxConAdaTracku8V, img->as<uint8_t>(), img->stride());
      check(tvxMeanShifts32C, tvxMeanShifts32V, tvxConAdaTracks32C, tvxConAdaTracks32V, s32.as<int32_t>(), s32.stride());
      check(tvxMeanShiftf32C, tvxMeanShiftf32V, tvxConAdaTrackf32C, tvxConAdaTrackf32V, f32.as<float>(), f32.stride());
    }
    EXPECT_TRUE(blob.GuardsIntact());
  }
}

#if TAVIX_HAVE_OPENCV
cv::Mat AsMat(const Image& img, int type) {
  return cv::Mat(static_cast<int>(img.height()), static_cast<int>(img.width()), type,
                 const_cast<uint8_t*>(img.row(0)), img.stride());
}

// u8 moments are exact on both sides, so windows and step counts equal cv::meanShift's; float
// sums differ in order, so f32 windows may differ by one pixel.
TEST_F(Track, MeanShiftAgreesWithOpenCV) {
  std::mt19937 rng(7);
  for (int t = 0; t < 40; ++t) {
    const uint32_t w = 40 + rng() % 200, h = 30 + rng() % 120;
    const Image img = Ellipse(w, h, rng() % w, rng() % h, 3 + rng() % 20, 3 + rng() % 20, rng() % 180,
                              static_cast<uint8_t>(60 + rng() % 190), t);
    const Image f32 = Convert<float>(img, 1 / 64.0);
    const uint32_t x = rng() % w, y = rng() % h, ww = 4 + rng() % 40, wh = 4 + rng() % 40;
    const int32_t iters = 1 + rng() % 15;
    const float eps = (rng() % 4) * 0.5f;
    cv::Rect cvWin(x, y, ww, wh);
    const int cvIters = cv::meanShift(AsMat(img, CV_8UC1), cvWin, cv::TermCriteria(3, iters, eps));
    uint32_t win[4], n = 0;
    ASSERT_EQ(tvxMeanShiftu8(img.as<uint8_t>(), w, h, img.stride(), x, y, ww, wh, iters, eps, win, &n), 0);
    SCOPED_TRACE(t);
    EXPECT_EQ(cv::Rect(win[0], win[1], win[2], win[3]), cvWin);
    EXPECT_EQ(static_cast<int>(n), cvIters);
    cv::Rect cvWinF(x, y, ww, wh);
    cv::meanShift(AsMat(f32, CV_32FC1), cvWinF, cv::TermCriteria(3, iters, eps));
    ASSERT_EQ(tvxMeanShiftf32(f32.as<float>(), w, h, f32.stride(), x, y, ww, wh, iters, eps, win, &n), 0);
    EXPECT_NEAR(win[0], cvWinF.x, 1);
    EXPECT_NEAR(win[1], cvWinF.y, 1);
  }
}

// The adaptive tracker gives cv::CamShift's window, size and angle exactly; its centre is the
// centroid over the grown window (cv::moments there), where OpenCV reports the new window's centre.
TEST_F(Track, AdaptiveTrackAgreesWithOpenCV) {
  std::mt19937 rng(11);
  for (int t = 0; t < 40; ++t) {
    const uint32_t w = 60 + rng() % 200, h = 50 + rng() % 120;
    const Image img = Ellipse(w, h, 10 + rng() % (w - 20), 10 + rng() % (h - 20), 3 + rng() % 25, 2 + rng() % 10,
                              rng() % 180, static_cast<uint8_t>(60 + rng() % 190), 100 + t);
    const uint32_t x = rng() % w, y = rng() % h, ww = 8 + rng() % 40, wh = 8 + rng() % 40;
    cv::Rect cvWin(x, y, ww, wh);
    const cv::RotatedRect cvBox = cv::CamShift(AsMat(img, CV_8UC1), cvWin, cv::TermCriteria(3, 10, 1.0));
    uint32_t win[4], shifted[4];
    float box[5];
    ASSERT_EQ(tvxConAdaTracku8(img.as<uint8_t>(), w, h, img.stride(), x, y, ww, wh, 10, 1.0f, win, box), 0);
    ASSERT_EQ(tvxMeanShiftu8(img.as<uint8_t>(), w, h, img.stride(), x, y, ww, wh, 10, 1.0f, shifted, nullptr), 0);
    SCOPED_TRACE(t);
    EXPECT_EQ(cv::Rect(win[0], win[1], win[2], win[3]), cvWin);
    EXPECT_NEAR(box[2], cvBox.size.width, 1e-3);
    EXPECT_NEAR(box[3], cvBox.size.height, 1e-3);
    EXPECT_NEAR(box[4], cvBox.angle, 1e-3);
    const int gx = std::max<int>(int(shifted[0]) - 10, 0), gy = std::max<int>(int(shifted[1]) - 10, 0);
    const cv::Rect grown(gx, gy, std::min<int>(shifted[2] + 20, w - gx), std::min<int>(shifted[3] + 20, h - gy));
    const cv::Moments m = cv::moments(AsMat(img, CV_8UC1)(grown));
    EXPECT_NEAR(box[0], m.m10 / m.m00 + gx, 1e-3);
    EXPECT_NEAR(box[1], m.m01 / m.m00 + gy, 1e-3);
  }
}
#endif  // TAVIX_HAVE_OPENCV

}  // namespace
