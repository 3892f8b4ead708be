// Heap failure at every allocation point of tree operations: each failing run
// must leave the tree as before (or, for path creation, with whole keys made
// for earlier components only), keep the lists and indexes consistent and
// leak nothing.
#include <gtest/gtest.h>

#include <functional>

#include "tree_fixture.h"

namespace propmap::testing {
namespace {

// Counts match the lists and every indexed name leads to a listed key/value.
void ExpectConsistent(KeyNode* top) {
  std::vector<KeyNode*> stack{top};
  while (!stack.empty()) {
    KeyNode* key = stack.back();
    stack.pop_back();
    size_t keys = 0, values = 0;
    for (KeyNode* c = key->FirstChild(); c != nullptr; c = key->NextChild(c), ++keys) stack.push_back(c);
    for (ListLink* l = key->values.next; l != &key->values; l = l->next) ++values;
    ASSERT_EQ(keys, key->key_count);
    ASSERT_EQ(values, key->value_count);
    for (const auto& [name, node] : key->key_index) {
      ASSERT_NE(node, nullptr);
      ASSERT_EQ(FindParent(key, node), key);
    }
    for (ValueEntry* e : key->value_index) ASSERT_TRUE(IsLinked(e));
  }
}

class TreeFaultTest : public TreeTest {
 protected:
  // Runs `op` with the n-th allocation failing, n = 1, 2, ... until it
  // succeeds; `check` sees each failed run. Returns the number of failing runs.
  int Sweep(const std::function<bool()>& op, const std::function<void()>& check) {
    int failures = 0;
    for (uint64_t n = 1; n < 1000; ++n) {
      heap_.FailAt(n);
      bool ok = op();
      bool injected = heap_.failed_any();
      heap_.FailAt(0);
      if (ok && !injected) return failures;
      if (!ok) {
        ++failures;
        check();
      }
      ExpectConsistent(root());
    }
    ADD_FAILURE() << "never succeeded";
    return failures;
  }
};

TEST_F(TreeFaultTest, AddValueOfEveryStorageKind) {
  KeyNode* key = Open("k");
  AddDword(key, "existing", 7);
  const std::string before = DumpTree(root());
  const char text[] = "some text";
  const unsigned char block[] = {1, 2, 3};
  struct Case {
    tag_TYPE_ID type;
    const void* data;
    uint32_t size;
  } cases[] = {{tDWORD, "\1\2\3\4", 4}, {tSTRING, text, sizeof(text)}, {tBINARY, block, 3}};
  for (const Case& c : cases) {
    int failures = Sweep([&] { return Succeeded(AddValue(key, "new", c.type, c.data, c.size)); },
                         [&] { EXPECT_EQ(DumpTree(root()), before) << c.type; });
    EXPECT_GE(failures, 2) << c.type;  // entry, value object, ...
    ASSERT_EQ(RemoveValue(key, "new"), ResultOk);
    EXPECT_EQ(DumpTree(root()), before);
  }
}

TEST_F(TreeFaultTest, AddUniqueAndPositionalValues) {
  KeyNode* key = Open("k");
  const std::string before = DumpTree(root());
  uint32_t v = 5;
  Sweep([&] { return Succeeded(AddUniqueValue(key, "u", tDWORD, &v, 4)); },
        [&] { EXPECT_EQ(DumpTree(root()), before); });
  const std::string with_unique = DumpTree(root());
  Sweep([&] { return Succeeded(AddValueAt(key, 1, tQWORD, "\0\0\0\0\0\0\0\1", 8)); },
        [&] { EXPECT_EQ(DumpTree(root()), with_unique); });
  EXPECT_STREQ(GetValueNameByIndex(key, 1), "noname1");
}

TEST_F(TreeFaultTest, CreatingAPathKeepsWholeKeysOfEarlierComponents) {
  Open("a");
  Sweep(
      [&] {
        ClearKey(FindKey(root(), "a"));
        return OpenOrCreateKey(root(), "a/b/c/d", false) != nullptr;
      },
      [&] {
        // Whatever was made is a prefix of the path, each key linked once.
        KeyNode* k = FindKey(root(), "a");
        ASSERT_NE(k, nullptr);
        EXPECT_LE(GetKeyCount(k), 1u);
      });
  EXPECT_NE(FindKey(root(), "a/b/c/d"), nullptr);
}

TEST_F(TreeFaultTest, ForcedCreationAndInitTree) {
  Sweep([&] { return OpenOrCreateKey(root(), "dup", true) != nullptr; }, [] {});
  PropertiesTree other;
  ResetTree(&other);
  heap_.FailAt(1);
  EXPECT_EQ(InitTree(&other, heap_.host()), ErrNoMemory);
  EXPECT_EQ(other.host, nullptr);  // nothing half-made: a retry works
  ASSERT_EQ(InitTree(&other, heap_.host()), ResultOk);
  DestroyTree(&other);
  ++expected_empty_names_;
}

// A name that cannot be copied leaves the key unnamed instead of failing.
TEST_F(TreeFaultTest, KeyWhoseNameCannotBeCopiedIsMadeUnnamed) {
  heap_.FailAt(2);  // the node comes first, then its name
  uint32_t created = 0;
  KeyNode* key = OpenOrCreateKey(root(), "named", true, &created);
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key->name_length, 0u);
  EXPECT_EQ(created, 1u);
}

TEST_F(TreeFaultTest, PlaceholderHeapRefusesEverything) {
  iObj placeholder{PlaceholderObjTable()};
  PropertiesTree other;
  ResetTree(&other);
  EXPECT_EQ(InitTree(&other, &placeholder), ErrNoMemory);
  uint32_t v = 1;
  EXPECT_EQ(AddValue(root(), "x", tDWORD, &v, 4), ResultOk);
  KeyNode orphan;
  ConstructKey(&orphan, &placeholder, "orphan", 6);
  EXPECT_EQ(orphan.name_length, 0u);
  EXPECT_EQ(AddValue(&orphan, "x", tDWORD, &v, 4), ErrNoMemory);
  EXPECT_EQ(OpenOrCreateKey(&orphan, "x", false), nullptr);
  EXPECT_EQ(OpenOrCreateKey(&orphan, "x", true), nullptr);
  EXPECT_EQ(GetKeyCount(&orphan), 0u);
  DestroyKey(&orphan);
}

}  // namespace
}  // namespace propmap::testing
