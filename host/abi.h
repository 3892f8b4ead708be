// The binary contract between a host and a propmap module, declared from the
// host's side. The host never includes the module's headers: everything it
// needs to drive a module (exports, registration arguments, slot numbers,
// record layouts, property ids) is restated here, so that a drift in the
// module shows up as a test failure instead of being compiled away.
//
// Thread-safety: constants and plain records only.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace prhost {

using tERROR = int32_t;
using hKey = uint64_t;
using TypeId = uint32_t;

inline constexpr hKey kInvalidKey = ~hKey{0};  // written by opening operations on failure

[[nodiscard]] constexpr bool Failed(tERROR code) { return code < 0; }
[[nodiscard]] constexpr bool Succeeded(tERROR code) { return code >= 0; }
constexpr tERROR Code(uint32_t bits) { return static_cast<tERROR>(bits); }

// Codes the host itself produces or tests most often compare against. The full
// catalogue with names lives in result_names.cc.
inline constexpr tERROR kOk = 0;
inline constexpr tERROR kKeyCreated = 0xD001;
inline constexpr tERROR kErrUnexpected = Code(0x80000040);
inline constexpr tERROR kErrNoMemory = Code(0x80000041);
inline constexpr tERROR kErrBufferTooSmall = Code(0x80000044);
inline constexpr tERROR kErrBadParameter = Code(0x80000046);
inline constexpr tERROR kErrNotImplemented = Code(0x800000C2);
inline constexpr tERROR kErrNotFound = Code(0x8000D002);
inline constexpr tERROR kErrInvalidHandle = Code(0x8000D004);

// ---- Exports -------------------------------------------------------------

inline constexpr const char* kDllMainSymbol = "DllMain";
inline constexpr const char* kVersionSymbol = "ixoModuleVersion";
inline constexpr uint32_t kReasonRegister = 100;

using DllMainFn = int (*)(void* host, uint32_t reason, tERROR* result);

struct VersionRecord {
  uint32_t format;
  uint32_t version[2];
  uint32_t second_version[2];
  uint8_t reserved[20];
};
static_assert(sizeof(VersionRecord) == 40);

// ---- Host object -----------------------------------------------------------

inline constexpr uint32_t kHostRegisterSlot = 0;
inline constexpr uint32_t kHostQueryServiceSlot = 14;
inline constexpr uint32_t kHostTableSlots = 16;
inline constexpr uint32_t kTraceServiceId = 0x5EC5256C;

using RegisterInterfaceFn = tERROR (*)(void* host, uint32_t a13, uint32_t iid, uint32_t a0, uint32_t a1,
                                       uint32_t a55, void* const* internal_table, uint32_t internal_count,
                                       const uint64_t* method_list, uint32_t method_count,
                                       const void* properties, uint32_t property_count,
                                       uint32_t object_size, uint32_t final0);
using QueryServiceFn = tERROR (*)(void* host, void** out, uint32_t one, uint32_t service_id, uint32_t two);
using TraceFn = tERROR (*)(void* object, uint32_t level, const char* format, va_list args);

// ---- Registration ----------------------------------------------------------

inline constexpr uint32_t kIidRegistry = 0xA7FB;
inline constexpr uint32_t kInternalSlots = 12;
inline constexpr uint32_t kMethodCount = 23;
inline constexpr uint32_t kPropertyCount = 13;

inline constexpr uint32_t kInternalObjectNew = 1;
inline constexpr uint32_t kInternalInitDone = 3;
inline constexpr uint32_t kInternalPreClose = 5;

using ObjectNewFn = tERROR (*)(void* store, uint32_t construct);
using InitDoneFn = tERROR (*)(void* store);
using PreCloseFn = tERROR (*)(void* store);

struct PropertyRecord {
  uint64_t id;
  uint64_t value_or_position;
  uint64_t size;
  uint64_t flags;
  uint64_t getter;
  uint64_t setter;
};
static_assert(sizeof(PropertyRecord) == 48);

