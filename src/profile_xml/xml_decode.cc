// Entity and character references in text and attribute values. Whatever is
// not understood stays in the text as written, so decoding never fails.
#include <cstdint>
#include <cstring>
#include <string_view>

#include "profile_xml/xml_tokenizer.h"

namespace propmap::xml {
namespace {

struct NamedEntity {
  std::string_view name;  // with its ';'
  char replacement;
};
constexpr NamedEntity kNamedEntities[] = {
    {"amp;", '&'}, {"lt;", '<'}, {"gt;", '>'}, {"quot;", '"'}, {"apos;", '\''},
};

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

void AppendUtf8(uint32_t code, std::string* out) {
  char bytes[4];
  size_t n;
  if (code < 0x80) {
    bytes[0] = static_cast<char>(code);
    n = 1;
  } else if (code < 0x800) {
    bytes[0] = static_cast<char>(0xC0 | (code >> 6));
    bytes[1] = static_cast<char>(0x80 | (code & 0x3F));
    n = 2;
  } else if (code < 0x10000) {
    bytes[0] = static_cast<char>(0xE0 | (code >> 12));
    bytes[1] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    bytes[2] = static_cast<char>(0x80 | (code & 0x3F));
    n = 3;
  } else {
    bytes[0] = static_cast<char>(0xF0 | (code >> 18));
    bytes[1] = static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    bytes[2] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    bytes[3] = static_cast<char>(0x80 | (code & 0x3F));
    n = 4;
  }
  out->append(bytes, n);
}

// Decodes the reference at `amp` (which holds '&'). Returns the bytes it
// covers, or 0 when it is no reference at all (the '&' then stays as
// written). `understood` is cleared for references left or dropped.
size_t DecodeReference(const char* amp, const char* end, std::string* out, bool* understood) {
  const std::string_view rest(amp + 1, static_cast<size_t>(end - amp - 1));
  if (rest.empty() || rest[0] != '#') {
    for (const NamedEntity& entity : kNamedEntities) {
      if (rest.starts_with(entity.name)) {
        out->push_back(entity.replacement);
        return 1 + entity.name.size();
      }
    }
    return 0;
  }
  const bool hex = rest.size() > 1 && rest[1] == 'x';
  size_t i = hex ? 2 : 1;
  const size_t first_digit = i;
  uint32_t code = 0;  // wraps on purpose: the digits are not range-checked
  for (; i < rest.size(); ++i) {
    const int digit = hex ? HexDigit(rest[i]) : (rest[i] >= '0' && rest[i] <= '9' ? rest[i] - '0' : -1);
    if (digit < 0) break;
    code = code * (hex ? 16u : 10u) + static_cast<uint32_t>(digit);
  }
  if (i == first_digit || i == rest.size() || rest[i] != ';') return 0;
  const size_t covered = i + 2;  // '&', the number and ';'
  if (code == 0) {
    out->append(amp, covered);
    *understood = false;
  } else if (code > 0x10FFFF) {
    *understood = false;
  } else {
    AppendUtf8(code, out);
  }
  return covered;
}

}  // namespace

bool DecodeAppend(const char* begin, const char* end, std::string* out) {
  bool understood = true;
  const char* p = begin;
  while (p < end) {
    const void* found = std::memchr(p, '&', static_cast<size_t>(end - p));
    if (found == nullptr) {
      out->append(p, end);
      break;
    }
    const char* amp = static_cast<const char*>(found);
    out->append(p, amp);
    const size_t covered = DecodeReference(amp, end, out, &understood);
    if (covered == 0) {
      out->push_back('&');
      understood = false;
      p = amp + 1;
    } else {
      p = amp + covered;
    }
  }
  return understood;
}

}  // namespace propmap::xml
