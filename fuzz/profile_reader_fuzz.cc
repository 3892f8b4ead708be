// libFuzzer target for the document reader: any bytes must give a documented
// result code, no sanitizer report and no leak of host memory; a native
// document that reads must reach the write-read-write fixpoint.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "profile_xml/document.h"
#include "profile_xml/xml_tokenizer.h"
#include "test_heap.h"

namespace propmap {
namespace {

bool Documented(tERROR code) {
  switch (code) {
    case ResultOk:
    case ErrBadDocument:      // malformed text
    case ErrBadParameter:     // no profile element, missing name, unknown type, or text a value refuses
    case ErrIo:               // nesting too deep
    case ErrNoMemory:         // a value type that cannot be made
    case ErrNotApplicable:    // text for a type without a text form
      return true;
    default:
      return false;
  }
}

struct Tree {
  explicit Tree(testing::TestHeap* heap) {
    ResetTree(&tree);
    if (Failed(InitTree(&tree, heap->host()))) std::abort();
  }
  ~Tree() { DestroyTree(&tree); }
  PropertiesTree tree;
};

// Whether the first element is the native root (else the mapping of foreign
// documents ran, whose same-named siblings merge when read back).
bool IsNative(const char* text, size_t size) {
  xml::XmlCursor cursor{text, text + size};
  xml::XmlTag tag;
  return xml::NextElement(&cursor, &tag, 0) == 0 && tag.name_view() == "propertiesmap";
}

// Writes `tree`; an empty result when a value has no text form.
std::string Write(const PropertiesTree& tree) {
  std::string out;
  if (Failed(WriteProfileDocument(&tree, &out))) out.clear();
  return out;
}

}  // namespace
}  // namespace propmap

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace propmap;
  testing::TestHeap heap;
  {
    Tree first(&heap);
    const char* text = reinterpret_cast<const char*>(data);
    const tERROR code = ReadProfileDocument(&first.tree, text, size);
    if (!Documented(code)) std::abort();
    const std::string written = Write(first.tree);
    if (code == ResultOk && !written.empty() && IsNative(text, size)) {
      Tree second(&heap);
      if (Failed(ReadProfileDocument(&second.tree, written.data(), written.size()))) std::abort();
      const std::string again = Write(second.tree);
      // A key named by the part of a path before its first '/' keeps its
      // backslashes, which split the name into keys when read back: such a
      // tree reaches its fixpoint one round later.
      if (written.find('\\') == std::string::npos) {
        if (again != written) std::abort();
      } else {
        Tree third(&heap);
        if (Failed(ReadProfileDocument(&third.tree, again.data(), again.size()))) std::abort();
        if (Write(third.tree) != again) std::abort();
      }
    }
  }
  // Only the one-byte buffers of empty names (roots among them) outlive a tree.
  if (heap.live_bytes() != heap.live_blocks()) std::abort();
  return 0;
}
