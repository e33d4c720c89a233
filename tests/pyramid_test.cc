// Pyramid entries: level sizes of the worked 640 x 480 case, level contents against the
// reductions called level by level, the process-ending creation checks (exact log line, exit
// status 1), missing level buffers, allocation failures at every allocation (no leak under
// the sanitizers), the allocated level-0 block, the scale-factor forms and the Sobel pyramids.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "log_capture.h"

namespace {

using tvxtest::Capture;
using tvxtest::g_lines;
using Bytes = std::vector<uint8_t>;

const char* const kMultiples =
    "( (baseWidth & ((1 << (numLevels - 1)) - 1)) == 0 ) & ( (baseHeight & ((1 << (numLevels - 1)) - 1)) == 0 )";
const char* const kMultiplesCompact = "((baseWidth&((1<<(numLevels-1))-1))==0)&((baseHeight&((1<<(numLevels-1))-1))==0)";
const char* const kPresent = "base && numLevels && baseHeight && baseWidth && pyramid";

// The line a failed creation check writes to stderr, as a regular expression (any line number).
std::string FatalLine(const char* cond) {
  std::string escaped;
  for (const char* c = cond; *c; ++c) {
    if (std::strchr(".[]{}()\\*+?^$|", *c)) escaped += '\\';
    escaped += *c;
  }
  return "tavix_lib_log: src/cpu/tavixPyramidC@[0-9]+: " + escaped + " Assertion failed\n";
}

class Pyramid : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
  }
  void TearDown() override {
    tvx_set_log_sink(nullptr);
    tvx_fail_heap_after_for_test(-1);
  }
  Bytes Random(size_t n) {
    Bytes b(n);
    for (auto& v : b) v = static_cast<uint8_t>(rng_());
    return b;
  }
  std::vector<float> RandomFloats(size_t n) {
    std::uniform_real_distribution<float> dist(-500.0f, 500.0f);
    std::vector<float> f(n);
    for (auto& v : f) v = dist(rng_);
    return f;
  }
  std::mt19937 rng_{4242};
};

template <typename T>
bool SameBytes(const void* a, const void* b, size_t n) {
  return std::memcmp(a, b, n * sizeof(T)) == 0;
}

// ---- worked sizes and level contents ---------------------------------------------------------

