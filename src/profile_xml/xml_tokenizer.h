// The pull tokenizer of the profile document: one forward pass over a byte
// range, no document object. Element and attribute names are views into the
// text, and so are attribute values until a caller asks for them decoded;
// texts are decoded into owned strings.
//
// Ownership: the cursor borrows [pos, end) for as long as it is used; the text
// is never copied and need not end in a zero byte. Every loop tests the end of
// the range before it reads a byte.
//
// Results: 0 or a token kind (positive) or a failure number (negative). The
// failure numbers never leave the document layer: the readers turn every one
// of them into ErrBadDocument.
//
// Thread-safety: none; a cursor and its strings belong to one call.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace propmap::xml {

// What NextElement and ClassifyMarkup report.
enum Token : int {
  TokenEnd = 1,         // no further element at this level
  TokenText = 2,        // character data
  TokenStartTag = 3,    // "<" and a tag-start byte
  TokenEndTag = 4,      // "</"
  TokenComment = 5,     // "<!--"
  TokenCData = 6,       // "<![CDATA["
  TokenProcessing = 7,  // "<?"
  TokenOther = 8,       // any other markup, or "<" as the last byte
};

enum Failure : int {
  FailName = -1,       // name missing or malformed; attribute syntax; end tag without ">"
  FailOpening = -2,    // comment, CDATA or processing instruction opens wrongly
  FailEndOfText = -3,  // the text ends where more was required
  FailExpected = -4,   // element name differs from the expected one
  FailTag = -5,        // no ">" after a start tag; bad or mismatched end tag; odd markup in skipped content
  FailMemory = -7,     // out of memory while reading attributes
  FailNesting = -8,    // more than 0x7FFFFFFF elements open while skipping
};

// NextElement flags.
enum : unsigned {
  kRequireStartTag = 1,  // anything but a start tag (end of text included) fails with FailEndOfText
  kConsumeElement = 2,   // also skip the element's content and end tag
  kNoEffect = 4,         // accepted, changes nothing
  kMatchName = 8,        // the element name must equal `expected`
  kReportText = 16,      // report text as TokenText and CDATA as TokenCData instead of TokenEnd
};

struct XmlCursor {
  const char* pos;
  const char* end;
};

// A start tag: [begin, end) runs from its "<" to just past its ">".
struct XmlTag {
  const char* begin = nullptr;
  const char* end = nullptr;
  const char* name = nullptr;
  size_t name_length = 0;

  bool self_closing() const { return end != nullptr && end - begin >= 2 && end[-2] == '/'; }
  std::string_view name_view() const { return {name, name_length}; }
};

// Views into the tag: the name as written and the value between its quotes,
// references not yet decoded.
struct XmlAttribute {
  std::string_view name;
  std::string_view raw_value;
};

// The attributes of one tag in document order. The list's storage is reused
// from tag to tag.
class XmlAttributeList {
 public:
  void Clear() { count_ = 0; }
  size_t size() const { return count_; }
  const XmlAttribute& operator[](size_t i) const { return items_[i]; }
  // Appends an entry; may throw std::bad_alloc.
  void Append(XmlAttribute attribute);
  // The first attribute whose name is exactly `name`, or null.
  const XmlAttribute* Find(std::string_view name) const;

 private:
  std::vector<XmlAttribute> items_;
  size_t count_ = 0;
};

// The next start tag at this level, skipping whitespace, comments and
// processing instructions. 0 with `tag` filled, a Token, or a Failure. Text,
// end tags and other markup leave the cursor on them.
[[nodiscard]] int NextElement(XmlCursor* cursor, XmlTag* tag, unsigned flags, std::string_view expected = {});

// The kind of markup at the cursor, which stands on "<".
[[nodiscard]] Token ClassifyMarkup(const XmlCursor& cursor);

// Skips the comment, CDATA section or processing instruction at the cursor
// (after whitespace) and reports the bytes between its opening and closing.
// FailOpening when it does not open as `kind` says; FailName when it is never
// closed. The cursor moves only on success.
[[nodiscard]] int SkipMarkup(XmlCursor* cursor, Token kind, std::string_view* content = nullptr);

// Reads a name of the element-name class at the cursor. FailName if none.
[[nodiscard]] int ReadElementName(XmlCursor* cursor, std::string_view* name);

// Reads the attributes of `tag` into `attributes` (cleared first). 0,
// FailName for bad syntax, FailMemory when out of memory.
[[nodiscard]] int ParseAttributes(const XmlTag& tag, XmlAttributeList* attributes);

// The value of `attribute` decoded: the raw view itself when it holds no
// reference, else `buffer` (cleared first) holding the decoded bytes. Throws
// std::bad_alloc.
std::string_view DecodedValue(const XmlAttribute& attribute, std::string* buffer);

// The value of `attribute` decoded into `buffer` (cleared first), which ends
// in a zero byte. Throws std::bad_alloc.
const char* TerminatedValue(const XmlAttribute& attribute, std::string* buffer);

// Reads character data at the cursor into `text` (cleared first). With
// `merge`, CDATA sections are appended raw and comments and processing
// instructions dropped until other markup. 1 when a byte other than
// whitespace was seen, else 0. Throws std::bad_alloc.
int ReadText(XmlCursor* cursor, std::string* text, bool merge);

// Appends [begin, end) to `out`, replacing entity and character references.
// Whether every reference was understood. Throws std::bad_alloc.
bool DecodeAppend(const char* begin, const char* end, std::string* out);

// Skips an element's remaining content, leaving the cursor on its end tag.
[[nodiscard]] int SkipElementContent(XmlCursor* cursor, const XmlTag& tag);
// Skips what remains of the element and consumes its matching end tag.
[[nodiscard]] int FinishElement(XmlCursor* cursor, const XmlTag& tag);
// Consumes one end tag and reports its name.
[[nodiscard]] int ReadEndTag(XmlCursor* cursor, std::string_view* name = nullptr);

}  // namespace propmap::xml
