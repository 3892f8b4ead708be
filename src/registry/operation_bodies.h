// Operations on a store with the lock mode chosen by the caller.
//
// The public entry of each operation passes the mode of its table entry. A
// copy, which already holds its store's lock, passes LockMode::kNone and runs
// the same work and trace line without locking again.
#pragma once

#include "registry/iregistry.h"
#include "registry/properties_map.h"
#include "registry/store_lock.h"

namespace propmap {

tERROR OpenKeyOn(PropertiesMap* store, LockMode lock, hKey* key, hKey parent, const char* path, uint32_t create);
tERROR CloseKeyOn(PropertiesMap* store, LockMode lock, hKey key);
tERROR GetKeyNameByIndexOn(PropertiesMap* store, LockMode lock, uint32_t* size, hKey parent, uint32_t index,
                           void* buffer, uint32_t buffer_size, uint32_t full_path);
tERROR GetKeyCountOn(PropertiesMap* store, LockMode lock, uint32_t* count, hKey key);
tERROR GetValueCountOn(PropertiesMap* store, LockMode lock, uint32_t* count, hKey key);
tERROR GetValueByIndexOn(PropertiesMap* store, LockMode lock, uint32_t* size, hKey key, uint32_t index,
                         uint32_t* type, void* buffer, uint32_t buffer_size);
tERROR GetValueNameByIndexOn(PropertiesMap* store, LockMode lock, uint32_t* size, hKey key, uint32_t index,
                             void* buffer, uint32_t buffer_size);
tERROR SetValueOn(PropertiesMap* store, LockMode lock, hKey key, const char* name, uint32_t type, const void* data,
                  uint32_t size, uint32_t create);

}  // namespace propmap
