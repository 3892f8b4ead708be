// Text forms of the fixed-size kinds: numbers, characters, the boolean word,
// the 8-byte date, the code address and tVOID.
#include <cstring>
#include <limits>
#include <type_traits>

#include "support/number_format.h"
#include "values/text_rules.h"
#include "values/value_text.h"

namespace propmap {
namespace {

template <typename T>
constexpr bool kHasNoText = std::is_void_v<T> || std::is_same_v<T, void (*)()>;

// The printf form of each number kind ("%llu", "%lf", "%lu", "%li", "%u",
// "%i" of the widened value), produced without printf's format parsing.
template <typename T>
NumberText FormatNumber(const typename NativeStorage<T>::type& value) {
  if constexpr (std::is_same_v<T, unsigned char[8]>) {
    unsigned long long number = 0;
    std::memcpy(&number, value, sizeof number);
    return NumberText(NumberText::Unsigned{}, number);
  } else if constexpr (std::is_same_v<T, double>) {
    return NumberText(NumberText::Fixed6{}, value);
  } else if constexpr (std::is_unsigned_v<T>) {
    return NumberText(NumberText::Unsigned{}, value);
  } else {
    return NumberText(NumberText::Signed{}, value);
  }
}

}  // namespace

tERROR Value_Base<void>::GetData(void* /*buffer*/, uint32_t /*size*/, uint32_t* needed) const {
  if (needed != nullptr) *needed = 0;
  return ResultOk;
}

tERROR Value_Base<void>::SetData(const void* /*buffer*/, uint32_t /*size*/) { return ValueUnchanged; }

template <typename T>
tERROR StringValue_Base<T>::GetText(char* buffer, uint32_t size, uint32_t* needed) const {
  if constexpr (kHasNoText<T>) {
    return CopyOut(nullptr, 0, buffer, size, needed);
  } else if constexpr (std::is_same_v<T, wchar_t>) {
    return ErrNotApplicable;
  } else if constexpr (std::is_same_v<T, bool>) {
    const char text[2] = {this->value_ != 0 ? '1' : '0', '\0'};
    return CopyOut(text, sizeof text, buffer, size, needed);
  } else if constexpr (std::is_same_v<T, char>) {
    return CopyOut(&this->value_, 1, buffer, size, needed);
  } else {
    const NumberText text = FormatNumber<T>(this->value_);
    // A double too long for the text form has none.
    if (!text.fits()) return ErrNotApplicable;
    return CopyOut(text.data(), text.length(), buffer, size, needed);
  }
}

template <typename T>
tERROR StringValue_Base<T>::SetText(const char* text) {
  if constexpr (kHasNoText<T>) {
    // A code address is never read back from text; tVOID has nothing to read.
    return ResultOk;
  } else if constexpr (std::is_same_v<T, wchar_t>) {
    return ErrNotApplicable;
  } else if constexpr (std::is_same_v<T, bool>) {
    return ParseBooleanText(text, &this->value_);
  } else if constexpr (std::is_same_v<T, char>) {
    if (text == nullptr) return ErrBadParameter;
    this->value_ = text[0];  // the NUL of an empty text
    return ResultOk;
  } else if constexpr (std::is_same_v<T, double>) {
    return ParseDoubleText(text, &this->value_);
  } else if constexpr (std::is_same_v<T, unsigned char[8]>) {
    uint64_t number = 0;
    tERROR err = ParseUnsignedLongLongText(text, &number);
    if (Succeeded(err)) std::memcpy(this->value_, &number, sizeof number);
    return err;
  } else if constexpr (std::is_unsigned_v<T>) {
    uint64_t number = 0;
    tERROR err = ParseUnsignedText(text, std::numeric_limits<T>::max(), &number);
    if (Succeeded(err)) this->value_ = static_cast<T>(number);
    return err;
  } else {
    // Only the maximum is checked: a value below the minimum is kept modulo
    // the type's width, as stored profiles expect.
    int64_t number = 0;
    tERROR err = ParseSignedText(text, std::numeric_limits<T>::max(), &number);
    if (Succeeded(err)) this->value_ = static_cast<T>(number);
    return err;
  }
}

template class StringValue_Base<void>;
template class StringValue_Base<unsigned char>;
template class StringValue_Base<unsigned short>;
template class StringValue_Base<unsigned int>;
template class StringValue_Base<unsigned long>;
template class StringValue_Base<bool>;
template class StringValue_Base<char>;
template class StringValue_Base<wchar_t>;
template class StringValue_Base<int>;
template class StringValue_Base<signed char>;
template class StringValue_Base<short>;
template class StringValue_Base<long>;
template class StringValue_Base<unsigned char[8]>;
template class StringValue_Base<void (*)()>;
template class StringValue_Base<double>;

}  // namespace propmap
