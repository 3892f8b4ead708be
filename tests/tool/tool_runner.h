// Runs the built propmap binary as a user would: in a working directory, with
// arguments and standard input, and collects its exit code and output.
//
// Thread-safety: one runner per test; each Run forks one child.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "temp_dir.h"

namespace propmap_tool::testing {

struct Outcome {
  int exit = -1;
  std::string out;
  std::string err;
};

struct RunOptions {
  std::string input{};        // standard input
  long file_size_limit = -1;  // RLIMIT_FSIZE in bytes: writes beyond it fail as on a full disk
  std::vector<std::pair<std::string, std::string>> env{};  // set in the tool's environment
};

// Starts the tool in `dir`; stdout and stderr go to pipes the caller reads.
inline pid_t Spawn(const std::string& dir, const std::vector<std::string>& args, int* out_fd, int* err_fd,
                   const RunOptions& options = {}) {
  int out[2], err[2];
  if (::pipe(out) != 0 || ::pipe(err) != 0) return -1;
  const std::string input = dir + "/.stdin";
  prhost::WriteWholeFile(input, options.input);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    const int in = ::open(input.c_str(), O_RDONLY);
    ::dup2(in, 0);
    if (::chdir(dir.c_str()) != 0) ::_exit(127);
    ::unsetenv("PROPMAP_PROFILE");
    for (const auto& [name, value] : options.env) ::setenv(name.c_str(), value.c_str(), 1);
    if (options.file_size_limit >= 0) {
      ::signal(SIGXFSZ, SIG_IGN);  // the write fails with EFBIG instead of killing the tool
      const rlimit limit{static_cast<rlim_t>(options.file_size_limit), static_cast<rlim_t>(options.file_size_limit)};
      ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    std::vector<char*> argv{const_cast<char*>(PROPMAP_TOOL)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ::execv(PROPMAP_TOOL, argv.data());
    ::_exit(127);
  }
  ::close(out[1]);
  ::close(err[1]);
  *out_fd = out[0];
  *err_fd = err[0];
  return pid;
}

// Reads one line (without its newline); false at the end of the stream.
inline bool ReadLine(int fd, std::string* line) {
  line->clear();
  char c;
  while (::read(fd, &c, 1) == 1) {
    if (c == '\n') return true;
    *line += c;
  }
  return !line->empty();
}

inline std::string ReadAll(int fd) {
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, n);
  ::close(fd);
  return text;
}

inline int Wait(pid_t pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

inline Outcome Run(const std::string& dir, const std::vector<std::string>& args, const RunOptions& options = {}) {
  int out_fd = -1, err_fd = -1;
  const pid_t pid = Spawn(dir, args, &out_fd, &err_fd, options);
  Outcome o;
  // Both pipes at once: a child blocked on a full one would never finish.
  std::thread err([&] { o.err = ReadAll(err_fd); });
  o.out = ReadAll(out_fd);
  err.join();
  o.exit = Wait(pid);
  return o;
}

}  // namespace propmap_tool::testing
