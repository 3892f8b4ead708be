// diff, restore and watch: commands that compare generations of profiles.
#include <dirent.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iostream>

#include "commands.h"
#include "diff.h"
#include "document_check.h"
#include "edit.h"
#include "result_names.h"
#include "snapshot.h"
#include "tool_error.h"

namespace propmap_tool {
namespace {

void PrintChanges(const Context& ctx, const std::vector<Change>& changes) {
  if (ctx.options.json) PrintJson(ChangesToJson(changes));
  else std::fputs(FormatChanges(changes).c_str(), stdout);
}

// "FILE" or "FILE::KEY".
KeySnapshot ReadOperand(Context& ctx, const std::string& operand) {
  const size_t split = operand.rfind("::");
  if (split == std::string::npos) return ReadProfile(ctx.session(), operand);
  return ReadProfile(ctx.session(), operand.substr(0, split), operand.substr(split + 2));
}

int DiffCommand(Context& ctx, const std::string& a, const std::string& b) {
  const KeySnapshot left = ReadOperand(ctx, a);
  const KeySnapshot right = ReadOperand(ctx, b);
  const std::vector<Change> changes = Diff(left, right);
  PrintChanges(ctx, changes);
  return changes.empty() ? kExitOk : kExitDifferent;
}

// A document a save finished writing: the module loads it, reads all of it,
// and it ends with the root's end tag as the writer ends every document. An
// interrupted save leaves an empty or torn file that may load partly.
bool Complete(Context& ctx, const std::string& path, const Input& input) {
  const size_t end = input.bytes.find_last_not_of(" \t\r\n");
  if (end == std::string::npos || std::string_view(input.bytes).substr(0, end + 1).ends_with("</propertiesmap>") == false) {
    return false;
  }
  try {
    auto profile = ctx.session().Load(path, input, false, true, false);
    return Examine(input.bytes, 1).lost.empty();
  } catch (const ToolError&) {
    return false;
  }
}

// The newest temporary file left beside the profile by an interrupted save
// that is complete; ToolError when there is none.
std::string CompleteTemporary(Context& ctx, const std::string& profile, Input& content) {
  const size_t slash = profile.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : profile.substr(0, slash);
  const std::string prefix = (slash == std::string::npos ? profile : profile.substr(slash + 1)) + ".tmp";
  std::vector<std::pair<int64_t, std::string>> candidates;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* e = ::readdir(d)) {
      if (std::string_view(e->d_name).starts_with(prefix)) {
        std::string path = dir + "/" + e->d_name;
        candidates.emplace_back(Identify(path).modified_ns, std::move(path));
      }
    }
    ::closedir(d);
  }
  std::sort(candidates.rbegin(), candidates.rend());
  for (const auto& [mtime, path] : candidates) {
    std::optional<Input> input = ReadInput(path);
    if (input && input->regular && Complete(ctx, path, *input)) {
      content = std::move(*input);
      return path;
    }
  }
  throw ToolError(prhost::Code(0x800000C5), profile + ": no complete temporary file is left beside it");
}

int Restore(Context& ctx, const std::string& profile, const std::string& from, bool yes) {
  Input content;
  std::string source;
  if (from == "tmp") {
    source = CompleteTemporary(ctx, profile, content);
  } else {
    source = profile + "." + from;
    std::optional<Input> input = ReadInput(source);
    if (!input) throw ToolError(prhost::Code(0x800000C5), source + ": does not exist");
    content = std::move(*input);
  }
  Say(0, "restoring " + profile + " from " + source);
  // Loaded as the profile's new content; saving it keeps the current file as
  // the rolling backup, so a restore can be undone as well.
  std::unique_ptr<Profile> backup = ctx.session().Load(profile, content, false, false, false);
  const KeySnapshot incoming = ReadSubtree(backup->registry(), 0, source);
  KeySnapshot current;
  const FileIdentity shown = Identify(profile);
  try {
    current = ReadProfile(ctx.session(), profile);
  } catch (const ToolError& e) {
    Say(0, prhost::FormatResult(e.code()) + ": " + e.what() + "; restoring over it");
  }
  const std::vector<Change> changes = Diff(current, incoming);
  if (changes.empty() && Identify(profile).exists) {
    Say(0, "no differences between " + profile + " and " + source + "; nothing to restore");
    return kExitOk;
  }
  PrintChanges(ctx, changes);
  std::fflush(stdout);
  if (!yes) {
    std::fprintf(stderr, "Restore %s from %s? [y/N] ", profile.c_str(), source.c_str());
    std::string answer;
    if (!std::getline(std::cin, answer) || (answer != "y" && answer != "Y" && answer != "yes")) {
      throw Declined(profile + " left as it is");
    }
  }
  RequireWritable(profile);
  ProfileLock lock(profile);
  if (Identify(profile) != shown) {
    throw ToolError(prhost::Code(0x8000004F), profile + ": changed since the differences were shown; nothing was "
                                                         "restored");
  }
  MarkChanged(backup->registry());  // saved even when it equals the current file
  backup->Save(true);
  if (from == "tmp") (void)::unlink(source.c_str());  // its content is in place now
  return kExitOk;
}

