#include "persistence/save_files.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "persistence/file_system.h"

namespace propmap {
namespace {

constexpr int kMaxLinkHops = 40;  // as the kernel's own limit
// Each retry means another save renamed or replaced the name meanwhile.
constexpr int kOpenAttempts = 16;
constexpr mode_t kPrivateMode = 0600;
constexpr mode_t kNewProfileMode = 0660;

bool SameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

// Codes of a file system that cannot make a second name for a file.
bool LinksUnsupported(tERROR err) {
  return err == ErrAccessDenied || err == ResultFromErrno(EOPNOTSUPP) || err == ResultFromErrno(EXDEV) ||
         err == ResultFromErrno(EMLINK) || err == ResultFromErrno(ENOSYS);
}

// Opens `name` without following a final link or waiting on a FIFO.
tERROR OpenName(const char* name, int flags, mode_t mode, int* fd) {
  return OpenFile(fd, name, flags | O_NOFOLLOW | O_NONBLOCK, mode);
}

}  // namespace

tERROR ResolveProfileLinks(const std::string& path, std::string* resolved) {
  *resolved = path;
  for (int hop = 0; hop < kMaxLinkHops; ++hop) {
    struct stat status;
    if (Failed(FileStatus(resolved->c_str(), &status)) || !S_ISLNK(status.st_mode)) return ResultOk;
    std::string target;
    if (tERROR err = ReadLink(resolved->c_str(), &target); Failed(err)) return err;
    if (target.empty()) return ErrFsNoEntry;
    if (target[0] != '/') {
      const size_t slash = resolved->rfind('/');
      if (slash != std::string::npos) target.insert(0, *resolved, 0, slash + 1);
    }
    *resolved = std::move(target);
  }
  return ErrLinkLoop;
}

TemporaryFile::~TemporaryFile() {
  (void)CloseWrite();
  if (lock >= 0) (void)CloseFile(lock);
}

tERROR TemporaryFile::CloseWrite() {
  if (write < 0) return ResultOk;
  const tERROR err = CloseFile(write);
  write = -1;
  return err;
}

tERROR OpenTemporaryFile(const char* name, const struct stat* profile, TemporaryFile* file) {
  for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
    TemporaryFile candidate;
    bool created = true;
    const mode_t mode = profile != nullptr ? kPrivateMode : kNewProfileMode;
    tERROR err = OpenName(name, O_RDONLY | O_CREAT | O_EXCL, mode, &candidate.lock);
    if (err == ErrFsExists) {
      created = false;
      err = OpenName(name, O_RDONLY, 0, &candidate.lock);
      if (err == ErrFsNoEntry) continue;
      // A symbolic link: replaced, never followed.
      if (err == ErrLinkLoop) {
        (void)RemoveFile(name);
        continue;
      }
    }
    if (Failed(err)) return err;
    // Whoever held the lock may have renamed or removed the name; once the
    // lock is ours, the name must still lead to this file.
    err = LockFile(candidate.lock);
    struct stat mine;
    struct stat named;
    if (Succeeded(err)) err = FileStatusOf(candidate.lock, &mine);
    if (Failed(err)) return err;
    if (Failed(FileStatus(name, &named)) || !SameFile(mine, named)) continue;
    // A hard link would write into another name's file, a FIFO would never
    // hold a text, and a leftover with no profile beside it would pass its
    // own mode to the new profile.
    if (!S_ISREG(mine.st_mode) || mine.st_nlink != 1 || (!created && profile == nullptr)) {
      (void)RemoveFile(name);
      continue;
    }
    err = OpenName(name, O_WRONLY, 0, &candidate.write);
    struct stat written;
    if (Succeeded(err)) err = FileStatusOf(candidate.write, &written);
    if (Failed(err)) return err;
    if (!SameFile(mine, written)) continue;
    if (!created) err = TruncateFile(candidate.write);
    if (Succeeded(err) && profile != nullptr) err = ChangeModeOf(candidate.write, profile->st_mode & 07777);
    if (Failed(err)) return err;
    std::swap(file->lock, candidate.lock);
    std::swap(file->write, candidate.write);
    return ResultOk;
  }
  return ResultFromErrno(EAGAIN);
}

tERROR KeepAsBackup(const char* profile, const char* backup, const char* parking) {
  struct stat current;
  struct stat kept;
  if (Failed(FileStatus(profile, &current))) return ErrFsNotDirectory;
  if (Succeeded(FileStatus(backup, &kept)) && SameFile(current, kept)) return ResultOk;
  tERROR err = LinkFile(profile, parking);
  if (err == ErrFsExists) {
    // A leftover of a stopped save, or anything planted there: replaced.
    (void)RemoveFile(parking);
    err = LinkFile(profile, parking);
  }
  if (Succeeded(err)) {
    err = ReplaceFile(parking, backup);
    if (Failed(err)) (void)RemoveFile(parking);
    return err;
  }
  return LinksUnsupported(err) ? MoveFile(profile, backup) : err;
}

}  // namespace propmap
