// ixo::basic_string_t: the owned narrow or wide string of the support library.
//
// A thin layer over std::basic_string (ordinary free store) whose counted
// constructor reports impossible lengths as an ixo::LengthError instead of a
// standard exception, so that interface entries can map it to a result code.
//
// Thread-safety: a value type; no sharing.
#pragma once

#include <cstdint>
#include <string>

#include "support/exception.h"

namespace ixo {

template <typename CharT>
class basic_string_t : public std::basic_string<CharT> {
 public:
  // Lengths above this are taken for a wrapped-around count.
  static constexpr size_t kMaxLength = 0x7FFFFFFF;

  basic_string_t() = default;
  basic_string_t(const CharT* text, size_t length) : std::basic_string<CharT>(Checked(text, length), length) {}

 private:
  static const CharT* Checked(const CharT* text, size_t length) {
    if (length > kMaxLength) throw LengthError("ixo::basic_string_t constructor");
    return text;
  }
};

using string_t = basic_string_t<char>;
using wstring_t = basic_string_t<wchar_t>;

}  // namespace ixo
