// The host object a module receives in DllMain.
//
// Word 0 points at the host's table of operations (slot 0 registers an
// interface, slot 14 answers service queries); word 1 points at the host's
// iObj table, which the module puts back into a store when destroying it.
// The Host records every registration call (arguments and copies of the
// tables), validates it, and answers the trace-service query with a trace
// function bound to this host's TraceSink. It also owns the heap accounts of
// the stores created through it, so that their balance can be checked after
// the stores are gone.
//
// A module keeps one host pointer, so a Host must live as long as the module
// that received it stays loaded.
//
// Thread-safety: the registration list and the service-query list are guarded
// by a mutex; tracing may come from any thread. Options are fixed at
// construction.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "abi.h"
#include "heap.h"
#include "registration.h"
#include "trace_sink.h"

namespace prhost {

struct HostOptions {
  // Answer the trace-service query; without it the module writes no lines.
  bool offer_trace = true;
  // Code the registration call returns. Unset: 0 for a valid registration,
  // ErrBadParameter for one that fails validation.
  std::optional<tERROR> register_result{};
  TraceEcho echo = TraceEcho::kNone;
  // Lines of a higher (less important) level than this are dropped before
  // they are formatted, as a production host's filtering sink does.
  uint32_t trace_level_limit = UINT32_MAX;
  // Give stores plain malloc blocks with no account, fill or lock, so that
  // benchmarks measure the module and not the test heap's bookkeeping. The
  // stores' StoreHeap accounts then stay empty and faults cannot be injected.
  bool plain_heap = false;
};

struct ServiceQuery {
  uint32_t one = 0;
  uint32_t service_id = 0;
  uint32_t two = 0;
};

class Host {
 public:
  explicit Host(HostOptions options = {});
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // The pointer to give to DllMain.
  void* object() { return &object_; }
  // Word 1 of the host object: the table the module restores at destruction.
  void* const* obj_table() const { return object_.obj_table; }
  void* const* operations() const { return object_.table; }

  TraceSink& trace() { return trace_; }
  const TraceSink& trace() const { return trace_; }
  const HostOptions& options() const { return options_; }

  // Every registration call so far, in order, with its validation result.
  [[nodiscard]] std::vector<Registration> registrations() const;
  // The last registration that validated and was answered with a
  // non-negative code; empty when there is none.
  [[nodiscard]] std::optional<Registration> accepted() const;
  [[nodiscard]] std::vector<ServiceQuery> service_queries() const;

  // Heap accounts of stores created through this host (destroyed ones too).
  std::shared_ptr<StoreHeap> NewHeap(std::string label);
  [[nodiscard]] std::vector<std::shared_ptr<StoreHeap>> heaps() const;

  // Breaches of the contract the host noticed (for example a store whose
  // iObj word was not restored); tests assert this stays empty.
  void ReportViolation(std::string what);
  [[nodiscard]] std::vector<std::string> violations() const;

 private:
  struct Object {
    void* const* table;
    void* const* obj_table;
    Host* owner;
  };
  static Host* From(void* host);
  static tERROR RegisterInterface(void* host, uint32_t a13, uint32_t iid, uint32_t a0, uint32_t a1, uint32_t a55,
                                  void* const* internal_table, uint32_t internal_count,
                                  const uint64_t* method_list, uint32_t method_count, const void* properties,
                                  uint32_t property_count, uint32_t object_size, uint32_t final0);
  static tERROR QueryService(void* host, void** out, uint32_t one, uint32_t service_id, uint32_t two);

  const HostOptions options_;
  Object object_;
  TraceSink trace_;
  int trace_slot_ = -1;  // Constant after construction; -1 without a trace service
  mutable std::mutex mu_;
  std::vector<Registration> registrations_;  // Protected by mu_
  std::optional<size_t> accepted_;           // Protected by mu_
  std::vector<ServiceQuery> queries_;        // Protected by mu_
  std::vector<std::shared_ptr<StoreHeap>> heaps_;  // Protected by mu_
  std::vector<std::string> violations_;      // Protected by mu_
};

}  // namespace prhost
