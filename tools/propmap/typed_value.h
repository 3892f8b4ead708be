// Values as the tool sees them: name, type, native bytes and the module's
// text, read through iRegistry; and a Converter that parses and formats text
// with the module's own conversions, so the tool never restates them.
//
// Native bytes are what GetValue returns for the value's own type: strings
// carry their terminating NUL, blocks their bytes.
//
// Thread-safety: one thread per Converter (it owns a scratch store).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "profile.h"
#include "registry.h"
#include "result.h"

namespace propmap_tool {

struct TypedValue {
  std::string name;
  prhost::TypeId type = 0;
  std::string data;  // native bytes
  std::string text;  // the module's text form
};

// Two-call fetch of a data-out operation: ask the size, then read it all.
// `call(buffer, buffer_size, &size)` wraps the operation.
prhost::Result<std::string> FetchData(const std::function<prhost::tERROR(void*, uint32_t, uint32_t*)>& call);

// The index-th value of `key`; ToolError on failure, naming `where`.
TypedValue ReadValue(const prhost::Registry& registry, prhost::hKey key, uint32_t index, const std::string& where);

// A value by name read in its own type (type 0) or converted to `type`.
prhost::Result<std::string> GetNative(const prhost::Registry& registry, prhost::hKey key, const std::string& name,
                                      prhost::TypeId* type);

// "tDWORD", or "type#40" for an identifier without a name.
std::string TypeLabel(prhost::TypeId type);
// The identifier of a type name; ToolError ErrBadParameter for an unknown or
// unstorable one.
prhost::TypeId ParseTypeName(std::string_view name);

std::string ToHex(std::string_view bytes);
// nullopt for an odd length or a non-hex digit.
std::optional<std::string> FromHex(std::string_view hex);

// Text <-> native bytes through the module's conversions, on a scratch store.
class Converter {
 public:
  explicit Converter(const Session& session);
  ~Converter();

  // The native bytes of `text` read as `type`; the module's code when the
  // type refuses the text.
  prhost::Result<std::string> Parse(prhost::TypeId type, const std::string& text) const;
  // The text of native bytes of `type`.
  prhost::Result<std::string> Format(prhost::TypeId type, std::string_view data) const;

 private:
  std::unique_ptr<prhost::Store> scratch_;
};

// Sets a value to exactly this type and content: a value of another type is
// replaced (it moves to the end of the key's values), one of the same type is
// set in place.
prhost::tERROR PutValue(const prhost::Registry& registry, prhost::hKey key, const std::string& name,
                        prhost::TypeId type, std::string_view data);

}  // namespace propmap_tool
