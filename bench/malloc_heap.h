// A plain malloc-backed object-services table for benchmarks, so that the
// numbers measure the module's code and not a test heap's bookkeeping.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "module/obj_services.h"

namespace propmap::bench {

class MallocHeap {
 public:
  MallocHeap() {
    for (uint32_t i = 0; i < kObjTableEntries; ++i) table_[i] = PlaceholderObjTable()[i];
    table_[kObjAlloc] = reinterpret_cast<void*>(&Alloc);
    table_[kObjRealloc] = reinterpret_cast<void*>(&Realloc);
    table_[kObjFree] = reinterpret_cast<void*>(&Free);
    obj_.table = table_;
  }
  MallocHeap(const MallocHeap&) = delete;
  MallocHeap& operator=(const MallocHeap&) = delete;

  iObj* host() { return &obj_; }

 private:
  static tERROR Alloc(void*, void** out, uint32_t size) {
    *out = std::malloc(size == 0 ? 1 : size);
    return *out != nullptr ? ResultOk : ErrNoMemory;
  }
  static tERROR Realloc(void*, void** inout, void* old_block, uint32_t size) {
    void* block = std::realloc(old_block, size == 0 ? 1 : size);
    if (block == nullptr) return ErrNoMemory;
    *inout = block;
    return ResultOk;
  }
  static tERROR Free(void*, void* block) {
    std::free(block);
    return ResultOk;
  }

  void* table_[kObjTableEntries];
  iObj obj_;
};

}  // namespace propmap::bench
