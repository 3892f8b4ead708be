// The UTF-8 codec of the support library on its own: decoding counted input,
// and its agreement with the encoder.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/utf8.h"

namespace propmap {
namespace {

using namespace std::string_literals;

std::vector<uint32_t> Decode(const std::string& text) {
  std::vector<char> exact(text.begin(), text.end());  // no terminator to lean on
  std::vector<uint32_t> out(text.size());
  out.resize(Utf8Decode(exact.data(), exact.size(), out.data()));
  return out;
}

TEST(Utf8DecodeTest, Sequences) {
  const uint32_t q = '?';
  const struct {
    std::string text;
    std::vector<uint32_t> units;
  } cases[] = {
      {"", {}},
      {"A", {'A'}},
      {"\0A"s, {0, 'A'}},
      {"\xC3\xA4", {0xE4}},
      {"\xE2\x82\xAC", {0x20AC}},
      {"\xF0\x9F\x98\x80", {0x1F600}},
      {"\xF4\x8F\xBF\xBF", {0x10FFFF}},
      {"\xC3", {q}},                       // cut short by the end
      {"A\xF0\x9F\x98", {'A', q}},
      {"\xC3" "A", {q, 'A'}},              // cut short by a non-continuation byte
      {"\xE2\x82" "A\xC3\xA4", {q, 'A', 0xE4}},
      {"\x80", {q}},                       // stray continuation byte
      {"\xF8\x80", {q, q}},
      {"\xFF", {q}},
      {"\xC0\x80", {0}},                   // shape only, no validation
  };
  for (const auto& c : cases) EXPECT_EQ(Decode(c.text), c.units) << c.text;
}

TEST(Utf8DecodeTest, CountedInputStopsAtItsLength) {
  uint32_t out[4] = {7, 7, 7, 7};
  EXPECT_EQ(Utf8Decode("\xC3\xA4", 1, out), 1u);
  EXPECT_EQ(out[0], uint32_t('?'));
  EXPECT_EQ(out[1], 7u);
}

// Every scalar value and surrogate survives encode then decode, and the
// byte count agrees with what is written inside the valid range.
TEST(Utf8Test, EncodeDecodeEveryCodePoint) {
  for (uint32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    const wchar_t unit = static_cast<wchar_t>(cp);
    char bytes[4];
    const size_t written = Utf8EncodeWide(&unit, 1, bytes, sizeof bytes);
    ASSERT_EQ(written, Utf8CountWide(&unit, 1)) << cp;
    uint32_t back[4];
    ASSERT_EQ(Utf8Decode(bytes, written, back), 1u) << cp;
    ASSERT_EQ(back[0], cp);
  }
}

}  // namespace
}  // namespace propmap
