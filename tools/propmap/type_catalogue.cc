#include "type_catalogue.h"

#include "type_names.h"

namespace propmap_tool {

const std::vector<TypeInfo>& StorableTypes() {
  static const std::vector<TypeInfo> kTypes = {
      {1, "nothing", nullptr},
      {2, "unsigned 8-bit integer", "255"},
      {3, "unsigned 16-bit integer", "0xFFFF"},
      {4, "unsigned 32-bit integer", "1680"},
      {5, "unsigned 64-bit integer", "9876543210123456789"},
      {6, "flag", "true"},
      {7, "one 8-bit character", "A"},
      {8, "one wide character (a profile cannot hold its text)", nullptr},
      {9, "text", "left"},
      {10, "wide text, saved as tSTRING", "Gr\xC3\xBC\xC3\x9F" "e"},
      {11, "result code, signed 32-bit", "-2147483648"},
      {12, "address as a byte block (means nothing to another process)", nullptr},
      {13, "signed 32-bit integer", "-8"},
      {14, "unsigned 32-bit integer", "42"},
      {15, "signed 8-bit integer", "-128"},
      {17, "signed 16-bit integer", "-32768"},
      {18, "signed 64-bit integer", "-9223372036854775808"},
      {19, "signed 64-bit integer", "1099511627776"},
      {20, "interface identifier, unsigned 32-bit", "0x100"},
      {21, "plugin identifier, unsigned 32-bit", "0x200"},
      {22, "origin identifier, unsigned 32-bit", "7"},
      {23, "operating system identifier, unsigned 32-bit", "3"},
      {24, "vendor identifier, unsigned 32-bit", "1"},
      {25, "property identifier, unsigned 32-bit", "0x1000"},
      {26, "version, unsigned 32-bit", "0x00010002"},
      {27, "code page, unsigned 32-bit", "65001"},
      {28, "locale identifier, unsigned 32-bit", "1033"},
      {29, "unsigned 64-bit integer", "4096"},
      {30, "milliseconds since 1970 UTC, unsigned 64-bit", "1735689600000"},
      {31, "code address (means nothing to another process)", nullptr},
      {32, "double, kept to six decimals", "1.5"},
      {48, "bytes, written as pairs of hex digits", "0A0B"},
      {54, "type identifier, unsigned 32-bit", "4"},
  };
  return kTypes;
}

std::vector<std::string> AllTypeNames() {
  std::vector<std::string> names;
  for (prhost::TypeId id = 0; id < prhost::kTypeIdLimit; ++id) {
    if (const char* name = prhost::TypeName(id)) names.emplace_back(name);
  }
  return names;
}

}  // namespace propmap_tool
