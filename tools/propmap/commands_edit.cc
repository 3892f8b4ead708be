// set, rm, clean, cp and import: commands that change a profile. Each works
// on the store in memory and saves once at the end through Flush (edit.h), so
// a failure on the way saves nothing and the file keeps its old content.
#include <cstdio>
#include <optional>

#include "commands.h"
#include "diff.h"
#include "document_check.h"
#include "edit.h"
#include "json_codec.h"
#include "snapshot.h"
#include "tool_error.h"
#include "typed_text.h"

namespace propmap_tool {
namespace {

// A profile keeps keys only as deep as the module reads them back.
void RequireDepth(const Context& ctx, size_t depth, const std::string& what) {
  const size_t root = ctx.options.root ? PathDepth(*ctx.options.root) : 0;
  if (root + depth > kMaxKeyDepth) {
    throw ToolError(prhost::kErrBadParameter, what + " would put keys " + std::to_string(root + depth) +
                                                  " levels deep; a profile reads back at most " +
                                                  std::to_string(kMaxKeyDepth));
  }
}

std::function<const std::string&()> MarkerOf(Profile& profile) {
  return [&profile]() -> const std::string& { return profile.DuplicateMarker(); };
}

int Set(Context& ctx, const std::string& path, const std::string& data, const std::string& type_name, bool force) {
  const prhost::TypeId type = ParseTypeName(type_name);
  if (!IsSettable(type)) {
    throw ToolError(prhost::kErrBadParameter, "values of type " + type_name + " cannot be set: " +
                                                  (type == 1 ? "it holds nothing"
                                                   : type == 8 ? "a profile cannot hold its text"
                                                               : "an address means nothing to another process"));
  }
  const std::string& file = ctx.options.profile;
  ParsedText parsed = ParseTyped(type, data, file + ": '" + path + "'");
  if (!parsed.warning.empty()) std::fprintf(stderr, "propmap: warning: %s\n", parsed.warning.c_str());
  if (parsed.module_converts) {
    prhost::Result<std::string> native = Converter(ctx.session()).Parse(type, parsed.native);
    Check(native.code, file + ": " + type_name + " refuses the text '" + data + "' for '" + path + "'");
    parsed.native = std::move(native.value);
  }
  auto [key_path, name] = SplitValuePath(path);
  RequireDepth(ctx, PathDepth(key_path), "'" + path + "'");
  EditProfile(ctx.session(), file, {IfMissing::kCreate, force}, [&](Profile& profile) {
    const prhost::hKey key = profile.Key(key_path, true);
    Check(PutValue(profile.registry(), key, name, type, parsed.native),
          profile.path() + ": value '" + path + "' cannot be set");
  });
  return kExitOk;
}

// "3 values and 2 sub-keys"; empty when the key holds nothing.
std::string Contents(const Profile& profile, prhost::hKey key) {
  uint32_t values = 0, keys = 0;
  (void)profile.registry().GetValueCount(&values, key);
  (void)profile.registry().GetKeyCount(&keys, key);
  if (values == 0 && keys == 0) return {};
  return std::to_string(values) + " values and " + std::to_string(keys) + " sub-keys";
}

int Remove(Context& ctx, const std::string& key_path, const std::optional<std::string>& value, bool yes,
           bool force) {
  EditProfile(ctx.session(), ctx.options.profile, {IfMissing::kFail, force}, [&](Profile& profile) {
    const prhost::hKey key = profile.Key(key_path);
    if (value) {
      Check(profile.registry().DeleteValue(key, value->c_str()),
            profile.path() + ": value '" + *value + "' of key '" + key_path + "' cannot be removed");
      return;
    }
    uint32_t sub_keys = 0;
    (void)profile.registry().GetKeyCount(&sub_keys, key);
    if (sub_keys > 0) {
      Confirm(yes, "Remove key '" + key_path + "' of " + profile.path() + " with its " + Contents(profile, key) + "?");
      yes = true;  // asked once, also when the change is applied again
    }
    Check(profile.registry().DeleteKey(0, key_path.c_str()),
          profile.path() + ": key '" + key_path + "' cannot be removed");
  });
  return kExitOk;
}

int CleanKey(Context& ctx, const std::string& key_path, bool yes, bool force) {
  EditProfile(ctx.session(), ctx.options.profile, {IfMissing::kFail, force}, [&](Profile& profile) {
    const prhost::Registry registry = profile.registry();
    const prhost::hKey root = profile.Key("");
    const prhost::hKey key = profile.Key(key_path);
    const std::string contents = Contents(profile, key);
    if (!contents.empty() && !ctx.options.read_only) {
      Confirm(yes, "Empty " + (key_path.empty() ? "the whole profile " + profile.path()
                                               : "key '" + key_path + "' of " + profile.path()) +
                       ": remove its " + contents + "?");
      yes = true;
    }
    // Clean empties the current root: point it at the key for the call.
    Check(registry.SetRootKey(key), profile.path() + ": cannot select key '" + key_path + "'");
    const prhost::tERROR cleaned = registry.Clean();
    Check(registry.SetRootKey(root), profile.path() + ": cannot return to the root");
    Check(cleaned, profile.path() + ": key '" + key_path + "' cannot be emptied");
  });
  return kExitOk;
}

int Copy(Context& ctx, const std::string& source, const std::string& destination, const std::string& to, bool force) {
  auto copy_into = [&](Profile& into, const KeySnapshot& subtree) {
    RequireDepth(ctx, PathDepth(destination) + Depth(subtree), "copying '" + source + "' to '" + destination + "'");
    const prhost::hKey key = into.Key(destination, true);
    Check(WriteSubtree(into.registry(), key, subtree, MarkerOf(into)),
          ctx.options.profile + ": key '" + source + "' cannot be copied to " + into.path() + " key '" +
              destination + "'");
  };
  if (to.empty()) {
    EditProfile(ctx.session(), ctx.options.profile, {IfMissing::kFail, force}, [&](Profile& profile) {
      copy_into(profile, ReadSubtree(profile.registry(), profile.Key(source), profile.path()));
    });
    return kExitOk;
  }
  std::unique_ptr<Profile> from = ctx.session().Open(ctx.options.profile, IfMissing::kFail, true);
  const KeySnapshot subtree = ReadSubtree(from->registry(), from->Key(source), from->path());
  from.reset();
  EditProfile(ctx.session(), to, {IfMissing::kCreate, force}, [&](Profile& into) { copy_into(into, subtree); });
  return kExitOk;
}

KeySnapshot ReadImport(Context& ctx, const std::string& file, bool force) {
  std::optional<Input> input = ReadInput(file);
  if (!input) throw ToolError(prhost::Code(0x800000C5), file + ": does not exist");
  const size_t first = input->bytes.find_first_not_of(" \t\r\n");
  if (first != std::string::npos && input->bytes[first] == '{') {
    nlohmann::ordered_json json = nlohmann::ordered_json::parse(input->bytes, nullptr, false);
    if (json.is_discarded()) throw ToolError(prhost::Code(0x800000C0), file + ": is not a valid JSON document");
    input.reset();
    return FromJson(json, Converter(ctx.session()), file, kMaxKeyDepth);
  }
  // A profile document or any other XML: the module reads it as it would
  // read a profile, with its mapping of foreign documents.
  auto source = ctx.session().Load(file, std::move(*input), false, true, false);
  if (!force) RequireWholeDocument(*source, "nothing was imported (--force imports what the module reads)");
  return ReadSubtree(source->registry(), 0, file);
}

int Import(Context& ctx, const std::string& file, const std::string& at, bool dry_run, bool force) {
  KeySnapshot incoming = ReadImport(ctx, file, force);
  RequireDepth(ctx, PathDepth(at) + Depth(incoming), "importing " + file);
  const std::string failed = ctx.options.profile + ": cannot import " + file + " at '" + at + "'";
  if (!dry_run) {
    EditProfile(ctx.session(), ctx.options.profile, {IfMissing::kCreate, force}, [&](Profile& profile) {
      Check(WriteSubtree(profile.registry(), profile.Key(at, true), incoming, MarkerOf(profile)), failed);
    });
    return kExitOk;
  }
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kCreate, false);
  const prhost::hKey key = profile->Key(at, true);
  const KeySnapshot before = ReadSubtree(profile->registry(), key, profile->path());
  Check(WriteSubtree(profile->registry(), key, incoming, MarkerOf(*profile)), failed);
  KeySnapshot after = ReadSubtree(profile->registry(), key, profile->path());
  // Names written with a marker until a save: show them as they would be saved.
  ForEachKey(after, [&](KeySnapshot& node) {
    const std::string& marker = profile->DuplicateMarker();
    for (TypedValue& v : node.values) v.name = Unmarked(v.name, marker);
    for (KeySnapshot& sub : node.keys) sub.name = Unmarked(sub.name, marker);
  });
  const std::vector<Change> changes = Diff(before, after);
  if (ctx.options.json) PrintJson(ChangesToJson(changes));
  else std::fputs(FormatChanges(changes).c_str(), stdout);
  return kExitOk;  // the store is dropped unsaved
}

}  // namespace

