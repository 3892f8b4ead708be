#include "json_codec.h"

#include <cmath>
#include <cstring>

#include "tool_error.h"
#include "type_names.h"

namespace propmap_tool {
namespace {

using json = nlohmann::ordered_json;
using prhost::TypeId;

// How a type's native bytes appear in JSON.
enum class Kind { kNone, kUnsigned, kSigned, kUnsigned64, kSigned64, kDouble, kString, kText, kBlock };
struct Shape {
  Kind kind;
  unsigned width;  // native bytes of the fixed-size kinds
};

Shape ShapeOf(TypeId type) {
  switch (type) {
    case 1: return {Kind::kNone, 0};
    case 2: case 7: return {Kind::kUnsigned, 1};
    case 3: return {Kind::kUnsigned, 2};
    case 4: case 6: case 8: case 14: case 20: case 21: case 22: case 23: case 24: case 25: case 26: case 27:
    case 28: case 54:
      return {Kind::kUnsigned, 4};
    case 15: return {Kind::kSigned, 1};
    case 17: return {Kind::kSigned, 2};
    case 11: case 13: return {Kind::kSigned, 4};
    case 5: case 29: case 30: case 31: return {Kind::kUnsigned64, 8};
    case 18: case 19: return {Kind::kSigned64, 8};
    case 32: return {Kind::kDouble, 8};
    case 9: return {Kind::kString, 0};
    case 12: case 48: return {Kind::kBlock, 0};
    default: return {Kind::kText, 0};  // wide strings: the module's UTF-8 text
  }
}

bool IsUtf8(std::string_view s) {
  try {
    (void)json(std::string(s)).dump();
    return true;
  } catch (const json::type_error&) {
    return false;
  }
}

template <typename T>
T Load(const std::string& data) {
  T v{};
  std::memcpy(&v, data.data(), std::min(sizeof v, data.size()));
  return v;
}

json ValueToJson(const TypedValue& v) {
  json out{{"name", v.name}, {"type", TypeLabel(v.type)}};
  const Shape shape = ShapeOf(v.type);
  const size_t width = shape.width;
  switch (shape.kind) {
    case Kind::kNone: out["value"] = nullptr; return out;
    case Kind::kUnsigned:
      out["value"] = width == 1 ? Load<uint8_t>(v.data) : width == 2 ? Load<uint16_t>(v.data) : Load<uint32_t>(v.data);
      return out;
    case Kind::kSigned:
      out["value"] = width == 1 ? Load<int8_t>(v.data) : width == 2 ? Load<int16_t>(v.data) : Load<int32_t>(v.data);
      return out;
    case Kind::kUnsigned64: out["value"] = std::to_string(Load<uint64_t>(v.data)); return out;
    case Kind::kSigned64: out["value"] = std::to_string(Load<int64_t>(v.data)); return out;
    case Kind::kDouble: {
      const double d = Load<double>(v.data);
      if (std::isfinite(d)) out["value"] = d;
      else out["hex"] = ToHex(v.data);
      return out;
    }
    case Kind::kString: {
      std::string_view text(v.data.data(), v.data.find('\0') == std::string::npos ? v.data.size() : v.data.find('\0'));
      if (IsUtf8(text)) out["value"] = std::string(text);
      else out["hex"] = ToHex(text);
      return out;
    }
    case Kind::kText:
      if (IsUtf8(v.text)) out["value"] = v.text;
      else out["hex"] = ToHex(v.data);
      return out;
    case Kind::kBlock: out["hex"] = ToHex(v.data); return out;
  }
  return out;
}

std::string Native(const json& value, TypeId type, const Converter& converter, const std::string& where) {
  const Shape shape = ShapeOf(type);
  auto bad = [&](const std::string& why) { return ToolError(prhost::kErrBadParameter, where + ": " + why); };
  if (value.is_null()) {
    if (shape.kind != Kind::kNone) throw bad("null is no " + TypeLabel(type));
    return {};
  }
  if (value.is_string() && shape.kind != Kind::kString) {
    prhost::Result<std::string> native = converter.Parse(type, value.get<std::string>());
    Check(native.code, where + ": " + TypeLabel(type) + " refuses the text '" + value.get<std::string>() + "'");
    return native.value;
  }
  if (value.is_string()) return value.get<std::string>() + '\0';
  if (!value.is_number()) throw bad("the value is neither a number nor a string");
  std::string out(shape.width, '\0');
  auto store = [&](auto v) { std::memcpy(out.data(), &v, shape.width); };
  if (shape.kind == Kind::kDouble) {
    store(value.get<double>());
    return out;
  }
  if (!value.is_number_integer()) throw bad("a " + TypeLabel(type) + " needs an integer");
  const bool negative = value.is_number_integer() && !value.is_number_unsigned() && value.get<int64_t>() < 0;
  const unsigned bits = shape.width * 8;
  if (shape.kind == Kind::kUnsigned || shape.kind == Kind::kUnsigned64) {
    const uint64_t u = value.get<uint64_t>();
    if (negative || (bits < 64 && u >> bits != 0)) throw bad("out of the range of " + TypeLabel(type));
    store(u);
  } else if (shape.kind == Kind::kSigned || shape.kind == Kind::kSigned64) {
    const int64_t s = value.get<int64_t>();
    if (value.is_number_unsigned() && value.get<uint64_t>() > INT64_MAX) throw bad("out of the range of " + TypeLabel(type));
    if (bits < 64 && (s < -(int64_t{1} << (bits - 1)) || s >= (int64_t{1} << (bits - 1)))) {
      throw bad("out of the range of " + TypeLabel(type));
    }
    store(s);
  } else {
    throw bad("a " + TypeLabel(type) + " needs a string");
  }
  return out;
}

void KeyFromJson(const json& in, KeySnapshot& out, const Converter& converter, const std::string& where) {
  auto bad = [&](const std::string& why) { return ToolError(prhost::kErrBadParameter, where + ": " + why); };
  if (!in.is_object()) throw bad("a key must be a JSON object");
  if (auto it = in.find("values"); it != in.end()) {
    if (!it->is_array()) throw bad("\"values\" must be an array");
    for (const json& v : *it) {
      if (!v.is_object() || !v.contains("name") || !v["name"].is_string() || !v.contains("type") ||
          !v["type"].is_string()) {
        throw bad("each value needs a \"name\" and a \"type\"");
      }
      TypedValue value;
      value.name = v["name"].get<std::string>();
      const std::string at = where + " value '" + value.name + "'";
      try {
        value.type = ParseTypeName(v["type"].get<std::string>());
      } catch (const ToolError& e) {
        throw ToolError(e.code(), at + ": " + e.what());
      }
      if (auto hex = v.find("hex"); hex != v.end()) {
        std::optional<std::string> bytes = hex->is_string() ? FromHex(hex->get<std::string>()) : std::nullopt;
        if (!bytes) throw bad("value '" + value.name + "': \"hex\" needs an even number of hex digits");
        value.data = std::move(*bytes);
        if (ShapeOf(value.type).kind == Kind::kString) value.data += '\0';
      } else if (auto val = v.find("value"); val != v.end()) {
        value.data = Native(*val, value.type, converter, at);
      } else {
        throw bad("value '" + value.name + "' has neither \"value\" nor \"hex\"");
      }
      out.values.push_back(std::move(value));
    }
  }
  if (auto it = in.find("keys"); it != in.end()) {
    if (!it->is_array()) throw bad("\"keys\" must be an array");
    for (const json& k : *it) {
      if (!k.is_object() || !k.contains("name") || !k["name"].is_string()) throw bad("each key needs a \"name\"");
      KeySnapshot sub;
      sub.name = k["name"].get<std::string>();
      KeyFromJson(k, sub, converter, where + " key '" + sub.name + "'");
      out.keys.push_back(std::move(sub));
    }
  }
}

json KeyToJson(const KeySnapshot& snapshot, bool named) {
  json out = json::object();
  if (named) out["name"] = snapshot.name;
  json values = json::array();
  for (const TypedValue& v : snapshot.values) values.push_back(ValueToJson(v));
  json keys = json::array();
  for (const KeySnapshot& k : snapshot.keys) keys.push_back(KeyToJson(k, true));
  out["values"] = std::move(values);
  out["keys"] = std::move(keys);
  return out;
}

}  // namespace

json ToJson(const KeySnapshot& snapshot) {
  json out{{"format", "propmap"}, {"version", 1}};
  json body = KeyToJson(snapshot, false);
  out["values"] = std::move(body["values"]);
  out["keys"] = std::move(body["keys"]);
  return out;
}

KeySnapshot FromJson(const json& in, const Converter& converter, const std::string& where) {
  if (!in.is_object() || in.value("format", "") != "propmap") {
    throw ToolError(prhost::kErrBadParameter, where + ": not a propmap JSON document (\"format\": \"propmap\")");
  }
  KeySnapshot out;
  KeyFromJson(in, out, converter, where);
  return out;
}

}  // namespace propmap_tool
