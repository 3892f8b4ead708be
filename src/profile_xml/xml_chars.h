// Byte classes of the profile document, as one 256-entry table built at
// compile time from readable member lists. Hot loops test one bit per byte.
//
// Thread-safety: constant data and pure functions.
#pragma once

#include <array>
#include <cstdint>

namespace propmap::xml {

enum CharClass : uint8_t {
  kSpace = 1 << 0,      // space, tab, LF, CR: the only whitespace there is
  kTagStart = 1 << 1,   // may follow "<" to make a start tag: ':', '_', letters, 0xC0-0xD6, 0xD8-0xF6, 0xF8-0xFF
  kNameStart = 1 << 2,  // may start an element or attribute name: ':', '_', ASCII letters
  kElementName = 1 << 3,  // continues an element name: name start, '-', '.', digits, 0xB7 and the high tag-start bytes
  kAttributeName = 1 << 4,  // continues an attribute name: name start, '-', '.', digits (ASCII only)
  kEscaped = 1 << 5,    // written as a reference: " & ' < > and bytes 1-31 except LF and CR
};

namespace detail {

constexpr bool IsAsciiLetter(int c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool IsHighNameByte(int c) { return (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || c >= 0xF8; }

constexpr std::array<uint8_t, 256> MakeCharClasses() {
  std::array<uint8_t, 256> table{};
  for (int c = 0; c < 256; ++c) {
    uint8_t bits = 0;
    const bool name_start = c == ':' || c == '_' || IsAsciiLetter(c);
    const bool name_more = name_start || c == '-' || c == '.' || (c >= '0' && c <= '9');
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') bits |= kSpace;
    if (name_start || IsHighNameByte(c)) bits |= kTagStart;
    if (name_start) bits |= kNameStart;
    if (name_more || c == 0xB7 || IsHighNameByte(c)) bits |= kElementName;
    if (name_more) bits |= kAttributeName;
    if (c == '"' || c == '&' || c == '\'' || c == '<' || c == '>' || (c >= 1 && c < 32 && c != '\n' && c != '\r')) {
      bits |= kEscaped;
    }
    table[static_cast<size_t>(c)] = bits;
  }
  return table;
}

}  // namespace detail

inline constexpr std::array<uint8_t, 256> kCharClasses = detail::MakeCharClasses();

static_assert(kCharClasses[' '] == kSpace && kCharClasses['\t'] == (kSpace | kEscaped));
static_assert(kCharClasses['\n'] == kSpace && kCharClasses[0x0B] == kEscaped);
static_assert((kCharClasses[0xC3] & (kTagStart | kNameStart)) == kTagStart);
static_assert((kCharClasses[0xB7] & (kTagStart | kElementName | kAttributeName)) == kElementName);
static_assert(kCharClasses['-'] == (kElementName | kAttributeName));
static_assert(kCharClasses[0] == 0 && kCharClasses[0x80] == 0 && kCharClasses['/'] == 0);

inline bool Is(char c, uint8_t classes) { return (kCharClasses[static_cast<unsigned char>(c)] & classes) != 0; }

}  // namespace propmap::xml
