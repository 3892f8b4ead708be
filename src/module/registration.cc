#include "module/registration.h"

#include <array>
#include <cstring>
#include <mutex>

#include "module/trace.h"
#include "registry/iregistry.h"
#include "registry/properties_map.h"

extern "C" const uint32_t ixoModuleVersion[10] = {
    1,                       // format of this record
    0x0726001E, 0x02F80000,  // version value
    0x0726001E, 0x02F80000,  // second version value
    0, 0, 0, 0, 0,           // reserved
};
static_assert(sizeof(ixoModuleVersion) == 40);

namespace propmap {
namespace {

using RegisterFn = tERROR (*)(void* host, uint32_t a13, uint32_t iid, uint32_t a0, uint32_t a1, uint32_t a55,
                              void* const* internal_table, uint32_t internal_count, const uint64_t* method_list,
                              uint32_t method_count, const PropertyRecord* properties, uint32_t property_count,
                              uint32_t object_size, uint32_t final0);

constexpr char kDescription[] = "properties map";
static_assert(sizeof(kDescription) == 15);

// Static storage the host keeps pointers into.
PropertyRecord g_properties[kPropertyCount];
void* g_internal[kInternalSlots];
uint64_t g_methods[kRegistryMethodCount];

uint64_t Fn(PropertyAccessor accessor) { return reinterpret_cast<uint64_t>(accessor); }
constexpr uint64_t Field(uint32_t position) { return position; }

std::array<PropertyRecord, kPropertyCount> BuildProperties() {
  return {{
      {0x21A00082, 1, 4, kConstantValue, 0, 0},
      {0x20900083, reinterpret_cast<uint64_t>(kDescription), sizeof(kDescription), kConstantData, 0, 0},
      {0x20601000, Field(kReadOnlyPosition), 4, kFieldFlags3, 0, 0},
      {0x20401002, Field(kHostSetting28Position), 4, kFieldFlags35, 0, 0},
      {0x20401003, Field(kHostSetting32Position), 4, kFieldFlags1, 0, 0},
      {0x20601004, Field(kFlushOnClosePosition), 4, kFieldFlags3, 0, 0},
      {0x2040004A, Field(kLoaderFlagsPosition), 4, kFieldFlags35, 0, 0},
      {0x20901005, 0, 0, 0, Fn(&getRootPoint), Fn(&setRootPoint)},
      {0x20C01006, 0, 0, 0, Fn(&getRootKey), Fn(&setRootKey)},
      {0x20900040, 0, 0, 0, Fn(&getName), Fn(&setName)},
      {0x33201000, Field(kSourcePosition), 8, kFieldFlags35, 0, 0},
      {0x30601001, Field(kLockingPosition), 4, kFieldFlags3, 0, 0},
      {0x30201002, Field(kBackupModePosition), 1, kFieldFlags3, 0, 0},
  }};
}

}  // namespace

const PropertyRecord* RegisteredProperties() { return g_properties; }
void* const* RegisteredInternalTable() { return g_internal; }
const uint64_t* RegisteredMethodList() { return g_methods; }

tERROR RegisterRegistryInterface() {
  const std::array<PropertyRecord, kPropertyCount> properties = BuildProperties();
  std::memcpy(g_properties, properties.data(), sizeof(g_properties));

  g_internal[1] = reinterpret_cast<void*>(&ObjectNew);
  g_internal[3] = reinterpret_cast<void*>(&InitDone);
  g_internal[5] = reinterpret_cast<void*>(&PreClose);

  // Each entry encodes a virtual slot as byte offset plus one.
  static std::once_flag methods_filled;
  std::call_once(methods_filled, [] {
    for (uint32_t k = 0; k < kRegistryMethodCount; ++k) g_methods[k] = 8 * k + 1;
  });

  HostObject* host = ModuleHost();
  auto register_fn = reinterpret_cast<RegisterFn>(host->table[kHostRegisterSlot]);
  tERROR err = register_fn(host, 13, kIidRegistry, 0, 1, 0x55, g_internal, kInternalSlots, g_methods,
                           kRegistryMethodCount, g_properties, kPropertyCount,
                           static_cast<uint32_t>(sizeof(PropertiesMap)), 0);
  if (Failed(err)) Trace(nullptr, kTraceRegistration, "Registry(IID_REGISTRY)registered [%terr]", err);
  return err;
}

}  // namespace propmap

extern "C" int DllMain(void* host, uint32_t reason, tERROR* result) {
  using namespace propmap;
  if (reason != kLoadReason) return 1;
  SetModuleHost(static_cast<HostObject*>(host));
  const tERROR err = RegisterRegistryInterface();
  if (result != nullptr) *result = err;  // the host may not ask for the code
  if (Succeeded(err)) return 1;
  Trace(nullptr, kTraceError, "cannot register \"Registry\" interface");
  return 0;
}
