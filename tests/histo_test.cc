// Histogram family through the public entries: histograms, equalisation, mean and standard
// deviation, moments and differences against OpenCV where it has the same operation (host
// builds), and against closed forms and independent loops otherwise; bad arguments write nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

#if TAVIX_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using tvxtest::Image;

Image RandomBytes(uint32_t w, uint32_t h, uint32_t pad, std::mt19937& rng, int lo = 0, int hi = 255) {
  Image img(w, h, 1, pad, pad % 4);
  img.RandomizeAs<uint8_t>(rng, std::uniform_int_distribution<int>(lo, hi));
  return img;
}

#if TAVIX_HAVE_OPENCV
cv::Mat View(const Image& img, int type) {
  return cv::Mat(static_cast<int>(img.height()), static_cast<int>(img.width()), type,
                 const_cast<uint8_t*>(img.bytes()), img.stride());
}

TEST(HistoOpenCV, HistogramCountsAndAccumulates) {
  std::mt19937 rng(11);
  for (uint32_t w : {1u, 17u, 64u, 333u}) {
    Image img = RandomBytes(w, 7, 5, rng, w == 333 ? 40 : 0, w == 333 ? 90 : 255);
    cv::Mat hist;
    const int channels[] = {0}, sizes[] = {256};
    const float range[] = {0, 256};
    const float* ranges[] = {range};
    cv::Mat view = View(img, CV_8U);
    cv::calcHist(&view, 1, channels, cv::Mat(), hist, 1, sizes, ranges);
    std::vector<uint32_t> counts(256, 0xDEADBEEF);
    ASSERT_EQ(tvxImageIntensityHistogram(img.bytes(), w, 7, img.stride(), counts.data(), 0), 0);
    for (int v = 0; v < 256; ++v) ASSERT_EQ(counts[v], static_cast<uint32_t>(hist.at<float>(v))) << v;
    // Accumulating a second time doubles every count.
    ASSERT_EQ(tvxImageIntensityHistogram(img.bytes(), w, 7, img.stride(), counts.data(), 1), 0);
    for (int v = 0; v < 256; ++v) ASSERT_EQ(counts[v], 2 * static_cast<uint32_t>(hist.at<float>(v))) << v;
  }
}

TEST(HistoOpenCV, EqualizationMatchesPixelForPixel) {
  std::mt19937 rng(5);
  struct Case { uint32_t w, h; int lo, hi; };
  for (const Case c : {Case{640, 480, 0, 255}, Case{101, 37, 100, 130}, Case{33, 9, 0, 3}, Case{7, 3, 200, 201},
                       Case{1920, 1080, 20, 240}}) {
    SCOPED_TRACE(c.w);
    Image src = RandomBytes(c.w, c.h, 3, rng, c.lo, c.hi);
    Image dst(c.w, c.h, 1, 9);
    ASSERT_EQ(tvxImageHistogramEqualizeu8(src.bytes(), c.w, c.h, src.stride(), dst.bytes(), dst.stride()), 0);
    cv::Mat expected;
    cv::equalizeHist(View(src, CV_8U), expected);
    for (uint32_t y = 0; y < c.h; ++y)
      ASSERT_EQ(std::memcmp(dst.row(y), expected.ptr(static_cast<int>(y)), c.w), 0) << "row " << y;
    EXPECT_TRUE(dst.GuardsIntact());
    // In place with the same stride gives the same image.
    ASSERT_EQ(tvxImageHistogramEqualizeu8(src.bytes(), c.w, c.h, src.stride(), src.bytes(), src.stride()), 0);
    EXPECT_TRUE(src.SameRect(dst));
  }
}

TEST(HistoOpenCV, MeanAndStandardDeviationWithAndWithoutMask) {
  std::mt19937 rng(21);
  for (uint32_t w : {1u, 15u, 640u}) {
    const uint32_t h = 11;
    Image img = RandomBytes(w, h, 2, rng);
    Image mask = RandomBytes(w, h, 6, rng, 0, 2);  // about a third of the pixels masked out
    float mean = -1, sd = -1;
    ASSERT_EQ(tvxImageIntensityStats(img.bytes(), w, h, img.stride(), &mean, &sd), 0);
    cv::Scalar m, s;
    cv::meanStdDev(View(img, CV_8U), m, s);
    EXPECT_NEAR(mean, m[0], 1e-4 * m[0] + 1e-5);
    EXPECT_NEAR(sd, s[0], 1e-4 * s[0] + 1e-4);

    uint32_t count = 0;
    ASSERT_EQ(tvxImageIntensityStats_v2(img.bytes(), w, h, img.stride(), mask.bytes(), mask.stride(), &mean, &sd,
                                        &count), 0);
    cv::meanStdDev(View(img, CV_8U), m, s, View(mask, CV_8U));
    EXPECT_EQ(count, static_cast<uint32_t>(cv::countNonZero(View(mask, CV_8U))));
    EXPECT_NEAR(mean, m[0], 1e-4 * m[0] + 1e-5);
    EXPECT_NEAR(sd, s[0], 1e-4 * s[0] + 1e-4);
  }
}

