// The generic mapping of foreign documents checked against an independent
// parser (expat): a model of the mapping rules is built from expat's events
// and compared with the keys and strings the reader creates, on XML files
// found on the machine (document type declaration stripped, which the reader
// refuses) and on generated documents made of every construct of the mapping.
#include <expat.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "profile_xml/document.h"
#include "tree_fixture.h"

namespace propmap::testing {
namespace {

// The reader's whitespace and the two normalisations expat applies that the
// reader does not (line ends everywhere, and whitespace inside attribute
// values); both sides are compared after them.
bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
std::string NormaliseLineEnds(const std::string& s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\r') {
      out += '\n';
      if (i + 1 < s.size() && s[i + 1] == '\n') ++i;
    } else {
      out += s[i];
    }
  }
  return out;
}
std::string NormaliseAttribute(const std::string& s) {
  std::string out = NormaliseLineEnds(s);
  for (char& c : out) c = IsSpace(c) ? ' ' : c;
  return out;
}

// The mapping rules, applied to expat's events. Per element: its attributes
// become strings; its first text run (after leading whitespace, CDATA merged,
// comments and instructions dropped) becomes "noname" when it holds more than
// whitespace, and ends the mapping of the element's content.
class Model {
 public:
  explicit Model(const std::string& text) : text_(text) { stack_.push_back({&out_, false, false, {}}); }

  // The model's tree in the form Normalised gives; false when expat refuses
  // the document.
  bool Parse(std::string* description) {
    std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate("UTF-8"), XML_ParserFree);
    XML_SetUserData(parser.get(), this);
    XML_SetElementHandler(parser.get(), &Start, &End);
    XML_SetCharacterDataHandler(parser.get(), &Chars);
    XML_SetCdataSectionHandler(parser.get(), &CDataStart, &CDataEnd);
    parser_ = parser.get();
    if (XML_Parse(parser.get(), text_.data(), static_cast<int>(text_.size()), 1) != XML_STATUS_OK) return false;
    *description = Describe(out_);
    return true;
  }

 private:
  struct Key {
    std::string name;
    std::vector<std::pair<std::string, std::string>> values;
    std::vector<std::unique_ptr<Key>> children;
  };
  struct Frame {
    Key* key;         // null when the element is not mapped
    bool in_text;     // its first text run has begun
    bool text_done;   // its mapping has ended
    std::string text;
    bool meaningful = false;
  };

  static void Start(void* self, const XML_Char* name, const XML_Char** attributes) {
    auto* m = static_cast<Model*>(self);
    Frame& parent = m->stack_.back();
    m->EndText(&parent);
    Key* key = nullptr;
    if (parent.key != nullptr && !parent.text_done) {
      parent.key->children.push_back(std::make_unique<Key>());
      key = parent.key->children.back().get();
      key->name = name;
      for (int i = 0; attributes[i] != nullptr; i += 2) {
        key->values.emplace_back(attributes[i], NormaliseAttribute(attributes[i + 1]));
      }
    }
    m->stack_.push_back({key, false, false, {}});
  }
  static void End(void* self, const XML_Char*) {
    auto* m = static_cast<Model*>(self);
    m->EndText(&m->stack_.back());
    m->stack_.pop_back();
  }
  static void Chars(void* self, const XML_Char* data, int length) {
    auto* m = static_cast<Model*>(self);
    Frame& f = m->stack_.back();
    if (f.key == nullptr || f.text_done) return;
    const size_t size = static_cast<size_t>(length);
    if (m->in_cdata_) {
      // Only a section's first byte decides whether it brings non-whitespace.
      if (m->cdata_first_ && !f.meaningful && size > 0 && !IsSpace(data[0])) f.meaningful = true;
      m->cdata_first_ = false;
      f.text.append(data, size);
      return;
    }
    // Whether a run is blank is decided on its bytes as written.
    const auto index = static_cast<size_t>(XML_GetCurrentByteIndex(m->parser_));
    const auto count = static_cast<size_t>(XML_GetCurrentByteCount(m->parser_));
    const bool blank = std::all_of(m->text_.begin() + static_cast<std::ptrdiff_t>(index),
                                   m->text_.begin() + static_cast<std::ptrdiff_t>(index + count), IsSpace);
    if (!f.in_text) {
      if (blank) return;  // whitespace before the first text is skipped
      f.in_text = true;
      size_t skip = 0;
      while (skip < size && IsSpace(data[skip])) ++skip;
      f.text.append(data + skip, size - skip);
      f.meaningful = true;
      return;
    }
    if (!blank) f.meaningful = true;
    f.text.append(data, size);
  }
  static void CDataStart(void* self) {
    auto* m = static_cast<Model*>(self);
    m->in_cdata_ = true;
    m->cdata_first_ = true;
    // A section begins the text run even when it is empty.
    Frame& f = m->stack_.back();
    if (f.key != nullptr && !f.text_done) f.in_text = true;
  }
  static void CDataEnd(void* self) {
    auto* m = static_cast<Model*>(self);
    m->in_cdata_ = false;
    m->cdata_first_ = false;
  }
  void EndText(Frame* f) {
    if (!f->in_text || f->text_done) return;
    f->text_done = true;
    if (f->meaningful) f->key->values.emplace_back("noname", NormaliseLineEnds(f->text));
  }

  static std::string Describe(const Key& key) {
    std::string out;
    for (const auto& [name, value] : key.values) out += name + ":tSTRING=" + value + ";";
    for (const auto& child : key.children) out += child->name + "{" + Describe(*child) + "}";
    return out;
  }

  const std::string& text_;
  XML_Parser parser_ = nullptr;
  Key out_;
  std::vector<Frame> stack_;
  bool in_cdata_ = false;
  bool cdata_first_ = false;
};

