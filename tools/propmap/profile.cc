#include "profile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>

#include "document_check.h"
#include "result_names.h"
#include "tool_error.h"

namespace propmap_tool {
namespace {

// Larger inputs are refused rather than read: the module reads at most 4 GiB
// and warns above 10 MiB, and a device such as /dev/zero never ends.
constexpr size_t kMaxInput = size_t{1} << 30;

prhost::tERROR FromErrno(int error) {
  switch (error) {
    case ENOENT: return prhost::Code(0x800000C5);
    case EACCES: case EPERM: return prhost::Code(0x80000045);
    case ELOOP: return prhost::Code(0x8000006A);
    case ENAMETOOLONG: return prhost::Code(0x8000005C);
    case EISDIR: return prhost::kErrBadParameter;
    default: return prhost::Code(0x80000059);
  }
}

FileIdentity IdentityOf(const struct stat& st) {
  return {true, static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino), static_cast<int64_t>(st.st_size),
          int64_t{st.st_mtim.tv_sec} * 1'000'000'000 + st.st_mtim.tv_nsec};
}

std::string ReadAll(int fd, const std::string& path) {
  std::string bytes;
  char buffer[64 * 1024];
  for (;;) {
    const ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      const int error = errno;
      ::close(fd);
      throw ToolError(FromErrno(error), path + ": cannot be read (" + std::strerror(error) + ")");
    }
    if (n == 0) return bytes;
    bytes.append(buffer, static_cast<size_t>(n));
    if (bytes.size() > kMaxInput) {
      ::close(fd);
      throw ToolError(prhost::Code(0x80000078), path + ": larger than 1 GiB; not read");
    }
  }
}

}  // namespace

// A save by the module renames the old profile away before it renames its
// temporary file into place; between the two the profile is missing and the
// temporary file is there.
bool SaveInProgress(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash);
  const std::string prefix = (slash == std::string::npos ? path : path.substr(slash + 1)) + ".tmp";
  bool found = false;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* e = ::readdir(d)) found = found || std::string_view(e->d_name).starts_with(prefix);
    ::closedir(d);
  }
  return found;
}

FileIdentity Identify(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) return {};
  return IdentityOf(st);
}

std::optional<Input> ReadInput(const std::string& path) {
  constexpr int kMissingTries = 50;
  for (int attempt = 0;; ++attempt) {
    const int fd = path == "-" ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      const int error = errno;
      if (error == ENOENT && attempt < kMissingTries && SaveInProgress(path)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        continue;
      }
      if (error == ENOENT) return std::nullopt;
      throw ToolError(FromErrno(error), path + ": cannot be opened (" + std::strerror(error) + ")");
    }
    struct stat before;
    if (::fstat(fd, &before) != 0 || S_ISDIR(before.st_mode)) {
      ::close(fd);
      throw ToolError(prhost::kErrBadParameter, path + ": is a directory, not a profile");
    }
    Input input;
    input.regular = S_ISREG(before.st_mode);
    input.bytes = ReadAll(fd, path);
    struct stat after;
    const bool stable = ::fstat(fd, &after) == 0 && IdentityOf(after) == IdentityOf(before);
    ::close(fd);
    if (input.regular) {
      // Written in place while it was read (an editor, not the module): read again.
      if (!stable && attempt < kMissingTries) continue;
      input.identity = IdentityOf(before);
    }
    return input;
  }
}

// ---- Profile ----------------------------------------------------------------

Profile::Profile(const Session& session, std::string path, Input input, bool created)
    : session_(session), path_(std::move(path)), input_(std::move(input)), created_(created) {}

Profile::~Profile() = default;

prhost::hKey Profile::Key(const std::string& path, bool create) const {
  prhost::Result<prhost::hKey> key = client().OpenKey(path, create);
  Check(key.code, path_ + ": key '" + path + "' " + (create ? "cannot be created" : "does not exist"));
  return key.value;
}

std::string NewDuplicateMarker() {
  // Random, so that no name in a profile happens to carry it.
  std::random_device random;
  char text[32];
  std::snprintf(text, sizeof text, "\x7Fpropmap%08x%08x#", random(), random());
  return text;
}

const std::string& Profile::DuplicateMarker() {
  if (marker_.empty()) marker_ = NewDuplicateMarker();
  return marker_;
}

std::string Unmarked(const std::string& text, const std::string& marker) {
  std::string out;
  out.reserve(text.size());
  size_t from = 0;
  for (size_t at; (at = text.find(marker, from)) != std::string::npos;) {
    size_t end = at + marker.size();
    while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
    if (end < text.size() && text[end] == '\x7F') {
      out.append(text, from, at - from);
      from = end + 1;
    } else {
      out.append(text, from, end - from);
      from = end;
    }
  }
  out.append(text, from, std::string::npos);
  return out;
}

void Profile::Save(bool keep_backup) {
  const std::string failed = path_ + ": cannot be saved; the file on disk is unchanged";
  prhost::Store* store = store_.get();
  std::unique_ptr<prhost::MemoryStream> text;
  std::unique_ptr<prhost::Store> reread;
  if (!marker_.empty()) {
    // The module writes the document into memory (a store without a name
    // flushes to its stream), the markers go, and the module reads it back:
    // duplicate names are now real, and that store is saved.
    prhost::MemoryStream written;
    store_->SetField(prhost::prop::kSourceObject, reinterpret_cast<uintptr_t>(written.object()));
    const prhost::tERROR flushed = registry().Flush(0);
    store_->SetField(prhost::prop::kSourceObject, reinterpret_cast<uintptr_t>(stream_->object()));
    Check(flushed, failed);
    if (written.content().empty()) return;  // nothing changed
    text = std::make_unique<prhost::MemoryStream>(Unmarked(written.content(), marker_));
    reread = session_.OpenOnStream(*text, session_.options().backup_mode);
    Check(reread->init_result().value_or(prhost::kOk), failed + " (its document does not read back)");
    MarkChanged(reread->registry());
    store = reread.get();
  }
  if (keep_backup) {
    store->SetField(prhost::prop::kBackupMode, std::max<uint64_t>(store->Field(prhost::prop::kBackupMode), 1));
  }
  Check(store->SetName(path_), failed);
  Check(store->registry().Flush(0), failed);
}