// Moments as floats against OpenCV's doubles: spatial moments within float rounding, central and
// normalised ones relative to the size of the terms they cancel.
void ExpectMomentsNear(const float* got, const cv::Moments& m) {
  const double want[24] = {m.m00,  m.m10,  m.m01,  m.m20,  m.m11,  m.m02,  m.m30,  m.m21,  m.m12, m.m03,
                           m.mu20, m.mu11, m.mu02, m.mu30, m.mu21, m.mu12, m.mu03,
                           m.nu20, m.nu11, m.nu02, m.nu30, m.nu21, m.nu12, m.nu03};
  const double scale2 = std::fabs(m.m20) + std::fabs(m.m02), scale3 = std::fabs(m.m30) + std::fabs(m.m03);
  for (int k = 0; k < 24; ++k) {
    double tol = 2e-7 * std::fabs(want[k]);
    if (k >= 10 && k < 13) tol += 1e-9 * scale2;
    if (k >= 13 && k < 17) tol += 1e-9 * scale3;
    if (k >= 17) tol = 1e-5 * std::fabs(want[k]) + 1e-7;
    EXPECT_NEAR(got[k], want[k], tol) << "moment " << k;
  }
}

TEST(HistoOpenCV, MomentsOfBytesFloatsAndSignedIntegers) {
  std::mt19937 rng(3);
  for (uint32_t w : {1u, 37u, 300u}) {
    const uint32_t h = 23;
    Image img = RandomBytes(w, h, 4, rng);
    float got[24];
    ASSERT_EQ(tvxImageMomentsu8(img.bytes(), w, h, img.stride(), got), 0);
    const cv::Moments ref = cv::moments(View(img, CV_8U));
    ExpectMomentsNear(got, ref);

    // Signed images: small integers, exact in float, against OpenCV's float moments.
    Image s32(w, h, 4, 8), f32(w, h, 4, 4);
    std::uniform_int_distribution<int> dist(-1000, 3000);  // signed, with m00 well away from 0
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) {
        const int v = dist(rng);
        s32.at<int32_t>(x, y) = v;
        f32.at<float>(x, y) = static_cast<float>(v) * 0.25f;
      }
    cv::Mat asFloat;
    View(s32, CV_32S).convertTo(asFloat, CV_32F);
    ASSERT_EQ(tvxImageMomentss32(s32.as<int32_t>(), w, h, s32.stride(), got), 0);
    ExpectMomentsNear(got, cv::moments(asFloat));
    ASSERT_EQ(tvxImageMomentsf32(f32.as<float>(), w, h, f32.stride(), got), 0);
    ExpectMomentsNear(got, cv::moments(View(f32, CV_32F)));
  }
}

