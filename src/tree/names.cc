#include "tree/names.h"

namespace propmap {
namespace {

constexpr unsigned char FoldAscii(unsigned char c) { return (c >= 'A' && c <= 'Z') ? c + 0x20 : c; }

// One 64-bit hash_combine step: seed + golden ratio + value, then mixing.
constexpr uint64_t Combine(uint64_t h, uint64_t value) {
  uint64_t x = h + 0x9e3779b9ULL + value;
  x ^= x >> 32;
  x *= 0xe9846af9b1a615dULL;
  x ^= x >> 32;
  x *= 0xe9846af9b1a615dULL;
  x ^= x >> 28;
  return x;
}

}  // namespace

size_t HashName(const char* name, size_t length) {
  uint64_t h = 0;
  for (size_t i = 0; i < length; ++i) {
    // Folded bytes enter as signed chars, sign-extended: 0xC4 gives 2^64 - 60.
    auto folded = static_cast<signed char>(FoldAscii(static_cast<unsigned char>(name[i])));
    h = Combine(h, static_cast<uint64_t>(static_cast<int64_t>(folded)));
  }
  return h;
}

bool NamesEqual(const char* a, size_t a_length, const char* b, size_t b_length) {
  if (a_length != b_length) return false;
  for (size_t i = 0; i < a_length; ++i) {
    if (FoldAscii(static_cast<unsigned char>(a[i])) != FoldAscii(static_cast<unsigned char>(b[i]))) return false;
  }
  return true;
}

}  // namespace propmap
