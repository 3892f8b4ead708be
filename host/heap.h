// The host's object-services heap (iObj entries 52 to 54), one account per
// store.
//
// The module calls the heap with self = store + 8. The host keeps a pointer
// to the store's StoreHeap in the word reserved for it at store + 16, so each
// entry finds its account from self alone. Every block is a separate malloc
// block (sanitizers see overruns) filled with 0xA5, because the module must
// not assume zeroed memory. Freeing a block the account does not hold is a
// module bug: the heap prints the block and aborts.
//
// Faults are injected in the shape of a counting allocator: FailAt(n) makes
// the n-th allocation or reallocation from now fail with a chosen code, once
// or (persistent) together with every later one. Each injected failure calls
// prhost_heap_fault_hit(), a place to set a debugger breakpoint.
//
// Thread-safety: each StoreHeap has its own mutex; the module may call it from
// any number of threads at once.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <boost/unordered/unordered_flat_map.hpp>

#include "abi.h"

extern "C" void prhost_heap_fault_hit();

namespace prhost {

inline constexpr uint8_t kFreshBlockFill = 0xA5;

class StoreHeap {
 public:
  explicit StoreHeap(std::string label);
  // Releases blocks still held (the module leaked them; tests have already
  // asserted on the balance by then).
  ~StoreHeap();
  StoreHeap(const StoreHeap&) = delete;
  StoreHeap& operator=(const StoreHeap&) = delete;

  const std::string& label() const { return label_; }

  [[nodiscard]] size_t live_blocks() const;
  [[nodiscard]] size_t live_bytes() const;
  [[nodiscard]] bool balanced() const { return live_blocks() == 0; }
  // Live blocks other than one-byte empty texts. The module never gives back
  // the one-byte buffer of an empty key or value name (the root key's among
  // them), so after a store with a tree is destroyed this is what must be 0.
  [[nodiscard]] size_t leftover_blocks() const;
  // Allocate and reallocate calls so far (each is a fault point).
  [[nodiscard]] uint64_t allocations() const;
  [[nodiscard]] uint64_t frees() const;
  // Injected failures so far.
  [[nodiscard]] uint64_t failures() const;
  [[nodiscard]] bool Owns(const void* block) const;
  // Size of a live block; 0 when the block is not live.
  [[nodiscard]] size_t BlockSize(const void* block) const;

  // The n-th allocation or reallocation from now (1-based) fails with `code`;
  // with `persistent` all later ones fail too. n = 0 disarms.
  void FailAt(uint64_t n, bool persistent = false, tERROR code = kErrNoMemory);
  void ClearFault() { FailAt(0); }

  // The services themselves, as the iObj entries call them.
  tERROR Allocate(void** out, uint32_t size);
  tERROR Reallocate(void** inout, void* old_block, uint32_t new_size);
  tERROR Release(void* block);

  // The account installed at store + 16; aborts when the word holds none.
  static StoreHeap* FromSelf(void* self);

 private:
  bool ShouldFailLocked();

  static constexpr uint64_t kMagic = 0x70726865'61703031;  // "prheap01"
  const uint64_t magic_ = kMagic;
  const std::string label_;
  mutable std::mutex mu_;
  // Open addressing: a host such as the tool makes millions of blocks, and a
  // node-based map spent most of an export in this table.
  boost::unordered_flat_map<void*, size_t> live_;  // Protected by mu_
  size_t live_bytes_ = 0;                   // Protected by mu_
  uint64_t allocations_ = 0;                // Protected by mu_
  uint64_t frees_ = 0;                      // Protected by mu_
  uint64_t failures_ = 0;                   // Protected by mu_
  uint64_t fail_at_ = 0;                    // Protected by mu_; absolute call number, 0 = off
  bool persistent_ = false;                 // Protected by mu_
  tERROR fail_code_ = kErrNoMemory;         // Protected by mu_
};

// The host's iObj table (kObjEntries entries). Entries 52..54 are the heap;
// every other entry answers ErrNotImplemented and touches nothing.
void* const* HostObjTable();
// The same entries on plain malloc, with no account (HostOptions::plain_heap).
void* const* PlainObjTable();

}  // namespace prhost
