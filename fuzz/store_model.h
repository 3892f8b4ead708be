// A small model of a store's observable rules, for the stateful fuzz target:
// keys and values keep insertion order and the case they were made with,
// names match without regard to ASCII case, values keep their type and bytes,
// deleting a key takes its subtree, and a copy merges the source key into the
// destination key (existing names reused, new ones appended).
//
// Thread-safety: plain values; one owner.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace propmap::model {

struct Value {
  std::string name;
  uint32_t type = 0;
  std::string bytes;  // what a read in the stored type returns
};

struct Key {
  std::string name;
  std::vector<Value> values;
  std::vector<std::unique_ptr<Key>> keys;  // stable addresses while a copy walks them
};

inline bool SameName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

// The first value or sub-key of that name, or null.
inline Value* Find(std::vector<Value>& values, std::string_view name) {
  for (Value& v : values) {
    if (SameName(v.name, name)) return &v;
  }
  return nullptr;
}
inline Key* Find(const std::vector<std::unique_ptr<Key>>& keys, std::string_view name) {
  for (const auto& k : keys) {
    if (SameName(k->name, name)) return k.get();
  }
  return nullptr;
}

inline Key* Append(Key* key, const std::string& name) {
  key->keys.push_back(std::make_unique<Key>(Key{name, {}, {}}));
  return key->keys.back().get();
}

// The key at the end of `path` below `top`; with `create`, missing keys are
// appended on the way and *created_first tells whether the first one was.
inline Key* Walk(Key* top, const std::vector<std::string>& path, bool create, bool* created_first = nullptr) {
  Key* key = top;
  for (size_t i = 0; i < path.size(); ++i) {
    Key* child = Find(key->keys, path[i]);
    if (child == nullptr) {
      if (!create) return nullptr;
      child = Append(key, path[i]);
      if (i == 0 && created_first != nullptr) *created_first = true;
    }
    key = child;
  }
  return key;
}

// Sets or adds a value of the same type (the fuzz target never converts on set).
inline void Set(Key* key, const std::string& name, uint32_t type, std::string bytes) {
  if (Value* v = Find(key->values, name)) {
    v->bytes = std::move(bytes);
  } else {
    key->values.push_back(Value{name, type, std::move(bytes)});
  }
}

// Copies `from` into `into` as the store does, walking the live tree: values
// first, then sub-keys (counted on entry, found again by name), depth first;
// `skip`, the destination of a copy within one store, is never copied from.
inline void Copy(Key* from, Key* into, const Key* skip) {
  const size_t values = from->values.size();
  for (size_t i = 0; i < values; ++i) {
    const Value v = from->values[i];
    Set(into, v.name, v.type, v.bytes);
  }
  const size_t keys = from->keys.size();
  for (size_t i = 0; i < keys; ++i) {
    const std::string name = from->keys[i]->name;
    Key* child = Find(from->keys, name);
    if (child == skip) continue;
    Key* target = Find(into->keys, name);
    Copy(child, target != nullptr ? target : Append(into, name), skip);
  }
}

// One line per key ("a\b") and per value ("a\b|name|type|hex"), keys in
// order, each key's values before its sub-keys.
inline void Dump(const Key& key, const std::string& path, std::vector<std::string>* out) {
  for (const Value& v : key.values) {
    std::string line = path + "|" + v.name + "|" + std::to_string(v.type) + "|";
    for (unsigned char b : v.bytes) line += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    out->push_back(line);
  }
  for (const auto& k : key.keys) {
    const std::string child = path.empty() ? k->name : path + "\\" + k->name;
    out->push_back(child);
    Dump(*k, child, out);
  }
}

}  // namespace propmap::model
