// Symbolic names of result codes, for trace lines and test messages.
//
// The table restates every code of the module's catalogue; codes it does not
// know print as bare hexadecimal.
//
// Thread-safety: constant table and pure functions.
#pragma once

#include <cstddef>
#include <string>

#include "abi.h"

namespace prhost {

struct NamedResult {
  tERROR code;
  const char* name;
};

// Every named code, in catalogue order.
const NamedResult* NamedResults(size_t* count);

// The name of a code, or null when it has none.
[[nodiscard]] const char* ResultName(tERROR code);

// "ErrNotFound(0x8000D002)" for named codes, "0x12345678" for the others.
[[nodiscard]] std::string FormatResult(tERROR code);

}  // namespace prhost
