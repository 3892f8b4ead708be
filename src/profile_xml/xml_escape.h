// Escaping for the document writer: the one rule that serves attribute values
// and text content alike.
//
// Thread-safety: pure functions over the caller's string.
#pragma once

#include <cstddef>
#include "profile_xml/text_sink.h"

namespace propmap::xml {

// A length of all ones stands for "up to the first zero byte".
inline constexpr size_t kUpToZero = static_cast<size_t>(-1);

// Appends the bytes with '"', '&', '\'', '<' and '>' as named references and
// bytes 1 to 31 other than LF and CR as '&#x<upper-case hex>;'. Every other
// byte, 0x80 and above included, is copied unchanged. Throws std::bad_alloc.
void EscapeAppend(const char* bytes, size_t length, TextSink* output);

// Appends ' name="value"' with the value escaped. Throws std::bad_alloc.
void AppendAttribute(TextSink* output, std::string_view name, const char* value, size_t length);

}  // namespace propmap::xml
