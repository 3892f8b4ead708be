// Escaping into room made per chunk: ordinary bytes are copied, each special
// byte is replaced.
#include "profile_xml/xml_escape.h"

#include <algorithm>
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

char* EscapeChunk(const char* p, const char* end, char* out) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  auto put = [&out](std::string_view text) {
    std::memcpy(out, text.data(), text.size());
    out += text.size();
  };
  for (; p < end; ++p) {
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