int Watch(Context& ctx, const std::string& profile, uint64_t count) {
  const size_t slash = profile.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : profile.substr(0, slash);
  const std::string base = slash == std::string::npos ? profile : profile.substr(slash + 1);
  const int fd = ::inotify_init1(IN_CLOEXEC);
  if (fd < 0) throw ToolError(prhost::kErrUnexpected, profile + ": inotify is not available");
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};
  // The directory is watched, not the file: a save renames a new file over it.
  if (::inotify_add_watch(fd, dir.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM) < 0) {
    throw ToolError(prhost::Code(0x800000C5), profile + ": its directory cannot be watched");
  }
  KeySnapshot previous;
  try {
    previous = ReadProfile(ctx.session(), profile);
  } catch (const ToolError&) {
    // Not there yet or damaged: the first generation is compared with nothing.
  }
  Say(0, "watching " + profile);
  std::fflush(stderr);
  alignas(inotify_event) char buffer[64 * 1024];
  uint64_t generation = 0;
  while (count == 0 || generation < count) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw ToolError(prhost::kErrUnexpected, profile + ": reading inotify events failed");
    for (ssize_t at = 0; at < n && (count == 0 || generation < count);) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += sizeof(inotify_event) + event->len;
      if (event->len == 0 || base != event->name) continue;
      if ((event->mask & (IN_DELETE | IN_MOVED_FROM)) != 0) {
        // A save moves the old file away before it moves the new one in.
        if (Identify(profile).exists || SaveInProgress(profile)) continue;
        std::printf("-- %s was %s; still watching the name\n", profile.c_str(),
                    (event->mask & IN_DELETE) != 0 ? "deleted" : "moved away");
        std::fflush(stdout);
        previous = KeySnapshot();  // whatever comes next is new
        continue;
      }
      ++generation;
      try {
        KeySnapshot current = ReadProfile(ctx.session(), profile);
        const std::vector<Change> changes = Diff(previous, current);
        if (ctx.options.json) {
          nlohmann::ordered_json row{{"generation", generation}, {"changes", ChangesToJson(changes)}};
          std::printf("%s\n", row.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
        } else {
          std::fputs(FormatChanges(changes).c_str(), stdout);
          std::printf("-- generation %llu: %zu changes\n", static_cast<unsigned long long>(generation),
                      changes.size());
        }
        previous = std::move(current);
      } catch (const ToolError& e) {
        std::printf("-- generation %llu: %s: %s\n", static_cast<unsigned long long>(generation),
                    prhost::FormatResult(e.code()).c_str(), e.what());
      }
      std::fflush(stdout);
    }
  }
  return kExitOk;
}

}  // namespace

void AddCompareCommands(CLI::App& app, Context& ctx) {
  {
    auto* cmd = app.add_subcommand("diff", "Typed comparison of two profiles or subtrees (FILE or FILE::KEY); "
                                           "exit 0 same, 1 different, 2 trouble");
    auto a = std::make_shared<std::string>();
    auto b = std::make_shared<std::string>();
    cmd->add_option("A", *a, "FILE or FILE::KEY, e.g. profiles.xml.bak ('-': standard input)")->required();
    cmd->add_option("B", *b, "FILE or FILE::KEY")->required();
    cmd->callback([&ctx, a, b] { ctx.action = [&ctx, a, b] { return DiffCommand(ctx, *a, *b); }; });
  }
  {
    auto* cmd = app.add_subcommand("restore", "Show the differences to a backup, then put the backup in place");
    auto profile = std::make_shared<std::string>();
    auto from = std::make_shared<std::string>();
    auto yes = std::make_shared<bool>(false);
    cmd->add_option("PROFILE", *profile, "Profile to restore")->required();
    cmd->add_option("--from", *from, "bak (first backup), bak2 (previous generation) or tmp (the newest "
                                     "temporary file of an interrupted save that is complete)")
        ->required()
        ->check(CLI::IsMember({"bak", "bak2", "tmp"}));
    cmd->add_flag("--yes,-y", *yes, "Do not ask");
    cmd->callback([&ctx, profile, from, yes] {
      ctx.action = [&ctx, profile, from, yes] { return Restore(ctx, *profile, *from, *yes); };
    });
  }
  {
    auto* cmd = app.add_subcommand("watch", "Follow a profile and print the typed differences of each new "
                                            "generation");
    auto profile = std::make_shared<std::string>();
    auto count = std::make_shared<uint64_t>(0);
    cmd->add_option("PROFILE", *profile, "Profile to follow")->required();
    cmd->add_option("--count", *count, "Exit after this many generations (default: never)");
    cmd->callback([&ctx, profile, count] { ctx.action = [&ctx, profile, count] { return Watch(ctx, *profile, *count); }; });
  }
}

}  // namespace propmap_tool
