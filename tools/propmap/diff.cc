#include "diff.h"

#include <unordered_map>

namespace propmap_tool {
namespace {

// Names compare as the store compares them: ASCII letters folded, nothing else.
std::string Folded(const std::string& name) {
  std::string out = name;
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

// The items of one key by folded name, so matching two keys is linear.
template <typename T>
class ByName {
 public:
  explicit ByName(const std::vector<T>& items) {
    index_.reserve(items.size());
    for (const T& item : items) index_.emplace(Folded(item.name), &item);
  }
  const T* Find(const std::string& name) const {
    auto it = index_.find(Folded(name));
    return it == index_.end() ? nullptr : it->second;
  }

 private:
  std::unordered_map<std::string, const T*> index_;
};

std::string Join(const std::string& prefix, const std::string& name) {
  return prefix.empty() ? name : prefix + "/" + name;
}

void DiffInto(const KeySnapshot& a, const KeySnapshot& b, const std::string& prefix, std::vector<Change>& out) {
  const ByName<TypedValue> a_values(a.values), b_values(b.values);
  for (const TypedValue& v : a.values) {
    const TypedValue* other = b_values.Find(v.name);
    if (other == nullptr) {
      out.push_back({Change::kRemoved, Join(prefix, v.name), &v, nullptr});
    } else if (other->type != v.type || other->data != v.data) {
      out.push_back({Change::kChanged, Join(prefix, v.name), &v, other});
    }
  }
  for (const TypedValue& v : b.values) {
    if (a_values.Find(v.name) == nullptr) out.push_back({Change::kAdded, Join(prefix, v.name), nullptr, &v});
  }
  const ByName<KeySnapshot> a_keys(a.keys), b_keys(b.keys);
  for (const KeySnapshot& k : a.keys) {
    const KeySnapshot* other = b_keys.Find(k.name);
    if (other == nullptr) {
      out.push_back({Change::kRemovedKey, Join(prefix, k.name) + "/"});
    } else {
      DiffInto(k, *other, Join(prefix, k.name), out);
    }
  }
  for (const KeySnapshot& k : b.keys) {
    if (a_keys.Find(k.name) == nullptr) out.push_back({Change::kAddedKey, Join(prefix, k.name) + "/"});
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
