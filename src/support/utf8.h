// UTF-8 to and from 32-bit wide characters, on counted input.
//
// The encoder follows the value layer's rules: the byte count and the bytes
// written disagree on purpose for units above 0x10FFFF (counted as 0 bytes,
// written as one "?"), and negative units are written as their low byte, so
// callers size buffers from the count and pass that size as the capacity.
// The decoder does not validate beyond the shape of a sequence: a lead byte
// and the continuation bytes it announces give one character, whatever its
// value; a sequence cut short gives "?".
//
// Ownership: the caller owns every buffer. Thread-safety: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>

namespace propmap {

// Bytes the value layer reports for `count` units: 1 up to 0x7F, 2 up to
// 0x7FF, 3 up to 0xFFFF, 4 below 0x110000, 0 above (units taken unsigned).
[[nodiscard]] size_t Utf8CountWide(const wchar_t* units, size_t count);

// Encodes the units (taken signed: negative units give one byte, their low 8
// bits; units above 0x10FFFF give "?"), writing whole sequences only and at
// most `capacity` bytes. Writes no terminator. Returns the bytes written.
[[nodiscard]] size_t Utf8EncodeWide(const wchar_t* units, size_t count, char* out, size_t capacity);

// Decodes `length` bytes into `out`, which needs room for `length` units (a
// byte yields at most one). A lead byte 0xC0-0xDF, 0xE0-0xEF or 0xF0-0xF7
// takes 1, 2 or 3 continuation bytes; a sequence cut short by the end or by
// a byte that is no continuation gives "?" and decoding resumes at that
// byte; a stray continuation byte or 0xF8-0xFF gives "?". Writes no
// terminator. Returns the units written.
[[nodiscard]] size_t Utf8Decode(const char* text, size_t length, uint32_t* out);

}  // namespace propmap
