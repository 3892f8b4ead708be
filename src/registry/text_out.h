// The text-out convention of every operation that returns a name: the output
// protocol of value_output.h for a text and its NUL. Without text: *size = 0
// and a given buffer succeeds with nothing copied.
#pragma once

#include <cstdint>
#include <cstring>

#include "module/result_codes.h"
#include "tree/tree.h"
#include "values/value_output.h"

namespace propmap {

[[nodiscard]] inline tERROR CopyTextOut(const char* text, size_t length, void* buffer, uint32_t buffer_size,
                                        uint32_t* size) {
  if (text == nullptr) {
    if (size != nullptr) *size = 0;
    return buffer == nullptr && buffer_size != 0 ? ErrBadParameter : ResultOk;
  }
  tERROR result = ResultOk;
  if (!BeginOutput(uint64_t{length} + 1, buffer, buffer_size, size, &result)) return result;
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
  tERROR result = ResultOk;
  if (!BeginOutput(uint64_t{length} + 1, buffer, buffer_size, size, &result)) return result;
  uint32_t position = 0;
  return GetKeyPath(tree, base, key, static_cast<char*>(buffer), length, &position, kBackslash);
}

}  // namespace propmap
