// Keys and value entries: construction, adding, removing and clearing.
#include <cstdio>
#include <cstring>
#include <new>

#include "tree/tree.h"

namespace propmap {
namespace {

// Empty names keep their one-byte buffer: only names with bytes are given
// back, so the root's "" is never freed. Callers never free names themselves.
void FreeName(iObj* host, char* name, size_t length) {
  if (length != 0) HeapFree(host, name);
}

// Unlinks and destroys one value entry. With skip_index the entry is known not
// to be indexed (or the index was emptied wholesale).
void RemoveEntry(KeyNode* key, ValueEntry* entry, bool skip_index) {
  if (entry == nullptr || key->host == nullptr) return;
  if (IsLinked(entry)) {
    ListUnlink(entry);
    --key->value_count;
  }
  if (!skip_index) {
    // Matched by name: with duplicate names this drops the first one's element.
    auto it = key->value_index.find(NameKey{entry->name, entry->name_length, entry->hash});
    if (it != key->value_index.end()) key->value_index.erase(it);
  }
  DestroyValue(key->host, entry->value);
  FreeName(key->host, entry->name, entry->name_length);
  entry->~ValueEntry();
  HeapFree(key->host, entry);
}

// The shared body of AddValue and AddValueFromText; `fill` stores the content.
template <typename Fill>
tERROR AddEntry(KeyNode* key, const char* name, size_t name_length, tag_TYPE_ID type, Fill fill) {
  if (key->host == nullptr) return ErrNotImplemented;
  ValueEntry* entry = nullptr;
  if (Failed(HeapAllocFor(key->host, &entry))) return ErrNoMemory;
  new (entry) ValueEntry();

  entry->value = CreateValue(key->host, type);
  if (entry->value == nullptr) {
    RemoveEntry(key, entry, true);
    return ErrNoMemory;
  }
  tERROR err = name == nullptr ? ErrBadParameter
                               : CopyName(key->host, &entry->name, &entry->name_length, name, name_length);
  if (Failed(err)) {
    RemoveEntry(key, entry, true);
    return err;
  }
  entry->hash = HashName(entry->name, entry->name_length);
  err = fill(entry->value);
  if (Failed(err)) {
    RemoveEntry(key, entry, true);
    return err;
  }
  ListAppend(&key->values, entry);
  ++key->value_count;
  try {
    // An equal name already indexed stays; the new entry is then list-only.
    key->value_index.insert(entry);
  } catch (const std::bad_alloc&) {
    RemoveEntry(key, entry, true);
    return ErrNoMemory;
  }
  return ResultOk;
}

}  // namespace

tERROR CopyName(iObj* host, char** name, size_t* length, const char* source, size_t source_length) {
  if (source == nullptr) return ErrBadParameter;
  if (source_length >= UINT32_MAX) return ErrNoMemory;
  void* block = nullptr;
  if (Failed(HeapAlloc(host, &block, static_cast<uint32_t>(source_length + 1)))) return ErrNoMemory;
  char* copy = static_cast<char*>(block);
  std::memcpy(copy, source, source_length);
  copy[source_length] = '\0';
  FreeName(host, *name, *length);
  *name = copy;
  *length = source_length;
  return ResultOk;
}

void ConstructKey(KeyNode* storage, iObj* host, const char* name, size_t length) {
  KeyNode* key = new (storage) KeyNode();
  key->host = host;
  InitListHead(&key->keys);
  InitListHead(&key->values);
  // A name that cannot be copied leaves the key unnamed; construction never fails.
  (void)CopyName(host, &key->name, &key->name_length, name, length);
}

void DestroyKey(KeyNode* key) {
  ClearKey(key);
  FreeName(key->host, key->name, key->name_length);
  key->name = nullptr;
  key->name_length = 0;
  key->~KeyNode();
}

namespace {

// Moves every sub-key of `from` to the end of `to`'s sub-key list in O(1).
// Only for clearing: `from`'s index is dropped, not rebuilt under `to`.
void SpliceSubKeys(KeyNode* from, KeyNode* to) {
  ListLink* first = from->keys.next;
  ListLink* last = from->keys.prev;
  ListLink* tail = to->keys.prev;
  tail->next = first;
  first->prev = tail;
  last->next = &to->keys;
  to->keys.prev = last;
  InitListHead(&from->keys);
  to->key_count += from->key_count;
  from->key_count = 0;
  from->key_index.clear();
  from->cursor.valid = 0;
}

}  // namespace

void ClearKey(KeyNode* key) {
  key->value_index.clear();
  while (!ListEmpty(&key->values)) RemoveEntry(key, EntryFrom(key->values.next), true);
  key->cursor.valid = 0;
  key->key_index.clear();
  // Without recursion and without a stack that could fail to grow: a
  // sub-key's own sub-keys move up to the end of this key's list before it
  // goes, so every key removed is a leaf. Linear in the number of keys.
  while (!ListEmpty(&key->keys)) {
    KeyNode* child = key->FirstChild();
    if (!ListEmpty(&child->keys)) SpliceSubKeys(child, key);
    RemoveKey(key, child, true);
  }
}

void RemoveKey(KeyNode* parent, KeyNode* child, bool skip_index) {
  if (child == nullptr || parent->host == nullptr) return;
  parent->cursor.valid = 0;
  if (IsLinked(child)) {
    ListUnlink(child);
    --parent->key_count;
  }
  if (!skip_index) {
    // Matched by name, not by node: with duplicate names this may drop the
    // element of the other key.
    auto it = parent->key_index.find(MakeNameKey(child->name, child->name_length));
    if (it != parent->key_index.end()) parent->key_index.erase(it);
  }
  iObj* host = child->host;
  DestroyKey(child);
  HeapFree(host, child);
}

KeyNode* GetKeyByIndex(KeyNode* key, uint32_t index) {
  if (ListEmpty(&key->keys)) return nullptr;
  ListLink* link = key->keys.next;
  uint32_t steps = index;
  EnumCursor& cursor = key->cursor;
  if (cursor.TryAcquire()) {
    if (cursor.valid != 0 && cursor.index <= index) {
      link = cursor.node;
      steps = index - cursor.index;
    }
    cursor.Release();
  }
  for (; steps > 0; --steps) {
    link = link->next;
    if (link == &key->keys) return nullptr;
  }
  KeyNode* found = KeyNode::From(link);
  // Another reader holding the cursor just means this step is not remembered.
  if (cursor.TryAcquire()) {
    cursor.node = found;
    cursor.index = index;
    cursor.valid = 1;
    cursor.Release();
  }
  return found;
}

ValueEntry* GetValueEntryByIndex(KeyNode* key, uint32_t index) {
  ListLink* link = key->values.next;
  for (uint32_t i = 0; link != &key->values; ++i, link = link->next) {
    if (i == index) return EntryFrom(link);
  }
  return nullptr;
}

iValue* GetValueByIndex(KeyNode* key, uint32_t index) {
  ValueEntry* entry = GetValueEntryByIndex(key, index);
  return entry != nullptr ? entry->value : nullptr;
}

const char* GetValueNameByIndex(KeyNode* key, uint32_t index) {
  ValueEntry* entry = GetValueEntryByIndex(key, index);
  return entry != nullptr ? entry->name : nullptr;
}

namespace {
size_t NameLength(const char* name) { return name != nullptr ? std::strlen(name) : 0; }
}  // namespace

tERROR AddValue(KeyNode* key, const char* name, tag_TYPE_ID type, const void* data, uint32_t size) {
  return AddEntry(key, name, NameLength(name), type, [&](iValue* value) { return value->SetData(data, size); });
}

tERROR AddValueFromText(KeyNode* key, const char* name, tag_TYPE_ID type, const char* text) {
  return AddValueFromText(key, name, NameLength(name), type, text);
}

tERROR AddValueFromText(KeyNode* key, const char* name, size_t name_length, tag_TYPE_ID type, const char* text) {
  return AddEntry(key, name, name_length, type, [&](iValue* value) { return value->SetText(text); });
}

tERROR AddUniqueValue(KeyNode* key, const char* name, tag_TYPE_ID type, const void* data, uint32_t size) {
  if (name == nullptr) return ErrBadParameter;
  if (FindValue(key, name) != nullptr) return ErrAlreadyExists;
  return AddValue(key, name, type, data, size);
}

tERROR AddValueAt(KeyNode* key, uint32_t index, tag_TYPE_ID type, const void* data, uint32_t size) {
  if (index > key->value_count) return ErrBadParameter;
  if (index < key->value_count) return ErrAlreadyExists;
  char name[100];
  std::snprintf(name, sizeof(name), "%s%d", "noname", static_cast<int>(index));
  return AddValue(key, name, type, data, size);
}

tERROR RemoveValue(KeyNode* key, const char* name) {
  if (name == nullptr) return ErrBadParameter;
  ValueEntry* entry = FindValueEntry(key, name, std::strlen(name));
  if (entry == nullptr) return ErrNotFound;
  RemoveEntry(key, entry, false);
  return ResultOk;
}

tERROR RemoveValueByIndex(KeyNode* key, uint32_t index) {
  ValueEntry* entry = GetValueEntryByIndex(key, index);
  if (entry == nullptr) return ErrNotFound;
  RemoveEntry(key, entry, false);
  return ResultOk;
}

tERROR RemoveKeyByPath(KeyNode* key, const char* path) {
  if (path == nullptr) return ErrBadParameter;
  KeyNode* parent = nullptr;
  KeyNode* found = FindKey(key, path, &parent);
  if (found == nullptr) return ErrNotFound;
  RemoveKey(parent != nullptr ? parent : key, found, false);
  return ResultOk;
}

tERROR RemoveKeyByIndex(KeyNode* key, uint32_t index) {
  KeyNode* child = GetKeyByIndex(key, index);
  if (child == nullptr) return ErrNotFound;
  RemoveKey(key, child, false);
  return ResultOk;
}

}  // namespace propmap
