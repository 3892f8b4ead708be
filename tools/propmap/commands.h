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
#include "snapshot.h"
#include "typed_value.h"

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
void AddSearchCommands(CLI::App& app, Context& context);   // find, types
void AddEditorCommand(CLI::App& app, Context& context);    // edit
void AddCompletionCommands(CLI::App& app, Context& context);  // completion and its helper

// Escape sequences of the listings; empty without colour.
struct Colours {
  const char* key = "";
  const char* type = "";
  const char* reset = "";
};
Colours ColoursFor(const CommonOptions& options);

// "NAME (tTYPE) = TEXT" for people: the name quoted and the text escaped when
// they would break the line, a tDATETIME's date beside its number.
std::string ValueLine(const std::string& shown_name, const TypedValue& value, const Colours& colours = {});

// "Window/Panels" + "Size" -> "Window/Panels/Size"; separators as '/'.
std::string JoinPath(const std::string& key_path, const std::string& name);
// "\\Window\\Panels//" -> "Window/Panels": '/' between parts, no empty parts.
std::string NormalPath(const std::string& path);

// "Window/Panels/Width" -> {"Window/Panels", "Width"}; either separator.
std::pair<std::string, std::string> SplitValuePath(const std::string& path);

// Pretty JSON on stdout (compact when `compact`: the indentation of a deep
// tree grows with the square of its depth); bytes that are not UTF-8 are
// replaced.
void PrintJson(const nlohmann::ordered_json& json, bool compact = false);

// True with --yes; otherwise asks on the terminal (standard input) and throws
// Declined when the answer is not yes. Without a terminal it throws
// ToolError: a script must say --yes.
void Confirm(bool yes, const std::string& question);

// The profile document of a subtree, written by the module's own writer.
std::string DocumentOf(const Session& session, const KeySnapshot& subtree, const std::string& where);

// ToolError unless keys `depth` levels below the root (after --root) read back.
void RequireDepth(const Context& ctx, size_t depth, const std::string& what);

// Levels of keys a path names ("a/b\\c" is 3); empty parts do not count.
size_t PathDepth(const std::string& path);

}  // namespace propmap_tool