void AddEditCommands(CLI::App& app, Context& ctx) {
  auto force = std::make_shared<bool>(false);
  auto add_force = [force](CLI::App* cmd) {
    cmd->add_flag("--force", *force, "Save even over parts of the document the module does not read (the old file "
                                     "is kept as the rolling backup)");
  };
  {
    auto* cmd = app.add_subcommand("set", "Set a typed value, creating the keys along the path");
    auto path = std::make_shared<std::string>();
    auto data = std::make_shared<std::string>();
    auto type = std::make_shared<std::string>();
    cmd->add_option("PATH", *path, "Key path and value name, e.g. Window/Width")->required();
    cmd->add_option("DATA", *data, "The value: decimal or 0x hexadecimal numbers, true/false, text, hex bytes")
        ->required();
    cmd->add_option("--type", *type, "Type name (tDWORD, tSTRING, tBINARY as hex, ...)")->required();
    add_force(cmd);
    cmd->callback([&ctx, path, data, type, force] {
      ctx.action = [&ctx, path, data, type, force] { return Set(ctx, *path, *data, *type, *force); };
    });
  }
  {
    auto* cmd = app.add_subcommand("rm", "Delete a key with everything below it, or one value");
    auto key = std::make_shared<std::string>();
    auto value = std::make_shared<std::string>();
    auto yes = std::make_shared<bool>(false);
    cmd->add_option("KEY", *key, "Key path")->required();
    auto* value_option = cmd->add_option("--value", *value, "Delete only this value of KEY");
    cmd->add_flag("--yes,-y", *yes, "Do not ask before removing a key with sub-keys");
    add_force(cmd);
    cmd->callback([&ctx, key, value, value_option, yes, force] {
      std::optional<std::string> name;
      if (value_option->count() > 0) name = *value;
      ctx.action = [&ctx, key, name, yes, force] { return Remove(ctx, *key, name, *yes, *force); };
    });
  }
  {
    auto* cmd = app.add_subcommand("clean", "Empty a key: remove its values and sub-keys");
    auto key = std::make_shared<std::string>();
    auto yes = std::make_shared<bool>(false);
    cmd->add_option("KEY", *key, "Key path (default: the root)");
    cmd->add_flag("--yes,-y", *yes, "Do not ask");
    add_force(cmd);
    cmd->callback([&ctx, key, yes, force] {
      ctx.action = [&ctx, key, yes, force] { return CleanKey(ctx, *key, *yes, *force); };
    });
  }
  {
    auto* cmd = app.add_subcommand("cp", "Copy SRC's values and sub-keys into DST (created if missing)");
    auto source = std::make_shared<std::string>();
    auto destination = std::make_shared<std::string>();
    auto to = std::make_shared<std::string>();
    cmd->add_option("SRC", *source, "Source key path")->required();
    cmd->add_option("DST", *destination, "Destination key path")->required();
    cmd->add_option("--to", *to, "Copy into this profile instead (created if missing)");
    add_force(cmd);
    cmd->callback([&ctx, source, destination, to, force] {
      ctx.action = [&ctx, source, destination, to, force] { return Copy(ctx, *source, *destination, *to, *force); };
    });
  }
  {
    auto* cmd = app.add_subcommand("import", "Merge a profile, a foreign XML document or typed JSON");
    auto file = std::make_shared<std::string>();
    auto at = std::make_shared<std::string>();
    auto dry_run = std::make_shared<bool>(false);
    cmd->add_option("FILE", *file, "Document to merge ('-': standard input)")->required();
    cmd->add_option("--at", *at, "Key to merge into (default: the root; created if missing)");
    cmd->add_flag("--dry-run", *dry_run, "Print what would change and save nothing");
    add_force(cmd);
    cmd->callback([&ctx, file, at, dry_run, force] {
      ctx.action = [&ctx, file, at, dry_run, force] { return Import(ctx, *file, *at, *dry_run, *force); };
    });
  }
}

}  // namespace propmap_tool
