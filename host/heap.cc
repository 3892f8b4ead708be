#include "heap.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" __attribute__((noinline)) void prhost_heap_fault_hit() {
  // Kept out of line and non-empty so that a breakpoint here always binds.
  asm volatile("" ::: "memory");
}

namespace prhost {

StoreHeap::StoreHeap(std::string label) : label_(std::move(label)) {}

StoreHeap::~StoreHeap() {
  for (auto& [block, size] : live_) std::free(block);
}

size_t StoreHeap::live_blocks() const {
  std::lock_guard lock(mu_);
  return live_.size();
}

size_t StoreHeap::live_bytes() const {
  std::lock_guard lock(mu_);
  return live_bytes_;
}

uint64_t StoreHeap::allocations() const {
  std::lock_guard lock(mu_);
  return allocations_;
}

uint64_t StoreHeap::frees() const {
  std::lock_guard lock(mu_);
  return frees_;
}

uint64_t StoreHeap::failures() const {
  std::lock_guard lock(mu_);
  return failures_;
}

bool StoreHeap::Owns(const void* block) const {
  std::lock_guard lock(mu_);
  return live_.count(const_cast<void*>(block)) != 0;
}

size_t StoreHeap::leftover_blocks() const {
  std::lock_guard lock(mu_);
  size_t count = 0;
  for (const auto& [block, size] : live_) {
    if (!(size == 1 && *static_cast<const char*>(block) == '\0')) ++count;
  }
  return count;
}

size_t StoreHeap::BlockSize(const void* block) const {
  std::lock_guard lock(mu_);
  auto it = live_.find(const_cast<void*>(block));
  return it == live_.end() ? 0 : it->second;
}

void StoreHeap::FailAt(uint64_t n, bool persistent, tERROR code) {
  std::lock_guard lock(mu_);
  fail_at_ = n == 0 ? 0 : allocations_ + n;
  persistent_ = persistent;
  fail_code_ = code;
}

bool StoreHeap::ShouldFailLocked() {
  ++allocations_;
  bool fail = fail_at_ != 0 && (allocations_ == fail_at_ || (persistent_ && allocations_ > fail_at_));
  if (fail) {
    ++failures_;
    prhost_heap_fault_hit();
  }
  return fail;
}

tERROR StoreHeap::Allocate(void** out, uint32_t size) {
  if (out == nullptr) return kErrBadParameter;
  std::lock_guard lock(mu_);
  if (ShouldFailLocked()) return fail_code_;
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) return kErrNoMemory;
  std::memset(block, kFreshBlockFill, size);
  live_[block] = size;
  live_bytes_ += size;
  *out = block;
  return kOk;
}

tERROR StoreHeap::Reallocate(void** inout, void* old_block, uint32_t new_size) {
  if (inout == nullptr) return kErrBadParameter;
  std::lock_guard lock(mu_);
  size_t old_size = 0;
  if (old_block != nullptr) {
    auto it = live_.find(old_block);
    if (it == live_.end()) {
      std::fprintf(stderr, "prhost heap %s: reallocation of unknown block %p\n", label_.c_str(), old_block);
      std::abort();
    }
    old_size = it->second;
  }
  if (ShouldFailLocked()) return fail_code_;
  // A fresh block every time, so that a caller keeping the old address is
  // caught rather than lucky.
  void* block = std::malloc(new_size == 0 ? 1 : new_size);
  if (block == nullptr) return kErrNoMemory;
  size_t kept = old_size < new_size ? old_size : new_size;
  if (kept != 0) std::memcpy(block, old_block, kept);
  if (new_size > kept) std::memset(static_cast<char*>(block) + kept, kFreshBlockFill, new_size - kept);
  if (old_block != nullptr) {
    live_.erase(old_block);
    live_bytes_ -= old_size;
    std::free(old_block);
  }
  live_[block] = new_size;
  live_bytes_ += new_size;
  *inout = block;
  return kOk;
}

tERROR StoreHeap::Release(void* block) {
  if (block == nullptr) return kOk;
  std::lock_guard lock(mu_);
  auto it = live_.find(block);
  if (it == live_.end()) {
    std::fprintf(stderr, "prhost heap %s: release of unknown block %p (double free or another store's block)\n",
                 label_.c_str(), block);
    std::abort();
  }
  live_bytes_ -= it->second;
  live_.erase(it);
  ++frees_;
  std::free(block);
  return kOk;
}

StoreHeap* StoreHeap::FromSelf(void* self) {
  StoreHeap* heap = nullptr;
  if (self != nullptr) {
    std::memcpy(&heap, static_cast<char*>(self) + (kStoreHostWord - kStoreObjWord), sizeof heap);
  }
  if (heap == nullptr || heap->magic_ != kMagic) {
    std::fprintf(stderr, "prhost heap: called with self=%p whose store carries no host heap\n", self);
    std::abort();
  }
  return heap;
}

namespace {

tERROR ObjAlloc(void* self, void** out, uint32_t size) { return StoreHeap::FromSelf(self)->Allocate(out, size); }

tERROR ObjRealloc(void* self, void** inout, void* old_block, uint32_t new_size) {
  return StoreHeap::FromSelf(self)->Reallocate(inout, old_block, new_size);
}

tERROR ObjFree(void* self, void* block) { return StoreHeap::FromSelf(self)->Release(block); }

tERROR ObjUnimplemented(void*, ...) { return kErrNotImplemented; }

std::array<void*, kObjEntries> BuildTable() {
  std::array<void*, kObjEntries> table{};
  for (void*& entry : table) entry = reinterpret_cast<void*>(&ObjUnimplemented);
  table[kObjAlloc] = reinterpret_cast<void*>(&ObjAlloc);
  table[kObjRealloc] = reinterpret_cast<void*>(&ObjRealloc);
  table[kObjFree] = reinterpret_cast<void*>(&ObjFree);
  return table;
}

const std::array<void*, kObjEntries> kHostObjTable = BuildTable();

tERROR PlainAlloc(void*, void** out, uint32_t size) {
  if (out == nullptr) return kErrBadParameter;
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) return kErrNoMemory;
  *out = block;
  return kOk;
}

tERROR PlainRealloc(void*, void** inout, void* old_block, uint32_t new_size) {
  if (inout == nullptr) return kErrBadParameter;
  void* block = std::realloc(old_block, new_size == 0 ? 1 : new_size);
  if (block == nullptr) return kErrNoMemory;
  *inout = block;
  return kOk;
}

tERROR PlainFree(void*, void* block) {
  std::free(block);
  return kOk;
}

const std::array<void*, kObjEntries> kPlainObjTable = [] {
  std::array<void*, kObjEntries> table = BuildTable();
  table[kObjAlloc] = reinterpret_cast<void*>(&PlainAlloc);
  table[kObjRealloc] = reinterpret_cast<void*>(&PlainRealloc);
  table[kObjFree] = reinterpret_cast<void*>(&PlainFree);
  return table;
}();

}  // namespace

void* const* HostObjTable() { return kHostObjTable.data(); }
void* const* PlainObjTable() { return kPlainObjTable.data(); }

}  // namespace prhost