void MarkChanged(const prhost::Registry& registry) {
  static constexpr char kName[] = "\x7Fpropmap-changed";
  prhost::hKey key = prhost::kInvalidKey;
  if (registry.OpenKey(&key, 0, kName, 1) == 0x0000D001) (void)registry.DeleteKey(0, kName);
}

// ---- Session ----------------------------------------------------------------

std::string ModulePath(const std::string& option) {
  if (!option.empty()) return option;
  std::error_code ec;
  std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    std::filesystem::path installed = exe.parent_path().parent_path() / "lib/propmap/libpropmap.so";
    if (std::filesystem::exists(installed, ec)) return installed.string();
  }
  return PROPMAP_MODULE_PATH;
}

Session::Session(const CommonOptions& options) : options_(options) {
  prhost::LoadOptions load;
  load.path = ModulePath(options.module);
  // Without --trace the module gets no trace service and formats no lines.
  load.host.offer_trace = options.trace_level.has_value();
  if (::access(load.path.c_str(), R_OK) != 0) {
    throw ToolError(prhost::Code(0x800000C5), load.path + ": the module file cannot be read");
  }
  try {
    module_ = prhost::Module::Load(load);
  } catch (const std::exception& e) {
    throw ToolError(prhost::kErrUnexpected, load.path + ": the module cannot be loaded (" + e.what() + ")");
  }
  if (options.trace_level) {
    const uint32_t limit = *options.trace_level;
    prhost::TraceSink& sink = module_->trace();
    // Lines are echoed as they come and then dropped: a long run would
    // otherwise hold every line in memory.
    sink.set_observer([limit, &sink](const prhost::TraceLine& line) {
      if (line.level <= limit) std::fprintf(stderr, "trace %u: %s\n", line.level, line.text.c_str());
      sink.Clear();
    });
  }
}

Session::~Session() = default;

std::unique_ptr<Profile> Session::Open(const std::string& path, IfMissing missing, bool read_only,
                                       bool use_root) const {
  std::optional<Input> input = ReadInput(path);
  if (!input && missing == IfMissing::kFail) {
    throw ToolError(prhost::Code(0x800000C5), path + ": the profile does not exist");
  }
  const bool created = !input;
  return Load(path, input ? std::move(*input) : Input{}, created, read_only, use_root);
}

std::unique_ptr<Profile> Session::Load(const std::string& path, Input input, bool created, bool read_only,
                                       bool use_root) const {
  auto profile = std::make_unique<Profile>(*this, path, std::move(input), created);
  profile->stream_ = std::make_unique<prhost::MemoryStream>(profile->input_.bytes);
  prhost::StoreConfig config;
  config.read_only = options_.read_only || read_only ? 1 : 0;
  config.backup_mode = options_.backup_mode;
  config.source = profile->stream_->object();
  profile->store_ = prhost::Store::Open(module_, config, path);
  const prhost::tERROR loaded = profile->store_->init_result().value_or(prhost::kOk);
  if (prhost::Failed(loaded)) {
    const ValueProbe probe = [this](std::string_view type, std::string_view raw) { return RefusesValue(type, raw); };
    const std::string& text = profile->input_.bytes;
    const DocumentReport report = Examine(text, 0, &probe);
    if (report.refused) {
      throw ToolError(loaded, Where(path, text, report.refused->offset) + ": " + report.refused->what +
                                  "; the profile cannot be loaded");
    }
    throw ToolError(loaded, path + ": the profile cannot be loaded");
  }
  const std::optional<std::string> root = use_root ? options_.root : std::nullopt;
  if (root) {
    const bool create = !read_only && !options_.read_only;
    prhost::Result<prhost::hKey> key = profile->client().OpenKey(*root, create);
    Check(key.code, path + ": root key '" + *root + "' " + (create ? "cannot be created" : "does not exist"));
    Check(profile->registry().SetRootKey(key.value), path + ": cannot make '" + *root + "' the root");
  }
  return profile;
}

std::unique_ptr<prhost::Store> Session::OpenScratch(void* source) const {
  prhost::StoreConfig config;
  config.source = source;
  auto store = prhost::Store::Open(module_, config, "scratch");
  Check(store->init_result().value_or(prhost::kOk), "a scratch store cannot be created");
  return store;
}

std::unique_ptr<prhost::Store> Session::OpenOnStream(prhost::MemoryStream& stream, uint8_t backup_mode) const {
  prhost::StoreConfig config;
  config.source = stream.object();
  config.backup_mode = backup_mode;
  return prhost::Store::Open(module_, config, "document");
}

bool Session::RefusesValue(std::string_view type_name, std::string_view raw_text) const {
  prhost::MemoryStream stream("<propertiesmap><" + std::string(type_name) + " name=\"v\">" + std::string(raw_text) +
                              "</" + std::string(type_name) + "></propertiesmap>");
  return prhost::Failed(OpenOnStream(stream)->init_result().value_or(prhost::kOk));
}

}  // namespace propmap_tool