TEST(HistoOpenCV, DifferencesOfEveryType) {
  std::mt19937 rng(8);
  const uint32_t w = 77, h = 5;
  Image a = RandomBytes(w, h, 3, rng), b = RandomBytes(w, h, 1, rng);
  Image d8(w, h, 1, 2), ds8(w, h, 1, 0), df(w, h, 4, 4);
  ASSERT_EQ(tvxImageDiffu8(a.bytes(), b.bytes(), w, h, a.stride(), b.stride(), d8.bytes(), d8.stride()), 0);
  cv::Mat expected;
  cv::absdiff(View(a, CV_8U), View(b, CV_8U), expected);
  EXPECT_EQ(cv::norm(View(d8, CV_8U), expected, cv::NORM_INF), 0.0);

  ASSERT_EQ(tvxImageDiffu8f32(a.bytes(), b.bytes(), w, h, a.stride(), b.stride(), df.as<float>(), df.stride()), 0);
  cv::subtract(View(a, CV_8U), View(b, CV_8U), expected, cv::noArray(), CV_32F);
  EXPECT_EQ(cv::norm(View(df, CV_32F), expected, cv::NORM_INF), 0.0);

  ASSERT_EQ(tvxImageDiffu8s8(a.bytes(), b.bytes(), w, h, a.stride(), b.stride(),
                             reinterpret_cast<int8_t*>(ds8.bytes()), ds8.stride()), 0);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x)
      ASSERT_EQ(ds8.at<int8_t>(x, y), std::floor((double(a.at<uint8_t>(x, y)) - b.at<uint8_t>(x, y)) / 2.0));

  Image s1(w, h, 2, 6), s2(w, h, 2, 2), s3(w, h, 2, 0);
  s1.RandomizeAs<int16_t>(rng, std::uniform_int_distribution<int>(-32768, 32767));
  s2.RandomizeAs<int16_t>(rng, std::uniform_int_distribution<int>(-32768, 32767));
  s1.at<int16_t>(0, 0) = -32768;
  s2.at<int16_t>(0, 0) = 32767;
  ASSERT_EQ(tvxImageDiffs16(s1.as<int16_t>(), s2.as<int16_t>(), w, h, s1.stride(), s2.stride(), s3.as<int16_t>(),
                            s3.stride()), 0);
  cv::absdiff(View(s1, CV_16S), View(s2, CV_16S), expected);
  EXPECT_EQ(cv::norm(View(s3, CV_16S), expected, cv::NORM_INF), 0.0);
  EXPECT_EQ(s3.at<int16_t>(0, 0), 32767);

  Image f1(w, h, 4, 0), f2(w, h, 4, 8), f3(w, h, 4, 4);
  f1.RandomizeAs<float>(rng, std::uniform_real_distribution<float>(-1e3f, 1e3f));
  f2.RandomizeAs<float>(rng, std::uniform_real_distribution<float>(-1e3f, 1e3f));
  ASSERT_EQ(tvxImageDifff32(f1.as<float>(), f2.as<float>(), w, h, f1.stride(), f2.stride(), f3.as<float>(),
                            f3.stride()), 0);
  cv::absdiff(View(f1, CV_32F), View(f2, CV_32F), expected);
  EXPECT_EQ(cv::norm(View(f3, CV_32F), expected, cv::NORM_INF), 0.0);
  for (const Image* img : {&d8, &ds8, &df, &s3, &f3}) EXPECT_TRUE(img->GuardsIntact());
}

TEST(HistoOpenCV, SpatialHistogramCellsAgreeWithPerCellCalcHist) {
  std::mt19937 rng(31);
  struct Case { uint32_t w, h, cx, cy, bins; };
  for (const Case c : {Case{37, 19, 4, 3, 16}, Case{64, 64, 8, 8, 256}, Case{5, 7, 5, 1, 3}, Case{100, 9, 7, 9, 1}}) {
    SCOPED_TRACE(c.w);
    Image img = RandomBytes(c.w, c.h, 2, rng);
    Image mask = RandomBytes(c.w, c.h, 3, rng, 0, 1);
    const size_t total = size_t{c.cx} * c.cy * c.bins;
    std::vector<uint32_t> plain(total + 1, 0xABCDEF), masked(total + 1, 0xABCDEF);
    ASSERT_EQ(tvxImageSpatialHistogramu8(img.bytes(), c.w, c.h, img.stride(), c.cx, c.cy, c.bins, plain.data()), 0);
    ASSERT_EQ(tvxImageSpatialHistogramu8_v2(img.bytes(), c.w, c.h, img.stride(), mask.bytes(), mask.stride(), c.cx,
                                            c.cy, c.bins, masked.data()), 0);
    EXPECT_EQ(plain[total], 0xABCDEFu);  // nothing past the last cell
    EXPECT_EQ(masked[total], 0xABCDEFu);
    uint64_t sum = 0;
    for (uint32_t j = 0; j < c.cy; ++j)
      for (uint32_t i = 0; i < c.cx; ++i) {
        const cv::Rect cell(int(i * c.w / c.cx), int(j * c.h / c.cy), int((i + 1) * c.w / c.cx - i * c.w / c.cx),
                            int((j + 1) * c.h / c.cy - j * c.h / c.cy));
        const cv::Mat roi = View(img, CV_8U)(cell), roiMask = View(mask, CV_8U)(cell);
        const int channels[] = {0}, sizes[] = {int(c.bins)};
        const float range[] = {0, 256};
        const float* ranges[] = {range};
        cv::Mat h1, h2;
        cv::calcHist(&roi, 1, channels, cv::Mat(), h1, 1, sizes, ranges);
        cv::calcHist(&roi, 1, channels, roiMask, h2, 1, sizes, ranges);
        const size_t base = (size_t{j} * c.cx + i) * c.bins;
        for (uint32_t b = 0; b < c.bins; ++b) {
          ASSERT_EQ(plain[base + b], uint32_t(h1.at<float>(int(b)))) << i << "," << j << " bin " << b;
          ASSERT_EQ(masked[base + b], uint32_t(h2.at<float>(int(b)))) << i << "," << j << " bin " << b;
          sum += plain[base + b];
        }
      }
    EXPECT_EQ(sum, uint64_t{c.w} * c.h);  // the cells tile the image
  }
}

