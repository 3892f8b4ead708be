// Registration of the iRegistry implementation with the host.
//
// DllMain (reason 100) records the host object and registers four static
// descriptions: the internal callback table, the interface method list, the
// property table and the object size. The tables live in zero-initialised
// static storage and are rewritten on each registration; the method list is
// filled once.
#pragma once

#include <cstdint>

#include "module/result_codes.h"

namespace propmap {

// One record of the property table handed to the host.
struct PropertyRecord {
  uint64_t id;
  uint64_t value_or_position;
  uint64_t size;
  uint64_t flags;
  uint64_t getter;
  uint64_t setter;
};
static_assert(sizeof(PropertyRecord) == 48);

inline constexpr uint32_t kInternalSlots = 12;
inline constexpr uint32_t kPropertyCount = 13;
inline constexpr uint32_t kIidRegistry = 0xA7FB;
inline constexpr uint32_t kLoadReason = 100;

enum PropertyFlags : uint64_t {
  kFieldFlags1 = 1,
  kFieldFlags3 = 3,
  kConstantValue = 4,
  kConstantData = 12,
  kFieldFlags35 = 35,
};

// Runs the registration call; the result is the host's code.
[[nodiscard]] tERROR RegisterRegistryInterface();

// The tables as last registered (for tests of the module itself).
const PropertyRecord* RegisteredProperties();
void* const* RegisteredInternalTable();
const uint64_t* RegisteredMethodList();

}  // namespace propmap

extern "C" {
__attribute__((visibility("default"))) int DllMain(void* host, uint32_t reason, tERROR* result);
__attribute__((visibility("default"))) extern const uint32_t ixoModuleVersion[10];
}
