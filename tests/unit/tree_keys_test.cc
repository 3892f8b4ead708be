#include <gtest/gtest.h>

#include <cstring>

#include "tree_fixture.h"

namespace propmap::testing {
namespace {

using KeysTest = TreeTest;

TEST_F(KeysTest, ValuesKeepInsertionOrderAndCase) {
  AddDword(root(), "Beta", 1);
  AddDword(root(), "alpha", 2);
  AddDword(root(), "Gamma", 3);
  EXPECT_STREQ(GetValueNameByIndex(root(), 0), "Beta");
  EXPECT_STREQ(GetValueNameByIndex(root(), 1), "alpha");
  EXPECT_STREQ(GetValueNameByIndex(root(), 2), "Gamma");
  EXPECT_EQ(GetValueNameByIndex(root(), 3), nullptr);
  EXPECT_EQ(FindValue(root(), "ALPHA"), GetValueByIndex(root(), 1));
}

TEST_F(KeysTest, UniqueAndPositionalAdds) {
  AddDword(root(), "COLOR", 1);
  uint32_t v = 2;
  EXPECT_EQ(AddUniqueValue(root(), "Color", tDWORD, &v, 4), ErrAlreadyExists);
  EXPECT_EQ(AddUniqueValue(root(), nullptr, tDWORD, &v, 4), ErrBadParameter);
  EXPECT_EQ(AddValue(root(), "Color", tDWORD, &v, 4), ResultOk);  // no check: a second entry
  EXPECT_EQ(GetValueCount(root()), 2u);
  EXPECT_EQ(FindValue(root(), "color"), GetValueByIndex(root(), 0));

  EXPECT_EQ(AddValueAt(root(), 3, tDWORD, &v, 4), ErrBadParameter);
  EXPECT_EQ(AddValueAt(root(), 1, tDWORD, &v, 4), ErrAlreadyExists);
  EXPECT_EQ(AddValueAt(root(), 2, tDWORD, &v, 4), ResultOk);
  EXPECT_STREQ(GetValueNameByIndex(root(), 2), "noname2");
}

TEST_F(KeysTest, FailedSetLeavesKeyUnchanged) {
  uint32_t v = 1;
  EXPECT_EQ(AddValue(root(), "x", tDWORD, &v, 2), ErrBadParameter);  // too short for a dword
  EXPECT_EQ(AddValue(root(), "x", 16, &v, 4), ErrNoMemory);          // no class for 16
  EXPECT_EQ(AddValue(root(), nullptr, tDWORD, &v, 4), ErrBadParameter);
  EXPECT_EQ(GetValueCount(root()), 0u);
  EXPECT_EQ(FindValue(root(), "x"), nullptr);
}

TEST_F(KeysTest, RemovingValues) {
  EXPECT_EQ(RemoveValueByIndex(root(), 0), ErrNotFound);
  AddDword(root(), "a", 1);
  AddDword(root(), "b", 2);
  AddDword(root(), "c", 3);
  EXPECT_EQ(RemoveValue(root(), "B"), ResultOk);
  EXPECT_EQ(RemoveValue(root(), "b"), ErrNotFound);
  EXPECT_EQ(RemoveValueByIndex(root(), 2), ErrNotFound);
  EXPECT_EQ(RemoveValueByIndex(root(), 1), ResultOk);
  EXPECT_STREQ(GetValueNameByIndex(root(), 0), "a");
  EXPECT_EQ(FindValue(root(), "c"), nullptr);
  EXPECT_EQ(GetValueCount(root()), 1u);
}

TEST_F(KeysTest, CursorRestartsForSmallerIndexAndAfterChanges) {
  KeyNode* a = Open("a");
  KeyNode* b = Open("b");
  KeyNode* c = Open("c");
  EXPECT_EQ(GetKeyByIndex(root(), 0), a);
  EXPECT_EQ(GetKeyByIndex(root(), 1), b);
  EXPECT_EQ(GetKeyByIndex(root(), 2), c);
  EXPECT_EQ(root()->cursor.index, 2u);
  EXPECT_EQ(GetKeyByIndex(root(), 1), b);  // restarts from the first
  EXPECT_EQ(GetKeyByIndex(root(), 3), nullptr);
  EXPECT_EQ(root()->cursor.node, b);       // a miss leaves the cursor alone
  ASSERT_EQ(RemoveKeyByIndex(root(), 0), ResultOk);
  EXPECT_EQ(root()->cursor.valid, 0);
  EXPECT_EQ(GetKeyByIndex(root(), 1), c);
  Open("d");
  EXPECT_EQ(root()->cursor.valid, 0);
  EXPECT_STREQ(GetKeyByIndex(root(), 2)->name, "d");
}

TEST_F(KeysTest, KeyPathSizesAndBuffers) {
  KeyNode* b = Open("a/b");
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

  // Below a named base the base's own name comes first.
  KeyNode* a = FindKey(root(), "a");
  pos = 0;
  EXPECT_EQ(GetKeyPath(&tree_, a, b, buf, sizeof(buf) - 1, &pos, '/'), ResultOk);
  EXPECT_STREQ(buf, "a/b");
  pos = 0;
  EXPECT_EQ(GetKeyPath(&tree_, root(), root(), buf, 7, &pos, '\\'), ResultOk);
  EXPECT_STREQ(buf, "");

  KeyNode* other = Open("c");
  pos = 5;
  EXPECT_EQ(GetKeyPath(&tree_, a, other, buf, 7, &pos, '\\'), ErrNotApplicable);
  EXPECT_EQ(pos, 5u);
  EXPECT_EQ(GetKeyPath(&tree_, root(), nullptr, buf, 7, &pos, '\\'), ErrBadParameter);
}

TEST_F(KeysTest, NextKeyAndParentSearchStartAtCurrent) {
  KeyNode* a = Open("a");
  KeyNode* b = Open("b");
  KeyNode* a1 = Open("a/1");
  KeyNode* a2 = Open("a/2");
  EXPECT_EQ(GetNextKey(&tree_, a), b);
  EXPECT_EQ(GetNextKey(&tree_, b), nullptr);
  EXPECT_EQ(GetNextKey(&tree_, a1), a2);
  EXPECT_EQ(GetNextKey(&tree_, root()), nullptr);  // the current key has none
  EXPECT_EQ(FindParent(root(), a2), a);
  EXPECT_EQ(FindParent(root(), root()), root());
  EXPECT_EQ(FindParent(a, b), nullptr);
  EXPECT_EQ(FindParent(root(), nullptr), nullptr);

  ASSERT_EQ(SetCurrentKey(&tree_, a), ResultOk);
  EXPECT_EQ(GetNextKey(&tree_, a1), a2);
  EXPECT_EQ(GetNextKey(&tree_, a), nullptr);  // outside, or the current key itself
  EXPECT_EQ(ResolveKey(&tree_, nullptr), a);
  EXPECT_EQ(ResolveKey(&tree_, b), b);
}

TEST_F(KeysTest, CurrentKeySetting) {
  KeyNode* b = Open("a/b");
  EXPECT_EQ(SetCurrentKeyByPath(&tree_, "A\\B"), ResultOk);
  EXPECT_EQ(GetCurrentKey(&tree_), b);
  EXPECT_EQ(SetCurrentKeyByPath(&tree_, "missing"), ErrNotFound);
  EXPECT_EQ(GetCurrentKey(&tree_), b);
  EXPECT_EQ(SetCurrentKeyByPath(&tree_, nullptr), ErrBadParameter);
  EXPECT_EQ(SetCurrentKeyByPath(&tree_, ""), ResultOk);
  EXPECT_EQ(GetCurrentKey(&tree_), root());

  // A key from another tree is not found below this root.
  PropertiesTree other;
  ResetTree(&other);
  ASSERT_EQ(InitTree(&other, heap_.host()), ResultOk);
  EXPECT_EQ(InitTree(&other, heap_.host()), ErrNotImplemented);
  KeyNode* foreign = OpenOrCreateKey(other.root, "x", false);
  EXPECT_EQ(SetCurrentKey(&tree_, foreign), ErrNotFound);
  EXPECT_EQ(SetCurrentKey(&tree_, b), ResultOk);
  EXPECT_EQ(SetCurrentKey(&tree_, nullptr), ResultOk);
  EXPECT_EQ(GetCurrentKey(&tree_), root());
  DestroyTree(&other);
  ++expected_empty_names_;  // the other root's ""
}

TEST_F(KeysTest, TreeOperationsWithoutRoot) {
  PropertiesTree empty;
  ResetTree(&empty);
  EXPECT_EQ(ResolveKey(&empty, nullptr), nullptr);
  EXPECT_EQ(SetCurrentKey(&empty, nullptr), ErrNotImplemented);
  EXPECT_EQ(SetCurrentKeyByPath(&empty, ""), ErrNotImplemented);
  uint32_t pos = 0;
  EXPECT_EQ(GetKeyPath(&empty, nullptr, nullptr, nullptr, 0, &pos, '\\'), ErrNotImplemented);
  EXPECT_EQ(GetNextKey(&empty, nullptr), nullptr);
  DestroyTree(&empty);  // nothing to do
}

TEST_F(KeysTest, RemoveKeyByPathAndIndex) {
  Open("a/b/c");
  Open("x");
  EXPECT_EQ(RemoveKeyByPath(root(), "A/B"), ResultOk);
  EXPECT_EQ(FindKey(root(), "a/b"), nullptr);
  EXPECT_NE(FindKey(root(), "a"), nullptr);
  EXPECT_EQ(RemoveKeyByPath(root(), "a/b"), ErrNotFound);
  EXPECT_EQ(RemoveKeyByPath(root(), nullptr), ErrBadParameter);
  EXPECT_EQ(RemoveKeyByIndex(root(), 2), ErrNotFound);
  EXPECT_EQ(RemoveKeyByIndex(root(), 1), ResultOk);
  EXPECT_EQ(ChildNames(root()), std::vector<std::string>{"a"});
}

TEST_F(KeysTest, ClearingAChainOfOneHundredThousandKeys) {
  KeyNode* key = root();
  for (int i = 0; i < 100000; ++i) {
    key = OpenOrCreateKey(key, "k", false);
    ASSERT_NE(key, nullptr);
    if (i % 1000 == 0) AddDword(key, "v", static_cast<uint32_t>(i));
  }
  ClearCurrentKey(&tree_);
  EXPECT_EQ(GetKeyCount(root()), 0u);
  EXPECT_EQ(heap_.live_blocks(), 2u);  // only the root key and its name
}

TEST_F(KeysTest, ClearKeepsTheKeyAndRemovesWideSubtrees) {
  for (int i = 0; i < 50; ++i) {
    std::string p = "w" + std::to_string(i) + "/x/y";
    KeyNode* k = Open(p.c_str());
    AddDword(k, "v", static_cast<uint32_t>(i));
  }
  KeyNode* w7 = FindKey(root(), "w7");
  ClearKey(w7);
  EXPECT_EQ(GetKeyCount(w7), 0u);
  EXPECT_EQ(FindKey(root(), "w7/x"), nullptr);
  EXPECT_NE(FindKey(root(), "w8/x/y"), nullptr);
  ClearKey(root());
  EXPECT_EQ(DumpTree(root()), "{[0/0]}");
  // The cleared key is fully usable again.
  EXPECT_NE(Open("again/and"), nullptr);
}

}  // namespace
}  // namespace propmap::testing
