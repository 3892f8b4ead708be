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

tERROR LoadFromStream(PropertiesMap* store, HostStream* stream) {
  uint64_t size = 0;
  tERROR err = stream->GetSize(&size, 0);
  if (Failed(err) || size == 0) return err;
  cMemChunk buffer(&store->obj);
  void* data = buffer.Reserve(static_cast<uint32_t>(size), false);
  if (data == nullptr) return ErrNoMemory;
  uint32_t count = 0;
  err = stream->SeekRead(&count, 0, data, static_cast<uint32_t>(size));
  if (Succeeded(err)) err = ImportProfile(store, static_cast<const char*>(data), static_cast<uint32_t>(size));
  return err;
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

// The directories up to the last '/' and an empty file; the result as loads
// report it.
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
  if (Succeeded(err)) err = OpenFile(&fd, path, O_WRONLY | O_CREAT | O_TRUNC, kNewProfileMode);
  if (fd >= 0) {
    const tERROR closed = CloseFile(fd);
    if (Succeeded(err)) err = closed;
  }
  return ReportedFileCode(err);
}

tERROR MissingProfile(PropertiesMap* store, const char* path) {
  if ((store->config.loader_flags & kCreateMissing) == 0) return ErrFileNotFound;
  return CreateProfile(path);
}

// Loads the named file and applies the pending root point.
tERROR LoadFromFile(PropertiesMap* store, const char* path) {
  if (std::strchr(path, '%') != nullptr) {
    Trace(store, kTraceWarning,
          "prmap\t%s contains '%%' symbol, but environment variable expansion is currently not supported", path);
  }
  int fd = -1;
  tERROR err = OpenFile(&fd, path, O_RDONLY, 0);
  struct stat status;
  if (Succeeded(err)) err = FileStatusOf(fd, &status);
  bool empty = false;
  if (Succeeded(err)) {
    const uint64_t size = static_cast<uint64_t>(status.st_size);
    if (size > kLargeProfile) {
      Trace(store, kTraceWarning, "prmap\t%s file size is too big (%d > 10Mb)", path, static_cast<int>(size));
    }
    // The read length is the size's low 32 bits.
    empty = static_cast<uint32_t>(size) == 0;
    if (!empty) err = ReadProfileFile(store, fd, static_cast<uint32_t>(size));
  }
  if (fd >= 0) (void)CloseFile(fd);
  if (!empty) {
    if (MeansMissingProfile(err)) return MissingProfile(store, path);
    err = ReportedFileCode(err);
  }
  if (Failed(err) || store->pending_root == nullptr) return err;
  err = SetCurrentKeyByPath(store->tree(), store->pending_root);
  if (Succeeded(err)) {
    HeapFree(&store->obj, store->pending_root);
    store->pending_root = nullptr;
  } else if (err == ErrFileNotFound) {
    // Kept as it always behaved: creating the "missing" profile again
    // truncates the file on disk while the loaded tree stays in memory.
    err = MissingProfile(store, path);
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
