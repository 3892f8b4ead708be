#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <new>
#include <string>

#include "module/trace.h"
#include "persistence/file_system.h"
#include "persistence/host_stream.h"
#include "persistence/persistence.h"
#include "persistence/profile_codes.h"
#include "persistence/save_files.h"
#include "profile_xml/document.h"
#include "registry/store_access.h"
#include "registry/operation.h"
#include "registry/store_lock.h"

namespace propmap {
namespace {

constexpr char kDefaultProfile[] = "profiles.xml";
constexpr size_t kDefaultProfileLength = sizeof kDefaultProfile - 1;

// Room for a text of about the last document's size, with some slack for
// growth; a reservation that fails is simply left to the writer's growth.
void ReserveText(PropertiesMap* store, std::string* text) {
  const size_t expected = std::atomic_ref<uint32_t>(store->document_size).load(std::memory_order_relaxed);
  if (expected == 0) return;
  try {
    text->reserve(expected + expected / 16 + 4096);
  } catch (const std::bad_alloc&) {
  }
}

// The document text, built under the shared lock only, and the change count
// it holds.
tERROR BuildText(PropertiesMap* store, std::string* text, uint64_t* changes) {
  StoreLock lock(store, LockMode::kShared);
  if (Failed(lock.status())) return lock.status();
  *changes = ChangeCount(store);
  ReserveText(store, text);
  const tERROR err = Guarded([&] { return WriteProfileDocument(store->tree(), text); });
  if (Succeeded(err)) RememberDocumentSize(store, text->size());
  return err;
}

tERROR SaveToStream(PropertiesMap* store, HostStream* stream) {
  std::string text;
  uint64_t changes = 0;
  const tERROR built = BuildText(store, &text, &changes);
  // A partial text would replace the host's good copy.
  if (Failed(built)) return built;
  const tERROR written = stream->SeekWrite(nullptr, 0, text.data(), static_cast<uint32_t>(text.size()));
  (void)stream->Flush();
  if (Succeeded(written)) MarkSaved(store, changes);
  return written;
}

// Names beside the profile; the thread suffix keeps concurrent saves apart.
struct SaveNames {
  std::string temporary;
  std::string first_backup;
  std::string rolling_backup;
  std::string parking;
};

SaveNames MakeNames(const std::string& profile) {
  char thread[16];
  std::snprintf(thread, sizeof thread, "%x", static_cast<unsigned>(pthread_self()));
  return {profile + ".tmp" + thread, profile + ".bak", profile + ".bak2", profile + ".bak2" + thread};
}

// Opens, fills, syncs and closes the temporary file, which stays locked; a
// file-layer code.
tERROR WriteTemporary(PropertiesMap* store, const std::string& name, const struct stat* profile,
                      TemporaryFile* file, uint64_t* changes) {
  tERROR err = OpenTemporaryFile(name.c_str(), profile, file);
  if (Failed(err)) return err;
  std::string text;
  err = BuildText(store, &text, changes);
  if (Failed(err)) return err;
  size_t written = 0;
  err = WriteOnce(file->write, text.data(), text.size(), &written);
  if (Succeeded(err) && written != text.size()) err = ErrShortTransfer;
  // On stable storage before any rename, so that a crash after the final
  // move never finds the profile's name over an unwritten file; a failing
  // fsync means the text may never get there.
  if (Succeeded(err)) err = SyncFile(file->write);
  const tERROR closed = file->CloseWrite();
  return Failed(err) ? err : closed;
}

// Keeps the old profile as the rolling backup; failures are only traced.
void ReplaceRollingBackup(PropertiesMap* store, const char* profile, const SaveNames& names) {
  Trace(store, kTraceBackup, "prmap\ttrying to back up to %s", names.rolling_backup.c_str());
  struct stat status;
  // Deliberately inverted: the parking moves run only when the rolling backup
  // cannot be examined, and then can only fail and leave their lines.
  if (Failed(FileStatus(names.rolling_backup.c_str(), &status))) {
    const tERROR parked = MoveFile(names.rolling_backup.c_str(), names.parking.c_str());
    if (Failed(parked)) {
      Trace(store, kTraceError, "prmap\tcannot move profiles.xml.bak2 to %s: %terr", names.parking.c_str(),
            ReportedFileCode(parked));
    }
    const tERROR removed = RemoveFile(names.parking.c_str());
    if (Failed(removed)) Trace(store, kTraceError, "prmap\tcannot remove %s: %terr", names.parking.c_str(), removed);
  }
  const tERROR kept = KeepAsBackup(profile, names.rolling_backup.c_str(), names.parking.c_str());
  if (Failed(kept)) {
    Trace(store, kTraceError, "prmap\tcannot move original profiles.xml to backup file: %terr",
          ReportedFileCode(kept));
  }
}

bool EndsWithDefaultName(const std::string& profile) {
  return profile.size() >= kDefaultProfileLength &&
         profile.compare(profile.size() - kDefaultProfileLength, kDefaultProfileLength, kDefaultProfile) == 0;
}

tERROR SaveToFile(PropertiesMap* store, const std::string& configured) {
  // A profile that is a symbolic link is saved to the file it leads to, so
  // the link stays a link; a profile that is not a regular file is refused.
  std::string profile;
  tERROR err = ResolveProfileLinks(configured, &profile);
  struct stat old_status;
  int error_number = 0;
  const bool had_status = Succeeded(err) && Succeeded(FileStatus(profile.c_str(), &old_status, &error_number));
  if (had_status && !S_ISREG(old_status.st_mode)) err = ErrBadParameter;
  const char* path = Succeeded(err) ? profile.c_str() : configured.c_str();
  const SaveNames names = MakeNames(path);
  std::atomic_ref<uint8_t> backup_mode(store->config.backup_mode);
  Trace(store, kTraceProgress, "prmap\tsave to temporary file %s, backup mode: %u", names.temporary.c_str(),
        static_cast<unsigned>(backup_mode.load(std::memory_order_relaxed)));
  TemporaryFile temporary;
  uint64_t changes = 0;
  if (Succeeded(err)) {
    err = WriteTemporary(store, names.temporary, had_status ? &old_status : nullptr, &temporary, &changes);
  }
  if (Failed(err)) {
    // The old profile and the backups are untouched; the temporary file stays.
    err = ReportedFileCode(err);
    Trace(store, kTraceError, "prmap\tcannot write file %s : %terr", path, err);
    return err;
  }
  if (!had_status) Trace(store, kTraceError, "stat\t%s : 0x%x", "Flush", static_cast<unsigned>(error_number));

  if (backup_mode.load(std::memory_order_relaxed) == 2) {
    Trace(store, kTraceBackup, "prmap\ttrying to do first backup to %s", names.first_backup.c_str());
    const tERROR copied = CopyFile(names.temporary.c_str(), names.first_backup.c_str(), true);
    if (Failed(copied)) {
      Trace(store, kTraceError, "prmap\tcannot do first backup: %terr", ReportedFileCode(copied));
    }
    backup_mode.store(1, std::memory_order_relaxed);
  }
  // A profile the last load could not read whole is kept whatever the mode:
  // the part the reader never reached exists nowhere else.
  if (EndsWithDefaultName(profile) || backup_mode.load(std::memory_order_relaxed) == 1 ||
      store->keep_old_profile != 0) {
    ReplaceRollingBackup(store, path, names);
  }

  // One rename replaces the profile: its name never stops naming a whole
  // generation, the old one until here and the new one after.
  err = ReportedFileCode(MoveFile(names.temporary.c_str(), path));
  if (Failed(err)) Trace(store, kTraceError, "prmap\tcannot move temporary file to %s : %terr", path, err);
  // The rename itself is only lasting once the directory is on disk.
  if (Succeeded(err)) {
    err = ReportedFileCode(SyncDirectoryOf(path));
    if (Failed(err)) Trace(store, kTraceError, "prmap\tcannot sync the directory of %s : %terr", path, err);
  }

  struct stat new_status;
  if (const tERROR found = FileStatus(path, &new_status); Failed(found)) {
    const tERROR shown = found == ErrFsNoEntry || found == ErrFsNotDirectory ? ResultMoved : ReportedFileCode(found);
    Trace(store, kTraceError, "prmap\tFile %s does not exist: %terr", path, shown);
  }
  // Through the descriptor: the file written, whatever the name leads to now.
  if (had_status && Failed(ChangeModeOf(temporary.lock, old_status.st_mode & 07777, &error_number))) {
    Trace(store, kTraceError, "chmod\t%s : 0x%x", "Flush", static_cast<unsigned>(error_number));
  }
  if (Succeeded(err)) {
    MarkSaved(store, changes);
    store->keep_old_profile = 0;
  }
  return err;
}

}  // namespace

tERROR SaveProfile(PropertiesMap* store) {
  // Saves of one store take turns, so an older text never lands last.
  SaveGuard guard(store);
  if (Failed(guard.status())) {
    Trace(store, kTraceError, "prmap\tcannot write file %s : %terr",
          store->config.name.empty() ? "<no name>" : store->config.name.c_str(), guard.status());
    return guard.status();
  }
  if (!IsDirty(store)) {
    Trace(store, kTraceProgress, "prmap\tskip saving because data wasn`t changed");
    return ResultOk;
  }
  const ixo::string_t& profile = store->config.name;
  if (profile.empty()) {
    if (store->config.source == nullptr) {
      ClearDirty(store);
      return ResultOk;
    }
    return SaveToStream(store, HostStream::From(store->config.source));
  }
  try {
    return SaveToFile(store, profile);
  } catch (const std::bad_alloc&) {
    // Only the names can throw, before anything is renamed.
    return ErrNoMemory;
  }
}

}  // namespace propmap
