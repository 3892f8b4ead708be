// Copying a subtree into another store through the destination's own
// operations, so that the destination may belong to another module instance.
//
// A copy into another store holds this store's shared lock only while it
// reads, never across a call of the destination: two stores copying into
// each other at once would otherwise each wait for the other's lock. Keys
// and values may be added between two reads; a deletion stops the copy with
// ErrBusy rather than follow a handle that may be gone.
//
// A copy into the same store runs under that store's write lock alone and
// calls its own operations without locking again. It skips the destination
// key when it meets it in the source subtree: everything the copy writes lies
// below that key, so the subtree is copied as it was when the copy began
// (copying A into A/backup copies A once, without a backup inside backup).
#include <new>
#include <optional>
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

// One key being copied: its handles here and there, and the next sub-key.
struct CopyFrame {
  hKey source;
  hKey destination;
  uint32_t next_child;
  uint32_t child_count;
};

// Takes the source's shared lock for each run of reads of a copy into
// another store; a copy within one store already holds the write lock.
// Between two runs other threads may change the source. Additions are
// harmless; after a deletion the keys the copy holds are checked, from its
// start down, to still hang where it found them, and the copy ends with
// ErrBusy instead of following a key that may be gone.
class SourceReads {
 public:
  SourceReads(PropertiesMap* store, bool same_store, const std::vector<CopyFrame>* stack)
      : store_(store), same_store_(same_store), stack_(stack) {}
  // A start key the copy opened itself by `path` when the count of
  // deletions was `removals`: it is checked by path as well.
  void set_start(hKey start, const char* path, uint64_t removals) {
    start_ = start;
    start_path_ = path;
    seen_ = removals;
    started_ = true;
  }

  tERROR Begin() {
    if (same_store_) return ResultOk;
    lock_.emplace(store_, LockMode::kShared);
    if (Failed(lock_->status())) return lock_->status();
    const uint64_t removals = RemovalCount(store_);
    if (started_ && removals != seen_ && !KeysStillInPlace()) return ErrBusy;
    seen_ = removals;
    started_ = true;
    return ResultOk;
  }
  void End() { lock_.reset(); }
  // A sub-key opened below the innermost frame and not yet entered.
  void set_pending(hKey key) { pending_ = key; }

 private:
  bool IsChild(hKey parent, hKey child) {
    KeyNode* key = Resolve(store_, parent);
    for (KeyNode* c = key != nullptr ? key->FirstChild() : nullptr; c != nullptr; c = key->NextChild(c)) {
      if (ToHandle(c) == child) return true;
    }
    return false;
  }
  bool KeysStillInPlace() {
    if (start_path_ != nullptr) {
      KeyNode* root = Resolve(store_, 0);
      if (root == nullptr || ToHandle(FindKey(root, start_path_)) != start_) return false;
    }
    const std::vector<CopyFrame>& stack = *stack_;
    for (size_t i = 1; i < stack.size(); ++i) {
      if (!IsChild(stack[i - 1].source, stack[i].source)) return false;
    }
    return pending_ == kInvalidHandle || stack.empty() || IsChild(stack.back().source, pending_);
  }

  PropertiesMap* store_;
  bool same_store_;
  const std::vector<CopyFrame>* stack_;
  hKey pending_ = kInvalidHandle;
  hKey start_ = kInvalidHandle;
  const char* start_path_ = nullptr;
  bool started_ = false;
  uint64_t seen_ = 0;
  std::optional<StoreLock> lock_;
};

// Reads value `index` of `source` (name, stored type, native bytes) and sets it
// in the destination key, creating it there.
tERROR CopyOneValue(PropertiesMap* store, SourceReads* reads, hKey source, uint32_t index,
                    const Destination& destination, hKey destination_key, cMemChunk* name, cMemChunk* data) {
  constexpr LockMode kHeld = LockMode::kNone;
  uint32_t size = 0;
  uint32_t type = 0;
  tERROR err = reads->Begin();
  if (Succeeded(err)) err = GetValueNameByIndexOn(store, kHeld, &size, source, index, nullptr, 0);
  // Never hand out a null buffer: an empty text still gets its byte.
  if (Succeeded(err)) err = name->Ensure(uint64_t{size} + 1, false);
  if (Succeeded(err)) err = GetValueNameByIndexOn(store, kHeld, &size, source, index, name->data(), size + 1);
  if (Succeeded(err)) err = GetValueByIndexOn(store, kHeld, &size, source, index, &type, nullptr, 0);
  if (Succeeded(err)) err = data->Ensure(size == 0 ? 1 : size, false);
  if (Succeeded(err)) err = GetValueByIndexOn(store, kHeld, &size, source, index, &type, data->data(), size);
  reads->End();
  if (Failed(err)) return err;
  return destination.SetValue(destination_key, name->as<const char>(), type, data->data(), size);
}

