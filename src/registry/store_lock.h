// Scoped use of a store's reader/writer lock.
//
// The lock is taken only when the locking flag is set and the loader created
// the lock; otherwise the store relies on its callers. The guard releases on
// every path out of its scope, exceptions included.
#pragma once

#include <pthread.h>

#include "registry/properties_map.h"

namespace propmap {

enum class LockMode { kShared, kExclusive };

class StoreLock {
 public:
  StoreLock(PropertiesMap* store, LockMode mode) {
    if (store->config.locking != 0 && store->lock_created != 0) {
      const int failed = mode == LockMode::kShared ? pthread_rwlock_rdlock(&store->lock)
                                                   : pthread_rwlock_wrlock(&store->lock);
      // A lock that was not taken (EAGAIN, EDEADLK) must not be released.
      if (failed == 0) lock_ = &store->lock;
    }
  }
  ~StoreLock() {
    if (lock_ != nullptr) pthread_rwlock_unlock(lock_);
  }
  StoreLock(const StoreLock&) = delete;
  StoreLock& operator=(const StoreLock&) = delete;

 private:
  pthread_rwlock_t* lock_ = nullptr;
};

// Creates the writer-preferring, non-recursive lock when the locking flag is
// set. Returns 0 also when no lock is wanted.
[[nodiscard]] tERROR CreateStoreLock(PropertiesMap* store);

}  // namespace propmap
