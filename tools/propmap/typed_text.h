// What a person types for a value, read in the value type's own terms.
//
// The module's text conversions are lenient (they read "12abc" as
// hexadecimal, "-1" as the largest 64-bit number, "abc" as a double that
// leaves the old one); they stay as they are for loading profiles. Input
// typed on a command line or written in JSON is read here instead, strictly:
//   integers  decimal, or hexadecimal with 0x; a minus sign only for signed
//             types; no spaces, no other trailing characters; in range
//   tBOOL     true, false, 1 or 0
//   tCHAR     exactly one byte
//   tDOUBLE   a finite decimal number; rounded to the six decimals the
//             profile keeps (with a warning when that changes it)
//   tBINARY   pairs of hex digits
//   strings   any text
// and handed to the module as native bytes. Types whose values cannot be
// written to a profile meaningfully (see IsSettable) are refused by `set`.
//
// Thread-safety: pure functions.
#pragma once

#include <string>
#include <string_view>

#include "abi.h"

namespace propmap_tool {

// How a type's native bytes are laid out.
enum class Kind { kNone, kUnsigned, kSigned, kBool, kChar, kDouble, kString, kWide, kBlock };
struct Shape {
  Kind kind;
  unsigned width;  // native bytes of the fixed-size kinds
};
Shape ShapeOf(prhost::TypeId type);

// True when `set` takes the type: tVOID holds nothing, a tPTR or tFUNC_PTR
// is an address that means nothing in another process, and a tWCHAR cannot
// be written to a profile. Imports still carry them, so that an export of a
// profile holding them reads back.
bool IsSettable(prhost::TypeId type);

struct ParsedText {
  std::string native;   // the bytes to hand to the module
  std::string warning;  // non-empty when what is saved differs from what was typed
  bool module_converts = false;  // wide strings: `native` is UTF-8 text for the module's conversion
};

// The native bytes of `text` as `type`. ToolError (ErrBadParameter) naming
// `what` (e.g. "profiles.xml: 'Window/Width'"), the text and what the type
// takes.
ParsedText ParseTyped(prhost::TypeId type, const std::string& text, const std::string& what);

// A double as the profile will keep it: rounded to six decimals. `warning`
// set when that differs from `value`; ToolError when the profile cannot
// write it (not finite, or too large for the module's text).
double KeptDouble(double value, const std::string& typed, const std::string& what, std::string* warning);

}  // namespace propmap_tool