// Our side, normalised as the model is.
std::string Normalised(KeyNode* key) {
  std::string out;
  for (ListLink* l = key->values.next; l != &key->values; l = l->next) {
    const ValueEntry* e = EntryFrom(l);
    const std::string text = ValueText(e->value);
    out += std::string(e->name) + ":tSTRING=" +
           (std::string(e->name) == "noname" && l->next == &key->values ? NormaliseLineEnds(text)
                                                                         : NormaliseAttribute(text)) +
           ";";
  }
  for (KeyNode* c = key->FirstChild(); c != nullptr; c = key->NextChild(c)) {
    out += std::string(c->name) + "{" + Normalised(c) + "}";
  }
  return out;
}

// Documented differences that make the reader refuse what expat accepts: a raw
// '>' inside a quoted attribute value ends the tag early, and element names
// take no bytes 0x80-0xBF other than 0xB7.
bool RefusalExplained(const std::string& text) {
  for (size_t i = 0; i + 1 < text.size(); ++i) {
    if (text[i] != '<') continue;
    const auto next = static_cast<unsigned char>(text[i + 1]);
    if (next == '!' || next == '?' || next == '/') continue;
    char quote = 0;
    for (size_t j = i + 1; j < text.size() && !(quote == 0 && text[j] == '>'); ++j) {
      const auto c = static_cast<unsigned char>(text[j]);
      if (quote == 0 && c >= 0x80 && c <= 0xBF && c != 0xB7) return true;
      if (quote != 0 && c == '>') return true;
      if (quote == 0 && (c == '"' || c == '\'')) quote = static_cast<char>(c);
      else if (c == static_cast<unsigned char>(quote)) quote = 0;
    }
  }
  return false;
}

// Foreign documents made of every construct of the mapping.
std::string GenerateForeign(std::mt19937* rng) {
  auto below = [&](int n) { return static_cast<int>((*rng)() % static_cast<uint32_t>(n)); };
  static const char* const kTexts[] = {"  ", "\n", "text", " a&amp;b ", "&#x41;&#233;&#x1F600;", "&lt;&gt;&quot;&apos;",
                                       "\r\n x", "caf\xC3\xA9"};
  static const char* const kNames[] = {"a", "b:c", "_d.e-f", "G1", "item", "x\xC3\x80y"};
  std::string out = below(2) != 0 ? "<?xml version=\"1.0\"?>\n" : "";
  std::function<void(int)> element = [&](int depth) {
    const std::string name = kNames[below(static_cast<int>(std::size(kNames)))];
    out += "<" + name;
    for (int i = below(3); i > 0; --i) {
      const char* quote = below(2) != 0 ? "'" : "\"";
      static const char* const kValues[] = {"v&lt;", "\t&amp;", "&#10;\r\n", "&#x1F600;"};
      out += " at" + std::to_string(i) + "=" + quote + kValues[below(4)] +
             std::to_string(below(100)) + quote;
    }
    // A self-closing first element is no document to the reader.
    out += depth > 3 || (depth > 0 && below(4) == 0) ? "/>" : ">";
    if (out.back() == '>' && out[out.size() - 2] == '/') return;
    for (int i = below(5); i > 0; --i) {
      switch (below(5)) {
        case 0: element(depth + 1); break;
        case 1: out += kTexts[below(static_cast<int>(std::size(kTexts)))]; break;
        case 2: out += below(2) ? "<![CDATA[ <&> ]]>" : "<![CDATA[x]]>"; break;
        case 3: out += "<!-- c -->"; break;
        default: out += "<?pi x?>"; break;
      }
    }
    out += "</" + name + ">";
  };
  element(0);
  return out;
}

