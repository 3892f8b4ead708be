// tPTR and tBINARY: an owned byte block and its hexadecimal text.
#include <cstring>

#include "values/text_rules.h"
#include "values/value_text.h"

namespace propmap {

Value_Base<void*>::~Value_Base() { HeapFree(owner_, data_); }

void Value_Base<void*>::Replace(void* block, uint32_t length) {
  HeapFree(owner_, data_);
  data_ = block;
  length_ = length;
}

tERROR Value_Base<void*>::GetData(void* buffer, uint32_t size, uint32_t* needed) const {
  return CopyOut(data_, length_, buffer, size, needed);
}

tERROR Value_Base<void*>::SetData(const void* buffer, uint32_t size) {
  if (size == 0) {
    Replace(nullptr, 0);
    return ResultOk;
  }
  if (buffer == nullptr) return ErrBadParameter;
  void* block = nullptr;
  tERROR err = HeapAlloc(owner_, &block, size);
  if (Failed(err)) return err;
  std::memcpy(block, buffer, size);
  Replace(block, size);
  return ResultOk;
}

tERROR StringValue_Base<void*>::GetText(char* buffer, uint32_t size, uint32_t* needed) const {
  // The count claims a NUL that is never written: callers end the text.
  const uint64_t count = 2 * static_cast<uint64_t>(length_) + 1;
  tERROR result = ResultOk;
  if (!BeginOutput(count, buffer, size, needed, &result)) return result;
  EncodeHexPairs(static_cast<const unsigned char*>(data_), length_, buffer);
  return ResultOk;
}

tERROR StringValue_Base<void*>::SetText(const char* text) {
  if (text == nullptr) return ErrBadParameter;
  const size_t length = std::strlen(text);
  if (length % 2 != 0) return ErrBadParameter;
  if (length == 0) {
    Replace(nullptr, 0);
    return ResultOk;
  }
  if (length / 2 > UINT32_MAX) return ErrNoMemory;
  const auto byte_count = static_cast<uint32_t>(length / 2);
  void* block = nullptr;
  tERROR err = HeapAlloc(owner_, &block, byte_count);
  if (Failed(err)) return err;
  if (!DecodeHexPairs(text, byte_count, static_cast<unsigned char*>(block))) {
    HeapFree(owner_, block);
    return ErrBadParameter;
  }
  Replace(block, byte_count);
  return ResultOk;
}

}  // namespace propmap