TEST_F(Pyramid, WorkedSizesAndLevelsEqualTheReductionLevelByLevel) {
  const Bytes img = Random(640 * 480);
  const Bytes keep = img;
  tvxPyramidLevel pyr[6];
  ASSERT_EQ(tvxPyramidAllocate(pyr, 640, 480, 1, 6, 0), 0);
  EXPECT_EQ(pyr[0].ptr, nullptr);
  ASSERT_EQ(tvxPyramidCreateu8(img.data(), 640, 480, 6, pyr), 0);
  const uint32_t sizes[6][2] = {{640, 480}, {320, 240}, {160, 120}, {80, 60}, {40, 30}, {20, 15}};
  EXPECT_EQ(pyr[0].ptr, img.data());
  Bytes prev = img;
  for (int i = 0; i < 6; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(pyr[i].width, sizes[i][0]);
    EXPECT_EQ(pyr[i].height, sizes[i][1]);
    if (i == 0) continue;
    Bytes expect(sizes[i][0] * sizes[i][1]);
    tvxScaleDownBy2Gaussian5x5u8(prev.data(), sizes[i - 1][0], sizes[i - 1][1], expect.data());
    EXPECT_TRUE(SameBytes<uint8_t>(pyr[i].ptr, expect.data(), expect.size()));
    prev = expect;
  }
  // The caller's image is level 0: a delete from level 1 leaves it (and its pointer) alone.
  EXPECT_EQ(tvxPyramidDelete(pyr, 6, 1), 0);
  EXPECT_EQ(pyr[0].ptr, img.data());
  for (int i = 1; i < 6; ++i) EXPECT_EQ(pyr[i].ptr, nullptr);
  EXPECT_EQ(img, keep);
  EXPECT_EQ(tvxPyramidDelete(pyr, 6, 6), 0) << "nothing to do";
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Pyramid, SecondFormsFollowTheStridedReductions) {
  // A padded base stride; levels get packed strides. Bytes and floats.
  const uint32_t w = 96, h = 40, levels = 4, stride = 101;
  const Bytes img = Random(stride * h);
  tvxPyramidLevel_v2 pyr[4];
  ASSERT_EQ(tvxPyramidAllocate_v2(pyr, w, h, stride, 1, levels, 0), 0);
  EXPECT_EQ(pyr[0].stride, stride);
  ASSERT_EQ(tvxPyramidCreateu8_v2(img.data(), w, h, stride, levels, pyr), 0);
  const uint8_t* prev = img.data();
  uint32_t prevStride = stride;
  for (uint32_t i = 1; i < levels; ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(pyr[i].width, w >> i);
    ASSERT_EQ(pyr[i].height, h >> i);
    ASSERT_EQ(pyr[i].stride, w >> i);
    Bytes expect(pyr[i].stride * pyr[i].height);
    tvxScaleDownBy2Gaussian5x5u8_v2(prev, w >> (i - 1), h >> (i - 1), prevStride, expect.data(), pyr[i].stride);
    EXPECT_TRUE(SameBytes<uint8_t>(pyr[i].ptr, expect.data(), expect.size()));
    prev = static_cast<const uint8_t*>(pyr[i].ptr);
    prevStride = pyr[i].stride;
  }
  EXPECT_EQ(tvxPyramidDelete_v2(pyr, levels, 1), 0);

  // Floats, first form and second form with a padded byte stride (the float reduction is an
  // internal row, compared through its reference variant).
  const std::vector<float> f = RandomFloats((w + 3) * h);
  std::vector<float> packed(w * h);
  for (uint32_t y = 0; y < h; ++y) std::memcpy(&packed[y * w], &f[y * (w + 3)], w * 4);
  tvxPyramidLevel p1[4];
  ASSERT_EQ(tvxPyramidAllocate(p1, w, h, 4, levels, 0), 0);
  ASSERT_EQ(tvxPyramidCreatef32(packed.data(), w, h, levels, p1), 0);
  tvxPyramidLevel_v2 p2[4];
  ASSERT_EQ(tvxPyramidAllocate_v2(p2, w, h, (w + 3) * 4, 4, levels, 0), 0);
  ASSERT_EQ(tvxPyramidCreatef32_v2(f.data(), w, h, (w + 3) * 4, levels, p2), 0);
  std::vector<float> prevF = packed, prevV2 = f;
  uint32_t prevStrideV2 = (w + 3) * 4;
  for (uint32_t i = 1; i < levels; ++i) {
    SCOPED_TRACE(i);
    const uint32_t lw = w >> i, lh = h >> i;
    std::vector<float> e1(lw * lh), e2(lw * lh);
    tvxScaleDownBy2Gaussian5x5f32C(prevF.data(), lw * 2, lh * 2, e1.data());
    tvxScaleDownBy2Gaussian5x5f32_v2C(prevV2.data(), lw * 2, lh * 2, prevStrideV2, e2.data(), lw * 4);
    EXPECT_EQ(p2[i].stride, lw * 4);
    EXPECT_TRUE(SameBytes<float>(p1[i].ptr, e1.data(), e1.size()));
    EXPECT_TRUE(SameBytes<float>(p2[i].ptr, e2.data(), e2.size()));
    prevF = e1;
    prevV2 = e2;
    prevStrideV2 = lw * 4;
  }
  EXPECT_EQ(tvxPyramidDelete(p1, levels, 1), 0);
  EXPECT_EQ(tvxPyramidDelete_v2(p2, levels, 1), 0);
  EXPECT_TRUE(g_lines.empty());
}

