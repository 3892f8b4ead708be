// The host stream object a store reads and saves its profile through when
// its name is empty: an object whose first word is its operations table.
#pragma once

#include <cstdint>

#include "module/result_codes.h"

namespace propmap {

struct HostStream {
  void* const* table;

  using SeekReadFn = tERROR (*)(void* self, uint32_t* count, uint64_t position, void* buffer, uint32_t size);
  using SeekWriteFn = tERROR (*)(void* self, uint32_t* count, uint64_t position, const void* buffer,
                                 uint32_t size);
  using GetSizeFn = tERROR (*)(void* self, uint64_t* size, uint32_t type);
  using FlushFn = tERROR (*)(void* self);

  static HostStream* From(void* object) { return static_cast<HostStream*>(object); }

  tERROR SeekRead(uint32_t* count, uint64_t position, void* buffer, uint32_t size) {
    return reinterpret_cast<SeekReadFn>(table[0])(this, count, position, buffer, size);
  }
  tERROR SeekWrite(uint32_t* count, uint64_t position, const void* buffer, uint32_t size) {
    return reinterpret_cast<SeekWriteFn>(table[1])(this, count, position, buffer, size);
  }
  tERROR GetSize(uint64_t* size, uint32_t type) { return reinterpret_cast<GetSizeFn>(table[2])(this, size, type); }
  tERROR Flush() { return reinterpret_cast<FlushFn>(table[4])(this); }
};

}  // namespace propmap
