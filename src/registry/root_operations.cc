// Configuration accessors and the two root operations. None takes the store
// lock: the host configures a store before putting it into service.
#include <cstring>
#include <new>

#include "registry/operation.h"
#include "registry/operations.h"
#include "registry/store_trace.h"
#include "registry/text_out.h"
#include "support/exception.h"

namespace propmap {
namespace {

tERROR StorePendingRoot(PropertiesMap* store, const char* text, uint32_t length) {
  if (!HeapAvailable(&store->obj)) return ErrNotImplemented;
  // The copy needs length + 1 bytes, which a 32-bit count cannot ask for
  // when the size is all ones.
  if (length == UINT32_MAX) return ErrNoMemory;
  void* block = nullptr;
  tERROR err = HeapAlloc(&store->obj, &block, length + 1);
  if (Failed(err)) return err;
  char* copy = static_cast<char*>(block);
  std::memcpy(copy, text, length);
  copy[length] = '\0';
  HeapFree(&store->obj, store->pending_root);
  store->pending_root = copy;
  return ResultOk;
}

}  // namespace

tERROR getName(void* object, uint32_t* size, uint32_t, char* buffer, uint32_t buffer_size) {
  PropertiesMap* store = PropertiesMap::From(object);
  const ixo::string_t& name = store->config.name;
  const uint64_t needed = uint64_t{name.size()} + 1;
  if (size != nullptr) *size = static_cast<uint32_t>(needed);
  tERROR err = ResultOk;
  if (needed > buffer_size) {
    err = ErrBufferTooSmall;
  } else if (buffer == nullptr) {
    err = ErrBadParameter;
  } else {
    std::memcpy(buffer, name.c_str(), needed);
  }
  TraceOperation(store, "getName", err);
  return err;
}

tERROR setName(void* object, uint32_t* size, uint32_t, char* buffer, uint32_t buffer_size) {
  PropertiesMap* store = PropertiesMap::From(object);
  if (buffer == nullptr) return ErrBadParameter;
  tERROR err = ResultOk;
  try {
    // The size counts the terminating NUL; 0 wraps to an impossible length.
    ixo::string_t name(buffer, static_cast<uint32_t>(buffer_size - 1));
    store->config.name.swap(name);
    if (size != nullptr) *size = 0;
  } catch (const ixo::Exception& e) {
    err = ResultFromException(e);
  } catch (const std::bad_alloc&) {
    err = ErrNoMemory;
  }
  TraceOperation(store, "setName", err);
  return err;
}

tERROR getRootKey(void* object, uint32_t* size, uint32_t, char* buffer, uint32_t buffer_size) {
  PropertiesMap* store = PropertiesMap::From(object);
  tERROR err = ResultOk;
  if (store->has_tree()) {
    if (size != nullptr) *size = sizeof(hKey);
    if (buffer == nullptr) {
      err = buffer_size != 0 ? ErrBadParameter : ResultOk;
    } else if (buffer_size < sizeof(hKey)) {
      err = ErrBufferTooSmall;
    } else {
      hKey handle = reinterpret_cast<hKey>(store->tree()->current);
      std::memcpy(buffer, &handle, sizeof(handle));
    }
  } else {
    const char* pending = store->pending_root;
    err = CopyTextOut(pending, pending != nullptr ? std::strlen(pending) : 0, buffer, buffer_size, size);
  }
  Trace(store, kTraceOperation, "%s : %terr", "getRootKey", err);
  return err;
}

tERROR setRootKey(void* object, uint32_t* size, uint32_t, char* buffer, uint32_t buffer_size) {
  PropertiesMap* store = PropertiesMap::From(object);
  if (size != nullptr) *size = 0;
  tERROR err = ErrBadParameter;
  if (buffer != nullptr && buffer_size >= sizeof(hKey)) {
    hKey handle = 0;
    std::memcpy(&handle, buffer, sizeof(handle));
    err = SetRootKeyUnlocked(store, handle);
  }
  TraceOperation(store, "setRootKey", err);
  return err;
}

tERROR getRootPoint(void* object, uint32_t* size, uint32_t, char* buffer, uint32_t buffer_size) {
  PropertiesMap* store = PropertiesMap::From(object);
  if (size != nullptr) *size = 0;
  PropertiesTree* tree = store->tree();
  tERROR err = store->has_tree()
                   ? CopyKeyPathOut(tree, tree->root, tree->current, buffer, buffer_size, size)
                   : ErrNotImplemented;
  TraceOperation(store, "getRootPoint", err);
  return err;
}

tERROR setRootPoint(void* object, uint32_t* size, uint32_t, char* buffer, uint32_t buffer_size) {
  PropertiesMap* store = PropertiesMap::From(object);
  if (size != nullptr) *size = 0;
  tERROR err;
  if (buffer == nullptr) {
    err = ErrBadParameter;
  } else if (store->has_tree()) {
    err = SetRootStrUnlocked(store, buffer);
    Trace(store, kTraceOperation, "Setting root to %s: %terr", buffer, err);
  } else {
    err = StorePendingRoot(store, buffer, buffer_size);
  }
  TraceOperation(store, "setRootPoint", err);
  return err;
}

tERROR SetRootKeyUnlocked(PropertiesMap* store, hKey key) {
  if (!store->has_tree()) return ErrNotImplemented;
  return SetCurrentKey(store->tree(), reinterpret_cast<KeyNode*>(key));
}

tERROR SetRootStrUnlocked(PropertiesMap* store, const char* path) {
  if (!store->has_tree()) return ErrNotImplemented;
  return SetCurrentKeyByPath(store->tree(), path);
}

// Neither takes the lock: the host sets the root before putting a store
// into service.
tERROR SetRootKey(iRegistry* self, hKey key) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, LockMode::kNone, [&] { return SetRootKeyUnlocked(store, key); },
      [&](tERROR e) { TraceOperation(store, "SetRootKey", e); });
}

tERROR SetRootStr(iRegistry* self, const char* path) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, LockMode::kNone, [&] { return SetRootStrUnlocked(store, path); },
      [&](tERROR e) { TraceOperation(store, "SetRootStr", e); });
}

}  // namespace propmap
