// set, rm, clean, cp and import: commands that change a profile. Each works
// on the store in memory and saves once at the end through Flush, so a
// failure on the way saves nothing and the file keeps its old content.
#include <cstdio>
#include <optional>

#include "commands.h"
#include "diff.h"
#include "json_codec.h"
#include "snapshot.h"
#include "temp_dir.h"
#include "tool_error.h"

namespace propmap_tool {
namespace {

int Set(Context& ctx, const std::string& path, const std::string& data, const std::string& type_name) {
  const prhost::TypeId type = ParseTypeName(type_name);
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kStartEmpty, false);
  Converter converter(ctx.session());
  prhost::Result<std::string> native = converter.Parse(type, data);
  Check(native.code, profile->path() + ": " + type_name + " refuses the text '" + data + "' for '" + path + "'");
  auto [key_path, name] = SplitValuePath(path);
  const prhost::hKey key = profile->Key(key_path, true);
  Check(PutValue(profile->registry(), key, name, type, native.value),
        profile->path() + ": value '" + path + "' cannot be set");
  profile->Save();
  return kExitOk;
}

int Remove(Context& ctx, const std::string& key_path, const std::optional<std::string>& value) {
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kFail, false);
  if (value) {
    const prhost::hKey key = profile->Key(key_path);
    Check(profile->registry().DeleteValue(key, value->c_str()),
          profile->path() + ": value '" + *value + "' of key '" + key_path + "' cannot be removed");
  } else {
    Check(profile->registry().DeleteKey(0, key_path.c_str()), profile->path() + ": key '" + key_path +
                                                                  "' cannot be removed");
  }
  profile->Save();
  return kExitOk;
}

int CleanKey(Context& ctx, const std::string& key_path) {
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kFail, false);
  const prhost::Registry registry = profile->registry();
  const prhost::hKey root = profile->Key("");
  const prhost::hKey key = profile->Key(key_path);
  // Clean empties the current root: point it at the key for the call.
  Check(registry.SetRootKey(key), profile->path() + ": cannot select key '" + key_path + "'");
  const prhost::tERROR cleaned = registry.Clean();
  Check(registry.SetRootKey(root), profile->path() + ": cannot return to the root");
  Check(cleaned, profile->path() + ": key '" + key_path + "' cannot be emptied");
  profile->Save();
  return kExitOk;
}

int Copy(Context& ctx, const std::string& source, const std::string& destination, const std::string& to) {
  auto from = ctx.session().Open(ctx.options.profile, IfMissing::kFail, !to.empty());
  std::unique_ptr<Profile> other = to.empty() ? nullptr : ctx.session().Open(to, IfMissing::kStartEmpty, false);
  const Profile& into = other ? *other : *from;
  const prhost::hKey source_key = from->Key(source);
  const prhost::hKey destination_key = into.Key(destination, true);
  Check(from->registry().CopyKey(source_key, into.object(), destination_key),
        from->path() + ": key '" + source + "' cannot be copied to " + into.path() + " key '" + destination + "'");
  into.Save();
  return kExitOk;
}

KeySnapshot ReadImport(Context& ctx, const std::string& file) {
  std::optional<std::string> text = prhost::ReadWholeFile(file);
  if (!text) throw ToolError(prhost::Code(0x800000C5), file + ": cannot be read");
  const size_t first = text->find_first_not_of(" \t\r\n");
  if (first != std::string::npos && (*text)[first] == '{') {
    nlohmann::ordered_json json = nlohmann::ordered_json::parse(*text, nullptr, false);
    if (json.is_discarded()) throw ToolError(prhost::Code(0x800000C0), file + ": is not a valid JSON document");
    text.reset();
    return FromJson(json, Converter(ctx.session()), file);
  }
  // A profile document or any other XML: the module reads it as it would
  // read a profile, with its mapping of foreign documents.
  auto source = ctx.session().Open(file, IfMissing::kFail, true, false);
  return ReadSubtree(source->registry(), 0, file);
}

