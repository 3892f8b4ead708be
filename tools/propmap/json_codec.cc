#include "json_codec.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "document_check.h"
#include "tool_error.h"
#include "type_names.h"
#include "typed_text.h"

namespace propmap_tool {
namespace {

using json = nlohmann::ordered_json;
using prhost::TypeId;

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

}  // namespace

json ValueToJson(const TypedValue& v) {
  json out{{"name", v.name}, {"type", TypeLabel(v.type)}};
  const Shape shape = ShapeOf(v.type);
  switch (shape.kind) {
    case Kind::kNone: out["value"] = nullptr; return out;
    case Kind::kUnsigned:
    case Kind::kBool:
    case Kind::kChar:
      switch (shape.width) {
        case 1: out["value"] = Load<uint8_t>(v.data); return out;
        case 2: out["value"] = Load<uint16_t>(v.data); return out;
        case 4: out["value"] = Load<uint32_t>(v.data); return out;
        default: out["value"] = std::to_string(Load<uint64_t>(v.data)); return out;
      }
    case Kind::kSigned:
      switch (shape.width) {
        case 1: out["value"] = Load<int8_t>(v.data); return out;
        case 2: out["value"] = Load<int16_t>(v.data); return out;
        case 4: out["value"] = Load<int32_t>(v.data); return out;
        default: out["value"] = std::to_string(Load<int64_t>(v.data)); return out;
      }
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
    case Kind::kWide:
      if (IsUtf8(v.text)) out["value"] = v.text;
      else out["hex"] = ToHex(v.data);
      return out;
    case Kind::kBlock: out["hex"] = ToHex(v.data); return out;
  }
  return out;
}

namespace {

// The native bytes of a JSON "value". Strings for other types than strings
// are read as a person's input (typed_text.h); numbers are checked against
// the type's range.
std::string Native(const json& value, TypeId type, const Converter& converter, const std::string& where,
                   std::string* warning) {
  const Shape shape = ShapeOf(type);
  auto bad = [&](const std::string& why) { return ToolError(prhost::kErrBadParameter, where + ": " + why); };
  if (value.is_null()) {
    if (shape.kind != Kind::kNone) throw bad("null is no " + TypeLabel(type));
    return {};
  }
  if (value.is_boolean()) {
    if (shape.kind != Kind::kBool) throw bad("true and false are only for tBOOL");
    const uint32_t flag = value.get<bool>() ? 1 : 0;
    return std::string(reinterpret_cast<const char*>(&flag), sizeof flag);
  }
  if (value.is_string()) {
    ParsedText parsed = ParseTyped(type, value.get<std::string>(), where);
    if (!parsed.warning.empty()) *warning = parsed.warning;
    if (!parsed.module_converts) return std::move(parsed.native);
    prhost::Result<std::string> native = converter.Parse(type, parsed.native);
    Check(native.code, where + ": " + TypeLabel(type) + " refuses the text '" + parsed.native + "'");
    return std::move(native.value);
  }
  if (!value.is_number()) throw bad("the value is neither a number nor a string");
  std::string out(shape.width, '\0');
  auto store = [&](auto v) { std::memcpy(out.data(), &v, shape.width); };
  if (shape.kind == Kind::kDouble) {
    store(KeptDouble(value.get<double>(), value.dump(), where, warning));
    return out;
  }
  if (!value.is_number_integer()) throw bad("a " + TypeLabel(type) + " needs an integer");
  const bool negative = !value.is_number_unsigned() && value.get<int64_t>() < 0;
  const unsigned bits = shape.width * 8;
  if (shape.kind == Kind::kUnsigned || shape.kind == Kind::kBool || shape.kind == Kind::kChar) {
    const uint64_t u = value.get<uint64_t>();
    if (negative || (bits < 64 && u >> bits != 0)) throw bad("out of the range of " + TypeLabel(type));
    store(u);
  } else if (shape.kind == Kind::kSigned) {
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

TypedValue ValueFromJson(const json& v, const Converter& converter, const std::string& where) {
  auto bad = [&](const std::string& why) { return ToolError(prhost::kErrBadParameter, where + ": " + why); };
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
    std::string warning;
    value.data = Native(*val, value.type, converter, at, &warning);
    if (!warning.empty()) Say(0, "warning: " + warning);
  } else {
    throw bad("value '" + value.name + "' has neither \"value\" nor \"hex\"");
  }
  return value;
}

// Iterative: a JSON document may nest keys far deeper than a stack allows.
void KeyFromJson(const json& top, KeySnapshot& out, const Converter& converter, const std::string& top_where,
                 size_t max_depth) {
  std::vector<std::tuple<const json*, KeySnapshot*, std::string, size_t>> stack;
  stack.emplace_back(&top, &out, top_where, 0);
  while (!stack.empty()) {
    auto [in, node, where, depth] = std::move(stack.back());
    stack.pop_back();
    if (depth > max_depth) {
      // Checked on the way down: the names below would make every message as long as the path.
      throw ToolError(prhost::kErrBadParameter, top_where + ": keys nested deeper than " +
                                                    std::to_string(max_depth) + " levels; a profile reads back at most " +
                                                    std::to_string(max_depth));
    }
    auto bad = [&](const std::string& why) { return ToolError(prhost::kErrBadParameter, where + ": " + why); };
    if (!in->is_object()) throw bad("a key must be a JSON object");
    if (auto it = in->find("values"); it != in->end()) {
      if (!it->is_array()) throw bad("\"values\" must be an array");
      for (const json& v : *it) node->values.push_back(ValueFromJson(v, converter, where));
    }
    if (auto it = in->find("keys"); it != in->end()) {
      if (!it->is_array()) throw bad("\"keys\" must be an array");
      node->keys.reserve(it->size());  // complete before any is visited: pointers stay valid
      for (const json& k : *it) {
        if (!k.is_object() || !k.contains("name") || !k["name"].is_string()) throw bad("each key needs a \"name\"");
        node->keys.emplace_back(k["name"].get<std::string>());
      }
      for (size_t i = it->size(); i-- > 0;) {
        stack.emplace_back(&(*it)[i], &node->keys[i], where + " key '" + node->keys[i].name + "'", depth + 1);
      }
    }
  }
}

json KeyToJson(const KeySnapshot& top) {
  json out = json::object();
  std::vector<std::pair<const KeySnapshot*, json*>> stack{{&top, &out}};
  while (!stack.empty()) {
    auto [node, into] = stack.back();
    stack.pop_back();
    json values = json::array();
    for (const TypedValue& v : node->values) values.push_back(ValueToJson(v));
    (*into)["values"] = std::move(values);
    json& keys = (*into)["keys"] = json::array();
    for (const KeySnapshot& k : node->keys) keys.push_back(json{{"name", k.name}});
    for (size_t i = 0; i < node->keys.size(); ++i) stack.emplace_back(&node->keys[i], &keys[i]);
  }
  return out;
}

}  // namespace

json ToJson(const KeySnapshot& snapshot) {
  json out{{"format", "propmap"}, {"version", 1}};
  json body = KeyToJson(snapshot);
  out["values"] = std::move(body["values"]);
  out["keys"] = std::move(body["keys"]);
  return out;
}

json ParseJsonDocument(const std::string& text, const std::string& file, bool comments) {
  try {
    return json::parse(text, nullptr, true, comments);
  } catch (const json::parse_error& e) {
    // "[json.exception.parse_error.101] parse error at line 1, column 5: syntax error ..." -> "syntax error ..."
    std::string what = e.what();
    if (const size_t colon = what.find(": "); colon != std::string::npos) what.erase(0, colon + 2);
    const size_t offset = e.byte == 0 ? 0 : std::min<size_t>(e.byte - 1, text.size());
    throw ToolError(prhost::Code(0x800000C0), Where(file, text, offset) + ": " + what);
  }
}

KeySnapshot FromJson(const json& in, const Converter& converter, const std::string& where, size_t max_depth) {
  if (!in.is_object() || in.value("format", "") != "propmap") {
    throw ToolError(prhost::kErrBadParameter, where + ": not a propmap JSON document (\"format\": \"propmap\")");
  }
  KeySnapshot out;
  KeyFromJson(in, out, converter, where, max_depth);
  return out;
}

}  // namespace propmap_tool
