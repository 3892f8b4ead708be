#include "values/text_rules.h"

#include <array>
#include <cctype>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace propmap {
namespace {

// Most stored numbers are plain digits. When their value fits 64 bits,
// strtoul, strtoull and strtol (within its range) all give exactly that
// value, so the C library's conversion (and its locale, base and overflow
// handling) is needed only for everything else.
constexpr size_t kPlainDigitsMax = 20;

bool PlainDecimal(const char* text, uint64_t* out) {
  uint64_t value = 0;
  size_t count = 0;
  for (; text[count] >= '0' && text[count] <= '9'; ++count) {
    if (count == kPlainDigitsMax) return false;
    if (__builtin_mul_overflow(value, uint64_t{10}, &value) ||
        __builtin_add_overflow(value, static_cast<uint64_t>(text[count] - '0'), &value)) {
      return false;
    }
  }
  if (count == 0 || text[count] != '\0') return false;
  *out = value;
  return true;
}

// A plain "-?digits[.digits]" text: from_chars rounds it exactly as strtod,
// which is what "%lf" scans with. Anything else goes through sscanf.
bool PlainDouble(const char* text, double* out) {
  const char* p = text + (*text == '-' ? 1 : 0);
  const char* digits = p;
  while (*p >= '0' && *p <= '9') ++p;
  if (p == digits) return false;
  if (*p == '.') {
    const char* fraction = ++p;
    while (*p >= '0' && *p <= '9') ++p;
    if (p == fraction) return false;
  }
  if (*p != '\0') return false;
  return std::from_chars(text, p, *out).ec == std::errc();
}

// 0..15 for a hexadecimal digit of either case, -1 otherwise; a table, as
// binary values are read two digits a byte.
constexpr int HexDigitSlow(int c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
constexpr auto kHexDigits = [] {
  std::array<int8_t, 256> table{};
  for (int c = 0; c < 256; ++c) table[static_cast<size_t>(c)] = static_cast<int8_t>(HexDigitSlow(c));
  return table;
}();
inline int HexDigit(char c) { return kHexDigits[static_cast<unsigned char>(c)]; }

// The shared steps of the unsigned and signed rules; `convert` is strtoul,
// strtoull or strtol and `overflowed` tells whether a base-16 result is one
// of the conversion's overflow answers.
template <typename Number, typename Convert, typename Overflowed>
tERROR ParseWholeText(const char* text, Convert convert, Overflowed overflowed, Number* out) {
  if (text == nullptr) return ErrBadParameter;
  char* end = nullptr;
  Number value = convert(text, &end, 10);
  if (*end != '\0') {
    value = convert(text, &end, 16);
    if (*end != '\0' || overflowed(value)) return ErrBadParameter;
  }
  *out = value;
  return ResultOk;
}

}  // namespace

tERROR ParseUnsignedText(const char* text, uint64_t maximum, uint64_t* out) {
  unsigned long value = 0;
  if (text != nullptr && PlainDecimal(text, &value)) {
    if (value > maximum) return ErrBadParameter;
    *out = value;
    return ResultOk;
  }
  tERROR err = ParseWholeText<unsigned long>(
      text, [](const char* t, char** e, int base) { return std::strtoul(t, e, base); },
      [](unsigned long v) { return v == ULONG_MAX; }, &value);
  if (Failed(err)) return err;
  if (value > maximum) return ErrBadParameter;
  *out = value;
  return ResultOk;
}

tERROR ParseUnsignedLongLongText(const char* text, uint64_t* out) {
  if (text != nullptr && PlainDecimal(text, out)) return ResultOk;
  unsigned long long value = 0;
  tERROR err = ParseWholeText<unsigned long long>(
      text, [](const char* t, char** e, int base) { return std::strtoull(t, e, base); },
      [](unsigned long long v) { return v == ULLONG_MAX; }, &value);
  if (Succeeded(err)) *out = value;
  return err;
}

tERROR ParseSignedText(const char* text, int64_t maximum, int64_t* out) {
  if (uint64_t plain = 0; text != nullptr && PlainDecimal(text, &plain) && plain <= uint64_t{LONG_MAX}) {
    if (static_cast<int64_t>(plain) > maximum) return ErrBadParameter;
    *out = static_cast<int64_t>(plain);
    return ResultOk;
  }
  long value = 0;
  tERROR err = ParseWholeText<long>(
      text, [](const char* t, char** e, int base) { return std::strtol(t, e, base); },
      [](long v) { return v == LONG_MIN || v == LONG_MAX; }, &value);
  if (Failed(err)) return err;
  if (value > maximum) return ErrBadParameter;
  *out = value;
  return ResultOk;
}

tERROR ParseDoubleText(const char* text, double* inout) {
  if (text == nullptr) return ErrBadParameter;
  double value = 0;
  if (PlainDouble(text, &value)) {
    *inout = value;
    return ResultOk;
  }
  const int converted = std::sscanf(text, "%lf", &value);
  if (converted == EOF) return ErrBadParameter;
  if (converted == 1) *inout = value;
  return ResultOk;
}

tERROR ParseBooleanText(const char* text, uint32_t* out) {
  if (text == nullptr) return ErrBadParameter;
  // Digits without a leading zero read the same in base 10 as strtoul's base
  // 0 does, and "0" is 0; every other number keeps the C library's reading.
  if (uint64_t plain = 0; (text[0] >= '1' && text[0] <= '9' && PlainDecimal(text, &plain)) ||
                          (text[0] == '0' && text[1] == '\0')) {
    *out = static_cast<uint32_t>(plain);
    return ResultOk;
  }
  auto space = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  const char* token = text;
  while (space(*token)) ++token;
  if (*token != '\0') {
    const char* end = token;
    while (*end != '\0' && !space(*end)) ++end;
    const size_t length = static_cast<size_t>(end - token);
    if (length == 4 && std::memcmp(token, "true", 4) == 0) {
      *out = 1;
      return ResultOk;
    }
    if (length == 5 && std::memcmp(token, "false", 5) == 0) {
      *out = 0;
      return ResultOk;
    }
  }
  // Numbers must start at the very first byte: " 1" is refused on purpose.
  if (text[0] < '0' || text[0] > '9') return ErrBadParameter;
  *out = static_cast<uint32_t>(std::strtoul(text, nullptr, 0));
  return ResultOk;
}

bool DecodeHexPairs(const char* text, uint32_t count, unsigned char* out) {
  // What the "0x" + pair rule accepts: two hexadecimal digits, or one right
  // before the text's end.
  for (uint32_t i = 0; i < count; ++i) {
    const int high = HexDigit(text[2 * i]);
    if (high < 0) return false;
    if (text[2 * i + 1] == '\0') {
      out[i] = static_cast<unsigned char>(high);
      continue;
    }
    const int low = HexDigit(text[2 * i + 1]);
    if (low < 0) return false;
    out[i] = static_cast<unsigned char>(high * 16 + low);
  }
  return true;
}

void EncodeHexPairs(const unsigned char* bytes, uint32_t count, char* out) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  for (uint32_t i = 0; i < count; ++i) {
    out[2 * i] = kDigits[bytes[i] >> 4];
    out[2 * i + 1] = kDigits[bytes[i] & 0x0F];
  }
}

}  // namespace propmap
