#include "edit.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "document_check.h"
#include "tool_error.h"

namespace propmap_tool {

ProfileLock::ProfileLock(const std::string& profile) {
    const std::string path = profile + ".lock";
    fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0660);
    if (fd_ < 0) {
      const int error = errno;
      throw ToolError(prhost::Code(0x80000045), path + ": the lock file cannot be opened (" + std::strerror(error) +
                                                    "); nothing was saved");
    }
    if (::flock(fd_, LOCK_EX | LOCK_NB) == 0) return;
    if (::isatty(STDERR_FILENO) == 1) std::fprintf(stderr, "propmap: waiting for another command on %s\n", profile.c_str());
    while (::flock(fd_, LOCK_EX) != 0) {
      if (errno != EINTR) {
        ::close(fd_);
        throw ToolError(prhost::Code(0x8000004F), path + ": cannot be locked; nothing was saved");
      }
    }
  }

ProfileLock::~ProfileLock() { ::close(fd_); }  // releases the lock

namespace {

// The file a chain of symbolic links leads to (the path itself when it is
// none); the module saves there too, so the link stays a link.
std::string FollowLinks(std::string path) {
  for (int hop = 0; hop < 40; ++hop) {
    char target[4096];
    const ssize_t n = ::readlink(path.c_str(), target, sizeof target);
    if (n < 0 || static_cast<size_t>(n) == sizeof target) return path;
    std::string next(target, static_cast<size_t>(n));
    const size_t slash = path.rfind('/');
    if (next[0] != '/' && slash != std::string::npos) next.insert(0, path, 0, slash + 1);
    path = std::move(next);
  }
  return path;
}

}  // namespace

// Refuses what a save cannot write back to.
void RequireWritable(const std::string& path) {
  if (path == "-") throw ToolError(prhost::Code(0x8000004B), "standard input cannot be written back; nothing was saved");
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return;  // a new profile
  if (!S_ISREG(st.st_mode)) {
    throw ToolError(prhost::Code(0x8000004B), path + ": is not a regular file (a pipe or a device); "
                                                     "writing back to it is refused");
  }
}

void RequireWholeDocument(const Profile& profile, const std::string& advice) {
  const std::string& text = profile.input().bytes;
  const DocumentReport report = Examine(text, 1);
  if (report.lost.empty()) return;
  const Finding& first = report.lost.front();
  throw ToolError(prhost::Code(0x800000C0), Where(profile.path(), text, first.offset) + ": " + first.what +
                                                 " is not read by the module and would be lost; " + advice);
}

void EditProfile(const Session& session, const std::string& named, const EditOptions& options,
                 const std::function<void(Profile&)>& apply) {
  constexpr int kAttempts = 5;
  RequireWritable(named);
  const size_t slash = named.rfind('/');
  if (slash != std::string::npos && slash > 0 && !Identify(named.substr(0, slash)).exists) {
    throw ToolError(prhost::Code(0x800000C5), named + ": its directory " + named.substr(0, slash) +
                                                  " does not exist; nothing was saved");
  }
  // One lock and one file for every name of a linked profile.
  const std::string path = named == "-" ? named : FollowLinks(named);
  if (options.missing == IfMissing::kFail && !Identify(path).exists) {
    (void)session.Open(path, options.missing, true);  // throws unless it was only being saved: no lock file for a typo
  }
  ProfileLock lock(path);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::unique_ptr<Profile> profile = session.Open(path, options.missing, false);
    if (!profile->input().regular) RequireWritable(path);  // replaced since the check above
    if (!options.force && !profile->created()) {
      RequireWholeDocument(*profile, "nothing was saved (--force saves anyway and keeps the old file as " + path +
                                         ".bak2)");
    }
    apply(*profile);
    if (Identify(path) != profile->input().identity) continue;  // saved by another program meanwhile
    try {
      profile->Save(options.force);
    } catch (const ToolError&) {
      // A save of another program at the same moment can make the module's
      // moves fail; the file is then not the one loaded either.
      if (Identify(path) != profile->input().identity) continue;
      throw;
    }
    if (profile->created()) Say(0, "created " + path);
    Say(1, "saved " + path);
    return;
  }
  throw ToolError(prhost::Code(0x8000004F), path + ": changed on disk by another program " +
                                                std::to_string(kAttempts) + " times while this command ran; "
                                                "nothing was saved");
}

}  // namespace propmap_tool
