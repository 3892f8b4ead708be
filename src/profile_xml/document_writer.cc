// The document writer: one depth-first pass over the tree, appending to the
// caller's string. Sub-keys come before values; every line ends in CR LF and
// is indented by 4 spaces per level.
#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "profile_xml/document.h"
#include "profile_xml/xml_escape.h"
#include "values/value_base.h"

namespace propmap {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr size_t kIndentStep = 4;
// The value text buffer's first size; it only grows.
constexpr size_t kScratchSize = 64;


// A value line's fixed pieces, padded so that each is copied at a fixed
// size: "<tDWORD name=\"" before the value's name and "</tDWORD>\r\n" after
// its text.
struct ElementTags {
  static constexpr size_t kPadded = 32;
  char open[kPadded] = {};
  char close[kPadded] = {};
  size_t open_length = 0;
  size_t close_length = 0;
};

// The element name of a value: its type's name, except that wide strings are
// written (and so read back) as narrow ones. Names are measured once.
const ElementTags& ValueElementTags(tag_TYPE_ID type) {
  static const auto kTags = [] {
    std::array<ElementTags, kTypeNameCount> tags{};
    for (tag_TYPE_ID id = 0; id < kTypeNameCount; ++id) {
      const char* name = TypeNames[id == tWSTRING ? tSTRING : id];
      if (name == nullptr) continue;
      const std::string open = std::string("<") + name + " name=\"";
      const std::string close = std::string("</") + name + ">" + std::string(kLineEnd);
      // Type names are far shorter than the padding.
      assert(open.size() < ElementTags::kPadded && close.size() < ElementTags::kPadded);
      ElementTags& t = tags[id];
      t.open_length = open.copy(t.open, ElementTags::kPadded);
      t.close_length = close.copy(t.close, ElementTags::kPadded);
    }
    return tags;
  }();
  assert(type < kTypeNameCount && kTags[type].open_length != 0 && "every value class has a type name");
  return kTags[type];
}

// Room first offered to a plain text; a longer one is asked for again at its
// size.
constexpr uint32_t kPlainRoom = 64;

// Any other text goes through `scratch`, which serves all values of the
// document. It is kept all zeros between values, so that a text always ends
// in a zero byte and is written up to its first one, also when a conversion
// writes fewer bytes than it counts. A text that fits the buffer is converted
// in one call; only a longer one needs the size query first, as the buffer
// then grows.
tERROR AppendTextViaScratch(const iValue* value, xml::TextSink* output, std::vector<char>& scratch) {
  uint32_t length = 0;
  tERROR err = value->GetText(scratch.data(), static_cast<uint32_t>(scratch.size() - 1), &length);
  if (err == ErrBufferTooSmall) {
    scratch.assign(static_cast<size_t>(length) + 1, '\0');
    err = value->GetText(scratch.data(), length, &length);
  }
  if (Failed(err)) return err;
  scratch[length] = '\0';
  xml::EscapeAppend(scratch.data(), xml::kUpToZero, output);
  // Short texts are cleared at the buffer's first size, in one fixed store.
  if (length < kScratchSize) {
    std::memset(scratch.data(), 0, kScratchSize);
  } else {
    std::fill_n(scratch.data(), static_cast<size_t>(length) + 1, '\0');
  }
  return ResultOk;
}

// One line per value. A string's own characters are escaped in place and a
// plain text is converted straight into the output.
tERROR WriteValues(KeyNode* key, xml::TextSink* output, size_t indent, std::vector<char>& scratch) {
  if (key->value_count == 0) return ResultOk;
  for (ListLink* link = key->values.next; link != &key->values; link = link->next) {
    const ValueEntry* entry = EntryFrom(link);
    // The entries, their values and names are scattered over the heap and
    // the walk waits on each in turn: ask for the next entry's pieces and
    // the entry after it while this one is written.
    if (ListLink* next = link->next; next != &key->values) {
      const ValueEntry* following = EntryFrom(next);
      __builtin_prefetch(following->value);
      __builtin_prefetch(following->name);
      __builtin_prefetch(following->next);
    }
    const iValue* value = entry->value;
    const tag_TYPE_ID type = value->GetTypeId();
    const ElementTags& tags = ValueElementTags(type);
    // A value whose text fails leaves no part of its line behind.
    const size_t line_start = output->used();
    output->Spaces(indent);
    output->PutPadded<ElementTags::kPadded>(tags.open, tags.open_length);
    xml::EscapeAppend(entry->name, entry->name_length, output);
    output->Put("\">");

    tERROR err = ErrBufferTooSmall;
    if (type == tSTRING) {
      xml::EscapeAppend(static_cast<const Value_Base<char*>*>(value)->chars(), xml::kUpToZero, output);
      err = ResultOk;
    } else if (HasPlainText(type)) {
      // The room is zeroed first: a block counts a final NUL it never writes.
      char* room = output->Room(kPlainRoom);
      std::memset(room, 0, kPlainRoom);
      uint32_t length = 0;
      err = value->GetText(room, kPlainRoom, &length);
      if (err == ErrBufferTooSmall) {
        room = output->Room(length);
        std::memset(room, 0, length);
        err = value->GetText(room, length, &length);
      }
      // Only a final NUL can be among the bytes counted.
      if (Succeeded(err)) output->Advance(length != 0 && room[length - 1] == '\0' ? length - 1 : length);
    }
    if (err == ErrBufferTooSmall) err = AppendTextViaScratch(value, output, scratch);
    if (Failed(err)) {
      output->Rewind(line_start);
      return err;
    }
    output->PutPadded<ElementTags::kPadded>(tags.close, tags.close_length);
  }
  return ResultOk;
}

// Appends the sub-keys and values of `key` at `indent` spaces, the sub-keys'
// own contents deeper. Walks with an explicit stack rather than recursion:
// trees built through the registry may be deeper than a document may be,
// and are refused when the walk meets such a key.
tERROR WriteKeyContents(KeyNode* key, xml::TextSink* output, size_t indent) {
  struct Frame {
    KeyNode* key;
    KeyNode* next_child;
    size_t indent;
  };
  std::vector<Frame> stack;
  std::vector<char> scratch(kScratchSize, '\0');
  stack.push_back({key, key->FirstChild(), indent});
  while (!stack.empty()) {
    Frame& frame = stack.back();
    if (KeyNode* child = frame.next_child; child != nullptr) {
      // The stack holds the child's ancestors: its depth below the root.
      if (stack.size() > kMaxProfileDepth) return ErrIo;
      frame.next_child = frame.key->NextChild(child);
      // Asked for early, as with values: the sibling written next and this
      // key's first value entry.
      if (frame.next_child != nullptr) __builtin_prefetch(frame.next_child);
      if (!ListEmpty(&child->values)) __builtin_prefetch(child->values.next);
      output->Spaces(frame.indent);
      output->Put("<key");
      xml::AppendAttribute(output, "name", child->name != nullptr ? child->name : "", xml::kUpToZero);
      output->Put('>');
      output->Put(kLineEnd);
      stack.push_back({child, child->FirstChild(), frame.indent + kIndentStep});
      continue;
    }
    if (tERROR err = WriteValues(frame.key, output, frame.indent, scratch); Failed(err)) return err;
    const size_t done_indent = frame.indent;
    stack.pop_back();
    if (!stack.empty()) {
      output->Spaces(done_indent - kIndentStep);
      output->Put("</key>");
      output->Put(kLineEnd);
    }
  }
  return ResultOk;
}

}  // namespace

tERROR WriteProfileDocument(const PropertiesTree* tree, std::string* output) {
  if (tree == nullptr || tree->root == nullptr) return ErrNotImplemented;
  try {
    xml::TextSink sink(output);
    sink.Put("<propertiesmap>");
    sink.Put(kLineEnd);
    if (tERROR err = WriteKeyContents(tree->root, &sink, kIndentStep); Failed(err)) return err;
    sink.Put("</propertiesmap>");
    sink.Put(kLineEnd);
  } catch (const std::bad_alloc&) {
    return ErrNoMemory;
  }
  return ResultOk;
}

}  // namespace propmap
