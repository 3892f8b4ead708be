// set, rm, clean, cp and import: commands that change a profile. Each works
// on the store in memory and saves once at the end through Flush (edit.h), so
// a failure on the way saves nothing and the file keeps its old content.
#include <algorithm>
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

// A profile keeps keys only as deep as the module reads them back.
void RequireDepth(const Context& ctx, size_t depth, const std::string& what) {
  const size_t root = ctx.options.root ? PathDepth(*ctx.options.root) : 0;
  if (root + depth > kMaxKeyDepth) {
    throw ToolError(prhost::kErrBadParameter, what + " would put keys " + std::to_string(root + depth) +
                                                  " levels deep; a profile reads back at most " +
                                                  std::to_string(kMaxKeyDepth));
  }
}

namespace {

std::function<const std::string&()> MarkerOf(Profile& profile) {
  return [&profile]() -> const std::string& { return profile.DuplicateMarker(); };
}

// One value to set, read and checked before the profile is loaded.
struct Assignment {
  std::string path;
  prhost::TypeId type;
  std::string native;
};

Assignment ReadAssignment(Context& ctx, const Converter& converter, const std::string& path, const std::string& data,
                          const std::string& type_name, const std::string& where) {
  const prhost::TypeId type = ParseTypeName(type_name);
  const std::string label = TypeLabel(type);
  if (!IsSettable(type)) {
    throw ToolError(prhost::kErrBadParameter, where + "values of type " + label + " cannot be set: " +
                                                  (type == 1 ? "it holds nothing"
                                                   : type == 8 ? "a profile cannot hold its text"
                                                               : "an address means nothing to another process"));
  }
  const std::string& file = ctx.options.profile;
  ParsedText parsed = ParseTyped(type, data, where + file + ": '" + path + "'");
  if (!parsed.warning.empty()) Say(0, "warning: " + parsed.warning);
  if (parsed.module_converts) {
    prhost::Result<std::string> native = converter.Parse(type, parsed.native);
    Check(native.code, where + file + ": " + label + " refuses the text '" + data + "' for '" + path + "'");
    parsed.native = std::move(native.value);
  }
  RequireDepth(ctx, PathDepth(SplitValuePath(path).first), where + "'" + path + "'");
  return {path, type, std::move(parsed.native)};
}

// "PATH TYPE VALUE" lines; blank lines and lines starting with '#' are skipped.
void ReadAssignmentLines(Context& ctx, const Converter& converter, const std::string& file,
                         std::vector<Assignment>& out) {
  std::optional<Input> input = ReadInput(file);
  if (!input) throw ToolError(prhost::Code(0x800000C5), file + ": does not exist");
  const std::string& text = input->bytes;
  size_t line_number = 0;
  for (size_t at = 0; at < text.size();) {
    size_t end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    std::string_view line(text.data() + at, end - at);
    at = end + 1;
    ++line_number;
    if (line.ends_with('\r')) line.remove_suffix(1);
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos || line[first] == '#') continue;
    line.remove_prefix(first);
    const std::string where = (file == "-" ? "<stdin>" : file) + ":" + std::to_string(line_number) + ": ";
    const size_t path_end = line.find_first_of(" \t");
    const size_t type_at = path_end == std::string_view::npos ? path_end : line.find_first_not_of(" \t", path_end);
    if (type_at == std::string_view::npos) {
      throw ToolError(prhost::kErrBadParameter, where + "a line is PATH TYPE VALUE; this one has no type");
    }
    const size_t type_end = std::min(line.find_first_of(" \t", type_at), line.size());
    // One separator after the type: the rest, spaces and all, is the value.
    const std::string_view data = type_end < line.size() ? line.substr(type_end + 1) : std::string_view();
    out.push_back(ReadAssignment(ctx, converter, std::string(line.substr(0, path_end)), std::string(data),
                                 std::string(line.substr(type_at, type_end - type_at)), where));
  }
}

