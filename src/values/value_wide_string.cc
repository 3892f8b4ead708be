// tWSTRING: an owned string of 32-bit units, its UTF-8 text and its
// hexadecimal input form.
#include <cstring>
#include <cwchar>

#include "support/utf8.h"
#include "values/text_rules.h"
#include "values/value_text.h"

namespace propmap {
namespace {

// A fresh buffer from `owner` holding `size` bytes, zero-padded to whole units
// and followed by a zero unit, so that every unit read stays inside it.
tERROR NewWideCopy(iObj* owner, const void* bytes, uint32_t size, wchar_t** out) {
  const uint64_t padded = (static_cast<uint64_t>(size) + 3) / 4 * 4 + sizeof(wchar_t);
  if (padded > UINT32_MAX) return ErrNoMemory;
  void* block = nullptr;
  tERROR err = HeapAlloc(owner, &block, static_cast<uint32_t>(padded));
  if (Failed(err)) return err;
  auto* target = static_cast<unsigned char*>(block);
  if (size != 0) std::memcpy(target, bytes, size);
  std::memset(target + size, 0, padded - size);
  *out = static_cast<wchar_t*>(block);
  return ResultOk;
}

}  // namespace

static_assert(sizeof(wchar_t) == 4, "wide strings are stored as 32-bit units");

Value_Base<wchar_t*>::~Value_Base() { HeapFree(owner_, data_); }

tERROR Value_Base<wchar_t*>::GetData(void* buffer, uint32_t size, uint32_t* needed) const {
  // At most (2^32 - 8) / 4 units were stored, so the count fits.
  const uint32_t count =
      data_ == nullptr || data_[0] == 0 ? 0 : static_cast<uint32_t>(4 * (std::wcslen(data_) + 1));
  return CopyOut(data_, count, buffer, size, needed);
}

tERROR Value_Base<wchar_t*>::SetData(const void* buffer, uint32_t size) {
  if (buffer == nullptr) return ErrBadParameter;
  wchar_t* copy = nullptr;
  tERROR err = NewWideCopy(owner_, buffer, size, &copy);
  if (Failed(err)) return err;
  return KeepNewString(owner_, data_, copy, [](const wchar_t* a, const wchar_t* b) { return std::wcscmp(a, b) == 0; });
}

tERROR StringValue_Base<wchar_t*>::GetText(char* buffer, uint32_t size, uint32_t* needed) const {
  // A string never set reads as empty text.
  if (data_ == nullptr || data_[0] == 0) return CopyOut(nullptr, 0, buffer, size, needed);
  const size_t units = std::wcslen(data_);
  const size_t count = Utf8CountWide(data_, units) + 1;
  tERROR result = ResultOk;
  if (!BeginOutput(count, buffer, size, needed, &result)) return result;
  // Units above 0x10FFFF are counted as 0 bytes yet written as "?"; the
  // count stays the limit, so such a text may lose its NUL or its tail.
  const size_t written = Utf8EncodeWide(data_, units, buffer, count);
  if (written < count) buffer[written] = '\0';
  return ResultOk;
}

tERROR StringValue_Base<wchar_t*>::SetText(const char* text) {
  if (text == nullptr) return ErrBadParameter;
  const size_t length = std::strlen(text);
  if (length / 2 > UINT32_MAX) return ErrNoMemory;
  const auto byte_count = static_cast<uint32_t>(length / 2);

  // Odd or malformed text decodes to nothing and stores an empty string.
  void* decoded = nullptr;
  uint32_t decoded_length = 0;
  if (length % 2 == 0 && byte_count != 0) {
    tERROR err = HeapAlloc(owner_, &decoded, byte_count);
    if (Failed(err)) return err;
    if (DecodeHexPairs(text, byte_count, static_cast<unsigned char*>(decoded))) decoded_length = byte_count;
  }
  wchar_t* copy = nullptr;
  tERROR err = NewWideCopy(owner_, decoded, decoded_length, &copy);
  HeapFree(owner_, decoded);
  if (Failed(err)) return err;
  HeapFree(owner_, data_);
  data_ = copy;
  return ResultOk;
}

}  // namespace propmap
