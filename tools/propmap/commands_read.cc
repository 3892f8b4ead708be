// get, ls, tree, export and check: commands that never change a profile.
#include <unistd.h>

#include <cstdio>

#include "commands.h"
#include "document_check.h"
#include "json_codec.h"
#include "json_stream.h"
#include "people_text.h"
#include "result_names.h"
#include "snapshot.h"
#include "stream.h"
#include "temp_dir.h"
#include "tool_error.h"

namespace propmap_tool {
namespace {

using nlohmann::ordered_json;

void PrintValue(const TypedValue& v, const std::string& indent, const Colours& c) {
  std::printf("%s%s\n", indent.c_str(), ValueLine(v.name, v, c).c_str());
}

// "Panels/", or "Panels/ … 5 keys" for a key whose sub-keys a depth limit cut.
std::string KeyLine(const KeySnapshot& key, const Colours& c) {
  std::string line = c.key + QuoteName(key.name) + "/" + c.reset;
  if (key.cut_keys > 0) line += " \u2026 " + Count(key.cut_keys, "key");
  return line;
}

// Each key's sub-keys (with what is below them), then its values.
// Iterative: a profile may be as deep as the module reads.
void PrintTree(const KeySnapshot& top, const Colours& c) {
  struct Item {
    const KeySnapshot* key;
    size_t level;
    bool values;  // print the key's values; else the key's line and what is below it
  };
  std::vector<Item> stack{{&top, 0, false}};
  while (!stack.empty()) {
    const Item item = stack.back();
    stack.pop_back();
    const std::string indent(2 * item.level, ' ');
    if (item.values) {
      for (const TypedValue& v : item.key->values) PrintValue(v, indent, c);
      // The top key has no line of its own to carry the mark.
      if (item.key == &top && top.cut_keys > 0) std::printf("\u2026 %s\n", Count(top.cut_keys, "key").c_str());
      continue;
    }
    size_t level = item.level;
    if (item.key != &top) {
      std::printf("%s%s\n", indent.c_str(), KeyLine(*item.key, c).c_str());
      ++level;
    }
    stack.push_back({item.key, level, true});
    for (size_t i = item.key->keys.size(); i-- > 0;) stack.push_back({&item.key->keys[i], level, false});
  }
}

ordered_json ValueRow(const TypedValue& v) {
  return {{"name", v.name}, {"type", TypeLabel(v.type)}, {"text", v.text}};
}

enum class GetOutput { kLine, kValueOnly, kRaw };

int Get(Context& ctx, const std::string& path, const std::string& type_name, GetOutput output) {
  const bool raw = output == GetOutput::kRaw;
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
  } else if (output == GetOutput::kLine) {
    const TypedValue v{name, type, native.value, text};
    std::printf("%s\n", ValueLine(JoinPath(key_path, name), v, ColoursFor(ctx.options)).c_str());
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
  for (const std::string& name : keys.value) std::printf("%s%s/%s\n", c.key, QuoteName(name).c_str(), c.reset);
  for (const TypedValue& v : here.values) PrintValue(v, "", c);
  return kExitOk;
}

int Tree(Context& ctx, const std::string& key_path, uint32_t depth) {
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kFail, true);
  const prhost::hKey key = profile->Key(key_path);
  if (ctx.options.json) {
    StreamTreeJson(profile->registry(), key, profile->path(), JsonShape::kTree, stdout, depth);
    return kExitOk;
  }
  PrintTree(ReadSubtree(profile->registry(), key, profile->path(), depth), ColoursFor(ctx.options));
  return kExitOk;
}

}  // namespace

std::string DocumentOf(const Session& session, const KeySnapshot& subtree, const std::string& where) {
  // The module's own writer: the subtree is written into a store on a memory
  // stream, which flushes there. A second value of one name carries a marker
  // until the document is written (Profile::DuplicateMarker).
  prhost::MemoryStream stream;
  std::string marker;
  {
    auto scratch = session.OpenScratch(stream.object());
    const prhost::Registry out = scratch->registry();
    (void)out.Clean();  // marks the store changed, so that even an empty subtree is written
    Check(WriteSubtree(out, 0, subtree, [&marker]() -> const std::string& {
            if (marker.empty()) marker = NewDuplicateMarker();
            return marker;
          }),
          where + ": cannot be copied into a document");
    Check(out.Flush(0), where + ": its document cannot be written");
  }
  return marker.empty() ? stream.content() : Unmarked(stream.content(), marker);
}

