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

TEST(TextRulesTest, PlainAndOtherTextsParseAsTheCLibraryDoes) {
  struct Row {
    const char* text;
    tERROR result;
    uint64_t value;
  };
  const Row rows[] = {
      {"", ResultOk, 0},          {"0", ResultOk, 0},
      {"007", ResultOk, 7},       {"9999999999999999999", ResultOk, 9999999999999999999u},
      {"18446744073709551615", ResultOk, UINT64_MAX},
      {"18446744073709551616", ResultOk, UINT64_MAX},  // decimal overflow is all ones
      {"-1", ResultOk, UINT64_MAX}, {" 5", ResultOk, 5},
      {"1a", ResultOk, 0x1a},     {"5 ", ErrBadParameter, 0},
  };
  for (const Row& row : rows) {
    uint64_t value = 0;
    EXPECT_EQ(ParseUnsignedText(row.text, UINT64_MAX, &value), row.result) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
  }
  uint64_t value = 0;
  EXPECT_EQ(ParseUnsignedText("256", 255, &value), ErrBadParameter);
  int64_t signed_value = 0;
  EXPECT_EQ(ParseSignedText("2147483648", INT32_MAX, &signed_value), ErrBadParameter);
  EXPECT_EQ(ParseSignedText("9223372036854775807", INT64_MAX, &signed_value), ResultOk);
  EXPECT_EQ(signed_value, INT64_MAX);
}

TEST(TextRulesTest, BooleanNumbersReadAsStrtoulInAnyBase) {
  for (const char* text : {"0", "1", "9", "10", "010", "0x1F", "4294967297", "18446744073709551615",
                           "99999999999999999999", "1x"}) {
    uint32_t value = 77;
    ASSERT_EQ(ParseBooleanText(text, &value), ResultOk) << text;
    EXPECT_EQ(value, static_cast<uint32_t>(std::strtoul(text, nullptr, 0))) << text;
  }
}

TEST(TextRulesTest, DoublesParseAsSscanf) {
  for (const char* text : {"1.5", "-0", "007.25", "0.1", "123456.1234565", "1.", ".5", "-", "1e3", " 2", "2x",
                           "0.000000000000000000000000000000000000000000000000000000000000000000001",
                           "179769313486231570000000000000000000000000000000000000000000000000000000000000000000"
                           "0000000000000000000000000000000000000000000000000000000000000000000000000000000000000"
                           "0000000000000000000000000000000000000000000000000000000000000000000000000000000000000"
                           "00000000000000000000000000000000000000000000000000000000000000000000.0"}) {
    double expected = 42, value = 42;
    (void)std::sscanf(text, "%lf", &expected);
    ASSERT_EQ(ParseDoubleText(text, &value), ResultOk) << text;
    EXPECT_EQ(std::memcmp(&value, &expected, sizeof value), 0) << text;
  }
}

}  // namespace
}  // namespace propmap
