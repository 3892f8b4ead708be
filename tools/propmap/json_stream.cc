#include "json_stream.h"

#include <algorithm>
#include <vector>

#include <nlohmann/json.hpp>

#include "client.h"
#include "document_check.h"
#include "json_codec.h"
#include "tool_error.h"
#include "typed_value.h"

namespace propmap_tool {
namespace {

using json = nlohmann::ordered_json;

// Indentation stops growing here: beyond it a deep tree would print the
// square of its depth in spaces.
constexpr size_t kMaxIndent = 64;

class Writer {
 public:
  explicit Writer(std::FILE* out) : out_(out) {}
  void Put(std::string_view s) { std::fwrite(s.data(), 1, s.size(), out_); }
  void Line(size_t level, std::string_view s) {
    Put("\n");
    Put(std::string_view(spaces_).substr(0, 2 * std::min(level, kMaxIndent)));
    Put(s);
  }
  // A flat object on one line: {"name": "Width", "type": "tDWORD", "value": 1680}.
  std::string Inline(const json& object) const {
    std::string s = "{";
    bool first = true;
    for (const auto& [name, value] : object.items()) {
      if (!first) s += ", ";
      first = false;
      s += json(name).dump() + ": " + value.dump(-1, ' ', false, json::error_handler_t::replace);
    }
    return s + "}";
  }

 private:
  std::FILE* out_;
  const std::string spaces_ = std::string(2 * kMaxIndent, ' ');
};

}  // namespace

void StreamTreeJson(const prhost::Registry& registry, prhost::hKey top, const std::string& where, JsonShape shape,
                    std::FILE* out, uint32_t depth) {
  Writer w(out);
  const prhost::Client client(registry);
  // One frame per open key: its handle, its sub-key count and the next to visit.
  struct Frame {
    prhost::hKey key;
    uint32_t children;
    uint32_t next;
  };
  std::vector<Frame> stack;
  // Writes the key's fields up to the opening of its "keys" array.
  auto open = [&](prhost::hKey key, const std::string* name, size_t level) {
    uint32_t count = 0;
    Check(registry.GetValueCount(&count, key), where + ": cannot count values");
    if (name != nullptr) w.Line(level + 1, "\"name\": " + json(*name).dump(-1, ' ', false, json::error_handler_t::replace) + ",");
    w.Line(level + 1, count == 0 ? "\"values\": []," : "\"values\": [");
    for (uint32_t i = 0; i < count; ++i) {
      const TypedValue v = ReadValue(registry, key, i, where);
      const json row = shape == JsonShape::kTyped ? ValueToJson(v)
                                                  : json{{"name", v.name}, {"type", TypeLabel(v.type)}, {"text", v.text}};
      w.Line(level + 2, w.Inline(row) + (i + 1 < count ? "," : ""));
    }
    if (count > 0) w.Line(level + 1, "],");
    uint32_t children = 0;
    Check(registry.GetKeyCount(&children, key), where + ": cannot count sub-keys");
    if (stack.size() >= depth && children > 0) {
      w.Line(level + 1, "\"cut_keys\": " + std::to_string(children) + ",");
      children = 0;
    }
    w.Line(level + 1, children == 0 ? "\"keys\": []" : "\"keys\": [");
    stack.push_back({key, children, 0});
  };
  w.Put("{");
  if (shape == JsonShape::kTyped) {
    w.Line(1, "\"format\": \"propmap\",");
    w.Line(1, "\"version\": 1,");
  }
  open(top, nullptr, 0);
  while (!stack.empty()) {
    Frame& frame = stack.back();
    // A key at JSON level L sits inside its parent's "keys" array.
    const size_t level = 2 * (stack.size() - 1);
    if (frame.next < frame.children) {
      if (stack.size() > kMaxKeyDepth) {
        throw ToolError(prhost::kErrBadParameter, where + ": keys more than " + std::to_string(kMaxKeyDepth) +
                                                      " levels deep; JSON is written for at most that many");
      }
      prhost::hKey child = prhost::kInvalidKey;
      Check(registry.OpenKeyByIndex(&child, frame.key, frame.next), where + ": cannot open sub-key " +
                                                                        std::to_string(frame.next));
      prhost::Result<std::string> name = client.KeyName(child);
      Check(name.code, where + ": cannot read the name of sub-key " + std::to_string(frame.next));
      w.Put(frame.next == 0 ? "" : ",");
      ++frame.next;
      w.Line(level + 2, "{");
      open(child, &name.value, level + 2);
      continue;
    }
    if (frame.children > 0) w.Line(level + 1, "]");
    stack.pop_back();
    w.Line(level, "}");
  }
  w.Put("\n");
}

}  // namespace propmap_tool
