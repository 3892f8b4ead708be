// Profiles opened through the module: the tool's only way to read or change
// a profile file.
//
// The tool reads a profile's bytes itself (a file, a pipe, or "-" for
// standard input), remembers which file they came from (device, inode, size,
// modification time), and has the module load exactly those bytes through a
// host stream. So a pipe is read whole, the check of what the module's
// reading left out (document_check.h) looks at the very text the module read,
// and a later save can tell whether the file changed since.
//
// A Session loads the module once (from --module, the installed copy beside
// the tool, or the one built with it) and creates stores on it. A Profile is
// one store on one text: key lookups that report failures naming the file and
// the key, and Save() through the store's own Flush, which writes a temporary
// file and renames it, so a failed save leaves the old file as it was.
//
// Ownership: Profiles refer to their Session and must not outlive it.
// Thread-safety: one thread.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "module_loader.h"
#include "options.h"
#include "store.h"
#include "stream.h"

namespace propmap_tool {

// What tells one generation of a file from the next.
struct FileIdentity {
  bool exists = false;
  uint64_t device = 0;
  uint64_t inode = 0;
  int64_t size = 0;
  int64_t modified_ns = 0;
  bool operator==(const FileIdentity&) const = default;
};
FileIdentity Identify(const std::string& path);

struct Input {
  std::string bytes;
  FileIdentity identity;  // of the file the bytes were read from
  bool regular = true;    // false for standard input, a pipe or a device
};

// The whole content of `path` ("-": standard input). nullopt when it does not
// exist; a profile that is missing only while another program saves it (its
// temporary file is there) is waited for a moment. ToolError otherwise.
std::optional<Input> ReadInput(const std::string& path);

// True while a temporary file of a save sits beside the profile.
bool SaveInProgress(const std::string& path);

// What Open does when the file does not exist.
enum class IfMissing {
  kFail,    // ErrFileNotFound
  kCreate,  // an empty tree; the file appears at the first successful Save
};

class Session;

class Profile {
 public:
  Profile(const Session& session, std::string path, Input input, bool created);
  ~Profile();

  const std::string& path() const { return path_; }
  const Input& input() const { return input_; }
  bool created() const { return created_; }  // there was no file
  prhost::Registry registry() const { return store_->registry(); }
  prhost::Client client() const { return store_->client(); }
  void* object() const { return store_->object(); }

  // The key at `path` below the root (empty: the root itself). Throws
  // ToolError naming the file and the key when it does not resolve.
  prhost::hKey Key(const std::string& path, bool create = false) const;

  // The store cannot give two values (or keys) of one key the same name, but
  // a document can. Values written by index carry this marker after their
  // name until Save, which has the module write the document, drops the
  // markers from it and saves what the module reads back from that.
  const std::string& DuplicateMarker();

  // Flush to the file; with `keep_backup` the old file becomes the rolling
  // backup whatever --backup-mode says. Throws ToolError when the profile
  // could not be saved (the file on disk is then unchanged).
  void Save(bool keep_backup);

 private:
  friend class Session;
  const Session& session_;
  std::string path_;
  Input input_;
  bool created_;
  std::string marker_;                    // empty until a duplicate name was written
  std::unique_ptr<prhost::MemoryStream> stream_;  // the loaded text; outlives store_
  std::unique_ptr<prhost::Store> store_;
};

class Session {
 public:
  explicit Session(const CommonOptions& options);
  ~Session();

  const CommonOptions& options() const { return options_; }
  // A store on the profile at `path` with the common options (root point
  // unless `use_root` is false, read-only, backup mode). `read_only` adds the
  // read-only property for commands that only read.
  std::unique_ptr<Profile> Open(const std::string& path, IfMissing missing, bool read_only,
                                bool use_root = true) const;
  // A store loaded from `input` as if it were the file at `path`.
  std::unique_ptr<Profile> Load(const std::string& path, Input input, bool created, bool read_only,
                                bool use_root) const;
  // A store on no file at all: scratch space for conversions and exports.
  std::unique_ptr<prhost::Store> OpenScratch(void* source = nullptr) const;
  // A store on the stream, loaded; its init result is left to the caller.
  std::unique_ptr<prhost::Store> OpenOnStream(prhost::MemoryStream& stream, uint8_t backup_mode = 0) const;

  // Whether the module refuses `raw_text` for a value element of the type.
  bool RefusesValue(std::string_view type_name, std::string_view raw_text) const;

 private:
  CommonOptions options_;
  std::shared_ptr<prhost::Module> module_;
};

// A fresh marker for Profile::DuplicateMarker, and a document without the
// markers ("<marker><digits>\x7F" after names).
std::string NewDuplicateMarker();
std::string Unmarked(const std::string& text, const std::string& marker);

// Marks a store changed without changing its content, so that Flush writes
// it: a key is created and removed again.
void MarkChanged(const prhost::Registry& registry);

// The module file Session loads: --module, else <prefix>/lib/propmap beside
// the installed tool, else the module built with the tool.
std::string ModulePath(const std::string& option);

}  // namespace propmap_tool
