// tSTRING: an owned, NUL-terminated narrow string.
#include <cstring>

#include "values/value_text.h"

namespace propmap {

Value_Base<char*>::~Value_Base() { HeapFree(owner_, data_); }

tERROR Value_Base<char*>::GetData(void* buffer, uint32_t size, uint32_t* needed) const {
  // The copy was made from a 32-bit size, so its length + 1 fits.
  const uint32_t count = data_ == nullptr || data_[0] == '\0' ? 0 : static_cast<uint32_t>(std::strlen(data_) + 1);
  return CopyOut(data_, count, buffer, size, needed);
}

tERROR Value_Base<char*>::SetData(const void* buffer, uint32_t size) {
  if (buffer == nullptr) return ErrBadParameter;
  if (size == UINT32_MAX) return ErrNoMemory;  // no room for the NUL
  // The copy comes first: an equal string is recognised on the terminated
  // copy, and then given back.
  void* block = nullptr;
  tERROR err = HeapAlloc(owner_, &block, size + 1);
  if (Failed(err)) return err;
  char* copy = static_cast<char*>(block);
  std::memcpy(copy, buffer, size);
  copy[size] = '\0';
  return KeepNewString(owner_, data_, copy, [](const char* a, const char* b) { return std::strcmp(a, b) == 0; });
}

tERROR StringValue_Base<char*>::GetText(char* buffer, uint32_t size, uint32_t* needed) const {
  return GetData(buffer, size, needed);
}

tERROR StringValue_Base<char*>::SetText(const char* text) {
  if (text == nullptr) return ErrBadParameter;
  const size_t length = std::strlen(text);
  if (length >= UINT32_MAX) return ErrNoMemory;
  return SetData(text, static_cast<uint32_t>(length));
}

}  // namespace propmap
