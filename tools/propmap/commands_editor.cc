// edit [KEY]: the subtree in $VISUAL or $EDITOR as a profile document (or
// typed JSON), checked when the editor exits and reopened with the message
// at the top while it is wrong; then the typed differences, and one save.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "commands.h"
#include "diff.h"
#include "document_check.h"
#include "edit.h"
#include "json_codec.h"
#include "temp_dir.h"
#include "tool_error.h"

namespace propmap_tool {
namespace {

// Runs the editor on `file` through the shell, as crontab and git do, so
// that EDITOR may carry arguments. Returns its exit status.
int RunEditor(const std::string& file) {
  const char* visual = std::getenv("VISUAL");
  const char* editor = visual != nullptr && *visual != '\0' ? visual : std::getenv("EDITOR");
  const std::string command = std::string(editor != nullptr && *editor != '\0' ? editor : "vi") + " \"$1\"";
  std::fflush(stdout);
  const pid_t pid = ::fork();
  if (pid < 0) throw ToolError(prhost::kErrUnexpected, "the editor cannot be started");
  if (pid == 0) {
    ::execl("/bin/sh", "sh", "-c", command.c_str(), "propmap-edit", file.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The subtree an edited document holds; ToolError with FILE:LINE:COLUMN
// when it is wrong.
KeySnapshot ReadEdited(Context& ctx, const std::string& file, const std::string& text, bool json) {
  if (json) {
    const Converter converter(ctx.session());
    KeySnapshot tree = FromJson(ParseJsonDocument(text, file, true), converter, file, kMaxKeyDepth);
    // The differences show the module's text of each value, as a read gives it.
    ForEachKey(tree, [&](KeySnapshot& k) {
      for (TypedValue& v : k.values) v.text = converter.Format(v.type, v.data).value;
    });
    return tree;
  }
  auto edited = ctx.session().Load(file, Input{text, {}, true}, false, true, false);
  RequireWholeDocument(*edited, "it would be lost");
  return ReadSubtree(edited->registry(), 0, file);
}

// A message the editor shows at the top: a comment of either format.
std::string Header(const std::string& message, bool json) {
  std::string safe = message;
  for (size_t at; (at = safe.find("--")) != std::string::npos;) safe.replace(at, 2, "- -");
  return json ? "// propmap: " + safe + "\n// Correct it and save, or save unchanged to give up.\n"
              : "<!-- propmap: " + safe + " -->\n<!-- Correct it and save, or save unchanged to give up. -->\n";
}

int Edit(Context& ctx, const std::string& key_path, const std::string& format, bool force) {
  const bool json = format == "json";
  std::unique_ptr<Profile> profile = ctx.session().Open(ctx.options.profile, IfMissing::kFail, true);
  const KeySnapshot before = ReadSubtree(profile->registry(), profile->Key(key_path), profile->path());
  profile.reset();
  const prhost::TempDir dir;
  const std::string file = dir.Join(std::string("propmap-edit.") + (json ? "json" : "xml"));
  std::string text = json ? ToJson(before).dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n"
                          : DocumentOf(ctx.session(), before, ctx.options.profile);
  const std::string original = text;
  KeySnapshot after;
  for (;;) {
    if (!prhost::WriteWholeFile(file, text)) throw ToolError(prhost::kErrUnexpected, file + ": cannot be written");
    if (const int status = RunEditor(file); status != 0) {
      throw Declined("the editor exited with status " + std::to_string(status) + "; nothing was saved");
    }
    const std::string edited = prhost::ReadWholeFile(file).value_or("");
    if (edited.find_first_not_of(" \t\r\n") == std::string::npos) throw Declined("the document is empty; nothing was saved");
    if (edited == text) {
      // Saved as it was given: nothing to do, or giving up on a message.
      if (text == original) {
        Say(0, "no changes; nothing was saved");
        return kExitOk;
      }
      throw Declined("left with an error; nothing was saved");
    }
    try {
      after = ReadEdited(ctx, file, edited, json);
      break;
    } catch (const ToolError& e) {
      Say(0, std::string(e.what()));
      // The old message goes; the user's text stays as they left it.
      std::string body = edited;
      const std::string mark = json ? "// propmap: " : "<!-- propmap: ";
      while (body.starts_with(mark) || body.starts_with(json ? "// Correct it" : "<!-- Correct it")) {
        body.erase(0, body.find('\n') == std::string::npos ? body.size() : body.find('\n') + 1);
      }
      text = Header(e.what(), json) + body;
    }
  }
  std::vector<Change> changes = Diff(before, after);
  for (Change& c : changes) c.path = JoinPath(key_path, c.path);
  if (changes.empty()) {
    Say(0, "no changes; nothing was saved");
    return kExitOk;
  }
  if (ctx.options.json) PrintJson(ChangesToJson(changes));
  else std::fputs(FormatChanges(changes).c_str(), stdout);
  RequireDepth(ctx, PathDepth(key_path) + Depth(after), "the edited '" + key_path + "'");
  EditProfile(ctx.session(), ctx.options.profile, {IfMissing::kFail, force}, [&](Profile& p) {
    const prhost::hKey key = p.Key(key_path);
    if (!Diff(before, ReadSubtree(p.registry(), key, p.path())).empty()) {
      throw ToolError(prhost::Code(0x8000004F), p.path() + ": '" + key_path +
                                                    "' was changed by another program while it was edited; "
                                                    "nothing was saved");
    }
    const prhost::hKey root = p.Key("");
    Check(p.registry().SetRootKey(key), p.path() + ": cannot select key '" + key_path + "'");
    const prhost::tERROR cleaned = p.registry().Clean();
    Check(p.registry().SetRootKey(root), p.path() + ": cannot return to the root");
    Check(cleaned, p.path() + ": key '" + key_path + "' cannot be emptied");
    Check(WriteSubtree(p.registry(), key, after, [&p]() -> const std::string& { return p.DuplicateMarker(); }),
          p.path() + ": the edited '" + key_path + "' cannot be written");
  });
  return kExitOk;
}

}  // namespace

void AddEditorCommand(CLI::App& app, Context& ctx) {
  auto* cmd = app.add_subcommand("edit", "Edit a subtree in $VISUAL or $EDITOR; checked, shown as typed "
                                         "differences, then saved");
  auto key = std::make_shared<std::string>();
  auto format = std::make_shared<std::string>("xml");
  auto force = std::make_shared<bool>(false);
  cmd->add_option("KEY", *key, "Key path (default: the root)");
  cmd->add_option("--format", *format, "xml (a profile document) or json (typed JSON)")
      ->check(CLI::IsMember({"xml", "json"}));
  cmd->add_flag("--force", *force, "Save even over parts of the document the module does not read");
  cmd->callback([&ctx, key, format, force] {
    ctx.action = [&ctx, key, format, force] { return Edit(ctx, *key, *format, *force); };
  });
}

}  // namespace propmap_tool
