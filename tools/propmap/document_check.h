// What the module's reading of a profile document leaves out, and where it
// stops, found by walking the same text with expat.
//
// The module's reader is forgiving: text or CDATA among a key's children ends
// that key (the rest of it is skipped), nothing after the root element is
// looked at, attributes other than "name" are ignored, and in a foreign
// document the first text of an element ends it. A tree read that way saves
// without those parts. Examine() lists them, so that a command can refuse to
// save over them; comments and processing instructions are not counted (the
// module's writer never keeps them).
//
// When the module refuses a document, Examine() with a probe finds the first
// element it refuses: an unknown type tag, a value or key without a name, an
// empty-tagged value, nesting beyond the module's limit, or a value whose
// text the type refuses (the probe loads that one value as the module would).
//
// Thread-safety: pure functions.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace propmap_tool {

// Key elements nest at most this deep in a document the module reads.
inline constexpr size_t kMaxKeyDepth = 2048;

struct Finding {
  size_t offset = 0;  // byte offset into the text
  std::string what;
};

struct DocumentReport {
  std::vector<Finding> lost;       // parts a save would drop, in document order
  std::optional<Finding> refused;  // the first element the module refuses (with a probe)
};

// Whether the module refuses `raw_text` (as it stands in the document) for a
// value element of this type name.
using ValueProbe = std::function<bool(std::string_view type_name, std::string_view raw_text)>;

// Walks `text`; collects up to `max_lost` lost parts. With a probe, also
// looks for the first refused element and stops there.
DocumentReport Examine(std::string_view text, size_t max_lost, const ValueProbe* probe = nullptr);

// "FILE:LINE:COLUMN" of a byte offset (both 1-based, the column in bytes).
std::string Where(const std::string& file, std::string_view text, size_t offset);

// The offset of the first byte that is not part of well-formed UTF-8.
std::optional<size_t> FirstInvalidUtf8(std::string_view text);

}  // namespace propmap_tool
