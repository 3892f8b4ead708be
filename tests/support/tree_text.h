// A readable dump of a subtree for document tests: keys as name{...}, values
// as name:type=text, in list order.
#pragma once

#include <string>
#include <vector>

#include "tree/tree.h"

namespace propmap::testing {

inline std::string ValueText(const iValue* value) {
  uint32_t length = 0;
  if (Failed(value->GetText(nullptr, 0, &length))) return "?";
  std::vector<char> text(length + 1, '\0');
  if (Failed(value->GetText(text.data(), length, &length))) return "?";
  return std::string(text.data());
}

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

}  // namespace propmap::testing
