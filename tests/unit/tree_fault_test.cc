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

TEST_F(TreeFaultTest, AddingValuesOfEveryStorageKind) {
  KeyNode* key = Open("k");
  AddDword(key, "existing", 7);
  const std::string before = DumpTree(root());
  const char text[] = "some text";
  const std::function<tERROR()> adds[] = {
      [&] { return AddValue(key, "new", tDWORD, "\1\2\3\4", 4); },
      [&] { return AddValue(key, "new", tSTRING, text, sizeof(text)); },
      [&] { return AddValue(key, "new", tBINARY, "\1\2\3", 3); },
      [&] { return AddUniqueValue(key, "new", tDWORD, "\1\2\3\4", 4); },
      [&] { return AddValueAt(key, 1, tQWORD, "\0\0\0\0\0\0\0\1", 8); },
  };
  for (size_t i = 0; i < std::size(adds); ++i) {
    int failures = Sweep([&] { return Succeeded(adds[i]()); }, [&] { EXPECT_EQ(DumpTree(root()), before) << i; });
    EXPECT_GE(failures, 2) << i;  // entry, value object, ...
    ASSERT_EQ(RemoveValueByIndex(key, 1), ResultOk);
    EXPECT_EQ(DumpTree(root()), before);
  }
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

// Forced creation under the sweep; a name that cannot be copied leaves the
// key unnamed instead of failing; InitTree fails whole.
TEST_F(TreeFaultTest, ForcedCreationUnnamedKeysAndInitTree) {
  Sweep([&] { return OpenOrCreateKey(root(), "dup", true) != nullptr; }, [] {});
  heap_.FailAt(2);  // the node comes first, then its name
  uint32_t created = 0;
  KeyNode* key = OpenOrCreateKey(root(), "named", true, &created);
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key->name_length, 0u);
  EXPECT_EQ(created, 1u);
  // The same as the last component of an ordinary open: the key must not
  // stay indexed under the name it could not keep.
  heap_.FailAt(2);
  created = 0;
  ASSERT_NE(OpenOrCreateKey(root(), "lost", false, &created), nullptr);
  EXPECT_EQ(created, 1u);
  EXPECT_EQ(FindKey(root(), "lost"), nullptr);
  EXPECT_EQ(RemoveKeyByIndex(root(), GetKeyCount(root()) - 1), ResultOk);
  EXPECT_NE(OpenOrCreateKey(root(), "lost", false), nullptr);  // made afresh, properly named

  PropertiesTree other;
  ResetTree(&other);
  iObj placeholder{PlaceholderObjTable()};
  EXPECT_EQ(InitTree(&other, &placeholder), ErrNoMemory);
  heap_.FailAt(1);
  EXPECT_EQ(InitTree(&other, heap_.host()), ErrNoMemory);
  EXPECT_EQ(other.host, nullptr);  // nothing half-made: a retry works
  ASSERT_EQ(InitTree(&other, heap_.host()), ResultOk);
  DestroyTree(&other);
  ++expected_empty_names_;
}

}  // namespace
}  // namespace propmap::testing
