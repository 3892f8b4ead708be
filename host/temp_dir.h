// Temporary directories and whole-file helpers for tests on real files.
//
// TempDir makes a fresh directory below $TMPDIR (or /tmp) and removes it with
// everything below at destruction, walking by directory descriptors so that
// names longer than the path limit go too. DeepDirectory builds a chain of
// directories whose full path is at least a given length and keeps the
// innermost one open, so files can be made there with the *at calls.
//
// Thread-safety: none; one owner per object.
#pragma once

#include <optional>
#include <string>

namespace prhost {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string Join(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

class DeepDirectory {
 public:
  // Directories of `component` bytes each below `base` until the path is at
  // least `min_length` bytes long. Throws std::runtime_error on failure.
  DeepDirectory(const std::string& base, size_t min_length, size_t component = 200);
  ~DeepDirectory();
  DeepDirectory(const DeepDirectory&) = delete;
  DeepDirectory& operator=(const DeepDirectory&) = delete;

  const std::string& path() const { return path_; }
  int fd() const { return fd_; }  // the innermost directory
  // Writes `content` to `name` in the innermost directory.
  bool Write(const std::string& name, const std::string& content) const;
  std::optional<std::string> Read(const std::string& name) const;

 private:
  std::string path_;
  int fd_ = -1;
};

// Whole files by ordinary paths; nullopt when the file cannot be read.
std::optional<std::string> ReadWholeFile(const std::string& path);
bool WriteWholeFile(const std::string& path, const std::string& content);
bool FileExists(const std::string& path);

}  // namespace prhost
