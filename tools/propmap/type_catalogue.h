// The 33 types a profile holds, as `types` lists them and `--type` reads
// them: case-insensitively, with or without the leading 't'.
//
// Thread-safety: constant table and pure functions.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "abi.h"

namespace propmap_tool {

struct TypeInfo {
  prhost::TypeId id;
  const char* holds;    // what a value of the type holds
  const char* example;  // what `set` takes; null when `set` refuses the type
};

// In identifier order.
const std::vector<TypeInfo>& StorableTypes();

// Every name a type has ("tDWORD", ...), storable or not.
std::vector<std::string> AllTypeNames();

}  // namespace propmap_tool
