// The output protocol of everything that hands bytes or text to a caller:
// GetData and GetText of every value class, and the names and paths of the
// registry operations.
//
// Order: a count that the 32-bit size cannot carry is ErrNoMemory with
// nothing written; else report the count through `needed` (when given); a
// null buffer is a size query with size 0 and a bad argument otherwise; a
// buffer smaller than the count is refused; only then is anything written,
// never beyond the count.
//
// Thread-safety: pure functions; the caller owns every buffer.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/result_codes.h"

namespace propmap {

// Steps 1 to 3 of the protocol. True when the caller must now write `count`
// bytes into `buffer` and return ResultOk; false when it must return *result.
[[nodiscard]] inline bool BeginOutput(uint64_t count, const void* buffer, uint32_t size, uint32_t* needed,
                                      tERROR* result) {
  if (count > UINT32_MAX) {
    *result = ErrNoMemory;
    return false;
  }
  if (needed != nullptr) *needed = static_cast<uint32_t>(count);
  if (buffer == nullptr) {
    *result = size == 0 ? ResultOk : ErrBadParameter;
    return false;
  }
  if (size < count) {
    *result = ErrBufferTooSmall;
    return false;
  }
  return true;
}

// The whole protocol for content that already exists as `count` bytes.
[[nodiscard]] inline tERROR CopyOut(const void* source, uint32_t count, void* buffer, uint32_t size,
                                    uint32_t* needed) {
  tERROR result = ResultOk;
  if (!BeginOutput(count, buffer, size, needed, &result)) return result;
  if (count != 0) std::memcpy(buffer, source, count);
  return ResultOk;
}

}  // namespace propmap