// Record kinds, told apart by their flags.
inline constexpr uint64_t kPropFlagsConstValue = 4;
inline constexpr uint64_t kPropFlagsConstData = 12;
inline constexpr uint64_t kPropFlagsAccessor = 0;
[[nodiscard]] constexpr bool IsFieldFlags(uint64_t flags) { return flags == 1 || flags == 3 || flags == 35; }

using AccessorFn = tERROR (*)(void* store, uint32_t* size, uint32_t property_id, char* buffer,
                              uint32_t buffer_size);

// Property ids.
namespace prop {
inline constexpr uint32_t kConstantOne = 0x21A00082;
inline constexpr uint32_t kDescription = 0x20900083;
inline constexpr uint32_t kReadOnly = 0x20601000;        // field @24, 4 bytes
inline constexpr uint32_t kHostSetting28 = 0x20401002;   // field @28, 4 bytes
inline constexpr uint32_t kHostSetting32 = 0x20401003;   // field @32, 4 bytes
inline constexpr uint32_t kFlushOnClose = 0x20601004;    // field @36, 4 bytes
inline constexpr uint32_t kLoaderFlags = 0x2040004A;     // field @96, 4 bytes; bit 2 creates a missing profile
inline constexpr uint32_t kRootPoint = 0x20901005;       // accessors getRootPoint / setRootPoint
inline constexpr uint32_t kRootKey = 0x20C01006;         // accessors getRootKey / setRootKey
inline constexpr uint32_t kName = 0x20900040;            // accessors getName / setName
inline constexpr uint32_t kSourceObject = 0x33201000;    // field @104, 8 bytes
inline constexpr uint32_t kLocking = 0x30601001;         // field @112, 4 bytes
inline constexpr uint32_t kBackupMode = 0x30201002;      // field @116, 1 byte
}  // namespace prop

// ---- Store object ----------------------------------------------------------

inline constexpr size_t kStoreRegistryWord = 0;  // iRegistry table
inline constexpr size_t kStoreObjWord = 8;       // iObj table
inline constexpr size_t kStoreHostWord = 16;     // reserved for the host
inline constexpr size_t kStoreConfigBlock = 24;  // property positions count from here

// ---- iObj ------------------------------------------------------------------

inline constexpr uint32_t kObjEntries = 82;
inline constexpr uint32_t kObjAlloc = 52;
inline constexpr uint32_t kObjRealloc = 53;
inline constexpr uint32_t kObjFree = 54;

using ObjAllocFn = tERROR (*)(void* self, void** out, uint32_t size);
using ObjReallocFn = tERROR (*)(void* self, void** inout, void* old_block, uint32_t new_size);
using ObjFreeFn = tERROR (*)(void* self, void* block);
using ObjEntryFn = tERROR (*)(void* self);

// ---- Host stream (source object) --------------------------------------------

inline constexpr uint32_t kStreamSeekRead = 0;
inline constexpr uint32_t kStreamSeekWrite = 1;
inline constexpr uint32_t kStreamGetSize = 2;
inline constexpr uint32_t kStreamFlush = 4;
inline constexpr uint32_t kStreamSlots = 5;

// ---- iRegistry -------------------------------------------------------------

inline constexpr uint32_t kRegistrySlots = 23;

// Type identifiers the typed client uses.
inline constexpr TypeId tWORD = 3;
inline constexpr TypeId tDWORD = 4;
inline constexpr TypeId tQWORD = 5;
inline constexpr TypeId tBOOL = 6;
inline constexpr TypeId tSTRING = 9;
inline constexpr TypeId tWSTRING = 10;
inline constexpr TypeId tLONG = 18;
inline constexpr TypeId tDOUBLE = 32;
inline constexpr TypeId tBINARY = 48;
inline constexpr TypeId tSTRING_OBJ = 56;

// The string object of tSTRING_OBJ values (32-bit wchar_t on this platform).
struct StringObject {
  wchar_t* chars;
  uint32_t count;
};

}  // namespace prhost
