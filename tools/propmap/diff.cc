#include "diff.h"

#include <unordered_map>

namespace propmap_tool {
namespace {

// Pairs the items of two keys by folded name: the k-th of a name in `a`
// with the k-th of that name in `b`, so duplicates pair in order. Calls
// `both(a_item, b_item)` for pairs, `only_a` and `only_b` for the rest, in
// the order of `a`, then of `b`.
template <typename T, typename Both, typename OnlyA, typename OnlyB>
void Pair(const std::vector<T>& a, const std::vector<T>& b, Both both, OnlyA only_a, OnlyB only_b) {
  std::unordered_map<std::string, std::vector<const T*>> in_b;
  for (const T& item : b) in_b[Folded(item.name)].push_back(&item);
  std::unordered_map<std::string, size_t> taken;
  for (const T& item : a) {
    const std::string folded = Folded(item.name);
    auto it = in_b.find(folded);
    size_t& k = taken[folded];
    if (it != in_b.end() && k < it->second.size()) both(item, *it->second[k]);
    else only_a(item);
    ++k;
  }
  std::unordered_map<std::string, size_t> seen;
  for (const T& item : b) {
    const std::string folded = Folded(item.name);
    auto it = taken.find(folded);
    if (seen[folded]++ >= (it == taken.end() ? 0 : it->second)) only_b(item);
  }
}

std::string Join(const std::string& prefix, const std::string& name) {
  return prefix.empty() ? name : prefix + "/" + name;
}

void DiffInto(const KeySnapshot& top_a, const KeySnapshot& top_b, std::vector<Change>& out) {
  struct Step {
    const KeySnapshot* a;
    const KeySnapshot* b;
    std::string prefix;
  };
  std::vector<Step> stack{{&top_a, &top_b, ""}};
  while (!stack.empty()) {
    const Step step = std::move(stack.back());
    stack.pop_back();
    const std::string& prefix = step.prefix;
    Pair(
        step.a->values, step.b->values,
        [&](const TypedValue& v, const TypedValue& other) {
          if (other.type != v.type || other.data != v.data) {
            out.push_back({Change::kChanged, Join(prefix, v.name), &v, &other});
          }
        },
        [&](const TypedValue& v) { out.push_back({Change::kRemoved, Join(prefix, v.name), &v, nullptr}); },
        [&](const TypedValue& v) { out.push_back({Change::kAdded, Join(prefix, v.name), nullptr, &v}); });
    // Sub-keys are compared after this key's own changes, in order.
    std::vector<Step> nested;
    Pair(
        step.a->keys, step.b->keys,
        [&](const KeySnapshot& k, const KeySnapshot& other) { nested.push_back({&k, &other, Join(prefix, k.name)}); },
        [&](const KeySnapshot& k) { out.push_back({Change::kRemovedKey, Join(prefix, k.name) + "/"}); },
        [&](const KeySnapshot& k) { out.push_back({Change::kAddedKey, Join(prefix, k.name) + "/"}); });
    for (size_t i = nested.size(); i-- > 0;) stack.push_back(std::move(nested[i]));
  }
}

std::string Typed(const TypedValue& v) { return "(" + TypeLabel(v.type) + ") = " + v.text; }

}  // namespace

std::vector<Change> Diff(const KeySnapshot& a, const KeySnapshot& b) {
  std::vector<Change> out;
  DiffInto(a, b, out);
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
