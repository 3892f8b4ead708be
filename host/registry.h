// Typed calls into a store's iRegistry table.
//
// A Registry is a non-owning view of a store object: each method reads the
// table at the object's first word and calls the slot with the object and the
// arguments exactly as the interface lists them. Nothing is checked or
// converted here; tests see the module's own results and outputs.
//
// Thread-safety: as safe as the module's operations; the view holds no state
// beyond the object pointer.
#pragma once

#include <cstdint>

#include "abi.h"

namespace prhost {

enum RegistrySlot : uint32_t {
  kOpenKey = 0,
  kOpenKeyByIndex,
  kOpenNextKey,
  kCloseKey,
  kGetKeyName,
  kGetKeyNameByIndex,
  kGetValue,
  kGetValueByIndex,
  kGetValueNameByIndex,
  kSetValue,
  kSetValueByIndex,
  kGetKeyCount,
  kGetValueCount,
  kDeleteKey,
  kDeleteKeyByInd,
  kDeleteValue,
  kDeleteValueByInd,
  kClean,
  kCopyKey,
  kCopyKeyByName,
  kSetRootKey,
  kSetRootStr,
  kFlush,
};
static_assert(kFlush + 1 == kRegistrySlots);

class Registry {
 public:
  explicit Registry(void* object) : object_(object) {}

  void* object() const { return object_; }
  // The table currently installed at the object's first word.
  void* const* table() const { return *static_cast<void* const* const*>(object_); }
  void* Slot(uint32_t slot) const { return table()[slot]; }

  // Keys.
  tERROR OpenKey(hKey* key, hKey parent, const char* path, uint32_t create) const;
  tERROR OpenKeyByIndex(hKey* key, hKey parent, uint32_t index) const;
  tERROR OpenNextKey(hKey* next, hKey key) const;
  tERROR CloseKey(hKey key) const;
  tERROR GetKeyName(uint32_t* size, hKey key, void* buffer, uint32_t buffer_size, uint32_t full_path) const;
  tERROR GetKeyNameByIndex(uint32_t* size, hKey parent, uint32_t index, void* buffer, uint32_t buffer_size,
                           uint32_t full_path) const;

  // Values.
  tERROR GetValue(uint32_t* size, hKey key, const char* name, uint32_t* type, void* buffer,
                  uint32_t buffer_size) const;
  tERROR GetValueByIndex(uint32_t* size, hKey key, uint32_t index, uint32_t* type, void* buffer,
                         uint32_t buffer_size) const;
  tERROR GetValueNameByIndex(uint32_t* size, hKey key, uint32_t index, void* buffer, uint32_t buffer_size) const;
  tERROR SetValue(hKey key, const char* name, uint32_t type, const void* data, uint32_t size,
                  uint32_t create) const;
  tERROR SetValueByIndex(hKey key, uint32_t index, uint32_t type, const void* data, uint32_t size,
                         uint32_t create) const;

  // Counts.
  tERROR GetKeyCount(uint32_t* count, hKey key) const;
  tERROR GetValueCount(uint32_t* count, hKey key) const;

  // Deletion.
  tERROR DeleteKey(hKey parent, const char* path) const;
  tERROR DeleteKeyByInd(hKey parent, uint32_t index) const;
  tERROR DeleteValue(hKey key, const char* name) const;
  tERROR DeleteValueByInd(hKey key, uint32_t index) const;
  tERROR Clean() const;

  // Copying into another store (any object whose first word is an iRegistry table).
  tERROR CopyKey(hKey source, void* destination_store, hKey destination_key) const;
  tERROR CopyKeyByName(const char* path, void* destination_store) const;

  // Root and persistence.
  tERROR SetRootKey(hKey key) const;
  tERROR SetRootStr(const char* path) const;
  tERROR Flush(uint32_t flag) const;

 private:
  template <typename... Args>
  tERROR Call(uint32_t slot, Args... args) const {
    using Fn = tERROR (*)(void*, Args...);
    return reinterpret_cast<Fn>(Slot(slot))(object_, args...);
  }

  void* object_;
};

}  // namespace prhost
