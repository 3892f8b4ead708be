// get, ls, tree, export and check: commands that never change a profile.
#include <expat.h>
#include <unistd.h>

#include <cstdio>

#include "commands.h"
#include "json_codec.h"
#include "result_names.h"
#include "snapshot.h"
#include "stream.h"
#include "temp_dir.h"
#include "tool_error.h"

namespace propmap_tool {
namespace {

using nlohmann::ordered_json;

struct Colours {
  const char* key = "";
  const char* type = "";
  const char* reset = "";
};

Colours ColoursFor(const CommonOptions& options) {
  if (!options.colour) return {};
  return {"\033[1;34m", "\033[2m", "\033[0m"};
}

void PrintValue(const TypedValue& v, const std::string& indent, const Colours& c) {
  std::printf("%s%s %s(%s)%s = %s\n", indent.c_str(), v.name.c_str(), c.type, TypeLabel(v.type).c_str(), c.reset,
              v.text.c_str());
}

void PrintTree(const KeySnapshot& key, const std::string& indent, const Colours& c) {
  for (const KeySnapshot& sub : key.keys) {
    std::printf("%s%s%s/%s\n", indent.c_str(), c.key, sub.name.c_str(), c.reset);
    PrintTree(sub, indent + "  ", c);
  }
  for (const TypedValue& v : key.values) PrintValue(v, indent, c);
}

ordered_json ValueRow(const TypedValue& v) {
  return {{"name", v.name}, {"type", TypeLabel(v.type)}, {"text", v.text}};
}

ordered_json TreeJson(const KeySnapshot& key) {
  ordered_json keys = ordered_json::array(), values = ordered_json::array();
  for (const KeySnapshot& sub : key.keys) {
    ordered_json row = TreeJson(sub);
    row["name"] = sub.name;
    keys.push_back(std::move(row));
  }
  for (const TypedValue& v : key.values) values.push_back(ValueRow(v));
  return {{"keys", std::move(keys)}, {"values", std::move(values)}};
}

int Get(Context& ctx, const std::string& path, const std::string& type_name, bool raw) {
  const prhost::TypeId wanted = type_name.empty() ? 0 : ParseTypeName(type_name);
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kFail, true);
  auto [key_path, name] = SplitValuePath(path);
  const prhost::hKey key = profile->Key(key_path);
  prhost::TypeId type = wanted;
  prhost::Result<std::string> native = GetNative(profile->registry(), key, name, &type);
  Check(native.code, profile->path() + ": value '" + path + "' " +
                         (native.code == prhost::kErrNotFound ? "does not exist" : "cannot be read as " + TypeLabel(type)));
  std::string text;
  if (!raw || ctx.options.json) {
    prhost::Result<std::string> formatted = Converter(ctx.session()).Format(type, native.value);
    Check(formatted.code, profile->path() + ": value '" + path + "' has no text as " + TypeLabel(type));
    text = std::move(formatted.value);
  }
  if (ctx.options.json) {
    PrintJson({{"path", path}, {"type", TypeLabel(type)}, {"text", text}, {"hex", ToHex(native.value)}});
  } else {
    std::printf("%s\n", raw ? ToHex(native.value).c_str() : text.c_str());
  }
  return kExitOk;
}

int List(Context& ctx, const std::string& key_path) {
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kFail, true);
  const prhost::hKey key = profile->Key(key_path);
  prhost::Result<std::vector<std::string>> keys = profile->client().SubkeyNames(key);
  Check(keys.code, profile->path() + ": cannot list the sub-keys of '" + key_path + "'");
  KeySnapshot here = ReadSubtree(profile->registry(), key, profile->path(), 0);
  if (ctx.options.json) {
    ordered_json values = ordered_json::array();
    for (const TypedValue& v : here.values) values.push_back(ValueRow(v));
    PrintJson({{"keys", keys.value}, {"values", std::move(values)}});
    return kExitOk;
  }
  const Colours c = ColoursFor(ctx.options);
  for (const std::string& name : keys.value) std::printf("%s%s/%s\n", c.key, name.c_str(), c.reset);
  for (const TypedValue& v : here.values) PrintValue(v, "", c);
  return kExitOk;
}

int Tree(Context& ctx, const std::string& key_path, uint32_t depth) {
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kFail, true);
  KeySnapshot tree = ReadSubtree(profile->registry(), profile->Key(key_path), profile->path(), depth);
  if (ctx.options.json) PrintJson(TreeJson(tree));
  else PrintTree(tree, "", ColoursFor(ctx.options));
  return kExitOk;
}

int Export(Context& ctx, const std::string& key_path, const std::string& format) {
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kFail, true);
  const prhost::hKey key = profile->Key(key_path);
  if (format == "json") {
    PrintJson(ToJson(ReadSubtree(profile->registry(), key, profile->path())));
    return kExitOk;
  }
  // The module's own writer: copy the subtree into a store on a memory
  // stream and flush it there.
  prhost::MemoryStream stream;
  {
    auto scratch = ctx.session().OpenScratch(stream.object());
    const prhost::Registry out = scratch->registry();
    (void)out.Clean();  // marks the store changed, so that even an empty subtree is written
    Check(profile->registry().CopyKey(key, scratch->object(), 0),
          profile->path() + ": cannot copy '" + key_path + "' for export");
    Check(out.Flush(0), profile->path() + ": cannot write the document of '" + key_path + "'");
  }
  const std::string text = stream.content();
  std::fwrite(text.data(), 1, text.size(), stdout);
  return kExitOk;
}

