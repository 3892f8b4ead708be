// The number texts and plain-number parsing take shortcuts past the C
// library; each must give exactly the bytes and values the C library gives.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "support/number_format.h"
#include "values/text_rules.h"

namespace propmap {
namespace {

std::string Printf(const char* format, auto value) {
  char text[512];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

TEST(NumberTextTest, FixedSixMatchesPrintfIncludingTies) {
  const double table[] = {0.0, -0.0, 0.0078125, -0.0078125, 0.5e-6, 2.5e-6, 1.0 / 3, 123456.1234565,
                          1e15 + 0.5, -1e-7, 1e247, -1e246, DBL_MIN, INFINITY, -INFINITY, NAN, -NAN};
  for (double value : table) {
    EXPECT_EQ(NumberText(NumberText::Fixed6{}, value).data(), Printf("%lf", value)) << value;
  }
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {
    double value;
    const uint64_t bits = (random() & ~(uint64_t{0x7FF} << 52)) | (uint64_t{700 + random() % 700} << 52);
    std::memcpy(&value, &bits, sizeof value);  // magnitudes 2^-323 .. 2^376
    const NumberText text(NumberText::Fixed6{}, value);
    ASSERT_EQ(text.data(), Printf("%lf", value)) << value;
    ASSERT_EQ(text.length(), std::strlen(text.data()));
  }
}

TEST(NumberTextTest, IntegersMatchPrintf) {
  for (uint64_t value : {uint64_t{0}, uint64_t{7}, uint64_t{4294967295u}, UINT64_MAX}) {
    EXPECT_EQ(NumberText(NumberText::Unsigned{}, value).data(), Printf("%llu", value));
  }
  for (int64_t value : {int64_t{0}, int64_t{-1}, INT64_MIN, INT64_MAX}) {
    EXPECT_EQ(NumberText(NumberText::Signed{}, value).data(), Printf("%lli", value));
  }
}

}  // namespace
}  // namespace propmap
