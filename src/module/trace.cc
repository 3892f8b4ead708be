#include "module/trace.h"

#include <atomic>

namespace propmap {
namespace {

using TraceFn = tERROR (*)(void* object, uint32_t level, const char* format, va_list args);
using QueryServiceFn = tERROR (*)(void* host, void** out, uint32_t one, uint32_t service, uint32_t two);

// Relaxed atomics: the values are published once and a racing second fetch
// stores the same pointer.
std::atomic<HostObject*> g_host{nullptr};
std::atomic<TraceFn> g_trace{nullptr};

}  // namespace

HostObject* ModuleHost() { return g_host.load(std::memory_order_relaxed); }

void SetModuleHost(HostObject* host) {
  if (host != g_host.load(std::memory_order_relaxed)) g_trace.store(nullptr, std::memory_order_relaxed);
  g_host.store(host, std::memory_order_relaxed);
}

tERROR Trace(const void* object, uint32_t level, const char* format, ...) {
  HostObject* host = ModuleHost();
  if (host == nullptr) return ErrUnexpected;
  TraceFn fn = g_trace.load(std::memory_order_relaxed);
  if (fn == nullptr) {
    void* slot = nullptr;
    auto query = reinterpret_cast<QueryServiceFn>(host->table[kHostQueryServiceSlot]);
    (void)query(host, &slot, 1, kTraceServiceId, 2);
    fn = reinterpret_cast<TraceFn>(slot);
    if (fn == nullptr) return ErrUnexpected;
    g_trace.store(fn, std::memory_order_relaxed);
  }
  va_list args;
  va_start(args, format);
  tERROR result = fn(const_cast<void*>(object), level, format, args);
  va_end(args);
  return result;
}

}  // namespace propmap

