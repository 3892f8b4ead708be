// Profiles opened through the module: the tool's only way to read or change
// a profile file.
//
// A Session loads the module once (from --module, the installed copy beside
// the tool, or the one built with it) and creates stores on it. A Profile is
// one store on one file: key lookups that report failures naming the file and
// the key, and Save() through the store's own Flush, which writes a temporary
// file and renames it, so a failed save leaves the old file as it was.
//
// Ownership: Profiles share the Session's module and must not outlive the
// Session. Thread-safety: one thread.
#pragma once

#include <memory>
#include <string>

#include "module_loader.h"
#include "options.h"
#include "store.h"

namespace propmap_tool {

// What Open does when the file does not exist.
enum class IfMissing {
  kFail,        // ErrFileNotFound
  kStartEmpty,  // an empty tree; the file appears at the first successful Save
  kReplace,     // never read the file (it may be damaged); Save replaces it
};

class Profile {
 public:
  Profile(std::unique_ptr<prhost::Store> store, std::string path) : store_(std::move(store)), path_(std::move(path)) {}

  const std::string& path() const { return path_; }
  prhost::Registry registry() const { return store_->registry(); }
  prhost::Client client() const { return store_->client(); }
  void* object() const { return store_->object(); }

  // The key at `path` below the root (empty: the root itself). Throws
  // ToolError naming the file and the key when it does not resolve.
  prhost::hKey Key(const std::string& path, bool create = false) const;

  // Flush; throws ToolError when the profile could not be saved.
  void Save() const;

 private:
  std::unique_ptr<prhost::Store> store_;
  std::string path_;
};

class Session {
 public:
  explicit Session(const CommonOptions& options);
  ~Session();

  const CommonOptions& options() const { return options_; }
  // A store on `path` with the common options (root point unless
  // `use_root` is false, read-only, backup mode). `read_only` adds the
  // read-only property for commands that only read.
  std::unique_ptr<Profile> Open(const std::string& path, IfMissing missing, bool read_only,
                                bool use_root = true) const;
  // A store on no file at all: scratch space for conversions and exports.
  std::unique_ptr<prhost::Store> OpenScratch(void* source = nullptr) const;

 private:
  CommonOptions options_;
  std::shared_ptr<prhost::Module> module_;
};

// The module file Session loads: --module, else <prefix>/lib/propmap beside
// the installed tool, else the module built with the tool.
std::string ModulePath(const std::string& option);

}  // namespace propmap_tool
