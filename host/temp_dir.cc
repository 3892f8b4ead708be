#include "temp_dir.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace prhost {
namespace {

// Removes everything below the open directory `dir` (which it closes).
void RemoveBelow(int dir) {
  DIR* stream = fdopendir(dir);
  if (stream == nullptr) {
    close(dir);
    return;
  }
  while (dirent* e = readdir(stream)) {
    if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
    if (unlinkat(dir, e->d_name, 0) == 0) continue;
    int child = openat(dir, e->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (child >= 0) RemoveBelow(child);
    (void)unlinkat(dir, e->d_name, AT_REMOVEDIR);
  }
  closedir(stream);
}

bool WriteAll(int fd, const std::string& content) {
  size_t done = 0;
  while (done < content.size()) {
    ssize_t n = write(fd, content.data() + done, content.size() - done);
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

std::optional<std::string> ReadAll(int fd) {
  if (fd < 0) return std::nullopt;
  std::string out;
  char buffer[65536];
  ssize_t n;
  while ((n = read(fd, buffer, sizeof buffer)) > 0) out.append(buffer, static_cast<size_t>(n));
  close(fd);
  if (n < 0) return std::nullopt;
  return out;
}

}  // namespace

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/propmap-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("prhost: mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  // Tests may leave a directory without write or search permission.
  (void)chmod(path_.c_str(), 0700);
  int dir = open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) RemoveBelow(dir);
  (void)rmdir(path_.c_str());
}

DeepDirectory::DeepDirectory(const std::string& base, size_t min_length, size_t component) : path_(base) {
  fd_ = open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::string name(component, 'd');
  while (fd_ >= 0 && path_.size() < min_length) {
    if (mkdirat(fd_, name.c_str(), 0700) != 0 && errno != EEXIST) break;
    int next = openat(fd_, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    close(fd_);
    fd_ = next;
    path_ += "/" + name;
  }
  if (fd_ < 0 || path_.size() < min_length) {
    if (fd_ >= 0) close(fd_);
    throw std::runtime_error("prhost: cannot build a deep directory below " + base);
  }
}

DeepDirectory::~DeepDirectory() { close(fd_); }

bool DeepDirectory::Write(const std::string& name, const std::string& content) const {
  int fd = openat(fd_, name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  bool ok = WriteAll(fd, content);
  return close(fd) == 0 && ok;
}

std::optional<std::string> DeepDirectory::Read(const std::string& name) const {
  return ReadAll(openat(fd_, name.c_str(), O_RDONLY | O_CLOEXEC));
}

std::optional<std::string> ReadWholeFile(const std::string& path) {
  return ReadAll(open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

bool WriteWholeFile(const std::string& path, const std::string& content) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  bool ok = WriteAll(fd, content);
  return close(fd) == 0 && ok;
}

bool FileExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

}  // namespace prhost
