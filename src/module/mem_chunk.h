// cMemChunk: a growable byte buffer in host-heap storage.
//
// The working buffer of the copy, conversion and load paths. It owns at most
// one block, allocated and released through the iObj it was made with; the
// destructor releases it unless Release gave it away. A failed growth keeps
// the old block and contents.
//
// Reserve keeps the interface's all-ones "current block" convention for its
// slot; the module's own code asks through Ensure, where every size is a real
// size computed in 64 bits, and reads the current block with data().
//
// Thread-safety: none; one owner at a time.
#pragma once

#include <cstdint>

#include "module/obj_services.h"

namespace propmap {

inline constexpr uint32_t kWholeSize = 0xFFFFFFFF;

class tag_MemChunk {
 public:
  virtual ~tag_MemChunk() = default;
  // Returns the data pointer with room for `size` bytes, or null when there is
  // none. kWholeSize returns the current pointer unchanged. With `keep` the
  // contents move to a grown block; without it the old block is dropped first.
  virtual void* Reserve(uint32_t size, bool keep) = 0;
  // Releases the block; data and used size become zero.
  virtual void Clear() = 0;
};

class cMemChunk final : public tag_MemChunk {
 public:
  explicit cMemChunk(iObj* host) : host_(host) {}
  ~cMemChunk() override;
  cMemChunk(const cMemChunk&) = delete;
  cMemChunk& operator=(const cMemChunk&) = delete;

  void* Reserve(uint32_t size, bool keep) override;
  void Clear() override;

  // Room for `size` bytes: 0 or the host's code; a size that a 32-bit
  // count cannot carry is ErrNoMemory. Never shrinks.
  [[nodiscard]] tERROR Ensure(uint64_t size, bool keep);
  // Hands the block to the caller (who frees it through the same iObj).
  void* Release();

  void* data() const { return data_; }
  template <typename T>
  T* as() const { return static_cast<T*>(data_); }
  uint32_t used() const { return used_; }
  void set_used(uint32_t used) { used_ = used; }
  uint32_t capacity() const { return capacity_; }

 private:
  // Resizes the block to exactly `size` bytes.
  tERROR Resize(uint32_t size, bool keep);

  void* data_ = nullptr;
  uint32_t used_ = 0;
  uint32_t capacity_ = 0;
  iObj* host_;
};

}  // namespace propmap