TEST_F(Pyramid, OneLevelWritesLevelZeroOnly) {
  // numLevels 1: any size is a multiple of 2^0, nothing beyond level 0 is touched.
  const Bytes img = Random(7 * 5);
  tvxPyramidLevel pyr[2] = {{nullptr, 0, 0}, {reinterpret_cast<void*>(0x40), 11, 12}};
  ASSERT_EQ(tvxPyramidAllocate(pyr, 7, 5, 1, 1, 1), 0);
  ASSERT_NE(pyr[0].ptr, nullptr);
  EXPECT_EQ(pyr[1].ptr, reinterpret_cast<void*>(0x40));
  EXPECT_EQ(pyr[1].width, 11u);
  ASSERT_EQ(tvxPyramidCreateu8(img.data(), 7, 5, 1, pyr), 0);
  EXPECT_EQ(pyr[0].width, 7u);
  EXPECT_EQ(pyr[0].height, 5u);
  EXPECT_EQ(pyr[1].width, 11u);
  EXPECT_EQ(pyr[1].height, 12u);
  EXPECT_EQ(tvxPyramidDelete(pyr, 1, 0), 0);
  EXPECT_EQ(pyr[0].ptr, nullptr);
}

TEST_F(Pyramid, MissingLevelBufferStopsWithEarlierLevelsValid) {
  const Bytes img = Random(32 * 16);
  Bytes l1(16 * 8), l3(4 * 2, 0x5A);
  tvxPyramidLevel pyr[4] = {{nullptr, 0, 0}, {l1.data(), 0, 0}, {nullptr, 0, 0}, {l3.data(), 0, 0}};
  EXPECT_EQ(tvxPyramidCreateu8(img.data(), 32, 16, 4, pyr), -1);
  Bytes expect(16 * 8);
  tvxScaleDownBy2Gaussian5x5u8(img.data(), 32, 16, expect.data());
  EXPECT_EQ(l1, expect);
  EXPECT_EQ(pyr[2].width, 8u) << "the level's size is set before its buffer is found missing";
  EXPECT_EQ(l3, Bytes(8, 0x5A));
  EXPECT_EQ(pyr[3].width, 0u);

  tvxPyramidLevel_v2 p2[3] = {{nullptr, 0, 0, 0}, {l1.data(), 0, 0, 0}, {nullptr, 0, 0, 0}};
  EXPECT_EQ(tvxPyramidCreateu8_v2(img.data(), 32, 16, 0, 3, p2), -1);
  EXPECT_EQ(p2[0].stride, 32u) << "zero base stride is packed";
  EXPECT_EQ(tvxPyramidCreateu8_v3(img.data(), 32, 16, 0, 3, p2, 0.5f), 3);
  std::vector<float> f(32 * 16, 1.0f);
  tvxPyramidLevel pf[2] = {{nullptr, 0, 0}, {nullptr, 0, 0}};
  EXPECT_EQ(tvxPyramidCreatef32(f.data(), 32, 16, 2, pf), -1);
  EXPECT_EQ(pf[0].ptr, f.data());
  tvxPyramidLevel_v2 p3[2] = {{nullptr, 0, 0, 0}, {nullptr, 0, 0, 0}};
  EXPECT_EQ(tvxPyramidCreatef32_v2(f.data(), 32, 16, 0, 2, p3), -1);

  // A base stride shorter than a row is refused before anything is written.
  tvxPyramidLevel_v2 untouched[2] = {{nullptr, 1, 2, 3}, {l1.data(), 4, 5, 6}};
  EXPECT_EQ(tvxPyramidCreateu8_v2(img.data(), 32, 16, 31, 2, untouched), -1);
  EXPECT_EQ(tvxPyramidCreateu8_v3(img.data(), 32, 16, 31, 2, untouched, 0.5f), 3);
  EXPECT_EQ(tvxPyramidCreatef32_v2(f.data(), 32, 16, 127, 2, untouched), -1);
  EXPECT_EQ(tvxPyramidCreatef32_v2(f.data(), 32, 16, 130, 2, untouched), -1) << "not whole floats";
  EXPECT_EQ(untouched[0].width, 1u);
  EXPECT_EQ(untouched[1].stride, 6u);
  EXPECT_TRUE(g_lines.empty());
}

// ---- process-ending creation checks -----------------------------------------------------------

