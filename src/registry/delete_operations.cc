// Removing keys and values, and cleaning the current root key.
#include "module/trace.h"
#include "registry/operation.h"
#include "registry/operations.h"
#include "registry/store_access.h"
#include "registry/store_trace.h"

namespace propmap {
namespace {

// Read-only refusal, handle resolution, the tree work, dirty marking: the
// shape every removal shares.
template <typename Work>
tERROR RemoveWith(PropertiesMap* store, hKey handle, Work work) {
  if (IsReadOnly(store)) return ErrReadOnly;
  KeyNode* key = Resolve(store, handle);
  if (key == nullptr) return ErrInvalidHandle;
  tERROR err = work(key);
  if (Succeeded(err)) {
    MarkDirty(store);
    MarkRemoved(store);
  }
  return err;
}

// A path that names the starting key itself (empty, or a leading separator)
// is refused: removing it would unlink the key from its own list.
tERROR RemoveByPath(KeyNode* start, const char* path) {
  if (path == nullptr) return ErrBadParameter;
  KeyNode* parent = nullptr;
  KeyNode* found = FindKey(start, path, &parent);
  if (found == nullptr) return ErrNotFound;
  if (found == start) return ErrBadParameter;
  RemoveKey(parent, found, false);
  return ResultOk;
}

}  // namespace

tERROR DeleteKey(iRegistry* self, hKey parent, const char* path) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, LockMode::kExclusive,
      [&] { return RemoveWith(store, parent, [&](KeyNode* key) { return RemoveByPath(key, path); }); },
      [&](tERROR e) { Trace(store, kTraceOperation, "prmap\t%s %s: %terr", "DeleteKey", path, e); });
}

tERROR DeleteKeyByInd(iRegistry* self, hKey parent, uint32_t index) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, LockMode::kExclusive,
      [&] { return RemoveWith(store, parent, [&](KeyNode* key) { return RemoveKeyByIndex(key, index); }); },
      [&](tERROR e) {
        Trace(store, kTraceOperation, "prmap\t%s %d : %terr", "DeleteKeyByInd", static_cast<int>(index), e);
      });
}

tERROR DeleteValue(iRegistry* self, hKey key, const char* name) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, LockMode::kExclusive,
      [&] { return RemoveWith(store, key, [&](KeyNode* node) { return RemoveValue(node, name); }); },
      [&](tERROR e) { Trace(store, kTraceOperation, "prmap\t%s %s: %terr", "DeleteValue", name, e); });
}

tERROR DeleteValueByInd(iRegistry* self, hKey key, uint32_t index) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, LockMode::kExclusive,
      [&] { return RemoveWith(store, key, [&](KeyNode* node) { return RemoveValueByIndex(node, index); }); },
      [&](tERROR e) {
        Trace(store, kTraceOperation, "prmap\t%s %d: %terr", "DeleteValueByInd", static_cast<int>(index), e);
      });
}

tERROR Clean(iRegistry* self) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, LockMode::kExclusive,
      [&] {
        if (IsReadOnly(store)) return ErrReadOnly;
        if (!store->has_tree()) return ErrInvalidHandle;
        ClearCurrentKey(store->tree());
        MarkDirty(store);  // always, even when the key was already empty
        MarkRemoved(store);
        return ResultOk;
      },
      [&](tERROR e) { TraceOperation(store, "Clean", e); });
}

}  // namespace propmap
