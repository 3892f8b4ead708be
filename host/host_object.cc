#include "host_object.h"

#include <array>
#include <atomic>
#include <shared_mutex>
#include <stdexcept>
#include <utility>

namespace prhost {
namespace {

// A module caches the trace function it was given, and lines of DllMain carry
// no store, so each host needs a function of its own that knows the host.
// A fixed pool of functions, each bound to a slot, gives that without
// generating code.
//
// A module that stays mapped after dlclose keeps its cached function and
// only asks again when it is given a host object at a different address. So
// a new host whose object sits where an earlier one did takes that host's
// slot back; otherwise slots go round-robin, keeping stale functions away
// from live hosts for as long as possible.
constexpr int kTraceSlots = 64;

std::shared_mutex g_slots_mu;
std::array<Host*, kTraceSlots> g_slots{};             // Protected by g_slots_mu
std::array<const void*, kTraceSlots> g_last_object{};  // Protected by g_slots_mu
int g_next_slot = 0;                                   // Protected by g_slots_mu
// Each slot's level limit, read before the lock: lines the host drops anyway
// never touch the shared mutex, so reader threads tracing at once do not
// contend on it. A free slot has no limit, so its lines still meet the lock.
struct LevelLimit {
  std::atomic<uint32_t> value{UINT32_MAX};
};
std::array<LevelLimit, kTraceSlots> g_level_limit;

template <int I>
tERROR TraceThunk(void* object, uint32_t level, const char* format, va_list args) {
  if (level > g_level_limit[I].value.load(std::memory_order_relaxed)) return kOk;
  std::shared_lock lock(g_slots_mu);
  Host* host = g_slots[I];
  if (host == nullptr) return kErrUnexpected;
  return host->trace().Write(object, level, format, args);
}

template <int... I>
constexpr std::array<TraceFn, kTraceSlots> MakeThunks(std::integer_sequence<int, I...>) {
  return {&TraceThunk<I>...};
}
constexpr std::array<TraceFn, kTraceSlots> kThunks = MakeThunks(std::make_integer_sequence<int, kTraceSlots>{});

int ClaimSlot(Host* host, const void* object, uint32_t level_limit) {
  std::unique_lock lock(g_slots_mu);
  int chosen = -1;
  for (int slot = 0; slot < kTraceSlots && chosen < 0; ++slot) {
    if (g_slots[slot] == nullptr && g_last_object[slot] == object) chosen = slot;
  }
  for (int tries = 0; tries < kTraceSlots && chosen < 0; ++tries) {
    int slot = g_next_slot;
    g_next_slot = (g_next_slot + 1) % kTraceSlots;
    if (g_slots[slot] == nullptr) chosen = slot;
  }
  if (chosen < 0) throw std::runtime_error("prhost: more than 64 hosts alive at once");
  g_slots[chosen] = host;
  g_last_object[chosen] = object;
  g_level_limit[chosen].value.store(level_limit, std::memory_order_relaxed);
  return chosen;
}

void ReleaseSlot(int slot) {
  std::unique_lock lock(g_slots_mu);
  g_slots[slot] = nullptr;
  g_level_limit[slot].value.store(UINT32_MAX, std::memory_order_relaxed);
}

tERROR HostUnimplemented(void*, ...) { return kErrNotImplemented; }

}  // namespace

Host::Host(HostOptions options) : options_(std::move(options)) {
  // One table serves every host: the operations find their Host through the
  // object they are called with.
  static const std::array<void*, kHostTableSlots> table = [] {
    std::array<void*, kHostTableSlots> t{};
    t.fill(reinterpret_cast<void*>(&HostUnimplemented));
    t[kHostRegisterSlot] = reinterpret_cast<void*>(&Host::RegisterInterface);
    t[kHostQueryServiceSlot] = reinterpret_cast<void*>(&Host::QueryService);
    return t;
  }();
  object_ = Object{table.data(), options_.plain_heap ? PlainObjTable() : HostObjTable(), this};
  trace_.set_echo(options_.echo);
  trace_.set_level_limit(options_.trace_level_limit);
  if (options_.offer_trace) trace_slot_ = ClaimSlot(this, &object_, options_.trace_level_limit);
}

Host::~Host() {
  if (trace_slot_ >= 0) ReleaseSlot(trace_slot_);
}

Host* Host::From(void* host) { return static_cast<Object*>(host)->owner; }

tERROR Host::RegisterInterface(void* host, uint32_t a13, uint32_t iid, uint32_t a0, uint32_t a1, uint32_t a55,
                               void* const* internal_table, uint32_t internal_count, const uint64_t* method_list,
                               uint32_t method_count, const void* properties, uint32_t property_count,
                               uint32_t object_size, uint32_t final0) {
  Host* self = From(host);
  Registration reg = CaptureRegistration(host, a13, iid, a0, a1, a55, internal_table, internal_count, method_list,
                                         method_count, properties, property_count, object_size, final0);
  reg.error = Validate(reg);
  tERROR answer = self->options_.register_result.value_or(reg.error.empty() ? kOk : kErrBadParameter);
  std::lock_guard lock(self->mu_);
  self->registrations_.push_back(std::move(reg));
  if (self->registrations_.back().error.empty() && Succeeded(answer)) {
    self->accepted_ = self->registrations_.size() - 1;
  }
  return answer;
}

tERROR Host::QueryService(void* host, void** out, uint32_t one, uint32_t service_id, uint32_t two) {
  Host* self = From(host);
  {
    std::lock_guard lock(self->mu_);
    self->queries_.push_back(ServiceQuery{one, service_id, two});
  }
  if (service_id != kTraceServiceId || self->trace_slot_ < 0 || out == nullptr) return kErrNotImplemented;
  *out = reinterpret_cast<void*>(kThunks[self->trace_slot_]);
  return kOk;
}

std::vector<Registration> Host::registrations() const {
  std::lock_guard lock(mu_);
  return registrations_;
}

std::optional<Registration> Host::accepted() const {
  std::lock_guard lock(mu_);
  if (!accepted_) return std::nullopt;
  return registrations_[*accepted_];
}

std::vector<ServiceQuery> Host::service_queries() const {
  std::lock_guard lock(mu_);
  return queries_;
}

std::shared_ptr<StoreHeap> Host::NewHeap(std::string label) {
  auto heap = std::make_shared<StoreHeap>(std::move(label));
  std::lock_guard lock(mu_);
  heaps_.push_back(heap);
  return heap;
}

std::vector<std::shared_ptr<StoreHeap>> Host::heaps() const {
  std::lock_guard lock(mu_);
  return heaps_;
}

void Host::ReportViolation(std::string what) {
  std::lock_guard lock(mu_);
  violations_.push_back(std::move(what));
}

std::vector<std::string> Host::violations() const {
  std::lock_guard lock(mu_);
  return violations_;
}

}  // namespace prhost