TEST_F(Pyramid, BrokenCreationPreconditionsEndTheProcess) {
  tvx_set_log_sink(nullptr);  // the child writes its line to stderr
  const Bytes img(640 * 480);
  const std::vector<float> f(640 * 480);
  tvxPyramidLevel p[8] = {};
  tvxPyramidLevel_v2 q[8] = {};
  // 480 is not a multiple of 64.
  EXPECT_EXIT(tvxPyramidCreateu8(img.data(), 640, 480, 7, p), ::testing::ExitedWithCode(1), FatalLine(kMultiples));
  EXPECT_EXIT(tvxPyramidCreateu8V(img.data(), 640, 480, 7, p), ::testing::ExitedWithCode(1), FatalLine(kMultiples));
  EXPECT_EXIT(tvxPyramidCreateu8_v2(img.data(), 640, 480, 640, 7, q), ::testing::ExitedWithCode(1), FatalLine(kMultiples));
  EXPECT_EXIT(tvxPyramidCreateu8_v3(img.data(), 640, 479, 640, 2, q, 0.8f), ::testing::ExitedWithCode(1),
              FatalLine(kMultiples));
  EXPECT_EXIT(tvxPyramidCreatef32(f.data(), 641, 480, 2, p), ::testing::ExitedWithCode(1), FatalLine(kMultiples));
  EXPECT_EXIT(tvxPyramidCreatef32_v2(f.data(), 640, 480, 0, 7, q), ::testing::ExitedWithCode(1),
              FatalLine(kMultiplesCompact));
  EXPECT_EXIT(tvxPyramidCreatef32_v2V(f.data(), 640, 480, 0, 7, q), ::testing::ExitedWithCode(1),
              FatalLine(kMultiplesCompact));
  // Level counts whose power of two does not fit 32 bits: no size is such a multiple.
  EXPECT_EXIT(tvxPyramidCreateu8(img.data(), 640, 480, 40, p), ::testing::ExitedWithCode(1), FatalLine(kMultiples));
  // Missing base, records, levels or size.
  EXPECT_EXIT(tvxPyramidCreateu8(nullptr, 640, 480, 2, p), ::testing::ExitedWithCode(1), FatalLine(kPresent));
  EXPECT_EXIT(tvxPyramidCreateu8_v2(img.data(), 640, 480, 640, 2, nullptr), ::testing::ExitedWithCode(1),
              FatalLine(kPresent));
  EXPECT_EXIT(tvxPyramidCreatef32(f.data(), 640, 480, 0, p), ::testing::ExitedWithCode(1), FatalLine(kPresent));
  EXPECT_EXIT(tvxPyramidCreatef32_v2(f.data(), 640, 0, 0, 1, q), ::testing::ExitedWithCode(1), FatalLine(kPresent));
  EXPECT_EXIT(tvxPyramidCreateu8_v3(img.data(), 0, 480, 0, 1, q, 0.5f), ::testing::ExitedWithCode(1), FatalLine(kPresent));
  // The creation checks come before the scale factor's.
  EXPECT_EXIT(tvxPyramidCreateu8_v3(nullptr, 640, 480, 0, 1, q, 2.0f), ::testing::ExitedWithCode(1), FatalLine(kPresent));
}

// ---- allocation ------------------------------------------------------------------------------