// Local normalisation from OpenCV's replicated box sums of v and v*v, then the stated formulas.
TEST(HistoOpenCV, LocalBoxNormalisationFromBoxSums) {
  std::mt19937 rng(41);
  for (const auto& size : {std::pair<uint32_t, uint32_t>{3, 3}, {5, 1}, {1, 7}, {9, 5}, {31, 3}}) {
    const uint32_t w = 29, h = 13, pw = size.first, ph = size.second;
    SCOPED_TRACE(pw * 100 + ph);
    Image img = RandomBytes(w, h, 3, rng, 40, 200);
    img.at<uint8_t>(3, 3) = 0;
    img.at<uint8_t>(4, 3) = 255;
    cv::Mat v, s1, s2;
    View(img, CV_8U).convertTo(v, CV_64F);
    cv::boxFilter(v, s1, CV_64F, cv::Size(int(pw), int(ph)), cv::Point(-1, -1), false, cv::BORDER_REPLICATE);
    cv::boxFilter(v.mul(v), s2, CV_64F, cv::Size(int(pw), int(ph)), cv::Point(-1, -1), false, cv::BORDER_REPLICATE);
    const double n = double(pw) * ph;
    for (uint32_t useStd : {0u, 1u}) {
      Image d8(w, h, 1, 2), df(w, h, 4, 8);
      ASSERT_EQ(tvxNormalizeLocalBoxu8(img.bytes(), w, h, img.stride(), pw, ph, useStd, d8.bytes(), d8.stride()), 0);
      ASSERT_EQ(tvxNormalizeLocalBoxf32(img.bytes(), w, h, img.stride(), pw, ph, useStd, df.as<float>(), df.stride()),
                0);
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
          const double a = s1.at<double>(int(y), int(x)), b = s2.at<double>(int(y), int(x));
          const double d = n * v.at<double>(int(y), int(x)) - a, q = n * b - a * a;
          double expected8, expectedF;
          if (useStd == 0) {
            expected8 = std::floor(d / n + 0.5) + 128;
            expectedF = d / n;
          } else {
            expected8 = q == 0 ? 128 : 128 + std::floor(32 * d / std::sqrt(q) + 0.5);
            expectedF = q == 0 ? 0 : d / std::sqrt(q);
          }
          expected8 = std::min(255.0, std::max(0.0, expected8));
          ASSERT_EQ(d8.at<uint8_t>(x, y), expected8) << x << "," << y << " std " << useStd;
          ASSERT_NEAR(df.at<float>(x, y), expectedF, 1e-6 * std::fabs(expectedF) + 1e-9) << x << "," << y;
        }
      EXPECT_TRUE(d8.GuardsIntact());
      EXPECT_TRUE(df.GuardsIntact());
    }
  }
}
#endif  // TAVIX_HAVE_OPENCV

