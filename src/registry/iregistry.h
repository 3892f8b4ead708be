// iRegistry: the one interface the module offers, as a table of 23 operations
// called as table[slot](object, ...). The order of the members is the slot
// order and part of the binary contract.
//
// Handles are key node addresses; 0 is the current root key; opening
// operations write all ones to their output handle on failure. Every slot is
// noexcept: nothing may unwind into the host.
//
// Copies and deadlock: CopyKey and CopyKeyByName hold this store's read lock
// while they call the destination's operations, which take the destination's
// write lock. A copy within one store runs under that store's write lock
// alone. Two threads copying between two locking stores in opposite
// directions at the same time can deadlock (each holds its source's read lock
// and waits for the other's write lock); callers must not do that.
#pragma once

#include <cstdint>

#include "module/result_codes.h"

namespace propmap {

using hKey = uint64_t;
inline constexpr hKey kInvalidHandle = ~hKey{0};

struct iRegistry;

struct iRegistryTable {
  tERROR (*OpenKey)(iRegistry* self, hKey* key, hKey parent, const char* path, uint32_t create) noexcept;
  tERROR (*OpenKeyByIndex)(iRegistry* self, hKey* key, hKey parent, uint32_t index) noexcept;
  tERROR (*OpenNextKey)(iRegistry* self, hKey* next, hKey key) noexcept;
  tERROR (*CloseKey)(iRegistry* self, hKey key) noexcept;
  tERROR (*GetKeyName)(iRegistry* self, uint32_t* size, hKey key, void* buffer, uint32_t buffer_size,
                       uint32_t full_path) noexcept;
  tERROR (*GetKeyNameByIndex)(iRegistry* self, uint32_t* size, hKey parent, uint32_t index, void* buffer,
                              uint32_t buffer_size, uint32_t full_path) noexcept;
  tERROR (*GetValue)(iRegistry* self, uint32_t* size, hKey key, const char* name, uint32_t* type, void* buffer,
                     uint32_t buffer_size) noexcept;
  tERROR (*GetValueByIndex)(iRegistry* self, uint32_t* size, hKey key, uint32_t index, uint32_t* type,
                            void* buffer, uint32_t buffer_size) noexcept;
  tERROR (*GetValueNameByIndex)(iRegistry* self, uint32_t* size, hKey key, uint32_t index, void* buffer,
                                uint32_t buffer_size) noexcept;
  tERROR (*SetValue)(iRegistry* self, hKey key, const char* name, uint32_t type, const void* data, uint32_t size,
                     uint32_t create) noexcept;
  tERROR (*SetValueByIndex)(iRegistry* self, hKey key, uint32_t index, uint32_t type, const void* data,
                            uint32_t size, uint32_t create) noexcept;
  tERROR (*GetKeyCount)(iRegistry* self, uint32_t* count, hKey key) noexcept;
  tERROR (*GetValueCount)(iRegistry* self, uint32_t* count, hKey key) noexcept;
  tERROR (*DeleteKey)(iRegistry* self, hKey parent, const char* path) noexcept;
  tERROR (*DeleteKeyByInd)(iRegistry* self, hKey parent, uint32_t index) noexcept;
  tERROR (*DeleteValue)(iRegistry* self, hKey key, const char* name) noexcept;
  tERROR (*DeleteValueByInd)(iRegistry* self, hKey key, uint32_t index) noexcept;
  tERROR (*Clean)(iRegistry* self) noexcept;
  tERROR (*CopyKey)(iRegistry* self, hKey source, iRegistry* destination, hKey destination_key) noexcept;
  tERROR (*CopyKeyByName)(iRegistry* self, const char* path, iRegistry* destination) noexcept;
  tERROR (*SetRootKey)(iRegistry* self, hKey key) noexcept;
  tERROR (*SetRootStr)(iRegistry* self, const char* path) noexcept;
  tERROR (*Flush)(iRegistry* self, uint32_t flag) noexcept;
};

inline constexpr uint32_t kRegistryMethodCount = 23;
static_assert(sizeof(iRegistryTable) == kRegistryMethodCount * sizeof(void*), "one slot per operation");

// Any object whose first word is an iRegistry table (a store of this module
// or of another instance).
struct iRegistry {
  const iRegistryTable* table;
};

// The module's own table.
const iRegistryTable* RegistryTable();

}  // namespace propmap