TEST_F(Pyramid, AllocationSizesAndEntryConditions) {
  tvxPyramidLevel_v2 pyr[3];
  ASSERT_EQ(tvxPyramidAllocate_v2(pyr, 13, 9, 0, 2, 3, 1), 0);
  const uint32_t expect[3][3] = {{13, 9, 26}, {6, 4, 12}, {3, 2, 6}};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(pyr[i].width, expect[i][0]);
    EXPECT_EQ(pyr[i].height, expect[i][1]);
    EXPECT_EQ(pyr[i].stride, expect[i][2]);
    ASSERT_NE(pyr[i].ptr, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(pyr[i].ptr) % 16, 0u);
    std::memset(pyr[i].ptr, 1, pyr[i].stride * pyr[i].height);  // every byte is usable (ASan)
  }
  EXPECT_EQ(tvxPyramidDelete_v2(pyr, 3, 0), 0);
  for (auto& l : pyr) EXPECT_EQ(l.ptr, nullptr);
  EXPECT_TRUE(g_lines.empty());

  const char* cond = "pyr && baseWidth && baseHeight && bytesPerPixel && numLevels && (numLevels <= 32)";
  tvxPyramidLevel p1[2];
  EXPECT_EQ(tvxPyramidAllocate(nullptr, 8, 8, 1, 2, 1), -1);
  EXPECT_EQ(tvxPyramidAllocate(p1, 8, 8, 0, 2, 1), -1);
  EXPECT_EQ(tvxPyramidAllocate(p1, 8, 8, 1, 33, 1), -1);
  EXPECT_EQ(tvxPyramidAllocate_v2(pyr, 8, 8, 7, 1, 2, 1), -1) << "stride below a row";
  ASSERT_EQ(g_lines.size(), 4u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxPyramidAllocate", cond));
  EXPECT_EQ(g_lines[3], tvxtest::AssertLine("tvxPyramidAllocate_v2", cond));
  EXPECT_EQ(tvxPyramidAllocate_v3(pyr, 8, 8, 0, 1, 2, 1, 1.0f), 3);
  EXPECT_EQ(tvxPyramidDelete(nullptr, 2, 0), 3);
  EXPECT_EQ(tvxPyramidDelete_v2(nullptr, 2, 2), 0);
  // A level whose size does not fit 4 GiB fails like an exhausted heap, nothing left behind.
  EXPECT_EQ(tvxPyramidAllocate_v2(pyr, 70000, 70000, 0, 1, 2, 1), -1);
  EXPECT_EQ(pyr[0].ptr, nullptr);
  EXPECT_EQ(pyr[1].ptr, nullptr);
}

TEST_F(Pyramid, AllocationFailureAtEveryBlock) {
  const uint32_t levels = 4;
  for (uint32_t allocateBase : {0u, 1u}) {
    const int64_t blocks = levels - 1 + allocateBase;
    for (int64_t n = 0; n <= blocks; ++n) {
      SCOPED_TRACE(::testing::Message() << "base " << allocateBase << ", failing block " << n);
      const int32_t ok = n == blocks ? 0 : -1;
      // First form: what was allocated stays, the rest is null, and the delete frees it all.
      tvxPyramidLevel p1[4];
      std::memset(p1, 0xEE, sizeof p1);  // stale pointers must not survive
      tvx_fail_heap_after_for_test(n);
      EXPECT_EQ(tvxPyramidAllocate(p1, 64, 48, 1, levels, allocateBase), ok);
      tvx_fail_heap_after_for_test(-1);
      for (uint32_t i = 0; i < levels; ++i) {
        const int64_t block = static_cast<int64_t>(i) - (allocateBase ? 0 : 1);
        EXPECT_EQ(p1[i].ptr != nullptr, block >= 0 && block < n) << "level " << i;
        EXPECT_EQ(p1[i].width, 64u >> i);
      }
      EXPECT_EQ(tvxPyramidDelete(p1, levels, 0), 0);
      // Second and third forms release everything they allocated.
      tvxPyramidLevel_v2 p2[4];
      tvx_fail_heap_after_for_test(n);
      EXPECT_EQ(tvxPyramidAllocate_v2(p2, 64, 48, 0, 1, levels, allocateBase), ok);
      tvx_fail_heap_after_for_test(-1);
      for (uint32_t i = 0; i < levels && ok != 0; ++i) EXPECT_EQ(p2[i].ptr, nullptr);
      EXPECT_EQ(tvxPyramidDelete_v2(p2, levels, 0), 0);
      tvx_fail_heap_after_for_test(n);
      EXPECT_EQ(tvxPyramidAllocate_v3(p2, 64, 48, 0, 1, levels, allocateBase, 0.75f), ok == 0 ? 0 : 5);
      tvx_fail_heap_after_for_test(-1);
      for (uint32_t i = 0; i < levels && ok != 0; ++i) EXPECT_EQ(p2[i].ptr, nullptr);
      EXPECT_EQ(tvxPyramidDelete_v2(p2, levels, 0), 0);
    }
  }
}

