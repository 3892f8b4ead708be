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

int64_t ModifiedNanoseconds(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return -1;
  return int64_t{st.st_mtim.tv_sec} * 1'000'000'000 + st.st_mtim.tv_nsec;
}

// The newest temporary file left beside the profile by an interrupted save
// that still loads whole; ToolError when there is none.
std::string CompleteTemporary(Context& ctx, const std::string& profile, KeySnapshot& content) {
  const size_t slash = profile.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : profile.substr(0, slash);
  const std::string prefix = (slash == std::string::npos ? profile : profile.substr(slash + 1)) + ".tmp";
  std::vector<std::pair<int64_t, std::string>> candidates;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* e = ::readdir(d)) {
      if (std::string_view(e->d_name).starts_with(prefix)) {
        std::string path = dir + "/" + e->d_name;
        candidates.emplace_back(ModifiedNanoseconds(path), std::move(path));
      }
    }
    ::closedir(d);
  }
  std::sort(candidates.rbegin(), candidates.rend());
  for (const auto& [mtime, path] : candidates) {
    try {
      content = ReadProfile(ctx.session(), path);
      return path;
    } catch (const ToolError&) {
      // Torn by the interruption: try an older one.
    }
  }
  throw ToolError(prhost::Code(0x800000C5), profile + ": no complete temporary file is left beside it");
}

int Restore(Context& ctx, const std::string& profile, const std::string& from, bool yes) {
  KeySnapshot backup;
  std::string source;
  if (from == "tmp") {
    source = CompleteTemporary(ctx, profile, backup);
  } else {
    source = profile + "." + from;
    backup = ReadProfile(ctx.session(), source);
  }
  KeySnapshot current;
  try {
    current = ReadProfile(ctx.session(), profile);
  } catch (const ToolError& e) {
    std::fprintf(stderr, "propmap: %s: %s; restoring over it\n", prhost::FormatResult(e.code()).c_str(), e.what());
  }
  PrintChanges(ctx, Diff(current, backup));
  if (!yes) {
    std::fprintf(stderr, "Restore %s from %s? [y/N] ", profile.c_str(), source.c_str());
    std::string answer;
    if (!std::getline(std::cin, answer) || (answer != "y" && answer != "Y" && answer != "yes")) {
      std::fprintf(stderr, "propmap: %s left as it is\n", profile.c_str());
      return kExitDifferent;
    }
  }
  // An empty store named after the profile receives the backup and saves
  // through the usual temporary file and rename; the damaged file is not read.
  auto target = ctx.session().Open(profile, IfMissing::kReplace, false, false);
  (void)target->registry().Clean();  // marks the store changed, so that even an empty backup is saved
  Check(WriteSubtree(target->registry(), 0, backup), profile + ": cannot take the content of " + source);
  target->Save();
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
  if (::inotify_add_watch(fd, dir.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) < 0) {
    throw ToolError(prhost::Code(0x800000C5), profile + ": its directory cannot be watched");
  }
  KeySnapshot previous;
  try {
    previous = ReadProfile(ctx.session(), profile);
  } catch (const ToolError&) {
    // Not there yet or damaged: the first generation is compared with nothing.
  }
  std::fprintf(stderr, "propmap: watching %s\n", profile.c_str());
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
    cmd->add_option("A", *a, "FILE or FILE::KEY, e.g. profiles.xml.bak")->required();
    cmd->add_option("B", *b, "FILE or FILE::KEY")->required();
    cmd->callback([&ctx, a, b] { ctx.action = [&ctx, a, b] { return DiffCommand(ctx, *a, *b); }; });
  }
  {
    auto* cmd = app.add_subcommand("restore", "Show the differences to a backup, then put the backup in place");
    auto profile = std::make_shared<std::string>();
    auto from = std::make_shared<std::string>();
    auto yes = std::make_shared<bool>(false);
    cmd->add_option("PROFILE", *profile, "Profile to restore")->required();
    cmd->add_option("--from", *from, "bak (first backup), bak2 (previous generation) or tmp (a complete "
                                     "temporary file left by an interrupted save)")
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
