// Flush is the profile's save.
#include "persistence/persistence.h"
#include "registry/operations.h"

namespace propmap {

tERROR Flush(iRegistry* registry, uint32_t) { return SaveProfile(PropertiesMap::From(registry)); }

}  // namespace propmap
