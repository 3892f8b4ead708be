// Flush: the profile's save. It writes no operation line of its own (the save
// traces its steps) and takes the lock itself, shared, only while the text is
// built.
#include "persistence/persistence.h"
#include "registry/operation.h"
#include "registry/operations.h"

namespace propmap {

tERROR Flush(iRegistry* self, uint32_t) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(store, LockMode::kNone, [&] { return SaveProfile(store); }, [](tERROR) {});
}

}  // namespace propmap
