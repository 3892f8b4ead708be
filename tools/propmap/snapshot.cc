#include "snapshot.h"

#include <unordered_map>

#include "tool_error.h"

namespace propmap_tool {

KeySnapshot::~KeySnapshot() {
  std::vector<KeySnapshot> pending = std::move(keys);
  while (!pending.empty()) {
    KeySnapshot last = std::move(pending.back());
    pending.pop_back();
    for (KeySnapshot& k : last.keys) pending.push_back(std::move(k));
    last.keys.clear();
  }
}

KeySnapshot ReadSubtree(const prhost::Registry& registry, prhost::hKey key, const std::string& where,
                        uint32_t depth) {
  KeySnapshot top;
  struct Step {
    KeySnapshot* node;
    prhost::hKey key;
    uint32_t depth;
  };
  std::vector<Step> stack{{&top, key, depth}};
  const prhost::Client client(registry);
  while (!stack.empty()) {
    const Step step = stack.back();
    stack.pop_back();
    uint32_t count = 0;
    Check(registry.GetValueCount(&count, step.key), where + ": cannot count values");
    step.node->values.reserve(count);
    for (uint32_t i = 0; i < count; ++i) step.node->values.push_back(ReadValue(registry, step.key, i, where));
    Check(registry.GetKeyCount(&count, step.key), where + ": cannot count sub-keys");
    if (step.depth == 0) {
      step.node->cut_keys = count;
      continue;
    }
    // Filled completely before any child is visited: the pointers stay valid.
    step.node->keys.reserve(count);
    std::vector<prhost::hKey> children(count);
    for (uint32_t i = 0; i < count; ++i) {
      Check(registry.OpenKeyByIndex(&children[i], step.key, i), where + ": cannot open sub-key " + std::to_string(i));
      prhost::Result<std::string> name = client.KeyName(children[i]);
      Check(name.code, where + ": cannot read the name of sub-key " + std::to_string(i));
      step.node->keys.emplace_back(std::move(name.value));
    }
    for (uint32_t i = count; i-- > 0;) stack.push_back({&step.node->keys[i], children[i], step.depth - 1});
  }
  return top;
}

std::string Folded(std::string_view name) {
  std::string out(name);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

KeySnapshot ReadProfile(const Session& session, const std::string& path, const std::string& key_path) {
  std::unique_ptr<Profile> profile = session.Open(path, IfMissing::kFail, true, false);
  return ReadSubtree(profile->registry(), profile->Key(key_path), path);
}

prhost::tERROR WriteSubtree(const prhost::Registry& registry, prhost::hKey key, const KeySnapshot& snapshot,
                            const std::function<const std::string&()>& marker, std::string* failed) {
  struct Item {
    const KeySnapshot* node;
    prhost::hKey handle;
    std::string path;
  };
  std::vector<Item> stack{{&snapshot, key, ""}};
  auto below = [](const std::string& path, const std::string& name) { return path.empty() ? name : path + "/" + name; };
  uint64_t serial = 0;
  while (!stack.empty()) {
    const auto [node, handle, path] = std::move(stack.back());
    stack.pop_back();
    // The name a second of one name is written under until the save.
    std::unordered_map<std::string, int> seen;
    auto unique = [&](const std::string& name) {
      if (seen[Folded(name)]++ == 0) return name;
      return name + marker() + std::to_string(++serial) + '\x7F';
    };
    for (const TypedValue& v : node->values) {
      prhost::tERROR err = PutValue(registry, handle, unique(v.name), v.type, v.data);
      if (prhost::Failed(err) && failed != nullptr) {
        prhost::TypeId there = 0;
        uint32_t size = 0;
        (void)registry.GetValue(&size, handle, v.name.c_str(), &there, nullptr, 0);
        *failed = "value '" + below(path, v.name) + "' (" + TypeLabel(v.type) +
                  (there != 0 ? "; " + TypeLabel(there) + " there" : "") + ")";
      }
      if (prhost::Failed(err)) return err;
    }
    seen.clear();
    for (const KeySnapshot& sub : node->keys) {
      prhost::hKey child = prhost::kInvalidKey;
      prhost::tERROR err = registry.OpenKey(&child, handle, unique(sub.name).c_str(), 1);
      if (prhost::Failed(err)) {
        if (failed != nullptr) *failed = "key '" + below(path, sub.name) + "'";
        return err;
      }
      stack.push_back({&sub, child, below(path, sub.name)});
    }
  }
  return prhost::kOk;
}

size_t Depth(const KeySnapshot& snapshot) {
  size_t deepest = 0;
  std::vector<std::pair<const KeySnapshot*, size_t>> stack{{&snapshot, 0}};
  while (!stack.empty()) {
    const auto [node, depth] = stack.back();
    stack.pop_back();
    deepest = std::max(deepest, depth);
    for (const KeySnapshot& k : node->keys) stack.emplace_back(&k, depth + 1);
  }
  return deepest;
}

void ForEachKey(KeySnapshot& snapshot, const std::function<void(KeySnapshot&)>& visit) {
  std::vector<KeySnapshot*> stack{&snapshot};
  while (!stack.empty()) {
    KeySnapshot* node = stack.back();
    stack.pop_back();
    visit(*node);
    for (size_t i = node->keys.size(); i-- > 0;) stack.push_back(&node->keys[i]);
  }
}

}  // namespace propmap_tool
