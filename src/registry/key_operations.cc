// Opening, walking and naming keys.
#include "module/trace.h"
#include "registry/operation.h"
#include "registry/operation_bodies.h"
#include "registry/operations.h"
#include "registry/store_access.h"
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

tERROR OpenKeyBody(PropertiesMap* store, hKey* key, hKey parent, const char* path, uint32_t create) {
  KeyNode* start = Resolve(store, parent);
  if (start == nullptr) return ErrInvalidHandle;
  if (path == nullptr) {
    *key = ToHandle(start);
    return ResultOk;
  }
  if (create != 0 && !IsReadOnly(store)) {
    uint32_t created = 0;
    KeyNode* found = OpenOrCreateKey(start, path, false, &created);
    // Keys made before a deeper component failed stay in the tree, so the
    // store has changed even when the call fails.
    if (created != 0) MarkDirty(store);
    if (found == nullptr) return ErrNoMemory;
    *key = ToHandle(found);
    return created != 0 ? KeyCreated : ResultOk;
  }
  KeyNode* found = FindKey(start, path);
  if (found == nullptr) return create != 0 ? ErrReadOnly : ErrNotFound;  // read-only refused to create
  *key = ToHandle(found);
  return ResultOk;
}

template <typename CountOf>
tERROR CountOn(PropertiesMap* store, LockMode lock, uint32_t* count, hKey key, const char* operation,
               CountOf count_of) {
  if (count != nullptr) *count = 0;
  return RunOperation(
      store, lock,
      [&] {
        KeyNode* node = Resolve(store, key);
        if (node == nullptr) return ErrInvalidHandle;
        if (count != nullptr) *count = static_cast<uint32_t>(count_of(node));
        return ResultOk;
      },
      [&](tERROR err) { TraceOperation(store, operation, err); });
}

}  // namespace

tERROR OpenKeyOn(PropertiesMap* store, LockMode lock, hKey* key, hKey parent, const char* path, uint32_t create) {
  hKey opened = kInvalidHandle;
  const tERROR err = RunOperation(
      store, lock, [&] { return OpenKeyBody(store, &opened, parent, path, create); },
      // The parent's own path is never looked up for the line: "?" stands for it.
      [&](tERROR e) { Trace(store, kTraceOperation, "prmap\tOpening key %s\\%s: %terr", "?", path, e); });
  if (key != nullptr) *key = Failed(err) ? kInvalidHandle : opened;
  return err;
}

tERROR OpenKey(iRegistry* self, hKey* key, hKey parent, const char* path, uint32_t create) noexcept {
  return OpenKeyOn(PropertiesMap::From(self), create != 0 ? LockMode::kExclusive : LockMode::kShared, key, parent,
                   path, create);
}

tERROR OpenKeyByIndex(iRegistry* self, hKey* key, hKey parent, uint32_t index) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  hKey opened = kInvalidHandle;
  const tERROR err = RunOperation(
      store, LockMode::kShared,
      [&] {
        KeyNode* start = Resolve(store, parent);  // unresolvable: not found, too
        KeyNode* child = start != nullptr ? GetKeyByIndex(start, index) : nullptr;
        if (child == nullptr) return ErrNotFound;
        opened = ToHandle(child);
        return ResultOk;
      },
      [&](tERROR e) {
        Trace(store, kTraceOperation, "prmap\t%s %d: %terr", "OpenKeyByIndex", static_cast<int>(index), e);
      });
  if (key != nullptr) *key = Failed(err) ? kInvalidHandle : opened;
  return err;
}

tERROR OpenNextKey(iRegistry* self, hKey* next, hKey key) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  hKey sibling = kInvalidHandle;
  const tERROR err = RunOperation(
      store, LockMode::kShared,
      [&] {
        // Handle 0 is not the root here: it has no next key.
        KeyNode* found = nullptr;
        if (store->has_tree() && key != 0) found = GetNextKey(store->tree(), reinterpret_cast<KeyNode*>(key));
        if (found == nullptr) return ErrInvalidHandle;
        sibling = ToHandle(found);
        return ResultOk;
      },
      [&](tERROR e) { TraceOperation(store, "OpenNextKey", e); });
  if (next != nullptr) *next = Failed(err) ? kInvalidHandle : sibling;
  return err;
}

tERROR CloseKeyOn(PropertiesMap* store, LockMode lock, hKey key) {
  return RunOperation(
      store, lock, [] { return ResultOk; },
      [&](tERROR e) { Trace(store, kTraceOperation, "prmap\tClosing key %x: %terr", Low32(key), e); });
}

tERROR CloseKey(iRegistry* self, hKey key) noexcept {
  return CloseKeyOn(PropertiesMap::From(self), LockMode::kShared, key);
}

tERROR GetKeyName(iRegistry* self, uint32_t* size, hKey key, void* buffer, uint32_t buffer_size,
                  uint32_t full_path) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, LockMode::kShared,
      [&] {
        KeyNode* node = Resolve(store, key);
        return node == nullptr ? ErrInvalidHandle : CopyKeyName(store, node, buffer, buffer_size, size, full_path);
      },
      [&](tERROR e) {
        Trace(store, kTraceOperation, "prmap\tGetting key name %d: %terr", static_cast<int>(Low32(key)), e);
      });
}

tERROR GetKeyNameByIndexOn(PropertiesMap* store, LockMode lock, uint32_t* size, hKey parent, uint32_t index,
                           void* buffer, uint32_t buffer_size, uint32_t full_path) {
  return RunOperation(
      store, lock,
      [&] {
        KeyNode* start = Resolve(store, parent);
        KeyNode* child = start != nullptr ? GetKeyByIndex(start, index) : nullptr;
        return child == nullptr ? ErrNotFound : CopyKeyName(store, child, buffer, buffer_size, size, full_path);
      },
      [&](tERROR e) {
        Trace(store, kTraceOperation, "prmap\tGetting key name by index %d: %terr", static_cast<int>(index), e);
      });
}

tERROR GetKeyNameByIndex(iRegistry* self, uint32_t* size, hKey parent, uint32_t index, void* buffer,
                         uint32_t buffer_size, uint32_t full_path) noexcept {
  return GetKeyNameByIndexOn(PropertiesMap::From(self), LockMode::kShared, size, parent, index, buffer, buffer_size,
                             full_path);
}

tERROR GetKeyCountOn(PropertiesMap* store, LockMode lock, uint32_t* count, hKey key) {
  return CountOn(store, lock, count, key, "GetKeyCount", [](KeyNode* k) { return propmap::GetKeyCount(k); });
}

tERROR GetValueCountOn(PropertiesMap* store, LockMode lock, uint32_t* count, hKey key) {
  return CountOn(store, lock, count, key, "GetValueCount", [](KeyNode* k) { return propmap::GetValueCount(k); });
}

tERROR GetKeyCount(iRegistry* self, uint32_t* count, hKey key) noexcept {
  return GetKeyCountOn(PropertiesMap::From(self), LockMode::kShared, count, key);
}

tERROR GetValueCount(iRegistry* self, uint32_t* count, hKey key) noexcept {
  return GetValueCountOn(PropertiesMap::From(self), LockMode::kShared, count, key);
}

}  // namespace propmap
