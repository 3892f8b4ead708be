// The text rules of value objects: how a value's text form is parsed.
//
// Each rule reads a NUL-terminated text and either yields a number or refuses
// with ErrBadParameter; a null text is refused. The rules are deliberately
// lopsided in places (decimal overflow is taken as all ones while the same
// overflow in hexadecimal is refused; a signed value below the type's minimum
// is accepted and later truncated) because stored profiles depend on them.
//
// Thread-safety: pure functions over the C library's conversions; they read
// the process locale, which the module never changes.
#pragma once

#include <cstdint>

#include "module/result_codes.h"

namespace propmap {

// Unsigned rule (strtoul): the whole text in base 10 (empty text is 0, a minus
// sign negates modulo 2^64, overflow gives all ones), else the whole text in
// base 16 unless that overflows; refused above `maximum`.
[[nodiscard]] tERROR ParseUnsignedText(const char* text, uint64_t maximum, uint64_t* out);

// The unsigned rule with strtoull and no maximum (the 8 bytes of a date).
[[nodiscard]] tERROR ParseUnsignedLongLongText(const char* text, uint64_t* out);

// Signed rule (strtol): as the unsigned rule; in base 16 both overflow results
// are refused. Only the maximum is checked, never a minimum.
[[nodiscard]] tERROR ParseSignedText(const char* text, int64_t maximum, int64_t* out);

// Double rule (sscanf "%lf"): empty or white-space-only text is refused; text
// that converts nothing succeeds and leaves *inout as it was.
[[nodiscard]] tERROR ParseDoubleText(const char* text, double* inout);

// Boolean rule: a first token of exactly "true" or "false" after white space;
// otherwise the text must start with a decimal digit and strtoul with
// automatic base gives the word, truncated to 32 bits and not normalised.
[[nodiscard]] tERROR ParseBooleanText(const char* text, uint32_t* out);

// Decodes 2 * count characters, two at a time, into count bytes. Each pair is
// read as "0x" and the pair by the 8-bit unsigned rule, so only two
// hexadecimal digits (either case) pass. False when a pair is refused; the
// output is then partly written.
[[nodiscard]] bool DecodeHexPairs(const char* text, uint32_t count, unsigned char* out);

// Writes two upper-case hexadecimal digits per byte, 2 * count characters.
void EncodeHexPairs(const unsigned char* bytes, uint32_t count, char* out);

}  // namespace propmap
