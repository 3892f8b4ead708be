#include "tree/names.h"

#include <cstring>

namespace propmap {
namespace {

constexpr unsigned char FoldAscii(unsigned char c) { return (c >= 'A' && c <= 'Z') ? c + 0x20 : c; }

constexpr uint64_t kOnes = 0x0101010101010101ULL;
constexpr uint64_t kHighBits = 0x8080808080808080ULL;
constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15ULL;

// FoldAscii on the 8 bytes of a word at once: a byte below 0x80 whose low
// seven bits lie in 'A'..'Z' gets 0x20 added. No byte carries into the next.
constexpr uint64_t FoldWord(uint64_t x) {
  const uint64_t low7 = x & ~kHighBits;
  const uint64_t from_a = low7 + kOnes * (0x80 - 'A');      // high bit: >= 'A'
  const uint64_t past_z = low7 + kOnes * (0x80 - 'Z' - 1);  // high bit: > 'Z'
  const uint64_t upper = from_a & ~past_z & ~x & kHighBits;
  return x | (upper >> 2);
}

constexpr uint64_t Mix(uint64_t h) {
  h ^= h >> 32;
  h *= 0xD6E8FEB86659FD93ULL;
  h ^= h >> 32;
  return h;
}

uint64_t LoadTail(const char* bytes, size_t count) {
  uint64_t word = 0;
  std::memcpy(&word, bytes, count);
  return word;
}

}  // namespace

// A word at a time: the hash is never stored and its order never shows, so
// only equal-by-NamesEqual giving equal hashes matters. The length enters
// first, which makes the zero padding of the last word harmless; the empty
// name hashes to 0.
size_t HashName(const char* name, size_t length) {
  uint64_t h = length * kMultiplier;  // 0 for the empty name, as lookups assume
  for (; length >= 8; name += 8, length -= 8) {
    uint64_t word;
    std::memcpy(&word, name, 8);
    h = (h ^ FoldWord(word)) * kMultiplier;
    h ^= h >> 29;
  }
  if (length != 0) h = (h ^ FoldWord(LoadTail(name, length))) * kMultiplier;
  return Mix(h);
}

bool NamesEqual(const char* a, size_t a_length, const char* b, size_t b_length) {
  if (a_length != b_length) return false;
  for (size_t i = 0; i < a_length; ++i) {
    if (FoldAscii(static_cast<unsigned char>(a[i])) != FoldAscii(static_cast<unsigned char>(b[i]))) return false;
  }
  return true;
}

}  // namespace propmap
