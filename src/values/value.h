// Value objects: the typed content of one value entry.
//
// A value converts its content to and from native bytes (GetData/SetData) and
// a text form (GetText/SetText). Objects and all their storage come from the
// store's object-services heap (obj_services.h); never from new/delete.
//
// Output protocol of GetData and GetText, in this order: (1) when `needed` is
// not null, store the byte count of the result; (2) with a null buffer return
// 0 if size is 0, else ErrBadParameter; (3) if size < count return
// ErrBufferTooSmall; (4) copy the result and return 0. Nothing beyond the
// count is written.
//
// Thread-safety: none of its own; the store lock covers every call.
#pragma once

#include <cstdint>

#include "module/obj_services.h"
#include "module/result_codes.h"
#include "values/type_id.h"

namespace propmap {

// Slot order is part of the binary contract: GetTypeId, GetData, SetData,
// GetText, SetText, then the destructor.
class iValue {
 public:
  virtual tag_TYPE_ID GetTypeId() const = 0;
  [[nodiscard]] virtual tERROR GetData(void* buffer, uint32_t size, uint32_t* needed) const = 0;
  [[nodiscard]] virtual tERROR SetData(const void* buffer, uint32_t size) = 0;
  [[nodiscard]] virtual tERROR GetText(char* buffer, uint32_t size, uint32_t* needed) const = 0;
  [[nodiscard]] virtual tERROR SetText(const char* text) = 0;
  virtual ~iValue() = default;
};

// A new value of the identifier's class with its initial content, or null for
// an identifier without a class or when the heap refuses.
[[nodiscard]] iValue* CreateValue(iObj* host, tag_TYPE_ID id);

// Runs the destructor (which frees owned buffers) and frees the object's
// memory through the host. Null does nothing.
void DestroyValue(iObj* host, iValue* value);

}  // namespace propmap
