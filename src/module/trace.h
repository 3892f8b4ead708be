// Tracing through the host's trace service.
//
// The host object is recorded by DllMain; the trace function is fetched from it
// once (service 0x5EC5256C through host slot 14) on first use. A fetch race
// between threads fetches it twice, harmlessly. Callers ignore the result: a
// missing trace never changes an operation's outcome.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "module/result_codes.h"

namespace propmap {

inline constexpr uint32_t kTraceRegistration = 200;
inline constexpr uint32_t kTraceError = 300;
inline constexpr uint32_t kTraceWarning = 350;
inline constexpr uint32_t kTraceProgress = 400;
inline constexpr uint32_t kTraceBackup = 500;
inline constexpr uint32_t kTraceOperation = 600;

// Host object layout as the module sees it: the operations table, then the
// host's own object-services table.
struct HostObject {
  void* const* table;
  void* const* obj_table;
};

inline constexpr uint32_t kHostRegisterSlot = 0;
inline constexpr uint32_t kHostQueryServiceSlot = 14;
inline constexpr uint32_t kTraceServiceId = 0x5EC5256C;

// Module-wide host object; null until DllMain records it.
HostObject* ModuleHost();
void SetModuleHost(HostObject* host);

// Writes one line on behalf of `object` (null for module-level lines).
// Returns ErrUnexpected without a host or trace service.
tERROR Trace(const void* object, uint32_t level, const char* format, ...);

}  // namespace propmap