// Closed forms: a single bright pixel, a uniform rectangle.
TEST(HistoMoments, ClosedFormsOfPointAndRectangle) {
  std::vector<uint8_t> img(40 * 30, 0);
  img[17 * 40 + 9] = 200;
  float m[24];
  ASSERT_EQ(tvxImageMomentsu8(img.data(), 40, 30, 0, m), 0);
  EXPECT_EQ(m[0], 200.0f);
  EXPECT_EQ(m[1], 200.0f * 9);
  EXPECT_EQ(m[2], 200.0f * 17);
  EXPECT_EQ(m[6], 200.0f * 9 * 9 * 9);
  EXPECT_EQ(m[9], 200.0f * 17 * 17 * 17);
  for (int k = 10; k < 24; ++k) EXPECT_NEAR(m[k], 0.0f, 1e-3f) << k;

  // A w x h rectangle of ones: mu20 = h w (w^2 - 1) / 12, nu20 = (w^2 - 1) / (12 w h) - odd ones 0.
  std::fill(img.begin(), img.end(), 0);
  const int w = 12, h = 7;
  for (int y = 3; y < 3 + h; ++y)
    for (int x = 20; x < 20 + w; ++x) img[y * 40 + x] = 1;
  ASSERT_EQ(tvxImageMomentsu8(img.data(), 40, 30, 40, m), 0);
  EXPECT_EQ(m[0], float(w * h));
  EXPECT_NEAR(m[10], h * w * (w * w - 1) / 12.0, 1e-3);
  EXPECT_NEAR(m[12], w * h * (h * h - 1) / 12.0, 1e-3);
  EXPECT_NEAR(m[11], 0.0, 1e-3);
  EXPECT_NEAR(m[17], (w * w - 1) / (12.0 * w * h), 1e-6);
  for (int k : {13, 14, 15, 16, 20, 21, 22, 23}) EXPECT_NEAR(m[k], 0.0, 1e-3) << k;

  // An all-zero image has all-zero moments (no division by zero).
  std::fill(img.begin(), img.end(), 0);
  ASSERT_EQ(tvxImageMomentsu8(img.data(), 40, 30, 40, m), 0);
  for (int k = 0; k < 24; ++k) EXPECT_EQ(m[k], 0.0f) << k;
}

// The widest accepted row of 255s: the exact row sums reach their bound and must stay exact.
TEST(HistoMoments, WidestRowOfSaturatedPixelsIsExact) {
  const uint32_t w = 16384;
  std::vector<uint8_t> img(w, 255);
  float m[24];
  ASSERT_EQ(tvxImageMomentsu8(img.data(), w, 1, w, m), 0);
  const double n = w - 1;
  EXPECT_EQ(m[0], static_cast<float>(255.0 * w));
  EXPECT_EQ(m[1], static_cast<float>(255.0 * n * (n + 1) / 2));
  EXPECT_EQ(m[3], static_cast<float>(255.0 * n * (n + 1) * (2 * n + 1) / 6));
  EXPECT_EQ(m[6], static_cast<float>(255.0 * (n * (n + 1) / 2) * (n * (n + 1) / 2)));
  EXPECT_EQ(tvxImageMomentsu8(img.data(), w + 1, 1, w + 1, m), 3);
}

// Local binary pattern against a border-padded copy and an angle-ordered ring.
TEST(HistoLbp, CodesFollowTheRingAndThreshold) {
  std::mt19937 rng(4);
  const uint32_t w = 23, h = 9;
  Image src = RandomBytes(w, h, 3, rng, 90, 110);
  // Replicate-padded copy.
  std::vector<int> pad((w + 2) * (h + 2));
  for (uint32_t y = 0; y < h + 2; ++y)
    for (uint32_t x = 0; x < w + 2; ++x) {
      const uint32_t sx = x == 0 ? 0 : (x > w ? w - 1 : x - 1), sy = y == 0 ? 0 : (y > h ? h - 1 : y - 1);
      pad[y * (w + 2) + x] = src.at<uint8_t>(sx, sy);
    }
  // Bit 0 is the left neighbour; each following bit turns 45 degrees on, towards the bottom first.
  for (int32_t t : {-4, 0, 3, 9}) {
    Image dst(w, h, 1, 5);
    ASSERT_EQ(tvxGLBPu8(src.bytes(), w, h, src.stride(), dst.bytes(), dst.stride(), t), 0);
    for (uint32_t y = 0; y < h; ++y)
      for (uint32_t x = 0; x < w; ++x) {
        const int c = pad[(y + 1) * (w + 2) + x + 1];
        int code = 0;
        for (int k = 0; k < 8; ++k) {
          const double a = M_PI + k * M_PI / 4;  // y grows downwards, hence dy = -sin
          const int dx = static_cast<int>(std::lround(std::cos(a))), dy = -static_cast<int>(std::lround(std::sin(a)));
          if (pad[(y + 1 + dy) * (w + 2) + x + 1 + dx] - c >= t) code |= 1 << k;
        }
        ASSERT_EQ(dst.at<uint8_t>(x, y), code) << x << "," << y << " t " << t;
      }
    EXPECT_TRUE(dst.GuardsIntact());
  }
  // Thresholds beyond every difference: all bits or none.
  Image dst(w, h, 1, 0);
  ASSERT_EQ(tvxGLBPu8(src.bytes(), w, h, src.stride(), dst.bytes(), w, 256), 0);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) ASSERT_EQ(dst.at<uint8_t>(x, y), 0);
  ASSERT_EQ(tvxGLBPu8(src.bytes(), w, h, src.stride(), dst.bytes(), w, -2147483647 - 1), 0);
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) ASSERT_EQ(dst.at<uint8_t>(x, y), 255);
}

