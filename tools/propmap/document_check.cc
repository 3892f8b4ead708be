#include "document_check.h"

#include <expat.h>

#include <algorithm>

#include "type_names.h"

namespace propmap_tool {
namespace {

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Expat is stricter than the module about bytes that do not change the
// structure: text that is not UTF-8, control bytes, references the module
// leaves as written (&foo;, &#0;) and a leading byte-order mark. The copy
// expat reads has those bytes replaced one for one, so offsets still match
// the original, and is wrapped in one element, so that a second top-level
// element is content like any other instead of an expat error.
constexpr std::string_view kOpen = "<w>";
constexpr std::string_view kClose = "</w>";

std::string Prepared(std::string_view text) {
  std::string out;
  out.reserve(text.size() + kOpen.size() + kClose.size());
  out += kOpen;
  out += text;
  char* body = out.data() + kOpen.size();
  size_t at = 0;
  if (text.size() >= 3 && text.substr(0, 3) == "\xEF\xBB\xBF") {
    std::fill(body, body + 3, ' ');  // the module drops it
    at = 3;
  }
  while (at < text.size() && IsSpace(text[at])) ++at;
  // An XML declaration is only allowed at the start of the (wrapped) text.
  if (text.substr(at, 5) == "<?xml" && at + 5 < text.size() && IsSpace(text[at + 5])) {
    const size_t end = text.find("?>", at);
    if (end != std::string_view::npos) std::fill(body + at, body + end + 2, ' ');
  }
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(body[i]);
    if (c >= 0x80) body[i] = 'x';
    else if ((c < 0x20 && !IsSpace(static_cast<char>(c))) || c == '&') body[i] = '_';
  }
  out += kClose;
  return out;
}

enum class Frame { kWrapper, kNativeRoot, kKey, kValue, kForeign, kSkipped };

struct Entry {
  explicit Entry(Frame frame) : kind(frame) {}
  Frame kind;
  bool ended = false;      // a text run ended the reading of its children
  size_t path_size = 0;    // length of the key path before this entry
  std::string type;        // value elements: the type name
  std::string name;        // value elements: the value's name
  size_t content = 0;      // value elements: offset just past the start tag
};

class Walker {
 public:
  Walker(std::string_view text, size_t max_lost, const ValueProbe* probe)
      : text_(text), max_lost_(max_lost), probe_(probe) {}

  DocumentReport Run() {
    const std::string input = Prepared(text_);
    parser_ = XML_ParserCreate("UTF-8");
    if (parser_ == nullptr) throw std::bad_alloc();
    XML_SetUserData(parser_, this);
    XML_SetElementHandler(parser_, &Walker::OnStart, &Walker::OnEnd);
    XML_SetCharacterDataHandler(parser_, &Walker::OnText);
    XML_SetCdataSectionHandler(parser_, &Walker::OnCdata, &Walker::OnCdataEnd);
    if (XML_Parse(parser_, input.data(), static_cast<int>(input.size()), 1) == XML_STATUS_ERROR &&
        XML_GetErrorCode(parser_) != XML_ERROR_ABORTED) {
      const size_t at = Offset();
      Finding f{at, at >= text_.size() ? std::string("the document ends before its elements are closed")
                                       : std::string("the document cannot be read here (") +
                                             XML_ErrorString(XML_GetErrorCode(parser_)) + ")"};
      if (probe_ != nullptr) {
        if (!report_.refused) report_.refused = f;
      } else if (report_.lost.size() < max_lost_) {
        f.what = "what follows (" + f.what + ")";
        report_.lost.push_back(std::move(f));
      }
    }
    XML_ParserFree(parser_);
    return std::move(report_);
  }

 private:
  static Walker& Self(void* data) { return *static_cast<Walker*>(data); }

  size_t Offset() const {
    const XML_Index at = XML_GetCurrentByteIndex(parser_) - static_cast<XML_Index>(kOpen.size());
    return static_cast<size_t>(std::clamp<XML_Index>(at, 0, static_cast<XML_Index>(text_.size())));
  }

  void Lost(size_t offset, std::string what) {
    if (probe_ != nullptr) return;  // only the refusal is looked for
    report_.lost.push_back({offset, std::move(what)});
    if (report_.lost.size() >= max_lost_) XML_StopParser(parser_, XML_FALSE);
  }
  void Refused(size_t offset, std::string what) {
    if (probe_ == nullptr) return;
    report_.refused = Finding{offset, std::move(what)};
    XML_StopParser(parser_, XML_FALSE);
  }

