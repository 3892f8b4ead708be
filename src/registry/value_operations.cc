// Reading and writing values, with conversion between the caller's type and
// the stored one.
#include <cstring>

#include "module/trace.h"
#include "registry/operation.h"
#include "registry/operation_bodies.h"
#include "registry/operations.h"
#include "registry/store_access.h"
#include "registry/store_trace.h"
#include "registry/text_out.h"
#include "registry/value_conversion.h"

namespace propmap {
namespace {

// A tBINARY value whose stored size equals the caller's size is exchanged as
// raw bytes whatever type was asked for.
tERROR ApplyExactSizeRule(PropertiesMap* store, const iValue* value, uint32_t caller_size, tag_TYPE_ID* requested) {
  if (value->GetTypeId() != tBINARY) return ResultOk;
  uint32_t stored_size = 0;
  tERROR err = value->GetData(nullptr, 0, &stored_size);
  if (Failed(err)) {
    Trace(store, kTraceError, "Failed to get value: %terr", err);
    return err;
  }
  if (stored_size == caller_size) *requested = tBINARY;
  return ResultOk;
}

tERROR ReadValue(PropertiesMap* store, const iValue* value, uint32_t* type, void* buffer, uint32_t buffer_size,
                 uint32_t* size) {
  const tag_TYPE_ID stored = value->GetTypeId();
  if (type != nullptr && *type == 0) *type = stored;
  if (type == nullptr) return ErrBadParameter;
  tag_TYPE_ID requested = *type != 0 ? *type : stored;
  tERROR err = ApplyExactSizeRule(store, value, buffer_size, &requested);
  if (Failed(err)) return err;
  if (requested == stored) return value->GetData(buffer, buffer_size, size);
  return ReadConverted(&store->obj, value, requested, buffer, buffer_size, size);
}

// Stores into an existing value; marks the store dirty on a change.
tERROR WriteValue(PropertiesMap* store, iValue* value, tag_TYPE_ID requested, const void* data, uint32_t size) {
  const tag_TYPE_ID stored = value->GetTypeId();
  static const wchar_t kEmptyWide[1] = {0};
  if (requested == tSTRING_OBJ) {
    if (data == nullptr) return ErrBadParameter;
    const auto* object = static_cast<const StringObject*>(data);
    const uint64_t bytes = object->chars != nullptr ? uint64_t{4} * object->count : 0;
    if (bytes > UINT32_MAX) return ErrNoMemory;  // a 32-bit size cannot carry it
    data = object->chars != nullptr ? object->chars : kEmptyWide;
    size = static_cast<uint32_t>(bytes);
    requested = tWSTRING;
  }
  // Wide strings take the caller's bytes as they are, whatever the type.
  if (requested == stored || stored == tWSTRING) {
    tERROR err = value->SetData(data, size);
    if (Failed(err)) return err;
    if (err != ValueUnchanged) MarkDirty(store);
    return ResultOk;
  }
  tERROR err = ApplyExactSizeRule(store, value, size, &requested);
  if (Failed(err)) return err;
  err = WriteConverted(&store->obj, value, requested, data, size);
  if (Failed(err)) return err;
  MarkDirty(store);  // through text even an equal content counts as a change
  return ResultOk;
}

// Writes into `existing`, or when there is none and `create` is set, adds a
// value through `add`; either way a change marks the store dirty.
template <typename Add>
tERROR WriteOrAdd(PropertiesMap* store, iValue* existing, tag_TYPE_ID type, const void* data, uint32_t size,
                  uint32_t create, Add add) {
  if (existing != nullptr) return WriteValue(store, existing, type, data, size);
  if (create == 0) return ErrNotFound;
  tERROR err = add();
  if (Succeeded(err)) MarkDirty(store);
  return err;
}

}  // namespace

tERROR GetValue(iRegistry* self, uint32_t* size, hKey key, const char* name, uint32_t* type, void* buffer,
                uint32_t buffer_size) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, LockMode::kShared,
      [&] {
        KeyNode* node = Resolve(store, key);
        if (node == nullptr) return ErrInvalidHandle;
        if (name == nullptr) return ErrBadParameter;
        const iValue* value = FindValue(node, name);
        return value != nullptr ? ReadValue(store, value, type, buffer, buffer_size, size) : ErrNotFound;
      },
      [&](tERROR e) { Trace(store, kTraceOperation, "prmap\tGetting value %s\\%s: %terr", "?", name, e); });
}