TEST_F(Pyramid, AllocatedLevelZeroKeepsItsBlock) {
  // A create over an allocated level 0 copies the image into the block; the delete frees the
  // block and never the caller's image (ASan reports a wrong free or a leak).
  const uint32_t w = 32, h = 24;
  Bytes img = Random(w * h);
  tvxPyramidLevel pyr[3];
  ASSERT_EQ(tvxPyramidAllocate(pyr, w, h, 1, 3, 1), 0);
  void* block = pyr[0].ptr;
  ASSERT_EQ(tvxPyramidCreateu8(img.data(), w, h, 3, pyr), 0);
  EXPECT_EQ(pyr[0].ptr, block);
  EXPECT_TRUE(SameBytes<uint8_t>(block, img.data(), img.size()));
  Bytes l1(16 * 12);
  tvxScaleDownBy2Gaussian5x5u8(img.data(), w, h, l1.data());
  EXPECT_TRUE(SameBytes<uint8_t>(pyr[1].ptr, l1.data(), l1.size()));
  EXPECT_EQ(tvxPyramidDelete(pyr, 3, 0), 0);
  EXPECT_EQ(pyr[0].ptr, nullptr);

  // Level 0 holding the caller's image: a delete from level 0 only clears the pointer.
  ASSERT_EQ(tvxPyramidAllocate(pyr, w, h, 1, 3, 0), 0);
  ASSERT_EQ(tvxPyramidCreateu8(img.data(), w, h, 3, pyr), 0);
  EXPECT_EQ(pyr[0].ptr, img.data());
  EXPECT_EQ(tvxPyramidDelete(pyr, 3, 0), 0);
  EXPECT_EQ(pyr[0].ptr, nullptr);

  // Second form with a padded stride: the image is copied at that stride.
  tvxPyramidLevel_v2 p2[2];
  ASSERT_EQ(tvxPyramidAllocate_v2(p2, w, h, w + 8, 1, 2, 1), 0);
  block = p2[0].ptr;
  const Bytes padded = Random((w + 8) * h);
  ASSERT_EQ(tvxPyramidCreateu8_v3(padded.data(), w, h, w + 8, 2, p2, 0.5f), 0);
  EXPECT_EQ(p2[0].ptr, block);
  EXPECT_EQ(p2[0].stride, w + 8);
  for (uint32_t y = 0; y < h; ++y)
    EXPECT_TRUE(SameBytes<uint8_t>(static_cast<uint8_t*>(block) + y * (w + 8), &padded[y * (w + 8)], w));
  // A block too small for the image: -1 and nothing written.
  Bytes big = Random(64 * 48);
  EXPECT_EQ(tvxPyramidCreateu8_v2(big.data(), 64, 48, 0, 2, p2), -1);
  EXPECT_EQ(p2[0].ptr, block);
  EXPECT_EQ(p2[0].width, w);
  EXPECT_EQ(tvxPyramidDelete_v2(p2, 2, 0), 0);

  // Floats.
  std::vector<float> f = RandomFloats(w * h);
  tvxPyramidLevel pf[2];
  ASSERT_EQ(tvxPyramidAllocate(pf, w, h, 4, 2, 1), 0);
  block = pf[0].ptr;
  ASSERT_EQ(tvxPyramidCreatef32(f.data(), w, h, 2, pf), 0);
  EXPECT_EQ(pf[0].ptr, block);
  EXPECT_TRUE(SameBytes<float>(block, f.data(), f.size()));
  EXPECT_EQ(tvxPyramidDelete(pf, 2, 0), 0);
  EXPECT_TRUE(g_lines.empty());
}

// ---- scale factor ------------------------------------------------------------------------------

