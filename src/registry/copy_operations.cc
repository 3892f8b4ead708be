// Copying a subtree into another store through the destination's own
// operations, so that the destination may belong to another module instance.
//
// A copy into the same store runs under that store's write lock alone and
// calls its own operations without locking again. It skips the destination
// key when it meets it in the source subtree: everything the copy writes lies
// below that key, so the subtree is copied as it was when the copy began
// (copying A into A/backup copies A once, without a backup inside backup).
#include <new>
#include <vector>

#include "module/mem_chunk.h"
#include "registry/operation.h"
#include "registry/operation_bodies.h"
#include "registry/operations.h"
#include "registry/store_access.h"
#include "registry/store_trace.h"

namespace propmap {
namespace {

// Where the copy writes: another store through its table, or this store.
class Destination {
 public:
  Destination(PropertiesMap* store, iRegistry* destination)
      : remote_(destination == &store->registry ? nullptr : destination), store_(store) {}

  bool same_store() const { return remote_ == nullptr; }

  tERROR OpenKey(hKey* key, hKey parent, const char* path) const {
    if (remote_ != nullptr) return remote_->table->OpenKey(remote_, key, parent, path, 1);
    return OpenKeyOn(store_, LockMode::kNone, key, parent, path, 1);
  }
  tERROR SetValue(hKey key, const char* name, uint32_t type, const void* data, uint32_t size) const {
    if (remote_ != nullptr) return remote_->table->SetValue(remote_, key, name, type, data, size, 1);
    return SetValueOn(store_, LockMode::kNone, key, name, type, data, size, 1);
  }
  void CloseKey(hKey key) const {
    if (remote_ != nullptr) {
      remote_->table->CloseKey(remote_, key);
    } else {
      CloseKeyOn(store_, LockMode::kNone, key);
    }
  }

