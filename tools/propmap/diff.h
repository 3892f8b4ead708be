// Typed differences between two snapshots.
//
// Keys and values are matched by name ignoring ASCII case, as the store looks
// them up, and duplicates of one name in order (the second with the second);
// two values differ when their types or native bytes differ. Order alone is
// no difference. Per key, its value changes come first (in the order of the
// first snapshot, then what only the second holds), then its keys removed and
// added, then the changes inside the keys both hold.
//
// Thread-safety: pure functions.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "snapshot.h"

namespace propmap_tool {

struct Change {
  enum Kind : char { kAddedKey = '+', kRemovedKey = '-', kAdded = 'a', kRemoved = 'r', kChanged = '~' };
  Kind kind;
  std::string path;  // key path joined by '/'; a value's name after the last '/'
  const TypedValue* before = nullptr;  // removed and changed values
  const TypedValue* after = nullptr;   // added and changed values
};

// Changes from `a` to `b`; they point into both snapshots.
std::vector<Change> Diff(const KeySnapshot& a, const KeySnapshot& b);

// One line per change: "+ Window/Panels/", "+ Window/Width (tDWORD) = 5",
// "~ Window/Width (tDWORD) = 5 -> (tDWORD) = 6".
std::string FormatChanges(const std::vector<Change>& changes);
nlohmann::ordered_json ChangesToJson(const std::vector<Change>& changes);

}  // namespace propmap_tool
