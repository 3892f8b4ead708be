// A tree on a counting test heap, and a readable dump of a subtree for
// comparisons.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_heap.h"
#include "tree/tree.h"

namespace propmap::testing {

inline std::string ValueText(const iValue* value) {
  uint32_t length = 0;
  if (Failed(value->GetText(nullptr, 0, &length))) return "?";
  std::vector<char> text(length + 1, '\0');
  if (Failed(value->GetText(text.data(), length, &length))) return "?";
  return std::string(text.data());
}

// Values as name:type=text, then sub-keys as name{...}, in list order.
inline std::string DescribeKey(KeyNode* key) {
  std::string out;
  for (ListLink* l = key->values.next; l != &key->values; l = l->next) {
    const ValueEntry* e = EntryFrom(l);
    out += std::string(e->name) + ":" + TypeNameOf(e->value->GetTypeId()) + "=" + ValueText(e->value) + ";";
  }
  for (KeyNode* c = key->FirstChild(); c != nullptr; c = key->NextChild(c)) {
    out += std::string(c->name) + "{" + DescribeKey(c) + "}";
  }
  return out;
}

class TreeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetTree(&tree_);
    ASSERT_EQ(InitTree(&tree_, heap_.host()), ResultOk);
  }
  void TearDown() override {
    DestroyTree(&tree_);
    ResetTree(&tree_);
    // Only the one-byte buffers of empty names stay behind (the root's among them).
    EXPECT_EQ(heap_.live_bytes(), heap_.live_blocks()) << "leaked more than empty-name buffers";
    EXPECT_EQ(heap_.live_blocks(), expected_empty_names_);
  }
  KeyNode* root() { return tree_.root; }
  KeyNode* Open(const char* path) { return OpenOrCreateKey(root(), path, false); }
  void AddDword(KeyNode* key, const char* name, uint32_t v) {
    ASSERT_EQ(AddValue(key, name, tDWORD, &v, sizeof(v)), ResultOk);
  }
  static std::vector<std::string> ChildNames(KeyNode* key) {
    std::vector<std::string> names;
    for (KeyNode* c = key->FirstChild(); c != nullptr; c = key->NextChild(c)) names.emplace_back(c->name);
    return names;
  }

  TestHeap heap_;
  PropertiesTree tree_;
  size_t expected_empty_names_ = 1;  // the root's ""
};

}  // namespace propmap::testing
