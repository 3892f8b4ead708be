// Escaping by runs: ordinary bytes are appended in one piece, each special
// byte ends the run and is replaced.
#include "profile_xml/xml_escape.h"

#include <cstring>

#include "profile_xml/xml_chars.h"

namespace propmap::xml {

void EscapeAppend(const char* bytes, size_t length, std::string* output) {
  if (bytes == nullptr) return;
  if (length == kUpToZero) length = std::strlen(bytes);
  const char* run = bytes;
  const char* const end = bytes + length;
  for (const char* p = bytes; p < end; ++p) {
    if (!Is(*p, kEscaped)) continue;
    output->append(run, p);
    run = p + 1;
    switch (*p) {
      case '"': output->append("&quot;"); break;
      case '&': output->append("&amp;"); break;
      case '\'': output->append("&apos;"); break;
      case '<': output->append("&lt;"); break;
      case '>': output->append("&gt;"); break;
      default: {
        static constexpr char kHex[] = "0123456789ABCDEF";
        const auto code = static_cast<unsigned char>(*p);
        output->append("&#x");
        if (code >= 16) output->push_back(kHex[code >> 4]);
        output->push_back(kHex[code & 15]);
        output->push_back(';');
      }
    }
  }
  output->append(run, end);
}

void AppendAttribute(std::string* output, const char* name, const char* value, size_t length) {
  output->push_back(' ');
  output->append(name);
  output->push_back('=');
  output->push_back('"');
  EscapeAppend(value, length, output);
  output->push_back('"');
}

}  // namespace propmap::xml
