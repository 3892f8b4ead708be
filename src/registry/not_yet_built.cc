// Saving is not built yet: Flush answers ErrNotImplemented and traces nothing,
// so that nobody mistakes it for working.
#include "registry/operations.h"

namespace propmap {

tERROR Flush(iRegistry*, uint32_t) noexcept { return ErrNotImplemented; }

}  // namespace propmap
