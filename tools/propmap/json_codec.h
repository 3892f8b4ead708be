// Lossless typed JSON of a subtree.
//
//   {"format": "propmap", "version": 1,
//    "values": [{"name": "Width", "type": "tDWORD", "value": 1024}, ...],
//    "keys": [{"name": "Panels", "values": [...], "keys": [...]}, ...]}
//
// Arrays keep the store's order. Integers up to 32 bits are JSON numbers;
// 64-bit ones are decimal strings (JSON readers often hold numbers as
// doubles); doubles are numbers; blocks, non-finite doubles and strings that
// are not UTF-8 carry their native bytes as "hex" instead of "value". On
// reading, a "value" string for a non-string type is read as a person's
// input (typed_text.h), so hand-written JSON may say "0x10"; a tBOOL may
// also be true or false.
//
// Thread-safety: pure functions (FromJson uses the caller's Converter).
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "snapshot.h"

namespace propmap_tool {

nlohmann::ordered_json ToJson(const KeySnapshot& snapshot);

// One value as ToJson writes it: {"name", "type", "value" or "hex"}.
nlohmann::ordered_json ValueToJson(const TypedValue& value);

// The JSON document of `text`; ToolError (ErrBadDocument) "FILE:LINE:COLUMN:
// what" where the parser stopped. `comments` lets // and /* */ comments pass.
nlohmann::ordered_json ParseJsonDocument(const std::string& text, const std::string& file, bool comments = false);

// ToolError (ErrBadParameter) naming `where` and the value for malformed
// input, values out of their type's range, or keys nested deeper than
// `max_depth`.
KeySnapshot FromJson(const nlohmann::ordered_json& json, const Converter& converter, const std::string& where,
                     size_t max_depth);

}  // namespace propmap_tool
