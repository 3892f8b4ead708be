// Formatting of the module's trace lines.
//
// The module hands the host a format and its arguments; the host does the
// formatting. Only the conversions of the contract are accepted: %s, %d, %u,
// %x, %% and %terr (one tERROR, printed by FormatResult), optionally with the
// '-' and '0' flags and a decimal width. Every numeric argument is 32 bits.
// Anything else cannot be consumed safely, so formatting stops there: the rest
// of the format is copied as it stands and the line is marked malformed.
//
// Thread-safety: pure functions.
#pragma once

#include <cstdarg>
#include <string>

namespace prhost {

struct FormattedLine {
  std::string text;
  bool well_formed = true;
};

// Consumes arguments from `args` as the conversions require.
[[nodiscard]] FormattedLine FormatTrace(const char* format, va_list args);

// Convenience for tests and callers holding plain arguments.
[[nodiscard]] FormattedLine FormatTraceV(const char* format, ...);

}  // namespace prhost
