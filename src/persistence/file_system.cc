#include "persistence/file_system.h"

#include <sys/file.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "persistence/system_calls.h"

namespace propmap {
namespace {

tERROR LastError() { return ResultFromErrno(static_cast<uint32_t>(errno)); }

}  // namespace

tERROR OpenFile(int* fd, const char* path, int flags, mode_t mode) {
  if (*fd >= 0) (void)SystemCalls().close(*fd);
  int opened;
  do {
    opened = SystemCalls().open(path, flags | O_CLOEXEC, mode);
  } while (opened < 0 && errno == EINTR);
  *fd = opened;
  return opened < 0 ? LastError() : ResultOk;
}

// Not retried on EINTR: on Linux the descriptor is gone either way.
tERROR CloseFile(int fd) { return SystemCalls().close(fd) != 0 ? LastError() : ResultOk; }

tERROR ReadOnce(int fd, void* buffer, size_t size, size_t* done) {
  ssize_t n;
  do {
    n = SystemCalls().read(fd, buffer, size);
  } while (n < 0 && errno == EINTR);
  *done = n < 0 ? 0 : static_cast<size_t>(n);
  return n < 0 ? LastError() : ResultOk;
}

tERROR WriteOnce(int fd, const void* buffer, size_t size, size_t* done) {
  ssize_t n;
  do {
    n = SystemCalls().write(fd, buffer, size);
  } while (n < 0 && errno == EINTR);
  *done = n < 0 ? 0 : static_cast<size_t>(n);
  return n < 0 ? LastError() : ResultOk;
}

tERROR SyncFile(int fd) {
  int rc;
  do {
    rc = SystemCalls().fsync(fd);
  } while (rc != 0 && errno == EINTR);
  return rc != 0 ? LastError() : ResultOk;
}

tERROR FileStatusOf(int fd, struct stat* status) {
  return SystemCalls().fstat(fd, status) != 0 ? LastError() : ResultOk;
}

tERROR FileStatus(const char* path, struct stat* status, int* error_number, bool follow_links) {
  if (error_number != nullptr) *error_number = 0;
  PathHandle handle;
  tERROR err = handle.Resolve(path);
  if (Failed(err)) return err;
  if (SystemCalls().fstatat(handle.dir(), handle.name(), status, follow_links ? 0 : AT_SYMLINK_NOFOLLOW) == 0) {
    return ResultOk;
  }
  if (error_number != nullptr) *error_number = errno;
  return LastError();
}

tERROR RemoveFile(const char* path) {
  PathHandle handle;
  tERROR err = handle.Resolve(path);
  if (Failed(err)) return err;
  return SystemCalls().unlinkat(handle.dir(), handle.name(), 0) != 0 ? LastError() : ResultOk;
}

tERROR ChangeMode(const char* path, mode_t mode, int* error_number) {
  if (error_number != nullptr) *error_number = 0;
  PathHandle handle;
  tERROR err = handle.Resolve(path);
  if (Failed(err)) return err;
  if (SystemCalls().fchmodat(handle.dir(), handle.name(), mode, 0) == 0) return ResultOk;
  if (error_number != nullptr) *error_number = errno;
  return LastError();
}

tERROR CompareFiles(const char* source, const char* target) {
  struct stat a;
  struct stat b;
  tERROR err = FileStatus(source, &a);
  if (Failed(err)) return err;
  err = FileStatus(target, &b);
  if (Failed(err)) return err;
  if (a.st_dev != b.st_dev || a.st_ino != b.st_ino) return ResultDone;
  const bool same = a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
                    a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
  return same ? ResultOk : ResultDone;
}

tERROR MoveFile(const char* source, const char* target) {
  if (CompareFiles(source, target) == ResultOk) return ResultOk;
  return ReplaceFile(source, target);
}

namespace {

// Runs `call` with both names resolved; 0 or the mapped errno of the call.
template <typename Call>
tERROR WithBothNames(const char* source, const char* target, Call call) {
  PathHandle from;
  PathHandle to;
  tERROR err = from.Resolve(source);
  if (Succeeded(err)) err = to.Resolve(target);
  if (Failed(err)) return err;
  return call(from, to) != 0 ? LastError() : ResultOk;
}

}  // namespace

tERROR ReplaceFile(const char* source, const char* target) {
  struct stat status;
  if (Failed(FileStatus(source, &status))) return ErrFsNotDirectory;
  return WithBothNames(source, target, [](const PathHandle& from, const PathHandle& to) {
    return SystemCalls().renameat(from.dir(), from.name(), to.dir(), to.name());
  });
}

tERROR LinkFile(const char* source, const char* target) {
  return WithBothNames(source, target, [](const PathHandle& from, const PathHandle& to) {
    return SystemCalls().linkat(from.dir(), from.name(), to.dir(), to.name(), 0);
  });
}

tERROR ReadLink(const char* path, std::string* target) {
  PathHandle handle;
  tERROR err = handle.Resolve(path);
  if (Failed(err)) return err;
  char buffer[kShortPathMax + 1];
  const ssize_t n = SystemCalls().readlinkat(handle.dir(), handle.name(), buffer, sizeof buffer);
  if (n < 0) return LastError();
  if (static_cast<size_t>(n) == sizeof buffer) return ErrNameTooLong;
  target->assign(buffer, static_cast<size_t>(n));
  return ResultOk;
}

tERROR ChangeModeOf(int fd, mode_t mode, int* error_number) {
  if (error_number != nullptr) *error_number = 0;
  if (SystemCalls().fchmod(fd, mode) == 0) return ResultOk;
  if (error_number != nullptr) *error_number = errno;
  return LastError();
}

tERROR TruncateFile(int fd) { return SystemCalls().ftruncate(fd, 0) != 0 ? LastError() : ResultOk; }

tERROR LockFile(int fd) {
  int rc;
  do {
    rc = SystemCalls().flock(fd, LOCK_EX);
  } while (rc != 0 && errno == EINTR);
  return rc != 0 ? LastError() : ResultOk;
}

tERROR SyncDirectoryOf(const char* path) {
  const char* slash = std::strrchr(path, '/');
  std::string directory = slash == nullptr ? "." : slash == path ? "/" : std::string(path, slash);
  PathHandle handle;
  tERROR err = handle.Resolve(directory.c_str());
  if (Failed(err)) return err;
  int fd;
  do {
    fd = SystemCalls().openat(handle.dir(), handle.name(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return LastError();
  err = SyncFile(fd);
  (void)CloseFile(fd);
  return err;
}

namespace {

// Copies until a read returns 0 or a chunk comes back short.
tERROR CopyContents(int in, int out, char* buffer) {
  for (;;) {
    size_t got = 0;
    tERROR err = ReadOnce(in, buffer, kCopyChunk, &got);
    if (Failed(err)) return err;
    if (got == 0) return ResultOk;
    for (size_t put = 0; put < got;) {
      size_t n = 0;
      err = WriteOnce(out, buffer + put, got - put, &n);
      if (Failed(err)) return err;
      if (n == 0) return ErrUnexpected;
      put += n;
    }
    if (got < kCopyChunk) return ResultOk;
  }
}

}  // namespace

tERROR CopyFile(const char* source, const char* target, bool exclusive) {
  int in = -1;
  tERROR err = OpenFile(&in, source, O_RDONLY | O_NOFOLLOW, 0);
  if (Failed(err)) return err;
  struct stat status;
  err = FileStatusOf(in, &status);
  int out = -1;
  if (Succeeded(err)) {
    const mode_t mode = status.st_mode & 07777 & ~static_cast<mode_t>(S_ISUID | S_ISGID);
    err = OpenFile(&out, target, O_WRONLY | O_CREAT | O_NOFOLLOW | (exclusive ? O_EXCL : O_TRUNC), mode);
    // Exactly the source's bits, whatever the umask took away.
    if (Succeeded(err)) err = ChangeModeOf(out, mode);
  }
  if (Succeeded(err)) {
    char* buffer = static_cast<char*>(std::malloc(kCopyChunk));
    err = buffer != nullptr ? CopyContents(in, out, buffer) : ErrNoMemory;
    std::free(buffer);
  }
  if (out >= 0) {
    // A failed close can lose written data, so it counts.
    const tERROR closed = CloseFile(out);
    if (Succeeded(err)) err = closed;
  }
  (void)CloseFile(in);
  // A torn copy must not pass for a backup (an exclusive copy would never
  // be made again over it).
  if (out >= 0 && Failed(err)) (void)RemoveFile(target);
  return err;
}

tERROR MakeDirectories(const char* directory, mode_t mode) {
  const size_t length = std::strlen(directory);
  char* path = static_cast<char*>(std::malloc(length + 1));
  if (path == nullptr) return ErrNoMemory;
  std::memcpy(path, directory, length + 1);
  tERROR err = ResultOk;
  for (size_t end = 1; end <= length && Succeeded(err); ++end) {
    if (end < length && path[end] != '/') continue;
    if (path[end - 1] == '/') continue;  // empty component
    const char kept = path[end];
    path[end] = '\0';
    if (SystemCalls().mkdir(path, mode) != 0 && errno != EEXIST) err = LastError();
    path[end] = kept;
  }
  std::free(path);
  return err;
}

}  // namespace propmap
