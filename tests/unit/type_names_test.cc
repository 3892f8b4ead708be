#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "values/type_id.h"

namespace propmap {
namespace {

// Looks the name up from a heap block of exactly `length` bytes, so that any
// read past the counted input is an over-read the sanitizer sees.
tag_TYPE_ID Lookup(const std::string& text, size_t length) {
  std::vector<char> exact(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length));
  return TypeIdFromName(exact.data(), length);
}
tag_TYPE_ID Lookup(const std::string& text) { return Lookup(text, text.size()); }

// The reference answer: a plain scan of the name table.
tag_TYPE_ID ScanNames(const std::string& text) {
  for (tag_TYPE_ID id = 0; id < kTypeNameCount; ++id) {
    if (TypeNames[id] != nullptr && text == TypeNames[id]) return id;
  }
  return 0;
}

// Exact and case-sensitive, on the counted length only; the identifiers of
// a few names pinned.
TEST(TypeIdFromNameTest, Examples) {
  const std::pair<std::string, tag_TYPE_ID> cases[] = {
      {"tDOUBLE", 32}, {"tMSGCLS_ID", 63}, {"tBINARY", 48}, {"tTYPE_ID", 54}, {"tdword", 0},
      {"tDword", 0},   {"xDWORD", 0},      {"t_DWORD", 0},  {"", 0},
  };
  for (const auto& [text, id] : cases) EXPECT_EQ(Lookup(text), id) << text;
  EXPECT_EQ(Lookup("tBYTEx", 5), tBYTE);
  EXPECT_EQ(TypeIdFromName("tINT\0", 5), 0u);  // a NUL inside the count is a byte like any other
}

// Every name, every shorter prefix and every one-byte extension agrees with a
// plain scan of the table: the lookup is exact and case-sensitive.
TEST(TypeIdFromNameTest, AgreesWithTableScanAroundEveryName) {
  int named = 0;
  for (tag_TYPE_ID id = 0; id < kTypeNameCount; ++id) {
    if (TypeNames[id] == nullptr) continue;
    ++named;
    const std::string name = TypeNames[id];
    EXPECT_EQ(Lookup(name), id) << name;
    for (size_t length = 0; length < name.size(); ++length) {
      EXPECT_EQ(Lookup(name, length), ScanNames(name.substr(0, length))) << name << " cut to " << length;
    }
    for (int c = 1; c < 256; ++c) {
      const std::string longer = name + static_cast<char>(c);
      ASSERT_EQ(Lookup(longer), ScanNames(longer)) << name << " + " << c;
    }
  }
  EXPECT_EQ(named, 47);
}

TEST(HasValueClassTest, ExactlyTheStorableIdentifiers) {
  for (tag_TYPE_ID id = 0; id < 300; ++id) {
    EXPECT_EQ(HasValueClass(id), (id >= 1 && id <= 32 && id != 16) || id == tBINARY || id == tTYPE_ID) << id;
  }
  EXPECT_FALSE(HasValueClass(0xFFFFFFFFu));
}

}  // namespace
}  // namespace propmap
