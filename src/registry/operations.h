// The store's iRegistry operations. Each one takes the store lock as its
// table entry says, resolves its handle (0 is the current root key), works on
// the tree, marks the store dirty when it changed something, releases the lock
// and writes one trace line at level 600 (exceptions are noted per operation).
// A lock that cannot be taken is the result (mapped from its errno) and is
// traced like any other; nothing then runs.
//
// Handle rules: a non-zero handle is used as the node itself, unchecked; no
// handle resolves while the store has no tree. Opening operations write all
// ones to their output handle on failure.
#pragma once

#include "registry/iregistry.h"
#include "registry/properties_map.h"

namespace propmap {

// ---- Keys ----
// Returns 0, KeyCreated when a key was made directly below the start key;
// ErrInvalidHandle (no tree), ErrNotFound (missing, no create), ErrReadOnly
// (missing, create on a read-only store), ErrNoMemory (creation failed).
// Writes on failure: all ones in *key. Notes: a null path opens the parent.
tERROR OpenKey(iRegistry* self, hKey* key, hKey parent, const char* path, uint32_t create) noexcept;
// Fails with ErrNotFound for an unresolvable parent or an index past the end.
tERROR OpenKeyByIndex(iRegistry* self, hKey* key, hKey parent, uint32_t index) noexcept;
// Handle 0 is not resolved here: it always fails with ErrInvalidHandle, as
// does the last sibling.
tERROR OpenNextKey(iRegistry* self, hKey* next, hKey key) noexcept;
// Releases nothing; always 0.
tERROR CloseKey(iRegistry* self, hKey key) noexcept;
// Text-out convention; full_path names the key below the current root.
tERROR GetKeyName(iRegistry* self, uint32_t* size, hKey key, void* buffer, uint32_t buffer_size,
                  uint32_t full_path) noexcept;
tERROR GetKeyNameByIndex(iRegistry* self, uint32_t* size, hKey parent, uint32_t index, void* buffer,
                         uint32_t buffer_size, uint32_t full_path) noexcept;
tERROR GetKeyCount(iRegistry* self, uint32_t* count, hKey key) noexcept;
tERROR GetValueCount(iRegistry* self, uint32_t* count, hKey key) noexcept;
// Copies values and sub-keys through the destination's own operations; on
// success marks this (the source) store dirty.
tERROR CopyKey(iRegistry* self, hKey source, iRegistry* destination, hKey destination_key) noexcept;
tERROR CopyKeyByName(iRegistry* self, const char* path, iRegistry* destination) noexcept;

// ---- Values ----
tERROR GetValue(iRegistry* self, uint32_t* size, hKey key, const char* name, uint32_t* type, void* buffer,
                uint32_t buffer_size) noexcept;
tERROR GetValueByIndex(iRegistry* self, uint32_t* size, hKey key, uint32_t index, uint32_t* type, void* buffer,
                       uint32_t buffer_size) noexcept;
tERROR GetValueNameByIndex(iRegistry* self, uint32_t* size, hKey key, uint32_t index, void* buffer,
                           uint32_t buffer_size) noexcept;
tERROR SetValue(iRegistry* self, hKey key, const char* name, uint32_t type, const void* data, uint32_t size,
                uint32_t create) noexcept;
tERROR SetValueByIndex(iRegistry* self, hKey key, uint32_t index, uint32_t type, const void* data, uint32_t size,
                       uint32_t create) noexcept;

// ---- Deletion ----
tERROR DeleteKey(iRegistry* self, hKey parent, const char* path) noexcept;
tERROR DeleteKeyByInd(iRegistry* self, hKey parent, uint32_t index) noexcept;
tERROR DeleteValue(iRegistry* self, hKey key, const char* name) noexcept;
tERROR DeleteValueByInd(iRegistry* self, hKey key, uint32_t index) noexcept;
tERROR Clean(iRegistry* self) noexcept;

// ---- Root and saving ----
tERROR SetRootKey(iRegistry* self, hKey key) noexcept;
tERROR SetRootStr(iRegistry* self, const char* path) noexcept;
tERROR Flush(iRegistry* self, uint32_t flag) noexcept;

// The root operations' work without their trace lines (the accessors reuse it).
[[nodiscard]] tERROR SetRootKeyUnlocked(PropertiesMap* store, hKey key);
[[nodiscard]] tERROR SetRootStrUnlocked(PropertiesMap* store, const char* path);

}  // namespace propmap
