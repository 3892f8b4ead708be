#include "typed_value.h"

#include <algorithm>

#include "client.h"
#include "result_names.h"
#include "type_names.h"
#include "people_text.h"
#include "tool_error.h"
#include "type_catalogue.h"

namespace propmap_tool {

using prhost::Result;
using prhost::tERROR;
using prhost::TypeId;

Result<std::string> FetchData(const std::function<tERROR(void*, uint32_t, uint32_t*)>& call) {
  Result<std::string> out;
  uint32_t size = 0;
  out.code = call(nullptr, 0, &size);
  // A size query answers with success or ErrBufferTooSmall; both carry the size.
  if (out.code == prhost::kErrBufferTooSmall) out.code = prhost::kOk;
  if (prhost::Failed(out.code) || size == 0) return out;
  out.value.resize(size);
  out.code = call(out.value.data(), size, &size);
  out.value.resize(std::min<size_t>(size, out.value.size()));
  return out;
}

Result<std::string> GetNative(const prhost::Registry& registry, prhost::hKey key, const std::string& name,
                              TypeId* type) {
  return FetchData([&](void* buffer, uint32_t buffer_size, uint32_t* size) {
    return registry.GetValue(size, key, name.c_str(), type, buffer, buffer_size);
  });
}

namespace {

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if ((a[i] | 0x20) != (b[i] | 0x20)) return false;
  }
  return true;
}

// One call while the output fits the reused buffer, a second one when it
// does not. Only for reads in the value's own type: a read converted from a
// block whose size equals the buffer's would return the block's bytes.
tERROR FetchReusing(std::string& buffer, std::string& out,
                    const std::function<tERROR(void*, uint32_t, uint32_t*)>& call) {
  if (buffer.size() < 256) buffer.resize(256);
  uint32_t size = 0;
  tERROR err = call(buffer.data(), static_cast<uint32_t>(buffer.size()), &size);
  if (err == prhost::kErrBufferTooSmall) {
    buffer.resize(size);
    err = call(buffer.data(), size, &size);
  }
  if (prhost::Succeeded(err)) out.assign(buffer.data(), std::min<size_t>(size, buffer.size()));
  return err;
}

}  // namespace

TypedValue ReadValue(const prhost::Registry& registry, prhost::hKey key, uint32_t index, const std::string& where) {
  // Everything by index: a lookup by name finds the first of two values
  // whose names differ only in case.
  thread_local std::string buffer;
  TypedValue v;
  tERROR err = FetchReusing(buffer, v.name, [&](void* out, uint32_t out_size, uint32_t* size) {
    return registry.GetValueNameByIndex(size, key, index, out, out_size);
  });
  Check(err, where + ": cannot read the name of value " + std::to_string(index));
  v.name.resize(std::min(v.name.size(), v.name.find('\0')));
  // Type 0 asks for the value in its own type and reports that type.
  err = FetchReusing(buffer, v.data, [&](void* out, uint32_t out_size, uint32_t* size) {
    v.type = 0;
    return registry.GetValueByIndex(size, key, index, &v.type, out, out_size);
  });
  Check(err, where + ": cannot read value '" + v.name + "'");
  Result<std::string> text = prhost::Client(registry).ValueTextByIndex(key, index);
  // Some types have no text (a code address); the native bytes still tell them.
  if (text.ok()) v.text = std::move(text.value);
  return v;
}

std::string TypeLabel(TypeId type) {
  const char* name = prhost::TypeName(type);
  return name != nullptr ? name : "type#" + std::to_string(type);
}

TypeId ParseTypeName(std::string_view name) {
  // People type "dword" or "TDWORD" as readily as "tDWORD".
  std::optional<TypeId> type;
  const std::vector<std::string> names = AllTypeNames();
  for (const std::string& known : names) {
    const std::string_view bare = std::string_view(known).substr(1);
    if (EqualsIgnoringCase(name, known) || EqualsIgnoringCase(name, bare)) type = prhost::TypeFromName(known);
  }
  if (!type) {
    std::string sentence = "'" + std::string(name) + "' is not a type name";
    std::vector<std::string> bare_names;
    for (const std::string& known : names) bare_names.push_back(known.substr(1));
    const std::string_view typed = name.size() > 1 && (name[0] == 't' || name[0] == 'T') ? name.substr(1) : name;
    std::vector<std::string> close = CloseNames(typed, bare_names);
    for (std::string& c : close) c.insert(0, "t");
    if (!close.empty()) sentence += "; did you mean " + Alternatives(close) + "?";
    throw ToolError(prhost::kErrBadParameter, sentence + " ('propmap types' lists them)");
  }
  name = prhost::TypeName(*type);
  if (!prhost::IsStorableType(*type)) {
    throw ToolError(prhost::kErrBadParameter, "values of type " + std::string(name) + " cannot be stored");
  }
  return *type;
}

std::string ToHex(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out(bytes.size() * 2, '0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    const auto b = static_cast<unsigned char>(bytes[i]);
    out[2 * i] = kDigits[b >> 4];
    out[2 * i + 1] = kDigits[b & 15];
  }
  return out;
}

std::optional<std::string> FromHex(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  auto digit = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::string out(hex.size() / 2, '\0');
  for (size_t i = 0; i < out.size(); ++i) {
    int hi = digit(hex[2 * i]), lo = digit(hex[2 * i + 1]);
    if (hi < 0 || lo < 0) return std::nullopt;
    out[i] = static_cast<char>(hi << 4 | lo);
  }
  return out;
}

Converter::Converter(const Session& session) : scratch_(session.OpenScratch()) {}
Converter::~Converter() = default;

Result<std::string> Converter::Parse(TypeId type, const std::string& text) const {
  const prhost::Registry registry = scratch_->registry();
  // A fresh string value each time, so the read below converts from text.
  (void)registry.DeleteValue(0, "s");
  Result<std::string> out;
  out.code = registry.SetValue(0, "s", prhost::tSTRING, text.c_str(), static_cast<uint32_t>(text.size() + 1), 1);
  if (prhost::Failed(out.code)) return out;
  TypeId wanted = type;
  return GetNative(registry, 0, "s", &wanted);
}

Result<std::string> Converter::Format(TypeId type, std::string_view data) const {
  const prhost::Registry registry = scratch_->registry();
  Result<std::string> out;
  out.code = PutValue(registry, 0, "f", type, data);
  if (prhost::Failed(out.code)) return out;
  return prhost::Client(registry).GetString(0, "f");
}

tERROR PutValue(const prhost::Registry& registry, prhost::hKey key, const std::string& name, TypeId type,
                std::string_view data) {
  TypeId stored = 0;
  uint32_t size = 0;
  tERROR probe = registry.GetValue(&size, key, name.c_str(), &stored, nullptr, 0);
  if (prhost::Succeeded(probe) || probe == prhost::kErrBufferTooSmall) {
    if (stored != type) {
      // SetValue would convert into the stored type; the caller asked for this one.
      tERROR removed = registry.DeleteValue(key, name.c_str());
      if (prhost::Failed(removed)) return removed;
    }
  }
  return registry.SetValue(key, name.c_str(), type, data.data(), static_cast<uint32_t>(data.size()), 1);
}

}  // namespace propmap_tool
