// Fault injection at the file layer's system-call table.
//
// While a SystemCallFaults lives, every call of the layer goes through it: it
// counts calls (all kinds, or one kind), fails the N-th counted call with a
// chosen errno (once, or that one and every later one), and can report each
// call to a hook first. A failed close still closes, as Linux does, so that
// injected faults never leak descriptors. Destruction restores the real
// table.
//
// Thread-safety: plain globals; one instance at a time, single-threaded use.
#pragma once

#include <cerrno>
#include <functional>
#include <optional>

#include "descriptors.h"
#include "persistence/system_calls.h"

namespace propmap::testing {

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
  // Failures injected since the last FailNth.
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

  // A call of `kind` through the real table's `real` entry, or -1 when it is to fail.
  template <SysCall kind, auto real, typename... Args>
  static auto Pass(Args... args) -> decltype((Real().*real)(args...)) {
    return Inject(kind) ? -1 : (Real().*real)(args...);
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
  using T = SystemCallTable;
  static constexpr SystemCallTable kTable = {
      .open = &Pass<SysCall::kOpen, &T::open>,           .openat = &Pass<SysCall::kOpenat, &T::openat>,
      .close = &Close,                                   .read = &Read,
      .write = &Write,                                   .fsync = &Pass<SysCall::kFsync, &T::fsync>,
      .fstat = &Pass<SysCall::kFstat, &T::fstat>,        .fstatat = &Pass<SysCall::kFstatat, &T::fstatat>,
      .unlinkat = &Pass<SysCall::kUnlinkat, &T::unlinkat>, .renameat = &Pass<SysCall::kRenameat, &T::renameat>,
      .mkdir = &Pass<SysCall::kMkdir, &T::mkdir>,        .fchmodat = &Pass<SysCall::kFchmodat, &T::fchmodat>,
      .fchmod = &Pass<SysCall::kFchmod, &T::fchmod>,     .ftruncate = &Pass<SysCall::kFtruncate, &T::ftruncate>,
      .flock = &Pass<SysCall::kFlock, &T::flock>,        .linkat = &Pass<SysCall::kLinkat, &T::linkat>,
      .readlinkat = &Pass<SysCall::kReadlinkat, &T::readlinkat>,
  };
  const SystemCallTable* previous_ = nullptr;
};

}  // namespace propmap::testing