  std::string Path(const std::string& leaf) const { return path_.empty() ? leaf : path_ + "/" + leaf; }

  static const char* Attribute(const char** attributes, const char* name) {
    for (const char** a = attributes; *a != nullptr; a += 2) {
      if (std::string_view(a[0]) == name) return a[1];
    }
    return nullptr;
  }

  // Attributes other than "name" are not read in the native form.
  void ExtraAttributes(const char** attributes, size_t offset, const std::string& element) {
    for (const char** a = attributes; *a != nullptr; a += 2) {
      if (std::string_view(a[0]) != "name") Lost(offset, "attribute '" + std::string(a[0]) + "' of " + element);
    }
  }

  void Push(Entry entry) {
    entry.path_size = path_.size();
    stack_.push_back(std::move(entry));
  }

  static void XMLCALL OnStart(void* data, const char* name, const char** attributes) {
    Walker& w = Self(data);
    if (w.stack_.empty()) {  // the wrapper
      w.stack_.emplace_back(Frame::kWrapper);
      return;
    }
    const size_t at = w.Offset();
    Entry& top = w.stack_.back();
    const std::string_view element(name);
    switch (top.kind) {
      case Frame::kWrapper:
        if (!w.mode_decided_) {
          w.mode_decided_ = true;
          w.native_ = element == "propertiesmap";
          if (w.native_) w.ExtraAttributes(attributes, at, "the root element");
          w.Push(Entry(w.native_ ? Frame::kNativeRoot : Frame::kForeign));
          w.ForeignStart(attributes, at);
        } else if (w.native_) {
          w.Lost(at, "element <" + std::string(element) + "> after the root element");
          w.Push(Entry(Frame::kSkipped));
        } else if (top.ended) {
          w.Lost(at, "element <" + std::string(element) + "> after text at the top level");
          w.Push(Entry(Frame::kSkipped));
        } else {
          w.Push(Entry(Frame::kForeign));
          w.ForeignStart(attributes, at);
        }
        return;
      case Frame::kNativeRoot:
      case Frame::kKey: {
        if (top.ended) {
          w.Push(Entry(Frame::kSkipped));  // already reported with the text that ended the key
          return;
        }
        const char* key_name = Attribute(attributes, "name");
        const std::string label = key_name != nullptr ? w.Path(key_name) : w.path_;
        if (element == "key") {
          if (key_name == nullptr) return w.Refused(at, "a key element without a name");
          w.ExtraAttributes(attributes, at, "key '" + label + "'");
          if (++w.depth_ > kMaxKeyDepth) return w.Refused(at, "keys nested deeper than 2048 levels");
          w.Push(Entry(Frame::kKey));
          if (*key_name != '\0') w.path_ = label;
          return;
        }
        if (!prhost::TypeFromName(element)) {
          return w.Refused(at, "element <" + std::string(element) + "> is neither a key nor a type name");
        }
        if (key_name == nullptr) return w.Refused(at, "a " + std::string(element) + " value without a name");
        w.ExtraAttributes(attributes, at, "value '" + label + "'");
        Entry value(Frame::kValue);
        value.type = element;
        value.name = key_name;
        value.content = at + static_cast<size_t>(XML_GetCurrentByteCount(w.parser_));
        w.Push(std::move(value));
        return;
      }
      case Frame::kValue:
        w.Lost(at, "element <" + std::string(element) + "> inside value '" + w.Path(top.name) + "'");
        w.Push(Entry(Frame::kSkipped));
        return;
      case Frame::kForeign:
        if (top.ended) {
          w.Lost(at, "element <" + std::string(element) + "> after the text of its parent");
          w.Push(Entry(Frame::kSkipped));
          return;
        }
        w.Push(Entry(Frame::kForeign));
        w.ForeignStart(attributes, at);
        return;
      case Frame::kSkipped:
        w.Push(Entry(Frame::kSkipped));
        return;
    }
  }

  void ForeignStart(const char** /*attributes*/, size_t at) {
    if (stack_.back().kind != Frame::kForeign) return;
    if (++depth_ > kMaxKeyDepth) Refused(at, "elements nested deeper than 2048 levels");
  }

