#include "people_text.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace propmap_tool {
namespace {

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool IsControl(unsigned char c) { return c < 0x20 || c == 0x7F; }

void AppendEscaped(std::string& out, char c) {
  switch (c) {
    case '\n': out += "\\n"; return;
    case '\t': out += "\\t"; return;
    case '\r': out += "\\r"; return;
    case '\\': out += "\\\\"; return;
    case '"': out += "\\\""; return;
    default: break;
  }
  if (IsControl(static_cast<unsigned char>(c))) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned char>(c));
    out += hex;
  } else {
    out += c;
  }
}

// Edits between two words ignoring case; two neighbours swapped count as one.
size_t Distance(std::string_view a, std::string_view b) {
  std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
  for (size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    for (size_t j = 1; j <= b.size(); ++j) {
      const bool same = Lower(a[i - 1]) == Lower(b[j - 1]);
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (same ? 0 : 1)});
      if (i > 1 && j > 1 && Lower(a[i - 1]) == Lower(b[j - 2]) && Lower(a[i - 2]) == Lower(b[j - 1])) {
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
      }
    }
  }
  return d[a.size()][b.size()];
}

}  // namespace

std::string QuoteName(std::string_view name) {
  const bool plain = !name.empty() && std::none_of(name.begin(), name.end(), [](char c) {
    return c == ' ' || c == '"' || c == '\\' || IsControl(static_cast<unsigned char>(c));
  });
  if (plain) return std::string(name);
  std::string out = "\"";
  for (char c : name) AppendEscaped(out, c);
  return out + "\"";
}

std::string EscapeText(std::string_view text) {
  if (std::none_of(text.begin(), text.end(), [](char c) { return IsControl(static_cast<unsigned char>(c)); })) {
    return std::string(text);
  }
  std::string out;
  for (char c : text) {
    if (c == '"') out += c;
    else AppendEscaped(out, c);
  }
  return out;
}

std::optional<std::string> IsoDate(uint64_t milliseconds) {
  constexpr uint64_t kYear10000 = 253402300800000;
  if (milliseconds >= kYear10000) return std::nullopt;
  const std::time_t seconds = static_cast<std::time_t>(milliseconds / 1000);
  std::tm utc{};
  if (::gmtime_r(&seconds, &utc) == nullptr) return std::nullopt;
  char text[96];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03uZ", utc.tm_year + 1900, utc.tm_mon + 1,
                utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<unsigned>(milliseconds % 1000));
  return text;
}

std::vector<std::string> CloseNames(std::string_view word, const std::vector<std::string>& candidates, size_t limit) {
  // Up to a third of the word may be wrong: "lss" finds "ls", "dwrod" finds "dword".
  const size_t allowed = std::max<size_t>(1, word.size() / 3);
  std::vector<std::pair<size_t, std::string>> near;
  for (const std::string& c : candidates) {
    const size_t d = Distance(word, c);
    if (d <= allowed) near.emplace_back(d, c);
  }
  std::stable_sort(near.begin(), near.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> out;
  for (size_t i = 0; i < near.size() && i < limit; ++i) out.push_back(near[i].second);
  return out;
}

std::string Alternatives(const std::vector<std::string>& names) {
  std::string out;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i > 0) out += i + 1 == names.size() ? " or " : ", ";
    out += "'" + names[i] + "'";
  }
  return out;
}

std::string Count(size_t n, const char* singular) {
  return std::to_string(n) + " " + singular + (n == 1 ? "" : "s");
}

}  // namespace propmap_tool
