// The document reader: native profiles and the generic mapping of foreign
// XML, both built as keys and values while the text is walked once.
//
// Nothing is rolled back: what was created before a failure stays in the
// tree, and the caller decides what a partly read tree is worth.
#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "profile_xml/document.h"
#include "profile_xml/xml_tokenizer.h"

namespace propmap {
namespace {

using xml::XmlAttribute;
using xml::XmlCursor;
using xml::XmlTag;

// Deeper keys are refused before recursing, which bounds the stack; keys
// made by the parts of one name count as deep as they lie.
constexpr int kMaxKeyDepth = static_cast<int>(kMaxProfileDepth);

constexpr std::string_view kRootElement = "propertiesmap";
constexpr std::string_view kKeyElement = "key";
constexpr std::string_view kNameAttribute = "name";
constexpr char kTextValueName[] = "noname";

// Reused by every element of one document: an element is done with its
// attributes and text before its children are read, so one of each serves
// the whole recursion and keeps the strings' capacity.
struct Scratch {
  xml::XmlAttributeList attributes;
  std::string value;  // an attribute value that needed decoding or a zero byte
  std::string text;
};

// An attribute value as a name: decoded, and up to its first zero byte, as
// a zero-terminated copy would end. Out of memory while decoding counts as
// an unreadable tag. ErrBadDocument or 0.
tERROR NameValue(const XmlAttribute& attribute, Scratch* scratch, std::string_view* name) {
  try {
    *name = xml::DecodedValue(attribute, &scratch->value);
  } catch (const std::bad_alloc&) {
    return ErrBadDocument;
  }
  if (const void* zero = std::memchr(name->data(), '\0', name->size()); zero != nullptr) {
    *name = name->substr(0, static_cast<size_t>(static_cast<const char*>(zero) - name->data()));
  }
  return ResultOk;
}

// The same, zero-terminated in `scratch->value`; null when out of memory.
const char* TerminatedName(const XmlAttribute& attribute, Scratch* scratch) {
  try {
    return xml::TerminatedValue(attribute, &scratch->value);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

tERROR ReadKeyContents(KeyNode* key, XmlCursor* cursor, int depth, Scratch* scratch);
tERROR ReadGenericContents(KeyNode* key, XmlCursor* cursor, int depth, Scratch* scratch);

// A `key` element: opens or creates the key its name designates (a path; the
// empty name is `key` itself) and reads its children.
tERROR ReadKeyElement(KeyNode* key, XmlCursor* cursor, const XmlTag& tag, int depth, Scratch* scratch) {
  if (xml::ParseAttributes(tag, &scratch->attributes) < 0) return ErrBadDocument;
  const XmlAttribute* name = scratch->attributes.Find(kNameAttribute);
  if (name == nullptr) return ErrBadParameter;
  const char* path = TerminatedName(*name, scratch);
  if (path == nullptr) return ErrBadDocument;
  // An empty name is `key` itself; a name of several parts lies as deep.
  const size_t levels = PathDepth(path);
  const int sub_depth = depth + static_cast<int>(std::min<size_t>(levels, kMaxProfileDepth + 1));
  if (levels > 1 && sub_depth > kMaxKeyDepth) return ErrIo;
  KeyNode* sub_key = OpenOrCreateKey(key, path, false);
  if (sub_key == nullptr) return ErrNoMemory;
  if (tag.self_closing()) return ResultOk;
  return ReadKeyContents(sub_key, cursor, levels == 0 ? depth + 1 : sub_depth, scratch);
}

// A value element: the element name is the type, the content its text form.
tERROR ReadValueElement(KeyNode* key, XmlCursor* cursor, const XmlTag& tag, Scratch* scratch) {
  const tag_TYPE_ID type = TypeIdFromName(tag.name, tag.name_length);
  if (type == 0) return ErrBadParameter;
  if (xml::ParseAttributes(tag, &scratch->attributes) < 0) return ErrBadDocument;
  const XmlAttribute* name = scratch->attributes.Find(kNameAttribute);
  if (name == nullptr) return ErrBadParameter;
  if (tag.self_closing()) return ErrBadDocument;
  std::string_view value_name;
  if (tERROR err = NameValue(*name, scratch, &value_name); Failed(err)) return err;
  try {
    // Blank text is handed on as it is: the type decides what it means.
    (void)xml::ReadText(cursor, &scratch->text, true);
  } catch (const std::bad_alloc&) {
    return ErrNoMemory;
  }
  return AddValueFromText(key, value_name.data(), value_name.size(), type, scratch->text.c_str());
}

tERROR ReadKeyContents(KeyNode* key, XmlCursor* cursor, int depth, Scratch* scratch) {
  if (depth > kMaxKeyDepth) return ErrIo;
  for (;;) {
    XmlTag tag;
    const int token = xml::NextElement(cursor, &tag, 0);
    if (token == xml::TokenEnd) return ResultOk;
    if (token < 0) return ErrBadDocument;
    const tERROR err = tag.name_view() == kKeyElement ? ReadKeyElement(key, cursor, tag, depth, scratch)
                                                      : ReadValueElement(key, cursor, tag, scratch);
    if (Failed(err)) return err;
    if (xml::FinishElement(cursor, tag) < 0) return ErrBadDocument;
  }
}

// The first text run of a foreign element (CDATA merged in) becomes its
// "noname" string when it holds more than whitespace; either way it ends the
// mapping of the element, whose remaining content the caller skips.
tERROR ReadGenericText(KeyNode* key, XmlCursor* cursor, Scratch* scratch) {
  int meaningful = 0;
  try {
    meaningful = xml::ReadText(cursor, &scratch->text, true);
  } catch (const std::bad_alloc&) {
    return ErrNoMemory;
  }
  if (meaningful == 0) return ResultOk;
  return AddValueFromText(key, kTextValueName, tSTRING, scratch->text.c_str());
}

// A foreign element: always a new sub-key named after it, its attributes as
// strings, then its children.
tERROR ReadGenericElement(KeyNode* key, XmlCursor* cursor, const XmlTag& tag, int depth, Scratch* scratch) {
  if (xml::ParseAttributes(tag, &scratch->attributes) < 0) return ErrBadDocument;
  // The tree takes zero-terminated names; the element name is a view into
  // the text, so it is copied into a buffer borrowed from the host heap.
  if (tag.name_length >= UINT32_MAX) return ErrNoMemory;
  void* block = nullptr;
  if (Failed(HeapAlloc(key->host, &block, static_cast<uint32_t>(tag.name_length + 1)))) return ErrNoMemory;
  char* name = static_cast<char*>(block);
  std::memcpy(name, tag.name, tag.name_length);
  name[tag.name_length] = '\0';
  KeyNode* sub_key = OpenOrCreateKey(key, name, true);
  HeapFree(key->host, block);
  if (sub_key == nullptr) return ErrNoMemory;
  for (size_t i = 0; i < scratch->attributes.size(); ++i) {
    const XmlAttribute& attribute = scratch->attributes[i];
    const char* value = TerminatedName(attribute, scratch);
    if (value == nullptr) return ErrBadDocument;
    const tERROR err = AddValueFromText(sub_key, attribute.name.data(), attribute.name.size(), tSTRING, value);
    if (Failed(err)) return err;
  }
  if (tag.self_closing()) return ResultOk;
  return ReadGenericContents(sub_key, cursor, depth + 1, scratch);
}

tERROR ReadGenericContents(KeyNode* key, XmlCursor* cursor, int depth, Scratch* scratch) {
  if (depth > kMaxKeyDepth) return ErrIo;
  for (;;) {
    XmlTag tag;
    const int token = xml::NextElement(cursor, &tag, xml::kReportText);
    if (token == xml::TokenText || token == xml::TokenCData) return ReadGenericText(key, cursor, scratch);
    if (token == xml::TokenEnd) return ResultOk;
    if (token < 0) return ErrBadDocument;
    const tERROR err = ReadGenericElement(key, cursor, tag, depth, scratch);
    if (Failed(err)) return err;
    if (xml::FinishElement(cursor, tag) < 0) return ErrBadDocument;
  }
}

}  // namespace

tERROR ReadProfileDocument(PropertiesTree* tree, const char* text, size_t length) {
  if (tree == nullptr || tree->root == nullptr) return ErrNotImplemented;
  if (text == nullptr && length != 0) return ErrBadParameter;
  Scratch scratch;
  XmlCursor cursor{text, text + length};
  XmlTag first;
  const int token = xml::NextElement(&cursor, &first, 0);
  if (token < 0) return ErrBadDocument;
  if (token == 0 && first.name_view() == kRootElement) {
    if (first.self_closing()) return ErrBadParameter;
    const tERROR err = ReadKeyContents(tree->root, &cursor, 0, &scratch);
    if (Failed(err)) return err;
    // Whatever follows the root's end tag is not looked at.
    return xml::FinishElement(&cursor, first) < 0 ? ErrBadDocument : ResultOk;
  }
  if (token != 0 || first.self_closing()) return ErrBadParameter;
  // A foreign document is mapped from its first byte, so that every
  // top-level element and top-level text after the first element count.
  XmlCursor generic{text, text + length};
  const tERROR err = ReadGenericContents(tree->root, &generic, 0, &scratch);
  if (Failed(err)) return err;
  return xml::FinishElement(&cursor, first) < 0 ? ErrBadDocument : ResultOk;
}

}  // namespace propmap
