// The file-system layer: POSIX file operations that answer result codes.
//
// Every operation returns 0 or a code from ResultFromErrno (never errno), and
// makes its system calls through SystemCalls(). Operations on existing names
// (status, remove, compare, rename, move, change mode) resolve their paths
// through a PathHandle, so names longer than the system's path limit work;
// opening a file uses the path as it is. EINTR is retried here and never
// reaches callers. Nothing is traced: callers decide what a failure means.
//
// Ownership: descriptors and path copies are released on every path out of
// an operation, failures included. OpenFile's descriptor belongs to the
// caller.
//
// Thread-safety: no shared state beyond the system-call table.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "module/result_codes.h"

namespace propmap {

// Names up to this many bytes are used as they are; longer ones are walked.
inline constexpr size_t kShortPathMax = 4095;
inline constexpr size_t kCopyChunk = 32768;

// A resolved path: a directory descriptor and the name to use below it.
class PathHandle {
 public:
  PathHandle() = default;
  ~PathHandle();
  PathHandle(const PathHandle&) = delete;
  PathHandle& operator=(const PathHandle&) = delete;

  // A path of at most kShortPathMax bytes stays as it is, below AT_FDCWD.
  // A longer one is opened piece by piece: each next 4096 bytes are cut at
  // their last '/' and that directory becomes the current descriptor, while
  // 4096 bytes or more remain. Fails with ErrFsNoEntry when a piece holds no
  // '/', the mapped errno of a failing open, or ErrNoMemory.
  [[nodiscard]] tERROR Resolve(const char* path);

  int dir() const { return dir_; }
  const char* name() const { return name_; }

 private:
  void Release();

  int dir_ = AT_FDCWD;
  const char* name_ = "";
  char* owned_ = nullptr;  // the name's copy when the path was walked
};

// Closes the descriptor *fd held (when valid), opens `path` with open(2) and
// stores the new descriptor, or -1 on failure.
[[nodiscard]] tERROR OpenFile(int* fd, const char* path, int flags, mode_t mode);
[[nodiscard]] tERROR CloseFile(int fd);
// One read or write call (EINTR retried); *done receives the bytes moved.
[[nodiscard]] tERROR ReadOnce(int fd, void* buffer, size_t size, size_t* done);
[[nodiscard]] tERROR WriteOnce(int fd, const void* buffer, size_t size, size_t* done);
[[nodiscard]] tERROR SyncFile(int fd);
[[nodiscard]] tERROR FileStatusOf(int fd, struct stat* status);

// Status of an existing name; a final symbolic link is not followed unless
// `follow_links`. *error_number (when given) receives errno, 0 on success.
[[nodiscard]] tERROR FileStatus(const char* path, struct stat* status, int* error_number = nullptr,
                                bool follow_links = false);
[[nodiscard]] tERROR RemoveFile(const char* path);
// Gives `path` the permission bits `mode`; *error_number as for FileStatus.
[[nodiscard]] tERROR ChangeMode(const char* path, mode_t mode, int* error_number = nullptr);

// The first status failure as it is; 1 when device or inode differ, or when
// size or modification time differ; 0 for the same, unchanged file.
[[nodiscard]] tERROR CompareFiles(const char* source, const char* target);
// Does nothing when both names are the same unchanged file; otherwise
// ReplaceFile.
[[nodiscard]] tERROR MoveFile(const char* source, const char* target);
// One rename(2) that replaces an existing target: the target name never
// stops naming a file. ErrFsNotDirectory when the source has no status.
[[nodiscard]] tERROR ReplaceFile(const char* source, const char* target);
// Gives the source's file a second name (link(2), a final symbolic link is
// not followed); ErrFsExists when the target exists.
[[nodiscard]] tERROR LinkFile(const char* source, const char* target);
// The text of the symbolic link `path`.
[[nodiscard]] tERROR ReadLink(const char* path, std::string* target);
// fchmod, ftruncate to 0 bytes, and flock(LOCK_EX) waiting for the holder.
[[nodiscard]] tERROR ChangeModeOf(int fd, mode_t mode, int* error_number = nullptr);
[[nodiscard]] tERROR TruncateFile(int fd);
[[nodiscard]] tERROR LockFile(int fd);
// fsync of the directory that holds `path`, so that a rename in it lasts.
[[nodiscard]] tERROR SyncDirectoryOf(const char* path);
// Copies in kCopyChunk pieces into a target given exactly the source's mode
// less set-user-ID and set-group-ID; neither name's final symbolic link is
// followed; `exclusive` refuses an existing target
// (ErrFsExists), otherwise it is truncated. A write of 0 bytes fails with
// ErrUnexpected. A copy that fails after making the target removes it.
[[nodiscard]] tERROR CopyFile(const char* source, const char* target, bool exclusive);
// Creates `directory` and its missing parents, outermost first, with `mode`
// before the umask; directories that exist are fine.
[[nodiscard]] tERROR MakeDirectories(const char* directory, mode_t mode);

}  // namespace propmap
