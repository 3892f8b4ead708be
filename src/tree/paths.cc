// Path walks and value lookup by name. Components are views into the
// caller's path: one hash and one bucket search per component, no copies.
#include <cstring>
#include <new>

#include "tree/tree.h"
#include "values/value_base.h"

namespace propmap {
namespace {

constexpr char kSlash = '/';
constexpr char kBackslash = '\\';

KeyNode* LookupChild(KeyNode* key, const NameKey& probe) {
  auto it = key->key_index.find(probe);
  return it != key->key_index.end() ? it->second : nullptr;
}

// Component end for the NUL-terminated walks: the first '/' anywhere in the
// rest, and only when there is none the first backslash. Once a rest holds no
// '/', no later rest does, so `no_slash` spares rescanning (linear walks).
const char* FindSeparator(const char* rest, bool* no_slash) {
  if (!*no_slash) {
    if (const char* slash = std::strchr(rest, kSlash)) return slash;
    *no_slash = true;
  }
  return std::strchr(rest, kBackslash);
}

// Allocates and links a new sub-key named [name, name + length) at the end of
// `parent`'s list. Null when the heap refuses.
KeyNode* AppendNewKey(KeyNode* parent, const char* name, size_t length) {
  KeyNode* key = nullptr;
  if (Failed(HeapAllocFor(parent->host, &key))) return nullptr;
  ConstructKey(key, parent->host, name, length);
  ListAppend(&parent->keys, key);
  ++parent->key_count;
  parent->cursor.valid = 0;
  return key;
}

// Makes a sub-key and indexes it under its stored name. An equal name already
// indexed is kept; the new key is then reachable through the list only.
KeyNode* CreateChild(KeyNode* parent, const char* name, size_t length) {
  KeyNode* key = AppendNewKey(parent, name, length);
  if (key == nullptr) return nullptr;
  try {
    parent->key_index.try_emplace(MakeNameKey(key->name, key->name_length), key);
  } catch (const std::bad_alloc&) {
    RemoveKey(parent, key, false);
    return nullptr;
  }
  return key;
}

// The last component with creation allowed: insert-or-find in one index probe.
KeyNode* OpenOrCreateLast(KeyNode* parent, const char* name, size_t length, uint32_t* created) {
  try {
    auto [it, inserted] = parent->key_index.try_emplace(MakeNameKey(name, length), nullptr);
    if (!inserted) return it->second;
    KeyNode* key = AppendNewKey(parent, name, length);
    if (key == nullptr) {
      parent->key_index.erase(it);
      return nullptr;
    }
    if (key->name_length != length) {
      // The name could not be copied and the key stays unnamed: index it
      // under its stored empty name, as every created key is, so that
      // lookups never meet a null name and removal finds the element.
      parent->key_index.erase(it);
      try {
        parent->key_index.try_emplace(MakeNameKey(key->name, key->name_length), key);
      } catch (const std::bad_alloc&) {
        RemoveKey(parent, key, false);
        return nullptr;
      }
      if (created != nullptr) *created = 1;
      return key;
    }
    // Index under the key's own buffer from now on, not the caller's path.
    it->first.name = key->name;
    it->second = key;
    if (created != nullptr) *created = 1;
    return key;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

KeyNode* FindKey(KeyNode* start, const char* path, KeyNode** parent) {
  KeyNode* current = start;
  bool no_slash = false;
  const char* rest = path;
  while (*rest != '\0') {
    const char* separator = FindSeparator(rest, &no_slash);
    if (separator == rest) return current;
    if (parent != nullptr) *parent = current;
    size_t length = separator != nullptr ? static_cast<size_t>(separator - rest) : std::strlen(rest);
    current = LookupChild(current, MakeNameKey(rest, length));
    if (current == nullptr) return nullptr;
    rest = separator != nullptr ? separator + 1 : rest + length;
  }
  return current;
}

KeyNode* FindKeyView(KeyNode* start, const char* path, size_t length, KeyNode** parent) {
  KeyNode* current = start;
  const char* rest = path;
  const char* const end = path + length;
  while (rest < end) {
    const char* separator = rest;
    while (separator < end && *separator != kSlash && *separator != kBackslash) ++separator;
    if (separator == rest) return current;
    if (parent != nullptr) *parent = current;
    current = LookupChild(current, MakeNameKey(rest, static_cast<size_t>(separator - rest)));
    if (current == nullptr) return nullptr;
    rest = separator < end ? separator + 1 : end;
  }
  return current;
}

KeyNode* OpenOrCreateKey(KeyNode* start, const char* path, bool always_create, uint32_t* created) {
  if (start->host == nullptr) return nullptr;
  KeyNode* current = start;
  bool no_slash = false;
  const char* rest = path;
  // Only the first component may be forced, and only a key made directly
  // below `start` is reported as created.
  while (*rest != '\0') {
    const char* separator = FindSeparator(rest, &no_slash);
    if (separator == rest) return current;
    if (separator == nullptr) {
      size_t length = std::strlen(rest);
      if (!always_create) return OpenOrCreateLast(current, rest, length, created);
      // A forced last component needs no lookup: creation does not depend on it.
      KeyNode* key = CreateChild(current, rest, length);
      if (key != nullptr && created != nullptr) *created = 1;
      return key;
    }
    size_t length = static_cast<size_t>(separator - rest);
    // A backslash before the first '/' is a further separator for the lookup,
    // while a created key takes the whole component as its name.
    KeyNode* next = always_create ? nullptr : FindKeyView(current, rest, length);
    if (next == nullptr) {
      next = CreateChild(current, rest, length);
      if (next == nullptr) return nullptr;
      if (created != nullptr) *created = 1;
    }
    current = next;
    rest = separator + 1;
    always_create = false;
    created = nullptr;
  }
  return current;
}

size_t PathDepth(const char* path) {
  size_t depth = 0;
  bool no_slash = false;
  for (const char* rest = path; *rest != '\0';) {
    const char* separator = FindSeparator(rest, &no_slash);
    if (separator == rest) break;
    ++depth;
    if (separator == nullptr) break;
    rest = separator + 1;
  }
  return depth;
}

ValueEntry* FindValueEntry(KeyNode* key, const char* name, size_t length) {
  // The empty name hashes to 0 without running the hash.
  NameKey probe{name, length, length != 0 ? HashName(name, length) : 0};
  auto it = key->value_index.find(probe);
  return it != key->value_index.end() ? *it : nullptr;
}

namespace {

// A narrow string whose whole content is "![CDATA[" stands for the value
// "noname" of the same-named sub-key. Every tSTRING value is the module's own
// string class, whose text is compared in place: measuring a long string
// first would make every lookup of it pay for its length.
bool IsRedirectMarker(const iValue* value) {
  static constexpr char kMarker[] = "![CDATA[";
  if (value->GetTypeId() != tSTRING) return false;
  const char* text = static_cast<const Value_Base<char*>*>(value)->chars();
  return text != nullptr && std::strcmp(text, kMarker) == 0;
}

}  // namespace

iValue* FindValue(KeyNode* key, const char* name) {
  if (name == nullptr) return nullptr;
  iValue* result = nullptr;
  // A redirect moves to a sub-key or to "noname" of the same key, whose own
  // redirect moves down, so the walk ends; a miss answers with the marker.
  for (;;) {
    ValueEntry* entry = FindValueEntry(key, name, std::strlen(name));
    if (entry == nullptr) return result;
    result = entry->value;
    if (!IsRedirectMarker(result)) return result;
    KeyNode* sub = FindKey(key, name);
    if (sub == nullptr) return result;
    key = sub;
    name = "noname";
  }
}

}  // namespace propmap