TEST_F(Pyramid, ScaleFactorSizesAndLevels) {
  tvxPyramidLevel_v2 a[4], b[4];
  // 0.5 is the halving pyramid.
  ASSERT_EQ(tvxPyramidAllocate_v3(a, 640, 480, 0, 1, 4, 0, 0.5f), 0);
  ASSERT_EQ(tvxPyramidAllocate_v2(b, 640, 480, 0, 1, 4, 0), 0);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(a[i].width, b[i].width);
    EXPECT_EQ(a[i].height, b[i].height);
    EXPECT_EQ(a[i].stride, b[i].stride);
  }
  const Bytes img = Random(640 * 480);
  ASSERT_EQ(tvxPyramidCreateu8_v3(img.data(), 640, 480, 0, 4, a, 0.5f), 0);
  ASSERT_EQ(tvxPyramidCreateu8_v2(img.data(), 640, 480, 0, 4, b), 0);
  for (int i = 1; i < 4; ++i) EXPECT_TRUE(SameBytes<uint8_t>(a[i].ptr, b[i].ptr, a[i].stride * a[i].height)) << i;
  EXPECT_EQ(tvxPyramidDelete_v2(a, 4, 1), 0);
  EXPECT_EQ(tvxPyramidDelete_v2(b, 4, 1), 0);

  // 0.8: 640 x 480, 512 x 384, 409.6 x 307.2 -> 410 x 307, 327.68 x 245.76 -> 328 x 246.
  ASSERT_EQ(tvxPyramidAllocate_v3(a, 640, 480, 0, 1, 4, 0, 0.8f), 0);
  const uint32_t sizes[4][2] = {{640, 480}, {512, 384}, {410, 307}, {328, 246}};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(a[i].width, sizes[i][0]);
    EXPECT_EQ(a[i].height, sizes[i][1]);
  }
  ASSERT_EQ(tvxPyramidCreateu8_v3(img.data(), 640, 480, 0, 4, a, 0.8f), 0);
  for (int i = 1; i < 4; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(a[i].width, sizes[i][0]);
    EXPECT_EQ(a[i].stride, sizes[i][0]);
    Bytes expect(sizes[i][0] * sizes[i][1]);
    ASSERT_EQ(tvxScaleu8_v2(static_cast<const uint8_t*>(a[i - 1].ptr), a[i - 1].width, a[i - 1].height, a[i - 1].stride,
                            expect.data(), sizes[i][0], sizes[i][1], sizes[i][0], 1, 2, 0), 0);
    EXPECT_TRUE(SameBytes<uint8_t>(a[i].ptr, expect.data(), expect.size()));
  }
  EXPECT_EQ(tvxPyramidDelete_v2(a, 4, 1), 0);

  // Halves round to even, as cvRound does: 6 * 0.75 = 4.5 -> 4, 10 * 0.75 = 7.5 -> 8.
  ASSERT_EQ(tvxPyramidAllocate_v3(a, 6, 10, 0, 2, 2, 0, 0.75f), 0);
  EXPECT_EQ(a[1].width, 4u);
  EXPECT_EQ(a[1].height, 8u);
  EXPECT_EQ(a[1].stride, 8u);
  EXPECT_EQ(tvxPyramidDelete_v2(a, 2, 1), 0);

  // Factors outside [0.5, 1): 3, nothing allocated or written.
  for (float bad : {1.0f, 0.49f, 0.0f, -0.5f, 2.0f, std::numeric_limits<float>::quiet_NaN()}) {
    SCOPED_TRACE(bad);
    tvxPyramidLevel_v2 c[2] = {{nullptr, 1, 2, 3}, {nullptr, 4, 5, 6}};
    EXPECT_EQ(tvxPyramidAllocate_v3(c, 16, 16, 0, 1, 2, 1, bad), 3);
    EXPECT_EQ(tvxPyramidCreateu8_v3(img.data(), 16, 16, 0, 2, c, bad), 3);
    EXPECT_EQ(c[0].width, 1u);
    EXPECT_EQ(c[1].stride, 6u);
  }
  EXPECT_TRUE(g_lines.empty());
}

// ---- Sobel pyramids ---------------------------------------------------------------------------