// Statistics without OpenCV: a two-value image has a known mean and deviation; an empty mask
// counts nothing; saturated pixels over a large image stay exact.
TEST(HistoStats, KnownValuesEmptyMaskAndLargeSums) {
  std::vector<uint8_t> img(64 * 4), mask(64 * 4, 0);
  for (size_t i = 0; i < img.size(); ++i) img[i] = i % 2 ? 10 : 30;
  float mean = -1, sd = -1;
  uint32_t count = 99;
  ASSERT_EQ(tvxImageIntensityStats(img.data(), 64, 4, 0, &mean, &sd), 0);
  EXPECT_EQ(mean, 20.0f);
  EXPECT_EQ(sd, 10.0f);
  ASSERT_EQ(tvxImageIntensityStats_v2(img.data(), 64, 4, 0, mask.data(), 0, &mean, &sd, &count), 0);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(mean, 0.0f);
  EXPECT_EQ(sd, 0.0f);
  for (size_t i = 0; i < mask.size(); i += 2) mask[i] = 255;  // only the 30s
  ASSERT_EQ(tvxImageIntensityStats_v2(img.data(), 64, 4, 0, mask.data(), 64, &mean, &sd, &count), 0);
  EXPECT_EQ(count, 128u);
  EXPECT_EQ(mean, 30.0f);
  EXPECT_EQ(sd, 0.0f);
  std::vector<uint8_t> bright(4096 * 600, 255);
  ASSERT_EQ(tvxImageIntensityStats(bright.data(), 4096, 600, 4096, &mean, &sd), 0);
  EXPECT_EQ(mean, 255.0f);
  EXPECT_EQ(sd, 0.0f);
}


// Local maxima against a brute-force rule: a pixel is kept when it beats every other pixel of its
// window under the order (value, then earlier in scan order).
TEST(HistoMaxima, KeptPixelsBeatTheirWindowAndFillInScanOrder) {
  std::mt19937 rng(12);
  const uint32_t w = 41, h = 23;
  Image img = RandomBytes(w, h, 5, rng, 0, 40);
  img.at<uint8_t>(10, 10) = img.at<uint8_t>(11, 10) = 250;  // a plateau of two: only the first
  for (uint32_t radius : {1u, 2u, 5u}) {
    for (uint32_t threshold : {0u, 30u, 251u}) {
      std::vector<uint32_t> expected;
      for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x) {
          const int v = img.at<uint8_t>(x, y);
          if (v < int(threshold)) continue;
          bool beaten = false;
          for (int dy = -int(radius); dy <= int(radius); ++dy)
            for (int dx = -int(radius); dx <= int(radius); ++dx) {
              const int qx = int(x) + dx, qy = int(y) + dy;
              if ((dx == 0 && dy == 0) || qx < 0 || qy < 0 || qx >= int(w) || qy >= int(h)) continue;
              const int u = img.at<uint8_t>(uint32_t(qx), uint32_t(qy));
              const bool earlier = qy * int(w) + qx < int(y * w + x);
              if (u > v || (u == v && earlier)) beaten = true;
            }
          if (!beaten) expected.insert(expected.end(), {x, y});
        }
      if (threshold == 0 && radius == 1) {
        ASSERT_GT(expected.size(), 20u);
      }
      std::vector<uint32_t> xy(expected.size() + 8, 0xEEEEEEEE);
      uint32_t count = 7;
      const uint32_t capacity = static_cast<uint32_t>(expected.size() / 2 + 3);
      ASSERT_EQ(tvxFindMultipleMaximau8(img.bytes(), w, h, img.stride(), threshold, radius, xy.data(), capacity, &count),
                0);
      ASSERT_EQ(count, expected.size() / 2);
      EXPECT_TRUE(std::equal(expected.begin(), expected.end(), xy.begin()));
      EXPECT_EQ(xy[expected.size()], 0xEEEEEEEEu);
      // A smaller capacity keeps the first maxima in scan order.
      if (count > 2) {
        std::fill(xy.begin(), xy.end(), 0xEEEEEEEE);
        ASSERT_EQ(tvxFindMultipleMaximau8(img.bytes(), w, h, img.stride(), threshold, radius, xy.data(), 2, &count), 0);
        EXPECT_EQ(count, 2u);
        EXPECT_TRUE(std::equal(expected.begin(), expected.begin() + 4, xy.begin()));
        EXPECT_EQ(xy[4], 0xEEEEEEEEu);
      }
    }
  }
}

