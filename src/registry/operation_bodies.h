// The work and trace line of operations, without taking the store lock.
//
// Each public operation takes the lock and calls its body. A copy runs the
// bodies of its own store under the one shared lock it already holds, so it
// never takes the (non-recursive) lock twice on one thread.
#pragma once

#include "registry/iregistry.h"
#include "registry/properties_map.h"

namespace propmap {

tERROR OpenKeyBody(PropertiesMap* store, hKey* key, hKey parent, const char* path, uint32_t create);
tERROR CloseKeyBody(PropertiesMap* store, hKey key);
tERROR GetKeyNameByIndexBody(PropertiesMap* store, uint32_t* size, hKey parent, uint32_t index, void* buffer,
                             uint32_t buffer_size, uint32_t full_path);
tERROR GetKeyCountBody(PropertiesMap* store, uint32_t* count, hKey key);
tERROR GetValueCountBody(PropertiesMap* store, uint32_t* count, hKey key);
tERROR GetValueByIndexBody(PropertiesMap* store, uint32_t* size, hKey key, uint32_t index, uint32_t* type,
                           void* buffer, uint32_t buffer_size);
tERROR GetValueNameByIndexBody(PropertiesMap* store, uint32_t* size, hKey key, uint32_t index, void* buffer,
                               uint32_t buffer_size);

}  // namespace propmap
