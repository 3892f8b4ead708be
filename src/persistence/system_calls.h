// The system calls of the file-system layer, behind one table.
//
// Every call the persistence code makes to the kernel goes through
// SystemCalls(), so that tests can put a table in front of the real one that
// fails a chosen call with a chosen errno. Production never replaces the
// table: the cost is one indirect call next to a system call.
//
// Thread-safety: SetSystemCalls is for tests, before and after the calls it
// affects; it is not synchronised with calls in flight.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>

namespace propmap {

// Index of each entry, in table order; kCount sizes the table.
enum class SysCall : unsigned {
  kOpen,
  kOpenat,
  kClose,
  kRead,
  kWrite,
  kFsync,
  kFstat,
  kFstatat,
  kUnlinkat,
  kRenameat,
  kMkdir,
  kFchmodat,
  kFchmod,
  kFtruncate,
  kFlock,
  kLinkat,
  kReadlinkat,
  kCount
};

struct SystemCallTable {
  int (*open)(const char* path, int flags, mode_t mode);
  int (*openat)(int dir, const char* path, int flags, mode_t mode);
  int (*close)(int fd);
  ssize_t (*read)(int fd, void* buffer, size_t count);
  ssize_t (*write)(int fd, const void* buffer, size_t count);
  int (*fsync)(int fd);
  int (*fstat)(int fd, struct stat* status);
  int (*fstatat)(int dir, const char* path, struct stat* status, int flags);
  int (*unlinkat)(int dir, const char* path, int flags);
  int (*renameat)(int from_dir, const char* from, int to_dir, const char* to);
  int (*mkdir)(const char* path, mode_t mode);
  int (*fchmodat)(int dir, const char* path, mode_t mode, int flags);
  int (*fchmod)(int fd, mode_t mode);
  int (*ftruncate)(int fd, off_t length);
  int (*flock)(int fd, int operation);
  int (*linkat)(int from_dir, const char* from, int to_dir, const char* to, int flags);
  ssize_t (*readlinkat)(int dir, const char* path, char* buffer, size_t size);
};
// A new entry needs its enumerator, and a new enumerator its entry.
static_assert(sizeof(SystemCallTable) == static_cast<size_t>(SysCall::kCount) * sizeof(void*));

// The table in force: the real calls unless a test installed its own.
const SystemCallTable& SystemCalls();
// The real calls (EINTR is retried by the file layer, not here).
const SystemCallTable& RealSystemCalls();
// Installs `table` (null restores the real calls); returns the previous one.
const SystemCallTable* SetSystemCalls(const SystemCallTable* table);

}  // namespace propmap
