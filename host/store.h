// One store object, created and destroyed by the host the way a framework
// does it.
//
// The steps, in order, each callable on its own so tests can look between
// them:
//   Store(module)        zero-filled memory of the registered object size
//   Construct()          ObjectNew(store, 1); the module's iObj table found at
//                        store + 8 is kept as placeholder_table()
//   InstallHostServices() host iObj table at store + 8, heap account at + 16
//   SetProperty...       properties by id through the property records
//   InitDone()           internal slot 3
//   registry() calls     iRegistry slots
//   PreClose()           internal slot 5
//   Destroy()            ObjectNew(store, 0); checks that store + 8 holds the
//                        host's table again and + 16 is untouched
//   ~Store               frees the memory
// The destructor runs whatever teardown steps are still due: PreClose when
// InitDone ran, ObjectNew(0) when construction succeeded.
//
// Ownership: the Store owns the object's memory and shares its Module (which
// stays loaded while the Store lives). The heap account outlives the Store in
// the Host, so a test can check the balance after destruction.
//
// Thread-safety: lifecycle steps and property calls are for one thread at a
// time; registry() calls may come from many threads as the module allows.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "abi.h"
#include "client.h"
#include "heap.h"
#include "module_loader.h"
#include "registry.h"
#include "result.h"
#include "trace_sink.h"

namespace prhost {

// Properties for Store::Open; unset or zero ones are left alone.
struct StoreConfig {
  std::optional<std::string> name{};      // setName: the profile path
  std::optional<std::string> root_point{};  // setRootPoint, applied by the loader
  uint32_t read_only = 0;
  uint32_t flush_on_close = 0;
  uint32_t locking = 0;
  uint32_t loader_flags = 0;  // bit value 2 creates a missing profile
  uint8_t backup_mode = 0;
  void* source = nullptr;     // host stream object (MemoryStream::object())
  bool init = true;           // call InitDone
};

class Store {
 public:
  enum class Stage { kAllocated, kConstructed, kInitialized, kPreClosed, kDestroyed };

  explicit Store(std::shared_ptr<Module> module, std::string label = "store");
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // Allocate, Construct, InstallHostServices, set the configured properties
  // and (config.init) InitDone. Throws std::runtime_error when construction
  // or a property set fails; InitDone's code is left in init_result().
  static std::unique_ptr<Store> Open(std::shared_ptr<Module> module, const StoreConfig& config = {},
                                     std::string label = "store");

  // ---- Lifecycle steps ----
  tERROR Construct();
  void InstallHostServices();
  tERROR InitDone();
  tERROR PreClose();
  tERROR Destroy();

  Stage stage() const { return stage_; }
  std::optional<tERROR> init_result() const { return init_result_; }

  // ---- The object ----
  void* object() const { return memory_; }
  uint32_t size() const { return size_; }
  const std::string& label() const { return label_; }
  Module& module() { return *module_; }
  StoreHeap& heap() { return *heap_; }
  std::shared_ptr<StoreHeap> heap_ptr() const { return heap_; }

  void* const* registry_table() const { return Word<void* const*>(kStoreRegistryWord); }
  void* const* obj_table() const { return Word<void* const*>(kStoreObjWord); }
  uintptr_t host_word() const { return Word<uintptr_t>(kStoreHostWord); }
  // The iObj table the module installed in Construct(); null before.
  void* const* placeholder_table() const { return placeholder_table_; }
  // The address the module calls iObj entries with (store + 8).
  void* obj_self() const { return static_cast<char*>(memory_) + kStoreObjWord; }

  // ---- Properties ----
  // By id through the registered record: object fields are written and read
  // directly (size must equal the field's width), accessors are called with
  // the arguments as given, constants are read-only (ErrNotImplemented on set).
  // An id without a record throws std::invalid_argument.
  tERROR SetProperty(uint32_t id, const void* data, uint32_t size, uint32_t* out_size = nullptr);
  tERROR GetProperty(uint32_t id, void* buffer, uint32_t buffer_size, uint32_t* out_size);

  // Object fields as integers of the field's width.
  uint64_t Field(uint32_t id) const;
  void SetField(uint32_t id, uint64_t value);

  // Accessor properties, typed. Text setters pass the text and its NUL.
  tERROR SetName(const std::string& name);
  Result<std::string> GetName();
  tERROR SetRootPoint(const std::string& path);
  Result<std::string> GetRootPoint();
  tERROR SetRootKeyProperty(hKey key);
  Result<hKey> GetRootKeyProperty();

  // ---- Operations ----
  Registry registry() const { return Registry(memory_); }
  Client client() const { return Client(registry()); }

  // Trace lines written on behalf of this store.
  std::vector<TraceLine> TraceLines() const;
  std::vector<std::string> TraceTexts() const;

 private:
  template <typename T>
  T Word(size_t offset) const {
    T value;
    std::memcpy(&value, static_cast<const char*>(memory_) + offset, sizeof value);
    return value;
  }
  const PropertyRecord& Record(uint32_t id) const;
  char* FieldAddress(const PropertyRecord& record) const;
  Result<std::string> GetText(uint32_t id);
  void Violation(const std::string& what);

  std::shared_ptr<Module> module_;
  const std::string label_;
  const Registration* registration_;  // owned by the Module
  std::shared_ptr<StoreHeap> heap_;
  void* memory_ = nullptr;
  uint32_t size_ = 0;
  Stage stage_ = Stage::kAllocated;
  bool constructed_ = false;
  bool init_called_ = false;
  bool pre_closed_ = false;
  bool host_services_ = false;
  std::optional<tERROR> init_result_;
  void* const* placeholder_table_ = nullptr;
};

}  // namespace prhost
