// Opening, walking and naming keys.
#include "module/trace.h"
#include "registry/operation_bodies.h"
#include "registry/operations.h"
#include "registry/store_access.h"
#include "registry/store_lock.h"
#include "registry/store_trace.h"
#include "registry/text_out.h"

namespace propmap {
namespace {

// A key's own name or its path below the current root, by the text-out convention.
tERROR CopyKeyName(PropertiesMap* store, KeyNode* key, void* buffer, uint32_t buffer_size, uint32_t* size,
                   uint32_t full_path) {
  if (full_path == 0) return CopyTextOut(key->name, key->name_length, buffer, buffer_size, size);
  if (!store->has_tree()) return ErrNotImplemented;
  return CopyKeyPathOut(store->tree(), store->tree()->current, key, buffer, buffer_size, size);
}

}  // namespace

tERROR OpenKeyBody(PropertiesMap* store, hKey* key, hKey parent, const char* path, uint32_t create) {
  hKey opened = kInvalidHandle;
  tERROR err = ResultOk;
  KeyNode* start = Resolve(store, parent);
  if (start == nullptr) {
    err = ErrInvalidHandle;
  } else if (path == nullptr) {
    opened = ToHandle(start);
  } else if (create != 0 && !IsReadOnly(store)) {
    uint32_t created = 0;
    KeyNode* found = OpenOrCreateKey(start, path, false, &created);
    // Keys made before a deeper component failed stay in the tree, so the
    // store has changed even when the call fails.
    if (created != 0) MarkDirty(store);
    if (found == nullptr) {
      err = ErrNoMemory;
    } else {
      opened = ToHandle(found);
      if (created != 0) err = KeyCreated;
    }
  } else if (KeyNode* found = FindKey(start, path); found != nullptr) {
    opened = ToHandle(found);
  } else {
    // A read-only store refused to create what was asked for.
    err = create != 0 ? ErrReadOnly : ErrNotFound;
  }
  if (key != nullptr) *key = opened;
  // The parent's own path is never looked up for the line: "?" stands for it.
  Trace(store, kTraceOperation, "prmap\tOpening key %s\\%s: %terr", "?", path, err);
  return err;
}

tERROR OpenKey(iRegistry* self, hKey* key, hKey parent, const char* path, uint32_t create) {
  PropertiesMap* store = PropertiesMap::From(self);
  StoreLock lock(store, create != 0 ? LockMode::kExclusive : LockMode::kShared);
  return OpenKeyBody(store, key, parent, path, create);
}

tERROR OpenKeyByIndex(iRegistry* self, hKey* key, hKey parent, uint32_t index) {
  PropertiesMap* store = PropertiesMap::From(self);
  StoreLock lock(store, LockMode::kShared);
  hKey opened = kInvalidHandle;
  tERROR err = ErrNotFound;  // also for an unresolvable parent
  if (KeyNode* start = Resolve(store, parent); start != nullptr) {
    if (KeyNode* child = GetKeyByIndex(start, index); child != nullptr) {
      opened = ToHandle(child);
      err = ResultOk;
    }
  }
  if (key != nullptr) *key = opened;
  Trace(store, kTraceOperation, "prmap\t%s %d: %terr", "OpenKeyByIndex", static_cast<int>(index), err);
  return err;
}

tERROR OpenNextKey(iRegistry* self, hKey* next, hKey key) {
  PropertiesMap* store = PropertiesMap::From(self);
  StoreLock lock(store, LockMode::kShared);
  // Handle 0 is not the root here: it has no next key.
  KeyNode* sibling = nullptr;
  if (store->has_tree() && key != 0) sibling = GetNextKey(store->tree(), reinterpret_cast<KeyNode*>(key));
  tERROR err = sibling != nullptr ? ResultOk : ErrInvalidHandle;
  if (next != nullptr) *next = sibling != nullptr ? ToHandle(sibling) : kInvalidHandle;
  TraceOperation(store, "OpenNextKey", err);
  return err;
}

tERROR CloseKeyBody(PropertiesMap* store, hKey key) {
  Trace(store, kTraceOperation, "prmap\tClosing key %x: %terr", Low32(key), ResultOk);
  return ResultOk;
}

tERROR CloseKey(iRegistry* self, hKey key) {
  PropertiesMap* store = PropertiesMap::From(self);
  StoreLock lock(store, LockMode::kShared);
  return CloseKeyBody(store, key);
}

tERROR GetKeyName(iRegistry* self, uint32_t* size, hKey key, void* buffer, uint32_t buffer_size,
                  uint32_t full_path) {
  PropertiesMap* store = PropertiesMap::From(self);
  StoreLock lock(store, LockMode::kShared);
  KeyNode* node = Resolve(store, key);
  tERROR err = node == nullptr ? ErrInvalidHandle : CopyKeyName(store, node, buffer, buffer_size, size, full_path);
  Trace(store, kTraceOperation, "prmap\tGetting key name %d: %terr", static_cast<int>(Low32(key)), err);
  return err;
}

tERROR GetKeyNameByIndexBody(PropertiesMap* store, uint32_t* size, hKey parent, uint32_t index, void* buffer,
                             uint32_t buffer_size, uint32_t full_path) {
  tERROR err = ErrNotFound;
  if (KeyNode* start = Resolve(store, parent); start != nullptr) {
    if (KeyNode* child = GetKeyByIndex(start, index); child != nullptr) {
      err = CopyKeyName(store, child, buffer, buffer_size, size, full_path);
    }
  }
  Trace(store, kTraceOperation, "prmap\tGetting key name by index %d: %terr", static_cast<int>(index), err);
  return err;
}

tERROR GetKeyNameByIndex(iRegistry* self, uint32_t* size, hKey parent, uint32_t index, void* buffer,
                         uint32_t buffer_size, uint32_t full_path) {
  PropertiesMap* store = PropertiesMap::From(self);
  StoreLock lock(store, LockMode::kShared);
  return GetKeyNameByIndexBody(store, size, parent, index, buffer, buffer_size, full_path);
}

namespace {

template <typename CountOf>
tERROR CountBody(PropertiesMap* store, uint32_t* count, hKey key, const char* operation, CountOf count_of) {
  KeyNode* node = Resolve(store, key);
  if (count != nullptr) *count = node != nullptr ? static_cast<uint32_t>(count_of(node)) : 0;
  tERROR err = node != nullptr ? ResultOk : ErrInvalidHandle;
  TraceOperation(store, operation, err);
  return err;
}

}  // namespace

tERROR GetKeyCountBody(PropertiesMap* store, uint32_t* count, hKey key) {
  return CountBody(store, count, key, "GetKeyCount", [](KeyNode* k) { return propmap::GetKeyCount(k); });
}

tERROR GetValueCountBody(PropertiesMap* store, uint32_t* count, hKey key) {
  return CountBody(store, count, key, "GetValueCount", [](KeyNode* k) { return propmap::GetValueCount(k); });
}

tERROR GetKeyCount(iRegistry* self, uint32_t* count, hKey key) {
  PropertiesMap* store = PropertiesMap::From(self);
  StoreLock lock(store, LockMode::kShared);
  return GetKeyCountBody(store, count, key);
}

tERROR GetValueCount(iRegistry* self, uint32_t* count, hKey key) {
  PropertiesMap* store = PropertiesMap::From(self);
  StoreLock lock(store, LockMode::kShared);
  return GetValueCountBody(store, count, key);
}

}  // namespace propmap
