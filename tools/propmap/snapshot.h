// A typed copy of a subtree, read in one pass through iRegistry, for the
// commands that compare, print or re-encode whole subtrees (tree, export,
// diff, import --dry-run, restore, watch).
//
// Order is the store's: sub-keys and values in insertion order.
//
// Thread-safety: plain values.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "profile.h"
#include "typed_value.h"

namespace propmap_tool {

struct KeySnapshot {
  std::string name;
  std::vector<TypedValue> values;
  std::vector<KeySnapshot> keys;
};

// The subtree below `key`, down to `depth` levels of sub-keys (0: the key's
// own values only). `where` names the file in error messages.
KeySnapshot ReadSubtree(const prhost::Registry& registry, prhost::hKey key, const std::string& where,
                        uint32_t depth = UINT32_MAX);

// The subtree at `key_path` of the profile at `path`, opened read-only and
// without --root: comparisons name their subtrees themselves (FILE::KEY).
KeySnapshot ReadProfile(const Session& session, const std::string& path, const std::string& key_path = {});

// Writes the snapshot's values and sub-keys below `key` (types and native
// bytes exactly). Returns the first failure.
prhost::tERROR WriteSubtree(const prhost::Registry& registry, prhost::hKey key, const KeySnapshot& snapshot);

}  // namespace propmap_tool
