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
#include <cstring>
#include <string_view>

namespace propmap {

namespace names_detail {

constexpr uint64_t kOnes = 0x0101010101010101ULL;
constexpr uint64_t kHighBits = 0x8080808080808080ULL;

// ASCII case folding of the 8 bytes of a word at once: a byte below 0x80
// whose low seven bits lie in 'A'..'Z' gets 0x20 added. No byte carries into
// the next.
constexpr uint64_t FoldWord(uint64_t x) {
  const uint64_t low7 = x & ~kHighBits;
  const uint64_t from_a = low7 + kOnes * (0x80 - 'A');      // high bit: >= 'A'
  const uint64_t past_z = low7 + kOnes * (0x80 - 'Z' - 1);  // high bit: > 'Z'
  const uint64_t upper = from_a & ~past_z & ~x & kHighBits;
  return x | (upper >> 2);
}

inline uint64_t LoadWord(const char* bytes) {
  uint64_t word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// The last `count` (< 8) bytes, zero-padded, as memcpy into a zeroed word
// would give them; in fixed-size pieces, which compile to plain loads where a
// memcpy of variable size is a library call.
inline uint64_t LoadTail(const char* bytes, size_t count) {
  uint64_t word = 0;
  size_t offset = 0;
  if ((count & 4) != 0) {
    uint32_t piece;
    std::memcpy(&piece, bytes, 4);
    word = piece;
    offset = 4;
  }
  if ((count & 2) != 0) {
    uint16_t piece;
    std::memcpy(&piece, bytes + offset, 2);
    word |= uint64_t{piece} << (8 * offset);
    offset += 2;
  }
  if ((count & 1) != 0) word |= uint64_t{static_cast<unsigned char>(bytes[offset])} << (8 * offset);
  return word;
}

}  // namespace names_detail

[[nodiscard]] size_t HashName(const char* name, size_t length);

// Compared a word at a time: index probes call this for every candidate.
[[nodiscard]] inline bool NamesEqual(const char* a, size_t a_length, const char* b, size_t b_length) {
  using names_detail::FoldWord;
  if (a_length != b_length) return false;
  size_t i = 0;
  for (; i + 8 <= a_length; i += 8) {
    if (FoldWord(names_detail::LoadWord(a + i)) != FoldWord(names_detail::LoadWord(b + i))) return false;
  }
  return i == a_length || FoldWord(names_detail::LoadTail(a + i, a_length - i)) ==
                              FoldWord(names_detail::LoadTail(b + i, a_length - i));
}

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
