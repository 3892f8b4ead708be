// A counting object-services heap for unit tests that link the module's code
// directly. It fills new blocks with 0xA5 (the module must not assume zeroed
// memory), tracks every live block, and can fail the N-th allocation from now,
// once or persistently.
//
// Thread-safety: allocation is serialised by an internal mutex so that
// multi-threaded unit tests may share one heap.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "module/obj_services.h"

namespace propmap::testing {

class TestHeap {
 public:
  TestHeap() {
    for (uint32_t i = 0; i < kObjTableEntries; ++i) table_[i] = PlaceholderObjTable()[i];
    table_[kObjAlloc] = reinterpret_cast<void*>(&Alloc);
    table_[kObjRealloc] = reinterpret_cast<void*>(&Realloc);
    table_[kObjFree] = reinterpret_cast<void*>(&Free);
    anchor_.obj.table = table_;
    anchor_.owner = this;
  }
  ~TestHeap() {
    for (auto& [block, size] : live_) std::free(block);
  }
  TestHeap(const TestHeap&) = delete;
  TestHeap& operator=(const TestHeap&) = delete;

  iObj* host() { return &anchor_.obj; }

  size_t live_blocks() const { std::lock_guard g(mu_); return live_.size(); }
  size_t live_bytes() const {
    std::lock_guard g(mu_);
    size_t total = 0;
    for (auto& [block, size] : live_) total += size;
    return total;
  }
  uint64_t allocations() const { std::lock_guard g(mu_); return allocations_; }

  // The n-th allocation or reallocation from now (1-based) fails with `code`;
  // with `persistent` every later one fails too. n = 0 disarms. Arming
  // starts a new count for failed_any().
  void FailAt(uint64_t n, bool persistent = false, tERROR code = ErrNoMemory) {
    std::lock_guard g(mu_);
    fail_at_ = n == 0 ? 0 : allocations_ + n;
    if (n != 0) failures_ = 0;
    persistent_ = persistent;
    code_ = code;
  }
  // Whether an injected failure happened since the heap was last armed.
  bool failed_any() const { std::lock_guard g(mu_); return failures_ > 0; }

 private:
  // The services word and a way back to its heap; `self` points at `obj`.
  struct Anchor {
    iObj obj;
    TestHeap* owner;
  };
  static TestHeap* From(void* self) { return static_cast<Anchor*>(self)->owner; }
  bool ShouldFail() {
    ++allocations_;
    bool fail = fail_at_ != 0 && (allocations_ == fail_at_ || (persistent_ && allocations_ > fail_at_));
    if (fail) ++failures_;
    return fail;
  }
  static tERROR Alloc(void* self, void** out, uint32_t size) { return Realloc(self, out, nullptr, size); }
  static tERROR Realloc(void* self, void** inout, void* old_block, uint32_t size) {
    TestHeap* h = From(self);
    std::lock_guard g(h->mu_);
    if (h->ShouldFail()) return h->code_;
    size_t old_size = 0;
    if (old_block != nullptr) {
      auto it = h->live_.find(old_block);
      if (it == h->live_.end()) std::abort();  // not ours: a module bug
      old_size = it->second;
      h->live_.erase(it);
    }
    void* block = std::realloc(old_block, size == 0 ? 1 : size);
    if (size > old_size) std::memset(static_cast<char*>(block) + old_size, 0xA5, size - old_size);
    h->live_[block] = size;
    *inout = block;
    return ResultOk;
  }
  static tERROR Free(void* self, void* block) {
    TestHeap* h = From(self);
    std::lock_guard g(h->mu_);
    if (block == nullptr) return ResultOk;
    auto it = h->live_.find(block);
    if (it == h->live_.end()) std::abort();  // double free or foreign block
    h->live_.erase(it);
    std::free(block);
    return ResultOk;
  }

  Anchor anchor_;
  void* table_[kObjTableEntries];
  mutable std::mutex mu_;
  std::unordered_map<void*, size_t> live_;
  uint64_t allocations_ = 0;
  uint64_t fail_at_ = 0;
  uint64_t failures_ = 0;
  bool persistent_ = false;
  tERROR code_ = ErrNoMemory;
};

}  // namespace propmap::testing
