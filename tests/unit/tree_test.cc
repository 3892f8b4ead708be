// The tree below the iRegistry layer, where the host tests cannot reach it:
// slash-first path splitting, forced duplicates, the CDATA redirect and deep
// clearing. Codes, names and paths of ordinary opens, walks and root changes
// are checked through the module (tests/host).
#include <gtest/gtest.h>

#include <sstream>

#include "tree_fixture.h"

namespace propmap::testing {
namespace {

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> parts;
  std::stringstream in(text);
  for (std::string part; std::getline(in, part, '|');) parts.push_back(part);
  return parts;
}

class PathTest : public TreeTest {
 protected:
  void Setup(const char* paths) {
    ClearKey(root());
    for (const std::string& p : Split(paths)) ASSERT_NE(Open(p.c_str()), nullptr) << p;
  }
  std::string NameOf(KeyNode* key) { return key == nullptr ? "<none>" : key == root() ? "<root>" : key->name; }
};

TEST_F(PathTest, SeparatorsDoubledTrailingAndSlashFirst) {
  const struct {
    const char *setup, *path, *found;
  } finds[] = {
      {"Software/App", "SOFTWARE/app/", "App"},
      {"Software/App", "Software//App", "Software"},
      {"a/b/c", "a\\b/c", "<none>"},  // slash first: looks for a key named "a\b"
      {"a/b/c", "a/b\\c", "c"},       // the rest holds no '/': split at the backslash
  };
  for (const auto& c : finds) {
    Setup(c.setup);
    EXPECT_EQ(NameOf(FindKey(root(), c.path)), c.found) << c.path;
  }
  // OpenOrCreateKey: the key returned, the created flag, root's children after.
  const struct {
    const char *setup, *path;
    bool always;
    const char* returned;
    uint32_t created;
    const char* children;
  } creates[] = {
      {"", "a/", false, "a", 1, "a"},
      {"", "", true, "<root>", 0, ""},
      {"", "a\\b", false, "b", 1, "a"},
      {"", "a//b", false, "a", 1, "a"},  // the doubled separator ends the walk
      {"", "/x", false, "<root>", 0, ""},
      {"a/b", "a\\b/c", false, "c", 0, "a"},             // continues at the existing a/b
      {"", "a\\b/c", false, "c", 1, "a\\b"},             // one key named "a\b"
      {"a\\b/c", "a\\b/c", false, "c", 1, "a\\b|a\\b"},  // not found again: another one
      {"k", "k", true, "k", 1, "k|k"},                   // forced duplicate
      {"k/z", "k/z", true, "z", 1, "k|k"},               // only the first component is forced
      {"\xc3\x84", "\xc3\xa4", false, "\xc3\xa4", 1, "\xc3\x84|\xc3\xa4"},  // no folding above 0x7F
  };
  for (const auto& c : creates) {
    Setup(c.setup);
    uint32_t created = 0;
    EXPECT_EQ(NameOf(OpenOrCreateKey(root(), c.path, c.always, &created)), c.returned) << c.path;
    EXPECT_EQ(created, c.created) << c.path;
    EXPECT_EQ(ChildNames(root()), Split(c.children)) << c.path;
  }
  Setup("a/b/c|a\\b/c");
  EXPECT_EQ(FindKeyView(root(), "a\\b/c", 5), FindKey(root(), "a/b/c"));
  EXPECT_EQ(FindKeyView(root(), "a/bXX", 3), FindKey(root(), "a/b"));  // counted, not terminated
  EXPECT_EQ(FindKeyView(root(), "anything", 0), root());
  KeyNode* parent = nullptr;
  EXPECT_EQ(FindKeyView(root(), "a/b", 3, &parent), FindKey(root(), "a/b"));
  EXPECT_EQ(parent, FindKey(root(), "a"));
  EXPECT_EQ(FindKey(root(), "", &parent), root());
  EXPECT_EQ(parent, FindKey(root(), "a"));  // not written for the empty path
}

TEST_F(PathTest, ForcedDuplicatesEnumerateBothAndFindTheFirst) {
  KeyNode* first = OpenOrCreateKey(root(), "k", true);
  KeyNode* second = OpenOrCreateKey(root(), "K", true);
  EXPECT_EQ(FindKey(root(), "k"), first);
  EXPECT_EQ(ChildNames(root()), (std::vector<std::string>{"k", "K"}));
  EXPECT_EQ(GetKeyByIndex(root(), 1), second);
  // Removal unindexes by name: removing the second drops the first's index entry.
  RemoveKey(root(), second, false);
  EXPECT_EQ(FindKey(root(), "k"), nullptr);
  EXPECT_EQ(GetKeyCount(root()), 1u);
}

TEST_F(PathTest, RedirectMarkerLeadsToNonameOfSameNamedKey) {
  KeyNode* sub = Open("Text");
  ASSERT_EQ(AddValue(root(), "text", tSTRING, "![CDATA[", 8), ResultOk);
  EXPECT_EQ(FindValue(root(), "TEXT")->GetTypeId(), tSTRING);  // no "noname" below: the marker itself
  ASSERT_EQ(AddValue(sub, "noname", tSTRING, "payload", 7), ResultOk);
  EXPECT_EQ(FindValue(root(), "text"), FindValue(sub, "noname"));
  ASSERT_EQ(AddValue(root(), "other", tSTRING, "![CDATA", 7), ResultOk);
  ASSERT_EQ(AddValue(Open("other"), "noname", tSTRING, "payload", 7), ResultOk);
  EXPECT_EQ(FindValue(root(), "other"), FindValueEntry(root(), "other", 5)->value);
}

TEST_F(PathTest, ClearingAChainOfOneHundredThousandKeys) {
  KeyNode* key = root();
  for (int i = 0; i < 100000; ++i) {
    ASSERT_NE(key = OpenOrCreateKey(key, "k", false), nullptr);
    if (i % 1000 == 0) AddDword(key, "v", static_cast<uint32_t>(i));
  }
  ClearCurrentKey(&tree_);
  EXPECT_EQ(DescribeKey(root()), "");
  EXPECT_EQ(GetKeyCount(root()), 0u);
  EXPECT_EQ(heap_.live_blocks(), 2u);  // only the root key and its name
  EXPECT_NE(Open("again/and"), nullptr);  // the cleared key is fully usable again
}

}  // namespace
}  // namespace propmap::testing
