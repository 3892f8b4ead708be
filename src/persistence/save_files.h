// The files of one save beside the profile: the temporary file the new text
// goes to, the rolling backup kept by a second name, and the profile name a
// symbolic link leads to.
//
// Every step leaves the profile name naming a complete file, refuses to write
// through a link planted at a companion name, and never gives a file wider
// permissions than the profile has. Codes are the file layer's.
//
// Thread-safety: none needed beyond the files: two saves of one temporary
// name (threads, or processes forked from one thread) take its flock in turn.
#pragma once

#include <sys/stat.h>

#include <string>

#include "module/result_codes.h"

namespace propmap {

// The name `path` leads to through symbolic links (itself when it is none).
[[nodiscard]] tERROR ResolveProfileLinks(const std::string& path, std::string* resolved);

// The temporary file of one save: `lock` holds its flock for the whole
// save, `write` receives the text. Closing `write` before the rename keeps a
// save's events what a watcher expects (a write closed, then one rename);
// `lock` stays open until the file has been renamed into place.
struct TemporaryFile {
  TemporaryFile() = default;
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  // Closes the write descriptor; a failed close may have lost data.
  [[nodiscard]] tERROR CloseWrite();
  int lock = -1;
  int write = -1;
};

// Opens an empty temporary file that only this save writes, and locks it.
// Created with 0600 and given the profile's permission bits before any byte
// is written; without a profile, created with 0660 before the umask, as the
// new profile will be. A symbolic or hard link, a FIFO or a leftover of no
// use at the name is removed and the file made anew, never written through.
[[nodiscard]] tERROR OpenTemporaryFile(const char* name, const struct stat* profile, TemporaryFile* file);

// Makes `backup` name the profile's current file while `profile` keeps
// naming it: a hard link at `parking`, renamed over `backup`. Where the file
// system has no hard links the profile is moved instead. As a move, a
// missing profile gives ErrFsNotDirectory and the same file under both
// names gives 0.
[[nodiscard]] tERROR KeepAsBackup(const char* profile, const char* backup, const char* parking);

}  // namespace propmap
