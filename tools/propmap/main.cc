// propmap: inspect, edit, compare and repair profiles through the module.
//
// The tool is an ordinary host: it loads the module, creates stores on the
// profiles it is given, reads and changes them only through iRegistry and
// saves with Flush. Output is quiet on success; every failure prints its
// result code by name and one sentence naming the file and key, and exits 2.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "commands.h"
#include "document_check.h"
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

void PrintTreeJson(const nlohmann::ordered_json& json, size_t depth, const std::string& where) {
  if (depth > kMaxKeyDepth) {
    throw ToolError(prhost::kErrBadParameter, where + ": keys " + std::to_string(depth) +
                                                  " levels deep; JSON is written for at most " +
                                                  std::to_string(kMaxKeyDepth));
  }
  PrintJson(json, depth > 64);
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
  1  diff found differences; a question was answered no; check found parts the module does not read
  2  trouble: the message names the result code, the file and the key, and nothing was saved

Commands that change a profile lock PROFILE.lock beside it, load, apply,
and save only when the file is as they loaded it (else they load again);
a profile they create is announced on stderr. FILE arguments may be pipes
or '-' (standard input); only regular files are written back.

Environment:
  PROPMAP_PROFILE  profile used when --profile is not given (default ./profiles.xml)
  NO_COLOR         no colour in tree and ls even on a terminal)";

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
  app.add_option("--profile,-p", ctx.options.profile, "Profile file (default: $PROPMAP_PROFILE or ./profiles.xml)");
  auto* root_option = app.add_option("--root", root, "Root point: key paths start at this key");
  app.add_flag("--read-only", ctx.options.read_only, "Open profiles read-only: every change is refused");
  app.add_option("--backup-mode", backup_mode, "0: none (a profile named profiles.xml still keeps .bak2), "
                                               "1: the old file becomes .bak2 (default), 2: also a first backup .bak")
      ->check(CLI::Range(0, 2));
  app.add_flag("--json", ctx.options.json, "Machine-readable output of the reading commands");
  auto* trace_option = app.add_option("--trace", trace, "Print the module's trace lines up to LEVEL "
                                                        "(default 1000: all) on stderr")
                           ->expected(0, 1)
                           ->type_name("[LEVEL]");
  app.add_option("--module", ctx.options.module, "Module file (default: the installed one, else the built one)");
  app.fallthrough();

  AddReadCommands(app, ctx);
  AddEditCommands(app, ctx);
  AddCompareCommands(app, ctx);

  try {
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
  ctx.options.colour = ::isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr;
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
