// The shared image harness really fences its images: a read one byte past a page-end image or
// one byte before a page-start image must fault, or the SIMD suites would miss over-reads.
#include <gtest/gtest.h>

#include "simd_check.h"

namespace {

using tvxtest::Image;
using tvxtest::Placement;

uint8_t Read(const uint8_t* p) { return *static_cast<const volatile uint8_t*>(p); }

TEST(PageGuardDeathTest, AccessOutsideFencedImagesFaults) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (uint32_t pad : {0u, 7u}) {
    Image end(13, 3, 2, pad, 0, Placement::kPageEnd);
    EXPECT_EQ(Read(end.row(2) + 25), tvxtest::kGuard);  // the rectangle's last byte is readable
    EXPECT_DEATH(Read(end.row(2) + 26), "");
    Image start(13, 3, 2, pad, 0, Placement::kPageStart);
    EXPECT_EQ(Read(start.bytes()), tvxtest::kGuard);
    EXPECT_DEATH(Read(start.bytes() - 1), "");
  }
}

TEST(PageGuardTest, PlacementsTakeTurnsAndCopiesKeepTheirLayout) {
  const Placement first = Image(4, 4, 1).placement();
  const Placement second = Image(4, 4, 1).placement();
  const Placement third = Image(4, 4, 1).placement();
  EXPECT_NE(first, second);
  EXPECT_NE(second, third);
  EXPECT_NE(first, third);
  std::mt19937 rng(1);
  Image a(9, 5, 4, 3, 1, Placement::kPageEnd);
  a.Randomize(rng);
  Image b = a;
  EXPECT_TRUE(b.SameRect(a));
  EXPECT_TRUE(b.GuardsIntact());
  EXPECT_EQ(b.placement(), Placement::kPageEnd);
}

}  // namespace
