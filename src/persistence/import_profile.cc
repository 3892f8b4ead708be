#include <cstring>

#include "persistence/persistence.h"
#include "profile_xml/document.h"
#include "registry/store_access.h"

namespace propmap {

tERROR ImportProfile(PropertiesMap* store, const char* text, size_t length) {
  static constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";
  if (length >= 3 && std::memcmp(text, kByteOrderMark, 3) == 0) {
    text += 3;
    length -= 3;
  }
  RememberDocumentSize(store, length);
  const tERROR err = ReadProfileDocument(store->tree(), text, length);
  // The tree now matches what is stored, so a Flush right away has nothing to do.
  if (Succeeded(err)) ClearDirty(store);
  return err;
}

}  // namespace propmap
