#include "registration.h"

#include <cstdio>
#include <cstring>
#include <set>

namespace prhost {
namespace {

// Counts beyond this are garbage; copying them would read wild memory.
constexpr uint32_t kCopyLimit = 4096;

// The configuration block ends with the 1-byte backup mode at position 116.
constexpr uint64_t kMinConfigBlock = 117;

std::string Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Printf(const char* format, ...) {
  char buf[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buf, sizeof buf, format, args);
  va_end(args);
  return buf;
}

const char* KindOf(const PropertyRecord& r) {
  if (r.flags == kPropFlagsConstValue) return "constant";
  if (r.flags == kPropFlagsConstData) return "const data";
  if (IsFieldFlags(r.flags)) return "field";
  if (r.flags == kPropFlagsAccessor && r.size == 0) return "accessor";
  return "unknown";
}

std::string CheckProperty(const Registration& reg, uint32_t index, const PropertyRecord& r) {
  const std::string at = Printf("property %u (id 0x%08llX)", index, static_cast<unsigned long long>(r.id));
  if (r.id > UINT32_MAX) return at + ": id wider than 32 bits";
  if (r.flags == kPropFlagsConstValue) {
    if (r.size == 0 || r.size > 8) return at + Printf(": constant of %llu bytes", (unsigned long long)r.size);
    if (r.getter != 0 || r.setter != 0) return at + ": constant carries accessors";
    return {};
  }
  if (r.flags == kPropFlagsConstData) {
    if (r.value_or_position == 0) return at + ": constant data without a pointer";
    if (r.size == 0) return at + ": constant data of size 0";
    if (r.getter != 0 || r.setter != 0) return at + ": constant data carries accessors";
    return {};
  }
  if (IsFieldFlags(r.flags)) {
    if (r.size != 1 && r.size != 2 && r.size != 4 && r.size != 8) {
      return at + Printf(": field of %llu bytes", (unsigned long long)r.size);
    }
    uint64_t end = kStoreConfigBlock + r.value_or_position + r.size;
    if (end > reg.object_size) {
      return at + Printf(": field %llu+%llu ends at byte %llu of an object of %u bytes",
                         (unsigned long long)r.value_or_position, (unsigned long long)r.size,
                         (unsigned long long)end, reg.object_size);
    }
    if (r.value_or_position % r.size != 0) return at + ": field not aligned to its size";
    if (r.getter != 0 || r.setter != 0) return at + ": field carries accessors";
    return {};
  }
  if (r.flags == kPropFlagsAccessor) {
    if (r.size != 0) return at + ": accessor with a size";
    if (r.getter == 0 || r.setter == 0) return at + ": accessor without getter or setter";
    return {};
  }
  return at + Printf(": unknown flags %llu", (unsigned long long)r.flags);
}

}  // namespace

const PropertyRecord* Registration::FindProperty(uint32_t id) const {
  for (const PropertyRecord& r : property_records) {
    if (r.id == id) return &r;
  }
  return nullptr;
}

Registration CaptureRegistration(void* host, uint32_t a13, uint32_t iid, uint32_t a0, uint32_t a1, uint32_t a55,
                                 void* const* internal_table, uint32_t internal_count,
                                 const uint64_t* method_list, uint32_t method_count, const void* properties,
                                 uint32_t property_count, uint32_t object_size, uint32_t final0) {
  Registration reg;
  reg.host = host;
  reg.a13 = a13;
  reg.iid = iid;
  reg.a0 = a0;
  reg.a1 = a1;
  reg.a55 = a55;
  reg.internal_table = internal_table;
  reg.internal_count = internal_count;
  reg.method_list = method_list;
  reg.method_count = method_count;
  reg.properties = static_cast<const PropertyRecord*>(properties);
  reg.property_count = property_count;
  reg.object_size = object_size;
  reg.final0 = final0;
  if (internal_table != nullptr && internal_count <= kCopyLimit) {
    reg.internal.assign(internal_table, internal_table + internal_count);
  }
  if (method_list != nullptr && method_count <= kCopyLimit) {
    reg.methods.assign(method_list, method_list + method_count);
  }
  if (properties != nullptr && property_count <= kCopyLimit) {
    reg.property_records.resize(property_count);
    std::memcpy(reg.property_records.data(), properties, sizeof(PropertyRecord) * property_count);
  }
  return reg;
}

std::string Validate(const Registration& reg) {
  struct Expect {
    const char* what;
    uint32_t got;
    uint32_t want;
  };
  const Expect constants[] = {
      {"argument 2", reg.a13, 13},          {"interface id", reg.iid, kIidRegistry},
      {"argument 4", reg.a0, 0},            {"argument 5", reg.a1, 1},
      {"argument 6", reg.a55, 0x55},        {"internal slot count", reg.internal_count, kInternalSlots},
      {"method count", reg.method_count, kMethodCount},
      {"property count", reg.property_count, kPropertyCount},
      {"final argument", reg.final0, 0},
  };
  for (const Expect& e : constants) {
    if (e.got != e.want) return Printf("registration: %s is 0x%X, expected 0x%X", e.what, e.got, e.want);
  }
  if (reg.internal_table == nullptr) return "registration: no internal table";
  if (reg.method_list == nullptr) return "registration: no method list";
  if (reg.properties == nullptr) return "registration: no property table";
  if (reg.object_size < kStoreConfigBlock + kMinConfigBlock) {
    return Printf("registration: object size %u cannot hold the configuration block", reg.object_size);
  }
  for (uint32_t i = 0; i < reg.internal.size(); ++i) {
    bool wanted = i == kInternalObjectNew || i == kInternalInitDone || i == kInternalPreClose;
    if (wanted && reg.internal[i] == nullptr) return Printf("registration: internal slot %u is empty", i);
    if (!wanted && reg.internal[i] != nullptr) return Printf("registration: internal slot %u is not empty", i);
  }
  for (uint32_t k = 0; k < reg.methods.size(); ++k) {
    if (reg.methods[k] != 8ull * k + 1) {
      return Printf("registration: method %u encoded as %llu, expected %u", k,
                    (unsigned long long)reg.methods[k], 8 * k + 1);
    }
  }
  std::set<uint64_t> ids;
  for (uint32_t i = 0; i < reg.property_records.size(); ++i) {
    const PropertyRecord& r = reg.property_records[i];
    std::string problem = CheckProperty(reg, i, r);
    if (!problem.empty()) return "registration: " + problem;
    if (!ids.insert(r.id).second) {
      return Printf("registration: property id 0x%08llX registered twice", (unsigned long long)r.id);
    }
  }
  return {};
}

std::string DescribeRegistration(const Registration& reg) {
  std::string out;
  out += Printf("interface 0x%X, arguments %u 0x%X %u %u 0x%X ... %u, object size %u bytes\n", reg.iid, reg.a13,
                reg.iid, reg.a0, reg.a1, reg.a55, reg.final0, reg.object_size);
  out += Printf("internal table (%u slots):", reg.internal_count);
  for (uint32_t i = 0; i < reg.internal.size(); ++i) {
    if (reg.internal[i] != nullptr) out += Printf(" [%u]=%p", i, reg.internal[i]);
  }
  out += Printf("\nmethod list (%u entries):", reg.method_count);
  for (uint64_t m : reg.methods) out += Printf(" %llu", (unsigned long long)m);
  out += Printf("\nproperty table (%u records):\n", reg.property_count);
  out += "   #  id          kind        value/pos           size  flags  getter          setter\n";
  for (uint32_t i = 0; i < reg.property_records.size(); ++i) {
    const PropertyRecord& r = reg.property_records[i];
    std::string value;
    if (r.flags == kPropFlagsConstData && r.value_or_position != 0) {
      value = Printf("\"%.*s\"", static_cast<int>(r.size),
                     reinterpret_cast<const char*>(static_cast<uintptr_t>(r.value_or_position)));
    } else if (r.flags == kPropFlagsAccessor) {
      value = "-";
    } else {
      value = Printf("%llu", (unsigned long long)r.value_or_position);
    }
    out += Printf("  %2u  0x%08llX  %-10s  %-18s  %4llu  %5llu  %-14s  %-14s\n", i, (unsigned long long)r.id,
                  KindOf(r), value.c_str(), (unsigned long long)r.size, (unsigned long long)r.flags,
                  r.getter ? Printf("%#llx", (unsigned long long)r.getter).c_str() : "-",
                  r.setter ? Printf("%#llx", (unsigned long long)r.setter).c_str() : "-");
  }
  return out;
}

}  // namespace prhost
