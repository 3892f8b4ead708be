#include "support/utf8.h"

namespace propmap {

size_t Utf8CountWide(const wchar_t* units, size_t count) {
  size_t bytes = 0;
  for (size_t i = 0; i < count; ++i) {
    const auto unit = static_cast<uint32_t>(units[i]);
    if (unit <= 0x7F) {
      bytes += 1;
    } else if (unit <= 0x7FF) {
      bytes += 2;
    } else if (unit <= 0xFFFF) {
      bytes += 3;
    } else if (unit < 0x110000) {
      bytes += 4;
    }
  }
  return bytes;
}

size_t Utf8EncodeWide(const wchar_t* units, size_t count, char* out, size_t capacity) {
  size_t pos = 0;
  for (size_t i = 0; i < count; ++i) {
    const auto unit = static_cast<int32_t>(units[i]);
    const auto bits = static_cast<uint32_t>(unit);
    unsigned char seq[4];
    size_t length;
    if (unit <= 0x7F) {
      seq[0] = static_cast<unsigned char>(bits & 0xFF);
      length = 1;
    } else if (unit <= 0x7FF) {
      seq[0] = static_cast<unsigned char>(0xC0 | (bits >> 6));
      seq[1] = static_cast<unsigned char>(0x80 | (bits & 0x3F));
      length = 2;
    } else if (unit <= 0xFFFF) {
      seq[0] = static_cast<unsigned char>(0xE0 | (bits >> 12));
      seq[1] = static_cast<unsigned char>(0x80 | ((bits >> 6) & 0x3F));
      seq[2] = static_cast<unsigned char>(0x80 | (bits & 0x3F));
      length = 3;
    } else if (unit <= 0x10FFFF) {
      seq[0] = static_cast<unsigned char>(0xF0 | (bits >> 18));
      seq[1] = static_cast<unsigned char>(0x80 | ((bits >> 12) & 0x3F));
      seq[2] = static_cast<unsigned char>(0x80 | ((bits >> 6) & 0x3F));
      seq[3] = static_cast<unsigned char>(0x80 | (bits & 0x3F));
      length = 4;
    } else {
      seq[0] = '?';
      length = 1;
    }
    if (capacity - pos < length) break;
    for (size_t k = 0; k < length; ++k) out[pos++] = static_cast<char>(seq[k]);
  }
  return pos;
}

size_t Utf8Decode(const char* text, size_t length, uint32_t* out) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  size_t n = 0;
  size_t i = 0;
  while (i < length) {
    const unsigned char lead = bytes[i];
    size_t extra;
    uint32_t unit;
    if (lead < 0x80) {
      extra = 0, unit = lead;
    } else if (lead >= 0xC0 && lead < 0xE0) {
      extra = 1, unit = lead & 0x1F;
    } else if (lead >= 0xE0 && lead < 0xF0) {
      extra = 2, unit = lead & 0x0F;
    } else if (lead >= 0xF0 && lead < 0xF8) {
      extra = 3, unit = lead & 0x07;
    } else {
      out[n++] = '?';
      ++i;
      continue;
    }
    size_t taken = 1;
    while (taken <= extra && i + taken < length && (bytes[i + taken] & 0xC0) == 0x80) {
      unit = (unit << 6) | (bytes[i + taken] & 0x3F);
      ++taken;
    }
    out[n++] = taken > extra ? unit : '?';
    i += taken;
  }
  return n;
}

}  // namespace propmap
