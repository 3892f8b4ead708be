#include "diff.h"

#include <strings.h>

namespace propmap_tool {
namespace {

// Names compare as the store compares them: ASCII letters folded, nothing else.
bool SameName(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    auto fold = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (fold(a[i]) != fold(b[i])) return false;
  }
  return true;
}

template <typename T>
const T* FindByName(const std::vector<T>& items, const std::string& name) {
  for (const T& item : items) {
    if (SameName(item.name, name)) return &item;
  }
  return nullptr;
}

std::string Join(const std::string& prefix, const std::string& name) {
  return prefix.empty() ? name : prefix + "/" + name;
}

void DiffInto(const KeySnapshot& a, const KeySnapshot& b, const std::string& prefix, std::vector<Change>& out) {
  for (const TypedValue& v : a.values) {
    const TypedValue* other = FindByName(b.values, v.name);
    if (other == nullptr) {
      out.push_back({Change::kRemoved, Join(prefix, v.name), &v, nullptr});
    } else if (other->type != v.type || other->data != v.data) {
      out.push_back({Change::kChanged, Join(prefix, v.name), &v, other});
    }
  }
  for (const TypedValue& v : b.values) {
    if (FindByName(a.values, v.name) == nullptr) out.push_back({Change::kAdded, Join(prefix, v.name), nullptr, &v});
  }
  for (const KeySnapshot& k : a.keys) {
    const KeySnapshot* other = FindByName(b.keys, k.name);
    if (other == nullptr) {
      out.push_back({Change::kRemovedKey, Join(prefix, k.name) + "/"});
    } else {
      DiffInto(k, *other, Join(prefix, k.name), out);
    }
  }
  for (const KeySnapshot& k : b.keys) {
    if (FindByName(a.keys, k.name) == nullptr) out.push_back({Change::kAddedKey, Join(prefix, k.name) + "/"});
  }
}

std::string Typed(const TypedValue& v) { return "(" + TypeLabel(v.type) + ") = " + v.text; }

}  // namespace

std::vector<Change> Diff(const KeySnapshot& a, const KeySnapshot& b) {
  std::vector<Change> out;
  DiffInto(a, b, "", out);
  return out;
}

std::string FormatChanges(const std::vector<Change>& changes) {
  std::string out;
  for (const Change& c : changes) {
    switch (c.kind) {
      case Change::kAddedKey: out += "+ " + c.path; break;
      case Change::kRemovedKey: out += "- " + c.path; break;
      case Change::kAdded: out += "+ " + c.path + " " + Typed(*c.after); break;
      case Change::kRemoved: out += "- " + c.path + " " + Typed(*c.before); break;
      case Change::kChanged: out += "~ " + c.path + " " + Typed(*c.before) + " -> " + Typed(*c.after); break;
    }
    out += '\n';
  }
  return out;
}

nlohmann::ordered_json ChangesToJson(const std::vector<Change>& changes) {
  auto typed = [](const TypedValue& v) {
    return nlohmann::ordered_json{{"type", TypeLabel(v.type)}, {"text", v.text}};
  };
  static constexpr const char* kOps[] = {"add-key", "remove-key", "add", "remove", "change"};
  nlohmann::ordered_json out = nlohmann::ordered_json::array();
  for (const Change& c : changes) {
    nlohmann::ordered_json row;
    int op = c.kind == Change::kAddedKey ? 0 : c.kind == Change::kRemovedKey ? 1 : c.kind == Change::kAdded ? 2
           : c.kind == Change::kRemoved ? 3 : 4;
    row["op"] = kOps[op];
    row["path"] = c.path;
    if (c.before != nullptr) row["before"] = typed(*c.before);
    if (c.after != nullptr) row["after"] = typed(*c.after);
    out.push_back(std::move(row));
  }
  return out;
}

}  // namespace propmap_tool
