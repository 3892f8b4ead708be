#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>

#include "module/mem_chunk.h"
#include "module/trace.h"
#include "persistence/file_system.h"
#include "persistence/host_stream.h"
#include "persistence/persistence.h"
#include "persistence/profile_codes.h"
#include "registry/store_lock.h"

namespace propmap {
namespace {

constexpr uint64_t kLargeProfile = 10485760;  // traced above this, still read
constexpr uint32_t kCreateMissing = 2;        // loader flags bit
constexpr mode_t kNewProfileMode = 0660;
constexpr mode_t kNewDirectoryMode = 0770;

// Reads the whole stream before the text is parsed: a host whose read comes
// back short is asked for the rest, and one that stops early fails the load
// instead of leaving unread bytes in the text.
tERROR LoadFromStream(PropertiesMap* store, HostStream* stream) {
  uint64_t size = 0;
  tERROR err = stream->GetSize(&size, 0);
  if (Failed(err) || size == 0) return err;
  const uint32_t length = static_cast<uint32_t>(size);
  cMemChunk buffer(&store->obj);
  char* data = static_cast<char*>(buffer.Reserve(length, false));
  if (data == nullptr) return ErrNoMemory;
  uint32_t got = 0;
  while (Succeeded(err) && got < length) {
    uint32_t count = 0;
    err = stream->SeekRead(&count, got, data + got, length - got);
    if (Succeeded(err) && (count == 0 || count > length - got)) err = ErrShortTransfer;
    got += Succeeded(err) ? count : 0;
  }
  if (Failed(err)) {
    store->keep_old_profile = 1;
    return err;
  }
  return ImportProfile(store, data, length);
}

// Reads and imports the open file; the result in file-layer codes.
tERROR ReadProfileFile(PropertiesMap* store, int fd, uint32_t size) {
  cMemChunk buffer(&store->obj);
  void* data = buffer.Reserve(size, false);
  if (data == nullptr) return ErrNoMemory;
  size_t got = 0;
  tERROR err = ReadOnce(fd, data, size, &got);
  if (Failed(err)) return err;
  if (got != size) return ErrShortTransfer;
  return FileCodeFromImport(ImportProfile(store, static_cast<const char*>(data), size));
}

// The directories up to the last '/' and an empty file, never over an
// existing one: ErrFsExists then, and the caller decides what that means.
// The result in file-layer codes.
tERROR CreateProfile(const char* path) {
  tERROR err = ResultOk;
  if (const char* slash = std::strrchr(path, '/'); slash != nullptr && slash != path) {
    const size_t length = static_cast<size_t>(slash - path);
    char* directory = static_cast<char*>(std::malloc(length + 1));
    if (directory == nullptr) return ErrNoMemory;
    std::memcpy(directory, path, length);
    directory[length] = '\0';
    err = MakeDirectories(directory, kNewDirectoryMode);
    std::free(directory);
  }
  int fd = -1;
  if (Succeeded(err)) err = OpenFile(&fd, path, O_WRONLY | O_CREAT | O_EXCL, kNewProfileMode);
  if (fd >= 0) {
    const tERROR closed = CloseFile(fd);
    if (Succeeded(err)) err = closed;
  }
  return err;
}

// Opens the profile without waiting on a FIFO and refuses anything but a
// regular file; reads and imports it. The result in file-layer codes;
// *opened tells whether the file was there.
tERROR ReadProfile(PropertiesMap* store, const char* path, bool* opened) {
  int fd = -1;
  tERROR err = OpenFile(&fd, path, O_RDONLY | O_NONBLOCK, 0);
  *opened = Succeeded(err);
  struct stat status;
  if (Succeeded(err)) err = FileStatusOf(fd, &status);
  if (Succeeded(err) && !S_ISREG(status.st_mode)) err = ErrBadParameter;
  if (Succeeded(err)) {
    const uint64_t size = static_cast<uint64_t>(status.st_size);
    if (size > kLargeProfile) {
      Trace(store, kTraceWarning, "prmap\t%s file size is too big (%d > 10Mb)", path, static_cast<int>(size));
    }
    // The read length is the size's low 32 bits; an empty file is not parsed.
    if (static_cast<uint32_t>(size) != 0) err = ReadProfileFile(store, fd, static_cast<uint32_t>(size));
  }
  if (fd >= 0) (void)CloseFile(fd);
  return err;
}

// How many times a profile that appears between a failed open and its
// creation is read instead; each time another process made it meanwhile.
constexpr int kLoadAttempts = 4;

// Loads the named file and applies the pending root point.
tERROR LoadFromFile(PropertiesMap* store, const char* path) {
  if (std::strchr(path, '%') != nullptr) {
    Trace(store, kTraceWarning,
          "prmap\t%s contains '%%' symbol, but environment variable expansion is currently not supported", path);
  }
  const bool create = (store->config.loader_flags & kCreateMissing) != 0;
  tERROR err = ResultOk;
  for (int attempt = 0;; ++attempt) {
    bool opened = false;
    err = ReadProfile(store, path, &opened);
    // A file that was there but could not be read whole is kept by the next save.
    if (opened && Failed(err)) store->keep_old_profile = 1;
    if (!MeansMissingProfile(err)) {
      err = ReportedFileCode(err);
      break;
    }
    if (!create) return ErrFileNotFound;
    // The reader called a present file missing: it is damaged, not absent,
    // and creating it would empty it.
    if (opened) return ReportedFileCode(ErrFsExists);
    err = CreateProfile(path);
    if (err != ErrFsExists || attempt + 1 == kLoadAttempts) return ReportedFileCode(err);
  }
  if (Failed(err) || store->pending_root == nullptr) return err;
  err = SetCurrentKeyByPath(store->tree(), store->pending_root);
  if (Succeeded(err)) {
    HeapFree(&store->obj, store->pending_root);
    store->pending_root = nullptr;
  } else if (err == ErrFileNotFound) {
    // Answered as for a missing profile, but the file is there: it is
    // "created" already, and never emptied under the loaded tree.
    if (!create) return ErrFileNotFound;
    err = CreateProfile(path);
    err = err == ErrFsExists ? ResultOk : ReportedFileCode(err);
  }
  return err;
}

}  // namespace

tERROR LoadProfile(PropertiesMap* store) {
  tERROR err = InitTree(store->tree(), &store->obj);
  if (Succeeded(err)) {
    const char* path = store->config.name.c_str();
    if (path[0] != '\0') {
      err = LoadFromFile(store, path);
    } else if (store->config.source != nullptr) {
      err = LoadFromStream(store, HostStream::From(store->config.source));
    }
  }
  // The lock is set up whatever the result; if it cannot be, the store stays
  // without locking (lock_created clear).
  (void)CreateStoreLock(store);
  store->loaded = Failed(err) ? 0 : 1;
  return err;
}

}  // namespace propmap
