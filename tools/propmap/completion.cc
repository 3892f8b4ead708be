// completion bash|zsh|fish: shell completion scripts made from the command
// line the tool declares (so they cannot drift from it), and the hidden
// helper "__complete PREFIX" that the scripts call for key paths of the
// profile in use.
#include <cstdio>

#include "client.h"
#include "commands.h"
#include "tool_error.h"
#include "type_catalogue.h"
#include "type_names.h"

namespace propmap_tool {
namespace {

constexpr const char* kHelper = "__complete";

std::string Join(const std::vector<std::string>& words) {
  std::string out;
  for (const std::string& w : words) out += (out.empty() ? "" : " ") + w;
  return out;
}

std::vector<std::string> OptionNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* o : app.get_options()) {
    for (const std::string& s : o->get_snames()) names.push_back("-" + s);
    for (const std::string& l : o->get_lnames()) names.push_back("--" + l);
  }
  return names;
}

std::vector<const CLI::App*> Commands(const CLI::App& app) {
  std::vector<const CLI::App*> out;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (sub->get_name() != kHelper) out.push_back(sub);
  }
  return out;
}

std::string TypeWords() {
  std::vector<std::string> names;
  for (const TypeInfo& t : StorableTypes()) names.emplace_back(prhost::TypeName(t.id));
  return Join(names);
}

// Commands whose words are files rather than key paths.
constexpr const char* kFileCommands = "check|diff|restore|watch|import";

std::string Bash(const CLI::App& app) {
  std::string command_words, per_command;
  for (const CLI::App* c : Commands(app)) {
    command_words += (command_words.empty() ? "" : " ") + c->get_name();
    per_command += "      " + c->get_name() + ") words=\"" + Join(OptionNames(*c)) + "\";;\n";
  }
  return R"(# bash completion for propmap: commands, options, type names and the key
# paths of the profile in use (asked from propmap itself).
_propmap() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}
  local cmd="" i words
  local -a profile=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      -p|--profile) profile=(--profile "${COMP_WORDS[i+1]}"); ((i++));;
      --root) profile+=(--root "${COMP_WORDS[i+1]}"); ((i++));;
      --backup-mode|--module|--color|--colour) ((i++));;
      -*) ;;
      *) [[ -z $cmd ]] && cmd=${COMP_WORDS[i]};;
    esac
  done
  case $prev in
    --type) COMPREPLY=($(compgen -W ")" + TypeWords() + R"(" -- "$cur")); return;;
    -p|--profile|--to|--module) COMPREPLY=($(compgen -f -- "$cur")); return;;
    --color|--colour) COMPREPLY=($(compgen -W "auto always never" -- "$cur")); return;;
    --backup-mode) COMPREPLY=($(compgen -W "0 1 2" -- "$cur")); return;;
    --format) COMPREPLY=($(compgen -W "xml json" -- "$cur")); return;;
    --from)
      if [[ $cmd == restore ]]; then COMPREPLY=($(compgen -W "bak bak2 tmp" -- "$cur")); else COMPREPLY=($(compgen -f -- "$cur")); fi
      return;;
  esac
  if [[ -z $cmd ]]; then
    if [[ $cur == -* ]]; then words=")" + Join(OptionNames(app)) + R"("; else words=")" + command_words + R"("; fi
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
    return
  fi
  if [[ $cur == -* ]]; then
    case $cmd in
)" + per_command + R"(    esac
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
    return
  fi
  case $cmd in
    )" + kFileCommands + R"() COMPREPLY=($(compgen -f -- "$cur"));;
    completion) COMPREPLY=($(compgen -W "bash zsh fish" -- "$cur"));;
    types) ;;
    *)
      local IFS=$'\n'
      COMPREPLY=($("${COMP_WORDS[0]}" "${profile[@]}" )" + kHelper + R"( "$cur" 2>/dev/null))
      [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == */ ]] && compopt -o nospace 2>/dev/null;;
  esac
}
complete -F _propmap propmap
)";
}

