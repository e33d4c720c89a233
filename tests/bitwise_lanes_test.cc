// SIMD variants of the bitwise family against their reference variants on every compiled
// target: logic (also in place), masked OR, bit counts and masked fills, over odd widths,
// padded strides and misaligned rows whose surroundings must stay untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "frame/frame.h"
#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Shape;

// Same content inside the rectangle for an image of the same shape.
Image Twin(const Image& from, size_t elemBytes, const Shape& s) {
  Image twin(s.width, s.height, elemBytes, s.pad, s.misalign);
  for (uint32_t y = 0; y < s.height; ++y) std::memcpy(twin.row(y), from.row(y), s.width * elemBytes);
  return twin;
}

// A mask with about a third of the pixels zero.
Image RandomMask(const Shape& s, std::mt19937& rng) {
  Image mask(s.width, s.height, 1, s.pad + 3, (s.misalign + 1) % 4);
  for (uint32_t y = 0; y < s.height; ++y)
    for (uint32_t x = 0; x < s.width; ++x) {
      const uint32_t r = rng() % 6;
      mask.row(y)[x] = r < 2 ? 0 : r == 5 ? 255 : static_cast<uint8_t>(rng() % 255 + 1);
    }
  return mask;
}

class BitwiseLanes : public ::testing::Test {
 protected:
  std::mt19937 rng_{1234};
};

TEST_F(BitwiseLanes, AndXorNotMatchReferenceOutOfPlaceAndInPlace) {
  using Fn2 = int32_t (*)(const uint8_t*, uint32_t, uint32_t, uint32_t, const uint8_t*, uint32_t, uint8_t*, uint32_t);
  const struct { const char* name; Fn2 c, v; } ops[] = {{"and", tvxBitwiseAndu8C, tvxBitwiseAndu8V},
                                                        {"xor", tvxBitwiseXoru8C, tvxBitwiseXoru8V}};
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      Image a(s.width, s.height, 1, s.pad, s.misalign), b(s.width, s.height, 1, s.pad + 1, (s.misalign + 2) % 4);
      a.Randomize(rng_);
      b.Randomize(rng_);
      for (const auto& op : ops) {
        SCOPED_TRACE(op.name);
        Image outC(s.width, s.height, 1, s.pad + 2, 1), outV(s.width, s.height, 1, s.pad + 2, 1);
        EXPECT_EQ(op.c(a.bytes(), s.width, s.height, a.stride(), b.bytes(), b.stride(), outC.bytes(), outC.stride()), 0);
        EXPECT_EQ(op.v(a.bytes(), s.width, s.height, a.stride(), b.bytes(), b.stride(), outV.bytes(), outV.stride()), 0);
        EXPECT_TRUE(outV.SameRect(outC));
        EXPECT_TRUE(outV.GuardsIntact());
        Image inC = Twin(a, 1, s), inV = Twin(a, 1, s);
        op.c(inC.bytes(), s.width, s.height, inC.stride(), b.bytes(), b.stride(), inC.bytes(), inC.stride());
        op.v(inV.bytes(), s.width, s.height, inV.stride(), b.bytes(), b.stride(), inV.bytes(), inV.stride());
        EXPECT_TRUE(inV.SameRect(inC));
        EXPECT_TRUE(inV.SameRect(outC)) << "in place must give the out-of-place result";
        EXPECT_TRUE(inV.GuardsIntact());
      }
      Image notC(s.width, s.height, 1, s.pad, 3), notV(s.width, s.height, 1, s.pad, 3);
      tvxBitwiseNotu8C(a.bytes(), s.width, s.height, a.stride(), notC.bytes(), notC.stride());
      tvxBitwiseNotu8V(a.bytes(), s.width, s.height, a.stride(), notV.bytes(), notV.stride());
      EXPECT_TRUE(notV.SameRect(notC));
      EXPECT_TRUE(notV.GuardsIntact());
      Image inV = Twin(a, 1, s);
      tvxBitwiseNotu8V(inV.bytes(), s.width, s.height, inV.stride(), inV.bytes(), inV.stride());
      EXPECT_TRUE(inV.SameRect(notC));
    }
  });
}

TEST_F(BitwiseLanes, InPlaceWithDifferentStridesIsRejectedUntouched) {
  tvxtest::ForEachTarget([&] {
    Image a(40, 3, 1, 8), b(40, 3, 1);
    a.Randomize(rng_);
    b.Randomize(rng_);
    Image before = Twin(a, 1, {40, 3, 8, 0});
    EXPECT_EQ(tvxBitwiseAndu8V(a.bytes(), 40, 3, a.stride(), b.bytes(), b.stride(), a.bytes(), a.stride() - 1), 3);
    EXPECT_EQ(tvxBitwiseXoru8V(a.bytes(), 40, 3, a.stride(), b.bytes(), b.stride(), a.bytes(), a.stride() - 1), 3);
    EXPECT_EQ(tvxBitwiseNotu8V(a.bytes(), 40, 3, a.stride(), a.bytes(), a.stride() - 1), 3);
    EXPECT_TRUE(a.SameRect(before));
  });
}

