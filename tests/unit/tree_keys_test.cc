#include <gtest/gtest.h>

#include <cstring>

#include "tree_fixture.h"

namespace propmap::testing {
namespace {

using KeysTest = TreeTest;

TEST_F(KeysTest, ValuesKeepInsertionOrderAndCase) {
  AddDword(root(), "Beta", 1);
  AddDword(root(), "alpha", 2);
  uint32_t v = 2;
  EXPECT_EQ(AddUniqueValue(root(), "ALPHA", tDWORD, &v, 4), ErrAlreadyExists);
  EXPECT_EQ(AddUniqueValue(root(), nullptr, tDWORD, &v, 4), ErrBadParameter);
  EXPECT_EQ(AddValue(root(), "x", tDWORD, &v, 2), ErrBadParameter);  // too short for a dword
  EXPECT_EQ(AddValue(root(), "x", 16, &v, 4), ErrNoMemory);          // no class for 16
  EXPECT_EQ(AddValue(root(), nullptr, tDWORD, &v, 4), ErrBadParameter);
  EXPECT_EQ(AddValue(root(), "Alpha", tDWORD, &v, 4), ResultOk);  // no check: a second entry
  EXPECT_EQ(AddValueAt(root(), 4, tDWORD, &v, 4), ErrBadParameter);
  EXPECT_EQ(AddValueAt(root(), 1, tDWORD, &v, 4), ErrAlreadyExists);
  EXPECT_EQ(AddValueAt(root(), 3, tDWORD, &v, 4), ResultOk);
  const char* names[] = {"Beta", "alpha", "Alpha", "noname3"};
  for (uint32_t i = 0; i < 4; ++i) EXPECT_STREQ(GetValueNameByIndex(root(), i), names[i]);
  EXPECT_EQ(GetValueNameByIndex(root(), 4), nullptr);
  EXPECT_EQ(FindValue(root(), "ALPHA"), GetValueByIndex(root(), 1));  // the first of equal names

  EXPECT_EQ(RemoveValue(root(), "BETA"), ResultOk);
  EXPECT_EQ(RemoveValue(root(), "beta"), ErrNotFound);
  EXPECT_EQ(RemoveValueByIndex(root(), 3), ErrNotFound);
  EXPECT_EQ(RemoveValueByIndex(root(), 2), ResultOk);
  EXPECT_EQ(FindValue(root(), "noname3"), nullptr);
  EXPECT_EQ(GetValueCount(root()), 2u);
}

// Enumeration by index stays right when the index goes back and after changes.
TEST_F(KeysTest, IndexLookupAfterBackStepsAndChanges) {
  KeyNode* a = Open("a");
  KeyNode* b = Open("b");
  KeyNode* c = Open("c");
  EXPECT_EQ(GetKeyByIndex(root(), 0), a);
  EXPECT_EQ(GetKeyByIndex(root(), 2), c);
  EXPECT_EQ(GetKeyByIndex(root(), 1), b);  // restarts from the first
  EXPECT_EQ(GetKeyByIndex(root(), 3), nullptr);
  ASSERT_EQ(RemoveKeyByIndex(root(), 0), ResultOk);
  EXPECT_EQ(GetKeyByIndex(root(), 1), c);
  Open("d");
  EXPECT_STREQ(GetKeyByIndex(root(), 2)->name, "d");

  EXPECT_EQ(RemoveKeyByPath(root(), "B"), ResultOk);
  EXPECT_EQ(RemoveKeyByPath(root(), "b"), ErrNotFound);
  EXPECT_EQ(RemoveKeyByPath(root(), nullptr), ErrBadParameter);
  EXPECT_EQ(RemoveKeyByIndex(root(), 2), ErrNotFound);
  EXPECT_EQ(ChildNames(root()), (std::vector<std::string>{"c", "d"}));
}

TEST_F(KeysTest, KeyPathSizesAndBuffers) {
  KeyNode* b = Open("a/b");
  KeyNode* a = FindKey(root(), "a");
  uint32_t pos = 0;
  EXPECT_EQ(GetKeyPath(&tree_, root(), b, nullptr, 0, &pos, '\\'), ResultOk);
  EXPECT_EQ(pos, 3u);
  char buf[8];
  std::memset(buf, 'X', sizeof(buf));
  pos = 0;
  EXPECT_EQ(GetKeyPath(&tree_, root(), b, buf, 3, &pos, '\\'), ResultOk);  // the NUL goes to buf[3]
  EXPECT_STREQ(buf, "a\\b");
  EXPECT_EQ(buf[4], 'X');
  pos = 0;
  EXPECT_EQ(GetKeyPath(&tree_, root(), b, buf, 2, &pos, '\\'), ErrBufferTooSmall);
  pos = 0;
  EXPECT_EQ(GetKeyPath(&tree_, a, b, buf, 7, &pos, '/'), ResultOk);  // a named base comes first
  EXPECT_STREQ(buf, "a/b");
  pos = 0;
  EXPECT_EQ(GetKeyPath(&tree_, root(), root(), buf, 7, &pos, '\\'), ResultOk);
  EXPECT_STREQ(buf, "");
  pos = 5;
  EXPECT_EQ(GetKeyPath(&tree_, a, Open("c"), buf, 7, &pos, '\\'), ErrNotApplicable);
  EXPECT_EQ(pos, 5u);
  EXPECT_EQ(GetKeyPath(&tree_, root(), nullptr, buf, 7, &pos, '\\'), ErrBadParameter);
}

TEST_F(KeysTest, CurrentKeyNextKeyAndParent) {
  KeyNode* a = Open("a");
  KeyNode* b = Open("b");
  KeyNode* a1 = Open("a/1");
  KeyNode* a2 = Open("a/2");
  EXPECT_EQ(GetNextKey(&tree_, a), b);
  EXPECT_EQ(GetNextKey(&tree_, b), nullptr);
  EXPECT_EQ(GetNextKey(&tree_, a1), a2);
  EXPECT_EQ(GetNextKey(&tree_, root()), nullptr);  // the current key has none
  EXPECT_EQ(FindParent(root(), a2), a);
  EXPECT_EQ(FindParent(a, b), nullptr);

  EXPECT_EQ(SetCurrentKeyByPath(&tree_, "A\\"), ResultOk);
  EXPECT_EQ(GetCurrentKey(&tree_), a);
  EXPECT_EQ(GetNextKey(&tree_, a1), a2);
  EXPECT_EQ(GetNextKey(&tree_, a), nullptr);  // outside, or the current key itself
  EXPECT_EQ(ResolveKey(&tree_, nullptr), a);
  EXPECT_EQ(SetCurrentKeyByPath(&tree_, "missing"), ErrNotFound);
  EXPECT_EQ(GetCurrentKey(&tree_), a);
  EXPECT_EQ(SetCurrentKeyByPath(&tree_, nullptr), ErrBadParameter);
  EXPECT_EQ(SetCurrentKeyByPath(&tree_, ""), ResultOk);
  EXPECT_EQ(GetCurrentKey(&tree_), root());

  // A key from another tree is not found below this root; a tree without a
  // root refuses.
  PropertiesTree other;
  ResetTree(&other);
  EXPECT_EQ(ResolveKey(&other, nullptr), nullptr);
  EXPECT_EQ(SetCurrentKey(&other, nullptr), ErrNotImplemented);
  EXPECT_EQ(SetCurrentKeyByPath(&other, ""), ErrNotImplemented);
  uint32_t pos = 0;
  EXPECT_EQ(GetKeyPath(&other, nullptr, nullptr, nullptr, 0, &pos, '\\'), ErrNotImplemented);
  ASSERT_EQ(InitTree(&other, heap_.host()), ResultOk);
  EXPECT_EQ(InitTree(&other, heap_.host()), ErrNotImplemented);
  EXPECT_EQ(SetCurrentKey(&tree_, OpenOrCreateKey(other.root, "x", false)), ErrNotFound);
  EXPECT_EQ(SetCurrentKey(&tree_, nullptr), ResultOk);
  EXPECT_EQ(GetCurrentKey(&tree_), root());
  DestroyTree(&other);
  ++expected_empty_names_;  // the other root's ""
}

TEST_F(KeysTest, ClearingAChainOfOneHundredThousandKeys) {
  KeyNode* key = root();
  for (int i = 0; i < 100000; ++i) {
    key = OpenOrCreateKey(key, "k", false);
    ASSERT_NE(key, nullptr);
    if (i % 1000 == 0) AddDword(key, "v", static_cast<uint32_t>(i));
  }
  ClearCurrentKey(&tree_);
  EXPECT_EQ(DumpTree(root()), "{[0/0]}");
  EXPECT_EQ(heap_.live_blocks(), 2u);  // only the root key and its name
  EXPECT_NE(Open("again/and"), nullptr);  // the cleared key is fully usable again
}

}  // namespace
}  // namespace propmap::testing
