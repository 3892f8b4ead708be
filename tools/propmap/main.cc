// propmap: inspect, edit, compare and repair profiles through the module.
//
// The tool is an ordinary host: it loads the module, creates stores on the
// profiles it is given, reads and changes them only through iRegistry and
// saves with Flush. Output is quiet on success; every failure prints its
// result code by name and one sentence naming the file and key, and exits 2.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>

#include "commands.h"
#include "document_check.h"
#include "people_text.h"
#include "result_names.h"
#include "tool_error.h"

namespace propmap_tool {

std::pair<std::string, std::string> SplitValuePath(const std::string& path) {
  const size_t split = path.find_last_of("/\\");
  if (split == std::string::npos) return {"", path};
  return {path.substr(0, split), path.substr(split + 1)};
}

void PrintJson(const nlohmann::ordered_json& json, bool compact) {
  std::printf("%s\n", json.dump(compact ? -1 : 2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}

void Confirm(bool yes, const std::string& question) {
  if (yes) return;
  if (::isatty(STDIN_FILENO) != 1) {
    throw ToolError(prhost::kErrBadParameter, question.substr(0, question.size() - 1) +
                                                  ": give --yes to do it without a terminal to ask on; nothing was saved");
  }
  std::fprintf(stderr, "%s [y/N] ", question.c_str());
  std::string answer;
  if (!std::getline(std::cin, answer) || (answer != "y" && answer != "Y" && answer != "yes")) {
    throw Declined("nothing was changed");
  }
}

Colours ColoursFor(const CommonOptions& options) {
  if (!options.colour) return {};
  return {"\033[1;34m", "\033[2m", "\033[0m"};
}

std::string ValueLine(const std::string& shown_name, const TypedValue& v, const Colours& c) {
  std::string line = QuoteName(shown_name) + " " + c.type + "(" + TypeLabel(v.type) + ")" + c.reset + " = " +
                     EscapeText(v.text);
  constexpr prhost::TypeId kDateTime = 30;
  if (v.type == kDateTime && v.data.size() == 8) {
    uint64_t ms = 0;
    std::memcpy(&ms, v.data.data(), 8);
    if (std::optional<std::string> date = IsoDate(ms)) line += " (" + *date + ")";
  }
  return line;
}

std::string NormalPath(const std::string& path) {
  std::string out;
  for (char c : path) {
    const bool separator = c == '/' || c == '\\';
    if (separator && (out.empty() || out.back() == '/')) continue;
    out += separator ? '/' : c;
  }
  if (!out.empty() && out.back() == '/') out.pop_back();
  return out;
}

std::string JoinPath(const std::string& key_path, const std::string& name) {
  const std::string key = NormalPath(key_path);
  return key.empty() ? name : key + "/" + name;
}

size_t PathDepth(const std::string& path) {
  size_t depth = 0;
  bool in_part = false;
  for (char c : path) {
    const bool separator = c == '/' || c == '\\';
    if (!separator && !in_part) ++depth;
    in_part = !separator;
  }
  return depth;
}

namespace {

constexpr const char* kFooter = R"(Exit status:
  0  success (diff: no difference)
  1  diff found differences; find found nothing; a question was answered no;
     check found parts the module does not read
  2  trouble: the message names the result code, the file and the key, and nothing was saved

Commands that change a profile lock PROFILE.lock beside it, load, apply,
and save only when the file is as they loaded it (else they load again);
a profile they create is announced on stderr. FILE arguments may be pipes
or '-' (standard input); only regular files are written back.

Environment:
  PROPMAP_PROFILE  profile used when --profile is not given (default ./profiles.xml)
  VISUAL, EDITOR   the editor of 'edit' (default vi)
  NO_COLOR, TERM   --color auto: no colour when NO_COLOR is set or TERM is dumb

'man propmap' is the manual.)";

// Options of the whole tool that take a value: a word after them is no command.
bool TakesValue(std::string_view option) {
  for (const char* o : {"-p", "--profile", "--root", "--backup-mode", "--module", "--color", "--colour"}) {
    if (option == o) return true;
  }
  return false;
}

// The first word that is not an option, when it names no command: CLI11
// would only say that it did not expect it.
void RequireKnownCommand(const CLI::App& app, int argc, char** argv) {
  std::vector<std::string> commands;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    commands.push_back(sub->get_name());
  }
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--") return;
    if (word.starts_with("-")) {
      if (TakesValue(word)) ++i;
      continue;
    }
    if (std::find(commands.begin(), commands.end(), word) != commands.end()) return;
    std::string sentence = "unknown command '" + std::string(word) + "'";
    const std::vector<std::string> close = CloseNames(word, commands, 1);
    if (!close.empty()) sentence += "; did you mean '" + close.front() + "'?";
    throw CommandLineError(sentence + " ('propmap --help' lists the commands)");
  }
}

int Run(int argc, char** argv) {
  Context ctx;
  CLI::App app{"Inspect, edit, compare and repair propmap profiles", "propmap"};
  app.footer(kFooter);
  app.set_version_flag("--version", [&ctx] {
    return "propmap " PROPMAP_VERSION "\nmodule: " + ModulePath(ctx.options.module);
  });
  app.require_subcommand(1);
  const char* env_profile = std::getenv("PROPMAP_PROFILE");
  ctx.options.profile = env_profile != nullptr && *env_profile != '\0' ? env_profile : "profiles.xml";
  std::string root, trace;
  unsigned backup_mode = 1;
  app.add_option("--profile,-p", ctx.options.profile, "Profile file (default: $PROPMAP_PROFILE or ./profiles.xml)")
      ->type_name("FILE");
  auto* root_option = app.add_option("--root", root, "Root point: key paths start at this key");
  app.add_flag("--read-only", ctx.options.read_only, "Open profiles read-only: every change is refused");
  app.add_option("--backup-mode", backup_mode, "0: no backups (a profile named profiles.xml still keeps .bak2); "
                                               "1: rolling, the old file becomes .bak2 (default); "
                                               "2: first and rolling, .bak keeps the first generation too")
      ->check(CLI::Validator(
          [](std::string& v) {
            return v == "0" || v == "1" || v == "2" ? std::string()
                                                    : "'" + v + "' is no backup mode: 0 none, 1 rolling, 2 first + rolling";
          },
          "0|1|2", "backup mode"))
      ->type_name("MODE");
  std::string colour = "auto";
  app.add_option("--color,--colour", colour, "Colour the listings: auto (on a terminal, unless NO_COLOR is set or "
                                             "TERM=dumb), always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->type_name("WHEN");
  bool quiet = false, verbose = false;
  app.add_flag("-q,--quiet", quiet, "No notices or warnings on stderr (errors still)");
  app.add_flag("-v,--verbose", verbose, "Also say what was saved");
  app.add_flag("--json", ctx.options.json, "Machine-readable output of the reading commands");
  auto* trace_option = app.add_option("--trace", trace, "Print the module's trace lines up to LEVEL "
                                                        "(default 1000: all) on stderr")
                           ->expected(0, 1)
                           ->type_name("[LEVEL]");
  app.add_option("--module", ctx.options.module, "Module file (default: the installed one, else the built one)")
      ->type_name("FILE");
  app.fallthrough();

  AddReadCommands(app, ctx);
  AddEditCommands(app, ctx);
  AddCompareCommands(app, ctx);
  AddSearchCommands(app, ctx);
  AddEditorCommand(app, ctx);
  AddCompletionCommands(app, ctx);

  try {
    RequireKnownCommand(app, argc, argv);
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);
    return code == 0 ? kExitOk : kExitTrouble;
  }
  if (root_option->count() > 0) ctx.options.root = root;
  ctx.options.backup_mode = static_cast<uint8_t>(backup_mode);
  if (trace_option->count() > 0) {
    char* end = nullptr;
    const unsigned long level = trace.empty() ? 1000 : std::strtoul(trace.c_str(), &end, 10);
    if (!trace.empty() && (end == nullptr || *end != '\0')) {
      throw ToolError(prhost::kErrBadParameter, "--trace takes a numeric level, not '" + trace + "'");
    }
    ctx.options.trace_level = static_cast<uint32_t>(level);
  }
  const char* no_colour = std::getenv("NO_COLOR");
  const char* term = std::getenv("TERM");
  ctx.options.colour = colour == "always" ||
                       (colour == "auto" && ::isatty(STDOUT_FILENO) == 1 && (no_colour == nullptr || *no_colour == '\0') &&
                        (term == nullptr || std::string_view(term) != "dumb"));
  verbosity = quiet ? -1 : verbose ? 1 : 0;
  return ctx.action ? ctx.action() : kExitTrouble;
}

}  // namespace
}  // namespace propmap_tool

int main(int argc, char** argv) {
  using namespace propmap_tool;
  try {
    const int code = Run(argc, argv);
    std::fflush(stdout);
    return code;
  } catch (const CommandLineError& e) {
    std::fprintf(stderr, "propmap: %s\n", e.what());
    return kExitTrouble;
  } catch (const Declined& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "propmap: %s\n", e.what());
    return kExitDifferent;
  } catch (const ToolError& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "propmap: %s: %s\n", prhost::FormatResult(e.code()).c_str(), e.what());
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "propmap: %s: %s\n", prhost::FormatResult(prhost::kErrUnexpected).c_str(), e.what());
  }
  return kExitTrouble;
}
