// A tree on a counting test heap, and a canonical dump of a subtree for
// before/after comparisons (names in list order, value types and bytes).
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_heap.h"
#include "tree/tree.h"

namespace propmap::testing {

inline std::string DumpValue(const iValue* value) {
  std::string out = std::to_string(value->GetTypeId()) + "=";
  uint32_t count = 0;
  if (Failed(value->GetData(nullptr, 0, &count))) return out + "?";
  std::vector<unsigned char> bytes(count);
  if (count != 0 && Failed(value->GetData(bytes.data(), count, &count))) return out + "?";
  static const char kHex[] = "0123456789abcdef";
  for (unsigned char b : bytes) {
    out += kHex[b >> 4];
    out += kHex[b & 15];
  }
  return out;
}

// Keys as "name{values;[counts]children}", depth-first in list order.
inline std::string DumpTree(KeyNode* key) {
  std::string out = std::string(key->name != nullptr ? key->name : "<null>") + "{";
  for (ListLink* l = key->values.next; l != &key->values; l = l->next) {
    ValueEntry* e = EntryFrom(l);
    out += std::string(e->name) + ":" + DumpValue(e->value) + ";";
  }
  out += "[" + std::to_string(key->key_count) + "/" + std::to_string(key->value_count) + "]";
  for (KeyNode* c = key->FirstChild(); c != nullptr; c = key->NextChild(c)) out += DumpTree(c);
  return out + "}";
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
