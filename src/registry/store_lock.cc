#include "registry/store_lock.h"

#include <cerrno>
#include <cstddef>

namespace propmap {
namespace {

// Stores this thread holds, innermost last. A thread holds more than one
// only while a copy calls into another store; 16 is far beyond that.
struct HeldLock {
  const PropertiesMap* store;
  LockMode mode;
};
constexpr size_t kMaxHeld = 16;
// One thread-local object, so that a lock or an unlock looks up the thread's
// storage once (each lookup is a call in a loaded module).
struct HeldLocks {
  HeldLock locks[kMaxHeld];
  size_t count = 0;
};
thread_local HeldLocks t_held;

const HeldLock* FindHeld(const HeldLocks& held, const PropertiesMap* store) {
  for (size_t i = 0; i < held.count; ++i) {
    if (held.locks[i].store == store) return &held.locks[i];
  }
  return nullptr;
}

void ForgetHeld(HeldLocks& held, const PropertiesMap* store) {
  for (size_t i = held.count; i-- > 0;) {
    if (held.locks[i].store == store) {
      held.locks[i] = held.locks[--held.count];
      return;
    }
  }
}

}  // namespace

StoreLock::StoreLock(PropertiesMap* store, LockMode mode) {
  if (mode == LockMode::kNone || store->config.locking == 0 || store->lock_created == 0) return;
  HeldLocks& held_locks = t_held;
  if (const HeldLock* held = FindHeld(held_locks, store); held != nullptr) {
    const bool reenter_shared = held->mode == LockMode::kShared && mode == LockMode::kShared;
    if (!reenter_shared) status_ = ResultFromErrno(EDEADLK);
    return;
  }
  if (held_locks.count == kMaxHeld) {
    status_ = ResultFromErrno(EAGAIN);
    return;
  }
  const int rc = mode == LockMode::kShared ? pthread_rwlock_rdlock(&store->lock)
                                           : pthread_rwlock_wrlock(&store->lock);
  if (rc != 0) {
    status_ = ResultFromErrno(static_cast<uint32_t>(rc));
    return;
  }
  held_locks.locks[held_locks.count++] = {store, mode};
  held_ = store;
}

StoreLock::~StoreLock() {
  if (held_ == nullptr) return;
  ForgetHeld(t_held, held_);
  pthread_rwlock_unlock(&held_->lock);
}

SaveGuard::SaveGuard(PropertiesMap* store) {
  if (store->save_guard_created == 0) return;
  const int rc = pthread_mutex_lock(&store->save_guard);
  if (rc != 0) {
    status_ = ResultFromErrno(static_cast<uint32_t>(rc));
    return;
  }
  held_ = store;
}

SaveGuard::~SaveGuard() {
  if (held_ != nullptr) pthread_mutex_unlock(&held_->save_guard);
}

tERROR CreateSaveGuard(PropertiesMap* store) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  const int rc = pthread_mutex_init(&store->save_guard, &attributes);
  pthread_mutexattr_destroy(&attributes);
  if (rc != 0) return ResultFromErrno(static_cast<uint32_t>(rc));
  store->save_guard_created = 1;
  return ResultOk;
}

void DestroySaveGuard(PropertiesMap* store) {
  if (store->save_guard_created == 0) return;
  pthread_mutex_destroy(&store->save_guard);
  store->save_guard_created = 0;
}

tERROR CreateStoreLock(PropertiesMap* store) {
  if (store->config.locking == 0 || store->lock_created != 0) return ResultOk;
  pthread_rwlockattr_t attributes;
  pthread_rwlockattr_init(&attributes);
  pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
  const int rc = pthread_rwlock_init(&store->lock, &attributes);
  pthread_rwlockattr_destroy(&attributes);
  if (rc != 0) return ResultFromErrno(static_cast<uint32_t>(rc));
  store->lock_created = 1;
  return ResultOk;
}

void DestroyStoreLock(PropertiesMap* store) {
  if (store->lock_created == 0) return;
  pthread_rwlock_destroy(&store->lock);
  store->lock_created = 0;
}

}  // namespace propmap
