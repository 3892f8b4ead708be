// Copying a subtree into another store through the destination's own
// operations, so that the destination may belong to another module instance.
#include <new>
#include <vector>

#include "module/mem_chunk.h"
#include "registry/operation_bodies.h"
#include "registry/operations.h"
#include "registry/store_access.h"
#include "registry/store_lock.h"
#include "registry/store_trace.h"

namespace propmap {
namespace {

// Reads value `index` of `source` (name, stored type, native bytes) and sets it
// in the destination key, creating it there.
tERROR CopyOneValue(PropertiesMap* store, hKey source, uint32_t index, iRegistry* destination,
                    hKey destination_key, cMemChunk* name, cMemChunk* data) {
  uint32_t size = 0;
  tERROR err = GetValueNameByIndexBody(store, &size, source, index, nullptr, 0);
  if (Failed(err)) return err;
  // Never hand out a null buffer: an empty text still gets its byte.
  void* name_buffer = name->Reserve(size + 1, false);
  if (name_buffer == nullptr) return ErrNoMemory;
  err = GetValueNameByIndexBody(store, &size, source, index, name_buffer, size + 1);
  if (Failed(err)) return err;

  uint32_t type = 0;
  err = GetValueByIndexBody(store, &size, source, index, &type, nullptr, 0);
  if (Failed(err)) return err;
  void* bytes = data->Reserve(size == 0 ? 1 : size, false);
  if (bytes == nullptr) return ErrNoMemory;
  err = GetValueByIndexBody(store, &size, source, index, &type, bytes, size);
  if (Failed(err)) return err;
  return destination->table->SetValue(destination, destination_key, static_cast<const char*>(name_buffer), type,
                                      bytes, size, 1);
}

// Opens sub-key `index` of `source` here and the same name below the
// destination key there (creating it).
tERROR OpenPair(PropertiesMap* store, hKey source, uint32_t index, iRegistry* destination, hKey destination_key,
                cMemChunk* name, hKey* source_child, hKey* destination_child) {
  uint32_t size = 0;
  tERROR err = GetKeyNameByIndexBody(store, &size, source, index, nullptr, 0, 0);
  if (Failed(err)) return err;
  char* name_buffer = static_cast<char*>(name->Reserve(size + 1, false));
  if (name_buffer == nullptr) return ErrNoMemory;
  err = GetKeyNameByIndexBody(store, &size, source, index, name_buffer, size + 1, 0);
  if (Failed(err)) return err;
  if (size == 0) name_buffer[0] = '\0';  // an unnamed key copies as ""
  err = OpenKeyBody(store, source_child, source, name_buffer, 0);
  if (Failed(err)) return err;
  err = destination->table->OpenKey(destination, destination_child, destination_key, name_buffer, 1);
  if (Failed(err)) CloseKeyBody(store, *source_child);
  return err;
}

// One key being copied: its handles here and there, and the next sub-key.
struct CopyFrame {
  hKey source;
  hKey destination;
  uint32_t next_child;
  uint32_t child_count;
};

// Values first, then sub-keys in order, depth first; the first failure ends
// the copy. Runs under this store's shared lock, taken by the caller.
tERROR CopySubtree(PropertiesMap* store, hKey source, iRegistry* destination, hKey destination_key) {
  cMemChunk name(&store->obj);
  cMemChunk data(&store->obj);
  std::vector<CopyFrame> stack;
  auto enter = [&](hKey from, hKey to) -> tERROR {
    uint32_t values = 0;
    tERROR err = GetValueCountBody(store, &values, from);
    for (uint32_t i = 0; Succeeded(err) && i < values; ++i) {
      err = CopyOneValue(store, from, i, destination, to, &name, &data);
    }
    uint32_t children = 0;
    if (Succeeded(err)) err = GetKeyCountBody(store, &children, from);
    if (Succeeded(err)) {
      try {
        stack.push_back({from, to, 0, children});
      } catch (const std::bad_alloc&) {
        err = ErrNoMemory;  // a deep tree outgrew the free store; nothing may escape to the host
      }
    }
    return err;
  };
  auto close = [&](const CopyFrame& frame) {
    destination->table->CloseKey(destination, frame.destination);
    CloseKeyBody(store, frame.source);
  };

  tERROR err = enter(source, destination_key);
  while (Succeeded(err) && !stack.empty()) {
    CopyFrame& frame = stack.back();
    if (frame.next_child == frame.child_count) {
      CopyFrame done = frame;
      stack.pop_back();
      if (!stack.empty()) close(done);  // the caller's own handles stay open
      continue;
    }
    hKey source_child = kInvalidHandle, destination_child = kInvalidHandle;
    err = OpenPair(store, frame.source, frame.next_child++, destination, frame.destination, &name,
                   &source_child, &destination_child);
    if (Succeeded(err)) {
      err = enter(source_child, destination_child);
      if (Failed(err)) close({source_child, destination_child, 0, 0});
    }
  }
  // Close whatever a failure left open, innermost first.
  while (stack.size() > 1) {
    close(stack.back());
    stack.pop_back();
  }
  return Failed(err) ? err : ResultOk;
}

}  // namespace

tERROR CopyKey(iRegistry* self, hKey source, iRegistry* destination, hKey destination_key) {
  PropertiesMap* store = PropertiesMap::From(self);
  StoreLock lock(store, LockMode::kShared);
  tERROR err = destination == nullptr ? ErrBadParameter : CopySubtree(store, source, destination, destination_key);
  // The source store is marked, not the destination.
  if (Succeeded(err)) MarkDirty(store);
  TraceOperation(store, "CopyKey", err);
  return err;
}

tERROR CopyKeyByName(iRegistry* self, const char* path, iRegistry* destination) {
  PropertiesMap* store = PropertiesMap::From(self);
  StoreLock lock(store, LockMode::kShared);
  tERROR err = ErrBadParameter;
  if (destination != nullptr) {
    hKey source = kInvalidHandle;
    err = OpenKeyBody(store, &source, 0, path, 0);
    if (Succeeded(err)) err = CopySubtree(store, source, destination, 0);
  }
  if (Succeeded(err)) MarkDirty(store);
  TraceOperation(store, "CopyKeyByName", err);
  return err;
}

}  // namespace propmap
