// TEMP: stand-in for the document reader and writer until they land. Root
// key values only, one "name\ttype\thex" line each after a "<stub>" line.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "profile_xml/document.h"

namespace propmap {

tERROR ReadProfileDocument(PropertiesTree* tree, const char* text, size_t length) {
  if (tree->root == nullptr) return ErrNotImplemented;
  std::string s(text, length);
  if (s.rfind("<stub>\n", 0) != 0) return ErrBadDocument;
  size_t at = 7;
  while (at < s.size()) {
    size_t end = s.find('\n', at);
    if (end == std::string::npos) return ErrBadDocument;
    std::string line = s.substr(at, end - at);
    at = end + 1;
    size_t t1 = line.find('\t'), t2 = line.find('\t', t1 + 1);
    if (t1 == std::string::npos || t2 == std::string::npos) return ErrBadDocument;
    std::string name = line.substr(0, t1);
    uint32_t type = static_cast<uint32_t>(std::stoul(line.substr(t1 + 1, t2 - t1 - 1)));
    std::vector<unsigned char> data;
    for (size_t i = t2 + 1; i + 1 < line.size(); i += 2) data.push_back(static_cast<unsigned char>(std::stoul(line.substr(i, 2), nullptr, 16)));
    tERROR err = AddValue(tree->root, name.c_str(), type, data.data(), static_cast<uint32_t>(data.size()));
    if (Failed(err)) return err;
  }
  return ResultOk;
}

tERROR WriteProfileDocument(const PropertiesTree* tree, std::string* output) {
  output->append("<stub>\n");
  KeyNode* key = tree->root;
  for (ListLink* l = key->values.next; l != &key->values; l = l->next) {
    ValueEntry* e = EntryFrom(l);
    uint32_t count = 0;
    (void)e->value->GetData(nullptr, 0, &count);
    std::vector<unsigned char> bytes(count);
    if (count != 0) (void)e->value->GetData(bytes.data(), count, &count);
    output->append(e->name);
    output->append("\t" + std::to_string(e->value->GetTypeId()) + "\t");
    char hex[3];
    for (unsigned char b : bytes) {
      std::snprintf(hex, sizeof hex, "%02x", b);
      output->append(hex);
    }
    output->push_back('\n');
  }
  return ResultOk;
}

}  // namespace propmap
