#include "profile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "result_names.h"
#include "tool_error.h"

namespace propmap_tool {
namespace {

bool Exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

}  // namespace

prhost::hKey Profile::Key(const std::string& path, bool create) const {
  prhost::Result<prhost::hKey> key = client().OpenKey(path, create);
  Check(key.code, path_ + ": key '" + path + "' " + (create ? "cannot be created" : "does not exist"));
  return key.value;
}

void Profile::Save() const {
  Check(registry().Flush(0), path_ + ": cannot be saved; the file on disk is unchanged");
}

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
  prhost::StoreConfig config;
  config.read_only = options_.read_only || read_only ? 1 : 0;
  config.backup_mode = options_.backup_mode;
  const std::optional<std::string> root = use_root ? options_.root : std::nullopt;
  const bool start_empty =
      missing == IfMissing::kReplace || (missing == IfMissing::kStartEmpty && !Exists(path));
  if (!start_empty) {
    config.name = path;
    config.root_point = root;
  }
  auto store = prhost::Store::Open(module_, config, path);
  prhost::tERROR loaded = store->init_result().value_or(prhost::kOk);
  if (prhost::Failed(loaded)) {
    throw ToolError(loaded, path + ": the profile cannot be loaded");
  }
  if (start_empty) {
    // The name is set only now, so that loading did not create the file: it
    // appears with the first successful save.
    Check(store->SetName(path), path + ": cannot name the new profile");
    if (root) {
      prhost::Result<prhost::hKey> key = store->client().OpenKey(*root, true);
      Check(key.code, path + ": root key '" + *root + "' cannot be created");
      Check(store->registry().SetRootKey(key.value), path + ": cannot make '" + *root + "' the root");
    }
  }
  return std::make_unique<Profile>(std::move(store), path);
}

std::unique_ptr<prhost::Store> Session::OpenScratch(void* source) const {
  prhost::StoreConfig config;
  config.source = source;
  auto store = prhost::Store::Open(module_, config, "scratch");
  Check(store->init_result().value_or(prhost::kOk), "a scratch store cannot be created");
  return store;
}

}  // namespace propmap_tool