TEST(HistoEdgeWeight, SumOfMagnitudesSaturates) {
  const std::vector<int16_t> gx = {0, -1, 5, -32768, 32767, -20000, 100, -7};
  const std::vector<int16_t> gy = {0, 1, -5, -32768, 1, -20000, -12800, 0};
  std::vector<int16_t> out(8, 99);
  ASSERT_EQ(tvxEdgeWeightings16(gx.data(), gy.data(), 4, 2, 8, 8, out.data(), 0), 0);
  EXPECT_EQ(out, (std::vector<int16_t>{0, 2, 10, 32767, 32767, 32767, 12900, 7}));
}

// Bad arguments return 3 and leave every output untouched.
TEST(HistoEntries, BadArgumentsWriteNothing) {
  std::vector<uint8_t> img(32 * 4, 7), out(32 * 4, 0xEE);
  std::vector<uint32_t> hist(256, 5);
  EXPECT_EQ(tvxImageIntensityHistogram(img.data(), 32, 4, 31, hist.data(), 0), 3);
  EXPECT_EQ(tvxImageIntensityHistogram(img.data(), 0, 4, 32, hist.data(), 0), 3);
  EXPECT_EQ(hist, std::vector<uint32_t>(256, 5));
  EXPECT_EQ(tvxImageHistogramEqualizeu8(img.data(), 32, 4, 32, out.data(), 16), 3);
  EXPECT_EQ(tvxGLBPu8(img.data(), 32, 4, 32, img.data(), 32, 0), 3);  // not in place
  EXPECT_EQ(tvxGLBPu8(img.data(), 32, 4, 32, out.data(), 31, 0), 3);
  EXPECT_EQ(tvxImageDiffu8(img.data(), img.data(), 32, 4, 32, 30, out.data(), 32), 3);
  EXPECT_EQ(out, std::vector<uint8_t>(32 * 4, 0xEE));
  EXPECT_EQ(img, std::vector<uint8_t>(32 * 4, 7));
  float m[24];
  std::fill(m, m + 24, -1.0f);
  std::vector<int32_t> s32(8 * 4, 1);
  EXPECT_EQ(tvxImageMomentss32(s32.data(), 8, 4, 30, m), 3);  // stride of part elements
  EXPECT_EQ(tvxImageMomentss32(s32.data(), 8, 4, 28, m), 3);  // shorter than a row
  for (float v : m) EXPECT_EQ(v, -1.0f);
  float mean = -1, sd = -1;
  uint32_t count = 9;
  EXPECT_EQ(tvxImageIntensityStats_v2(img.data(), 32, 4, 32, nullptr, 32, &mean, &sd, &count), 3);
  EXPECT_EQ(count, 9u);
  EXPECT_EQ(mean, -1.0f);
  std::vector<uint32_t> cells(64, 5);
  EXPECT_EQ(tvxImageSpatialHistogramu8(img.data(), 32, 4, 32, 33, 1, 2, cells.data()), 3);  // more cells than columns
  EXPECT_EQ(tvxImageSpatialHistogramu8(img.data(), 32, 4, 32, 2, 2, 257, cells.data()), 3);
  EXPECT_EQ(tvxNormalizeLocalBoxu8(img.data(), 32, 4, 32, 4, 3, 0, out.data(), 32), 3);  // even box
  EXPECT_EQ(tvxFindMultipleMaximau8(img.data(), 32, 4, 32, 0, 0, cells.data(), 8, &count), 3);
  EXPECT_EQ(cells, std::vector<uint32_t>(64, 5));
  EXPECT_EQ(out, std::vector<uint8_t>(32 * 4, 0xEE));
}

}  // namespace
