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

// The dirty flag is also set under the shared lock (a successful copy marks its
// source), so every access is atomic.
inline void MarkDirty(PropertiesMap* store) {
  std::atomic_ref<uint8_t>(store->dirty).store(1, std::memory_order_relaxed);
}
inline bool IsDirty(PropertiesMap* store) {
  return std::atomic_ref<uint8_t>(store->dirty).load(std::memory_order_relaxed) != 0;
}
inline void ClearDirty(PropertiesMap* store) {
  std::atomic_ref<uint8_t>(store->dirty).store(0, std::memory_order_relaxed);
}

inline bool IsReadOnly(const PropertiesMap* store) { return store->config.read_only != 0; }

}  // namespace propmap
