// Name folding and hashing a word at a time, and the type-name lookup, each
// against a plain reference answer.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tree/names.h"
#include "values/type_id.h"

namespace propmap {
namespace {

int Fold(int c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; }

// Every byte at every position of the full words and of the tail, against
// its case partner (byte ^ 0x20): equal, and hashed alike, exactly when both
// fold to the same byte.
TEST(NamesTest, FoldAsciiLettersOnlyAtEveryPosition) {
  const std::string base = "abcdefghijklmnopq";  // two words and a 1-byte tail
  for (size_t length : {1, 7, 8, 9, 17}) {
    for (size_t at = 0; at < length; ++at) {
      for (int byte = 0; byte < 256; ++byte) {
        std::string a = base.substr(0, length), b = a;
        a[at] = static_cast<char>(byte);
        b[at] = static_cast<char>(byte ^ 0x20);
        const bool same = Fold(byte) == Fold(byte ^ 0x20);
        ASSERT_EQ(NamesEqual(a.data(), length, b.data(), length), same) << length << " " << at << " " << byte;
        if (same) {
          ASSERT_EQ(HashName(a), HashName(b)) << length << " " << at << " " << byte;
        }
      }
    }
  }
  const std::pair<std::string, std::string> distinct[] = {
      {"a", std::string("a\0", 2)},  // zero padding of the tail
      {"abcdefgh", "abcdefgi"},
      {"abcdefgh1", "abcdefgh2"},
  };
  for (const auto& [a, b] : distinct) EXPECT_NE(HashName(a), HashName(b)) << a << " / " << b;
  EXPECT_EQ(HashName(""), 0u);  // lookups probe the empty name with hash 0
  EXPECT_FALSE(NamesEqual("ab", 2, "abc", 3));
  EXPECT_TRUE(NamesEqual("Key", 3, "kEYs", 3));
  EXPECT_EQ(HashName("abcdef", 3), HashName("ABC"));
}

// Looks the name up from a heap block of exactly `length` bytes, so that any
// read past the counted input is an over-read the sanitizer sees.
tag_TYPE_ID Lookup(const std::string& text, size_t length) {
  std::vector<char> exact(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length));
  return TypeIdFromName(exact.data(), length);
}
tag_TYPE_ID ScanNames(const std::string& text) {
  for (tag_TYPE_ID id = 0; id < kTypeNameCount; ++id) {
    if (TypeNames[id] != nullptr && text == TypeNames[id]) return id;
  }
  return 0;
}

// Every name, every shorter prefix and every one-byte extension agrees with a
// plain scan of the table: the lookup is exact, case-sensitive and counted.
TEST(NamesTest, TypeIdFromNameAgreesWithTableScanAroundEveryName) {
  int named = 0;
  for (tag_TYPE_ID id = 0; id < kTypeNameCount; ++id) {
    if (TypeNames[id] == nullptr) continue;
    ++named;
    const std::string name = TypeNames[id];
    for (size_t length = 0; length <= name.size(); ++length) {
      EXPECT_EQ(Lookup(name, length), ScanNames(name.substr(0, length))) << name << " cut to " << length;
    }
    for (int c = 1; c < 256; ++c) ASSERT_EQ(Lookup(name + char(c), name.size() + 1), ScanNames(name + char(c)));
  }
  EXPECT_EQ(named, 47);
  // Names that the document format spells, pinned where no other test writes them.
  for (auto [name, id] : {std::pair{"tDOUBLE", 32u}, {"tCHAR", 7u}, {"tMSGCLS_ID", 63u}, {"tBINARY", 48u}, {"tTYPE_ID", 54u}}) {
    EXPECT_EQ(Lookup(name, std::strlen(name)), id) << name;
  }
  EXPECT_EQ(Lookup("tdword", 6), 0u);
  EXPECT_EQ(TypeIdFromName("tINT\0", 5), 0u);  // a NUL inside the count is a byte like any other
}

}  // namespace
}  // namespace propmap
