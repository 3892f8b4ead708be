// The store's reader/writer lock: creation and scoped use.
//
// The lock exists only when the locking flag is set and the loader created
// it; without it the store relies on its callers and StoreLock takes nothing.
//
// A lock that cannot be taken is a result code, never a reason to run
// unlocked: pthread's own failures (EAGAIN with too many readers, EDEADLK)
// are mapped, and so are re-entries the writer-preferring, non-recursive
// lock would hang on. Each thread remembers which stores it holds, so that a
// host callback that calls back into a store on the same thread (a trace
// sink, the destination of a copy) gets:
//   - shared while already holding it shared: granted without locking again
//     (a second rdlock would wait behind a queued writer forever);
//   - anything else while holding the store: EDEADLK's code.
//
// Thread-safety: the held-lock record is per thread; the lock itself is the
// store's only synchronisation.
#pragma once

#include <pthread.h>

#include "registry/properties_map.h"

namespace propmap {

enum class LockMode { kNone, kShared, kExclusive };

class StoreLock {
 public:
  StoreLock(PropertiesMap* store, LockMode mode);
  ~StoreLock();
  StoreLock(const StoreLock&) = delete;
  StoreLock& operator=(const StoreLock&) = delete;

  // 0 when the scope may touch the store; otherwise the mapped failure and
  // nothing is held.
  [[nodiscard]] tERROR status() const { return status_; }

 private:
  PropertiesMap* held_ = nullptr;  // set only when this scope took the lock
  tERROR status_ = ResultOk;
};

// Held for the whole of one save: saves of a store run one at a time.
// status() is EDEADLK's code when this thread is already saving the store
// (a trace callback that flushes), and then nothing is held.
class SaveGuard {
 public:
  explicit SaveGuard(PropertiesMap* store);
  ~SaveGuard();
  SaveGuard(const SaveGuard&) = delete;
  SaveGuard& operator=(const SaveGuard&) = delete;
  [[nodiscard]] tERROR status() const { return status_; }

 private:
  PropertiesMap* held_ = nullptr;
  tERROR status_ = ResultOk;
};

// The save guard lives from construction to destruction of the store.
[[nodiscard]] tERROR CreateSaveGuard(PropertiesMap* store);
void DestroySaveGuard(PropertiesMap* store);

// Creates the writer-preferring, non-recursive lock when the locking flag is
// set. Returns 0 also when no lock is wanted.
[[nodiscard]] tERROR CreateStoreLock(PropertiesMap* store);
void DestroyStoreLock(PropertiesMap* store);

}  // namespace propmap
