// The subcommands, grouped by what they do. Each Add* function declares its
// subcommands on the application; a chosen subcommand leaves its action in
// `context.action`, which main() runs after parsing, inside its error
// handling.
//
// Thread-safety: one thread.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "options.h"
#include "profile.h"

namespace propmap_tool {

struct Context {
  CommonOptions options;
  std::function<int()> action;  // returns the exit code

  // The module is loaded on first use, after parsing succeeded.
  Session& session() {
    if (!session_) session_ = std::make_unique<Session>(options);
    return *session_;
  }

 private:
  std::unique_ptr<Session> session_;
};

void AddReadCommands(CLI::App& app, Context& context);     // get, ls, tree, export, check
void AddEditCommands(CLI::App& app, Context& context);     // set, rm, clean, cp, import
void AddCompareCommands(CLI::App& app, Context& context);  // diff, restore, watch

// "Window/Panels/Width" -> {"Window/Panels", "Width"}; either separator.
std::pair<std::string, std::string> SplitValuePath(const std::string& path);

// Pretty JSON on stdout (compact when `compact`: the indentation of a deep
// tree grows with the square of its depth); bytes that are not UTF-8 are
// replaced.
void PrintJson(const nlohmann::ordered_json& json, bool compact = false);

// JSON of a subtree, checked for depth first: the JSON writer recurses, and a
// tree deeper than a profile reads back has no use as JSON. Deep ones are
// written compact.
void PrintTreeJson(const nlohmann::ordered_json& json, size_t depth, const std::string& where);

// True with --yes; otherwise asks on the terminal (standard input) and throws
// Declined when the answer is not yes. Without a terminal it throws
// ToolError: a script must say --yes.
void Confirm(bool yes, const std::string& question);

// Levels of keys a path names ("a/b\\c" is 3); empty parts do not count.
size_t PathDepth(const std::string& path);

}  // namespace propmap_tool
