// StringValue_Base<T>: the text form of a value (GetText/SetText), the second
// layer of every value class, on top of Value_Base<T>'s storage.
//
// Fixed-size kinds format numbers into a 256-byte work buffer on the stack
// (support/number_format.h) and write them without a NUL; their members are
// defined and instantiated once, in value_fixed_text.cc. The owning kinds
// take any buffer they need from their owner's heap and give it back before
// returning.
//
// Thread-safety: none of its own; the store lock covers every call.
#pragma once

#include "values/value_base.h"

namespace propmap {

template <typename T>
class StringValue_Base : public Value_Base<T> {
 public:
  using Value_Base<T>::Value_Base;

  [[nodiscard]] tERROR GetText(char* buffer, uint32_t size, uint32_t* needed) const override;
  [[nodiscard]] tERROR SetText(const char* text) override;
};

// tSTRING: the text is the stored string with its NUL; setting it is
// SetData of the text without its NUL.
template <>
class StringValue_Base<char*> : public Value_Base<char*> {
 public:
  using Value_Base<char*>::Value_Base;
  [[nodiscard]] tERROR GetText(char* buffer, uint32_t size, uint32_t* needed) const override;
  [[nodiscard]] tERROR SetText(const char* text) override;
};

// tWSTRING: written as UTF-8 with a NUL (count from the byte-count rule);
// read back from the hexadecimal form of its raw units.
template <>
class StringValue_Base<wchar_t*> : public Value_Base<wchar_t*> {
 public:
  using Value_Base<wchar_t*>::Value_Base;
  [[nodiscard]] tERROR GetText(char* buffer, uint32_t size, uint32_t* needed) const override;
  // An odd or malformed text succeeds with an empty string.
  [[nodiscard]] tERROR SetText(const char* text) override;
};

// tPTR and tBINARY: two upper-case hexadecimal digits per byte, no NUL, but a
// count of 2 x length + 1.
template <>
class StringValue_Base<void*> : public Value_Base<void*> {
 public:
  using Value_Base<void*>::Value_Base;
  [[nodiscard]] tERROR GetText(char* buffer, uint32_t size, uint32_t* needed) const override;
  [[nodiscard]] tERROR SetText(const char* text) override;
};

extern template class StringValue_Base<void>;
extern template class StringValue_Base<unsigned char>;
extern template class StringValue_Base<unsigned short>;
extern template class StringValue_Base<unsigned int>;
extern template class StringValue_Base<unsigned long>;
extern template class StringValue_Base<bool>;
extern template class StringValue_Base<char>;
extern template class StringValue_Base<wchar_t>;
extern template class StringValue_Base<int>;
extern template class StringValue_Base<signed char>;
extern template class StringValue_Base<short>;
extern template class StringValue_Base<long>;
extern template class StringValue_Base<unsigned char[8]>;
extern template class StringValue_Base<void (*)()>;
extern template class StringValue_Base<double>;

}  // namespace propmap
