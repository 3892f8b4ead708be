// Loading a module file and registering it with a host.
//
// Module::Load opens the shared object with dlopen (RTLD_NOW | RTLD_LOCAL),
// checks the exported version record (40 bytes, format 1), creates the Host
// and, unless told otherwise, calls DllMain with reason 100 and requires a
// valid, accepted registration. Errors are thrown as std::runtime_error with
// the reason in the message.
//
// One module instance keeps one host pointer, so loading the same file twice
// would give both Modules the same instance. Load refuses that; with
// `private_copy` the file is first copied to a temporary path, which gives an
// independent instance with its own statics (for copying between two module
// instances). The copy is removed when the Module is destroyed.
//
// Ownership: a Module is shared by the Stores created from it; it unloads
// the file when the last reference goes away, and its Host goes with it.
//
// Thread-safety: Load and destruction may run on any thread; CallDllMain
// should be called from one thread at a time, as a loader does.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "abi.h"
#include "host_object.h"
#include "registration.h"

#ifndef PROPMAP_MODULE_PATH
#define PROPMAP_MODULE_PATH "libpropmap.so"
#endif

namespace prhost {

struct LoadOptions {
  std::string path = PROPMAP_MODULE_PATH;
  // Load an independent instance from a temporary copy of the file.
  bool private_copy = false;
  // Call DllMain(100) and require an accepted registration.
  bool register_now = true;
  HostOptions host{};
};

class Module {
 public:
  static std::shared_ptr<Module> Load(LoadOptions options = {});
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  // The file given to Load, and the file actually opened (differs with a
  // private copy).
  const std::string& source_path() const { return source_path_; }
  const std::string& loaded_path() const { return loaded_path_; }

  // The exported version record: a copy, its address and its symbol size.
  const VersionRecord& version() const { return version_; }
  const void* version_address() const { return version_address_; }
  size_t version_symbol_size() const { return version_size_; }

  DllMainFn dll_main() const { return dll_main_; }
  // Calls DllMain with this module's host; afterwards registration() reflects
  // the host's latest accepted registration.
  int CallDllMain(uint32_t reason, tERROR* result);
  // Same, with an arbitrary host pointer (tests of the module frame).
  int CallDllMainWith(void* host, uint32_t reason, tERROR* result);

  Host& host() { return *host_; }
  const Host& host() const { return *host_; }
  TraceSink& trace() { return host_->trace(); }

  // The accepted registration; throws std::logic_error when there is none.
  // References stay valid for the Module's life, also across later calls.
  const Registration& registration() const;
  bool registered() const { return !accepted_.empty(); }

  // dlsym in this module (null when absent).
  void* Symbol(const char* name) const;

 private:
  Module() = default;
  void RefreshRegistration();

  std::string source_path_;
  std::string loaded_path_;
  std::string canonical_path_;  // key of the process-wide "already loaded" set
  bool temporary_copy_ = false;
  void* handle_ = nullptr;
  DllMainFn dll_main_ = nullptr;
  VersionRecord version_{};
  const void* version_address_ = nullptr;
  size_t version_size_ = 0;
  std::unique_ptr<Host> host_;
  std::vector<std::unique_ptr<Registration>> accepted_;  // last one is current
};

}  // namespace prhost
