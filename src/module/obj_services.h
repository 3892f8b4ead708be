// The object-services interface (iObj) as the module uses it.
//
// Every store carries, as its second word, a pointer to an 82-entry table of
// object services. The address of that word is the "host" through which all
// tree records, names and value storage are allocated: entries 52 (allocate),
// 53 (reallocate) and 54 (release), each called with the address of the word
// itself. Until the host installs its own table the module's placeholder table
// is there, and allocation answers ErrNotImplemented.
//
// Thread-safety: these functions add no locking; the host heap must be safe
// for the callers' concurrency (the store lock serialises writers).
#pragma once

#include <cstdint>

#include "module/result_codes.h"

namespace propmap {

inline constexpr uint32_t kObjTableEntries = 82;
inline constexpr uint32_t kObjAlloc = 52;
inline constexpr uint32_t kObjRealloc = 53;
inline constexpr uint32_t kObjFree = 54;

using ObjAllocFn = tERROR (*)(void* self, void** out, uint32_t size);
using ObjReallocFn = tERROR (*)(void* self, void** inout, void* old_block, uint32_t new_size);
using ObjFreeFn = tERROR (*)(void* self, void* block);

// The word at store + 8: a pointer to the current services table.
struct iObj {
  void* const* table;
};

// The module's own placeholder table (82 entries answering fixed codes).
void* const* PlaceholderObjTable();

// True when the host has installed a table whose allocator is not the
// module's placeholder. False for a null host.
[[nodiscard]] bool HeapAvailable(const iObj* host);

// Allocate size bytes (not zero-filled). On failure *out is untouched and the
// host's code is returned; a null host gives ErrNotImplemented. A successful
// call that yields a null block is passed to Free and reported as ErrNoMemory.
[[nodiscard]] tERROR HeapAlloc(iObj* host, void** out, uint32_t size);
[[nodiscard]] tERROR HeapRealloc(iObj* host, void** inout, void* old_block, uint32_t new_size);
// Release a block; null blocks and a null host are ignored. The code is dropped.
void HeapFree(iObj* host, void* block);

// Typed convenience: allocate storage for one T (not constructed).
template <typename T>
[[nodiscard]] tERROR HeapAllocFor(iObj* host, T** out) {
  void* block = nullptr;
  tERROR err = HeapAlloc(host, &block, static_cast<uint32_t>(sizeof(T)));
  if (Succeeded(err)) *out = static_cast<T*>(block);
  return err;
}

}  // namespace propmap
