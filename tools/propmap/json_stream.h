// JSON of a subtree written as the store is walked, without a copy of the
// tree or a JSON document in memory: a profile of hundreds of megabytes
// prints in little more memory than its loaded tree.
//
// Both shapes of the tool's tree JSON:
//   kTree    --json tree: {"values": [{"name", "type", "text"}], "keys": [{"name", "values", "keys"}]}
//   kTyped   export --format json: the lossless typed JSON of json_codec.h
// One value per line; nested keys are indented up to a fixed depth, so the
// output stays linear in the size of the tree however deep it is.
//
// Thread-safety: one thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "registry.h"

namespace propmap_tool {

enum class JsonShape { kTree, kTyped };

// Writes the subtree below `key` to `out`. ToolError naming `where` when a
// read fails or keys nest deeper than a profile reads back; what was written
// until then stays written.
// Keys `depth` levels down list no sub-keys; "cut_keys" says how many they hold.
void StreamTreeJson(const prhost::Registry& registry, prhost::hKey key, const std::string& where, JsonShape shape,
                    std::FILE* out, uint32_t depth = UINT32_MAX);

}  // namespace propmap_tool
