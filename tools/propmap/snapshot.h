// A typed copy of a subtree, read in one pass through iRegistry, for the
// commands that compare, print or re-encode whole subtrees (tree, export,
// diff, import, restore, cp, watch).
//
// Values and sub-keys are read by index, in the store's order, so that two
// of one name (which a document can hold, though the store looks names up
// ignoring case and finds only the first) are both kept. Every walk here and
// over a snapshot is iterative: a tree as deep as the module holds passes.
//
// Thread-safety: plain values.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "profile.h"
#include "typed_value.h"

namespace propmap_tool {

// A name as the store compares it: ASCII letters folded, nothing else.
std::string Folded(std::string_view name);

struct KeySnapshot {
  std::string name;
  std::vector<TypedValue> values;
  std::vector<KeySnapshot> keys;
  uint32_t cut_keys = 0;  // sub-keys that a read to a limited depth left out

  KeySnapshot() = default;
  explicit KeySnapshot(std::string key_name) : name(std::move(key_name)) {}
  KeySnapshot(KeySnapshot&&) = default;
  KeySnapshot& operator=(KeySnapshot&&) = default;
  ~KeySnapshot();  // takes a deep tree apart without recursion
};

// The subtree below `key`, down to `depth` levels of sub-keys (0: the key's
// own values only). `where` names the file in error messages.
KeySnapshot ReadSubtree(const prhost::Registry& registry, prhost::hKey key, const std::string& where,
                        uint32_t depth = UINT32_MAX);

// The subtree at `key_path` of the profile at `path` ("-": standard input),
// opened read-only and without --root: comparisons name their subtrees
// themselves (FILE::KEY).
KeySnapshot ReadProfile(const Session& session, const std::string& path, const std::string& key_path = {});

// Writes the snapshot's values and sub-keys below `key` (types and native
// bytes exactly), merging by name with what is there. A second value or key
// of one name gets `marker()` and a number after its name (see
// Profile::DuplicateMarker). Returns the first failure, and names what
// failed in `failed` ("value 'Panels/Size' (tDWORD; tSTRING there)").
prhost::tERROR WriteSubtree(const prhost::Registry& registry, prhost::hKey key, const KeySnapshot& snapshot,
                            const std::function<const std::string&()>& marker, std::string* failed = nullptr);

// Levels of sub-keys below the snapshot's own key.
size_t Depth(const KeySnapshot& snapshot);

// Calls `visit(key)` for every key of the snapshot, parents first, in the
// store's order.
void ForEachKey(KeySnapshot& snapshot, const std::function<void(KeySnapshot&)>& visit);

}  // namespace propmap_tool
