// The text-out convention of every operation that returns a name.
//
// With text: the needed size (length + 1) goes to *size first, also when the
// call then fails; a buffer smaller than that gives ErrBufferTooSmall and
// nothing is copied. Without text: *size = 0 and a given buffer succeeds with
// nothing copied. A null buffer is a size query when buffer_size is 0 and
// ErrBadParameter otherwise.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/result_codes.h"
#include "tree/tree.h"

namespace propmap {

[[nodiscard]] inline tERROR CopyTextOut(const char* text, size_t length, void* buffer, uint32_t buffer_size,
                                        uint32_t* size) {
  if (text == nullptr) {
    if (size != nullptr) *size = 0;
    if (buffer == nullptr) return buffer_size == 0 ? ResultOk : ErrBadParameter;
    return ResultOk;
  }
  const uint64_t needed = uint64_t{length} + 1;
  if (size != nullptr) *size = static_cast<uint32_t>(needed);
  if (buffer == nullptr) return buffer_size == 0 ? ResultOk : ErrBadParameter;
  if (needed > buffer_size) return ErrBufferTooSmall;
  std::memcpy(buffer, text, length);
  static_cast<char*>(buffer)[length] = '\0';
  return ResultOk;
}

// The path of `key` below `base`, names joined by a backslash, by the same
// convention. ErrNotApplicable when the key is not below the base.
[[nodiscard]] inline tERROR CopyKeyPathOut(const PropertiesTree* tree, KeyNode* base, KeyNode* key, void* buffer,
                                           uint32_t buffer_size, uint32_t* size) {
  constexpr char kBackslash = '\\';
  uint32_t length = 0;
  tERROR err = GetKeyPath(tree, base, key, nullptr, 0, &length, kBackslash);
  if (Failed(err)) return err;
  if (size != nullptr) *size = length + 1;
  if (buffer == nullptr) return buffer_size == 0 ? ResultOk : ErrBadParameter;
  if (uint64_t{length} + 1 > buffer_size) return ErrBufferTooSmall;
  uint32_t position = 0;
  return GetKeyPath(tree, base, key, static_cast<char*>(buffer), length, &position, kBackslash);
}

}  // namespace propmap
