#include <gtest/gtest.h>

#include <string>

#include "tree/names.h"

namespace propmap {
namespace {

TEST(HashNameTest, KnownAnswers) {
  // Computed independently from the mixing steps, seed 0.
  const std::pair<std::string, uint64_t> vectors[] = {
      {"", 0},
      {"a", 0x9d06c4d863a40d2bULL},
      {"Software", 0xae5259a9c13f9992ULL},
      {"SOFTWARE", 0xae5259a9c13f9992ULL},
      {"key\\sub", 0xad3ebc63ce93b5f4ULL},
      {"\xc4", 0xef57f1765ab68ebfULL},
      {"\xe4", 0x6b2e3e38ad68b583ULL},
      {"\x80\xff", 0xb0fdac4ed816174eULL},
      {"noname3", 0x3af34ffc5236d8d6ULL},
  };
  for (const auto& [name, hash] : vectors) {
    EXPECT_EQ(HashName(name), hash) << name;
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
