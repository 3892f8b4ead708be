#include <gtest/gtest.h>

#include <sstream>

#include "tree_fixture.h"

namespace propmap::testing {
namespace {

using PathTest = TreeTest;

// Each row: keys made first (one path each), then a walk and what it finds.
struct FindCase {
  const char* setup;     // '|'-separated paths opened with OpenOrCreateKey
  const char* path;
  const char* expected;  // name of the key found, "<root>" or nullptr for none
};

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> parts;
  std::stringstream in(text);
  for (std::string part; std::getline(in, part, '|');) parts.push_back(part);
  return parts;
}

std::string NameOf(KeyNode* root, KeyNode* key) {
  if (key == nullptr) return "<none>";
  if (key == root) return "<root>";
  return key->name;
}

TEST_F(PathTest, FindKeyTable) {
  const FindCase cases[] = {
      {"Software/App", "Software/App", "App"},
      {"Software/App", "software\\APP", "App"},
      {"Software/App", "SOFTWARE/app/", "App"},
      {"Software/App", "", "<root>"},
      {"Software/App", "/Software", "<root>"},
      {"Software/App", "Software//App", "Software"},
      {"Software/App", "Software/Missing", "<none>"},
      // Slash first: "a\b/c" looks for a key literally named "a\b".
      {"a/b/c", "a\\b/c", "<none>"},
      {"a/b/c", "a\\b\\c", "c"},
      {"a/b/c", "a/b\\c", "c"},  // the rest holds no '/': split at the backslash
  };
  for (const FindCase& c : cases) {
    for (const std::string& p : Split(c.setup)) ASSERT_NE(Open(p.c_str()), nullptr) << p;
    EXPECT_EQ(NameOf(root(), FindKey(root(), c.path)), c.expected) << c.path;
    ClearKey(root());
  }
}

TEST_F(PathTest, FindKeyViewSplitsAtEitherSeparatorFirst) {
  Open("a/b/c");
  KeyNode* weird = Open("a\\b/c");  // creates "a\b" literally, then "c" below it
  ASSERT_NE(weird, nullptr);
  EXPECT_EQ(NameOf(root(), FindKeyView(root(), "a\\b/c", 5)), "c");
  EXPECT_EQ(FindKeyView(root(), "a\\b/c", 5), FindKey(root(), "a/b/c"));
  EXPECT_EQ(FindKeyView(root(), "a/bXX", 3), FindKey(root(), "a/b"));  // counted, not terminated
  EXPECT_EQ(FindKeyView(root(), "anything", 0), root());
  KeyNode* parent = nullptr;
  EXPECT_EQ(FindKeyView(root(), "a/b", 3, &parent), FindKey(root(), "a/b"));
  EXPECT_EQ(parent, FindKey(root(), "a"));
  EXPECT_EQ(FindKey(root(), "", &parent), root());
  EXPECT_EQ(parent, FindKey(root(), "a"));  // not written for the empty path
}

// OpenOrCreateKey: what is created, what is returned, the created flag.
struct CreateCase {
  const char* setup;
  const char* path;
  bool always;
  const char* returned;   // name of the key returned
  uint32_t created;       // the flag after the call (starts at 0)
  const char* children;   // root's children afterwards, '|'-separated
};

TEST_F(PathTest, OpenOrCreateTable) {
  const CreateCase cases[] = {
      {"", "a", false, "a", 1, "a"},
      {"a", "A", false, "a", 0, "a"},
      {"", "a/b", false, "b", 1, "a"},
      {"x", "x/y", false, "y", 0, "x"},
      {"", "a/", false, "a", 1, "a"},
      {"", "a//b", false, "a", 1, "a"},          // the doubled separator ends the walk
      {"", "/x", false, "<root>", 0, ""},
      {"", "", false, "<root>", 0, ""},
      {"", "a\\b", false, "b", 1, "a"},
      {"a/b", "a\\b/c", false, "c", 0, "a"},     // continues at the existing a/b
      {"", "a\\b/c", false, "c", 1, "a\\b"},     // one key named "a\b"
      {"a\\b/c", "a\\b/c", false, "c", 1, "a\\b|a\\b"},  // not found again: another one
      {"k", "k", true, "k", 1, "k|k"},           // forced duplicate
      {"k/z", "k/z", true, "z", 1, "k|k"},       // only the first component is forced
      {"\xc3\x84", "\xc3\xa4", false, "\xc3\xa4", 1, "\xc3\x84|\xc3\xa4"},  // no folding above 0x7F
  };
  for (const CreateCase& c : cases) {
    for (const std::string& p : Split(c.setup)) ASSERT_NE(Open(p.c_str()), nullptr) << p;
    uint32_t created = 0;
    KeyNode* key = OpenOrCreateKey(root(), c.path, c.always, &created);
    EXPECT_EQ(NameOf(root(), key), c.returned) << c.path;
    EXPECT_EQ(created, c.created) << c.path;
    EXPECT_EQ(ChildNames(root()), Split(c.children)) << c.path;
    ClearKey(root());
  }
}

TEST_F(PathTest, ForcedDuplicatesEnumerateBothAndFindTheFirst) {
  KeyNode* first = OpenOrCreateKey(root(), "k", true);
  KeyNode* second = OpenOrCreateKey(root(), "K", true);
  ASSERT_NE(first, second);
  EXPECT_EQ(FindKey(root(), "k"), first);
  EXPECT_EQ(GetKeyByIndex(root(), 0), first);
  EXPECT_EQ(GetKeyByIndex(root(), 1), second);
  EXPECT_EQ(second->name, std::string("K"));
  // Removal unindexes by name: removing the second drops the first's index entry.
  RemoveKey(root(), second, false);
  EXPECT_EQ(FindKey(root(), "k"), nullptr);
  EXPECT_EQ(GetKeyCount(root()), 1u);
}

TEST_F(PathTest, RedirectMarkerLeadsToNonameOfSameNamedKey) {
  KeyNode* sub = Open("Text");
  const char marker[] = "![CDATA[";
  ASSERT_EQ(AddValue(root(), "text", tSTRING, marker, sizeof(marker) - 1), ResultOk);
  iValue* own = FindValue(root(), "TEXT");
  ASSERT_NE(own, nullptr);
  EXPECT_EQ(own->GetTypeId(), tSTRING);  // no "noname" below: the marker itself

  const char body[] = "payload";
  ASSERT_EQ(AddValue(sub, "noname", tSTRING, body, sizeof(body) - 1), ResultOk);
  EXPECT_EQ(FindValue(root(), "text"), FindValue(sub, "noname"));

  const char almost[] = "![CDATA";
  ASSERT_EQ(AddValue(root(), "other", tSTRING, almost, sizeof(almost) - 1), ResultOk);
  ASSERT_EQ(AddValue(Open("other"), "noname", tSTRING, body, sizeof(body) - 1), ResultOk);
  EXPECT_EQ(FindValue(root(), "other"), FindValueEntry(root(), "other", 5)->value);
}

}  // namespace
}  // namespace propmap::testing