// Opens sub-key `index` of `source` here and the same name below the
// destination key there (creating it). A sub-key that is `skip` is closed
// again and reported as *skipped.
tERROR OpenPair(PropertiesMap* store, SourceReads* reads, hKey source, uint32_t index,
                const Destination& destination, hKey destination_key, hKey skip, cMemChunk* name,
                hKey* source_child, hKey* destination_child, bool* skipped) {
  constexpr LockMode kHeld = LockMode::kNone;
  uint32_t size = 0;
  tERROR err = reads->Begin();
  if (Succeeded(err)) err = GetKeyNameByIndexOn(store, kHeld, &size, source, index, nullptr, 0, 0);
  if (Succeeded(err)) err = name->Ensure(uint64_t{size} + 1, false);
  char* name_buffer = name->as<char>();
  if (Succeeded(err)) err = GetKeyNameByIndexOn(store, kHeld, &size, source, index, name_buffer, size + 1, 0);
  if (Succeeded(err) && size == 0) name_buffer[0] = '\0';  // an unnamed key copies as ""
  if (Succeeded(err)) err = OpenKeyOn(store, kHeld, source_child, source, name_buffer, 0);
  if (Succeeded(err)) reads->set_pending(*source_child);
  *skipped = Succeeded(err) && *source_child == skip;
  if (*skipped) {
    CloseKeyOn(store, kHeld, *source_child);
    reads->set_pending(kInvalidHandle);
  }
  reads->End();
  if (Failed(err) || *skipped) return err;
  err = destination.OpenKey(destination_child, destination_key, name_buffer);
  if (Failed(err)) {
    (void)reads->Begin();
    CloseKeyOn(store, kHeld, *source_child);
    reads->End();
    reads->set_pending(kInvalidHandle);
  }
  return err;
}

// Values first, then sub-keys in order, depth first; the first failure ends
// the copy. A copy within one store runs under its write lock, taken by the
// caller; `reads` locks the source of any other copy.
tERROR CopySubtree(PropertiesMap* store, hKey source, const Destination& destination, hKey destination_key,
                   const char* source_path = nullptr, uint64_t removals = 0) {
  constexpr LockMode kHeld = LockMode::kNone;
  // Within one store, the destination key itself is never copied from.
  hKey skip = kInvalidHandle;
  if (destination.same_store()) {
    if (KeyNode* node = Resolve(store, destination_key); node != nullptr) skip = ToHandle(node);
  }
  cMemChunk name(&store->obj);
  cMemChunk data(&store->obj);
  std::vector<CopyFrame> stack;
  SourceReads source_reads(store, destination.same_store(), &stack);
  SourceReads* reads = &source_reads;
  if (source_path != nullptr) reads->set_start(source, source_path, removals);
  auto enter = [&](hKey from, hKey to) -> tERROR {
    uint32_t values = 0;
    tERROR err = reads->Begin();
    if (Succeeded(err)) err = GetValueCountOn(store, kHeld, &values, from);
    reads->End();
    for (uint32_t i = 0; Succeeded(err) && i < values; ++i) {
      err = CopyOneValue(store, reads, from, i, destination, to, &name, &data);
    }
    uint32_t children = 0;
    if (Succeeded(err)) err = reads->Begin();
    if (Succeeded(err)) err = GetKeyCountOn(store, kHeld, &children, from);
    reads->End();
    if (Succeeded(err)) {
      try {
        stack.push_back({from, to, 0, children});
        reads->set_pending(kInvalidHandle);
      } catch (const std::bad_alloc&) {
        err = ErrNoMemory;  // caught here so that the open handles are still closed in order
      }
    }
    return err;
  };
  auto close = [&](const CopyFrame& frame) {
    destination.CloseKey(frame.destination);
    (void)reads->Begin();
    CloseKeyOn(store, kHeld, frame.source);
    reads->End();
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
    err = OpenPair(store, reads, frame.source, frame.next_child++, destination, frame.destination, skip, &name,
                   &source_child, &destination_child, &skipped);
    if (Succeeded(err) && !skipped) {
      err = enter(source_child, destination_child);
      if (Failed(err)) {
        close({source_child, destination_child, 0, 0});
        reads->set_pending(kInvalidHandle);
      }
    }
  }
  // Close whatever a failure left open, innermost first.
  while (stack.size() > 1) {
    close(stack.back());
    stack.pop_back();
  }
  return Failed(err) ? err : ResultOk;
}

// A copy within one store writes it and holds its write lock throughout;
// any other copy locks its source for each run of reads (SourceReads).
LockMode CopyLockMode(PropertiesMap* store, iRegistry* destination) {
  return destination == &store->registry ? LockMode::kExclusive : LockMode::kNone;
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
        const Destination to(store, destination);
        hKey source = kInvalidHandle;
        uint64_t removals = 0;
        tERROR err;
        {
          StoreLock lock(store, to.same_store() ? LockMode::kNone : LockMode::kShared);
          err = lock.status();
          if (Succeeded(err)) err = OpenKeyOn(store, LockMode::kNone, &source, 0, path, 0);
          removals = RemovalCount(store);
        }
        if (Succeeded(err)) err = CopySubtree(store, source, to, 0, path, removals);
        if (Succeeded(err)) MarkDirty(store);
        return err;
      },
      [&](tERROR e) { TraceOperation(store, "CopyKeyByName", e); });
}

}  // namespace propmap
