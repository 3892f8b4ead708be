// Conversions between a caller's type and a stored value's type, through the
// value's text form. Every temporary (text, wide buffer, value object) comes
// from the store's host heap and is released on every path.
//
// Thread-safety: runs under the store lock of the calling operation.
#pragma once

#include <cstdint>

#include "module/obj_services.h"
#include "values/value.h"

namespace propmap {

// The caller's string object for tSTRING_OBJ: 32-bit characters and a count.
struct StringObject {
  wchar_t* chars;
  uint32_t count;
};

// Reads `stored` as `requested` (not the stored type) into the caller's
// buffer, or into a StringObject when requested is tSTRING_OBJ.
[[nodiscard]] tERROR ReadConverted(iObj* host, const iValue* stored, tag_TYPE_ID requested, void* buffer,
                                   uint32_t buffer_size, uint32_t* size);

// Stores `data` given as `requested` into `stored` through the text form.
// Returns what the stored value's SetText returned.
[[nodiscard]] tERROR WriteConverted(iObj* host, iValue* stored, tag_TYPE_ID requested, const void* data,
                                    uint32_t size);

}  // namespace propmap
