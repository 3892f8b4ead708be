#include "registry/value_conversion.h"

#include <cstring>

#include "module/mem_chunk.h"
#include "support/utf8.h"

namespace propmap {
namespace {

// A temporary value destroyed when the scope ends.
class TempValue {
 public:
  TempValue(iObj* host, tag_TYPE_ID type) : host_(host), value_(CreateValue(host, type)) {}
  ~TempValue() { DestroyValue(host_, value_); }
  TempValue(const TempValue&) = delete;
  TempValue& operator=(const TempValue&) = delete;
  iValue* get() const { return value_; }

 private:
  iObj* host_;
  iValue* value_;
};

// The value's text in a fresh host block, terminated right after the bytes
// GetText wrote (number and block texts carry no NUL of their own). The
// block is zero-filled first: a block's count claims one byte more than its
// hexadecimal digits, and the heap's fresh bytes must not become text.
tERROR FetchText(const iValue* value, cMemChunk* text, uint32_t* length) {
  uint32_t count = 0;
  tERROR err = value->GetText(nullptr, 0, &count);
  if (Failed(err)) return err;
  err = text->Ensure(uint64_t{count} + 1, false);
  if (Failed(err)) return err;
  std::memset(text->data(), 0, uint64_t{count} + 1);
  err = value->GetText(text->as<char>(), count, &count);
  if (Failed(err)) return err;
  *length = static_cast<uint32_t>(std::strlen(text->as<char>()));
  return ResultOk;
}

// Hands wide characters to the caller's string object: a fresh host block of
// count + 1 characters replaces (and frees) its previous one.
tERROR FillStringObject(iObj* host, const uint32_t* chars, uint32_t count, StringObject* object) {
  cMemChunk block(host);
  tERROR err = block.Ensure((uint64_t{count} + 1) * sizeof(wchar_t), false);
  if (Failed(err)) return err;
  wchar_t* out = block.as<wchar_t>();
  for (uint32_t i = 0; i < count; ++i) out[i] = static_cast<wchar_t>(chars[i]);
  out[count] = 0;
  HeapFree(host, object->chars);
  object->chars = static_cast<wchar_t*>(block.Release());
  object->count = count;
  return ResultOk;
}

}  // namespace

tERROR ReadConverted(iObj* host, const iValue* stored, tag_TYPE_ID requested, void* buffer, uint32_t buffer_size,
                     uint32_t* size) {
  const tag_TYPE_ID working = requested == tSTRING_OBJ ? tWSTRING : requested;
  cMemChunk text(host);
  uint32_t length = 0;
  tERROR err = FetchText(stored, &text, &length);
  if (Failed(err)) return err;
  TempValue temp(host, working);
  if (temp.get() == nullptr) return ErrNoMemory;

  if (working == tWSTRING) {
    // One unit per byte at most, and the terminating unit.
    cMemChunk wide(host);
    err = wide.Ensure(uint64_t{4} * length + 4, false);
    if (Failed(err)) return err;
    const auto chars = static_cast<uint32_t>(Utf8Decode(text.as<char>(), length, wide.as<uint32_t>()));
    err = temp.get()->SetData(wide.as<uint32_t>(), 4 * chars);
  } else {
    err = temp.get()->SetText(text.as<char>());
  }
  if (Failed(err)) return err;

  if (requested != tSTRING_OBJ) return temp.get()->GetData(buffer, buffer_size, size);

  // The string object receives the characters; the size output reports 0.
  if (buffer == nullptr) return ErrBadParameter;
  uint32_t bytes = 0;
  err = temp.get()->GetData(nullptr, 0, &bytes);
  if (Failed(err)) return err;
  cMemChunk chars(host);
  err = chars.Ensure(uint64_t{bytes} + 4, false);
  if (Failed(err)) return err;
  std::memset(chars.data(), 0, uint64_t{bytes} + 4);
  if (bytes != 0) {
    err = temp.get()->GetData(chars.as<char>(), bytes, &bytes);
    if (Failed(err)) return err;
  }
  uint32_t count = bytes >= 4 ? bytes / 4 - 1 : 0;  // without the 0 terminator
  err = FillStringObject(host, chars.as<uint32_t>(), count, static_cast<StringObject*>(buffer));
  if (Succeeded(err) && size != nullptr) *size = 0;
  return err;
}

tERROR WriteConverted(iObj* host, iValue* stored, tag_TYPE_ID requested, const void* data, uint32_t size) {
  TempValue temp(host, requested);
  if (temp.get() == nullptr) return ErrNoMemory;
  tERROR err = temp.get()->SetData(data, size);
  if (Failed(err)) return err;
  cMemChunk text(host);
  uint32_t length = 0;
  err = FetchText(temp.get(), &text, &length);
  if (Failed(err)) return err;
  return stored->SetText(text.as<char>());
}

}  // namespace propmap
