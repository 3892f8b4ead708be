// How a changing command works on a profile so that nothing is lost:
//
// - It holds an advisory lock from load to save: flock on a lock file beside
//   the profile (PROFILE.lock, never removed, so every command locks the
//   same inode). Commands that only read take no lock.
// - Before saving it compares the file with the one it loaded (device, inode,
//   size, modification time). A host that does not take the lock may have
//   saved meanwhile: the command then loads again and applies its change
//   again, a few times, before it gives up naming the file.
// - It does not save over parts of the document the module's reading left
//   out (document_check.h), unless forced; a forced save keeps the old file
//   as the rolling backup.
// - It writes back only to a regular file: not to standard input, a pipe,
//   a device or through a symbolic link (the save's rename would replace the
//   link by a file).
//
// Thread-safety: one thread.
#pragma once

#include <functional>
#include <string>

#include "profile.h"

namespace propmap_tool {

// The profile's advisory lock, held while the object lives.
class ProfileLock {
 public:
  explicit ProfileLock(const std::string& profile);
  ~ProfileLock();
  ProfileLock(const ProfileLock&) = delete;
  ProfileLock& operator=(const ProfileLock&) = delete;

 private:
  int fd_ = -1;
};

// Throws ToolError unless a save can write `path` back: standard input, a
// pipe, a device or a symbolic link are refused; a missing file is fine.
void RequireWritable(const std::string& path);

struct EditOptions {
  IfMissing missing = IfMissing::kFail;
  bool force = false;  // save over parts the module did not read
};

// Loads the profile at `path`, runs `apply` on it and saves it. `apply` may
// run more than once (on a fresh load each time) and throws to save nothing.
void EditProfile(const Session& session, const std::string& path, const EditOptions& options,
                 const std::function<void(Profile&)>& apply);

// Throws ToolError (ErrBadDocument) naming FILE:LINE:COLUMN of the first part
// of the profile's document that its reading left out.
void RequireWholeDocument(const Profile& profile, const std::string& advice);

}  // namespace propmap_tool