// Removes a document type declaration, internal subset included (the
// document is left as it is when the declaration does not end).
std::string StripDoctype(std::string text) {
  const size_t start = text.find("<!DOCTYPE");
  if (start == std::string::npos) return text;
  int brackets = 0;
  char quote = 0;
  for (size_t i = start + 9; i < text.size(); ++i) {
    const char c = text[i];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (text.compare(i, 4, "<!--") == 0) {
      i = text.find("-->", i);  // comments of the internal subset may hold quotes
      if (i == std::string::npos) return text;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '[') {
      ++brackets;
    } else if (c == ']') {
      --brackets;
    } else if (c == '>' && brackets == 0) {
      return text.erase(start, i + 1 - start);
    }
  }
  return text;
}

class ProfileForeignDiffTest : public TreeTest {
 protected:
  // Compares one document; false when expat refuses it.
  bool Compare(const std::string& what, const std::string& text) {
    std::string model;
    if (!Model(text).Parse(&model)) return false;
    ClearKey(root());
    const tERROR code = ReadProfileDocument(&tree_, text.data(), text.size());
    if (code != ResultOk) {
      if (!RefusalExplained(text)) ADD_FAILURE() << what << " refused with " << std::hex << code;
      ++refused_;
      return true;
    }
    EXPECT_EQ(Normalised(root()), model) << what;
    ++compared_;
    return true;
  }
  int compared_ = 0;
  int refused_ = 0;
};

// XML files a Debian machine ships (a sample of at most 300); skipped where
// there are none.
TEST_F(ProfileForeignDiffTest, RealFilesMatchTheModel) {
  constexpr size_t kMaxFiles = 300;
  constexpr std::uintmax_t kMaxBytes = 256 * 1024;
  std::vector<std::filesystem::path> files;
  std::error_code ec;
  for (auto it = std::filesystem::recursive_directory_iterator(
           "/usr/share", std::filesystem::directory_options::skip_permission_denied, ec);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
    if (ec) break;
    if (it->path().extension() == ".xml" && it->is_regular_file(ec) && it->file_size(ec) <= kMaxBytes) {
      files.push_back(it->path());
    }
  }
  std::sort(files.begin(), files.end());
  if (files.size() > kMaxFiles) {
    // An even spread over the sorted list meets more kinds of file.
    std::vector<std::filesystem::path> sample;
    for (size_t i = 0; i < kMaxFiles; ++i) sample.push_back(files[i * files.size() / kMaxFiles]);
    files.swap(sample);
  }
  if (files.empty()) GTEST_SKIP() << "no XML files under /usr/share";
  int skipped = 0;
  for (const auto& path : files) {
    std::ifstream in(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // The loader drops a UTF-8 byte-order mark; other encodings are not compared.
    if (text.rfind("\xEF\xBB\xBF", 0) == 0) text.erase(0, 3);
    const std::string head = text.substr(0, 100);
    if (head.find("encoding") != std::string::npos && head.find("UTF-8") == std::string::npos &&
        head.find("utf-8") == std::string::npos) {
      ++skipped;
      continue;
    }
    if (!Compare(path.string(), StripDoctype(text))) ++skipped;
    if (HasFailure()) break;
  }
  std::printf("real XML files: %zu found, %d compared, %d refused as documented, %d not comparable\n",
              files.size(), compared_, refused_, skipped);
  EXPECT_GT(compared_, 0);
}

TEST_F(ProfileForeignDiffTest, GeneratedDocumentsMatchTheModel) {
  std::mt19937 rng(7);
  for (int i = 0; i < 600 && !HasFailure(); ++i) {
    const std::string text = GenerateForeign(&rng);
    EXPECT_TRUE(Compare(text, text)) << "expat refused " << text;
  }
}

}  // namespace
}  // namespace propmap::testing
