// The one shape of every iRegistry operation: take the store lock, run the
// body, turn any exception into a result code, release the lock, write the
// operation's trace line.
//
// Bodies do the work only; they neither lock nor trace, so a copy can run the
// bodies of its own store under the lock it already holds (RunNested) and
// still write each step's line. Tracing after the release lets a trace sink
// call back into the store without meeting its lock.
//
// Thread-safety: as StoreLock; bodies rely on the lock their caller holds.
#pragma once

#include <exception>
#include <new>

#include "registry/properties_map.h"
#include "registry/store_lock.h"
#include "support/exception.h"

namespace propmap {

// The body's result, or the code of whatever it threw.
template <typename Body>
[[nodiscard]] tERROR Guarded(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ErrNoMemory;
  } catch (const ixo::Exception& e) {
    return ResultFromException(e);
  } catch (...) {
    return ErrUnexpected;
  }
}

template <typename Body, typename TraceLine>
tERROR RunOperation(PropertiesMap* store, LockMode mode, Body&& body, TraceLine&& trace) noexcept {
  tERROR err;
  {
    StoreLock lock(store, mode);
    err = lock.status();
    if (Succeeded(err)) err = Guarded(body);
  }
  trace(err);
  return err;
}

// A body run under a lock the caller already holds, traced as its operation.
template <typename Body, typename TraceLine>
tERROR RunNested(Body&& body, TraceLine&& trace) noexcept {
  const tERROR err = Guarded(body);
  trace(err);
  return err;
}

}  // namespace propmap
