// Case-insensitive names: the hash and equality every name index uses.
//
// Names are byte strings given as pointer and length. Matching folds ASCII
// 'A'..'Z' only; bytes of 0x80 and above never match a different byte. The
// hash folds the same way without consulting the locale, so names equal by
// NamesEqual always hash alike.
//
// Thread-safety: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace propmap {

[[nodiscard]] size_t HashName(const char* name, size_t length);
[[nodiscard]] bool NamesEqual(const char* a, size_t a_length, const char* b, size_t b_length);

inline size_t HashName(std::string_view name) { return HashName(name.data(), name.size()); }

// A view of a name with its precomputed hash: the key type of the sub-key
// index, and the probe for both indexes. It never owns the bytes. `name` may
// be repointed while the key sits in an index (at equal bytes, so neither hash
// nor equality changes): a new sub-key is indexed under the caller's path text
// first and then under its own name buffer.
struct NameKey {
  mutable const char* name;
  size_t length;
  size_t hash;
};

inline NameKey MakeNameKey(const char* name, size_t length) { return {name, length, HashName(name, length)}; }

}  // namespace propmap
