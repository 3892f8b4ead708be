// Escaping into room made per chunk: ordinary bytes are copied, each special
// byte is replaced.
#include "profile_xml/xml_escape.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "profile_xml/xml_chars.h"

namespace propmap::xml {

namespace {

// The longest replacement, "&quot;" or "&#x1F;", bounds what a byte becomes.
constexpr size_t kMaxPerByte = 6;
// Bytes escaped per call of Room, so that a long text never asks for six
// times its size at once.
constexpr size_t kChunk = 4096;

constexpr uint64_t kOnes = 0x0101010101010101ULL;
constexpr uint64_t kHighBits = 0x8080808080808080ULL;

// Bytes of `word` equal to `c` get their high bit set (and possibly bytes
// above a match: the borrow may carry on, which only costs a byte check).
constexpr uint64_t BytesEqual(uint64_t word, unsigned char c) {
  const uint64_t x = word ^ (kOnes * c);
  return (x - kOnes) & ~x & kHighBits;
}

// Whether any byte of the word may need escaping: one below 0x20 or one of
// '"', '&', '\'', '<', '>'. Most words of names and texts have none and are
// copied whole.
constexpr bool MayNeedEscaping(uint64_t word) {
  const uint64_t below_space = (word - kOnes * 0x20) & ~word & kHighBits;
  return (below_space | BytesEqual(word, '"') | BytesEqual(word, '&') | BytesEqual(word, '\'') |
          BytesEqual(word, '<') | BytesEqual(word, '>')) != 0;
}

char* EscapeChunk(const char* p, const char* end, char* out) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  auto put = [&out](std::string_view text) {
    std::memcpy(out, text.data(), text.size());
    out += text.size();
  };
  while (p < end) {
    if (end - p >= 8) {
      uint64_t word;
      std::memcpy(&word, p, sizeof word);
      if (!MayNeedEscaping(word)) {
        std::memcpy(out, &word, sizeof word);
        p += 8;
        out += 8;
        continue;
      }
    }
    // Up to the end of this word, or of a short tail, a byte at a time.
    for (const char* const stop = p + std::min<ptrdiff_t>(8, end - p); p < stop; ++p) {
      if (!Is(*p, kEscaped)) {
        *out++ = *p;
        continue;
      }
      switch (*p) {
        case '"': put("&quot;"); break;
        case '&': put("&amp;"); break;
        case '\'': put("&apos;"); break;
        case '<': put("&lt;"); break;
        case '>': put("&gt;"); break;
        default: {
          const auto code = static_cast<unsigned char>(*p);
          put("&#x");
          if (code >= 16) *out++ = kHex[code >> 4];
          *out++ = kHex[code & 15];
          *out++ = ';';
        }
      }
    }
  }
  return out;
}

}  // namespace

void EscapeAppend(const char* bytes, size_t length, TextSink* output) {
  if (bytes == nullptr) return;
  if (length == kUpToZero) length = std::strlen(bytes);
  for (const char* const end = bytes + length; bytes < end;) {
    const char* const chunk_end = bytes + std::min(kChunk, static_cast<size_t>(end - bytes));
    char* const start = output->Room(static_cast<size_t>(chunk_end - bytes) * kMaxPerByte);
    output->Advance(static_cast<size_t>(EscapeChunk(bytes, chunk_end, start) - start));
    bytes = chunk_end;
  }
}

void AppendAttribute(TextSink* output, std::string_view name, const char* value, size_t length) {
  output->Put(' ');
  output->Put(name);
  output->Put("=\"");
  EscapeAppend(value, length, output);
  output->Put('"');
}

}  // namespace propmap::xml
