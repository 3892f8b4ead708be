// The pull tokenizer: start tags, end tags, markup skipping, attributes and
// text. Every scan is bounded by the cursor's end; memchr does the long runs.
#include "profile_xml/xml_tokenizer.h"

#include <cstdint>
#include <cstring>
#include <new>

#include "profile_xml/xml_chars.h"

namespace propmap::xml {
namespace {

constexpr std::string_view kCommentOpen = "<!--";
constexpr std::string_view kCDataOpen = "<![CDATA[";
constexpr std::string_view kProcessingOpen = "<?";

// Indentation comes in runs of spaces, taken eight at a time.
void SkipSpace(XmlCursor* cursor) {
  constexpr uint64_t kEightSpaces = 0x2020202020202020ULL;
  while (cursor->end - cursor->pos >= 8) {
    uint64_t word;
    std::memcpy(&word, cursor->pos, sizeof word);
    if (word != kEightSpaces) break;
    cursor->pos += 8;
  }
  while (cursor->pos < cursor->end && Is(*cursor->pos, kSpace)) ++cursor->pos;
}

bool StartsWith(const XmlCursor& cursor, std::string_view prefix) {
  return static_cast<size_t>(cursor.end - cursor.pos) >= prefix.size() &&
         std::memcmp(cursor.pos, prefix.data(), prefix.size()) == 0;
}

// The first '<' at or after the cursor, or the end.
const char* NextMarkup(const XmlCursor& cursor) {
  const void* found = std::memchr(cursor.pos, '<', static_cast<size_t>(cursor.end - cursor.pos));
  return found != nullptr ? static_cast<const char*>(found) : cursor.end;
}

}  // namespace

void XmlAttributeList::Append(XmlAttribute attribute) {
  if (count_ == items_.size()) items_.emplace_back();
  items_[count_++] = attribute;
}

const XmlAttribute* XmlAttributeList::Find(std::string_view name) const {
  for (size_t i = 0; i < count_; ++i) {
    if (items_[i].name == name) return &items_[i];
  }
  return nullptr;
}

Token ClassifyMarkup(const XmlCursor& cursor) {
  if (cursor.end - cursor.pos < 2) return TokenOther;
  const char next = cursor.pos[1];
  if (next == '/') return TokenEndTag;
  if (Is(next, kTagStart)) return TokenStartTag;
  if (StartsWith(cursor, kCommentOpen)) return TokenComment;
  if (StartsWith(cursor, kCDataOpen)) return TokenCData;
  if (StartsWith(cursor, kProcessingOpen)) return TokenProcessing;
  return TokenOther;
}

int SkipMarkup(XmlCursor* cursor, Token kind, std::string_view* content) {
  XmlCursor at = *cursor;
  SkipSpace(&at);
  std::string_view opening;
  std::string_view closing;
  switch (kind) {
    case TokenComment: opening = kCommentOpen; closing = "--"; break;
    case TokenCData: opening = kCDataOpen; closing = "]]>"; break;
    case TokenProcessing: opening = kProcessingOpen; closing = "?>"; break;
    default: return FailOpening;
  }
  if (!StartsWith(at, opening)) return FailOpening;
  const std::string_view rest(at.pos + opening.size(), static_cast<size_t>(at.end - at.pos) - opening.size());
  const size_t close = rest.find(closing);
  if (close == std::string_view::npos) return FailName;
  size_t after = close + closing.size();
  if (kind == TokenComment) {
    // "--" closes the content; the comment itself ends at the next '>'.
    const size_t bracket = rest.find('>', after);
    if (bracket == std::string_view::npos) return FailName;
    after = bracket + 1;
  }
  if (content != nullptr) *content = rest.substr(0, close);
  cursor->pos = rest.data() + after;
  return 0;
}

int ReadElementName(XmlCursor* cursor, std::string_view* name) {
  const char* begin = cursor->pos;
  if (begin == cursor->end || !Is(*begin, kNameStart)) return FailName;
  const char* p = begin + 1;
  while (p < cursor->end && Is(*p, kElementName)) ++p;
  cursor->pos = p;
  *name = std::string_view(begin, static_cast<size_t>(p - begin));
  return 0;
}

int NextElement(XmlCursor* cursor, XmlTag* tag, unsigned flags, std::string_view expected) {
  *tag = XmlTag{};
  const bool required = (flags & kRequireStartTag) != 0;
  for (;;) {
    SkipSpace(cursor);
    if (cursor->pos == cursor->end) return required ? int{FailEndOfText} : int{TokenEnd};
    if (*cursor->pos != '<') {
      if (required) return FailEndOfText;
      return (flags & kReportText) != 0 ? TokenText : TokenEnd;
    }
    const Token kind = ClassifyMarkup(*cursor);
    if (kind == TokenStartTag) break;
    if (kind == TokenComment || kind == TokenProcessing) {
      // An unclosed comment or instruction swallows the rest of the text.
      if (SkipMarkup(cursor, kind) < 0) cursor->pos = cursor->end;
      continue;
    }
    if (required) return FailEndOfText;
    return (flags & kReportText) != 0 && kind == TokenCData ? TokenCData : TokenEnd;
  }
  const char* begin = cursor->pos++;
  std::string_view name;
  if (int failure = ReadElementName(cursor, &name); failure < 0) return failure;
  if ((flags & kMatchName) != 0 && name != expected) return FailExpected;
  // The first '>' ends the tag, even inside a quoted value: the writer
  // always escapes '>', and the scan stays one memchr.
  const void* close = std::memchr(cursor->pos, '>', static_cast<size_t>(cursor->end - cursor->pos));
  if (close == nullptr) return FailTag;
  cursor->pos = static_cast<const char*>(close) + 1;
  *tag = XmlTag{begin, cursor->pos, name.data(), name.size()};
  if ((flags & kConsumeElement) != 0) return FinishElement(cursor, *tag);
  return 0;
}

int ParseAttributes(const XmlTag& tag, XmlAttributeList* attributes) {
  attributes->Clear();
  // Every scan stops at the tag's '>' (last), which is always in range.
  const char* const last = tag.end - 1;
  const char* p = tag.name + tag.name_length;
  for (;;) {
    const char* before_space = p;
    while (p < last && Is(*p, kSpace)) ++p;
    if (!Is(*p, kNameStart)) return *p == '>' || *p == '?' || *p == '/' ? 0 : FailName;
    if (p == before_space) return FailName;
    const char* name = p;
    while (p < last && Is(*p, kAttributeName)) ++p;
    const char* name_end = p;
    while (p < last && Is(*p, kSpace)) ++p;
    if (*p != '=') return FailName;
    ++p;
    while (p < last && Is(*p, kSpace)) ++p;
    const char quote = *p;
    if (quote != '"' && quote != '\'') return FailName;
    ++p;
    const void* value_end = std::memchr(p, quote, static_cast<size_t>(last - p));
    if (value_end == nullptr) return FailName;
    try {
      // Attribute names hold no '&', so they need no decoding; values are
      // decoded only when a caller uses them.
      attributes->Append({std::string_view(name, static_cast<size_t>(name_end - name)),
                          std::string_view(p, static_cast<size_t>(static_cast<const char*>(value_end) - p))});
    } catch (const std::bad_alloc&) {
      return FailMemory;
    }
    p = static_cast<const char*>(value_end) + 1;
    if (p == last) return 0;
  }
}

std::string_view DecodedValue(const XmlAttribute& attribute, std::string* buffer) {
  const std::string_view raw = attribute.raw_value;
  if (raw.find('&') == std::string_view::npos) return raw;
  buffer->clear();
  DecodeAppend(raw.data(), raw.data() + raw.size(), buffer);
  return *buffer;
}

const char* TerminatedValue(const XmlAttribute& attribute, std::string* buffer) {
  buffer->clear();
  DecodeAppend(attribute.raw_value.data(), attribute.raw_value.data() + attribute.raw_value.size(), buffer);
  return buffer->c_str();
}

int ReadText(XmlCursor* cursor, std::string* text, bool merge) {
  text->clear();
  int seen = 0;
  for (;;) {
    const char* run_end = NextMarkup(*cursor);
    for (const char* p = cursor->pos; seen == 0 && p < run_end; ++p) seen = Is(*p, kSpace) ? 0 : 1;
    DecodeAppend(cursor->pos, run_end, text);
    cursor->pos = run_end;
    if (!merge || cursor->pos == cursor->end) return seen;
    const Token kind = ClassifyMarkup(*cursor);
    if (kind != TokenCData && kind != TokenComment && kind != TokenProcessing) return seen;
    std::string_view content;
    if (SkipMarkup(cursor, kind, &content) < 0) return seen;
    if (kind == TokenCData) {
      // Only a section's first byte decides whether it brings non-whitespace.
      if (seen == 0 && !content.empty() && !Is(content[0], kSpace)) seen = 1;
      text->append(content);
    }
  }
}

int SkipElementContent(XmlCursor* cursor, const XmlTag& tag) {
  if (tag.self_closing()) return 0;
  int32_t open = 0;
  for (;;) {
    cursor->pos = NextMarkup(*cursor);
    if (cursor->pos == cursor->end) return FailEndOfText;
    const Token kind = ClassifyMarkup(*cursor);
    switch (kind) {
      case TokenStartTag: {
        XmlTag inner;
        if (int failure = NextElement(cursor, &inner, kRequireStartTag | kNoEffect); failure < 0) return failure;
        if (!inner.self_closing()) {
          if (open == INT32_MAX) return FailNesting;
          ++open;
        }
        break;
      }
      case TokenEndTag:
        if (open == 0) return 0;
        if (int failure = ReadEndTag(cursor); failure < 0) return failure;
        --open;
        break;
      case TokenComment:
      case TokenCData:
      case TokenProcessing:
        if (SkipMarkup(cursor, kind) < 0) return FailEndOfText;
        break;
      default:
        return FailTag;
    }
  }
}

int FinishElement(XmlCursor* cursor, const XmlTag& tag) {
  if (tag.self_closing()) return 0;
  if (int failure = SkipElementContent(cursor, tag); failure < 0) return failure;
  std::string_view name;
  if (int failure = ReadEndTag(cursor, &name); failure < 0) return failure;
  return name == tag.name_view() ? 0 : FailTag;
}

int ReadEndTag(XmlCursor* cursor, std::string_view* name) {
  SkipSpace(cursor);
  if (cursor->end - cursor->pos < 2 || cursor->pos[0] != '<' || cursor->pos[1] != '/') return FailTag;
  cursor->pos += 2;
  std::string_view read;
  if (ReadElementName(cursor, &read) < 0) return FailName;
  SkipSpace(cursor);
  if (cursor->pos == cursor->end || *cursor->pos != '>') return FailName;
  ++cursor->pos;
  if (name != nullptr) *name = read;
  return 0;
}

}  // namespace propmap::xml
