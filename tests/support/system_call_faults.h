// Fault injection at the file layer's system-call table.
//
// While a SystemCallFaults lives, every call of the layer goes through it: it
// counts calls (all kinds, or one kind), fails the N-th counted call with a
// chosen errno (once, or that one and every later one), and can report each
// call to a hook first. A failed close still closes, as Linux does, so that
// injected faults never leak descriptors. Destruction restores the real
// table.
//
// OpenDescriptors counts this process's descriptors, for leak checks.
//
// Thread-safety: plain globals; one instance at a time, single-threaded use.
#pragma once

#include <dirent.h>

#include <cerrno>
#include <functional>
#include <optional>

#include "persistence/system_calls.h"

namespace propmap::testing {

inline int OpenDescriptors() {
  int count = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (dirent* e = readdir(dir)) count += e->d_name[0] != '.';
  closedir(dir);
  return count;
}

class SystemCallFaults {
 public:
  SystemCallFaults() { previous_ = SetSystemCalls(&kTable); State() = {}; }
  ~SystemCallFaults() {
    SetSystemCalls(previous_);
    State() = {};
  }
  SystemCallFaults(const SystemCallFaults&) = delete;
  SystemCallFaults& operator=(const SystemCallFaults&) = delete;

  // Fails the n-th call from now (1-based) of kind `only` (any kind when
  // empty) with `error`; with `persistent`, every later counted call too.
  // With kShortTransfer only reads and writes count, and a failed one moves
  // half the bytes asked for instead of returning -1.
  static constexpr int kShortTransfer = -1;
  void FailNth(unsigned n, int error, bool persistent = false, std::optional<SysCall> only = {}) {
    State().counted = 0;
    State().fail_at = n;
    State().error = error;
    State().persistent = persistent;
    State().only = only;
    State().failed = 0;
  }
  void Clear() { FailNth(0, 0); }
  // Calls counted since the last FailNth, and failures injected.
  unsigned counted() const { return State().counted; }
  unsigned failed() const { return State().failed; }
  unsigned calls(SysCall kind) const { return State().per_kind[static_cast<unsigned>(kind)]; }
  // Called before every call with its kind.
  void SetHook(std::function<void(SysCall)> hook) { State().hook = std::move(hook); }

 private:
  struct Faults {
    unsigned counted = 0;
    unsigned fail_at = 0;
    int error = 0;
    bool persistent = false;
    std::optional<SysCall> only;
    unsigned failed = 0;
    unsigned per_kind[static_cast<unsigned>(SysCall::kCount)] = {};
    std::function<void(SysCall)> hook;
  };
  static Faults& State() {
    static Faults faults;
    return faults;
  }
  // True when this call is to fail; errno is then set.
  static bool Inject(SysCall kind) {
    Faults& f = State();
    ++f.per_kind[static_cast<unsigned>(kind)];
    if (f.hook) f.hook(kind);
    if (f.only && *f.only != kind) return false;
    if (f.error == kShortTransfer && kind != SysCall::kRead && kind != SysCall::kWrite) return false;
    ++f.counted;
    if (f.fail_at == 0 || f.counted < f.fail_at || (f.counted > f.fail_at && !f.persistent)) return false;
    ++f.failed;
    if (f.error != kShortTransfer) errno = f.error;
    return true;
  }
  static const SystemCallTable& Real() { return RealSystemCalls(); }

  static int Open(const char* p, int fl, mode_t m) { return Inject(SysCall::kOpen) ? -1 : Real().open(p, fl, m); }
  static int Openat(int d, const char* p, int fl, mode_t m) {
    return Inject(SysCall::kOpenat) ? -1 : Real().openat(d, p, fl, m);
  }
  static int Close(int fd) {
    if (!Inject(SysCall::kClose)) return Real().close(fd);
    const int saved = errno;
    (void)Real().close(fd);
    errno = saved;
    return -1;
  }
  static ssize_t Read(int fd, void* b, size_t n) {
    if (!Inject(SysCall::kRead)) return Real().read(fd, b, n);
    return State().error == kShortTransfer ? Real().read(fd, b, n / 2) : -1;
  }
  static ssize_t Write(int fd, const void* b, size_t n) {
    if (!Inject(SysCall::kWrite)) return Real().write(fd, b, n);
    return State().error == kShortTransfer ? Real().write(fd, b, n / 2) : -1;
  }
  static int Fsync(int fd) { return Inject(SysCall::kFsync) ? -1 : Real().fsync(fd); }
  static int Fstat(int fd, struct stat* s) { return Inject(SysCall::kFstat) ? -1 : Real().fstat(fd, s); }
  static int Fstatat(int d, const char* p, struct stat* s, int fl) {
    return Inject(SysCall::kFstatat) ? -1 : Real().fstatat(d, p, s, fl);
  }
  static int Unlinkat(int d, const char* p, int fl) {
    return Inject(SysCall::kUnlinkat) ? -1 : Real().unlinkat(d, p, fl);
  }
  static int Renameat(int fd, const char* f, int td, const char* t) {
    return Inject(SysCall::kRenameat) ? -1 : Real().renameat(fd, f, td, t);
  }
  static int Mkdir(const char* p, mode_t m) { return Inject(SysCall::kMkdir) ? -1 : Real().mkdir(p, m); }
  static int Fchmodat(int d, const char* p, mode_t m, int fl) {
    return Inject(SysCall::kFchmodat) ? -1 : Real().fchmodat(d, p, m, fl);
  }

  static constexpr SystemCallTable kTable = {
      .open = &Open,         .openat = &Openat,     .close = &Close,       .read = &Read,
      .write = &Write,       .fsync = &Fsync,       .fstat = &Fstat,       .fstatat = &Fstatat,
      .unlinkat = &Unlinkat, .renameat = &Renameat, .mkdir = &Mkdir,       .fchmodat = &Fchmodat,
  };
  const SystemCallTable* previous_ = nullptr;
};

}  // namespace propmap::testing