namespace {

int Export(Context& ctx, const std::string& key_path, const std::string& format) {
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kFail, true);
  const prhost::hKey key = profile->Key(key_path);
  if (format == "json") {
    StreamTreeJson(profile->registry(), key, profile->path(), JsonShape::kTyped, stdout);
    return kExitOk;
  }
  const std::string text = DocumentOf(ctx.session(), ReadSubtree(profile->registry(), key, profile->path()),
                                      profile->path() + ": '" + key_path + "'");
  std::fwrite(text.data(), 1, text.size(), stdout);
  return kExitOk;
}

// Loads the profile and reports what the module read; a document it refuses
// fails with the position of what it refuses (Session::Load). Parts the
// module's reading leaves out and bytes that are not UTF-8 are warnings:
// exit 1.
int CheckProfile(Context& ctx, const std::string& path) {
  std::optional<Input> input = ReadInput(path);
  if (!input) throw ToolError(prhost::Code(0x800000C5), path + ": the profile does not exist");
  const std::string text = input->bytes;
  std::unique_ptr<Profile> profile;
  try {
    profile = ctx.session().Load(path, std::move(*input), false, true, false);
  } catch (const ToolError& e) {
    if (ctx.options.json) {
      const char* name = prhost::ResultName(e.code());
      PrintJson({{"file", path}, {"result", name != nullptr ? name : prhost::FormatResult(e.code())},
                 {"error", e.what()}});
    }
    throw;
  }
  size_t keys = 0, values = 0;
  KeySnapshot all = ReadSubtree(profile->registry(), 0, path);
  ForEachKey(all, [&](KeySnapshot& k) {
    keys += k.keys.size();
    values += k.values.size();
  });
  constexpr size_t kMaxWarnings = 20;
  std::vector<std::string> warnings;
  for (const Finding& f : Examine(text, kMaxWarnings).lost) {
    warnings.push_back(Where(path, text, f.offset) + ": " + f.what + " is not read by the module; a save drops it");
  }
  if (std::optional<size_t> at = FirstInvalidUtf8(text)) {
    warnings.push_back(Where(path, text, *at) + ": bytes that are not UTF-8");
  }
  if (ctx.options.json) {
    PrintJson({{"file", path}, {"result", "ResultOk"}, {"keys", keys}, {"values", values}, {"warnings", warnings}});
  } else {
    std::printf("%s: ResultOk, %zu keys, %zu values\n", path.c_str(), keys, values);
    for (const std::string& w : warnings) Say(0, "warning: " + w);
  }
  return warnings.empty() ? kExitOk : kExitDifferent;
}

}  // namespace

void AddReadCommands(CLI::App& app, Context& ctx) {
  {
    auto* cmd = app.add_subcommand("get", "Print one value (PATH: key path, then the value name)");
    auto path = std::make_shared<std::string>();
    auto type = std::make_shared<std::string>();
    auto raw = std::make_shared<bool>(false);
    auto value_only = std::make_shared<bool>(false);
    cmd->add_option("PATH", *path, "Key path and value name, e.g. Window/Width")->required();
    cmd->add_option("--type", *type, "Read the value converted to this type (dword, tSTRING, ...)");
    auto* raw_flag = cmd->add_flag("--raw", *raw, "Print the native bytes as hex");
    cmd->add_flag("--value-only", *value_only, "Print only the value's text, as it is (for scripts)")->excludes(raw_flag);
    cmd->callback([&ctx, path, type, raw, value_only] {
      const GetOutput output = *raw ? GetOutput::kRaw : *value_only ? GetOutput::kValueOnly : GetOutput::kLine;
      ctx.action = [&ctx, path, type, output] { return Get(ctx, *path, *type, output); };
    });
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
    cmd->add_option("--depth", *depth, "Levels of sub-keys to show; a key cut off says how many it holds");
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
    auto* cmd = app.add_subcommand("check", "Load a profile and report the result; FILE:LINE:COLUMN of what the "
                                            "module refuses (exit 2) or does not read (exit 1)");
    auto file = std::make_shared<std::string>();
    cmd->add_option("FILE", *file, "Profile to check ('-': standard input)")->required();
    cmd->callback([&ctx, file] { ctx.action = [&ctx, file] { return CheckProfile(ctx, *file); }; });
  }
}

}  // namespace propmap_tool
