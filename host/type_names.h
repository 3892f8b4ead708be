// Names of the value types, as the profile document and people write them.
//
// The host restates the module's numbering (identifiers 0 to 63) so that it
// can print and parse type names without the module's headers. Only the
// identifiers that have a value class can be stored; the others are known by
// name alone.
//
// Thread-safety: constant table and pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "abi.h"

namespace prhost {

inline constexpr TypeId kTypeIdLimit = 64;

// "tDWORD" for 4; null for an identifier without a name or out of range.
[[nodiscard]] const char* TypeName(TypeId type);

// The identifier of an exact, case-sensitive name; nullopt for none.
[[nodiscard]] std::optional<TypeId> TypeFromName(std::string_view name);

// True when the store can hold values of the type (1..15, 17..32, 48, 54).
[[nodiscard]] bool IsStorableType(TypeId type);

}  // namespace prhost
