// Small helpers every operation of the store uses.
#pragma once

#include <atomic>

#include "registry/properties_map.h"

namespace propmap {

// 0 is the current root; any other handle is the node itself, unchecked.
// Null while the store has no tree.
inline KeyNode* Resolve(PropertiesMap* store, hKey handle) {
  return ResolveKey(store->tree(), reinterpret_cast<KeyNode*>(handle));
}

inline hKey ToHandle(const KeyNode* key) { return reinterpret_cast<hKey>(key); }

// Every change counts; the store is dirty while the count differs from the
// one the profile last matched. Also counted under the shared lock (a
// successful copy marks its source), so every access is atomic.
inline void MarkDirty(PropertiesMap* store) {
  std::atomic_ref<uint64_t>(store->changes).fetch_add(1, std::memory_order_relaxed);
}
inline uint64_t ChangeCount(PropertiesMap* store) {
  return std::atomic_ref<uint64_t>(store->changes).load(std::memory_order_relaxed);
}
inline bool IsDirty(PropertiesMap* store) {
  return ChangeCount(store) != std::atomic_ref<uint64_t>(store->saved_changes).load(std::memory_order_relaxed);
}
// The profile now matches the tree as it was when `count` was read.
inline void MarkSaved(PropertiesMap* store, uint64_t count) {
  std::atomic_ref<uint64_t>(store->saved_changes).store(count, std::memory_order_relaxed);
}
inline void ClearDirty(PropertiesMap* store) { MarkSaved(store, ChangeCount(store)); }

// A deletion may free keys that a copy reading between locks holds.
inline void MarkRemoved(PropertiesMap* store) {
  std::atomic_ref<uint64_t>(store->removals).fetch_add(1, std::memory_order_relaxed);
}
inline uint64_t RemovalCount(PropertiesMap* store) {
  return std::atomic_ref<uint64_t>(store->removals).load(std::memory_order_relaxed);
}

inline bool IsReadOnly(const PropertiesMap* store) { return store->config.read_only != 0; }

}  // namespace propmap