// set PATH DATA, set PATH=DATA..., set --from FILE: every value is read
// first, then the profile is loaded, changed and saved once.
int Set(Context& ctx, const std::vector<std::string>& words, const std::string& type_name, const std::string& from,
        bool force) {
  const Converter converter(ctx.session());
  std::vector<Assignment> assignments;
  if (!words.empty() && type_name.empty()) {
    throw ToolError(prhost::kErrBadParameter, "set needs --type for values on the command line");
  }
  if (words.size() == 2 && words[0].find('=') == std::string::npos) {
    assignments.push_back(ReadAssignment(ctx, converter, words[0], words[1], type_name, ""));
  } else {
    for (const std::string& word : words) {
      const size_t equals = word.find('=');
      if (equals == std::string::npos) {
        throw ToolError(prhost::kErrBadParameter, "'" + word + "' is not PATH=VALUE (set PATH VALUE sets one value)");
      }
      assignments.push_back(ReadAssignment(ctx, converter, word.substr(0, equals), word.substr(equals + 1), type_name, ""));
    }
  }
  if (!from.empty()) ReadAssignmentLines(ctx, converter, from, assignments);
  if (assignments.empty()) throw ToolError(prhost::kErrBadParameter, "set: no values given");
  EditProfile(ctx.session(), ctx.options.profile, {IfMissing::kCreate, force}, [&](Profile& profile) {
    for (const Assignment& a : assignments) {
      auto [key_path, name] = SplitValuePath(a.path);
      Check(PutValue(profile.registry(), profile.Key(key_path, true), name, a.type, a.native),
            profile.path() + ": value '" + a.path + "' cannot be set");
    }
  });
  return kExitOk;
}

bool SameName(const std::string& a, const std::string& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return (x >= 'A' && x <= 'Z' ? x | 0x20 : x) == (y >= 'A' && y <= 'Z' ? y | 0x20 : y);
         });
}

