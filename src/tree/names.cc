#include "tree/names.h"

namespace propmap {
namespace {

constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15ULL;

constexpr uint64_t Mix(uint64_t h) {
  h ^= h >> 32;
  h *= 0xD6E8FEB86659FD93ULL;
  h ^= h >> 32;
  return h;
}

}  // namespace

// A word at a time: the hash is never stored and its order never shows, so
// only equal-by-NamesEqual giving equal hashes matters. The length enters
// first, which makes the zero padding of the last word harmless; the empty
// name hashes to 0.
size_t HashName(const char* name, size_t length) {
  uint64_t h = length * kMultiplier;  // 0 for the empty name, as lookups assume
  for (; length >= 8; name += 8, length -= 8) {
    h = (h ^ names_detail::FoldWord(names_detail::LoadWord(name))) * kMultiplier;
    h ^= h >> 29;
  }
  if (length != 0) h = (h ^ names_detail::FoldWord(names_detail::LoadTail(name, length))) * kMultiplier;
  return Mix(h);
}

}  // namespace propmap