 private:
  iRegistry* remote_;
  PropertiesMap* store_;
};

// Reads value `index` of `source` (name, stored type, native bytes) and sets it
// in the destination key, creating it there.
tERROR CopyOneValue(PropertiesMap* store, hKey source, uint32_t index, const Destination& destination,
                    hKey destination_key, cMemChunk* name, cMemChunk* data) {
  constexpr LockMode kHeld = LockMode::kNone;
  uint32_t size = 0;
  tERROR err = GetValueNameByIndexOn(store, kHeld, &size, source, index, nullptr, 0);
  if (Failed(err)) return err;
  // Never hand out a null buffer: an empty text still gets its byte.
  err = name->Ensure(uint64_t{size} + 1, false);
  if (Failed(err)) return err;
  err = GetValueNameByIndexOn(store, kHeld, &size, source, index, name->data(), size + 1);
  if (Failed(err)) return err;

  uint32_t type = 0;
  err = GetValueByIndexOn(store, kHeld, &size, source, index, &type, nullptr, 0);
  if (Failed(err)) return err;
  err = data->Ensure(size == 0 ? 1 : size, false);
  if (Failed(err)) return err;
  err = GetValueByIndexOn(store, kHeld, &size, source, index, &type, data->data(), size);
  if (Failed(err)) return err;
  return destination.SetValue(destination_key, name->as<const char>(), type, data->data(), size);
}

// Opens sub-key `index` of `source` here and the same name below the
// destination key there (creating it). A sub-key that is `skip` is closed
// again and reported as *skipped.
tERROR OpenPair(PropertiesMap* store, hKey source, uint32_t index, const Destination& destination,
                hKey destination_key, hKey skip, cMemChunk* name, hKey* source_child, hKey* destination_child,
                bool* skipped) {
  constexpr LockMode kHeld = LockMode::kNone;
  uint32_t size = 0;
  tERROR err = GetKeyNameByIndexOn(store, kHeld, &size, source, index, nullptr, 0, 0);
  if (Failed(err)) return err;
  err = name->Ensure(uint64_t{size} + 1, false);
  if (Failed(err)) return err;
  char* name_buffer = name->as<char>();
  err = GetKeyNameByIndexOn(store, kHeld, &size, source, index, name_buffer, size + 1, 0);
  if (Failed(err)) return err;
  if (size == 0) name_buffer[0] = '\0';  // an unnamed key copies as ""
  err = OpenKeyOn(store, kHeld, source_child, source, name_buffer, 0);
  if (Failed(err)) return err;
  *skipped = *source_child == skip;
  if (*skipped) {
    CloseKeyOn(store, kHeld, *source_child);
    return ResultOk;
  }
  err = destination.OpenKey(destination_child, destination_key, name_buffer);
  if (Failed(err)) CloseKeyOn(store, kHeld, *source_child);
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
// the copy. Runs under this store's lock, taken by the caller.
tERROR CopySubtree(PropertiesMap* store, hKey source, const Destination& destination, hKey destination_key) {
  constexpr LockMode kHeld = LockMode::kNone;
  // Within one store, the destination key itself is never copied from.
  hKey skip = kInvalidHandle;
  if (destination.same_store()) {
    if (KeyNode* node = Resolve(store, destination_key); node != nullptr) skip = ToHandle(node);
  }
  cMemChunk name(&store->obj);
  cMemChunk data(&store->obj);
  std::vector<CopyFrame> stack;
  auto enter = [&](hKey from, hKey to) -> tERROR {
    uint32_t values = 0;
    tERROR err = GetValueCountOn(store, kHeld, &values, from);
    for (uint32_t i = 0; Succeeded(err) && i < values; ++i) {
      err = CopyOneValue(store, from, i, destination, to, &name, &data);
    }
    uint32_t children = 0;
    if (Succeeded(err)) err = GetKeyCountOn(store, kHeld, &children, from);
    if (Succeeded(err)) {
      try {
        stack.push_back({from, to, 0, children});
      } catch (const std::bad_alloc&) {
        err = ErrNoMemory;  // caught here so that the open handles are still closed in order
      }
    }
    return err;
  };
  auto close = [&](const CopyFrame& frame) {
    destination.CloseKey(frame.destination);
    CloseKeyOn(store, kHeld, frame.source);
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
    bool skipped = false;
    err = OpenPair(store, frame.source, frame.next_child++, destination, frame.destination, skip, &name,
                   &source_child, &destination_child, &skipped);
    if (Succeeded(err) && !skipped) {
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

// A copy only reads its own store, unless it writes into it too.
LockMode CopyLockMode(PropertiesMap* store, iRegistry* destination) {
  return destination == &store->registry ? LockMode::kExclusive : LockMode::kShared;
}

}  // namespace

tERROR CopyKey(iRegistry* self, hKey source, iRegistry* destination, hKey destination_key) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, CopyLockMode(store, destination),
      [&] {
        if (destination == nullptr) return ErrBadParameter;
        const tERROR err = CopySubtree(store, source, Destination(store, destination), destination_key);
        // The source store is marked, not the destination.
        if (Succeeded(err)) MarkDirty(store);
        return err;
      },
      [&](tERROR e) { TraceOperation(store, "CopyKey", e); });
}

tERROR CopyKeyByName(iRegistry* self, const char* path, iRegistry* destination) noexcept {
  PropertiesMap* store = PropertiesMap::From(self);
  return RunOperation(
      store, CopyLockMode(store, destination),
      [&] {
        if (destination == nullptr) return ErrBadParameter;
        hKey source = kInvalidHandle;
        tERROR err = OpenKeyOn(store, LockMode::kNone, &source, 0, path, 0);
        if (Succeeded(err)) err = CopySubtree(store, source, Destination(store, destination), 0);
        if (Succeeded(err)) MarkDirty(store);
        return err;
      },
      [&](tERROR e) { TraceOperation(store, "CopyKeyByName", e); });
}

}  // namespace propmap
