// find and types: searching a profile, and the catalogue of value types.
#include <cstdio>
#include <regex>

#include "client.h"
#include "commands.h"
#include "document_check.h"
#include "people_text.h"
#include "snapshot.h"
#include "tool_error.h"
#include "type_catalogue.h"
#include "type_names.h"

namespace propmap_tool {
namespace {

using nlohmann::ordered_json;

// A substring, or a regular expression searched anywhere in the text.
class Matcher {
 public:
  Matcher(const std::string& pattern, bool regex, bool case_sensitive)
      : pattern_(case_sensitive ? pattern : Folded(pattern)), case_sensitive_(case_sensitive) {
    if (!regex) return;
    try {
      auto flags = std::regex::ECMAScript;
      if (!case_sensitive) flags |= std::regex::icase;
      regex_.emplace(pattern, flags);
    } catch (const std::regex_error& e) {
      throw ToolError(prhost::kErrBadParameter, "'" + pattern + "' is not a regular expression (" + e.what() + ")");
    }
  }
  bool operator()(std::string_view text) const {
    if (regex_) return std::regex_search(text.begin(), text.end(), *regex_);
    if (case_sensitive_) return text.find(pattern_) != std::string_view::npos;
    return Folded(text).find(pattern_) != std::string::npos;
  }

 private:
  std::string pattern_;
  bool case_sensitive_;
  std::optional<std::regex> regex_;
};

struct FindOptions {
  bool keys = false, values = false, data = false;  // none set: all three
  bool regex = false, case_sensitive = false;
};

// Walks the subtree without copying it, parents first in the store's order,
// and prints each match with its full path as it is found.
int Find(Context& ctx, const std::string& pattern, const std::string& key_path, FindOptions o) {
  if (!o.keys && !o.values && !o.data) o.keys = o.values = o.data = true;
  const Matcher matches(pattern, o.regex, o.case_sensitive);
  auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kFail, true);
  const prhost::Registry registry = profile->registry();
  const prhost::Client client(registry);
  const Colours c = ColoursFor(ctx.options);
  ordered_json found = ordered_json::array();
  size_t count = 0;
  std::vector<std::pair<prhost::hKey, std::string>> stack{{profile->Key(key_path), NormalPath(key_path)}};
  while (!stack.empty()) {
    const auto [key, path] = std::move(stack.back());
    stack.pop_back();
    uint32_t n = 0;
    Check(registry.GetValueCount(&n, key), profile->path() + ": cannot count the values of '" + path + "'");
    for (uint32_t i = 0; i < n; ++i) {
      const TypedValue v = ReadValue(registry, key, i, profile->path());
      if (!(o.values && matches(v.name)) && !(o.data && matches(v.text))) continue;
      ++count;
      const std::string full = JoinPath(path, v.name);
      if (ctx.options.json) found.push_back({{"kind", "value"}, {"path", full}, {"type", TypeLabel(v.type)}, {"text", v.text}});
      else std::printf("%s\n", ValueLine(full, v, c).c_str());
    }
    Check(registry.GetKeyCount(&n, key), profile->path() + ": cannot count the sub-keys of '" + path + "'");
    std::vector<std::pair<prhost::hKey, std::string>> children;
    for (uint32_t i = 0; i < n; ++i) {
      prhost::hKey child = prhost::kInvalidKey;
      Check(registry.OpenKeyByIndex(&child, key, i), profile->path() + ": cannot open a sub-key of '" + path + "'");
      prhost::Result<std::string> name = client.KeyName(child);
      Check(name.code, profile->path() + ": cannot read a key name below '" + path + "'");
      const std::string full = JoinPath(path, name.value);
      if (o.keys && matches(name.value)) {
        ++count;
        if (ctx.options.json) found.push_back({{"kind", "key"}, {"path", full}});
        else std::printf("%s%s/%s\n", c.key, QuoteName(full).c_str(), c.reset);
      }
      children.emplace_back(child, full);
    }
    for (size_t i = children.size(); i-- > 0;) stack.push_back(std::move(children[i]));
  }
  if (ctx.options.json) PrintJson(found);
  return count > 0 ? kExitOk : kExitDifferent;
}

int Types(Context& ctx) {
  if (ctx.options.json) {
    ordered_json rows = ordered_json::array();
    for (const TypeInfo& t : StorableTypes()) {
      rows.push_back({{"name", prhost::TypeName(t.id)}, {"id", t.id}, {"holds", t.holds},
                      {"example", t.example != nullptr ? ordered_json(t.example) : ordered_json(nullptr)}});
    }
    PrintJson(rows);
    return kExitOk;
  }
  for (const TypeInfo& t : StorableTypes()) {
    std::printf("%-10s %-58s %s\n", prhost::TypeName(t.id), t.holds,
                t.example != nullptr ? t.example : "(set refuses it)");
  }
  return kExitOk;
}

}  // namespace

void AddSearchCommands(CLI::App& app, Context& ctx) {
  {
    auto* cmd = app.add_subcommand("find", "Search key names, value names and value texts; print full paths "
                                           "(exit 1 when nothing matches)");
    auto pattern = std::make_shared<std::string>();
    auto key = std::make_shared<std::string>();
    auto o = std::make_shared<FindOptions>();
    cmd->add_option("PATTERN", *pattern, "Text to look for (case-insensitive), or a regular expression with --regex")
        ->required();
    cmd->add_option("KEY", *key, "Search below this key (default: the root)");
    cmd->add_flag("--keys", o->keys, "Match key names");
    cmd->add_flag("--values", o->values, "Match value names");
    cmd->add_flag("--data", o->data, "Match value texts (without --keys, --values or --data: all three)");
    cmd->add_flag("--regex,-E", o->regex, "PATTERN is an ECMAScript regular expression");
    cmd->add_flag("--case-sensitive,-s", o->case_sensitive, "Tell upper from lower case");
    cmd->callback([&ctx, pattern, key, o] {
      ctx.action = [&ctx, pattern, key, o] { return Find(ctx, *pattern, *key, *o); };
    });
  }
  {
    auto* cmd = app.add_subcommand("types", "The value types: what each holds and what set takes");
    cmd->callback([&ctx] { ctx.action = [&ctx] { return Types(ctx); }; });
  }
}

}  // namespace propmap_tool
