// Checks that hold for every entry in the registry: a null first pointer is rejected without
// a write, a valid call is accepted, and the SIMD slot gives the reference result on the
// sample call.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "frame/frame.h"
#include "frame/hw.h"

#include "samples.inc"
#include "log_capture.h"

namespace {

constexpr size_t kBufferBytes = 64 * 1024;
constexpr uint8_t kFill = 0x5A;

using tvxtest::Capture;
using tvxtest::g_lines;

struct Buffers {
  std::vector<std::vector<uint8_t>> store;
  TvxSample sample{};
  explicit Buffers(uint32_t width, uint32_t height) {
    store.assign(TVX_SAMPLE_BUFFERS, std::vector<uint8_t>(kBufferBytes));
    for (int i = 0; i < TVX_SAMPLE_BUFFERS; ++i) {
      // Small non-zero bytes keep every sample call meaningful (lists, masks, tables); every
      // fourth byte near 0x3F keeps floats read from the buffers within [1/4, 4], clear of the
      // subnormal range that NEON flushes to zero while the scalar unit does not.
      for (size_t j = 0; j < kBufferBytes; ++j)
        store[i][j] = static_cast<uint8_t>(j % 4 == 3 ? 0x3E + (j / 4 + i) % 3 : (j * 7 + i * 13) % 61 + 1);
      sample.buf[i] = store[i].data();
    }
    sample.width = width;
    sample.height = height;
  }
  void Fill(uint8_t value) {
    for (auto& b : store) std::memset(b.data(), value, b.size());
  }
  bool AllEqual(uint8_t value) const {
    for (const auto& b : store)
      for (uint8_t v : b)
        if (v != value) return false;
    return true;
  }
};

class EntryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_lines.clear();
    tvx_set_log_sink(&Capture);
    std::memset(tvxImplTable, 0, sizeof tvxImplTable);
  }
  void TearDown() override { tvx_set_log_sink(nullptr); }
};

TEST_F(EntryTest, NullFirstPointerIsRejectedWithoutWriting) {
  for (const TvxSampleEntry& e : kTvxSamples) {
    if (e.pointers == 0) continue;
    SCOPED_TRACE(e.name);
    Buffers b(16, 8);
    b.Fill(kFill);
    b.sample.nullFirst = true;
    g_lines.clear();
    const int64_t result = e.call(b.sample);
    EXPECT_TRUE(b.AllEqual(kFill)) << "a rejected call wrote into a buffer";
    if (e.style == 0) {
      ASSERT_EQ(g_lines.size(), 1u);
      EXPECT_EQ(g_lines[0], std::string("tavix_lib_log|Assertion failed @") + e.name + ": " + e.cond + "\n");
      EXPECT_EQ(result, e.failValue);
    } else if (e.style == 1) {
      EXPECT_EQ(result, 3);
      EXPECT_TRUE(g_lines.empty());
    } else {
      EXPECT_EQ(result, e.failValue);
      EXPECT_TRUE(g_lines.empty());
    }
  }
}

TEST_F(EntryTest, ValidSampleCallIsAccepted) {
  for (const TvxSampleEntry& e : kTvxSamples) {
    SCOPED_TRACE(e.name);
    Buffers b(16, 8);
    g_lines.clear();
    const int64_t result = e.call(b.sample);
    EXPECT_TRUE(g_lines.empty()) << g_lines.front();
    if (e.style == 1) {
      EXPECT_EQ(result, 0);
    }
  }
}

// One sample call per operation on each tier: the SIMD slot must leave every buffer exactly as
// the reference slot does (the per-family suites sweep shapes and targets in depth).
TEST_F(EntryTest, SimdSlotMatchesReferenceOnSampleCall) {
  for (const TvxSampleEntry& e : kTvxSamples) {
    if (!e.simd) continue;
    SCOPED_TRACE(e.name);
    Buffers ref(37, 5), simd(37, 5);
    void* saved = tvxFuncTable[e.row][1];
    tvxImplTable[e.row] = 0;
    const int64_t r0 = e.call(ref.sample);
    tvxFuncTable[e.row][1] = e.simdVariant;
    tvxImplTable[e.row] = 1;
    const int64_t r1 = e.call(simd.sample);
    tvxImplTable[e.row] = 0;
    tvxFuncTable[e.row][1] = saved;
    EXPECT_EQ(r0, r1);
    for (int i = 0; i < TVX_SAMPLE_BUFFERS; ++i) EXPECT_EQ(ref.store[i], simd.store[i]) << "buffer " << i;
  }
}

// Widths whose row size wraps around 32 bits, with small strides: every entry with strides must
// reject the call and write nothing (conditions are evaluated without wrap-around).
TEST_F(EntryTest, MaximalWidthsWithSmallStridesAreRejectedWithoutWriting) {
  for (const TvxSampleEntry& e : kTvxSamples) {
    if (!e.strided) continue;
    SCOPED_TRACE(e.name);
    for (uint32_t width : {0x80000001u, 0x55555556u, 0x40000001u, 0xFFFFFFFFu}) {
      for (uint32_t height : {1u, 2u}) {
        Buffers b(width, height);
        b.sample.stride = 80;
        b.Fill(kFill);
        const int64_t result = e.call(b.sample);
        EXPECT_TRUE(b.AllEqual(kFill)) << "width " << width << " height " << height << " wrote into a buffer";
        if (e.style != 0) {
          EXPECT_EQ(result, e.style == 1 ? 3 : e.failValue) << width;
        }
      }
    }
  }
}

TEST_F(EntryTest, RowSizesThatWrapOrOutgrowTheStrideAreRejected) {
  std::vector<int16_t> a(40 * 20, 1), b(40 * 20, 2), d(40 * 20, 7);
  EXPECT_EQ(tvxSubtracts16(a.data(), 0x80000001u, 1, 80, b.data(), 80, 1, d.data(), 80), 3);
  EXPECT_EQ(d, std::vector<int16_t>(40 * 20, 7));
  // The packed float Sobel's condition compares a byte stride with a width in floats: a stride
  // of 3 bytes for 3 floats is rejected, logged with the condition as written.
  std::vector<float> src(3 * 3, 1.0f), dx(9, 5.0f), dy(9, 5.0f);
  g_lines.clear();
  tvxImageGradientSobelPlanarf32f32(src.data(), 3, 3, 3, dx.data(), dy.data());
  ASSERT_EQ(g_lines.size(), 1u);
  EXPECT_EQ(g_lines[0], tvxtest::AssertLine("tvxImageGradientSobelPlanarf32f32",
                                             "src && srcWidth && srcHeight && srcStride >= srcWidth && dx && dy"));
  EXPECT_EQ(dx, std::vector<float>(9, 5.0f));
}

// A byte stride that does not hold whole 16-bit elements would start rows misaligned: rejected,
// nothing written; the same call with an even stride is accepted.
TEST_F(EntryTest, StridesOfPartElementsAreRejected) {
  std::vector<int16_t> a(40 * 20, 1), b(40 * 20, 2), d(40 * 20, 7);
  EXPECT_EQ(tvxSubtracts16(a.data(), 30, 3, 81, b.data(), 80, 1, d.data(), 80), 3);
  EXPECT_EQ(tvxSubtracts16(a.data(), 30, 3, 80, b.data(), 80, 1, d.data(), 79), 3);
  EXPECT_EQ(d, std::vector<int16_t>(40 * 20, 7));
  EXPECT_EQ(tvxSubtracts16(a.data(), 30, 3, 82, b.data(), 80, 1, d.data(), 80), 0);
  EXPECT_EQ(d[0], -1);
}

}  // namespace