template <typename T, typename Create, typename Sobel>
void CheckSobelPyramid(const tvxPyramidLevel* img, uint32_t levels, Create create, Sobel sobel) {
  tvxPyramidLevel dx[8], dy[8];
  ASSERT_EQ(tvxPyramidAllocate(dx, img[0].width, img[0].height, sizeof(T), levels, 1), 0);
  ASSERT_EQ(tvxPyramidAllocate(dy, img[0].width, img[0].height, sizeof(T), levels, 1), 0);
  for (uint32_t i = 0; i < levels; ++i) {  // stale contents must not survive in the frame
    std::memset(dx[i].ptr, 0x77, dx[i].width * dx[i].height * sizeof(T));
    std::memset(dy[i].ptr, 0x77, dy[i].width * dy[i].height * sizeof(T));
  }
  ASSERT_EQ(create(img, dx, dy, levels), 0);
  for (uint32_t i = 0; i < levels; ++i) {
    SCOPED_TRACE(i);
    const uint32_t w = img[i].width, h = img[i].height;
    EXPECT_EQ(dx[i].width, w);
    EXPECT_EQ(dy[i].height, h);
    std::vector<T> ex(w * h, T(0)), ey(w * h, T(0));
    if (w >= 3 && h >= 3) sobel(static_cast<const uint8_t*>(img[i].ptr), w, h, w, ex.data(), ey.data(), w * sizeof(T));
    EXPECT_TRUE(SameBytes<T>(dx[i].ptr, ex.data(), ex.size()));
    EXPECT_TRUE(SameBytes<T>(dy[i].ptr, ey.data(), ey.size()));
  }
  // A missing dy level stops there with the earlier levels done.
  void* saved = dy[levels - 1].ptr;
  dy[levels - 1].ptr = nullptr;
  EXPECT_EQ(create(img, dx, dy, levels), -1);
  dy[levels - 1].ptr = saved;
  EXPECT_EQ(tvxPyramidDelete(dx, levels, 0), 0);
  EXPECT_EQ(tvxPyramidDelete(dy, levels, 0), 0);
}

TEST_F(Pyramid, SobelPyramidsEqualThePlanarSobelPerLevelWithAZeroFrame) {
  // 80 x 32 over 5 levels: 80x32, 40x16, 20x8, 10x4, 5x2 (the last below 3 rows: all zero).
  const Bytes base = Random(80 * 32);
  tvxPyramidLevel img[5];
  ASSERT_EQ(tvxPyramidAllocate(img, 80, 32, 1, 5, 0), 0);
  ASSERT_EQ(tvxPyramidCreateu8(base.data(), 80, 32, 5, img), 0);
  CheckSobelPyramid<int16_t>(img, 5, &tvxPyramidSobelGradientCreatei16, &tvxImageGradientSobelPlanars16_v2);
  CheckSobelPyramid<int8_t>(img, 5, &tvxPyramidSobelGradientCreatei8, &tvxImageGradientSobelPlanars8_v2);
  CheckSobelPyramid<float>(img, 5, &tvxPyramidSobelGradientCreatef32, &tvxImageGradientSobelPlanarf32_v2);
  EXPECT_TRUE(g_lines.empty());

  // An image level of another size than level 0 halved is refused like a missing one.
  tvxPyramidLevel dx[2], dy[2];
  ASSERT_EQ(tvxPyramidAllocate(dx, 80, 32, 2, 2, 1), 0);
  ASSERT_EQ(tvxPyramidAllocate(dy, 80, 32, 2, 2, 1), 0);
  tvxPyramidLevel odd[2] = {img[0], {img[1].ptr, 41, 16}};
  EXPECT_EQ(tvxPyramidSobelGradientCreatei16(odd, dx, dy, 2), -1);
  EXPECT_EQ(tvxPyramidSobelGradientCreatei16(img, nullptr, dy, 2), -1);
  EXPECT_EQ(tvxPyramidSobelGradientCreatei8(img, dx, dy, 0), -1);
  ASSERT_EQ(g_lines.size(), 2u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxPyramidSobelGradientCreatei16",
                                            "imgPyr && dxPyr && dyPyr && numLevels && (numLevels <= 32)"));
  EXPECT_EQ(tvxPyramidDelete(dx, 2, 0), 0);
  EXPECT_EQ(tvxPyramidDelete(dy, 2, 0), 0);
  EXPECT_EQ(tvxPyramidDelete(img, 5, 1), 0);
}

}  // namespace