// Where an XML parser stops reading the file, as "line L, column C"; empty
// when it reads the whole document.
std::string StopPosition(const std::string& path) {
  std::optional<std::string> text = prhost::ReadWholeFile(path);
  if (!text) return {};
  XML_Parser parser = XML_ParserCreate(nullptr);
  if (parser == nullptr) return {};
  std::string where;
  if (XML_Parse(parser, text->data(), static_cast<int>(text->size()), 1) == XML_STATUS_ERROR) {
    where = "line " + std::to_string(XML_GetCurrentLineNumber(parser)) + ", column " +
            std::to_string(XML_GetCurrentColumnNumber(parser) + 1) + " (" +
            XML_ErrorString(XML_GetErrorCode(parser)) + ")";
  }
  XML_ParserFree(parser);
  return where;
}

int CheckProfile(Context& ctx, const std::string& path) {
  try {
    auto profile = ctx.session().Open(path, IfMissing::kFail, true, false);
    KeySnapshot all = ReadSubtree(profile->registry(), 0, path);
    size_t keys = 0, values = 0;
    std::function<void(const KeySnapshot&)> count = [&](const KeySnapshot& k) {
      keys += k.keys.size();
      values += k.values.size();
      for (const KeySnapshot& sub : k.keys) count(sub);
    };
    count(all);
    if (ctx.options.json) PrintJson({{"file", path}, {"result", "ResultOk"}, {"keys", keys}, {"values", values}});
    else std::printf("%s: ResultOk, %zu keys, %zu values\n", path.c_str(), keys, values);
    return kExitOk;
  } catch (const ToolError& e) {
    const std::string where = e.code() == prhost::Code(0x800000C5) ? "" : StopPosition(path);
    if (ctx.options.json) {
      const char* name = prhost::ResultName(e.code());
      PrintJson({{"file", path}, {"result", name != nullptr ? name : prhost::FormatResult(e.code())},
                 {"stopped_at", where}});
    }
    if (where.empty()) throw;
    throw ToolError(e.code(), path + ": the document is malformed at " + where);
  }
}

}  // namespace

void AddReadCommands(CLI::App& app, Context& ctx) {
  {
    auto* cmd = app.add_subcommand("get", "Print one value (PATH: key path, then the value name)");
    auto path = std::make_shared<std::string>();
    auto type = std::make_shared<std::string>();
    auto raw = std::make_shared<bool>(false);
    cmd->add_option("PATH", *path, "Key path and value name, e.g. Window/Width")->required();
    cmd->add_option("--type", *type, "Read the value converted to this type (tDWORD, tSTRING, ...)");
    cmd->add_flag("--raw", *raw, "Print the native bytes as hex");
    cmd->callback([&ctx, path, type, raw] { ctx.action = [&ctx, path, type, raw] { return Get(ctx, *path, *type, *raw); }; });
  }
  {
    auto* cmd = app.add_subcommand("ls", "List one key: sub-keys, then values with type and text");
    auto key = std::make_shared<std::string>();
    cmd->add_option("KEY", *key, "Key path (default: the root)");
    cmd->callback([&ctx, key] { ctx.action = [&ctx, key] { return List(ctx, *key); }; });
  }
  {
    auto* cmd = app.add_subcommand("tree", "Print the tree of keys and typed values");
    auto key = std::make_shared<std::string>();
    auto depth = std::make_shared<uint32_t>(UINT32_MAX);
    cmd->add_option("KEY", *key, "Key path (default: the root)");
    cmd->add_option("--depth", *depth, "Levels of sub-keys to show");
    cmd->callback([&ctx, key, depth] { ctx.action = [&ctx, key, depth] { return Tree(ctx, *key, *depth); }; });
  }
  {
    auto* cmd = app.add_subcommand("export", "Write a subtree as a profile document or as typed JSON");
    auto key = std::make_shared<std::string>();
    auto format = std::make_shared<std::string>("xml");
    cmd->add_option("KEY", *key, "Key path (default: the root)");
    cmd->add_option("--format", *format, "xml (the profile document) or json (lossless typed JSON)")
        ->check(CLI::IsMember({"xml", "json"}));
    cmd->callback([&ctx, key, format] { ctx.action = [&ctx, key, format] { return Export(ctx, *key, *format); }; });
  }
  {
    auto* cmd = app.add_subcommand("check", "Load a profile and report the result; for a malformed document, "
                                            "the line and column where reading stopped");
    auto file = std::make_shared<std::string>();
    cmd->add_option("FILE", *file, "Profile to check")->required();
    cmd->callback([&ctx, file] { ctx.action = [&ctx, file] { return CheckProfile(ctx, *file); }; });
  }
}

}  // namespace propmap_tool