  static void XMLCALL OnEnd(void* data, const char* /*name*/) {
    Walker& w = Self(data);
    Entry entry = std::move(w.stack_.back());
    w.stack_.pop_back();
    if (entry.kind == Frame::kKey || entry.kind == Frame::kForeign) --w.depth_;
    w.path_.resize(entry.path_size);
    if (entry.kind == Frame::kNativeRoot) w.root_closed_ = true;
    if (entry.kind != Frame::kValue || w.probe_ == nullptr) return;
    if (XML_GetCurrentByteCount(w.parser_) == 0) {
      return w.Refused(w.Offset(), "value '" + w.Path(entry.name) + "' is an empty-element tag");
    }
    const size_t end = w.Offset();
    const std::string_view raw = w.text_.substr(entry.content, end - entry.content);
    if ((*w.probe_)(entry.type, raw)) {
      w.Refused(entry.content, "value '" + w.Path(entry.name) + "' (" + entry.type + ") refuses the text '" +
                                   std::string(raw) + "'");
    }
  }

  // Character data, also inside CDATA sections.
  static void XMLCALL OnText(void* data, const char* /*s*/, int /*len*/) {
    Walker& w = Self(data);
    if (w.in_cdata_ || w.stack_.empty()) return;
    // The module decides on the raw bytes: from where expat's chunk starts,
    // skip whitespace; anything else is text.
    size_t at = w.Offset();
    while (at < w.text_.size() && IsSpace(w.text_[at])) ++at;
    if (at >= w.text_.size() || w.text_[at] == '<') return;
    w.TextRun(at, "text");
  }

  static void XMLCALL OnCdata(void* data) {
    Walker& w = Self(data);
    w.TextRun(w.Offset(), "a CDATA section");
    w.in_cdata_ = true;  // its content is not counted again as text
  }
  static void XMLCALL OnCdataEnd(void* data) { Self(data).in_cdata_ = false; }

  void TextRun(size_t at, const char* what) {
    Entry& top = stack_.back();
    switch (top.kind) {
      case Frame::kWrapper:
        if (native_ && root_closed_) Lost(at, std::string(what) + " after the root element");
        else if (!native_ && mode_decided_ && !top.ended) top.ended = true;
        return;
      case Frame::kNativeRoot:
      case Frame::kKey:
        if (!top.ended) {
          Lost(at, std::string(what) + " among the keys and values of " + (path_.empty() ? "the root" : "'" + path_ + "'"));
          top.ended = true;
        }
        return;
      case Frame::kForeign:
        top.ended = true;  // becomes its "noname" value; later elements are dropped
        return;
      case Frame::kValue:
      case Frame::kSkipped:
        return;
    }
  }

  std::string_view text_;
  const size_t max_lost_;
  const ValueProbe* probe_;
  XML_Parser parser_ = nullptr;
  std::vector<Entry> stack_;
  std::string path_;
  size_t depth_ = 0;
  bool mode_decided_ = false;
  bool native_ = false;
  bool root_closed_ = false;
  bool in_cdata_ = false;
  DocumentReport report_;
};

}  // namespace

DocumentReport Examine(std::string_view text, size_t max_lost, const ValueProbe* probe) {
  return Walker(text, max_lost, probe).Run();
}

std::string Where(const std::string& file, std::string_view text, size_t offset) {
  offset = std::min(offset, text.size());
  size_t line = 1, line_start = 0;
  for (size_t i = 0; i < offset; ++i) {
    if (text[i] == '\n') {
      ++line;
      line_start = i + 1;
    }
  }
  return file + ":" + std::to_string(line) + ":" + std::to_string(offset - line_start + 1);
}

std::optional<size_t> FirstInvalidUtf8(std::string_view text) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const size_t n = text.size();
  for (size_t i = 0; i < n;) {
    const unsigned char c = s[i];
    size_t len;
    uint32_t cp;
    if (c < 0x80) {
      ++i;
      continue;
    } else if (c >= 0xC2 && c <= 0xDF) {
      len = 2, cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3, cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4, cp = c & 0x07;
    } else {
      return i;
    }
    if (i + len > n) return i;
    for (size_t k = 1; k < len; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) return i;
      cp = cp << 6 | (s[i + k] & 0x3F);
    }
    const uint32_t min = len == 2 ? 0x80 : len == 3 ? 0x800 : 0x10000;
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return i;
    i += len;
  }
  return std::nullopt;
}

}  // namespace propmap_tool
