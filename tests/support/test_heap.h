// The one test heap: an object-services heap for tests that link the
// module's code directly. It fills new blocks with 0xA5 (the module must not
// assume zeroed memory), keeps every live block in a list of its own (so it
// never uses the free store, which a test may be failing) and can fail the
// N-th allocation from now, once or persistently.
//
// Thread-safety: allocation is serialised by an internal mutex so that
// multi-threaded unit tests may share one heap.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

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
    while (live_.next != &live_) Unlink(live_.next);
  }
  TestHeap(const TestHeap&) = delete;
  TestHeap& operator=(const TestHeap&) = delete;

  iObj* host() { return &anchor_.obj; }
  // Gives back a block the module handed out (a string object's characters).
  void Release(void* block) { (void)Free(&anchor_, block); }

  size_t live_blocks() const { return Sum(false); }
  uint64_t allocations() const { std::lock_guard g(mu_); return allocations_; }
  size_t live_bytes() const { return Sum(true); }

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
  struct alignas(16) Block {
    Block* prev;
    Block* next;
    size_t size;
    const TestHeap* owner;  // cleared when freed, so a double free shows
  };
  // The services word and a way back to its heap; `self` points at `obj`.
  struct Anchor {
    iObj obj;
    TestHeap* owner;
  };
  static TestHeap* From(void* self) { return static_cast<Anchor*>(self)->owner; }
  size_t Sum(bool bytes) const {
    std::lock_guard g(mu_);
    size_t total = 0;
    for (const Block* b = live_.next; b != &live_; b = b->next) total += bytes ? b->size : 1;
    return total;
  }
  static void Unlink(Block* b) {
    b->prev->next = b->next;
    b->next->prev = b->prev;
    std::free(b);
  }
  Block* Find(void* block) {
    Block* b = static_cast<Block*>(block) - 1;
    if (b->owner != this) std::abort();  // double free or a foreign block: a module bug
    b->owner = nullptr;
    return b;
  }
  static tERROR Alloc(void* self, void** out, uint32_t size) { return Realloc(self, out, nullptr, size); }
  static tERROR Realloc(void* self, void** inout, void* old_block, uint32_t size) {
    TestHeap* h = From(self);
    std::lock_guard g(h->mu_);
    ++h->allocations_;
    if (h->fail_at_ != 0 && (h->allocations_ == h->fail_at_ || (h->persistent_ && h->allocations_ > h->fail_at_))) {
      ++h->failures_;
      return h->code_;
    }
    auto* b = static_cast<Block*>(std::malloc(sizeof(Block) + size));
    if (b == nullptr) std::abort();
    std::memset(b + 1, 0xA5, size);
    *b = {&h->live_, h->live_.next, size, h};
    h->live_.next = h->live_.next->prev = b;
    if (old_block != nullptr) {
      Block* old = h->Find(old_block);
      std::memcpy(b + 1, old_block, old->size < size ? old->size : size);
      Unlink(old);
    }
    *inout = b + 1;
    return ResultOk;
  }
  static tERROR Free(void* self, void* block) {
    TestHeap* h = From(self);
    std::lock_guard g(h->mu_);
    if (block != nullptr) Unlink(h->Find(block));
    return ResultOk;
  }

  Anchor anchor_;
  void* table_[kObjTableEntries];
  mutable std::mutex mu_;
  Block live_{&live_, &live_, 0, nullptr};
  uint64_t allocations_ = 0;
  uint64_t fail_at_ = 0;
  uint64_t failures_ = 0;
  bool persistent_ = false;
  tERROR code_ = ErrNoMemory;
};

}  // namespace propmap::testing
