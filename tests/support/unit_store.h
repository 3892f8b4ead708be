// A store object built the way a host builds one, over the module's static
// code: ObjectNew, the test heap's services, the name and flags, InitDone.
// Trace lines of every store go to one list while a TraceCapture lives.
//
// Thread-safety: lines may be captured from several threads; everything else
// is single-threaded test use.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "module/trace.h"
#include "registry/iregistry.h"
#include "registry/properties_map.h"
#include "registry/store_access.h"
#include "test_heap.h"

namespace propmap::testing {

// Records every line with its object and level, "%terr" printed as the
// code in hex.
class TraceCapture {
 public:
  struct Line {
    const void* object;
    uint32_t level;
    std::string text;
  };
  TraceCapture() {
    table_[kHostQueryServiceSlot] = reinterpret_cast<void*>(&QueryService);
    // Destruction restores this services table; every test heap's entries
    // are the same functions, which find their heap through the store.
    host_ = {table_, services_.host()->table};
    SetModuleHost(&host_);
    Lines().clear();
  }
  ~TraceCapture() { SetModuleHost(nullptr); }
  // While set, lines are dropped unformatted: a test failing the free store
  // must not have the capture allocate.
  static inline bool quiet = false;
  static std::vector<Line>& Lines() {
    static std::vector<Line> lines;
    return lines;
  }

 private:
  static tERROR Capture(void* object, uint32_t level, const char* format, va_list args) {
    if (quiet) return ResultOk;
    std::string f = format;
    for (size_t at; (at = f.find("%terr")) != std::string::npos;) f.replace(at, 5, "%08X");
    char text[512];
    std::vsnprintf(text, sizeof text, f.c_str(), args);
    static std::mutex mutex;  // stores with the locking property trace from several threads
    std::lock_guard lock(mutex);
    Lines().push_back({object, level, text});
    return ResultOk;
  }
  static tERROR QueryService(void*, void** out, uint32_t, uint32_t service, uint32_t) {
    *out = service == kTraceServiceId ? reinterpret_cast<void*>(&Capture) : nullptr;
    return ResultOk;
  }
  TestHeap services_;
  void* table_[16] = {};
  HostObject host_{};
};

class UnitStore {
 public:
  struct Config {
    std::string name;
    uint32_t loader_flags = 0;
    uint8_t backup_mode = 0;
    uint32_t locking = 0;
    bool init = true;  // else Init() is the caller's
  };
  explicit UnitStore(const Config& config) {
    // Destruction gives the store back the module host's services table, so
    // a store needs a host even where nobody reads its lines.
    if (ModuleHost() == nullptr) own_host_.emplace();
    (void)ObjectNew(store_, 1);
    store_->obj.table = heap_.host()->table;
    store_->host_word = reinterpret_cast<uint64_t>(&heap_);
    store_->config.name.assign(config.name);
    store_->config.loader_flags = config.loader_flags;
    store_->config.backup_mode = config.backup_mode;
    store_->config.locking = config.locking;
    if (config.init) init_result_ = InitDone(store_);
  }
  tERROR Init() { return init_result_ = InitDone(store_); }
  ~UnitStore() { (void)Close(); }
  // Destroys the object early, so that its heap can be checked after; only
  // the one-byte empty names, never given back, may stay.
  tERROR Close() {
    if (closed_) return ResultOk;
    closed_ = true;
    const tERROR err = ObjectNew(store_, 0);
    if (heap_.live_bytes() != heap_.live_blocks()) {
      // Used by fuzz targets too, which have no test framework: a leak is a crash.
      std::fprintf(stderr, "UnitStore: %zu bytes left in the heap after destruction\n", heap_.live_bytes());
      std::abort();
    }
    return err;
  }
  UnitStore(const UnitStore&) = delete;
  UnitStore& operator=(const UnitStore&) = delete;

  tERROR init_result() const { return init_result_; }
  PropertiesMap* store() { return store_; }
  TestHeap& heap() { return heap_; }
  tERROR Set(const char* name, tag_TYPE_ID type, const void* data, uint32_t size) {
    return store_->registry.table->SetValue(&store_->registry, 0, name, type, data, size, 1);
  }
  tERROR Get(const char* name, tag_TYPE_ID type, void* data, uint32_t size, uint32_t* out_size) {
    return store_->registry.table->GetValue(&store_->registry, out_size, 0, name, &type, data, size);
  }
  tERROR Flush() { return store_->registry.table->Flush(&store_->registry, 0); }
  bool dirty() { return IsDirty(store_); }

 private:
  TestHeap heap_;
  alignas(PropertiesMap) unsigned char memory_[sizeof(PropertiesMap)] = {};
  PropertiesMap* store_ = reinterpret_cast<PropertiesMap*>(memory_);
  tERROR init_result_ = ResultOk;
  bool closed_ = false;
  std::optional<TraceCapture> own_host_;  // destroyed after the store
};

}  // namespace propmap::testing
