#include <gtest/gtest.h>

#include <string>

#include "tree/names.h"

namespace propmap {
namespace {

// Hash and comparison fold a word at a time: every byte position of the full
// words and of the tail must fold 'A'..'Z' and nothing else.
TEST(HashNameTest, FoldsEveryPositionLikeNamesEqual) {
  const std::string base = "abcdefghijklmnopq";  // two words and a 1-byte tail
  for (size_t length : {size_t{1}, size_t{7}, size_t{8}, size_t{9}, base.size()}) {
    for (size_t at = 0; at < length; ++at) {
      for (int byte = 0; byte < 256; ++byte) {
        std::string name = base.substr(0, length);
        name[at] = static_cast<char>(byte);
        std::string folded = name;
        if (byte >= 'A' && byte <= 'Z') folded[at] = static_cast<char>(byte + 32);
        ASSERT_EQ(HashName(name), HashName(folded)) << length << " " << at << " " << byte;
        ASSERT_TRUE(NamesEqual(name.data(), length, folded.data(), length)) << length << " " << at << " " << byte;
      }
    }
  }
}

TEST(HashNameTest, DistinctNamesInTable) {
  const std::pair<std::string, std::string> distinct[] = {
      {"\xc4", "\xe4"},  // no folding above 0x7f
      {"a", std::string("a\0", 2)},  // zero padding of the tail
      {"abcdefgh", "abcdefgi"},
      {"abcdefgh1", "abcdefgh2"},
      {"[", "{"},  // neighbours of 'Z' and 'z' stay apart
      {"@", "`"},
  };
  EXPECT_EQ(HashName(""), 0u);  // lookups probe the empty name with hash 0
  for (const auto& [a, b] : distinct) {
    EXPECT_NE(HashName(a), HashName(b)) << a << " / " << b;
    EXPECT_FALSE(NamesEqual(a.data(), a.size(), b.data(), b.size())) << a << " / " << b;
  }
}

// Equal names must hash alike for every byte value, and only ASCII letters fold.
TEST(NamesEqualTest, FoldsAsciiLettersOnlyForAllBytes) {
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) {
      char x = static_cast<char>(a), y = static_cast<char>(b);
      int fa = (a >= 'A' && a <= 'Z') ? a + 32 : a;
      int fb = (b >= 'A' && b <= 'Z') ? b + 32 : b;
      ASSERT_EQ(NamesEqual(&x, 1, &y, 1), fa == fb) << a << " " << b;
      if (fa == fb) {
        ASSERT_EQ(HashName(&x, 1), HashName(&y, 1)) << a << " " << b;
      }
    }
  }
}

TEST(NamesEqualTest, CountedLengths) {
  EXPECT_TRUE(NamesEqual("", 0, "", 0));
  EXPECT_FALSE(NamesEqual("ab", 2, "abc", 3));
  EXPECT_TRUE(NamesEqual("Key", 3, "kEYs", 3));
  EXPECT_EQ(HashName("abcdef", 3), HashName("ABC"));
}

}  // namespace
}  // namespace propmap