tERROR GetValueByIndexOn(PropertiesMap* store, LockMode lock, uint32_t* size, hKey key, uint32_t index,
                         uint32_t* type, void* buffer, uint32_t buffer_size) {
  return RunOperation(
      store, lock,
      [&] {
        KeyNode* node = Resolve(store, key);
        if (node == nullptr) return ErrInvalidHandle;
        const iValue* value = propmap::GetValueByIndex(node, index);
        return value != nullptr ? ReadValue(store, value, type, buffer, buffer_size, size) : ErrNotFound;
      },
      [&](tERROR e) {
        Trace(store, kTraceOperation, "prmap\tGetting value by index %d: %terr", static_cast<int>(index), e);
      });
}

tERROR GetValueByIndex(iRegistry* self, uint32_t* size, hKey key, uint32_t index, uint32_t* type, void* buffer,
                       uint32_t buffer_size) noexcept {
  return GetValueByIndexOn(PropertiesMap::From(self), LockMode::kShared, size, key, index, type, buffer,
                           buffer_size);
}

tERROR GetValueNameByIndexOn(PropertiesMap* store, LockMode lock, uint32_t* size, hKey key, uint32_t index,
                             void* buffer, uint32_t buffer_size) {
  return RunOperation(
      store, lock,
      [&] {
        KeyNode* node = Resolve(store, key);
        if (node == nullptr) {
          if (size != nullptr) *size = 0;
          return ErrInvalidHandle;
        }
        // Past the last value there is no text: size 0, and not an error.
        const char* name = GetValueNameByIndex(node, index);
        return CopyTextOut(name, name != nullptr ? std::strlen(name) : 0, buffer, buffer_size, size);
      },
      [&](tERROR e) { TraceOperation(store, "GetValueNameByIndex", e); });
}

tERROR GetValueNameByIndex(iRegistry* self, uint32_t* size, hKey key, uint32_t index, void* buffer,
                           uint32_t buffer_size) noexcept {
  return GetValueNameByIndexOn(PropertiesMap::From(self), LockMode::kShared, size, key, index, buffer, buffer_size);
}

tERROR SetValueOn(PropertiesMap* store, LockMode lock, hKey key, const char* name, uint32_t type, const void* data,
                  uint32_t size, uint32_t create) {
  return RunOperation(
      store, lock,
      [&] {
        if (IsReadOnly(store)) return ErrReadOnly;
        KeyNode* node = Resolve(store, key);
        if (node == nullptr) return ErrInvalidHandle;
        if (name == nullptr) return ErrBadParameter;
        return WriteOrAdd(store, FindValue(node, name), type, data, size, create,
                          [&] { return AddUniqueValue(node, name, type, data, size); });
      },
      [&](tERROR e) {
        // Deliberately silent for an unresolvable key; no other step gives that code.
        if (e == ErrInvalidHandle) return;
        Trace(store, kTraceOperation, "prmap\t%s %s (0x%x:%d): %terr", "SetValue", name,
              Low32(reinterpret_cast<uint64_t>(data)), static_cast<int>(size), e);
      });
}

tERROR SetValue(iRegistry* self, hKey key, const char* name, uint32_t type, const void* data, uint32_t size,
                uint32_t create) noexcept {
  return SetValueOn(PropertiesMap::From(self), LockMode::kExclusive, key, name, type, data, size, create);
}

tERROR SetValueByIndex(iRegistry* self, hKey key, uint32_t index, uint32_t type, const void* data, uint32_t size,
                       uint32_t create) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, LockMode::kExclusive,
      [&] {
        if (IsReadOnly(store)) return ErrReadOnly;
        KeyNode* node = Resolve(store, key);
        if (node == nullptr) return ErrInvalidHandle;
        return WriteOrAdd(store, propmap::GetValueByIndex(node, index), type, data, size, create,
                          [&] { return AddValueAt(node, index, type, data, size); });
      },
      [&](tERROR e) {
        Trace(store, kTraceOperation, "prmap\t%s %d (0x%x:%d): %terr", "SetValueByIndex", static_cast<int>(index),
              Low32(reinterpret_cast<uint64_t>(data)), static_cast<int>(size), e);
      });
}

}  // namespace propmap