// mv SRC DST: a key with everything below it, or one value. DST is the new
// path, or an existing key that SRC moves into. Copy and delete happen on
// the store in memory, so the save holds both or neither.
int Move(Context& ctx, const std::string& source, const std::string& destination, bool force) {
  EditProfile(ctx.session(), ctx.options.profile, {IfMissing::kFail, force}, [&](Profile& profile) {
    const prhost::Registry registry = profile.registry();
    const prhost::Client client = profile.client();
    const std::string src = NormalPath(source), dst = NormalPath(destination);
    auto [src_parent, src_name] = SplitValuePath(src);
    const prhost::Result<prhost::hKey> into = client.OpenKey(dst, false);
    const prhost::Result<prhost::hKey> src_key = client.OpenKey(src, false);
    if (!src.empty() && src_key.ok()) {
      std::string target = dst;
      if (into.ok() && into.value != src_key.value) target = JoinPath(dst, src_name);
      const std::string folded_src = src + "/";
      if (target.size() >= folded_src.size() && SameName(target.substr(0, folded_src.size()), folded_src)) {
        throw ToolError(prhost::kErrBadParameter, profile.path() + ": key '" + src + "' cannot move into itself ('" +
                                                      target + "')");
      }
      const prhost::Result<prhost::hKey> existing = client.OpenKey(target, false);
      if (existing.ok() && existing.value != src_key.value) {
        throw ToolError(prhost::Code(0x800000D1), profile.path() + ": key '" + target +
                                                      "' already exists; mv does not merge keys (cp does)");
      }
      const KeySnapshot subtree = ReadSubtree(registry, src_key.value, profile.path());
      RequireDepth(ctx, PathDepth(target) + Depth(subtree), "moving '" + src + "' to '" + target + "'");
      Check(registry.DeleteKey(0, src.c_str()), profile.path() + ": key '" + src + "' cannot be removed");
      Check(WriteSubtree(registry, profile.Key(target, true), subtree, MarkerOf(profile)),
            profile.path() + ": key '" + src + "' cannot be written to '" + target + "'");
      return;
    }
    if (src.empty()) throw ToolError(prhost::kErrBadParameter, "mv: the root key cannot be moved");
    const prhost::Result<prhost::hKey> parent = client.OpenKey(src_parent, false);
    prhost::TypeId type = 0;
    prhost::Result<std::string> native = parent.ok() ? GetNative(registry, parent.value, src_name, &type)
                                                     : prhost::Result<std::string>{prhost::kErrNotFound, {}};
    if (!native.ok()) {
      throw ToolError(prhost::kErrNotFound, profile.path() + ": '" + src + "' is neither a key nor a value");
    }
    auto [target_parent, target_name] = into.ok() ? std::pair{dst, src_name} : SplitValuePath(dst);
    const prhost::hKey target_key = profile.Key(target_parent, true);
    const bool same = target_key == parent.value && SameName(target_name, src_name);
    prhost::TypeId existing_type = 0;
    if (!same && GetNative(registry, target_key, target_name, &existing_type).ok()) {
      throw ToolError(prhost::Code(0x800000D1), profile.path() + ": value '" + JoinPath(target_parent, target_name) +
                                                    "' already exists (" + TypeLabel(existing_type) + ")");
    }
    Check(registry.DeleteValue(parent.value, src_name.c_str()), profile.path() + ": value '" + src +
                                                                    "' cannot be removed");
    Check(PutValue(registry, target_key, target_name, type, native.value),
          profile.path() + ": value '" + JoinPath(target_parent, target_name) + "' cannot be set");
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
    const prhost::Result<prhost::hKey> named = profile.client().OpenKey(key_path, false);
    if (!value && !named.ok() && !key_path.empty()) {
      // rm PATH of a value: no key has that name, but its parent holds a value of it.
      auto [parent, name] = SplitValuePath(key_path);
      const prhost::Result<prhost::hKey> holder = profile.client().OpenKey(parent, false);
      prhost::TypeId type = 0;
      if (holder.ok() && GetNative(profile.registry(), holder.value, name, &type).ok()) {
        Check(profile.registry().DeleteValue(holder.value, name.c_str()),
              profile.path() + ": value '" + key_path + "' cannot be removed");
        return;
      }
    }
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
    std::string failed;
    Check(WriteSubtree(into.registry(), key, subtree, MarkerOf(into), &failed),
          ctx.options.profile + ": key '" + source + "' cannot be copied to " + into.path() + " key '" +
              destination + "': " + failed + " cannot be written");
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
    nlohmann::ordered_json json = ParseJsonDocument(input->bytes, file);
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
    auto* cmd = app.add_subcommand("set", "Set typed values, creating the keys along their paths: PATH DATA, "
                                          "or PATH=DATA..., or lines of PATH TYPE DATA with --from; one save");
    auto words = std::make_shared<std::vector<std::string>>();
    auto type = std::make_shared<std::string>();
    auto from = std::make_shared<std::string>();
    cmd->add_option("VALUES", *words,
                    "PATH DATA, or PATH=DATA...: key path and value name (e.g. Window/Width), and the value: "
                    "decimal or 0x hexadecimal numbers, true/false, text, hex bytes")
        ->type_name("");
    cmd->add_option("--type", *type, "Type of the values on the command line: dword, tSTRING, binary (as hex), ... "
                                     "('propmap types' lists them)")
        ->type_name("TYPE");
    cmd->add_option("--from", *from, "Also set the values of FILE ('-': standard input), one per line: PATH TYPE DATA")
        ->type_name("FILE");
    add_force(cmd);
    cmd->callback([&ctx, words, type, from, force] {
      ctx.action = [&ctx, words, type, from, force] { return Set(ctx, *words, *type, *from, *force); };
    });
  }
  {
    auto* cmd = app.add_subcommand("mv", "Move or rename a key (with everything below it) or a value");
    auto source = std::make_shared<std::string>();
    auto destination = std::make_shared<std::string>();
    cmd->add_option("SRC", *source, "Key path, or key path and value name")->required();
    cmd->add_option("DST", *destination, "New path, or an existing key to move SRC into")->required();
    add_force(cmd);
    cmd->callback([&ctx, source, destination, force] {
      ctx.action = [&ctx, source, destination, force] { return Move(ctx, *source, *destination, *force); };
    });
  }
  {
    auto* cmd = app.add_subcommand("rm", "Delete a key with everything below it, or one value (PATH naming a value "
                                         "and no key, or --value)");
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