int Import(Context& ctx, const std::string& file, const std::string& at, bool dry_run) {
  KeySnapshot incoming = ReadImport(ctx, file);
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kStartEmpty, false);
  const prhost::hKey key = profile->Key(at, true);
  if (!dry_run) {
    Check(WriteSubtree(profile->registry(), key, incoming),
          profile->path() + ": cannot import " + file + " at '" + at + "'");
    profile->Save();
    return kExitOk;
  }
  const KeySnapshot before = ReadSubtree(profile->registry(), key, profile->path());
  Check(WriteSubtree(profile->registry(), key, incoming),
        profile->path() + ": cannot import " + file + " at '" + at + "'");
  const KeySnapshot after = ReadSubtree(profile->registry(), key, profile->path());
  const std::vector<Change> changes = Diff(before, after);
  if (ctx.options.json) PrintJson(ChangesToJson(changes));
  else std::fputs(FormatChanges(changes).c_str(), stdout);
  return kExitOk;  // the store is dropped unsaved
}

}  // namespace

void AddEditCommands(CLI::App& app, Context& ctx) {
  {
    auto* cmd = app.add_subcommand("set", "Set a typed value, creating the keys along the path");
    auto path = std::make_shared<std::string>();
    auto data = std::make_shared<std::string>();
    auto type = std::make_shared<std::string>();
    cmd->add_option("PATH", *path, "Key path and value name, e.g. Window/Width")->required();
    cmd->add_option("DATA", *data, "The value as text, parsed by the type's own conversion")->required();
    cmd->add_option("--type", *type, "Type name (tDWORD, tSTRING, tBINARY as hex, ...)")->required();
    cmd->callback([&ctx, path, data, type] {
      ctx.action = [&ctx, path, data, type] { return Set(ctx, *path, *data, *type); };
    });
  }
  {
    auto* cmd = app.add_subcommand("rm", "Delete a key with everything below it, or one value");
    auto key = std::make_shared<std::string>();
    auto value = std::make_shared<std::string>();
    cmd->add_option("KEY", *key, "Key path")->required();
    auto* value_option = cmd->add_option("--value", *value, "Delete only this value of KEY");
    cmd->callback([&ctx, key, value, value_option] {
      std::optional<std::string> name;
      if (value_option->count() > 0) name = *value;
      ctx.action = [&ctx, key, name] { return Remove(ctx, *key, name); };
    });
  }
  {
    auto* cmd = app.add_subcommand("clean", "Empty a key: remove its values and sub-keys");
    auto key = std::make_shared<std::string>();
    cmd->add_option("KEY", *key, "Key path (default: the root)");
    cmd->callback([&ctx, key] { ctx.action = [&ctx, key] { return CleanKey(ctx, *key); }; });
  }
  {
    auto* cmd = app.add_subcommand("cp", "Copy SRC's values and sub-keys into DST (created if missing)");
    auto source = std::make_shared<std::string>();
    auto destination = std::make_shared<std::string>();
    auto to = std::make_shared<std::string>();
    cmd->add_option("SRC", *source, "Source key path")->required();
    cmd->add_option("DST", *destination, "Destination key path")->required();
    cmd->add_option("--to", *to, "Copy into this profile instead (created if missing)");
    cmd->callback([&ctx, source, destination, to] {
      ctx.action = [&ctx, source, destination, to] { return Copy(ctx, *source, *destination, *to); };
    });
  }
  {
    auto* cmd = app.add_subcommand("import", "Merge a profile, a foreign XML document or typed JSON");
    auto file = std::make_shared<std::string>();
    auto at = std::make_shared<std::string>();
    auto dry_run = std::make_shared<bool>(false);
    cmd->add_option("FILE", *file, "Document to merge")->required();
    cmd->add_option("--at", *at, "Key to merge into (default: the root; created if missing)");
    cmd->add_flag("--dry-run", *dry_run, "Print what would change and save nothing");
    cmd->callback([&ctx, file, at, dry_run] {
      ctx.action = [&ctx, file, at, dry_run] { return Import(ctx, *file, *at, *dry_run); };
    });
  }
}

}  // namespace propmap_tool
