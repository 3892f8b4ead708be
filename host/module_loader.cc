#include "module_loader.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <stdexcept>

namespace prhost {
namespace {

std::mutex g_loaded_mu;
std::set<std::string> g_loaded;  // Protected by g_loaded_mu: canonical paths loaded in place

[[noreturn]] void Fail(const std::string& what) { throw std::runtime_error("prhost: " + what); }

std::string ErrnoText(int err) { return std::string(std::strerror(err)); }

// Copies `from` to a fresh temporary file ending in ".so"; returns its path.
std::string CopyToTemporary(const std::string& from) {
  const char* dir = std::getenv("TMPDIR");
  std::string pattern = std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/prhost-module-XXXXXX.so";
  int out = mkstemps(pattern.data(), 3);
  if (out < 0) Fail("cannot create a temporary copy: " + ErrnoText(errno));
  int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) {
    int err = errno;
    close(out);
    unlink(pattern.c_str());
    Fail("cannot open " + from + ": " + ErrnoText(err));
  }
  char buf[1 << 16];
  bool ok = true;
  for (;;) {
    ssize_t n = read(in, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ok = n == 0;
      break;
    }
    for (ssize_t done = 0; done < n;) {
      ssize_t w = write(out, buf + done, static_cast<size_t>(n - done));
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) {
        ok = false;
        break;
      }
      done += w;
    }
    if (!ok) break;
  }
  int err = errno;
  close(in);
  if (close(out) != 0) ok = false;
  if (!ok) {
    unlink(pattern.c_str());
    Fail("cannot copy " + from + ": " + ErrnoText(err));
  }
  return pattern;
}

}  // namespace

std::shared_ptr<Module> Module::Load(LoadOptions options) {
  std::shared_ptr<Module> m(new Module());
  m->source_path_ = options.path;
  char resolved[PATH_MAX];
  if (realpath(options.path.c_str(), resolved) == nullptr) {
    Fail("module file " + options.path + ": " + ErrnoText(errno));
  }
  if (options.private_copy) {
    m->loaded_path_ = CopyToTemporary(resolved);
    m->temporary_copy_ = true;
  } else {
    std::lock_guard lock(g_loaded_mu);
    if (!g_loaded.insert(resolved).second) {
      Fail(options.path + " is already loaded in this process; set private_copy for an independent instance");
    }
    m->canonical_path_ = resolved;
    m->loaded_path_ = resolved;
  }

  m->handle_ = dlopen(m->loaded_path_.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (m->handle_ == nullptr) Fail(std::string("dlopen failed: ") + dlerror());

  m->dll_main_ = reinterpret_cast<DllMainFn>(dlsym(m->handle_, kDllMainSymbol));
  if (m->dll_main_ == nullptr) Fail(m->loaded_path_ + " exports no " + kDllMainSymbol);

  void* version = dlsym(m->handle_, kVersionSymbol);
  if (version == nullptr) Fail(m->loaded_path_ + " exports no " + kVersionSymbol);
  Dl_info info;
  void* sym_entry = nullptr;
  if (dladdr1(version, &info, &sym_entry, RTLD_DL_SYMENT) == 0 || sym_entry == nullptr) {
    Fail(std::string("cannot describe the symbol ") + kVersionSymbol);
  }
  const auto* sym = static_cast<const ElfW(Sym)*>(sym_entry);
  m->version_address_ = version;
  m->version_size_ = sym->st_size;
  if (ELF64_ST_TYPE(sym->st_info) != STT_OBJECT) Fail(std::string(kVersionSymbol) + " is not a data object");
  if (sym->st_size != sizeof(VersionRecord)) {
    Fail(std::string(kVersionSymbol) + " holds " + std::to_string(sym->st_size) + " bytes, expected 40");
  }
  std::memcpy(&m->version_, version, sizeof(VersionRecord));
  if (m->version_.format != 1) Fail("version record format " + std::to_string(m->version_.format) + ", expected 1");

  m->host_ = std::make_unique<Host>(options.host);
  if (!options.register_now) return m;

  tERROR result = 0;
  int ok = m->CallDllMain(kReasonRegister, &result);
  if (ok != 1 || Failed(result) || !m->registered()) {
    std::string why = "DllMain(100) returned " + std::to_string(ok) + " with result " + std::to_string(result);
    std::vector<Registration> calls = m->host_->registrations();
    if (calls.empty()) why += "; no registration call was made";
    else if (!calls.back().error.empty()) why += "; " + calls.back().error;
    Fail(why);
  }
  return m;
}

Module::~Module() {
  // Stores hold a reference to their Module, so none is alive here.
  if (handle_ != nullptr) dlclose(handle_);
  if (temporary_copy_) unlink(loaded_path_.c_str());
  if (!canonical_path_.empty()) {
    std::lock_guard lock(g_loaded_mu);
    g_loaded.erase(canonical_path_);
  }
}

int Module::CallDllMain(uint32_t reason, tERROR* result) { return CallDllMainWith(host_->object(), reason, result); }

int Module::CallDllMainWith(void* host, uint32_t reason, tERROR* result) {
  int ok = dll_main_(host, reason, result);
  RefreshRegistration();
  return ok;
}

void Module::RefreshRegistration() {
  std::optional<Registration> accepted = host_->accepted();
  if (accepted) accepted_.push_back(std::make_unique<Registration>(std::move(*accepted)));
}

const Registration& Module::registration() const {
  if (accepted_.empty()) throw std::logic_error("prhost: the module has not registered");
  return *accepted_.back();
}

void* Module::Symbol(const char* name) const { return dlsym(handle_, name); }

}  // namespace prhost