TEST_F(BitwiseLanes, MaskedOrMatchesReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      const Image mask = RandomMask(s, rng_);
      for (const bool masked : {false, true}) {
        const uint8_t* m = masked ? mask.bytes() : nullptr;
        // u8: both sources share one stride.
        Image a(s.width, s.height, 1, s.pad, s.misalign), b(s.width, s.height, 1, s.pad, (s.misalign + 1) % 4);
        a.Randomize(rng_);
        b.Randomize(rng_);
        Image c8(s.width, s.height, 1, s.pad + 5, 0), v8(s.width, s.height, 1, s.pad + 5, 0);
        tvxBitwiseOru8C(a.bytes(), b.bytes(), s.width, s.height, a.stride(), c8.bytes(), c8.stride(), m, mask.stride());
        tvxBitwiseOru8V(a.bytes(), b.bytes(), s.width, s.height, a.stride(), v8.bytes(), v8.stride(), m, mask.stride());
        EXPECT_TRUE(v8.SameRect(c8));
        EXPECT_TRUE(v8.GuardsIntact());
        // s32 on 4-byte aligned rows.
        Image a32(s.width, s.height, 4, s.pad * 4, 4), b32(s.width, s.height, 4, s.pad * 4, 8);
        a32.Randomize(rng_);
        b32.Randomize(rng_);
        Image c32(s.width, s.height, 4, 12, 0), v32(s.width, s.height, 4, 12, 0);
        tvxBitwiseOrs32C(a32.as<int32_t>(), b32.as<int32_t>(), s.width, s.height, a32.stride(), c32.as<int32_t>(),
                         c32.stride(), m, mask.stride());
        tvxBitwiseOrs32V(a32.as<int32_t>(), b32.as<int32_t>(), s.width, s.height, a32.stride(), v32.as<int32_t>(),
                         v32.stride(), m, mask.stride());
        EXPECT_TRUE(v32.SameRect(c32));
        EXPECT_TRUE(v32.GuardsIntact());
      }
    }
  });
}

TEST_F(BitwiseLanes, BitCountsMatchReference) {
  std::vector<uint8_t> data(4 * 4096 + 64);
  for (auto& v : data) v = static_cast<uint8_t>(rng_());
  // Runs of all-ones and all-zeros bytes so that whole vectors hit both extremes.
  std::memset(data.data() + 100, 0xFF, 300);
  std::memset(data.data() + 500, 0x00, 200);
  tvxtest::ForEachTarget([&] {
    for (uint32_t offset : {0u, 1u, 3u, 4u}) {
      const uint8_t* p = data.data() + offset;
      for (uint32_t length = 0; length <= 300; ++length)
        ASSERT_EQ(tvxBitCountu8V(p, length), tvxBitCountu8C(p, length)) << "length " << length;
      ASSERT_EQ(tvxBitCountu8V(p, 4096 * 4), tvxBitCountu8C(p, 4096 * 4));
      const uint32_t* words = reinterpret_cast<const uint32_t*>(data.data() + offset * 4);
      for (uint32_t length : {0u, 1u, 7u, 8u, 9u, 31u, 33u, 100u, 4095u})
        ASSERT_EQ(tvxBitCountu32V(words, length), tvxBitCountu32C(words, length)) << "words " << length;
      EXPECT_EQ(tvxBitCount32x1u8V(p), tvxBitCount32x1u8C(p));
      EXPECT_EQ(tvxBitCount64x1u8V(p + 90), tvxBitCount64x1u8C(p + 90));
      uint32_t countC[4], countV[4];
      EXPECT_EQ(tvxBitCount32x4u8V(p, p + 97, p + 130, p + 480, countV), 32u);
      tvxBitCount32x4u8C(p, p + 97, p + 130, p + 480, countC);
      EXPECT_EQ(0, std::memcmp(countC, countV, sizeof countC));
      EXPECT_EQ(tvxBitCount64x4u8V(p, p + 97, p + 130, p + 480, countV), 64u);
      tvxBitCount64x4u8C(p, p + 97, p + 130, p + 480, countC);
      EXPECT_EQ(0, std::memcmp(countC, countV, sizeof countC));
    }
    EXPECT_EQ(tvxBitCountu8V(nullptr, 10), 0u);
  });
}

