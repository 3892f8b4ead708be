// The output protocol shared by GetData and GetText of every value class.
//
// Order: report the count through `needed` (when given); a null buffer is a
// size query with size 0 and a bad argument otherwise; a buffer smaller than
// the count is refused; only then is anything written, never beyond the count.
//
// Thread-safety: pure functions; the caller owns every buffer.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/result_codes.h"

namespace propmap {

// Steps 1 to 3 of the protocol. True when the caller must now write `count`
// bytes into `buffer` and return ResultOk; false when it must return *result.
[[nodiscard]] inline bool BeginOutput(uint32_t count, const void* buffer, uint32_t size, uint32_t* needed,
                                      tERROR* result) {
  if (needed != nullptr) *needed = count;
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