std::string Fish(const CLI::App& app) {
  std::string out = "# fish completion for propmap: commands, options, type names and key paths.\n"
                    "complete -c propmap -f\n";
  auto quoted = [](std::string s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("\\'") : std::string(1, c);
    return q + "'";
  };
  for (const CLI::App* c : Commands(app)) {
    out += "complete -c propmap -n __fish_use_subcommand -a " + c->get_name() + " -d " +
           quoted(c->get_description().substr(0, c->get_description().find_first_of(";:("))) + "\n";
  }
  out += "complete -c propmap -l type -x -a " + quoted(TypeWords()) + "\n";
  out += "complete -c propmap -l color -x -a 'auto always never'\n";
  out += "complete -c propmap -s p -l profile -r -F\n";
  out += std::string("complete -c propmap -n 'not __fish_seen_subcommand_from ") + kFileCommands +
         " types completion; and not __fish_use_subcommand' -a '(" + "propmap " + kHelper +
         " (commandline -ct) 2>/dev/null)'\n";
  out += std::string("complete -c propmap -n '__fish_seen_subcommand_from ") + kFileCommands + "' -F\n";
  for (size_t at; (at = out.find('|')) != std::string::npos;) out[at] = ' ';
  return out;
}

int Completion(const CLI::App& app, const std::string& shell) {
  if (shell == "bash") std::fputs(Bash(app).c_str(), stdout);
  else if (shell == "zsh") std::fputs(("#compdef propmap\nautoload -U +X bashcompinit && bashcompinit\n" + Bash(app)).c_str(), stdout);
  else std::fputs(Fish(app).c_str(), stdout);
  return kExitOk;
}

bool StartsWithFolded(std::string_view text, std::string_view prefix) {
  if (prefix.size() > text.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if ((text[i] | 0x20) != (prefix[i] | 0x20)) return false;
  }
  return true;
}

// The sub-keys ("Window/Panels/") and values of the key PREFIX is in, that
// start like PREFIX's last part. Quiet on any failure: a shell shows nothing.
int CompletePath(Context& ctx, const std::string& prefix) {
  try {
    auto profile = ctx.session().Open(ctx.options.profile, IfMissing::kFail, true);
    const size_t split = prefix.find_last_of("/\\");
    const std::string key_part = split == std::string::npos ? "" : prefix.substr(0, split + 1);
    const std::string last = split == std::string::npos ? prefix : prefix.substr(split + 1);
    const prhost::Result<prhost::hKey> key = profile->client().OpenKey(key_part, false);
    if (!key.ok()) return kExitDifferent;
    prhost::Result<std::vector<std::string>> keys = profile->client().SubkeyNames(key.value);
    for (const std::string& name : keys.value) {
      if (StartsWithFolded(name, last)) std::printf("%s%s/\n", key_part.c_str(), name.c_str());
    }
    uint32_t count = 0;
    (void)profile->registry().GetValueCount(&count, key.value);
    for (uint32_t i = 0; i < count; ++i) {
      const TypedValue v = ReadValue(profile->registry(), key.value, i, profile->path());
      if (StartsWithFolded(v.name, last)) std::printf("%s%s\n", key_part.c_str(), v.name.c_str());
    }
  } catch (const std::exception&) {
    return kExitDifferent;
  }
  return kExitOk;
}

}  // namespace

void AddCompletionCommands(CLI::App& app, Context& ctx) {
  {
    auto* cmd = app.add_subcommand("completion", "Print the shell completion script (bash, zsh or fish)");
    auto shell = std::make_shared<std::string>();
    cmd->add_option("SHELL", *shell, "bash, zsh or fish")->required()->check(CLI::IsMember({"bash", "zsh", "fish"}));
    cmd->callback([&app, &ctx, shell] { ctx.action = [&app, shell] { return Completion(app, *shell); }; });
  }
  {
    auto* cmd = app.add_subcommand(kHelper, "");
    cmd->group("");  // hidden from --help
    auto prefix = std::make_shared<std::string>();
    cmd->add_option("PREFIX", *prefix);
    cmd->callback([&ctx, prefix] { ctx.action = [&ctx, prefix] { return CompletePath(ctx, *prefix); }; });
  }
}

}  // namespace propmap_tool