// Runs one set-elements pair on twin images with and without a mask.
template <typename Call>
void CheckFill(const Shape& s, size_t pixelBytes, std::mt19937& rng, Call call) {
  const Image mask = RandomMask(s, rng);
  // 32-bit elements keep whole-element strides and alignment.
  const bool wide = pixelBytes % 4 == 0;
  const Shape shape{s.width, s.height, wide ? s.pad * 4 : s.pad, wide ? 4 * (s.misalign % 2) : s.misalign};
  Image start(s.width, s.height, pixelBytes, shape.pad, shape.misalign);
  start.Randomize(rng);
  for (const bool masked : {false, true}) {
    Image c = Twin(start, pixelBytes, shape);
    Image v = Twin(start, pixelBytes, shape);
    call(c, v, masked ? mask.bytes() : nullptr, mask.stride());
    EXPECT_TRUE(v.SameRect(c)) << (masked ? "masked" : "unmasked");
    EXPECT_TRUE(v.GuardsIntact());
  }
}

TEST_F(BitwiseLanes, SetElementsMatchReference) {
  tvxtest::ForEachTarget([&] {
    for (const Shape& s : tvxtest::SweepShapes()) {
      SCOPED_TRACE(::testing::Message() << s.width << "x" << s.height);
      const uint32_t w = s.width, h = s.height;
      CheckFill(s, 1, rng_, [&](Image& c, Image& v, const uint8_t* m, uint32_t ms) {
        tvxSetElementsu8C(c.bytes(), w, h, c.stride(), 0xC3, m, ms);
        tvxSetElementsu8V(v.bytes(), w, h, v.stride(), 0xC3, m, ms);
      });
      CheckFill(s, 4, rng_, [&](Image& c, Image& v, const uint8_t* m, uint32_t ms) {
        tvxSetElementss32C(c.as<int32_t>(), w, h, c.stride(), -123456789, m, ms);
        tvxSetElementss32V(v.as<int32_t>(), w, h, v.stride(), -123456789, m, ms);
      });
      CheckFill(s, 4, rng_, [&](Image& c, Image& v, const uint8_t* m, uint32_t ms) {
        tvxSetElementsf32C(c.as<float>(), w, h, c.stride(), -2.5f, m, ms);
        tvxSetElementsf32V(v.as<float>(), w, h, v.stride(), -2.5f, m, ms);
      });
      CheckFill(s, 3, rng_, [&](Image& c, Image& v, const uint8_t* m, uint32_t ms) {
        tvxSetElementsc3u8C(c.bytes(), w, h, c.stride(), 1, 2, 3, m, ms);
        tvxSetElementsc3u8V(v.bytes(), w, h, v.stride(), 1, 2, 3, m, ms);
      });
      CheckFill(s, 4, rng_, [&](Image& c, Image& v, const uint8_t* m, uint32_t ms) {
        tvxSetElementsc4u8C(c.bytes(), w, h, c.stride(), 9, 8, 7, 6, m, ms);
        tvxSetElementsc4u8V(v.bytes(), w, h, v.stride(), 9, 8, 7, 6, m, ms);
      });
      CheckFill(s, 12, rng_, [&](Image& c, Image& v, const uint8_t* m, uint32_t ms) {
        tvxSetElementsc3s32C(c.as<int32_t>(), w, h, c.stride(), -1, 0x7FFFFFFF, 5, m, ms);
        tvxSetElementsc3s32V(v.as<int32_t>(), w, h, v.stride(), -1, 0x7FFFFFFF, 5, m, ms);
      });
      CheckFill(s, 12, rng_, [&](Image& c, Image& v, const uint8_t* m, uint32_t ms) {
        tvxSetElementsc3f32C(c.as<float>(), w, h, c.stride(), 1.5f, -0.0f, 3e38f, m, ms);
        tvxSetElementsc3f32V(v.as<float>(), w, h, v.stride(), 1.5f, -0.0f, 3e38f, m, ms);
      });
      CheckFill(s, 16, rng_, [&](Image& c, Image& v, const uint8_t* m, uint32_t ms) {
        tvxSetElementsc4s32C(c.as<int32_t>(), w, h, c.stride(), 1, -2, 3, INT32_MIN, m, ms);
        tvxSetElementsc4s32V(v.as<int32_t>(), w, h, v.stride(), 1, -2, 3, INT32_MIN, m, ms);
      });
      CheckFill(s, 16, rng_, [&](Image& c, Image& v, const uint8_t* m, uint32_t ms) {
        tvxSetElementsc4f32C(c.as<float>(), w, h, c.stride(), 0.25f, 1e-40f, -7.0f, 2.0f, m, ms);
        tvxSetElementsc4f32V(v.as<float>(), w, h, v.stride(), 0.25f, 1e-40f, -7.0f, 2.0f, m, ms);
      });
    }
  });
}

}  // namespace
