#include "typed_text.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "tool_error.h"
#include "typed_value.h"

namespace propmap_tool {
namespace {

using prhost::TypeId;

[[noreturn]] void Refuse(const std::string& what, TypeId type, const std::string& text, const std::string& takes) {
  throw ToolError(prhost::kErrBadParameter,
                  what + ": " + TypeLabel(type) + " takes " + takes + "; '" + text + "' is not one");
}

bool IsDigit(char c, int base) {
  if (c >= '0' && c <= '9') return true;
  return base == 16 && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'));
}

// The magnitude of "123" or "0x7B": digits only, no sign, no spaces, no
// trailing characters. nullopt for anything else or beyond 64 bits.
std::optional<uint64_t> Magnitude(std::string_view digits) {
  int base = 10;
  if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
    base = 16;
    digits.remove_prefix(2);
  }
  if (digits.empty()) return std::nullopt;
  uint64_t value = 0;
  for (char c : digits) {
    if (!IsDigit(c, base)) return std::nullopt;
    const unsigned d = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
    if (value > (std::numeric_limits<uint64_t>::max() - d) / base) return std::nullopt;
    value = value * base + d;
  }
  return value;
}

std::string Bytes(const void* data, size_t size) { return std::string(static_cast<const char*>(data), size); }

std::string Range(const Shape& shape) {
  const unsigned bits = shape.width * 8;
  if (shape.kind == Kind::kUnsigned) {
    return "0 to " + std::to_string(bits == 64 ? UINT64_MAX : (uint64_t{1} << bits) - 1);
  }
  const int64_t max = bits == 64 ? INT64_MAX : (int64_t{1} << (bits - 1)) - 1;
  return std::to_string(-max - 1) + " to " + std::to_string(max);
}

}  // namespace

Shape ShapeOf(TypeId type) {
  switch (type) {
    case 1: return {Kind::kNone, 0};
    case 2: return {Kind::kUnsigned, 1};
    case 3: return {Kind::kUnsigned, 2};
    case 4: case 8: case 14: case 20: case 21: case 22: case 23: case 24: case 25: case 26: case 27: case 28:
    case 54:
      return {Kind::kUnsigned, 4};
    case 5: case 29: case 30: case 31: return {Kind::kUnsigned, 8};
    case 6: return {Kind::kBool, 4};
    case 7: return {Kind::kChar, 1};
    case 15: return {Kind::kSigned, 1};
    case 17: return {Kind::kSigned, 2};
    case 11: case 13: return {Kind::kSigned, 4};
    case 18: case 19: return {Kind::kSigned, 8};
    case 32: return {Kind::kDouble, 8};
    case 9: return {Kind::kString, 0};
    case 12: case 48: return {Kind::kBlock, 0};
    default: return {Kind::kWide, 0};
  }
}

bool IsSettable(TypeId type) { return type != 1 && type != 8 && type != 12 && type != 31; }

double KeptDouble(double value, const std::string& typed, const std::string& what, std::string* warning) {
  // The profile holds "%lf": six decimals, and the module's formatting stops
  // the process beyond 255 characters.
  char text[512];
  const int n = std::isfinite(value) ? std::snprintf(text, sizeof text, "%f", value) : -1;
  if (n < 0 || n > 255) {
    throw ToolError(prhost::kErrBadParameter,
                    what + ": tDOUBLE takes a finite number below 1e247 in magnitude; '" + typed + "' is not one");
  }
  const double kept = std::strtod(text, nullptr);
  if (kept != value && warning != nullptr) {
    *warning = what + ": the profile keeps six decimals: '" + typed + "' is saved as " + text;
  }
  return kept;
}

ParsedText ParseTyped(TypeId type, const std::string& text, const std::string& what) {
  const Shape shape = ShapeOf(type);
  ParsedText out;
  switch (shape.kind) {
    case Kind::kNone:
      if (!text.empty()) Refuse(what, type, text, "no value (an empty text)");
      return out;
    case Kind::kUnsigned: {
      const std::optional<uint64_t> v = Magnitude(text);
      const unsigned bits = shape.width * 8;
      if (!v || (bits < 64 && *v >> bits != 0)) {
        Refuse(what, type, text, Range(shape) + ", decimal or hexadecimal with 0x");
      }
      out.native = Bytes(&*v, shape.width);  // little-endian: the low bytes first
      return out;
    }
    case Kind::kSigned: {
      const bool negative = !text.empty() && text[0] == '-';
      const std::optional<uint64_t> v = Magnitude(std::string_view(text).substr(negative ? 1 : 0));
      const unsigned bits = shape.width * 8;
      const uint64_t limit = (uint64_t{1} << (bits - 1)) - (negative ? 0 : 1);
      if (!v || *v > limit) Refuse(what, type, text, Range(shape) + ", decimal or hexadecimal with 0x");
      const int64_t s = negative ? static_cast<int64_t>(0 - *v) : static_cast<int64_t>(*v);
      out.native = Bytes(&s, shape.width);
      return out;
    }
    case Kind::kBool: {
      uint32_t flag;
      if (text == "true" || text == "1") flag = 1;
      else if (text == "false" || text == "0") flag = 0;
      else Refuse(what, type, text, "true, false, 1 or 0");
      out.native = Bytes(&flag, sizeof flag);
      return out;
    }
    case Kind::kChar:
      if (text.size() != 1) Refuse(what, type, text, "exactly one byte");
      out.native = text;
      return out;
    case Kind::kDouble: {
      // Decimal notation only: strtod would also take spaces, hex floats,
      // "inf" and "nan".
      const bool plain = !text.empty() && text.find_first_not_of("0123456789+-.eE") == std::string::npos;
      char* end = nullptr;
      errno = 0;
      const double v = plain ? std::strtod(text.c_str(), &end) : 0;
      if (!plain || end != text.c_str() + text.size() || errno == ERANGE) {
        Refuse(what, type, text, "a decimal number such as 1.5 or -2e-3");
      }
      const double kept = KeptDouble(v, text, what, &out.warning);
      out.native = Bytes(&kept, sizeof kept);
      return out;
    }
    case Kind::kString:
      out.native = text + '\0';
      return out;
    case Kind::kWide:
      out.native = text;
      out.module_converts = true;
      return out;
    case Kind::kBlock: {
      std::optional<std::string> bytes = FromHex(text);
      if (!bytes) Refuse(what, type, text, "pairs of hex digits such as 0A1B");
      out.native = std::move(*bytes);
      return out;
    }
  }
  return out;
}

}  // namespace propmap_tool
