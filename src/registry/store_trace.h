// Trace formats shared by the store's operations; the store is the object on
// whose behalf each line is written.
#pragma once

#include "module/trace.h"
#include "registry/properties_map.h"

namespace propmap {

// "prmap\t<operation> : <result>", the line of most operations and accessors.
inline void TraceOperation(const PropertiesMap* store, const char* operation, tERROR result) {
  Trace(store, kTraceOperation, "prmap\t%s : %terr", operation, result);
}

// Handles are traced by their low 32 bits.
inline uint32_t Low32(uint64_t value) { return static_cast<uint32_t>(value); }

}  // namespace propmap
