#include "module/mem_chunk.h"

namespace propmap {

cMemChunk::~cMemChunk() { Clear(); }

tERROR cMemChunk::Resize(uint32_t size, bool keep) {
  if (keep && data_ != nullptr) {
    void* grown = data_;
    tERROR err = HeapRealloc(host_, &grown, data_, size);
    if (Failed(err)) return err;
    if (grown == nullptr) return ErrNoMemory;
    data_ = grown;
    capacity_ = size;
    if (used_ > size) used_ = size;
    return ResultOk;
  }
  Clear();
  capacity_ = 0;
  void* block = nullptr;
  tERROR err = HeapAlloc(host_, &block, size);
  if (Failed(err)) return err;
  data_ = block;
  capacity_ = size;
  return ResultOk;
}

tERROR cMemChunk::Ensure(uint64_t size, bool keep) {
  if (size > UINT32_MAX) return ErrNoMemory;
  if (size <= capacity_ && (data_ != nullptr || size == 0)) return ResultOk;
  return Resize(static_cast<uint32_t>(size), keep);
}

void* cMemChunk::Reserve(uint32_t size, bool keep) {
  if (size == kWholeSize) return data_;
  if (size <= capacity_) return data_;
  return Succeeded(Ensure(size, keep)) ? data_ : nullptr;
}

void* cMemChunk::Release() {
  void* block = data_;
  data_ = nullptr;
  used_ = 0;
  capacity_ = 0;
  return block;
}

void cMemChunk::Clear() {
  HeapFree(host_, data_);
  data_ = nullptr;
  used_ = 0;
  capacity_ = 0;
}

}  // namespace propmap
