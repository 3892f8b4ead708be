// PropertiesMap: one settings store, laid out in memory the host allocates.
//
// The host allocates the registered object size zero-filled, constructs with
// ObjectNew(store, 1), installs its iObj table at offset 8, sets properties
// (object fields written directly at config + position), calls InitDone, uses
// the store, calls PreClose and ObjectNew(store, 0), then frees the memory.
//
// Thread-safety: configuration (properties, root settings) is the host's
// business before and after service and takes no lock. In service, the tree,
// its values and `pending_root` are protected by `lock` when the locking
// flag is set and the lock exists; without it callers serialise. The change
// counts are atomic; `save_guard` serialises saves.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

#include "module/obj_services.h"
#include "registry/iregistry.h"
#include "support/owned_string.h"
#include "tree/tree.h"

namespace propmap {

// Properties live here; positions are counted from the block's start and are
// fixed by the property table.
struct ConfigBlock {
  PropertiesTree tree;          // 0: host, top root, current root
  uint32_t read_only;           // 24
  uint32_t host_setting_28;     // 28: kept for the host and the loader
  uint32_t host_setting_32;     // 32: read by the host only
  uint32_t flush_on_close;      // 36
  ixo::string_t name;           // 40..95: profile file name
  char name_reserve[56 - sizeof(ixo::string_t)];  // the rest of the name's 56 bytes
  uint32_t loader_flags;        // 96: bit value 2 creates a missing profile
  void* source;                 // 104: host stream used when the name is empty
  uint32_t locking;             // 112
  uint8_t backup_mode;          // 116: 0, 1 or 2
};

inline constexpr uint32_t kReadOnlyPosition = 24;
inline constexpr uint32_t kHostSetting28Position = 28;
inline constexpr uint32_t kHostSetting32Position = 32;
inline constexpr uint32_t kFlushOnClosePosition = 36;
inline constexpr uint32_t kNamePosition = 40;
inline constexpr uint32_t kNameEnd = 96;
inline constexpr uint32_t kLoaderFlagsPosition = 96;
inline constexpr uint32_t kSourcePosition = 104;
inline constexpr uint32_t kLockingPosition = 112;
inline constexpr uint32_t kBackupModePosition = 116;

struct PropertiesMap {
  iRegistry registry;    // 0: the 23 operations
  iObj obj;              // 8: object services; the tree's host is &obj
  uint64_t host_word;    // 16: reserved for the host, never touched
  ConfigBlock config;    // 24
  char* pending_root;    // root point given before a tree exists (host heap)
  pthread_rwlock_t lock;
  uint8_t lock_created;
  // A load that failed part-way: the next save keeps the file it could not
  // read whole as the rolling backup, whatever the name and backup mode.
  uint8_t keep_old_profile;
  uint8_t loaded;        // 1 after a successful load, 0 after a failed one
  uint8_t save_guard_created;
  // Bytes of the document last read or written, in the padding after the
  // flags: a save reserves about this much at once instead of growing its
  // text step by step. Only a hint, read and written relaxed.
  uint32_t document_size;
  // The store is dirty while these differ: `changes` counts every change of
  // the tree, `saved_changes` is the count the profile last matched. A save
  // reads `changes` with the text it builds, so a change made while it works
  // on the files keeps the store dirty. Atomic: a copy marks its source
  // under the shared lock.
  uint64_t changes;
  uint64_t saved_changes;
  // Counts deletions, which may free keys a copy holds handles to.
  uint64_t removals;
  // One save of this store at a time, so that an older text never lands
  // over a newer one. Error-checking: a save started from a trace callback
  // inside a save on the same thread gets EDEADLK's code instead of hanging.
  pthread_mutex_t save_guard;

  static PropertiesMap* From(void* object) { return static_cast<PropertiesMap*>(object); }
  static PropertiesMap* From(iRegistry* object) { return reinterpret_cast<PropertiesMap*>(object); }
  PropertiesTree* tree() { return &config.tree; }
  bool has_tree() const { return config.tree.root != nullptr; }
};

inline constexpr uint32_t kConfigOffset = 24;
static_assert(offsetof(PropertiesMap, obj) == 8);
static_assert(offsetof(PropertiesMap, config) == kConfigOffset);
static_assert(offsetof(ConfigBlock, read_only) == kReadOnlyPosition);
static_assert(offsetof(ConfigBlock, host_setting_28) == kHostSetting28Position);
static_assert(offsetof(ConfigBlock, host_setting_32) == kHostSetting32Position);
static_assert(offsetof(ConfigBlock, flush_on_close) == kFlushOnClosePosition);
static_assert(offsetof(ConfigBlock, name) == kNamePosition);
static_assert(offsetof(ConfigBlock, name) + sizeof(ixo::string_t) <= kNameEnd, "name must fit in 40..95");
static_assert(offsetof(ConfigBlock, loader_flags) == kLoaderFlagsPosition);
static_assert(offsetof(ConfigBlock, source) == kSourcePosition);
static_assert(offsetof(ConfigBlock, locking) == kLockingPosition);
static_assert(offsetof(ConfigBlock, backup_mode) == kBackupModePosition);

// Internal callbacks registered with the host.
tERROR ObjectNew(void* object, uint32_t construct);
tERROR InitDone(void* object);
tERROR PreClose(void* object);

// Property accessors: (object, out size, property id, buffer, buffer size).
using PropertyAccessor = tERROR (*)(void* object, uint32_t* size, uint32_t property_id, char* buffer,
                                    uint32_t buffer_size);
tERROR getName(void* object, uint32_t* size, uint32_t id, char* buffer, uint32_t buffer_size);
tERROR setName(void* object, uint32_t* size, uint32_t id, char* buffer, uint32_t buffer_size);
tERROR getRootKey(void* object, uint32_t* size, uint32_t id, char* buffer, uint32_t buffer_size);
tERROR setRootKey(void* object, uint32_t* size, uint32_t id, char* buffer, uint32_t buffer_size);
tERROR getRootPoint(void* object, uint32_t* size, uint32_t id, char* buffer, uint32_t buffer_size);
tERROR setRootPoint(void* object, uint32_t* size, uint32_t id, char* buffer, uint32_t buffer_size);

}  // namespace propmap
