// Text for people: names and value texts that cannot break a line-oriented
// listing, dates beside their numbers, and "did you mean" suggestions.
//
// Thread-safety: pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace propmap_tool {

// The name as it is, or in double quotes with \" \\ \n \t \r \xHH escapes
// when it is empty or holds spaces, quotes, separators or control characters.
std::string QuoteName(std::string_view name);

// Control characters as \n, \t, \r or \xHH (and a backslash doubled when the
// text has any), so that a multi-line string stays on its line.
std::string EscapeText(std::string_view text);

// "2025-01-01T00:00:00.000Z" for milliseconds since 1970 (how profiles keep a
// tDATETIME); nullopt beyond year 9999.
std::optional<std::string> IsoDate(uint64_t milliseconds);

// The candidates within a small edit distance of `word`, ignoring case,
// closest first (at most `limit`).
std::vector<std::string> CloseNames(std::string_view word, const std::vector<std::string>& candidates,
                                    size_t limit = 3);

// "'a', 'b' or 'c'".
std::string Alternatives(const std::vector<std::string>& names);

// "1 key", "5 keys".
std::string Count(size_t n, const char* singular);

}  // namespace propmap_tool
